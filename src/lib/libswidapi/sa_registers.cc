// Port registers over the register-access library.
#include "sa_registers.h"

#include <arpa/inet.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "logging.h"
#include "sa_fec.h"

namespace {

sa_reg_sleep_hook_t s_sleep_hook = nullptr;

void retry_sleep(uint32 usec)
{
    if (s_sleep_hook) {
        s_sleep_hook(usec);
    } else {
        usleep(usec);
    }
}

// Tries of the registers that report transient failures while firmware is busy.
constexpr int REG_RETRY_TRIES = 3;
constexpr uint32 REG_RETRY_SLEEP_USEC = 100000;

void fill_meta(vqd_reg_meta_t *meta, vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id)
{
    memset(meta, 0, sizeof(*meta));
    meta->access_cmd = cmd;
    meta->dev_id = dev_id;
    meta->swid = swid;
}

bool system_has_pplm(system_type_t sys_type)
{
    return sys_type == S_ZR4039 || sys_type == S_ZR4050;
}

}  // namespace

void sa_reg_set_sleep_hook(sa_reg_sleep_hook_t hook)
{
    s_sleep_hook = hook;
}

// ---------------------------------------------------------------------------
// Register commands.

// The shape shared by the registers without retries: meta, key, one call, and the
// library's status turned into lc_err_generic_error.
#define SA_PLAIN_REG_COMMAND(name, key_field, key_label)                                     \
    int reg_##name##_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, \
                             name##_reg_t *reg)                                               \
    {                                                                                         \
        int err = 0;                                                                          \
        vqd_reg_meta_t meta;                                                                  \
        vqd_status_t status = VQD_STATUS_SUCCESS;                                             \
                                                                                              \
        bail_null(reg);                                                                       \
        lc_log_basic(LOG_INFO, "SWID: [%d], device id: [%u], " key_label ": [%d]", swid,      \
                     dev_id, key);                                                            \
        fill_meta(&meta, cmd, swid, dev_id);                                                  \
        reg->key_field = static_cast<uint8_t>(key);                                           \
        status = vqd_access_reg_##name(reg, &meta, 1, nullptr, nullptr);                      \
        if (status != VQD_STATUS_SUCCESS) {                                                   \
            err = lc_err_generic_error;                                                       \
        }                                                                                     \
        bail_error(err);                                                                      \
                                                                                              \
    bail:                                                                                     \
        return err;                                                                           \
    }

SA_PLAIN_REG_COMMAND(pvlc, local_port, "local port")
SA_PLAIN_REG_COMMAND(pmtu, local_port, "local port")
SA_PLAIN_REG_COMMAND(pplm, local_port, "local port")
SA_PLAIN_REG_COMMAND(paos, local_port, "local port")
SA_PLAIN_REG_COMMAND(plib, local_port, "local port")
SA_PLAIN_REG_COMMAND(pmaos, module, "module")
SA_PLAIN_REG_COMMAND(pmlp, local_port, "port")

#undef SA_PLAIN_REG_COMMAND

int reg_ptys_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, ptys_reg_t *reg)
{
    int err = 0;
    vqd_reg_meta_t meta;
    vqd_status_t status = VQD_STATUS_ERROR;
    uint8_t proto_mask = 0;
    uint32_t ib_proto_admin = 0;

    bail_null(reg);
    proto_mask = reg->proto_mask;
    ib_proto_admin = reg->ib_proto_admin;

    for (int attempt = 1; attempt <= REG_RETRY_TRIES; ++attempt) {
        fill_meta(&meta, cmd, swid, dev_id);
        reg->local_port = static_cast<uint8_t>(key);
        status = vqd_access_reg_ptys(reg, &meta, 1, nullptr, nullptr);
        if (status == VQD_STATUS_SUCCESS) {
            break;
        }
        // A failed access may have left anything in the record: start the next try
        // from what the caller asked for.
        retry_sleep(REG_RETRY_SLEEP_USEC * attempt);
        memset(reg, 0, sizeof(*reg));
        reg->proto_mask = proto_mask;
        reg->ib_proto_admin = ib_proto_admin;
    }

    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR,
                     "Failed interacting with PTYS register command: [%s] for device id: [%d] swid id: [%d] "
                     "error: [%d: %s]",
                     VQD_ACCESS_CMD_STR(cmd), dev_id, swid, status, VQD_STATUS_MSG(status));
        err = lc_err_generic_error;
        bail_error(err);
    }

bail:
    return err;
}

int reg_mcia_command(vqd_access_cmd_t cmd, uint8_t swid, vqd_dev_id_t dev_id, int key, mcia_reg_t *reg)
{
    int err = 0;
    vqd_reg_meta_t meta;
    vqd_status_t status = VQD_STATUS_ERROR;

    bail_null(reg);
    lc_log_basic(LOG_INFO, "SWID: [%d], device id: [%u], module: [%d]", swid, dev_id, key);

    for (int attempt = 1; attempt <= REG_RETRY_TRIES; ++attempt) {
        fill_meta(&meta, cmd, swid, dev_id);
        reg->module = static_cast<uint8_t>(key);
        status = vqd_access_reg_mcia(reg, &meta, 1, nullptr, nullptr);
        if (status == VQD_STATUS_SUCCESS) {
            break;
        }
        // Only the module survives: later tries read offset 0 with size 0.
        retry_sleep(REG_RETRY_SLEEP_USEC * attempt);
        memset(reg, 0, sizeof(*reg));
    }

    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR,
                     "Failed interacting with MCIA register command: [%s] for device id: [%d] swid id: [%d] "
                     "module: [%d] error: [%d: %s]",
                     VQD_ACCESS_CMD_STR(cmd), dev_id, swid, key, status, VQD_STATUS_MSG(status));
        err = lc_err_generic_error;
        bail_error(err);
    }

    for (uint32_t *dw : {&reg->dword_0, &reg->dword_1, &reg->dword_2, &reg->dword_3, &reg->dword_4,
                         &reg->dword_5, &reg->dword_6, &reg->dword_7, &reg->dword_8, &reg->dword_9,
                         &reg->dword_10, &reg->dword_11}) {
        *dw = ntohl(*dw);
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------
// Get and set wrappers.

#define SA_REG_GET_SET(name)                                                                  \
    int get_##name##_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, name##_reg_t *reg)      \
    {                                                                                         \
        int err = 0;                                                                          \
        err = reg_##name##_command(VQD_ACCESS_CMD_GET, swid, dev_id, key, reg);               \
        bail_error(err);                                                                      \
    bail:                                                                                     \
        return err;                                                                           \
    }                                                                                         \
    int set_##name##_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, name##_reg_t *reg)      \
    {                                                                                         \
        int err = 0;                                                                          \
        err = reg_##name##_command(VQD_ACCESS_CMD_SET, swid, dev_id, key, reg);               \
        bail_error(err);                                                                      \
    bail:                                                                                     \
        return err;                                                                           \
    }

SA_REG_GET_SET(ptys)
SA_REG_GET_SET(pmtu)
SA_REG_GET_SET(pvlc)
SA_REG_GET_SET(paos)
SA_REG_GET_SET(mcia)
SA_REG_GET_SET(plib)
SA_REG_GET_SET(pmaos)
SA_REG_GET_SET(pmlp)

#undef SA_REG_GET_SET

int get_pplm_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pplm_reg_t *reg, system_type_t g_sys_type)
{
    int err = 0;

    bail_null(reg);
    if (!system_has_pplm(g_sys_type)) {
        reg->fec_mode_active = 1;  // no FEC on systems without the register
        goto bail;
    }
    err = reg_pplm_command(VQD_ACCESS_CMD_GET, swid, dev_id, key, reg);
    bail_error(err);

bail:
    return err;
}

int set_pplm_reg(uint8_t swid, vqd_dev_id_t dev_id, int key, pplm_reg_t *reg, system_type_t g_sys_type)
{
    int err = 0;

    if (!system_has_pplm(g_sys_type)) {
        goto bail;
    }
    err = reg_pplm_command(VQD_ACCESS_CMD_SET, swid, dev_id, key, reg);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------
// Composite operations.

int sa_set_port_admin_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability,
                          u_int32_t mask, system_type_t g_sys_type)
{
    int err = 0;
    pvlc_reg_t pvlc_reg;
    pmtu_reg_t pmtu_reg;
    pplm_reg_t pplm_reg;
    ptys_reg_t ptys_reg;
    const bool set_width = (mask & SPC_LINK_WIDTH) != 0;
    const bool set_speed = (mask & SPC_LINK_SPEED) != 0;

    memset(&pvlc_reg, 0, sizeof(pvlc_reg));
    memset(&pmtu_reg, 0, sizeof(pmtu_reg));
    memset(&pplm_reg, 0, sizeof(pplm_reg));
    memset(&ptys_reg, 0, sizeof(ptys_reg));

    lc_log_basic(LOG_INFO, "%s: IB SWID API: set port admin cap", __func__);
    bail_null(capability);
    lc_log_basic(LOG_INFO,
                 "SWID: [%d], device id: [%u], local port: [%d],port capability: link_width_supported: [%u],"
                 "\tlink_speed_supported: [%u], mtu_cap: [%u], vl_cap: [%u], ekey: [%u], fec_cap: [%u]",
                 swid, dev_id, localport, capability->link_width_supported, capability->link_speed_supported,
                 capability->mtu_cap, capability->vl_cap, capability->ekey, capability->fec_cap);

    if (mask & SPC_VL_CAP) {
        pvlc_reg.vl_admin = capability->vl_cap;
        err = set_pvlc_reg(swid, dev_id, localport, &pvlc_reg);
        bail_error(err);
    }

    if (mask & SPC_MTU_CAP) {
        pmtu_reg.admin_mtu = capability->mtu_cap;
        err = set_pmtu_reg(swid, dev_id, localport, &pmtu_reg);
        bail_error(err);
    }

    if (mask & SPC_FEC_CAP) {
        switch (capability->fec_cap) {
        case 1:  // no FEC
            pplm_reg.port_profile_mode &= static_cast<uint8_t>(~0x3);
            pplm_reg.static_port_profile = 7;
            break;
        case 2:  // FEC on
            pplm_reg.port_profile_mode &= static_cast<uint8_t>(~0x3);
            pplm_reg.static_port_profile = 8;
            break;
        case 0:  // auto
            pplm_reg.port_profile_mode |= 0x3;
            break;
        default:
            lc_log_basic(LOG_WARNING, "%s: Unhandled fec value '%u'", __func__, capability->fec_cap);
            err = lc_err_unexpected_case;
            bail_error(err);
        }
        err = set_pplm_reg(swid, dev_id, localport, &pplm_reg, g_sys_type);
        bail_error(err);
    }

    if (!set_width && !set_speed) {
        goto bail;
    }

    ptys_reg.local_port = static_cast<uint8_t>(localport);
    ptys_reg.proto_mask = reg_ptys_proto_mask_ib;
    if (set_width != set_speed) {
        // Only one of the two bytes changes: the other must survive the write.
        err = get_ptys_reg(swid, dev_id, localport, &ptys_reg);
        bail_error(err);
    }
    if (set_width) {
        ptys_reg.ib_proto_admin = (ptys_reg.ib_proto_admin & ~0x00ff0000u) |
                                  (static_cast<uint32_t>(capability->link_width_supported) << 16);
    }
    if (set_speed) {
        ptys_reg.ib_proto_admin = (ptys_reg.ib_proto_admin & ~0x000000ffu) | capability->link_speed_supported;
    }
    err = set_ptys_reg(swid, dev_id, localport, &ptys_reg);
    if (err) {
        lc_log_basic(LOG_NOTICE,
                     "%s: IB SWID API: set port speed failed , maybe a mismatch between FRU speed & FW INI speed "
                     ",SWID: [%d], device id: [%u], local port: [%d]",
                     __func__, swid, dev_id, localport);
    }
    bail_error(err);

bail:
    return err;
}

int sa_get_port_admin_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability,
                          system_type_t g_sys_type)
{
    int err = 0;
    pvlc_reg_t pvlc_reg;
    pmtu_reg_t pmtu_reg;
    pplm_reg_t pplm_reg;
    ptys_reg_t ptys_reg;
    uint8 fec_cap = 0;
    tstring *fec_text = nullptr;

    memset(&pvlc_reg, 0, sizeof(pvlc_reg));
    memset(&pmtu_reg, 0, sizeof(pmtu_reg));
    memset(&pplm_reg, 0, sizeof(pplm_reg));
    memset(&ptys_reg, 0, sizeof(ptys_reg));

    lc_log_basic(LOG_INFO, "%s: IB SWID API: get port admin cap", __func__);
    lc_log_basic(LOG_INFO, "SWID: [%d], device id: [%u], local port: [%d]", swid, dev_id, localport);
    bail_null(capability);

    err = get_pvlc_reg(swid, dev_id, localport, &pvlc_reg);
    bail_error(err);
    err = get_pmtu_reg(swid, dev_id, localport, &pmtu_reg);
    bail_error(err);
    ptys_reg.proto_mask = reg_ptys_proto_mask_ib;
    err = get_ptys_reg(swid, dev_id, localport, &ptys_reg);
    bail_error(err);
    err = get_pplm_reg(swid, dev_id, localport, &pplm_reg, g_sys_type);
    bail_error(err);

    err = sa_port_prm_fec_to_tstr(&fec_text, pplm_reg.fec_mode_active);
    bail_error(err);
    err = get_fec_val(ts_str(fec_text), &fec_cap);
    bail_error(err);

    capability->fec_cap = fec_cap;
    capability->mtu_cap = pmtu_reg.admin_mtu;
    capability->vl_cap = pvlc_reg.vl_admin;
    capability->link_speed_supported = static_cast<uint8_t>(ptys_reg.ib_proto_admin & 0xff);
    capability->link_width_supported = static_cast<uint8_t>((ptys_reg.ib_proto_admin >> 16) & 0xff);

bail:
    ts_free(&fec_text);
    return err;
}

int sa_get_port_hw_cap(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_capability_t *capability)
{
    int err = 0;
    pvlc_reg_t pvlc_reg;
    pmtu_reg_t pmtu_reg;
    ptys_reg_t ptys_reg;

    memset(&pvlc_reg, 0, sizeof(pvlc_reg));
    memset(&pmtu_reg, 0, sizeof(pmtu_reg));
    memset(&ptys_reg, 0, sizeof(ptys_reg));

    lc_log_basic(LOG_INFO, "%s: IB SWID API: get port hw cap", __func__);
    bail_null(capability);

    err = get_pvlc_reg(swid, dev_id, localport, &pvlc_reg);
    bail_error(err);
    err = get_pmtu_reg(swid, dev_id, localport, &pmtu_reg);
    bail_error(err);
    ptys_reg.proto_mask = reg_ptys_proto_mask_ib;
    err = get_ptys_reg(swid, dev_id, localport, &ptys_reg);
    bail_error(err);

    capability->vl_cap = pvlc_reg.vl_cap;
    capability->mtu_cap = pmtu_reg.max_mtu;
    capability->link_speed_supported = static_cast<uint8_t>(ptys_reg.ib_proto_capability & 0xff);
    capability->link_width_supported = static_cast<uint8_t>((ptys_reg.ib_proto_capability >> 16) & 0xff);

bail:
    return err;
}

int sa_set_port_enabled(uint8 swid, vqd_dev_id_t dev_id, int localport, sa_port_state_t enabled_state,
                        int enable_pude)
{
    int err = 0;
    paos_reg_t paos_reg;

    lc_log_basic(LOG_INFO,
                 "%s: IB SWID API: set port state ,SWID: [%d], device id: [%u], local port: [%d] , state: [%d]",
                 __func__, swid, dev_id, localport, enabled_state);

    memset(&paos_reg, 0, sizeof(paos_reg));
    paos_reg.local_port = static_cast<uint8_t>(localport);
    paos_reg.admin_status = static_cast<uint8_t>(enabled_state);
    paos_reg.ase = 1;
    if (enable_pude) {
        // Also arm the port's up/down events.
        paos_reg.ee = 1;
        paos_reg.e = 2;
    } else {
        paos_reg.ee = 0;
        paos_reg.e = 0;
    }

    err = set_paos_reg(swid, dev_id, localport, &paos_reg);
    bail_error(err);

bail:
    return err;
}
