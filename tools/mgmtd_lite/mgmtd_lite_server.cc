// The sessions of mgmtd-lite: accepting clients, answering their requests from the
// database, relaying events, and handing the requests of the owner's tree to the owner.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstring>

#include "bnode_types.h"
#include "logging.h"
#include "mgmtd_lite.h"
#include "tstr_array.h"

namespace {

// The port families whose instances the owner doesn't list itself.
const char *const ml_internal_families[] = {"internal-spine-ports", "internal-spine-ports-brief",
                                            "internal-leaf-ports", "internal-leaf-ports-brief"};

std::string ml_client_name(const ml_server *srv, const gcl_session *sess)
{
    const auto it = srv->ms_clients.find(const_cast<gcl_session *>(sess));
    if (it != srv->ms_clients.end()) {
        return it->second.mcl_name;
    }
    return "?";
}

gcl_session *ml_find_client(ml_server *srv, const std::string &name)
{
    for (auto &entry : srv->ms_clients) {
        gcl_session_state state = gss_none;
        gcl_session_get_state(entry.first, &state, nullptr);
        if (entry.second.mcl_name == name && state == gss_connected) {
            return entry.first;
        }
    }
    return nullptr;
}

std::vector<std::string> ml_split_name(const char *name)
{
    std::vector<std::string> parts;
    tstr_array *arr = nullptr;
    tbool is_abs = false;

    if (bn_binding_name_to_parts(name, &arr, &is_abs) == 0) {
        const uint32 len = tstr_array_length_quick(arr);
        for (uint32 i = 0; i < len; ++i) {
            const char *part = nullptr;
            tstr_array_get_str(arr, i, &part);
            parts.emplace_back(part != nullptr ? part : "");
        }
    }
    tstr_array_free(&arr);
    return parts;
}

// The unescaped parts of a binding's name: its cached parts when it has them (as every
// binding read from the wire does), else split from the name.
std::vector<std::string> ml_binding_parts(const bn_binding *binding)
{
    const tstr_array *cached = nullptr;
    std::vector<std::string> parts;

    if (bn_binding_get_name_parts_const(binding, &cached, nullptr) != 0 || cached == nullptr) {
        return ml_split_name(ts_str_maybe_empty(binding->bn_node_name));
    }
    const uint32 len = tstr_array_length_quick(cached);
    for (uint32 i = 0; i < len; ++i) {
        parts.emplace_back(ts_str_maybe_empty(tstr_array_get_quick(cached, i)));
    }
    return parts;
}

tbool ml_name_matches(const char *name, const char *pattern)
{
    tstr_array *parts = nullptr;
    tbool is_abs = false;
    tbool match = false;

    if (bn_binding_name_to_parts(name, &parts, &is_abs) == 0) {
        match = bn_binding_name_parts_pattern_match(parts, is_abs, pattern);
    }
    tstr_array_free(&parts);
    return match;
}

// Whether a registered name and an asked one lie on one path: one is under the other, a
// "*" part of either standing for any part.
tbool ml_on_one_path(const std::vector<std::string> &reg, const std::vector<std::string> &asked)
{
    const size_t len = std::min(reg.size(), asked.size());
    for (size_t i = 0; i < len; ++i) {
        if (reg[i] != asked[i] && reg[i] != "*" && asked[i] != "*") {
            return false;
        }
    }
    return true;
}

std::string ml_join(const std::vector<std::string> &parts, size_t count)
{
    tstr_array *arr = nullptr;
    char *name = nullptr;
    std::string joined;

    if (tstr_array_new(&arr, nullptr) == 0) {
        for (size_t i = 0; i < count && i < parts.size(); ++i) {
            tstr_array_append_str(arr, parts[i].c_str());
        }
        if (bn_binding_name_parts_to_name(arr, true, &name) == 0 && name != nullptr) {
            joined = name;
        }
    }
    free(name);
    tstr_array_free(&arr);
    return joined;
}

int ml_send_simple_response(gcl_session *sess, bn_msg_type resp_type, uint32 msg_id,
                            uint32 code, const std::string &msg)
{
    return bn_response_msg_create_send(sess, resp_type, msg_id, code,
                                       msg.empty() ? nullptr : msg.c_str(), 0);
}

// ---------------------------------------------------------------------------------------
// Pending requests.

void ml_pending_erase(ml_server *srv, ml_pending *pending)
{
    if (pending->mp_timer != nullptr) {
        complain_error(lew_event_delete(srv->ms_lwc, &pending->mp_timer));
    }
    srv->ms_pending.erase(pending->mp_id);
}

// Answers the asker with an error and forgets the request.
void ml_pending_fail(ml_server *srv, ml_pending *pending, uint32 code, const std::string &msg)
{
    if (pending->mp_asker != nullptr) {
        ml_log_line("answer to '%s': code %u: %s",
                    ml_client_name(srv, pending->mp_asker).c_str(), code, msg.c_str());
        complain_error(ml_send_simple_response(pending->mp_asker, pending->mp_resp_type,
                                               pending->mp_asker_msg_id, code, msg));
    }
    ml_pending_erase(srv, pending);
}

int ml_pending_timeout(int fd, short event_type, void *data, lew_context *context)
{
    ml_pending *pending = static_cast<ml_pending *>(data);
    ml_server *srv = pending->mp_server;
    (void)fd;
    (void)event_type;
    (void)context;

    char seconds[32];

    snprintf(seconds, sizeof(seconds), "%.1f", srv->ms_forward_timeout_ms / 1000.0);
    ml_pending_fail(srv, pending, lc_err_io_timeout,
                    "nobody answered " + pending->mp_what + " within " + seconds + " s");
    return 0;
}

// Sends the request to its owner and waits for the answer under a new pending record,
// which takes over the local answers.
int ml_forward(ml_server *srv, gcl_session *owner, bn_request *fwd, gcl_session *asker,
               uint32 asker_msg_id, bn_msg_type resp_type, const std::string &what,
               std::map<int32, int32> *node_map,
               std::vector<std::pair<int32, ml_binding_ptr>> *local)
{
    int err = 0;
    std::unique_ptr<ml_pending> pending(new ml_pending());
    ml_pending *p = pending.get();

    err = bn_request_msg_send(owner, fwd);
    bail_error(err);
    p->mp_server = srv;
    p->mp_id = srv->ms_next_pending_id++;
    p->mp_owner = owner;
    p->mp_owner_msg_id = fwd->br_header.brh_msg_id;
    p->mp_asker = asker;
    p->mp_asker_msg_id = asker_msg_id;
    p->mp_resp_type = resp_type;
    p->mp_what = what;
    if (node_map != nullptr) {
        p->mp_node_map.swap(*node_map);
    }
    if (local != nullptr) {
        p->mp_local.swap(*local);
    }
    srv->ms_pending[p->mp_id] = std::move(pending);
    err = lew_event_reg_timer(srv->ms_lwc, &p->mp_timer, ml_pending_timeout, p,
                              srv->ms_forward_timeout_ms);
    bail_error(err);
    if (!srv->ms_quiet_queries || resp_type != bbmt_query_response) {
        ml_log_line("forward %s to '%s'", what.c_str(), ml_client_name(srv, owner).c_str());
    }

bail:
    return err;
}

void ml_log_relay(ml_server *srv, const ml_pending *pending, uint32 code)
{
    if (!srv->ms_quiet_queries || pending->mp_resp_type != bbmt_query_response) {
        ml_log_line("relay response to '%s': code %u",
                    ml_client_name(srv, pending->mp_asker).c_str(), code);
    }
}

// The asker's id of a forwarded node, as the answer to the asker carries it.
int32 ml_asker_node_id(const ml_pending *pending, uint32 fwd_id)
{
    const auto mapped = pending->mp_node_map.find(static_cast<int32>(fwd_id));
    return mapped != pending->mp_node_map.end() ? mapped->second
                                                : static_cast<int32>(bn_request_first_node_id);
}

// Whether the owner's answer can go to the asker in the frame it came in: a query answer
// that nothing is added to, whose nodes keep their ids, with no database revision (a new
// answer has none), and whose sending would not be dumped to the debug log.  Putting it
// together again would give the same bytes.
tbool ml_can_pass_on_frame(const ml_server *srv, const ml_pending *pending,
                           const bn_response *response, const uint32_array *node_ids)
{
    int level = LOG_DEBUG;
    if (srv->ms_response_frame == nullptr || *srv->ms_response_frame == nullptr ||
        pending->mp_resp_type != bbmt_query_response || !pending->mp_local.empty() ||
        bn_query_response_msg_get_db_revision_id(response) != 0) {
        return false;
    }
    if (lc_log_get_max_log_level(&level) != 0 || level >= LOG_DEBUG) {
        return false;
    }
    for (uint32 i = 0; i < uint32_array_length_quick(node_ids); ++i) {
        const uint32 id = uint32_array_get_quick(node_ids, i);
        if (ml_asker_node_id(pending, id) != static_cast<int32>(id)) {
            return false;
        }
    }
    return true;
}

// A response of an owner: back to the asker under the asker's message id.
int ml_on_owner_response(gcl_session *sess, bn_response **inout_response, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    uint32 msg_id = 0;
    uint32 req_msg_id = 0;
    uint32 code = 0;
    tstring *msg = nullptr;
    bn_binding_array *bindings = nullptr;
    uint32_array *node_ids = nullptr;
    bn_response *out = nullptr;
    ml_pending *pending = nullptr;
    bn_binding *binding = nullptr;
    uint32 num = 0;
    tbool pass_on = false;

    bail_null(inout_response);
    bail_null(*inout_response);
    err = bn_response_get_msg_ids(*inout_response, &msg_id, &req_msg_id);
    bail_error(err);
    for (auto &entry : srv->ms_pending) {
        if (entry.second->mp_owner == sess && entry.second->mp_owner_msg_id == req_msg_id) {
            pending = entry.second.get();
            break;
        }
    }
    if (pending == nullptr) {
        ml_log_line("response from '%s' to no waiting request (%u)",
                    ml_client_name(srv, sess).c_str(), req_msg_id);
        goto bail;
    }
    err = bn_response_get_takeover(*inout_response, &code, &msg, false, &bindings, &node_ids);
    bail_error(err);
    if (!srv->ms_quiet_queries || pending->mp_resp_type != bbmt_query_response) {
        ml_log_line("response from '%s' for %s: code %u, %u bindings",
                    ml_client_name(srv, sess).c_str(), pending->mp_what.c_str(), code,
                    bn_binding_array_length_quick(bindings));
    }
    pass_on = pending->mp_asker != nullptr &&
              ml_can_pass_on_frame(srv, pending, *inout_response, node_ids);
    if (pass_on) {
        ml_log_relay(srv, pending, code);
        err = bn_response_frame_relay(pending->mp_asker, srv->ms_response_frame,
                                      pending->mp_asker_msg_id);
        bail_error(err);
    } else if (pending->mp_asker != nullptr) {
        err = bn_response_msg_create(&out, pending->mp_resp_type, pending->mp_asker_msg_id, code,
                                     ts_str_maybe(msg));
        bail_error(err);
        for (auto &local : pending->mp_local) {
            binding = local.second.release();
            err = bn_response_msg_append_binding_takeover(out, &binding, local.first);
            bail_error(err);
        }
        // The owner's bindings move over as they are, taken from the end so that nothing
        // shifts.
        num = bn_binding_array_length_quick(bindings);
        std::vector<ml_binding_ptr> relayed(num);
        for (uint32 i = num; i-- > 0;) {
            err = bn_binding_array_remove(bindings, i, &binding);
            bail_error(err);
            relayed[i].reset(binding);
            binding = nullptr;
        }
        for (uint32 i = 0; i < num; ++i) {
            const int32 node_id = ml_asker_node_id(pending, uint32_array_get_quick(node_ids, i));
            binding = relayed[i].release();
            err = bn_response_msg_append_binding_takeover(out, &binding, node_id);
            bail_error(err);
        }
        ml_log_relay(srv, pending, code);
        err = bn_response_msg_send(pending->mp_asker, out);
        bail_error(err);
    }
    ml_pending_erase(srv, pending);
    pending = nullptr;

bail:
    bn_binding_free(&binding);
    bn_response_msg_free(&out);
    bn_binding_array_free(&bindings);
    uint32_array_free(&node_ids);
    ts_free(&msg);
    return err;
}

// Query answers of the owners arrive here as frames.  They are taken apart and dispatched
// as any other response, with the frame at hand for ml_on_owner_response to pass on.
int ml_on_query_response_frame(gcl_handle *gh, gcl_session *sess, tbuf **inout_frame, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    tbuf *taken_apart = nullptr;

    bail_null(inout_frame);
    err = tb_dup(*inout_frame, &taken_apart);
    bail_error(err);
    srv->ms_response_frame = inout_frame;
    err = bn_msg_recv_catchall(gh, sess, &taken_apart, nullptr);
    srv->ms_response_frame = nullptr;
    bail_error(err);

bail:
    tb_free(&taken_apart);
    return err;
}

int ml_on_ignored_response(gcl_session *sess, bn_response **inout_response, void *arg)
{
    (void)sess;
    (void)inout_response;
    (void)arg;
    return 0;
}

// ---------------------------------------------------------------------------------------
// Events.

int ml_send_event(gcl_session *sess, const char *event_name, const bn_binding_array *bindings)
{
    int err = 0;
    bn_request *event = nullptr;
    const uint32 num = bn_binding_array_length_quick(bindings);

    err = bn_event_request_msg_create(&event, event_name);
    bail_error(err);
    for (uint32 i = 0; i < num; ++i) {
        err = bn_event_request_msg_append_binding(event, 0, bn_binding_array_get_quick(bindings, i),
                                                  nullptr);
        bail_error(err);
    }
    err = bn_request_msg_send(sess, event);
    bail_error(err);

bail:
    bn_request_msg_free(&event);
    return err;
}

// The sessions interested in an event, by name.
std::vector<gcl_session *> ml_interested(ml_server *srv, const std::string &event_name)
{
    std::vector<gcl_session *> found;
    for (auto &entry : srv->ms_clients) {
        if (entry.second.mcl_interests.count(event_name) != 0) {
            found.push_back(entry.first);
        }
    }
    return found;
}

int ml_add_value_binding(bn_binding_array *arr, const std::string &name, const bn_binding *src)
{
    int err = 0;
    bn_binding *binding = nullptr;

    err = bn_binding_new_components(&binding, name.c_str(), src->bn_attribs);
    bail_error(err);
    err = bn_binding_array_append_takeover(arr, &binding);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    return err;
}

int ml_add_string_binding(bn_binding_array *arr, const std::string &name, const std::string &value)
{
    int err = 0;
    bn_binding *binding = nullptr;

    err = bn_binding_new_str(&binding, name.c_str(), ba_value, bt_string, 0, value.c_str());
    bail_error(err);
    err = bn_binding_array_append_takeover(arr, &binding);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    return err;
}

// Sends each interested client the changes that match its patterns.
int ml_send_dbchange(ml_server *srv, const std::vector<ml_change> &changes)
{
    int err = 0;
    bn_binding_array *bindings = nullptr;
    bn_binding *binding = nullptr;

    for (gcl_session *sess : ml_interested(srv, ML_EVENT_DBCHANGE)) {
        const auto client = srv->ms_clients.find(sess);
        if (client == srv->ms_clients.end()) {
            continue;
        }
        const ml_interest &interest = client->second.mcl_interests[ML_EVENT_DBCHANGE];
        std::string summary;
        uint32 n = 0;

        bn_binding_array_free(&bindings);
        err = bn_binding_array_new(&bindings);
        bail_error(err);
        for (const ml_change &change : changes) {
            tbool wanted = interest.mi_all;
            for (const std::string &pattern : interest.mi_patterns) {
                wanted = wanted || ml_name_matches(change.mc_name.c_str(), pattern.c_str());
            }
            if (!wanted) {
                continue;
            }
            ++n;
            const std::string group = std::string(ML_DBCHANGE_ROOT) + "/" + std::to_string(n);
            // The group's own node, by which a reader finds the groups.
            err = bn_binding_new_str(&binding, group.c_str(), ba_value, bt_uint32, 0,
                                     std::to_string(n).c_str());
            bail_error(err);
            err = bn_binding_array_append_takeover(bindings, &binding);
            bail_error(err);
            err = ml_add_string_binding(bindings, group + "/change_type", change.mc_change_type);
            bail_error(err);
            err = ml_add_string_binding(bindings, group + "/name", change.mc_name);
            bail_error(err);
            if (change.mc_new != nullptr) {
                err = ml_add_value_binding(bindings, group + "/new_attribs/value",
                                           change.mc_new.get());
                bail_error(err);
            }
            if (change.mc_prev != nullptr) {
                err = ml_add_value_binding(bindings, group + "/prev_attribs/value",
                                           change.mc_prev.get());
                bail_error(err);
            }
            summary += " " + change.mc_change_type + " " +
                       (change.mc_new != nullptr ? ml_binding_to_text(change.mc_new.get())
                                                 : change.mc_name);
        }
        if (n == 0) {
            continue;
        }
        ml_log_line("dbchange to '%s':%s", client->second.mcl_name.c_str(), summary.c_str());
        err = ml_send_event(sess, ML_EVENT_DBCHANGE, bindings);
        bail_error(err);
    }

bail:
    bn_binding_free(&binding);
    bn_binding_array_free(&bindings);
    return err;
}

// ---------------------------------------------------------------------------------------
// Queries.

// The instances of a port family that the stand-in knows: from the stored port
// configuration and from the device-add events it relayed.
std::vector<std::string> ml_port_instances(ml_server *srv, const std::string &family)
{
    tbool internal = false;
    for (const char *name : ml_internal_families) {
        internal = internal || family == name;
    }
    const std::string config = internal ? "/ib/config/internalports/" : "/ib/config/externalports/";
    std::set<std::string> found;
    for (const auto &entry : srv->ms_db.mdb_nodes) {
        if (entry.first.compare(0, config.size(), config) == 0) {
            const std::string rest = entry.first.substr(config.size());
            found.insert(rest.substr(0, rest.find('/')));
        }
    }
    if (!internal) {
        found.insert(srv->ms_ifindexes.begin(), srv->ms_ifindexes.end());
    }
    std::vector<std::string> sorted(found.begin(), found.end());
    std::sort(sorted.begin(), sorted.end(), [](const std::string &a, const std::string &b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return sorted;
}

// An iterate of a port family's instances: the instances are answered here and their
// registered leaves asked of the owner by gets.  False when the name isn't such a family.
int ml_expand_port_iterate(ml_server *srv, const std::vector<std::string> &asked,
                           bn_query_node_flags_bf flags, int32 asker_node_id, bn_request *fwd,
                           std::map<int32, int32> *node_map,
                           std::vector<std::pair<int32, ml_binding_ptr>> *local,
                           tbool *ret_expanded)
{
    int err = 0;
    const tbool subtree = (flags & bqnf_sel_iterate_subtree) != 0;
    const tbool leaf_only = (flags & bqnf_sel_iterate_leaf_nodes_only) != 0;
    std::vector<std::vector<std::string>> leaves;
    bn_binding *binding = nullptr;
    int32 fwd_id = 0;

    *ret_expanded = false;
    if (asked.size() < 3 || asked.size() > 4 || asked[0] != "ib" || asked[1] != "state" ||
        asked[2] == "devid" || asked[2] == "swid" || (asked.size() == 4 && asked[3] != "*")) {
        goto bail;
    }
    for (const std::vector<std::string> &reg : srv->ms_reg.mr_parts) {
        if (reg.size() >= 4 && reg[0] == "ib" && reg[1] == "state" && reg[2] == asked[2] &&
            reg[3] == "*") {
            *ret_expanded = true;
            if (reg.size() == 5) {
                leaves.push_back(reg);
            }
        }
    }
    if (!*ret_expanded) {
        goto bail;
    }
    for (const std::string &instance : ml_port_instances(srv, asked[2])) {
        const std::vector<std::string> inst_parts = {"ib", "state", asked[2], instance};
        if (!leaf_only || leaves.empty()) {
            err = bn_binding_new_str(&binding, ml_join(inst_parts, 4).c_str(), ba_value,
                                     bt_string, 0, instance.c_str());
            bail_error(err);
            local->emplace_back(asker_node_id, ml_binding_ptr(binding));
            binding = nullptr;
        }
        if (!subtree) {
            continue;
        }
        for (std::vector<std::string> leaf : leaves) {
            leaf[3] = instance;
            err = bn_query_request_msg_append_str(fwd, bqso_get, 0, ml_join(leaf, 5).c_str(),
                                                  &fwd_id);
            bail_error(err);
            (*node_map)[fwd_id] = asker_node_id;
        }
    }

bail:
    bn_binding_free(&binding);
    return err;
}

int ml_on_query(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    const bn_request *req = nullptr;
    uint32 msg_id = 0;
    uint32 num_nodes = 0;
    std::vector<std::pair<int32, ml_binding_ptr>> local;
    std::map<int32, int32> node_map;
    std::string summary;
    std::string fwd_summary;
    bn_request *fwd = nullptr;
    bn_response *resp = nullptr;
    bn_binding *binding = nullptr;
    std::vector<std::vector<std::string>> fwd_names;
    gcl_session *owner = nullptr;
    int32 fwd_id = 0;

    bail_null(inout_request);
    req = *inout_request;
    bail_null(req);
    msg_id = bn_request_get_msg_id(req);
    num_nodes = bn_request_get_num_nodes(req);
    err = bn_query_request_msg_create(&fwd, req->br_body_settings.brbs_query.bqrb_query_flags,
                                      nullptr);
    bail_error(err);

    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        const std::string name = ts_str(node->brn_binding->bn_node_name);
        const bn_query_subop subop = node->brn_node_settings.brns_query.bqn_query_subop;
        const bn_query_node_flags_bf flags = node->brn_node_settings.brns_query.bqn_query_flags;
        const char *subop_name = lc_enum_to_string_quiet_null(bn_query_subop_map, subop);
        char flag_text[32] = "";

        if (flags != 0) {
            snprintf(flag_text, sizeof(flag_text), " flags=0x%x", flags);
        }
        if (!srv->ms_quiet_queries) {
            summary += std::string(summary.empty() ? "" : "; ") +
                       (subop_name != nullptr ? subop_name : "?") + " " + name + flag_text;
        }
        if (lc_is_prefix(ML_STATE_PREFIX, name.c_str(), false) || name == "/ib/state") {
            const std::vector<std::string> parts = ml_binding_parts(node->brn_binding);
            tbool expanded = false;
            if (subop == bqso_iterate) {
                err = ml_expand_port_iterate(srv, parts, flags, node->brn_node_id, fwd, &node_map,
                                             &local, &expanded);
                bail_error(err);
            }
            if (!expanded) {
                // The name alone goes on: a bare asked node as a copy, which keeps its parts.
                err = bn_attrib_array_length_quick(node->brn_binding->bn_attribs) == 0
                          ? bn_query_request_msg_append_binding(fwd, subop, flags,
                                                                node->brn_binding, &fwd_id)
                          : bn_query_request_msg_append_str(fwd, subop, flags, name.c_str(),
                                                            &fwd_id);
                bail_error(err);
                node_map[fwd_id] = node->brn_node_id;
                fwd_names.push_back(parts);
            }
            fwd_summary += std::string(fwd_summary.empty() ? "" : "; ") +
                           (subop_name != nullptr ? subop_name : "?") + " " + name;
        } else if (subop == bqso_get) {
            err = ml_db_get(&srv->ms_db, name, &binding);
            bail_error(err);
            if (binding != nullptr) {
                local.emplace_back(node->brn_node_id, ml_binding_ptr(binding));
                binding = nullptr;
            }
        } else if (subop == bqso_iterate) {
            std::vector<ml_binding_ptr> found;
            err = ml_db_iterate(&srv->ms_db, name, flags, &found);
            bail_error(err);
            for (ml_binding_ptr &one : found) {
                local.emplace_back(node->brn_node_id, std::move(one));
            }
        }
    }
    if (!srv->ms_quiet_queries) {
        ml_log_line("query from '%s': %s", ml_client_name(srv, sess).c_str(), summary.c_str());
    }

    if (bn_request_msg_get_node_count(fwd) == 0) {
        // Everything was answered here, an instance list of a port family included.
        err = bn_query_response_msg_create(&resp, msg_id, 0, nullptr);
        bail_error(err);
        for (auto &one : local) {
            binding = one.second.release();
            err = bn_query_response_msg_append_binding_takeover(resp, &binding, one.first);
            bail_error(err);
        }
        err = bn_response_msg_send(sess, resp);
        bail_error(err);
        goto bail;
    }

    owner = ml_find_client(srv, srv->ms_reg.mr_owner);
    if (owner == nullptr) {
        const std::string msg = "no client '" + srv->ms_reg.mr_owner + "' is connected to answer " +
                                fwd_summary;
        ml_log_line("answer to '%s': code %u: %s", ml_client_name(srv, sess).c_str(),
                    lc_err_not_found, msg.c_str());
        err = ml_send_simple_response(sess, bbmt_query_response, msg_id, lc_err_not_found, msg);
        bail_error(err);
        goto bail;
    }
    // The registrations that lie on the asked names' paths.
    for (size_t slot = 0; slot < srv->ms_reg.mr_names.size(); ++slot) {
        const bn_binding *reg_info = srv->ms_reg.mr_reg_info[slot].get();
        tbool wanted = false;
        if (reg_info == nullptr) {
            continue;
        }
        for (const auto &asked : fwd_names) {
            wanted = wanted || ml_on_one_path(srv->ms_reg.mr_parts[slot], asked);
        }
        if (!wanted) {
            continue;
        }
        err = bn_query_request_msg_append_binding(fwd, bqso_reg_info, 0, reg_info, nullptr);
        bail_error(err);
    }
    err = ml_forward(srv, owner, fwd, sess, msg_id, bbmt_query_response, "query " + fwd_summary,
                     &node_map, &local);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    bn_request_msg_free(&fwd);
    bn_response_msg_free(&resp);
    return err;
}

// ---------------------------------------------------------------------------------------
// Sets.

int ml_on_set(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    const bn_request *req = nullptr;
    uint32 code = 0;
    std::string msg;
    std::vector<ml_change> changes;
    std::string summary;
    uint32 num_nodes = 0;

    bail_null(inout_request);
    req = *inout_request;
    bail_null(req);
    num_nodes = bn_request_get_num_nodes(req);
    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        const char *subop_name = lc_enum_to_string_quiet_null(
            bn_set_subop_map, node->brn_node_settings.brns_set.bsn_set_subop);
        summary += std::string(summary.empty() ? "" : "; ") +
                   (subop_name != nullptr ? subop_name : "?") + " " +
                   ml_binding_to_text(node->brn_binding);
    }
    ml_log_line("set from '%s': %s", ml_client_name(srv, sess).c_str(), summary.c_str());
    err = ml_db_apply_set(&srv->ms_db, req, &code, &msg, &changes);
    bail_error(err);
    if (code != 0) {
        ml_log_line("answer to '%s': code %u: %s", ml_client_name(srv, sess).c_str(), code,
                    msg.c_str());
    }
    err = ml_send_simple_response(sess, bbmt_set_response, bn_request_get_msg_id(req), code, msg);
    bail_error(err);
    if (!changes.empty()) {
        err = ml_send_dbchange(srv, changes);
        bail_error(err);
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Actions.

int ml_action_interest_add(ml_server *srv, gcl_session *sess, const bn_request *req,
                           uint32 *ret_code, std::string *ret_msg)
{
    int err = 0;
    std::vector<std::string> events;
    std::vector<std::pair<std::string, std::string>> patterns;  // by binding name
    const uint32 num_nodes = bn_request_get_num_nodes(req);
    tstring *value = nullptr;
    auto client = srv->ms_clients.find(sess);

    *ret_code = 0;
    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        const std::string name = ts_str(node->brn_binding->bn_node_name);
        ts_free(&value);
        err = bn_binding_get_tstr(node->brn_binding, ba_value, bt_NONE, nullptr, &value);
        bail_error(err);
        if (name == "event_name" && value != nullptr && ts_length(value) > 0) {
            events.emplace_back(ts_str(value));
        } else if (ml_name_matches(name.c_str(), "match/*/pattern") && value != nullptr) {
            patterns.emplace_back(name, ts_str(value));
        }
    }
    if (events.empty() || client == srv->ms_clients.end()) {
        *ret_code = lc_err_not_found;
        *ret_msg = "no event_name given";
        goto bail;
    }
    for (const std::string &event : events) {
        ml_interest &interest = client->second.mcl_interests[event];
        if (patterns.empty()) {
            interest.mi_all = true;
        }
        for (const auto &pattern : patterns) {
            interest.mi_patterns.push_back(pattern.second);
        }
    }

bail:
    ts_free(&value);
    return err;
}

// Writes a malformed frame straight onto a client's socket.
int ml_action_send_garbage(ml_server *srv, const bn_request *req, uint32 *ret_code,
                           std::string *ret_msg)
{
    int err = 0;
    tstring *client_name = nullptr;
    tstring *kind = nullptr;
    bn_binding *binding = nullptr;
    gcl_session *target = nullptr;
    const uint32 num_nodes = bn_request_get_num_nodes(req);
    // A frame with a good header and a body that is no message ...
    static const uint8 bad_body[] = {'G', 'C', 'L', 'F', '0', '1', '2', '3', 0, 0, 0, 1,
                                     0,   0,   0,   40,  0,   32,  0,   0,   0, 0, 0, 7,
                                     0,   2,   0,   1,   0,   0,   0,   8,   0xff, 0xff, 0xff,
                                     0xff, 0xff, 0xff, 0xff, 0xff};
    // ... and one whose header is no frame header at all.
    static const uint8 bad_header[] = {'J', 'U', 'N', 'K', 'J', 'U', 'N', 'K', 0xde, 0xad, 0xbe,
                                       0xef, 0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
                                       0,   0,   0,   0,   0,   0,   0,   0,   0,   0};
    const uint8 *bytes = bad_body;
    size_t len = sizeof(bad_body);
    ssize_t written = 0;

    *ret_code = 0;
    for (uint32 i = 0; i < num_nodes; ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        binding = node->brn_binding;
        if (strcmp(ts_str(binding->bn_node_name), "client") == 0) {
            ts_free(&client_name);
            err = bn_binding_get_tstr(binding, ba_value, bt_NONE, nullptr, &client_name);
            bail_error(err);
        } else if (strcmp(ts_str(binding->bn_node_name), "kind") == 0) {
            ts_free(&kind);
            err = bn_binding_get_tstr(binding, ba_value, bt_NONE, nullptr, &kind);
            bail_error(err);
        }
    }
    binding = nullptr;
    if (client_name == nullptr) {
        *ret_code = lc_err_not_found;
        *ret_msg = "no client given";
        goto bail;
    }
    target = ml_find_client(srv, ts_str(client_name));
    if (target == nullptr) {
        *ret_code = lc_err_not_found;
        *ret_msg = std::string("no client '") + ts_str(client_name) + "' is connected";
        goto bail;
    }
    if (kind != nullptr && strcmp(ts_str(kind), "header") == 0) {
        bytes = bad_header;
        len = sizeof(bad_header);
    }
    if (target->gs_output_queue.tqh_first != nullptr) {
        *ret_code = lc_err_io_blocking_error;
        *ret_msg = "output to the client is still pending; try again";
        goto bail;
    }
    written = write(target->gs_fd, bytes, len);
    if (written != static_cast<ssize_t>(len)) {
        *ret_code = lc_err_io_error;
        *ret_msg = "could not write to the client";
        goto bail;
    }
    ml_log_line("garbage (%s) written to '%s'", bytes == bad_header ? "header" : "body",
                ts_str(client_name));

bail:
    ts_free(&client_name);
    ts_free(&kind);
    return err;
}

int ml_on_action(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    const bn_request *req = nullptr;
    tstring *action_name = nullptr;
    uint32 msg_id = 0;
    uint32 code = 0;
    std::string msg;
    std::string name;
    gcl_session *owner = nullptr;
    bn_request *fwd = nullptr;
    bn_binding *binding = nullptr;
    uint32 num_nodes = 0;

    bail_null(inout_request);
    req = *inout_request;
    bail_null(req);
    msg_id = bn_request_get_msg_id(req);
    err = bn_action_request_msg_get_action_name(req, &action_name);
    bail_error(err);
    name = ts_str(action_name);
    ml_log_line("action %s from '%s': %s", name.c_str(), ml_client_name(srv, sess).c_str(),
                ml_request_bindings_text(req).c_str());

    if (name == ML_ACTION_INTEREST_ADD) {
        err = ml_action_interest_add(srv, sess, req, &code, &msg);
        bail_error(err);
    } else if (name == ML_ACTION_SEND_GARBAGE) {
        err = ml_action_send_garbage(srv, req, &code, &msg);
        bail_error(err);
    } else if (lc_is_prefix(ML_ACTIONS_PREFIX, name.c_str(), false)) {
        owner = ml_find_client(srv, srv->ms_reg.mr_owner);
        if (owner == nullptr) {
            code = lc_err_not_found;
            msg = "no client '" + srv->ms_reg.mr_owner + "' is connected to answer action " + name;
        } else {
            err = bn_action_request_msg_create(&fwd, name.c_str());
            bail_error(err);
            num_nodes = bn_request_get_num_nodes(req);
            for (uint32 i = 0; i < num_nodes; ++i) {
                const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
                if (node == nullptr || node->brn_binding == nullptr) {
                    continue;
                }
                err = bn_binding_dup(node->brn_binding, &binding);
                bail_error(err);
                err = bn_action_request_msg_append_binding_takeover(fwd, 0, &binding, nullptr);
                bail_error(err);
            }
            err = ml_forward(srv, owner, fwd, sess, msg_id, bbmt_action_response,
                             "action " + name, nullptr, nullptr);
            bail_error(err);
            goto bail;
        }
    } else {
        code = lc_err_not_found;
        msg = "unknown action " + name;
    }
    if (code != 0) {
        ml_log_line("answer to '%s': code %u: %s", ml_client_name(srv, sess).c_str(), code,
                    msg.c_str());
    }
    err = ml_send_simple_response(sess, bbmt_action_response, msg_id, code, msg);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    bn_request_msg_free(&fwd);
    ts_free(&action_name);
    return err;
}

// ---------------------------------------------------------------------------------------
// Events from clients.

int ml_on_event(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    const bn_request *req = nullptr;
    tstring *event_name = nullptr;
    bn_binding_array *bindings = nullptr;
    std::string name;
    tstring *value = nullptr;
    std::vector<gcl_session *> targets;

    bail_null(inout_request);
    req = *inout_request;
    bail_null(req);
    err = bn_event_request_msg_get_event_name(req, &event_name);
    bail_error(err);
    name = ts_str(event_name);
    ml_log_line("event %s from '%s': %s", name.c_str(), ml_client_name(srv, sess).c_str(),
                ml_request_bindings_text(req).c_str());
    err = ml_send_simple_response(sess, bbmt_event_response, bn_request_get_msg_id(req), 0, "");
    bail_error(err);

    err = bn_request_get(req, nullptr, nullptr, false, &bindings, nullptr, nullptr);
    bail_error(err);
    if (name == ML_EVENT_DEVICE_ADD) {
        const uint32 num = bn_binding_array_length_quick(bindings);
        for (uint32 i = 0; i < num; ++i) {
            const bn_binding *binding = bn_binding_array_get_quick(bindings, i);
            // "ifindex_N", not the far end's "ifindex_neighbor_N".
            if (!lc_is_prefix("ifindex_", ts_str(binding->bn_node_name), false) ||
                lc_is_prefix("ifindex_neighbor_", ts_str(binding->bn_node_name), false)) {
                continue;
            }
            ts_free(&value);
            err = bn_binding_get_tstr(binding, ba_value, bt_NONE, nullptr, &value);
            bail_error(err);
            if (value != nullptr && ts_length(value) > 0) {
                srv->ms_ifindexes.insert(ts_str(value));
            }
        }
    }
    targets = ml_interested(srv, name);
    if (srv->ms_relay_all_events) {
        targets.clear();
        for (const auto &entry : srv->ms_clients) {
            if (entry.first != sess) {
                targets.push_back(entry.first);
            }
        }
    }
    for (gcl_session *target : targets) {
        ml_log_line("relay event %s to '%s'", name.c_str(), ml_client_name(srv, target).c_str());
        err = ml_send_event(target, name.c_str(), bindings);
        bail_error(err);
    }

bail:
    ts_free(&value);
    bn_binding_array_free(&bindings);
    ts_free(&event_name);
    return err;
}

// ---------------------------------------------------------------------------------------
// Session life.

// A session names itself "<client>-<pid>" (or "-<uid>.<pid>"): the client is the part in
// front.
std::string ml_base_client_name(const std::string &peer)
{
    const size_t dash = peer.rfind('-');
    if (dash == std::string::npos || dash == 0 || dash + 1 == peer.size()) {
        return peer;
    }
    const std::string suffix = peer.substr(dash + 1);
    if (suffix.find_first_not_of("0123456789.") != std::string::npos ||
        !isdigit(static_cast<unsigned char>(suffix[0]))) {
        return peer;
    }
    return peer.substr(0, dash);
}

int ml_on_admin_ready(gcl_session *sess, tbool ready, tbool closing, void *arg)
{
    ml_server *srv = static_cast<ml_server *>(arg);
    const char *peer = nullptr;

    if (!ready || closing || !sess->gs_provider_accepted) {
        return 0;
    }
    gcl_session_get_session_names(sess, nullptr, &peer);
    ml_client &client = srv->ms_clients[sess];
    client.mcl_session = sess;
    client.mcl_name = ml_base_client_name(peer != nullptr ? peer : "");
    ml_log_line("client '%s' connected", client.mcl_name.c_str());
    return 0;
}

// Frees the sessions that closed, outside of their own callbacks, and settles what waited
// on them.
int ml_reap_closed(int fd, short event_type, void *data, lew_context *context)
{
    ml_server *srv = static_cast<ml_server *>(data);
    std::vector<gcl_session *> closed;
    (void)fd;
    (void)event_type;
    (void)context;

    srv->ms_reap_scheduled = false;
    for (uint32 i = 0; i < srv->ms_gh->gh_num_sessions; ++i) {
        gcl_session *sess = srv->ms_gh->gh_sessions[i];
        if (sess->gs_provider_accepted && sess->gs_state == gss_closed) {
            closed.push_back(sess);
        }
    }
    for (gcl_session *sess : closed) {
        std::vector<ml_pending *> lost;
        const std::string name = ml_client_name(srv, sess);
        for (auto &entry : srv->ms_pending) {
            if (entry.second->mp_asker == sess) {
                entry.second->mp_asker = nullptr;
            }
            if (entry.second->mp_owner == sess) {
                lost.push_back(entry.second.get());
            }
        }
        for (ml_pending *pending : lost) {
            ml_pending_fail(srv, pending, lc_err_io_closed,
                            "'" + name + "' went away before answering " + pending->mp_what);
        }
        srv->ms_clients.erase(sess);
        complain_error(gcl_session_free(&sess));
    }
    return 0;
}

int ml_on_closed(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    ml_server *srv = static_cast<ml_server *>(arg);
    (void)gclh;

    if (srv->ms_exiting || !sess->gs_provider_accepted) {
        goto bail;
    }
    if (srv->ms_clients.count(sess) != 0) {
        ml_log_line("client '%s' closed", ml_client_name(srv, sess).c_str());
    }
    if (!srv->ms_reap_scheduled) {
        err = lew_event_reg_timer(srv->ms_lwc, nullptr, ml_reap_closed, srv, 0);
        bail_error(err);
        srv->ms_reap_scheduled = true;
    }

bail:
    return err;
}

int ml_on_signal(int fd, short event_type, void *data, lew_context *context)
{
    ml_server *srv = static_cast<ml_server *>(data);
    (void)event_type;

    ml_log_line("received %s, exiting", fd == SIGTERM ? "SIGTERM" : "SIGINT");
    srv->ms_exiting = true;
    return lew_escape_from_dispatch(context, true);
}

}  // namespace

// ---------------------------------------------------------------------------------------

int ml_server_init(ml_server *srv)
{
    int err = 0;
    event_context *ec = nullptr;
    gcl_global_options opts;
    gcl_provider_options popts;
    gcl_bp_registration *reg = nullptr;
    bn_global_state *bgs = nullptr;

    bail_null(srv);
    srv->ms_next_pending_id = 1;
    srv->ms_reg.mr_parts.clear();
    srv->ms_reg.mr_reg_info.clear();
    for (size_t slot = 0; slot < srv->ms_reg.mr_names.size(); ++slot) {
        const std::string &name = srv->ms_reg.mr_names[slot];
        srv->ms_reg.mr_parts.push_back(ml_split_name(name.c_str()));
        srv->ms_reg.mr_reg_info.emplace_back();
        if (!lc_is_prefix(ML_STATE_PREFIX, name.c_str(), false)) {
            continue;
        }
        bn_binding *reg_info = nullptr;
        bn_attrib *cap_mask = nullptr;
        // With its parts made once here, the copy in every forwarded query carries them.
        err = bn_binding_new_parts_components(&reg_info, name.c_str(), nullptr, false, nullptr);
        bail_error(err);
        srv->ms_reg.mr_reg_info.back().reset(reg_info);
        err = bn_attrib_new_uint32(&cap_mask, ba_cap_mask, 0, srv->ms_reg.mr_cap_masks[slot]);
        bail_error(err);
        err = bn_binding_set_attrib_takeover(reg_info, ba_cap_mask, &cap_mask);
        bn_attrib_free(&cap_mask);
        bail_error(err);
    }
    err = lew_init(&srv->ms_lwc);
    bail_error(err);
    err = lew_get_event_context(srv->ms_lwc, &ec);
    bail_error(err);
    err = fdic_libevent_init(ec, &srv->ms_flc);
    bail_error(err);
    err = fdic_init(&srv->ms_fich, fdic_libevent_callback, srv->ms_flc);
    bail_error(err);

    err = gcl_options_get_defaults(&opts);
    bail_error(err);
    opts.ggo_admin_ready_func = ml_on_admin_ready;
    opts.ggo_admin_ready_arg = srv;
    strlcpy(opts.ggo_handle_id, ML_PROVIDER_NAME, sizeof(opts.ggo_handle_id));
    err = gcl_init(&srv->ms_gh, &opts, srv->ms_fich);
    bail_error(err);
    reg = gcl_get_body_protocol_registration(srv->ms_gh, gbp_proto_bnode);
    bail_null(reg);
    reg->gbpr_connection_closed = ml_on_closed;
    reg->gbpr_connection_closed_arg = srv;
    bgs = static_cast<bn_global_state *>(reg->gbpr_state_ptr);
    bail_null(bgs);
    bgs->bgs_callbacks.bmc_query_request_func = ml_on_query;
    bgs->bgs_callbacks.bmc_query_request_arg = srv;
    bgs->bgs_callbacks.bmc_set_request_func = ml_on_set;
    bgs->bgs_callbacks.bmc_set_request_arg = srv;
    bgs->bgs_callbacks.bmc_action_request_func = ml_on_action;
    bgs->bgs_callbacks.bmc_action_request_arg = srv;
    bgs->bgs_callbacks.bmc_event_request_func = ml_on_event;
    bgs->bgs_callbacks.bmc_event_request_arg = srv;
    bgs->bgs_callbacks.bmc_query_response_func = ml_on_owner_response;
    bgs->bgs_callbacks.bmc_query_response_arg = srv;
    bgs->bgs_callbacks.bmc_action_response_func = ml_on_owner_response;
    bgs->bgs_callbacks.bmc_action_response_arg = srv;
    reg->gbpr_msg_callbacks[bbmt_query_response] = {gbp_proto_bnode, bbmt_query_response,
                                                    ml_on_query_response_frame, srv};
    bgs->bgs_callbacks.bmc_set_response_func = ml_on_ignored_response;
    bgs->bgs_callbacks.bmc_event_response_func = ml_on_ignored_response;

    err = gcl_provider_options_get_defaults(&popts);
    bail_error(err);
    err = gcl_session_provider_new(srv->ms_gh, ML_PROVIDER_NAME, &popts, nullptr, 0,
                                   &srv->ms_listener);
    bail_error(err);
    err = gcl_session_provider_enable(srv->ms_listener);
    bail_error(err);

    err = lew_event_reg_signal(srv->ms_lwc, &srv->ms_sig_term, SIGTERM, ml_on_signal, srv);
    bail_error(err);
    err = lew_event_reg_signal(srv->ms_lwc, &srv->ms_sig_int, SIGINT, ml_on_signal, srv);
    bail_error(err);
    ml_log_line("listening as provider '%s' on %s", ML_PROVIDER_NAME,
                srv->ms_listener->gs_ud_socket_path != nullptr ? srv->ms_listener->gs_ud_socket_path
                                                               : "?");

bail:
    return err;
}

int ml_server_run(ml_server *srv)
{
    int err = 0;

    bail_null(srv);
    err = lew_dispatch(srv->ms_lwc, nullptr, nullptr);
    bail_error(err);

bail:
    return err;
}

int ml_server_deinit(ml_server *srv)
{
    int err = 0;

    bail_null(srv);
    srv->ms_exiting = true;
    while (!srv->ms_pending.empty()) {
        ml_pending_erase(srv, srv->ms_pending.begin()->second.get());
    }
    srv->ms_clients.clear();
    if (srv->ms_gh != nullptr) {
        complain_error(gcl_deinit(&srv->ms_gh));
    }
    srv->ms_listener = nullptr;
    if (srv->ms_fich != nullptr) {
        complain_error(fdic_deinit(&srv->ms_fich));
    }
    if (srv->ms_flc != nullptr) {
        complain_error(fdic_libevent_deinit(&srv->ms_flc));
    }
    if (srv->ms_lwc != nullptr) {
        complain_error(lew_deinit(&srv->ms_lwc));
    }

bail:
    return err;
}
