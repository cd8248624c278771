// The dynamic pointer array.

#include "array.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "logging.h"

namespace {

// Requests for this many slots or more are refused.
constexpr uint32 array_slots_limit = 0x7FFFFFFF;
// Growth adds at least this many slots.
constexpr uint32 array_growth_min = 10;
// An array made with at most this many slots has them right behind its record, in the
// one allocation.  A later resize moves them to a block of their own, for good.
constexpr uint32 array_inline_slots_max = 16;

bool array_slots_are_inline(const array *arr)
{
    return !arr->ar_other_owns_self && arr->ar_elems != nullptr &&
           arr->ar_elems == reinterpret_cast<void *const *>(arr + 1);
}

// Gives the slot block num_slots slots, keeping the first ones; new slots are not cleared.
// A block behind the record cannot be reallocated: its slots move out.
void **array_resize_slots(array *arr, uint64 num_slots)
{
    const size_t bytes = static_cast<size_t>(num_slots) * sizeof(void *);
    if (!array_slots_are_inline(arr)) {
        return static_cast<void **>(realloc(arr->ar_elems, bytes));
    }
    auto *moved = static_cast<void **>(malloc(bytes));
    if (moved != nullptr) {
        memcpy(moved, arr->ar_elems,
               static_cast<size_t>(std::min<uint64>(num_slots, arr->ar_slots_allocated)) *
                   sizeof(void *));
    }
    return moved;
}

int array_cmp_elems(const array *arr, const void *elem1, const void *elem2)
{
    return arr->ar_elem_compare_func(&elem1, &elem2);
}

// Gives an element back to its owner: the free function, unless others own the elements.
void array_release_elem(const array *arr, void *elem)
{
    if (elem != nullptr && !arr->ar_other_owns_elems && arr->ar_elem_free_func != nullptr) {
        arr->ar_elem_free_func(elem);
    }
}

// True when the element at idx is in order with its two neighbours.
bool array_in_order_at(const array *arr, uint32 idx)
{
    if (arr->ar_num_elems <= 1) {
        return true;
    }
    if (arr->ar_elem_compare_func == nullptr) {
        return false;
    }
    void *elem = arr->ar_elems[idx];
    if (idx > 0 && array_cmp_elems(arr, arr->ar_elems[idx - 1], elem) > 0) {
        return false;
    }
    if (idx + 1 < arr->ar_num_elems && array_cmp_elems(arr, elem, arr->ar_elems[idx + 1]) > 0) {
        return false;
    }
    return true;
}

// After an element was placed at idx: the array stays sorted only if it fits there.
void array_note_placed(array *arr, uint32 idx)
{
    if (arr->ar_sorted) {
        arr->ar_sorted = array_in_order_at(arr, idx);
    } else if (arr->ar_num_elems <= 1) {
        arr->ar_sorted = true;
    }
}

// The element an insert stores: a copy through the dup function, or the pointer itself.
int array_make_elem(const array *arr, void *elem, void **ret_elem)
{
    int err = 0;
    *ret_elem = nullptr;
    if (arr->ar_elem_dup_func != nullptr) {
        err = arr->ar_elem_dup_func(elem, ret_elem);
        bail_error(err);
    } else {
        *ret_elem = elem;
    }
bail:
    return err;
}

// Moves the caller's element in; the caller's pointer is nulled.
int array_take_elem(const array *arr, void **inout_elem, void **ret_elem)
{
    int err = 0;
    *ret_elem = nullptr;
    if (arr->ar_elem_takeover_func != nullptr) {
        err = arr->ar_elem_takeover_func(inout_elem, ret_elem);
        bail_error(err);
    } else {
        *ret_elem = *inout_elem;
    }
    *inout_elem = nullptr;
bail:
    return err;
}

// Where room was ensured beforehand: puts elem at idx and shifts the rest up.
void array_place_at(array *arr, uint32 idx, void *elem)
{
    if (idx < arr->ar_num_elems) {
        memmove(&arr->ar_elems[idx + 1], &arr->ar_elems[idx],
                (arr->ar_num_elems - idx) * sizeof(void *));
    }
    arr->ar_elems[idx] = elem;
    ++arr->ar_num_elems;
    array_note_placed(arr, idx);
}

// Takes the element at idx out and shifts the rest down.
void *array_take_out_at(array *arr, uint32 idx)
{
    void *elem = arr->ar_elems[idx];
    if (idx + 1 < arr->ar_num_elems) {
        memmove(&arr->ar_elems[idx], &arr->ar_elems[idx + 1],
                (arr->ar_num_elems - idx - 1) * sizeof(void *));
    }
    --arr->ar_num_elems;
    arr->ar_elems[arr->ar_num_elems] = nullptr;
    if (arr->ar_num_elems <= 1) {
        arr->ar_sorted = true;
    }
    return elem;
}

// Room for one more element.  lc_err_no_buffer_space passes up without a log line.
int array_room_for_one(array *arr)
{
    int err = 0;
    err = array_ensure_size(arr, arr->ar_num_elems + 1);
    if (err == lc_err_no_buffer_space) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int array_check_options(const array_options *opts)
{
    int err = 0;
    bail_require(opts->ao_initial_size < array_slots_limit);
    bail_require(opts->ao_dup_policy >= adp_none && opts->ao_dup_policy < adp_last);
bail:
    return err;
}

void array_apply_options(array *arr, const array_options *opts)
{
    arr->ar_initial_size = opts->ao_initial_size;
    arr->ar_dup_policy = opts->ao_dup_policy;
    arr->ar_enforce_sorting_constraints = opts->ao_enforce_sorting_constraints;
    arr->ar_elem_compare_func = opts->ao_elem_compare_func;
    arr->ar_elem_dup_func = opts->ao_elem_dup_func;
    arr->ar_elem_takeover_func = opts->ao_elem_takeover_func;
    arr->ar_elem_free_func = opts->ao_elem_free_func;
    arr->ar_other_owns_elems = (opts->ao_elem_free_func == nullptr);
}

// Shared by the sorted inserts.  With takeover set, elem_or_inout is a void ** whose
// element moves in; otherwise it is the element itself.
int array_insert_sorted_internal(array *arr, void *elem_or_inout, bool takeover, uint32 hint_idx,
                                 uint32 *ret_idx)
{
    int err = 0;
    void *value = nullptr;
    void *stored = nullptr;
    uint32 idx = 0;
    tbool found_equal = false;

    bail_null(arr);
    if (takeover) {
        bail_null(elem_or_inout);
        value = *static_cast<void **>(elem_or_inout);
    } else {
        value = elem_or_inout;
    }
    bail_require(arr->ar_elem_compare_func != nullptr);
    if (!arr->ar_sorted) {
        if (arr->ar_enforce_sorting_constraints) {
            lc_log_basic(LOG_ERR, "Tried to do sorted insert on an unsorted array");
            err = lc_err_assertion_failed;
            goto bail;
        }
        err = array_sort(arr);
        bail_error(err);
    }

    err = array_find_insertion_point_hint(arr, value, hint_idx, &idx, &found_equal);
    bail_error(err);

    if (found_equal) {
        switch (arr->ar_dup_policy) {
        case adp_fail_new:
            err = lc_err_exists;
            bail_quiet();
        case adp_delete_new:
            // Dropped.  A copy was never made; an element handed to the array is released.
            if (takeover) {
                void **inout = static_cast<void **>(elem_or_inout);
                array_release_elem(arr, *inout);
                *inout = nullptr;
            } else if (arr->ar_elem_dup_func == nullptr) {
                array_release_elem(arr, value);
            }
            if (ret_idx != nullptr) {
                *ret_idx = idx - 1;
            }
            goto bail;
        case adp_delete_old:
            if (takeover) {
                err = array_take_elem(arr, static_cast<void **>(elem_or_inout), &stored);
            } else {
                err = array_make_elem(arr, value, &stored);
            }
            bail_error(err);
            array_release_elem(arr, arr->ar_elems[idx - 1]);
            arr->ar_elems[idx - 1] = stored;
            if (ret_idx != nullptr) {
                *ret_idx = idx - 1;
            }
            goto bail;
        case adp_none:
        case adp_add_new:
        case adp_last:
            break;
        }
    }

    err = array_room_for_one(arr);
    bail_error_quiet(err);
    if (takeover) {
        err = array_take_elem(arr, static_cast<void **>(elem_or_inout), &stored);
    } else {
        err = array_make_elem(arr, value, &stored);
    }
    bail_error(err);
    array_place_at(arr, idx, stored);
    if (ret_idx != nullptr) {
        *ret_idx = idx;
    }

bail:
    return err;
}

int array_foreach_internal(array *arr, array_foreach_func func, void *data, bool allow_delete)
{
    int err = 0;
    int ret = 0;
    uint32 idx = 0;

    bail_null(arr);
    bail_null(func);
    while (idx < arr->ar_num_elems) {
        ret = func(arr, idx, arr->ar_elems[idx], data);
        if (ret == 0) {
            ++idx;
        } else if (ret == lc_err_foreach_delete) {
            if (!allow_delete) {
                lc_log_basic(LOG_ERR,
                             "Array foreach callback returned lc_err_foreach_delete to delete "
                             "element #%d, but array_foreach_delete() was not called",
                             static_cast<int>(idx));
                err = lc_err_assertion_failed;
                goto bail;
            }
            array_release_elem(arr, array_take_out_at(arr, idx));
        } else if (ret == lc_err_foreach_halt_ok) {
            break;
        } else if (ret == lc_err_foreach_halt_err) {
            lc_log_basic(LOG_ERR, "Array element %d halted iteration with an error",
                         static_cast<int>(idx));
            err = lc_err_generic_error;
            goto bail;
        } else {
            lc_log_basic(LOG_WARNING, "Got return code %d from foreach function", ret);
            err = lc_err_generic_error;
            ++idx;
        }
    }
bail:
    return err;
}

// Lays an array out in a caller's block: the record first, the slots behind it.
int array_layout_prealloc(const array_options *opts, void *block, uint32 block_size,
                          array **ret_arr)
{
    int err = 0;
    array *arr = nullptr;
    uint64 slots = 0;

    bail_null(block);
    bail_require(reinterpret_cast<uintptr_t>(block) % alignof(array) == 0);
    bail_require(block_size >= sizeof(array));
    err = array_check_options(opts);
    bail_error(err);
    slots = (block_size - sizeof(array)) / sizeof(void *);
    memset(block, 0, block_size);
    arr = static_cast<array *>(block);
    array_apply_options(arr, opts);
    arr->ar_elems = slots > 0 ? reinterpret_cast<void **>(arr + 1) : nullptr;
    arr->ar_slots_allocated = static_cast<uint32>(slots);
    arr->ar_initial_size = static_cast<uint32>(slots);
    arr->ar_other_owns_self = true;
    arr->ar_sorted = true;
    *ret_arr = arr;
bail:
    return err;
}

// Fills an empty array with copies of the elements of another.
int array_copy_elems(const array *src, array *dest)
{
    int err = 0;
    void *copy = nullptr;

    // Without a dup function only elements that nobody here owns can be shared.
    bail_require(src->ar_elem_dup_func != nullptr || src->ar_other_owns_elems);
    err = array_ensure_size_min_exact(dest, src->ar_num_elems);
    bail_error(err);
    for (uint32 i = 0; i < src->ar_num_elems; ++i) {
        if (src->ar_elem_dup_func != nullptr && src->ar_elems[i] != nullptr) {
            err = src->ar_elem_dup_func(src->ar_elems[i], &copy);
            bail_error(err);
        } else {
            copy = src->ar_elems[i];
        }
        dest->ar_elems[i] = copy;
        dest->ar_num_elems = i + 1;
    }
    dest->ar_sorted = src->ar_sorted;
bail:
    return err;
}

}  // namespace

int array_std_compare_func(const void *elem1_ptr, const void *elem2_ptr)
{
    const uintptr_t a = reinterpret_cast<uintptr_t>(*static_cast<void *const *>(elem1_ptr));
    const uintptr_t b = reinterpret_cast<uintptr_t>(*static_cast<void *const *>(elem2_ptr));
    return a < b ? -1 : (a > b ? 1 : 0);
}

int array_std_takeover_func(void **inout_src_elem, void **ret_dest_elem)
{
    int err = 0;
    bail_null(inout_src_elem);
    bail_null(ret_dest_elem);
    *ret_dest_elem = *inout_src_elem;
    *inout_src_elem = nullptr;
bail:
    return err;
}

void array_std_free_func(void *elem)
{
    free(elem);
}

int array_options_get_defaults(array_options *ret_options)
{
    int err = 0;
    bail_null(ret_options);
    ret_options->ao_initial_size = array_default_initial_size;
    ret_options->ao_elem_compare_func = array_std_compare_func;
    ret_options->ao_elem_dup_func = nullptr;
    ret_options->ao_elem_takeover_func = array_std_takeover_func;
    ret_options->ao_elem_free_func = array_std_free_func;
    ret_options->ao_dup_policy = adp_add_new;
    ret_options->ao_enforce_sorting_constraints = true;
bail:
    return err;
}

int array_new(array **ret_arr, const array_options *opts)
{
    int err = 0;
    array *arr = nullptr;
    array_options defaults{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    if (opts == nullptr) {
        err = array_options_get_defaults(&defaults);
        bail_error(err);
        opts = &defaults;
    }
    err = array_check_options(opts);
    bail_error(err);

    if (opts->ao_initial_size <= array_inline_slots_max) {
        arr = static_cast<array *>(
            lc_zalloc(sizeof(array) + opts->ao_initial_size * sizeof(void *)));
        bail_null(arr);
        if (opts->ao_initial_size > 0) {
            arr->ar_elems = reinterpret_cast<void **>(arr + 1);
        }
    } else {
        arr = static_cast<array *>(lc_zalloc(sizeof(array)));
        bail_null(arr);
        arr->ar_elems = static_cast<void **>(lc_zalloc(opts->ao_initial_size * sizeof(void *)));
        bail_null(arr->ar_elems);
    }
    array_apply_options(arr, opts);
    arr->ar_slots_allocated = opts->ao_initial_size;
    arr->ar_sorted = true;
    *ret_arr = arr;
    arr = nullptr;

bail:
    if (arr != nullptr) {
        if (!array_slots_are_inline(arr)) {
            free(arr->ar_elems);
        }
        free(arr);
    }
    return err;
}

int array_new_prealloc(array **ret_arr, const array_options *opts, void *block, uint32 block_size)
{
    int err = 0;
    array_options defaults{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    if (opts == nullptr) {
        err = array_options_get_defaults(&defaults);
        bail_error(err);
        opts = &defaults;
    }
    err = array_layout_prealloc(opts, block, block_size, ret_arr);
    bail_error(err);
bail:
    return err;
}

int array_options_get(const array *arr, array_options *ret_options)
{
    int err = 0;
    bail_null(arr);
    bail_null(ret_options);
    ret_options->ao_initial_size = arr->ar_initial_size;
    ret_options->ao_elem_compare_func = arr->ar_elem_compare_func;
    ret_options->ao_elem_dup_func = arr->ar_elem_dup_func;
    ret_options->ao_elem_takeover_func = arr->ar_elem_takeover_func;
    ret_options->ao_elem_free_func = arr->ar_elem_free_func;
    ret_options->ao_dup_policy = arr->ar_dup_policy;
    ret_options->ao_enforce_sorting_constraints = arr->ar_enforce_sorting_constraints;
bail:
    return err;
}

int array_options_set(array *arr, const array_options *opts)
{
    int err = 0;
    bool new_order = false;

    bail_null(arr);
    bail_null(opts);
    err = array_check_options(opts);
    bail_error(err);
    new_order = (opts->ao_elem_compare_func != arr->ar_elem_compare_func);
    array_apply_options(arr, opts);
    if (arr->ar_other_owns_self) {
        // The block fixes the size.
        arr->ar_initial_size = arr->ar_slots_allocated;
    }
    if (new_order) {
        arr->ar_sorted = (arr->ar_num_elems <= 1);
    }
bail:
    return err;
}

int array_duplicate(const array *arr, array **ret_dup)
{
    int err = 0;
    array *dup = nullptr;
    array_options opts{};

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    err = array_options_get(arr, &opts);
    bail_error(err);
    err = array_new(&dup, &opts);
    bail_error(err);
    err = array_copy_elems(arr, dup);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    array_free(&dup);
    return err;
}

int array_duplicate_prealloc(const array *arr, array **ret_dup, void *block, uint32 block_size)
{
    int err = 0;
    array *dup = nullptr;
    array_options opts{};

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    err = array_options_get(arr, &opts);
    bail_error(err);
    err = array_layout_prealloc(&opts, block, block_size, &dup);
    bail_error(err);
    err = array_copy_elems(arr, dup);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    array_free(&dup);
    return err;
}

int array_free(array **inout_arr)
{
    int err = 0;
    array *arr = nullptr;

    bail_null(inout_arr);
    arr = *inout_arr;
    if (arr == nullptr) {
        goto bail;
    }
    *inout_arr = nullptr;
    for (uint32 i = 0; i < arr->ar_num_elems; ++i) {
        array_release_elem(arr, arr->ar_elems[i]);
    }
    if (!arr->ar_other_owns_self) {
        if (!array_slots_are_inline(arr)) {
            free(arr->ar_elems);
        }
        free(arr);
    } else {
        arr->ar_num_elems = 0;
    }
bail:
    return err;
}

int array_free_elems(array *arr)
{
    int err = 0;
    bail_null(arr);
    for (uint32 i = 0; i < arr->ar_num_elems; ++i) {
        array_release_elem(arr, arr->ar_elems[i]);
        arr->ar_elems[i] = nullptr;
    }
    arr->ar_num_elems = 0;
    arr->ar_sorted = true;
bail:
    return err;
}

int array_empty(array *arr)
{
    int err = 0;
    void **smaller = nullptr;

    err = array_free_elems(arr);
    bail_error(err);
    if (!arr->ar_other_owns_self && arr->ar_slots_allocated > arr->ar_initial_size) {
        if (arr->ar_initial_size == 0) {
            if (!array_slots_are_inline(arr)) {
                free(arr->ar_elems);
            }
            arr->ar_elems = nullptr;
            arr->ar_slots_allocated = 0;
        } else {
            // A failure to shrink keeps the larger block, which is still good.
            smaller = array_resize_slots(arr, arr->ar_initial_size);
            if (smaller != nullptr) {
                arr->ar_elems = smaller;
                arr->ar_slots_allocated = arr->ar_initial_size;
            }
        }
    }
bail:
    return err;
}

int array_length(const array *arr, uint32 *ret_length)
{
    int err = 0;
    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    *ret_length = arr->ar_num_elems;
bail:
    return err;
}

uint32 array_length_quick(const array *arr)
{
    return arr->ar_num_elems;
}

int array_get(const array *arr, uint32 idx, void **ret_elem)
{
    int err = 0;
    bail_null(ret_elem);
    *ret_elem = nullptr;
    bail_null(arr);
    if (idx >= arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    *ret_elem = arr->ar_elems[idx];
bail:
    return err;
}

void *array_get_quick(const array *arr, uint32 idx)
{
    return arr->ar_elems[idx];
}

int array_append(array *arr, void *elem)
{
    int err = 0;
    void *stored = nullptr;

    bail_null(arr);
    err = array_room_for_one(arr);
    bail_error_quiet(err);
    err = array_make_elem(arr, elem, &stored);
    bail_error(err);
    array_place_at(arr, arr->ar_num_elems, stored);
bail:
    return err;
}

int array_append_nulls(array *arr, uint32 count)
{
    int err = 0;

    bail_null(arr);
    bail_require(count < array_slots_limit - arr->ar_num_elems);
    err = array_ensure_size(arr, arr->ar_num_elems + count);
    bail_error_quiet(err);
    // The first null is compared with the element before it, the second with the first;
    // every later one would compare null with null again, as the second did.
    for (uint32 i = 0; i < count && i < 2; ++i) {
        array_place_at(arr, arr->ar_num_elems, nullptr);
    }
    if (count > 2) {
        std::fill(arr->ar_elems + arr->ar_num_elems, arr->ar_elems + arr->ar_num_elems + count - 2,
                  nullptr);
        arr->ar_num_elems += count - 2;
    }
bail:
    return err;
}

int array_append_takeover(array *arr, void **inout_elem)
{
    int err = 0;
    void *stored = nullptr;

    bail_null(arr);
    bail_null(inout_elem);
    err = array_room_for_one(arr);
    bail_error_quiet(err);
    err = array_take_elem(arr, inout_elem, &stored);
    bail_error(err);
    array_place_at(arr, arr->ar_num_elems, stored);
bail:
    return err;
}

int array_append_no_dup(array *arr, void *elem)
{
    int err = 0;
    uint32 idx = 0;

    bail_null(arr);
    err = array_best_search(arr, elem, &idx);
    if (err == 0) {
        err = lc_err_exists;
        bail_quiet();
    }
    if (err != lc_err_not_found) {
        bail_error(err);
    }
    err = array_append(arr, elem);
    bail_error_quiet(err);
bail:
    return err;
}

int array_set(array *arr, uint32 idx, void *elem)
{
    int err = 0;
    void *stored = nullptr;

    bail_null(arr);
    if (idx == arr->ar_num_elems) {
        err = array_append(arr, elem);
        bail_error_quiet(err);
        goto bail;
    }
    if (idx > arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    err = array_make_elem(arr, elem, &stored);
    bail_error(err);
    array_release_elem(arr, arr->ar_elems[idx]);
    arr->ar_elems[idx] = stored;
    array_note_placed(arr, idx);
bail:
    return err;
}

int array_set_takeover(array *arr, uint32 idx, void **inout_elem)
{
    int err = 0;
    void *stored = nullptr;

    bail_null(arr);
    bail_null(inout_elem);
    if (idx == arr->ar_num_elems) {
        err = array_append_takeover(arr, inout_elem);
        bail_error_quiet(err);
        goto bail;
    }
    if (idx > arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    err = array_take_elem(arr, inout_elem, &stored);
    bail_error(err);
    array_release_elem(arr, arr->ar_elems[idx]);
    arr->ar_elems[idx] = stored;
    array_note_placed(arr, idx);
bail:
    return err;
}

int array_insert_takeover(array *arr, uint32 idx, void **inout_elem)
{
    int err = 0;
    void *stored = nullptr;

    bail_null(arr);
    bail_null(inout_elem);
    if (idx > arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    err = array_room_for_one(arr);
    bail_error_quiet(err);
    err = array_take_elem(arr, inout_elem, &stored);
    bail_error(err);
    array_place_at(arr, idx, stored);
bail:
    return err;
}

int array_insert_sorted(array *arr, void *elem)
{
    int err = 0;
    bail_null(arr);
    err = array_insert_sorted_internal(arr, elem, false, arr->ar_num_elems / 2, nullptr);
bail:
    return err;
}

int array_insert_sorted_takeover(array *arr, void **inout_elem)
{
    int err = 0;
    bail_null(arr);
    err = array_insert_sorted_internal(arr, inout_elem, true, arr->ar_num_elems / 2, nullptr);
bail:
    return err;
}

int array_insert_sorted_hint(array *arr, void *elem, uint32 hint_idx)
{
    return array_insert_sorted_internal(arr, elem, false, hint_idx, nullptr);
}

int array_insert_sorted_hint_idx(array *arr, void *elem, uint32 hint_idx, uint32 *ret_idx)
{
    return array_insert_sorted_internal(arr, elem, false, hint_idx, ret_idx);
}

int array_insert_sorted_hint_takeover(array *arr, void **inout_elem, uint32 hint_idx)
{
    return array_insert_sorted_internal(arr, inout_elem, true, hint_idx, nullptr);
}

int array_find_insertion_point_hint(const array *arr, const void *elem, uint32 hint_idx,
                                    uint32 *ret_idx, tbool *ret_found_equal)
{
    int err = 0;
    uint32 lo = 0;
    uint32 hi = 0;
    uint32 mid = 0;

    bail_null(arr);
    bail_null(ret_idx);
    bail_require(arr->ar_elem_compare_func != nullptr);
    hi = arr->ar_num_elems;
    // The hint narrows the range to one side of it.
    if (hint_idx < arr->ar_num_elems) {
        if (array_cmp_elems(arr, arr->ar_elems[hint_idx], elem) <= 0) {
            lo = hint_idx + 1;
        } else {
            hi = hint_idx;
        }
    }
    // The first element greater than elem.
    while (lo < hi) {
        mid = lo + (hi - lo) / 2;
        if (array_cmp_elems(arr, arr->ar_elems[mid], elem) <= 0) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    *ret_idx = lo;
    if (ret_found_equal != nullptr) {
        *ret_found_equal = (lo > 0 && array_cmp_elems(arr, arr->ar_elems[lo - 1], elem) == 0);
    }
bail:
    return err;
}

int array_delete(array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    if (idx >= arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    array_release_elem(arr, array_take_out_at(arr, idx));
bail:
    return err;
}

int array_remove(array *arr, uint32 idx, void **ret_elem)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(arr);
    if (ret_elem != nullptr) {
        *ret_elem = nullptr;
    }
    if (idx >= arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    elem = array_take_out_at(arr, idx);
    if (ret_elem != nullptr) {
        *ret_elem = elem;
    } else {
        array_release_elem(arr, elem);
    }
bail:
    return err;
}

int array_remove_no_shift(array *arr, uint32 idx, void **ret_elem)
{
    int err = 0;
    void *elem = nullptr;
    uint32 last = 0;

    bail_null(arr);
    if (ret_elem != nullptr) {
        *ret_elem = nullptr;
    }
    if (idx >= arr->ar_num_elems) {
        bail_force(lc_err_no_buffer_space);
    }
    last = arr->ar_num_elems - 1;
    elem = arr->ar_elems[idx];
    arr->ar_elems[idx] = arr->ar_elems[last];
    arr->ar_elems[last] = nullptr;
    arr->ar_num_elems = last;
    if (idx < last) {
        array_note_placed(arr, idx);
    } else if (arr->ar_num_elems <= 1) {
        arr->ar_sorted = true;
    }
    if (ret_elem != nullptr) {
        *ret_elem = elem;
    } else {
        array_release_elem(arr, elem);
    }
bail:
    return err;
}

int array_pop(array *arr, void **ret_elem)
{
    int err = 0;

    bail_null(arr);
    bail_null(ret_elem);
    *ret_elem = nullptr;
    if (arr->ar_num_elems == 0) {
        err = lc_err_not_found;
        bail_quiet();
    }
    *ret_elem = array_take_out_at(arr, arr->ar_num_elems - 1);
bail:
    return err;
}

int array_sort(array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_sort_custom(arr, arr->ar_elem_compare_func);
    bail_error(err);
bail:
    return err;
}

int array_sort_custom(array *arr, array_elem_compare_func compare_func)
{
    int err = 0;

    bail_null(arr);
    bail_require(compare_func != nullptr);
    try {
        std::stable_sort(arr->ar_elems, arr->ar_elems + arr->ar_num_elems,
                         [compare_func](const void *a, const void *b) {
                             return compare_func(&a, &b) < 0;
                         });
    } catch (...) {
        bail_force(lc_err_generic_error);
    }
    arr->ar_sorted = (compare_func == arr->ar_elem_compare_func) || arr->ar_num_elems <= 1;
bail:
    return err;
}

int array_binary_search(const array *arr, const void *elem, uint32 *ret_idx)
{
    int err = 0;
    void **found = nullptr;
    uint32 idx = 0;

    bail_null(ret_idx);
    *ret_idx = UINT32_MAX;
    bail_null(arr);
    bail_require(arr->ar_elem_compare_func != nullptr);
    if (!arr->ar_sorted) {
        if (arr->ar_enforce_sorting_constraints) {
            lc_log_basic(LOG_ERR, "Tried to do binary search on an unsorted array");
            err = lc_err_assertion_failed;
            goto bail;
        }
        err = array_linear_search(arr, elem, 0, ret_idx);
        bail_error_quiet(err);
        goto bail;
    }
    if (arr->ar_num_elems > 0) {
        found = static_cast<void **>(bsearch(&elem, arr->ar_elems, arr->ar_num_elems,
                                             sizeof(void *), arr->ar_elem_compare_func));
    }
    if (found == nullptr) {
        err = lc_err_not_found;
        bail_quiet();
    }
    idx = static_cast<uint32>(found - arr->ar_elems);
    while (idx > 0 && array_cmp_elems(arr, arr->ar_elems[idx - 1], elem) == 0) {
        --idx;
    }
    *ret_idx = idx;
bail:
    return err;
}

int array_linear_search(const array *arr, const void *elem, uint32 start_idx, uint32 *ret_idx)
{
    int err = 0;

    bail_null(ret_idx);
    *ret_idx = UINT32_MAX;
    bail_null(arr);
    bail_require(arr->ar_elem_compare_func != nullptr);
    for (uint32 i = start_idx; i < arr->ar_num_elems; ++i) {
        if (array_cmp_elems(arr, arr->ar_elems[i], elem) == 0) {
            *ret_idx = i;
            goto bail;
        }
    }
    err = lc_err_not_found;
bail:
    return err;
}

int array_best_search(const array *arr, const void *elem, uint32 *ret_idx)
{
    int err = 0;
    bail_null(arr);
    if (arr->ar_sorted) {
        err = array_binary_search(arr, elem, ret_idx);
    } else {
        err = array_linear_search(arr, elem, 0, ret_idx);
    }
bail:
    return err;
}

int array_ensure_size(array *arr, uint32 num_elems)
{
    int err = 0;
    uint64 new_size = 0;
    void **grown = nullptr;

    bail_null(arr);
    if (num_elems <= arr->ar_slots_allocated) {
        goto bail;
    }
    bail_require(num_elems < array_slots_limit);
    if (arr->ar_other_owns_self) {
        err = lc_err_no_buffer_space;
        bail_quiet();
    }
    new_size = arr->ar_slots_allocated;
    while (new_size < num_elems) {
        new_size = std::max(new_size + array_growth_min, new_size * 2);
    }
    if (new_size >= array_slots_limit) {
        new_size = array_slots_limit - 1;
    }
    grown = array_resize_slots(arr, new_size);
    bail_null(grown);
    memset(grown + arr->ar_slots_allocated, 0,
           (new_size - arr->ar_slots_allocated) * sizeof(void *));
    arr->ar_elems = grown;
    arr->ar_slots_allocated = static_cast<uint32>(new_size);
bail:
    return err;
}

int array_ensure_size_min_exact(array *arr, uint32 num_elems)
{
    int err = 0;
    void **grown = nullptr;

    bail_null(arr);
    if (num_elems <= arr->ar_slots_allocated) {
        goto bail;
    }
    bail_require(num_elems < array_slots_limit);
    if (arr->ar_other_owns_self) {
        err = lc_err_no_buffer_space;
        bail_quiet();
    }
    grown = array_resize_slots(arr, num_elems);
    bail_null(grown);
    memset(grown + arr->ar_slots_allocated, 0,
           static_cast<size_t>(num_elems - arr->ar_slots_allocated) * sizeof(void *));
    arr->ar_elems = grown;
    arr->ar_slots_allocated = num_elems;
bail:
    return err;
}

int array_foreach(const array *arr, array_foreach_func func, void *data)
{
    // Without the delete permission the walk never changes the array.
    return array_foreach_internal(const_cast<array *>(arr), func, data, false);
}

int array_foreach_delete(array *arr, array_foreach_func func, void *data)
{
    return array_foreach_internal(arr, func, data, true);
}
