// The synchronous client of the management daemon.  Every operation builds one request,
// hands it to the context's message handler (which sends it and waits for the answer;
// see mdc_wrapper.h) and unpacks the response.
//
// Two results come back from every call: the function's own error code tells of the
// transport and of the call itself, while ret_code (0 for success) and ret_msg carry what
// the management daemon answered.  A request refused by the daemon gives 0 here and a
// non-zero ret_code.  ret_code and ret_msg may be null; every output is cleared on entry.
//
// Callers run on the event loop's thread.  The handler runs the loop while it waits, so
// any callback (new requests from the daemon among them) may run nested in any call here:
// a caller must not assume that its data stays as it was across the call.
#pragma once

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_types.h"
#include "common.h"
#include "gcl.h"
#include "tstring.h"

// The provider name of the management daemon.
inline constexpr char gcl_provider_mgmtd[] = "mgmtd";

// Sends a request and gives back its response (null when none came and no error).
typedef int (*mdc_msg_handler_func_ptr)(void *data, gcl_session *session, bn_request *request,
                                        bn_response **ret_response);
// Receives a message meant for the user.
typedef int (*mdc_user_msg_handler_func_ptr)(void *data, const char *msg);

struct md_client_context {
    mdc_msg_handler_func_ptr mcc_msg_handler_func;
    void *mcc_msg_handler_data;
    mdc_user_msg_handler_func_ptr mcc_user_msg_handler_func;
    void *mcc_user_msg_handler_data;
    gcl_session *mcc_session;
    void *mcc_wrapper_context;     // the wrapper's context; set by it after mdc_init
};

// ---------------------------------------------------------------------------------------
// Core.

// msg_handler_func is required; the rest may be null.
int mdc_init(mdc_msg_handler_func_ptr msg_handler_func, void *msg_handler_data,
             mdc_user_msg_handler_func_ptr user_msg_handler_func, void *user_msg_handler_data,
             gcl_session *session, md_client_context **ret_mcc);
int mdc_deinit(md_client_context **inout_mcc);

// Sends the request (which stays the caller's) and moves code, message and bindings out of
// the response, which is freed here.  ret_bindings may be null.
int mdc_send_mgmt_msg(md_client_context *mcc, bn_request *request,
                      tbool want_binding_name_parts, bn_binding_array **ret_bindings,
                      uint32 *ret_code, tstring **ret_msg);

// ---------------------------------------------------------------------------------------
// Reading.  db_name names a database; null is the running one.  A node that does not
// exist is success with a null result.

int mdc_get_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    tbool want_binding_name_parts, bn_binding **ret_binding,
                    const char *binding_name, const char *db_name);
// Only the binding of exactly the asked name is taken from the answer.
int mdc_get_binding_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       tbool want_binding_name_parts, bn_binding **ret_binding,
                       uint32 query_flags, bn_query_node_flags_bf query_node_flags,
                       const char *binding_name, const char *db_name);
int mdc_get_binding_fmt(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                        tbool want_binding_name_parts, bn_binding **ret_binding,
                        const char *db_name, const char *binding_name_fmt, ...)
    LC_PRINTF_FORMAT(7, 8);
// The text form of the node's value and its bare type (ret_type may be null).
int mdc_get_binding_tstr(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                         bn_type *ret_type, tstring **ret_value, const char *binding_name,
                         const char *db_name);
int mdc_get_binding_tstr_fmt(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                             bn_type *ret_type, tstring **ret_value, const char *db_name,
                             const char *binding_name_fmt, ...) LC_PRINTF_FORMAT(7, 8);
// A found node whose value is not a bt_bool gives lc_err_bad_type, with ret_found true.
int mdc_get_binding_tbool(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                          tbool *ret_found, tbool *ret_value, const char *binding_name,
                          const char *db_name);
// An iteration of the node; the answer's array is handed over whole.  ret_db_revision_id
// (may be null) gets the revision the answer was taken at.
int mdc_get_binding_children_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                                tbool want_binding_name_parts,
                                bn_binding_array **ret_bindings,
                                bn_query_node_flags_bf query_node_flags,
                                const char *binding_name, const char *db_name,
                                int32 cond_db_revision_id, int32 *ret_db_revision_id);
int mdc_get_binding_children(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                             tbool want_binding_name_parts, bn_binding_array **ret_bindings,
                             tbool include_self, tbool subtree, const char *binding_name,
                             const char *db_name);

// ---------------------------------------------------------------------------------------
// Writing.  A value that does not parse by its type goes out as a binding marked
// btf_invalid.

int mdc_set_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    bn_set_subop set_subop, bn_type binding_type, const char *binding_value,
                    const char *binding_name);
int mdc_set_binding_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_set_subop set_subop, bn_type binding_type,
                       bn_type_flags_bf binding_type_flags, const char *binding_value,
                       const char *binding_name);
int mdc_modify_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_type binding_type, const char *binding_value,
                       const char *binding_name);
int mdc_create_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_type binding_type, const char *binding_value,
                       const char *binding_name);
int mdc_delete_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       const char *binding_name);
int mdc_reset_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                      const char *binding_name);

// ---------------------------------------------------------------------------------------
// Actions and events.  The _va forms take num_bindings triples of a name (const char *),
// a type (a bn_type as an int) and a value in text form (const char *); the first triple is
// in the named parameters.  A triple with a null value is skipped.

int mdc_send_action(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    const char *action_name);
int mdc_send_action_with_bindings_str_va(md_client_context *mcc, uint32 *ret_code,
                                         tstring **ret_msg, const char *action_name,
                                         uint32 num_bindings, const char *binding_name,
                                         bn_type binding_type, const char *binding_value, ...);
int mdc_send_event_with_bindings_str_va(md_client_context *mcc, uint32 *ret_code,
                                        tstring **ret_msg, const char *event_name,
                                        uint32 num_bindings, const char *binding_name,
                                        bn_type binding_type, const char *binding_value, ...);
