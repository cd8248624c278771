// The switch's SMP-visible identity: the node description text and the writes of
// description and GUIDs through the SPZR register.
#include <stdio.h>
#include <string.h>

#include "logging.h"
#include "swidapi.h"

namespace {

// The family mark that opens every description.
constexpr const char *NODE_DESC_FAMILY = "0";
constexpr const char *NODE_DESC_FMT = "MF%s;%s:%s%s%s/%s";

// One SPZR set of a device in the context's SWID; gives the register library's status.
vqd_status_t spzr_set(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, spzr_reg_t *spzr)
{
    vqd_reg_meta_t meta = {};

    meta.access_cmd = VQD_ACCESS_CMD_SET;
    meta.dev_id = dev_id;
    meta.swid = static_cast<vqd_swid_t>(sa_ctx->swid_num);
    return vqd_access_reg_spzr(spzr, &meta, 1, nullptr, nullptr);
}

}  // namespace

int __build_node_desc(system_type_t sys_type, const char *hostname, int slot_num, subsystem_type_t slot_type,
                      char *desc, const char *sys_disp, uint8_t index_inside_slot)
{
    int err = 0;
    char chip[16] = {};
    char host[SA_NODE_DESC_HOST_MAX + 1] = {};
    char slot[16] = {};
    char text[256] = {};
    const char *sys_name = nullptr;
    size_t need = 0;
    size_t excess = 0;
    size_t host_len = 0;

    if (desc == nullptr) {
        bail_force(lc_err_generic_error);
    }
    snprintf(chip, sizeof(chip), "U%d", index_inside_slot);

    if (hostname == nullptr) {
        lc_log_basic(LOG_INFO, "%s: Host name is empty , Node desc will not include system name", __func__);
        hostname = "NA";
    }
    strlcpy(host, hostname, sizeof(host));
    for (char *c = host; *c != '\0'; ++c) {
        if (*c == '/' || *c == ':') {
            *c = '_';
        }
    }

    sys_name = sys_disp != nullptr ? sys_disp : sah_get_system_type_str(sys_type, 0);
    if (sys_name == nullptr || *sys_name == '\0' || strcmp(sys_name, "UNKNOWN") == 0) {
        lc_log_basic(LOG_INFO, "%s: Can't retrieve system name", __func__);
        sys_name = "NA";
    }

    if (sah_mqry_ib_leaf(slot_type)) {
        snprintf(slot, sizeof(slot), "/L%02d", slot_num);
    } else if (sah_mqry_ib_spine(slot_type)) {
        snprintf(slot, sizeof(slot), "/S%02d", slot_num);
    }

    snprintf(text, sizeof(text), NODE_DESC_FMT, NODE_DESC_FAMILY, host, sys_name, slot, "", chip);
    need = strlen(text) + 1;
    if (need > SA_NODE_DESC_LEN) {
        excess = need - SA_NODE_DESC_LEN;
        host_len = strlen(host);
        if (excess > host_len) {
            snprintf(text, SA_NODE_DESC_LEN, NODE_DESC_FMT, NODE_DESC_FAMILY, "NA", "NA", "", "", chip);
            lc_log_basic(LOG_WARNING, "Final string for node description is too long. Description will not "
                                      "contain system name, system type and slot name");
        } else {
            host[host_len - excess] = '\0';
            snprintf(text, SA_NODE_DESC_LEN, NODE_DESC_FMT, NODE_DESC_FAMILY, host, sys_name, slot, "", chip);
            lc_log_basic(LOG_NOTICE, "Host name is too long for node description trimming it to %s", host);
        }
    }
    memcpy(desc, text, SA_NODE_DESC_LEN);

bail:
    return err;
}

int sa_set_node_ndesc(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, const char *host_name, int slot_num,
                      subsystem_type_t slot_type, const char *sys_disp, uint32 index_inside_slot)
{
    int err = 0;
    spzr_reg_t spzr = {};
    int rc = 0;

    bail_null(sa_ctx);
    lc_log_basic(LOG_INFO,
                 "%s: IB SWID API: set node description , SWID: [%d] , device id: [%u] , host name: [%s] , "
                 "slot num: [%d] ,slot type: [%d], sys_disp [%s]",
                 __func__, sa_ctx->swid_num, dev_id, host_name != nullptr ? host_name : "null", slot_num,
                 static_cast<int>(slot_type), sys_disp != nullptr ? sys_disp : "null");

    spzr.swid = static_cast<uint8_t>(sa_ctx->swid_num);
    spzr.ndm = 1;
    rc = __build_node_desc(sa_ctx->sys_type, host_name, slot_num, slot_type,
                           reinterpret_cast<char *>(spzr.NodeDescription), sys_disp,
                           static_cast<uint8_t>(index_inside_slot));
    if (rc != 0) {
        lc_log_basic(LOG_ERR, "%s: failed in __build_node_desc , error: %d", __func__, rc);
        bail_force(lc_err_generic_error);
    }
    lc_log_basic(LOG_NOTICE, "Node description for this node will be: %s",
                 reinterpret_cast<const char *>(spzr.NodeDescription));

    rc = spzr_set(sa_ctx, dev_id, &spzr);
    if (rc != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed in SPZR set (NODE DESCRIPTION) , error: %d", __func__, rc);
        bail_force(lc_err_generic_error);
    }
    lc_log_basic(LOG_INFO, "%s: IB SWID API: set node description done [Return value: %s]", __func__,
                 lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));

bail:
    return err;
}

int sa_set_sysimageguid(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, u_int64_t sysimageguid)
{
    int err = 0;
    spzr_reg_t spzr = {};
    int rc = 0;

    bail_null(sa_ctx);
    lc_log_basic(LOG_INFO, "%s: IB SWID API: set image GUID , SWID: [%d] , device id: [%u], sys GUID: [%llu]",
                 __func__, sa_ctx->swid_num, dev_id, static_cast<unsigned long long>(sysimageguid));
    spzr.swid = static_cast<uint8_t>(sa_ctx->swid_num);
    spzr.sig = 1;
    spzr.system_image_guid_h_l = sysimageguid;
    rc = spzr_set(sa_ctx, dev_id, &spzr);
    if (rc != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed in SPZR set (SYSTEM GUID), error: %d", __func__, rc);
        bail_force(lc_err_generic_error);
    }
    lc_log_basic(LOG_INFO, "%s: IB SWID API: set system GUID done [Return value: %s]", __func__,
                 lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));

bail:
    return err;
}

int sa_set_nodeguid(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, u_int64_t nodeguid)
{
    int err = 0;
    spzr_reg_t spzr = {};
    int rc = 0;

    bail_null(sa_ctx);
    lc_log_basic(LOG_INFO, "%s: IB SWID API: set node GUID, SWID: [%d], device id: [%u], sys GUID: [%llu]",
                 __func__, sa_ctx->swid_num, dev_id, static_cast<unsigned long long>(nodeguid));
    spzr.swid = static_cast<uint8_t>(sa_ctx->swid_num);
    spzr.ng = 1;
    spzr.node_guid_h_l = nodeguid;
    rc = spzr_set(sa_ctx, dev_id, &spzr);
    if (rc != VQD_STATUS_SUCCESS) {
        lc_log_basic(LOG_ERR, "%s: failed in SPZR set (NODE GUID), error: %d", __func__, rc);
        bail_force(lc_err_generic_error);
    }
    lc_log_basic(LOG_INFO, "%s: IB SWID API: set system GUID done [Return value: %s]", __func__,
                 lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)));

bail:
    return err;
}
