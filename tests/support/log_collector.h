// Collects the process's syslog lines on a thread of its own, so that a burst of lines
// never fills the socket and blocks the code under test (in-process tests of libraries
// that log a lot).
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

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

// An in-process test of libraries that log: the test suite enters the private mount
// namespace (where it owns /dev/log) and collects the lines in logs_.  sandboxed_ is false,
// and logs_ null, where the machine doesn't allow it; the tests decide what to skip.
class LogCollectingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    static inline bool sandboxed_ = false;
    static inline LogCollector *logs_ = nullptr;
};

}  // namespace ovd_test
