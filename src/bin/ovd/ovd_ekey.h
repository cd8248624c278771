// E-key blade systems.  On a blade the chassis controller holds a permission bit, the
// E-key, for each external port: a port is up only while the user enabled it and its
// E-key allows it.  On one kind of blade system the bits live with brelld, which reports
// single ports; on the other with cme, which reports ranges of label ports.
//
// The controller's ready event and the port manager's enable event can come in either
// order.  Until both have come, no PAOS is written for the blade's ports: the enable flow
// records the attributes and holds its answer back when the ready event is still to come,
// and the ready handler then writes PAOS for every port and sends that answer.
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"

typedef enum ekeyBladeSystem {
    regular_system = 0,
    brell_system = 1,
    cme_system = 2,
} ekeyBladeSystem;

// The kind of blade system, set once at start-up from g_sys_type.
extern ekeyBladeSystem g_ekey_system;

// 24 and 25 are brelld's blades, 18 is cme's; every other system type is regular.
int check_if_ekey_blade_system(ekeyBladeSystem *ret_system);

// /brelld/events/brelld-ready and /cme/events/cme-ready.  On a system of the other kind
// the event is refused with lc_err_unexpected_arg.
int ovd_handle_brelld_ready_event(void);
int ovd_handle_cme_ready_event(void);
// Records the ready event; once the enable flow has been through, writes PAOS for every
// port and sends the port-enable answer that flow held back.
int ovd_handle_ekey_blade_ready_event(void);

// PAOS of every served port by its E-key and its user's wish; marks each port handled in
// local_ports_array (OVD_NUM_LOCAL_PORT_SLOTS entries) and gives the ports' device.
int set_ekey_blade_paos_to_ports(uint32 *ret_devid, uint8 *local_ports_array);

// Reads the label port's E-key from the controller's tree, records it, and writes PAOS:
// up only when the user allows it (1, or 255 for not set) and the E-key does.
// *ret_configured_state tells what was written, also when the write failed.
int configure_ekey_blade_paos(uint8 label_port, uint32 devid, uint8 lcl_port,
                              uint8 user_enable_status, uint32 ifindex, uint8 swid,
                              tbool *ret_configured_state);

// Records the E-key of a label port, for the devices of the blade kinds that carry them.
int init_ekey_table(uint32 dev_id_info, uint8 label_port, uint8 enable_val, uint32 ifindex);

// The recorded E-key of a label port (the stored record); none is lc_err_unexpected_arg.
int get_label_port_ekey_status(uint8 label_port, ekeyInfo **ekey_tabel_val);

// /brelld/events/ekey-port-change (`port`, `enable`) and /cme/events/allow_external_ports
// (`lower_bound`, `upper_bound`, `enable`).
int ovd_handle_brelld_port_change_event(const bn_binding_array *bindings);
int ovd_handle_allow_external_ports_event(const bn_binding_array *bindings);
// A new E-key of one label port: takes the port down, or brings it up when its user
// allows it, and records the new E-key.
int ovd_handle_ekey_port_change(uint8 port, tbool new_status);
