// The event loop of the process, over the event engine.
#include "libevent_wrapper.h"

#include <cstdlib>
#include <cstring>

#include "libevent_wrapper_internal.h"
#include "logging.h"

namespace {

// A timer that fires at most this early is taken as on time.
constexpr lt_dur_ms lew_timer_tolerance_ms = 20;

// The engine counts absolute wall-clock time in 32-bit seconds: no expiry may pass this.
constexpr int64 lew_max_expiry_sec = 0x7FFFFFFE;
constexpr int64 lew_max_expiry_usec = 0x7FFFFFFF;

constexpr short lew_all_pending_bits = EV_TIMEOUT | EV_READ | EV_WRITE | EV_SIGNAL;

lew_uptime_func g_lew_uptime_func = nullptr;

lt_time_ms lew_uptime_ms(void)
{
    return g_lew_uptime_func != nullptr ? g_lew_uptime_func() : lt_sys_uptime_ms();
}

const char *lew_text_or_none(const char *text)
{
    return text != nullptr ? text : "(none)";
}

void lew_event_free(lew_event *event)
{
    if (event == nullptr) {
        return;
    }
    // A doomed event was cancelled already; this keeps the engine clean whatever came
    // before.
    event_del(&event->lwe_event);
    free(event->lwe_event_name);
    free(event->lwe_event_handler_name);
    free(event);
}

// Finds or makes the event behind a handle.  A new event joins lwc_events at once, so a
// registration that fails half-way leaves it there to be freed at the end.
int lew_event_get_event(lew_context *context, lew_event **inout_event, tbool create)
{
    int err = 0;
    lew_event *event = nullptr;

    bail_null(context);
    bail_null(inout_event);
    if (*inout_event != nullptr) {
        bail_require((*inout_event)->lwe_context == context);
        goto bail;
    }
    if (!create) {
        bail_null(*inout_event);
    }
    event = static_cast<lew_event *>(calloc(1, sizeof(lew_event)));
    bail_null(event);
    event->lwe_context = context;
    event->lwe_timer_start = -1;
    event->lwe_timer_duration = -1;
    err = array_insert_sorted(context->lwc_events, inout_event);
    bail_error(err);
    *inout_event = event;
    event = nullptr;

bail:
    free(event);
    return err;
}

int lew_replace_name(char **inout_name, const char *name)
{
    int err = 0;
    char *copy = nullptr;

    if (name == nullptr) {
        goto bail;
    }
    copy = strdup(name);
    bail_null(copy);
    free(*inout_name);
    *inout_name = copy;

bail:
    return err;
}

// The steps all registrations share.  `events` holds the engine's bits.
int lew_event_reg_internal(lew_context *context, lew_event **inout_event, const char *event_name,
                           int fd, short events, const char *event_handler_name,
                           lew_event_handler handler, void *data, lt_dur_ms timeout)
{
    int err = 0;
    tbool locked = false;
    lew_event *event = nullptr;
    struct timeval tv = {};

    bail_null(context);
    bail_null(inout_event);
    bail_null(handler);
    err = event_lock(context->lwc_ec);
    bail_error(err);
    locked = true;

    err = lew_event_get_event(context, inout_event, true);
    bail_error(err);
    event = *inout_event;
    // A registration replaces whatever the event was doing.
    err = lew_event_cancel(context, event);
    bail_error(err);

    err = lew_replace_name(&event->lwe_event_name, event_name);
    bail_error(err);
    err = lew_replace_name(&event->lwe_event_handler_name, event_handler_name);
    bail_error(err);
    event->lwe_handler = handler;
    event->lwe_data = data;
    if (timeout >= 0) {
        event->lwe_timer_start = lew_uptime_ms();
        event->lwe_timer_duration = timeout;
    } else {
        event->lwe_timer_start = -1;
        event->lwe_timer_duration = -1;
    }

    err = event_set(context->lwc_ec, &event->lwe_event, fd, events, lew_universal_event_handler,
                    inout_event);
    bail_error(err);
    if (timeout >= 0) {
        err = lew_get_timeout(timeout, &tv);
        bail_error(err);
    }
    err = event_add(&event->lwe_event, timeout >= 0 ? &tv : nullptr);
    bail_error(err);

bail:
    if (locked) {
        complain_error(event_unlock(context->lwc_ec));
    }
    return err;
}

// Moves the event at `idx` of lwc_events to the doomed ones and nulls its handle.
int lew_doom_event(lew_context *context, uint32 idx)
{
    int err = 0;
    lew_event **handle = nullptr;
    void *removed = nullptr;

    handle = static_cast<lew_event **>(array_get_quick(context->lwc_events, idx));
    err = array_append(context->lwc_doomed_events, *handle);
    bail_error(err);
    err = array_remove(context->lwc_events, idx, &removed);
    bail_error(err);
    *handle = nullptr;

bail:
    return err;
}

// Runs one engine round with `flags` and reports why it ended.
int lew_dispatch_internal(lew_context *context, int flags, tbool *ret_no_events_left,
                          tbool *ret_escaped)
{
    int err = 0;
    const lew_retvals retvals = {ret_no_events_left, ret_escaped};
    event_loop_reason reason = elr_none;

    if (ret_no_events_left != nullptr) {
        *ret_no_events_left = false;
    }
    if (ret_escaped != nullptr) {
        *ret_escaped = false;
    }
    bail_null(context);
    err = event_loop(context->lwc_ec, flags, &reason);
    bail_error(err);
    err = lew_retvals_set(&retvals, reason);
    bail_error(err);

bail:
    if (context != nullptr) {
        const int doom_err = complain_error(lew_delete_doomed_events(context));
        if (err == 0) {
            err = doom_err;
        }
    }
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------

void lew_set_uptime_func(lew_uptime_func func)
{
    g_lew_uptime_func = func;
}

void lew_event_p_free_for_array(void *elem)
{
    lew_event **handle = static_cast<lew_event **>(elem);
    if (handle != nullptr && *handle != nullptr) {
        lew_event_free(*handle);
        *handle = nullptr;
    }
}

void lew_event_free_for_array(void *elem)
{
    lew_event_free(static_cast<lew_event *>(elem));
}

int lew_init(lew_context **ret_context)
{
    int err = 0;
    lew_context *context = nullptr;
    array_options opts = {};

    bail_null(ret_context);
    *ret_context = nullptr;

    context = static_cast<lew_context *>(calloc(1, sizeof(lew_context)));
    bail_null(context);

    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_free_func = lew_event_p_free_for_array;
    err = array_new(&context->lwc_events, &opts);
    bail_error(err);

    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_free_func = free;
    err = array_new(&context->lwc_auto_alloc_events, &opts);
    bail_error(err);

    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_free_func = lew_event_free_for_array;
    err = array_new(&context->lwc_doomed_events, &opts);
    bail_error(err);

    err = event_init(&context->lwc_ec);
    bail_error(err);

    *ret_context = context;
    context = nullptr;

bail:
    if (context != nullptr) {
        lew_deinit(&context);
    }
    return err;
}

int lew_deinit(lew_context **inout_context)
{
    int err = 0;
    lew_context *context = nullptr;

    bail_null(inout_context);
    context = *inout_context;
    if (context == nullptr) {
        goto bail;
    }
    *inout_context = nullptr;

    if (context->lwc_ec != nullptr && context->lwc_events != nullptr &&
        context->lwc_doomed_events != nullptr) {
        err = lew_delete_all_events(context);
        complain_error(err);
    }
    // The events go before the engine: freeing one takes it out of the engine.
    array_free(&context->lwc_events);
    array_free(&context->lwc_doomed_events);
    array_free(&context->lwc_auto_alloc_events);
    event_deinit(&context->lwc_ec);
    free(context);

bail:
    return err;
}

int lew_get_event_context(lew_context *context, event_context **ret_event_context)
{
    int err = 0;

    bail_null(ret_event_context);
    *ret_event_context = nullptr;
    bail_null(context);
    *ret_event_context = context->lwc_ec;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Registration.

int lew_event_reg_fd(lew_context *context, lew_event **inout_event, int fd,
                     lew_event_type event_type, tbool persist, lew_event_handler handler,
                     void *data)
{
    return lew_event_reg_fd_full(context, inout_event, nullptr, fd, event_type, persist, nullptr,
                                 handler, data, -1);
}

int lew_event_reg_fd_timeout(lew_context *context, lew_event **inout_event, int fd,
                             lew_event_type event_type, tbool persist, lew_event_handler handler,
                             void *data, lt_dur_ms timeout)
{
    return lew_event_reg_fd_full(context, inout_event, nullptr, fd, event_type, persist, nullptr,
                                 handler, data, timeout);
}

int lew_event_reg_fd_full(lew_context *context, lew_event **inout_event, const char *event_name,
                          int fd, lew_event_type event_type, tbool persist,
                          const char *event_handler_name, lew_event_handler handler, void *data,
                          lt_dur_ms timeout)
{
    int err = 0;
    short events = 0;

    bail_null(context);
    bail_null(inout_event);
    bail_null(handler);
    // A descriptor waits for reading or writing, nothing else.
    bail_require((event_type & ~static_cast<lew_event_type>(EV_READ | EV_WRITE)) == 0);
    events = static_cast<short>(event_type | (persist ? EV_PERSIST : 0));
    err = lew_event_reg_internal(context, inout_event, event_name, fd, events,
                                 event_handler_name, handler, data, timeout);
    bail_error(err);

bail:
    return err;
}

int lew_event_reg_signal(lew_context *context, lew_event **inout_event, int signum,
                         lew_event_handler handler, void *data)
{
    return lew_event_reg_signal_timeout(context, inout_event, signum, handler, data, -1);
}

int lew_event_reg_signal_timeout(lew_context *context, lew_event **inout_event, int signum,
                                 lew_event_handler handler, void *data, lt_dur_ms timeout)
{
    int err = 0;

    err = lew_event_reg_internal(context, inout_event, nullptr, signum, EV_SIGNAL | EV_PERSIST,
                                 nullptr, handler, data, timeout);
    bail_error(err);

bail:
    return err;
}

int lew_event_reg_timer(lew_context *context, lew_event **inout_event, lew_event_handler handler,
                        void *data, lt_dur_ms timer_length)
{
    return lew_event_reg_timer_full(context, inout_event, nullptr, nullptr, handler, data,
                                    timer_length);
}

int lew_event_reg_timer_full(lew_context *context, lew_event **inout_event,
                             const char *event_name, const char *event_handler_name,
                             lew_event_handler ev_handler, void *data, lt_dur_ms timer_length)
{
    int err = 0;
    lew_event **handle = inout_event;
    lew_event **auto_handle = nullptr;

    bail_null(context);
    bail_null(ev_handler);
    bail_require(timer_length >= 0);

    if (handle == nullptr) {
        // An automatic timer: the handle is ours, and the event goes after it fired.
        auto_handle = static_cast<lew_event **>(calloc(1, sizeof(lew_event *)));
        bail_null(auto_handle);
        handle = auto_handle;
        err = array_append(context->lwc_auto_alloc_events, auto_handle);
        bail_error(err);
        auto_handle = nullptr;
    }
    err = lew_event_reg_internal(context, handle, event_name, -1, 0, event_handler_name,
                                 ev_handler, data, timer_length);
    if (inout_event == nullptr && *handle != nullptr) {
        (*handle)->lwe_auto_free = true;
    }
    bail_error(err);

bail:
    free(auto_handle);
    return err;
}

// ---------------------------------------------------------------------------------------
// Single events.

int lew_event_get_data(lew_context *context, const lew_event *event, void **ret_data)
{
    int err = 0;

    bail_null(ret_data);
    *ret_data = nullptr;
    bail_null(context);
    bail_null(event);
    *ret_data = event->lwe_data;

bail:
    return err;
}

int lew_event_is_pending(lew_context *context, const lew_event *event, tbool *ret_is_pending,
                         lt_time_ms *ret_timer_expiration)
{
    int err = 0;
    short pending = 0;

    if (ret_timer_expiration != nullptr) {
        *ret_timer_expiration = -1;
    }
    bail_null(ret_is_pending);
    *ret_is_pending = false;
    bail_null(context);
    bail_null(event);

    err = event_pending(&event->lwe_event, lew_all_pending_bits, &pending, nullptr);
    bail_error(err);
    *ret_is_pending = pending != 0;
    if (ret_timer_expiration != nullptr && (pending & EV_TIMEOUT) != 0 &&
        event->lwe_timer_start >= 0) {
        *ret_timer_expiration = event->lwe_timer_start + event->lwe_timer_duration;
    }

bail:
    return err;
}

int lew_event_reschedule(lew_context *context, lew_event **inout_event)
{
    int err = 0;
    lt_dur_ms duration = -1;

    err = lew_event_get_event(context, inout_event, false);
    bail_error(err);
    // Cancelling forgets the duration, so take it first.
    duration = (*inout_event)->lwe_timer_duration;
    err = lew_event_reschedule_timeout(context, inout_event, duration);
    bail_error(err);

bail:
    return err;
}

int lew_event_reschedule_timeout(lew_context *context, lew_event **inout_event,
                                 lt_dur_ms timeout)
{
    int err = 0;
    tbool locked = false;
    lew_event *event = nullptr;
    struct timeval tv = {};

    bail_null(context);
    err = event_lock(context->lwc_ec);
    bail_error(err);
    locked = true;

    err = lew_event_get_event(context, inout_event, false);
    bail_error(err);
    event = *inout_event;
    err = lew_event_cancel(context, event);
    bail_error(err);
    if (timeout >= 0) {
        event->lwe_timer_start = lew_uptime_ms();
        event->lwe_timer_duration = timeout;
        err = lew_get_timeout(timeout, &tv);
        bail_error(err);
    } else {
        event->lwe_timer_start = -1;
        event->lwe_timer_duration = -1;
    }
    err = event_add(&event->lwe_event, timeout >= 0 ? &tv : nullptr);
    bail_error(err);

bail:
    if (locked) {
        complain_error(event_unlock(context->lwc_ec));
    }
    return err;
}

int lew_event_cancel(lew_context *context, lew_event *event)
{
    int err = 0;
    tbool locked = false;
    short pending = 0;

    bail_null(context);
    bail_null(event);
    err = event_lock(context->lwc_ec);
    bail_error(err);
    locked = true;

    err = event_pending(&event->lwe_event, lew_all_pending_bits, &pending, nullptr);
    bail_error(err);
    if (pending != 0) {
        event->lwe_timer_start = -1;
        event->lwe_timer_duration = -1;
        err = event_del(&event->lwe_event);
        bail_error(err);
    }

bail:
    if (locked) {
        complain_error(event_unlock(context->lwc_ec));
    }
    return err;
}

int lew_event_delete(lew_context *context, lew_event **inout_event)
{
    int err = 0;
    tbool locked = false;
    uint32 idx = 0;

    bail_null(context);
    bail_null(inout_event);
    bail_null(*inout_event);
    err = event_lock(context->lwc_ec);
    bail_error(err);
    locked = true;

    if (array_binary_search(context->lwc_events, inout_event, &idx) != 0) {
        // The order of the handles is broken: look at them all.
        if (array_linear_search(context->lwc_events, inout_event, 0, &idx) != 0) {
            bail_force(lc_err_not_found);
        }
        lc_log_basic(LOG_DEBUG, "libevent: Binary search failed (delete), linear ok found@%d",
                     static_cast<int>(idx));
    }
    err = lew_event_cancel(context, *inout_event);
    bail_error(err);
    err = lew_doom_event(context, idx);
    bail_error(err);

bail:
    if (locked) {
        complain_error(event_unlock(context->lwc_ec));
    }
    return err;
}

int lew_cancel_all_events(lew_context *context)
{
    int err = 0;
    int cancel_err = 0;
    uint32 num_events = 0;

    bail_null(context);
    num_events = array_length_quick(context->lwc_events);
    for (uint32 i = 0; i < num_events; ++i) {
        lew_event **handle = static_cast<lew_event **>(array_get_quick(context->lwc_events, i));
        if (*handle == nullptr) {
            continue;
        }
        cancel_err = lew_event_cancel(context, *handle);
        if (cancel_err != 0 && err == 0) {
            err = cancel_err;
        }
    }

bail:
    return err;
}

int lew_delete_all_events(lew_context *context)
{
    int err = 0;
    int delete_err = 0;
    uint32 num_events = 0;

    bail_null(context);
    // From the end, so that the indexes still to come stay put.
    num_events = array_length_quick(context->lwc_events);
    for (uint32 i = num_events; i > 0; --i) {
        lew_event **handle = static_cast<lew_event **>(array_get_quick(context->lwc_events, i - 1));
        if (*handle == nullptr) {
            continue;
        }
        delete_err = lew_event_delete(context, handle);
        if (delete_err != 0 && err == 0) {
            err = delete_err;
        }
    }
    delete_err = lew_delete_doomed_events(context);
    if (delete_err != 0 && err == 0) {
        err = delete_err;
    }
    bail_error(err);

bail:
    return err;
}

int lew_delete_doomed_events(lew_context *context)
{
    int err = 0;
    uint32 num_doomed = 0;

    bail_null(context);
    num_doomed = array_length_quick(context->lwc_doomed_events);
    if (num_doomed == 0) {
        goto bail;
    }
    for (uint32 i = 0; i < num_doomed; ++i) {
        lc_log_basic(LOG_DEBUG, "libevent: dooming event %p",
                     array_get_quick(context->lwc_doomed_events, i));
    }
    err = array_empty(context->lwc_doomed_events);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Firing.

int lew_universal_event_handler(int fd, short event_type, void *data, event_context *ctxt)
{
    int err = 0;
    lew_event **handle = static_cast<lew_event **>(data);
    lew_event *event = nullptr;
    lew_context *context = nullptr;
    lt_time_ms now = 0;
    lt_time_ms expiry = 0;
    tbool auto_free = false;
    uint32 idx = 0;

    (void)ctxt;
    bail_null(handle);
    event = *handle;
    bail_null(event);
    context = event->lwe_context;
    bail_null(context);

    // The engine's notion of time may have moved: check the timer against uptime.
    if (event_type == EV_TIMEOUT && event->lwe_timer_start >= 0) {
        now = lew_uptime_ms();
        expiry = event->lwe_timer_start + event->lwe_timer_duration;
        if (now + lew_timer_tolerance_ms < expiry) {
            lc_log_basic(
                LOG_DEBUG,
                "libevent: timer %p fired prematurely; rescheduling for %lldms in the future",
                static_cast<void *>(event), static_cast<long long>(expiry - now));
            err = lew_event_reschedule_timeout(context, handle, expiry - now);
            bail_error(err);
            goto bail;
        }
        lc_log_basic(LOG_DEBUG, "libevent: timer %p fired: ok (%lldms late), processing now",
                     static_cast<void *>(event), static_cast<long long>(now - expiry));
    }

    // The callback may destroy the event: what is needed afterwards is taken now.
    auto_free = event->lwe_auto_free;
    if (event->lwe_handler != nullptr) {
        complain_error(event->lwe_handler(fd, event_type, event->lwe_data, context));
    }
    event = nullptr;

    if (auto_free) {
        // Unless the callback removed it, the handle is still ours to clear.
        if (array_linear_search(context->lwc_auto_alloc_events, handle, 0, &idx) == 0) {
            if (*handle != nullptr) {
                err = lew_event_delete(context, handle);
                bail_error(err);
            }
            err = array_delete(context->lwc_auto_alloc_events, idx);
            bail_error(err);
        }
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Dispatch.

int lew_retvals_set(const lew_retvals *retvals, int reason)
{
    int err = 0;

    bail_null(retvals);
    if (retvals->ret_no_events_left != nullptr) {
        *retvals->ret_no_events_left = (reason == elr_no_events);
    }
    if (retvals->ret_escaped != nullptr) {
        *retvals->ret_escaped = (reason == elr_escaped);
    }

bail:
    return err;
}

int lew_dispatch(lew_context *context, tbool *ret_no_events_left, tbool *ret_escaped)
{
    int err = 0;
    tbool no_events_left = false;
    tbool escaped = false;

    if (ret_no_events_left != nullptr) {
        *ret_no_events_left = false;
    }
    if (ret_escaped != nullptr) {
        *ret_escaped = false;
    }
    bail_null(context);
    while (!no_events_left && !escaped) {
        err = lew_dispatch_once(context, &no_events_left, &escaped);
        bail_error(err);
    }
    if (ret_no_events_left != nullptr) {
        *ret_no_events_left = no_events_left;
    }
    if (ret_escaped != nullptr) {
        *ret_escaped = escaped;
    }

bail:
    return err;
}

int lew_dispatch_once(lew_context *context, tbool *ret_no_events_left, tbool *ret_escaped)
{
    return lew_dispatch_internal(context, EVENT_LOOP_ONCE, ret_no_events_left, ret_escaped);
}

int lew_dispatch_nonblocking(lew_context *context, tbool *ret_no_events_left,
                             tbool *ret_escaped)
{
    return lew_dispatch_internal(context, EVENT_LOOP_NONBLOCK, ret_no_events_left, ret_escaped);
}

int lew_escape_from_dispatch(lew_context *context, tbool sticky)
{
    int err = 0;

    bail_null(context);
    lc_log_basic(LOG_INFO, "libevent: escaping from dispatch (%s)",
                 sticky ? "sticky" : "not sticky");
    err = event_loop_escape(context->lwc_ec, sticky);
    bail_error(err);

bail:
    return err;
}

int lew_unescape_from_dispatch(lew_context *context)
{
    int err = 0;

    bail_null(context);
    err = event_loop_unescape(context->lwc_ec);
    bail_error(err);

bail:
    return err;
}

int lew_escape_from_dispatch_is_sticky(lew_context *context, tbool *ret_is_sticky)
{
    int err = 0;

    bail_null(ret_is_sticky);
    *ret_is_sticky = false;
    bail_null(context);
    err = event_loop_escape_is_sticky(context->lwc_ec, ret_is_sticky);
    bail_error(err);

bail:
    return err;
}

int lew_suppress_read_fds(lew_context *context, tbool on)
{
    int err = 0;

    bail_null(context);
    err = event_suppress_read_fds(context->lwc_ec, on);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------

int lew_dump_all_events(int log_level, const char *prefix, lew_context *context)
{
    int err = 0;
    const char *lead = prefix != nullptr ? prefix : "";
    const char *sep = (prefix != nullptr && prefix[0] != '\0') ? ": " : "";
    uint32 num_events = 0;
    short pending = 0;

    bail_null(context);
    num_events = array_length_quick(context->lwc_events);
    lc_log_basic(log_level, "%s%s%u events registered, %u doomed, %u automatic", lead, sep,
                 num_events, array_length_quick(context->lwc_doomed_events),
                 array_length_quick(context->lwc_auto_alloc_events));
    for (uint32 i = 0; i < num_events; ++i) {
        lew_event **handle = static_cast<lew_event **>(array_get_quick(context->lwc_events, i));
        const lew_event *event = *handle;
        if (event == nullptr) {
            continue;
        }
        pending = 0;
        complain_error(event_pending(&event->lwe_event, lew_all_pending_bits, &pending, nullptr));
        lc_log_basic(log_level,
                     "%s%sevent %p (handle %p): name %s, handler %s, fd %d, type 0x%x, "
                     "pending 0x%x, timer start %lld duration %lld, auto-free %s",
                     lead, sep, static_cast<const void *>(event), static_cast<void *>(handle),
                     lew_text_or_none(event->lwe_event_name),
                     lew_text_or_none(event->lwe_event_handler_name), event->lwe_event.er_fd,
                     static_cast<unsigned>(event->lwe_event.er_events),
                     static_cast<unsigned>(pending),
                     static_cast<long long>(event->lwe_timer_start),
                     static_cast<long long>(event->lwe_timer_duration),
                     lc_bool_to_str(event->lwe_auto_free));
    }

bail:
    return err;
}

int lew_get_timeout(lt_dur_ms timeout, struct timeval *ret_timeval)
{
    int err = 0;
    struct timeval now = {};
    int64 longest_ms = 0;

    bail_null(ret_timeval);
    *ret_timeval = {};
    bail_require(timeout >= 0);

    // The longest time-out ends at the engine's last second, with its usual borrow.
    gettimeofday(&now, nullptr);
    longest_ms = (lew_max_expiry_sec - now.tv_sec) * 1000 +
                 (lew_max_expiry_usec - now.tv_usec) / 1000;
    if (longest_ms < 0) {
        longest_ms = 0;
    }
    if (timeout > longest_ms) {
        timeout = longest_ms;
    }
    ret_timeval->tv_sec = static_cast<time_t>(timeout / 1000);
    ret_timeval->tv_usec = static_cast<suseconds_t>((timeout % 1000) * 1000);

bail:
    return err;
}
