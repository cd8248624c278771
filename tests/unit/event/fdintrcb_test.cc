// Descriptor and interrupt callbacks: the wanted set and what the loop is told of it, and
// the glue to the event loop with real descriptors and timers.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

#include "event_fdintrcb.h"
#include "fdintrcb.h"
#include "libevent_wrapper.h"
#include "logging.h"

namespace {

// ---------------------------------------------------------------------------------------
// The wanted set, seen through a registered function that records what it is told.

struct Recorder {
    std::vector<std::vector<fdic_event>> calls;
    int fail_with = 0;
};

int record_changes(const fdic_event_array *session_events, void *data)
{
    Recorder *rec = static_cast<Recorder *>(data);
    std::vector<fdic_event> call;
    for (uint32 i = 0; i < fdic_event_array_length_quick(session_events); ++i) {
        call.push_back(*fdic_event_array_get_quick(session_events, i));
    }
    rec->calls.push_back(call);
    return rec->fail_with;
}

int dummy_cb(int, fdic_callback_type, void *, void *)
{
    return 0;
}

int other_cb(int, fdic_callback_type, void *, void *)
{
    return 0;
}

int g_tag_a = 0;
int g_tag_b = 0;
int g_tag_c = 0;

class FdicHandleTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("fdintrcb_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }
    void SetUp() override { ASSERT_EQ(0, fdic_init(&fich_, record_changes, &rec_)); }
    void TearDown() override
    {
        EXPECT_EQ(0, fdic_deinit(&fich_));
        EXPECT_EQ(nullptr, fich_);
    }

    int32 add_fd(int fd, tbool readable, tbool writable)
    {
        int32 id = -2;
        EXPECT_EQ(0, fdic_event_add_fd(fich_, fd, readable, writable, &g_tag_a, dummy_cb,
                                       &g_tag_b, other_cb, &g_tag_c, &id));
        return id;
    }

    uint32 wanted() const { return fdic_event_array_length_quick(fich_->fh_registrations); }

    // An active descriptor event with id 0, which no update lets through.
    static fdic_event bad_event()
    {
        fdic_event bad{};
        bad.fee_active = true;
        bad.fee_uses_fd = true;
        bad.fee_fd = 3;
        bad.fee_timeout_ms = -1;
        return bad;
    }

    Recorder rec_;
    fdic_handle *fich_ = nullptr;
};

TEST_F(FdicHandleTest, AddingADescriptorTellsTheLoopExactlyThatEvent)
{
    const int32 id = add_fd(7, true, false);
    EXPECT_GE(id, 1);
    ASSERT_EQ(1u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[0].size());
    const fdic_event &ev = rec_.calls[0][0];
    EXPECT_EQ(id, ev.fee_event_id);
    EXPECT_EQ(fich_, ev.fee_fich);
    EXPECT_TRUE(ev.fee_active);
    EXPECT_TRUE(ev.fee_uses_fd);
    EXPECT_EQ(7, ev.fee_fd);
    EXPECT_TRUE(ev.fee_fd_on_readable);
    EXPECT_FALSE(ev.fee_fd_on_writable);
    EXPECT_EQ(&g_tag_a, ev.fee_per_event_arg);
    EXPECT_EQ(&dummy_cb, ev.fee_fd_readable_callback_func);
    EXPECT_EQ(&g_tag_b, ev.fee_fd_readable_callback_arg);
    EXPECT_EQ(&other_cb, ev.fee_fd_writable_callback_func);
    EXPECT_EQ(&g_tag_c, ev.fee_fd_writable_callback_arg);
    EXPECT_FALSE(ev.fee_uses_timeout);
    EXPECT_EQ(-1, ev.fee_timeout_ms);

    // A second event tells only of itself.
    const int32 id2 = add_fd(8, false, true);
    ASSERT_EQ(2u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[1].size());
    EXPECT_EQ(id2, rec_.calls[1][0].fee_event_id);
}

TEST_F(FdicHandleTest, OnlyChangesReachTheLoop)
{
    const int32 id = add_fd(7, true, false);
    rec_.calls.clear();

    // The same interest again: nothing to tell, so no call at all.
    EXPECT_EQ(0, fdic_event_update_fd(fich_, id, true, false));
    EXPECT_EQ(0, fdic_events_update(fich_));
    EXPECT_TRUE(rec_.calls.empty());

    EXPECT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    ASSERT_EQ(1u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[0].size());
    EXPECT_TRUE(rec_.calls[0][0].fee_fd_on_writable);
    EXPECT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    EXPECT_EQ(1u, rec_.calls.size());

    // Without changes-only the whole set goes every time.
    add_fd(9, true, false);
    rec_.calls.clear();
    fich_->fh_register_event_changes_only = false;
    EXPECT_EQ(0, fdic_events_update(fich_));
    ASSERT_EQ(1u, rec_.calls.size());
    EXPECT_EQ(2u, rec_.calls[0].size());
}

TEST_F(FdicHandleTest, DeleteIsToldOnceAsInactiveAndForgotten)
{
    const int32 keep = add_fd(7, true, false);
    const int32 id = add_fd(8, true, false);
    rec_.calls.clear();

    EXPECT_EQ(0, fdic_event_delete_fd(fich_, id));
    ASSERT_EQ(1u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[0].size());
    EXPECT_EQ(id, rec_.calls[0][0].fee_event_id);
    EXPECT_FALSE(rec_.calls[0][0].fee_active);
    EXPECT_EQ(8, rec_.calls[0][0].fee_fd);

    EXPECT_EQ(0, fdic_events_update(fich_));
    EXPECT_EQ(1u, rec_.calls.size());
    EXPECT_EQ(1u, wanted());
    EXPECT_EQ(1u, fdic_event_array_length_quick(fich_->fh_registrations_prev));

    fdic_event_array *all = nullptr;
    ASSERT_EQ(0, fdic_events_query(fich_, &all));
    ASSERT_EQ(1u, fdic_event_array_length_quick(all));
    EXPECT_EQ(keep, fdic_event_array_get_quick(all, 0)->fee_event_id);
    EXPECT_EQ(0, fdic_event_array_free(&all));
    EXPECT_EQ(nullptr, all);
}

TEST_F(FdicHandleTest, EventIdsAreNeverReused)
{
    std::vector<int32> ids;
    for (int i = 0; i < 5; ++i) {
        const int32 fd_id = add_fd(3 + i, true, false);
        int32 timer_id = -2;
        ASSERT_EQ(0, fdic_event_add_timer(fich_, 100, nullptr, dummy_cb, nullptr, &timer_id));
        ids.push_back(fd_id);
        ids.push_back(timer_id);
        ASSERT_EQ(0, fdic_event_delete_fd(fich_, fd_id));
        ASSERT_EQ(0, fdic_event_delete_timer(fich_, timer_id));
    }
    EXPECT_EQ(1, ids.front());
    for (size_t i = 1; i < ids.size(); ++i) {
        EXPECT_GT(ids[i], ids[i - 1]);
    }
    EXPECT_EQ(0u, wanted());

    // Out of ids, a handle refuses rather than start over.
    fich_->fh_next_event_id = static_cast<uint32>(INT32_MAX) + 1;
    int32 id = 5;
    EXPECT_EQ(lc_err_limit_exceeded,
              fdic_event_add_fd(fich_, 3, true, false, nullptr, dummy_cb, nullptr, nullptr,
                                nullptr, &id));
    EXPECT_EQ(-1, id);
}

TEST_F(FdicHandleTest, TimerEventsCarryTheirDuration)
{
    int32 id = -2;
    ASSERT_EQ(0, fdic_event_add_timer(fich_, 250, &g_tag_a, dummy_cb, &g_tag_b, &id));
    ASSERT_EQ(1u, rec_.calls.size());
    const fdic_event &ev = rec_.calls[0][0];
    EXPECT_TRUE(ev.fee_active);
    EXPECT_FALSE(ev.fee_uses_fd);
    EXPECT_TRUE(ev.fee_uses_timeout);
    EXPECT_EQ(250, ev.fee_timeout_ms);
    EXPECT_EQ(&g_tag_b, ev.fee_timeout_callback_arg);

    // The kinds are not interchangeable, and unknown ids are refused.
    EXPECT_EQ(lc_err_assertion_failed, fdic_event_delete_fd(fich_, id));
    EXPECT_EQ(lc_err_assertion_failed, fdic_event_update_fd(fich_, id, true, false));
    EXPECT_EQ(lc_err_not_found, fdic_event_delete_timer(fich_, id + 100));
    EXPECT_EQ(lc_err_assertion_failed,
              fdic_event_add_timer(fich_, -1, nullptr, dummy_cb, nullptr, &id));
    EXPECT_EQ(-1, id);
    EXPECT_EQ(1u, wanted());
}

TEST_F(FdicHandleTest, NegativeDescriptorIsInactiveAndNeverReachesTheLoop)
{
    const int32 id = add_fd(-1, true, false);
    EXPECT_GE(id, 1);
    EXPECT_TRUE(rec_.calls.empty());
    EXPECT_EQ(0, fdic_events_update(fich_));
    EXPECT_TRUE(rec_.calls.empty());
    EXPECT_EQ(0, fdic_event_delete_fd(fich_, id));
    EXPECT_TRUE(rec_.calls.empty());
    EXPECT_EQ(0u, wanted());
}

TEST_F(FdicHandleTest, AddRefusedByTheLoopLeavesNothingBehind)
{
    rec_.fail_with = lc_err_generic_error;
    int32 id = 5;
    EXPECT_EQ(lc_err_generic_error,
              fdic_event_add_fd(fich_, 7, true, false, nullptr, dummy_cb, nullptr, nullptr,
                                nullptr, &id));
    EXPECT_EQ(-1, id);
    EXPECT_EQ(0u, wanted());
    // The loop was told to forget what it may have taken.
    ASSERT_EQ(2u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[1].size());
    EXPECT_FALSE(rec_.calls[1][0].fee_active);
    EXPECT_EQ(0u, fdic_event_array_length_quick(fich_->fh_registrations_prev));
}

TEST_F(FdicHandleTest, BadEventsAreRefusedAndWhatTheLoopMissedIsToldLater)
{
    const int32 id = add_fd(7, true, false);
    rec_.calls.clear();

    // An event with id 0 breaks every update until it is gone.
    fdic_event bad = bad_event();
    ASSERT_EQ(0, fdic_event_array_insert_sorted(fich_->fh_registrations, &bad));
    EXPECT_EQ(lc_err_assertion_failed, fdic_events_update(fich_));
    // The delete leaves the wanted set although the loop couldn't be told.
    EXPECT_EQ(lc_err_assertion_failed, fdic_event_delete_fd(fich_, id));
    EXPECT_TRUE(rec_.calls.empty());
    EXPECT_EQ(1u, wanted());

    ASSERT_EQ(0, fdic_event_array_delete(fich_->fh_registrations, 0));
    EXPECT_EQ(0, fdic_events_update(fich_));
    ASSERT_EQ(1u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[0].size());
    EXPECT_EQ(id, rec_.calls[0][0].fee_event_id);
    EXPECT_FALSE(rec_.calls[0][0].fee_active);

    // An active descriptor below 0 is refused too.
    bad.fee_event_id = 1000;
    bad.fee_fd = -5;
    ASSERT_EQ(0, fdic_event_array_insert_sorted(fich_->fh_registrations, &bad));
    EXPECT_EQ(lc_err_assertion_failed, fdic_events_update(fich_));
}

// The same interest again asks nothing of the loop, unless an update failed before: then
// the loop may lack the change, and the same interest is passed on after all.
TEST_F(FdicHandleTest, SameInterestAfterAFailedUpdateIsToldAfterAll)
{
    const int32 id = add_fd(7, true, false);
    rec_.calls.clear();

    const fdic_event bad = bad_event();
    ASSERT_EQ(0, fdic_event_array_insert_sorted(fich_->fh_registrations, &bad));
    EXPECT_EQ(lc_err_assertion_failed, fdic_event_update_fd(fich_, id, true, true));
    EXPECT_TRUE(rec_.calls.empty());
    ASSERT_EQ(0, fdic_event_array_delete(fich_->fh_registrations, 0));

    EXPECT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    ASSERT_EQ(1u, rec_.calls.size());
    ASSERT_EQ(1u, rec_.calls[0].size());
    EXPECT_EQ(id, rec_.calls[0][0].fee_event_id);
    EXPECT_TRUE(rec_.calls[0][0].fee_fd_on_writable);

    rec_.calls.clear();
    EXPECT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    EXPECT_TRUE(rec_.calls.empty());
}

TEST(FdicEventArrayTest, KeepsCopiesSortedById)
{
    fdic_event_array *arr = nullptr;
    ASSERT_EQ(0, fdic_event_array_new(&arr));
    fdic_event ev{};
    for (int32 id : {5, 2, 9}) {
        ev.fee_event_id = id;
        ev.fee_fd = id * 10;
        ASSERT_EQ(0, fdic_event_array_insert_sorted(arr, &ev));
    }
    ev.fee_fd = -7;  // the array holds copies
    ev.fee_event_id = 2;
    EXPECT_EQ(lc_err_exists, fdic_event_array_insert_sorted(arr, &ev));
    ASSERT_EQ(3u, fdic_event_array_length_quick(arr));
    EXPECT_EQ(2, fdic_event_array_get_quick(arr, 0)->fee_event_id);
    EXPECT_EQ(20, fdic_event_array_get_quick(arr, 0)->fee_fd);
    EXPECT_EQ(9, fdic_event_array_get_quick(arr, 2)->fee_event_id);

    uint32 idx = 0;
    EXPECT_EQ(0, fdic_event_array_find_by_id(arr, 9, &idx));
    EXPECT_EQ(2u, idx);
    EXPECT_EQ(lc_err_not_found, fdic_event_array_find_by_id(arr, 3, &idx));

    fdic_event_array *dup = nullptr;
    ASSERT_EQ(0, fdic_event_array_duplicate(arr, &dup));
    EXPECT_EQ(0, fdic_event_array_delete(arr, 0));
    EXPECT_EQ(3u, fdic_event_array_length_quick(dup));
    EXPECT_NE(fdic_event_array_get_quick(dup, 1), fdic_event_array_get_quick(arr, 0));
    EXPECT_EQ(0, fdic_event_array_free(&dup));
    EXPECT_EQ(0, fdic_event_array_free(&arr));
    EXPECT_EQ(nullptr, arr);
}

// ---------------------------------------------------------------------------------------
// The glue, on a real loop.

struct Seen {
    int fd;
    fdic_callback_type type;
    void *per_event_arg;
};

struct Probe {
    std::vector<Seen> seen;
    int result = 0;
    // What a callback does besides noting the call.
    fdic_handle *fich = nullptr;
    int32 delete_id = -1;          // delete this descriptor event from the callback
    int drain_fd = -1;             // read what waits on this descriptor
};

int probe_cb(int fd, fdic_callback_type type, void *per_event_arg, void *callback_arg)
{
    Probe *p = static_cast<Probe *>(callback_arg);
    p->seen.push_back({fd, type, per_event_arg});
    if (p->drain_fd >= 0) {
        char buf[64];
        while (read(p->drain_fd, buf, sizeof(buf)) > 0) {
        }
    }
    if (p->delete_id >= 0 && p->fich != nullptr) {
        EXPECT_EQ(0, fdic_event_delete_fd(p->fich, p->delete_id));
        p->delete_id = -1;
    }
    return p->result;
}

int guard_fired(int, short, void *data, lew_context *context)
{
    *static_cast<tbool *>(data) = true;
    return lew_escape_from_dispatch(context, false);
}

class FdicLoopTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("fdintrcb_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }

    void SetUp() override
    {
        ASSERT_EQ(0, lew_init(&lwc_));
        event_context *ec = nullptr;
        ASSERT_EQ(0, lew_get_event_context(lwc_, &ec));
        ASSERT_EQ(0, fdic_libevent_init(ec, &flc_));
        ASSERT_EQ(0, fdic_init(&fich_, fdic_libevent_callback, flc_));
    }

    void TearDown() override
    {
        EXPECT_EQ(0, fdic_deinit(&fich_));
        EXPECT_EQ(0, fdic_libevent_deinit(&flc_));
        EXPECT_EQ(nullptr, flc_);
        EXPECT_EQ(0, lew_deinit(&lwc_));
        for (int &fd : fds_) {
            safe_close(&fd);
        }
    }

    void make_socketpair(int *ret_a, int *ret_b)
    {
        int sv[2] = {-1, -1};
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sv));
        fds_.push_back(sv[0]);
        fds_.push_back(sv[1]);
        *ret_a = sv[0];
        *ret_b = sv[1];
    }

    // Runs blocking rounds until `done` holds.  A generous guard timer keeps a broken
    // build from hanging; it is no statement about timing.
    template <typename Pred>
    void run_until(Pred done)
    {
        tbool guard = false;
        lew_event *guard_ev = nullptr;
        ASSERT_EQ(0, lew_event_reg_timer(lwc_, &guard_ev, guard_fired, &guard, 30000));
        for (int round = 0; round < 100 && !done() && !guard; ++round) {
            ASSERT_EQ(0, lew_dispatch_once(lwc_, nullptr, nullptr));
        }
        EXPECT_FALSE(guard) << "nothing fired";
        EXPECT_TRUE(done());
        if (guard_ev != nullptr) {
            EXPECT_EQ(0, lew_event_delete(lwc_, &guard_ev));
        }
    }

    // One round that doesn't wait; tells whether anything was left registered.
    tbool run_nonblocking()
    {
        tbool none_left = false;
        EXPECT_EQ(0, lew_dispatch_nonblocking(lwc_, &none_left, nullptr));
        return none_left;
    }

    fdic_libevent_record *record_of(int32 id)
    {
        void *value = nullptr;
        tbool found = false;
        EXPECT_EQ(0, ht_lookup(flc_->flc_table, &id, sizeof(id), &found, nullptr, nullptr,
                               &value));
        return static_cast<fdic_libevent_record *>(value);
    }

    lew_context *lwc_ = nullptr;
    fdic_libevent_context *flc_ = nullptr;
    fdic_handle *fich_ = nullptr;
    std::vector<int> fds_;
};

TEST_F(FdicLoopTest, ReadableDescriptorCallsItsFunction)
{
    int a = -1, b = -1;
    make_socketpair(&a, &b);
    Probe probe;
    probe.drain_fd = a;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, &g_tag_a, probe_cb, &probe, nullptr,
                                   nullptr, &id));
    ASSERT_NE(nullptr, record_of(id));

    ASSERT_EQ(1, write(b, "x", 1));
    run_until([&] { return !probe.seen.empty(); });
    ASSERT_EQ(1u, probe.seen.size());
    EXPECT_EQ(a, probe.seen[0].fd);
    EXPECT_EQ(fct_read, probe.seen[0].type);
    EXPECT_EQ(&g_tag_a, probe.seen[0].per_event_arg);

    // Persistent: a second write fires again.
    ASSERT_EQ(1, write(b, "y", 1));
    run_until([&] { return probe.seen.size() == 2; });
}

TEST_F(FdicLoopTest, InterestFollowsUpdates)
{
    int a = -1, b = -1;
    make_socketpair(&a, &b);
    Probe readable, writable;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, nullptr, probe_cb, &readable,
                                   probe_cb, &writable, &id));
    // Nothing to read, and write interest is off: nothing fires.
    run_nonblocking();
    EXPECT_TRUE(readable.seen.empty());
    EXPECT_TRUE(writable.seen.empty());

    ASSERT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    run_until([&] { return !writable.seen.empty(); });
    EXPECT_EQ(fct_write, writable.seen[0].type);
    EXPECT_TRUE(readable.seen.empty());

    // No interest at all keeps the descriptor out of the loop without an error.
    ASSERT_EQ(0, fdic_event_update_fd(fich_, id, false, false));
    const size_t before = writable.seen.size();
    run_nonblocking();
    EXPECT_EQ(before, writable.seen.size());
    ASSERT_NE(nullptr, record_of(id));
    short pending = 0;
    EXPECT_EQ(0, event_pending(&record_of(id)->flr_event, EV_READ | EV_WRITE | EV_TIMEOUT,
                               &pending, nullptr));
    EXPECT_EQ(0, pending);
}

class FdicCancelTest : public FdicLoopTest {
protected:
    // A descriptor readable and writable in one firing, whose readable function answers
    // `readable_result`.  Write interest comes on only once the descriptor is readable
    // too, so that both sides come in the one round run here.
    void fire_both(int readable_result, Probe *readable, Probe *writable)
    {
        int a = -1, b = -1;
        make_socketpair(&a, &b);
        int32 id = -1;
        ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, nullptr, probe_cb, readable,
                                       probe_cb, writable, &id));
        readable->result = readable_result;
        readable->drain_fd = a;
        ASSERT_EQ(1, write(b, "x", 1));
        ASSERT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
        ASSERT_EQ(0, lew_dispatch_once(lwc_, nullptr, nullptr));
        ASSERT_EQ(1u, readable->seen.size());
        EXPECT_EQ(fct_read, readable->seen[0].type);
    }
};

TEST_F(FdicCancelTest, WritableRunsInTheSameFiringWhenReadableSucceeds)
{
    Probe readable, writable;
    fire_both(0, &readable, &writable);
    ASSERT_EQ(1u, writable.seen.size());
    EXPECT_EQ(fct_write, writable.seen[0].type);
}

TEST_F(FdicCancelTest, CancelledReadablePassesByTheWritableOfThatFiring)
{
    Probe readable, writable;
    fire_both(lc_err_cancelled, &readable, &writable);
    EXPECT_TRUE(writable.seen.empty());
}

TEST_F(FdicCancelTest, ReadableThatDeletesItsEventIsSafe)
{
    Probe closed;
    ASSERT_EQ(0, fdic_libevent_set_fd_close_handler(flc_, probe_cb, &closed));
    for (int result : {static_cast<int>(lc_err_cancelled), 0}) {
        Probe readable, writable;
        closed.seen.clear();
        int a = -1, b = -1;
        make_socketpair(&a, &b);
        int32 id = -1;
        ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, &g_tag_c, probe_cb, &readable,
                                       probe_cb, &writable, &id));
        readable.result = result;
        readable.drain_fd = a;
        readable.fich = fich_;
        readable.delete_id = id;
        ASSERT_EQ(1, write(b, "x", 1));
        ASSERT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
        ASSERT_EQ(0, lew_dispatch_once(lwc_, nullptr, nullptr));
        ASSERT_EQ(1u, readable.seen.size());
        EXPECT_TRUE(writable.seen.empty()) << "result " << result;
        EXPECT_EQ(nullptr, record_of(id));
        ASSERT_EQ(1u, closed.seen.size());
        EXPECT_EQ(fct_close, closed.seen[0].type);
        EXPECT_EQ(&g_tag_c, closed.seen[0].per_event_arg);
    }
}

// The handler, called straight with a record, the way the engine calls it.
TEST_F(FdicCancelTest, HandlerResultsAndChecks)
{
    int a = -1, b = -1;
    make_socketpair(&a, &b);
    Probe readable, writable;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, true, nullptr, probe_cb, &readable,
                                   probe_cb, &writable, &id));
    fdic_libevent_record *rec = record_of(id);
    ASSERT_NE(nullptr, rec);
    event_context *ec = nullptr;
    ASSERT_EQ(0, lew_get_event_context(lwc_, &ec));

    // Another failure ends the handler and is its result.
    readable.result = lc_err_generic_error;
    EXPECT_EQ(lc_err_generic_error, fdic_libevent_handler(a, EV_READ | EV_WRITE, rec, ec));
    EXPECT_EQ(1u, readable.seen.size());
    EXPECT_TRUE(writable.seen.empty());
    EXPECT_TRUE(rec->flr_fdic_event.fee_uses_fd);

    // Cancelled is success, and the descriptor is passed by from then on.
    readable.result = lc_err_cancelled;
    EXPECT_EQ(0, fdic_libevent_handler(a, EV_READ | EV_WRITE, rec, ec));
    EXPECT_EQ(2u, readable.seen.size());
    EXPECT_TRUE(writable.seen.empty());
    EXPECT_FALSE(rec->flr_fdic_event.fee_uses_fd);
    EXPECT_EQ(0, fdic_libevent_handler(a, EV_READ, rec, ec));
    EXPECT_EQ(2u, readable.seen.size());

    // A new copy of the event brings the descriptor back.
    ASSERT_EQ(0, fdic_event_update_fd(fich_, id, true, false));
    readable.result = 0;
    EXPECT_EQ(0, fdic_libevent_handler(a, EV_READ | EV_WRITE, rec, ec));
    EXPECT_EQ(3u, readable.seen.size());
    EXPECT_TRUE(writable.seen.empty());

    // A firing for another descriptor, or a time-out of a descriptor without one.
    EXPECT_EQ(lc_err_assertion_failed, fdic_libevent_handler(b, EV_READ, rec, ec));
    EXPECT_EQ(lc_err_assertion_failed, fdic_libevent_handler(a, EV_TIMEOUT, rec, ec));
    EXPECT_EQ(3u, readable.seen.size());
    EXPECT_EQ(0, fdic_libevent_handler(a, 0, rec, ec));

    // A signal on such a record takes it out of the loop.
    short pending = 0;
    ASSERT_EQ(0, event_pending(&rec->flr_event, EV_READ, &pending, nullptr));
    EXPECT_EQ(EV_READ, pending);
    EXPECT_EQ(0, fdic_libevent_handler(10, EV_SIGNAL, rec, ec));
    ASSERT_EQ(0, event_pending(&rec->flr_event, EV_READ, &pending, nullptr));
    EXPECT_EQ(0, pending);
    EXPECT_EQ(3u, readable.seen.size());
}

TEST_F(FdicLoopTest, TimerFiresItsFunction)
{
    Probe probe;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_timer(fich_, 5, &g_tag_b, probe_cb, &probe, &id));
    run_until([&] { return !probe.seen.empty(); });
    ASSERT_EQ(1u, probe.seen.size());
    EXPECT_EQ(fct_timeout, probe.seen[0].type);
    EXPECT_EQ(-1, probe.seen[0].fd);
    EXPECT_EQ(&g_tag_b, probe.seen[0].per_event_arg);
    // One-shot: the loop has nothing left.
    EXPECT_TRUE(run_nonblocking());
    EXPECT_EQ(0, fdic_event_delete_timer(fich_, id));
    EXPECT_EQ(nullptr, record_of(id));
}

TEST_F(FdicLoopTest, HugeTimerIsClampedAndDoesNotFire)
{
    struct timeval tv = {};
    const lt_dur_ms huge = INT64_C(1) << 60;
    ASSERT_EQ(0, fdic_timeout_calculate(huge, &tv));
    // Within the engine's 32-bit seconds, and far away.
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    EXPECT_LE(now.tv_sec + tv.tv_sec, INT64_C(0x7FFFFFFE) + 2148);
    EXPECT_GE(now.tv_sec + tv.tv_sec, INT64_C(0x7FFFFFFE) - 60);
    EXPECT_EQ(lc_err_assertion_failed, fdic_timeout_calculate(-1, &tv));
    ASSERT_EQ(0, fdic_timeout_calculate(1500, &tv));
    EXPECT_EQ(1, tv.tv_sec);
    EXPECT_EQ(500000, tv.tv_usec);

    Probe probe;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_timer(fich_, huge, nullptr, probe_cb, &probe, &id));
    ASSERT_NE(nullptr, record_of(id));
    short pending = 0;
    struct timeval expiry = {};
    ASSERT_EQ(0, event_pending(&record_of(id)->flr_event, EV_TIMEOUT, &pending, &expiry));
    EXPECT_EQ(EV_TIMEOUT, pending);
    EXPECT_GE(expiry.tv_sec, INT64_C(0x7FFFFFFE) - 60);
    EXPECT_FALSE(run_nonblocking());
    EXPECT_TRUE(probe.seen.empty());
}

TEST_F(FdicLoopTest, OpenAndCloseHandlersFollowDescriptors)
{
    Probe opened, closed, unused;
    ASSERT_EQ(0, fdic_libevent_set_fd_open_handler(flc_, probe_cb, &opened));
    ASSERT_EQ(0, fdic_libevent_set_fd_close_handler(flc_, probe_cb, &closed));
    int a = -1, b = -1;
    make_socketpair(&a, &b);

    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, &g_tag_a, probe_cb, &unused, nullptr,
                                   nullptr, &id));
    ASSERT_EQ(1u, opened.seen.size());
    EXPECT_EQ(a, opened.seen[0].fd);
    EXPECT_EQ(fct_open, opened.seen[0].type);
    EXPECT_EQ(&g_tag_a, opened.seen[0].per_event_arg);
    // Once per descriptor event, not per change.
    ASSERT_EQ(0, fdic_event_update_fd(fich_, id, true, true));
    EXPECT_EQ(1u, opened.seen.size());
    EXPECT_TRUE(closed.seen.empty());

    // Timers are no descriptors.
    int32 tid = -1;
    ASSERT_EQ(0, fdic_event_add_timer(fich_, 100000, nullptr, probe_cb, &unused, &tid));
    ASSERT_EQ(0, fdic_event_delete_timer(fich_, tid));
    EXPECT_EQ(1u, opened.seen.size());
    EXPECT_TRUE(closed.seen.empty());

    ASSERT_EQ(0, fdic_event_delete_fd(fich_, id));
    ASSERT_EQ(1u, closed.seen.size());
    EXPECT_EQ(a, closed.seen[0].fd);
    EXPECT_EQ(fct_close, closed.seen[0].type);
    EXPECT_EQ(&g_tag_a, closed.seen[0].per_event_arg);
    EXPECT_TRUE(unused.seen.empty());
}

TEST_F(FdicLoopTest, DeletedDescriptorLeavesTheLoop)
{
    int a = -1, b = -1;
    make_socketpair(&a, &b);
    Probe probe;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, false, nullptr, probe_cb, &probe, nullptr,
                                   nullptr, &id));
    EXPECT_EQ(1u, flc_->flc_table->ht_num_nodes);
    ASSERT_EQ(1, write(b, "x", 1));
    ASSERT_EQ(0, fdic_event_delete_fd(fich_, id));
    EXPECT_EQ(0u, flc_->flc_table->ht_num_nodes);

    EXPECT_TRUE(run_nonblocking());
    EXPECT_TRUE(probe.seen.empty());
}

TEST_F(FdicLoopTest, DeinitWithLiveEventsReleasesThem)
{
    int a = -1, b = -1;
    make_socketpair(&a, &b);
    Probe probe;
    int32 id = -1;
    ASSERT_EQ(0, fdic_event_add_fd(fich_, a, true, true, nullptr, probe_cb, &probe, probe_cb,
                                   &probe, &id));
    ASSERT_EQ(0, fdic_event_add_timer(fich_, 100000, nullptr, probe_cb, &probe, &id));
    ASSERT_EQ(0, fdic_libevent_deinit(&flc_));
    // The engine no longer holds anything of the adapter.
    EXPECT_TRUE(run_nonblocking());
    EXPECT_TRUE(probe.seen.empty());
}

}  // namespace
