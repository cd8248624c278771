// Typed arrays over `array`.

#include "typed_arrays.h"

#include <cstdint>
#include <cstdlib>

#include "logging.h"

namespace {

void *uint32_to_slot(uint32 value)
{
    return reinterpret_cast<void *>(static_cast<uintptr_t>(value));
}

uint32 uint32_from_slot(const void *slot_value)
{
    return static_cast<uint32>(reinterpret_cast<uintptr_t>(slot_value));
}

int tstr_array_array_compare_func(const void *elem1_ptr, const void *elem2_ptr)
{
    int cmp = 0;
    tstr_array_compare_ex(*static_cast<const tstr_array *const *>(elem1_ptr),
                          *static_cast<const tstr_array *const *>(elem2_ptr), -1, -1, false,
                          &cmp);
    return cmp;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// uint32_array

int uint32_array_compare_func(const void *elem1_ptr, const void *elem2_ptr)
{
    const uint32 v1 = uint32_from_slot(*static_cast<void *const *>(elem1_ptr));
    const uint32 v2 = uint32_from_slot(*static_cast<void *const *>(elem2_ptr));
    return v1 < v2 ? -1 : (v1 > v2 ? 1 : 0);
}

int uint32_array_options_get_defaults(array_options *ret_options)
{
    int err = 0;
    err = array_options_get_defaults(ret_options);
    bail_error(err);
    // Values live in the slots: nothing to copy, take over or free.
    ret_options->ao_elem_compare_func = uint32_array_compare_func;
    ret_options->ao_elem_dup_func = nullptr;
    ret_options->ao_elem_takeover_func = nullptr;
    ret_options->ao_elem_free_func = nullptr;
bail:
    return err;
}

int uint32_array_new_full(uint32_array **ret_arr, uint32 initial_size, array_dup_policy dup_policy,
                          tbool enforce_sorting_constraints)
{
    int err = 0;
    uint32_array *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = uint32_array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    opts.ao_dup_policy = dup_policy;
    opts.ao_enforce_sorting_constraints = enforce_sorting_constraints;
    arr = static_cast<uint32_array *>(calloc(1, sizeof(uint32_array)));
    bail_null(arr);
    err = array_new(&arr->uint32_arr, &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;
bail:
    uint32_array_free(&arr);
    return err;
}

int uint32_array_new(uint32_array **ret_arr)
{
    return uint32_array_new_full(ret_arr, array_default_initial_size, adp_add_new, true);
}

int uint32_array_new_size(uint32_array **ret_arr, uint32 initial_size)
{
    return uint32_array_new_full(ret_arr, initial_size, adp_add_new, true);
}

int uint32_array_duplicate(const uint32_array *arr, uint32_array **ret_dup)
{
    int err = 0;
    uint32_array *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    dup = static_cast<uint32_array *>(calloc(1, sizeof(uint32_array)));
    bail_null(dup);
    err = array_duplicate(arr->uint32_arr, &dup->uint32_arr);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    uint32_array_free(&dup);
    return err;
}

int uint32_array_free(uint32_array **inout_arr)
{
    int err = 0;
    bail_null(inout_arr);
    if (*inout_arr != nullptr) {
        err = array_free(&(*inout_arr)->uint32_arr);
        free(*inout_arr);
        *inout_arr = nullptr;
        bail_error(err);
    }
bail:
    return err;
}

int uint32_array_empty(uint32_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_empty(arr->uint32_arr);
    bail_error(err);
bail:
    return err;
}

int uint32_array_length(const uint32_array *arr, uint32 *ret_length)
{
    int err = 0;
    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    err = array_length(arr->uint32_arr, ret_length);
    bail_error(err);
bail:
    return err;
}

uint32 uint32_array_length_quick(const uint32_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->uint32_arr) : 0;
}

int uint32_array_get(const uint32_array *arr, uint32 idx, uint32 *ret_value)
{
    int err = 0;
    void *slot = nullptr;

    bail_null(ret_value);
    *ret_value = 0;
    bail_null(arr);
    err = array_get(arr->uint32_arr, idx, &slot);
    bail_error(err);
    *ret_value = uint32_from_slot(slot);
bail:
    return err;
}

uint32 uint32_array_get_quick(const uint32_array *arr, uint32 idx)
{
    return uint32_from_slot(array_get_quick(arr->uint32_arr, idx));
}

int uint32_array_append(uint32_array *arr, uint32 value)
{
    int err = 0;
    bail_null(arr);
    err = array_append(arr->uint32_arr, uint32_to_slot(value));
    bail_error(err);
bail:
    return err;
}

int uint32_array_set(uint32_array *arr, uint32 idx, uint32 value)
{
    int err = 0;
    bail_null(arr);
    err = array_set(arr->uint32_arr, idx, uint32_to_slot(value));
    bail_error(err);
bail:
    return err;
}

int uint32_array_insert(uint32_array *arr, uint32 idx, uint32 value)
{
    int err = 0;
    void *slot = uint32_to_slot(value);

    bail_null(arr);
    err = array_insert_takeover(arr->uint32_arr, idx, &slot);
    bail_error(err);
bail:
    return err;
}

int uint32_array_insert_sorted(uint32_array *arr, uint32 value)
{
    int err = 0;
    bail_null(arr);
    err = array_insert_sorted(arr->uint32_arr, uint32_to_slot(value));
    if (err == lc_err_exists || err == lc_err_no_buffer_space) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int uint32_array_delete(uint32_array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    err = array_delete(arr->uint32_arr, idx);
    bail_error(err);
bail:
    return err;
}

int uint32_array_remove(uint32_array *arr, uint32 idx, uint32 *ret_value)
{
    int err = 0;
    void *slot = nullptr;

    bail_null(arr);
    bail_null(ret_value);
    *ret_value = 0;
    err = array_remove(arr->uint32_arr, idx, &slot);
    bail_error(err);
    *ret_value = uint32_from_slot(slot);
bail:
    return err;
}

int uint32_array_pop(uint32_array *arr, uint32 *ret_value)
{
    int err = 0;
    void *slot = nullptr;

    bail_null(arr);
    bail_null(ret_value);
    *ret_value = 0;
    err = array_pop(arr->uint32_arr, &slot);
    bail_error_quiet(err);
    *ret_value = uint32_from_slot(slot);
bail:
    return err;
}

int uint32_array_sort(uint32_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_sort(arr->uint32_arr);
    bail_error(err);
bail:
    return err;
}

int uint32_array_linear_search(const uint32_array *arr, uint32 value, uint32 start_idx,
                               uint32 *ret_idx)
{
    int err = 0;
    bail_null(arr);
    err = array_linear_search(arr->uint32_arr, uint32_to_slot(value), start_idx, ret_idx);
    if (err == lc_err_not_found) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int uint32_array_binary_search(const uint32_array *arr, uint32 value, uint32 *ret_idx)
{
    int err = 0;
    bail_null(arr);
    err = array_binary_search(arr->uint32_arr, uint32_to_slot(value), ret_idx);
    if (err == lc_err_not_found) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// tstr_array_array

int tstr_array_array_dup_func(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    tstr_array *copy = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    if (src_elem == nullptr) {
        goto bail;
    }
    err = tstr_array_duplicate(static_cast<const tstr_array *>(src_elem), &copy);
    bail_error(err);
    *ret_dest_elem = copy;
bail:
    return err;
}

void tstr_array_array_free_func(void *elem)
{
    tstr_array *arr = static_cast<tstr_array *>(elem);
    tstr_array_free(&arr);
}

int tstr_array_array_new(tstr_array_array **ret_arr)
{
    int err = 0;
    tstr_array_array *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_compare_func = tstr_array_array_compare_func;
    opts.ao_elem_dup_func = tstr_array_array_dup_func;
    opts.ao_elem_free_func = tstr_array_array_free_func;
    arr = static_cast<tstr_array_array *>(calloc(1, sizeof(tstr_array_array)));
    bail_null(arr);
    err = array_new(&arr->tstr_array_arr, &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;
bail:
    tstr_array_array_free(&arr);
    return err;
}

int tstr_array_array_free(tstr_array_array **inout_arr)
{
    int err = 0;
    bail_null(inout_arr);
    if (*inout_arr != nullptr) {
        err = array_free(&(*inout_arr)->tstr_array_arr);
        free(*inout_arr);
        *inout_arr = nullptr;
        bail_error(err);
    }
bail:
    return err;
}

int tstr_array_array_duplicate(const tstr_array_array *arr, tstr_array_array **ret_dup)
{
    int err = 0;
    tstr_array_array *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    dup = static_cast<tstr_array_array *>(calloc(1, sizeof(tstr_array_array)));
    bail_null(dup);
    err = array_duplicate(arr->tstr_array_arr, &dup->tstr_array_arr);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    tstr_array_array_free(&dup);
    return err;
}

uint32 tstr_array_array_length_quick(const tstr_array_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->tstr_array_arr) : 0;
}

tstr_array *tstr_array_array_get_quick(const tstr_array_array *arr, uint32 idx)
{
    return static_cast<tstr_array *>(array_get_quick(arr->tstr_array_arr, idx));
}

int tstr_array_array_get(const tstr_array_array *arr, uint32 idx, tstr_array **ret_elem)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_elem);
    *ret_elem = nullptr;
    bail_null(arr);
    err = array_get(arr->tstr_array_arr, idx, &elem);
    bail_error(err);
    *ret_elem = static_cast<tstr_array *>(elem);
bail:
    return err;
}

int tstr_array_array_append(tstr_array_array *arr, const tstr_array *elem)
{
    int err = 0;
    bail_null(arr);
    err = array_append(arr->tstr_array_arr, const_cast<tstr_array *>(elem));
    bail_error(err);
bail:
    return err;
}

int tstr_array_array_append_takeover(tstr_array_array *arr, tstr_array **inout_elem)
{
    int err = 0;
    bail_null(arr);
    bail_null(inout_elem);
    err = array_append_takeover(arr->tstr_array_arr, reinterpret_cast<void **>(inout_elem));
    bail_error(err);
bail:
    return err;
}

int tstr_array_array_delete(tstr_array_array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    err = array_delete(arr->tstr_array_arr, idx);
    bail_error(err);
bail:
    return err;
}
