// Monitoring dispatch of the management client.  A daemon that offers monitoring nodes
// does not know its own node tree: every query that the management daemon passes on
// carries, beside the nodes asked for, the names registered for this daemon with their
// capability masks (nodes of subop bqso_reg_info).  The dispatch builds a registration
// tree from them, one per query, and turns the query into calls of two handlers: get
// (answer one node) and iterate (list the instances under a wildcard).
//
// The registration tree is a `tree` whose paths follow the binding name syntax: a node
// registered as "/a/b/*" sits under the tree nodes "a", "b" and "*", and the node's value
// is its mdc_remote_node_reg, owned by the tree.
#pragma once

#include "bnode.h"
#include "bnode_proto.h"
#include "common.h"
#include "gcl.h"
#include "tree.h"
#include "tstr_array.h"
#include "tstring.h"

// ---------------------------------------------------------------------------------------
// Capability groups, from which the capability masks of registrations are built.

enum mdc_capability_gid {
    mgt_admin = 0,
    mgt_radmin = 1000,
    mgt_reserved_range_low = 1000,
    mgt_monitor = 1001,
    mgt_unpriv = 1002,
    mgt_cmcrendv = 1003,
    mgt_reserved_range_high = 1999,
    mgt_v_admin = 2000,
    mgt_diag = 3000,
    mgt_stats = 3001,
    mgt_virt = 3002,
    mgt_acl_range_low = 10000,
    mgt_acl_admin = 10000,
    mgt_acl_monitor = 10001,
    mgt_acl_cmcrendv = 10002,
    mgt_acl_cmcclient = 10003,
    mgt_LAST = 10004,
};

// The groups that have a text: admin, radmin, monitor, unpriv, cmcrendv, v_admin.
extern const lc_enum_string_map mdc_capability_gid_map[];

// ---------------------------------------------------------------------------------------
// Registrations.

struct mdc_remote_node_reg {
    char *mrnr_name;               // owned; the registered name, maybe with "*" parts
    uint32 mrnr_node_reg_flags;    // always 0 in this client
    tstr_array *mrnr_name_parts;   // not filled in by this client
    uint32 mrnr_cap_mask;
};

int mdc_remote_reg_new_node(mdc_remote_node_reg **ret_node, const char *node_name,
                            uint32 node_reg_flags, uint32 cap_mask);
int mdc_remote_reg_free(mdc_remote_node_reg **inout_node);
// The value release of the registration tree.
void mdc_remote_reg_free_for_tree(void *value);

// A new, empty registration tree: the tree defaults, no value copy,
// mdc_remote_reg_free_for_tree as value release and the binding name syntax for paths.
int mdc_remote_reg_tree_new(tree **ret_tree);
// Stores the node in the tree under its name, making the nodes above it.  The tree takes
// the node over; *inout_node is nulled, also on failure (when the node is freed).  A
// second registration of the same name replaces the first.
int mdc_remote_reg_add_node(tree *remote_reg_tree, mdc_remote_node_reg **inout_node);
// The tree node for a name, where a "*" node of the tree matches any part that has no
// exact match, and its registration (null when the tree node has none).  A name for which
// there is no tree node gives 0 and two nulls.  Both results are borrowed.
int mdc_remote_reg_get_node_tree(const tree *remote_tree, const tstr_array *node_name_parts,
                                 tree_node **ret_tree_node, mdc_remote_node_reg **ret_reg_node);

// Direct reads; the name is borrowed.
int mdc_remote_reg_get_name(const mdc_remote_node_reg *node, const char **ret_name);
int mdc_remote_reg_get_node_reg_flags(const mdc_remote_node_reg *node,
                                      uint32 *ret_node_reg_flags);
int mdc_remote_reg_get_cap_mask(const mdc_remote_node_reg *node, uint32 *ret_cap_mask);

// ---------------------------------------------------------------------------------------
// Handlers.  The name and its parts are working buffers of the dispatch, reused between
// calls: a handler must not keep them.

// Appends zero or more bindings for exactly this name.
typedef int (*mdc_mon_request_get_handler)(const char *node_name,
                                           const tstr_array *node_name_parts, void *get_data,
                                           bn_binding_array *resp_bindings);
// Appends the names of the instances under the name: last parts only, unescaped.
typedef int (*mdc_mon_request_iterate_handler)(const char *node_name,
                                               const tstr_array *node_name_parts,
                                               void *iterate_data, tstr_array *resp_names);

// What one step of the walk hands to mdc_mon_handle_literal_node for each tree child.
struct mdc_mon_iterate_context {
    tstring *mmic_bname;                    // the name being built (borrowed)
    tstr_array *mmic_bname_parts;           // its parts (borrowed)
    tree *mmic_remote_reg_tree;
    uint32 mmic_cap_mask;
    bn_query_node_flags_bf mmic_query_node_flags;
    uint32 mmic_curr_depth;                 // the depth of the node whose children these are
    mdc_mon_request_get_handler mmic_get_handler;
    void *mmic_get_data;
    mdc_mon_request_iterate_handler mmic_iterate_handler;
    void *mmic_iterate_data;
    bn_binding_array *mmic_resp_bindings;
    tstring *mmic_bname_last_part;          // the child's part, held by mmic_bname_parts
};

// ---------------------------------------------------------------------------------------
// Dispatch.

// Builds the answer to a query (see mdc_dispatch_mon_request_nosend) and sends it on the
// session.  When not even a response could be made, a query response with code 1 and
// "An internal error occurred" is sent instead.  Returns the error of the build, or else
// of the send.
int mdc_dispatch_mon_request(gcl_session *sess, const bn_request *query_request,
                             mdc_mon_request_get_handler get_handler, void *get_data,
                             mdc_mon_request_iterate_handler iterate_handler,
                             void *iterate_data);

// Builds the answer to a query without sending it.  Nodes of subop bqso_reg_info make the
// registration tree; then each bqso_get node calls get_handler for its name, and each
// bqso_iterate node walks the registration tree below its name (see
// mdc_mon_iterate_node_internal).  Every binding of the answer carries the node id of the
// request node that brought it.  A failing handler leaves its node's answer partial and
// the response's code 0.  Unlike a constructor, this hands out the response built so far
// also when it fails, so that the asker still gets an answer; *ret_resp is null only when
// none was made.
int mdc_dispatch_mon_request_nosend(const bn_request *query_request,
                                    mdc_mon_request_get_handler get_handler, void *get_data,
                                    mdc_mon_request_iterate_handler iterate_handler,
                                    void *iterate_data, bn_response **ret_resp);

// The walk below one tree node.  node_name and node_name_parts name this_tree_node; they
// are working buffers that every step extends and takes back, so that they are as they
// were on return.  Depth 0 is the node asked for; without bqnf_sel_iterate_subtree the walk
// goes no deeper than 1.  A registration whose name ends in "/*", reached under the literal
// part "*", stands for all instances: iterate_handler lists them under the parent name and
// each instance is walked in the wildcard's place (its instances count as depth 1 when the
// wildcard was the node asked for).  get_handler is called for a registered node at a
// depth above 0 (or at 0 with bqnf_sel_iterate_include_self), but not for a node with
// children under bqnf_sel_iterate_leaf_nodes_only, never under bqnf_sel_class_no_state,
// and only when the registration's mask holds all bits of cap_mask.  A failure ends the
// walk.
int mdc_mon_iterate_node_internal(tree *remote_reg_tree, uint32 cap_mask, tstring *node_name,
                                  tstr_array *node_name_parts, tree_node *this_tree_node,
                                  const mdc_remote_node_reg *this_reg_node,
                                  bn_query_node_flags_bf query_node_flags, uint32 curr_depth,
                                  mdc_mon_request_get_handler get_handler, void *get_data,
                                  mdc_mon_request_iterate_handler iterate_handler,
                                  void *iterate_data, bn_binding_array *resp_bindings);

// The tree_foreach callback of the walk (data: an mdc_mon_iterate_context): appends the
// child's part to the name and parts and walks the child one level deeper.
int mdc_mon_handle_literal_node(tree *tr, tree_node *tnode, const char *name_part,
                                const tstr_array *abspath, void *value, void *data,
                                tree_context_handle context);
