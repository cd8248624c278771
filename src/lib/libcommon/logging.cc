// The process's log state and its one logging call.
#include "logging.h"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "lock_mt.h"
#include "ttime.h"

const char lc_build_number[] = "1";

const lc_enum_string_map lc_component_id_map[] = {
    {LCI_UNK, "unk"},
    {0, nullptr},
};

const lc_enum_string_map lc_customer_component_id_map[] = {
    {LCI_HWD, "hwd"},     {LCI_PORTD, "portd"},     {LCI_OVD, "ovd"},   {LCI_TOPOD, "topod"},
    {LCI_CME, "cme"},     {LCI_FW_UPDT, "fw_updt"}, {LCI_BRELLD, "brelld"},
    {0, nullptr},
};

const lc_enum_string_map lc_log_level_map[] = {
    {LOG_EMERG, "EMERG"},   {LOG_ALERT, "ALERT"},   {LOG_CRIT, "CRIT"}, {LOG_ERR, "ERR"},
    {LOG_WARNING, "WARNING"}, {LOG_NOTICE, "NOTICE"}, {LOG_INFO, "INFO"}, {LOG_DEBUG, "DEBUG"},
    {0, nullptr},
};

const lc_enum_string_map lc_log_level_lower_map[] = {
    {LOG_EMERG, "emerg"},   {LOG_ALERT, "alert"},   {LOG_CRIT, "crit"}, {LOG_ERR, "err"},
    {LOG_WARNING, "warning"}, {LOG_NOTICE, "notice"}, {LOG_INFO, "info"}, {LOG_DEBUG, "debug"},
    {0, nullptr},
};

// The state and its lock: the two process globals of logging.
lc_log_state *lc_log_global_state = nullptr;
lc_lock *lc_log_global_lock = nullptr;

namespace {

constexpr size_t lc_log_format_max = 1024;  // 1023 characters and the terminator
constexpr uint32 lc_time_flags =
    LCO_TIME_SEC | LCO_TIME_DS | LCO_TIME_CS | LCO_TIME_MS | LCO_TIME_US;

bool lc_log_closing = false;
bool lc_log_suspended = false;
bool lc_log_ignoring_err = false;

// Rate limiter: off until lc_log_set_rate_limit.
uint32 lc_log_rl_rate = 0xFFFFFFFF;
uint32 lc_log_rl_level = LOG_DEBUG;
time_t lc_log_rl_second = 0;
uint32 lc_log_rl_count = 0;
uint32 lc_log_rl_thrown = 0;

// A failure inside logging must not log through logging again on the same thread.
thread_local bool lc_log_in_progress = false;

// Reads a symbolic link whose target text is a decimal number.
bool lc_log_read_number_link(const char *path, int *ret_value)
{
    char target[4096];
    const ssize_t len = readlink(path, target, sizeof(target) - 1);
    if (len < 0) {
        return false;
    }
    target[len] = '\0';
    *ret_value = atoi(target);
    return true;
}

struct timespec lc_log_lstat_mtime(const char *path, bool *ret_exists)
{
    struct stat st;
    if (lstat(path, &st) != 0) {
        *ret_exists = false;
        return {};
    }
    *ret_exists = true;
    return st.st_mtim;
}

bool lc_log_same_time(const struct timespec &a, const struct timespec &b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

void lc_log_read_syslog_level(lc_log_state *state)
{
    int level = 0;
    if (lc_log_read_number_link(LC_KFS_SYSLOG_LEVEL_PATH, &level)) {
        if (level < 0) {
            level = 0;
        }
        if (level > LOG_DEBUG) {
            level = LOG_DEBUG;
        }
        setlogmask(LOG_UPTO(level));
        state->lls_syslog_filter_level = static_cast<int8>(level);
    } else {
        state->lls_syslog_filter_level = LOG_DEBUG;
    }
}

void lc_log_read_system_options(lc_log_state *state)
{
    int value = 0;
    state->lls_system_options =
        lc_log_read_number_link(LC_KFS_LOG_OPTIONS_PATH, &value) ? static_cast<uint32>(value) : 0;
}

void lc_log_update_current_options(lc_log_state *state)
{
    state->lls_current_options = (state->lls_default_options & LCO_NO_SYS_OPTIONS)
                                     ? state->lls_default_options
                                     : (state->lls_default_options | state->lls_system_options);
}

// Source files are named in log lines by their base name without extension.
std::string_view lc_log_short_file_name(const char *file)
{
    std::string_view name(file != nullptr ? file : "");
    const size_t slash = name.rfind('/');
    if (slash != std::string_view::npos) {
        name.remove_prefix(slash + 1);
    }
    const size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0) {
        name = name.substr(0, dot);
    }
    return name;
}

// Appends one formatted piece if it fits whole; once a piece does not fit, the
// composition stops and what was put together so far is used.
class lc_log_composer {
public:
    explicit lc_log_composer(char *buf) : buf_(buf) { buf_[0] = '\0'; }

    bool add(const char *format, ...) LC_PRINTF_FORMAT(2, 3)
    {
        if (full_) {
            return false;
        }
        va_list ap;
        va_start(ap, format);
        const int n = vsnprintf(buf_ + len_, lc_log_format_max - len_, format, ap);
        va_end(ap);
        if (n < 0 || len_ + static_cast<size_t>(n) >= lc_log_format_max) {
            buf_[len_] = '\0';
            full_ = true;
            return false;
        }
        len_ += static_cast<size_t>(n);
        return true;
    }

    size_t length() const { return len_; }

private:
    char *buf_;
    size_t len_ = 0;
    bool full_ = false;
};

// The once-a-second re-check of the syslog level link.
void lc_log_check_syslog_level(lc_log_state *state, time_t now)
{
    if (state->lls_stat_syslog_level_last == now) {
        return;
    }
    state->lls_stat_syslog_level_last = now;
    bool exists = false;
    const struct timespec mtime = lc_log_lstat_mtime(LC_KFS_SYSLOG_LEVEL_PATH, &exists);
    if (!exists) {
        state->lls_stat_syslog_level = {};
        return;
    }
    if (!lc_log_same_time(mtime, state->lls_stat_syslog_level)) {
        state->lls_stat_syslog_level = mtime;
        lc_log_read_syslog_level(state);
    }
}

void lc_log_check_system_options(lc_log_state *state, time_t now)
{
    if (state->lls_stat_system_options_last == now) {
        return;
    }
    state->lls_stat_system_options_last = now;
    bool exists = false;
    const struct timespec mtime = lc_log_lstat_mtime(LC_KFS_LOG_OPTIONS_PATH, &exists);
    if (!exists) {
        state->lls_stat_system_options = {};
        state->lls_system_options = 0;
    } else if (!lc_log_same_time(mtime, state->lls_stat_system_options)) {
        state->lls_stat_system_options = mtime;
        lc_log_read_system_options(state);
    }
    lc_log_update_current_options(state);
}

void lc_log_check_localtime(lc_log_state *state, time_t now)
{
    if (state->lls_stat_localtime_last == now) {
        return;
    }
    state->lls_stat_localtime_last = now;
    struct stat st;
    const struct timespec mtime =
        stat(LC_KFS_LOCALTIME_PATH, &st) == 0 ? st.st_mtim : timespec{};
    if (!lc_log_same_time(mtime, state->lls_stat_localtime)) {
        state->lls_stat_localtime = mtime;
        // The zone file changed under us: have the C library read it again.
        lt_timezone_handle_changed();
    }
}

}  // namespace

int lc_log_init(const char *process_name, const char *msg_prefix, uint32 default_log_options,
                uint64 default_msg_tags, int8 default_max_log_level, int syslog_facility,
                uint32 builtin_targets)
{
    int err = 0;
    lc_log_state *state = nullptr;
    bool updating = false;
    bool reopen = false;
    uint32 openlog_flags = 0;
    struct timeval now;
    struct stat st;

    if (process_name == nullptr) {
        return lc_err_unexpected_null;
    }
    if (msg_prefix == nullptr) {
        msg_prefix = "";
    }

    if (lc_log_global_lock != nullptr && lc_log_global_state != nullptr) {
        updating = true;
        if (lc_lock_lock(lc_log_global_lock) != 0) {
            return lc_err_generic_error;
        }
        state = lc_log_global_state;
    } else {
        if (lc_log_global_lock == nullptr) {
            if (lc_lock_init(&lc_log_global_lock, false) != 0 || lc_log_global_lock == nullptr) {
                return lc_err_generic_error;
            }
        }
        if (lc_lock_lock(lc_log_global_lock) != 0) {
            return lc_err_generic_error;
        }
        state = static_cast<lc_log_state *>(calloc(1, sizeof(lc_log_state)));
        if (state == nullptr) {
            lc_lock_unlock(lc_log_global_lock);
            return lc_err_unexpected_null;
        }
    }

    lc_log_read_system_options(state);
    gettimeofday(&now, nullptr);
    state->lls_stat_system_options_last = now.tv_sec;

    state->lls_default_options = default_log_options;
    lc_log_update_current_options(state);

    state->lls_default_tags = static_cast<uint32>(default_msg_tags);
    state->lls_default_max_log_level = default_max_log_level;
    state->lls_global_max_log_level = default_max_log_level;
    strlcpy(state->lls_msg_prefix, msg_prefix, sizeof(state->lls_msg_prefix));
    if (updating && (strncmp(state->lls_process_name, process_name,
                             sizeof(state->lls_process_name) - 1) != 0 ||
                     state->lls_syslog_facility != syslog_facility)) {
        reopen = true;
    }
    strlcpy(state->lls_process_name, process_name, sizeof(state->lls_process_name));
    state->lls_builtin_target_flags = builtin_targets;
    state->lls_syslog_facility = syslog_facility;

    lc_log_read_syslog_level(state);

    openlog_flags = LOG_NDELAY;
    if (!(default_log_options & LCO_NO_PID)) {
        openlog_flags |= LOG_PID;
    }
    state->lls_pid = getpid();
    if (!updating || reopen || openlog_flags != state->lls_openlog_flags) {
        state->lls_openlog_flags = openlog_flags;
        closelog();
        openlog(state->lls_process_name, static_cast<int>(openlog_flags), syslog_facility);
    }

    if (gethostname(state->lls_hostname, sizeof(state->lls_hostname) - 1) != 0) {
        state->lls_hostname[0] = '\0';
    }
    state->lls_hostname[sizeof(state->lls_hostname) - 1] = '\0';
    if (char *dot = strchr(state->lls_hostname, '.')) {
        *dot = '\0';
    }
    gettimeofday(&now, nullptr);
    state->lls_last_time = now;
    if (state->lls_current_options & LCO_TIME_RELATIVE) {
        state->lls_rel_tv_sec = static_cast<uint32>(now.tv_sec);
        state->lls_rel_tv_usec = static_cast<uint32>(now.tv_usec);
    }
    state->lls_rel_is_on = true;

    state->lls_stat_localtime = stat(LC_KFS_LOCALTIME_PATH, &st) == 0 ? st.st_mtim : timespec{};

    state->lls_has_non_syslog =
        state->lls_num_targets > 0 || (builtin_targets & (LCT_STDOUT | LCT_STDERR)) != 0;

    lc_log_global_state = state;
    lc_lock_unlock(lc_log_global_lock);
    return err;
}

int lc_log_internal(const char *function, const char *file, uint32 line, uint32 log_opts,
                    uint32 msg_tags, int level, const char *format, ...)
{
    int err = 0;
    bool rate_marked = false;
    bool locked = false;
    lc_log_state *state = nullptr;
    struct timeval now;
    uint32 opts = 0;
    uint32 tags = 0;
    bool write_head = false;
    char head[lc_log_format_max];
    char body[lc_log_format_max];
    char full[2 * lc_log_format_max];
    int saved_errno = 0;

    if (lc_log_suspended || lc_log_in_progress) {
        return 0;
    }
    if ((level & LC_LOG_RATE_LIMITED) == LC_LOG_RATE_LIMITED) {
        rate_marked = true;
        level &= ~LC_LOG_RATE_LIMITED;
    }
    saved_errno = errno;

    if (lc_log_global_lock == nullptr) {
        if (lc_log_closing) {
            return 0;
        }
        lc_log_init("AUTO-INIT", "unk", 0, static_cast<uint64>(LCI_UNK) << 16, LOG_DEBUG,
                    LOG_USER, LCT_SYSLOG);
        if (lc_log_global_lock == nullptr) {
            errno = saved_errno;
            return lc_err_generic_error;
        }
    }

    lc_log_in_progress = true;
    if (!(log_opts & LCO_SKIP_LOCK)) {
        err = lc_lock_lock(lc_log_global_lock);
        if (err != 0) {
            lc_log_in_progress = false;
            errno = saved_errno;
            return err;
        }
        locked = true;
    }
    state = lc_log_global_state;
    if (state == nullptr) {
        err = lc_err_unexpected_null;
        goto out;
    }

    ++state->lls_call_count;
    gettimeofday(&now, nullptr);

    if (level < LOG_EMERG || level > LOG_DEBUG) {
        syslog(LOG_ERR, "lc_log_*() passed invalid log level: %d", level);
        level = LOG_ERR;
    }
    if (lc_log_ignoring_err && level <= LOG_WARNING) {
        level = LOG_NOTICE;
    }

    if (rate_marked && static_cast<uint32>(level) >= lc_log_rl_level &&
        lc_log_rl_rate != 0xFFFFFFFF) {
        if (now.tv_sec != lc_log_rl_second) {
            if (lc_log_rl_thrown > 0) {
                syslog(0x8E, "debug logging rate limiter - %d messages thrown",
                       static_cast<int>(lc_log_rl_thrown));
            }
            lc_log_rl_second = now.tv_sec;
            lc_log_rl_count = 0;
            lc_log_rl_thrown = 0;
        }
        if (++lc_log_rl_count > lc_log_rl_rate) {
            ++lc_log_rl_thrown;
            goto out;
        }
    }

    lc_log_check_syslog_level(state, now.tv_sec);

    if (level > state->lls_global_max_log_level ||
        (!state->lls_has_non_syslog && level > state->lls_syslog_filter_level)) {
        goto out;
    }

    lc_log_check_system_options(state, now.tv_sec);

    opts = (log_opts & LCO_IGNORE_DEFAULTS) ? log_opts : (log_opts | state->lls_current_options);
    tags = msg_tags | state->lls_default_tags;
    write_head = state->lls_has_non_syslog && !(opts & LCO_NO_SYSLOG_FORMAT);

    {
        long stamp_sec = now.tv_sec;
        long stamp_usec = now.tv_usec;
        if ((opts & lc_time_flags) || write_head) {
            const bool relative = (opts & LCO_TIME_RELATIVE) != 0;
            if (relative && !state->lls_rel_is_on) {
                state->lls_rel_tv_sec = static_cast<uint32>(now.tv_sec);
                state->lls_rel_tv_usec = static_cast<uint32>(now.tv_usec);
            }
            state->lls_rel_is_on = relative;
            if (relative) {
                stamp_sec = now.tv_sec - static_cast<long>(state->lls_rel_tv_sec);
                stamp_usec = now.tv_usec - static_cast<long>(state->lls_rel_tv_usec);
                if (stamp_usec < 0) {
                    stamp_usec += 1000000;
                    stamp_sec -= 1;
                }
            }
        }

        lc_log_check_localtime(state, now.tv_sec);

        lc_log_composer head_out(head);
        if (write_head) {
            char ctime_buf[32];
            const time_t t = now.tv_sec;
            ctime_r(&t, ctime_buf);
            head_out.add("%.15s %s ", ctime_buf + 4, state->lls_hostname);
            if (opts & LCO_NO_PID) {
                head_out.add("%s: ", state->lls_process_name);
            } else {
                head_out.add("%s[%d]: ", state->lls_process_name, static_cast<int>(state->lls_pid));
            }
        }

        lc_log_composer body_out(body);
        bool fits = true;
        if (state->lls_tid_mappings != nullptr && !(opts & LCO_NO_THREAD_ID)) {
            fits = body_out.add("%s %llu: ", "TID",
                                static_cast<unsigned long long>(pthread_self()));
        }
        if (fits && (opts & lc_time_flags)) {
            long sec = stamp_sec;
            if (opts & LCO_TIME_SEC_TRUNC_6DIG) {
                sec %= 1000000;
            } else if (opts & LCO_TIME_SEC_TRUNC_1DIG) {
                sec %= 10;
            }
            if (opts & LCO_TIME_US) {
                fits = body_out.add("[%ld.%06ld] ", sec, stamp_usec);
            } else if (opts & LCO_TIME_MS) {
                fits = body_out.add("[%ld.%03ld] ", sec, stamp_usec / 1000);
            } else if (opts & LCO_TIME_CS) {
                fits = body_out.add("[%ld.%02ld] ", sec, stamp_usec / 10000);
            } else if (opts & LCO_TIME_DS) {
                fits = body_out.add("[%ld.%01ld] ", sec, stamp_usec / 100000);
            } else {
                fits = body_out.add("[%ld] ", sec);
            }
        }
        if (fits) {
            const uint32 component = (tags & static_cast<uint32>(LMT_COMPONENT_ID_MASK)) >> 16;
            fits = body_out.add("[%s.%s]: ", lc_log_get_component_name(component),
                                lc_enum_to_string_quiet(lc_log_level_map,
                                                        static_cast<uint32>(level)));
        }
        if (fits && state->lls_msg_prefix[0] != '\0') {
            fits = body_out.add("%s: ", state->lls_msg_prefix);
        }
        if (fits) {
            if (opts & LCO_SOURCE_INFO) {
                const std::string_view short_file = lc_log_short_file_name(file);
                body_out.add("%s(), %.*s:%d, build %s: %s\n", function != nullptr ? function : "",
                             static_cast<int>(short_file.size()), short_file.data(),
                             static_cast<int>(line), lc_build_number, format);
            } else {
                body_out.add("%s\n", format);
            }
        }
        snprintf(full, sizeof(full), "%s%s", head, body);
    }

    errno = saved_errno;
    if (state->lls_builtin_target_flags & LCT_SYSLOG) {
        va_list ap;
        va_start(ap, format);
        vsyslog(level | (rate_marked ? LC_LOG_RATE_LIMITED : 0), body, ap);
        va_end(ap);
    }
    if (state->lls_builtin_target_flags & LCT_STDOUT) {
        va_list ap;
        va_start(ap, format);
        vfprintf(stdout, full, ap);
        va_end(ap);
        fflush(stdout);
    }
    if (state->lls_builtin_target_flags & LCT_STDERR) {
        va_list ap;
        va_start(ap, format);
        vfprintf(stderr, full, ap);
        va_end(ap);
        fflush(stderr);
    }
    ++state->lls_log_count;
    state->lls_last_time = now;

out:
    if (locked) {
        lc_lock_unlock(lc_log_global_lock);
    }
    lc_log_in_progress = false;
    errno = saved_errno;
    return err;
}

int lc_log_close(void)
{
    lc_lock *lock = lc_log_global_lock;
    lc_log_closing = true;
    if (lock == nullptr || lc_log_global_state == nullptr) {
        return lc_err_unexpected_null;
    }
    if (lc_lock_lock(lock) != 0) {
        return lc_err_generic_error;
    }
    lc_log_state *state = lc_log_global_state;
    lc_log_global_state = nullptr;
    lc_log_global_lock = nullptr;
    lc_lock_unlock(lock);
    lc_lock_deinit(&lock);
    free(state->lls_tid_mappings);
    free(state);
    closelog();
    lc_log_closing = false;
    return 0;
}

int lc_log_get_max_log_level(int *ret_max_log_level)
{
    int err = 0;
    bail_null(ret_max_log_level);
    *ret_max_log_level = LOG_DEBUG;
    if (lc_log_global_state != nullptr) {
        const lc_log_state *state = lc_log_global_state;
        int level = state->lls_global_max_log_level;
        if (!state->lls_has_non_syslog && state->lls_syslog_filter_level < level) {
            level = state->lls_syslog_filter_level;
        }
        *ret_max_log_level = level;
    }
bail:
    return err;
}

const char *lc_log_get_component_name(uint32 component_id)
{
    const char *name = lc_enum_to_string_quiet_null(lc_component_id_map, component_id);
    if (name == nullptr) {
        name = lc_enum_to_string_quiet_null(lc_customer_component_id_map, component_id);
    }
    return name != nullptr ? name : "UNKNOWN_COMP";
}

int lc_log_severity_string_to_int(const char *sev_str, int *ret_sev_int)
{
    int err = 0;
    uint32 value = 0;
    bail_null(ret_sev_int);
    bail_null(sev_str);
    if (strcmp(sev_str, "none") == 0) {
        *ret_sev_int = -1;
        goto bail;
    }
    err = lc_string_to_enum(lc_log_level_lower_map, sev_str, &value);
    bail_error(err);
    *ret_sev_int = static_cast<int>(value);
bail:
    return err;
}

int lc_log_set_rate_limit(uint32 rate, uint32 level)
{
    if (level > LOG_DEBUG) {
        return 0;
    }
    lc_log_rl_rate = rate;
    lc_log_rl_level = level;
    return 0;
}

void lc_log_ignore_err(tbool is_ignore)
{
    lc_log_ignoring_err = is_ignore;
}

void lc_log_suspend(tbool suspended)
{
    lc_log_suspended = suspended;
}

int lc_log_recheck(void)
{
    lc_log_state *state = lc_log_global_state;
    if (state == nullptr) {
        return lc_err_unexpected_null;
    }
    state->lls_stat_localtime_last = 0;
    state->lls_stat_syslog_level_last = 0;
    state->lls_stat_system_options_last = 0;
    return 0;
}
