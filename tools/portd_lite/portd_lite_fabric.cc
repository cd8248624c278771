// The chassis as a simulated fabric: every chip of the model a switch of the simulator,
// its internal ports cables to the chips they are wired to, and the direct routes from
// the master chip to every other one.
#include <deque>
#include <map>
#include <set>
#include <string>

#include "portd_lite.h"

namespace portd_lite {

std::string pl_fabric_node_name(uint32 dev_id)
{
    return "chip" + std::to_string(dev_id);
}

std::string pl_fabric_topology(const pl_model &model, uint32 system_type)
{
    const std::map<uint32, uint32> wired = pl_wire_internal_ports(model, system_type);
    std::string text =
        "# The chips of the chassis model, joined by their internal links.  Node names are\n"
        "# \"chip<device id>\"; the switch ports are the chips' InfiniBand ports.\n";

    for (const auto &[dev_id, dev] : model.pm_devices) {
        uint32 nports = 0;
        for (const auto &[local, port] : dev.pd_ports) {
            if (local < pl_first_virtual_port && port.pp_ib_port > nports) {
                nports = port.pp_ib_port;
            }
        }
        char guid[32];
        snprintf(guid, sizeof(guid), "0x02ab01000c%06x", dev_id);
        const std::string name = pl_fabric_node_name(dev_id);
        text += "\nswitchguid=" + std::string(guid) + "\n";
        text += "Switch " + std::to_string(nports) + " \"" + name + "\" # \"" + name +
                "\" enhanced port 0 lid " + std::to_string(100 + dev_id) + " lmc 0\n";
        for (const auto &[local, port] : dev.pd_ports) {
            const auto far = wired.find(pl_ifindex(dev_id, local));
            if (far == wired.end()) {
                continue;
            }
            const uint32 far_dev = far->second >> 6;
            const uint32 far_local = far->second & 63;
            const auto far_device = model.pm_devices.find(far_dev);
            if (far_device == model.pm_devices.end()) {
                continue;
            }
            const auto far_port = far_device->second.pd_ports.find(far_local);
            if (far_port == far_device->second.pd_ports.end()) {
                continue;
            }
            text += "[" + std::to_string(port.pp_ib_port) + "] \"" + pl_fabric_node_name(far_dev) +
                    "\"[" + std::to_string(far_port->second.pp_ib_port) + "] # lid " +
                    std::to_string(100 + far_dev) + " 4xEDR\n";
        }
    }
    return text;
}

std::string pl_fabric_routes(const pl_model &model, uint32 system_type, uint32 master, uint32 swid)
{
    const std::map<uint32, uint32> wired = pl_wire_internal_ports(model, system_type);
    // The first hop list found to each chip, breadth first from the master, leaving each
    // chip by its lowest wired local port towards a chip not reached yet.
    std::map<uint32, std::string> hops = {{master, ""}};
    std::deque<uint32> todo = {master};
    std::string text = "swid " + std::to_string(swid) + "\n";

    while (!todo.empty()) {
        const uint32 dev_id = todo.front();
        todo.pop_front();
        const auto dev = model.pm_devices.find(dev_id);
        if (dev == model.pm_devices.end()) {
            continue;
        }
        for (const auto &entry : dev->second.pd_ports) {
            const uint32 local = entry.first;
            const auto far = wired.find(pl_ifindex(dev_id, local));
            if (far == wired.end() || hops.count(far->second >> 6) != 0) {
                continue;
            }
            const uint32 far_dev = far->second >> 6;
            hops[far_dev] = hops[dev_id] + " " + std::to_string(dev_id) + ":" +
                            std::to_string(local);
            todo.push_back(far_dev);
        }
    }
    for (const auto &[dev_id, path] : hops) {
        if (dev_id != master) {
            text += "route " + std::to_string(dev_id) + path + "\n";
        }
    }
    return text;
}

}  // namespace portd_lite
