// Port value texts: PortInfo decoding, register-mask decoding, rates and FEC.
#include <gtest/gtest.h>

#include <string>

#include "ovd_port_values.h"
// The register layer names the same speed bits as an enumeration; both must live together.
#include "sa_registers.h"

namespace {

using conv_fn = int (*)(tstring **, uint8);

// Runs a one-value conversion and gives its text; fails the test on an error.
std::string text_of(conv_fn fn, uint8 value)
{
    tstring *ts = nullptr;
    int err = fn(&ts, value);
    EXPECT_EQ(err, 0);
    std::string out = ts ? ts_str(ts) : "<null>";
    ts_free(&ts);
    return out;
}

std::string speed_text(uint8 speed)
{
    return text_of(sa_port_prm_link_speed_to_tstr, speed);
}

std::string prm_rate(uint8 speed, uint8 width)
{
    tstring *ts = nullptr;
    EXPECT_EQ(sa_port_prm_rate_to_tstr(&ts, speed, width), 0);
    std::string out = ts ? ts_str(ts) : "<null>";
    ts_free(&ts);
    return out;
}

std::string pi_rate(uint8 speed, uint8 width)
{
    tstring *ts = nullptr;
    EXPECT_EQ(sa_port_rate_to_tstr(&ts, speed, width), 0);
    std::string out = ts ? ts_str(ts) : "<null>";
    ts_free(&ts);
    return out;
}

std::string fec_text(uint32 mode)
{
    tstring *ts = nullptr;
    EXPECT_EQ(sa_port_prm_fec_to_tstr(&ts, mode), 0);
    std::string out = ts ? ts_str(ts) : "<null>";
    ts_free(&ts);
    return out;
}

// ---------------------------------------------------------------------------------------

TEST(PortValueTables, SpeedRowsMatchTheRegisterBits)
{
    EXPECT_EQ(all_speeds_map[0].mask, static_cast<uint8>(sdr));
    EXPECT_EQ(all_speeds_map[1].mask, static_cast<uint8>(ddr));
    EXPECT_EQ(all_speeds_map[2].mask, static_cast<uint8>(qdr));
    EXPECT_EQ(all_speeds_map[3].mask, static_cast<uint8>(fdr10));
    EXPECT_EQ(all_speeds_map[4].mask, static_cast<uint8>(fdr));
    EXPECT_EQ(all_speeds_map[5].mask, static_cast<uint8>(edr));
    EXPECT_STREQ(all_speeds_map[4].name, "fdr");
    EXPECT_EQ(all_speeds_map[4].value, 14.0f);
    EXPECT_STREQ(all_speeds_map[5].description, "100.0 Gbps rate on 4 lane width");
    EXPECT_STREQ(all_widths_map[1].name, "4X");
    EXPECT_EQ(all_widths_map[1].mask, 4);
}

TEST(PortStates, LogicalStateDefaultsToInternal)
{
    EXPECT_STREQ(get_port_logical_state(0), "No State Change (Set only)");
    EXPECT_STREQ(get_port_logical_state(1), "Down");
    EXPECT_STREQ(get_port_logical_state(4), "Active");
    EXPECT_STREQ(get_port_logical_state(5), "internal");
    EXPECT_STREQ(get_port_logical_state(255), "internal");
    EXPECT_EQ(text_of(sa_port_port_logical_state_to_tstr, 3), "Armed");
    EXPECT_EQ(text_of(sa_port_port_logical_state_to_tstr, 5), "internal");
}

TEST(PortStates, PhysicalStateIncludesChassisManagerState)
{
    EXPECT_STREQ(get_port_phy_state(4), "PortConfigurationTraining");
    EXPECT_STREQ(get_port_phy_state(5), "LinkUp");
    EXPECT_STREQ(get_port_phy_state(7), "Phy Test");
    EXPECT_STREQ(get_port_phy_state(8), "Disabled By Chassis Manager");
    EXPECT_STREQ(get_port_phy_state(9), "internal");
    EXPECT_EQ(text_of(sa_port_port_phy_state_to_tstr, 6), "LinkErrorRecovery");
    EXPECT_EQ(text_of(sa_port_port_phy_state_to_tstr, 200), "internal");
}

TEST(PortInfoValues, SpeedsAndWidthsCompareTheWholeValue)
{
    EXPECT_EQ(text_of(sa_port_link_speed_active_to_tstr, 4), "10.0 Gbps");
    EXPECT_EQ(text_of(sa_port_link_speed_active_to_tstr, 3), "-");
    EXPECT_EQ(text_of(sa_port_link_width_active_to_tstr, 2), "4X");
    EXPECT_EQ(text_of(sa_port_link_width_active_to_tstr, 8), "12X");
    EXPECT_EQ(text_of(sa_port_link_width_active_to_tstr, 3), "-");
    EXPECT_EQ(text_of(sa_port_link_speed_supported_to_tstr, 5), "2.5 / 10.0 Gbps");
    EXPECT_EQ(text_of(sa_port_link_speed_supported_to_tstr, 7), "2.5 / 5.0 / 10.0 Gbps");
    EXPECT_EQ(text_of(sa_port_link_speed_supported_to_tstr, 2), "-");
    EXPECT_EQ(text_of(sa_port_link_width_supported_to_tstr, 11), "1X, 4X, 12X");
    EXPECT_EQ(text_of(sa_port_link_width_supported_to_tstr, 15), "1X, 4X, 8X, 12X");
    EXPECT_EQ(text_of(sa_port_link_width_supported_to_tstr, 2), "-");
}

TEST(PortInfoValues, MtuTablesAgree)
{
    for (conv_fn fn : {sa_port_neighbor_mtu_to_tstr, sa_port_mtu_cap_to_tstr}) {
        EXPECT_EQ(text_of(fn, 0), "-");
        EXPECT_EQ(text_of(fn, 1), "256");
        EXPECT_EQ(text_of(fn, 5), "4096");
        EXPECT_EQ(text_of(fn, 7), "10240");
        EXPECT_EQ(text_of(fn, 8), "-");
    }
}

TEST(PortInfoValues, VlCodingsDifferFromRegister)
{
    EXPECT_EQ(text_of(sa_port_vl_cap_to_tstr, 0), "-");
    EXPECT_EQ(text_of(sa_port_vl_cap_to_tstr, 3), "VL0 - VL3");
    EXPECT_EQ(text_of(sa_port_vl_cap_to_tstr, 5), "VL0 - VL14");
    EXPECT_EQ(text_of(sa_port_vl_cap_to_tstr, 6), "-");
    EXPECT_EQ(text_of(sa_port_oper_vl_to_tstr, 0), "No State Change (Set only)");
    EXPECT_EQ(text_of(sa_port_oper_vl_to_tstr, 4), "VL0 - VL7");
    EXPECT_EQ(text_of(sa_port_oper_vl_to_tstr, 6), "-");
    // The register counts VLs.
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 3), "VL0 - VL2");
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 8), "VL0 - VL7");
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 15), "VL0 - VL14");
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 0), "-");
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 9), "-");
    EXPECT_EQ(text_of(sa_port_prm_vl_to_tstr, 14), "-");
}

TEST(PortInfoValues, RateTableAndUnknownCombinations)
{
    EXPECT_EQ(pi_rate(1, 1), "2.5 Gbps");
    EXPECT_EQ(pi_rate(2, 4), "40.0 Gbps");
    EXPECT_EQ(pi_rate(4, 2), "40.0 Gbps");
    EXPECT_EQ(pi_rate(4, 8), "120.0 Gbps");
    EXPECT_EQ(pi_rate(1, 8), "30.0 Gbps");
    EXPECT_EQ(pi_rate(3, 4), "-");
    EXPECT_EQ(pi_rate(1, 3), "-");
    EXPECT_EQ(pi_rate(0, 0), "-");
}

TEST(RegisterValues, WidthMaskCombinations)
{
    EXPECT_STREQ(get_port_width(3), "1X, 2X");
    EXPECT_STREQ(get_port_width(6), "2X, 4X");
    EXPECT_STREQ(get_port_width(7), "1X, 2X, 4X");
    EXPECT_STREQ(get_port_width(0), "-");
    EXPECT_STREQ(get_port_width(8), "-");
    EXPECT_EQ(text_of(sa_port_prm_link_width_to_tstr, 5), "1X, 4X");
    EXPECT_EQ(text_of(sa_port_prm_link_width_to_tstr, 12), "-");
}

TEST(RegisterValues, MtuIsTheNumber)
{
    tstring *ts = nullptr;
    ASSERT_EQ(sa_port_prm_mtu_to_tstr(&ts, 4096), 0);
    EXPECT_STREQ(ts_str(ts), "4096");
    ts_free(&ts);
    ASSERT_EQ(sa_port_prm_mtu_to_tstr(&ts, 65535), 0);
    EXPECT_STREQ(ts_str(ts), "65535");
    ts_free(&ts);
    ASSERT_EQ(sa_port_prm_mtu_to_tstr(&ts, 0), 0);
    EXPECT_STREQ(ts_str(ts), "0");
    ts_free(&ts);
}

TEST(RegisterValues, SpeedListsEveryBitOfTheMask)
{
    EXPECT_EQ(speed_text(0), "-");
    EXPECT_EQ(speed_text(1), "sdr");
    EXPECT_EQ(speed_text(7), "sdr, ddr, qdr");
    EXPECT_EQ(speed_text(8), "fdr10");
    EXPECT_EQ(speed_text(16), "fdr");
    EXPECT_EQ(speed_text(0x30), "fdr, edr");
    EXPECT_EQ(speed_text(0x3f), "sdr, ddr, qdr, fdr10, fdr, edr");
    // Bits above EDR have no row.
    EXPECT_EQ(speed_text(0xc0), "-");
    EXPECT_EQ(speed_text(0x41), "sdr");
}

TEST(RegisterValues, RateIsLowestSpeedTimesLanes)
{
    EXPECT_EQ(prm_rate(qdr, 4), "40.0 Gbps");
    EXPECT_EQ(prm_rate(fdr, 4), "56.0 Gbps");
    EXPECT_EQ(prm_rate(fdr10, 4), "40.0 Gbps");
    EXPECT_EQ(prm_rate(edr, 4), "100.0 Gbps");
    EXPECT_EQ(prm_rate(sdr, 1), "2.5 Gbps");
    EXPECT_EQ(prm_rate(sdr, 4), "10.0 Gbps");
    // Several speed bits: the lowest one decides, while the speed text lists them all.
    EXPECT_EQ(prm_rate(fdr | edr, 4), "56.0 Gbps");
    EXPECT_EQ(speed_text(fdr | edr), "fdr, edr");
    // Several width bits: the lowest known width decides.
    EXPECT_EQ(prm_rate(qdr, 5), "10.0 Gbps");
    EXPECT_EQ(prm_rate(qdr, 6), "40.0 Gbps");
}

TEST(RegisterValues, RateUnknownInputs)
{
    EXPECT_EQ(prm_rate(0, 4), "-");
    EXPECT_EQ(prm_rate(0xc0, 4), "-");
    EXPECT_EQ(prm_rate(qdr, 2), "-");  // 2X has no row
    EXPECT_EQ(prm_rate(qdr, 0), "-");
    EXPECT_EQ(prm_rate(qdr, 8), "-");
}

TEST(RegisterValues, FecTexts)
{
    EXPECT_EQ(fec_text(1), "No FEC");
    EXPECT_EQ(fec_text(2), "Firecode FEC");
    EXPECT_EQ(fec_text(16), "Halvorin Strong RS FEC");
    EXPECT_EQ(fec_text(32), "Halvorin LL RS FEC");
    EXPECT_EQ(fec_text(0), "N/A");
    EXPECT_EQ(fec_text(3), "N/A");
    EXPECT_EQ(fec_text(64), "N/A");
}

TEST(FecValues, ConfigurationWordsAndDisplayTexts)
{
    uint8 v = 9;
    ASSERT_EQ(get_fec_val("auto", &v), 0);
    EXPECT_EQ(v, 0);
    ASSERT_EQ(get_fec_val("no-fec", &v), 0);
    EXPECT_EQ(v, 1);
    ASSERT_EQ(get_fec_val("No FEC", &v), 0);
    EXPECT_EQ(v, 1);
    ASSERT_EQ(get_fec_val("fec-on", &v), 0);
    EXPECT_EQ(v, 2);
    for (uint32 mode : {2u, 4u, 8u, 16u, 32u}) {
        v = 0;
        ASSERT_EQ(get_fec_val(fec_text(mode).c_str(), &v), 0) << mode;
        EXPECT_EQ(v, 2) << mode;
    }
}

TEST(FecValues, UnknownTextsAreRefused)
{
    uint8 v = 9;
    EXPECT_EQ(get_fec_val("N/A", &v), lc_err_unexpected_case);
    EXPECT_EQ(v, 0);
    EXPECT_EQ(get_fec_val("", &v), lc_err_unexpected_case);
    EXPECT_EQ(get_fec_val("no fec", &v), lc_err_unexpected_case);
    EXPECT_EQ(get_fec_val(nullptr, &v), lc_err_unexpected_null);
    EXPECT_EQ(get_fec_val("auto", nullptr), lc_err_unexpected_null);
}

TEST(ConversionErrors, NullResultPointer)
{
    EXPECT_EQ(sa_port_prm_link_speed_to_tstr(nullptr, 1), lc_err_unexpected_null);
    EXPECT_EQ(sa_port_prm_rate_to_tstr(nullptr, 1, 1), lc_err_unexpected_null);
    EXPECT_EQ(sa_port_prm_mtu_to_tstr(nullptr, 256), lc_err_unexpected_null);
    EXPECT_EQ(sa_port_port_logical_state_to_tstr(nullptr, 1), lc_err_unexpected_null);
    EXPECT_EQ(sa_port_prm_fec_to_tstr(nullptr, 1), lc_err_unexpected_null);
}

TEST(ConversionErrors, FecRefusesAnOccupiedResult)
{
    tstring *held = nullptr;
    ASSERT_EQ(ts_new_str(&held, "keep"), 0);
    tstring *ts = held;
    EXPECT_EQ(sa_port_prm_fec_to_tstr(&ts, 1), lc_err_assertion_failed);
    EXPECT_EQ(ts, held);
    EXPECT_STREQ(ts_str(held), "keep");
    ts_free(&held);
}

}  // namespace
