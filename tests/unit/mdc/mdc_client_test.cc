// The synchronous client against a management daemon played by the test on a real session
// of the same process and loop: what each operation puts on the wire, and how it unpacks
// the answers.
#include "mdc_test_harness.h"

namespace {

using mdc_test::FakeMgmtd;
using mdc_test::MdcHarness;
using mdc_test::Node;

// The type, flags and text of a request node's value.
struct Sent {
    std::string name;
    bn_type type = bt_NONE;
    bn_type_flags_bf flags = 0;
    std::string value;
    bool has_value = false;
};

Sent sent_node(const bn_request *req, uint32 idx)
{
    Sent s;
    const bn_request_per_node *n = bn_request_get_nth_node_const(req, idx);
    EXPECT_NE(n, nullptr);
    if (n == nullptr) {
        return s;
    }
    s.name = ts_str(bn_binding_get_name_quick(n->brn_binding));
    const bn_attrib *a = nullptr;
    EXPECT_EQ(0, bn_binding_get_attrib(n->brn_binding, ba_value, &a));
    if (a != nullptr) {
        bn_attrib_get_type(a, &s.type, &s.flags);
        char *str = nullptr;
        if (bn_attrib_get_str(a, nullptr, bt_NONE, nullptr, &str) == 0 && str != nullptr) {
            s.value = str;
            s.has_value = true;
        }
        free(str);
    }
    return s;
}

class MdcClientTest : public MdcHarness {
protected:
    void SetUp() override
    {
        MdcHarness::SetUp();
        mgmtd_.nodes["/sys/name"] = Node{bt_string, "switch-1"};
        mgmtd_.nodes["/sys/flag"] = Node{bt_bool, "true"};
        mgmtd_.nodes["/sys/count"] = Node{bt_uint32, "17"};
        mgmtd_.nodes["/ports/1"] = Node{bt_uint32, "1"};
        mgmtd_.nodes["/ports/1/speed"] = Node{bt_string, "edr"};
        mgmtd_.nodes["/ports/2"] = Node{bt_uint32, "2"};
        connect();
    }

    const bn_request *last() const { return mgmtd_.received.back(); }

    // The return message of the next call; the previous one is released first, since
    // every call clears its outputs on entry.
    tstring **msg()
    {
        ts_free(&msg_);
        return &msg_;
    }

    tstring *msg_ = nullptr;
    uint32 code_ = 99;

    void TearDown() override
    {
        ts_free(&msg_);
        MdcHarness::TearDown();
    }
};

// ---------------------------------------------------------------------------------------
// Reading.

TEST_F(MdcClientTest, GetFindsAnExistingNodeAndGivesNullForAMissingOne)
{
    bn_binding *b = nullptr;
    ASSERT_EQ(0, mdc_get_binding(mcc_, &code_, msg(), false, &b, "/sys/name", nullptr));
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(b)), "/sys/name");
    char *value = nullptr;
    ASSERT_EQ(0, bn_binding_get_str(b, ba_value, bt_string, nullptr, &value));
    EXPECT_STREQ(value, "switch-1");
    free(value);
    bn_binding_free(&b);
    EXPECT_EQ(code_, 0u);

    const bn_request *req = last();
    EXPECT_EQ(bn_request_get_msg_type(req), bbmt_query_request);
    ASSERT_EQ(bn_request_get_num_nodes(req), 1u);
    EXPECT_EQ(mdc_test::request_node(req, 0)->brn_node_settings.brns_query.bqn_query_subop,
              bqso_get);

    // A missing node; the database named travels with the query (the dump of the message
    // as sent shows it).
    code_ = 99;
    b = reinterpret_cast<bn_binding *>(0x1);
    testing::internal::CaptureStderr();
    const int err = mdc_get_binding(mcc_, &code_, msg(), false, &b, "/sys/absent", "saved");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, 0);
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(code_, 0u);
    EXPECT_NE(log.find("target db: saved"), std::string::npos);

    // Outputs may be left out.
    EXPECT_EQ(0, mdc_get_binding(mcc_, nullptr, nullptr, true, &b, "/sys/count", nullptr));
    ASSERT_NE(b, nullptr);
    bn_binding_free(&b);
}

TEST_F(MdcClientTest, FormattedAndTextFormsReadTheSameNode)
{
    bn_binding *b = nullptr;
    ASSERT_EQ(0, mdc_get_binding_fmt(mcc_, &code_, msg(), false, &b, nullptr, "/ports/%d/%s",
                                     1, "speed"));
    ASSERT_NE(b, nullptr);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(b)), "/ports/1/speed");
    bn_binding_free(&b);

    bn_type type = bt_NONE;
    tstring *value = nullptr;
    ASSERT_EQ(0, mdc_get_binding_tstr(mcc_, &code_, msg(), &type, &value, "/sys/count",
                                      nullptr));
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(ts_str(value), "17");
    EXPECT_EQ(type, bt_uint32);
    ts_free(&value);

    ASSERT_EQ(0, mdc_get_binding_tstr_fmt(mcc_, &code_, msg(), &type, &value, nullptr,
                                          "/sys/%s", "name"));
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(ts_str(value), "switch-1");
    EXPECT_EQ(type, bt_string);
    ts_free(&value);

    EXPECT_EQ(0, mdc_get_binding_tstr(mcc_, &code_, msg(), &type, &value, "/sys/none",
                                      nullptr));
    EXPECT_EQ(value, nullptr);
}

TEST_F(MdcClientTest, TboolTellsFoundValueAndWrongType)
{
    tbool found = false;
    tbool value = false;
    ASSERT_EQ(0, mdc_get_binding_tbool(mcc_, &code_, msg(), &found, &value, "/sys/flag",
                                       nullptr));
    EXPECT_TRUE(found);
    EXPECT_TRUE(value);

    found = true;
    EXPECT_EQ(0, mdc_get_binding_tbool(mcc_, &code_, msg(), &found, &value, "/sys/nothing",
                                       nullptr));
    EXPECT_FALSE(found);
    EXPECT_FALSE(value);

    EXPECT_EQ(lc_err_bad_type, mdc_get_binding_tbool(mcc_, &code_, msg(), &found, &value,
                                                     "/sys/name", nullptr));
    EXPECT_TRUE(found);
}

TEST_F(MdcClientTest, CodeAndMessageAreClearedAlsoWhenTheCallFailsAtOnce)
{
    // Left over from an earlier call of the caller; never to be read as this call's answer.
    tstring *const stale_msg = reinterpret_cast<tstring *>(0x1);
    const size_t before = mgmtd_.received.size();

    uint32 code = 99;
    tstring *message = stale_msg;
    bn_type type = bt_string;
    EXPECT_EQ(lc_err_unexpected_null, mdc_get_binding_tstr(mcc_, &code, &message, &type,
                                                           nullptr, "/sys/name", nullptr));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(type, bt_NONE);

    code = 99;
    message = stale_msg;
    tbool found = true;
    EXPECT_EQ(lc_err_unexpected_null, mdc_get_binding_tbool(mcc_, &code, &message, &found,
                                                            nullptr, "/sys/flag", nullptr));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(message, nullptr);
    EXPECT_FALSE(found);

    code = 99;
    message = stale_msg;
    EXPECT_EQ(lc_err_unexpected_null,
              mdc_get_binding(mcc_, &code, &message, false, nullptr, "/sys/name", nullptr));
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(message, nullptr);

    EXPECT_EQ(mgmtd_.received.size(), before) << "nothing went out";
}

TEST_F(MdcClientTest, ChildrenIterateWithFlagsAndRevision)
{
    bn_binding_array *arr = nullptr;
    ASSERT_EQ(0, mdc_get_binding_children(mcc_, &code_, msg(), false, &arr, false, false,
                                          "/ports", nullptr));
    EXPECT_EQ(bn_binding_array_length_quick(arr), 2u);
    bn_binding_array_free(&arr);
    const bn_query_request_per_node &q =
        mdc_test::request_node(last(), 0)->brn_node_settings.brns_query;
    EXPECT_EQ(q.bqn_query_subop, bqso_iterate);
    EXPECT_EQ(q.bqn_query_flags, 0u);

    ASSERT_EQ(0, mdc_get_binding_children(mcc_, &code_, msg(), true, &arr, true, true,
                                          "/ports", nullptr));
    EXPECT_EQ(bn_binding_array_length_quick(arr), 3u);
    bn_binding_array_free(&arr);
    EXPECT_EQ(mdc_test::request_node(last(), 0)->brn_node_settings.brns_query.bqn_query_flags,
              bqnf_sel_iterate_include_self | bqnf_sel_iterate_subtree);

    int32 revision = 0;
    mgmtd_.revision = 1234;
    ASSERT_EQ(0, mdc_get_binding_children_ex(mcc_, &code_, msg(), false, &arr,
                                             bqnf_sel_iterate_subtree, "/ports", nullptr, 7,
                                             &revision));
    EXPECT_EQ(bn_binding_array_length_quick(arr), 3u);
    EXPECT_EQ(revision, 1234);
    EXPECT_EQ(last()->br_body_settings.brbs_query.bqrb_opt_cond_db_revision_id, 7);
    bn_binding_array_free(&arr);
}

TEST_F(MdcClientTest, RefusalIsAResultOfZeroWithTheDaemonsCodeAndMessage)
{
    mgmtd_.refusals["/sys/name"] = {14008, "no such thing here"};
    bn_binding *b = nullptr;
    EXPECT_EQ(0, mdc_get_binding(mcc_, &code_, msg(), false, &b, "/sys/name", nullptr));
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(code_, 14008u);
    ASSERT_NE(msg_, nullptr);
    EXPECT_STREQ(ts_str(msg_), "no such thing here");
    ts_free(&msg_);

    mgmtd_.refusals["/act/go"] = {1, "busy"};
    EXPECT_EQ(0, mdc_send_action(mcc_, &code_, msg(), "/act/go"));
    EXPECT_EQ(code_, 1u);
    EXPECT_STREQ(ts_str(msg_), "busy");
    EXPECT_EQ(bn_request_get_num_nodes(last()), 0u);
}

// ---------------------------------------------------------------------------------------
// Writing.

TEST_F(MdcClientTest, SetOperationsCarryTheirSubopTypeAndValue)
{
    ASSERT_EQ(0, mdc_modify_binding(mcc_, &code_, msg(), bt_uint32, "5", "/cfg/mtu"));
    const bn_request *req = last();
    EXPECT_EQ(bn_request_get_msg_type(req), bbmt_set_request);
    EXPECT_EQ(req->br_body_settings.brbs_set.bsrb_set_flags, 0u);
    EXPECT_EQ(mdc_test::request_node(req, 0)->brn_node_settings.brns_set.bsn_set_subop,
              bsso_modify);
    Sent s = sent_node(req, 0);
    EXPECT_EQ(s.name, "/cfg/mtu");
    EXPECT_EQ(s.type, bt_uint32);
    EXPECT_EQ(s.value, "5");

    ASSERT_EQ(0, mdc_create_binding(mcc_, &code_, msg(), bt_string, "x", "/cfg/host"));
    EXPECT_EQ(mdc_test::request_node(last(), 0)->brn_node_settings.brns_set.bsn_set_subop,
              bsso_create);

    ASSERT_EQ(0, mdc_delete_binding(mcc_, &code_, msg(), "/cfg/host"));
    EXPECT_EQ(mdc_test::request_node(last(), 0)->brn_node_settings.brns_set.bsn_set_subop,
              bsso_delete);
    s = sent_node(last(), 0);
    EXPECT_EQ(s.type, bt_none);
    EXPECT_EQ(s.value, "");

    ASSERT_EQ(0, mdc_reset_binding(mcc_, &code_, msg(), "/cfg/mtu"));
    EXPECT_EQ(mdc_test::request_node(last(), 0)->brn_node_settings.brns_set.bsn_set_subop,
              bsso_reset);

    // A value that does not parse still goes out, marked invalid.
    ASSERT_EQ(0, mdc_set_binding(mcc_, &code_, msg(), bsso_modify, bt_uint32, "abc",
                                 "/cfg/mtu"));
    s = sent_node(last(), 0);
    EXPECT_EQ(s.type, bt_uint32);
    EXPECT_NE(s.flags & btf_invalid, 0u);

    // No text for a typed value is no binding at all: nothing goes out.
    const size_t before = mgmtd_.received.size();
    EXPECT_EQ(lc_err_unexpected_null,
              mdc_set_binding(mcc_, &code_, msg(), bsso_modify, bt_uint32, nullptr, "/cfg/mtu"));
    EXPECT_EQ(mgmtd_.received.size(), before);

    mgmtd_.refusals["/cfg/locked"] = {7, "read only"};
    EXPECT_EQ(0, mdc_set_binding_ex(mcc_, &code_, msg(), bsso_modify, bt_string, 0, "v",
                                    "/cfg/locked"));
    EXPECT_EQ(code_, 7u);
    EXPECT_STREQ(ts_str(msg_), "read only");
}

// ---------------------------------------------------------------------------------------
// Actions and events with bindings.

TEST_F(MdcClientTest, VarargsActionSkipsNullValuesAndKeepsBadOnesInvalid)
{
    ASSERT_EQ(0, mdc_send_action_with_bindings_str_va(mcc_, &code_, msg(), "/act/one", 2,
                                                      "event_name", bt_name, "/a/b",
                                                      "optional", bt_string,
                                                      static_cast<const char *>(nullptr)));
    ASSERT_EQ(bn_request_get_msg_type(last()), bbmt_action_request);
    ASSERT_EQ(bn_request_get_num_nodes(last()), 1u);
    Sent s = sent_node(last(), 0);
    EXPECT_EQ(s.name, "event_name");
    EXPECT_EQ(s.type, bt_name);
    EXPECT_EQ(s.value, "/a/b");

    ASSERT_EQ(0, mdc_send_action_with_bindings_str_va(mcc_, &code_, msg(), "/act/two", 3,
                                                      "a", bt_uint32, "abc", "b",
                                                      int(bt_string), "text", "c",
                                                      int(bt_uint32), "9"));
    ASSERT_EQ(bn_request_get_num_nodes(last()), 3u);
    s = sent_node(last(), 0);
    EXPECT_EQ(s.name, "a");
    EXPECT_EQ(s.type, bt_uint32);
    EXPECT_NE(s.flags & btf_invalid, 0u);
    s = sent_node(last(), 1);
    EXPECT_EQ(s.name, "b");
    EXPECT_EQ(s.value, "text");
    s = sent_node(last(), 2);
    EXPECT_EQ(s.name, "c");
    EXPECT_EQ(s.type, bt_uint32);
    EXPECT_EQ(s.value, "9");
    EXPECT_EQ(code_, 0u);
}

TEST_F(MdcClientTest, VarargsEventGoesOutWithItsBindings)
{
    const size_t before = mgmtd_.received.size();
    ASSERT_EQ(0, mdc_send_event_with_bindings_str_va(mcc_, &code_, msg(), "/ib/events/x", 2,
                                                     "status", bt_uint32, "0", "skip",
                                                     int(bt_string),
                                                     static_cast<const char *>(nullptr)));
    ASSERT_TRUE(pump_until([&] { return mgmtd_.received.size() > before; }));
    const bn_request *req = last();
    EXPECT_EQ(bn_request_get_msg_type(req), bbmt_event_request);
    EXPECT_EQ(mdc_test::request_name(req), "/ib/events/x");
    ASSERT_EQ(bn_request_get_num_nodes(req), 1u);
    const Sent s = sent_node(req, 0);
    EXPECT_EQ(s.name, "status");
    EXPECT_EQ(s.value, "0");
}

}  // namespace
