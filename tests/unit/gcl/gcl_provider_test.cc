// The provider side of sessions against real clients over a named socket in a private
// tree: our own client sessions on a second handle, and clients played byte by byte by
// the test (one of them in a child with another identity).
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "fdintrcb.h"
#include "gcl.h"
#include "gcl_provider.h"
#include "logging.h"
#include "ttime.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint16_t kTestProto = 5;

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

std::string get_name(const Bytes &b, size_t off)
{
    return std::string(reinterpret_cast<const char *>(b.data() + off),
                       strnlen(reinterpret_cast<const char *>(b.data() + off), 32));
}

Bytes admin_frame(uint16_t mtype, const Bytes &body)
{
    Bytes f;
    for (const char ch : std::string("GCLF0123")) {
        f.push_back(static_cast<uint8_t>(ch));
    }
    put32(f, 1);
    put32(f, uint32_t(32 + body.size()));
    put16(f, 32);
    put16(f, 0);
    put32(f, 2000001);
    put16(f, gbp_proto_admin);
    put16(f, mtype);
    put32(f, uint32_t(body.size()));
    f.insert(f.end(), body.begin(), body.end());
    return f;
}

Bytes greeting_response(uint32_t uid, uint32_t gid, const std::string &name = "raw")
{
    Bytes b;
    put16(b, bap_version);
    put32(b, 1);
    put32(b, 1);
    put32(b, 0);
    put_name(b, name);
    put32(b, uid);
    put32(b, gid);
    put_name(b, "tester");
    put32(b, 0);
    return admin_frame(amt_greeting_response, b);
}

Bytes open_service(uint32_t msg_id, uint32_t trans_id, uint32_t proto, uint32_t service,
                   const std::string &lang)
{
    Bytes b;
    put32(b, msg_id);
    put32(b, trans_id);
    put32(b, proto);
    put32(b, service);
    put_name(b, lang);
    return admin_frame(amt_open_service, b);
}

bool write_all(int fd, const Bytes &b)
{
    size_t done = 0;
    while (done < b.size()) {
        const ssize_t n = write(fd, b.data() + done, b.size() - done);
        if (n <= 0) {
            return false;
        }
        done += size_t(n);
    }
    return true;
}

// One whole frame from a blocking descriptor; empty at end of file.
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

// What one handle saw.
struct Side {
    std::vector<std::pair<gcl_session *, std::string>> frames;
    std::vector<gcl_session *> accepted;
    int closed = 0;
    int ready = 0;
    std::vector<uint32> services;
};

int record_frame(gcl_handle *, gcl_session *sess, tbuf **inout_frame, void *arg)
{
    const tbuf *tb = *inout_frame;
    static_cast<Side *>(arg)->frames.emplace_back(
        sess, std::string(reinterpret_cast<const char *>(tb_buf(tb)) + 32, tb_length(tb) - 32));
    return 0;
}

int count_closed(gcl_handle *, gcl_session *, void *arg)
{
    static_cast<Side *>(arg)->closed++;
    return 0;
}

int on_ready(gcl_session *, tbool ready, tbool, void *arg)
{
    if (ready) {
        static_cast<Side *>(arg)->ready++;
    }
    return 0;
}

int on_service(gcl_session *, gcl_body_proto, uint32 service, tbool avail, tbool, void *arg)
{
    if (avail) {
        static_cast<Side *>(arg)->services.push_back(service);
    }
    return 0;
}

int on_accepted(gcl_session *, gcl_session *new_sess, void *arg)
{
    static_cast<Side *>(arg)->accepted.push_back(new_sess);
    return 0;
}

// Service 2 is refused by the provider's policy, with a message.
int decide_service(gcl_session *, uint32, uint32 service, const char *, uint32 *ret_code,
                   char **ret_msg, void *)
{
    if (service == 2) {
        *ret_code = lc_err_not_found;
        *ret_msg = strdup("service two is closed");
    }
    return 0;
}

class GclProviderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("gcl_provider_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4,
                    LCT_STDERR);
    }

    gcl_handle *make_handle(Side *side, const char *id)
    {
        gcl_global_options opts;
        EXPECT_EQ(0, gcl_options_get_defaults(&opts));
        opts.ggo_admin_ready_func = on_ready;
        opts.ggo_admin_ready_arg = side;
        opts.ggo_service_avail_func = on_service;
        opts.ggo_service_avail_arg = side;
        strlcpy(opts.ggo_handle_id, id, sizeof(opts.ggo_handle_id));
        gcl_handle *gh = nullptr;
        EXPECT_EQ(0, gcl_init(&gh, &opts, fich_));
        gcl_bp_registration reg;
        memset(&reg, 0, sizeof(reg));
        reg.gbpr_body_proto = kTestProto;
        strlcpy(reg.gbpr_proto_name, "test", sizeof(reg.gbpr_proto_name));
        reg.gbpr_enabled = true;
        reg.gbpr_connection_closed = count_closed;
        reg.gbpr_connection_closed_arg = side;
        reg.gbpr_msg_callbacks[gcl_body_msg_type_catchall] = {
            kTestProto, gcl_body_msg_type_catchall, record_frame, side};
        EXPECT_EQ(0, gcl_register_body_protocol(gh, &reg));
        return gh;
    }

    void SetUp() override
    {
        char tmpl[] = "/tmp/gcl_provider_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        std::filesystem::create_directories(root_ + GCL_SOCK_DIR);
        gcl_set_sock_root_prefix(root_.c_str());
        ASSERT_EQ(0, fdic_init(&fich_, nullptr, nullptr));
        gp_ = make_handle(&prov_, "p");
        gc_ = make_handle(&cli_, "c");

        gcl_provider_options opts;
        ASSERT_EQ(0, gcl_provider_options_get_defaults(&opts));
        opts.gpo_accepted_func = on_accepted;
        opts.gpo_accepted_arg = &prov_;
        opts.gpo_open_service_func = decide_service;
        ASSERT_EQ(0, gcl_session_provider_new(gp_, "mgmtd", &opts, nullptr, 0, &listener_));
        ASSERT_EQ(0, gcl_session_provider_enable(listener_));
        socket_path_ = listener_->gs_ud_socket_path;
    }

    void TearDown() override
    {
        EXPECT_EQ(0, gcl_deinit(&gc_));
        EXPECT_EQ(0, gcl_deinit(&gp_));
        EXPECT_EQ(0, fdic_deinit(&fich_));
        gcl_set_sock_root_prefix(nullptr);
        std::filesystem::remove_all(root_);
    }

    // Drives every session of both handles until `done` holds; false after 10 s.
    bool pump_until(const std::function<bool()> &done)
    {
        const lt_time_ms start = lt_sys_uptime_ms();
        while (!done()) {
            if (lt_sys_uptime_ms() - start > 10000) {
                return false;
            }
            gcl_session_do_blocking_io(gp_, listener_, false, false, true, false, gbp_none, 20);
        }
        return true;
    }

    gcl_session *connect_client()
    {
        gcl_session *sess = nullptr;
        EXPECT_EQ(0, gcl_session_client_set_user_new(gc_, "IB Daemon", gof_none, ggid_auto,
                                                     ggid_auto, nullptr, nullptr, 0, &sess));
        EXPECT_EQ(0, gcl_session_client_connect_by_provider(sess, "mgmtd", false));
        return sess;
    }

    int raw_connect()
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un sun;
        memset(&sun, 0, sizeof(sun));
        sun.sun_family = AF_UNIX;
        strlcpy(sun.sun_path, socket_path_.c_str(), sizeof(sun.sun_path));
        EXPECT_EQ(0, connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof(sun)));
        return fd;
    }

    static gbp_admin_state admin_state(const gcl_session *sess)
    {
        gbp_admin_state gas = gas_none;
        gcl_session_get_state(sess, nullptr, &gas);
        return gas;
    }

    std::string root_;
    std::string socket_path_;
    fdic_handle *fich_ = nullptr;
    gcl_handle *gp_ = nullptr;
    gcl_handle *gc_ = nullptr;
    gcl_session *listener_ = nullptr;
    Side prov_;
    Side cli_;
};

// ---------------------------------------------------------------------------------------
// The hand-shake with our own client.

TEST_F(GclProviderTest, HandshakeAndServiceOpenCompleteOnBothSides)
{
    gcl_session *c = connect_client();
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     c, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    ASSERT_EQ(prov_.accepted.size(), 1u);
    gcl_session *p = prov_.accepted[0];
    EXPECT_TRUE(p->gs_is_provider);
    EXPECT_TRUE(p->gs_provider_accepted);
    EXPECT_EQ(p->gs_state, gss_connected);

    const char *peer = nullptr;
    ASSERT_EQ(0, gcl_session_get_session_names(c, nullptr, &peer));
    EXPECT_STREQ(peer, "mgmtd");
    ASSERT_TRUE(pump_until([&] { return admin_state(p) == gas_service_ready; }));
    ASSERT_EQ(0, gcl_session_get_session_names(p, nullptr, &peer));
    EXPECT_STREQ(peer, c->gs_local_name);

    const gbp_admin_session_state *gas = gbp_admin_get_session_state(p);
    EXPECT_EQ(gas->gas_auth_incoming_uid, int32(geteuid()));
    EXPECT_EQ(gas->gas_auth_incoming_gid, int32(getegid()));
    EXPECT_EQ(gas->gas_service_id_open_mask, 1u << 1);
    EXPECT_STREQ(gas->gas_lang_tag, "en");
    EXPECT_EQ(prov_.ready, 1);
    EXPECT_EQ(cli_.ready, 1);
    EXPECT_EQ(prov_.services, std::vector<uint32>{1});
    EXPECT_EQ(cli_.services, std::vector<uint32>{1});
}

TEST_F(GclProviderTest, FramesFlowBothWays)
{
    gcl_session *c = connect_client();
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     c, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    gcl_session *p = prov_.accepted.at(0);

    const std::string ping = "ping from the client";
    ASSERT_EQ(0, gcl_session_send_frame_components(
                     c, static_cast<gcl_body_proto>(kTestProto), 7, uint32(ping.size()),
                     reinterpret_cast<const uint8 *>(ping.data())));
    ASSERT_TRUE(pump_until([&] { return !prov_.frames.empty(); }));
    EXPECT_EQ(prov_.frames[0].first, p);
    EXPECT_EQ(prov_.frames[0].second, ping);

    const std::string pong = "pong from the provider";
    ASSERT_EQ(0, gcl_session_send_frame_components(
                     p, static_cast<gcl_body_proto>(kTestProto), 8, uint32(pong.size()),
                     reinterpret_cast<const uint8 *>(pong.data())));
    ASSERT_TRUE(pump_until([&] { return !cli_.frames.empty(); }));
    EXPECT_EQ(cli_.frames[0].first, c);
    EXPECT_EQ(cli_.frames[0].second, pong);
}

TEST_F(GclProviderTest, RefusedServicesLeaveTheSessionUsable)
{
    gcl_session *c = connect_client();
    const auto proto = static_cast<gcl_body_proto>(kTestProto);
    // Out of range, refused by policy, and a protocol nobody registered.
    EXPECT_NE(0, gcl_session_client_open_service_blocking(c, proto, 7, "en", nullptr, 10000));
    EXPECT_NE(0, gcl_session_client_open_service_blocking(c, proto, 2, "en", nullptr, 10000));
    EXPECT_NE(0, gcl_session_client_open_service_blocking(c, static_cast<gcl_body_proto>(9), 1,
                                                          "en", nullptr, 10000));
    gcl_session *p = prov_.accepted.at(0);
    EXPECT_EQ(gbp_admin_get_session_state(p)->gas_service_id_open_mask, 0u);
    EXPECT_TRUE(prov_.services.empty());

    ASSERT_EQ(0, gcl_session_client_open_service_blocking(c, proto, 3, "en", nullptr, 10000));
    ASSERT_TRUE(pump_until([&] { return admin_state(p) == gas_service_ready; }));
    EXPECT_EQ(gbp_admin_get_session_state(p)->gas_service_id_open_mask, 1u << 3);
}

// ---------------------------------------------------------------------------------------
// The wire, seen by a client played by the test.

TEST_F(GclProviderTest, GreetingAndOpenServiceResponseOnTheWire)
{
    const int fd = raw_connect();
    ASSERT_TRUE(pump_until([&] { return prov_.accepted.size() == 1; }));
    gcl_session *p = prov_.accepted[0];

    const Bytes g = read_frame(fd);
    ASSERT_EQ(g.size(), 32u + bp_admin_msg_greeting_len);
    EXPECT_EQ(std::string(g.begin(), g.begin() + 4), "GCLF");
    EXPECT_EQ(get32(g, 20), 1000001u) << "provider frames are numbered from 1000001";
    EXPECT_EQ(get16(g, 24), gbp_proto_admin);
    EXPECT_EQ(get16(g, 26), amt_greeting);
    EXPECT_EQ(get16(g, 32), bap_version);
    EXPECT_EQ(get_name(g, 32 + 10), "mgmtd");
    struct stat st;
    ASSERT_EQ(0, stat(socket_path_.c_str(), &st));
    EXPECT_EQ(get32(g, 32 + 42), uint32_t(st.st_uid));
    EXPECT_EQ(get32(g, 32 + 46), uint32_t(st.st_gid));
    EXPECT_EQ(st.st_mode & 0777, 0777u);

    // No claim: the provider takes the identity from the kernel.
    ASSERT_TRUE(write_all(fd, greeting_response(0xffffffffu, 0xffffffffu)));
    ASSERT_TRUE(pump_until([&] { return admin_state(p) == gas_open_no_service; }));
    EXPECT_EQ(gbp_admin_get_session_state(p)->gas_auth_incoming_uid, int32(geteuid()));
    EXPECT_STREQ(gbp_admin_get_session_state(p)->gas_peer_name, "raw");

    ASSERT_TRUE(write_all(fd, open_service(77, 99, kTestProto, 9, "fr")));
    ASSERT_TRUE(pump_until([&] { return p->gs_msg_sent_frames == 2; }));
    Bytes r = read_frame(fd);
    ASSERT_GE(r.size(), 32u + bp_admin_msg_open_service_response_len);
    EXPECT_EQ(get16(r, 26), amt_open_service_response);
    EXPECT_EQ(get32(r, 32 + 4), 99u);
    EXPECT_EQ(get32(r, 32 + 8), 77u);
    EXPECT_NE(get32(r, 32 + 44), 0u);
    const uint32_t len = get32(r, 32 + 48);
    ASSERT_EQ(r.size(), 32u + 52 + len);
    EXPECT_EQ(std::string(r.begin() + 84, r.end()), "No such service");

    ASSERT_TRUE(write_all(fd, open_service(78, 100, kTestProto, 4, "fr")));
    ASSERT_TRUE(pump_until([&] { return p->gs_msg_sent_frames == 3; }));
    r = read_frame(fd);
    ASSERT_EQ(r.size(), 32u + bp_admin_msg_open_service_response_len);
    EXPECT_EQ(get32(r, 32 + 8), 78u);
    EXPECT_EQ(get_name(r, 32 + 12), "fr");
    EXPECT_EQ(get32(r, 32 + 44), 0u);
    EXPECT_EQ(get32(r, 32 + 48), 0u);
    close(fd);
}

TEST_F(GclProviderTest, HalfAnIdentityOrBadVersionEndsTheSession)
{
    for (const bool bad_version : {false, true}) {
        prov_.accepted.clear();
        const int fd = raw_connect();
        ASSERT_TRUE(pump_until([&] { return prov_.accepted.size() == 1; }));
        gcl_session *p = prov_.accepted[0];
        ASSERT_FALSE(read_frame(fd).empty());
        Bytes resp = greeting_response(0xffffffffu, 5);
        if (bad_version) {
            resp = greeting_response(geteuid(), getegid());
            resp[33] = 3;
        }
        testing::internal::CaptureStderr();
        ASSERT_TRUE(write_all(fd, resp));
        const bool closed = pump_until([&] { return p->gs_state == gss_closed; });
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(closed);
        EXPECT_NE(log.find(bad_version ? "bad version in greeting response: 3 not 2"
                                       : "bad uid / gid in greeting response: -1/5"),
                  std::string::npos)
            << log;
        EXPECT_NE(log.find("session terminated by provider"), std::string::npos) << log;
        EXPECT_TRUE(read_frame(fd).empty()) << "the client sees the close";
        close(fd);
    }
}

// A client claiming someone else's identity, from a child that runs as another user when
// we are root (root may speak for anyone).
TEST_F(GclProviderTest, ForeignIdentityClaimEndsTheSession)
{
    chmod(root_.c_str(), 0755);
    const uint32_t claim_uid = geteuid() == 0 ? 0 : geteuid() + 5;
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) {
            _exit(2);
        }
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un sun;
        memset(&sun, 0, sizeof(sun));
        sun.sun_family = AF_UNIX;
        strlcpy(sun.sun_path, socket_path_.c_str(), sizeof(sun.sun_path));
        if (connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof(sun)) != 0 ||
            read_frame(fd).empty() || !write_all(fd, greeting_response(claim_uid, 0))) {
            _exit(3);
        }
        // The provider must close on us before answering anything.
        _exit(read_frame(fd).empty() ? 0 : 4);
    }
    testing::internal::CaptureStderr();
    const bool closed = pump_until(
        [&] { return prov_.accepted.size() == 1 && prov_.accepted[0]->gs_state == gss_closed; });
    const std::string log = testing::internal::GetCapturedStderr();
    if (!closed) {
        kill(pid, SIGKILL);  // it would wait for the close for ever
    }
    int status = -1;
    ASSERT_EQ(pid, waitpid(pid, &status, 0));
    EXPECT_TRUE(closed);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_NE(log.find("bad uid / gid in greeting response: " + std::to_string(claim_uid) + "/0"),
              std::string::npos)
        << log;
    EXPECT_FALSE(gbp_admin_get_session_state(prov_.accepted[0])->gas_auth_incoming_done);
}

// ---------------------------------------------------------------------------------------
// Closing and several clients.

TEST_F(GclProviderTest, ProviderCloseIsSeenByTheClientAndLeavesTheSocket)
{
    gcl_session *c = connect_client();
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     c, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    gcl_session *p = prov_.accepted.at(0);
    ASSERT_EQ(0, gcl_session_close(p, true));
    ASSERT_TRUE(pump_until([&] { return c->gs_state == gss_closed; }));
    EXPECT_EQ(cli_.closed, 1);
    EXPECT_EQ(prov_.closed, 1);
    EXPECT_EQ(admin_state(c), gas_closed);

    struct stat st;
    EXPECT_EQ(0, stat(socket_path_.c_str(), &st)) << "an accepted session keeps the socket";
    ASSERT_EQ(0, gcl_session_free(&p));
    ASSERT_EQ(0, gcl_session_free(&listener_));
    EXPECT_NE(0, stat(socket_path_.c_str(), &st)) << "the listener removes its socket";
}

TEST_F(GclProviderTest, ClientCloseIsSeenByTheProvider)
{
    gcl_session *c = connect_client();
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     c, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    gcl_session *p = prov_.accepted.at(0);
    ASSERT_EQ(0, gcl_session_free(&c));
    ASSERT_TRUE(pump_until([&] { return p->gs_state == gss_closed; }));
    EXPECT_EQ(admin_state(p), gas_closed);
    EXPECT_EQ(listener_->gs_state, gss_listening);
}

TEST_F(GclProviderTest, SeveralClientsGetTheirOwnSessions)
{
    std::vector<gcl_session *> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(connect_client());
        ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                         clients.back(), static_cast<gcl_body_proto>(kTestProto), 1, "en",
                         nullptr, 10000));
    }
    ASSERT_EQ(prov_.accepted.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        gcl_session *p = prov_.accepted[i];
        const std::string body = "to client " + std::to_string(i);
        ASSERT_EQ(0, gcl_session_send_frame_components(
                         p, static_cast<gcl_body_proto>(kTestProto), 1, uint32(body.size()),
                         reinterpret_cast<const uint8 *>(body.data())));
    }
    ASSERT_TRUE(pump_until([&] { return cli_.frames.size() == 3; }));
    for (int i = 0; i < 3; ++i) {
        // Each provider session is paired with the client that it accepted.
        const gcl_session *c = cli_.frames[i].first;
        const auto it = std::find(clients.begin(), clients.end(), c);
        ASSERT_NE(it, clients.end());
        const int idx = int(it - clients.begin());
        EXPECT_EQ(cli_.frames[i].second, "to client " + std::to_string(idx));
        EXPECT_STREQ(gbp_admin_get_session_state(prov_.accepted[idx])->gas_peer_name,
                     clients[idx]->gs_local_name);
    }
}

TEST_F(GclProviderTest, AcceptingIsSuspendedWhileTheHandleIsFull)
{
    gp_->gh_max_sessions = 2;  // the listener and one accepted session
    gcl_session *a = connect_client();
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     a, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    gcl_session *b = connect_client();

    // Driven by hand: the blocking loop would force the resume timer at once.
    gcl_session *s = listener_;
    ASSERT_EQ(0, gcl_session_provider_accept(listener_, &s));
    EXPECT_EQ(s, nullptr);
    EXPECT_TRUE(listener_->gs_provider_listen_suspended);
    ASSERT_TRUE(gp_->gh_suspend_accept_timer_active);
    fdic_event_array *events = nullptr;
    ASSERT_EQ(0, fdic_events_query(fich_, &events));
    uint32 idx = 0;
    ASSERT_EQ(0, fdic_event_array_find_by_id(events, listener_->gs_fdic_fd_id, &idx));
    EXPECT_FALSE(fdic_event_array_get_quick(events, idx)->fee_fd_on_readable);
    ASSERT_EQ(0, fdic_event_array_find_by_id(events, gp_->gh_suspend_accept_timer_fdic_id, &idx));
    EXPECT_EQ(fdic_event_array_get_quick(events, idx)->fee_timeout_ms,
              gcl_provider_listen_suspend_timeout);
    fdic_event_array_free(&events);
    EXPECT_EQ(prov_.accepted.size(), 1u);

    gcl_session *pa = prov_.accepted[0];
    ASSERT_EQ(0, gcl_session_free(&pa));
    const int32 timer_id = gp_->gh_suspend_accept_timer_fdic_id;
    EXPECT_EQ(lc_err_cancelled, gcl_session_provider_resume_listen(-1, fct_timeout, nullptr, gp_));
    EXPECT_FALSE(listener_->gs_provider_listen_suspended);
    EXPECT_FALSE(gp_->gh_suspend_accept_timer_active);
    EXPECT_NE(0, fdic_event_array_find_by_id(fich_->fh_registrations, timer_id, &idx))
        << "the one-shot timer is gone";
    ASSERT_EQ(0, gcl_session_client_open_service_blocking(
                     b, static_cast<gcl_body_proto>(kTestProto), 1, "en", nullptr, 10000));
    EXPECT_EQ(prov_.accepted.size(), 2u);
}

TEST_F(GclProviderTest, BadProviderNamesAndStatesAreRefused)
{
    gcl_session *s = nullptr;
    EXPECT_NE(0, gcl_session_provider_new(gp_, "mg-mtd", nullptr, nullptr, 0, &s));
    EXPECT_NE(0, gcl_session_provider_new(gp_, std::string(32, 'x').c_str(), nullptr, nullptr,
                                          0, &s));
    EXPECT_EQ(s, nullptr);
    EXPECT_NE(0, gcl_session_provider_enable(listener_)) << "already listening";
    gcl_session *c = connect_client();
    EXPECT_NE(0, gcl_session_provider_accept(c, &s)) << "a client session can't accept";
}

}  // namespace
