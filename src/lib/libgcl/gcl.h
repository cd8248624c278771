// The session layer: one stream socket per session, cut into frames of a 32-byte header
// and a body, an output queue per session, and dispatch of each received frame to the body
// protocol registered under its number (admin, bnode, gen).  The process is always the
// client; the admin body protocol (gcl_admin.cc) authenticates the session and opens a
// service on it.
//
// Descriptors and timers are wanted through an fdic_handle, so that any loop (or the
// blocking loop of gcl_session_do_blocking_io) can drive the sessions.
//
// Locking: gh_lock then gs_lock, always in that order; both are recursive because the
// protocols' callbacks re-enter the layer.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include "common.h"
#include "fdintrcb.h"
#include "tbuffer.h"

struct lc_lock;
struct gcl_handle;
struct gcl_session;

// ---------------------------------------------------------------------------------------
// Frames.

static constexpr uint32 gcl_frame_version = 1;
static constexpr uint32 gcl_frame_header_len = 32;
static constexpr uint32 gcl_read_buffer_initial_size = 131072;
static constexpr uint32 gcl_read_buffer_min_free = 65536;
static constexpr uint32 gcl_read_max_per_read = 1048576;
static constexpr uint16 gcl_body_msg_type_catchall = 0;
static constexpr uint32 gcl_bwlimit_chunk_max_per_write = 32768;
static constexpr int32 gcl_max_sessions_default = 500;
static constexpr int32 gcl_max_sessions_minimum = 50;
static constexpr lt_dur_ms gcl_provider_listen_suspend_timeout = 9000;
static constexpr uint32 gcl_session_connect_retry_count = 30;
static constexpr lt_dur_ms gcl_session_connect_retry_delay_ms = 1500;
static constexpr lt_dur_ms gcl_session_open_timeout = 15000;
static constexpr mode_t gcl_sock_socket_mode = 0777;
static constexpr uint16 bap_version = 2;

// The socket directory and the forms of the socket names in it.
#define GCL_SOCK_DIR "/vtmp/gcl-socks/"
// A descriptor at or above this can't be handed to the blocking loop.
static constexpr int gcl_max_poll_fd = 131072;

// The header as it is in memory; on the wire every integer is big-endian.
struct __attribute__((packed)) gcl_frame_header {
    char gf_ident[4];            // "GCLF"
    char gf_order_bytes[4];      // "0123"; nobody reads it
    uint32 gf_version;           // gcl_frame_version
    uint32 gf_length;            // the whole frame
    uint16 gf_hdr_length;        // 32
    uint16 gf_flags;             // 0
    uint32 gf_seqno;
    uint16 gf_body_proto;        // gcl_body_proto
    uint16 gf_body_msg_type;
    uint32 gf_body_length;       // gf_length - 32
};
static_assert(sizeof(gcl_frame_header) == gcl_frame_header_len, "frame header is 32 bytes");

enum gcl_body_proto {
    gbp_none = 0,
    gbp_proto_admin = 1,
    gbp_proto_bnode = 2,
    gbp_proto_gen = 3,
};
extern const lc_enum_string_map gcl_body_proto_map[];

// Room for protocol numbers and message types in the registration tables.
static constexpr uint32 gcl_body_proto_max = 16;
static constexpr uint32 gcl_body_msg_type_max = 64;

// Converts a header between wire and host order in place; frames under 32 bytes are
// refused with lc_err_assertion_failed.  The same operation in both directions.
int gcl_byte_swap_frame_header(uint8 *inout_frame, uint32 frame_len);

// ---------------------------------------------------------------------------------------
// States and options.

enum gcl_session_state {
    gss_none = 0,
    gss_closed = 1,
    gss_initialized = 2,
    gss_listening = 3,
    gss_connected = 4,
};
extern const lc_enum_string_map gcl_session_state_map[];

enum gbp_admin_state {
    gas_none = 0,
    gas_invalid = 1,
    gas_init = 2,
    gas_connected = 3,
    gas_wait_greeting_response = 4,
    gas_open_no_service = 5,
    gas_wait_service_open_response = 6,
    gas_service_ready = 7,
    gas_closed = 8,
};

typedef uint32 gs_option_flags_bf;
enum {
    gof_none = 0,
    gof_interactive_yes = 1,
    gof_interactive_no = 2,
    gof_interactive_mask = 3,
    gof_not_provider = 4,
};

// Special uid and gid arguments of a client.
static constexpr int32 ggid_auto = -1;
static constexpr int32 ggid_remote_chooses = -2;

// Called when the admin hand-shake of a session is done: (sess, ready, closing, arg).
typedef int (*gcl_session_admin_ready_func)(gcl_session *sess, tbool ready, tbool closing,
                                            void *arg);
// Called when a service opens: (sess, protocol, service, available, closing, arg).
typedef int (*gcl_session_service_available_func)(gcl_session *sess, gcl_body_proto proto,
                                                  uint32 service_id, tbool available,
                                                  tbool closing, void *arg);

struct gcl_global_options {
    tbool ggo_register_event_changes_only;
    gcl_session_admin_ready_func ggo_admin_ready_func;
    void *ggo_admin_ready_arg;
    gcl_session_service_available_func ggo_service_avail_func;
    void *ggo_service_avail_arg;
    char ggo_handle_id[32];
    int32 ggo_max_sessions;
};

// ---------------------------------------------------------------------------------------
// Body protocol registration.

// A session event of a protocol: new, accepted, established, closed, free.
typedef int (*gcl_bp_session_func)(gcl_handle *gclh, gcl_session *sess, void *arg);
// The protocol's state on a session, as a number of its own enum.
typedef int (*gcl_bp_query_session_state_func)(gcl_handle *gclh, gcl_session *sess,
                                               uint32 *ret_state, void *arg);
// A received frame (header in host order, then the body); the callee takes it over and
// nulls the pointer, or leaves it to be freed after it returns.
typedef int (*gcl_bp_msg_func)(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame,
                               void *arg);

struct gcl_bp_msg_callback_state {
    uint16 mcs_body_proto;
    uint16 mcs_body_msg_type;
    gcl_bp_msg_func mcs_func;    // null: no callback for this type
    void *mcs_arg;
};

struct gcl_bp_registration {
    uint16 gbpr_body_proto;
    char gbpr_proto_name[32];
    gcl_bp_session_func gbpr_session_new;
    void *gbpr_session_new_arg;
    tbool gbpr_enabled;
    gcl_bp_session_func gbpr_connection_accepted;
    void *gbpr_connection_accepted_arg;
    gcl_bp_session_func gbpr_connection_established;
    void *gbpr_connection_established_arg;
    gcl_bp_session_func gbpr_connection_closed;
    void *gbpr_connection_closed_arg;
    gcl_bp_session_func gbpr_session_free;
    void *gbpr_session_free_arg;
    gcl_bp_query_session_state_func gbpr_query_session_state;
    void *gbpr_query_session_state_arg;
    gcl_bp_msg_callback_state gbpr_msg_callbacks[gcl_body_msg_type_max];  // by type
    void *gbpr_state_ptr;        // the protocol's global state; the protocol owns it
};

// ---------------------------------------------------------------------------------------
// Handle and session.

struct gcl_handle {
    gcl_session **gh_sessions;            // live sessions, gh_num_sessions of them
    uint32 gh_num_sessions;
    uint32 gh_sessions_size;
    tbool allocated;
    uint32 generation;
    fdic_handle *gh_fich;                 // borrowed
    tbool gh_register_event_changes_only;
    gcl_session_admin_ready_func gh_session_admin_ready_func;
    void *gh_session_admin_ready_arg;
    gcl_session_service_available_func gh_session_service_available_func;
    void *gh_session_service_available_arg;
    char gh_id[32];
    char gh_id_ws[34];                    // gh_id and a blank, or empty
    gcl_bp_registration *gh_bp_reg[gcl_body_proto_max];  // owned copies, by number
    int32 gh_next_sess_id;
    tbool gh_random_seeded;
    int32 gh_max_sessions;
    tbool gh_suspend_accept_timer_active;
    int32 gh_suspend_accept_timer_fdic_id;
    lc_lock *gh_lock;
};

struct gcl_frame_state {
    gcl_session *gfs_session;
    uint32 gfs_seqno;
    uint8 *gfs_frame;                     // owned; header in wire order
    uint32 gfs_frame_length;
    uint32 gfs_bytes_sent;
    int64 gfs_time_enqueue;
    int64 gfs_time_send_start;
    int64 gfs_time_send_end;
    int64 gfs_time_send_latest;
    gcl_frame_state *gfs_link;            // the next in the queue
};

struct gcl_frame_queue {
    gcl_frame_state *tqh_first;
    gcl_frame_state **tqh_last;           // the link to fill next
};

struct gcl_session {
    gcl_handle *gs_gcl_handle;
    tbool allocated;
    uint32 generation;
    int32 gs_id;
    int gs_fd;
    int32 gs_fdic_fd_id;                  // -1 while no descriptor event exists
    tbool gs_timeout_active;
    int32 gs_fdic_timeout_id;
    char *gs_local_name;
    gcl_session_state gs_state;
    tbool gs_is_provider;
    tbool gs_provider_enabled;
    tbool gs_provider_accepted;
    tbool gs_provider_pre_listened;
    tbool gs_provider_listen_suspended;
    sockaddr_storage gs_addr_local;
    socklen_t gs_addr_local_len;
    sockaddr_storage gs_addr_remote;
    socklen_t gs_addr_remote_len;
    char *gs_ud_socket_path;
    int32 gs_self_uid;
    int32 gs_self_gid;
    char *gs_self_username;
    tbool gs_self_interactive;
    uint32 gs_next_seq_no;
    gcl_frame_queue gs_output_queue;
    tbool gs_check_writable;
    tbuf *gs_input_buffer;
    uint32 gs_input_buffer_start_offset;
    tbool gs_read_parsed_frame_header;
    uint32 gs_read_frame_total_length;
    void *gs_bp_state_ptr[gcl_body_proto_max];  // owned by each protocol, by number
    uint64 gs_msg_sent_frames;
    uint64 gs_msg_sent_bytes;
    uint64 gs_msg_pending_outgoing_frames;
    uint64 gs_msg_pending_outgoing_bytes;
    uint64 gs_msg_received_frames;
    uint64 gs_msg_received_bytes;
    uint64 gs_msg_received_dispatched_frames;
    uint64 gs_msg_received_dispatched_bytes;
    tbool gs_msg_bwlimit_enable;
    uint32 gs_msg_bwlimit_kbytes_sec;
    lc_lock *gs_lock;
};

// ---------------------------------------------------------------------------------------
// The handle.

int gcl_options_get_defaults(gcl_global_options *ret_ggo);
// `options` may be null for the defaults; `fdich` is borrowed and must outlive the handle.
int gcl_init(gcl_handle **ret_gh, const gcl_global_options *options, fdic_handle *fdich);
// Closes every session.
int gcl_shutdown(gcl_handle *gh);
// Frees the remaining sessions, the registrations and the handle; nulls the pointer.
int gcl_deinit(gcl_handle **ret_gh);

// Stores a copy of the registration under its protocol number.
int gcl_register_body_protocol(gcl_handle *gh, const gcl_bp_registration *reg);
// The registration of a protocol number, or null.
gcl_bp_registration *gcl_get_body_protocol_registration(gcl_handle *gh, uint16 body_proto);

// Whether the pointer still names a live object (descriptor and timer callbacks may
// outlive their session).
tbool gcl_validate_handle(const gcl_handle *gh);
tbool gcl_validate_session(const gcl_session *sess);

// A directory put in front of GCL_SOCK_DIR (null or empty: none), for a private tree.
int gcl_set_sock_root_prefix(const char *prefix);

// Forms the AF_UNIX address of a local name.  Only address family 1 (AF_UNIX) is served.
int gcl_session_auto_sockaddr(gcl_handle *gclh, const char *local_name, tbool is_provider,
                              int address_family, sockaddr_storage *ret_addr,
                              socklen_t *ret_addr_len);

// ---------------------------------------------------------------------------------------
// Client sessions.

// `existing_fd` below 0 makes a new socket bound to the session's own address; a
// descriptor of 0 or more (a connected stream socket, taken over) makes a session that is
// already connected.
int gcl_session_client_new_internal(gcl_handle *gh, const char *client_name,
                                    gs_option_flags_bf client_flags, int32 uid, int32 gid,
                                    const char *username, const sockaddr *local_addr,
                                    socklen_t local_addr_len, int existing_fd,
                                    gcl_session **ret_session);
int gcl_session_client_set_user_new(gcl_handle *gh, const char *client_name,
                                    gs_option_flags_bf client_flags, int32 uid, int32 gid,
                                    const char *username, const sockaddr *local_addr,
                                    socklen_t local_addr_len, gcl_session **ret_session);
int gcl_session_client_connect_by_provider(gcl_session *sess, const char *provider_name,
                                           tbool retry_on_failure);
int gcl_session_client_connect_by_sockaddr(gcl_session *sess, const sockaddr *prov_sa,
                                           socklen_t prov_sa_len, tbool retry_on_failure);

int gcl_session_client_open_service(gcl_session *sess, gcl_body_proto body_proto,
                                    uint32 service, const char *lang_tag, void *service_arg);
int gcl_session_client_open_service_blocking(gcl_session *sess, gcl_body_proto body_proto,
                                             uint32 service, const char *lang_tag,
                                             void *service_arg, lt_dur_ms max_wait_ms);

// Runs a poll loop over everything wanted in the handle's fdic_handle until one of the
// wanted conditions of `sess` changes.  A negative max_wait_ms waits without limit.
int gcl_session_do_blocking_io(gcl_handle *gclh, gcl_session *sess, tbool until_message_sent,
                               tbool until_message_received, tbool until_session_state_change,
                               tbool until_bp_state_change, gcl_body_proto bp_test,
                               lt_dur_ms max_wait_ms);

// Sending.  The body is copied behind a new header.
int gcl_session_send_frame_components(gcl_session *sess, gcl_body_proto body_proto,
                                      uint16 body_msg_type, uint32 body_length,
                                      const uint8 *body);
// The buffer holds header_space_left (32) free bytes and then the body; it is taken over
// and nulled.  Another non-zero header_space_left falls back to the copying form.
int gcl_session_send_frame_components_tb(gcl_session *sess, gcl_body_proto body_proto,
                                         uint16 body_msg_type, uint32 header_space_left,
                                         tbuf **inout_frame_tb);
// Writes what the socket takes now; the rest waits for writability.
int gcl_session_run_output_queue(gcl_session *sess);

// Reading, on readability; and the framing over the input buffer.
int gcl_session_read(gcl_session *sess);
int gcl_session_read_handle_framing(gcl_session *sess);
int gcl_session_handle_read_frame(gcl_session *sess, tbuf **inout_frame);

int gcl_session_close(gcl_session *session, tbool flush_output);
// Closes the session if needed, frees it and its per-protocol states; nulls the pointer.
int gcl_session_free(gcl_session **inout_session);

// Either output may be null; ret_gas is gas_none without an admin state.
int gcl_session_get_state(const gcl_session *sess, gcl_session_state *ret_gss,
                          gbp_admin_state *ret_gas);
// Borrowed names; the peer's is null until the hand-shake names it.
int gcl_session_get_session_names(const gcl_session *sess, const char **ret_local_name,
                                  const char **ret_peer_name);

// Descriptor callbacks of a session (per-event argument: the session; callback argument:
// the handle).
int gcl_session_fd_readable(int fd, fdic_callback_type type, void *per_event_arg,
                            void *callback_arg);
int gcl_session_fd_writable(int fd, fdic_callback_type type, void *per_event_arg,
                            void *callback_arg);

// ---------------------------------------------------------------------------------------
// The admin body protocol.

enum gbp_admin_msg_type {
    amt_none = 0,
    amt_greeting = 1,
    amt_greeting_response = 2,
    amt_open_service = 3,
    amt_open_service_response = 4,
    amt_close_service = 5,
    amt_close_service_response = 6,
};

// Body sizes on the wire.
static constexpr uint32 bp_admin_msg_greeting_len = 86;
static constexpr uint32 bp_admin_msg_greeting_response_len = 90;
static constexpr uint32 bp_admin_msg_open_service_len = 48;
static constexpr uint32 bp_admin_msg_open_service_response_len = 52;
static constexpr uint32 bp_admin_name_len = 32;

struct gbp_admin_global_state {
    gcl_bp_registration *gag_reg;
    uint32 gag_next_msg_id;
    uint32 gag_next_transaction_id;
};

struct gbp_admin_session_state {
    gcl_bp_registration *gas_reg;
    gbp_admin_global_state *gas_global_state;
    tbool gas_auth_remote_done;
    int32 gas_auth_remote_uid;
    int32 gas_auth_remote_gid;
    char *gas_auth_remote_username;
    tbool gas_auth_remote_interactive;
    tbool gas_auth_incoming_done;
    int32 gas_auth_incoming_uid;
    int32 gas_auth_incoming_gid;
    char *gas_auth_incoming_username;
    tbool gas_auth_incoming_interactive;
    char *gas_peer_name;
    uint32 gas_service_id_open_mask;
    uint32 gas_service_id_open_pending;
    uint32 gas_default_service_id;
    char *gas_lang_tag;
    gbp_admin_state gas_state;
};

int gbp_admin_init(gcl_handle *gclh);
int gbp_admin_deinit(gcl_handle *gclh);
// The admin state of a session, or null.
gbp_admin_session_state *gbp_admin_get_session_state(const gcl_session *sess);

int gbp_admin_msg_send_greeting_response(gcl_session *sess);
int gbp_admin_msg_recv_greeting(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame,
                                void *arg);
int gbp_admin_msg_send_open_service(gcl_session *sess, gcl_body_proto body_proto,
                                    uint32 service, const char *lang_tag);
int gbp_admin_msg_recv_open_service_response(gcl_handle *gclh, gcl_session *sess,
                                             tbuf **inout_frame, void *arg);
