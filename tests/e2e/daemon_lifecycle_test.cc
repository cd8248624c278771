// The real daemon binary as a process: its log lines at a private /dev/log, and how it
// takes its signals.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "sandbox.h"

namespace {

using namespace std::chrono_literals;

class DaemonLifecycle : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        why_ = why;
    }
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace: " << why_;
        }
        receiver_ = std::make_unique<ovd_test::SyslogReceiver>();
        ASSERT_TRUE(receiver_->ok());
    }

    // Starts the daemon and waits for its first line. The first line comes before the
    // loop exists, so also wait until the five signals are caught: a signal sent earlier
    // would take its default action.
    void start()
    {
        ASSERT_TRUE(daemon_.start({OVD_BIN}));
        ASSERT_TRUE(receiver_->wait_for("[ovd.NOTICE]: IB daemon launched"))
            << "daemon did not announce itself";
        ASSERT_TRUE(wait_signals_caught()) << "daemon never caught its signals";
    }

    // Reads the caught-signal mask of the daemon from /proc.
    bool wait_signals_caught()
    {
        const unsigned long long want = (1ull << (SIGHUP - 1)) | (1ull << (SIGINT - 1)) |
                                        (1ull << (SIGTERM - 1)) | (1ull << (SIGUSR1 - 1)) |
                                        (1ull << (SIGPIPE - 1));
        const std::string path = "/proc/" + std::to_string(daemon_.pid()) + "/status";
        for (int i = 0; i < 1500; ++i) {
            std::ifstream status(path);
            std::string line;
            while (std::getline(status, line)) {
                if (line.rfind("SigCgt:", 0) == 0) {
                    const unsigned long long caught = std::stoull(line.substr(7), nullptr, 16);
                    if ((caught & want) == want) {
                        return true;
                    }
                }
            }
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    // Sends a signal the daemon swallows and checks that it logged it and lives on.
    void expect_swallowed(int signum, const std::string &name)
    {
        daemon_.signal(signum);
        ASSERT_TRUE(receiver_->wait_for("[ovd.INFO]: Received " + name)) << name;
        std::this_thread::sleep_for(100ms);
        EXPECT_TRUE(daemon_.running()) << name << " ended the daemon";
    }

    // Sends a signal that ends the daemon, and checks the exit line and code.
    void expect_exit_on(int signum, const std::string &name)
    {
        daemon_.signal(signum);
        EXPECT_EQ(daemon_.wait(15s), 0) << name;
        ASSERT_TRUE(receiver_->wait_for("IB daemon exiting with code 0", 5s));
        const int launched = receiver_->find("IB daemon launched");
        const int received = receiver_->find("Received " + name);
        const int exiting = receiver_->find("[ovd.NOTICE]: IB daemon exiting with code 0");
        EXPECT_GE(launched, 0);
        EXPECT_GT(received, launched);
        EXPECT_GT(exiting, received);
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    std::unique_ptr<ovd_test::SyslogReceiver> receiver_;
    ovd_test::Child daemon_;
};

TEST_F(DaemonLifecycle, SwallowsUsr1AndPipeThenEndsOnTerm)
{
    start();
    // Lines go to the local4 facility, under the daemon's name and pid.
    const std::string first = receiver_->lines()[static_cast<size_t>(
        receiver_->find("IB daemon launched"))];
    EXPECT_EQ(first.rfind("<165>", 0), 0u) << first;
    EXPECT_NE(first.find("ovd[" + std::to_string(daemon_.pid()) + "]: "), std::string::npos)
        << first;

    expect_swallowed(SIGUSR1, "SIGUSR1");
    expect_swallowed(SIGPIPE, "SIGPIPE");
    expect_exit_on(SIGTERM, "SIGTERM");
}

TEST_F(DaemonLifecycle, HangupEndsLikeTerm)
{
    start();
    expect_exit_on(SIGHUP, "SIGHUP");
}

TEST_F(DaemonLifecycle, InterruptEndsLikeTerm)
{
    start();
    expect_exit_on(SIGINT, "SIGINT");
}

}  // namespace
