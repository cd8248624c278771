// Devices announced end to end: portd-lite sends the port manager's add events through
// mgmtd-lite to the real daemon, which runs against the simulated register library (with
// its journal) and, for its MADs, the simulated fabric; the answers come back the same
// way.  The journal tells what reached the hardware, and in which order.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <sstream>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kMKey[] = "1234605616436508552";  // 0x1122334455667788

std::string config_text(const std::string &system_type, bool with_m_key)
{
    std::string text =
        "/system/hostname                            hostname  e2e-switch\n"
        "/system/chassis/sys_disp_str                string    E2E\n"
        "/system/chassis/ha/state/system_type_mirror uint32    " + system_type + "\n"
        "/system/chassis/config/profile              uint8     0\n";
    if (with_m_key) {
        text += "/system/chassis/config/system_m_key         uint64    " + std::string(kMKey) + "\n";
    }
    return text;
}

using Access = ovd_test::RegisterAccess;

std::string models_dir()
{
    return ovd_test::register_models_dir();
}

class DeviceAdd : public ovd_test::DaemonRigTest {
protected:
    // mgmtd-lite with a configuration, the register library with the model and its
    // journal, and the daemon as a client of the fabric; returns once it announced itself.
    void start_all(const std::string &model, const std::string &system_type, bool with_m_key)
    {
        rig_->start(config_text(system_type, with_m_key), "", model);
    }

    ovd_test::CtlResult portd(const std::vector<std::string> &args) { return rig_->portd(args); }

    // The accesses since the journal had `from` lines.
    std::vector<Access> journal(size_t from = 0) const { return rig_->journal(from); }

    std::string journal_text() const { return ovd_test::read_file(rig_->journal_path()); }

    size_t count_log(const std::string &needle) const
    {
        size_t n = 0;
        for (const std::string &line : receiver_->lines()) {
            n += line.find(needle) != std::string::npos ? 1 : 0;
        }
        return n;
    }
};

TEST_F(DeviceAdd, StandaloneSwitchKeyFirstThenIdentityAndTheEdgeCases)
{
    ASSERT_NO_FATAL_FAILURE(start_all("builtin:standalone36", "36", true));
    const size_t at_start = journal().size();

    // No ports: the system part is done, success is answered, nothing is recorded.
    ovd_test::CtlResult r = portd({"--ports", "0", "add-devices", "1"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("device 1: status 0\n", r.out);
    EXPECT_TRUE(receiver_->wait_for("Got unexpected number of IB ports on IB/VPI system"));
    std::vector<Access> acc = journal(at_start);
    ASSERT_EQ(1u, acc.size()) << journal_text();
    EXPECT_EQ("SYSTEM_M_KEY", acc[0].reg);
    EXPECT_EQ(0u, count_log("OVD handles added device:"));

    // An id beyond the table: its key goes out first, then the device record refuses it.
    r = portd({"--as", "217", "add-devices", "1"});
    EXPECT_EQ(1, r.code) << r.err;
    EXPECT_EQ("device 217: status 14035\n", r.out);
    acc = journal(at_start);
    ASSERT_EQ(2u, acc.size()) << journal_text();
    EXPECT_EQ("SYSTEM_M_KEY", acc[1].reg);
    EXPECT_EQ(217u, acc[1].num("dev_id"));
    EXPECT_TRUE(receiver_->wait_for("Got device ID 217 which exceeds maximum device ID 216"));

    // The whole switch: the key goes first, then description and image GUID on SWID 0.
    const size_t before = journal().size();
    r = portd({"add-devices"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("device 1: status 0\n", r.out);
    acc = journal(before);
    ASSERT_EQ(3u, acc.size()) << journal_text();
    EXPECT_EQ("SYSTEM_M_KEY", acc[0].reg);
    EXPECT_EQ("SET", acc[0].cmd);
    EXPECT_EQ(std::stoull(kMKey), acc[0].num("system_m_key"));
    EXPECT_EQ(1u, acc[0].num("dev_id"));
    EXPECT_EQ("SPZR", acc[1].reg);
    EXPECT_EQ(1u, acc[1].num("ndm"));
    EXPECT_EQ("1", acc[1].fields["dev"]);
    EXPECT_EQ(0u, acc[1].num("swid"));
    EXPECT_EQ("SPZR", acc[2].reg);
    EXPECT_EQ(1u, acc[2].num("sig"));
    EXPECT_EQ(0x02ab010300a1b2c0ull, acc[2].num("system_image_guid_h_l"));
    // The simulator answers SMPs with the description of its own topology, so the text
    // written is checked by its length in the journal and in the daemon's log.
    const std::string desc = "MF0;e2e-switch:E2E/U1";
    EXPECT_TRUE(receiver_->wait_for("Node description for this node will be: " + desc));
    EXPECT_EQ(desc.size(), acc[1].num("NodeDescription_len"));
    EXPECT_TRUE(receiver_->wait_for("OVD handles added device:[SW] slot/index:[1/1] type:[1]"));
    // Its hardware context was opened on the simulated fabric.
    EXPECT_GE(receiver_->find("IB SWID API INIT DONE"), 0);
    EXPECT_LT(receiver_->find("Mad rpc open port failed"), 0);
    EXPECT_GE(rig_->lite().log_lines("relay event /portd/events/ib-device-add to 'IB Daemon'").size(),
              3u);
    EXPECT_EQ(3u, rig_->lite().log_lines("event /ib/events/device-add-done from 'IB Daemon'").size())
        << rig_->lite().log();

    // Added again with fewer ports: its record is replaced, the key written again, and
    // the node asked of mgmtd only once in all.
    r = portd({"--ports", "4", "add-devices", "1"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("device 1: status 0\n", r.out);
    EXPECT_TRUE(receiver_->wait_for("OVD sends device: [1, SW/1] add done event to portd with: "
                                    "[Success] status"));
    EXPECT_EQ(2u, count_log("OVD handles added device:[SW]"));
    size_t keys = 0;
    for (const Access &a : journal(at_start)) {
        keys += a.reg == "SYSTEM_M_KEY" ? 1 : 0;
    }
    EXPECT_EQ(4u, keys) << "no ports, 217, the switch, the switch again";
    EXPECT_EQ(1u, rig_->lite().log_lines("get /system/chassis/config/system_m_key").size())
        << rig_->lite().log();
    // Its records and contexts are let go cleanly (a leak fails the exit under the
    // sanitizers).
    rig_->daemon().signal(SIGTERM);
    EXPECT_EQ(0, rig_->daemon().wait(30s));
}

TEST_F(DeviceAdd, ConfiguredAttributesReachAKnownPortThroughDownWriteUp)
{
    ASSERT_NO_FATAL_FAILURE(start_all("builtin:standalone36", "36", true));
    ovd_test::CtlResult r = portd({"add-devices", "1"});
    ASSERT_EQ(0, r.code) << r.err;

    // Local port 5 of device 1 is ifindex 69.  Enabling it brings it up.
    size_t before = journal().size();
    r = rig_->lite().ctl({"set", "/ib/config/externalports/69/enable", "uint8", "1"});
    ASSERT_EQ(0, r.code) << r.err;
    ASSERT_TRUE(receiver_->wait_for("Received event: /mgmtd/notify/dbchange"));
    std::vector<Access> acc;
    for (int i = 0; i < 500 && (acc = journal(before)).empty(); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_EQ(1u, acc.size()) << journal_text();
    EXPECT_EQ("PAOS", acc[0].reg);
    EXPECT_EQ(5u, acc[0].num("local_port"));
    EXPECT_EQ(1u, acc[0].num("admin_status"));

    // A speed change on the running port: down, the write, up again.
    receiver_->clear();
    before = journal().size();
    r = rig_->lite().ctl({"set", "/ib/config/externalports/69/speed", "uint8", "7"});
    ASSERT_EQ(0, r.code) << r.err;
    ASSERT_TRUE(receiver_->wait_for("Received event: /mgmtd/notify/dbchange"));
    for (int i = 0; i < 500 && journal(before).size() < 4; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    acc = journal(before);
    std::vector<std::string> seen;
    for (const Access &a : acc) {
        seen.push_back(a.reg + ":" + a.cmd);
        EXPECT_EQ(5u, a.num("local_port")) << a.reg;
    }
    ASSERT_EQ((std::vector<std::string>{"PAOS:SET", "PTYS:GET", "PTYS:SET", "PAOS:SET"}), seen)
        << journal_text();
    EXPECT_EQ(2u, acc[0].num("admin_status")) << "down first";
    EXPECT_EQ(1u, acc[3].num("admin_status")) << "up again";

    // A port the daemon doesn't know yet: its configuration is kept, no register is touched.
    receiver_->clear();
    before = journal().size();
    r = rig_->lite().ctl({"set", "/ib/config/externalports/9999/speed", "uint8", "7"});
    ASSERT_EQ(0, r.code) << r.err;
    ASSERT_TRUE(receiver_->wait_for("Received event: /mgmtd/notify/dbchange"));
    r = rig_->lite().ctl({"event", "/system/chassis/events/system-configure-done"});
    ASSERT_TRUE(receiver_->wait_for("Received system configured done event"));
    EXPECT_TRUE(journal(before).empty()) << journal_text();
}

TEST_F(DeviceAdd, WithoutTheSystemKeyEveryAddFails)
{
    ASSERT_NO_FATAL_FAILURE(start_all("builtin:standalone36", "36", false));
    const size_t at_start = journal().size();
    for (int round = 0; round < 2; ++round) {
        const ovd_test::CtlResult r = portd({"add-devices"});
        EXPECT_EQ(1, r.code) << r.err;
        EXPECT_EQ("device 1: status 14001\n", r.out);
    }
    // Asked each time, since nothing was learnt; nothing reached the hardware.
    EXPECT_EQ(2u, rig_->lite().log_lines("get /system/chassis/config/system_m_key").size())
        << rig_->lite().log();
    EXPECT_TRUE(journal(at_start).empty()) << journal_text();
    EXPECT_EQ(0u, count_log("OVD handles added device:"));
}

TEST_F(DeviceAdd, ChassisDevicesOnTheirSlotsAndARouteAnnouncement)
{
    const std::string model = models_dir() + "/chassis_leafspine.model";
    ASSERT_NO_FATAL_FAILURE(start_all(model, "22", true));
    const size_t at_start = journal().size();
    const ovd_test::CtlResult r = portd({"--model", model, "--system-type", "22", "add-devices"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("device 1: status 0\ndevice 5: status 0\ndevice 13: status 0\n"
              "device 17: status 0\ndevice 21: status 0\n",
              r.out);
    EXPECT_TRUE(receiver_->wait_for("OVD handles added device:[S02/1] slot/index:[2/1] type:[19]"));
    EXPECT_TRUE(receiver_->wait_for("OVD handles added device:[L03/1] slot/index:[3/1] type:[18]"));
    EXPECT_TRUE(receiver_->wait_for("Node description for this node will be: MF0;e2e-switch:E2E/L02/U1"));
    // Each device: its key, then its two identity writes, before the next device.
    const std::vector<Access> acc = journal(at_start);
    ASSERT_EQ(15u, acc.size()) << journal_text();
    const char *devs[] = {"1", "5", "13", "17", "21"};
    for (size_t d = 0; d < 5; ++d) {
        EXPECT_EQ("SYSTEM_M_KEY", acc[d * 3].reg) << d;
        EXPECT_EQ(std::stoull(devs[d]), acc[d * 3].num("dev_id"));
        EXPECT_EQ("SPZR", acc[d * 3 + 1].reg);
        EXPECT_EQ(devs[d], acc[d * 3 + 1].fields.at("dev"));
        EXPECT_EQ("SPZR", acc[d * 3 + 2].reg);
    }

    // Two paths to leaf 17 (through either spine) and one to leaf 21.  The daemon has no
    // caller of the route lookup yet, so what is checked end to end is that the tables
    // are built from the announcement; the choice between paths is the unit test's.
    ovd_test::write_file(dir_ + "/routes",
                         "swid 0\n"
                         "route 17 13:19 1:2\n"
                         "route 17 13:20 5:2\n"
                         "route 21 -\n");
    const ovd_test::CtlResult routes = portd({"route-update", dir_ + "/routes"});
    EXPECT_EQ(0, routes.code) << routes.err;
    EXPECT_TRUE(receiver_->wait_for("OVD done handling  direct route update event, number of "
                                    "devices : [2] number of paths : [3] , number of hops: [4]"));
    // A SWID this daemon doesn't serve leaves the tables as they are.
    ovd_test::write_file(dir_ + "/other", "swid 3\nroute 17 13:19 1:2\n");
    EXPECT_EQ(0, portd({"route-update", dir_ + "/other"}).code);
    EXPECT_TRUE(rig_->lite().wait_for_log("relay event /topod/events/ib-direct-route-update"));
    receiver_->drain(300ms);
    EXPECT_EQ(1u, count_log("OVD handles direct route update event"));
    rig_->daemon().signal(SIGTERM);
    EXPECT_EQ(0, rig_->daemon().wait(30s));
}

TEST_F(DeviceAdd, UnansweredAddIsReportedAsSuch)
{
    // No daemon at all: the event is relayed to nobody and portd-lite gives up in time.
    ovd_test::write_file(dir_ + "/db.conf", config_text("36", true));
    ASSERT_TRUE(rig_->lite().start({"--config", dir_ + "/db.conf"})) << rig_->lite().log();
    const ovd_test::CtlResult r = portd({"--timeout", "1", "add-devices"});
    EXPECT_EQ(4, r.code) << r.err;
    EXPECT_EQ("device 1: no answer\n", r.out);
}

// What portd-lite announces for a full chassis: ifindex = device * 64 + local port,
// panel ports unwired, and every internal link named from both of its ends.
TEST(PortdLiteEvents, FullChassisWiringIsSymmetric)
{
    char tmpl[] = "/tmp/portd_lite_show.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl;
    ovd_test::Child child;
    ASSERT_TRUE(ovd_test::start_redirected(
        &child,
        {PORTD_LITE_BIN, "--model", models_dir() + "/chassis_full.model", "--system-type", "20",
         "show"},
        dir + "/out", dir + "/err"));
    ASSERT_EQ(0, child.wait(60s)) << ovd_test::read_file(dir + "/err");
    std::istringstream in(ovd_test::read_file(dir + "/out"));
    std::filesystem::remove_all(dir);

    // Per device: ifindex and neighbour by port index.
    std::map<unsigned, unsigned> neighbour;   // by ifindex
    std::map<unsigned, unsigned> slot_of;     // by device
    unsigned dev = 0;
    unsigned devices = 0;
    std::map<std::string, unsigned> ifindex_by_index;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string name, type, value;
        words >> name >> type >> value;
        if (name == "#") {
            dev = static_cast<unsigned>(std::stoul(value));
            ++devices;
            ifindex_by_index.clear();
        } else if (name == "dev_id") {
            EXPECT_EQ(dev, std::stoul(value));
        } else if (name.rfind("ifindex_neighbor_", 0) == 0) {
            neighbour[ifindex_by_index.at(name.substr(17))] = static_cast<unsigned>(std::stoul(value));
        } else if (name.rfind("ifindex_", 0) == 0) {
            ifindex_by_index[name.substr(8)] = static_cast<unsigned>(std::stoul(value));
        } else if (name.rfind("local_", 0) == 0) {
            EXPECT_EQ(dev * 64 + std::stoul(value), ifindex_by_index.at(name.substr(6)));
        } else if (name == "port_num") {
            EXPECT_EQ("64", value);
        }
    }
    EXPECT_EQ(108u, devices);
    ASSERT_EQ(108u * 64, neighbour.size());
    size_t unwired = 0;
    for (const auto &[ifindex, far] : neighbour) {
        if (far == 0) {
            ++unwired;
            EXPECT_GT((ifindex - 1) / 64, 36u) << "a spine port without link: " << ifindex;
            continue;
        }
        EXPECT_EQ(ifindex, neighbour.at(far)) << ifindex << " -> " << far;
        EXPECT_NE((ifindex - 1) / 64 <= 36, (far - 1) / 64 <= 36) << "links join a leaf and a spine";
    }
    EXPECT_EQ(72u * 32, unwired);
}

}  // namespace
