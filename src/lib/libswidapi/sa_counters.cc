// Port counters over Performance Management datagrams.
#include "sa_counters.h"

#include "logging.h"

namespace {

// The reply buffer of a PMA query.
constexpr size_t sa_pma_buf_size = 256;

u_int32_t sa_field32(const uint8_t *buf, enum MAD_FIELDS field)
{
    u_int32_t value = 0;
    mad_decode_field(const_cast<uint8_t *>(buf), field, &value);
    return value;
}

u_int64_t sa_field64(const uint8_t *buf, enum MAD_FIELDS field)
{
    u_int64_t value = 0;
    mad_decode_field(const_cast<uint8_t *>(buf), field, &value);
    return value;
}

// One PMA query of `attr` for the device's port, with the one retry on a fresh LID when
// a cached one got no reply.
int sa_cnt_query(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                 unsigned attr, bool use_module_cache, uint8_t *buf, u_int16_t *ret_lid)
{
    int status = update_cnt_cache(sa_ctx, dev_id, dr_path, use_module_cache, ret_lid);
    if (status != SARC_OK) {
        return status;
    }
    if (pma_query_via(buf, &sa_ctx->cnt_portid, ib_port, SA_CNT_MAD_TIMEOUT_MS, attr,
                      sa_ctx->sport) != nullptr) {
        return SARC_OK;
    }
    if (!use_module_cache) {
        return SARC_MAD_SEND_FAILED;
    }
    lc_log_basic(LOG_NOTICE,
                 "Could not send MAD using LID:[%d] from cache, forcing new LID calculation",
                 sa_ctx->cnt_portid.lid);
    status = update_cnt_cache(sa_ctx, dev_id, dr_path, false, ret_lid);
    if (status != SARC_OK) {
        return status;
    }
    if (pma_query_via(buf, &sa_ctx->cnt_portid, ib_port, SA_CNT_MAD_TIMEOUT_MS, attr,
                      sa_ctx->sport) == nullptr) {
        return SARC_MAD_SEND_FAILED;
    }
    return SARC_OK;
}

} // namespace

u_int32_t sa_cnt_bytes32(u_int32_t raw)
{
    return (raw & 0xC0000000u) != 0 ? 0xFFFFFFFFu : raw << 2;
}

u_int64_t sa_cnt_bytes64(u_int64_t raw)
{
    return (raw & 0xC000000000000000ull) != 0 ? ~0ull : raw << 2;
}

int update_cnt_cache(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path,
                     bool use_module_cache, u_int16_t *ret_lid)
{
    u_int16_t lid = 0;
    int status = SARC_OK;

    if (ret_lid == nullptr || sa_ctx == nullptr) {
        return SARC_ERROR;
    }
    if (!use_module_cache || dev_id != sa_ctx->cnt_dev_id) {
        status = get_lid_by_drpath(sa_ctx, dr_path, &lid);
        if (status != SARC_OK) {
            return status;
        }
        ib_portid_set(&sa_ctx->cnt_portid, lid, 0, 0);
        sa_ctx->cnt_dev_id = dev_id;
    }
    *ret_lid = static_cast<u_int16_t>(sa_ctx->cnt_portid.lid);
    return SARC_OK;
}

int sa_get_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, int ib_port, ib_dr_path_t *dr_path,
                    sa_port_counters_t *pc, bool use_module_cache, u_int16_t *ret_lid)
{
    uint8_t buf[sa_pma_buf_size] = {};
    int status = SARC_OK;

    if (pc == nullptr) {
        return SARC_ERROR;
    }
    status = sa_cnt_query(sa_ctx, dev_id, dr_path, ib_port, IB_GSI_PORT_COUNTERS,
                          use_module_cache, buf, ret_lid);
    if (status != SARC_OK) {
        return status;
    }
    pc->xmit_data_bytes = sa_cnt_bytes32(sa_field32(buf, IB_PC_XMT_BYTES_F));
    pc->rcv_data_bytes = sa_cnt_bytes32(sa_field32(buf, IB_PC_RCV_BYTES_F));
    pc->xmit_pkts = sa_field32(buf, IB_PC_XMT_PKTS_F);
    pc->rcv_pkts = sa_field32(buf, IB_PC_RCV_PKTS_F);
    pc->xmit_wait = sa_field32(buf, IB_PC_XMT_WAIT_F);
    pc->symbol_err_cnt = static_cast<u_int16_t>(sa_field32(buf, IB_PC_ERR_SYM_F));
    pc->rcv_err = static_cast<u_int16_t>(sa_field32(buf, IB_PC_ERR_RCV_F));
    pc->rcv_rem_phys_err = static_cast<u_int16_t>(sa_field32(buf, IB_PC_ERR_PHYSRCV_F));
    pc->rcv_switch_relay_err = static_cast<u_int16_t>(sa_field32(buf, IB_PC_ERR_SWITCH_REL_F));
    pc->xmit_discards = static_cast<u_int16_t>(sa_field32(buf, IB_PC_XMT_DISCARDS_F));
    pc->vl15_dropped = static_cast<u_int16_t>(sa_field32(buf, IB_PC_VL15_DROPPED_F));
    pc->xmit_constraint_err = static_cast<u_int8_t>(sa_field32(buf, IB_PC_ERR_XMTCONSTR_F));
    pc->rcv_constraint_err = static_cast<u_int8_t>(sa_field32(buf, IB_PC_ERR_RCVCONSTR_F));
    pc->link_integrity = static_cast<u_int8_t>(sa_field32(buf, IB_PC_ERR_LOCALINTEG_F));
    pc->excess_buf_overrun = static_cast<u_int8_t>(sa_field32(buf, IB_PC_ERR_EXCESS_OVR_F));
    pc->link_err_recover = static_cast<u_int8_t>(sa_field32(buf, IB_PC_LINK_RECOVERS_F));
    pc->link_downed = static_cast<u_int8_t>(sa_field32(buf, IB_PC_LINK_DOWNED_F));
    return SARC_OK;
}

int sa_get_ext_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                        sa_ext_port_counters_t *pc, bool use_module_cache, u_int16_t *ret_lid)
{
    uint8_t buf[sa_pma_buf_size] = {};
    int status = SARC_OK;

    if (pc == nullptr) {
        return SARC_ERROR;
    }
    status = sa_cnt_query(sa_ctx, dev_id, dr_path, ib_port, IB_GSI_PORT_COUNTERS_EXT,
                          use_module_cache, buf, ret_lid);
    if (status != SARC_OK) {
        return status;
    }
    pc->xmit_data_bytes = sa_cnt_bytes64(sa_field64(buf, IB_PC_EXT_XMT_BYTES_F));
    pc->rcv_data_bytes = sa_cnt_bytes64(sa_field64(buf, IB_PC_EXT_RCV_BYTES_F));
    pc->xmit_pkts = sa_field64(buf, IB_PC_EXT_XMT_PKTS_F);
    pc->rcv_pkts = sa_field64(buf, IB_PC_EXT_RCV_PKTS_F);
    pc->unicast_xmit_pkts = sa_field64(buf, IB_PC_EXT_XMT_UPKTS_F);
    pc->unicast_rcv_pkts = sa_field64(buf, IB_PC_EXT_RCV_UPKTS_F);
    pc->multicast_xmit_pkts = sa_field64(buf, IB_PC_EXT_XMT_MPKTS_F);
    pc->multicast_rcv_pkts = sa_field64(buf, IB_PC_EXT_RCV_MPKTS_F);
    return SARC_OK;
}

int sa_clear_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                      int is_extended, unsigned int counter_select, u_int16_t *ret_lid)
{
    uint8_t buf[sa_pma_buf_size] = {};
    const int status = update_cnt_cache(sa_ctx, dev_id, dr_path, false, ret_lid);

    if (status != SARC_OK) {
        return status;
    }
    if (performance_reset_via(buf, &sa_ctx->cnt_portid, ib_port, counter_select,
                              SA_CNT_MAD_TIMEOUT_MS,
                              is_extended ? IB_GSI_PORT_COUNTERS_EXT : IB_GSI_PORT_COUNTERS,
                              sa_ctx->sport) == nullptr) {
        return SARC_MAD_SEND_FAILED;
    }
    return SARC_OK;
}
