// Feeds arbitrary bodies to the generic protocol's receive path: each input is one frame
// body of protocol 3 behind a well-formed frame header, with the frame's message type from
// the first byte, so that every envelope the peer may write reaches the envelope checks.
// The session may close; nothing may crash or leak, and a callback only ever sees a
// message that lies inside the body it came in.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fdintrcb.h"
#include "gcl.h"
#include "gen_proto.h"
#include "logging.h"

namespace {

gcl_handle *g_gh = nullptr;
fdic_handle *g_fich = nullptr;
size_t g_body_len = 0;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "gen_recv_fuzz: %s\n", what);
    abort();
}

int check_message(gcl_session *, const uint8 *msg, uint32 len, void *)
{
    if (len + GEN_PROTO_HEADER_LEN > g_body_len) {
        fail("a message longer than its body was handed on");
    }
    // Touch every byte: the sanitizers catch a message that isn't all there.
    volatile uint8 sum = 0;
    for (uint32 i = 0; i < len; ++i) {
        sum = static_cast<uint8>(sum + msg[i]);
    }
    (void)sum;
    return 0;
}

void setup()
{
    lc_log_init("gen_recv_fuzz", nullptr, LCO_none, 0, LOG_EMERG, LOG_LOCAL4, LCT_STDERR);
    if (fdic_init(&g_fich, nullptr, nullptr) != 0 || gcl_init(&g_gh, nullptr, g_fich) != 0) {
        fail("init");
    }
    if (gen_set_request_callback(g_gh, check_message, nullptr) != 0 ||
        gen_set_response_callback(g_gh, check_message, nullptr) != 0) {
        fail("callbacks");
    }
}

void put(std::vector<uint8_t> *f, uint32_t v, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i) {
        f->push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool ready = (setup(), true);
    (void)ready;
    if (size < 1 || size > 65536) {
        return 0;
    }
    const uint16_t msg_type = data[0] % 4;
    data++;
    size--;
    g_body_len = size;

    std::vector<uint8_t> frame = {'G', 'C', 'L', 'F', '0', '1', '2', '3'};
    put(&frame, gcl_frame_version, 4);
    put(&frame, static_cast<uint32_t>(32 + size), 4);
    put(&frame, 32, 2);
    put(&frame, 0, 2);
    put(&frame, 1, 4);
    put(&frame, gbp_proto_gen, 2);
    put(&frame, msg_type, 2);
    put(&frame, static_cast<uint32_t>(size), 4);
    frame.insert(frame.end(), data, data + size);

    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        fail("socketpair");
    }
    gcl_session *sess = nullptr;
    if (gcl_session_client_new_internal(g_gh, "fuzz", gof_none, ggid_auto, ggid_auto, nullptr,
                                        nullptr, 0, sv[0], &sess) != 0) {
        fail("session");
    }
    size_t off = 0;
    while (off < frame.size() && sess->gs_state == gss_connected) {
        const ssize_t n = write(sv[1], frame.data() + off, frame.size() - off);
        if (n <= 0) {
            fail("write");
        }
        off += static_cast<size_t>(n);
        gcl_session_read(sess);
    }
    if (gcl_session_free(&sess) != 0) {
        fail("free");
    }
    close(sv[1]);
    return 0;
}
