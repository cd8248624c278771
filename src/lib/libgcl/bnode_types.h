// Typed values: the closed set of value types a binding attribute may hold, their flags,
// the in-memory attribute (`bn_attrib`), and the accessor families that set, read and
// convert values, both on bare attributes and on the attributes of a binding.
//
// Every value also has a canonical text form: `bn_attrib_set_str` is the one parser and
// `bn_attrib_get_str` the one printer.  A text that does not parse as the asked type gives
// lc_err_bad_type (14022) without a log line, so that callers may fall back (see the
// _autoinval forms).  Asking for a value as the wrong type is a programming error and
// gives lc_err_assertion_failed (14002).
//
// The "flagged type" that many accessors return is the type id in the low 16 bits OR-ed
// with the type flags in the high 16 bits.
#pragma once

#include <netinet/in.h>

#include "addr_utils.h"
#include "common.h"
#include "tbuffer.h"
#include "tstr_array.h"
#include "tstring.h"
#include "ttime.h"

// Floating-point vocabulary of the value types.
typedef float float32;
typedef double float64;

// The binding and its attribute table live with the binding code; the wrappers below only
// pass them through.
typedef struct bn_binding bn_binding;
typedef struct bn_attrib_array bn_attrib_array;
struct ht_table;

// ---------------------------------------------------------------------------------------
// Types.  Ids are sparse: the gaps are not types.

enum bn_type {
    bt_NONE = 0,  // no value; as an expected type it accepts every type
    bt_uint8 = 1,
    bt_int8 = 2,
    bt_sint8 = bt_int8,
    bt_uint16 = 3,
    bt_int16 = 4,
    bt_sint16 = bt_int16,
    bt_uint32 = 5,
    bt_int32 = 6,
    bt_sint32 = bt_int32,
    bt_uint64 = 7,
    bt_int64 = 8,
    bt_sint64 = bt_int64,
    bt_bool = 9,
    bt_tbool = bt_bool,
    bt_float32 = 20,
    bt_float64 = 21,
    bt_char = 40,
    bt_ipv4addr = 60,
    bt_ipv4prefix = 61,
    bt_macaddr802 = 62,
    bt_ipv6addr = 63,
    bt_ipv6addrz = 64,
    bt_ipv6prefix = 65,
    bt_inetaddr = 66,
    bt_inetaddrz = 67,
    bt_inetprefix = 68,
    bt_date = 70,
    bt_time_sec = 71,
    bt_time = bt_time_sec,
    bt_time_ms = 72,
    bt_time_us = 73,
    bt_datetime_sec = 74,
    bt_datetime = bt_datetime_sec,
    bt_datetime_ms = 75,
    bt_datetime_us = 76,
    bt_duration_sec = 77,
    bt_duration = bt_duration_sec,
    bt_duration_ms = 78,
    bt_duration_us = 79,
    bt_none = 90,       // a typed "nothing": size 0
    bt_any = 91,        // for matching only; no value of this type exists
    bt_btype = 92,      // a bn_type id
    bt_attribute = 93,  // a bn_attribute_id
    bt_string = 101,
    bt_FIRST_VARIABLE_SIZED_TYPE = bt_string,
    bt_utf8_string = 102,
    bt_binary = 103,
    bt_oid = 105,
    bt_link = 120,
    bt_name = 121,
    bt_hostname = 130,
    bt_uri = 131,
    bt_charlist = 132,
    bt_regex = 133,
    bt_globpattern = 134,
    bt_LAST = 135,
};

extern const lc_enum_string_map bn_type_map[];

// ---------------------------------------------------------------------------------------
// Type flags: only the high 16 bits are ever stored.

typedef uint32 bn_type_flags_bf;

// btf_pretty: durations use their display form as text.  btf_invalid: a type but no valid
// value.  btf_deleted: the node was deleted (inet addresses print as "any").  btf_no_value:
// a type and no value at all.  btf_unknown_converted: converted from an unknown type.
// btf_hex_bytes: the text form is hexadecimal.
static constexpr bn_type_flags_bf btf_none = 0;
static constexpr bn_type_flags_bf btf_pretty = 0x00010000;
static constexpr bn_type_flags_bf btf_counter = 0x00020000;
static constexpr bn_type_flags_bf btf_invalid = 0x00040000;
static constexpr bn_type_flags_bf btf_deleted = 0x00080000;
static constexpr bn_type_flags_bf btf_no_value = 0x00100000;
static constexpr bn_type_flags_bf btf_class_config = 0x00200000;
static constexpr bn_type_flags_bf btf_class_state = 0x00400000;
static constexpr bn_type_flags_bf btf_class_reg = 0x00800000;
static constexpr bn_type_flags_bf btf_added = 0x01000000;
static constexpr bn_type_flags_bf btf_unknown_converted = 0x02000000;
static constexpr bn_type_flags_bf btf_RESERVED2 = 0x04000000;
static constexpr bn_type_flags_bf btf_RESERVED3 = 0x08000000;
static constexpr bn_type_flags_bf btf_RESERVED4 = 0x10000000;
static constexpr bn_type_flags_bf btf_hex_bytes = 0x40000000;

static constexpr uint32 btf_mask = 0xFFFF0000;
static constexpr uint32 bn_type_mask = 0x0000FFFF;

extern const lc_enum_string_map bn_type_flags_map[];

// ---------------------------------------------------------------------------------------
// Attribute ids: the slots of a binding's attribute table.  Ids from
// ba_FIRST_REGISTRATION_ATTRIB describe a node's registration; ids from
// ba_FIRST_AUTO_ATTRIB are filled in automatically.  A peer may send ids beyond these: the
// type holds any 32-bit value.

enum bn_attribute_id : uint32 {
    ba_NONE = 0,
    ba_value = 1,
    ba_encrypted_value = 2,
    ba_none = 4,
    ba_unknown_attribs = 5,
    ba_product_name = 65,
    ba_FIRST_REGISTRATION_ATTRIB = ba_product_name,
    ba_module_name = 66,
    ba_module_version = 67,
    ba_info = 68,
    ba_cap_mask = 69,
    ba_obfuscation = 70,
    ba_crypt_key_hash = 71,
    ba_crypt_key_hash_type = 72,
    ba_revision_id = 129,
    ba_FIRST_AUTO_ATTRIB = ba_revision_id,
    ba_node_count = 130,
    ba_LAST = 131,
};

extern const lc_enum_string_map bn_attribute_id_map[];

// ---------------------------------------------------------------------------------------
// The encoding class of a type on the wire.

enum bn_external_encoding {
    bee_none = 0,
    bee_fixedlen_netorder_encoding = 1,
    bee_fixedlen_native_encoding = 2,
    bee_bytestring_encoding = 4,
};

// ---------------------------------------------------------------------------------------
// Values.

// An IPv4 prefix as stored in a value: address and mask, both in network order.  The
// length form (bn_ipv4prefix) is the one of the programming interface.
struct bn_ipv4prefix_old {
    in_addr bipo_addr;
    in_addr bipo_mask;
};

static constexpr uint32 bn_macaddr802_len = 6;

union bn_value {
    uint8 bnv_uint8;
    int8 bnv_int8;
    uint16 bnv_uint16;
    int16 bnv_int16;
    uint32 bnv_uint32;
    int32 bnv_int32;
    uint64 bnv_uint64;
    int64 bnv_int64;
    tbool bnv_bool;
    float32 bnv_float32;
    float64 bnv_float64;
    char bnv_char;
    bn_ipv4addr bnv_ipv4addr;
    bn_ipv4prefix_old bnv_ipv4prefix;
    uint8 bnv_macaddr802[bn_macaddr802_len];
    bn_ipv6addr bnv_ipv6addr;
    bn_ipv6addrz bnv_ipv6addrz;
    bn_ipv6prefix bnv_ipv6prefix;
    bn_inetaddr bnv_inetaddr;
    bn_inetaddrz bnv_inetaddrz;
    bn_inetprefix bnv_inetprefix;
    lt_time_sec bnv_date;
    lt_time_sec bnv_time_sec;
    lt_time_ms bnv_time_ms;
    lt_time_us bnv_time_us;
    lt_time_sec bnv_datetime_sec;
    lt_time_ms bnv_datetime_ms;
    lt_time_us bnv_datetime_us;
    lt_dur_sec bnv_duration_sec;
    lt_dur_ms bnv_duration_ms;
    lt_dur_us bnv_duration_us;
    uint32 bnv_btype;      // a bn_type
    uint32 bnv_attribute;  // a bn_attribute_id

    // The variable types: owned, and null when the attribute has no value.
    tstring *bnvv_string;
    tstring *bnvv_utf8_string;
    tstring *bnvv_oid;
    tstring *bnvv_link;
    tstring *bnvv_name;
    tstring *bnvv_hostname;
    tstring *bnvv_uri;
    tstring *bnvv_charlist;
    tstring *bnvv_regex;
    tstring *bnvv_globpattern;
    tbuf *bnvv_binary;
};

// One typed value with its flags and the id under which it is stored.
struct bn_attrib {
    bn_type ba_type;
    bn_type_flags_bf ba_type_flags;
    bn_attribute_id ba_attrib_id;
    bn_value ba_v;
};

// Looks type names up by text.
struct bn_type_converter {
    ht_table *btc_smap;  // type text -> type id
};

// ---------------------------------------------------------------------------------------
// Predicates.  All refuse type 0, types past bt_globpattern, and flags holding btf_invalid
// or btf_no_value.

// True for the types that own memory (above 100).
tbool bn_type_allocs(bn_type btype, bn_type_flags_bf type_flags);
// True for the types held as a tstring.
tbool bn_type_string(bn_type btype, bn_type_flags_bf type_flags);
// True for bt_binary.
tbool bn_type_tbuf(bn_type btype, bn_type_flags_bf type_flags);
// The size of a fixed type on the wire, whether it is byte-swapped there, and its encoding
// class.  Any output may be null.
int bn_type_fixed_size(bn_type btype, bn_type_flags_bf type_flags, uint32 *ret_fixed_size,
                       tbool *ret_byte_swap, bn_external_encoding *ret_encoding);

// The converter of type texts to ids.
int bn_init_type_converter(bn_type_converter **ret_converter);
int bn_free_type_converter(bn_type_converter **inout_converter);
// An unknown text gives lc_err_not_found, quietly, and bt_NONE.
int bn_get_type_for_str(const bn_type_converter *converter, const char *type, bn_type *ret_type);

// ---------------------------------------------------------------------------------------
// Generic operations.

// A new attribute: type bt_none, no flags, id ba_none.
int bn_attrib_new(bn_attrib **ret_attrib);
int bn_attrib_free(bn_attrib **inout_attrib);
// Releases a string or buffer and resets the attribute to the state of bn_attrib_new.
int bn_attrib_free_value(bn_attrib *attrib);
// A deep copy.
int bn_attrib_dup(const bn_attrib *attrib, bn_attrib **ret_attrib);
// Either output may be null.
int bn_attrib_get_type(const bn_attrib *attrib, bn_type *ret_type,
                       bn_type_flags_bf *ret_type_flags);
// Releases the old value and stores type, id and the flags masked with btf_mask; the value
// is left unset.
int bn_attrib_set_generic(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                          bn_type_flags_bf type_flags);

// Parses six hexadecimal groups ("00:11:22:33:44:55", "0.1.2.3.4.5") or three groups of
// up to four digits ("0011:2233:4455", "11.2233.4455") into six bytes.  The delimiter is
// ":" or "." and one text uses one of them.  Bad text gives lc_err_bad_type, quietly.
int lc_str_to_macaddr802(const char *macaddr_str, uint8 *ret_macaddr);

// ---------------------------------------------------------------------------------------
// The string-typed family and the generic text forms.  These take the type in front of the
// flags.

// Parses the text as a value of the type (the parser of all text forms).
int bn_attrib_new_str(bn_attrib **ret_attrib, bn_attribute_id attrib_id, bn_type type,
                      bn_type_flags_bf type_flags, const char *str_value);
int bn_attrib_set_str(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                      bn_type_flags_bf type_flags, const char *str_value);
// Only for the string types and bt_binary (lc_err_assertion_failed otherwise).
int bn_attrib_set_tstring(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                          bn_type_flags_bf type_flags, const tstring *value);
int bn_attrib_set_tstring_takeover(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                                   bn_type_flags_bf type_flags, tstring **inout_value);
int bn_attrib_set_tbuf(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                       bn_type_flags_bf type_flags, const tbuf *value);
int bn_attrib_set_tbuf_takeover(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type type,
                                bn_type_flags_bf type_flags, tbuf **inout_value);
// The text form of any value (the printer); the caller frees the text.  expected_type
// bt_NONE accepts every type, another type that differs gives lc_err_assertion_failed
// quietly.
int bn_attrib_get_str(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                      bn_type expected_type, uint32 *ret_flagged_type, char **ret_str_value);
// Borrow the value of a string type, or of bt_binary.
int bn_attrib_get_tstring_const(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                uint32 *ret_flagged_type, const tstring **ret_value);
int bn_attrib_get_tbuf_const(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, const tbuf **ret_value);

int bn_binding_new_str(bn_binding **ret_binding, const char *binding_name,
                       bn_attribute_id attrib_id, bn_type type, bn_type_flags_bf type_flags,
                       const char *str_value);
int bn_binding_new_parts_str(bn_binding **ret_binding, const char *binding_name,
                             const tstr_array *binding_name_parts,
                             tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                             bn_type type, bn_type_flags_bf type_flags, const char *str_value);
int bn_binding_set_str(bn_binding *binding, bn_attribute_id attrib_id, bn_type type,
                       bn_type_flags_bf type_flags, const char *str_value);
// An empty slot gives 0 and a null text.
int bn_binding_get_str(const bn_binding *binding, bn_attribute_id attrib_id,
                       bn_type expected_type, uint32 *ret_flagged_type, char **ret_str_value);
// The same, in a new tstring marked UTF-8.
int bn_binding_get_tstr(const bn_binding *binding, bn_attribute_id attrib_id,
                        bn_type expected_type, uint32 *ret_flagged_type,
                        tstring **ret_tstr_value);
int bn_binding_get_tstring_const(const bn_binding *binding, bn_attribute_id attrib_id,
                                 uint32 *ret_flagged_type, const tstring **ret_value);
// As bn_binding_new_str, but a text that does not parse gives a binding of the type marked
// btf_invalid, without a value, instead of a failure.
int bn_binding_new_str_autoinval(bn_binding **ret_binding, const char *binding_name,
                                 bn_attribute_id attrib_id, bn_type type,
                                 bn_type_flags_bf type_flags, const char *str_value);
int bn_binding_new_parts_str_autoinval(bn_binding **ret_binding, const char *binding_name,
                                       const tstr_array *binding_name_parts,
                                       tbool binding_name_parts_is_absolute,
                                       bn_attribute_id attrib_id, bn_type type,
                                       bn_type_flags_bf type_flags, const char *str_value);

// ---------------------------------------------------------------------------------------
// The families by type.  For each value type T:
//
//   bn_attrib_new_T          allocates an attribute and sets it
//   bn_attrib_set_T          validates the id, resets the attribute to the type and stores
//                            the value unless btf_no_value or btf_invalid is given
//   bn_attrib_get_T          any output may be null; a wrong type gives
//                            lc_err_assertion_failed
//   bn_binding_new_T         a new named binding holding the value
//   bn_binding_new_parts_T   the same, named by name and/or parts
//   bn_binding_set_T         stores a new attribute in the binding's table
//   bn_binding_get_T         an empty slot gives 0 and leaves *ret_value as it was; a slot
//                            past the table gives lc_err_not_found
//
// An attribute id of 0, of ba_LAST or more, or ba_none is refused with
// lc_err_assertion_failed.  The variants with a suffix (ipv4addr_inaddr, ...) store or
// read the same type through another representation: ipv4addr takes a uint32 in network
// order, ipv4prefix a uint64 holding the address in its high and the mask in its low word
// (each in network order), macaddr802 six bytes, oid an array of components that is held
// as its dotted text (with a leading dot when absolute); bn_attrib_get_oid gives a
// malloc'ed array.  The inet variants refuse a family other than AF_INET / AF_INET6, and
// reading an inet value as the other family, with lc_err_bad_type.

int bn_attrib_new_uint8(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, uint8 value);
int bn_attrib_set_uint8(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        uint8 value);
int bn_attrib_get_uint8(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, uint8 *ret_value);
int bn_binding_new_uint8(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint8 value);
int bn_binding_new_parts_uint8(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, uint8 value);
int bn_binding_set_uint8(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, uint8 value);
int bn_binding_get_uint8(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, uint8 *ret_value);

int bn_attrib_new_int8(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                       bn_type_flags_bf type_flags, int8 value);
int bn_attrib_set_int8(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                       int8 value);
int bn_attrib_get_int8(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                       uint32 *ret_flagged_type, int8 *ret_value);
int bn_binding_new_int8(bn_binding **ret_binding, const char *binding_name,
                        bn_attribute_id attrib_id, bn_type_flags_bf type_flags, int8 value);
int bn_binding_new_parts_int8(bn_binding **ret_binding, const char *binding_name,
                              const tstr_array *binding_name_parts,
                              tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, int8 value);
int bn_binding_set_int8(bn_binding *binding, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        int8 value);
int bn_binding_get_int8(const bn_binding *binding, bn_attribute_id attrib_id,
                        uint32 *ret_flagged_type, int8 *ret_value);

int bn_attrib_new_uint16(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, uint16 value);
int bn_attrib_set_uint16(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                         uint16 value);
int bn_attrib_get_uint16(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, uint16 *ret_value);
int bn_binding_new_uint16(bn_binding **ret_binding, const char *binding_name,
                          bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint16 value);
int bn_binding_new_parts_uint16(bn_binding **ret_binding, const char *binding_name,
                                const tstr_array *binding_name_parts,
                                tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, uint16 value);
int bn_binding_set_uint16(bn_binding *binding, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, uint16 value);
int bn_binding_get_uint16(const bn_binding *binding, bn_attribute_id attrib_id,
                          uint32 *ret_flagged_type, uint16 *ret_value);

int bn_attrib_new_int16(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, int16 value);
int bn_attrib_set_int16(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        int16 value);
int bn_attrib_get_int16(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, int16 *ret_value);
int bn_binding_new_int16(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, int16 value);
int bn_binding_new_parts_int16(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, int16 value);
int bn_binding_set_int16(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, int16 value);
int bn_binding_get_int16(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, int16 *ret_value);

int bn_attrib_new_uint32(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, uint32 value);
int bn_attrib_set_uint32(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                         uint32 value);
int bn_attrib_get_uint32(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, uint32 *ret_value);
int bn_binding_new_uint32(bn_binding **ret_binding, const char *binding_name,
                          bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint32 value);
int bn_binding_new_parts_uint32(bn_binding **ret_binding, const char *binding_name,
                                const tstr_array *binding_name_parts,
                                tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, uint32 value);
int bn_binding_set_uint32(bn_binding *binding, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, uint32 value);
int bn_binding_get_uint32(const bn_binding *binding, bn_attribute_id attrib_id,
                          uint32 *ret_flagged_type, uint32 *ret_value);

int bn_attrib_new_int32(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, int32 value);
int bn_attrib_set_int32(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        int32 value);
int bn_attrib_get_int32(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, int32 *ret_value);
int bn_binding_new_int32(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, int32 value);
int bn_binding_new_parts_int32(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, int32 value);
int bn_binding_set_int32(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, int32 value);
int bn_binding_get_int32(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, int32 *ret_value);

int bn_attrib_new_uint64(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, uint64 value);
int bn_attrib_set_uint64(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                         uint64 value);
int bn_attrib_get_uint64(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, uint64 *ret_value);
int bn_binding_new_uint64(bn_binding **ret_binding, const char *binding_name,
                          bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint64 value);
int bn_binding_new_parts_uint64(bn_binding **ret_binding, const char *binding_name,
                                const tstr_array *binding_name_parts,
                                tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, uint64 value);
int bn_binding_set_uint64(bn_binding *binding, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, uint64 value);
int bn_binding_get_uint64(const bn_binding *binding, bn_attribute_id attrib_id,
                          uint32 *ret_flagged_type, uint64 *ret_value);

int bn_attrib_new_int64(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, int64 value);
int bn_attrib_set_int64(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        int64 value);
int bn_attrib_get_int64(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, int64 *ret_value);
int bn_binding_new_int64(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, int64 value);
int bn_binding_new_parts_int64(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, int64 value);
int bn_binding_set_int64(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, int64 value);
int bn_binding_get_int64(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, int64 *ret_value);

int bn_attrib_new_float32(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, float32 value);
int bn_attrib_set_float32(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                          float32 value);
int bn_attrib_get_float32(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                          uint32 *ret_flagged_type, float32 *ret_value);
int bn_binding_new_float32(bn_binding **ret_binding, const char *binding_name,
                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags, float32 value);
int bn_binding_new_parts_float32(bn_binding **ret_binding, const char *binding_name,
                                 const tstr_array *binding_name_parts,
                                 tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                 bn_type_flags_bf type_flags, float32 value);
int bn_binding_set_float32(bn_binding *binding, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, float32 value);
int bn_binding_get_float32(const bn_binding *binding, bn_attribute_id attrib_id,
                           uint32 *ret_flagged_type, float32 *ret_value);

int bn_attrib_new_float64(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, float64 value);
int bn_attrib_set_float64(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                          float64 value);
int bn_attrib_get_float64(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                          uint32 *ret_flagged_type, float64 *ret_value);
int bn_binding_new_float64(bn_binding **ret_binding, const char *binding_name,
                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags, float64 value);
int bn_binding_new_parts_float64(bn_binding **ret_binding, const char *binding_name,
                                 const tstr_array *binding_name_parts,
                                 tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                 bn_type_flags_bf type_flags, float64 value);
int bn_binding_set_float64(bn_binding *binding, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, float64 value);
int bn_binding_get_float64(const bn_binding *binding, bn_attribute_id attrib_id,
                           uint32 *ret_flagged_type, float64 *ret_value);

int bn_attrib_new_char(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                       bn_type_flags_bf type_flags, char value);
int bn_attrib_set_char(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                       char value);
int bn_attrib_get_char(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                       uint32 *ret_flagged_type, char *ret_value);
int bn_binding_new_char(bn_binding **ret_binding, const char *binding_name,
                        bn_attribute_id attrib_id, bn_type_flags_bf type_flags, char value);
int bn_binding_new_parts_char(bn_binding **ret_binding, const char *binding_name,
                              const tstr_array *binding_name_parts,
                              tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, char value);
int bn_binding_set_char(bn_binding *binding, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        char value);
int bn_binding_get_char(const bn_binding *binding, bn_attribute_id attrib_id,
                        uint32 *ret_flagged_type, char *ret_value);

int bn_attrib_new_tbool(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, tbool value);
int bn_attrib_set_tbool(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        tbool value);
int bn_attrib_get_tbool(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, tbool *ret_value);
int bn_binding_new_tbool(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, tbool value);
int bn_binding_new_parts_tbool(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, tbool value);
int bn_binding_set_tbool(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, tbool value);
int bn_binding_get_tbool(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, tbool *ret_value);

int bn_attrib_new_ipv4addr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, uint32 value);
int bn_attrib_set_ipv4addr(bn_attrib *attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, uint32 value);
int bn_attrib_get_ipv4addr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                           uint32 *ret_flagged_type, uint32 *ret_value);
int bn_binding_new_ipv4addr(bn_binding **ret_binding, const char *binding_name,
                            bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint32 value);
int bn_binding_new_parts_ipv4addr(bn_binding **ret_binding, const char *binding_name,
                                  const tstr_array *binding_name_parts,
                                  tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, uint32 value);
int bn_binding_set_ipv4addr(bn_binding *binding, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, uint32 value);
int bn_binding_get_ipv4addr(const bn_binding *binding, bn_attribute_id attrib_id,
                            uint32 *ret_flagged_type, uint32 *ret_value);

int bn_attrib_new_ipv4addr_bnipv4(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_attrib_set_ipv4addr_bnipv4(bn_attrib *attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_attrib_get_ipv4addr_bnipv4(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                  uint32 *ret_flagged_type, bn_ipv4addr *ret_value);
int bn_binding_new_ipv4addr_bnipv4(bn_binding **ret_binding, const char *binding_name,
                                   bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                   const bn_ipv4addr *value);
int bn_binding_new_parts_ipv4addr_bnipv4(bn_binding **ret_binding, const char *binding_name,
                                         const tstr_array *binding_name_parts,
                                         tbool binding_name_parts_is_absolute,
                                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                         const bn_ipv4addr *value);
int bn_binding_set_ipv4addr_bnipv4(bn_binding *binding, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_binding_get_ipv4addr_bnipv4(const bn_binding *binding, bn_attribute_id attrib_id,
                                   uint32 *ret_flagged_type, bn_ipv4addr *ret_value);

int bn_attrib_new_ipv4addr_inaddr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const in_addr *value);
int bn_attrib_set_ipv4addr_inaddr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const in_addr *value);
int bn_attrib_get_ipv4addr_inaddr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                  uint32 *ret_flagged_type, in_addr *ret_value);
int bn_binding_new_ipv4addr_inaddr(bn_binding **ret_binding, const char *binding_name,
                                   bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                   const in_addr *value);
int bn_binding_new_parts_ipv4addr_inaddr(bn_binding **ret_binding, const char *binding_name,
                                         const tstr_array *binding_name_parts,
                                         tbool binding_name_parts_is_absolute,
                                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                         const in_addr *value);
int bn_binding_set_ipv4addr_inaddr(bn_binding *binding, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const in_addr *value);
int bn_binding_get_ipv4addr_inaddr(const bn_binding *binding, bn_attribute_id attrib_id,
                                   uint32 *ret_flagged_type, in_addr *ret_value);

int bn_attrib_new_ipv4addr_inetaddr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_set_ipv4addr_inetaddr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_get_ipv4addr_inetaddr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                    uint32 *ret_flagged_type, bn_inetaddr *ret_value);
int bn_binding_new_ipv4addr_inetaddr(bn_binding **ret_binding, const char *binding_name,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     const bn_inetaddr *value);
int bn_binding_new_parts_ipv4addr_inetaddr(bn_binding **ret_binding, const char *binding_name,
                                           const tstr_array *binding_name_parts,
                                           tbool binding_name_parts_is_absolute,
                                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                           const bn_inetaddr *value);
int bn_binding_set_ipv4addr_inetaddr(bn_binding *binding, bn_attribute_id attrib_id,
                                     bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_binding_get_ipv4addr_inetaddr(const bn_binding *binding, bn_attribute_id attrib_id,
                                     uint32 *ret_flagged_type, bn_inetaddr *ret_value);

int bn_attrib_new_ipv4prefix(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, uint64 value);
int bn_attrib_set_ipv4prefix(bn_attrib *attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, uint64 value);
int bn_attrib_get_ipv4prefix(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, uint64 *ret_value);
int bn_binding_new_ipv4prefix(bn_binding **ret_binding, const char *binding_name,
                              bn_attribute_id attrib_id, bn_type_flags_bf type_flags, uint64 value);
int bn_binding_new_parts_ipv4prefix(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, uint64 value);
int bn_binding_set_ipv4prefix(bn_binding *binding, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, uint64 value);
int bn_binding_get_ipv4prefix(const bn_binding *binding, bn_attribute_id attrib_id,
                              uint32 *ret_flagged_type, uint64 *ret_value);

int bn_attrib_new_ipv4prefix_bnipv4(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_attrib_set_ipv4prefix_bnipv4(bn_attrib *attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_attrib_get_ipv4prefix_bnipv4(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                    uint32 *ret_flagged_type, bn_ipv4prefix *ret_value);
int bn_binding_new_ipv4prefix_bnipv4(bn_binding **ret_binding, const char *binding_name,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     const bn_ipv4prefix *value);
int bn_binding_new_parts_ipv4prefix_bnipv4(bn_binding **ret_binding, const char *binding_name,
                                           const tstr_array *binding_name_parts,
                                           tbool binding_name_parts_is_absolute,
                                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                           const bn_ipv4prefix *value);
int bn_binding_set_ipv4prefix_bnipv4(bn_binding *binding, bn_attribute_id attrib_id,
                                     bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_binding_get_ipv4prefix_bnipv4(const bn_binding *binding, bn_attribute_id attrib_id,
                                     uint32 *ret_flagged_type, bn_ipv4prefix *ret_value);

int bn_attrib_new_ipv6addr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_set_ipv6addr(bn_attrib *attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_get_ipv6addr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                           uint32 *ret_flagged_type, bn_ipv6addr *ret_value);
int bn_binding_new_ipv6addr(bn_binding **ret_binding, const char *binding_name,
                            bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                            const bn_ipv6addr *value);
int bn_binding_new_parts_ipv6addr(bn_binding **ret_binding, const char *binding_name,
                                  const tstr_array *binding_name_parts,
                                  tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_binding_set_ipv6addr(bn_binding *binding, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_binding_get_ipv6addr(const bn_binding *binding, bn_attribute_id attrib_id,
                            uint32 *ret_flagged_type, bn_ipv6addr *ret_value);

int bn_attrib_new_ipv6addr_bnipv6(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_set_ipv6addr_bnipv6(bn_attrib *attrib, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_get_ipv6addr_bnipv6(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                  uint32 *ret_flagged_type, bn_ipv6addr *ret_value);
int bn_binding_new_ipv6addr_bnipv6(bn_binding **ret_binding, const char *binding_name,
                                   bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                   const bn_ipv6addr *value);
int bn_binding_new_parts_ipv6addr_bnipv6(bn_binding **ret_binding, const char *binding_name,
                                         const tstr_array *binding_name_parts,
                                         tbool binding_name_parts_is_absolute,
                                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                         const bn_ipv6addr *value);
int bn_binding_set_ipv6addr_bnipv6(bn_binding *binding, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_binding_get_ipv6addr_bnipv6(const bn_binding *binding, bn_attribute_id attrib_id,
                                   uint32 *ret_flagged_type, bn_ipv6addr *ret_value);

int bn_attrib_new_ipv6addr_in6addr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const in6_addr *value);
int bn_attrib_set_ipv6addr_in6addr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const in6_addr *value);
int bn_attrib_get_ipv6addr_in6addr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                   uint32 *ret_flagged_type, in6_addr *ret_value);
int bn_binding_new_ipv6addr_in6addr(bn_binding **ret_binding, const char *binding_name,
                                    bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                    const in6_addr *value);
int bn_binding_new_parts_ipv6addr_in6addr(bn_binding **ret_binding, const char *binding_name,
                                          const tstr_array *binding_name_parts,
                                          tbool binding_name_parts_is_absolute,
                                          bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                          const in6_addr *value);
int bn_binding_set_ipv6addr_in6addr(bn_binding *binding, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const in6_addr *value);
int bn_binding_get_ipv6addr_in6addr(const bn_binding *binding, bn_attribute_id attrib_id,
                                    uint32 *ret_flagged_type, in6_addr *ret_value);

int bn_attrib_new_ipv6addr_inetaddr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_set_ipv6addr_inetaddr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_get_ipv6addr_inetaddr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                    uint32 *ret_flagged_type, bn_inetaddr *ret_value);
int bn_binding_new_ipv6addr_inetaddr(bn_binding **ret_binding, const char *binding_name,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     const bn_inetaddr *value);
int bn_binding_new_parts_ipv6addr_inetaddr(bn_binding **ret_binding, const char *binding_name,
                                           const tstr_array *binding_name_parts,
                                           tbool binding_name_parts_is_absolute,
                                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                           const bn_inetaddr *value);
int bn_binding_set_ipv6addr_inetaddr(bn_binding *binding, bn_attribute_id attrib_id,
                                     bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_binding_get_ipv6addr_inetaddr(const bn_binding *binding, bn_attribute_id attrib_id,
                                     uint32 *ret_flagged_type, bn_inetaddr *ret_value);

int bn_attrib_new_ipv6addrz(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_attrib_set_ipv6addrz(bn_attrib *attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_attrib_get_ipv6addrz(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                            uint32 *ret_flagged_type, bn_ipv6addrz *ret_value);
int bn_binding_new_ipv6addrz(bn_binding **ret_binding, const char *binding_name,
                             bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                             const bn_ipv6addrz *value);
int bn_binding_new_parts_ipv6addrz(bn_binding **ret_binding, const char *binding_name,
                                   const tstr_array *binding_name_parts,
                                   tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_binding_set_ipv6addrz(bn_binding *binding, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_binding_get_ipv6addrz(const bn_binding *binding, bn_attribute_id attrib_id,
                             uint32 *ret_flagged_type, bn_ipv6addrz *ret_value);

int bn_attrib_new_ipv6prefix(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_attrib_set_ipv6prefix(bn_attrib *attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_attrib_get_ipv6prefix(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, bn_ipv6prefix *ret_value);
int bn_binding_new_ipv6prefix(bn_binding **ret_binding, const char *binding_name,
                              bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                              const bn_ipv6prefix *value);
int bn_binding_new_parts_ipv6prefix(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_binding_set_ipv6prefix(bn_binding *binding, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_binding_get_ipv6prefix(const bn_binding *binding, bn_attribute_id attrib_id,
                              uint32 *ret_flagged_type, bn_ipv6prefix *ret_value);

int bn_attrib_new_inetaddr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_set_inetaddr(bn_attrib *attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_attrib_get_inetaddr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                           uint32 *ret_flagged_type, bn_inetaddr *ret_value);
int bn_binding_new_inetaddr(bn_binding **ret_binding, const char *binding_name,
                            bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                            const bn_inetaddr *value);
int bn_binding_new_parts_inetaddr(bn_binding **ret_binding, const char *binding_name,
                                  const tstr_array *binding_name_parts,
                                  tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_binding_set_inetaddr(bn_binding *binding, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_inetaddr *value);
int bn_binding_get_inetaddr(const bn_binding *binding, bn_attribute_id attrib_id,
                            uint32 *ret_flagged_type, bn_inetaddr *ret_value);

int bn_attrib_new_inetaddr_ipv4addr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_attrib_set_inetaddr_ipv4addr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_attrib_get_inetaddr_ipv4addr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                    uint32 *ret_flagged_type, bn_ipv4addr *ret_value);
int bn_binding_new_inetaddr_ipv4addr(bn_binding **ret_binding, const char *binding_name,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     const bn_ipv4addr *value);
int bn_binding_new_parts_inetaddr_ipv4addr(bn_binding **ret_binding, const char *binding_name,
                                           const tstr_array *binding_name_parts,
                                           tbool binding_name_parts_is_absolute,
                                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                           const bn_ipv4addr *value);
int bn_binding_set_inetaddr_ipv4addr(bn_binding *binding, bn_attribute_id attrib_id,
                                     bn_type_flags_bf type_flags, const bn_ipv4addr *value);
int bn_binding_get_inetaddr_ipv4addr(const bn_binding *binding, bn_attribute_id attrib_id,
                                     uint32 *ret_flagged_type, bn_ipv4addr *ret_value);

int bn_attrib_new_inetaddr_ipv6addr(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_set_inetaddr_ipv6addr(bn_attrib *attrib, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_attrib_get_inetaddr_ipv6addr(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                    uint32 *ret_flagged_type, bn_ipv6addr *ret_value);
int bn_binding_new_inetaddr_ipv6addr(bn_binding **ret_binding, const char *binding_name,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     const bn_ipv6addr *value);
int bn_binding_new_parts_inetaddr_ipv6addr(bn_binding **ret_binding, const char *binding_name,
                                           const tstr_array *binding_name_parts,
                                           tbool binding_name_parts_is_absolute,
                                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                           const bn_ipv6addr *value);
int bn_binding_set_inetaddr_ipv6addr(bn_binding *binding, bn_attribute_id attrib_id,
                                     bn_type_flags_bf type_flags, const bn_ipv6addr *value);
int bn_binding_get_inetaddr_ipv6addr(const bn_binding *binding, bn_attribute_id attrib_id,
                                     uint32 *ret_flagged_type, bn_ipv6addr *ret_value);

int bn_attrib_new_inetaddrz(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_inetaddrz *value);
int bn_attrib_set_inetaddrz(bn_attrib *attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, const bn_inetaddrz *value);
int bn_attrib_get_inetaddrz(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                            uint32 *ret_flagged_type, bn_inetaddrz *ret_value);
int bn_binding_new_inetaddrz(bn_binding **ret_binding, const char *binding_name,
                             bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                             const bn_inetaddrz *value);
int bn_binding_new_parts_inetaddrz(bn_binding **ret_binding, const char *binding_name,
                                   const tstr_array *binding_name_parts,
                                   tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, const bn_inetaddrz *value);
int bn_binding_set_inetaddrz(bn_binding *binding, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_inetaddrz *value);
int bn_binding_get_inetaddrz(const bn_binding *binding, bn_attribute_id attrib_id,
                             uint32 *ret_flagged_type, bn_inetaddrz *ret_value);

int bn_attrib_new_inetaddrz_ipv6addrz(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                      bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_attrib_set_inetaddrz_ipv6addrz(bn_attrib *attrib, bn_attribute_id attrib_id,
                                      bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_attrib_get_inetaddrz_ipv6addrz(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                      uint32 *ret_flagged_type, bn_ipv6addrz *ret_value);
int bn_binding_new_inetaddrz_ipv6addrz(bn_binding **ret_binding, const char *binding_name,
                                       bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                       const bn_ipv6addrz *value);
int bn_binding_new_parts_inetaddrz_ipv6addrz(bn_binding **ret_binding, const char *binding_name,
                                             const tstr_array *binding_name_parts,
                                             tbool binding_name_parts_is_absolute,
                                             bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                             const bn_ipv6addrz *value);
int bn_binding_set_inetaddrz_ipv6addrz(bn_binding *binding, bn_attribute_id attrib_id,
                                       bn_type_flags_bf type_flags, const bn_ipv6addrz *value);
int bn_binding_get_inetaddrz_ipv6addrz(const bn_binding *binding, bn_attribute_id attrib_id,
                                       uint32 *ret_flagged_type, bn_ipv6addrz *ret_value);

int bn_attrib_new_inetprefix(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_inetprefix *value);
int bn_attrib_set_inetprefix(bn_attrib *attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const bn_inetprefix *value);
int bn_attrib_get_inetprefix(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, bn_inetprefix *ret_value);
int bn_binding_new_inetprefix(bn_binding **ret_binding, const char *binding_name,
                              bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                              const bn_inetprefix *value);
int bn_binding_new_parts_inetprefix(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const bn_inetprefix *value);
int bn_binding_set_inetprefix(bn_binding *binding, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, const bn_inetprefix *value);
int bn_binding_get_inetprefix(const bn_binding *binding, bn_attribute_id attrib_id,
                              uint32 *ret_flagged_type, bn_inetprefix *ret_value);

int bn_attrib_new_inetprefix_ipv4prefix(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                        bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_attrib_set_inetprefix_ipv4prefix(bn_attrib *attrib, bn_attribute_id attrib_id,
                                        bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_attrib_get_inetprefix_ipv4prefix(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                        uint32 *ret_flagged_type, bn_ipv4prefix *ret_value);
int bn_binding_new_inetprefix_ipv4prefix(bn_binding **ret_binding, const char *binding_name,
                                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                         const bn_ipv4prefix *value);
int bn_binding_new_parts_inetprefix_ipv4prefix(bn_binding **ret_binding, const char *binding_name,
                                               const tstr_array *binding_name_parts,
                                               tbool binding_name_parts_is_absolute,
                                               bn_attribute_id attrib_id,
                                               bn_type_flags_bf type_flags,
                                               const bn_ipv4prefix *value);
int bn_binding_set_inetprefix_ipv4prefix(bn_binding *binding, bn_attribute_id attrib_id,
                                         bn_type_flags_bf type_flags, const bn_ipv4prefix *value);
int bn_binding_get_inetprefix_ipv4prefix(const bn_binding *binding, bn_attribute_id attrib_id,
                                         uint32 *ret_flagged_type, bn_ipv4prefix *ret_value);

int bn_attrib_new_inetprefix_ipv6prefix(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                                        bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_attrib_set_inetprefix_ipv6prefix(bn_attrib *attrib, bn_attribute_id attrib_id,
                                        bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_attrib_get_inetprefix_ipv6prefix(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                                        uint32 *ret_flagged_type, bn_ipv6prefix *ret_value);
int bn_binding_new_inetprefix_ipv6prefix(bn_binding **ret_binding, const char *binding_name,
                                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                         const bn_ipv6prefix *value);
int bn_binding_new_parts_inetprefix_ipv6prefix(bn_binding **ret_binding, const char *binding_name,
                                               const tstr_array *binding_name_parts,
                                               tbool binding_name_parts_is_absolute,
                                               bn_attribute_id attrib_id,
                                               bn_type_flags_bf type_flags,
                                               const bn_ipv6prefix *value);
int bn_binding_set_inetprefix_ipv6prefix(bn_binding *binding, bn_attribute_id attrib_id,
                                         bn_type_flags_bf type_flags, const bn_ipv6prefix *value);
int bn_binding_get_inetprefix_ipv6prefix(const bn_binding *binding, bn_attribute_id attrib_id,
                                         uint32 *ret_flagged_type, bn_ipv6prefix *ret_value);

int bn_attrib_new_macaddr802(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const uint8 *value);
int bn_attrib_set_macaddr802(bn_attrib *attrib, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const uint8 *value);
int bn_attrib_get_macaddr802(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                             uint32 *ret_flagged_type, uint8 *ret_value);
int bn_binding_new_macaddr802(bn_binding **ret_binding, const char *binding_name,
                              bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                              const uint8 *value);
int bn_binding_new_parts_macaddr802(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                    bn_type_flags_bf type_flags, const uint8 *value);
int bn_binding_set_macaddr802(bn_binding *binding, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, const uint8 *value);
int bn_binding_get_macaddr802(const bn_binding *binding, bn_attribute_id attrib_id,
                              uint32 *ret_flagged_type, uint8 *ret_value);

int bn_attrib_new_date(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                       bn_type_flags_bf type_flags, lt_time_sec value);
int bn_attrib_set_date(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                       lt_time_sec value);
int bn_attrib_get_date(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                       uint32 *ret_flagged_type, lt_time_sec *ret_value);
int bn_binding_new_date(bn_binding **ret_binding, const char *binding_name,
                        bn_attribute_id attrib_id, bn_type_flags_bf type_flags, lt_time_sec value);
int bn_binding_new_parts_date(bn_binding **ret_binding, const char *binding_name,
                              const tstr_array *binding_name_parts,
                              tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_time_sec value);
int bn_binding_set_date(bn_binding *binding, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        lt_time_sec value);
int bn_binding_get_date(const bn_binding *binding, bn_attribute_id attrib_id,
                        uint32 *ret_flagged_type, lt_time_sec *ret_value);

int bn_attrib_new_time_sec(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, lt_time_sec value);
int bn_attrib_set_time_sec(bn_attrib *attrib, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, lt_time_sec value);
int bn_attrib_get_time_sec(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                           uint32 *ret_flagged_type, lt_time_sec *ret_value);
int bn_binding_new_time_sec(bn_binding **ret_binding, const char *binding_name,
                            bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                            lt_time_sec value);
int bn_binding_new_parts_time_sec(bn_binding **ret_binding, const char *binding_name,
                                  const tstr_array *binding_name_parts,
                                  tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                  bn_type_flags_bf type_flags, lt_time_sec value);
int bn_binding_set_time_sec(bn_binding *binding, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, lt_time_sec value);
int bn_binding_get_time_sec(const bn_binding *binding, bn_attribute_id attrib_id,
                            uint32 *ret_flagged_type, lt_time_sec *ret_value);

int bn_attrib_new_time_ms(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, lt_time_ms value);
int bn_attrib_set_time_ms(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                          lt_time_ms value);
int bn_attrib_get_time_ms(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                          uint32 *ret_flagged_type, lt_time_ms *ret_value);
int bn_binding_new_time_ms(bn_binding **ret_binding, const char *binding_name,
                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                           lt_time_ms value);
int bn_binding_new_parts_time_ms(bn_binding **ret_binding, const char *binding_name,
                                 const tstr_array *binding_name_parts,
                                 tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                 bn_type_flags_bf type_flags, lt_time_ms value);
int bn_binding_set_time_ms(bn_binding *binding, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, lt_time_ms value);
int bn_binding_get_time_ms(const bn_binding *binding, bn_attribute_id attrib_id,
                           uint32 *ret_flagged_type, lt_time_ms *ret_value);

int bn_attrib_new_time_us(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, lt_time_us value);
int bn_attrib_set_time_us(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                          lt_time_us value);
int bn_attrib_get_time_us(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                          uint32 *ret_flagged_type, lt_time_us *ret_value);
int bn_binding_new_time_us(bn_binding **ret_binding, const char *binding_name,
                           bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                           lt_time_us value);
int bn_binding_new_parts_time_us(bn_binding **ret_binding, const char *binding_name,
                                 const tstr_array *binding_name_parts,
                                 tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                 bn_type_flags_bf type_flags, lt_time_us value);
int bn_binding_set_time_us(bn_binding *binding, bn_attribute_id attrib_id,
                           bn_type_flags_bf type_flags, lt_time_us value);
int bn_binding_get_time_us(const bn_binding *binding, bn_attribute_id attrib_id,
                           uint32 *ret_flagged_type, lt_time_us *ret_value);

int bn_attrib_new_datetime_sec(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_time_sec value);
int bn_attrib_set_datetime_sec(bn_attrib *attrib, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_time_sec value);
int bn_attrib_get_datetime_sec(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                               uint32 *ret_flagged_type, lt_time_sec *ret_value);
int bn_binding_new_datetime_sec(bn_binding **ret_binding, const char *binding_name,
                                bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                lt_time_sec value);
int bn_binding_new_parts_datetime_sec(bn_binding **ret_binding, const char *binding_name,
                                      const tstr_array *binding_name_parts,
                                      tbool binding_name_parts_is_absolute,
                                      bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                      lt_time_sec value);
int bn_binding_set_datetime_sec(bn_binding *binding, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, lt_time_sec value);
int bn_binding_get_datetime_sec(const bn_binding *binding, bn_attribute_id attrib_id,
                                uint32 *ret_flagged_type, lt_time_sec *ret_value);

int bn_attrib_new_datetime_ms(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_time_ms value);
int bn_attrib_set_datetime_ms(bn_attrib *attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_time_ms value);
int bn_attrib_get_datetime_ms(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                              uint32 *ret_flagged_type, lt_time_ms *ret_value);
int bn_binding_new_datetime_ms(bn_binding **ret_binding, const char *binding_name,
                               bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                               lt_time_ms value);
int bn_binding_new_parts_datetime_ms(bn_binding **ret_binding, const char *binding_name,
                                     const tstr_array *binding_name_parts,
                                     tbool binding_name_parts_is_absolute,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     lt_time_ms value);
int bn_binding_set_datetime_ms(bn_binding *binding, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_time_ms value);
int bn_binding_get_datetime_ms(const bn_binding *binding, bn_attribute_id attrib_id,
                               uint32 *ret_flagged_type, lt_time_ms *ret_value);

int bn_attrib_new_datetime_us(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_time_us value);
int bn_attrib_set_datetime_us(bn_attrib *attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_time_us value);
int bn_attrib_get_datetime_us(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                              uint32 *ret_flagged_type, lt_time_us *ret_value);
int bn_binding_new_datetime_us(bn_binding **ret_binding, const char *binding_name,
                               bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                               lt_time_us value);
int bn_binding_new_parts_datetime_us(bn_binding **ret_binding, const char *binding_name,
                                     const tstr_array *binding_name_parts,
                                     tbool binding_name_parts_is_absolute,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     lt_time_us value);
int bn_binding_set_datetime_us(bn_binding *binding, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_time_us value);
int bn_binding_get_datetime_us(const bn_binding *binding, bn_attribute_id attrib_id,
                               uint32 *ret_flagged_type, lt_time_us *ret_value);

int bn_attrib_new_duration_sec(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_dur_sec value);
int bn_attrib_set_duration_sec(bn_attrib *attrib, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_dur_sec value);
int bn_attrib_get_duration_sec(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                               uint32 *ret_flagged_type, lt_dur_sec *ret_value);
int bn_binding_new_duration_sec(bn_binding **ret_binding, const char *binding_name,
                                bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                lt_dur_sec value);
int bn_binding_new_parts_duration_sec(bn_binding **ret_binding, const char *binding_name,
                                      const tstr_array *binding_name_parts,
                                      tbool binding_name_parts_is_absolute,
                                      bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                      lt_dur_sec value);
int bn_binding_set_duration_sec(bn_binding *binding, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, lt_dur_sec value);
int bn_binding_get_duration_sec(const bn_binding *binding, bn_attribute_id attrib_id,
                                uint32 *ret_flagged_type, lt_dur_sec *ret_value);

int bn_attrib_new_duration_ms(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_dur_ms value);
int bn_attrib_set_duration_ms(bn_attrib *attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_dur_ms value);
int bn_attrib_get_duration_ms(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                              uint32 *ret_flagged_type, lt_dur_ms *ret_value);
int bn_binding_new_duration_ms(bn_binding **ret_binding, const char *binding_name,
                               bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                               lt_dur_ms value);
int bn_binding_new_parts_duration_ms(bn_binding **ret_binding, const char *binding_name,
                                     const tstr_array *binding_name_parts,
                                     tbool binding_name_parts_is_absolute,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     lt_dur_ms value);
int bn_binding_set_duration_ms(bn_binding *binding, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_dur_ms value);
int bn_binding_get_duration_ms(const bn_binding *binding, bn_attribute_id attrib_id,
                               uint32 *ret_flagged_type, lt_dur_ms *ret_value);

int bn_attrib_new_duration_us(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_dur_us value);
int bn_attrib_set_duration_us(bn_attrib *attrib, bn_attribute_id attrib_id,
                              bn_type_flags_bf type_flags, lt_dur_us value);
int bn_attrib_get_duration_us(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                              uint32 *ret_flagged_type, lt_dur_us *ret_value);
int bn_binding_new_duration_us(bn_binding **ret_binding, const char *binding_name,
                               bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                               lt_dur_us value);
int bn_binding_new_parts_duration_us(bn_binding **ret_binding, const char *binding_name,
                                     const tstr_array *binding_name_parts,
                                     tbool binding_name_parts_is_absolute,
                                     bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                                     lt_dur_us value);
int bn_binding_set_duration_us(bn_binding *binding, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, lt_dur_us value);
int bn_binding_get_duration_us(const bn_binding *binding, bn_attribute_id attrib_id,
                               uint32 *ret_flagged_type, lt_dur_us *ret_value);

int bn_attrib_new_btype(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                        bn_type_flags_bf type_flags, bn_type value);
int bn_attrib_set_btype(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                        bn_type value);
int bn_attrib_get_btype(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                        uint32 *ret_flagged_type, bn_type *ret_value);
int bn_binding_new_btype(bn_binding **ret_binding, const char *binding_name,
                         bn_attribute_id attrib_id, bn_type_flags_bf type_flags, bn_type value);
int bn_binding_new_parts_btype(bn_binding **ret_binding, const char *binding_name,
                               const tstr_array *binding_name_parts,
                               tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                               bn_type_flags_bf type_flags, bn_type value);
int bn_binding_set_btype(bn_binding *binding, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, bn_type value);
int bn_binding_get_btype(const bn_binding *binding, bn_attribute_id attrib_id,
                         uint32 *ret_flagged_type, bn_type *ret_value);

int bn_attrib_new_attribute(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, bn_attribute_id value);
int bn_attrib_set_attribute(bn_attrib *attrib, bn_attribute_id attrib_id,
                            bn_type_flags_bf type_flags, bn_attribute_id value);
int bn_attrib_get_attribute(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                            uint32 *ret_flagged_type, bn_attribute_id *ret_value);
int bn_binding_new_attribute(bn_binding **ret_binding, const char *binding_name,
                             bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                             bn_attribute_id value);
int bn_binding_new_parts_attribute(bn_binding **ret_binding, const char *binding_name,
                                   const tstr_array *binding_name_parts,
                                   tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                   bn_type_flags_bf type_flags, bn_attribute_id value);
int bn_binding_set_attribute(bn_binding *binding, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, bn_attribute_id value);
int bn_binding_get_attribute(const bn_binding *binding, bn_attribute_id attrib_id,
                             uint32 *ret_flagged_type, bn_attribute_id *ret_value);

int bn_attrib_new_oid(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                      bn_type_flags_bf type_flags, const uint32 *oid, uint32 oid_len,
                      tbool oid_abs);
int bn_attrib_set_oid(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                      const uint32 *oid, uint32 oid_len, tbool oid_abs);
int bn_attrib_get_oid(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                      uint32 *ret_flagged_type, uint32 **ret_oid, uint32 *ret_oid_len,
                      tbool *ret_oid_abs);
int bn_binding_new_oid(bn_binding **ret_binding, const char *binding_name,
                       bn_attribute_id attrib_id, bn_type_flags_bf type_flags, const uint32 *oid,
                       uint32 oid_len, tbool oid_abs);
int bn_binding_new_parts_oid(bn_binding **ret_binding, const char *binding_name,
                             const tstr_array *binding_name_parts,
                             tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                             bn_type_flags_bf type_flags, const uint32 *oid, uint32 oid_len,
                             tbool oid_abs);
int bn_binding_set_oid(bn_binding *binding, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                       const uint32 *oid, uint32 oid_len, tbool oid_abs);
int bn_binding_get_oid(const bn_binding *binding, bn_attribute_id attrib_id,
                       uint32 *ret_flagged_type, uint32 **ret_oid, uint32 *ret_oid_len,
                       tbool *ret_oid_abs);

int bn_attrib_new_binary(bn_attrib **ret_attrib, bn_attribute_id attrib_id,
                         bn_type_flags_bf type_flags, const tbuf *value);
int bn_attrib_set_binary(bn_attrib *attrib, bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                         const tbuf *value);
int bn_attrib_get_binary(const bn_attrib *attrib, bn_attribute_id *ret_attrib_id,
                         uint32 *ret_flagged_type, tbuf **ret_value);
int bn_binding_new_binary(bn_binding **ret_binding, const char *binding_name,
                          bn_attribute_id attrib_id, bn_type_flags_bf type_flags,
                          const tbuf *value);
int bn_binding_new_parts_binary(bn_binding **ret_binding, const char *binding_name,
                                const tstr_array *binding_name_parts,
                                tbool binding_name_parts_is_absolute, bn_attribute_id attrib_id,
                                bn_type_flags_bf type_flags, const tbuf *value);
int bn_binding_set_binary(bn_binding *binding, bn_attribute_id attrib_id,
                          bn_type_flags_bf type_flags, const tbuf *value);
int bn_binding_get_binary(const bn_binding *binding, bn_attribute_id attrib_id,
                          uint32 *ret_flagged_type, tbuf **ret_value);
