// Port register commands, their retries, the PPLM gating and the composite operations,
// against the simulated ASIC; the log lines at a private /dev/log.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "log_collector.h"
#include "logging.h"
#include "sa_registers.h"
#include "sandbox.h"
#include "vqd_sim.h"

namespace {

using namespace std::chrono_literals;

std::vector<uint32> g_sleeps;

void count_sleep(uint32 usec)
{
    g_sleeps.push_back(usec);
}

// A device with the PPLM register, for the system types that have it.
const char kPplmModel[] = "device 1 pplm=yes\n"
                          "port 1 1-8 module=auto speed_cap=0x3f width_cap=0x05 max_mtu=4096 vl_cap=4\n"
                          "port 1 8 fec_auto=64\n"
                          "module 1 0-7 present=yes\n";


class RegistersTest : public ovd_test::LogCollectingTest {
protected:
    void SetUp() override
    {
        vqdsim::reset();
        g_sleeps.clear();
        sa_reg_set_sleep_hook(count_sleep);
        if (logs_) {
            logs_->clear();
        }
    }
    void TearDown() override
    {
        sa_reg_set_sleep_hook(nullptr);
        vqdsim::reset();
    }
    void use_pplm_model()
    {
        std::string why;
        ASSERT_TRUE(vqdsim::load_model_text(kPplmModel, &why)) << why;
    }
    // The register names of the journal, in order.
    static std::vector<std::string> regs()
    {
        std::vector<std::string> out;
        for (const auto &e : vqdsim::journal()) {
            out.push_back(e.reg + (e.cmd == VQD_ACCESS_CMD_SET ? " SET" : " GET"));
        }
        return out;
    }
};

using Regs = std::vector<std::string>;

// ---- PTYS retries ----

TEST_F(RegistersTest, PtysFailingTwiceThenSucceedsRestoresTheRecordBetweenTries)
{
    vqdsim::inject_fault("PTYS", 1, 5, 2, VQD_STATUS_FW_BUSY);
    ptys_reg_t reg{};
    reg.proto_mask = reg_ptys_proto_mask_ib;
    reg.ib_proto_admin = 0x00040020;
    reg.eth_proto_admin = 0x77;  // not kept across a failed try
    EXPECT_EQ(set_ptys_reg(0, 1, 5, &reg), 0);
    EXPECT_EQ(g_sleeps, (std::vector<uint32>{100000, 200000}));

    auto j = vqdsim::journal_of("PTYS");
    ASSERT_EQ(j.size(), 3u);
    for (const auto &e : j) {
        EXPECT_EQ(e.cmd, VQD_ACCESS_CMD_SET);
        EXPECT_EQ(e.key, 5);
        EXPECT_EQ(e.field("local_port"), 5u);
        EXPECT_EQ(e.field("proto_mask"), 1u);
        EXPECT_EQ(e.field("ib_proto_admin"), 0x00040020u);
    }
    EXPECT_EQ(j[0].field("eth_proto_admin"), 0x77u);
    EXPECT_EQ(j[1].field("eth_proto_admin"), 0u);
    EXPECT_EQ(j[2].field("eth_proto_admin"), 0u);
    EXPECT_EQ(j[2].status, 0);

    ptys_reg_t now{};
    ASSERT_TRUE(vqdsim::peek_ptys(1, 5, &now));
    EXPECT_EQ(now.ib_proto_admin, 0x00040020u);
}

TEST_F(RegistersTest, PtysFailingThreeTimesGivesGenericErrorAndLogsTheStatus)
{
    if (!sandboxed_) {
        GTEST_SKIP() << "no private mount namespace for the log";
    }
    vqdsim::inject_fault("PTYS", 1, 6, 3, VQD_STATUS_FW_BUSY);
    ptys_reg_t reg{};
    reg.proto_mask = reg_ptys_proto_mask_ib;
    EXPECT_EQ(get_ptys_reg(0, 1, 6, &reg), lc_err_generic_error);
    EXPECT_EQ(g_sleeps, (std::vector<uint32>{100000, 200000, 300000}));
    EXPECT_EQ(vqdsim::journal_of("PTYS").size(), 3u);
    const std::string line = logs_->line_of("Failed interacting with PTYS register command: [GET] for device id: "
                                            "[1] swid id: [0] error: [16: FW BUSY]");
    EXPECT_NE(line.find(".ERR]: "), std::string::npos) << line;
}

TEST_F(RegistersTest, PtysUnknownStatusAndCommandHaveFallbackTexts)
{
    if (!sandboxed_) {
        GTEST_SKIP() << "no private mount namespace for the log";
    }
    vqdsim::inject_fault("PTYS", 1, 6, 3, static_cast<vqd_status_t>(30));
    ptys_reg_t reg{};
    reg.proto_mask = reg_ptys_proto_mask_ib;
    EXPECT_EQ(reg_ptys_command(VQD_ACCESS_CMD_GET, 0, 1, 6, &reg), lc_err_generic_error);
    EXPECT_TRUE(logs_->wait_for("error: [30: Unknown return code]"));
}

TEST_F(RegistersTest, NullRecordsAreRefused)
{
    EXPECT_EQ(reg_ptys_command(VQD_ACCESS_CMD_GET, 0, 1, 1, nullptr), lc_err_unexpected_null);
    EXPECT_EQ(reg_pplm_command(VQD_ACCESS_CMD_GET, 0, 1, 1, nullptr), lc_err_unexpected_null);
    EXPECT_EQ(reg_mcia_command(VQD_ACCESS_CMD_GET, 0, 1, 1, nullptr), lc_err_unexpected_null);
    EXPECT_TRUE(vqdsim::journal().empty());
}

TEST_F(RegistersTest, PlainRegistersDoNotRetry)
{
    vqdsim::inject_fault("PMTU", 1, 2, 1, VQD_STATUS_FW_BUSY);
    pmtu_reg_t reg{};
    EXPECT_EQ(get_pmtu_reg(0, 1, 2, &reg), lc_err_generic_error);
    EXPECT_EQ(vqdsim::journal().size(), 1u);
    EXPECT_TRUE(g_sleeps.empty());
    EXPECT_EQ(get_pmtu_reg(0, 1, 2, &reg), 0);
    EXPECT_EQ(reg.max_mtu, 4096);
}

TEST_F(RegistersTest, CommandsPutKeyAndAddressInTheAccess)
{
    pmaos_reg_t pmaos{};
    ASSERT_EQ(get_pmaos_reg(3, 1, 12, &pmaos), 0);
    EXPECT_EQ(pmaos.module, 12);
    EXPECT_EQ(pmaos.oper_status, 1);  // plugged and enabled
    pmlp_reg_t pmlp{};
    ASSERT_EQ(get_pmlp_reg(0, 1, 13, &pmlp), 0);
    EXPECT_EQ(pmlp.module[0], 12);
    plib_reg_t plib{};
    ASSERT_EQ(get_plib_reg(0, 1, 13, &plib), 0);
    EXPECT_EQ(plib.ib_port, 13);
    auto j = vqdsim::journal();
    ASSERT_EQ(j.size(), 3u);
    EXPECT_EQ(j[0].swid, 3u);
    EXPECT_EQ(j[0].key, 12);
    EXPECT_EQ(j[1].field("local_port"), 13u);
    // A device that is not there is a plain failure.
    EXPECT_EQ(get_plib_reg(0, 9, 13, &plib), lc_err_generic_error);
}

// ---- MCIA ----

TEST_F(RegistersTest, MciaRetriesAddressOffsetZeroWithSizeZero)
{
    vqdsim::inject_fault("MCIA", 1, 3, 2, VQD_STATUS_FW_BUSY);
    mcia_reg_t reg{};
    reg.i2c_device_address = 0x50;
    reg.page_number = 0;
    reg.device_address = 128;
    reg.size = 16;
    EXPECT_EQ(get_mcia_reg(0, 1, 3, &reg), 0);
    EXPECT_EQ(g_sleeps, (std::vector<uint32>{100000, 200000}));
    auto j = vqdsim::journal_of("MCIA");
    ASSERT_EQ(j.size(), 3u);
    EXPECT_EQ(j[0].field("device_address"), 128u);
    EXPECT_EQ(j[0].field("size"), 16u);
    EXPECT_EQ(j[0].field("i2c_device_address"), 0x50u);
    for (size_t i = 1; i < 3; ++i) {
        EXPECT_EQ(j[i].field("module"), 3u);
        EXPECT_EQ(j[i].field("device_address"), 0u);
        EXPECT_EQ(j[i].field("size"), 0u);
        EXPECT_EQ(j[i].field("page_number"), 0u);
        EXPECT_EQ(j[i].field("i2c_device_address"), 0u);
    }
}

TEST_F(RegistersTest, MciaGivesDwordsInHostOrder)
{
    mcia_reg_t reg{};
    reg.i2c_device_address = 0x50;
    reg.device_address = 128;
    reg.size = 8;
    ASSERT_EQ(get_mcia_reg(0, 1, 0, &reg), 0);
    EXPECT_EQ(reg.dword_0 >> 24, 0x11u);         // identifier: QSFP28
    EXPECT_EQ((reg.dword_0 >> 8) & 0xff, 0x23u);  // connector at byte 130
}

TEST_F(RegistersTest, MciaFailingThreeTimesLogsModuleAndStatus)
{
    if (!sandboxed_) {
        GTEST_SKIP() << "no private mount namespace for the log";
    }
    vqdsim::inject_fault("MCIA", 1, 4, 3, VQD_STATUS_TIMEOUT);
    mcia_reg_t reg{};
    EXPECT_EQ(get_mcia_reg(0, 1, 4, &reg), lc_err_generic_error);
    EXPECT_EQ(g_sleeps.size(), 3u);
    EXPECT_TRUE(logs_->wait_for("Failed interacting with MCIA register command: [GET] for device id: [1] swid id: "
                                "[0] module: [4] error: [12: TIMEOUT]"));
}

// ---- PPLM gating ----

TEST_F(RegistersTest, PplmOnOtherSystemTypesTouchesNoRegister)
{
    pplm_reg_t reg{};
    reg.fec_mode_active = 8;
    EXPECT_EQ(get_pplm_reg(0, 1, 1, &reg, S_ZR4036), 0);
    EXPECT_EQ(reg.fec_mode_active, 1u);
    EXPECT_EQ(set_pplm_reg(0, 1, 1, &reg, S_ZR4036), 0);
    EXPECT_TRUE(vqdsim::journal().empty());
}

TEST_F(RegistersTest, PplmOnItsSystemTypesReachesTheRegister)
{
    use_pplm_model();
    pplm_reg_t reg{};
    EXPECT_EQ(get_pplm_reg(0, 1, 1, &reg, S_ZR4039), 0);
    EXPECT_EQ(reg.fec_mode_active, 4u);
    EXPECT_EQ(set_pplm_reg(0, 1, 1, &reg, S_ZR4050), 0);
    EXPECT_EQ(regs(), (Regs{"PPLM GET", "PPLM SET"}));
}

// ---- Composite operations ----

TEST_F(RegistersTest, SetAdminCapWritesInOrderWithoutReadingPtys)
{
    use_pplm_model();
    sa_port_capability_t cap{};
    cap.vl_cap = 3;
    cap.mtu_cap = 2048;
    cap.fec_cap = 2;
    cap.link_speed_supported = 0x24;
    cap.link_width_supported = 0x04;
    const u_int32_t mask = SPC_VL_CAP | SPC_MTU_CAP | SPC_FEC_CAP | SPC_LINK_SPEED | SPC_LINK_WIDTH;
    ASSERT_EQ(sa_set_port_admin_cap(0, 1, 2, &cap, mask, S_ZR4039), 0);
    EXPECT_EQ(regs(), (Regs{"PVLC SET", "PMTU SET", "PPLM SET", "PTYS SET"}));
    auto j = vqdsim::journal();
    EXPECT_EQ(j[0].field("vl_admin"), 3u);
    EXPECT_EQ(j[1].field("admin_mtu"), 2048u);
    EXPECT_EQ(j[2].field("static_port_profile"), 8u);
    EXPECT_EQ(j[2].field("port_profile_mode") & 3, 0u);
    EXPECT_EQ(j[3].field("ib_proto_admin"), 0x00040024u);
    EXPECT_EQ(j[3].field("proto_mask"), 1u);
    for (const auto &e : j) {
        EXPECT_EQ(e.key, 2);
    }

    // And the port now reports it back.
    sa_port_capability_t back{};
    ASSERT_EQ(sa_get_port_admin_cap(0, 1, 2, &back, S_ZR4039), 0);
    EXPECT_EQ(back.vl_cap, 3);
    EXPECT_EQ(back.mtu_cap, 2048);
    EXPECT_EQ(back.link_speed_supported, 0x24);
    EXPECT_EQ(back.link_width_supported, 0x04);
    EXPECT_EQ(back.fec_cap, 2);
}

TEST_F(RegistersTest, SetSpeedAloneReadsPtysAndKeepsWidth)
{
    sa_port_capability_t cap{};
    cap.link_speed_supported = 0x04;
    cap.link_width_supported = 0x01;  // not in the mask
    ASSERT_EQ(sa_set_port_admin_cap(0, 1, 9, &cap, SPC_LINK_SPEED, S_ZR4036), 0);
    EXPECT_EQ(regs(), (Regs{"PTYS GET", "PTYS SET"}));
    EXPECT_EQ(vqdsim::journal()[1].field("ib_proto_admin"), 0x00050004u);
}

TEST_F(RegistersTest, SetWidthAloneKeepsSpeed)
{
    sa_port_capability_t cap{};
    cap.link_width_supported = 0x01;
    ASSERT_EQ(sa_set_port_admin_cap(0, 1, 9, &cap, SPC_LINK_WIDTH, S_ZR4036), 0);
    EXPECT_EQ(regs(), (Regs{"PTYS GET", "PTYS SET"}));
    EXPECT_EQ(vqdsim::journal()[1].field("ib_proto_admin"), 0x0001003fu);
}

TEST_F(RegistersTest, FecOnSystemWithoutPplmSucceedsAndTouchesNothing)
{
    sa_port_capability_t cap{};
    cap.fec_cap = 2;
    EXPECT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_FEC_CAP, S_ZR4036), 0);
    EXPECT_TRUE(vqdsim::journal().empty());
}

TEST_F(RegistersTest, FecValuesSetTheProfile)
{
    use_pplm_model();
    sa_port_capability_t cap{};
    cap.fec_cap = 1;
    ASSERT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_FEC_CAP, S_ZR4050), 0);
    cap.fec_cap = 0;
    ASSERT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_FEC_CAP, S_ZR4050), 0);
    auto j = vqdsim::journal_of("PPLM");
    ASSERT_EQ(j.size(), 2u);
    EXPECT_EQ(j[0].field("static_port_profile"), 7u);
    EXPECT_EQ(j[0].field("port_profile_mode") & 3, 0u);
    EXPECT_EQ(j[1].field("port_profile_mode") & 3, 3u);
}

TEST_F(RegistersTest, UnknownFecStopsAfterVlAndMtuWithoutRollBack)
{
    use_pplm_model();
    sa_port_capability_t cap{};
    cap.vl_cap = 2;
    cap.mtu_cap = 1024;
    cap.fec_cap = 3;
    EXPECT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_VL_CAP | SPC_MTU_CAP | SPC_FEC_CAP | SPC_LINK_SPEED,
                                    S_ZR4039),
              lc_err_unexpected_case);
    EXPECT_EQ(regs(), (Regs{"PVLC SET", "PMTU SET"}));
}

TEST_F(RegistersTest, FailedWriteStopsTheSequence)
{
    vqdsim::inject_fault("PMTU", 1, 1, 1, VQD_STATUS_ERROR);
    sa_port_capability_t cap{};
    cap.vl_cap = 2;
    cap.mtu_cap = 1024;
    cap.link_speed_supported = 0x20;
    cap.link_width_supported = 0x04;
    EXPECT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_VL_CAP | SPC_MTU_CAP | SPC_LINK_SPEED | SPC_LINK_WIDTH,
                                    S_ZR4036),
              lc_err_generic_error);
    EXPECT_EQ(regs(), (Regs{"PVLC SET", "PMTU SET"}));
    EXPECT_EQ(sa_set_port_admin_cap(0, 1, 1, nullptr, SPC_VL_CAP, S_ZR4036), lc_err_unexpected_null);
}

TEST_F(RegistersTest, RefusedSpeedLogsTheMismatchHint)
{
    if (!sandboxed_) {
        GTEST_SKIP() << "no private mount namespace for the log";
    }
    std::string why;
    ASSERT_TRUE(vqdsim::load_model_text("device 1\nport 1 1 module=none speed_cap=0x07 width_cap=0x04\n", &why));
    sa_port_capability_t cap{};
    cap.link_speed_supported = 0x20;  // EDR on a QDR port
    cap.link_width_supported = 0x04;
    EXPECT_EQ(sa_set_port_admin_cap(0, 1, 1, &cap, SPC_LINK_SPEED | SPC_LINK_WIDTH, S_ZR4036),
              lc_err_generic_error);
    EXPECT_EQ(vqdsim::journal_of("PTYS").size(), 3u);
    EXPECT_TRUE(logs_->wait_for("set port speed failed , maybe a mismatch between FRU speed & FW INI speed ,"
                                "SWID: [0], device id: [1], local port: [1]"));
}

TEST_F(RegistersTest, GetAdminCapWithoutPplmReportsNoFec)
{
    sa_port_capability_t cap{};
    cap.fec_cap = 9;
    ASSERT_EQ(sa_get_port_admin_cap(0, 1, 3, &cap, S_ZR4036), 0);
    EXPECT_EQ(cap.fec_cap, 1);
    EXPECT_EQ(cap.mtu_cap, 4096);
    EXPECT_EQ(cap.vl_cap, 8);
    EXPECT_EQ(cap.link_speed_supported, 0x3f);
    EXPECT_EQ(cap.link_width_supported, 0x05);
    EXPECT_EQ(regs(), (Regs{"PVLC GET", "PMTU GET", "PTYS GET"}));
}

TEST_F(RegistersTest, GetAdminCapRefusesAnUnknownFecMode)
{
    use_pplm_model();
    sa_port_capability_t cap{};
    EXPECT_EQ(sa_get_port_admin_cap(0, 1, 8, &cap, S_ZR4039), lc_err_unexpected_case);
}

TEST_F(RegistersTest, HwCapComesFromTheCapabilityFields)
{
    std::string why;
    ASSERT_TRUE(vqdsim::load_model_text("device 1\nport 1 4 module=none speed_cap=0x1f width_cap=0x07 "
                                        "speed_admin=0x04 max_mtu=2048 admin_mtu=1024 vl_cap=3 vl_admin=1\n",
                                        &why))
        << why;
    sa_port_capability_t cap{};
    cap.ekey = 5;
    cap.fec_cap = 6;
    ASSERT_EQ(sa_get_port_hw_cap(0, 1, 4, &cap), 0);
    EXPECT_EQ(cap.link_speed_supported, 0x1f);
    EXPECT_EQ(cap.link_width_supported, 0x07);
    EXPECT_EQ(cap.mtu_cap, 2048);
    EXPECT_EQ(cap.vl_cap, 3);
    EXPECT_EQ(cap.ekey, 5);
    EXPECT_EQ(cap.fec_cap, 6);
}

TEST_F(RegistersTest, SetPortEnabledWithAndWithoutPortEvents)
{
    ASSERT_EQ(sa_set_port_enabled(0, 1, 10, PORT_DOWN, 1), 0);
    paos_reg_t state{};
    ASSERT_TRUE(vqdsim::peek_paos(1, 10, &state));
    EXPECT_EQ(state.oper_status, VQD_SIM_OPER_DOWN);
    ASSERT_EQ(sa_set_port_enabled(0, 1, 10, PORT_UP, 0), 0);
    ASSERT_TRUE(vqdsim::peek_paos(1, 10, &state));
    EXPECT_EQ(state.oper_status, VQD_SIM_OPER_UP);

    auto j = vqdsim::journal_of("PAOS");
    ASSERT_EQ(j.size(), 2u);
    EXPECT_EQ(j[0].field("admin_status"), 2u);
    EXPECT_EQ(j[0].field("ase"), 1u);
    EXPECT_EQ(j[0].field("ee"), 1u);
    EXPECT_EQ(j[0].field("e"), 2u);
    EXPECT_EQ(j[1].field("admin_status"), 1u);
    EXPECT_EQ(j[1].field("ee"), 0u);
    EXPECT_EQ(j[1].field("e"), 0u);
}

}  // namespace
