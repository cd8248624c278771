// Typed values: the text forms.  bn_attrib_set_str is the one parser of value texts and
// bn_attrib_get_str the one printer; the string-typed setters and borrowers live here too.

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bnode_types.h"
#include "bnode_types_internal.h"
#include "logging.h"
#include "ttime.h"

namespace {

constexpr uint32 bn_hostname_zone_max_len = 16;

tbool bn_attrib_id_ok(bn_attribute_id attrib_id)
{
    return attrib_id != ba_NONE && attrib_id < ba_LAST && attrib_id != ba_none;
}

tbool bn_type_is_string(bn_type type)
{
    return bn_type_string(type, 0);
}

// Releases what a parse left in a scratch value of the type.
void bn_value_release(bn_type type, bn_value *v)
{
    if (type == bt_binary) {
        tb_free(&v->bnvv_binary);
    } else if (bn_type_is_string(type)) {
        ts_free(&v->bnvv_string);
    }
}

// ---------------------------------------------------------------------------------------
// Numbers.

int bn_parse_unsigned(const char *str, uint64 max_value, uint64 *ret_value)
{
    const char *p = str;
    char *end = nullptr;
    unsigned long long value = 0;

    while (*p == ' ' || *p == '\t') {
        ++p;
    }
    if (*p == '-') {
        return lc_err_bad_type;
    }
    errno = 0;
    value = strtoull(str, &end, 10);
    if (errno != 0 || end == str || *end != '\0' || value > max_value) {
        return lc_err_bad_type;
    }
    *ret_value = value;
    return 0;
}

int bn_parse_signed(const char *str, int64 min_value, int64 max_value, int64 *ret_value)
{
    char *end = nullptr;
    long long value = 0;

    errno = 0;
    value = strtoll(str, &end, 10);
    if (errno != 0 || end == str || *end != '\0' || value < min_value || value > max_value) {
        return lc_err_bad_type;
    }
    *ret_value = value;
    return 0;
}

int bn_parse_bool(const char *str, tbool *ret_value)
{
    static const char *const true_words[] = {"true", "TRUE", "t", "T", "on", "ON"};
    static const char *const false_words[] = {"false", "FALSE", "f", "F", "off", "OFF"};

    for (const char *word : true_words) {
        if (strcmp(str, word) == 0) {
            *ret_value = true;
            return 0;
        }
    }
    for (const char *word : false_words) {
        if (strcmp(str, word) == 0) {
            *ret_value = false;
            return 0;
        }
    }
    return lc_err_bad_type;
}

// Stores an unsigned number of one of the four unsigned types, range-checked.
int bn_store_unsigned(bn_type type, uint64 value, bn_value *v)
{
    switch (type) {
    case bt_uint8:
        if (value > UINT8_MAX) {
            return lc_err_bad_type;
        }
        v->bnv_uint8 = static_cast<uint8>(value);
        return 0;
    case bt_uint16:
        if (value > UINT16_MAX) {
            return lc_err_bad_type;
        }
        v->bnv_uint16 = static_cast<uint16>(value);
        return 0;
    case bt_uint32:
        if ((value >> 32) != 0) {
            return lc_err_bad_type;
        }
        v->bnv_uint32 = static_cast<uint32>(value);
        return 0;
    case bt_uint64:
        v->bnv_uint64 = value;
        return 0;
    default:
        return lc_err_unexpected_case;
    }
}

// The hexadecimal forms.  Sets *ret_done when the text was dealt with (successfully or
// not); otherwise the ordinary parse goes on.
int bn_parse_hex_bytes(bn_type type, const char *str, bn_value *v, tbool *ret_done)
{
    uint32 num_x = 0;
    uint32 num_colons = 0;
    char *end = nullptr;
    unsigned long long value = 0;

    *ret_done = false;
    for (const char *p = str; *p != '\0'; ++p) {
        if (*p == 'x') {
            ++num_x;
        } else if (*p == ':') {
            ++num_colons;
        }
    }

    if (num_x == 0 && num_colons == 0 && type != bt_uint64) {
        if (type != bt_uint8 && type != bt_uint16 && type != bt_uint32) {
            return 0;
        }
        *ret_done = true;
        errno = 0;
        value = strtoull(str, &end, 0);
        if (errno != 0 || end == str || *end != '\0') {
            return lc_err_bad_type;
        }
        return bn_store_unsigned(type, value, v);
    }

    if (num_x == 0 && num_colons > 0 && type == bt_uint64) {
        const char *p = str;
        uint64 result = 0;

        *ret_done = true;
        if (num_colons != 7) {
            return lc_err_bad_type;
        }
        for (uint32 i = 0; i < 8; ++i) {
            if (!isxdigit(static_cast<unsigned char>(*p))) {
                return lc_err_bad_type;
            }
            errno = 0;
            const unsigned long group = strtoul(p, &end, 16);
            if (errno != 0 || group > 0xFF) {
                return lc_err_bad_type;
            }
            if (i < 7) {
                if (*end != ':') {
                    return lc_err_bad_type;
                }
            } else if (end - p != 2 || *end != '\0') {
                // The last group must be written with both digits.
                return lc_err_bad_type;
            }
            result = (result << 8) | group;
            p = end + 1;
        }
        v->bnv_uint64 = result;
        return 0;
    }

    if (num_x > 0) {
        if (type != bt_uint8 && type != bt_uint16 && type != bt_uint32 && type != bt_uint64) {
            return 0;
        }
        *ret_done = true;
        if (num_colons > 0 || num_x > 1) {
            return lc_err_bad_type;
        }
        errno = 0;
        value = strtoull(str, &end, 16);
        if (errno != 0 || end == str || *end != '\0') {
            return lc_err_bad_type;
        }
        return bn_store_unsigned(type, value, v);
    }

    return 0;
}

// ---------------------------------------------------------------------------------------
// Host names.

tbool bn_hostname_char_ok(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '.' || c == ':' || c == '%' || c == '_';
}

int bn_check_hostname(const char *str)
{
    tbool literal = false;
    const char *zone = nullptr;
    size_t addr_len = 0;
    char addr[lia_ipv6addr_str_max_len + 1] = {};

    if (str[0] == '-') {
        return lc_err_bad_type;
    }
    for (const char *p = str; *p != '\0'; ++p) {
        if (!bn_hostname_char_ok(*p)) {
            return lc_err_bad_type;
        }
        if (*p == ':' || *p == '%' || *p == '_') {
            literal = true;
        }
    }
    if (!literal) {
        return 0;
    }

    // An IPv6 literal with an optional zone: the only place for ':', '%' and '_'.
    zone = strchr(str, '%');
    addr_len = zone ? static_cast<size_t>(zone - str) : strlen(str);
    if (zone) {
        ++zone;
        if (*zone == '\0' || *zone == '.' || strstr(zone, "..") != nullptr ||
            strlen(zone) > bn_hostname_zone_max_len || strchr(zone, '%') != nullptr ||
            strchr(zone, ':') != nullptr) {
            return lc_err_bad_type;
        }
    }
    if (addr_len > lia_ipv6addr_str_max_len) {
        return lc_err_bad_type;
    }
    memcpy(addr, str, addr_len);
    addr[addr_len] = '\0';
    if (!lia_str_is_ipv6addr(addr)) {
        return lc_err_bad_type;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// Times.  The text forms of dates, times of day and pretty durations are the time
// library's; a plain duration is a decimal count of its unit.

int bn_parse_time(bn_type type, bn_type_flags_bf type_flags, const char *str, bn_value *v)
{
    int err = 0;

    // A plain duration is a decimal count of its unit, read as the C library reads an
    // unsigned number (so a "-" counts back from the top) and kept in the value's width.
    if ((type_flags & btf_pretty) == 0 &&
        (type == bt_duration_sec || type == bt_duration_ms || type == bt_duration_us)) {
        char *end = nullptr;
        errno = 0;
        if (type == bt_duration_sec) {
            const unsigned long count = strtoul(str, &end, 10);
            v->bnv_duration_sec = static_cast<lt_dur_sec>(count);
        } else {
            const unsigned long long count = strtoull(str, &end, 10);
            if (type == bt_duration_ms) {
                v->bnv_duration_ms = static_cast<int64>(count);
            } else {
                v->bnv_duration_us = static_cast<int64>(count);
            }
        }
        return errno != 0 || end == str || *end != '\0' ? lc_err_bad_type : 0;
    }
    switch (type) {
    case bt_date:
        return lt_str_to_date(str, &v->bnv_date);
    case bt_time_sec:
        return lt_str_to_daytime_sec(str, &v->bnv_time_sec);
    case bt_time_ms:
        return lt_str_to_daytime_ms(str, &v->bnv_time_ms);
    case bt_time_us:
        return lt_str_to_daytime_us(str, &v->bnv_time_us);
    case bt_datetime_sec:
    case bt_datetime_ms:
    case bt_datetime_us: {
        if (type == bt_datetime_sec) {
            err = lt_str_to_datetime_sec(str, &v->bnv_datetime_sec);
        } else if (type == bt_datetime_ms) {
            err = lt_str_to_datetime_ms(str, &v->bnv_datetime_ms);
        } else {
            err = lt_str_to_datetime_us(str, &v->bnv_datetime_us);
        }
        if (err != lc_err_bad_type) {
            return err;
        }
        // A bare date stands for its midnight.
        lt_time_sec date = 0;
        err = lt_str_to_date(str, &date);
        if (err != 0) {
            return err;
        }
        if (type == bt_datetime_sec) {
            v->bnv_datetime_sec = date;
        } else if (type == bt_datetime_ms) {
            v->bnv_datetime_ms = static_cast<lt_time_ms>(date) * 1000;
        } else {
            v->bnv_datetime_us = static_cast<lt_time_us>(date) * 1000000;
        }
        return 0;
    }
    case bt_duration_sec:
        return lt_str_to_dur_sec(str, &v->bnv_duration_sec);
    case bt_duration_ms:
        return lt_str_to_dur_ms(str, &v->bnv_duration_ms);
    case bt_duration_us:
        return lt_str_to_dur_us(str, &v->bnv_duration_us);
    default:
        return lc_err_bad_type;
    }
}

// Parses str as a value of the type into v (which is zeroed).  Bad text gives
// lc_err_bad_type.
int bn_parse_value(bn_type type, bn_type_flags_bf type_flags, const char *str, bn_value *v)
{
    int err = 0;
    uint64 uvalue = 0;
    int64 svalue = 0;
    char *end = nullptr;

    switch (type) {
    case bt_uint8:
        err = bn_parse_unsigned(str, UINT8_MAX, &uvalue);
        v->bnv_uint8 = static_cast<uint8>(uvalue);
        break;
    case bt_uint16:
        err = bn_parse_unsigned(str, UINT16_MAX, &uvalue);
        v->bnv_uint16 = static_cast<uint16>(uvalue);
        break;
    case bt_uint32:
        err = bn_parse_unsigned(str, UINT32_MAX, &uvalue);
        v->bnv_uint32 = static_cast<uint32>(uvalue);
        break;
    case bt_uint64:
        err = bn_parse_unsigned(str, UINT64_MAX, &uvalue);
        v->bnv_uint64 = uvalue;
        break;
    case bt_int8:
        err = bn_parse_signed(str, INT8_MIN, INT8_MAX, &svalue);
        v->bnv_int8 = static_cast<int8>(svalue);
        break;
    case bt_int16:
        err = bn_parse_signed(str, INT16_MIN, INT16_MAX, &svalue);
        v->bnv_int16 = static_cast<int16>(svalue);
        break;
    case bt_int32:
        err = bn_parse_signed(str, INT32_MIN, INT32_MAX, &svalue);
        v->bnv_int32 = static_cast<int32>(svalue);
        break;
    case bt_int64:
        err = bn_parse_signed(str, INT64_MIN, INT64_MAX, &svalue);
        v->bnv_int64 = svalue;
        break;
    case bt_bool:
        err = bn_parse_bool(str, &v->bnv_bool);
        break;
    case bt_float32:
        errno = 0;
        v->bnv_float32 = strtof(str, &end);
        if (errno != 0 || end == str || *end != '\0') {
            err = lc_err_bad_type;
        }
        break;
    case bt_float64:
        errno = 0;
        v->bnv_float64 = strtod(str, &end);
        if (errno != 0 || end == str || *end != '\0') {
            err = lc_err_bad_type;
        }
        break;
    case bt_char:
        if (strlen(str) != 1) {
            err = lc_err_bad_type;
        }
        v->bnv_char = str[0];
        break;
    case bt_ipv4addr:
        err = lia_str_to_ipv4addr(str, &v->bnv_ipv4addr);
        break;
    case bt_ipv4prefix: {
        bn_ipv4prefix prefix = {};
        bn_ipv4addr mask = {};
        err = lia_str_to_ipv4prefix(str, &prefix);
        if (err == 0) {
            err = lia_masklen_to_ipv4addr(prefix.bip_prefix_len, &mask);
        }
        if (err == 0) {
            v->bnv_ipv4prefix.bipo_addr = prefix.bip_addr;
            v->bnv_ipv4prefix.bipo_mask = mask.bi_addr;
        }
        break;
    }
    case bt_macaddr802:
        err = lc_str_to_macaddr802(str, v->bnv_macaddr802);
        break;
    case bt_ipv6addr:
        err = lia_str_to_ipv6addr(str, &v->bnv_ipv6addr);
        break;
    case bt_ipv6addrz:
        err = lia_str_to_ipv6addrz(str, &v->bnv_ipv6addrz);
        break;
    case bt_ipv6prefix:
        err = lia_str_to_ipv6prefix(str, &v->bnv_ipv6prefix);
        break;
    case bt_inetaddr:
        err = lia_str_to_inetaddr(str, &v->bnv_inetaddr);
        break;
    case bt_inetaddrz:
        err = lia_str_to_inetaddrz(str, &v->bnv_inetaddrz);
        break;
    case bt_inetprefix:
        err = lia_str_to_inetprefix(str, &v->bnv_inetprefix);
        break;
    case bt_date:
    case bt_time_sec:
    case bt_time_ms:
    case bt_time_us:
    case bt_datetime_sec:
    case bt_datetime_ms:
    case bt_datetime_us:
    case bt_duration_sec:
    case bt_duration_ms:
    case bt_duration_us:
        err = bn_parse_time(type, type_flags, str, v);
        break;
    case bt_none:
        break;
    case bt_btype: {
        uint32 id = 0;
        err = lc_string_to_enum(bn_type_map, str, &id);
        v->bnv_btype = id;
        break;
    }
    case bt_attribute: {
        uint32 id = 0;
        err = lc_string_to_enum(bn_attribute_id_map, str, &id);
        v->bnv_attribute = id;
        break;
    }
    case bt_utf8_string: {
        uint32 num_chars = 0;
        if (ts_utf8_num_chars(str, -1, &num_chars) != 0) {
            err = lc_err_bad_type;
            break;
        }
        err = ts_new_str(&v->bnvv_utf8_string, str);
        if (err == 0) {
            err = ts_set_utf8(v->bnvv_utf8_string, true);
        }
        break;
    }
    case bt_binary:
        err = tb_new_buf(&v->bnvv_binary, reinterpret_cast<const uint8 *>(str),
                         static_cast<int32>(strlen(str)));
        break;
    case bt_hostname:
        err = bn_check_hostname(str);
        if (err == 0) {
            err = ts_new_str(&v->bnvv_hostname, str);
        }
        break;
    case bt_string:
    case bt_oid:
    case bt_link:
    case bt_name:
    case bt_uri:
    case bt_charlist:
    case bt_regex:
    case bt_globpattern:
        err = ts_new_str(&v->bnvv_string, str);
        break;
    default:
        lc_log_basic(LOG_ERR, "Btype: %d", type);
        err = lc_err_unexpected_case;
        break;
    }
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The parser.

int bn_attrib_set_str(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                      bn_type_flags_bf type_flags, const char *str_value)
{
    int err = 0;
    bn_value v = {};
    tbool done = false;

    bail_null(attrib);
    if (!bn_attrib_id_ok(attrib_id)) {
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (type_flags & (btf_no_value | btf_invalid)) {
        err = bn_attrib_set_generic(attrib, attrib_id, type, type_flags);
        bail_error(err);
        goto bail;
    }
    if (type != bt_none) {
        bail_null(str_value);
    }
    if (type != bt_none && static_cast<uint32>(type) <= 100 && str_value[0] == '\0') {
        err = lc_err_bad_type;
        goto bail;
    }

    if (type_flags & btf_hex_bytes) {
        err = bn_parse_hex_bytes(type, str_value, &v, &done);
        if (err) {
            goto bail;
        }
    }
    if (!done) {
        errno = 0;
        err = bn_parse_value(type, type_flags, str_value, &v);
        if (err) {
            goto bail;
        }
    }

    err = bn_attrib_set_generic(attrib, attrib_id, type, type_flags);
    bail_error(err);
    attrib->ba_v = v;
    memset(&v, 0, sizeof(v));

bail:
    bn_value_release(type, &v);
    return err;
}

int bn_attrib_new_str(bn_attrib **ret_attrib, bn_attribute_id attrib_id, bn_type type,
                      bn_type_flags_bf type_flags, const char *str_value)
{
    return bn_attrib_new_common(ret_attrib, [&](bn_attrib *attrib) {
        return bn_attrib_set_str(attrib, attrib_id, type, type_flags, str_value);
    });
}

// ---------------------------------------------------------------------------------------
// Strings and buffers taken as they are.

namespace {

int bn_attrib_set_ptr_check(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                            tbool want_tbuf)
{
    int err = 0;

    bail_null(attrib);
    bail_require(bn_attrib_id_ok(attrib_id));
    if (want_tbuf ? type != bt_binary : !bn_type_is_string(type)) {
        lc_log_basic(LOG_ERR, "Type %d (%s) is not held as a %s", type,
                     lc_enum_to_string_quiet(bn_type_map, type), want_tbuf ? "tbuf" : "tstring");
        err = lc_err_assertion_failed;
        goto bail;
    }

bail:
    return err;
}

}  // namespace

int bn_attrib_set_tstring(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                          bn_type_flags_bf type_flags, const tstring *value)
{
    int err = 0;
    tstring *copy = nullptr;

    err = bn_attrib_set_ptr_check(attrib, attrib_id, type, false);
    bail_error(err);
    if ((type_flags & (btf_no_value | btf_invalid)) == 0 && value != nullptr) {
        err = ts_dup(value, &copy);
        bail_error(err);
    }
    err = bn_attrib_set_tstring_takeover(attrib, attrib_id, type, type_flags, &copy);
    bail_error(err);

bail:
    ts_free(&copy);
    return err;
}

int bn_attrib_set_tstring_takeover(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                                   bn_type_flags_bf type_flags, tstring **inout_value)
{
    int err = 0;

    err = bn_attrib_set_ptr_check(attrib, attrib_id, type, false);
    bail_error(err);
    err = bn_attrib_set_generic(attrib, attrib_id, type, type_flags);
    bail_error(err);
    if (inout_value && (type_flags & (btf_no_value | btf_invalid)) == 0) {
        attrib->ba_v.bnvv_string = *inout_value;
        *inout_value = nullptr;
        if (type == bt_utf8_string && attrib->ba_v.bnvv_string) {
            err = ts_set_utf8(attrib->ba_v.bnvv_string, true);
            bail_error(err);
        }
    }

bail:
    if (inout_value) {
        ts_free(inout_value);
    }
    return err;
}

int bn_attrib_set_tbuf(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                       bn_type_flags_bf type_flags, const tbuf *value)
{
    int err = 0;
    tbuf *copy = nullptr;

    err = bn_attrib_set_ptr_check(attrib, attrib_id, type, true);
    bail_error(err);
    if ((type_flags & (btf_no_value | btf_invalid)) == 0 && value != nullptr) {
        err = tb_dup(value, &copy);
        bail_error(err);
    }
    err = bn_attrib_set_tbuf_takeover(attrib, attrib_id, type, type_flags, &copy);
    bail_error(err);

bail:
    tb_free(&copy);
    return err;
}

int bn_attrib_set_tbuf_takeover(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                                bn_type_flags_bf type_flags, tbuf **inout_value)
{
    int err = 0;

    err = bn_attrib_set_ptr_check(attrib, attrib_id, type, true);
    bail_error(err);
    err = bn_attrib_set_generic(attrib, attrib_id, type, type_flags);
    bail_error(err);
    if (inout_value && (type_flags & (btf_no_value | btf_invalid)) == 0) {
        attrib->ba_v.bnvv_binary = *inout_value;
        *inout_value = nullptr;
    }

bail:
    if (inout_value) {
        tb_free(inout_value);
    }
    return err;
}

int bn_attrib_get_tstring_const(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                uint32 *ret_flagged_type, const tstring **ret_value)
{
    int err = 0;

    if (ret_attrib_id) {
        *ret_attrib_id = ba_NONE;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    if (ret_value) {
        *ret_value = nullptr;
    }
    bail_null(attrib);
    if (!bn_type_is_string(attrib->ba_type)) {
        lc_log_basic(LOG_ERR, "Tried to get a %s attribute as a %s",
                     lc_enum_to_string_quiet(bn_type_map, attrib->ba_type), "string");
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (ret_attrib_id) {
        *ret_attrib_id = attrib->ba_attrib_id;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = static_cast<uint32>(attrib->ba_type) | attrib->ba_type_flags;
    }
    if (ret_value) {
        *ret_value = attrib->ba_v.bnvv_string;
    }

bail:
    return err;
}

int bn_attrib_get_tbuf_const(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, const tbuf **ret_value)
{
    int err = 0;

    if (ret_attrib_id) {
        *ret_attrib_id = ba_NONE;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    if (ret_value) {
        *ret_value = nullptr;
    }
    bail_null(attrib);
    if (attrib->ba_type != bt_binary) {
        lc_log_basic(LOG_ERR, "Tried to get a %s attribute as a %s",
                     lc_enum_to_string_quiet(bn_type_map, attrib->ba_type), "binary");
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (ret_attrib_id) {
        *ret_attrib_id = attrib->ba_attrib_id;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = static_cast<uint32>(attrib->ba_type) | attrib->ba_type_flags;
    }
    if (ret_value) {
        *ret_value = attrib->ba_v.bnvv_binary;
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The printer.

namespace {

int bn_print_hex(const bn_attrib *attrib, char **ret_str)
{
    int err = 0;
    const bn_value &v = attrib->ba_v;

    switch (attrib->ba_type) {
    case bt_uint8:
        *ret_str = smprintf("0x%02X", v.bnv_uint8);
        break;
    case bt_uint16:
        *ret_str = smprintf("0x%04X", v.bnv_uint16);
        break;
    case bt_uint32:
        *ret_str = smprintf("0x%08X", v.bnv_uint32);
        break;
    case bt_uint64: {
        uint8 b[8] = {};
        for (uint32 i = 0; i < 8; ++i) {
            b[i] = static_cast<uint8>(v.bnv_uint64 >> (56 - 8 * i));
        }
        *ret_str = smprintf("%02X:%02X:%02X:%02X:%02X:%02X:%02X:%02X", b[0], b[1], b[2], b[3],
                            b[4], b[5], b[6], b[7]);
        break;
    }
    default:
        lc_log_basic(LOG_ERR, "unknown type %d", attrib->ba_type);
        err = lc_err_unexpected_case;
        goto bail;
    }
    bail_null(*ret_str);

bail:
    return err;
}

// Pretty durations show all four components with the leading zero ones left out.
constexpr lt_render_flags_bf bn_duration_render_flags = ltrf_skip_leading_zeros;
static_assert(bn_duration_render_flags == 2, "the display option of duration values is 2");

int bn_print_time(const bn_attrib *attrib, char **ret_str)
{
    const bn_value &v = attrib->ba_v;

    if ((attrib->ba_type_flags & btf_pretty) == 0) {
        switch (attrib->ba_type) {
        case bt_duration_sec:
            *ret_str = smprintf("%d", v.bnv_duration_sec);
            return 0;
        case bt_duration_ms:
            *ret_str = smprintf("%lld", static_cast<long long>(v.bnv_duration_ms));
            return 0;
        case bt_duration_us:
            *ret_str = smprintf("%lld", static_cast<long long>(v.bnv_duration_us));
            return 0;
        default:
            break;
        }
    }
    switch (attrib->ba_type) {
    case bt_date:
        return lt_date_to_str(v.bnv_date, ltpf_none, ret_str);
    case bt_time_sec:
        return lt_daytime_sec_to_str(v.bnv_time_sec, ltpf_none, ret_str);
    case bt_time_ms:
        return lt_daytime_ms_to_str(v.bnv_time_ms, ltpf_none, ret_str);
    case bt_time_us:
        return lt_daytime_us_to_str(v.bnv_time_us, ltpf_none, ret_str);
    case bt_datetime_sec:
        return lt_datetime_sec_to_str(v.bnv_datetime_sec, ltpf_none, ret_str);
    case bt_datetime_ms:
        return lt_datetime_ms_to_str(v.bnv_datetime_ms, ltpf_none, ret_str);
    case bt_datetime_us:
        return lt_datetime_us_to_str(v.bnv_datetime_us, ltpf_none, ret_str);
    case bt_duration_sec:
        return lt_dur_ms_to_counter_str_ex2(static_cast<lt_dur_ms>(v.bnv_duration_sec) * 1000,
                                            ret_str, bn_duration_render_flags);
    case bt_duration_ms:
        return lt_dur_ms_to_counter_str_ex2(v.bnv_duration_ms, ret_str,
                                            bn_duration_render_flags);
    case bt_duration_us:
        return lt_dur_us_to_str(v.bnv_duration_us, ret_str);
    default:
        return lc_err_bad_type;
    }
}

int bn_print_value(const bn_attrib *attrib, char **ret_str)
{
    int err = 0;
    const bn_value &v = attrib->ba_v;
    const bn_type_flags_bf flags = attrib->ba_type_flags;
    const tbool show_any = (flags & (btf_invalid | btf_deleted | btf_no_value)) != 0;
    char *str = nullptr;

    switch (attrib->ba_type) {
    case bt_uint8:
        str = smprintf("%hhu", v.bnv_uint8);
        break;
    case bt_int8:
        str = smprintf("%hhd", v.bnv_int8);
        break;
    case bt_uint16:
        str = smprintf("%hu", v.bnv_uint16);
        break;
    case bt_int16:
        str = smprintf("%hd", v.bnv_int16);
        break;
    case bt_uint32:
        str = smprintf("%u", v.bnv_uint32);
        break;
    case bt_int32:
        str = smprintf("%d", v.bnv_int32);
        break;
    case bt_uint64:
        str = smprintf("%llu", static_cast<unsigned long long>(v.bnv_uint64));
        break;
    case bt_int64:
        str = smprintf("%lld", static_cast<long long>(v.bnv_int64));
        break;
    case bt_bool:
        str = safe_strdup(v.bnv_bool ? "true" : "false");
        break;
    case bt_float32:
        str = smprintf("%.9f", static_cast<double>(v.bnv_float32));
        break;
    case bt_float64:
        str = smprintf("%.18g", v.bnv_float64);
        break;
    case bt_char:
        str = smprintf("%c", v.bnv_char);
        break;
    case bt_macaddr802: {
        const uint8 *m = v.bnv_macaddr802;
        const char d = ':';
        str = smprintf("%02X%c%02X%c%02X%c%02X%c%02X%c%02X", m[0], d, m[1], d, m[2], d, m[3], d,
                       m[4], d, m[5]);
        break;
    }
    case bt_ipv4addr:
        err = lia_ipv4addr_to_str(&v.bnv_ipv4addr, &str);
        break;
    case bt_ipv4prefix: {
        bn_ipv4prefix prefix = {};
        err = lia_inaddr_mask_to_ipv4prefix(&v.bnv_ipv4prefix.bipo_addr,
                                            &v.bnv_ipv4prefix.bipo_mask, &prefix);
        if (err == 0) {
            err = lia_ipv4prefix_to_str(&prefix, &str);
        }
        break;
    }
    case bt_ipv6addr:
        err = lia_ipv6addr_to_str(&v.bnv_ipv6addr, &str);
        break;
    case bt_ipv6addrz:
        err = lia_ipv6addrz_to_str(&v.bnv_ipv6addrz, &str);
        break;
    case bt_ipv6prefix:
        err = lia_ipv6prefix_to_str(&v.bnv_ipv6prefix, &str);
        break;
    case bt_inetaddr:
        err = lia_inetaddr_to_str(show_any ? &lia_inetaddr_ipv6addr_any : &v.bnv_inetaddr, &str);
        break;
    case bt_inetaddrz:
        err = lia_inetaddrz_to_str(show_any ? &lia_inetaddrz_ipv6addrz_any : &v.bnv_inetaddrz,
                                   &str);
        break;
    case bt_inetprefix:
        err = lia_inetprefix_to_str(
            show_any ? &lia_inetprefix_ipv6prefix_any : &v.bnv_inetprefix, &str);
        break;
    case bt_date:
    case bt_time_sec:
    case bt_time_ms:
    case bt_time_us:
    case bt_datetime_sec:
    case bt_datetime_ms:
    case bt_datetime_us:
    case bt_duration_sec:
    case bt_duration_ms:
    case bt_duration_us:
        err = bn_print_time(attrib, &str);
        break;
    case bt_none:
        str = safe_strdup("");
        break;
    case bt_btype:
        str = safe_strdup(lc_enum_to_string_quiet(bn_type_map, v.bnv_btype));
        break;
    case bt_attribute:
        str = safe_strdup(lc_enum_to_string_quiet(bn_attribute_id_map, v.bnv_attribute));
        break;
    case bt_string:
    case bt_utf8_string:
    case bt_oid:
    case bt_link:
    case bt_name:
    case bt_hostname:
    case bt_uri:
    case bt_charlist:
    case bt_regex:
    case bt_globpattern:
        // A string attribute without a value prints as nothing at all.
        if (v.bnvv_string == nullptr) {
            goto bail;
        }
        str = safe_strdup(ts_str(v.bnvv_string));
        break;
    case bt_binary:
        if (v.bnvv_binary == nullptr) {
            goto bail;
        }
        str = safe_strdup(reinterpret_cast<const char *>(tb_buf(v.bnvv_binary)));
        break;
    default:
        lc_log_basic(LOG_ERR, "Unexpected bn_type %d", attrib->ba_type);
        err = lc_err_unexpected_case;
        goto bail;
    }
    bail_error(err);
    bail_null(str);
    *ret_str = str;
    str = nullptr;

bail:
    free(str);
    return err;
}

}  // namespace

int bn_attrib_get_str(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                      bn_type expected_type, uint32 *ret_flagged_type, char **ret_str_value)
{
    int err = 0;

    if (ret_attrib_id) {
        *ret_attrib_id = ba_NONE;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    if (ret_str_value) {
        *ret_str_value = nullptr;
    }
    bail_null(attrib);
    if (expected_type != bt_NONE && attrib->ba_type != expected_type) {
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (ret_attrib_id) {
        *ret_attrib_id = attrib->ba_attrib_id;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = static_cast<uint32>(attrib->ba_type) | attrib->ba_type_flags;
    }
    if (ret_str_value == nullptr) {
        goto bail;
    }

    if (attrib->ba_type_flags & btf_hex_bytes) {
        err = bn_print_hex(attrib, ret_str_value);
    } else {
        err = bn_print_value(attrib, ret_str_value);
    }
    bail_error(err);

bail:
    return err;
}
