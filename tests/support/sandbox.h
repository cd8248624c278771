// Test isolation: a private mount namespace in which this test program owns /dev/log
// (a syslog receiver) and the log-steering files under /var/opt/kfs/output, and helpers
// to run and stop child processes.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ovd_test {

// Moves the calling process into a private mount namespace with a fresh /dev (the
// host's nodes bound in, /dev/log free) and empty tmpfs on /var/opt and /vtmp (with the
// socket directory /vtmp/gcl-socks made).  Must run before
// any thread is started.  Returns false with a reason when the machine does not allow it
// (not root, no mount namespaces).
bool enter_sandbox(std::string *ret_why);

// Makes the folder `tree` appear as /sys/class/infiniband, the driver's view of the
// InfiniBand devices, in the private namespace (enter_sandbox first).  Where the folder
// doesn't exist, /sys/class gets a tmpfs with the host's classes bound back in, since
// sysfs takes no new folders.  A second call replaces the tree of the first.
bool mount_ib_sysfs(const std::string &tree, std::string *ret_why);
// Takes the tree away again (nothing happens when none is mounted).
void unmount_ib_sysfs();

// Points a kfs link such as "/var/opt/kfs/output/sysloglevel" at a target text, or
// removes it when target is empty.
void set_kfs_link(const std::string &name, const std::string &target);

// A datagram socket bound at /dev/log, collecting what syslog() sends.  A thread reads
// it all the time: the kernel queues only a few datagrams on a Unix socket, and a
// sender whose datagram finds the queue full blocks until it is read.
class SyslogReceiver {
public:
    SyslogReceiver();
    ~SyslogReceiver();
    SyslogReceiver(const SyslogReceiver &) = delete;
    SyslogReceiver &operator=(const SyslogReceiver &) = delete;

    bool ok() const { return fd_ >= 0; }
    // Waits up to `wait` for a line to arrive, and then until the burst it belongs to
    // has been read.
    void drain(std::chrono::milliseconds wait = std::chrono::milliseconds(0));
    // Waits until a line containing `needle` has arrived; true if it did.
    bool wait_for(const std::string &needle,
                  std::chrono::milliseconds timeout = std::chrono::milliseconds(10000));
    // All lines so far (the raw syslog datagrams, priority head included).
    std::vector<std::string> lines() const;
    // Index of the first line containing `needle`, or -1.
    int find(const std::string &needle) const;
    void clear();

private:
    void read_loop();
    int find_locked(const std::string &needle) const;

    int fd_ = -1;
    std::atomic<bool> stop_{false};
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<std::string> lines_;
    std::thread reader_;
};

// A child process started from an argument vector.
class Child {
public:
    Child() = default;
    ~Child();
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    bool start(const std::vector<std::string> &argv, const std::vector<std::string> &extra_env = {});
    pid_t pid() const { return pid_; }
    bool running();
    void signal(int signum);
    // Waits for the exit; returns the exit status, 128+signal for a signal, -1 on time-out.
    int wait(std::chrono::milliseconds timeout = std::chrono::milliseconds(15000));

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

}  // namespace ovd_test
