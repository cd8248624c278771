// The process: start-up, the one event loop, the orderly exit and the common tail.
#include "ovd_main.h"

#include "ovd_ports_cache.h"

int main(void)
{
    int err = 0;

    err = ovd_init();
    bail_error(err);

    err = ovd_main_loop();
    bail_error(err);

    // Orderly exit after a clean return of the loop.
    err = ibPortsCacheDeinit();
    bail_error(err);
    err = ovd_devsinfo_free_all();
    bail_error(err);
    g_debug_mode = false;
    ts_free(&g_devid_str_debug_mode);

    err = ovd_deinit();
    bail_error(err);

bail:
    ovd_exit_tail(err);
}
