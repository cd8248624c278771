// The port table at the size of a full chassis: 217 devices of 64 ports, 13,888 ports,
// keyed by the decimal ifindex as the device flows make it.
#include <benchmark/benchmark.h>

#include <vector>

#include "hash_table.h"
#include "logging.h"
#include "ovd_ports_cache.h"

namespace {

constexpr uint32 kPortsPerDevice = OVD_MAX_LOCAL_PORT;
constexpr uint32 kFullChassisPorts = OVD_NUM_DEVICES * kPortsPerDevice;

// The keys and records of every port of a full chassis, made once.
struct Chassis {
    std::vector<tstring *> keys;
    std::vector<ifindexInformation> records;

    Chassis()
    {
        lc_log_suspend(true);
        for (uint32 devid = 0; devid < OVD_NUM_DEVICES; ++devid) {
            for (uint32 port = 1; port <= kPortsPerDevice; ++port) {
                uint32 ifindex = 0;
                convert_devid_localport_to_ifindex(devid, static_cast<uint8>(port), &ifindex);
                tstring *key = nullptr;
                ts_new_sprintf(&key, "%u", ifindex);
                keys.push_back(key);
                ifindexInformation info{};
                info.devid = devid;
                info.localport = static_cast<uint8>(port);
                info.label_port = static_cast<uint8>(port);
                info.assigned_to_swid = 0;
                records.push_back(info);
            }
        }
    }
    ~Chassis()
    {
        for (tstring *&key : keys) {
            ts_free(&key);
        }
    }

    void fill(ht_table *ht) const
    {
        for (size_t i = 0; i < keys.size(); ++i) {
            ht_insert(ht, keys[i], ts_length(keys[i]),
                      const_cast<ifindexInformation *>(&records[i]));
        }
    }
};

const Chassis &chassis()
{
    static const Chassis c;
    return c;
}

// Inserting every port into a new table, growth included.
void BM_InsertFullChassis(benchmark::State &state)
{
    const Chassis &c = chassis();
    for (auto _ : state) {
        state.PauseTiming();
        ibPortsCacheInit();
        state.ResumeTiming();
        c.fill(ibports_ht);
        state.PauseTiming();
        if (ibports_ht->ht_num_nodes != kFullChassisPorts) {
            state.SkipWithError("table not full");
        }
        ibPortsCacheDeinit();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kFullChassisPorts);
}
BENCHMARK(BM_InsertFullChassis)->Unit(benchmark::kMicrosecond);

// Looking up every port of a full table, the standard way.
void BM_LookupFullChassis(benchmark::State &state)
{
    const Chassis &c = chassis();
    ibPortsCacheInit();
    c.fill(ibports_ht);
    uint32 found = 0;
    for (auto _ : state) {
        for (const tstring *key : c.keys) {
            ifindexInformation *info = nullptr;
            tbool exists = false;
            checkIfPortExists(key, &info, &exists);
            found += exists;
            benchmark::DoNotOptimize(info);
        }
    }
    if (found != state.iterations() * kFullChassisPorts) {
        state.SkipWithError("port missing");
    }
    state.SetItemsProcessed(state.iterations() * kFullChassisPorts);
    ibPortsCacheDeinit();
}
BENCHMARK(BM_LookupFullChassis)->Unit(benchmark::kMicrosecond);

// Looking up ports that are not there, as the monitoring tree does for unknown names.
void BM_LookupMissingFullChassis(benchmark::State &state)
{
    const Chassis &c = chassis();
    ibPortsCacheInit();
    c.fill(ibports_ht);
    std::vector<tstring *> missing;
    for (uint32 i = 0; i < 1000; ++i) {
        tstring *key = nullptr;
        ts_new_sprintf(&key, "%u", 100000 + i);
        missing.push_back(key);
    }
    for (auto _ : state) {
        for (const tstring *key : missing) {
            tbool exists = true;
            checkIfPortExists(key, nullptr, &exists);
            benchmark::DoNotOptimize(exists);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(missing.size()));
    for (tstring *&key : missing) {
        ts_free(&key);
    }
    ibPortsCacheDeinit();
}
BENCHMARK(BM_LookupMissingFullChassis)->Unit(benchmark::kMicrosecond);

// Listing every port sorted as text, which the removal flow does once per removed device.
void BM_SortedListFullChassis(benchmark::State &state)
{
    const Chassis &c = chassis();
    ibPortsCacheInit();
    c.fill(ibports_ht);
    for (auto _ : state) {
        tstr_array *arr = nullptr;
        tstr_array_new(&arr, nullptr);
        get_ports_ifindex_arr(arr);
        if (tstr_array_length_quick(arr) != kFullChassisPorts) {
            state.SkipWithError("list incomplete");
        }
        tstr_array_free(&arr);
    }
    state.SetItemsProcessed(state.iterations() * kFullChassisPorts);
    ibPortsCacheDeinit();
}
BENCHMARK(BM_SortedListFullChassis)->Unit(benchmark::kMicrosecond);

}  // namespace
