// Port attribute answers: once a port's structures are in hand (PortInfo, the registers,
// the counters), the one value a request names is rendered into a binding.  The compound
// strings "all_data" and "all_counters" give a port's data in one request.
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"
#include "sa_counters.h"
#include "sa_registers.h"
#include "swidapi.h"
#include "tstr_array.h"
#include "tstring.h"

// The attribute codes, by name.  Code 14 has no name.
enum ovd_port_attrib {
    OVD_ATTR_STATE = 0,
    OVD_ATTR_PHYSICAL_STATE = 1,
    OVD_ATTR_SPEED = 2,
    OVD_ATTR_WIDTH = 3,
    OVD_ATTR_SUPPORTED_SPEED = 4,
    OVD_ATTR_SUPPORTED_WIDTH = 5,
    OVD_ATTR_MTU = 6,
    OVD_ATTR_SUPPORTED_MTU = 7,
    OVD_ATTR_RATE = 8,
    OVD_ATTR_VL_CAPABILITIES = 9,
    OVD_ATTR_OPERATIONAL_VL = 10,
    OVD_ATTR_CONNECTED_DEVICE_SLOT = 11,
    OVD_ATTR_CONNECTED_DEVICE_PORT = 12,
    OVD_ATTR_CONNECTED_DEVICE_ACTIVE = 13,
    OVD_ATTR_HAS_ERROR = 15,
    OVD_ATTR_ALL_STATE = 16,
    OVD_ATTR_ALL_DATA = 17,
    OVD_ATTR_ALL_COUNTERS = 18,
    OVD_ATTR_FEC = 19,
    OVD_ATTR_XMIT_DATA = 101,
    OVD_ATTR_RCV_DATA = 102,
    OVD_ATTR_XMIT_PKTS = 103,
    OVD_ATTR_RCV_PKTS = 104,
    OVD_ATTR_XMIT_WAIT = 105,
    OVD_ATTR_SYMBOL_ERR_CNT = 106,
    OVD_ATTR_RCV_ERR = 107,
    OVD_ATTR_VL15_DROPPED = 108,
    OVD_ATTR_XMIT_DISCARDS = 109,
};

// The code of an attribute name: 0, or 1 for a name outside the table (arg untouched).
int port_attrib_str_to_enum(const char *attribname, int *arg);

// Renders attribute `arg` of a port into a binding named node_name.  port_type is true
// for an internal port, which passes no counters and no PPLM: the counter attributes,
// "all_data", "all_counters" and "fec" are refused there with 14001.  An arg outside the
// table is logged and answers nothing, with 0.
int get_port_info(const char *node_name, bn_binding **ret_binding, int arg, int neighbor_sys_exist,
                  uint8 is_port_ok, sa_port_speed_state_t *result,
                  ifindexInformation *ret_val_from_ib_ports_ht, ifindexInformation *neighbor_info,
                  const char *attribname, tbool port_type, sa_ext_port_counters_t *result_ext_counters,
                  sa_port_counters_t *result_counters, tbool use_ext_counters, pmtu_reg_t *pmtu_reg,
                  ptys_reg_t *ptys_reg, pvlc_reg_t *pvlc_reg, pplm_reg_t *pplm_reg,
                  const tstring *ifindex);

// A fixed value for an attribute name, by the last part of node_name; no request path
// calls it.  An unknown name gives no binding and 0.
int ret_default_values_ports(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding);
