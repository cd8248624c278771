// The loop-neutral set of wanted descriptors and timers.

#include "fdintrcb.h"

#include <climits>
#include <cstdlib>

#include "logging.h"

namespace {

// Whether the loop would have to hear of a change from `prev` to `cur`: the fields that
// steer what it watches and whom it calls.
tbool fdic_event_same(const fdic_event *cur, const fdic_event *prev)
{
    if (cur->fee_active != prev->fee_active || cur->fee_uses_fd != prev->fee_uses_fd ||
        cur->fee_uses_timeout != prev->fee_uses_timeout) {
        return false;
    }
    if (cur->fee_uses_fd &&
        (cur->fee_fd != prev->fee_fd || cur->fee_fd_on_readable != prev->fee_fd_on_readable ||
         cur->fee_fd_on_writable != prev->fee_fd_on_writable ||
         cur->fee_fd_readable_callback_func != prev->fee_fd_readable_callback_func ||
         cur->fee_fd_readable_callback_arg != prev->fee_fd_readable_callback_arg ||
         cur->fee_fd_writable_callback_func != prev->fee_fd_writable_callback_func ||
         cur->fee_fd_writable_callback_arg != prev->fee_fd_writable_callback_arg)) {
        return false;
    }
    if (cur->fee_uses_timeout &&
        (cur->fee_timeout_ms != prev->fee_timeout_ms ||
         cur->fee_timeout_callback_func != prev->fee_timeout_callback_func ||
         cur->fee_timeout_callback_arg != prev->fee_timeout_callback_arg)) {
        return false;
    }
    return true;
}

// An event as the loop may be given it.
int fdic_event_check(const fdic_event *event)
{
    int err = 0;

    if (event->fee_event_id == 0) {
        lc_log_basic(LOG_ERR, "Invalid event for fd %d timeout %ld: 0 id", event->fee_fd,
                     static_cast<long>(event->fee_timeout_ms));
        err = lc_err_assertion_failed;
        goto bail;
    }
    // A gone event may keep whatever it had.
    if (!event->fee_active) {
        goto bail;
    }
    bail_require(event->fee_uses_fd || event->fee_uses_timeout);
    if (event->fee_uses_fd) {
        bail_require(event->fee_fd >= 0);
    } else {
        bail_require(event->fee_timeout_ms >= 0);
    }

bail:
    return err;
}

// Gives out the next event id.
int fdic_next_id(fdic_handle *fich, int32 *ret_event_id)
{
    int err = 0;

    *ret_event_id = -1;
    if (fich->fh_next_event_id == 0 || fich->fh_next_event_id > INT32_MAX) {
        // Ids are never given twice: a handle that ran out of them stays out.
        bail_force(lc_err_limit_exceeded);
    }
    *ret_event_id = static_cast<int32>(fich->fh_next_event_id);
    ++fich->fh_next_event_id;

bail:
    return err;
}

// Adds a new event to the wanted set and tells the loop.  If the loop can't take it, it is
// taken back out, so that the caller, who gets no id, is left with nothing to delete.
int fdic_event_add_internal(fdic_handle *fich, fdic_event *event, int32 *ret_event_id)
{
    int err = 0;
    int32 event_id = -1;
    tbool added = false;
    uint32 idx = 0;

    err = fdic_next_id(fich, &event_id);
    bail_error(err);
    event->fee_fich = fich;
    event->fee_event_id = event_id;
    err = fdic_event_array_insert_sorted(fich->fh_registrations, event);
    bail_error(err);
    added = true;
    err = fdic_events_update(fich);
    bail_error(err);
    if (ret_event_id != nullptr) {
        *ret_event_id = event_id;
    }
    added = false;

bail:
    if (added) {
        if (fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx) == 0) {
            fdic_event_array_get_quick(fich->fh_registrations, idx)->fee_active = false;
            complain_error(fdic_events_update(fich));
            if (fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx) == 0) {
                complain_error(fdic_event_array_delete(fich->fh_registrations, idx));
            }
        }
    }
    return err;
}

// Takes an event out of the wanted set: the loop is told once that it is gone, then the
// handle forgets it.  `want_fd` tells which kind the caller means.
int fdic_event_delete_internal(fdic_handle *fich, int32 event_id, tbool want_fd)
{
    int err = 0;
    int update_err = 0;
    uint32 idx = 0;
    fdic_event *event = nullptr;

    bail_null(fich);
    err = fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx);
    if (err == lc_err_not_found) {
        lc_log_basic(LOG_ERR, "No %s event with id %d to delete", want_fd ? "descriptor" : "timer",
                     event_id);
    }
    bail_error(err);
    event = fdic_event_array_get_quick(fich->fh_registrations, idx);
    bail_require(want_fd ? event->fee_uses_fd : (event->fee_uses_timeout && !event->fee_uses_fd));

    event->fee_active = false;
    event = nullptr;
    // The event leaves the wanted set whatever the loop says; should the loop have missed
    // it, the next update tells it again from what it was last told.
    update_err = fdic_events_update(fich);
    err = fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx);
    if (err == 0) {
        err = fdic_event_array_delete(fich->fh_registrations, idx);
        bail_error(err);
    } else if (err == lc_err_not_found) {
        // A callback of the loop deleted it meanwhile.
        err = 0;
    }
    bail_error(err);
    err = update_err;
    bail_error(err);

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// fdic_event_array

int fdic_event_dup_for_array(const void *src_elem, void **ret_dest_elem)
{
    int err = 0;
    fdic_event *copy = nullptr;

    bail_null(ret_dest_elem);
    *ret_dest_elem = nullptr;
    bail_null(src_elem);
    copy = static_cast<fdic_event *>(malloc(sizeof(fdic_event)));
    bail_null(copy);
    *copy = *static_cast<const fdic_event *>(src_elem);
    *ret_dest_elem = copy;

bail:
    return err;
}

int fdic_event_compare_for_array(const void *elem1_ptr, const void *elem2_ptr)
{
    const fdic_event *e1 = *static_cast<const fdic_event *const *>(elem1_ptr);
    const fdic_event *e2 = *static_cast<const fdic_event *const *>(elem2_ptr);
    return e1->fee_event_id < e2->fee_event_id ? -1
                                               : (e1->fee_event_id > e2->fee_event_id ? 1 : 0);
}

int fdic_event_array_options_get_defaults(array_options *ret_options)
{
    int err = 0;

    err = array_options_get_defaults(ret_options);
    bail_error(err);
    ret_options->ao_elem_compare_func = fdic_event_compare_for_array;
    ret_options->ao_elem_dup_func = fdic_event_dup_for_array;
    ret_options->ao_elem_takeover_func = array_std_takeover_func;
    ret_options->ao_elem_free_func = array_std_free_func;
    ret_options->ao_dup_policy = adp_fail_new;
    ret_options->ao_enforce_sorting_constraints = true;

bail:
    return err;
}

int fdic_event_array_new(fdic_event_array **ret_arr)
{
    int err = 0;
    fdic_event_array *arr = nullptr;
    array_options opts{};

    bail_null(ret_arr);
    *ret_arr = nullptr;
    err = fdic_event_array_options_get_defaults(&opts);
    bail_error(err);
    arr = static_cast<fdic_event_array *>(calloc(1, sizeof(fdic_event_array)));
    bail_null(arr);
    err = array_new(&arr->fdic_event_arr, &opts);
    bail_error(err);
    *ret_arr = arr;
    arr = nullptr;

bail:
    fdic_event_array_free(&arr);
    return err;
}

int fdic_event_array_duplicate(const fdic_event_array *arr, fdic_event_array **ret_dup)
{
    int err = 0;
    fdic_event_array *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    bail_null(arr);
    dup = static_cast<fdic_event_array *>(calloc(1, sizeof(fdic_event_array)));
    bail_null(dup);
    err = array_duplicate(arr->fdic_event_arr, &dup->fdic_event_arr);
    bail_error(err);
    *ret_dup = dup;
    dup = nullptr;

bail:
    fdic_event_array_free(&dup);
    return err;
}

int fdic_event_array_free(fdic_event_array **inout_arr)
{
    int err = 0;

    bail_null(inout_arr);
    if (*inout_arr != nullptr) {
        err = array_free(&(*inout_arr)->fdic_event_arr);
        free(*inout_arr);
        *inout_arr = nullptr;
        bail_error(err);
    }

bail:
    return err;
}

int fdic_event_array_empty(fdic_event_array *arr)
{
    int err = 0;

    bail_null(arr);
    err = array_empty(arr->fdic_event_arr);
    bail_error(err);

bail:
    return err;
}

int fdic_event_array_length(const fdic_event_array *arr, uint32 *ret_length)
{
    int err = 0;

    bail_null(ret_length);
    *ret_length = fdic_event_array_length_quick(arr);

bail:
    return err;
}

uint32 fdic_event_array_length_quick(const fdic_event_array *arr)
{
    return arr != nullptr ? array_length_quick(arr->fdic_event_arr) : 0;
}

int fdic_event_array_get(const fdic_event_array *arr, uint32 idx, const fdic_event **ret_event)
{
    int err = 0;
    void *elem = nullptr;

    bail_null(ret_event);
    *ret_event = nullptr;
    bail_null(arr);
    err = array_get(arr->fdic_event_arr, idx, &elem);
    bail_error(err);
    *ret_event = static_cast<const fdic_event *>(elem);

bail:
    return err;
}

fdic_event *fdic_event_array_get_quick(const fdic_event_array *arr, uint32 idx)
{
    return static_cast<fdic_event *>(array_get_quick(arr->fdic_event_arr, idx));
}

int fdic_event_array_append(fdic_event_array *arr, const fdic_event *event)
{
    int err = 0;

    bail_null(arr);
    bail_null(event);
    err = array_append(arr->fdic_event_arr, const_cast<fdic_event *>(event));
    bail_error(err);

bail:
    return err;
}

int fdic_event_array_insert_sorted(fdic_event_array *arr, const fdic_event *event)
{
    int err = 0;

    bail_null(arr);
    bail_null(event);
    err = array_insert_sorted(arr->fdic_event_arr, const_cast<fdic_event *>(event));
    if (err == lc_err_exists) {
        bail_quiet();
    }
    bail_error(err);

bail:
    return err;
}

int fdic_event_array_set(fdic_event_array *arr, uint32 idx, const fdic_event *event)
{
    int err = 0;

    bail_null(arr);
    bail_null(event);
    err = array_set(arr->fdic_event_arr, idx, const_cast<fdic_event *>(event));
    bail_error(err);

bail:
    return err;
}

int fdic_event_array_delete(fdic_event_array *arr, uint32 idx)
{
    int err = 0;

    bail_null(arr);
    err = array_delete(arr->fdic_event_arr, idx);
    bail_error(err);

bail:
    return err;
}

int fdic_event_array_find_by_id(const fdic_event_array *arr, int32 event_id, uint32 *ret_idx)
{
    int err = 0;
    fdic_event key{};

    bail_null(ret_idx);
    *ret_idx = UINT32_MAX;
    bail_null(arr);
    key.fee_event_id = event_id;
    err = array_binary_search(arr->fdic_event_arr, &key, ret_idx);
    if (err == lc_err_not_found) {
        bail_quiet();
    }
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The handle

int fdic_init(fdic_handle **ret_fich, fdic_register_event_callback_func register_event_func,
              void *register_event_arg)
{
    int err = 0;
    fdic_handle *fich = nullptr;

    bail_null(ret_fich);
    *ret_fich = nullptr;
    fich = static_cast<fdic_handle *>(calloc(1, sizeof(fdic_handle)));
    bail_null(fich);
    fich->fh_next_event_id = 1;
    fich->fh_register_event_changes_only = true;
    fich->fh_register_event_func = register_event_func;
    fich->fh_register_event_arg = register_event_arg;
    err = fdic_event_array_new(&fich->fh_registrations);
    bail_error(err);
    err = fdic_event_array_new(&fich->fh_registrations_prev);
    bail_error(err);
    *ret_fich = fich;
    fich = nullptr;

bail:
    fdic_deinit(&fich);
    return err;
}

int fdic_deinit(fdic_handle **inout_fich)
{
    int err = 0;
    fdic_handle *fich = nullptr;

    bail_null(inout_fich);
    fich = *inout_fich;
    if (fich == nullptr) {
        goto bail;
    }
    *inout_fich = nullptr;
    complain_error(fdic_event_array_free(&fich->fh_registrations));
    complain_error(fdic_event_array_free(&fich->fh_registrations_prev));
    free(fich);

bail:
    return err;
}

int fdic_event_add_fd(fdic_handle *fich, int fd, tbool check_readable, tbool check_writable,
                      void *per_event_arg, fdic_event_callback_func readable_callback_func,
                      void *readable_callback_arg,
                      fdic_event_callback_func writable_callback_func,
                      void *writable_callback_arg, int32 *ret_event_id)
{
    int err = 0;
    fdic_event event{};

    if (ret_event_id != nullptr) {
        *ret_event_id = -1;
    }
    bail_null(fich);

    event.fee_active = fd >= 0;
    event.fee_uses_fd = true;
    event.fee_fd = fd;
    event.fee_per_event_arg = per_event_arg;
    event.fee_fd_on_readable = check_readable;
    event.fee_fd_on_writable = check_writable;
    event.fee_fd_readable_callback_func = readable_callback_func;
    event.fee_fd_readable_callback_arg = readable_callback_arg;
    event.fee_fd_writable_callback_func = writable_callback_func;
    event.fee_fd_writable_callback_arg = writable_callback_arg;
    event.fee_uses_timeout = false;
    event.fee_timeout_ms = -1;
    err = fdic_event_add_internal(fich, &event, ret_event_id);
    bail_error(err);

bail:
    return err;
}

int fdic_event_update_fd(fdic_handle *fich, int32 event_id, tbool check_readable,
                         tbool check_writable)
{
    int err = 0;
    uint32 idx = 0;
    fdic_event *event = nullptr;

    bail_null(fich);
    err = fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx);
    if (err == lc_err_not_found) {
        lc_log_basic(LOG_ERR, "No descriptor event with id %d to update", event_id);
    }
    bail_error(err);
    event = fdic_event_array_get_quick(fich->fh_registrations, idx);
    bail_require(event->fee_uses_fd);
    if (event->fee_fd_on_readable == check_readable &&
        event->fee_fd_on_writable == check_writable && fich->fh_register_event_changes_only &&
        !fich->fh_loop_behind) {
        // Every change of the wanted set was passed on as it was made: with the same
        // interest there is nothing to pass on (a session asks this after each write).
        goto bail;
    }
    event->fee_fd_on_readable = check_readable;
    event->fee_fd_on_writable = check_writable;
    err = fdic_events_update(fich);
    bail_error(err);

bail:
    return err;
}

int fdic_event_delete_fd(fdic_handle *fich, int32 event_id)
{
    return fdic_event_delete_internal(fich, event_id, true);
}

int fdic_event_add_timer(fdic_handle *fich, lt_dur_ms timeout, void *per_event_arg,
                         fdic_event_callback_func timeout_callback_func,
                         void *timeout_callback_arg, int32 *ret_event_id)
{
    int err = 0;
    fdic_event event{};

    if (ret_event_id != nullptr) {
        *ret_event_id = -1;
    }
    bail_null(fich);
    bail_null(timeout_callback_func);
    bail_require(timeout >= 0);

    event.fee_active = true;
    event.fee_uses_fd = false;
    event.fee_fd = -1;
    event.fee_per_event_arg = per_event_arg;
    event.fee_uses_timeout = true;
    event.fee_timeout_ms = timeout;
    event.fee_timeout_callback_func = timeout_callback_func;
    event.fee_timeout_callback_arg = timeout_callback_arg;
    err = fdic_event_add_internal(fich, &event, ret_event_id);
    bail_error(err);

bail:
    return err;
}

int fdic_event_delete_timer(fdic_handle *fich, int32 event_id)
{
    return fdic_event_delete_internal(fich, event_id, false);
}

int fdic_events_query(fdic_handle *fich, fdic_event_array **ret_events)
{
    return fdic_events_query_internal(fich, false, ret_events);
}

int fdic_events_update(fdic_handle *fich)
{
    int err = 0;
    fdic_event_array *changes = nullptr;

    bail_null(fich);
    fich->fh_loop_behind = true;
    err = fdic_events_query_internal(fich, fich->fh_register_event_changes_only, &changes);
    bail_error(err);
    if (fdic_event_array_length_quick(changes) > 0 && fich->fh_register_event_func != nullptr) {
        err = fich->fh_register_event_func(changes, fich->fh_register_event_arg);
        bail_error(err);
    }
    fich->fh_loop_behind = false;

bail:
    fdic_event_array_free(&changes);
    return err;
}

int fdic_events_query_internal(fdic_handle *fclh, tbool changed_only,
                               fdic_event_array **ret_events)
{
    int err = 0;
    fdic_event_array *result = nullptr;
    fdic_event_array *prev = nullptr;
    const fdic_event *event = nullptr;
    fdic_event *prev_event = nullptr;
    fdic_event gone{};
    uint32 prev_idx = 0;
    uint32 idx = 0;
    tbool in_prev = false;

    bail_null(ret_events);
    *ret_events = nullptr;
    bail_null(fclh);
    prev = fclh->fh_registrations_prev;
    err = fdic_event_array_new(&result);
    bail_error(err);

    for (uint32 i = 0; i < fdic_event_array_length_quick(fclh->fh_registrations); ++i) {
        event = fdic_event_array_get_quick(fclh->fh_registrations, i);
        err = fdic_event_array_find_by_id(prev, event->fee_event_id, &prev_idx);
        if (err != 0 && err != lc_err_not_found) {
            bail_error(err);
        }
        in_prev = err == 0;
        err = 0;
        prev_event = in_prev ? fdic_event_array_get_quick(prev, prev_idx) : nullptr;

        err = fdic_event_check(event);
        bail_error(err);

        if (changed_only) {
            if (in_prev && fdic_event_same(event, prev_event)) {
                continue;
            }
            // The loop never had it: there is nothing to take back.
            if (!in_prev && !event->fee_active) {
                continue;
            }
        }
        err = fdic_event_array_insert_sorted(result, event);
        bail_error(err);
        if (event->fee_active) {
            if (in_prev) {
                err = fdic_event_array_set(prev, prev_idx, event);
            } else {
                err = fdic_event_array_insert_sorted(prev, event);
            }
            bail_error(err);
        } else if (in_prev) {
            err = fdic_event_array_delete(prev, prev_idx);
            bail_error(err);
        }
    }

    // What the loop holds but nobody wants any more (a change that failed to get through
    // on its way out) is taken back now.
    idx = 0;
    while (idx < fdic_event_array_length_quick(prev)) {
        prev_event = fdic_event_array_get_quick(prev, idx);
        err = fdic_event_array_find_by_id(fclh->fh_registrations, prev_event->fee_event_id,
                                          &prev_idx);
        if (err == 0) {
            ++idx;
            continue;
        }
        if (err != lc_err_not_found) {
            bail_error(err);
        }
        err = 0;
        gone = *prev_event;
        gone.fee_active = false;
        err = fdic_event_array_insert_sorted(result, &gone);
        bail_error(err);
        err = fdic_event_array_delete(prev, idx);
        bail_error(err);
    }

    *ret_events = result;
    result = nullptr;

bail:
    fdic_event_array_free(&result);
    return err;
}
