// Sessions: the handle, the making, connecting, closing and freeing of client sessions,
// the output queue and the reading of the socket.
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "bnode_session.h"
#include "gcl.h"
#include "gcl_internal.h"
#include "gen_proto.h"
#include "lock_mt.h"
#include "logging.h"
#include "ttime.h"

namespace {

std::mutex g_live_mutex;
std::set<const gcl_handle *> g_live_handles;
std::set<const gcl_session *> g_live_sessions;
uint32 g_next_generation = 1;
std::string g_sock_root_prefix;

const char *gcl_peer_name_or_unknown(const gbp_admin_session_state *gas)
{
    return (gas != nullptr && gas->gas_peer_name != nullptr) ? gas->gas_peer_name : "";
}

void gcl_base64_token(uint32 value, char *ret_token /* 6 bytes */)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const uint8 bytes[4] = {static_cast<uint8>(value >> 24), static_cast<uint8>(value >> 16),
                            static_cast<uint8>(value >> 8), static_cast<uint8>(value)};
    const uint32 first = (static_cast<uint32>(bytes[0]) << 16) |
                         (static_cast<uint32>(bytes[1]) << 8) | bytes[2];
    ret_token[0] = alphabet[(first >> 18) & 63];
    ret_token[1] = alphabet[(first >> 12) & 63];
    ret_token[2] = alphabet[(first >> 6) & 63];
    ret_token[3] = alphabet[first & 63];
    ret_token[4] = alphabet[(bytes[3] >> 2) & 63];
    ret_token[5] = '\0';
}

char *gcl_printf_dup(const char *fmt, ...) LC_PRINTF_FORMAT(1, 2);
char *gcl_printf_dup(const char *fmt, ...)
{
    va_list ap;
    char *str = nullptr;
    va_start(ap, fmt);
    if (vasprintf(&str, fmt, ap) < 0) {
        str = nullptr;
    }
    va_end(ap);
    return str;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Internal helpers.

const char *gcl_log_prefix(const gcl_session *sess)
{
    if (sess == nullptr || sess->gs_gcl_handle == nullptr) {
        return "";
    }
    return sess->gs_gcl_handle->gh_id_ws;
}

void gcl_live_handle_add(gcl_handle *gh)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    gh->allocated = true;
    gh->generation = g_next_generation++;
    g_live_handles.insert(gh);
}

void gcl_live_handle_remove(gcl_handle *gh)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    gh->allocated = false;
    g_live_handles.erase(gh);
}

void gcl_live_session_add(gcl_session *sess)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    sess->allocated = true;
    sess->generation = g_next_generation++;
    g_live_sessions.insert(sess);
}

void gcl_live_session_remove(gcl_session *sess)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    sess->allocated = false;
    g_live_sessions.erase(sess);
}

tbool gcl_validate_handle(const gcl_handle *gh)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    return gh != nullptr && g_live_handles.count(gh) != 0 && gh->allocated;
}

tbool gcl_validate_session(const gcl_session *sess)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    return sess != nullptr && g_live_sessions.count(sess) != 0 && sess->allocated;
}

gcl_session_locker::gcl_session_locker(gcl_session *sess)
    : gh_lock_(sess->gs_gcl_handle != nullptr ? sess->gs_gcl_handle->gh_lock : nullptr),
      gs_lock_(sess->gs_lock)
{
    if (gh_lock_ != nullptr) {
        lc_lock_lock(gh_lock_);
    }
    if (gs_lock_ != nullptr) {
        lc_lock_lock(gs_lock_);
    }
}

gcl_session_locker::~gcl_session_locker()
{
    if (gs_lock_ != nullptr) {
        lc_lock_unlock(gs_lock_);
    }
    if (gh_lock_ != nullptr) {
        lc_lock_unlock(gh_lock_);
    }
}

namespace {

// Descriptors whose last write could not take all it was given: only these are asked
// whether they are writable before the next write.  A socket that took everything so far
// is written at once; should it be full after all, the write says so (it never blocks)
// and the descriptor is marked.  A bit per descriptor number below the session limit.
constexpr int gcl_lf_max_tracked_fd = 131072;
std::atomic<uint64_t> gcl_lf_write_stalled[gcl_lf_max_tracked_fd / 64];

bool gcl_lf_is_stalled(int fd)
{
    if (fd < 0 || fd >= gcl_lf_max_tracked_fd) {
        return true;
    }
    return (gcl_lf_write_stalled[fd / 64].load(std::memory_order_relaxed) >> (fd % 64) & 1) != 0;
}

void gcl_lf_mark_stalled(int fd, bool stalled)
{
    if (fd < 0 || fd >= gcl_lf_max_tracked_fd) {
        return;
    }
    const uint64_t bit = uint64_t{1} << (fd % 64);
    if (stalled) {
        gcl_lf_write_stalled[fd / 64].fetch_or(bit, std::memory_order_relaxed);
    } else if (gcl_lf_is_stalled(fd)) {
        gcl_lf_write_stalled[fd / 64].fetch_and(~bit, std::memory_order_relaxed);
    }
}

}  // namespace

int gcl_lf_is_writable(int fd, tbool *ret_writable)
{
    int err = 0;
    pollfd pfd = {fd, POLLOUT, 0};
    int res = 0;

    bail_null(ret_writable);
    *ret_writable = false;
    if (!gcl_lf_is_stalled(fd)) {
        *ret_writable = true;
        goto bail;
    }
    do {
        res = poll(&pfd, 1, 0);
    } while (res < 0 && errno == EINTR);
    if (res < 0) {
        bail_errno(lc_err_io_error, "poll");
    }
    // An error or hang-up counts as writable: the write then tells what happened.
    *ret_writable = res > 0 && (pfd.revents & (POLLOUT | POLLERR | POLLHUP)) != 0;

bail:
    return err;
}

int gcl_lf_write_bytes(int fd, const uint8 *buf, uint32 count, uint32 *ret_written)
{
    int err = 0;
    ssize_t res = 0;

    bail_null(ret_written);
    *ret_written = 0;
    do {
        res = send(fd, buf, count, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (res < 0 && errno == EINTR);
    // A write that could not take everything leaves the socket full: ask before the next.
    gcl_lf_mark_stalled(fd, res < static_cast<ssize_t>(count));
    if (res < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            err = lc_err_io_blocking_error;
        } else if (errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN) {
            err = lc_err_io_closed;
        } else {
            bail_errno(lc_err_io_error, "write to fd %d", fd);
        }
        goto bail;
    }
    *ret_written = static_cast<uint32>(res);

bail:
    return err;
}

int gcl_lf_read_bytes_closed(int fd, uint8 *buf, uint32 count, uint32 *ret_read,
                             tbool *ret_eof, int *ret_errno)
{
    int err = 0;
    ssize_t res = 0;

    *ret_read = 0;
    *ret_eof = false;
    *ret_errno = 0;
    do {
        res = read(fd, buf, count);
    } while (res < 0 && errno == EINTR);
    if (res < 0) {
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            goto bail;
        }
        *ret_errno = errno;
        err = lc_err_io_error;
        goto bail;
    }
    if (res == 0 && count > 0) {
        *ret_eof = true;
    }
    *ret_read = static_cast<uint32>(res);

bail:
    return err;
}

int gcl_lf_get_file_owner(const char *path, int32 *ret_uid, int32 *ret_gid)
{
    int err = 0;
    struct stat st;

    bail_null(path);
    if (stat(path, &st) != 0) {
        bail_errno(lc_err_file_not_found, "stat %s", path);
    }
    *ret_uid = static_cast<int32>(st.st_uid);
    *ret_gid = static_cast<int32>(st.st_gid);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The handle.

int gcl_options_get_defaults(gcl_global_options *ret_ggo)
{
    int err = 0;
    bail_null(ret_ggo);
    memset(ret_ggo, 0, sizeof(*ret_ggo));
    ret_ggo->ggo_register_event_changes_only = true;
    ret_ggo->ggo_max_sessions = -1;
bail:
    return err;
}

int gcl_init(gcl_handle **ret_gh, const gcl_global_options *options, fdic_handle *fdich)
{
    int err = 0;
    gcl_handle *gh = nullptr;
    gcl_global_options defaults;
    struct sigaction sa;

    bail_null(ret_gh);
    *ret_gh = nullptr;
    if (options == nullptr) {
        err = gcl_options_get_defaults(&defaults);
        bail_error(err);
        options = &defaults;
    }
    gh = static_cast<gcl_handle *>(calloc(1, sizeof(*gh)));
    bail_null(gh);
    gh->gh_next_sess_id = 1;
    gh->gh_fich = fdich;
    gh->gh_suspend_accept_timer_fdic_id = -1;

    if (options->ggo_max_sessions < 0) {
        gh->gh_max_sessions = gcl_max_sessions_default;
    } else if (options->ggo_max_sessions == 0) {
        gh->gh_max_sessions = 0;
    } else if (options->ggo_max_sessions < gcl_max_sessions_minimum) {
        gh->gh_max_sessions = gcl_max_sessions_minimum;
    } else {
        gh->gh_max_sessions = options->ggo_max_sessions;
    }

    gh->gh_register_event_changes_only = options->ggo_register_event_changes_only;
    gh->gh_session_admin_ready_func = options->ggo_admin_ready_func;
    gh->gh_session_admin_ready_arg = options->ggo_admin_ready_arg;
    gh->gh_session_service_available_func = options->ggo_service_avail_func;
    gh->gh_session_service_available_arg = options->ggo_service_avail_arg;
    strlcpy(gh->gh_id, options->ggo_handle_id, sizeof(gh->gh_id));
    if (gh->gh_id[0] != '\0') {
        snprintf(gh->gh_id_ws, sizeof(gh->gh_id_ws), "%s ", gh->gh_id);
    }

    err = lc_lock_init(&gh->gh_lock, true);
    bail_error(err);
    gcl_live_handle_add(gh);

    memset(&sa, 0, sizeof(sa));
    sigfillset(&sa.sa_mask);
    sa.sa_handler = SIG_IGN;
    if (sigaction(SIGPIPE, &sa, nullptr) != 0) {
        bail_errno(lc_err_generic_error, "sigaction SIGPIPE");
    }

    err = gbp_admin_init(gh);
    bail_error(err);
    err = bn_init(gh);
    bail_error(err);
    err = gen_init(gh);
    bail_error(err);

    *ret_gh = gh;
    gh = nullptr;

bail:
    if (gh != nullptr) {
        gcl_deinit(&gh);
    }
    return err;
}

int gcl_shutdown(gcl_handle *gh)
{
    int err = 0;
    bail_null(gh);
    lc_lock_lock(gh->gh_lock);
    for (uint32 i = 0; i < gh->gh_num_sessions; ++i) {
        if (gh->gh_sessions[i]->gs_state != gss_closed) {
            complain_error(gcl_session_close(gh->gh_sessions[i], true));
        }
    }
    lc_lock_unlock(gh->gh_lock);
bail:
    return err;
}

int gcl_deinit(gcl_handle **ret_gh)
{
    int err = 0;
    gcl_handle *gh = nullptr;

    bail_null(ret_gh);
    gh = *ret_gh;
    if (gh == nullptr) {
        goto bail;
    }
    while (gh->gh_num_sessions > 0) {
        gcl_session *sess = gh->gh_sessions[gh->gh_num_sessions - 1];
        complain_error(gcl_session_free(&sess));
    }
    if (gh->gh_bp_reg[gbp_proto_bnode] != nullptr) {
        complain_error(gen_deinit(gh));
        complain_error(bn_deinit(gh));
    }
    if (gh->gh_bp_reg[gbp_proto_admin] != nullptr) {
        complain_error(gbp_admin_deinit(gh));
    }
    for (auto &reg : gh->gh_bp_reg) {
        delete reg;
        reg = nullptr;
    }
    free(gh->gh_sessions);
    gcl_live_handle_remove(gh);
    if (gh->gh_lock != nullptr) {
        lc_lock_deinit(&gh->gh_lock);
    }
    free(gh);
    *ret_gh = nullptr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Addresses.

int gcl_set_sock_root_prefix(const char *prefix)
{
    std::lock_guard<std::mutex> guard(g_live_mutex);
    g_sock_root_prefix = prefix != nullptr ? prefix : "";
    return 0;
}

int gcl_session_auto_sockaddr(gcl_handle *gclh, const char *local_name, tbool is_provider,
                              int address_family, sockaddr_storage *ret_addr,
                              socklen_t *ret_addr_len)
{
    int err = 0;
    std::string path;
    std::string prefix;
    sockaddr_un *sun = nullptr;
    const char *kind = is_provider ? "provider" : "client";
    char name[256];

    (void)gclh;
    bail_null(local_name);
    bail_null(ret_addr);
    bail_null(ret_addr_len);
    if (address_family != AF_UNIX) {
        bail_force(lc_err_io_bad_family);
    }
    {
        std::lock_guard<std::mutex> guard(g_live_mutex);
        prefix = g_sock_root_prefix;
    }
    // A production process runs as root; any other one, with no private tree, names its
    // sockets after its uid so that it can't meet the system's own.
    if (prefix.empty() && geteuid() != 0) {
        snprintf(name, sizeof(name), "uds-%s-UID-%d-%s", kind, static_cast<int>(geteuid()),
                 local_name);
    } else {
        snprintf(name, sizeof(name), "uds-%s-%s", kind, local_name);
    }
    path = prefix + GCL_SOCK_DIR + name;

    memset(ret_addr, 0, sizeof(*ret_addr));
    sun = reinterpret_cast<sockaddr_un *>(ret_addr);
    if (path.size() >= sizeof(sun->sun_path)) {
        lc_log_basic(LOG_ERR, "Socket path too long: %s", path.c_str());
        bail_force(lc_err_bad_path);
    }
    sun->sun_family = AF_UNIX;
    memcpy(sun->sun_path, path.c_str(), path.size() + 1);
    *ret_addr_len = static_cast<socklen_t>(path.size() + 3);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Making sessions.

int gcl_session_new(gcl_handle *gh, tbool is_provider, gcl_session **ret_sess)
{
    int err = 0;
    gcl_session *sess = nullptr;
    const char *user = nullptr;

    bail_null(ret_sess);
    *ret_sess = nullptr;
    if (gh->gh_max_sessions > 0 &&
        gh->gh_num_sessions >= static_cast<uint32>(gh->gh_max_sessions)) {
        lc_log_basic(LOG_WARNING, "%sToo many sessions: %u", gh->gh_id_ws,
                     gh->gh_num_sessions);
        err = lc_err_limit_exceeded;
        goto bail;
    }
    if (gh->gh_num_sessions == gh->gh_sessions_size) {
        const uint32 size = gh->gh_sessions_size == 0 ? 8 : gh->gh_sessions_size * 2;
        void *grown = realloc(gh->gh_sessions, size * sizeof(gcl_session *));
        bail_null(grown);
        gh->gh_sessions = static_cast<gcl_session **>(grown);
        gh->gh_sessions_size = size;
    }

    sess = static_cast<gcl_session *>(calloc(1, sizeof(*sess)));
    bail_null(sess);
    sess->gs_gcl_handle = gh;
    sess->gs_id = gh->gh_next_sess_id++;
    sess->gs_fd = -1;
    sess->gs_fdic_fd_id = -1;
    sess->gs_fdic_timeout_id = -1;
    sess->gs_state = gss_initialized;
    sess->gs_is_provider = is_provider;
    sess->gs_next_seq_no = is_provider ? 1000001 : 2000001;
    sess->gs_output_queue.tqh_first = nullptr;
    sess->gs_output_queue.tqh_last = &sess->gs_output_queue.tqh_first;
    sess->gs_self_uid = static_cast<int32>(geteuid());
    sess->gs_self_gid = static_cast<int32>(getegid());
    sess->gs_self_interactive = isatty(STDIN_FILENO) == 1;
    gh->gh_sessions[gh->gh_num_sessions++] = sess;
    gcl_live_session_add(sess);

    err = lc_lock_init(&sess->gs_lock, true);
    bail_error(err);
    err = tb_new_size(&sess->gs_input_buffer, gcl_read_buffer_initial_size);
    bail_error(err);

    for (const char *var : {"LOGIN_USER", "LOGNAME", "USER"}) {
        user = getenv(var);
        if (user != nullptr && user[0] != '\0') {
            break;
        }
        user = nullptr;
    }
    if (user != nullptr) {
        sess->gs_self_username = safe_strdup(user);
    } else {
        sess->gs_self_username = gcl_printf_dup("%s%d-%d-%d", "i:", static_cast<int>(getpid()),
                                                sess->gs_self_uid, sess->gs_self_gid);
    }
    bail_null(sess->gs_self_username);

    for (gcl_bp_registration *reg : gh->gh_bp_reg) {
        if (reg != nullptr && reg->gbpr_session_new != nullptr) {
            err = reg->gbpr_session_new(gh, sess, reg->gbpr_session_new_arg);
            bail_error(err);
        }
    }

    *ret_sess = sess;
    sess = nullptr;

bail:
    if (sess != nullptr) {
        gcl_session_free(&sess);
    }
    return err;
}

namespace {

int gcl_session_choose_local_name(gcl_handle *gh, const char *client_name,
                                  gs_option_flags_bf flags, char **ret_name)
{
    int err = 0;
    const int uid = static_cast<int>(geteuid());
    const int pid = static_cast<int>(getpid());
    char token[6];
    uint32 rnd = 0;

    if (client_name == nullptr) {
        *ret_name = gcl_printf_dup("UNKNOWN-%d.%d", uid, pid);
    } else if ((flags & gof_not_provider) != 0) {
        if (!gh->gh_random_seeded) {
            srandom(static_cast<unsigned>(time(nullptr)) ^ static_cast<unsigned>(pid));
            gh->gh_random_seeded = true;
        }
        rnd = static_cast<uint32>(random());
        gcl_base64_token(rnd, token);
        for (char *c = token; *c != '\0'; ++c) {
            if (*c == '/' || *c == '+') {
                *c = static_cast<char>('A' + rnd % 25);
            }
        }
        if (uid != 0) {
            *ret_name = gcl_printf_dup("%s-%s-%d.%d", client_name, token, uid, pid);
        } else {
            *ret_name = gcl_printf_dup("%s-%s-%d", client_name, token, pid);
        }
    } else if (uid != 0) {
        *ret_name = gcl_printf_dup("%s-%d.%d", client_name, uid, pid);
    } else {
        *ret_name = gcl_printf_dup("%s-%d", client_name, pid);
    }
    bail_null(*ret_name);

bail:
    return err;
}

// Descriptor events of a connected session.
int gcl_session_add_fd_event(gcl_session *sess)
{
    int err = 0;
    gcl_handle *gh = sess->gs_gcl_handle;
    if (gh->gh_fich == nullptr || sess->gs_fdic_fd_id >= 0) {
        goto bail;
    }
    err = fdic_event_add_fd(gh->gh_fich, sess->gs_fd, true, sess->gs_check_writable, sess,
                            gcl_session_fd_readable, gh, gcl_session_fd_writable, gh,
                            &sess->gs_fdic_fd_id);
    bail_error(err);
bail:
    return err;
}

int gcl_session_connected(gcl_session *sess)
{
    int err = 0;
    gcl_handle *gh = sess->gs_gcl_handle;

    sess->gs_state = gss_connected;
    err = gcl_session_add_fd_event(sess);
    bail_error(err);
    for (gcl_bp_registration *reg : gh->gh_bp_reg) {
        if (reg != nullptr && reg->gbpr_enabled &&
            reg->gbpr_connection_established != nullptr) {
            err = reg->gbpr_connection_established(gh, sess,
                                                   reg->gbpr_connection_established_arg);
            bail_error(err);
        }
    }
bail:
    return err;
}

int gcl_set_nonblocking(int fd)
{
    int err = 0;
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        bail_errno(lc_err_io_error, "fcntl O_NONBLOCK on fd %d", fd);
    }
bail:
    return err;
}

}  // namespace

int gcl_session_client_new_internal(gcl_handle *gh, const char *client_name,
                                    gs_option_flags_bf client_flags, int32 uid, int32 gid,
                                    const char *username, const sockaddr *local_addr,
                                    socklen_t local_addr_len, int existing_fd,
                                    gcl_session **ret_session)
{
    int err = 0;
    gcl_session *sess = nullptr;
    gbp_admin_session_state *gas = nullptr;
    const sockaddr_un *sun = nullptr;
    const size_t max_len = (client_flags & gof_not_provider) != 0 ? 14 : 20;

    bail_null(gh);
    bail_null(ret_session);
    *ret_session = nullptr;

    if (client_name != nullptr && strchr(client_name, '-') != nullptr) {
        lc_log_basic(LOG_ERR, "Invalid character in client name: %s", client_name);
        err = lc_err_generic_error;
        goto bail;
    }
    if (client_name != nullptr && strlen(client_name) >= max_len) {
        lc_log_basic(LOG_ERR, "Client name too long: %s", client_name);
        err = lc_err_generic_error;
        goto bail;
    }

    lc_lock_lock(gh->gh_lock);
    err = gcl_session_new(gh, false, &sess);
    lc_lock_unlock(gh->gh_lock);
    bail_error(err);

    err = gcl_session_choose_local_name(gh, client_name, client_flags, &sess->gs_local_name);
    bail_error(err);

    if (existing_fd >= 0) {
        sess->gs_fd = existing_fd;
        err = gcl_set_nonblocking(sess->gs_fd);
        bail_error(err);
        sess->gs_addr_local_len = sizeof(sess->gs_addr_local);
        if (getsockname(sess->gs_fd, reinterpret_cast<sockaddr *>(&sess->gs_addr_local),
                        &sess->gs_addr_local_len) != 0) {
            sess->gs_addr_local_len = 0;
        }
        sess->gs_addr_remote_len = sizeof(sess->gs_addr_remote);
        if (getpeername(sess->gs_fd, reinterpret_cast<sockaddr *>(&sess->gs_addr_remote),
                        &sess->gs_addr_remote_len) != 0) {
            sess->gs_addr_remote_len = 0;
        }
    } else {
        if (local_addr != nullptr && local_addr_len > 0) {
            bail_require(local_addr_len <= sizeof(sess->gs_addr_local));
            memcpy(&sess->gs_addr_local, local_addr, local_addr_len);
            sess->gs_addr_local_len = local_addr_len;
        } else {
            err = gcl_session_auto_sockaddr(gh, sess->gs_local_name, false, AF_UNIX,
                                            &sess->gs_addr_local, &sess->gs_addr_local_len);
            bail_error(err);
        }
        const int family = sess->gs_addr_local.ss_family;
        sess->gs_fd = socket(family, SOCK_STREAM, 0);
        if (sess->gs_fd < 0) {
            if (errno == EAFNOSUPPORT) {
                bail_errno(lc_err_io_bad_family, "socket family %d", family);
            }
            bail_errno(lc_err_io_error, "socket");
        }
        if (family == AF_INET || family == AF_INET6) {
            const int one = 1;
            const int idle = 60;
            setsockopt(sess->gs_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
            setsockopt(sess->gs_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof(one));
            setsockopt(sess->gs_fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof(one));
            setsockopt(sess->gs_fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof(idle));
        }
        err = gcl_set_nonblocking(sess->gs_fd);
        bail_error(err);
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
    }

    gas = gbp_admin_get_session_state(sess);
    if (gas != nullptr) {
        gas->gas_auth_remote_uid = uid == ggid_auto ? sess->gs_self_uid
                                   : uid == ggid_remote_chooses ? -1
                                                                : uid;
        gas->gas_auth_remote_gid = gid == ggid_auto ? sess->gs_self_gid
                                   : gid == ggid_remote_chooses ? -1
                                                                : gid;
        if ((client_flags & gof_interactive_mask) == gof_interactive_yes) {
            gas->gas_auth_remote_interactive = true;
        } else if ((client_flags & gof_interactive_mask) == gof_interactive_no) {
            gas->gas_auth_remote_interactive = false;
        } else {
            gas->gas_auth_remote_interactive = sess->gs_self_interactive;
        }
        free(gas->gas_auth_remote_username);
        gas->gas_auth_remote_username =
            safe_strdup(username != nullptr ? username : sess->gs_self_username);
        bail_null(gas->gas_auth_remote_username);
    }
    if (sess->gs_ud_socket_path != nullptr && (uid >= 0 || gid >= 0)) {
        if (chown(sess->gs_ud_socket_path, uid >= 0 ? static_cast<uid_t>(uid) : -1,
                  gid >= 0 ? static_cast<gid_t>(gid) : -1) != 0) {
            bail_errno(lc_err_io_error, "chown %s", sess->gs_ud_socket_path);
        }
    }

    if (existing_fd >= 0) {
        err = gcl_session_connected(sess);
        bail_error(err);
    }

    *ret_session = sess;
    sess = nullptr;

bail:
    if (sess != nullptr) {
        if (existing_fd >= 0 && sess->gs_fd == existing_fd) {
            // The caller keeps a descriptor that we could not take.
            sess->gs_fd = -1;
        }
        gcl_session_free(&sess);
    }
    return err;
}

int gcl_session_client_set_user_new(gcl_handle *gh, const char *client_name,
                                    gs_option_flags_bf client_flags, int32 uid, int32 gid,
                                    const char *username, const sockaddr *local_addr,
                                    socklen_t local_addr_len, gcl_session **ret_session)
{
    return gcl_session_client_new_internal(gh, client_name, client_flags, uid, gid, username,
                                           local_addr, local_addr_len, -1, ret_session);
}

// ---------------------------------------------------------------------------------------
// Connecting.

int gcl_session_client_connect_by_sockaddr(gcl_session *sess, const sockaddr *prov_sa,
                                           socklen_t prov_sa_len, tbool retry_on_failure)
{
    int err = 0;
    const uint32 attempts = retry_on_failure ? gcl_session_connect_retry_count + 1 : 1;
    uint32 attempt = 0;
    int res = 0;
    int conn_errno = 0;

    bail_null(sess);
    bail_null(prov_sa);
    bail_require(prov_sa_len <= sizeof(sess->gs_addr_remote));
    if (sess->gs_state != gss_initialized) {
        lc_log_basic(LOG_ERR, "%ssession %d: client called to connect in invalid state: %d (%s)",
                     gcl_log_prefix(sess), sess->gs_id, sess->gs_state,
                     lc_enum_to_string_quiet(gcl_session_state_map, sess->gs_state));
        err = lc_err_generic_error;
        goto bail;
    }

    for (attempt = 1; attempt <= attempts; ++attempt) {
        res = connect(sess->gs_fd, prov_sa, prov_sa_len);
        conn_errno = res == 0 ? 0 : errno;
        if (res == 0 || conn_errno == EISCONN) {
            break;
        }
        const tbool in_progress = conn_errno == EINPROGRESS || conn_errno == EALREADY;
        const tbool absent = conn_errno == ENOENT || conn_errno == ECONNREFUSED ||
                             conn_errno == EHOSTUNREACH || conn_errno == ENETDOWN;
        if ((!in_progress && !absent) || (in_progress && attempt == attempts)) {
            errno = conn_errno;
            lc_log_basic(LOG_ERR, "connect: %m");
            err = lc_err_assertion_failed;
            goto bail;
        }
        if (attempt == attempts) {
            lc_log_basic(LOG_INFO, "Failed to connect to provider.");
            err = lc_err_io_error;
            goto bail;
        }
        if (in_progress) {
            lc_log_basic(LOG_INFO, "Provider connect in progress; delaying and retrying.");
            pollfd pfd = {sess->gs_fd, POLLOUT, 0};
            res = poll(&pfd, 1, static_cast<int>(gcl_session_connect_retry_delay_ms));
        } else {
            lc_log_basic(LOG_INFO, "Could not connect to provider; delaying and retrying.");
            res = poll(nullptr, 0, static_cast<int>(gcl_session_connect_retry_delay_ms));
        }
        if (res < 0 && errno != EINTR) {
            lc_log_basic(LOG_ERR, "Could not complete sleep: %m");
            err = lc_err_io_error;
            goto bail;
        }
    }

    memcpy(&sess->gs_addr_remote, prov_sa, prov_sa_len);
    sess->gs_addr_remote_len = prov_sa_len;
    if (sess->gs_addr_local_len == 0) {
        sess->gs_addr_local_len = sizeof(sess->gs_addr_local);
        if (getsockname(sess->gs_fd, reinterpret_cast<sockaddr *>(&sess->gs_addr_local),
                        &sess->gs_addr_local_len) != 0) {
            sess->gs_addr_local_len = 0;
        }
    }
    if (prov_sa->sa_family == AF_UNIX) {
        lc_log_basic(LOG_DEBUG, "%ssession %d: connected to %s", gcl_log_prefix(sess),
                     sess->gs_id, reinterpret_cast<const sockaddr_un *>(prov_sa)->sun_path);
    } else {
        char host[INET6_ADDRSTRLEN] = "";
        const void *addr = prov_sa->sa_family == AF_INET
                               ? static_cast<const void *>(
                                     &reinterpret_cast<const sockaddr_in *>(prov_sa)->sin_addr)
                               : static_cast<const void *>(
                                     &reinterpret_cast<const sockaddr_in6 *>(prov_sa)->sin6_addr);
        inet_ntop(prov_sa->sa_family, addr, host, sizeof(host));
        lc_log_basic(LOG_NOTICE, "%ssession %d: connected to IP%s %s", gcl_log_prefix(sess),
                     sess->gs_id, prov_sa->sa_family == AF_INET ? "v4" : "v6", host);
    }
    err = gcl_session_connected(sess);
    bail_error(err);

bail:
    if (err != 0 && sess != nullptr && sess->gs_state != gss_connected) {
        safe_close(&sess->gs_fd);
        sess->gs_fd = -1;
        sess->gs_state = gss_closed;
        if (sess->gs_ud_socket_path != nullptr) {
            unlink(sess->gs_ud_socket_path);
        }
    }
    return err;
}

int gcl_session_client_connect_by_provider(gcl_session *sess, const char *provider_name,
                                           tbool retry_on_failure)
{
    int err = 0;
    sockaddr_storage addr;
    socklen_t addr_len = 0;

    bail_null(sess);
    bail_null(provider_name);
    err = gcl_session_auto_sockaddr(sess->gs_gcl_handle, provider_name, true, AF_UNIX, &addr,
                                    &addr_len);
    bail_error(err);
    err = gcl_session_client_connect_by_sockaddr(sess, reinterpret_cast<sockaddr *>(&addr),
                                                 addr_len, retry_on_failure);
    if (err == lc_err_io_error || err == lc_err_io_closed) {
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Sending.

namespace {

int gcl_session_frame_enqueue(gcl_session *sess, tbuf **inout_frame_tb, uint32 seqno)
{
    int err = 0;
    gcl_frame_state *gfs = nullptr;
    uint8 *bytes = nullptr;
    int32 len = 0;

    gfs = static_cast<gcl_frame_state *>(calloc(1, sizeof(*gfs)));
    bail_null(gfs);
    err = tb_detach(inout_frame_tb, &bytes, &len);
    bail_error(err);
    gfs->gfs_session = sess;
    gfs->gfs_seqno = seqno;
    gfs->gfs_frame = bytes;
    gfs->gfs_frame_length = static_cast<uint32>(len);
    gfs->gfs_time_enqueue = lt_sys_uptime_ms();
    err = gcl_byte_swap_frame_header(gfs->gfs_frame, gfs->gfs_frame_length);
    bail_error(err);

    *sess->gs_output_queue.tqh_last = gfs;
    sess->gs_output_queue.tqh_last = &gfs->gfs_link;
    sess->gs_msg_pending_outgoing_frames++;
    sess->gs_msg_pending_outgoing_bytes += gfs->gfs_frame_length;
    gfs = nullptr;

    err = gcl_session_run_output_queue(sess);
    bail_error(err);

bail:
    if (gfs != nullptr) {
        free(gfs->gfs_frame);
        free(gfs);
    }
    return err;
}

void gcl_frame_queue_free(gcl_session *sess)
{
    gcl_frame_state *gfs = sess->gs_output_queue.tqh_first;
    while (gfs != nullptr) {
        gcl_frame_state *next = gfs->gfs_link;
        free(gfs->gfs_frame);
        free(gfs);
        gfs = next;
    }
    sess->gs_output_queue.tqh_first = nullptr;
    sess->gs_output_queue.tqh_last = &sess->gs_output_queue.tqh_first;
    sess->gs_msg_pending_outgoing_frames = 0;
    sess->gs_msg_pending_outgoing_bytes = 0;
}

}  // namespace

int gcl_session_send_frame_components_tb(gcl_session *sess, gcl_body_proto body_proto,
                                         uint16 body_msg_type, uint32 header_space_left,
                                         tbuf **inout_frame_tb)
{
    int err = 0;
    uint32 seqno = 0;
    uint32 len = 0;

    bail_null(sess);
    bail_null(inout_frame_tb);
    bail_null(*inout_frame_tb);
    if (header_space_left != gcl_frame_header_len) {
        bail_require(tb_length(*inout_frame_tb) >= header_space_left);
        err = gcl_session_send_frame_components(
            sess, body_proto, body_msg_type, tb_length(*inout_frame_tb) - header_space_left,
            tb_buf(*inout_frame_tb) + header_space_left);
        tb_free(inout_frame_tb);
        bail_error_quiet(err);
        goto bail;
    }
    {
        gcl_session_locker lock(sess);
        if (sess->gs_state != gss_connected) {
            lc_log_basic(LOG_ERR, "%ssession %d: tried to send frame in state %d",
                         gcl_log_prefix(sess), sess->gs_id, sess->gs_state);
            err = lc_err_generic_error;
            goto bail;
        }
        len = tb_length(*inout_frame_tb);
        bail_require(len >= gcl_frame_header_len);
        seqno = sess->gs_next_seq_no++;
        gcl_frame_header_fill(tb_buf(*inout_frame_tb), len, seqno, body_proto, body_msg_type);
        err = gcl_session_frame_enqueue(sess, inout_frame_tb, seqno);
        bail_error(err);
    }

bail:
    if (inout_frame_tb != nullptr) {
        tb_free(inout_frame_tb);
    }
    return err;
}

int gcl_session_send_frame_components(gcl_session *sess, gcl_body_proto body_proto,
                                      uint16 body_msg_type, uint32 body_length,
                                      const uint8 *body)
{
    int err = 0;
    tbuf *frame = nullptr;

    bail_null(sess);
    bail_require(body_length == 0 || body != nullptr);
    bail_require(body_length <= tb_size_max - gcl_frame_header_len - 1);
    err = tb_new_size(&frame, gcl_frame_header_len + body_length);
    bail_error(err);
    err = tb_set_length(frame, gcl_frame_header_len);
    bail_error(err);
    if (body_length > 0) {
        err = tb_append_buf(frame, body, static_cast<int32>(body_length));
        bail_error(err);
    }
    err = gcl_session_send_frame_components_tb(sess, body_proto, body_msg_type,
                                               gcl_frame_header_len, &frame);
    bail_error_quiet(err);

bail:
    tb_free(&frame);
    return err;
}

int gcl_session_run_output_queue(gcl_session *sess)
{
    int err = 0;
    gcl_frame_state *gfs = nullptr;
    tbool writable = false;
    uint32 written = 0;
    int res = 0;

    bail_null(sess);
    {
        gcl_session_locker lock(sess);
        sess->gs_check_writable = false;
        while ((gfs = sess->gs_output_queue.tqh_first) != nullptr) {
            if (sess->gs_fd < 0) {
                break;
            }
            err = gcl_lf_is_writable(sess->gs_fd, &writable);
            bail_error(err);
            if (!writable) {
                sess->gs_check_writable = true;
                break;
            }
            const int64 now = lt_sys_uptime_ms();
            if (gfs->gfs_bytes_sent == 0) {
                gfs->gfs_time_send_start = now;
            }
            gfs->gfs_time_send_latest = now;
            res = gcl_lf_write_bytes(sess->gs_fd, gfs->gfs_frame + gfs->gfs_bytes_sent,
                                     gfs->gfs_frame_length - gfs->gfs_bytes_sent, &written);
            if (res == lc_err_io_blocking_error) {
                written = 0;
            } else if (res == lc_err_io_closed) {
                lc_log_basic(LOG_INFO, "%ssession %d: session peer closed connection",
                             gcl_log_prefix(sess), sess->gs_id);
                err = gcl_session_close(sess, false);
                bail_error(err);
                goto bail;
            } else {
                bail_error(res);
            }

            gfs->gfs_bytes_sent += written;
            sess->gs_msg_sent_bytes += written;
            if (sess->gs_msg_pending_outgoing_bytes < written) {
                lc_log_basic(LOG_WARNING,
                             "GCL: just sent %d bytes, but pending outgoing byte count was "
                             "already %llu",
                             static_cast<int>(written),
                             static_cast<unsigned long long>(
                                 sess->gs_msg_pending_outgoing_bytes));
                sess->gs_msg_pending_outgoing_bytes = 0;
                sess->gs_msg_pending_outgoing_frames = 0;
            } else {
                sess->gs_msg_pending_outgoing_bytes -= written;
            }
            if (gfs->gfs_bytes_sent < gfs->gfs_frame_length) {
                // The socket took part of it: wait until it is writable again.
                sess->gs_check_writable = true;
                break;
            }
            gfs->gfs_time_send_end = now;
            sess->gs_msg_sent_frames++;
            if (sess->gs_msg_pending_outgoing_frames > 0) {
                sess->gs_msg_pending_outgoing_frames--;
            }
            lc_log_basic(LOG_DEBUG, "%ssession %d: finished sending frame %d on fd %d of %d bytes",
                         gcl_log_prefix(sess), sess->gs_id, gfs->gfs_seqno, sess->gs_fd,
                         gfs->gfs_frame_length);
            sess->gs_output_queue.tqh_first = gfs->gfs_link;
            if (sess->gs_output_queue.tqh_first == nullptr) {
                sess->gs_output_queue.tqh_last = &sess->gs_output_queue.tqh_first;
            }
            free(gfs->gfs_frame);
            free(gfs);
        }

        if (sess->gs_output_queue.tqh_first != nullptr && !sess->gs_check_writable &&
            sess->gs_state == gss_connected) {
            lc_log_basic(LOG_ERR, "%ssession %d: frames queued, but not checking writeable",
                         gcl_log_prefix(sess), sess->gs_id);
        }
        if (sess->gs_fdic_fd_id >= 0 && sess->gs_gcl_handle->gh_fich != nullptr) {
            err = fdic_event_update_fd(sess->gs_gcl_handle->gh_fich, sess->gs_fdic_fd_id, true,
                                       sess->gs_check_writable);
            bail_error(err);
        }
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

namespace {

// The input buffer grows by a fixed step, gcl_read_buffer_min_free, whatever factor the
// byte buffer's own growth would choose: a long burst of frames costs memory in
// proportion, not in powers of four.
int gcl_session_grow_input_buffer(gcl_session *sess)
{
    int err = 0;
    tbuf *in = sess->gs_input_buffer;
    const uint64 new_size = static_cast<uint64>(in->tb_size) + gcl_read_buffer_min_free;
    uint8 *grown = nullptr;

    if (new_size > tb_size_max) {
        lc_log_basic(LOG_ERR, "maximum size exceeded: %d", static_cast<int>(new_size));
        bail_force(lc_err_assertion_failed);
    }
    // The block is reallocated in place where the allocator can (a large one usually
    // is), so a long frame costs no copy per step; the new bytes read as zero, as in
    // every byte buffer.
    grown = static_cast<uint8 *>(realloc(in->tb_buf, new_size));
    bail_null(grown);
    memset(grown + in->tb_size, 0, gcl_read_buffer_min_free);
    in->tb_buf = grown;
    in->tb_size = static_cast<uint32>(new_size);

bail:
    return err;
}

}  // namespace

int gcl_session_read(gcl_session *sess)
{
    int err = 0;
    uint32 free_bytes = 0;
    uint32 got = 0;
    tbool eof = false;
    int read_errno = 0;
    int res = 0;
    tbuf *in = nullptr;

    bail_null(sess);
    {
        gcl_session_locker lock(sess);
        bail_require(sess->gs_state == gss_connected);
        in = sess->gs_input_buffer;
        // One byte of the block always holds the terminating zero.
        free_bytes = tb_avail(in) > 0 ? tb_avail(in) - 1 : 0;
        if (free_bytes < gcl_read_buffer_min_free) {
            err = gcl_session_grow_input_buffer(sess);
            bail_error(err);
            free_bytes = tb_avail(in) - 1;
        }
        if (free_bytes > gcl_read_max_per_read) {
            free_bytes = gcl_read_max_per_read;
        }
        res = gcl_lf_read_bytes_closed(sess->gs_fd, tb_buf(in) + tb_length(in), free_bytes, &got,
                                       &eof, &read_errno);
        if (res != 0) {
            errno = read_errno;
            lc_log_basic(LOG_WARNING, "%ssession %d: read returned %d: %m",
                         gcl_log_prefix(sess), sess->gs_id, -1);
            if (read_errno == ECONNRESET) {
                // A reset is the peer's way of closing too.
                eof = true;
            } else {
                if (read_errno == EINVAL || read_errno == EBADF) {
                    complain_error(gcl_session_close(sess, false));
                    err = lc_err_io_closed;
                }
                goto bail;
            }
        }
        err = tb_set_length(in, tb_length(in) + got);
        bail_error(err);

        res = gcl_session_read_handle_framing(sess);
        if (res != 0) {
            if (sess->gs_state != gss_closed) {
                lc_log_basic(LOG_WARNING, "%ssession %d: closing after error condition",
                             gcl_log_prefix(sess), sess->gs_id);
                err = gcl_session_close(sess, false);
                bail_error(err);
            }
            goto bail;
        }
        if (eof && sess->gs_state != gss_closed) {
            lc_log_basic(LOG_DEBUG, "%ssession %d: detected socket close on fd %d",
                         gcl_log_prefix(sess), sess->gs_id, sess->gs_fd);
            err = gcl_session_close(sess, false);
            bail_error(err);
        }
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Descriptor callbacks.

namespace {

int gcl_session_fd_check(void *per_event_arg, void *callback_arg, gcl_session **ret_sess)
{
    gcl_handle *gh = static_cast<gcl_handle *>(callback_arg);
    gcl_session *sess = static_cast<gcl_session *>(per_event_arg);
    if (!gcl_validate_handle(gh)) {
        lc_log_basic(LOG_NOTICE, "%s: GCL channel already shoutdown(%u)", __func__,
                     gh != nullptr ? gh->generation : 0);
        return lc_err_cancelled;
    }
    if (!gcl_validate_session(sess) || sess->gs_gcl_handle != gh) {
        lc_log_basic(LOG_NOTICE, "%s: Session previously freed!", __func__);
        return lc_err_cancelled;
    }
    *ret_sess = sess;
    return 0;
}

}  // namespace

int gcl_session_fd_readable(int fd, fdic_callback_type type, void *per_event_arg,
                            void *callback_arg)
{
    int err = 0;
    gcl_session *sess = nullptr;
    (void)fd;
    (void)type;

    err = gcl_session_fd_check(per_event_arg, callback_arg, &sess);
    bail_error(err);
    if (sess->gs_state != gss_connected) {
        err = lc_err_cancelled;
        goto bail;
    }
    err = gcl_session_read(sess);
    if (sess->gs_state == gss_closed) {
        // The session and its descriptor event are gone.
        err = lc_err_cancelled;
    }
    bail_error(err);

bail:
    return err;
}

int gcl_session_fd_writable(int fd, fdic_callback_type type, void *per_event_arg,
                            void *callback_arg)
{
    int err = 0;
    gcl_session *sess = nullptr;
    (void)fd;
    (void)type;

    err = gcl_session_fd_check(per_event_arg, callback_arg, &sess);
    bail_error(err);
    if (sess->gs_state != gss_connected) {
        err = lc_err_cancelled;
        goto bail;
    }
    err = gcl_session_run_output_queue(sess);
    if (sess->gs_state == gss_closed) {
        err = lc_err_cancelled;
    }
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Closing and freeing.

namespace {

// Sessions whose close is running the protocols' closed callbacks.
thread_local std::vector<const gcl_session *> gcl_sessions_closing;

}  // namespace

int gcl_session_close(gcl_session *session, tbool flush_output)
{
    int err = 0;
    gcl_handle *gh = nullptr;
    const gbp_admin_session_state *gas = nullptr;

    bail_null(session);
    gh = session->gs_gcl_handle;
    {
        gcl_session_locker lock(session);
        if (session->gs_state == gss_closed) {
            lc_log_basic(LOG_INFO, "%ssession %d: closing, but already closed",
                         gcl_log_prefix(session), session->gs_id);
            goto bail;
        }
        gas = gbp_admin_get_session_state(session);
        if (gas != nullptr) {
            lc_log_basic(LOG_INFO, "%ssession %d: closing for peer %s user %s (%d/%d) %d",
                         gcl_log_prefix(session), session->gs_id, gcl_peer_name_or_unknown(gas),
                         gas->gas_auth_incoming_username != nullptr
                             ? gas->gas_auth_incoming_username
                             : "",
                         gas->gas_auth_incoming_uid, gas->gas_auth_incoming_gid,
                         session->gs_fd);
        } else {
            lc_log_basic(LOG_INFO, "%ssession %d: closing", gcl_log_prefix(session),
                         session->gs_id);
        }

        if (flush_output && session->gs_state == gss_connected) {
            complain_error(gcl_session_run_output_queue(session));
            if (session->gs_output_queue.tqh_first != nullptr) {
                lc_log_basic(LOG_WARNING, "%ssession %d: closed with output queue",
                             gcl_log_prefix(session), session->gs_id);
            }
        }
        if (session->gs_state == gss_closed) {
            // Flushing found the peer gone and closed the session already.
            goto bail;
        }
        // The protocols hear of the close while the session still stands; one of them
        // closing it again from its callback finds the close under way and leaves.
        if (std::find(gcl_sessions_closing.begin(), gcl_sessions_closing.end(), session) !=
            gcl_sessions_closing.end()) {
            goto bail;
        }
        gcl_sessions_closing.push_back(session);
        for (gcl_bp_registration *reg : gh->gh_bp_reg) {
            if (reg != nullptr && reg->gbpr_enabled && reg->gbpr_connection_closed != nullptr) {
                complain_error(
                    reg->gbpr_connection_closed(gh, session, reg->gbpr_connection_closed_arg));
            }
        }
        gcl_sessions_closing.erase(
            std::find(gcl_sessions_closing.begin(), gcl_sessions_closing.end(), session));
        session->gs_state = gss_closed;
        safe_close(&session->gs_fd);
        session->gs_fd = -1;
        if (session->gs_ud_socket_path != nullptr &&
            (!session->gs_is_provider || !session->gs_provider_accepted)) {
            unlink(session->gs_ud_socket_path);
        }
        if (session->gs_fdic_fd_id >= 0 && gh->gh_fich != nullptr) {
            complain_error(fdic_event_delete_fd(gh->gh_fich, session->gs_fdic_fd_id));
        }
        session->gs_fdic_fd_id = -1;
        if (session->gs_timeout_active && gh->gh_fich != nullptr) {
            complain_error(fdic_event_delete_timer(gh->gh_fich, session->gs_fdic_timeout_id));
        }
        session->gs_timeout_active = false;
        session->gs_fdic_timeout_id = -1;
    }

bail:
    return err;
}

int gcl_session_free(gcl_session **inout_session)
{
    int err = 0;
    gcl_session *sess = nullptr;
    gcl_handle *gh = nullptr;

    bail_null(inout_session);
    sess = *inout_session;
    if (sess == nullptr) {
        goto bail;
    }
    gh = sess->gs_gcl_handle;
    lc_lock_lock(gh->gh_lock);
    if (sess->gs_state != gss_closed && (sess->gs_fd >= 0 || sess->gs_fdic_fd_id >= 0)) {
        complain_error(gcl_session_close(sess, false));
    }
    safe_close(&sess->gs_fd);
    for (gcl_bp_registration *reg : gh->gh_bp_reg) {
        if (reg != nullptr && reg->gbpr_session_free != nullptr) {
            complain_error(reg->gbpr_session_free(gh, sess, reg->gbpr_session_free_arg));
        }
    }
    gcl_frame_queue_free(sess);
    tb_free(&sess->gs_input_buffer);
    free(sess->gs_local_name);
    free(sess->gs_ud_socket_path);
    free(sess->gs_self_username);
    for (uint32 i = 0; i < gh->gh_num_sessions; ++i) {
        if (gh->gh_sessions[i] == sess) {
            memmove(&gh->gh_sessions[i], &gh->gh_sessions[i + 1],
                    (gh->gh_num_sessions - i - 1) * sizeof(gcl_session *));
            gh->gh_num_sessions--;
            break;
        }
    }
    gcl_live_session_remove(sess);
    if (sess->gs_lock != nullptr) {
        lc_lock_deinit(&sess->gs_lock);
    }
    free(sess);
    *inout_session = nullptr;
    lc_lock_unlock(gh->gh_lock);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Queries.

int gcl_session_get_state(const gcl_session *sess, gcl_session_state *ret_gss,
                          gbp_admin_state *ret_gas)
{
    int err = 0;
    const gbp_admin_session_state *gas = nullptr;

    bail_null(sess);
    if (ret_gss != nullptr) {
        *ret_gss = sess->gs_state;
    }
    if (ret_gas != nullptr) {
        gas = gbp_admin_get_session_state(sess);
        *ret_gas = gas != nullptr ? gas->gas_state : gas_none;
    }
bail:
    return err;
}

int gcl_session_get_session_names(const gcl_session *sess, const char **ret_local_name,
                                  const char **ret_peer_name)
{
    int err = 0;
    const gbp_admin_session_state *gas = nullptr;

    bail_null(sess);
    if (ret_local_name != nullptr) {
        *ret_local_name = sess->gs_local_name;
    }
    if (ret_peer_name != nullptr) {
        gas = gbp_admin_get_session_state(sess);
        *ret_peer_name = gas != nullptr ? gas->gas_peer_name : nullptr;
    }
bail:
    return err;
}
