// The request callbacks without a session: how names reach their handlers, the two system
// flags, the device lists of the iterate callback, event values and the settled status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "bnode_proto.h"
#include "bnode_types.h"
#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_dispatch.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "tstr_array.h"

namespace {

std::vector<std::string> names_of(const tstr_array *arr)
{
    std::vector<std::string> out;
    for (uint32 i = 0; i < tstr_array_length_quick(arr); ++i) {
        out.emplace_back(tstr_array_get_str_quick(arr, i));
    }
    return out;
}

class Dispatch : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_init("dispatch_test", nullptr, LCO_none, 0, LOG_EMERG, LOG_LOCAL4, LCT_STDERR);
        g_ignore_all_db_changes = false;
        g_system_configured_done_time_ms = 0;
        g_config_node_timeout_sec = ovd_default_settle_time_sec;
    }
    void TearDown() override
    {
        ovd_devsinfo_free_all();
        g_ignore_all_db_changes = false;
        g_system_configured_done_time_ms = 0;
    }

    static void add_device(uint32 devid)
    {
        devinfo *dev = nullptr;
        ASSERT_EQ(0, ovd_devinfo_new(&dev));
        ASSERT_EQ(0, ovd_devsinfo_set_takeover(devid, &dev));
    }

    static std::vector<std::string> iterate(const char *name)
    {
        tstr_array *arr = nullptr;
        EXPECT_EQ(0, tstr_array_new(&arr, nullptr));
        EXPECT_EQ(0, ovd_handle_iterate(name, nullptr, nullptr, arr));
        std::vector<std::string> out = names_of(arr);
        tstr_array_free(&arr);
        return out;
    }

    static int send_event(const char *name)
    {
        bn_request *req = nullptr;
        EXPECT_EQ(0, bn_event_request_msg_create(&req, name));
        const int err = ovd_handle_event_request(nullptr, &req, nullptr);
        bn_request_msg_free(&req);
        return err;
    }
};

TEST_F(Dispatch, DeviceListsAreSortedAsTextUnderDevidAndAsNumbersUnderSwid)
{
    add_device(9);
    add_device(2);
    add_device(10);
    EXPECT_EQ((std::vector<std::string>{"10", "2", "9"}), iterate("/ib/state/devid"));
    EXPECT_EQ((std::vector<std::string>{"2", "9", "10"}), iterate("/ib/state/swid/0/nodes"));
    EXPECT_TRUE(iterate("/ib/state/externalports").empty());
    EXPECT_TRUE(iterate("/ib/state/swid").empty()) << "the prefix takes the trailing slash";
}

TEST_F(Dispatch, SystemEventsSetTheirFlagsAndUnknownEventsAreNoError)
{
    EXPECT_EQ(0, send_event("/system/chassis/events/system-configure-done"));
    const lt_time_ms first = g_system_configured_done_time_ms;
    EXPECT_GT(first, 0);

    EXPECT_EQ(0, send_event("/system/chassis/events/ignore-all-db-changes"));
    EXPECT_TRUE(g_ignore_all_db_changes);
    // With the flag set, a change notification is dropped before it is even read: a
    // malformed one is no error.
    bn_request *req = nullptr;
    bn_binding *bad = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/mgmtd/notify/dbchange"));
    ASSERT_EQ(0, bn_binding_new_str(&bad, "/mgmtd/notification/dbchange/1", ba_value,
                                    bt_string, 0, "1"));
    ASSERT_EQ(0, bn_event_request_msg_append_binding_takeover(req, 0, &bad, nullptr));
    EXPECT_EQ(0, ovd_handle_event_request(nullptr, &req, nullptr));
    g_ignore_all_db_changes = false;
    EXPECT_NE(0, ovd_handle_event_request(nullptr, &req, nullptr))
        << "a group without its change type is refused once changes count";
    bn_request_msg_free(&req);

    EXPECT_EQ(0, send_event("/portd/events/no-such-event"));
}

TEST_F(Dispatch, RequestsOfTheWrongKindOrNoneAreRefused)
{
    bn_request *req = nullptr;
    EXPECT_EQ(lc_err_unexpected_null, ovd_handle_event_request(nullptr, nullptr, nullptr));
    EXPECT_EQ(lc_err_unexpected_null, ovd_handle_event_request(nullptr, &req, nullptr));
    EXPECT_EQ(lc_err_unexpected_null, ovd_handle_action_request(nullptr, &req, nullptr));
    EXPECT_EQ(lc_err_unexpected_null, ovd_handle_query_request(nullptr, &req, nullptr));

    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/ib/actions/print-dev"));
    EXPECT_EQ(lc_err_assertion_failed, ovd_handle_action_request(nullptr, &req, nullptr));
    bn_request_msg_free(&req);

    ASSERT_EQ(0, bn_action_request_msg_create(&req, "/ib/actions/no-such-action"));
    EXPECT_EQ(lc_err_assertion_failed, ovd_handle_event_request(nullptr, &req, nullptr));
    EXPECT_EQ(0, ovd_handle_action_request(nullptr, &req, nullptr)) << "unknown: logged only";
    bn_request_msg_free(&req);
}

// The add answered to the port manager: status and device of each done event sent.
std::vector<std::pair<uint32, uint32>> g_add_answers;

int absent_m_key(uint64 *, tbool *ret_found)
{
    *ret_found = false;
    return 0;
}

int record_answer(bn_request *event)
{
    bn_binding_array *bindings = nullptr;
    uint32 status = 99;
    uint32 dev_id = 99;
    EXPECT_EQ(0, bn_request_get(event, nullptr, nullptr, false, &bindings, nullptr, nullptr));
    EXPECT_EQ(0, bn_binding_get_uint32(bn_binding_array_get_quick(bindings, 0), ba_value,
                                       nullptr, &status));
    EXPECT_EQ(0, bn_binding_get_uint32(bn_binding_array_get_quick(bindings, 1), ba_value,
                                       nullptr, &dev_id));
    bn_binding_array_free(&bindings);
    g_add_answers.emplace_back(status, dev_id);
    return 0;
}

TEST_F(Dispatch, DeviceAddIsAlwaysAnsweredAndTheMasterKnownFirst)
{
    ovd_device_add_forget_system();
    g_ovd_system_m_key_query = absent_m_key;
    g_ovd_event_send = record_answer;
    g_add_answers.clear();
    master_devid = 0;

    auto add = [](bool with_master) {
        bn_request *req = nullptr;
        bn_binding *b = nullptr;
        EXPECT_EQ(0, bn_event_request_msg_create(&req, "/portd/events/ib-device-add"));
        EXPECT_EQ(0, bn_binding_new_uint32(&b, "dev_id", ba_value, 0, 5));
        EXPECT_EQ(0, bn_event_request_msg_append_binding_takeover(req, 0, &b, nullptr));
        EXPECT_EQ(0, bn_binding_new_str(&b, "subsystem_name", ba_value, bt_string, 0, "L05"));
        EXPECT_EQ(0, bn_event_request_msg_append_binding_takeover(req, 0, &b, nullptr));
        if (with_master) {
            EXPECT_EQ(0, bn_binding_new_tbool(&b, "is_master", ba_value, 0, true));
            EXPECT_EQ(0, bn_event_request_msg_append_binding_takeover(req, 0, &b, nullptr));
        }
        const int err = ovd_handle_event_request(nullptr, &req, nullptr);
        bn_request_msg_free(&req);
        return err;
    };

    // The add fails (no system key), yet the master is taken and the failure answered;
    // the callback itself reports only the sending.
    EXPECT_EQ(0, add(true));
    EXPECT_EQ(5u, master_devid);
    EXPECT_EQ((std::vector<std::pair<uint32, uint32>>{{lc_err_unexpected_null, 5}}),
              g_add_answers);

    // Without its master flag the event is not handled and not answered.
    EXPECT_EQ(1, add(false));
    EXPECT_EQ(1u, g_add_answers.size());

    g_ovd_system_m_key_query = ovd_query_system_m_key;
    g_ovd_event_send = ovd_send_event;
    ovd_device_add_forget_system();
    master_devid = 0;
}

TEST_F(Dispatch, EventValuesAreNamedByIndexAndCutToTheirType)
{
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/ib/events/device-add-done"));
    EXPECT_EQ(0, ovd_add_value(req, "status", 0, bt_uint32, 0x100000007ull));
    EXPECT_EQ(0, ovd_add_value(req, "local", 2, bt_uint8, 0x1ff));
    EXPECT_EQ(0, ovd_add_value(req, "guid", 0, bt_uint64, 0x1122334455667788ull));
    EXPECT_EQ(0, ovd_add_value(req, "force", 3, bt_tbool, 0x100000000ull));
    EXPECT_EQ(lc_err_unexpected_case, ovd_add_value(req, "text", 0, bt_string, 1));

    bn_binding_array *bindings = nullptr;
    ASSERT_EQ(0, bn_request_get(req, nullptr, nullptr, false, &bindings, nullptr, nullptr));
    ASSERT_EQ(4u, bn_binding_array_length_quick(bindings));
    uint32 u32 = 0;
    uint8 u8 = 0;
    uint64 u64 = 0;
    tbool flag = true;
    EXPECT_STREQ("status", ts_str(bn_binding_get_name_quick(bn_binding_array_get_quick(bindings, 0))));
    EXPECT_EQ(0, bn_binding_get_uint32(bn_binding_array_get_quick(bindings, 0), ba_value, nullptr, &u32));
    EXPECT_EQ(7u, u32);
    EXPECT_STREQ("local_2", ts_str(bn_binding_get_name_quick(bn_binding_array_get_quick(bindings, 1))));
    EXPECT_EQ(0, bn_binding_get_uint8(bn_binding_array_get_quick(bindings, 1), ba_value, nullptr, &u8));
    EXPECT_EQ(0xff, u8);
    EXPECT_EQ(0, bn_binding_get_uint64(bn_binding_array_get_quick(bindings, 2), ba_value, nullptr, &u64));
    EXPECT_EQ(0x1122334455667788ull, u64);
    EXPECT_STREQ("force_3", ts_str(bn_binding_get_name_quick(bn_binding_array_get_quick(bindings, 3))));
    EXPECT_EQ(0, bn_binding_get_tbool(bn_binding_array_get_quick(bindings, 3), ba_value, nullptr, &flag));
    EXPECT_FALSE(flag) << "only the low word counts";
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
}

TEST_F(Dispatch, LocalLinksCountAsSettledOnlyAfterTheirTimeHasPassed)
{
    auto settled = [] {
        bn_binding *binding = nullptr;
        tbool value = true;
        EXPECT_EQ(0, get_locallinks_settled_status("/ib/state/locallinks/settled", nullptr,
                                                   &binding));
        EXPECT_EQ(0, bn_binding_get_tbool(binding, ba_value, nullptr, &value));
        bn_binding_free(&binding);
        return value;
    };
    EXPECT_FALSE(settled()) << "before the configure-done event";
    g_system_configured_done_time_ms = lt_sys_uptime_ms();
    EXPECT_FALSE(settled());
    g_config_node_timeout_sec = 1;
    g_system_configured_done_time_ms = lt_sys_uptime_ms() - 5000;
    EXPECT_TRUE(settled());

    bn_binding *binding = nullptr;
    char *text = nullptr;
    ASSERT_EQ(0, get_is_initializing_status("/ib/state/swid/0/is_initializing", nullptr, &binding));
    EXPECT_EQ(0, bn_binding_get_str(binding, ba_value, bt_string, nullptr, &text));
    EXPECT_STREQ("false", text);
    free(text);
    bn_binding_free(&binding);
}

}  // namespace
