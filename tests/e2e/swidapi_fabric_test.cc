// The hardware access layer against the simulated fabric: sa-probe opens SWID 0's device
// "vq_ib_0" through our umad bridge, stacked in front of the simulator's preload, and its
// answers are compared with smpquery's for the same ports in the same fabric.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fabric.h"

namespace {

using ovd_test::Fabric;
using ovd_test::FabricOptions;
using ovd_test::FabricResult;

// The PortInfo fields the layer decodes, in smpquery's names.
const std::vector<std::string> k_port_fields = {
    "Lid",           "LocalPort",       "LinkWidthEnabled", "LinkWidthSupported", "LinkWidthActive",
    "LinkSpeedSupported", "LinkSpeedEnabled", "LinkSpeedActive", "LinkState",     "PhysLinkState",
    "LinkDownDefState", "MtuCap",        "NeighborMTU",      "VLCap",              "OperVLs",
};

class SwidapiFabricTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string why;
        if (!Fabric::available(&why)) {
            GTEST_SKIP() << "no fabric simulator: " << why;
        }
    }

    static void start(Fabric *fabric)
    {
        std::string why;
        ASSERT_TRUE(fabric->start(&why)) << why;
    }

    static FabricResult probe(Fabric *fabric, const std::vector<std::string> &args)
    {
        std::vector<std::string> argv = {OVD_SA_PROBE};
        argv.insert(argv.end(), args.begin(), args.end());
        return fabric->run_preloaded(argv, {OVD_UMAD_BRIDGE});
    }

    static std::string get(const FabricResult &r, const std::string &name)
    {
        return Fabric::field(r.out, name);
    }

    // PortInfo of one port at the end of a path, by sa_get_port_info and by smpquery.
    static void expect_port_info_matches(Fabric *fabric, const std::string &path, int port)
    {
        SCOPED_TRACE("path " + path + " port " + std::to_string(port));
        const FabricResult ours = probe(fabric, {"portinfo", path, std::to_string(port)});
        ASSERT_EQ(0, ours.status) << ours.out;
        ASSERT_EQ("0", get(ours, "status")) << ours.out;
        const FabricResult theirs = fabric->smpquery({"-D", "portinfo", path, std::to_string(port)});
        ASSERT_EQ(0, theirs.status) << theirs.out;
        for (const auto &name : k_port_fields) {
            EXPECT_NE("", get(theirs, name)) << name << "\n" << theirs.out;
            EXPECT_EQ(get(theirs, name), get(ours, name)) << name << "\n" << ours.out;
        }
    }
};

TEST_F(SwidapiFabricTest, PortInfoOfTheLocalSwitchMatchesSmpquery)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // A port that is down differs from the others in its states.
    ASSERT_TRUE(fabric.link_down("sw1", 2));
    for (int port : {0, 1, 2, 4, 35}) {
        expect_port_info_matches(&fabric, "0", port);
    }
    // A path of no hops needs no walk: one PortInfo, to the local node.
    const FabricResult r = probe(&fabric, {"portinfo", "0", "3"});
    EXPECT_EQ("1", get(r, "portinfo_queries")) << r.out;
    EXPECT_EQ("0", get(r, "status")) << r.out;
}

TEST_F(SwidapiFabricTest, PortInfoOverDirectRoutesMatchesSmpquery)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    expect_port_info_matches(&fabric, "0,35", 1);
    expect_port_info_matches(&fabric, "0,35", 2);
    expect_port_info_matches(&fabric, "0,35,1", 1);
    // Two hops: each hop's exit port is checked before the query itself.
    const FabricResult r = probe(&fabric, {"portinfo", "0,35,1", "1"});
    EXPECT_EQ("3", get(r, "portinfo_queries")) << r.out;
}

TEST_F(SwidapiFabricTest, NodeInfoGuidAndLidMatchSmpquery)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    for (const std::string path : {"0", "0,35", "0,35,1"}) {
        SCOPED_TRACE(path);
        const FabricResult ours = probe(&fabric, {"nodeinfo", path});
        ASSERT_EQ("0", get(ours, "status")) << ours.out;
        const FabricResult theirs = fabric.smpquery({"-D", "nodeinfo", path});
        ASSERT_EQ(0, theirs.status) << theirs.out;
        EXPECT_EQ(get(theirs, "Guid"), get(ours, "Guid"));
        const FabricResult port0 = fabric.smpquery({"-D", "portinfo", path, "0"});
        EXPECT_EQ(get(port0, "Lid"), get(ours, "node_lid")) << port0.out;
    }
    EXPECT_EQ("0x02ab010000aa0000", get(probe(&fabric, {"nodeinfo", "0"}), "Guid"));
    EXPECT_EQ("15", get(probe(&fabric, {"nodeinfo", "0,35,1"}), "node_lid"));
}

TEST_F(SwidapiFabricTest, NodeWithoutLid)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // hca4 has no LID until a subnet manager gives it one.
    const FabricResult lid = probe(&fabric, {"lid", "0,4"});
    EXPECT_EQ(std::to_string(77), get(lid, "status")) << lid.out;
    EXPECT_EQ("No Lid", get(lid, "status_text"));
    EXPECT_EQ("65535", get(lid, "lid")) << "the caller's LID is left alone";
    const FabricResult node = probe(&fabric, {"nodeinfo", "0,4"});
    EXPECT_EQ("0", get(node, "status")) << node.out;
    EXPECT_EQ("0", get(node, "node_lid"));
    EXPECT_EQ("2", get(probe(&fabric, {"lid", "0,35"}), "lid"));
}

TEST_F(SwidapiFabricTest, BrokenSecondHopStopsTheWalkAfterTwoQueries)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult good = probe(&fabric, {"checkpath", "0,35,1"});
    EXPECT_EQ("0", get(good, "status")) << good.out;
    EXPECT_EQ("0", get(good, "failed_port"));
    EXPECT_EQ("2", get(good, "portinfo_queries"));

    // sw2's port 1 is where the path leaves the second node.
    ASSERT_TRUE(fabric.link_down("sw2", 1));
    const FabricResult broken = probe(&fabric, {"checkpath", "0,35,1"});
    EXPECT_EQ(std::to_string(89), get(broken, "status")) << broken.out;
    EXPECT_EQ("DIRECT ROUTE IS BROKEN DUE TO PORT DOWN", get(broken, "status_text"));
    EXPECT_EQ("1", get(broken, "failed_port"));
    EXPECT_EQ("2", get(broken, "portinfo_queries"));
    EXPECT_NE(std::string::npos, broken.out.find("check_dr_path: Internal Port 1, DR path")) << broken.out;

    // The query behind the walk is not sent.
    const FabricResult port = probe(&fabric, {"portinfo", "0,35,1", "1"});
    EXPECT_EQ(std::to_string(89), get(port, "status")) << port.out;
    EXPECT_EQ("2", get(port, "portinfo_queries"));

    // A first hop down ends the walk at once.
    ASSERT_TRUE(fabric.link_down("sw1", 35));
    const FabricResult first = probe(&fabric, {"checkpath", "0,35,1"});
    EXPECT_EQ(std::to_string(89), get(first, "status")) << first.out;
    EXPECT_EQ("35", get(first, "failed_port"));
    EXPECT_EQ("1", get(first, "portinfo_queries"));

    ASSERT_TRUE(fabric.link_up("sw1", 35));
    ASSERT_TRUE(fabric.link_up("sw2", 1));
    EXPECT_EQ("0", get(probe(&fabric, {"checkpath", "0,35,1"}), "status"));
}

TEST_F(SwidapiFabricTest, MasterSmUpWithASubnetManager)
{
    Fabric fabric(FabricOptions{.topology = "", .attach = "sw1", .with_sm = true, .sm_node = ""});
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult r = probe(&fabric, {"master"});
    EXPECT_EQ("0", get(r, "status")) << r.out;
    EXPECT_EQ("1", get(r, "master_up"));
    EXPECT_EQ("10", get(r, "retries"));
    EXPECT_EQ("10", get(r, "retries_after"));
}

TEST_F(SwidapiFabricTest, MasterSmDownWhenItsPortDoesNotAnswer)
{
    // The subnet manager runs on hca1, behind sw1's port 1.
    Fabric fabric(FabricOptions{.topology = "", .attach = "sw1", .with_sm = true, .sm_node = "hca1"});
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult up = probe(&fabric, {"master"});
    EXPECT_EQ("0", get(up, "status")) << up.out;
    EXPECT_EQ("1", get(up, "master_up"));

    // The switch still names it as its SM, but nothing answers at that LID.
    fabric.stop_sm();
    ASSERT_TRUE(fabric.link_down("sw1", 1));
    const FabricResult down = probe(&fabric, {"master"});
    EXPECT_EQ("0", get(down, "status")) << down.out;
    EXPECT_EQ("0", get(down, "master_up"));
    EXPECT_EQ("10", get(down, "retries_after"));
}

TEST_F(SwidapiFabricTest, NoSmLidKnownWithoutASubnetManager)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    const FabricResult r = probe(&fabric, {"master"});
    EXPECT_EQ("20", get(r, "status")) << r.out;
    EXPECT_EQ("-1", get(r, "master_up")) << "left as the caller had it";
    EXPECT_EQ("10", get(r, "retries_after"));
}

TEST_F(SwidapiFabricTest, BridgeMapsEverySwidDevice)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // The driver's attribute files are read as the process sees them, not through the
    // simulator's picture of sysfs: here there are none (the fabric identity tests mount
    // a tree filled from the fabric).
    const FabricResult missing = probe(&fabric, {"sysfs", "no_such_file"});
    EXPECT_EQ(std::to_string(14004), get(missing, "err")) << missing.out;
    EXPECT_NE(std::string::npos, missing.out.find("get_ib_fn: No file /sys/class/infiniband/vq_ib_0/no_such_file"))
        << missing.out;

    // Another SWID's device lands on the same simulated device.
    const FabricResult swid3 = probe(&fabric, {"-s", "3", "nodeinfo", "0"});
    EXPECT_EQ("0x02ab010000aa0000", get(swid3, "Guid")) << swid3.out;
    EXPECT_NE(std::string::npos, swid3.out.find("IB DEVICE NAME : [vq_ib_3]")) << swid3.out;

    // Without the bridge the device of the SWID does not exist.
    const FabricResult plain = fabric.run_preloaded({OVD_SA_PROBE, "nodeinfo", "0"}, {});
    EXPECT_EQ(1, plain.status) << plain.out;
    EXPECT_EQ(std::to_string(14000), get(plain, "init")) << plain.out;
    EXPECT_NE(std::string::npos, plain.out.find("Mad rpc open port failed, device:[vq_ib_0] port:[0]"))
        << plain.out;
}

}  // namespace

namespace {

// Port counters by Performance Management datagrams over a LID route, beside perfquery.
TEST_F(SwidapiFabricTest, PortCountersMatchPerfqueryAndScaleTheByteCounts)
{
    Fabric fabric;
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    // The attached switch is LID 1: without a subnet manager the switches forward no
    // LID-routed packets, but the local one answers its own.
    ASSERT_TRUE(fabric.console("PerformanceSet \"sw1\"[35] PortCounters.SymbolErrorCounter=17"));
    ASSERT_TRUE(fabric.console("PerformanceSet \"sw1\"[35] PortCounters.PortXmitData=1000"));
    ASSERT_TRUE(fabric.console("PerformanceSet \"sw1\"[35] PortCounters.PortRcvData=1073741823"));
    FabricResult ours = probe(&fabric, {"counters", "0", "35"});
    ASSERT_EQ("0", get(ours, "status")) << ours.out;
    EXPECT_EQ("1", get(ours, "lid"));
    const FabricResult theirs = fabric.perfquery({"1", "35"});
    ASSERT_EQ(0, theirs.status) << theirs.out;
    EXPECT_EQ(get(theirs, "SymbolErrorCounter"), get(ours, "symbol_err_cnt"));
    EXPECT_EQ(get(theirs, "PortXmitPkts"), get(ours, "xmit_pkts"));
    // Bytes: the hardware counts in units of four.
    EXPECT_EQ("4000", get(ours, "xmit_data_bytes"));
    EXPECT_EQ("4294967292", get(ours, "rcv_data_bytes"));
    ASSERT_TRUE(fabric.console("PerformanceSet \"sw1\"[35] PortCounters.PortRcvData=1073741824"));
    ours = probe(&fabric, {"counters", "0", "35"});
    EXPECT_EQ("4294967295", get(ours, "rcv_data_bytes")) << "saturates";

    // Three reads of one device with the cache on walk the path once.
    ours = probe(&fabric, {"counters", "0", "35", "3"});
    EXPECT_EQ("0", get(ours, "status")) << ours.out;
    EXPECT_EQ("1", get(ours, "portinfo_queries"));

    // Device 0 on a fresh context hits the zeroed cache: the query to LID 0 fails, and a
    // fresh look-up repairs it.
    ours = probe(&fabric, {"-d", "0", "counters", "0", "35"});
    EXPECT_EQ("0", get(ours, "status")) << ours.out;
    EXPECT_NE(ours.out.find("Could not send MAD using LID:[0] from cache, forcing new LID "
                            "calculation"),
              std::string::npos)
        << ours.out;

    // The extended attribute: the 64-bit byte counts, times four, beside perfquery -x.
    ours = probe(&fabric, {"extcounters", "0", "35"});
    ASSERT_EQ("0", get(ours, "status")) << ours.out;
    const FabricResult ext = fabric.perfquery({"-x", "1", "35"});
    ASSERT_EQ(0, ext.status) << ext.out;
    EXPECT_EQ(std::to_string(std::stoull(get(ext, "PortXmitData")) * 4),
              get(ours, "xmit_data_bytes"))
        << ext.out << ours.out;
    EXPECT_EQ(get(ext, "PortXmitPkts"), get(ours, "xmit_pkts"));

    // A clear looks the LID up anew and leaves the counters at zero.
    ours = probe(&fabric, {"clear", "0", "35"});
    EXPECT_EQ("0", get(ours, "status")) << ours.out;
    EXPECT_EQ("1", get(ours, "portinfo_queries"));
    EXPECT_EQ("0", get(fabric.perfquery({"1", "35"}), "SymbolErrorCounter"));
    EXPECT_EQ("0", get(probe(&fabric, {"counters", "0", "35"}), "xmit_data_bytes"));

    // Traffic across the port (directed-route queries to the switch behind it) moves the
    // counters the same for both readers.
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(0, fabric.smpquery({"-D", "nodeinfo", "0,35"}).status);
    }
    ours = probe(&fabric, {"counters", "0", "35"});
    const FabricResult after = fabric.perfquery({"1", "35"});
    EXPECT_NE("0", get(ours, "xmit_pkts")) << ours.out;
    EXPECT_EQ(get(after, "PortXmitPkts"), get(ours, "xmit_pkts")) << after.out;
    EXPECT_EQ(get(after, "PortRcvPkts"), get(ours, "rcv_pkts")) << after.out;
    EXPECT_EQ(std::to_string(std::stoull(get(after, "PortXmitData")) * 4),
              get(ours, "xmit_data_bytes"));

    // A node without a LID has no counters to read.
    ours = probe(&fabric, {"counters", "0,4", "1"});
    EXPECT_EQ(std::to_string(77), get(ours, "status")) << ours.out;
}

}  // namespace

namespace {

// The walk along the forwarding tables: without a subnet manager the tables hold nothing;
// with one, LIDs on this switch, one hop and two hops away are reached.
TEST_F(SwidapiFabricTest, LidRouteFollowsTheForwardingTables)
{
    {
        Fabric fabric;
        ASSERT_NO_FATAL_FAILURE(start(&fabric));
        const FabricResult r = probe(&fabric, {"route", "1"});
        EXPECT_EQ("3", get(r, "route")) << r.out;
        EXPECT_EQ("LID NOT FOUND AT FORWARDING TABLE, SM DID NOT CONFIGURED IT",
                  get(r, "route_text"));
        EXPECT_NE(r.out.find("check_lid_route: lid 1 not set in LFT of"), std::string::npos)
            << r.out;
    }
    Fabric fabric(FabricOptions{.topology = "", .attach = "sw1", .with_sm = true, .sm_node = ""});
    ASSERT_NO_FATAL_FAILURE(start(&fabric));
    for (const char *lid : {"1", "2"}) {
        const FabricResult r = probe(&fabric, {"route", lid});
        EXPECT_EQ("0", get(r, "route")) << lid << "\n" << r.out;
        EXPECT_EQ("LID ROUTE OK", get(r, "route_text")) << lid;
    }
    // The walk is for switch LIDs: an adapter two hops away has no table to read.
    const FabricResult hca = probe(&fabric, {"route", "15"});
    EXPECT_EQ("2", get(hca, "route")) << hca.out;
    EXPECT_EQ("FAILED TO BRING FORWARDING TABLE", get(hca, "route_text"));
    // A LID nobody has: the table's entry is empty.
    EXPECT_EQ("3", get(probe(&fabric, {"route", "700"}), "route"));

    // The LED datagram goes out by the switch's LID.
    const FabricResult led = probe(&fabric, {"led", "0", "1"});
    EXPECT_EQ("0", get(led, "status")) << led.out;
}

}  // namespace
