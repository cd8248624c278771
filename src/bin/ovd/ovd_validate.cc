// The high-availability validation of a device.
#include "ovd_validate.h"

#include "chassis_helper.h"
#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_enable.h"
#include "ovd_registers.h"
#include "ovd_speed_limits.h"
#include "sa_registers.h"

namespace {

const char ovd_validate_done_event[] = "/ib/events/device-validate-ib-done";

// Writes a port's admin state for the validation; a failure fails the port, not the flow.
tbool ovd_validate_set_paos(const ifindexInformation *port, sa_port_state_t state)
{
    // As every PAOS write of the daemon: a standalone system arms the up/down events too.
    const int err = sa_set_port_enabled(
        port->assigned_to_swid, static_cast<vqd_dev_id_t>(port->devid), port->localport, state,
        sah_sqry_ib_is_standalone(static_cast<system_type_t>(system_type)));
    if (err != 0) {
        lc_log_basic(LOG_DEBUG, "Unable to set port status during ha flow. Error was: %d %s\n", err,
                     sysapi_err2str(err));
        return false;
    }
    return true;
}

} // namespace

int ovd_handle_ib_device_validate_event(const bn_binding_array *bindings)
{
    int err = 0;
    bn_binding *binding = nullptr;
    uint32 dev_id = 0;
    validation_status passed = DEV_VALIDATED_OK;
    const devinfo *dev = nullptr;

    err = bn_binding_array_get_binding_by_name(bindings, "dev_id", &binding);
    bail_error(err);
    bail_null(binding);
    err = bn_binding_get_uint32(binding, ba_value, nullptr, &dev_id);
    bail_error(err);

    if (dev_id == 0 || dev_id > OVD_MAX_DEVICE_ID) {
        err = ovd_send_device_validate_done_event(DEV_VALIDATED_ERR, dev_id);
        bail_error(err);
        lc_log_basic(LOG_ERR, "Device ID %u exceeds range (%u - %u).", dev_id, 1u,
                     static_cast<uint32>(OVD_MAX_DEVICE_ID));
        err = lc_err_unexpected_arg;
        goto bail;
    }
    dev = devsinfo[dev_id];
    if (dev == nullptr) {
        err = ovd_send_device_validate_done_event(DEV_VALIDATED_ERR, dev_id);
        bail_error(err);
        lc_log_basic(LOG_WARNING,
                     "OVD HA validation flow checking for device number %u failed.Not the right "
                     "behaviour\n",
                     dev_id);
        lc_log_source(LOG_ERR, "Device ID %u not exist in ovd", dev_id);
        err = lc_err_unexpected_arg;
        goto bail;
    }

    lc_log_basic(LOG_NOTICE, "OVD handles device %u, %s validate event\n", dev_id,
                 ts_str_maybe_empty(dev->subsystem_name));
    err = validate_device_flow(dev_id, &passed);
    bail_error(err);
    // The flow's truth value turned into the answer's status.
    if (passed) {
        err = ovd_send_device_validate_done_event(DEV_VALIDATED_OK, dev_id);
        bail_error(err);
        lc_log_basic(LOG_NOTICE, "OVD HA validation flow checking device number %u, %s succeed\n",
                     dev_id, ts_str_maybe_empty(dev->subsystem_name));
    } else {
        err = ovd_send_device_validate_done_event(DEV_VALIDATED_ERR, dev_id);
        bail_error(err);
        lc_log_basic(LOG_NOTICE, "OVD HA validation flow checking device number %u, %s failed\n",
                     dev_id, ts_str_maybe_empty(dev->subsystem_name));
    }

bail:
    return err;
}

int ovd_send_device_validate_done_event(validation_status status, uint32 devid)
{
    int err = 0;

    lc_log_basic(LOG_INFO, "Send device %u validate done event to portd", devid);
    err = ovd_send_event_values(ovd_validate_done_event,
                                {{"dev_id", bt_uint32, devid}, {"status", bt_uint32, status}});
    bail_error(err);

bail:
    return err;
}

int validate_device_flow(uint32 dev_id, validation_status *valid_status)
{
    int err = 0;
    ret_device_ifindexs ports{};
    tbool ok = false;

    bail_null(valid_status);
    *valid_status = static_cast<validation_status>(false);
    err = tstr_array_new(&ports.ifindex_arr, nullptr);
    bail_error(err);
    ports.dev_id = dev_id;
    err = get_device_ports_ifindex_arr(&ports);
    bail_error(err);

    for (uint32 i = 0; i < tstr_array_length_quick(ports.ifindex_arr); ++i) {
        const tstring *key = tstr_array_get_quick(ports.ifindex_arr, i);
        ifindexInformation *port = nullptr;
        tbool exists = false;

        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr || !ovd_swid_is_served(port->assigned_to_swid)) {
            continue;
        }
        if (port->enable_port_time == 0) {
            lc_log_basic(LOG_WARNING,
                         "HA flow: Local port number %u in device number %u wasn't enabled "
                         "before. wrong behaviour \n",
                         static_cast<uint32>(port->localport), dev_id);
            goto bail;
        }
        lc_log_basic(LOG_INFO, "HA validation for device id %u local port %u\n", dev_id,
                     static_cast<uint32>(port->localport));
        err = validate_plib(port, &ok);
        bail_error(err);
        if (!ok) {
            lc_log_basic(LOG_INFO, "HA validation plib for device id %u local port %u failed\n",
                         dev_id, static_cast<uint32>(port->localport));
            goto bail;
        }
        err = validate_port_attributes(port, &ok, key);
        bail_error(err);
        if (!ok) {
            lc_log_basic(LOG_INFO,
                         "HA validation attributes values for device id %u local port %u "
                         "failed\n",
                         dev_id, static_cast<uint32>(port->localport));
            goto bail;
        }
        lc_log_basic(LOG_INFO, "HA validation for device id %u local port %u succeed\n", dev_id,
                     static_cast<uint32>(port->localport));
    }
    *valid_status = static_cast<validation_status>(true);

bail:
    tstr_array_free(&ports.ifindex_arr);
    return err;
}

int validate_plib(ifindexInformation *ret_val_from_ib_ports_ht, tbool *status)
{
    int err = 0;
    ifindexInformation *port = ret_val_from_ib_ports_ht;
    plib_reg_t plib{};

    bail_null(port);
    bail_null(status);
    *status = true;
    err = get_plib_reg(port->assigned_to_swid, static_cast<vqd_dev_id_t>(port->devid),
                       port->localport, &plib);
    bail_error(err);
    if (plib.ib_port != port->ibport) {
        if (map_ibport_to_localport(static_cast<uint8>(port->devid), port->localport,
                                    port->ibport) != 0) {
            lc_log_basic(LOG_WARNING,
                         "Failed configure new plib during ha validation flow for device: %u",
                         port->devid);
            *status = false;
        }
    }

bail:
    return err;
}

int validate_port_attributes(ifindexInformation *ret_val_from_ib_ports_ht, tbool *status,
                             const tstring *ifindex)
{
    int err = 0;
    ifindexInformation *port = ret_val_from_ib_ports_ht;
    sa_port_capability_t current{};
    sa_port_capability_t wanted{};
    uint32 mask = 0;
    uint8 default_vl = 0;
    uint16 mtu = OVD_DEFAULT_PORT_MTU;
    uint8 width = OVD_DEFAULT_PORT_WIDTH;
    uint8 op_vls = 0;
    tbool found = false;
    void *value = nullptr;
    paos_reg_t paos{};
    tbool taken_down = false;
    const sa_port_state_t wanted_state = port != nullptr && port->configured_state ? PORT_UP
                                                                                   : PORT_DOWN;
    int set_err = 0;

    bail_null(port);
    bail_null(status);
    bail_null(ifindex);
    *status = false;

    set_err = sa_get_port_admin_cap(port->assigned_to_swid, static_cast<vqd_dev_id_t>(port->devid),
                                    port->localport, &current,
                                    static_cast<system_type_t>(g_sys_type));
    if (set_err != 0) {
        lc_log_basic(LOG_WARNING,
                     "Unable to get port admin capability during ha validate flow. Error was: %d "
                     "%s\n",
                     set_err, sysapi_err2str(set_err));
        goto bail;
    }
    err = get_port_default_vl(port->port_direction, port->devid, port->label_port, &default_vl);
    bail_error(err);
    op_vls = default_vl;
    bail_null(ifindex_to_config_ht);
    err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &found, nullptr, nullptr,
                    &value);
    bail_error(err);
    if (found && value != nullptr) {
        const port_config_parameters_t *config = static_cast<port_config_parameters_t *>(value);
        mtu = config->mtu;
        width = config->width;
        op_vls = config->op_vls;
    } else {
        lc_log_basic(LOG_WARNING, "%s: ifindex:[%s] supposed to be in configuration DB", __func__,
                     ts_str(ifindex));
    }

    // Each difference goes into the mask and the capability to write; an unset field
    // compares with its default.
#define OVD_HA_PREFIX "During ha validation flow for device:[%u] localport:[%u] "
    if (mtu != OVD_CONFIG_NOT_SET) {
        if (mtu != current.mtu_cap) {
            lc_log_basic(LOG_WARNING,
                         OVD_HA_PREFIX "There is a mismatch at MTU port configuration. "
                                       "Configured:[%u], Currently Active:[%u]",
                         port->devid, static_cast<uint32>(port->localport),
                         static_cast<uint32>(mtu), static_cast<uint32>(current.mtu_cap));
            wanted.mtu_cap = mtu;
            mask |= SPC_MTU_CAP;
        }
    } else if (current.mtu_cap != OVD_DEFAULT_PORT_MTU) {
        lc_log_basic(LOG_WARNING, OVD_HA_PREFIX "There MTU is not set, setting default:[%d]",
                     port->devid, static_cast<uint32>(port->localport), OVD_DEFAULT_PORT_MTU);
        wanted.mtu_cap = OVD_DEFAULT_PORT_MTU;
        mask |= SPC_MTU_CAP;
    }
    if (width != OVD_CONFIG_NOT_SET) {
        if (width != current.link_width_supported) {
            lc_log_basic(LOG_WARNING,
                         OVD_HA_PREFIX "There is a mismatch at WIDTH port configuration. OVD "
                                       "Configured:[%u], Currently Active:[%u]",
                         port->devid, static_cast<uint32>(port->localport),
                         static_cast<uint32>(width),
                         static_cast<uint32>(current.link_width_supported));
            wanted.link_width_supported = width;
            mask |= SPC_LINK_WIDTH;
        }
    } else if (current.link_width_supported != OVD_DEFAULT_PORT_WIDTH) {
        lc_log_basic(LOG_WARNING, OVD_HA_PREFIX "There WIDTH is not set, setting default:[%d]",
                     port->devid, static_cast<uint32>(port->localport), OVD_DEFAULT_PORT_WIDTH);
        wanted.link_width_supported = OVD_DEFAULT_PORT_WIDTH;
        mask |= SPC_LINK_WIDTH;
    }
    if (op_vls != OVD_CONFIG_NOT_SET) {
        if (op_vls != current.vl_cap) {
            lc_log_basic(LOG_WARNING,
                         OVD_HA_PREFIX "There is a mismatch at VL_CAP port configuration. OVD "
                                       "Configured:[%u], Currently Active:[%u]",
                         port->devid, static_cast<uint32>(port->localport),
                         static_cast<uint32>(op_vls), static_cast<uint32>(current.vl_cap));
            wanted.vl_cap = op_vls;
            mask |= SPC_VL_CAP;
        }
    } else if (current.vl_cap != default_vl) {
        lc_log_basic(LOG_WARNING, OVD_HA_PREFIX "There VL_CAP is not set, setting default:[%d]",
                     port->devid, static_cast<uint32>(port->localport),
                     static_cast<int>(default_vl));
        wanted.vl_cap = default_vl;
        mask |= SPC_VL_CAP;
    }
    if (port->active_speed != current.link_speed_supported) {
        lc_log_basic(LOG_WARNING,
                     OVD_HA_PREFIX "There is a mismatch at LINK_SPEED port configuration. OVD "
                                   "Configured(Hush):[%u],Configured:[%u] Currently Active:[%u]",
                     port->devid, static_cast<uint32>(port->localport),
                     static_cast<uint32>(port->active_speed),
                     static_cast<uint32>(port->active_speed),
                     static_cast<uint32>(current.link_speed_supported));
        wanted.link_speed_supported = port->active_speed;
        mask |= SPC_LINK_SPEED;
    }
#undef OVD_HA_PREFIX

    set_err = get_paos_reg(port->assigned_to_swid, static_cast<vqd_dev_id_t>(port->devid),
                           port->localport, &paos);
    if (set_err != 0) {
        lc_log_basic(LOG_WARNING, "Failed to read paos during ha validation flow for device:[%u]",
                     port->devid);
        goto bail;
    }

    if (mask != 0) {
        lc_log_basic(LOG_WARNING,
                     "There is a mismatch at port configuration during ha validation flow for "
                     "device:[%u] localport:[%u] setting:[0x%x]",
                     port->devid, static_cast<uint32>(port->localport), mask);
        if (paos.admin_status == PORT_UP) {
            lc_log_basic(LOG_INFO,
                         "set PAOS PORT_DOWN during ha flow device: [%u] , local port: [%u] \n",
                         port->devid, static_cast<uint32>(port->localport));
            if (!ovd_validate_set_paos(port, PORT_DOWN)) {
                goto bail;
            }
            taken_down = true;
            ovd_port_settle();
        }
        set_err = sa_set_port_admin_cap(port->assigned_to_swid,
                                        static_cast<vqd_dev_id_t>(port->devid), port->localport,
                                        &wanted, mask, static_cast<system_type_t>(g_sys_type));
        if (set_err != 0) {
            lc_log_basic(LOG_INFO,
                         "Unable to set port admin capabilities during ha flow. Error was: %d "
                         "%s\n",
                         set_err, sysapi_err2str(set_err));
            goto bail;
        }
    }

    if (taken_down) {
        if (wanted_state == PORT_UP) {
            lc_log_basic(LOG_INFO,
                         "set PAOS PORT_UP during ha flow device: [%u] , local port: [%u] \n",
                         port->devid, static_cast<uint32>(port->localport));
            if (!ovd_validate_set_paos(port, PORT_UP)) {
                goto bail;
            }
        }
    } else if (paos.admin_status != wanted_state) {
        lc_log_basic(LOG_INFO, "set PAOS %s during ha flow device: [%u] , local port: [%u] \n",
                     wanted_state == PORT_UP ? "PORT_UP" : "PORT_DOWN", port->devid,
                     static_cast<uint32>(port->localport));
        if (!ovd_validate_set_paos(port, wanted_state)) {
            goto bail;
        }
    }
    *status = true;

bail:
    return err;
}
