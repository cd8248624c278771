// Feeds arbitrary bytes, behind the 32 bytes of frame header space, to both bnode message
// readers.  A reader may refuse the bytes; whatever it accepts must serialise again, and
// that frame must read back to an equal message that serialises to the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bnode_proto.h"
#include "bnode_wire.h"
#include "logging.h"
#include "tbuffer.h"

namespace {

constexpr uint32 kHdr = bn_wire_gcl_header_space;

[[noreturn]] void fail(const char *what)
{
    fprintf(stderr, "bnode_wire_fuzz: %s\n", what);
    abort();
}

bool same_bytes(const tbuf *a, const tbuf *b)
{
    return tb_length(a) == tb_length(b) &&
           memcmp(tb_buf(a) + kHdr, tb_buf(b) + kHdr, tb_length(a) - kHdr) == 0;
}

bool same_binding(const bn_binding *a, const bn_binding *b)
{
    if ((a == nullptr) != (b == nullptr)) {
        return false;
    }
    if (a == nullptr) {
        return true;
    }
    return ts_equal(a->bn_node_name, b->bn_node_name) &&
           a->bn_node_name_parts_absolute == b->bn_node_name_parts_absolute &&
           tstr_array_length_quick(a->bn_node_name_parts) ==
               tstr_array_length_quick(b->bn_node_name_parts) &&
           bn_attrib_array_length_quick(a->bn_attribs) ==
               bn_attrib_array_length_quick(b->bn_attribs);
}

void check_request(const tbuf *frame)
{
    bn_request *first = nullptr;
    bn_request *second = nullptr;
    tbuf *out1 = nullptr;
    tbuf *out2 = nullptr;

    if (bn_request_msg_deserialize(frame, kHdr, &first) != 0) {
        if (first != nullptr) {
            fail("refused request left a message behind");
        }
        return;
    }
    if (bn_request_msg_serialize(first, kHdr, &out1) != 0) {
        fail("accepted request does not serialise");
    }
    if (bn_request_msg_deserialize(out1, kHdr, &second) != 0) {
        fail("re-serialised request does not read back");
    }
    if (bn_request_msg_serialize(second, kHdr, &out2) != 0) {
        fail("request read back does not serialise");
    }
    if (!same_bytes(out1, out2)) {
        fail("request frames differ after a round trip");
    }
    if (memcmp(&first->br_header, &second->br_header, sizeof(first->br_header)) != 0 ||
        bn_request_get_num_nodes(first) != bn_request_get_num_nodes(second)) {
        fail("request messages differ after a round trip");
    }
    for (uint32 i = 0; i < bn_request_get_num_nodes(first); ++i) {
        const bn_request_per_node *a = bn_request_get_nth_node_const(first, i);
        const bn_request_per_node *b = bn_request_get_nth_node_const(second, i);
        if (a->brn_node_id != b->brn_node_id || a->brn_request_type != b->brn_request_type ||
            !same_binding(a->brn_binding, b->brn_binding)) {
            fail("request nodes differ after a round trip");
        }
    }
    bn_request_msg_free(&first);
    bn_request_msg_free(&second);
    tb_free(&out1);
    tb_free(&out2);
}

void check_response(const tbuf *frame)
{
    bn_response *first = nullptr;
    bn_response *second = nullptr;
    tbuf *out1 = nullptr;
    tbuf *out2 = nullptr;

    if (bn_response_msg_deserialize(frame, kHdr, &first) != 0) {
        if (first != nullptr) {
            fail("refused response left a message behind");
        }
        return;
    }
    if (bn_response_msg_serialize(first, kHdr, &out1) != 0) {
        fail("accepted response does not serialise");
    }
    if (bn_response_msg_deserialize(out1, kHdr, &second) != 0) {
        fail("re-serialised response does not read back");
    }
    if (bn_response_msg_serialize(second, kHdr, &out2) != 0) {
        fail("response read back does not serialise");
    }
    if (!same_bytes(out1, out2)) {
        fail("response frames differ after a round trip");
    }
    if (memcmp(&first->brs_header, &second->brs_header, sizeof(first->brs_header)) != 0 ||
        first->brs_return_code != second->brs_return_code ||
        !ts_equal(first->brs_return_message, second->brs_return_message) ||
        bn_response_per_node_array_length_quick(first->brs_nodes) !=
            bn_response_per_node_array_length_quick(second->brs_nodes)) {
        fail("response messages differ after a round trip");
    }
    for (uint32 i = 0; i < bn_response_per_node_array_length_quick(first->brs_nodes); ++i) {
        const bn_response_per_node *a = bn_response_per_node_array_get_quick(first->brs_nodes, i);
        const bn_response_per_node *b =
            bn_response_per_node_array_get_quick(second->brs_nodes, i);
        if (a->brsn_node_id != b->brsn_node_id ||
            a->brsn_response_type != b->brsn_response_type ||
            !same_binding(a->brsn_binding, b->brsn_binding)) {
            fail("response nodes differ after a round trip");
        }
    }
    bn_response_msg_free(&first);
    bn_response_msg_free(&second);
    tb_free(&out1);
    tb_free(&out2);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    (void)argc;
    (void)argv;
    // Refusals log a line each; the fuzzer's pace matters more than those lines here.
    lc_log_suspend(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 20)) {
        return 0;
    }
    std::vector<uint8> bytes(kHdr, 0);
    bytes.insert(bytes.end(), data, data + size);
    tbuf *frame = nullptr;
    if (tb_new_buf(&frame, bytes.data(), static_cast<int32>(bytes.size())) != 0) {
        fail("no frame");
    }
    check_request(frame);
    check_response(frame);
    tb_free(&frame);
    return 0;
}
