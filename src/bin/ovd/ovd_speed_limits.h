// What speeds and how many VLs a device and each of its ports may use.
//
// A speed limit is a mask in register form (bit 0 SDR up to bit 5 EDR, as in PTYS); a VL
// limit is the PVLC value, 8 for eight data VLs and 1 for a single one.  A few system
// types cut the speed and the VLs of some front-panel ports; those exceptions are keyed by
// system type, part number and label port.  maxportspeeds_ht can cap single ports further:
// its key is "<devid> <label port>", its value a speed enumerator (ib_speed_cap).
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"
#include "tstr_array.h"
#include "tstring.h"

// Speeds counted in order, as the entries of maxportspeeds_ht hold them.
enum ib_speed_cap {
    ib_speed_sdr = 0,
    ib_speed_ddr = 1,
    ib_speed_qdr = 2,
    ib_speed_fdr10 = 3,
    ib_speed_fdr14 = 4,
    ib_speed_edr = 5,
};

#define OVD_NUM_IB_SPEED_CAPS 6
// "SDR", "DDR", "QDR", "FDR10", "FDR14", "EDR", by enumerator.
extern const char *const ib_speed_cap_str[OVD_NUM_IB_SPEED_CAPS];

// The speed limit of every device: SDR to FDR10.
#define OVD_DEVICE_MAX_SPEED_LIMIT 15
// The VL value of a restricted port, and of any other.
#define OVD_RESTRICTED_PORT_VL 1
#define OVD_DEFAULT_PORT_VL 8

// The part numbers of S_ZR4031 whose ports are restricted.
#define OVD_PART_NUMBER_ZR7312F_1 "ZR7312F-1KQT_WT"
#define OVD_PART_NUMBER_ZR7312F_2 "ZR7312F-2KQT_WT"

// The device's limit from its capability and software limit; the result is SDR to FDR10
// whatever they say.
int calc_device_max_speed_limit(uint8 max_ib_speed_hw_cap, uint8 max_ib_speed_sw_limit,
                                uint8 *ret_val);

// The mask of all speeds up to and including the enumerator, in 8 bits: sdr gives 1,
// qdr 7, fdr14 31; 7 and above give 255.
uint8 convert_enum_speed_to_prm_format(uint8 enum_val_speed);

// device_max_speed_limit of a device.  Above OVD_MAX_DEVICE_ID is lc_err_range, an empty
// slot lc_err_unexpected_arg.  The id is 8 bits wide: callers with wider ids truncate.
int get_device_max_speed_limit(uint8 devid, uint8 *device_max_speed_limit);

// The key of maxportspeeds_ht for a device's label port: "<devid> <label port>".
int ovd_max_port_speed_key_new(uint32 devid, uint8 label_port, tstring **ret_key);

// Replaces (remove_status) or adds the cap of a port; a removal too leaves an entry.
int updateMaxPortSpeedsHashTable(const tstring *devid_port, tbool remove_status, uint8 speed);

// The device's limit, narrowed by the port's entry of maxportspeeds_ht if it has one.
int calc_internal_port_max_speed_limit(uint32 devid, uint8 label_port,
                                       uint8 *port_max_speed_limit);

// The speed limit of a port: direction_info non-zero is an external port, which the
// restricted-port rules apply to; an internal one goes by calc_internal_port_max_speed_limit.
// On S_ZR4031 the part number is needed (and cached in g_part_number); when it can't be
// had every port of that system fails.
int get_port_max_speed_limit(uint8 direction_info, uint32 devid, uint8 label_port,
                             uint8 *port_max_speed_limit_val);

// The VL limit and the default VL of a port (the same value): 8, or 1 on a restricted
// port.  The direction is not looked at.
int get_port_vl_limit(uint8 direction_info, uint32 devid, uint8 label_port,
                      uint8 *port_vl_limit_val);
int get_port_default_vl(uint8 direction_info, uint32 devid, uint8 label_port,
                        uint8 *port_vl_default_val);

// Producers of the monitoring tree: each answers one bt_uint8 binding named node_name for
// the port.  The speed and VL limits are taken as for an external (get_max_external_...)
// or internal (get_max_internal_...) port whatever the port's own direction;
// get_port_vl_default_info answers the smaller of the port's VL limit and default VL.
int get_max_external_port_limit_info(const char *node_name, const tstr_array *bname_parts,
                                     bn_binding **ret_binding,
                                     ifindexInformation *ret_val_from_ib_ports_ht);
int get_max_internal_port_limit_info(const char *node_name, const tstr_array *bname_parts,
                                     bn_binding **ret_binding,
                                     ifindexInformation *ret_val_from_ib_ports_ht);
int get_max_external_port_vl_limit_info(const char *node_name, const tstr_array *bname_parts,
                                        bn_binding **ret_binding,
                                        ifindexInformation *ret_val_from_ib_ports_ht);
int get_max_internal_port_vl_limit_info(const char *node_name, const tstr_array *bname_parts,
                                        bn_binding **ret_binding,
                                        ifindexInformation *ret_val_from_ib_ports_ht);
int get_port_vl_default_info(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding,
                             ifindexInformation *ret_val_from_ib_ports_ht);
