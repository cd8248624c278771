// The port-enable hand-shake with the port manager: after a device was added, the port
// manager asks for its ports to be brought up (or taken down again).  Each port gets its
// stored attributes, or the defaults, in one admin-capability write, then its PAOS state;
// the answer lists the ports handled.  The debug mode injects enable failures for tests
// of the port manager on modular systems.
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"
#include "tstring.h"
#include "ttime.h"

// The `operation` of port-enable and port-disable.
typedef enum enable_port_status {
    PORT_ENABLE_INIT = 0,
    PORT_MAP_TO_SWID = 1,
    PORT_ENABLE_VIRTUAL = 2,
    PORT_TYPE_CHANGE = 3,
    ETH_PORT_TYPE_CHANGE = 4,
} enable_port_status;

// The answers of the enable family.
inline constexpr char ovd_port_enable_done_event[] = "/portd/events/port-enable-done";
inline constexpr char ovd_port_disable_done_event[] = "/portd/events/port-disable-done";

// The sender's id in every done event of the enable family, among the daemons the port
// manager waits for.
#define OVD_BASE 8

// How long after its enable a port's link is given before it is judged.
#define OVD_PORT_AVAILABILITY_DELAY_MS 120000

// Port defaults where nothing is configured.
#define OVD_DEFAULT_PORT_MTU 4096
#define OVD_DEFAULT_PORT_WIDTH 5
#define OVD_DEFAULT_PORT_FEC 0

// Selectors of /portd/events/port-enable and /portd/events/port-disable by `operation`.
// Operation 2 goes to the virtual ports; operations without a flow are dropped, with no
// answer.
int ovd_handle_device_port_enable_event(const bn_binding_array *bindings);
int ovd_handle_ib_device_port_disable_event(const bn_binding_array *bindings);

// Operation 0: every port listed gets PLIB, its attributes and PAOS; the done event
// follows, also when the flow failed (with dev_id 0 when it couldn't be read).
int ovd_handle_init_device_port_enable_event(const bn_binding_array *bindings);
// Operation 0 of the disable: takes the listed ports down.  Answered by silence.
int ovd_handle_disable_port_on_init(const bn_binding_array *bindings);

// Applies the stored or default attributes of one port in a single admin-capability
// write; the defaults fill the stored entry's unset fields, and a port without an entry
// gets one.  *enable_status is the entry's enable; *interface_speed_to_apply the speed
// mask written.  PAOS is the caller's.  A port of a SWID not served is left alone.
int ovd_configure_port_attributes(uint8 *enable_status, uint8 *interface_speed_to_apply,
                                  uint8 localport, uint32 devid,
                                  ifindexInformation *ret_val_from_ib_ports_ht,
                                  const tstring *ifindex, enable_port_status flow,
                                  tbool map_port_to_swid_force);

// /portd/events/port-enable-done: for a success the device's ports marked in
// local_ports_array (OVD_NUM_LOCAL_PORT_SLOTS entries), numbered from 1, then status,
// dev_id, port_num, operation and daemon.  A success with no ports sends nothing.
int ovd_send_device_port_enable_done_event(uint32 status, uint32 devid, uint8 operation,
                                           uint8 *local_ports_array);

// Whether a port enabled at init_time (uptime) has had its time to come up.
tbool validate_port_avaliability(lt_dur_ms init_time);

// /ib/events/ovd-debug-mode: on a modular system, fails the next `times` enables of the
// device whose subsystem name is `slot`.
int ovd_handle_debug_mode_change_event(const bn_binding_array *bindings);
