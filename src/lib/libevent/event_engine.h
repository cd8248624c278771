// The event engine: one loop per context over the poll back-end of the system's event
// library, with the behaviour the rest of the system depends on and that library lacks:
//
// - Callbacks never run inside the library's own loop.  A round first collects what fired
//   and then runs the callbacks from a queue, so a callback may run the loop again
//   (nested dispatch) and may delete any event, its own included.
// - Escape requests, once or sticky, tested before each wait and after the test for
//   "no events left".
// - Signals are caught by our own handler and written as one fixed-size record to a
//   non-blocking self-pipe; reading the pipe makes active every registered event of that
//   signal number.
// - Read interest can be left out of the wait while a flag is set.
//
// Every call returns 0 or an lc_error_code.  The engine runs on one thread: the thread
// that made the context.  event_maybe_notify_change is the one call meant for other
// threads.
#pragma once

#include <sys/time.h>

#include <event2/event_struct.h>

#include "common.h"

// Event bits, the same as those of the underlying library.
#define EV_TIMEOUT	0x01
#define EV_READ		0x02
#define EV_WRITE	0x04
#define EV_SIGNAL	0x08
#define EV_PERSIST	0x10

// Flags of event_loop.
enum {
    EVENT_LOOP_ONCE = 1,      // one round: wait for something, run what fired, return
    EVENT_LOOP_NONBLOCK = 2,  // one round without waiting
};

// Why event_loop returned.
enum event_loop_reason {
    elr_none = 0,
    elr_round_done = 1,        // one round of callbacks done
    elr_nonblock_idle = 2,     // a non-blocking round found nothing to run
    elr_no_events = 3,         // nothing is registered
    elr_escaped = 4,           // an escape was requested
};

// Size of one record on the signal pipe.
#define EVENT_SIGNAL_RECORD_SIZE 128

struct event_context;

// The callback of an event: `fd` is the descriptor, or the signal number for a signal
// event; `event_type` holds the EV_ bits that fired.  The result is the callback's own
// business: failures are logged where they arise, and the engine goes on.
typedef int (*event_handler_func)(int fd, short event_type, void *data, event_context *ctxt);

// One event.  The caller owns the memory and must zero it before the first event_set;
// it must stay valid until it is neither registered nor queued (event_del ensures that).
// The fields are the engine's: read them, do not write them.
struct event_record {
    struct event er_ev;            // the library's half: descriptor readiness and time-out
    event_context *er_context;
    event_handler_func er_handler;
    void *er_data;
    int er_fd;                     // descriptor, signal number, or -1 for a timer
    short er_events;               // EV_ bits given to event_set
    tbool er_registered;           // added and not yet removed
    tbool er_lib_added;            // er_ev is added to the library
    short er_fired_res;            // EV_ bits waiting in the queue of fired events; 0 if none
    event_record *er_reg_prev;     // in the context's list of registered events
    event_record *er_reg_next;
    event_record *er_fired_prev;   // in the context's queue of fired events
    event_record *er_fired_next;
};

// Making and ending a loop.  The back-end is poll; with "EVENT_SHOW_METHOD" in the
// environment its name is printed to stderr.  event_deinit removes every event still
// registered and restores the signal dispositions that the context changed.
int event_init(event_context **ret_ctxt);
int event_deinit(event_context **inout_ctxt);

// Prepares an event that is not registered.  A signal event (EV_SIGNAL) takes the signal
// number as `fd` and may not ask for EV_READ or EV_WRITE.
int event_set(event_context *ctxt, event_record *ev, int fd, short events,
              event_handler_func handler, void *data);
// Registers the event, with a time-out relative to now when `timeout` is not null.  An
// event that is already registered is registered anew.  An event with nothing to wait for
// (no descriptor interest, no signal and no time-out) is refused.
int event_add(event_record *ev, const struct timeval *timeout);
// Removes the event from the loop and drops a firing of it that has not run yet.  An
// event that is not registered is left as it is.
int event_del(event_record *ev);
// The bits among `events` for which the event is registered or has fired and not run
// yet; EV_TIMEOUT while a time-out is armed.  `ret_timeout`, when not null, gets the
// wall-clock expiry of an armed time-out.
int event_pending(const event_record *ev, short events, short *ret_pending,
                  struct timeval *ret_timeout);
// Makes the event fire with `res` in the current or next round.  A non-persistent event
// stops being registered.
int event_active(event_record *ev, short res);

// Runs the loop: with EVENT_LOOP_ONCE one round that waits, with EVENT_LOOP_NONBLOCK one
// round that doesn't, with neither until nothing is registered or an escape is asked for.
int event_loop(event_context *ctxt, int flags, event_loop_reason *ret_reason);

// Asks the loop to return before its next wait.  A request that is not sticky is cleared
// when honoured; a sticky one holds until event_loop_unescape.
int event_loop_escape(event_context *ctxt, tbool sticky);
int event_loop_unescape(event_context *ctxt);
int event_loop_escape_is_sticky(event_context *ctxt, tbool *ret_is_sticky);

// While on, read interest is left out of the wait (the events stay registered).
int event_suppress_read_fds(event_context *ctxt, tbool suppress);

// Wakes a loop waiting on another thread; nothing to do on the loop's own thread.
int event_maybe_notify_change(event_context *ctxt);

// The engine's lock, held while callbacks run and taken around the wrapper's operations.
// It is recursive.  The engine runs on one thread, so the lock never waits: it refuses a
// caller from another thread with lc_err_lock_bad_owner.
int event_lock(event_context *ctxt);
int event_unlock(event_context *ctxt);
