// The client wrapper on the event loop, against a management daemon played by the test on
// a real session of the same process: nested waits, the cap of outstanding requests, the
// sticky escape, time-outs, cancels, events that nobody waits for, and the loss of the
// session.
#include "mdc_test_harness.h"

#include <pthread.h>

#include <atomic>
#include <thread>

namespace {

using mdc_test::FakeMgmtd;
using mdc_test::MdcHarness;
using mdc_test::Node;

bool contains(const std::string &log, const std::string &needle)
{
    return log.find(needle) != std::string::npos;
}

// One client call made from a callback, and how it ended.
struct Call {
    std::string name;
    int err = -1;
    std::string value;
};

class MdcWrapperTest : public MdcHarness {
protected:
    void SetUp() override
    {
        MdcHarness::SetUp();
        mgmtd_.nodes["/outer"] = Node{bt_string, "outer value"};
        mgmtd_.nodes["/inner"] = Node{bt_string, "inner value"};
        mgmtd_.nodes["/plain"] = Node{bt_uint32, "3"};
    }

    // Connects with the event callback of this fixture and the start/complete recorders.
    void connect_with_events(const std::function<void(mdc_wrapper_params *)> &more = {})
    {
        connect([&](mdc_wrapper_params *p) {
            p->mwp_event_request_func = on_event;
            p->mwp_event_request_data = this;
            p->mwp_request_start_func = on_start;
            p->mwp_request_start_data = this;
            p->mwp_request_complete_func = on_complete;
            p->mwp_request_complete_data = this;
            if (more) {
                more(p);
            }
        });
    }

    // A get whose outcome is recorded in calls_.
    Call &get(const char *name)
    {
        Call fresh;
        fresh.name = name;
        calls_.push_back(fresh);
        const size_t slot = calls_.size() - 1;
        bn_binding *b = nullptr;
        const int err = mdc_get_binding(mcc_, nullptr, nullptr, false, &b, name, nullptr);
        Call &c = calls_[slot];
        c.err = err;
        if (b != nullptr) {
            char *v = nullptr;
            bn_binding_get_str(b, ba_value, bt_NONE, nullptr, &v);
            c.value = v != nullptr ? v : "";
            free(v);
            bn_binding_free(&b);
        }
        return c;
    }

    // Events from the daemon: "/poke" makes a nested get of poke_target_, "/cancel"
    // cancels every wait.
    static int on_event(gcl_session *, bn_request **inout_req, void *arg)
    {
        auto *self = static_cast<MdcWrapperTest *>(arg);
        const std::string name = mdc_test::request_name(*inout_req);
        self->events_seen_.push_back(name);
        if (name == "/poke") {
            self->get(self->poke_target_.c_str());
            if (self->after_inner_) {
                self->after_inner_();
            }
        } else if (name == "/cancel") {
            EXPECT_EQ(0, mdc_wrapper_cancel_all(self->mcc_, self->quiet_cancel_));
        }
        return 0;
    }

    static int on_start(md_client_context *, bn_request *req, tbool complete,
                        bn_response *resp, int32 index, void *arg)
    {
        auto *self = static_cast<MdcWrapperTest *>(arg);
        EXPECT_FALSE(complete);
        EXPECT_EQ(resp, nullptr);
        EXPECT_NE(req, nullptr);
        self->starts_.push_back(index);
        return 0;
    }

    static int on_complete(md_client_context *, bn_request *req, tbool complete,
                           bn_response *resp, int32 index, void *arg)
    {
        auto *self = static_cast<MdcWrapperTest *>(arg);
        EXPECT_TRUE(complete);
        self->completes_.push_back(index);
        self->complete_had_request_.push_back(req != nullptr);
        self->complete_had_response_.push_back(resp != nullptr);
        return 0;
    }

    std::vector<Call> calls_;
    std::vector<std::string> events_seen_;
    std::vector<int32> starts_;
    std::vector<int32> completes_;
    std::vector<bool> complete_had_request_;
    std::vector<bool> complete_had_response_;
    std::string poke_target_ = "/inner";
    std::function<void()> after_inner_;
    tbool quiet_cancel_ = false;
};

// ---------------------------------------------------------------------------------------
// Nesting.

TEST_F(MdcWrapperTest, NestedRequestsCompleteWhenTheOuterAnswerComesFirst)
{
    connect_with_events();
    mgmtd_.withhold = {"/outer", "/inner"};
    mgmtd_.on_request = [&](const bn_request *req) {
        const std::string name = mdc_test::request_name(req);
        if (name == "/outer") {
            mgmtd_.send_event("/poke");
        } else if (name == "/inner") {
            // The outer call's answer reaches the client while the inner call waits.
            mgmtd_.release(0);
            mgmtd_.release(0);
        }
    };
    const Call &outer = get("/outer");
    EXPECT_EQ(outer.err, 0);
    EXPECT_EQ(outer.value, "outer value");
    ASSERT_EQ(calls_.size(), 2u);
    EXPECT_EQ(calls_[1].err, 0);
    EXPECT_EQ(calls_[1].value, "inner value");
    EXPECT_EQ(starts_, (std::vector<int32>{0, 1}));
    EXPECT_EQ(completes_, (std::vector<int32>{1, 0}));
    EXPECT_EQ(outstanding_requests(), 0);
}

TEST_F(MdcWrapperTest, NestedRequestsCompleteWhenAnsweredInReverseOrder)
{
    connect_with_events();
    mgmtd_.withhold = {"/outer"};
    mgmtd_.on_request = [&](const bn_request *req) {
        if (mdc_test::request_name(req) == "/outer") {
            mgmtd_.send_event("/poke");
        }
    };
    // The inner call is answered at once; the outer one only after the inner returned.
    after_inner_ = [&] {
        EXPECT_EQ(outstanding_requests(), 1);
        mgmtd_.release(0);
    };
    const Call &outer = get("/outer");
    EXPECT_EQ(outer.err, 0);
    EXPECT_EQ(outer.value, "outer value");
    ASSERT_EQ(calls_.size(), 2u);
    EXPECT_EQ(calls_[1].err, 0);
    EXPECT_EQ(calls_[1].value, "inner value");
    EXPECT_EQ(outstanding_requests(), 0);
}

TEST_F(MdcWrapperTest, CancelDuringANestedWaitEndsBothCallsAndOnlyTheOutermostClearsIt)
{
    connect_with_events();
    mgmtd_.withhold = {"/outer", "/inner"};
    mgmtd_.on_request = [&](const bn_request *req) {
        const std::string name = mdc_test::request_name(req);
        if (name == "/outer") {
            mgmtd_.send_event("/poke");
        } else if (name == "/inner") {
            mgmtd_.send_event("/cancel");
        }
    };
    const Call &outer = get("/outer");
    EXPECT_EQ(outer.err, lc_err_cancelled_error);
    ASSERT_EQ(calls_.size(), 2u);
    EXPECT_EQ(calls_[1].err, lc_err_cancelled_error);
    EXPECT_EQ(calls_[1].value, "");
    EXPECT_EQ(outstanding_requests(), 0);

    // The cancel is over: the next call goes through.
    mgmtd_.on_request = nullptr;
    const Call &after = get("/plain");
    EXPECT_EQ(after.err, 0);
    EXPECT_EQ(after.value, "3");

    // A quiet cancel gives lc_err_cancelled.
    quiet_cancel_ = true;
    mgmtd_.withhold = {"/outer"};
    mgmtd_.on_request = [&](const bn_request *req) {
        if (mdc_test::request_name(req) == "/outer") {
            mgmtd_.send_event("/cancel");
        }
    };
    EXPECT_EQ(get("/outer").err, lc_err_cancelled);
}

// ---------------------------------------------------------------------------------------
// The cap of outstanding requests.

// Every get of "/deep" is held and answered with a poke, whose callback makes the next
// get; the call refused at the cap cancels all the others.
class MdcWrapperCapTest : public MdcWrapperTest {
protected:
    void run_chain(int32 cap)
    {
        connect_with_events([&](mdc_wrapper_params *p) {
            if (cap != 2000) {
                p->mwp_max_outstanding_reqs = cap;
            }
        });
        ASSERT_EQ(outstanding_requests(), 0);
        poke_target_ = "/deep";
        mgmtd_.withhold = {"/deep"};
        mgmtd_.on_request = [&](const bn_request *) { mgmtd_.send_event("/poke"); };
        after_inner_ = [&] {
            // Only the deepest callback acts; the others see the same last call unwinding.
            if (calls_.back().err == lc_err_limit_exceeded && deepest_outstanding_ < 0) {
                deepest_outstanding_ = outstanding_requests();
                EXPECT_EQ(0, mdc_wrapper_cancel_all(mcc_, false));
            }
        };
        testing::internal::CaptureStderr();
        get("/deep");
        log_ = testing::internal::GetCapturedStderr();
    }

    int32 deepest_outstanding_ = -1;
    std::string log_;
};

TEST_F(MdcWrapperCapTest, LowCapRefusesTheNextRequest)
{
    run_chain(3);
    ASSERT_EQ(calls_.size(), 4u);
    EXPECT_EQ(deepest_outstanding_, 3);
    EXPECT_EQ(calls_[3].err, lc_err_limit_exceeded);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(calls_[size_t(i)].err, lc_err_cancelled_error) << i;
    }
    EXPECT_EQ(mgmtd_.received.size(), 3u) << "the refused request never went out";
    EXPECT_TRUE(
        contains(log_, "Cannot send request; already have maximum 3 requests outstanding"));
    EXPECT_TRUE(contains(log_, "Number of outstanding requests: 3"));
    EXPECT_EQ(outstanding_requests(), 0);
}

// Two thousand nested waits need a deeper stack than a test's main thread has.  The loop
// belongs to the thread that made it, so the whole test runs on the big stack.
void *run_on_big_stack(void *arg)
{
    (*static_cast<std::function<void()> *>(arg))();
    return nullptr;
}

class MdcWrapperDeepCapTest : public MdcWrapperCapTest {
protected:
    void SetUp() override {}
    void TearDown() override {}
};

TEST_F(MdcWrapperDeepCapTest, DefaultCapIsTwoThousand)
{
    std::function<void()> body = [&] {
        MdcWrapperTest::SetUp();
        run_chain(2000);
        ASSERT_EQ(calls_.size(), 2001u);
        EXPECT_EQ(deepest_outstanding_, 2000);
        EXPECT_EQ(calls_.back().err, lc_err_limit_exceeded);
        size_t cancelled = 0;
        for (size_t i = 0; i + 1 < calls_.size(); ++i) {
            cancelled += calls_[i].err == lc_err_cancelled_error ? 1 : 0;
        }
        EXPECT_EQ(cancelled, 2000u);
        EXPECT_EQ(mgmtd_.received.size(), 2000u);
        EXPECT_TRUE(contains(
            log_, "Cannot send request; already have maximum 2000 requests outstanding"));
        EXPECT_EQ(outstanding_requests(), 0);
    };
    std::function<void()> whole = [&] {
        body();
        MdcHarness::TearDown();
    };
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, size_t(1) << 30);
    pthread_t tid;
    ASSERT_EQ(0, pthread_create(&tid, &attr, run_on_big_stack, &whole));
    pthread_join(tid, nullptr);
    pthread_attr_destroy(&attr);
}

// ---------------------------------------------------------------------------------------
// Sticky escape and time-out.

TEST_F(MdcWrapperTest, StickyEscapeDropsTheRequestWithALog)
{
    connect_with_events();
    const size_t before = mgmtd_.received.size();
    ASSERT_EQ(0, lew_escape_from_dispatch(lwc_, true));
    testing::internal::CaptureStderr();
    const Call &c = get("/plain");
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(c.err, lc_err_cancelled);
    EXPECT_TRUE(contains(log, "we are in a \"sticky escape\" from the libevent loop"));
    EXPECT_TRUE(contains(log, "DROPPED MSG"));
    EXPECT_TRUE(contains(log, "/plain"));
    EXPECT_TRUE(starts_.empty()) << "nothing was sent";

    ASSERT_EQ(0, lew_unescape_from_dispatch(lwc_));
    EXPECT_EQ(get("/plain").err, 0);
    EXPECT_EQ(mgmtd_.received.size(), before + 1);
}

TEST_F(MdcWrapperTest, TimeOutCancelsAndTheLateAnswerIsIgnored)
{
    connect_with_events([](mdc_wrapper_params *p) { p->mwp_timeout = 100; });
    mgmtd_.withhold = {"/outer"};
    testing::internal::CaptureStderr();
    const Call &c = get("/outer");
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(c.err, lc_err_io_timeout);
    EXPECT_TRUE(contains(
        log, "Timing out on mgmtd after 0.1 seconds, cancelling all outstanding requests"));
    EXPECT_EQ(outstanding_requests(), 0);
    ASSERT_EQ(mgmtd_.held.size(), 1u);

    const uint32 late_id = bn_request_get_msg_id(mgmtd_.held[0]);
    const uint64 frames = client_->gs_msg_received_frames;
    testing::internal::CaptureStderr();
    mgmtd_.release(0);
    const bool arrived = pump_until([&] { return client_->gs_msg_received_frames > frames; });
    log = testing::internal::GetCapturedStderr();
    ASSERT_TRUE(arrived);
    EXPECT_TRUE(contains(log, "Got query_response message: code 0, message: \"\""));
    EXPECT_TRUE(contains(log, "Got response to unrecognized message " +
                                  std::to_string(late_id) + "; ignoring"));

    // The next call has a fresh timer and no cancel pending.
    EXPECT_EQ(get("/plain").err, 0);
}

// ---------------------------------------------------------------------------------------
// Events and responses.

TEST_F(MdcWrapperTest, EventIsNotAwaitedAndItsAcknowledgementLowersTheCount)
{
    connect_with_events();
    ASSERT_EQ(0, mdc_send_event_with_bindings_str_va(mcc_, nullptr, nullptr, "/ev/one", 1,
                                                     "x", bt_uint32, "1"));
    EXPECT_EQ(outstanding_events(), 1);
    EXPECT_EQ(outstanding_requests(), 0);
    EXPECT_EQ(starts_, std::vector<int32>{0});
    EXPECT_TRUE(completes_.empty()) << "the send itself reports no completion";

    ASSERT_TRUE(pump_until([&] { return outstanding_events() == 0; }));
    ASSERT_EQ(completes_, std::vector<int32>{-1});
    EXPECT_FALSE(complete_had_request_[0]);
    EXPECT_TRUE(complete_had_response_[0]);
    EXPECT_EQ(mdc_test::request_name(mgmtd_.received.back()), "/ev/one");
}

// ---------------------------------------------------------------------------------------
// A wrapper that makes its own handle, as the daemon's does.  The daemon's side runs on a
// handle of its own, driven by a helper thread only while the wrapper's blocking hand-shake
// runs, and joined to the same loop after it.

int count_close(int, fdic_callback_type type, void *, void *arg)
{
    if (type == fct_close) {
        ++*static_cast<int *>(arg);
    }
    return 0;
}

class MdcWrapperOwnHandleTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("mdc_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }

    void SetUp() override
    {
        char tmpl[] = "/tmp/mdc_own_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        std::filesystem::create_directories(root_ + GCL_SOCK_DIR);
        ASSERT_EQ(0, gcl_set_sock_root_prefix(root_.c_str()));
        ASSERT_EQ(0, lew_init(&lwc_));

        ASSERT_EQ(0, fdic_init(&pfich_, nullptr, nullptr));
        gcl_global_options opts;
        ASSERT_EQ(0, gcl_options_get_defaults(&opts));
        strlcpy(opts.ggo_handle_id, "p", sizeof(opts.ggo_handle_id));
        ASSERT_EQ(0, gcl_init(&pgh_, &opts, pfich_));
        gcl_provider_options popts;
        ASSERT_EQ(0, gcl_provider_options_get_defaults(&popts));
        popts.gpo_accepted_func = FakeMgmtd::on_accepted;
        popts.gpo_accepted_arg = &mgmtd_;
        ASSERT_EQ(0, gcl_session_provider_new(pgh_, "mgmtd", &popts, nullptr, 0, &listener_));
        ASSERT_EQ(0, gcl_session_provider_enable(listener_));
        mgmtd_.nodes["/sys/name"] = Node{bt_string, "own"};

        mdc_wrapper_params *params = nullptr;
        ASSERT_EQ(0, mdc_wrapper_params_get_defaults(&params));
        params->mwp_lew_context = lwc_;
        params->mwp_gcl_client = "IB Daemon";
        params->mwp_gcl_handle_id = "c";
        params->mwp_session_close_func = count_close;
        params->mwp_session_close_data = &closed_;

        std::atomic<bool> init_done{false};
        std::thread daemon([&] {
            while (!init_done) {
                gcl_session_do_blocking_io(pgh_, listener_, false, false, true, false,
                                           gbp_none, 20);
            }
        });
        const int err = mdc_wrapper_init(params, &mcc_);
        init_done = true;
        daemon.join();
        mdc_wrapper_params_free(&params);
        ASSERT_EQ(0, err);

        // From now on the daemon's side is driven by the loop too.
        event_context *ec = nullptr;
        ASSERT_EQ(0, lew_get_event_context(lwc_, &ec));
        ASSERT_EQ(0, fdic_libevent_init(ec, &pflc_));
        pfich_->fh_register_event_func = fdic_libevent_callback;
        pfich_->fh_register_event_arg = pflc_;
        fdic_event_array *all = nullptr;
        ASSERT_EQ(0, fdic_events_query(pfich_, &all));
        ASSERT_EQ(0, fdic_libevent_callback(all, pflc_));
        fdic_event_array_free(&all);
    }

    void TearDown() override
    {
        EXPECT_EQ(0, mdc_wrapper_deinit(&mcc_));
        EXPECT_EQ(0, gcl_deinit(&pgh_));
        EXPECT_EQ(0, fdic_deinit(&pfich_));
        EXPECT_EQ(0, fdic_libevent_deinit(&pflc_));
        EXPECT_EQ(0, lew_deinit(&lwc_));
        gcl_set_sock_root_prefix(nullptr);
        std::filesystem::remove_all(root_);
    }

    bool pump_until(const std::function<bool()> &done)
    {
        const lt_time_ms start = lt_sys_uptime_ms();
        while (!done()) {
            if (lt_sys_uptime_ms() - start > 10000) {
                return false;
            }
            lew_dispatch_nonblocking(lwc_, nullptr, nullptr);
            usleep(500);
        }
        return true;
    }

    std::string root_;
    lew_context *lwc_ = nullptr;
    fdic_handle *pfich_ = nullptr;
    fdic_libevent_context *pflc_ = nullptr;
    gcl_handle *pgh_ = nullptr;
    gcl_session *listener_ = nullptr;
    md_client_context *mcc_ = nullptr;
    int closed_ = 0;
    FakeMgmtd mgmtd_;
};

TEST_F(MdcWrapperOwnHandleTest, RequestsWorkAndTheSessionCloseIsReported)
{
    fdic_handle *fich = nullptr;
    ASSERT_EQ(0, mdc_wrapper_get_fdic_handle(mcc_, &fich));
    EXPECT_NE(fich, nullptr);
    gcl_session *sess = nullptr;
    ASSERT_EQ(0, mdc_wrapper_get_gcl_session(mcc_, &sess));
    ASSERT_NE(sess, nullptr);
    EXPECT_EQ(sess->gs_gcl_handle->gh_fich, fich);
    EXPECT_STREQ(sess->gs_gcl_handle->gh_id, "c");

    tstring *value = nullptr;
    ASSERT_EQ(0, mdc_get_binding_tstr(mcc_, nullptr, nullptr, nullptr, &value, "/sys/name",
                                      nullptr));
    EXPECT_STREQ(ts_str_maybe_empty(value), "own");
    ts_free(&value);
    EXPECT_EQ(closed_, 0);

    ASSERT_NE(mgmtd_.sess, nullptr);
    ASSERT_EQ(0, gcl_session_close(mgmtd_.sess, false));
    EXPECT_TRUE(pump_until([&] { return closed_ > 0; }));
    EXPECT_EQ(closed_, 1);
}

TEST_F(MdcWrapperOwnHandleTest, DisconnectClosesTheSessionAndCancelsQuietly)
{
    gcl_session *sess = nullptr;
    ASSERT_EQ(0, mdc_wrapper_get_gcl_session(mcc_, &sess));
    ASSERT_EQ(0, mdc_wrapper_disconnect(mcc_, true));
    gcl_session_state state = gss_none;
    ASSERT_EQ(0, gcl_session_get_state(sess, &state, nullptr));
    EXPECT_EQ(state, gss_closed);

    // The quiet cancel left by the disconnect ends the next call before anything is sent.
    const size_t before = mgmtd_.received.size();
    bn_binding *b = nullptr;
    EXPECT_EQ(lc_err_cancelled,
              mdc_get_binding(mcc_, nullptr, nullptr, false, &b, "/sys/name", nullptr));
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(mgmtd_.received.size(), before);
}

}  // namespace
