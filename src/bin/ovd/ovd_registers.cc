// Register accesses the inventory flows make themselves.
#include "ovd_registers.h"

#include <string.h>

#include "logging.h"

const char *ovd_vqd_status_str(int status)
{
    return VQD_STATUS_MSG(status);
}

int ovd_set_get_pspa_reg(uint8_t dev_id, uint8_t swid_id, uint8_t sub_port, uint8_t local_port,
                         vqd_access_cmd_t cmd_type, vqd_completion_handler_t handler, void *context,
                         struct ku_pspa_reg *pspa_reg)
{
    int err = 0;
    vqd_reg_meta_t meta;
    vqd_status_t status = VQD_STATUS_SUCCESS;

    memset(&meta, 0, sizeof(meta));
    bail_null(pspa_reg);

    pspa_reg->swid = swid_id;
    pspa_reg->sub_port = sub_port;
    pspa_reg->local_port = local_port;
    meta.access_cmd = cmd_type;
    meta.dev_id = dev_id;
    meta.swid = swid_id;

    status = vqd_access_reg_pspa(pspa_reg, &meta, 1, handler, context);
    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR,
                     "Failed interacting with PSPA register command: [%s] for device id: [%d] swid id: [%d] "
                     "error: [%d: %s]",
                     VQD_ACCESS_CMD_STR(cmd_type), dev_id, swid_id, status, ovd_vqd_status_str(status));
        err = lc_err_generic_error;
        bail_error(err);
    }

bail:
    return err;
}

int map_ibport_to_localport(const uint8 device_id, const uint8 localport, const uint8 ibport)
{
    int err = 0;
    vqd_reg_meta_t meta;
    struct ku_plib_reg plib_reg;
    vqd_status_t status = VQD_STATUS_SUCCESS;

    memset(&meta, 0, sizeof(meta));
    memset(&plib_reg, 0, sizeof(plib_reg));
    meta.access_cmd = VQD_ACCESS_CMD_SET;
    meta.dev_id = device_id;
    meta.swid = 0;
    plib_reg.local_port = localport;
    plib_reg.ib_port = ibport;

    lc_log_basic(LOG_INFO, "Set PLIB %u %u %u", device_id, localport, ibport);
    status = vqd_access_reg_plib(&plib_reg, &meta, 1, nullptr, nullptr);
    if (status != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed in set PLIB, error: %d", __func__, status);
        err = lc_err_generic_error;
        bail_error(err);
    }
    lc_log_basic(LOG_INFO, "Set PLIB %u %u %u DONE [return value: %d]", device_id, localport, ibport, err);

bail:
    return err;
}

vqd_status_t ovd_write_system_m_key(uint8 dev_id, uint64 system_m_key)
{
    struct ku_system_m_key key;

    memset(&key, 0, sizeof(key));
    key.dev_id = dev_id;
    key.system_m_key = system_m_key;
    lc_log_basic(LOG_NOTICE, "Writing system_m_key to VQD for device [%u]", dev_id);
    return vqd_access_reg_system_m_key_access(VQD_ACCESS_CMD_SET, &key);
}
