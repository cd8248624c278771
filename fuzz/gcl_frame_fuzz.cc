// Feeds arbitrary bytes to the session layer's frame reader through a real socket, in
// chunks whose size the first byte chooses, so that frames are cut at every place.  The
// reader may close the session; it must never crash, leak or dispatch a frame whose header
// doesn't hold together.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fdintrcb.h"
#include "gcl.h"
#include "logging.h"

namespace {

gcl_handle *g_gh = nullptr;
fdic_handle *g_fich = nullptr;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "gcl_frame_fuzz: %s\n", what);
    abort();
}

int check_frame(gcl_handle *, gcl_session *, tbuf **inout_frame, void *)
{
    gcl_frame_header hdr;
    if (tb_length(*inout_frame) < sizeof(hdr)) {
        fail("short frame dispatched");
    }
    memcpy(&hdr, tb_buf(*inout_frame), sizeof(hdr));
    if (memcmp(hdr.gf_ident, "GCLF", 4) != 0 || hdr.gf_version != gcl_frame_version ||
        hdr.gf_length != tb_length(*inout_frame) || hdr.gf_hdr_length != 32) {
        fail("bad frame dispatched");
    }
    return 0;
}

void setup()
{
    lc_log_init("gcl_frame_fuzz", nullptr, LCO_none, 0, LOG_EMERG, LOG_LOCAL4, LCT_STDERR);
    if (fdic_init(&g_fich, nullptr, nullptr) != 0 || gcl_init(&g_gh, nullptr, g_fich) != 0) {
        fail("init");
    }
    gcl_bp_registration reg;
    memset(&reg, 0, sizeof(reg));
    reg.gbpr_body_proto = 5;
    reg.gbpr_enabled = true;
    reg.gbpr_msg_callbacks[gcl_body_msg_type_catchall] = {5, gcl_body_msg_type_catchall,
                                                          check_frame, nullptr};
    if (gcl_register_body_protocol(g_gh, &reg) != 0) {
        fail("register");
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
    const size_t chunk = (data[0] % 64) + 1;
    data++;
    size--;

    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        fail("socketpair");
    }
    gcl_session *sess = nullptr;
    if (gcl_session_client_new_internal(g_gh, "fuzz", gof_none, ggid_auto, ggid_auto, nullptr,
                                        nullptr, 0, sv[0], &sess) != 0) {
        fail("session");
    }
    for (size_t off = 0; off < size && sess->gs_state == gss_connected; off += chunk) {
        const size_t n = off + chunk <= size ? chunk : size - off;
        if (write(sv[1], data + off, n) != static_cast<ssize_t>(n)) {
            fail("write");
        }
        gcl_session_read(sess);
        // Whatever the session answered (a greeting response) is thrown away.
        char sink[4096];
        while (recv(sv[1], sink, sizeof(sink), MSG_DONTWAIT) > 0) {
        }
    }
    if (gcl_session_free(&sess) != 0) {
        fail("free");
    }
    close(sv[1]);
    return 0;
}
