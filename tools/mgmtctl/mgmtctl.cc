// mgmtctl: the command-line client of the management daemon.  One request a run over one
// session: read, change, run an action, send an event, or wait for an event.
//
//   mgmtctl [--sock-root PREFIX] [--json] [--timeout S] [--client-name NAME] COMMAND ...
//
// Exit codes: 0 done; 1 the daemon answered an error, or no such node; 2 bad command
// line; 3 the daemon can't be reached or closed the session; 4 no answer in time.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_session.h"
#include "bnode_types.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "logging.h"
#include "ttime.h"

namespace {

constexpr int mc_exit_ok = 0;
constexpr int mc_exit_answered_error = 1;
constexpr int mc_exit_usage = 2;
constexpr int mc_exit_unreachable = 3;
constexpr int mc_exit_timeout = 4;

#define MC_EVENT_INTEREST_ADD "/mgmtd/events/actions/interest/add"

const lc_enum_string_map mc_type_aliases[] = {
    {bt_bool, "tbool"},
    {bt_time_sec, "time"},
    {bt_datetime_sec, "datetime"},
    {bt_duration_sec, "duration"},
    {0, nullptr},
};

struct mc_options {
    const char *mo_sock_root = nullptr;
    tbool mo_json = false;
    lt_dur_ms mo_timeout_ms = 10000;
    std::string mo_client_name = "mgmtctl";
};

struct mc_client {
    fdic_handle *mc_fich = nullptr;
    gcl_handle *mc_gh = nullptr;
    gcl_session *mc_sess = nullptr;
    uint32 mc_want_msg_id = 0;             // the request whose answer we wait for
    bn_response *mc_response = nullptr;    // its answer, once here
    std::string mc_wait_event;             // the event we wait for, if any
    bn_request *mc_event = nullptr;        // its first arrival
};

void mc_usage(FILE *out)
{
    fprintf(out,
            "usage: mgmtctl [--sock-root PREFIX] [--json] [--timeout S] [--client-name NAME]\n"
            "               COMMAND ...\n"
            "commands:\n"
            "  get NAME\n"
            "  iterate NAME [--subtree] [--include-self] [--leaf-only]\n"
            "  set NAME TYPE VALUE [--create]\n"
            "  delete NAME\n"
            "  reset NAME\n"
            "  action NAME [name=type:value ...]\n"
            "  event NAME [name=type:value ...]\n"
            "  wait-event NAME [--match PATTERN ...] [--timeout S]\n");
}

int mc_type_from_name(const char *type_name, bn_type *ret_type)
{
    *ret_type = bt_NONE;
    for (const lc_enum_string_map *row = bn_type_map; row->lesm_string != nullptr; ++row) {
        if (strcmp(row->lesm_string, type_name) == 0) {
            *ret_type = static_cast<bn_type>(row->lesm_enum);
            return 0;
        }
    }
    for (const lc_enum_string_map *row = mc_type_aliases; row->lesm_string != nullptr; ++row) {
        if (strcmp(row->lesm_string, type_name) == 0) {
            *ret_type = static_cast<bn_type>(row->lesm_enum);
            return 0;
        }
    }
    return lc_err_not_found;
}

tbool mc_parse_seconds(const char *text, lt_dur_ms *ret_ms)
{
    char *end = nullptr;
    const double seconds = strtod(text, &end);
    if (end == text || *end != '\0' || seconds < 0) {
        return false;
    }
    *ret_ms = static_cast<lt_dur_ms>(seconds * 1000);
    return true;
}

// ---------------------------------------------------------------------------------------
// Output.

struct mc_row {
    std::string mr_name;
    std::string mr_type;
    std::string mr_value;
};

mc_row mc_binding_row(const bn_binding *binding)
{
    mc_row row;
    const bn_attrib *attrib = nullptr;
    bn_type type = bt_NONE;
    bn_type_flags_bf type_flags = 0;
    uint32 flagged = 0;
    char *value = nullptr;

    row.mr_name = ts_str(binding->bn_node_name);
    if (bn_binding_get_attrib(binding, ba_value, &attrib) != 0 || attrib == nullptr) {
        row.mr_type.push_back('-'); // not an assignment: gcc 12 -O3 warns wrongly on that
        return row;
    }
    bn_attrib_get_type(attrib, &type, &type_flags);
    const char *type_name = lc_enum_to_string_quiet_null(bn_type_map, type);
    row.mr_type = type_name != nullptr ? type_name : std::to_string(static_cast<int>(type));
    if ((type_flags & btf_invalid) != 0) {
        row.mr_value = "(invalid)";
    } else if (bn_binding_get_str(binding, ba_value, bt_NONE, &flagged, &value) == 0 &&
               value != nullptr) {
        row.mr_value = value;
    }
    free(value);
    return row;
}

std::string mc_json_string(const std::string &text)
{
    std::string out = "\"";
    for (const char ch : text) {
        const unsigned char uch = static_cast<unsigned char>(ch);
        if (ch == '"' || ch == '\\') {
            out += '\\';
            out += ch;
        } else if (ch == '\n') {
            out += "\\n";
        } else if (ch == '\t') {
            out += "\\t";
        } else if (uch < 0x20) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\u%04x", uch);
            out += buf;
        } else {
            out += ch;
        }
    }
    return out + "\"";
}

// Prints bindings as aligned columns, or as one JSON object with `head` members in front.
void mc_print_bindings(const mc_options &opts, const bn_binding_array *bindings,
                       const std::string &json_head)
{
    std::vector<mc_row> rows;
    size_t name_width = 0;
    size_t type_width = 0;
    const uint32 num = bn_binding_array_length_quick(bindings);

    for (uint32 i = 0; i < num; ++i) {
        rows.push_back(mc_binding_row(bn_binding_array_get_quick(bindings, i)));
        name_width = std::max(name_width, rows.back().mr_name.size());
        type_width = std::max(type_width, rows.back().mr_type.size());
    }
    if (opts.mo_json) {
        std::string out = "{" + json_head + "\"bindings\":[";
        for (size_t i = 0; i < rows.size(); ++i) {
            out += std::string(i == 0 ? "" : ",") + "{\"name\":" + mc_json_string(rows[i].mr_name) +
                   ",\"type\":" + mc_json_string(rows[i].mr_type) +
                   ",\"value\":" + mc_json_string(rows[i].mr_value) + "}";
        }
        printf("%s]}\n", out.c_str());
    } else {
        for (const mc_row &row : rows) {
            printf("%-*s  %-*s  %s\n", static_cast<int>(name_width), row.mr_name.c_str(),
                   static_cast<int>(type_width), row.mr_type.c_str(), row.mr_value.c_str());
        }
    }
    fflush(stdout);
}

// ---------------------------------------------------------------------------------------
// The session.

int mc_on_response(gcl_session *sess, bn_response **inout_response, void *arg)
{
    mc_client *client = static_cast<mc_client *>(arg);
    uint32 req_msg_id = 0;
    (void)sess;

    bn_response_get_msg_ids(*inout_response, nullptr, &req_msg_id);
    if (req_msg_id == client->mc_want_msg_id && client->mc_response == nullptr) {
        client->mc_response = *inout_response;
        *inout_response = nullptr;
    }
    return 0;
}

int mc_on_event(gcl_session *sess, bn_request **inout_request, void *arg)
{
    int err = 0;
    mc_client *client = static_cast<mc_client *>(arg);
    tstring *name = nullptr;

    err = bn_event_request_msg_get_event_name(*inout_request, &name);
    bail_error(err);
    err = bn_response_msg_create_send(sess, bbmt_event_response,
                                      bn_request_get_msg_id(*inout_request), 0, nullptr, 0);
    bail_error(err);
    if (client->mc_event == nullptr && !client->mc_wait_event.empty() &&
        client->mc_wait_event == ts_str(name)) {
        client->mc_event = *inout_request;
        *inout_request = nullptr;
    }

bail:
    ts_free(&name);
    return err;
}

// Queries and actions sent to us (as an owner by --client-name) get no answer.
int mc_on_unanswered(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)sess;
    (void)arg;
    fprintf(stderr, "mgmtctl: not answering %s request %u\n",
            lc_enum_to_string_quiet(bn_msg_type_map, bn_request_get_msg_type(*inout_request)),
            bn_request_get_msg_id(*inout_request));
    fflush(stderr);
    return 0;
}

// The exit code for the error of a run.
int mc_exit_for_error(int err)
{
    switch (err) {
    case 0:
        return mc_exit_ok;
    case lc_err_io_timeout:
        return mc_exit_timeout;
    case lc_err_parse_error:
        return mc_exit_usage;
    default:
        return mc_exit_unreachable;
    }
}

// Connects and opens the management service; a failure is told on stderr.
int mc_connect(mc_client *client, const mc_options &opts)
{
    int err = 0;
    gcl_global_options gopts;
    gcl_session_state state = gss_none;
    tbool reached = false;

    err = gcl_set_sock_root_prefix(opts.mo_sock_root);
    bail_error(err);
    err = fdic_init(&client->mc_fich, nullptr, nullptr);
    bail_error(err);
    err = gcl_options_get_defaults(&gopts);
    bail_error(err);
    strlcpy(gopts.ggo_handle_id, "mgmtctl", sizeof(gopts.ggo_handle_id));
    err = gcl_init(&client->mc_gh, &gopts, client->mc_fich);
    bail_error(err);
    err = gcl_session_client_set_user_new(client->mc_gh, opts.mo_client_name.c_str(), gof_none,
                                          ggid_auto, ggid_auto, nullptr, nullptr, 0,
                                          &client->mc_sess);
    bail_error(err);
    err = bn_set_session_callback_query_response_msg(client->mc_sess, mc_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_set_response_msg(client->mc_sess, mc_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_action_response_msg(client->mc_sess, mc_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_event_response_msg(client->mc_sess, mc_on_response, client);
    bail_error(err);
    err = bn_set_session_callback_event_request_msg(client->mc_sess, mc_on_event, client);
    bail_error(err);
    err = bn_set_session_callback_query_request_msg(client->mc_sess, mc_on_unanswered, client);
    bail_error(err);
    err = bn_set_session_callback_action_request_msg(client->mc_sess, mc_on_unanswered, client);
    bail_error(err);

    err = gcl_session_client_connect_by_provider(client->mc_sess, "mgmtd", false);
    bail_error_quiet(err);
    reached = true;
    err = gcl_session_client_open_service_blocking(client->mc_sess, gbp_proto_bnode,
                                                   bap_service_mgmt, nullptr, nullptr,
                                                   opts.mo_timeout_ms);
    if (err == lc_err_io_timeout) {
        fprintf(stderr, "mgmtctl: mgmtd did not open the session in time\n");
        goto bail;
    }
    gcl_session_get_state(client->mc_sess, &state, nullptr);
    if (err != 0 || state != gss_connected) {
        fprintf(stderr, "mgmtctl: mgmtd refused or closed the session: %s\n",
                lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
        err = err != 0 ? err : lc_err_io_closed;
        goto bail;
    }

bail:
    if (err != 0 && !reached) {
        fprintf(stderr, "mgmtctl: cannot reach mgmtd (is it running? socket root '%s'): %s\n",
                opts.mo_sock_root != nullptr ? opts.mo_sock_root : "",
                lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
    }
    return err;
}

// Runs the session until `done` holds, the session ends (lc_err_io_closed), or the time is
// up (lc_err_io_timeout; a negative wait has no limit).
template <typename Pred>
int mc_wait(mc_client *client, lt_dur_ms max_wait_ms, const char *what, Pred done)
{
    int err = 0;
    const lt_time_ms deadline = lt_sys_uptime_ms() + max_wait_ms;
    gcl_session_state state = gss_none;
    lt_dur_ms remaining = -1;

    while (!done()) {
        if (max_wait_ms >= 0) {
            remaining = deadline - lt_sys_uptime_ms();
            if (remaining <= 0) {
                fprintf(stderr, "mgmtctl: no %s from mgmtd within %.1f s\n", what,
                        max_wait_ms / 1000.0);
                err = lc_err_io_timeout;
                goto bail;
            }
        }
        err = gcl_session_do_blocking_io(client->mc_gh, client->mc_sess, false, true, true, false,
                                         gbp_none, remaining);
        gcl_session_get_state(client->mc_sess, &state, nullptr);
        if (state != gss_connected) {
            err = 0;
            if (!done()) {
                fprintf(stderr, "mgmtctl: mgmtd closed the session\n");
                err = lc_err_io_closed;
            }
            goto bail;
        }
        if (err == lc_err_io_timeout) {
            err = 0;
        }
        if (err != 0) {
            fprintf(stderr, "mgmtctl: session failed: %s\n",
                    lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
            goto bail;
        }
    }

bail:
    return err;
}

// Sends a request and waits for its answer.  An error answer is told on stderr (and as
// JSON on stdout) and gives *ret_exit mc_exit_answered_error.
int mc_send_wait(mc_client *client, const mc_options &opts, bn_request *req,
                 bn_binding_array **ret_bindings, int *ret_exit, std::string *ret_msg = nullptr)
{
    int err = 0;
    uint32 code = 0;
    tstring *msg = nullptr;

    *ret_exit = mc_exit_ok;
    err = bn_request_msg_send(client->mc_sess, req);
    if (err != 0) {
        fprintf(stderr, "mgmtctl: could not send the request\n");
        goto bail;
    }
    client->mc_want_msg_id = req->br_header.brh_msg_id;
    err = mc_wait(client, opts.mo_timeout_ms, "answer",
                  [client] { return client->mc_response != nullptr; });
    bail_error_quiet(err);
    err = bn_response_get_takeover(client->mc_response, &code, &msg, false, ret_bindings,
                                   nullptr);
    bail_error(err);
    if (code != 0) {
        if (opts.mo_json) {
            printf("{\"code\":%u,\"message\":%s}\n", code,
                   mc_json_string(ts_str_maybe_empty(msg)).c_str());
            fflush(stdout);
        }
        fprintf(stderr, "mgmtctl: mgmtd answered code %u: %s\n", code, ts_str_maybe_empty(msg));
        *ret_exit = mc_exit_answered_error;
    }
    if (ret_msg != nullptr) {
        *ret_msg = ts_str_maybe_empty(msg);
    }

bail:
    ts_free(&msg);
    return err;
}

// "name=type:value" into a binding.
int mc_parse_binding_arg(const std::string &arg, bn_binding **ret_binding)
{
    int err = 0;
    const size_t eq = arg.find('=');
    const size_t colon = eq == std::string::npos ? std::string::npos : arg.find(':', eq + 1);
    bn_type type = bt_NONE;
    std::string type_name;

    *ret_binding = nullptr;
    if (eq == std::string::npos || eq == 0 || colon == std::string::npos) {
        fprintf(stderr, "mgmtctl: bad binding '%s' (want name=type:value)\n", arg.c_str());
        err = lc_err_parse_error;
        goto bail;
    }
    type_name = arg.substr(eq + 1, colon - eq - 1);
    if (mc_type_from_name(type_name.c_str(), &type) != 0) {
        fprintf(stderr, "mgmtctl: unknown type '%s' in '%s'\n", type_name.c_str(), arg.c_str());
        err = lc_err_parse_error;
        goto bail;
    }
    err = bn_binding_new_str_autoinval(ret_binding, arg.substr(0, eq).c_str(), ba_value, type, 0,
                                       arg.substr(colon + 1).c_str());
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Commands.  Each gives an error of the transport as its result and what the answer means
// for the exit in *ret_exit.

int mc_cmd_query(mc_client *client, const mc_options &opts, bn_query_subop subop,
                 const std::string &name, bn_query_node_flags_bf flags, int *ret_exit)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *bindings = nullptr;

    err = bn_query_request_msg_create(&req, 0, nullptr);
    bail_error(err);
    err = bn_query_request_msg_append_str(req, subop, flags, name.c_str(), nullptr);
    bail_error(err);
    err = mc_send_wait(client, opts, req, &bindings, ret_exit);
    bail_error_quiet(err);
    if (*ret_exit != mc_exit_ok) {
        goto bail;
    }
    if (subop == bqso_get && bn_binding_array_length_quick(bindings) == 0) {
        if (opts.mo_json) {
            printf("{\"code\":0,\"bindings\":[]}\n");
        }
        fprintf(stderr, "mgmtctl: no node %s\n", name.c_str());
        *ret_exit = mc_exit_answered_error;
        goto bail;
    }
    mc_print_bindings(opts, bindings, "\"code\":0,");

bail:
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
    return err;
}

// A set of one node; a null type name is a node without value (delete, reset).
int mc_cmd_set(mc_client *client, const mc_options &opts, bn_set_subop subop,
               const std::string &name, const char *type_name, const char *value,
               int *ret_exit)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *bindings = nullptr;
    bn_type type = bt_none;

    if (type_name != nullptr && mc_type_from_name(type_name, &type) != 0) {
        fprintf(stderr, "mgmtctl: unknown type '%s'\n", type_name);
        err = lc_err_parse_error;
        goto bail;
    }
    err = bn_set_request_msg_create(&req, 0);
    bail_error(err);
    err = bn_set_request_msg_append_new_binding(req, subop, 0, name.c_str(), type, 0, value,
                                                nullptr);
    bail_error(err);
    err = mc_send_wait(client, opts, req, &bindings, ret_exit);
    bail_error_quiet(err);
    if (*ret_exit == mc_exit_ok && opts.mo_json) {
        printf("{\"code\":0}\n");
    }

bail:
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
    return err;
}

// An action or an event with bindings from "name=type:value" arguments.
int mc_cmd_message(mc_client *client, const mc_options &opts, tbool is_event,
                   const std::string &name, const std::vector<std::string> &args, int *ret_exit)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding *binding = nullptr;
    bn_binding_array *bindings = nullptr;
    std::string message;

    err = is_event ? bn_event_request_msg_create(&req, name.c_str())
                   : bn_action_request_msg_create(&req, name.c_str());
    bail_error(err);
    for (const std::string &arg : args) {
        err = mc_parse_binding_arg(arg, &binding);
        bail_error_quiet(err);
        err = is_event ? bn_event_request_msg_append_binding_takeover(req, 0, &binding, nullptr)
                       : bn_action_request_msg_append_binding_takeover(req, 0, &binding, nullptr);
        bail_error(err);
    }
    err = mc_send_wait(client, opts, req, &bindings, ret_exit, &message);
    bail_error_quiet(err);
    // A successful answer's message (an action's "Success ..." line) is shown too.
    if (*ret_exit == mc_exit_ok && !message.empty() && !opts.mo_json) {
        printf("%s\n", message.c_str());
    }
    if (*ret_exit == mc_exit_ok &&
        (opts.mo_json || bn_binding_array_length_quick(bindings) > 0)) {
        mc_print_bindings(opts, bindings,
                          "\"code\":0," + (message.empty() ? std::string()
                                                            : "\"message\":" + mc_json_string(message) + ","));
    }

bail:
    bn_binding_free(&binding);
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
    return err;
}

// Declares interest in the event (with match patterns for the change notification) and
// prints the bindings of its first arrival.
int mc_cmd_wait_event(mc_client *client, const mc_options &opts, const std::string &name,
                      const std::vector<std::string> &patterns, lt_dur_ms wait_ms, int *ret_exit)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *bindings = nullptr;
    std::string pattern_name;

    err = bn_action_request_msg_create(&req, MC_EVENT_INTEREST_ADD);
    bail_error(err);
    err = bn_action_request_msg_append_new_binding(req, 0, "event_name", bt_name, name.c_str(),
                                                   nullptr);
    bail_error(err);
    for (size_t i = 0; i < patterns.size(); ++i) {
        pattern_name = "match/" + std::to_string(i + 1) + "/pattern";
        err = bn_action_request_msg_append_new_binding(req, 0, pattern_name.c_str(), bt_string,
                                                       patterns[i].c_str(), nullptr);
        bail_error(err);
    }
    client->mc_wait_event = name;
    err = mc_send_wait(client, opts, req, &bindings, ret_exit);
    bail_error_quiet(err);
    if (*ret_exit != mc_exit_ok) {
        goto bail;
    }
    bn_binding_array_free(&bindings);
    fprintf(stderr, "mgmtctl: waiting for event %s\n", name.c_str());
    fflush(stderr);
    err = mc_wait(client, wait_ms, "event", [client] { return client->mc_event != nullptr; });
    bail_error_quiet(err);
    err = bn_request_get(client->mc_event, nullptr, nullptr, false, &bindings, nullptr, nullptr);
    bail_error(err);
    mc_print_bindings(opts, bindings, "\"event\":" + mc_json_string(name) + ",");

bail:
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
    return err;
}

void mc_client_free(mc_client *client)
{
    bn_request_msg_free(&client->mc_event);
    bn_response_msg_free(&client->mc_response);
    if (client->mc_gh != nullptr) {
        complain_error(gcl_deinit(&client->mc_gh));
    }
    client->mc_sess = nullptr;
    if (client->mc_fich != nullptr) {
        complain_error(fdic_deinit(&client->mc_fich));
    }
}

}  // namespace

int main(int argc, char **argv)
{
    int err = 0;
    mc_options opts;
    mc_client client;
    int status = mc_exit_ok;
    int i = 1;
    std::string command;
    std::vector<std::string> args;

    for (; i < argc && argv[i][0] == '-'; ++i) {
        const std::string arg = argv[i];
        const tbool has_value = i + 1 < argc;
        if (arg == "--sock-root" && has_value) {
            opts.mo_sock_root = argv[++i];
        } else if (arg == "--json") {
            opts.mo_json = true;
        } else if (arg == "--timeout" && has_value) {
            if (!mc_parse_seconds(argv[++i], &opts.mo_timeout_ms)) {
                fprintf(stderr, "mgmtctl: bad --timeout '%s'\n", argv[i]);
                return mc_exit_usage;
            }
        } else if (arg == "--client-name" && has_value) {
            opts.mo_client_name = argv[++i];
        } else if (arg == "--help" || arg == "-h") {
            mc_usage(stdout);
            return mc_exit_ok;
        } else {
            fprintf(stderr, "mgmtctl: bad option '%s'\n", arg.c_str());
            mc_usage(stderr);
            return mc_exit_usage;
        }
    }
    if (i >= argc) {
        mc_usage(stderr);
        return mc_exit_usage;
    }
    command = argv[i++];
    for (; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }

    // Check the command line before connecting.
    std::string name;
    std::vector<std::string> rest;
    std::vector<std::string> patterns;
    bn_query_node_flags_bf flags = 0;
    tbool create = false;
    lt_dur_ms wait_ms = -1;
    tbool ok = !args.empty();
    for (size_t k = 1; k < args.size() && ok; ++k) {
        const std::string &arg = args[k];
        if (command == "iterate" && arg == "--subtree") {
            flags |= bqnf_sel_iterate_subtree;
        } else if (command == "iterate" && arg == "--include-self") {
            flags |= bqnf_sel_iterate_include_self;
        } else if (command == "iterate" && arg == "--leaf-only") {
            flags |= bqnf_sel_iterate_leaf_nodes_only;
        } else if (command == "set" && arg == "--create") {
            create = true;
        } else if (command == "wait-event" && arg == "--match" && k + 1 < args.size()) {
            patterns.push_back(args[++k]);
        } else if (command == "wait-event" && arg == "--timeout" && k + 1 < args.size()) {
            ok = mc_parse_seconds(args[++k].c_str(), &wait_ms);
        } else {
            rest.push_back(arg);
        }
    }
    if (ok) {
        name = args[0];
        if (command == "get" || command == "iterate" || command == "delete" ||
            command == "reset" || command == "wait-event") {
            ok = rest.empty();
        } else if (command == "set") {
            ok = rest.size() == 2 || rest.size() == 1;  // a value may be empty
        } else if (command == "action" || command == "event") {
            ok = true;
        } else {
            fprintf(stderr, "mgmtctl: unknown command '%s'\n", command.c_str());
            mc_usage(stderr);
            return mc_exit_usage;
        }
    }
    if (!ok) {
        fprintf(stderr, "mgmtctl: bad arguments for '%s'\n", command.c_str());
        mc_usage(stderr);
        return mc_exit_usage;
    }

    lc_log_init("mgmtctl", nullptr, LCO_none, 0, LOG_CRIT, LOG_LOCAL4, LCT_STDERR);
    err = mc_connect(&client, opts);
    if (err == 0) {
        if (command == "get") {
            err = mc_cmd_query(&client, opts, bqso_get, name, 0, &status);
        } else if (command == "iterate") {
            err = mc_cmd_query(&client, opts, bqso_iterate, name, flags, &status);
        } else if (command == "set") {
            err = mc_cmd_set(&client, opts, create ? bsso_create : bsso_modify, name,
                             rest[0].c_str(), rest.size() > 1 ? rest[1].c_str() : "", &status);
        } else if (command == "delete") {
            err = mc_cmd_set(&client, opts, bsso_delete, name, nullptr, nullptr, &status);
        } else if (command == "reset") {
            err = mc_cmd_set(&client, opts, bsso_reset, name, nullptr, nullptr, &status);
        } else if (command == "action" || command == "event") {
            err = mc_cmd_message(&client, opts, command == "event", name, rest, &status);
        } else if (command == "wait-event") {
            err = mc_cmd_wait_event(&client, opts, name, patterns, wait_ms, &status);
        }
    }
    if (err != 0) {
        status = mc_exit_for_error(err);
    }
    mc_client_free(&client);
    lc_log_close();
    return status;
}
