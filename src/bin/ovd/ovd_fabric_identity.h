// What a SWID sees of the fabric: whether a master subnet manager answers, the LIDs of
// the SWID's own port and of the subnet manager, the port GUID, and the GUID, LID and
// name of a device.
//
// The SWID's own LIDs and GUID are the kernel driver's, read from its sysfs folder
// "/sys/class/infiniband/vq_ib_<swid>/"; a device's identity comes from a NodeInfo query
// over its direct route; the subnet manager question goes to the hardware access layer.
// All producers here take the SWID from part 3 of the node name.
#pragma once

#include "bnode.h"
#include "common.h"
#include "swidapi.h"
#include "tstr_array.h"

// The SWID's sysfs files are read with get_ib_fn of the hardware access layer.

// /ib/state/swid/<swid>/is_sm_in_fabric: bt_bool, whether a master subnet manager
// answers.  The query may take up to a time-out that grows while none answers (500,
// 1000, 2000, then 3000 ms) and drops back to 500 ms with the first positive answer.
// Answers nothing on a system that isn't a switch.
int get_is_sm_in_fabric(const char *node_name, const tstr_array *bname_parts,
                        bn_binding **ret_binding);
// /ib/state/swid/<swid>/my_lid and .../sm_lid: bt_uint16.  A missing file reads 0.
int get_my_lid(const char *node_name, const tstr_array *bname_parts, bn_binding **ret_binding);
int get_sm_lid(const char *node_name, const tstr_array *bname_parts, bn_binding **ret_binding);
// /ib/state/swid/<swid>/my_sm_port_guid: bt_uint64, the lower half of the port's GID.  A
// missing or malformed GID reads 0.
int get_my_sm_port_guid(const char *node_name, const tstr_array *bname_parts,
                        bn_binding **ret_binding);
// /ib/state/swid/<swid>/<group>/<devid>/{guid,lid,name}: the device's node GUID
// (bt_uint64), LID (bt_uint16) or name (bt_string).  Every leaf asks the device first.
int get_node_lid_guid(const char *node_name, const tstr_array *bname_parts,
                      bn_binding **ret_binding);
// NodeInfo of a device, through one of its InfiniBand ports and its checked direct route.
// A device without a port in ibports_ht is lc_err_unexpected_arg; one without a route or
// whose query fails, lc_err_not_found.
int get_node_lid_guid_sa_result(uint32 devid, uint8 swid, sa_node_info_t *result);
