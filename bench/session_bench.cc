// One-binding gets over the real management socket, answered by mgmtd-lite from its own
// database and by the daemon (through mgmtd-lite: a state node it answers empty, and a
// port's speed limit, with the daemon logging at level 6 as on a switch and at 7, debug),
// beside floors measured in the same run: a raw Unix-socket ping-pong of the same sizes,
// and the same bytes over two hops (client, relay, server), the shape of a request that
// mgmtd passes on to the daemon, once with the three parties as threads of one process and
// once as three processes, as the daemon's path has them.  Each benchmark reports its
// requests per second and the latency percentiles.  The ratio to read is that of the
// daemon's limit get at level 6 to the two-hop floor of processes, which
// BM_LimitGetAgainstTwoHopFloor measures in alternating batches (against the threads'
// floor, which saves the address-space switches, it is lower).
//
// Runs as root: the daemon's socket directory is fixed, so the programs run in a private
// mount namespace with their own /vtmp.
#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <sys/wait.h>
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
#include "daemon_rig.h"
#include "sandbox.h"
#include "stand_ins.h"

namespace {

using Clock = std::chrono::steady_clock;

// Bytes on the wire of the get and of its answer by mgmtd-lite, as the session logs them:
// the ping-pong sends the same.
constexpr size_t kRequestBytes = 134;
constexpr size_t kResponseBytes = 164;

// The registration and configuration of the daemon in its rig: the bench node, and the
// limits of the external ports.
const char kRegistration[] =
    "client IB Daemon\n"
    "/ib/state/bench/empty\n"
    "/ib/state/externalports/*\n"
    "/ib/state/externalports/*/port_max_speed_limit\n";
// Device 1, local port 5.
const char kLimitNode[] = "/ib/state/externalports/69/port_max_speed_limit";

struct World {
    std::string dir;
    std::unique_ptr<ovd_test::SyslogReceiver> syslog;
    std::unique_ptr<ovd_test::DaemonRig> rig;
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
        // A syslog daemon to log to, as on a switch, at the switch's level to begin with.
        syslog = std::make_unique<ovd_test::SyslogReceiver>();
        ovd_test::set_kfs_link("sysloglevel", "6");
        rig = std::make_unique<ovd_test::DaemonRig>(dir);
        if (!ovd_test::Fabric::available(&why) || !rig->start_fabric(&why)) {
            return false;
        }
        const std::string config =
            ovd_test::read_file(OVD_DEMO_DIR "/mgmtd-lite.conf") + "/bench/value uint32 42\n";
        // The stand-in's own log of each query (four lines a forwarded one) is left out: the
        // relay being measured is the management daemon's part, not its diagnostics.
        rig->start(config, kRegistration, "builtin:standalone36", 2, {"--quiet-queries"});
        if (!rig->daemon().running() ||
            rig->lite().log_lines("event /ib/events/init-done from 'IB Daemon'").empty()) {
            why = "the daemon did not come up:\n" + rig->lite().log();
            return false;
        }
        if (rig->portd({"add-devices", "1"}).code != 0) {
            why = "the device was not added:\n" + rig->lite().log();
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
        rig.reset();
        syslog.reset();
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

// One get over the session; false unless it succeeded with a binding, or without one.
bool get_once(const char *name, bool expect_binding)
{
    bn_binding *binding = nullptr;
    uint32 code = 0;
    const int err = mdc_get_binding(g_world->mcc, &code, nullptr, false, &binding, name, nullptr);
    const bool ok = err == 0 && code == 0 && (binding != nullptr) == expect_binding;
    bn_binding_free(&binding);
    return ok;
}

// Sets the platform's syslog filter level for the daemon and waits until it has seen it:
// the daemon looks at the link at most once a second, on a log line.
void set_daemon_log_level(int64_t level)
{
    ovd_test::set_kfs_link("sysloglevel", std::to_string(level));
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    if (g_world != nullptr) {
        get_once(kLimitNode, true);
    }
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
        const bool ok = get_once(name, expect_binding);
        lat_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        if (!ok) {
            state.SkipWithError("unexpected answer");
            break;
        }
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

// A port's speed limit, answered by the daemon from its tables, with the platform's syslog
// filter at the level given: 6 as on a production switch, 7 (debug) as without the link.
void BM_GetLimitAnsweredByDaemon(benchmark::State &state)
{
    set_daemon_log_level(state.range(0));
    get_loop(state, kLimitNode, true);
    ovd_test::set_kfs_link("sysloglevel", "6");
}
BENCHMARK(BM_GetLimitAnsweredByDaemon)->Arg(6)->Arg(7)->UseRealTime()->MinTime(2.0);

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

// Reads exactly `want` bytes; false when the peer is gone.
bool read_full(int fd, char *buf, size_t want)
{
    size_t got = 0;
    while (got < want) {
        const ssize_t n = read(fd, buf + got, want - got);
        if (n <= 0) {
            return false;
        }
        got += static_cast<size_t>(n);
    }
    return true;
}

// The two-hop floor in one process: the client's request goes to a relay, which passes it
// to a server and its answer back, each hop a Unix stream socket and each party its own
// thread.
void BM_RawUnixTwoHops(benchmark::State &state)
{
    int front[2];
    int back[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, front) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM, 0, back) != 0) {
        state.SkipWithError("socketpair");
        return;
    }
    std::thread relay([in = front[1], out = back[0]] {
        std::vector<char> req(kRequestBytes);
        std::vector<char> resp(kResponseBytes);
        while (read_full(in, req.data(), req.size()) &&
               write(out, req.data(), req.size()) == static_cast<ssize_t>(req.size()) &&
               read_full(out, resp.data(), resp.size()) &&
               write(in, resp.data(), resp.size()) == static_cast<ssize_t>(resp.size())) {
        }
        close(out);
    });
    std::thread server([fd = back[1]] {
        std::vector<char> req(kRequestBytes);
        const std::vector<char> resp(kResponseBytes, 'r');
        while (read_full(fd, req.data(), req.size()) &&
               write(fd, resp.data(), resp.size()) == static_cast<ssize_t>(resp.size())) {
        }
    });
    const std::vector<char> req(kRequestBytes, 'q');
    std::vector<char> resp(kResponseBytes);
    std::vector<double> lat_us;
    lat_us.reserve(1 << 20);
    for (auto _ : state) {
        const auto t0 = Clock::now();
        if (write(front[0], req.data(), req.size()) != static_cast<ssize_t>(req.size()) ||
            !read_full(front[0], resp.data(), resp.size())) {
            state.SkipWithError("two hops");
            break;
        }
        lat_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
    }
    close(front[0]);
    relay.join();
    server.join();
    close(front[1]);
    close(back[1]);
    report(state, &lat_us);
}
BENCHMARK(BM_RawUnixTwoHops)->UseRealTime()->MinTime(2.0);

// The two hops with the relay and the server in processes of their own, as the daemon's
// path has them (mgmtd-lite and the daemon).  The children only read and write buffers
// made before the fork.
class TwoHopProcesses {
public:
    bool start()
    {
        int front[2];
        int back[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, front) != 0) {
            return false;
        }
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, back) != 0) {
            close(front[0]);
            close(front[1]);
            return false;
        }
        std::fill(server_resp_, server_resp_ + kResponseBytes, 'r');
        std::fill(req_, req_ + kRequestBytes, 'q');
        relay_ = fork();
        if (relay_ == 0) {
            close(front[0]);
            close(back[1]);
            while (read_full(front[1], relay_req_, kRequestBytes) &&
                   write(back[0], relay_req_, kRequestBytes) ==
                       static_cast<ssize_t>(kRequestBytes) &&
                   read_full(back[0], relay_resp_, kResponseBytes) &&
                   write(front[1], relay_resp_, kResponseBytes) ==
                       static_cast<ssize_t>(kResponseBytes)) {
            }
            _exit(0);
        }
        server_ = relay_ > 0 ? fork() : -1;
        if (server_ == 0) {
            close(front[0]);
            close(front[1]);
            close(back[0]);
            while (read_full(back[1], server_req_, kRequestBytes) &&
                   write(back[1], server_resp_, kResponseBytes) ==
                       static_cast<ssize_t>(kResponseBytes)) {
            }
            _exit(0);
        }
        fd_ = front[0];
        close(front[1]);
        close(back[0]);
        close(back[1]);
        return relay_ > 0 && server_ > 0;
    }

    // One request there and back.
    bool round_trip()
    {
        return write(fd_, req_, kRequestBytes) == static_cast<ssize_t>(kRequestBytes) &&
               read_full(fd_, resp_, kResponseBytes);
    }

    ~TwoHopProcesses()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
        for (pid_t child : {relay_, server_}) {
            if (child > 0) {
                waitpid(child, nullptr, 0);
            }
        }
    }

private:
    int fd_ = -1;
    pid_t relay_ = -1;
    pid_t server_ = -1;
    char req_[kRequestBytes];
    char resp_[kResponseBytes];
    char relay_req_[kRequestBytes];
    char relay_resp_[kResponseBytes];
    char server_req_[kRequestBytes];
    char server_resp_[kResponseBytes];
};

// The floor the daemon's path is held to.
void BM_RawUnixTwoHopsProcesses(benchmark::State &state)
{
    TwoHopProcesses hops;
    if (!hops.start()) {
        state.SkipWithError("fork");
        return;
    }
    std::vector<double> lat_us;
    lat_us.reserve(1 << 20);
    for (auto _ : state) {
        const auto t0 = Clock::now();
        if (!hops.round_trip()) {
            state.SkipWithError("two hops");
            break;
        }
        lat_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
    }
    report(state, &lat_us);
}
BENCHMARK(BM_RawUnixTwoHopsProcesses)->UseRealTime()->MinTime(2.0);

// The ratio to read: the daemon's limit get against the two-hop floor of processes, taken
// in alternating batches so that both see the same machine (a shared machine's load comes
// and goes within seconds, and two benchmarks run one after the other can differ by half).
// Reports each side's requests per second and daemon_qps / floor_qps as "ratio".
void BM_LimitGetAgainstTwoHopFloor(benchmark::State &state)
{
    constexpr int kBatch = 1000;
    if (g_world == nullptr) {
        state.SkipWithError("no session");
        return;
    }
    TwoHopProcesses hops;
    if (!hops.start()) {
        state.SkipWithError("fork");
        return;
    }
    set_daemon_log_level(state.range(0));

    double daemon_s = 0;
    double floor_s = 0;
    const char *failure = nullptr;
    for (auto _ : state) {
        auto t0 = Clock::now();
        for (int i = 0; i < kBatch && failure == nullptr; ++i) {
            failure = get_once(kLimitNode, true) ? nullptr : "unexpected answer";
        }
        daemon_s += std::chrono::duration<double>(Clock::now() - t0).count();
        t0 = Clock::now();
        for (int i = 0; i < kBatch && failure == nullptr; ++i) {
            failure = hops.round_trip() ? nullptr : "two hops";
        }
        floor_s += std::chrono::duration<double>(Clock::now() - t0).count();
        if (failure != nullptr) {
            state.SkipWithError(failure);
            break;
        }
    }
    ovd_test::set_kfs_link("sysloglevel", "6");
    const double n = static_cast<double>(state.iterations()) * kBatch;
    if (failure == nullptr && daemon_s > 0 && floor_s > 0) {
        state.counters["daemon_qps"] = n / daemon_s;
        state.counters["floor_qps"] = n / floor_s;
        state.counters["ratio"] = floor_s / daemon_s;
    }
}
BENCHMARK(BM_LimitGetAgainstTwoHopFloor)->Arg(6)->Arg(7)->UseRealTime()->MinTime(4.0);

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
