// The print actions: the daemon's tables written to the system log at level 5, each
// answered with one line.  A rule of 46 stars stands between sections.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "chassis_helper.h"
#include "logging.h"
#include "ovd_actions.h"
#include "ovd_direct_routes.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_ports_cache.h"
#include "ovd_speed_limits.h"

namespace {

const char ovd_print_rule[] = "**********************************************\n";
const char ovd_dr_rule[] = "=============================================\n";

void ovd_print(const char *text)
{
    lc_log_basic(LOG_NOTICE, "%s", text);
}

// The stored tstring key of one of the tables.
const char *ovd_key_str(const void *key)
{
    return ts_str(static_cast<const tstring *>(key));
}

}  // namespace

int handle_ifindexs_hash_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                            const bn_request *action_request)
{
    (void)bindings;
    int err = 0;
    tstr_array *ifindexes = nullptr;
    const char empty_msg[] = "Inconstancy. The ifindexs hash table is not supposed to be empty\n";

    if (ibports_ht == nullptr) {
        lc_log_source(LOG_WARNING, "%s", empty_msg);
        err = ovd_action_respond(sess, action_request, 1, empty_msg);
        bail_error(err);
        goto bail;
    }
    ovd_print("       Ovd dump of ifindexs hash table\n");
    err = tstr_array_new(&ifindexes, nullptr);
    bail_error(err);
    err = get_ports_ifindex_arr(ifindexes);
    bail_error(err);
    for (uint32 i = 0; i < tstr_array_length_quick(ifindexes); ++i) {
        const tstring *key = tstr_array_get_quick(ifindexes, i);
        ifindexInformation *port = nullptr;
        tbool exists = false;
        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            continue;
        }
        ovd_print(ovd_print_rule);
        lc_log_basic(LOG_NOTICE, "Ifindex          : [%s] \n", ts_str(key));
        lc_log_basic(LOG_NOTICE, "Devid            : [%s, %u] \n",
                     ovd_device_name(port->devid), port->devid);
        lc_log_basic(LOG_NOTICE, "Label port       : [%u] \n", static_cast<uint32>(port->label_port));
        lc_log_basic(LOG_NOTICE, "Assigned to swid : [%u] \n",
                     static_cast<uint32>(port->assigned_to_swid));
        lc_log_basic(LOG_NOTICE, "Ibport           : [%u] \n", static_cast<uint32>(port->ibport));
        lc_log_basic(LOG_NOTICE, "Local port       : [%u] \n", static_cast<uint32>(port->localport));
        lc_log_basic(LOG_NOTICE, "Ifindex neighbor : [%u] \n", port->ifindex_neighbor);
        lc_log_basic(LOG_NOTICE, "Active speed     : [%u] \n", static_cast<uint32>(port->active_speed));
        lc_log_basic(LOG_NOTICE, "Configured_state : [%s] \n",
                     port->configured_state ? "true" : "false");
        lc_log_basic(LOG_NOTICE, "Enabled state    : [%s] \n",
                     port->enable_port_time != 0 ? "Enabled" : "Not Enabled");
        ovd_print(port->port_direction == SYS_PORT_DIRECTION_EXT ? "Port type        : [external]\n"
                                                                 : "Port type        : [internal]\n");
        ovd_print(port->bay_port == SYS_PORT_BAY ? "Bay type         : [bay]\n"
                                                 : "Bay type         : [not bay]\n");
    }
    ovd_print(ovd_print_rule);
    err = ovd_action_respond(sess, action_request, 0, "Success print ifindexs hash table");
    bail_error(err);

bail:
    tstr_array_free(&ifindexes);
    return err;
}

int print_config_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                            void *data)
{
    (void)ht;
    (void)key_len;
    (void)data;
    int err = 0;
    const port_config_parameters_t *config = static_cast<const port_config_parameters_t *>(value);
    ifindexInformation *port = nullptr;
    tbool exists = false;

    bail_null(key);
    bail_null(config);
    ovd_print(ovd_print_rule);
    err = checkIfPortExists(static_cast<const tstring *>(key), &port, &exists);
    bail_error(err);
    if (exists && port != nullptr) {
        lc_log_basic(LOG_NOTICE, "Label port: [%u]", static_cast<uint32>(port->label_port));
        lc_log_basic(LOG_NOTICE, "Device    : [%u, %s]", port->devid,
                     ovd_device_name(port->devid));
    }
    lc_log_basic(LOG_NOTICE, "Ifindex   : [%s]", ovd_key_str(key));
    lc_log_basic(LOG_NOTICE, "Enable    : [%u]", static_cast<uint32>(config->enable));
    lc_log_basic(LOG_NOTICE, "Mtu       : [%u]", static_cast<uint32>(config->mtu));
    lc_log_basic(LOG_NOTICE, "Op Vls    : [%u]", static_cast<uint32>(config->op_vls));
    lc_log_basic(LOG_NOTICE, "Speed     : [%u]", static_cast<uint32>(config->speed));
    lc_log_basic(LOG_NOTICE, "Width     : [%u]", static_cast<uint32>(config->width));
    lc_log_basic(LOG_NOTICE, "Fec       : [%u]", static_cast<uint32>(config->fec));

bail:
    return err;
}

int handle_device_ifindex_to_config_print_action(gcl_session *sess,
                                                 const bn_binding_array *bindings,
                                                 const bn_request *action_request)
{
    (void)bindings;
    int err = 0;
    const char empty_msg[] = "Inconstancy. The config hash table is not supposed to be empty\n";

    if (ifindex_to_config_ht == nullptr) {
        lc_log_source(LOG_WARNING, "%s", empty_msg);
        err = ovd_action_respond(sess, action_request, 1, empty_msg);
        bail_error(err);
        goto bail;
    }
    ovd_print("       Ovd dump of configuration hash table\n");
    err = ht_foreach(ifindex_to_config_ht, print_config_hash_entry, nullptr);
    bail_error(err);
    // The same answer as the port table's.
    err = ovd_action_respond(sess, action_request, 0, "Success print ifindexs hash table");
    bail_error(err);

bail:
    return err;
}

int handle_maxportspeed_hash_table_print_action(gcl_session *sess,
                                                const bn_binding_array *bindings,
                                                const bn_request *action_request)
{
    (void)bindings;
    int err = 0;
    tstr_array *keys = nullptr;
    tstr_array *tokens = nullptr;
    char slot[200] = "";

    err = tstr_array_new(&keys, nullptr);
    bail_error(err);
    if (maxportspeeds_ht != nullptr) {
        err = ht_foreach(maxportspeeds_ht, for_each_ifindex, keys);
        bail_error(err);
    }
    if (tstr_array_length_quick(keys) == 0) {
        ovd_print("The max port speed hash table is empty\n");
        err = ovd_action_respond(sess, action_request, 0, "The max port speed hash table is empty\n");
        bail_error(err);
        goto bail;
    }
    ovd_print("       Max port speed hash table\n");
    for (uint32 i = 0; i < tstr_array_length_quick(keys); ++i) {
        const tstring *key = tstr_array_get_quick(keys, i);
        tbool found = false;
        void *value = nullptr;
        uint32 devid = 0;
        tstr_array_free(&tokens);
        err = ts_tokenize_str(ts_str(key), ' ', '\0', '\0', 0, &tokens);
        bail_error(err);
        const char *dev_text = tstr_array_get_str_quick(tokens, 0);
        const char *port_text = tstr_array_get_str_quick(tokens, 1);
        if (dev_text == nullptr || lc_str_to_uint32(dev_text, &devid) != 0) {
            lc_log_basic(LOG_ERR, "The device value: %s must be a number\n",
                         dev_text != nullptr ? dev_text : "");
            err = lc_err_bad_type;
            goto bail;
        }
        err = ht_lookup(maxportspeeds_ht, key, ts_length(key), &found, nullptr, nullptr, &value);
        bail_error(err);
        err = sah_convert_devid_to_slot_str(devid, static_cast<system_type_t>(system_type), slot,
                                            sizeof(slot));
        complain_error(err);
        err = 0;
        const uint8 speed = value != nullptr ? *static_cast<const uint8 *>(value) : 0xff;
        lc_log_basic(LOG_NOTICE, "slot = %s\n", slot);
        lc_log_basic(LOG_NOTICE, "devid  = %s\n", dev_text);
        lc_log_basic(LOG_NOTICE, "port = %s\n", port_text != nullptr ? port_text : "");
        lc_log_basic(LOG_NOTICE, "speed = %s\n",
                     speed < OVD_NUM_IB_SPEED_CAPS ? ib_speed_cap_str[speed] : "-");
        ovd_print(ovd_print_rule);
    }
    err = ovd_action_respond(sess, action_request, 0, "Success print max port speed hash table");
    bail_error(err);

bail:
    tstr_array_free(&tokens);
    tstr_array_free(&keys);
    return err;
}

int handle_device_info_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                          const bn_request *action_request)
{
    (void)bindings;
    int err = 0;

    ovd_print("             Devices info table\n");
    for (uint32 devid = 0; devid <= OVD_MAX_DEVICE_ID; ++devid) {
        const devinfo *dev = devsinfo[devid];
        if (dev == nullptr) {
            continue;
        }
        lc_log_basic(LOG_NOTICE, "devid = %u\n", devid);
        lc_log_basic(LOG_NOTICE, "slot id  = %u\n", dev->slot_id);
        lc_log_basic(LOG_NOTICE, "subsystem type = %u\n", dev->subsystem_type);
        lc_log_basic(LOG_NOTICE, "max ib speed hw cap = %u\n",
                     static_cast<uint32>(dev->max_ib_speed_hw_cap));
        lc_log_basic(LOG_NOTICE, "max ib speed sw limit = %u\n",
                     static_cast<uint32>(dev->max_ib_speed_sw_limit));
        lc_log_basic(LOG_NOTICE, "device max speed limit = %u\n",
                     static_cast<uint32>(dev->device_max_speed_limit));
        lc_log_basic(LOG_NOTICE, "subsystem name = %s\n",
                     dev->subsystem_name != nullptr ? ts_str(dev->subsystem_name) : "");
        ovd_print(ovd_print_rule);
    }
    err = ovd_action_respond(sess, action_request, 0, "Success print devices table");
    bail_error(err);

bail:
    return err;
}

int print_ekey_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                          void *data)
{
    (void)ht;
    (void)key_len;
    (void)data;
    int err = 0;
    const ekeyInfo *ekey = static_cast<const ekeyInfo *>(value);

    bail_null(key);
    bail_null(ekey);
    ovd_print(ovd_print_rule);
    lc_log_basic(LOG_NOTICE, "label port = %s \n", ovd_key_str(key));
    lc_log_basic(LOG_NOTICE, "ifindex value = %u \n", ekey->ifindex);
    lc_log_basic(LOG_NOTICE, "ekey value = %s \n", ekey->enable != 0 ? "true" : "false");

bail:
    return err;
}

int handle_ekey_table_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                   const bn_request *action_request)
{
    (void)bindings;
    int err = 0;

    if (labelports_to_ekey_ht == nullptr) {
        ovd_print("The ekey hash table is empty\n");
    } else {
        ovd_print("       Ekey dump of hash table\n");
        err = ht_foreach(labelports_to_ekey_ht, print_ekey_hash_entry, nullptr);
        bail_error(err);
    }
    err = ovd_action_respond(sess, action_request, 0, "Success print ekey mapping hash table");
    bail_error(err);

bail:
    return err;
}

int print_virtual_ib_hash_entry(const ht_table *ht, const void *key, int32 key_len, void *value,
                                void *data)
{
    (void)ht;
    (void)key_len;
    (void)data;
    int err = 0;
    const virtualIfindexInfo *port = static_cast<const virtualIfindexInfo *>(value);

    bail_null(key);
    bail_null(port);
    lc_log_basic(LOG_NOTICE, "**********************************************");
    lc_log_basic(LOG_NOTICE, "Ifindex          : [%s]", ovd_key_str(key));
    lc_log_basic(LOG_NOTICE, "Local port       : [%u]", static_cast<uint32>(port->localport));
    lc_log_basic(LOG_NOTICE, "Devid            : [%s, %u]", ovd_device_name(port->devid),
                 port->devid);
    for (uint32 swid = 0; swid < OVD_NUM_SWIDS; ++swid) {
        if (port->assigned_to_swid[swid] < OVD_NO_SWID) {
            lc_log_basic(LOG_NOTICE, "Assigned to swid : [%u] ",
                         static_cast<uint32>(port->assigned_to_swid[swid]));
        }
    }
    lc_log_basic(LOG_NOTICE, "Configured state : [%s]", port->configured_state ? "true" : "false");

bail:
    return err;
}

int handle_virtual_ifindexs_hash_table_print_action(gcl_session *sess,
                                                    const bn_binding_array *bindings,
                                                    const bn_request *action_request)
{
    (void)bindings;
    int err = 0;

    if (virtual_ibports_ht == nullptr) {
        err = ovd_action_respond(sess, action_request, 0, "The virtual hash table is empty");
        bail_error(err);
        goto bail;
    }
    ovd_print("    Ovd dump of virtual ifindexs hash table   ");
    err = ht_foreach(virtual_ibports_ht, print_virtual_ib_hash_entry, nullptr);
    bail_error(err);
    err = ovd_action_respond(sess, action_request, 0, "Success print virtual ifindexs hash table");
    bail_error(err);

bail:
    return err;
}

int handle_direct_route_print_action(gcl_session *sess, const bn_binding_array *bindings,
                                     const bn_request *action_request)
{
    (void)bindings;
    int err = 0;

    if (current_number_of_devices == 0 || current_number_of_paths == 0 ||
        current_number_of_hops == 0) {
        lc_log_source(LOG_WARNING, "The direct route tables are empty\n");
        err = ovd_action_respond(sess, action_request, 0, "The direct route tables are empty");
        bail_error(err);
        goto bail;
    }
    if (paths_table == nullptr || hops_table == nullptr) {
        const char msg[] = "Inconstancy. The direct route table are not supposed to be empty\n";
        lc_log_source(LOG_WARNING, "%s", msg);
        err = ovd_action_respond(sess, action_request, 1, msg);
        bail_error(err);
        goto bail;
    }

    ovd_print(ovd_dr_rule);
    ovd_print("            Dump of devices table\n");
    ovd_print(ovd_dr_rule);
    for (uint32 cell = 1; cell <= current_number_of_devices && cell <= OVD_DR_MAX_DEVICES; ++cell) {
        const dr_device_info &d = devices_table[cell];
        const char *dev_name = "";
        int dev_index = 0;
        ovd_device_log_name(d.devid, &dev_name, &dev_index);
        lc_log_basic(LOG_NOTICE, "Cell number %u in devices table:\n", cell);
        lc_log_basic(LOG_NOTICE, "device id                   : %s/%d, %u\n", dev_name,
                     dev_index, d.devid);
        lc_log_basic(LOG_NOTICE, "first cell in paths table      : %u\n",
                     d.first_cell_in_path_table);
        lc_log_basic(LOG_NOTICE, "number of paths of device      : %u\n", d.number_of_paths);
    }
    ovd_print(ovd_dr_rule);
    ovd_print("            Dump of paths table\n");
    ovd_print(ovd_dr_rule);
    for (uint32 cell = 1; cell <= current_number_of_paths; ++cell) {
        lc_log_basic(LOG_NOTICE, "Cell number %u in paths table:\n", cell);
        lc_log_basic(LOG_NOTICE, "first cell in hops table     : %u\n",
                     paths_table[cell].first_cell_in_hop_table);
        lc_log_basic(LOG_NOTICE, "number of hops in path       : %u\n",
                     paths_table[cell].number_of_hop_in_paths);
    }
    ovd_print(ovd_dr_rule);
    ovd_print("            Dump of hops table\n");
    ovd_print(ovd_dr_rule);
    for (uint32 cell = 1; cell <= current_number_of_hops; ++cell) {
        const dr_hop_info &hop = hops_table[cell];
        uint32 ifindex = 0;
        tstring *key = nullptr;
        ifindexInformation *port = nullptr;
        tbool exists = false;
        lc_log_basic(LOG_NOTICE, "Cell number %u in hops table:\n", cell);
        lc_log_basic(LOG_NOTICE, "devid                       : %s, %u\n",
                     ovd_device_name(hop.devid), hop.devid);
        err = convert_devid_localport_to_ifindex(hop.devid, hop.port, &ifindex);
        bail_error(err);
        err = ts_new_sprintf(&key, "%u", ifindex);
        bail_error(err);
        err = checkIfPortExists(key, &port, &exists);
        ts_free(&key);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_source(LOG_WARNING, "Can't find ifindex number: %u\n", ifindex);
            err = lc_err_generic_error;
            goto bail;
        }
        lc_log_basic(LOG_NOTICE, "label port                  : %u\n",
                     static_cast<uint32>(port->label_port));
    }
    err = ovd_action_respond(sess, action_request, 0, "Success print direct route tables");
    bail_error(err);

bail:
    return err;
}
