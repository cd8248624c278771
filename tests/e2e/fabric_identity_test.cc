// What SWID 0 sees of the fabric, end to end: the master subnet manager, the SWID's own
// LID, the subnet manager's LID and the port GUID, and a device's GUID, LID and name.
// The driver's sysfs folder of the SWID is written by ib-sysfs-lite from what the subnet
// manager set up in the simulated fabric (or by the test itself, for the odd contents a
// driver might show) and mounted where the daemon looks for it.  The answers are checked
// against what smpquery and sminfo read of the same fabric.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>
#include <sstream>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// Device 1 of the standalone model is switch sw1 of the fabric, the node the daemon
// attaches as; SWID 0 is its one partition.
const char kConfig[] =
    "/system/hostname                            hostname  fabric-switch\n"
    "/system/chassis/sys_disp_str                string    fabric rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n";

const char kSwid0[] = "/ib/state/swid/0/";
const char kPort0[] = "/vq_ib_0/ports/0";

class FabricIdentity : public ovd_test::DaemonRigTest {
protected:
    void SetUp() override
    {
        ovd_test::DaemonRigTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        tree_ = dir_ + "/ib-sysfs";
        ASSERT_EQ(0, mkdir(tree_.c_str(), 0755));
        std::string why;
        ASSERT_TRUE(ovd_test::mount_ib_sysfs(tree_, &why)) << why;
    }

    void TearDown() override
    {
        ovd_test::unmount_ib_sysfs();
        ovd_test::DaemonRigTest::TearDown();
    }

    void start(bool with_sm)
    {
        if (with_sm) {
            std::string why;
            ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        }
        ASSERT_NO_FATAL_FAILURE(rig_->start(
            kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), "builtin:standalone36"));
        const ovd_test::CtlResult add = rig_->portd({"add-devices", "1"});
        ASSERT_EQ(0, add.code) << add.out << add.err;
        // What start-up had to say is no concern here.
        receiver_->drain(100ms);
        receiver_->clear();
    }

    // What the driver would show now, as the subnet manager set the port up.
    void write_sysfs_from_fabric()
    {
        // (Preloaded: a sanitizer runtime of the build goes in front of the simulator's.)
        const ovd_test::FabricResult r = rig_->fabric().run_preloaded(
            {IB_SYSFS_LITE_BIN, "--root", tree_, "--swid", "0"}, {});
        ASSERT_EQ(0, r.status) << r.out;
    }

    // One file of the SWID's port 0, as a driver might show it ("" for no line at all).
    void write_port_file(const std::string &rel, const std::string &text)
    {
        mkdir((tree_ + "/vq_ib_0").c_str(), 0755);
        mkdir((tree_ + "/vq_ib_0/ports").c_str(), 0755);
        mkdir((tree_ + kPort0).c_str(), 0755);
        mkdir((tree_ + kPort0 + "/gids").c_str(), 0755);
        ovd_test::write_file(tree_ + kPort0 + "/" + rel, text);
    }

    std::string swid0(const std::string &leaf) { return node(kSwid0 + leaf); }

    std::string tree_;
};

std::string smp(const ovd_test::FabricResult &r, const std::string &name)
{
    return ovd_test::Fabric::field(r.out, name);
}

// "0x02ab010000aa0000" as a decimal text, the way uint64 values are answered.
std::string decimal(const std::string &hex)
{
    return hex.empty() ? "(none)" : std::to_string(std::stoull(hex, nullptr, 16));
}

// The SM's LID as sminfo prints it: "sminfo: sm lid 1 sm guid 0x..., ...".
std::string sminfo_lid(const std::string &out)
{
    std::istringstream words(out.substr(std::min(out.find("sm lid "), out.size())));
    std::string sm, lid, value;
    words >> sm >> lid >> value;
    return value;
}

TEST_F(FabricIdentity, TheSwidsViewAgreesWithSmpqueryAndSminfo)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    ASSERT_NO_FATAL_FAILURE(write_sysfs_from_fabric());
    const ovd_test::FabricResult pi = rig_->fabric().smpquery({"-D", "portinfo", "0", "0"});
    ASSERT_EQ(0, pi.status) << pi.out;
    const ovd_test::FabricResult ni = rig_->fabric().smpquery({"-D", "nodeinfo", "0"});
    ASSERT_EQ(0, ni.status) << ni.out;
    const ovd_test::FabricResult sm = rig_->fabric().run({"sminfo"});
    ASSERT_EQ(0, sm.status) << sm.out;
    ASSERT_NE("", sminfo_lid(sm.out)) << sm.out;

    EXPECT_EQ("bool true", swid0("is_sm_in_fabric")) << complaints();
    EXPECT_EQ("uint16 " + smp(pi, "Lid"), swid0("my_lid"));
    EXPECT_EQ("uint16 " + sminfo_lid(sm.out), swid0("sm_lid"));
    EXPECT_EQ("uint16 " + smp(pi, "SMLid"), swid0("sm_lid"));
    EXPECT_EQ("uint64 " + decimal(smp(ni, "PortGuid")), swid0("my_sm_port_guid"));
    EXPECT_NE("uint64 0", swid0("my_sm_port_guid"));

    // The device, asked by NodeInfo over its (empty) direct route: under any group name.
    EXPECT_EQ("uint64 " + decimal(smp(ni, "Guid")), swid0("nodes/1/guid")) << complaints();
    EXPECT_EQ("uint16 " + smp(pi, "Lid"), swid0("nodes/1/lid"));
    EXPECT_EQ("uint64 " + decimal(smp(ni, "Guid")), swid0("anything/1/guid"));
    // The name is the one the port manager announced with the device: the model's board.
    EXPECT_EQ("string VQ_SW36_EDR", swid0("nodes/1/name"));
    EXPECT_EQ("", complaints());
}

TEST_F(FabricIdentity, TheMasterSubnetManagerComesAndGoes)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    EXPECT_EQ("bool true", swid0("is_sm_in_fabric")) << complaints();

    // Gone: the answer turns false once the query finds nobody (each query may wait up
    // to its growing time-out).
    rig_->fabric().stop_sm();
    std::string answer;
    for (int i = 0; i < 20 && (answer = swid0("is_sm_in_fabric")) != "bool false"; ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ("bool false", answer) << complaints();
    // Asked again and again without one: still false, the daemon still answers.
    EXPECT_EQ("bool false", swid0("is_sm_in_fabric"));
    EXPECT_EQ("bool false", swid0("is_sm_in_fabric"));

    // Back again.
    std::string why;
    ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
    for (int i = 0; i < 20 && (answer = swid0("is_sm_in_fabric")) != "bool true"; ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ("bool true", answer) << complaints();
}

TEST_F(FabricIdentity, OddSysfsContentsReadAsTheDriverMeantThem)
{
    ASSERT_NO_FATAL_FAILURE(start(false));

    // No driver folder at all: zeros, no failure.
    EXPECT_EQ("uint16 0", swid0("my_lid"));
    EXPECT_TRUE(receiver_->wait_for("get_ib_fn: No file /sys/class/infiniband/vq_ib_0/ports/0/lid"));
    EXPECT_EQ("uint16 0", swid0("sm_lid"));
    EXPECT_TRUE(receiver_->wait_for("get_ib_fn: No file /sys/class/infiniband/vq_ib_0/ports/0/sm_lid"));
    EXPECT_EQ("uint64 0", swid0("my_sm_port_guid"));
    EXPECT_TRUE(receiver_->wait_for("get_ib_fn: No file /sys/class/infiniband/vq_ib_0/ports/0/gids/0"));

    // Each file its own: the SWID's LID, the SM's LID, the lower half of the GID.
    write_port_file("lid", "0x5\n");
    write_port_file("sm_lid", "0xb\n");
    write_port_file("gids/0", "fe80:0000:0000:0000:0200:0000:0000:0abc\n");
    EXPECT_EQ("uint16 5", swid0("my_lid"));
    EXPECT_EQ("uint16 11", swid0("sm_lid"));
    EXPECT_EQ("uint64 " + decimal("0200000000000abc"), swid0("my_sm_port_guid"));
    // Decimal is read as decimal, without a newline too.
    write_port_file("lid", "12");
    EXPECT_EQ("uint16 12", swid0("my_lid"));

    // The largest LID, and one beyond.
    write_port_file("sm_lid", "0xffff\n");
    EXPECT_EQ("uint16 65535", swid0("sm_lid"));
    write_port_file("sm_lid", "0x10000\n");
    EXPECT_EQ("uint16 0", swid0("sm_lid"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: get_sm_lid: LID '0x10000' out of range"));

    // Junk behind the number: the number stands.
    write_port_file("lid", "12abc\n");
    EXPECT_EQ("uint16 12", swid0("my_lid"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: get_my_lid: Bad LID format 12abc"));

    // An empty file is as good as none.
    write_port_file("lid", "");
    EXPECT_EQ("uint16 0", swid0("my_lid"));
    EXPECT_TRUE(receiver_->wait_for("get_ib_fn: No data in /sys/class/infiniband/vq_ib_0/ports/0/lid"));

    // A GID one character short, with its separators elsewhere, with junk in the GUID.
    write_port_file("gids/0", "fe80:0000:0000:0000:0200:0000:0000:abc\n");
    EXPECT_EQ("uint64 0", swid0("my_sm_port_guid"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: get_my_sm_port_guid: Invalid format GUID "
                                    "fe80:0000:0000:0000:0200:0000:0000:abc"));
    write_port_file("gids/0", "fe80:0000:0000:0000:0200-0000-0000-0abc\n");
    EXPECT_EQ("uint64 0", swid0("my_sm_port_guid"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: get_my_sm_port_guid: Unexpected format GUID "
                                    "fe80:0000:0000:0000:0200-0000-0000-0abc"));
    write_port_file("gids/0", "fe80:0000:0000:0000:0200:0000:0000:0xyz\n");
    EXPECT_EQ("uint64 " + decimal("0200000000000"), swid0("my_sm_port_guid"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: get_my_sm_port_guid: Bad LID format "
                                    "0x0200000000000xyz"));

    // Another SWID's folder is its own: SWID 3 has none.
    EXPECT_EQ("uint16 0", node("/ib/state/swid/3/my_lid"));
    EXPECT_TRUE(receiver_->wait_for("get_ib_fn: No file /sys/class/infiniband/vq_ib_3/ports/0/lid"));
}

TEST_F(FabricIdentity, DevicesAndSwidsTheDaemonCannotAskAnswerNothing)
{
    ASSERT_NO_FATAL_FAILURE(start(true));
    // SWID 3 is in range but not served here.
    EXPECT_EQ("", node("/ib/state/swid/3/is_sm_in_fabric"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.WARNING]: SWID 3 is not a valid InfiniBand SWID"));
    EXPECT_EQ("", node("/ib/state/swid/3/nodes/1/guid"));
    // Device 2 has no port: it can't be asked, not even for its name.
    receiver_->clear();
    EXPECT_EQ("", swid0("nodes/2/name"));
    EXPECT_TRUE(receiver_->wait_for("[ovd.WARNING]: Get GUID/LID: No IB port found at device:[2]"));
    // Not a device number.
    EXPECT_EQ("", swid0("nodes/x1/lid"));
    EXPECT_TRUE(receiver_->wait_for("Illegal dev ID: x1"));
    // The daemon still answers.
    EXPECT_EQ("bool true", swid0("is_sm_in_fabric"));
}

// A leaf/spine chassis whose five chips are switches of the fabric, spine 1 the local one
// and a subnet manager on it: each chip answers for itself over its direct route.
class FabricIdentityChassis : public FabricIdentity {
protected:
    void SetUp() override
    {
        FabricIdentity::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        model_ = ovd_test::register_models_dir() + "/chassis_leafspine.model";
        std::string why;
        ASSERT_TRUE(rig_->use_chassis_fabric(model_, "22", 1, true, &why)) << why;
    }

    std::string model_;
};

TEST_F(FabricIdentityChassis, EveryChipAgreesWithSmpquery)
{
    std::string config = kConfig;
    config.replace(config.find("uint32    36"), 12, "uint32    22");
    ASSERT_NO_FATAL_FAILURE(
        rig_->start(config, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), model_));
    const std::vector<std::string> chassis = {"--model", model_, "--system-type", "22",
                                              "--master", "1"};
    auto portd = [&](std::vector<std::string> args) {
        args.insert(args.begin(), chassis.begin(), chassis.end());
        return rig_->portd(args);
    };
    ASSERT_EQ(0, portd({"add-devices"}).code) << complaints();
    ASSERT_EQ(0, portd({"route-update"}).code);
    ASSERT_NO_FATAL_FAILURE(write_sysfs_from_fabric());

    const ovd_test::FabricResult pi = rig_->fabric().smpquery({"-D", "portinfo", "0", "0"});
    ASSERT_EQ(0, pi.status) << pi.out;
    EXPECT_EQ("bool true", swid0("is_sm_in_fabric")) << complaints();
    EXPECT_EQ("uint16 101", swid0("my_lid")) << "the topology's LID of chip 1";
    EXPECT_EQ("uint16 " + smp(pi, "Lid"), swid0("my_lid"));
    EXPECT_EQ("uint16 " + smp(pi, "SMLid"), swid0("sm_lid"));

    // The routes the daemon was given, as smpquery's direct-route paths.
    const ovd_test::CtlResult routes = portd({"fabric-routes"});
    ASSERT_EQ(0, routes.code) << routes.err;
    std::map<std::string, std::string> paths = {{"1", "0"}};
    std::istringstream lines(routes.out);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string word, target, hop;
        if (!(words >> word >> target) || word != "route") {
            continue;
        }
        std::string path = "0";
        while (words >> hop) {
            path += "," + hop.substr(hop.find(':') + 1);
        }
        paths[target] = path;
    }
    ASSERT_EQ(5u, paths.size()) << routes.out;
    for (const auto &[dev, path] : paths) {
        const ovd_test::FabricResult ni = rig_->fabric().smpquery({"-D", "nodeinfo", path});
        ASSERT_EQ(0, ni.status) << ni.out;
        const ovd_test::FabricResult chip_pi =
            rig_->fabric().smpquery({"-D", "portinfo", path, "0"});
        ASSERT_EQ(0, chip_pi.status) << chip_pi.out;
        EXPECT_EQ("uint64 " + decimal(smp(ni, "Guid")), swid0("nodes/" + dev + "/guid"))
            << dev << complaints();
        EXPECT_EQ("uint16 " + smp(chip_pi, "Lid"), swid0("nodes/" + dev + "/lid")) << dev;
        EXPECT_EQ("uint16 " + std::to_string(100 + std::stoi(dev)),
                  swid0("nodes/" + dev + "/lid"));
        EXPECT_EQ(dev == "1" || dev == "5" ? "string VQ_SPINE36_EDR" : "string VQ_LEAF18_EDR",
                  swid0("nodes/" + dev + "/name"));
    }

    // Without the subnet manager the chassis has no master any more.
    rig_->fabric().stop_sm();
    std::string answer;
    for (int i = 0; i < 20 && (answer = swid0("is_sm_in_fabric")) != "bool false"; ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ("bool false", answer) << complaints();
}

}  // namespace
