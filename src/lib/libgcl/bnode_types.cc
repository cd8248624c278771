// Typed values: the type tables, the predicates, the generic attribute operations and the
// attribute accessor families by type.  The text parser and printer are in
// bnode_types_str.cc, the binding forms in bnode_types_binding.cc.

#include "bnode_types.h"
#include "bnode_types_internal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "hash_table.h"
#include "logging.h"

const lc_enum_string_map bn_type_map[] = {
    {bt_uint8, "uint8"},
    {bt_int8, "int8"},
    {bt_uint16, "uint16"},
    {bt_int16, "int16"},
    {bt_uint32, "uint32"},
    {bt_int32, "int32"},
    {bt_uint64, "uint64"},
    {bt_int64, "int64"},
    {bt_bool, "bool"},
    {bt_float32, "float32"},
    {bt_float64, "float64"},
    {bt_char, "char"},
    {bt_ipv4addr, "ipv4addr"},
    {bt_ipv4prefix, "ipv4prefix"},
    {bt_macaddr802, "macaddr802"},
    {bt_ipv6addr, "ipv6addr"},
    {bt_ipv6addrz, "ipv6addrz"},
    {bt_ipv6prefix, "ipv6prefix"},
    {bt_inetaddr, "inetaddr"},
    {bt_inetaddrz, "inetaddrz"},
    {bt_inetprefix, "inetprefix"},
    {bt_date, "date"},
    {bt_time_sec, "time_sec"},
    {bt_time_ms, "time_ms"},
    {bt_time_us, "time_us"},
    {bt_datetime_sec, "datetime_sec"},
    {bt_datetime_ms, "datetime_ms"},
    {bt_datetime_us, "datetime_us"},
    {bt_duration_sec, "duration_sec"},
    {bt_duration_ms, "duration_ms"},
    {bt_duration_us, "duration_us"},
    {bt_none, "none"},
    {bt_any, "any"},
    {bt_btype, "btype"},
    {bt_attribute, "attribute"},
    {bt_string, "string"},
    {bt_utf8_string, "utf8_string"},
    {bt_binary, "binary"},
    {bt_oid, "oid"},
    {bt_link, "link"},
    {bt_name, "name"},
    {bt_hostname, "hostname"},
    {bt_uri, "uri"},
    {bt_charlist, "charlist"},
    {bt_regex, "regex"},
    {bt_globpattern, "globpattern"},
    {0, nullptr},
};

const lc_enum_string_map bn_type_flags_map[] = {
    {btf_pretty, "pretty"},
    {btf_counter, "counter"},
    {btf_invalid, "invalid"},
    {btf_deleted, "deleted"},
    {btf_no_value, "no_value"},
    {btf_class_config, "class_config"},
    {btf_class_state, "class_state"},
    {btf_class_reg, "class_reg"},
    {btf_added, "added"},
    {btf_unknown_converted, "unknown_converted"},
    {btf_hex_bytes, "hex_bytes"},
    {0, nullptr},
};

const lc_enum_string_map bn_attribute_id_map[] = {
    {ba_value, "value"},
    {ba_encrypted_value, "encrypted_value"},
    {ba_none, "none"},
    {ba_unknown_attribs, "unknown_attribs"},
    {ba_product_name, "product_name"},
    {ba_module_name, "module_name"},
    {ba_module_version, "module_version"},
    {ba_info, "node_info"},
    {ba_cap_mask, "capability_mask"},
    {ba_obfuscation, "obfuscation"},
    {ba_crypt_key_hash, "crypt_key_hash"},
    {ba_crypt_key_hash_type, "crypt_key_hash_type"},
    {ba_revision_id, "revision_id"},
    {ba_node_count, "node_count"},
    {0, nullptr},
};

// ---------------------------------------------------------------------------------------
// Predicates.

namespace {

constexpr uint32 bn_type_flags_valueless = btf_invalid | btf_no_value;

tbool bn_type_predicate_ok(bn_type btype, bn_type_flags_bf type_flags)
{
    return btype != bt_NONE && static_cast<uint32>(btype) < bt_LAST &&
           (type_flags & bn_type_flags_valueless) == 0;
}

}  // namespace

tbool bn_type_allocs(bn_type btype, bn_type_flags_bf type_flags)
{
    return bn_type_predicate_ok(btype, type_flags) && btype > 100;
}

tbool bn_type_string(bn_type btype, bn_type_flags_bf type_flags)
{
    if (!bn_type_predicate_ok(btype, type_flags)) {
        return false;
    }
    switch (btype) {
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
        return true;
    default:
        return false;
    }
}

tbool bn_type_tbuf(bn_type btype, bn_type_flags_bf type_flags)
{
    return bn_type_predicate_ok(btype, type_flags) && btype == bt_binary;
}

int bn_type_fixed_size(bn_type btype, bn_type_flags_bf type_flags, uint32 *ret_fixed_size,
                       tbool *ret_byte_swap, bn_external_encoding *ret_encoding)
{
    int err = 0;
    uint32 size = 0;
    tbool byte_swap = true;
    bn_external_encoding encoding = bee_fixedlen_netorder_encoding;

    if (ret_fixed_size) {
        *ret_fixed_size = 0;
    }
    if (ret_byte_swap) {
        *ret_byte_swap = false;
    }
    if (ret_encoding) {
        *ret_encoding = bee_none;
    }
    if (!bn_type_predicate_ok(btype, type_flags) || btype >= bt_FIRST_VARIABLE_SIZED_TYPE) {
        err = lc_err_assertion_failed;
        goto bail;
    }

    switch (btype) {
    case bt_uint8:
    case bt_int8:
    case bt_char:
        size = 1;
        break;
    case bt_uint16:
    case bt_int16:
        size = 2;
        break;
    case bt_uint32:
    case bt_int32:
    case bt_bool:
    case bt_float32:
    case bt_date:
    case bt_time_sec:
    case bt_datetime_sec:
    case bt_duration_sec:
    case bt_btype:
    case bt_attribute:
        size = 4;
        break;
    case bt_uint64:
    case bt_int64:
    case bt_float64:
    case bt_time_ms:
    case bt_time_us:
    case bt_datetime_ms:
    case bt_datetime_us:
    case bt_duration_ms:
    case bt_duration_us:
        size = 8;
        break;
    case bt_none:
        size = 0;
        break;
    case bt_ipv4addr:
        size = 4;
        break;
    case bt_ipv4prefix:
        size = 8;
        break;
    case bt_macaddr802:
        size = 6;
        encoding = bee_fixedlen_native_encoding;
        break;
    case bt_ipv6addr:
        size = 16;
        break;
    case bt_ipv6addrz:
        size = 20;
        break;
    case bt_ipv6prefix:
        size = 17;
        break;
    case bt_inetaddr:
        size = 18;
        break;
    case bt_inetaddrz:
        size = 22;
        break;
    case bt_inetprefix:
        size = 19;
        break;
    default:
        if (lc_enum_to_string_quiet_null(bn_type_map, btype) != nullptr) {
            lc_log_basic(LOG_INFO, "bn_type_fixed_size() called for inappropriate type %d (%s)",
                         btype, lc_enum_to_string_quiet(bn_type_map, btype));
            err = lc_err_bad_type;
        } else {
            lc_log_basic(LOG_ERR, "Bad type %d", btype);
            err = lc_err_unexpected_null;
        }
        goto bail;
    }
    if (btype >= bt_ipv4addr && btype <= bt_inetprefix) {
        byte_swap = false;
    }

    if (ret_fixed_size) {
        *ret_fixed_size = size;
    }
    if (ret_byte_swap) {
        *ret_byte_swap = byte_swap;
    }
    if (ret_encoding) {
        *ret_encoding = encoding;
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The type converter.

int bn_init_type_converter(bn_type_converter **ret_converter)
{
    int err = 0;
    bn_type_converter *converter = nullptr;
    ht_options opts = {};

    bail_null(ret_converter);
    *ret_converter = nullptr;

    converter = static_cast<bn_type_converter *>(lc_zalloc(sizeof(*converter)));
    bail_null(converter);

    err = ht_default_options(&opts);
    bail_error(err);
    // The keys are the static texts of the type map, the values the ids: nothing to free.
    opts.ho_hash_func = ht_hash_string_func;
    opts.ho_key_equal_func = ht_key_equal_string_func;
    opts.ho_key_value_set_func = nullptr;
    opts.ho_key_value_dup_func = nullptr;
    opts.ho_key_value_free_func = nullptr;
    opts.ho_insert_fails_duplicates = true;
    err = ht_new(&converter->btc_smap, &opts);
    bail_error(err);

    for (const lc_enum_string_map *row = bn_type_map; row->lesm_string != nullptr; ++row) {
        err = ht_insert(converter->btc_smap, const_cast<char *>(row->lesm_string), -1,
                        reinterpret_cast<void *>(static_cast<uintptr_t>(row->lesm_enum)));
        bail_error(err);
    }

    *ret_converter = converter;
    converter = nullptr;

bail:
    bn_free_type_converter(&converter);
    return err;
}

int bn_free_type_converter(bn_type_converter **inout_converter)
{
    if (inout_converter == nullptr || *inout_converter == nullptr) {
        return 0;
    }
    ht_free(&(*inout_converter)->btc_smap);
    free(*inout_converter);
    *inout_converter = nullptr;
    return 0;
}

int bn_get_type_for_str(const bn_type_converter *converter, const char *type, bn_type *ret_type)
{
    int err = 0;
    tbool found = false;
    void *value = nullptr;

    bail_null(ret_type);
    *ret_type = bt_NONE;
    bail_null(converter);
    bail_null(type);

    err = ht_lookup(converter->btc_smap, type, -1, &found, nullptr, nullptr, &value);
    bail_error(err);
    if (!found) {
        err = lc_err_not_found;
        goto bail;
    }
    *ret_type = static_cast<bn_type>(reinterpret_cast<uintptr_t>(value));

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Generic operations.

int bn_attrib_new(bn_attrib **ret_attrib)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    attrib = static_cast<bn_attrib *>(lc_zalloc(sizeof(*attrib)));
    bail_null(attrib);
    attrib->ba_type = bt_none;
    attrib->ba_type_flags = 0;
    attrib->ba_attrib_id = ba_none;
    *ret_attrib = attrib;

bail:
    return err;
}

int bn_attrib_free_value(bn_attrib *attrib)
{
    int err = 0;

    bail_null(attrib);
    if (attrib->ba_type == bt_binary) {
        tb_free(&attrib->ba_v.bnvv_binary);
    } else if (attrib->ba_type > 100 && attrib->ba_type < bt_LAST) {
        // Every string type shares the one pointer of the union.
        ts_free(&attrib->ba_v.bnvv_string);
    }
    memset(&attrib->ba_v, 0, sizeof(attrib->ba_v));
    attrib->ba_type = bt_none;
    attrib->ba_type_flags = 0;
    attrib->ba_attrib_id = ba_none;

bail:
    return err;
}

int bn_attrib_free(bn_attrib **inout_attrib)
{
    if (inout_attrib == nullptr || *inout_attrib == nullptr) {
        return 0;
    }
    bn_attrib_free_value(*inout_attrib);
    free(*inout_attrib);
    *inout_attrib = nullptr;
    return 0;
}

int bn_attrib_dup(const bn_attrib *attrib, bn_attrib **ret_attrib)
{
    int err = 0;
    bn_attrib *copy = nullptr;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(attrib);

    err = bn_attrib_new(&copy);
    bail_error(err);
    copy->ba_type = attrib->ba_type;
    copy->ba_type_flags = attrib->ba_type_flags;
    copy->ba_attrib_id = attrib->ba_attrib_id;
    if (attrib->ba_type == bt_binary) {
        err = tb_dup(attrib->ba_v.bnvv_binary, &copy->ba_v.bnvv_binary);
        bail_error(err);
    } else if (attrib->ba_type > 100 && attrib->ba_type < bt_LAST) {
        err = ts_dup(attrib->ba_v.bnvv_string, &copy->ba_v.bnvv_string);
        bail_error(err);
    } else {
        // A fixed value: the whole union holds no more than its fixed bytes.
        copy->ba_v = attrib->ba_v;
    }

    *ret_attrib = copy;
    copy = nullptr;

bail:
    bn_attrib_free(&copy);
    return err;
}

int bn_attrib_get_type(const bn_attrib *attrib, bn_type *ret_type,
                       bn_type_flags_bf *ret_type_flags)
{
    int err = 0;

    bail_null(attrib);
    if (ret_type) {
        *ret_type = attrib->ba_type;
    }
    if (ret_type_flags) {
        *ret_type_flags = attrib->ba_type_flags;
    }

bail:
    return err;
}

int bn_attrib_set_generic(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                          bn_type_flags_bf type_flags)
{
    int err = 0;

    bail_null(attrib);
    err = bn_attrib_free_value(attrib);
    bail_error(err);
    attrib->ba_type = type;
    attrib->ba_attrib_id = attrib_id;
    attrib->ba_type_flags = type_flags & btf_mask;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The MAC address parser.

namespace {

// Reads one group of 1 to max_digits hexadecimal digits ending at a delimiter or the end.
tbool bn_read_hex_group(const char **inout_pos, uint32 max_digits, uint32 *ret_value)
{
    const char *pos = *inout_pos;
    uint32 value = 0;
    uint32 digits = 0;

    while (*pos != '\0' && *pos != ':' && *pos != '.') {
        const char c = *pos;
        uint32 nibble = 0;
        if (c >= '0' && c <= '9') {
            nibble = static_cast<uint32>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            nibble = static_cast<uint32>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            nibble = static_cast<uint32>(c - 'A' + 10);
        } else {
            return false;
        }
        if (++digits > max_digits) {
            return false;
        }
        value = (value << 4) | nibble;
        ++pos;
    }
    if (digits == 0) {
        return false;
    }
    *inout_pos = pos;
    *ret_value = value;
    return true;
}

}  // namespace

int lc_str_to_macaddr802(const char *macaddr_str, uint8 *ret_macaddr)
{
    int err = 0;
    const char *pos = nullptr;
    char delim = '\0';
    uint32 num_groups = 0;
    uint32 groups[6] = {};
    uint8 mac[bn_macaddr802_len] = {};

    bail_null(macaddr_str);
    bail_null(ret_macaddr);

    // The form is decided by the first delimiter and the number of groups.
    pos = macaddr_str;
    for (const char *p = macaddr_str; *p != '\0'; ++p) {
        if (*p == ':' || *p == '.') {
            if (delim == '\0') {
                delim = *p;
            } else if (*p != delim) {
                err = lc_err_bad_type;
                goto bail;
            }
            ++num_groups;
        }
    }
    ++num_groups;
    if (delim == '\0' || (num_groups != 6 && num_groups != 3)) {
        err = lc_err_bad_type;
        goto bail;
    }

    for (uint32 i = 0; i < num_groups; ++i) {
        if (!bn_read_hex_group(&pos, num_groups == 6 ? 2 : 4, &groups[i])) {
            err = lc_err_bad_type;
            goto bail;
        }
        if (i + 1 < num_groups) {
            if (*pos != delim) {
                err = lc_err_bad_type;
                goto bail;
            }
            ++pos;
        }
    }
    if (*pos != '\0') {
        err = lc_err_bad_type;
        goto bail;
    }

    if (num_groups == 6) {
        for (uint32 i = 0; i < 6; ++i) {
            mac[i] = static_cast<uint8>(groups[i]);
        }
    } else {
        for (uint32 i = 0; i < 3; ++i) {
            mac[2 * i] = static_cast<uint8>(groups[i] >> 8);
            mac[2 * i + 1] = static_cast<uint8>(groups[i] & 0xFF);
        }
    }
    memcpy(ret_macaddr, mac, sizeof(mac));

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The families by type.  Each setter checks the attribute and its id, resets the attribute
// to the type and stores the value unless the flags say there is none; each getter checks
// the type and copies out what was asked for.

namespace {

tbool bn_attrib_id_ok(bn_attribute_id attrib_id)
{
    return attrib_id != ba_NONE && attrib_id < ba_LAST && attrib_id != ba_none;
}

const char *bn_type_name(uint32 btype)
{
    const char *name = lc_enum_to_string_quiet_null(bn_type_map, btype);
    return name ? name : "unknown";
}

template <typename Store>
int bn_attrib_set_common(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                         bn_type_flags_bf type_flags, Store store)
{
    int err = 0;

    bail_null(attrib);
    bail_require(bn_attrib_id_ok(attrib_id));
    err = bn_attrib_set_generic(attrib, attrib_id, type, type_flags);
    bail_error(err);
    if ((type_flags & (btf_no_value | btf_invalid)) == 0) {
        err = store(attrib->ba_v);
        bail_error(err);
    }

bail:
    return err;
}

template <typename Load>
int bn_attrib_get_common(const bn_attrib *attrib, bn_type type, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, Load load)
{
    int err = 0;

    if (ret_attrib_id) {
        *ret_attrib_id = ba_NONE;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    bail_null(attrib);
    if (attrib->ba_type != type) {
        lc_log_basic(LOG_ERR, "Tried to get a %s attribute as a %s",
                     bn_type_name(attrib->ba_type), bn_type_name(type));
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (ret_attrib_id) {
        *ret_attrib_id = attrib->ba_attrib_id;
    }
    if (ret_flagged_type) {
        *ret_flagged_type = static_cast<uint32>(attrib->ba_type) | attrib->ba_type_flags;
    }
    if ((attrib->ba_type_flags & (btf_no_value | btf_invalid)) == 0) {
        err = load(attrib->ba_v);
        bail_error(err);
    }

bail:
    return err;
}

int bn_inet_family_check(uint16 family)
{
    int err = 0;
    if (family != AF_INET && family != AF_INET6) {
        lc_log_basic(LOG_ERR, "Bad address family %u", family);
        err = lc_err_bad_type;
    }
    return err;
}

}  // namespace

// Defines bn_attrib_new_T, bn_attrib_set_T and bn_attrib_get_T.  PARAMS/ARGS are the value
// parameters and their names, GET_PARAMS the value outputs; STORE is the body of a lambda
// over `bn_value &v` that stores the value and returns an error code, LOAD the body of one
// over `const bn_value &v` that fills the outputs that are non-null.
#define BN_ATTRIB_FAMILY(T, TYPE, PARAMS, ARGS, GET_PARAMS, STORE, LOAD)                   \
    int bn_attrib_set_##T(bn_attrib *attrib, bn_attribute_id attrib_id,                     \
                          bn_type_flags_bf type_flags, PARAMS)                             \
    {                                                                                       \
        return bn_attrib_set_common(attrib, attrib_id, TYPE, type_flags,                    \
                                    [&](bn_value &v) -> int { STORE });                     \
    }                                                                                       \
    int bn_attrib_new_##T(bn_attrib **ret_attrib, bn_attribute_id attrib_id,                \
                          bn_type_flags_bf type_flags, PARAMS)                             \
    {                                                                                       \
        return bn_attrib_new_common(ret_attrib, [&](bn_attrib *attrib) {                    \
            return bn_attrib_set_##T(attrib, attrib_id, type_flags, ARGS);                  \
        });                                                                                 \
    }                                                                                       \
    int bn_attrib_get_##T(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,          \
                          uint32 *ret_flagged_type, GET_PARAMS)                            \
    {                                                                                       \
        return bn_attrib_get_common(attrib, TYPE, ret_attrib_id, ret_flagged_type,          \
                                    [&](const bn_value &v) -> int { LOAD });                \
    }

// The plain scalars: the value is the member.
#define BN_ATTRIB_SCALAR(T, TYPE, CTYPE, MEMBER)                                           \
    BN_ATTRIB_FAMILY(T, TYPE, CTYPE value, value, CTYPE *ret_value, v.MEMBER = value;       \
                     return 0;, if (ret_value) { *ret_value = v.MEMBER; } return 0;)

BN_ATTRIB_SCALAR(uint8, bt_uint8, uint8, bnv_uint8)
BN_ATTRIB_SCALAR(int8, bt_int8, int8, bnv_int8)
BN_ATTRIB_SCALAR(uint16, bt_uint16, uint16, bnv_uint16)
BN_ATTRIB_SCALAR(int16, bt_int16, int16, bnv_int16)
BN_ATTRIB_SCALAR(uint32, bt_uint32, uint32, bnv_uint32)
BN_ATTRIB_SCALAR(int32, bt_int32, int32, bnv_int32)
BN_ATTRIB_SCALAR(uint64, bt_uint64, uint64, bnv_uint64)
BN_ATTRIB_SCALAR(int64, bt_int64, int64, bnv_int64)
BN_ATTRIB_SCALAR(float32, bt_float32, float32, bnv_float32)
BN_ATTRIB_SCALAR(float64, bt_float64, float64, bnv_float64)
BN_ATTRIB_SCALAR(char, bt_char, char, bnv_char)
BN_ATTRIB_SCALAR(tbool, bt_bool, tbool, bnv_bool)
BN_ATTRIB_SCALAR(date, bt_date, lt_time_sec, bnv_date)
BN_ATTRIB_SCALAR(time_sec, bt_time_sec, lt_time_sec, bnv_time_sec)
BN_ATTRIB_SCALAR(time_ms, bt_time_ms, lt_time_ms, bnv_time_ms)
BN_ATTRIB_SCALAR(time_us, bt_time_us, lt_time_us, bnv_time_us)
BN_ATTRIB_SCALAR(datetime_sec, bt_datetime_sec, lt_time_sec, bnv_datetime_sec)
BN_ATTRIB_SCALAR(datetime_ms, bt_datetime_ms, lt_time_ms, bnv_datetime_ms)
BN_ATTRIB_SCALAR(datetime_us, bt_datetime_us, lt_time_us, bnv_datetime_us)
BN_ATTRIB_SCALAR(duration_sec, bt_duration_sec, lt_dur_sec, bnv_duration_sec)
BN_ATTRIB_SCALAR(duration_ms, bt_duration_ms, lt_dur_ms, bnv_duration_ms)
BN_ATTRIB_SCALAR(duration_us, bt_duration_us, lt_dur_us, bnv_duration_us)

// The ids are kept as plain words in the value.
BN_ATTRIB_FAMILY(btype, bt_btype, bn_type value, value, bn_type *ret_value,
                 v.bnv_btype = static_cast<uint32>(value);
                 return 0;
                 , if (ret_value) { *ret_value = static_cast<bn_type>(v.bnv_btype); } return 0;)
BN_ATTRIB_FAMILY(attribute, bt_attribute, bn_attribute_id value, value,
                 bn_attribute_id *ret_value, v.bnv_attribute = static_cast<uint32>(value);
                 return 0;, if (ret_value) {
                     *ret_value = static_cast<bn_attribute_id>(v.bnv_attribute);
                 } return 0;)

// IPv4 addresses.
BN_ATTRIB_FAMILY(ipv4addr, bt_ipv4addr, uint32 value, value, uint32 *ret_value,
                 v.bnv_ipv4addr.bi_addr.s_addr = value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv4addr.bi_addr.s_addr; } return 0;)
BN_ATTRIB_FAMILY(ipv4addr_bnipv4, bt_ipv4addr, const bn_ipv4addr *value, value,
                 bn_ipv4addr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_ipv4addr = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv4addr; } return 0;)
BN_ATTRIB_FAMILY(ipv4addr_inaddr, bt_ipv4addr, const in_addr *value, value, in_addr *ret_value,
                 if (value == nullptr) { return lc_err_unexpected_null; } v.bnv_ipv4addr.bi_addr =
                     *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv4addr.bi_addr; } return 0;)
BN_ATTRIB_FAMILY(ipv4addr_inetaddr, bt_ipv4addr, const bn_inetaddr *value, value,
                 bn_inetaddr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 if (value->bin_family != AF_INET) {
                     lc_log_basic(LOG_ERR, "Bad address family %u", value->bin_family);
                     return lc_err_bad_type;
                 } v.bnv_ipv4addr.bi_addr = value->bin_addr.bina_in4;
                 return 0;, if (ret_value) {
                     memset(ret_value, 0, sizeof(*ret_value));
                     ret_value->bin_family = AF_INET;
                     ret_value->bin_addr.bina_in4 = v.bnv_ipv4addr.bi_addr;
                 } return 0;)

// IPv4 prefixes, held as address and mask.
BN_ATTRIB_FAMILY(ipv4prefix, bt_ipv4prefix, uint64 value, value, uint64 *ret_value,
                 v.bnv_ipv4prefix.bipo_addr.s_addr = static_cast<uint32>(value >> 32);
                 v.bnv_ipv4prefix.bipo_mask.s_addr = static_cast<uint32>(value & 0xFFFFFFFFu);
                 return 0;, if (ret_value) {
                     *ret_value = (static_cast<uint64>(v.bnv_ipv4prefix.bipo_addr.s_addr) << 32) |
                                  v.bnv_ipv4prefix.bipo_mask.s_addr;
                 } return 0;)
BN_ATTRIB_FAMILY(ipv4prefix_bnipv4, bt_ipv4prefix, const bn_ipv4prefix *value, value,
                 bn_ipv4prefix *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 bn_ipv4addr mask = {};
                 const int merr = lia_masklen_to_ipv4addr(value->bip_prefix_len, &mask);
                 if (merr) { return merr; } v.bnv_ipv4prefix.bipo_addr = value->bip_addr;
                 v.bnv_ipv4prefix.bipo_mask = mask.bi_addr;
                 return 0;, if (ret_value == nullptr) { return 0; } return
                 lia_inaddr_mask_to_ipv4prefix(&v.bnv_ipv4prefix.bipo_addr,
                                               &v.bnv_ipv4prefix.bipo_mask, ret_value);)

// IPv6 addresses.
BN_ATTRIB_FAMILY(ipv6addr, bt_ipv6addr, const bn_ipv6addr *value, value, bn_ipv6addr *ret_value,
                 if (value == nullptr) { return lc_err_unexpected_null; } v.bnv_ipv6addr = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv6addr; } return 0;)
BN_ATTRIB_FAMILY(ipv6addr_bnipv6, bt_ipv6addr, const bn_ipv6addr *value, value,
                 bn_ipv6addr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_ipv6addr = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv6addr; } return 0;)
BN_ATTRIB_FAMILY(ipv6addr_in6addr, bt_ipv6addr, const in6_addr *value, value,
                 in6_addr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_ipv6addr.bi6_addr = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv6addr.bi6_addr; } return 0;)
BN_ATTRIB_FAMILY(ipv6addr_inetaddr, bt_ipv6addr, const bn_inetaddr *value, value,
                 bn_inetaddr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 if (value->bin_family != AF_INET6) {
                     lc_log_basic(LOG_ERR, "Bad address family %u", value->bin_family);
                     return lc_err_bad_type;
                 } v.bnv_ipv6addr.bi6_addr = value->bin_addr.bina_in6;
                 return 0;, if (ret_value) {
                     memset(ret_value, 0, sizeof(*ret_value));
                     ret_value->bin_family = AF_INET6;
                     ret_value->bin_addr.bina_in6 = v.bnv_ipv6addr.bi6_addr;
                 } return 0;)
BN_ATTRIB_FAMILY(ipv6addrz, bt_ipv6addrz, const bn_ipv6addrz *value, value,
                 bn_ipv6addrz *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_ipv6addrz = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv6addrz; } return 0;)
BN_ATTRIB_FAMILY(ipv6prefix, bt_ipv6prefix, const bn_ipv6prefix *value, value,
                 bn_ipv6prefix *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_ipv6prefix = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_ipv6prefix; } return 0;)

// The family-tagged forms.
BN_ATTRIB_FAMILY(inetaddr, bt_inetaddr, const bn_inetaddr *value, value, bn_inetaddr *ret_value,
                 if (value == nullptr) { return lc_err_unexpected_null; } const int ferr =
                     bn_inet_family_check(value->bin_family);
                 if (ferr) { return ferr; } v.bnv_inetaddr = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_inetaddr; } return 0;)
BN_ATTRIB_FAMILY(inetaddr_ipv4addr, bt_inetaddr, const bn_ipv4addr *value, value,
                 bn_ipv4addr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_inetaddr.bin_family = AF_INET;
                 v.bnv_inetaddr.bin_addr.bina_in4 = value->bi_addr;
                 return 0;, if (ret_value == nullptr) { return 0; } return
                 lia_inetaddr_get_ipv4addr(&v.bnv_inetaddr, ret_value);)
BN_ATTRIB_FAMILY(inetaddr_ipv6addr, bt_inetaddr, const bn_ipv6addr *value, value,
                 bn_ipv6addr *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_inetaddr.bin_family = AF_INET6;
                 v.bnv_inetaddr.bin_addr.bina_in6 = value->bi6_addr;
                 return 0;, if (ret_value == nullptr) { return 0; } return
                 lia_inetaddr_get_ipv6addr(&v.bnv_inetaddr, ret_value);)
BN_ATTRIB_FAMILY(inetaddrz, bt_inetaddrz, const bn_inetaddrz *value, value,
                 bn_inetaddrz *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 const int ferr = bn_inet_family_check(value->binz_family);
                 if (ferr) { return ferr; } v.bnv_inetaddrz = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_inetaddrz; } return 0;)
BN_ATTRIB_FAMILY(inetaddrz_ipv6addrz, bt_inetaddrz, const bn_ipv6addrz *value, value,
                 bn_ipv6addrz *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_inetaddrz.binz_family = AF_INET6;
                 v.bnv_inetaddrz.binz_addr.binza_in6 = value->bi6z_addr;
                 v.bnv_inetaddrz.binz_zone_id = value->bi6z_zone_id;
                 return 0;, if (ret_value == nullptr) { return 0; } if (v.bnv_inetaddrz.binz_family !=
                                                                        AF_INET6) {
                     return lc_err_bad_type;
                 } ret_value->bi6z_addr = v.bnv_inetaddrz.binz_addr.binza_in6;
                 ret_value->bi6z_zone_id = v.bnv_inetaddrz.binz_zone_id;
                 return 0;)
BN_ATTRIB_FAMILY(inetprefix, bt_inetprefix, const bn_inetprefix *value, value,
                 bn_inetprefix *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 const int ferr = bn_inet_family_check(value->binp_family);
                 if (ferr) { return ferr; } v.bnv_inetprefix = *value;
                 return 0;, if (ret_value) { *ret_value = v.bnv_inetprefix; } return 0;)
BN_ATTRIB_FAMILY(inetprefix_ipv4prefix, bt_inetprefix, const bn_ipv4prefix *value, value,
                 bn_ipv4prefix *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_inetprefix.binp_family = AF_INET;
                 v.bnv_inetprefix.binp_addr.binpa_in4 = value->bip_addr;
                 v.bnv_inetprefix.binp_prefix_len = value->bip_prefix_len;
                 return 0;, if (ret_value == nullptr) { return 0; } if (v.bnv_inetprefix.binp_family !=
                                                                        AF_INET) {
                     return lc_err_bad_type;
                 } memset(ret_value, 0, sizeof(*ret_value));
                 ret_value->bip_addr = v.bnv_inetprefix.binp_addr.binpa_in4;
                 ret_value->bip_prefix_len = v.bnv_inetprefix.binp_prefix_len;
                 return 0;)
BN_ATTRIB_FAMILY(inetprefix_ipv6prefix, bt_inetprefix, const bn_ipv6prefix *value, value,
                 bn_ipv6prefix *ret_value, if (value == nullptr) { return lc_err_unexpected_null; }
                 v.bnv_inetprefix.binp_family = AF_INET6;
                 v.bnv_inetprefix.binp_addr.binpa_in6 = value->bi6p_addr;
                 v.bnv_inetprefix.binp_prefix_len = value->bi6p_prefix_len;
                 return 0;, if (ret_value == nullptr) { return 0; } if (v.bnv_inetprefix.binp_family !=
                                                                        AF_INET6) {
                     return lc_err_bad_type;
                 } memset(ret_value, 0, sizeof(*ret_value));
                 ret_value->bi6p_addr = v.bnv_inetprefix.binp_addr.binpa_in6;
                 ret_value->bi6p_prefix_len = v.bnv_inetprefix.binp_prefix_len;
                 return 0;)

// Six bytes in the order of the wire.
BN_ATTRIB_FAMILY(macaddr802, bt_macaddr802, const uint8 *value, value, uint8 *ret_value,
                 if (value == nullptr) { return lc_err_unexpected_null; } memcpy(
                     v.bnv_macaddr802, value, bn_macaddr802_len);
                 return 0;, if (ret_value) {
                     memcpy(ret_value, v.bnv_macaddr802, bn_macaddr802_len);
                 } return 0;)

// ---------------------------------------------------------------------------------------
// Object identifiers, held as their dotted text: "1.3.6.1" relative, ".1.3.6.1" absolute.

namespace {

int bn_oid_to_tstring(const uint32 *oid, uint32 oid_len, tbool oid_abs, tstring **ret_ts)
{
    int err = 0;
    tstring *text = nullptr;

    if (oid == nullptr && oid_len > 0) {
        err = lc_err_unexpected_null;
        goto bail;
    }
    err = ts_new_str(&text, (oid_abs && oid_len == 0) ? "." : "");
    bail_error(err);
    for (uint32 i = 0; i < oid_len; ++i) {
        err = ts_append_sprintf(text, "%s%u", (i > 0 || oid_abs) ? "." : "", oid[i]);
        bail_error(err);
    }
    *ret_ts = text;
    text = nullptr;

bail:
    ts_free(&text);
    return err;
}

int bn_tstring_to_oid(const tstring *ts, uint32 **ret_oid, uint32 *ret_oid_len,
                      tbool *ret_oid_abs)
{
    int err = 0;
    const char *pos = ts_str_maybe_empty(ts);
    tbool abs = false;
    uint32 *oid = nullptr;
    uint32 len = 0;
    uint32 cap = 0;

    if (*pos == '.') {
        abs = true;
        ++pos;
    }
    while (*pos != '\0') {
        char *end = nullptr;
        errno = 0;
        const unsigned long long part = strtoull(pos, &end, 10);
        if (errno != 0 || end == pos || part > UINT32_MAX || (*end != '.' && *end != '\0')) {
            err = lc_err_bad_type;
            goto bail;
        }
        if (len == cap) {
            cap = cap ? cap * 2 : 8;
            uint32 *grown = static_cast<uint32 *>(realloc(oid, cap * sizeof(uint32)));
            bail_null(grown);
            oid = grown;
        }
        oid[len++] = static_cast<uint32>(part);
        pos = (*end == '.') ? end + 1 : end;
    }
    if (ret_oid) {
        *ret_oid = oid;
        oid = nullptr;
    }
    if (ret_oid_len) {
        *ret_oid_len = len;
    }
    if (ret_oid_abs) {
        *ret_oid_abs = abs;
    }

bail:
    free(oid);
    return err;
}

}  // namespace

int bn_attrib_set_oid(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                      const uint32 *oid, uint32 oid_len, tbool oid_abs)
{
    return bn_attrib_set_common(attrib, attrib_id, bt_oid, type_flags, [&](bn_value &v) {
        return bn_oid_to_tstring(oid, oid_len, oid_abs, &v.bnvv_oid);
    });
}

int bn_attrib_new_oid(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                      bn_type_flags_bf type_flags, const uint32 *oid, uint32 oid_len,
                      tbool oid_abs)
{
    return bn_attrib_new_common(ret_attrib, [&](bn_attrib *attrib) {
        return bn_attrib_set_oid(attrib, attrib_id, type_flags, oid, oid_len, oid_abs);
    });
}

int bn_attrib_get_oid(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                      uint32 *ret_flagged_type, uint32 **ret_oid, uint32 *ret_oid_len,
                      tbool *ret_oid_abs)
{
    if (ret_oid) {
        *ret_oid = nullptr;
    }
    if (ret_oid_len) {
        *ret_oid_len = 0;
    }
    if (ret_oid_abs) {
        *ret_oid_abs = false;
    }
    return bn_attrib_get_common(attrib, bt_oid, ret_attrib_id, ret_flagged_type,
                                [&](const bn_value &v) {
                                    return bn_tstring_to_oid(v.bnvv_oid, ret_oid, ret_oid_len,
                                                             ret_oid_abs);
                                });
}

// ---------------------------------------------------------------------------------------
// Binary values, through the buffer forms.

int bn_attrib_set_binary(bn_attrib *attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, const tbuf *value)
{
    return bn_attrib_set_tbuf(attrib, attrib_id, bt_binary, type_flags, value);
}

int bn_attrib_new_binary(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, const tbuf *value)
{
    return bn_attrib_new_common(ret_attrib, [&](bn_attrib *attrib) {
        return bn_attrib_set_binary(attrib, attrib_id, type_flags, value);
    });
}

int bn_attrib_get_binary(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, tbuf **ret_value)
{
    if (ret_value) {
        *ret_value = nullptr;
    }
    return bn_attrib_get_common(attrib, bt_binary, ret_attrib_id, ret_flagged_type,
                                [&](const bn_value &v) {
                                    return ret_value ? tb_dup(v.bnvv_binary, ret_value) : 0;
                                });
}
