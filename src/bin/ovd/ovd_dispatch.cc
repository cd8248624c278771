// Management requests: the four callbacks of the session and the tables behind them.
#include "ovd_dispatch.h"

#include <cstdlib>
#include <cstring>

#include "logging.h"
#include "mdc_main.h"
#include "mdc_misc.h"
#include "mdc_remote_reg.h"
#include "ovd_actions.h"
#include "ovd_burn.h"
#include "ovd_config.h"
#include "ovd_device_add.h"
#include "ovd_direct_routes.h"
#include "ovd_ekey.h"
#include "ovd_main.h"
#include "ovd_port_enable.h"
#include "ovd_port_removal.h"
#include "ovd_ports_cache.h"
#include "ovd_state_tree.h"
#include "ovd_validate.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

constexpr char ovd_state_swid_prefix[] = "/ib/state/swid/";
constexpr char ovd_state_devid_prefix[] = "/ib/state/devid";

bool ovd_has_prefix(const char *str, const char *prefix)
{
    return strncmp(str, prefix, strlen(prefix)) == 0;
}

// Configuration changes: each new binding goes to ovd_handle_change with the old ones.
// The extraction sorts the array it reads: `bindings` is the callback's own copy.
int ovd_handle_dbchange_event(const tstring *event_name, bn_binding_array *bindings)
{
    int err = 0;
    bn_binding_array *old_bindings = nullptr;
    bn_binding_array *new_bindings = nullptr;

    if (g_ignore_all_db_changes) {
        lc_log_basic(LOG_NOTICE, "Ignore all db changes flag is set. Ignoring event: [%s]",
                     ts_str(event_name));
        goto bail;
    }
    err = mdc_event_config_change_notif_extract(bindings, &old_bindings, &new_bindings,
                                                nullptr);
    bail_error(err);
    err = bn_binding_array_foreach(new_bindings, ovd_handle_change, old_bindings);
    bail_error(err);

bail:
    bn_binding_array_free(&old_bindings);
    bn_binding_array_free(&new_bindings);
    return err;
}

// A device announced by the port manager.  The add is always answered, with its result;
// only an unreadable device id or master flag goes unanswered.
int ovd_handle_device_add_request(const bn_binding_array *bindings)
{
    int err = 0;
    int add_err = 0;
    uint32 dev_id = 0;
    tbool is_master = false;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, is_master_en, &is_master, 0);
    bail_error(err);
    if (is_master) {
        master_devid = dev_id;
    }
    add_err = ovd_handle_device_port_add_event(bindings);
    err = ovd_send_device_add_done_event(static_cast<uint32>(add_err), dev_id);
    bail_error(err);
bail:
    return err;
}

} // namespace

int ovd_handle_query_request(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)arg;
    int err = 0;
    bail_null(inout_request);
    bail_null(*inout_request);
    err = mdc_dispatch_mon_request(sess, *inout_request, ovd_mon_handle_get, nullptr,
                                   ovd_handle_iterate, nullptr);
    bail_error(err);
bail:
    return err;
}

int ovd_handle_iterate(const char *bname, const tstr_array *bname_parts, void *data,
                       tstr_array *resp_names)
{
    (void)data;
    int err = 0;
    bail_null(bname);
    bail_null(resp_names);
    lc_log_basic(LOG_DEBUG, "Received iterate bindings request %s", bname);
    if (ovd_has_prefix(bname, ovd_state_devid_prefix)) {
        err = ovd_iterate_devices(bname, bname_parts, resp_names);
        bail_error(err);
    } else if (ovd_has_prefix(bname, ovd_state_swid_prefix)) {
        err = ovd_iterate_switch_slots_nodes(bname, bname_parts, resp_names);
        bail_error(err);
    }
bail:
    return err;
}

namespace {

// The actions by name, in the order they are compared; a null handler is an action that is
// accepted and dropped.
struct ovd_action_entry {
    const char *name;
    ovd_action_handler handler;
};

const ovd_action_entry ovd_action_table[] = {
    {"/ib/actions/reset-port-counters", handle_reset_port_counters_action},
    {"/ib/actions/print-dr", handle_direct_route_print_action},
    {"/ib/actions/install-max-ports-speed", nullptr},
    {"/ib/actions/print-if", handle_ifindexs_hash_table_print_action},
    {"/ib/actions/print-file", handle_maxportspeed_hash_table_print_action},
    {"/ib/actions/print-dev", handle_device_info_table_print_action},
    {"/ib/actions/print-config", handle_device_ifindex_to_config_print_action},
    {"/ib/actions/print-ekey", handle_ekey_table_print_action},
    {"/ib/actions/led-test-port", handle_led_test_port_action},
    {"/ib/actions/print-virtual-if", handle_virtual_ifindexs_hash_table_print_action},
};

}  // namespace

int ovd_handle_action_request(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)arg;
    int err = 0;
    bn_msg_type req_type = bbmt_none;
    bn_binding_array *bindings = nullptr;
    tstring *action_name = nullptr;
    const char *name = nullptr;

    bail_null(inout_request);
    bail_null(*inout_request);
    err = bn_request_get(*inout_request, &req_type, nullptr, true, &bindings, nullptr,
                         nullptr);
    bail_error(err);
    bail_require(req_type == bbmt_action_request);
    err = bn_action_request_msg_get_action_name(*inout_request, &action_name);
    bail_error(err);
    bail_null(action_name);
    name = ts_str(action_name);
    lc_log_basic(LOG_INFO, "Received action %s", name);

    for (const auto &entry : ovd_action_table) {
        if (strcmp(name, entry.name) != 0) {
            continue;
        }
        if (entry.handler == nullptr) {
            // Accepted and dropped: nobody answers it.
            goto bail;
        }
        err = entry.handler(sess, bindings, *inout_request);
        bail_error(err);
        goto bail;
    }
    lc_log_source(LOG_WARNING, "Got unexpected action %s", name);

bail:
    bn_binding_array_free(&bindings);
    ts_free(&action_name);
    return err;
}

int ovd_handle_event_request(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)sess;
    (void)arg;
    int err = 0;
    bn_msg_type req_type = bbmt_none;
    bn_binding_array *bindings = nullptr;
    tstring *event_name = nullptr;
    const char *name = nullptr;

    bail_null(inout_request);
    bail_null(*inout_request);
    err = bn_request_get(*inout_request, &req_type, nullptr, false, &bindings, nullptr,
                         nullptr);
    bail_error(err);
    bail_require(req_type == bbmt_event_request);
    err = bn_event_request_msg_get_event_name(*inout_request, &event_name);
    bail_error(err);
    bail_null(event_name);
    name = ts_str(event_name);
    lc_log_basic(LOG_NOTICE, "Received event: %s", name);

    // In the order of the interest declarations.
    if (strcmp(name, mdc_event_dbchange) == 0) {
        err = ovd_handle_dbchange_event(event_name, bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/ib-device-add") == 0) {
        err = ovd_handle_device_add_request(bindings);
        bail_error(err);
    } else if (strcmp(name, "/cme/events/allow_external_ports") == 0) {
        lc_log_basic(LOG_NOTICE, "Received allow external ports event\n");
        err = ovd_handle_allow_external_ports_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/cme/events/cme-ready") == 0) {
        err = ovd_handle_cme_ready_event();
        bail_error(err);
    } else if (strcmp(name, "/topod/events/ib-direct-route-update") == 0) {
        lc_log_basic(LOG_NOTICE, "Received direct route update event\n");
        err = ovd_handle_update_direct_route_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/device-remove") == 0) {
        err = ovd_handle_remove_device_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/enable-burn-port") == 0) {
        err = ovd_handle_enable_burn_port_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/add-burn-device") == 0) {
        err = ovd_handle_add_device_burn_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/port-enable") == 0) {
        err = ovd_handle_device_port_enable_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/device-validate-ib") == 0) {
        err = ovd_handle_ib_device_validate_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/brelld/events/brelld-ready") == 0) {
        err = ovd_handle_brelld_ready_event();
        bail_error(err);
    } else if (strcmp(name, "/brelld/events/ekey-port-change") == 0) {
        err = ovd_handle_brelld_port_change_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/ib/events/ovd-debug-mode") == 0) {
        err = ovd_handle_debug_mode_change_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/portd/events/port-disable") == 0) {
        err = ovd_handle_ib_device_port_disable_event(bindings);
        bail_error(err);
    } else if (strcmp(name, "/system/chassis/events/ignore-all-db-changes") == 0) {
        lc_log_basic(LOG_NOTICE, "Setting flag to ignore all db changes");
        g_ignore_all_db_changes = true;
    } else if (strcmp(name, "/system/chassis/events/system-configure-done") == 0) {
        lc_log_basic(LOG_NOTICE, "Received system configured done event");
        g_system_configured_done_time_ms = lt_sys_uptime_ms();
    } else {
        lc_log_source(LOG_WARNING, "Received unexpected event %s", name);
    }

bail:
    bn_binding_array_free(&bindings);
    ts_free(&event_name);
    return err;
}

int ovd_handle_session_close(int fd, fdic_callback_type cbt, void *vsess, void *gsec_arg)
{
    (void)fd;
    (void)cbt;
    (void)vsess;
    (void)gsec_arg;
    int err = 0;
    if (ovd_exiting) {
        goto bail;
    }
    lc_log_basic(LOG_ERR, "OVd Lost connection to mgmtd; exiting");
    err = ovd_initiate_exit();
    bail_error(err);
bail:
    return err;
}

int util_get_bindings_children(bn_binding_array **bindings, const char *nodes_tree)
{
    int err = 0;
    err = mdc_get_binding_children_ex(ovd_mcc, nullptr, nullptr, true, bindings,
                                      bqnf_sel_iterate_subtree | bqnf_sel_iterate_leaf_nodes_only,
                                      nodes_tree, nullptr, 0, nullptr);
    bail_error(err);
bail:
    return err;
}

int ovd_send_event_values(const char *event_name, std::initializer_list<ovd_event_value> values)
{
    int err = 0;
    bn_request *req = nullptr;

    err = bn_event_request_msg_create(&req, event_name);
    bail_error(err);
    bail_null(req);
    for (const ovd_event_value &v : values) {
        err = ovd_add_value(req, v.name, 0, v.type, v.value);
        bail_error(err);
    }
    bail_null(g_ovd_event_send);
    err = g_ovd_event_send(req);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

int ovd_add_done_values(bn_request *req, uint32 status, uint32 dev_id, uint32 port_num,
                        uint8 operation)
{
    int err = 0;

    err = ovd_add_value(req, "status", 0, bt_uint32, status);
    bail_error(err);
    err = ovd_add_value(req, "dev_id", 0, bt_uint32, dev_id);
    bail_error(err);
    err = ovd_add_value(req, "port_num", 0, bt_uint32, port_num);
    bail_error(err);
    err = ovd_add_value(req, "operation", 0, bt_uint8, operation);
    bail_error(err);
    err = ovd_add_value(req, "daemon", 0, bt_uint8, OVD_BASE);
    bail_error(err);

bail:
    return err;
}

int ovd_add_value(bn_request *req, const char *name, int name_index, bn_type type,
                  uint64 value)
{
    int err = 0;
    char *binding_name = nullptr;
    bn_binding *binding = nullptr;

    binding_name = name_index == 0 ? smprintf("%s", name)
                                   : smprintf("%s_%u", name, static_cast<uint32>(name_index));
    bail_null(binding_name);

    switch (type) {
    case bt_uint8:
        err = bn_binding_new_uint8(&binding, binding_name, ba_value, 0,
                                   static_cast<uint8>(value));
        bail_error(err);
        break;
    case bt_uint32:
        err = bn_binding_new_uint32(&binding, binding_name, ba_value, 0,
                                    static_cast<uint32>(value));
        bail_error(err);
        break;
    case bt_uint64:
        err = bn_binding_new_uint64(&binding, binding_name, ba_value, 0, value);
        bail_error(err);
        break;
    case bt_tbool:
        err = bn_binding_new_tbool(&binding, binding_name, ba_value, 0,
                                   static_cast<uint32>(value) != 0);
        bail_error(err);
        break;
    default:
        bail_force(lc_err_unexpected_case);
    }
    err = bn_event_request_msg_append_binding_takeover(req, 0, &binding, nullptr);
    bail_error(err);

bail:
    free(binding_name);
    bn_binding_free(&binding);
    return err;
}
