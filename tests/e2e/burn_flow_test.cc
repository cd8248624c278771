// The port manager's firmware-burn flow end to end: a bare device, one of its ports up at
// the lowest speed with the system M_Key written first, and the answers portd waits for.
#include <gtest/gtest.h>

#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  burn-switch\n"
    "/system/chassis/sys_disp_str                string    burn rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n";

class BurnFlow : public ovd_test::DaemonRigTest {
protected:
    void start(const std::string &extra = "")
    {
        ASSERT_NO_FATAL_FAILURE(rig_->start(std::string(kConfig) + extra, "",
                                            "builtin:standalone36"));
        // The SWID's hardware context comes with a full add; the burn flow then replaces
        // the device's record with a bare one.
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
    }

    std::vector<std::string> writes(size_t from)
    {
        std::vector<std::string> out;
        for (const auto &a : rig_->journal(from)) {
            if (a.cmd == "SET") {
                out.push_back(a.reg);
            }
        }
        return out;
    }
};

TEST_F(BurnFlow, ABareDeviceAndOnePortAtTheLowestSpeed)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ovd_test::CtlResult r = rig_->portd({"burn-device", "1"});
    ASSERT_EQ(0, r.code) << r.out << r.err;
    EXPECT_NE(r.out.find("/ib/events/add-burn-device-done: device 1 status 0"), std::string::npos)
        << r.out;
    EXPECT_TRUE(receiver_->wait_for("OVD handles add device: [1, VQ_SW36_EDR/0] burn event"));
    EXPECT_TRUE(receiver_->wait_for("OVD sends add burn device: [1, VQ_SW36_EDR] done event to "
                                    "portd with: [Success] status"));

    const size_t before = rig_->journal().size();
    r = rig_->portd({"burn-port", "1", "5"});
    ASSERT_EQ(0, r.code) << r.out << r.err;
    EXPECT_NE(r.out.find("/ib/events/enable-burn-port-done: device 1 status 0"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("label_port   uint8   5"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("lcl_port     uint8   5"), std::string::npos) << r.out;
    // The M_Key first (the updater's node is absent: the device takes it), then the speed,
    // then the port mapped to its InfiniBand number, its speed, and up.
    EXPECT_TRUE(receiver_->wait_for("binding [/fw_updt/state/devices/1/system_m_key_supported] "
                                    "was not found. Assuming the device supports the system_m_key"));
    EXPECT_EQ((std::vector<std::string>{"SYSTEM_M_KEY", "PLIB", "PTYS", "PAOS"}), writes(before));
    for (const auto &a : rig_->journal(before)) {
        if (a.reg == "PTYS" && a.cmd == "SET") {
            EXPECT_EQ(1u, a.num("ib_proto_admin") & 0xff);
        }
        if (a.reg == "PAOS" && a.cmd == "SET") {
            EXPECT_EQ(1u, a.num("admin_status"));
            EXPECT_EQ(5u, a.num("local_port"));
        }
    }
    // The port is in the daemon's table now.
    r = rig_->lite().ctl({"--json", "action", "/ib/actions/print-if"});
    EXPECT_TRUE(receiver_->wait_for("Ifindex          : [69] "));
}

TEST_F(BurnFlow, NoMKeyWhereTheUpdaterSaysSoAndSilenceWhereNothingIsOurs)
{
    ASSERT_NO_FATAL_FAILURE(
        start("/fw_updt/state/devices/1/system_m_key_supported tbool false\n"));
    ASSERT_EQ(0, rig_->portd({"burn-device", "1"}).code);
    size_t before = rig_->journal().size();
    ovd_test::CtlResult r = rig_->portd({"burn-port", "1", "7"});
    ASSERT_EQ(0, r.code) << r.out << r.err;
    EXPECT_EQ((std::vector<std::string>{"PLIB", "PTYS", "PAOS"}), writes(before));

    // A SWID this daemon doesn't serve: nothing done, nobody answered.
    before = rig_->journal().size();
    r = rig_->portd({"--swid", "3", "--timeout", "2", "burn-port", "1", "8"});
    EXPECT_EQ(4, r.code) << r.out << r.err;
    EXPECT_TRUE(writes(before).empty());
    // A device never announced: its range error, and no answer either.
    r = rig_->lite().ctl({"event", "/portd/events/enable-burn-port", "dev_id=uint32:9",
                          "lcl_port=uint8:1", "ib_port=uint8:1", "swid=uint8:0",
                          "ifindex=uint32:577", "ifindex_neighbor=uint32:0"});
    EXPECT_EQ(0, r.code);
    EXPECT_TRUE(receiver_->wait_for("Got device ID 9 which doesn't exist in OVD data base"));
    // A device id out of range in the add: no answer.
    r = rig_->lite().ctl({"event", "/portd/events/add-burn-device", "dev_id=uint32:300"});
    EXPECT_TRUE(receiver_->wait_for("Got device ID 300 which exceeds maximum device ID 216"));
}

}  // namespace
