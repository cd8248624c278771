// The byte form of bnode messages: encoding and decoding a configuration change event of
// 200 bindings of mixed types (the largest message the daemon meets routinely), and a
// one-binding state query (the most frequent one).  Bytes/s counts the frame as the
// session sends it; items/s counts messages.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_wire.h"
#include "logging.h"

namespace {

constexpr uint32 kHdr = bn_wire_gcl_header_space;
constexpr int kDbchangeBindings = 200;

void check(int err, const char *what)
{
    if (err != 0) {
        fprintf(stderr, "bnode_wire_bench: %s failed: %d\n", what, err);
        abort();
    }
}

// One binding of the kind a configuration change carries, the type chosen by position.
bn_binding *dbchange_binding(int i)
{
    bn_binding *b = nullptr;
    const std::string base = "/ib/config/externalports/" + std::to_string(1000 + i / 8);
    std::string name;
    switch (i % 8) {
    case 0:
        name = base + "/mtu";
        check(bn_binding_new_uint32(&b, name.c_str(), ba_value, 0, 4096), "uint32");
        break;
    case 1:
        name = base + "/counters/rx_bytes";
        check(bn_binding_new_uint64(&b, name.c_str(), ba_value, btf_counter,
                                    0x123456789ABCULL + static_cast<uint64>(i)),
              "uint64");
        break;
    case 2:
        name = base + "/description";
        check(bn_binding_new_str(&b, name.c_str(), ba_value, bt_string, 0,
                                 "uplink to spine switch 07, rack 12"),
              "string");
        break;
    case 3:
        name = base + "/enable";
        check(bn_binding_new_tbool(&b, name.c_str(), ba_value, 0, true), "bool");
        break;
    case 4: {
        name = base + "/mgmt_addr";
        check(bn_binding_new_str(&b, name.c_str(), ba_value, bt_ipv4addr, 0, "10.12.7.200"),
              "ipv4addr");
        break;
    }
    case 5:
        name = base + "/peer_addr";
        check(bn_binding_new_str(&b, name.c_str(), ba_value, bt_inetaddr, 0,
                                 "fe80::21b:21ff:feab:cdef"),
              "inetaddr");
        break;
    case 6:
        name = base + "/last_change";
        check(bn_binding_new_datetime_sec(&b, name.c_str(), ba_value, 0, 1715953510),
              "datetime_sec");
        break;
    default:
        name = base + "/speed";
        check(bn_binding_new_str(&b, name.c_str(), ba_value, bt_string, 0, "EDR"), "string");
        break;
    }
    return b;
}

bn_request *make_dbchange_event()
{
    bn_request *req = nullptr;
    check(bn_event_request_msg_create(&req, "/mgmtd/notify/dbchange"), "event create");
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 4711;
    req->br_header.brh_transaction_id = 4711;
    for (int i = 0; i < kDbchangeBindings; ++i) {
        bn_binding *b = dbchange_binding(i);
        check(bn_event_request_msg_append_binding_takeover(req, 0, &b, nullptr), "append");
    }
    return req;
}

bn_request *make_query()
{
    bn_request *req = nullptr;
    check(bn_query_request_msg_create(&req, 0, nullptr), "query create");
    req->br_header.brh_service_id = bap_service_mgmt;
    req->br_header.brh_msg_id = 17;
    req->br_header.brh_transaction_id = 17;
    check(bn_query_request_msg_append_str(req, bqso_get, 0, "/ib/state/externalports/1234/speed",
                                          nullptr),
          "query append");
    return req;
}

// Drops the name parts caches, so that every encode tokenises the names as the first
// encode of a freshly built message does.
void drop_parts_caches(bn_request *req)
{
    for (uint32 i = 0; i < bn_request_get_num_nodes(req); ++i) {
        bn_request_per_node *node = bn_request_per_node_array_get_quick(req->br_nodes, i);
        tstr_array_free(&node->brn_binding->bn_node_name_parts);
    }
}

void encode_bench(benchmark::State &state, bn_request *req, bool cold_names)
{
    uint64 bytes = 0;
    for (auto _ : state) {
        if (cold_names) {
            drop_parts_caches(req);
        }
        tbuf *frame = nullptr;
        check(bn_request_msg_serialize(req, kHdr, &frame), "serialize");
        bytes += tb_length(frame);
        benchmark::DoNotOptimize(frame);
        tb_free(&frame);
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.SetItemsProcessed(state.iterations());
}

void decode_bench(benchmark::State &state, bn_request *req)
{
    tbuf *frame = nullptr;
    check(bn_request_msg_serialize(req, kHdr, &frame), "serialize");
    for (auto _ : state) {
        bn_request *back = nullptr;
        check(bn_request_msg_deserialize(frame, kHdr, &back), "deserialize");
        benchmark::DoNotOptimize(back);
        bn_request_msg_free(&back);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * tb_length(frame));
    state.SetItemsProcessed(state.iterations());
    state.counters["frame_bytes"] = tb_length(frame);
    tb_free(&frame);
}

void BM_EncodeDbchangeEvent(benchmark::State &state)
{
    lc_log_suspend(true);
    bn_request *req = make_dbchange_event();
    encode_bench(state, req, state.range(0) != 0);
    bn_request_msg_free(&req);
}
BENCHMARK(BM_EncodeDbchangeEvent)->ArgName("tokenise_names")->Arg(0)->Arg(1);

void BM_DecodeDbchangeEvent(benchmark::State &state)
{
    lc_log_suspend(true);
    bn_request *req = make_dbchange_event();
    decode_bench(state, req);
    bn_request_msg_free(&req);
}
BENCHMARK(BM_DecodeDbchangeEvent);

void BM_EncodeQuery(benchmark::State &state)
{
    lc_log_suspend(true);
    bn_request *req = make_query();
    encode_bench(state, req, state.range(0) != 0);
    bn_request_msg_free(&req);
}
BENCHMARK(BM_EncodeQuery)->ArgName("tokenise_names")->Arg(0)->Arg(1);

void BM_DecodeQuery(benchmark::State &state)
{
    lc_log_suspend(true);
    bn_request *req = make_query();
    decode_bench(state, req);
    bn_request_msg_free(&req);
}
BENCHMARK(BM_DecodeQuery);

}  // namespace
