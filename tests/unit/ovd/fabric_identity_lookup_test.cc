// The fabric identity queries in the process: what stops a device's NodeInfo query before
// it is sent (no port, no route, a SWID not served), what stops the subnet manager
// question (a system that isn't a switch, an unknown one, a SWID not served, a failing
// query), and the sysfs reader on a tree mounted where the driver's would be.  The SWID's
// context is an empty one: any datagram it would send fails at once.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bnode.h"
#include "log_collector.h"
#include "logging.h"
#include "ovd_direct_routes.h"
#include "ovd_fabric_identity.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "stand_ins.h"
#include "swidapi.h"

namespace {


const uint32 k_chassis_type = 19;
const uint32 k_gateway_type = 3;

int always_ok(swidapi_t *, ib_dr_path_t *, uint8_t *failed_ib_port)
{
    *failed_ib_port = 0;
    return SARC_OK;
}

class FabricIdentityLookup : public ovd_test::LogCollectingTest {
protected:
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace";
        }
        ASSERT_EQ(ibPortsCacheInit(), 0);
        g_ovd_dr_path_check = always_ok;
        system_type = k_chassis_type;
        master_devid = 1;
        swidapi_handles[0] = static_cast<swidapi_t *>(calloc(1, sizeof(swidapi_t)));
        ASSERT_NE(swidapi_handles[0], nullptr);
        logs_->clear();
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
        ovd_test::unmount_ib_sysfs();
    }

    static void add_port(uint32 devid, uint8 local, uint8 ibport)
    {
        ifindexInformation info{};
        info.devid = devid;
        info.localport = local;
        info.ibport = ibport;
        info.assigned_to_swid = 0;
        tstring *key = nullptr;
        ASSERT_EQ(ts_new_sprintf(&key, "%u", (devid << 6) + local), 0);
        ASSERT_EQ(ht_insert(ibports_ht, key, ts_length(key), &info), 0);
        ts_free(&key);
    }

    // Device `devid` reached from the master's local port `local`.
    static void add_route(uint32 devid, uint8 local)
    {
        bn_binding_array *arr = nullptr;
        ASSERT_EQ(bn_binding_array_new(&arr), 0);
        auto add = [&](bn_binding *b) { ASSERT_EQ(bn_binding_array_append_takeover(arr, &b), 0); };
        bn_binding *b = nullptr;
        ASSERT_EQ(bn_binding_new_uint8(&b, "swid", ba_value, 0, 0), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint32(&b, "number_of_target_devices", ba_value, 0, 1), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint32(&b, "target_1_device_id", ba_value, 0, devid), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint32(&b, "target_1_number_of_paths", ba_value, 0, 1), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint32(&b, "target_1_path_1_length", ba_value, 0, 1), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint32(&b, "target_1_path_1_hop_1_devid", ba_value, 0, 1), 0);
        add(b);
        ASSERT_EQ(bn_binding_new_uint8(&b, "target_1_path_1_hop_1_localport", ba_value, 0, local), 0);
        add(b);
        EXPECT_EQ(ovd_handle_update_direct_route_event(arr), 0);
        bn_binding_array_free(&arr);
    }

    // A producer asked for `name`: its result, and its answer through ret_binding.
    static int ask(int (*producer)(const char *, const tstr_array *, bn_binding **),
                   const std::string &name, bn_binding **ret_binding)
    {
        tstr_array *parts = nullptr;
        tbool absolute = false;
        EXPECT_EQ(bn_binding_name_to_parts(name.c_str(), &parts, &absolute), 0);
        const int err = producer(name.c_str(), parts, ret_binding);
        tstr_array_free(&parts);
        return err;
    }
};

TEST_F(FabricIdentityLookup, NodeInfoNeedsAServedSwidAPortAndARoute)
{
    sa_node_info_t info = {};
    EXPECT_EQ(lc_err_unexpected_null, get_node_lid_guid_sa_result(1, 0, nullptr));
    EXPECT_EQ(lc_err_invalid_param, get_node_lid_guid_sa_result(1, 8, &info));
    EXPECT_TRUE(logs_->wait_for("SWID 8 is not a valid InfiniBand SWID"));
    EXPECT_EQ(lc_err_invalid_param, get_node_lid_guid_sa_result(1, 3, &info));
    EXPECT_TRUE(logs_->wait_for("SWID 3 is not a valid InfiniBand SWID"));

    // A device with routes but no port can't be asked; nor one whose port has no IB port.
    add_port(1, 10, 30);
    add_route(73, 10);
    EXPECT_EQ(lc_err_unexpected_arg, get_node_lid_guid_sa_result(73, 0, &info));
    EXPECT_TRUE(logs_->wait_for("Get GUID/LID: No IB port found at device:[73]"));
    add_port(2, 4, 0);
    EXPECT_EQ(lc_err_unexpected_arg, get_node_lid_guid_sa_result(2, 0, &info));
    EXPECT_TRUE(logs_->wait_for("Get GUID/LID: No IB port found at device:[2]"));

    // A port, but no route.
    add_port(4, 5, 7);
    EXPECT_EQ(lc_err_not_found, get_node_lid_guid_sa_result(4, 0, &info));
    EXPECT_TRUE(logs_->wait_for("paths for device id:[4] were not found."));

    // The master's empty route, and a query that fails: the hardware layer's code is told.
    const std::string code = std::string(sysapi_err2str(SARC_ERROR)) + "," + std::to_string(SARC_ERROR);
    EXPECT_EQ(lc_err_not_found, get_node_lid_guid_sa_result(1, 0, &info));
    EXPECT_TRUE(logs_->wait_for("get_node_lid_guid_sa_result: Failed to get GUID/LID "
                                "code:[" + code + "] device id::[1] ibport:[30]"));
    // A routed device the same, through its own port.
    add_port(73, 3, 9);
    EXPECT_EQ(lc_err_not_found, get_node_lid_guid_sa_result(73, 0, &info));
    EXPECT_TRUE(logs_->wait_for("device id::[73] ibport:[9]"));
}

TEST_F(FabricIdentityLookup, ADevicesLeavesAllPayForTheQuery)
{
    add_port(1, 10, 30);
    bn_binding *b = nullptr;
    EXPECT_EQ(lc_err_bad_type, ask(get_node_lid_guid, "/ib/state/swid/0/nodes/x/guid", &b));
    EXPECT_TRUE(logs_->wait_for("Illegal dev ID: x"));
    EXPECT_EQ(lc_err_invalid_param, ask(get_node_lid_guid, "/ib/state/swid/5/nodes/1/lid", &b));
    // Even the name, which the daemon knows by itself, fails with the query.
    EXPECT_EQ(lc_err_not_found, ask(get_node_lid_guid, "/ib/state/swid/0/nodes/1/name", &b));
    EXPECT_EQ(nullptr, b);
    EXPECT_EQ(lc_err_unexpected_null, get_node_lid_guid("/ib/state/swid/0/nodes/1/name", nullptr, &b));
}

TEST_F(FabricIdentityLookup, TheSubnetManagerQuestionIsForSwitchesAndServedSwids)
{
    bn_binding *b = nullptr;
    FILE *const orig = stderr;
    EXPECT_EQ(lc_err_unexpected_null, get_is_sm_in_fabric("/ib/state/swid/0/is_sm_in_fabric", nullptr, &b));

    // Not a switch: no answer, no failure.
    system_type = k_gateway_type;
    EXPECT_EQ(0, ask(get_is_sm_in_fabric, "/ib/state/swid/0/is_sm_in_fabric", &b));
    EXPECT_EQ(nullptr, b);

    // A type nobody knows: the same, with a complaint.
    system_type = 100000;
    EXPECT_EQ(0, ask(get_is_sm_in_fabric, "/ib/state/swid/0/is_sm_in_fabric", &b));
    EXPECT_EQ(nullptr, b);
    EXPECT_TRUE(logs_->wait_for("Unsupported system type "));

    system_type = k_chassis_type;
    EXPECT_EQ(lc_err_invalid_param, ask(get_is_sm_in_fabric, "/ib/state/swid/6/is_sm_in_fabric", &b));
    EXPECT_TRUE(logs_->wait_for("SWID 6 is not a valid InfiniBand SWID"));

    // The query fails (the context has no MAD port): 14000, no answer, stderr put back.
    EXPECT_EQ(lc_err_generic_error, ask(get_is_sm_in_fabric, "/ib/state/swid/0/is_sm_in_fabric", &b));
    EXPECT_EQ(nullptr, b);
    EXPECT_TRUE(logs_->wait_for("get_is_sm_in_fabric: sa_is_master_sm_in_fabric() err=" +
                                std::to_string(SARC_ERROR) + "(" + sysapi_err2str(SARC_ERROR) + ")"));
    EXPECT_EQ(orig, stderr);
}

TEST_F(FabricIdentityLookup, TheSysfsReaderReadsOneLineOfTheSwidsFolder)
{
    char tmpl[] = "/tmp/ovd_fabric_identity.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string tree = tmpl;
    std::filesystem::create_directories(tree + "/vq_ib_2/ports/0/gids");
    ovd_test::write_file(tree + "/vq_ib_2/node_guid", "0200:0000:0000:0001\nsecond line\n");
    ovd_test::write_file(tree + "/vq_ib_2/ports/0/gids/0", "fe80:0000:0000:0000:0200:0000:0000:0001\n");
    std::string why;
    ASSERT_TRUE(ovd_test::mount_ib_sysfs(tree, &why)) << why;

    char val[100] = {};
    // Any other type is a file of the folder; only the first line, without its newline.
    EXPECT_EQ(0, get_ib_fn("node_guid", val, sizeof(val), "2"));
    EXPECT_STREQ("0200:0000:0000:0001", val);
    EXPECT_EQ(0, get_ib_fn("guid", val, sizeof(val), "2"));
    EXPECT_STREQ("fe80:0000:0000:0000:0200:0000:0000:0001", val);
    // A short buffer takes what fits.
    EXPECT_EQ(0, get_ib_fn("guid", val, 5, "2"));
    EXPECT_STREQ("fe80", val);
    EXPECT_EQ(lc_err_not_found, get_ib_fn("lid", val, sizeof(val), "2"));
    EXPECT_TRUE(logs_->wait_for("get_ib_fn: No file /sys/class/infiniband/vq_ib_2/ports/0/lid"));

    // Through the producer, in the SWID of the name's part 3.
    bn_binding *b = nullptr;
    ASSERT_EQ(0, ask(get_my_sm_port_guid, "/ib/state/swid/2/my_sm_port_guid", &b));
    ASSERT_NE(nullptr, b);
    uint64 guid = 0;
    EXPECT_EQ(0, bn_binding_get_uint64(b, ba_value, nullptr, &guid));
    EXPECT_EQ(0x0200000000000001ull, guid);
    bn_binding_free(&b);

    ovd_test::unmount_ib_sysfs();
    std::filesystem::remove_all(tree);
}

}  // namespace
