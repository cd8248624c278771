// A management daemon played by the test, on the provider side of a real session in this
// process, and a fixture that connects the client wrapper to it over one GCL handle driven
// by one event loop.  The daemon keeps a few nodes, answers queries, sets, actions and
// events, can refuse by name, and can hold back the answers to chosen names.
#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "bnode_session.h"
#include "event_fdintrcb.h"
#include "gcl.h"
#include "gcl_provider.h"
#include "libevent_wrapper.h"
#include "logging.h"
#include "mdc_main.h"
#include "mdc_wrapper.h"
#include "ttime.h"

namespace mdc_test {

struct Node {
    bn_type type;
    std::string value;
};

// The name a request is about: its first node's, or the action's or event's.
inline std::string request_name(const bn_request *req)
{
    tstring *name = nullptr;
    std::string out;
    if (bn_request_get_msg_type(req) == bbmt_action_request) {
        bn_action_request_msg_get_action_name(req, &name);
    } else if (bn_request_get_msg_type(req) == bbmt_event_request) {
        bn_event_request_msg_get_event_name(req, &name);
    } else if (const bn_request_per_node *n = bn_request_get_nth_node_const(req, 0);
               n != nullptr && n->brn_binding != nullptr) {
        out = ts_str(bn_binding_get_name_quick(n->brn_binding));
    }
    if (name != nullptr) {
        out = ts_str(name);
        ts_free(&name);
    }
    return out;
}

class FakeMgmtd {
public:
    ~FakeMgmtd()
    {
        for (bn_request *r : received) {
            bn_request_msg_free(&r);
        }
    }

    std::map<std::string, Node> nodes;
    std::map<std::string, std::pair<uint32, std::string>> refusals;  // by request name
    std::set<std::string> withhold;                                 // names not answered
    std::vector<bn_request *> received;                             // every request, owned
    std::vector<bn_request *> held;                                 // unanswered ones
    // Runs after each request was answered or held.
    std::function<void(const bn_request *)> on_request;
    gcl_session *sess = nullptr;                                    // the accepted session
    int32 revision = 42;

    // Answers a request as the daemon would.
    void answer(const bn_request *req)
    {
        const std::string name = request_name(req);
        const bn_msg_type type = bn_request_get_msg_type(req);
        uint32 code = 0;
        std::string msg;
        if (auto it = refusals.find(name); it != refusals.end()) {
            code = it->second.first;
            msg = it->second.second;
        }
        bn_response *resp = nullptr;
        ASSERT_EQ(0, bn_response_msg_create(&resp, static_cast<bn_msg_type>(type + 1),
                                            bn_request_get_msg_id(req), code,
                                            msg.empty() ? nullptr : msg.c_str()));
        if (type == bbmt_query_request && code == 0) {
            resp->brs_body_settings.brsbs_query.bqrsb_db_revision_id = revision;
            for (uint32 i = 0; i < bn_request_get_num_nodes(req); ++i) {
                const bn_request_per_node *n = bn_request_get_nth_node_const(req, i);
                const std::string nn = ts_str(bn_binding_get_name_quick(n->brn_binding));
                const bn_query_request_per_node &q = n->brn_node_settings.brns_query;
                for (const auto &[path, node] : nodes) {
                    bool want = false;
                    if (q.bqn_query_subop == bqso_get) {
                        want = path == nn;
                    } else if (path == nn) {
                        want = (q.bqn_query_flags & bqnf_sel_iterate_include_self) != 0;
                    } else if (path.rfind(nn + "/", 0) == 0) {
                        want = (q.bqn_query_flags & bqnf_sel_iterate_subtree) != 0 ||
                               path.find('/', nn.size() + 1) == std::string::npos;
                    }
                    if (!want) {
                        continue;
                    }
                    bn_binding *b = nullptr;
                    ASSERT_EQ(0, bn_binding_new_str(&b, path.c_str(), ba_value, node.type, 0,
                                                    node.value.c_str()));
                    ASSERT_EQ(0, bn_response_msg_append_binding_takeover(resp, &b,
                                                                         n->brn_node_id));
                }
            }
        }
        bn_response_set_service_id(resp, bap_service_mgmt);
        EXPECT_EQ(0, bn_response_msg_send(sess, resp));
        bn_response_msg_free(&resp);
    }

    // Answers the held request at `idx` (counted from the oldest) and forgets it.
    void release(size_t idx)
    {
        ASSERT_LT(idx, held.size());
        const bn_request *req = held[idx];
        held.erase(held.begin() + long(idx));
        answer(req);
    }

    // Sends an event request to the client; its acknowledgement is not awaited.
    void send_event(const char *event_name)
    {
        bn_request *ev = nullptr;
        ASSERT_EQ(0, bn_event_request_msg_create(&ev, event_name));
        EXPECT_EQ(0, bn_request_msg_send(sess, ev));
        bn_request_msg_free(&ev);
    }

    static int on_request_cb(gcl_session *, bn_request **inout_req, void *arg)
    {
        auto *self = static_cast<FakeMgmtd *>(arg);
        bn_request *req = *inout_req;
        *inout_req = nullptr;
        self->received.push_back(req);
        if (self->withhold.count(request_name(req)) != 0) {
            self->held.push_back(req);
        } else {
            self->answer(req);
        }
        if (self->on_request) {
            self->on_request(req);
        }
        return 0;
    }

    static int on_accepted(gcl_session *, gcl_session *new_sess, void *arg)
    {
        auto *self = static_cast<FakeMgmtd *>(arg);
        self->sess = new_sess;
        bn_set_session_callback_query_request_msg(new_sess, on_request_cb, self);
        bn_set_session_callback_set_request_msg(new_sess, on_request_cb, self);
        bn_set_session_callback_action_request_msg(new_sess, on_request_cb, self);
        bn_set_session_callback_event_request_msg(new_sess, on_request_cb, self);
        return 0;
    }
};

// The loop, one GCL handle on it holding both the daemon's listening socket and the
// client session, and the wrapper's client context.
class MdcHarness : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lc_log_init("mdc_test", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    }

    void SetUp() override
    {
        char tmpl[] = "/tmp/mdc_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        std::filesystem::create_directories(root_ + GCL_SOCK_DIR);
        ASSERT_EQ(0, gcl_set_sock_root_prefix(root_.c_str()));

        ASSERT_EQ(0, lew_init(&lwc_));
        event_context *ec = nullptr;
        ASSERT_EQ(0, lew_get_event_context(lwc_, &ec));
        ASSERT_EQ(0, fdic_libevent_init(ec, &flc_));
        ASSERT_EQ(0, fdic_init(&fich_, fdic_libevent_callback, flc_));
        gcl_global_options opts;
        ASSERT_EQ(0, gcl_options_get_defaults(&opts));
        strlcpy(opts.ggo_handle_id, "t", sizeof(opts.ggo_handle_id));
        ASSERT_EQ(0, gcl_init(&gh_, &opts, fich_));

        gcl_provider_options popts;
        ASSERT_EQ(0, gcl_provider_options_get_defaults(&popts));
        popts.gpo_accepted_func = FakeMgmtd::on_accepted;
        popts.gpo_accepted_arg = &mgmtd_;
        ASSERT_EQ(0, gcl_session_provider_new(gh_, gcl_provider_mgmtd, &popts, nullptr, 0,
                                              &listener_));
        ASSERT_EQ(0, gcl_session_provider_enable(listener_));
    }

    // Makes the wrapper on the shared handle; `tweak` adjusts the parameters first.
    void connect(const std::function<void(mdc_wrapper_params *)> &tweak = {})
    {
        mdc_wrapper_params *params = nullptr;
        ASSERT_EQ(0, mdc_wrapper_params_get_defaults(&params));
        params->mwp_lew_context = lwc_;
        params->mwp_init_gcl = false;
        params->mwp_gcl_handle = gh_;
        params->mwp_gcl_client = "IB Daemon";
        if (tweak) {
            tweak(params);
        }
        const int err = mdc_wrapper_init(params, &mcc_);
        mdc_wrapper_params_free(&params);
        ASSERT_EQ(0, err);
        ASSERT_NE(mcc_, nullptr);
        ASSERT_NE(mgmtd_.sess, nullptr);
        ASSERT_EQ(0, mdc_wrapper_get_gcl_session(mcc_, &client_));
    }

    void TearDown() override
    {
        EXPECT_EQ(0, mdc_wrapper_deinit(&mcc_));
        EXPECT_EQ(0, gcl_deinit(&gh_));
        EXPECT_EQ(0, fdic_deinit(&fich_));
        EXPECT_EQ(0, fdic_libevent_deinit(&flc_));
        EXPECT_EQ(0, lew_deinit(&lwc_));
        gcl_set_sock_root_prefix(nullptr);
        std::filesystem::remove_all(root_);
    }

    // Runs the loop without blocking until `done` holds; false after 10 s.
    bool pump_until(const std::function<bool()> &done)
    {
        const lt_time_ms start = lt_sys_uptime_ms();
        while (!done()) {
            if (lt_sys_uptime_ms() - start > 10000) {
                return false;
            }
            tbool none_left = false;
            tbool escaped = false;
            lew_dispatch_nonblocking(lwc_, &none_left, &escaped);
            usleep(500);
        }
        return true;
    }

    int32 outstanding_events() const
    {
        int32 n = -1;
        EXPECT_EQ(0, mdc_wrapper_get_num_outstanding_events(mcc_, &n));
        return n;
    }

    int32 outstanding_requests() const
    {
        int32 n = -1;
        EXPECT_EQ(0, mdc_wrapper_get_num_outstanding_requests(mcc_, &n));
        return n;
    }

    std::string root_;
    lew_context *lwc_ = nullptr;
    fdic_libevent_context *flc_ = nullptr;
    fdic_handle *fich_ = nullptr;
    gcl_handle *gh_ = nullptr;
    gcl_session *listener_ = nullptr;
    gcl_session *client_ = nullptr;
    md_client_context *mcc_ = nullptr;
    FakeMgmtd mgmtd_;
};

// The node of a request at `idx`, for checks of what went out.
inline const bn_request_per_node *request_node(const bn_request *req, uint32 idx)
{
    return bn_request_get_nth_node_const(req, idx);
}

}  // namespace mdc_test
