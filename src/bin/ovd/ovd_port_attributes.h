// Applying a port's configured attributes: speed, width, MTU, VLs, FEC and enable.
//
// A change of one of the leaves under /ib/config/{external,internal}ports/<ifindex>/ reaches
// one handler here, which brings two records into line: the port's ifindexInformation in
// ibports_ht (what the hardware was told) and its port_config_parameters_t in
// ifindex_to_config_ht (what the user configured).  The hardware is touched only for a
// port that exists and whose SWID this daemon serves; any other change only updates the
// configuration record, which the device flows apply when the port comes.
//
// Writing a capability on a running port takes it down first: PAOS down, settle, write,
// PAOS up.  The settle time follows taking the port down there, and each PAOS write of the
// enable handler.
#pragma once

#include "bnode.h"
#include "bnode_proto.h"
#include "common.h"
#include "ovd_ports_cache.h"
#include "sa_registers.h"
#include "tstr_array.h"
#include "tstring.h"

// The settle time after a PAOS write, in microseconds.
#define OVD_PORT_SETTLE_USEC 30000

// Handlers of one configuration leaf each.  bname is the node's full name, binding the new
// value, ifindex the name part before the leaf; bname_parts and old_arr are not consulted.
// A binding flagged btf_deleted returns the port to its defaults (handle_deleted_port_config).
// "enable", "speed", "width" and "op_vls" are bt_uint8 (255: the default); "mtu" and "fec"
// are bt_string ("-1": the default).
int ovd_handle_ib_port_enable_config_status(const tstring *bname, const tstr_array *bname_parts,
                                            const bn_binding *binding,
                                            const bn_binding_array *old_arr,
                                            const tstring *ifindex);
int ovd_handle_ib_port_speed_config_status(const tstring *bname, const tstr_array *bname_parts,
                                           const bn_binding *binding,
                                           const bn_binding_array *old_arr,
                                           const tstring *ifindex);
int ovd_handle_ib_port_width_config_status(const tstring *bname, const tstr_array *bname_parts,
                                           const bn_binding *binding,
                                           const bn_binding_array *old_arr,
                                           const tstring *ifindex);
int ovd_handle_ib_port_mtu_config_status(const tstring *bname, const tstr_array *bname_parts,
                                         const bn_binding *binding,
                                         const bn_binding_array *old_arr,
                                         const tstring *ifindex);
int ovd_handle_ib_port_op_vls_config_status(const tstring *bname, const tstr_array *bname_parts,
                                            const bn_binding *binding,
                                            const bn_binding_array *old_arr,
                                            const tstring *ifindex);
int ovd_handle_ib_port_fec_config_status(const tstring *bname, const bn_binding *binding,
                                         const tstring *ifindex);

// Writes one attribute of a port to the hardware: "speed", "width" and "op_vls" take a
// uint8 in data, "mtu" and "fec" the value's text.  A running port is taken down around
// the write and brought up again; a port held down gets the write alone.  A port of a SWID
// this daemon doesn't serve is left alone.  configured_state is not changed.
int setIbPortAttribute(ifindexInformation *port_info, void *data, const char *attribute);

// The device's display name and index in its slot, for log lines; an unknown device reads
// as an empty name.
void ovd_device_log_name(uint32 dev_id, const char **ret_name, int *ret_index);
// The name part alone: "" for a device the table doesn't hold.
const char *ovd_device_name(uint32 dev_id);

// The one door to a port's administrative state.  A SWID this daemon doesn't serve is
// skipped with a warning and no error.
int ovd_set_paos_register(uint32 dev_id, uint8 local_port, uint8 label_port, uint8 swid,
                          sa_port_state_t state);

// Brings a port up (state true) or down, and records it in configured_state.
int change_port_state(const tstring *ifindex, ifindexInformation *port_info, tbool state);

// The set request that writes an enable decision back into the configuration:
// slot (devid), port (label port) and enable of /ib/config/<family>/<ifindex>/, each
// bsso_modify.  The caller frees *ret_msg.
int ovd_config_port_enable_msg_create(const char *ifindex, const ifindexInformation *p_iinfo,
                                      uint8 enable_val, bn_request **ret_msg);
// Sends that request to mgmtd without waiting for the reply.
int ovd_config_port_enable(const char *ifindex, ifindexInformation *p_iinfo, uint8 enable_val);

// The MTU text ("256", "512", "1K", "2K", "4K") as bytes; anything else is
// lc_err_unexpected_case.
int get_mtu_val(const char *mtu, uint16 *mtu_val);

// The settle after each PAOS write sleeps by default.  Tests install a hook that is called
// with the duration instead; null restores the sleep.
typedef void (*ovd_port_settle_hook_t)(uint32 usec);
void ovd_port_set_settle_hook(ovd_port_settle_hook_t hook);
// Waits the settle time (or calls the hook).
void ovd_port_settle(void);
