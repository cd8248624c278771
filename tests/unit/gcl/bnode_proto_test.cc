// Management message objects: node ids, appends by kind, reading requests and responses,
// the advanced-query conversion and the log dump (observed at a private /dev/log).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bnode_proto.h"
#include "logging.h"
#include "sandbox.h"

namespace {

struct ReqFree {
    void operator()(bn_request *r) const { bn_request_msg_free(&r); }
};
struct RespFree {
    void operator()(bn_response *r) const { bn_response_msg_free(&r); }
};
struct BindingFree {
    void operator()(bn_binding *b) const { bn_binding_free(&b); }
};
struct BindingArrayFree {
    void operator()(bn_binding_array *a) const { bn_binding_array_free(&a); }
};
struct Uint32ArrayFree {
    void operator()(uint32_array *a) const { uint32_array_free(&a); }
};
struct ArrayFree {
    void operator()(array *a) const { array_free(&a); }
};
struct TstrFree {
    void operator()(tstring *t) const { ts_free(&t); }
};

using ReqPtr = std::unique_ptr<bn_request, ReqFree>;
using RespPtr = std::unique_ptr<bn_response, RespFree>;
using BindingPtr = std::unique_ptr<bn_binding, BindingFree>;
using BindingArrayPtr = std::unique_ptr<bn_binding_array, BindingArrayFree>;
using Uint32ArrayPtr = std::unique_ptr<uint32_array, Uint32ArrayFree>;
using ArrayPtr = std::unique_ptr<array, ArrayFree>;
using TstrPtr = std::unique_ptr<tstring, TstrFree>;

bn_binding *new_str_binding(const char *name, bn_type type, const char *value)
{
    bn_binding *b = nullptr;
    EXPECT_EQ(bn_binding_new_str(&b, name, ba_value, type, 0, value), 0);
    return b;
}

std::string value_of(const bn_binding *b)
{
    char *str = nullptr;
    EXPECT_EQ(bn_binding_get_str(b, ba_value, bt_NONE, nullptr, &str), 0);
    std::string out = str ? str : "<null>";
    free(str);
    return out;
}

std::string name_of(const bn_binding *b)
{
    return ts_str(b->bn_node_name);
}

// ---------------------------------------------------------------------------------------
// Building requests.

TEST(BnRequestBuild, NodeIdsStartAt1000PerMessage)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_query_request_msg_create(&raw, bqf_msg_nonbarrier, "candidate"), 0);
    ReqPtr q(raw);
    EXPECT_EQ(bn_request_get_msg_type(q.get()), bbmt_query_request);
    EXPECT_EQ(q->br_next_node_id, 1000u);

    int32 id1 = -1, id2 = -1;
    ASSERT_EQ(bn_query_request_msg_append_str(q.get(), bqso_get, bqnf_cleartext, "/a", &id1), 0);
    ASSERT_EQ(bn_query_request_msg_append_str(q.get(), bqso_iterate,
                                              bqnf_sel_iterate_subtree, "/b", &id2),
              0);
    EXPECT_EQ(id1, 1000);
    EXPECT_EQ(id2, 1001);
    EXPECT_EQ(q->br_next_node_id, 1002u);
    // An append without ret_node_id still consumes an id.
    ASSERT_EQ(bn_query_request_msg_append_str(q.get(), bqso_get, 0, "/c", nullptr), 0);
    EXPECT_EQ(bn_request_get_nth_node_const(q.get(), 2)->brn_node_id, 1002);

    const bn_request_per_node *n1 = bn_request_get_nth_node_const(q.get(), 1);
    ASSERT_NE(n1, nullptr);
    EXPECT_EQ(n1->brn_request_type, bbmt_query_request);
    EXPECT_EQ(n1->brn_node_settings.brns_query.bqn_query_subop, bqso_iterate);
    EXPECT_EQ(n1->brn_node_settings.brns_query.bqn_query_flags, bqnf_sel_iterate_subtree);
    EXPECT_EQ(bn_request_get_nth_node_const(q.get(), 3), nullptr);

    EXPECT_EQ(q->br_body_settings.brbs_query.bqrb_query_flags, 1u);
    EXPECT_STREQ(ts_str(q->br_body_settings.brbs_query.bqrb_opt_db_spec), "candidate");
    ASSERT_EQ(bn_query_request_msg_set_option_cond_db_revision_id(q.get(), 77), 0);
    EXPECT_EQ(q->br_body_settings.brbs_query.bqrb_opt_cond_db_revision_id, 77);

    // Each message counts on its own.
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/ev"), 0);
    ReqPtr e(raw);
    bn_binding *b = new_str_binding("/x", bt_uint32, "1");
    int32 eid = 0;
    ASSERT_EQ(bn_event_request_msg_append_binding_takeover(e.get(), 0, &b, &eid), 0);
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(eid, 1000);
}

TEST(BnRequestBuild, AppendsToAnotherKindAreRefusedAndTheCallerKeepsTheBinding)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_query_request_msg_create(&raw, 0, nullptr), 0);
    ReqPtr q(raw);
    ASSERT_EQ(bn_action_request_msg_create(&raw, "/act"), 0);
    ReqPtr a(raw);
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/ev"), 0);
    ReqPtr e(raw);
    ASSERT_EQ(bn_set_request_msg_create(&raw, 0), 0);
    ReqPtr s(raw);

    bn_binding *b = new_str_binding("/keep", bt_string, "mine");
    int32 id = 55;
    EXPECT_EQ(bn_set_request_msg_append_binding_takeover(q.get(), bsso_modify, 0, &b, &id),
              lc_err_assertion_failed);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(name_of(b), "/keep");
    EXPECT_EQ(id, 0);
    EXPECT_EQ(bn_action_request_msg_append_binding_takeover(e.get(), 0, &b, nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_event_request_msg_append_binding_takeover(a.get(), 0, &b, nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_event_request_msg_append_binding(q.get(), 0, b, nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_query_request_msg_append_binding(s.get(), bqso_get, 0, b, nullptr),
              lc_err_assertion_failed);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(value_of(b), "mine");

    EXPECT_EQ(bn_query_request_msg_append_str(a.get(), bqso_get, 0, "/n", nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_set_request_msg_append_new_binding(e.get(), bsso_modify, 0, "/n", bt_uint32, 0,
                                                    "1", nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_action_request_msg_append_new_binding(s.get(), 0, "/n", bt_uint32, "1", nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_query_request_msg_set_option_cond_db_revision_id(s.get(), 1),
              lc_err_assertion_failed);

    // Nothing was appended anywhere and no id was used.
    for (const ReqPtr *m : {&q, &a, &e, &s}) {
        EXPECT_EQ(bn_request_get_num_nodes(m->get()), 0u);
        EXPECT_EQ((*m)->br_next_node_id, 1000u);
    }

    // The right kind takes it.
    ASSERT_EQ(bn_set_request_msg_append_binding_takeover(s.get(), bsso_modify, 0, &b, &id), 0);
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(id, 1000);
}

TEST(BnRequestBuild, NewBindingsParseByTypeAndMarkBadValuesInvalid)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_set_request_msg_create(&raw, bsf_continue_after_error), 0);
    ReqPtr s(raw);
    int32 id_bad = 0, id_good = 0, id_del = 0;
    ASSERT_EQ(bn_set_request_msg_append_new_binding(s.get(), bsso_modify, bsnf_reparent_by_copy,
                                                    "/n/good", bt_uint32, 0, "42", &id_good),
              0);
    ASSERT_EQ(bn_set_request_msg_append_new_binding(s.get(), bsso_modify, 0, "/n/bad", bt_uint32,
                                                    0, "forty-two", &id_bad),
              0);
    ASSERT_EQ(bn_set_request_msg_append_new_binding(s.get(), bsso_delete, 0, "/n/del", bt_none, 0,
                                                    nullptr, &id_del),
              0);
    EXPECT_EQ(id_good, 1000);
    EXPECT_EQ(id_bad, 1001);
    EXPECT_EQ(id_del, 1002);

    const bn_request_per_node *good = bn_request_get_nth_node_const(s.get(), 0);
    uint32 value = 0;
    uint32 ftype = 0;
    ASSERT_EQ(bn_binding_get_uint32(good->brn_binding, ba_value, &ftype, &value), 0);
    EXPECT_EQ(value, 42u);
    EXPECT_EQ(ftype, static_cast<uint32>(bt_uint32));
    EXPECT_EQ(good->brn_node_settings.brns_set.bsn_set_subop, bsso_modify);
    EXPECT_EQ(good->brn_node_settings.brns_set.bsn_set_flags, 0x400u);

    const bn_request_per_node *bad = bn_request_get_nth_node_const(s.get(), 1);
    bn_type type = bt_NONE;
    bn_type_flags_bf flags = 0;
    ASSERT_EQ(bn_binding_get_type(bad->brn_binding, ba_value, &type, &flags), 0);
    EXPECT_EQ(type, bt_uint32);
    EXPECT_NE(flags & btf_invalid, 0u);

    const bn_request_per_node *del = bn_request_get_nth_node_const(s.get(), 2);
    ASSERT_EQ(bn_binding_get_type(del->brn_binding, ba_value, &type, &flags), 0);
    EXPECT_EQ(type, bt_none);
    EXPECT_EQ(del->brn_node_settings.brns_set.bsn_set_subop, bsso_delete);

    // A typed value without any text is no value at all: refused, and the message keeps
    // only what it had.
    int32 id_none = 7;
    EXPECT_EQ(bn_set_request_msg_append_new_binding(s.get(), bsso_modify, 0, "/n/none",
                                                    bt_uint32, 0, nullptr, &id_none),
              lc_err_unexpected_null);
    EXPECT_EQ(id_none, 0);
    EXPECT_EQ(bn_request_get_num_nodes(s.get()), 3u);
    // Marked as a binding without value, it may go.
    EXPECT_EQ(bn_set_request_msg_append_new_binding(s.get(), bsso_modify, 0, "/n/novalue",
                                                    bt_uint32, btf_no_value, nullptr, nullptr),
              0);

    // The action forms parse the same way.
    ASSERT_EQ(bn_action_request_msg_create(&raw, "/ib/actions/x"), 0);
    ReqPtr a(raw);
    ASSERT_EQ(bn_action_request_msg_append_new_binding(a.get(), 0, "port", bt_uint8, "300",
                                                       nullptr),
              0);
    ASSERT_EQ(bn_action_request_msg_append_new_binding_ex(a.get(), 0, "name", bt_string,
                                                          btf_counter, "eth1", nullptr),
              0);
    ASSERT_EQ(bn_binding_get_type(bn_request_get_nth_node_const(a.get(), 0)->brn_binding,
                                  ba_value, &type, &flags),
              0);
    EXPECT_EQ(type, bt_uint8);
    EXPECT_NE(flags & btf_invalid, 0u);
    const bn_binding *named = bn_request_get_nth_node_const(a.get(), 1)->brn_binding;
    ASSERT_EQ(bn_binding_get_type(named, ba_value, &type, &flags), 0);
    EXPECT_EQ(flags, btf_counter);
    EXPECT_EQ(value_of(named), "eth1");
}

TEST(BnRequestBuild, CommonFormCopiesSettingsByKind)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_set_request_msg_create(&raw, 0), 0);
    ReqPtr s(raw);

    bn_request_per_node_settings settings{};
    settings.brns_set.bsn_set_subop = bsso_reparent;
    ASSERT_EQ(ts_new_str(&settings.brns_set.bsn_graft_under_name, "/parent"), 0);
    ASSERT_EQ(ts_new_str(&settings.brns_set.bsn_new_self_name, "child"), 0);
    BindingPtr b(new_str_binding("/old/child", bt_string, "v"));
    int32 id = 0;
    ASSERT_EQ(bn_request_msg_append_binding_settings(s.get(), b.get(), &settings, &id), 0);
    EXPECT_EQ(id, 1000);
    // The message holds its own copies.
    ts_free(&settings.brns_set.bsn_graft_under_name);
    ts_free(&settings.brns_set.bsn_new_self_name);
    b.reset();

    const bn_request_per_node *n = bn_request_get_nth_node_const(s.get(), 0);
    EXPECT_EQ(n->brn_node_settings.brns_set.bsn_set_subop, bsso_reparent);
    EXPECT_STREQ(ts_str(n->brn_node_settings.brns_set.bsn_graft_under_name), "/parent");
    EXPECT_STREQ(ts_str(n->brn_node_settings.brns_set.bsn_new_self_name), "child");
    EXPECT_EQ(value_of(n->brn_binding), "v");

    // A node array copy is deep, settings included.
    bn_request_per_node_array *dup = nullptr;
    ASSERT_EQ(bn_request_per_node_array_duplicate(s->br_nodes, &dup), 0);
    bn_request_per_node *dn = bn_request_per_node_array_get_quick(dup, 0);
    ASSERT_NE(dn, nullptr);
    EXPECT_NE(dn->brn_node_settings.brns_set.bsn_graft_under_name,
              n->brn_node_settings.brns_set.bsn_graft_under_name);
    EXPECT_STREQ(ts_str(dn->brn_node_settings.brns_set.bsn_graft_under_name), "/parent");
    EXPECT_NE(dn->brn_binding, n->brn_binding);
    bn_request_per_node_array_free(&dup);
    EXPECT_EQ(dup, nullptr);
}

// ---------------------------------------------------------------------------------------
// Reading requests.

TEST(BnRequestRead, GetCopiesWithAndWithoutPartsAndSkipsNodesWithoutBinding)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_action_request_msg_create(&raw, "/ib/actions/led-test-port"), 0);
    ReqPtr a(raw);
    ASSERT_EQ(bn_action_request_msg_append_new_binding(a.get(), 0, "/p/ifindex", bt_uint32, "7",
                                                       nullptr),
              0);
    bn_binding *none = nullptr;
    int32 hole_id = 0;
    ASSERT_EQ(bn_request_msg_append_binding_settings_takeover(a.get(), &none, nullptr, &hole_id),
              0);
    EXPECT_EQ(hole_id, 1001);
    ASSERT_EQ(bn_action_request_msg_append_new_binding(a.get(), 0, "/p/name", bt_string, "x",
                                                       nullptr),
              0);
    EXPECT_EQ(bn_request_get_num_nodes(a.get()), 3u);
    EXPECT_EQ(bn_request_msg_get_node_count(a.get()), 2u);

    bn_msg_type type = bbmt_none;
    const bn_request_body_settings *body = nullptr;
    bn_binding_array *bindings_raw = nullptr;
    uint32_array *ids_raw = nullptr;
    array *settings_raw = nullptr;
    ASSERT_EQ(bn_request_get(a.get(), &type, &body, true, &bindings_raw, &ids_raw, &settings_raw),
              0);
    BindingArrayPtr bindings(bindings_raw);
    Uint32ArrayPtr ids(ids_raw);
    ArrayPtr settings(settings_raw);
    EXPECT_EQ(type, bbmt_action_request);
    ASSERT_EQ(body, &a->br_body_settings);
    EXPECT_STREQ(ts_str(body->brbs_action.barb_action_name), "/ib/actions/led-test-port");
    ASSERT_EQ(bn_binding_array_length_quick(bindings.get()), 2u);
    ASSERT_EQ(uint32_array_length_quick(ids.get()), 2u);
    ASSERT_EQ(array_length_quick(settings.get()), 2u);
    EXPECT_EQ(uint32_array_get_quick(ids.get(), 0), 1000u);
    EXPECT_EQ(uint32_array_get_quick(ids.get(), 1), 1002u);
    EXPECT_EQ(array_get_quick(settings.get(), 1),
              &bn_request_get_nth_node_const(a.get(), 2)->brn_node_settings);

    const bn_binding *first = bn_binding_array_get_quick(bindings.get(), 0);
    EXPECT_NE(first, bn_request_get_nth_node_const(a.get(), 0)->brn_binding);
    EXPECT_EQ(name_of(first), "/p/ifindex");
    EXPECT_EQ(value_of(first), "7");
    ASSERT_NE(first->bn_node_name_parts, nullptr);
    EXPECT_EQ(tstr_array_length_quick(first->bn_node_name_parts), 2u);
    EXPECT_STREQ(tstr_array_get_str_quick(first->bn_node_name_parts, 1), "ifindex");
    EXPECT_TRUE(first->bn_node_name_parts_absolute);
    EXPECT_EQ(value_of(bn_binding_array_get_quick(bindings.get(), 1)), "x");

    // Without parts: name and attributes only.
    ASSERT_EQ(bn_request_get(a.get(), nullptr, nullptr, false, &bindings_raw, nullptr, nullptr),
              0);
    bindings.reset(bindings_raw);
    ASSERT_EQ(bn_binding_array_length_quick(bindings.get()), 2u);
    EXPECT_EQ(bn_binding_array_get_quick(bindings.get(), 0)->bn_node_name_parts, nullptr);
    EXPECT_EQ(value_of(bn_binding_array_get_quick(bindings.get(), 0)), "7");

    // No request kind at all.
    ASSERT_EQ(bn_request_msg_create(&raw, bbmt_query_response), 0);
    ReqPtr odd(raw);
    type = bbmt_action_request;
    EXPECT_EQ(bn_request_get(odd.get(), &type, nullptr, false, &bindings_raw, nullptr, nullptr),
              lc_err_unexpected_case);
    EXPECT_EQ(type, bbmt_none);
    EXPECT_EQ(bindings_raw, nullptr);
}

TEST(BnRequestRead, ActionAndEventNamesOnlyFromTheirKind)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_action_request_msg_create(&raw, "/ib/actions/reset-port-counters"), 0);
    ReqPtr a(raw);
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/ib/events/init-done"), 0);
    ReqPtr e(raw);

    tstring *name_raw = nullptr;
    ASSERT_EQ(bn_action_request_msg_get_action_name(a.get(), &name_raw), 0);
    TstrPtr name(name_raw);
    EXPECT_STREQ(ts_str(name.get()), "/ib/actions/reset-port-counters");
    EXPECT_NE(name.get(), a->br_body_settings.brbs_action.barb_action_name);
    ASSERT_EQ(bn_event_request_msg_get_event_name(e.get(), &name_raw), 0);
    name.reset(name_raw);
    EXPECT_STREQ(ts_str(name.get()), "/ib/events/init-done");

    name_raw = reinterpret_cast<tstring *>(0x1);
    EXPECT_EQ(bn_action_request_msg_get_action_name(e.get(), &name_raw), lc_err_assertion_failed);
    EXPECT_EQ(name_raw, nullptr);
    EXPECT_EQ(bn_event_request_msg_get_event_name(a.get(), &name_raw), lc_err_assertion_failed);
    EXPECT_EQ(name_raw, nullptr);
}

// ---------------------------------------------------------------------------------------
// Responses.

TEST(BnResponse, GetCopiesAndTakeoverMovesBindingsOut)
{
    bn_response *raw = nullptr;
    ASSERT_EQ(bn_query_response_msg_create(&raw, 31, 0, "fine"), 0);
    RespPtr r(raw);
    EXPECT_EQ(bn_response_get_msg_type(r.get()), bbmt_query_response);
    ASSERT_EQ(bn_response_set_service_id(r.get(), bap_service_mgmt), 0);
    EXPECT_EQ(bn_response_get_service_id(r.get()), 2);
    uint32 msg_id = 9, req_id = 0;
    ASSERT_EQ(bn_response_get_msg_ids(r.get(), &msg_id, &req_id), 0);
    EXPECT_EQ(msg_id, 0u);
    EXPECT_EQ(req_id, 31u);

    bn_binding *b = new_str_binding("/ib/state/a", bt_uint32, "1");
    ASSERT_EQ(bn_query_response_msg_append_binding_takeover(r.get(), &b, 1000), 0);
    EXPECT_EQ(b, nullptr);
    b = new_str_binding("/ib/state/b", bt_string, "two");
    // The parts cache of a moved binding goes unless parts are wanted.
    tstr_array *parts = nullptr;
    ASSERT_EQ(bn_binding_name_to_parts("/ib/state/b", &parts, nullptr), 0);
    b->bn_node_name_parts = parts;
    b->bn_node_name_parts_absolute = true;
    ASSERT_EQ(bn_response_msg_append_binding_takeover(r.get(), &b, 1003), 0);

    uint32 code = 99;
    tstring *msg_raw = nullptr;
    bn_binding_array *bindings_raw = nullptr;
    uint32_array *ids_raw = nullptr;
    ASSERT_EQ(bn_response_get(r.get(), &code, &msg_raw, false, &bindings_raw, &ids_raw), 0);
    TstrPtr msg(msg_raw);
    BindingArrayPtr bindings(bindings_raw);
    Uint32ArrayPtr ids(ids_raw);
    EXPECT_EQ(code, 0u);
    EXPECT_STREQ(ts_str(msg.get()), "fine");
    ASSERT_EQ(bn_binding_array_length_quick(bindings.get()), 2u);
    EXPECT_EQ(uint32_array_get_quick(ids.get(), 1), 1003u);
    EXPECT_EQ(bn_binding_array_get_quick(bindings.get(), 1)->bn_node_name_parts, nullptr);

    // A deep copy survives the takeover from the original.
    bn_response *dup_raw = nullptr;
    ASSERT_EQ(bn_response_msg_dup(r.get(), &dup_raw), 0);
    RespPtr dup(dup_raw);

    ASSERT_EQ(bn_response_get_takeover(r.get(), &code, &msg_raw, false, &bindings_raw, &ids_raw),
              0);
    msg.reset(msg_raw);
    bindings.reset(bindings_raw);
    ids.reset(ids_raw);
    EXPECT_STREQ(ts_str(msg.get()), "fine");
    ASSERT_EQ(bn_binding_array_length_quick(bindings.get()), 2u);
    const bn_binding *moved = bn_binding_array_get_quick(bindings.get(), 1);
    EXPECT_EQ(name_of(moved), "/ib/state/b");
    EXPECT_EQ(moved->bn_node_name_parts, nullptr);
    EXPECT_EQ(r->brs_return_message, nullptr);
    for (uint32 i = 0; i < 2; ++i) {
        const bn_response_per_node *n = bn_response_per_node_array_get_quick(r->brs_nodes, i);
        EXPECT_EQ(n->brsn_binding, nullptr);
        EXPECT_EQ(n->brsn_response_type, bbmt_query_response);
    }
    ASSERT_EQ(bn_response_get(r.get(), &code, nullptr, true, &bindings_raw, nullptr), 0);
    EXPECT_EQ(bn_binding_array_length_quick(bindings_raw), 0u);
    bn_binding_array_free(&bindings_raw);

    ASSERT_EQ(bn_response_get(dup.get(), nullptr, &msg_raw, true, &bindings_raw, nullptr), 0);
    msg.reset(msg_raw);
    bindings.reset(bindings_raw);
    EXPECT_STREQ(ts_str(msg.get()), "fine");
    ASSERT_EQ(bn_binding_array_length_quick(bindings.get()), 2u);
    EXPECT_EQ(value_of(bn_binding_array_get_quick(bindings.get(), 1)), "two");
    // With parts wanted the cached parts come along.
    ASSERT_NE(bn_binding_array_get_quick(bindings.get(), 1)->bn_node_name_parts, nullptr);
    EXPECT_EQ(bn_response_get_service_id(dup.get()), 2);
}

TEST(BnResponse, KindChecksReturnsAndRevision)
{
    bn_response *raw = nullptr;
    ASSERT_EQ(bn_action_response_msg_create(&raw, 5, 14004, nullptr), 0);
    RespPtr a(raw);
    bn_binding *b = new_str_binding("/x", bt_uint32, "3");
    EXPECT_EQ(bn_query_response_msg_append_binding_takeover(a.get(), &b, 1000),
              lc_err_assertion_failed);
    ASSERT_NE(b, nullptr);
    ASSERT_EQ(bn_response_msg_append_binding_takeover(a.get(), &b, 1000), 0);

    uint32 code = 0;
    tstring *msg = reinterpret_cast<tstring *>(0x1);
    ASSERT_EQ(bn_response_get_return(a.get(), &code, &msg), 0);
    EXPECT_EQ(code, 14004u);
    EXPECT_EQ(msg, nullptr);
    EXPECT_EQ(bn_query_response_msg_get_db_revision_id(a.get()), 0);

    ASSERT_EQ(bn_response_msg_create(&raw, bbmt_query_response, 6, 0, ""), 0);
    RespPtr q(raw);
    q->brs_body_settings.brsbs_query.bqrsb_db_revision_id = 4711;
    EXPECT_EQ(bn_query_response_msg_get_db_revision_id(q.get()), 4711);
}

// ---------------------------------------------------------------------------------------
// Advanced query.

TEST(BnQueryNodeData, ConvertAppendsNumberedAuxiliaryNodes)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_query_request_msg_create(&raw, 0, nullptr), 0);
    ReqPtr q(raw);
    ASSERT_EQ(bn_query_request_msg_append_str(q.get(), bqso_get, 0, "/plain", nullptr), 0);

    bn_query_node_data_per_wildcard wild[2] = {};
    ASSERT_EQ(ts_new_str(&wild[0].bqnw_pattern, "/ib/state/*/speed"), 0);
    ASSERT_EQ(ts_new_str(&wild[0].bqnw_match_expr, "value > 1"), 0);
    ASSERT_EQ(tstr_array_new(&wild[1].bqnw_fields, nullptr), 0);
    ASSERT_EQ(tstr_array_append_str(wild[1].bqnw_fields, "speed"), 0);
    ASSERT_EQ(tstr_array_append_str(wild[1].bqnw_fields, "width"), 0);
    bn_request_per_node_settings settings{};
    settings.brns_query.bqn_query_subop = bqso_iterate;
    ASSERT_EQ(ts_new_str(&settings.brns_query.bqn_query_data.bqnd_node_name, "/ib/state"), 0);
    settings.brns_query.bqn_query_data.bqnd_num_wildcards = 2;
    settings.brns_query.bqn_query_data.bqnd_wildcards = wild;

    BindingPtr b;
    {
        bn_binding *nb = nullptr;
        ASSERT_EQ(bn_binding_new_named(&nb, "/ib/state"), 0);
        b.reset(nb);
    }
    int32 id = 0;
    ASSERT_EQ(bn_request_msg_append_binding_settings(q.get(), b.get(), &settings, &id), 0);
    EXPECT_EQ(id, 1001);
    // The message copied the data: release the caller's records.
    ts_free(&settings.brns_query.bqn_query_data.bqnd_node_name);
    for (auto &w : wild) {
        ts_free(&w.bqnw_pattern);
        ts_free(&w.bqnw_match_expr);
        tstr_array_free(&w.bqnw_fields);
    }

    ASSERT_EQ(bn_query_node_data_convert(q.get()), 0);
    const std::vector<std::pair<std::string, std::string>> want = {
        {"/mgmtd/aq/node/1002/name", "/ib/state"},
        {"/mgmtd/aq/node/1002/wild/0/pattern", "/ib/state/*/speed"},
        {"/mgmtd/aq/node/1002/wild/0/match_expr", "value > 1"},
        {"/mgmtd/aq/node/1002/wild/1/fields/0/name", "speed"},
        {"/mgmtd/aq/node/1002/wild/1/fields/1/name", "width"},
    };
    ASSERT_EQ(bn_request_get_num_nodes(q.get()), 2 + want.size());
    for (size_t i = 0; i < want.size(); ++i) {
        const bn_request_per_node *n = bn_request_get_nth_node_const(q.get(), 2 + i);
        EXPECT_EQ(name_of(n->brn_binding), want[i].first);
        EXPECT_EQ(value_of(n->brn_binding), want[i].second);
        EXPECT_EQ(n->brn_node_id, static_cast<int32>(1002 + i));
        EXPECT_EQ(n->brn_node_settings.brns_query.bqn_query_subop, bqso_get);
        bn_type type = bt_NONE;
        ASSERT_EQ(bn_binding_get_type(n->brn_binding, ba_value, &type, nullptr), 0);
        EXPECT_EQ(type, i == 0 ? bt_name : bt_string);
    }
    // The data is gone from the node, so a second conversion adds nothing.
    EXPECT_EQ(bn_request_get_nth_node_const(q.get(), 1)
                  ->brn_node_settings.brns_query.bqn_query_data.bqnd_node_name,
              nullptr);
    ASSERT_EQ(bn_query_node_data_convert(q.get()), 0);
    EXPECT_EQ(bn_request_get_num_nodes(q.get()), 2 + want.size());

    ASSERT_EQ(bn_set_request_msg_create(&raw, 0), 0);
    ReqPtr s(raw);
    EXPECT_EQ(bn_query_node_data_convert(s.get()), lc_err_assertion_failed);
}

// ---------------------------------------------------------------------------------------
// The dump.

class BnMsgDumpTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        if (!sandboxed_) {
            why_ = why;
            return;
        }
        receiver_ = new ovd_test::SyslogReceiver();
        lc_log_init("bpt", nullptr, 0, 0, LOG_DEBUG, LOG_LOCAL4, LCT_SYSLOG);
    }
    static void TearDownTestSuite()
    {
        lc_log_close();
        delete receiver_;
        receiver_ = nullptr;
    }
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace: " << why_;
        }
        ASSERT_TRUE(receiver_->ok());
        receiver_->drain(std::chrono::milliseconds(20));
        receiver_->clear();
    }

    // The text of each line, from after its level tag.
    static std::vector<std::string> collect()
    {
        receiver_->drain(std::chrono::milliseconds(200));
        std::vector<std::string> out;
        for (auto l : receiver_->lines()) {
            while (!l.empty() && l.back() == '\n') {
                l.pop_back();
            }
            const auto pos = l.find(".DEBUG]: ");
            const auto pos_info = l.find(".INFO]: ");
            if (pos != std::string::npos) {
                out.push_back(l.substr(pos + 9));
            } else if (pos_info != std::string::npos) {
                out.push_back(l.substr(pos_info + 8));
            } else {
                out.push_back(l);
            }
        }
        receiver_->clear();
        return out;
    }

    // Runs fn while another thread keeps reading /dev/log, for output larger than the
    // socket's queue.
    template <typename Fn>
    static void with_reader(Fn fn)
    {
        std::atomic<bool> stop{false};
        std::thread reader([&stop] {
            while (!stop.load()) {
                receiver_->drain(std::chrono::milliseconds(10));
            }
        });
        fn();
        stop.store(true);
        reader.join();
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    static inline ovd_test::SyslogReceiver *receiver_ = nullptr;
};

TEST_F(BnMsgDumpTest, RequestLinesByKindAndNode)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_action_request_msg_create(&raw, "/ib/actions/led-test-port"), 0);
    ReqPtr a(raw);
    a->br_header.brh_service_id = bap_service_mgmt;
    a->br_header.brh_msg_id = 17;
    ASSERT_EQ(bn_action_request_msg_append_new_binding(a.get(), 0, "ifindex", bt_uint32, "12",
                                                       nullptr),
              0);
    ASSERT_EQ(bn_action_request_msg_append_new_binding(a.get(), 0, "bad", bt_uint8, "x",
                                                       nullptr),
              0);
    collect();  // whatever building logged
    ASSERT_EQ(bn_request_msg_dump(LOG_DEBUG, "SEND REQ", a.get()), 0);
    const std::vector<std::string> want = {
        "SEND REQ: service 2 type 5 (action_request) msg id 17",
        "SEND REQ: action name: /ib/actions/led-test-port",
        "SEND REQ: num nodes: 2",
        "SEND REQ: rn[0]: id 1000 ifindex",
        "SEND REQ: rn[0]: attrib 1(value) type 5(uint32) value \"12\"",
        "SEND REQ: rn[1]: id 1001 bad",
    };
    auto lines = collect();
    ASSERT_EQ(lines.size(), want.size() + 1);
    for (size_t i = 0; i < want.size(); ++i) {
        EXPECT_EQ(lines[i], want[i]);
    }
    // An invalid value shows its flags.
    EXPECT_EQ(lines.back().rfind("SEND REQ: rn[1]: attrib 1(value) type 1(uint8) type flags 40000 value",
                                 0),
              0u)
        << lines.back();

    ASSERT_EQ(bn_query_request_msg_create(&raw, 1, "running"), 0);
    ReqPtr q(raw);
    ASSERT_EQ(bn_query_request_msg_set_option_cond_db_revision_id(q.get(), 3), 0);
    ASSERT_EQ(bn_query_request_msg_append_str(q.get(), bqso_iterate, 0x3000, "/ib/state", nullptr),
              0);
    ASSERT_EQ(bn_request_msg_dump(LOG_INFO, "Q", q.get()), 0);
    lines = collect();
    const std::vector<std::string> want_q = {
        "Q: service 0 type 1 (query_request) msg id 0",
        "Q: flags: 00000001 cond rev: 3 target db: running",
        "Q: num nodes: 1",
        "Q: rn[0]: id 1000 /ib/state",
        "Q: rn[0]: query subop: iterate flags: 00003000",
    };
    EXPECT_EQ(lines, want_q);

    ASSERT_EQ(bn_set_request_msg_create(&raw, 8), 0);
    ReqPtr s(raw);
    bn_request_per_node_settings settings{};
    settings.brns_set.bsn_set_subop = bsso_reparent;
    settings.brns_set.bsn_set_flags = bsnf_reparent_by_copy;
    ASSERT_EQ(ts_new_str(&settings.brns_set.bsn_graft_under_name, "/p"), 0);
    BindingPtr b(new_str_binding("/c", bt_string, "v"));
    ASSERT_EQ(bn_request_msg_append_binding_settings(s.get(), b.get(), &settings, nullptr), 0);
    ts_free(&settings.brns_set.bsn_graft_under_name);
    ASSERT_EQ(bn_request_msg_dump(LOG_DEBUG, "S", s.get()), 0);
    lines = collect();
    const std::vector<std::string> want_s = {
        "S: service 0 type 3 (set_request) msg id 0",
        "S: flags: 00000008 cond rev: 0",
        "S: num nodes: 1",
        "S: rn[0]: id 1000 /c",
        "S: rn[0]: set subop: reparent flags: 00000400",
        "S: rn[0]: reparent graft under: /p new self name: ",
        "S: rn[0]: attrib 1(value) type 101(string) value \"v\"",
    };
    EXPECT_EQ(lines, want_s);
}

TEST_F(BnMsgDumpTest, OffLevelsAndTheMaximumLogNothing)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/ev"), 0);
    ReqPtr e(raw);
    EXPECT_EQ(bn_request_msg_dump(-1, "RECV REQ", e.get()), 0);
    bn_response *rraw = nullptr;
    ASSERT_EQ(bn_response_msg_create(&rraw, bbmt_event_response, 1, 0, nullptr), 0);
    RespPtr r(rraw);
    EXPECT_EQ(bn_response_msg_dump(-1, "RECV RESP", r.get()), 0);
    EXPECT_TRUE(collect().empty());

    // With the maximum at info, a debug dump is dropped and an info dump shows.
    ASSERT_EQ(lc_log_init("bpt", nullptr, 0, 0, LOG_INFO, LOG_LOCAL4, LCT_SYSLOG), 0);
    int max_level = 0;
    ASSERT_EQ(lc_log_get_max_log_level(&max_level), 0);
    ASSERT_EQ(max_level, LOG_INFO);
    EXPECT_EQ(bn_request_msg_dump(LOG_DEBUG, "X", e.get()), 0);
    EXPECT_TRUE(collect().empty());
    EXPECT_EQ(bn_request_msg_dump(LOG_INFO, "X", e.get()), 0);
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "X: event name: /ev");
    ASSERT_EQ(lc_log_init("bpt", nullptr, 0, 0, LOG_DEBUG, LOG_LOCAL4, LCT_SYSLOG), 0);
}

TEST_F(BnMsgDumpTest, ResponseLinesNodeCapAndValueCut)
{
    bn_response *raw = nullptr;
    ASSERT_EQ(bn_query_response_msg_create(&raw, 41, 14004, "not there"), 0);
    RespPtr r(raw);
    r->brs_header.brsh_msg_id = 42;
    r->brs_header.brsh_service_id = 2;
    const std::string long_value(2000, 'z');
    for (int i = 0; i < 60; ++i) {
        bn_binding *b = new_str_binding(("/n/" + std::to_string(i)).c_str(), bt_string,
                                        i == 0 ? long_value.c_str() : "s");
        ASSERT_EQ(bn_response_msg_append_binding_takeover(r.get(), &b, 1000 + i), 0);
    }
    collect();
    with_reader([&r] { EXPECT_EQ(bn_response_msg_dump(LOG_DEBUG, "SEND RESP", r.get()), 0); });
    const auto lines = collect();
    // Header, return, count, and two lines for each of the first 50 nodes.
    ASSERT_EQ(lines.size(), 3u + 2 * 50);
    EXPECT_EQ(lines[0], "SEND RESP: service 2 type 2 (query_response) msg id 42 to 41");
    EXPECT_EQ(lines[1], "SEND RESP: ret code: 14004 ret msg: \"not there\"");
    EXPECT_EQ(lines[2], "SEND RESP: num nodes: 60 (but only logging the first 50)");
    EXPECT_EQ(lines[3], "SEND RESP: rn[0]: id 1000 /n/0");
    EXPECT_EQ(lines[4], "SEND RESP: rn[0]: attrib 1(value) type 101(string) value \"" +
                            std::string(1023, 'z') + "\"");
    EXPECT_EQ(lines.back(), "SEND RESP: rn[49]: attrib 1(value) type 101(string) value \"s\"");
    EXPECT_EQ(lines[lines.size() - 2], "SEND RESP: rn[49]: id 1049 /n/49");
}

}  // namespace
