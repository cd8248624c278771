// The dynamic pointer array: optionally sorted, optionally owning its elements, copying
// and freeing them through functions in its options.
#pragma once

#include "common.h"

struct array;

// Compare gets pointers to the two slots, as qsort does.
typedef int (*array_elem_compare_func)(const void *elem1_ptr, const void *elem2_ptr);
typedef int (*array_elem_dup_func)(const void *src_elem, void **ret_dest_elem);
typedef int (*array_elem_takeover_func)(void **inout_src_elem, void **ret_dest_elem);
typedef void (*array_elem_free_func)(void *elem);
// Called by array_foreach for each index in order; see lc_err_foreach_* for the results.
typedef int (*array_foreach_func)(const array *arr, uint32 idx, void *elem, void *data);

// What a sorted insert does with an element equal to one already present.
enum array_dup_policy {
    adp_none = 0,
    adp_add_new = 1,
    adp_delete_old = 2,
    adp_delete_new = 3,
    adp_fail_new = 4,
    adp_last = 5,
};

struct array {
    void **ar_elems;
    uint32 ar_num_elems;
    uint32 ar_slots_allocated;
    uint32 ar_initial_size;
    tbool ar_sorted;
    tbool ar_other_owns_self;
    tbool ar_other_owns_elems;
    tbool ar_enforce_sorting_constraints;
    array_dup_policy ar_dup_policy;
    array_elem_compare_func ar_elem_compare_func;
    array_elem_dup_func ar_elem_dup_func;
    array_elem_takeover_func ar_elem_takeover_func;
    array_elem_free_func ar_elem_free_func;
};

struct array_options {
    uint32 ao_initial_size;
    array_elem_compare_func ao_elem_compare_func;
    array_elem_dup_func ao_elem_dup_func;
    array_elem_takeover_func ao_elem_takeover_func;
    array_elem_free_func ao_elem_free_func;
    array_dup_policy ao_dup_policy;
    tbool ao_enforce_sorting_constraints;
};

static constexpr uint32 array_default_initial_size = 10;

// Standard element functions: compare by pointer value, takeover moves the pointer and
// nulls the source, free calls free().
int array_std_compare_func(const void *elem1_ptr, const void *elem2_ptr);
int array_std_takeover_func(void **inout_src_elem, void **ret_dest_elem);
void array_std_free_func(void *elem);

// Making.
int array_options_get_defaults(array_options *ret_options);
int array_new(array **ret_arr, const array_options *opts);
// An array laid out in a caller-given block of `block_size` bytes (record plus slots).
// It cannot grow past the slots that fit, and array_free leaves the block alone.
int array_new_prealloc(array **ret_arr, const array_options *opts, void *block,
                       uint32 block_size);
int array_options_get(const array *arr, array_options *ret_options);
int array_options_set(array *arr, const array_options *opts);
int array_duplicate(const array *arr, array **ret_dup);
int array_duplicate_prealloc(const array *arr, array **ret_dup, void *block, uint32 block_size);
int array_free(array **inout_arr);
// Frees (or forgets, when others own them) all elements; the array stays.
int array_free_elems(array *arr);
// The same, and the slot block goes back to the initial size.
int array_empty(array *arr);

// Reading.
int array_length(const array *arr, uint32 *ret_length);
uint32 array_length_quick(const array *arr);
int array_get(const array *arr, uint32 idx, void **ret_elem);
void *array_get_quick(const array *arr, uint32 idx);

// Adding.  Plain forms copy through the dup function when there is one; without one the
// pointer itself is stored and the array owns it from then on (it is released with the
// free function like any other element, also when a sorted insert drops it under
// adp_delete_new).  The _takeover forms move the caller's element in through the takeover
// function and null the caller's pointer; on failure the caller keeps it.
// An append, set or insert at an index clears ar_sorted when the element breaks the order.
// A full preallocated array gives lc_err_no_buffer_space, without a log line.
int array_append(array *arr, void *elem);
int array_append_takeover(array *arr, void **inout_elem);
// Appends count null elements, stored as they are (no dup function is called): the empty
// slots of a table indexed directly.  Order is noted as for count appends of null.
int array_append_nulls(array *arr, uint32 count);
// Appends unless an equal element is present (lc_err_exists, no log line).
int array_append_no_dup(array *arr, void *elem);
// Replaces (and releases) the element at idx; idx equal to the length appends.
int array_set(array *arr, uint32 idx, void *elem);
int array_set_takeover(array *arr, uint32 idx, void **inout_elem);
int array_insert_takeover(array *arr, uint32 idx, void **inout_elem);
// Sorted inserts keep the order and apply the duplicate policy: adp_none and adp_add_new
// put the new element after its equals, adp_delete_old replaces the last equal element,
// adp_delete_new drops the new one (success), adp_fail_new gives lc_err_exists with the
// array unchanged.  lc_err_exists and lc_err_no_buffer_space come without a log line.
// The _hint forms start the search at hint_idx; _hint_idx reports where the element is.
int array_insert_sorted(array *arr, void *elem);
int array_insert_sorted_takeover(array *arr, void **inout_elem);
int array_insert_sorted_hint(array *arr, void *elem, uint32 hint_idx);
int array_insert_sorted_hint_idx(array *arr, void *elem, uint32 hint_idx, uint32 *ret_idx);
int array_insert_sorted_hint_takeover(array *arr, void **inout_elem, uint32 hint_idx);
// The index at which elem keeps the order, after any equal elements; ret_found_equal
// tells whether the element before that index equals it.
int array_find_insertion_point_hint(const array *arr, const void *elem, uint32 hint_idx,
                                    uint32 *ret_idx, tbool *ret_found_equal);

// Removing.
int array_delete(array *arr, uint32 idx);
int array_remove(array *arr, uint32 idx, void **ret_elem);
// Hands the element out and moves the last element into its slot.
int array_remove_no_shift(array *arr, uint32 idx, void **ret_elem);
// Hands out the last element; an empty array gives lc_err_not_found without a log line.
int array_pop(array *arr, void **ret_elem);

// Ordering.  The sort is stable.  A custom order leaves ar_sorted clear unless it is the
// array's own compare function.
int array_sort(array *arr);
int array_sort_custom(array *arr, array_elem_compare_func compare_func);

// Searching.  The binary search gives the lowest index of a run of equal elements.  No
// match gives lc_err_not_found, without a log line, and an index of UINT32_MAX.  An
// unsorted array gives lc_err_assertion_failed when sorting constraints are enforced, and
// a linear search otherwise.
int array_binary_search(const array *arr, const void *elem, uint32 *ret_idx);
int array_linear_search(const array *arr, const void *elem, uint32 start_idx, uint32 *ret_idx);
// Binary search when sorted, linear otherwise.
int array_best_search(const array *arr, const void *elem, uint32 *ret_idx);

// Size.  Growth goes by doubling, by at least 10 slots; 0x7FFFFFFF slots or more give
// lc_err_assertion_failed; a preallocated array cannot grow (lc_err_no_buffer_space, no
// log line).  The _min_exact form allocates exactly the number asked.
int array_ensure_size(array *arr, uint32 num_elems);
int array_ensure_size_min_exact(array *arr, uint32 num_elems);

// Walking.
int array_foreach(const array *arr, array_foreach_func func, void *data);
int array_foreach_delete(array *arr, array_foreach_func func, void *data);
