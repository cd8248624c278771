// The register library's log callback and the module log-level setter, observed at a
// private /dev/log.
#include <gtest/gtest.h>

#include <string>

#include "bnode.h"
#include "bnode_types.h"
#include "logger.h"
#include "sandbox.h"
#include "tstr_array.h"

namespace {

using namespace std::chrono_literals;

class LoggerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        why_ = why;
        if (sandboxed_) {
            receiver_ = new ovd_test::SyslogReceiver();
        }
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
        receiver_->drain(20ms);
        receiver_->clear();
    }
    // The one line that arrived for a call.
    static std::string one_line()
    {
        receiver_->drain(200ms);
        std::string out = receiver_->lines().empty() ? "" : receiver_->lines().back();
        EXPECT_EQ(receiver_->lines().size(), 1u);
        receiver_->clear();
        return out;
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    static inline ovd_test::SyslogReceiver *receiver_ = nullptr;
};

TEST_F(LoggerTest, LibrarySeveritiesMapToLogLevels)
{
    char msg[] = "port 3 up";
    const struct {
        int severity;
        const char *level;
    } rows[] = {{1, ".ERR]: "},    {3, ".WARNING]: "}, {7, ".NOTICE]: "},
                {15, ".INFO]: "},  {31, ".DEBUG]: "},  {2, ".DEBUG]: "}};
    for (const auto &row : rows) {
        log_cb(static_cast<vq_log_severity_t>(row.severity), "PORT", msg);
        const std::string line = one_line();
        EXPECT_NE(line.find(row.level), std::string::npos) << row.severity << ": " << line;
        EXPECT_NE(line.find("SDK LOG MESSAGE: module: [PORT] : [port 3 up]"), std::string::npos) << line;
    }
}

int make_binding(const char *name, uint8 value, bn_binding **ret_binding, tstr_array **ret_parts)
{
    int err = bn_binding_new_uint8(ret_binding, name, ba_value, 0, value);
    if (err == 0) {
        err = bn_binding_name_to_parts(name, ret_parts, nullptr);
    }
    return err;
}

TEST_F(LoggerTest, ChangeLogLevelTakesFiveOrSixPartNames)
{
    bn_binding *binding = nullptr;
    tstr_array *parts = nullptr;
    const char name[] = "/ib/config/logging/vqdreg/level";
    ASSERT_EQ(make_binding(name, 7, &binding, &parts), 0);
    uint8 level = 3;
    ASSERT_EQ(logger_change_log_level(name, parts, binding, &level), 0);
    EXPECT_EQ(level, 7);
    const std::string line = one_line();
    EXPECT_NE(line.find("vqdreg: Change log [level] level to: [7, LOG_DEBUG]"), std::string::npos) << line;
    bn_binding_free(&binding);
    tstr_array_free(&parts);

    const char short_name[] = "/ib/config/level";
    ASSERT_EQ(make_binding(short_name, 9, &binding, &parts), 0);
    ASSERT_EQ(logger_change_log_level(short_name, parts, binding, &level), 0);
    EXPECT_EQ(level, 7);
    const std::string warn = one_line();
    EXPECT_NE(warn.find("logger_change_log_level: Unknown node '/ib/config/level'!"), std::string::npos) << warn;
    bn_binding_free(&binding);
    tstr_array_free(&parts);
}

}  // namespace
