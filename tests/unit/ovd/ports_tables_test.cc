// The device table and the port tables: lifetime, ownership of entries, port lookups and
// the sorted walks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "logging.h"
#include "ovd_ports_cache.h"

namespace {

tstring *make_key(uint32 n)
{
    tstring *key = nullptr;
    EXPECT_EQ(ts_new_sprintf(&key, "%u", n), 0);
    return key;
}

std::vector<std::string> as_vector(const tstr_array *arr)
{
    std::vector<std::string> out;
    for (uint32 i = 0; i < tstr_array_length_quick(arr); ++i) {
        out.emplace_back(tstr_array_get_str_quick(arr, i));
    }
    return out;
}

class PortsTables : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        ASSERT_EQ(ibPortsCacheInit(), 0);
    }
    void TearDown() override
    {
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        lc_log_suspend(false);
    }

    // Enters a port of a device, the way the device flows do: a stack record and a key
    // that the caller frees.
    void add_port(uint32 devid, uint8 localport, uint8 swid = 0)
    {
        uint32 ifindex = 0;
        ASSERT_EQ(convert_devid_localport_to_ifindex(devid, localport, &ifindex), 0);
        ifindexInformation info{};
        info.devid = devid;
        info.localport = localport;
        info.label_port = localport;
        info.assigned_to_swid = swid;
        tstring *key = make_key(ifindex);
        ASSERT_EQ(ht_insert(ibports_ht, key, ts_length(key), &info), 0);
        ts_free(&key);
    }
};

TEST_F(PortsTables, InitMakesFiveReplacingTablesAndDeinitIsRepeatable)
{
    for (ht_table *ht : {ibports_ht, maxportspeeds_ht, ifindex_to_config_ht,
                         labelports_to_ekey_ht, virtual_ibports_ht}) {
        ASSERT_NE(ht, nullptr);
        EXPECT_FALSE(ht->ht_insert_fails_duplicates);
        EXPECT_EQ(ht->ht_hash_func, ht_hash_tstring_func);
        EXPECT_EQ(ht->ht_key_equal_func, ht_key_equal_tstring_func);
        EXPECT_NE(ht->ht_key_value_set_func, nullptr);
        EXPECT_NE(ht->ht_key_value_free_func, nullptr);
    }
    add_port(1, 1);
    ASSERT_EQ(ts_new_str(&hostname, "switch-1"), 0);

    // A second init keeps what is there.
    ht_table *before = ibports_ht;
    ASSERT_EQ(ibPortsCacheInit(), 0);
    EXPECT_EQ(ibports_ht, before);
    EXPECT_EQ(ibports_ht->ht_num_nodes, 1u);

    ASSERT_EQ(ibPortsCacheDeinit(), 0);
    EXPECT_EQ(ibports_ht, nullptr);
    EXPECT_EQ(maxportspeeds_ht, nullptr);
    EXPECT_EQ(ifindex_to_config_ht, nullptr);
    EXPECT_EQ(labelports_to_ekey_ht, nullptr);
    EXPECT_EQ(virtual_ibports_ht, nullptr);
    EXPECT_EQ(hostname, nullptr);
    EXPECT_EQ(ibPortsCacheDeinit(), 0);  // everything gone: nothing to do

    // Without tables the lookups fail cleanly.
    tbool exists = true;
    tstring *key = make_key(65);
    EXPECT_EQ(checkIfPortExists(key, nullptr, &exists), lc_err_unexpected_null);
    EXPECT_FALSE(exists);
    ts_free(&key);
}

TEST_F(PortsTables, ReinsertedPortFreesTheOldRecordAndStartsFresh)
{
    ifindexInformation info{};
    info.devid = 3;
    info.localport = 5;
    info.configured_state = true;
    info.enable_port_time = 123456;
    tstring *key = make_key(3 * 64 + 5);
    ASSERT_EQ(ht_insert(ibports_ht, key, ts_length(key), &info), 0);

    // The table keeps its own copies: the caller's record and key stay the caller's.
    ts_free(&key);
    key = make_key(3 * 64 + 5);
    info.configured_state = false;
    info.enable_port_time = 0;
    ifindexInformation *stored = nullptr;
    tbool exists = false;
    ASSERT_EQ(checkIfPortExists(key, &stored, &exists), 0);
    ASSERT_TRUE(exists);
    EXPECT_NE(stored, &info);
    EXPECT_TRUE(stored->configured_state);
    EXPECT_EQ(stored->enable_port_time, 123456);

    // The same device added again: the old entry goes, the new values are stored.
    ASSERT_EQ(ht_insert(ibports_ht, key, ts_length(key), &info), 0);
    EXPECT_EQ(ibports_ht->ht_num_nodes, 1u);
    ASSERT_EQ(checkIfPortExists(key, &stored, &exists), 0);
    EXPECT_FALSE(stored->configured_state);
    EXPECT_EQ(stored->enable_port_time, 0);
    ts_free(&key);
}

TEST_F(PortsTables, LookupGivesTheStoredRecordToChangeInPlace)
{
    add_port(2, 7);
    tstring *key = make_key(2 * 64 + 7);
    ifindexInformation *port = nullptr;
    tbool exists = false;
    ASSERT_EQ(checkIfPortExists(key, &port, &exists), 0);
    ASSERT_TRUE(exists);
    port->active_speed = 8;

    ifindexInformation *again = nullptr;
    ASSERT_EQ(checkIfPortExists(key, &again, &exists), 0);
    EXPECT_EQ(again, port);
    EXPECT_EQ(again->active_speed, 8);
    ts_free(&key);

    // An unknown port is no error.
    tstring *unknown = make_key(9999);
    exists = true;
    ASSERT_EQ(checkIfPortExists(unknown, &port, &exists), 0);
    EXPECT_FALSE(exists);
    EXPECT_EQ(port, nullptr);
    EXPECT_EQ(checkIfPortExists(unknown, &port, nullptr), lc_err_unexpected_null);
    ts_free(&unknown);
}

TEST_F(PortsTables, WalksAreSortedAsText)
{
    add_port(1, 1);   // 65
    add_port(16, 0);  // 1024
    add_port(0, 7);   // 7
    add_port(2, 2);   // 130
    add_port(16, 5);  // 1029

    tstr_array *all = nullptr;
    ASSERT_EQ(tstr_array_new(&all, nullptr), 0);
    ASSERT_EQ(get_ports_ifindex_arr(all), 0);
    EXPECT_EQ(as_vector(all),
              (std::vector<std::string>{"1024", "1029", "130", "65", "7"}));
    tstr_array_free(&all);

    ret_device_ifindexs dev{};
    ASSERT_EQ(tstr_array_new(&dev.ifindex_arr, nullptr), 0);
    dev.dev_id = 16;
    ASSERT_EQ(get_device_ports_ifindex_arr(&dev), 0);
    EXPECT_EQ(as_vector(dev.ifindex_arr), (std::vector<std::string>{"1024", "1029"}));
    tstr_array_free(&dev.ifindex_arr);

    // A device without ports gives an empty list.
    ASSERT_EQ(tstr_array_new(&dev.ifindex_arr, nullptr), 0);
    dev.dev_id = 5;
    ASSERT_EQ(get_device_ports_ifindex_arr(&dev), 0);
    EXPECT_EQ(tstr_array_length_quick(dev.ifindex_arr), 0u);
    tstr_array_free(&dev.ifindex_arr);

    EXPECT_EQ(get_device_ports_ifindex_arr(&dev), lc_err_unexpected_null);
    EXPECT_EQ(get_device_ports_ifindex_arr(nullptr), lc_err_unexpected_null);
    EXPECT_EQ(get_ports_ifindex_arr(nullptr), lc_err_unexpected_null);
}

TEST_F(PortsTables, OtherTablesCopyTheirRecords)
{
    tstring *speed_key = nullptr;
    ASSERT_EQ(ts_new_sprintf(&speed_key, "%u", 3u), 0);
    ASSERT_EQ(ts_append_str(speed_key, " "), 0);
    ASSERT_EQ(ts_append_sprintf(speed_key, "%u", 17u), 0);
    uint8 speed = 4;
    ASSERT_EQ(ht_insert(maxportspeeds_ht, speed_key, ts_length(speed_key), &speed), 0);
    speed = 0;
    void *got = nullptr;
    tbool found = false;
    ASSERT_EQ(ht_lookup(maxportspeeds_ht, speed_key, ts_length(speed_key), &found, nullptr,
                        nullptr, &got),
              0);
    ASSERT_TRUE(found);
    EXPECT_EQ(*static_cast<uint8 *>(got), 4);
    ts_free(&speed_key);

    virtualIfindexInfo vinfo{};
    vinfo.devid = 9;
    vinfo.localport = 65;
    vinfo.ifindex = static_cast<uint8>(9 * 64 + 65);
    memset(vinfo.assigned_to_swid, OVD_NO_SWID, sizeof(vinfo.assigned_to_swid));
    vinfo.assigned_to_swid[6] = 6;
    tstring *vkey = make_key(9 * 64 + 65);
    ASSERT_EQ(ht_insert(virtual_ibports_ht, vkey, ts_length(vkey), &vinfo), 0);
    ASSERT_EQ(ht_lookup(virtual_ibports_ht, vkey, ts_length(vkey), &found, nullptr, nullptr,
                        &got),
              0);
    const auto *vstored = static_cast<const virtualIfindexInfo *>(got);
    EXPECT_EQ(vstored->ifindex, static_cast<uint8>(641));
    EXPECT_EQ(vstored->assigned_to_swid[6], 6);
    EXPECT_EQ(vstored->assigned_to_swid[7], OVD_NO_SWID);
    ts_free(&vkey);

    // Not set is 255 in every field, the 16-bit mtu included.
    port_config_parameters_t config{};
    ASSERT_EQ(port_config_init_values(&config), 0);
    EXPECT_EQ(config.mtu, 255);

    // The set functions refuse null pointers.
    void *k = nullptr;
    int32 len = 0;
    void *v = nullptr;
    EXPECT_EQ(ht_tstring_ifindex_key_to_config_set_func(nullptr, 0, &config, &k, &len, &v),
              lc_err_unexpected_null);
    EXPECT_EQ(k, nullptr);
}

TEST(PortsIfindex, DeviceAndLocalPortMakeTheIfindex)
{
    uint32 ifindex = 0;
    ASSERT_EQ(convert_devid_localport_to_ifindex(0, 1, &ifindex), 0);
    EXPECT_EQ(ifindex, 1u);
    ASSERT_EQ(convert_devid_localport_to_ifindex(1, 1, &ifindex), 0);
    EXPECT_EQ(ifindex, 65u);
    ASSERT_EQ(convert_devid_localport_to_ifindex(216, 64, &ifindex), 0);
    EXPECT_EQ(ifindex, 13888u);
    EXPECT_EQ(convert_devid_localport_to_ifindex(1, 1, nullptr), lc_err_unexpected_null);
}

class Devices : public ::testing::Test {
protected:
    void SetUp() override { lc_log_suspend(true); }
    void TearDown() override
    {
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        lc_log_suspend(false);
    }
    static devinfo *named_device(const char *name)
    {
        devinfo *dev = nullptr;
        EXPECT_EQ(ovd_devinfo_new(&dev), 0);
        EXPECT_EQ(ts_new_str(&dev->device_name, name), 0);
        EXPECT_EQ(ts_new_str(&dev->subsystem_name, name), 0);
        return dev;
    }
};

TEST_F(Devices, LastDeviceIdAcceptedNextRefused)
{
    devinfo *dev = named_device("last");
    ASSERT_EQ(ovd_devsinfo_set_takeover(OVD_MAX_DEVICE_ID, &dev), 0);
    EXPECT_EQ(dev, nullptr);
    devinfo *got = nullptr;
    ASSERT_EQ(ovd_devsinfo_get(216, &got), 0);
    ASSERT_NE(got, nullptr);
    EXPECT_TRUE(ts_equal_str(got->device_name, "last", false));

    dev = named_device("beyond");
    EXPECT_EQ(ovd_devsinfo_set_takeover(217, &dev), lc_err_range);
    ASSERT_NE(dev, nullptr);  // refused: still the caller's
    EXPECT_EQ(ovd_devinfo_free(&dev), 0);
    EXPECT_EQ(dev, nullptr);
    EXPECT_EQ(ovd_devsinfo_get(217, &got), lc_err_range);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(ovd_devsinfo_clear(217), lc_err_range);
    EXPECT_EQ(ovd_devsinfo_check_devid(216), 0);
}

TEST_F(Devices, AddingAgainReplacesAndFreesTheOldRecord)
{
    devinfo *first = named_device("first");
    ASSERT_EQ(ovd_devsinfo_set_takeover(4, &first), 0);
    devinfo *second = named_device("second");
    ASSERT_EQ(ovd_devsinfo_set_takeover(4, &second), 0);
    EXPECT_TRUE(ts_equal_str(devsinfo[4]->device_name, "second", false));

    ASSERT_EQ(ovd_devsinfo_clear(4), 0);
    EXPECT_EQ(devsinfo[4], nullptr);
    devinfo sentinel{};
    devinfo *got = &sentinel;
    ASSERT_EQ(ovd_devsinfo_get(4, &got), 0);
    EXPECT_EQ(got, nullptr);

    for (uint32 id : {0u, 100u, 216u}) {
        devinfo *dev = named_device("x");
        ASSERT_EQ(ovd_devsinfo_set_takeover(id, &dev), 0);
    }
    ASSERT_EQ(ovd_devsinfo_free_all(), 0);
    for (devinfo *slot : devsinfo) {
        EXPECT_EQ(slot, nullptr);
    }
}

}  // namespace
