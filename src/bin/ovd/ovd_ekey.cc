// E-key blade systems: the controller's ready and change events, and the PAOS writes that
// follow a port's E-key.
#include "ovd_ekey.h"

#include <cstdio>

#include "chassis_helper.h"
#include "logging.h"
#include "mdc_main.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_enable.h"
#include "tstr_array.h"
#include "tstring.h"

ekeyBladeSystem g_ekey_system = regular_system;

namespace {

// The controllers' trees of E-keys; the backslash keeps "/VQ" one part of the name.
const char ovd_brelld_ekey_node_fmt[] = "/brelld/state/ekey/\\%s/%u/enable";
const char ovd_cme_ekey_node_fmt[] = "/cme/state/ekey/\\%s/%u/enable";
const char ovd_ekey_node_prefix[] = "/VQ";

// Subsystem types of the blades whose ports carry E-keys.
constexpr uint32 ovd_ekey_subsystem_types[] = {38, 39, 33};

constexpr uint8 ovd_first_label_port = 1;
constexpr uint8 ovd_last_label_port = 64;

tbool ovd_is_ekey_subsystem(uint32 subsystem_type)
{
    for (const uint32 type : ovd_ekey_subsystem_types) {
        if (type == subsystem_type) {
            return true;
        }
    }
    return false;
}

const char *ovd_sys_type_name(void)
{
    return system_type2str(static_cast<int>(g_sys_type));
}

// Reads one bt_uint8 binding of an event; a missing one is lc_err_unexpected_null.
int ovd_ekey_event_uint8(const bn_binding_array *bindings, const char *name, uint8 *ret_val)
{
    int err = 0;
    bn_binding *found = nullptr;

    err = bn_binding_array_get_binding_by_name(bindings, name, &found);
    bail_error(err);
    bail_null(found);
    err = bn_binding_get_uint8(found, ba_value, nullptr, ret_val);
    bail_error(err);

bail:
    return err;
}

int ovd_ekey_event_tbool(const bn_binding_array *bindings, const char *name, tbool *ret_val)
{
    int err = 0;
    bn_binding *found = nullptr;

    err = bn_binding_array_get_binding_by_name(bindings, name, &found);
    bail_error(err);
    bail_null(found);
    err = bn_binding_get_tbool(found, ba_value, nullptr, ret_val);
    bail_error(err);

bail:
    return err;
}

}  // namespace

int check_if_ekey_blade_system(ekeyBladeSystem *ret_system)
{
    int err = 0;

    bail_null(ret_system);
    switch (g_sys_type) {
    case 24:
    case 25:
        *ret_system = brell_system;
        break;
    case 18:
        *ret_system = cme_system;
        break;
    default:
        *ret_system = regular_system;
        break;
    }

bail:
    return err;
}

namespace {

// A controller's ready event: handled on its own kind of blade, refused on any other.
int ovd_handle_controller_ready_event(const char *controller, ekeyBladeSystem kind)
{
    int err = 0;

    lc_log_basic(LOG_NOTICE, "OVD handling %s ready event", controller);
    if (g_ekey_system != kind) {
        lc_log_basic(LOG_ERR,
                     "Wrong Behaviour at OVD. %s ready event shouldn't have been sent at %s, "
                     "%u system type",
                     kind == brell_system ? "Brelld" : controller, ovd_sys_type_name(),
                     g_sys_type);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = ovd_handle_ekey_blade_ready_event();
    bail_error(err);

bail:
    return err;
}

}  // namespace

int ovd_handle_brelld_ready_event(void)
{
    return ovd_handle_controller_ready_event("brelld", brell_system);
}

int ovd_handle_cme_ready_event(void)
{
    return ovd_handle_controller_ready_event("cmed", cme_system);
}

int ovd_handle_ekey_blade_ready_event(void)
{
    int err = 0;
    uint32 devid = 0;
    uint8 local_ports_array[OVD_NUM_LOCAL_PORT_SLOTS] = {};

    g_handled_ekey_blade_ready_event = true;
    if (!g_handled_enable_port_event) {
        // The enable flow finds the flag when it comes.
        goto bail;
    }
    err = set_ekey_blade_paos_to_ports(&devid, local_ports_array);
    bail_error(err);
    // The answer the enable flow held back.
    err = ovd_send_device_port_enable_done_event(0, devid, PORT_ENABLE_INIT, local_ports_array);
    bail_error(err);

bail:
    return err;
}

int set_ekey_blade_paos_to_ports(uint32 *ret_devid, uint8 *local_ports_array)
{
    int err = 0;
    tstr_array *ports = nullptr;

    bail_null(ret_devid);
    bail_null(local_ports_array);
    err = tstr_array_new(&ports, nullptr);
    bail_error(err);
    err = get_ports_ifindex_arr(ports);
    bail_error(err);
    if (tstr_array_length_quick(ports) == 0) {
        lc_log_basic(LOG_ERR, "Wrong behaviour. Add device and enable event should have been sent\n");
        err = lc_err_generic_error;
        goto bail;
    }

    for (uint32 i = 0; i < tstr_array_length_quick(ports); ++i) {
        const tstring *key = tstr_array_get_quick(ports, i);
        ifindexInformation *port = nullptr;
        tbool exists = false;
        uint32 ifindex_val = 0;
        uint8 user_status = OVD_CONFIG_NOT_SET;
        tbool state = false;

        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr || !ovd_swid_is_served(port->assigned_to_swid)) {
            continue;
        }
        // A blade has its ports on one device: the last one stands.
        *ret_devid = port->devid;
        user_status = ovd_config_enable(__func__, key);
        if (port->localport <= OVD_MAX_LOCAL_PORT) {
            local_ports_array[port->localport] = 1;
        }
        err = lc_str_to_uint32(ts_str(key), &ifindex_val);
        bail_error(err);
        err = configure_ekey_blade_paos(port->label_port, port->devid, port->localport,
                                        user_status, ifindex_val, port->assigned_to_swid,
                                        &state);
        port->configured_state = state;
        bail_error(err);
        port->enable_port_time = lt_sys_uptime_ms();
    }

bail:
    tstr_array_free(&ports);
    return err;
}

int configure_ekey_blade_paos(uint8 label_port, uint32 devid, uint8 lcl_port,
                              uint8 user_enable_status, uint32 ifindex, uint8 swid,
                              tbool *ret_configured_state)
{
    int err = 0;
    const char *node_fmt = nullptr;
    char node_name[100] = {};
    bn_binding *binding = nullptr;
    tbool ekey = false;
    sa_port_state_t state = PORT_DOWN;

    bail_null(ret_configured_state);
    if (devid > OVD_MAX_DEVICE_ID || devsinfo[devid] == nullptr) {
        lc_log_basic(LOG_ERR, "Wrong behaviour. Device id %u should have already been added to OVD",
                     devid);
        err = lc_err_generic_error;
        goto bail;
    }
    if (g_ekey_system == brell_system) {
        node_fmt = ovd_brelld_ekey_node_fmt;
    } else if (g_ekey_system == cme_system) {
        node_fmt = ovd_cme_ekey_node_fmt;
    } else {
        lc_log_basic(LOG_ERR, "%s: Function called from wrong system %u", __func__,
                     static_cast<uint32>(g_ekey_system));
        err = lc_err_unexpected_case;
        goto bail;
    }

    snprintf(node_name, sizeof(node_name), node_fmt, ovd_ekey_node_prefix,
             static_cast<uint32>(label_port));
    err = mdc_get_binding(ovd_mcc, nullptr, nullptr, false, &binding, node_name, nullptr);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "Wrong behaviour. binding name %s doesn't exist \n", node_name);
        err = lc_err_generic_error;
        goto bail;
    }
    err = bn_binding_get_tbool(binding, ba_value, nullptr, &ekey);
    bail_error(err);

    err = init_ekey_table(devid, label_port, ekey ? 1 : 0, ifindex);
    bail_error(err);

    // 255 is a wish nobody stated: up, as far as the E-key allows.
    if (user_enable_status == 0 || !ekey) {
        state = PORT_DOWN;
        *ret_configured_state = false;
    } else {
        state = PORT_UP;
        *ret_configured_state = true;
    }
    err = ovd_set_paos_register(devid, lcl_port, label_port, swid, state);
    if (err != 0) {
        lc_log_source(LOG_DEBUG, "Unable to set port status during ekey flow. Error was: %d %s\n",
                      err, sysapi_err2str(err));
        goto bail;
    }

bail:
    bn_binding_free(&binding);
    return err;
}

int init_ekey_table(uint32 dev_id_info, uint8 label_port, uint8 enable_val, uint32 ifindex)
{
    int err = 0;
    tstring *key = nullptr;
    ekeyInfo record{};

    if (dev_id_info > OVD_MAX_DEVICE_ID || devsinfo[dev_id_info] == nullptr) {
        lc_log_basic(LOG_ERR,
                     "Wrong behaviour. device id: %u should have been added to devsinfo table\n",
                     dev_id_info);
        err = lc_err_generic_error;
        goto bail;
    }
    if (!ovd_is_ekey_subsystem(devsinfo[dev_id_info]->subsystem_type)) {
        goto bail;
    }
    bail_null(labelports_to_ekey_ht);
    err = ts_new_sprintf(&key, "%u", static_cast<uint32>(label_port));
    bail_error(err);
    record.enable = enable_val;
    record.ifindex = ifindex;
    err = ht_insert(labelports_to_ekey_ht, key, ts_length(key), &record);
    if (err != 0) {
        lc_log_source(LOG_ERR, "Unable to add key label port %s to ekey mapping hash table\n",
                      ts_str(key));
        goto bail;
    }

bail:
    ts_free(&key);
    return err;
}

int get_label_port_ekey_status(uint8 label_port, ekeyInfo **ekey_tabel_val)
{
    int err = 0;
    tstring *key = nullptr;
    tbool found = false;
    void *value = nullptr;

    bail_null(ekey_tabel_val);
    *ekey_tabel_val = nullptr;
    bail_null(labelports_to_ekey_ht);
    err = ts_new_sprintf(&key, "%u", static_cast<uint32>(label_port));
    bail_error(err);
    err = ht_lookup(labelports_to_ekey_ht, key, ts_length(key), &found, nullptr, nullptr, &value);
    bail_error(err);
    if (!found || value == nullptr) {
        lc_log_basic(LOG_ERR,
                     "Wrong Behaviour. Ekey value for label port %u should have existed in OVD "
                     "cache\n",
                     static_cast<uint32>(label_port));
        err = lc_err_unexpected_arg;
        goto bail;
    }
    *ekey_tabel_val = static_cast<ekeyInfo *>(value);

bail:
    ts_free(&key);
    return err;
}

int ovd_handle_brelld_port_change_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint8 port = 0;
    tbool enable = false;

    if (g_ekey_system != brell_system) {
        lc_log_basic(LOG_ERR,
                     "Wrong Behaviour at OVD. Ekey port change event shouldn't have been sent at "
                     "%s, %u system type",
                     ovd_sys_type_name(), g_sys_type);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = ovd_ekey_event_uint8(bindings, "port", &port);
    bail_error(err);
    err = ovd_ekey_event_tbool(bindings, "enable", &enable);
    bail_error(err);
    err = ovd_handle_ekey_port_change(port, enable);
    bail_error(err);

bail:
    return err;
}

int ovd_handle_allow_external_ports_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint8 lower_bound = 0;
    uint8 upper_bound = 0;
    tbool enable = false;

    if (g_ekey_system != cme_system) {
        lc_log_basic(LOG_ERR,
                     "Wrong Behaviour at OVD. CME allow external port event shouldn't have been "
                     "sent at %s, %u system type",
                     ovd_sys_type_name(), g_sys_type);
        err = lc_err_unexpected_arg;
        goto bail;
    }
    err = ovd_ekey_event_uint8(bindings, "lower_bound", &lower_bound);
    bail_error(err);
    err = ovd_ekey_event_uint8(bindings, "upper_bound", &upper_bound);
    bail_error(err);
    err = ovd_ekey_event_tbool(bindings, "enable", &enable);
    bail_error(err);
    if (lower_bound > upper_bound) {
        lc_log_basic(LOG_ERR, "%s: Received upper_bound %u and lower_bound %u!", __func__,
                     static_cast<uint32>(upper_bound), static_cast<uint32>(lower_bound));
        goto bail;
    }
    // Both bounds included; the loop runs on a wider counter so that 255 ends it.
    for (uint32 label = lower_bound; label <= upper_bound; ++label) {
        err = ovd_handle_ekey_port_change(static_cast<uint8>(label), enable);
        bail_error(err);
    }

bail:
    return err;
}

int ovd_handle_ekey_port_change(uint8 port, tbool new_status)
{
    int err = 0;
    ekeyInfo *ekey = nullptr;
    tstring *key = nullptr;
    ifindexInformation *port_info = nullptr;
    tbool exists = false;
    uint8 user_status = OVD_CONFIG_NOT_SET;

    if (!g_handled_ekey_blade_ready_event) {
        goto bail;
    }
    if (!g_handled_enable_port_event) {
        // Nothing is kept: the E-key's node at the time of the enable decides.
        lc_log_basic(LOG_NOTICE,
                     "%s: Received ekey change request before receiving port enable event",
                     __func__);
        goto bail;
    }
    if (port < ovd_first_label_port || port > ovd_last_label_port) {
        lc_log_source(LOG_ERR, "Label ID %u exceeds range (%u - %u).", static_cast<uint32>(port),
                      static_cast<uint32>(ovd_first_label_port),
                      static_cast<uint32>(ovd_last_label_port));
        err = lc_err_unexpected_arg;
        goto bail;
    }
    lc_log_basic(LOG_NOTICE,
                 "OVD handles ekey port change status event for label port %u. New ekey status: %s",
                 static_cast<uint32>(port), new_status ? "enable" : "disable");

    err = get_label_port_ekey_status(port, &ekey);
    bail_error(err);
    bail_null(ekey);
    if ((ekey->enable != 0) == (new_status != 0)) {
        goto bail;
    }

    err = ts_new_sprintf(&key, "%u", ekey->ifindex);
    bail_error(err);
    err = checkIfPortExists(key, &port_info, &exists);
    bail_error(err);
    bail_null(port_info);

    if (new_status) {
        user_status = ovd_config_enable(__func__, key);
        // A port its user took down stays down.
        if (user_status != 0 && !port_info->configured_state) {
            err = ovd_set_paos_register(port_info->devid, port_info->localport,
                                        port_info->label_port, port_info->assigned_to_swid,
                                        PORT_UP);
            bail_error(err);
            port_info->configured_state = true;
        }
    } else if (port_info->configured_state) {
        err = ovd_set_paos_register(port_info->devid, port_info->localport, port_info->label_port,
                                    port_info->assigned_to_swid, PORT_DOWN);
        bail_error(err);
        port_info->configured_state = false;
    }
    ekey->enable = new_status ? 1 : 0;

bail:
    ts_free(&key);
    return err;
}
