// The byte form of bnode messages: every message kind against bytes written out by hand
// from the wire layout, the attribute forms of the fixed and variable types, the sparse
// attribute table, skipped nodes, and the reader's refusal of malformed and truncated
// frames.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_types_wire.h"
#include "bnode_wire.h"
#include "sandbox.h"

namespace {

using Bytes = std::vector<uint8>;

struct ReqFree {
    void operator()(bn_request *r) const { bn_request_msg_free(&r); }
};
struct RespFree {
    void operator()(bn_response *r) const { bn_response_msg_free(&r); }
};
struct TbFree {
    void operator()(tbuf *t) const { tb_free(&t); }
};
struct BindingFree {
    void operator()(bn_binding *b) const { bn_binding_free(&b); }
};
using ReqPtr = std::unique_ptr<bn_request, ReqFree>;
using RespPtr = std::unique_ptr<bn_response, RespFree>;
using TbPtr = std::unique_ptr<tbuf, TbFree>;
using BindingPtr = std::unique_ptr<bn_binding, BindingFree>;

constexpr uint32 kHdr = bn_wire_gcl_header_space;

// Hex text with blanks and line breaks between the bytes.
Bytes hex(const std::string &text)
{
    Bytes out;
    std::string digits;
    for (char c : text) {
        if (isxdigit(static_cast<unsigned char>(c))) {
            digits += c;
        }
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        out.push_back(static_cast<uint8>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return out;
}

// The frame the session layer would hand over: 32 header bytes, then the body.
TbPtr frame_of(const Bytes &body)
{
    Bytes all(kHdr, 0);
    all.insert(all.end(), body.begin(), body.end());
    tbuf *tb = nullptr;
    EXPECT_EQ(tb_new_buf(&tb, all.data(), static_cast<int32>(all.size())), 0);
    return TbPtr(tb);
}

Bytes body_of(const tbuf *frame)
{
    const uint8 *p = tb_buf(frame);
    return Bytes(p + kHdr, p + tb_length(frame));
}

Bytes encode(bn_request *req)
{
    tbuf *raw = nullptr;
    EXPECT_EQ(bn_request_msg_serialize(req, kHdr, &raw), 0);
    TbPtr frame(raw);
    if (!frame) {
        return {};
    }
    for (uint32 i = 0; i < kHdr; ++i) {
        EXPECT_EQ(tb_buf(frame.get())[i], 0) << "header space byte " << i;
    }
    return body_of(frame.get());
}

Bytes encode(bn_response *resp)
{
    tbuf *raw = nullptr;
    EXPECT_EQ(bn_response_msg_serialize(resp, kHdr, &raw), 0);
    TbPtr frame(raw);
    return frame ? body_of(frame.get()) : Bytes{};
}

ReqPtr decode_req(const Bytes &body, int *ret_err = nullptr)
{
    TbPtr frame = frame_of(body);
    bn_request *req = nullptr;
    int err = bn_request_msg_deserialize(frame.get(), kHdr, &req);
    if (ret_err) {
        *ret_err = err;
    } else {
        EXPECT_EQ(err, 0);
    }
    return ReqPtr(req);
}

RespPtr decode_resp(const Bytes &body, int *ret_err = nullptr)
{
    TbPtr frame = frame_of(body);
    bn_response *resp = nullptr;
    int err = bn_response_msg_deserialize(frame.get(), kHdr, &resp);
    if (ret_err) {
        *ret_err = err;
    } else {
        EXPECT_EQ(err, 0);
    }
    return RespPtr(resp);
}

std::string name_of(const bn_binding *b)
{
    return ts_str(bn_binding_get_name_quick(b));
}

std::string value_text(const bn_binding *b, bn_attribute_id id)
{
    char *s = nullptr;
    if (bn_binding_get_str(b, id, bt_NONE, nullptr, &s) != 0 || s == nullptr) {
        return "<none>";
    }
    std::string out(s);
    free(s);
    return out;
}

// ---------------------------------------------------------------------------------------
// The hand-written frames.  The length word is the whole buffer, the 32 bytes in front
// included.

// Query request: service 2, msg 7, transaction 9; node 1000 "/a/b", get, subtree; flags
// msg-non-barrier, no database, revision condition -1.
const char *kQueryRequest =
    "0002 0001 0000005F 00000007 00000009"
    "00000001"
    "000003E8 01 00000002 00000001 61 00000001 62 00000000 00000001 00001000"
    "00000001 00000000 FFFFFFFF";

// Set request: node 1000 "/x" = uint32 5, modify; node 1001 "/y" reparent under "/g" as
// "n"; continue-after-error, database "db", condition 3.
const char *kSetRequest =
    "0002 0003 00000099 00000010 00000011"
    "00000002"
    "000003E8 01 00000001 00000001 78 00000001"
    "  00000001 00000001 00000005 00000000 00000004 00000005"
    "  00000004 00000000"
    "000003E9 01 00000001 00000001 79 00000000"
    "  00000005 00000400 00000002 2F67 00000001 6E"
    "00000008 00000002 6462 00000003";

// Action request "act": node 1000, relative name "p", string "hi".
const char *kActionRequest =
    "0002 0005 00000063 00000001 00000001"
    "00000001"
    "000003E8 00 00000001 00000001 70 00000001"
    "  00000004 00000001 00000065 00000000 00000002 6869"
    "00000003 616374";

// Event request "/e": "/v" = bool true, "/m" = macaddr802 00:11:22:33:44:55 (native
// encoding).
const char *kEventRequest =
    "0002 0007 00000090 00000020 00000021"
    "00000002"
    "000003E8 01 00000001 00000001 76 00000001"
    "  00000001 00000001 00000009 00000000 00000004 00000001"
    "000003E9 01 00000001 00000001 6D 00000001"
    "  00000002 00000001 0000003E 00000000 00000006 001122334455"
    "00000002 2F65";

// Query response to msg 0x2F: code 0, no message; node 1000 "/a" = uint64
// 0x0102030405060708; revision -2.
const char *kQueryResponse =
    "0002 0002 00000072 00000030 00000031 0000002F"
    "00000000 00000000"
    "00000001"
    "000003E8 01 00000001 00000001 61 00000001"
    "  00000001 00000001 00000007 00000000 00000008 0102030405060708"
    "FFFFFFFE";

// Set response: code 14001 "bad", no nodes, revision 7.
const char *kSetResponse =
    "0002 0004 00000047 00000040 00000041 0000003F"
    "000036B1 00000003 626164"
    "00000000"
    "00000007";

// Action response: "ok", node 1000 "/r" = ipv4addr 10.0.0.1 (as stored: network order).
const char *kActionResponse =
    "0002 0006 0000006C 00000050 00000051 0000004F"
    "00000000 00000002 6F6B"
    "00000001"
    "000003E8 01 00000001 00000001 72 00000001"
    "  00000001 00000001 0000003C 00000000 00000004 0A000001";

// Event response: nothing but the header, code and empty message.
const char *kEventResponse =
    "0002 0008 00000040 00000060 00000061 0000005F"
    "00000000 00000000"
    "00000000";

// ---------------------------------------------------------------------------------------
// Builders of the same messages through the message interface.

ReqPtr build_query_request()
{
    bn_request *raw = nullptr;
    EXPECT_EQ(bn_query_request_msg_create(&raw, bqf_msg_nonbarrier, nullptr), 0);
    ReqPtr req(raw);
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 7;
    req->br_header.brh_transaction_id = 9;
    EXPECT_EQ(bn_query_request_msg_set_option_cond_db_revision_id(req.get(), -1), 0);
    EXPECT_EQ(bn_query_request_msg_append_str(req.get(), bqso_get, bqnf_sel_iterate_subtree,
                                              "/a/b", nullptr),
              0);
    return req;
}

ReqPtr build_set_request()
{
    bn_request *raw = nullptr;
    EXPECT_EQ(bn_set_request_msg_create(&raw, bsf_continue_after_error), 0);
    ReqPtr req(raw);
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 0x10;
    req->br_header.brh_transaction_id = 0x11;
    EXPECT_EQ(ts_new_str(&req->br_body_settings.brbs_set.bsrb_opt_db_spec, "db"), 0);
    req->br_body_settings.brbs_set.bsrb_opt_cond_db_revision_id = 3;

    bn_binding *b = nullptr;
    EXPECT_EQ(bn_binding_new_uint32(&b, "/x", ba_value, 0, 5), 0);
    EXPECT_EQ(bn_set_request_msg_append_binding_takeover(req.get(), bsso_modify, 0, &b, nullptr),
              0);

    bn_request_per_node_settings settings{};
    tstring *graft = nullptr;
    tstring *self = nullptr;
    EXPECT_EQ(ts_new_str(&graft, "/g"), 0);
    EXPECT_EQ(ts_new_str(&self, "n"), 0);
    settings.brns_set.bsn_set_subop = bsso_reparent;
    settings.brns_set.bsn_set_flags = bsnf_reparent_by_copy;
    settings.brns_set.bsn_graft_under_name = graft;
    settings.brns_set.bsn_new_self_name = self;
    EXPECT_EQ(bn_binding_new_named(&b, "/y"), 0);
    EXPECT_EQ(bn_request_msg_append_binding_settings_takeover(req.get(), &b, &settings, nullptr),
              0);
    ts_free(&graft);
    ts_free(&self);
    return req;
}

ReqPtr build_action_request()
{
    bn_request *raw = nullptr;
    EXPECT_EQ(bn_action_request_msg_create(&raw, "act"), 0);
    ReqPtr req(raw);
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 1;
    req->br_header.brh_transaction_id = 1;
    EXPECT_EQ(bn_action_request_msg_append_new_binding(req.get(), 0, "p", bt_string, "hi",
                                                       nullptr),
              0);
    return req;
}

ReqPtr build_event_request()
{
    bn_request *raw = nullptr;
    EXPECT_EQ(bn_event_request_msg_create(&raw, "/e"), 0);
    ReqPtr req(raw);
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 0x20;
    req->br_header.brh_transaction_id = 0x21;
    bn_binding *b = nullptr;
    EXPECT_EQ(bn_binding_new_tbool(&b, "/v", ba_value, 0, true), 0);
    EXPECT_EQ(bn_event_request_msg_append_binding_takeover(req.get(), 0, &b, nullptr), 0);
    const uint8 mac[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(bn_binding_new_macaddr802(&b, "/m", ba_value, 0, mac), 0);
    EXPECT_EQ(bn_event_request_msg_append_binding_takeover(req.get(), 0, &b, nullptr), 0);
    return req;
}

RespPtr build_response(bn_msg_type type, uint32 msg_id, uint32 req_id, uint32 code,
                       const char *msg)
{
    bn_response *raw = nullptr;
    EXPECT_EQ(bn_response_msg_create(&raw, type, req_id, code, msg), 0);
    RespPtr resp(raw);
    EXPECT_EQ(bn_response_set_service_id(resp.get(), bap_service_mgmt), 0);
    resp->brs_header.brsh_msg_id = msg_id;
    resp->brs_header.brsh_transaction_id = msg_id + 1;
    return resp;
}

// ---------------------------------------------------------------------------------------
// Golden vectors, one test per kind: the encoder writes the bytes above, and reading them
// gives a message with the same content (which writes the same bytes once more).

TEST(BnWireGoldenTest, QueryRequest)
{
    ReqPtr req = build_query_request();
    EXPECT_EQ(encode(req.get()), hex(kQueryRequest));

    ReqPtr back = decode_req(hex(kQueryRequest));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->br_header.brh_service_id, bap_service_mgmt);
    EXPECT_EQ(back->br_header.brh_msg_type, bbmt_query_request);
    EXPECT_EQ(back->br_header.brh_msg_id, 7u);
    EXPECT_EQ(back->br_header.brh_transaction_id, 9u);
    EXPECT_EQ(back->br_body_settings.brbs_query.bqrb_query_flags, 1u);
    EXPECT_EQ(back->br_body_settings.brbs_query.bqrb_opt_cond_db_revision_id, -1);
    ASSERT_EQ(bn_request_get_num_nodes(back.get()), 1u);
    const bn_request_per_node *n = bn_request_get_nth_node_const(back.get(), 0);
    EXPECT_EQ(n->brn_node_id, 1000);
    EXPECT_EQ(n->brn_request_type, bbmt_query_request);
    EXPECT_EQ(name_of(n->brn_binding), "/a/b");
    EXPECT_TRUE(n->brn_binding->bn_node_name_parts_absolute);
    EXPECT_EQ(n->brn_node_settings.brns_query.bqn_query_subop, bqso_get);
    EXPECT_EQ(n->brn_node_settings.brns_query.bqn_query_flags, bqnf_sel_iterate_subtree);
    EXPECT_EQ(encode(back.get()), hex(kQueryRequest));
}

TEST(BnWireGoldenTest, SetRequestWritesReparentNamesOnlyForSubopFive)
{
    ReqPtr req = build_set_request();
    EXPECT_EQ(encode(req.get()), hex(kSetRequest));

    ReqPtr back = decode_req(hex(kSetRequest));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->br_body_settings.brbs_set.bsrb_set_flags,
              static_cast<uint32>(bsf_continue_after_error));
    EXPECT_STREQ(ts_str(back->br_body_settings.brbs_set.bsrb_opt_db_spec), "db");
    EXPECT_EQ(back->br_body_settings.brbs_set.bsrb_opt_cond_db_revision_id, 3);
    ASSERT_EQ(bn_request_get_num_nodes(back.get()), 2u);
    const bn_request_per_node *modify = bn_request_get_nth_node_const(back.get(), 0);
    EXPECT_EQ(modify->brn_node_settings.brns_set.bsn_set_subop, bsso_modify);
    EXPECT_EQ(modify->brn_node_settings.brns_set.bsn_graft_under_name, nullptr);
    EXPECT_EQ(modify->brn_node_settings.brns_set.bsn_new_self_name, nullptr);
    EXPECT_EQ(value_text(modify->brn_binding, ba_value), "5");
    const bn_request_per_node *reparent = bn_request_get_nth_node_const(back.get(), 1);
    EXPECT_EQ(reparent->brn_node_id, 1001);
    EXPECT_EQ(reparent->brn_node_settings.brns_set.bsn_set_subop, bsso_reparent);
    EXPECT_EQ(reparent->brn_node_settings.brns_set.bsn_set_flags, bsnf_reparent_by_copy);
    EXPECT_STREQ(ts_str(reparent->brn_node_settings.brns_set.bsn_graft_under_name), "/g");
    EXPECT_STREQ(ts_str(reparent->brn_node_settings.brns_set.bsn_new_self_name), "n");
    EXPECT_EQ(encode(back.get()), hex(kSetRequest));
}

TEST(BnWireGoldenTest, ActionRequestWithRelativeName)
{
    ReqPtr req = build_action_request();
    EXPECT_EQ(encode(req.get()), hex(kActionRequest));

    ReqPtr back = decode_req(hex(kActionRequest));
    ASSERT_TRUE(back);
    EXPECT_STREQ(ts_str(back->br_body_settings.brbs_action.barb_action_name), "act");
    const bn_request_per_node *n = bn_request_get_nth_node_const(back.get(), 0);
    ASSERT_NE(n, nullptr);
    EXPECT_EQ(name_of(n->brn_binding), "p");
    EXPECT_FALSE(n->brn_binding->bn_node_name_parts_absolute);
    EXPECT_EQ(value_text(n->brn_binding, ba_value), "hi");
    EXPECT_EQ(encode(back.get()), hex(kActionRequest));
}

TEST(BnWireGoldenTest, EventRequestWithBoolAndMacAddress)
{
    ReqPtr req = build_event_request();
    EXPECT_EQ(encode(req.get()), hex(kEventRequest));

    ReqPtr back = decode_req(hex(kEventRequest));
    ASSERT_TRUE(back);
    EXPECT_STREQ(ts_str(back->br_body_settings.brbs_event.berb_event_name), "/e");
    ASSERT_EQ(bn_request_get_num_nodes(back.get()), 2u);
    EXPECT_EQ(value_text(bn_request_get_nth_node_const(back.get(), 0)->brn_binding, ba_value),
              "true");
    EXPECT_EQ(value_text(bn_request_get_nth_node_const(back.get(), 1)->brn_binding, ba_value),
              "00:11:22:33:44:55");
    EXPECT_EQ(encode(back.get()), hex(kEventRequest));
}

TEST(BnWireGoldenTest, QueryResponse)
{
    RespPtr resp = build_response(bbmt_query_response, 0x30, 0x2F, 0, nullptr);
    resp->brs_body_settings.brsbs_query.bqrsb_db_revision_id = -2;
    bn_binding *b = nullptr;
    ASSERT_EQ(bn_binding_new_uint64(&b, "/a", ba_value, 0, 0x0102030405060708ULL), 0);
    ASSERT_EQ(bn_query_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);
    EXPECT_EQ(encode(resp.get()), hex(kQueryResponse));

    RespPtr back = decode_resp(hex(kQueryResponse));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->brs_header.brsh_req_msg_id, 0x2Fu);
    EXPECT_EQ(back->brs_header.brsh_transaction_id, 0x31u);
    EXPECT_EQ(bn_query_response_msg_get_db_revision_id(back.get()), -2);
    ASSERT_EQ(bn_response_per_node_array_length_quick(back->brs_nodes), 1u);
    const bn_response_per_node *n = bn_response_per_node_array_get_quick(back->brs_nodes, 0);
    EXPECT_EQ(n->brsn_node_id, 1000);
    EXPECT_EQ(n->brsn_response_type, bbmt_query_response);
    uint64 v = 0;
    EXPECT_EQ(bn_binding_get_uint64(n->brsn_binding, ba_value, nullptr, &v), 0);
    EXPECT_EQ(v, 0x0102030405060708ULL);
    EXPECT_EQ(encode(back.get()), hex(kQueryResponse));
}

TEST(BnWireGoldenTest, SetResponseWithCodeAndMessage)
{
    RespPtr resp = build_response(bbmt_set_response, 0x40, 0x3F, 14001, "bad");
    resp->brs_body_settings.brsbs_set.bsrsb_db_revision_id = 7;
    EXPECT_EQ(encode(resp.get()), hex(kSetResponse));

    RespPtr back = decode_resp(hex(kSetResponse));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->brs_return_code, 14001u);
    EXPECT_STREQ(ts_str(back->brs_return_message), "bad");
    EXPECT_EQ(back->brs_body_settings.brsbs_set.bsrsb_db_revision_id, 7u);
    EXPECT_EQ(encode(back.get()), hex(kSetResponse));
}

TEST(BnWireGoldenTest, ActionResponseWithAddress)
{
    RespPtr resp = build_response(bbmt_action_response, 0x50, 0x4F, 0, "ok");
    bn_binding *b = nullptr;
    ASSERT_EQ(bn_binding_new_str(&b, "/r", ba_value, bt_ipv4addr, 0, "10.0.0.1"), 0);
    ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);
    EXPECT_EQ(encode(resp.get()), hex(kActionResponse));

    RespPtr back = decode_resp(hex(kActionResponse));
    ASSERT_TRUE(back);
    EXPECT_STREQ(ts_str(back->brs_return_message), "ok");
    EXPECT_EQ(value_text(bn_response_per_node_array_get_quick(back->brs_nodes, 0)->brsn_binding,
                         ba_value),
              "10.0.0.1");
    EXPECT_EQ(encode(back.get()), hex(kActionResponse));
}

TEST(BnWireGoldenTest, EventResponseIsHeaderCodeAndEmptyMessage)
{
    RespPtr resp = build_response(bbmt_event_response, 0x60, 0x5F, 0, nullptr);
    EXPECT_EQ(encode(resp.get()), hex(kEventResponse));

    RespPtr back = decode_resp(hex(kEventResponse));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->brs_header.brsh_msg_type, bbmt_event_response);
    EXPECT_EQ(back->brs_header.brsh_service_id, bap_service_mgmt);
    EXPECT_EQ(ts_length(back->brs_return_message), 0);
    EXPECT_EQ(bn_response_per_node_array_length_quick(back->brs_nodes), 0u);
    EXPECT_EQ(encode(back.get()), hex(kEventResponse));
}

// ---------------------------------------------------------------------------------------
// Nodes and the attribute table.

TEST(BnWireNodesTest, MessageWithoutNodesKeepsItsBody)
{
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/e"), 0);
    ReqPtr req(raw);
    EXPECT_EQ(encode(req.get()), hex("0000 0007 0000003A 00000000 00000000 00000000"
                                     "00000002 2F65"));
}

TEST(BnWireNodesTest, NodeWithoutBindingIsLeftOffAndNotCounted)
{
    ReqPtr req = build_event_request();
    // Take the first node's binding away: the frame then holds only "/m", counted once.
    bn_request_per_node *first = bn_request_per_node_array_get_quick(req->br_nodes, 0);
    bn_binding_free(&first->brn_binding);
    Bytes body = encode(req.get());
    EXPECT_EQ(body, hex("0002 0007 00000066 00000020 00000021"
                        "00000001"
                        "000003E9 01 00000001 00000001 6D 00000001"
                        "  00000002 00000001 0000003E 00000000 00000006 001122334455"
                        "00000002 2F65"));
    ReqPtr back = decode_req(body);
    ASSERT_TRUE(back);
    ASSERT_EQ(bn_request_get_num_nodes(back.get()), 1u);
    EXPECT_EQ(bn_request_get_nth_node_const(back.get(), 0)->brn_node_id, 1001);
}

TEST(BnWireNodesTest, SparseSlotsOneAndFiveTravelAsTwoAndComeBackInPlace)
{
    bn_binding *raw = nullptr;
    ASSERT_EQ(bn_binding_new_uint32(&raw, "/s", ba_value, 0, 42), 0);
    BindingPtr b(raw);
    ASSERT_EQ(bn_binding_set_str(b.get(), ba_unknown_attribs, bt_string, 0, "five"), 0);
    RespPtr resp = build_response(bbmt_action_response, 1, 1, 0, nullptr);
    raw = b.release();
    ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &raw, 1000), 0);

    Bytes body = encode(resp.get());
    // Header 20, code 4, message 4, node count 4, then the node: id 4, absolute 1, one
    // part "s" 9, and the attribute count.
    const size_t count_at = 20 + 4 + 4 + 4 + 4 + 1 + 9;
    ASSERT_GT(body.size(), count_at + 4);
    EXPECT_EQ(Bytes(body.begin() + count_at, body.begin() + count_at + 4), hex("00000002"));

    RespPtr back = decode_resp(body);
    ASSERT_TRUE(back);
    const bn_binding *got = bn_response_per_node_array_get_quick(back->brs_nodes, 0)->brsn_binding;
    EXPECT_EQ(value_text(got, ba_value), "42");
    EXPECT_EQ(value_text(got, ba_unknown_attribs), "five");
    const bn_attrib *empty = nullptr;
    EXPECT_EQ(bn_binding_get_attrib(got, ba_encrypted_value, &empty), 0);
    EXPECT_EQ(empty, nullptr);
}

TEST(BnWireNodesTest, InetAddressOfFamilyTwoHasNoStaleBytes)
{
    bn_inetaddr addr{};
    memset(&addr, 0xAA, sizeof(addr));  // stale bytes behind the IPv4 address
    addr.bin_family = AF_INET;
    addr.bin_addr.bina_in4.s_addr = htonl(0xC0A80001);
    bn_binding *b = nullptr;
    ASSERT_EQ(bn_binding_new_inetaddr(&b, "/i", ba_value, 0, &addr), 0);
    RespPtr resp = build_response(bbmt_action_response, 1, 1, 0, nullptr);
    ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);

    Bytes body = encode(resp.get());
    const Bytes attr = hex("00000001 00000001 00000042 00000000 00000012"
                           "0002 C0A80001 000000000000000000000000");
    ASSERT_GE(body.size(), attr.size());
    EXPECT_EQ(Bytes(body.end() - static_cast<long>(attr.size()), body.end()), attr);

    RespPtr back = decode_resp(body);
    ASSERT_TRUE(back);
    const bn_binding *got = bn_response_per_node_array_get_quick(back->brs_nodes, 0)->brsn_binding;
    const bn_attrib *a = nullptr;
    ASSERT_EQ(bn_binding_get_attrib(got, ba_value, &a), 0);
    ASSERT_NE(a, nullptr);
    bn_inetaddr want{};
    want.bin_family = AF_INET;
    want.bin_addr.bina_in4.s_addr = htonl(0xC0A80001);
    EXPECT_EQ(memcmp(&a->ba_v.bnv_inetaddr, &want, sizeof(want)), 0);
}

// Every fixed and variable type travels and comes back with the same text form and flags.
TEST(BnWireNodesTest, EveryTypeRoundTrips)
{
    struct Case {
        bn_type type;
        const char *text;
    };
    const Case cases[] = {
        {bt_uint8, "200"},         {bt_int8, "-5"},
        {bt_uint16, "65000"},      {bt_int16, "-300"},
        {bt_uint32, "4000000000"}, {bt_int32, "-70000"},
        {bt_uint64, "18000000000000000000"}, {bt_int64, "-9000000000"},
        {bt_bool, "false"},        {bt_float32, "1.5"},
        {bt_float64, "-2.25"},     {bt_char, "z"},
        {bt_ipv4addr, "10.1.2.3"}, {bt_ipv4prefix, "10.0.0.0/8"},
        {bt_macaddr802, "AA:BB:CC:DD:EE:FF"}, {bt_ipv6addr, "fe80::1"},
        {bt_ipv6addrz, "fe80::1%3"}, {bt_ipv6prefix, "2001:db8::/32"},
        {bt_inetaddr, "2001:db8::5"}, {bt_inetaddrz, "fe80::2%7"},
        {bt_inetprefix, "192.168.0.0/16"}, {bt_duration_sec, "90"},
        {bt_duration_ms, "1234567"}, {bt_duration_us, "7654321"},
        {bt_none, ""},             {bt_btype, "uint32"},
        {bt_attribute, "value"},   {bt_string, "text"},
        {bt_utf8_string, "caf\xc3\xa9"}, {bt_binary, "bytes"},
        {bt_oid, "1.3.6"},         {bt_link, "/l"},
        {bt_name, "n"},            {bt_hostname, "host-1"},
        {bt_uri, "http://x/"},     {bt_charlist, "abc"},
        {bt_regex, "^a.*$"},       {bt_globpattern, "*.c"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(lc_enum_to_string_quiet(bn_type_map, c.type));
        bn_binding *b = nullptr;
        ASSERT_EQ(bn_binding_new_str(&b, "/t", ba_value, c.type, btf_class_state, c.text), 0);
        const std::string want = value_text(b, ba_value);
        RespPtr resp = build_response(bbmt_query_response, 1, 1, 0, nullptr);
        ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);
        Bytes body = encode(resp.get());
        RespPtr back = decode_resp(body);
        ASSERT_TRUE(back);
        const bn_binding *got =
            bn_response_per_node_array_get_quick(back->brs_nodes, 0)->brsn_binding;
        bn_type type = bt_NONE;
        bn_type_flags_bf flags = 0;
        ASSERT_EQ(bn_binding_get_type(got, ba_value, &type, &flags), 0);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(flags, btf_class_state);
        EXPECT_EQ(value_text(got, ba_value), want);
        EXPECT_EQ(encode(back.get()), body);
    }
}

// The time types, set through their own setters: the value words come back unchanged.
TEST(BnWireNodesTest, TimeTypesRoundTrip)
{
    bn_binding *b = nullptr;
    ASSERT_EQ(bn_binding_new_date(&b, "/t", ba_value, 0, 18263), 0);
    ASSERT_EQ(bn_binding_set_time_sec(b, ba_encrypted_value, 0, 45296), 0);
    ASSERT_EQ(bn_binding_set_time_ms(b, ba_unknown_attribs, 0, 45296123), 0);
    ASSERT_EQ(bn_binding_set_time_us(b, ba_product_name, 0, 45296123456LL), 0);
    ASSERT_EQ(bn_binding_set_datetime_sec(b, ba_module_name, 0, -1), 0);
    ASSERT_EQ(bn_binding_set_datetime_ms(b, ba_module_version, 0, 1600000000123LL), 0);
    ASSERT_EQ(bn_binding_set_datetime_us(b, ba_info, btf_counter, -1600000000123456LL), 0);
    RespPtr resp = build_response(bbmt_query_response, 1, 1, 0, nullptr);
    ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);
    Bytes body = encode(resp.get());
    RespPtr back = decode_resp(body);
    ASSERT_TRUE(back);
    const bn_binding *got = bn_response_per_node_array_get_quick(back->brs_nodes, 0)->brsn_binding;
    lt_time_sec sec = 0;
    lt_time_ms ms = 0;
    lt_time_us us = 0;
    uint32 flagged = 0;
    EXPECT_EQ(bn_binding_get_date(got, ba_value, nullptr, &sec), 0);
    EXPECT_EQ(sec, 18263);
    EXPECT_EQ(bn_binding_get_time_sec(got, ba_encrypted_value, nullptr, &sec), 0);
    EXPECT_EQ(sec, 45296);
    EXPECT_EQ(bn_binding_get_time_ms(got, ba_unknown_attribs, nullptr, &ms), 0);
    EXPECT_EQ(ms, 45296123);
    EXPECT_EQ(bn_binding_get_time_us(got, ba_product_name, nullptr, &us), 0);
    EXPECT_EQ(us, 45296123456LL);
    EXPECT_EQ(bn_binding_get_datetime_sec(got, ba_module_name, nullptr, &sec), 0);
    EXPECT_EQ(sec, -1);
    EXPECT_EQ(bn_binding_get_datetime_ms(got, ba_module_version, nullptr, &ms), 0);
    EXPECT_EQ(ms, 1600000000123LL);
    EXPECT_EQ(bn_binding_get_datetime_us(got, ba_info, &flagged, &us), 0);
    EXPECT_EQ(us, -1600000000123456LL);
    EXPECT_EQ(flagged, bt_datetime_us | btf_counter);
    EXPECT_EQ(encode(back.get()), body);
}

TEST(BnWireAttribTest, FixedSizeAddsTheHeader)
{
    uint32 n = 0;
    EXPECT_EQ(bn_attrib_fixed_size(bt_uint32, 0, &n), 0);
    EXPECT_EQ(n, 24u);
    EXPECT_EQ(bn_attrib_fixed_size(bt_inetaddrz, 0, &n), 0);
    EXPECT_EQ(n, 42u);
    EXPECT_EQ(bn_attrib_fixed_size(bt_none, 0, &n), 0);
    EXPECT_EQ(n, 20u);
    EXPECT_EQ(bn_attrib_fixed_size(bt_string, 0, &n), lc_err_assertion_failed);
}

TEST(BnWireAttribTest, CopyTableRows)
{
    EXPECT_EQ(bn_attrib_copy_funcs[bt_uint32].bacr_in_func, bn_attrib_copyin_numeric);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_attribute].bacr_out_func, bn_attrib_copyout_numeric);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_globpattern].bacr_in_func, bn_attrib_copyin_tstring);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_oid].bacr_out_func, bn_attrib_copyout_tstring);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_binary].bacr_in_func, bn_attrib_copyin_tbuf);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_any].bacr_in_func, nullptr);
    EXPECT_EQ(bn_attrib_copy_funcs[10].bacr_out_func, nullptr);
    EXPECT_EQ(bn_attrib_copy_funcs[bt_NONE].bacr_in_func, nullptr);
}

TEST(BnWireAttribTest, PeeksReadTheHeaderWords)
{
    TbPtr frame = frame_of(hex("00000001 00000041 00000005 00210000 00000004 00000009"));
    uint32 id = 0, type = 0, flags = 0, len = 0;
    EXPECT_EQ(bn_type_extract_attrib_id(frame.get(), kHdr, &id), 0);
    EXPECT_EQ(bn_type_extract_btype(frame.get(), kHdr, &type, &flags), 0);
    EXPECT_EQ(bn_type_extract_attrib_len(frame.get(), kHdr, &len), 0);
    EXPECT_EQ(id, 0x41u);
    EXPECT_EQ(type, 5u);
    EXPECT_EQ(flags, 0x00210000u);
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(bn_type_extract_attrib_len(frame.get(), kHdr + 8, &len), lc_err_no_buffer_space);
}

TEST(BnWireAttribTest, WritingAnAttributeOfAGapTypeFails)
{
    bn_binding *raw = nullptr;
    ASSERT_EQ(bn_binding_new_uint32(&raw, "/g", ba_value, 0, 1), 0);
    const bn_attrib *a = nullptr;
    ASSERT_EQ(bn_binding_get_attrib(raw, ba_value, &a), 0);
    const_cast<bn_attrib *>(a)->ba_type = static_cast<bn_type>(10);
    RespPtr resp = build_response(bbmt_action_response, 1, 1, 0, nullptr);
    ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &raw, 1000), 0);
    tbuf *frame = nullptr;
    EXPECT_EQ(bn_response_msg_serialize(resp.get(), kHdr, &frame), lc_err_unexpected_null);
    EXPECT_EQ(frame, nullptr);
}

// ---------------------------------------------------------------------------------------
// Malformed frames.

// The event request with one attribute word replaced.  The first attribute begins after
// header 16, count 4, node id 4, absolute 1, parts 9 and attribute count 4.
Bytes event_with_word(uint32 word_offset_in_attr, uint32 value)
{
    Bytes body = hex(kEventRequest);
    const size_t at = 16 + 4 + 4 + 1 + 9 + 4 + word_offset_in_attr;
    const uint32 be = htonl(value);
    memcpy(body.data() + at, &be, 4);
    return body;
}

TEST(BnWireMalformedTest, WireTypeZeroOrPastTheLastIsRefused)
{
    int err = 0;
    ReqPtr req = decode_req(event_with_word(8, 0), &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
    EXPECT_FALSE(req);
    req = decode_req(event_with_word(8, 135), &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
    EXPECT_FALSE(req);
}

TEST(BnWireMalformedTest, NumericAttributeWithByteStringEncodingIsGenericError)
{
    int err = 0;
    ReqPtr req = decode_req(event_with_word(0, bee_bytestring_encoding), &err);
    EXPECT_EQ(err, lc_err_generic_error);
    EXPECT_FALSE(req);
}

TEST(BnWireMalformedTest, TypeWithoutCopyFunctionIsUnexpectedNull)
{
    int err = 0;
    ReqPtr req = decode_req(event_with_word(8, bt_any), &err);
    EXPECT_EQ(err, lc_err_unexpected_null);
    EXPECT_FALSE(req);
}

// An attribute id we don't know is kept in its own slot, as any other; only an id that
// would size a table beyond reason is refused.
TEST(BnWireMalformedTest, UnknownAttributeIdsAreKeptInTheirSlots)
{
    int err = 0;
    for (const uint32 id : {132u, 200u, 65535u}) {
        ReqPtr req = decode_req(event_with_word(4, id), &err);
        ASSERT_EQ(err, 0) << id;
        ASSERT_TRUE(req) << id;
        const bn_binding *binding = bn_request_get_nth_node_const(req.get(), 0)->brn_binding;
        const bn_attrib *attrib = nullptr;
        EXPECT_EQ(bn_binding_get_attrib(binding, static_cast<bn_attribute_id>(id), &attrib), 0);
        EXPECT_NE(attrib, nullptr) << id;
        // The value slot is empty: a reader finds no value and no error.
        uint32 value = 7;
        EXPECT_EQ(bn_binding_get_uint32(binding, ba_value, nullptr, &value), 0);
        EXPECT_EQ(value, 7u);
    }
    ReqPtr req = decode_req(event_with_word(4, 65536), &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
    EXPECT_FALSE(req);
    req = decode_req(event_with_word(4, 0x7FFFFFFF), &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
    EXPECT_FALSE(req);
}

TEST(BnWireMalformedTest, CountsAndLengthsBeyondTheFrameAreRefused)
{
    int err = 0;
    // A node count no frame of this size could hold.
    Bytes body = hex(kEventResponse);
    memcpy(body.data() + 28, "\xFF\xFF\xFF\xFF", 4);
    RespPtr resp = decode_resp(body, &err);
    EXPECT_EQ(err, lc_err_no_buffer_space);
    EXPECT_FALSE(resp);

    // A return message longer than the frame.
    body = hex(kSetResponse);
    memcpy(body.data() + 24, "\x7F\xFF\xFF\xFF", 4);
    resp = decode_resp(body, &err);
    EXPECT_EQ(err, lc_err_no_buffer_space);
    EXPECT_FALSE(resp);

    // An attribute count past the remaining bytes.
    body = hex(kEventRequest);
    memcpy(body.data() + 16 + 4 + 4 + 1 + 9, "\x10\x00\x00\x00", 4);
    ReqPtr req = decode_req(body, &err);
    EXPECT_EQ(err, lc_err_no_buffer_space);
    EXPECT_FALSE(req);

    // A string attribute whose length passes the end.
    body = hex(kActionRequest);
    memcpy(body.data() + 16 + 4 + 4 + 1 + 9 + 4 + 16, "\x00\x00\x01\x00", 4);
    req = decode_req(body, &err);
    EXPECT_EQ(err, lc_err_no_buffer_space);
    EXPECT_FALSE(req);
}

// A subop we don't know is read and kept; what to make of it is the dispatch's business.
TEST(BnWireMalformedTest, UnknownSubopIsKept)
{
    Bytes body = hex(kQueryRequest);
    // The subop word follows the node's attribute count.
    memcpy(body.data() + 16 + 4 + 4 + 1 + 14 + 4, "\x00\x00\x00\x09", 4);
    int err = 0;
    ReqPtr req = decode_req(body, &err);
    ASSERT_EQ(err, 0);
    ASSERT_TRUE(req);
    EXPECT_EQ(static_cast<uint32>(
                  bn_request_get_nth_node_const(req.get(), 0)->brn_node_settings.brns_query
                      .bqn_query_subop),
              9u);
}

// Every proper prefix of every golden frame is refused, and nothing leaks (the sanitizer
// build checks the latter).
TEST(BnWireMalformedTest, TruncatedFramesAreRefusedAtEveryLength)
{
    const char *requests[] = {kQueryRequest, kSetRequest, kActionRequest, kEventRequest};
    const char *responses[] = {kQueryResponse, kSetResponse, kActionResponse, kEventResponse};
    for (const char *text : requests) {
        const Bytes full = hex(text);
        for (size_t len = 0; len < full.size(); ++len) {
            int err = 0;
            ReqPtr req = decode_req(Bytes(full.begin(), full.begin() + static_cast<long>(len)),
                                    &err);
            EXPECT_NE(err, 0) << "request prefix of " << len;
            EXPECT_FALSE(req);
        }
    }
    for (const char *text : responses) {
        const Bytes full = hex(text);
        for (size_t len = 0; len < full.size(); ++len) {
            int err = 0;
            RespPtr resp = decode_resp(Bytes(full.begin(), full.begin() + static_cast<long>(len)),
                                       &err);
            EXPECT_NE(err, 0) << "response prefix of " << len;
            EXPECT_FALSE(resp);
        }
    }
}

TEST(BnWireMalformedTest, FrameShorterThanHeaderIsAssertionFailure)
{
    int err = 0;
    ReqPtr req = decode_req(hex("0002 0007 00000000 00000000 000000"), &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
}

TEST(BnWireHeaderTest, SwapPutsTheHeaderInNetworkOrder)
{
    bn_request_header_wire hdr{0x0102, 0x0304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};
    ASSERT_EQ(bn_byte_swap_request_header(&hdr), 0);
    Bytes raw(reinterpret_cast<uint8 *>(&hdr), reinterpret_cast<uint8 *>(&hdr) + sizeof(hdr));
    EXPECT_EQ(raw, hex("0102 0304 05060708 090A0B0C 0D0E0F10"));
    ASSERT_EQ(bn_byte_swap_request_header(&hdr), 0);
    EXPECT_EQ(hdr.brhw_length, 0x05060708u);

    bn_response_header_wire rh{0x0102, 0x0304, 0x05060708, 1, 2, 0x11223344};
    ASSERT_EQ(bn_byte_swap_response_header(&rh), 0);
    Bytes rraw(reinterpret_cast<uint8 *>(&rh), reinterpret_cast<uint8 *>(&rh) + sizeof(rh));
    EXPECT_EQ(rraw, hex("0102 0304 05060708 00000001 00000002 11223344"));
}

// One byte past the body is refused with the byte counts in the log.
TEST(BnWireLogTest, TrailingByteIsRefusedWithTotalBytesLog)
{
    std::string why;
    if (!ovd_test::enter_sandbox(&why)) {
        GTEST_SKIP() << "no private mount namespace: " << why;
    }
    ovd_test::SyslogReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    Bytes body = hex(kEventRequest);
    body.push_back(0);
    int err = 0;
    ReqPtr req = decode_req(body, &err);
    EXPECT_EQ(err, lc_err_assertion_failed);
    EXPECT_FALSE(req);
    EXPECT_TRUE(receiver.wait_for("total bytes: 145  used: 144"));
}

// The fuzzer's seed frames: run with OVD_BNODE_WIRE_CORPUS_DIR set to write them there.
// They are the hand-written frames above and a few built ones with many types.
TEST(BnWireCorpusTest, WritesSeedFramesWhenAsked)
{
    const char *dir = getenv("OVD_BNODE_WIRE_CORPUS_DIR");
    if (dir == nullptr) {
        GTEST_SKIP() << "OVD_BNODE_WIRE_CORPUS_DIR not set";
    }
    auto write = [&](const std::string &name, const Bytes &body) {
        std::ofstream out(std::string(dir) + "/" + name, std::ios::binary);
        out.write(reinterpret_cast<const char *>(body.data()), static_cast<long>(body.size()));
        ASSERT_TRUE(out.good()) << name;
    };
    write("query_request", hex(kQueryRequest));
    write("set_request", hex(kSetRequest));
    write("action_request", hex(kActionRequest));
    write("event_request", hex(kEventRequest));
    write("query_response", hex(kQueryResponse));
    write("set_response", hex(kSetResponse));
    write("action_response", hex(kActionResponse));
    write("event_response", hex(kEventResponse));

    // An event and a response carrying one node per value type, with sparse slots.
    const struct {
        bn_type type;
        const char *text;
    } values[] = {
        {bt_uint8, "7"},          {bt_int16, "-2"},           {bt_uint32, "99"},
        {bt_int64, "-5"},         {bt_bool, "true"},          {bt_float64, "0.5"},
        {bt_char, "c"},           {bt_ipv4addr, "10.0.0.9"},  {bt_ipv4prefix, "10.0.0.0/8"},
        {bt_macaddr802, "00:01:02:03:04:05"}, {bt_ipv6addr, "fe80::9"},
        {bt_ipv6addrz, "fe80::9%2"}, {bt_ipv6prefix, "fe80::/10"}, {bt_inetaddr, "1.2.3.4"},
        {bt_inetaddrz, "fe80::3%1"}, {bt_inetprefix, "fe80::/64"}, {bt_duration_ms, "5"},
        {bt_none, ""},            {bt_btype, "string"},       {bt_string, "s"},
        {bt_binary, "b"},         {bt_name, "n"},             {bt_hostname, "h"},
    };
    bn_request *raw = nullptr;
    ASSERT_EQ(bn_event_request_msg_create(&raw, "/mgmtd/notify/dbchange"), 0);
    ReqPtr event(raw);
    RespPtr resp = build_response(bbmt_query_response, 5, 4, 0, "done");
    uint32 i = 0;
    for (const auto &v : values) {
        bn_binding *b = nullptr;
        const std::string name = "/ib/config/x/" + std::to_string(i++);
        ASSERT_EQ(bn_binding_new_str(&b, name.c_str(), ba_value, v.type, 0, v.text), 0);
        ASSERT_EQ(bn_binding_set_str(b, ba_revision_id, bt_uint32, 0, "3"), 0);
        ASSERT_EQ(bn_event_request_msg_append_binding(event.get(), 0, b, nullptr), 0);
        ASSERT_EQ(bn_response_msg_append_binding_takeover(resp.get(), &b, 1000), 0);
    }
    write("event_all_types", encode(event.get()));
    write("query_response_all_types", encode(resp.get()));
}

}  // namespace
