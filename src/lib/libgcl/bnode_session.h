// The bnode body protocol on a GCL session: its registration with a handle, its state on
// each session, the callbacks that receive management messages, and the sending of
// requests and responses with their message and transaction ids.
//
// Every message sent takes a fresh message id from the handle's counter (also a response,
// also a message sent again); a transaction id of 0 is replaced by a new one, a non-zero
// one is kept.  A received frame is read into a request or response and handed to the
// session's callback of its kind, with the handle and session locks held; both locks are
// recursive, so that a callback may send its answer from inside.
#pragma once

#include "bnode_proto.h"
#include "common.h"
#include "gcl.h"
#include "tbuffer.h"

// The callbacks of received messages.  The double pointer is the message's ownership: the
// callback may take it and null the pointer; what stays is freed after it returns.
typedef int (*bn_msg_request_callback_func)(gcl_session *sess, bn_request **inout_request,
                                            void *arg);
typedef int (*bn_msg_response_callback_func)(gcl_session *sess, bn_response **inout_response,
                                             void *arg);

// One callback and its argument per message kind.
struct bn_msg_callbacks {
    bn_msg_request_callback_func bmc_query_request_func;
    void *bmc_query_request_arg;
    bn_msg_response_callback_func bmc_query_response_func;
    void *bmc_query_response_arg;
    bn_msg_request_callback_func bmc_set_request_func;
    void *bmc_set_request_arg;
    bn_msg_response_callback_func bmc_set_response_func;
    void *bmc_set_response_arg;
    bn_msg_request_callback_func bmc_action_request_func;
    void *bmc_action_request_arg;
    bn_msg_response_callback_func bmc_action_response_func;
    void *bmc_action_response_arg;
    bn_msg_request_callback_func bmc_event_request_func;
    void *bmc_event_request_arg;
    bn_msg_response_callback_func bmc_event_response_func;
    void *bmc_event_response_arg;
};

// One per handle, owned by the registration (gbpr_state_ptr).
struct bn_global_state {
    gcl_bp_registration *bgs_reg;          // the handle's copy of the registration
    uint32 bgs_next_msg_id;                // starts at 1
    uint32 bgs_next_transaction_id;        // starts at 1
    bn_msg_callbacks bgs_callbacks;        // the defaults of new sessions
};

// One per session, under gs_bp_state_ptr[gbp_proto_bnode].
struct bn_session_state {
    gcl_bp_registration *bss_reg;
    bn_global_state *bss_global_state;
    uint32 bss_default_service_id;         // 0 until looked up in the admin state
    uint64 bnb_sent_msgs;                  // messages handed to the session layer
    bn_msg_callbacks bss_callbacks;        // copied from the global state at creation
    bn_state bss_state;
};

// The ids of a message as they were before a send.
struct bn_request_preserves {
    uint32 brp_msg_id;
    uint16 brp_service_id;
    uint32 brp_transaction_id;
};

// ---------------------------------------------------------------------------------------
// Registration.

// Registers protocol 2 ("bnode") with the handle, with a catch-all message callback.
int bn_init(gcl_handle *gclh);
// Drops the registration and its global state.  Sessions must be freed before.
int bn_deinit(gcl_handle *gclh);

// The per-session state: made with the session (a second one is lc_err_assertion_failed),
// freed with it; the query gives bss_state (bss_none without a state).
int bn_session_new(gcl_handle *gclh, gcl_session *sess, void *arg);
int bn_session_free(gcl_handle *gclh, gcl_session *sess, void *arg);
int bn_query_session_state(gcl_handle *gclh, gcl_session *sess, uint32 *ret_state, void *arg);

// The session's bnode state, or null.
bn_session_state *bn_get_session_state(const gcl_session *sess);

// Replace one callback of a session; a null function removes it.
int bn_set_session_callback_query_request_msg(gcl_session *sess,
                                              bn_msg_request_callback_func callback_func,
                                              void *callback_arg);
int bn_set_session_callback_query_response_msg(gcl_session *sess,
                                               bn_msg_response_callback_func callback_func,
                                               void *callback_arg);
int bn_set_session_callback_set_request_msg(gcl_session *sess,
                                            bn_msg_request_callback_func callback_func,
                                            void *callback_arg);
int bn_set_session_callback_set_response_msg(gcl_session *sess,
                                             bn_msg_response_callback_func callback_func,
                                             void *callback_arg);
int bn_set_session_callback_action_request_msg(gcl_session *sess,
                                               bn_msg_request_callback_func callback_func,
                                               void *callback_arg);
int bn_set_session_callback_action_response_msg(gcl_session *sess,
                                                bn_msg_response_callback_func callback_func,
                                                void *callback_arg);
int bn_set_session_callback_event_request_msg(gcl_session *sess,
                                              bn_msg_request_callback_func callback_func,
                                              void *callback_arg);
int bn_set_session_callback_event_response_msg(gcl_session *sess,
                                               bn_msg_response_callback_func callback_func,
                                               void *callback_arg);

// ---------------------------------------------------------------------------------------
// Sending.  The message stays the caller's; its header is updated with the ids it was sent
// with (a service id of 0 becomes the session's default).  A session that isn't connected
// drops the message with a log line, and that is a success.

int bn_request_msg_send(gcl_session *sess, bn_request *inout_req_msg);
// ret_preserves (may be null) receives the ids the message had before.
int bn_request_msg_preserve_send(gcl_session *sess, bn_request *inout_req_msg,
                                 bn_request_preserves *ret_preserves);
int bn_response_msg_send(gcl_session *sess, bn_response *inout_req_msg);
// Sends a response frame received on another session as it stands, for a relay whose
// answer is the one it got: only the header changes, to this session's next message and
// transaction ids, its default service and req_msg_id.  The frame (32 bytes of room in
// front, as received) is taken over and the caller's pointer nulled.
int bn_response_frame_relay(gcl_session *sess, tbuf **inout_frame, uint32 req_msg_id);
// Creates, sets the service when it isn't 0, sends and frees a response without nodes.
int bn_response_msg_create_send(gcl_session *sess, bn_msg_type resp_type,
                                uint32 request_msg_id, uint32 return_code,
                                const char *return_msg, uint16 service_id);

// ---------------------------------------------------------------------------------------
// Receiving.

// Read the message starting extra_header_space bytes into frame, under the session locks.
// A response whose service isn't open on the session is logged and freed: success with a
// null *ret_response.
int bn_request_msg_recv(gcl_session *sess, const tbuf *frame, uint32 extra_header_space,
                        bn_request **ret_request);
int bn_response_msg_recv(gcl_session *sess, const tbuf *frame, uint32 extra_header_space,
                         bn_response **ret_response);

// The registration's catch-all: a complete frame of protocol 2, header in host order.
// The frame is taken over.
int bn_msg_recv_catchall(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame, void *arg);
