// portd-lite: a stand-in for the port manager.  It reads the same model file as the
// simulated register library and announces the devices in it to the IB daemon, through
// the management daemon, as the port manager does; it can also announce direct routes
// as the topology daemon does.
//
// What the model doesn't say is derived, so that the daemon sees a coherent chassis:
//
//   - slot, chip and spine/leaf kind of a device come from its id and the system type,
//     by the chassis helper's layout (the same mapping the daemon uses);
//   - ifindex of local port P of device D is D * 64 + P, the numbering the direct-route
//     tables assume (device shifted left by 6, plus the local port);
//   - a port with a module (cage) is external, one with "module=none" internal; internal
//     ports of leaves are wired round-robin to the spines' internal ports, in order, and
//     each end names the other as ifindex_neighbor (0 when left unwired);
//   - the panel label of a port is its local port number; local ports from 65 are
//     virtual;
//   - subsystem type: 1 on a standalone system, 19 for a spine and 18 for a leaf of a
//     chassis, unless one is given;
//   - speed capability and limit are the enumerator of the highest speed bit of the
//     device's ports (0 SDR .. 5 EDR);
//   - SWIDs served are all the SWIDs the model's ports are in (255 excluded).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bnode.h"
#include "common.h"

namespace portd_lite {

inline constexpr uint32 pl_ports_per_device = 64;
inline constexpr uint32 pl_max_device_id = 216;
inline constexpr uint8 pl_no_swid = 255;
inline constexpr uint32 pl_first_virtual_port = 65;
// The enable family's operation for virtual ports.
inline constexpr uint32 pl_operation_virtual = 2;

struct pl_port {
    uint32 pp_local = 0;
    uint8 pp_swid = 0;
    uint8 pp_ib_port = 0;
    tbool pp_has_module = true;
    uint8 pp_speed_cap = 0x3f;
};

struct pl_device {
    uint32 pd_id = 0;
    std::string pd_board_id;
    uint64 pd_system_image_guid = 0;
    std::map<uint32, pl_port> pd_ports;   // by local port
};

struct pl_model {
    std::map<uint32, pl_device> pm_devices;  // by device id
};

// Reads a model text (the register library's format; statements and attributes that
// don't matter here are skipped, malformed ones refused).  On failure *ret_why tells the
// line and the reason.
int pl_model_parse(const std::string &text, pl_model *ret_model, std::string *ret_why);
// "builtin:NAME" or a file name.
int pl_model_load(const std::string &source, pl_model *ret_model, std::string *ret_why);

// One binding of an event, in text form: name, type name, value.
struct pl_binding {
    std::string pb_name;
    std::string pb_type;
    std::string pb_value;
};

struct pl_event_options {
    uint32 peo_system_type = 36;
    // The device announced as the master (the local chip); 0 for the first device on a
    // standalone system and none on a chassis.
    uint32 peo_master = 0;
    // Announce only the first N ports of each device (-1 all of them).
    int32 peo_port_limit = -1;
    // Announce the device under this id instead of its own (0 keep).
    uint32 peo_as_dev_id = 0;
    // Announce this subsystem type (a blade's, say) instead of the one derived from the
    // system type and the slot (0 derive).
    uint32 peo_subsystem_type = 0;
};

// The ifindex of a device's local port.
uint32 pl_ifindex(uint32 dev_id, uint32 local_port);
// The far end of every wired internal port, by ifindex.
std::map<uint32, uint32> pl_wire_internal_ports(const pl_model &model, uint32 system_type);
// The simulator's node name of a chip: "chip<device id>".
std::string pl_fabric_node_name(uint32 dev_id);
// A topology of the simulated fabric for a chassis model: a switch a chip, the internal
// ports wired as pl_wire_internal_ports wires them; LIDs 100 + device id.
std::string pl_fabric_topology(const pl_model &model, uint32 system_type);
// A route file (see pl_routes_parse) from the master chip to every chip it reaches.
std::string pl_fabric_routes(const pl_model &model, uint32 system_type, uint32 master, uint32 swid);
// The bindings of /portd/events/ib-device-add for one device of the model.
int pl_device_add_bindings(const pl_model &model, uint32 dev_id, const pl_event_options &opts,
                             std::vector<pl_binding> *ret_bindings, std::string *ret_why);

// Direct routes as the topology daemon announces them: per target, paths of hops
// (device, local port the packet leaves by).
struct pl_route_hop {
    uint32 prh_dev = 0;
    uint32 prh_port = 0;
};
struct pl_routes {
    uint32 pr_swid = 0;
    std::vector<std::pair<uint32, std::vector<std::vector<pl_route_hop>>>> pr_targets;
};
// Route file: "swid N" and "route TARGET HOP..." lines, HOP being DEV:PORT; "route
// TARGET -" is a path of no hops.  Paths of one target keep their order.
int pl_routes_parse(const std::string &text, pl_routes *ret_routes, std::string *ret_why);
void pl_route_bindings(const pl_routes &routes, std::vector<pl_binding> *ret_bindings);

// A full chassis model: spine slots first, then leaf slots, `chips` devices a slot, each
// with `ports` local ports (leaves: first half to the panel, second half internal;
// spines: all internal), laid out for `system_type`.
int pl_generate_chassis(uint32 system_type, uint32 spine_slots, uint32 leaf_slots,
                          uint32 chips, uint32 ports, std::string *ret_text,
                          std::string *ret_why);

// Text bindings into a binding array for a message.
int pl_bindings_to_array(const std::vector<pl_binding> &bindings, bn_binding_array **ret_array);

}  // namespace portd_lite
