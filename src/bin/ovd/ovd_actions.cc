// The counter reset and the LED test.
#include "ovd_actions.h"

#include <string.h>

#include <string>

#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_ports_cache.h"
#include "sa_counters.h"

lew_event *g_led_timer = nullptr;
tbool g_led_timer_active = false;

namespace {

// The system profile with several SWIDs, where a port may belong to none.
constexpr uint8 ovd_profile_multi_swid = 1;
// The counters an all-ones select clears.
constexpr unsigned int ovd_all_counters = static_cast<unsigned int>(-1);
// The highest LED state.
constexpr int ovd_led_state_max = LED_FLASHING;
// The highest panel position a LED block holds.
constexpr uint32 ovd_led_max_port_idx = SA_LED_DATA_LEN - 1;

}  // namespace

int ovd_action_respond(gcl_session *sess, const bn_request *action_request, uint32 resp_code,
                       const char *resp_msg)
{
    int err = 0;
    bn_response *resp = nullptr;

    bail_null(action_request);
    err = bn_action_response_msg_create(&resp, bn_request_get_msg_id(action_request), resp_code,
                                        resp_msg);
    bail_error(err);
    err = bn_response_msg_send(sess, resp);
    bail_error(err);

bail:
    bn_response_msg_free(&resp);
    return err;
}

int handle_reset_port_counters_action(gcl_session *sess, const bn_binding_array *bindings,
                                      const bn_request *action_request)
{
    int err = 0;
    bn_binding *binding = nullptr;
    tstring *ifindex = nullptr;
    ifindexInformation *port = nullptr;
    tbool exists = false;
    tbool path_exists = false;
    ib_dr_path_t dr_path = {};
    u_int16_t ret_lid = 0;
    uint32 resp_code = 0;
    std::string resp_msg;
    int status = 0;
    devinfo *dev = nullptr;
    swidapi_t *ctx = nullptr;

    bail_null(action_request);
    err = bn_binding_array_get_binding_by_name(bindings, "ifindex", &binding);
    bail_error(err);
    if (binding != nullptr) {
        err = bn_binding_get_tstr(binding, ba_value, bt_uint32, nullptr, &ifindex);
        if (err != 0) {
            // A value of another type names no port.
            ts_free(&ifindex);
            err = 0;
        }
    }
    if (ifindex != nullptr) {
        err = checkIfPortExists(ifindex, &port, &exists);
        bail_error(err);
    }
    if (!exists || port == nullptr) {
        lc_log_basic(LOG_WARNING, "Invalid port %s\n", ts_str_maybe_empty(ifindex));
        resp_code = 1;
        resp_msg = "The port is not valid.";
        goto respond;
    }
    if (g_system_profile == ovd_profile_multi_swid && port->assigned_to_swid == OVD_NO_SWID) {
        lc_log_basic(LOG_INFO,
                     "Request for resetting port  [%s]  counter was rejected as port is unmapped "
                     "to any swid",
                     ts_str(ifindex));
        err = ovd_devsinfo_get(port->devid, &dev);
        bail_error(err);
        resp_code = 1;
        resp_msg = "Cannot reset counters for port " +
                   std::to_string(dev != nullptr ? dev->slot_id : 0) + "/" +
                   std::to_string(port->label_port) +
                   " as it is unmapped to any IB Subnet";
        goto respond;
    }
    err = getDirectRouteInfoPath(port->devid, &dr_path, &path_exists);
    bail_error(err);
    if (!path_exists) {
        // Left unanswered: the asker hears nothing.
        lc_log_basic(LOG_INFO, "paths for device id %u were not found.\n", port->devid);
        goto bail;
    }
    if (!ovd_swid_is_served(port->assigned_to_swid)) {
        lc_log_source(LOG_WARNING, "failed reseting port counters %s %d %s", ts_str(ifindex),
                      SARC_ERROR, sysapi_err2str(SARC_ERROR));
        resp_code = 1;
        resp_msg = "Operation failed for port: [" + std::to_string(port->label_port) + "]";
        goto respond;
    }
    ctx = swidapi_handles[port->assigned_to_swid];
    // The extended counters first; what became of them is not reported.
    (void)sa_clear_port_cnt(ctx, port->devid, &dr_path, port->ibport, 1, ovd_all_counters,
                            &ret_lid);
    status = sa_clear_port_cnt(ctx, port->devid, &dr_path, port->ibport, 0, ovd_all_counters,
                               &ret_lid);
    if (status != 0) {
        lc_log_source(LOG_WARNING, "failed reseting port counters %s %d %s", ts_str(ifindex),
                      status, sysapi_err2str(status));
        if (status == SARC_LID_NOT_ASSIGNED || status == SARC_NO_DR_PATH) {
            resp_code = static_cast<uint32>(status);
            resp_msg = std::string(sysapi_err2str(status)) + " for : [" +
                       ovd_device_name(port->devid) + "]. Please check OpenSM is running";
        } else {
            resp_code = 1;
            resp_msg = "Operation failed for port: [" + std::to_string(port->label_port) + "]";
        }
    }

respond:
    err = ovd_action_respond(sess, action_request, resp_code,
                             resp_msg.empty() ? nullptr : resp_msg.c_str());
    bail_error(err);

bail:
    ts_free(&ifindex);
    return err;
}

int ovd_all_port_leds(sa_port_led_state_t state)
{
    int err = 0;
    sa_led_control_t leds = {};
    uint8 state_val = 0;
    bn_binding_array *children = nullptr;
    uint32 num = 0;
    uint32 devid = 0;
    uint32 ports_found = 0;
    tbool exists = false;

    if (static_cast<int>(state) > ovd_led_state_max || static_cast<int>(state) < 0) {
        lc_log_basic(LOG_ERR, "%s: Unhandled state %d!", __func__, static_cast<int>(state));
        err = lc_err_unexpected_case;
        goto bail;
    }
    state_val = static_cast<uint8>(state * 16 | state);
    leds.attrib = 0;
    err = util_get_bindings_children(&children, OVD_PANEL_MAP_NODE);
    bail_error(err);
    num = children != nullptr ? bn_binding_array_length_quick(children) : 0;
    for (uint32 i = 0; i < num; ++i) {
        const bn_binding *child = bn_binding_array_get_quick(children, i);
        const tstr_array *parts = child != nullptr ? child->bn_node_name_parts : nullptr;
        const uint32 num_parts = parts != nullptr ? tstr_array_length_quick(parts) : 0;
        tstring *ifindex = nullptr;
        ifindexInformation *port = nullptr;
        uint32 port_idx = 0;

        if (num_parts < 2 || strcmp(tstr_array_get_str_quick(parts, num_parts - 1), "ifindex") != 0) {
            continue;
        }
        if (lc_str_to_uint32(tstr_array_get_str_quick(parts, num_parts - 2), &port_idx) != 0) {
            continue;
        }
        err = bn_binding_get_tstr(child, ba_value, bt_NONE, nullptr, &ifindex);
        bail_error(err);
        err = checkIfPortExists(ifindex, &port, &exists);
        ts_free(&ifindex);
        bail_error(err);
        if (!exists || port == nullptr) {
            continue;
        }
        if (port_idx > ovd_led_max_port_idx) {
            lc_log_basic(LOG_WARNING, "%s: Port %d out of range", __func__,
                         static_cast<int>(port_idx));
            continue;
        }
        if (ports_found > 0 && port->devid != devid) {
            lc_log_basic(LOG_ERR, "%s: devid=0x%X change=0x%X!", __func__, devid, port->devid);
            err = lc_err_assertion_failed;
            goto bail;
        }
        devid = port->devid;
        leds.data[ovd_led_max_port_idx - port_idx] = state_val;
        ++ports_found;
    }
    if (ports_found == 0) {
        lc_log_basic(LOG_WARNING, "%s: No external ports found!", __func__);
        err = lc_err_assertion_failed;
        goto bail;
    }
    err = getDirectRouteInfoPath(devid, &leds.path, &exists);
    bail_error(err);
    for (uint32 swid = 0; swid < OVD_NUM_SWIDS; ++swid) {
        if (swidapi_handles[swid] == nullptr) {
            continue;
        }
        err = sa_set_port_led(swidapi_handles[swid], &leds);
        bail_error(err);
    }

bail:
    bn_binding_array_free(&children);
    return err;
}

int ovd_led_to(int fd, short event_type, void *data, lew_context *context)
{
    (void)fd;
    (void)event_type;
    (void)data;
    (void)context;
    int err = ovd_all_port_leds(LED_HW_CONTROL);
    complain_error(err);
    g_led_timer_active = false;
    return 0;
}

int handle_led_test_port_action(gcl_session *sess, const bn_binding_array *bindings,
                                const bn_request *action_request)
{
    (void)bindings;
    int err = 0;
    uint32 resp_code = 0;
    const char *resp_msg = nullptr;
    int led_err = 0;

    bail_null(action_request);
    if (g_led_timer_active) {
        // A running test is not prolonged.
        resp_msg = "LED test active";
        goto respond;
    }
    led_err = ovd_all_port_leds(LED_ON);
    if (led_err != 0) {
        resp_code = static_cast<uint32>(led_err);
        resp_msg = led_err == lc_err_io_closed ? "Must run SM first!" : "Unable to set LEDs";
        goto respond;
    }
    led_err = g_led_timer == nullptr
                  ? lew_event_reg_timer(ovd_lwc, &g_led_timer, ovd_led_to, nullptr, OVD_LED_TEST_MS)
                  : lew_event_reschedule_timeout(ovd_lwc, &g_led_timer, OVD_LED_TEST_MS);
    if (led_err != 0) {
        complain_error(led_err);
        complain_error(ovd_all_port_leds(LED_HW_CONTROL));
        resp_code = static_cast<uint32>(led_err);
        resp_msg = lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(led_err));
        goto respond;
    }
    g_led_timer_active = true;

respond:
    err = ovd_action_respond(sess, action_request, resp_code, resp_msg);
    bail_error(err);

bail:
    return err;
}
