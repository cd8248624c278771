// The port-enable hand-shake and the debug mode's failure injection.
#include "ovd_port_enable.h"

#include <cstring>
#include <string>

#include "chassis_helper.h"
#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_dispatch.h"
#include "ovd_ekey.h"
#include "ovd_swid_assign.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_values.h"
#include "ovd_registers.h"
#include "ovd_speed_limits.h"
#include "ovd_virtual_ports.h"
#include "sa_registers.h"

namespace {

// The recorded device of an id read from an event: 14035 above the range (logged as the
// flows log it), 14008 for an empty slot.
int ovd_enable_device_get(uint32 dev_id, devinfo **ret_dev)
{
    int err = 0;

    *ret_dev = nullptr;
    if (dev_id > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR, "got device ID %u which exceeds maximum device ID %u", dev_id,
                      static_cast<uint32>(OVD_MAX_DEVICE_ID));
        err = lc_err_range;
        goto bail;
    }
    if (devsinfo[dev_id] == nullptr) {
        lc_log_source(LOG_ERR, "got device ID %u which is not in ovd cache \n", dev_id);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    *ret_dev = devsinfo[dev_id];

bail:
    return err;
}

const char *ovd_dev_name(const devinfo *dev)
{
    return dev != nullptr ? ts_str_maybe_empty(dev->subsystem_name) : "";
}

// One port of an operation-0 enable: PLIB, the attributes, PAOS by the stored enable.
int ovd_enable_one_port(uint32 dev_id, const devinfo *dev, uint8 local, uint32 ifindex_val,
                        ifindexInformation *port, const tstring *key)
{
    int err = 0;
    uint8 enable_status = OVD_CONFIG_NOT_SET;
    uint8 speed = 0;

    lc_log_basic(LOG_NOTICE, "OVD configures port attributes for device: [%u, %s], label port: [%u]",
                 dev_id, ovd_dev_name(dev), static_cast<uint32>(port->label_port));
    err = map_ibport_to_localport(static_cast<uint8>(dev_id), local, port->ibport);
    bail_error(err);
    err = ovd_configure_port_attributes(&enable_status, &speed, local, dev_id, port, key,
                                        PORT_ENABLE_INIT, false);
    bail_error(err);
    port->active_speed = speed;

    if (g_ekey_system != regular_system) {
        // Nothing is written before the controller is ready: its ready event makes up for
        // it, for every port at once.
        if (g_handled_ekey_blade_ready_event) {
            tbool state = false;
            err = configure_ekey_blade_paos(port->label_port, dev_id, local, enable_status,
                                            ifindex_val, port->assigned_to_swid, &state);
            port->configured_state = state;
            bail_error(err);
            port->enable_port_time = lt_sys_uptime_ms();
        }
        goto bail;
    }
    if (enable_status != 1 && enable_status != OVD_CONFIG_NOT_SET) {
        err = ovd_set_paos_register(dev_id, local, port->label_port, port->assigned_to_swid,
                                    PORT_DOWN);
        bail_error(err);
        port->configured_state = false;
    } else {
        err = ovd_set_paos_register(dev_id, local, port->label_port, port->assigned_to_swid,
                                    PORT_UP);
        bail_error(err);
        port->configured_state = true;
    }
    port->enable_port_time = lt_sys_uptime_ms();

bail:
    return err;
}

// Steps up to the answer of an operation-0 enable.  *ret_dev_id is what could be read.
int ovd_init_enable_flow(const bn_binding_array *bindings, uint32 *ret_dev_id,
                         uint8 *local_ports_array)
{
    int err = 0;
    uint32 dev_id = 0;
    uint32 port_dev_id = 0;
    uint32 port_num = 0;
    uint32 ifindex_val = 0;
    uint8 swid = OVD_NO_SWID;
    uint8 local = 0;
    devinfo *dev = nullptr;
    tstring *key = nullptr;
    tbool exists = false;
    ifindexInformation *port = nullptr;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    *ret_dev_id = dev_id;
    err = ovd_enable_device_get(dev_id, &dev);
    bail_error(err);
    lc_log_basic(LOG_NOTICE, "OVD handles device port enable event for device: %u, %s\n", dev_id,
                 ovd_dev_name(dev));

    if (g_debug_mode && g_devid_str_debug_mode != nullptr && dev->subsystem_name != nullptr &&
        ts_equal(g_devid_str_debug_mode, dev->subsystem_name) && g_number_of_times_to_fail != 0) {
        lc_log_basic(LOG_WARNING,
                     "OVD debug mode is enabled. Sending enable port done event for device: %u, "
                     "%s with failure status\n",
                     dev_id, ovd_dev_name(dev));
        --g_number_of_times_to_fail;
        // An injected failure leaves the record of handled enables as it is.
        return 1;
    }

    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    for (uint32 i = 1; i <= port_num; ++i) {
        err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &port_dev_id, 0);
        bail_error(err);
        err = ovd_enable_device_get(port_dev_id, &dev);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);

        // The marks are indexed by local port: one outside the range is refused before
        // anything is marked, whatever its SWID.
        if (local < 1 || local > OVD_MAX_LOCAL_PORT) {
            lc_log_source(LOG_ERR,
                          "OVD got local port: [%u] for device: [%u, %s] which not in range: "
                          "(%d - %d)",
                          static_cast<uint32>(local), port_dev_id, ovd_dev_name(dev), 1,
                          OVD_MAX_LOCAL_PORT);
            err = lc_err_range;
            goto bail;
        }
        if (swid == OVD_NO_SWID) {
            // In no partition: reported as handled, nothing written.
            local_ports_array[local] = 1;
            continue;
        }
        if (!ovd_swid_is_served(swid)) {
            continue;
        }
        local_ports_array[local] = 1;

        err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex_val, i);
        bail_error(err);
        ts_free(&key);
        err = ts_new_sprintf(&key, "%u", ifindex_val);
        bail_error(err);
        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_source(LOG_ERR, "ifindex number %s isn't exist in ifindexs hash table",
                          ts_str(key));
            err = lc_err_unexpected_arg;
            goto bail;
        }
        err = ovd_enable_one_port(port_dev_id, dev, local, ifindex_val, port, key);
        bail_error(err);
    }
    g_handled_enable_port_event = true;

bail:
    ts_free(&key);
    return err;
}

// The speed's and VL's texts for the log lines; an unknown value reads empty.
std::string ovd_text_of(int (*to_tstr)(tstring **, uint8), uint8 value)
{
    tstring *text = nullptr;
    std::string out;
    if (to_tstr(&text, value) == 0 && text != nullptr) {
        out = ts_str(text);
    }
    ts_free(&text);
    return out;
}

// A selector of the enable family by the event's operation: 0 goes to init_handler, 1 to
// the SWID hand-shake, 2 to the virtual ports in the given direction; any other operation
// is dropped with no answer.
int ovd_select_by_operation(const bn_binding_array *bindings, const char *selector,
                            int (*init_handler)(const bn_binding_array *),
                            int (*map_handler)(const bn_binding_array *, enable_port_status),
                            port_flow_status virtual_flow)
{
    int err = 0;
    uint8 operation = 0;

    err = getInfoFromAddDeviceEvent(bindings, operation_en, &operation, 0);
    bail_error(err);
    if (operation == PORT_ENABLE_INIT) {
        err = init_handler(bindings);
        bail_error(err);
    } else if (operation == PORT_MAP_TO_SWID) {
        err = map_handler(bindings, PORT_MAP_TO_SWID);
        bail_error(err);
    } else if (operation == PORT_ENABLE_VIRTUAL) {
        err = ovd_handle_virtual_port_enable_disable(bindings, PORT_ENABLE_VIRTUAL, virtual_flow);
        bail_error(err);
    } else {
        lc_log_basic(LOG_DEBUG, "%s: operation %u dropped", selector,
                     static_cast<uint32>(operation));
    }

bail:
    return err;
}

} // namespace

int ovd_handle_device_port_enable_event(const bn_binding_array *bindings)
{
    return ovd_select_by_operation(bindings, __func__, ovd_handle_init_device_port_enable_event,
                                   ovd_handle_port_enable_on_assign_port_to_swid, PORT_ENABLE);
}

int ovd_handle_ib_device_port_disable_event(const bn_binding_array *bindings)
{
    return ovd_select_by_operation(bindings, __func__, ovd_handle_disable_port_on_init,
                                   ovd_handle_disable_port_on_assign_port_to_swid, PORT_DISABLE);
}

int ovd_handle_init_device_port_enable_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 dev_id = 0;
    uint8 local_ports_array[OVD_NUM_LOCAL_PORT_SLOTS] = {};
    const int flow_err = ovd_init_enable_flow(bindings, &dev_id, local_ports_array);

    // An e-key blade system still waiting for its controller holds the answer back: the
    // ready event sends it.
    if (flow_err == 0 && g_ekey_system != regular_system && !g_handled_ekey_blade_ready_event) {
        goto bail;
    }
    err = ovd_send_device_port_enable_done_event(static_cast<uint32>(flow_err), dev_id,
                                                 PORT_ENABLE_INIT, local_ports_array);
    if (flow_err != 0) {
        return flow_err;
    }
    bail_error(err);

bail:
    return err;
}

int ovd_configure_port_attributes(uint8 *enable_status, uint8 *interface_speed_to_apply,
                                  uint8 localport, uint32 devid,
                                  ifindexInformation *ret_val_from_ib_ports_ht,
                                  const tstring *ifindex, enable_port_status flow,
                                  tbool map_port_to_swid_force)
{
    int err = 0;
    ifindexInformation *port = ret_val_from_ib_ports_ht;
    tbool found = false;
    void *value = nullptr;
    port_config_parameters_t *config = nullptr;
    port_config_parameters_t new_config{};
    uint8 max_speed = 0;
    uint8 default_vl = 0;
    uint8 speed = 0;
    const uint8 enable_default = flow == PORT_MAP_TO_SWID && !map_port_to_swid_force ? 0 : 1;
    sa_port_capability_t cap{};
    uint32 mask = 0;
    const char *dev_name = "";
    int dev_index = 0;

    bail_null(enable_status);
    bail_null(interface_speed_to_apply);
    bail_null(port);
    bail_null(ifindex);
    if (!ovd_swid_is_served(port->assigned_to_swid)) {
        goto bail;
    }
    bail_null(ifindex_to_config_ht);

    err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &found, nullptr, nullptr,
                    &value);
    bail_error(err);
    err = get_port_max_speed_limit(port->port_direction, devid, port->label_port, &max_speed);
    bail_error(err);
    err = get_port_default_vl(port->port_direction, devid, port->label_port, &default_vl);
    bail_error(err);
    *interface_speed_to_apply = max_speed;

    if (found && value != nullptr) {
        config = static_cast<port_config_parameters_t *>(value);
        speed = config->speed < OVD_CONFIG_NOT_SET ? config->speed : max_speed;
        // The defaults fill the stored entry; its speed stays "not set".
        if (config->mtu == OVD_CONFIG_NOT_SET) {
            config->mtu = OVD_DEFAULT_PORT_MTU;
        }
        if (config->width == OVD_CONFIG_NOT_SET) {
            config->width = OVD_DEFAULT_PORT_WIDTH;
        }
        if (config->op_vls == OVD_CONFIG_NOT_SET) {
            config->op_vls = default_vl;
        }
        if (config->fec == OVD_CONFIG_NOT_SET) {
            config->fec = OVD_DEFAULT_PORT_FEC;
        }
        if (config->enable == OVD_CONFIG_NOT_SET) {
            config->enable = enable_default;
        }
    } else {
        speed = max_speed;
        err = port_config_init_values(&new_config);
        bail_error(err);
        new_config.mtu = OVD_DEFAULT_PORT_MTU;
        new_config.width = OVD_DEFAULT_PORT_WIDTH;
        new_config.op_vls = default_vl;
        new_config.fec = OVD_DEFAULT_PORT_FEC;
        new_config.enable = enable_default;
        // The table copies key and record.
        err = ht_insert(ifindex_to_config_ht, const_cast<tstring *>(ifindex), ts_length(ifindex),
                        &new_config);
        bail_error(err);
        config = &new_config;
    }
    *enable_status = config->enable;

    ovd_device_log_name(devid, &dev_name, &dev_index);
    cap.link_width_supported = config->width;
    mask |= SPC_LINK_WIDTH;
    lc_log_basic(LOG_INFO, "%s: [WIDTH] of [%u,%s-%u] is: [%u, %s] (PTYS)", __func__, devid,
                 dev_name, static_cast<uint32>(port->label_port),
                 static_cast<uint32>(cap.link_width_supported),
                 ovd_text_of(sa_port_prm_link_width_to_tstr, cap.link_width_supported).c_str());
    *interface_speed_to_apply = max_speed & speed;
    cap.link_speed_supported = *interface_speed_to_apply;
    mask |= SPC_LINK_SPEED;
    lc_log_basic(LOG_INFO, "%s: [SPEED] of [%u,%s-%u] is: [%u, %s] (PTYS)", __func__, devid,
                 dev_name, static_cast<uint32>(port->label_port),
                 static_cast<uint32>(cap.link_speed_supported),
                 ovd_text_of(sa_port_prm_link_speed_to_tstr, cap.link_speed_supported).c_str());
    cap.mtu_cap = config->mtu;
    mask |= SPC_MTU_CAP;
    lc_log_basic(LOG_INFO, "%s: [MTU]   of [%u,%s-%u] is: [%u] (PMTU)", __func__, devid, dev_name,
                 static_cast<uint32>(port->label_port), static_cast<uint32>(cap.mtu_cap));
    cap.vl_cap = config->op_vls;
    mask |= SPC_VL_CAP;
    lc_log_basic(LOG_INFO, "%s: [OP VL] of [%u,%s/%d-%u] is: [%u, %s] (PVLC)", __func__, devid,
                 dev_name, dev_index, static_cast<uint32>(port->label_port),
                 static_cast<uint32>(cap.vl_cap),
                 ovd_text_of(sa_port_prm_vl_to_tstr, cap.vl_cap).c_str());
    cap.fec_cap = config->fec;
    mask |= SPC_FEC_CAP;
    lc_log_basic(LOG_INFO, "%s: [FEC]   of [%u,%s-%u] is: [%u] (PPLM)", __func__, devid, dev_name,
                 static_cast<uint32>(port->label_port), static_cast<uint32>(cap.fec_cap));

    err = sa_set_port_admin_cap(port->assigned_to_swid, static_cast<vqd_dev_id_t>(devid), localport,
                                &cap, mask, static_cast<system_type_t>(g_sys_type));
    if (err != 0) {
        lc_log_source(LOG_WARNING,
                      "Unable to set port admin capabilities - width:[%d], speed:[%d], mtu:[%d] "
                      "vl:[%d] fec:[%d]. Error was: %d %s\n",
                      cap.link_width_supported, cap.link_speed_supported, cap.mtu_cap, cap.vl_cap,
                      cap.fec_cap, err, sysapi_err2str(err));
        goto bail;
    }

bail:
    return err;
}

int ovd_send_device_port_enable_done_event(uint32 status, uint32 devid, uint8 operation,
                                           uint8 *local_ports_array)
{
    int err = 0;
    bn_request *req = nullptr;
    ret_device_ifindexs ports{};
    uint32 count = 0;
    const char *dev_name = "";
    int dev_index = 0;

    bail_null(local_ports_array);
    err = bn_event_request_msg_create(&req, ovd_port_enable_done_event);
    bail_error(err);
    bail_null(req);

    if (status == 0) {
        err = tstr_array_new(&ports.ifindex_arr, nullptr);
        bail_error(err);
        ports.dev_id = devid;
        err = get_device_ports_ifindex_arr(&ports);
        bail_error(err);
        if (tstr_array_length_quick(ports.ifindex_arr) == 0) {
            ovd_device_log_name(devid, &dev_name, &dev_index);
            lc_log_basic(LOG_ERR, "Wrong behaviour. OVD should hold ports for device: [%u, %s]",
                         devid, dev_name);
            err = lc_err_generic_error;
            goto bail;
        }
        for (uint32 i = 0; i < tstr_array_length_quick(ports.ifindex_arr); ++i) {
            const tstring *key = tstr_array_get_quick(ports.ifindex_arr, i);
            ifindexInformation *port = nullptr;
            tbool exists = false;
            uint32 ifindex_val = 0;

            err = checkIfPortExists(key, &port, &exists);
            bail_error(err);
            if (!exists || port == nullptr) {
                continue;
            }
            if (port->assigned_to_swid < OVD_NO_SWID &&
                !ovd_swid_is_served(port->assigned_to_swid)) {
                continue;
            }
            if (port->localport > OVD_MAX_LOCAL_PORT || local_ports_array[port->localport] == 0) {
                continue;
            }
            err = lc_str_to_uint32(ts_str(key), &ifindex_val);
            if (err != 0) {
                lc_log_source(LOG_ERR, "Failed to convert ifindex %s to number", ts_str(key));
                goto bail;
            }
            ++count;
            err = ovd_add_value(req, "local", static_cast<int>(count), bt_uint8, port->localport);
            bail_error(err);
            err = ovd_add_value(req, "swid", static_cast<int>(count), bt_uint8,
                                port->assigned_to_swid);
            bail_error(err);
            err = ovd_add_value(req, "ifindex", static_cast<int>(count), bt_uint32, ifindex_val);
            bail_error(err);
        }
    }
    err = ovd_add_done_values(req, status, devid, count, operation);
    bail_error(err);

    if (status == 0 && count == 0) {
        goto bail;
    }
    ovd_device_log_name(devid, &dev_name, &dev_index);
    lc_log_basic(LOG_NOTICE,
                 "OVD sends device [%u, %s/%d] port enable done event to portd with [%s] status. "
                 "Number of configured ports: [%u]",
                 devid, dev_name, dev_index, status != 0 ? "Failure" : "Success", count);
    bail_null(g_ovd_event_send);
    err = g_ovd_event_send(req);
    bail_error(err);

bail:
    tstr_array_free(&ports.ifindex_arr);
    bn_request_msg_free(&req);
    return err;
}

int ovd_handle_disable_port_on_init(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 dev_id = 0;
    uint32 port_num = 0;
    uint8 swid = OVD_NO_SWID;
    uint8 local = 0;
    devinfo *dev = nullptr;
    ret_device_ifindexs ports{};

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = ovd_enable_device_get(dev_id, &dev);
    bail_error(err);
    err = tstr_array_new(&ports.ifindex_arr, nullptr);
    bail_error(err);
    ports.dev_id = dev_id;
    err = get_device_ports_ifindex_arr(&ports);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);

    for (uint32 i = 1; i <= port_num; ++i) {
        ifindexInformation *hit = nullptr;

        err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
        bail_error(err);
        if (swid > OVD_MAX_SWID) {
            lc_log_source(LOG_ERR, "got swid id %u which exceeds range: (%u - %u)",
                          static_cast<uint32>(swid), 0u, static_cast<uint32>(OVD_MAX_SWID));
            err = lc_err_range;
            goto bail;
        }
        if (!ovd_swid_is_served(swid)) {
            continue;
        }
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);
        if (local < 1 || local > OVD_MAX_LOCAL_PORT) {
            lc_log_source(LOG_ERR, "got local port %u which exceeds range: (%u - %u)",
                          static_cast<uint32>(local), 1u, static_cast<uint32>(OVD_MAX_LOCAL_PORT));
            err = lc_err_range;
            goto bail;
        }
        for (uint32 p = 0; p < tstr_array_length_quick(ports.ifindex_arr); ++p) {
            ifindexInformation *port = nullptr;
            tbool exists = false;
            err = checkIfPortExists(tstr_array_get_quick(ports.ifindex_arr, p), &port, &exists);
            bail_error(err);
            if (exists && port != nullptr && port->localport == local) {
                hit = port;
                break;
            }
        }
        if (hit == nullptr) {
            lc_log_source(LOG_ERR,
                          "OVD tries to remove port %u which does not exist in ovd cache. Wrong "
                          "Behaviour",
                          static_cast<uint32>(local));
            err = lc_err_generic_error;
            goto bail;
        }
        lc_log_basic(LOG_NOTICE,
                     "OVD handles device port disable event for device: [%u, %s/%d], local port: "
                     "[%u], label port: [%u]",
                     dev_id, ovd_dev_name(dev), static_cast<int>(dev->index_inside_slot),
                     static_cast<uint32>(local), static_cast<uint32>(hit->label_port));
        if (hit->configured_state) {
            err = ovd_set_paos_register(dev_id, local, hit->label_port, hit->assigned_to_swid,
                                        PORT_DOWN);
            bail_error(err);
            hit->configured_state = false;
            hit->enable_port_time = 0;
        }
    }

bail:
    tstr_array_free(&ports.ifindex_arr);
    return err;
}

tbool validate_port_avaliability(lt_dur_ms init_time)
{
    return lt_sys_uptime_ms() - init_time > OVD_PORT_AVAILABILITY_DELAY_MS;
}

int ovd_handle_debug_mode_change_event(const bn_binding_array *bindings)
{
    int err = 0;
    const bn_binding *binding = nullptr;
    bn_binding *found = nullptr;
    tbool operation = false;
    uint32 times = 0;

    if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(system_type))) {
        lc_log_basic(LOG_WARNING, "Failed to change to debug mode. Can't change to debug mode at "
                                  "stand alone system.");
        goto bail;
    }
    ts_free(&g_devid_str_debug_mode);

    err = bn_binding_array_get_binding_by_name(bindings, "operation", &found);
    bail_error(err);
    binding = found;
    bail_null(binding);
    err = bn_binding_get_tbool(binding, ba_value, nullptr, &operation);
    bail_error(err);
    if (operation) {
        err = bn_binding_array_get_binding_by_name(bindings, "times", &found);
        bail_error(err);
        bail_null(found);
        err = bn_binding_get_uint32(found, ba_value, nullptr, &times);
        bail_error(err);
        err = bn_binding_array_get_binding_by_name(bindings, "slot", &found);
        bail_error(err);
        bail_null(found);
        err = bn_binding_get_tstr(found, ba_value, bt_string, nullptr, &g_devid_str_debug_mode);
        bail_error(err);
        bail_null(g_devid_str_debug_mode);
        g_number_of_times_to_fail = times;
        lc_log_basic(LOG_NOTICE,
                     "OVD changes debug mode to Enabled status for slot: %s. Number of allowed "
                     "failures: %u",
                     ts_str(g_devid_str_debug_mode), times);
        g_debug_mode = true;
    } else {
        lc_log_basic(LOG_NOTICE, "OVD changes debug mode to Disabled status");
        g_debug_mode = false;
    }

bail:
    if (err != 0) {
        g_debug_mode = false;
        ts_free(&g_devid_str_debug_mode);
        lc_log_basic(LOG_NOTICE, "OVD changes debug mode to Disabled status\n");
    }
    return err;
}
