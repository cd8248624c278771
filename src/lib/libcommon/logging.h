// The process-wide log: one state, one lock, one call (lc_log_internal) through which
// every line of the system goes to syslog (and, when asked, stdout or stderr).
#pragma once

#include <syslog.h>
#include <sys/time.h>
#include <time.h>
#include <sys/types.h>

#include "common.h"

// Log options, per call and as defaults.
enum {
    LCO_none = 0,
    LCO_IGNORE_DEFAULTS = 1,
    LCO_NO_PID = 2,
    LCO_NO_SYSLOG_FORMAT = 4,
    LCO_TIME_SEC = 8,
    LCO_TIME_DS = 16,
    LCO_TIME_CS = 32,
    LCO_TIME_MS = 64,
    LCO_TIME_US = 128,
    LCO_TIME_RELATIVE = 256,
    LCO_TIME_SEC_TRUNC_6DIG = 512,
    LCO_TIME_SEC_TRUNC_1DIG = 1024,
    LCO_SOURCE_INFO = 2048,
    LCO_NO_THREAD_ID = 4096,
    LCO_NO_SYS_OPTIONS = 8192,
    LCO_SKIP_LOCK = 16384,
};

// Targets.  Only the first three are carried out.
enum {
    LCT_SYSLOG = 1,
    LCT_STDOUT = 2,
    LCT_STDERR = 4,
    LCT_CONSOLE = 8,
    LCT_BUILTIN_MASK = 255,
    LCT_FILE = 257,
    LCT_FD = 258,
};

// Message tags: common tags in the low 16 bits, the component id above them.
static constexpr uint64 LMT_COMMON_TAGS_MASK = 65535;
static constexpr uint64 LMT_COMPONENT_ID_MASK = 4294901760ULL;

// Component ids: the framework's "unk", and the daemons of the appliance that this one
// names in its logs.  Any other id prints as "UNKNOWN_COMP".
enum lc_component_id {
    LCI_UNK = 19,
    LCI_HWD = 259,
    LCI_PORTD = 264,
    LCI_OVD = 265,
    LCI_TOPOD = 266,
    LCI_CME = 270,
    LCI_FW_UPDT = 271,
    LCI_BRELLD = 274,
};

extern const lc_enum_string_map lc_component_id_map[];
extern const lc_enum_string_map lc_customer_component_id_map[];
extern const lc_enum_string_map lc_log_level_map[];
extern const lc_enum_string_map lc_log_level_lower_map[];

// Build number printed in lines with source information.
extern const char lc_build_number[];

#define LC_LOG_MAX_TARGETS 20

struct lc_target_state {
    int8 lts_target_max_log_level;
    int lts_fd;
    char lts_filename[4096];
    tbool lts_have_initialized;
};

struct lc_tid_mapping {
    uint64 ltm_native_tid;
    uint32 ltm_compact_tid;
};

struct lc_log_state {
    char lls_process_name[32];
    char lls_msg_prefix[80];
    uint32 lls_default_options;
    uint32 lls_default_tags;
    int8 lls_default_max_log_level;
    int8 lls_global_max_log_level;
    uint32 lls_builtin_target_flags;
    int lls_syslog_facility;
    uint32 lls_openlog_flags;
    lc_target_state lls_targets[LC_LOG_MAX_TARGETS];
    uint32 lls_num_targets;
    lc_tid_mapping *lls_tid_mappings;
    char lls_hostname[256];
    pid_t lls_pid;
    struct timeval lls_last_time;
    // Modification times of the three kfs files (to the nanosecond, so that two changes
    // within one second are both seen) and the second of their last check.
    struct timespec lls_stat_localtime;
    time_t lls_stat_localtime_last;
    struct timespec lls_stat_syslog_level;
    time_t lls_stat_syslog_level_last;
    struct timespec lls_stat_system_options;
    time_t lls_stat_system_options_last;
    tbool lls_rel_is_on;
    uint32 lls_rel_tv_sec;
    uint32 lls_rel_tv_usec;
    int8 lls_syslog_filter_level;
    tbool lls_has_non_syslog;
    uint32 lls_system_options;
    uint32 lls_current_options;
    uint32 lls_call_count;
    uint32 lls_log_count;
};

// The files through which the system's management steers logging.
#define LC_KFS_SYSLOG_LEVEL_PATH "/var/opt/kfs/output/sysloglevel"
#define LC_KFS_LOG_OPTIONS_PATH "/var/opt/kfs/output/log_options"
#define LC_KFS_LOCALTIME_PATH "/var/opt/kfs/output/localtime"

int lc_log_init(const char *process_name, const char *msg_prefix, uint32 default_log_options,
                uint64 default_msg_tags, int8 default_max_log_level, int syslog_facility,
                uint32 builtin_targets);
int lc_log_internal(const char *function, const char *file, uint32 line, uint32 log_opts,
                    uint32 msg_tags, int level, const char *format, ...) LC_PRINTF_FORMAT(7, 8);
int lc_log_close(void);
int lc_log_get_max_log_level(int *ret_max_log_level);
const char *lc_log_get_component_name(uint32 component_id);
int lc_log_severity_string_to_int(const char *sev_str, int *ret_sev_int);
int lc_log_set_rate_limit(uint32 rate, uint32 level);
void lc_log_ignore_err(tbool is_ignore);
void lc_log_suspend(tbool suspended);
int lc_log_recheck(void);

// Marks a message as subject to the rate limiter when ORed into its level.
#define LC_LOG_RATE_LIMITED 0x88

// The standard calls: current function, file and line; plain options and tags.
#define lc_log_basic(level, ...) \
    lc_log_internal(__func__, __FILE__, __LINE__, LCO_none, 0, (level), __VA_ARGS__)
// The same, with function, file and line printed in the line.
#define lc_log_source(level, ...) \
    lc_log_internal(__func__, __FILE__, __LINE__, LCO_SOURCE_INFO, 0, (level), __VA_ARGS__)
// Rate-limited message.
#define lc_log_limited(level, ...)                                              \
    lc_log_internal(__func__, __FILE__, __LINE__, LCO_none, 0,                  \
                    (level) | LC_LOG_RATE_LIMITED, __VA_ARGS__)
