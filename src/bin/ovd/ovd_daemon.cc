// The daemon core: its globals, start-up in its fixed order, the one event loop, signals and
// the way down.  main() itself is in ovd_main.cc.
#include "ovd_main.h"

#include <csignal>
#include <cstdlib>

#include "chassis_helper.h"
#include "logger.h"
#include "logging.h"
#include "mdc_main.h"
#include "mdc_misc.h"
#include "mdc_wrapper.h"
#include "ovd_config.h"
#include "ovd_direct_routes.h"
#include "ovd_dispatch.h"
#include "ovd_ports_cache.h"
#include "vqd_access_reg.h"

const char ovd_program_name[] = "ovd";
lew_context *ovd_lwc = nullptr;
md_client_context *ovd_mcc = nullptr;
const char gcl_client_ovd[] = "IB Daemon";
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
lt_time_sec g_config_node_timeout_sec = ovd_default_settle_time_sec;

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

    err = ovd_mgmt_init();
    bail_error(err);

    err = ovd_query_config();
    bail_error(err);

bail:
    return err;
}

namespace {

// The events the daemon hears of, in the order their interest is declared.  The first
// carries the patterns of the configuration it follows.
const char *const ovd_interest_events[] = {
    "/portd/events/ib-device-add",
    "/cme/events/allow_external_ports",
    "/cme/events/cme-ready",
    "/topod/events/ib-direct-route-update",
    "/portd/events/device-remove",
    "/portd/events/enable-burn-port",
    "/portd/events/add-burn-device",
    "/portd/events/port-enable",
    "/portd/events/device-validate-ib",
    "/brelld/events/brelld-ready",
    "/brelld/events/ekey-port-change",
    "/ib/events/ovd-debug-mode",
    "/portd/events/port-disable",
    "/system/chassis/events/ignore-all-db-changes",
    "/system/chassis/events/system-configure-done",
};

constexpr char ovd_interest_action[] = "/mgmtd/events/actions/interest/add";

} // namespace

int ovd_mgmt_init(void)
{
    int err = 0;
    mdc_wrapper_params *params = nullptr;

    err = mdc_wrapper_params_get_defaults(&params);
    bail_error(err);
    params->mwp_lew_context = ovd_lwc;
    params->mwp_gcl_client = gcl_client_ovd;
    params->mwp_session_close_func = ovd_handle_session_close;
    params->mwp_query_request_func = ovd_handle_query_request;
    params->mwp_action_request_func = ovd_handle_action_request;
    params->mwp_event_request_func = ovd_handle_event_request;

    err = mdc_wrapper_init(params, &ovd_mcc);
    bail_error(err);

    err = mdc_send_action_with_bindings_str_va(
        ovd_mcc, nullptr, nullptr, ovd_interest_action, 4, "event_name", bt_name,
        mdc_event_dbchange, "match/1/pattern", bt_string, "/ib/config/**", "match/2/pattern",
        bt_string, "/system/hostname", "match/3/pattern", bt_string, "/portd/config/ifindex/**");
    bail_error(err);
    for (const char *event_name : ovd_interest_events) {
        err = mdc_send_action_with_bindings_str_va(ovd_mcc, nullptr, nullptr,
                                                   ovd_interest_action, 1, "event_name",
                                                   bt_name, event_name);
        bail_error(err);
    }

bail:
    mdc_wrapper_params_free(&params);
    if (err != 0) {
        lc_log_source(LOG_ERR, "Unable to connect to the management daemon");
    }
    return err;
}

int ovd_send_init_done_event(uint32 status)
{
    int err = 0;
    bn_request *req = nullptr;

    lc_log_basic(LOG_INFO, "Send init done event to port manager");
    err = bn_event_request_msg_create(&req, "/ib/events/init-done");
    bail_error(err);
    err = ovd_add_value(req, "status", 0, bt_uint32, status);
    bail_error(err);
    err = mdc_send_mgmt_msg(ovd_mcc, req, false, nullptr, nullptr, nullptr);
    bail_error(err);
bail:
    bn_request_msg_free(&req);
    return err;
}

int ovd_read_system_type(uint32 *ret_val)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_val);
    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding,
                          "/system/chassis/ha/state/system_type_mirror", nullptr);
    if (err == 0 && binding != nullptr) {
        err = bn_binding_get_uint32(binding, ba_value, nullptr, ret_val);
    }
    if (err != 0 || binding == nullptr) {
        lc_log_basic(LOG_ERR, "Wrong Behaviour. unable to read system type \n");
        err = lc_err_unexpected_arg;
    }
bail:
    bn_binding_free(&binding);
    return err;
}

int ovd_read_system_profile(uint8 *ret_sys_profile)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_sys_profile);
    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding,
                          "/system/chassis/config/profile", nullptr);
    if (err == 0 && binding != nullptr) {
        err = bn_binding_get_uint8(binding, ba_value, nullptr, ret_sys_profile);
    }
    if (err != 0 || binding == nullptr) {
        lc_log_basic(LOG_ERR, "Wrong Behaviour. unable to read system profile \n");
        err = lc_err_unexpected_arg;
    }
bail:
    bn_binding_free(&binding);
    return err;
}

int ovd_read_part_number_type(tstring **ret_part_number)
{
    int err = 0;
    bail_null(ret_part_number);
    bail_require(*ret_part_number == nullptr);
    err = mdc_get_binding_tstr(ovd_mcc, nullptr, nullptr, nullptr, ret_part_number,
                               "/system/chassis/part_number", nullptr);
    bail_error(err);
bail:
    return err;
}

int ovd_read_locallinks_time_to_settle(void)
{
    int err = 0;
    bn_binding *binding = nullptr;
    lt_time_sec time_to_settle = 0;

    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding,
                          "/ib/config/locallinks/time_to_settle", nullptr);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "Can't read local ports time to settle");
    } else {
        err = bn_binding_get_time_sec(binding, ba_value, nullptr, &time_to_settle);
        bail_error(err);
    }
    if (time_to_settle != 0) {
        g_config_node_timeout_sec = time_to_settle;
    } else if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(g_sys_type))) {
        g_config_node_timeout_sec = ovd_default_settle_time_sec;
    } else {
        // Modular systems are told apart here and given the same time.
        g_config_node_timeout_sec = ovd_default_settle_time_sec;
    }
bail:
    bn_binding_free(&binding);
    return err;
}

int get_is_initializing_status(const char *node_name, const tstr_array *bname_parts,
                               bn_binding **ret_binding)
{
    (void)bname_parts;
    int err = 0;
    bail_null(node_name);
    bail_null(ret_binding);
    err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "false");
    bail_error(err);
bail:
    return err;
}

int get_locallinks_settled_status(const char *node_name, const tstr_array *bname_parts,
                                  bn_binding **ret_binding)
{
    (void)bname_parts;
    int err = 0;
    tbool settled = false;
    lt_time_ms now = 0;
    lt_time_ms settled_at = 0;

    bail_null(node_name);
    bail_null(ret_binding);
    if (g_system_configured_done_time_ms != 0) {
        now = lt_sys_uptime_ms();
        settled_at = g_system_configured_done_time_ms +
                     static_cast<lt_time_ms>(g_config_node_timeout_sec) * 1000;
        if (now <= settled_at) {
            lc_log_basic(LOG_NOTICE,
                         "%u seconds have not passed since system configured done event. "
                         "return: [false]",
                         static_cast<uint32>(g_config_node_timeout_sec));
        } else {
            lc_log_basic(LOG_NOTICE, "Timeout waiting for local links to settled. return: [true]");
            settled = true;
        }
    }
    err = bn_binding_new_tbool(ret_binding, node_name, ba_value, 0, settled);
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
    err = mdc_wrapper_deinit(&ovd_mcc);
    bail_error(err);
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
    if (ovd_mcc != nullptr) {
        err = mdc_wrapper_disconnect(ovd_mcc, true);
        bail_error(err);
    }
    err = lew_escape_from_dispatch(ovd_lwc, true);
    bail_error(err);
bail:
    return err;
}

void ovd_exit_tail(int err)
{
    // Safe on tables that are already gone.
    const int deinit_err = ibPortsCacheDeinit();
    complain_error(deinit_err);
    const int routes_err = ovd_direct_routes_free();
    complain_error(routes_err);
    ts_free(&g_sys_disp);
    ts_free(&g_part_number);
    lc_log_basic(LOG_NOTICE, "IB daemon exiting with code %d", err);
    lc_log_close();
    exit(err);
}
