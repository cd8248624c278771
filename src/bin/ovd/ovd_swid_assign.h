// Moving a port between switch partitions (SWIDs), or out of all of them, while the system
// runs: by a change of /portd/config/ifindex/<ifindex>/swid, or by the port manager's
// disable and enable hand-shake with operation PORT_MAP_TO_SWID.
#pragma once

#include "bnode.h"
#include "ovd_port_enable.h"
#include "ovd_ports_cache.h"
#include "tstr_array.h"
#include "tstring.h"

// The system profile in which ports change SWIDs.
#define OVD_PROFILE_IB_MULTI_SWITCH 1

// The configuration change of a port's SWID; does nothing on other profiles and names.
int ovd_handle_swid_change(const tstring *bname, const tstr_array *bname_parts,
                           const bn_binding *binding, const bn_binding_array *old_arr);

// The hand-shake: the disable takes the listed ports out of their SWID, the enable puts
// them into the event's; each is answered by its done event.
int ovd_handle_disable_port_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                   enable_port_status operation);
int ovd_handle_port_enable_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                  enable_port_status operation);
int ovd_send_port_disable_enable_done_on_assign_port_to_swid(const bn_binding_array *bindings,
                                                             uint32 status,
                                                             const char *event_name,
                                                             enable_port_status operation);
