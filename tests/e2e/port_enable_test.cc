// The port-enable and validation hand-shakes end to end: the port manager's events reach
// the real daemon through mgmtd-lite, the daemon writes the simulated switch's registers
// (the journal tells which) and answers with its done events.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Device 1 of the standalone model: local port N is ifindex 64 + N.  Port 66 (local 2)
// stays down by its configuration; port 67 (local 3) has its MTU and VLs configured;
// the others have no configuration at all.
const char kConfig[] =
    "/system/hostname                            hostname  enable-switch\n"
    "/system/chassis/sys_disp_str                string    enable rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/66/enable          uint8     0\n"
    "/ib/config/externalports/67/enable          uint8     1\n"
    "/ib/config/externalports/67/mtu             string    2K\n"
    "/ib/config/externalports/67/op_vls          uint8     4\n"
    "/ib/config/externalports/67/speed           uint8     255\n";

constexpr int kPorts = 36;

// The enable event's arguments for local ports [first, last] of a device in one SWID.
std::vector<std::string> enable_args(const std::string &event, uint32_t dev, uint32_t first,
                                     uint32_t last, int swid = 0)
{
    std::vector<std::string> args = {"event", event, "dev_id=uint32:" + std::to_string(dev),
                                     "port_num=uint32:" + std::to_string(last - first + 1),
                                     "operation=uint8:0"};
    uint32_t i = 1;
    for (uint32_t local = first; local <= last; ++local, ++i) {
        const std::string n = std::to_string(i);
        args.push_back("swid_" + n + "=uint8:" + std::to_string(swid));
        args.push_back("local_" + n + "=uint8:" + std::to_string(local));
        args.push_back("ifindex_" + n + "=uint32:" + std::to_string(dev * 64 + local));
    }
    return args;
}

// The "NAME TYPE VALUE" rows of an answer that mgmtctl printed, as "TYPE:VALUE" by name.
std::map<std::string, std::string> answer_fields(const std::string &out)
{
    std::map<std::string, std::string> fields;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string name, type, value;
        if (words >> name >> type >> value) {
            fields[name] = type + ":" + value;
        }
    }
    return fields;
}

class PortEnable : public ovd_test::DaemonRigTest {
protected:
    void start(const std::string &config = kConfig)
    {
        ASSERT_NO_FATAL_FAILURE(rig_->start(config, "", "builtin:standalone36"));
        const ovd_test::CtlResult add = rig_->portd({"add-devices", "1"});
        ASSERT_EQ(0, add.code) << add.err;
    }

};

TEST_F(PortEnable, EveryPortGetsItsAttributesAndStateAndIsListed)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const size_t before = rig_->journal().size();
    const ovd_test::CtlResult done =
        ask(enable_args("/portd/events/port-enable", 1, 1, kPorts), "/portd/events/port-enable-done");
    ASSERT_EQ(0, done.code) << done.err << done.out;
    std::map<std::string, std::string> f = answer_fields(done.out);
    EXPECT_EQ("uint32:0", f["status"]) << done.out << complaints();
    EXPECT_EQ("uint32:1", f["dev_id"]);
    EXPECT_EQ("uint32:" + std::to_string(kPorts), f["port_num"]);
    EXPECT_EQ("uint8:0", f["operation"]);
    EXPECT_EQ("uint8:8", f["daemon"]);
    // Listed in the text order of their ifindexes, numbered from 1.
    EXPECT_EQ("uint8:36", f["local_1"]) << done.out;   // "100" sorts first
    EXPECT_EQ("uint32:100", f["ifindex_1"]);
    EXPECT_EQ("uint8:1", f["local_2"]);
    EXPECT_EQ("uint32:65", f["ifindex_2"]);
    EXPECT_EQ("uint8:0", f["swid_2"]);

    // Per port: PLIB, one capability write (VL, MTU, speed and width: this system has no
    // FEC register), PAOS.
    std::map<unsigned long long, std::vector<ovd_test::RegisterAccess>> by_port;
    for (const ovd_test::RegisterAccess &a : rig_->journal(before)) {
        by_port[a.num("local_port")].push_back(a);
    }
    ASSERT_EQ(static_cast<size_t>(kPorts), by_port.size()) << ovd_test::read_file(rig_->journal_path());
    for (auto &[local, acc] : by_port) {
        std::vector<std::string> sets;
        for (const ovd_test::RegisterAccess &a : acc) {
            if (a.cmd == "SET") {
                sets.push_back(a.reg);
            }
        }
        EXPECT_EQ((std::vector<std::string>{"PLIB", "PVLC", "PMTU", "PTYS", "PAOS"}), sets)
            << "local port " << local;
        const ovd_test::RegisterAccess &paos = acc.back();
        EXPECT_EQ(local == 2 ? 2u : 1u, paos.num("admin_status")) << "local port " << local;
    }
    // The configured port: its MTU and VLs; the others the defaults.
    for (const ovd_test::RegisterAccess &a : by_port[3]) {
        if (a.reg == "PMTU" && a.cmd == "SET") {
            EXPECT_EQ(2048u, a.num("admin_mtu"));
        }
        if (a.reg == "PVLC" && a.cmd == "SET") {
            EXPECT_EQ(4u, a.num("vl_admin"));
        }
    }
    for (const ovd_test::RegisterAccess &a : by_port[5]) {
        if (a.reg == "PMTU" && a.cmd == "SET") {
            EXPECT_EQ(4096u, a.num("admin_mtu"));
        }
    }
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: OVD sends device [1, "));
    EXPECT_GE(receiver_->find("port enable done event to portd with [Success] status. Number of "
                              "configured ports: [36]"),
              0);
    EXPECT_GE(receiver_->find("[ovd.INFO]: ovd_configure_port_attributes: [MTU]   of [1,"), 0);
}

}  // namespace

namespace {

TEST_F(PortEnable, OddPortsAndDevicesAreAnsweredWithTheirStatus)
{
    ASSERT_NO_FATAL_FAILURE(start());
    size_t before = rig_->journal().size();

    // A port the event puts in no partition is reported as handled (with the SWID it has),
    // and nothing is written.
    ovd_test::CtlResult done = ask(enable_args("/portd/events/port-enable", 1, 7, 7, 255),
                                   "/portd/events/port-enable-done");
    std::map<std::string, std::string> f = answer_fields(done.out);
    EXPECT_EQ("uint32:0", f["status"]) << done.out << complaints();
    EXPECT_EQ("uint32:1", f["port_num"]) << done.out;
    EXPECT_EQ("uint8:0", f["swid_1"]) << done.out;
    EXPECT_EQ("uint32:71", f["ifindex_1"]) << done.out;
    EXPECT_TRUE(rig_->journal(before).empty()) << ovd_test::read_file(rig_->journal_path());

    // Local ports 0 and 65 are out of range: 14035, and no port is listed.
    for (const uint32_t local : {0u, 65u}) {
        std::vector<std::string> args = enable_args("/portd/events/port-enable", 1, 1, 1);
        args[args.size() - 2] = "local_1=uint8:" + std::to_string(local);
        done = ask(args, "/portd/events/port-enable-done");
        f = answer_fields(done.out);
        EXPECT_EQ("uint32:14035", f["status"]) << local << "\n" << done.out;
        EXPECT_EQ("uint32:0", f["port_num"]) << done.out;
    }
    EXPECT_TRUE(receiver_->wait_for("OVD got local port: [65] for device: [1, "));

    // A device that was never added: 14008.
    done = ask(enable_args("/portd/events/port-enable", 2, 1, 1), "/portd/events/port-enable-done");
    f = answer_fields(done.out);
    EXPECT_EQ("uint32:14008", f["status"]) << done.out;
    EXPECT_EQ("uint32:2", f["dev_id"]) << done.out;
    EXPECT_TRUE(receiver_->wait_for("got device ID 2 which is not in ovd cache"));
    EXPECT_TRUE(receiver_->wait_for("port enable done event to portd with [Failure] status"));
}

TEST_F(PortEnable, ValidationPassesFailsAndRefusesOddDevices)
{
    ASSERT_NO_FATAL_FAILURE(start());

    // Before any enable: the ports were never enabled, the device fails.
    ovd_test::CtlResult done = ask({"event", "/portd/events/device-validate-ib", "dev_id=uint32:1"},
                                   "/ib/events/device-validate-ib-done");
    std::map<std::string, std::string> f = answer_fields(done.out);
    EXPECT_EQ("uint32:1", f["status"]) << done.out << complaints();
    EXPECT_TRUE(receiver_->wait_for("HA flow: Local port number"));

    done = ask(enable_args("/portd/events/port-enable", 1, 1, kPorts), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();

    // Everything as configured: passes without a write.
    const size_t before = rig_->journal().size();
    done = ask({"event", "/portd/events/device-validate-ib", "dev_id=uint32:1"},
               "/ib/events/device-validate-ib-done");
    f = answer_fields(done.out);
    EXPECT_EQ("uint32:0", f["status"]) << done.out << complaints();
    EXPECT_EQ("uint32:1", f["dev_id"]) << done.out;
    for (const ovd_test::RegisterAccess &a : rig_->journal(before)) {
        EXPECT_EQ("GET", a.cmd) << a.reg;
    }
    EXPECT_TRUE(receiver_->wait_for("OVD HA validation flow checking device number 1, "));
    // The enable gave the ports without configuration an entry of their defaults.
    EXPECT_LT(receiver_->find("supposed to be in configuration DB"), 0) << complaints();

    // Device ids 0 and 217 are out of the range; an empty slot fails too.
    for (const char *id : {"0", "217", "3"}) {
        done = ask({"event", "/portd/events/device-validate-ib", std::string("dev_id=uint32:") + id},
                   "/ib/events/device-validate-ib-done");
        f = answer_fields(done.out);
        EXPECT_EQ("uint32:1", f["status"]) << id << "\n" << done.out;
        EXPECT_EQ(std::string("uint32:") + id, f["dev_id"]) << done.out;
    }
    EXPECT_TRUE(receiver_->wait_for("Device ID 217 exceeds range (1 - 216)."));
    EXPECT_TRUE(receiver_->wait_for("Device ID 3 not exist in ovd"));
}

TEST_F(PortEnable, DisableTakesARunningPortDownWithoutAnAnswer)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ovd_test::CtlResult done =
        ask(enable_args("/portd/events/port-enable", 1, 4, 5), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();

    const size_t before = rig_->journal().size();
    const ovd_test::CtlResult sent = rig_->lite().ctl(enable_args("/portd/events/port-disable", 1, 4, 5));
    ASSERT_EQ(0, sent.code) << sent.err;
    const std::vector<ovd_test::RegisterAccess> acc = journal_after(before, 2);
    ASSERT_EQ(2u, acc.size()) << ovd_test::read_file(rig_->journal_path());
    for (size_t i = 0; i < acc.size(); ++i) {
        EXPECT_EQ("PAOS", acc[i].reg);
        EXPECT_EQ(4 + i, acc[i].num("local_port"));
        EXPECT_EQ(2u, acc[i].num("admin_status"));
    }
    EXPECT_TRUE(receiver_->wait_for("OVD handles device port disable event for device: [1, "));

    // Down already: a second disable writes nothing.
    const size_t again = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl(enable_args("/portd/events/port-disable", 1, 4, 5)).code);
    receiver_->clear();
    ASSERT_EQ(0, rig_->lite().ctl({"event", "/system/chassis/events/system-configure-done"}).code);
    ASSERT_TRUE(receiver_->wait_for("Received system configured done event"));
    EXPECT_EQ(again, rig_->journal().size()) << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(1u, rig_->lite().log_lines("event /portd/events/port-enable-done from").size())
        << rig_->lite().log();
}

TEST_F(PortEnable, DebugModeFailsTheNextEnablesOfAModularSlot)
{
    std::string config = kConfig;
    config.replace(config.find("uint32    36"), 12, "uint32    22");
    const std::string model = ovd_test::register_models_dir() + "/chassis_leafspine.model";
    ASSERT_NO_FATAL_FAILURE(rig_->start(config, "", model));
    ASSERT_EQ(0, rig_->portd({"--model", model, "--system-type", "22", "add-devices"}).code);

    ASSERT_EQ(0, rig_->lite()
                     .ctl({"event", "/ib/events/ovd-debug-mode", "operation=tbool:true",
                           "times=uint32:2", "slot=string:L03/1"})
                     .code);
    ASSERT_TRUE(receiver_->wait_for("OVD changes debug mode to Enabled status for slot: L03/1. "
                                    "Number of allowed failures: 2"));
    for (const char *want : {"uint32:1", "uint32:1", "uint32:0"}) {
        const ovd_test::CtlResult done =
            ask(enable_args("/portd/events/port-enable", 21, 1, 2), "/portd/events/port-enable-done");
        EXPECT_EQ(want, answer_fields(done.out)["status"]) << done.out << complaints();
    }
    EXPECT_TRUE(receiver_->wait_for("OVD debug mode is enabled. Sending enable port done event "
                                    "for device: 21, L03/1 with failure status"));
    // Another slot is never failed.
    const ovd_test::CtlResult other =
        ask(enable_args("/portd/events/port-enable", 13, 1, 1), "/portd/events/port-enable-done");
    EXPECT_EQ("uint32:0", answer_fields(other.out)["status"]) << other.out << complaints();
}

TEST_F(PortEnable, DebugModeIsRefusedOnAStandaloneSystem)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_EQ(0, rig_->lite()
                     .ctl({"event", "/ib/events/ovd-debug-mode", "operation=tbool:true",
                           "times=uint32:2", "slot=string:x"})
                     .code);
    EXPECT_TRUE(receiver_->wait_for("[ovd.WARNING]: Failed to change to debug mode. Can't change "
                                    "to debug mode at stand alone system."));
}

}  // namespace

namespace {

// Not a hand-shake, but the same rig: a new host name reaches every device's node
// description.
TEST_F(PortEnable, HostNameChangeRewritesTheNodeDescriptions)
{
    const std::string model = ovd_test::register_models_dir() + "/chassis_leafspine.model";
    std::string config = kConfig;
    config.replace(config.find("uint32    36"), 12, "uint32    22");
    ASSERT_NO_FATAL_FAILURE(rig_->start(config, "", model));
    ASSERT_EQ(0, rig_->portd({"--model", model, "--system-type", "22", "add-devices"}).code);

    const size_t before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/system/hostname", "hostname", "renamed-switch"}).code);
    ASSERT_TRUE(receiver_->wait_for("[ovd.NOTICE]: Setting Hostname: renamed-switch"));
    const std::vector<ovd_test::RegisterAccess> acc = journal_after(before, 5);
    std::vector<unsigned long long> devices;
    for (const ovd_test::RegisterAccess &a : acc) {
        EXPECT_EQ("SPZR", a.reg) << ovd_test::read_file(rig_->journal_path());
        devices.push_back(a.num("dev"));
    }
    EXPECT_EQ((std::vector<unsigned long long>{1, 5, 13, 17, 21}), devices)
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_TRUE(receiver_->wait_for("Node description for this node will be: MF0;renamed-switch:"));
}

}  // namespace

namespace {

TEST_F(PortEnable, ValidationMendsWhatChangedBehindItsBack)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ovd_test::CtlResult done =
        ask(enable_args("/portd/events/port-enable", 1, 1, kPorts), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();

    // Someone else sets local port 5's MTU to 2048: the validation writes 4096 back around
    // a down and up of the running port, and the device passes.
    rig_->poke("port 1 5 admin_mtu=2048\n");
    const size_t before = rig_->journal().size();
    done = ask({"event", "/portd/events/device-validate-ib", "dev_id=uint32:1"},
               "/ib/events/device-validate-ib-done");
    EXPECT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    std::vector<std::string> sets;
    for (const ovd_test::RegisterAccess &a : rig_->journal(before)) {
        if (a.cmd != "SET") {
            continue;
        }
        EXPECT_EQ(5u, a.num("local_port")) << a.reg;
        sets.push_back(a.reg + (a.reg == "PAOS" ? ":" + std::to_string(a.num("admin_status"))
                                                : a.reg == "PMTU" ? ":" + std::to_string(a.num("admin_mtu"))
                                                                  : ""));
    }
    EXPECT_EQ((std::vector<std::string>{"PAOS:2", "PMTU:4096", "PAOS:1"}), sets)
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_TRUE(receiver_->wait_for("There is a mismatch at MTU port configuration. "
                                    "Configured:[4096], Currently Active:[2048]"));

    // Now everything agrees again: no write.
    const size_t again = rig_->journal().size();
    done = ask({"event", "/portd/events/device-validate-ib", "dev_id=uint32:1"},
               "/ib/events/device-validate-ib-done");
    EXPECT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out;
    for (const ovd_test::RegisterAccess &a : rig_->journal(again)) {
        EXPECT_EQ("GET", a.cmd) << a.reg;
    }
}

}  // namespace

namespace {

// The port manager's stand-in plays the whole start of a switch, and the hand-shakes one
// by one.
TEST_F(PortEnable, PortManagerStandInBootsEnablesAndValidates)
{
    ASSERT_NO_FATAL_FAILURE(rig_->start(kConfig, "", "builtin:standalone36"));
    ovd_test::CtlResult r = rig_->portd({"boot"});
    ASSERT_EQ(0, r.code) << r.err << r.out;
    EXPECT_NE(r.out.find("device 1: status 0\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("/portd/events/port-enable-done: device 1 status 0\n"), std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("  port_num     uint32  36\n"), std::string::npos) << r.out;

    r = rig_->portd({"--json", "validate", "1"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("{\"event\":\"/ib/events/device-validate-ib-done\",\"dev_id\":1,\"status\":0,"
              "\"bindings\":{\"dev_id\":1,\"status\":0}}\n",
              r.out);

    // A list of ports, put in another SWID: reported, nothing written; a device never
    // added fails, and so does the command.
    r = rig_->portd({"--swid", "255", "enable", "1", "3", "4"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_NE(r.out.find("  port_num     uint32  2\n"), std::string::npos) << r.out;
    r = rig_->portd({"validate", "9"});
    EXPECT_EQ(1, r.code) << r.out;

    r = rig_->portd({"disable", "1", "5"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("device 1: disable of 1 ports sent\n", r.out);
    EXPECT_TRUE(receiver_->wait_for("OVD handles device port disable event for device: [1, SW/1], "
                                    "local port: [5], label port: [5]"));
}

}  // namespace
