// The bnode protocol on a live session: a socket pair adopted as a connected client
// session, with the test playing the management daemon on the other end by reading and
// writing raw frames.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "bnode_session.h"
#include "bnode_wire.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "logging.h"

namespace {

using Bytes = std::vector<uint8_t>;

uint32_t get32(const Bytes &b, size_t off)
{
    return (uint32_t(b[off]) << 24) | (uint32_t(b[off + 1]) << 16) | (uint32_t(b[off + 2]) << 8) |
           b[off + 3];
}

uint16_t get16(const Bytes &b, size_t off)
{
    return static_cast<uint16_t>((b[off] << 8) | b[off + 1]);
}

void put16(Bytes &b, uint16_t v)
{
    b.push_back(uint8_t(v >> 8));
    b.push_back(uint8_t(v));
}

void put32(Bytes &b, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        b.push_back(uint8_t(v >> shift));
    }
}

// The offsets of the message header behind the 32-byte frame header.
constexpr size_t kService = 32;
constexpr size_t kMsgId = 40;
constexpr size_t kTransaction = 44;
constexpr size_t kReqMsgId = 48;

// A frame as the daemon would write it: the frame header in wire order in front of a
// serialised message body.
Bytes wire_frame(tbuf *serialised, uint16_t proto, uint16_t mtype)
{
    const uint32_t len = tb_length(serialised);
    Bytes f = {'G', 'C', 'L', 'F', '0', '1', '2', '3'};
    put32(f, 1);
    put32(f, len);
    put16(f, 32);
    put16(f, 0);
    put32(f, 1000001);
    put16(f, proto);
    put16(f, mtype);
    put32(f, len - 32);
    f.insert(f.end(), tb_buf(serialised) + 32, tb_buf(serialised) + len);
    return f;
}

Bytes request_frame(bn_request *req, uint16_t mtype)
{
    tbuf *tb = nullptr;
    EXPECT_EQ(0, bn_request_msg_serialize(req, 32, &tb));
    Bytes f = wire_frame(tb, gbp_proto_bnode, mtype);
    tb_free(&tb);
    return f;
}

Bytes response_frame(bn_response *resp)
{
    tbuf *tb = nullptr;
    EXPECT_EQ(0, bn_response_msg_serialize(resp, 32, &tb));
    Bytes f = wire_frame(tb, gbp_proto_bnode, resp->brs_header.brsh_msg_type);
    tb_free(&tb);
    return f;
}

void write_all(int fd, const Bytes &b)
{
    size_t done = 0;
    while (done < b.size()) {
        const ssize_t n = write(fd, b.data() + done, b.size() - done);
        ASSERT_GT(n, 0);
        done += size_t(n);
    }
}

Bytes read_frame(int fd)
{
    Bytes f(32);
    size_t got = 0;
    while (got < f.size()) {
        const ssize_t n = read(fd, f.data() + got, f.size() - got);
        if (n <= 0) {
            return {};
        }
        got += size_t(n);
        if (got == 32) {
            f.resize(get32(f, 12));
        }
    }
    return f;
}

// What the callbacks saw.
struct Seen {
    int calls = 0;
    std::string name;
    uint32 msg_id = 0;
    uint32 return_code = 0;
    tbool keep = false;
    bn_request *kept_req = nullptr;
    bn_response *kept_resp = nullptr;
    tbool answer = false;
    int fail_with = 0;
};

int on_request(gcl_session *sess, bn_request **inout_req, void *arg)
{
    auto *seen = static_cast<Seen *>(arg);
    ++seen->calls;
    seen->msg_id = bn_request_get_msg_id(*inout_req);
    if (bn_request_get_msg_type(*inout_req) == bbmt_event_request) {
        tstring *name = nullptr;
        EXPECT_EQ(0, bn_event_request_msg_get_event_name(*inout_req, &name));
        seen->name = ts_str(name);
        ts_free(&name);
    }
    if (seen->answer) {
        // Re-enters the protocol with both locks held by the receive path.
        EXPECT_EQ(0, bn_response_msg_create_send(sess, bbmt_query_response, seen->msg_id, 0,
                                                 "fine", 0));
    }
    if (seen->keep) {
        seen->kept_req = *inout_req;
        *inout_req = nullptr;
    }
    return seen->fail_with;
}

int on_response(gcl_session *, bn_response **inout_resp, void *arg)
{
    auto *seen = static_cast<Seen *>(arg);
    ++seen->calls;
    seen->return_code = (*inout_resp)->brs_return_code;
    if (seen->keep) {
        seen->kept_resp = *inout_resp;
        *inout_resp = nullptr;
    }
    return seen->fail_with;
}

class BnodeSessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("bnode_session_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4,
                    LCT_STDERR);
    }

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
        gas_ = gbp_admin_get_session_state(sess_);
        ASSERT_NE(gas_, nullptr);
    }

    void TearDown() override
    {
        bn_request_msg_free(&seen_.kept_req);
        bn_response_msg_free(&seen_.kept_resp);
        EXPECT_EQ(0, gcl_deinit(&gh_));
        EXPECT_EQ(0, fdic_deinit(&fich_));
        close(peer_);
    }

    // Hands what the peer wrote to the session and returns the log it produced.
    std::string deliver(const Bytes &frame)
    {
        write_all(peer_, frame);
        testing::internal::CaptureStderr();
        EXPECT_EQ(0, gcl_session_read(sess_));
        return testing::internal::GetCapturedStderr();
    }

    fdic_handle *fich_ = nullptr;
    gcl_handle *gh_ = nullptr;
    gcl_session *sess_ = nullptr;
    gbp_admin_session_state *gas_ = nullptr;
    int peer_ = -1;
    Seen seen_;
};

// ---------------------------------------------------------------------------------------
// Registration and session state.

TEST_F(BnodeSessionTest, HandleRegistersTheProtocolAndSessionsStartInInit)
{
    const gcl_bp_registration *reg = gcl_get_body_protocol_registration(gh_, gbp_proto_bnode);
    ASSERT_NE(reg, nullptr);
    EXPECT_STREQ(reg->gbpr_proto_name, "bnode");
    EXPECT_TRUE(reg->gbpr_enabled);
    EXPECT_EQ(reg->gbpr_msg_callbacks[gcl_body_msg_type_catchall].mcs_func,
              &bn_msg_recv_catchall);

    uint32 state = 0;
    EXPECT_EQ(0, bn_query_session_state(gh_, sess_, &state, nullptr));
    EXPECT_EQ(state, uint32(bss_init));
    EXPECT_EQ(lc_err_assertion_failed, bn_session_new(gh_, sess_, nullptr));
    EXPECT_NE(bn_get_session_state(sess_), nullptr);
}

TEST_F(BnodeSessionTest, SessionsCopyTheHandleDefaultCallbacks)
{
    auto *bgs = static_cast<bn_global_state *>(
        gcl_get_body_protocol_registration(gh_, gbp_proto_bnode)->gbpr_state_ptr);
    bgs->bgs_callbacks.bmc_event_request_func = on_request;
    bgs->bgs_callbacks.bmc_event_request_arg = &seen_;
    int sv[2];
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv));
    gcl_session *second = nullptr;
    ASSERT_EQ(0, gcl_session_client_new_internal(gh_, "second", gof_none, ggid_auto, ggid_auto,
                                                 nullptr, nullptr, 0, sv[0], &second));
    close(sv[1]);
    const bn_session_state *bss = bn_get_session_state(second);
    ASSERT_NE(bss, nullptr);
    EXPECT_EQ(bss->bss_callbacks.bmc_event_request_func, &on_request);
    EXPECT_EQ(bss->bss_callbacks.bmc_event_request_arg, &seen_);
    EXPECT_EQ(bn_get_session_state(sess_)->bss_callbacks.bmc_event_request_func, nullptr);
    EXPECT_EQ(0, gcl_session_free(&second));
}

// ---------------------------------------------------------------------------------------
// Message and transaction ids.

TEST_F(BnodeSessionTest, SentRequestGetsFreshIdsAndAResendKeepsItsTransaction)
{
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    ASSERT_EQ(0, bn_query_request_msg_append_str(req, bqso_get, 0, "/a/b", nullptr));
    gas_->gas_default_service_id = bap_service_mgmt;

    ASSERT_EQ(0, bn_request_msg_send(sess_, req));
    const Bytes first = read_frame(peer_);
    ASSERT_GT(first.size(), 48u);
    EXPECT_EQ(get16(first, 24), uint16_t(gbp_proto_bnode));
    EXPECT_EQ(get16(first, 26), uint16_t(bbmt_query_request));
    EXPECT_EQ(get16(first, kService), uint16_t(bap_service_mgmt));
    EXPECT_EQ(get32(first, kMsgId), 1u);
    const uint32 transaction = get32(first, kTransaction);
    EXPECT_NE(transaction, 0u);
    EXPECT_EQ(req->br_header.brh_transaction_id, transaction);

    bn_request_preserves pres;
    ASSERT_EQ(0, bn_request_msg_preserve_send(sess_, req, &pres));
    EXPECT_EQ(pres.brp_msg_id, 1u);
    EXPECT_EQ(pres.brp_transaction_id, transaction);
    EXPECT_EQ(pres.brp_service_id, uint16_t(bap_service_mgmt));
    const Bytes second = read_frame(peer_);
    EXPECT_EQ(get32(second, kMsgId), 2u);
    EXPECT_EQ(get32(second, kTransaction), transaction);
    EXPECT_EQ(bn_get_session_state(sess_)->bnb_sent_msgs, 2u);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, ExplicitServiceAndTransactionAreKept)
{
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/x/changed"));
    req->br_header.brh_service_id = bap_service_cluster;
    req->br_header.brh_transaction_id = 777;
    gas_->gas_default_service_id = bap_service_mgmt;
    ASSERT_EQ(0, bn_request_msg_send(sess_, req));
    const Bytes f = read_frame(peer_);
    EXPECT_EQ(get16(f, kService), uint16_t(bap_service_cluster));
    EXPECT_EQ(get32(f, kTransaction), 777u);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, ResponseWithoutTransactionGetsANewOneAndItsOwnMsgId)
{
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    ASSERT_EQ(0, bn_request_msg_send(sess_, req));
    const uint32 req_transaction = get32(read_frame(peer_), kTransaction);

    bn_response *resp = nullptr;
    ASSERT_EQ(0, bn_response_msg_create(&resp, bbmt_action_response, 55, 0, "ok"));
    ASSERT_EQ(resp->brs_header.brsh_transaction_id, 0u);
    ASSERT_EQ(0, bn_response_msg_send(sess_, resp));
    const Bytes f = read_frame(peer_);
    EXPECT_EQ(get16(f, 26), uint16_t(bbmt_action_response));
    EXPECT_EQ(get32(f, kMsgId), 2u);
    EXPECT_EQ(get32(f, kReqMsgId), 55u);
    EXPECT_NE(get32(f, kTransaction), 0u);
    EXPECT_NE(get32(f, kTransaction), req_transaction);
    EXPECT_EQ(resp->brs_header.brsh_transaction_id, get32(f, kTransaction));
    bn_response_msg_free(&resp);
    bn_request_msg_free(&req);
}

// A relay passes an answer it got on to its asker in the frame it came in: what leaves
// must be what building the answer again and sending it would write, but for the ids
// the session hands out one after the other.
TEST_F(BnodeSessionTest, RelayedResponseFrameIsTheRebuiltAnswer)
{
    gas_->gas_default_service_id = bap_service_mgmt;
    const auto answer = [](uint32 req_msg_id) {
        bn_response *resp = nullptr;
        EXPECT_EQ(0, bn_response_msg_create(&resp, bbmt_query_response, req_msg_id, 0, "fine"));
        for (const int32 node_id : {0, 1}) {
            bn_binding *b = nullptr;
            EXPECT_EQ(0, bn_binding_new_str(&b, node_id == 0 ? "/a/b\\/c" : "/a/d", ba_value,
                                            bt_uint8, 0, "15"));
            EXPECT_EQ(0, bn_response_msg_append_binding_takeover(resp, &b, node_id));
        }
        return resp;
    };

    // As it came from the answering peer: its own ids and service.
    bn_response *got = answer(92);
    got->brs_header.brsh_msg_id = 90;
    got->brs_header.brsh_transaction_id = 91;
    got->brs_header.brsh_service_id = bap_service_cluster;
    tbuf *frame = nullptr;
    ASSERT_EQ(0, bn_response_msg_serialize(got, bn_wire_gcl_header_space, &frame));
    bn_response_msg_free(&got);
    ASSERT_EQ(0, bn_response_frame_relay(sess_, &frame, 55));
    EXPECT_EQ(frame, nullptr);
    Bytes relayed = read_frame(peer_);

    bn_response *rebuilt = answer(55);
    ASSERT_EQ(0, bn_response_msg_send(sess_, rebuilt));
    Bytes sent = read_frame(peer_);
    bn_response_msg_free(&rebuilt);

    ASSERT_EQ(relayed.size(), sent.size());
    EXPECT_EQ(get16(relayed, kService), uint16_t(bap_service_mgmt));
    EXPECT_EQ(get32(relayed, kReqMsgId), 55u);
    EXPECT_EQ(get32(relayed, kMsgId) + 1, get32(sent, kMsgId));
    EXPECT_NE(get32(relayed, kTransaction), 91u);
    EXPECT_NE(get32(relayed, kTransaction), get32(sent, kTransaction));
    // The frame header's sequence number and the two ids are the session's; all else
    // is the same byte for byte.
    for (Bytes *f : {&relayed, &sent}) {
        for (const size_t off : {size_t(20), kMsgId, kTransaction}) {
            std::memset(f->data() + off, 0, 4);
        }
    }
    EXPECT_EQ(relayed, sent);
    EXPECT_EQ(bn_get_session_state(sess_)->bnb_sent_msgs, 2u);

    // A request frame is not relayed as an answer.
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    ASSERT_EQ(0, bn_request_msg_serialize(req, bn_wire_gcl_header_space, &frame));
    bn_request_msg_free(&req);
    testing::internal::CaptureStderr();
    EXPECT_NE(0, bn_response_frame_relay(sess_, &frame, 56));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(frame, nullptr);
}

TEST_F(BnodeSessionTest, SendOnAClosedSessionIsDroppedWithSuccess)
{
    ASSERT_EQ(0, gcl_session_close(sess_, false));
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    testing::internal::CaptureStderr();
    EXPECT_EQ(0, bn_request_msg_send(sess_, req));
    EXPECT_EQ(0, bn_response_msg_create_send(sess_, bbmt_set_response, 4, 0, nullptr, 2));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("INFO]: Dropping request to non-connected session 1"), std::string::npos)
        << log;
    EXPECT_NE(log.find("INFO]: Dropping response to non-connected session 1"),
              std::string::npos)
        << log;
    EXPECT_EQ(bn_get_session_state(sess_)->bnb_sent_msgs, 0u);
    bn_request_msg_free(&req);
}

// ---------------------------------------------------------------------------------------
// Receiving.

TEST_F(BnodeSessionTest, ShortFrameOrForeignProtocolIsRefused)
{
    tbuf *tb = nullptr;
    const Bytes zeros(31, 0);
    ASSERT_EQ(0, tb_new_buf(&tb, zeros.data(), 31));
    EXPECT_EQ(lc_err_assertion_failed, bn_msg_recv_catchall(gh_, sess_, &tb, nullptr));
    tb_free(&tb);

    gcl_frame_header hdr;
    memset(&hdr, 0, sizeof(hdr));
    hdr.gf_body_proto = gbp_proto_admin;
    hdr.gf_body_msg_type = bbmt_query_request;
    ASSERT_EQ(0, tb_new_buf(&tb, reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr)));
    EXPECT_EQ(lc_err_assertion_failed, bn_msg_recv_catchall(gh_, sess_, &tb, nullptr));
    tb_free(&tb);
}

TEST_F(BnodeSessionTest, EventWithoutCallbackIsLoggedAndTheSessionStays)
{
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/e"));
    const std::string log = deliver(request_frame(req, bbmt_event_request));
    EXPECT_NE(log.find("WARNING]: t session 1: proto bnode: no event request callback"),
              std::string::npos)
        << log;
    EXPECT_EQ(sess_->gs_state, gss_connected);
    bn_request_msg_free(&req);
}

// A callback's failure is its own verdict on the request, not a fault of the session:
// it is noted, the session stays connected and the next frame is served.
TEST_F(BnodeSessionTest, FailingCallbackLeavesTheSessionServing)
{
    ASSERT_EQ(0, bn_set_session_callback_event_request_msg(sess_, on_request, &seen_));
    seen_.fail_with = lc_err_unexpected_null;
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/bad/event"));
    std::string log = deliver(request_frame(req, bbmt_event_request));
    EXPECT_NE(log.find("NOTICE]: t session 1: proto bnode: event request callback failed with "
                       "code " + std::to_string(lc_err_unexpected_null)),
              std::string::npos)
        << log;
    EXPECT_EQ(log.find("closing"), std::string::npos) << log;
    EXPECT_EQ(sess_->gs_state, gss_connected);

    // A cancel passes without a word.
    seen_.fail_with = lc_err_cancelled;
    log = deliver(request_frame(req, bbmt_event_request));
    EXPECT_EQ(log.find("callback failed"), std::string::npos) << log;

    seen_.fail_with = 0;
    deliver(request_frame(req, bbmt_event_request));
    EXPECT_EQ(seen_.calls, 3);
    EXPECT_EQ(sess_->gs_state, gss_connected);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, EventReachesItsCallbackWhichMayKeepIt)
{
    ASSERT_EQ(0, bn_set_session_callback_event_request_msg(sess_, on_request, &seen_));
    seen_.keep = true;
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_event_request_msg_create(&req, "/iface/up"));
    req->br_header.brh_msg_id = 31;
    deliver(request_frame(req, bbmt_event_request));
    EXPECT_EQ(seen_.calls, 1);
    EXPECT_EQ(seen_.name, "/iface/up");
    EXPECT_EQ(seen_.msg_id, 31u);
    ASSERT_NE(seen_.kept_req, nullptr);
    EXPECT_EQ(bn_request_get_msg_type(seen_.kept_req), bbmt_event_request);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, RequestLeftByItsCallbackIsFreedAfterIt)
{
    ASSERT_EQ(0, bn_set_session_callback_action_request_msg(sess_, on_request, &seen_));
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_action_request_msg_create(&req, "/do/it"));
    deliver(request_frame(req, bbmt_action_request));
    deliver(request_frame(req, bbmt_action_request));
    EXPECT_EQ(seen_.calls, 2);
    EXPECT_EQ(seen_.kept_req, nullptr);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, CallbackAnswersFromInsideTheReceivePath)
{
    ASSERT_EQ(0, bn_set_session_callback_query_request_msg(sess_, on_request, &seen_));
    seen_.answer = true;
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    req->br_header.brh_msg_id = 4242;
    req->br_header.brh_transaction_id = 9;
    deliver(request_frame(req, bbmt_query_request));
    ASSERT_EQ(seen_.calls, 1);
    const Bytes f = read_frame(peer_);
    ASSERT_GT(f.size(), 52u);
    EXPECT_EQ(get16(f, 26), uint16_t(bbmt_query_response));
    EXPECT_EQ(get32(f, kReqMsgId), 4242u);
    bn_request_msg_free(&req);
}

TEST_F(BnodeSessionTest, ResponseOfAnUnopenedServiceIsDroppedBeforeItsCallback)
{
    ASSERT_EQ(0, bn_set_session_callback_set_response_msg(sess_, on_response, &seen_));
    gas_->gas_service_id_open_mask = 1U << bap_service_mgmt;
    bn_response *resp = nullptr;
    ASSERT_EQ(0, bn_response_msg_create(&resp, bbmt_set_response, 8, 0, nullptr));
    ASSERT_EQ(0, bn_response_set_service_id(resp, bap_service_cluster));
    const std::string log = deliver(response_frame(resp));
    EXPECT_NE(log.find("ERR]: t session 1: service 4 not open: 4"), std::string::npos) << log;
    EXPECT_EQ(seen_.calls, 0);

    seen_.keep = true;
    ASSERT_EQ(0, bn_response_set_service_id(resp, bap_service_mgmt));
    resp->brs_return_code = 14004;
    deliver(response_frame(resp));
    EXPECT_EQ(seen_.calls, 1);
    EXPECT_EQ(seen_.return_code, 14004u);
    ASSERT_NE(seen_.kept_resp, nullptr);
    EXPECT_EQ(sess_->gs_state, gss_connected);
    bn_response_msg_free(&resp);
}

TEST_F(BnodeSessionTest, ResponseWithoutCallbackLogsItsReturn)
{
    gas_->gas_service_id_open_mask = 1U << bap_service_mgmt;
    bn_response *resp = nullptr;
    ASSERT_EQ(0, bn_response_msg_create(&resp, bbmt_query_response, 8, 3, "gone"));
    ASSERT_EQ(0, bn_response_set_service_id(resp, bap_service_mgmt));
    const std::string log = deliver(response_frame(resp));
    EXPECT_NE(log.find("WARNING]: t session 1: proto bnode: no query response callback: "
                       "code = 3 msg = gone"),
              std::string::npos)
        << log;
    bn_response_msg_free(&resp);
}

TEST_F(BnodeSessionTest, InvalidBodyMessageTypeIsLogged)
{
    ASSERT_EQ(0, bn_set_session_callback_query_request_msg(sess_, on_request, &seen_));
    bn_request *req = nullptr;
    ASSERT_EQ(0, bn_query_request_msg_create(&req, 0, nullptr));
    const std::string log = deliver(request_frame(req, bbmt_LAST));
    EXPECT_NE(log.find("ERR]: t session 1: proto bnode: invalid body message type 9"),
              std::string::npos)
        << log;
    EXPECT_EQ(seen_.calls, 0);
    bn_request_msg_free(&req);
}

}  // namespace
