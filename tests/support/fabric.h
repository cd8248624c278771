// A simulated InfiniBand fabric for one test: its own simulator instance (and, when asked,
// a subnet manager) in a scratch directory, clients run under the simulator's preload,
// and the simulator's console for fault injection.  Everything stops in the destructor;
// the processes also die with the test program if it is killed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace ovd_test {

struct FabricOptions {
    // Topology file; empty for the bundled one (tests/fabric/topology.net).
    std::string topology;
    // The node clients attach as ("sw1": the managed switch, at its port 0).
    std::string attach = "sw1";
    // Start a subnet manager and wait until it has brought the subnet up.
    bool with_sm = false;
    // The node the subnet manager attaches as; empty for `attach`.
    std::string sm_node;
};

struct FabricResult {
    int status = -1;   // exit status, 128+signal, -1 when it could not run or timed out
    std::string out;   // standard output and standard error, interleaved
};

class Fabric {
public:
    explicit Fabric(FabricOptions options = {});
    ~Fabric();
    Fabric(const Fabric &) = delete;
    Fabric &operator=(const Fabric &) = delete;

    // Whether this machine can run the simulator at all (its programs and preload are
    // installed).  A test skips when it can't; once it can, a failure to start is a fault.
    static bool available(std::string *ret_why);

    // Starts the simulator, waits until it answers, and the subnet manager when asked.
    // False with a reason (and everything started stopped again) on failure.
    bool start(std::string *ret_why);
    // Starts a subnet manager on a running simulator (if there is none yet).
    bool start_sm(std::string *ret_why);
    // Stops the subnet manager only (it leaves the fabric as it was).
    void stop_sm();
    // Stops the subnet manager, then the simulator, and removes the scratch directory.
    void stop();

    bool running() const { return sim_pid_ > 0; }
    const std::string &dir() const { return dir_; }
    const std::string &sockname() const { return sockname_; }
    const std::string &topology() const { return topology_; }

    // The environment (VAR=value) under which a process is a client of this fabric,
    // attached as `node` (empty for the default attach node).  Run clients with their
    // working directory in dir().
    std::vector<std::string> client_env(const std::string &node = "") const;

    // Runs a program (looked up in PATH and the sbin folders) as a client, in dir(),
    // and gives its output.  A client that outlives the time-out is killed.
    FabricResult run(const std::vector<std::string> &argv, const std::string &node = "",
                     std::chrono::milliseconds timeout = std::chrono::milliseconds(20000));
    // The same, with our own preloads (absolute paths) stacked in front of the simulator's.
    // A sanitizer runtime this process runs with goes first of all, as it must.
    FabricResult run_preloaded(const std::vector<std::string> &argv,
                               const std::vector<std::string> &preload_first,
                               const std::string &node = "",
                               std::chrono::milliseconds timeout = std::chrono::milliseconds(20000));
    std::vector<std::string> client_env_preloaded(const std::vector<std::string> &preload_first,
                                                  const std::string &node = "") const;
    FabricResult smpquery(const std::vector<std::string> &args, const std::string &node = "");
    FabricResult perfquery(const std::vector<std::string> &args, const std::string &node = "");

    // Sends one line to the simulator's console and gives its answer (prompts removed);
    // false when the simulator did not answer.
    bool console(const std::string &command, std::string *ret_answer = nullptr);
    // Takes the link at a node's port down (Polling on both ends) and back up.  False when
    // the console refuses (unknown node or port).
    bool link_down(const std::string &node, int port);
    bool link_up(const std::string &node, int port);

    // The value of a "Field:.....value" line of smpquery/perfquery output, or "".
    static std::string field(const std::string &out, const std::string &name);

private:
    bool start_sim(std::string *ret_why);
    FabricResult run_env(const std::vector<std::string> &argv, const std::vector<std::string> &env,
                         std::chrono::milliseconds timeout);
    bool wait_for_text(const std::string &path, const std::string &needle, pid_t pid,
                       std::chrono::milliseconds timeout);

    FabricOptions options_;
    std::string topology_;
    std::string dir_;
    std::string sockname_;
    pid_t sim_pid_ = -1;
    pid_t sm_pid_ = -1;
    int ctl_fd_ = -1;
};

}  // namespace ovd_test
