// Error texts, bail-out logging, enum/string maps and small safe helpers.
#include "common.h"

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "lock_mt.h"
#include "logging.h"

const lc_enum_string_map lc_error_code_map[] = {
    {lc_err_no_error, "no error"},
    {lc_err_generic_error, "generic error"},
    {lc_err_unexpected_null, "unexpected NULL"},
    {lc_err_assertion_failed, "assertion failed"},
    {lc_err_nyi, "not yet implemented"},
    {lc_err_not_found, "item not found"},
    {lc_err_exists, "item unexpectedly already exists"},
    {lc_err_multiple, "expected single item, found multiple"},
    {lc_err_unexpected_eof, "unexpected EOF"},
    {lc_err_unexpected_arg, "unknown command line argument"},
    {lc_err_bad_path, "invalid path name"},
    {lc_err_bad_file, "invalid file"},
    {lc_err_no_buffer_space, "buffer space exhausted"},
    {lc_err_parse_error, "generic parser error"},
    {lc_err_file_not_found, "file or path not found"},
    {lc_err_io_error, "generic IO error"},
    {lc_err_io_blocking_error, "IO source/sink would block"},
    {lc_err_io_closed, "IO source/sink is closed"},
    {lc_err_io_timeout, "IO operation timed out"},
    {lc_err_io_bad_existence, "IO operation had unexpected file existence"},
    {lc_err_io_verify_failed, "IO verify failed"},
    {lc_err_io_bad_family, "IO operation used unsupported address family"},
    {lc_err_unexpected_case, "unexpected case in switch statement"},
    {lc_err_bad_type, "type conversion failed, or bad data type provided"},
    {lc_err_bad_utf8_seq, "bad UTF-8 character sequence"},
    {lc_err_divide_by_zero, "divide by zero"},
    {lc_err_no_fs_space, "filesystem out of space"},
    {lc_err_decryption_failure, "decryption failure"},
    {lc_err_read_only, "read-only"},
    {lc_err_java_exception, "java exception"},
    {lc_err_limit_exceeded, "limit exceeded"},
    {lc_err_too_many_fds, "too many fds"},
    {lc_err_not_initialized, "not initialized"},
    {lc_err_lock_busy, "lock busy"},
    {lc_err_lock_not_locked, "lock should have been locked"},
    {lc_err_lock_bad_owner, "lock operation by bad owner"},
    {lc_err_range, "value out of range"},
    {lc_err_invalid_param, "invalid parameter"},
    {lc_err_skip_value, "skip value"},
    {lc_err_has_children, "tree: tried to delete node with children"},
    {lc_err_not_an_ancestor, "tree: node is not an ancestor"},
    {lc_err_no_path, "tree: no preexisting path to specified node"},
    {lc_err_foreach_delete, "foreach: delete current element"},
    {lc_err_foreach_remove, "foreach: remove current element"},
    {lc_err_foreach_halt_err, "foreach: halt iteration with error"},
    {lc_err_foreach_halt_ok, "foreach: halt iteration without error"},
    {lc_err_reset_timeout, "CLI shell: reset timer for event callback"},
    {lc_err_event_delete, "CLI shell: delete event callback registration"},
    {lc_err_not_cli_shell, "CLI shell func called but not available"},
    // lc_err_cli_cmd_too_long has no text of its own.
    {lc_err_cancelled, "Operation cancelled"},
    {lc_err_cancelled_error, "Operation cancelled / error"},
    {lc_err_wrong_num_instances, "wrong number of instances"},
    {lc_err_transient_failure, "transient failure"},
    {lc_err_db_unrecognized_type, "database contains node with unrecognized type"},
    {0, nullptr},
};

const lc_enum_string_map lc_signal_names[] = {
    {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},     {SIGQUIT, "SIGQUIT"}, {SIGILL, "SIGILL"},
    {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"},   {SIGBUS, "SIGBUS"},   {SIGFPE, "SIGFPE"},
    {SIGKILL, "SIGKILL"}, {SIGUSR1, "SIGUSR1"},   {SIGSEGV, "SIGSEGV"}, {SIGUSR2, "SIGUSR2"},
    {SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"},   {SIGTERM, "SIGTERM"}, {SIGSTKFLT, "SIGSTKFLT"},
    {SIGCHLD, "SIGCHLD"}, {SIGCONT, "SIGCONT"},   {SIGSTOP, "SIGSTOP"}, {SIGTSTP, "SIGTSTP"},
    {SIGTTIN, "SIGTTIN"}, {SIGTTOU, "SIGTTOU"},   {SIGURG, "SIGURG"},   {SIGXCPU, "SIGXCPU"},
    {SIGXFSZ, "SIGXFSZ"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}, {SIGWINCH, "SIGWINCH"},
    {SIGIO, "SIGIO"},     {SIGPWR, "SIGPWR"},     {SIGSYS, "SIGSYS"},   {0, nullptr},
};

static const char lc_no_map_text[] = "ERROR-NO-MAP";

// The row's value is 64 bits wide and the argument 32: a row with a non-zero upper half
// never matches.
static const lc_enum_string_map *lc_enum_find_row(const lc_enum_string_map *map, uint32 value)
{
    if (map == nullptr) {
        return nullptr;
    }
    for (const lc_enum_string_map *row = map; row->lesm_string != nullptr; ++row) {
        if (row->lesm_enum == static_cast<uint64>(value)) {
            return row;
        }
    }
    return nullptr;
}

const char *lc_enum_to_string(const lc_enum_string_map *map, uint32 value)
{
    const lc_enum_string_map *row = lc_enum_find_row(map, value);
    if (row == nullptr) {
        lc_log_basic(LOG_ERR, "Could not find a mapping for enum value %d", static_cast<int>(value));
        return lc_no_map_text;
    }
    return row->lesm_string;
}

const char *lc_enum_to_string_quiet(const lc_enum_string_map *map, uint32 value)
{
    const lc_enum_string_map *row = lc_enum_find_row(map, value);
    return row != nullptr ? row->lesm_string : lc_no_map_text;
}

const char *lc_enum_to_string_quiet_null(const lc_enum_string_map *map, uint32 value)
{
    const lc_enum_string_map *row = lc_enum_find_row(map, value);
    return row != nullptr ? row->lesm_string : nullptr;
}

int lc_enum_to_string_quiet_err(const lc_enum_string_map *map, uint32 value,
                                const char **ret_string)
{
    const lc_enum_string_map *row = lc_enum_find_row(map, value);
    if (ret_string != nullptr) {
        *ret_string = row != nullptr ? row->lesm_string : lc_no_map_text;
    }
    return row != nullptr ? 0 : lc_err_bad_type;
}

int lc_string_to_enum(const lc_enum_string_map *map, const char *string, uint32 *ret_enum)
{
    int err = 0;
    bail_null(ret_enum);
    *ret_enum = 0;
    bail_null(map);
    bail_null(string);
    for (const lc_enum_string_map *row = map; row->lesm_string != nullptr; ++row) {
        if (strcmp(row->lesm_string, string) == 0) {
            *ret_enum = static_cast<uint32>(row->lesm_enum);
            return 0;
        }
    }
    err = lc_err_bad_type;
bail:
    return err;
}

const char *lc_signed_enum_to_string_quiet(const lc_signed_enum_string_map *map, int32 value)
{
    if (map == nullptr) {
        return lc_no_map_text;
    }
    for (const lc_signed_enum_string_map *row = map; row->lsesm_string != nullptr; ++row) {
        if (row->lsesm_enum == value) {
            return row->lsesm_string;
        }
    }
    return lc_no_map_text;
}

int lc_string_to_signed_enum(const lc_signed_enum_string_map *map, const char *string,
                             int32 *ret_enum)
{
    int err = 0;
    bail_null(ret_enum);
    *ret_enum = 0;
    bail_null(map);
    bail_null(string);
    for (const lc_signed_enum_string_map *row = map; row->lsesm_string != nullptr; ++row) {
        if (strcmp(row->lsesm_string, string) == 0) {
            *ret_enum = row->lsesm_enum;
            return 0;
        }
    }
    err = lc_err_bad_type;
bail:
    return err;
}

int lc_str_to_bool(const char *str, tbool *ret_value)
{
    static const char *const true_texts[] = {"true", "TRUE", "t", "T", "on", "ON"};
    static const char *const false_texts[] = {"false", "FALSE", "f", "F", "off", "OFF"};
    int err = 0;
    bail_null(ret_value);
    bail_null(str);
    for (const char *text : true_texts) {
        if (strcmp(str, text) == 0) {
            *ret_value = true;
            return 0;
        }
    }
    for (const char *text : false_texts) {
        if (strcmp(str, text) == 0) {
            *ret_value = false;
            return 0;
        }
    }
    err = lc_err_bad_type;
bail:
    return err;
}

int lc_str_to_uint32(const char *str, uint32 *ret_value)
{
    int err = 0;
    uint64 value = 0;
    bail_null(ret_value);
    *ret_value = 0;
    bail_null(str);
    if (*str == '\0') {
        return lc_err_bad_type;
    }
    for (const char *c = str; *c != '\0'; ++c) {
        if (*c < '0' || *c > '9') {
            return lc_err_bad_type;
        }
        value = value * 10 + static_cast<uint64>(*c - '0');
        if (value > UINT32_MAX) {
            return lc_err_bad_type;
        }
    }
    *ret_value = static_cast<uint32>(value);
bail:
    return err;
}

int lc_str_to_uint8(const char *str, uint8 *ret_value)
{
    int err = 0;
    uint32 value = 0;
    bail_null(ret_value);
    *ret_value = 0;
    err = lc_str_to_uint32(str, &value);
    if (err != 0) {
        return err;
    }
    if (value > UINT8_MAX) {
        return lc_err_bad_type;
    }
    *ret_value = static_cast<uint8>(value);
bail:
    return err;
}

const char *lc_bool_to_str(tbool value)
{
    return value ? "true" : "false";
}

tbool lc_is_prefix(const char *small, const char *large, tbool ignore_case)
{
    if (small == nullptr || large == nullptr) {
        return false;
    }
    const size_t small_len = strlen(small);
    if (small_len > strlen(large)) {
        return false;
    }
    return ignore_case ? strncasecmp(small, large, small_len) == 0
                       : strncmp(small, large, small_len) == 0;
}

tbool lc_is_suffix(const char *small, const char *large, tbool ignore_case)
{
    if (small == nullptr || large == nullptr) {
        return false;
    }
    const size_t small_len = strlen(small);
    const size_t large_len = strlen(large);
    if (small_len > large_len) {
        return false;
    }
    const char *tail = large + (large_len - small_len);
    return ignore_case ? strcasecmp(small, tail) == 0 : strcmp(small, tail) == 0;
}

int memcasecmp(const void *a, const void *b, size_t len)
{
    const auto *pa = static_cast<const unsigned char *>(a);
    const auto *pb = static_cast<const unsigned char *>(b);
    for (size_t i = 0; i < len; ++i) {
        const int ca = tolower(pa[i]);
        const int cb = tolower(pb[i]);
        if (ca != cb) {
            return ca - cb;
        }
    }
    return 0;
}

char *safe_strdup(const char *str)
{
    return str != nullptr ? strdup(str) : nullptr;
}

size_t safe_strlen(const char *str)
{
    return str != nullptr ? strlen(str) : 0;
}

int safe_strcmp(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        return (a == nullptr ? 0 : 1) - (b == nullptr ? 0 : 1);
    }
    return strcmp(a, b);
}

int safe_close(int *inout_fd)
{
    int err = 0;
    if (inout_fd == nullptr || *inout_fd == -1) {
        return 0;
    }
    if (close(*inout_fd) == -1) {
        *inout_fd = -1;
        bail_errno(lc_err_io_error, "close");
    }
    *inout_fd = -1;
bail:
    return err;
}

size_t strlcpy(char *dst, const char *src, size_t size)
{
    const size_t src_len = strlen(src);
    if (size > 0) {
        const size_t n = src_len < size - 1 ? src_len : size - 1;
        memcpy(dst, src, n);
        dst[n] = '\0';
    }
    return src_len;
}

size_t strlcat(char *dst, const char *src, size_t size)
{
    const size_t dst_len = strnlen(dst, size);
    if (dst_len == size) {
        return size + strlen(src);
    }
    return dst_len + strlcpy(dst + dst_len, src, size - dst_len);
}

// ---------------------------------------------------------------------------------------
// Bail-out logging.  Kept out of line so that a breakpoint can be put on them.

void __attribute__((noinline)) bail_debug(void)
{
    asm volatile("");
}

void __attribute__((noinline)) bail_quiet_debug(void)
{
    asm volatile("");
}

void bail_log_error(const char *func, const char *file, uint32 line, int err)
{
    const char *text = lc_enum_to_string_quiet_null(lc_error_code_map, static_cast<uint32>(err));
    if (err < 0) {
        text = nullptr;
    }
    if (text != nullptr) {
        lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR,
                        "Error code %d (%s) returned", err, text);
    } else {
        lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR, "Error code %d returned",
                        err);
    }
}

void bail_log_null(const char *func, const char *file, uint32 line)
{
    lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR, "Unexpected NULL");
}

void bail_log_required(const char *func, const char *file, uint32 line)
{
    lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR,
                    "Required condition was not met");
}

void bail_log_force(const char *func, const char *file, uint32 line, int err)
{
    const char *text = lc_enum_to_string_quiet_null(lc_error_code_map, static_cast<uint32>(err));
    if (err < 0) {
        text = nullptr;
    }
    if (text != nullptr) {
        lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR,
                        "Bail forced with error code %d (%s)", err, text);
    } else {
        lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR,
                        "Bail forced with error code %d", err);
    }
}

void bail_log_errno(const char *func, const char *file, uint32 line, const char *format, ...)
{
    const int saved_errno = errno;
    char message[513];
    char errno_text[513];
    va_list ap;
    va_start(ap, format);
    vsnprintf(message, sizeof(message), format, ap);
    va_end(ap);
    // The GNU strerror_r may return a static text instead of filling the buffer.
    const char *text = strerror_r(saved_errno, errno_text, sizeof(errno_text));
    if (text == nullptr || text[0] == '\0') {
        text = "(unknown error)";
    }
    lc_log_internal(func, file, line, LCO_SOURCE_INFO, 0, LOG_ERR, "%s: %s", text, message);
    errno = saved_errno;
}

int lc_complain_error(const char *func, const char *file, uint32 line, int err)
{
    if (err != 0 && err != lc_err_cancelled) {
        bail_log_error(func, file, line, err);
    }
    return err;
}

// ---------------------------------------------------------------------------------------

int lc_init(void)
{
    int err = 0;
    err = lc_lock_init(&lc_env_lock, true);
    bail_error(err);
    bail_null(lc_env_lock);
    err = lc_lock_init(&lc_dso_lock, true);
    bail_error(err);
    bail_null(lc_dso_lock);
    err = lc_lock_init(&lc_utmpx_lock, true);
    bail_error(err);
    bail_null(lc_utmpx_lock);
bail:
    return err;
}

const char *lc_signal_num_to_name(int signum)
{
    if (signum < 0) {
        return nullptr;
    }
    return lc_enum_to_string_quiet_null(lc_signal_names, static_cast<uint32>(signum));
}
