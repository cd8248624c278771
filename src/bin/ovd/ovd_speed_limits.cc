// Speed and VL limits of devices and ports.
#include "ovd_speed_limits.h"

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_main.h"
#include "sa_registers.h"

const char *const ib_speed_cap_str[OVD_NUM_IB_SPEED_CAPS] = {
    "SDR", "DDR", "QDR", "FDR10", "FDR14", "EDR",
};

namespace {

enum ovd_limit_kind {
    ovd_limit_speed,
    ovd_limit_vl,
};

// Whether the system's part number is one of those whose ports are restricted.  The part
// number is kept in g_part_number for the process's life once it is known.
int ovd_part_number_is_restricted(tbool *ret_restricted)
{
    int err = 0;

    bail_null(ret_restricted);
    *ret_restricted = false;

    if (g_part_number == nullptr) {
        // Read once and kept; a failed read is tried again at the next query.
        err = ovd_read_part_number_type(&g_part_number);
        if (err != 0) {
            lc_log_source(LOG_ERR, "Part number is unreachable - HWD maybe down");
            goto bail;
        }
    }
    if (g_part_number == nullptr) {
        lc_log_source(LOG_ERR, "Part number is unreachable - HWD maybe down");
        err = lc_err_unexpected_null;
        goto bail;
    }

    *ret_restricted = ts_equal_str(g_part_number, OVD_PART_NUMBER_ZR7312F_1, false) ||
                      ts_equal_str(g_part_number, OVD_PART_NUMBER_ZR7312F_2, false);

bail:
    return err;
}

// The restricted speed limit or VL value of a label port on this system, when the port is
// one of the restricted ones.
int ovd_restricted_port_limit(ovd_limit_kind kind, uint8 label_port, tbool *ret_restricted,
                              uint8 *ret_limit)
{
    int err = 0;
    tbool restricted = false;
    tbool part_restricted = false;
    uint8 speed_limit = 0;

    bail_null(ret_restricted);
    bail_null(ret_limit);
    *ret_restricted = false;

    switch (g_sys_type) {
    case S_ZR4048:
        restricted = (label_port >= 1 && label_port <= 8) || (label_port >= 25 && label_port <= 32);
        speed_limit = fdr10;
        break;
    case S_ZR4030:
        restricted = label_port < 7;
        speed_limit = sdr | ddr | qdr | fdr10;
        break;
    case S_ZR4034:
        restricted = label_port < 3;
        speed_limit = fdr10;
        break;
    case S_ZR4035:
        restricted = label_port < 2;
        speed_limit = fdr10;
        break;
    case S_ZR4031:
        // These part numbers cut the speed of label ports 1 to 4 and the VLs of all ports.
        err = ovd_part_number_is_restricted(&part_restricted);
        bail_error(err);
        restricted = part_restricted && (kind == ovd_limit_vl || label_port < 5);
        speed_limit = fdr10;
        break;
    default:
        break;
    }

    *ret_restricted = restricted;
    if (restricted) {
        *ret_limit = (kind == ovd_limit_speed) ? speed_limit : OVD_RESTRICTED_PORT_VL;
    }

bail:
    return err;
}

// The one algorithm behind get_port_vl_limit and get_port_default_vl.
int ovd_port_vl_value(uint8 label_port, uint8 *ret_vl)
{
    int err = 0;
    tbool restricted = false;
    uint8 vl = OVD_DEFAULT_PORT_VL;

    bail_null(ret_vl);
    err = ovd_restricted_port_limit(ovd_limit_vl, label_port, &restricted, &vl);
    bail_error(err);
    *ret_vl = vl;

bail:
    return err;
}

} // namespace

int calc_device_max_speed_limit(uint8 max_ib_speed_hw_cap, uint8 max_ib_speed_sw_limit,
                                uint8 *ret_val)
{
    (void)max_ib_speed_hw_cap;
    (void)max_ib_speed_sw_limit;
    int err = 0;

    bail_null(ret_val);
    *ret_val = OVD_DEVICE_MAX_SPEED_LIMIT;

bail:
    return err;
}

uint8 convert_enum_speed_to_prm_format(uint8 enum_val_speed)
{
    const uint32 shift = static_cast<uint32>(enum_val_speed) + 1;
    const uint32 top = (shift < 8) ? (1u << shift) : 0;

    return static_cast<uint8>(top - 1);
}

int get_device_max_speed_limit(uint8 devid, uint8 *device_max_speed_limit)
{
    int err = 0;
    devinfo *dev = nullptr;

    bail_null(device_max_speed_limit);
    err = ovd_devsinfo_get(devid, &dev);
    bail_error(err);
    if (dev == nullptr) {
        lc_log_source(LOG_ERR, "Got device ID %u which is not in DB", static_cast<uint32>(devid));
        err = lc_err_unexpected_arg;
        goto bail;
    }
    *device_max_speed_limit = dev->device_max_speed_limit;

bail:
    return err;
}

int ovd_max_port_speed_key_new(uint32 devid, uint8 label_port, tstring **ret_key)
{
    int err = 0;
    tstring *key = nullptr;

    bail_null(ret_key);
    *ret_key = nullptr;
    err = ts_new_sprintf(&key, "%u", devid);
    bail_error(err);
    bail_null(key);
    err = ts_append_str(key, " ");
    bail_error(err);
    err = ts_append_sprintf(key, "%u", static_cast<uint32>(label_port));
    bail_error(err);
    *ret_key = key;
    key = nullptr;

bail:
    ts_free(&key);
    return err;
}

int updateMaxPortSpeedsHashTable(const tstring *devid_port, tbool remove_status, uint8 speed)
{
    int err = 0;

    lc_log_basic(LOG_DEBUG, "%s: <= void", __func__);
    bail_null(devid_port);
    bail_null(maxportspeeds_ht);

    if (remove_status) {
        err = ht_delete(maxportspeeds_ht, devid_port, ts_length(devid_port));
        if (err != 0) {
            lc_log_basic(LOG_ERR,
                         "%s: Unable to remove key devid-port %s from max port speeds hash table\n",
                         __func__, ts_str(devid_port));
            goto bail;
        }
    }
    // The table copies key and value.
    err = ht_insert(maxportspeeds_ht, const_cast<tstring *>(devid_port), ts_length(devid_port),
                    &speed);
    if (err != 0) {
        lc_log_basic(LOG_ERR, "%s: Unable to add key devid-port %s to max port speeds hash table\n",
                     __func__, ts_str(devid_port));
        goto bail;
    }

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int calc_internal_port_max_speed_limit(uint32 devid, uint8 label_port,
                                       uint8 *port_max_speed_limit)
{
    int err = 0;
    uint8 limit = 0;
    tstring *key = nullptr;
    tbool found = false;
    void *value = nullptr;

    bail_null(port_max_speed_limit);
    bail_null(maxportspeeds_ht);
    err = get_device_max_speed_limit(static_cast<uint8>(devid), &limit);
    bail_error(err);

    err = ovd_max_port_speed_key_new(devid, label_port, &key);
    bail_error(err);
    err = ht_lookup(maxportspeeds_ht, key, ts_length(key), &found, nullptr, nullptr, &value);
    bail_error(err);
    if (found && value != nullptr) {
        limit = convert_enum_speed_to_prm_format(*static_cast<const uint8 *>(value)) & limit;
    }
    *port_max_speed_limit = limit;

bail:
    ts_free(&key);
    return err;
}

int get_port_max_speed_limit(uint8 direction_info, uint32 devid, uint8 label_port,
                             uint8 *port_max_speed_limit_val)
{
    int err = 0;
    uint8 limit = 0;
    uint8 restricted_limit = 0;
    tbool restricted = false;

    bail_null(port_max_speed_limit_val);

    if (direction_info == 0) {
        err = calc_internal_port_max_speed_limit(devid, label_port, &limit);
        bail_error(err);
    } else {
        err = get_device_max_speed_limit(static_cast<uint8>(devid), &limit);
        bail_error(err);
        err = ovd_restricted_port_limit(ovd_limit_speed, label_port, &restricted,
                                        &restricted_limit);
        bail_error(err);
        if (restricted) {
            limit = restricted_limit;
        }
    }
    *port_max_speed_limit_val = limit;

bail:
    return err;
}

int get_port_vl_limit(uint8 direction_info, uint32 devid, uint8 label_port,
                      uint8 *port_vl_limit_val)
{
    (void)direction_info;
    (void)devid;
    return ovd_port_vl_value(label_port, port_vl_limit_val);
}

int get_port_default_vl(uint8 direction_info, uint32 devid, uint8 label_port,
                        uint8 *port_vl_default_val)
{
    (void)direction_info;
    (void)devid;
    return ovd_port_vl_value(label_port, port_vl_default_val);
}

// ---------------------------------------------------------------------------------------
// Producers of the monitoring tree

namespace {

typedef int (*ovd_port_limit_func)(uint8 direction_info, uint32 devid, uint8 label_port,
                                   uint8 *ret_val);

// Answers the limit that func gives for the port in the given direction.
int ovd_port_limit_binding(ovd_port_limit_func func, uint8 direction_info, const char *node_name,
                           bn_binding **ret_binding, const ifindexInformation *port_info)
{
    int err = 0;
    uint8 value = 0;

    bail_null(ret_binding);
    bail_null(node_name);
    bail_null(port_info);
    err = func(direction_info, port_info->devid, port_info->label_port, &value);
    bail_error(err);
    err = bn_binding_new_uint8(ret_binding, node_name, ba_value, 0, value);
    bail_error(err);

bail:
    return err;
}

} // namespace

int get_max_external_port_limit_info(const char *node_name, const tstr_array *bname_parts,
                                     bn_binding **ret_binding,
                                     ifindexInformation *ret_val_from_ib_ports_ht)
{
    (void)bname_parts;
    return ovd_port_limit_binding(get_port_max_speed_limit, SYS_PORT_DIRECTION_EXT, node_name,
                                  ret_binding, ret_val_from_ib_ports_ht);
}

int get_max_internal_port_limit_info(const char *node_name, const tstr_array *bname_parts,
                                     bn_binding **ret_binding,
                                     ifindexInformation *ret_val_from_ib_ports_ht)
{
    (void)bname_parts;
    return ovd_port_limit_binding(get_port_max_speed_limit, SYS_PORT_DIRECTION_INT, node_name,
                                  ret_binding, ret_val_from_ib_ports_ht);
}

int get_max_external_port_vl_limit_info(const char *node_name, const tstr_array *bname_parts,
                                        bn_binding **ret_binding,
                                        ifindexInformation *ret_val_from_ib_ports_ht)
{
    (void)bname_parts;
    return ovd_port_limit_binding(get_port_vl_limit, SYS_PORT_DIRECTION_EXT, node_name,
                                  ret_binding, ret_val_from_ib_ports_ht);
}

int get_max_internal_port_vl_limit_info(const char *node_name, const tstr_array *bname_parts,
                                        bn_binding **ret_binding,
                                        ifindexInformation *ret_val_from_ib_ports_ht)
{
    (void)bname_parts;
    return ovd_port_limit_binding(get_port_vl_limit, SYS_PORT_DIRECTION_INT, node_name,
                                  ret_binding, ret_val_from_ib_ports_ht);
}

int get_port_vl_default_info(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding,
                             ifindexInformation *ret_val_from_ib_ports_ht)
{
    (void)bname_parts;
    int err = 0;
    uint8 vl_limit = OVD_DEFAULT_PORT_VL;
    uint8 vl_default = OVD_DEFAULT_PORT_VL;

    bail_null(ret_binding);
    bail_null(node_name);
    bail_null(ret_val_from_ib_ports_ht);
    err = get_port_vl_limit(ret_val_from_ib_ports_ht->port_direction,
                            ret_val_from_ib_ports_ht->devid, ret_val_from_ib_ports_ht->label_port,
                            &vl_limit);
    bail_error(err);
    err = get_port_default_vl(ret_val_from_ib_ports_ht->port_direction,
                              ret_val_from_ib_ports_ht->devid,
                              ret_val_from_ib_ports_ht->label_port, &vl_default);
    bail_error(err);
    err = bn_binding_new_uint8(ret_binding, node_name, ba_value, 0,
                               vl_default < vl_limit ? vl_default : vl_limit);
    bail_error(err);

bail:
    return err;
}
