// An array of strings: a thin forward to `array`, whose elements are `tstring *` owned by
// the array.  Plain adding forms copy; the _takeover forms take a `tstring **`, store the
// pointer and null the caller's.  The _quick forms do no checks.
#pragma once

#include <cstdarg>

#include "array.h"
#include "common.h"
#include "tstring.h"

struct tstr_array {
    array *tstr_arr;
};

// Element functions of the array.  The compare functions get pointers to the slots.
int tstr_array_compare_func(const void *elem1_ptr, const void *elem2_ptr);
// Compares the texts as signed 64-bit numbers read with strtoll in base 10.
int tstr_array_numeric_compare_func(const void *elem1_ptr, const void *elem2_ptr);
int tstr_array_dup_func(const void *src_elem, void **ret_dest_elem);
void tstr_array_free_func(void *elem);

// Making.  A null options pointer means the defaults: the array defaults with the string
// compare, dup and free functions.
int tstr_array_options_get_defaults(array_options *ret_options);
int tstr_array_new(tstr_array **ret_arr, const array_options *opts);
int tstr_array_new_size(tstr_array **ret_arr, uint32 initial_size);
// A null compare function means tstr_array_compare_func.
int tstr_array_new_full(tstr_array **ret_arr, uint32 initial_size,
                        array_elem_compare_func compare_func, array_dup_policy dup_policy,
                        tbool enforce_sorting_constraints);
int tstr_array_duplicate(const tstr_array *arr, tstr_array **ret_dup);
int tstr_array_free(tstr_array **inout_arr);
int tstr_array_empty(tstr_array *arr);

// Reading.  The strings handed out are borrowed.  A null array has length 0.
int tstr_array_length(const tstr_array *arr, uint32 *ret_length);
uint32 tstr_array_length_quick(const tstr_array *arr);
int tstr_array_get(const tstr_array *arr, uint32 idx, tstring **ret_ts);
tstring *tstr_array_get_quick(const tstr_array *arr, uint32 idx);
int tstr_array_get_str(const tstr_array *arr, uint32 idx, const char **ret_str);
const char *tstr_array_get_str_quick(const tstr_array *arr, uint32 idx);

// Adding.
int tstr_array_append(tstr_array *arr, const tstring *ts);
int tstr_array_append_takeover(tstr_array *arr, tstring **inout_ts);
int tstr_array_append_str(tstr_array *arr, const char *str);
// Takes over a heap text (see ts_new_str_takeover); the caller's pointer is nulled.
int tstr_array_append_str_takeover(tstr_array *arr, char **inout_str);
int tstr_array_append_sprintf(tstr_array *arr, const char *format, ...) LC_PRINTF_FORMAT(2, 3);
int tstr_array_insert_takeover(tstr_array *arr, uint32 idx, tstring **inout_ts);
// Sorted inserts apply the array's duplicate policy (see array_insert_sorted).
int tstr_array_insert_sorted_takeover(tstr_array *arr, tstring **inout_ts);
int tstr_array_insert_str_sorted(tstr_array *arr, const char *str);
int tstr_array_set_takeover(tstr_array *arr, uint32 idx, tstring **inout_ts);

// Removing.
int tstr_array_delete(tstr_array *arr, uint32 idx);
int tstr_array_remove(tstr_array *arr, uint32 idx, tstring **ret_ts);
int tstr_array_remove_no_shift(tstr_array *arr, uint32 idx, tstring **ret_ts);
int tstr_array_pop(tstr_array *arr, tstring **ret_ts);

// Ordering.  Only tstr_array_sort leaves the array marked sorted for its own compare
// function; the numeric and custom orders do not.
int tstr_array_sort(tstr_array *arr);
int tstr_array_sort_numeric(tstr_array *arr);
int tstr_array_sort_custom(tstr_array *arr, array_elem_compare_func compare_func);

// Searching by text, with the array's compare function.  No match gives lc_err_not_found,
// without a log line.  The binary search gives the lowest index of equal strings and needs
// the array sorted (see array_binary_search).
int tstr_array_linear_search_str(const tstr_array *arr, const char *str, uint32 start_idx,
                                 uint32 *ret_idx);
int tstr_array_binary_search_str(const tstr_array *arr, const char *str, uint32 *ret_idx);

// Compares the first max_elems1 elements of arr1 with the first max_elems2 of arr2 (a
// negative limit means all of them), element by element with ts_cmp_tstr and then by
// count.  A null array compares as an empty one.
int tstr_array_compare_ex(const tstr_array *arr1, const tstr_array *arr2, int32 max_elems1,
                          int32 max_elems2, tbool ignore_case, int *ret_cmp);

// Element-wise match of a pattern array against a name array: "*" matches any one
// element; with allow_double_star, "**" at the first element that does not match matches
// all the rest.  Without allow_double_star the lengths must be equal; with it the pattern
// must not be the longer.
int tstr_array_wildcard_match(const tstr_array *pattern_parts, const tstr_array *arr,
                              tbool allow_double_star, tbool *ret_match);
int tstr_array_wildcard_match_ex(const tstr_array *pattern_parts, const tstr_array *arr, int start_idx_pattern,
                                 int start_idx_arr, tbool allow_double_star, tbool *ret_match);
