// The texts users read for a port's state, speed, width, MTU, VLs and FEC.
#include "ovd_port_values.h"

#include <span>
#include <string_view>

#include "logging.h"

const data_mapping_t all_speeds_map[all_speeds_map_size] = {
    {"sdr", 2.5f, 0x01, "10.0 Gbps rate on 4 lane width"},
    {"ddr", 5.0f, 0x02, "20.0 Gbps rate on 4 lane width"},
    {"qdr", 10.0f, 0x04, "40.0 Gbps rate on 4 lane width"},
    {"fdr10", 10.0f, 0x08, "40.0 Gbps rate on 4 lane width"},
    {"fdr", 14.0f, 0x10, "56.0 Gbps rate on 4 lane width"},
    {"edr", 25.0f, 0x20, "100.0 Gbps rate on 4 lane width"},
};

const data_mapping_t all_widths_map[all_widths_map_size] = {
    {"1X", 0.0f, 0x01, "1 lane width"},
    {"4X", 0.0f, 0x04, "4 lane width"},
};

namespace {

constexpr const char *k_unknown = "-";
constexpr const char *k_internal = "internal";
constexpr const char *k_no_state_change = "No State Change (Set only)";

struct value_text {
    uint32 value;
    const char *text;
};

const char *lookup(std::span<const value_text> rows, uint32 value, const char *unknown)
{
    for (const value_text &row : rows) {
        if (row.value == value) {
            return row.text;
        }
    }
    return unknown;
}

constexpr value_text logical_state_rows[] = {
    {0, k_no_state_change}, {1, "Down"}, {2, "Initialize"}, {3, "Armed"}, {4, "Active"},
};

constexpr value_text phy_state_rows[] = {
    {0, k_no_state_change},
    {1, "Sleep"},
    {2, "Polling"},
    {3, "Disabled"},
    {4, "PortConfigurationTraining"},
    {5, "LinkUp"},
    {6, "LinkErrorRecovery"},
    {7, "Phy Test"},
    {8, "Disabled By Chassis Manager"},  // set by the daemon on e-key blades
};

constexpr value_text prm_width_rows[] = {
    {1, "1X"}, {2, "2X"}, {3, "1X, 2X"}, {4, "4X"}, {5, "1X, 4X"}, {6, "2X, 4X"}, {7, "1X, 2X, 4X"},
};

constexpr value_text speed_active_rows[] = {
    {1, "2.5 Gbps"}, {2, "5.0 Gbps"}, {4, "10.0 Gbps"},
};

constexpr value_text width_active_rows[] = {
    {1, "1X"}, {2, "4X"}, {4, "8X"}, {8, "12X"},
};

constexpr value_text speed_supported_rows[] = {
    {1, "2.5 Gbps"}, {3, "2.5 / 5.0 Gbps"}, {5, "2.5 / 10.0 Gbps"}, {7, "2.5 / 5.0 / 10.0 Gbps"},
};

constexpr value_text width_supported_rows[] = {
    {1, "1X"}, {3, "1X, 4X"}, {7, "1X, 4X, 8X"}, {11, "1X, 4X, 12X"}, {15, "1X, 4X, 8X, 12X"},
};

constexpr value_text mtu_rows[] = {
    {1, "256"}, {2, "512"}, {3, "1024"}, {4, "2048"}, {5, "4096"}, {6, "8192"}, {7, "10240"},
};

constexpr value_text vl_cap_rows[] = {
    {1, "VL0"}, {2, "VL0, VL1"}, {3, "VL0 - VL3"}, {4, "VL0 - VL7"}, {5, "VL0 - VL14"},
};

constexpr value_text oper_vl_rows[] = {
    {0, k_no_state_change}, {1, "VL0"}, {2, "VL0, VL1"}, {3, "VL0 - VL3"}, {4, "VL0 - VL7"}, {5, "VL0 - VL14"},
};

constexpr value_text prm_vl_rows[] = {
    {1, "VL0"},       {2, "VL0, VL1"},  {3, "VL0 - VL2"}, {4, "VL0 - VL3"},  {5, "VL0 - VL4"},
    {6, "VL0 - VL5"}, {7, "VL0 - VL6"}, {8, "VL0 - VL7"}, {15, "VL0 - VL14"},
};

// PortInfo rate texts by speed code (rows) and width code (columns 1, 2, 4, 8).
struct rate_row {
    uint8 speed;
    const char *by_width[4];
};

constexpr rate_row rate_rows[] = {
    {1, {"2.5 Gbps", "10.0 Gbps", "20.0 Gbps", "30.0 Gbps"}},
    {2, {"5.0 Gbps", "20.0 Gbps", "40.0 Gbps", "60.0 Gbps"}},
    {4, {"10.0 Gbps", "40.0 Gbps", "80.0 Gbps", "120.0 Gbps"}},
};

const char *rate_text(uint8 speed, uint8 width)
{
    int col = -1;

    switch (width) {
    case 1:
        col = 0;
        break;
    case 2:
        col = 1;
        break;
    case 4:
        col = 2;
        break;
    case 8:
        col = 3;
        break;
    default:
        return k_unknown;
    }
    for (const rate_row &row : rate_rows) {
        if (row.speed == speed) {
            return row.by_width[col];
        }
    }
    return k_unknown;
}

// The first row whose mask shares a bit with the given mask, or null.
const data_mapping_t *first_matching_row(std::span<const data_mapping_t> rows, uint8 mask)
{
    for (const data_mapping_t &row : rows) {
        if (row.mask & mask) {
            return &row;
        }
    }
    return nullptr;
}

int text_to_tstr(tstring **ret_ts, const char *text)
{
    int err = 0;

    bail_null(ret_ts);
    err = ts_new_str(ret_ts, text);
    bail_error(err);

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Static texts.

const char *get_port_logical_state(uint8 port_logical_state)
{
    return lookup(logical_state_rows, port_logical_state, k_internal);
}

const char *get_port_phy_state(uint8_t port_phy_state)
{
    return lookup(phy_state_rows, port_phy_state, k_internal);
}

const char *get_port_width(uint8 link_width)
{
    return lookup(prm_width_rows, link_width, k_unknown);
}

// ---------------------------------------------------------------------------------------
// PortInfo family.

int sa_port_port_logical_state_to_tstr(tstring **ret_ts, uint8 port_logical_state)
{
    return text_to_tstr(ret_ts, get_port_logical_state(port_logical_state));
}

int sa_port_port_phy_state_to_tstr(tstring **ret_ts, uint8 port_phy_state)
{
    return text_to_tstr(ret_ts, get_port_phy_state(port_phy_state));
}

int sa_port_link_speed_active_to_tstr(tstring **ret_ts, uint8 link_speed_active)
{
    return text_to_tstr(ret_ts, lookup(speed_active_rows, link_speed_active, k_unknown));
}

int sa_port_link_width_active_to_tstr(tstring **ret_ts, uint8 link_width_active)
{
    return text_to_tstr(ret_ts, lookup(width_active_rows, link_width_active, k_unknown));
}

int sa_port_link_speed_supported_to_tstr(tstring **ret_ts, uint8 link_speed_supported)
{
    return text_to_tstr(ret_ts, lookup(speed_supported_rows, link_speed_supported, k_unknown));
}

int sa_port_link_width_supported_to_tstr(tstring **ret_ts, uint8 link_width_supported)
{
    return text_to_tstr(ret_ts, lookup(width_supported_rows, link_width_supported, k_unknown));
}

int sa_port_neighbor_mtu_to_tstr(tstring **ret_ts, uint8 neighbor_mtu)
{
    return text_to_tstr(ret_ts, lookup(mtu_rows, neighbor_mtu, k_unknown));
}

int sa_port_mtu_cap_to_tstr(tstring **ret_ts, uint8 mtu_cap)
{
    return text_to_tstr(ret_ts, lookup(mtu_rows, mtu_cap, k_unknown));
}

int sa_port_rate_to_tstr(tstring **ret_ts, uint8 speed, uint8 width)
{
    return text_to_tstr(ret_ts, rate_text(speed, width));
}

int sa_port_vl_cap_to_tstr(tstring **ret_ts, uint8 vl_cap)
{
    return text_to_tstr(ret_ts, lookup(vl_cap_rows, vl_cap, k_unknown));
}

int sa_port_oper_vl_to_tstr(tstring **ret_ts, uint8 oper_vl)
{
    return text_to_tstr(ret_ts, lookup(oper_vl_rows, oper_vl, k_unknown));
}

// ---------------------------------------------------------------------------------------
// Register family.

int sa_port_prm_link_width_to_tstr(tstring **ret_ts, uint8 link_width)
{
    return text_to_tstr(ret_ts, get_port_width(link_width));
}

int sa_port_prm_vl_to_tstr(tstring **ret_ts, uint8 vl)
{
    return text_to_tstr(ret_ts, lookup(prm_vl_rows, vl, k_unknown));
}

int sa_port_prm_mtu_to_tstr(tstring **ret_ts, uint16 mtu)
{
    int err = 0;

    bail_null(ret_ts);
    err = ts_new_sprintf(ret_ts, "%u", static_cast<unsigned>(mtu));
    bail_error(err);

bail:
    return err;
}

int sa_port_prm_link_speed_to_tstr(tstring **ret_ts, uint8 speed)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    err = ts_new(&ts);
    bail_error(err);
    for (const data_mapping_t &row : all_speeds_map) {
        if (row.mask & speed) {
            err = ts_append_str(ts, row.name);
            bail_error(err);
            err = ts_append_str(ts, ", ");
            bail_error(err);
        }
    }
    if (ts_length(ts) == 0) {
        err = ts_append_str(ts, k_unknown);
        bail_error(err);
    } else {
        err = ts_trim(ts, 0, 2);
        bail_error(err);
    }
    *ret_ts = ts;
    ts = nullptr;

bail:
    ts_free(&ts);
    return err;
}

int sa_port_prm_rate_to_tstr(tstring **ret_ts, uint8 speed, uint8 width)
{
    int err = 0;
    const data_mapping_t *speed_row = nullptr;
    const data_mapping_t *width_row = nullptr;
    float rate = 0.0f;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    speed_row = first_matching_row(all_speeds_map, speed);
    width_row = first_matching_row(all_widths_map, width);
    if (speed_row == nullptr || width_row == nullptr) {
        err = ts_new_str(ret_ts, k_unknown);
        bail_error(err);
    } else {
        // Single precision on purpose: the per-lane values are floats.
        rate = speed_row->value * static_cast<float>(width_row->mask);
        err = ts_new_sprintf(ret_ts, "%.1lf Gbps", static_cast<double>(rate));
        bail_error(err);
    }
    bail_null(*ret_ts);

bail:
    return err;
}
