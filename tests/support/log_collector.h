// Collects the process's syslog lines on a thread of its own, so that a burst of lines
// never fills the socket and blocks the code under test (in-process tests of libraries
// that log a lot).
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "sandbox.h"

namespace ovd_test {

class LogCollector {
public:
    LogCollector();
    ~LogCollector();
    LogCollector(const LogCollector &) = delete;
    LogCollector &operator=(const LogCollector &) = delete;

    // Whether a line containing `needle` came, waiting up to two seconds.
    bool wait_for(const std::string &needle);
    // The first line containing `needle`, waiting for it; empty if none came.
    std::string line_of(const std::string &needle);
    void clear();

private:
    void run();

    std::mutex mu_;
    SyslogReceiver receiver_;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

}  // namespace ovd_test
