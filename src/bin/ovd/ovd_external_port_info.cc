// The one-port cache of live port information and the counter guards.
#include "ovd_external_port_info.h"

#include <string.h>

#include <string>

#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_main.h"
#include "ovd_port_answers.h"
#include "ovd_port_attributes.h"
#include "sa_counters.h"
#include "sa_registers.h"
#include "sa_route.h"

tbool is_sm_connected = true;
lt_dur_ms time_out = 0;
lt_dur_ms g_ports_timeouts[OVD_PORT_TIMEOUTS_RING] = {};
uint16 g_ports_timeouts_index = 0;

namespace {

// Attribute codes above this are counters.
constexpr int ovd_counter_attr_floor = 100;

// What one read of a port gathers.
struct ovd_port_reading {
    sa_port_speed_state_t result;
    pmtu_reg_t pmtu;
    ptys_reg_t ptys;
    pvlc_reg_t pvlc;
    pplm_reg_t pplm;
    sa_port_counters_t counters;
    sa_ext_port_counters_t ext_counters;
    tbool use_ext_counters;
};

// The cache: one port for the whole daemon.
struct ovd_port_info_cache {
    int last_commit_count = -1;
    uint32 last_port = 0;
    uint32 last_devid = 0;
    tbool last_success = false;
    tbool last_counters_success = false;
    ovd_port_reading last = {};
    int last_counters_commit_count = -1;
    uint32 last_counters_devid = 0;
};

ovd_port_info_cache s_cache;

const char *ovd_yes_no(tbool value)
{
    return value ? "Yes" : "No";
}

// The counter section of a miss.  On return *ret_answer says whether the answer is to be
// built; *ret_route_mad_fail marks the quiet end of a counter attribute whose counters
// failed.
int ovd_read_port_counters(ifindexInformation *port, swidapi_t *ctx,
                           ib_dr_path_t *temp_dr_path, int arg, const char *attribname,
                           ovd_port_reading *reading, tbool *ret_answer, tbool *ret_route_mad_fail)
{
    int err = 0;
    sa_port_speed_state_t remote_port_info = {};
    sa_port_speed_state_t local_port_info = {};
    ib_dr_path_t local_dr_path = {};
    lt_dur_ms current_time = 0;
    tbool use_counters_cache = false;
    u_int16_t ret_lid = 0;
    int ext_err = 0;
    uint32 timeouts = 0;
    const char *dev_name = "";
    int dev_index = 0;

    *ret_answer = true;
    *ret_route_mad_fail = false;
    ovd_device_log_name(port->devid, &dev_name, &dev_index);
    err = sa_get_port_info(ctx, port->devid, temp_dr_path, 0, &remote_port_info);
    if (err == 0) {
        err = sa_get_port_info(ctx, master_devid, &local_dr_path, 0, &local_port_info);
    }
    if (err != 0) {
        lc_log_basic(LOG_WARNING, "%s: Failed to get LID %s %d dev %d ibport %d",
                     "get_external_port_info", sysapi_err2str(err), err,
                     static_cast<int>(port->devid), static_cast<int>(port->ibport));
        s_cache.last_counters_success = false;
        if (arg > ovd_counter_attr_floor) {
            *ret_answer = false;
            goto bail;
        }
    }
    current_time = lt_sys_uptime_ms();
    if (err != 0 || remote_port_info.lid == 0 || local_port_info.lid == 0 ||
        (!is_sm_connected && current_time <= time_out)) {
        // No LID route: the counters are a valid zero for this interval.
        lc_log_source(LOG_INFO,
                      "Device id:[%u,%s/%d], ib port:[%u]. Is SM connected:[%s], Pass "
                      "timeout:[%s]. Skipping port counters, no LID route",
                      port->devid, dev_name, dev_index,
                      static_cast<uint32>(port->ibport), ovd_yes_no(is_sm_connected),
                      ovd_yes_no(current_time > time_out));
        s_cache.last.counters = {};
        s_cache.last.ext_counters = {};
        s_cache.last.use_ext_counters = false;
        s_cache.last_counters_success = true;
        err = 0;
        goto bail;
    }
    if (!is_sm_connected) {
        lc_log_basic(LOG_NOTICE,
                     "Device id:[%u,%s,%d], ib port:[%u]. Is SM connected:[%s], Pass "
                     "timeout:[%s]. \nRe-check the counters and lid route path",
                     port->devid, dev_name, dev_index,
                     static_cast<uint32>(port->ibport), "No", "Yes");
    }
    s_cache.last_counters_commit_count = get_request_count();
    s_cache.last_counters_devid = port->devid;
    timeouts = get_port_timeouts();
    if (timeouts > OVD_PORT_TIMEOUTS_RING - 1) {
        lc_log_source(LOG_WARNING,
                      "Skipping port counters device:[%u] port:[%u] attribute:[%s] because of "
                      "timeouts:[%d] (more than:[%d])",
                      port->devid, static_cast<uint32>(port->ibport), attribname,
                      static_cast<int>(timeouts), OVD_PORT_TIMEOUTS_RING);
        s_cache.last_counters_success = false;
        *ret_answer = arg <= ovd_counter_attr_floor;
        goto bail;
    }
    use_counters_cache = get_request_count() == s_cache.last_counters_commit_count &&
                         port->devid == s_cache.last_counters_devid;
    err = sa_get_port_cnt(ctx, port->devid, port->ibport, temp_dr_path, &reading->counters,
                          use_counters_cache, &ret_lid);
    if (err == 0) {
        is_sm_connected = true;
        ext_err = sa_get_ext_port_cnt(ctx, port->devid, temp_dr_path, port->ibport,
                                      &reading->ext_counters, true, &ret_lid);
        if (ext_err == 0) {
            lc_log_basic(LOG_DEBUG, "using extended counters if needed %u %u %s", port->devid,
                         static_cast<uint32>(port->ibport), attribname);
            reading->use_ext_counters = true;
        } else {
            lc_log_basic(LOG_DEBUG,
                         "using regular counters if needed %u %u %s. Extended error was %d %s",
                         port->devid, static_cast<uint32>(port->ibport), attribname, ext_err,
                         sysapi_err2str(ext_err));
            reading->use_ext_counters = false;
        }
        s_cache.last.counters = reading->counters;
        s_cache.last.ext_counters = reading->ext_counters;
        s_cache.last.use_ext_counters = reading->use_ext_counters;
        s_cache.last_counters_success = true;
        goto bail;
    }

    lc_log_source(LOG_WARNING,
                  "Failed to get port counters device:[%u] port:[%u] swid:[%d] attribute:[%s], "
                  "using cache:[%s] code:[%d,%s]",
                  port->devid, static_cast<uint32>(port->ibport),
                  static_cast<int>(port->assigned_to_swid), attribname,
                  use_counters_cache ? "true" : "false", err, sysapi_err2str(err));
    s_cache.last_counters_success = false;
    {
        const int lid_check = sa_check_lid_route(ctx, ret_lid);
        if (lid_check != 0) {
            lc_log_basic(LOG_WARNING,
                         "Lid route validation failed for device:[%u,%s/%d] ib port:[%u]. "
                         "code:[%d,%s]",
                         port->devid, dev_name, dev_index,
                         static_cast<uint32>(port->ibport), lid_check,
                         lidroute_err2str(lid_check));
            lc_log_basic(LOG_WARNING, "Port Counters will be blocked for %d seconds",
                         OVD_COUNTERS_BLOCK_SEC);
            is_sm_connected = false;
            time_out = current_time + OVD_COUNTERS_BLOCK_SEC * 1000;
        }
    }
    if (err == SARC_UNSUPPORTED_SYSTEM) {
        g_ports_timeouts[g_ports_timeouts_index] = lt_sys_uptime_ms();
        ++g_ports_timeouts_index;
        if (g_ports_timeouts_index > OVD_PORT_TIMEOUTS_RING - 1) {
            g_ports_timeouts_index = 0;
        }
    }
    if (arg <= ovd_counter_attr_floor) {
        // The other attributes are answered, with the counters at zero.
        reading->counters = {};
        reading->ext_counters = {};
        reading->use_ext_counters = false;
        err = 0;
        goto bail;
    }
    *ret_answer = false;
    *ret_route_mad_fail = true;
    err = 0;

bail:
    return err;
}

}  // namespace

int get_request_count(void)
{
    static lt_dur_ms last_time = 0;
    static int i = 1;
    const lt_dur_ms now = lt_sys_uptime_ms();

    if (static_cast<int64>(now - last_time) > OVD_PORT_INFO_INTERVAL_MS) {
        ++i;
        last_time = now;
    }
    return i;
}

uint32 get_port_timeouts(void)
{
    const lt_dur_ms now = lt_sys_uptime_ms();
    uint32 count = 0;

    for (lt_dur_ms slot : g_ports_timeouts) {
        const int64 age = static_cast<int64>(now - slot);
        if (age >= 0 && age < OVD_PORT_TIMEOUTS_WINDOW_MS) {
            ++count;
        }
    }
    return count;
}

int ovd_read_port_registers(const ifindexInformation *port, pmtu_reg_t *ret_pmtu,
                            ptys_reg_t *ret_ptys, pvlc_reg_t *ret_pvlc)
{
    int err = 0;

    bail_null(port);
    bail_null(ret_pmtu);
    bail_null(ret_ptys);
    bail_null(ret_pvlc);
    err = get_pmtu_reg(port->assigned_to_swid, port->devid, port->localport, ret_pmtu);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Unable to read PMTU register, device %d port %d\n",
                      static_cast<int>(port->devid), static_cast<int>(port->localport));
        goto bail;
    }
    lc_log_basic(LOG_DEBUG, "mtu oper %d cap %d", static_cast<int>(ret_pmtu->oper_mtu),
                 static_cast<int>(ret_pmtu->max_mtu));
    ret_ptys->proto_mask = reg_ptys_proto_mask_ib;
    err = get_ptys_reg(port->assigned_to_swid, port->devid, port->localport, ret_ptys);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Unable to read PTYS register\n");
        goto bail;
    }
    lc_log_basic(LOG_DEBUG, "ptys oper %x cap %x", ret_ptys->ib_proto_oper,
                 ret_ptys->ib_proto_capability);
    err = get_pvlc_reg(port->assigned_to_swid, port->devid, port->localport, ret_pvlc);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Unable to read PVLC register\n");
        goto bail;
    }
    lc_log_basic(LOG_DEBUG, "vl oper %x cap %x", ret_pvlc->vl_operational, ret_pvlc->vl_cap);

bail:
    return err;
}

int ovd_read_disabled_not_polling(const tstring *ifindex, sa_port_speed_state_t *inout_result)
{
    int err = 0;

    bail_null(ifindex);
    bail_null(inout_result);
    if (inout_result->port_phy_state == 2 && ovd_config_enable(nullptr, ifindex) == 0) {
        inout_result->port_phy_state = 3;
    }

bail:
    return err;
}

int get_external_port_info(const char *node_name, const tstr_array *bname_parts,
                           bn_binding **ret_binding, ifindexInformation *ret_val_from_ib_ports_ht)
{
    int err = 0;
    ifindexInformation *port = ret_val_from_ib_ports_ht;
    ib_dr_path_t temp_dr_path = {};
    tbool exists = false;
    uint32 num_parts = 0;
    const char *port_part = nullptr;
    const char *attribname = nullptr;
    uint32 port_num = 0;
    int arg = 0;
    const char *dev_name = "";
    int dev_index = 0;
    swidapi_t *ctx = nullptr;
    ovd_port_reading reading = {};
    tstring *ifindex = nullptr;
    tbool answer = true;
    tbool lid_route_mad_fail = false;
    int request_count = 0;

    if (ret_binding == nullptr || port == nullptr || node_name == nullptr ||
        bname_parts == nullptr) {
        err = lc_err_unexpected_null;
        bail_log_null(__func__, __FILE__, __LINE__);
        goto bail;
    }
    *ret_binding = nullptr;
    if (!ovd_swid_is_served(port->assigned_to_swid)) {
        lc_log_source(LOG_WARNING,
                      "OVD got monitor request for label port:[%u] device:[%u] which doesn't "
                      "belong to him",
                      static_cast<uint32>(port->label_port), port->devid);
        goto bail;
    }
    ctx = swidapi_handles[port->assigned_to_swid];
    if (port->enable_port_time == 0) {
        goto bail;
    }
    num_parts = tstr_array_length_quick(bname_parts);
    port_part = num_parts >= 2 ? tstr_array_get_str_quick(bname_parts, num_parts - 2) : nullptr;
    bail_null(port_part);
    err = lc_str_to_uint32(port_part, &port_num);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Illegal port number: %s", port_part);
        goto bail;
    }
    attribname = num_parts > 4 ? tstr_array_get_str_quick(bname_parts, 4) : nullptr;
    bail_null(attribname);
    if (port_attrib_str_to_enum(attribname, &arg) != 0) {
        lc_log_source(LOG_WARNING, "Invalid port attribute %s", attribname);
        err = 1;
        goto bail;
    }
    ovd_device_log_name(port->devid, &dev_name, &dev_index);

    request_count = get_request_count();
    if (request_count == s_cache.last_commit_count && port_num == s_cache.last_port &&
        port->devid == s_cache.last_devid) {
        if (!s_cache.last_success) {
            lc_log_basic(LOG_DEBUG, "last access to port in cache failed, skipping port on %u %u %s %d",
                         port->devid, port_num, attribname, s_cache.last_commit_count);
            goto bail;
        }
        if (!s_cache.last_counters_success && arg > ovd_counter_attr_floor) {
            lc_log_basic(LOG_DEBUG,
                         "last access to port counters in cache failed, skipping port counters "
                         "on device:[%u] port:[%u] attribute:[%s] interval:[%d]",
                         port->devid, port_num, attribname, s_cache.last_commit_count);
            goto bail;
        }
        lc_log_basic(LOG_DEBUG,
                     "using cache on device:[%u] port:[%u] attribute:[%s] interval:[%d]",
                     port->devid, port_num, attribname, s_cache.last_commit_count);
        reading = s_cache.last;
    } else {
        lc_log_basic(LOG_DEBUG,
                     "cache miss on device:[%u] port:[%u] attribute:[%s] interval:[%d], last "
                     "device read:[%u], last port:[%u]",
                     port->devid, port_num, attribname, s_cache.last_commit_count,
                     s_cache.last_devid, s_cache.last_port);
        reading = {};
        // From here on the entry is taken, even if the read fails: the rest of the
        // interval leaves the hardware alone.
        s_cache.last_commit_count = get_request_count();
        s_cache.last_devid = port->devid;
        s_cache.last_port = port_num;
        lc_log_basic(LOG_INFO,
                     "Func: [%s], Line: [%d] : OVD going to search direct route path for "
                     "device:[%s/%d, %u] label port:[%u]\n",
                     __func__, __LINE__, dev_name, dev_index,
                     port->devid, static_cast<uint32>(port->label_port));
        err = getDirectRouteInfoPath(port->devid, &temp_dr_path, &exists);
        if (err != 0 || !exists) {
            lc_log_basic(LOG_NOTICE, "OVD didn't find DR paths for device id: [%u].\n",
                         port->devid);
            s_cache.last_success = false;
            goto bail;
        }
        err = ovd_read_port_registers(port, &reading.pmtu, &reading.ptys, &reading.pvlc);
        if (err != 0) {
            s_cache.last_success = false;
            goto bail;
        }
        err = get_pplm_reg(port->assigned_to_swid, port->devid, port->localport, &reading.pplm,
                           static_cast<system_type_t>(g_sys_type));
        if (err != 0) {
            lc_log_source(LOG_WARNING, "Unable to read PPLM register\n");
            s_cache.last_success = false;
            goto bail;
        }
        err = sa_get_port_info(ctx, port->devid, &temp_dr_path, port->ibport, &reading.result);
        if (err != 0) {
            lc_log_source(LOG_WARNING, "Failed to get port info %u %u %s %s %d", port->devid,
                          static_cast<uint32>(port->ibport), attribname, sysapi_err2str(err),
                          err);
            s_cache.last_success = false;
            goto bail;
        }
        err = ts_new_sprintf(&ifindex, "%u", port_num);
        bail_error(err);
        err = ovd_read_disabled_not_polling(ifindex, &reading.result);
        bail_error(err);
        s_cache.last.result = reading.result;
        s_cache.last.pmtu = reading.pmtu;
        s_cache.last.ptys = reading.ptys;
        s_cache.last.pvlc = reading.pvlc;
        s_cache.last.pplm = reading.pplm;
        s_cache.last_success = true;

        err = ovd_read_port_counters(port, ctx, &temp_dr_path, arg, attribname, &reading,
                                     &answer, &lid_route_mad_fail);
        if (!answer) {
            goto bail;
        }
    }

    if (ifindex == nullptr) {
        err = ts_new_sprintf(&ifindex, "%u", port_num);
        bail_error(err);
    }
    err = get_port_info(node_name, ret_binding, arg, 0, 0, &reading.result, port, nullptr,
                        attribname, false, &reading.ext_counters, &reading.counters,
                        reading.use_ext_counters, &reading.pmtu, &reading.ptys, &reading.pvlc,
                        &reading.pplm, ifindex);

bail:
    if (err != 0 && !lid_route_mad_fail) {
        lc_log_source(LOG_ERR, "A problem occurred while getting port configuration %d %s", err,
                      sysapi_err2str(err));
    }
    ts_free(&ifindex);
    return err;
}

int getPortAttributeInfo(uint8 *ret_data, uint8 direction, const char *attribute, uint32 ifindex)
{
    int err = 0;
    bn_binding *binding = nullptr;
    tstring *name = nullptr;

    bail_null(ret_data);
    bail_null(attribute);
    err = ts_new_sprintf(&name, direction != 0 ? "/ib/config/externalports/%u/%s"
                                               : "/ib/config/internalports/%u/%s",
                         ifindex, attribute);
    bail_error(err);
    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding, ts_str(name), nullptr);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "%s No %s binding", __func__, ts_str(name));
        err = 1;
        goto bail;
    }
    err = bn_binding_get_uint8(binding, ba_value, nullptr, ret_data);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    ts_free(&name);
    return err;
}

md_client_context *ovd_get_mcc(void)
{
    return ovd_mcc;
}
