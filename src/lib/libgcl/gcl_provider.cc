// The provider side of sessions: listening, accepting, and the provider's half of the
// admin hand-shake.
#include <errno.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "gcl.h"
#include "gcl_internal.h"
#include "gcl_provider.h"
#include "lock_mt.h"
#include "logging.h"

namespace {

constexpr uint32 H = gcl_frame_header_len;

// The provider options of listening and accepted sessions, by session.  The entries are
// plain values; one whose session is gone (or whose slot was reused, seen by the
// generation) is dropped when found.
struct gcl_provider_entry {
    uint32 gpe_generation;
    gcl_provider_options gpe_options;
};
std::mutex g_provider_mutex;
std::map<const gcl_session *, gcl_provider_entry> g_provider_entries;

void gcl_provider_entry_set(const gcl_session *sess, const gcl_provider_options &options)
{
    std::lock_guard<std::mutex> guard(g_provider_mutex);
    for (auto it = g_provider_entries.begin(); it != g_provider_entries.end();) {
        if (!gcl_validate_session(it->first) ||
            it->first->generation != it->second.gpe_generation) {
            it = g_provider_entries.erase(it);
        } else {
            ++it;
        }
    }
    g_provider_entries[sess] = {sess->generation, options};
}

void gcl_provider_entry_remove(const gcl_session *sess)
{
    std::lock_guard<std::mutex> guard(g_provider_mutex);
    g_provider_entries.erase(sess);
}

gcl_provider_options gcl_provider_entry_get(const gcl_session *sess)
{
    gcl_provider_options options;
    memset(&options, 0, sizeof(options));
    std::lock_guard<std::mutex> guard(g_provider_mutex);
    const auto it = g_provider_entries.find(sess);
    if (it != g_provider_entries.end() && it->second.gpe_generation == sess->generation) {
        options = it->second.gpe_options;
    }
    return options;
}

// The admin protocol's part of accepting: connected, then the greeting.
int gbp_admin_connection_accepted(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    (void)gclh;
    (void)arg;
    bail_null(gas);
    gas->gas_state = gas_connected;
    err = gbp_admin_msg_send_greeting(sess);
    bail_error(err);
bail:
    return err;
}

// Stops watching the listening sessions of a handle for a while.
int gcl_provider_suspend_listen(gcl_session *listen_sess)
{
    int err = 0;
    gcl_handle *gh = listen_sess->gs_gcl_handle;

    if (!listen_sess->gs_provider_listen_suspended) {
        lc_log_basic(LOG_WARNING, "%ssession %d: suspending accepts for %lld ms",
                     gcl_log_prefix(listen_sess), listen_sess->gs_id,
                     static_cast<long long>(gcl_provider_listen_suspend_timeout));
        listen_sess->gs_provider_listen_suspended = true;
        if (listen_sess->gs_fdic_fd_id >= 0 && gh->gh_fich != nullptr) {
            err = fdic_event_update_fd(gh->gh_fich, listen_sess->gs_fdic_fd_id, false, false);
            bail_error(err);
        }
    }
    if (!gh->gh_suspend_accept_timer_active && gh->gh_fich != nullptr) {
        err = fdic_event_add_timer(gh->gh_fich, gcl_provider_listen_suspend_timeout, nullptr,
                                   gcl_session_provider_resume_listen, gh,
                                   &gh->gh_suspend_accept_timer_fdic_id);
        bail_error(err);
        gh->gh_suspend_accept_timer_active = true;
    }
bail:
    return err;
}

tbool gcl_provider_accept_errno_is_transient(int accept_errno)
{
    return accept_errno == EAGAIN || accept_errno == EWOULDBLOCK ||
           accept_errno == ECONNABORTED || accept_errno == EINTR || accept_errno == EPROTO;
}

tbool gcl_provider_accept_errno_is_exhaustion(int accept_errno)
{
    return accept_errno == EMFILE || accept_errno == ENFILE || accept_errno == ENOBUFS ||
           accept_errno == ENOMEM;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Listening.

int gcl_provider_options_get_defaults(gcl_provider_options *ret_gpo)
{
    int err = 0;
    bail_null(ret_gpo);
    memset(ret_gpo, 0, sizeof(*ret_gpo));
bail:
    return err;
}

int gcl_session_provider_new(gcl_handle *gh, const char *provider_name,
                             const gcl_provider_options *options, const sockaddr *local_addr,
                             socklen_t local_addr_len, gcl_session **ret_session)
{
    int err = 0;
    gcl_session *sess = nullptr;
    gcl_provider_options defaults;
    const sockaddr_un *sun = nullptr;
    int family = 0;

    bail_null(gh);
    bail_null(provider_name);
    bail_null(ret_session);
    *ret_session = nullptr;
    if (provider_name[0] == '\0' || strchr(provider_name, '-') != nullptr ||
        strchr(provider_name, '/') != nullptr) {
        lc_log_basic(LOG_ERR, "Invalid character in provider name: %s", provider_name);
        err = lc_err_generic_error;
        goto bail;
    }
    if (strlen(provider_name) >= bp_admin_name_len) {
        lc_log_basic(LOG_ERR, "Provider name too long: %s", provider_name);
        err = lc_err_generic_error;
        goto bail;
    }
    if (options == nullptr) {
        err = gcl_provider_options_get_defaults(&defaults);
        bail_error(err);
        options = &defaults;
    }

    err = gbp_admin_provider_install(gh);
    bail_error(err);
    lc_lock_lock(gh->gh_lock);
    err = gcl_session_new(gh, true, &sess);
    lc_lock_unlock(gh->gh_lock);
    bail_error(err);
    gcl_provider_entry_set(sess, *options);

    sess->gs_local_name = safe_strdup(provider_name);
    bail_null(sess->gs_local_name);
    if (local_addr != nullptr && local_addr_len > 0) {
        bail_require(local_addr_len <= sizeof(sess->gs_addr_local));
        memcpy(&sess->gs_addr_local, local_addr, local_addr_len);
        sess->gs_addr_local_len = local_addr_len;
    } else {
        err = gcl_session_auto_sockaddr(gh, provider_name, true, AF_UNIX, &sess->gs_addr_local,
                                        &sess->gs_addr_local_len);
        bail_error(err);
    }
    family = sess->gs_addr_local.ss_family;
    sess->gs_fd = socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (sess->gs_fd < 0) {
        if (errno == EAFNOSUPPORT) {
            bail_errno(lc_err_io_bad_family, "socket family %d", family);
        }
        bail_errno(lc_err_io_error, "socket");
    }
    if (family == AF_INET || family == AF_INET6) {
        const int one = 1;
        setsockopt(sess->gs_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    }
    if (family == AF_UNIX) {
        sun = reinterpret_cast<const sockaddr_un *>(&sess->gs_addr_local);
        sess->gs_ud_socket_path = safe_strdup(sun->sun_path);
        bail_null(sess->gs_ud_socket_path);
        unlink(sess->gs_ud_socket_path);
    }
    if (bind(sess->gs_fd, reinterpret_cast<const sockaddr *>(&sess->gs_addr_local),
             sess->gs_addr_local_len) != 0) {
        bail_errno(lc_err_io_error, "bind %s",
                   sess->gs_ud_socket_path != nullptr ? sess->gs_ud_socket_path : "");
    }
    if (sess->gs_ud_socket_path != nullptr &&
        chmod(sess->gs_ud_socket_path, gcl_sock_socket_mode) != 0) {
        bail_errno(lc_err_io_error, "chmod %s", sess->gs_ud_socket_path);
    }

    *ret_session = sess;
    sess = nullptr;

bail:
    if (sess != nullptr) {
        gcl_provider_entry_remove(sess);
        gcl_session_free(&sess);
    }
    return err;
}

int gcl_session_provider_enable(gcl_session *listen_sess)
{
    int err = 0;
    gcl_handle *gh = nullptr;

    bail_null(listen_sess);
    gh = listen_sess->gs_gcl_handle;
    {
        gcl_session_locker lock(listen_sess);
        if (!listen_sess->gs_is_provider || listen_sess->gs_provider_accepted ||
            listen_sess->gs_state != gss_initialized) {
            lc_log_basic(LOG_ERR, "%ssession %d: provider called to listen in invalid state: %d",
                         gcl_log_prefix(listen_sess), listen_sess->gs_id,
                         listen_sess->gs_state);
            err = lc_err_generic_error;
            goto bail;
        }
        if (!listen_sess->gs_provider_pre_listened) {
            if (listen(listen_sess->gs_fd, SOMAXCONN) != 0) {
                bail_errno(lc_err_io_error, "listen on fd %d", listen_sess->gs_fd);
            }
            listen_sess->gs_provider_pre_listened = true;
        }
        if (gh->gh_fich != nullptr && listen_sess->gs_fdic_fd_id < 0) {
            err = fdic_event_add_fd(gh->gh_fich, listen_sess->gs_fd, true, false, listen_sess,
                                    gcl_session_provider_fd_acceptable, gh, nullptr, nullptr,
                                    &listen_sess->gs_fdic_fd_id);
            bail_error(err);
        }
        listen_sess->gs_state = gss_listening;
        listen_sess->gs_provider_enabled = true;
        lc_log_basic(LOG_DEBUG, "%ssession %d: listening on %s", gcl_log_prefix(listen_sess),
                     listen_sess->gs_id,
                     listen_sess->gs_ud_socket_path != nullptr ? listen_sess->gs_ud_socket_path
                                                               : "");
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Accepting.

int gcl_session_provider_accept(gcl_session *listen_sess, gcl_session **ret_session)
{
    int err = 0;
    gcl_handle *gh = nullptr;
    gcl_session *sess = nullptr;
    gcl_provider_options options;
    sockaddr_storage remote;
    socklen_t remote_len = sizeof(remote);
    int fd = -1;
    int accept_errno = 0;

    memset(&options, 0, sizeof(options));
    bail_null(listen_sess);
    if (ret_session != nullptr) {
        *ret_session = nullptr;
    }
    gh = listen_sess->gs_gcl_handle;
    {
        gcl_session_locker lock(listen_sess);
        if (!listen_sess->gs_is_provider || listen_sess->gs_provider_accepted ||
            listen_sess->gs_state != gss_listening) {
            lc_log_basic(LOG_ERR, "%ssession %d: provider called to accept in invalid state: %d",
                         gcl_log_prefix(listen_sess), listen_sess->gs_id,
                         listen_sess->gs_state);
            err = lc_err_generic_error;
            goto bail;
        }
        if (listen_sess->gs_provider_listen_suspended) {
            goto bail;
        }
        if (gh->gh_max_sessions > 0 &&
            gh->gh_num_sessions >= static_cast<uint32>(gh->gh_max_sessions)) {
            lc_log_basic(LOG_WARNING, "%ssession %d: too many sessions (%u) to accept",
                         gcl_log_prefix(listen_sess), listen_sess->gs_id, gh->gh_num_sessions);
            err = gcl_provider_suspend_listen(listen_sess);
            bail_error(err);
            goto bail;
        }
        memset(&remote, 0, sizeof(remote));
        fd = accept4(listen_sess->gs_fd, reinterpret_cast<sockaddr *>(&remote), &remote_len,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            accept_errno = errno;
            if (gcl_provider_accept_errno_is_transient(accept_errno)) {
                goto bail;
            }
            if (gcl_provider_accept_errno_is_exhaustion(accept_errno)) {
                errno = accept_errno;
                lc_log_basic(LOG_WARNING, "%ssession %d: accept: %m",
                             gcl_log_prefix(listen_sess), listen_sess->gs_id);
                err = gcl_provider_suspend_listen(listen_sess);
                bail_error(err);
                goto bail;
            }
            errno = accept_errno;
            bail_errno(lc_err_io_error, "accept on fd %d", listen_sess->gs_fd);
        }

        err = gcl_session_new(gh, true, &sess);
        if (err == lc_err_limit_exceeded) {
            err = gcl_provider_suspend_listen(listen_sess);
            bail_error(err);
            goto bail;
        }
        bail_error(err);
        sess->gs_fd = fd;
        fd = -1;
        sess->gs_provider_accepted = true;
        sess->gs_provider_enabled = true;
        sess->gs_local_name = safe_strdup(listen_sess->gs_local_name);
        bail_null(sess->gs_local_name);
        if (listen_sess->gs_ud_socket_path != nullptr) {
            // Kept for the greeting's identity; an accepted session never unlinks it.
            sess->gs_ud_socket_path = safe_strdup(listen_sess->gs_ud_socket_path);
            bail_null(sess->gs_ud_socket_path);
        }
        memcpy(&sess->gs_addr_local, &listen_sess->gs_addr_local,
               sizeof(sess->gs_addr_local));
        sess->gs_addr_local_len = listen_sess->gs_addr_local_len;
        memcpy(&sess->gs_addr_remote, &remote, sizeof(remote));
        sess->gs_addr_remote_len = remote_len;
        options = gcl_provider_entry_get(listen_sess);
        gcl_provider_entry_set(sess, options);

        sess->gs_state = gss_connected;
        if (gh->gh_fich != nullptr) {
            err = fdic_event_add_fd(gh->gh_fich, sess->gs_fd, true, false, sess,
                                    gcl_session_fd_readable, gh, gcl_session_fd_writable, gh,
                                    &sess->gs_fdic_fd_id);
            bail_error(err);
        }
        lc_log_basic(LOG_DEBUG, "%ssession %d: accepted session %d on fd %d",
                     gcl_log_prefix(listen_sess), listen_sess->gs_id, sess->gs_id, sess->gs_fd);
        for (gcl_bp_registration *reg : gh->gh_bp_reg) {
            if (reg != nullptr && reg->gbpr_enabled && reg->gbpr_connection_accepted != nullptr) {
                err = reg->gbpr_connection_accepted(gh, sess, reg->gbpr_connection_accepted_arg);
                bail_error(err);
            }
        }
        if (options.gpo_accepted_func != nullptr) {
            err = options.gpo_accepted_func(listen_sess, sess, options.gpo_accepted_arg);
            bail_error(err);
        }
    }

    if (ret_session != nullptr) {
        *ret_session = sess;
    }
    sess = nullptr;

bail:
    safe_close(&fd);
    if (sess != nullptr) {
        gcl_provider_entry_remove(sess);
        complain_error(gcl_session_free(&sess));
    }
    return err;
}

int gcl_session_provider_fd_acceptable(int fd, fdic_callback_type type, void *per_event_arg,
                                       void *callback_arg)
{
    int err = 0;
    gcl_handle *gh = static_cast<gcl_handle *>(callback_arg);
    gcl_session *listen_sess = static_cast<gcl_session *>(per_event_arg);
    gcl_session *sess = nullptr;
    (void)fd;
    (void)type;

    if (!gcl_validate_handle(gh)) {
        lc_log_basic(LOG_NOTICE, "%s: GCL channel already shoutdown(%u)", __func__,
                     gh != nullptr ? gh->generation : 0);
        return lc_err_cancelled;
    }
    if (!gcl_validate_session(listen_sess) || listen_sess->gs_gcl_handle != gh) {
        lc_log_basic(LOG_NOTICE, "%s: Session previously freed!", __func__);
        return lc_err_cancelled;
    }
    if (listen_sess->gs_state != gss_listening) {
        return lc_err_cancelled;
    }
    // Everything pending, but a bounded number per wake so that a flood can't starve the
    // other descriptors.
    for (int i = 0; i < 64; ++i) {
        err = gcl_session_provider_accept(listen_sess, &sess);
        bail_error(err);
        if (sess == nullptr) {
            break;
        }
    }

bail:
    return err;
}

int gcl_session_provider_resume_listen(int fd, fdic_callback_type type, void *per_event_arg,
                                       void *callback_arg)
{
    int err = 0;
    gcl_handle *gh = static_cast<gcl_handle *>(callback_arg);
    uint32 idx = 0;
    (void)fd;
    (void)type;
    (void)per_event_arg;

    if (!gcl_validate_handle(gh)) {
        lc_log_basic(LOG_NOTICE, "%s: GCL channel already shoutdown(%u)", __func__,
                     gh != nullptr ? gh->generation : 0);
        return lc_err_cancelled;
    }
    lc_lock_lock(gh->gh_lock);
    // The timer has done its work: tear it down, and tell the caller so.
    if (gh->gh_suspend_accept_timer_active && gh->gh_fich != nullptr &&
        fdic_event_array_find_by_id(gh->gh_fich->fh_registrations,
                                    gh->gh_suspend_accept_timer_fdic_id, &idx) == 0) {
        complain_error(fdic_event_delete_timer(gh->gh_fich, gh->gh_suspend_accept_timer_fdic_id));
        err = lc_err_cancelled;
    }
    gh->gh_suspend_accept_timer_active = false;
    gh->gh_suspend_accept_timer_fdic_id = -1;
    for (uint32 i = 0; i < gh->gh_num_sessions; ++i) {
        gcl_session *sess = gh->gh_sessions[i];
        if (!sess->gs_is_provider || sess->gs_provider_accepted ||
            !sess->gs_provider_listen_suspended) {
            continue;
        }
        sess->gs_provider_listen_suspended = false;
        if (sess->gs_state == gss_listening && sess->gs_fdic_fd_id >= 0 &&
            gh->gh_fich != nullptr) {
            lc_log_basic(LOG_INFO, "%ssession %d: resuming accepts", gcl_log_prefix(sess),
                         sess->gs_id);
            complain_error(fdic_event_update_fd(gh->gh_fich, sess->gs_fdic_fd_id, true, false));
        }
    }
    lc_lock_unlock(gh->gh_lock);
    return err;
}

// ---------------------------------------------------------------------------------------
// The admin hand-shake, provider side.

int gbp_admin_provider_install(gcl_handle *gclh)
{
    int err = 0;
    gcl_bp_registration *reg = nullptr;

    bail_null(gclh);
    lc_lock_lock(gclh->gh_lock);
    reg = gcl_get_body_protocol_registration(gclh, gbp_proto_admin);
    if (reg == nullptr) {
        lc_lock_unlock(gclh->gh_lock);
        bail_null(reg);
    }
    reg->gbpr_msg_callbacks[amt_greeting_response] = {
        gbp_proto_admin, amt_greeting_response, gbp_admin_msg_recv_greeting_response, nullptr};
    reg->gbpr_msg_callbacks[amt_open_service] = {gbp_proto_admin, amt_open_service,
                                                 gbp_admin_msg_recv_open_service, nullptr};
    if (reg->gbpr_connection_accepted == nullptr) {
        reg->gbpr_connection_accepted = gbp_admin_connection_accepted;
        reg->gbpr_connection_accepted_arg = nullptr;
    }
    lc_lock_unlock(gclh->gh_lock);

bail:
    return err;
}

int gbp_admin_msg_send_greeting(gcl_session *sess)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    gbp_admin_global_state *gag = nullptr;
    tbuf *tb = nullptr;
    struct stat st;
    int32 uid = -1;
    int32 gid = -1;

    bail_null(gas);
    gag = gas->gas_global_state;
    bail_null(gag);
    bail_require(sess->gs_is_provider && sess->gs_provider_accepted);

    // The client checks our claim against the owner of the socket it connected to.
    if (sess->gs_ud_socket_path != nullptr && stat(sess->gs_ud_socket_path, &st) == 0) {
        uid = static_cast<int32>(st.st_uid);
        gid = static_cast<int32>(st.st_gid);
    } else {
        uid = sess->gs_self_uid;
        gid = sess->gs_self_gid;
    }
    gas->gas_auth_remote_uid = uid;
    gas->gas_auth_remote_gid = gid;
    gas->gas_auth_remote_interactive = sess->gs_self_interactive;
    free(gas->gas_auth_remote_username);
    gas->gas_auth_remote_username = safe_strdup(sess->gs_self_username);
    bail_null(gas->gas_auth_remote_username);

    err = tb_new_size(&tb, H + bp_admin_msg_greeting_len);
    bail_error(err);
    err = tb_set_length(tb, H);
    bail_error(err);
    err = tb_append_uint16(tb, bap_version);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_msg_id++);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_transaction_id++);
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), sess->gs_local_name);
    bail_error(err);
    err = tb_append_uint32(tb, static_cast<uint32>(uid));
    bail_error(err);
    err = tb_append_uint32(tb, static_cast<uint32>(gid));
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), gas->gas_auth_remote_username);
    bail_error(err);
    err = tb_append_uint32(tb, gas->gas_auth_remote_interactive ? 1 : 0);
    bail_error(err);
    bail_require(tb_length(tb) == H + bp_admin_msg_greeting_len);

    // Waiting before sending: a fast answer may be read within the send.
    gas->gas_state = gas_wait_greeting_response;
    err = gcl_session_send_frame_components_tb(sess, gbp_proto_admin, amt_greeting, H, &tb);
    bail_error(err);
    gas->gas_auth_remote_done = true;

bail:
    tb_free(&tb);
    return err;
}

namespace {

// Checks the identity the client claims.  *ret_ok false: refused, with the log line.
void gbp_admin_check_client_identity(gcl_session *sess, int32 uid, int32 gid, int32 *ret_uid,
                                     int32 *ret_gid, tbool *ret_ok)
{
    ucred cred;
    socklen_t cred_len = sizeof(cred);

    *ret_ok = false;
    *ret_uid = uid;
    *ret_gid = gid;
    if ((uid == -1) != (gid == -1)) {
        lc_log_basic(LOG_ERR,
                     "%ssession %d: proto admin: bad uid / gid in greeting response: %d/%d",
                     gcl_log_prefix(sess), sess->gs_id, uid, gid);
        return;
    }
    memset(&cred, 0, sizeof(cred));
    if (sess->gs_addr_local.ss_family != AF_UNIX ||
        getsockopt(sess->gs_fd, SOL_SOCKET, SO_PEERCRED, &cred, &cred_len) != 0) {
        // Nothing to check a network peer against: its claim stands.
        *ret_ok = uid != -1 || sess->gs_addr_local.ss_family == AF_UNIX;
        if (!*ret_ok) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: no identity for peer",
                         gcl_log_prefix(sess), sess->gs_id);
        }
        return;
    }
    if (uid == -1) {
        // The client leaves its identity to us: what the kernel says it is.
        *ret_uid = static_cast<int32>(cred.uid);
        *ret_gid = static_cast<int32>(cred.gid);
    } else if (cred.uid != 0 &&
               (static_cast<int32>(cred.uid) != uid || static_cast<int32>(cred.gid) != gid)) {
        lc_log_basic(LOG_ERR,
                     "%ssession %d: proto admin: bad uid / gid in greeting response: %d/%d not "
                     "%d/%d",
                     gcl_log_prefix(sess), sess->gs_id, uid, gid, static_cast<int>(cred.uid),
                     static_cast<int>(cred.gid));
        return;
    }
    *ret_ok = true;
}

}  // namespace

int gbp_admin_msg_recv_greeting_response(gcl_handle *gclh, gcl_session *sess,
                                         tbuf **inout_frame, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    const tbuf *frame = nullptr;
    uint16 version = 0;
    uint32 claim_uid = 0;
    uint32 claim_gid = 0;
    uint32 interactive = 0;
    int32 uid = -1;
    int32 gid = -1;
    char *client_name = nullptr;
    char *username = nullptr;
    tbool accepted = false;
    (void)arg;

    bail_null(gclh);
    bail_null(gas);
    bail_null(inout_frame);
    frame = *inout_frame;
    bail_null(frame);
    {
        gcl_session_locker lock(sess);
        if (!sess->gs_is_provider) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: greeting response on a client "
                         "session", gcl_log_prefix(sess), sess->gs_id);
            goto bail;
        }
        if (tb_length(frame) < H + bp_admin_msg_greeting_response_len) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: greeting response too short: %u",
                         gcl_log_prefix(sess), sess->gs_id, tb_length(frame));
            goto bail;
        }
        err = tb_get_uint16(frame, H, &version);
        bail_error(err);
        if (version != bap_version) {
            lc_log_basic(LOG_ERR,
                         "%ssession %d: proto admin: bad version in greeting response: %d not %d",
                         gcl_log_prefix(sess), sess->gs_id, version, bap_version);
            goto bail;
        }
        if (gas->gas_state != gas_wait_greeting_response) {
            lc_log_basic(LOG_ERR,
                         "%ssession %d: proto admin: bad state in greeting response:%d not %d",
                         gcl_log_prefix(sess), sess->gs_id, gas->gas_state,
                         gas_wait_greeting_response);
            goto bail;
        }
        err = gas_get_name(frame, H + 14, &client_name);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 46, &claim_uid);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 50, &claim_gid);
        bail_error(err);
        err = gas_get_name(frame, H + 54, &username);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 86, &interactive);
        bail_error(err);

        gbp_admin_check_client_identity(sess, static_cast<int32>(claim_uid),
                                        static_cast<int32>(claim_gid), &uid, &gid, &accepted);
        if (!accepted) {
            goto bail;
        }
        gas->gas_auth_incoming_uid = uid;
        gas->gas_auth_incoming_gid = gid;
        free(gas->gas_auth_incoming_username);
        gas->gas_auth_incoming_username = username;
        username = nullptr;
        gas->gas_auth_incoming_interactive = interactive != 0;
        gas->gas_auth_incoming_done = true;
        free(gas->gas_peer_name);
        gas->gas_peer_name = client_name;
        client_name = nullptr;
        gas->gas_state = gas_open_no_service;
        lc_log_basic(LOG_INFO, "%ssession %d: provider open for peer %s (local name %s)",
                     gcl_log_prefix(sess), sess->gs_id, gas->gas_peer_name,
                     sess->gs_local_name);
        if (gclh->gh_session_admin_ready_func != nullptr) {
            err = gclh->gh_session_admin_ready_func(sess, true, false,
                                                    gclh->gh_session_admin_ready_arg);
            bail_error(err);
        }
    }

bail:
    free(client_name);
    free(username);
    if (gas != nullptr && !gas->gas_auth_incoming_done && sess->gs_state != gss_closed) {
        lc_log_basic(LOG_INFO, "%ssession %d: session terminated by provider",
                     gcl_log_prefix(sess), sess->gs_id);
        complain_error(gcl_session_close(sess, false));
        err = 0;
    }
    return err;
}

int gbp_admin_msg_send_open_service_response(gcl_session *sess, uint32 resp_msg_id,
                                             uint32 transaction_id, const char *lang_tag,
                                             uint32 return_code, const char *return_message)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    gbp_admin_global_state *gag = nullptr;
    tbuf *tb = nullptr;
    const uint32 msg_len =
        return_message != nullptr ? static_cast<uint32>(strlen(return_message)) : 0;

    bail_null(gas);
    gag = gas->gas_global_state;
    bail_null(gag);
    bail_require(msg_len < 65536);

    err = tb_new_size(&tb, H + bp_admin_msg_open_service_response_len + msg_len);
    bail_error(err);
    err = tb_set_length(tb, H);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_msg_id++);
    bail_error(err);
    err = tb_append_uint32(tb, transaction_id);
    bail_error(err);
    err = tb_append_uint32(tb, resp_msg_id);
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), lang_tag);
    bail_error(err);
    err = tb_append_uint32(tb, return_code);
    bail_error(err);
    err = tb_append_uint32(tb, msg_len);
    bail_error(err);
    if (msg_len > 0) {
        err = tb_append_buf(tb, reinterpret_cast<const uint8 *>(return_message),
                            static_cast<int32>(msg_len));
        bail_error(err);
    }
    bail_require(tb_length(tb) == H + bp_admin_msg_open_service_response_len + msg_len);

    err = gcl_session_send_frame_components_tb(sess, gbp_proto_admin, amt_open_service_response,
                                               H, &tb);
    bail_error(err);

bail:
    tb_free(&tb);
    return err;
}

int gbp_admin_msg_recv_open_service(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame,
                                    void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    const tbuf *frame = nullptr;
    uint32 msg_id = 0;
    uint32 transaction_id = 0;
    uint32 body_proto = 0;
    uint32 service = 0;
    char *lang_tag = nullptr;
    char *message = nullptr;
    uint32 return_code = 0;
    const gcl_bp_registration *reg = nullptr;
    gcl_provider_options options;
    (void)arg;

    memset(&options, 0, sizeof(options));
    bail_null(gclh);
    bail_null(gas);
    bail_null(inout_frame);
    frame = *inout_frame;
    bail_null(frame);
    {
        gcl_session_locker lock(sess);
        if (!sess->gs_is_provider) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: open service on a client session",
                         gcl_log_prefix(sess), sess->gs_id);
            err = lc_err_assertion_failed;
            goto bail;
        }
        if (tb_length(frame) < H + bp_admin_msg_open_service_len) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: open service too short: %u",
                         gcl_log_prefix(sess), sess->gs_id, tb_length(frame));
            err = lc_err_assertion_failed;
            goto bail;
        }
        err = tb_get_uint32_nonnull(frame, H, &msg_id);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 4, &transaction_id);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 8, &body_proto);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 12, &service);
        bail_error(err);
        err = gas_get_name(frame, H + 16, &lang_tag);
        bail_error(err);

        if (gas->gas_state != gas_open_no_service && gas->gas_state != gas_service_ready) {
            lc_log_basic(LOG_WARNING, "%ssession %d: proto admin: open service in state %d",
                         gcl_log_prefix(sess), sess->gs_id, gas->gas_state);
            return_code = lc_err_generic_error;
            message = safe_strdup("Session not authenticated");
        } else if (service < gcl_provider_service_id_min ||
                   service > gcl_provider_service_id_max) {
            return_code = lc_err_not_found;
            message = safe_strdup("No such service");
        } else if (body_proto >= gcl_body_proto_max ||
                   (reg = gcl_get_body_protocol_registration(
                        gclh, static_cast<uint16>(body_proto))) == nullptr ||
                   !reg->gbpr_enabled) {
            return_code = lc_err_not_found;
            message = safe_strdup("No such protocol");
        } else {
            options = gcl_provider_entry_get(sess);
            if (options.gpo_open_service_func != nullptr) {
                const int res = options.gpo_open_service_func(
                    sess, body_proto, service, lang_tag, &return_code, &message,
                    options.gpo_open_service_arg);
                if (res != 0) {
                    complain_error(res);
                    return_code = lc_err_generic_error;
                }
            }
        }

        if (return_code == 0) {
            gas->gas_state = gas_service_ready;
            gas->gas_service_id_open_mask |= 1U << service;
            gas->gas_default_service_id = service;
            free(gas->gas_lang_tag);
            gas->gas_lang_tag = safe_strdup(lang_tag);
            bail_null(gas->gas_lang_tag);
        } else {
            lc_log_basic(LOG_INFO,
                         "%ssession %d: refused service %u of protocol %u for peer %s: %u",
                         gcl_log_prefix(sess), sess->gs_id, service, body_proto,
                         gas->gas_peer_name != nullptr ? gas->gas_peer_name : "", return_code);
        }
        err = gbp_admin_msg_send_open_service_response(sess, msg_id, transaction_id, lang_tag,
                                                       return_code, message);
        bail_error(err);
        if (return_code == 0 && gclh->gh_session_service_available_func != nullptr) {
            err = gclh->gh_session_service_available_func(
                sess, gbp_proto_admin, service, true, false,
                gclh->gh_session_service_available_arg);
            bail_error(err);
        }
    }

bail:
    free(lang_tag);
    free(message);
    return err;
}
