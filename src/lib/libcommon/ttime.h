// Time vocabulary of the system: types that carry their unit in the name, and the
// monotonic uptime on which timers are measured.
#pragma once

#include "common.h"

// Wall clock, seconds since the epoch.
typedef int32 lt_time_sec;
// Wall clock, milliseconds since the epoch.
typedef int64 lt_time_ms;
// A duration in milliseconds.
typedef int64 lt_dur_ms;

// Milliseconds of the system's monotonic clock: unaffected by setting the wall clock.
// A clock failure is logged and gives 0.
lt_time_ms lt_sys_uptime_ms(void);
