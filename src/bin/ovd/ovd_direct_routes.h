// Direct routes to the chips that the management processor reaches only through other
// chips.  The route computer announces every target's paths in one event; they are kept
// in three flat tables linked by cell number (cell 0 of each unused), and a caller that
// wants to talk to a device gets the first of its paths that passes a live check.  Paths
// through a port found down are skipped without a probe.
#pragma once

#include <infiniband/mad.h>

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"

// At most this many target devices (cells 1 to 255 of devices_table).
#define OVD_DR_MAX_DEVICES 255

typedef struct _dr_device_info {
    uint32 devid;
    uint32 first_cell_in_path_table;  // its first path's cell in paths_table
    uint32 number_of_paths;           // consecutive cells from there
} dr_device_info;

typedef struct _dr_path_info {
    uint32 first_cell_in_hop_table;   // the path's first hop in hops_table
    uint32 number_of_hop_in_paths;    // consecutive cells from there
} dr_path_info;

typedef struct _dr_hop_info {
    uint32 devid;  // device the packet leaves by this hop
    uint8 port;    // its local port
} dr_hop_info;

extern dr_device_info devices_table[OVD_DR_MAX_DEVICES + 1];
extern dr_path_info *paths_table;  // current_number_of_paths + 1 cells
extern dr_hop_info *hops_table;    // current_number_of_hops + 1 cells
extern uint32 current_number_of_devices;
extern uint32 current_number_of_paths;
extern uint32 current_number_of_hops;

// What getInfoFromDirectRouteUpdateEvent reads; target, path and hop count from 1.
typedef enum {
    swid_dr_en = 0,                          // swid                                 bt_uint8
    number_of_target_devices_en = 1,         // number_of_target_devices             bt_uint32
    target_x_device_id_en = 2,               // target_<i>_device_id                 bt_uint32
    target_x_number_of_paths_en = 3,         // target_<i>_number_of_paths           bt_uint32
    target_x_path_y_length_en = 4,           // target_<i>_path_<j>_length           bt_uint32
    target_x_path_y_hop_z_devid_en = 5,      // target_<i>_path_<j>_hop_<k>_devid    bt_uint32
    target_x_path_y_hop_z_localport_en = 6,  // target_<i>_path_<j>_hop_<k>_localport bt_uint8
} updateDirectRouteEventInfo;

// Reads one value of the event into the uint8 or uint32 that ret_val points to.  A missing
// binding is logged and gives the plain value 1; an unknown enumerator is
// lc_err_unexpected_case.
int getInfoFromDirectRouteUpdateEvent(const bn_binding_array *bindings,
                                      updateDirectRouteEventInfo info_op, void *ret_val,
                                      uint32 i, uint32 j, uint32 k);

// The handler of /topod/events/ib-direct-route-update: replaces the tables whole, unless
// the event is for a SWID this daemon doesn't serve.  More than OVD_DR_MAX_DEVICES targets
// is lc_err_range, and the tables are left as they were.
int ovd_handle_update_direct_route_event(const bn_binding_array *bindings);

// A checked path to a device.  The local chip (standalone system or the master device) has
// the empty path: *exists true and dr_path as the caller gave it.  A device without a
// usable path gives *exists false and success.
int getDirectRouteInfoPath(uint32 devid, ib_dr_path_t *dr_path, tbool *exists);

// Builds the route of paths_table cell path_number into dr_path (IB port numbers of the
// hops, from p[1]).  With check_failed_port, a hop whose port has the IB port number
// failed_ib_port ends the build with *valid_path false.  A hop whose port isn't known is
// lc_err_generic_error.
int build_dr_path(ib_dr_path_t *dr_path, tbool *valid_path, tbool check_failed_port,
                  uint32 path_number, uint8 failed_ib_port);

// The neighbour of port ifindex_neighbor becomes ifindex.  Nothing happens for 0 or for a
// port that isn't in ibports_ht.
int updateIfindexNeighbourInHashTable(uint32 ifindex_neighbor, uint32 ifindex);

// Frees the two heap tables and empties all three.
int ovd_direct_routes_free(void);

// The live check of a path: check_dr_path of the hardware layer.  Tests put their own in.
typedef int (*ovd_dr_path_check_func)(swidapi_t *ctx, ib_dr_path_t *dr_path,
                                      uint8_t *failed_ib_port);
extern ovd_dr_path_check_func g_ovd_dr_path_check;
