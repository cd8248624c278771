// The device table, the SWID contexts and the five port tables: their globals, the copy
// and free functions of the tables, and the walks that list ports.
#include "ovd_ports_cache.h"

#include <cstdlib>

#include "logging.h"

devinfo *devsinfo[OVD_NUM_DEVICES] = {};
swidapi_t *swidapi_handles[OVD_NUM_SWIDS] = {};

ht_table *ibports_ht = nullptr;
ht_table *maxportspeeds_ht = nullptr;
ht_table *ifindex_to_config_ht = nullptr;
ht_table *labelports_to_ekey_ht = nullptr;
ht_table *virtual_ibports_ht = nullptr;

tstring *hostname = nullptr;

// ---------------------------------------------------------------------------------------
// Set and free functions

namespace {

// The common shape of the set functions: copy the tstring key and the record of type T.
// The stored key length is that of the copy, whatever length the caller gave.
template <typename T>
int ovd_tstring_key_record_set(const void *key, int32 key_len, const void *value,
                               void **ret_key, int32 *ret_key_len, void **ret_value)
{
    (void)key_len;
    int err = 0;
    tstring *key_copy = nullptr;
    T *record = nullptr;

    bail_null(key);
    bail_null(value);
    bail_null(ret_key);
    bail_null(ret_key_len);
    bail_null(ret_value);

    err = ts_dup(static_cast<const tstring *>(key), &key_copy);
    bail_error(err);
    bail_null(key_copy);

    record = static_cast<T *>(malloc(sizeof(T)));
    bail_null(record);
    *record = *static_cast<const T *>(value);

    *ret_key = key_copy;
    *ret_key_len = ts_length(key_copy);
    *ret_value = record;
    key_copy = nullptr;
    record = nullptr;

bail:
    ts_free(&key_copy);
    free(record);
    return err;
}

// The common shape of the free functions: free the tstring key and the record.
int ovd_tstring_key_record_free(void **inout_key, void **inout_value)
{
    int err = 0;
    tstring *key = nullptr;

    bail_null(inout_key);
    bail_null(inout_value);

    key = static_cast<tstring *>(*inout_key);
    *inout_key = nullptr;
    err = ts_free(&key);
    free(*inout_value);
    *inout_value = nullptr;
    bail_error(err);

bail:
    return err;
}

}  // namespace

int ht_tstring_ifindex_to_info_set_func(const void *key, int32 key_len, const void *value,
                                        void **ret_key, int32 *ret_key_len, void **ret_value)
{
    return ovd_tstring_key_record_set<ifindexInformation>(key, key_len, value, ret_key,
                                                          ret_key_len, ret_value);
}

int ht_tstring_ifindex_to_info_free_func(void **inout_key, void **inout_value, int32 key_len)
{
    (void)key_len;
    return ovd_tstring_key_record_free(inout_key, inout_value);
}

int ht_tstring_devid_port_key_to_speed_value_set_func(const void *key, int32 key_len,
                                                      const void *value, void **ret_key,
                                                      int32 *ret_key_len, void **ret_value)
{
    return ovd_tstring_key_record_set<uint8>(key, key_len, value, ret_key, ret_key_len,
                                             ret_value);
}

int ht_tstring_devid_port_key_to_speed_value_free_func(void **inout_key, void **inout_value,
                                                       int32 key_len)
{
    (void)key_len;
    return ovd_tstring_key_record_free(inout_key, inout_value);
}

int ht_tstring_ifindex_key_to_config_set_func(const void *key, int32 key_len,
                                              const void *value, void **ret_key,
                                              int32 *ret_key_len, void **ret_value)
{
    return ovd_tstring_key_record_set<port_config_parameters_t>(key, key_len, value, ret_key,
                                                                ret_key_len, ret_value);
}

int ht_tstring_ifindex_key_to_config_free_func(void **inout_key, void **inout_value,
                                               int32 key_len)
{
    (void)key_len;
    return ovd_tstring_key_record_free(inout_key, inout_value);
}

int ht_tstring_label_port_key_to_ekey_value_set_func(const void *key, int32 key_len,
                                                     const void *value, void **ret_key,
                                                     int32 *ret_key_len, void **ret_value)
{
    return ovd_tstring_key_record_set<ekeyInfo>(key, key_len, value, ret_key, ret_key_len,
                                                ret_value);
}

int ht_tstring_label_port_key_to_ekey_value_free_func(void **inout_key, void **inout_value,
                                                      int32 key_len)
{
    (void)key_len;
    return ovd_tstring_key_record_free(inout_key, inout_value);
}

int ht_tstring_ifindex_to_virtual_info_set_func(const void *key, int32 key_len,
                                                const void *value, void **ret_key,
                                                int32 *ret_key_len, void **ret_value)
{
    return ovd_tstring_key_record_set<virtualIfindexInfo>(key, key_len, value, ret_key,
                                                          ret_key_len, ret_value);
}

int ht_tstring_ifindex_to_virtual_info_free_func(void **inout_key, void **inout_value,
                                                 int32 key_len)
{
    (void)key_len;
    return ovd_tstring_key_record_free(inout_key, inout_value);
}

// ---------------------------------------------------------------------------------------
// Making and ending the tables

// Makes one table keyed by tstrings, unless it exists already.
static int ovd_ports_table_new(ht_table **inout_ht, ht_key_value_set_func set_func,
                               ht_key_value_free_func free_func)
{
    int err = 0;
    ht_options opts{};

    bail_null(inout_ht);
    if (*inout_ht != nullptr) {
        goto bail;
    }

    err = ht_default_options(&opts);
    bail_error(err);
    opts.ho_hash_func = ht_hash_tstring_func;
    opts.ho_key_equal_func = ht_key_equal_tstring_func;
    opts.ho_key_value_set_func = set_func;
    opts.ho_key_value_free_func = free_func;
    opts.ho_insert_fails_duplicates = false;

    err = ht_new(inout_ht, &opts);
    bail_error(err);
    bail_null(*inout_ht);

bail:
    return err;
}

int ibPortsCacheInit(void)
{
    int err = 0;

    lc_log_basic(LOG_DEBUG, "%s: <= void", __func__);

    err = ovd_ports_table_new(&ibports_ht, ht_tstring_ifindex_to_info_set_func,
                              ht_tstring_ifindex_to_info_free_func);
    bail_error(err);
    err = ovd_ports_table_new(&maxportspeeds_ht,
                              ht_tstring_devid_port_key_to_speed_value_set_func,
                              ht_tstring_devid_port_key_to_speed_value_free_func);
    bail_error(err);
    err = ovd_ports_table_new(&ifindex_to_config_ht, ht_tstring_ifindex_key_to_config_set_func,
                              ht_tstring_ifindex_key_to_config_free_func);
    bail_error(err);
    err = ovd_ports_table_new(&labelports_to_ekey_ht,
                              ht_tstring_label_port_key_to_ekey_value_set_func,
                              ht_tstring_label_port_key_to_ekey_value_free_func);
    bail_error(err);
    err = ovd_ports_table_new(&virtual_ibports_ht, ht_tstring_ifindex_to_virtual_info_set_func,
                              ht_tstring_ifindex_to_virtual_info_free_func);
    bail_error(err);

bail:
    lc_log_basic(LOG_DEBUG, "%s: => %d", __func__, err);
    return err;
}

int ibPortsCacheDeinit(void)
{
    int err = 0;
    // Runs on the way out, so every step is taken; the first failure is given back.
    ht_table **const tables_before_hostname[] = {&ibports_ht, &maxportspeeds_ht,
                                                 &ifindex_to_config_ht, &virtual_ibports_ht};

    for (ht_table **table : tables_before_hostname) {
        if (*table != nullptr) {
            const int free_err = ht_free(table);
            if (free_err != 0 && err == 0) {
                err = complain_error(free_err);
            }
        }
    }
    if (hostname != nullptr) {
        const int free_err = ts_free(&hostname);
        if (free_err != 0 && err == 0) {
            err = complain_error(free_err);
        }
    }
    if (labelports_to_ekey_ht != nullptr) {
        const int free_err = ht_free(&labelports_to_ekey_ht);
        if (free_err != 0 && err == 0) {
            err = complain_error(free_err);
        }
    }
    return err;
}

// ---------------------------------------------------------------------------------------
// Looking ports up and listing them

int checkIfPortExists(const tstring *ifindex, ifindexInformation **ret_val_from_ib_ports_ht,
                      tbool *exists)
{
    int err = 0;
    void *value = nullptr;

    bail_null(exists);
    *exists = false;
    if (ret_val_from_ib_ports_ht != nullptr) {
        *ret_val_from_ib_ports_ht = nullptr;
    }
    bail_null(ifindex);
    bail_null(ibports_ht);

    err = ht_lookup(ibports_ht, ifindex, ts_length(ifindex), exists, nullptr, nullptr, &value);
    bail_error(err);
    if (ret_val_from_ib_ports_ht != nullptr) {
        *ret_val_from_ib_ports_ht = static_cast<ifindexInformation *>(value);
    }

bail:
    return err;
}

int for_each_ifindex(const ht_table *ht, const void *key, int32 key_len, void *value,
                     void *data)
{
    (void)ht;
    (void)key_len;
    (void)value;
    int err = 0;
    const char *key_str = nullptr;

    bail_null(data);
    key_str = ts_str(static_cast<const tstring *>(key));
    bail_null(key_str);
    err = tstr_array_insert_str_sorted(static_cast<tstr_array *>(data), key_str);
    bail_error(err);

bail:
    return err;
}

int for_each_ifindex_filter_device(const ht_table *ht, const void *key, int32 key_len,
                                   void *value, void *data)
{
    (void)ht;
    (void)key_len;
    int err = 0;
    const ret_device_ifindexs *filter = static_cast<const ret_device_ifindexs *>(data);
    const ifindexInformation *info = static_cast<const ifindexInformation *>(value);
    const char *key_str = nullptr;

    bail_null(filter);
    bail_null(filter->ifindex_arr);
    bail_null(info);
    if (info->devid != filter->dev_id) {
        goto bail;
    }
    key_str = ts_str(static_cast<const tstring *>(key));
    bail_null(key_str);
    err = tstr_array_insert_str_sorted(filter->ifindex_arr, key_str);
    bail_error(err);

bail:
    return err;
}

int get_ports_ifindex_arr(tstr_array *ifindex_arr)
{
    int err = 0;

    bail_null(ifindex_arr);
    bail_null(ibports_ht);
    err = ht_foreach(ibports_ht, for_each_ifindex, ifindex_arr);
    bail_error(err);

bail:
    return err;
}

int get_device_ports_ifindex_arr(ret_device_ifindexs *ret_data)
{
    int err = 0;

    bail_null(ret_data);
    bail_null(ret_data->ifindex_arr);
    bail_null(ibports_ht);
    err = ht_foreach(ibports_ht, for_each_ifindex_filter_device, ret_data);
    bail_error(err);

bail:
    return err;
}

int convert_devid_localport_to_ifindex(uint32 devid, uint8 localport, uint32 *ifindex)
{
    int err = 0;

    bail_null(ifindex);
    *ifindex = (devid << 6) + localport;

bail:
    return err;
}

int port_config_init_values(port_config_parameters_t *port_config)
{
    int err = 0;

    bail_null(port_config);
    port_config->speed = OVD_CONFIG_NOT_SET;
    port_config->width = OVD_CONFIG_NOT_SET;
    port_config->op_vls = OVD_CONFIG_NOT_SET;
    port_config->mtu = OVD_CONFIG_NOT_SET;
    port_config->enable = OVD_CONFIG_NOT_SET;
    port_config->fec = OVD_CONFIG_NOT_SET;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The device table

int ovd_devinfo_new(devinfo **ret_dev)
{
    int err = 0;

    bail_null(ret_dev);
    *ret_dev = static_cast<devinfo *>(calloc(1, sizeof(devinfo)));
    bail_null(*ret_dev);

bail:
    return err;
}

int ovd_devinfo_free(devinfo **inout_dev)
{
    int err = 0;
    devinfo *dev = nullptr;

    bail_null(inout_dev);
    dev = *inout_dev;
    if (dev == nullptr) {
        goto bail;
    }
    *inout_dev = nullptr;
    ts_free(&dev->subsystem_name);
    ts_free(&dev->device_name);
    free(dev);

bail:
    return err;
}

int ovd_devsinfo_check_devid(uint32 devid)
{
    int err = 0;

    if (devid > OVD_MAX_DEVICE_ID) {
        lc_log_source(LOG_ERR, "Got device ID %u which exceeds maximum device ID %u", devid,
                      static_cast<uint32>(OVD_MAX_DEVICE_ID));
        err = lc_err_range;
        goto bail;
    }

bail:
    return err;
}

int ovd_devsinfo_get(uint32 devid, devinfo **ret_dev)
{
    int err = 0;

    bail_null(ret_dev);
    *ret_dev = nullptr;
    err = ovd_devsinfo_check_devid(devid);
    bail_error_quiet(err);
    *ret_dev = devsinfo[devid];

bail:
    return err;
}

int ovd_devsinfo_set_takeover(uint32 devid, devinfo **inout_dev)
{
    int err = 0;

    bail_null(inout_dev);
    bail_null(*inout_dev);
    err = ovd_devsinfo_check_devid(devid);
    bail_error_quiet(err);
    if (devsinfo[devid] != *inout_dev) {
        err = ovd_devinfo_free(&devsinfo[devid]);
        bail_error(err);
    }
    devsinfo[devid] = *inout_dev;
    *inout_dev = nullptr;

bail:
    return err;
}

int ovd_devsinfo_clear(uint32 devid)
{
    int err = 0;

    err = ovd_devsinfo_check_devid(devid);
    bail_error_quiet(err);
    err = ovd_devinfo_free(&devsinfo[devid]);
    bail_error(err);

bail:
    return err;
}

int ovd_devsinfo_free_all(void)
{
    int err = 0;

    for (uint32 devid = 0; devid < OVD_NUM_DEVICES; ++devid) {
        err = ovd_devinfo_free(&devsinfo[devid]);
        bail_error(err);
    }

bail:
    return err;
}

uint8 ovd_config_enable(const char *func, const tstring *ifindex)
{
    tbool found = false;
    void *value = nullptr;

    if (ifindex != nullptr && ifindex_to_config_ht != nullptr &&
        ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &found, nullptr, nullptr,
                  &value) == 0 &&
        found && value != nullptr) {
        return static_cast<const port_config_parameters_t *>(value)->enable;
    }
    if (func != nullptr) {
        lc_log_basic(LOG_WARNING, "%s: ifindex: [%s] supposed to be in configuration DB", func,
                     ts_str_maybe_empty(ifindex));
    }
    return OVD_CONFIG_NOT_SET;
}

tbool ovd_swid_is_served(uint32 swid)
{
    return swid < OVD_NUM_SWIDS && swidapi_handles[swid] != nullptr;
}
