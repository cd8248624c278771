// Time vocabulary of the system.
#include "ttime.h"

#include <strings.h>
#include <sys/time.h>
#include <time.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "logging.h"
#include "tstring.h"

namespace {

// Every text form of this module fits easily; a longer text is not ours.
constexpr size_t lt_text_max = 160;

constexpr int64 lt_us_per_sec = 1000000;
constexpr int64 lt_ms_per_sec = 1000;
constexpr int64 lt_sec_per_day = 86400;

const int64 lt_pow10[] = {1,
                          10,
                          100,
                          1000,
                          10000,
                          100000,
                          1000000,
                          10000000,
                          100000000,
                          1000000000,
                          10000000000LL,
                          100000000000LL,
                          1000000000000LL,
                          10000000000000LL,
                          100000000000000LL,
                          1000000000000000LL,
                          10000000000000000LL,
                          100000000000000000LL,
                          1000000000000000000LL};
constexpr uint32 lt_pow10_max = 18;

// Floor division and its non-negative remainder, for times before the epoch.
int64 lt_floor_div(int64 a, int64 b)
{
    int64 q = a / b;
    if ((a % b) != 0 && ((a < 0) != (b < 0))) {
        --q;
    }
    return q;
}

int64 lt_floor_mod(int64 a, int64 b)
{
    return a - lt_floor_div(a, b) * b;
}

bool lt_is_space(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool lt_is_digit(char c)
{
    return c >= '0' && c <= '9';
}

std::string_view lt_trim(const char *str)
{
    std::string_view sv(str);
    while (!sv.empty() && lt_is_space(sv.front())) {
        sv.remove_prefix(1);
    }
    while (!sv.empty() && lt_is_space(sv.back())) {
        sv.remove_suffix(1);
    }
    return sv;
}

// Copies a finished text out to the caller's buffer.
int lt_text_to_buf(const char *text, char *ret_buf, uint32 buf_size)
{
    int err = 0;
    size_t len = 0;

    bail_null(ret_buf);
    len = strlen(text);
    if (len + 1 > buf_size) {
        if (buf_size > 0) {
            ret_buf[0] = '\0';
        }
        bail_force(lc_err_no_buffer_space);
    }
    memcpy(ret_buf, text, len + 1);

bail:
    return err;
}

// Copies a finished text out as a heap string.
int lt_text_to_str(const char *text, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = safe_strdup(text);
    bail_null(*ret_str);

bail:
    return err;
}

// The fraction text ".ddd" of frac / 10^num_digits.
int lt_frac_text(uint32 frac, uint32 num_digits, char *ret_text, size_t text_size)
{
    int err = 0;
    char tmp[32] = "";
    int n = 0;

    bail_require(num_digits >= 1 && num_digits <= 9);
    bail_require(static_cast<int64>(frac) < lt_pow10[num_digits]);
    n = snprintf(tmp, sizeof(tmp), "%.*lf", static_cast<int>(num_digits),
                 static_cast<double>(frac) / static_cast<double>(lt_pow10[num_digits]));
    // "0.ddd": the leading zero is left out.
    bail_require(n >= 2 && tmp[0] == '0' && tmp[1] == '.');
    bail_require(static_cast<size_t>(n) < text_size);
    memcpy(ret_text, tmp + 1, static_cast<size_t>(n));

bail:
    return err;
}

// Broken-down time of a time_t, local or UTC by the flags.
int lt_time_t_to_tm(time_t t, lt_print_flags_bf flags, struct tm *ret_tm)
{
    int err = 0;
    struct tm *res = nullptr;

    if ((flags & ltpf_utc) != 0) {
        res = gmtime_r(&t, ret_tm);
    } else {
        res = localtime_r(&t, ret_tm);
    }
    if (res == nullptr) {
        bail_force(lc_err_range);
    }

bail:
    return err;
}

// "%Y/%m/%d" or "%Y/%m/%d %H:%M:%S" of a time in whole seconds, with the fraction
// frac / 10^num_digits appended when num_digits is non-zero.
int lt_format_abs(int64 secs, uint32 frac, uint32 num_digits, bool with_time,
                  lt_print_flags_bf flags, char *ret_text, size_t text_size)
{
    int err = 0;
    struct tm tm = {};
    size_t len = 0;

    err = lt_time_t_to_tm(static_cast<time_t>(secs), flags, &tm);
    bail_error(err);
    len = strftime(ret_text, text_size, with_time ? "%Y/%m/%d %H:%M:%S" : "%Y/%m/%d", &tm);
    bail_require(len > 0);
    if (num_digits > 0) {
        err = lt_frac_text(frac, num_digits, ret_text + len, text_size - len);
        bail_error(err);
    }

bail:
    return err;
}

// "%H:%M:%S" of a time since midnight counted in units of 10^-num_digits seconds.
int lt_format_daytime(int64 daytime, uint32 num_digits, char *ret_text, size_t text_size)
{
    int err = 0;
    const int64 per_sec = lt_pow10[num_digits];
    int64 secs = 0;
    int n = 0;

    if (daytime < 0 || daytime >= lt_sec_per_day * per_sec) {
        bail_force(lc_err_range);
    }
    secs = daytime / per_sec;
    n = snprintf(ret_text, text_size, "%02d:%02d:%02d", static_cast<int>(secs / 3600),
                 static_cast<int>((secs / 60) % 60), static_cast<int>(secs % 60));
    bail_require(n > 0 && static_cast<size_t>(n) < text_size);
    if (num_digits > 0) {
        err = lt_frac_text(static_cast<uint32>(daytime % per_sec), num_digits, ret_text + n,
                           text_size - static_cast<size_t>(n));
        bail_error(err);
    }

bail:
    return err;
}

// A parse failure: one line at information level, then lc_err_bad_type.
int lt_bad_text(const char *what, const char *str)
{
    lc_log_basic(LOG_INFO, "Could not parse %s from '%s'", what, str);
    return lc_err_bad_type;
}

// The digits of a fraction of a second (after the '.'), in units of 10^-num_digits
// seconds.  Digits finer than the unit must be zero.
bool lt_parse_frac(std::string_view digits, uint32 num_digits, int64 *ret_frac)
{
    int64 frac = 0;

    if (digits.empty()) {
        return false;
    }
    for (size_t i = 0; i < digits.size(); ++i) {
        if (!lt_is_digit(digits[i])) {
            return false;
        }
        if (i < num_digits) {
            frac = frac * 10 + (digits[i] - '0');
        } else if (digits[i] != '0') {
            return false;
        }
    }
    for (size_t i = digits.size(); i < num_digits; ++i) {
        frac *= 10;
    }
    *ret_frac = frac;
    return true;
}

// Parses "<format>[.fraction]" with strptime and checks the fields.  The fields the
// format doesn't cover stay as the caller set them.
bool lt_parse_fields(const char *str, const char *format, uint32 num_digits, struct tm *inout_tm,
                     int64 *ret_frac)
{
    char text[lt_text_max] = "";
    const std::string_view trimmed = lt_trim(str);
    const char *rest = nullptr;

    *ret_frac = 0;
    if (trimmed.empty() || trimmed.size() >= sizeof(text)) {
        return false;
    }
    memcpy(text, trimmed.data(), trimmed.size());
    text[trimmed.size()] = '\0';
    // strptime skips white space before numbers; ours begin with a digit.
    if (!lt_is_digit(text[0])) {
        return false;
    }
    rest = strptime(text, format, inout_tm);
    if (rest == nullptr) {
        return false;
    }
    if (*rest == '.') {
        if (!lt_parse_frac(std::string_view(rest + 1), num_digits, ret_frac)) {
            return false;
        }
    } else if (*rest != '\0') {
        return false;
    }
    return lt_validate_strptime_struct_tm(inout_tm) == 0;
}

// A date with or without time of day in local time, in units of 10^-num_digits s.
int lt_parse_abs(const char *str, bool with_time, uint32 num_digits, const char *what,
                 int64 *ret_value)
{
    int err = 0;
    struct tm tm = {};
    int64 frac = 0;
    lt_time_us time_us = 0;

    bail_null(str);
    bail_null(ret_value);
    *ret_value = 0;
    if (!lt_parse_fields(str, with_time ? "%Y/%m/%d %H:%M:%S" : "%Y/%m/%d",
                         with_time ? num_digits : 0, &tm, &frac)) {
        err = lt_bad_text(what, str);
        goto bail;
    }
    tm.tm_isdst = -1;
    if (lt_tm_to_time_us(&tm, &time_us) != 0) {
        err = lt_bad_text(what, str);
        goto bail;
    }
    *ret_value = time_us / lt_us_per_sec * lt_pow10[num_digits] + frac;

bail:
    return err;
}

// A time of day, in units of 10^-num_digits s.
int lt_parse_daytime(const char *str, uint32 num_digits, const char *what, int64 *ret_value)
{
    int err = 0;
    struct tm tm = {};
    int64 frac = 0;

    bail_null(str);
    bail_null(ret_value);
    *ret_value = 0;
    // A valid day under the time, for the check of the fields.
    tm.tm_year = 70;
    tm.tm_mon = 0;
    tm.tm_mday = 1;
    // A leap second has no place in a time of day counted from midnight.
    if (!lt_parse_fields(str, "%H:%M:%S", num_digits, &tm, &frac) || tm.tm_sec > 59) {
        err = lt_bad_text(what, str);
        goto bail;
    }
    *ret_value = ((static_cast<int64>(tm.tm_hour) * 60 + tm.tm_min) * 60 + tm.tm_sec) *
                     lt_pow10[num_digits] +
                 frac;

bail:
    return err;
}

// The units of a duration text, in microseconds.
struct lt_dur_unit {
    const char *ldu_name;   // as in the refusal of a repeat
    const char *ldu_words[4];
    int64 ldu_us;
};

const lt_dur_unit lt_dur_units[] = {
    {"day", {"day", "days", nullptr, nullptr}, lt_sec_per_day * lt_us_per_sec},
    {"hour", {"hour", "hours", nullptr, nullptr}, 3600 * lt_us_per_sec},
    {"minute", {"min", "minute", "minutes", nullptr}, 60 * lt_us_per_sec},
    {"second", {"sec", "second", "seconds", nullptr}, lt_us_per_sec},
};
constexpr size_t lt_num_dur_units = sizeof(lt_dur_units) / sizeof(lt_dur_units[0]);

int lt_find_dur_unit(std::string_view word)
{
    for (size_t u = 0; u < lt_num_dur_units; ++u) {
        for (const char *w : lt_dur_units[u].ldu_words) {
            if (w != nullptr && word.size() == strlen(w) &&
                strncasecmp(word.data(), w, word.size()) == 0) {
                return static_cast<int>(u);
            }
        }
    }
    return -1;
}

// Reads a run of digits of at most max_digits into *ret_value.
bool lt_read_digits(std::string_view *inout_sv, uint32 max_digits, int64 *ret_value,
                    uint32 *ret_count)
{
    int64 value = 0;
    uint32 count = 0;

    while (!inout_sv->empty() && lt_is_digit(inout_sv->front())) {
        if (count >= max_digits) {
            return false;
        }
        value = value * 10 + (inout_sv->front() - '0');
        ++count;
        inout_sv->remove_prefix(1);
    }
    *ret_value = value;
    *ret_count = count;
    return true;
}

// A duration text, in units of unit_us microseconds, within [min_value, max_value].
int lt_parse_dur(const char *str, int64 unit_us, int64 min_value, int64 max_value,
                 const char *what, int64 *ret_value)
{
    int err = 0;
    std::string_view sv;
    bool negative = false;
    bool seen[lt_num_dur_units] = {};
    bool any = false;
    __int128 total_us = 0;
    __int128 result = 0;

    bail_null(str);
    bail_null(ret_value);
    *ret_value = 0;
    sv = lt_trim(str);
    if (!sv.empty() && (sv.front() == '-' || sv.front() == '+')) {
        negative = (sv.front() == '-');
        sv.remove_prefix(1);
    }

    // A bare integer counts in the unit of the result.
    if (!sv.empty() && sv.find_first_not_of("0123456789") == std::string_view::npos) {
        int64 value = 0;
        uint32 count = 0;
        if (!lt_read_digits(&sv, lt_pow10_max, &value, &count)) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        result = negative ? -static_cast<__int128>(value) : value;
        if (result < min_value || result > max_value) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        *ret_value = static_cast<int64>(result);
        goto bail;
    }

    for (;;) {
        int64 int_part = 0;
        int64 frac_part = 0;
        uint32 int_digits = 0;
        uint32 frac_digits = 0;
        size_t word_len = 0;
        int unit = -1;
        __int128 frac_us = 0;

        while (!sv.empty() && (lt_is_space(sv.front()) || sv.front() == ',')) {
            sv.remove_prefix(1);
        }
        if (sv.empty()) {
            break;
        }
        // The number: digits, optionally a fraction.
        if (!lt_read_digits(&sv, lt_pow10_max, &int_part, &int_digits)) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        if (!sv.empty() && sv.front() == '.') {
            sv.remove_prefix(1);
            if (!lt_read_digits(&sv, lt_pow10_max, &frac_part, &frac_digits)) {
                err = lt_bad_text(what, str);
                goto bail;
            }
        }
        if (int_digits + frac_digits == 0) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        while (!sv.empty() && lt_is_space(sv.front())) {
            sv.remove_prefix(1);
        }
        // The unit word.
        while (word_len < sv.size() &&
               ((sv[word_len] >= 'a' && sv[word_len] <= 'z') ||
                (sv[word_len] >= 'A' && sv[word_len] <= 'Z'))) {
            ++word_len;
        }
        unit = lt_find_dur_unit(sv.substr(0, word_len));
        if (unit < 0) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        sv.remove_prefix(word_len);
        if (seen[unit]) {
            lc_log_basic(LOG_WARNING, "Rejecting duration string with multiple '%s' components: %s",
                         lt_dur_units[unit].ldu_name, str);
            err = lc_err_bad_type;
            goto bail;
        }
        seen[unit] = true;
        any = true;

        // Exact to the microsecond: a finer fraction is no duration of ours.
        frac_us = static_cast<__int128>(frac_part) * lt_dur_units[unit].ldu_us;
        if (frac_us % lt_pow10[frac_digits] != 0) {
            err = lt_bad_text(what, str);
            goto bail;
        }
        total_us += static_cast<__int128>(int_part) * lt_dur_units[unit].ldu_us +
                    frac_us / lt_pow10[frac_digits];
    }
    if (!any || total_us % unit_us != 0) {
        err = lt_bad_text(what, str);
        goto bail;
    }
    result = total_us / unit_us;
    if (negative) {
        result = -result;
    }
    if (result < min_value || result > max_value) {
        err = lt_bad_text(what, str);
        goto bail;
    }
    *ret_value = static_cast<int64>(result);

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Now and uptime.

lt_time_sec lt_curr_time(void)
{
    struct timeval tv = {};
    gettimeofday(&tv, nullptr);
    return static_cast<lt_time_sec>(tv.tv_sec);
}

lt_time_ms lt_curr_time_ms(void)
{
    struct timeval tv = {};
    gettimeofday(&tv, nullptr);
    return static_cast<lt_time_ms>(tv.tv_sec) * lt_ms_per_sec + tv.tv_usec / 1000;
}

lt_time_us lt_curr_time_us(void)
{
    struct timeval tv = {};
    gettimeofday(&tv, nullptr);
    return static_cast<lt_time_us>(tv.tv_sec) * lt_us_per_sec + tv.tv_usec;
}

lt_time_ms lt_sys_uptime_ms(void)
{
    int err = 0;
    struct timespec ts = {};
    lt_time_ms uptime_ms = 0;

    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) {
        bail_errno(lc_err_generic_error, "clock_gettime(CLOCK_MONOTONIC)");
    }
    uptime_ms = static_cast<lt_time_ms>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;

bail:
    return err == 0 ? uptime_ms : 0;
}

// ---------------------------------------------------------------------------------------
// Conversions.

int lt_time_sec_to_timeval(lt_time_sec ts, struct timeval *ret_tv)
{
    int err = 0;

    bail_null(ret_tv);
    ret_tv->tv_sec = ts;
    ret_tv->tv_usec = 0;

bail:
    return err;
}

int lt_time_ms_to_timeval(lt_time_ms tm, struct timeval *ret_tv)
{
    int err = 0;

    bail_null(ret_tv);
    ret_tv->tv_sec = static_cast<time_t>(tm / 1000);
    ret_tv->tv_usec = static_cast<suseconds_t>((tm % 1000) * 1000);

bail:
    return err;
}

int lt_timeval_to_time_sec(const struct timeval *tv, lt_time_sec *ret_ts)
{
    int err = 0;

    bail_null(ret_ts);
    *ret_ts = 0;
    bail_null(tv);
    if (tv->tv_sec < INT32_MIN || tv->tv_sec > INT32_MAX) {
        bail_force(lc_err_range);
    }
    *ret_ts = static_cast<lt_time_sec>(tv->tv_sec);

bail:
    return err;
}

int lt_time_sec_to_tm(lt_time_sec ts, struct tm *ret_tm)
{
    int err = 0;

    bail_null(ret_tm);
    err = lt_time_t_to_tm(ts, ltpf_none, ret_tm);
    bail_error(err);

bail:
    return err;
}

int lt_time_sec_to_tm_utc(lt_time_sec ts, struct tm *ret_tm)
{
    int err = 0;

    bail_null(ret_tm);
    err = lt_time_t_to_tm(ts, ltpf_utc, ret_tm);
    bail_error(err);

bail:
    return err;
}

int lt_tm_to_time_us(const struct tm *tm, lt_time_us *ret_time)
{
    int err = 0;
    struct tm copy = {};
    time_t t = 0;

    bail_null(ret_time);
    *ret_time = 0;
    bail_null(tm);
    copy = *tm;
    // mktime gives -1 both for failure and for one second before the epoch; it fills
    // in the weekday only on success.
    copy.tm_wday = -1;
    t = mktime(&copy);
    if (t == static_cast<time_t>(-1) && copy.tm_wday == -1) {
        bail_force(lc_err_range);
    }
    if (t > INT64_MAX / lt_us_per_sec || t < INT64_MIN / lt_us_per_sec) {
        bail_force(lc_err_range);
    }
    *ret_time = static_cast<lt_time_us>(t) * lt_us_per_sec;

bail:
    return err;
}

int lt_tm_utc_to_time_sec(const struct tm *tm, lt_time_sec *ret_ts)
{
    int err = 0;
    struct tm copy = {};
    time_t t = 0;

    bail_null(ret_ts);
    *ret_ts = 0;
    bail_null(tm);
    copy = *tm;
    copy.tm_wday = -1;
    t = timegm(&copy);
    if (t == static_cast<time_t>(-1) && copy.tm_wday == -1) {
        bail_force(lc_err_range);
    }
    if (t < INT32_MIN || t > INT32_MAX) {
        bail_force(lc_err_range);
    }
    *ret_ts = static_cast<lt_time_sec>(t);

bail:
    return err;
}

int lt_validate_strptime_struct_tm(const struct tm *tm)
{
    if (tm == nullptr) {
        return lc_err_bad_type;
    }
    if (tm->tm_mon < 0 || tm->tm_mon > 11 || tm->tm_mday < 1 ||
        tm->tm_mday > lt_num_days_in_month(tm->tm_year + 1900, tm->tm_mon + 1)) {
        return lc_err_bad_type;
    }
    if (tm->tm_hour < 0 || tm->tm_hour > 23 || tm->tm_min < 0 || tm->tm_min > 59 ||
        tm->tm_sec < 0 || tm->tm_sec > 60) {
        return lc_err_bad_type;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// Text out.

// A fraction that doesn't fit leaves the text in the buffer as it was.
int lt_append_frac_secs(uint32 frac, uint32 num_digits, char *inout_buf, uint32 buf_size)
{
    int err = 0;
    char frac_text[32] = "";
    size_t len = 0;
    size_t frac_len = 0;

    bail_null(inout_buf);
    err = lt_frac_text(frac, num_digits, frac_text, sizeof(frac_text));
    bail_error(err);
    len = strnlen(inout_buf, buf_size);
    bail_require(len < buf_size);
    frac_len = strlen(frac_text);
    if (len + frac_len + 1 > buf_size) {
        bail_force(lc_err_no_buffer_space);
    }
    memcpy(inout_buf + len, frac_text, frac_len + 1);

bail:
    return err;
}

int lt_append_frac_secs_to_str(uint32 frac, uint32 num_digits, char **inout_str)
{
    int err = 0;
    char frac_text[32] = "";
    char *joined = nullptr;

    bail_null(inout_str);
    err = lt_frac_text(frac, num_digits, frac_text, sizeof(frac_text));
    bail_error(err);
    joined = smprintf("%s%s", *inout_str != nullptr ? *inout_str : "", frac_text);
    bail_null(joined);
    free(*inout_str);
    *inout_str = joined;

bail:
    return err;
}

int lt_date_to_buf(lt_time_sec date, lt_print_flags_bf flags, char *ret_buf, uint32 buf_size)
{
    int err = 0;
    char text[lt_text_max] = "";

    err = lt_format_abs(date, 0, 0, false, flags, text, sizeof(text));
    bail_error(err);
    err = lt_text_to_buf(text, ret_buf, buf_size);
    bail_error(err);

bail:
    return err;
}

int lt_date_to_str(lt_time_sec date, lt_print_flags_bf flags, char **ret_str)
{
    int err = 0;
    char text[lt_text_max] = "";

    bail_null(ret_str);
    *ret_str = nullptr;
    err = lt_format_abs(date, 0, 0, false, flags, text, sizeof(text));
    bail_error(err);
    err = lt_text_to_str(text, ret_str);
    bail_error(err);

bail:
    return err;
}

// The time-of-day and date-with-time forms of the three units share one shape: format
// into a local text, then hand it out.
#define LT_DEFINE_TEXT_OUT(name, value_type, format_call)                                \
    int name##_to_buf(value_type value, lt_print_flags_bf flags, char *ret_buf,           \
                      uint32 buf_size)                                                    \
    {                                                                                     \
        int err = 0;                                                                      \
        char text[lt_text_max] = "";                                                      \
        (void)flags;                                                                      \
        err = format_call;                                                                \
        bail_error(err);                                                                  \
        err = lt_text_to_buf(text, ret_buf, buf_size);                                    \
        bail_error(err);                                                                  \
    bail:                                                                                 \
        return err;                                                                       \
    }                                                                                     \
    int name##_to_str(value_type value, lt_print_flags_bf flags, char **ret_str)          \
    {                                                                                     \
        int err = 0;                                                                      \
        char text[lt_text_max] = "";                                                      \
        (void)flags;                                                                      \
        bail_null(ret_str);                                                               \
        *ret_str = nullptr;                                                               \
        err = format_call;                                                                \
        bail_error(err);                                                                  \
        err = lt_text_to_str(text, ret_str);                                              \
        bail_error(err);                                                                  \
    bail:                                                                                 \
        return err;                                                                       \
    }

// Times of day take no zone: the flags have nothing to select.
LT_DEFINE_TEXT_OUT(lt_daytime_sec, lt_time_sec, lt_format_daytime(value, 0, text, sizeof(text)))
LT_DEFINE_TEXT_OUT(lt_daytime_ms, lt_time_ms,
                   lt_format_daytime(value, lt_frac_digits_ms, text, sizeof(text)))
LT_DEFINE_TEXT_OUT(lt_daytime_us, lt_time_us,
                   lt_format_daytime(value, lt_frac_digits_us, text, sizeof(text)))

LT_DEFINE_TEXT_OUT(lt_datetime_sec, lt_time_sec,
                   lt_format_abs(value, 0, 0, true, flags, text, sizeof(text)))
LT_DEFINE_TEXT_OUT(lt_datetime_ms, lt_time_ms,
                   lt_format_abs(lt_floor_div(value, lt_ms_per_sec),
                                 static_cast<uint32>(lt_floor_mod(value, lt_ms_per_sec)),
                                 lt_frac_digits_ms, true, flags, text, sizeof(text)))
LT_DEFINE_TEXT_OUT(lt_datetime_us, lt_time_us,
                   lt_format_abs(lt_floor_div(value, lt_us_per_sec),
                                 static_cast<uint32>(lt_floor_mod(value, lt_us_per_sec)),
                                 lt_frac_digits_us, true, flags, text, sizeof(text)))

#undef LT_DEFINE_TEXT_OUT

int lt_dur_us_to_buf(lt_dur_us dur, char *ret_buf, uint32 buf_size)
{
    int err = 0;
    char text[lt_text_max] = "";

    snprintf(text, sizeof(text), "%lf seconds",
             static_cast<double>(dur) / static_cast<double>(lt_us_per_sec));
    err = lt_text_to_buf(text, ret_buf, buf_size);
    bail_error(err);

bail:
    return err;
}

int lt_dur_us_to_str(lt_dur_us dur, char **ret_str)
{
    int err = 0;
    char text[lt_text_max] = "";

    bail_null(ret_str);
    *ret_str = nullptr;
    snprintf(text, sizeof(text), "%lf seconds",
             static_cast<double>(dur) / static_cast<double>(lt_us_per_sec));
    err = lt_text_to_str(text, ret_str);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Text in.

int lt_str_to_date(const char *str, lt_time_sec *ret_date)
{
    int err = 0;
    int64 value = 0;

    bail_null(ret_date);
    *ret_date = 0;
    err = lt_parse_abs(str, false, 0, "a date", &value);
    bail_error_quiet(err);
    if (value < INT32_MIN || value > INT32_MAX) {
        err = lt_bad_text("a date", str);
        goto bail;
    }
    *ret_date = static_cast<lt_time_sec>(value);

bail:
    return err;
}

int lt_str_to_daytime_sec(const char *str, lt_time_sec *ret_daytime)
{
    int err = 0;
    int64 value = 0;

    bail_null(ret_daytime);
    *ret_daytime = 0;
    err = lt_parse_daytime(str, 0, "a time of day", &value);
    bail_error_quiet(err);
    *ret_daytime = static_cast<lt_time_sec>(value);

bail:
    return err;
}

int lt_str_to_daytime_ms(const char *str, lt_time_ms *ret_daytime)
{
    int err = 0;

    bail_null(ret_daytime);
    err = lt_parse_daytime(str, lt_frac_digits_ms, "a time of day", ret_daytime);
    bail_error_quiet(err);

bail:
    return err;
}

int lt_str_to_daytime_us(const char *str, lt_time_us *ret_daytime)
{
    int err = 0;

    bail_null(ret_daytime);
    err = lt_parse_daytime(str, lt_frac_digits_us, "a time of day", ret_daytime);
    bail_error_quiet(err);

bail:
    return err;
}

int lt_str_to_datetime_sec(const char *str, lt_time_sec *ret_datetime)
{
    int err = 0;
    int64 value = 0;

    bail_null(ret_datetime);
    *ret_datetime = 0;
    err = lt_parse_abs(str, true, 0, "a date and time", &value);
    bail_error_quiet(err);
    if (value < INT32_MIN || value > INT32_MAX) {
        err = lt_bad_text("a date and time", str);
        goto bail;
    }
    *ret_datetime = static_cast<lt_time_sec>(value);

bail:
    return err;
}

int lt_str_to_datetime_ms(const char *str, lt_time_ms *ret_datetime)
{
    int err = 0;

    bail_null(ret_datetime);
    err = lt_parse_abs(str, true, lt_frac_digits_ms, "a date and time", ret_datetime);
    bail_error_quiet(err);

bail:
    return err;
}

int lt_str_to_datetime_us(const char *str, lt_time_us *ret_datetime)
{
    int err = 0;

    bail_null(ret_datetime);
    err = lt_parse_abs(str, true, lt_frac_digits_us, "a date and time", ret_datetime);
    bail_error_quiet(err);

bail:
    return err;
}

int lt_str_to_dur_sec(const char *str, lt_dur_sec *ret_dur)
{
    int err = 0;
    int64 value = 0;

    bail_null(ret_dur);
    *ret_dur = 0;
    err = lt_parse_dur(str, lt_us_per_sec, INT32_MIN, INT32_MAX, "a duration", &value);
    bail_error_quiet(err);
    *ret_dur = static_cast<lt_dur_sec>(value);

bail:
    return err;
}

int lt_str_to_dur_ms(const char *str, lt_dur_ms *ret_dur)
{
    int err = 0;

    bail_null(ret_dur);
    err = lt_parse_dur(str, 1000, INT64_MIN, INT64_MAX, "a duration", ret_dur);
    bail_error_quiet(err);

bail:
    return err;
}

int lt_str_to_dur_us(const char *str, lt_dur_us *ret_dur)
{
    int err = 0;

    bail_null(ret_dur);
    err = lt_parse_dur(str, 1, INT64_MIN, INT64_MAX, "a duration", ret_dur);
    bail_error_quiet(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Display.

int lt_dur_ms_to_counter_str_ex2(lt_dur_ms dm, char **ret_str, lt_render_flags_bf flags)
{
    static const uint64 unit_ms[] = {static_cast<uint64>(lt_sec_per_day) * 1000, 3600 * 1000,
                                     60 * 1000, 1000};
    static const char *const singular[] = {" day", " hour", " minute", " second"};
    static const char *const plural[] = {" days", " hours", " minutes", " seconds"};
    static const lt_render_flags_bf show[] = {ltrf_show_days, ltrf_show_hours,
                                              ltrf_show_minutes, ltrf_show_seconds};
    int err = 0;
    lt_render_flags_bf shown = flags & ltrf_show_all;
    uint64 rest = 0;
    char numbers[4][48] = {};
    const char *units[4] = {};
    bool present[4] = {};
    bool is_zero[4] = {};
    int last = -1;
    char text[lt_text_max] = "";
    size_t len = 0;
    bool leading = true;

    bail_null(ret_str);
    *ret_str = nullptr;
    if (shown == 0) {
        shown = ltrf_show_all;
    }
    // The magnitude, also of the most negative value.
    rest = dm < 0 ? static_cast<uint64>(-(dm + 1)) + 1 : static_cast<uint64>(dm);

    for (int i = 0; i < 4; ++i) {
        if ((shown & show[i]) == 0) {
            continue;
        }
        present[i] = true;
        last = i;
        if (i < 3) {
            const uint64 value = rest / unit_ms[i];
            rest %= unit_ms[i];
            snprintf(numbers[i], sizeof(numbers[i]), "%" PRIu64, value);
            units[i] = value == 1 ? singular[i] : plural[i];
            is_zero[i] = value == 0;
        } else {
            snprintf(numbers[i], sizeof(numbers[i]), "%6.3f", static_cast<double>(rest) / 1000.0);
            units[i] = rest == 1000 ? singular[i] : plural[i];
            is_zero[i] = rest == 0;
        }
    }

    if (dm < 0) {
        text[len++] = '-';
    }
    for (int i = 0; i < 4; ++i) {
        int n = 0;
        if (!present[i]) {
            continue;
        }
        if (leading && (flags & ltrf_skip_leading_zeros) != 0 && is_zero[i] && i != last) {
            continue;
        }
        n = snprintf(text + len, sizeof(text) - len, "%s%s%s", leading ? "" : " ", numbers[i],
                     units[i]);
        bail_require(n > 0 && static_cast<size_t>(n) < sizeof(text) - len);
        len += static_cast<size_t>(n);
        leading = false;
    }
    err = lt_text_to_str(text, ret_str);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Calendar.

tbool lt_is_leap_year(int32 year)
{
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int32 lt_num_days_in_month(int32 year, int32 month)
{
    static const int32 days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

    if (month < 1 || month > 12) {
        return 0;
    }
    if (month == 2 && lt_is_leap_year(year)) {
        return 29;
    }
    return days[month - 1];
}

// ---------------------------------------------------------------------------------------
// Zone.

void lt_timezone_handle_changed(void)
{
    // The C library reads the zone again only when TZ differs from what it saw last:
    // pass through a zone it can't have seen, then back to none, which means the file.
    setenv("TZ", "error", 1);
    tzset();
    unsetenv("TZ");
    tzset();
}
