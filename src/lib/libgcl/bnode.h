// Bindings: a hierarchical name together with a small table of typed attributes, the
// unit of all management traffic.  Also the name syntax (tokenising, joining, patterns),
// the attribute table and the binding array.
//
// Names.  Parts are separated by '/'; a '\' escapes a separator or an escape inside a
// part; there is no quoting.  A name is absolute exactly when its first byte is the
// separator.  In patterns and query names a part that is exactly "*" stands for any one
// part and a part that is exactly "**" for the rest of a name; a stored binding's name is
// never interpreted.
//
// Conventions.  Every fallible operation returns 0 or an lc_error_code and gives its
// result through a trailing ret_ pointer, which is cleared first, so that a failure leaves
// null.  _free operations take the address of the pointer and null it (null is fine);
// _takeover operations null the caller's pointer, also on failure.
#pragma once

#include "array.h"
#include "bnode_types.h"
#include "common.h"
#include "tstr_array.h"
#include "tstring.h"

// ---------------------------------------------------------------------------------------
// Name syntax.

static constexpr char bn_name_separator_char = '/';
static constexpr char bn_name_escape_char = '\\';
static constexpr char bn_name_quoting_char = '\0';  // no quoting in names
static constexpr char bn_name_wildcard_char = '*';

// The token flags used to split a name: no merging of doubled separators, a leading
// separator closes nothing, and a lone empty part gives no parts.
static constexpr uint32 bn_name_token_flags =
    ttf_no_ignore_dup_separator | ttf_ignore_leading_separator | ttf_single_empty_token_null;

// ---------------------------------------------------------------------------------------
// Records.

struct bn_attrib_array;

// A named node with its attributes.
struct bn_binding {
    tstring *bn_node_name;                // escaped, joined name; always present
    tstr_array *bn_node_name_parts;       // cache of the unescaped parts, may be null
    tbool bn_node_name_parts_absolute;    // meaningful only with the cache
    bn_attrib_array *bn_attribs;          // the attribute table, may be null
};

// A sparse table of attributes indexed directly by bn_attribute_id; empty slots are null.
struct bn_attrib_array {
    array *bn_attrib_arr;
};

// An array of bindings, sortable by escaped name (byte order).
struct bn_binding_array {
    array *bn_binding_arr;
};

typedef int (*bn_binding_array_foreach_func)(const bn_binding_array *arr, uint32 idx,
                                             bn_binding *binding, void *data);

// What bn_binding_array_foreach hands to its shim through array_foreach.
struct bn_binding_array_foreach_shim_args {
    const bn_binding_array *bbfs_arr;
    bn_binding_array_foreach_func bbfs_func;
    void *bbfs_data;
};

// ---------------------------------------------------------------------------------------
// Creating and destroying bindings.

// A binding with the name, no attributes and no parts cache.
int bn_binding_new_named(bn_binding **ret_binding, const char *binding_name);
// The same, with a deep copy of the attribute table (may be null).
int bn_binding_new_components(bn_binding **ret_binding, const char *binding_name,
                              const bn_attrib_array *attribs);
// Name only: the parts are tokenised from it.  Parts only: the name is joined from them.
// Both: both are copied and trusted to agree.  Neither: an empty name and no cache.  The
// table (may be null) is deep-copied.
int bn_binding_new_parts_components(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute,
                                    const bn_attrib_array *attribs);
// The same four cases, taking over name, parts and table; the caller's pointers are null
// on return, also on failure.
int bn_binding_new_parts_components_takeover(bn_binding **ret_binding,
                                             tstring **inout_binding_name,
                                             tstr_array **inout_binding_name_parts,
                                             tbool binding_name_parts_is_absolute,
                                             bn_attrib_array **inout_attribs);
// A deep copy: name, table, cached parts and absolute flag.
int bn_binding_dup(const bn_binding *binding, bn_binding **ret_binding);
// Frees table, parts, name and the record, and nulls the pointer.
int bn_binding_free(bn_binding **inout_binding);

// ---------------------------------------------------------------------------------------
// Name access.

int bn_binding_get_name(const bn_binding *binding, const tstring **ret_name);
// Null (with a logged bail-out) for a null binding.
const tstring *bn_binding_get_name_quick(const bn_binding *binding);
// Replaces the name and drops the parts cache.
int bn_binding_set_name(bn_binding *binding, const char *new_name);
// Borrows the cached parts, null when there is no cache; never tokenises.
// ret_is_absolute (may be null) is written only when the cache exists.
int bn_binding_get_name_parts_const(const bn_binding *binding, const tstr_array **ret_name_parts,
                                    tbool *ret_is_absolute);
// An owned copy of the parts, tokenising the name when there is no cache (the cache is not
// filled).
int bn_binding_get_name_parts(const bn_binding *binding, tstr_array **ret_name_parts);
// An owned copy of the last part; null for an empty name.
int bn_binding_get_name_last_part(const bn_binding *binding, tstring **ret_last_part);

// The last part of a name; an empty name gives null and success.
int bn_binding_name_get_last_part(const char *name, tstring **ret_last_part);
// Splits a name into its unescaped parts (UTF-8).  The empty name and "/" give no parts.
// ret_is_absolute may be null.
int bn_binding_name_to_parts(const char *name, tstr_array **ret_name_parts,
                             tbool *ret_is_absolute);
// Joins parts into an escaped name, with a leading separator exactly when absolute.
int bn_binding_name_parts_to_name(const tstr_array *name_parts, tbool is_absolute,
                                  char **ret_name);
int bn_binding_name_parts_to_name_tstr(const tstr_array *name_parts, tbool is_absolute,
                                       tstring **ret_name);
// Appends one part, escaped, after a separator.
int bn_binding_name_append_part_tstr(tstring *name, const char *new_part);
// Whether the parts match the pattern ("*" any one part, "**" the rest; the absoluteness
// must agree).
tbool bn_binding_name_parts_pattern_match(const tstr_array *name_parts, tbool name_parts_abs,
                                          const char *pattern);

// ---------------------------------------------------------------------------------------
// Attribute access.

// Stores into the slot attrib_id, creating the table (attrib_id + 1 slots) when the
// binding has none; an attribute already there is released.  *inout_attrib is nulled.
int bn_binding_set_attrib_takeover(bn_binding *binding, bn_attribute_id attrib_id,
                                   bn_attrib **inout_attrib);
// Borrows the attribute; an empty slot, a slot past the table's end or a binding without a
// table give null and 0.
int bn_binding_get_attrib(const bn_binding *binding, bn_attribute_id attrib_id,
                          const bn_attrib **ret_attrib);
// A missing attribute gives lc_err_not_found with both outputs zeroed; a binding without a
// table gives lc_err_unexpected_null.  Either output may be null.
int bn_binding_get_type(const bn_binding *binding, bn_attribute_id attrib_id, bn_type *ret_type,
                        bn_type_flags_bf *ret_type_flags);

// ---------------------------------------------------------------------------------------
// Element functions of the two arrays.  Compare functions get pointers to the slots.

int bn_attrib_dup_for_array(const void *src_elem, void **ret_dest_elem);
void bn_attrib_free_for_array(void *elem);

// ts_cmp of the joined names.
int bn_binding_compare_names_for_array(const void *elem1_ptr, const void *elem2_ptr);
int bn_binding_dup_for_array(const void *src_elem, void **ret_dest_elem);
void bn_binding_free_for_array(void *elem);

// ---------------------------------------------------------------------------------------
// bn_attrib_array.  A null compare function in _new_full means the array default.

int bn_attrib_array_options_get_defaults(array_options *ret_options);
int bn_attrib_array_new(bn_attrib_array **ret_arr);
int bn_attrib_array_new_size(bn_attrib_array **ret_arr, uint32 initial_size);
int bn_attrib_array_new_full(bn_attrib_array **ret_arr, uint32 initial_size,
                             array_elem_compare_func compare_func, array_dup_policy dup_policy,
                             tbool enforce_sorting_constraints);
int bn_attrib_array_free(bn_attrib_array **inout_arr);
uint32 bn_attrib_array_length_quick(const bn_attrib_array *arr);
// Borrows the attribute at idx (null for an empty slot); past the end is
// lc_err_no_buffer_space.
int bn_attrib_array_get(const bn_attrib_array *arr, uint32 idx, bn_attrib **ret_attrib);
// A deep copy.
int bn_attrib_array_duplicate(const bn_attrib_array *arr, bn_attrib_array **ret_dup);
// Store into slot idx, padding with empty slots when idx is past the end; an attribute
// already in the slot is released.  _set copies, _set_takeover nulls the caller's pointer.
int bn_attrib_array_set(bn_attrib_array *arr, uint32 idx, const bn_attrib *attrib);
int bn_attrib_array_set_takeover(bn_attrib_array *arr, uint32 idx, bn_attrib **inout_attrib);

// ---------------------------------------------------------------------------------------
// bn_binding_array.  A null compare function in _new_full means
// bn_binding_compare_names_for_array.

int bn_binding_array_options_get_defaults(array_options *ret_options);
int bn_binding_array_new(bn_binding_array **ret_arr);
int bn_binding_array_new_size(bn_binding_array **ret_arr, uint32 initial_size);
int bn_binding_array_new_full(bn_binding_array **ret_arr, uint32 initial_size,
                              array_elem_compare_func compare_func, array_dup_policy dup_policy,
                              tbool enforce_sorting_constraints);
int bn_binding_array_free(bn_binding_array **inout_arr);
// Frees all bindings; the array stays.
int bn_binding_array_empty(bn_binding_array *arr);
// 0 for a null array.
uint32 bn_binding_array_length_quick(const bn_binding_array *arr);
int bn_binding_array_length(const bn_binding_array *arr, uint32 *ret_length);
// Borrowed bindings; past the end is lc_err_no_buffer_space.
int bn_binding_array_get(const bn_binding_array *arr, uint32 idx, bn_binding **ret_binding);
bn_binding *bn_binding_array_get_quick(const bn_binding_array *arr, uint32 idx);
// Appends a deep copy.
int bn_binding_array_append(bn_binding_array *arr, const bn_binding *binding);
int bn_binding_array_append_takeover(bn_binding_array *arr, bn_binding **inout_binding);
// Hands the binding at idx out, shifting the rest down / moving the last one into its slot.
int bn_binding_array_remove(bn_binding_array *arr, uint32 idx, bn_binding **ret_binding);
int bn_binding_array_remove_no_shift(bn_binding_array *arr, uint32 idx,
                                     bn_binding **ret_binding);
int bn_binding_array_sort(bn_binding_array *arr);
// Binary search when sorted, linear otherwise; no match gives lc_err_not_found quietly.
int bn_binding_array_best_search(const bn_binding_array *arr, const bn_binding *binding,
                                 uint32 *ret_idx);
// Calls foreach_func for each binding in order; the lc_err_foreach_* results work as in
// array_foreach.
int bn_binding_array_foreach(const bn_binding_array *arr, bn_binding_array_foreach_func foreach_func,
                             void *foreach_data);

// ---------------------------------------------------------------------------------------
// Lookups by name.  Not found is success with an empty result.

// -1 when absent.
int bn_binding_array_get_index_by_name(const bn_binding_array *arr, const char *name,
                                       int32 *ret_idx);
// Borrowed; null when absent.
int bn_binding_array_get_binding_by_name(const bn_binding_array *arr, const char *name,
                                         bn_binding **ret_binding);
// Looks up "<parent_name>/<relative_name>".
int bn_binding_array_get_binding_by_name_rel(const bn_binding_array *arr, const char *parent_name,
                                             const char *relative_name, bn_binding **ret_binding);
// Moves the binding out of the array; null when absent.
int bn_binding_array_detach_binding_by_name(bn_binding_array *arr, const char *name,
                                            bn_binding **ret_binding);
// The text form of the ba_value attribute in a new tstring, and its bare type (ret_type may
// be null).  Absent binding or value: both outputs cleared, success.
int bn_binding_array_get_value_tstr_by_name(const bn_binding_array *arr, const char *name,
                                            bn_type *ret_type, tstring **ret_value);
int bn_binding_array_get_value_tstr_by_name_rel(const bn_binding_array *arr,
                                                const char *parent_name,
                                                const char *relative_name, bn_type *ret_type,
                                                tstring **ret_value);
