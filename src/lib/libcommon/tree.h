// The generic named tree: each node has a name, an optional value and children kept
// sorted with the tree's compare function.  Nodes are addressed by paths held as
// `tstr_array` (one name per element); a path of text goes through the tree's escape and
// unescape functions.
//
// Values.  A value handed to the tree is stored as follows: with a set function, it is
// called with the new value and the node's value slot (which holds the old value or null)
// and does the whole job; otherwise, with a dup function, a copy is made and the old value
// released with the free function; otherwise the pointer itself is stored and the tree owns
// it from then on.  Freeing a node releases its value with the free function (if any).
//
// Duplicates.  `tr_dup_policy` decides what an insert does with a name that a sibling
// already has: adp_none and adp_add_new add the new node after its equals; adp_fail_new
// gives lc_err_exists (no log line) with the tree unchanged and the value still the
// caller's; adp_delete_new drops the new node and hands out the old one (a value the tree
// would have taken over without a copy is released); adp_delete_old frees the old node with
// its subtree and puts the new one in its place.
#pragma once
#include "array.h"
#include "common.h"
#include "tstr_array.h"
#include "tstring.h"

struct tree;
struct tree_node;

// An opaque handle of the caller, passed through the walks to the callbacks.
typedef void *tree_context_handle;

typedef uint32 tree_node_flags_bf;
enum tree_node_flags {
    tnf_none = 0,
};

typedef int (*tree_node_compare_func)(const char *name_a, const void *value_a,
                                      const char *name_b, const void *value_b);
typedef int (*tree_value_dup_func)(const void *src_value, void **ret_value);
typedef int (*tree_value_set_func)(const void *src_value, void **inout_value);
typedef void (*tree_value_free_func)(void *value);
// Joins path parts into one text, and splits it again.
typedef int (*tree_path_escape_func)(const tstr_array *path, tbool is_absolute, char **ret_path);
typedef int (*tree_path_unescape_func)(const char *path, tstr_array **ret_path,
                                       tbool *ret_is_absolute);
// Called by tree_foreach for each node with its name, the path of names from the root to
// it, its value, the caller's data and context.  See tree_foreach for the results.
typedef int (*tree_foreach_func)(tree *tr, tree_node *node, const char *name_part,
                                 const tstr_array *abspath, void *value, void *data,
                                 tree_context_handle context);

struct tree_node {
    tree *tn_tree;
    char *tn_name;
    void *tn_value;
    tree_node_flags_bf tn_flags;
    array *tn_children;
    tree_node *tn_parent;
};

struct tree {
    tree_node *tr_root;
    tree_node_compare_func tr_node_compare_func;
    tree_value_dup_func tr_value_dup_func;
    tree_value_set_func tr_value_set_func;
    tree_value_free_func tr_value_free_func;
    tree_path_escape_func tr_path_escape_func;
    tree_path_unescape_func tr_path_unescape_func;
    array_dup_policy tr_dup_policy;
    tbool tr_parent_cache_enabled;
    tstr_array *tr_parent_cache_path;
    tree_node *tr_parent_cache_node;
};

struct tree_options {
    tree_node_compare_func to_node_compare_func;
    tree_value_dup_func to_value_dup_func;
    tree_value_set_func to_value_set_func;
    tree_value_free_func to_value_free_func;
    tree_path_escape_func to_path_escape_func;
    tree_path_unescape_func to_path_unescape_func;
    array_dup_policy to_dup_policy;
    tbool to_parent_cache_enabled;
};

// Standard functions.  A name is a number when it is a non-empty run of decimal digits.
// The standard compare orders two numeric names by value and any other pair as text;
// numerically equal names ("1", "01") fall back to text so that they stay distinct.
tbool tree_is_number(const char *name);
int tree_std_node_compare_func(const char *name_a, const void *value_a, const char *name_b,
                               const void *value_b);
// Calls free().
void tree_std_value_free_func(void *value);
// Separator '/', escape '\'; an absolute path has a leading separator.
int tree_std_path_escape_func(const tstr_array *path, tbool is_absolute, char **ret_path);
int tree_std_path_unescape_func(const char *path, tstr_array **ret_path, tbool *ret_is_absolute);

// The defaults: the standard compare, escape, unescape and free functions, no dup or set
// function, duplicate policy adp_fail_new, parent cache enabled.
int tree_options_get_defaults(tree_options *ret_options);

// Making.  A null options pointer means the defaults.  The root is a node with the empty
// name and no value.
int tree_new(tree **ret_tree, const tree_options *opts);
int tree_free(tree **inout_tree);
// Frees all nodes but the root, and the root's value.
int tree_empty(tree *tr);

// A node of this tree that is in no place yet; it can get children of its own before it
// is inserted with tree_node_insert_child_node.  tree_node_free releases such a node with
// its subtree; a node in a tree is deleted with tree_node_delete instead.
int tree_node_new(tree *tr, const char *name, const void *value, tree_node **ret_node);
int tree_node_free(tree_node **inout_node);

// Reading.  A null node or parent means the root.  A missing child gives lc_err_not_found,
// without a log line, and a null result.  Values are borrowed.
int tree_node_get_child_by_name(const tree *tr, const tree_node *parent, const char *name,
                                tree_node **ret_child);
int tree_node_get_value(const tree *tr, const tree_node *node, void **ret_value);
int tree_node_get_num_children(const tree *tr, const tree_node *node, uint32 *ret_num_children);

// Adding.  The new child's value is stored as described above.  ret_child (may be null)
// is the node in the tree afterwards.  The _node form takes over a detached node of this
// tree (with its subtree) and nulls the caller's pointer; on failure the caller keeps it.
int tree_node_insert_child(tree *tr, tree_node *parent, const char *name, const void *value,
                           tree_node **ret_child);
int tree_node_insert_child_ts(tree *tr, tree_node *parent, const tstring *name,
                              const void *value, tree_node **ret_child);
int tree_node_insert_child_node(tree *tr, tree_node *parent, tree_node **inout_child,
                                tree_node **ret_child);
int tree_node_set_value(tree *tr, tree_node *node, const void *value);

// Removing.  A node with children is refused with lc_err_has_children unless
// delete_children is set; a node of another tree, or the root, with
// lc_err_assertion_failed.  Delete frees the node's value; remove hands it out in
// ret_value (may be null, in which case it is freed).  Children are freed with their values.
// The context is the caller's and is not interpreted here.
int tree_node_delete(tree *tr, tree_node *node, tbool delete_children,
                     tree_context_handle context);
int tree_node_remove(tree *tr, tree_node *node, void **ret_value, tbool delete_children,
                     tree_context_handle context);

// The names from below base_node (null: the root) down to node, inclusive.  A base node
// that isn't an ancestor of the node (or the node itself) gives lc_err_not_an_ancestor.
int tree_node_get_path(const tree *tr, const tree_node *base_node, const tree_node *node,
                       tstr_array **ret_path);
// The same joined with the escape function; absolute when the base is the root.
int tree_node_get_path_str(const tree *tr, const tree_node *base_node, const tree_node *node,
                           char **ret_path);

// Finds the node at path below start_node (null: the root).  At each level an exact name
// wins; otherwise, with a wildcard given, a child named by the wildcard is taken.  There is
// no backtracking.  Not found gives lc_err_not_found, without a log line, and a null
// result.  A start node of another tree gives lc_err_assertion_failed.
int tree_get_node_by_path_wildcarded(const tree *tr, const tree_node *start_node,
                                     const tstr_array *path, const char *wildcard,
                                     tree_node **ret_node);
int tree_get_node_by_path(const tree *tr, const tree_node *start_node, const tstr_array *path,
                          tree_node **ret_node);

// Walks path below base_node (null: the root) so that all but its last part exist, and
// gives that parent and its depth below the base (the path length less one).  A missing
// node is made (without value) when create_path is set; otherwise the result is
// lc_err_no_path, without a log line.  An empty path gives lc_err_bad_path.
// With the parent cache enabled, walks from the root remember the parent found; a later
// path with the same parent path takes the cached node without a walk.
int tree_ensure_path(tree *tr, tree_node *base_node, const tstr_array *path,
                     tbool create_path, tree_node **ret_parent, uint32 *ret_parent_depth);

// Sets the value of the node at path below base_node (null: the root), making the node
// (and, with create_path, the nodes above it).  An empty path names the base node.
int tree_set_node_value_by_path(tree *tr, tree_node *base_node, const tstr_array *path,
                                const void *value, tbool create_path, tree_node **ret_node);
// The same with a path of text, split with the unescape function.
int tree_set_node_value_by_path_str(tree *tr, tree_node *base_node, const char *path,
                                    const void *value, tbool create_path,
                                    tree_node **ret_node);

// Walks the nodes below start_node (null: the root), depth first, each node before its
// children, children in sorted order, down to max_depth levels (1: the children only; a
// negative depth: all).  By the callback's result:
//   0                        go on
//   lc_err_foreach_delete    delete the node with its subtree and values; go on
//   lc_err_foreach_remove    the same, but the node's own value is left to the callback
//   lc_err_foreach_halt_ok   stop, with 0
//   lc_err_foreach_halt_err  stop, with lc_err_foreach_halt_err
//   any other                stop, with that code (logged)
// The callback must not change the tree otherwise.
int tree_foreach(tree *tr, tree_node *start_node, int32 max_depth, tree_foreach_func func,
                 void *data, tree_context_handle context);

// Forgets the cached parent; called by everything that frees nodes.
int tree_parent_cache_invalidate(tree *tr);
