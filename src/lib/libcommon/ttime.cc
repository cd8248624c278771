// Time vocabulary of the system.
#include "ttime.h"

#include <time.h>

#include "logging.h"

lt_time_ms lt_sys_uptime_ms(void)
{
    int err = 0;
    struct timespec ts = {};
    lt_time_ms uptime_ms = 0;

    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) {
        bail_errno(lc_err_generic_error, "clock_gettime(CLOCK_MONOTONIC)");
    }
    uptime_ms = static_cast<lt_time_ms>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;

bail:
    return err == 0 ? uptime_ms : 0;
}
