// Descriptor and interrupt callbacks in a form that no event loop owns.
//
// A user (the session layer) keeps here the descriptors and timers it wants watched,
// with the functions to call when they fire.  The handle hands what changed to one
// registered function, which is the glue to whatever loop the program runs; the glue
// calls the events' functions back when they fire.  Nothing here waits or polls.
//
// Events are known by ids that the handle gives out, from 1 upwards, never twice while
// the handle lives.  Every add, update and delete pushes its change to the registered
// function at once, and its failure comes back to the caller of that operation.
#pragma once

#include "array.h"
#include "common.h"
#include "ttime.h"

enum fdic_callback_type {
    fct_none = 0,
    fct_read = 1,
    fct_write = 2,
    fct_timeout = 3,
    fct_open = 4,
    fct_close = 5,
};

// The function of an event: `fd` is the descriptor (or the record's descriptor, -1 for a
// plain timer), `per_event_arg` the event's own argument and `callback_arg` the one given
// with this function.  A result of lc_err_cancelled means that the callee tore the event
// down: the glue then passes by the rest of this firing.
typedef int (*fdic_event_callback_func)(int fd, fdic_callback_type type, void *per_event_arg,
                                        void *callback_arg);

struct fdic_handle;

// One wanted event: a descriptor (fee_uses_fd) or a timer (fee_uses_timeout).
struct fdic_event {
    fdic_handle *fee_fich;
    int32 fee_event_id;
    tbool fee_active;                 // false: gone, or a descriptor below 0

    tbool fee_uses_fd;
    int fee_fd;
    void *fee_per_event_arg;

    tbool fee_fd_on_readable;
    tbool fee_fd_on_writable;
    fdic_event_callback_func fee_fd_readable_callback_func;
    void *fee_fd_readable_callback_arg;
    fdic_event_callback_func fee_fd_writable_callback_func;
    void *fee_fd_writable_callback_arg;

    tbool fee_uses_timeout;
    lt_dur_ms fee_timeout_ms;         // -1 for none
    fdic_event_callback_func fee_timeout_callback_func;
    void *fee_timeout_callback_arg;
};

// ---------------------------------------------------------------------------------------
// fdic_event_array: events by value, each a copy owned by the array, sorted by event id.

struct fdic_event_array {
    array *fdic_event_arr;
};

// Element functions: a heap copy of the event; comparison of the ids (pointers to slots).
int fdic_event_dup_for_array(const void *src_elem, void **ret_dest_elem);
int fdic_event_compare_for_array(const void *elem1_ptr, const void *elem2_ptr);

int fdic_event_array_options_get_defaults(array_options *ret_options);
// Sorted; an insert of an id already present fails with lc_err_exists, without a log line.
int fdic_event_array_new(fdic_event_array **ret_arr);
int fdic_event_array_duplicate(const fdic_event_array *arr, fdic_event_array **ret_dup);
int fdic_event_array_free(fdic_event_array **inout_arr);
int fdic_event_array_empty(fdic_event_array *arr);

// A null array has length 0.  The events handed out are borrowed.
int fdic_event_array_length(const fdic_event_array *arr, uint32 *ret_length);
uint32 fdic_event_array_length_quick(const fdic_event_array *arr);
int fdic_event_array_get(const fdic_event_array *arr, uint32 idx, const fdic_event **ret_event);
fdic_event *fdic_event_array_get_quick(const fdic_event_array *arr, uint32 idx);

// The adding forms store a copy.
int fdic_event_array_append(fdic_event_array *arr, const fdic_event *event);
int fdic_event_array_insert_sorted(fdic_event_array *arr, const fdic_event *event);
// Replaces the element at idx with a copy of `event`.
int fdic_event_array_set(fdic_event_array *arr, uint32 idx, const fdic_event *event);
int fdic_event_array_delete(fdic_event_array *arr, uint32 idx);

// The index of the event with this id; lc_err_not_found without a log line when absent.
int fdic_event_array_find_by_id(const fdic_event_array *arr, int32 event_id, uint32 *ret_idx);

// ---------------------------------------------------------------------------------------
// The handle.

// Told what changed (or, without fh_register_event_changes_only, the whole wanted set).
// An event with fee_active false is gone: the glue forgets it.
typedef int (*fdic_register_event_callback_func)(const fdic_event_array *session_events,
                                                 void *data);

struct fdic_handle {
    uint32 fh_next_event_id;                       // starts at 1
    tbool fh_register_event_changes_only;
    fdic_register_event_callback_func fh_register_event_func;
    void *fh_register_event_arg;
    fdic_event_array *fh_registrations;            // the wanted set
    fdic_event_array *fh_registrations_prev;       // what the registered function was told
    // The last fdic_events_update failed: the registered function may lack changes, and
    // every update tries again.
    tbool fh_loop_behind;
};

// With fh_register_event_changes_only true.  A null register_event_func is allowed: the
// wanted set is then only kept, for fdic_events_query.
int fdic_init(fdic_handle **ret_fich, fdic_register_event_callback_func register_event_func,
              void *register_event_arg);
// Frees the handle without telling the registered function anything.
int fdic_deinit(fdic_handle **inout_fich);

// A descriptor event, without time-out.  An fd below 0 makes an inactive event, which the
// glue never watches.  `ret_event_id` (may be null) gets the new id, or -1 on failure.
int fdic_event_add_fd(fdic_handle *fich, int fd, tbool check_readable, tbool check_writable,
                      void *per_event_arg, fdic_event_callback_func readable_callback_func,
                      void *readable_callback_arg,
                      fdic_event_callback_func writable_callback_func,
                      void *writable_callback_arg, int32 *ret_event_id);
// Changes the interest of a descriptor event; the same interest again tells nobody.
int fdic_event_update_fd(fdic_handle *fich, int32 event_id, tbool check_readable,
                         tbool check_writable);
// An unknown id gives lc_err_not_found; an id of the other kind lc_err_assertion_failed.
int fdic_event_delete_fd(fdic_handle *fich, int32 event_id);

// A timer of `timeout` milliseconds (0 or more), one-shot.
int fdic_event_add_timer(fdic_handle *fich, lt_dur_ms timeout, void *per_event_arg,
                         fdic_event_callback_func timeout_callback_func,
                         void *timeout_callback_arg, int32 *ret_event_id);
int fdic_event_delete_timer(fdic_handle *fich, int32 event_id);

// A copy of the whole wanted set, which the caller frees with fdic_event_array_free.
int fdic_events_query(fdic_handle *fich, fdic_event_array **ret_events);
// Tells the registered function what changed, if anything did.
int fdic_events_update(fdic_handle *fich);

// What to tell the loop: with `changed_only` the events that differ from what it was last
// told, otherwise the whole wanted set.  Either way what is handed out becomes what the
// loop was told, and an inactive event handed out is forgotten there.
int fdic_events_query_internal(fdic_handle *fclh, tbool changed_only,
                               fdic_event_array **ret_events);
