#include "daemon_rig.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>
#include <thread>

namespace ovd_test {

using namespace std::chrono_literals;

unsigned long long RegisterAccess::num(const std::string &name) const
{
    auto found = fields.find(name);
    return found == fields.end() ? ~0ull : std::stoull(found->second, nullptr, 0);
}

std::vector<RegisterAccess> parse_register_journal(const std::string &text)
{
    std::vector<RegisterAccess> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string seq;
        RegisterAccess a;
        words >> seq >> a.reg >> a.cmd;
        if (a.cmd == "GET" && line.find(" ALL ") != std::string::npos) {
            words >> seq;
        }
        for (std::string w; words >> w;) {
            const size_t eq = w.find('=');
            if (eq != std::string::npos) {
                a.fields[w.substr(0, eq)] = w.substr(eq + 1);
            }
        }
        out.push_back(a);
    }
    return out;
}

std::string register_models_dir()
{
    return (std::filesystem::path(OVD_SOURCE_DIR) / "src" /
            "platform" / "libvqdreg" / "models")
        .string();
}

DaemonRig::DaemonRig(std::string dir)
    : dir_(std::move(dir)),
      lite_(std::make_unique<MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, dir_, "")),
      fabric_(std::make_unique<Fabric>())
{
}

DaemonRig::~DaemonRig()
{
    stop();
}

bool DaemonRig::start_fabric(std::string *ret_why)
{
    return fabric_->start(ret_why);
}

bool DaemonRig::use_fabric(const FabricOptions &options, const std::string &device_map,
                           std::string *ret_why)
{
    fabric_ = std::make_unique<Fabric>(options);
    fabric_map_ = device_map;
    return fabric_->start(ret_why);
}

bool DaemonRig::use_chassis_fabric(const std::string &model, const std::string &system_type,
                                   unsigned master, bool with_sm, std::string *ret_why)
{
    const CtlResult topology =
        portd({"--model", model, "--system-type", system_type, "fabric-topology"});
    if (topology.code != 0) {
        *ret_why = "no chassis topology: " + topology.err;
        return false;
    }
    write_file(dir_ + "/chassis.net", topology.out);
    // Every switch of the topology is the chip of its number.
    std::string device_map;
    std::istringstream lines(topology.out);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t at = line.find(" \"chip");
        if (line.rfind("Switch ", 0) == 0 && at != std::string::npos) {
            const std::string dev = line.substr(at + 6, line.find('"', at + 6) - (at + 6));
            device_map += (device_map.empty() ? "" : " ") + dev + "=chip" + dev;
        }
    }
    FabricOptions options;
    options.topology = dir_ + "/chassis.net";
    options.attach = "chip" + std::to_string(master);
    options.with_sm = with_sm;
    return use_fabric(options, device_map, ret_why);
}

void DaemonRig::start(const std::string &db_config, const std::string &registration,
                      const std::string &model, int forward_timeout_s,
                      const std::vector<std::string> &lite_args)
{
    write_file(dir_ + "/db.conf", db_config);
    std::vector<std::string> args = {"--config", dir_ + "/db.conf"};
    if (!registration.empty()) {
        write_file(dir_ + "/ib.reg", registration);
        args.insert(args.end(), {"--registration", dir_ + "/ib.reg", "--forward-timeout",
                                 std::to_string(forward_timeout_s)});
    }
    args.insert(args.end(), lite_args.begin(), lite_args.end());
    ASSERT_TRUE(lite_->start(args)) << lite_->log();
    mkdir("/var/opt/vqdreg", 0755);
    journal_ = dir_ + "/journal.log";
    std::string platform = "model " + model + "\njournal " + journal_ + "\ncontrol " + dir_ +
                           "/control\n";
    if (!fabric_map_.empty()) {
        platform += "fabric " + fabric_->dir() + "/ctl.fifo " + fabric_map_ + "\n";
    } else if (model == "builtin:standalone36") {
        // The standalone switch is the fabric's sw1: its links follow PAOS.
        platform += "fabric " + fabric_->dir() + "/ctl.fifo 1=sw1\n";
    }
    write_file("/var/opt/vqdreg/vqdreg.conf", platform);
    clock_ = dir_ + "/clock";
    clock_offset_ms_ = 0;
    write_file(clock_, std::string(sizeof(int64_t), '\0'));
    std::vector<std::string> env =
        fabric_->client_env_preloaded({OVD_TEST_CLOCK_LIB, OVD_UMAD_BRIDGE});
    env.push_back("OVD_TEST_CLOCK_FILE=" + clock_);
    ASSERT_TRUE(
        daemon_.start({"/bin/sh", "-c", "cd '" + fabric_->dir() + "' && exec " OVD_BIN}, env));
    ASSERT_TRUE(lite_->wait_for_log("event /ib/events/init-done from 'IB Daemon'"))
        << lite_->log();
}

void DaemonRig::stop()
{
    if (daemon_.running()) {
        daemon_.signal(SIGTERM);
        daemon_.wait(15s);
    }
    lite_.reset();
    fabric_.reset();
    std::filesystem::remove_all("/var/opt/vqdreg");
}

void DaemonRig::shift_clock(long long ms)
{
    clock_offset_ms_ += ms;
    const int64_t offset = clock_offset_ms_;
    const int fd = open(clock_.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0) << clock_;
    EXPECT_EQ(static_cast<ssize_t>(sizeof(offset)), pwrite(fd, &offset, sizeof(offset), 0));
    close(fd);
}

void DaemonRig::poke(const std::string &statements)
{
    write_file(dir_ + "/control.new", statements);
    std::filesystem::rename(dir_ + "/control.new", dir_ + "/control");
}

CtlResult DaemonRig::portd(const std::vector<std::string> &args)
{
    return lite_->run_client(PORTD_LITE_BIN, args);
}

std::vector<RegisterAccess> DaemonRig::journal(size_t from) const
{
    std::vector<RegisterAccess> all = parse_register_journal(read_file(journal_));
    return from < all.size() ? std::vector<RegisterAccess>(all.begin() + from, all.end())
                             : std::vector<RegisterAccess>();
}

}  // namespace ovd_test

namespace ovd_test {

void DaemonRigTest::SetUpTestSuite()
{
    std::string why;
    sandboxed_ = enter_sandbox(&why);
    why_ = why;
}

void DaemonRigTest::SetUp()
{
    std::string why;
    if (!sandboxed_) {
        GTEST_SKIP() << "no private mount namespace: " << why_;
    }
    if (!Fabric::available(&why)) {
        GTEST_SKIP() << "no fabric simulator: " << why;
    }
    char tmpl[] = "/tmp/ovd_rig_test.XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    receiver_ = std::make_unique<SyslogReceiver>();
    ASSERT_TRUE(receiver_->ok());
    rig_ = std::make_unique<DaemonRig>(dir_);
    ASSERT_TRUE(rig_->start_fabric(&why)) << why;
}

void DaemonRigTest::TearDown()
{
    rig_.reset();
    receiver_.reset();
    if (!dir_.empty()) {
        std::filesystem::remove_all(dir_);
    }
}

std::string DaemonRigTest::node(const std::string &name)
{
    const CtlResult r = rig_->lite().ctl({"get", name});
    const size_t at = r.out.find(name + " ");
    if (r.code != 0 || at == std::string::npos) {
        return "";
    }
    std::string rest = r.out.substr(at + name.size());
    rest = rest.substr(rest.find_first_not_of(' '));
    rest = rest.substr(0, rest.find('\n'));
    // "TYPE   VALUE" with the columns collapsed.
    const size_t gap = rest.find(' ');
    if (gap == std::string::npos) {
        return rest;
    }
    return rest.substr(0, gap) + " " + rest.substr(rest.find_first_not_of(' ', gap));
}

CtlResult DaemonRigTest::ask(const std::vector<std::string> &event_args, const std::string &answer)
{
    const std::string waiter = rig_->lite().start_waiter({"wait-event", answer, "--timeout", "20"});
    const CtlResult sent = rig_->lite().ctl(event_args);
    EXPECT_EQ(0, sent.code) << sent.err;
    return rig_->lite().finish_waiter(waiter);
}

std::vector<RegisterAccess> DaemonRigTest::journal_after(size_t from, size_t count)
{
    std::vector<RegisterAccess> acc;
    for (int i = 0; i < 500 && (acc = rig_->journal(from)).size() < count; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    return acc;
}

std::string DaemonRigTest::complaints() const
{
    std::string out;
    for (const std::string &line : receiver_->lines()) {
        if (line.find("[ovd.ERR]") != std::string::npos ||
            line.find("[ovd.WARNING]") != std::string::npos) {
            out += line;
        }
    }
    return out;
}

}  // namespace ovd_test
