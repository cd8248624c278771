// Configuration load and change tracking.
#include "ovd_config.h"

#include <cstring>

#include "logging.h"
#include "ovd_swid_assign.h"
#include "mdc_main.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_ports_cache.h"
#include "swidapi.h"

namespace {

constexpr char ovd_config_prefix[] = "/ib/config/";
constexpr char ovd_hostname_node[] = "/system/hostname";
constexpr char ovd_swid_config_prefix[] = "/portd/config/ifindex";

// Replays every leaf under one port tree.
int ovd_replay_port_tree(const char *tree, const char *label)
{
    int err = 0;
    bn_binding_array *bindings = nullptr;

    err = util_get_bindings_children(&bindings, tree);
    bail_error(err);
    lc_log_basic(LOG_NOTICE, "%s", label);
    if (bindings != nullptr) {
        err = bn_binding_array_foreach(bindings, ovd_handle_change, nullptr);
        bail_error(err);
    }
bail:
    bn_binding_array_free(&bindings);
    return err;
}

} // namespace

int ovd_query_config(void)
{
    int err = 0;
    bn_binding *binding = nullptr;
    tstring *new_hostname = nullptr;
    uint8 paos_base = 0;
    int create_err = 0;

    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding, ovd_hostname_node,
                          nullptr);
    bail_error(err);
    if (binding != nullptr) {
        err = bn_binding_get_tstr(binding, ba_value, bt_hostname, nullptr, &new_hostname);
        bail_error(err);
        ts_free(&hostname);
        hostname = new_hostname;
        new_hostname = nullptr;
        lc_log_basic(LOG_INFO, "The host name is: %s", ts_str_maybe_empty(hostname));
        bn_binding_free(&binding);
    }

    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding,
                          "/portd/state/virtual/paos_base", nullptr);
    bail_error(err);
    if (binding != nullptr) {
        err = bn_binding_get_uint8(binding, ba_value, nullptr, &paos_base);
        bail_error(err);
        g_virtual_paos_lcl_port = paos_base;
        bn_binding_free(&binding);
    } else {
        lc_log_basic(LOG_WARNING, "%s: Unable to read PAOS virtual base, using %u!", __func__,
                     g_virtual_paos_lcl_port);
    }

    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding,
                          "/net/interface/config/ib0", nullptr);
    bail_error(err);
    if (binding == nullptr) {
        // The node belongs to another subsystem; it is written first and announced after,
        // and a failure to write it doesn't stop the start.
        create_err = mdc_set_binding(ovd_mcc, nullptr, nullptr, bsso_create, bt_uint16, "2044",
                                     "/net/interface/config/ib0/mtu");
        if (create_err != 0) {
            lc_log_source(LOG_ERR, "failed to create /net/interface/config/ib0 configuration tree");
        }
        lc_log_source(LOG_WARNING,
                      "Interface ib0 configuration is missing, creating it with default MTU (2044)");
    }

bail:
    bn_binding_free(&binding);
    ts_free(&new_hostname);
    return err;
}

int ovd_query_port_config(void)
{
    int err = 0;
    err = ovd_replay_port_tree("/ib/config/internalports", "ovd_query_config internal");
    bail_error(err);
    err = ovd_replay_port_tree("/ib/config/externalports", "ovd_query_config external");
    bail_error(err);
bail:
    return err;
}

int ovd_handle_change(const bn_binding_array *arr, uint32 idx, bn_binding *binding, void *data)
{
    (void)arr;
    (void)idx;
    int err = 0;
    const tstring *bname = nullptr;
    tstr_array *bname_parts = nullptr;
    const bn_binding_array *old_arr = static_cast<const bn_binding_array *>(data);

    bail_null(binding);
    err = bn_binding_get_name(binding, &bname);
    bail_error(err);
    err = bn_binding_get_name_parts(binding, &bname_parts);
    bail_error(err);

    if (strncmp(ts_str(bname), ovd_config_prefix, strlen(ovd_config_prefix)) == 0) {
        err = ovd_handle_config_node(bname, bname_parts, binding, old_arr);
        bail_error(err);
    } else if (strcmp(ts_str(bname), ovd_hostname_node) == 0) {
        err = ovd_handle_hostname_change_event(bname, bname_parts, binding, old_arr);
        bail_error(err);
    } else if (strncmp(ts_str(bname), ovd_swid_config_prefix,
                       strlen(ovd_swid_config_prefix)) == 0) {
        err = ovd_handle_swid_change(bname, bname_parts, binding, old_arr);
        bail_error(err);
    }

bail:
    tstr_array_free(&bname_parts);
    return err;
}

int ovd_handle_config_node(const tstring *bname, tstr_array *bname_parts, bn_binding *binding,
                           const bn_binding_array *old_arr)
{
    int err = 0;
    uint32 num_parts = 0;
    const char *leaf = nullptr;
    const tstring *ifindex = nullptr;

    bail_null(bname);
    bail_null(bname_parts);
    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, ts_str(bname));
    num_parts = tstr_array_length_quick(bname_parts);

    if (num_parts == 4) {
        // A port node itself, or a leaf such as locallinks/time_to_settle that is read
        // only at start.
        goto bail;
    }
    if (num_parts != 5) {
        lc_log_basic(LOG_WARNING, "%s: Unhandled node '%s'", __func__, ts_str(bname));
        goto bail;
    }
    leaf = tstr_array_get_str_quick(bname_parts, 4);
    ifindex = tstr_array_get_quick(bname_parts, 3);
    if (strcmp(leaf, "enable") == 0) {
        err = ovd_handle_ib_port_enable_config_status(bname, bname_parts, binding, old_arr,
                                                      ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "speed") == 0) {
        err = ovd_handle_ib_port_speed_config_status(bname, bname_parts, binding, old_arr,
                                                     ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "width") == 0) {
        err = ovd_handle_ib_port_width_config_status(bname, bname_parts, binding, old_arr,
                                                     ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "mtu") == 0) {
        err = ovd_handle_ib_port_mtu_config_status(bname, bname_parts, binding, old_arr, ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "op_vls") == 0) {
        err = ovd_handle_ib_port_op_vls_config_status(bname, bname_parts, binding, old_arr,
                                                      ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "fec") == 0) {
        err = ovd_handle_ib_port_fec_config_status(bname, binding, ifindex);
        bail_error(err);
    } else if (strcmp(leaf, "port") == 0 || strcmp(leaf, "switch") == 0 ||
               strcmp(leaf, "slot") == 0) {
        // Kept by the configuration for its own use.
    } else {
        lc_log_basic(LOG_WARNING, "%s: Unknown node '%s'", __func__, ts_str(bname));
    }

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int ovd_handle_hostname_change_event(const tstring *bname, tstr_array *bname_parts,
                                     bn_binding *binding, const bn_binding_array *old_arr)
{
    (void)bname;
    (void)bname_parts;
    (void)old_arr;
    int err = 0;
    tstring *new_hostname = nullptr;
    tstring *sys_disp = nullptr;

    bail_null(binding);
    err = bn_binding_get_tstr(binding, ba_value, bt_hostname, nullptr, &new_hostname);
    bail_error(err);
    ts_free(&hostname);
    hostname = new_hostname;
    new_hostname = nullptr;
    lc_log_basic(LOG_NOTICE, "Setting Hostname: %s", ts_str_maybe_empty(hostname));

    err = mdc_get_binding_tstr(ovd_mcc, nullptr, nullptr, nullptr, &sys_disp,
                               "/system/chassis/sys_disp_str", nullptr);
    bail_error(err);
    if (ts_str_maybe_empty(sys_disp)[0] == '\0') {
        lc_log_basic(LOG_WARNING, "%s Read an empty system display, will read it from i2c.",
                     __func__);
    }

    for (uint32 devid = 0; devid < OVD_NUM_DEVICES; ++devid) {
        const devinfo *dev = devsinfo[devid];
        if (dev == nullptr) {
            continue;
        }
        for (uint32 swid = 0; swid < OVD_NUM_SWIDS; ++swid) {
            if (swidapi_handles[swid] == nullptr) {
                continue;
            }
            err = sa_set_node_ndesc(swidapi_handles[swid], devid, ts_str(hostname),
                                    static_cast<int>(dev->slot_id),
                                    static_cast<subsystem_type_t>(dev->subsystem_type),
                                    ts_str_maybe_empty(sys_disp), dev->index_inside_slot);
            if (err != 0) {
                lc_log_source(LOG_DEBUG, "Unable to set node desc. Error was: %d %s\n", err,
                              sysapi_err2str(err));
                goto bail;
            }
        }
    }

bail:
    ts_free(&new_hostname);
    ts_free(&sys_disp);
    return err;
}
