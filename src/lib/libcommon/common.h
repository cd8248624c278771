// Common definitions every module of the system stands on: fixed-width types, the
// boolean, the error codes and their texts, the bail-out convention, enum/string maps
// and a few safe string helpers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

typedef uint8_t uint8;
typedef uint16_t uint16;
typedef uint32_t uint32;
typedef uint64_t uint64;
typedef int8_t int8;
typedef int16_t int16;
typedef int32_t int32;
typedef int64_t int64;

// The boolean of the whole system: one byte, false = 0, true = 1.
typedef bool tbool;

#define LC_PRINTF_FORMAT(fmt_idx, arg_idx) __attribute__((format(printf, fmt_idx, arg_idx)))

// A zeroed block of size bytes, as calloc(1, size) gives, freed with free().  It is taken
// through malloc, which hands a block of a size just freed back from the thread's cache;
// the C library's calloc always goes the long way round.  For the small records made and
// freed by the thousand per message.
inline void *lc_zalloc(size_t size)
{
    void *block = malloc(size);
    if (block != nullptr) {
        // Without this the compiler fuses the two calls back into one to calloc.
        __asm__ volatile("" : : "r"(block) : "memory");
        memset(block, 0, size);
    }
    return block;
}

enum lc_error_code {
    lc_err_no_error = 0,
    lc_err_generic_error = 14000,
    lc_err_unexpected_null = 14001,
    lc_err_assertion_failed = 14002,
    lc_err_nyi = 14003,
    lc_err_not_found = 14004,
    lc_err_exists = 14005,
    lc_err_multiple = 14006,
    lc_err_unexpected_eof = 14007,
    lc_err_unexpected_arg = 14008,
    lc_err_bad_path = 14009,
    lc_err_bad_file = 14010,
    lc_err_no_buffer_space = 14011,
    lc_err_parse_error = 14012,
    lc_err_file_not_found = 14013,
    lc_err_io_error = 14014,
    lc_err_io_blocking_error = 14015,
    lc_err_io_closed = 14016,
    lc_err_io_timeout = 14017,
    lc_err_io_bad_existence = 14018,
    lc_err_io_verify_failed = 14019,
    lc_err_io_bad_family = 14020,
    lc_err_unexpected_case = 14021,
    lc_err_bad_type = 14022,
    lc_err_bad_utf8_seq = 14023,
    lc_err_divide_by_zero = 14024,
    lc_err_no_fs_space = 14025,
    lc_err_decryption_failure = 14026,
    lc_err_read_only = 14027,
    lc_err_java_exception = 14028,
    lc_err_limit_exceeded = 14029,
    lc_err_too_many_fds = 14030,
    lc_err_not_initialized = 14031,
    lc_err_lock_busy = 14032,
    lc_err_lock_not_locked = 14033,
    lc_err_lock_bad_owner = 14034,
    lc_err_range = 14035,
    lc_err_invalid_param = 14036,
    lc_err_skip_value = 14037,
    lc_err_has_children = 14090,
    lc_err_not_an_ancestor = 14091,
    lc_err_no_path = 14092,
    lc_err_foreach_delete = 14100,
    lc_err_foreach_remove = 14101,
    lc_err_foreach_halt_err = 14102,
    lc_err_foreach_halt_ok = 14103,
    lc_err_reset_timeout = 14110,
    lc_err_event_delete = 14111,
    lc_err_not_cli_shell = 14115,
    lc_err_cli_cmd_too_long = 14116,
    lc_err_cancelled = 14120,
    lc_err_cancelled_error = 14121,
    lc_err_wrong_num_instances = 14125,
    lc_err_transient_failure = 14201,
    lc_err_db_unrecognized_type = 14301,
};

// A row of value and text; a table of rows ends with a null text.
struct lc_enum_string_map {
    uint64 lesm_enum;
    const char *lesm_string;
};

struct lc_signed_enum_string_map {
    int32 lsesm_enum;
    const char *lsesm_string;
};

extern const lc_enum_string_map lc_error_code_map[];
extern const lc_enum_string_map lc_signal_names[];

const char *lc_enum_to_string(const lc_enum_string_map *map, uint32 value);
const char *lc_enum_to_string_quiet(const lc_enum_string_map *map, uint32 value);
const char *lc_enum_to_string_quiet_null(const lc_enum_string_map *map, uint32 value);
int lc_enum_to_string_quiet_err(const lc_enum_string_map *map, uint32 value,
                                const char **ret_string);
int lc_string_to_enum(const lc_enum_string_map *map, const char *string, uint32 *ret_enum);

const char *lc_signed_enum_to_string_quiet(const lc_signed_enum_string_map *map, int32 value);
int lc_string_to_signed_enum(const lc_signed_enum_string_map *map, const char *string,
                             int32 *ret_enum);

int lc_str_to_bool(const char *str, tbool *ret_value);
// A decimal number of 0 to 4294967295 and nothing else: no sign, no blanks, no other
// base.  Anything else is lc_err_bad_type, and *ret_value is 0.
int lc_str_to_uint32(const char *str, uint32 *ret_value);
// The same, for 0 to 255.
int lc_str_to_uint8(const char *str, uint8 *ret_value);
const char *lc_bool_to_str(tbool value);

tbool lc_is_prefix(const char *small, const char *large, tbool ignore_case);
tbool lc_is_suffix(const char *small, const char *large, tbool ignore_case);
int memcasecmp(const void *a, const void *b, size_t len);

char *safe_strdup(const char *str);
size_t safe_strlen(const char *str);
int safe_strcmp(const char *a, const char *b);
int safe_close(int *inout_fd);
size_t strlcpy(char *dst, const char *src, size_t size);
size_t strlcat(char *dst, const char *src, size_t size);

// Creates the process-wide locks; called once at start.
int lc_init(void);
// Quiet lookup in lc_signal_names: null for an unknown number.
const char *lc_signal_num_to_name(int signum);

// ---------------------------------------------------------------------------------------
// The bail-out convention.  A fallible function has a local `int err = 0` and one label
// `bail:` at which it releases what it holds and returns `err`.  Each check logs where the
// failure first arises, with function, file and line; lc_err_cancelled passes up quietly.

void bail_debug(void);
void bail_quiet_debug(void);
void bail_log_error(const char *func, const char *file, uint32 line, int err);
void bail_log_null(const char *func, const char *file, uint32 line);
void bail_log_required(const char *func, const char *file, uint32 line);
void bail_log_force(const char *func, const char *file, uint32 line, int err);
void bail_log_errno(const char *func, const char *file, uint32 line, const char *format, ...)
    LC_PRINTF_FORMAT(4, 5);

// Logs a failed result the way bail_error does, without leaving the function.  Returns
// the code, so that callers can note it.
int lc_complain_error(const char *func, const char *file, uint32 line, int err);

#define bail_error(code_expr)                                               \
    do {                                                                    \
        const int bail_code_ = (code_expr);                                 \
        if (bail_code_ != 0) {                                              \
            if (bail_code_ == lc_err_cancelled) {                           \
                bail_quiet_debug();                                         \
            } else {                                                        \
                bail_log_error(__func__, __FILE__, __LINE__, bail_code_);   \
                bail_debug();                                               \
            }                                                               \
            goto bail;                                                      \
        }                                                                   \
    } while (0)

// Leaves without a log line on any non-zero code.
#define bail_error_quiet(code_expr)     \
    do {                                \
        if ((code_expr) != 0) {         \
            bail_quiet_debug();         \
            goto bail;                  \
        }                               \
    } while (0)

#define bail_null(ptr_expr)                                  \
    do {                                                     \
        if ((ptr_expr) == nullptr) {                         \
            err = lc_err_unexpected_null;                    \
            bail_log_null(__func__, __FILE__, __LINE__);     \
            bail_debug();                                    \
            goto bail;                                       \
        }                                                    \
    } while (0)

#define bail_require(cond_expr)                                  \
    do {                                                         \
        if (!(cond_expr)) {                                      \
            err = lc_err_assertion_failed;                       \
            bail_log_required(__func__, __FILE__, __LINE__);     \
            bail_debug();                                        \
            goto bail;                                           \
        }                                                        \
    } while (0)

#define bail_force(code_expr)                                    \
    do {                                                         \
        err = (code_expr);                                       \
        bail_log_force(__func__, __FILE__, __LINE__, err);       \
        bail_debug();                                            \
        goto bail;                                               \
    } while (0)

// After a failed system call: sets err to the chosen code and logs errno's text with the
// caller's message.
#define bail_errno(code_expr, ...)                                       \
    do {                                                                 \
        bail_log_errno(__func__, __FILE__, __LINE__, __VA_ARGS__);       \
        err = (code_expr);                                               \
        bail_debug();                                                    \
        goto bail;                                                       \
    } while (0)

#define bail_quiet()            \
    do {                        \
        bail_quiet_debug();     \
        goto bail;              \
    } while (0)

#define complain_error(code_expr) lc_complain_error(__func__, __FILE__, __LINE__, (code_expr))
