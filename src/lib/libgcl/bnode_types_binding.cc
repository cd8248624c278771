// Typed values on bindings: each bn_binding_..._T operation makes or reads the attribute
// through its bn_attrib_..._T counterpart and keeps it in the binding's attribute table.

#include <cstdlib>

#include "bnode.h"
#include "bnode_types.h"
#include "logging.h"

namespace {

// Makes an attribute with make_attrib and stores it in the slot attrib_id, creating the
// table with room for the slot when the binding has none.
template <typename MakeAttrib>
int bn_binding_set_common(bn_binding *binding, bn_attribute_id attrib_id, MakeAttrib make_attrib)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    bail_null(binding);
    err = make_attrib(&attrib);
    if (err == lc_err_bad_type) {
        // Text that doesn't parse: an ordinary answer, passed up quietly.
        goto bail;
    }
    bail_error(err);
    if (binding->bn_attribs == nullptr) {
        err = bn_attrib_array_new_size(&binding->bn_attribs, static_cast<uint32>(attrib_id) + 1);
        bail_error(err);
    }
    err = bn_attrib_array_set_takeover(binding->bn_attribs, attrib_id, &attrib);
    bail_error(err);

bail:
    bn_attrib_free(&attrib);
    return err;
}

// Makes a binding named by name (use_parts false) or by name and/or parts, then sets it.
template <typename Set>
int bn_binding_new_common(bn_binding **ret_binding, const char *binding_name,
                          const tstr_array *binding_name_parts,
                          tbool binding_name_parts_is_absolute, tbool use_parts, Set set)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    if (use_parts) {
        err = bn_binding_new_parts_components(&binding, binding_name, binding_name_parts,
                                              binding_name_parts_is_absolute, nullptr);
    } else {
        err = bn_binding_new_named(&binding, binding_name);
    }
    bail_error(err);
    err = set(binding);
    if (err == lc_err_bad_type) {
        goto bail;
    }
    bail_error(err);
    *ret_binding = binding;
    binding = nullptr;

bail:
    bn_binding_free(&binding);
    return err;
}

// Finds the attribute in the slot attrib_id: *ret_attrib is null for an empty slot; a slot
// past the table (or no table) gives lc_err_not_found.
int bn_binding_lookup_attrib(const bn_binding *binding, bn_attribute_id attrib_id,
                             bn_attrib **ret_attrib)
{
    int err = 0;

    *ret_attrib = nullptr;
    if (binding == nullptr) {
        lc_log_basic(LOG_ERR, "NULL binding passed");
        err = lc_err_unexpected_null;
        goto bail;
    }
    if (binding->bn_attribs == nullptr ||
        static_cast<uint32>(attrib_id) >= bn_attrib_array_length_quick(binding->bn_attribs)) {
        err = lc_err_not_found;
        goto bail;
    }
    err = bn_attrib_array_get(binding->bn_attribs, attrib_id, ret_attrib);
    bail_error(err);

bail:
    return err;
}

template <typename Get>
int bn_binding_get_common(const bn_binding *binding, bn_attribute_id attrib_id,
                          uint32 *ret_flagged_type, Get get)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    err = bn_binding_lookup_attrib(binding, attrib_id, &attrib);
    if (err) {
        goto bail;
    }
    if (attrib == nullptr) {
        goto bail;
    }
    err = get(attrib);
    bail_error(err);

bail:
    return err;
}

}  // namespace

#define BN_EXPAND(...) __VA_ARGS__

// The four binding forms of one value type, over its attribute forms.  PARAMS and ARGS are
// the parenthesised value parameters and their names, GET_PARAMS and GET_ARGS the outputs.
#define BN_BINDING_FAMILY(T, PARAMS, ARGS, GET_PARAMS, GET_ARGS)                               \
    int bn_binding_set_##T(bn_binding *binding, bn_attribute_id attrib_id,                       \
                           bn_type_flags_bf type_flags, BN_EXPAND PARAMS)                        \
    {                                                                                            \
        return bn_binding_set_common(binding, attrib_id, [&](bn_attrib **ret_attrib) {           \
            return bn_attrib_new_##T(ret_attrib, attrib_id, type_flags, BN_EXPAND ARGS);         \
        });                                                                                      \
    }                                                                                            \
    int bn_binding_new_##T(bn_binding **ret_binding, const char *binding_name,                   \
                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,               \
                           BN_EXPAND PARAMS)                                                     \
    {                                                                                            \
        return bn_binding_new_common(ret_binding, binding_name, nullptr, false, false,           \
                                     [&](bn_binding *binding) {                                  \
                                         return bn_binding_set_##T(binding, attrib_id,           \
                                                                   type_flags, BN_EXPAND ARGS);  \
                                     });                                                         \
    }                                                                                            \
    int bn_binding_new_parts_##T(bn_binding **ret_binding, const char *binding_name,             \
                                 const tstr_array *binding_name_parts,                           \
                                 tbool binding_name_parts_is_absolute,                           \
                                 bn_attribute_id attrib_id, bn_type_flags_bf type_flags,         \
                                 BN_EXPAND PARAMS)                                               \
    {                                                                                            \
        return bn_binding_new_common(ret_binding, binding_name, binding_name_parts,              \
                                     binding_name_parts_is_absolute, true,                       \
                                     [&](bn_binding *binding) {                                  \
                                         return bn_binding_set_##T(binding, attrib_id,           \
                                                                   type_flags, BN_EXPAND ARGS);  \
                                     });                                                         \
    }                                                                                            \
    int bn_binding_get_##T(const bn_binding *binding, bn_attribute_id attrib_id,                 \
                           uint32 *ret_flagged_type, BN_EXPAND GET_PARAMS)                       \
    {                                                                                            \
        return bn_binding_get_common(binding, attrib_id, ret_flagged_type,                       \
                                     [&](const bn_attrib *attrib) {                              \
                                         return bn_attrib_get_##T(attrib, nullptr,               \
                                                                  ret_flagged_type,              \
                                                                  BN_EXPAND GET_ARGS);           \
                                     });                                                         \
    }

BN_BINDING_FAMILY(uint8, (uint8 value), (value), (uint8 *ret_value), (ret_value))
BN_BINDING_FAMILY(int8, (int8 value), (value), (int8 *ret_value), (ret_value))
BN_BINDING_FAMILY(uint16, (uint16 value), (value), (uint16 *ret_value), (ret_value))
BN_BINDING_FAMILY(int16, (int16 value), (value), (int16 *ret_value), (ret_value))
BN_BINDING_FAMILY(uint32, (uint32 value), (value), (uint32 *ret_value), (ret_value))
BN_BINDING_FAMILY(int32, (int32 value), (value), (int32 *ret_value), (ret_value))
BN_BINDING_FAMILY(uint64, (uint64 value), (value), (uint64 *ret_value), (ret_value))
BN_BINDING_FAMILY(int64, (int64 value), (value), (int64 *ret_value), (ret_value))
BN_BINDING_FAMILY(float32, (float32 value), (value), (float32 *ret_value), (ret_value))
BN_BINDING_FAMILY(float64, (float64 value), (value), (float64 *ret_value), (ret_value))
BN_BINDING_FAMILY(char, (char value), (value), (char *ret_value), (ret_value))
BN_BINDING_FAMILY(tbool, (tbool value), (value), (tbool *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4addr, (uint32 value), (value), (uint32 *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4addr_bnipv4, (const bn_ipv4addr *value), (value), (bn_ipv4addr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4addr_inaddr, (const in_addr *value), (value), (in_addr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4addr_inetaddr, (const bn_inetaddr *value), (value), (bn_inetaddr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4prefix, (uint64 value), (value), (uint64 *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv4prefix_bnipv4, (const bn_ipv4prefix *value), (value), (bn_ipv4prefix *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6addr, (const bn_ipv6addr *value), (value), (bn_ipv6addr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6addr_bnipv6, (const bn_ipv6addr *value), (value), (bn_ipv6addr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6addr_in6addr, (const in6_addr *value), (value), (in6_addr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6addr_inetaddr, (const bn_inetaddr *value), (value), (bn_inetaddr *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6addrz, (const bn_ipv6addrz *value), (value), (bn_ipv6addrz *ret_value), (ret_value))
BN_BINDING_FAMILY(ipv6prefix, (const bn_ipv6prefix *value), (value), (bn_ipv6prefix *ret_value), (ret_value))
BN_BINDING_FAMILY(inetaddr, (const bn_inetaddr *value), (value), (bn_inetaddr *ret_value), (ret_value))
BN_BINDING_FAMILY(inetaddr_ipv4addr, (const bn_ipv4addr *value), (value), (bn_ipv4addr *ret_value), (ret_value))
BN_BINDING_FAMILY(inetaddr_ipv6addr, (const bn_ipv6addr *value), (value), (bn_ipv6addr *ret_value), (ret_value))
BN_BINDING_FAMILY(inetaddrz, (const bn_inetaddrz *value), (value), (bn_inetaddrz *ret_value), (ret_value))
BN_BINDING_FAMILY(inetaddrz_ipv6addrz, (const bn_ipv6addrz *value), (value), (bn_ipv6addrz *ret_value), (ret_value))
BN_BINDING_FAMILY(inetprefix, (const bn_inetprefix *value), (value), (bn_inetprefix *ret_value), (ret_value))
BN_BINDING_FAMILY(inetprefix_ipv4prefix, (const bn_ipv4prefix *value), (value), (bn_ipv4prefix *ret_value), (ret_value))
BN_BINDING_FAMILY(inetprefix_ipv6prefix, (const bn_ipv6prefix *value), (value), (bn_ipv6prefix *ret_value), (ret_value))
BN_BINDING_FAMILY(macaddr802, (const uint8 *value), (value), (uint8 *ret_value), (ret_value))
BN_BINDING_FAMILY(date, (lt_time_sec value), (value), (lt_time_sec *ret_value), (ret_value))
BN_BINDING_FAMILY(time_sec, (lt_time_sec value), (value), (lt_time_sec *ret_value), (ret_value))
BN_BINDING_FAMILY(time_ms, (lt_time_ms value), (value), (lt_time_ms *ret_value), (ret_value))
BN_BINDING_FAMILY(time_us, (lt_time_us value), (value), (lt_time_us *ret_value), (ret_value))
BN_BINDING_FAMILY(datetime_sec, (lt_time_sec value), (value), (lt_time_sec *ret_value), (ret_value))
BN_BINDING_FAMILY(datetime_ms, (lt_time_ms value), (value), (lt_time_ms *ret_value), (ret_value))
BN_BINDING_FAMILY(datetime_us, (lt_time_us value), (value), (lt_time_us *ret_value), (ret_value))
BN_BINDING_FAMILY(duration_sec, (lt_dur_sec value), (value), (lt_dur_sec *ret_value), (ret_value))
BN_BINDING_FAMILY(duration_ms, (lt_dur_ms value), (value), (lt_dur_ms *ret_value), (ret_value))
BN_BINDING_FAMILY(duration_us, (lt_dur_us value), (value), (lt_dur_us *ret_value), (ret_value))
BN_BINDING_FAMILY(btype, (bn_type value), (value), (bn_type *ret_value), (ret_value))
BN_BINDING_FAMILY(attribute, (bn_attribute_id value), (value), (bn_attribute_id *ret_value), (ret_value))
BN_BINDING_FAMILY(oid, (const uint32 *oid, uint32 oid_len, tbool oid_abs), (oid, oid_len, oid_abs), (uint32 **ret_oid, uint32 *ret_oid_len, tbool *ret_oid_abs), (ret_oid, ret_oid_len, ret_oid_abs))
BN_BINDING_FAMILY(binary, (const tbuf *value), (value), (tbuf **ret_value), (ret_value))

// ---------------------------------------------------------------------------------------
// The string-typed forms.

int bn_binding_set_str(bn_binding *binding, bn_attribute_id attrib_id, bn_type type,
                       bn_type_flags_bf type_flags, const char *str_value)
{
    return bn_binding_set_common(binding, attrib_id, [&](bn_attrib **ret_attrib) {
        return bn_attrib_new_str(ret_attrib, attrib_id, type, type_flags, str_value);
    });
}

int bn_binding_new_str(bn_binding **ret_binding, const char *binding_name,
                       bn_attribute_id attrib_id, bn_type type, bn_type_flags_bf type_flags,
                       const char *str_value)
{
    return bn_binding_new_common(ret_binding, binding_name, nullptr, false, false,
                                 [&](bn_binding *binding) {
                                     return bn_binding_set_str(binding, attrib_id, type,
                                                               type_flags, str_value);
                                 });
}

int bn_binding_new_parts_str(bn_binding **ret_binding, const char *binding_name,
                             const tstr_array *binding_name_parts,
                             tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                             bn_type type, bn_type_flags_bf type_flags, const char *str_value)
{
    return bn_binding_new_common(ret_binding, binding_name, binding_name_parts,
                                 binding_name_parts_is_absolute, true, [&](bn_binding *binding) {
                                     return bn_binding_set_str(binding, attrib_id, type,
                                                               type_flags, str_value);
                                 });
}

int bn_binding_new_str_autoinval(bn_binding **ret_binding, const char *binding_name,
                                 bn_attribute_id attrib_id, bn_type type,
                                 bn_type_flags_bf type_flags, const char *str_value)
{
    int err = bn_binding_new_str(ret_binding, binding_name, attrib_id, type, type_flags,
                                 str_value);
    if (err == lc_err_bad_type) {
        err = bn_binding_new_str(ret_binding, binding_name, attrib_id, type,
                                 type_flags | btf_invalid, str_value);
    }
    return err;
}

int bn_binding_new_parts_str_autoinval(bn_binding **ret_binding, const char *binding_name,
                                       const tstr_array *binding_name_parts,
                                       tbool binding_name_parts_is_absolute,
                                       bn_attribute_id attrib_id, bn_type type,
                                       bn_type_flags_bf type_flags, const char *str_value)
{
    int err = bn_binding_new_parts_str(ret_binding, binding_name, binding_name_parts,
                                       binding_name_parts_is_absolute, attrib_id, type,
                                       type_flags, str_value);
    if (err == lc_err_bad_type) {
        err = bn_binding_new_parts_str(ret_binding, binding_name, binding_name_parts,
                                       binding_name_parts_is_absolute, attrib_id, type,
                                       type_flags | btf_invalid, str_value);
    }
    return err;
}

int bn_binding_get_str(const bn_binding *binding, bn_attribute_id attrib_id,
                       bn_type expected_type, uint32 *ret_flagged_type, char **ret_str_value)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    if (ret_flagged_type) {
        *ret_flagged_type = 0;
    }
    if (ret_str_value) {
        *ret_str_value = nullptr;
    }
    err = bn_binding_lookup_attrib(binding, attrib_id, &attrib);
    if (err == lc_err_not_found) {
        lc_log_basic(LOG_ERR, "Can't get attribute %s of binding %s",
                     lc_enum_to_string_quiet(bn_attribute_id_map, attrib_id),
                     ts_str_maybe_empty(binding->bn_node_name));
    }
    if (err) {
        goto bail;
    }
    if (attrib == nullptr) {
        goto bail;
    }
    err = bn_attrib_get_str(attrib, nullptr, expected_type, ret_flagged_type, ret_str_value);
    if (err == lc_err_assertion_failed) {
        // An unexpected type is the caller's question, answered quietly.
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

int bn_binding_get_tstr(const bn_binding *binding, bn_attribute_id attrib_id,
                        bn_type expected_type, uint32 *ret_flagged_type,
                        tstring **ret_tstr_value)
{
    int err = 0;
    char *str = nullptr;

    bail_null(ret_tstr_value);
    *ret_tstr_value = nullptr;
    err = bn_binding_get_str(binding, attrib_id, expected_type, ret_flagged_type, &str);
    if (err) {
        goto bail;
    }
    if (str != nullptr) {
        err = ts_new_str_takeover_utf8(ret_tstr_value, &str, -1, -1);
        bail_error(err);
    }

bail:
    free(str);
    return err;
}

int bn_binding_get_tstring_const(const bn_binding *binding, bn_attribute_id attrib_id,
                                 uint32 *ret_flagged_type, const tstring **ret_value)
{
    if (ret_value) {
        *ret_value = nullptr;
    }
    return bn_binding_get_common(binding, attrib_id, ret_flagged_type,
                                 [&](const bn_attrib *attrib) {
                                     return bn_attrib_get_tstring_const(
                                         attrib, nullptr, ret_flagged_type, ret_value);
                                 });
}
