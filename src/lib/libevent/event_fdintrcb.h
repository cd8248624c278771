// The glue between a wanted set of descriptors and timers (fdintrcb.h) and the event
// engine: fdic_libevent_callback is the function to register with fdic_init, with the
// adapter's context as its argument.  It keeps one engine event per wanted event, by id,
// and fdic_libevent_handler calls the wanted event's functions when the engine fires.
//
// The adapter must be ended (fdic_libevent_deinit) before the engine it stands on.
#pragma once

#include <sys/time.h>

#include "common.h"
#include "event_engine.h"
#include "fdintrcb.h"
#include "hash_table.h"
#include "ttime.h"

struct fdic_libevent_context {
    event_context *flc_ev_ctxt;
    ht_table *flc_table;                  // fdic_libevent_record * by 4-byte event id
    fdic_event_callback_func flc_close_cb;
    void *flc_close_arg;
    fdic_event_callback_func flc_open_cb;
    void *flc_open_arg;
};

// One engine event for one wanted event.
struct fdic_libevent_record {
    fdic_libevent_context *flr_context;
    event_record flr_event;
    fdic_event flr_fdic_event;            // the wanted event as last given
    // A record taken out of the table while its own callbacks run is only marked here,
    // and freed by the handler when the outermost of them returns.
    uint32 flr_firing_depth;
    tbool flr_doomed;
};

int fdic_libevent_init(event_context *ev_ctxt, fdic_libevent_context **ret_context);
// Removes every engine event of the adapter, without calling the close handler.
int fdic_libevent_deinit(fdic_libevent_context **inout_context);

// Called with fct_open when a descriptor event first reaches the adapter, and with
// fct_close when it leaves; with the descriptor, the event's fee_per_event_arg and
// `cb_arg`.  A null function removes the handler.
int fdic_libevent_set_fd_open_handler(fdic_libevent_context *context,
                                      fdic_event_callback_func open_cb, void *cb_arg);
int fdic_libevent_set_fd_close_handler(fdic_libevent_context *context,
                                       fdic_event_callback_func close_cb, void *cb_arg);

// The registered function of an fdic handle; `data` is the adapter's context.
int fdic_libevent_callback(const fdic_event_array *session_events, void *data);

// The engine's callback of every record; `data` is the record.
int fdic_libevent_handler(int fd, short event_type, void *data, event_context *ctxt);

// The time value of a time-out of `timeout_ms` (0 or more), clamped so that the engine's
// wall-clock expiry stays within 32-bit seconds.
int fdic_timeout_calculate(lt_dur_ms timeout_ms, struct timeval *ret_timeval);

// The free function of the table: removes the record's engine event and frees key and
// record.
int fdic_libevent_record_free(void **inout_key, void **inout_value, int32 key_len);
