// Management message objects: maps, nodes and their arrays, building and reading
// requests and responses, and the advanced-query conversion.

#include "bnode_proto.h"

#include <cstdlib>
#include <new>

#include "logging.h"

// ---------------------------------------------------------------------------------------
// Maps.

const lc_enum_string_map bn_msg_type_map[] = {
    {bbmt_none, "none"},
    {bbmt_query_request, "query_request"},
    {bbmt_query_response, "query_response"},
    {bbmt_set_request, "set_request"},
    {bbmt_set_response, "set_response"},
    {bbmt_action_request, "action_request"},
    {bbmt_action_response, "action_response"},
    {bbmt_event_request, "event"},
    {bbmt_event_response, "event_ack"},
    {0, nullptr},
};

const lc_enum_string_map bap_service_id_map[] = {
    {bap_service_none, "none"},
    {bap_service_admin, "admin"},
    {bap_service_mgmt, "mgmt"},
    {bap_service_proxy_mgmt, "proxy-mgmt"},
    {bap_service_cluster, "cluster"},
    {0, nullptr},
};

const lc_enum_string_map bn_query_subop_map[] = {
    {bqso_none, "none"},
    {bqso_get, "get"},
    {bqso_iterate, "iterate"},
    {bqso_reg_info, "registration_info"},
    {0, nullptr},
};

const lc_enum_string_map bn_query_node_flags_map[] = {
    {bqnf_sel_class_no_config, "no-config"},
    {bqnf_sel_class_no_state, "no-state"},
    {bqnf_sel_class_enter_passthrough, "enter-pass"},
    {bqnf_sel_class_omit_defaults, "omit-defaults"},
    {bqnf_sel_iterate_subtree, "subtree"},
    {bqnf_sel_iterate_include_self, "include-self"},
    {bqnf_sel_iterate_leaf_nodes_only, "leaves-only"},
    {bqnf_sel_iterate_count, "count"},
    {bqnf_cleartext, "cleartext"},
    {bqnf_as_saved, "as_saved"},
    {0, nullptr},
};

const lc_enum_string_map bn_query_flags_map[] = {
    {bqf_msg_nonbarrier, "msg-non-barrier"},
    {0, nullptr},
};

const lc_enum_string_map bn_set_subop_map[] = {
    {bsso_none, "invalid_NONE"},
    {bsso_create, "create"},
    {bsso_delete, "delete"},
    {bsso_reset, "reset"},
    {bsso_modify, "modify"},
    {bsso_reparent, "reparent"},
    {0, nullptr},
};

const lc_enum_string_map bn_set_flags_map[] = {
    {bsf_continue_after_error, "continue-after-error"},
    {0, nullptr},
};

const lc_enum_string_map bn_set_node_flags_map[] = {
    {bsnf_reparent_by_copy, "reparent-by-copy"},
    {0, nullptr},
};

// ---------------------------------------------------------------------------------------
// Local helpers.

namespace {

tbool is_request_kind(uint32 msg_type)
{
    return msg_type == bbmt_query_request || msg_type == bbmt_set_request ||
           msg_type == bbmt_action_request || msg_type == bbmt_event_request;
}

int tstr_array_dup_maybe(const tstr_array *src, tstr_array **ret_dup)
{
    int err = 0;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    if (src != nullptr) {
        err = tstr_array_duplicate(src, ret_dup);
        bail_error(err);
    }
bail:
    return err;
}

int wildcard_free_contents(bn_query_node_data_per_wildcard *wild)
{
    ts_free(&wild->bqnw_pattern);
    tstr_array_free(&wild->bqnw_pattern_parts);
    ts_free(&wild->bqnw_match_expr);
    tstr_array_free(&wild->bqnw_fields);
    tstr_array_array_free(&wild->bqnw_fields_parts);
    return 0;
}

int wildcard_copy(const bn_query_node_data_per_wildcard *src,
                  bn_query_node_data_per_wildcard *dest)
{
    int err = 0;

    *dest = bn_query_node_data_per_wildcard{};
    err = ts_dup(src->bqnw_pattern, &dest->bqnw_pattern);
    bail_error(err);
    err = tstr_array_dup_maybe(src->bqnw_pattern_parts, &dest->bqnw_pattern_parts);
    bail_error(err);
    err = ts_dup(src->bqnw_match_expr, &dest->bqnw_match_expr);
    bail_error(err);
    err = tstr_array_dup_maybe(src->bqnw_fields, &dest->bqnw_fields);
    bail_error(err);
    if (src->bqnw_fields_parts != nullptr) {
        err = tstr_array_array_duplicate(src->bqnw_fields_parts, &dest->bqnw_fields_parts);
        bail_error(err);
    }
bail:
    if (err) {
        wildcard_free_contents(dest);
    }
    return err;
}

// Copies settings of a node of the given kind deeply; other kinds get zeroed settings.
int settings_copy(uint32 msg_type, const bn_request_per_node_settings *src,
                  bn_request_per_node_settings *dest)
{
    int err = 0;

    *dest = bn_request_per_node_settings{};
    if (src == nullptr) {
        goto bail;
    }
    if (msg_type == bbmt_query_request) {
        dest->brns_query.bqn_query_subop = src->brns_query.bqn_query_subop;
        dest->brns_query.bqn_query_flags = src->brns_query.bqn_query_flags;
        err = bn_query_node_data_copy(&src->brns_query.bqn_query_data,
                                      &dest->brns_query.bqn_query_data);
        bail_error(err);
    } else if (msg_type == bbmt_set_request) {
        dest->brns_set.bsn_set_subop = src->brns_set.bsn_set_subop;
        dest->brns_set.bsn_set_flags = src->brns_set.bsn_set_flags;
        err = ts_dup(src->brns_set.bsn_graft_under_name, &dest->brns_set.bsn_graft_under_name);
        bail_error(err);
        err = ts_dup(src->brns_set.bsn_new_self_name, &dest->brns_set.bsn_new_self_name);
        bail_error(err);
    }
bail:
    if (err) {
        ts_free(&dest->brns_set.bsn_graft_under_name);
        ts_free(&dest->brns_set.bsn_new_self_name);
        *dest = bn_request_per_node_settings{};
    }
    return err;
}

void settings_free_contents(uint32 msg_type, bn_request_per_node_settings *settings)
{
    if (msg_type == bbmt_query_request) {
        bn_query_node_data_free_contents(&settings->brns_query.bqn_query_data);
    } else if (msg_type == bbmt_set_request) {
        ts_free(&settings->brns_set.bsn_graft_under_name);
        ts_free(&settings->brns_set.bsn_new_self_name);
    }
    *settings = bn_request_per_node_settings{};
}

void request_body_free_contents(uint32 msg_type, bn_request_body_settings *body)
{
    switch (msg_type) {
    case bbmt_query_request:
        ts_free(&body->brbs_query.bqrb_opt_db_spec);
        break;
    case bbmt_set_request:
        ts_free(&body->brbs_set.bsrb_opt_db_spec);
        break;
    case bbmt_action_request:
        ts_free(&body->brbs_action.barb_action_name);
        break;
    case bbmt_event_request:
        ts_free(&body->brbs_event.berb_event_name);
        break;
    default:
        break;
    }
    *body = bn_request_body_settings{};
}

// The copy handed out by the readers: name and attributes, and the parts when wanted
// (from the cache, or tokenised from the name).
int binding_copy_for_reading(const bn_binding *binding, tbool want_binding_name_parts,
                             bn_binding **ret_copy)
{
    int err = 0;

    *ret_copy = nullptr;
    bail_null(binding);
    bail_null(binding->bn_node_name);
    if (want_binding_name_parts) {
        err = bn_binding_new_parts_components(ret_copy, ts_str(binding->bn_node_name),
                                              binding->bn_node_name_parts,
                                              binding->bn_node_name_parts_absolute,
                                              binding->bn_attribs);
    } else {
        err = bn_binding_new_components(ret_copy, ts_str(binding->bn_node_name),
                                        binding->bn_attribs);
    }
    bail_error(err);
bail:
    return err;
}

// Where every append ends: takes the binding over into a new node with the message's next
// id.  The binding is the message's once the message is known; a failure after that frees
// the node with it.
int request_append_node_takeover(bn_request *msg, bn_binding **inout_binding,
                                 const bn_request_per_node_settings *node_settings,
                                 int32 *ret_node_id)
{
    int err = 0;
    bn_request_per_node *node = nullptr;
    int32 node_id = 0;

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(msg);
    bail_null(msg->br_nodes);
    bail_null(inout_binding);

    err = bn_request_per_node_new(&node);
    if (err) {
        bn_binding_free(inout_binding);
    }
    bail_error(err);
    node->brn_binding = *inout_binding;
    *inout_binding = nullptr;
    node_id = static_cast<int32>(msg->br_next_node_id);
    node->brn_node_id = node_id;
    node->brn_request_type = static_cast<bn_msg_type>(msg->br_header.brh_msg_type);
    err = settings_copy(msg->br_header.brh_msg_type, node_settings, &node->brn_node_settings);
    bail_error(err);
    err = bn_request_per_node_array_append_takeover(msg->br_nodes, &node);
    bail_error(err);

    ++msg->br_next_node_id;
    if (ret_node_id) {
        *ret_node_id = node_id;
    }
bail:
    bn_request_per_node_free(&node);
    return err;
}

int request_append_node(bn_request *msg, const bn_binding *binding,
                        const bn_request_per_node_settings *node_settings, int32 *ret_node_id)
{
    int err = 0;
    bn_binding *copy = nullptr;

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(msg);
    bail_null(binding);
    err = bn_binding_dup(binding, &copy);
    bail_error(err);
    err = request_append_node_takeover(msg, &copy, node_settings, ret_node_id);
    bail_error(err);
bail:
    bn_binding_free(&copy);
    return err;
}

int query_settings(bn_query_subop subop, bn_query_node_flags_bf flags,
                   bn_request_per_node_settings *ret_settings)
{
    *ret_settings = bn_request_per_node_settings{};
    ret_settings->brns_query.bqn_query_subop = subop;
    ret_settings->brns_query.bqn_query_flags = flags;
    return 0;
}

// The binding of a new-binding append: the value parsed by type, or marked btf_invalid
// when it does not parse; no text at all only for a type without value.
int new_value_binding(const char *name, bn_type type, bn_type_flags_bf type_flags,
                      const char *str_value, bn_binding **ret_binding)
{
    int err = 0;

    *ret_binding = nullptr;
    bail_null(name);
    // The parser decides: a text that doesn't parse makes a binding marked invalid, a
    // missing one is refused but for a type without value (or a binding marked as one).
    err = bn_binding_new_str_autoinval(ret_binding, name, ba_value, type, type_flags, str_value);
    bail_error(err);
bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Advanced-query data.

int bn_query_node_data_free_contents(bn_query_node_data *data)
{
    int err = 0;

    bail_null(data);
    ts_free(&data->bqnd_node_name);
    if (data->bqnd_wildcards != nullptr) {
        for (uint32 i = 0; i < data->bqnd_num_wildcards; ++i) {
            wildcard_free_contents(&data->bqnd_wildcards[i]);
        }
        free(data->bqnd_wildcards);
    }
    *data = bn_query_node_data{};
bail:
    return err;
}

int bn_query_node_data_copy(const bn_query_node_data *src, bn_query_node_data *ret_dest)
{
    int err = 0;
    bn_query_node_data dest{};

    bail_null(ret_dest);
    *ret_dest = bn_query_node_data{};
    bail_null(src);
    err = ts_dup(src->bqnd_node_name, &dest.bqnd_node_name);
    bail_error(err);
    if (src->bqnd_wildcards != nullptr && src->bqnd_num_wildcards > 0) {
        dest.bqnd_wildcards = static_cast<bn_query_node_data_per_wildcard *>(
            calloc(src->bqnd_num_wildcards, sizeof(bn_query_node_data_per_wildcard)));
        bail_null(dest.bqnd_wildcards);
        for (uint32 i = 0; i < src->bqnd_num_wildcards; ++i) {
            err = wildcard_copy(&src->bqnd_wildcards[i], &dest.bqnd_wildcards[i]);
            bail_error(err);
            dest.bqnd_num_wildcards = i + 1;
        }
    }
    *ret_dest = dest;
    dest = bn_query_node_data{};
bail:
    bn_query_node_data_free_contents(&dest);
    return err;
}

namespace {

int aq_append(bn_request *msg, const char *name, bn_type type, const char *value)
{
    int err = 0;
    bn_binding *binding = nullptr;
    bn_request_per_node_settings settings{};

    err = bn_binding_new_str(&binding, name, ba_value, type, btf_none, value);
    bail_error(err);
    query_settings(bqso_get, 0, &settings);
    err = request_append_node_takeover(msg, &binding, &settings, nullptr);
    bail_error(err);
bail:
    bn_binding_free(&binding);
    return err;
}

// The auxiliary nodes of one node's data, numbered by aq_num.
int aq_convert_one(bn_request *msg, const bn_query_node_data *data, uint32 aq_num)
{
    int err = 0;
    char *name = nullptr;

    name = smprintf("/mgmtd/aq/node/%u/name", aq_num);
    bail_null(name);
    err = aq_append(msg, name, bt_name, ts_str(data->bqnd_node_name));
    bail_error(err);

    for (uint32 w = 0; data->bqnd_wildcards != nullptr && w < data->bqnd_num_wildcards; ++w) {
        const bn_query_node_data_per_wildcard &wild = data->bqnd_wildcards[w];
        if (wild.bqnw_pattern != nullptr) {
            free(name);
            name = smprintf("/mgmtd/aq/node/%u/wild/%d/pattern", aq_num, static_cast<int>(w));
            bail_null(name);
            err = aq_append(msg, name, bt_string, ts_str(wild.bqnw_pattern));
            bail_error(err);
        }
        if (wild.bqnw_match_expr != nullptr) {
            free(name);
            name = smprintf("/mgmtd/aq/node/%u/wild/%d/match_expr", aq_num,
                            static_cast<int>(w));
            bail_null(name);
            err = aq_append(msg, name, bt_string, ts_str(wild.bqnw_match_expr));
            bail_error(err);
        }
        const uint32 num_fields = tstr_array_length_quick(wild.bqnw_fields);
        for (uint32 f = 0; f < num_fields; ++f) {
            const char *field = tstr_array_get_str_quick(wild.bqnw_fields, f);
            free(name);
            name = smprintf("/mgmtd/aq/node/%u/wild/%d/fields/%d/name", aq_num,
                            static_cast<int>(w), static_cast<int>(f));
            bail_null(name);
            err = aq_append(msg, name, bt_string, field ? field : "");
            bail_error(err);
        }
    }
bail:
    free(name);
    return err;
}

}  // namespace

int bn_query_node_data_convert(bn_request *query_msg)
{
    int err = 0;
    uint32 num_nodes = 0;

    bail_null(query_msg);
    bail_require(query_msg->br_header.brh_msg_type == bbmt_query_request);

    // Only the nodes present at the start carry data; the ones appended here have none.
    num_nodes = bn_request_per_node_array_length_quick(query_msg->br_nodes);
    for (uint32 i = 0; i < num_nodes; ++i) {
        bn_request_per_node *node = bn_request_per_node_array_get_quick(query_msg->br_nodes, i);
        if (node == nullptr || node->brn_request_type != bbmt_query_request) {
            continue;
        }
        bn_query_node_data *data = &node->brn_node_settings.brns_query.bqn_query_data;
        if (data->bqnd_node_name == nullptr) {
            continue;
        }
        err = aq_convert_one(query_msg, data, query_msg->br_next_node_id);
        bail_error(err);
        bn_query_node_data_free_contents(data);
    }
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Nodes.

int bn_request_per_node_new(bn_request_per_node **ret_node)
{
    int err = 0;

    bail_null(ret_node);
    *ret_node = static_cast<bn_request_per_node *>(lc_zalloc(sizeof(bn_request_per_node)));
    bail_null(*ret_node);
bail:
    return err;
}

int bn_request_per_node_dup(const bn_request_per_node *node, bn_request_per_node **ret_dup)
{
    int err = 0;
    bn_request_per_node *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(node);
    err = bn_request_per_node_new(&dup);
    bail_error(err);
    dup->brn_node_id = node->brn_node_id;
    dup->brn_request_type = node->brn_request_type;
    dup->brn_did_reg_lookup = node->brn_did_reg_lookup;
    dup->brn_node_reg = node->brn_node_reg;
    if (node->brn_binding != nullptr) {
        err = bn_binding_dup(node->brn_binding, &dup->brn_binding);
        bail_error(err);
    }
    err = settings_copy(node->brn_request_type, &node->brn_node_settings,
                        &dup->brn_node_settings);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    bn_request_per_node_free(&dup);
    return err;
}

int bn_request_per_node_free(bn_request_per_node **inout_node)
{
    if (inout_node == nullptr || *inout_node == nullptr) {
        return 0;
    }
    bn_request_per_node *node = *inout_node;
    bn_binding_free(&node->brn_binding);
    settings_free_contents(node->brn_request_type, &node->brn_node_settings);
    free(node);
    *inout_node = nullptr;
    return 0;
}

int bn_response_per_node_new(bn_response_per_node **ret_node)
{
    int err = 0;

    bail_null(ret_node);
    *ret_node = static_cast<bn_response_per_node *>(lc_zalloc(sizeof(bn_response_per_node)));
    bail_null(*ret_node);
bail:
    return err;
}

int bn_response_per_node_dup(const bn_response_per_node *node, bn_response_per_node **ret_dup)
{
    int err = 0;
    bn_response_per_node *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(node);
    err = bn_response_per_node_new(&dup);
    bail_error(err);
    dup->brsn_node_id = node->brsn_node_id;
    dup->brsn_response_type = node->brsn_response_type;
    if (node->brsn_binding != nullptr) {
        err = bn_binding_dup(node->brsn_binding, &dup->brsn_binding);
        bail_error(err);
    }
    *ret_dup = dup;
    dup = nullptr;
bail:
    bn_response_per_node_free(&dup);
    return err;
}

int bn_response_per_node_free(bn_response_per_node **inout_node)
{
    if (inout_node == nullptr || *inout_node == nullptr) {
        return 0;
    }
    bn_binding_free(&(*inout_node)->brsn_binding);
    free(*inout_node);
    *inout_node = nullptr;
    return 0;
}

int bn_request_per_node_dup_for_array(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    bn_request_per_node *dup = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    err = bn_request_per_node_dup(static_cast<const bn_request_per_node *>(src_elem), &dup);
    bail_error(err);
    *ret_dest_elem = dup;
bail:
    return err;
}

void bn_request_per_node_free_for_array(void *elem)
{
    bn_request_per_node *node = static_cast<bn_request_per_node *>(elem);
    bn_request_per_node_free(&node);
}

int bn_response_per_node_dup_for_array(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    bn_response_per_node *dup = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    err = bn_response_per_node_dup(static_cast<const bn_response_per_node *>(src_elem), &dup);
    bail_error(err);
    *ret_dest_elem = dup;
bail:
    return err;
}

void bn_response_per_node_free_for_array(void *elem)
{
    bn_response_per_node *node = static_cast<bn_response_per_node *>(elem);
    bn_response_per_node_free(&node);
}

// ---------------------------------------------------------------------------------------
// The two node arrays share one shape; the template keeps them in step.

namespace {

template <typename Arr, typename Node>
struct node_array_traits;

template <>
struct node_array_traits<bn_request_per_node_array, bn_request_per_node> {
    static array *&arr(bn_request_per_node_array *a) { return a->bn_request_per_node_arr; }
    static array *arr(const bn_request_per_node_array *a) { return a->bn_request_per_node_arr; }
    static constexpr array_elem_dup_func dup = bn_request_per_node_dup_for_array;
    static constexpr array_elem_free_func free_func = bn_request_per_node_free_for_array;
    static int node_free(bn_request_per_node **n) { return bn_request_per_node_free(n); }
};

template <>
struct node_array_traits<bn_response_per_node_array, bn_response_per_node> {
    static array *&arr(bn_response_per_node_array *a) { return a->bn_response_per_node_arr; }
    static array *arr(const bn_response_per_node_array *a) { return a->bn_response_per_node_arr; }
    static constexpr array_elem_dup_func dup = bn_response_per_node_dup_for_array;
    static constexpr array_elem_free_func free_func = bn_response_per_node_free_for_array;
    static int node_free(bn_response_per_node **n) { return bn_response_per_node_free(n); }
};

template <typename Arr, typename Node>
int node_array_free(Arr **inout_arr)
{
    using T = node_array_traits<Arr, Node>;
    if (inout_arr == nullptr || *inout_arr == nullptr) {
        return 0;
    }
    array_free(&T::arr(*inout_arr));
    free(*inout_arr);
    *inout_arr = nullptr;
    return 0;
}

template <typename Arr, typename Node>
int node_array_new_size(Arr **ret_arr, uint32 initial_size)
{
    using T = node_array_traits<Arr, Node>;
    int err = 0;
    Arr *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    opts.ao_elem_dup_func = T::dup;
    opts.ao_elem_free_func = T::free_func;
    opts.ao_elem_takeover_func = array_std_takeover_func;
    arr = static_cast<Arr *>(lc_zalloc(sizeof(Arr)));
    bail_null(arr);
    err = array_new(&T::arr(arr), &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;
bail:
    node_array_free<Arr, Node>(&arr);
    return err;
}

template <typename Arr, typename Node>
int node_array_duplicate(const Arr *src, Arr **ret_dup)
{
    using T = node_array_traits<Arr, Node>;
    int err = 0;
    Arr *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(src);
    dup = static_cast<Arr *>(lc_zalloc(sizeof(Arr)));
    bail_null(dup);
    err = array_duplicate(T::arr(src), &T::arr(dup));
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    node_array_free<Arr, Node>(&dup);
    return err;
}

template <typename Arr, typename Node>
int node_array_get(const Arr *arr, uint32 idx, Node **ret_node)
{
    using T = node_array_traits<Arr, Node>;
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_node);
    *ret_node = nullptr;
    bail_null(arr);
    err = array_get(T::arr(arr), idx, &elem);
    bail_error(err);
    *ret_node = static_cast<Node *>(elem);
bail:
    return err;
}

template <typename Arr, typename Node>
int node_array_append_takeover(Arr *arr, Node **inout_node)
{
    using T = node_array_traits<Arr, Node>;
    int err = 0;

    bail_null(inout_node);
    bail_null(arr);
    err = array_append_takeover(T::arr(arr), reinterpret_cast<void **>(inout_node));
    bail_error(err);
bail:
    if (inout_node) {
        T::node_free(inout_node);
    }
    return err;
}

template <typename Arr, typename Node>
int node_array_remove(Arr *arr, uint32 idx, Node **ret_node)
{
    using T = node_array_traits<Arr, Node>;
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_node);
    *ret_node = nullptr;
    bail_null(arr);
    err = array_remove(T::arr(arr), idx, &elem);
    bail_error(err);
    *ret_node = static_cast<Node *>(elem);
bail:
    return err;
}

}  // namespace

int bn_request_per_node_array_new(bn_request_per_node_array **ret_arr)
{
    return node_array_new_size<bn_request_per_node_array, bn_request_per_node>(
        ret_arr, array_default_initial_size);
}

int bn_request_per_node_array_new_size(bn_request_per_node_array **ret_arr,
                                       uint32 initial_size)
{
    return node_array_new_size<bn_request_per_node_array, bn_request_per_node>(ret_arr,
                                                                               initial_size);
}

int bn_request_per_node_array_duplicate(const bn_request_per_node_array *arr,
                                        bn_request_per_node_array **ret_dup)
{
    return node_array_duplicate<bn_request_per_node_array, bn_request_per_node>(arr, ret_dup);
}

int bn_request_per_node_array_free(bn_request_per_node_array **inout_arr)
{
    return node_array_free<bn_request_per_node_array, bn_request_per_node>(inout_arr);
}

int bn_request_per_node_array_empty(bn_request_per_node_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_empty(arr->bn_request_per_node_arr);
    bail_error(err);
bail:
    return err;
}

int bn_request_per_node_array_length(const bn_request_per_node_array *arr, uint32 *ret_length)
{
    int err = 0;
    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    err = array_length(arr->bn_request_per_node_arr, ret_length);
    bail_error(err);
bail:
    return err;
}

uint32 bn_request_per_node_array_length_quick(const bn_request_per_node_array *arr)
{
    return arr ? array_length_quick(arr->bn_request_per_node_arr) : 0;
}

int bn_request_per_node_array_get(const bn_request_per_node_array *arr, uint32 idx,
                                  bn_request_per_node **ret_node)
{
    return node_array_get<bn_request_per_node_array, bn_request_per_node>(arr, idx, ret_node);
}

bn_request_per_node *bn_request_per_node_array_get_quick(const bn_request_per_node_array *arr,
                                                         uint32 idx)
{
    return arr ? static_cast<bn_request_per_node *>(
                     array_get_quick(arr->bn_request_per_node_arr, idx))
               : nullptr;
}

int bn_request_per_node_array_append(bn_request_per_node_array *arr,
                                     const bn_request_per_node *node)
{
    int err = 0;
    bail_null(arr);
    bail_null(node);
    err = array_append(arr->bn_request_per_node_arr, const_cast<bn_request_per_node *>(node));
    bail_error(err);
bail:
    return err;
}

int bn_request_per_node_array_append_takeover(bn_request_per_node_array *arr,
                                              bn_request_per_node **inout_node)
{
    return node_array_append_takeover<bn_request_per_node_array, bn_request_per_node>(
        arr, inout_node);
}

int bn_request_per_node_array_delete(bn_request_per_node_array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    err = array_delete(arr->bn_request_per_node_arr, idx);
    bail_error(err);
bail:
    return err;
}

int bn_request_per_node_array_remove(bn_request_per_node_array *arr, uint32 idx,
                                     bn_request_per_node **ret_node)
{
    return node_array_remove<bn_request_per_node_array, bn_request_per_node>(arr, idx,
                                                                             ret_node);
}

int bn_response_per_node_array_new(bn_response_per_node_array **ret_arr)
{
    return node_array_new_size<bn_response_per_node_array, bn_response_per_node>(
        ret_arr, array_default_initial_size);
}

int bn_response_per_node_array_new_size(bn_response_per_node_array **ret_arr,
                                        uint32 initial_size)
{
    return node_array_new_size<bn_response_per_node_array, bn_response_per_node>(ret_arr,
                                                                                 initial_size);
}

int bn_response_per_node_array_duplicate(const bn_response_per_node_array *arr,
                                         bn_response_per_node_array **ret_dup)
{
    return node_array_duplicate<bn_response_per_node_array, bn_response_per_node>(arr,
                                                                                  ret_dup);
}

int bn_response_per_node_array_free(bn_response_per_node_array **inout_arr)
{
    return node_array_free<bn_response_per_node_array, bn_response_per_node>(inout_arr);
}

int bn_response_per_node_array_empty(bn_response_per_node_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_empty(arr->bn_response_per_node_arr);
    bail_error(err);
bail:
    return err;
}

int bn_response_per_node_array_length(const bn_response_per_node_array *arr,
                                      uint32 *ret_length)
{
    int err = 0;
    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    err = array_length(arr->bn_response_per_node_arr, ret_length);
    bail_error(err);
bail:
    return err;
}

uint32 bn_response_per_node_array_length_quick(const bn_response_per_node_array *arr)
{
    return arr ? array_length_quick(arr->bn_response_per_node_arr) : 0;
}

int bn_response_per_node_array_get(const bn_response_per_node_array *arr, uint32 idx,
                                   bn_response_per_node **ret_node)
{
    return node_array_get<bn_response_per_node_array, bn_response_per_node>(arr, idx,
                                                                             ret_node);
}

bn_response_per_node *bn_response_per_node_array_get_quick(const bn_response_per_node_array *arr,
                                                           uint32 idx)
{
    return arr ? static_cast<bn_response_per_node *>(
                     array_get_quick(arr->bn_response_per_node_arr, idx))
               : nullptr;
}

int bn_response_per_node_array_append(bn_response_per_node_array *arr,
                                      const bn_response_per_node *node)
{
    int err = 0;
    bail_null(arr);
    bail_null(node);
    err = array_append(arr->bn_response_per_node_arr, const_cast<bn_response_per_node *>(node));
    bail_error(err);
bail:
    return err;
}

int bn_response_per_node_array_append_takeover(bn_response_per_node_array *arr,
                                               bn_response_per_node **inout_node)
{
    return node_array_append_takeover<bn_response_per_node_array, bn_response_per_node>(
        arr, inout_node);
}

int bn_response_per_node_array_delete(bn_response_per_node_array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    err = array_delete(arr->bn_response_per_node_arr, idx);
    bail_error(err);
bail:
    return err;
}

int bn_response_per_node_array_remove(bn_response_per_node_array *arr, uint32 idx,
                                      bn_response_per_node **ret_node)
{
    return node_array_remove<bn_response_per_node_array, bn_response_per_node>(arr, idx,
                                                                               ret_node);
}

// ---------------------------------------------------------------------------------------
// Building requests.

int bn_request_msg_create(bn_request **ret_req_msg, bn_msg_type req_type)
{
    int err = 0;
    bn_request *req = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    req = static_cast<bn_request *>(lc_zalloc(sizeof(bn_request)));
    bail_null(req);
    req->br_header.brh_msg_type = static_cast<uint16>(req_type);
    req->br_next_node_id = bn_request_first_node_id;
    err = bn_request_per_node_array_new(&req->br_nodes);
    bail_error(err);
    *ret_req_msg = req;
    req = nullptr;
bail:
    bn_request_msg_free(&req);
    return err;
}

int bn_request_msg_free(bn_request **inout_req_msg)
{
    if (inout_req_msg == nullptr || *inout_req_msg == nullptr) {
        return 0;
    }
    bn_request *req = *inout_req_msg;
    bn_request_per_node_array_free(&req->br_nodes);
    request_body_free_contents(req->br_header.brh_msg_type, &req->br_body_settings);
    free(req);
    *inout_req_msg = nullptr;
    return 0;
}

int bn_query_request_msg_create(bn_request **ret_req_msg, uint32 query_flags,
                                const char *db_name)
{
    int err = 0;
    bn_request *req = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    err = bn_request_msg_create(&req, bbmt_query_request);
    bail_error(err);
    req->br_body_settings.brbs_query.bqrb_query_flags = query_flags;
    if (db_name != nullptr) {
        err = ts_new_str(&req->br_body_settings.brbs_query.bqrb_opt_db_spec, db_name);
        bail_error(err);
    }
    *ret_req_msg = req;
    req = nullptr;
bail:
    bn_request_msg_free(&req);
    return err;
}

int bn_query_request_msg_set_option_cond_db_revision_id(bn_request *query_msg,
                                                        int32 cond_db_revision_id)
{
    int err = 0;

    bail_null(query_msg);
    bail_require(query_msg->br_header.brh_msg_type == bbmt_query_request);
    query_msg->br_body_settings.brbs_query.bqrb_opt_cond_db_revision_id = cond_db_revision_id;
bail:
    return err;
}

int bn_query_request_msg_append_str(bn_request *query_msg, bn_query_subop subop,
                                    bn_query_node_flags_bf node_query_flags,
                                    const char *node_name, int32 *ret_node_id)
{
    return bn_query_request_msg_append_with_attribs(query_msg, subop, node_query_flags,
                                                    node_name, nullptr, ret_node_id);
}

int bn_query_request_msg_append_binding(bn_request *query_msg, bn_query_subop subop,
                                        bn_query_node_flags_bf node_query_flags,
                                        const bn_binding *binding, int32 *ret_node_id)
{
    int err = 0;
    bn_request_per_node_settings settings{};

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(query_msg);
    bail_require(query_msg->br_header.brh_msg_type == bbmt_query_request);
    query_settings(subop, node_query_flags, &settings);
    err = request_append_node(query_msg, binding, &settings, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_query_request_msg_append_with_attribs(bn_request *query_msg, bn_query_subop subop,
                                             bn_query_node_flags_bf node_query_flags,
                                             const char *node_name,
                                             const bn_attrib_array *attribs,
                                             int32 *ret_node_id)
{
    int err = 0;
    bn_binding *binding = nullptr;
    bn_request_per_node_settings settings{};

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(query_msg);
    bail_null(node_name);
    bail_require(query_msg->br_header.brh_msg_type == bbmt_query_request);
    err = bn_binding_new_components(&binding, node_name, attribs);
    bail_error(err);
    query_settings(subop, node_query_flags, &settings);
    err = request_append_node_takeover(query_msg, &binding, &settings, ret_node_id);
    bail_error(err);
bail:
    bn_binding_free(&binding);
    return err;
}

int bn_set_request_msg_create(bn_request **ret_req_msg, uint32 set_flags)
{
    int err = 0;
    bn_request *req = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    err = bn_request_msg_create(&req, bbmt_set_request);
    bail_error(err);
    req->br_body_settings.brbs_set.bsrb_set_flags = set_flags;
    *ret_req_msg = req;
    req = nullptr;
bail:
    bn_request_msg_free(&req);
    return err;
}

int bn_set_request_msg_append_binding_takeover(bn_request *set_msg, bn_set_subop set_subop,
                                               uint32 node_set_flags,
                                               bn_binding **inout_binding,
                                               int32 *ret_node_id)
{
    int err = 0;
    bn_request_per_node_settings settings{};

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(set_msg);
    bail_null(inout_binding);
    bail_require(set_msg->br_header.brh_msg_type == bbmt_set_request);
    settings.brns_set.bsn_set_subop = set_subop;
    settings.brns_set.bsn_set_flags = node_set_flags;
    err = request_append_node_takeover(set_msg, inout_binding, &settings, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_set_request_msg_append_new_binding(bn_request *set_msg, bn_set_subop set_subop,
                                          uint32 node_set_flags, const char *name,
                                          bn_type type, bn_type_flags_bf type_flags,
                                          const char *str_value, int32 *ret_node_id)
{
    int err = 0;
    bn_binding *binding = nullptr;

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(set_msg);
    bail_require(set_msg->br_header.brh_msg_type == bbmt_set_request);
    err = new_value_binding(name, type, type_flags, str_value, &binding);
    bail_error(err);
    err = bn_set_request_msg_append_binding_takeover(set_msg, set_subop, node_set_flags,
                                                     &binding, ret_node_id);
    bail_error(err);
bail:
    bn_binding_free(&binding);
    return err;
}

int bn_action_request_msg_create(bn_request **ret_req_msg, const char *action_name)
{
    int err = 0;
    bn_request *req = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    err = bn_request_msg_create(&req, bbmt_action_request);
    bail_error(err);
    if (action_name != nullptr) {
        err = ts_new_str(&req->br_body_settings.brbs_action.barb_action_name, action_name);
        bail_error(err);
    }
    *ret_req_msg = req;
    req = nullptr;
bail:
    bn_request_msg_free(&req);
    return err;
}

int bn_action_request_msg_append_binding_takeover(bn_request *action_msg,
                                                  uint32 node_action_flags,
                                                  bn_binding **inout_binding,
                                                  int32 *ret_node_id)
{
    int err = 0;

    (void)node_action_flags;
    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(action_msg);
    bail_null(inout_binding);
    bail_require(action_msg->br_header.brh_msg_type == bbmt_action_request);
    err = request_append_node_takeover(action_msg, inout_binding, nullptr, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_action_request_msg_append_new_binding(bn_request *action_msg, uint32 node_action_flags,
                                             const char *name, bn_type type,
                                             const char *value, int32 *ret_node_id)
{
    return bn_action_request_msg_append_new_binding_ex(action_msg, node_action_flags, name,
                                                       type, btf_none, value, ret_node_id);
}

int bn_action_request_msg_append_new_binding_ex(bn_request *action_msg,
                                                uint32 node_action_flags, const char *name,
                                                bn_type type, bn_type_flags_bf type_flags,
                                                const char *value, int32 *ret_node_id)
{
    int err = 0;
    bn_binding *binding = nullptr;

    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(action_msg);
    bail_require(action_msg->br_header.brh_msg_type == bbmt_action_request);
    err = new_value_binding(name, type, type_flags, value, &binding);
    bail_error(err);
    err = bn_action_request_msg_append_binding_takeover(action_msg, node_action_flags,
                                                        &binding, ret_node_id);
    bail_error(err);
bail:
    bn_binding_free(&binding);
    return err;
}

int bn_event_request_msg_create(bn_request **ret_req_msg, const char *event_name)
{
    int err = 0;
    bn_request *req = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    err = bn_request_msg_create(&req, bbmt_event_request);
    bail_error(err);
    if (event_name != nullptr) {
        err = ts_new_str(&req->br_body_settings.brbs_event.berb_event_name, event_name);
        bail_error(err);
    }
    *ret_req_msg = req;
    req = nullptr;
bail:
    bn_request_msg_free(&req);
    return err;
}

int bn_event_request_msg_append_binding(bn_request *event_msg, uint32 node_event_flags,
                                        const bn_binding *binding, int32 *ret_node_id)
{
    int err = 0;

    (void)node_event_flags;
    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(event_msg);
    bail_require(event_msg->br_header.brh_msg_type == bbmt_event_request);
    err = request_append_node(event_msg, binding, nullptr, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_event_request_msg_append_binding_takeover(bn_request *event_msg,
                                                 uint32 node_event_flags,
                                                 bn_binding **inout_binding,
                                                 int32 *ret_node_id)
{
    int err = 0;

    (void)node_event_flags;
    if (ret_node_id) {
        *ret_node_id = 0;
    }
    bail_null(event_msg);
    bail_null(inout_binding);
    bail_require(event_msg->br_header.brh_msg_type == bbmt_event_request);
    err = request_append_node_takeover(event_msg, inout_binding, nullptr, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_request_msg_append_binding_settings(bn_request *msg, const bn_binding *binding,
                                           const bn_request_per_node_settings *node_settings,
                                           int32 *ret_node_id)
{
    int err = 0;
    err = request_append_node(msg, binding, node_settings, ret_node_id);
    bail_error(err);
bail:
    return err;
}

int bn_request_msg_append_binding_settings_takeover(
    bn_request *msg, bn_binding **inout_binding,
    const bn_request_per_node_settings *node_settings, int32 *ret_node_id)
{
    int err = 0;
    err = request_append_node_takeover(msg, inout_binding, node_settings, ret_node_id);
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading requests.

int bn_request_get(const bn_request *req, bn_msg_type *ret_req_type,
                   const bn_request_body_settings **ret_req_body_msg_specific,
                   tbool want_binding_name_parts, bn_binding_array **ret_node_bindings,
                   uint32_array **ret_node_ids, array **ret_node_settings)
{
    int err = 0;
    bn_binding_array *bindings = nullptr;
    uint32_array *ids = nullptr;
    array *settings = nullptr;
    bn_binding *copy = nullptr;
    array_options opts{};
    uint32 num_nodes = 0;

    if (ret_req_type) {
        *ret_req_type = bbmt_none;
    }
    if (ret_req_body_msg_specific) {
        *ret_req_body_msg_specific = nullptr;
    }
    if (ret_node_bindings) {
        *ret_node_bindings = nullptr;
    }
    if (ret_node_ids) {
        *ret_node_ids = nullptr;
    }
    if (ret_node_settings) {
        *ret_node_settings = nullptr;
    }
    bail_null(req);
    if (!is_request_kind(req->br_header.brh_msg_type)) {
        bail_force(lc_err_unexpected_case);
    }

    if (ret_node_bindings) {
        err = bn_binding_array_new(&bindings);
        bail_error(err);
    }
    if (ret_node_ids) {
        err = uint32_array_new(&ids);
        bail_error(err);
    }
    if (ret_node_settings) {
        // Borrowed pointers: the array neither copies nor frees them.
        err = array_options_get_defaults(&opts);
        bail_error(err);
        opts.ao_elem_dup_func = nullptr;
        opts.ao_elem_free_func = nullptr;
        err = array_new(&settings, &opts);
        bail_error(err);
    }

    num_nodes = bn_request_per_node_array_length_quick(req->br_nodes);
    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_per_node_array_get_quick(req->br_nodes, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        if (bindings) {
            err = binding_copy_for_reading(node->brn_binding, want_binding_name_parts, &copy);
            bail_error(err);
            err = bn_binding_array_append_takeover(bindings, &copy);
            bail_error(err);
        }
        if (ids) {
            err = uint32_array_append(ids, static_cast<uint32>(node->brn_node_id));
            bail_error(err);
        }
        if (settings) {
            err = array_append(settings, const_cast<bn_request_per_node_settings *>(
                                             &node->brn_node_settings));
            bail_error(err);
        }
    }

    if (ret_req_type) {
        *ret_req_type = static_cast<bn_msg_type>(req->br_header.brh_msg_type);
    }
    if (ret_req_body_msg_specific) {
        *ret_req_body_msg_specific = &req->br_body_settings;
    }
    if (ret_node_bindings) {
        *ret_node_bindings = bindings;
        bindings = nullptr;
    }
    if (ret_node_ids) {
        *ret_node_ids = ids;
        ids = nullptr;
    }
    if (ret_node_settings) {
        *ret_node_settings = settings;
        settings = nullptr;
    }
bail:
    bn_binding_free(&copy);
    bn_binding_array_free(&bindings);
    uint32_array_free(&ids);
    array_free(&settings);
    return err;
}

bn_msg_type bn_request_get_msg_type(const bn_request *req)
{
    return req ? static_cast<bn_msg_type>(req->br_header.brh_msg_type) : bbmt_none;
}

uint32 bn_request_get_msg_id(const bn_request *req)
{
    return req ? req->br_header.brh_msg_id : 0;
}

uint32 bn_request_get_num_nodes(const bn_request *req)
{
    return req ? bn_request_per_node_array_length_quick(req->br_nodes) : 0;
}

const bn_request_per_node *bn_request_get_nth_node_const(const bn_request *req, uint32 idx)
{
    if (req == nullptr || idx >= bn_request_per_node_array_length_quick(req->br_nodes)) {
        return nullptr;
    }
    return bn_request_per_node_array_get_quick(req->br_nodes, idx);
}

uint32 bn_request_msg_get_node_count(const bn_request *req)
{
    uint32 count = 0;
    const uint32 num_nodes = bn_request_get_num_nodes(req);
    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_per_node_array_get_quick(req->br_nodes, i);
        if (node != nullptr && node->brn_binding != nullptr) {
            ++count;
        }
    }
    return count;
}

int bn_action_request_msg_get_action_name(const bn_request *msg, tstring **ret_name)
{
    int err = 0;

    bail_null(ret_name);
    *ret_name = nullptr;
    bail_null(msg);
    bail_require(msg->br_header.brh_msg_type == bbmt_action_request);
    err = ts_dup(msg->br_body_settings.brbs_action.barb_action_name, ret_name);
    bail_error(err);
bail:
    return err;
}

int bn_event_request_msg_get_event_name(const bn_request *msg, tstring **ret_name)
{
    int err = 0;

    bail_null(ret_name);
    *ret_name = nullptr;
    bail_null(msg);
    bail_require(msg->br_header.brh_msg_type == bbmt_event_request);
    err = ts_dup(msg->br_body_settings.brbs_event.berb_event_name, ret_name);
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Responses.

int bn_response_msg_create(bn_response **ret_req_msg, bn_msg_type req_type,
                           uint32 request_msg_id, uint32 return_code,
                           const char *return_message)
{
    int err = 0;
    bn_response *resp = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    resp = static_cast<bn_response *>(lc_zalloc(sizeof(bn_response)));
    bail_null(resp);
    resp->brs_header.brsh_msg_type = static_cast<uint16>(req_type);
    resp->brs_header.brsh_req_msg_id = request_msg_id;
    resp->brs_return_code = return_code;
    if (return_message != nullptr) {
        err = ts_new_str(&resp->brs_return_message, return_message);
        bail_error(err);
    }
    err = bn_response_per_node_array_new(&resp->brs_nodes);
    bail_error(err);
    *ret_req_msg = resp;
    resp = nullptr;
bail:
    bn_response_msg_free(&resp);
    return err;
}

int bn_query_response_msg_create(bn_response **ret_req_msg, uint32 request_msg_id,
                                 uint32 return_code, const char *return_message)
{
    return bn_response_msg_create(ret_req_msg, bbmt_query_response, request_msg_id,
                                  return_code, return_message);
}

int bn_action_response_msg_create(bn_response **ret_req_msg, uint32 request_msg_id,
                                  uint32 return_code, const char *return_message)
{
    return bn_response_msg_create(ret_req_msg, bbmt_action_response, request_msg_id,
                                  return_code, return_message);
}

int bn_response_msg_free(bn_response **inout_resp_msg)
{
    if (inout_resp_msg == nullptr || *inout_resp_msg == nullptr) {
        return 0;
    }
    bn_response *resp = *inout_resp_msg;
    ts_free(&resp->brs_return_message);
    bn_response_per_node_array_free(&resp->brs_nodes);
    free(resp);
    *inout_resp_msg = nullptr;
    return 0;
}

int bn_response_msg_dup(const bn_response *resp, bn_response **ret_dup)
{
    int err = 0;
    bn_response *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(resp);
    dup = static_cast<bn_response *>(lc_zalloc(sizeof(bn_response)));
    bail_null(dup);
    dup->brs_header = resp->brs_header;
    dup->brs_return_code = resp->brs_return_code;
    dup->brs_body_settings = resp->brs_body_settings;
    err = ts_dup(resp->brs_return_message, &dup->brs_return_message);
    bail_error(err);
    if (resp->brs_nodes != nullptr) {
        err = bn_response_per_node_array_duplicate(resp->brs_nodes, &dup->brs_nodes);
    } else {
        err = bn_response_per_node_array_new(&dup->brs_nodes);
    }
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    bn_response_msg_free(&dup);
    return err;
}

int bn_response_msg_append_binding_takeover(bn_response *msg, bn_binding **inout_binding,
                                            int32 node_id)
{
    int err = 0;
    bn_response_per_node *node = nullptr;

    bail_null(msg);
    bail_null(msg->brs_nodes);
    bail_null(inout_binding);
    err = bn_response_per_node_new(&node);
    if (err) {
        bn_binding_free(inout_binding);
    }
    bail_error(err);
    node->brsn_binding = *inout_binding;
    *inout_binding = nullptr;
    node->brsn_node_id = node_id;
    node->brsn_response_type = static_cast<bn_msg_type>(msg->brs_header.brsh_msg_type);
    err = bn_response_per_node_array_append_takeover(msg->brs_nodes, &node);
    bail_error(err);
bail:
    bn_response_per_node_free(&node);
    return err;
}

int bn_query_response_msg_append_binding_takeover(bn_response *msg,
                                                  bn_binding **inout_binding, int32 node_id)
{
    int err = 0;

    bail_null(msg);
    bail_require(msg->brs_header.brsh_msg_type == bbmt_query_response);
    err = bn_response_msg_append_binding_takeover(msg, inout_binding, node_id);
    bail_error(err);
bail:
    return err;
}

int bn_response_set_service_id(bn_response *resp, uint16 service_id)
{
    int err = 0;
    bail_null(resp);
    resp->brs_header.brsh_service_id = service_id;
bail:
    return err;
}

uint16 bn_response_get_service_id(const bn_response *resp)
{
    return resp ? resp->brs_header.brsh_service_id : 0;
}

bn_msg_type bn_response_get_msg_type(const bn_response *resp)
{
    return resp ? static_cast<bn_msg_type>(resp->brs_header.brsh_msg_type) : bbmt_none;
}

int bn_response_get_msg_ids(const bn_response *resp, uint32 *ret_msg_id,
                            uint32 *ret_req_msg_id)
{
    int err = 0;

    if (ret_msg_id) {
        *ret_msg_id = 0;
    }
    if (ret_req_msg_id) {
        *ret_req_msg_id = 0;
    }
    bail_null(resp);
    if (ret_msg_id) {
        *ret_msg_id = resp->brs_header.brsh_msg_id;
    }
    if (ret_req_msg_id) {
        *ret_req_msg_id = resp->brs_header.brsh_req_msg_id;
    }
bail:
    return err;
}

int bn_response_get_return(const bn_response *resp, uint32 *ret_return_code,
                           tstring **ret_return_message)
{
    int err = 0;

    if (ret_return_code) {
        *ret_return_code = 0;
    }
    if (ret_return_message) {
        *ret_return_message = nullptr;
    }
    bail_null(resp);
    if (ret_return_message) {
        err = ts_dup(resp->brs_return_message, ret_return_message);
        bail_error(err);
    }
    if (ret_return_code) {
        *ret_return_code = resp->brs_return_code;
    }
bail:
    return err;
}

namespace {

// Shared by the copying and the moving readers of a response.
int response_get_internal(bn_response *resp, tbool takeover, uint32 *ret_return_code,
                          tstring **ret_return_message, tbool want_binding_name_parts,
                          bn_binding_array **ret_bindings, uint32_array **ret_node_ids)
{
    int err = 0;
    bn_binding_array *bindings = nullptr;
    uint32_array *ids = nullptr;
    bn_binding *binding = nullptr;
    uint32 num_nodes = 0;

    if (ret_return_code) {
        *ret_return_code = 0;
    }
    if (ret_return_message) {
        *ret_return_message = nullptr;
    }
    if (ret_bindings) {
        *ret_bindings = nullptr;
    }
    if (ret_node_ids) {
        *ret_node_ids = nullptr;
    }
    bail_null(resp);

    if (ret_bindings) {
        err = bn_binding_array_new(&bindings);
        bail_error(err);
    }
    if (ret_node_ids) {
        err = uint32_array_new(&ids);
        bail_error(err);
    }
    num_nodes = bn_response_per_node_array_length_quick(resp->brs_nodes);
    for (uint32 i = 0; i < num_nodes; ++i) {
        bn_response_per_node *node = bn_response_per_node_array_get_quick(resp->brs_nodes, i);
        if (node == nullptr || node->brsn_binding == nullptr) {
            continue;
        }
        if (ids) {
            err = uint32_array_append(ids, static_cast<uint32>(node->brsn_node_id));
            bail_error(err);
        }
        if (bindings == nullptr) {
            continue;
        }
        if (takeover) {
            binding = node->brsn_binding;
            node->brsn_binding = nullptr;
            if (!want_binding_name_parts) {
                tstr_array_free(&binding->bn_node_name_parts);
                binding->bn_node_name_parts_absolute = false;
            }
        } else {
            err = binding_copy_for_reading(node->brsn_binding, want_binding_name_parts,
                                           &binding);
            bail_error(err);
        }
        err = bn_binding_array_append_takeover(bindings, &binding);
        bail_error(err);
    }

    if (ret_return_message) {
        if (takeover) {
            *ret_return_message = resp->brs_return_message;
            resp->brs_return_message = nullptr;
        } else {
            err = ts_dup(resp->brs_return_message, ret_return_message);
            bail_error(err);
        }
    }
    if (ret_return_code) {
        *ret_return_code = resp->brs_return_code;
    }
    if (ret_bindings) {
        *ret_bindings = bindings;
        bindings = nullptr;
    }
    if (ret_node_ids) {
        *ret_node_ids = ids;
        ids = nullptr;
    }
bail:
    bn_binding_free(&binding);
    bn_binding_array_free(&bindings);
    uint32_array_free(&ids);
    return err;
}

}  // namespace

int bn_response_get(const bn_response *resp, uint32 *ret_return_code,
                    tstring **ret_return_message, tbool want_binding_name_parts,
                    bn_binding_array **ret_bindings, uint32_array **ret_node_ids)
{
    // The copying path never writes through the pointer.
    return response_get_internal(const_cast<bn_response *>(resp), false, ret_return_code,
                                 ret_return_message, want_binding_name_parts, ret_bindings,
                                 ret_node_ids);
}

int bn_response_get_takeover(bn_response *resp, uint32 *ret_return_code,
                             tstring **ret_return_message, tbool want_binding_name_parts,
                             bn_binding_array **ret_bindings, uint32_array **ret_node_ids)
{
    return response_get_internal(resp, true, ret_return_code, ret_return_message,
                                 want_binding_name_parts, ret_bindings, ret_node_ids);
}

int32 bn_query_response_msg_get_db_revision_id(const bn_response *resp)
{
    if (resp == nullptr || resp->brs_header.brsh_msg_type != bbmt_query_response) {
        return 0;
    }
    return resp->brs_body_settings.brsbs_query.bqrsb_db_revision_id;
}
