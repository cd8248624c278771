// Speed and VL limits of devices and ports: the enumerator conversion, the device limit,
// the per-port cap table, and the restricted front-panel ports of some systems.
#include <gtest/gtest.h>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "ovd_speed_limits.h"

namespace {

constexpr uint32 kDev = 1;
// A device limit that no restriction uses, so that "kept the device's limit" is visible.
constexpr uint8 kDevLimit = 63;
constexpr uint8 kExt = SYS_PORT_DIRECTION_EXT;
constexpr uint8 kInt = SYS_PORT_DIRECTION_INT;

class SpeedLimits : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        ASSERT_EQ(ibPortsCacheInit(), 0);
        add_device(kDev, kDevLimit);
        g_sys_type = S_ZR4000;
    }
    void TearDown() override
    {
        g_sys_type = 0;
        ts_free(&g_part_number);
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        lc_log_suspend(false);
    }
    static void add_device(uint32 devid, uint8 limit)
    {
        devinfo *dev = nullptr;
        ASSERT_EQ(ovd_devinfo_new(&dev), 0);
        dev->device_max_speed_limit = limit;
        ASSERT_EQ(ovd_devsinfo_set_takeover(devid, &dev), 0);
    }
    static uint8 speed(uint8 direction, uint8 label_port)
    {
        uint8 limit = 0;
        EXPECT_EQ(get_port_max_speed_limit(direction, kDev, label_port, &limit), 0);
        return limit;
    }
    // The VL limit, checked to equal the default VL.
    static uint8 vl(uint8 direction, uint8 label_port)
    {
        uint8 limit = 0;
        uint8 dflt = 0;
        EXPECT_EQ(get_port_vl_limit(direction, kDev, label_port, &limit), 0);
        EXPECT_EQ(get_port_default_vl(direction, kDev, label_port, &dflt), 0);
        EXPECT_EQ(limit, dflt);
        return limit;
    }
    static void set_part_number(const char *part)
    {
        ts_free(&g_part_number);
        ASSERT_EQ(ts_new_str(&g_part_number, part), 0);
    }
};

TEST_F(SpeedLimits, EnumeratorConversionAndDeviceLimit)
{
    EXPECT_EQ(convert_enum_speed_to_prm_format(ib_speed_sdr), 1);
    EXPECT_EQ(convert_enum_speed_to_prm_format(ib_speed_qdr), 7);
    EXPECT_EQ(convert_enum_speed_to_prm_format(ib_speed_fdr14), 31);
    EXPECT_EQ(convert_enum_speed_to_prm_format(6), 127);
    // Past the 8 bits everything is set.
    EXPECT_EQ(convert_enum_speed_to_prm_format(7), 255);
    EXPECT_EQ(convert_enum_speed_to_prm_format(255), 255);

    uint8 limit = 0;
    EXPECT_EQ(calc_device_max_speed_limit(0x3f, 0x3f, &limit), 0);
    EXPECT_EQ(limit, 15);
    EXPECT_EQ(calc_device_max_speed_limit(0, 0, nullptr), lc_err_unexpected_null);

    ASSERT_EQ(get_device_max_speed_limit(kDev, &limit), 0);
    EXPECT_EQ(limit, kDevLimit);
    EXPECT_EQ(get_device_max_speed_limit(217, &limit), lc_err_range);
    EXPECT_EQ(get_device_max_speed_limit(2, &limit), lc_err_unexpected_arg);
    // The port functions pass the id on in 8 bits: device 300 is device 44.
    add_device(44, 3);
    ASSERT_EQ(calc_internal_port_max_speed_limit(300, 1, &limit), 0);
    EXPECT_EQ(limit, 3);
}

TEST_F(SpeedLimits, PortCapTableNarrowsInternalPortsOnly)
{
    tstring *key = nullptr;
    ASSERT_EQ(ovd_max_port_speed_key_new(kDev, 5, &key), 0);
    EXPECT_STREQ(ts_str(key), "1 5");

    ASSERT_EQ(updateMaxPortSpeedsHashTable(key, false, ib_speed_qdr), 0);
    EXPECT_EQ(speed(kInt, 5), 7);
    EXPECT_EQ(speed(kInt, 6), kDevLimit);
    EXPECT_EQ(speed(kExt, 5), kDevLimit);

    // A "removal" replaces the entry.
    ASSERT_EQ(updateMaxPortSpeedsHashTable(key, true, ib_speed_fdr14), 0);
    EXPECT_EQ(maxportspeeds_ht->ht_num_nodes, 1u);
    EXPECT_EQ(speed(kInt, 5), 31);
    // The cap never lifts the device's limit.
    ASSERT_EQ(updateMaxPortSpeedsHashTable(key, true, 7), 0);
    EXPECT_EQ(speed(kInt, 5), kDevLimit);
    ts_free(&key);
}

TEST_F(SpeedLimits, RestrictedFrontPanelPortsBySystemType)
{
    struct Case {
        uint32 sys;
        uint8 label_port;
        uint8 speed;
        uint8 vl;
    };
    const Case cases[] = {
        {S_ZR4048, 1, 8, 1},  {S_ZR4048, 8, 8, 1},   {S_ZR4048, 9, kDevLimit, 8},
        {S_ZR4048, 24, kDevLimit, 8}, {S_ZR4048, 25, 8, 1}, {S_ZR4048, 32, 8, 1},
        {S_ZR4048, 33, kDevLimit, 8}, {S_ZR4030, 6, 15, 1}, {S_ZR4030, 7, kDevLimit, 8},
        {S_ZR4034, 2, 8, 1},  {S_ZR4034, 3, kDevLimit, 8}, {S_ZR4035, 1, 8, 1},
        {S_ZR4035, 2, kDevLimit, 8}, {S_ZR4000, 1, kDevLimit, 8},
    };
    for (const Case &c : cases) {
        g_sys_type = c.sys;
        EXPECT_EQ(speed(kExt, c.label_port), c.speed) << c.sys << " " << +c.label_port;
        EXPECT_EQ(vl(kExt, c.label_port), c.vl) << c.sys << " " << +c.label_port;
        // Internal ports: the speed ignores the restrictions, the VLs don't.
        EXPECT_EQ(speed(kInt, c.label_port), kDevLimit);
        EXPECT_EQ(vl(kInt, c.label_port), c.vl);
    }
}

TEST_F(SpeedLimits, Zr4031GoesByPartNumber)
{
    g_sys_type = S_ZR4031;
    // No management session here: the part number can't be read, and isn't cached.
    uint8 value = 0;
    EXPECT_NE(get_port_max_speed_limit(kExt, kDev, 40, &value), 0);
    EXPECT_NE(get_port_vl_limit(kInt, kDev, 40, &value), 0);
    EXPECT_EQ(g_part_number, nullptr);
    EXPECT_EQ(speed(kInt, 40), kDevLimit);

    set_part_number("ZR7312F-2KQT_WT");
    EXPECT_EQ(speed(kExt, 4), 8);
    EXPECT_EQ(speed(kExt, 5), kDevLimit);
    EXPECT_EQ(vl(kExt, 5), 1);
    EXPECT_EQ(vl(kInt, 40), 1);
    set_part_number("ZR7312F-1KQT_WT");
    EXPECT_EQ(speed(kExt, 1), 8);
    set_part_number("ZR7312F-3KQT_WT");
    EXPECT_EQ(speed(kExt, 1), kDevLimit);
    EXPECT_EQ(vl(kExt, 1), 8);
}

TEST_F(SpeedLimits, ProducersAnswerOneUint8AndIgnoreThePortsDirection)
{
    g_sys_type = S_ZR4048;
    ifindexInformation port{};
    port.devid = kDev;
    port.label_port = 25;
    port.port_direction = SYS_PORT_DIRECTION_INT;

    struct Case {
        int (*producer)(const char *, const tstr_array *, bn_binding **, ifindexInformation *);
        uint8 expected;
    };
    const Case cases[] = {
        {get_max_external_port_limit_info, 8},    {get_max_internal_port_limit_info, kDevLimit},
        {get_max_external_port_vl_limit_info, 1}, {get_max_internal_port_vl_limit_info, 1},
        {get_port_vl_default_info, 1},
    };
    for (const Case &c : cases) {
        bn_binding *binding = nullptr;
        ASSERT_EQ(c.producer("/ib/state/x/1601/limit", nullptr, &binding, &port), 0);
        bn_type type = bt_NONE;
        ASSERT_EQ(bn_binding_get_type(binding, ba_value, &type, nullptr), 0);
        EXPECT_EQ(type, bt_uint8);
        uint8 value = 0;
        ASSERT_EQ(bn_binding_get_uint8(binding, ba_value, nullptr, &value), 0);
        EXPECT_EQ(value, c.expected);
        EXPECT_STREQ(ts_str(bn_binding_get_name_quick(binding)), "/ib/state/x/1601/limit");
        bn_binding_free(&binding);
        EXPECT_EQ(c.producer("/n", nullptr, &binding, nullptr), lc_err_unexpected_null);
        EXPECT_EQ(binding, nullptr);
    }

    // A port of a device that isn't there gives no answer.
    port.devid = 5;
    bn_binding *binding = nullptr;
    EXPECT_EQ(get_max_external_port_limit_info("/n", nullptr, &binding, &port),
              lc_err_unexpected_arg);
    EXPECT_EQ(binding, nullptr);
}

} // namespace
