// Arrays of strings, forwarded to `array`.

#include "tstr_array.h"

#include <cstdlib>
#include <cstring>

#include "logging.h"

namespace {

const tstring *tstr_array_slot(const void *elem_ptr)
{
    return *static_cast<const tstring *const *>(elem_ptr);
}

// A string that borrows a caller's text, to search with; it is never freed.
tstring tstr_array_model(const char *str)
{
    tstring model{};
    model.ts_str = const_cast<char *>(str);
    model.ts_length = static_cast<uint32>(strlen(str));
    model.ts_num_chars = model.ts_length;
    model.ts_size = model.ts_length + 1;
    return model;
}

}  // namespace

int tstr_array_compare_func(const void *elem1_ptr, const void *elem2_ptr)
{
    return ts_cmp(tstr_array_slot(elem1_ptr), tstr_array_slot(elem2_ptr));
}

int tstr_array_numeric_compare_func(const void *elem1_ptr, const void *elem2_ptr)
{
    const long long n1 = strtoll(ts_str_maybe_empty(tstr_array_slot(elem1_ptr)), nullptr, 10);
    const long long n2 = strtoll(ts_str_maybe_empty(tstr_array_slot(elem2_ptr)), nullptr, 10);
    return n1 < n2 ? -1 : (n1 > n2 ? 1 : 0);
}

int tstr_array_dup_func(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    tstring *copy = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    err = ts_dup(static_cast<const tstring *>(src_elem), &copy);
    bail_error(err);
    *ret_dest_elem = copy;
bail:
    return err;
}

void tstr_array_free_func(void *elem)
{
    tstring *ts = static_cast<tstring *>(elem);
    ts_free(&ts);
}

// ---------------------------------------------------------------------------------------
// Making.

int tstr_array_options_get_defaults(array_options *ret_options)
{
    int err = 0;
    err = array_options_get_defaults(ret_options);
    bail_error(err);
    ret_options->ao_elem_compare_func = tstr_array_compare_func;
    ret_options->ao_elem_dup_func = tstr_array_dup_func;
    ret_options->ao_elem_free_func = tstr_array_free_func;
bail:
    return err;
}

int tstr_array_new(tstr_array **ret_arr, const array_options *opts)
{
    int err = 0;
    tstr_array *arr = nullptr;
    array_options defaults{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    if (opts == nullptr) {
        err = tstr_array_options_get_defaults(&defaults);
        bail_error(err);
        opts = &defaults;
    }
    arr = static_cast<tstr_array *>(lc_zalloc(sizeof(tstr_array)));
    bail_null(arr);
    err = array_new(&arr->tstr_arr, opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;
bail:
    tstr_array_free(&arr);
    return err;
}

int tstr_array_new_size(tstr_array **ret_arr, uint32 initial_size)
{
    int err = 0;
    array_options opts{};

    err = tstr_array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    err = tstr_array_new(ret_arr, &opts);
    bail_error(err);
bail:
    return err;
}

int tstr_array_new_full(tstr_array **ret_arr, uint32 initial_size,
                        array_elem_compare_func compare_func, array_dup_policy dup_policy,
                        tbool enforce_sorting_constraints)
{
    int err = 0;
    array_options opts{};

    err = tstr_array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    if (compare_func != nullptr) {
        opts.ao_elem_compare_func = compare_func;
    }
    opts.ao_dup_policy = dup_policy;
    opts.ao_enforce_sorting_constraints = enforce_sorting_constraints;
    err = tstr_array_new(ret_arr, &opts);
    bail_error(err);
bail:
    return err;
}

int tstr_array_duplicate(const tstr_array *arr, tstr_array **ret_dup)
{
    int err = 0;
    tstr_array *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    dup = static_cast<tstr_array *>(lc_zalloc(sizeof(tstr_array)));
    bail_null(dup);
    err = array_duplicate(arr->tstr_arr, &dup->tstr_arr);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;
bail:
    tstr_array_free(&dup);
    return err;
}

int tstr_array_free(tstr_array **inout_arr)
{
    int err = 0;
    bail_null(inout_arr);
    if (*inout_arr != nullptr) {
        err = array_free(&(*inout_arr)->tstr_arr);
        free(*inout_arr);
        *inout_arr = nullptr;
        bail_error(err);
    }
bail:
    return err;
}

int tstr_array_empty(tstr_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_empty(arr->tstr_arr);
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

int tstr_array_length(const tstr_array *arr, uint32 *ret_length)
{
    int err = 0;
    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    err = array_length(arr->tstr_arr, ret_length);
    bail_error(err);
bail:
    return err;
}

uint32 tstr_array_length_quick(const tstr_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->tstr_arr) : 0;
}

int tstr_array_get(const tstr_array *arr, uint32 idx, tstring **ret_ts)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    bail_null(arr);
    err = array_get(arr->tstr_arr, idx, &elem);
    bail_error(err);
    *ret_ts = static_cast<tstring *>(elem);
bail:
    return err;
}

tstring *tstr_array_get_quick(const tstr_array *arr, uint32 idx)
{
    return static_cast<tstring *>(array_get_quick(arr->tstr_arr, idx));
}

int tstr_array_get_str(const tstr_array *arr, uint32 idx, const char **ret_str)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(ret_str);
    *ret_str = nullptr;
    err = tstr_array_get(arr, idx, &ts);
    bail_error(err);
    *ret_str = ts_str_maybe(ts);
bail:
    return err;
}

const char *tstr_array_get_str_quick(const tstr_array *arr, uint32 idx)
{
    return ts_str_maybe(tstr_array_get_quick(arr, idx));
}

// ---------------------------------------------------------------------------------------
// Adding.

int tstr_array_append(tstr_array *arr, const tstring *ts)
{
    int err = 0;
    bail_null(arr);
    err = array_append(arr->tstr_arr, const_cast<tstring *>(ts));
    bail_error(err);
bail:
    return err;
}

int tstr_array_append_takeover(tstr_array *arr, tstring **inout_ts)
{
    int err = 0;
    bail_null(arr);
    bail_null(inout_ts);
    err = array_append_takeover(arr->tstr_arr, reinterpret_cast<void **>(inout_ts));
    bail_error(err);
bail:
    return err;
}

int tstr_array_append_str(tstr_array *arr, const char *str)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(arr);
    err = ts_new_str(&ts, str);
    bail_error(err);
    err = tstr_array_append_takeover(arr, &ts);
    bail_error(err);
bail:
    ts_free(&ts);
    return err;
}

int tstr_array_append_str_takeover(tstr_array *arr, char **inout_str)
{
    int err = 0;
    tstring *ts = nullptr;
    int32 len = 0;

    bail_null(arr);
    bail_null(inout_str);
    err = ts_new_str_takeover(&ts, inout_str, -1, -1);
    bail_error(err);
    err = tstr_array_append_takeover(arr, &ts);
    bail_error(err);
bail:
    if (ts != nullptr) {
        // Not stored: the text goes back to the caller.
        if (*inout_str == nullptr) {
            ts_detach(&ts, inout_str, &len);
        }
        ts_free(&ts);
    }
    return err;
}

int tstr_array_append_sprintf(tstr_array *arr, const char *format, ...)
{
    int err = 0;
    tstring *ts = nullptr;
    va_list ap;

    bail_null(arr);
    err = ts_new(&ts);
    bail_error(err);
    va_start(ap, format);
    err = ts_append_vsprintf(ts, format, ap);
    va_end(ap);
    bail_error(err);
    err = tstr_array_append_takeover(arr, &ts);
    bail_error(err);
bail:
    ts_free(&ts);
    return err;
}

int tstr_array_insert_takeover(tstr_array *arr, uint32 idx, tstring **inout_ts)
{
    int err = 0;
    bail_null(arr);
    bail_null(inout_ts);
    err = array_insert_takeover(arr->tstr_arr, idx, reinterpret_cast<void **>(inout_ts));
    bail_error(err);
bail:
    return err;
}

int tstr_array_insert_sorted_takeover(tstr_array *arr, tstring **inout_ts)
{
    int err = 0;
    bail_null(arr);
    bail_null(inout_ts);
    err = array_insert_sorted_takeover(arr->tstr_arr, reinterpret_cast<void **>(inout_ts));
    if (err == lc_err_exists || err == lc_err_no_buffer_space) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int tstr_array_insert_str_sorted(tstr_array *arr, const char *str)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(arr);
    err = ts_new_str(&ts, str);
    bail_error(err);
    err = tstr_array_insert_sorted_takeover(arr, &ts);
    bail_error_quiet(err);
bail:
    ts_free(&ts);
    return err;
}

int tstr_array_set_takeover(tstr_array *arr, uint32 idx, tstring **inout_ts)
{
    int err = 0;
    bail_null(arr);
    bail_null(inout_ts);
    err = array_set_takeover(arr->tstr_arr, idx, reinterpret_cast<void **>(inout_ts));
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Removing.

int tstr_array_delete(tstr_array *arr, uint32 idx)
{
    int err = 0;
    bail_null(arr);
    err = array_delete(arr->tstr_arr, idx);
    bail_error(err);
bail:
    return err;
}

int tstr_array_remove(tstr_array *arr, uint32 idx, tstring **ret_ts)
{
    int err = 0;
    bail_null(arr);
    err = array_remove(arr->tstr_arr, idx, reinterpret_cast<void **>(ret_ts));
    bail_error(err);
bail:
    return err;
}

int tstr_array_remove_no_shift(tstr_array *arr, uint32 idx, tstring **ret_ts)
{
    int err = 0;
    bail_null(arr);
    err = array_remove_no_shift(arr->tstr_arr, idx, reinterpret_cast<void **>(ret_ts));
    bail_error(err);
bail:
    return err;
}

int tstr_array_pop(tstr_array *arr, tstring **ret_ts)
{
    int err = 0;
    bail_null(arr);
    err = array_pop(arr->tstr_arr, reinterpret_cast<void **>(ret_ts));
    bail_error_quiet(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Ordering and searching.

int tstr_array_sort(tstr_array *arr)
{
    int err = 0;
    bail_null(arr);
    err = array_sort(arr->tstr_arr);
    bail_error(err);
bail:
    return err;
}

int tstr_array_sort_numeric(tstr_array *arr)
{
    return tstr_array_sort_custom(arr, tstr_array_numeric_compare_func);
}

int tstr_array_sort_custom(tstr_array *arr, array_elem_compare_func compare_func)
{
    int err = 0;
    bail_null(arr);
    err = array_sort_custom(arr->tstr_arr, compare_func);
    bail_error(err);
bail:
    return err;
}

int tstr_array_linear_search_str(const tstr_array *arr, const char *str, uint32 start_idx,
                                 uint32 *ret_idx)
{
    int err = 0;
    tstring model{};

    bail_null(arr);
    bail_null(str);
    model = tstr_array_model(str);
    err = array_linear_search(arr->tstr_arr, &model, start_idx, ret_idx);
    if (err == lc_err_not_found) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int tstr_array_binary_search_str(const tstr_array *arr, const char *str, uint32 *ret_idx)
{
    int err = 0;
    tstring model{};

    bail_null(arr);
    bail_null(str);
    model = tstr_array_model(str);
    err = array_binary_search(arr->tstr_arr, &model, ret_idx);
    if (err == lc_err_not_found) {
        bail_quiet();
    }
    bail_error(err);
bail:
    return err;
}

int tstr_array_compare_ex(const tstr_array *arr1, const tstr_array *arr2, int32 max_elems1,
                          int32 max_elems2, tbool ignore_case, int *ret_cmp)
{
    int err = 0;
    uint32 n1 = tstr_array_length_quick(arr1);
    uint32 n2 = tstr_array_length_quick(arr2);
    int cmp = 0;

    bail_null(ret_cmp);
    *ret_cmp = 0;
    if (max_elems1 >= 0 && static_cast<uint32>(max_elems1) < n1) {
        n1 = static_cast<uint32>(max_elems1);
    }
    if (max_elems2 >= 0 && static_cast<uint32>(max_elems2) < n2) {
        n2 = static_cast<uint32>(max_elems2);
    }
    for (uint32 i = 0; i < n1 && i < n2; ++i) {
        cmp = ts_cmp_tstr(tstr_array_get_quick(arr1, i), tstr_array_get_quick(arr2, i),
                          ignore_case);
        if (cmp != 0) {
            *ret_cmp = cmp;
            goto bail;
        }
    }
    *ret_cmp = n1 < n2 ? -1 : (n1 > n2 ? 1 : 0);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Patterns.

int tstr_array_wildcard_match(const tstr_array *pattern_parts, const tstr_array *arr,
                              tbool allow_double_star, tbool *ret_match)
{
    return tstr_array_wildcard_match_ex(pattern_parts, arr, 0, 0, allow_double_star, ret_match);
}

int tstr_array_wildcard_match_ex(const tstr_array *pattern_parts, const tstr_array *arr, int start_idx_pattern,
                                 int start_idx_arr, tbool allow_double_star, tbool *ret_match)
{
    int err = 0;
    const uint32 num_pattern = tstr_array_length_quick(pattern_parts);
    const uint32 num_arr = tstr_array_length_quick(arr);
    uint32 rest_spec = 0;
    uint32 rest_arr = 0;
    uint32 i = 0;
    uint32 j = 0;
    const tstring *pattern = nullptr;

    bail_null(ret_match);
    *ret_match = false;
    bail_require(start_idx_pattern >= 0 && static_cast<uint32>(start_idx_pattern) <= num_pattern);
    bail_require(start_idx_arr >= 0 && static_cast<uint32>(start_idx_arr) <= num_arr);
    rest_spec = num_pattern - static_cast<uint32>(start_idx_pattern);
    rest_arr = num_arr - static_cast<uint32>(start_idx_arr);
    if (allow_double_star ? rest_spec > rest_arr : rest_spec != rest_arr) {
        goto bail;
    }
    for (i = static_cast<uint32>(start_idx_pattern), j = static_cast<uint32>(start_idx_arr);
         i < num_pattern; ++i, ++j) {
        pattern = tstr_array_get_quick(pattern_parts, i);
        if (ts_equal(pattern, tstr_array_get_quick(arr, j)) || ts_equal_str(pattern, "*", false)) {
            continue;
        }
        // The first element that does not match: only a double star saves the match, and
        // then stands for all the rest.
        *ret_match = allow_double_star && ts_equal_str(pattern, "**", false);
        goto bail;
    }
    *ret_match = (j == num_arr);
bail:
    return err;
}
