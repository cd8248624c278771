// The event loop: timers re-checked on uptime, events deleted from their own callbacks,
// automatic timers, escapes, signals through the self-pipe, descriptors, nested rounds.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "libevent_wrapper.h"
#include "libevent_wrapper_internal.h"
#include "logging.h"

namespace {

// What stderr received between construction and take(); logging writes its lines there.
class StderrCapture {
public:
    StderrCapture()
    {
        fflush(stderr);
        saved_fd_ = dup(STDERR_FILENO);
        FILE *tmp = tmpfile();
        capture_fd_ = dup(fileno(tmp));
        fclose(tmp);
        dup2(capture_fd_, STDERR_FILENO);
    }
    ~StderrCapture() { take(); }

    std::string take()
    {
        if (saved_fd_ < 0) {
            return text_;
        }
        fflush(stderr);
        dup2(saved_fd_, STDERR_FILENO);
        close(saved_fd_);
        saved_fd_ = -1;
        lseek(capture_fd_, 0, SEEK_SET);
        char buf[4096];
        ssize_t got = 0;
        while ((got = read(capture_fd_, buf, sizeof(buf))) > 0) {
            text_.append(buf, static_cast<size_t>(got));
        }
        close(capture_fd_);
        return text_;
    }

private:
    int saved_fd_ = -1;
    int capture_fd_ = -1;
    std::string text_;
};

// The clock the timers' re-check reads in the tests that move time by hand.
lt_time_ms g_fake_now = 0;
lt_time_ms fake_uptime()
{
    return g_fake_now;
}

// What a handler saw.
struct Calls {
    int count = 0;
    int last_fd = -2;
    short last_type = 0;
    void *last_data = nullptr;
};

int count_handler(int fd, short event_type, void *data, lew_context *context)
{
    (void)context;
    Calls *calls = static_cast<Calls *>(data);
    ++calls->count;
    calls->last_fd = fd;
    calls->last_type = event_type;
    calls->last_data = data;
    return 0;
}

int failing_handler(int fd, short event_type, void *data, lew_context *context)
{
    count_handler(fd, event_type, data, context);
    return lc_err_generic_error;
}

class LewTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("lew_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }

    void SetUp() override
    {
        ASSERT_EQ(0, lew_init(&ctx_));
        ASSERT_NE(nullptr, ctx_);
    }

    void TearDown() override
    {
        lew_set_uptime_func(nullptr);
        EXPECT_EQ(0, lew_deinit(&ctx_));
        EXPECT_EQ(nullptr, ctx_);
        for (int &fd : fds_) {
            safe_close(&fd);
        }
    }

    // A non-blocking pipe: read side, write side.
    void make_pipe(int *ret_read, int *ret_write)
    {
        int p[2] = {-1, -1};
        ASSERT_EQ(0, pipe2(p, O_NONBLOCK | O_CLOEXEC));
        fds_[num_fds_++] = p[0];
        fds_[num_fds_++] = p[1];
        *ret_read = p[0];
        *ret_write = p[1];
    }

    uint32 num_events() const { return array_length_quick(ctx_->lwc_events); }
    uint32 num_doomed() const { return array_length_quick(ctx_->lwc_doomed_events); }
    uint32 num_auto() const { return array_length_quick(ctx_->lwc_auto_alloc_events); }

    lew_context *ctx_ = nullptr;
    // Handles live in the fixture, so that they outlive every event until lew_deinit.
    lew_event *ev_[4] = {};
    int fds_[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    int num_fds_ = 0;
};

// ---------------------------------------------------------------------------------------
// Timers are re-checked on uptime when they fire.

class LewTimerTest : public LewTest {
protected:
    // Registers a timer of 30 ms at fake uptime 1000 and lets it fire when the fake clock
    // says `fired_at`.  Returns the log of that round.
    std::string fire_timer_at(lt_time_ms fired_at, Calls *calls)
    {
        lew_set_uptime_func(fake_uptime);
        g_fake_now = 1000;
        EXPECT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, calls, 30));
        EXPECT_EQ(1000, ev_[0]->lwe_timer_start);
        EXPECT_EQ(30, ev_[0]->lwe_timer_duration);
        g_fake_now = fired_at;
        StderrCapture cap;
        EXPECT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
        return cap.take();
    }
};

TEST_F(LewTimerTest, TwentyFiveMsEarlyIsRescheduledAndHandlerDoesNotRun)
{
    Calls calls;
    const std::string log = fire_timer_at(1005, &calls);

    EXPECT_EQ(0, calls.count);
    EXPECT_NE(std::string::npos,
              log.find("fired prematurely; rescheduling for 25ms in the future")) << log;
    tbool pending = false;
    lt_time_ms expiry = 0;
    ASSERT_EQ(0, lew_event_is_pending(ctx_, ev_[0], &pending, &expiry));
    EXPECT_TRUE(pending);
    EXPECT_EQ(1030, expiry);

    // At the real expiry the rescheduled timer runs its handler.
    g_fake_now = 1030;
    StderrCapture cap;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    const std::string log2 = cap.take();
    EXPECT_EQ(1, calls.count);
    EXPECT_EQ(EV_TIMEOUT, calls.last_type);
    EXPECT_EQ(-1, calls.last_fd);
    EXPECT_NE(std::string::npos, log2.find("fired: ok (0ms late), processing now")) << log2;
}

TEST_F(LewTimerTest, FifteenMsEarlyRuns)
{
    Calls calls;
    const std::string log = fire_timer_at(1015, &calls);

    EXPECT_EQ(1, calls.count);
    EXPECT_NE(std::string::npos, log.find("fired: ok (-15ms late), processing now")) << log;
    tbool pending = true;
    ASSERT_EQ(0, lew_event_is_pending(ctx_, ev_[0], &pending, nullptr));
    EXPECT_FALSE(pending);
}

TEST_F(LewTimerTest, TwentyMsEarlyIsOnTimeAndTwentyOneIsNot)
{
    Calls calls;
    fire_timer_at(1010, &calls);
    EXPECT_EQ(1, calls.count);

    Calls calls2;
    const std::string log = fire_timer_at(1009, &calls2);
    EXPECT_EQ(0, calls2.count);
    EXPECT_NE(std::string::npos, log.find("rescheduling for 21ms")) << log;
}

TEST_F(LewTimerTest, RescheduleKeepsTheDurationAfterTheTimerFired)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, &calls, 0));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    ASSERT_EQ(1, calls.count);

    ASSERT_EQ(0, lew_event_reschedule(ctx_, &ev_[0]));
    EXPECT_EQ(0, ev_[0]->lwe_timer_duration);
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(2, calls.count);
}

TEST(LewTimeoutTest, ConvertsMillisecondsAndClampsToThirtyTwoBitSeconds)
{
    struct timeval tv = {};
    ASSERT_EQ(0, lew_get_timeout(1500, &tv));
    EXPECT_EQ(1, tv.tv_sec);
    EXPECT_EQ(500000, tv.tv_usec);

    struct timeval before = {};
    struct timeval after = {};
    gettimeofday(&before, nullptr);
    ASSERT_EQ(0, lew_get_timeout(INT64_MAX / 2, &tv));
    gettimeofday(&after, nullptr);
    // The expiry ends at second 0x7FFFFFFE plus 0x7FFFFFFF microseconds (2147 s).
    EXPECT_LE(tv.tv_sec, 0x7FFFFFFE - before.tv_sec + 2148);
    EXPECT_GE(tv.tv_sec, 0x7FFFFFFE - after.tv_sec + 2146);
}

// ---------------------------------------------------------------------------------------
// Deleting events from callbacks.

struct SelfDeleter {
    lew_event **handle = nullptr;
    lew_context *context = nullptr;
    uint32 doomed_seen = 0;
    int count = 0;
};

int delete_own_event(int fd, short event_type, void *data, lew_context *context)
{
    (void)fd;
    (void)event_type;
    SelfDeleter *d = static_cast<SelfDeleter *>(data);
    ++d->count;
    const int err = lew_event_delete(context, d->handle);
    d->doomed_seen = array_length_quick(context->lwc_doomed_events);
    return err;
}

TEST_F(LewTest, HandlerDeletingItsOwnPersistentEventIsSafe)
{
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    SelfDeleter d;
    d.handle = &ev_[0];
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, true, delete_own_event, &d));
    ASSERT_EQ(1, write(wfd, "x", 1));

    tbool no_events_left = true;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, &no_events_left, nullptr));
    EXPECT_FALSE(no_events_left);
    EXPECT_EQ(1, d.count);
    EXPECT_EQ(nullptr, ev_[0]);
    // Kept while its round ran, freed after it.
    EXPECT_EQ(1u, d.doomed_seen);
    EXPECT_EQ(0u, num_doomed());
    EXPECT_EQ(0u, num_events());

    // The descriptor is still readable, yet nothing fires any more.
    ASSERT_EQ(0, lew_dispatch_once(ctx_, &no_events_left, nullptr));
    EXPECT_TRUE(no_events_left);
    EXPECT_EQ(1, d.count);
}

struct OtherDeleter {
    lew_event **victim = nullptr;
    int count = 0;
};

int delete_other_event(int fd, short event_type, void *data, lew_context *context)
{
    (void)fd;
    (void)event_type;
    OtherDeleter *d = static_cast<OtherDeleter *>(data);
    ++d->count;
    if (*d->victim == nullptr) {
        return 0;
    }
    return lew_event_delete(context, d->victim);
}

TEST_F(LewTest, EventDeletedByAnEarlierCallbackOfTheSameRoundDoesNotRun)
{
    int r1 = -1;
    int w1 = -1;
    int r2 = -1;
    int w2 = -1;
    make_pipe(&r1, &w1);
    make_pipe(&r2, &w2);
    OtherDeleter first;
    OtherDeleter second;
    first.victim = &ev_[1];
    second.victim = &ev_[0];
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], r1, EV_READ, true, delete_other_event, &first));
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[1], r2, EV_READ, true, delete_other_event, &second));
    ASSERT_EQ(1, write(w1, "x", 1));
    ASSERT_EQ(1, write(w2, "x", 1));

    StderrCapture cap;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    const std::string log = cap.take();
    // Whichever ran first removed the other, whose firing was dropped quietly.
    EXPECT_EQ(1, first.count + second.count);
    EXPECT_EQ(std::string::npos, log.find(".ERR]")) << log;
    EXPECT_EQ(1u, num_events());
    EXPECT_EQ(0u, num_doomed());
}

TEST_F(LewTest, AutoFreeTimerWhoseHandlerFailsIsStillDeleted)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer_full(ctx_, nullptr, "auto", "failing_handler",
                                          failing_handler, &calls, 0));
    EXPECT_EQ(1u, num_events());
    EXPECT_EQ(1u, num_auto());

    StderrCapture cap;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    const std::string log = cap.take();
    EXPECT_EQ(1, calls.count);
    EXPECT_NE(std::string::npos, log.find("Error code 14000 (generic error) returned")) << log;
    EXPECT_NE(std::string::npos, log.find("libevent: dooming event")) << log;
    EXPECT_EQ(0u, num_events());
    EXPECT_EQ(0u, num_auto());
    EXPECT_EQ(0u, num_doomed());

    tbool no_events_left = false;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, &no_events_left, nullptr));
    EXPECT_TRUE(no_events_left);
}

TEST_F(LewTest, DeleteAllEventsLeavesNothingToDispatch)
{
    Calls calls;
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, true, count_handler, &calls));
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[1], count_handler, &calls, 10000));
    ASSERT_EQ(0, lew_event_reg_signal(ctx_, &ev_[2], SIGUSR2, count_handler, &calls));
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, nullptr, count_handler, &calls, 10000));

    ASSERT_EQ(0, lew_delete_all_events(ctx_));
    EXPECT_EQ(nullptr, ev_[0]);
    EXPECT_EQ(nullptr, ev_[1]);
    EXPECT_EQ(nullptr, ev_[2]);
    tbool no_events_left = false;
    ASSERT_EQ(0, lew_dispatch(ctx_, &no_events_left, nullptr));
    EXPECT_TRUE(no_events_left);
    EXPECT_EQ(0, calls.count);
}

// ---------------------------------------------------------------------------------------
// Escapes.

int escape_handler(int fd, short event_type, void *data, lew_context *context)
{
    count_handler(fd, event_type, data, context);
    return lew_escape_from_dispatch(context, false);
}

TEST_F(LewTest, StickyEscapeMakesEveryDispatchReturnUntilUnescaped)
{
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    Calls idle;
    Calls guard;
    // Never readable: without the escape a dispatch would wait for the guard timer.
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, true, count_handler, &idle));
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[1], escape_handler, &guard, 20000));

    StderrCapture cap;
    ASSERT_EQ(0, lew_escape_from_dispatch(ctx_, true));
    EXPECT_NE(std::string::npos, cap.take().find("libevent: escaping from dispatch (sticky)"));
    for (int i = 0; i < 3; ++i) {
        tbool no_events_left = true;
        tbool escaped = false;
        ASSERT_EQ(0, lew_dispatch(ctx_, &no_events_left, &escaped));
        EXPECT_TRUE(escaped);
        EXPECT_FALSE(no_events_left);
    }
    tbool sticky = false;
    ASSERT_EQ(0, lew_escape_from_dispatch_is_sticky(ctx_, &sticky));
    EXPECT_TRUE(sticky);

    ASSERT_EQ(0, lew_unescape_from_dispatch(ctx_));
    ASSERT_EQ(0, lew_escape_from_dispatch_is_sticky(ctx_, &sticky));
    EXPECT_FALSE(sticky);
    tbool no_events_left = true;
    tbool escaped = true;
    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, &no_events_left, &escaped));
    EXPECT_FALSE(escaped);
    EXPECT_FALSE(no_events_left);
    EXPECT_EQ(0, guard.count);
    EXPECT_EQ(0, idle.count);
}

TEST_F(LewTest, EscapeThatIsNotStickyIsHonouredOnceAfterTheRound)
{
    Calls first;
    Calls second;
    Calls guard;
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], escape_handler, &first, 0));
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[1], count_handler, &second, 0));
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[2], count_handler, &guard, 20000));

    tbool escaped = false;
    ASSERT_EQ(0, lew_dispatch(ctx_, nullptr, &escaped));
    EXPECT_TRUE(escaped);
    // The rest of the round ran before the escape was honoured.
    EXPECT_EQ(1, first.count);
    EXPECT_EQ(1, second.count);

    tbool sticky = true;
    ASSERT_EQ(0, lew_escape_from_dispatch_is_sticky(ctx_, &sticky));
    EXPECT_FALSE(sticky);
    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, nullptr, &escaped));
    EXPECT_FALSE(escaped);
    EXPECT_EQ(0, guard.count);
}

TEST_F(LewTest, EscapeWithNoEventsGivesNoEventsLeftNotEscaped)
{
    ASSERT_EQ(0, lew_escape_from_dispatch(ctx_, true));
    tbool no_events_left = false;
    tbool escaped = true;
    ASSERT_EQ(0, lew_dispatch(ctx_, &no_events_left, &escaped));
    EXPECT_TRUE(no_events_left);
    EXPECT_FALSE(escaped);

    // The request is still there for the next dispatch that has events.
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, &calls, 0));
    ASSERT_EQ(0, lew_dispatch(ctx_, &no_events_left, &escaped));
    EXPECT_TRUE(escaped);
    EXPECT_FALSE(no_events_left);
    EXPECT_EQ(0, calls.count);
}

// ---------------------------------------------------------------------------------------
// Cancelling and registering.

TEST_F(LewTest, CancelOnNonPendingEventGivesZero)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, &calls, 0));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    ASSERT_EQ(1, calls.count);
    tbool pending = true;
    ASSERT_EQ(0, lew_event_is_pending(ctx_, ev_[0], &pending, nullptr));
    ASSERT_FALSE(pending);
    EXPECT_EQ(0, lew_event_cancel(ctx_, ev_[0]));
    EXPECT_EQ(0, lew_event_cancel(ctx_, ev_[0]));
    // The record is kept: it can be armed again.
    ASSERT_EQ(0, lew_event_reschedule_timeout(ctx_, &ev_[0], 0));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(2, calls.count);
}

TEST_F(LewTest, CancelStopsAPendingTimerAndForgetsItsDuration)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, &calls, 0));
    ASSERT_EQ(0, lew_event_cancel(ctx_, ev_[0]));
    EXPECT_EQ(-1, ev_[0]->lwe_timer_duration);
    tbool no_events_left = false;
    ASSERT_EQ(0, lew_dispatch_once(ctx_, &no_events_left, nullptr));
    EXPECT_TRUE(no_events_left);
    EXPECT_EQ(0, calls.count);
}

TEST_F(LewTest, RegisteringAHandleTwiceReusesItsRecord)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer_full(ctx_, &ev_[0], "t", "h1", count_handler, &calls, 20000));
    lew_event *first = ev_[0];
    ASSERT_EQ(0, lew_event_reg_timer(ctx_, &ev_[0], count_handler, &calls, 0));
    EXPECT_EQ(first, ev_[0]);
    EXPECT_EQ(1u, num_events());
    EXPECT_STREQ("t", ev_[0]->lwe_event_name);
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(1, calls.count);
    tbool no_events_left = false;
    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, &no_events_left, nullptr));
    EXPECT_TRUE(no_events_left);
}

TEST_F(LewTest, RefusesBadArguments)
{
    Calls calls;
    EXPECT_EQ(lc_err_unexpected_null,
              lew_event_reg_fd(nullptr, &ev_[0], 0, EV_READ, false, count_handler, &calls));
    EXPECT_EQ(lc_err_unexpected_null,
              lew_event_reg_fd(ctx_, nullptr, 0, EV_READ, false, count_handler, &calls));
    EXPECT_EQ(lc_err_unexpected_null,
              lew_event_reg_fd(ctx_, &ev_[0], 0, EV_READ, false, nullptr, &calls));
    EXPECT_EQ(lc_err_assertion_failed,
              lew_event_reg_fd(ctx_, &ev_[0], 0, EV_READ | EV_SIGNAL, false, count_handler,
                               &calls));
    EXPECT_EQ(nullptr, ev_[0]);
    EXPECT_EQ(lc_err_unexpected_null, lew_event_delete(ctx_, &ev_[0]));
    EXPECT_EQ(lc_err_unexpected_null, lew_event_reschedule(ctx_, &ev_[0]));
    EXPECT_EQ(lc_err_unexpected_null, lew_event_cancel(ctx_, nullptr));
}

// ---------------------------------------------------------------------------------------
// Descriptors, signals, nested rounds.

TEST_F(LewTest, FdReadinessThroughAPipe)
{
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, false, count_handler, &calls));
    tbool pending = false;
    ASSERT_EQ(0, lew_event_is_pending(ctx_, ev_[0], &pending, nullptr));
    EXPECT_TRUE(pending);

    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, nullptr, nullptr));
    EXPECT_EQ(0, calls.count);
    ASSERT_EQ(1, write(wfd, "x", 1));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(1, calls.count);
    EXPECT_EQ(rfd, calls.last_fd);
    EXPECT_EQ(EV_READ, calls.last_type);
    EXPECT_EQ(&calls, calls.last_data);
    // Not persistent: fired once, record kept.
    ASSERT_EQ(0, lew_event_is_pending(ctx_, ev_[0], &pending, nullptr));
    EXPECT_FALSE(pending);
    EXPECT_EQ(1u, num_events());

    // Persistent: fires every round while the byte is unread.
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, true, count_handler, &calls));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(3, calls.count);
}

TEST_F(LewTest, FdTimeoutFiresWithTimeoutType)
{
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_fd_timeout(ctx_, &ev_[0], rfd, EV_READ, false, count_handler,
                                          &calls, 5));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(1, calls.count);
    EXPECT_EQ(EV_TIMEOUT, calls.last_type);
    EXPECT_EQ(rfd, calls.last_fd);
}

TEST_F(LewTest, SuppressedReadInterestIsLeftOutOfTheWait)
{
    int rfd = -1;
    int wfd = -1;
    make_pipe(&rfd, &wfd);
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], rfd, EV_READ, true, count_handler, &calls));
    ASSERT_EQ(1, write(wfd, "x", 1));

    ASSERT_EQ(0, lew_suppress_read_fds(ctx_, true));
    tbool no_events_left = true;
    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, &no_events_left, nullptr));
    EXPECT_EQ(0, calls.count);
    EXPECT_FALSE(no_events_left);

    ASSERT_EQ(0, lew_suppress_read_fds(ctx_, false));
    ASSERT_EQ(0, lew_dispatch_nonblocking(ctx_, nullptr, nullptr));
    EXPECT_EQ(1, calls.count);
}

TEST_F(LewTest, SignalReachesItsEventThroughTheSelfPipe)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_signal(ctx_, &ev_[0], SIGUSR1, count_handler, &calls));
    ASSERT_EQ(0, lew_event_reg_signal(ctx_, &ev_[1], SIGCHLD, count_handler, &calls));

    StderrCapture cap;
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    std::string log = cap.take();
    EXPECT_EQ(1, calls.count);
    EXPECT_EQ(SIGUSR1, calls.last_fd);
    EXPECT_EQ(EV_SIGNAL, calls.last_type);
    const std::string line = "INFO]: libevent: received signal " + std::to_string(SIGUSR1) +
                             " (SIGUSR1), sent by pid " + std::to_string(getpid());
    EXPECT_NE(std::string::npos, log.find(line)) << log;

    // Persistent, and SIGCHLD is logged at debugging level.
    StderrCapture cap2;
    ASSERT_EQ(0, raise(SIGCHLD));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    ASSERT_EQ(0, raise(SIGUSR1));
    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    log = cap2.take();
    EXPECT_EQ(3, calls.count);
    EXPECT_NE(std::string::npos, log.find("DEBUG]: libevent: received signal " +
                                          std::to_string(SIGCHLD) + " (SIGCHLD)"))
        << log;
}

TEST(LewSignalDispositionTest, DeinitRestoresTheSignalAction)
{
    struct sigaction before = {};
    ASSERT_EQ(0, sigaction(SIGUSR2, nullptr, &before));
    lew_context *ctx = nullptr;
    lew_event *ev = nullptr;
    Calls calls;
    ASSERT_EQ(0, lew_init(&ctx));
    ASSERT_EQ(0, lew_event_reg_signal(ctx, &ev, SIGUSR2, count_handler, &calls));
    struct sigaction during = {};
    ASSERT_EQ(0, sigaction(SIGUSR2, nullptr, &during));
    EXPECT_NE(before.sa_handler, during.sa_handler);
    ASSERT_EQ(0, lew_deinit(&ctx));
    EXPECT_EQ(nullptr, ev);
    struct sigaction after = {};
    ASSERT_EQ(0, sigaction(SIGUSR2, nullptr, &after));
    EXPECT_EQ(before.sa_handler, after.sa_handler);
}

struct Nested {
    int write_fd = -1;
    Calls inner;
    int outer_count = 0;
    int err = -1;
};

// Wakes the other event and runs the loop inside this callback until it has run, as a
// client waiting for an answer does.
int nested_outer_handler(int fd, short event_type, void *data, lew_context *context)
{
    (void)fd;
    (void)event_type;
    Nested *n = static_cast<Nested *>(data);
    ++n->outer_count;
    if (write(n->write_fd, "y", 1) != 1) {
        return lc_err_io_error;
    }
    n->err = 0;
    while (n->inner.count == 0 && n->err == 0) {
        n->err = lew_dispatch_once(context, nullptr, nullptr);
    }
    return n->err;
}

TEST_F(LewTest, CallbackMayRunTheLoopNested)
{
    int r1 = -1;
    int w1 = -1;
    int r2 = -1;
    int w2 = -1;
    make_pipe(&r1, &w1);
    make_pipe(&r2, &w2);
    Nested n;
    n.write_fd = w2;
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[0], r1, EV_READ, false, nested_outer_handler, &n));
    ASSERT_EQ(0, lew_event_reg_fd(ctx_, &ev_[1], r2, EV_READ, false, count_handler, &n.inner));
    ASSERT_EQ(1, write(w1, "x", 1));

    ASSERT_EQ(0, lew_dispatch_once(ctx_, nullptr, nullptr));
    EXPECT_EQ(1, n.outer_count);
    EXPECT_EQ(0, n.err);
    EXPECT_EQ(1, n.inner.count);
    EXPECT_EQ(r2, n.inner.last_fd);
}

TEST_F(LewTest, DumpLogsEveryEvent)
{
    Calls calls;
    ASSERT_EQ(0, lew_event_reg_timer_full(ctx_, &ev_[0], "led timer", "led_to", count_handler,
                                          &calls, 20000));
    ASSERT_EQ(0, lew_event_reg_signal(ctx_, &ev_[1], SIGUSR2, count_handler, &calls));
    StderrCapture cap;
    ASSERT_EQ(0, lew_dump_all_events(LOG_NOTICE, "dump", ctx_));
    const std::string log = cap.take();
    EXPECT_NE(std::string::npos, log.find("dump: 2 events registered, 0 doomed, 0 automatic"));
    EXPECT_NE(std::string::npos, log.find("name led timer, handler led_to, fd -1")) << log;
    EXPECT_NE(std::string::npos, log.find("fd " + std::to_string(SIGUSR2) + ", type 0x18"))
        << log;
}

TEST(LewInitTest, ShowsTheMethodWhenAsked)
{
    ASSERT_EQ(0, setenv("EVENT_SHOW_METHOD", "1", 1));
    lew_context *ctx = nullptr;
    StderrCapture cap;
    ASSERT_EQ(0, lew_init(&ctx));
    const std::string out = cap.take();
    unsetenv("EVENT_SHOW_METHOD");
    EXPECT_NE(std::string::npos, out.find("libevent using: poll\n")) << out;
    ASSERT_EQ(0, lew_deinit(&ctx));
}

}  // namespace
