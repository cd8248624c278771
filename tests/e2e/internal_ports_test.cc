// Internal ports end to end on a leaf/spine chassis whose chips are switches of the
// simulated fabric, joined by their internal links: the live attributes of a port inside
// the chassis, its neighbour, and the verdict on its link.
#include <gtest/gtest.h>

#include <set>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

// System type 22: spines are devices 1 and 5, leaves 13, 17 and 21 (see the model).
const char kConfig[] =
    "/system/hostname                            hostname  chassis-switch\n"
    "/system/chassis/sys_disp_str                string    chassis rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    22\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    // Spine 1's port 2, cabled to leaf 13's port 21, is switched off.
    "/ib/config/internalports/66/enable          uint8     0\n";

constexpr unsigned kIfindex(unsigned dev, unsigned local)
{
    return (dev << 6) + local;
}

class InternalPorts : public ovd_test::DaemonRigTest {
protected:
    void SetUp() override
    {
        ovd_test::DaemonRigTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        model_ = ovd_test::register_models_dir() + "/chassis_leafspine.model";
        std::string why;
        ASSERT_TRUE(rig_->use_chassis_fabric(model_, "22", 1, false, &why)) << why;
    }

    // The daemon on the chassis: every chip added (spine 1 the local one), the routes to
    // the others announced, every port enabled.
    void start()
    {
        ASSERT_NO_FATAL_FAILURE(rig_->start(kConfig, "", model_));
        const std::vector<std::string> chassis = {"--model", model_, "--system-type", "22",
                                                  "--master", "1"};
        auto portd = [&](std::vector<std::string> args) {
            args.insert(args.begin(), chassis.begin(), chassis.end());
            return rig_->portd(args);
        };
        ASSERT_EQ(0, portd({"add-devices"}).code) << complaints();
        const ovd_test::CtlResult routes = portd({"route-update"});
        ASSERT_EQ(0, routes.code) << routes.err;
        for (const char *dev : {"1", "5", "13", "17", "21"}) {
            ASSERT_EQ(0, portd({"enable", dev}).code) << dev << complaints();
        }
    }

    std::string attr(const char *family, unsigned ifindex, const std::string &name)
    {
        return node("/ib/state/" + std::string(family) + "/" + std::to_string(ifindex) + "/" +
                    name);
    }

    // Lets the five-second interval of the port cache pass.
    void next_interval() { rig_->shift_clock(6000); }

    std::string model_;
};

TEST_F(InternalPorts, ALinkBetweenTwoChipsAndItsVerdict)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // Leaf 13's port 19 is cabled to spine 1's port 1.
    const unsigned leaf = kIfindex(13, 19);
    const unsigned spine = kIfindex(1, 1);
    EXPECT_EQ("string LinkUp", attr("internal-leaf-ports", leaf, "physical_state")) << complaints();
    EXPECT_EQ("uint32 1", attr("internal-leaf-ports", leaf, "connected_device_slot"));
    EXPECT_EQ("uint8 1", attr("internal-leaf-ports", leaf, "connected_device_port"));
    EXPECT_EQ("string 1", attr("internal-leaf-ports", leaf, "connected_device_active"));
    EXPECT_EQ("uint32 13", attr("internal-spine-ports", spine, "connected_device_slot"));
    EXPECT_EQ("uint8 19", attr("internal-spine-ports", spine, "connected_device_port"));
    // The fabric agrees: the far end of spine 1's port 1 is leaf 13.
    const ovd_test::FabricResult far = rig_->fabric().smpquery({"-D", "nodeinfo", "0,1"});
    EXPECT_NE(far.out.find("0x02ab01000c00000d"), std::string::npos) << far.out;

    // Within two minutes of the enable nothing is blamed; after them a link at full speed
    // and 4X is well, from either end.
    EXPECT_EQ("string 0", attr("internal-leaf-ports", leaf, "has_error"));
    rig_->shift_clock(121000);
    EXPECT_EQ("string 0", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
    EXPECT_EQ("string 0", attr("internal-spine-ports", spine, "has_error")) << complaints();

    // Each end is a read of its own: the registers of both chips were read.
    std::set<std::string> read;
    for (const auto &a : rig_->journal()) {
        if (a.reg == "PMTU" && a.cmd == "GET") {
            read.insert(a.fields.at("dev") + "/" + a.fields.at("key"));
        }
    }
    EXPECT_EQ(1u, read.count("13/19")) << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(1u, read.count("1/1")) << ovd_test::read_file(rig_->journal_path());

    // The leaf's end trained at 1X: that end is in error.
    rig_->poke("port 13 19 width_admin=1\n");
    next_interval();
    EXPECT_EQ("string 1", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
    rig_->poke("port 13 19 width_admin=5\n");
    next_interval();
    EXPECT_EQ("string 0", attr("internal-leaf-ports", leaf, "has_error")) << complaints();

    // The leaf's end runs slower than both ends were given.
    rig_->poke("port 13 19 speed_admin=0x10\n");
    next_interval();
    EXPECT_EQ("string 1", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
}

TEST_F(InternalPorts, APortWithoutANeighbourIsPolling)
{
    ASSERT_NO_FATAL_FAILURE(start());
    // The spines have more internal ports than the leaves: spine 5's last ones are free.
    const unsigned spare = kIfindex(5, 36);
    EXPECT_EQ("string Polling", attr("internal-spine-ports", spare, "physical_state"));
    EXPECT_EQ("", attr("internal-spine-ports", spare, "has_error"));
    EXPECT_EQ("", attr("internal-spine-ports", spare, "speed"));
}

TEST_F(InternalPorts, ALinkSwitchedOffAtTheFarEndIsNoError)
{
    ASSERT_NO_FATAL_FAILURE(start());
    rig_->shift_clock(121000);
    // Spine 1's port 2 is off by configuration: the link is down, the leaf's end polls,
    // and that is what the user asked for.
    const unsigned leaf = kIfindex(13, 21);
    EXPECT_EQ("string Polling", attr("internal-leaf-ports", leaf, "physical_state"))
        << complaints();
    EXPECT_EQ("string 0", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
    // The switched-off end reads disabled, not polling.
    EXPECT_EQ("string Disabled", attr("internal-spine-ports", kIfindex(1, 2), "physical_state"))
        << complaints();
}

TEST_F(InternalPorts, TheFastestSpeedBothEndsWereGivenIsTheMeasure)
{
    ASSERT_NO_FATAL_FAILURE(start());
    rig_->shift_clock(121000);
    // Leaf 13's end of its link to spine 1 is given sdr to qdr (7), the spine's end keeps
    // sdr to fdr10 (15): the fastest speed they share is qdr, and the leaf's end runs it.
    const unsigned leaf = kIfindex(13, 19);
    ASSERT_EQ(0, rig_->lite()
                     .ctl({"set", "/ib/config/internalports/" + std::to_string(leaf) + "/speed",
                           "uint8", "7"})
                     .code);
    ASSERT_TRUE(receiver_->wait_for("link_speed_supported: [7]")) << complaints();
    next_interval();
    EXPECT_EQ("string qdr", attr("internal-leaf-ports", leaf, "speed")) << complaints();
    EXPECT_EQ("string 0", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
    // Below that, the link is in error.
    rig_->poke("port 13 19 speed_admin=0x3\n");
    next_interval();
    EXPECT_EQ("string ddr", attr("internal-leaf-ports", leaf, "speed")) << complaints();
    EXPECT_EQ("string 1", attr("internal-leaf-ports", leaf, "has_error")) << complaints();
}

}  // namespace
