// Ports losing what they had, end to end: a deleted configuration node puts the port's
// defaults back into the hardware (down, the writes, up again), and a device the port
// manager removes takes its ports out of the daemon's tables, to come back when it is
// added again.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Port 67 (device 1, local port 3) runs a configured MTU, VLs and speed.
const char kConfig[] =
    "/system/hostname                            hostname  removal-switch\n"
    "/system/chassis/sys_disp_str                string    removal rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/67/enable          uint8     1\n"
    "/ib/config/externalports/67/mtu             string    2K\n"
    "/ib/config/externalports/67/op_vls          uint8     4\n"
    "/ib/config/externalports/67/speed           uint8     7\n";

class PortRemoval : public ovd_test::DaemonRigTest {
protected:
    void start()
    {
        ASSERT_NO_FATAL_FAILURE(rig_->start(
            kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), "builtin:standalone36"));
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
        ASSERT_EQ(0, rig_->portd({"enable", "1"}).code);
    }

    std::string get(const std::string &name) { return node(name); }
};

TEST_F(PortRemoval, ADeletedConfigurationPutsThePortsDefaultsBack)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const size_t before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"delete", "/ib/config/externalports/67/mtu"}).code);
    // Down, the four attributes in the order of the composite write, up again.
    const std::vector<ovd_test::RegisterAccess> acc = journal_after(before, 5);
    std::vector<std::string> writes;
    for (const auto &a : acc) {
        if (a.cmd == "SET") {
            writes.push_back(a.reg);
        }
    }
    ASSERT_EQ((std::vector<std::string>{"PAOS", "PVLC", "PMTU", "PTYS", "PAOS"}), writes);
    std::map<std::string, const ovd_test::RegisterAccess *> last;
    for (const auto &a : acc) {
        if (a.cmd == "SET") {
            last[a.reg] = &a;
        }
    }
    EXPECT_EQ(2u, acc.front().num("admin_status"));
    EXPECT_EQ(1u, last["PAOS"]->num("admin_status"));
    EXPECT_EQ(4096u, last["PMTU"]->num("admin_mtu"));
    // The device's speeds (the model's limit, FDR10 and below), both widths.
    EXPECT_EQ(0x05000fu, last["PTYS"]->num("ib_proto_admin"));
    EXPECT_EQ(8u, last["PVLC"]->num("vl_admin"));
    EXPECT_TRUE(receiver_->wait_for("Configure IB attributes of label port: [3], device: [1, SW/1] "
                                    "after deletion."));
    EXPECT_TRUE(receiver_->wait_for("New MTU of [1,SW/1 3]  is: [4096, 4096] (PMTU)"));
    EXPECT_TRUE(receiver_->wait_for("New FEC of [1,SW/1 3]  is: [0] (PPLM)"));
}

TEST_F(PortRemoval, ARemovedDeviceTakesItsPortsAndCanComeBack)
{
    ASSERT_NO_FATAL_FAILURE(start());
    EXPECT_NE("", get("/ib/state/externalports/65/port_vl_limit"));
    const size_t before = rig_->journal().size();

    ovd_test::CtlResult done = ask({"event", "/portd/events/device-remove", "dev_id=uint32:1"},
                                   "/ib/events/device-remove-done");
    ASSERT_EQ(0, done.code) << done.err;
    EXPECT_NE(done.out.find("status"), std::string::npos) << done.out;
    EXPECT_NE(done.out.find("uint32  0"), std::string::npos) << done.out;
    EXPECT_TRUE(receiver_->wait_for("OVD handles remove device event for device: 1, SW"));
    EXPECT_TRUE(receiver_->wait_for("Send remove device 1 done event to portd"));
    // The hardware is left alone, the ports and the device are gone.
    EXPECT_TRUE(rig_->journal(before).empty());
    EXPECT_EQ("", get("/ib/state/externalports/65/port_vl_limit"));
    EXPECT_EQ("", get("/ib/state/devid/1/max-hw-cap-speed"));
    const ovd_test::CtlResult devs = rig_->lite().ctl({"iterate", "/ib/state/devid"});
    EXPECT_EQ(devs.out.find("/ib/state/devid/1"), std::string::npos) << devs.out;
    // The port table printed now has none of them.
    ASSERT_EQ(0, rig_->lite().ctl({"action", "/ib/actions/print-if"}).code);
    ASSERT_TRUE(receiver_->wait_for("Ovd dump of ifindexs hash table"));
    receiver_->drain(200ms);
    EXPECT_LT(receiver_->find("Ifindex          : [6"), 0);

    // A device that was never added: a warning, and success.
    done = ask({"event", "/portd/events/device-remove", "dev_id=uint32:7"},
               "/ib/events/device-remove-done");
    EXPECT_NE(done.out.find("uint32  0"), std::string::npos) << done.out;
    EXPECT_TRUE(receiver_->wait_for("Try to remove device ID 7 which wasn't added before to OVD"));
    // One out of range: its code.
    done = ask({"event", "/portd/events/device-remove", "dev_id=uint32:300"},
               "/ib/events/device-remove-done");
    EXPECT_NE(done.out.find("uint32  14035"), std::string::npos) << done.out;
    EXPECT_NE(done.out.find("uint32  300"), std::string::npos) << done.out;

    // Added again, its ports answer again; their configuration survived.
    ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
    EXPECT_NE("", get("/ib/state/externalports/65/port_vl_limit"));
    EXPECT_EQ("uint8 63", get("/ib/state/devid/1/max-hw-cap-speed"));
}

}  // namespace
