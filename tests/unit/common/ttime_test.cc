// Times and durations: text forms both ways in a fixed zone, duration parsing and its
// refusals, conversions, the calendar, buffer limits, the monotonic uptime and the
// re-reading of the local zone.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common.h"
#include "logging.h"
#include "sandbox.h"
#include "ttime.h"

namespace {

// Heap text of a _to_str call, freed on scope exit.
struct HeapStr {
    char *s = nullptr;
    ~HeapStr() { free(s); }
    std::string str() const { return s != nullptr ? std::string(s) : std::string("<null>"); }
};

// Local time zone of the tests: a POSIX rule, so no zone files are involved.  Central
// Europe, with summer time.
constexpr const char *kTestZone = "CET-1CEST,M3.5.0,M10.5.0/3";

class TimeTextTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", kTestZone, 1);
        tzset();
    }
    void TearDown() override { lt_timezone_handle_changed(); }
};

// ---------------------------------------------------------------------------------------
// Dates, times of day and date-times: parse, print, and back.

TEST_F(TimeTextTest, DateTimeSecondsMatchTheZone)
{
    lt_time_sec t = 0;
    // 2021/06/15 12:34:56 summer time (UTC+2) is 10:34:56 UTC.
    ASSERT_EQ(lt_str_to_datetime_sec("2021/06/15 12:34:56", &t), 0);
    // 1623728096 is 2021/06/15 03:34:56 UTC.
    EXPECT_EQ(t, 1623728096 + 7 * 3600);
    HeapStr s;
    ASSERT_EQ(lt_datetime_sec_to_str(t, ltpf_none, &s.s), 0);
    EXPECT_EQ(s.str(), "2021/06/15 12:34:56");
    HeapStr u;
    ASSERT_EQ(lt_datetime_sec_to_str(t, ltpf_utc, &u.s), 0);
    EXPECT_EQ(u.str(), "2021/06/15 10:34:56");

    // Winter time is UTC+1.
    ASSERT_EQ(lt_str_to_datetime_sec("2021/01/15 12:00:00", &t), 0);
    HeapStr w;
    ASSERT_EQ(lt_datetime_sec_to_str(t, ltpf_utc, &w.s), 0);
    EXPECT_EQ(w.str(), "2021/01/15 11:00:00");
}

TEST_F(TimeTextTest, DateTimeFractionsRoundTrip)
{
    lt_time_ms ms = 0;
    ASSERT_EQ(lt_str_to_datetime_ms("2021/06/15 12:34:56.789", &ms), 0);
    lt_time_sec secs = 0;
    ASSERT_EQ(lt_str_to_datetime_sec("2021/06/15 12:34:56", &secs), 0);
    EXPECT_EQ(ms, static_cast<lt_time_ms>(secs) * 1000 + 789);
    HeapStr s;
    ASSERT_EQ(lt_datetime_ms_to_str(ms, ltpf_none, &s.s), 0);
    EXPECT_EQ(s.str(), "2021/06/15 12:34:56.789");

    lt_time_us us = 0;
    ASSERT_EQ(lt_str_to_datetime_us("2021/06/15 12:34:56.000001", &us), 0);
    EXPECT_EQ(us, static_cast<lt_time_us>(secs) * 1000000 + 1);
    HeapStr su;
    ASSERT_EQ(lt_datetime_us_to_str(us, ltpf_none, &su.s), 0);
    EXPECT_EQ(su.str(), "2021/06/15 12:34:56.000001");

    // Whole seconds still carry the fraction of their unit.
    HeapStr z;
    ASSERT_EQ(lt_datetime_ms_to_str(static_cast<lt_time_ms>(secs) * 1000, ltpf_none, &z.s), 0);
    EXPECT_EQ(z.str(), "2021/06/15 12:34:56.000");

    // Shorter and longer fractions: the value counts, trailing zeros are fine.
    ASSERT_EQ(lt_str_to_datetime_ms("2021/06/15 12:34:56.5", &ms), 0);
    EXPECT_EQ(ms, static_cast<lt_time_ms>(secs) * 1000 + 500);
    ASSERT_EQ(lt_str_to_datetime_ms("2021/06/15 12:34:56.500000", &ms), 0);
    EXPECT_EQ(ms, static_cast<lt_time_ms>(secs) * 1000 + 500);
    // Digits finer than the unit are refused rather than dropped.
    EXPECT_EQ(lt_str_to_datetime_ms("2021/06/15 12:34:56.5001", &ms), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_datetime_sec("2021/06/15 12:34:56.5", &secs), lc_err_bad_type);
}

TEST_F(TimeTextTest, BeforeTheEpochTheFractionCountsForward)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    HeapStr s;
    ASSERT_EQ(lt_datetime_ms_to_str(-1, ltpf_none, &s.s), 0);
    EXPECT_EQ(s.str(), "1969/12/31 23:59:59.999");
    lt_time_ms back = 0;
    ASSERT_EQ(lt_str_to_datetime_ms("1969/12/31 23:59:59.999", &back), 0);
    EXPECT_EQ(back, -1);
}

TEST_F(TimeTextTest, DatesAreLocalMidnights)
{
    lt_time_sec d = 0;
    ASSERT_EQ(lt_str_to_date("2024/02/29", &d), 0);
    HeapStr s;
    ASSERT_EQ(lt_datetime_sec_to_str(d, ltpf_none, &s.s), 0);
    EXPECT_EQ(s.str(), "2024/02/29 00:00:00");
    HeapStr ds;
    ASSERT_EQ(lt_date_to_str(d, ltpf_none, &ds.s), 0);
    EXPECT_EQ(ds.str(), "2024/02/29");
    // Local midnight is 23:00 of the day before in UTC.
    HeapStr du;
    ASSERT_EQ(lt_date_to_str(d, ltpf_utc, &du.s), 0);
    EXPECT_EQ(du.str(), "2024/02/28");

    ASSERT_EQ(lt_str_to_date("  2024/03/01\n", &d), 0);
    EXPECT_EQ(lt_str_to_date("2023/02/29", &d), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_date("2024/04/31", &d), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_date("2024/13/01", &d), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_date("2024/02/28x", &d), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_date("2024-02-28", &d), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_date("", &d), lc_err_bad_type);
    // Beyond what seconds in 32 bits can hold.
    EXPECT_EQ(lt_str_to_date("2100/01/01", &d), lc_err_bad_type);
}

TEST_F(TimeTextTest, TimesOfDayCountFromMidnightWithoutZone)
{
    lt_time_sec t = 0;
    ASSERT_EQ(lt_str_to_daytime_sec("00:02:30", &t), 0);
    EXPECT_EQ(t, 150);
    HeapStr s;
    ASSERT_EQ(lt_daytime_sec_to_str(150, ltpf_none, &s.s), 0);
    EXPECT_EQ(s.str(), "00:02:30");

    lt_time_ms ms = 0;
    ASSERT_EQ(lt_str_to_daytime_ms("23:59:59.999", &ms), 0);
    EXPECT_EQ(ms, 86399999);
    HeapStr sm;
    ASSERT_EQ(lt_daytime_ms_to_str(ms, ltpf_none, &sm.s), 0);
    EXPECT_EQ(sm.str(), "23:59:59.999");

    lt_time_us us = 0;
    ASSERT_EQ(lt_str_to_daytime_us("12:00:00.000250", &us), 0);
    EXPECT_EQ(us, 43200000250LL);
    HeapStr su;
    ASSERT_EQ(lt_daytime_us_to_str(us, ltpf_none, &su.s), 0);
    EXPECT_EQ(su.str(), "12:00:00.000250");

    EXPECT_EQ(lt_str_to_daytime_sec("24:00:00", &t), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_daytime_sec("12:60:00", &t), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_daytime_sec("23:59:60", &t), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_daytime_sec("12:00", &t), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_daytime_ms("12:00:00.", &ms), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_daytime_ms("12:00:00.1x", &ms), lc_err_bad_type);

    // A day or more, or less than nothing, is no time of day.
    HeapStr bad;
    EXPECT_EQ(lt_daytime_sec_to_str(86400, ltpf_none, &bad.s), lc_err_range);
    EXPECT_EQ(bad.s, nullptr);
    EXPECT_EQ(lt_daytime_ms_to_str(-1, ltpf_none, &bad.s), lc_err_range);
}

TEST(TimeFrac, AppendLeavesOutTheLeadingZero)
{
    char buf[32] = "12:00:00";
    ASSERT_EQ(lt_append_frac_secs(5, 1, buf, sizeof(buf)), 0);
    EXPECT_STREQ(buf, "12:00:00.5");
    ASSERT_EQ(lt_append_frac_secs(7, 3, buf, sizeof(buf)), 0);
    EXPECT_STREQ(buf, "12:00:00.5.007");

    char *str = safe_strdup("x");
    ASSERT_EQ(lt_append_frac_secs_to_str(999999, 6, &str), 0);
    EXPECT_STREQ(str, "x.999999");
    free(str);

    // A fraction of a whole second or more is refused.
    char buf2[32] = "";
    EXPECT_NE(lt_append_frac_secs(1000, 3, buf2, sizeof(buf2)), 0);
}

// ---------------------------------------------------------------------------------------
// Durations.

class DurationTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("ttime_test", nullptr, 0, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR), 0);
    }

    // The result of parsing, with what was logged meanwhile.
    static int parse_ms_logged(const char *text, lt_dur_ms *ret, std::string *ret_log)
    {
        ::testing::internal::CaptureStderr();
        const int err = lt_str_to_dur_ms(text, ret);
        *ret_log = ::testing::internal::GetCapturedStderr();
        return err;
    }
};

TEST_F(DurationTest, RepeatedHourIsRefusedWithItsLine)
{
    lt_dur_ms d = 7;
    std::string log;
    EXPECT_EQ(parse_ms_logged("1 hour 2 hours", &d, &log), lc_err_bad_type);
    EXPECT_NE(log.find("Rejecting duration string with multiple 'hour' components: 1 hour 2 hours"),
              std::string::npos)
        << log;
    EXPECT_EQ(d, 0);
}

TEST_F(DurationTest, EveryUnitMayOccurOnlyOnce)
{
    struct Case {
        const char *text;
        const char *unit;
    } cases[] = {
        {"1 day 2 days", "day"},
        {"3 min 4 minutes", "minute"},
        {"1 minute 1 min", "minute"},
        {"5 sec 6 seconds", "second"},
        {"1 second 2 hours 3 sec", "second"},
        {"2 hours 1 day 1 hour", "hour"},
    };
    for (const Case &c : cases) {
        lt_dur_ms d = 0;
        std::string log;
        EXPECT_EQ(parse_ms_logged(c.text, &d, &log), lc_err_bad_type) << c.text;
        const std::string line = std::string("Rejecting duration string with multiple '") + c.unit +
                                 "' components: " + c.text;
        EXPECT_NE(log.find(line), std::string::npos) << c.text << " logged: " << log;
    }
}

TEST_F(DurationTest, ComponentsAddUp)
{
    lt_dur_ms d = 0;
    ASSERT_EQ(lt_str_to_dur_ms("1 day 2 hours 3 minutes 4.5 seconds", &d), 0);
    EXPECT_EQ(d, ((24 + 2) * 3600 + 3 * 60 + 4) * 1000LL + 500);
    // Any order, no space before the unit, commas, upper case, fractions of big units.
    ASSERT_EQ(lt_str_to_dur_ms("30sec, 1 MIN", &d), 0);
    EXPECT_EQ(d, 90000);
    ASSERT_EQ(lt_str_to_dur_ms("1.5 hours", &d), 0);
    EXPECT_EQ(d, 5400000);
    ASSERT_EQ(lt_str_to_dur_ms("-2 days", &d), 0);
    EXPECT_EQ(d, -2 * 86400000LL);

    lt_dur_sec s = 0;
    ASSERT_EQ(lt_str_to_dur_sec("1 day", &s), 0);
    EXPECT_EQ(s, 86400);
    lt_dur_us u = 0;
    ASSERT_EQ(lt_str_to_dur_us("0.000001 sec", &u), 0);
    EXPECT_EQ(u, 1);
}

TEST_F(DurationTest, BareIntegersCountInTheResultUnit)
{
    lt_dur_sec s = 0;
    ASSERT_EQ(lt_str_to_dur_sec("150", &s), 0);
    EXPECT_EQ(s, 150);
    lt_dur_ms m = 0;
    ASSERT_EQ(lt_str_to_dur_ms(" -250 ", &m), 0);
    EXPECT_EQ(m, -250);
    EXPECT_EQ(lt_str_to_dur_sec("2147483648", &s), lc_err_bad_type);
}

TEST_F(DurationTest, BadTextIsRefused)
{
    lt_dur_sec s = 0;
    lt_dur_ms m = 0;
    EXPECT_EQ(lt_str_to_dur_ms("", &m), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_dur_ms("5 fortnights", &m), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_dur_ms("5 min 30", &m), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_dur_ms("min", &m), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_dur_ms(". sec", &m), lc_err_bad_type);
    // Not a whole number of the result's unit.
    EXPECT_EQ(lt_str_to_dur_sec("1.5 sec", &s), lc_err_bad_type);
    EXPECT_EQ(lt_str_to_dur_ms("0.0001 sec", &m), lc_err_bad_type);
    // Too long for 32-bit seconds.
    EXPECT_EQ(lt_str_to_dur_sec("30000 days", &s), lc_err_bad_type);
}

TEST_F(DurationTest, PrintedDurationsReadBack)
{
    HeapStr s;
    ASSERT_EQ(lt_dur_us_to_str(1500000, &s.s), 0);
    EXPECT_EQ(s.str(), "1.500000 seconds");
    lt_dur_us back = 0;
    ASSERT_EQ(lt_str_to_dur_us(s.s, &back), 0);
    EXPECT_EQ(back, 1500000);

    HeapStr n;
    ASSERT_EQ(lt_dur_us_to_str(-250, &n.s), 0);
    EXPECT_EQ(n.str(), "-0.000250 seconds");
    ASSERT_EQ(lt_str_to_dur_us(n.s, &back), 0);
    EXPECT_EQ(back, -250);
}

TEST(DurationCounter, ComponentsFollowTheFlags)
{
    const lt_dur_ms d = ((24 + 2) * 3600 + 3 * 60 + 4) * 1000LL + 500;
    HeapStr all;
    ASSERT_EQ(lt_dur_ms_to_counter_str_ex2(d, &all.s, ltrf_none), 0);
    EXPECT_EQ(all.str(), "1 day 2 hours 3 minutes  4.500 seconds");

    // Hidden days are carried by the hours; hidden seconds are dropped.
    HeapStr hm;
    ASSERT_EQ(lt_dur_ms_to_counter_str_ex2(d, &hm.s, ltrf_show_hours | ltrf_show_minutes), 0);
    EXPECT_EQ(hm.str(), "26 hours 3 minutes");

    HeapStr skip;
    ASSERT_EQ(lt_dur_ms_to_counter_str_ex2(61000, &skip.s, ltrf_show_all | ltrf_skip_leading_zeros),
              0);
    EXPECT_EQ(skip.str(), "1 minute  1.000 second");

    HeapStr zero;
    ASSERT_EQ(lt_dur_ms_to_counter_str_ex2(0, &zero.s, ltrf_skip_leading_zeros), 0);
    EXPECT_EQ(zero.str(), " 0.000 seconds");

    HeapStr neg;
    ASSERT_EQ(lt_dur_ms_to_counter_str_ex2(-90000, &neg.s, ltrf_show_minutes | ltrf_show_seconds),
              0);
    EXPECT_EQ(neg.str(), "-1 minute 30.000 seconds");
}

// ---------------------------------------------------------------------------------------
// Conversions and the calendar.

TEST(TimeConversion, TimevalsSplitSecondsAndMicroseconds)
{
    struct timeval tv = {};
    ASSERT_EQ(lt_time_ms_to_timeval(1500, &tv), 0);
    EXPECT_EQ(tv.tv_sec, 1);
    EXPECT_EQ(tv.tv_usec, 500000);
    ASSERT_EQ(lt_time_ms_to_timeval(1700000000123LL, &tv), 0);
    EXPECT_EQ(tv.tv_sec, 1700000000);
    EXPECT_EQ(tv.tv_usec, 123000);
    ASSERT_EQ(lt_time_sec_to_timeval(42, &tv), 0);
    EXPECT_EQ(tv.tv_sec, 42);
    EXPECT_EQ(tv.tv_usec, 0);

    lt_time_sec ts = 0;
    tv.tv_sec = 99;
    tv.tv_usec = 999999;
    ASSERT_EQ(lt_timeval_to_time_sec(&tv, &ts), 0);
    EXPECT_EQ(ts, 99);
    tv.tv_sec = static_cast<time_t>(INT32_MAX) + 1;
    EXPECT_EQ(lt_timeval_to_time_sec(&tv, &ts), lc_err_range);
}

TEST(TimeConversion, BrokenDownTimesBothWays)
{
    struct tm tm = {};
    ASSERT_EQ(lt_time_sec_to_tm_utc(1623728096, &tm), 0);
    EXPECT_EQ(tm.tm_year, 121);
    EXPECT_EQ(tm.tm_mon, 5);
    EXPECT_EQ(tm.tm_mday, 15);
    EXPECT_EQ(tm.tm_hour, 3);
    lt_time_sec back = 0;
    ASSERT_EQ(lt_tm_utc_to_time_sec(&tm, &back), 0);
    EXPECT_EQ(back, 1623728096);

    setenv("TZ", "JST-9", 1);
    tzset();
    ASSERT_EQ(lt_time_sec_to_tm(1623728096, &tm), 0);
    EXPECT_EQ(tm.tm_hour, 12);
    lt_time_us us = 0;
    ASSERT_EQ(lt_tm_to_time_us(&tm, &us), 0);
    EXPECT_EQ(us, 1623728096LL * 1000000);
    // One second before the epoch is a time, not mktime's failure.
    ASSERT_EQ(lt_time_sec_to_tm(-1, &tm), 0);
    ASSERT_EQ(lt_tm_to_time_us(&tm, &us), 0);
    EXPECT_EQ(us, -1000000);
    lt_timezone_handle_changed();

    struct tm late = {};
    late.tm_year = 2100 - 1900;
    late.tm_mday = 1;
    EXPECT_EQ(lt_tm_utc_to_time_sec(&late, &back), lc_err_range);
}

TEST(TimeConversion, ValidationCatchesImpossibleFields)
{
    struct tm tm = {};
    tm.tm_year = 2024 - 1900;
    tm.tm_mon = 1;
    tm.tm_mday = 29;
    EXPECT_EQ(lt_validate_strptime_struct_tm(&tm), 0);
    tm.tm_year = 2100 - 1900;
    EXPECT_EQ(lt_validate_strptime_struct_tm(&tm), lc_err_bad_type);
    tm.tm_mday = 28;
    tm.tm_hour = 24;
    EXPECT_EQ(lt_validate_strptime_struct_tm(&tm), lc_err_bad_type);
    tm.tm_hour = 23;
    tm.tm_sec = 61;
    EXPECT_EQ(lt_validate_strptime_struct_tm(&tm), lc_err_bad_type);
}

TEST(TimeCalendar, LeapYearsAndMonthLengths)
{
    EXPECT_TRUE(lt_is_leap_year(2024));
    EXPECT_TRUE(lt_is_leap_year(2000));
    EXPECT_FALSE(lt_is_leap_year(1900));
    EXPECT_FALSE(lt_is_leap_year(2023));
    EXPECT_EQ(lt_num_days_in_month(2024, 2), 29);
    EXPECT_EQ(lt_num_days_in_month(1900, 2), 28);
    EXPECT_EQ(lt_num_days_in_month(2023, 1), 31);
    EXPECT_EQ(lt_num_days_in_month(2023, 4), 30);
    EXPECT_EQ(lt_num_days_in_month(2023, 12), 31);
    EXPECT_EQ(lt_num_days_in_month(2023, 0), 0);
    EXPECT_EQ(lt_num_days_in_month(2023, 13), 0);
}

// ---------------------------------------------------------------------------------------
// Buffers.

TEST(TimeBuffers, ExactFitWorksOneLessIsRefused)
{
    setenv("TZ", "UTC0", 1);
    tzset();
    // "1970/01/01 00:00:01.500" is 23 characters.
    char buf[24];
    ASSERT_EQ(lt_datetime_ms_to_buf(1500, ltpf_none, buf, 24), 0);
    EXPECT_STREQ(buf, "1970/01/01 00:00:01.500");
    EXPECT_EQ(lt_datetime_ms_to_buf(1500, ltpf_none, buf, 23), lc_err_no_buffer_space);
    EXPECT_STREQ(buf, "");

    char small[8];
    EXPECT_EQ(lt_date_to_buf(0, ltpf_none, small, sizeof(small)), lc_err_no_buffer_space);
    EXPECT_EQ(lt_daytime_us_to_buf(0, ltpf_none, small, sizeof(small)), lc_err_no_buffer_space);
    EXPECT_EQ(lt_dur_us_to_buf(1, small, sizeof(small)), lc_err_no_buffer_space);
    EXPECT_EQ(lt_daytime_sec_to_buf(0, ltpf_none, small, 0), lc_err_no_buffer_space);
    char fit[9];
    ASSERT_EQ(lt_daytime_sec_to_buf(3661, ltpf_none, fit, sizeof(fit)), 0);
    EXPECT_STREQ(fit, "01:01:01");

    // The fraction that doesn't fit leaves the text alone.
    char part[11] = "12:00:00";
    EXPECT_EQ(lt_append_frac_secs(5, 3, part, sizeof(part)), lc_err_no_buffer_space);
    EXPECT_STREQ(part, "12:00:00");
    lt_timezone_handle_changed();
}

// ---------------------------------------------------------------------------------------
// Now and uptime.

int64 clock_ms(clockid_t id)
{
    struct timespec ts = {};
    clock_gettime(id, &ts);
    return static_cast<int64>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

TEST(TimeNow, UptimeIsTheMonotonicClock)
{
    const int64 before = clock_ms(CLOCK_MONOTONIC);
    const lt_time_ms up = lt_sys_uptime_ms();
    const int64 after = clock_ms(CLOCK_MONOTONIC);
    EXPECT_LE(before, up);
    EXPECT_LE(up, after);
}

TEST(TimeNow, CurrentTimeIsTheWallClockInEachUnit)
{
    const int64 before_ms = clock_ms(CLOCK_REALTIME);
    const lt_time_sec s = lt_curr_time();
    const lt_time_ms ms = lt_curr_time_ms();
    const lt_time_us us = lt_curr_time_us();
    const int64 after_ms = clock_ms(CLOCK_REALTIME);
    EXPECT_LE(before_ms / 1000, s);
    EXPECT_LE(s, after_ms / 1000);
    EXPECT_LE(before_ms, ms);
    EXPECT_LE(ms, after_ms);
    EXPECT_LE(before_ms, us / 1000);
    EXPECT_LE(us / 1000, after_ms);
}

// ---------------------------------------------------------------------------------------
// The local zone.

long gmtoff_of_epoch()
{
    struct tm tm = {};
    time_t zero = 0;
    localtime_r(&zero, &tm);
    return tm.tm_gmtoff;
}

TEST(TimeZone, HandleChangedDropsTzAndReadsTheDefault)
{
    // What the machine's own zone gives, read fresh.
    setenv("TZ", "JST-9", 1);
    tzset();
    unsetenv("TZ");
    tzset();
    const long system_off = gmtoff_of_epoch();

    setenv("TZ", "JST-9", 1);
    tzset();
    ASSERT_EQ(gmtoff_of_epoch(), 9 * 3600);
    lt_timezone_handle_changed();
    EXPECT_EQ(getenv("TZ"), nullptr);
    EXPECT_EQ(gmtoff_of_epoch(), system_off);
}

// The zone file replaced while TZ stays unset: the handler picks up the new zone, and
// the old one again once the file is back.  Needs a private mount namespace to swap the
// file.
TEST(TimeZone, HandleChangedRereadsAReplacedZoneFile)
{
    std::string why;
    if (!ovd_test::enter_sandbox(&why)) {
        GTEST_SKIP() << "no private mount namespace: " << why;
    }
    unsetenv("TZ");
    lt_timezone_handle_changed();
    const long before = gmtoff_of_epoch();
    const char *replacement =
        before == 9 * 3600 ? "/usr/share/zoneinfo/America/New_York" : "/usr/share/zoneinfo/Asia/Tokyo";
    const long expected = before == 9 * 3600 ? -5 * 3600 : 9 * 3600;
    if (access(replacement, R_OK) != 0 || access("/etc/localtime", R_OK) != 0) {
        GTEST_SKIP() << "no zone files here";
    }
    ASSERT_EQ(mount(replacement, "/etc/localtime", nullptr, MS_BIND, nullptr), 0)
        << strerror(errno);

    lt_timezone_handle_changed();
    EXPECT_EQ(gmtoff_of_epoch(), expected);
    EXPECT_EQ(getenv("TZ"), nullptr);

    ASSERT_EQ(umount("/etc/localtime"), 0) << strerror(errno);
    lt_timezone_handle_changed();
    EXPECT_EQ(gmtoff_of_epoch(), before);
}

}  // namespace
