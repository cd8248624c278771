// The firmware-burn flow.
#include "ovd_burn.h"

#include <string>

#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_direct_routes.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_ports_cache.h"
#include "ovd_registers.h"
#include "sa_registers.h"

namespace {

const char ovd_burn_add_done_event[] = "/ib/events/add-burn-device-done";
const char ovd_burn_port_done_event[] = "/ib/events/enable-burn-port-done";
// The speed value a port is burnt at.
constexpr uint8 ovd_burn_speed = 1;

// One integer of the event, by name.  A missing binding is lc_err_not_found.
int ovd_burn_read_uint(const bn_binding_array *bindings, const char *name, uint32 *ret_value)
{
    int err = 0;
    bn_binding *binding = nullptr;
    tstring *text = nullptr;

    bail_null(ret_value);
    err = bn_binding_array_get_binding_by_name(bindings, name, &binding);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_source(LOG_ERR, "The burn event carries no %s", name);
        err = lc_err_not_found;
        goto bail;
    }
    err = bn_binding_get_tstr(binding, ba_value, bt_NONE, nullptr, &text);
    bail_error(err);
    err = lc_str_to_uint32(ts_str(text), ret_value);
    bail_error(err);

bail:
    ts_free(&text);
    return err;
}

}  // namespace

int ovd_send_burn_add_device_done_event(uint32 status, uint32 devid)
{
    int err = 0;

    lc_log_basic(LOG_NOTICE,
                 "OVD sends add burn device: [%u, %s] done event to portd with: [%s] status", devid,
                 ovd_device_name(devid), status != 0 ? "Failure" : "Success");
    err = ovd_send_event_values(ovd_burn_add_done_event,
                                {{"status", bt_uint32, status}, {"dev_id", bt_uint32, devid}});
    bail_error(err);

bail:
    return err;
}

int ovd_handle_add_device_burn_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 dev_id = 0;
    devinfo *dev = nullptr;
    bn_binding *name = nullptr;

    err = ovd_burn_read_uint(bindings, "dev_id", &dev_id);
    if (err != 0) {
        dev_id = 0;
        goto answer;
    }
    if (dev_id > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR, "Got device ID %u which exceeds maximum device ID %u", dev_id,
                      static_cast<uint32>(OVD_MAX_DEVICE_ID));
        return lc_err_range;
    }
    // Whatever the slot held is replaced: only the name is known of a burn device.
    err = ovd_devinfo_new(&dev);
    if (err != 0) {
        goto answer;
    }
    err = bn_binding_array_get_binding_by_name(bindings, "subsystem_name", &name);
    if (err == 0 && name != nullptr) {
        err = bn_binding_get_tstr(name, ba_value, bt_NONE, nullptr, &dev->subsystem_name);
    }
    if (err == 0) {
        err = ovd_devsinfo_set_takeover(dev_id, &dev);
    }
    ovd_devinfo_free(&dev);
    if (err != 0) {
        goto answer;
    }
    lc_log_basic(LOG_NOTICE, "OVD handles add device: [%u, %s/%d] burn event", dev_id,
                 ovd_device_name(dev_id), 0);

answer:
    return ovd_send_burn_add_device_done_event(static_cast<uint32>(err), dev_id);
}

int ovd_send_enable_burn_port_done_event(uint32 status, uint32 devid, uint8 local, uint8 label)
{
    int err = 0;

    lc_log_basic(LOG_NOTICE,
                 "OVD sends enable burn port done for device: [%u, %s], label port: [%u] with: "
                 "[%s] status\n",
                 devid, ovd_device_name(devid), static_cast<uint32>(label),
                 status != 0 ? "Failure" : "Success");
    err = ovd_send_event_values(ovd_burn_port_done_event,
                                {{"status", bt_uint32, status},
                                 {"dev_id", bt_uint32, devid},
                                 {"lcl_port", bt_uint8, local},
                                 {"label_port", bt_uint8, label}});
    bail_error(err);

bail:
    return err;
}

int ovd_handle_enable_burn_port_event(const bn_binding_array *bindings)
{
    int err = 0;
    ifindexInformation port = {};
    uint32 dev_id = 0;
    uint32 value = 0;
    uint32 ifindex = 0;
    tstring *key = nullptr;
    tstring *node = nullptr;
    tbool found = false;
    tbool supported = true;
    uint64 m_key = 0;
    vqd_status_t vqd_ret = VQD_STATUS_SUCCESS;
    sa_port_capability_t capability = {};

    err = ovd_burn_read_uint(bindings, "dev_id", &dev_id);
    bail_error_quiet(err);
    if (dev_id > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR, "Got device ID %u which exceeds maximum device ID %u", dev_id,
                      static_cast<uint32>(OVD_MAX_DEVICE_ID));
        err = lc_err_range;
        goto bail;
    }
    if (devsinfo[dev_id] == nullptr) {
        lc_log_source(LOG_ERR, "Got device ID %u which doesn't exist in OVD data base\n", dev_id);
        err = lc_err_range;
        goto bail;
    }
    port.devid = dev_id;
    err = ovd_burn_read_uint(bindings, "lcl_port", &value);
    bail_error_quiet(err);
    port.localport = static_cast<uint8>(value);
    err = ovd_burn_read_uint(bindings, "ib_port", &value);
    bail_error_quiet(err);
    port.ibport = static_cast<uint8>(value);
    err = ovd_burn_read_uint(bindings, "swid", &value);
    bail_error_quiet(err);
    port.assigned_to_swid = static_cast<uint8>(value);
    err = ovd_burn_read_uint(bindings, "ifindex", &ifindex);
    bail_error_quiet(err);
    err = ovd_burn_read_uint(bindings, "ifindex_neighbor", &port.ifindex_neighbor);
    bail_error_quiet(err);
    if (value > OVD_MAX_SWID || !ovd_swid_is_served(port.assigned_to_swid)) {
        // Another daemon's port: nothing is done, nobody is answered.
        goto bail;
    }
    lc_log_basic(LOG_NOTICE,
                 "OVD handles enable burn port event for device: [%u, %s] label port: [%u], "
                 "local port: [%u]\n",
                 dev_id, ovd_device_name(dev_id), static_cast<uint32>(port.ibport),
                 static_cast<uint32>(port.localport));

    err = ts_new_sprintf(&node, OVD_FW_UPDT_M_KEY_NODE_FMT, dev_id);
    bail_error(err);
    err = mdc_get_binding_tbool(ovd_mcc, nullptr, nullptr, &found, &supported, ts_str(node),
                                nullptr);
    if (err != 0 || !found) {
        lc_log_basic(LOG_NOTICE,
                     "binding [%s] was not found. Assuming the device supports the system_m_key",
                     ts_str(node));
        supported = true;
        err = 0;
    }
    if (supported) {
        err = ovd_get_system_m_key_val(&m_key);
        if (err != 0) {
            goto answer;
        }
        lc_log_basic(LOG_NOTICE, "Writing system_m_key to VQD for device [%u]", dev_id);
        vqd_ret = ovd_write_system_m_key(static_cast<uint8>(dev_id), m_key);
        if (vqd_ret != VQD_STATUS_SUCCESS) {
            // The port comes up all the same.
            lc_log_source(LOG_NOTICE,
                          "vqd_access_reg_system_m_key_access returned:[%d, %s] for device:[%u]",
                          static_cast<int>(vqd_ret), ovd_vqd_status_str(vqd_ret), dev_id);
        }
    }

    port.active_speed = ovd_burn_speed;
    port.port_direction = SYS_PORT_DIRECTION_INT;
    port.configured_state = true;
    port.enable_port_time = 0;
    err = ts_new_sprintf(&key, "%u", ifindex);
    bail_error(err);
    err = ht_insert(ibports_ht, key, ts_length(key), &port);
    if (err != 0) {
        lc_log_source(LOG_ERR, "Unable to add key ifindex %s to ib ports hash table\n",
                      ts_str(key));
        goto answer;
    }
    err = updateIfindexNeighbourInHashTable(port.ifindex_neighbor, ifindex);
    if (err != 0) {
        goto answer;
    }
    (void)map_ibport_to_localport(static_cast<uint8>(dev_id), port.localport, port.ibport);
    capability.link_speed_supported = ovd_burn_speed;
    err = sa_set_port_admin_cap(port.assigned_to_swid, static_cast<vqd_dev_id_t>(dev_id),
                                port.localport, &capability, SPC_LINK_SPEED,
                                static_cast<system_type_t>(g_sys_type));
    if (err != 0) {
        lc_log_source(LOG_DEBUG, "Unable to set port admin capabilities. Error was: %d %s\n", err,
                      sysapi_err2str(err));
        goto answer;
    }
    err = ovd_set_paos_register(dev_id, port.localport, port.ibport, port.assigned_to_swid,
                                PORT_UP);

answer:
    complain_error(
        ovd_send_enable_burn_port_done_event(static_cast<uint32>(err), dev_id, port.localport,
                                             port.ibport));

bail:
    ts_free(&key);
    ts_free(&node);
    return err;
}
