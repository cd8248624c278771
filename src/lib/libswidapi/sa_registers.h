// Port registers: one command per register over the register-access library, get/set
// wrappers, and the composite operations on a port's admin capabilities and state.
// These take SWID and device id rather than a per-SWID context: a register reaches its
// device without a path through the fabric.  Results are lc_error_code values; the
// library's own status appears only in the log (for PTYS and MCIA).
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "chassis_helper.h"
#include "common.h"
#include "vqd_access_reg.h"

// What the composite operations read and write.  Speed and width are the byte forms
// of the PTYS ib_proto_ words; fec_cap is 0 auto, 1 no FEC, 2 FEC on.
typedef struct _sa_port_capability {
    uint8_t link_width_supported;
    uint8_t link_speed_supported;
    uint16_t mtu_cap;
    uint8_t vl_cap;
    uint8_t ekey;
    uint8_t fec_cap;
} sa_port_capability_t;

// Which attributes sa_set_port_admin_cap touches.
enum set_port_cap_mask {
    SPC_VL_CAP = 0x200000,
    SPC_MTU_CAP = 0x400000,
    SPC_LINK_WIDTH = 0x8000000,
    SPC_LINK_SPEED = 0x10000000,
    SPC_FEC_CAP = 0x20000000,
};

typedef enum sa_port_state {
    PORT_UP = 1,
    PORT_DOWN = 2,
} sa_port_state_t;

// The speed byte of the ib_proto_ words.
enum all_speeds_map {
    sdr = 0x01,
    ddr = 0x02,
    qdr = 0x04,
    fdr10 = 0x08,
    fdr = 0x10,
    edr = 0x20,
};

// Register commands.  `key` goes to local_port, or to module for MCIA and PMAOS.
int reg_pvlc_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, pvlc_reg_t *reg);
int reg_pmtu_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, pmtu_reg_t *reg);
int reg_ptys_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, ptys_reg_t *reg);
int reg_pplm_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, pplm_reg_t *reg);
int reg_paos_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, paos_reg_t *reg);
int reg_mcia_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, mcia_reg_t *reg);
int reg_plib_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, plib_reg_t *reg);
int reg_pmaos_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, pmaos_reg_t *reg);
int reg_pmlp_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, pmlp_reg_t *reg);

// Get and set wrappers.
int get_ptys_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, ptys_reg_t *reg);
int set_ptys_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, ptys_reg_t *reg);
int get_pmtu_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmtu_reg_t *reg);
int set_pmtu_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmtu_reg_t *reg);
int get_pvlc_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pvlc_reg_t *reg);
int set_pvlc_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pvlc_reg_t *reg);
int get_paos_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, paos_reg_t *reg);
int set_paos_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, paos_reg_t *reg);
int get_mcia_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, mcia_reg_t *reg);
int set_mcia_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, mcia_reg_t *reg);
int get_plib_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, plib_reg_t *reg);
int set_plib_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, plib_reg_t *reg);
int get_pmaos_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmaos_reg_t *reg);
int set_pmaos_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmaos_reg_t *reg);
int get_pmlp_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmlp_reg_t *reg);
int set_pmlp_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pmlp_reg_t *reg);

// PPLM exists only on some system types; elsewhere the get reports "no FEC"
// (fec_mode_active 1) and the set does nothing, both without touching the hardware.
int get_pplm_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pplm_reg_t *reg, system_type_t g_sys_type);
int set_pplm_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pplm_reg_t *reg, system_type_t g_sys_type);

// Composite operations.  The set writes PVLC, PMTU, PPLM, PTYS in that order, each
// only when its bit is in `mask`, and stops at the first failure without roll-back.
int sa_set_port_admin_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability,
                          u_int32_t mask, system_type_t g_sys_type);
int sa_get_port_admin_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability,
                          system_type_t g_sys_type);
int sa_get_port_hw_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability);
// Writes the port's admin state; with enable_pude the port-up/down events are armed too.
int sa_set_port_enabled(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_state_t enabled_state,
                        int enable_pude);

// The sleep between retries of PTYS and MCIA (usleep by default).  Tests install a
// hook to count the sleeps instead of taking them; null restores usleep.
typedef void (*sa_reg_sleep_hook_t)(uint32 usec);
void sa_reg_set_sleep_hook(sa_reg_sleep_hook_t hook);
