// The whole rig the daemon runs in: the stand-in management daemon with a configuration
// and a registration file, the register library's configuration with a switch model and
// a journal of its accesses, a simulated fabric for the management datagrams, and the
// real daemon as a client of all three.  Tests drive it through the stand-ins' clients.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fabric.h"
#include "sandbox.h"
#include "stand_ins.h"

namespace ovd_test {

// One line of the register journal: "SEQ REG CMD dev=N swid=S key=K status=ST f=0x.. ...".
struct RegisterAccess {
    std::string reg;
    std::string cmd;
    std::map<std::string, std::string> fields;

    // A numeric field, or all ones when the line has none of that name.
    unsigned long long num(const std::string &name) const;
};

std::vector<RegisterAccess> parse_register_journal(const std::string &text);

// The folder of the bundled switch models.
std::string register_models_dir();

class DaemonRig {
public:
    // Files live in `dir`, which the caller made and removes.
    explicit DaemonRig(std::string dir);
    ~DaemonRig();
    DaemonRig(const DaemonRig &) = delete;
    DaemonRig &operator=(const DaemonRig &) = delete;

    // Starts the fabric; false with the reason when it can't.
    bool start_fabric(std::string *ret_why);
    // Replaces the fabric by one started with `options` (a topology of its own, the node
    // the daemon attaches as), before start(): the register library's devices are then
    // the simulator's nodes by `device_map` ("1=chip1 13=chip13"), their links following
    // PAOS.  False with the reason when it can't start.
    bool use_fabric(const FabricOptions &options, const std::string &device_map,
                    std::string *ret_why);
    // use_fabric on the chips of a chassis model: the topology portd-lite prints for it
    // (a switch "chip<DEVID>" a device, their internal ports cabled), the daemon attached
    // as the master chip, and a subnet manager when asked.
    bool use_chassis_fabric(const std::string &model, const std::string &system_type,
                            unsigned master, bool with_sm, std::string *ret_why);
    // mgmtd-lite with `db_config` (and `registration`, when not empty, with a forward
    // time-out of `forward_timeout_s`) and `lite_args`, the register library on `model` with
    // a journal, and the daemon; returns once the daemon announced itself.  Failures are
    // test failures.
    void start(const std::string &db_config, const std::string &registration,
               const std::string &model, int forward_timeout_s = 2,
               const std::vector<std::string> &lite_args = {});
    // Ends the daemon (SIGTERM) and the stand-ins.
    void stop();

    MgmtdLite &lite() { return *lite_; }
    Fabric &fabric() { return *fabric_; }
    Child &daemon() { return daemon_; }
    const std::string &journal_path() const { return journal_; }

    // Changes the simulated switch behind the daemon's back before its next register
    // access: model port statements, one a line ("port 1 5 admin_mtu=2048").
    void poke(const std::string &statements);

    // Moves the daemon's monotonic clock (its uptime, its timers) forward by `ms`: the
    // daemon runs with a preloaded clock that reads its offset from a file of the rig.
    void shift_clock(long long ms);

    // The port manager's stand-in, run to its end.
    CtlResult portd(const std::vector<std::string> &args);
    // The register accesses after the first `from` lines of the journal.
    std::vector<RegisterAccess> journal(size_t from = 0) const;

private:
    std::string dir_;
    std::string journal_;
    std::string clock_;
    long long clock_offset_ms_ = 0;
    std::unique_ptr<MgmtdLite> lite_;
    std::unique_ptr<Fabric> fabric_;
    std::string fabric_map_;
    Child daemon_;
};

}  // namespace ovd_test

namespace ovd_test {

// A test of the daemon in its rig: the private mount namespace (once per program), a
// scratch folder, the syslog receiver and the rig with its fabric running.  Tests start
// the daemon with rig_->start(...).  Skips where the machine can't run it.
class DaemonRigTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    // The daemon's complaints so far (error and warning lines), for failure messages.
    std::string complaints() const;

    // The answer to a get of one node as "TYPE VALUE", or "" when nothing answered.
    std::string node(const std::string &name);
    // Sends an event through mgmtctl and gives the event `answer` that comes back (as
    // mgmtctl wait-event prints it).
    CtlResult ask(const std::vector<std::string> &event_args, const std::string &answer);
    // The register accesses after the first `from`, once there are `count` of them (or
    // after five seconds).
    std::vector<RegisterAccess> journal_after(size_t from, size_t count);

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    std::string dir_;
    std::unique_ptr<SyslogReceiver> receiver_;
    std::unique_ptr<DaemonRig> rig_;
};

}  // namespace ovd_test
