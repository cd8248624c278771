// The session layer seen from the other end of a real socket: frames built byte by byte
// from the header layout, the cutting of the byte stream into frames, the output queue,
// client names, and the admin hand-shake with a provider played by the test.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "fdintrcb.h"
#include "gcl.h"
#include "gcl_internal.h"
#include "gen_proto.h"
#include "logging.h"

namespace {

using Bytes = std::vector<uint8_t>;

void put16(Bytes &b, uint16_t v)
{
    b.push_back(static_cast<uint8_t>(v >> 8));
    b.push_back(static_cast<uint8_t>(v));
}

void put32(Bytes &b, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        b.push_back(static_cast<uint8_t>(v >> shift));
    }
}

void put_name(Bytes &b, const std::string &s)
{
    Bytes field(32, 0);
    memcpy(field.data(), s.data(), std::min<size_t>(s.size(), 31));
    b.insert(b.end(), field.begin(), field.end());
}

uint32_t get32(const Bytes &b, size_t off)
{
    return (uint32_t(b[off]) << 24) | (uint32_t(b[off + 1]) << 16) | (uint32_t(b[off + 2]) << 8) |
           b[off + 3];
}

uint16_t get16(const Bytes &b, size_t off)
{
    return static_cast<uint16_t>((b[off] << 8) | b[off + 1]);
}

struct FrameFields {
    std::string ident = "GCLF";
    uint32_t version = 1;
    int64_t length = -1;  // -1: the true length
    uint16_t hdr_length = 32;
    uint32_t seqno = 1000001;
    uint16_t proto = 5;
    uint16_t mtype = 7;
};

// A frame as the provider would write it.
Bytes make_frame(const FrameFields &fields, const Bytes &body)
{
    Bytes f;
    f.insert(f.end(), fields.ident.begin(), fields.ident.end());
    f.insert(f.end(), {'0', '1', '2', '3'});
    put32(f, fields.version);
    put32(f, fields.length < 0 ? uint32_t(32 + body.size()) : uint32_t(fields.length));
    put16(f, fields.hdr_length);
    put16(f, 0);
    put32(f, fields.seqno);
    put16(f, fields.proto);
    put16(f, fields.mtype);
    put32(f, uint32_t(body.size()));
    f.insert(f.end(), body.begin(), body.end());
    return f;
}

Bytes make_greeting(uint32_t uid, uint32_t gid, uint16_t version = bap_version)
{
    Bytes body;
    put16(body, version);
    put32(body, 11);
    put32(body, 12);
    put_name(body, "mgmtd");
    put32(body, uid);
    put32(body, gid);
    put_name(body, "admin");
    put32(body, 0);
    FrameFields fields;
    fields.proto = gbp_proto_admin;
    fields.mtype = amt_greeting;
    return make_frame(fields, body);
}

Bytes make_open_service_response(uint32_t return_code)
{
    Bytes body;
    put32(body, 21);
    put32(body, 22);
    put32(body, 1);
    put_name(body, "en_US");
    put32(body, return_code);
    const std::string msg = return_code == 0 ? "" : "no such service";
    put32(body, uint32_t(msg.size()));
    body.insert(body.end(), msg.begin(), msg.end());
    FrameFields fields;
    fields.proto = gbp_proto_admin;
    fields.mtype = amt_open_service_response;
    return make_frame(fields, body);
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

// Reads one whole frame from a blocking descriptor.
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

struct Received {
    std::vector<Bytes> frames;
};

int record_frame(gcl_handle *, gcl_session *, tbuf **inout_frame, void *arg)
{
    auto *rec = static_cast<Received *>(arg);
    rec->frames.emplace_back(tb_buf(*inout_frame), tb_buf(*inout_frame) + tb_length(*inout_frame));
    return 0;
}

// What the protocol saw of the session when it heard of the close.
int g_closed_calls = 0;
int g_closed_state = gss_none;
int g_closed_fd = -1;
int count_closed(gcl_handle *, gcl_session *sess, void *)
{
    ++g_closed_calls;
    g_closed_state = sess->gs_state;
    g_closed_fd = sess->gs_fd;
    // Closing again from inside the close changes nothing.
    EXPECT_EQ(0, gcl_session_close(sess, false));
    return 0;
}

int g_ready_calls = 0;
int on_admin_ready(gcl_session *, tbool ready, tbool closing, void *)
{
    if (ready && !closing) {
        ++g_ready_calls;
    }
    return 0;
}

uint32_t g_service_opened = 0;
int on_service(gcl_session *, gcl_body_proto proto, uint32 service, tbool avail, tbool, void *)
{
    if (proto == gbp_proto_admin && avail) {
        g_service_opened = service;
    }
    return 0;
}

class GclTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("gcl_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }

    void SetUp() override
    {
        char tmpl[] = "/tmp/gcl_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        std::filesystem::create_directories(root_ + GCL_SOCK_DIR);
        gcl_set_sock_root_prefix(root_.c_str());

        ASSERT_EQ(0, fdic_init(&fich_, nullptr, nullptr));
        gcl_global_options opts;
        ASSERT_EQ(0, gcl_options_get_defaults(&opts));
        opts.ggo_admin_ready_func = on_admin_ready;
        opts.ggo_service_avail_func = on_service;
        strlcpy(opts.ggo_handle_id, "t", sizeof(opts.ggo_handle_id));
        ASSERT_EQ(0, gcl_init(&gh_, &opts, fich_));

        gcl_bp_registration reg;
        memset(&reg, 0, sizeof(reg));
        reg.gbpr_body_proto = 5;
        strlcpy(reg.gbpr_proto_name, "test", sizeof(reg.gbpr_proto_name));
        reg.gbpr_enabled = true;
        reg.gbpr_connection_closed = count_closed;
        reg.gbpr_msg_callbacks[gcl_body_msg_type_catchall] = {5, gcl_body_msg_type_catchall,
                                                              record_frame, &rec_};
        ASSERT_EQ(0, gcl_register_body_protocol(gh_, &reg));
        g_closed_calls = 0;
        g_ready_calls = 0;
        g_service_opened = 0;
    }

    void TearDown() override
    {
        EXPECT_EQ(0, gcl_deinit(&gh_));
        EXPECT_EQ(nullptr, gh_);
        EXPECT_EQ(0, fdic_deinit(&fich_));
        if (peer_ >= 0) {
            close(peer_);
        }
        gcl_set_sock_root_prefix(nullptr);
        std::filesystem::remove_all(root_);
    }

    // A connected session over a socket pair; the test holds the other end in peer_.
    gcl_session *pair_session()
    {
        int sv[2];
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, sv));
        gcl_session *sess = nullptr;
        EXPECT_EQ(0, gcl_session_client_new_internal(gh_, "test", gof_none, ggid_auto,
                                                     ggid_auto, nullptr, nullptr, 0, sv[0],
                                                     &sess));
        peer_ = sv[1];
        return sess;
    }

    int pump(gcl_session *sess, lt_dur_ms wait = 5000)
    {
        return gcl_session_do_blocking_io(gh_, sess, false, true, true, true, gbp_proto_admin,
                                          wait);
    }

    std::string root_;
    fdic_handle *fich_ = nullptr;
    gcl_handle *gh_ = nullptr;
    Received rec_;
    int peer_ = -1;
};

// ---------------------------------------------------------------------------------------
// The header on the wire.

TEST_F(GclTest, SentFrameHeaderIsBigEndianAndSeqnosStartAt2000001)
{
    gcl_session *sess = pair_session();
    ASSERT_NE(sess, nullptr);
    const uint8 body[] = {'a', 'b', 'c'};
    ASSERT_EQ(0, gcl_session_send_frame_components(sess, gcl_body_proto(5), 7, 3, body));
    ASSERT_EQ(0, gcl_session_send_frame_components(sess, gcl_body_proto(5), 8, 0, nullptr));

    const Bytes f = read_frame(peer_);
    const Bytes expect = {'G', 'C', 'L', 'F', '0', '1', '2', '3', 0, 0, 0, 1, 0, 0, 0, 35,
                          0, 32, 0, 0, 0x00, 0x1E, 0x84, 0x81, 0, 5, 0, 7, 0, 0, 0, 3,
                          'a', 'b', 'c'};
    EXPECT_EQ(f, expect);
    const Bytes g = read_frame(peer_);
    ASSERT_EQ(g.size(), 32u);
    EXPECT_EQ(get32(g, 20), 2000002u);
    EXPECT_EQ(get16(g, 26), 8u);
    EXPECT_EQ(get32(g, 28), 0u);
    EXPECT_EQ(sess->gs_msg_sent_frames, 2u);
    EXPECT_EQ(sess->gs_msg_pending_outgoing_bytes, 0u);
}

TEST_F(GclTest, HeaderSwapRefusesShortFramesAndIsItsOwnInverse)
{
    Bytes f = make_frame(FrameFields{}, {1, 2});
    const Bytes wire = f;
    EXPECT_EQ(lc_err_assertion_failed, gcl_byte_swap_frame_header(f.data(), 31));
    ASSERT_EQ(0, gcl_byte_swap_frame_header(f.data(), uint32(f.size())));
    gcl_frame_header hdr;
    memcpy(&hdr, f.data(), sizeof(hdr));
    EXPECT_EQ(hdr.gf_length, 34u);
    EXPECT_EQ(hdr.gf_seqno, 1000001u);
    EXPECT_EQ(hdr.gf_body_proto, 5u);
    EXPECT_EQ(hdr.gf_body_length, 2u);
    ASSERT_EQ(0, gcl_byte_swap_frame_header(f.data(), uint32(f.size())));
    EXPECT_EQ(f, wire);
}

TEST_F(GclTest, SendingOnAnUnconnectedSessionIsRefused)
{
    gcl_session *sess = nullptr;
    ASSERT_EQ(0, gcl_session_client_set_user_new(gh_, "lonely", gof_none, ggid_auto, ggid_auto,
                                                 nullptr, nullptr, 0, &sess));
    EXPECT_EQ(sess->gs_state, gss_initialized);
    EXPECT_EQ(lc_err_generic_error,
              gcl_session_send_frame_components(sess, gbp_proto_admin, 1, 0, nullptr));
}

// ---------------------------------------------------------------------------------------
// Cutting the stream into frames.

TEST_F(GclTest, TwoFramesInOneReadAreBothDispatched)
{
    gcl_session *sess = pair_session();
    Bytes both = make_frame(FrameFields{}, {1, 2, 3});
    FrameFields second;
    second.mtype = 9;
    const Bytes f2 = make_frame(second, {4});
    both.insert(both.end(), f2.begin(), f2.end());
    write_all(peer_, both);

    ASSERT_EQ(0, gcl_session_read(sess));
    ASSERT_EQ(rec_.frames.size(), 2u);
    gcl_frame_header hdr;
    memcpy(&hdr, rec_.frames[1].data(), sizeof(hdr));  // handed over in host order
    EXPECT_EQ(hdr.gf_body_msg_type, 9u);
    EXPECT_EQ(rec_.frames[0].back(), 3);
    EXPECT_EQ(rec_.frames[1].back(), 4);
    EXPECT_EQ(sess->gs_msg_received_frames, 2u);
    EXPECT_EQ(sess->gs_msg_received_dispatched_frames, 2u);
    EXPECT_EQ(sess->gs_input_buffer_start_offset, 0u);
    EXPECT_EQ(tb_length(sess->gs_input_buffer), 0u);
}

TEST_F(GclTest, FrameSplitByteByByteIsDispatchedOnlyAfterTheLastByte)
{
    gcl_session *sess = pair_session();
    const Bytes f = make_frame(FrameFields{}, {9, 8, 7, 6, 5});
    for (size_t i = 0; i < f.size(); ++i) {
        write_all(peer_, Bytes{f[i]});
        ASSERT_EQ(0, gcl_session_read(sess));
        EXPECT_EQ(rec_.frames.size(), i + 1 == f.size() ? 1u : 0u) << "after byte " << i;
    }
    ASSERT_EQ(rec_.frames.size(), 1u);
    EXPECT_EQ(Bytes(rec_.frames[0].begin() + 32, rec_.frames[0].end()), Bytes({9, 8, 7, 6, 5}));
    EXPECT_EQ(sess->gs_state, gss_connected);
}

// The input buffer grows by a fixed 64 KiB step when a read finds less than that free,
// not by the byte buffer's own factor.
TEST_F(GclTest, InputBufferGrowsBy64KiBWhenShortOfRoom)
{
    gcl_session *sess = pair_session();
    const uint32 initial = tb_size(sess->gs_input_buffer);
    ASSERT_GE(initial, gcl_read_buffer_initial_size);
    // A frame longer than the buffer: its first part leaves less than 64 KiB free.
    const Bytes f = make_frame(FrameFields{}, Bytes(initial + 20000, 0x5a));
    const size_t first = initial - 1000;
    write_all(peer_, Bytes(f.begin(), f.begin() + first));
    ASSERT_EQ(0, gcl_session_read(sess));
    EXPECT_EQ(tb_size(sess->gs_input_buffer), initial);
    EXPECT_EQ(tb_length(sess->gs_input_buffer), first);
    EXPECT_TRUE(rec_.frames.empty());
    write_all(peer_, Bytes(f.begin() + first, f.end()));
    ASSERT_EQ(0, gcl_session_read(sess));
    EXPECT_EQ(tb_size(sess->gs_input_buffer), initial + gcl_read_buffer_min_free);
    ASSERT_EQ(rec_.frames.size(), 1u);
    EXPECT_EQ(rec_.frames[0].size(), f.size());
}

TEST_F(GclTest, FramesArriveThroughTheBlockingLoop)
{
    gcl_session *sess = pair_session();
    write_all(peer_, make_frame(FrameFields{}, {1}));
    ASSERT_EQ(0, gcl_session_do_blocking_io(gh_, sess, false, true, false, false, gbp_none,
                                            5000));
    EXPECT_EQ(rec_.frames.size(), 1u);
}

TEST_F(GclTest, UnregisteredProtocolIsDiscardedAndTheSessionStays)
{
    gcl_session *sess = pair_session();
    FrameFields fields;
    fields.proto = 9;
    write_all(peer_, make_frame(fields, {1}));
    write_all(peer_, make_frame(FrameFields{}, {2}));
    testing::internal::CaptureStderr();
    ASSERT_EQ(0, gcl_session_read(sess));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("t session 1: DISCARDED frame 1000001 (33) proto 9"), std::string::npos)
        << log;
    EXPECT_EQ(sess->gs_state, gss_connected);
    ASSERT_EQ(rec_.frames.size(), 1u);
    EXPECT_EQ(sess->gs_msg_received_frames, 2u);
    EXPECT_EQ(sess->gs_msg_received_dispatched_frames, 1u);
}

struct BadFrame {
    const char *name;
    FrameFields fields;
    const char *log;
};

class GclBadFrameTest : public GclTest, public ::testing::WithParamInterface<BadFrame> {};

TEST_P(GclBadFrameTest, MalformedFrameClosesTheSessionOnly)
{
    gcl_session *sess = pair_session();
    Bytes f = make_frame(GetParam().fields, {1, 2, 3, 4});
    if (GetParam().fields.length == 31) {
        // Enough bytes behind the short header for the reader to look at it.
        f.resize(40);
    }
    write_all(peer_, f);
    testing::internal::CaptureStderr();
    gcl_session_read(sess);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(GetParam().log), std::string::npos) << log;
    EXPECT_NE(log.find("closing after error condition"), std::string::npos) << log;
    EXPECT_EQ(sess->gs_state, gss_closed);
    EXPECT_EQ(sess->gs_fd, -1);
    EXPECT_EQ(g_closed_calls, 1);
    EXPECT_TRUE(rec_.frames.empty());
    // The peer sees the close.
    char c;
    EXPECT_EQ(read(peer_, &c, 1), 0);
    EXPECT_EQ(lc_err_io_closed, pump(sess, 0));
}

FrameFields with_ident(const char *ident)
{
    FrameFields s;
    s.ident = ident;
    return s;
}
FrameFields with_version(uint32_t v)
{
    FrameFields s;
    s.version = v;
    return s;
}
FrameFields with_length(int64_t l)
{
    FrameFields s;
    s.length = l;
    return s;
}
FrameFields with_hdr_length(uint16_t l)
{
    FrameFields s;
    s.hdr_length = l;
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, GclBadFrameTest,
    ::testing::Values(BadFrame{"ident", with_ident("GCLX"), "invalid frame ident: 47434c58"},
                      BadFrame{"version", with_version(2), "invalid frame version: 2"},
                      BadFrame{"short", with_length(31), "invalid frame length"},
                      BadFrame{"hdrlen", with_hdr_length(16), "invalid frame header len: 16"},
                      BadFrame{"huge", with_length(0xFFFFFFF0), "invalid frame length"}),
    [](const ::testing::TestParamInfo<BadFrame> &info) { return info.param.name; });

TEST_F(GclTest, PeerCloseEndsTheSessionAndTellsTheProtocols)
{
    gcl_session *sess = pair_session();
    close(peer_);
    peer_ = -1;
    EXPECT_EQ(0, pump(sess));
    EXPECT_EQ(sess->gs_state, gss_closed);
    EXPECT_EQ(sess->gs_fd, -1);
    EXPECT_EQ(g_closed_calls, 1);
    // The protocols hear of it while the session still stands.
    EXPECT_EQ(g_closed_state, gss_connected);
    EXPECT_GE(g_closed_fd, 0);
    gbp_admin_state gas = gas_none;
    ASSERT_EQ(0, gcl_session_get_state(sess, nullptr, &gas));
    EXPECT_EQ(gas, gas_closed);
}

// ---------------------------------------------------------------------------------------
// The output queue.

TEST_F(GclTest, OutputQueueWaitsForWritabilityAndDrains)
{
    gcl_session *sess = pair_session();
    const int small = 4096;
    ASSERT_EQ(0, setsockopt(sess->gs_fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small)));
    Bytes body(1 << 20);
    for (size_t i = 0; i < body.size(); ++i) {
        body[i] = uint8_t(i * 7);
    }
    ASSERT_EQ(0, gcl_session_send_frame_components(sess, gcl_body_proto(5), 1,
                                                   uint32(body.size()), body.data()));
    ASSERT_EQ(sess->gs_msg_pending_outgoing_frames, 1u);
    EXPECT_TRUE(sess->gs_check_writable);
    const fdic_event *ev = nullptr;
    uint32 idx = 0;
    ASSERT_EQ(0, fdic_event_array_find_by_id(fich_->fh_registrations, sess->gs_fdic_fd_id, &idx));
    ASSERT_EQ(0, fdic_event_array_get(fich_->fh_registrations, idx, &ev));
    EXPECT_TRUE(ev->fee_fd_on_writable);

    Bytes got;
    std::thread reader([&] { got = read_frame(peer_); });
    int err = 0;
    while (err == 0 && sess->gs_msg_sent_frames == 0) {
        err = gcl_session_do_blocking_io(gh_, sess, true, false, false, false, gbp_none, 30000);
    }
    reader.join();
    ASSERT_EQ(err, 0);
    EXPECT_EQ(sess->gs_msg_pending_outgoing_frames, 0u);
    EXPECT_EQ(sess->gs_msg_pending_outgoing_bytes, 0u);
    EXPECT_FALSE(sess->gs_check_writable);
    ASSERT_EQ(0, fdic_event_array_find_by_id(fich_->fh_registrations, sess->gs_fdic_fd_id, &idx));
    ASSERT_EQ(0, fdic_event_array_get(fich_->fh_registrations, idx, &ev));
    EXPECT_FALSE(ev->fee_fd_on_writable);
    ASSERT_EQ(got.size(), body.size() + 32);
    EXPECT_TRUE(std::equal(body.begin(), body.end(), got.begin() + 32));
}

// ---------------------------------------------------------------------------------------
// Client names and addresses.

TEST_F(GclTest, ClientNamesOf19BytesPassAnd20AreRefused)
{
    gcl_session *sess = nullptr;
    EXPECT_EQ(0, gcl_session_client_set_user_new(gh_, "abcdefghijklmnopqrs", gof_none, ggid_auto,
                                                 ggid_auto, nullptr, nullptr, 0, &sess));
    ASSERT_NE(sess, nullptr);
    const std::string expect_name = "abcdefghijklmnopqrs-" + std::to_string(geteuid()) + "." +
                                    std::to_string(getpid());
    if (geteuid() != 0) {
        EXPECT_EQ(std::string(sess->gs_local_name), expect_name);
    }
    struct stat st;
    ASSERT_EQ(0, stat(sess->gs_ud_socket_path, &st));
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0777u);

    gcl_session *bad = nullptr;
    EXPECT_EQ(lc_err_generic_error,
              gcl_session_client_set_user_new(gh_, "abcdefghijklmnopqrst", gof_none, ggid_auto,
                                              ggid_auto, nullptr, nullptr, 0, &bad));
    EXPECT_EQ(bad, nullptr);
    EXPECT_EQ(lc_err_generic_error,
              gcl_session_client_set_user_new(gh_, "IB-Daemon", gof_none, ggid_auto, ggid_auto,
                                              nullptr, nullptr, 0, &bad));
    EXPECT_EQ(lc_err_generic_error,
              gcl_session_client_set_user_new(gh_, "abcdefghijklmn", gof_not_provider,
                                              ggid_auto, ggid_auto, nullptr, nullptr, 0, &bad));
    EXPECT_EQ(0, gcl_session_client_set_user_new(gh_, "abcdefghijklm", gof_not_provider,
                                                 ggid_auto, ggid_auto, nullptr, nullptr, 0,
                                                 &bad));
    ASSERT_NE(bad, nullptr);
    // name-token-...: a five-character token between the name and the ids.
    const std::string name = bad->gs_local_name;
    ASSERT_EQ(name.rfind("abcdefghijklm-", 0), 0u) << name;
    EXPECT_EQ(name[19], '-') << name;
    EXPECT_EQ(name.substr(14, 5).find_first_of("+/-"), std::string::npos) << name;
}

TEST_F(GclTest, ClientWithoutAProviderFailsWithIoError)
{
    gcl_session *sess = nullptr;
    ASSERT_EQ(0, gcl_session_client_set_user_new(gh_, "IB Daemon", gof_none, ggid_auto,
                                                 ggid_auto, nullptr, nullptr, 0, &sess));
    EXPECT_EQ(lc_err_io_error, gcl_session_client_connect_by_provider(sess, "mgmtd", false));
    EXPECT_EQ(sess->gs_state, gss_closed);
    EXPECT_EQ(sess->gs_fd, -1);
    // A second connect is refused: a closed session never comes back.
    EXPECT_EQ(lc_err_generic_error, gcl_session_client_connect_by_provider(sess, "mgmtd", false));
}

TEST_F(GclTest, BlockingIoWithNoWaitTimesOutAtOnce)
{
    gcl_session *sess = pair_session();
    EXPECT_EQ(lc_err_io_timeout, pump(sess, 0));
    EXPECT_EQ(lc_err_io_timeout, pump(sess, 20));
    EXPECT_EQ(sess->gs_state, gss_connected);
}

// ---------------------------------------------------------------------------------------
// The admin hand-shake.

TEST_F(GclTest, GreetingIsAnsweredAndTheProviderAccepted)
{
    gcl_session *sess = pair_session();
    gbp_admin_state gas = gas_none;
    ASSERT_EQ(0, gcl_session_get_state(sess, nullptr, &gas));
    EXPECT_EQ(gas, gas_connected);

    write_all(peer_, make_greeting(geteuid(), getegid()));
    ASSERT_EQ(0, pump(sess));
    ASSERT_EQ(0, gcl_session_get_state(sess, nullptr, &gas));
    EXPECT_EQ(gas, gas_open_no_service);
    EXPECT_EQ(g_ready_calls, 1);
    const char *local = nullptr;
    const char *peer = nullptr;
    ASSERT_EQ(0, gcl_session_get_session_names(sess, &local, &peer));
    EXPECT_STREQ(peer, "mgmtd");

    const Bytes r = read_frame(peer_);
    ASSERT_EQ(r.size(), 32u + 90u);
    EXPECT_EQ(get16(r, 24), gbp_proto_admin);
    EXPECT_EQ(get16(r, 26), amt_greeting_response);
    EXPECT_EQ(get32(r, 20), 2000001u);
    EXPECT_EQ(get16(r, 32), bap_version);
    EXPECT_EQ(get32(r, 42), 0u);  // resp_msg_id
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&r[46])), std::string(local));
    EXPECT_EQ(get32(r, 78), uint32_t(geteuid()));
    EXPECT_EQ(get32(r, 82), uint32_t(getegid()));

    const gbp_admin_session_state *st = gbp_admin_get_session_state(sess);
    EXPECT_TRUE(st->gas_auth_remote_done);
    EXPECT_TRUE(st->gas_auth_incoming_done);
    EXPECT_EQ(st->gas_auth_incoming_uid, int32(geteuid()));
}

TEST_F(GclTest, GreetingWithForeignIdentityEndsTheSession)
{
    gcl_session *sess = pair_session();
    write_all(peer_, make_greeting(geteuid() + 1, getegid()));
    testing::internal::CaptureStderr();
    pump(sess);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("proto admin: bad uid / gid in greeting: " +
                       std::to_string(geteuid() + 1) + "/" + std::to_string(getegid()) +
                       " not " + std::to_string(geteuid()) + "/" + std::to_string(getegid())),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("session terminated by client"), std::string::npos) << log;
    EXPECT_EQ(sess->gs_state, gss_closed);
}

TEST_F(GclTest, GreetingWithHalfAnIdentityOrBadVersionEndsTheSession)
{
    gcl_session *sess = pair_session();
    write_all(peer_, make_greeting(0xFFFFFFFF, getegid()));
    pump(sess);
    EXPECT_EQ(sess->gs_state, gss_closed);

    gcl_session *other = pair_session();
    write_all(peer_, make_greeting(geteuid(), getegid(), 3));
    testing::internal::CaptureStderr();
    pump(other);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("bad version in greeting: 3 not 2"), std::string::npos) << log;
    EXPECT_EQ(other->gs_state, gss_closed);
}

TEST_F(GclTest, GreetingWithNoClaimTakesOurOwnIdentity)
{
    gcl_session *sess = pair_session();
    write_all(peer_, make_greeting(0xFFFFFFFF, 0xFFFFFFFF));
    ASSERT_EQ(0, pump(sess));
    const gbp_admin_session_state *st = gbp_admin_get_session_state(sess);
    EXPECT_EQ(st->gas_state, gas_open_no_service);
    EXPECT_EQ(st->gas_auth_incoming_uid, int32(geteuid()));
    EXPECT_EQ(st->gas_auth_incoming_gid, int32(getegid()));
}

// The provider's side of a whole hand-shake, in a thread.
void provider_script(int fd, uint32_t open_return_code, Bytes *ret_open)
{
    write_all(fd, make_greeting(geteuid(), getegid()));
    if (read_frame(fd).size() != 32 + 90) {
        return;
    }
    *ret_open = read_frame(fd);
    write_all(fd, make_open_service_response(open_return_code));
}

TEST_F(GclTest, BlockingServiceOpenSucceeds)
{
    gcl_session *sess = pair_session();
    Bytes open;
    std::thread provider(provider_script, peer_, 0, &open);
    const int err = gcl_session_client_open_service_blocking(sess, gbp_proto_bnode, 1, "en_US",
                                                             nullptr, 20000);
    provider.join();
    ASSERT_EQ(err, 0);
    ASSERT_EQ(open.size(), 32u + 48u);
    EXPECT_EQ(get16(open, 26), amt_open_service);
    EXPECT_EQ(get32(open, 40), uint32_t(gbp_proto_bnode));
    EXPECT_EQ(get32(open, 44), 1u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&open[48])), "en_US");
    const gbp_admin_session_state *st = gbp_admin_get_session_state(sess);
    EXPECT_EQ(st->gas_state, gas_service_ready);
    EXPECT_EQ(st->gas_service_id_open_mask, 1u << 1);
    EXPECT_EQ(st->gas_default_service_id, 1u);
    EXPECT_EQ(st->gas_service_id_open_pending, 0u);
    EXPECT_STREQ(st->gas_lang_tag, "en_US");
    EXPECT_EQ(g_service_opened, 1u);
}

TEST_F(GclTest, BlockingServiceOpenRefusedByTheProvider)
{
    gcl_session *sess = pair_session();
    Bytes open;
    std::thread provider(provider_script, peer_, 7, &open);
    const int err = gcl_session_client_open_service_blocking(sess, gbp_proto_bnode, 1, "en_US",
                                                             nullptr, 20000);
    provider.join();
    EXPECT_EQ(err, lc_err_generic_error);
    const gbp_admin_session_state *st = gbp_admin_get_session_state(sess);
    EXPECT_EQ(st->gas_service_id_open_mask, 0u);
    EXPECT_EQ(g_service_opened, 0u);
    EXPECT_EQ(sess->gs_state, gss_connected);
}

TEST_F(GclTest, BlockingServiceOpenTimesOutWithoutAGreeting)
{
    gcl_session *sess = pair_session();
    EXPECT_EQ(lc_err_io_timeout, gcl_session_client_open_service_blocking(
                                     sess, gbp_proto_bnode, 1, "en_US", nullptr, 50));
    EXPECT_EQ(sess->gs_state, gss_connected);
}

TEST_F(GclTest, OpenServiceBeforeTheGreetingIsRefused)
{
    gcl_session *sess = pair_session();
    EXPECT_EQ(lc_err_generic_error,
              gcl_session_client_open_service(sess, gbp_proto_bnode, 1, "en", nullptr));
}

// Over a named socket, the provider's identity is the owner of its socket file.
TEST_F(GclTest, NamedSocketProviderIsCheckedAgainstItsSocketOwner)
{
    sockaddr_storage addr;
    socklen_t len = 0;
    ASSERT_EQ(0, gcl_session_auto_sockaddr(gh_, "mgmtd", true, AF_UNIX, &addr, &len));
    const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(listener, 0);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr *>(&addr), len));
    ASSERT_EQ(0, listen(listener, 4));

    for (const uint32_t claim : {uint32_t(geteuid()), uint32_t(geteuid() + 5)}) {
        gcl_session *sess = nullptr;
        ASSERT_EQ(0, gcl_session_client_set_user_new(gh_, "IB Daemon", gof_none, ggid_auto,
                                                     ggid_auto, nullptr, nullptr, 0, &sess));
        ASSERT_EQ(0, gcl_session_client_connect_by_provider(sess, "mgmtd", false));
        EXPECT_EQ(sess->gs_state, gss_connected);
        const int conn = accept(listener, nullptr, nullptr);
        ASSERT_GE(conn, 0);
        write_all(conn, make_greeting(claim, getegid()));
        pump(sess);
        if (claim == geteuid()) {
            EXPECT_EQ(gbp_admin_get_session_state(sess)->gas_state, gas_open_no_service);
        } else {
            EXPECT_EQ(sess->gs_state, gss_closed);
        }
        const std::string path = sess->gs_ud_socket_path;
        EXPECT_EQ(0, gcl_session_free(&sess));
        EXPECT_EQ(sess, nullptr);
        struct stat st;
        EXPECT_NE(0, stat(path.c_str(), &st)) << "client socket left behind";
        close(conn);
    }
    close(listener);
}

TEST_F(GclTest, DescriptorCallbackForAFreedSessionIsCancelled)
{
    gcl_session *sess = pair_session();
    gcl_session *stale = sess;
    ASSERT_EQ(0, gcl_session_free(&sess));
    EXPECT_EQ(lc_err_cancelled, gcl_session_fd_readable(peer_, fct_read, stale, gh_));
    EXPECT_FALSE(gcl_validate_session(stale));
}

TEST_F(GclTest, SecondRegistrationOfAProtocolIsRefused)
{
    gcl_bp_registration reg;
    memset(&reg, 0, sizeof(reg));
    reg.gbpr_body_proto = gbp_proto_admin;
    testing::internal::CaptureStderr();
    EXPECT_NE(0, gcl_register_body_protocol(gh_, &reg));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Already have registered body handler for proto 1"), std::string::npos);
}

}  // namespace

namespace {

// A socket is asked whether it is writable only after a write that could not take all it
// was given: then the answer is the kernel's, and once drained the writes go straight on.
TEST(GclLowerFunctions, WritabilityIsAskedOnlyAfterAStalledWrite)
{
    int fds[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, fds));
    std::vector<uint8> chunk(65536, 0x5a);
    tbool writable = false;
    ASSERT_EQ(0, gcl_lf_is_writable(fds[0], &writable));
    EXPECT_TRUE(writable);

    // Fill the socket until it takes nothing more.
    uint32 written = 0;
    int res = 0;
    size_t total = 0;
    for (int i = 0; i < 1000 && res == 0; ++i) {
        res = gcl_lf_write_bytes(fds[0], chunk.data(), static_cast<uint32>(chunk.size()), &written);
        total += written;
    }
    EXPECT_EQ(lc_err_io_blocking_error, res);
    ASSERT_EQ(0, gcl_lf_is_writable(fds[0], &writable));
    EXPECT_FALSE(writable) << "a full socket must be reported as such";

    // Drain it: writable again, and a complete write clears the mark.
    std::vector<uint8> sink(1 << 20);
    while (read(fds[1], sink.data(), sink.size()) > 0) {
    }
    ASSERT_EQ(0, gcl_lf_is_writable(fds[0], &writable));
    EXPECT_TRUE(writable);
    EXPECT_EQ(0, gcl_lf_write_bytes(fds[0], chunk.data(), 16, &written));
    EXPECT_EQ(16u, written);
    ASSERT_EQ(0, gcl_lf_is_writable(fds[0], &writable));
    EXPECT_TRUE(writable);
    EXPECT_GT(total, 0u);

    // A peer that is gone: the write says so.
    close(fds[1]);
    EXPECT_EQ(lc_err_io_closed, gcl_lf_write_bytes(fds[0], chunk.data(), 16, &written));
    close(fds[0]);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The generic protocol.

namespace {

struct GenSeen {
    int requests = 0;
    int responses = 0;
    Bytes last;
};

int gen_on_message(gcl_session *, const uint8 *msg, uint32 len, void *arg)
{
    auto *seen = static_cast<GenSeen *>(arg);
    seen->last.assign(msg, msg + len);
    return 0;
}

int gen_on_request(gcl_session *sess, const uint8 *msg, uint32 len, void *arg)
{
    ++static_cast<GenSeen *>(arg)->requests;
    return gen_on_message(sess, msg, len, arg);
}

int gen_on_response(gcl_session *sess, const uint8 *msg, uint32 len, void *arg)
{
    ++static_cast<GenSeen *>(arg)->responses;
    return gen_on_message(sess, msg, len, arg);
}

// An envelope as a peer writes it: magic, type, id, length, the unused body, the message.
Bytes gen_wire(uint32_t magic, uint32_t type, uint32_t length, const Bytes &message)
{
    Bytes b;
    put32(b, magic);
    put32(b, type);
    put32(b, 42);
    put32(b, length);
    b.insert(b.end(), 8, 0);
    b.insert(b.end(), message.begin(), message.end());
    return b;
}

FrameFields gen_frame(uint16_t type)
{
    FrameFields f;
    f.proto = gbp_proto_gen;
    f.mtype = type;
    return f;
}

}  // namespace

TEST_F(GclTest, GenMessagesGoOutInTheirEnvelope)
{
    gcl_session *sess = pair_session();
    uint8 *msg = nullptr;
    ASSERT_EQ(0, gen_msg_create(&msg, gen_type_request, 5));
    ASSERT_NE(nullptr, msg);
    for (uint8 i = 0; i < 5; ++i) {
        EXPECT_EQ(0, msg[i]) << "a new message is zeroed";
        msg[i] = uint8(0xa0 + i);
    }
    ASSERT_EQ(0, gen_msg_send(sess, msg));
    const Bytes f = read_frame(peer_);
    ASSERT_EQ(32u + 24u + 5u, f.size());
    EXPECT_EQ(gbp_proto_gen, get16(f, 24));
    EXPECT_EQ(gen_type_request, get16(f, 26));
    const Bytes body(f.begin() + 32, f.end());
    EXPECT_EQ((Bytes{0xfe, 0xed, 0xf0, 0x0d, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0,
                     0, 0xa0, 0xa1, 0xa2, 0xa3, 0xa4}),
              body);
    EXPECT_EQ(0, gen_msg_free(&msg));
    EXPECT_EQ(nullptr, msg);

    // A pointer that gen_msg_create didn't make is refused.
    uint8 plain[64] = {};
    EXPECT_EQ(lc_err_assertion_failed, gen_msg_send(sess, plain + 32));
}

TEST_F(GclTest, GenMessagesReachTheirCallbacks)
{
    GenSeen seen;
    ASSERT_EQ(0, gen_set_request_callback(gh_, gen_on_request, &seen));
    ASSERT_EQ(0, gen_set_response_callback(gh_, gen_on_response, &seen));
    gcl_session *sess = pair_session();
    write_all(peer_, make_frame(gen_frame(1), gen_wire(0xFEEDF00D, 1, 3, {7, 8, 9})));
    write_all(peer_, make_frame(gen_frame(2), gen_wire(0xFEEDF00D, 2, 0, {})));
    ASSERT_EQ(0, gcl_session_read(sess));
    EXPECT_EQ(1, seen.requests);
    EXPECT_EQ(1, seen.responses);
    EXPECT_TRUE(seen.last.empty());
    EXPECT_EQ(gss_connected, sess->gs_state);
    uint32 state = 0;
    ASSERT_EQ(0, gen_query_session_state(gh_, sess, &state, nullptr));
    EXPECT_EQ(uint32(gpss_init), state);
}

TEST_F(GclTest, GenMessagesWithoutCallbacksOrOfOddTypesKeepTheSession)
{
    gcl_session *sess = pair_session();
    testing::internal::CaptureStderr();
    write_all(peer_, make_frame(gen_frame(1), gen_wire(0xFEEDF00D, 1, 2, {1, 2})));
    write_all(peer_, make_frame(gen_frame(2), gen_wire(0xFEEDF00D, 2, 0, {})));
    write_all(peer_, make_frame(gen_frame(7), gen_wire(0xFEEDF00D, 7, 0, {})));
    ASSERT_EQ(0, gcl_session_read(sess));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("proto gen: in receive CATCHALL"), std::string::npos) << log;
    EXPECT_NE(log.find("message received type 1 length 2"), std::string::npos) << log;
    EXPECT_NE(log.find("RECV REQ:"), std::string::npos) << log;
    EXPECT_NE(log.find("proto ccom: no request update callback"), std::string::npos) << log;
    EXPECT_NE(log.find("proto ccom: no reponse update callback"), std::string::npos) << log;
    EXPECT_NE(log.find("proto ccom: invalid body message type 7"), std::string::npos) << log;
    EXPECT_EQ(gss_connected, sess->gs_state);
}

TEST_F(GclTest, GenEnvelopesThatDontHoldTogetherCloseTheSession)
{
    const std::vector<Bytes> bodies = {
        gen_wire(0xDEADBEEF, 1, 0, {}),    // not the magic
        gen_wire(0xFEEDF00D, 1, 100, {1}), // longer than the body
        Bytes{0xfe, 0xed, 0xf0, 0x0d},     // shorter than the envelope
    };
    for (const Bytes &body : bodies) {
        if (peer_ >= 0) {
            close(peer_);
            peer_ = -1;
        }
        gcl_session *sess = pair_session();
        write_all(peer_, make_frame(gen_frame(1), body));
        testing::internal::CaptureStderr();
        gcl_session_read(sess);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_NE(log.find("closing after error condition"), std::string::npos) << log;
        EXPECT_EQ(gss_closed, sess->gs_state);
    }
}
