// The provider side of sessions: a listening session on a named socket, the sessions it
// accepts, and the provider's half of the admin hand-shake (the greeting, the check of the
// client's answer, the answer to an open-service request).
//
// A listening session is a gcl_session with gs_is_provider set and gs_provider_accepted
// clear; each accepted connection becomes a session of its own (gs_provider_accepted set)
// that reads, queues and closes exactly as a client session does, with per-protocol states
// made for every registered protocol and frames numbered from 1000001.
//
// The same handle may hold client and provider sessions at once: the provider's admin
// message handlers are added to the handle's admin registration by the first
// gcl_session_provider_new, and refuse frames that arrive on a client session.
#pragma once

#include "gcl.h"

// Called for every accepted session, once its greeting is queued: (listening session, new
// session, arg).  An error closes and frees the new session.
typedef int (*gcl_provider_accepted_func)(gcl_session *listen_sess, gcl_session *new_sess,
                                          void *arg);

// Decides an open-service request that the provider would grant (the protocol is
// registered and enabled, the service from 1 to 4).  Leaving *ret_return_code at 0 opens
// the service; any other value refuses it, with *ret_return_message (malloc'ed, taken over,
// may stay null) as the text of the refusal.  An error refuses with lc_err_generic_error.
typedef int (*gcl_provider_open_service_func)(gcl_session *sess, uint32 body_proto,
                                              uint32 service, const char *lang_tag,
                                              uint32 *ret_return_code,
                                              char **ret_return_message, void *arg);

struct gcl_provider_options {
    gcl_provider_accepted_func gpo_accepted_func;
    void *gpo_accepted_arg;
    gcl_provider_open_service_func gpo_open_service_func;
    void *gpo_open_service_arg;
};

// Services a client may open: 1 to gcl_provider_service_id_max.
static constexpr uint32 gcl_provider_service_id_min = 1;
static constexpr uint32 gcl_provider_service_id_max = 4;

int gcl_provider_options_get_defaults(gcl_provider_options *ret_gpo);

// Makes a listening session named `provider_name` (no "-" or "/", shorter than 32 bytes),
// bound to `local_addr` or, without one, to the named socket that
// gcl_session_client_connect_by_provider looks for (made mode 0777).  `options` may be null
// for the defaults.  The session stays in gss_initialized until enabled.
int gcl_session_provider_new(gcl_handle *gh, const char *provider_name,
                             const gcl_provider_options *options, const sockaddr *local_addr,
                             socklen_t local_addr_len, gcl_session **ret_session);

// Starts listening: gss_listening, and readable interest in the handle's fdic_handle, on
// which every pending connection is accepted.
int gcl_session_provider_enable(gcl_session *listen_sess);

// Accepts one pending connection into a new connected session, tells every enabled
// protocol (the admin one sends the greeting) and then the accepted callback.  With
// nothing pending, or with accepting suspended, *ret_session (may be null) is null and the
// result 0.  When the handle is full of sessions or the process out of descriptors,
// listening is suspended for gcl_provider_listen_suspend_timeout.
int gcl_session_provider_accept(gcl_session *listen_sess, gcl_session **ret_session);

// Descriptor callback of a listening session (per-event argument: the session; callback
// argument: the handle).
int gcl_session_provider_fd_acceptable(int fd, fdic_callback_type type, void *per_event_arg,
                                       void *callback_arg);

// Timer callback that resumes the suspended listening sessions of a handle (callback
// argument: the handle).  It deletes its one-shot timer and then says lc_err_cancelled.
int gcl_session_provider_resume_listen(int fd, fdic_callback_type type, void *per_event_arg,
                                       void *callback_arg);

// ---------------------------------------------------------------------------------------
// The provider's admin messages.

// Adds the provider's handlers to the handle's admin registration; repeating is harmless.
int gbp_admin_provider_install(gcl_handle *gclh);

// Sends amt_greeting on an accepted session: our name, the owner of the listening socket
// as our identity; the admin state becomes gas_wait_greeting_response.
int gbp_admin_msg_send_greeting(gcl_session *sess);

// Takes the client's amt_greeting_response and checks the identity it claims against the
// peer's credentials: a -1/-1 claim takes them, a root peer may claim any identity, anyone
// else only its own.  Accepted: gas_open_no_service and the admin-ready callback; refused:
// the session is closed.
int gbp_admin_msg_recv_greeting_response(gcl_handle *gclh, gcl_session *sess,
                                         tbuf **inout_frame, void *arg);

// Takes amt_open_service and answers it with amt_open_service_response.
int gbp_admin_msg_recv_open_service(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame,
                                    void *arg);

// Sends amt_open_service_response; a null lang_tag or return_message is empty.
int gbp_admin_msg_send_open_service_response(gcl_session *sess, uint32 resp_msg_id,
                                             uint32 transaction_id, const char *lang_tag,
                                             uint32 return_code, const char *return_message);
