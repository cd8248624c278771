// Adding a device: the reader of the port manager's events, the system part done on the
// first event (system identity, one hardware context per served SWID), the device record
// and its ports, and the answer to the port manager.
#pragma once

#include "bnode.h"
#include "bnode_proto.h"
#include "common.h"
#include "tstr_array.h"

// What getInfoFromAddDeviceEvent reads.  Names with an index are formed with the index
// given, counted from 1.
typedef enum {
    system_type_en = 0,                 // system_type              bt_uint32
    subsystem_type_en = 1,              // subsystem_type           bt_uint32
    system_image_guid_en = 2,           // system_image_guid        bt_uint64
    slot_id_en = 3,                     // slot_id                  bt_uint32
    is_master_en = 4,                   // is_master                bt_tbool
    dev_id_en = 5,                      // dev_id                   bt_uint32
    port_num_en = 6,                    // port_num                 bt_uint32
    operation_en = 7,                   // operation                bt_uint8
    speed_hw_cap = 8,                   // max_ib_speed_hw_cap      bt_uint8
    speed_sw_limit = 9,                 // max_ib_speed_sw_limit    bt_uint8
    ifindex_en = 10,                    // ifindex_<i>              bt_uint32
    port_swid_en = 11,                  // swid_<i>                 bt_uint8
    ibport_en = 12,                     // ibport_<i>               bt_uint8
    localport_en = 13,                  // local_<i>                bt_uint8
    direction_en = 14,                  // direction_<i>            bt_uint8
    ifindex_neighbor_en = 15,           // ifindex_neighbor_<i>     bt_uint32
    label_port_en = 16,                 // label_<i>                bt_uint8
    lcl_port_en = 17,                   // lcl_port                 bt_uint8
    ib_port_en = 18,                    // ib_port                  bt_uint8
    swid_burn_port_en = 19,             // swid                     bt_uint8
    ifindex_burn_port_en = 20,          // ifindex                  bt_uint32
    ifindex_neighbor_burn_port_en = 21, // ifindex_neighbor         bt_uint32
    subsystem_name_en = 22,             // subsystem_name           bt_string, new tstring
    device_name_en = 23,                // device_name              bt_string, new tstring
    virtual_port_en = 24,               // virtual_<i>              bt_tbool
    bay_port_en = 25,                   // bay_port_<i>             bt_uint8
    force_en = 26,                      // force_<i>                bt_tbool
    index_inside_slot_en = 27,          // index_inside_slot        bt_uint32
    ib_swid_num_en = 28,                // ib_swid_num              bt_uint8
    ib_swid_en = 29,                    // ib_swid_<i>              bt_uint8
} addDeviceEventInfo;

// The one reader of the port manager's events.  ret_val points to a variable of the type
// named above (tstring * for the two texts, which the caller then owns).  A missing
// binding is logged ("<function> No <name> binding") and gives the plain value 1; an
// unknown enumerator gives lc_err_unexpected_case.
int getInfoFromAddDeviceEvent(const bn_binding_array *bindings, addDeviceEventInfo info_op,
                              void *ret_val, uint32 i);

// The handler of /portd/events/ib-device-add.  Writes the system M_Key to the device
// before anything else, does the system part on the first event that succeeds in it,
// then records the device and its ports.  A device with no ports is complained about and
// not recorded, with success.
int ovd_handle_device_port_add_event(const bn_binding_array *bindings);

// System type, image and node GUID, and one hardware context per SWID of ib_swid_<i>.
// A SWID that has its context already is lc_err_invalid_param.
int set_system_parameters_from_bindings(const bn_binding_array *bindings);
// Range check of dev_id, removal of an earlier record of the same device, then
// add_new_device_from_bindings.
int set_device_parameters_from_bindings(const bn_binding_array *bindings);
// Node description and image GUID on every served SWID, then the device record.
int add_new_device_from_bindings(uint32 dev_id_info, const bn_binding_array *bindings);

// Sends /ib/events/device-add-done with status and dev_id.
int ovd_send_device_add_done_event(uint32 status, uint32 devid);

// The system M_Key, read from /system/chassis/config/system_m_key on first use and kept
// for the process's life.  An absent node is lc_err_unexpected_null, and is asked again
// next time.
int ovd_get_system_m_key_val(uint64 *p_ret_system_m_key_val);

// The flow's two conversations with mgmtd, through these pointers so that the flow can
// run without a session.  The query gives the node's value with *ret_found true, or
// *ret_found false for an absent node; the sender sends an event without waiting for a
// reply and keeps no hold of it.  They start as the real ones.
typedef int (*ovd_system_m_key_query_func)(uint64 *ret_value, tbool *ret_found);
typedef int (*ovd_event_send_func)(bn_request *event);
extern ovd_system_m_key_query_func g_ovd_system_m_key_query;
extern ovd_event_send_func g_ovd_event_send;
int ovd_query_system_m_key(uint64 *ret_value, tbool *ret_found);
int ovd_send_event(bn_request *event);

// Forgets what the process learnt from its first events: the system part counts as not
// done and the M_Key as not read.  For tests.
void ovd_device_add_forget_system(void);

// State leaf: the speed capability (register mask) of the device whose id is the fourth
// component of the name (/ib/state/devid/<id>/...), as a bt_uint8 binding named node_name.  A device that isn't known gives no
// binding and no error.
int ovd_get_device_max_speed(const char *node_name, const tstr_array *bname_parts,
                             bn_binding **ret_binding);
