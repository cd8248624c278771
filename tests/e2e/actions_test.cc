// The /ib/actions/... commands end to end: the counter reset beside perfquery, the LED
// test with its ten-second timer (time moved through the rig's clock), and the print
// actions' answers and log lines.
#include <gtest/gtest.h>

#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  action-switch\n"
    "/system/chassis/sys_disp_str                string    action rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/66/enable          uint8     0\n";

class Actions : public ovd_test::DaemonRigTest {
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
        ASSERT_EQ(0, rig_->portd({"enable", "1"}).code);
    }

    ovd_test::CtlResult action(const std::vector<std::string> &args)
    {
        std::vector<std::string> argv = {"--json", "action"};
        argv.insert(argv.end(), args.begin(), args.end());
        return rig_->lite().ctl(argv);
    }
};

TEST_F(Actions, ResetPortCountersClearsWhatPerfquerySees)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_TRUE(rig_->fabric().console("PerformanceSet \"sw1\"[1] PortCounters.SymbolErrorCounter=9"));
    ASSERT_TRUE(rig_->fabric().console("PerformanceSet \"sw1\"[1] PortCounters.PortXmitData=4000"));
    EXPECT_EQ("9", ovd_test::Fabric::field(rig_->fabric().perfquery({"1", "1"}).out,
                                           "SymbolErrorCounter"));
    ovd_test::CtlResult r = action({"/ib/actions/reset-port-counters", "ifindex=uint32:65"});
    EXPECT_EQ(0, r.code) << r.out << r.err;
    EXPECT_EQ("{\"code\":0,\"bindings\":[]}\n", r.out);
    const ovd_test::FabricResult after = rig_->fabric().perfquery({"1", "1"});
    EXPECT_EQ("0", ovd_test::Fabric::field(after.out, "SymbolErrorCounter")) << after.out;
    // (A sweep of the subnet manager may cross the port right after the reset.)
    EXPECT_LT(std::stoull(ovd_test::Fabric::field(after.out, "PortXmitData")), 4000u) << after.out;
    // The daemon reads the cleared counters in its next interval.
    rig_->shift_clock(5001);
    const std::string cleared =
        rig_->lite().ctl({"get", "/ib/state/externalports/65/symbol_err_cnt"}).out;
    EXPECT_EQ(cleared.size() - 4, cleared.rfind("  0\n")) << cleared;

    // A port nobody announced, a value of the wrong type, no value at all.
    for (const std::vector<std::string> &bad :
         {std::vector<std::string>{"/ib/actions/reset-port-counters", "ifindex=uint32:4000"},
          std::vector<std::string>{"/ib/actions/reset-port-counters", "ifindex=string:65"},
          std::vector<std::string>{"/ib/actions/reset-port-counters"}}) {
        r = action(bad);
        EXPECT_EQ(1, r.code) << bad.back();
        EXPECT_EQ("{\"code\":1,\"message\":\"The port is not valid.\"}\n", r.out) << bad.back();
    }
    EXPECT_TRUE(receiver_->wait_for("Invalid port 4000"));
}

TEST_F(Actions, LedTestRunsTenSecondsAndIsNotProlonged)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // Without the panel map there is no port to light.
    ovd_test::CtlResult r = action({"/ib/actions/led-test-port"});
    EXPECT_EQ("{\"code\":14002,\"message\":\"Unable to set LEDs\"}\n", r.out);
    EXPECT_TRUE(receiver_->wait_for("ovd_all_port_leds: No external ports found!"));

    const ovd_test::CtlResult map = rig_->portd({"publish-map", "1"});
    ASSERT_EQ(0, map.code) << map.err;
    EXPECT_EQ("panel map: 36 ports published\n", map.out);
    r = action({"/ib/actions/led-test-port"});
    EXPECT_EQ("{\"code\":0,\"bindings\":[]}\n", r.out) << r.err;
    // A second request within the ten seconds finds the test running.
    rig_->shift_clock(9000);
    r = action({"/ib/actions/led-test-port"});
    EXPECT_EQ("{\"code\":0,\"message\":\"LED test active\",\"bindings\":[]}\n", r.out);
    // Ten seconds after the first, the LEDs are the hardware's again: a new test starts.
    // (The loop sleeps until its next descriptor wakes it; a query does, and the timer
    // fires in that round.)
    rig_->shift_clock(1500);
    rig_->lite().ctl({"get", "/ib/state/devid/1/max-hw-cap-speed"});
    r = action({"/ib/actions/led-test-port"});
    EXPECT_EQ("{\"code\":0,\"bindings\":[]}\n", r.out);
}

TEST_F(Actions, PrintActionsLogTheTablesAndAnswerOneLine)
{
    ASSERT_NO_FATAL_FAILURE(start(false));
    const std::vector<std::pair<std::string, std::string>> answers = {
        {"/ib/actions/print-if", "Success print ifindexs hash table"},
        {"/ib/actions/print-config", "Success print ifindexs hash table"},
        {"/ib/actions/print-file", "The max port speed hash table is empty\\n"},
        {"/ib/actions/print-dev", "Success print devices table"},
        {"/ib/actions/print-ekey", "Success print ekey mapping hash table"},
        {"/ib/actions/print-dr", "The direct route tables are empty"},
    };
    for (const auto &one : answers) {
        const ovd_test::CtlResult r = action({one.first});
        EXPECT_EQ(0, r.code) << one.first << r.err;
        EXPECT_EQ("{\"code\":0,\"message\":\"" + one.second + "\",\"bindings\":[]}\n", r.out)
            << one.first;
    }
    // The port table, a port at a time, at level 5.
    for (const char *line : {"[ovd.NOTICE]:        Ovd dump of ifindexs hash table",
                             "[ovd.NOTICE]: Ifindex          : [65] ",
                             "[ovd.NOTICE]: Devid            : [SW, 1] ",
                             "[ovd.NOTICE]: Enabled state    : [Enabled] ",
                             "[ovd.NOTICE]: Port type        : [external]",
                             "[ovd.NOTICE]:        Ovd dump of configuration hash table",
                             "[ovd.NOTICE]: Enable    : [0]",
                             "[ovd.NOTICE]:              Devices info table", "[ovd.NOTICE]: devid = 1",
                             "[ovd.NOTICE]: subsystem name = SW",
                             "[ovd.NOTICE]:        Ekey dump of hash table",
                             "[ovd.WARNING]: handle_direct_route_print_action"}) {
        EXPECT_TRUE(receiver_->wait_for(line)) << line;
    }
    // The virtual ports' table is there, empty on this switch.
    const ovd_test::CtlResult r = action({"/ib/actions/print-virtual-if"});
    EXPECT_EQ(0, r.code);
    EXPECT_NE(r.out.find("virtual"), std::string::npos) << r.out;

    // After a route announcement the three route tables are dumped.
    ovd_test::write_file(dir_ + "/routes", "swid 0\nroute 1 1:35\n");
    ASSERT_EQ(0, rig_->portd({"route-update", dir_ + "/routes"}).code);
    ASSERT_TRUE(receiver_->wait_for("OVD done handling  direct route update event"));
    const ovd_test::CtlResult dr = action({"/ib/actions/print-dr"});
    EXPECT_EQ("{\"code\":0,\"message\":\"Success print direct route tables\",\"bindings\":[]}\n",
              dr.out);
    for (const char *line : {"Dump of devices table", "Cell number 1 in devices table:",
                             "Dump of paths table", "number of hops in path       : 1",
                             "Dump of hops table", "label port                  : 35"}) {
        EXPECT_TRUE(receiver_->wait_for(line)) << line;
    }
}

}  // namespace
