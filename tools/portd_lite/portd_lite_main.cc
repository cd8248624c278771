// portd-lite: the port manager's stand-in (see portd_lite.h for what it derives).
//
//   portd-lite [--sock-root PREFIX] [--model FILE|builtin:NAME] [--system-type N]
//              [--timeout S] [--master DEVID] [--ports N] [--as DEVID]
//              [--subsystem-type N] COMMAND ...
//
//   add-devices [DEVID...]   announce the model's devices (all, or those named), one at a
//                            time, each after the answer to the one before; prints
//                            "device N: status S" per answer
//   enable DEVID [LOCAL...]  ask the daemon to enable the device's ports (all, or those
//                            named) and print its port-enable-done answer
//   disable DEVID [LOCAL...] ask it to disable them; that operation is answered by silence,
//                            but for virtual ports (--operation 2), whose answer is printed
//   validate DEVID...        ask for the device's validation and print the answer
//   move-port IFINDEX SWID [--force]
//                            move a port from its SWID (the model's) to another by the
//                            hand-shake of operation 1, printing both answers
//   remove DEVID...          take the devices out of the daemon's tables, printing the
//                            device-remove-done answers
//   burn-device DEVID        the firmware-burn flow: announce the bare device
//   burn-port DEVID LOCAL    ... and bring one of its ports up at the lowest speed
//   boot                     what the port manager does at start: every device of the
//                            model added, then all its ports enabled
//   route-update [FILE]      announce the direct routes of a route file, or without one
//                            the routes fabric-routes prints
//   publish-map [DEVID...]   publish the panel map of the devices' external ports (all
//                            devices, or those named) under
//                            /portd/state/map/cable-externalports/switch/
//                            infiniband-default/<panel index>/ifindex, panel index being
//                            the label less one; boot publishes it too
//   show [DEVID...]          print the bindings add-devices would send, without sending
//   fabric-topology          print the chassis model as a topology of the fabric
//                            simulator: a switch "chip<DEVID>" a device, the internal
//                            ports wired as the add events announce them
//   fabric-routes            print the route file from --master to every chip (SWID 0,
//                            or --swid)
//   gen-chassis SPINE_SLOTS LEAF_SLOTS [CHIPS [PORTS]]
//                            print a full chassis model for the system type
//
// --ports N announces only the first N ports of a device (0: none); --as DEVID announces
// the one device named under another id.  The default system type is 36 (standalone).
// --subsystem-type N announces the devices with that subsystem type (a blade's) instead of
// the one derived from the system type.
// --operation N sends another operation in enable and disable; --swid N puts every port
// of those events in SWID N instead of the model's; --json prints the answers as JSON.
//
// Exit codes: 0 done and every answer 0; 1 an answer with a non-zero status; 2 bad
// command line or model; 3 the management daemon can't be reached or closed the session;
// 4 an answer didn't come in time.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_session.h"
#include "bnode_types.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "logging.h"
#include "portd_lite.h"
#include "ttime.h"

namespace {

using namespace portd_lite;

constexpr int pl_exit_ok = 0;
constexpr int pl_exit_failed_status = 1;
constexpr int pl_exit_usage = 2;
constexpr int pl_exit_unreachable = 3;
constexpr int pl_exit_timeout = 4;

const char pl_event_device_add[] = "/portd/events/ib-device-add";
const char pl_event_device_add_done[] = "/ib/events/device-add-done";
const char pl_event_route_update[] = "/topod/events/ib-direct-route-update";
const char pl_event_port_enable[] = "/portd/events/port-enable";
const char pl_event_port_enable_done[] = "/portd/events/port-enable-done";
const char pl_event_port_disable[] = "/portd/events/port-disable";
const char pl_event_validate[] = "/portd/events/device-validate-ib";
const char pl_event_validate_done[] = "/ib/events/device-validate-ib-done";
const char pl_event_port_disable_done[] = "/portd/events/port-disable-done";
const char pl_event_remove[] = "/portd/events/device-remove";
const char pl_event_remove_done[] = "/ib/events/device-remove-done";
const char pl_event_burn_device[] = "/portd/events/add-burn-device";
const char pl_event_burn_device_done[] = "/ib/events/add-burn-device-done";
const char pl_event_burn_port[] = "/portd/events/enable-burn-port";
const char pl_event_burn_port_done[] = "/ib/events/enable-burn-port-done";
const char pl_action_interest_add[] = "/mgmtd/events/actions/interest/add";

struct pl_options {
    const char *po_sock_root = nullptr;
    std::string po_model = "builtin:standalone36";
    lt_dur_ms po_timeout_ms = 30000;
    pl_event_options po_event;
    uint32 po_operation = 0;
    int32 po_swid = -1;  // -1: the model's
    tbool po_json = false;
};

// An answer of the daemon: its event, device, status and all its bindings as text.
struct pl_answer {
    std::string pa_event;
    uint32 pa_dev_id = 0;
    uint32 pa_status = 0;
    std::vector<pl_binding> pa_bindings;
};

struct pl_client {
    fdic_handle *pc_fich = nullptr;
    gcl_handle *pc_gh = nullptr;
    gcl_session *pc_sess = nullptr;
    uint32 pc_want_msg_id = 0;
    bn_response *pc_response = nullptr;
    // Answers that came in and weren't taken yet.
    std::vector<pl_answer> pc_done;
};

void pl_usage(FILE *out)
{
    fprintf(out,
            "usage: portd-lite [--sock-root PREFIX] [--model FILE|builtin:NAME] "
            "[--system-type N]\n"
            "                  [--timeout S] [--master DEVID] [--ports N] [--as DEVID] "
            "COMMAND ...\n"
            "                  [--operation N] [--swid N] [--subsystem-type N] [--json]\n"
            "commands:\n"
            "  add-devices [DEVID...]\n"
            "  enable DEVID [LOCAL...]\n"
            "  disable DEVID [LOCAL...]\n"
            "  validate DEVID...\n"
            "  move-port IFINDEX SWID [--force]\n"
            "  remove DEVID...\n"
            "  burn-device DEVID\n"
            "  burn-port DEVID LOCAL\n"
            "  boot\n"
            "  route-update [FILE]\n"
            "  publish-map [DEVID...]\n"
            "  show [DEVID...]\n"
            "  gen-chassis SPINE_SLOTS LEAF_SLOTS [CHIPS [PORTS]]\n"
            "  fabric-topology | fabric-routes\n");
}

tbool pl_parse_uint(const char *text, uint32 *ret)
{
    char *end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 0);
    if (*text == '\0' || *text == '-' || *end != '\0' || errno != 0 || value > UINT32_MAX) {
        return false;
    }
    *ret = static_cast<uint32>(value);
    return true;
}

// ---------------------------------------------------------------------------------------
// The session.

int pl_on_response(gcl_session *sess, bn_response **inout_response, void *arg)
{
    pl_client *client = static_cast<pl_client *>(arg);
    uint32 req_msg_id = 0;
    (void)sess;

    bn_response_get_msg_ids(*inout_response, nullptr, &req_msg_id);
    if (req_msg_id == client->pc_want_msg_id && client->pc_response == nullptr) {
        client->pc_response = *inout_response;
        *inout_response = nullptr;
    }
    return 0;
}

int pl_on_event(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    pl_client *client = static_cast<pl_client *>(arg);
    tstring *name = nullptr;
    bn_binding_array *bindings = nullptr;
    bn_binding *binding = nullptr;
    uint32 dev_id = 0;
    uint32 status = 0;
    pl_answer answer;

    err = bn_event_request_msg_get_event_name(*inout_request, &name);
    bail_error(err);
    err = bn_response_msg_create_send(sess, bbmt_event_response,
                                      bn_request_get_msg_id(*inout_request), 0, nullptr, 0);
    bail_error(err);
    if (name == nullptr || (strcmp(ts_str(name), pl_event_device_add_done) != 0 &&
                            strcmp(ts_str(name), pl_event_port_enable_done) != 0 &&
                            strcmp(ts_str(name), pl_event_validate_done) != 0 &&
                            strcmp(ts_str(name), pl_event_remove_done) != 0 &&
                            strcmp(ts_str(name), pl_event_port_disable_done) != 0 &&
                            strcmp(ts_str(name), pl_event_burn_device_done) != 0 &&
                            strcmp(ts_str(name), pl_event_burn_port_done) != 0)) {
        goto bail;
    }
    err = bn_request_get(*inout_request, nullptr, nullptr, false, &bindings, nullptr, nullptr);
    bail_error(err);
    err = bn_binding_array_get_binding_by_name(bindings, "dev_id", &binding);
    bail_error(err);
    if (binding == nullptr ||
        bn_binding_get_uint32(binding, ba_value, nullptr, &dev_id) != 0) {
        fprintf(stderr, "portd-lite: an answer without dev_id\n");
        goto bail;
    }
    err = bn_binding_array_get_binding_by_name(bindings, "status", &binding);
    bail_error(err);
    if (binding == nullptr ||
        bn_binding_get_uint32(binding, ba_value, nullptr, &status) != 0) {
        fprintf(stderr, "portd-lite: the answer for device %u has no status\n", dev_id);
        goto bail;
    }
    answer.pa_event = ts_str(name);
    answer.pa_dev_id = dev_id;
    answer.pa_status = status;
    for (uint32 i = 0; i < bn_binding_array_length_quick(bindings); ++i) {
        const bn_binding *b = bn_binding_array_get_quick(bindings, i);
        tstring *value = nullptr;
        bn_type type = bt_NONE;
        bn_binding_get_type(b, ba_value, &type, nullptr);
        if (bn_binding_get_tstr(b, ba_value, bt_NONE, nullptr, &value) == 0) {
            answer.pa_bindings.push_back({ts_str(b->bn_node_name),
                                          lc_enum_to_string_quiet(bn_type_map, type),
                                          ts_str_maybe_empty(value)});
        }
        ts_free(&value);
    }
    client->pc_done.push_back(std::move(answer));

bail:
    bn_binding_array_free(&bindings);
    ts_free(&name);
    return err;
}

int pl_on_unanswered(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)sess;
    (void)arg;
    (void)inout_request;
    return 0;
}

int pl_connect(pl_client *client, const pl_options &opts)
{
    int err = 0;
    gcl_global_options gopts;
    gcl_session_state state = gss_none;
    tbool reached = false;

    err = gcl_set_sock_root_prefix(opts.po_sock_root);
    bail_error(err);
    err = fdic_init(&client->pc_fich, nullptr, nullptr);
    bail_error(err);
    err = gcl_options_get_defaults(&gopts);
    bail_error(err);
    strlcpy(gopts.ggo_handle_id, "portd-lite", sizeof(gopts.ggo_handle_id));
    err = gcl_init(&client->pc_gh, &gopts, client->pc_fich);
    bail_error(err);
    err = gcl_session_client_set_user_new(client->pc_gh, "portd", gof_none, ggid_auto, ggid_auto,
                                          nullptr, nullptr, 0, &client->pc_sess);
    bail_error(err);
    err = bn_set_session_callback_action_response_msg(client->pc_sess, pl_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_event_response_msg(client->pc_sess, pl_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_set_response_msg(client->pc_sess, pl_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_event_request_msg(client->pc_sess, pl_on_event, client);
    bail_error(err);
    err = bn_set_session_callback_query_request_msg(client->pc_sess, pl_on_unanswered, client);
    bail_error(err);
    err = bn_set_session_callback_action_request_msg(client->pc_sess, pl_on_unanswered, client);
    bail_error(err);

    err = gcl_session_client_connect_by_provider(client->pc_sess, "mgmtd", false);
    bail_error_quiet(err);
    reached = true;
    err = gcl_session_client_open_service_blocking(client->pc_sess, gbp_proto_bnode,
                                                   bap_service_mgmt, nullptr, nullptr,
                                                   opts.po_timeout_ms);
    gcl_session_get_state(client->pc_sess, &state, nullptr);
    if (err == 0 && state != gss_connected) {
        err = lc_err_io_closed;
    }
    if (err != 0) {
        fprintf(stderr, "portd-lite: mgmtd didn't open the session: %s\n",
                lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
        goto bail;
    }

bail:
    if (err != 0 && !reached) {
        fprintf(stderr, "portd-lite: cannot reach mgmtd (socket root '%s'): %s\n",
                opts.po_sock_root != nullptr ? opts.po_sock_root : "",
                lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
    }
    return err;
}

// Runs the session until `done` holds: lc_err_io_closed when the session ends first,
// lc_err_io_timeout when the time is up.
template <typename Pred>
int pl_wait(pl_client *client, lt_dur_ms max_wait_ms, const char *what, Pred done)
{
    int err = 0;
    const lt_time_ms deadline = lt_sys_uptime_ms() + max_wait_ms;
    gcl_session_state state = gss_none;
    lt_dur_ms remaining = 0;

    while (!done()) {
        remaining = deadline - lt_sys_uptime_ms();
        if (remaining <= 0) {
            fprintf(stderr, "portd-lite: no %s within %.1f s\n", what, max_wait_ms / 1000.0);
            err = lc_err_io_timeout;
            goto bail;
        }
        err = gcl_session_do_blocking_io(client->pc_gh, client->pc_sess, false, true, true, false,
                                         gbp_none, remaining);
        gcl_session_get_state(client->pc_sess, &state, nullptr);
        if (state != gss_connected && !done()) {
            fprintf(stderr, "portd-lite: mgmtd closed the session\n");
            err = lc_err_io_closed;
            goto bail;
        }
        if (err == lc_err_io_timeout) {
            err = 0;
        }
        bail_error(err);
    }

bail:
    return err;
}

// Sends a request and waits for mgmtd's answer to it; a refusal is lc_err_generic_error.
int pl_send_wait(pl_client *client, const pl_options &opts, bn_request *req)
{
    int err = 0;
    uint32 code = 0;
    tstring *msg = nullptr;

    err = bn_request_msg_send(client->pc_sess, req);
    bail_error(err);
    client->pc_want_msg_id = req->br_header.brh_msg_id;
    err = pl_wait(client, opts.po_timeout_ms, "answer from mgmtd",
                  [client] { return client->pc_response != nullptr; });
    bail_error_quiet(err);
    err = bn_response_get(client->pc_response, &code, &msg, false, nullptr, nullptr);
    bail_error(err);
    if (code != 0) {
        fprintf(stderr, "portd-lite: mgmtd answered code %u: %s\n", code, ts_str_maybe_empty(msg));
        err = lc_err_generic_error;
        goto bail;
    }

bail:
    bn_response_msg_free(&client->pc_response);
    ts_free(&msg);
    return err;
}

int pl_send_event(pl_client *client, const pl_options &opts, const char *name,
                  const std::vector<pl_binding> &bindings)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *array = nullptr;
    uint32 num = 0;

    err = pl_bindings_to_array(bindings, &array);
    bail_error(err);
    err = bn_event_request_msg_create(&req, name);
    bail_error(err);
    num = bn_binding_array_length_quick(array);
    for (uint32 i = 0; i < num; ++i) {
        err = bn_event_request_msg_append_binding(req, 0, bn_binding_array_get_quick(array, i),
                                                  nullptr);
        bail_error(err);
    }
    err = pl_send_wait(client, opts, req);
    bail_error_quiet(err);

bail:
    bn_binding_array_free(&array);
    bn_request_msg_free(&req);
    return err;
}

// The panel map of the external ports: a set of one uint32 node per port.
int pl_cmd_publish_map(pl_client *client, const pl_options &opts, const pl_model &model,
                       const std::vector<uint32> &dev_ids)
{
    int err = 0;
    bn_request *req = nullptr;
    uint32 count = 0;

    err = bn_set_request_msg_create(&req, 0);
    bail_error(err);
    for (uint32 dev_id : dev_ids) {
        for (const auto &entry : model.pm_devices.at(dev_id).pd_ports) {
            const pl_port &port = entry.second;
            if (!port.pp_has_module || port.pp_local >= pl_first_virtual_port) {
                continue;
            }
            const std::string name = "/portd/state/map/cable-externalports/switch/"
                                     "infiniband-default/" +
                                     std::to_string(port.pp_local - 1) + "/ifindex";
            const std::string value = std::to_string(pl_ifindex(dev_id, port.pp_local));
            err = bn_set_request_msg_append_new_binding(req, bsso_modify, 0, name.c_str(),
                                                        bt_uint32, 0, value.c_str(), nullptr);
            bail_error(err);
            ++count;
        }
    }
    err = pl_send_wait(client, opts, req);
    bail_error_quiet(err);
    printf("panel map: %u ports published\n", count);

bail:
    bn_request_msg_free(&req);
    return err;
}

int pl_declare_interest(pl_client *client, const pl_options &opts, const char *event_name)
{
    int err = 0;
    bn_request *req = nullptr;

    err = bn_action_request_msg_create(&req, pl_action_interest_add);
    bail_error(err);
    err = bn_action_request_msg_append_new_binding(req, 0, "event_name", bt_name, event_name,
                                                   nullptr);
    bail_error(err);
    err = pl_send_wait(client, opts, req);
    bail_error_quiet(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

// ---------------------------------------------------------------------------------------
// Commands.

int pl_exit_for_error(int err)
{
    switch (err) {
    case 0:
        return pl_exit_ok;
    case lc_err_io_timeout:
        return pl_exit_timeout;
    default:
        return pl_exit_unreachable;
    }
}

// Waits for the daemon's answer `event` about device dev_id and takes it.
int pl_wait_answer(pl_client *client, const pl_options &opts, const char *event, uint32 dev_id,
                   pl_answer *ret_answer)
{
    return pl_wait(client, opts.po_timeout_ms, "answer from the IB daemon", [&] {
        for (auto it = client->pc_done.begin(); it != client->pc_done.end(); ++it) {
            if (it->pa_event == event && it->pa_dev_id == dev_id) {
                *ret_answer = std::move(*it);
                client->pc_done.erase(it);
                return true;
            }
        }
        return false;
    });
}

std::string pl_json_text(const std::string &text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

// An answer as it is printed: a line per binding under a heading, or one JSON object.
void pl_print_answer(const pl_options &opts, const pl_answer &answer)
{
    if (opts.po_json) {
        printf("{\"event\":%s,\"dev_id\":%u,\"status\":%u,\"bindings\":{",
               pl_json_text(answer.pa_event).c_str(), answer.pa_dev_id, answer.pa_status);
        for (size_t i = 0; i < answer.pa_bindings.size(); ++i) {
            const pl_binding &b = answer.pa_bindings[i];
            const tbool number = b.pb_type != "string" && b.pb_type != "bool" && !b.pb_value.empty() &&
                                 b.pb_value.find_first_not_of("0123456789") == std::string::npos;
            printf("%s%s:%s", i == 0 ? "" : ",", pl_json_text(b.pb_name).c_str(),
                   number ? b.pb_value.c_str() : pl_json_text(b.pb_value).c_str());
        }
        printf("}}\n");
    } else {
        printf("%s: device %u status %u\n", answer.pa_event.c_str(), answer.pa_dev_id,
               answer.pa_status);
        for (const pl_binding &b : answer.pa_bindings) {
            printf("  %-12s %-7s %s\n", b.pb_name.c_str(), b.pb_type.c_str(), b.pb_value.c_str());
        }
    }
    fflush(stdout);
}

// The enable family's payload: dev_id, port_num, operation, and per port its SWID (the
// model's, or --swid), local port and ifindex.  An empty `locals` takes every port.
int pl_port_event_bindings(const pl_model &model, const pl_options &opts, uint32 dev_id,
                           const std::vector<uint32> &locals, std::vector<pl_binding> *ret_bindings,
                           std::string *ret_why)
{
    const auto dev = model.pm_devices.find(dev_id);
    std::vector<uint32> ports = locals;

    ret_bindings->clear();
    if (dev == model.pm_devices.end()) {
        *ret_why = "no device " + std::to_string(dev_id) + " in the model";
        return lc_err_not_found;
    }
    if (ports.empty()) {
        for (const auto &entry : dev->second.pd_ports) {
            ports.push_back(entry.first);
        }
    }
    ret_bindings->push_back({"dev_id", "uint32", std::to_string(dev_id)});
    ret_bindings->push_back({"port_num", "uint32", std::to_string(ports.size())});
    ret_bindings->push_back({"operation", "uint8", std::to_string(opts.po_operation)});
    for (size_t i = 0; i < ports.size(); ++i) {
        const auto port = dev->second.pd_ports.find(ports[i]);
        const uint32 swid = opts.po_swid >= 0 ? static_cast<uint32>(opts.po_swid)
                            : port != dev->second.pd_ports.end() ? port->second.pp_swid
                                                                 : 0;
        const std::string n = std::to_string(i + 1);
        ret_bindings->push_back({"swid_" + n, "uint8", std::to_string(swid)});
        ret_bindings->push_back({"local_" + n, "uint8", std::to_string(ports[i])});
        ret_bindings->push_back(
            {"ifindex_" + n, "uint32", std::to_string(pl_ifindex(dev_id, ports[i]))});
    }
    return 0;
}

// Sends `event` and prints the daemon's answer `answer_event` about the device; a non-zero
// status there makes the exit code 1.
int pl_ask_device(pl_client *client, const pl_options &opts, const char *event,
                  const std::vector<pl_binding> &bindings, const char *answer_event,
                  uint32 dev_id, int *ret_exit)
{
    int err = 0;
    pl_answer answer;

    err = pl_send_event(client, opts, event, bindings);
    bail_error_quiet(err);
    err = pl_wait_answer(client, opts, answer_event, dev_id, &answer);
    if (err == lc_err_io_timeout) {
        printf("device %u: no answer\n", dev_id);
    }
    bail_error_quiet(err);
    pl_print_answer(opts, answer);
    if (answer.pa_status != 0) {
        *ret_exit = pl_exit_failed_status;
    }

bail:
    return err;
}

// enable, disable: one event for the device; the enable's answer is printed, and the
// disable's for virtual ports.
int pl_cmd_ports(pl_client *client, const pl_options &opts, const pl_model &model, tbool enable,
                 uint32 dev_id, const std::vector<uint32> &locals, int *ret_exit)
{
    int err = 0;
    std::vector<pl_binding> bindings;
    std::string why;

    err = pl_port_event_bindings(model, opts, dev_id, locals, &bindings, &why);
    if (err != 0) {
        fprintf(stderr, "portd-lite: %s\n", why.c_str());
        *ret_exit = pl_exit_usage;
        return 0;
    }
    if (!enable && opts.po_operation == pl_operation_virtual) {
        // Virtual ports are answered in both directions.
        err = pl_declare_interest(client, opts, pl_event_port_disable_done);
        bail_error_quiet(err);
        err = pl_ask_device(client, opts, pl_event_port_disable, bindings,
                            pl_event_port_disable_done, dev_id, ret_exit);
        bail_error_quiet(err);
        goto bail;
    }
    if (!enable) {
        err = pl_send_event(client, opts, pl_event_port_disable, bindings);
        bail_error_quiet(err);
        printf("device %u: disable of %zu ports sent\n", dev_id, (bindings.size() - 3) / 3);
        goto bail;
    }
    err = pl_declare_interest(client, opts, pl_event_port_enable_done);
    bail_error_quiet(err);
    err = pl_ask_device(client, opts, pl_event_port_enable, bindings, pl_event_port_enable_done,
                        dev_id, ret_exit);
    bail_error_quiet(err);

bail:
    return err;
}

int pl_cmd_validate(pl_client *client, const pl_options &opts, const std::vector<uint32> &dev_ids,
                    int *ret_exit)
{
    int err = 0;

    err = pl_declare_interest(client, opts, pl_event_validate_done);
    bail_error_quiet(err);
    for (uint32 dev_id : dev_ids) {
        err = pl_ask_device(client, opts, pl_event_validate,
                            {{"dev_id", "uint32", std::to_string(dev_id)}},
                            pl_event_validate_done, dev_id, ret_exit);
        bail_error_quiet(err);
    }

bail:
    return err;
}

// remove: each device leaves the daemon's tables; the answers are printed.
int pl_cmd_remove(pl_client *client, const pl_options &opts, const std::vector<uint32> &dev_ids,
                  int *ret_exit)
{
    int err = 0;

    err = pl_declare_interest(client, opts, pl_event_remove_done);
    bail_error_quiet(err);
    for (uint32 dev_id : dev_ids) {
        err = pl_ask_device(client, opts, pl_event_remove,
                            {{"dev_id", "uint32", std::to_string(dev_id)}}, pl_event_remove_done,
                            dev_id, ret_exit);
        bail_error_quiet(err);
    }

bail:
    return err;
}

// move-port IFINDEX SWID [--force]: the SWID hand-shake, a disable out of the port's SWID
// (the model's) and an enable into the new one, both with operation PORT_MAP_TO_SWID; the
// two answers are printed.
int pl_cmd_move_port(pl_client *client, const pl_options &opts, const pl_model &model,
                     uint32 ifindex, uint32 swid, tbool force, int *ret_exit)
{
    int err = 0;
    const uint32 dev_id = ifindex / pl_ports_per_device;
    const uint32 local = ifindex % pl_ports_per_device;
    const auto dev = model.pm_devices.find(dev_id);
    std::vector<pl_binding> bindings;

    if (dev == model.pm_devices.end() || dev->second.pd_ports.count(local) == 0) {
        fprintf(stderr, "portd-lite: no port with ifindex %u in the model\n", ifindex);
        *ret_exit = pl_exit_usage;
        return 0;
    }
    const uint32 old_swid = dev->second.pd_ports.at(local).pp_swid;
    auto event = [&](uint32 in_swid) {
        return std::vector<pl_binding>{{"dev_id", "uint32", std::to_string(dev_id)},
                                       {"port_num", "uint32", "1"},
                                       {"operation", "uint8", "1"},
                                       {"swid_1", "uint8", std::to_string(in_swid)},
                                       {"local_1", "uint8", std::to_string(local)},
                                       {"ifindex_1", "uint32", std::to_string(ifindex)},
                                       {"force_1", "bool", force ? "true" : "false"}};
    };
    err = pl_declare_interest(client, opts, pl_event_port_disable_done);
    bail_error_quiet(err);
    err = pl_declare_interest(client, opts, pl_event_port_enable_done);
    bail_error_quiet(err);
    err = pl_ask_device(client, opts, pl_event_port_disable, event(old_swid),
                        pl_event_port_disable_done, dev_id, ret_exit);
    bail_error_quiet(err);
    if (*ret_exit != pl_exit_ok) {
        goto bail;
    }
    err = pl_ask_device(client, opts, pl_event_port_enable, event(swid), pl_event_port_enable_done,
                        dev_id, ret_exit);
    bail_error_quiet(err);

bail:
    return err;
}

// burn-device DEVID, burn-port DEVID LOCAL: the firmware-burn flow, from the model.
int pl_cmd_burn(pl_client *client, const pl_options &opts, const pl_model &model, uint32 dev_id,
                int32 local, int *ret_exit)
{
    int err = 0;
    const pl_device &dev = model.pm_devices.at(dev_id);

    if (local < 0) {
        err = pl_declare_interest(client, opts, pl_event_burn_device_done);
        bail_error_quiet(err);
        err = pl_ask_device(client, opts, pl_event_burn_device,
                            {{"dev_id", "uint32", std::to_string(dev_id)},
                             {"subsystem_name", "string",
                              dev.pd_board_id.empty() ? "BURN" : dev.pd_board_id}},
                            pl_event_burn_device_done, dev_id, ret_exit);
        bail_error_quiet(err);
    } else {
        const auto port = dev.pd_ports.find(static_cast<uint32>(local));
        if (port == dev.pd_ports.end()) {
            fprintf(stderr, "portd-lite: device %u has no local port %d\n", dev_id, local);
            *ret_exit = pl_exit_usage;
            goto bail;
        }
        err = pl_declare_interest(client, opts, pl_event_burn_port_done);
        bail_error_quiet(err);
        err = pl_ask_device(
            client, opts, pl_event_burn_port,
            {{"dev_id", "uint32", std::to_string(dev_id)},
             {"lcl_port", "uint8", std::to_string(local)},
             {"ib_port", "uint8", std::to_string(port->second.pp_ib_port)},
             {"swid", "uint8", std::to_string(opts.po_swid >= 0 ? opts.po_swid : port->second.pp_swid)},
             {"ifindex", "uint32", std::to_string(pl_ifindex(dev_id, static_cast<uint32>(local)))},
             {"ifindex_neighbor", "uint32", "0"}},
            pl_event_burn_port_done, dev_id, ret_exit);
        bail_error_quiet(err);
    }

bail:
    return err;
}

int pl_cmd_add_devices(pl_client *client, const pl_options &opts, const pl_model &model,
                       const std::vector<uint32> &dev_ids, int *ret_exit)
{
    int err = 0;
    std::vector<pl_binding> bindings;
    std::string why;

    err = pl_declare_interest(client, opts, pl_event_device_add_done);
    bail_error_quiet(err);
    for (uint32 dev_id : dev_ids) {
        const uint32 announced = opts.po_event.peo_as_dev_id != 0 ? opts.po_event.peo_as_dev_id
                                                                   : dev_id;
        uint32 status = 0;
        err = pl_device_add_bindings(model, dev_id, opts.po_event, &bindings, &why);
        if (err != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            *ret_exit = pl_exit_usage;
            err = 0;
            goto bail;
        }
        err = pl_send_event(client, opts, pl_event_device_add, bindings);
        bail_error_quiet(err);
        pl_answer answer;
        err = pl_wait_answer(client, opts, pl_event_device_add_done, announced, &answer);
        status = answer.pa_status;
        if (err == lc_err_io_timeout) {
            printf("device %u: no answer\n", announced);
            fflush(stdout);
        }
        bail_error_quiet(err);
        printf("device %u: status %u\n", announced, status);
        fflush(stdout);
        if (status != 0) {
            *ret_exit = pl_exit_failed_status;
        }
    }

bail:
    return err;
}

void pl_print_bindings(const std::vector<pl_binding> &bindings)
{
    for (const pl_binding &b : bindings) {
        printf("%s %s %s\n", b.pb_name.c_str(), b.pb_type.c_str(), b.pb_value.c_str());
    }
}

}  // namespace

int main(int argc, char **argv)
{
    int err = 0;
    int status = pl_exit_ok;
    pl_options opts;
    pl_client client;
    pl_model model;
    pl_routes routes;
    std::vector<pl_binding> bindings;
    std::vector<uint32> dev_ids;
    tbool move_force = false;
    std::string why;
    std::string command;
    std::vector<std::string> args;
    int i = 1;
    uint32 num = 0;

    for (; i < argc && argv[i][0] == '-'; ++i) {
        const std::string arg = argv[i];
        const tbool has_value = i + 1 < argc;
        tbool ok = has_value;
        if (arg == "--sock-root" && has_value) {
            opts.po_sock_root = argv[++i];
        } else if (arg == "--model" && has_value) {
            opts.po_model = argv[++i];
        } else if (arg == "--system-type" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_event.peo_system_type);
        } else if (arg == "--timeout" && has_value) {
            char *end = nullptr;
            const double seconds = strtod(argv[++i], &end);
            ok = end != argv[i] && *end == '\0' && seconds > 0;
            opts.po_timeout_ms = static_cast<lt_dur_ms>(seconds * 1000);
        } else if (arg == "--master" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_event.peo_master);
        } else if (arg == "--ports" && has_value) {
            ok = pl_parse_uint(argv[++i], &num) && num <= pl_ports_per_device * 4;
            opts.po_event.peo_port_limit = static_cast<int32>(num);
        } else if (arg == "--subsystem-type" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_event.peo_subsystem_type);
        } else if (arg == "--as" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_event.peo_as_dev_id);
        } else if (arg == "--operation" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_operation) && opts.po_operation <= 255;
        } else if (arg == "--swid" && has_value) {
            ok = pl_parse_uint(argv[++i], &num) && num <= 255;
            opts.po_swid = static_cast<int32>(num);
        } else if (arg == "--json") {
            opts.po_json = true;
            ok = true;
        } else if (arg == "--help" || arg == "-h") {
            pl_usage(stdout);
            return pl_exit_ok;
        } else {
            ok = false;
        }
        if (!ok) {
            fprintf(stderr, "portd-lite: bad option '%s'\n", arg.c_str());
            pl_usage(stderr);
            return pl_exit_usage;
        }
    }
    if (i >= argc) {
        pl_usage(stderr);
        return pl_exit_usage;
    }
    command = argv[i++];
    for (; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }

    if (command == "gen-chassis") {
        uint32 numbers[4] = {0, 0, 4, pl_ports_per_device};
        std::string text;
        if (args.size() < 2 || args.size() > 4) {
            pl_usage(stderr);
            return pl_exit_usage;
        }
        for (size_t k = 0; k < args.size(); ++k) {
            if (!pl_parse_uint(args[k].c_str(), &numbers[k])) {
                fprintf(stderr, "portd-lite: bad number '%s'\n", args[k].c_str());
                return pl_exit_usage;
            }
        }
        if (pl_generate_chassis(opts.po_event.peo_system_type, numbers[0], numbers[1], numbers[2],
                                numbers[3], &text, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        fputs(text.c_str(), stdout);
        return pl_exit_ok;
    }

    if (command == "fabric-topology" || command == "fabric-routes") {
        pl_model fabric_model;
        if (!args.empty()) {
            pl_usage(stderr);
            return pl_exit_usage;
        }
        if (pl_model_load(opts.po_model, &fabric_model, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        if (command == "fabric-topology") {
            fputs(pl_fabric_topology(fabric_model, opts.po_event.peo_system_type).c_str(), stdout);
        } else {
            fputs(pl_fabric_routes(fabric_model, opts.po_event.peo_system_type,
                                   opts.po_event.peo_master,
                                   opts.po_swid >= 0 ? static_cast<uint32>(opts.po_swid) : 0)
                      .c_str(),
                  stdout);
        }
        return pl_exit_ok;
    }
    if (command == "route-update" && args.empty()) {
        // The routes from the master over the model's internal links.
        if (pl_model_load(opts.po_model, &model, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        const std::string text =
            pl_fabric_routes(model, opts.po_event.peo_system_type, opts.po_event.peo_master,
                             opts.po_swid >= 0 ? static_cast<uint32>(opts.po_swid) : 0);
        if (pl_routes_parse(text, &routes, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        pl_route_bindings(routes, &bindings);
    } else if (command == "route-update") {
        if (args.size() != 1) {
            pl_usage(stderr);
            return pl_exit_usage;
        }
        FILE *file = fopen(args[0].c_str(), "r");
        std::string text;
        char buf[4096];
        size_t got = 0;
        if (file == nullptr) {
            fprintf(stderr, "portd-lite: can't read %s\n", args[0].c_str());
            return pl_exit_usage;
        }
        while ((got = fread(buf, 1, sizeof(buf), file)) > 0) {
            text.append(buf, got);
        }
        fclose(file);
        if (pl_routes_parse(text, &routes, &why) != 0) {
            fprintf(stderr, "portd-lite: %s: %s\n", args[0].c_str(), why.c_str());
            return pl_exit_usage;
        }
        pl_route_bindings(routes, &bindings);
    } else if (command == "move-port") {
        if (pl_model_load(opts.po_model, &model, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        for (const std::string &arg : args) {
            if (arg == "--force") {
                move_force = true;
            } else if (pl_parse_uint(arg.c_str(), &num)) {
                dev_ids.push_back(num);
            } else {
                fprintf(stderr, "portd-lite: bad argument '%s'\n", arg.c_str());
                return pl_exit_usage;
            }
        }
        if (dev_ids.size() != 2 || dev_ids[1] > 7) {
            fprintf(stderr, "portd-lite: move-port wants IFINDEX SWID (0-7) [--force]\n");
            return pl_exit_usage;
        }
    } else if (command == "enable" || command == "disable" || command == "validate" ||
               command == "remove" || command == "burn-device" || command == "burn-port") {
        if (pl_model_load(opts.po_model, &model, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        if (args.empty()) {
            pl_usage(stderr);
            return pl_exit_usage;
        }
        for (const std::string &arg : args) {
            if (!pl_parse_uint(arg.c_str(), &num)) {
                fprintf(stderr, "portd-lite: bad number '%s'\n", arg.c_str());
                return pl_exit_usage;
            }
            dev_ids.push_back(num);
        }
        if ((command == "burn-device" && dev_ids.size() != 1) ||
            (command == "burn-port" && dev_ids.size() != 2) ||
            ((command == "burn-device" || command == "burn-port") &&
             model.pm_devices.count(dev_ids[0]) == 0)) {
            fprintf(stderr, "portd-lite: %s wants a device of the model%s\n", command.c_str(),
                    command == "burn-port" ? " and a local port" : "");
            return pl_exit_usage;
        }
    } else if (command == "add-devices" || command == "show" || command == "boot" ||
               command == "publish-map") {
        if (pl_model_load(opts.po_model, &model, &why) != 0) {
            fprintf(stderr, "portd-lite: %s\n", why.c_str());
            return pl_exit_usage;
        }
        for (const std::string &arg : args) {
            if (!pl_parse_uint(arg.c_str(), &num) || model.pm_devices.count(num) == 0) {
                fprintf(stderr, "portd-lite: no device '%s' in the model\n", arg.c_str());
                return pl_exit_usage;
            }
            dev_ids.push_back(num);
        }
        if (dev_ids.empty()) {
            for (const auto &entry : model.pm_devices) {
                dev_ids.push_back(entry.first);
            }
        }
        if (opts.po_event.peo_as_dev_id != 0 && dev_ids.size() != 1) {
            fprintf(stderr, "portd-lite: --as wants exactly one device\n");
            return pl_exit_usage;
        }
    } else {
        fprintf(stderr, "portd-lite: unknown command '%s'\n", command.c_str());
        pl_usage(stderr);
        return pl_exit_usage;
    }

    if (command == "show") {
        for (uint32 dev_id : dev_ids) {
            if (pl_device_add_bindings(model, dev_id, opts.po_event, &bindings, &why) != 0) {
                fprintf(stderr, "portd-lite: %s\n", why.c_str());
                return pl_exit_usage;
            }
            printf("# device %u\n", dev_id);
            pl_print_bindings(bindings);
        }
        return pl_exit_ok;
    }

    lc_log_init("portd-lite", nullptr, LCO_none, 0, LOG_CRIT, LOG_LOCAL4, LCT_STDERR);
    err = pl_connect(&client, opts);
    if (err == 0 && command == "add-devices") {
        err = pl_cmd_add_devices(&client, opts, model, dev_ids, &status);
    } else if (err == 0 && (command == "enable" || command == "disable")) {
        err = pl_cmd_ports(&client, opts, model, command == "enable", dev_ids[0],
                           std::vector<uint32>(dev_ids.begin() + 1, dev_ids.end()), &status);
    } else if (err == 0 && command == "publish-map") {
        err = pl_cmd_publish_map(&client, opts, model, dev_ids);
    } else if (err == 0 && command == "validate") {
        err = pl_cmd_validate(&client, opts, dev_ids, &status);
    } else if (err == 0 && command == "move-port") {
        err = pl_cmd_move_port(&client, opts, model, dev_ids[0], dev_ids[1], move_force, &status);
    } else if (err == 0 && command == "remove") {
        err = pl_cmd_remove(&client, opts, dev_ids, &status);
    } else if (err == 0 && command == "burn-device") {
        err = pl_cmd_burn(&client, opts, model, dev_ids[0], -1, &status);
    } else if (err == 0 && command == "burn-port") {
        err = pl_cmd_burn(&client, opts, model, dev_ids[0], static_cast<int32>(dev_ids[1]),
                          &status);
    } else if (err == 0 && command == "boot") {
        err = pl_cmd_add_devices(&client, opts, model, dev_ids, &status);
        for (size_t k = 0; err == 0 && k < dev_ids.size(); ++k) {
            err = pl_cmd_ports(&client, opts, model, true, dev_ids[k], {}, &status);
        }
        if (err == 0) {
            err = pl_cmd_publish_map(&client, opts, model, dev_ids);
        }
    } else if (err == 0) {
        err = pl_send_event(&client, opts, pl_event_route_update, bindings);
        if (err == 0) {
            printf("route update: %zu targets sent\n", routes.pr_targets.size());
        }
    }
    if (err != 0) {
        status = pl_exit_for_error(err);
    }
    bn_response_msg_free(&client.pc_response);
    if (client.pc_gh != nullptr) {
        complain_error(gcl_deinit(&client.pc_gh));
    }
    if (client.pc_fich != nullptr) {
        complain_error(fdic_deinit(&client.pc_fich));
    }
    lc_log_close();
    return status;
}
