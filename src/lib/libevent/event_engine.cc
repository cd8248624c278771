// The event engine over the poll back-end of the system's event library.
//
// The library is used to learn what fired: its own loop runs only our small collecting
// callbacks, which put the fired events in a queue.  The users' callbacks then run from
// that queue, outside the library's loop, which therefore never runs nested.
#include "event_engine.h"

#include <event2/event.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "logging.h"

static_assert(EV_TIMEOUT == 0x01 && EV_READ == 0x02 && EV_WRITE == 0x04 && EV_SIGNAL == 0x08 &&
                  EV_PERSIST == 0x10,
              "event bits must match the library's");

namespace {

constexpr short event_known_bits = EV_TIMEOUT | EV_READ | EV_WRITE | EV_SIGNAL | EV_PERSIST;
constexpr short event_fire_bits = EV_TIMEOUT | EV_READ | EV_WRITE | EV_SIGNAL;

// One record on the signal pipe.  Signal number 0 is a plain wake-up.
struct event_signal_message {
    int32 esm_signum;
    int32 esm_pid;
    char esm_pad[EVENT_SIGNAL_RECORD_SIZE - 2 * sizeof(int32)];
};
static_assert(sizeof(event_signal_message) == EVENT_SIGNAL_RECORD_SIZE);
static_assert(EVENT_SIGNAL_RECORD_SIZE <= PIPE_BUF, "a record must be written atomically");

// Where the signal handler writes, per signal number: the pipe of the context that caught
// the signal last, or -1.
struct event_signal_route {
    std::atomic<int> esr_fd{-1};
};
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler needs a lock-free load");
event_signal_route g_event_signal_routes[NSIG];

}  // namespace

struct event_context {
    struct event_base *ec_base;
    struct event *ec_pipe_event;
    int ec_pipe_read_fd;
    int ec_pipe_write_fd;
    pthread_t ec_owner;
    uint32 ec_lock_depth;
    tbool ec_escape_requested;
    tbool ec_escape_sticky;
    tbool ec_suppress_read;
    event_record *ec_reg_head;       // registered events, in the order of registration
    event_record *ec_reg_tail;
    uint32 ec_num_registered;
    event_record *ec_fired_head;     // fired events whose callbacks have not run yet
    event_record *ec_fired_tail;
    tbool ec_sig_caught[NSIG];       // signals whose disposition this context changed
    struct sigaction ec_sig_saved_action[NSIG];
    int ec_sig_saved_fd[NSIG];
};

namespace {

// ---------------------------------------------------------------------------------------
// The two lists of a context.

void event_reg_link(event_context *ctxt, event_record *ev)
{
    ev->er_reg_prev = ctxt->ec_reg_tail;
    ev->er_reg_next = nullptr;
    if (ctxt->ec_reg_tail != nullptr) {
        ctxt->ec_reg_tail->er_reg_next = ev;
    } else {
        ctxt->ec_reg_head = ev;
    }
    ctxt->ec_reg_tail = ev;
    ev->er_registered = true;
    ++ctxt->ec_num_registered;
}

void event_reg_unlink(event_context *ctxt, event_record *ev)
{
    if (ev->er_reg_prev != nullptr) {
        ev->er_reg_prev->er_reg_next = ev->er_reg_next;
    } else {
        ctxt->ec_reg_head = ev->er_reg_next;
    }
    if (ev->er_reg_next != nullptr) {
        ev->er_reg_next->er_reg_prev = ev->er_reg_prev;
    } else {
        ctxt->ec_reg_tail = ev->er_reg_prev;
    }
    ev->er_reg_prev = nullptr;
    ev->er_reg_next = nullptr;
    ev->er_registered = false;
    --ctxt->ec_num_registered;
}

void event_fired_link(event_context *ctxt, event_record *ev)
{
    ev->er_fired_prev = ctxt->ec_fired_tail;
    ev->er_fired_next = nullptr;
    if (ctxt->ec_fired_tail != nullptr) {
        ctxt->ec_fired_tail->er_fired_next = ev;
    } else {
        ctxt->ec_fired_head = ev;
    }
    ctxt->ec_fired_tail = ev;
}

void event_fired_unlink(event_context *ctxt, event_record *ev)
{
    if (ev->er_fired_prev != nullptr) {
        ev->er_fired_prev->er_fired_next = ev->er_fired_next;
    } else {
        ctxt->ec_fired_head = ev->er_fired_next;
    }
    if (ev->er_fired_next != nullptr) {
        ev->er_fired_next->er_fired_prev = ev->er_fired_prev;
    } else {
        ctxt->ec_fired_tail = ev->er_fired_prev;
    }
    ev->er_fired_prev = nullptr;
    ev->er_fired_next = nullptr;
    ev->er_fired_res = 0;
}

// ---------------------------------------------------------------------------------------
// Registration state.

// Takes the event out of the library and out of the registered list.
void event_unregister(event_context *ctxt, event_record *ev)
{
    if (ev->er_lib_added) {
        ::event_del(&ev->er_ev);
        ev->er_lib_added = false;
    }
    if (ev->er_registered) {
        event_reg_unlink(ctxt, ev);
    }
}

// Queues a firing of the event.  A non-persistent event stops being registered here, so
// that "registered" always means "may fire again".
void event_fire(event_context *ctxt, event_record *ev, short res)
{
    if ((ev->er_events & EV_PERSIST) == 0) {
        event_unregister(ctxt, ev);
    }
    if (ev->er_fired_res == 0) {
        event_fired_link(ctxt, ev);
    }
    ev->er_fired_res = static_cast<short>(ev->er_fired_res | (res & event_fire_bits));
}

// The library's callback for every event: only notes the firing.
void event_lib_callback(evutil_socket_t fd, short what, void *arg)
{
    (void)fd;
    event_record *ev = static_cast<event_record *>(arg);
    if ((ev->er_events & EV_PERSIST) == 0) {
        // The library has removed a non-persistent event before calling us.
        ev->er_lib_added = false;
    }
    event_fire(ev->er_context, ev, what);
}

// Gives the library the part of the event it watches: descriptor interest (less read
// interest while that is suppressed) and the time-out.  Signals are ours, not the
// library's, so a signal event gives it only its time-out.
int event_lib_arm(event_context *ctxt, event_record *ev, const struct timeval *timeout)
{
    int err = 0;
    short mask = static_cast<short>(ev->er_events & EV_PERSIST);
    evutil_socket_t lib_fd = -1;

    if ((ev->er_events & EV_SIGNAL) == 0) {
        mask = static_cast<short>(mask | (ev->er_events & (EV_READ | EV_WRITE)));
        if (ctxt->ec_suppress_read) {
            mask = static_cast<short>(mask & ~EV_READ);
        }
        lib_fd = ev->er_fd;
    }
    if ((mask & (EV_READ | EV_WRITE)) == 0 && timeout == nullptr) {
        goto bail;
    }
    if (event_assign(&ev->er_ev, ctxt->ec_base, lib_fd, mask, event_lib_callback, ev) != 0) {
        bail_force(lc_err_generic_error);
    }
    if (::event_add(&ev->er_ev, timeout) != 0) {
        bail_force(lc_err_generic_error);
    }
    ev->er_lib_added = true;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Signals.

void event_signal_catcher(int signum, siginfo_t *info, void *uctx)
{
    (void)uctx;
    const int saved_errno = errno;
    if (signum > 0 && signum < NSIG) {
        const int fd = g_event_signal_routes[signum].esr_fd.load(std::memory_order_relaxed);
        if (fd >= 0) {
            event_signal_message msg;
            memset(&msg, 0, sizeof(msg));
            msg.esm_signum = signum;
            msg.esm_pid = info != nullptr ? info->si_pid : 0;
            // A full pipe drops the signal: the loop is far behind and will wake anyway.
            const ssize_t written = write(fd, &msg, sizeof(msg));
            (void)written;
        }
    }
    errno = saved_errno;
}

// Routes the signal to this context's pipe, once per context and signal.
int event_signal_catch(event_context *ctxt, int signum)
{
    int err = 0;
    struct sigaction action = {};
    int saved_fd = -1;

    if (ctxt->ec_sig_caught[signum]) {
        goto bail;
    }
    action.sa_sigaction = event_signal_catcher;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    saved_fd = g_event_signal_routes[signum].esr_fd.exchange(ctxt->ec_pipe_write_fd);
    if (sigaction(signum, &action, &ctxt->ec_sig_saved_action[signum]) != 0) {
        g_event_signal_routes[signum].esr_fd.store(saved_fd);
        bail_errno(lc_err_invalid_param, "sigaction(%d)", signum);
    }
    ctxt->ec_sig_saved_fd[signum] = saved_fd;
    ctxt->ec_sig_caught[signum] = true;

bail:
    return err;
}

// Puts back the dispositions and routes that were there before this context.
void event_signal_release_all(event_context *ctxt)
{
    for (int signum = 1; signum < NSIG; ++signum) {
        if (!ctxt->ec_sig_caught[signum]) {
            continue;
        }
        if (sigaction(signum, &ctxt->ec_sig_saved_action[signum], nullptr) != 0) {
            lc_log_basic(LOG_WARNING, "libevent: could not restore the action of signal %d: %s",
                         signum, strerror(errno));
        }
        g_event_signal_routes[signum].esr_fd.store(ctxt->ec_sig_saved_fd[signum]);
        ctxt->ec_sig_caught[signum] = false;
    }
}

void event_signal_deliver(event_context *ctxt, int signum, int pid)
{
    const char *name = lc_signal_num_to_name(signum);
    lc_log_basic(signum == SIGCHLD ? LOG_DEBUG : LOG_INFO,
                 "libevent: received signal %d (%s), sent by pid %d", signum,
                 name != nullptr ? name : "unknown", pid);
    event_record *next = nullptr;
    for (event_record *ev = ctxt->ec_reg_head; ev != nullptr; ev = next) {
        next = ev->er_reg_next;
        if ((ev->er_events & EV_SIGNAL) != 0 && ev->er_fd == signum) {
            event_fire(ctxt, ev, EV_SIGNAL);
        }
    }
}

// The read side of the self-pipe.
void event_signal_pipe_callback(evutil_socket_t fd, short what, void *arg)
{
    (void)what;
    event_context *ctxt = static_cast<event_context *>(arg);
    event_signal_message msg;

    for (;;) {
        const ssize_t got = read(fd, &msg, sizeof(msg));
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (errno != EAGAIN && errno != EWOULDBLOCK) {
                lc_log_basic(LOG_ERR, "libevent: reading the signal pipe failed: %s",
                             strerror(errno));
            }
            break;
        }
        if (got == 0) {
            break;
        }
        if (got != static_cast<ssize_t>(sizeof(msg))) {
            lc_log_basic(LOG_WARNING,
                         "libevent: only read %d bytes from signal pipe, but %d expected",
                         static_cast<int>(got), static_cast<int>(sizeof(msg)));
            continue;
        }
        if (msg.esm_signum > 0 && msg.esm_signum < NSIG) {
            event_signal_deliver(ctxt, msg.esm_signum, msg.esm_pid);
        }
    }
}

// ---------------------------------------------------------------------------------------

void event_library_log(int severity, const char *msg)
{
    int level = LOG_DEBUG;
    switch (severity) {
    case EVENT_LOG_DEBUG:
        level = LOG_DEBUG;
        break;
    case EVENT_LOG_MSG:
        level = LOG_INFO;
        break;
    case EVENT_LOG_WARN:
        level = LOG_WARNING;
        break;
    default:
        level = LOG_ERR;
        break;
    }
    lc_log_basic(level, "libevent: %s", msg);
}

int event_check_owner(const event_context *ctxt)
{
    int err = 0;
    if (!pthread_equal(pthread_self(), ctxt->ec_owner)) {
        bail_force(lc_err_lock_bad_owner);
    }
bail:
    return err;
}

// Runs the callbacks of what fired, in order.  A callback may run the loop again, which
// then takes over the rest of the queue; it may delete any event, which drops that
// event's firing.  Returns the number of callbacks run.
uint32 event_run_fired(event_context *ctxt)
{
    uint32 count = 0;
    while (ctxt->ec_fired_head != nullptr) {
        event_record *ev = ctxt->ec_fired_head;
        const short res = ev->er_fired_res;
        event_fired_unlink(ctxt, ev);
        const event_handler_func handler = ev->er_handler;
        void *const data = ev->er_data;
        const int fd = ev->er_fd;
        ++count;
        // From here on the record belongs to the callback, which may free it.
        ++ctxt->ec_lock_depth;
        handler(fd, res, data, ctxt);
        --ctxt->ec_lock_depth;
    }
    return count;
}

}  // namespace

// ---------------------------------------------------------------------------------------

int event_init(event_context **ret_ctxt)
{
    int err = 0;
    event_context *ctxt = nullptr;
    struct event_config *config = nullptr;
    const char *method = nullptr;
    int fds[2] = {-1, -1};

    bail_null(ret_ctxt);
    *ret_ctxt = nullptr;

    event_set_log_callback(event_library_log);

    ctxt = new (std::nothrow) event_context();
    bail_null(ctxt);
    ctxt->ec_pipe_read_fd = -1;
    ctxt->ec_pipe_write_fd = -1;
    ctxt->ec_owner = pthread_self();
    for (int signum = 0; signum < NSIG; ++signum) {
        ctxt->ec_sig_saved_fd[signum] = -1;
    }

    // The poll back-end, whatever the environment says.
    config = event_config_new();
    bail_null(config);
    if (event_config_avoid_method(config, "epoll") != 0 ||
        event_config_avoid_method(config, "select") != 0 ||
        event_config_set_flag(config, EVENT_BASE_FLAG_IGNORE_ENV) != 0 ||
        event_config_set_flag(config, EVENT_BASE_FLAG_NOLOCK) != 0) {
        bail_force(lc_err_generic_error);
    }
    ctxt->ec_base = event_base_new_with_config(config);
    bail_null(ctxt->ec_base);
    method = event_base_get_method(ctxt->ec_base);
    bail_null(method);
    if (getenv("EVENT_SHOW_METHOD") != nullptr) {
        fprintf(stderr, "libevent using: %s\n", method);
    }

    if (pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
        bail_errno(lc_err_io_error, "pipe2() for the signal pipe");
    }
    ctxt->ec_pipe_read_fd = fds[0];
    ctxt->ec_pipe_write_fd = fds[1];
    ctxt->ec_pipe_event = event_new(ctxt->ec_base, ctxt->ec_pipe_read_fd, EV_READ | EV_PERSIST,
                                    event_signal_pipe_callback, ctxt);
    bail_null(ctxt->ec_pipe_event);
    if (::event_add(ctxt->ec_pipe_event, nullptr) != 0) {
        bail_force(lc_err_generic_error);
    }

    *ret_ctxt = ctxt;
    ctxt = nullptr;

bail:
    if (config != nullptr) {
        event_config_free(config);
    }
    if (ctxt != nullptr) {
        event_deinit(&ctxt);
    }
    return err;
}

int event_deinit(event_context **inout_ctxt)
{
    int err = 0;
    event_context *ctxt = nullptr;

    bail_null(inout_ctxt);
    ctxt = *inout_ctxt;
    if (ctxt == nullptr) {
        goto bail;
    }
    *inout_ctxt = nullptr;

    // The events are their owners'; they are only let go of, and can no longer reach the
    // context.
    while (ctxt->ec_fired_head != nullptr) {
        event_record *ev = ctxt->ec_fired_head;
        event_fired_unlink(ctxt, ev);
        ev->er_context = nullptr;
    }
    while (ctxt->ec_reg_head != nullptr) {
        event_record *ev = ctxt->ec_reg_head;
        event_unregister(ctxt, ev);
        ev->er_context = nullptr;
    }
    event_signal_release_all(ctxt);
    if (ctxt->ec_pipe_event != nullptr) {
        event_free(ctxt->ec_pipe_event);
    }
    if (ctxt->ec_base != nullptr) {
        event_base_free(ctxt->ec_base);
    }
    safe_close(&ctxt->ec_pipe_read_fd);
    safe_close(&ctxt->ec_pipe_write_fd);
    delete ctxt;

bail:
    return err;
}

int event_set(event_context *ctxt, event_record *ev, int fd, short events,
              event_handler_func handler, void *data)
{
    int err = 0;

    bail_null(ctxt);
    bail_null(ev);
    bail_null(handler);
    // A registered or fired event must be removed first.
    bail_require(!ev->er_registered && ev->er_fired_res == 0);
    bail_require((events & ~event_known_bits) == 0);
    if ((events & EV_SIGNAL) != 0) {
        bail_require((events & (EV_READ | EV_WRITE)) == 0);
        bail_require(fd > 0 && fd < NSIG);
    } else if ((events & (EV_READ | EV_WRITE)) != 0) {
        bail_require(fd >= 0);
    }

    ev->er_context = ctxt;
    ev->er_handler = handler;
    ev->er_data = data;
    ev->er_fd = fd;
    ev->er_events = events;
    ev->er_lib_added = false;

bail:
    return err;
}

int event_add(event_record *ev, const struct timeval *timeout)
{
    int err = 0;
    event_context *ctxt = nullptr;

    bail_null(ev);
    ctxt = ev->er_context;
    bail_null(ctxt);
    if (timeout != nullptr) {
        bail_require(timeout->tv_sec >= 0 && timeout->tv_usec >= 0);
    }
    // Something to wait for: descriptor interest, a signal or a time-out.
    bail_require(timeout != nullptr || (ev->er_events & (EV_READ | EV_WRITE | EV_SIGNAL)) != 0);

    if ((ev->er_events & EV_SIGNAL) != 0) {
        err = event_signal_catch(ctxt, ev->er_fd);
        bail_error(err);
    }
    if (ev->er_lib_added) {
        ::event_del(&ev->er_ev);
        ev->er_lib_added = false;
    }
    err = event_lib_arm(ctxt, ev, timeout);
    bail_error(err);
    if (!ev->er_registered) {
        event_reg_link(ctxt, ev);
    }

bail:
    return err;
}

int event_del(event_record *ev)
{
    int err = 0;
    event_context *ctxt = nullptr;

    bail_null(ev);
    ctxt = ev->er_context;
    if (ctxt == nullptr) {
        goto bail;
    }
    event_unregister(ctxt, ev);
    if (ev->er_fired_res != 0) {
        event_fired_unlink(ctxt, ev);
    }

bail:
    return err;
}

int event_pending(const event_record *ev, short events, short *ret_pending,
                  struct timeval *ret_timeout)
{
    int err = 0;
    short flags = 0;
    struct timeval expiry = {};

    if (ret_timeout != nullptr) {
        *ret_timeout = {};
    }
    bail_null(ret_pending);
    *ret_pending = 0;
    bail_null(ev);

    if (ev->er_registered) {
        flags = static_cast<short>(ev->er_events & (EV_READ | EV_WRITE | EV_SIGNAL));
        if (ev->er_lib_added && ::event_pending(&ev->er_ev, EV_TIMEOUT, &expiry) != 0) {
            flags = static_cast<short>(flags | EV_TIMEOUT);
            if (ret_timeout != nullptr && (events & EV_TIMEOUT) != 0) {
                *ret_timeout = expiry;
            }
        }
    }
    flags = static_cast<short>(flags | ev->er_fired_res);
    *ret_pending = static_cast<short>(flags & events);

bail:
    return err;
}

int event_active(event_record *ev, short res)
{
    int err = 0;

    bail_null(ev);
    bail_null(ev->er_context);
    bail_require((res & event_fire_bits) != 0);
    event_fire(ev->er_context, ev, res);

bail:
    return err;
}

int event_loop(event_context *ctxt, int flags, event_loop_reason *ret_reason)
{
    int err = 0;
    event_loop_reason reason = elr_none;
    int lib_flags = 0;
    uint32 ran = 0;

    bail_null(ret_reason);
    *ret_reason = elr_none;
    bail_null(ctxt);
    err = event_check_owner(ctxt);
    bail_error(err);

    for (;;) {
        // The test for no events stands first: with nothing registered the escape
        // request stays where it is.
        if (ctxt->ec_num_registered == 0 && ctxt->ec_fired_head == nullptr) {
            reason = elr_no_events;
            break;
        }
        if (ctxt->ec_escape_requested) {
            if (!ctxt->ec_escape_sticky) {
                ctxt->ec_escape_requested = false;
            }
            reason = elr_escaped;
            break;
        }
        // Firings left by an outer round are run without waiting first.
        lib_flags = EVLOOP_ONCE;
        if ((flags & EVENT_LOOP_NONBLOCK) != 0 || ctxt->ec_fired_head != nullptr) {
            lib_flags |= EVLOOP_NONBLOCK;
        }
        if (event_base_loop(ctxt->ec_base, lib_flags) < 0) {
            bail_errno(lc_err_io_error, "waiting for events failed");
        }
        ran = event_run_fired(ctxt);
        if ((flags & (EVENT_LOOP_ONCE | EVENT_LOOP_NONBLOCK)) != 0) {
            reason = (ran == 0 && (flags & EVENT_LOOP_NONBLOCK) != 0) ? elr_nonblock_idle
                                                                      : elr_round_done;
            break;
        }
    }
    *ret_reason = reason;

bail:
    return err;
}

int event_loop_escape(event_context *ctxt, tbool sticky)
{
    int err = 0;

    bail_null(ctxt);
    ctxt->ec_escape_requested = true;
    if (sticky) {
        ctxt->ec_escape_sticky = true;
    }
    err = event_maybe_notify_change(ctxt);
    bail_error(err);

bail:
    return err;
}

int event_loop_unescape(event_context *ctxt)
{
    int err = 0;

    bail_null(ctxt);
    ctxt->ec_escape_requested = false;
    ctxt->ec_escape_sticky = false;

bail:
    return err;
}

int event_loop_escape_is_sticky(event_context *ctxt, tbool *ret_is_sticky)
{
    int err = 0;

    bail_null(ret_is_sticky);
    *ret_is_sticky = false;
    bail_null(ctxt);
    *ret_is_sticky = ctxt->ec_escape_requested && ctxt->ec_escape_sticky;

bail:
    return err;
}

int event_suppress_read_fds(event_context *ctxt, tbool suppress)
{
    int err = 0;
    int arm_err = 0;
    struct timeval expiry = {};
    struct timeval now = {};
    struct timeval left = {};
    tbool has_timeout = false;

    bail_null(ctxt);
    if (ctxt->ec_suppress_read == suppress) {
        goto bail;
    }
    ctxt->ec_suppress_read = suppress;

    // Hand the library the changed interest of each reading event, keeping the time left
    // of its time-out.
    for (event_record *ev = ctxt->ec_reg_head; ev != nullptr; ev = ev->er_reg_next) {
        if ((ev->er_events & EV_READ) == 0) {
            continue;
        }
        has_timeout = false;
        if (ev->er_lib_added) {
            if (::event_pending(&ev->er_ev, EV_TIMEOUT, &expiry) != 0) {
                has_timeout = true;
                gettimeofday(&now, nullptr);
                if (timercmp(&expiry, &now, >)) {
                    timersub(&expiry, &now, &left);
                } else {
                    left = {};
                }
            }
            ::event_del(&ev->er_ev);
            ev->er_lib_added = false;
        }
        arm_err = event_lib_arm(ctxt, ev, has_timeout ? &left : nullptr);
        if (arm_err != 0 && err == 0) {
            err = arm_err;
        }
    }

bail:
    return err;
}

int event_maybe_notify_change(event_context *ctxt)
{
    int err = 0;
    event_signal_message msg;
    ssize_t written = 0;

    bail_null(ctxt);
    if (pthread_equal(pthread_self(), ctxt->ec_owner)) {
        goto bail;
    }
    memset(&msg, 0, sizeof(msg));
    written = write(ctxt->ec_pipe_write_fd, &msg, sizeof(msg));
    // A full pipe wakes the loop anyway.
    if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
        bail_errno(lc_err_io_error, "waking the event loop");
    }

bail:
    return err;
}

int event_lock(event_context *ctxt)
{
    int err = 0;

    bail_null(ctxt);
    err = event_check_owner(ctxt);
    bail_error(err);
    ++ctxt->ec_lock_depth;

bail:
    return err;
}

int event_unlock(event_context *ctxt)
{
    int err = 0;

    bail_null(ctxt);
    err = event_check_owner(ctxt);
    bail_error(err);
    if (ctxt->ec_lock_depth == 0) {
        bail_force(lc_err_lock_not_locked);
    }
    --ctxt->ec_lock_depth;

bail:
    return err;
}
