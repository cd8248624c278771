// The one-port cache of internal ports and the verdict on their links.
#include "ovd_internal_port_info.h"

#include <string.h>

#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_external_port_info.h"
#include "ovd_main.h"
#include "ovd_port_answers.h"
#include "ovd_port_attributes.h"
#include "ovd_port_enable.h"
#include "sa_registers.h"
#include "sa_route.h"

namespace {

// The physical states the verdict looks at.
constexpr uint8 ovd_phys_disabled = 3;
constexpr uint8 ovd_phys_link_up = 5;
// The width an internal link must run at: 4X.
constexpr uint32 ovd_internal_width = 4;

// The cache: one internal port for the whole daemon, apart from the external one.
struct ovd_internal_port_cache {
    int last_commit_count = -1;
    uint32 last_port = 0;
    uint32 last_devid = 0;
    tbool last_success = false;
    sa_port_speed_state_t last_result = {};
    pmtu_reg_t last_pmtu = {};
    ptys_reg_t last_ptys = {};
    pvlc_reg_t last_pvlc = {};
};

ovd_internal_port_cache s_internal_cache;

// The answer of a port whose data can't be reached: "Polling", for the physical state only.
int ovd_answer_polling(const char *node_name, int arg, bn_binding **ret_binding)
{
    int err = 0;

    if (arg == OVD_ATTR_PHYSICAL_STATE) {
        err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0, "Polling");
        bail_error(err);
    }

bail:
    return err;
}

// The neighbour's configured admin state: its enable, with "not set" read as up.
sa_port_state_t ovd_neighbor_status(uint32 ifindex_neighbor)
{
    tstring *key = nullptr;
    uint8 enable = OVD_CONFIG_NOT_SET;

    if (ts_new_sprintf(&key, "%u", ifindex_neighbor) == 0) {
        enable = ovd_config_enable("get_internal_port_info", key);
    }
    ts_free(&key);
    return enable == OVD_CONFIG_NOT_SET ? PORT_UP : static_cast<sa_port_state_t>(enable);
}

// The verdict on the link between port and neighbor: 1 when it runs as it should, or
// when either end is still in its grace time after an enable.
int ovd_judge_internal_link(const ifindexInformation *port, const ifindexInformation *neighbor,
                            const sa_port_speed_state_t &result, const ptys_reg_t &ptys,
                            uint8 *ret_is_port_ok)
{
    int err = 0;
    const uint32 width_param = ptys.ib_proto_oper >> 16;
    const uint8 oper_speed = static_cast<uint8>(ptys.ib_proto_oper & 0xff);
    uint8 both_active_speed = 0;
    uint8 max_speed = 0;
    sa_port_state_t neighbor_port_status = PORT_DOWN;

    *ret_is_port_ok = 1;
    if (port->enable_port_time == 0 || neighbor->enable_port_time == 0 ||
        !validate_port_avaliability(port->enable_port_time) ||
        !validate_port_avaliability(neighbor->enable_port_time)) {
        goto bail;
    }
    both_active_speed = port->active_speed & neighbor->active_speed;
    for (int i = 8; i >= 1; --i) {
        const uint8 bit = static_cast<uint8>(1u << (i - 1));
        if ((both_active_speed & bit) != 0) {
            max_speed = bit;
            break;
        }
    }
    // Two ends that share no speed can't have been configured by this daemon.
    bail_require(max_speed != 0);
    neighbor_port_status = ovd_neighbor_status(port->ifindex_neighbor);
    if ((width_param & 0xff) != ovd_internal_width) {
        *ret_is_port_ok = 0;
    }
    if (oper_speed != max_speed && neighbor_port_status == PORT_UP &&
        result.port_phy_state != ovd_phys_disabled) {
        *ret_is_port_ok = 0;
    }
    if (result.port_phy_state != ovd_phys_link_up && result.port_phy_state != ovd_phys_disabled &&
        neighbor_port_status == PORT_UP) {
        *ret_is_port_ok = 0;
    }

bail:
    return err;
}

} // namespace

int get_internal_port_info(const char *node_name, const tstr_array *bname_parts,
                           bn_binding **ret_binding, ifindexInformation *ret_val_from_ib_ports_ht)
{
    int err = 0;
    ifindexInformation *port = ret_val_from_ib_ports_ht;
    ib_dr_path_t temp_dr_path = {};
    tbool exists = false;
    uint32 num_parts = 0;
    const char *attribname = nullptr;
    const char *port_part = nullptr;
    uint32 port_num = 0;
    int arg = 0;
    tstring *neighbor_text = nullptr;
    tstring *ifindex = nullptr;
    ifindexInformation *neighbor_info = nullptr;
    tbool neighbor_exists = false;
    sa_port_speed_state_t result = {};
    pmtu_reg_t pmtu = {};
    ptys_reg_t ptys = {};
    pvlc_reg_t pvlc = {};
    int neighbor_sys_exist = 0;
    uint8 is_port_ok = 1;
    int request_count = 0;
    const char *dev_name = "";
    int dev_index = 0;

    if (ret_binding == nullptr) {
        err = lc_err_unexpected_null;
        bail_log_null(__func__, __FILE__, __LINE__);
        goto bail;
    }
    *ret_binding = nullptr;
    bail_null(node_name);
    bail_null(bname_parts);
    bail_null(port);
    num_parts = tstr_array_length_quick(bname_parts);
    attribname = num_parts > 4 ? tstr_array_get_str_quick(bname_parts, 4) : nullptr;
    bail_null(attribname);
    if (port_attrib_str_to_enum(attribname, &arg) != 0) {
        lc_log_source(LOG_WARNING, "Invalid port attribute %s", attribname);
        err = 1;
        goto bail;
    }
    if (!ovd_swid_is_served(port->assigned_to_swid)) {
        lc_log_source(LOG_WARNING,
                      "OVD got monitor request for label port: [%u] device: [%u] which doesn't "
                      "belong to him",
                      static_cast<uint32>(port->label_port), port->devid);
        goto bail;
    }

    // Without a neighbour there is no link to read.
    if (port->ifindex_neighbor == 0) {
        err = ovd_answer_polling(node_name, arg, ret_binding);
        bail_error(err);
        goto bail;
    }
    err = ts_new_sprintf(&neighbor_text, "%u", port->ifindex_neighbor);
    bail_error(err);
    err = checkIfPortExists(neighbor_text, &neighbor_info, &neighbor_exists);
    bail_error(err);
    if (!neighbor_exists || neighbor_info == nullptr) {
        err = ovd_answer_polling(node_name, arg, ret_binding);
        lc_log_basic(LOG_NOTICE, "Failed to get port %u %u neighbor \n", port->devid,
                     static_cast<uint32>(port->ibport));
        bail_error(err);
        goto bail;
    }

    port_part = num_parts >= 2 ? tstr_array_get_str_quick(bname_parts, num_parts - 2) : nullptr;
    bail_null(port_part);
    err = lc_str_to_uint32(port_part, &port_num);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Illegal port number: %s", port_part);
        goto bail;
    }

    request_count = get_request_count();
    if (request_count == s_internal_cache.last_commit_count &&
        port_num == s_internal_cache.last_port && port->devid == s_internal_cache.last_devid) {
        if (!s_internal_cache.last_success) {
            lc_log_basic(LOG_DEBUG,
                         "last access to port in cache failed, skipping port on %u %u %s %d",
                         port->devid, static_cast<uint32>(port->localport), attribname,
                         s_internal_cache.last_commit_count);
            goto bail;
        }
        lc_log_basic(LOG_DEBUG, "using cache on %u %u %s %d", port->devid,
                     static_cast<uint32>(port->localport), attribname,
                     s_internal_cache.last_commit_count);
        result = s_internal_cache.last_result;
        pmtu = s_internal_cache.last_pmtu;
        ptys = s_internal_cache.last_ptys;
        pvlc = s_internal_cache.last_pvlc;
    } else {
        lc_log_basic(LOG_DEBUG, "cache miss on %u %u %s %d %u %u", port->devid,
                     static_cast<uint32>(port->localport), attribname,
                     s_internal_cache.last_commit_count, s_internal_cache.last_devid,
                     s_internal_cache.last_port);
        // The entry is taken from here on, even if the read fails.
        s_internal_cache.last_commit_count = request_count;
        s_internal_cache.last_devid = port->devid;
        s_internal_cache.last_port = port_num;
        ovd_device_log_name(port->devid, &dev_name, &dev_index);
        lc_log_basic(LOG_INFO,
                     "Func: [%s], Line: [%d] : OVD going to search direct route path for "
                     "device: [%s/%d, %u] label port: [%u]\n",
                     __func__, __LINE__, dev_name, dev_index, port->devid,
                     static_cast<uint32>(port->label_port));
        err = getDirectRouteInfoPath(port->devid, &temp_dr_path, &exists);
        if (err != 0 || !exists) {
            lc_log_basic(LOG_NOTICE, "OVD didn't find DR paths for device id: [%u].\n",
                         port->devid);
            s_internal_cache.last_success = false;
            err = ovd_answer_polling(node_name, arg, ret_binding);
            bail_error(err);
            goto bail;
        }
        err = ovd_read_port_registers(port, &pmtu, &ptys, &pvlc);
        if (err != 0) {
            s_internal_cache.last_success = false;
            goto bail;
        }
        err = sa_get_port_info(swidapi_handles[port->assigned_to_swid], port->devid,
                               &temp_dr_path, port->ibport, &result);
        if (err != 0) {
            lc_log_source(LOG_WARNING, "Failed to get port info %u %u %s %s %d", port->devid,
                          static_cast<uint32>(port->ibport), attribname, sysapi_err2str(err),
                          err);
            s_internal_cache.last_success = false;
            goto bail;
        }
        err = ts_new_sprintf(&ifindex, "%u", port_num);
        bail_error(err);
        err = ovd_read_disabled_not_polling(ifindex, &result);
        bail_error(err);
        s_internal_cache.last_result = result;
        s_internal_cache.last_pmtu = pmtu;
        s_internal_cache.last_ptys = ptys;
        s_internal_cache.last_pvlc = pvlc;
        s_internal_cache.last_success = true;
    }

    neighbor_sys_exist = 1;
    err = ovd_judge_internal_link(port, neighbor_info, result, ptys, &is_port_ok);
    bail_error(err);
    if (ifindex == nullptr) {
        err = ts_new_sprintf(&ifindex, "%u", port_num);
        bail_error(err);
    }
    err = get_port_info(node_name, ret_binding, arg, neighbor_sys_exist, is_port_ok, &result,
                        port, neighbor_info, attribname, true, nullptr, nullptr, false, &pmtu,
                        &ptys, &pvlc, nullptr, ifindex);

bail:
    if (err != 0) {
        lc_log_source(LOG_ERR, "A problem occured while getting port configuration %d %s", err,
                      sysapi_err2str(err));
    }
    ts_free(&neighbor_text);
    ts_free(&ifindex);
    return err;
}
