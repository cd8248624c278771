// Parts of the event loop that only the loop itself and its tests reach.
#pragma once

#include "libevent_wrapper.h"

// The engine callback of every event; `data` is the event's handle.
int lew_universal_event_handler(int fd, short event_type, void *data, event_context *ctxt);

// Frees the doomed events; runs between rounds.
int lew_delete_doomed_events(lew_context *context);

// The uptime clock of the timers (start stamps and the re-check at firing).  A test may
// put its own clock in place to make a timer fire early on purpose; null restores
// lt_sys_uptime_ms.
typedef lt_time_ms (*lew_uptime_func)(void);
void lew_set_uptime_func(lew_uptime_func func);
