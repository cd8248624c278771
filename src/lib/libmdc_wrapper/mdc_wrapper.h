// The synchronous client married to the event loop.  mdc_wrapper_init makes the session
// with the management daemon in one call and gives the client its message handler,
// mdc_wrapper_send_request, which sends a request and then runs the event loop until the
// matching response is in, a time-out fires or the request is cancelled.  A program built
// around one event loop can so make blocking calls without a second thread.
//
// Because the loop runs inside the wait, requests nest: any callback that runs during a
// wait (a request from the daemon, a timer) may make its own call.  Each call knows its
// place among the outstanding requests by its index, so responses may arrive in any
// order and still find their caller.  Everything runs on the loop's thread.
#pragma once

#include "bnode_proto.h"
#include "bnode_session.h"
#include "common.h"
#include "event_fdintrcb.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "libevent_wrapper.h"
#include "mdc_main.h"
#include "typed_arrays.h"

// Called before a request is sent (complete false, no response) and after it finished
// (complete true, with the response if one came).  `index` is the request's place among
// the outstanding ones; -1 for the acknowledgement of an event nobody waited for.
typedef int (*mdc_wrapper_request_func)(md_client_context *mcc, bn_request *request,
                                        tbool complete, bn_response *response, int32 index,
                                        void *data);

// The default cap of outstanding requests.
static constexpr int32 mdc_wrapper_max_outstanding_reqs_default = 2000;

struct mdc_wrapper_params {
    lew_context *mwp_lew_context;             // required
    tbool mwp_init_gcl;                       // make the GCL handle here
    gcl_handle *mwp_gcl_handle;               // used when mwp_init_gcl is false
    tbool mwp_open_session;                   // make and open the session here
    gcl_session *mwp_gcl_session;             // used when mwp_open_session is false
    const char *mwp_gcl_client;               // the client name
    gs_option_flags_bf mwp_gcl_client_options;
    const char *mwp_gcl_username;
    const char *mwp_provider;                 // default gcl_provider_mgmtd
    bap_service_id mwp_service;               // opened last; becomes the default
    uint32_array *mwp_other_services;         // opened before it
    const char *mwp_gcl_handle_id;
    lt_dur_ms mwp_timeout;                    // 0: wait for ever
    int32 mwp_max_outstanding_reqs;           // negative: no limit

    bn_msg_request_callback_func mwp_query_request_func;
    void *mwp_query_request_data;
    bn_msg_request_callback_func mwp_set_request_func;
    void *mwp_set_request_data;
    bn_msg_request_callback_func mwp_action_request_func;
    void *mwp_action_request_data;
    bn_msg_request_callback_func mwp_event_request_func;
    void *mwp_event_request_data;

    // Responses that no waiting call claims.
    bn_msg_response_callback_func mwp_query_response_func;
    void *mwp_query_response_data;
    bn_msg_response_callback_func mwp_set_response_func;
    void *mwp_set_response_data;
    bn_msg_response_callback_func mwp_action_response_func;
    void *mwp_action_response_data;
    bn_msg_response_callback_func mwp_event_response_func;
    void *mwp_event_response_data;

    mdc_wrapper_request_func mwp_request_start_func;
    void *mwp_request_start_data;
    mdc_wrapper_request_func mwp_request_complete_func;
    void *mwp_request_complete_data;

    mdc_user_msg_handler_func_ptr mwp_user_msg_handler_func;
    void *mwp_user_msg_handler_data;

    // The session's descriptor closed (only with mwp_init_gcl).
    fdic_event_callback_func mwp_session_close_func;
    void *mwp_session_close_data;

    tbool mwp_log_error_response;             // error responses at level 4, not 7
    tbool mwp_synchronous_events;             // also wait for event acknowledgements
};

struct mdc_wrapper_context {
    gcl_handle *mwc_gcl_handle;
    gcl_session *mwc_gcl_session;
    tbool mwc_inited_gcl_handle;              // this context owns the handle
    tbool mwc_opened_gcl_session;             // this context owns the session
    fdic_libevent_context *mwc_flc;
    fdic_handle *mwc_fdich;
    lew_context *mwc_lew_context;
    lt_dur_ms mwc_timeout;
    lew_event *mwc_timeout_event;             // present only while a wait runs
    int32 mwc_max_outstanding_reqs;
    tbool mwc_cancelling;
    int mwc_cancel_err_return;
    uint32_array *mwc_req_ids;                // outstanding message ids, in send order
    array *mwc_responses;                     // bn_response *, parallel; null until it came

    bn_msg_response_callback_func mwc_query_response_func;
    void *mwc_query_response_data;
    bn_msg_response_callback_func mwc_set_response_func;
    void *mwc_set_response_data;
    bn_msg_response_callback_func mwc_action_response_func;
    void *mwc_action_response_data;
    bn_msg_response_callback_func mwc_event_response_func;
    void *mwc_event_response_data;

    int32 mwc_num_outstanding_events;         // events sent, acknowledgement not awaited

    mdc_wrapper_request_func mwc_request_start_func;
    void *mwc_request_start_data;
    mdc_wrapper_request_func mwc_request_complete_func;
    void *mwc_request_complete_data;

    md_client_context *mwc_mcc;
    tbool mwc_log_error_response;
    tbool mwc_synchronous_events;
};

// ---------------------------------------------------------------------------------------
// Parameters.

// Allocates the record with its defaults (and an empty mwp_other_services).
int mdc_wrapper_params_get_defaults(mdc_wrapper_params **ret_params);
int mdc_wrapper_params_free(mdc_wrapper_params **inout_params);

// ---------------------------------------------------------------------------------------
// Life.

// Makes what the parameters ask for (handle, session, services) and the client context.
// lc_err_io_error and lc_err_io_closed from connecting come back without a log line.  On
// failure *ret_mcc is null and nothing is left behind.
int mdc_wrapper_init(const mdc_wrapper_params *params, md_client_context **ret_mcc);
// Cancels quietly, shuts the handle down (or closes the session when only the session was
// made here) and deletes the time-out event.
int mdc_wrapper_disconnect(md_client_context *mcc, tbool flush_output);
// Frees the wrapper's context and what it owns, then the client context; nulls the pointer.
int mdc_wrapper_deinit(md_client_context **inout_mcc);
// Makes every waiting call return: lc_err_cancelled when quiet, lc_err_cancelled_error
// otherwise.
int mdc_wrapper_cancel_all(md_client_context *mcc, tbool quiet);

// ---------------------------------------------------------------------------------------
// Getters.

int mdc_wrapper_get_gcl_session(const md_client_context *mcc, gcl_session **ret_session);
int mdc_wrapper_get_fdic_handle(const md_client_context *mcc, fdic_handle **ret_fdich);
int mdc_wrapper_get_num_outstanding_requests(const md_client_context *mcc, int32 *ret_num);
int mdc_wrapper_get_num_outstanding_events(const md_client_context *mcc, int32 *ret_num);

// ---------------------------------------------------------------------------------------
// The machinery; public so that it can be named in callbacks and tests.

// The client's message handler; `data` is the mdc_wrapper_context.
int mdc_wrapper_send_request(void *data, gcl_session *session, bn_request *request,
                             bn_response **ret_response);
// The session's callback of all four response kinds; `arg` is the mdc_wrapper_context.
int mdc_wrapper_handle_response(gcl_session *gcls, bn_response **inout_resp, void *arg);
// The time-out timer; `data` is the mdc_wrapper_context.
int mdc_wrapper_handle_timeout(int fd, short event_type, void *data, lew_context *context);
// Marks a cancel under way with the error the waiting calls are to return; the waits see
// it after their next round of the loop.
int mdc_wrapper_cancel_internal(mdc_wrapper_context *mwc, int cancel_err);
// The free function of mwc_responses.
void mdc_wrapper_free_response(void *elem);
