// The log line format, the bail-out convention and the kfs steering files, observed at a
// private /dev/log.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <string>

#include "common.h"
#include "logging.h"
#include "sandbox.h"

namespace {

class LoggingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        if (!sandboxed_) {
            why_ = why;
            return;
        }
        receiver_ = new ovd_test::SyslogReceiver();
    }
    static void TearDownTestSuite()
    {
        delete receiver_;
        receiver_ = nullptr;
    }
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace: " << why_;
        }
        ASSERT_TRUE(receiver_->ok());
        receiver_->drain(std::chrono::milliseconds(20));
        receiver_->clear();
    }

    // What arrives for one log call, the syslog head stripped off.
    static std::vector<std::string> collect()
    {
        receiver_->drain(std::chrono::milliseconds(200));
        std::vector<std::string> out;
        for (const auto &l : receiver_->lines()) {
            out.push_back(l);
        }
        receiver_->clear();
        return out;
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    static inline ovd_test::SyslogReceiver *receiver_ = nullptr;
};

int fails_cancelled()
{
    return lc_err_cancelled;
}

int middle_layer()
{
    int err = 0;
    err = fails_cancelled();
    bail_error(err);
bail:
    return err;
}

int top_layer()
{
    int err = 0;
    err = middle_layer();
    bail_error(err);
bail:
    return err;
}

int fails_with(int code)
{
    int err = 0;
    err = code;
    bail_error(err);
bail:
    return err;
}

int null_check(const void *p)
{
    int err = 0;
    bail_null(p);
bail:
    return err;
}

int errno_check()
{
    int err = 0;
    errno = ENOENT;
    bail_errno(lc_err_io_error, "opening %s", "/nowhere");
bail:
    return err;
}

// Runs first: a message before any init starts logging by itself under a stand-in name,
// and the daemon's own init then takes over as an update under its name.
TEST_F(LoggingTest, AutoInitThenUpdateReopensUnderNewName)
{
    lc_log_basic(LOG_NOTICE, "before init");
    auto lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("AUTO-INIT["), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("[unk.NOTICE]: unk: before init"), std::string::npos) << lines[0];

    ASSERT_EQ(lc_log_init("ovd", nullptr, 0, static_cast<uint64>(LCI_OVD) << 16, LOG_DEBUG,
                          LOG_LOCAL4, LCT_SYSLOG),
              0);
    lc_log_basic(LOG_NOTICE, "IB daemon launched");
    lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    // Facility local4 (20 << 3) with notice (5): priority 165.
    EXPECT_EQ(lines[0].rfind("<165>", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(" ovd[" + std::to_string(getpid()) + "]: [ovd.NOTICE]: IB daemon launched"),
              std::string::npos)
        << lines[0];
}

TEST_F(LoggingTest, CancelledPassesThroughChainsWithoutALine)
{
    EXPECT_EQ(top_layer(), lc_err_cancelled);
    EXPECT_TRUE(collect().empty());
}

TEST_F(LoggingTest, BailLinesCarryFunctionFileLineAndText)
{
    EXPECT_EQ(fails_with(6), 6);
    EXPECT_EQ(fails_with(lc_err_not_found), lc_err_not_found);
    EXPECT_EQ(null_check(nullptr), lc_err_unexpected_null);
    EXPECT_EQ(errno_check(), lc_err_io_error);
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_NE(lines[0].find("[ovd.ERR]: fails_with(), logging_test:"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find(", build 1: Error code 6 returned"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("Error code 14004 (item not found) returned"), std::string::npos);
    EXPECT_NE(lines[2].find("null_check(), logging_test:"), std::string::npos);
    EXPECT_NE(lines[2].find(": Unexpected NULL"), std::string::npos);
    EXPECT_NE(lines[3].find(": No such file or directory: opening /nowhere"), std::string::npos)
        << lines[3];
}

TEST_F(LoggingTest, EnumMapsLogOnlyInTheLoudForm)
{
    static const lc_enum_string_map map[] = {{1, "one"}, {0x100000002ULL, "wide"}, {0, nullptr}};
    EXPECT_STREQ(lc_enum_to_string(map, 1), "one");
    EXPECT_STREQ(lc_enum_to_string_quiet(map, 7), "ERROR-NO-MAP");
    EXPECT_EQ(lc_enum_to_string_quiet_null(map, 7), nullptr);
    // A row with a non-zero upper half never matches a 32-bit value.
    EXPECT_EQ(lc_enum_to_string_quiet_null(map, 2), nullptr);
    EXPECT_TRUE(collect().empty());

    EXPECT_STREQ(lc_enum_to_string(map, 7), "ERROR-NO-MAP");
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("[ovd.ERR]: Could not find a mapping for enum value 7"),
              std::string::npos);

    uint32 value = 99;
    EXPECT_EQ(lc_string_to_enum(map, "ONE", &value), lc_err_bad_type);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(lc_string_to_enum(map, "one", &value), 0);
    EXPECT_EQ(value, 1u);
}

TEST_F(LoggingTest, SyslogLevelLinkFiltersBelowItsLevel)
{
    ovd_test::set_kfs_link("sysloglevel", "5");
    lc_log_recheck();
    lc_log_basic(LOG_INFO, "info dropped");
    lc_log_basic(LOG_DEBUG, "debug dropped");
    lc_log_basic(LOG_NOTICE, "notice kept");
    auto lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("notice kept"), std::string::npos);
    int max_level = 0;
    EXPECT_EQ(lc_log_get_max_log_level(&max_level), 0);
    EXPECT_EQ(max_level, LOG_NOTICE);

    // The link gone, the level stays until the next change of a present link.
    ovd_test::set_kfs_link("sysloglevel", "7");
    lc_log_recheck();
    lc_log_basic(LOG_DEBUG, "debug back");
    lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    ovd_test::set_kfs_link("sysloglevel", "");
}

TEST_F(LoggingTest, LogOptionsLinkAddsSourceInfoToEveryLine)
{
    ovd_test::set_kfs_link("log_options", std::to_string(LCO_SOURCE_INFO));
    lc_log_recheck();
    lc_log_basic(LOG_WARNING, "with source");
    ovd_test::set_kfs_link("log_options", "");
    lc_log_recheck();
    lc_log_basic(LOG_WARNING, "plain again");
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("[ovd.WARNING]: TestBody(), logging_test:"), std::string::npos)
        << lines[0];
    EXPECT_NE(lines[1].find("[ovd.WARNING]: plain again"), std::string::npos) << lines[1];
}

TEST_F(LoggingTest, IgnoreErrAndSuspend)
{
    lc_log_ignore_err(true);
    lc_log_basic(LOG_ERR, "demoted");
    lc_log_ignore_err(false);
    lc_log_suspend(true);
    lc_log_basic(LOG_ERR, "suspended");
    lc_log_suspend(false);
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("[ovd.NOTICE]: demoted"), std::string::npos) << lines[0];
}

TEST_F(LoggingTest, RateLimiterThrowsExcessMarkedMessages)
{
    ASSERT_EQ(lc_log_set_rate_limit(2, LOG_INFO), 0);
    for (int i = 0; i < 5; ++i) {
        lc_log_limited(LOG_DEBUG, "burst %d", i);
    }
    lc_log_basic(LOG_DEBUG, "unmarked");
    lc_log_set_rate_limit(0xFFFFFFFF, LOG_DEBUG);
    const auto lines = collect();
    // Within one second at most two marked lines pass; a second boundary in the middle
    // of the burst lets a few more through, never all five.
    int bursts = 0;
    for (const auto &l : lines) {
        bursts += l.find("burst") != std::string::npos ? 1 : 0;
    }
    EXPECT_GE(bursts, 2);
    EXPECT_LE(bursts, 4);
    EXPECT_NE(lines.back().find("unmarked"), std::string::npos);
}

TEST_F(LoggingTest, SeverityNamesAndComponents)
{
    int sev = 0;
    EXPECT_EQ(lc_log_severity_string_to_int("none", &sev), 0);
    EXPECT_EQ(sev, -1);
    EXPECT_EQ(lc_log_severity_string_to_int("warning", &sev), 0);
    EXPECT_EQ(sev, LOG_WARNING);
    EXPECT_STREQ(lc_log_get_component_name(LCI_UNK), "unk");
    EXPECT_STREQ(lc_log_get_component_name(LCI_OVD), "ovd");
    EXPECT_STREQ(lc_log_get_component_name(LCI_BRELLD), "brelld");
    for (const uint32 id : {0u, 1u, 2u, 257u, 258u, 4000u}) {
        EXPECT_STREQ(lc_log_get_component_name(id), "UNKNOWN_COMP") << id;
    }
    // A level of 0x88 ORed in marks the message only; other invalid levels log as errors.
    lc_log_internal(__func__, __FILE__, __LINE__, 0, 0, 9,
                    "bad level");
    const auto lines = collect();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("passed invalid log level: 9"), std::string::npos);
    EXPECT_NE(lines[1].find("[ovd.ERR]: bad level"), std::string::npos) << lines[1];
}

TEST_F(LoggingTest, CloseThenAutoInitAgain)
{
    ASSERT_EQ(lc_log_close(), 0);
    lc_log_basic(LOG_NOTICE, "after close");
    auto lines = collect();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("AUTO-INIT["), std::string::npos);
    ASSERT_EQ(lc_log_close(), 0);
}

TEST(CommonHelpers, BoolsPrefixesAndSafeCalls)
{
    tbool b = false;
    for (const char *t : {"true", "TRUE", "t", "T", "on", "ON"}) {
        ASSERT_EQ(lc_str_to_bool(t, &b), 0) << t;
        EXPECT_TRUE(b) << t;
    }
    for (const char *t : {"false", "FALSE", "f", "F", "off", "OFF"}) {
        ASSERT_EQ(lc_str_to_bool(t, &b), 0) << t;
        EXPECT_FALSE(b) << t;
    }
    EXPECT_EQ(lc_str_to_bool("True", &b), lc_err_bad_type);
    EXPECT_EQ(lc_str_to_bool("yes", &b), lc_err_bad_type);

    uint32 u = 7;
    ASSERT_EQ(lc_str_to_uint32("4294967295", &u), 0);
    EXPECT_EQ(u, 4294967295u);
    ASSERT_EQ(lc_str_to_uint32("0069", &u), 0);
    EXPECT_EQ(u, 69u);
    for (const char *t : {"", "4294967296", "-1", "+1", " 1", "1 ", "0x10", "1e3", "abc"}) {
        u = 7;
        EXPECT_EQ(lc_str_to_uint32(t, &u), lc_err_bad_type) << t;
        EXPECT_EQ(u, 0u) << t;
    }

    uint8 u8 = 7;
    ASSERT_EQ(lc_str_to_uint8("255", &u8), 0);
    EXPECT_EQ(u8, 255u);
    ASSERT_EQ(lc_str_to_uint8("007", &u8), 0);
    EXPECT_EQ(u8, 7u);
    for (const char *t : {"", "256", "4294967296", "-1", "0x1", "3 "}) {
        u8 = 7;
        EXPECT_EQ(lc_str_to_uint8(t, &u8), lc_err_bad_type) << t;
        EXPECT_EQ(u8, 0u) << t;
    }

    EXPECT_TRUE(lc_is_prefix("/ib/", "/ib/config", false));
    EXPECT_FALSE(lc_is_prefix("/IB/", "/ib/config", false));
    EXPECT_TRUE(lc_is_prefix("/IB/", "/ib/config", true));
    EXPECT_FALSE(lc_is_prefix("/ib/config/x", "/ib/config", false));
    EXPECT_FALSE(lc_is_prefix(nullptr, "/ib", false));
    EXPECT_TRUE(lc_is_suffix("config", "/ib/config", false));
    EXPECT_FALSE(lc_is_suffix("/ib/config/", "config", false));

    int fd = -1;
    EXPECT_EQ(safe_close(&fd), 0);
    EXPECT_EQ(safe_close(nullptr), 0);
    fd = dup(0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(safe_close(&fd), 0);
    EXPECT_EQ(fd, -1);

    EXPECT_EQ(safe_strcmp(nullptr, nullptr), 0);
    EXPECT_LT(safe_strcmp(nullptr, ""), 0);
    EXPECT_GT(safe_strcmp("a", nullptr), 0);
    EXPECT_EQ(safe_strlen(nullptr), 0u);

    char buf[4];
    EXPECT_EQ(strlcpy(buf, "abcdef", sizeof(buf)), 6u);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strlcat(buf, "xy", sizeof(buf)), 5u);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(memcasecmp("AbC", "aBc", 3), 0);

    EXPECT_STREQ(lc_signal_num_to_name(15), "SIGTERM");
    EXPECT_EQ(lc_signal_num_to_name(200), nullptr);
}

}  // namespace
