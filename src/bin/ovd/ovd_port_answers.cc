// Port attribute answers.
#include "ovd_port_answers.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "chassis_helper.h"
#include "logging.h"
#include "ovd_ekey.h"
#include "ovd_main.h"
#include "ovd_port_values.h"
#include "ovd_speed_limits.h"

namespace {

struct ovd_attrib_row {
    const char *name;
    int arg;
};

// In the order names are compared.
constexpr ovd_attrib_row ovd_attrib_table[] = {
    {"state", OVD_ATTR_STATE},
    {"physical_state", OVD_ATTR_PHYSICAL_STATE},
    {"speed", OVD_ATTR_SPEED},
    {"width", OVD_ATTR_WIDTH},
    {"supported_speed", OVD_ATTR_SUPPORTED_SPEED},
    {"supported_width", OVD_ATTR_SUPPORTED_WIDTH},
    {"mtu", OVD_ATTR_MTU},
    {"supported_mtu", OVD_ATTR_SUPPORTED_MTU},
    {"rate", OVD_ATTR_RATE},
    {"vl_capabilities", OVD_ATTR_VL_CAPABILITIES},
    {"operational_vl", OVD_ATTR_OPERATIONAL_VL},
    {"connected_device_slot", OVD_ATTR_CONNECTED_DEVICE_SLOT},
    {"connected_device_port", OVD_ATTR_CONNECTED_DEVICE_PORT},
    {"connected_device_active", OVD_ATTR_CONNECTED_DEVICE_ACTIVE},
    {"has_error", OVD_ATTR_HAS_ERROR},
    {"all-state", OVD_ATTR_ALL_STATE},
    {"all_data", OVD_ATTR_ALL_DATA},
    {"all_counters", OVD_ATTR_ALL_COUNTERS},
    {"fec", OVD_ATTR_FEC},
    {"xmit_data", OVD_ATTR_XMIT_DATA},
    {"rcv_data", OVD_ATTR_RCV_DATA},
    {"xmit_pkts", OVD_ATTR_XMIT_PKTS},
    {"rcv_pkts", OVD_ATTR_RCV_PKTS},
    {"xmit_wait", OVD_ATTR_XMIT_WAIT},
    {"symbol_err_cnt", OVD_ATTR_SYMBOL_ERR_CNT},
    {"rcv_err", OVD_ATTR_RCV_ERR},
    {"vl15_dropped", OVD_ATTR_VL15_DROPPED},
    {"xmit_discards", OVD_ATTR_XMIT_DISCARDS},
};

// The physical state that the daemon itself substitutes on e-key blades.
constexpr uint8 ovd_phy_state_disabled_by_chassis = 8;

constexpr uint8 ovd_low_byte(uint32 word)
{
    return static_cast<uint8>(word & 0xff);
}

constexpr uint8 ovd_width_byte(uint32 word)
{
    return static_cast<uint8>((word >> 16) & 0xff);
}

// The physical state as users see it: on an e-key blade a port whose e-key holds it down
// reads 8, "Disabled By Chassis Manager", whatever the hardware says.
int ovd_answer_phy_state(const sa_port_speed_state_t *result, const ifindexInformation *port,
                         uint8 *ret_state)
{
    int err = 0;
    ekeyInfo *ekey_status_val = nullptr;

    bail_null(result);
    bail_null(port);
    *ret_state = result->port_phy_state;
    if (g_ekey_system != regular_system) {
        err = get_label_port_ekey_status(port->label_port, &ekey_status_val);
        bail_error(err);
        bail_null(ekey_status_val);
        if (ekey_status_val->enable == 0) {
            *ret_state = ovd_phy_state_disabled_by_chassis;
        }
    }
bail:
    return err;
}

// "IB<slot>/<label port>" on a standalone system, "IB<slot>/<index>/<label port>" on a
// modular one; empty without a device record.
std::string ovd_answer_if_name(const ifindexInformation *port)
{
    char if_name[20] = {};
    const devinfo *dev = port->devid < OVD_NUM_DEVICES ? devsinfo[port->devid] : nullptr;
    if (dev == nullptr) {
        return "";
    }
    if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(system_type))) {
        snprintf(if_name, sizeof(if_name), "IB%d/%d", static_cast<int>(dev->slot_id),
                 static_cast<int>(port->label_port));
    } else {
        snprintf(if_name, sizeof(if_name), "IB%d/%d/%d", static_cast<int>(dev->slot_id),
                 static_cast<int>(dev->index_inside_slot), static_cast<int>(port->label_port));
    }
    return if_name;
}

int ovd_answer_all_data(const sa_port_speed_state_t *result, const ifindexInformation *port,
                        const sa_ext_port_counters_t *ext, const sa_port_counters_t *pc,
                        tbool use_ext_counters, const pmtu_reg_t *pmtu_reg,
                        const ptys_reg_t *ptys_reg, tstring **ret_str)
{
    int err = 0;
    tstring *rate_str = nullptr;
    uint8 port_state_res = 0;
    const devinfo *dev = port->devid < OVD_NUM_DEVICES ? devsinfo[port->devid] : nullptr;
    const char *device_name = dev != nullptr ? ts_str_maybe_empty(dev->device_name) : "";
    const std::string if_name = ovd_answer_if_name(port);
    // The device's GUID and LID come from the fabric identity queries, which join here;
    // until then they read 0, as when that query fails.
    const unsigned long long node_guid = 0;
    const uint32 node_lid = 0;
    uint32 width_param = 0;

    bail_null(result);
    bail_null(pc);
    bail_null(pmtu_reg);
    bail_null(ptys_reg);
    width_param = ptys_reg->ib_proto_oper >> 16;
    err = sa_port_prm_rate_to_tstr(&rate_str, ovd_low_byte(ptys_reg->ib_proto_oper),
                                   ovd_low_byte(width_param));
    bail_error(err);
    bail_null(rate_str);
    err = ovd_answer_phy_state(result, port, &port_state_res);
    bail_error(err);

    if (use_ext_counters) {
        bail_null(ext);
        err = ts_new_sprintf(
            ret_str,
            "mtu:%u;subsystem_name:%s;port:%u;state:%s;width:%s;rcv_pkts:%llu;rcv_data:%llu;"
            "xmit_pkts:%llu;xmit_data:%llu;vl15_dropped:%u;rcv_err:%u;xmit_discards:%u;rate:%s;"
            "symbol_err_cnt:%u;xmit_wait:%u;physical_state:%s;if_name:%s;node_guid:%llu;"
            "node_lid:%u",
            static_cast<uint32>(pmtu_reg->oper_mtu), device_name,
            static_cast<uint32>(port->label_port), get_port_logical_state(result->port_logical_state),
            get_port_width(ovd_low_byte(width_param)),
            static_cast<unsigned long long>(ext->rcv_pkts),
            static_cast<unsigned long long>(ext->rcv_data_bytes),
            static_cast<unsigned long long>(ext->xmit_pkts),
            static_cast<unsigned long long>(ext->xmit_data_bytes),
            static_cast<uint32>(pc->vl15_dropped), static_cast<uint32>(pc->rcv_err),
            static_cast<uint32>(pc->xmit_discards), ts_str(rate_str),
            static_cast<uint32>(pc->symbol_err_cnt), pc->xmit_wait,
            get_port_phy_state(port_state_res), if_name.c_str(), node_guid, node_lid);
    } else {
        err = ts_new_sprintf(
            ret_str,
            "mtu:%u;subsystem_name:%s;port:%d;state:%s;width:%s;rcv_pkts:%u;rcv_data:%u;"
            "xmit_pkts:%u;xmit_data:%u;vl15_dropped:%u;rcv_err:%u;xmit_discards:%u;rate:%s;"
            "symbol_err_cnt:%u;xmit_wait:%u;physical_state:%s;if_name:%s;node_guid:%llu;"
            "node_lid:%u",
            static_cast<uint32>(pmtu_reg->oper_mtu), device_name,
            static_cast<int>(port->label_port), get_port_logical_state(result->port_logical_state),
            get_port_width(ovd_low_byte(width_param)), pc->rcv_pkts, pc->rcv_data_bytes,
            pc->xmit_pkts, pc->xmit_data_bytes, static_cast<uint32>(pc->vl15_dropped),
            static_cast<uint32>(pc->rcv_err), static_cast<uint32>(pc->xmit_discards),
            ts_str(rate_str), static_cast<uint32>(pc->symbol_err_cnt), pc->xmit_wait,
            get_port_phy_state(port_state_res), if_name.c_str(), node_guid, node_lid);
    }
    bail_error(err);

bail:
    ts_free(&rate_str);
    return err;
}

int ovd_answer_all_counters(const sa_ext_port_counters_t *ext, const sa_port_counters_t *pc,
                            tbool use_ext_counters, tstring **ret_str)
{
    int err = 0;
    const uint32 t64 = bt_uint64;
    const uint32 t32 = bt_uint32;

    bail_null(pc);
    if (use_ext_counters) {
        bail_null(ext);
        err = ts_new_sprintf(ret_str,
                             "rcv_pkts:%u:%llu;rcv_data:%u:%llu;xmit_pkts:%u:%llu;xmit_data:%u:%llu;"
                             "vl15_dropped:%u:%u;rcv_err:%u:%u;xmit_discards:%u:%u;"
                             "symbol_err_cnt:%u:%u;xmit_wait:%u:%u",
                             t64, static_cast<unsigned long long>(ext->rcv_pkts), t64,
                             static_cast<unsigned long long>(ext->rcv_data_bytes), t64,
                             static_cast<unsigned long long>(ext->xmit_pkts), t64,
                             static_cast<unsigned long long>(ext->xmit_data_bytes), t32,
                             static_cast<uint32>(pc->vl15_dropped), t32,
                             static_cast<uint32>(pc->rcv_err), t32,
                             static_cast<uint32>(pc->xmit_discards), t32,
                             static_cast<uint32>(pc->symbol_err_cnt), t32, pc->xmit_wait);
    } else {
        err = ts_new_sprintf(ret_str,
                             "rcv_pkts:%u:%u;rcv_data:%u:%u;xmit_pkts:%u:%u;xmit_data:%u:%u;"
                             "vl15_dropped:%u:%u;rcv_err:%u:%u;xmit_discards:%u:%u;"
                             "symbol_err_cnt:%u:%u;xmit_wait:%u:%u",
                             t64, pc->rcv_pkts, t64, pc->rcv_data_bytes, t64, pc->xmit_pkts, t64,
                             pc->xmit_data_bytes, t32, static_cast<uint32>(pc->vl15_dropped), t32,
                             static_cast<uint32>(pc->rcv_err), t32,
                             static_cast<uint32>(pc->xmit_discards), t32,
                             static_cast<uint32>(pc->symbol_err_cnt), t32, pc->xmit_wait);
    }
    bail_error(err);

bail:
    return err;
}

// What the user allowed: the configured speed, else the port's limit.
int ovd_answer_supported_speed(const ifindexInformation *port, const tstring *ifindex,
                               tstring **ret_str)
{
    int err = 0;
    tbool found = false;
    void *value = nullptr;
    uint8 speed = 0;

    if (ifindex != nullptr && ifindex_to_config_ht != nullptr) {
        err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &found, nullptr,
                        nullptr, &value);
        bail_error(err);
    }
    if (found && value != nullptr &&
        static_cast<port_config_parameters_t *>(value)->speed < OVD_CONFIG_NOT_SET) {
        speed = static_cast<port_config_parameters_t *>(value)->speed;
    } else {
        err = get_port_max_speed_limit(port->port_direction, port->devid, port->label_port,
                                       &speed);
        bail_error(err);
    }
    err = sa_port_prm_link_speed_to_tstr(ret_str, speed);
    bail_error(err);

bail:
    return err;
}

} // namespace

int port_attrib_str_to_enum(const char *attribname, int *arg)
{
    if (attribname == nullptr || arg == nullptr) {
        return 1;
    }
    for (const ovd_attrib_row &row : ovd_attrib_table) {
        if (strcmp(attribname, row.name) == 0) {
            *arg = row.arg;
            return 0;
        }
    }
    return 1;
}

int get_port_info(const char *node_name, bn_binding **ret_binding, int arg, int neighbor_sys_exist,
                  uint8 is_port_ok, sa_port_speed_state_t *result,
                  ifindexInformation *ret_val_from_ib_ports_ht, ifindexInformation *neighbor_info,
                  const char *attribname, tbool port_type, sa_ext_port_counters_t *result_ext_counters,
                  sa_port_counters_t *result_counters, tbool use_ext_counters, pmtu_reg_t *pmtu_reg,
                  ptys_reg_t *ptys_reg, pvlc_reg_t *pvlc_reg, pplm_reg_t *pplm_reg,
                  const tstring *ifindex)
{
    int err = 0;
    const ifindexInformation *port = ret_val_from_ib_ports_ht;
    tstring *res_str = nullptr;
    uint32 res_uint32 = 0;
    uint8 res_uint8 = 0;
    uint64 res_num = 0;
    uint8 phy_state = 0;
    const tbool internal = port_type;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(node_name);
    bail_null(port);
    // The counters and FEC are an external port's: an internal one has no such records.
    if ((arg > 99 || arg == OVD_ATTR_ALL_DATA || arg == OVD_ATTR_ALL_COUNTERS) &&
        (internal || result_counters == nullptr)) {
        bail_force(lc_err_unexpected_null);
    }

    switch (arg) {
    case OVD_ATTR_STATE:
        bail_null(result);
        err = sa_port_port_logical_state_to_tstr(&res_str, result->port_logical_state);
        break;
    case OVD_ATTR_PHYSICAL_STATE:
        err = ovd_answer_phy_state(result, port, &phy_state);
        bail_error(err);
        err = sa_port_port_phy_state_to_tstr(&res_str, phy_state);
        break;
    case OVD_ATTR_SPEED:
        bail_null(ptys_reg);
        err = sa_port_prm_link_speed_to_tstr(&res_str, ovd_low_byte(ptys_reg->ib_proto_oper));
        break;
    case OVD_ATTR_WIDTH:
        bail_null(ptys_reg);
        err = sa_port_prm_link_width_to_tstr(&res_str, ovd_width_byte(ptys_reg->ib_proto_oper));
        break;
    case OVD_ATTR_SUPPORTED_SPEED:
        err = ovd_answer_supported_speed(port, ifindex, &res_str);
        break;
    case OVD_ATTR_SUPPORTED_WIDTH:
        bail_null(ptys_reg);
        err = sa_port_prm_link_width_to_tstr(&res_str,
                                             ovd_width_byte(ptys_reg->ib_proto_capability));
        break;
    case OVD_ATTR_MTU:
        bail_null(pmtu_reg);
        err = sa_port_prm_mtu_to_tstr(&res_str, pmtu_reg->oper_mtu);
        break;
    case OVD_ATTR_SUPPORTED_MTU:
        bail_null(pmtu_reg);
        err = sa_port_prm_mtu_to_tstr(&res_str, pmtu_reg->max_mtu);
        break;
    case OVD_ATTR_RATE:
        bail_null(ptys_reg);
        err = sa_port_prm_rate_to_tstr(&res_str, ovd_low_byte(ptys_reg->ib_proto_oper),
                                       ovd_width_byte(ptys_reg->ib_proto_oper));
        break;
    case OVD_ATTR_VL_CAPABILITIES:
        bail_null(pvlc_reg);
        err = sa_port_prm_vl_to_tstr(&res_str, pvlc_reg->vl_cap);
        break;
    case OVD_ATTR_OPERATIONAL_VL:
        bail_null(pvlc_reg);
        err = sa_port_prm_vl_to_tstr(&res_str, pvlc_reg->vl_operational);
        break;
    case OVD_ATTR_CONNECTED_DEVICE_SLOT:
        res_uint32 = internal && neighbor_info != nullptr ? neighbor_info->devid : 0;
        break;
    case OVD_ATTR_CONNECTED_DEVICE_PORT:
        res_uint8 = internal && neighbor_info != nullptr ? neighbor_info->ibport : 0;
        break;
    case OVD_ATTR_CONNECTED_DEVICE_ACTIVE:
        // An internal port's; an external one has no text, and the binding refuses it.
        if (internal) {
            err = ts_new_sprintf(&res_str, "%d", neighbor_sys_exist);
        }
        break;
    case OVD_ATTR_HAS_ERROR:
        if (internal) {
            err = ts_new_sprintf(&res_str, "%u", is_port_ok == 0 ? 1u : 0u);
        }
        break;
    case OVD_ATTR_ALL_STATE:
        // The hardware's physical state, not corrected for the e-key; the low byte is
        // the error flag of an internal port, and 1 for an external one.
        bail_null(result);
        res_uint32 = static_cast<uint32>(result->port_phy_state) << 16 |
                     static_cast<uint32>(result->port_logical_state) << 8 |
                     (internal ? (is_port_ok == 0 ? 1u : 0u) : 1u);
        break;
    case OVD_ATTR_ALL_DATA:
        err = ovd_answer_all_data(result, port, result_ext_counters, result_counters,
                                  use_ext_counters, pmtu_reg, ptys_reg, &res_str);
        bail_error(err);
        bail_null(res_str);
        break;
    case OVD_ATTR_ALL_COUNTERS:
        err = ovd_answer_all_counters(result_ext_counters, result_counters, use_ext_counters,
                                      &res_str);
        bail_error(err);
        bail_null(res_str);
        break;
    case OVD_ATTR_FEC:
        bail_null(result);
        if (result->port_phy_state != port_info_phy_state_linkup) {
            err = ts_new_str(&res_str, "Link Down");
            break;
        }
        if (internal || pplm_reg == nullptr) {
            lc_log_source(LOG_ERR, "PPLM register struct is NULL!");
            bail_force(lc_err_unexpected_null);
        }
        err = sa_port_prm_fec_to_tstr(&res_str, pplm_reg->fec_mode_active);
        break;
    case OVD_ATTR_XMIT_DATA:
    case OVD_ATTR_RCV_DATA:
    case OVD_ATTR_XMIT_PKTS:
    case OVD_ATTR_RCV_PKTS:
        if (use_ext_counters) {
            bail_null(result_ext_counters);
            res_num = arg == OVD_ATTR_XMIT_DATA  ? result_ext_counters->xmit_data_bytes
                      : arg == OVD_ATTR_RCV_DATA ? result_ext_counters->rcv_data_bytes
                      : arg == OVD_ATTR_XMIT_PKTS ? result_ext_counters->xmit_pkts
                                                  : result_ext_counters->rcv_pkts;
        } else {
            res_num = arg == OVD_ATTR_XMIT_DATA  ? result_counters->xmit_data_bytes
                      : arg == OVD_ATTR_RCV_DATA ? result_counters->rcv_data_bytes
                      : arg == OVD_ATTR_XMIT_PKTS ? result_counters->xmit_pkts
                                                  : result_counters->rcv_pkts;
        }
        break;
    case OVD_ATTR_XMIT_WAIT:
        res_num = result_counters->xmit_wait;
        break;
    case OVD_ATTR_SYMBOL_ERR_CNT:
        res_num = result_counters->symbol_err_cnt;
        break;
    case OVD_ATTR_RCV_ERR:
        res_num = result_counters->rcv_err;
        break;
    case OVD_ATTR_VL15_DROPPED:
        res_num = result_counters->vl15_dropped;
        break;
    case OVD_ATTR_XMIT_DISCARDS:
        res_num = result_counters->xmit_discards;
        break;
    default:
        lc_log_source(LOG_ERR, "invalid attrib %u %u %s %d", port->devid,
                      static_cast<uint32>(port->localport), attribname != nullptr ? attribname : "",
                      arg);
        goto bail;
    }
    bail_error(err);

    if (arg == OVD_ATTR_ALL_STATE || arg == OVD_ATTR_CONNECTED_DEVICE_SLOT) {
        err = bn_binding_new_uint32(ret_binding, node_name, ba_value, 0, res_uint32);
    } else if (arg == OVD_ATTR_CONNECTED_DEVICE_PORT) {
        err = bn_binding_new_uint8(ret_binding, node_name, ba_value, 0, res_uint8);
    } else if (arg > 99) {
        err = bn_binding_new_uint64(ret_binding, node_name, ba_value, 0, res_num);
    } else {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0,
                                 res_str != nullptr ? ts_str(res_str) : nullptr);
    }
    bail_error(err);

bail:
    ts_free(&res_str);
    return err;
}

int ret_default_values_ports(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding)
{
    int err = 0;
    const char *last = nullptr;
    const char *const tens[] = {"physical_state", "supported_speed", "supported_width",
                                "mtu", "fec", "supported_mtu", "vl_capabilities",
                                "operational_vl", "connected_device_active", "has_error"};
    const char *const counters[] = {"xmit_data", "rcv_data", "xmit_pkts", "rcv_pkts",
                                    "xmit_wait", "symbol_err_cnt", "rcv_err", "vl15_dropped",
                                    "xmit_discards"};
    auto one_of = [](const char *name, const auto &names) {
        for (const char *candidate : names) {
            if (strcmp(name, candidate) == 0) {
                return true;
            }
        }
        return false;
    };

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(node_name);
    bail_null(bname_parts);
    bail_require(tstr_array_length_quick(bname_parts) > 0);
    last = tstr_array_get_str_quick(bname_parts, tstr_array_length_quick(bname_parts) - 1);
    if (strcmp(last, "state") == 0) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "Active");
    } else if (strcmp(last, "speed") == 0) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "10.0 Gbps");
    } else if (strcmp(last, "width") == 0) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "12X");
    } else if (strcmp(last, "rate") == 0) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "40.0 Gbps");
    } else if (one_of(last, tens)) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "10");
    } else if (one_of(last, counters)) {
        err = bn_binding_new_uint64(ret_binding, node_name, ba_value, 0, 255);
    } else if (strcmp(last, "all-state") == 0) {
        err = bn_binding_new_int32(ret_binding, node_name, ba_value, 0, 255);
    } else if (strcmp(last, "connected_device_port") == 0) {
        err = bn_binding_new_uint8(ret_binding, node_name, ba_value, 0, 2);
    } else if (strcmp(last, "connected_device_slot") == 0) {
        err = bn_binding_new_uint32(ret_binding, node_name, ba_value, 0, 1);
    }
    bail_error(err);

bail:
    return err;
}
