// The log lines that the flows are known by, exactly and at their levels: operators and
// the port manager's people search the logs for them.  One walk through the flows of a
// standalone switch: the device add and its answer (also a failed one), the port enable
// with its PLIB and PAOS writes, attribute changes on a running port, a route
// announcement.
#include <gtest/gtest.h>

#include <filesystem>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  log-switch\n"
    "/system/chassis/sys_disp_str                string    log rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n";

class FlowLogLines : public ovd_test::DaemonRigTest {
protected:
    void SetUp() override
    {
        ovd_test::DaemonRigTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        ASSERT_NO_FATAL_FAILURE(rig_->start(kConfig, "", "builtin:standalone36"));
    }

    // The line arrives, at the level given ("NOTICE", "INFO", ...).
    void expect_line(const std::string &level, const std::string &text)
    {
        EXPECT_TRUE(receiver_->wait_for("[ovd." + level + "]: " + text, 10s))
            << "missing: [" << level << "] " << text;
    }

    // A line with source information: the level, then function, file and line, then the
    // text.
    void expect_source_line(const std::string &level, const std::string &text)
    {
        ASSERT_TRUE(receiver_->wait_for(text, 10s)) << "missing: " << text;
        const std::vector<std::string> lines = receiver_->lines();
        const std::string &line = lines.at(static_cast<size_t>(receiver_->find(text)));
        EXPECT_NE(line.find("[ovd." + level + "]: "), std::string::npos) << line;
        EXPECT_NE(line.find(", build "), std::string::npos) << line;
    }

};

TEST_F(FlowLogLines, EachFlowIsKnownByItsLines)
{
    // The device add: the key first, the answer last.
    ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
    expect_line("NOTICE", "OVD handles device add event for device:[1,SW]");
    expect_line("NOTICE", "Writing system_m_key to VQD for device [1]");
    expect_line("NOTICE", "OVD sends device: [1, SW/1] add done event to portd with: [Success] "
                          "status");

    // A failed add is answered too, and says so.
    ASSERT_EQ(0, rig_->lite()
                     .ctl({"event", "/portd/events/ib-device-add", "dev_id=uint32:217",
                           "is_master=tbool:false", "subsystem_name=string:x",
                           "port_num=uint32:1", "index_inside_slot=uint32:0"})
                     .code);
    expect_source_line("ERR", "Got device ID 217 which exceeds maximum device ID 216");
    expect_line("NOTICE", "OVD sends device: [217, /0] add done event to portd with: [Failure] "
                          "status");

    // The enable of local port 5: PLIB, then the port up.
    ASSERT_EQ(0, rig_->lite()
                     .ctl({"event", "/portd/events/port-enable", "dev_id=uint32:1",
                           "port_num=uint32:1", "operation=uint8:0", "swid_1=uint8:0",
                           "local_1=uint8:5", "ifindex_1=uint32:69"})
                     .code);
    expect_line("NOTICE", "OVD handles device port enable event for device: 1, SW");
    expect_line("NOTICE", "OVD configures port attributes for device: [1, SW], label port: [5]");
    expect_line("INFO", "Set PLIB 1 5 5");
    expect_line("INFO", "Set PLIB 1 5 5 DONE [return value: 0]");
    expect_line("INFO", "set port: [UP] (PAOS), Device id: [SW/1, 1], label port: [5], local "
                        "port [5]");
    expect_line("NOTICE", "OVD sends device [1, SW/1] port enable done event to portd with "
                          "[Success] status. Number of configured ports: [1]");

    // Attribute changes on the running port: down, the write, up again.
    receiver_->clear();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/69/speed", "uint8", "7"}).code);
    expect_line("NOTICE", "New [SPEED] of [1,SW/1 5] is: [7, sdr, ddr, qdr] (PTYS)");
    expect_line("INFO", "set port: [DOWN] (PAOS), Device id: [SW/1, 1], label port: [5], local "
                        "port [5]");
    expect_line("INFO", "set port: [UP] (PAOS), Device id: [SW/1, 1], label port: [5], local "
                        "port [5]");
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/69/width", "uint8", "4"}).code);
    expect_line("NOTICE", "New [WIDTH] of [1,SW/1 5] is: [4, 4X] (PTYS)");

    // A route announcement replaces the tables.
    ovd_test::write_file(dir_ + "/routes", "swid 0\nroute 3 1:35\nroute 4 1:35 3:1\n");
    ASSERT_EQ(0, rig_->portd({"route-update", dir_ + "/routes"}).code);
    expect_line("NOTICE", "Received direct route update event");
    expect_line("NOTICE", "OVD handles direct route update event");
    expect_line("NOTICE", "OVD done handling  direct route update event, number of devices : [2] "
                          "number of paths : [2] , number of hops: [3] ,  ");
}

}  // namespace
