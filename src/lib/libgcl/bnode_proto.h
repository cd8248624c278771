// Management messages: the request and response objects exchanged with the management
// daemon (query, set, action and event), their message kinds, sub-operations and flags,
// the per-node records and their arrays, building and reading them, a log dump of a
// message, and the conversion of advanced-query data into auxiliary query nodes.
//
// Conventions.  Fallible operations return 0 or an lc_error_code; a ret_ output is
// cleared first, so that a failure leaves null.  _takeover arguments are nulled once
// the message owns them; an append refused because the message is of another kind leaves
// the caller's binding where it was.  Node ids of a message start at 1000.
#pragma once

#include "array.h"
#include "bnode.h"
#include "bnode_types.h"
#include "common.h"
#include "tstr_array.h"
#include "tstring.h"
#include "typed_arrays.h"

// ---------------------------------------------------------------------------------------
// Message kinds.  A response's kind is its request's kind plus
// bbmt_request_response_offset.

enum bn_msg_type {
    bbmt_none = 0,
    bbmt_query_request = 1,
    bbmt_query_response = 2,
    bbmt_set_request = 3,
    bbmt_set_response = 4,
    bbmt_action_request = 5,
    bbmt_action_response = 6,
    bbmt_event_request = 7,
    bbmt_event_response = 8,
    bbmt_LAST = 9,
};

static constexpr uint32 bbmt_request_response_offset = 1;

extern const lc_enum_string_map bn_msg_type_map[];

// The services a message may address.
enum bap_service_id {
    bap_service_none = 0,
    bap_service_admin = 1,
    bap_service_mgmt = 2,
    bap_service_proxy_mgmt = 3,
    bap_service_cluster = 4,
    bap_service_LAST = 5,
};

extern const lc_enum_string_map bap_service_id_map[];

// ---------------------------------------------------------------------------------------
// Queries.

// A peer may send subops beyond these; the type holds any 32-bit value, and the
// dispatch decides what to do with one it doesn't know.
enum bn_query_subop : uint32 {
    bqso_none = 0,
    bqso_get = 1,
    bqso_iterate = 2,
    bqso_reg_info = 3,
};

extern const lc_enum_string_map bn_query_subop_map[];

// Per-node query flags.
typedef uint32 bn_query_node_flags_bf;

static constexpr bn_query_node_flags_bf bqnf_sel_class_no_config = 0x100;
static constexpr bn_query_node_flags_bf bqnf_sel_class_no_state = 0x200;
static constexpr bn_query_node_flags_bf bqnf_sel_class_enter_passthrough = 0x400;
static constexpr bn_query_node_flags_bf bqnf_sel_class_omit_defaults = 0x800;
static constexpr bn_query_node_flags_bf bqnf_sel_iterate_subtree = 0x1000;
static constexpr bn_query_node_flags_bf bqnf_sel_iterate_include_self = 0x2000;
static constexpr bn_query_node_flags_bf bqnf_sel_iterate_leaf_nodes_only = 0x4000;
static constexpr bn_query_node_flags_bf bqnf_sel_iterate_count = 0x10000;
static constexpr bn_query_node_flags_bf bqnf_cleartext = 0x40000;
static constexpr bn_query_node_flags_bf bqnf_as_saved = 0x80000;

extern const lc_enum_string_map bn_query_node_flags_map[];

// Message-wide query flags.
enum bn_query_node_flags {
    bqf_NONE = 0,
    bqf_msg_nonbarrier = 1,
    bqf_MASK = 1,
};

extern const lc_enum_string_map bn_query_flags_map[];

// ---------------------------------------------------------------------------------------
// Sets.

enum bn_set_subop : uint32 {
    bsso_none = 0,
    bsso_create = 1,
    bsso_delete = 2,
    bsso_reset = 3,
    bsso_modify = 4,
    bsso_reparent = 5,
};

extern const lc_enum_string_map bn_set_subop_map[];

// Message-wide set flags.
enum bn_set_flags {
    bsf_db_specified = 4,
    bsf_continue_after_error = 8,
};

extern const lc_enum_string_map bn_set_flags_map[];

// Per-node set flags.
enum bn_set_node_flags {
    bsnf_NONE = 0,
    bsnf_reparent_by_copy = 0x400,
};

extern const lc_enum_string_map bn_set_node_flags_map[];

// ---------------------------------------------------------------------------------------
// The state of the protocol on one session.  A new session state starts in bss_init.

enum bn_state {
    bss_none = 0,
    bss_invalid = 1,
    bss_init = 2,
    bss_opened = 3,
    bss_closed = 4,
};

// ---------------------------------------------------------------------------------------
// Advanced-query data of a query node: a filtered iteration asked of the server.  It
// never travels as such; bn_query_node_data_convert turns it into auxiliary query nodes.
// All members are owned by the record that holds them; any may be null.

struct bn_query_node_data_per_wildcard {
    tstring *bqnw_pattern;
    tstr_array *bqnw_pattern_parts;
    tstring *bqnw_match_expr;
    tstr_array *bqnw_fields;                // names of the fields wanted
    tstr_array_array *bqnw_fields_parts;    // the same names split into parts
};

struct bn_query_node_data {
    tstring *bqnd_node_name;                           // null: the node has no such data
    uint32 bqnd_num_wildcards;
    bn_query_node_data_per_wildcard *bqnd_wildcards;   // bqnd_num_wildcards records
};

// ---------------------------------------------------------------------------------------
// Per-node settings of a request, by kind.  Action and event nodes have none.

struct bn_query_request_per_node {
    bn_query_subop bqn_query_subop;
    bn_query_node_flags_bf bqn_query_flags;
    bn_query_node_data bqn_query_data;
};

struct bn_set_request_per_node {
    bn_set_subop bsn_set_subop;
    uint32 bsn_set_flags;            // bn_set_node_flags
    tstring *bsn_graft_under_name;   // owned; used with bsso_reparent
    tstring *bsn_new_self_name;      // owned; used with bsso_reparent
};

union bn_request_per_node_settings {
    bn_query_request_per_node brns_query;
    bn_set_request_per_node brns_set;
};

// Message-wide settings of a request, by kind.

struct bn_query_request_body {
    uint32 bqrb_query_flags;               // bn_query_node_flags (message-wide)
    tstring *bqrb_opt_db_spec;             // owned; null: the running database
    int32 bqrb_opt_cond_db_revision_id;
};

struct bn_set_request_body {
    uint32 bsrb_set_flags;                 // bn_set_flags
    tstring *bsrb_opt_db_spec;             // owned
    int32 bsrb_opt_cond_db_revision_id;
};

struct bn_action_request_body {
    tstring *barb_action_name;             // owned
};

struct bn_event_request_body {
    tstring *berb_event_name;              // owned
};

union bn_request_body_settings {
    bn_query_request_body brbs_query;
    bn_set_request_body brbs_set;
    bn_action_request_body brbs_action;
    bn_event_request_body brbs_event;
};

// Message-wide settings of a response, by kind.  Actions and events have none.

struct bn_query_response_body {
    int32 bqrsb_db_revision_id;
};

struct bn_set_response_body {
    uint32 bsrsb_db_revision_id;
};

union bn_response_body_settings {
    bn_query_response_body brsbs_query;
    bn_set_response_body brsbs_set;
};

// ---------------------------------------------------------------------------------------
// Nodes and their arrays.

struct bn_request_per_node {
    int32 brn_node_id;
    bn_binding *brn_binding;                    // owned; may be null
    bn_msg_type brn_request_type;               // the kind of the message holding it
    bn_request_per_node_settings brn_node_settings;
    tbool brn_did_reg_lookup;
    const void *brn_node_reg;                   // a server's registration entry; not owned
};

struct bn_response_per_node {
    int32 brsn_node_id;                         // the id of the request node answered
    bn_binding *brsn_binding;                   // owned; may be null
    bn_msg_type brsn_response_type;
};

// Arrays that own their nodes.  _append copies, _append_takeover nulls the caller's pointer
// (also on failure).  Getters borrow; past the end is lc_err_no_buffer_space.

struct bn_request_per_node_array {
    array *bn_request_per_node_arr;
};

struct bn_response_per_node_array {
    array *bn_response_per_node_arr;
};

// Element operations.  A request node's settings are read by brn_request_type.
int bn_request_per_node_new(bn_request_per_node **ret_node);
int bn_request_per_node_dup(const bn_request_per_node *node, bn_request_per_node **ret_dup);
int bn_request_per_node_free(bn_request_per_node **inout_node);
int bn_response_per_node_new(bn_response_per_node **ret_node);
int bn_response_per_node_dup(const bn_response_per_node *node, bn_response_per_node **ret_dup);
int bn_response_per_node_free(bn_response_per_node **inout_node);

int bn_request_per_node_dup_for_array(const void *src_elem, void **ret_dest_elem);
void bn_request_per_node_free_for_array(void *elem);
int bn_response_per_node_dup_for_array(const void *src_elem, void **ret_dest_elem);
void bn_response_per_node_free_for_array(void *elem);

int bn_request_per_node_array_new(bn_request_per_node_array **ret_arr);
int bn_request_per_node_array_new_size(bn_request_per_node_array **ret_arr,
                                       uint32 initial_size);
int bn_request_per_node_array_duplicate(const bn_request_per_node_array *arr,
                                        bn_request_per_node_array **ret_dup);
int bn_request_per_node_array_free(bn_request_per_node_array **inout_arr);
int bn_request_per_node_array_empty(bn_request_per_node_array *arr);
int bn_request_per_node_array_length(const bn_request_per_node_array *arr, uint32 *ret_length);
// 0 for a null array.
uint32 bn_request_per_node_array_length_quick(const bn_request_per_node_array *arr);
int bn_request_per_node_array_get(const bn_request_per_node_array *arr, uint32 idx,
                                  bn_request_per_node **ret_node);
bn_request_per_node *bn_request_per_node_array_get_quick(const bn_request_per_node_array *arr,
                                                         uint32 idx);
int bn_request_per_node_array_append(bn_request_per_node_array *arr,
                                     const bn_request_per_node *node);
int bn_request_per_node_array_append_takeover(bn_request_per_node_array *arr,
                                              bn_request_per_node **inout_node);
int bn_request_per_node_array_delete(bn_request_per_node_array *arr, uint32 idx);
int bn_request_per_node_array_remove(bn_request_per_node_array *arr, uint32 idx,
                                     bn_request_per_node **ret_node);

int bn_response_per_node_array_new(bn_response_per_node_array **ret_arr);
int bn_response_per_node_array_new_size(bn_response_per_node_array **ret_arr,
                                        uint32 initial_size);
int bn_response_per_node_array_duplicate(const bn_response_per_node_array *arr,
                                         bn_response_per_node_array **ret_dup);
int bn_response_per_node_array_free(bn_response_per_node_array **inout_arr);
int bn_response_per_node_array_empty(bn_response_per_node_array *arr);
int bn_response_per_node_array_length(const bn_response_per_node_array *arr,
                                      uint32 *ret_length);
uint32 bn_response_per_node_array_length_quick(const bn_response_per_node_array *arr);
int bn_response_per_node_array_get(const bn_response_per_node_array *arr, uint32 idx,
                                   bn_response_per_node **ret_node);
bn_response_per_node *bn_response_per_node_array_get_quick(const bn_response_per_node_array *arr,
                                                           uint32 idx);
int bn_response_per_node_array_append(bn_response_per_node_array *arr,
                                      const bn_response_per_node *node);
int bn_response_per_node_array_append_takeover(bn_response_per_node_array *arr,
                                               bn_response_per_node **inout_node);
int bn_response_per_node_array_delete(bn_response_per_node_array *arr, uint32 idx);
int bn_response_per_node_array_remove(bn_response_per_node_array *arr, uint32 idx,
                                      bn_response_per_node **ret_node);

// ---------------------------------------------------------------------------------------
// Messages.

struct bn_request_header {
    uint16 brh_service_id;        // bap_service_id; 0: the session's default
    uint16 brh_msg_type;          // bn_msg_type
    uint32 brh_msg_id;
    uint32 brh_transaction_id;    // 0: a new transaction on sending
};

struct bn_request {
    bn_request_header br_header;
    bn_request_per_node_array *br_nodes;       // owned
    bn_request_body_settings br_body_settings; // read by brh_msg_type
    uint32 br_next_node_id;                    // the id of the next node appended
};

static constexpr uint32 bn_request_first_node_id = 1000;

struct bn_response_header {
    uint16 brsh_service_id;
    uint16 brsh_msg_type;
    uint32 brsh_msg_id;
    uint32 brsh_transaction_id;
    uint32 brsh_req_msg_id;       // the message id of the request answered
};

struct bn_response {
    bn_response_header brs_header;
    uint32 brs_return_code;                     // 0 for success
    tstring *brs_return_message;                // owned; may be null
    bn_response_per_node_array *brs_nodes;      // owned
    bn_response_body_settings brs_body_settings; // read by brsh_msg_type
};

// ---------------------------------------------------------------------------------------
// Building requests.  Every append gives the new node the message's br_next_node_id,
// which then grows by one; ret_node_id (may be null) receives it.  An append to a message
// of another kind is lc_err_assertion_failed.  A failure while appending frees the node
// under construction and leaves the message as it was.

// Any kind; the body is empty.
int bn_request_msg_create(bn_request **ret_req_msg, bn_msg_type req_type);
// db_name (may be null) names the database to query.
int bn_query_request_msg_create(bn_request **ret_req_msg, uint32 query_flags,
                                const char *db_name);
int bn_query_request_msg_set_option_cond_db_revision_id(bn_request *query_msg,
                                                        int32 cond_db_revision_id);
// A node of that name without attributes.
int bn_query_request_msg_append_str(bn_request *query_msg, bn_query_subop subop,
                                    bn_query_node_flags_bf node_query_flags,
                                    const char *node_name, int32 *ret_node_id);
// A copy of the binding.
int bn_query_request_msg_append_binding(bn_request *query_msg, bn_query_subop subop,
                                        bn_query_node_flags_bf node_query_flags,
                                        const bn_binding *binding, int32 *ret_node_id);
// A node of that name with a copy of the attributes (may be null).
int bn_query_request_msg_append_with_attribs(bn_request *query_msg, bn_query_subop subop,
                                             bn_query_node_flags_bf node_query_flags,
                                             const char *node_name,
                                             const bn_attrib_array *attribs,
                                             int32 *ret_node_id);

int bn_set_request_msg_create(bn_request **ret_req_msg, uint32 set_flags);
int bn_set_request_msg_append_binding_takeover(bn_request *set_msg, bn_set_subop set_subop,
                                               uint32 node_set_flags,
                                               bn_binding **inout_binding,
                                               int32 *ret_node_id);
// The value (ba_value) is parsed from str_value by type; a text that does not parse gives
// a binding of the type marked btf_invalid.  A null str_value gives the type alone.
int bn_set_request_msg_append_new_binding(bn_request *set_msg, bn_set_subop set_subop,
                                          uint32 node_set_flags, const char *name,
                                          bn_type type, bn_type_flags_bf type_flags,
                                          const char *str_value, int32 *ret_node_id);

int bn_action_request_msg_create(bn_request **ret_req_msg, const char *action_name);
// node_action_flags and node_event_flags travel nowhere.
int bn_action_request_msg_append_binding_takeover(bn_request *action_msg,
                                                  uint32 node_action_flags,
                                                  bn_binding **inout_binding,
                                                  int32 *ret_node_id);
// bn_action_request_msg_append_new_binding_ex without type flags.
int bn_action_request_msg_append_new_binding(bn_request *action_msg, uint32 node_action_flags,
                                             const char *name, bn_type type,
                                             const char *value, int32 *ret_node_id);
// As the set form: a value that does not parse gives a binding marked btf_invalid.
int bn_action_request_msg_append_new_binding_ex(bn_request *action_msg,
                                                uint32 node_action_flags, const char *name,
                                                bn_type type, bn_type_flags_bf type_flags,
                                                const char *value, int32 *ret_node_id);

int bn_event_request_msg_create(bn_request **ret_req_msg, const char *event_name);
int bn_event_request_msg_append_binding(bn_request *event_msg, uint32 node_event_flags,
                                        const bn_binding *binding, int32 *ret_node_id);
int bn_event_request_msg_append_binding_takeover(bn_request *event_msg,
                                                 uint32 node_event_flags,
                                                 bn_binding **inout_binding,
                                                 int32 *ret_node_id);

// The common form, for any kind.  The settings (may be null: none) are copied deeply and
// read by the message's kind.
int bn_request_msg_append_binding_settings(bn_request *msg, const bn_binding *binding,
                                           const bn_request_per_node_settings *node_settings,
                                           int32 *ret_node_id);
int bn_request_msg_append_binding_settings_takeover(
    bn_request *msg, bn_binding **inout_binding,
    const bn_request_per_node_settings *node_settings, int32 *ret_node_id);

int bn_request_msg_free(bn_request **inout_req_msg);

// Turns the advanced-query data of every query node into auxiliary bqso_get nodes of the
// same message, numbered by a running number taken from br_next_node_id:
//   "/mgmtd/aq/node/<n>/name"                      bt_name    the node name
//   "/mgmtd/aq/node/<n>/wild/<w>/pattern"          bt_string  the pattern
//   "/mgmtd/aq/node/<n>/wild/<w>/match_expr"       bt_string  the match expression
//   "/mgmtd/aq/node/<n>/wild/<w>/fields/<f>/name"  bt_string  each field
// <n> is the id of the name node, <w> and <f> count from 0; absent pieces give no node.
// The data is released from the node once converted.
int bn_query_node_data_convert(bn_request *query_msg);
// Releases what the record owns and zeroes it.
int bn_query_node_data_free_contents(bn_query_node_data *data);
int bn_query_node_data_copy(const bn_query_node_data *src, bn_query_node_data *ret_dest);

// ---------------------------------------------------------------------------------------
// Reading requests.

// Any output may be null.  ret_req_body_msg_specific borrows the message's body settings.
// ret_node_bindings is a new array of copies: with want_binding_name_parts they carry
// name, parts and attributes, otherwise name and attributes only.  ret_node_ids and
// ret_node_settings run parallel to it; the settings are borrowed pointers
// (const bn_request_per_node_settings *) into the message, in an array that owns nothing.
// Nodes without a binding are skipped.  A message of no request kind is
// lc_err_unexpected_case.
int bn_request_get(const bn_request *req, bn_msg_type *ret_req_type,
                   const bn_request_body_settings **ret_req_body_msg_specific,
                   tbool want_binding_name_parts, bn_binding_array **ret_node_bindings,
                   uint32_array **ret_node_ids, array **ret_node_settings);

// Direct reads; a null message gives 0 / bbmt_none / null.
bn_msg_type bn_request_get_msg_type(const bn_request *req);
uint32 bn_request_get_msg_id(const bn_request *req);
// All nodes of the message.
uint32 bn_request_get_num_nodes(const bn_request *req);
// Null past the end.
const bn_request_per_node *bn_request_get_nth_node_const(const bn_request *req, uint32 idx);
// The nodes that carry a binding: those that go out.
uint32 bn_request_msg_get_node_count(const bn_request *req);

// A copy of the name; another kind is lc_err_assertion_failed.
int bn_action_request_msg_get_action_name(const bn_request *msg, tstring **ret_name);
int bn_event_request_msg_get_event_name(const bn_request *msg, tstring **ret_name);

// ---------------------------------------------------------------------------------------
// Building and reading responses.

// Any kind; return_message may be null.
int bn_response_msg_create(bn_response **ret_req_msg, bn_msg_type req_type,
                           uint32 request_msg_id, uint32 return_code,
                           const char *return_message);
int bn_query_response_msg_create(bn_response **ret_req_msg, uint32 request_msg_id,
                                 uint32 return_code, const char *return_message);
int bn_action_response_msg_create(bn_response **ret_req_msg, uint32 request_msg_id,
                                  uint32 return_code, const char *return_message);

// The node takes the binding and the id of the request node it answers.  The query form
// refuses another kind with lc_err_assertion_failed, leaving the binding to the caller.
int bn_response_msg_append_binding_takeover(bn_response *msg, bn_binding **inout_binding,
                                            int32 node_id);
int bn_query_response_msg_append_binding_takeover(bn_response *msg,
                                                  bn_binding **inout_binding, int32 node_id);

int bn_response_set_service_id(bn_response *resp, uint16 service_id);
uint16 bn_response_get_service_id(const bn_response *resp);
bn_msg_type bn_response_get_msg_type(const bn_response *resp);
// Either output may be null.
int bn_response_get_msg_ids(const bn_response *resp, uint32 *ret_msg_id,
                            uint32 *ret_req_msg_id);

// Any output may be null.  The bindings are copies as in bn_request_get, in node order,
// with ret_node_ids parallel; nodes without a binding are skipped.  The return message is
// a copy (null when the response has none).
int bn_response_get(const bn_response *resp, uint32 *ret_return_code,
                    tstring **ret_return_message, tbool want_binding_name_parts,
                    bn_binding_array **ret_bindings, uint32_array **ret_node_ids);
// The same, moving the return message and the bindings out of the response (without
// want_binding_name_parts their parts caches are dropped).  Moved nodes keep their ids
// and have no binding afterwards.
int bn_response_get_takeover(bn_response *resp, uint32 *ret_return_code,
                             tstring **ret_return_message, tbool want_binding_name_parts,
                             bn_binding_array **ret_bindings, uint32_array **ret_node_ids);
int bn_response_get_return(const bn_response *resp, uint32 *ret_return_code,
                           tstring **ret_return_message);
// bqrsb_db_revision_id; 0 for a null response or another kind.
int32 bn_query_response_msg_get_db_revision_id(const bn_response *resp);

int bn_response_msg_dup(const bn_response *resp, bn_response **ret_dup);
int bn_response_msg_free(bn_response **inout_resp_msg);

// ---------------------------------------------------------------------------------------
// Dumping a message to the log, one line per item, at log_level under label.  Level -1,
// and a level above the current maximum, log nothing.  At most the first 50 nodes are
// shown; values are cut at 1023 characters.

static constexpr int bn_msg_dump_level_off = -1;
static constexpr uint32 bn_msg_dump_max_nodes = 50;

int bn_request_msg_dump(int log_level, const char *label, const bn_request *req);
int bn_response_msg_dump(int log_level, const char *label, const bn_response *resp);
