// Adding a full chassis through the real event path: portd-lite announces every device of
// the full chassis model (108 devices of 64 ports, system type 20) through mgmtd-lite to
// the daemon, which writes the hardware through the simulated register library and opens
// its SWID context on the simulated fabric; each add is answered before the next is sent.
// An iteration is one run of portd-lite over all devices; the first iteration also does
// the system part, the later ones replace the records.  Reported: devices and register
// accesses (from the library's journal) per iteration, accesses per device, and time per
// device.
//
// Runs as root: the daemon's socket and platform directories are fixed, so the programs
// run in a private mount namespace with their own /vtmp and /var/opt.
#include <benchmark/benchmark.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

#include "fabric.h"
#include "sandbox.h"
#include "stand_ins.h"

namespace {

using Clock = std::chrono::steady_clock;

const std::string kModel = std::string(OVD_MODELS_DIR) + "/chassis_full.model";
const char kSystemType[] = "20";

size_t count_lines(const std::string &path)
{
    const std::string text = ovd_test::read_file(path);
    size_t n = 0;
    for (char c : text) {
        n += c == '\n' ? 1 : 0;
    }
    return n;
}

struct World {
    std::string dir;
    std::string journal;
    std::unique_ptr<ovd_test::Fabric> fabric;
    std::unique_ptr<ovd_test::MgmtdLite> lite;
    ovd_test::Child daemon;
    std::string why;

    bool up()
    {
        if (!ovd_test::enter_sandbox(&why)) {
            return false;
        }
        if (!ovd_test::Fabric::available(&why)) {
            return false;
        }
        char tmpl[] = "/tmp/device_add_bench.XXXXXX";
        if (mkdtemp(tmpl) == nullptr) {
            why = "mkdtemp";
            return false;
        }
        dir = tmpl;
        fabric = std::make_unique<ovd_test::Fabric>();
        if (!fabric->start(&why)) {
            return false;
        }
        // The demo configuration, as a chassis of the model's system type.
        std::string config = ovd_test::read_file(OVD_DEMO_DIR "/mgmtd-lite.conf");
        const std::string type_node = "/system/chassis/ha/state/system_type_mirror";
        const size_t at = config.find(type_node);
        if (at == std::string::npos) {
            why = "no system type in the demo configuration";
            return false;
        }
        config.replace(at, config.find('\n', at) - at,
                       type_node + " uint32 " + std::string(kSystemType));
        ovd_test::write_file(dir + "/db.conf", config);
        lite = std::make_unique<ovd_test::MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, dir, "");
        if (!lite->start({"--config", dir + "/db.conf"})) {
            why = "mgmtd-lite did not start:\n" + lite->log();
            return false;
        }
        mkdir("/var/opt/vqdreg", 0755);
        journal = dir + "/journal.log";
        ovd_test::write_file("/var/opt/vqdreg/vqdreg.conf",
                             "model " + kModel + "\njournal " + journal + "\n");
        const std::vector<std::string> env = fabric->client_env_preloaded({OVD_UMAD_BRIDGE});
        if (!daemon.start({"/bin/sh", "-c", "cd '" + fabric->dir() + "' && exec " OVD_BIN}, env) ||
            !lite->wait_for_log("event /ib/events/init-done from 'IB Daemon'")) {
            why = "the daemon did not come up:\n" + lite->log();
            return false;
        }
        return true;
    }

    void down()
    {
        if (daemon.running()) {
            daemon.signal(SIGTERM);
            daemon.wait();
        }
        lite.reset();
        fabric.reset();
        if (!dir.empty()) {
            std::filesystem::remove_all(dir);
        }
    }
};

World *g_world = nullptr;

void BM_AddFullChassis(benchmark::State &state)
{
    if (g_world == nullptr) {
        state.SkipWithError("no daemon");
        return;
    }
    size_t devices = 0;
    size_t accesses = 0;
    double seconds = 0;
    for (auto _ : state) {
        const size_t before = count_lines(g_world->journal);
        const auto start = Clock::now();
        const ovd_test::CtlResult r = g_world->lite->run_client(
            PORTD_LITE_BIN, {"--model", kModel, "--system-type", kSystemType, "--timeout", "60",
                             "add-devices"});
        seconds += std::chrono::duration<double>(Clock::now() - start).count();
        if (r.code != 0) {
            state.SkipWithError(("portd-lite failed: " + r.err + r.out).c_str());
            return;
        }
        std::istringstream out(r.out);
        for (std::string line; std::getline(out, line);) {
            devices += line.find(": status 0") != std::string::npos ? 1 : 0;
        }
        accesses += count_lines(g_world->journal) - before;
    }
    const double iterations = static_cast<double>(state.iterations());
    state.counters["devices"] = static_cast<double>(devices) / iterations;
    state.counters["register_accesses"] = static_cast<double>(accesses) / iterations;
    state.counters["accesses_per_device"] =
        devices > 0 ? static_cast<double>(accesses) / static_cast<double>(devices) : 0;
    state.counters["ms_per_device"] =
        devices > 0 ? seconds * 1000 / static_cast<double>(devices) : 0;
}
BENCHMARK(BM_AddFullChassis)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    World world;
    if (world.up()) {
        g_world = &world;
    } else {
        fprintf(stderr, "device_add_bench: skipped: %s\n", world.why.c_str());
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    g_world = nullptr;
    world.down();
    return 0;
}
