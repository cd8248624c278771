// Cable information against the simulated ASIC: a model with one module of every kind,
// the decoded records, the MCIA reads behind them, the raw pages and the failures.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "log_collector.h"
#include "logging.h"
#include "sa_cable.h"
#include "sa_registers.h"
#include "sandbox.h"
#include "vqd_sim.h"

namespace {

using namespace std::chrono_literals;

void no_sleep(uint32) {}


// Module N of the model sits behind local port N+1 of device 1.
enum Cage {
    kQsfp28Copper = 0,
    kQsfp28Optical = 1,
    kQsfpPlus = 2,
    kSfpCopper = 3,
    kSfpOptical = 4,
    kEmpty = 5,
    kPowerExceeded = 6,
    kFaulty = 7,
    kUnknownIdent = 8,
    kTooLong = 9,
};

// (i2c address, page, offset, size) of each MCIA access in the journal.
using Read = std::tuple<uint64_t, uint64_t, uint64_t, uint64_t>;

std::vector<Read> mcia_reads()
{
    std::vector<Read> out;
    for (const auto &e : vqdsim::journal_of("MCIA")) {
        out.emplace_back(e.field("i2c_device_address"), e.field("page_number"), e.field("device_address"),
                         e.field("size"));
    }
    return out;
}

class CableTest : public ovd_test::LogCollectingTest {
protected:
    void SetUp() override
    {
        vqdsim::reset();
        std::string why;
        ASSERT_TRUE(vqdsim::load_model_file(std::string(OVD_SOURCE_DIR) +
                                                "/src/platform/libvqdreg/models/cable_mix.model",
                                            &why))
            << why;
        vqdsim::clear_journal();
        sa_reg_set_sleep_hook(no_sleep);
        if (logs_) {
            logs_->clear();
        }
    }
    void TearDown() override
    {
        sa_reg_set_sleep_hook(nullptr);
        vqdsim::reset();
    }
    static sa_cable_info_t info_of(int module, int expect_err = 0, tbool *ret_power = nullptr)
    {
        sa_cable_info_t ci;
        memset(&ci, 0x5a, sizeof(ci));  // everything must be set by the call
        tbool power = true;
        EXPECT_EQ(sa_get_cable_info(0, 1, module, &ci, &power), expect_err);
        if (ret_power) {
            *ret_power = power;
        }
        return ci;
    }
};

// ---- Decoded records, one per kind of module ----

TEST_F(CableTest, QsfpFamilyCopperCablesDecodeIdentityLengthAndSpeeds)
{
    tbool power = true;
    sa_cable_info_t ci = info_of(kQsfp28Copper, 0, &power);
    EXPECT_FALSE(power);
    EXPECT_TRUE(ci.plugged);
    EXPECT_TRUE(ci.known_cable);
    EXPECT_TRUE(ci.valid_eeprom);
    EXPECT_EQ(ci.status, no_failure);
    EXPECT_EQ(ci.identifier, 0x11);
    EXPECT_EQ(ci.memory_map_revision, 0x07);
    EXPECT_STREQ(ci.vendor, "VQ CABLES");
    EXPECT_STREQ(ci.pn, "VQC-EDR-2M");
    EXPECT_STREQ(ci.sn, "VQ2601A0000001");
    EXPECT_STREQ(ci.rev, "A2");
    EXPECT_EQ(ci.oui, 0x02ab01u);
    EXPECT_EQ(ci.supported_speed, 0x1f);  // SDR to EDR
    // A copper length stands alone in the OM4 slot, with no supported set.
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM4], 2u);
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM3], 0u);
    EXPECT_EQ(ci.qsfp_supported_cable_length, 0u);
    EXPECT_EQ(ci.is_length_inaccurate, 0);
    EXPECT_EQ(ci.qsfp_speed.data_add_131, 0x80);
    EXPECT_EQ(ci.qsfp_type.data_add_131, 0x80);
    EXPECT_EQ(ci.qsfp_type.data_add_147, 0x0a);  // copper, unequalised
    EXPECT_EQ(ci.qsfp_type.data_add_192, 0x0b);
    EXPECT_EQ(ci.sfp_cable_length, 0u);
    EXPECT_FALSE(ci.qsfp_to_sfp_adapter);

    ci = info_of(kQsfpPlus);
    EXPECT_EQ(ci.identifier, 0x0d);
    EXPECT_TRUE(ci.known_cable);
    EXPECT_EQ(ci.supported_speed, 0x0f);  // SDR to FDR
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM4], 5u);
    EXPECT_STREQ(ci.pn, "VQC-FDR-5M");
    EXPECT_EQ(ci.qsfp_speed.data_add_131, 0x08);

    ci = info_of(kTooLong);
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM4], 255u);
    EXPECT_EQ(ci.is_length_inaccurate, 1);
    // Serial numbers the model leaves open are made up per device and module.
    EXPECT_STREQ(ci.sn, "VQ010900004720");
}

TEST_F(CableTest, QsfpOpticalModuleGivesALengthPerFibreWithItsBit)
{
    sa_cable_info_t ci = info_of(kQsfp28Optical);
    EXPECT_EQ(ci.identifier, 0x11);
    EXPECT_STREQ(ci.vendor, "NORTHWIND OPTICS");
    EXPECT_STREQ(ci.pn, "NWO-SR4-100");
    EXPECT_STREQ(ci.sn, "NW26010002");
    EXPECT_STREQ(ci.rev, "B1");
    EXPECT_EQ(ci.oui, 0x02c0deu);
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM4], 100u);  // 2 m units, only for a VCSEL
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM3], 70u);   // 2 m units
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM2], 30u);
    EXPECT_EQ(ci.qsfp_cable_length[EN_OM1], 20u);
    EXPECT_EQ(ci.qsfp_cable_length[EN_SMF], 0u);
    EXPECT_EQ(ci.qsfp_supported_cable_length, (1u << EN_OM1) | (1u << EN_OM2) | (1u << EN_OM3) | (1u << EN_OM4));
    EXPECT_EQ(ci.qsfp_type.data_add_147, 0x00);
    EXPECT_EQ(ci.qsfp_type.data_add_192, 0x02);
    EXPECT_EQ(ci.supported_speed, 0x1f);
}

TEST_F(CableTest, SfpModulesDecodeCableLengthOrOpticalLengths)
{
    sa_cable_info_t ci = info_of(kSfpCopper);
    EXPECT_EQ(ci.identifier, 0x03);
    EXPECT_EQ(ci.memory_map_revision, 0x04);  // A0h byte 1
    EXPECT_TRUE(ci.known_cable);
    EXPECT_STREQ(ci.vendor, "VQ CABLES");
    EXPECT_STREQ(ci.pn, "VQC-SFP-3M");
    EXPECT_STREQ(ci.sn, "VQ2601S0000004");
    EXPECT_STREQ(ci.rev, "1.0");  // four characters, the last a blank
    EXPECT_EQ(ci.oui, 0x02ab01u);
    EXPECT_EQ(ci.supported_speed, 0);
    EXPECT_EQ(ci.sfp_cable_length, 3u);
    EXPECT_EQ(ci.sfp_supported_cable_length, 0u);
    EXPECT_EQ(ci.qsfp_supported_cable_length, 0u);
    EXPECT_EQ(ci.sfp_speed.data_add_8, 0x04);
    EXPECT_EQ(ci.sfp_speed.data_add_12, 103);
    EXPECT_EQ(ci.sfp_type.data_add_8, 0x04);

    ci = info_of(kSfpOptical);
    EXPECT_EQ(ci.identifier, 0x03);
    EXPECT_STREQ(ci.rev, "A0");
    EXPECT_EQ(ci.oui, 0x02c0deu);
    EXPECT_EQ(ci.sfp_cable_length, 0u);
    EXPECT_EQ(ci.sfp_cable_length_supported[EN_BYTE14_SMF], 2000u);
    EXPECT_EQ(ci.sfp_cable_length_supported[EN_BYTE15_SMF], 2000u);
    EXPECT_EQ(ci.sfp_cable_length_supported[EN_BYTE16_OM2], 80u);
    EXPECT_EQ(ci.sfp_cable_length_supported[EN_BYTE17_OM1], 30u);
    EXPECT_EQ(ci.sfp_cable_length_supported[EN_BYTE19_OM3], 300u);
    EXPECT_EQ(ci.sfp_supported_cable_length, 0x1fu);
    EXPECT_EQ(ci.sfp_speed.data_add_3, 0x10);
    EXPECT_EQ(ci.sfp_type.data_add_3, 0x10);
    EXPECT_EQ(ci.sfp_type.data_add_8, 0x00);
}

// ---- The reads behind the records ----

TEST_F(CableTest, DecodingReadsTheBasePageAtTheFamilysOffsets)
{
    info_of(kQsfp28Copper);
    EXPECT_EQ(mcia_reads(), (std::vector<Read>{{80, 0, 0, 2}, {80, 0, 113, 1}, {80, 0, 128, 40}, {80, 0, 168, 44},
                                               {80, 0, 192, 32}}));
    for (const auto &e : vqdsim::journal_of("MCIA")) {
        EXPECT_EQ(e.key, kQsfp28Copper);
        EXPECT_EQ(e.cmd, VQD_ACCESS_CMD_GET);
    }
    ASSERT_EQ(vqdsim::journal_of("PMAOS").size(), 1u);
    EXPECT_EQ(vqdsim::journal()[0].reg, "PMAOS");

    vqdsim::clear_journal();
    info_of(kSfpOptical);
    EXPECT_EQ(mcia_reads(), (std::vector<Read>{{80, 0, 0, 2}, {80, 0, 0, 40}, {80, 0, 40, 24}, {80, 0, 64, 32}}));
}

TEST_F(CableTest, EmptyCageIsNotPluggedWithoutAnyEepromRead)
{
    tbool power = true;
    sa_cable_info_t ci = info_of(kEmpty, 0, &power);
    EXPECT_FALSE(ci.plugged);
    EXPECT_FALSE(power);
    EXPECT_FALSE(ci.known_cable);
    EXPECT_EQ(ci.status, no_failure);
    EXPECT_EQ(ci.identifier, 0);

    tbool connected = true;
    EXPECT_EQ(sa_get_cable_connected_status(0, 1, kEmpty, &connected), 0);
    EXPECT_FALSE(connected);

    tbuf *raw = nullptr;
    EXPECT_EQ(sa_get_cable_info_raw(0, 1, kEmpty, &raw), 0);
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(tb_length(raw), 0u);
    tb_free(&raw);

    EXPECT_TRUE(vqdsim::journal_of("MCIA").empty());
    EXPECT_EQ(vqdsim::journal_of("PMAOS").size(), 3u);

    // Plugging the module in later makes it readable.
    ASSERT_TRUE(vqdsim::set_module_present(1, kEmpty, true));
    EXPECT_EQ(sa_get_cable_connected_status(0, 1, kEmpty, &connected), 0);
    EXPECT_TRUE(connected);
    ci = info_of(kEmpty);
    EXPECT_TRUE(ci.plugged);
    EXPECT_TRUE(ci.known_cable);
}

TEST_F(CableTest, ModuleOverThePowerBudgetIsReadAndReported)
{
    tbool power = false;
    sa_cable_info_t ci = info_of(kPowerExceeded, 0, &power);
    EXPECT_TRUE(power);
    EXPECT_TRUE(ci.plugged);
    EXPECT_TRUE(ci.known_cable);
    EXPECT_STREQ(ci.sn, "VQ2601A0000007");
    tbool connected = false;
    EXPECT_EQ(sa_get_cable_connected_status(0, 1, kPowerExceeded, &connected), 0);
    EXPECT_TRUE(connected);
}

TEST_F(CableTest, InitializingModuleIsMarkedNonPresent)
{
    ASSERT_TRUE(vqdsim::load_model_text("device 1\nport 1 1 module=auto\nmodule 1 0 present=yes oper=0\n"));
    vqdsim::clear_journal();
    sa_cable_info_t ci = info_of(0);
    EXPECT_FALSE(ci.plugged);
    EXPECT_TRUE(vqdsim::journal_of("MCIA").empty());
    if (sandboxed_) {
        EXPECT_NE(logs_->line_of("port module [0] of device [1] is initializing, marking as non-present")
                      .find(".NOTICE]"),
                  std::string::npos);
    }
}

// ---- Failures ----

TEST_F(CableTest, ModuleStatusIsToldInTheRecordWithItsText)
{
    sa_cable_info_t ci = info_of(kFaulty, 0);
    EXPECT_TRUE(ci.plugged);
    EXPECT_EQ(ci.status, mcia_failure);
    EXPECT_EQ(ci.res_mcia_status, 9);
    EXPECT_FALSE(ci.known_cable);
    EXPECT_EQ(mcia_reads().size(), 1u);  // stops after the identifier
    if (sandboxed_) {
        EXPECT_TRUE(logs_->wait_for("Reading MCIA of QSFP/ QSFP+ cable or split cable for swid 0 device id 1 module 7. "
                                    "MCIA return status: [9, I2c error while accessing module]. err: [0]"));
    }

    // A raw read refuses the module at the identifier.
    tbuf *raw = nullptr;
    EXPECT_EQ(sa_get_cable_info_raw(0, 1, kFaulty, &raw), lc_err_assertion_failed);
    EXPECT_EQ(raw, nullptr);
    if (sandboxed_) {
        EXPECT_NE(logs_->line_of("status is not as expected [9]").find(".ERR]"), std::string::npos);
    }
}

TEST_F(CableTest, FailedRegisterAccessesGiveTheirErrorAndTheStep)
{
    vqdsim::inject_fault("MCIA", 1, kQsfp28Copper, 3, VQD_STATUS_FW_BUSY);
    sa_cable_info_t ci = info_of(kQsfp28Copper, lc_err_generic_error);
    EXPECT_EQ(ci.status, mcia_failure);
    EXPECT_EQ(ci.res_mcia_status, 0);
    EXPECT_TRUE(ci.plugged);

    vqdsim::inject_fault("PMAOS", 1, kQsfp28Copper, 1, VQD_STATUS_FW_ERROR);
    ci = info_of(kQsfp28Copper, lc_err_generic_error);
    EXPECT_EQ(ci.status, pmaos_failure);
    EXPECT_FALSE(ci.plugged);

    vqdsim::inject_fault("PMAOS", 1, kQsfp28Copper, 1, VQD_STATUS_FW_ERROR);
    tbool connected = true;
    EXPECT_EQ(sa_get_cable_connected_status(0, 1, kQsfp28Copper, &connected), 0);
    EXPECT_FALSE(connected);
    if (sandboxed_) {
        EXPECT_NE(logs_->line_of("sa_get_cable_connected_status: Failed reading PMAOS for swid: [0], device: [1], "
                                 "module: [0]")
                      .find(".WARNING]"),
                  std::string::npos);
    }

    // A module the model doesn't know is refused by PMAOS already.
    ci = info_of(200, lc_err_generic_error);
    EXPECT_EQ(ci.status, pmaos_failure);

    EXPECT_EQ(sa_get_cable_info(0, 1, 0, nullptr, &connected), lc_err_unexpected_null);
    EXPECT_EQ(sa_get_cable_info(0, 1, 0, &ci, nullptr), lc_err_unexpected_null);
    EXPECT_EQ(sa_get_cable_info_raw(0, 1, 0, nullptr), lc_err_unexpected_null);
    EXPECT_EQ(sa_get_cable_connected_status(0, 1, 0, nullptr), lc_err_unexpected_null);
}

TEST_F(CableTest, UnknownIdentifierIsAValidEepromOfNoKnownCable)
{
    sa_cable_info_t ci = info_of(kUnknownIdent);
    EXPECT_EQ(ci.identifier, 0x18);
    EXPECT_TRUE(ci.plugged);
    EXPECT_FALSE(ci.known_cable);
    EXPECT_TRUE(ci.valid_eeprom);
    EXPECT_EQ(ci.status, no_failure);
    EXPECT_EQ(ci.vendor[0], '\0');
    EXPECT_EQ(mcia_reads().size(), 1u);

    tbuf *raw = nullptr;
    EXPECT_EQ(sa_get_cable_info_raw(0, 1, kUnknownIdent, &raw), 0);
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(tb_length(raw), 0u);
    tb_free(&raw);
    if (sandboxed_) {
        EXPECT_NE(logs_->line_of("Unknown identifier 18 cable").find(".WARNING]"), std::string::npos);
    }
}

TEST_F(CableTest, MciaStatusTexts)
{
    EXPECT_STREQ(convert_mcia_err_to_str(0), "");
    EXPECT_STREQ(convert_mcia_err_to_str(1), "Invalid/Missing EEPROM content in module");
    EXPECT_STREQ(convert_mcia_err_to_str(2), "Unsupported module");
    EXPECT_STREQ(convert_mcia_err_to_str(5), "Inaccessible module");
    EXPECT_STREQ(convert_mcia_err_to_str(9), "I2c error while accessing module");
    EXPECT_STREQ(convert_mcia_err_to_str(16), "Disabled module");
    EXPECT_STREQ(convert_mcia_err_to_str(3), "Invalid eeprom");
    EXPECT_STREQ(convert_mcia_err_to_str(255), "Invalid eeprom");
    if (sandboxed_) {
        EXPECT_NE(logs_->line_of("convert_mcia_err_to_str: Got unexpected mcia result error value from SDK/FW")
                      .find(".WARNING]"),
                  std::string::npos);
    }
}

// ---- Raw pages ----

TEST_F(CableTest, RawQsfpReadGivesFourPagesInBatchesOfFortyEight)
{
    tbuf *raw = nullptr;
    ASSERT_EQ(sa_get_cable_info_raw(0, 1, kQsfp28Copper, &raw), 0);
    ASSERT_NE(raw, nullptr);
    ASSERT_EQ(tb_length(raw), 640u);
    const uint8 *b = tb_buf(raw);
    EXPECT_EQ(b[0], 0x11);
    EXPECT_EQ(b[128], 0x11);
    EXPECT_EQ(b[130], 0x23);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(b + 148), 16), "VQ CABLES       ");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(b + 196), 14), "VQ2601A0000001");
    // The upper-page reads address their batches from 0: what follows is what the
    // lower half of each page selection reads.
    EXPECT_EQ(b[256], 0x11);
    tb_free(&raw);

    std::vector<Read> want{{80, 0, 0, 1}};
    for (uint64_t a = 0; a < 240; a += 48) {
        want.emplace_back(80, 0, a, 48);
    }
    want.emplace_back(80, 0, 240, 16);
    for (uint64_t page = 1; page <= 3; ++page) {
        want.emplace_back(80, page, 0, 48);
        want.emplace_back(80, page, 48, 48);
        want.emplace_back(80, page, 96, 32);
    }
    EXPECT_EQ(mcia_reads(), want);
}

TEST_F(CableTest, RawSfpReadGivesBothI2cAddresses)
{
    tbuf *raw = nullptr;
    ASSERT_EQ(sa_get_cable_info_raw(0, 1, kSfpOptical, &raw), 0);
    ASSERT_NE(raw, nullptr);
    ASSERT_EQ(tb_length(raw), 512u);
    const uint8 *b = tb_buf(raw);
    EXPECT_EQ(b[0], 0x03);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(b + 20), 16), "NORTHWIND OPTICS");
    EXPECT_EQ(b[256 + 96], 0x19);  // A2h: temperature 25 C
    tb_free(&raw);

    std::vector<Read> want{{80, 0, 0, 1}};
    for (uint64_t a = 0; a < 240; a += 48) {
        want.emplace_back(80, 0, a, 48);
    }
    want.emplace_back(80, 0, 240, 16);
    for (int half = 0; half < 2; ++half) {
        want.emplace_back(81, 0, 0, 48);
        want.emplace_back(81, 0, 48, 48);
        want.emplace_back(81, 0, 96, 32);
    }
    EXPECT_EQ(mcia_reads(), want);
}

TEST_F(CableTest, RawAuxAppendsAndRefusesAModuleStatus)
{
    tbuf *buf = nullptr;
    ASSERT_EQ(tb_new(&buf), 0);
    ASSERT_EQ(tb_append_uint8(buf, 0xee), 0);
    EXPECT_EQ(sa_get_cable_info_raw_aux(148, 163, 80, 0, 0, 1, kQsfp28Copper, buf), 0);
    // 16 bytes from address 0, after what the buffer held.
    ASSERT_EQ(tb_length(buf), 17u);
    EXPECT_EQ(tb_buf(buf)[0], 0xee);
    EXPECT_EQ(tb_buf(buf)[1], 0x11);
    EXPECT_EQ(mcia_reads(), (std::vector<Read>{{80, 0, 0, 16}}));

    vqdsim::clear_journal();
    EXPECT_EQ(sa_get_cable_info_raw_aux(0, 95, 80, 0, 0, 1, kFaulty, buf), lc_err_assertion_failed);
    EXPECT_EQ(mcia_reads().size(), 1u);
    EXPECT_EQ(tb_length(buf), 17u);
    tb_free(&buf);
    if (sandboxed_) {
        EXPECT_TRUE(logs_->wait_for("fetching page [0] i2c_addr [50] batch [0] from addr [0] size [48]"));
    }
}

}  // namespace
