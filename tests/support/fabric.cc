// The simulated fabric of the end-to-end tests.  The simulator reads its console from a
// FIFO that is held open read-write (it never sees the end of its input, on which it
// would spin) and writes its answers to a log file; a console comment is echoed once the
// lines before it are done, which is how both readiness and the end of an answer are
// recognised.  Every process started here gets SIGTERM when the test program dies.
#include "fabric.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char **environ;

namespace ovd_test {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

const char *const k_default_preload = "/usr/lib/x86_64-linux-gnu/umad2sim/libumad2sim.so";

std::string preload_path()
{
    const char *env = getenv("UMAD2SIM");
    return env != nullptr && *env != '\0' ? env : k_default_preload;
}

// The AddressSanitizer runtime this process is linked with, "" without one.  A client
// built the same way needs it ahead of every other preload.
std::string sanitizer_runtime()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const size_t at = line.find('/');
        if (at != std::string::npos && line.find("/libasan.so", at) != std::string::npos) {
            return line.substr(at);
        }
    }
    return "";
}

std::string bundled_topology()
{
    return (fs::path(OVD_SOURCE_DIR) / "tests" / "fabric" / "topology.net").string();
}

// Absolute path of a program, from PATH and the sbin folders (which a plain user's PATH
// may lack); "" when there is none.
std::string find_program(const std::string &name)
{
    std::string dirs;
    if (const char *path = getenv("PATH")) {
        dirs = path;
    }
    dirs += ":/usr/sbin:/sbin:/usr/bin:/bin";
    std::istringstream in(dirs);
    std::string dir;
    while (std::getline(in, dir, ':')) {
        if (dir.empty()) {
            continue;
        }
        const std::string candidate = dir + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return "";
}

std::string read_from(const std::string &path, size_t offset)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return "";
    }
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

size_t file_size(const std::string &path)
{
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 ? static_cast<size_t>(st.st_size) : 0;
}

// Whether a child has exited (and reaps it).
bool exited(pid_t pid, int *ret_status = nullptr)
{
    int status = 0;
    const pid_t r = waitpid(pid, &status, WNOHANG);
    if (r == pid) {
        if (ret_status != nullptr) {
            *ret_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return true;
    }
    return r < 0;
}

// Ends a child: SIGTERM, a grace period, then SIGKILL.
void end_child(pid_t *inout_pid, milliseconds grace = milliseconds(5000))
{
    if (*inout_pid <= 0) {
        return;
    }
    kill(*inout_pid, SIGTERM);
    const auto deadline = steady_clock::now() + grace;
    bool gone = false;
    while (!(gone = exited(*inout_pid)) && steady_clock::now() < deadline) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    if (!gone) {
        kill(*inout_pid, SIGKILL);
        waitpid(*inout_pid, nullptr, 0);
    }
    *inout_pid = -1;
}

// The environment of this process with the fabric's variables replaced.
std::vector<std::string> merged_env(const std::vector<std::string> &extra)
{
    std::vector<std::string> env;
    for (char **e = environ; *e != nullptr; ++e) {
        const std::string entry(*e);
        const std::string key = entry.substr(0, entry.find('='));
        const bool replaced = std::any_of(extra.begin(), extra.end(), [&](const std::string &x) {
            return x.compare(0, key.size() + 1, key + "=") == 0;
        });
        if (!replaced) {
            env.push_back(entry);
        }
    }
    env.insert(env.end(), extra.begin(), extra.end());
    return env;
}

// Starts a program with its standard input and output on the given descriptors (stderr
// joins stdout) in the given directory.  Dies with the parent.  -1 on failure.
pid_t spawn(const std::vector<std::string> &argv, const std::vector<std::string> &env,
            const std::string &cwd, int in_fd, int out_fd)
{
    std::vector<char *> args;
    for (const auto &a : argv) {
        args.push_back(const_cast<char *>(a.c_str()));
    }
    args.push_back(nullptr);
    std::vector<char *> envp;
    for (const auto &e : env) {
        envp.push_back(const_cast<char *>(e.c_str()));
    }
    envp.push_back(nullptr);

    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid != 0) {
        return pid;
    }
    // Only async-signal-safe calls from here on.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) {
        _exit(127);
    }
    if (chdir(cwd.c_str()) != 0 || dup2(in_fd, 0) < 0 || dup2(out_fd, 1) < 0 ||
        dup2(out_fd, 2) < 0) {
        _exit(127);
    }
    execve(args[0], args.data(), envp.data());
    _exit(127);
}

std::atomic<unsigned> g_instance_counter{0};

}  // namespace

Fabric::Fabric(FabricOptions options) : options_(std::move(options))
{
    topology_ = options_.topology.empty() ? bundled_topology() : options_.topology;
    if (options_.sm_node.empty()) {
        options_.sm_node = options_.attach;
    }
}

Fabric::~Fabric()
{
    stop();
}

bool Fabric::available(std::string *ret_why)
{
    std::string why;
    if (find_program("ibsim").empty()) {
        why = "ibsim is not installed (scripts/install-deps)";
    } else if (access(preload_path().c_str(), R_OK) != 0) {
        why = preload_path() + " is missing (scripts/install-deps)";
    } else if (find_program("smpquery").empty() || find_program("perfquery").empty()) {
        why = "infiniband-diags is not installed (scripts/install-deps)";
    } else if (find_program("opensm").empty()) {
        why = "opensm is not installed (scripts/install-deps)";
    }
    if (ret_why != nullptr) {
        *ret_why = why;
    }
    return why.empty();
}

bool Fabric::start(std::string *ret_why)
{
    std::string why;
    bool ok = start_sim(&why) && (!options_.with_sm || start_sm(&why));
    if (!ok) {
        stop();
    }
    if (ret_why != nullptr) {
        *ret_why = why;
    }
    return ok;
}

bool Fabric::start_sim(std::string *ret_why)
{
    if (running()) {
        return true;
    }
    const std::string ibsim = find_program("ibsim");
    if (ibsim.empty()) {
        *ret_why = "ibsim is not installed";
        return false;
    }
    if (access(topology_.c_str(), R_OK) != 0) {
        *ret_why = "no topology " + topology_;
        return false;
    }
    const char *tmp = getenv("TMPDIR");
    std::string templ = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") +
                        "/ovd-fabric-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr) {
        *ret_why = "mkdtemp: " + std::string(strerror(errno));
        return false;
    }
    dir_ = templ;
    sockname_ = "ovdfab-" + std::to_string(getpid()) + "-" +
                std::to_string(g_instance_counter.fetch_add(1));
    const std::string fifo = dir_ + "/ctl.fifo";
    const std::string log = dir_ + "/ibsim.log";
    if (mkfifo(fifo.c_str(), 0600) != 0) {
        *ret_why = "mkfifo: " + std::string(strerror(errno));
        return false;
    }
    // Read-write: the open doesn't wait for a reader, and the simulator's input never ends.
    ctl_fd_ = open(fifo.c_str(), O_RDWR | O_CLOEXEC);
    const int log_fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (ctl_fd_ < 0 || log_fd < 0) {
        *ret_why = "cannot open the console files: " + std::string(strerror(errno));
        if (log_fd >= 0) {
            close(log_fd);
        }
        return false;
    }
    sim_pid_ = spawn({ibsim, "-s", topology_}, merged_env({"IBSIM_SOCKNAME=" + sockname_}),
                     dir_, ctl_fd_, log_fd);
    close(log_fd);
    if (sim_pid_ < 0) {
        *ret_why = "fork: " + std::string(strerror(errno));
        return false;
    }
    // "Network simulator ready." comes before its sockets are bound; the echo of a
    // comment comes from the main loop, when they are.
    static const char ready[] = "# ovd-fabric-ready\n";
    if (write(ctl_fd_, ready, sizeof(ready) - 1) != static_cast<ssize_t>(sizeof(ready) - 1) ||
        !wait_for_text(log, "# ovd-fabric-ready", sim_pid_, milliseconds(10000))) {
        *ret_why = "the simulator did not come up:\n" + read_from(log, 0);
        return false;
    }
    return true;
}

bool Fabric::start_sm(std::string *ret_why)
{
    std::string why;
    const std::string opensm = find_program("opensm");
    const std::string osm_dir = dir_ + "/osm";
    int out_fd = -1;
    int null_fd = -1;
    if (!running()) {
        why = "the simulator is not running";
    } else if (sm_pid_ > 0) {
        return true;
    } else if (opensm.empty()) {
        why = "opensm is not installed";
    } else if (mkdir(osm_dir.c_str(), 0700) != 0 && errno != EEXIST) {
        why = "mkdir " + osm_dir + ": " + strerror(errno);
    } else {
        out_fd = open((osm_dir + "/opensm.out").c_str(),
                      O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (out_fd < 0 || null_fd < 0) {
            why = "cannot open opensm's output: " + std::string(strerror(errno));
        }
    }
    if (why.empty()) {
        std::vector<std::string> env = client_env(options_.sm_node);
        env.push_back("OSM_TMP_DIR=" + osm_dir);
        env.push_back("OSM_CACHE_DIR=" + osm_dir);
        // -d 2 flushes the log after every line.
        sm_pid_ = spawn({opensm, "-d", "2", "-f", osm_dir + "/osm.log"}, merged_env(env),
                        osm_dir, null_fd, out_fd);
        if (sm_pid_ < 0) {
            why = "fork: " + std::string(strerror(errno));
        } else if (!wait_for_text(osm_dir + "/osm.log", "SUBNET UP", sm_pid_,
                                  milliseconds(30000))) {
            why = "the subnet manager did not bring the subnet up:\n" +
                  read_from(osm_dir + "/opensm.out", 0);
        }
    }
    if (out_fd >= 0) {
        close(out_fd);
    }
    if (null_fd >= 0) {
        close(null_fd);
    }
    if (ret_why != nullptr) {
        *ret_why = why;
    }
    return why.empty();
}

void Fabric::stop_sm()
{
    end_child(&sm_pid_);
}

void Fabric::stop()
{
    end_child(&sm_pid_);
    end_child(&sim_pid_);
    if (ctl_fd_ >= 0) {
        close(ctl_fd_);
        ctl_fd_ = -1;
    }
    if (!dir_.empty()) {
        std::error_code ec;
        fs::remove_all(dir_, ec);
        dir_.clear();
    }
}

std::vector<std::string> Fabric::client_env(const std::string &node) const
{
    return {"LD_PRELOAD=" + preload_path(), "IBSIM_SOCKNAME=" + sockname_,
            "SIM_HOST=" + (node.empty() ? options_.attach : node)};
}

FabricResult Fabric::run(const std::vector<std::string> &argv, const std::string &node,
                         milliseconds timeout)
{
    return run_env(argv, client_env(node), timeout);
}

FabricResult Fabric::run_preloaded(const std::vector<std::string> &argv,
                                   const std::vector<std::string> &preload_first,
                                   const std::string &node, milliseconds timeout)
{
    return run_env(argv, client_env_preloaded(preload_first, node), timeout);
}

std::vector<std::string> Fabric::client_env_preloaded(const std::vector<std::string> &preload_first,
                                                      const std::string &node) const
{
    std::vector<std::string> env = client_env(node);
    std::string preload;
    const std::string asan = sanitizer_runtime();
    if (!asan.empty()) {
        preload = asan + ":";
    }
    for (const auto &p : preload_first) {
        preload += p + ":";
    }
    preload += preload_path();
    for (auto &e : env) {
        if (e.compare(0, 11, "LD_PRELOAD=") == 0) {
            e = "LD_PRELOAD=" + preload;
        }
    }
    if (!asan.empty()) {
        // The simulator's preload reads past a buffer of its own; that is not the client's.
        const char *opts = getenv("ASAN_OPTIONS");
        const std::string supp =
            (fs::path(OVD_SOURCE_DIR) / "tests" / "fabric" / "umad2sim.asan.supp")
                .string();
        env.push_back(std::string("ASAN_OPTIONS=") +
                      (opts != nullptr && *opts != '\0' ? std::string(opts) + ":" : "") +
                      "suppressions=" + supp);
    }
    return env;
}

FabricResult Fabric::run_env(const std::vector<std::string> &argv,
                             const std::vector<std::string> &env, milliseconds timeout)
{
    FabricResult result;
    if (!running() || argv.empty()) {
        result.out = "the fabric is not running";
        return result;
    }
    std::vector<std::string> args = argv;
    if (args[0].find('/') == std::string::npos) {
        args[0] = find_program(args[0]);
        if (args[0].empty()) {
            result.out = "no program " + argv[0];
            return result;
        }
    }
    int pipe_fds[2] = {-1, -1};
    const int null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null_fd < 0 || pipe2(pipe_fds, O_CLOEXEC) != 0) {
        result.out = "pipe: " + std::string(strerror(errno));
        if (null_fd >= 0) {
            close(null_fd);
        }
        return result;
    }
    pid_t pid = spawn(args, merged_env(env), dir_, null_fd, pipe_fds[1]);
    close(null_fd);
    close(pipe_fds[1]);
    if (pid < 0) {
        close(pipe_fds[0]);
        result.out = "fork: " + std::string(strerror(errno));
        return result;
    }

    // Without a simulator a client waits for ever: the time-out covers the whole run.
    const auto deadline = steady_clock::now() + timeout;
    bool timed_out = false;
    for (;;) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - steady_clock::now());
        if (left.count() <= 0) {
            timed_out = true;
            break;
        }
        pollfd pfd = {pipe_fds[0], POLLIN, 0};
        const int n = poll(&pfd, 1, static_cast<int>(std::min<long long>(left.count(), 100)));
        if (n < 0 && errno != EINTR) {
            break;
        }
        if (n <= 0) {
            continue;
        }
        char buf[4096];
        const ssize_t got = read(pipe_fds[0], buf, sizeof(buf));
        if (got <= 0) {
            break;
        }
        result.out.append(buf, static_cast<size_t>(got));
    }
    close(pipe_fds[0]);
    int status = -1;
    while (!timed_out && !exited(pid, &status)) {
        if (steady_clock::now() >= deadline) {
            timed_out = true;
            break;
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    if (timed_out) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        result.out += "\n[timed out]";
        status = -1;
    }
    result.status = status;
    return result;
}

FabricResult Fabric::smpquery(const std::vector<std::string> &args, const std::string &node)
{
    std::vector<std::string> argv = {"smpquery"};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv, node);
}

FabricResult Fabric::perfquery(const std::vector<std::string> &args, const std::string &node)
{
    std::vector<std::string> argv = {"perfquery"};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv, node);
}

bool Fabric::console(const std::string &command, std::string *ret_answer)
{
    if (!running() || command.find('\n') != std::string::npos) {
        return false;
    }
    const std::string log = dir_ + "/ibsim.log";
    const size_t start = file_size(log);
    const std::string mark = "# ovd-mark-" + std::to_string(g_instance_counter.fetch_add(1));
    const std::string lines = command + "\n" + mark + "\n";
    if (write(ctl_fd_, lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) {
        return false;
    }
    const std::string needle = mark;
    const auto deadline = steady_clock::now() + milliseconds(10000);
    std::string text;
    size_t at = std::string::npos;
    while ((at = (text = read_from(log, start)).find(needle)) == std::string::npos) {
        if (exited(sim_pid_)) {
            sim_pid_ = -1;
            return false;
        }
        if (steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    text.resize(at);
    std::string answer;
    for (size_t pos = 0; (pos = text.find("sim> ")) != std::string::npos;) {
        text.erase(pos, 5);
    }
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            answer += line + "\n";
        }
    }
    if (ret_answer != nullptr) {
        *ret_answer = answer;
    }
    return true;
}

namespace {

// The console's answers to a command it could not carry out.
bool console_refused(const std::string &answer)
{
    std::string lower = answer;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(tolower(c)); });
    for (const char *word : {"not found", "unknown", "bad ", "error", "can't", "cannot"}) {
        if (lower.find(word) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace

bool Fabric::link_down(const std::string &node, int port)
{
    std::string answer;
    return console("Unlink \"" + node + "\"[" + std::to_string(port) + "]", &answer) &&
           !console_refused(answer);
}

bool Fabric::link_up(const std::string &node, int port)
{
    std::string answer;
    return console("ReLink \"" + node + "\"[" + std::to_string(port) + "]", &answer) &&
           !console_refused(answer);
}

std::string Fabric::field(const std::string &out, const std::string &name)
{
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, name.size() + 1, name + ":") != 0) {
            continue;
        }
        size_t pos = name.size() + 1;
        while (pos < line.size() && line[pos] == '.') {
            ++pos;
        }
        return line.substr(pos);
    }
    return "";
}

bool Fabric::wait_for_text(const std::string &path, const std::string &needle, pid_t pid,
                           milliseconds timeout)
{
    const auto deadline = steady_clock::now() + timeout;
    for (;;) {
        if (read_from(path, 0).find(needle) != std::string::npos) {
            return true;
        }
        if (steady_clock::now() >= deadline) {
            return false;
        }
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            // Gone: forget it, so that stop() doesn't signal a reused pid.
            if (pid == sim_pid_) {
                sim_pid_ = -1;
            } else if (pid == sm_pid_) {
                sm_pid_ = -1;
            }
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
}

}  // namespace ovd_test
