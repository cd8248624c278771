// The /ib/state tree as an operator's tools see it: queries through mgmtd-lite, which
// forwards what the daemon registered, answered by the daemon from its tables.
#include <gtest/gtest.h>

#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  tree-switch\n"
    "/system/chassis/sys_disp_str                string    tree rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/locallinks/time_to_settle        time_sec  00:00:01\n";

class StateTree : public ovd_test::DaemonRigTest {
protected:
    void SetUp() override
    {
        ovd_test::DaemonRigTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        // LIDs assigned, as on a switch in a running subnet.
        std::string why;
        ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        ASSERT_NO_FATAL_FAILURE(
            rig_->start(kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"),
                        "builtin:standalone36"));
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
    }

    std::string get(const std::string &name) { return node(name); }
};

TEST_F(StateTree, DevicesLimitsAndSettledStatusAreAnswered)
{
    // The device and its hardware speed (EDR and below: the model's 0x3f speeds).
    EXPECT_EQ("uint8 63", get("/ib/state/devid/1/max-hw-cap-speed"));
    const ovd_test::CtlResult devs = rig_->lite().ctl({"iterate", "/ib/state/devid"});
    EXPECT_EQ(0, devs.code) << devs.err;
    EXPECT_NE(devs.out.find("/ib/state/devid/1 "), std::string::npos) << devs.out;

    // The three limits of a port, whatever the port does: its speeds are the device's
    // (the model announces a limit of FDR10 and below), with eight VLs.
    EXPECT_EQ("uint8 15", get("/ib/state/externalports/69/port_max_speed_limit"));
    EXPECT_EQ("uint8 8", get("/ib/state/externalports/69/port_vl_limit"));
    EXPECT_EQ("uint8 8", get("/ib/state/externalports/69/port_vl_default"));

    // Not settled before the system says it is configured; settled a second after.
    EXPECT_EQ("bool false", get("/ib/state/locallinks/settled"));
    ASSERT_EQ(0, rig_->lite().ctl({"event", "/system/chassis/events/system-configure-done"}).code);
    ASSERT_TRUE(receiver_->wait_for("Received system configured done event"));
    std::string settled;
    for (int i = 0; i < 100 && (settled = get("/ib/state/locallinks/settled")) != "bool true"; ++i) {
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_EQ("bool true", settled);
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: Timeout waiting for local links to settled. "
                                    "return: [true]"));
    // Under every root the daemon accepts, whatever the level in between.
    for (const char *root : {"externalports", "externalports-brief", "externalports-counters",
                             "externalports-hashed", "cable_info", "internal-spine-ports",
                             "internal-spine-ports-brief", "internal-leaf-ports",
                             "internal-leaf-ports-brief", "swid", "devid", "locallinks"}) {
        const std::string name = std::string("/ib/state/") + root + "/3/is_initializing";
        EXPECT_EQ("string false", get(name)) << name;
    }
    // Outside them nothing answers, and the session stays.
    EXPECT_EQ("", get("/ib/state/nowhere/3/is_initializing"));
    EXPECT_EQ("uint8 8", get("/ib/state/externalports/69/port_vl_default"));
}

TEST_F(StateTree, OddNamesAreRefusedAsTheirLevelSays)
{
    // Device 0 is out of the range of this leaf; device 2 isn't there.
    EXPECT_EQ("", get("/ib/state/devid/0/max-hw-cap-speed"));
    EXPECT_TRUE(receiver_->wait_for("The device value at node_name: /ib/state/devid/0/max-hw-cap-speed "
                                    "must be between 1 - 216"));
    EXPECT_EQ("", get("/ib/state/devid/2/max-hw-cap-speed"));
    EXPECT_TRUE(receiver_->wait_for("device id number 2 doesn't exist at ovd"));

    // A port nobody announced fails the get; the answer is still given, empty.
    EXPECT_EQ("", get("/ib/state/externalports/4000/port_vl_limit"));
    EXPECT_TRUE(receiver_->wait_for("Get handler for '/ib/state/externalports/4000/port_vl_limit'"));

    // A port that was never enabled has no live attributes.
    EXPECT_EQ("", get("/ib/state/externalports/69/speed"));
    // The family in the name picks the producer: asked as an internal port, a port without
    // a neighbour has no link to read, and only its physical state answers.
    EXPECT_EQ("", get("/ib/state/internal-leaf-ports/69/speed"));
    EXPECT_EQ("string Polling", get("/ib/state/internal-leaf-ports/69/physical_state"));
    // A SWID of 8, device 217, a name with too few parts: nothing, and the session stays.
    EXPECT_EQ("", get("/ib/state/swid/8/my_lid"));
    EXPECT_TRUE(receiver_->wait_for("The swid value at node_name: /ib/state/swid/8/my_lid must "
                                    "be between 0 - 7"));
    EXPECT_EQ("", get("/ib/state/devid/217/max-hw-cap-speed"));
    EXPECT_EQ("", get("/ib/state/swid/0"));
    // A SWID number read from a port family's level: the last part decides.
    EXPECT_EQ("", get("/ib/state/externalports/9/my_lid"));
    EXPECT_TRUE(receiver_->wait_for("The swid value at node_name: /ib/state/externalports/9/my_lid "
                                    "must be between 0 - 7"));
    // The daemon still answers.
    EXPECT_EQ("uint8 8", get("/ib/state/externalports/69/port_vl_default"));
}

}  // namespace
