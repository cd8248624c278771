// mgmtd-lite: a small configuration daemon that speaks the management protocol over the
// GCL socket of the provider "mgmtd".  It keeps a database of typed bindings loaded from a
// text file, answers gets, iterates and sets on it, relays events to the clients that
// declared interest in them, and hands queries under /ib/state/ and actions under
// /ib/actions/ to the client that registered them, relaying the answer back.
//
// Everything runs on one lew loop; every request, relay and answer leaves one line on
// stderr (see ml_log_line) so that scripts and tests can follow what happened.
#pragma once

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_session.h"
#include "common.h"
#include "event_fdintrcb.h"
#include "gcl.h"
#include "gcl_provider.h"
#include "libevent_wrapper.h"

// ---------------------------------------------------------------------------------------
// Names.

#define ML_PROVIDER_NAME "mgmtd"
#define ML_DEFAULT_OWNER "IB Daemon"
#define ML_EVENT_DBCHANGE "/mgmtd/notify/dbchange"
#define ML_DBCHANGE_ROOT "/mgmtd/notification/dbchange"
#define ML_ACTION_INTEREST_ADD "/mgmtd/events/actions/interest/add"
#define ML_ACTION_SEND_GARBAGE "/mgmtd-lite/actions/send-garbage"
#define ML_EVENT_DEVICE_ADD "/portd/events/ib-device-add"
#define ML_STATE_PREFIX "/ib/state/"
#define ML_ACTIONS_PREFIX "/ib/actions/"

static constexpr lt_dur_ms ml_forward_timeout_default_ms = 5000;
// The exit code of a bad command line or a bad configuration or registration file.
static constexpr int ml_exit_bad_input = 2;

struct ml_binding_free {
    void operator()(bn_binding *binding) const { bn_binding_free(&binding); }
};
typedef std::unique_ptr<bn_binding, ml_binding_free> ml_binding_ptr;

// ---------------------------------------------------------------------------------------
// The database.

struct ml_db {
    std::map<std::string, ml_binding_ptr> mdb_nodes;    // by escaped name
    std::map<std::string, ml_binding_ptr> mdb_initial;  // as loaded, for reset
};

// One change made by a set request, as the dbchange event tells it.
struct ml_change {
    std::string mc_change_type;   // "add", "delete", "modify"
    std::string mc_name;
    ml_binding_ptr mc_new;        // null for a delete
    ml_binding_ptr mc_prev;       // null for an add
};

// Parses the text form "NAME TYPE VALUE" lines of `path` into `db`.  A bad line is written
// to stderr with its file and line number and gives lc_err_parse_error.
int ml_db_load_file(ml_db *db, const char *path);
// Parses a type's text name ("uint32", "string", "tbool", ...).
int ml_type_from_name(const char *type_name, bn_type *ret_type);

// Whether a node exists: a stored binding, or a prefix of one.
tbool ml_db_node_exists(const ml_db *db, const std::string &name);
// The answer to a get: a copy of the stored binding, a bare binding for an inner node, or
// null for no node.
int ml_db_get(const ml_db *db, const std::string &name, bn_binding **ret_binding);
// The answer to an iterate, appended to `resp` (copies, in name order).
int ml_db_iterate(const ml_db *db, const std::string &name, bn_query_node_flags_bf flags,
                  std::vector<ml_binding_ptr> *resp);

// Applies the nodes of a set request, all or nothing.  On a refusal *ret_code is non-zero,
// *ret_msg tells why and the database is untouched.
int ml_db_apply_set(ml_db *db, const bn_request *req, uint32 *ret_code, std::string *ret_msg,
                    std::vector<ml_change> *ret_changes);

// ---------------------------------------------------------------------------------------
// The registration of the owner of /ib/state and /ib/actions.

struct ml_registration {
    std::string mr_owner;                  // client name of the owner
    std::vector<std::string> mr_names;     // registered names, escaped
    std::vector<uint32> mr_cap_masks;      // capability mask of each name, same order
    // Made by ml_server_init from the above, same order, so that a query neither splits
    // nor builds them again: the unescaped parts of each name, and the bqso_reg_info node
    // of each state name (null for the others) with its capability mask.
    std::vector<std::vector<std::string>> mr_parts;
    std::vector<ml_binding_ptr> mr_reg_info;
};

// The capability mask of a comma-separated list of group names ("admin,monitor"): one bit
// per group, its place in the group table.  An unknown group is a parse error.
int ml_cap_mask_from_groups(const std::string &groups, uint32 *ret_mask);

int ml_registration_load_file(ml_registration *reg, const char *path);

// ---------------------------------------------------------------------------------------
// The server.

struct ml_interest {
    tbool mi_all = false;                  // no patterns given
    std::vector<std::string> mi_patterns;
};

struct ml_client {
    gcl_session *mcl_session = nullptr;
    std::string mcl_name;
    std::map<std::string, ml_interest> mcl_interests;  // by event name
};

struct ml_server;

// A request handed to an owner and waiting for its answer.
struct ml_pending {
    ml_server *mp_server = nullptr;
    uint64 mp_id = 0;
    gcl_session *mp_owner = nullptr;       // where it was sent
    uint32 mp_owner_msg_id = 0;            // the id it went out with
    gcl_session *mp_asker = nullptr;       // null once the asker is gone
    uint32 mp_asker_msg_id = 0;
    bn_msg_type mp_resp_type = bbmt_none;
    std::string mp_what;                   // for log lines and messages
    std::map<int32, int32> mp_node_map;    // forwarded node id -> asker's node id
    std::vector<std::pair<int32, ml_binding_ptr>> mp_local;  // answered here
    lew_event *mp_timer = nullptr;
};

struct ml_server {
    lew_context *ms_lwc = nullptr;
    fdic_libevent_context *ms_flc = nullptr;
    fdic_handle *ms_fich = nullptr;
    gcl_handle *ms_gh = nullptr;
    gcl_session *ms_listener = nullptr;
    lew_event *ms_sig_term = nullptr;
    lew_event *ms_sig_int = nullptr;
    tbool ms_exiting = false;
    tbool ms_reap_scheduled = false;
    lt_dur_ms ms_forward_timeout_ms = 0;
    // Relay every event to every other client, asked for or not: plays a peer that sends
    // what a client never declared (tests of a client's robustness).
    tbool ms_relay_all_events = false;
    // Queries are not logged (their forwarding and answers neither): a benchmark of the
    // owner's answers wants the stand-in's own diagnostics out of the way.
    tbool ms_quiet_queries = false;
    ml_db ms_db;
    ml_registration ms_reg;
    std::map<gcl_session *, ml_client> ms_clients;
    std::map<uint64, std::unique_ptr<ml_pending>> ms_pending;
    uint64 ms_next_pending_id = 0;
    std::set<std::string> ms_ifindexes;    // learnt from device-add events
    // While an owner's query response is dispatched: the frame it came in, to be passed
    // on as it stands when nothing in it changes on the way.
    tbuf **ms_response_frame = nullptr;
};

int ml_server_init(ml_server *srv);
int ml_server_run(ml_server *srv);
int ml_server_deinit(ml_server *srv);

// ---------------------------------------------------------------------------------------
// Text forms.

// One line on stderr, flushed.
void ml_log_line(const char *format, ...) LC_PRINTF_FORMAT(1, 2);
// "name=type:value" of a binding (value empty when it has none).
std::string ml_binding_to_text(const bn_binding *binding);
// The bindings of a request, blank-separated.
std::string ml_request_bindings_text(const bn_request *req);
