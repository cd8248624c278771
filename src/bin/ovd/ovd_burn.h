// The port manager's firmware-burn flow: a bare device, and one of its ports brought up at
// the lowest speed, with minimal records and no configuration.
#pragma once

#include "bnode.h"
#include "common.h"

// Where the firmware updater says whether a device takes the system M_Key; an absent node
// means that it does.
#define OVD_FW_UPDT_M_KEY_NODE_FMT "/fw_updt/state/devices/%u/system_m_key_supported"

// /portd/events/add-burn-device: the device's record with its name alone.  Answered by
// /ib/events/add-burn-device-done unless the device id is out of range.
int ovd_handle_add_device_burn_event(const bn_binding_array *bindings);
int ovd_send_burn_add_device_done_event(uint32 status, uint32 devid);

// /portd/events/enable-burn-port: the port's record, its M_Key, speed value 1 and PAOS up.
// Answered by /ib/events/enable-burn-port-done when the port's SWID is served here.
int ovd_handle_enable_burn_port_event(const bn_binding_array *bindings);
int ovd_send_enable_burn_port_done_event(uint32 status, uint32 devid, uint8 local, uint8 label);
