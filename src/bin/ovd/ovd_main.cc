// The process: start-up, the one event loop, the orderly exit and the common tail.
#include "ovd_main.h"

#include "chassis_helper.h"
#include "logging.h"
#include "mdc_main.h"
#include "ovd_config.h"
#include "ovd_ekey.h"
#include "ovd_ports_cache.h"
#include "swidapi.h"

int main(void)
{
    int err = 0;

    err = ovd_init();
    bail_error(err);

    // Users of the display string go through ts_str_maybe_empty: a missing node is no error.
    err = mdc_get_binding_tstr(ovd_mcc, nullptr, nullptr, nullptr, &g_sys_disp,
                               "/system/chassis/sys_disp_str", nullptr);
    bail_error(err);

    // The stored port configuration is replayed before the system type is known.
    err = ovd_query_port_config();
    bail_error(err);

    err = ovd_read_system_type(&g_sys_type);
    bail_error(err);
    err = ovd_read_part_number_type(&g_part_number);
    bail_error(err);
    err = ovd_read_system_profile(&g_system_profile);
    bail_error(err);
    err = check_if_ekey_blade_system(&g_ekey_system);
    bail_error(err);

    err = ovd_read_locallinks_time_to_settle();
    bail_error(err);
    lc_log_basic(LOG_NOTICE, "Set timeout for ports to be settled: [%d] seconds",
                 g_config_node_timeout_sec);
    lc_log_basic(LOG_NOTICE, "OVD identifies system type: %s, %u",
                 system_type2str(static_cast<int>(g_sys_type)), g_sys_type);

    err = ovd_send_init_done_event(0);
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
    for (swidapi_t *&handle : swidapi_handles) {
        if (handle != nullptr) {
            err = sa_destroy(&handle);
            bail_error(err);
        }
    }

    err = ovd_deinit();
    bail_error(err);

bail:
    ovd_exit_tail(err);
}
