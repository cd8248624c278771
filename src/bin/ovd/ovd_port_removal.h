// Ports losing what they had: a device that the port manager removes takes its port
// records with it; a port whose configuration is deleted keeps its record and gets the
// hardware's defaults back.
#pragma once

#include "bnode.h"
#include "ovd_ports_cache.h"

// The port manager's /portd/events/device-remove: the device's record and its ports go.
// Always answered by /ib/events/device-remove-done.
int ovd_handle_remove_device_event(const bn_binding_array *bindings);
int ovd_send_remove_device_done_event(uint32 status, uint32 devid);

// Writes a port's default attributes (its speed limit, width 4X|1X, MTU 4096, FEC auto,
// its default VL), taking it down first with disable_port and up afterwards with
// enable_port.  *new_vl is the default VL, *new_configured_state what the port is left at.
int handleIbPortDeletion(ifindexInformation *port_info, uint8 *new_vl, tbool *new_configured_state,
                         tbool enable_port, tbool disable_port);
