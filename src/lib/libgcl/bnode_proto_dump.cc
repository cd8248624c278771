// The log dump of management messages: a header line, the kind's settings, and per node
// its id, name, settings and attributes.

#include <algorithm>
#include <cstdlib>

#include "bnode_proto.h"
#include "logging.h"

namespace {

// Whether a dump at this level would show: -1 is off, and so is a level above the
// current maximum.
tbool dump_wanted(int log_level)
{
    int max_level = 0;

    if (log_level < 0) {
        return false;
    }
    if (lc_log_get_max_log_level(&max_level) != 0) {
        return false;
    }
    return log_level <= max_level;
}

// One line per attribute of the binding.
void dump_attribs(int log_level, const char *label, uint32 node_idx, const bn_binding *binding)
{
    if (binding == nullptr || binding->bn_attribs == nullptr) {
        return;
    }
    const uint32 num_slots = bn_attrib_array_length_quick(binding->bn_attribs);
    for (uint32 slot = 0; slot < num_slots; ++slot) {
        bn_attrib *attrib = nullptr;
        char *value = nullptr;
        if (bn_attrib_array_get(binding->bn_attribs, slot, &attrib) != 0 || attrib == nullptr) {
            continue;
        }
        // An attribute without a printable value shows an empty one.
        bn_attrib_get_str(attrib, nullptr, bt_NONE, nullptr, &value);
        const bn_type_flags_bf flags = attrib->ba_type_flags;
        char *flags_text = flags ? smprintf("type flags %x ", flags) : nullptr;
        lc_log_basic(log_level, "%s: rn[%d]: attrib %d(%s) type %d(%s) %svalue \"%.1023s\"",
                     label, static_cast<int>(node_idx), static_cast<int>(attrib->ba_attrib_id),
                     lc_enum_to_string_quiet(bn_attribute_id_map, attrib->ba_attrib_id),
                     static_cast<int>(attrib->ba_type),
                     lc_enum_to_string_quiet(bn_type_map, attrib->ba_type),
                     flags_text ? flags_text : "", value ? value : "");
        free(flags_text);
        free(value);
    }
}

const char *binding_name_or_empty(const bn_binding *binding)
{
    return binding ? ts_str_maybe_empty(binding->bn_node_name) : "";
}

// The node count line; gives the number of nodes to show.
uint32 dump_node_count(int log_level, const char *label, uint32 num_nodes)
{
    if (num_nodes > bn_msg_dump_max_nodes) {
        lc_log_basic(log_level, "%s: num nodes: %d (but only logging the first %d)", label,
                     static_cast<int>(num_nodes), static_cast<int>(bn_msg_dump_max_nodes));
    } else {
        lc_log_basic(log_level, "%s: num nodes: %d", label, static_cast<int>(num_nodes));
    }
    return std::min(num_nodes, bn_msg_dump_max_nodes);
}

void dump_db_settings(int log_level, const char *label, uint32 flags, int32 cond_rev,
                      const tstring *db_spec)
{
    if (db_spec != nullptr) {
        lc_log_basic(log_level, "%s: flags: %08x cond rev: %d target db: %s", label, flags,
                     cond_rev, ts_str(db_spec));
    } else {
        lc_log_basic(log_level, "%s: flags: %08x cond rev: %d", label, flags, cond_rev);
    }
}

}  // namespace

int bn_request_msg_dump(int log_level, const char *label, const bn_request *req)
{
    int err = 0;
    uint32 num_shown = 0;

    if (!dump_wanted(log_level)) {
        goto bail;
    }
    bail_null(req);
    if (label == nullptr) {
        label = "";
    }

    // The five fields after the label are room for a caller's context; a message alone
    // has none.
    lc_log_basic(log_level, "%s:%s%s%s%s%s service %d type %d (%s) msg id %d", label, "", "", "",
                 "", "", static_cast<int>(req->br_header.brh_service_id),
                 static_cast<int>(req->br_header.brh_msg_type),
                 lc_enum_to_string_quiet(bn_msg_type_map, req->br_header.brh_msg_type),
                 static_cast<int>(req->br_header.brh_msg_id));

    switch (req->br_header.brh_msg_type) {
    case bbmt_query_request: {
        const bn_query_request_body &body = req->br_body_settings.brbs_query;
        dump_db_settings(log_level, label, body.bqrb_query_flags,
                         body.bqrb_opt_cond_db_revision_id, body.bqrb_opt_db_spec);
        break;
    }
    case bbmt_set_request: {
        const bn_set_request_body &body = req->br_body_settings.brbs_set;
        dump_db_settings(log_level, label, body.bsrb_set_flags,
                         body.bsrb_opt_cond_db_revision_id, body.bsrb_opt_db_spec);
        break;
    }
    case bbmt_action_request:
        lc_log_basic(log_level, "%s: action name: %s", label,
                     ts_str_maybe_empty(req->br_body_settings.brbs_action.barb_action_name));
        break;
    case bbmt_event_request:
        lc_log_basic(log_level, "%s: event name: %s", label,
                     ts_str_maybe_empty(req->br_body_settings.brbs_event.berb_event_name));
        break;
    default:
        break;
    }

    num_shown = dump_node_count(log_level, label,
                                bn_request_per_node_array_length_quick(req->br_nodes));
    for (uint32 i = 0; i < num_shown; ++i) {
        const bn_request_per_node *node = bn_request_per_node_array_get_quick(req->br_nodes, i);
        if (node == nullptr) {
            continue;
        }
        lc_log_basic(log_level, "%s: rn[%d]: id %d %s", label, static_cast<int>(i),
                     static_cast<int>(node->brn_node_id),
                     binding_name_or_empty(node->brn_binding));
        if (node->brn_request_type == bbmt_query_request) {
            const bn_query_request_per_node &q = node->brn_node_settings.brns_query;
            lc_log_basic(log_level, "%s: rn[%d]: query subop: %s flags: %08x", label,
                         static_cast<int>(i),
                         lc_enum_to_string_quiet(bn_query_subop_map, q.bqn_query_subop),
                         q.bqn_query_flags);
        } else if (node->brn_request_type == bbmt_set_request) {
            const bn_set_request_per_node &s = node->brn_node_settings.brns_set;
            lc_log_basic(log_level, "%s: rn[%d]: set subop: %s flags: %08x", label,
                         static_cast<int>(i),
                         lc_enum_to_string_quiet(bn_set_subop_map, s.bsn_set_subop),
                         s.bsn_set_flags);
            if (s.bsn_set_subop == bsso_reparent) {
                lc_log_basic(log_level, "%s: rn[%d]: reparent graft under: %s new self name: %s",
                             label, static_cast<int>(i),
                             ts_str_maybe_empty(s.bsn_graft_under_name),
                             ts_str_maybe_empty(s.bsn_new_self_name));
            }
        }
        dump_attribs(log_level, label, i, node->brn_binding);
    }
bail:
    return err;
}

int bn_response_msg_dump(int log_level, const char *label, const bn_response *resp)
{
    int err = 0;
    uint32 num_shown = 0;

    if (!dump_wanted(log_level)) {
        goto bail;
    }
    bail_null(resp);
    if (label == nullptr) {
        label = "";
    }

    lc_log_basic(log_level, "%s:%s%s%s%s%s service %d type %d (%s) msg id %d to %d", label, "",
                 "", "", "", "", static_cast<int>(resp->brs_header.brsh_service_id),
                 static_cast<int>(resp->brs_header.brsh_msg_type),
                 lc_enum_to_string_quiet(bn_msg_type_map, resp->brs_header.brsh_msg_type),
                 static_cast<int>(resp->brs_header.brsh_msg_id),
                 static_cast<int>(resp->brs_header.brsh_req_msg_id));
    lc_log_basic(log_level, "%s: ret code: %d ret msg: \"%s\"", label,
                 static_cast<int>(resp->brs_return_code),
                 ts_str_maybe_empty(resp->brs_return_message));

    num_shown = dump_node_count(log_level, label,
                                bn_response_per_node_array_length_quick(resp->brs_nodes));
    for (uint32 i = 0; i < num_shown; ++i) {
        const bn_response_per_node *node =
            bn_response_per_node_array_get_quick(resp->brs_nodes, i);
        if (node == nullptr) {
            continue;
        }
        lc_log_basic(log_level, "%s: rn[%d]: id %d %s", label, static_cast<int>(i),
                     static_cast<int>(node->brsn_node_id),
                     binding_name_or_empty(node->brsn_binding));
        dump_attribs(log_level, label, i, node->brsn_binding);
    }
bail:
    return err;
}
