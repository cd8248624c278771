// portd-lite: the port manager's stand-in (see portd_lite.h for what it derives).
//
//   portd-lite [--sock-root PREFIX] [--model FILE|builtin:NAME] [--system-type N]
//              [--timeout S] [--master DEVID] [--ports N] [--as DEVID] COMMAND ...
//
//   add-devices [DEVID...]   announce the model's devices (all, or those named), one at a
//                            time, each after the answer to the one before; prints
//                            "device N: status S" per answer
//   route-update FILE        announce the direct routes of a route file
//   show [DEVID...]          print the bindings add-devices would send, without sending
//   gen-chassis SPINE_SLOTS LEAF_SLOTS [CHIPS [PORTS]]
//                            print a full chassis model for the system type
//
// --ports N announces only the first N ports of a device (0: none); --as DEVID announces
// the one device named under another id.  The default system type is 36 (standalone).
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
const char pl_action_interest_add[] = "/mgmtd/events/actions/interest/add";

struct pl_options {
    const char *po_sock_root = nullptr;
    std::string po_model = "builtin:standalone36";
    lt_dur_ms po_timeout_ms = 30000;
    pl_event_options po_event;
};

struct pl_client {
    fdic_handle *pc_fich = nullptr;
    gcl_handle *pc_gh = nullptr;
    gcl_session *pc_sess = nullptr;
    uint32 pc_want_msg_id = 0;
    bn_response *pc_response = nullptr;
    // Answers that came in and weren't taken yet: device id and status.
    std::vector<std::pair<uint32, uint32>> pc_done;
};

void pl_usage(FILE *out)
{
    fprintf(out,
            "usage: portd-lite [--sock-root PREFIX] [--model FILE|builtin:NAME] "
            "[--system-type N]\n"
            "                  [--timeout S] [--master DEVID] [--ports N] [--as DEVID] "
            "COMMAND ...\n"
            "commands:\n"
            "  add-devices [DEVID...]\n"
            "  route-update FILE\n"
            "  show [DEVID...]\n"
            "  gen-chassis SPINE_SLOTS LEAF_SLOTS [CHIPS [PORTS]]\n");
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

    err = bn_event_request_msg_get_event_name(*inout_request, &name);
    bail_error(err);
    err = bn_response_msg_create_send(sess, bbmt_event_response,
                                      bn_request_get_msg_id(*inout_request), 0, nullptr, 0);
    bail_error(err);
    if (name == nullptr || strcmp(ts_str(name), pl_event_device_add_done) != 0) {
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
    client->pc_done.emplace_back(dev_id, status);

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
        err = pl_wait(client, opts.po_timeout_ms, "answer from the IB daemon", [&] {
            for (auto it = client->pc_done.begin(); it != client->pc_done.end(); ++it) {
                if (it->first == announced) {
                    status = it->second;
                    client->pc_done.erase(it);
                    return true;
                }
            }
            return false;
        });
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
        } else if (arg == "--as" && has_value) {
            ok = pl_parse_uint(argv[++i], &opts.po_event.peo_as_dev_id);
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

    if (command == "route-update") {
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
    } else if (command == "add-devices" || command == "show") {
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
