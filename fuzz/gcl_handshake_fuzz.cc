// Plays an arbitrary peer in the admin hand-shake, on both sides of it.  The input is a
// list of records (protocol, message type, body length, body); each becomes a frame with a
// header that holds together, so the bytes reach the admin and bnode message readers and
// the hand-shake's state machine rather than stopping at the framing.  The same frames go
// to a client session (which has asked to open a service) and to a session that a provider
// has accepted.  Either may close its session; neither may crash, leak or hang.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "bnode_session.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "gcl_provider.h"
#include "logging.h"

namespace {

gcl_handle *g_gh = nullptr;
fdic_handle *g_fich = nullptr;
gcl_session *g_listener = nullptr;
std::string g_socket_path;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "gcl_handshake_fuzz: %s\n", what);
    abort();
}

void setup()
{
    lc_log_init("gcl_handshake_fuzz", nullptr, LCO_none, 0, LOG_EMERG, LOG_LOCAL4, LCT_STDERR);
    char tmpl[] = "/tmp/gcl_handshake_fuzz.XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        fail("mkdtemp");
    }
    std::filesystem::create_directories(std::string(tmpl) + GCL_SOCK_DIR);
    gcl_set_sock_root_prefix(tmpl);
    if (fdic_init(&g_fich, nullptr, nullptr) != 0 || gcl_init(&g_gh, nullptr, g_fich) != 0) {
        fail("init");
    }
    if (gcl_session_provider_new(g_gh, "mgmtd", nullptr, nullptr, 0, &g_listener) != 0 ||
        gcl_session_provider_enable(g_listener) != 0) {
        fail("provider");
    }
    g_socket_path = g_listener->gs_ud_socket_path;
}

// Turns the input into frames.
std::vector<uint8_t> make_frames(const uint8_t *data, size_t size)
{
    std::vector<uint8_t> out;
    uint32 seqno = 1;
    size_t off = 0;
    while (off + 4 <= size) {
        const uint16 proto = data[off] % 4;
        const uint16 msg_type = data[off + 1] % 10;
        size_t body_len = (static_cast<size_t>(data[off + 2]) << 8) | data[off + 3];
        off += 4;
        if (body_len > size - off) {
            body_len = size - off;
        }
        gcl_frame_header hdr;
        memcpy(hdr.gf_ident, "GCLF", 4);
        memcpy(hdr.gf_order_bytes, "0123", 4);
        hdr.gf_version = htonl(gcl_frame_version);
        hdr.gf_length = htonl(static_cast<uint32>(gcl_frame_header_len + body_len));
        hdr.gf_hdr_length = htons(gcl_frame_header_len);
        hdr.gf_flags = 0;
        hdr.gf_seqno = htonl(seqno++);
        hdr.gf_body_proto = htons(proto);
        hdr.gf_body_msg_type = htons(msg_type);
        hdr.gf_body_length = htonl(static_cast<uint32>(body_len));
        const auto *h = reinterpret_cast<const uint8_t *>(&hdr);
        out.insert(out.end(), h, h + sizeof(hdr));
        out.insert(out.end(), data + off, data + off + body_len);
        off += body_len;
    }
    return out;
}

void drain(int fd)
{
    char sink[4096];
    while (recv(fd, sink, sizeof(sink), MSG_DONTWAIT) > 0) {
    }
}

// Writes the frames to `peer` and lets `sess` read them.  A client session that has been
// greeted asks to open a service, so that the answer to that is read too.
void feed(gcl_session *sess, int peer, const std::vector<uint8_t> &frames, bool client)
{
    size_t off = 0;
    while (off < frames.size() && sess->gs_state == gss_connected) {
        const size_t n = std::min<size_t>(frames.size() - off, 16384);
        const ssize_t w = send(peer, frames.data() + off, n, MSG_DONTWAIT);
        if (w <= 0) {
            break;
        }
        off += static_cast<size_t>(w);
        gcl_session_read(sess);
        gbp_admin_state gas = gas_none;
        gcl_session_get_state(sess, nullptr, &gas);
        if (client && gas == gas_open_no_service) {
            gbp_admin_msg_send_open_service(sess, gbp_proto_bnode, 2, nullptr);
        }
        gcl_session_run_output_queue(sess);
        drain(peer);
    }
}

void run_client_side(const std::vector<uint8_t> &frames)
{
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        fail("socketpair");
    }
    gcl_session *sess = nullptr;
    if (gcl_session_client_new_internal(g_gh, "fuzz", gof_none, ggid_auto, ggid_auto, nullptr,
                                        nullptr, 0, sv[0], &sess) != 0) {
        fail("client session");
    }
    feed(sess, sv[1], frames, true);
    if (gcl_session_free(&sess) != 0) {
        fail("free client");
    }
    close(sv[1]);
}

void run_provider_side(const std::vector<uint8_t> &frames)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un sun;
    memset(&sun, 0, sizeof(sun));
    sun.sun_family = AF_UNIX;
    strncpy(sun.sun_path, g_socket_path.c_str(), sizeof(sun.sun_path) - 1);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&sun), sizeof(sun)) != 0) {
        fail("connect");
    }
    gcl_session *sess = nullptr;
    if (gcl_session_provider_accept(g_listener, &sess) != 0 || sess == nullptr) {
        fail("accept");
    }
    gcl_session_run_output_queue(sess);
    drain(fd);
    feed(sess, fd, frames, false);
    if (gcl_session_free(&sess) != 0) {
        fail("free accepted");
    }
    close(fd);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = (setup(), true);
    (void)ready;
    if (size > 65536) {
        return 0;
    }
    const std::vector<uint8_t> frames = make_frames(data, size);
    run_client_side(frames);
    run_provider_side(frames);
    return 0;
}
