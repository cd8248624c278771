// Helpers shared by the session layer's own files; not for its users.
#pragma once

#include "gcl.h"

// The prefix of every session log line: the handle's id and a blank, or nothing.
const char *gcl_log_prefix(const gcl_session *sess);

// Process-wide bookkeeping of live handles and sessions.
void gcl_live_handle_add(gcl_handle *gh);
void gcl_live_handle_remove(gcl_handle *gh);
void gcl_live_session_add(gcl_session *sess);
void gcl_live_session_remove(gcl_session *sess);

// Both locks of a session, in order, released on scope exit.
class gcl_session_locker {
public:
    explicit gcl_session_locker(gcl_session *sess);
    ~gcl_session_locker();
    gcl_session_locker(const gcl_session_locker &) = delete;
    gcl_session_locker &operator=(const gcl_session_locker &) = delete;

private:
    lc_lock *gh_lock_;
    lc_lock *gs_lock_;
};

// Fills the header in host order in front of a frame of frame_len bytes.
void gcl_frame_header_fill(uint8 *frame, uint32 frame_len, uint32 seqno, uint16 body_proto,
                           uint16 body_msg_type);

// Small I/O helpers over a non-blocking descriptor.
int gcl_lf_is_writable(int fd, tbool *ret_writable);
// lc_err_io_blocking_error when nothing can be written now, lc_err_io_closed when the
// peer is gone.
int gcl_lf_write_bytes(int fd, const uint8 *buf, uint32 count, uint32 *ret_written);
// *ret_eof is set at end of file; a would-block read gives 0 bytes and no error.
int gcl_lf_read_bytes_closed(int fd, uint8 *buf, uint32 count, uint32 *ret_read,
                             tbool *ret_eof, int *ret_errno);
int gcl_lf_get_file_owner(const char *path, int32 *ret_uid, int32 *ret_gid);

// A new session in gss_initialized, entered in the handle, with the per-protocol states of
// every registered protocol made; a provider session numbers its frames from 1000001.
int gcl_session_new(gcl_handle *gh, tbool is_provider, gcl_session **ret_sess);

// The fixed-width, NUL-padded name fields of the admin protocol's frames.
int gas_put_name(tbuf *tb, uint32 offset, const char *name);
// *ret_name is replaced by a heap copy of the field's text.
int gas_get_name(const tbuf *tb, uint32 offset, char **ret_name);
