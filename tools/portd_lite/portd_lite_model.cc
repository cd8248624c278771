// The model as the port manager's stand-in sees it, the events built from it, direct
// routes, and the generator of full chassis models.
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "portd_lite.h"
#include "vqd_sim.h"

namespace portd_lite {

namespace {

// Splits a model line into words; double quotes keep blanks, "#" ends the line.
tbool pl_tokenize(const std::string &line, std::vector<std::string> *ret_words,
                  std::string *ret_why)
{
    size_t i = 0;
    ret_words->clear();
    while (i < line.size()) {
        if (line[i] == ' ' || line[i] == '\t' || line[i] == '\r') {
            ++i;
            continue;
        }
        if (line[i] == '#') {
            break;
        }
        std::string word;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') {
            if (line[i] == '"') {
                const size_t end = line.find('"', i + 1);
                if (end == std::string::npos) {
                    *ret_why = "unterminated quote";
                    return false;
                }
                word += line.substr(i + 1, end - i - 1);
                i = end + 1;
            } else {
                word += line[i++];
            }
        }
        ret_words->push_back(word);
    }
    return true;
}

tbool pl_parse_num(const std::string &text, uint64 max, uint64 *ret)
{
    char *end = nullptr;
    if (text.empty() || text[0] == '-') {
        return false;
    }
    errno = 0;
    const unsigned long long value = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > max) {
        return false;
    }
    *ret = value;
    return true;
}

tbool pl_parse_range(const std::string &text, uint64 max, uint32 *ret_first, uint32 *ret_last)
{
    uint64 first = 0;
    uint64 last = 0;
    const size_t dash = text.find('-');
    if (dash == std::string::npos) {
        if (!pl_parse_num(text, max, &first)) {
            return false;
        }
        last = first;
    } else if (!pl_parse_num(text.substr(0, dash), max, &first) ||
               !pl_parse_num(text.substr(dash + 1), max, &last) || first > last) {
        return false;
    }
    *ret_first = static_cast<uint32>(first);
    *ret_last = static_cast<uint32>(last);
    return true;
}

// The enumerator of the highest speed bit of a mask (0 SDR .. 7), 0 for no bit.
uint8 pl_speed_enum(uint8 mask)
{
    uint8 top = 0;
    for (uint8 bit = 0; bit < 8; ++bit) {
        if ((mask & (1u << bit)) != 0) {
            top = bit;
        }
    }
    return top;
}

tbool pl_is_spine(uint32 dev_id, uint32 system_type)
{
    enum_sah_slot_type_t slot_type = SAH_LEAFS;
    tbool standalone = false;
    if (sah_get_slot_type_type_from_devid(dev_id, static_cast<system_type_t>(system_type),
                                          &slot_type, &standalone) != 0) {
        return false;
    }
    return !standalone && slot_type == SAH_SPINES;
}

}  // namespace

int pl_model_parse(const std::string &text, pl_model *ret_model, std::string *ret_why)
{
    pl_model model;
    std::istringstream in(text);
    std::string line;
    std::vector<std::string> words;
    int lineno = 0;
    std::string why;

    auto fail = [&](const std::string &reason) {
        *ret_why = "line " + std::to_string(lineno) + ": " + reason;
        return lc_err_parse_error;
    };
    while (std::getline(in, line)) {
        ++lineno;
        if (!pl_tokenize(line, &words, &why)) {
            return fail(why);
        }
        if (words.empty()) {
            continue;
        }
        const std::string &kind = words[0];
        uint64 dev_id = 0;
        if (kind != "device" && kind != "port" && kind != "module") {
            return fail("unknown statement '" + kind + "'");
        }
        if (words.size() < 2 || !pl_parse_num(words[1], pl_max_device_id, &dev_id)) {
            return fail("bad device id");
        }
        if (kind == "device") {
            pl_device &dev = model.pm_devices[static_cast<uint32>(dev_id)];
            dev.pd_id = static_cast<uint32>(dev_id);
            for (size_t i = 2; i < words.size(); ++i) {
                const size_t eq = words[i].find('=');
                const std::string name = words[i].substr(0, eq);
                const std::string value = eq == std::string::npos ? "" : words[i].substr(eq + 1);
                uint64 num = 0;
                if (eq == std::string::npos || eq == 0) {
                    return fail("bad device attribute '" + words[i] + "'");
                }
                if (name == "board_id") {
                    dev.pd_board_id = value;
                } else if (name == "system_image_guid") {
                    if (!pl_parse_num(value, UINT64_MAX, &num)) {
                        return fail("bad device attribute '" + words[i] + "'");
                    }
                    dev.pd_system_image_guid = num;
                }
            }
            continue;
        }
        auto found = model.pm_devices.find(static_cast<uint32>(dev_id));
        if (found == model.pm_devices.end()) {
            return fail("device " + std::to_string(dev_id) + " not declared");
        }
        if (kind == "module") {
            continue;
        }
        uint32 first = 0;
        uint32 last = 0;
        if (words.size() < 3 || !pl_parse_range(words[2], 254, &first, &last) || first == 0) {
            return fail("bad port range");
        }
        for (uint32 local = first; local <= last; ++local) {
            auto inserted = found->second.pd_ports.try_emplace(local);
            pl_port &port = inserted.first->second;
            if (inserted.second) {
                port.pp_local = local;
                port.pp_ib_port = static_cast<uint8>(local);
            }
            for (size_t i = 3; i < words.size(); ++i) {
                const size_t eq = words[i].find('=');
                const std::string name = words[i].substr(0, eq);
                const std::string value = eq == std::string::npos ? "" : words[i].substr(eq + 1);
                uint64 num = 0;
                tbool ok = eq != std::string::npos && eq != 0;
                if (ok && name == "swid") {
                    ok = pl_parse_num(value, 255, &num);
                    port.pp_swid = static_cast<uint8>(num);
                } else if (ok && name == "ib_port") {
                    if (value == "auto") {
                        port.pp_ib_port = static_cast<uint8>(local);
                    } else {
                        ok = pl_parse_num(value, 255, &num);
                        port.pp_ib_port = static_cast<uint8>(num);
                    }
                } else if (ok && name == "module") {
                    port.pp_has_module = value != "none";
                } else if (ok && name == "speed_cap") {
                    ok = pl_parse_num(value, 255, &num);
                    port.pp_speed_cap = static_cast<uint8>(num);
                }
                if (!ok) {
                    return fail("bad port attribute '" + words[i] + "'");
                }
            }
        }
    }
    *ret_model = std::move(model);
    return 0;
}

int pl_model_load(const std::string &source, pl_model *ret_model, std::string *ret_why)
{
    static const std::string builtin = "builtin:";
    std::string text;

    if (source.compare(0, builtin.size(), builtin) == 0) {
        const char *found = vqdsim::builtin_model_text(source.substr(builtin.size()));
        if (found == nullptr) {
            *ret_why = "no built-in model '" + source.substr(builtin.size()) + "'";
            return lc_err_not_found;
        }
        text = found;
    } else {
        std::ifstream in(source);
        if (!in) {
            *ret_why = "can't read model file " + source;
            return lc_err_io_error;
        }
        std::stringstream all;
        all << in.rdbuf();
        text = all.str();
    }
    if (pl_model_parse(text, ret_model, ret_why) != 0) {
        *ret_why = source + ": " + *ret_why;
        return lc_err_parse_error;
    }
    return 0;
}

uint32 pl_ifindex(uint32 dev_id, uint32 local_port)
{
    return (dev_id << 6) + local_port;
}

std::map<uint32, uint32> pl_wire_internal_ports(const pl_model &model, uint32 system_type)
{
    std::map<uint32, uint32> wired;
    std::vector<std::vector<uint32>> spine_free;   // free internal ifindexes per spine
    std::vector<size_t> spine_next;

    for (const auto &[dev_id, dev] : model.pm_devices) {
        if (!pl_is_spine(dev_id, system_type)) {
            continue;
        }
        spine_free.emplace_back();
        for (const auto &[local, port] : dev.pd_ports) {
            if (!port.pp_has_module && local < pl_first_virtual_port) {
                spine_free.back().push_back(pl_ifindex(dev_id, local));
            }
        }
    }
    spine_next.assign(spine_free.size(), 0);
    if (spine_free.empty()) {
        return wired;
    }
    for (const auto &[dev_id, dev] : model.pm_devices) {
        if (pl_is_spine(dev_id, system_type)) {
            continue;
        }
        size_t turn = 0;
        for (const auto &[local, port] : dev.pd_ports) {
            if (port.pp_has_module || local >= pl_first_virtual_port) {
                continue;
            }
            // The next spine, in turn, that still has a free port.
            for (size_t tries = 0; tries < spine_free.size(); ++tries) {
                const size_t spine = (turn + tries) % spine_free.size();
                if (spine_next[spine] < spine_free[spine].size()) {
                    const uint32 far = spine_free[spine][spine_next[spine]++];
                    const uint32 near = pl_ifindex(dev_id, local);
                    wired[near] = far;
                    wired[far] = near;
                    turn = spine + 1;
                    break;
                }
            }
        }
    }
    return wired;
}

int pl_device_add_bindings(const pl_model &model, uint32 dev_id, const pl_event_options &opts,
                             std::vector<pl_binding> *ret_bindings, std::string *ret_why)
{
    const system_type_t sys = static_cast<system_type_t>(opts.peo_system_type);
    const tbool standalone = sah_sqry_ib_is_standalone(sys);
    std::vector<pl_binding> &out = *ret_bindings;
    std::set<uint32> swids;
    enum_sah_slot_type_t slot_type = SAH_LEAFS;
    tbool is_standalone = false;
    uint8 slot = 0;
    uint8 chip = 0;
    char slot_text[16] = {};
    uint8 speed_mask = 0;
    uint32 master = opts.peo_master;
    uint32 announced_id = opts.peo_as_dev_id != 0 ? opts.peo_as_dev_id : dev_id;
    std::map<uint32, uint32> wired;
    uint32 index = 0;

    out.clear();
    const auto found = model.pm_devices.find(dev_id);
    if (found == model.pm_devices.end()) {
        *ret_why = "no device " + std::to_string(dev_id) + " in the model";
        return lc_err_not_found;
    }
    const pl_device &dev = found->second;
    if (sah_get_slot_type_type_from_devid(dev_id, sys, &slot_type, &is_standalone) != 0 ||
        sah_convert_dev_id_2_slot(sys, slot_type, static_cast<uint8>(dev_id), &slot) != 0 ||
        sah_convert_dev_2_chip(static_cast<uint8>(dev_id), &chip) != 0) {
        *ret_why = "no slot for device " + std::to_string(dev_id);
        return lc_err_not_found;
    }
    if (!standalone &&
        sah_convert_devid_to_slot_str(dev_id, sys, slot_text, sizeof(slot_text)) != 0) {
        *ret_why = "no slot name for device " + std::to_string(dev_id);
        return lc_err_not_found;
    }
    if (master == 0 && standalone) {
        master = model.pm_devices.begin()->first;
    }
    for (const auto &[other_id, other] : model.pm_devices) {
        for (const auto &[local, port] : other.pd_ports) {
            if (port.pp_swid != pl_no_swid) {
                swids.insert(port.pp_swid);
            }
        }
    }
    for (const auto &[local, port] : dev.pd_ports) {
        speed_mask |= port.pp_speed_cap;
    }
    wired = pl_wire_internal_ports(model, opts.peo_system_type);

    auto add = [&out](const std::string &name, const char *type, const std::string &value) {
        out.push_back(pl_binding{name, type, value});
    };
    const std::string speed = std::to_string(pl_speed_enum(speed_mask));
    const uint32 subsystem_type = opts.peo_subsystem_type != 0 ? opts.peo_subsystem_type
                                  : standalone                  ? 1
                                  : slot_type == SAH_SPINES     ? 19
                                                                : 18;

    add("system_type", "uint32", std::to_string(opts.peo_system_type));
    add("subsystem_type", "uint32", std::to_string(subsystem_type));
    add("system_image_guid", "uint64", std::to_string(dev.pd_system_image_guid));
    add("slot_id", "uint32", std::to_string(slot));
    add("is_master", "bool", master == dev_id ? "true" : "false");
    add("dev_id", "uint32", std::to_string(announced_id));
    add("max_ib_speed_hw_cap", "uint8", speed);
    add("max_ib_speed_sw_limit", "uint8", speed);
    add("subsystem_name", "string", standalone ? "SW" : slot_text);
    add("device_name", "string", dev.pd_board_id);
    add("index_inside_slot", "uint32", std::to_string(chip));
    add("ib_swid_num", "uint8", std::to_string(swids.size()));
    for (uint32 swid : swids) {
        add("ib_swid_" + std::to_string(++index), "uint8", std::to_string(swid));
    }

    index = 0;
    for (const auto &[local, port] : dev.pd_ports) {
        if (opts.peo_port_limit >= 0 && index >= static_cast<uint32>(opts.peo_port_limit)) {
            break;
        }
        const std::string i = std::to_string(++index);
        const uint32 ifindex = pl_ifindex(announced_id, local);
        const auto far = wired.find(pl_ifindex(dev_id, local));
        add("ifindex_" + i, "uint32", std::to_string(ifindex));
        add("swid_" + i, "uint8", std::to_string(port.pp_swid));
        add("ibport_" + i, "uint8", std::to_string(port.pp_ib_port));
        add("local_" + i, "uint8", std::to_string(local));
        add("direction_" + i, "uint8", port.pp_has_module ? "1" : "0");
        add("ifindex_neighbor_" + i, "uint32",
            std::to_string(far != wired.end() ? far->second : 0));
        add("label_" + i, "uint8", std::to_string(local));
        add("virtual_" + i, "bool", local >= pl_first_virtual_port ? "true" : "false");
        add("bay_port_" + i, "uint8", "0");
        add("force_" + i, "bool", "false");
    }
    add("port_num", "uint32", std::to_string(index));
    return 0;
}

int pl_routes_parse(const std::string &text, pl_routes *ret_routes, std::string *ret_why)
{
    pl_routes routes;
    std::istringstream in(text);
    std::string line;
    std::vector<std::string> words;
    int lineno = 0;
    std::string why;

    auto fail = [&](const std::string &reason) {
        *ret_why = "line " + std::to_string(lineno) + ": " + reason;
        return lc_err_parse_error;
    };
    while (std::getline(in, line)) {
        ++lineno;
        uint64 num = 0;
        if (!pl_tokenize(line, &words, &why)) {
            return fail(why);
        }
        if (words.empty()) {
            continue;
        }
        if (words[0] == "swid" && words.size() == 2 && pl_parse_num(words[1], 255, &num)) {
            routes.pr_swid = static_cast<uint32>(num);
            continue;
        }
        if (words[0] != "route" || words.size() < 3 || !pl_parse_num(words[1], UINT32_MAX, &num)) {
            return fail("want 'swid N' or 'route TARGET HOP...'");
        }
        const uint32 target = static_cast<uint32>(num);
        std::vector<pl_route_hop> path;
        if (!(words.size() == 3 && words[2] == "-")) {
            for (size_t i = 2; i < words.size(); ++i) {
                const size_t colon = words[i].find(':');
                uint64 dev = 0;
                uint64 port = 0;
                if (colon == std::string::npos ||
                    !pl_parse_num(words[i].substr(0, colon), UINT32_MAX, &dev) ||
                    !pl_parse_num(words[i].substr(colon + 1), 255, &port)) {
                    return fail("bad hop '" + words[i] + "' (want DEV:PORT)");
                }
                path.push_back(pl_route_hop{static_cast<uint32>(dev), static_cast<uint32>(port)});
            }
        }
        auto &targets = routes.pr_targets;
        auto it = targets.begin();
        while (it != targets.end() && it->first != target) {
            ++it;
        }
        if (it == targets.end()) {
            targets.emplace_back(target, std::vector<std::vector<pl_route_hop>>());
            it = targets.end() - 1;
        }
        it->second.push_back(std::move(path));
    }
    *ret_routes = std::move(routes);
    return 0;
}

void pl_route_bindings(const pl_routes &routes, std::vector<pl_binding> *ret_bindings)
{
    std::vector<pl_binding> &out = *ret_bindings;
    out.clear();
    out.push_back(pl_binding{"swid", "uint8", std::to_string(routes.pr_swid)});
    out.push_back(pl_binding{"number_of_target_devices", "uint32",
                             std::to_string(routes.pr_targets.size())});
    for (size_t t = 0; t < routes.pr_targets.size(); ++t) {
        const std::string target = "target_" + std::to_string(t + 1);
        const auto &paths = routes.pr_targets[t].second;
        out.push_back(pl_binding{target + "_device_id", "uint32",
                                 std::to_string(routes.pr_targets[t].first)});
        out.push_back(
            pl_binding{target + "_number_of_paths", "uint32", std::to_string(paths.size())});
        for (size_t p = 0; p < paths.size(); ++p) {
            const std::string path = target + "_path_" + std::to_string(p + 1);
            out.push_back(pl_binding{path + "_length", "uint32", std::to_string(paths[p].size())});
            for (size_t h = 0; h < paths[p].size(); ++h) {
                const std::string hop = path + "_hop_" + std::to_string(h + 1);
                out.push_back(
                    pl_binding{hop + "_devid", "uint32", std::to_string(paths[p][h].prh_dev)});
                out.push_back(pl_binding{hop + "_localport", "uint8",
                                         std::to_string(paths[p][h].prh_port)});
            }
        }
    }
}

int pl_generate_chassis(uint32 system_type, uint32 spine_slots, uint32 leaf_slots,
                          uint32 chips, uint32 ports, std::string *ret_text, std::string *ret_why)
{
    const system_type_t sys = static_cast<system_type_t>(system_type);
    std::ostringstream out;
    uint32 first_leaf = 0;
    char guid[32] = {};

    if (sah_sqry_ib_is_standalone(sys) || !sah_sqry_ib_is_composite(sys)) {
        *ret_why = "system type " + std::to_string(system_type) + " is no chassis";
        return lc_err_bad_type;
    }
    if (chips == 0 || chips > 4 || ports < 2 || ports > pl_ports_per_device) {
        *ret_why = "want 1 to 4 chips a slot and 2 to 64 ports a chip";
        return lc_err_bad_type;
    }
    // The first leaf id of the type's layout: device ids are spines up to a limit.
    for (uint32 dev = 1; dev <= pl_max_device_id && first_leaf == 0; ++dev) {
        if (!pl_is_spine(dev, system_type)) {
            first_leaf = dev;
        }
    }
    if (first_leaf == 0 || spine_slots * 4 > first_leaf - 1 ||
        first_leaf - 1 + leaf_slots * 4 > pl_max_device_id) {
        *ret_why = "the slots don't fit the layout of system type " + std::to_string(system_type);
        return lc_err_bad_type;
    }

    out << "# A full chassis of system type " << system_type << ": " << spine_slots
        << " spine slots and " << leaf_slots << " leaf slots, " << chips
        << " chips a slot, " << ports << " local ports a chip.\n"
        << "# Leaves: ports 1-" << ports / 2 << " to the front panel, the rest internal;"
        << " spines: all internal.\n";
    for (uint32 kind = 0; kind < 2; ++kind) {
        const tbool spine = kind == 0;
        const uint32 slots = spine ? spine_slots : leaf_slots;
        const uint32 base = spine ? 1 : first_leaf;
        for (uint32 slot = 0; slot < slots; ++slot) {
            for (uint32 chip = 0; chip < chips; ++chip) {
                const uint32 dev = base + slot * 4 + chip;
                snprintf(guid, sizeof(guid), "0x02ab010300d%05x", dev << 4);
                out << "device " << dev << " board_id=\"" << (spine ? "VQ_SPINE" : "VQ_LEAF")
                    << ports << "_EDR\" vendor_id=0x02ab node_guid=" << guid
                    << " system_image_guid=0x02ab010300d00000 pplm=no\n";
                if (spine) {
                    out << "port " << dev << " 1-" << ports
                        << " swid=0 ib_port=auto module=none width=4 speed_cap=0x3f"
                           " width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up\n";
                } else {
                    out << "port " << dev << " 1-" << ports / 2
                        << " swid=0 ib_port=auto module=auto width=4 speed_cap=0x3f"
                           " width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up\n"
                        << "port " << dev << " " << ports / 2 + 1 << "-" << ports
                        << " swid=0 ib_port=auto module=none width=4 speed_cap=0x3f"
                           " width_cap=0x05 max_mtu=4096 vl_cap=8 admin=up\n"
                        << "module " << dev << " 0-" << ports / 2 - 1
                        << " present=yes type=qsfp28 vendor=\"VQ CABLES\" part=\"VQC-EDR-1M\""
                           " length=1\n";
                }
            }
        }
    }
    *ret_text = out.str();
    return 0;
}

int pl_bindings_to_array(const std::vector<pl_binding> &bindings, bn_binding_array **ret_array)
{
    int err = 0;
    bn_binding_array *array = nullptr;
    bn_binding *binding = nullptr;
    uint32 type = bt_NONE;

    bail_null(ret_array);
    *ret_array = nullptr;
    err = bn_binding_array_new(&array);
    bail_error(err);
    for (const pl_binding &b : bindings) {
        err = lc_string_to_enum(bn_type_map, b.pb_type.c_str(), &type);
        bail_error(err);
        err = bn_binding_new_str(&binding, b.pb_name.c_str(), ba_value, static_cast<bn_type>(type), 0,
                                 b.pb_value.c_str());
        bail_error(err);
        bail_null(binding);
        err = bn_binding_array_append_takeover(array, &binding);
        bail_error(err);
    }
    *ret_array = array;
    array = nullptr;

bail:
    bn_binding_free(&binding);
    bn_binding_array_free(&array);
    return err;
}

}  // namespace portd_lite
