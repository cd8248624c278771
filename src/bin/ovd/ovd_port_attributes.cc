// The port attribute handlers, the capability write with its down/up bounce, and the port's
// administrative state.
#include "ovd_port_attributes.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "mdc_main.h"
#include "ovd_ekey.h"
#include "ovd_main.h"
#include "ovd_port_config.h"
#include "ovd_port_values.h"
#include "ovd_speed_limits.h"

namespace {

ovd_port_settle_hook_t g_port_settle_hook = nullptr;

// The configuration text that leaves "mtu" and "fec" at their defaults.
constexpr const char *kConfigTextNotSet = "-1";

// What the handlers know of a port before they act.
struct ovd_port_lookup {
    tbool port_exists;
    ifindexInformation *port_info;
    tbool config_exists;
    port_config_parameters_t *port_config;
};

int ovd_port_lookup_get(const tstring *ifindex, ovd_port_lookup *ret_lookup)
{
    int err = 0;
    void *value = nullptr;

    bail_null(ret_lookup);
    memset(ret_lookup, 0, sizeof(*ret_lookup));
    bail_null(ifindex);
    bail_null(ifindex_to_config_ht);

    err = checkIfPortExists(ifindex, &ret_lookup->port_info, &ret_lookup->port_exists);
    bail_error(err);
    err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &ret_lookup->config_exists,
                    nullptr, nullptr, &value);
    bail_error(err);
    ret_lookup->port_config = static_cast<port_config_parameters_t *>(value);
    if (ret_lookup->config_exists) {
        bail_null(ret_lookup->port_config);
    }

bail:
    return err;
}

// A port whose hardware this daemon may write: it exists and its SWID is served here.
tbool ovd_port_is_reachable(const ovd_port_lookup *lookup)
{
    return lookup->port_exists && lookup->port_info != nullptr &&
           ovd_swid_is_served(lookup->port_info->assigned_to_swid);
}

// The record that the handler's value goes into: the stored one, or a fresh one in
// *new_config that ovd_port_config_commit stores afterwards.
port_config_parameters_t *ovd_port_config_record(const ovd_port_lookup *lookup,
                                                 port_config_parameters_t *new_config)
{
    if (lookup->config_exists) {
        return lookup->port_config;
    }
    port_config_init_values(new_config);
    return new_config;
}

int ovd_port_config_commit(const tstring *ifindex, const ovd_port_lookup *lookup,
                           port_config_parameters_t *new_config)
{
    int err = 0;

    if (lookup->config_exists) {
        goto bail;
    }
    // The table copies key and record.
    err = ht_insert(ifindex_to_config_ht, const_cast<tstring *>(ifindex), ts_length(ifindex),
                    new_config);
    bail_error(err);

bail:
    return err;
}

// A deleted configuration node: the port goes back to its defaults.
int ovd_port_config_deleted(const char *attribute_title, const tstring *ifindex,
                            const ovd_port_lookup *lookup)
{
    int err = 0;

    if (lookup->port_exists && lookup->port_info != nullptr) {
        lc_log_basic(LOG_NOTICE,
                     "OVD handles IB label port: [%u], ifindex: [%s], [%s] configuration deletion",
                     static_cast<uint32>(lookup->port_info->label_port), ts_str(ifindex),
                     attribute_title);
    } else {
        lc_log_source(LOG_WARNING, "OVD should hold ifindex: [%s]", ts_str(ifindex));
    }
    err = handle_deleted_port_config(ifindex, lookup->port_exists, lookup->config_exists,
                                     lookup->port_info, true, true, true);
    bail_error(err);

bail:
    return err;
}

void ovd_log_missing_config(const char *func, const tstring *ifindex)
{
    lc_log_basic(LOG_WARNING, "%s: ifindex: [%s] supposed to be in configuration DB", func,
                 ts_str(ifindex));
}

// The enable leaf on an e-key blade system.
int ovd_port_enable_ekey_blade(ifindexInformation *port_info, uint8 enable_status)
{
    int err = 0;
    ekeyInfo *ekey_status_val = nullptr;

    if (enable_status != 0) {
        err = get_label_port_ekey_status(port_info->label_port, &ekey_status_val);
        bail_error(err);
        bail_null(ekey_status_val);
        if (ekey_status_val->enable != 0 && !port_info->configured_state) {
            err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                        port_info->label_port, port_info->assigned_to_swid,
                                        PORT_UP);
            bail_error(err);
            port_info->configured_state = true;
            ovd_port_settle();
        }
    } else if (port_info->configured_state) {
        err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                    port_info->label_port, port_info->assigned_to_swid,
                                    PORT_DOWN);
        bail_error(err);
        port_info->configured_state = false;
        ovd_port_settle();
    }

bail:
    return err;
}

} // namespace

void ovd_device_log_name(uint32 dev_id, const char **ret_name, int *ret_index)
{
    const devinfo *dev = dev_id < OVD_NUM_DEVICES ? devsinfo[dev_id] : nullptr;

    *ret_name = dev != nullptr ? ts_str_maybe_empty(dev->subsystem_name) : "";
    *ret_index = dev != nullptr ? static_cast<int>(dev->index_inside_slot) : 0;
}

const char *ovd_device_name(uint32 dev_id)
{
    const char *name = "";
    int index = 0;
    ovd_device_log_name(dev_id, &name, &index);
    return name;
}

void ovd_port_set_settle_hook(ovd_port_settle_hook_t hook)
{
    g_port_settle_hook = hook;
}

void ovd_port_settle(void)
{
    if (g_port_settle_hook != nullptr) {
        g_port_settle_hook(OVD_PORT_SETTLE_USEC);
        return;
    }
    usleep(OVD_PORT_SETTLE_USEC);
}

// ---------------------------------------------------------------------------------------
// Handlers

int ovd_handle_ib_port_enable_config_status(const tstring *bname, const tstr_array *bname_parts,
                                            const bn_binding *binding,
                                            const bn_binding_array *old_arr,
                                            const tstring *ifindex)
{
    (void)bname_parts;
    (void)old_arr;
    int err = 0;
    ovd_port_lookup lookup{};
    uint32 flagged_type = 0;
    uint8 enable_status = OVD_CONFIG_NOT_SET;
    ifindexInformation *port_info = nullptr;
    port_config_parameters_t new_config{};
    port_config_parameters_t *record = nullptr;

    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, ts_str_maybe(bname));
    bail_null(binding);

    err = ovd_port_lookup_get(ifindex, &lookup);
    bail_error(err);
    err = bn_binding_get_uint8(binding, ba_value, &flagged_type, &enable_status);
    bail_error(err);

    if (flagged_type & btf_deleted) {
        err = ovd_port_config_deleted("ENABLE", ifindex, &lookup);
        bail_error(err);
        goto bail;
    }

    port_info = lookup.port_info;
    if (enable_status < OVD_CONFIG_NOT_SET && ovd_port_is_reachable(&lookup)) {
        if (g_ekey_system != regular_system) {
            // The chassis manager's e-key of the label port has the last word: an enable
            // brings the port up only while the e-key allows it, a disable takes it down if
            // it is up.  A port the e-key holds down keeps the wish in the record alone.
            err = ovd_port_enable_ekey_blade(port_info, enable_status);
            bail_error(err);
        } else if (static_cast<uint8>(port_info->configured_state) != enable_status) {
            err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                        port_info->label_port, port_info->assigned_to_swid,
                                        enable_status != 0 ? PORT_UP : PORT_DOWN);
            bail_error(err);
            port_info->configured_state = enable_status != 0;
            ovd_port_settle();
        }
    }

    record = ovd_port_config_record(&lookup, &new_config);
    if (enable_status < OVD_CONFIG_NOT_SET) {
        record->enable = enable_status;
    }
    err = ovd_port_config_commit(ifindex, &lookup, &new_config);
    bail_error(err);

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int ovd_handle_ib_port_speed_config_status(const tstring *bname, const tstr_array *bname_parts,
                                           const bn_binding *binding,
                                           const bn_binding_array *old_arr,
                                           const tstring *ifindex)
{
    (void)bname_parts;
    (void)old_arr;
    int err = 0;
    ovd_port_lookup lookup{};
    uint32 flagged_type = 0;
    uint8 speed_val = OVD_CONFIG_NOT_SET;
    uint8 port_max_speed_limit = 0;
    uint8 speed_to_apply = 0;
    ifindexInformation *port_info = nullptr;
    port_config_parameters_t new_config{};
    port_config_parameters_t *record = nullptr;

    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, ts_str_maybe(bname));
    bail_null(binding);

    err = bn_binding_get_uint8(binding, ba_value, &flagged_type, &speed_val);
    bail_error(err);
    err = ovd_port_lookup_get(ifindex, &lookup);
    bail_error(err);

    if (flagged_type & btf_deleted) {
        err = ovd_port_config_deleted("SPEED", ifindex, &lookup);
        bail_error(err);
        goto bail;
    }

    port_info = lookup.port_info;
    if (ovd_port_is_reachable(&lookup)) {
        err = get_port_max_speed_limit(port_info->port_direction, port_info->devid,
                                       port_info->label_port, &port_max_speed_limit);
        bail_error(err);
        if (speed_val == OVD_CONFIG_NOT_SET) {
            speed_val = port_max_speed_limit;
        }
        // The wish is kept as given; the port gets what today's limit allows, even nothing.
        speed_to_apply = speed_val & port_max_speed_limit;
        if (port_info->active_speed != speed_to_apply) {
            if (lookup.config_exists) {
                err = setIbPortAttribute(port_info, &speed_to_apply, "speed");
                bail_error(err);
                port_info->active_speed = speed_to_apply;
            } else {
                ovd_log_missing_config(__func__, ifindex);
            }
        }
    }

    // Stored even when it means the default.
    record = ovd_port_config_record(&lookup, &new_config);
    record->speed = speed_val;
    err = ovd_port_config_commit(ifindex, &lookup, &new_config);
    bail_error(err);

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

namespace {

// "width" and "op_vls": a uint8 leaf whose change is judged against the record.
int ovd_handle_uint8_attribute(const char *func, const char *attribute,
                               const char *attribute_title,
                               uint8 port_config_parameters_t::*field,
                               const tstring *bname, const bn_binding *binding,
                               const tstring *ifindex)
{
    int err = 0;
    ovd_port_lookup lookup{};
    uint32 flagged_type = 0;
    uint8 value = OVD_CONFIG_NOT_SET;
    port_config_parameters_t new_config{};
    port_config_parameters_t *record = nullptr;

    lc_log_basic(LOG_DEBUG, "%s: <= %s", func, ts_str_maybe(bname));
    bail_null(binding);

    err = bn_binding_get_uint8(binding, ba_value, &flagged_type, &value);
    bail_error(err);
    err = ovd_port_lookup_get(ifindex, &lookup);
    bail_error(err);

    if (flagged_type & btf_deleted) {
        err = ovd_port_config_deleted(attribute_title, ifindex, &lookup);
        bail_error(err);
        goto bail;
    }

    if (value < OVD_CONFIG_NOT_SET && ovd_port_is_reachable(&lookup)) {
        if (!lookup.config_exists) {
            ovd_log_missing_config(func, ifindex);
        } else if (lookup.port_config->*field != value) {
            err = setIbPortAttribute(lookup.port_info, &value, attribute);
            bail_error(err);
        }
    }

    record = ovd_port_config_record(&lookup, &new_config);
    if (value < OVD_CONFIG_NOT_SET) {
        record->*field = value;
    }
    err = ovd_port_config_commit(ifindex, &lookup, &new_config);
    bail_error(err);

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", func, err);
    return err;
}

} // namespace

int ovd_handle_ib_port_width_config_status(const tstring *bname, const tstr_array *bname_parts,
                                           const bn_binding *binding,
                                           const bn_binding_array *old_arr,
                                           const tstring *ifindex)
{
    (void)bname_parts;
    (void)old_arr;
    return ovd_handle_uint8_attribute(__func__, "width", "WIDTH",
                                      &port_config_parameters_t::width, bname, binding, ifindex);
}

int ovd_handle_ib_port_op_vls_config_status(const tstring *bname, const tstr_array *bname_parts,
                                            const bn_binding *binding,
                                            const bn_binding_array *old_arr,
                                            const tstring *ifindex)
{
    (void)bname_parts;
    (void)old_arr;
    return ovd_handle_uint8_attribute(__func__, "op_vls", "OP VLS",
                                      &port_config_parameters_t::op_vls, bname, binding, ifindex);
}

int ovd_handle_ib_port_mtu_config_status(const tstring *bname, const tstr_array *bname_parts,
                                         const bn_binding *binding,
                                         const bn_binding_array *old_arr,
                                         const tstring *ifindex)
{
    (void)bname_parts;
    (void)old_arr;
    int err = 0;
    ovd_port_lookup lookup{};
    uint32 flagged_type = 0;
    char *mtu_str = nullptr;
    uint16 mtu_val = OVD_CONFIG_NOT_SET;
    port_config_parameters_t new_config{};
    port_config_parameters_t *record = nullptr;

    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, ts_str_maybe(bname));
    bail_null(binding);

    err = bn_binding_get_str(binding, ba_value, bt_string, &flagged_type, &mtu_str);
    bail_error(err);
    err = ovd_port_lookup_get(ifindex, &lookup);
    bail_error(err);

    if (flagged_type & btf_deleted) {
        err = ovd_port_config_deleted("MTU", ifindex, &lookup);
        bail_error(err);
        goto bail;
    }

    if (safe_strcmp(mtu_str, kConfigTextNotSet) != 0) {
        err = get_mtu_val(mtu_str, &mtu_val);
        bail_error(err);
        if (ovd_port_is_reachable(&lookup)) {
            if (!lookup.config_exists) {
                ovd_log_missing_config(__func__, ifindex);
            } else if (lookup.port_config->mtu != mtu_val) {
                err = setIbPortAttribute(lookup.port_info, mtu_str, "mtu");
                bail_error(err);
            }
        }
    }

    record = ovd_port_config_record(&lookup, &new_config);
    if (mtu_val != OVD_CONFIG_NOT_SET) {
        record->mtu = mtu_val;
    }
    err = ovd_port_config_commit(ifindex, &lookup, &new_config);
    bail_error(err);

bail:
    free(mtu_str);
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int ovd_handle_ib_port_fec_config_status(const tstring *bname, const bn_binding *binding,
                                         const tstring *ifindex)
{
    int err = 0;
    ovd_port_lookup lookup{};
    uint32 flagged_type = 0;
    char *fec_str = nullptr;
    uint8 new_fec = OVD_CONFIG_NOT_SET;
    port_config_parameters_t new_config{};
    port_config_parameters_t *record = nullptr;

    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, ts_str_maybe(bname));
    bail_null(binding);

    err = bn_binding_get_str(binding, ba_value, bt_string, &flagged_type, &fec_str);
    bail_error(err);
    err = ovd_port_lookup_get(ifindex, &lookup);
    bail_error(err);

    if (flagged_type & btf_deleted) {
        if (lookup.port_exists && lookup.port_info != nullptr) {
            lc_log_basic(LOG_NOTICE,
                         "OVD handles IB label port: [%u], ifindex: [%s], [FEC] configuration deletion",
                         static_cast<uint32>(lookup.port_info->label_port), ts_str(ifindex));
        } else {
            lc_log_source(LOG_WARNING, "OVD should hold ifindex: [%s]", ts_str(ifindex));
        }
        // A port this daemon doesn't hold has no FEC to reset.
        bail_null(lookup.port_info);
        err = handle_deleted_port_config(ifindex, lookup.port_exists, lookup.config_exists,
                                         lookup.port_info, true, true, true);
        bail_error(err);
        goto bail;
    }

    if (fec_str != nullptr && strcmp(fec_str, kConfigTextNotSet) != 0) {
        err = get_fec_val(fec_str, &new_fec);
        bail_error(err);
        if (ovd_port_is_reachable(&lookup)) {
            if (!lookup.config_exists) {
                ovd_log_missing_config(__func__, ifindex);
            } else if (lookup.port_config->fec != new_fec) {
                err = setIbPortAttribute(lookup.port_info, fec_str, "fec");
                bail_error(err);
            }
        }
    }

    record = ovd_port_config_record(&lookup, &new_config);
    if (new_fec != OVD_CONFIG_NOT_SET) {
        record->fec = new_fec;
    }
    err = ovd_port_config_commit(ifindex, &lookup, &new_config);
    bail_error(err);

bail:
    free(fec_str);
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

// ---------------------------------------------------------------------------------------
// Hardware

int setIbPortAttribute(ifindexInformation *port_info, void *data, const char *attribute)
{
    int err = 0;
    sa_port_capability_t capability;
    uint32 mask = 0;
    const char *dev_name = "";
    int dev_index = 0;
    uint8 value = 0;
    const char *text = nullptr;
    tstring *value_text = nullptr;

    memset(&capability, 0, sizeof(capability));
    bail_null(port_info);
    bail_null(data);
    bail_null(attribute);

    if (!ovd_swid_is_served(port_info->assigned_to_swid)) {
        goto bail;
    }
    ovd_device_log_name(port_info->devid, &dev_name, &dev_index);

    if (strcmp(attribute, "speed") == 0) {
        value = *static_cast<const uint8 *>(data);
        capability.link_speed_supported = value;
        mask = SPC_LINK_SPEED;
        err = sa_port_prm_link_speed_to_tstr(&value_text, value);
        bail_error(err);
        lc_log_basic(LOG_NOTICE, "New [SPEED] of [%u,%s/%d %u] is: [%u, %s] (PTYS)",
                     port_info->devid, dev_name, dev_index,
                     static_cast<uint32>(port_info->label_port), static_cast<uint32>(value),
                     ts_str_maybe_empty(value_text));
    } else if (strcmp(attribute, "width") == 0) {
        value = *static_cast<const uint8 *>(data);
        capability.link_width_supported = value;
        mask = SPC_LINK_WIDTH;
        err = sa_port_prm_link_width_to_tstr(&value_text, value);
        bail_error(err);
        lc_log_basic(LOG_NOTICE, "New [WIDTH] of [%u,%s/%d %u] is: [%u, %s] (PTYS)",
                     port_info->devid, dev_name, dev_index,
                     static_cast<uint32>(port_info->label_port), static_cast<uint32>(value),
                     ts_str_maybe_empty(value_text));
    } else if (strcmp(attribute, "mtu") == 0) {
        text = static_cast<const char *>(data);
        err = get_mtu_val(text, &capability.mtu_cap);
        bail_error(err);
        mask = SPC_MTU_CAP;
        lc_log_basic(LOG_NOTICE, "New [MTU] of [%u,%s/%d %u]  is: [%u, %s] (PMTU)",
                     port_info->devid, dev_name, dev_index,
                     static_cast<uint32>(port_info->label_port),
                     static_cast<uint32>(capability.mtu_cap), text);
    } else if (strcmp(attribute, "op_vls") == 0) {
        value = *static_cast<const uint8 *>(data);
        capability.vl_cap = value;
        mask = SPC_VL_CAP;
        err = sa_port_prm_vl_to_tstr(&value_text, value);
        bail_error(err);
        lc_log_basic(LOG_NOTICE, "New [VL CAP] of [%u,%s/%d %u] is: [%u, %s] (PVLC)",
                     port_info->devid, dev_name, dev_index,
                     static_cast<uint32>(port_info->label_port), static_cast<uint32>(value),
                     ts_str_maybe_empty(value_text));
    } else if (strcmp(attribute, "fec") == 0) {
        text = static_cast<const char *>(data);
        err = get_fec_val(text, &capability.fec_cap);
        bail_error(err);
        mask = SPC_FEC_CAP;
        lc_log_basic(LOG_NOTICE, "New [FEC] of [%u,%s/%d %u]  is: [%u, %s] (PPLM)",
                     port_info->devid, dev_name, dev_index,
                     static_cast<uint32>(port_info->label_port),
                     static_cast<uint32>(capability.fec_cap), text);
    } else {
        lc_log_basic(LOG_WARNING, "%s: Unknown port attribute '%s'", __func__, attribute);
        bail_force(lc_err_unexpected_case);
    }

    if (port_info->configured_state) {
        // A running port is taken down around the write and comes back as it was.
        err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                    port_info->label_port, port_info->assigned_to_swid,
                                    PORT_DOWN);
        bail_error(err);
        ovd_port_settle();
    }
    err = sa_set_port_admin_cap(port_info->assigned_to_swid,
                                static_cast<vqd_dev_id_t>(port_info->devid),
                                port_info->localport, &capability, mask,
                                static_cast<system_type_t>(g_sys_type));
    if (err != 0) {
        // A running port stays down.
        lc_log_basic(LOG_NOTICE, "Unable to set port admin capabilities. Error was: %d %s\n", err,
                     sysapi_err2str(err));
        goto bail;
    }
    if (port_info->configured_state) {
        err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                    port_info->label_port, port_info->assigned_to_swid, PORT_UP);
        bail_error(err);
    }

bail:
    ts_free(&value_text);
    return err;
}

int ovd_set_paos_register(uint32 dev_id, uint8 local_port, uint8 label_port, uint8 swid,
                          sa_port_state_t state)
{
    int err = 0;
    const char *dev_name = "";
    int dev_index = 0;
    tbool enable_pude = false;

    if (!ovd_swid_is_served(swid)) {
        lc_log_source(LOG_WARNING, "OVD isn't supposed to set(PAOS) label port: [%u], device: [%u]",
                      static_cast<uint32>(label_port), dev_id);
        goto bail;
    }

    ovd_device_log_name(dev_id, &dev_name, &dev_index);
    lc_log_basic(LOG_INFO,
                 "set port: [%s] (PAOS), Device id: [%s/%d, %u], label port: [%u], local port [%u]\n",
                 state == PORT_UP ? "UP" : "DOWN", dev_name, dev_index, dev_id,
                 static_cast<uint32>(label_port), static_cast<uint32>(local_port));

    // Only a standalone system arms the port's up/down events with the state.
    enable_pude = sah_sqry_ib_is_standalone(static_cast<system_type_t>(system_type));
    err = sa_set_port_enabled(swid, static_cast<vqd_dev_id_t>(dev_id), local_port, state,
                              enable_pude);
    if (err != 0) {
        lc_log_source(LOG_DEBUG, "Unable to set port status. Error was: %d %s\n", err,
                      sysapi_err2str(err));
        goto bail;
    }

bail:
    return err;
}

int change_port_state(const tstring *ifindex, ifindexInformation *port_info, tbool state)
{
    int err = 0;

    bail_null(port_info);
    if (!ovd_swid_is_served(port_info->assigned_to_swid)) {
        lc_log_source(LOG_WARNING,
                      "OVD got request to enable (PAOS) label port: [%u] for device: [%d] which "
                      "doesn't belong to him. Wrong Behavior",
                      static_cast<uint32>(port_info->label_port), static_cast<int>(port_info->devid));
        goto bail;
    }

    lc_log_basic(LOG_NOTICE, "%s port %s  direction %d", state ? "enable" : "disable",
                 ts_str_maybe(ifindex), static_cast<int>(port_info->port_direction));
    err = ovd_set_paos_register(port_info->devid, port_info->localport, port_info->label_port,
                                port_info->assigned_to_swid, state ? PORT_UP : PORT_DOWN);
    bail_error(err);
    port_info->configured_state = state;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Configuration write-back

int ovd_config_port_enable_msg_create(const char *ifindex, const ifindexInformation *p_iinfo,
                                      uint8 enable_val, bn_request **ret_msg)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding *binding = nullptr;
    const char *family = nullptr;
    char name[200];

    bail_null(ret_msg);
    *ret_msg = nullptr;
    bail_null(ifindex);
    bail_null(p_iinfo);

    family = p_iinfo->port_direction == SYS_PORT_DIRECTION_EXT ? "externalports" : "internalports";
    err = bn_set_request_msg_create(&req, 0);
    bail_error(err);

    snprintf(name, sizeof(name), "/ib/config/%s/%s/slot", family, ifindex);
    err = bn_binding_new_uint32(&binding, name, ba_value, 0, p_iinfo->devid);
    bail_error(err);
    err = bn_set_request_msg_append_binding_takeover(req, bsso_modify, 0, &binding, nullptr);
    bail_error(err);

    snprintf(name, sizeof(name), "/ib/config/%s/%s/port", family, ifindex);
    err = bn_binding_new_uint32(&binding, name, ba_value, 0, p_iinfo->label_port);
    bail_error(err);
    err = bn_set_request_msg_append_binding_takeover(req, bsso_modify, 0, &binding, nullptr);
    bail_error(err);

    snprintf(name, sizeof(name), "/ib/config/%s/%s/enable", family, ifindex);
    err = bn_binding_new_uint8(&binding, name, ba_value, 0, enable_val);
    bail_error(err);
    err = bn_set_request_msg_append_binding_takeover(req, bsso_modify, 0, &binding, nullptr);
    bail_error(err);

    *ret_msg = req;
    req = nullptr;

bail:
    bn_binding_free(&binding);
    bn_request_msg_free(&req);
    return err;
}

int ovd_config_port_enable(const char *ifindex, ifindexInformation *p_iinfo, uint8 enable_val)
{
    int err = 0;
    bn_request *req = nullptr;

    err = ovd_config_port_enable_msg_create(ifindex, p_iinfo, enable_val, &req);
    bail_error(err);
    bail_null(req);

    // What mgmtd answers is not looked at here.
    err = mdc_send_mgmt_msg(ovd_mcc, req, false, nullptr, nullptr, nullptr);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

int get_mtu_val(const char *mtu, uint16 *mtu_val)
{
    int err = 0;

    bail_null(mtu);
    bail_null(mtu_val);

    if (strcmp(mtu, "256") == 0) {
        *mtu_val = 256;
    } else if (strcmp(mtu, "512") == 0) {
        *mtu_val = 512;
    } else if (strcmp(mtu, "1K") == 0) {
        *mtu_val = 1024;
    } else if (strcmp(mtu, "2K") == 0) {
        *mtu_val = 2048;
    } else if (strcmp(mtu, "4K") == 0) {
        *mtu_val = 4096;
    } else {
        lc_log_basic(LOG_WARNING, "%s: Illegal mtu value %s ", __func__, mtu);
        err = lc_err_unexpected_case;
        goto bail;
    }

bail:
    return err;
}
