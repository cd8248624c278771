// The texts users read for a port's state, speed, width, MTU, VLs and FEC.
//
// Two families.  The sa_port_*_to_tstr functions decode SMP PortInfo fields in their
// InfiniBand coding.  The sa_port_prm_*_to_tstr functions decode the register view
// (PTYS, PMTU, PVLC, PPLM), where speeds and widths are bit masks.  A value that no
// row knows reads "-" unless noted otherwise; every comparison uses the whole value.
//
// Every ..._to_tstr makes a new string in *ret_ts (null on failure; a string already
// there is not freed) and returns 0 or an lc_error_code.  The get_port_* functions give
// static texts.
#pragma once

#include <cstddef>

#include "common.h"
#include "tstring.h"

// One row of a mapping table.
struct data_mapping_t {
    const char *name;
    float value;
    uint8 mask;
    const char *description;
};

// The register speed bits, lowest first; value is Gb/s per lane.
constexpr size_t all_speeds_map_size = 6;
extern const data_mapping_t all_speeds_map[all_speeds_map_size];

// The register width bits that carry a rate; mask is also the number of lanes.
constexpr size_t all_widths_map_size = 2;
extern const data_mapping_t all_widths_map[all_widths_map_size];

// ---------------------------------------------------------------------------------------
// Static texts.

// PortInfo PortState; "internal" for values outside the table.
const char *get_port_logical_state(uint8 port_logical_state);
// PortInfo PortPhysicalState, plus 8 for a port held down by the chassis manager;
// "internal" for values outside the table.
const char *get_port_phy_state(uint8_t port_phy_state);
// A register width mask of 1X (1), 2X (2) and 4X (4), e.g. "1X, 4X".
const char *get_port_width(uint8 link_width);

// ---------------------------------------------------------------------------------------
// PortInfo family.

int sa_port_port_logical_state_to_tstr(tstring **ret_ts, uint8 port_logical_state);
int sa_port_port_phy_state_to_tstr(tstring **ret_ts, uint8 port_phy_state);
int sa_port_link_speed_active_to_tstr(tstring **ret_ts, uint8 link_speed_active);
int sa_port_link_width_active_to_tstr(tstring **ret_ts, uint8 link_width_active);
int sa_port_link_speed_supported_to_tstr(tstring **ret_ts, uint8 link_speed_supported);
int sa_port_link_width_supported_to_tstr(tstring **ret_ts, uint8 link_width_supported);
int sa_port_neighbor_mtu_to_tstr(tstring **ret_ts, uint8 neighbor_mtu);
int sa_port_mtu_cap_to_tstr(tstring **ret_ts, uint8 mtu_cap);
// speed 1, 2 or 4 and width 1, 2, 4 or 8, as PortInfo codes them.
int sa_port_rate_to_tstr(tstring **ret_ts, uint8 speed, uint8 width);
int sa_port_vl_cap_to_tstr(tstring **ret_ts, uint8 vl_cap);
int sa_port_oper_vl_to_tstr(tstring **ret_ts, uint8 oper_vl);

// ---------------------------------------------------------------------------------------
// Register family.

int sa_port_prm_link_width_to_tstr(tstring **ret_ts, uint8 link_width);
// The register counts VLs: 3 is "VL0 - VL2".
int sa_port_prm_vl_to_tstr(tstring **ret_ts, uint8 vl);
// The MTU in bytes as a number.
int sa_port_prm_mtu_to_tstr(tstring **ret_ts, uint16 mtu);
// Every speed of the mask by name, lowest first: 7 reads "sdr, ddr, qdr".
int sa_port_prm_link_speed_to_tstr(tstring **ret_ts, uint8 speed);
// The lowest speed of the mask times the lanes of the lowest known width of the mask,
// e.g. "56.0 Gbps"; "-" when either has no row (a 2X port among them).
int sa_port_prm_rate_to_tstr(tstring **ret_ts, uint8 speed, uint8 width);
// The FEC texts (sa_port_prm_fec_to_tstr, get_fec_val) are the hardware library's.
#include "sa_fec.h"
