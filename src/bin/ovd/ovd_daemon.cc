// The daemon core: its globals, start-up in its fixed order, the one event loop, signals and
// the way down.  main() itself is in ovd_main.cc.
#include "ovd_main.h"

#include <csignal>
#include <cstdlib>

#include "logger.h"
#include "logging.h"
#include "ovd_ports_cache.h"
#include "vqd_access_reg.h"

const char ovd_program_name[] = "ovd";
lew_context *ovd_lwc = nullptr;
tbool ovd_exiting = false;
const int ovd_signals_handled[OVD_NUM_SIGNALS] = {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1};
lew_event *ovd_event_signals[OVD_NUM_SIGNALS] = {};
int t_level = LOG_INFO;

tstring *g_sys_disp = nullptr;
uint32 g_sys_type = 0;
uint32 system_type = 0;
uint64 system_image_guid = 0;
uint64 system_node_guid = 0;
uint8 g_system_profile = 0;
tstring *g_part_number = nullptr;
tbool g_handled_enable_port_event = false;
tbool g_handled_ekey_blade_ready_event = false;
// Set by the first device-add event and never read again.
tbool readPortSpeedsFile = false;
uint32 master_devid = 0;

tbool g_debug_mode = false;
tstring *g_devid_str_debug_mode = nullptr;
uint32 g_number_of_times_to_fail = 0;

uint8 g_virtual_paos_lcl_port = 66;
tbool g_ignore_all_db_changes = false;
lt_time_ms g_system_configured_done_time_ms = 0;
lt_time_sec g_config_node_timeout_sec = 150;

int ovd_init(void)
{
    int err = 0;
    vqd_status_t vqd_ret = VQD_STATUS_SUCCESS;

    err = lc_log_init(ovd_program_name, nullptr, LCO_none, static_cast<uint64>(LCI_OVD) << 16,
                      LOG_DEBUG, LOG_LOCAL4, LCT_SYSLOG);
    bail_error(err);

    err = lc_init();
    bail_error(err);

    lc_log_basic(LOG_NOTICE, "IB daemon launched");

    err = lew_init(&ovd_lwc);
    bail_error(err);
    bail_null(ovd_lwc);

    for (int i = 0; i < OVD_NUM_SIGNALS; ++i) {
        err = lew_event_reg_signal(ovd_lwc, &ovd_event_signals[i], ovd_signals_handled[i],
                                   ovd_handle_signal, nullptr);
        bail_error(err);
    }

    vqd_ret = vqd_access_reg_init(0, log_cb, 15);
    if (vqd_ret != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed to init command interface , error: %d", __func__, vqd_ret);
        err = lc_err_generic_error;
        bail_error(err);
    }

    for (devinfo *&dev : devsinfo) {
        dev = nullptr;
    }

    err = ibPortsCacheInit();
    bail_error(err);

bail:
    return err;
}

int ovd_main_loop(void)
{
    int err = 0;
    err = lew_dispatch(ovd_lwc, nullptr, nullptr);
    bail_error(err);
bail:
    return err;
}

int ovd_deinit(void)
{
    int err = 0;
    vqd_status_t vqd_ret = VQD_STATUS_SUCCESS;
    err = lew_deinit(&ovd_lwc);
    bail_error(err);
    vqd_ret = vqd_access_reg_deinit();
    lc_log_basic(t_level, "%s: deinit reg command interface , vqd_ret: %d", __func__, vqd_ret);
    if (vqd_ret != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed to deinit command interface, vqd_ret: %d", __func__, vqd_ret);
        err = lc_err_generic_error;
        bail_error(err);
    }
bail:
    return err;
}

int ovd_handle_signal(int signum, short ev_type, void *data, lew_context *ctxt)
{
    (void)ev_type;
    (void)data;
    (void)ctxt;
    int err = 0;
    const char *name = lc_signal_num_to_name(signum);

    lc_log_basic(LOG_INFO, "Received %s", name != nullptr ? name : "unknown signal");
    switch (signum) {
    case SIGHUP:
    case SIGINT:
    case SIGTERM:
        err = ovd_initiate_exit();
        bail_error(err);
        break;
    case SIGUSR1:
    case SIGPIPE:
        break;
    default:
        lc_log_basic(LOG_WARNING, "Got unexpected signal %s",
                     name != nullptr ? name : "unknown signal");
        break;
    }
bail:
    return err;
}

int ovd_initiate_exit(void)
{
    int err = 0;
    ovd_exiting = true;
    for (int i = 0; i < OVD_NUM_SIGNALS; ++i) {
        if (ovd_event_signals[i] != nullptr) {
            err = lew_event_delete(ovd_lwc, &ovd_event_signals[i]);
            bail_error(err);
        }
    }
    err = lew_escape_from_dispatch(ovd_lwc, true);
    bail_error(err);
bail:
    return err;
}

const char *sysapi_err2str(int code)
{
    static const char *const texts[] = {
        "OK",
        "ERROR",
        "NOT_IMPLEMENTED",
        "NOT_EXIST_MODULE",
        "UNSUPPORTED_MODULE",
        "UNSUPPORTED_SYSTEM",
        "MAD_SEND_FAILED",
        "UNSUPPORTED_FW_VER",
        "TORCH_FAILED",
        "NO_PCI_CONNECTION",
        "NO_MGMT_KELVA",
        "CDMIF_ERROR",
    };
    switch (code) {
    case 77:
        return "No Lid";
    case 88:
        return "No Direct Route Path";
    case 89:
        return "DIRECT ROUTE IS BROKEN DUE TO PORT DOWN";
    default:
        break;
    }
    if (code >= 0 && code < static_cast<int>(sizeof(texts) / sizeof(texts[0]))) {
        return texts[code];
    }
    return "UNKNOWN";
}

const char *lidroute_err2str(int code)
{
    static const char *const texts[] = {
        "LID ROUTE OK",
        "BROKEN LID ROUTE",
        "FAILED TO BRING FORWARDING TABLE",
        "LID NOT FOUND AT FORWARDING TABLE, SM DID NOT CONFIGURED IT",
        "ROUTE TO LID TO LONG, PASS MAX HOPS",
        "ROUTE IS BROKEN DUE TO PORT DOWN",
    };
    if (code >= 0 && code < static_cast<int>(sizeof(texts) / sizeof(texts[0]))) {
        return texts[code];
    }
    return "UNKNOWN";
}

void ovd_exit_tail(int err)
{
    // Safe on tables that are already gone.
    const int deinit_err = ibPortsCacheDeinit();
    complain_error(deinit_err);
    ts_free(&g_sys_disp);
    ts_free(&g_part_number);
    lc_log_basic(LOG_NOTICE, "IB daemon exiting with code %d", err);
    lc_log_close();
    exit(err);
}
