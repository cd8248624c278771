#include "stand_ins.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

namespace ovd_test {

using namespace std::chrono_literals;

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream out(path);
    out << text;
}

bool start_redirected(Child *child, const std::vector<std::string> &argv,
                      const std::string &out_path, const std::string &err_path,
                      const std::vector<std::string> &extra_env)
{
    fflush(stdout);
    fflush(stderr);
    const int out_fd = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const int err_fd = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (out_fd < 0 || err_fd < 0) {
        return false;
    }
    // The descriptors are the test's own for the moment of the fork.
    const int saved_out = dup(1);
    const int saved_err = dup(2);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    const bool started = child->start(argv, extra_env);
    dup2(saved_out, 1);
    dup2(saved_err, 2);
    close(saved_out);
    close(saved_err);
    close(out_fd);
    close(err_fd);
    return started;
}

bool wait_for_text(const std::string &path, const std::string &needle,
                   std::chrono::milliseconds guard)
{
    const auto deadline = std::chrono::steady_clock::now() + guard;
    while (read_file(path).find(needle) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

MgmtdLite::MgmtdLite(std::string lite_bin, std::string ctl_bin, std::string dir,
                     std::string sock_root)
    : lite_bin_(std::move(lite_bin)), ctl_bin_(std::move(ctl_bin)), dir_(std::move(dir)),
      sock_root_(std::move(sock_root))
{
}

MgmtdLite::~MgmtdLite()
{
    for (auto &waiter : waiters_) {
        if (waiter.second->running()) {
            waiter.second->signal(SIGKILL);
            waiter.second->wait(5s);
        }
    }
    if (running()) {
        stop();
    }
}

bool MgmtdLite::start(const std::vector<std::string> &args)
{
    std::vector<std::string> argv = {lite_bin_};
    if (!sock_root_.empty()) {
        argv.insert(argv.end(), {"--sock-root", sock_root_});
    }
    argv.insert(argv.end(), args.begin(), args.end());
    child_ = std::make_unique<Child>();
    if (!start_redirected(child_.get(), argv, dir_ + "/lite.out", dir_ + "/lite.err")) {
        return false;
    }
    return wait_for_log("listening as provider 'mgmtd'");
}

int MgmtdLite::stop()
{
    if (child_ == nullptr) {
        return -1;
    }
    child_->signal(SIGTERM);
    return child_->wait(15s);
}

std::vector<std::string> MgmtdLite::log_lines(const std::string &needle) const
{
    std::vector<std::string> found;
    std::istringstream in(log());
    for (std::string line; std::getline(in, line);) {
        if (line.find(needle) != std::string::npos) {
            found.push_back(line);
        }
    }
    return found;
}

std::vector<std::string> MgmtdLite::ctl_argv(const std::vector<std::string> &args) const
{
    std::vector<std::string> argv = {ctl_bin_};
    if (!sock_root_.empty()) {
        argv.insert(argv.end(), {"--sock-root", sock_root_});
    }
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

CtlResult MgmtdLite::ctl(const std::vector<std::string> &args)
{
    CtlResult result;
    Child child;
    const std::string base = dir_ + "/ctl" + std::to_string(++runs_);
    if (!start_redirected(&child, ctl_argv(args), base + ".out", base + ".err")) {
        return result;
    }
    result.code = child.wait(60s);
    result.out = read_file(base + ".out");
    result.err = read_file(base + ".err");
    return result;
}

std::string MgmtdLite::start_waiter(const std::vector<std::string> &args)
{
    const std::string base = dir_ + "/waiter" + std::to_string(++runs_);
    auto child = std::make_unique<Child>();
    if (start_redirected(child.get(), ctl_argv(args), base + ".out", base + ".err")) {
        wait_for_text(base + ".err", "waiting for event");
    }
    waiters_.emplace_back(base, std::move(child));
    return base;
}

CtlResult MgmtdLite::run_client(const std::string &bin, const std::vector<std::string> &args)
{
    CtlResult result;
    Child child;
    std::vector<std::string> argv = {bin};
    if (!sock_root_.empty()) {
        argv.insert(argv.end(), {"--sock-root", sock_root_});
    }
    argv.insert(argv.end(), args.begin(), args.end());
    const std::string base = dir_ + "/client" + std::to_string(++runs_);
    if (!start_redirected(&child, argv, base + ".out", base + ".err")) {
        return result;
    }
    result.code = child.wait(300s);
    result.out = read_file(base + ".out");
    result.err = read_file(base + ".err");
    return result;
}

CtlResult MgmtdLite::finish_waiter(const std::string &base, std::chrono::milliseconds guard)
{
    CtlResult result;
    for (auto &waiter : waiters_) {
        if (waiter.first == base) {
            result.code = waiter.second->wait(guard);
            result.out = read_file(base + ".out");
            result.err = read_file(base + ".err");
        }
    }
    return result;
}

}  // namespace ovd_test
