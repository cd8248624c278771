// Direct routes: the three tables filled from the route computer's event, and the search
// for a live path, which skips paths through a port already found down.  The live check is
// replaced by one that answers from a set of down IB ports and records every probe.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_types.h"
#include "fabric.h"
#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "swidapi.h"

namespace {

const uint32 k_chassis_type = 19;
const uint32 k_standalone_type = 37;

class Event {
public:
    Event() { EXPECT_EQ(bn_binding_array_new(&arr_), 0); }
    ~Event() { bn_binding_array_free(&arr_); }
    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;
    const bn_binding_array *get() const { return arr_; }

    void u8(const std::string &name, uint8 v) { take(bn_binding_new_uint8(&b_, name.c_str(), ba_value, 0, v)); }
    void u32(const std::string &name, uint32 v) { take(bn_binding_new_uint32(&b_, name.c_str(), ba_value, 0, v)); }

    // One target: each path a list of (devid, local port) hops.
    using Path = std::vector<std::pair<uint32, uint8>>;
    void target(uint32 devid, const std::vector<Path> &paths)
    {
        const std::string t = "target_" + std::to_string(++targets_);
        u32(t + "_device_id", devid);
        u32(t + "_number_of_paths", static_cast<uint32>(paths.size()));
        for (size_t p = 0; p < paths.size(); ++p) {
            const std::string tp = t + "_path_" + std::to_string(p + 1);
            u32(tp + "_length", static_cast<uint32>(paths[p].size()));
            for (size_t h = 0; h < paths[p].size(); ++h) {
                const std::string tph = tp + "_hop_" + std::to_string(h + 1);
                u32(tph + "_devid", paths[p][h].first);
                u8(tph + "_localport", paths[p][h].second);
            }
        }
    }
    void head(uint8 swid)
    {
        u8("swid", swid);
        u32("number_of_target_devices", static_cast<uint32>(targets_));
    }

private:
    void take(int err)
    {
        ASSERT_EQ(err, 0);
        ASSERT_EQ(bn_binding_array_append_takeover(arr_, &b_), 0);
    }
    bn_binding_array *arr_ = nullptr;
    bn_binding *b_ = nullptr;
    int targets_ = 0;
};

// PortInfo SMPs sent by the hardware layer in this process, counted on their way to
// libibmad.
int g_portinfo_smps = 0;

}  // namespace

extern "C" uint8_t *smp_query_via(void *rcvbuf, ib_portid_t *portid, unsigned attrid, unsigned mod,
                                  unsigned timeout, const struct ibmad_port *srcport)
{
    using fn_t = uint8_t *(*)(void *, ib_portid_t *, unsigned, unsigned, unsigned,
                              const struct ibmad_port *);
    static fn_t next = reinterpret_cast<fn_t>(dlsym(RTLD_NEXT, "smp_query_via"));
    if (attrid == IB_ATTR_PORT_INFO) {
        ++g_portinfo_smps;
    }
    return next != nullptr ? next(rcvbuf, portid, attrid, mod, timeout, srcport) : nullptr;
}

namespace {

// The live check: the first hop whose port is down stops the walk, as the hardware layer's
// does; every probe is recorded as its route "p1,p2,...".
std::vector<uint8> g_down_ports;
std::vector<std::string> g_probes;

int fake_check(swidapi_t *, ib_dr_path_t *dr_path, uint8_t *failed_ib_port)
{
    std::string route;
    *failed_ib_port = 0;
    for (int h = 1; h <= dr_path->cnt; ++h) {
        route += (h > 1 ? "," : "") + std::to_string(dr_path->p[h]);
    }
    g_probes.push_back(route);
    for (int h = 1; h <= dr_path->cnt; ++h) {
        for (uint8 down : g_down_ports) {
            if (dr_path->p[h] == down) {
                *failed_ib_port = down;
                return SARC_DR_PORT_DOWN_ERROR;
            }
        }
    }
    return SARC_OK;
}

void DirectRoutes_add_port(uint32 devid, uint8 local, uint8 ibport)
{
    ifindexInformation info{};
    info.devid = devid;
    info.localport = local;
    info.ibport = ibport;
    tstring *key = nullptr;
    ASSERT_EQ(ts_new_sprintf(&key, "%u", (devid << 6) + local), 0);
    ASSERT_EQ(ht_insert(ibports_ht, key, ts_length(key), &info), 0);
    ts_free(&key);
}

class DirectRoutes : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        ASSERT_EQ(ibPortsCacheInit(), 0);
        g_ovd_dr_path_check = fake_check;
        g_down_ports.clear();
        g_probes.clear();
        system_type = k_chassis_type;
        master_devid = 1;
        serve_swid(0);
        // The master's ports toward the spines: local 10, 11, 12 are IB ports 30, 31, 32;
        // spine 2's local 5 is IB port 30 as well.
        add_port(1, 10, 30);
        add_port(1, 11, 31);
        add_port(1, 12, 32);
        add_port(2, 5, 30);
        add_port(2, 6, 33);
    }
    void TearDown() override
    {
        for (swidapi_t *&ctx : swidapi_handles) {
            free(ctx);
            ctx = nullptr;
        }
        ovd_direct_routes_free();
        g_ovd_dr_path_check = check_dr_path;
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        system_type = 0;
        master_devid = 0;
        lc_log_suspend(false);
    }

    static void serve_swid(int swid)
    {
        swidapi_handles[swid] = static_cast<swidapi_t *>(calloc(1, sizeof(swidapi_t)));
        ASSERT_NE(swidapi_handles[swid], nullptr);
    }
    static void add_port(uint32 devid, uint8 local, uint8 ibport)
    {
        DirectRoutes_add_port(devid, local, ibport);
    }
    static std::string route_of(const ib_dr_path_t &path)
    {
        std::string route;
        for (int h = 1; h <= path.cnt; ++h) {
            route += (h > 1 ? "," : "") + std::to_string(path.p[h]);
        }
        return route;
    }
};

TEST_F(DirectRoutes, TablesFollowTheEventInOrder)
{
    Event ev;
    ev.target(73, {{{1, 10}}, {{1, 11}, {2, 6}}});
    ev.target(74, {{}});
    ev.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(ev.get()), 0);

    EXPECT_EQ(current_number_of_devices, 2u);
    EXPECT_EQ(current_number_of_paths, 3u);
    EXPECT_EQ(current_number_of_hops, 3u);
    EXPECT_EQ(devices_table[1].devid, 73u);
    EXPECT_EQ(devices_table[1].first_cell_in_path_table, 1u);
    EXPECT_EQ(devices_table[1].number_of_paths, 2u);
    EXPECT_EQ(devices_table[2].devid, 74u);
    EXPECT_EQ(devices_table[2].first_cell_in_path_table, 3u);
    EXPECT_EQ(paths_table[1].first_cell_in_hop_table, 1u);
    EXPECT_EQ(paths_table[1].number_of_hop_in_paths, 1u);
    EXPECT_EQ(paths_table[2].first_cell_in_hop_table, 2u);
    EXPECT_EQ(paths_table[2].number_of_hop_in_paths, 2u);
    EXPECT_EQ(paths_table[3].number_of_hop_in_paths, 0u);
    EXPECT_EQ(hops_table[3].devid, 2u);
    EXPECT_EQ(hops_table[3].port, 6);

    // A path of no hops is valid at once and is checked as the empty route.
    ib_dr_path_t path{};
    tbool exists = false;
    ASSERT_EQ(getDirectRouteInfoPath(74, &path, &exists), 0);
    EXPECT_TRUE(exists);
    EXPECT_EQ(path.cnt, 0);
    EXPECT_EQ(g_probes, std::vector<std::string>{""});
}

TEST_F(DirectRoutes, OtherSwidEmptyAndOversizedEvents)
{
    Event first;
    first.target(73, {{{1, 10}}});
    first.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(first.get()), 0);
    const dr_path_info *paths_before = paths_table;

    // A SWID this daemon doesn't serve: the old tables stand.
    Event other;
    other.target(80, {{{1, 11}}});
    other.head(3);
    ASSERT_EQ(ovd_handle_update_direct_route_event(other.get()), 0);
    EXPECT_EQ(paths_table, paths_before);
    EXPECT_EQ(devices_table[1].devid, 73u);

    // More targets than the table holds: refused before anything changes.
    Event huge;
    huge.u8("swid", 0);
    huge.u32("number_of_target_devices", OVD_DR_MAX_DEVICES + 1);
    EXPECT_EQ(ovd_handle_update_direct_route_event(huge.get()), lc_err_range);
    EXPECT_EQ(current_number_of_devices, 1u);

    // No targets: empty tables of one cell each.
    Event none;
    none.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(none.get()), 0);
    EXPECT_EQ(current_number_of_devices, 0u);
    EXPECT_EQ(current_number_of_paths, 0u);
    EXPECT_NE(paths_table, nullptr);
    EXPECT_NE(hops_table, nullptr);
    EXPECT_EQ(devices_table[1].devid, 0u);

    // A missing binding is the plain 1.  An event of a served SWID replaces the tables
    // whole, so the old routes are gone even when its target count can't be read.
    ASSERT_EQ(ovd_handle_update_direct_route_event(first.get()), 0);
    ASSERT_EQ(current_number_of_devices, 1u);
    Event broken;
    broken.target(73, {{{1, 10}}});
    broken.u8("swid", 0);
    EXPECT_EQ(ovd_handle_update_direct_route_event(broken.get()), 1);
    EXPECT_EQ(current_number_of_devices, 0u);
    EXPECT_EQ(devices_table[1].devid, 0u);
    EXPECT_EQ(paths_table, nullptr);
    ib_dr_path_t path{};
    tbool exists = true;
    ASSERT_EQ(getDirectRouteInfoPath(73, &path, &exists), 0);
    EXPECT_FALSE(exists) << "no route is left to the old target";
}

TEST_F(DirectRoutes, PathsThroughADownPortAreSkippedWithoutAProbe)
{
    Event ev;
    // Path 1 and 2 leave by IB port 30 (of device 1, and of device 2 on path 2's second
    // hop); path 3 by 32.  Device 75 has only paths through 30.
    ev.target(73, {{{1, 10}}, {{1, 11}, {2, 5}}, {{1, 12}, {2, 6}}});
    ev.target(75, {{{1, 10}}, {{1, 10}, {2, 6}}});
    ev.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(ev.get()), 0);

    g_down_ports = {30};
    ib_dr_path_t path{};
    tbool exists = false;
    ASSERT_EQ(getDirectRouteInfoPath(73, &path, &exists), 0);
    EXPECT_TRUE(exists);
    EXPECT_EQ(route_of(path), "32,33");
    // The second path's port 30 is another device's, yet it is not probed either.
    EXPECT_EQ(g_probes, (std::vector<std::string>{"30", "32,33"}));

    // All paths through the down port: one probe, then no path.
    g_probes.clear();
    ib_dr_path_t none{};
    ASSERT_EQ(getDirectRouteInfoPath(75, &none, &exists), 0);
    EXPECT_FALSE(exists);
    EXPECT_EQ(g_probes, std::vector<std::string>{"30"});

    // Up again: the first path is taken.
    g_down_ports.clear();
    g_probes.clear();
    ib_dr_path_t first{};
    ASSERT_EQ(getDirectRouteInfoPath(73, &first, &exists), 0);
    EXPECT_TRUE(exists);
    EXPECT_EQ(route_of(first), "30");
    EXPECT_EQ(g_probes.size(), 1u);
}

TEST_F(DirectRoutes, LocalChipUnknownDeviceAndUnknownPort)
{
    Event ev;
    ev.target(73, {{{1, 10}}});
    ev.target(76, {{{1, 40}}});
    ev.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(ev.get()), 0);

    // The master is the local chip: the caller's route as it was, no probe.
    ib_dr_path_t path{};
    path.cnt = 0;
    tbool exists = false;
    ASSERT_EQ(getDirectRouteInfoPath(1, &path, &exists), 0);
    EXPECT_TRUE(exists);
    system_type = k_standalone_type;
    exists = false;
    ASSERT_EQ(getDirectRouteInfoPath(73, &path, &exists), 0);
    EXPECT_TRUE(exists);
    EXPECT_EQ(path.cnt, 0);
    EXPECT_TRUE(g_probes.empty());
    system_type = k_chassis_type;

    exists = true;
    ASSERT_EQ(getDirectRouteInfoPath(99, &path, &exists), 0);
    EXPECT_FALSE(exists);
    // A hop over a port that isn't in the port table.
    EXPECT_EQ(getDirectRouteInfoPath(76, &path, &exists), lc_err_generic_error);
    EXPECT_EQ(getDirectRouteInfoPath(73, nullptr, &exists), lc_err_unexpected_null);
    EXPECT_TRUE(g_probes.empty());

    // Without any SWID context there is nothing to probe with.
    free(swidapi_handles[0]);
    swidapi_handles[0] = nullptr;
    EXPECT_EQ(getDirectRouteInfoPath(73, &path, &exists), lc_err_assertion_failed);
}

TEST_F(DirectRoutes, NeighbourIsSetOnlyOnAKnownPort)
{
    ASSERT_EQ(updateIfindexNeighbourInHashTable(0, 500), 0);
    ASSERT_EQ(updateIfindexNeighbourInHashTable(12345, 500), 0);
    tstring *key = nullptr;
    ASSERT_EQ(ts_new_sprintf(&key, "%u", (1u << 6) + 10), 0);
    ifindexInformation *info = nullptr;
    tbool exists = false;
    ASSERT_EQ(checkIfPortExists(key, &info, &exists), 0);
    ASSERT_TRUE(exists);
    EXPECT_EQ(info->ifindex_neighbor, 0u);
    ASSERT_EQ(updateIfindexNeighbourInHashTable((1u << 6) + 10, 500), 0);
    EXPECT_EQ(info->ifindex_neighbor, 500u);
    ts_free(&key);
}

// The search against the simulated fabric, with the hardware layer's own check.  sw1 (the
// local chip, device 1) reaches sw2 (device 2) by its ports 35 and 36; hca5 is on sw2's
// port 1.  With sw1's port 35 down, the first path is probed and fails at its first hop,
// the second (also through 35) is skipped, the third goes through 36.  The client side
// runs in a child process attached to the fabric.
TEST(DirectRoutesFabric, DownLinkSendsTheSearchOverTheOtherLink)
{
    std::string why;
    if (!ovd_test::Fabric::available(&why)) {
        GTEST_SKIP() << "no fabric simulator: " << why;
    }
    const std::filesystem::path self = std::filesystem::canonical("/proc/self/exe");
    const std::filesystem::path bridge =
        self.parent_path().parent_path() / "src" / "platform" / "umad_bridge" / "libovd_umad_bridge.so";
    if (!std::filesystem::exists(bridge)) {
        GTEST_SKIP() << bridge << " is not built";
    }
    ovd_test::Fabric fabric;
    ASSERT_TRUE(fabric.start(&why)) << why;
    ASSERT_TRUE(fabric.link_down("sw1", 35));
    const ovd_test::FabricResult r = fabric.run_preloaded(
        {self.string(), "--gtest_also_run_disabled_tests",
         "--gtest_filter=DirectRoutesFabric.DISABLED_ClientSide"},
        {bridge.string()});
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("[  PASSED  ] 1 test"), std::string::npos) << r.out;
}

TEST(DirectRoutesFabric, DISABLED_ClientSide)
{
    lc_log_suspend(true);
    ASSERT_EQ(ibPortsCacheInit(), 0);
    ASSERT_EQ(sa_init(&swidapi_handles[0], static_cast<system_type_t>(k_chassis_type), 0), 0);
    system_type = k_chassis_type;
    master_devid = 1;
    g_ovd_dr_path_check = check_dr_path;
    DirectRoutes_add_port(1, 35, 35);
    DirectRoutes_add_port(1, 36, 36);
    DirectRoutes_add_port(2, 1, 1);
    DirectRoutes_add_port(2, 2, 2);

    Event ev;
    ev.target(105, {{{1, 35}, {2, 1}}, {{1, 35}, {2, 2}}, {{1, 36}, {2, 1}}});
    ev.head(0);
    ASSERT_EQ(ovd_handle_update_direct_route_event(ev.get()), 0);

    g_portinfo_smps = 0;
    ib_dr_path_t path{};
    tbool exists = false;
    ASSERT_EQ(getDirectRouteInfoPath(105, &path, &exists), 0);
    EXPECT_TRUE(exists);
    ASSERT_EQ(path.cnt, 2);
    EXPECT_EQ(path.p[1], 36);
    EXPECT_EQ(path.p[2], 1);
    // One SMP for the first path (its first hop is down), none for the second, two for
    // the third.
    EXPECT_EQ(g_portinfo_smps, 3);

    sa_destroy(&swidapi_handles[0]);
    ovd_direct_routes_free();
    EXPECT_EQ(ibPortsCacheDeinit(), 0);
}

}  // namespace
