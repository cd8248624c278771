// One-binding gets over the real management socket, answered by mgmtd-lite from its own
// database and by the daemon (through mgmtd-lite, for a state node it answers empty),
// beside a raw Unix-socket ping-pong of the same sizes on the same machine.  Each
// benchmark reports its requests per second and the latency percentiles.
//
// Runs as root: the daemon's socket directory is fixed, so the programs run in a private
// mount namespace with their own /vtmp.
#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bnode.h"
#include "libevent_wrapper.h"
#include "logging.h"
#include "mdc_main.h"
#include "mdc_wrapper.h"
#include "sandbox.h"
#include "stand_ins.h"

namespace {

using Clock = std::chrono::steady_clock;

// Bytes on the wire of the get and of its answer by mgmtd-lite, as the session logs them:
// the ping-pong sends the same.
constexpr size_t kRequestBytes = 134;
constexpr size_t kResponseBytes = 164;

struct World {
    std::string dir;
    std::unique_ptr<ovd_test::MgmtdLite> lite;
    ovd_test::Child daemon;
    lew_context *lwc = nullptr;
    md_client_context *mcc = nullptr;
    std::string why;

    bool up()
    {
        if (!ovd_test::enter_sandbox(&why)) {
            return false;
        }
        char tmpl[] = "/tmp/session_bench.XXXXXX";
        if (mkdtemp(tmpl) == nullptr) {
            why = "mkdtemp";
            return false;
        }
        dir = tmpl;
        std::string config;
        {
            const std::string demo = ovd_test::read_file(OVD_DEMO_DIR "/mgmtd-lite.conf");
            config = demo + "/bench/value uint32 42\n";
        }
        ovd_test::write_file(dir + "/db.conf", config);
        ovd_test::write_file(dir + "/ib.reg", "client IB Daemon\n/ib/state/bench/empty\n");
        lite = std::make_unique<ovd_test::MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, dir, "");
        if (!lite->start({"--config", dir + "/db.conf", "--registration", dir + "/ib.reg"})) {
            why = "mgmtd-lite did not start:\n" + lite->log();
            return false;
        }
        if (!daemon.start({OVD_BIN}) ||
            !lite->wait_for_log("event /ib/events/init-done from 'IB Daemon'")) {
            why = "the daemon did not come up:\n" + lite->log();
            return false;
        }
        lc_log_init("session_bench", nullptr, LCO_none, 0, LOG_ERR, LOG_LOCAL4, LCT_STDERR);
        mdc_wrapper_params *params = nullptr;
        if (lew_init(&lwc) != 0 || mdc_wrapper_params_get_defaults(&params) != 0) {
            why = "loop";
            return false;
        }
        params->mwp_lew_context = lwc;
        params->mwp_gcl_client = "session bench";
        const int err = mdc_wrapper_init(params, &mcc);
        mdc_wrapper_params_free(&params);
        if (err != 0) {
            why = "no session with mgmtd-lite";
            return false;
        }
        return true;
    }

    void down()
    {
        if (mcc != nullptr) {
            mdc_wrapper_disconnect(mcc, true);
            mdc_wrapper_deinit(&mcc);
        }
        lew_deinit(&lwc);
        if (daemon.running()) {
            daemon.signal(SIGTERM);
            daemon.wait();
        }
        lite.reset();
        if (!dir.empty()) {
            std::filesystem::remove_all(dir);
        }
    }
};

World *g_world = nullptr;

void report(benchmark::State &state, std::vector<double> *lat_us)
{
    if (lat_us->empty()) {
        return;
    }
    std::sort(lat_us->begin(), lat_us->end());
    auto pct = [&](double p) {
        return (*lat_us)[std::min(lat_us->size() - 1, static_cast<size_t>(p * lat_us->size()))];
    };
    state.counters["p50_us"] = pct(0.50);
    state.counters["p90_us"] = pct(0.90);
    state.counters["p99_us"] = pct(0.99);
    state.counters["max_us"] = lat_us->back();
    state.counters["qps"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                               benchmark::Counter::kIsRate);
}

void get_loop(benchmark::State &state, const char *name, bool expect_binding)
{
    if (g_world == nullptr) {
        state.SkipWithError("no session");
        return;
    }
    std::vector<double> lat_us;
    lat_us.reserve(1 << 16);
    for (auto _ : state) {
        const auto t0 = Clock::now();
        bn_binding *binding = nullptr;
        uint32 code = 0;
        const int err = mdc_get_binding(g_world->mcc, &code, nullptr, false, &binding, name,
                                        nullptr);
        lat_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        if (err != 0 || code != 0 || (binding != nullptr) != expect_binding) {
            bn_binding_free(&binding);
            state.SkipWithError("unexpected answer");
            break;
        }
        bn_binding_free(&binding);
    }
    report(state, &lat_us);
}

void BM_GetAnsweredByMgmtdLite(benchmark::State &state)
{
    get_loop(state, "/bench/value", true);
}
BENCHMARK(BM_GetAnsweredByMgmtdLite)->UseRealTime()->MinTime(2.0);

void BM_GetAnsweredByDaemon(benchmark::State &state)
{
    get_loop(state, "/ib/state/bench/empty", false);
}
BENCHMARK(BM_GetAnsweredByDaemon)->UseRealTime()->MinTime(2.0);

// The floor: the same bytes there and back over a Unix stream socket to another process's
// worth of work (a thread that reads the request in full and answers it).
void BM_RawUnixPingPong(benchmark::State &state)
{
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0) {
        state.SkipWithError("socketpair");
        return;
    }
    std::thread echo([fd = sv[1]] {
        std::vector<char> req(kRequestBytes);
        const std::vector<char> resp(kResponseBytes, 'r');
        for (;;) {
            size_t got = 0;
            while (got < req.size()) {
                const ssize_t n = read(fd, req.data() + got, req.size() - got);
                if (n <= 0) {
                    return;
                }
                got += static_cast<size_t>(n);
            }
            if (write(fd, resp.data(), resp.size()) != static_cast<ssize_t>(resp.size())) {
                return;
            }
        }
    });
    const std::vector<char> req(kRequestBytes, 'q');
    std::vector<char> resp(kResponseBytes);
    std::vector<double> lat_us;
    lat_us.reserve(1 << 20);
    for (auto _ : state) {
        const auto t0 = Clock::now();
        if (write(sv[0], req.data(), req.size()) != static_cast<ssize_t>(req.size())) {
            state.SkipWithError("write");
            break;
        }
        size_t got = 0;
        while (got < resp.size()) {
            const ssize_t n = read(sv[0], resp.data() + got, resp.size() - got);
            if (n <= 0) {
                break;
            }
            got += static_cast<size_t>(n);
        }
        lat_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
    }
    close(sv[0]);
    echo.join();
    close(sv[1]);
    report(state, &lat_us);
}
BENCHMARK(BM_RawUnixPingPong)->UseRealTime()->MinTime(2.0);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    World world;
    if (world.up()) {
        g_world = &world;
    } else {
        fprintf(stderr, "session_bench: the session benchmarks are skipped: %s\n",
                world.why.c_str());
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_world = nullptr;
    world.down();
    return 0;
}
