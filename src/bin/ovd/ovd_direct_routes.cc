// Direct routes: the tables filled from the route computer's event, and the search for a
// live path to a device.
#include "ovd_direct_routes.h"

#include <cstdlib>
#include <cstring>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_main.h"
#include "swidapi.h"
#include "tstring.h"

dr_device_info devices_table[OVD_DR_MAX_DEVICES + 1] = {};
dr_path_info *paths_table = nullptr;
dr_hop_info *hops_table = nullptr;
uint32 current_number_of_devices = 0;
uint32 current_number_of_paths = 0;
uint32 current_number_of_hops = 0;

ovd_dr_path_check_func g_ovd_dr_path_check = check_dr_path;

int getInfoFromDirectRouteUpdateEvent(const bn_binding_array *bindings,
                                      updateDirectRouteEventInfo info_op, void *ret_val,
                                      uint32 i, uint32 j, uint32 k)
{
    int err = 0;
    char *name = nullptr;
    bn_binding *binding = nullptr;
    tbool is_uint8 = false;

    bail_null(bindings);
    bail_null(ret_val);

    switch (info_op) {
    case swid_dr_en:
        name = smprintf("swid");
        is_uint8 = true;
        break;
    case number_of_target_devices_en:
        name = smprintf("number_of_target_devices");
        break;
    case target_x_device_id_en:
        name = smprintf("target_%u_device_id", i);
        break;
    case target_x_number_of_paths_en:
        name = smprintf("target_%u_number_of_paths", i);
        break;
    case target_x_path_y_length_en:
        name = smprintf("target_%u_path_%u_length", i, j);
        break;
    case target_x_path_y_hop_z_devid_en:
        name = smprintf("target_%u_path_%u_hop_%u_devid", i, j, k);
        break;
    case target_x_path_y_hop_z_localport_en:
        name = smprintf("target_%u_path_%u_hop_%u_localport", i, j, k);
        is_uint8 = true;
        break;
    default:
        bail_force(lc_err_unexpected_case);
    }
    bail_null(name);

    err = bn_binding_array_get_binding_by_name(bindings, name, &binding);
    bail_error(err);
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "%s No %s binding", __func__, name);
        err = 1;
        goto bail;
    }
    if (is_uint8) {
        err = bn_binding_get_uint8(binding, ba_value, nullptr, static_cast<uint8 *>(ret_val));
    } else {
        err = bn_binding_get_uint32(binding, ba_value, nullptr, static_cast<uint32 *>(ret_val));
    }
    bail_error(err);

bail:
    free(name);
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int ovd_direct_routes_free(void)
{
    memset(devices_table, 0, sizeof(devices_table));
    free(paths_table);
    paths_table = nullptr;
    free(hops_table);
    hops_table = nullptr;
    current_number_of_devices = 0;
    current_number_of_paths = 0;
    current_number_of_hops = 0;
    return 0;
}

int ovd_handle_update_direct_route_event(const bn_binding_array *bindings)
{
    int err = 0;
    uint8 swid = 0;
    uint32 number_of_devices = 0;
    uint32 number_of_paths = 0;
    uint32 path_length = 0;
    uint32 total_paths = 0;
    uint32 total_hops = 0;
    uint32 path_cell = 1;
    uint32 hop_cell = 1;

    err = getInfoFromDirectRouteUpdateEvent(bindings, swid_dr_en, &swid, 0, 0, 0);
    bail_error(err);
    if (!ovd_swid_is_served(swid)) {
        // Another partition's routes; the tables stand.
        goto bail;
    }

    lc_log_basic(LOG_NOTICE, "OVD handles direct route update event");

    err = getInfoFromDirectRouteUpdateEvent(bindings, number_of_target_devices_en,
                                            &number_of_devices, 0, 0, 0);
    if (err == 0 && number_of_devices > OVD_DR_MAX_DEVICES) {
        lc_log_source(LOG_ERR, "Got direct routes to %u devices, at most %u are kept",
                      number_of_devices, static_cast<uint32>(OVD_DR_MAX_DEVICES));
        err = lc_err_range;
        goto bail;
    }

    // The event replaces the tables whole: they go even when its count can't be read.
    ovd_direct_routes_free();
    bail_error(err);

    // Counting pass.
    for (uint32 target = 1; target <= number_of_devices; ++target) {
        err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_number_of_paths_en,
                                                &number_of_paths, target, 0, 0);
        bail_error(err);
        total_paths += number_of_paths;
        for (uint32 path = 1; path <= number_of_paths; ++path) {
            err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_path_y_length_en,
                                                    &path_length, target, path, 0);
            bail_error(err);
            total_hops += path_length;
        }
    }

    current_number_of_devices = number_of_devices;
    current_number_of_paths = total_paths;
    current_number_of_hops = total_hops;
    paths_table = static_cast<dr_path_info *>(calloc(total_paths + 1, sizeof(dr_path_info)));
    if (paths_table == nullptr) {
        lc_log_basic(LOG_ERR, "failed allocate path table\n");
        err = lc_err_generic_error;
        goto bail;
    }
    hops_table = static_cast<dr_hop_info *>(calloc(total_hops + 1, sizeof(dr_hop_info)));
    if (hops_table == nullptr) {
        lc_log_basic(LOG_ERR, "failed allocate hops table\n");
        err = lc_err_generic_error;
        goto bail;
    }

    // Filling pass.  The event was read once already, but a count may still disagree
    // with the first pass; the cells stay within what was allocated.
    for (uint32 target = 1; target <= number_of_devices; ++target) {
        dr_device_info *device = &devices_table[target];
        err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_device_id_en, &device->devid,
                                                target, 0, 0);
        bail_error(err);
        err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_number_of_paths_en,
                                                &device->number_of_paths, target, 0, 0);
        bail_error(err);
        device->first_cell_in_path_table = path_cell;
        for (uint32 path = 1; path <= device->number_of_paths; ++path, ++path_cell) {
            bail_require(path_cell <= current_number_of_paths);
            dr_path_info *path_info = &paths_table[path_cell];
            path_info->first_cell_in_hop_table = hop_cell;
            err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_path_y_length_en,
                                                    &path_info->number_of_hop_in_paths, target,
                                                    path, 0);
            bail_error(err);
            for (uint32 hop = 1; hop <= path_info->number_of_hop_in_paths; ++hop, ++hop_cell) {
                bail_require(hop_cell <= current_number_of_hops);
                dr_hop_info *hop_info = &hops_table[hop_cell];
                err = getInfoFromDirectRouteUpdateEvent(bindings, target_x_path_y_hop_z_devid_en,
                                                        &hop_info->devid, target, path, hop);
                bail_error(err);
                err = getInfoFromDirectRouteUpdateEvent(bindings,
                                                        target_x_path_y_hop_z_localport_en,
                                                        &hop_info->port, target, path, hop);
                bail_error(err);
            }
        }
    }

    lc_log_basic(LOG_NOTICE,
                 "OVD done handling  direct route update event, number of devices : [%u] number "
                 "of paths : [%u] , number of hops: [%u] ,  \n",
                 current_number_of_devices, current_number_of_paths, current_number_of_hops);

bail:
    return err;
}

int build_dr_path(ib_dr_path_t *dr_path, tbool *valid_path, tbool check_failed_port,
                  uint32 path_number, uint8 failed_ib_port)
{
    int err = 0;
    const dr_path_info *path_info = nullptr;
    uint32 ifindex = 0;
    tstring *key = nullptr;
    ifindexInformation *port = nullptr;
    tbool exists = false;

    bail_null(dr_path);
    bail_null(valid_path);
    *valid_path = false;
    dr_path->p[0] = 0;
    bail_null(paths_table);
    bail_require(path_number >= 1 && path_number <= current_number_of_paths);
    path_info = &paths_table[path_number];
    // p[0] and the hops must fit the route.
    bail_require(path_info->number_of_hop_in_paths < sizeof(dr_path->p));

    for (uint32 k = 1; k <= path_info->number_of_hop_in_paths; ++k) {
        const uint32 hop_cell = path_info->first_cell_in_hop_table + k - 1;
        bail_require(hop_cell >= 1 && hop_cell <= current_number_of_hops);
        const dr_hop_info *hop = &hops_table[hop_cell];

        err = convert_devid_localport_to_ifindex(hop->devid, hop->port, &ifindex);
        bail_error(err);
        ts_free(&key);
        err = ts_new_sprintf(&key, "%u", ifindex);
        bail_error(err);
        err = checkIfPortExists(key, &port, &exists);
        bail_error(err);
        if (!exists || port == nullptr) {
            lc_log_source(LOG_WARNING, "Can't find ifindex number: %u\n", ifindex);
            err = lc_err_generic_error;
            goto bail;
        }
        if (check_failed_port && port->ibport == failed_ib_port) {
            // Through the port that was found down: no datagram is spent on this path.
            goto bail;
        }
        dr_path->p[k] = port->ibport;
    }
    dr_path->cnt = static_cast<int>(path_info->number_of_hop_in_paths);
    *valid_path = true;

bail:
    ts_free(&key);
    return err;
}

int getDirectRouteInfoPath(uint32 devid, ib_dr_path_t *dr_path, tbool *exists)
{
    int err = 0;
    swidapi_t *default_context = nullptr;
    const dr_device_info *device = nullptr;
    tbool check_failed_port = false;
    uint8 failed_ib_port = 0;
    uint32 path_number = 0;
    tbool valid_path = false;
    int check_ret = 0;

    bail_null(dr_path);
    bail_null(exists);
    *exists = false;

    if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(system_type)) ||
        devid == master_devid) {
        // The local chip: the empty route.
        *exists = true;
        goto bail;
    }

    for (uint32 swid = 0; swid < OVD_NUM_SWIDS; ++swid) {
        if (swidapi_handles[swid] != nullptr) {
            default_context = swidapi_handles[swid];
            break;
        }
    }
    bail_require(default_context != nullptr);

    for (uint32 cell = 1; cell <= current_number_of_devices; ++cell) {
        if (devices_table[cell].devid == devid) {
            device = &devices_table[cell];
            break;
        }
    }
    if (device == nullptr) {
        goto bail;
    }

    for (uint32 current_path = 1; current_path <= device->number_of_paths; ++current_path) {
        path_number = device->first_cell_in_path_table + current_path - 1;
        valid_path = false;
        err = build_dr_path(dr_path, &valid_path, check_failed_port, path_number, failed_ib_port);
        bail_error(err);
        if (!valid_path) {
            continue;
        }
        bail_null(g_ovd_dr_path_check);
        check_ret = g_ovd_dr_path_check(default_context, dr_path, &failed_ib_port);
        if (check_ret == SARC_OK) {
            *exists = true;
            lc_log_basic(LOG_INFO, "OVD found direct route path number: %u for device id: %u\n",
                         path_number, devid);
            goto bail;
        }
        if (check_ret == SARC_DR_PORT_DOWN_ERROR) {
            lc_log_basic(LOG_NOTICE,
                         "Direct route path number: [%u] for device: [%u] failed validation because "
                         "port: [%u] is DOWN. Try to bring another path\n",
                         current_path, devid, failed_ib_port);
            check_failed_port = true;
        } else {
            lc_log_basic(LOG_NOTICE,
                         "Direct route path number: [%u] for device: [%u] failed validation. Try to "
                         "bring another one\n",
                         current_path, devid);
        }
    }

bail:
    return err;
}

int updateIfindexNeighbourInHashTable(uint32 ifindex_neighbor, uint32 ifindex)
{
    int err = 0;
    tstring *key = nullptr;
    ifindexInformation *neighbour = nullptr;
    tbool exists = false;

    if (ifindex_neighbor == 0) {
        goto bail;
    }
    err = ts_new_sprintf(&key, "%u", ifindex_neighbor);
    bail_error(err);
    err = checkIfPortExists(key, &neighbour, &exists);
    bail_error(err);
    if (exists && neighbour != nullptr) {
        neighbour->ifindex_neighbor = ifindex;
    }

bail:
    ts_free(&key);
    return err;
}
