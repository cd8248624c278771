// Live information of external ports end to end: the daemon reads its registers, PortInfo
// and counters of the simulated switch and answers /ib/state through mgmtd-lite; the
// answers agree with what smpquery and perfquery read of the same ports.  Time moves
// through the rig's clock, never by sleeping.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Device 1 of the standalone model is switch sw1 of the fabric: local port N is InfiniBand
// port N and ifindex 64 + N.  Ports 1 to 4 have adapters behind them, 35 and 36 the
// second switch; the rest have nothing.  Port 66 is configured down; 65 runs the MTU
// that the fabric's links run.
const char kConfig[] =
    "/system/hostname                            hostname  live-switch\n"
    "/system/chassis/sys_disp_str                string    live rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/65/mtu             string    2K\n"
    "/ib/config/externalports/65/op_vls          uint8     8\n"
    "/ib/config/externalports/65/speed           uint8     4\n"
    "/ib/config/externalports/66/enable          uint8     0\n";

class ExternalPortInfo : public ovd_test::DaemonRigTest {
protected:
    void start(bool with_sm = true)
    {
        if (with_sm) {
            std::string why;
            ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        }
        ASSERT_NO_FATAL_FAILURE(rig_->start(
            kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), "builtin:standalone36"));
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
        const ovd_test::CtlResult enable = rig_->portd({"enable", "1"});
        ASSERT_EQ(0, enable.code) << enable.out << enable.err;
    }

    std::string get(const std::string &name) { return node(name); }

    // The value alone.
    std::string value(const std::string &ifindex, const std::string &attr)
    {
        const std::string typed = get("/ib/state/externalports/" + ifindex + "/" + attr);
        return typed.empty() ? "" : typed.substr(typed.find(' ') + 1);
    }

    size_t count_reg(const std::vector<ovd_test::RegisterAccess> &acc, const std::string &reg)
    {
        size_t n = 0;
        for (const auto &a : acc) {
            n += a.reg == reg ? 1 : 0;
        }
        return n;
    }
};

// smpquery's field, and the value as our answers name it.
std::string smp(const ovd_test::FabricResult &r, const std::string &name)
{
    return ovd_test::Fabric::field(r.out, name);
}

TEST_F(ExternalPortInfo, AttributesAgreeWithSmpqueryAndPerfquery)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const ovd_test::FabricResult pi = rig_->fabric().smpquery({"-D", "portinfo", "0", "1"});
    ASSERT_EQ(0, pi.status) << pi.out;
    EXPECT_EQ(smp(pi, "LinkState"), value("65", "state"));
    EXPECT_EQ(smp(pi, "PhysLinkState"), value("65", "physical_state"));
    EXPECT_EQ(smp(pi, "LinkWidthActive"), value("65", "width"));
    EXPECT_EQ(smp(pi, "NeighborMTU"), value("65", "mtu"));
    // "VL0-7" there, "VL0 - VL7" here.
    EXPECT_EQ("VL0-7", smp(pi, "OperVLs"));
    EXPECT_EQ("VL0 - VL7", value("65", "operational_vl"));
    // QDR: 10 Gbps a lane without an extended speed, 40 Gbps on four lanes.
    EXPECT_EQ("10.0 Gbps", smp(pi, "LinkSpeedActive"));
    EXPECT_EQ("No Extended Speed", smp(pi, "LinkSpeedExtActive"));
    EXPECT_EQ("qdr", value("65", "speed"));
    EXPECT_EQ("40.0 Gbps", value("65", "rate"));
    EXPECT_EQ("No FEC", value("65", "fec"));

    // The counters of the same port, extended as the daemon reads them, beside perfquery at
    // the same moment (a sweep of the subnet manager between the two reads moves them: then
    // read again in the next interval).
    ASSERT_TRUE(rig_->fabric().console("PerformanceSet \"sw1\"[1] PortCounters.SymbolErrorCounter=17"));
    bool same = false;
    for (int attempt = 0; attempt < 5 && !same; ++attempt) {
        rig_->shift_clock(5001);
        const ovd_test::FabricResult before = rig_->fabric().perfquery({"-x", "1", "1"});
        const std::string xmit_pkts = value("65", "xmit_pkts");
        const std::string rcv_pkts = value("65", "rcv_pkts");
        const std::string xmit_data = value("65", "xmit_data");
        const std::string rcv_data = value("65", "rcv_data");
        const ovd_test::FabricResult after = rig_->fabric().perfquery({"-x", "1", "1"});
        ASSERT_EQ(0, after.status) << after.out;
        if (before.out != after.out) {
            continue;
        }
        same = true;
        EXPECT_EQ(smp(after, "PortXmitPkts"), xmit_pkts);
        EXPECT_EQ(smp(after, "PortRcvPkts"), rcv_pkts);
        EXPECT_EQ(std::to_string(std::stoull(smp(after, "PortXmitData")) * 4), xmit_data);
        EXPECT_EQ(std::to_string(std::stoull(smp(after, "PortRcvData")) * 4), rcv_data);
        EXPECT_NE("0", xmit_pkts);
    }
    EXPECT_TRUE(same) << "the counters never stood still between two reads";
    EXPECT_EQ("17", value("65", "symbol_err_cnt"));
}

TEST_F(ExternalPortInfo, ADisabledPortReadsDisabledNeverPolling)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // Configured down from the start: the link is gone in the fabric too.
    EXPECT_EQ("Polling", smp(rig_->fabric().smpquery({"-D", "portinfo", "0", "2"}), "PhysLinkState"));
    EXPECT_EQ("Disabled", value("66", "physical_state"));
    EXPECT_EQ("Down", value("66", "state"));

    // Switched off while running: PAOS down, the fabric's link follows.
    EXPECT_EQ("LinkUp", value("67", "physical_state"));
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/67/enable", "uint8", "0"}).code);
    std::string phys;
    for (int i = 0; i < 50 && (phys = value("67", "physical_state")) != "Disabled"; ++i) {
        rig_->shift_clock(5001);
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ("Disabled", phys);
    EXPECT_EQ("Polling", smp(rig_->fabric().smpquery({"-D", "portinfo", "0", "3"}), "PhysLinkState"));

    // And on again.
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/67/enable", "uint8", "1"}).code);
    for (int i = 0; i < 50 && (phys = value("67", "physical_state")) != "LinkUp"; ++i) {
        rig_->shift_clock(5001);
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ("LinkUp", phys);
}

TEST_F(ExternalPortInfo, OneHardwareReadPerPortAndInterval)
{
    ASSERT_NO_FATAL_FAILURE(start());
    rig_->shift_clock(5001);
    size_t at = rig_->journal().size();
    // Many attributes of one port within an interval: one read.
    for (const char *attr : {"state", "speed", "mtu", "xmit_pkts", "all_data"}) {
        EXPECT_NE("", value("65", attr)) << attr;
    }
    EXPECT_EQ(1u, count_reg(rig_->journal(at), "PMTU"));
    EXPECT_EQ(1u, count_reg(rig_->journal(at), "PTYS"));
    EXPECT_EQ(1u, count_reg(rig_->journal(at), "PVLC"));

    // The next interval reads again.
    rig_->shift_clock(5001);
    at = rig_->journal().size();
    EXPECT_NE("", value("65", "state"));
    EXPECT_NE("", value("65", "width"));
    EXPECT_EQ(1u, count_reg(rig_->journal(at), "PMTU"));

    // Port A, port B, port A within one interval: three reads.
    rig_->shift_clock(5001);
    at = rig_->journal().size();
    EXPECT_NE("", value("65", "state"));
    EXPECT_NE("", value("67", "state"));
    EXPECT_NE("", value("65", "state"));
    EXPECT_EQ(3u, count_reg(rig_->journal(at), "PMTU"));

    // A failed register read silences the port for the rest of its interval, and only that.
    rig_->shift_clock(5001);
    at = rig_->journal().size();
    rig_->poke("fault PMTU 1 1 1 4\n");
    EXPECT_EQ("", value("65", "state"));
    EXPECT_TRUE(receiver_->wait_for("Unable to read PMTU register, device 1 port 1"));
    EXPECT_TRUE(receiver_->wait_for("A problem occurred while getting port configuration"));
    EXPECT_EQ("", value("65", "mtu"));
    EXPECT_EQ(1u, count_reg(rig_->journal(at), "PMTU"));
    rig_->shift_clock(5001);
    EXPECT_EQ("Active", value("65", "state"));
}

TEST_F(ExternalPortInfo, ABrokenLidRouteBlocksTheCountersForFiftySeconds)
{
    // No subnet manager: the forwarding tables are empty, the switch answers its own LID.
    ASSERT_NO_FATAL_FAILURE(start(false));
    rig_->shift_clock(5001);
    EXPECT_NE("", value("65", "xmit_pkts"));

    // Its counters stop answering: the route check fails and blocks them.
    ASSERT_TRUE(rig_->fabric().console("Error \"sw1\"[0] 100 18"));
    rig_->shift_clock(5001);
    EXPECT_EQ("", value("65", "xmit_pkts"));
    EXPECT_TRUE(receiver_->wait_for("Failed to get port counters device:[1] port:[1] swid:[0] "
                                    "attribute:[xmit_pkts], using cache:[true] code:[6,MAD_SEND_FAILED]"));
    EXPECT_TRUE(receiver_->wait_for("Lid route validation failed for device:[1,"));
    EXPECT_TRUE(receiver_->wait_for("code:[3,LID NOT FOUND AT FORWARDING TABLE, SM DID NOT "
                                    "CONFIGURED IT]"));
    EXPECT_TRUE(receiver_->wait_for("Port Counters will be blocked for 50 seconds"));
    // Other attributes of the port still answer in that interval.
    EXPECT_NE("", value("65", "state"));

    // Blocked: the counters are a valid zero, read without a datagram.
    rig_->shift_clock(5001);
    EXPECT_EQ("0", value("65", "xmit_pkts"));
    EXPECT_TRUE(receiver_->wait_for("Is SM connected:[No], Pass timeout:[No]. Skipping port "
                                    "counters, no LID route"));

    // Past the block the counters are tried again, and the route is checked again.
    rig_->shift_clock(50001);
    EXPECT_EQ("", value("65", "xmit_pkts"));
    EXPECT_TRUE(receiver_->wait_for("Re-check the counters and lid route path"));

    // With the counters back the next try reads them.
    ASSERT_TRUE(rig_->fabric().console("Error \"sw1\"[0] 0 18"));
    ASSERT_TRUE(rig_->fabric().console("PerformanceSet \"sw1\"[1] PortCounters.SymbolErrorCounter=5"));
    rig_->shift_clock(50001);
    EXPECT_EQ("5", value("65", "symbol_err_cnt"));
}

}  // namespace
