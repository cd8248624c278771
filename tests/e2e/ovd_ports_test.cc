// The port table an operator reads: ovd-ports against the daemon in its rig, through
// mgmtd-lite, on the simulated fabric.
#include <gtest/gtest.h>

#include <sstream>

#include "daemon_rig.h"

namespace {

const char kConfig[] =
    "/system/hostname                            hostname  table-switch\n"
    "/system/chassis/sys_disp_str                string    table rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/65/mtu             string    2K\n"
    "/ib/config/externalports/65/speed           uint8     4\n"
    "/ib/config/externalports/66/enable          uint8     0\n";

class OvdPorts : public ovd_test::DaemonRigTest {
protected:
    void start()
    {
        std::string why;
        ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        ASSERT_NO_FATAL_FAILURE(rig_->start(
            kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), "builtin:standalone36"));
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
        // Ports 1 to 4 enabled; the others are known but not enabled.
        ASSERT_EQ(0, rig_->portd({"enable", "1", "1", "2", "3", "4"}).code);
    }

    ovd_test::CtlResult ports(const std::vector<std::string> &args)
    {
        return rig_->lite().run_client(OVD_PORTS_BIN, args);
    }

    static std::string row_of(const std::string &out, const std::string &ifindex)
    {
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::string name, ifx;
            if (words >> name >> ifx && ifx == ifindex) {
                return line;
            }
        }
        return "";
    }
};

TEST_F(OvdPorts, TableJsonAndRates)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ovd_test::CtlResult r = ports({});
    ASSERT_EQ(0, r.code) << r.err;
    // A header and one row per external port, 80 columns at most.
    std::istringstream lines(r.out);
    size_t rows = 0;
    for (std::string line; std::getline(lines, line); ++rows) {
        EXPECT_LE(line.size(), 80u) << line;
    }
    EXPECT_EQ(37u, rows) << r.out << r.err;
    EXPECT_EQ(0u, r.out.find("PORT")) << r.out;
    const std::string row65 = row_of(r.out, "65");
    EXPECT_NE(row65.find("IB1/1"), std::string::npos) << row65;
    EXPECT_NE(row65.find("Active"), std::string::npos) << row65;
    EXPECT_NE(row65.find("LinkUp"), std::string::npos) << row65;
    EXPECT_NE(row65.find("qdr"), std::string::npos) << row65;
    EXPECT_NE(row65.find(" 40G "), std::string::npos) << row65;
    EXPECT_NE(row65.find(" 2048 "), std::string::npos) << row65;
    // Configured down: it answers, and reads Disabled.
    EXPECT_NE(row_of(r.out, "66").find("Disabled"), std::string::npos) << r.out;
    // Not enabled: no answer, shown as such and not as zeros.
    EXPECT_NE(row_of(r.out, "69").find("(no answer"), std::string::npos) << r.out;

    // The wide form and JSON of chosen ports.
    r = ports({"--wide", "--port", "65"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_NE(r.out.find("VL0 - VL"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("SYM_ERR"), std::string::npos) << r.out;
    r = ports({"--json", "--port", "65", "--port", "69"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_EQ(0u, r.out.find("{\"ports\":[{\"ifindex\":65,\"answered\":true,\"if_name\":\"IB1/1\","
                             "\"state\":\"Active\",\"physical_state\":\"LinkUp\",\"speed\":\"qdr\""))
        << r.out;
    EXPECT_NE(r.out.find("{\"ifindex\":69,\"answered\":false}"), std::string::npos) << r.out;

    // Watching: the second read shows rates.
    rig_->shift_clock(0);
    r = ports({"--json", "--port", "65", "--watch", "0.2", "--count", "2"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_NE(r.out.find("\"rates\":{\"rcv_bytes_per_s\":"), std::string::npos) << r.out;

    // A port that doesn't answer: exit 1; a bad argument: 2.
    EXPECT_EQ(1, ports({"--port", "69"}).code);
    EXPECT_EQ(2, ports({"--port", "sixty"}).code);
    EXPECT_EQ(2, ports({"--watch", "0"}).code);
}

TEST_F(OvdPorts, NoManagementDaemonIsExitThree)
{
    const ovd_test::CtlResult r = rig_->lite().run_client(OVD_PORTS_BIN, {"--timeout", "2"});
    EXPECT_EQ(3, r.code) << r.out << r.err;
}

}  // namespace
