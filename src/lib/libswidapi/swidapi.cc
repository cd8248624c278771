// The per-SWID MAD session: opening and closing it, direct routes and their checks,
// PortInfo and NodeInfo, the master SM check, and the device attributes in sysfs.
#include "swidapi.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>

#include "logging.h"

namespace {

// PortInfo and NodeInfo payloads are 64 bytes.
constexpr size_t SMP_DATA_LEN = 64;

// PortInfo CapabilityMask bits.
constexpr uint32_t CAPMASK_IS_SM = 0x2;
constexpr uint32_t CAPMASK_IS_SM_DISABLED = 0x400;

uint32_t decode_u32(void *buf, enum MAD_FIELDS field)
{
    uint32_t val = 0;
    mad_decode_field(static_cast<uint8_t *>(buf), field, &val);
    return val;
}

uint8_t decode_u8(void *buf, enum MAD_FIELDS field)
{
    return static_cast<uint8_t>(decode_u32(buf, field));
}

}  // namespace

const char *sysapi_err2str(int status)
{
    switch (status) {
    case SARC_OK:
        return "OK";
    case SARC_ERROR:
        return "ERROR";
    case SARC_NOT_IMPLEMENTED:
        return "NOT_IMPLEMENTED";
    case SARC_NOT_EXIST_MODULE:
        return "NOT_EXIST_MODULE";
    case SARC_UNSUPPORTED_MODULE:
        return "UNSUPPORTED_MODULE";
    case SARC_UNSUPPORTED_SYSTEM:
        return "UNSUPPORTED_SYSTEM";
    case SARC_MAD_SEND_FAILED:
        return "MAD_SEND_FAILED";
    case SARC_UNSUPPORTED_FW_VER:
        return "UNSUPPORTED_FW_VER";
    case SARC_TORCH_FAILED:
        return "TORCH_FAILED";
    case SARC_NO_PCI_CONNECTION:
        return "NO_PCI_CONNECTION";
    case SARC_NO_MGMT_KELVA:
        return "NO_MGMT_KELVA";
    case SARC_CDMIF_ERROR:
        return "CDMIF_ERROR";
    case SARC_LID_NOT_ASSIGNED:
        return "No Lid";
    case SARC_NO_DR_PATH:
        return "No Direct Route Path";
    case SARC_DR_PORT_DOWN_ERROR:
        return "DIRECT ROUTE IS BROKEN DUE TO PORT DOWN";
    default:
        return "UNKNOWN";
    }
}

int sa_init(swidapi_t **sa_ctx, system_type_t sys_type, int swid_num)
{
    int err = 0;
    swidapi_t *ctx = nullptr;
    char dev_name[32] = {};
    int mgmt_classes[] = {IB_SMI_CLASS,         IB_SMI_DIRECT_CLASS,          IB_SA_CLASS,
                          IB_PERFORMANCE_CLASS, IB_VENDOR_RANGE1_START_CLASS, IB_VENDOR_RANGE1_START_CLASS + 1};
    int open_errno = 0;

    bail_null(sa_ctx);
    *sa_ctx = nullptr;
    lc_log_basic(LOG_INFO, "%s: IB SWID API:INIT , SWID:[%d], System type:[%d] ", __func__, swid_num,
                 static_cast<int>(sys_type));

    ctx = static_cast<swidapi_t *>(calloc(1, sizeof(*ctx)));
    if (ctx == nullptr) {
        bail_force(lc_err_no_buffer_space);
    }
    ctx->swid_num = swid_num;
    ctx->sys_type = sys_type;
    snprintf(dev_name, sizeof(dev_name), "%s_%d", SA_IB_DEV_PREFIX, swid_num);

    errno = 0;
    ctx->sport = mad_rpc_open_port(dev_name, 0, mgmt_classes, sizeof(mgmt_classes) / sizeof(mgmt_classes[0]));
    if (ctx->sport == nullptr) {
        open_errno = errno;
        lc_log_basic(LOG_ERR, "Mad rpc open port failed\n");
        lc_log_basic(LOG_ERR, "%s: Mad rpc open port failed, device:[%s] port:[0], errno:[%d,%s]", __func__,
                     dev_name, open_errno, strerror(open_errno));
        sa_destroy(&ctx);
        bail_force(lc_err_generic_error);
    }
    mad_rpc_set_retries(ctx->sport, SA_MAD_RETRIES);
    mad_rpc_set_timeout(ctx->sport, SA_MAD_TIMEOUT_MS);

    lc_log_basic(LOG_INFO, "%s: IB DEVICE NAME : [%s]\n", __func__, dev_name);
    lc_log_basic(LOG_INFO, "%s: IB SWID API:  IB SWID API INIT DONE [Return value: %s]", __func__,
                 lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));
    *sa_ctx = ctx;
    ctx = nullptr;

bail:
    return err;
}

int sa_destroy(swidapi_t **sa_ctx)
{
    int err = 0;

    bail_null(sa_ctx);
    lc_log_basic(LOG_INFO, "%s: IB SWID API: DEINIT", __func__);
    if (*sa_ctx != nullptr) {
        if ((*sa_ctx)->sport != nullptr) {
            mad_rpc_close_port((*sa_ctx)->sport);
            (*sa_ctx)->sport = nullptr;
        }
        free(*sa_ctx);
        *sa_ctx = nullptr;
    }
    lc_log_basic(LOG_INFO, "%s: IB SWID API:  IB SWID API DEINIT DONE", __func__);

bail:
    return err;
}

void set_dr_path(ib_portid_t *portid, ib_dr_path_t *dr_path)
{
    if (portid == nullptr || dr_path == nullptr) {
        return;
    }
    // LID 0 is what makes the library send a directed-route SMP.
    memset(portid, 0, sizeof(*portid));
    dr_path->drslid = 0xffff;
    dr_path->drdlid = 0xffff;
    portid->drpath = *dr_path;
}

void unpack_port_speed_state(void *pi, sa_port_speed_state_t *ps, int state_only)
{
    if (pi == nullptr || ps == nullptr) {
        return;
    }
    ps->port_logical_state = decode_u8(pi, IB_PORT_STATE_F);
    ps->port_phy_state = decode_u8(pi, IB_PORT_PHYS_STATE_F);
    ps->lid = static_cast<uint16_t>(decode_u32(pi, IB_PORT_LID_F));
    if (state_only) {
        return;
    }
    ps->local_port_num = decode_u8(pi, IB_PORT_LOCAL_PORT_F);
    ps->link_width_enabled = decode_u8(pi, IB_PORT_LINK_WIDTH_ENABLED_F);
    ps->link_width_supported = decode_u8(pi, IB_PORT_LINK_WIDTH_SUPPORTED_F);
    ps->link_width_active = decode_u8(pi, IB_PORT_LINK_WIDTH_ACTIVE_F);
    ps->link_speed_supported = decode_u8(pi, IB_PORT_LINK_SPEED_SUPPORTED_F);
    ps->link_speed_enabled = decode_u8(pi, IB_PORT_LINK_SPEED_ENABLED_F);
    ps->link_speed_active = decode_u8(pi, IB_PORT_LINK_SPEED_ACTIVE_F);
    ps->port_logical_state = decode_u8(pi, IB_PORT_STATE_F);
    ps->port_phy_state = decode_u8(pi, IB_PORT_PHYS_STATE_F);
    ps->link_down_default_state = decode_u8(pi, IB_PORT_LINK_DOWN_DEF_F);
    ps->mtu_cap = decode_u8(pi, IB_PORT_MTU_CAP_F);
    ps->neighbor_mtu = decode_u8(pi, IB_PORT_NEIGHBOR_MTU_F);
    ps->vl_cap = decode_u8(pi, IB_PORT_VL_CAP_F);
    ps->oper_vl = decode_u8(pi, IB_PORT_OPER_VLS_F);
    ps->lid = static_cast<uint16_t>(decode_u32(pi, IB_PORT_LID_F));
}

int get_port_info(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, int ib_port, sa_port_speed_state_t *ps,
                  int state_only)
{
    ib_portid_t portid = {};
    uint8_t pi[SMP_DATA_LEN] = {};

    if (sa_ctx == nullptr || sa_ctx->sport == nullptr || dr_path == nullptr || ps == nullptr) {
        lc_log_basic(LOG_ERR, "Sysapi function called but madrpc was not initiated\n");
        return SARC_ERROR;
    }
    set_dr_path(&portid, dr_path);
    if (smp_query_via(pi, &portid, IB_ATTR_PORT_INFO, static_cast<unsigned>(ib_port), 0, sa_ctx->sport) ==
        nullptr) {
        lc_log_basic(LOG_ERR, "Failed to send port info MAD to route: %s\n", portid2str(&portid));
        return SARC_MAD_SEND_FAILED;
    }
    unpack_port_speed_state(pi, ps, state_only);
    return SARC_OK;
}

int check_dr_path(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, uint8_t *failed_ib_port)
{
    ib_dr_path_t path = {};
    sa_port_speed_state_t ps = {};
    int status = SARC_OK;

    if (failed_ib_port == nullptr) {
        lc_log_basic(LOG_ERR, "Got failed_ib_port NULL pointer\n");
        return SARC_ERROR;
    }
    *failed_ib_port = 0;
    if (dr_path == nullptr) {
        return SARC_NO_DR_PATH;
    }
    path = *dr_path;
    for (int h = 0; h < dr_path->cnt && h + 1 < IB_SUBNET_PATH_HOPS_MAX; ++h) {
        // The node h hops out, and the port by which the path leaves it.
        const uint8_t exit_port = dr_path->p[h + 1];
        path.cnt = h;
        status = get_port_info(sa_ctx, &path, exit_port, &ps, 1);
        if (status != SARC_OK) {
            return status;
        }
        if (ps.port_phy_state != port_info_phy_state_linkup) {
            char path_text[256] = {};
            drpath2str(dr_path, path_text, sizeof(path_text));
            lc_log_basic(LOG_DEBUG,
                         "check_dr_path: Internal Port %d, DR path \"%s\" is not in LinkUp state (state = 0x%x)\n",
                         exit_port, path_text, ps.port_phy_state);
            *failed_ib_port = exit_port;
            return SARC_DR_PORT_DOWN_ERROR;
        }
    }
    return SARC_OK;
}

int get_lid_by_drpath(swidapi_t *sa_ctx, ib_dr_path_t *dr_path, u_int16_t *lid_num)
{
    sa_port_speed_state_t ps = {};
    int status = get_port_info(sa_ctx, dr_path, 0, &ps, 1);

    if (status != SARC_OK) {
        return status;
    }
    if (ps.lid == 0) {
        return SARC_LID_NOT_ASSIGNED;
    }
    if (lid_num != nullptr) {
        *lid_num = ps.lid;
    }
    return SARC_OK;
}

int sa_get_port_info(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                     sa_port_speed_state_t *ps)
{
    uint8_t failed_port = 0;
    int status = SARC_OK;

    (void)dev_id;
    status = check_dr_path(sa_ctx, dr_path, &failed_port);
    if (status != SARC_OK) {
        return status;
    }
    return get_port_info(sa_ctx, dr_path, ib_port, ps, 0);
}

int sa_get_node_info(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                     sa_node_info_t *node_info)
{
    uint8_t failed_port = 0;
    int status = SARC_OK;
    ib_portid_t portid = {};
    uint8_t ni[SMP_DATA_LEN] = {};
    sa_port_speed_state_t ps = {};

    (void)dev_id;
    (void)ib_port;
    if (sa_ctx == nullptr || sa_ctx->sport == nullptr || node_info == nullptr) {
        lc_log_basic(LOG_ERR, "Sysapi function called but madrpc was not initiated\n");
        return SARC_ERROR;
    }
    status = check_dr_path(sa_ctx, dr_path, &failed_port);
    if (status != SARC_OK) {
        return status;
    }
    set_dr_path(&portid, dr_path);
    if (smp_query_via(ni, &portid, IB_ATTR_NODE_INFO, 0, 0, sa_ctx->sport) == nullptr) {
        lc_log_basic(LOG_ERR, "Failed to send node info MAD to route: %s\n", portid2str(&portid));
        return SARC_MAD_SEND_FAILED;
    }
    mad_decode_field(ni, IB_NODE_GUID_F, &node_info->node_guid);
    status = get_port_info(sa_ctx, dr_path, 0, &ps, 1);
    if (status != SARC_OK) {
        return status;
    }
    node_info->node_lid = ps.lid;
    return SARC_OK;
}

int sa_is_master_sm_in_swid(swidapi_t *sa_ctx, int *master_up, int timeout)
{
    ib_portid_t sm_id = {};
    uint8_t pi[SMP_DATA_LEN] = {};
    int retries = 0;
    int rc = 0;
    uint32_t capmask = 0;

    if (sa_ctx == nullptr || sa_ctx->sport == nullptr || master_up == nullptr) {
        lc_log_basic(LOG_ERR, "Sysapi function called but madrpc was not initiated\n");
        return SARC_ERROR;
    }
    // The check is short whatever the caller asks for.
    timeout = SA_MASTER_SM_TIMEOUT_MS;

    rc = ib_resolve_smlid_via(&sm_id, timeout, sa_ctx->sport);
    if (rc != 0) {
        lc_log_basic(LOG_DEBUG, "sa_is_master_sm_in_fabric: ib_resolve_smlid returned %d\n", rc);
        return SA_SM_LID_UNRESOLVED;
    }

    retries = mad_get_retries(sa_ctx->sport);
    mad_rpc_set_retries(sa_ctx->sport, 1);
    *master_up = 1;
    if (smp_query_via(pi, &sm_id, IB_ATTR_PORT_INFO, 0, static_cast<unsigned>(timeout), sa_ctx->sport) !=
        nullptr) {
        capmask = decode_u32(pi, IB_PORT_CAPMASK_F);
        if ((capmask & CAPMASK_IS_SM) != 0 && (capmask & CAPMASK_IS_SM_DISABLED) == 0) {
            mad_rpc_set_retries(sa_ctx->sport, retries);
            return SARC_OK;
        }
    } else {
        lc_log_basic(LOG_DEBUG, "sa_is_master_sm_in_fabric:  smp_query_via(%s,IB_ATTR_PORT_INFO) failed\n",
                     portid2str(&sm_id));
    }
    *master_up = 0;
    mad_rpc_set_retries(sa_ctx->sport, retries);
    return SARC_OK;
}

int get_ib_fn(const char *type, char *val, int size, const char *swid_str)
{
    int err = 0;
    char path[256] = {};
    const char *file = nullptr;
    FILE *fp = nullptr;
    size_t len = 0;
    std::string_view t;

    bail_null(type);
    bail_null(val);
    bail_null(swid_str);
    bail_require(size > 0);
    t = type;
    if (t == "guid") {
        file = "ports/0/gids/0";
    } else if (t == "lid") {
        file = "ports/0/lid";
    } else if (t == "sm_lid") {
        file = "ports/0/sm_lid";
    } else {
        file = type;
    }
    snprintf(path, sizeof(path), SA_SYSFS_IB_FMT, swid_str, file);

    // The driver's files as the process sees them: stdio reads the real tree (the fabric
    // simulator's preload redirects only plain opens, for the MAD library's device scan).
    fp = fopen(path, "re");
    if (fp == nullptr) {
        lc_log_basic(LOG_ERR, "%s: No file %s", __func__, path);
        err = lc_err_not_found;
        goto bail;
    }
    val[0] = '\0';
    if (fgets(val, std::min(size, SA_SYSFS_VAL_MAX + 1), fp) == nullptr) {
        lc_log_basic(LOG_ERR, "%s: No data in %s", __func__, path);
        err = lc_err_not_found;
        goto bail;
    }
    len = strlen(val);
    if (len > 0 && val[len - 1] == '\n') {
        val[len - 1] = '\0';
    }

bail:
    if (fp != nullptr) {
        fclose(fp);
    }
    return err;
}
