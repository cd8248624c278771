// The generic body protocol of GCL sessions: a request and response envelope around an
// opaque byte string.  Every GCL handle registers it; what a program does with it is up to
// the callbacks it sets.
//
// Wire form, the whole frame body, integers big-endian: magic (GEN_PROTO_MAGIC), type,
// message id, message length, 8 bytes of an unused body, then the message bytes.
#pragma once

#include "common.h"
#include "gcl.h"

#define GEN_PROTO_MAGIC 0xFEEDF00Du
// The envelope before the message: four words and the unused body.
#define GEN_PROTO_HEADER_LEN 24

// A peer may send any number as a type: the underlying type makes every one of them a
// value of the enumeration.
enum gen_msg_type : uint32 {
    gen_none = 0,
    gen_type_request = 1,
    gen_type_response = 2,
    gen_LAST = 3,
};

enum gen_state : uint32 {
    gpss_none = 0,
    gpss_invalid = 1,
    gpss_init = 2,
    gpss_connected = 3,
    gpss_opened = 4,
    gpss_closed = 5,
};

struct gen_request {
    uint32 gen_req_flags;
    uint32 gen_req_pad;
};

struct gen_response {
    uint32 gen_req_msg_id;
    uint32 gen_res_flags;
};

union gen_body {
    gen_request gb_request;
    gen_response gb_response;
};

// The envelope as it is held in memory (host order), directly before the message.
struct gen_proto_msg {
    uint32 gen_version;
    uint32 gen_type;
    uint32 gen_msg_id;
    uint32 gen_length;
    gen_body g_DEPRECATED_body;
    uint8 g_message[];
};

// A request or response arrived: the message bytes and their length.
typedef int (*gen_msg_callback_func)(gcl_session *sess, const uint8 *msg, uint32 msg_len,
                                     void *arg);
// A connection was accepted.
typedef int (*gen_accept_callback_func)(gcl_session *sess, void *arg);

struct gen_global_state {
    gcl_bp_registration *cgs_reg;
    gen_msg_callback_func ggs_request_callback_func;
    void *ggs_request_callback_arg;
    gen_msg_callback_func ggs_response_callback_func;
    void *ggs_response_callback_arg;
    gen_accept_callback_func ggs_accept_callback_func;
    void *ggs_accept_callback_arg;
};

struct gen_session_state {
    gcl_bp_registration *gss_reg;
    gen_global_state *gss_global_state;
    uint32 gss_default_service_id;
    gen_msg_callback_func gss_request_callback_func;
    void *gss_request_callback_arg;
    gen_msg_callback_func gss_response_callback_func;
    void *gss_response_callback_arg;
    gen_accept_callback_func gss_accept_callback_func;
    void *gss_accept_callback_arg;
    gen_state gss_state;
};

int gen_init(gcl_handle *gclh);
int gen_deinit(gcl_handle *gclh);

int gen_set_request_callback(gcl_handle *gclh, gen_msg_callback_func callback_func,
                             void *callback_arg);
int gen_set_response_callback(gcl_handle *gclh, gen_msg_callback_func callback_func,
                              void *callback_arg);
int gen_set_accept_callback(gcl_handle *gclh, gen_accept_callback_func callback_func,
                            void *callback_arg);

// A zeroed message of msg_len bytes behind its envelope; *ret_req_msg is the message.
int gen_msg_create(uint8 **ret_req_msg, gen_msg_type msg_type, uint32 msg_len);
// Frees a message of gen_msg_create and nulls the pointer; null is fine.
int gen_msg_free(uint8 **ret_msg);
// Sends a message of gen_msg_create; another pointer is lc_err_assertion_failed.
int gen_msg_send(gcl_session *sess, const uint8 *msg);
// One line: "<prefix>:<session>... type N (name)".
int gen_msg_dump(const gcl_session *sess, const uint8 *gen_msg, int log_level, const char *prefix);

// Registration callbacks.
int gen_session_new(gcl_handle *gclh, gcl_session *sess, void *arg);
int gen_connection_accepted(gcl_handle *gclh, gcl_session *sess, void *arg);
int gen_session_free(gcl_handle *gclh, gcl_session *sess, void *arg);
int gen_query_session_state(gcl_handle *gclh, gcl_session *sess, uint32 *ret_state, void *arg);
int gen_msg_recv_catchall(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame, void *arg);
