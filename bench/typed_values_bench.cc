// Text forms of typed values: parsing a typical text into an attribute, and printing an
// attribute back, for the types that travel most in management messages.  Each benchmark
// reports the time of one operation.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "bnode_types.h"
#include "logging.h"

namespace {

struct Sample {
    bn_type type;
    const char *text;
};

const Sample kSamples[] = {
    {bt_uint32, "4000000000"},
    {bt_int64, "-9000000000000000000"},
    {bt_bool, "true"},
    {bt_ipv4addr, "192.168.100.254"},
    {bt_ipv6addr, "2001:db8:85a3::8a2e:370:7334"},
    {bt_inetaddr, "fe80::21b:21ff:feab:cdef"},
    {bt_macaddr802, "00:1B:21:AB:CD:EF"},
    {bt_datetime_sec, "2024/05/17 13:45:10"},
    {bt_string, "/ib/state/externalports/1234/speed"},
};

const Sample &sample(int64_t index)
{
    return kSamples[index];
}

void set_label(benchmark::State &state, const Sample &s)
{
    state.SetLabel(std::string(lc_enum_to_string_quiet(bn_type_map, s.type)) + " \"" + s.text +
                   "\"");
}

// One parse: a text into an attribute that is reused, as a message decoder does.
void BM_Parse(benchmark::State &state)
{
    const Sample &s = sample(state.range(0));
    bn_attrib *attrib = nullptr;
    lc_log_suspend(true);
    bn_attrib_new(&attrib);
    set_label(state, s);
    if (bn_attrib_set_str(attrib, ba_value, s.type, 0, s.text) != 0) {
        state.SkipWithError("the sample text does not parse");
        bn_attrib_free(&attrib);
        return;
    }
    for (auto _ : state) {
        const int err = bn_attrib_set_str(attrib, ba_value, s.type, 0, s.text);
        benchmark::DoNotOptimize(err);
        benchmark::DoNotOptimize(attrib->ba_v);
    }
    bn_attrib_free(&attrib);
}

// One print: an attribute to its text, which the caller frees.
void BM_Print(benchmark::State &state)
{
    const Sample &s = sample(state.range(0));
    bn_attrib *attrib = nullptr;
    lc_log_suspend(true);
    set_label(state, s);
    if (bn_attrib_new_str(&attrib, ba_value, s.type, 0, s.text) != 0) {
        state.SkipWithError("the sample text does not parse");
        return;
    }
    for (auto _ : state) {
        char *text = nullptr;
        const int err = bn_attrib_get_str(attrib, nullptr, bt_NONE, nullptr, &text);
        benchmark::DoNotOptimize(err);
        benchmark::DoNotOptimize(text);
        free(text);
    }
    bn_attrib_free(&attrib);
}

constexpr int64_t kNumSamples = static_cast<int64_t>(sizeof(kSamples) / sizeof(kSamples[0]));

}  // namespace

BENCHMARK(BM_Parse)->DenseRange(0, kNumSamples - 1);
BENCHMARK(BM_Print)->DenseRange(0, kNumSamples - 1);
