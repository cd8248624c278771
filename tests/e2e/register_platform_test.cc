// The daemon opens the register library at start-up: its platform configuration is
// read then, and a broken one stops the start.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>

#include "sandbox.h"

namespace {

using namespace std::chrono_literals;

TEST(RegisterPlatform, BrokenConfigurationStopsTheStart)
{
    std::string why;
    if (!ovd_test::enter_sandbox(&why)) {
        GTEST_SKIP() << "no private mount namespace: " << why;
    }
    // /var/opt is private to this test.
    ASSERT_EQ(mkdir("/var/opt/vqdreg", 0755), 0);
    {
        std::ofstream conf("/var/opt/vqdreg/vqdreg.conf");
        conf << "model /nonexistent/switch.model\n";
    }
    ovd_test::SyslogReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    ovd_test::Child daemon;
    ASSERT_TRUE(daemon.start({OVD_BIN}));
    ASSERT_TRUE(receiver.wait_for("failed to init command interface"));
    EXPECT_EQ(daemon.wait(15s), 14000 & 0xff);
    const int sdk = receiver.find("SDK LOG MESSAGE: module: [VQDREG] : [configuration "
                                  "/var/opt/vqdreg/vqdreg.conf: line 1: can't read model file "
                                  "/nonexistent/switch.model]");
    const int failed = receiver.find("[ovd.ERR]: ovd_init: failed to init command interface , error: 1");
    EXPECT_GE(sdk, 0);
    EXPECT_GT(failed, sdk);
    EXPECT_TRUE(receiver.wait_for("IB daemon exiting with code 14000", 5s));
}

}  // namespace
