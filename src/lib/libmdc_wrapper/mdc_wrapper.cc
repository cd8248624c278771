// The client wrapper: session set-up, and the handler that sends a request and runs the
// event loop until its response is in.
#include "mdc_wrapper.h"

#include <cstdlib>

#include "logging.h"

namespace {

// A response kind's text for the log.
const char *mdc_wrapper_msg_type_str(bn_msg_type type)
{
    const char *str = lc_enum_to_string_quiet_null(bn_msg_type_map, type);
    return str != nullptr ? str : "unknown";
}

mdc_wrapper_context *mdc_wrapper_get_context(const md_client_context *mcc)
{
    return mcc != nullptr ? static_cast<mdc_wrapper_context *>(mcc->mcc_wrapper_context)
                          : nullptr;
}

// Releases the context and everything it made.  A session it was given is left open, with
// the callbacks that point here removed.
int mdc_wrapper_context_free(mdc_wrapper_context **inout_mwc)
{
    int err = 0;
    mdc_wrapper_context *mwc = nullptr;

    bail_null(inout_mwc);
    mwc = *inout_mwc;
    if (mwc == nullptr) {
        goto bail;
    }
    *inout_mwc = nullptr;

    if (mwc->mwc_timeout_event != nullptr) {
        complain_error(lew_event_delete(mwc->mwc_lew_context, &mwc->mwc_timeout_event));
    }
    // Our own teardown is no loss of the session to report.
    if (mwc->mwc_flc != nullptr) {
        complain_error(fdic_libevent_set_fd_close_handler(mwc->mwc_flc, nullptr, nullptr));
    }
    if (mwc->mwc_opened_gcl_session) {
        complain_error(gcl_session_free(&mwc->mwc_gcl_session));
    } else if (mwc->mwc_gcl_session != nullptr && gcl_validate_session(mwc->mwc_gcl_session)) {
        complain_error(bn_set_session_callback_query_response_msg(mwc->mwc_gcl_session,
                                                                  nullptr, nullptr));
        complain_error(bn_set_session_callback_set_response_msg(mwc->mwc_gcl_session, nullptr,
                                                                nullptr));
        complain_error(bn_set_session_callback_action_response_msg(mwc->mwc_gcl_session,
                                                                   nullptr, nullptr));
        complain_error(bn_set_session_callback_event_response_msg(mwc->mwc_gcl_session,
                                                                  nullptr, nullptr));
    }
    if (mwc->mwc_inited_gcl_handle) {
        complain_error(gcl_deinit(&mwc->mwc_gcl_handle));
    }
    complain_error(fdic_deinit(&mwc->mwc_fdich));
    complain_error(fdic_libevent_deinit(&mwc->mwc_flc));
    complain_error(uint32_array_free(&mwc->mwc_req_ids));
    complain_error(array_free(&mwc->mwc_responses));
    free(mwc);

bail:
    return err;
}

// Steps after the checks of mdc_wrapper_send_request: send, wait for the response at
// `index`, report, and end a cancel when this is the outermost wait.
int mdc_wrapper_send_and_wait(mdc_wrapper_context *mwc, gcl_session *session,
                              bn_request *request, uint32 index, bn_response **ret_response)
{
    int err = 0;
    tbool start_reported = false;
    tbool fire_and_forget = false;
    tbool queued = false;
    tbool no_events_left = false;
    tbool escaped = false;
    bn_response *response = nullptr;
    void *elem = nullptr;

    *ret_response = nullptr;
    if (mwc->mwc_cancelling) {
        goto bail;
    }

    if (mwc->mwc_request_start_func != nullptr) {
        complain_error(mwc->mwc_request_start_func(mwc->mwc_mcc, request, false, nullptr,
                                                   int32(index),
                                                   mwc->mwc_request_start_data));
        start_reported = true;
    }

    err = bn_request_msg_send(session, request);
    bail_error(err);

    if (bn_request_get_msg_type(request) == bbmt_event_request &&
        !mwc->mwc_synchronous_events) {
        // Nobody waits for the acknowledgement.
        ++mwc->mwc_num_outstanding_events;
        fire_and_forget = true;
        goto bail;
    }

    err = uint32_array_append(mwc->mwc_req_ids, bn_request_get_msg_id(request));
    bail_error(err);
    err = array_set(mwc->mwc_responses, index, nullptr);
    if (err != 0) {
        complain_error(uint32_array_delete(mwc->mwc_req_ids, index));
    }
    bail_error(err);
    queued = true;

    lc_log_basic(index > 0 ? LOG_INFO : LOG_DEBUG, "Number of outstanding requests: %d",
                 int(index + 1));

    // Only the outermost wait has a timer; inner calls run beneath it.
    if (index == 0 && mwc->mwc_timeout != 0) {
        bail_require(mwc->mwc_timeout_event == nullptr);
        err = lew_event_reg_timer(mwc->mwc_lew_context, &mwc->mwc_timeout_event,
                                  mdc_wrapper_handle_timeout, mwc, mwc->mwc_timeout);
        bail_error(err);
    }

    for (;;) {
        if (array_get_quick(mwc->mwc_responses, index) != nullptr) {
            err = array_remove(mwc->mwc_responses, index, &elem);
            bail_error(err);
            response = static_cast<bn_response *>(elem);
            elem = nullptr;
            err = uint32_array_delete(mwc->mwc_req_ids, index);
            queued = false;
            bail_error(err);
            break;
        }
        if (no_events_left || escaped || mwc->mwc_cancelling) {
            break;
        }
        err = lew_dispatch_once(mwc->mwc_lew_context, &no_events_left, &escaped);
        bail_error(err);
    }

bail:
    if (queued) {
        // The wait ended without a response: forget the request.
        complain_error(array_delete(mwc->mwc_responses, index));
        complain_error(uint32_array_delete(mwc->mwc_req_ids, index));
    }
    if (start_reported && !fire_and_forget && mwc->mwc_request_complete_func != nullptr) {
        complain_error(mwc->mwc_request_complete_func(mwc->mwc_mcc, request, true, response,
                                                      int32(index),
                                                      mwc->mwc_request_complete_data));
    }
    if (mwc->mwc_cancelling && err == 0) {
        err = mwc->mwc_cancel_err_return;
    }
    // The outermost wait ends a cancel; inner ones leave it to those still waiting above.
    if (index == 0) {
        mwc->mwc_cancelling = false;
        if (mwc->mwc_timeout_event != nullptr) {
            complain_error(lew_event_delete(mwc->mwc_lew_context, &mwc->mwc_timeout_event));
        }
    }
    if (err == 0) {
        *ret_response = response;
        response = nullptr;
    }
    bn_response_msg_free(&response);
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Parameters.

int mdc_wrapper_params_get_defaults(mdc_wrapper_params **ret_params)
{
    int err = 0;
    mdc_wrapper_params *params = nullptr;

    bail_null(ret_params);
    *ret_params = nullptr;
    params = static_cast<mdc_wrapper_params *>(calloc(1, sizeof(*params)));
    bail_null(params);
    params->mwp_init_gcl = true;
    params->mwp_open_session = true;
    params->mwp_provider = gcl_provider_mgmtd;
    params->mwp_service = bap_service_mgmt;
    err = uint32_array_new(&params->mwp_other_services);
    bail_error(err);
    params->mwp_timeout = 0;
    params->mwp_max_outstanding_reqs = mdc_wrapper_max_outstanding_reqs_default;
    params->mwp_log_error_response = false;
    params->mwp_synchronous_events = false;
    *ret_params = params;
    params = nullptr;

bail:
    mdc_wrapper_params_free(&params);
    return err;
}

int mdc_wrapper_params_free(mdc_wrapper_params **inout_params)
{
    int err = 0;

    bail_null(inout_params);
    if (*inout_params != nullptr) {
        uint32_array_free(&(*inout_params)->mwp_other_services);
        free(*inout_params);
        *inout_params = nullptr;
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Life.

int mdc_wrapper_init(const mdc_wrapper_params *params, md_client_context **ret_mcc)
{
    int err = 0;
    mdc_wrapper_context *mwc = nullptr;
    md_client_context *mcc = nullptr;
    array_options opts{};
    event_context *ev_ctxt = nullptr;
    gcl_global_options ggo{};
    gcl_session *sess = nullptr;
    uint32 num_services = 0;

    bail_null(ret_mcc);
    *ret_mcc = nullptr;
    bail_null(params);
    bail_null(params->mwp_lew_context);
    if (!params->mwp_init_gcl) {
        bail_null(params->mwp_gcl_handle);
    }
    if (params->mwp_open_session) {
        bail_null(params->mwp_gcl_client);
    } else {
        bail_null(params->mwp_gcl_session);
    }

    mwc = static_cast<mdc_wrapper_context *>(calloc(1, sizeof(*mwc)));
    bail_null(mwc);
    mwc->mwc_lew_context = params->mwp_lew_context;
    mwc->mwc_timeout = params->mwp_timeout;
    mwc->mwc_max_outstanding_reqs = params->mwp_max_outstanding_reqs;
    mwc->mwc_request_start_func = params->mwp_request_start_func;
    mwc->mwc_request_start_data = params->mwp_request_start_data;
    mwc->mwc_request_complete_func = params->mwp_request_complete_func;
    mwc->mwc_request_complete_data = params->mwp_request_complete_data;
    mwc->mwc_query_response_func = params->mwp_query_response_func;
    mwc->mwc_query_response_data = params->mwp_query_response_data;
    mwc->mwc_set_response_func = params->mwp_set_response_func;
    mwc->mwc_set_response_data = params->mwp_set_response_data;
    mwc->mwc_action_response_func = params->mwp_action_response_func;
    mwc->mwc_action_response_data = params->mwp_action_response_data;
    mwc->mwc_event_response_func = params->mwp_event_response_func;
    mwc->mwc_event_response_data = params->mwp_event_response_data;
    mwc->mwc_log_error_response = params->mwp_log_error_response;
    mwc->mwc_synchronous_events = params->mwp_synchronous_events;

    err = uint32_array_new(&mwc->mwc_req_ids);
    bail_error(err);
    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_free_func = mdc_wrapper_free_response;
    err = array_new(&mwc->mwc_responses, &opts);
    bail_error(err);

    if (params->mwp_init_gcl) {
        err = lew_get_event_context(mwc->mwc_lew_context, &ev_ctxt);
        bail_error(err);
        err = fdic_libevent_init(ev_ctxt, &mwc->mwc_flc);
        bail_error(err);
        err = fdic_init(&mwc->mwc_fdich, fdic_libevent_callback, mwc->mwc_flc);
        bail_error(err);
        if (params->mwp_session_close_func != nullptr) {
            err = fdic_libevent_set_fd_close_handler(mwc->mwc_flc,
                                                     params->mwp_session_close_func,
                                                     params->mwp_session_close_data);
            bail_error(err);
        }
        err = gcl_options_get_defaults(&ggo);
        bail_error(err);
        if (params->mwp_gcl_handle_id != nullptr) {
            strlcpy(ggo.ggo_handle_id, params->mwp_gcl_handle_id, sizeof(ggo.ggo_handle_id));
        }
        err = gcl_init(&mwc->mwc_gcl_handle, &ggo, mwc->mwc_fdich);
        bail_error(err);
        mwc->mwc_inited_gcl_handle = true;
    } else {
        mwc->mwc_gcl_handle = params->mwp_gcl_handle;
    }

    if (params->mwp_open_session) {
        err = gcl_session_client_set_user_new(mwc->mwc_gcl_handle, params->mwp_gcl_client,
                                              params->mwp_gcl_client_options, ggid_auto,
                                              ggid_auto, params->mwp_gcl_username, nullptr, 0,
                                              &mwc->mwc_gcl_session);
        bail_error(err);
        mwc->mwc_opened_gcl_session = true;
    } else {
        mwc->mwc_gcl_session = params->mwp_gcl_session;
    }
    sess = mwc->mwc_gcl_session;

    err = bn_set_session_callback_query_response_msg(sess, mdc_wrapper_handle_response, mwc);
    bail_error(err);
    err = bn_set_session_callback_set_response_msg(sess, mdc_wrapper_handle_response, mwc);
    bail_error(err);
    err = bn_set_session_callback_action_response_msg(sess, mdc_wrapper_handle_response, mwc);
    bail_error(err);
    err = bn_set_session_callback_event_response_msg(sess, mdc_wrapper_handle_response, mwc);
    bail_error(err);
    if (params->mwp_query_request_func != nullptr) {
        err = bn_set_session_callback_query_request_msg(sess, params->mwp_query_request_func,
                                                        params->mwp_query_request_data);
        bail_error(err);
    }
    if (params->mwp_set_request_func != nullptr) {
        err = bn_set_session_callback_set_request_msg(sess, params->mwp_set_request_func,
                                                      params->mwp_set_request_data);
        bail_error(err);
    }
    if (params->mwp_action_request_func != nullptr) {
        err = bn_set_session_callback_action_request_msg(sess, params->mwp_action_request_func,
                                                         params->mwp_action_request_data);
        bail_error(err);
    }
    if (params->mwp_event_request_func != nullptr) {
        err = bn_set_session_callback_event_request_msg(sess, params->mwp_event_request_func,
                                                        params->mwp_event_request_data);
        bail_error(err);
    }

    if (params->mwp_open_session) {
        err = gcl_session_client_connect_by_provider(sess, params->mwp_provider, true);
        if (err == lc_err_io_error || err == lc_err_io_closed) {
            // The caller decides what a daemon that isn't there means.
            bail_quiet();
        }
        bail_error(err);
    }

    num_services = uint32_array_length_quick(params->mwp_other_services);
    for (uint32 i = 0; i < num_services; ++i) {
        err = gcl_session_client_open_service_blocking(
            sess, gbp_proto_bnode, uint32_array_get_quick(params->mwp_other_services, i),
            nullptr, nullptr, -1);
        bail_error(err);
    }
    err = gcl_session_client_open_service_blocking(sess, gbp_proto_bnode, params->mwp_service,
                                                   nullptr, nullptr, -1);
    bail_error(err);

    err = mdc_init(mdc_wrapper_send_request, mwc, params->mwp_user_msg_handler_func,
                   params->mwp_user_msg_handler_data, sess, &mcc);
    bail_error(err);
    mcc->mcc_wrapper_context = mwc;
    mwc->mwc_mcc = mcc;
    mwc = nullptr;
    *ret_mcc = mcc;
    mcc = nullptr;

bail:
    mdc_wrapper_context_free(&mwc);
    mdc_deinit(&mcc);
    return err;
}

int mdc_wrapper_disconnect(md_client_context *mcc, tbool flush_output)
{
    int err = 0;
    mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(mwc);
    err = mdc_wrapper_cancel_all(mcc, true);
    bail_error(err);
    if (mwc->mwc_inited_gcl_handle) {
        err = gcl_shutdown(mwc->mwc_gcl_handle);
        bail_error(err);
    } else if (mwc->mwc_opened_gcl_session) {
        err = gcl_session_close(mwc->mwc_gcl_session, flush_output);
        bail_error(err);
    }
    if (mwc->mwc_timeout_event != nullptr) {
        err = lew_event_delete(mwc->mwc_lew_context, &mwc->mwc_timeout_event);
        bail_error(err);
    }

bail:
    return err;
}

int mdc_wrapper_deinit(md_client_context **inout_mcc)
{
    int err = 0;
    mdc_wrapper_context *mwc = nullptr;

    bail_null(inout_mcc);
    if (*inout_mcc == nullptr) {
        goto bail;
    }
    mwc = mdc_wrapper_get_context(*inout_mcc);
    (*inout_mcc)->mcc_wrapper_context = nullptr;
    err = mdc_wrapper_context_free(&mwc);
    bail_error(err);
    err = mdc_deinit(inout_mcc);
    bail_error(err);

bail:
    return err;
}

int mdc_wrapper_cancel_all(md_client_context *mcc, tbool quiet)
{
    int err = 0;
    mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(mwc);
    err = mdc_wrapper_cancel_internal(mwc, quiet ? lc_err_cancelled : lc_err_cancelled_error);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Getters.

int mdc_wrapper_get_gcl_session(const md_client_context *mcc, gcl_session **ret_session)
{
    int err = 0;
    const mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(ret_session);
    *ret_session = nullptr;
    bail_null(mwc);
    *ret_session = mwc->mwc_gcl_session;

bail:
    return err;
}

int mdc_wrapper_get_fdic_handle(const md_client_context *mcc, fdic_handle **ret_fdich)
{
    int err = 0;
    const mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(ret_fdich);
    *ret_fdich = nullptr;
    bail_null(mwc);
    *ret_fdich = mwc->mwc_fdich;

bail:
    return err;
}

int mdc_wrapper_get_num_outstanding_requests(const md_client_context *mcc, int32 *ret_num)
{
    int err = 0;
    const mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(ret_num);
    *ret_num = 0;
    bail_null(mwc);
    *ret_num = int32(uint32_array_length_quick(mwc->mwc_req_ids));

bail:
    return err;
}

int mdc_wrapper_get_num_outstanding_events(const md_client_context *mcc, int32 *ret_num)
{
    int err = 0;
    const mdc_wrapper_context *mwc = mdc_wrapper_get_context(mcc);

    bail_null(ret_num);
    *ret_num = 0;
    bail_null(mwc);
    *ret_num = mwc->mwc_num_outstanding_events;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The machinery.

int mdc_wrapper_send_request(void *data, gcl_session *session, bn_request *request,
                             bn_response **ret_response)
{
    int err = 0;
    mdc_wrapper_context *mwc = static_cast<mdc_wrapper_context *>(data);
    tbool sticky = false;
    uint32 index = 0;

    bail_null(ret_response);
    *ret_response = nullptr;
    bail_null(mwc);
    bail_null(request);

    // Once the loop has been left for good nothing more is sent: a daemon on its way
    // down must not hang on a peer that no longer answers.
    err = lew_escape_from_dispatch_is_sticky(mwc->mwc_lew_context, &sticky);
    bail_error(err);
    if (sticky) {
        lc_log_basic(LOG_ERR,
                     "Cannot send mgmtd messages now; we are in a \"sticky escape\" from the "
                     "libevent loop.  Returning immediately without sending the message, "
                     "with lc_err_cancelled.  Contents of message being dropped follow...");
        complain_error(bn_request_msg_dump(LOG_ERR, "DROPPED MSG", request));
        err = lc_err_cancelled;
        goto bail;
    }

    if (session == nullptr) {
        bail_force(lc_err_generic_error);
    }
    bail_require(session == mwc->mwc_gcl_session);

    index = uint32_array_length_quick(mwc->mwc_req_ids);
    if (mwc->mwc_max_outstanding_reqs >= 0 &&
        index >= uint32(mwc->mwc_max_outstanding_reqs)) {
        lc_log_basic(LOG_WARNING,
                     "Cannot send request; already have maximum %d requests outstanding",
                     mwc->mwc_max_outstanding_reqs);
        err = lc_err_limit_exceeded;
        goto bail;
    }

    err = mdc_wrapper_send_and_wait(mwc, session, request, index, ret_response);
    bail_error(err);

bail:
    return err;
}

int mdc_wrapper_handle_response(gcl_session *gcls, bn_response **inout_resp, void *arg)
{
    int err = 0;
    mdc_wrapper_context *mwc = static_cast<mdc_wrapper_context *>(arg);
    bn_response *resp = nullptr;
    bn_response *dup = nullptr;
    bn_msg_type type = bbmt_none;
    uint32 code = 0;
    uint32 req_msg_id = 0;
    uint32 num_ids = 0;
    bn_msg_response_callback_func func = nullptr;
    void *func_data = nullptr;

    bail_null(mwc);
    bail_null(inout_resp);
    resp = *inout_resp;
    bail_null(resp);

    type = bn_response_get_msg_type(resp);
    code = resp->brs_return_code;
    lc_log_basic((code != 0 && mwc->mwc_log_error_response) ? LOG_WARNING : LOG_DEBUG,
                 "Got %s message: code %u, message: \"%s\"", mdc_wrapper_msg_type_str(type),
                 code, ts_str_maybe_empty(resp->brs_return_message));

    if (type == bbmt_event_response && !mwc->mwc_synchronous_events) {
        // The acknowledgement of an event that nobody waits for.
        --mwc->mwc_num_outstanding_events;
        if (mwc->mwc_event_response_func != nullptr) {
            err = bn_response_msg_dup(resp, &dup);
            bail_error(err);
            err = mwc->mwc_event_response_func(gcls, &dup, mwc->mwc_event_response_data);
            bail_error(err);
        }
        if (mwc->mwc_request_complete_func != nullptr) {
            err = mwc->mwc_request_complete_func(mwc->mwc_mcc, nullptr, true, resp, -1,
                                                 mwc->mwc_request_complete_data);
            bail_error(err);
        }
        goto bail;
    }

    err = bn_response_get_msg_ids(resp, nullptr, &req_msg_id);
    bail_error(err);
    num_ids = uint32_array_length_quick(mwc->mwc_req_ids);
    for (uint32 i = 0; i < num_ids; ++i) {
        if (uint32_array_get_quick(mwc->mwc_req_ids, i) == req_msg_id) {
            // The wait at this index picks it up when it next looks.
            err = array_set(mwc->mwc_responses, i, resp);
            bail_error(err);
            *inout_resp = nullptr;
            goto bail;
        }
    }

    // Nobody waits for it: perhaps an asynchronous user does.
    switch (type) {
    case bbmt_query_response:
        func = mwc->mwc_query_response_func;
        func_data = mwc->mwc_query_response_data;
        break;
    case bbmt_set_response:
        func = mwc->mwc_set_response_func;
        func_data = mwc->mwc_set_response_data;
        break;
    case bbmt_action_response:
        func = mwc->mwc_action_response_func;
        func_data = mwc->mwc_action_response_data;
        break;
    case bbmt_event_response:
        func = mwc->mwc_event_response_func;
        func_data = mwc->mwc_event_response_data;
        break;
    default:
        lc_log_basic(LOG_WARNING, "Unexpected message type: %d", int(type));
        break;
    }
    if (func != nullptr) {
        err = func(gcls, inout_resp, func_data);
        bail_error(err);
    } else {
        lc_log_basic(LOG_WARNING, "Got response to unrecognized message %u; ignoring",
                     req_msg_id);
    }

bail:
    bn_response_msg_free(&dup);
    return err;
}

int mdc_wrapper_handle_timeout(int, short, void *data, lew_context *context)
{
    int err = 0;
    mdc_wrapper_context *mwc = static_cast<mdc_wrapper_context *>(data);

    bail_null(mwc);
    if (uint32_array_length_quick(mwc->mwc_req_ids) == 0) {
        if (mwc->mwc_timeout_event != nullptr) {
            err = lew_event_delete(context, &mwc->mwc_timeout_event);
            bail_error(err);
        }
        goto bail;
    }
    lc_log_basic(LOG_WARNING,
                 "Timing out on mgmtd after %.1f seconds, cancelling all outstanding requests",
                 double(mwc->mwc_timeout) / 1000.0);
    err = mdc_wrapper_cancel_internal(mwc, lc_err_io_timeout);
    bail_error(err);

bail:
    return err;
}

int mdc_wrapper_cancel_internal(mdc_wrapper_context *mwc, int cancel_err)
{
    int err = 0;

    bail_null(mwc);
    mwc->mwc_cancelling = true;
    mwc->mwc_cancel_err_return = cancel_err;

bail:
    return err;
}

void mdc_wrapper_free_response(void *elem)
{
    bn_response *resp = static_cast<bn_response *>(elem);
    bn_response_msg_free(&resp);
}
