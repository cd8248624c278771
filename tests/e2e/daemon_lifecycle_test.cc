// The real daemon binary as a process: its log lines at a private /dev/log, and how it
// takes its signals.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "sandbox.h"
#include "stand_ins.h"

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
        // The daemon needs its management daemon; the bundled demo configuration will do.
        char tmpl[] = "/tmp/daemon_lifecycle_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        lite_ = std::make_unique<ovd_test::MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, dir_, "");
        ASSERT_TRUE(lite_->start({"--config", OVD_DEMO_DIR "/mgmtd-lite.conf", "--registration",
                                  OVD_DEMO_DIR "/ib-state.reg"}))
            << lite_->log();
    }

    void TearDown() override
    {
        if (daemon_.running()) {
            daemon_.signal(SIGKILL);
            daemon_.wait();
        }
        lite_.reset();
        if (!dir_.empty()) {
            std::filesystem::remove_all(dir_);
        }
    }

    // Starts the daemon and waits for its first line. The first line comes before the
    // loop exists, so also wait until its signals are caught (a signal sent earlier would
    // take its default action) and until it has announced itself.
    void start()
    {
        ASSERT_TRUE(daemon_.start({OVD_BIN}));
        ASSERT_TRUE(receiver_->wait_for("[ovd.NOTICE]: IB daemon launched"))
            << "daemon did not announce itself";
        ASSERT_TRUE(wait_signals_caught()) << "daemon never caught its signals:\n" << log_text();
        // A signal during start-up ends the start with its error: wait until it is up.
        ASSERT_TRUE(lite_->wait_for_log("event /ib/events/init-done from 'IB Daemon'"))
            << lite_->log();
    }

    std::string log_text() const
    {
        std::string text;
        for (const std::string &line : receiver_->lines()) {
            text += line + "\n";
        }
        return text;
    }

    // Reads the caught-signal mask of the daemon from /proc.  SIGPIPE is caught at first
    // and then ignored for good once the session library is up.
    bool wait_signals_caught()
    {
        const unsigned long long want = (1ull << (SIGHUP - 1)) | (1ull << (SIGINT - 1)) |
                                        (1ull << (SIGTERM - 1)) | (1ull << (SIGUSR1 - 1));
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

    // Sends a signal the daemon swallows and checks that it lives on, having logged it
    // when it is one that reaches the loop.
    void expect_swallowed(int signum, const std::string &name, bool logged = true)
    {
        daemon_.signal(signum);
        if (logged) {
            ASSERT_TRUE(receiver_->wait_for("[ovd.INFO]: Received " + name)) << name;
        }
        std::this_thread::sleep_for(100ms);
        EXPECT_TRUE(daemon_.running()) << name << " ended the daemon";
    }

    // Sends a signal that ends the daemon, and checks the exit line and code.
    void expect_exit_on(int signum, const std::string &name)
    {
        daemon_.signal(signum);
        EXPECT_EQ(daemon_.wait(15s), 0) << name << "\n" << log_text();
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
    std::string dir_;
    std::unique_ptr<ovd_test::SyslogReceiver> receiver_;
    std::unique_ptr<ovd_test::MgmtdLite> lite_;
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
    expect_swallowed(SIGPIPE, "SIGPIPE", false);
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
