// The /ib/state monitoring tree.
#include "ovd_state_tree.h"

#include <cstring>

#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_external_port_info.h"
#include "ovd_fabric_identity.h"
#include "ovd_internal_port_info.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "ovd_speed_limits.h"

namespace {

// The roots served, in the order they are tested.
constexpr const char *ovd_state_roots[] = {
    "/ib/state/externalports/",        "/ib/state/externalports-brief/",
    "/ib/state/externalports-counters/", "/ib/state/externalports-hashed/",
    "/ib/state/cable_info/",           "/ib/state/internal-spine-ports/",
    "/ib/state/internal-spine-ports-brief/", "/ib/state/internal-leaf-ports/",
    "/ib/state/internal-leaf-ports-brief/", "/ib/state/swid/",
    "/ib/state/devid/",                "/ib/state/locallinks/",
};

constexpr const char *ovd_external_family[] = {"externalports", "externalports-brief",
                                               "externalports-counters", "externalports-hashed"};
constexpr const char *ovd_internal_family[] = {"internal-spine-ports", "internal-spine-ports-brief",
                                               "internal-leaf-ports", "internal-leaf-ports-brief"};

typedef int (*ovd_port_producer)(const char *node_name, const tstr_array *bname_parts,
                                 bn_binding **ret_binding,
                                 ifindexInformation *ret_val_from_ib_ports_ht);

template <size_t N>
bool ovd_one_of(const char *name, const char *const (&names)[N])
{
    for (const char *candidate : names) {
        if (strcmp(name, candidate) == 0) {
            return true;
        }
    }
    return false;
}

bool ovd_served_root(const char *bname)
{
    for (const char *root : ovd_state_roots) {
        if (lc_is_prefix(root, bname, false)) {
            return true;
        }
    }
    return false;
}

// The SWID named by a part: 0 to 7.  No number is the parser's error; a number out of
// the range leaves *ret_ok false without an error.
int ovd_swid_of_part(const char *bname, const char *part, uint32 *ret_swid, tbool *ret_ok)
{
    int err = lc_str_to_uint32(part, ret_swid);
    *ret_ok = false;
    if (err != 0) {
        lc_log_basic(LOG_ERR, "The swid value at node_name: %s must be a number\n", bname);
        return err;
    }
    if (*ret_swid > OVD_MAX_SWID) {
        lc_log_basic(LOG_ERR, "The swid value at node_name: %s must be between 0 - %d\n", bname,
                     OVD_MAX_SWID);
        return 0;
    }
    *ret_ok = true;
    return 0;
}

// A producer the daemon doesn't have yet: the node is unknown to it.
int ovd_unknown_node(const char *bname)
{
    lc_log_basic(LOG_WARNING, "%s: Unknown node '%s'", "ovd_mon_handle_get", bname);
    return 0;
}

// Five parts: the leaves that look at their last part only, then the port attributes.
int ovd_mon_get_leaf(const char *bname, const tstr_array *bname_parts, bn_binding **ret_binding)
{
    int err = 0;
    const uint32 num_parts = tstr_array_length_quick(bname_parts);
    const char *last_name_part = tstr_array_get_str_quick(bname_parts, num_parts - 1);
    const char *id_part = tstr_array_get_str_quick(bname_parts, num_parts - 2);
    const char *middle_name_part = tstr_array_get_str_quick(bname_parts, num_parts - 3);
    const char *const fabric_leaves[] = {"is_sm_in_fabric", "my_lid", "sm_lid", "my_sm_port_guid"};
    uint32 number = 0;
    tbool ok = false;
    tstring *ifindex = nullptr;
    ifindexInformation *port = nullptr;
    tbool exists = false;
    ovd_port_producer producer = nullptr;

    bail_null(last_name_part);
    bail_null(id_part);
    if (ovd_one_of(last_name_part, fabric_leaves)) {
        err = ovd_swid_of_part(bname, id_part, &number, &ok);
        bail_error_quiet(err);
        if (ok) {
            err = strcmp(last_name_part, "is_sm_in_fabric") == 0
                      ? get_is_sm_in_fabric(bname, bname_parts, ret_binding)
                  : strcmp(last_name_part, "my_lid") == 0
                      ? get_my_lid(bname, bname_parts, ret_binding)
                  : strcmp(last_name_part, "sm_lid") == 0
                      ? get_sm_lid(bname, bname_parts, ret_binding)
                      : get_my_sm_port_guid(bname, bname_parts, ret_binding);
            bail_error(err);
        }
        goto bail;
    }
    if (strcmp(last_name_part, "is_initializing") == 0) {
        err = get_is_initializing_status(bname, bname_parts, ret_binding);
        bail_error(err);
        goto bail;
    }
    if (strcmp(last_name_part, "max-hw-cap-speed") == 0) {
        err = lc_str_to_uint32(id_part, &number);
        if (err != 0) {
            lc_log_basic(LOG_ERR, "The device value at node_name: %s must be a number\n", bname);
            goto bail;
        }
        if (number < 1 || number > OVD_MAX_DEVICE_ID) {
            lc_log_basic(LOG_ERR, "The device value at node_name: %s must be between %d - %d\n",
                         bname, 1, OVD_MAX_DEVICE_ID);
            goto bail;
        }
        err = ovd_get_device_max_speed(bname, bname_parts, ret_binding);
        bail_error(err);
        goto bail;
    }

    // A port attribute, under the port's ifindex.
    err = ts_new_str(&ifindex, id_part);
    bail_error(err);
    err = checkIfPortExists(ifindex, &port, &exists);
    bail_error(err);
    bail_require(exists && port != nullptr);
    if (port->assigned_to_swid >= OVD_NO_SWID) {
        goto bail;
    }
    if (!ovd_swid_is_served(port->assigned_to_swid)) {
        lc_log_source(LOG_WARNING,
                      "OVD got monitor request for label port: [%u] which doesn't belong to him.",
                      static_cast<uint32>(port->label_port));
        goto bail;
    }
    bail_null(middle_name_part);
    if (ovd_one_of(middle_name_part, ovd_external_family)) {
        producer = strcmp(last_name_part, "port_max_speed_limit") == 0 ? get_max_external_port_limit_info
                   : strcmp(last_name_part, "port_vl_limit") == 0 ? get_max_external_port_vl_limit_info
                   : strcmp(last_name_part, "port_vl_default") == 0 ? get_port_vl_default_info
                                                                     : get_external_port_info;
    } else if (ovd_one_of(middle_name_part, ovd_internal_family)) {
        producer = strcmp(last_name_part, "port_max_speed_limit") == 0 ? get_max_internal_port_limit_info
                   : strcmp(last_name_part, "port_vl_limit") == 0 ? get_max_internal_port_vl_limit_info
                   : strcmp(last_name_part, "port_vl_default") == 0 ? get_port_vl_default_info
                                                                     : get_internal_port_info;
    }
    if (producer == nullptr) {
        // Another family (cable_info among them): not answered here.
        err = ovd_unknown_node(bname);
        goto bail;
    }
    err = producer(bname, bname_parts, ret_binding, port);
    bail_error(err);

bail:
    ts_free(&ifindex);
    return err;
}

} // namespace

int ovd_mon_handle_get(const char *bname, const tstr_array *bname_parts, void *data,
                       bn_binding_array *resp_bindings)
{
    (void)data;
    int err = 0;
    uint32 num_parts = 0;
    const char *last_name_part = nullptr;
    const char *middle_name_part = nullptr;
    bn_binding *binding = nullptr;
    uint32 swid = 0;
    tbool ok = false;

    bail_null(bname);
    bail_null(bname_parts);
    bail_null(resp_bindings);
    lc_log_basic(LOG_DEBUG, "get request %s\n", bname);
    if (!ovd_served_root(bname)) {
        goto bail;
    }
    num_parts = tstr_array_length_quick(bname_parts);
    last_name_part = num_parts > 0 ? tstr_array_get_str_quick(bname_parts, num_parts - 1) : "";

    switch (num_parts) {
    case 4:
        middle_name_part = tstr_array_get_str_quick(bname_parts, num_parts - 2);
        if (strcmp(middle_name_part, "devid") == 0) {
            err = bn_binding_new_parts_str(&binding, bname, bname_parts, true, ba_value,
                                           bt_uint32, 0, last_name_part);
            bail_error(err);
        } else if (strcmp(middle_name_part, "locallinks") == 0) {
            err = get_locallinks_settled_status(bname, bname_parts, &binding);
            bail_error(err);
        } else {
            lc_log_basic(LOG_WARNING, "%s: Unhandled node '%s'", __func__, bname);
            err = lc_err_unexpected_case;
            goto bail;
        }
        break;
    case 5:
        err = ovd_mon_get_leaf(bname, bname_parts, &binding);
        bail_error_quiet(err);
        break;
    case 6:
        err = ovd_swid_of_part(bname, tstr_array_get_str_quick(bname_parts, num_parts - 3), &swid,
                               &ok);
        bail_error_quiet(err);
        middle_name_part = tstr_array_get_str_quick(bname_parts, num_parts - 4);
        if (ok && strcmp(middle_name_part, "swid") == 0) {
            err = bn_binding_new_parts_str(&binding, bname, bname_parts, true, ba_value,
                                           bt_uint32, 0, last_name_part);
            bail_error(err);
        }
        break;
    case 7:
        if (strcmp(last_name_part, "guid") != 0 && strcmp(last_name_part, "lid") != 0 &&
            strcmp(last_name_part, "name") != 0) {
            err = ovd_unknown_node(bname);
            goto bail;
        }
        err = ovd_swid_of_part(bname, tstr_array_get_str_quick(bname_parts, num_parts - 4), &swid,
                               &ok);
        bail_error_quiet(err);
        if (ok) {
            err = get_node_lid_guid(bname, bname_parts, &binding);
            bail_error(err);
        }
        break;
    default:
        lc_log_basic(LOG_WARNING, "%s: Unhandled node '%s'", __func__, bname);
        err = lc_err_unexpected_case;
        goto bail;
    }

    if (binding != nullptr) {
        err = bn_binding_array_append_takeover(resp_bindings, &binding);
        bail_error(err);
    }

bail:
    bn_binding_free(&binding);
    return err;
}

namespace {

// Every device in use, by its decimal id.
int ovd_append_device_ids(tstr_array *resp_names)
{
    int err = 0;
    for (uint32 devid = 0; devid < OVD_NUM_DEVICES; ++devid) {
        if (devsinfo[devid] == nullptr) {
            continue;
        }
        err = tstr_array_append_sprintf(resp_names, "%u", devid);
        bail_error(err);
    }
bail:
    return err;
}

} // namespace

int ovd_iterate_devices(const char *bname, const tstr_array *bname_parts, tstr_array *resp_names)
{
    (void)bname;
    (void)bname_parts;
    int err = 0;
    err = ovd_append_device_ids(resp_names);
    bail_error(err);
    err = tstr_array_sort(resp_names);
    bail_error(err);
bail:
    return err;
}

int ovd_iterate_switch_slots_nodes(const char *bname, const tstr_array *bname_parts,
                                   tstr_array *resp_names)
{
    (void)bname;
    (void)bname_parts;
    int err = 0;
    err = ovd_append_device_ids(resp_names);
    bail_error(err);
    err = tstr_array_sort_numeric(resp_names);
    bail_error(err);
bail:
    return err;
}
