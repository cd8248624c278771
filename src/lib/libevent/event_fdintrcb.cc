// The glue from a wanted set of descriptors and timers to the event engine.

#include "event_fdintrcb.h"

#include <cstdlib>

#include "libevent_wrapper.h"
#include "logging.h"

namespace {

constexpr int32 fdic_libevent_key_len = static_cast<int32>(sizeof(int32));
constexpr short fdic_libevent_pending_bits = EV_TIMEOUT | EV_READ | EV_WRITE | EV_SIGNAL;

int fdic_libevent_lookup(const fdic_libevent_context *context, int32 event_id,
                         fdic_libevent_record **ret_record)
{
    int err = 0;
    tbool found = false;
    void *value = nullptr;

    *ret_record = nullptr;
    err = ht_lookup(context->flc_table, &event_id, fdic_libevent_key_len, &found, nullptr,
                    nullptr, &value);
    bail_error(err);
    if (found) {
        *ret_record = static_cast<fdic_libevent_record *>(value);
    }

bail:
    return err;
}

// Makes the record of a wanted event that the engine doesn't know yet.
int fdic_libevent_record_new(fdic_libevent_context *context, int32 event_id,
                             fdic_libevent_record **ret_record)
{
    int err = 0;
    int32 *key = nullptr;
    fdic_libevent_record *record = nullptr;

    *ret_record = nullptr;
    key = static_cast<int32 *>(malloc(sizeof(int32)));
    bail_null(key);
    *key = event_id;
    // Zeroed, as the engine wants an event record before its first event_set.
    record = static_cast<fdic_libevent_record *>(calloc(1, sizeof(fdic_libevent_record)));
    bail_null(record);
    record->flr_context = context;
    err = ht_insert(context->flc_table, key, fdic_libevent_key_len, record);
    bail_error(err);
    *ret_record = record;
    key = nullptr;
    record = nullptr;

bail:
    free(key);
    free(record);
    return err;
}

// Gives the engine what the record's wanted event asks for, replacing what it had.
int fdic_libevent_arm(fdic_libevent_context *context, fdic_libevent_record *record)
{
    int err = 0;
    tbool locked = false;
    short pending = 0;
    short mask = 0;
    tbool has_timeout = false;
    struct timeval tv = {};
    const fdic_event *event = &record->flr_fdic_event;

    err = event_lock(context->flc_ev_ctxt);
    bail_error(err);
    locked = true;

    err = event_pending(&record->flr_event, fdic_libevent_pending_bits, &pending, nullptr);
    bail_error(err);
    if (pending != 0) {
        err = event_del(&record->flr_event);
        bail_error(err);
    }

    has_timeout = event->fee_uses_timeout && event->fee_timeout_ms >= 0;
    if (event->fee_uses_fd) {
        mask = EV_PERSIST;
        if (event->fee_fd_on_readable) {
            mask |= EV_READ;
        }
        if (event->fee_fd_on_writable) {
            mask |= EV_WRITE;
        }
        err = event_set(context->flc_ev_ctxt, &record->flr_event, event->fee_fd, mask,
                        fdic_libevent_handler, record);
        bail_error(err);
        // A descriptor that nobody wants to hear of for now stays out of the loop.
        if ((mask & (EV_READ | EV_WRITE)) == 0 && !has_timeout) {
            goto bail;
        }
    } else {
        err = event_set(context->flc_ev_ctxt, &record->flr_event, -1, 0, fdic_libevent_handler,
                        record);
        bail_error(err);
        // A timer without a time-out was taken out above, and that is all.
        if (!has_timeout) {
            goto bail;
        }
    }
    if (has_timeout) {
        err = fdic_timeout_calculate(event->fee_timeout_ms, &tv);
        bail_error(err);
    }
    err = event_add(&record->flr_event, has_timeout ? &tv : nullptr);
    bail_error(err);

bail:
    if (locked) {
        complain_error(event_unlock(context->flc_ev_ctxt));
    }
    return err;
}

// One wanted event that is (still) active.
int fdic_libevent_apply_active(fdic_libevent_context *context, const fdic_event *event)
{
    int err = 0;
    fdic_libevent_record *record = nullptr;
    tbool is_new = false;
    const int32 event_id = event->fee_event_id;

    err = fdic_libevent_lookup(context, event_id, &record);
    bail_error(err);
    if (record == nullptr) {
        err = fdic_libevent_record_new(context, event_id, &record);
        bail_error(err);
        is_new = true;
    }
    record->flr_fdic_event = *event;

    if (is_new && event->fee_uses_fd && context->flc_open_cb != nullptr) {
        err = context->flc_open_cb(event->fee_fd, fct_open, event->fee_per_event_arg,
                                   context->flc_open_arg);
        bail_error(err);
        // The handler may have changed or deleted the event meanwhile; what it left is
        // what counts.
        err = fdic_libevent_lookup(context, event_id, &record);
        bail_error(err);
        if (record == nullptr) {
            goto bail;
        }
    }
    err = fdic_libevent_arm(context, record);
    bail_error(err);

bail:
    return err;
}

// One wanted event that is gone.
int fdic_libevent_apply_inactive(fdic_libevent_context *context, const fdic_event *event)
{
    int err = 0;
    fdic_libevent_record *record = nullptr;
    fdic_event gone{};
    const int32 event_id = event->fee_event_id;

    err = fdic_libevent_lookup(context, event_id, &record);
    bail_error(err);
    if (record == nullptr) {
        goto bail;
    }
    gone = record->flr_fdic_event;
    record = nullptr;
    err = ht_delete(context->flc_table, &event_id, fdic_libevent_key_len);
    bail_error(err);
    if (gone.fee_uses_fd && context->flc_close_cb != nullptr) {
        err = context->flc_close_cb(gone.fee_fd, fct_close, gone.fee_per_event_arg,
                                    context->flc_close_arg);
        bail_error(err);
    }

bail:
    return err;
}

// What a wanted event's function said.  lc_err_cancelled: the event was torn down, and
// the rest of this firing passes it by.
int fdic_libevent_callback_result(fdic_libevent_record *record, int cb_err)
{
    if (cb_err == lc_err_cancelled) {
        record->flr_fdic_event.fee_uses_fd = false;
        return 0;
    }
    return cb_err;
}

}  // namespace

int fdic_libevent_init(event_context *ev_ctxt, fdic_libevent_context **ret_context)
{
    int err = 0;
    fdic_libevent_context *context = nullptr;
    ht_options opts{};

    bail_null(ret_context);
    *ret_context = nullptr;
    bail_null(ev_ctxt);
    context = static_cast<fdic_libevent_context *>(calloc(1, sizeof(fdic_libevent_context)));
    bail_null(context);
    context->flc_ev_ctxt = ev_ctxt;
    err = ht_default_options(&opts);
    bail_error(err);
    opts.ho_insert_fails_duplicates = true;
    opts.ho_key_value_free_func = fdic_libevent_record_free;
    err = ht_new(&context->flc_table, &opts);
    bail_error(err);
    *ret_context = context;
    context = nullptr;

bail:
    fdic_libevent_deinit(&context);
    return err;
}

int fdic_libevent_deinit(fdic_libevent_context **inout_context)
{
    int err = 0;
    fdic_libevent_context *context = nullptr;

    bail_null(inout_context);
    context = *inout_context;
    if (context == nullptr) {
        goto bail;
    }
    *inout_context = nullptr;
    err = ht_free(&context->flc_table);
    free(context);
    bail_error(err);

bail:
    return err;
}

int fdic_libevent_set_fd_open_handler(fdic_libevent_context *context,
                                      fdic_event_callback_func open_cb, void *cb_arg)
{
    int err = 0;

    bail_null(context);
    context->flc_open_cb = open_cb;
    context->flc_open_arg = cb_arg;

bail:
    return err;
}

int fdic_libevent_set_fd_close_handler(fdic_libevent_context *context,
                                       fdic_event_callback_func close_cb, void *cb_arg)
{
    int err = 0;

    bail_null(context);
    context->flc_close_cb = close_cb;
    context->flc_close_arg = cb_arg;

bail:
    return err;
}

int fdic_libevent_callback(const fdic_event_array *session_events, void *data)
{
    int err = 0;
    int event_err = 0;
    fdic_libevent_context *context = static_cast<fdic_libevent_context *>(data);
    fdic_event event{};

    bail_null(context);
    bail_null(session_events);

    // One event's failure doesn't keep the others from the engine; the first is reported.
    for (uint32 i = 0; i < fdic_event_array_length_quick(session_events); ++i) {
        // A copy: the functions called on the way may change the caller's arrays.
        event = *fdic_event_array_get_quick(session_events, i);
        if (event.fee_active) {
            event_err = fdic_libevent_apply_active(context, &event);
        } else {
            event_err = fdic_libevent_apply_inactive(context, &event);
        }
        if (event_err != 0 && err == 0) {
            err = event_err;
        }
    }
    bail_error(err);

bail:
    return err;
}

int fdic_libevent_handler(int fd, short event_type, void *data, event_context *ctxt)
{
    int err = 0;
    fdic_libevent_record *record = static_cast<fdic_libevent_record *>(data);
    const fdic_event *event = nullptr;
    tbool entered = false;
    tbool locked = false;
    const char *signame = nullptr;

    bail_null(record);
    ++record->flr_firing_depth;
    entered = true;
    // The functions called below may change the record's event: each step reads it anew.
    event = &record->flr_fdic_event;

    if ((event_type & EV_READ) != 0) {
        bail_require(fd == event->fee_fd);
        if (event->fee_uses_fd && event->fee_fd_on_readable &&
            event->fee_fd_readable_callback_func != nullptr) {
            err = fdic_libevent_callback_result(
                record, event->fee_fd_readable_callback_func(fd, fct_read,
                                                             event->fee_per_event_arg,
                                                             event->fee_fd_readable_callback_arg));
            bail_error(err);
            if (record->flr_doomed) {
                goto bail;
            }
        }
    }

    if ((event_type & EV_WRITE) != 0) {
        bail_require(fd == event->fee_fd);
        if (event->fee_uses_fd && event->fee_fd_on_writable &&
            event->fee_fd_writable_callback_func != nullptr) {
            err = fdic_libevent_callback_result(
                record, event->fee_fd_writable_callback_func(fd, fct_write,
                                                             event->fee_per_event_arg,
                                                             event->fee_fd_writable_callback_arg));
            bail_error(err);
            if (record->flr_doomed) {
                goto bail;
            }
        }
    }

    if ((event_type & EV_TIMEOUT) != 0) {
        bail_require(event->fee_uses_timeout);
        if (event->fee_timeout_callback_func != nullptr) {
            err = fdic_libevent_callback_result(
                record, event->fee_timeout_callback_func(event->fee_fd, fct_timeout,
                                                         event->fee_per_event_arg,
                                                         event->fee_timeout_callback_arg));
            bail_error(err);
            if (record->flr_doomed) {
                goto bail;
            }
        }
    }

    if ((event_type & EV_SIGNAL) != 0) {
        signame = lc_signal_num_to_name(fd);
        lc_log_basic(LOG_WARNING,
                     "libevent: Received unexpected signal %d (%s); unregistering event", fd,
                     signame != nullptr ? signame : "unknown");
        bail_null(ctxt);
        err = event_lock(ctxt);
        bail_error(err);
        locked = true;
        err = event_del(&record->flr_event);
        bail_error(err);
    }

    if ((event_type & (EV_READ | EV_WRITE | EV_TIMEOUT | EV_SIGNAL)) == 0) {
        lc_log_basic(LOG_ERR, "Called with event_type %d", event_type);
    }

bail:
    if (locked) {
        complain_error(event_unlock(ctxt));
    }
    if (entered) {
        --record->flr_firing_depth;
        if (record->flr_firing_depth == 0 && record->flr_doomed) {
            free(record);
        }
    }
    return err;
}

int fdic_timeout_calculate(lt_dur_ms timeout_ms, struct timeval *ret_timeval)
{
    int err = 0;

    bail_null(ret_timeval);
    *ret_timeval = {};
    bail_require(timeout_ms >= 0);
    // The same bound as every other timer of the loop.
    err = lew_get_timeout(timeout_ms, ret_timeval);
    bail_error(err);

bail:
    return err;
}

int fdic_libevent_record_free(void **inout_key, void **inout_value, int32 key_len)
{
    int err = 0;
    fdic_libevent_record *record = nullptr;
    event_context *ev_ctxt = nullptr;
    tbool locked = false;

    (void)key_len;
    if (inout_key != nullptr) {
        free(*inout_key);
        *inout_key = nullptr;
    }
    bail_null(inout_value);
    record = static_cast<fdic_libevent_record *>(*inout_value);
    *inout_value = nullptr;
    if (record == nullptr) {
        goto bail;
    }
    if (record->flr_context != nullptr) {
        ev_ctxt = record->flr_context->flc_ev_ctxt;
    }
    // The engine must let go of the record whatever the lock says.
    if (ev_ctxt != nullptr) {
        locked = complain_error(event_lock(ev_ctxt)) == 0;
    }
    err = event_del(&record->flr_event);
    bail_error(err);

bail:
    if (locked) {
        complain_error(event_unlock(ev_ctxt));
    }
    if (record != nullptr) {
        // Its own callback is running: the handler frees it on the way out.
        if (record->flr_firing_depth > 0) {
            record->flr_doomed = true;
            record->flr_context = nullptr;
        } else {
            free(record);
        }
    }
    return err;
}
