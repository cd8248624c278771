// Device removal and the reset of a port whose configuration was deleted.
#include "ovd_port_removal.h"

#include <string>

#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_direct_routes.h"
#include "ovd_ekey.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_values.h"
#include "ovd_speed_limits.h"
#include "sa_registers.h"

namespace {

const char ovd_remove_device_done_event[] = "/ib/events/device-remove-done";

// What a port gets back when its configuration is deleted.
constexpr uint8 ovd_default_width = 5;      // 1X and 4X
constexpr uint16 ovd_default_mtu = 4096;
constexpr uint8 ovd_default_fec = 0;        // auto
constexpr u_int32_t ovd_deletion_cap_mask =
    SPC_VL_CAP | SPC_MTU_CAP | SPC_LINK_WIDTH | SPC_LINK_SPEED | SPC_FEC_CAP;

// A value and its text, or "" when it has none.
std::string ovd_text_of(int (*render)(tstring **, uint8), uint8 value)
{
    tstring *text = nullptr;
    std::string out;
    if (render(&text, value) == 0 && text != nullptr) {
        out = ts_str(text);
    }
    ts_free(&text);
    return out;
}

std::string ovd_mtu_text(uint16 mtu)
{
    tstring *text = nullptr;
    std::string out;
    if (sa_port_prm_mtu_to_tstr(&text, mtu) == 0 && text != nullptr) {
        out = ts_str(text);
    }
    ts_free(&text);
    return out;
}

}  // namespace

int ovd_send_remove_device_done_event(uint32 status, uint32 devid)
{
    int err = 0;

    lc_log_basic(LOG_NOTICE, "Send remove device %u done event to portd", devid);
    err = ovd_send_event_values(ovd_remove_device_done_event,
                                {{"dev_id", bt_uint32, devid}, {"status", bt_uint32, status}});
    bail_error(err);

bail:
    return err;
}

int ovd_handle_remove_device_event(const bn_binding_array *bindings)
{
    int err = 0;
    bn_binding *binding = nullptr;
    uint32 dev_id = 0;
    devinfo *dev = nullptr;
    tstr_array *ifindexes = nullptr;

    err = bn_binding_array_get_binding_by_name(bindings, "dev_id", &binding);
    bail_error(err);
    if (binding == nullptr) {
        err = lc_err_unexpected_null;
        lc_log_source(LOG_ERR, "%s: the event carries no dev_id", __func__);
        goto bail;
    }
    err = bn_binding_get_uint32(binding, ba_value, nullptr, &dev_id);
    bail_error(err);
    if (dev_id > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR, "Got device ID %u which exceeds maximum device ID %u", dev_id,
                      static_cast<uint32>(OVD_MAX_DEVICE_ID));
        err = lc_err_range;
        goto bail;
    }
    dev = devsinfo[dev_id];
    if (dev == nullptr) {
        lc_log_basic(LOG_WARNING, "Try to remove device ID %u which wasn't added before to OVD",
                     dev_id);
        goto bail;
    }
    lc_log_basic(LOG_NOTICE, "OVD handles remove device event for device: %u, %s\n", dev_id,
                 dev->subsystem_name != nullptr ? ts_str(dev->subsystem_name) : "");
    err = ovd_devsinfo_clear(dev_id);
    bail_error(err);

    // Every port of the table is looked at, not only this device's.
    err = tstr_array_new(&ifindexes, nullptr);
    bail_error(err);
    err = get_ports_ifindex_arr(ifindexes);
    bail_error(err);
    for (uint32 i = 0; i < tstr_array_length_quick(ifindexes); ++i) {
        const tstring *ifindex = tstr_array_get_quick(ifindexes, i);
        ifindexInformation *port = nullptr;
        tbool exists = false;
        err = checkIfPortExists(ifindex, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_source(LOG_ERR, "Can't find ifindex %s in DB", ts_str(ifindex));
            err = lc_err_assertion_failed;
            goto bail;
        }
        if (port->devid != dev_id) {
            continue;
        }
        err = updateIfindexNeighbourInHashTable(port->ifindex_neighbor, 0);
        bail_error(err);
        err = ht_delete(ibports_ht, ifindex, ts_length(ifindex));
        if (err != 0) {
            lc_log_source(LOG_ERR, "%s: Unable to remove key ifindex %s from ib ports hash table\n",
                          __func__, ts_str(ifindex));
            goto bail;
        }
    }

bail:
    // Answered whatever happened.
    complain_error(ovd_send_remove_device_done_event(static_cast<uint32>(err), dev_id));
    tstr_array_free(&ifindexes);
    return err;
}

int handleIbPortDeletion(ifindexInformation *port_info, uint8 *new_vl, tbool *new_configured_state,
                         tbool enable_port, tbool disable_port)
{
    int err = 0;
    uint8 max_speed = 0;
    uint8 default_vl = 0;
    sa_port_capability_t capability = {};
    const char *dev_name = "";
    int dev_index = 0;
    ekeyInfo *ekey_status_val = nullptr;

    bail_null(port_info);
    bail_null(new_vl);
    bail_null(new_configured_state);
    if (!ovd_swid_is_served(port_info->assigned_to_swid)) {
        lc_log_basic(LOG_NOTICE,
                     "OVD skip label port: [%u] configuration deletion. Port doesn't belong to him "
                     "but to swid: [%d]",
                     static_cast<uint32>(port_info->label_port),
                     static_cast<int>(port_info->assigned_to_swid));
        goto bail;
    }
    if (disable_port) {
        err = ovd_set_paos_register(port_info->devid, port_info->localport, port_info->label_port,
                                    port_info->assigned_to_swid, PORT_DOWN);
        bail_error(err);
        port_info->configured_state = false;
        ovd_port_settle();
    }
    err = get_port_max_speed_limit(port_info->port_direction, port_info->devid,
                                   port_info->label_port, &max_speed);
    bail_error(err);
    err = get_port_default_vl(port_info->port_direction, port_info->devid, port_info->label_port,
                              &default_vl);
    bail_error(err);
    port_info->active_speed = max_speed;
    capability.link_speed_supported = max_speed;
    capability.link_width_supported = ovd_default_width;
    capability.mtu_cap = ovd_default_mtu;
    capability.fec_cap = ovd_default_fec;
    capability.vl_cap = default_vl;
    *new_vl = default_vl;

    ovd_device_log_name(port_info->devid, &dev_name, &dev_index);
    lc_log_basic(LOG_NOTICE,
                 "Configure IB attributes of label port: [%u], device: [%u, %s/%d] after deletion.",
                 static_cast<uint32>(port_info->label_port), port_info->devid, dev_name, dev_index);
    lc_log_basic(LOG_NOTICE, "New SPEED of [%u,%s/%d %u] is: [%u, %s] (PTYS)", port_info->devid,
                 dev_name, dev_index, static_cast<uint32>(port_info->label_port),
                 static_cast<uint32>(max_speed),
                 ovd_text_of(sa_port_prm_link_speed_to_tstr, max_speed).c_str());
    lc_log_basic(LOG_NOTICE, "New WIDTH of [%u,%s/%d labelport: %u] is: [%u, %s] (PTYS)",
                 port_info->devid, dev_name, dev_index, static_cast<uint32>(port_info->label_port),
                 static_cast<uint32>(ovd_default_width),
                 ovd_text_of(sa_port_prm_link_width_to_tstr, ovd_default_width).c_str());
    lc_log_basic(LOG_NOTICE, "New MTU of [%u,%s/%d %u]  is: [%u, %s] (PMTU)", port_info->devid,
                 dev_name, dev_index, static_cast<uint32>(port_info->label_port),
                 static_cast<uint32>(ovd_default_mtu), ovd_mtu_text(ovd_default_mtu).c_str());
    lc_log_basic(LOG_NOTICE, "New VL CAP of [%u,%s/%d %u] is: [%u, %s] (PVLC)", port_info->devid,
                 dev_name, dev_index, static_cast<uint32>(port_info->label_port),
                 static_cast<uint32>(default_vl),
                 ovd_text_of(sa_port_prm_vl_to_tstr, default_vl).c_str());
    lc_log_basic(LOG_NOTICE, "New FEC of [%u,%s/%d %u]  is: [%u] (PPLM)", port_info->devid,
                 dev_name, dev_index, static_cast<uint32>(port_info->label_port),
                 static_cast<uint32>(ovd_default_fec));

    err = sa_set_port_admin_cap(port_info->assigned_to_swid,
                                static_cast<vqd_dev_id_t>(port_info->devid), port_info->localport,
                                &capability, ovd_deletion_cap_mask,
                                static_cast<system_type_t>(g_sys_type));
    if (err != 0) {
        lc_log_source(LOG_DEBUG, "Unable to set port admin capabilities. Error was: %d %s\n", err,
                      sysapi_err2str(err));
        goto bail;
    }
    if (g_ekey_system == regular_system) {
        if (enable_port) {
            err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                        port_info->label_port, port_info->assigned_to_swid,
                                        PORT_UP);
            bail_error(err);
            port_info->configured_state = true;
        }
    } else {
        // The port's e-key decides whether it may be up at all.
        err = get_label_port_ekey_status(port_info->label_port, &ekey_status_val);
        bail_error(err);
        bail_null(ekey_status_val);
        if (ekey_status_val->enable != 0 && !port_info->configured_state) {
            if (enable_port) {
                err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                            port_info->label_port, port_info->assigned_to_swid,
                                            PORT_UP);
                bail_error(err);
            }
            port_info->configured_state = true;
        } else if (ekey_status_val->enable == 0 && port_info->configured_state) {
            err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                        port_info->label_port, port_info->assigned_to_swid,
                                        PORT_DOWN);
            bail_error(err);
            port_info->configured_state = false;
        }
    }
    *new_configured_state = port_info->configured_state;

bail:
    return err;
}
