// Monitoring dispatch: queries built with the message API (registrations as bqso_reg_info
// nodes with a cap mask), answered through recording handlers; the walk of the
// registration tree on its own; the configuration-change extraction; and the sending
// dispatch on a socket pair playing the management daemon.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bnode_session.h"
#include "bnode_wire.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "logging.h"
#include "mdc_misc.h"
#include "mdc_remote_reg.h"

namespace {

using Strings = std::vector<std::string>;

Strings to_strings(const tstr_array *arr)
{
    Strings out;
    for (uint32 i = 0; i < tstr_array_length_quick(arr); ++i) {
        out.emplace_back(tstr_array_get_str_quick(arr, i));
    }
    return out;
}

// What the handlers saw, and what they are told to do.
struct Recorder {
    Strings gets;
    std::vector<Strings> get_parts;
    Strings iterates;
    std::vector<Strings> iterate_parts;
    std::map<std::string, Strings> instances;   // by parent name
    std::set<std::string> fail_get;
};

int record_get(const char *name, const tstr_array *parts, void *data, bn_binding_array *resp)
{
    auto *rec = static_cast<Recorder *>(data);
    rec->gets.emplace_back(name);
    rec->get_parts.push_back(to_strings(parts));
    if (rec->fail_get.count(name) != 0) {
        return lc_err_generic_error;
    }
    bn_binding *b = nullptr;
    const std::string value = std::string("v:") + name;
    EXPECT_EQ(0, bn_binding_new_str(&b, name, ba_value, bt_string, 0, value.c_str()));
    EXPECT_EQ(0, bn_binding_array_append_takeover(resp, &b));
    return 0;
}

int record_iterate(const char *name, const tstr_array *parts, void *data, tstr_array *resp)
{
    auto *rec = static_cast<Recorder *>(data);
    rec->iterates.emplace_back(name);
    rec->iterate_parts.push_back(to_strings(parts));
    for (const std::string &inst : rec->instances[name]) {
        EXPECT_EQ(0, tstr_array_append_str(resp, inst.c_str()));
    }
    return 0;
}

// One answer binding: its name, value text and the id of the node it answers.
struct Answer {
    std::string name;
    std::string value;
    uint32 node_id;
    bool operator==(const Answer &o) const
    {
        return name == o.name && value == o.value && node_id == o.node_id;
    }
};

std::vector<Answer> answers_of(const bn_response *resp, uint32 *ret_code = nullptr)
{
    bn_binding_array *bindings = nullptr;
    uint32_array *ids = nullptr;
    uint32 code = 99;
    EXPECT_EQ(0, bn_response_get(resp, &code, nullptr, false, &bindings, &ids));
    std::vector<Answer> out;
    for (uint32 i = 0; i < bn_binding_array_length_quick(bindings); ++i) {
        const bn_binding *b = bn_binding_array_get_quick(bindings, i);
        char *str = nullptr;
        EXPECT_EQ(0, bn_binding_get_str(b, ba_value, bt_NONE, nullptr, &str));
        out.push_back({ts_str(b->bn_node_name), str ? str : "", uint32_array_get_quick(ids, i)});
        free(str);
    }
    if (ret_code != nullptr) {
        *ret_code = code;
    }
    bn_binding_array_free(&bindings);
    uint32_array_free(&ids);
    return out;
}

// A query under construction.
class Query {
public:
    Query()
    {
        EXPECT_EQ(0, bn_query_request_msg_create(&req_, 0, nullptr));
        req_->br_header.brh_msg_id = 4711;
    }
    ~Query() { bn_request_msg_free(&req_); }
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    void reg(const char *name, uint32 cap_mask = 0)
    {
        bn_binding *b = nullptr;
        ASSERT_EQ(0, bn_binding_new_uint32(&b, name, ba_cap_mask, 0, cap_mask));
        ASSERT_EQ(0, bn_query_request_msg_append_binding(req_, bqso_reg_info, 0, b, nullptr));
        bn_binding_free(&b);
    }
    uint32 get(const char *name)
    {
        int32 id = -1;
        EXPECT_EQ(0, bn_query_request_msg_append_str(req_, bqso_get, 0, name, &id));
        return uint32(id);
    }
    uint32 iterate(const char *name, bn_query_node_flags_bf flags = 0)
    {
        int32 id = -1;
        EXPECT_EQ(0, bn_query_request_msg_append_str(req_, bqso_iterate, flags, name, &id));
        return uint32(id);
    }
    uint32 raw(bn_query_subop subop, const char *name)
    {
        int32 id = -1;
        EXPECT_EQ(0, bn_query_request_msg_append_str(req_, subop, 0, name, &id));
        return uint32(id);
    }
    // Through the wire form and back, as the daemon receives it (parts cached).
    void round_trip()
    {
        tbuf *frame = nullptr;
        bn_request *back = nullptr;
        ASSERT_EQ(0, bn_request_msg_serialize(req_, 0, &frame));
        ASSERT_EQ(0, bn_request_msg_deserialize(frame, 0, &back));
        tb_free(&frame);
        bn_request_msg_free(&req_);
        req_ = back;
    }

    // Runs the dispatch without sending; returns its error code.
    int dispatch(Recorder *rec, bn_response **ret_resp)
    {
        return mdc_dispatch_mon_request_nosend(req_, record_get, rec, record_iterate, rec,
                                               ret_resp);
    }
    // The answers of a dispatch that must succeed.
    std::vector<Answer> answer(Recorder *rec)
    {
        bn_response *resp = nullptr;
        EXPECT_EQ(0, dispatch(rec, &resp));
        EXPECT_NE(resp, nullptr);
        uint32 code = 99;
        std::vector<Answer> out = answers_of(resp, &code);
        EXPECT_EQ(code, 0u);
        uint32 req_id = 0;
        EXPECT_EQ(0, bn_response_get_msg_ids(resp, nullptr, &req_id));
        EXPECT_EQ(req_id, 4711u);
        bn_response_msg_free(&resp);
        return out;
    }

    bn_request *req_ = nullptr;
};

class MdcDispatchTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("mdc_remote_reg_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4,
                    LCT_STDERR);
    }
    Recorder rec_;
};

// ---------------------------------------------------------------------------------------
// Gets and the dispatch's own rules.

TEST_F(MdcDispatchTest, GetsWithoutRegistrationsCallTheHandlerOncePerNode)
{
    Query q;
    const uint32 id1 = q.get("/ib/state/x");
    const uint32 id2 = q.get("/ib/state/y");
    const std::vector<Answer> ans = q.answer(&rec_);
    EXPECT_EQ(rec_.gets, (Strings{"/ib/state/x", "/ib/state/y"}));
    EXPECT_EQ(rec_.get_parts[0], (Strings{"ib", "state", "x"}));
    EXPECT_TRUE(rec_.iterates.empty());
    EXPECT_EQ(ans, (std::vector<Answer>{{"/ib/state/x", "v:/ib/state/x", id1},
                                        {"/ib/state/y", "v:/ib/state/y", id2}}));
}

TEST_F(MdcDispatchTest, FailingHandlersGiveAPartialAnswerWithCodeZero)
{
    Query q;
    q.reg("/a/*");
    const uint32 id_ok = q.get("/ok");
    q.get("/bad");
    const uint32 id_walk = q.iterate("/a/*");
    const uint32 id_last = q.get("/last");
    rec_.fail_get = {"/bad", "/a/y"};
    rec_.instances["/a"] = {"x", "y", "z"};

    testing::internal::CaptureStderr();
    const std::vector<Answer> ans = q.answer(&rec_);
    const std::string log = testing::internal::GetCapturedStderr();
    // The walk ends at the failing instance; the dispatch goes on with the next node.
    EXPECT_EQ(rec_.gets, (Strings{"/ok", "/bad", "/a/x", "/a/y", "/last"}));
    EXPECT_EQ(ans, (std::vector<Answer>{{"/ok", "v:/ok", id_ok},
                                        {"/a/x", "v:/a/x", id_walk},
                                        {"/last", "v:/last", id_last}}));
    EXPECT_NE(log.find("Get handler for '/bad'"), std::string::npos) << log;
    EXPECT_NE(log.find("Iterate handler for '/a/*'"), std::string::npos) << log;
}

TEST_F(MdcDispatchTest, OtherSubopsAreLoggedAndIgnored)
{
    Query q;
    q.raw(bqso_none, "/odd");
    const uint32 id = q.get("/fine");
    testing::internal::CaptureStderr();
    const std::vector<Answer> ans = q.answer(&rec_);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(rec_.gets, (Strings{"/fine"}));
    EXPECT_EQ(ans, (std::vector<Answer>{{"/fine", "v:/fine", id}}));
    EXPECT_NE(log.find("Unexpected query subop 0; ignoring request for binding /odd"),
              std::string::npos)
        << log;
}

TEST_F(MdcDispatchTest, RegistrationWithAMisplacedCapMaskIsLoggedAndSkipped)
{
    Query q;
    bn_binding *b = nullptr;
    bn_attrib *attrib = nullptr;
    ASSERT_EQ(0, bn_binding_new_named(&b, "/a/*"));
    ASSERT_EQ(0, bn_attrib_new_uint32(&attrib, ba_value, 0, 7));
    ASSERT_EQ(0, bn_binding_set_attrib_takeover(b, ba_cap_mask, &attrib));
    ASSERT_EQ(0, bn_query_request_msg_append_binding(q.req_, bqso_reg_info, 0, b, nullptr));
    bn_binding_free(&b);
    q.iterate("/a/*");
    rec_.instances["/a"] = {"x"};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(q.answer(&rec_).empty());
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(rec_.iterates.empty());
    EXPECT_NE(log.find("Expected cap_mask attribute got 1"), std::string::npos) << log;
}

TEST_F(MdcDispatchTest, MachineryFailuresStillHandOutTheResponseBuiltSoFar)
{
    // A registration without its cap mask is a malformed query.
    Query q;
    q.get("/x");
    ASSERT_EQ(0, bn_query_request_msg_append_str(q.req_, bqso_reg_info, 0, "/r", nullptr));
    bn_response *resp = nullptr;
    EXPECT_EQ(lc_err_unexpected_null, q.dispatch(&rec_, &resp));
    ASSERT_NE(resp, nullptr);
    uint32 code = 99;
    EXPECT_TRUE(answers_of(resp, &code).empty());
    EXPECT_EQ(code, 0u);
    bn_response_msg_free(&resp);

    // Another kind of request gets no response at all.
    bn_request *action = nullptr;
    ASSERT_EQ(0, bn_action_request_msg_create(&action, "/do/it"));
    resp = reinterpret_cast<bn_response *>(&code);  // must be cleared
    EXPECT_EQ(lc_err_assertion_failed,
              mdc_dispatch_mon_request_nosend(action, record_get, &rec_, record_iterate, &rec_,
                                              &resp));
    EXPECT_EQ(resp, nullptr);
    bn_request_msg_free(&action);
}

// ---------------------------------------------------------------------------------------
// Iterations.

TEST_F(MdcDispatchTest, IteratingAWildcardListsItsInstancesAtDepthOne)
{
    Query q;
    q.reg("/a/b/*");
    q.reg("/a/b/*/c");
    const uint32 id = q.iterate("/a/b/*");
    rec_.instances["/a/b"] = {"x", "y"};
    const std::vector<Answer> ans = q.answer(&rec_);
    EXPECT_EQ(rec_.iterates, (Strings{"/a/b"}));
    EXPECT_EQ(rec_.iterate_parts[0], (Strings{"a", "b"}));
    // The instances are depth 1: their children are left without the subtree flag.
    EXPECT_EQ(rec_.gets, (Strings{"/a/b/x", "/a/b/y"}));
    EXPECT_EQ(rec_.get_parts[1], (Strings{"a", "b", "y"}));
    EXPECT_EQ(ans, (std::vector<Answer>{{"/a/b/x", "v:/a/b/x", id}, {"/a/b/y", "v:/a/b/y", id}}));
}

TEST_F(MdcDispatchTest, SubtreeFlagDecidesWhetherGrandchildrenAreVisited)
{
    for (const bool subtree : {false, true}) {
        SCOPED_TRACE(subtree ? "subtree" : "children only");
        Recorder rec;
        Query q;
        q.reg("/a/b/*");
        q.reg("/a/b/*/c");
        q.reg("/a/b/lit");
        q.reg("/a/b/lit/deep");
        q.iterate("/a/b", subtree ? bqnf_sel_iterate_subtree : 0);
        rec.instances["/a/b"] = {"x", "y"};
        q.answer(&rec);
        EXPECT_EQ(rec.iterates, (Strings{"/a/b"}));
        if (subtree) {
            EXPECT_EQ(rec.gets, (Strings{"/a/b/x", "/a/b/x/c", "/a/b/y", "/a/b/y/c", "/a/b/lit",
                                         "/a/b/lit/deep"}));
        } else {
            EXPECT_EQ(rec.gets, (Strings{"/a/b/x", "/a/b/y", "/a/b/lit"}));
        }
    }
}

TEST_F(MdcDispatchTest, IncludeSelfAddsTheNodeAskedFor)
{
    for (const bool self : {false, true}) {
        SCOPED_TRACE(self ? "include self" : "children only");
        Recorder rec;
        Query q;
        q.reg("/a/b");
        q.reg("/a/b/c");
        q.iterate("/a/b", self ? bqnf_sel_iterate_include_self : 0);
        q.answer(&rec);
        if (self) {
            EXPECT_EQ(rec.gets, (Strings{"/a/b", "/a/b/c"}));
        } else {
            EXPECT_EQ(rec.gets, (Strings{"/a/b/c"}));
        }
    }
}

TEST_F(MdcDispatchTest, LeafNodesOnlySkipsNodesWithChildren)
{
    Query q;
    q.reg("/a");
    q.reg("/a/b");
    q.reg("/a/b/c");
    q.reg("/a/d");
    q.iterate("/a", bqnf_sel_iterate_subtree | bqnf_sel_iterate_leaf_nodes_only |
                        bqnf_sel_iterate_include_self);
    q.answer(&rec_);
    EXPECT_EQ(rec_.gets, (Strings{"/a/b/c", "/a/d"}));
}

TEST_F(MdcDispatchTest, ClassNoStateCallsNoGetHandler)
{
    Query q;
    q.reg("/a/b/*");
    q.reg("/a/lit");
    q.iterate("/a", bqnf_sel_iterate_subtree | bqnf_sel_class_no_state |
                        bqnf_sel_iterate_include_self);
    rec_.instances["/a/b"] = {"x"};
    EXPECT_TRUE(q.answer(&rec_).empty());
    EXPECT_TRUE(rec_.gets.empty());
}

TEST_F(MdcDispatchTest, IteratingAnUnregisteredNameAnswersNothing)
{
    Query q;
    q.reg("/a/b/*");
    q.iterate("/zz");
    q.iterate("/a/q");
    EXPECT_TRUE(q.answer(&rec_).empty());
    EXPECT_TRUE(rec_.gets.empty());
    EXPECT_TRUE(rec_.iterates.empty());
}

TEST_F(MdcDispatchTest, InstanceWithSeparatorIsEscapedInTheNameOnly)
{
    Query q;
    q.reg("/a/*");
    q.reg("/a/*/leaf");
    const uint32 id = q.iterate("/a", bqnf_sel_iterate_subtree);
    q.round_trip();
    rec_.instances["/a"] = {"p/q"};
    const std::vector<Answer> ans = q.answer(&rec_);
    EXPECT_EQ(rec_.gets, (Strings{"/a/p\\/q", "/a/p\\/q/leaf"}));
    EXPECT_EQ(rec_.get_parts[0], (Strings{"a", "p/q"}));
    EXPECT_EQ(rec_.get_parts[1], (Strings{"a", "p/q", "leaf"}));
    ASSERT_EQ(ans.size(), 2u);
    EXPECT_EQ(ans[0].node_id, id);
}

// ---------------------------------------------------------------------------------------
// The walk and the registration tree on their own.

struct TreeFree {
    void operator()(tree *t) const { tree_free(&t); }
};

TEST_F(MdcDispatchTest, WalkHonoursTheCapMaskAndRestoresItsBuffers)
{
    tree *raw = nullptr;
    ASSERT_EQ(0, mdc_remote_reg_tree_new(&raw));
    std::unique_ptr<tree, TreeFree> reg_tree(raw);
    const std::pair<const char *, uint32> regs[] = {
        {"/m", 0x0}, {"/m/both", 0x3}, {"/m/one", 0x1}, {"/m/w/*", 0x2}};
    for (const auto &r : regs) {
        mdc_remote_node_reg *node = nullptr;
        ASSERT_EQ(0, mdc_remote_reg_new_node(&node, r.first, 0, r.second));
        ASSERT_EQ(0, mdc_remote_reg_add_node(reg_tree.get(), &node));
        EXPECT_EQ(node, nullptr);
    }

    tstr_array *parts = nullptr;
    ASSERT_EQ(0, bn_binding_name_to_parts("/m", &parts, nullptr));
    tstring *name = nullptr;
    ASSERT_EQ(0, ts_new_str(&name, "/m"));
    tree_node *tnode = nullptr;
    mdc_remote_node_reg *reg = nullptr;
    ASSERT_EQ(0, mdc_remote_reg_get_node_tree(reg_tree.get(), parts, &tnode, &reg));
    ASSERT_NE(tnode, nullptr);
    ASSERT_NE(reg, nullptr);
    bn_binding_array *resp = nullptr;
    ASSERT_EQ(0, bn_binding_array_new(&resp));
    rec_.instances["/m/w"] = {"i"};

    EXPECT_EQ(0, mdc_mon_iterate_node_internal(reg_tree.get(), 0x2, name, parts, tnode, reg,
                                               bqnf_sel_iterate_subtree, 0, record_get, &rec_,
                                               record_iterate, &rec_, resp));
    EXPECT_EQ(rec_.gets, (Strings{"/m/both", "/m/w/i"}));
    EXPECT_EQ(bn_binding_array_length_quick(resp), 2u);
    EXPECT_STREQ(ts_str(name), "/m");
    EXPECT_EQ(to_strings(parts), (Strings{"m"}));

    ts_free(&name);
    tstr_array_free(&parts);
    bn_binding_array_free(&resp);
}

TEST_F(MdcDispatchTest, RegistrationLookupFallsBackToTheWildcard)
{
    tree *raw = nullptr;
    ASSERT_EQ(0, mdc_remote_reg_tree_new(&raw));
    std::unique_ptr<tree, TreeFree> reg_tree(raw);
    mdc_remote_node_reg *node = nullptr;
    ASSERT_EQ(0, mdc_remote_reg_new_node(&node, "/a/*", 0, 0x5));
    ASSERT_EQ(0, mdc_remote_reg_add_node(reg_tree.get(), &node));

    auto lookup = [&](const char *path, tree_node **ret_tnode, mdc_remote_node_reg **ret_reg) {
        tstr_array *parts = nullptr;
        ASSERT_EQ(0, bn_binding_name_to_parts(path, &parts, nullptr));
        EXPECT_EQ(0, mdc_remote_reg_get_node_tree(reg_tree.get(), parts, ret_tnode, ret_reg));
        tstr_array_free(&parts);
    };
    tree_node *tnode = nullptr;
    mdc_remote_node_reg *reg = nullptr;
    lookup("/a/anything", &tnode, &reg);
    ASSERT_NE(reg, nullptr);
    const char *reg_name = nullptr;
    uint32 value = 0;
    EXPECT_EQ(0, mdc_remote_reg_get_name(reg, &reg_name));
    EXPECT_STREQ(reg_name, "/a/*");
    EXPECT_EQ(0, mdc_remote_reg_get_cap_mask(reg, &value));
    EXPECT_EQ(value, 0x5u);
    EXPECT_EQ(0, mdc_remote_reg_get_node_reg_flags(reg, &value));
    EXPECT_EQ(value, 0u);

    // The parent exists as a tree node without a registration; an unknown name has neither.
    lookup("/a", &tnode, &reg);
    EXPECT_NE(tnode, nullptr);
    EXPECT_EQ(reg, nullptr);
    lookup("/b/c", &tnode, &reg);
    EXPECT_EQ(tnode, nullptr);
    EXPECT_EQ(reg, nullptr);
}

// ---------------------------------------------------------------------------------------
// Configuration-change notifications.

class ConfigChangeTest : public MdcDispatchTest {
protected:
    void SetUp() override { ASSERT_EQ(0, bn_binding_array_new(&notif_)); }
    void TearDown() override
    {
        bn_binding_array_free(&notif_);
        bn_binding_array_free(&old_);
        bn_binding_array_free(&new_);
        tstr_array_free(&vague_);
    }

    void add(const std::string &name, bn_type type, const char *value)
    {
        bn_binding *b = nullptr;
        ASSERT_EQ(0, bn_binding_new_str(&b, name.c_str(), ba_value, type, 0, value));
        ASSERT_EQ(0, bn_binding_array_append_takeover(notif_, &b));
    }
    // One changed node's group; a null value leaves that binding out.
    void change(int n, const char *type, const char *node, const char *prev, const char *next,
                bn_type vtype = bt_uint32)
    {
        const std::string base = "/mgmtd/notification/dbchange/" + std::to_string(n);
        add(base, bt_uint32, std::to_string(n).c_str());
        if (type != nullptr) {
            add(base + "/change_type", bt_string, type);
        }
        if (node != nullptr) {
            add(base + "/name", bt_name, node);
        }
        if (prev != nullptr) {
            add(base + "/prev_attribs/value", vtype, prev);
        }
        if (next != nullptr) {
            add(base + "/new_attribs/value", vtype, next);
        }
    }

    static std::vector<std::pair<std::string, std::string>> named_values(bn_binding_array *arr)
    {
        std::vector<std::pair<std::string, std::string>> out;
        for (uint32 i = 0; i < bn_binding_array_length_quick(arr); ++i) {
            const bn_binding *b = bn_binding_array_get_quick(arr, i);
            char *str = nullptr;
            EXPECT_EQ(0, bn_binding_get_str(b, ba_value, bt_NONE, nullptr, &str));
            out.emplace_back(ts_str(b->bn_node_name), str ? str : "<none>");
            free(str);
        }
        return out;
    }

    bn_binding_array *notif_ = nullptr;
    bn_binding_array *old_ = nullptr;
    bn_binding_array *new_ = nullptr;
    tstr_array *vague_ = nullptr;
};

TEST_F(ConfigChangeTest, EachChangeTypeFillsItsArrays)
{
    // Given out of order: the extraction sorts them.
    change(5, "bogus", "/x/e", nullptr, "1");
    change(3, "modify", "/x/c", "1", "2");
    change(1, "add", "/x/a", nullptr, "5");
    change(2, "delete", "/x/b", "old", nullptr, bt_string);
    change(4, "unspecified", "/x/d", nullptr, nullptr);
    add("/mgmtd/notification/other/1", bt_string, "ignored");

    testing::internal::CaptureStderr();
    ASSERT_EQ(0, mdc_event_config_change_notif_extract(notif_, &old_, &new_, &vague_));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Unexpected change type bogus under binding "
                       "/mgmtd/notification/dbchange/5"),
              std::string::npos)
        << log;

    using NV = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(named_values(old_), (NV{{"/x/b", "old"}, {"/x/c", "1"}}));
    EXPECT_EQ(named_values(new_), (NV{{"/x/a", "5"}, {"/x/b", "<none>"}, {"/x/c", "2"}}));
    EXPECT_EQ(to_strings(vague_), (Strings{"/x/d"}));

    // The deletion: the old type with the deleted and no-value flags, and no value at all.
    const bn_binding *deleted = bn_binding_array_get_quick(new_, 1);
    bn_type type = bt_NONE;
    bn_type_flags_bf flags = 0;
    ASSERT_EQ(0, bn_binding_get_type(deleted, ba_value, &type, &flags));
    EXPECT_EQ(type, bt_string);
    EXPECT_EQ(flags, 0x180000u);
    const bn_attrib *attrib = nullptr;
    ASSERT_EQ(0, bn_binding_get_attrib(deleted, ba_value, &attrib));
    ASSERT_NE(attrib, nullptr);
    EXPECT_EQ(attrib->ba_v.bnvv_string, nullptr);
}

TEST_F(ConfigChangeTest, OnlyTheOutputsAskedForAreBuilt)
{
    change(1, "add", "/x/a", nullptr, "5");
    change(2, "unspecified", "/x/d", nullptr, nullptr);
    ASSERT_EQ(0, mdc_event_config_change_notif_extract(notif_, nullptr, nullptr, &vague_));
    EXPECT_EQ(to_strings(vague_), (Strings{"/x/d"}));
    ASSERT_EQ(0, mdc_event_config_change_notif_extract(notif_, &old_, nullptr, nullptr));
    EXPECT_EQ(bn_binding_array_length_quick(old_), 0u);
}

TEST_F(ConfigChangeTest, InconsistentGroupsFailWithNothingHandedOut)
{
    change(1, "add", "/x/a", "1", "5");
    EXPECT_EQ(lc_err_assertion_failed,
              mdc_event_config_change_notif_extract(notif_, &old_, &new_, &vague_));
    EXPECT_EQ(old_, nullptr);
    EXPECT_EQ(new_, nullptr);
    EXPECT_EQ(vague_, nullptr);

    bn_binding_array_free(&notif_);
    ASSERT_EQ(0, bn_binding_array_new(&notif_));
    change(1, "delete", nullptr, "1", nullptr);
    EXPECT_EQ(lc_err_unexpected_null,
              mdc_event_config_change_notif_extract(notif_, nullptr, &new_, nullptr));
    EXPECT_EQ(new_, nullptr);
}

// ---------------------------------------------------------------------------------------
// Sending: a socket pair adopted as a client session, the test reading the other end.

class MdcDispatchSendTest : public MdcDispatchTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, fdic_init(&fich_, nullptr, nullptr));
        gcl_global_options opts;
        ASSERT_EQ(0, gcl_options_get_defaults(&opts));
        strlcpy(opts.ggo_handle_id, "t", sizeof(opts.ggo_handle_id));
        ASSERT_EQ(0, gcl_init(&gh_, &opts, fich_));
        int sv[2];
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv));
        ASSERT_EQ(0, gcl_session_client_new_internal(gh_, "test", gof_none, ggid_auto,
                                                     ggid_auto, nullptr, nullptr, 0, sv[0],
                                                     &sess_));
        peer_ = sv[1];
    }
    void TearDown() override
    {
        EXPECT_EQ(0, gcl_deinit(&gh_));
        EXPECT_EQ(0, fdic_deinit(&fich_));
        close(peer_);
    }

    // The next response the session wrote.
    bn_response *read_response()
    {
        std::vector<uint8> f(32);
        size_t got = 0;
        while (got < f.size()) {
            const ssize_t n = read(peer_, f.data() + got, f.size() - got);
            if (n <= 0) {
                return nullptr;
            }
            got += size_t(n);
            if (got == 32) {
                f.resize((uint32(f[12]) << 24) | (uint32(f[13]) << 16) | (uint32(f[14]) << 8) |
                         f[15]);
            }
        }
        tbuf *tb = nullptr;
        EXPECT_EQ(0, tb_new_buf(&tb, f.data(), int32(f.size())));
        bn_response *resp = nullptr;
        EXPECT_EQ(0, bn_response_msg_deserialize(tb, 32, &resp));
        tb_free(&tb);
        return resp;
    }

    fdic_handle *fich_ = nullptr;
    gcl_handle *gh_ = nullptr;
    gcl_session *sess_ = nullptr;
    int peer_ = -1;
};

TEST_F(MdcDispatchSendTest, TheAnswerGoesOutOnTheSession)
{
    Query q;
    const uint32 id = q.get("/s/one");
    ASSERT_EQ(0, mdc_dispatch_mon_request(sess_, q.req_, record_get, &rec_, record_iterate,
                                          &rec_));
    bn_response *resp = read_response();
    ASSERT_NE(resp, nullptr);
    EXPECT_EQ(bn_response_get_msg_type(resp), bbmt_query_response);
    uint32 code = 99;
    EXPECT_EQ(answers_of(resp, &code), (std::vector<Answer>{{"/s/one", "v:/s/one", id}}));
    EXPECT_EQ(code, 0u);
    bn_response_msg_free(&resp);
}

TEST_F(MdcDispatchSendTest, WithoutAResponseAnInternalErrorIsSent)
{
    bn_request *action = nullptr;
    ASSERT_EQ(0, bn_action_request_msg_create(&action, "/do/it"));
    action->br_header.brh_msg_id = 31;
    EXPECT_EQ(lc_err_assertion_failed,
              mdc_dispatch_mon_request(sess_, action, record_get, &rec_, record_iterate, &rec_));
    bn_request_msg_free(&action);
    bn_response *resp = read_response();
    ASSERT_NE(resp, nullptr);
    EXPECT_EQ(bn_response_get_msg_type(resp), bbmt_query_response);
    uint32 code = 0;
    tstring *msg = nullptr;
    EXPECT_EQ(0, bn_response_get_return(resp, &code, &msg));
    EXPECT_EQ(code, 1u);
    EXPECT_STREQ(ts_str_maybe(msg), "An internal error occurred");
    uint32 req_id = 0;
    EXPECT_EQ(0, bn_response_get_msg_ids(resp, nullptr, &req_id));
    EXPECT_EQ(req_id, 31u);
    ts_free(&msg);
    bn_response_msg_free(&resp);
    EXPECT_TRUE(rec_.gets.empty());
}

} // namespace
