#include "log_collector.h"

#include <chrono>

namespace ovd_test {

using namespace std::chrono_literals;

LogCollector::LogCollector() : thread_([this] { run(); }) {}

LogCollector::~LogCollector()
{
    stop_ = true;
    thread_.join();
}

bool LogCollector::wait_for(const std::string &needle)
{
    for (int i = 0; i < 200; ++i) {
        {
            std::lock_guard<std::mutex> lock(mu_);
            if (receiver_.find(needle) >= 0) {
                return true;
            }
        }
        std::this_thread::sleep_for(10ms);
    }
    return false;
}

std::string LogCollector::line_of(const std::string &needle)
{
    if (!wait_for(needle)) {
        return "";
    }
    std::lock_guard<std::mutex> lock(mu_);
    return receiver_.lines()[static_cast<size_t>(receiver_.find(needle))];
}

void LogCollector::clear()
{
    std::lock_guard<std::mutex> lock(mu_);
    receiver_.drain();
    receiver_.clear();
}

void LogCollector::run()
{
    while (!stop_) {
        {
            std::lock_guard<std::mutex> lock(mu_);
            receiver_.drain();
        }
        std::this_thread::sleep_for(2ms);
    }
}

void LogCollectingTest::SetUpTestSuite()
{
    std::string why;
    sandboxed_ = enter_sandbox(&why);
    if (sandboxed_) {
        logs_ = new LogCollector();
    }
}

void LogCollectingTest::TearDownTestSuite()
{
    delete logs_;
    logs_ = nullptr;
}

}  // namespace ovd_test
