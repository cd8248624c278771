// Port attribute answers: the one value a request names, rendered from the port's
// structures into its binding, and the compound strings.
#include <gtest/gtest.h>

#include <string>

#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_main.h"
#include "ovd_port_answers.h"
#include "ovd_ports_cache.h"
#include "tstr_array.h"

namespace {

constexpr uint32 kDev = 3;

class PortAnswers : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        ASSERT_EQ(ibPortsCacheInit(), 0);
        devinfo *dev = nullptr;
        ASSERT_EQ(ovd_devinfo_new(&dev), 0);
        dev->slot_id = 1;
        dev->index_inside_slot = 1;
        dev->device_max_speed_limit = 0x1f;
        ASSERT_EQ(ts_new_str(&dev->device_name, "VQ_SW36"), 0);
        ASSERT_EQ(ovd_devsinfo_set_takeover(kDev, &dev), 0);
        system_type = S_ZR4036;
        g_sys_type = S_ZR4036;

        port_.devid = kDev;
        port_.localport = 7;
        port_.label_port = 5;
        port_.port_direction = SYS_PORT_DIRECTION_EXT;
        result_.port_logical_state = 4;  // Active
        result_.port_phy_state = 5;      // LinkUp
        ptys_.ib_proto_oper = 0x040020;  // 4X EDR
        ptys_.ib_proto_capability = 0x05003f;
        pmtu_.oper_mtu = 4096;
        pmtu_.max_mtu = 4096;
        pvlc_.vl_cap = 8;
        pvlc_.vl_operational = 4;
        pplm_.fec_mode_active = 4;
        pc_.xmit_data_bytes = 4000;
        pc_.rcv_data_bytes = 8000;
        pc_.xmit_pkts = 10;
        pc_.rcv_pkts = 20;
        pc_.xmit_wait = 3;
        pc_.symbol_err_cnt = 1;
        pc_.rcv_err = 2;
        pc_.vl15_dropped = 4;
        pc_.xmit_discards = 5;
        ext_.xmit_data_bytes = 1ull << 40;
        ext_.rcv_data_bytes = 1ull << 41;
        ext_.xmit_pkts = 1ull << 33;
        ext_.rcv_pkts = 1ull << 34;
    }

    void TearDown() override
    {
        system_type = 0;
        g_sys_type = 0;
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        lc_log_suspend(false);
    }

    // The answer of an external port, as "TYPE VALUE"; "" for none.
    std::string answer(const char *attrib, tbool use_ext = false, int *ret_err = nullptr,
                       tbool internal = false)
    {
        int arg = -1;
        if (port_attrib_str_to_enum(attrib, &arg) != 0) {
            arg = attrib[0] == '#' ? atoi(attrib + 1) : -1;
        }
        bn_binding *b = nullptr;
        tstring *key = nullptr;
        EXPECT_EQ(ts_new_str(&key, "197"), 0);
        const int err = get_port_info("/ib/state/externalports/197/x", &b, arg, 1, 1, &result_,
                                      &port_, nullptr, attrib, internal, internal ? nullptr : &ext_,
                                      internal ? nullptr : &pc_, use_ext, &pmtu_, &ptys_, &pvlc_,
                                      internal ? nullptr : &pplm_, key);
        ts_free(&key);
        if (ret_err != nullptr) {
            *ret_err = err;
        } else {
            EXPECT_EQ(err, 0) << attrib;
        }
        if (b == nullptr) {
            return "";
        }
        bn_type type = bt_NONE;
        EXPECT_EQ(bn_binding_get_type(b, ba_value, &type, nullptr), 0);
        tstring *text = nullptr;
        EXPECT_EQ(bn_binding_get_tstr(b, ba_value, bt_NONE, nullptr, &text), 0);
        std::string out = std::string(lc_enum_to_string_quiet(bn_type_map, type)) + " " +
                          ts_str_maybe_empty(text);
        ts_free(&text);
        bn_binding_free(&b);
        return out;
    }

    ifindexInformation port_{};
    sa_port_speed_state_t result_{};
    ptys_reg_t ptys_{};
    pmtu_reg_t pmtu_{};
    pvlc_reg_t pvlc_{};
    pplm_reg_t pplm_{};
    sa_port_counters_t pc_{};
    sa_ext_port_counters_t ext_{};
};

TEST_F(PortAnswers, NamesMapToTheirCodes)
{
    int arg = -7;
    EXPECT_EQ(port_attrib_str_to_enum("has_error", &arg), 0);
    EXPECT_EQ(arg, 15);
    EXPECT_EQ(port_attrib_str_to_enum("xmit_discards", &arg), 0);
    EXPECT_EQ(arg, 109);
    arg = -7;
    EXPECT_EQ(port_attrib_str_to_enum("State", &arg), 1);
    EXPECT_EQ(port_attrib_str_to_enum("", &arg), 1);
    EXPECT_EQ(arg, -7);
}

TEST_F(PortAnswers, SingleValuesRenderFromTheirRegisters)
{
    EXPECT_EQ("string Active", answer("state"));
    EXPECT_EQ("string LinkUp", answer("physical_state"));
    EXPECT_EQ("string edr", answer("speed"));
    EXPECT_EQ("string 4X", answer("width"));
    EXPECT_EQ("string 1X, 4X", answer("supported_width"));
    EXPECT_EQ("string 4096", answer("mtu"));
    EXPECT_EQ("string 100.0 Gbps", answer("rate"));
    EXPECT_EQ("string VL0 - VL7", answer("vl_capabilities"));
    EXPECT_EQ("string Standard RS FEC", answer("fec"));
    result_.port_phy_state = 2;
    EXPECT_EQ("string Link Down", answer("fec"));
    // The hardware's state in one word: physical, logical, and 1 for an external port.
    EXPECT_EQ("uint32 " + std::to_string(2 << 16 | 4 << 8 | 1), answer("all-state"));
    EXPECT_EQ("uint32 0", answer("connected_device_slot"));
    EXPECT_EQ("uint8 0", answer("connected_device_port"));
}

TEST_F(PortAnswers, SupportedSpeedIsWhatTheUserAllowed)
{
    // No configuration: the port's limit (the device's).
    EXPECT_EQ("string sdr, ddr, qdr, fdr10, fdr", answer("supported_speed"));
    port_config_parameters_t config{};
    ASSERT_EQ(port_config_init_values(&config), 0);
    tstring *key = nullptr;
    ASSERT_EQ(ts_new_str(&key, "197"), 0);
    ASSERT_EQ(ht_insert(ifindex_to_config_ht, key, ts_length(key), &config), 0);
    EXPECT_EQ("string sdr, ddr, qdr, fdr10, fdr", answer("supported_speed")) << "255 is not set";
    config.speed = 7;
    ASSERT_EQ(ht_insert(ifindex_to_config_ht, key, ts_length(key), &config), 0);
    ts_free(&key);
    EXPECT_EQ("string sdr, ddr, qdr", answer("supported_speed"));
}

TEST_F(PortAnswers, CountersComeWidenedOrExtended)
{
    EXPECT_EQ("uint64 4000", answer("xmit_data"));
    EXPECT_EQ("uint64 " + std::to_string(1ull << 40), answer("xmit_data", true));
    EXPECT_EQ("uint64 " + std::to_string(1ull << 34), answer("rcv_pkts", true));
    // The error counters are the regular ones either way.
    EXPECT_EQ("uint64 5", answer("xmit_discards", true));
    EXPECT_EQ("uint64 3", answer("xmit_wait"));
}

TEST_F(PortAnswers, CompoundStringsInBothCounterForms)
{
    EXPECT_EQ("string mtu:4096;subsystem_name:VQ_SW36;port:5;state:Active;width:4X;rcv_pkts:20;"
              "rcv_data:8000;xmit_pkts:10;xmit_data:4000;vl15_dropped:4;rcv_err:2;"
              "xmit_discards:5;rate:100.0 Gbps;symbol_err_cnt:1;xmit_wait:3;physical_state:LinkUp;"
              "if_name:IB1/5;node_guid:0;node_lid:0",
              answer("all_data"));
    EXPECT_EQ("string mtu:4096;subsystem_name:VQ_SW36;port:5;state:Active;width:4X;rcv_pkts:" +
                  std::to_string(1ull << 34) + ";rcv_data:" + std::to_string(1ull << 41) +
                  ";xmit_pkts:" + std::to_string(1ull << 33) + ";xmit_data:" +
                  std::to_string(1ull << 40) +
                  ";vl15_dropped:4;rcv_err:2;xmit_discards:5;rate:100.0 Gbps;symbol_err_cnt:1;"
                  "xmit_wait:3;physical_state:LinkUp;if_name:IB1/5;node_guid:0;node_lid:0",
              answer("all_data", true));
    EXPECT_EQ("string rcv_pkts:7:20;rcv_data:7:8000;xmit_pkts:7:10;xmit_data:7:4000;"
              "vl15_dropped:5:4;rcv_err:5:2;xmit_discards:5:5;symbol_err_cnt:5:1;xmit_wait:5:3",
              answer("all_counters"));

    // On a modular system the name carries the index in the slot.
    system_type = S_ZR4000;
    EXPECT_NE(answer("all_data").find(";if_name:IB1/1/5;"), std::string::npos);
}

TEST_F(PortAnswers, InternalPortsAndUnknownCodes)
{
    int err = 0;
    // An internal port has neither counters nor PPLM.
    for (const char *name : {"xmit_data", "all_data", "all_counters"}) {
        EXPECT_EQ("", answer(name, false, &err, true)) << name;
        EXPECT_EQ(err, lc_err_unexpected_null) << name;
    }
    EXPECT_EQ("", answer("fec", false, &err, true));
    EXPECT_EQ(err, lc_err_unexpected_null);
    EXPECT_EQ("string 0", answer("has_error", false, nullptr, true));
    EXPECT_EQ("string 1", answer("connected_device_active", false, nullptr, true));
    // Code 14 and codes beyond the table answer nothing, and that is no error.
    EXPECT_EQ("", answer("#14"));
    EXPECT_EQ("", answer("#110"));
}

TEST_F(PortAnswers, DefaultValuesByName)
{
    const auto value = [](const char *name) {
        tstr_array *parts = nullptr;
        EXPECT_EQ(tstr_array_new(&parts, nullptr), 0);
        EXPECT_EQ(tstr_array_append_str(parts, name), 0);
        bn_binding *b = nullptr;
        EXPECT_EQ(ret_default_values_ports(name, parts, &b), 0);
        tstr_array_free(&parts);
        std::string out;
        if (b != nullptr) {
            tstring *text = nullptr;
            EXPECT_EQ(bn_binding_get_tstr(b, ba_value, bt_NONE, nullptr, &text), 0);
            out = ts_str_maybe_empty(text);
            ts_free(&text);
            bn_binding_free(&b);
        }
        return out;
    };
    EXPECT_EQ("Active", value("state"));
    EXPECT_EQ("12X", value("width"));
    EXPECT_EQ("10", value("fec"));
    EXPECT_EQ("255", value("rcv_err"));
    EXPECT_EQ("255", value("all-state"));
    EXPECT_EQ("2", value("connected_device_port"));
    EXPECT_EQ("", value("bogus"));
}

}  // namespace
