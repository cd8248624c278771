// The SWID assignment flow.
#include "ovd_swid_assign.h"

#include <string.h>

#include <string>

#include "logging.h"
#include "mdc_main.h"
#include "ovd_device_add.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_config.h"
#include "ovd_registers.h"
#include "sa_registers.h"

namespace {

const char ovd_swid_prefix[] = "/portd/config/ifindex";

// What a SWID change does, by the kind of change.
struct ovd_swid_flags {
    tbool enable_port;
    tbool disable_port;
    tbool unmap_port;
    tbool remap_port;
    tbool delete_config;
    tbool add_config;
    tbool config_enable;
    tbool config_disable;
};

ovd_swid_flags ovd_swid_flags_of(uint8 old_swid, uint8 swid, tbool configured_state)
{
    if (old_swid == OVD_NO_SWID && swid < OVD_NO_SWID) {  // attach
        return {true, false, false, true, false, false, true, false};
    }
    if (old_swid < OVD_NO_SWID && swid == OVD_NO_SWID) {  // detach
        return {false, configured_state, true, false, true, false, true, configured_state};
    }
    return {configured_state, configured_state, true, true, true, true, false, false};  // move
}

// PSPA: the local port into `swid` (OVD_NO_SWID: into none).
int ovd_swid_map_port(const ifindexInformation *port, uint8 swid)
{
    ku_pspa_reg pspa = {};
    return ovd_set_get_pspa_reg(static_cast<uint8_t>(port->devid), swid, 0, port->localport,
                                VQD_ACCESS_CMD_SET, nullptr, nullptr, &pspa);
}

}  // namespace

int ovd_handle_swid_change(const tstring *bname, const tstr_array *bname_parts,
                           const bn_binding *binding, const bn_binding_array *old_arr)
{
    (void)old_arr;
    int err = 0;
    const char *ifindex_text = nullptr;
    uint32 ifindex_num = 0;
    uint32 flagged_type = 0;
    uint8 swid = OVD_NO_SWID;
    uint8 old_swid = OVD_NO_SWID;
    tstring *ifindex = nullptr;
    ifindexInformation *port = nullptr;
    tbool exists = false;
    tbool config_exists = false;
    void *value = nullptr;
    port_config_parameters_t save_config = {};
    ovd_swid_flags flags = {};
    uint8 enable_status = 0;
    uint8 speed = 0;

    bail_null(bname);
    bail_null(bname_parts);
    if (g_system_profile != OVD_PROFILE_IB_MULTI_SWITCH ||
        strncmp(ts_str(bname), ovd_swid_prefix, strlen(ovd_swid_prefix)) != 0 ||
        tstr_array_length_quick(bname_parts) != 5 ||
        strcmp(tstr_array_get_str_quick(bname_parts, 4), "swid") != 0) {
        goto bail;
    }
    ifindex_text = tstr_array_get_str_quick(bname_parts, 3);
    if (ifindex_text == nullptr || *ifindex_text == '\0') {
        lc_log_basic(LOG_ERR, "%s: Invalid or missing ifindex!", __func__);
        goto bail;
    }
    err = lc_str_to_uint32(ifindex_text, &ifindex_num);
    if (err != 0) {
        lc_log_basic(LOG_WARNING, "%s: ifindex:[%s] in bname:[%s] invalid!", __func__,
                     ifindex_text, ts_str(bname));
        goto bail;
    }
    bail_null(binding);
    err = bn_binding_get_uint8(binding, ba_value, &flagged_type, &swid);
    if ((flagged_type & btf_deleted) != 0) {
        swid = OVD_NO_SWID;
        err = 0;
    }
    bail_error(err);
    err = ts_new_str(&ifindex, ifindex_text);
    bail_error(err);
    err = checkIfPortExists(ifindex, &port, &exists);
    bail_error(err);
    if (!exists || port == nullptr) {
        lc_log_source(LOG_ERR, "OVD should hold ifindex:[%s]", ifindex_text);
        err = lc_err_not_found;
        goto bail;
    }
    old_swid = port->assigned_to_swid;
    lc_log_basic(LOG_NOTICE,
                 "OVD handles IB label port:[%u], ifindex:[%s], [SWID %u ==> %u] configuration "
                 "change",
                 static_cast<uint32>(port->label_port), ifindex_text,
                 static_cast<uint32>(old_swid), static_cast<uint32>(swid));
    if (swid < OVD_NO_SWID && !ovd_swid_is_served(swid)) {
        lc_log_basic(LOG_WARNING, "%s: Target SWID:[%u] not active!", __func__,
                     static_cast<uint32>(swid));
        goto bail;
    }
    if (old_swid < OVD_NO_SWID && !ovd_swid_is_served(old_swid)) {
        lc_log_basic(LOG_WARNING, "%s: Source SWID %u not active!", __func__,
                     static_cast<uint32>(old_swid));
        goto bail;
    }
    if (swid == old_swid) {
        lc_log_basic(LOG_NOTICE,
                     "%s: Request to move port:[%u] from swid:[%u], it is already set to it.",
                     __func__, static_cast<uint32>(port->label_port), static_cast<uint32>(swid));
        goto bail;
    }
    if (ifindex_to_config_ht != nullptr) {
        err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &config_exists,
                        nullptr, nullptr, &value);
        bail_error(err);
    }
    if (config_exists && value != nullptr) {
        // Kept for a restore that nothing asks for yet.
        save_config = *static_cast<port_config_parameters_t *>(value);
    } else {
        lc_log_basic(LOG_NOTICE, "%s: No port configuration for port:[%u], ifindex:[%s] to preserve.",
                     __func__, static_cast<uint32>(port->label_port), ifindex_text);
    }
    (void)save_config;
    flags = ovd_swid_flags_of(old_swid, swid, port->configured_state);

    if (flags.disable_port) {
        err = ovd_set_paos_register(port->devid, port->localport, port->label_port, old_swid,
                                    PORT_DOWN);
        bail_error(err);
        port->configured_state = false;
        ovd_port_settle();
    }
    if (flags.delete_config) {
        err = handle_deleted_port_config(ifindex, true, config_exists, port, false, false, false);
        bail_error(err);
    }
    if (flags.unmap_port) {
        err = ovd_swid_map_port(port, OVD_NO_SWID);
        bail_error(err);
    }
    port->assigned_to_swid = swid;
    port->configured_state = false;
    port->enable_port_time = swid == OVD_NO_SWID ? 0 : lt_sys_uptime_ms();
    if (flags.remap_port) {
        err = ovd_swid_map_port(port, swid);
        bail_error(err);
        err = ovd_configure_port_attributes(&enable_status, &speed, port->localport, port->devid,
                                            port, ifindex, PORT_ENABLE_INIT, false);
        bail_error(err);
    }
    if (flags.enable_port) {
        (void)map_ibport_to_localport(static_cast<uint8>(port->devid), port->localport,
                                      port->ibport);
        err = ovd_set_paos_register(port->devid, port->localport, port->label_port,
                                    port->assigned_to_swid, PORT_UP);
        bail_error(err);
        port->configured_state = true;
        ovd_port_settle();
    }
    if (flags.config_enable) {
        err = ovd_config_port_enable(ifindex_text, port, 1);
        bail_error(err);
    } else if (flags.config_disable) {
        err = ovd_config_port_enable(ifindex_text, port, 0);
        bail_error(err);
    }

bail:
    ts_free(&ifindex);
    return err;
}

int ovd_send_port_disable_enable_done_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                             uint32 status,
                                                             const char *event_name,
                                                             enable_port_status operation)
{
    int err = 0;
    bn_request *req = nullptr;
    uint32 dev_id = 0;
    uint32 port_num = 0;

    bail_null(event_name);
    err = bn_event_request_msg_create(&req, event_name);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    // Every port asked about is listed, also after a failure.
    for (uint32 i = 1; i <= port_num && i <= OVD_MAX_LOCAL_PORT; ++i) {
        uint8 local = 0;
        uint32 ifindex = 0;
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
        bail_error(err);
        err = ovd_add_value(req, "local", static_cast<int>(i), bt_uint8, local);
        bail_error(err);
        err = ovd_add_value(req, "ifindex", static_cast<int>(i), bt_uint32, ifindex);
        bail_error(err);
    }
    err = ovd_add_done_values(req, status, dev_id, port_num, operation);
    bail_error(err);
    if (status == 0 && port_num == 0) {
        goto bail;
    }
    lc_log_basic(LOG_NOTICE,
                 "OVD sends [%s], [%u, %s] event to portd with [%s] status. Assign port to swid "
                 "flow: [%d] Number of ports: [%u]",
                 event_name, dev_id, ovd_device_name(dev_id), status != 0 ? "Failure" : "Success",
                 static_cast<int>(operation), port_num);
    bail_null(g_ovd_event_send);
    err = g_ovd_event_send(req);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

int ovd_handle_disable_port_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                   enable_port_status operation)
{
    int err = 0;
    const int op = static_cast<int>(operation);
    uint32 dev_id = 0;
    uint32 port_num = 0;
    tstring *key = nullptr;
    tstring *node = nullptr;
    bn_binding *config = nullptr;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    if (dev_id > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR,
                      "Got device ID %u which exceeds maximum device ID %u. Assign port to swid "
                      "flow: [%d]",
                      dev_id, static_cast<uint32>(OVD_MAX_DEVICE_ID), op);
        err = lc_err_range;
        goto bail;
    }
    if (devsinfo[dev_id] == nullptr) {
        lc_log_source(LOG_ERR,
                      "Got device ID %u which is not in ovd cache.Assign port to swid flow: [%d]",
                      dev_id, op);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    for (uint32 i = 1; i <= port_num; ++i) {
        uint8 swid = 0;
        uint8 local = 0;
        uint32 ifindex = 0;
        tbool force = false;
        tbool exists = false;
        ifindexInformation *port = nullptr;

        err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
        bail_error(err);
        if (swid > OVD_MAX_SWID) {
            lc_log_source(LOG_ERR,
                          "Got swid id %u which exceeds range: (%u - %u). Assign port to swid "
                          "flow: [%d]",
                          static_cast<uint32>(swid), 0u, static_cast<uint32>(OVD_MAX_SWID), op);
            err = lc_err_range;
            goto bail;
        }
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);
        if (local < 1 || local > OVD_MAX_LOCAL_PORT) {
            lc_log_source(LOG_ERR,
                          "Got local port %u which exceeds range: (%u - %u). Assign port to swid "
                          "flow: [%d]",
                          static_cast<uint32>(local), 1u, static_cast<uint32>(OVD_MAX_LOCAL_PORT),
                          op);
            err = lc_err_range;
            goto bail;
        }
        err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
        bail_error(err);
        ts_free(&key);
        err = ts_new_sprintf(&key, "%u", ifindex);
        bail_error(err);
        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_basic(LOG_ERR,
                         "Got local port: [%u], ifindex: [%u] which isn't exist in its DB. "
                         "Assign port to swid flow: [%d]",
                         static_cast<uint32>(local), ifindex, op);
            lc_log_source(LOG_ERR,
                          "Got local port: [%u], ifindex: [%u] which isn't exist in its DB. "
                          "Assign port to swid flow: [%d]",
                          static_cast<uint32>(local), ifindex, op);
            err = lc_err_not_found;
            goto bail;
        }
        if (ovd_swid_is_served(swid)) {
            if (port->assigned_to_swid != swid) {
                lc_log_source(LOG_ERR,
                              "Got local port: [%u], ifindex: [%u], label: [%u] which should "
                              "have been assigned to SWID:[%u]. Assign port to swid flow: [%d]",
                              static_cast<uint32>(local), ifindex,
                              static_cast<uint32>(port->label_port), static_cast<uint32>(swid),
                              op);
            }
            err = getInfoFromAddDeviceEvent(bindings, force_en, &force, i);
            bail_error(err);
            if (force) {
                lc_log_basic(LOG_NOTICE, "Forcing port DOWN: [%u]. Assign port to swid flow: [%d]",
                             static_cast<uint32>(port->label_port), op);
                err = ovd_set_paos_register(port->devid, port->localport, port->label_port, swid,
                                            PORT_DOWN);
                bail_error(err);
                port->configured_state = false;
                ovd_port_settle();
            }
            if (port->configured_state) {
                lc_log_source(LOG_ERR,
                              "Got local port: [%u], ifindex: [%u], label: [%u] which should "
                              "have been shutdown. Assign port to swid flow: [%d]",
                              static_cast<uint32>(local), ifindex,
                              static_cast<uint32>(port->label_port), op);
            }
        }
        port->assigned_to_swid = OVD_NO_SWID;
        port->configured_state = false;
        port->enable_port_time = 0;
        if (ovd_swid_is_served(swid)) {
            uint32 code = 0;
            tstring *msg = nullptr;
            ts_free(&node);
            err = ts_new_sprintf(&node, "/ib/config/externalports/%u", ifindex);
            bail_error(err);
            bn_binding_free(&config);
            err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &config, ts_str(node), nullptr);
            bail_error(err);
            if (config != nullptr) {
                lc_log_basic(LOG_NOTICE,
                             "Going to delete subtree config: [%s]. Assign port to swid flow: [%d]",
                             ts_str(node), op);
                err = mdc_delete_binding(ovd_mcc, &code, &msg, ts_str(node));
                if (err != 0 || code != 0) {
                    lc_log_source(LOG_ERR,
                                  "Failed to delete configuration for local port: [%u], ifindex: "
                                  "[%u], label: [%u]. ret code: [%u]. ret message: [%s]. Assign "
                                  "port to swid flow: [%d]",
                                  static_cast<uint32>(local), ifindex,
                                  static_cast<uint32>(port->label_port), code,
                                  ts_str_maybe_empty(msg), op);
                    ts_free(&msg);
                    err = lc_err_generic_error;
                    goto bail;
                }
                ts_free(&msg);
                lc_log_basic(LOG_NOTICE,
                             "Going to reset port: [%u] config hash table. Assign port to swid "
                             "flow: [%d]",
                             static_cast<uint32>(port->label_port), op);
                tbool found = false;
                void *value = nullptr;
                err = ht_lookup(ifindex_to_config_ht, key, ts_length(key), &found, nullptr,
                                nullptr, &value);
                bail_error(err);
                if (found && value != nullptr) {
                    port_config_parameters_t *c = static_cast<port_config_parameters_t *>(value);
                    c->width = 5;
                    c->mtu = 4096;
                    c->op_vls = OVD_CONFIG_NOT_SET;
                    c->speed = OVD_CONFIG_NOT_SET;
                    c->enable = OVD_CONFIG_NOT_SET;
                    c->fec = 0;
                } else {
                    lc_log_basic(LOG_WARNING, "%s: ifindex: [%s] supposed to be in config hash table",
                                 __func__, ts_str(key));
                }
            }
        }
        lc_log_basic(LOG_NOTICE,
                     "OVD handles disable port event for device: [%u, %s], label port: [%u]. "
                     "Assign port to swid flow: [%d]",
                     dev_id, ovd_device_name(dev_id), static_cast<uint32>(port->label_port), op);
    }

bail:
    complain_error(ovd_send_port_disable_enable_done_on_assign_port_to_swid(
        bindings, static_cast<uint32>(err), ovd_port_disable_done_event, operation));
    bn_binding_free(&config);
    ts_free(&node);
    ts_free(&key);
    return err;
}

int ovd_handle_port_enable_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                  enable_port_status operation)
{
    int err = 0;
    const int op = static_cast<int>(operation);
    uint32 dev_id = 0;
    uint32 port_num = 0;
    tstring *key = nullptr;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    if (dev_id > OVD_MAX_DEVICE_ID || devsinfo[dev_id] == nullptr) {
        lc_log_source(LOG_ERR,
                      "Got device ID [%u] which is not in ovd cache. Assign port to swid flow: "
                      "[%d]",
                      dev_id, op);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    for (uint32 i = 1; i <= port_num; ++i) {
        uint8 swid = 0;
        uint8 local = 0;
        uint32 ifindex = 0;
        tbool exists = false;
        tbool force = false;
        ifindexInformation *port = nullptr;
        uint8 enable_status = 0;
        uint8 speed = 0;

        err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
        bail_error(err);
        ts_free(&key);
        err = ts_new_sprintf(&key, "%u", ifindex);
        bail_error(err);
        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_source(LOG_ERR,
                          "ifindex number %s doesn't exist in ifindexs hash table. Assign port to "
                          "swid flow: [%d]",
                          ts_str(key), op);
            err = lc_err_unexpected_arg;
            goto bail;
        }
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);
        if (local < 1 || local > OVD_MAX_LOCAL_PORT) {
            lc_log_source(LOG_ERR,
                          "Got local port: [%u] for device: [%u, %s] which not in range: (%d - "
                          "%d). Assign port to swid flow: [%d]",
                          static_cast<uint32>(local), dev_id, ovd_device_name(dev_id), 1,
                          OVD_MAX_LOCAL_PORT, op);
            err = lc_err_range;
            goto bail;
        }
        lc_log_basic(LOG_NOTICE,
                     "OVD handles label port: [%u] enable event for device: [%u, %s]. Assign "
                     "port to swid flow: [%d]",
                     static_cast<uint32>(port->label_port), dev_id, ovd_device_name(dev_id), op);
        port->assigned_to_swid = swid;
        if (!ovd_swid_is_served(swid)) {
            continue;
        }
        lc_log_basic(LOG_NOTICE,
                     "OVD configures port attributes for device: [%u, %s], label port: [%u]. "
                     "Assign port to swid flow: [%d]",
                     dev_id, ovd_device_name(dev_id), static_cast<uint32>(port->label_port), op);
        (void)map_ibport_to_localport(static_cast<uint8>(dev_id), local, port->ibport);
        err = getInfoFromAddDeviceEvent(bindings, force_en, &force, i);
        bail_error(err);
        err = ovd_configure_port_attributes(&enable_status, &speed, local, dev_id, port, key,
                                            PORT_MAP_TO_SWID, force);
        bail_error(err);
        port->active_speed = speed;
        port->enable_port_time = lt_sys_uptime_ms();
        if (force) {
            lc_log_basic(LOG_NOTICE, "Forcing port UP: [%u]. Assign port to swid flow: [%d]",
                         static_cast<uint32>(port->label_port), op);
            err = ovd_set_paos_register(dev_id, local, port->label_port, swid, PORT_UP);
            bail_error(err);
            port->configured_state = true;
            ovd_port_settle();
        } else {
            // Down until the configuration enables it.
            port->configured_state = false;
        }
    }

bail:
    complain_error(ovd_send_port_disable_enable_done_on_assign_port_to_swid(
        bindings, static_cast<uint32>(err), ovd_port_enable_done_event, operation));
    ts_free(&key);
    return err;
}
