// Time vocabulary of the system: types that carry their unit in the name, the current
// time, the monotonic uptime on which timers are measured, conversions to and from the
// C library's structures, and the text forms of dates, times and durations.
//
// Text forms:
//   date               "%Y/%m/%d"                 local time
//   time of day        "%H:%M:%S"                 seconds since midnight, no zone
//   date with time     "%Y/%m/%d %H:%M:%S"        local time
//   fractions          ".ddd" (ms) or ".dddddd" (us) appended to the seconds
//   duration           "%lf seconds"
// Local time follows the C library's zone (see lt_timezone_handle_changed).
#pragma once

#include <sys/time.h>
#include <time.h>

#include "common.h"

// Wall clock, seconds since the epoch.
typedef int32 lt_time_sec;
// Wall clock, milliseconds since the epoch.
typedef int64 lt_time_ms;
// Wall clock, microseconds since the epoch.
typedef int64 lt_time_us;
// A duration in seconds.
typedef int32 lt_dur_sec;
// A duration in milliseconds.
typedef int64 lt_dur_ms;
// A duration in microseconds.
typedef int64 lt_dur_us;

// Options of the text-out functions of dates and times; ltpf_none for the usual form.
typedef uint32 lt_print_flags_bf;
enum {
    ltpf_none = 0,
    // Dates and date-times rendered in UTC instead of local time.
    ltpf_utc = 1 << 0,
};

// What lt_dur_ms_to_counter_str_ex2 shows: any combination of the four components, and
// whether leading components that are zero are left out.  ltrf_none shows all four.
typedef uint32 lt_render_flags_bf;
enum {
    ltrf_none = 0,
    // Leading shown components whose value is zero are left out (the last shown one
    // always stays).  Alone it is the usual display form of a duration value.
    ltrf_skip_leading_zeros = 1 << 1,
    ltrf_show_days = 1 << 2,
    ltrf_show_hours = 1 << 3,
    ltrf_show_minutes = 1 << 4,
    ltrf_show_seconds = 1 << 5,
    ltrf_show_all = ltrf_show_days | ltrf_show_hours | ltrf_show_minutes | ltrf_show_seconds,
};

// Number of fraction digits of the millisecond and microsecond text forms.
static constexpr uint32 lt_frac_digits_ms = 3;
static constexpr uint32 lt_frac_digits_us = 6;

// ---------------------------------------------------------------------------------------
// Now and uptime.

// Current wall clock in seconds (gettimeofday).
lt_time_sec lt_curr_time(void);
// Current wall clock in milliseconds.
lt_time_ms lt_curr_time_ms(void);
// Current wall clock in microseconds.
lt_time_us lt_curr_time_us(void);

// Milliseconds of the system's monotonic clock: unaffected by setting the wall clock.
// A clock failure is logged and gives 0.
lt_time_ms lt_sys_uptime_ms(void);

// ---------------------------------------------------------------------------------------
// Conversions.

// Seconds into a timeval (no microseconds).
int lt_time_sec_to_timeval(lt_time_sec ts, struct timeval *ret_tv);
// Milliseconds into a timeval: seconds are ms / 1000, microseconds (ms % 1000) * 1000.
int lt_time_ms_to_timeval(lt_time_ms tm, struct timeval *ret_tv);
// The whole seconds of a timeval; lc_err_range if they don't fit an lt_time_sec.
int lt_timeval_to_time_sec(const struct timeval *tv, lt_time_sec *ret_ts);
// Broken-down local time of a time.
int lt_time_sec_to_tm(lt_time_sec ts, struct tm *ret_tm);
// Broken-down UTC of a time.
int lt_time_sec_to_tm_utc(lt_time_sec ts, struct tm *ret_tm);
// The time of a broken-down local time (tm_isdst as mktime takes it), in microseconds.
// lc_err_range when the C library can't represent it.
int lt_tm_to_time_us(const struct tm *tm, lt_time_us *ret_time);
// The time of a broken-down UTC; lc_err_range if it doesn't fit an lt_time_sec.
int lt_tm_utc_to_time_sec(const struct tm *tm, lt_time_sec *ret_ts);
// Checks the fields strptime filled in: a real calendar day (month 1-12, day within
// the month, leap years counted) and a time of day 00:00:00 to 23:59:60.  0 if valid,
// lc_err_bad_type (without a log line) if not.
int lt_validate_strptime_struct_tm(const struct tm *tm);

// ---------------------------------------------------------------------------------------
// Text out.  Each _to_buf writes a terminated text into ret_buf of buf_size bytes and
// gives lc_err_no_buffer_space (ret_buf then empty) if it doesn't fit; each _to_str
// gives a heap string in *ret_str (null on failure) that the caller frees with
// free().  A time of day out of 0 to 24 hours gives lc_err_range.

// Appends the fraction frac / 10^num_digits of a second, as "%.<num_digits>lf" without
// the leading zero (".500"), to the text already in inout_buf.  num_digits is 1 to 9;
// frac must be below 10^num_digits.
int lt_append_frac_secs(uint32 frac, uint32 num_digits, char *inout_buf, uint32 buf_size);
// The same for a heap string: *inout_str is replaced by a longer one.
int lt_append_frac_secs_to_str(uint32 frac, uint32 num_digits, char **inout_str);

// A date: "%Y/%m/%d" of the day the time falls on.
int lt_date_to_buf(lt_time_sec date, lt_print_flags_bf flags, char *ret_buf, uint32 buf_size);
int lt_date_to_str(lt_time_sec date, lt_print_flags_bf flags, char **ret_str);

// A time of day, counted from midnight: "%H:%M:%S", "%H:%M:%S.mmm", "%H:%M:%S.uuuuuu".
int lt_daytime_sec_to_buf(lt_time_sec daytime, lt_print_flags_bf flags, char *ret_buf,
                          uint32 buf_size);
int lt_daytime_sec_to_str(lt_time_sec daytime, lt_print_flags_bf flags, char **ret_str);
int lt_daytime_ms_to_buf(lt_time_ms daytime, lt_print_flags_bf flags, char *ret_buf,
                         uint32 buf_size);
int lt_daytime_ms_to_str(lt_time_ms daytime, lt_print_flags_bf flags, char **ret_str);
int lt_daytime_us_to_buf(lt_time_us daytime, lt_print_flags_bf flags, char *ret_buf,
                         uint32 buf_size);
int lt_daytime_us_to_str(lt_time_us daytime, lt_print_flags_bf flags, char **ret_str);

// A date with time: "%Y/%m/%d %H:%M:%S" with the fraction of its unit.
int lt_datetime_sec_to_buf(lt_time_sec datetime, lt_print_flags_bf flags, char *ret_buf,
                           uint32 buf_size);
int lt_datetime_sec_to_str(lt_time_sec datetime, lt_print_flags_bf flags, char **ret_str);
int lt_datetime_ms_to_buf(lt_time_ms datetime, lt_print_flags_bf flags, char *ret_buf,
                          uint32 buf_size);
int lt_datetime_ms_to_str(lt_time_ms datetime, lt_print_flags_bf flags, char **ret_str);
int lt_datetime_us_to_buf(lt_time_us datetime, lt_print_flags_bf flags, char *ret_buf,
                          uint32 buf_size);
int lt_datetime_us_to_str(lt_time_us datetime, lt_print_flags_bf flags, char **ret_str);

// A duration: "%lf seconds" ("1.500000 seconds").
int lt_dur_us_to_buf(lt_dur_us dur, char *ret_buf, uint32 buf_size);
int lt_dur_us_to_str(lt_dur_us dur, char **ret_str);

// ---------------------------------------------------------------------------------------
// Text in.  Leading and trailing white space is ignored; bad text gives lc_err_bad_type.
// A fraction of a second may have any number of digits, but digits finer than the
// unit must be zero.

// "%Y/%m/%d": the local midnight that starts the day.
int lt_str_to_date(const char *str, lt_time_sec *ret_date);
// "%H:%M:%S" with an optional fraction: the time since midnight.
int lt_str_to_daytime_sec(const char *str, lt_time_sec *ret_daytime);
int lt_str_to_daytime_ms(const char *str, lt_time_ms *ret_daytime);
int lt_str_to_daytime_us(const char *str, lt_time_us *ret_daytime);
// "%Y/%m/%d %H:%M:%S" with an optional fraction, in local time.
int lt_str_to_datetime_sec(const char *str, lt_time_sec *ret_datetime);
int lt_str_to_datetime_ms(const char *str, lt_time_ms *ret_datetime);
int lt_str_to_datetime_us(const char *str, lt_time_us *ret_datetime);
// A duration: either a bare integer, counted in the unit of the result, or components
// "<number> <unit>" (the number may have a fraction; the space is optional), with the
// unit words day(s), hour(s), min/minute(s), sec/second(s), each unit at most once
// ("1 day 2 hours 30 min 1.5 seconds").  A repeated unit is logged and refused.  The
// result must be a whole number of the unit and fit its type.
int lt_str_to_dur_sec(const char *str, lt_dur_sec *ret_dur);
int lt_str_to_dur_ms(const char *str, lt_dur_ms *ret_dur);
int lt_str_to_dur_us(const char *str, lt_dur_us *ret_dur);

// ---------------------------------------------------------------------------------------
// Display.

// A duration for people, in the form "%s%s %s%s %s%s %s%s" of days, hours, minutes and
// seconds, the seconds as "%6.3f": "1 day 2 hours 3 minutes  4.500 seconds".  flags
// choose the components; a shown component takes what the components left out above
// it would have carried.  A negative duration is rendered with a leading '-'.
int lt_dur_ms_to_counter_str_ex2(lt_dur_ms dm, char **ret_str, lt_render_flags_bf flags);

// ---------------------------------------------------------------------------------------
// Calendar.

// Whether a year of the Gregorian calendar is a leap year.
tbool lt_is_leap_year(int32 year);
// Days in a month (1 to 12) of a year; 0 for a month out of range.
int32 lt_num_days_in_month(int32 year, int32 month);

// ---------------------------------------------------------------------------------------
// Zone.

// Makes the C library read the local zone anew after the zone file changed: leaves the
// environment without TZ.
void lt_timezone_handle_changed(void);
