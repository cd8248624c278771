// Virtual ports end to end: the port manager's stand-in switches them with operation 2 of
// the enable family, the daemon writes the shared PAOS port and answers with the ports of
// the SWIDs it serves.
#include <gtest/gtest.h>

#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Several switch partitions, and the shared virtual port moved to 67.
const char kConfig[] =
    "/system/hostname                            hostname  virtual-switch\n"
    "/system/chassis/sys_disp_str                string    virtual rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     1\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/portd/state/virtual/paos_base              uint8     67\n";

class VirtualPorts : public ovd_test::DaemonRigTest {
protected:
    void start()
    {
        model_ = ovd_test::register_models_dir() + "/virtual_ports.model";
        ASSERT_NO_FATAL_FAILURE(
            rig_->start(kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), model_));
        ASSERT_EQ(0, rig_->portd({"--model", model_, "add-devices", "1"}).code) << complaints();
        ASSERT_EQ(0, rig_->portd({"--model", model_, "enable", "1", "1", "19"}).code)
            << complaints();
    }

    // portd-lite's operation 2 on device 1 (SWID `swid` for every port listed).
    ovd_test::CtlResult virtual_ports(const std::string &command, int swid,
                                      const std::vector<std::string> &locals,
                                      const std::string &timeout_s = "10")
    {
        std::vector<std::string> args = {"--model",  model_,    "--operation",
                                         "2",        "--swid",  std::to_string(swid),
                                         "--timeout", timeout_s, command,
                                         "1"};
        args.insert(args.end(), locals.begin(), locals.end());
        return rig_->portd(args);
    }

    // The PAOS writes after `from`, as "<local port> up|down".
    std::vector<std::string> paos_writes(size_t from, size_t count)
    {
        std::vector<std::string> out;
        for (int i = 0; i < 300 && out.size() < count; ++i) {
            out.clear();
            for (const auto &a : rig_->journal(from)) {
                if (a.reg == "PAOS" && a.cmd == "SET") {
                    out.push_back(std::to_string(a.num("local_port")) +
                                  (a.num("admin_status") == 1 ? " up" : " down"));
                }
            }
            if (out.size() < count) {
                std::this_thread::sleep_for(10ms);
            }
        }
        return out;
    }

    std::string print_virtual()
    {
        receiver_->clear();
        const ovd_test::CtlResult r = rig_->lite().ctl({"action", "/ib/actions/print-virtual-if"});
        EXPECT_EQ(0, r.code) << r.err;
        receiver_->drain(500ms);
        std::string text;
        for (const std::string &line : receiver_->lines()) {
            text += line + "\n";
        }
        return text;
    }

    std::string model_;
};

TEST_F(VirtualPorts, EnableAndDisableGoThroughTheSharedPaosPort)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // Virtual ifindexes are device 1's: (1 << 6) + local.
    size_t at = rig_->journal().size();
    ovd_test::CtlResult r = virtual_ports("enable", 0, {"65", "66"});
    ASSERT_EQ(0, r.code) << r.out << r.err;
    EXPECT_NE(r.out.find("local_1"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("local_2"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("swid_2"), std::string::npos) << r.out;
    // Both ports are written on the shared port, never on their own.
    EXPECT_EQ((std::vector<std::string>{"67 up", "67 up"}), paos_writes(at, 2));
    for (const auto &a : rig_->journal(at)) {
        if (a.reg == "PAOS" && a.cmd == "SET") {
            EXPECT_EQ(67u, a.num("key"));
            EXPECT_EQ(1u, a.num("ase"));
            EXPECT_EQ(1u, a.num("ee"));
        }
    }
    EXPECT_TRUE(receiver_->wait_for("OVD handles [Enable] virtual local port: [65], ifindex: [129], "
                                    "swid: [0] for device: [1, "));
    EXPECT_TRUE(receiver_->wait_for("set VIRTUAL port: [UP] (PAOS) for Device id: ["));
    EXPECT_TRUE(receiver_->wait_for("Enable/Disable Done for virtual ports. Number of ports: [2]"));

    at = rig_->journal().size();
    r = virtual_ports("disable", 0, {"65"});
    ASSERT_EQ(0, r.code) << r.out << r.err;
    EXPECT_NE(r.out.find("port_num"), std::string::npos) << r.out;
    EXPECT_EQ((std::vector<std::string>{"67 down"}), paos_writes(at, 1));
    EXPECT_TRUE(receiver_->wait_for("OVD handles [Disable] virtual local port: [65]"));

    // Port 66 stays in SWID 0 and up; port 65 is in none.
    const std::string dump = print_virtual();
    EXPECT_NE(dump.find("Ifindex          : [130]"), std::string::npos) << dump;
    EXPECT_NE(dump.find("Assigned to swid : [0]"), std::string::npos) << dump;
    EXPECT_NE(dump.find("Configured state : [true]"), std::string::npos) << dump;
    EXPECT_NE(dump.find("Configured state : [false]"), std::string::npos) << dump;
}

TEST_F(VirtualPorts, APortInTwoSwidsAndOneThatIsNotServed)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_EQ(0, virtual_ports("enable", 0, {"65"}).code);
    ASSERT_EQ(0, virtual_ports("enable", 1, {"65"}).code);
    std::string dump = print_virtual();
    EXPECT_NE(dump.find("Assigned to swid : [0]"), std::string::npos) << dump;
    EXPECT_NE(dump.find("Assigned to swid : [1]"), std::string::npos) << dump;

    // SWID 3 isn't served: the membership is recorded, nothing is written and, with no
    // port to list, nothing is answered.
    size_t at = rig_->journal().size();
    ovd_test::CtlResult r = virtual_ports("enable", 3, {"66"}, "1");
    EXPECT_EQ(4, r.code) << r.out;  // no answer
    EXPECT_TRUE(paos_writes(at, 0).empty());
    dump = print_virtual();
    EXPECT_NE(dump.find("Assigned to swid : [3]"), std::string::npos) << dump;
    r = virtual_ports("disable", 3, {"66"}, "1");
    EXPECT_EQ(4, r.code) << r.out;
    dump = print_virtual();
    EXPECT_EQ(dump.find("Assigned to swid : [3]"), std::string::npos) << dump;
    EXPECT_TRUE(paos_writes(at, 0).empty());
}

TEST_F(VirtualPorts, ABadPortFailsTheRequestAndIsAnswered)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // A physical ifindex isn't a virtual port; the answer carries the error.
    const std::vector<std::string> base = {"event", "/portd/events/port-enable", "dev_id=uint32:1",
                                           "port_num=uint32:1", "operation=uint8:2",
                                           "swid_1=uint8:0"};
    std::vector<std::string> args = base;
    args.insert(args.end(), {"local_1=uint8:65", "ifindex_1=uint32:65"});
    ovd_test::CtlResult done = ask(args, "/portd/events/port-enable-done");
    ASSERT_EQ(0, done.code) << done.err;
    EXPECT_NE(done.out.find("status     uint32  14008"), std::string::npos) << done.out;
    EXPECT_TRUE(receiver_->wait_for(
        "ifindex number [65] doesn't exist in virtual ifindexs hash table."));

    // Local port 64 is below the virtual range.
    args = base;
    args.insert(args.end(), {"local_1=uint8:64", "ifindex_1=uint32:129"});
    done = ask(args, "/portd/events/port-enable-done");
    ASSERT_EQ(0, done.code) << done.err;
    EXPECT_NE(done.out.find("status     uint32  14036"), std::string::npos) << done.out;
    EXPECT_TRUE(receiver_->wait_for("Local port for virtual port must start from [65]. Internal "
                                    "error."));

    // An unknown device.
    args = {"event", "/portd/events/port-disable", "dev_id=uint32:9", "port_num=uint32:0",
            "operation=uint8:2"};
    rig_->lite().ctl(args);
    EXPECT_TRUE(receiver_->wait_for(
        "Got device ID [9] which is not in ovd cache. Enable virtual port flow"));
}

}  // namespace
