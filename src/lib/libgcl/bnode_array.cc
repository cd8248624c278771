// The two arrays of the binding model: the sparse attribute table of one binding and the
// array of bindings, with the lookups by name that every request handler uses.

#include <cstdlib>

#include "bnode.h"
#include "common.h"
#include "logging.h"
#include "tstring.h"

// ---------------------------------------------------------------------------------------
// Element functions.

int bn_attrib_dup_for_array(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    bn_attrib *copy = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    // An empty slot of the table copies as an empty slot.
    if (src_elem == nullptr) {
        goto bail;
    }
    err = bn_attrib_dup(static_cast<const bn_attrib *>(src_elem), &copy);
    bail_error(err);
    *ret_dest_elem = copy;

bail:
    return err;
}

void bn_attrib_free_for_array(void *elem)
{
    bn_attrib *attrib = static_cast<bn_attrib *>(elem);
    bn_attrib_free(&attrib);
}

int bn_binding_compare_names_for_array(const void *elem1_ptr, const void *elem2_ptr)
{
    const bn_binding *binding1 = *static_cast<const bn_binding *const *>(elem1_ptr);
    const bn_binding *binding2 = *static_cast<const bn_binding *const *>(elem2_ptr);

    return ts_cmp(binding1 != nullptr ? binding1->bn_node_name : nullptr,
                  binding2 != nullptr ? binding2->bn_node_name : nullptr);
}

int bn_binding_dup_for_array(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    bn_binding *copy = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    bail_null(src_elem);
    err = bn_binding_dup(static_cast<const bn_binding *>(src_elem), &copy);
    bail_error(err);
    *ret_dest_elem = copy;

bail:
    return err;
}

void bn_binding_free_for_array(void *elem)
{
    bn_binding *binding = static_cast<bn_binding *>(elem);
    bn_binding_free(&binding);
}

// ---------------------------------------------------------------------------------------
// bn_attrib_array.

int bn_attrib_array_options_get_defaults(array_options *ret_options)
{
    int err = 0;

    bail_null(ret_options);
    err = array_options_get_defaults(ret_options);
    bail_error(err);
    ret_options->ao_elem_dup_func = bn_attrib_dup_for_array;
    ret_options->ao_elem_free_func = bn_attrib_free_for_array;

bail:
    return err;
}

int bn_attrib_array_new_full(bn_attrib_array **ret_arr, uint32 initial_size,
                             array_elem_compare_func compare_func, array_dup_policy dup_policy,
                             tbool enforce_sorting_constraints)
{
    int err = 0;
    bn_attrib_array *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = bn_attrib_array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    if (compare_func != nullptr) {
        opts.ao_elem_compare_func = compare_func;
    }
    opts.ao_dup_policy = dup_policy;
    opts.ao_enforce_sorting_constraints = enforce_sorting_constraints;

    arr = static_cast<bn_attrib_array *>(lc_zalloc(sizeof(bn_attrib_array)));
    bail_null(arr);
    err = array_new(&arr->bn_attrib_arr, &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;

bail:
    bn_attrib_array_free(&arr);
    return err;
}

int bn_attrib_array_new_size(bn_attrib_array **ret_arr, uint32 initial_size)
{
    return bn_attrib_array_new_full(ret_arr, initial_size, nullptr, adp_add_new, true);
}

int bn_attrib_array_new(bn_attrib_array **ret_arr)
{
    return bn_attrib_array_new_full(ret_arr, array_default_initial_size, nullptr, adp_add_new,
                                    true);
}

int bn_attrib_array_free(bn_attrib_array **inout_arr)
{
    if (inout_arr == nullptr || *inout_arr == nullptr) {
        return 0;
    }
    array_free(&(*inout_arr)->bn_attrib_arr);
    free(*inout_arr);
    *inout_arr = nullptr;
    return 0;
}

uint32 bn_attrib_array_length_quick(const bn_attrib_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->bn_attrib_arr) : 0;
}

int bn_attrib_array_get(const bn_attrib_array *arr, uint32 idx, bn_attrib **ret_attrib)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(arr);
    err = array_get(arr->bn_attrib_arr, idx, &elem);
    bail_error(err);
    *ret_attrib = static_cast<bn_attrib *>(elem);

bail:
    return err;
}

int bn_attrib_array_duplicate(const bn_attrib_array *arr, bn_attrib_array **ret_dup)
{
    int err = 0;
    bn_attrib_array *copy = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    copy = static_cast<bn_attrib_array *>(lc_zalloc(sizeof(bn_attrib_array)));
    bail_null(copy);
    err = array_duplicate(arr->bn_attrib_arr, &copy->bn_attrib_arr);
    bail_error(err);
    *ret_dup = copy;
    copy = nullptr;

bail:
    bn_attrib_array_free(&copy);
    return err;
}

namespace {

// Fills empty slots until idx is a valid index or the next one to append.
int bn_attrib_array_pad_to(bn_attrib_array *arr, uint32 idx)
{
    int err = 0;

    const uint32 length = array_length_quick(arr->bn_attrib_arr);

    err = array_ensure_size(arr->bn_attrib_arr, idx + 1);
    bail_error(err);
    if (length < idx) {
        err = array_append_nulls(arr->bn_attrib_arr, idx - length);
        bail_error(err);
    }

bail:
    return err;
}

}  // namespace

int bn_attrib_array_set(bn_attrib_array *arr, uint32 idx, const bn_attrib *attrib)
{
    int err = 0;

    bail_null(arr);
    err = bn_attrib_array_pad_to(arr, idx);
    bail_error(err);
    // The array's dup function makes the copy.
    err = array_set(arr->bn_attrib_arr, idx, const_cast<bn_attrib *>(attrib));
    bail_error(err);

bail:
    return err;
}

int bn_attrib_array_set_takeover(bn_attrib_array *arr, uint32 idx, bn_attrib **inout_attrib)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    bail_null(inout_attrib);
    attrib = *inout_attrib;
    *inout_attrib = nullptr;
    bail_null(arr);
    err = bn_attrib_array_pad_to(arr, idx);
    bail_error(err);
    err = array_set_takeover(arr->bn_attrib_arr, idx, reinterpret_cast<void **>(&attrib));
    bail_error(err);

bail:
    bn_attrib_free(&attrib);
    return err;
}

// ---------------------------------------------------------------------------------------
// bn_binding_array.

int bn_binding_array_options_get_defaults(array_options *ret_options)
{
    int err = 0;

    bail_null(ret_options);
    err = array_options_get_defaults(ret_options);
    bail_error(err);
    ret_options->ao_elem_compare_func = bn_binding_compare_names_for_array;
    ret_options->ao_elem_dup_func = bn_binding_dup_for_array;
    ret_options->ao_elem_free_func = bn_binding_free_for_array;

bail:
    return err;
}

int bn_binding_array_new_full(bn_binding_array **ret_arr, uint32 initial_size,
                              array_elem_compare_func compare_func, array_dup_policy dup_policy,
                              tbool enforce_sorting_constraints)
{
    int err = 0;
    bn_binding_array *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = bn_binding_array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_initial_size = initial_size;
    if (compare_func != nullptr) {
        opts.ao_elem_compare_func = compare_func;
    }
    opts.ao_dup_policy = dup_policy;
    opts.ao_enforce_sorting_constraints = enforce_sorting_constraints;

    arr = static_cast<bn_binding_array *>(lc_zalloc(sizeof(bn_binding_array)));
    bail_null(arr);
    err = array_new(&arr->bn_binding_arr, &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;

bail:
    bn_binding_array_free(&arr);
    return err;
}

int bn_binding_array_new_size(bn_binding_array **ret_arr, uint32 initial_size)
{
    return bn_binding_array_new_full(ret_arr, initial_size, nullptr, adp_add_new, true);
}

int bn_binding_array_new(bn_binding_array **ret_arr)
{
    return bn_binding_array_new_full(ret_arr, array_default_initial_size, nullptr, adp_add_new,
                                     true);
}

int bn_binding_array_free(bn_binding_array **inout_arr)
{
    if (inout_arr == nullptr || *inout_arr == nullptr) {
        return 0;
    }
    array_free(&(*inout_arr)->bn_binding_arr);
    free(*inout_arr);
    *inout_arr = nullptr;
    return 0;
}

int bn_binding_array_empty(bn_binding_array *arr)
{
    int err = 0;

    bail_null(arr);
    err = array_empty(arr->bn_binding_arr);
    bail_error(err);

bail:
    return err;
}

uint32 bn_binding_array_length_quick(const bn_binding_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->bn_binding_arr) : 0;
}

int bn_binding_array_length(const bn_binding_array *arr, uint32 *ret_length)
{
    int err = 0;

    bail_null(ret_length);
    *ret_length = 0;
    bail_null(arr);
    err = array_length(arr->bn_binding_arr, ret_length);
    bail_error(err);

bail:
    return err;
}

int bn_binding_array_get(const bn_binding_array *arr, uint32 idx, bn_binding **ret_binding)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(arr);
    err = array_get(arr->bn_binding_arr, idx, &elem);
    bail_error(err);
    *ret_binding = static_cast<bn_binding *>(elem);

bail:
    return err;
}

bn_binding *bn_binding_array_get_quick(const bn_binding_array *arr, uint32 idx)
{
    return static_cast<bn_binding *>(array_get_quick(arr->bn_binding_arr, idx));
}

int bn_binding_array_append(bn_binding_array *arr, const bn_binding *binding)
{
    int err = 0;

    bail_null(arr);
    bail_null(binding);
    // The array's dup function makes the copy.
    err = array_append(arr->bn_binding_arr, const_cast<bn_binding *>(binding));
    bail_error(err);

bail:
    return err;
}

int bn_binding_array_append_takeover(bn_binding_array *arr, bn_binding **inout_binding)
{
    int err = 0;

    bail_null(arr);
    bail_null(inout_binding);
    err = array_append_takeover(arr->bn_binding_arr, reinterpret_cast<void **>(inout_binding));
    bail_error(err);

bail:
    return err;
}

int bn_binding_array_remove(bn_binding_array *arr, uint32 idx, bn_binding **ret_binding)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(arr);
    err = array_remove(arr->bn_binding_arr, idx, &elem);
    bail_error(err);
    *ret_binding = static_cast<bn_binding *>(elem);

bail:
    return err;
}

int bn_binding_array_remove_no_shift(bn_binding_array *arr, uint32 idx, bn_binding **ret_binding)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(arr);
    err = array_remove_no_shift(arr->bn_binding_arr, idx, &elem);
    bail_error(err);
    *ret_binding = static_cast<bn_binding *>(elem);

bail:
    return err;
}

int bn_binding_array_sort(bn_binding_array *arr)
{
    int err = 0;

    bail_null(arr);
    err = array_sort(arr->bn_binding_arr);
    bail_error(err);

bail:
    return err;
}

int bn_binding_array_best_search(const bn_binding_array *arr, const bn_binding *binding,
                                 uint32 *ret_idx)
{
    int err = 0;

    bail_null(arr);
    bail_null(ret_idx);
    // Not found is the caller's business: passed up without a log line.
    err = array_best_search(arr->bn_binding_arr, binding, ret_idx);
    if (err == lc_err_not_found) {
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

namespace {

int bn_binding_array_foreach_shim(const array *arr, uint32 idx, void *elem, void *data)
{
    int err = 0;
    const bn_binding_array_foreach_shim_args *args =
        static_cast<const bn_binding_array_foreach_shim_args *>(data);

    bail_null(args);
    bail_null(args->bbfs_arr);
    bail_null(args->bbfs_func);
    // Only the walk over the array it was made for may come through here.
    bail_require(arr == args->bbfs_arr->bn_binding_arr);
    // The callback's result, the foreach codes included, goes back unchanged.
    err = args->bbfs_func(args->bbfs_arr, idx, static_cast<bn_binding *>(elem), args->bbfs_data);

bail:
    return err;
}

}  // namespace

int bn_binding_array_foreach(const bn_binding_array *arr, bn_binding_array_foreach_func foreach_func,
                             void *foreach_data)
{
    int err = 0;
    bn_binding_array_foreach_shim_args args{};

    bail_null(arr);
    bail_null(foreach_func);
    args.bbfs_arr = arr;
    args.bbfs_func = foreach_func;
    args.bbfs_data = foreach_data;
    err = array_foreach(arr->bn_binding_arr, bn_binding_array_foreach_shim, &args);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Lookups by name.

int bn_binding_array_get_index_by_name(const bn_binding_array *arr, const char *name,
                                       int32 *ret_idx)
{
    int err = 0;
    bn_binding *model = nullptr;
    uint32 idx = 0;

    bail_null(ret_idx);
    *ret_idx = -1;
    bail_null(arr);
    bail_null(name);
    // A binding that holds only the name serves as the search key.
    err = bn_binding_new_named(&model, name);
    bail_error(err);
    err = bn_binding_array_best_search(arr, model, &idx);
    if (err == lc_err_not_found) {
        err = 0;
        goto bail;
    }
    bail_error(err);
    *ret_idx = static_cast<int32>(idx);

bail:
    bn_binding_free(&model);
    return err;
}

int bn_binding_array_get_binding_by_name(const bn_binding_array *arr, const char *name,
                                         bn_binding **ret_binding)
{
    int err = 0;
    int32 idx = -1;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    err = bn_binding_array_get_index_by_name(arr, name, &idx);
    bail_error(err);
    if (idx >= 0) {
        *ret_binding = bn_binding_array_get_quick(arr, static_cast<uint32>(idx));
    }

bail:
    return err;
}

int bn_binding_array_get_binding_by_name_rel(const bn_binding_array *arr, const char *parent_name,
                                             const char *relative_name, bn_binding **ret_binding)
{
    int err = 0;
    char *name = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(parent_name);
    bail_null(relative_name);
    name = smprintf("%s/%s", parent_name, relative_name);
    bail_null(name);
    err = bn_binding_array_get_binding_by_name(arr, name, ret_binding);
    bail_error(err);

bail:
    free(name);
    return err;
}

int bn_binding_array_detach_binding_by_name(bn_binding_array *arr, const char *name,
                                            bn_binding **ret_binding)
{
    int err = 0;
    int32 idx = -1;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    err = bn_binding_array_get_index_by_name(arr, name, &idx);
    bail_error(err);
    if (idx >= 0) {
        err = bn_binding_array_remove(arr, static_cast<uint32>(idx), ret_binding);
        bail_error(err);
    }

bail:
    return err;
}

int bn_binding_array_get_value_tstr_by_name(const bn_binding_array *arr, const char *name,
                                            bn_type *ret_type, tstring **ret_value)
{
    int err = 0;
    bn_binding *binding = nullptr;
    const bn_attrib *attrib = nullptr;
    uint32 flagged_type = 0;
    char *str_value = nullptr;

    if (ret_type != nullptr) {
        *ret_type = bt_NONE;
    }
    bail_null(ret_value);
    *ret_value = nullptr;
    err = bn_binding_array_get_binding_by_name(arr, name, &binding);
    bail_error(err);
    if (binding == nullptr) {
        goto bail;
    }
    err = bn_binding_get_attrib(binding, ba_value, &attrib);
    bail_error(err);
    if (attrib == nullptr) {
        goto bail;
    }
    err = bn_attrib_get_str(attrib, nullptr, bt_NONE, &flagged_type, &str_value);
    bail_error(err);
    if (str_value != nullptr) {
        err = ts_new_str_takeover(ret_value, &str_value, -1, -1);
        bail_error(err);
    }
    if (ret_type != nullptr) {
        *ret_type = static_cast<bn_type>(flagged_type & bn_type_mask);
    }

bail:
    free(str_value);
    return err;
}

int bn_binding_array_get_value_tstr_by_name_rel(const bn_binding_array *arr,
                                                const char *parent_name,
                                                const char *relative_name, bn_type *ret_type,
                                                tstring **ret_value)
{
    int err = 0;
    char *name = nullptr;

    if (ret_type != nullptr) {
        *ret_type = bt_NONE;
    }
    bail_null(ret_value);
    *ret_value = nullptr;
    bail_null(parent_name);
    bail_null(relative_name);
    name = smprintf("%s/%s", parent_name, relative_name);
    bail_null(name);
    err = bn_binding_array_get_value_tstr_by_name(arr, name, ret_type, ret_value);
    bail_error(err);

bail:
    free(name);
    return err;
}
