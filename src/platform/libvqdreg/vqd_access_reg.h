// Register access to the switch ASIC: the interface of the vendor's register-access
// library.  On a development machine the implementation behind it is our simulated
// ASIC (vqd_sim.h), driven by a model file; the interface is the same either way.
//
// Every register call has the shape
//     vqd_status_t vqd_access_reg_<name>(record *, vqd_reg_meta_t *, uint32_t count,
//                                        vqd_completion_handler_t, void *context)
// and blocks until the firmware has answered.  The records are plain host-order
// structures; the library does the wire packing.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t vqd_dev_id_t;
typedef uint8_t vqd_swid_t;

typedef enum vqd_access_cmd {
    VQD_ACCESS_CMD_ADD = 0,
    VQD_ACCESS_CMD_DELETE = 1,
    VQD_ACCESS_CMD_TEST = 2,
    VQD_ACCESS_CMD_GET = 3,
    VQD_ACCESS_CMD_SET = 4,
    VQD_ACCESS_CMD_GET_ALL = 5,
    VQD_ACCESS_CMD_MIN = VQD_ACCESS_CMD_ADD,
    VQD_ACCESS_CMD_MAX = VQD_ACCESS_CMD_GET_ALL,
} vqd_access_cmd_t;

typedef enum vqd_status {
    VQD_STATUS_SUCCESS = 0,
    VQD_STATUS_ERROR = 1,
    VQD_STATUS_NO_RESOURCES = 2,
    VQD_STATUS_NO_MEMORY = 3,
    VQD_STATUS_PARAM_ERROR = 4,
    VQD_STATUS_NOT_INITIALIZED = 5,
    VQD_STATUS_DEVICE_OPEN_ERROR = 6,
    VQD_STATUS_DEVICE_CLOSE_ERROR = 7,
    VQD_STATUS_DEVICE_GET_ERROR = 8,
    VQD_STATUS_DEVICE_IOCTL_ERROR = 9,
    VQD_STATUS_HANDLE_ERROR = 10,
    VQD_STATUS_INVALID_ACCESS_CMD = 11,
    VQD_STATUS_TIMEOUT = 12,
    VQD_STATUS_CMD_UNSUPPORTED = 13,
    VQD_STATUS_NO_PATH_TO_DEVICE = 14,
    VQD_STATUS_FW_ERROR = 15,
    VQD_STATUS_FW_BUSY = 16,
    VQD_STATUS_FW_RESOURCE_UNAVAILABLE = 17,
    VQD_STATUS_MIN = VQD_STATUS_SUCCESS,
    VQD_STATUS_MAX = VQD_STATUS_FW_RESOURCE_UNAVAILABLE,
} vqd_status_t;

// Texts by value: vqd_access_cmd_str[0..5] ("ADD" .. "GET ALL") and
// vqd_status2str_arr[0..17] ("SUCCESS" .. "FW Resource unavailable").
extern const char *const vqd_access_cmd_str[VQD_ACCESS_CMD_MAX + 1];
extern const char *const vqd_status2str_arr[VQD_STATUS_MAX + 1];

// Range-checked forms of the two tables: "UNKNOWN" and "Unknown return code" outside.
#define VQD_ACCESS_CMD_STR(cmd)                                                  \
    (((int)(cmd) >= (int)VQD_ACCESS_CMD_MIN && (int)(cmd) <= (int)VQD_ACCESS_CMD_MAX) \
         ? vqd_access_cmd_str[(int)(cmd)]                                        \
         : "UNKNOWN")
#define VQD_STATUS_MSG(status)                                                    \
    (((int)(status) >= (int)VQD_STATUS_MIN && (int)(status) <= (int)VQD_STATUS_MAX) \
         ? vqd_status2str_arr[(int)(status)]                                      \
         : "Unknown return code")

// What every register access carries beside the register record.
typedef struct vqd_reg_meta {
    vqd_access_cmd_t access_cmd;
    vqd_dev_id_t dev_id;
    vqd_swid_t swid;
} vqd_reg_meta_t;

// Called once per record when a caller asks for completion notification; the
// daemon always passes none and relies on the blocking return.
typedef void (*vqd_completion_handler_t)(vqd_status_t status, void *reg_data,
                                         vqd_reg_meta_t *reg_meta, void *context);

// The library's log callback and the severities it tells apart; anything else counts as
// the most verbose.
typedef enum vq_log_severity {
    VQ_LOG_SEVERITY_ERROR = 1,
    VQ_LOG_SEVERITY_WARNING = 3,
    VQ_LOG_SEVERITY_NOTICE = 7,
    VQ_LOG_SEVERITY_INFO = 15,
} vq_log_severity_t;

typedef void (*vq_log_cb_t)(vq_log_severity_t severity, const char *module_name, char *msg);

typedef enum vqd_port_admin_status {
    VQD_PORT_ADMIN_STATUS_UP = 1,
    VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF = 2,
    VQD_PORT_ADMIN_STATUS_UP_ONCE = 3,
} vqd_port_admin_status_t;

typedef uint32_t vqd_port_eth_proto_t;
typedef uint32_t vqd_port_fc_proto_t;
typedef uint32_t vqd_port_ib_proto_t;

enum {
    reg_ptys_proto_mask_ib = 1,
    reg_ptys_proto_mask_fc = 2,
    reg_ptys_proto_mask_eth = 4,
};

// ---- Port registers ----

// PTYS: link protocol, speed and width.  The ib_proto_ words hold the speed bit set
// in bits 0-7 (sdr 0x01, ddr 0x02, qdr 0x04, fdr10 0x08, fdr 0x10, edr 0x20) and the
// width bit set in bits 16-23 (1X 0x01, 2X 0x02, 4X 0x04).
typedef struct ku_ptys_reg {
    uint8_t local_port;
    uint8_t proto_mask;
    vqd_port_eth_proto_t eth_proto_capability;
    vqd_port_fc_proto_t fc_proto_capability;
    vqd_port_ib_proto_t ib_proto_capability;
    uint32_t eth_proto_admin;
    uint32_t fc_proto_admin;
    uint32_t ib_proto_admin;
    uint32_t eth_proto_oper;
    uint32_t fc_proto_oper;
    uint32_t ib_proto_oper;
} ptys_reg_t;

// PPLM: forward error correction.
typedef struct ku_pplm_reg {
    uint8_t local_port;
    uint8_t port_profile_mode;
    uint8_t static_port_profile;
    uint8_t active_port_profile;
    uint8_t retransmission_active;
    uint32_t fec_mode_active;
    uint8_t fec_override_cap_100g;
    uint8_t fec_override_cap_50g;
    uint8_t fec_override_cap_25g;
    uint8_t fec_override_cap_10g_40g;
    uint8_t fec_override_admin_100g;
    uint8_t fec_override_admin_50g;
    uint8_t fec_override_admin_25g;
    uint8_t fec_override_admin_10g_40g;
} pplm_reg_t;

// PMTU: port MTU.
typedef struct ku_pmtu_reg {
    uint8_t local_port;
    uint16_t max_mtu;
    uint16_t admin_mtu;
    uint16_t oper_mtu;
} pmtu_reg_t;

// PVLC: virtual lanes.
typedef struct ku_pvlc_reg {
    uint8_t local_port;
    uint8_t vl_cap;
    uint8_t vl_admin;
    uint8_t vl_operational;
} pvlc_reg_t;

// PAOS: administrative and operational state of a port.
typedef struct ku_paos_reg {
    uint8_t swid;
    uint8_t local_port;
    uint8_t admin_status;
    uint8_t oper_status;
    uint8_t ase;
    uint8_t ee;
    uint8_t e;
} paos_reg_t;

// MCIA: module EEPROM access.  The dwords travel in network order.
typedef struct ku_mcia_reg {
    uint8_t l;
    uint8_t module;
    uint8_t status;
    uint8_t i2c_device_address;
    uint8_t page_number;
    uint16_t device_address;
    uint16_t size;
    uint32_t dword_0;
    uint32_t dword_1;
    uint32_t dword_2;
    uint32_t dword_3;
    uint32_t dword_4;
    uint32_t dword_5;
    uint32_t dword_6;
    uint32_t dword_7;
    uint32_t dword_8;
    uint32_t dword_9;
    uint32_t dword_10;
    uint32_t dword_11;
} mcia_reg_t;

// PLIB: local port to InfiniBand port number.
typedef struct ku_plib_reg {
    uint8_t local_port;
    uint8_t ib_port;
} plib_reg_t;

// PMAOS: module administrative and operational state.
typedef struct ku_pmaos_reg {
    uint8_t module;
    uint8_t admin_status;
    uint8_t oper_status;
    uint8_t ase;
    uint8_t ee;
    uint8_t e;
} pmaos_reg_t;

// PMLP: port to module lanes (one byte per lane in each 4-byte field).
typedef struct ku_pmlp_reg {
    uint8_t use_different_rx_tx;
    uint8_t local_port;
    uint8_t width;
    uint8_t lane[4];
    uint8_t rx_lane[4];
    uint8_t module[4];
} pmlp_reg_t;

// PMPC: which modules changed.  Module m is bit (m % 32) of word (7 - m / 32).
typedef struct ku_pmpc_reg {
    uint32_t module_state_updated_bitmap[8];
} pmpc_reg_t;

// SPZR: the switch's SMP-visible identity.  A mask byte of 1 makes the firmware
// change the field it guards; other fields are left as they are.
typedef struct ku_spzr_reg {
    uint8_t swid;
    uint8_t ndm;  // NodeDescription
    uint8_t EnhSwP0_mask;
    uint8_t cm;   // capability_mask
    uint8_t vk;   // v_key
    uint8_t mp;   // max_pkey
    uint8_t sig;  // system_image_guid_h_l
    uint8_t ng;   // node_guid_h_l
    uint8_t g0;   // guid0_h_l
    uint8_t EnhSwP0;
    uint32_t capability_mask;
    uint64_t system_image_guid_h_l;
    uint64_t guid0_h_l;
    uint64_t node_guid_h_l;
    uint32_t v_key_h;
    uint32_t v_key_l;
    uint16_t max_pkey;
    uint8_t NodeDescription[64];
} spzr_reg_t;

// PSPA: local port to SWID.  SWID 255 is no SWID.
typedef struct ku_pspa_reg {
    uint8_t swid;
    uint8_t local_port;
    uint8_t sub_port;
} pspa_reg_t;

// The system M_Key handed to the driver for one device.
struct ku_system_m_key {
    uint64_t system_m_key;
    uint8_t dev_id;
};

// Board identity of a device.
typedef struct ku_query_board_info {
    uint16_t vsd_vendor_id;
    char board_id[64];
    uint8_t dev_id;
} board_info_t;

// ---- Calls ----

// Opens the library.  app_id is 0 for the one client per process; verbosity is a
// severity mask (15: errors, warnings, notices and information).
vqd_status_t vqd_access_reg_init(uint32_t app_id, vq_log_cb_t log_cb, uint32_t verbosity);
vqd_status_t vqd_access_reg_deinit(void);

#define VQD_ACCESS_REG_DECL(name, record)                                                 \
    vqd_status_t vqd_access_reg_##name(struct record *reg_data, vqd_reg_meta_t *reg_meta, \
                                       uint32_t data_num, vqd_completion_handler_t handler, \
                                       void *handler_context)

VQD_ACCESS_REG_DECL(ptys, ku_ptys_reg);
VQD_ACCESS_REG_DECL(pplm, ku_pplm_reg);
VQD_ACCESS_REG_DECL(pmtu, ku_pmtu_reg);
VQD_ACCESS_REG_DECL(pvlc, ku_pvlc_reg);
VQD_ACCESS_REG_DECL(paos, ku_paos_reg);
VQD_ACCESS_REG_DECL(plib, ku_plib_reg);
VQD_ACCESS_REG_DECL(pmlp, ku_pmlp_reg);
VQD_ACCESS_REG_DECL(pmaos, ku_pmaos_reg);
VQD_ACCESS_REG_DECL(pmpc, ku_pmpc_reg);
VQD_ACCESS_REG_DECL(mcia, ku_mcia_reg);
VQD_ACCESS_REG_DECL(spzr, ku_spzr_reg);
VQD_ACCESS_REG_DECL(pspa, ku_pspa_reg);

#undef VQD_ACCESS_REG_DECL

// Gives (SET) or reads back (GET) the system M_Key of key->dev_id.
vqd_status_t vqd_access_reg_system_m_key_access(vqd_access_cmd_t access_cmd,
                                                struct ku_system_m_key *key);

// Fills board_info from the device named by board_info->dev_id.
vqd_status_t vqd_access_reg_query_board_info(struct ku_query_board_info *board_info);

#ifdef __cplusplus
}
#endif
