// What a SWID sees of the fabric.
#include "ovd_fabric_identity.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "tstring.h"

namespace {

// Room for a path below the sysfs folder and for one value read from it.
constexpr int ovd_sysfs_buf_len = 100;
// The GID of a port as the driver prints it: eight groups of four hex digits.
constexpr size_t ovd_gid_text_len = 39;
constexpr const char ovd_zero_gid[] = "0000:0000:0000:0000:0000:0000:0000:0000";
// The subnet manager query's time-out: the first, the one after a positive answer, and
// the ceiling it grows to while none answers.
constexpr int ovd_sm_timeout_first_ms = 500;
constexpr int ovd_sm_timeout_max_ms = 3000;
// Parts of /ib/state/swid/<swid>/<group>/<devid>/<leaf>.
constexpr uint32 ovd_swid_part = 3;
constexpr uint32 ovd_devid_part = 5;

// The SWID of part 3, which must be one this daemon serves.
int ovd_fabric_swid(const tstr_array *bname_parts, uint8 *ret_swid)
{
    int err = 0;
    const char *swid_str = tstr_array_get_str_quick(bname_parts, ovd_swid_part);

    bail_null(swid_str);
    err = lc_str_to_uint8(swid_str, ret_swid);
    bail_error(err);
    if (!ovd_swid_is_served(*ret_swid)) {
        lc_log_basic(LOG_WARNING, "SWID %d is not a valid InfiniBand SWID", *ret_swid);
        err = lc_err_invalid_param;
        goto bail;
    }

bail:
    return err;
}

// my_lid and sm_lid: a LID as the driver prints it, "0x1".
int ovd_get_sysfs_lid(const char *func, const char *type, const char *node_name,
                      const tstr_array *bname_parts, bn_binding **ret_binding)
{
    int err = 0;
    char val[ovd_sysfs_buf_len] = {};
    const char *swid_str = nullptr;
    char *endp = nullptr;
    unsigned long lid = 0;

    bail_null(node_name);
    bail_null(bname_parts);
    bail_null(ret_binding);
    swid_str = tstr_array_get_str_quick(bname_parts, ovd_swid_part);
    bail_null(swid_str);

    err = get_ib_fn(type, val, sizeof(val), swid_str);
    if (err == lc_err_not_found) {
        // No such device in sysfs (yet): the SWID has no LID.
        strlcpy(val, "0x0", sizeof(val));
        err = 0;
    }
    bail_error(err);

    lid = strtoul(val, &endp, 0);
    if (lid > 0xffff) {
        lc_log_basic(LOG_NOTICE, "%s: LID '%s' out of range", func, val);
        lid = 0;
    }
    if (endp != nullptr && *endp != '\0') {
        lc_log_basic(LOG_NOTICE, "%s: Bad LID format %s", func, val);
    }
    err = bn_binding_new_uint16(ret_binding, node_name, ba_value, 0, static_cast<uint16>(lid));
    bail_error(err);

bail:
    return err;
}

}  // namespace

int get_my_lid(const char *node_name, const tstr_array *bname_parts, bn_binding **ret_binding)
{
    return ovd_get_sysfs_lid(__func__, "lid", node_name, bname_parts, ret_binding);
}

int get_sm_lid(const char *node_name, const tstr_array *bname_parts, bn_binding **ret_binding)
{
    return ovd_get_sysfs_lid(__func__, "sm_lid", node_name, bname_parts, ret_binding);
}

int get_my_sm_port_guid(const char *node_name, const tstr_array *bname_parts,
                        bn_binding **ret_binding)
{
    int err = 0;
    char val[ovd_sysfs_buf_len] = {};
    char guid_str[ovd_sysfs_buf_len] = {};
    const char *swid_str = nullptr;
    char *endp = nullptr;
    uint64 guid = 0;

    bail_null(node_name);
    bail_null(bname_parts);
    bail_null(ret_binding);
    swid_str = tstr_array_get_str_quick(bname_parts, ovd_swid_part);
    bail_null(swid_str);

    err = get_ib_fn("guid", val, sizeof(val), swid_str);
    if (err == lc_err_not_found) {
        strlcpy(val, ovd_zero_gid, sizeof(val));
        err = 0;
    }
    bail_error(err);

    if (strlen(val) != ovd_gid_text_len) {
        lc_log_basic(LOG_NOTICE, "%s: Invalid format GUID %s", __func__, val);
        strlcpy(val, ovd_zero_gid, sizeof(val));
    } else if (val[24] != ':' || val[29] != ':' || val[34] != ':') {
        lc_log_basic(LOG_NOTICE, "%s: Unexpected format GUID %s", __func__, val);
        strlcpy(val, ovd_zero_gid, sizeof(val));
    }

    // The lower half of the GID is the port GUID.
    snprintf(guid_str, sizeof(guid_str), "0x%.4s%.4s%.4s%.4s", val + 20, val + 25, val + 30,
             val + 35);
    guid = strtoull(guid_str, &endp, 0);
    if (endp != nullptr && *endp != '\0') {
        lc_log_basic(LOG_NOTICE, "%s: Bad LID format %s", __func__, guid_str);
    }
    err = bn_binding_new_uint64(ret_binding, node_name, ba_value, 0, guid);
    bail_error(err);

bail:
    return err;
}

int get_is_sm_in_fabric(const char *node_name, const tstr_array *bname_parts,
                        bn_binding **ret_binding)
{
    // How long the next query may take.  Grows while the fabric has no master subnet
    // manager, so that a fabric without one is not asked too quickly again and again.
    static int timeout = ovd_sm_timeout_first_ms;
    int err = 0;
    tbool is_switch = false;
    uint8 swid = 0;
    FILE *devnull = nullptr;
    FILE *orig = nullptr;
    int master_up = 0;
    int status = SARC_OK;

    bail_null(bname_parts);
    bail_null(node_name);
    bail_null(ret_binding);

    err = sah_is_switch_system(static_cast<system_type_t>(system_type), &is_switch);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Unsupported system type %s",
                      sah_get_system_type_str(static_cast<system_type_t>(system_type), false));
        err = 0;
        goto bail;
    }
    if (!is_switch) {
        goto bail;
    }

    err = ovd_fabric_swid(bname_parts, &swid);
    bail_error_quiet(err);

    // The MAD layer prints its complaints about an absent subnet manager on stderr; they
    // are no news here.  Only this thread runs, so swapping the stream is safe.
    devnull = fopen("/dev/null", "w");
    if (devnull != nullptr) {
        fflush(stderr);
        orig = stderr;
        stderr = devnull;
    }
    status = sa_is_master_sm_in_swid(swidapi_handles[swid], &master_up, timeout);
    if (devnull != nullptr) {
        fflush(stderr);
        stderr = orig;
    }
    if (status != SARC_OK) {
        lc_log_basic(LOG_WARNING, "%s: sa_is_master_sm_in_fabric() err=%d(%s)", __func__, status,
                     sysapi_err2str(status));
        err = lc_err_generic_error;
        goto bail;
    }

    if (master_up) {
        timeout = ovd_sm_timeout_first_ms;
    } else {
        timeout = timeout * 2 > ovd_sm_timeout_max_ms ? ovd_sm_timeout_max_ms : timeout * 2;
    }
    err = bn_binding_new_tbool(ret_binding, node_name, ba_value, 0, master_up != 0);
    bail_error(err);

bail:
    if (devnull != nullptr) {
        fclose(devnull);
    }
    return err;
}

int get_node_lid_guid_sa_result(uint32 devid, uint8 swid, sa_node_info_t *result)
{
    int err = 0;
    tstr_array *ifindexes = nullptr;
    ifindexInformation *port = nullptr;
    tbool exists = false;
    uint8 ib_port = 0;
    ib_dr_path_t temp_dr_path = {};
    int status = SARC_OK;

    bail_null(result);
    if (!ovd_swid_is_served(swid)) {
        lc_log_basic(LOG_WARNING, "SWID %d is not a valid InfiniBand SWID", swid);
        err = lc_err_invalid_param;
        goto bail;
    }

    // Any port of the device will do: the question is about the node.
    err = tstr_array_new(&ifindexes, nullptr);
    bail_error(err);
    err = get_ports_ifindex_arr(ifindexes);
    bail_error(err);
    for (uint32 i = 0; i < tstr_array_length_quick(ifindexes); ++i) {
        err = checkIfPortExists(tstr_array_get_quick(ifindexes, i), &port, &exists);
        bail_error(err);
        if (exists && port != nullptr && port->devid == devid) {
            ib_port = port->ibport;
            break;
        }
    }
    if (ib_port == 0) {
        lc_log_basic(LOG_WARNING, "Get GUID/LID: No IB port found at device:[%d]", devid);
        err = lc_err_unexpected_arg;
        goto bail;
    }

    exists = false;
    err = getDirectRouteInfoPath(devid, &temp_dr_path, &exists);
    bail_error(err);
    if (!exists) {
        lc_log_basic(LOG_WARNING, "paths for device id:[%u] were not found.\n", devid);
        err = lc_err_not_found;
        goto bail;
    }

    status = sa_get_node_info(swidapi_handles[swid], static_cast<vqd_dev_id_t>(devid),
                              &temp_dr_path, ib_port, result);
    if (status != SARC_OK) {
        lc_log_basic(LOG_WARNING,
                     "%s: Failed to get GUID/LID code:[%s,%d] device id::[%d] ibport:[%d]",
                     __func__, sysapi_err2str(status), status, devid, ib_port);
        err = lc_err_not_found;
        goto bail;
    }

bail:
    tstr_array_free(&ifindexes);
    return err;
}

int get_node_lid_guid(const char *node_name, const tstr_array *bname_parts,
                      bn_binding **ret_binding)
{
    int err = 0;
    uint8 swid = 0;
    uint32 devid = 0;
    const char *devid_str = nullptr;
    const char *leaf = nullptr;
    sa_node_info_t info = {};

    bail_null(bname_parts);
    bail_null(ret_binding);
    bail_null(node_name);

    err = ovd_fabric_swid(bname_parts, &swid);
    bail_error_quiet(err);

    devid_str = tstr_array_get_str_quick(bname_parts, ovd_devid_part);
    bail_null(devid_str);
    err = lc_str_to_uint32(devid_str, &devid);
    if (err != 0) {
        lc_log_source(LOG_WARNING, "Illegal dev ID: %s", devid_str);
        goto bail;
    }

    err = get_node_lid_guid_sa_result(devid, swid, &info);
    bail_error_quiet(err);

    leaf = tstr_array_get_str_quick(bname_parts, tstr_array_length_quick(bname_parts) - 1);
    bail_null(leaf);
    if (strcmp(leaf, "guid") == 0) {
        err = bn_binding_new_uint64(ret_binding, node_name, ba_value, 0, info.node_guid);
        bail_error(err);
    } else if (strcmp(leaf, "lid") == 0) {
        err = bn_binding_new_uint16(ret_binding, node_name, ba_value, 0, info.node_lid);
        bail_error(err);
    } else if (strcmp(leaf, "name") == 0) {
        if (devid < OVD_NUM_DEVICES && devsinfo[devid] != nullptr &&
            devsinfo[devid]->device_name != nullptr) {
            err = bn_binding_new_str(ret_binding, node_name, ba_value, bt_string, 0,
                                     ts_str(devsinfo[devid]->device_name));
            bail_error(err);
        }
    } else {
        lc_log_source(LOG_ERR, "unexpected attribute:[%s]", leaf);
        err = lc_err_unexpected_case;
        goto bail;
    }

bail:
    return err;
}
