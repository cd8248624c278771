// The daemon's start with the stored configuration of a full chassis: every port of the
// full chassis model (108 devices of 64 ports) with all six leaves set, replayed before
// the daemon announces itself.  An iteration starts mgmtd-lite with that configuration
// and the daemon, and times the daemon's start up to its init-done; the same start with
// no port configuration at all is the peer, measured in the same iteration, so that the
// ratio tells what the replay costs whatever the machine.  Reported besides: the daemon's
// CPU time and peak resident size once it announced itself (from /proc).  The daemon logs
// to a syslog socket at notice level, as on a switch.
//
// Runs as root: the daemon's socket directory is fixed, so the programs run in a private
// mount namespace with their own /vtmp.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sandbox.h"
#include "stand_ins.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string kModel = std::string(OVD_MODELS_DIR) + "/chassis_full.model";
const char kSystemType[] = "20";

const char kBase[] =
    "/system/hostname                            hostname  replay-switch\n"
    "/system/chassis/sys_disp_str                string    replay bench\n"
    "/system/chassis/ha/state/system_type_mirror uint32    20\n"
    "/system/chassis/config/profile              uint8     0\n";

struct StartCost {
    double seconds = 0;
    double cpu_ms = 0;
    double peak_rss_kb = 0;
};

// CPU time (user and system) of a process, in milliseconds.
double cpu_ms_of(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(text.substr(close + 2));
    std::vector<std::string> f;
    for (std::string w; fields >> w;) {
        f.push_back(w);
    }
    // After the name: state is field 3 of the line, utime 14 and stime 15.
    if (f.size() < 13) {
        return 0;
    }
    const double ticks = std::stod(f[11]) + std::stod(f[12]);
    return ticks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double peak_rss_kb_of(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stod(line.substr(6));
        }
    }
    return 0;
}

struct World {
    // A syslog daemon to log to, as on a switch: without one every line would pay for a
    // failed connect.
    std::unique_ptr<ovd_test::SyslogReceiver> syslog;
    std::string dir;
    std::string full_config;
    size_t ports = 0;
    std::string why;

    bool up()
    {
        if (!ovd_test::enter_sandbox(&why)) {
            return false;
        }
        syslog = std::make_unique<ovd_test::SyslogReceiver>();
        // A switch logs notices and above; the replay's trace lines are debugging ones.
        ovd_test::set_kfs_link("sysloglevel", "5");
        char tmpl[] = "/tmp/config_replay_bench.XXXXXX";
        if (mkdtemp(tmpl) == nullptr) {
            why = "mkdtemp";
            return false;
        }
        dir = tmpl;
        // The ports as the port manager's stand-in names them for the model.
        ovd_test::MgmtdLite shower(MGMTD_LITE_BIN, MGMTCTL_BIN, dir, "");
        const ovd_test::CtlResult shown = shower.run_client(
            PORTD_LITE_BIN, {"--model", kModel, "--system-type", kSystemType, "show"});
        if (shown.code != 0) {
            why = "portd-lite show failed: " + shown.err;
            return false;
        }
        full_config = kBase;
        std::istringstream in(shown.out);
        for (std::string name, type, value; in >> name >> type >> value;) {
            if (name.rfind("ifindex_", 0) != 0 || name.rfind("ifindex_neighbor", 0) == 0) {
                continue;
            }
            const std::string node = "/ib/config/externalports/" + value + "/";
            full_config += node + "enable uint8 1\n" + node + "speed uint8 255\n" + node +
                           "width uint8 255\n" + node + "mtu string 4K\n" + node +
                           "op_vls uint8 255\n" + node + "fec string -1\n";
            ++ports;
        }
        if (ports == 0) {
            why = "the model has no ports";
            return false;
        }
        return true;
    }

    // One start of the daemon against a stand-in loaded with `config`.
    bool start_once(const std::string &config, StartCost *ret_cost)
    {
        const std::string run_dir = dir + "/run";
        std::filesystem::remove_all(run_dir);
        std::filesystem::create_directories(run_dir);
        ovd_test::write_file(run_dir + "/db.conf", config);
        ovd_test::MgmtdLite lite(MGMTD_LITE_BIN, MGMTCTL_BIN, run_dir, "");
        if (!lite.start({"--config", run_dir + "/db.conf"})) {
            why = "mgmtd-lite did not start:\n" + lite.log();
            return false;
        }
        ovd_test::Child daemon;
        const auto start = Clock::now();
        if (!daemon.start({OVD_BIN}) ||
            !lite.wait_for_log("event /ib/events/init-done from 'IB Daemon'",
                               std::chrono::milliseconds(120000))) {
            why = "the daemon did not come up:\n" + lite.log();
            return false;
        }
        ret_cost->seconds = std::chrono::duration<double>(Clock::now() - start).count();
        ret_cost->cpu_ms = cpu_ms_of(daemon.pid());
        ret_cost->peak_rss_kb = peak_rss_kb_of(daemon.pid());
        daemon.signal(SIGTERM);
        daemon.wait();
        return true;
    }

    void down()
    {
        syslog.reset();
        if (!dir.empty()) {
            std::filesystem::remove_all(dir);
        }
    }
};

World *g_world = nullptr;

void BM_StartWithFullChassisConfiguration(benchmark::State &state)
{
    if (g_world == nullptr) {
        state.SkipWithError("no sandbox");
        return;
    }
    StartCost full_sum;
    StartCost empty_sum;
    for (auto _ : state) {
        StartCost full;
        StartCost empty;
        if (!g_world->start_once(g_world->full_config, &full) ||
            !g_world->start_once(kBase, &empty)) {
            state.SkipWithError(g_world->why.c_str());
            return;
        }
        state.SetIterationTime(full.seconds);
        full_sum.seconds += full.seconds;
        full_sum.cpu_ms += full.cpu_ms;
        full_sum.peak_rss_kb += full.peak_rss_kb;
        empty_sum.seconds += empty.seconds;
        empty_sum.cpu_ms += empty.cpu_ms;
        empty_sum.peak_rss_kb += empty.peak_rss_kb;
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["ports"] = static_cast<double>(g_world->ports);
    state.counters["bindings"] = static_cast<double>(g_world->ports * 6);
    state.counters["start_ms"] = full_sum.seconds * 1000 / n;
    state.counters["empty_start_ms"] = empty_sum.seconds * 1000 / n;
    state.counters["start_ratio"] = empty_sum.seconds > 0 ? full_sum.seconds / empty_sum.seconds : 0;
    state.counters["cpu_ms"] = full_sum.cpu_ms / n;
    state.counters["empty_cpu_ms"] = empty_sum.cpu_ms / n;
    state.counters["peak_rss_kb"] = full_sum.peak_rss_kb / n;
    state.counters["empty_peak_rss_kb"] = empty_sum.peak_rss_kb / n;
}
BENCHMARK(BM_StartWithFullChassisConfiguration)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    World world;
    if (world.up()) {
        g_world = &world;
    } else {
        fprintf(stderr, "config_replay_bench: skipped: %s\n", world.why.c_str());
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_world = nullptr;
    world.down();
    return 0;
}
