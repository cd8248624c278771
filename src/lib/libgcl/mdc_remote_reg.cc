// Monitoring dispatch of the management client and the registration tree it walks.
#include "mdc_remote_reg.h"

#include <cstdlib>
#include <cstring>

#include "bnode_session.h"
#include "bnode_types.h"
#include "logging.h"

const lc_enum_string_map mdc_capability_gid_map[] = {
    {mgt_admin, "admin"},
    {mgt_radmin, "radmin"},
    {mgt_monitor, "monitor"},
    {mgt_unpriv, "unpriv"},
    {mgt_cmcrendv, "cmcrendv"},
    {mgt_v_admin, "v_admin"},
    {0, nullptr},
};

namespace {

const char mdc_wildcard_part[] = "*";
const char mdc_wildcard_suffix[] = "/*";
const char mdc_internal_error_msg[] = "An internal error occurred";

// Takes the name and parts back to what they were before an extension: the name to
// name_chars characters, the parts to num_parts elements.
int mdc_mon_restore_name(tstring *node_name, uint32 name_chars, tstr_array *node_name_parts,
                         uint32 num_parts)
{
    int err = 0;
    tstring *popped = nullptr;
    int32 cur_chars = 0;

    bail_null(node_name);
    bail_null(node_name_parts);
    cur_chars = ts_num_chars(node_name);
    if (cur_chars > static_cast<int32>(name_chars)) {
        err = ts_trim_tail(node_name, static_cast<uint32>(cur_chars) - name_chars);
        bail_error(err);
    }
    while (tstr_array_length_quick(node_name_parts) > num_parts) {
        err = tstr_array_pop(node_name_parts, &popped);
        bail_error(err);
        ts_free(&popped);
    }

bail:
    ts_free(&popped);
    return err;
}

// Moves every binding of the work array into the response, as answers to node_id; the
// work array is empty afterwards.
int mdc_mon_move_bindings(bn_binding_array *work, bn_response *resp, int32 node_id)
{
    int err = 0;
    bn_binding *binding = nullptr;

    while (bn_binding_array_length_quick(work) > 0) {
        err = bn_binding_array_remove(work, 0, &binding);
        bail_error(err);
        err = bn_query_response_msg_append_binding_takeover(resp, &binding, node_id);
        bail_error(err);
    }

bail:
    bn_binding_free(&binding);
    return err;
}

// Whether the binding's cached parts are exactly what splitting its name gives, so that
// they can stand for the name as a tree path: an absolute name's parts, joined and split
// again, come back the same, but for the one empty part, which splits to none.
tbool mdc_mon_parts_are_name(const bn_binding *binding, const tstr_array **ret_parts)
{
    const tstr_array *parts = nullptr;
    tbool is_absolute = false;

    *ret_parts = nullptr;
    if (bn_binding_get_name_parts_const(binding, &parts, &is_absolute) != 0 || parts == nullptr ||
        !is_absolute) {
        return false;
    }
    if (tstr_array_length_quick(parts) == 1 &&
        ts_length(tstr_array_get_quick(parts, 0)) == 0) {
        return false;
    }
    *ret_parts = parts;
    return true;
}

// Enters the registration carried by one bqso_reg_info node into the tree.
int mdc_mon_add_registration(tree *reg_tree, const bn_binding *binding)
{
    int err = 0;
    const tstr_array *parts = nullptr;
    const bn_attrib *attrib = nullptr;
    bn_attribute_id attrib_id = ba_NONE;
    uint32 cap_mask = 0;
    mdc_remote_node_reg *reg = nullptr;
    const tstring *name = nullptr;

    err = bn_binding_get_name(binding, &name);
    bail_error(err);
    err = bn_binding_get_attrib(binding, ba_cap_mask, &attrib);
    bail_error(err);
    bail_null(attrib);
    err = bn_attrib_get_uint32(attrib, &attrib_id, nullptr, &cap_mask);
    bail_error(err);
    if (attrib_id != ba_cap_mask) {
        lc_log_basic(LOG_ERR, "Expected cap_mask attribute got %d", static_cast<int>(attrib_id));
        goto bail;
    }
    err = mdc_remote_reg_new_node(&reg, ts_str(name), 0, cap_mask);
    bail_error(err);
    if (mdc_mon_parts_are_name(binding, &parts)) {
        // The tree takes the node on success.
        err = tree_set_node_value_by_path(reg_tree, nullptr, parts, reg, true, nullptr);
        bail_error(err);
        reg = nullptr;
    } else {
        err = mdc_remote_reg_add_node(reg_tree, &reg);
        bail_error(err);
    }

bail:
    mdc_remote_reg_free(&reg);
    return err;
}

// One bqso_iterate node: the walk from the tree node of its name, at depth 0.
int mdc_mon_iterate_request_node(tree *reg_tree, const tstr_array *name_parts,
                                 bn_query_node_flags_bf query_flags,
                                 mdc_mon_request_get_handler get_handler, void *get_data,
                                 mdc_mon_request_iterate_handler iterate_handler,
                                 void *iterate_data, bn_binding_array *work, int *ret_walk_err)
{
    int err = 0;
    tstr_array *walk_parts = nullptr;
    tstring *walk_name = nullptr;
    tree_node *tnode = nullptr;
    mdc_remote_node_reg *reg = nullptr;

    *ret_walk_err = 0;
    err = tstr_array_duplicate(name_parts, &walk_parts);
    bail_error(err);
    err = bn_binding_name_parts_to_name_tstr(walk_parts, true, &walk_name);
    bail_error(err);
    err = mdc_remote_reg_get_node_tree(reg_tree, walk_parts, &tnode, &reg);
    bail_error(err);
    *ret_walk_err = mdc_mon_iterate_node_internal(reg_tree, 0, walk_name, walk_parts, tnode, reg,
                                                  query_flags, 0, get_handler, get_data,
                                                  iterate_handler, iterate_data, work);

bail:
    ts_free(&walk_name);
    tstr_array_free(&walk_parts);
    return err;
}

} // namespace

// ---------------------------------------------------------------------------------------
// Registrations.

int mdc_remote_reg_new_node(mdc_remote_node_reg **ret_node, const char *node_name,
                            uint32 node_reg_flags, uint32 cap_mask)
{
    int err = 0;
    mdc_remote_node_reg *node = nullptr;

    bail_null(ret_node);
    *ret_node = nullptr;
    bail_null(node_name);
    node = static_cast<mdc_remote_node_reg *>(calloc(1, sizeof(mdc_remote_node_reg)));
    bail_null(node);
    node->mrnr_name = safe_strdup(node_name);
    bail_null(node->mrnr_name);
    node->mrnr_node_reg_flags = node_reg_flags;
    node->mrnr_name_parts = nullptr;
    node->mrnr_cap_mask = cap_mask;
    *ret_node = node;
    node = nullptr;

bail:
    mdc_remote_reg_free(&node);
    return err;
}

int mdc_remote_reg_free(mdc_remote_node_reg **inout_node)
{
    if (inout_node == nullptr || *inout_node == nullptr) {
        return 0;
    }
    mdc_remote_node_reg *node = *inout_node;
    free(node->mrnr_name);
    tstr_array_free(&node->mrnr_name_parts);
    free(node);
    *inout_node = nullptr;
    return 0;
}

void mdc_remote_reg_free_for_tree(void *value)
{
    mdc_remote_node_reg *node = static_cast<mdc_remote_node_reg *>(value);
    mdc_remote_reg_free(&node);
}

int mdc_remote_reg_tree_new(tree **ret_tree)
{
    int err = 0;
    tree_options opts{};

    bail_null(ret_tree);
    *ret_tree = nullptr;
    err = tree_options_get_defaults(&opts);
    bail_error(err);
    opts.to_value_dup_func = nullptr;
    opts.to_value_set_func = nullptr;
    opts.to_value_free_func = mdc_remote_reg_free_for_tree;
    opts.to_path_escape_func = bn_binding_name_parts_to_name;
    opts.to_path_unescape_func = bn_binding_name_to_parts;
    err = tree_new(ret_tree, &opts);
    bail_error(err);

bail:
    return err;
}

int mdc_remote_reg_add_node(tree *remote_reg_tree, mdc_remote_node_reg **inout_node)
{
    int err = 0;
    mdc_remote_node_reg *node = nullptr;

    bail_null(inout_node);
    node = *inout_node;
    *inout_node = nullptr;
    bail_null(remote_reg_tree);
    bail_null(node);
    bail_null(node->mrnr_name);
    err = tree_set_node_value_by_path_str(remote_reg_tree, nullptr, node->mrnr_name, node, true,
                                          nullptr);
    bail_error(err);
    node = nullptr;

bail:
    mdc_remote_reg_free(&node);
    return err;
}

int mdc_remote_reg_get_node_tree(const tree *remote_tree, const tstr_array *node_name_parts,
                                 tree_node **ret_tree_node, mdc_remote_node_reg **ret_reg_node)
{
    int err = 0;
    tree_node *tnode = nullptr;

    if (ret_tree_node != nullptr) {
        *ret_tree_node = nullptr;
    }
    if (ret_reg_node != nullptr) {
        *ret_reg_node = nullptr;
    }
    bail_null(remote_tree);
    bail_null(node_name_parts);
    err = tree_get_node_by_path_wildcarded(remote_tree, nullptr, node_name_parts,
                                           mdc_wildcard_part, &tnode);
    if (err == lc_err_not_found) {
        err = 0;
        goto bail;
    }
    bail_error(err);
    if (ret_tree_node != nullptr) {
        *ret_tree_node = tnode;
    }
    if (ret_reg_node != nullptr) {
        *ret_reg_node = static_cast<mdc_remote_node_reg *>(tnode->tn_value);
    }

bail:
    return err;
}

int mdc_remote_reg_get_name(const mdc_remote_node_reg *node, const char **ret_name)
{
    int err = 0;

    bail_null(ret_name);
    *ret_name = nullptr;
    bail_null(node);
    *ret_name = node->mrnr_name;

bail:
    return err;
}

int mdc_remote_reg_get_node_reg_flags(const mdc_remote_node_reg *node,
                                      uint32 *ret_node_reg_flags)
{
    int err = 0;

    bail_null(ret_node_reg_flags);
    *ret_node_reg_flags = 0;
    bail_null(node);
    *ret_node_reg_flags = node->mrnr_node_reg_flags;

bail:
    return err;
}

int mdc_remote_reg_get_cap_mask(const mdc_remote_node_reg *node, uint32 *ret_cap_mask)
{
    int err = 0;

    bail_null(ret_cap_mask);
    *ret_cap_mask = 0;
    bail_null(node);
    *ret_cap_mask = node->mrnr_cap_mask;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The walk.

int mdc_mon_handle_literal_node(tree *tr, tree_node *tnode, const char *name_part,
                                const tstr_array *abspath, void *value, void *data,
                                tree_context_handle context)
{
    int err = 0;
    mdc_mon_iterate_context *ctx = static_cast<mdc_mon_iterate_context *>(data);
    tstring *part = nullptr;
    tstring *shared_part = nullptr;
    uint32 name_chars = 0;
    tbool extended = false;
    int restore_err = 0;

    (void)abspath;
    (void)context;
    bail_null(ctx);
    bail_null(name_part);
    name_chars = static_cast<uint32>(ts_num_chars(ctx->mmic_bname));
    extended = true;
    err = bn_binding_name_append_part_tstr(ctx->mmic_bname, name_part);
    bail_error(err);
    // The first child adds one element to the parts; the later ones overwrite it.
    if (ctx->mmic_bname_last_part == nullptr) {
        err = ts_new_str(&part, name_part);
        bail_error(err);
        shared_part = part;
        err = tstr_array_append_takeover(ctx->mmic_bname_parts, &part);
        bail_error(err);
        ctx->mmic_bname_last_part = shared_part;
    } else {
        err = ts_replace_str(ctx->mmic_bname_last_part, name_part);
        bail_error(err);
    }
    err = mdc_mon_iterate_node_internal(
        tr, ctx->mmic_cap_mask, ctx->mmic_bname, ctx->mmic_bname_parts, tnode,
        static_cast<const mdc_remote_node_reg *>(value), ctx->mmic_query_node_flags,
        ctx->mmic_curr_depth + 1, ctx->mmic_get_handler, ctx->mmic_get_data,
        ctx->mmic_iterate_handler, ctx->mmic_iterate_data, ctx->mmic_resp_bindings);
    bail_error(err);

bail:
    ts_free(&part);
    if (extended) {
        // Only the name is cut back here; the part is popped by the caller of the foreach.
        restore_err = mdc_mon_restore_name(ctx->mmic_bname, name_chars, ctx->mmic_bname_parts,
                                           tstr_array_length_quick(ctx->mmic_bname_parts));
        if (err == 0) {
            err = restore_err;
        }
    }
    return err;
}

int mdc_mon_iterate_node_internal(tree *remote_reg_tree, uint32 cap_mask, tstring *node_name,
                                  tstr_array *node_name_parts, tree_node *this_tree_node,
                                  const mdc_remote_node_reg *this_reg_node,
                                  bn_query_node_flags_bf query_node_flags, uint32 curr_depth,
                                  mdc_mon_request_get_handler get_handler, void *get_data,
                                  mdc_mon_request_iterate_handler iterate_handler,
                                  void *iterate_data, bn_binding_array *resp_bindings)
{
    int err = 0;
    tbool do_get = true;
    tbool do_walk = true;
    const char *reg_name = nullptr;
    uint32 reg_cap_mask = 0;
    uint32 num_children = 0;
    uint32 num_parts = 0;
    uint32 name_chars = 0;
    const char *last_part = nullptr;
    mdc_mon_iterate_context ctx{};
    tstr_array *instances = nullptr;
    tstring *wildcard_part = nullptr;
    tbool wildcard_cut = false;
    tbool instance_added = false;
    uint32 parent_chars = 0;
    uint32 parent_parts = 0;
    int restore_err = 0;

    bail_null(remote_reg_tree);
    bail_null(node_name);
    bail_null(node_name_parts);
    bail_null(resp_bindings);

    if ((curr_depth > 1 && (query_node_flags & bqnf_sel_iterate_subtree) == 0) ||
        this_tree_node == nullptr) {
        goto bail;
    }

    num_parts = tstr_array_length_quick(node_name_parts);
    if (this_reg_node != nullptr) {
        err = mdc_remote_reg_get_name(this_reg_node, &reg_name);
        bail_error(err);
        err = mdc_remote_reg_get_cap_mask(this_reg_node, &reg_cap_mask);
        bail_error(err);
        last_part = num_parts > 0 ? tstr_array_get_str_quick(node_name_parts, num_parts - 1)
                                  : nullptr;
        // Reached under the literal "*": the node stands for all its instances.
        if (lc_is_suffix(mdc_wildcard_suffix, reg_name, false) && last_part != nullptr &&
            strcmp(last_part, mdc_wildcard_part) == 0) {
            do_get = false;
            do_walk = false;
            if (curr_depth == 0) {
                curr_depth = 1;
            }
        }
    }

    if (this_reg_node != nullptr && do_get &&
        (curr_depth != 0 || (query_node_flags & bqnf_sel_iterate_include_self) != 0)) {
        err = tree_node_get_num_children(remote_reg_tree, this_tree_node, &num_children);
        bail_error(err);
        if (((query_node_flags & bqnf_sel_iterate_leaf_nodes_only) == 0 || num_children == 0) &&
            (query_node_flags & bqnf_sel_class_no_state) == 0 &&
            (reg_cap_mask & cap_mask) == cap_mask) {
            bail_null(get_handler);
            err = get_handler(ts_str(node_name), node_name_parts, get_data, resp_bindings);
            bail_error(err);
        }
    }

    if (do_walk) {
        ctx.mmic_bname = node_name;
        ctx.mmic_bname_parts = node_name_parts;
        ctx.mmic_remote_reg_tree = remote_reg_tree;
        ctx.mmic_cap_mask = cap_mask;
        ctx.mmic_query_node_flags = query_node_flags;
        ctx.mmic_curr_depth = curr_depth;
        ctx.mmic_get_handler = get_handler;
        ctx.mmic_get_data = get_data;
        ctx.mmic_iterate_handler = iterate_handler;
        ctx.mmic_iterate_data = iterate_data;
        ctx.mmic_resp_bindings = resp_bindings;
        ctx.mmic_bname_last_part = nullptr;
        err = tree_foreach(remote_reg_tree, this_tree_node, 1, mdc_mon_handle_literal_node, &ctx,
                           nullptr);
        // Pop the part the children shared, also after a failure.
        restore_err = mdc_mon_restore_name(node_name, static_cast<uint32>(ts_num_chars(node_name)),
                                           node_name_parts, num_parts);
        ctx.mmic_bname_last_part = nullptr;
        bail_error(err);
        err = restore_err;
        bail_error(err);
        goto bail;
    }

    // The wildcard's instances, each walked in its place under the parent's name.
    bail_null(iterate_handler);
    bail_require(num_parts > 0);
    name_chars = static_cast<uint32>(ts_num_chars(node_name));
    bail_require(name_chars >= 2);
    err = ts_trim_tail(node_name, 2);
    bail_error(err);
    err = tstr_array_pop(node_name_parts, &wildcard_part);
    wildcard_cut = true;
    bail_error(err);
    parent_chars = name_chars - 2;
    parent_parts = num_parts - 1;

    err = tstr_array_new(&instances, nullptr);
    bail_error(err);
    err = iterate_handler(ts_str(node_name), node_name_parts, iterate_data, instances);
    bail_error(err);

    for (uint32 i = 0; i < tstr_array_length_quick(instances); ++i) {
        const char *instance = tstr_array_get_str_quick(instances, i);
        instance_added = true;
        err = bn_binding_name_append_part_tstr(node_name, instance);
        bail_error(err);
        err = tstr_array_append_str(node_name_parts, instance);
        bail_error(err);
        err = mdc_mon_iterate_node_internal(remote_reg_tree, cap_mask, node_name, node_name_parts,
                                            this_tree_node, this_reg_node, query_node_flags,
                                            curr_depth, get_handler, get_data, iterate_handler,
                                            iterate_data, resp_bindings);
        bail_error(err);
        instance_added = false;
        err = mdc_mon_restore_name(node_name, parent_chars, node_name_parts, parent_parts);
        bail_error(err);
    }

bail:
    if (instance_added) {
        restore_err = mdc_mon_restore_name(node_name, parent_chars, node_name_parts, parent_parts);
        if (err == 0) {
            err = restore_err;
        }
    }
    if (wildcard_cut) {
        // The same part object goes back, so that a caller sharing it keeps a valid pointer.
        restore_err = ts_append_str(node_name, mdc_wildcard_suffix);
        if (restore_err == 0 && wildcard_part != nullptr) {
            restore_err = tstr_array_append_takeover(node_name_parts, &wildcard_part);
        }
        if (err == 0) {
            err = restore_err;
        }
    }
    ts_free(&wildcard_part);
    tstr_array_free(&instances);
    return err;
}

// ---------------------------------------------------------------------------------------
// Dispatch.

int mdc_dispatch_mon_request_nosend(const bn_request *query_request,
                                    mdc_mon_request_get_handler get_handler, void *get_data,
                                    mdc_mon_request_iterate_handler iterate_handler,
                                    void *iterate_data, bn_response **ret_resp)
{
    int err = 0;
    bn_response *resp = nullptr;
    bn_binding_array *work = nullptr;
    tree *reg_tree = nullptr;
    const bn_request_per_node *node = nullptr;
    const bn_query_request_per_node *qnode = nullptr;
    const tstr_array *parts = nullptr;
    tstr_array *owned_parts = nullptr;
    const char *name = nullptr;
    uint32 num_nodes = 0;
    int handler_err = 0;

    bail_null(ret_resp);
    *ret_resp = nullptr;
    bail_null(query_request);
    bail_require(bn_request_get_msg_type(query_request) == bbmt_query_request);

    err = bn_query_response_msg_create(&resp, bn_request_get_msg_id(query_request), 0, nullptr);
    bail_error(err);
    err = bn_binding_array_new(&work);
    bail_error(err);
    err = mdc_remote_reg_tree_new(&reg_tree);
    bail_error(err);

    num_nodes = bn_request_get_num_nodes(query_request);

    // The registrations first: the walks of the other nodes need the whole tree.
    for (uint32 i = 0; i < num_nodes; ++i) {
        node = bn_request_get_nth_node_const(query_request, i);
        bail_null(node);
        qnode = &node->brn_node_settings.brns_query;
        if (node->brn_binding == nullptr || qnode->bqn_query_subop != bqso_reg_info) {
            continue;
        }
        err = mdc_mon_add_registration(reg_tree, node->brn_binding);
        bail_error(err);
    }

    for (uint32 i = 0; i < num_nodes; ++i) {
        node = bn_request_get_nth_node_const(query_request, i);
        bail_null(node);
        qnode = &node->brn_node_settings.brns_query;
        if (node->brn_binding == nullptr || qnode->bqn_query_subop == bqso_reg_info) {
            continue;
        }
        name = ts_str(bn_binding_get_name_quick(node->brn_binding));
        err = bn_binding_get_name_parts_const(node->brn_binding, &parts, nullptr);
        bail_error(err);
        if (parts == nullptr) {
            err = bn_binding_get_name_parts(node->brn_binding, &owned_parts);
            bail_error(err);
            parts = owned_parts;
        }

        switch (qnode->bqn_query_subop) {
        case bqso_get:
            bail_null(get_handler);
            handler_err = get_handler(name, parts, get_data, work);
            if (handler_err != 0) {
                lc_log_basic(LOG_ERR, "Get handler for '%s'", name);
            }
            break;
        case bqso_iterate:
            err = mdc_mon_iterate_request_node(reg_tree, parts, qnode->bqn_query_flags,
                                               get_handler, get_data, iterate_handler,
                                               iterate_data, work, &handler_err);
            bail_error(err);
            if (handler_err != 0) {
                lc_log_basic(LOG_ERR, "Iterate handler for '%s'", name);
            }
            break;
        default:
            lc_log_basic(LOG_ERR, "Unexpected query subop %d; ignoring request for binding %s",
                         static_cast<int>(qnode->bqn_query_subop), name);
            break;
        }

        err = mdc_mon_move_bindings(work, resp, node->brn_node_id);
        bail_error(err);
        parts = nullptr;
        tstr_array_free(&owned_parts);
    }

bail:
    if (ret_resp != nullptr) {
        // Also after a failure: the asker gets what was built.
        *ret_resp = resp;
        resp = nullptr;
    }
    bn_response_msg_free(&resp);
    tstr_array_free(&owned_parts);
    bn_binding_array_free(&work);
    tree_free(&reg_tree);
    return err;
}

int mdc_dispatch_mon_request(gcl_session *sess, const bn_request *query_request,
                             mdc_mon_request_get_handler get_handler, void *get_data,
                             mdc_mon_request_iterate_handler iterate_handler,
                             void *iterate_data)
{
    int err = 0;
    int send_err = 0;
    bn_response *resp = nullptr;

    err = mdc_dispatch_mon_request_nosend(query_request, get_handler, get_data, iterate_handler,
                                          iterate_data, &resp);
    if (resp != nullptr) {
        send_err = bn_response_msg_send(sess, resp);
    } else {
        send_err = bn_response_msg_create_send(sess, bbmt_query_response,
                                               bn_request_get_msg_id(query_request), 1,
                                               mdc_internal_error_msg, 0);
    }
    if (send_err != 0) {
        complain_error(send_err);
        if (err == 0) {
            err = send_err;
        }
    }
    bn_response_msg_free(&resp);
    return err;
}
