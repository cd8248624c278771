// Hardware access per SWID: the context that holds the open management-datagram port of
// a switch partition, direct-route addressing and its checks, PortInfo and NodeInfo by
// SMP, the question whether a master subnet manager is alive, and the switch's
// SMP-visible identity (node description, GUIDs) written through the SPZR register.
//
// The MAD-side operations give a sysapi_status (SARC_OK is 0); sa_init, sa_set_node_ndesc,
// sa_set_sysimageguid and sa_set_nodeguid give lc_error_code values.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <infiniband/mad.h>

#include "chassis_helper.h"
#include "common.h"
#include "vqd_access_reg.h"

// Devices of the SWIDs are named "<prefix>_<swid>".
#define SA_IB_DEV_PREFIX "vq_ib"
// Where the SWID devices' attributes appear.
#define SA_SYSFS_IB_FMT "/sys/class/infiniband/vq_ib_%s/%s"

// The port's defaults for every query that doesn't name its own time-out.
#define SA_MAD_RETRIES 10
#define SA_MAD_TIMEOUT_MS 300
// The time-out of the master SM check, whatever its caller asks for.
#define SA_MASTER_SM_TIMEOUT_MS 100

// Length of the node description text, terminator included.
#define SA_NODE_DESC_LEN 60
// The host part is first cut to this many characters.
#define SA_NODE_DESC_HOST_MAX 63
// get_ib_fn gives at most this many characters.
#define SA_SYSFS_VAL_MAX 100

typedef enum sysapi_status {
    SARC_OK = 0,
    SARC_ERROR = 1,
    SARC_NOT_IMPLEMENTED = 2,
    SARC_NOT_EXIST_MODULE = 3,
    SARC_UNSUPPORTED_MODULE = 4,
    SARC_UNSUPPORTED_SYSTEM = 5,
    SARC_MAD_SEND_FAILED = 6,
    SARC_UNSUPPORTED_FW_VER = 7,
    SARC_TORCH_FAILED = 8,
    SARC_NO_PCI_CONNECTION = 9,
    SARC_NO_MGMT_KELVA = 10,
    SARC_CDMIF_ERROR = 11,
    SARC_LID_NOT_ASSIGNED = 77,
    SARC_NO_DR_PATH = 88,
    SARC_DR_PORT_DOWN_ERROR = 89,
} sysapi_status;

// What sa_is_master_sm_in_swid gives when the SM's LID cannot be resolved; it has no
// name among the statuses.
#define SA_SM_LID_UNRESOLVED 20

// The text of a status; "UNKNOWN" for a value without one.
const char *sysapi_err2str(int status);

// One context per SWID.
typedef struct swidapi_ctx {
    int swid_num;
    system_type_t sys_type;
    struct ibmad_port *sport;
    vqd_dev_id_t cnt_dev_id;   // device whose LID is cached for counters
    ib_portid_t cnt_portid;    // LID-routed port id of that device
    ib_dr_path_t **dr_per_node;  // unused, always null
} swidapi_t;

// What a PortInfo gives.
typedef struct _sa_port_speed_state {
    uint8_t local_port_num;
    uint8_t link_width_enabled;
    uint8_t link_width_supported;
    uint8_t link_width_active;
    uint8_t link_speed_supported;
    uint8_t link_speed_enabled;
    uint8_t link_speed_active;
    uint8_t port_logical_state;
    uint8_t port_phy_state;
    uint8_t link_down_default_state;
    uint8_t mtu_cap;
    uint8_t neighbor_mtu;
    uint8_t vl_cap;
    uint8_t oper_vl;
    uint16_t lid;
} sa_port_speed_state_t;

typedef struct _sa_node_info {
    uint64_t node_guid;
    uint16_t node_lid;
} sa_node_info_t;

// PortInfo physical state "LinkUp".
#define port_info_phy_state_linkup 5

// Opens the context of a SWID: the MAD port of device "vq_ib_<swid>", port 0, with the
// SMI, directed SMI, SA, performance and the first two vendor classes, 10 retries and a
// time-out of 300 ms.  *sa_ctx is null on failure.
int sa_init(swidapi_t **sa_ctx, system_type_t sys_type, int swid_num);
// Closes the port, frees the context and nulls the pointer.
int sa_destroy(swidapi_t **sa_ctx);

// Makes a directed-route port id (LID 0) of a path.  The path's drslid and drdlid become
// the permissive LID: the caller's path is changed.
// (The LID-routed form, ib_portid_set(portid, lid, qp, qkey), is libibmad's own.)
void set_dr_path(ib_portid_t *portid, ib_dr_path_t *dr_path);

// SMP PortInfo of port ib_port (0: the switch's management port) of the node at the end
// of a path.  With state_only only the states and the LID are decoded.
int get_port_info(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, int ib_port, sa_port_speed_state_t *ps,
                  int state_only);
// Decodes a PortInfo; with state_only the fields but the states and the LID keep what
// they held.
void unpack_port_speed_state(void *pi, sa_port_speed_state_t *ps, int state_only);
// Proves a path: the port by which it leaves each node on it must be LinkUp.  On
// SARC_DR_PORT_DOWN_ERROR *failed_ib_port is the port that is not.
int check_dr_path(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, uint8_t *failed_ib_port);
// The LID at the end of a path; SARC_LID_NOT_ASSIGNED (and *lid_num untouched) for 0.
int get_lid_by_drpath(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, u_int16_t *lid_num);
// PortInfo after a path walk.  dev_id is not used.
int sa_get_port_info(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                     sa_port_speed_state_t *ps);
// NodeInfo GUID and the LID of port 0 after a path walk.  dev_id and ib_port are not used.
int sa_get_node_info(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                     sa_node_info_t *node_info);
// Whether a master SM is alive: SARC_OK with *master_up 1 or 0.  The time-out is always
// 100 ms (the argument is not used), with one try; the port's retries are restored.
int sa_is_master_sm_in_swid(swidapi_t *sa_ctx, int *master_up, int timeout);

// The node description, the system image GUID and the node GUID of a device, written
// through SPZR.
int sa_set_node_ndesc(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, const char *host_name, int slot_num,
                      subsystem_type_t slot_type, const char *sys_disp, uint32 index_inside_slot);
int sa_set_sysimageguid(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, u_int64_t sysimageguid);
int sa_set_nodeguid(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, u_int64_t nodeguid);

// The node description "MF0;<host>:<system><slot>/U<index>", fitted into 60 characters
// (terminator included).  desc must hold at least 60 bytes.
int __build_node_desc(system_type_t sys_type, const char *hostname, int slot_num, subsystem_type_t slot_type,
                      char *desc, const char *sys_disp, uint8_t index_inside_slot);

// One line of a SWID device's attribute file: "guid" (ports/0/gids/0), "lid"
// (ports/0/lid), "sm_lid" (ports/0/sm_lid) or a file name below the device.  At most
// size - 1 (and 100) characters, without the newline.  lc_err_not_found for a missing or
// empty file.
int get_ib_fn(const char *type, char *val, int size, const char *swid_str);
