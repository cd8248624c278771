// Moving ports between switch partitions while the switch runs, end to end on a switch
// split into two SWIDs: by the configuration node of the port's SWID and by the port
// manager's hand-shake, each with the register accesses in their order.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Profile 1: several switch partitions.  Port 65 (local 1) starts in SWID 0, port 83
// (local 19) in SWID 1.
const char kConfig[] =
    "/system/hostname                            hostname  swid-switch\n"
    "/system/chassis/sys_disp_str                string    swid rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     1\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/65/mtu             string    2K\n";

class SwidAssign : public ovd_test::DaemonRigTest {
protected:
    void start()
    {
        model_ = ovd_test::register_models_dir() + "/multi_swid.model";
        ASSERT_NO_FATAL_FAILURE(
            rig_->start(kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), model_));
        ASSERT_EQ(0, rig_->portd({"--model", model_, "add-devices", "1"}).code);
        ASSERT_EQ(0, rig_->portd({"--model", model_, "enable", "1"}).code);
    }

    // The register writes after `from`, as "REG" or "PAOS up/down" or "PSPA <swid>", once
    // `last` has been written.
    std::vector<std::string> writes_until(size_t from, const std::string &last)
    {
        std::vector<std::string> out;
        for (int i = 0; i < 300; ++i) {
            out.clear();
            for (const auto &a : rig_->journal(from)) {
                if (a.cmd != "SET") {
                    continue;
                }
                if (a.reg == "PAOS") {
                    out.push_back(a.num("admin_status") == 1 ? "PAOS up" : "PAOS down");
                } else if (a.reg == "PSPA") {
                    out.push_back("PSPA " + std::to_string(a.num("swid")));
                } else {
                    out.push_back(a.reg);
                }
            }
            if (!out.empty() && out.back() == last) {
                break;
            }
            std::this_thread::sleep_for(10ms);
        }
        return out;
    }

    std::string model_;
};

TEST_F(SwidAssign, MoveDetachAndAttachByConfiguration)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // Move port 65 from SWID 0 to SWID 1: down, the defaults, out of SWID 0, into SWID 1,
    // its attributes, mapped, up.
    size_t at = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/portd/config/ifindex/65/swid", "uint8", "1"}).code);
    EXPECT_EQ((std::vector<std::string>{"PAOS down", "PVLC", "PMTU", "PTYS", "PSPA 255", "PSPA 1",
                                        "PVLC", "PMTU", "PTYS", "PLIB", "PAOS up"}),
              writes_until(at, "PAOS up"));
    EXPECT_TRUE(receiver_->wait_for("OVD handles IB label port:[1], ifindex:[65], [SWID 0 ==> 1] "
                                    "configuration change"));
    EXPECT_NE("", rig_->lite().ctl({"get", "/ib/state/externalports/65/port_vl_limit"}).out);

    // Detach by deleting the node: down, defaults, unmapped; the configuration is told the
    // port is enabled.
    at = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"delete", "/portd/config/ifindex/65/swid"}).code);
    EXPECT_EQ((std::vector<std::string>{"PAOS down", "PVLC", "PMTU", "PTYS", "PSPA 255"}),
              writes_until(at, "PSPA 255"));
    EXPECT_TRUE(rig_->lite().wait_for_log("set from 'IB Daemon': modify /ib/config/externalports/65/slot=uint32:1; "
                                          "modify /ib/config/externalports/65/port=uint32:1; "
                                          "modify /ib/config/externalports/65/enable=uint8:1"))
        << rig_->lite().log();
    EXPECT_EQ("", rig_->lite().ctl({"get", "/ib/state/externalports/65/port_vl_limit"}).out);

    // Attach to SWID 0: mapped, its attributes, up.
    at = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/portd/config/ifindex/65/swid", "uint8", "0"}).code);
    const std::vector<std::string> attach = writes_until(at, "PAOS up");
    ASSERT_FALSE(attach.empty());
    EXPECT_EQ("PSPA 0", attach.front());
    EXPECT_EQ("PAOS up", attach.back());
}

TEST_F(SwidAssign, TheHandShakeMovesAPortWithItsDoneEvents)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const std::vector<std::string> port83 = {"dev_id=uint32:1", "port_num=uint32:1",
                                             "operation=uint8:1", "swid_1=uint8:1",
                                             "local_1=uint8:19", "ifindex_1=uint32:83",
                                             "force_1=bool:true"};
    std::vector<std::string> disable = {"event", "/portd/events/port-disable"};
    disable.insert(disable.end(), port83.begin(), port83.end());
    size_t at = rig_->journal().size();
    ovd_test::CtlResult done = ask(disable, "/portd/events/port-disable-done");
    ASSERT_EQ(0, done.code) << done.err;
    EXPECT_NE(done.out.find("operation  uint8   1"), std::string::npos) << done.out;
    EXPECT_NE(done.out.find("status     uint32  0"), std::string::npos) << done.out;
    EXPECT_EQ((std::vector<std::string>{"PAOS down"}), writes_until(at, "PAOS down"));
    EXPECT_TRUE(receiver_->wait_for("Forcing port DOWN: [19]. Assign port to swid flow: [1]"));

    // Into SWID 0, forced up.
    std::vector<std::string> enable = {"event", "/portd/events/port-enable"};
    for (std::string arg : port83) {
        if (arg == "swid_1=uint8:1") {
            arg = "swid_1=uint8:0";
        }
        enable.push_back(arg);
    }
    at = rig_->journal().size();
    done = ask(enable, "/portd/events/port-enable-done");
    ASSERT_EQ(0, done.code) << done.err;
    EXPECT_NE(done.out.find("status     uint32  0"), std::string::npos) << done.out;
    const std::vector<std::string> up = writes_until(at, "PAOS up");
    ASSERT_FALSE(up.empty());
    EXPECT_EQ("PLIB", up.front());
    EXPECT_EQ("PAOS up", up.back());
    EXPECT_TRUE(receiver_->wait_for("Forcing port UP: [19]. Assign port to swid flow: [1]"));

    // The port manager's stand-in plays the same hand-shake: port 84 from SWID 1 to 0.
    at = rig_->journal().size();
    const ovd_test::CtlResult moved =
        rig_->portd({"--model", model_, "move-port", "84", "0", "--force"});
    EXPECT_EQ(0, moved.code) << moved.out << moved.err;
    EXPECT_NE(moved.out.find("/portd/events/port-disable-done: device 1 status 0"),
              std::string::npos)
        << moved.out;
    EXPECT_NE(moved.out.find("/portd/events/port-enable-done: device 1 status 0"),
              std::string::npos)
        << moved.out;
    const std::vector<std::string> move = writes_until(at, "PAOS up");
    ASSERT_FALSE(move.empty());
    EXPECT_EQ("PAOS down", move.front());
    EXPECT_EQ("PAOS up", move.back());

    // A port the daemon doesn't hold: its error in the answer.
    std::vector<std::string> bad = {"event",          "/portd/events/port-disable",
                                    "dev_id=uint32:1", "port_num=uint32:1",
                                    "operation=uint8:1", "swid_1=uint8:0",
                                    "local_1=uint8:40", "ifindex_1=uint32:104"};
    done = ask(bad, "/portd/events/port-disable-done");
    EXPECT_NE(done.out.find("status     uint32  14004"), std::string::npos) << done.out;
}

}  // namespace
