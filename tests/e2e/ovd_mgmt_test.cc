// The real daemon against the stand-in management daemon, over the real socket directory
// of a private mount namespace: the interests it declares, its start-up reads and
// announcement, the requests it serves, and the ways its session ends.
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "sandbox.h"
#include "stand_ins.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  e2e-switch\n"
    "/system/chassis/sys_disp_str                string    e2e display\n"
    "/system/chassis/part_number                 string    PN-E2E\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/ib/config/locallinks/time_to_settle        time_sec  00:03:20\n"
    "/portd/state/virtual/paos_base              uint8     70\n";

const char kRegistration[] =
    "client IB Daemon\n"
    "/ib/state/devid/*\n"
    "/ib/state/devid/*/max-hw-cap-speed\n"
    "/ib/state/locallinks/settled\n"
    "/ib/state/bogus\n"
    "/ib/actions/print-dev\n"
    "/ib/actions/print-nothing\n"
    "/ib/actions/install-max-ports-speed\n";

class OvdMgmt : public ::testing::Test {
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
        char tmpl[] = "/tmp/ovd_mgmt_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        ovd_test::write_file(dir_ + "/db.conf", kConfig);
        ovd_test::write_file(dir_ + "/ib.reg", kRegistration);
        receiver_ = std::make_unique<ovd_test::SyslogReceiver>();
        ASSERT_TRUE(receiver_->ok());
        lite_ = std::make_unique<ovd_test::MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, dir_, "");
    }

    void TearDown() override
    {
        if (daemon_.running()) {
            daemon_.signal(SIGTERM);
            daemon_.wait(15s);
        }
        lite_.reset();
        receiver_.reset();
        if (!dir_.empty()) {
            std::filesystem::remove_all(dir_);
        }
    }

    void start_lite(const std::string &config = kConfig)
    {
        ovd_test::write_file(dir_ + "/db.conf", config);
        ASSERT_TRUE(lite_->start({"--config", dir_ + "/db.conf", "--registration",
                                  dir_ + "/ib.reg", "--forward-timeout", "2"}))
            << lite_->log();
    }

    // Starts the daemon and waits for its announcement to reach the stand-in.
    void start_daemon()
    {
        ASSERT_TRUE(daemon_.start({OVD_BIN}));
        ASSERT_TRUE(lite_->wait_for_log("event /ib/events/init-done from 'IB Daemon'"))
            << lite_->log();
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    std::string dir_;
    std::unique_ptr<ovd_test::SyslogReceiver> receiver_;
    std::unique_ptr<ovd_test::MgmtdLite> lite_;
    ovd_test::Child daemon_;
};

TEST_F(OvdMgmt, DeclaresItsInterestsReadsItsConfigurationAndAnnouncesItself)
{
    start_lite();
    start_daemon();

    const std::vector<std::string> interests =
        lite_->log_lines("action /mgmtd/events/actions/interest/add from 'IB Daemon'");
    const std::vector<std::string> expected = {
        "/mgmtd/notify/dbchange",
        "/portd/events/ib-device-add",
        "/cme/events/allow_external_ports",
        "/cme/events/cme-ready",
        "/topod/events/ib-direct-route-update",
        "/portd/events/device-remove",
        "/portd/events/enable-burn-port",
        "/portd/events/add-burn-device",
        "/portd/events/port-enable",
        "/portd/events/device-validate-ib",
        "/brelld/events/brelld-ready",
        "/brelld/events/ekey-port-change",
        "/ib/events/ovd-debug-mode",
        "/portd/events/port-disable",
        "/system/chassis/events/ignore-all-db-changes",
        "/system/chassis/events/system-configure-done",
    };
    ASSERT_EQ(expected.size(), interests.size()) << lite_->log();
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NE(interests[i].find("event_name=name:" + expected[i]), std::string::npos)
            << i << ": " << interests[i];
    }
    EXPECT_NE(interests[0].find("match/1/pattern=string:/ib/config/** "
                                "match/2/pattern=string:/system/hostname "
                                "match/3/pattern=string:/portd/config/ifindex/**"),
              std::string::npos)
        << interests[0];
    EXPECT_EQ(interests[1].find("match/"), std::string::npos) << interests[1];

    EXPECT_EQ(1u,
              lite_->log_lines("event /ib/events/init-done from 'IB Daemon': status=uint32:0").size())
        << lite_->log();

    // What it read at start.
    EXPECT_TRUE(receiver_->wait_for("[ovd.INFO]: The host name is: e2e-switch"));
    EXPECT_TRUE(receiver_->wait_for("Set timeout for ports to be settled: [200] seconds"));
    EXPECT_TRUE(receiver_->wait_for("OVD identifies system type: "));
    EXPECT_GE(receiver_->find(", 36"), 0);
    // ib0 was missing: created, and only then announced.
    EXPECT_TRUE(receiver_->wait_for("Interface ib0 configuration is missing, creating it with "
                                    "default MTU (2044)"));
    const ovd_test::CtlResult mtu = lite_->ctl({"get", "/net/interface/config/ib0/mtu"});
    EXPECT_EQ(0, mtu.code) << mtu.err;
    EXPECT_NE(mtu.out.find("uint16  2044"), std::string::npos) << mtu.out;
    EXPECT_LT(receiver_->find("Received event"), 0) << "no event was sent to it";
}

TEST_F(OvdMgmt, MissingSystemTypeEndsTheStart)
{
    std::string config = kConfig;
    config.erase(config.find("/system/chassis/ha/state"),
                 config.find("/system/chassis/config/profile") -
                     config.find("/system/chassis/ha/state"));
    start_lite(config);
    ASSERT_TRUE(daemon_.start({OVD_BIN}));
    // The exit status keeps the low byte of the error code.
    EXPECT_EQ(14008 & 0xff, daemon_.wait(30s));
    EXPECT_TRUE(receiver_->wait_for("Wrong Behaviour. unable to read system type"));
    EXPECT_TRUE(receiver_->wait_for("IB daemon exiting with code 14008"));
    EXPECT_TRUE(lite_->log_lines("event /ib/events/init-done").empty()) << "announced anyway";
}

TEST_F(OvdMgmt, MissingProfileEndsTheStart)
{
    std::string config = kConfig;
    const size_t at = config.find("/system/chassis/config/profile");
    config.erase(at, config.find('\n', at) + 1 - at);
    start_lite(config);
    ASSERT_TRUE(daemon_.start({OVD_BIN}));
    EXPECT_EQ(14008 & 0xff, daemon_.wait(30s));
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour. unable to read system profile"));
    EXPECT_TRUE(receiver_->wait_for("IB daemon exiting with code 14008"));
    EXPECT_TRUE(lite_->log_lines("event /ib/events/init-done").empty()) << "announced anyway";
}

TEST_F(OvdMgmt, SettleTimeOfZeroIsTheDefault)
{
    std::string config = kConfig;
    config.replace(config.find("00:03:20"), 8, "00:00:00");
    start_lite(config);
    start_daemon();
    EXPECT_TRUE(receiver_->wait_for("Set timeout for ports to be settled: [150] seconds"));
    EXPECT_LT(receiver_->find("Can't read local ports time to settle"), 0)
        << "a stored zero is no missing node";
}

TEST_F(OvdMgmt, MissingOptionalNodesAreNoFailure)
{
    std::string config = kConfig;
    for (const char *node : {"/system/chassis/part_number", "/ib/config/locallinks/time_to_settle",
                             "/system/hostname", "/portd/state/virtual/paos_base"}) {
        const size_t at = config.find(node);
        config.erase(at, config.find('\n', at) + 1 - at);
    }
    start_lite(config);
    start_daemon();
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Can't read local ports time to settle"));
    EXPECT_TRUE(receiver_->wait_for("Set timeout for ports to be settled: [150] seconds"));
    EXPECT_TRUE(receiver_->wait_for("Unable to read PAOS virtual base, using 66!"));
    EXPECT_LT(receiver_->find("The host name is"), 0);
}

TEST_F(OvdMgmt, UnknownRequestsAreLoggedAndAnsweredAsTheyShouldBe)
{
    start_lite();
    start_daemon();

    // An action the daemon doesn't know: logged, never answered, so the asker times out.
    ovd_test::CtlResult r = lite_->ctl({"action", "/ib/actions/print-nothing"});
    EXPECT_NE(0, r.code);
    EXPECT_TRUE(receiver_->wait_for("[ovd.INFO]: Received action /ib/actions/print-nothing"));
    EXPECT_TRUE(receiver_->wait_for("Got unexpected action /ib/actions/print-nothing"));

    // An event it declared interest in whose flow belongs to another kind of system:
    // refused with its line.
    r = lite_->ctl({"event", "/brelld/events/brelld-ready"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour at OVD. Brelld ready event "
                                    "shouldn't have been sent at "));
    EXPECT_TRUE(receiver_->wait_for(", 36 system type"));

    // A state node with nothing behind it answers empty, at once.
    r = lite_->ctl({"get", "/ib/state/bogus"});
    EXPECT_TRUE(lite_->wait_for_log("query from 'mgmtctl': get /ib/state/bogus"));
    EXPECT_EQ(r.out.find("/ib/state/bogus"), std::string::npos) << r.out;
    EXPECT_EQ(r.err.find("nobody answered"), std::string::npos) << r.err;

    EXPECT_TRUE(daemon_.running());
}

TEST_F(OvdMgmt, DroppedActionLeavesNothingButItsReceipt)
{
    start_lite();
    start_daemon();
    receiver_->drain(200ms);
    receiver_->clear();

    // Accepted and dropped: no answer, and of the daemon's own lines (the session layer's
    // aside) only the receipt.
    const ovd_test::CtlResult r = lite_->ctl({"action", "/ib/actions/install-max-ports-speed"});
    EXPECT_NE(0, r.code);
    ASSERT_TRUE(receiver_->wait_for("[ovd.INFO]: Received action "
                                    "/ib/actions/install-max-ports-speed"));
    receiver_->drain(300ms);
    std::vector<std::string> from_ovd;
    for (const std::string &line : receiver_->lines()) {
        if (line.find("[ovd.") != std::string::npos &&
            line.find("]: session ") == std::string::npos) {
            from_ovd.push_back(line);
        }
    }
    std::string all;
    for (const std::string &line : from_ovd) {
        all += line + "\n";
    }
    ASSERT_EQ(1u, from_ovd.size()) << all;
    EXPECT_TRUE(daemon_.running());
}

TEST_F(OvdMgmt, IgnoreAllDbChangesDropsLaterChanges)
{
    start_lite();
    start_daemon();

    // A change under /ib/config reaches the configuration handler while changes count.
    ovd_test::CtlResult r = lite_->ctl({"set", "/ib/config/externalports/7/color", "string", "red"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("Unknown node '/ib/config/externalports/7/color'"));
    r = lite_->ctl({"set", "/ib/config/externalports/7/a/b", "string", "x"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("Unhandled node '/ib/config/externalports/7/a/b'"));

    r = lite_->ctl({"event", "/system/chassis/events/ignore-all-db-changes"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("Setting flag to ignore all db changes"));

    receiver_->clear();
    r = lite_->ctl({"set", "/ib/config/externalports/8/color", "string", "blue"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("Ignore all db changes flag is set. Ignoring event: "
                                    "[/mgmtd/notify/dbchange]"));
    receiver_->drain(200ms);
    EXPECT_LT(receiver_->find("externalports/8"), 0) << "the change was handled";

    // Other events are still served.
    r = lite_->ctl({"event", "/system/chassis/events/system-configure-done"});
    ASSERT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(receiver_->wait_for("Received system configured done event"));
}

TEST_F(OvdMgmt, StoppingTheManagementDaemonEndsTheDaemon)
{
    start_lite();
    start_daemon();
    EXPECT_EQ(0, lite_->stop());
    EXPECT_EQ(0, daemon_.wait(30s));
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: OVd Lost connection to mgmtd; exiting"));
    EXPECT_TRUE(receiver_->wait_for("IB daemon exiting with code 0"));
}

TEST_F(OvdMgmt, TermEndsItWithCodeZero)
{
    start_lite();
    start_daemon();
    daemon_.signal(SIGTERM);
    EXPECT_EQ(0, daemon_.wait(30s));
    EXPECT_TRUE(receiver_->wait_for("IB daemon exiting with code 0"));
    EXPECT_LT(receiver_->find("Lost connection"), 0);
    EXPECT_TRUE(lite_->wait_for_log("client 'IB Daemon' closed"));
}

TEST_F(OvdMgmt, GarbageOnItsSessionClosesItAndTheDaemonGoesDown)
{
    start_lite();
    start_daemon();
    const ovd_test::CtlResult r =
        lite_->ctl({"action", "/mgmtd-lite/actions/send-garbage", "client=string:IB Daemon"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ(0, daemon_.wait(30s));
    EXPECT_TRUE(receiver_->wait_for("OVd Lost connection to mgmtd; exiting"));
    EXPECT_TRUE(receiver_->wait_for("IB daemon exiting with code 0"));
}

}  // namespace
