// The simulated fabric itself: direct-routed SMPs to the attached switch and two hops
// away, the subnet manager assigning LIDs, links taken down and up through the console,
// PMA queries, and two fabrics side by side.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "fabric.h"

namespace {

using ovd_test::Fabric;
using ovd_test::FabricOptions;
using ovd_test::FabricResult;

class FabricTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!Fabric::available(&why)) {
            GTEST_SKIP() << "no fabric simulator: " << why;
        }
    }

    // Starts a fabric; a machine that has the simulator must be able to run it.
    static void start(Fabric *fabric)
    {
        std::string why;
        ASSERT_TRUE(fabric->start(&why)) << why;
    }

    static std::string get(const FabricResult &r, const std::string &name)
    {
        return Fabric::field(r.out, name);
    }
};

TEST_F(FabricTest, AttachedSwitchAnswersNodeInfo)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult r = fabric.smpquery({"-D", "nodeinfo", "0"});
    ASSERT_EQ(0, r.status) << r.out;
    EXPECT_EQ("Switch", get(r, "NodeType"));
    EXPECT_EQ("36", get(r, "NumPorts"));
    EXPECT_EQ("0x02ab010000aa0000", get(r, "Guid"));
    const FabricResult desc = fabric.smpquery({"-D", "nodedesc", "0"});
    ASSERT_EQ(0, desc.status) << desc.out;
    EXPECT_NE(std::string::npos, desc.out.find("sw1 managed switch")) << desc.out;
}

TEST_F(FabricTest, DirectRouteTwoHopsAway)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult hop1 = fabric.smpquery({"-D", "nodedesc", "0,35"});
    ASSERT_EQ(0, hop1.status) << hop1.out;
    EXPECT_NE(std::string::npos, hop1.out.find("sw2 second switch")) << hop1.out;

    const FabricResult node = fabric.smpquery({"-D", "nodeinfo", "0,35,1"});
    ASSERT_EQ(0, node.status) << node.out;
    EXPECT_EQ("Channel Adapter", get(node, "NodeType"));
    const FabricResult port = fabric.smpquery({"-D", "portinfo", "0,35,1", "1"});
    ASSERT_EQ(0, port.status) << port.out;
    EXPECT_EQ("15", get(port, "Lid"));
    EXPECT_EQ("4X", get(port, "LinkWidthActive"));

    // Behind an unconnected port nobody answers.
    EXPECT_NE(0, fabric.smpquery({"-D", "nodeinfo", "0,35,3"}).status);
}

TEST_F(FabricTest, SubnetManagerAssignsLids)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // hca4 (behind sw1 port 4) has no LID in the topology.
    FabricResult before = fabric.smpquery({"-D", "portinfo", "0,4", "1"});
    ASSERT_EQ(0, before.status) << before.out;
    EXPECT_EQ("0", get(before, "Lid"));
    EXPECT_EQ("Initialize", get(before, "LinkState"));

    std::string why;
    ASSERT_TRUE(fabric.start_sm(&why)) << why;
    const FabricResult after = fabric.smpquery({"-D", "portinfo", "0,4", "1"});
    ASSERT_EQ(0, after.status) << after.out;
    EXPECT_NE("0", get(after, "Lid"));
    EXPECT_NE("", get(after, "Lid"));
    EXPECT_EQ("Active", get(after, "LinkState"));
    EXPECT_EQ("1", get(after, "SMLid"));
    // Pinned LIDs are kept, and LID-routed queries now reach across the fabric.
    EXPECT_EQ("11", get(fabric.smpquery({"-D", "portinfo", "0,1", "1"}), "Lid"));
    const FabricResult routed = fabric.smpquery({"nodeinfo", "15"});
    ASSERT_EQ(0, routed.status) << routed.out;
    EXPECT_EQ("Channel Adapter", get(routed, "NodeType"));
}

TEST_F(FabricTest, LinkTakenDownIsSeenAndComesBack)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    ASSERT_EQ(0, fabric.smpquery({"-D", "nodeinfo", "0,1"}).status);

    ASSERT_TRUE(fabric.link_down("sw1", 1));
    const FabricResult down = fabric.smpquery({"-D", "portinfo", "0", "1"});
    ASSERT_EQ(0, down.status) << down.out;
    EXPECT_EQ("Down", get(down, "LinkState"));
    EXPECT_EQ("Polling", get(down, "PhysLinkState"));
    EXPECT_NE(0, fabric.smpquery({"-D", "nodeinfo", "0,1"}).status);
    // The other ports are untouched.
    EXPECT_EQ("LinkUp", get(fabric.smpquery({"-D", "portinfo", "0", "2"}), "PhysLinkState"));

    ASSERT_TRUE(fabric.link_up("sw1", 1));
    const FabricResult up = fabric.smpquery({"-D", "portinfo", "0", "1"});
    EXPECT_EQ("LinkUp", get(up, "PhysLinkState")) << up.out;
    EXPECT_EQ(0, fabric.smpquery({"-D", "nodeinfo", "0,1"}).status);

    EXPECT_FALSE(fabric.link_down("nosuchnode", 1));
    std::string answer;
    ASSERT_TRUE(fabric.console("NoSuchCommand", &answer));
    EXPECT_NE(std::string::npos, answer.find("unknown")) << answer;
}

TEST_F(FabricTest, PortCountersOfTheSwitch)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // The attached switch's own LID is reachable without a subnet manager.
    const FabricResult r = fabric.perfquery({"1", "35"});
    ASSERT_EQ(0, r.status) << r.out;
    EXPECT_EQ("35", get(r, "PortSelect"));
    ASSERT_TRUE(fabric.console("PerformanceSet \"sw1\"[35] PortCounters.SymbolErrorCounter=17"));
    EXPECT_EQ("17", get(fabric.perfquery({"1", "35"}), "SymbolErrorCounter"));
}

TEST_F(FabricTest, TwoFabricsRunSideBySide)
{
    Fabric a(FabricOptions{.topology = "", .attach = "sw1", .with_sm = true, .sm_node = ""});
    Fabric b;
    ASSERT_NO_FATAL_FAILURE(start(&a));
    ASSERT_NO_FATAL_FAILURE(start(&b));
    EXPECT_NE(a.sockname(), b.sockname());
    EXPECT_NE(a.dir(), b.dir());

    ASSERT_TRUE(b.link_down("sw1", 2));
    EXPECT_EQ("Down", get(b.smpquery({"-D", "portinfo", "0", "2"}), "LinkState"));
    EXPECT_EQ("Active", get(a.smpquery({"-D", "portinfo", "0", "2"}), "LinkState"));
    // Only a has a subnet manager.
    EXPECT_NE("0", get(a.smpquery({"-D", "portinfo", "0,4", "1"}), "Lid"));
    EXPECT_EQ("0", get(b.smpquery({"-D", "portinfo", "0,4", "1"}), "Lid"));
    EXPECT_EQ(0, a.smpquery({"-D", "nodeinfo", "0,35,1"}).status);
    EXPECT_EQ(0, b.smpquery({"-D", "nodeinfo", "0,35,1"}).status);

    const std::string a_dir = a.dir();
    a.stop();
    struct stat st = {};
    EXPECT_NE(0, stat(a_dir.c_str(), &st));
    EXPECT_FALSE(a.running());
    EXPECT_NE(0, a.smpquery({"-D", "nodeinfo", "0"}).status);
    EXPECT_EQ(0, b.smpquery({"-D", "nodeinfo", "0"}).status);
}

TEST_F(FabricTest, ClientEnvironmentNamesTheInstance)
{
    Fabric fabric(FabricOptions{.topology = "", .attach = "sw2", .with_sm = false, .sm_node = ""});
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const auto env = fabric.client_env();
    ASSERT_EQ(3u, env.size());
    EXPECT_EQ(0u, env[0].find("LD_PRELOAD="));
    EXPECT_EQ("IBSIM_SOCKNAME=" + fabric.sockname(), env[1]);
    EXPECT_EQ("SIM_HOST=sw2", env[2]);
    // Attached as sw2, the local node is the second switch.
    EXPECT_NE(std::string::npos,
              fabric.smpquery({"-D", "nodedesc", "0"}).out.find("sw2 second switch"));
    EXPECT_NE(std::string::npos,
              fabric.smpquery({"-D", "nodedesc", "0"}, "sw1").out.find("sw1 managed switch"));
}

}  // namespace
