// The event loop of the process: descriptors, signals and timers with their callbacks.
//
// Events are owned records with names.  The caller keeps a `lew_event *` variable; the
// registration functions fill it and keep its address for the life of the event, since
// the callback gets the event back through it.  An event may be deleted from any
// callback, its own included: the record is only freed between rounds.  Timers are kept
// in milliseconds of monotonic uptime, so setting the wall clock does not move them.
//
// Every function returns 0 or an lc_error_code; a null context, handle or handler gives
// lc_err_unexpected_null.
#pragma once

#include <sys/time.h>

#include "array.h"
#include "common.h"
#include "event_engine.h"
#include "ttime.h"

struct lew_context;
struct lew_event;

// The callback of an event.  `fd` is the descriptor, the signal number, or -1 for a
// timer; `event_type` holds the EV_ bits that fired.  A non-zero result is logged and the
// loop runs on.
typedef int (*lew_event_handler)(int fd, short event_type, void *data, lew_context *context);

// EV_TIMEOUT, EV_READ, EV_WRITE, EV_SIGNAL, EV_PERSIST.
typedef uint32 lew_event_type;

struct lew_context {
    array *lwc_events;             // lew_event **: the handles of all registered events, by pointer
    event_context *lwc_ec;         // the engine
    array *lwc_auto_alloc_events;  // lew_event **: handles allocated here for automatic timers
    array *lwc_doomed_events;      // lew_event *: deleted events waiting to be freed
};

struct lew_event {
    event_record lwe_event;
    lew_context *lwe_context;
    lew_event_handler lwe_handler;
    void *lwe_data;
    char *lwe_event_name;
    char *lwe_event_handler_name;
    lt_time_ms lwe_timer_start;    // uptime when the timer was armed; -1 with no timer
    lt_dur_ms lwe_timer_duration;  // -1 with no timer
    tbool lwe_auto_free;
};

// Where the dispatch functions report why they returned.  Either pointer may be null.
struct lew_retvals {
    tbool *ret_no_events_left;
    tbool *ret_escaped;
};

// Making and ending the loop.  lew_deinit deletes and frees every event still registered.
int lew_init(lew_context **ret_context);
int lew_deinit(lew_context **inout_context);

// The engine under the loop, for code that talks to it directly.
int lew_get_event_context(lew_context *context, event_context **ret_event_context);

// A descriptor: `event_type` may hold EV_READ and EV_WRITE only.  With `persist` the event
// stays registered after it fired.  A handle that holds an event re-registers it.
int lew_event_reg_fd(lew_context *context, lew_event **inout_event, int fd,
                     lew_event_type event_type, tbool persist, lew_event_handler handler,
                     void *data);
int lew_event_reg_fd_timeout(lew_context *context, lew_event **inout_event, int fd,
                             lew_event_type event_type, tbool persist, lew_event_handler handler,
                             void *data, lt_dur_ms timeout);
// The general form: names are copied when given; a negative `timeout` means none.
int lew_event_reg_fd_full(lew_context *context, lew_event **inout_event, const char *event_name,
                          int fd, lew_event_type event_type, tbool persist,
                          const char *event_handler_name, lew_event_handler handler, void *data,
                          lt_dur_ms timeout);

// A signal; the event stays registered and fires for every delivery.
int lew_event_reg_signal(lew_context *context, lew_event **inout_event, int signum,
                         lew_event_handler handler, void *data);
int lew_event_reg_signal_timeout(lew_context *context, lew_event **inout_event, int signum,
                                 lew_event_handler handler, void *data, lt_dur_ms timeout);

// A one-shot timer of `timer_length` milliseconds.  With a null `inout_event` the layer
// keeps the handle itself and frees the event after it fired.
int lew_event_reg_timer(lew_context *context, lew_event **inout_event, lew_event_handler handler,
                        void *data, lt_dur_ms timer_length);
int lew_event_reg_timer_full(lew_context *context, lew_event **inout_event,
                             const char *event_name, const char *event_handler_name,
                             lew_event_handler ev_handler, void *data, lt_dur_ms timer_length);

int lew_event_get_data(lew_context *context, const lew_event *event, void **ret_data);
// Whether the event will fire, and for a timer when: the uptime of its expiry in
// milliseconds (as lt_sys_uptime_ms counts), -1 when no timer is armed.
// `ret_timer_expiration` may be null.
int lew_event_is_pending(lew_context *context, const lew_event *event, tbool *ret_is_pending,
                         lt_time_ms *ret_timer_expiration);

// Cancel and start anew, with the old or a new duration.
int lew_event_reschedule(lew_context *context, lew_event **inout_event);
int lew_event_reschedule_timeout(lew_context *context, lew_event **inout_event,
                                 lt_dur_ms timeout);
// Stops the event and keeps the record; an event that is not pending is left alone.
int lew_event_cancel(lew_context *context, lew_event *event);
// Cancels the event and dooms it: the caller's pointer is nulled, the record freed
// between rounds.
int lew_event_delete(lew_context *context, lew_event **inout_event);
int lew_cancel_all_events(lew_context *context);
int lew_delete_all_events(lew_context *context);

// Runs until an escape, until no events are left, or until an error.
int lew_dispatch(lew_context *context, tbool *ret_no_events_left, tbool *ret_escaped);
// One round, waiting for something to fire.
int lew_dispatch_once(lew_context *context, tbool *ret_no_events_left, tbool *ret_escaped);
// One round, without waiting.
int lew_dispatch_nonblocking(lew_context *context, tbool *ret_no_events_left,
                             tbool *ret_escaped);

// Asks the dispatch to return after the current round of callbacks.  A sticky request
// makes every later dispatch return at once until lew_unescape_from_dispatch.
int lew_escape_from_dispatch(lew_context *context, tbool sticky);
int lew_unescape_from_dispatch(lew_context *context);
int lew_escape_from_dispatch_is_sticky(lew_context *context, tbool *ret_is_sticky);

// While on, read interest is left out of the wait.
int lew_suppress_read_fds(lew_context *context, tbool on);

// Logs every event at `log_level`, each line beginning with `prefix` (may be null).
int lew_dump_all_events(int log_level, const char *prefix, lew_context *context);

// The time value for a time-out of `timeout` milliseconds, clamped so that its expiry
// stays within 32-bit seconds of wall-clock time.
int lew_get_timeout(lt_dur_ms timeout, struct timeval *ret_timeval);

// Sets the return values from a reason of event_loop.
int lew_retvals_set(const lew_retvals *retvals, int reason);

// Free functions of the context's arrays.
void lew_event_p_free_for_array(void *elem);
void lew_event_free_for_array(void *elem);
