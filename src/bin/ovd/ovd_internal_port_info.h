// Live information of an internal port, on a link between chips of the chassis: one
// attribute at a time, from its own one-port cache filled once per five-second interval
// with the port's registers and PortInfo (no counters), and the link's verdict.  An
// internal link is meant to run at the fastest speed both ends were given, on 4X; one
// that doesn't reads "has_error" 1, once both ends have had their two minutes since
// their enable.  A port without a neighbour reads "Polling".
#pragma once

#include "bnode.h"
#include "ovd_ports_cache.h"
#include "tstr_array.h"

// One attribute of an internal port, named as the state tree names it (ifindex in part
// num_parts - 2, the attribute in part 4).  *ret_binding stays null without an answer,
// which may come with 0.
int get_internal_port_info(const char *node_name, const tstr_array *bname_parts,
                           bn_binding **ret_binding, ifindexInformation *ret_val_from_ib_ports_ht);
