// The route walk along the linear forwarding tables, the LED datagram, PMPC's
// module-changed bitmap and the board information query.
#include "sa_route.h"

#include <stdio.h>
#include <string.h>

#include "logging.h"

namespace {

// The entry of a forwarding table that holds no port.
constexpr uint8_t sa_lft_no_port = 255;
constexpr unsigned sa_lft_block_len = 64;
// PortInfo logical state Active.
constexpr uint8_t sa_port_state_active = 4;
constexpr int sa_pmpc_words = 8;
constexpr int sa_pmpc_max_modules = 64;

// The module's place in the register form of the bitmap.
void sa_module_bit(int module, int *ret_word, uint32_t *ret_mask)
{
    *ret_word = sa_pmpc_words - 1 - module / 32;
    *ret_mask = 1u << (module % 32);
}

}  // namespace

const char *lidroute_err2str(int status)
{
    switch (status) {
    case ROUTE_OK:
        return "LID ROUTE OK";
    case ROUTE_ERROR:
        return "BROKEN LID ROUTE";
    case ROUTE_FT_ERROR:
        return "FAILED TO BRING FORWARDING TABLE";
    case ROUTE_LID_NOT_EXIST_IN_FD_ERROR:
        return "LID NOT FOUND AT FORWARDING TABLE, SM DID NOT CONFIGURED IT";
    case ROUTE_LID_TO_DR_TO_LONG_ERROR:
        return "ROUTE TO LID TO LONG, PASS MAX HOPS";
    case ROUTE_LID_PORT_DOWN_ERROR:
        return "ROUTE IS BROKEN DUE TO PORT DOWN";
    default:
        return "UNKNOWN";
    }
}

int set_dr_path_2(ib_portid_t *portid, int *dr_path, int hop)
{
    char text[100] = "";
    size_t used = 0;

    if (portid == nullptr || dr_path == nullptr) {
        return -1;
    }
    memset(portid, 0, sizeof(*portid));
    for (int i = 0; i < hop && dr_path[i] != -1; ++i) {
        const int n = snprintf(text + used, sizeof(text) - used, ",%d", dr_path[i]);
        if (n < 0 || static_cast<size_t>(n) >= sizeof(text) - used) {
            return -1;
        }
        used += static_cast<size_t>(n);
    }
    if (used == 0) {
        return -1;
    }
    return str2drpath(&portid->drpath, text + 1, 0, 0) < 0 ? -1 : 0;
}

int check_lid_route(swidapi_t *sa_ctx, u_int16_t lid)
{
    int dr_path[SA_ROUTE_MAX_HOPS] = {-1, -1, -1};
    const unsigned block_id = lid / sa_lft_block_len;
    const unsigned lid_idx = lid % sa_lft_block_len;
    int next_port = 0;

    if (sa_ctx == nullptr) {
        return ROUTE_ERROR;
    }
    for (int i = 0; i < SA_ROUTE_MAX_HOPS; ++i) {
        ib_portid_t portid = {};
        uint8_t lft[sa_lft_block_len] = {};
        sa_port_speed_state_t ps = {};

        dr_path[i] = next_port;
        if (set_dr_path_2(&portid, dr_path, i + 1) != 0) {
            return ROUTE_ERROR;
        }
        if (smp_query_via(lft, &portid, IB_ATTR_LINEARFORWTBL, block_id, SA_ROUTE_LFT_TIMEOUT_MS,
                          sa_ctx->sport) == nullptr) {
            return ROUTE_FT_ERROR;
        }
        next_port = lft[lid_idx];
        if (next_port == sa_lft_no_port) {
            lc_log_basic(LOG_DEBUG, "check_lid_route: lid %d not set in LFT of %s\n", lid,
                         portid2str(&portid));
            lc_log_basic(LOG_WARNING, "check_lid_route: lid %d not set in LFT of %s", lid,
                         portid2str(&portid));
            return ROUTE_LID_NOT_EXIST_IN_FD_ERROR;
        }
        if (next_port == 0) {
            return ROUTE_OK;
        }
        if (sa_get_port_info(sa_ctx, 0, &portid.drpath, next_port, &ps) != SARC_OK) {
            return ROUTE_ERROR;
        }
        if (ps.port_logical_state != sa_port_state_active) {
            lc_log_basic(LOG_DEBUG, "check_lid_route: lid %d exit port not in Active state in %s\n",
                         lid, portid2str(&portid));
            lc_log_basic(LOG_WARNING,
                         "check_lid_route: Leaf lid:[%d]. spine exit port:[%d] not in Active "
                         "state in:[%s]",
                         lid, next_port, portid2str(&portid));
            return ROUTE_LID_PORT_DOWN_ERROR;
        }
    }
    return ROUTE_LID_TO_DR_TO_LONG_ERROR;
}

int sa_check_lid_route(swidapi_t *sa_ctx, u_int16_t lid)
{
    return check_lid_route(sa_ctx, lid);
}

int sa_set_port_led(swidapi_t *sa_ctx, sa_led_control_t *leds)
{
    int err = 0;
    uint8_t failed_port = 0;
    u_int16_t lid = 0;
    uint8_t block[SA_LED_BLOCK_LEN] = {};
    ib_rpc_t rpc = {};
    ib_portid_t portid = {};

    bail_null(sa_ctx);
    bail_null(leds);
    err = check_dr_path(sa_ctx, &leds->path, &failed_port);
    bail_error(err);
    if (get_lid_by_drpath(sa_ctx, &leds->path, &lid) != SARC_OK) {
        lc_log_basic(LOG_NOTICE, "%s: LID not assigned", __func__);
        err = lc_err_io_closed;
        goto bail;
    }
    if (lid == 0 || lid > 65534) {
        lc_log_basic(LOG_NOTICE, "%s: No LID assigned", __func__);
        err = lc_err_io_closed;
        goto bail;
    }
    memcpy(block + SA_LED_DATA_OFFSET_IN_BLOCK, leds->data, sizeof(leds->data));
    rpc.mgtclass = SA_LED_MGMT_CLASS;
    rpc.method = IB_MAD_METHOD_SET;
    rpc.attr.id = SA_LED_ATTR_ID;
    rpc.attr.mod = leds->attrib;
    rpc.timeout = 0;
    rpc.dataoffs = SA_LED_MAD_DATA_OFFSET;
    rpc.datasz = SA_LED_MAD_DATA_SIZE;
    ib_portid_set(&portid, lid, 1, SA_LED_QKEY);
    err = mad_send_via(&rpc, &portid, nullptr, block, sa_ctx->sport);
    bail_error(err);

bail:
    return err;
}

int sa_get_pmpc(vqd_swid_t swid, uint32 dev_id, struct ku_pmpc_reg *pmpc_reg_data)
{
    int err = 0;
    vqd_reg_meta_t meta = {};
    vqd_status_t status = VQD_STATUS_SUCCESS;

    bail_null(pmpc_reg_data);
    meta.access_cmd = VQD_ACCESS_CMD_GET;
    meta.dev_id = static_cast<vqd_dev_id_t>(dev_id);
    meta.swid = swid;
    status = vqd_access_reg_pmpc(pmpc_reg_data, &meta, 1, nullptr, nullptr);
    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "failed in PMPC get for device id %d, error: %d",
                     static_cast<int>(dev_id), static_cast<int>(status));
        err = lc_err_generic_error;
        goto bail;
    }

bail:
    return err;
}

int sa_set_pmpc(vqd_swid_t swid, uint32 dev_id, uint32_t *module_state_updated_bitmap)
{
    int err = 0;
    vqd_reg_meta_t meta = {};
    ku_pmpc_reg reg = {};
    vqd_status_t status = VQD_STATUS_SUCCESS;

    bail_null(module_state_updated_bitmap);
    memcpy(reg.module_state_updated_bitmap, module_state_updated_bitmap,
           sizeof(reg.module_state_updated_bitmap));
    meta.access_cmd = VQD_ACCESS_CMD_SET;
    meta.dev_id = static_cast<vqd_dev_id_t>(dev_id);
    meta.swid = swid;
    status = vqd_access_reg_pmpc(&reg, &meta, 1, nullptr, nullptr);
    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "failed in PMPC set for device id dev_id, error: %d",
                     static_cast<int>(status));
        err = lc_err_generic_error;
        goto bail;
    }

bail:
    return err;
}

int sa_get_changed_modules(uint32 dev_id, int num_of_modules, uint64 *changed_modules)
{
    int err = 0;
    ku_pmpc_reg reg = {};
    uint64 changed = 0;

    bail_null(changed_modules);
    err = sa_get_pmpc(0, dev_id, &reg);
    bail_error(err);
    for (int word = 0; word < sa_pmpc_words; ++word) {
        lc_log_basic(LOG_DEBUG, "got from PMPC: %d:0x%x", word,
                     reg.module_state_updated_bitmap[word]);
    }
    for (int m = 0; m < num_of_modules && m < sa_pmpc_max_modules; ++m) {
        int word = 0;
        uint32_t mask = 0;
        sa_module_bit(m, &word, &mask);
        if ((reg.module_state_updated_bitmap[word] & mask) != 0) {
            changed |= 1ull << m;
        }
    }
    *changed_modules = changed;
    lc_log_basic(LOG_DEBUG, "got changed modules: %lld", static_cast<long long>(changed));

bail:
    return err;
}

int sa_set_changed_modules(uint32 dev_id, int num_of_modules, uint64 changed_modules)
{
    int err = 0;
    uint32_t bitmap[sa_pmpc_words] = {};

    lc_log_basic(LOG_INFO, "got for set: %lld", static_cast<long long>(changed_modules));
    if (changed_modules == 0) {
        lc_log_basic(LOG_INFO, "unexpected input %lld", static_cast<long long>(changed_modules));
        goto bail;
    }
    lc_log_basic(LOG_INFO, "set changed module: %lld", static_cast<long long>(changed_modules));
    for (int m = 0; m < num_of_modules && m < sa_pmpc_max_modules; ++m) {
        if ((changed_modules & (1ull << m)) != 0) {
            int word = 0;
            uint32_t mask = 0;
            sa_module_bit(m, &word, &mask);
            bitmap[word] |= mask;
        }
    }
    for (int word = 0; word < sa_pmpc_words; ++word) {
        lc_log_basic(LOG_INFO, "Setting PMPC: %d:0x%x", word, bitmap[word]);
    }
    err = sa_set_pmpc(0, dev_id, bitmap);
    bail_error(err);

bail:
    return err;
}

int get_board_info(vqd_dev_id_t dev_id, board_info_t *board_info)
{
    int err = 0;
    vqd_status_t status = VQD_STATUS_SUCCESS;

    bail_null(board_info);
    board_info->dev_id = static_cast<uint8_t>(dev_id);
    status = vqd_access_reg_query_board_info(board_info);
    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "failed in board info query for device id %d, error: %d",
                     static_cast<int>(dev_id), static_cast<int>(status));
        err = lc_err_generic_error;
        goto bail;
    }

bail:
    return err;
}
