// Typed arrays: records with one `array` member and forwarders that fix the element type.
// `tstr_array` has its own header; the arrays of descriptor events and of bindings live
// with their modules.
#pragma once

#include "array.h"
#include "common.h"
#include "tstr_array.h"

// ---------------------------------------------------------------------------------------
// uint32_array: unsigned 32-bit values kept by value in the pointer slots.  Sorted order
// is numeric order.

struct uint32_array {
    array *uint32_arr;
};

int uint32_array_compare_func(const void *elem1_ptr, const void *elem2_ptr);

int uint32_array_options_get_defaults(array_options *ret_options);
int uint32_array_new(uint32_array **ret_arr);
int uint32_array_new_size(uint32_array **ret_arr, uint32 initial_size);
int uint32_array_new_full(uint32_array **ret_arr, uint32 initial_size, array_dup_policy dup_policy,
                          tbool enforce_sorting_constraints);
int uint32_array_duplicate(const uint32_array *arr, uint32_array **ret_dup);
int uint32_array_free(uint32_array **inout_arr);
int uint32_array_empty(uint32_array *arr);

int uint32_array_length(const uint32_array *arr, uint32 *ret_length);
uint32 uint32_array_length_quick(const uint32_array *arr);
int uint32_array_get(const uint32_array *arr, uint32 idx, uint32 *ret_value);
uint32 uint32_array_get_quick(const uint32_array *arr, uint32 idx);

int uint32_array_append(uint32_array *arr, uint32 value);
int uint32_array_set(uint32_array *arr, uint32 idx, uint32 value);
int uint32_array_insert(uint32_array *arr, uint32 idx, uint32 value);
// Applies the array's duplicate policy (see array_insert_sorted).
int uint32_array_insert_sorted(uint32_array *arr, uint32 value);

int uint32_array_delete(uint32_array *arr, uint32 idx);
int uint32_array_remove(uint32_array *arr, uint32 idx, uint32 *ret_value);
int uint32_array_pop(uint32_array *arr, uint32 *ret_value);

int uint32_array_sort(uint32_array *arr);
// No match gives lc_err_not_found, without a log line.
int uint32_array_linear_search(const uint32_array *arr, uint32 value, uint32 start_idx,
                               uint32 *ret_idx);
int uint32_array_binary_search(const uint32_array *arr, uint32 value, uint32 *ret_idx);

// ---------------------------------------------------------------------------------------
// tstr_array_array: an array of string arrays, which it owns.

struct tstr_array_array {
    array *tstr_array_arr;
};

int tstr_array_array_dup_func(const void *src_elem, void **ret_dest_elem);
void tstr_array_array_free_func(void *elem);

int tstr_array_array_new(tstr_array_array **ret_arr);
int tstr_array_array_free(tstr_array_array **inout_arr);
// A deep copy.
int tstr_array_array_duplicate(const tstr_array_array *arr, tstr_array_array **ret_dup);
uint32 tstr_array_array_length_quick(const tstr_array_array *arr);
tstr_array *tstr_array_array_get_quick(const tstr_array_array *arr, uint32 idx);
int tstr_array_array_get(const tstr_array_array *arr, uint32 idx, tstr_array **ret_elem);
// Appends a copy.
int tstr_array_array_append(tstr_array_array *arr, const tstr_array *elem);
int tstr_array_array_append_takeover(tstr_array_array *arr, tstr_array **inout_elem);
int tstr_array_array_delete(tstr_array_array *arr, uint32 idx);
