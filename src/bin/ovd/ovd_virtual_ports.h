// Virtual ports: ports the port manager announces with "virtual_<i>" true and local numbers
// from 65 up.  They live in virtual_ibports_ht, apart from the physical ports, may belong
// to several SWIDs at once, and are all switched on and off through the PAOS register of
// one shared local port, g_virtual_paos_lcl_port.
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_port_enable.h"
#include "sa_registers.h"

// The lowest local port number a virtual port may have.
#define local_start_port 65

// Which way the virtual port flow goes.
typedef enum port_flow_status {
    PORT_DISABLE = 0,
    PORT_ENABLE = 1,
} port_flow_status;

// Operation 2 of port-enable (flow PORT_ENABLE) and port-disable (PORT_DISABLE): every
// port listed is put into or taken out of its SWID and, where the SWID is served, the
// shared PAOS port is written.  The done event always follows; the first failure ends
// the walk and is returned.
int ovd_handle_virtual_port_enable_disable(const bn_binding_array *bindings,
                                           enable_port_status operation, port_flow_status flow);

// Writes PAOS on the shared virtual port (not on local_port, which is logged only), with
// the event-generation bits set.  A SWID this daemon doesn't serve is skipped with a warning.
int ovd_set_virtual_paos_register(uint32 dev_id, uint8 local_port, uint8 swid,
                                  sa_port_state_t state);

// The answer to the port manager: the ports of served SWIDs among all requested, then
// status, dev_id, port_num, operation and daemon.  Nothing goes out for a success about no
// ports.
int ovd_send_virtual_port_disable_enable_done_event(const bn_binding_array *bindings,
                                                    uint32 status, const char *event_name,
                                                    enable_port_status operation);
