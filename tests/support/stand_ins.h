// The stand-in management daemon and its command-line client as child processes of a
// test: files for their output, a wait for a text to show in a file, and one run of the
// client with its exit code and output.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "sandbox.h"

namespace ovd_test {

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &text);

// Starts a child with its stdout and stderr in files.
bool start_redirected(Child *child, const std::vector<std::string> &argv,
                      const std::string &out_path, const std::string &err_path,
                      const std::vector<std::string> &extra_env = {});

// Waits until the file holds `needle`; the guard is no statement about time.
bool wait_for_text(const std::string &path, const std::string &needle,
                   std::chrono::milliseconds guard = std::chrono::milliseconds(20000));

struct CtlResult {
    int code = -1;
    std::string out;
    std::string err;
};

// One mgmtd-lite and the clients run against it.  Its files live in `dir`; with a
// non-empty `sock_root` the socket tree is put under that prefix, otherwise the real
// socket directory is used (a test in its own mount namespace).
class MgmtdLite {
public:
    MgmtdLite(std::string lite_bin, std::string ctl_bin, std::string dir, std::string sock_root);
    ~MgmtdLite();
    MgmtdLite(const MgmtdLite &) = delete;
    MgmtdLite &operator=(const MgmtdLite &) = delete;

    // Starts it with `args` after the socket option and waits until it listens.
    bool start(const std::vector<std::string> &args);
    // SIGTERM and the exit code (-1 when it didn't end).
    int stop();
    bool running() { return child_ != nullptr && child_->running(); }
    Child *child() { return child_.get(); }

    std::string log() const { return read_file(dir_ + "/lite.err"); }
    // The lines of its log that contain `needle`, in order.
    std::vector<std::string> log_lines(const std::string &needle) const;
    bool wait_for_log(const std::string &needle,
                      std::chrono::milliseconds guard = std::chrono::milliseconds(20000)) const
    {
        return wait_for_text(dir_ + "/lite.err", needle, guard);
    }

    // The client's argument vector with the socket option in front of `args`.
    std::vector<std::string> ctl_argv(const std::vector<std::string> &args) const;
    // Runs the client to its end.
    CtlResult ctl(const std::vector<std::string> &args);
    // Starts a client that stays (wait-event) and waits until it says it is waiting; the
    // result is the base of its files, <base>.out and <base>.err.
    std::string start_waiter(const std::vector<std::string> &args);
    // The i-th waiter started, in start order.
    Child *waiter(size_t i) { return waiters_.at(i).second.get(); }
    // Waits for the waiter whose files start with `base` to end; its result.
    CtlResult finish_waiter(const std::string &base,
                            std::chrono::milliseconds guard = std::chrono::milliseconds(30000));
    // Runs another client of this stand-in to its end (the port manager's stand-in, say),
    // with the socket option in front of `args` when a socket root is set.
    CtlResult run_client(const std::string &bin, const std::vector<std::string> &args);

private:
    std::string lite_bin_;
    std::string ctl_bin_;
    std::string dir_;
    std::string sock_root_;
    std::unique_ptr<Child> child_;
    std::vector<std::pair<std::string, std::unique_ptr<Child>>> waiters_;
    int runs_ = 0;
};

}  // namespace ovd_test
