// Adding a device, from the port manager's /portd/events/ib-device-add to the answer
// /ib/events/device-add-done.
#include "ovd_device_add.h"

#include <cstdlib>
#include <cstring>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "mdc_main.h"
#include "ovd_direct_routes.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "ovd_registers.h"
#include "ovd_speed_limits.h"
#include "swidapi.h"
#include "tstring.h"

static const char ovd_system_m_key_node[] = "/system/chassis/config/system_m_key";
static const char ovd_device_add_done_event[] = "/ib/events/device-add-done";

ovd_system_m_key_query_func g_ovd_system_m_key_query = ovd_query_system_m_key;
ovd_event_send_func g_ovd_event_send = ovd_send_event;

namespace {

// Set once the system part of an add event succeeded.
tbool init_system = false;
// The system M_Key, once read.
tbool system_m_key_was_set = false;
uint64 system_m_key_val = 0;

// One value of the port manager's events: the binding's name (with "_<i>" after it when
// indexed) and its type.
struct ovd_add_device_field {
    const char *name;
    tbool indexed;
    bn_type type;
};

const ovd_add_device_field ovd_add_device_fields[] = {
    {"system_type", false, bt_uint32},           // system_type_en
    {"subsystem_type", false, bt_uint32},        // subsystem_type_en
    {"system_image_guid", false, bt_uint64},     // system_image_guid_en
    {"slot_id", false, bt_uint32},               // slot_id_en
    {"is_master", false, bt_tbool},              // is_master_en
    {"dev_id", false, bt_uint32},                // dev_id_en
    {"port_num", false, bt_uint32},              // port_num_en
    {"operation", false, bt_uint8},              // operation_en
    {"max_ib_speed_hw_cap", false, bt_uint8},    // speed_hw_cap
    {"max_ib_speed_sw_limit", false, bt_uint8},  // speed_sw_limit
    {"ifindex", true, bt_uint32},                // ifindex_en
    {"swid", true, bt_uint8},                    // port_swid_en
    {"ibport", true, bt_uint8},                  // ibport_en
    {"local", true, bt_uint8},                   // localport_en
    {"direction", true, bt_uint8},               // direction_en
    {"ifindex_neighbor", true, bt_uint32},       // ifindex_neighbor_en
    {"label", true, bt_uint8},                   // label_port_en
    {"lcl_port", false, bt_uint8},               // lcl_port_en
    {"ib_port", false, bt_uint8},                // ib_port_en
    {"swid", false, bt_uint8},                   // swid_burn_port_en
    {"ifindex", false, bt_uint32},               // ifindex_burn_port_en
    {"ifindex_neighbor", false, bt_uint32},      // ifindex_neighbor_burn_port_en
    {"subsystem_name", false, bt_string},        // subsystem_name_en
    {"device_name", false, bt_string},           // device_name_en
    {"virtual", true, bt_tbool},                 // virtual_port_en
    {"bay_port", true, bt_uint8},                // bay_port_en
    {"force", true, bt_tbool},                   // force_en
    {"index_inside_slot", false, bt_uint32},     // index_inside_slot_en
    {"ib_swid_num", false, bt_uint8},            // ib_swid_num_en
    {"ib_swid", true, bt_uint8},                 // ib_swid_en
};

const char *ovd_err_text(int code)
{
    const char *text = lc_enum_to_string_quiet_null(lc_error_code_map, static_cast<uint32>(code));
    return text != nullptr ? text : "";
}

// Enters port i of the event in ibports_ht, or in virtual_ibports_ht for a virtual port.
int ovd_add_device_port(const bn_binding_array *bindings, uint32 dev_id, uint32 i)
{
    int err = 0;
    tbool is_virtual = false;
    uint32 ifindex = 0;
    uint8 localport = 0;
    tstring *key = nullptr;
    ifindexInformation port_info;
    virtualIfindexInfo virtual_port_info;

    memset(&port_info, 0, sizeof(port_info));
    memset(&virtual_port_info, 0, sizeof(virtual_port_info));

    err = getInfoFromAddDeviceEvent(bindings, virtual_port_en, &is_virtual, i);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, ifindex_en, &ifindex, i);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, localport_en, &localport, i);
    bail_error(err);
    err = ts_new_sprintf(&key, "%u", ifindex);
    bail_error(err);
    bail_null(key);

    if (is_virtual) {
        virtual_port_info.devid = dev_id;
        virtual_port_info.ifindex = static_cast<uint8>(ifindex);
        virtual_port_info.localport = localport;
        virtual_port_info.configured_state = false;
        memset(virtual_port_info.assigned_to_swid, OVD_NO_SWID,
               sizeof(virtual_port_info.assigned_to_swid));
        err = ht_insert(virtual_ibports_ht, key, ts_length(key), &virtual_port_info);
        if (err != 0) {
            lc_log_source(LOG_ERR, "Unable to add key ifindex %s to virtual ib ports hash table\n",
                          ts_str(key));
            goto bail;
        }
        goto bail;
    }

    err = getInfoFromAddDeviceEvent(bindings, port_swid_en, &port_info.assigned_to_swid, i);
    bail_error(err);
    port_info.devid = dev_id;
    port_info.active_speed = 0;
    err = getInfoFromAddDeviceEvent(bindings, ibport_en, &port_info.ibport, i);
    bail_error(err);
    port_info.localport = localport;
    err = getInfoFromAddDeviceEvent(bindings, direction_en, &port_info.port_direction, i);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, ifindex_neighbor_en, &port_info.ifindex_neighbor, i);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, label_port_en, &port_info.label_port, i);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, bay_port_en, &port_info.bay_port, i);
    bail_error(err);

    // A link is tied up from whichever of its ends arrives last.
    err = updateIfindexNeighbourInHashTable(port_info.ifindex_neighbor, ifindex);
    bail_error(err);

    port_info.configured_state = false;
    port_info.enable_port_time = 0;
    err = ht_insert(ibports_ht, key, ts_length(key), &port_info);
    if (err != 0) {
        lc_log_source(LOG_ERR, "Unable to add key ifindex %s to ib ports hash table\n",
                      ts_str(key));
        goto bail;
    }

bail:
    ts_free(&key);
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Reading the events

int getInfoFromAddDeviceEvent(const bn_binding_array *bindings, addDeviceEventInfo info_op,
                              void *ret_val, uint32 i)
{
    int err = 0;
    const ovd_add_device_field *field = nullptr;
    char *name = nullptr;
    bn_binding *binding = nullptr;

    if (static_cast<uint32>(info_op) >=
        sizeof(ovd_add_device_fields) / sizeof(ovd_add_device_fields[0])) {
        bail_force(lc_err_unexpected_case);
    }
    bail_null(bindings);
    bail_null(ret_val);
    field = &ovd_add_device_fields[info_op];

    name = field->indexed ? smprintf("%s_%u", field->name, i) : smprintf("%s", field->name);
    bail_null(name);

    err = bn_binding_array_get_binding_by_name(bindings, name, &binding);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "%s No %s binding", __func__, name);
        // Not an lc_err code: the port manager sees this 1 in the status of its answer.
        err = 1;
        goto bail;
    }

    switch (field->type) {
    case bt_uint8:
        err = bn_binding_get_uint8(binding, ba_value, nullptr, static_cast<uint8 *>(ret_val));
        break;
    case bt_uint32:
        err = bn_binding_get_uint32(binding, ba_value, nullptr, static_cast<uint32 *>(ret_val));
        break;
    case bt_uint64:
        err = bn_binding_get_uint64(binding, ba_value, nullptr, static_cast<uint64 *>(ret_val));
        break;
    case bt_tbool:
        err = bn_binding_get_tbool(binding, ba_value, nullptr, static_cast<tbool *>(ret_val));
        break;
    case bt_string:
        err = bn_binding_get_tstr(binding, ba_value, bt_string, nullptr,
                                  static_cast<tstring **>(ret_val));
        break;
    default:
        bail_force(lc_err_unexpected_case);
    }
    bail_error(err);

bail:
    free(name);
    return err;
}

// ---------------------------------------------------------------------------------------
// The system M_Key

int ovd_query_system_m_key(uint64 *ret_value, tbool *ret_found)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_value);
    bail_null(ret_found);
    *ret_found = false;

    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding, ovd_system_m_key_node,
                          nullptr);
    bail_error(err);
    if (binding == nullptr) {
        goto bail;
    }
    err = bn_binding_get_uint64(binding, ba_value, nullptr, ret_value);
    bail_error(err);
    *ret_found = true;

bail:
    bn_binding_free(&binding);
    return err;
}

int ovd_get_system_m_key_val(uint64 *p_ret_system_m_key_val)
{
    int err = 0;
    uint64 value = 0;
    tbool found = false;

    bail_null(p_ret_system_m_key_val);
    lc_log_basic(LOG_DEBUG, "%s - enter", __func__);

    if (!system_m_key_was_set) {
        bail_null(g_ovd_system_m_key_query);
        err = g_ovd_system_m_key_query(&value, &found);
        bail_error(err);
        if (!found) {
            lc_log_source(LOG_ERR, "No %s binding", ovd_system_m_key_node);
            err = lc_err_unexpected_null;
            goto bail;
        }
        system_m_key_val = value;
        system_m_key_was_set = true;
    }
    *p_ret_system_m_key_val = system_m_key_val;
    lc_log_basic(LOG_DEBUG, "%s - exit", __func__);

bail:
    return err;
}

void ovd_device_add_forget_system(void)
{
    init_system = false;
    system_m_key_was_set = false;
    system_m_key_val = 0;
}

// ---------------------------------------------------------------------------------------
// The flow

int set_system_parameters_from_bindings(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 system_type_info = 0;
    uint64 image_guid = 0;
    uint8 ib_swid_num = 0;
    uint8 swid = 0;

    err = getInfoFromAddDeviceEvent(bindings, system_type_en, &system_type_info, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, system_image_guid_en, &image_guid, 0);
    bail_error(err);

    system_type = system_type_info;
    system_image_guid = image_guid;
    system_node_guid = image_guid;
    readPortSpeedsFile = true;

    err = getInfoFromAddDeviceEvent(bindings, ib_swid_num_en, &ib_swid_num, 0);
    bail_error(err);
    if (ib_swid_num > OVD_NUM_SWIDS) {
        lc_log_source(LOG_ERR, "Got %u InfiniBand SWIDs, at most %u are possible", ib_swid_num,
                      static_cast<uint32>(OVD_NUM_SWIDS));
        bail_force(lc_err_assertion_failed);
    }

    for (uint32 idx = 1; idx <= ib_swid_num; ++idx) {
        err = getInfoFromAddDeviceEvent(bindings, ib_swid_en, &swid, idx);
        bail_error(err);
        if (swid > OVD_MAX_SWID) {
            lc_log_source(LOG_ERR, "Got InfiniBand SWID %u, the highest is %u", swid,
                          static_cast<uint32>(OVD_MAX_SWID));
            bail_force(lc_err_assertion_failed);
        }
        if (swidapi_handles[swid] != nullptr) {
            lc_log_source(LOG_WARNING, "InfiniBand SWID %d already initialized", swid);
            err = lc_err_invalid_param;
            goto bail;
        }
        err = sa_init(&swidapi_handles[swid], static_cast<system_type_t>(system_type_info), swid);
        if (err != 0) {
            lc_log_source(LOG_WARNING,
                          "Failed to invoke sa_init, system:[%d], SWID:[%d], swidapi_context:[%p]. "
                          "code:[%s,%d]",
                          system_type_info, swid, static_cast<void *>(swidapi_handles[swid]),
                          ovd_err_text(err), err);
            goto bail;
        }
    }

bail:
    return err;
}

int add_new_device_from_bindings(uint32 dev_id_info, const bn_binding_array *bindings)
{
    int err = 0;
    uint32 subsystem_type = 0;
    tstring *subsystem_name = nullptr;
    tstring *device_name = nullptr;
    uint32 slot_id = 0;
    uint8 hw_cap = 0;
    uint8 sw_limit = 0;
    uint32 index_inside_slot = 0;
    devinfo *new_dev = nullptr;
    devinfo *dev = nullptr;
    const char *sys_disp = nullptr;
    const char *host = nullptr;

    lc_log_basic(LOG_NOTICE, "Handles device add event for device: %u\n", dev_id_info);
    err = ovd_devsinfo_check_devid(dev_id_info);
    bail_error_quiet(err);

    err = getInfoFromAddDeviceEvent(bindings, subsystem_type_en, &subsystem_type, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, subsystem_name_en, &subsystem_name, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, device_name_en, &device_name, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, slot_id_en, &slot_id, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, speed_hw_cap, &hw_cap, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, speed_sw_limit, &sw_limit, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, index_inside_slot_en, &index_inside_slot, 0);
    bail_error(err);

    // The device's identity on every SWID this daemon serves.
    sys_disp = g_sys_disp != nullptr ? ts_str(g_sys_disp) : "";
    host = hostname != nullptr ? ts_str(hostname) : nullptr;
    for (uint32 swid = 0; swid < OVD_NUM_SWIDS; ++swid) {
        if (swidapi_handles[swid] == nullptr) {
            continue;
        }
        err = sa_set_node_ndesc(swidapi_handles[swid], static_cast<vqd_dev_id_t>(dev_id_info), host,
                                static_cast<int>(slot_id), static_cast<subsystem_type_t>(subsystem_type),
                                sys_disp, index_inside_slot);
        if (err != 0) {
            lc_log_basic(LOG_NOTICE, "Unable to set node desc. Error was: %d %s\n", err,
                         ovd_err_text(err));
            goto bail;
        }
        err = sa_set_sysimageguid(swidapi_handles[swid], static_cast<vqd_dev_id_t>(dev_id_info),
                                  system_image_guid);
        if (err != 0) {
            lc_log_basic(LOG_NOTICE, "Unable to set image guid. Error was: %d %s\n", err,
                         ovd_err_text(err));
            goto bail;
        }
    }

    err = ovd_devinfo_new(&new_dev);
    bail_error(err);
    err = ovd_devsinfo_set_takeover(dev_id_info, &new_dev);
    bail_error(err);
    dev = devsinfo[dev_id_info];
    dev->slot_id = slot_id;
    dev->subsystem_type = subsystem_type;
    dev->index_inside_slot = index_inside_slot;

    if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(g_sys_type))) {
        dev->subsystem_name = subsystem_name;
        subsystem_name = nullptr;
    } else {
        err = ts_new_sprintf(&dev->subsystem_name, "%s/%d", ts_str(subsystem_name),
                             static_cast<int>(index_inside_slot));
        bail_error(err);
    }
    bail_null(dev->subsystem_name);
    dev->device_name = device_name;
    device_name = nullptr;

    // The event gives speed enumerators; the record keeps register masks.
    dev->max_ib_speed_hw_cap = convert_enum_speed_to_prm_format(hw_cap);
    dev->max_ib_speed_sw_limit = convert_enum_speed_to_prm_format(sw_limit);
    err = calc_device_max_speed_limit(dev->max_ib_speed_hw_cap, dev->max_ib_speed_sw_limit,
                                      &dev->device_max_speed_limit);
    bail_error(err);

    lc_log_basic(LOG_INFO,
                 "OVD handles added device:[%s] slot/index:[%d/%d] type:[%d] Speed Limit:[%d], IB HW "
                 "capability:[%d], IB SW capability:[%d]",
                 ts_str(dev->subsystem_name), static_cast<int>(dev->slot_id),
                 static_cast<int>(dev->index_inside_slot), static_cast<int>(dev->subsystem_type),
                 dev->device_max_speed_limit, dev->max_ib_speed_hw_cap, dev->max_ib_speed_sw_limit);

bail:
    ovd_devinfo_free(&new_dev);
    ts_free(&subsystem_name);
    ts_free(&device_name);
    return err;
}

int set_device_parameters_from_bindings(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 dev_id = 0;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = ovd_devsinfo_check_devid(dev_id);
    bail_error_quiet(err);

    // A device added again replaces its record.
    err = ovd_devsinfo_clear(dev_id);
    bail_error(err);

    err = add_new_device_from_bindings(dev_id, bindings);
    bail_error(err);

bail:
    return err;
}

int ovd_handle_device_port_add_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint32 dev_id = 0;
    tstring *subsystem_name = nullptr;
    uint64 m_key = 0;
    vqd_status_t vqd_ret = VQD_STATUS_SUCCESS;
    uint32 port_num = 0;
    uint32 index_inside_slot = 0;

    err = getInfoFromAddDeviceEvent(bindings, dev_id_en, &dev_id, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, subsystem_name_en, &subsystem_name, 0);
    bail_error(err);
    lc_log_basic(LOG_NOTICE, "OVD handles device add event for device:[%u,%s]\n", dev_id,
                 ts_str(subsystem_name));

    // The key goes to the driver before anything else touches the device, even before
    // its id is checked against the table (that is the device record's business).
    err = ovd_get_system_m_key_val(&m_key);
    bail_error(err);
    vqd_ret = ovd_write_system_m_key(static_cast<uint8>(dev_id), m_key);
    if (vqd_ret != VQD_STATUS_SUCCESS) {
        lc_log_source(LOG_ERR, "Failed writing system_m_key to VQD for device [%u]: [%d: %s]",
                      dev_id, vqd_ret, ovd_vqd_status_str(vqd_ret));
        // The register library's own status is what the port manager is told.
        err = vqd_ret;
        goto bail;
    }

    if (!init_system) {
        err = set_system_parameters_from_bindings(bindings);
        bail_error(err);
        init_system = true;
    }

    err = getInfoFromAddDeviceEvent(bindings, port_num_en, &port_num, 0);
    bail_error(err);
    err = getInfoFromAddDeviceEvent(bindings, index_inside_slot_en, &index_inside_slot, 0);
    bail_error(err);

    if (port_num == 0) {
        // A complaint, not a failure: the port manager is answered with success.
        lc_log_source(LOG_ERR, "Got unexpected number of IB ports on IB/VPI system");
        goto bail;
    }

    err = set_device_parameters_from_bindings(bindings);
    bail_error(err);

    // The first failing port ends the walk; the ports before it stay.
    for (uint32 i = 1; i <= port_num; ++i) {
        err = ovd_add_device_port(bindings, dev_id, i);
        bail_error(err);
    }

bail:
    lc_log_basic(LOG_DEBUG, "%s: device [%u] => %d", __func__, dev_id, err);
    ts_free(&subsystem_name);
    return err;
}

// ---------------------------------------------------------------------------------------
// The answer

int ovd_send_event(bn_request *event)
{
    int err = 0;

    bail_null(event);
    err = mdc_send_mgmt_msg(ovd_mcc, event, false, nullptr, nullptr, nullptr);
    bail_error(err);

bail:
    return err;
}

int ovd_send_device_add_done_event(uint32 status, uint32 devid)
{
    int err = 0;
    const devinfo *dev = devid <= OVD_MAX_DEVICE_ID ? devsinfo[devid] : nullptr;

    lc_log_basic(LOG_NOTICE,
                 "OVD sends device: [%u, %s/%d] add done event to portd with: [%s] status\n", devid,
                 dev != nullptr && dev->subsystem_name != nullptr ? ts_str(dev->subsystem_name) : "",
                 dev != nullptr ? static_cast<int>(dev->index_inside_slot) : 0,
                 status != 0 ? "Failure" : "Success");
    err = ovd_send_event_values(ovd_device_add_done_event,
                                {{"status", bt_uint32, status}, {"dev_id", bt_uint32, devid}});
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// State

int ovd_get_device_max_speed(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding)
{
    int err = 0;
    const char *dev_id_str = nullptr;
    int dev_id = 0;
    const devinfo *dev = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(node_name);
    dev_id_str = tstr_array_get_str_quick(bname_parts, 3);
    bail_null(dev_id_str);
    dev_id = atoi(dev_id_str);
    // The tree names only devices it was given, but the table is not read out of bounds.
    if (dev_id >= 0 && dev_id <= OVD_MAX_DEVICE_ID) {
        dev = devsinfo[dev_id];
    }
    if (dev == nullptr) {
        lc_log_basic(LOG_WARNING, "device id number %s doesn't exist at ovd", dev_id_str);
        goto bail;
    }
    err = bn_binding_new_uint8(ret_binding, node_name, ba_value, 0, dev->max_ib_speed_hw_cap);
    bail_error(err);

bail:
    return err;
}
