// The blocking loop: lets a synchronous caller wait for its session inside a program that
// is otherwise driven by an event loop, by polling everything the handle's descriptor
// layer wants, not only this session.
#include <errno.h>
#include <poll.h>

#include <vector>

#include "gcl.h"
#include "gcl_internal.h"
#include "lock_mt.h"
#include "logging.h"
#include "ttime.h"

namespace {

struct gcl_poll_entry {
    int32 event_id;
    tbool for_write;
};

// Whether the event is still wanted: an earlier callback of the same round may have
// removed it.
tbool gcl_event_still_wanted(fdic_handle *fich, int32 event_id)
{
    uint32 idx = 0;
    return fdic_event_array_find_by_id(fich->fh_registrations, event_id, &idx) == 0;
}

}  // namespace

int gcl_session_do_blocking_io(gcl_handle *gclh, gcl_session *sess, tbool until_message_sent,
                               tbool until_message_received, tbool until_session_state_change,
                               tbool until_bp_state_change, gcl_body_proto bp_test,
                               lt_dur_ms max_wait_ms)
{
    int err = 0;
    lt_time_ms start = 0;
    fdic_event_array *events = nullptr;
    fdic_handle *fich = nullptr;
    std::vector<pollfd> pfds;
    std::vector<gcl_poll_entry> entries;
    uint64 sent_frames = 0;
    uint64 received_frames = 0;
    gcl_session_state state = gss_none;
    uint32 bp_state = 0;
    gcl_bp_registration *reg = nullptr;
    int res = 0;

    bail_null(gclh);
    bail_null(sess);
    fich = gclh->gh_fich;
    bail_null(fich);
    if (max_wait_ms >= 0) {
        start = lt_sys_uptime_ms();
    }
    reg = gcl_get_body_protocol_registration(gclh, bp_test);

    for (;;) {
        if (!gcl_validate_session(sess) || sess->gs_state == gss_closed || sess->gs_fd < 0) {
            err = lc_err_io_closed;
            goto bail;
        }
        fdic_event_array_free(&events);
        err = fdic_events_query(fich, &events);
        bail_error(err);
        sent_frames = sess->gs_msg_sent_frames;
        received_frames = sess->gs_msg_received_frames;
        state = sess->gs_state;
        bp_state = 0;
        if (reg != nullptr && reg->gbpr_query_session_state != nullptr) {
            err = reg->gbpr_query_session_state(gclh, sess, &bp_state,
                                                reg->gbpr_query_session_state_arg);
            bail_error(err);
        }

        auto changed = [&]() -> tbool {
            uint32 now_bp = 0;
            if (!gcl_validate_session(sess)) {
                return true;
            }
            if (until_message_sent && sess->gs_msg_sent_frames != sent_frames) {
                return true;
            }
            if (until_message_received && sess->gs_msg_received_frames != received_frames) {
                return true;
            }
            if (until_session_state_change && sess->gs_state != state) {
                return true;
            }
            if (until_bp_state_change && reg != nullptr &&
                reg->gbpr_query_session_state != nullptr &&
                reg->gbpr_query_session_state(gclh, sess, &now_bp,
                                              reg->gbpr_query_session_state_arg) == 0 &&
                now_bp != bp_state) {
                return true;
            }
            return false;
        };

        pfds.clear();
        entries.clear();
        for (uint32 i = 0; i < fdic_event_array_length_quick(events); ++i) {
            const fdic_event *ev = fdic_event_array_get_quick(events, i);
            if (ev == nullptr || !ev->fee_active) {
                continue;
            }
            if (ev->fee_uses_timeout && ev->fee_timeout_ms != -1) {
                // Timers are not kept here: they are run at once.
                lc_log_basic(LOG_INFO, "GCL timeout forced");
                if (ev->fee_timeout_callback_func != nullptr &&
                    gcl_event_still_wanted(fich, ev->fee_event_id)) {
                    res = ev->fee_timeout_callback_func(ev->fee_fd, fct_timeout,
                                                        ev->fee_per_event_arg,
                                                        ev->fee_timeout_callback_arg);
                    if (res != 0 && res != lc_err_cancelled) {
                        complain_error(res);
                    }
                }
                continue;
            }
            if (!ev->fee_uses_fd || ev->fee_fd < 0) {
                continue;
            }
            if (ev->fee_fd >= gcl_max_poll_fd) {
                lc_log_basic(LOG_ERR, "fd too large: %d", ev->fee_fd);
                err = lc_err_generic_error;
                goto bail;
            }
            if (ev->fee_fd_on_readable) {
                pfds.push_back({ev->fee_fd, POLLIN, 0});
                entries.push_back({ev->fee_event_id, false});
            }
            if (ev->fee_fd_on_writable) {
                pfds.push_back({ev->fee_fd, POLLOUT, 0});
                entries.push_back({ev->fee_event_id, true});
            }
        }
        if (changed()) {
            goto bail;
        }

        lt_dur_ms wait = -1;
        if (max_wait_ms >= 0) {
            lt_time_ms now = lt_sys_uptime_ms();
            if (now < start) {
                start = now;
            }
            if (now - start >= max_wait_ms) {
                err = lc_err_io_timeout;
                goto bail;
            }
            wait = max_wait_ms - (now - start);
        }
        res = poll(pfds.data(), pfds.size(), static_cast<int>(wait));
        if (res == 0) {
            err = lc_err_io_timeout;
            goto bail;
        }
        if (res < 0) {
            if (errno != EINTR) {
                lc_log_basic(LOG_ERR, "poll: %m");
                err = lc_err_io_error;
                goto bail;
            }
            continue;
        }

        for (size_t i = 0; i < pfds.size(); ++i) {
            const short revents = pfds[i].revents;
            if (revents == 0) {
                continue;
            }
            const tbool error_cond = (revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
            uint32 idx = 0;
            if (fdic_event_array_find_by_id(fich->fh_registrations, entries[i].event_id,
                                            &idx) != 0) {
                continue;
            }
            // A copy: the callback may change the wanted set.
            const fdic_event ev = *fdic_event_array_get_quick(fich->fh_registrations, idx);
            if (!entries[i].for_write && ((revents & POLLIN) != 0 || error_cond) &&
                ev.fee_fd_on_readable && ev.fee_fd_readable_callback_func != nullptr) {
                res = ev.fee_fd_readable_callback_func(ev.fee_fd, fct_read,
                                                       ev.fee_per_event_arg,
                                                       ev.fee_fd_readable_callback_arg);
                if (res != 0 && res != lc_err_cancelled) {
                    complain_error(res);
                }
            }
            if (entries[i].for_write && ((revents & POLLOUT) != 0 || error_cond) &&
                ev.fee_fd_on_writable && ev.fee_fd_writable_callback_func != nullptr) {
                res = ev.fee_fd_writable_callback_func(ev.fee_fd, fct_write,
                                                       ev.fee_per_event_arg,
                                                       ev.fee_fd_writable_callback_arg);
                if (res != 0 && res != lc_err_cancelled) {
                    complain_error(res);
                }
            }
        }

        if (changed()) {
            goto bail;
        }
    }

bail:
    fdic_event_array_free(&events);
    return err;
}
