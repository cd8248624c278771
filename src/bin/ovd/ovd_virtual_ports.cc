// Virtual ports: operation 2 of the enable family, the shared PAOS port and the answer.
#include "ovd_virtual_ports.h"

#include <string.h>

#include "bnode_proto.h"
#include "hash_table.h"
#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_ports_cache.h"
#include "sa_registers.h"
#include "tstring.h"

namespace {

// One port of the request: checks its numbers, records the SWID membership and writes
// PAOS where the SWID is served.
int ovd_virtual_port_apply(const bn_binding_array *bindings, uint32 dev_id, uint32 i,
                           port_flow_status flow)
{
    int err = 0;
    uint8 swid = 0;
    uint32 ifindex = 0;
    uint8 local = 0;
    tstring *key = nullptr;
    tbool found = false;
    void *value = nullptr;
    virtualIfindexInfo *port = nullptr;
    const char *dev_name = "";
    int dev_index = 0;

    err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
    bail_error(err);
    if (swid > OVD_MAX_SWID) {
        lc_log_source(LOG_ERR, "Swid [%u] exceed is its range [0-%d]. Internal error.",
                      static_cast<uint32>(swid), OVD_MAX_SWID);
        err = lc_err_invalid_param;
        goto bail;
    }
    err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
    bail_error(err);
    err = ts_new_sprintf(&key, "%u", ifindex);
    bail_error(err);
    bail_null(key);
    if (virtual_ibports_ht != nullptr) {
        err = ht_lookup(virtual_ibports_ht, key, ts_length(key), &found, nullptr, nullptr,
                        &value);
        bail_error(err);
    }
    if (!found || value == nullptr) {
        lc_log_source(LOG_ERR, "ifindex number [%s] doesn't exist in virtual ifindexs hash table.",
                      ts_str(key));
        err = lc_err_unexpected_arg;
        goto bail;
    }
    port = static_cast<virtualIfindexInfo *>(value);
    err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
    bail_error(err);
    if (local < local_start_port) {
        lc_log_source(LOG_ERR, "Local port for virtual port must start from [%d]. Internal error.",
                      local_start_port);
        err = lc_err_invalid_param;
        goto bail;
    }

    ovd_device_log_name(dev_id, &dev_name, &dev_index);
    lc_log_basic(LOG_NOTICE,
                 "OVD handles [%s] virtual local port: [%u], ifindex: [%u], swid: [%u] for "
                 "device: [%u, %s].",
                 flow == PORT_ENABLE ? "Enable" : "Disable", static_cast<uint32>(local), ifindex,
                 static_cast<uint32>(swid), dev_id, dev_name);

    // The membership follows the request whether this daemon serves the SWID or not.
    port->assigned_to_swid[swid] = flow == PORT_ENABLE ? swid : OVD_NO_SWID;
    if (ovd_swid_is_served(swid)) {
        err = ovd_set_virtual_paos_register(dev_id, g_virtual_paos_lcl_port, swid,
                                            flow == PORT_ENABLE ? PORT_UP : PORT_DOWN);
        bail_error(err);
        port->configured_state = flow == PORT_ENABLE;
    }

bail:
    ts_free(&key);
    return err;
}

} // namespace

int ovd_handle_virtual_port_enable_disable(const bn_binding_array *bindings,
                                           enable_port_status operation, port_flow_status flow)
{
    int err = 0;
    uint32 dev_id = 0;
    uint32 port_num = 0;
    const char *event_name = flow == PORT_ENABLE ? ovd_port_enable_done_event : ovd_port_disable_done_event;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    if (dev_id >= OVD_NUM_DEVICES || devsinfo[dev_id] == nullptr) {
        lc_log_source(LOG_ERR,
                      "Got device ID [%u] which is not in ovd cache. Enable virtual port flow",
                      dev_id);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    for (uint32 i = 1; i <= port_num; ++i) {
        err = ovd_virtual_port_apply(bindings, dev_id, i, flow);
        bail_error(err);
    }

bail:
    // The port manager waits for the answer, also after a failure.
    (void)ovd_send_virtual_port_disable_enable_done_event(bindings, static_cast<uint32>(err),
                                                          event_name, operation);
    return err;
}

int ovd_set_virtual_paos_register(uint32 dev_id, uint8 local_port, uint8 swid,
                                  sa_port_state_t state)
{
    int err = 0;
    const char *dev_name = "";
    int dev_index = 0;
    paos_reg_t reg;

    if (!ovd_swid_is_served(swid)) {
        lc_log_source(LOG_WARNING, "OVD isn't supposed to set(PAOS) local port: [%u], device: [%u]",
                      static_cast<uint32>(local_port), dev_id);
        goto bail;
    }
    ovd_device_log_name(dev_id, &dev_name, &dev_index);
    lc_log_basic(LOG_INFO,
                 "set VIRTUAL port: [%s] (PAOS) for Device id: [%s, %u], local port: [%u]",
                 state == PORT_UP ? "UP" : "DOWN", dev_name, dev_id,
                 static_cast<uint32>(local_port));
    memset(&reg, 0, sizeof(reg));
    reg.swid = swid;
    reg.local_port = g_virtual_paos_lcl_port;
    reg.admin_status = static_cast<uint8_t>(state);
    reg.ase = 1;
    reg.ee = 1;
    reg.e = 1;
    reg.oper_status = 0;
    err = set_paos_reg(swid, static_cast<vqd_dev_id_t>(dev_id), local_port, &reg);
    bail_error(err);

bail:
    return err;
}

int ovd_send_virtual_port_disable_enable_done_event(const bn_binding_array *bindings,
                                                    uint32 status, const char *event_name,
                                                    enable_port_status operation)
{
    int err = 0;
    bn_request *req = nullptr;
    uint32 dev_id = 0;
    uint32 port_num = 0;
    uint32 listed = 0;

    bail_null(event_name);
    err = bn_event_request_msg_create(&req, event_name);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    for (uint32 i = 1; i <= port_num; ++i) {
        uint8 local = 0;
        uint32 ifindex = 0;
        uint8 swid = 0;
        err = getInfoFromAddDeviceEvent(bindings, localport_en, &local, i);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
        bail_error(err);
        err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &swid, i);
        bail_error(err);
        if (!ovd_swid_is_served(swid)) {
            continue;
        }
        ++listed;
        err = ovd_add_value(req, "local", static_cast<int>(listed), bt_uint8, local);
        bail_error(err);
        err = ovd_add_value(req, "ifindex", static_cast<int>(listed), bt_uint32, ifindex);
        bail_error(err);
        err = ovd_add_value(req, "swid", static_cast<int>(listed), bt_uint8, swid);
        bail_error(err);
    }
    err = ovd_add_done_values(req, status, dev_id, listed, operation);
    bail_error(err);
    if (status == 0 && listed == 0) {
        goto bail;
    }
    lc_log_basic(LOG_NOTICE,
                 "OVD sends [%s], [%u, %s] event to portd with [%s] status. Enable/Disable Done "
                 "for virtual ports. Number of ports: [%u]",
                 event_name, dev_id, ovd_device_name(dev_id), status != 0 ? "Failure" : "Success",
                 listed);
    bail_null(g_ovd_event_send);
    err = g_ovd_event_send(req);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}
