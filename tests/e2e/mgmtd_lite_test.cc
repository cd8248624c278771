// The stand-in configuration daemon and its command-line client as real processes, each
// test on a socket tree of its own: the database, sets with their change notifications,
// event relay, forwarding to the owner of /ib/state and /ib/actions (played by mgmtctl
// that never answers, or by a client session of this test that does), and the ways out.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bnode_proto.h"
#include "bnode_session.h"
#include "bnode_types.h"
#include "fdintrcb.h"
#include "gcl.h"
#include "libevent_wrapper.h"
#include "logging.h"
#include "mdc_main.h"
#include "mdc_misc.h"
#include "mdc_remote_reg.h"
#include "mdc_wrapper.h"
#include "sandbox.h"
#include "stand_ins.h"
#include "tstr_array.h"

namespace {

using namespace std::chrono_literals;

using ovd_test::CtlResult;
using ovd_test::read_file;
using ovd_test::start_redirected;
using ovd_test::wait_for_text;
using ovd_test::write_file;

const char kConfig[] =
    "# a test database\n"
    "/system/hostname       hostname  test-switch\n"
    "\n"
    "/ib/config/externalports/1/speed  uint8   255\n"
    "/ib/config/externalports/1/mtu    string  -1\n"
    "/ib/config/externalports/2/speed  uint8   4\n"
    "/ib/config/locallinks/time_to_settle time_sec 00:02:30\n"
    "/misc/flag             tbool     true\n"
    "/misc/text             string    two words  \n";

const char kRegistration[] =
    "# owner and nodes\n"
    "client IB Daemon\n"
    "caps monitor\n"
    "/ib/state/devid/*\n"
    "/ib/state/devid/*/max-hw-cap-speed\n"
    "caps admin,monitor\n"
    "/ib/state/externalports/*   unpriv\n"
    "/ib/state/externalports/*/state\n"
    "/ib/state/externalports/*/speed\n"
    "/ib/actions/print-dev\n";

class MgmtdLiteTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/mgmtd_lite_test.XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        root_ = tmpl;
        write_file(root_ + "/db.conf", kConfig);
        write_file(root_ + "/ib.reg", kRegistration);
        env_ = std::make_unique<ovd_test::MgmtdLite>(MGMTD_LITE_BIN, MGMTCTL_BIN, root_, root_);
    }

    void TearDown() override
    {
        if (env_ != nullptr && env_->running()) {
            EXPECT_EQ(0, env_->stop()) << "mgmtd-lite did not end cleanly:\n" << lite_log();
        }
        env_.reset();
        std::filesystem::remove_all(root_);
    }

    std::string lite_log() const { return read_file(root_ + "/lite.err"); }

    void start_lite(const std::vector<std::string> &extra = {})
    {
        std::vector<std::string> args = {"--config", root_ + "/db.conf", "--registration",
                                         root_ + "/ib.reg"};
        args.insert(args.end(), extra.begin(), extra.end());
        ASSERT_TRUE(env_->start(args)) << lite_log();
    }

    ovd_test::Child *lite() { return env_->child(); }
    ovd_test::Child *waiter_child(size_t i) { return env_->waiter(i); }
    std::vector<std::string> ctl_argv(const std::vector<std::string> &args) const
    {
        return env_->ctl_argv(args);
    }
    CtlResult ctl(const std::vector<std::string> &args) { return env_->ctl(args); }
    // A mgmtctl left running (wait-event); its files are <base>.out and <base>.err.
    std::string start_waiter(const std::vector<std::string> &args)
    {
        const std::string base = env_->start_waiter(args);
        EXPECT_NE(read_file(base + ".err").find("waiting for event"), std::string::npos)
            << read_file(base + ".err");
        return base;
    }

    std::string root_;
    std::unique_ptr<ovd_test::MgmtdLite> env_;
    int runs_ = 0;
};

// ---------------------------------------------------------------------------------------
// The database.

TEST_F(MgmtdLiteTest, ReadsTheLoadedDatabase)
{
    start_lite();

    CtlResult r = ctl({"get", "/system/hostname"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/system/hostname  hostname  test-switch\n", r.out);

    r = ctl({"--json", "get", "/misc/text"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("{\"code\":0,\"bindings\":[{\"name\":\"/misc/text\",\"type\":\"string\","
              "\"value\":\"two words\"}]}\n",
              r.out);

    r = ctl({"get", "/misc/flag"});
    EXPECT_NE(r.out.find("bool  true"), std::string::npos) << r.out;

    // An inner node exists, without a value.
    r = ctl({"get", "/ib/config/externalports/1"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ(0u, r.out.find("/ib/config/externalports/1")) << r.out;

    r = ctl({"get", "/ib/config/externalports/3"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("no node /ib/config/externalports/3"), std::string::npos) << r.err;

    // Children only, then the whole subtree, then its leaves with the node itself.
    r = ctl({"iterate", "/ib/config/externalports"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/config/externalports/1  -  \n/ib/config/externalports/2  -  \n", r.out);

    r = ctl({"--json", "iterate", "/ib/config", "--subtree", "--leaf-only"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("{\"code\":0,\"bindings\":["
              "{\"name\":\"/ib/config/externalports/1/mtu\",\"type\":\"string\",\"value\":\"-1\"},"
              "{\"name\":\"/ib/config/externalports/1/speed\",\"type\":\"uint8\","
              "\"value\":\"255\"},"
              "{\"name\":\"/ib/config/externalports/2/speed\",\"type\":\"uint8\",\"value\":\"4\"},"
              "{\"name\":\"/ib/config/locallinks/time_to_settle\",\"type\":\"time_sec\","
              "\"value\":\"00:02:30\"}]}\n",
              r.out);

    r = ctl({"iterate", "/ib/config/externalports/2", "--include-self", "--subtree"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/config/externalports/2        -      \n"
              "/ib/config/externalports/2/speed  uint8  4\n",
              r.out);

    EXPECT_NE(lite_log().find("query from 'mgmtctl': iterate /ib/config/externalports/2 "
                              "flags=0x3000"),
              std::string::npos)
        << lite_log();
}

TEST_F(MgmtdLiteTest, BadConfigurationLinesStopTheStart)
{
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"/a uint32 12\n/b uint32 twelve\n", "db.conf:2: bad uint32 value 'twelve' for /b"},
        {"/a sometype 1\n", "db.conf:1: unknown type 'sometype' for /a"},
        {"relative uint32 1\n", "db.conf:1: bad node name 'relative'"},
        {"/a uint8 1\n/a uint8 2\n", "db.conf:2: /a is given twice"},
    };
    for (const auto &one : cases) {
        write_file(root_ + "/db.conf", one.first);
        ovd_test::Child child;
        ASSERT_TRUE(start_redirected(&child,
                                     {MGMTD_LITE_BIN, "--sock-root", root_, "--config",
                                      root_ + "/db.conf"},
                                     root_ + "/bad.out", root_ + "/bad.err"));
        EXPECT_EQ(2, child.wait(30s)) << one.first;
        EXPECT_NE(read_file(root_ + "/bad.err").find(one.second), std::string::npos)
            << read_file(root_ + "/bad.err");
    }

    const std::vector<std::pair<std::string, std::string>> bad_files = {
        {"/ib/state/x\nnot a name\n", "ib.reg:2: bad line 'not a name'"},
        {"caps admin,nobody\n/ib/state/x\n", "ib.reg:1: bad capability groups 'admin,nobody'"},
        {"/ib/state/x admin monitor\n", "ib.reg:1: bad capability groups 'admin monitor'"},
        {"caps\n", "ib.reg:1: bad capability groups ''"},
    };
    for (const auto &one : bad_files) {
        write_file(root_ + "/ib.reg", one.first);
        ovd_test::Child child;
        ASSERT_TRUE(start_redirected(&child,
                                     {MGMTD_LITE_BIN, "--sock-root", root_, "--registration",
                                      root_ + "/ib.reg"},
                                     root_ + "/bad.out", root_ + "/bad.err"));
        EXPECT_EQ(2, child.wait(30s)) << one.first;
        EXPECT_NE(read_file(root_ + "/bad.err").find(one.second), std::string::npos)
            << read_file(root_ + "/bad.err");
    }
}

TEST_F(MgmtdLiteTest, BundledDemoFilesLoad)
{
    ASSERT_TRUE(std::filesystem::copy_file(std::string(OVD_DEMO_DIR) + "/mgmtd-lite.conf",
                                           root_ + "/db.conf",
                                           std::filesystem::copy_options::overwrite_existing));
    ASSERT_TRUE(std::filesystem::copy_file(std::string(OVD_DEMO_DIR) + "/ib-state.reg",
                                           root_ + "/ib.reg",
                                           std::filesystem::copy_options::overwrite_existing));
    start_lite();
    EXPECT_NE(lite_log().find("names registered for 'IB Daemon'"), std::string::npos);

    // What the daemon reads at its start is there, with the types it reads it as.
    const std::vector<std::pair<std::string, std::string>> wanted = {
        {"/system/chassis/ha/state/system_type_mirror", "uint32"},
        {"/system/chassis/config/profile", "uint8"},
        {"/system/hostname", "hostname"},
        {"/ib/config/locallinks/time_to_settle", "time_sec"},
    };
    for (const auto &one : wanted) {
        const CtlResult r = ctl({"--json", "get", one.first});
        EXPECT_EQ(0, r.code) << one.first << r.err;
        EXPECT_NE(r.out.find("\"type\":\"" + one.second + "\""), std::string::npos) << r.out;
    }
}

// ---------------------------------------------------------------------------------------
// Sets and their notifications.

TEST_F(MgmtdLiteTest, SetsChangeTheDatabaseAndNotifyByPattern)
{
    start_lite();
    const std::string config_waiter =
        start_waiter({"wait-event", "/mgmtd/notify/dbchange", "--match", "/ib/config/**",
                      "--timeout", "60"});
    const std::string any_waiter =
        start_waiter({"wait-event", "/mgmtd/notify/dbchange", "--timeout", "60"});

    // Refusals change nothing and notify nobody.
    CtlResult r = ctl({"set", "/ib/config/externalports/1/speed", "uint8", "8", "--create"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("code 14005: node /ib/config/externalports/1/speed already exists"),
              std::string::npos)
        << r.err;
    r = ctl({"set", "/ib/config/externalports/1/speed", "uint8", "300"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("code 14022: bad value"), std::string::npos) << r.err;
    r = ctl({"delete", "/ib/config/externalports/7"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("code 14004: no node /ib/config/externalports/7 to delete"),
              std::string::npos)
        << r.err;

    // Outside the first waiter's pattern: only the second one hears of it.
    r = ctl({"set", "/system/contact", "string", "ops team", "--create"});
    EXPECT_EQ(0, r.code) << r.err;
    ASSERT_EQ(0, waiter_child(1)->wait(30s));
    EXPECT_EQ("/mgmtd/notification/dbchange/1                    uint32  1\n"
              "/mgmtd/notification/dbchange/1/change_type        string  add\n"
              "/mgmtd/notification/dbchange/1/name               string  /system/contact\n"
              "/mgmtd/notification/dbchange/1/new_attribs/value  string  ops team\n",
              read_file(any_waiter + ".out"));

    r = ctl({"set", "/ib/config/externalports/1/speed", "uint8", "8"});
    EXPECT_EQ(0, r.code) << r.err;
    ASSERT_EQ(0, waiter_child(0)->wait(30s));
    EXPECT_EQ("/mgmtd/notification/dbchange/1                     uint32  1\n"
              "/mgmtd/notification/dbchange/1/change_type         string  modify\n"
              "/mgmtd/notification/dbchange/1/name                string  "
              "/ib/config/externalports/1/speed\n"
              "/mgmtd/notification/dbchange/1/new_attribs/value   uint8   8\n"
              "/mgmtd/notification/dbchange/1/prev_attribs/value  uint8   255\n",
              read_file(config_waiter + ".out"));
    EXPECT_EQ("/ib/config/externalports/1/speed  uint8  8\n",
              ctl({"get", "/ib/config/externalports/1/speed"}).out);

    // A delete of an inner node takes its subtree, and says so node by node.
    const std::string delete_waiter = start_waiter(
        {"--json", "wait-event", "/mgmtd/notify/dbchange", "--match", "/ib/config/*/1/*"});
    r = ctl({"delete", "/ib/config/externalports/1"});
    EXPECT_EQ(0, r.code) << r.err;
    ASSERT_EQ(0, waiter_child(2)->wait(30s));
    const std::string deleted = read_file(delete_waiter + ".out");
    EXPECT_NE(deleted.find("{\"name\":\"/mgmtd/notification/dbchange/1/change_type\","
                           "\"type\":\"string\",\"value\":\"delete\"}"),
              std::string::npos)
        << deleted;
    EXPECT_NE(deleted.find("\"/mgmtd/notification/dbchange/2/prev_attribs/value\",\"type\":"
                           "\"uint8\",\"value\":\"8\""),
              std::string::npos)
        << deleted;
    EXPECT_EQ(std::string::npos, deleted.find("new_attribs")) << deleted;
    EXPECT_EQ(1, ctl({"get", "/ib/config/externalports/1/mtu"}).code);

    // A reset goes back to the loaded value.
    r = ctl({"reset", "/ib/config/externalports/1/speed"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/config/externalports/1/speed  uint8  255\n",
              ctl({"get", "/ib/config/externalports/1/speed"}).out);

    EXPECT_NE(lite_log().find("set from 'mgmtctl': modify /ib/config/externalports/1/speed="
                              "uint8:8"),
              std::string::npos);
    EXPECT_NE(lite_log().find("action /mgmtd/events/actions/interest/add from 'mgmtctl': "
                              "event_name=name:/mgmtd/notify/dbchange "
                              "match/1/pattern=string:/ib/config/**"),
              std::string::npos)
        << lite_log();
}

// ---------------------------------------------------------------------------------------
// Events.

TEST_F(MgmtdLiteTest, EventsAreAcknowledgedAndRelayedToTheInterested)
{
    start_lite();
    const std::string waiter = start_waiter({"wait-event", "/portd/events/ib-device-add"});

    // Nobody wants this one: it is acknowledged all the same.
    CtlResult r = ctl({"event", "/ib/events/init-done", "status=uint32:0"});
    EXPECT_EQ(0, r.code) << r.err;

    r = ctl({"event", "/portd/events/ib-device-add", "dev_id=uint32:3", "is_master=bool:true",
             "ifindex_1=uint32:17"});
    EXPECT_EQ(0, r.code) << r.err;
    ASSERT_EQ(0, waiter_child(0)->wait(30s));
    EXPECT_EQ("dev_id     uint32  3\n"
              "is_master  bool    true\n"
              "ifindex_1  uint32  17\n",
              read_file(waiter + ".out"));

    const std::string log = lite_log();
    EXPECT_NE(log.find("event /ib/events/init-done from 'mgmtctl': status=uint32:0"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("event /portd/events/ib-device-add from 'mgmtctl': dev_id=uint32:3 "
                       "is_master=bool:true ifindex_1=uint32:17"),
              std::string::npos);
    EXPECT_NE(log.find("relay event /portd/events/ib-device-add to 'mgmtctl'"),
              std::string::npos);
    EXPECT_EQ(std::string::npos, log.find("relay event /ib/events/init-done"));

    // The port learnt from the event is an instance of the external port families now.
    r = ctl({"iterate", "/ib/state/externalports"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/state/externalports/1   string  1\n"
              "/ib/state/externalports/2   string  2\n"
              "/ib/state/externalports/17  string  17\n",
              r.out);
}

// ---------------------------------------------------------------------------------------
// Forwarding to the owner.

TEST_F(MgmtdLiteTest, RequestsForAnAbsentOwnerFailAtOnce)
{
    start_lite();
    CtlResult r = ctl({"action", "/ib/actions/print-dev"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("code 14004: no client 'IB Daemon' is connected to answer action "
                         "/ib/actions/print-dev"),
              std::string::npos)
        << r.err;

    r = ctl({"--json", "get", "/ib/state/devid/1"});
    EXPECT_EQ(1, r.code);
    EXPECT_EQ("{\"code\":14004,\"message\":\"no client 'IB Daemon' is connected to answer get "
              "/ib/state/devid/1\"}\n",
              r.out);

    r = ctl({"action", "/not/an/action", "x=uint32:1"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("unknown action /not/an/action"), std::string::npos) << r.err;

    // The test hook, for a client that isn't there.
    r = ctl({"action", "/mgmtd-lite/actions/send-garbage", "client=string:nobody"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("no client 'nobody' is connected"), std::string::npos) << r.err;
}

TEST_F(MgmtdLiteTest, AnOwnerThatNeverAnswersGivesATimeout)
{
    start_lite({"--forward-timeout", "0.5"});
    const std::string owner = start_waiter(
        {"--client-name", "IB Daemon", "wait-event", "/never/sent", "--timeout", "120"});
    EXPECT_NE(lite_log().find("client 'IB Daemon' connected"), std::string::npos);

    CtlResult r = ctl({"action", "/ib/actions/install-max-ports-speed"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("code 14017: nobody answered action /ib/actions/install-max-ports-speed "
                         "within 0.5 s"),
              std::string::npos)
        << r.err;
    r = ctl({"get", "/ib/state/externalports/1/speed"});
    EXPECT_EQ(1, r.code);
    EXPECT_NE(r.err.find("nobody answered query get /ib/state/externalports/1/speed"),
              std::string::npos)
        << r.err;
    EXPECT_TRUE(wait_for_text(owner + ".err", "not answering query_request"));
    EXPECT_TRUE(wait_for_text(owner + ".err", "not answering action_request"));

    // The hook writes a malformed frame to the named client.
    r = ctl({"action", "/mgmtd-lite/actions/send-garbage", "client=string:IB Daemon"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_TRUE(wait_for_text(root_ + "/lite.err", "garbage (body) written to 'IB Daemon'"));
}

TEST_F(MgmtdLiteTest, AnOwnerLeavingFailsWhatWaitsForIt)
{
    start_lite({"--forward-timeout", "300"});
    start_waiter({"--client-name", "IB Daemon", "wait-event", "/never/sent"});

    ovd_test::Child asker;
    ASSERT_TRUE(start_redirected(&asker, ctl_argv({"--timeout", "300", "action",
                                                   "/ib/actions/print-dev"}),
                                 root_ + "/asker.out", root_ + "/asker.err"));
    ASSERT_TRUE(wait_for_text(root_ + "/lite.err",
                              "forward action /ib/actions/print-dev to 'IB Daemon'"));
    waiter_child(0)->signal(SIGTERM);
    EXPECT_EQ(1, asker.wait(60s));
    EXPECT_NE(read_file(root_ + "/asker.err")
                  .find("code 14016: 'IB Daemon' went away before answering action "
                        "/ib/actions/print-dev"),
              std::string::npos)
        << read_file(root_ + "/asker.err");
    EXPECT_NE(lite_log().find("client 'IB Daemon' closed"), std::string::npos);
}

// The owner played by a client session of this test, answering every get.
struct FakeOwner {
    fdic_handle *fich = nullptr;
    gcl_handle *gh = nullptr;
    gcl_session *sess = nullptr;
    std::vector<std::string> registrations;  // with a bt_uint32 capability mask
    std::vector<uint32> cap_masks;
    std::vector<std::string> gets;
    std::vector<std::string> iterates;
};

int fake_owner_query(gcl_session *sess, bn_request **inout_request, void *arg)
{
    auto *owner = static_cast<FakeOwner *>(arg);
    const bn_request *req = *inout_request;
    bn_response *resp = nullptr;
    EXPECT_EQ(0, bn_query_response_msg_create(&resp, bn_request_get_msg_id(req), 0, nullptr));
    for (uint32 i = 0; i < bn_request_get_num_nodes(req); ++i) {
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        const std::string name = ts_str(node->brn_binding->bn_node_name);
        switch (node->brn_node_settings.brns_query.bqn_query_subop) {
        case bqso_reg_info: {
            bn_type type = bt_NONE;
            EXPECT_EQ(0, bn_binding_get_type(node->brn_binding, ba_cap_mask, &type, nullptr));
            EXPECT_EQ(bt_uint32, type) << name;
            uint32 mask = 0;
            EXPECT_EQ(0, bn_binding_get_uint32(node->brn_binding, ba_cap_mask, nullptr, &mask));
            owner->registrations.push_back(name);
            owner->cap_masks.push_back(mask);
            break;
        }
        case bqso_get: {
            owner->gets.push_back(name);
            bn_binding *answer = nullptr;
            EXPECT_EQ(0, bn_binding_new_str(&answer, name.c_str(), ba_value, bt_string, 0,
                                            "Active"));
            EXPECT_EQ(0, bn_query_response_msg_append_binding_takeover(resp, &answer,
                                                                       node->brn_node_id));
            break;
        }
        default:
            owner->iterates.push_back(name);
            break;
        }
    }
    EXPECT_EQ(0, bn_response_msg_send(sess, resp));
    bn_response_msg_free(&resp);
    return 0;
}

class MgmtdLiteOwnerTest : public MgmtdLiteTest {
protected:
    void TearDown() override
    {
        if (owner_.gh != nullptr) {
            EXPECT_EQ(0, gcl_deinit(&owner_.gh));
        }
        if (owner_.fich != nullptr) {
            EXPECT_EQ(0, fdic_deinit(&owner_.fich));
        }
        gcl_set_sock_root_prefix(nullptr);
        MgmtdLiteTest::TearDown();
    }

    void connect_owner()
    {
        lc_log_init("mgmtd_lite_test", nullptr, LCO_none, 0, LOG_WARNING, LOG_LOCAL4, LCT_STDERR);
        gcl_set_sock_root_prefix(root_.c_str());
        ASSERT_EQ(0, fdic_init(&owner_.fich, nullptr, nullptr));
        ASSERT_EQ(0, gcl_init(&owner_.gh, nullptr, owner_.fich));
        ASSERT_EQ(0, gcl_session_client_set_user_new(owner_.gh, "IB Daemon", gof_none, ggid_auto,
                                                     ggid_auto, nullptr, nullptr, 0,
                                                     &owner_.sess));
        ASSERT_EQ(0, bn_set_session_callback_query_request_msg(owner_.sess, fake_owner_query,
                                                               &owner_));
        ASSERT_EQ(0, gcl_session_client_connect_by_provider(owner_.sess, "mgmtd", false));
        ASSERT_EQ(0, gcl_session_client_open_service_blocking(owner_.sess, gbp_proto_bnode,
                                                              bap_service_mgmt, nullptr, nullptr,
                                                              20000));
    }

    // Runs mgmtctl while this process serves the owner's session.
    CtlResult ctl_served(const std::vector<std::string> &args)
    {
        CtlResult result;
        ovd_test::Child child;
        const std::string base = root_ + "/served" + std::to_string(++runs_);
        EXPECT_TRUE(start_redirected(&child, ctl_argv(args), base + ".out", base + ".err"));
        while (child.running()) {
            gcl_session_do_blocking_io(owner_.gh, owner_.sess, false, true, false, false,
                                       gbp_none, 20);
        }
        result.code = child.wait(1s);
        result.out = read_file(base + ".out");
        result.err = read_file(base + ".err");
        return result;
    }

    FakeOwner owner_;
};

TEST_F(MgmtdLiteOwnerTest, QueriesGoToTheOwnerWithItsRegistrations)
{
    start_lite();
    connect_owner();

    CtlResult r = ctl_served({"get", "/ib/state/externalports/2/state"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/state/externalports/2/state  string  Active\n", r.out);
    EXPECT_EQ(std::vector<std::string>{"/ib/state/externalports/2/state"}, owner_.gets);
    // The registrations on the asked name's path, and none of the devices.
    EXPECT_EQ((std::vector<std::string>{"/ib/state/externalports/*",
                                        "/ib/state/externalports/*/state"}),
              owner_.registrations);
    // Each with the mask of its groups: a bit per group, in the group table's order.
    EXPECT_EQ((std::vector<uint32>{1U << 3, (1U << 0) | (1U << 2)}), owner_.cap_masks);

    // The owner lists the devices itself: the iterate goes to it as it is.
    owner_.registrations.clear();
    owner_.cap_masks.clear();
    r = ctl_served({"iterate", "/ib/state/devid"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ(std::vector<std::string>{"/ib/state/devid"}, owner_.iterates);
    EXPECT_EQ((std::vector<std::string>{"/ib/state/devid/*", "/ib/state/devid/*/max-hw-cap-speed"}),
              owner_.registrations);
    EXPECT_EQ((std::vector<uint32>{1U << 2, 1U << 2}), owner_.cap_masks);

    // A port family's instances come from here, their leaves from the owner.
    owner_.gets.clear();
    r = ctl_served({"iterate", "/ib/state/externalports", "--subtree"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/state/externalports/1        string  1\n"
              "/ib/state/externalports/2        string  2\n"
              "/ib/state/externalports/1/state  string  Active\n"
              "/ib/state/externalports/1/speed  string  Active\n"
              "/ib/state/externalports/2/state  string  Active\n"
              "/ib/state/externalports/2/speed  string  Active\n",
              r.out);
    EXPECT_EQ(4u, owner_.gets.size());

    // Own nodes and the owner's in one query.
    EXPECT_NE(lite_log().find("forward query get /ib/state/externalports/2/state to 'IB Daemon'"),
              std::string::npos)
        << lite_log();
    EXPECT_NE(lite_log().find("relay response to 'mgmtctl': code 0"), std::string::npos);
}

// ---------------------------------------------------------------------------------------
// The daemon's own client library against the stand-in.

struct WrappedDaemon {
    std::vector<std::string> events;
    bn_binding_array *dbchange = nullptr;   // the first dbchange's bindings
    std::vector<std::string> iterated;
};

int wrapped_get(const char *name, const tstr_array *parts, void *data, bn_binding_array *resp)
{
    (void)data;
    bn_binding *binding = nullptr;
    const char *last = nullptr;
    tstr_array_get_str(parts, tstr_array_length_quick(parts) - 1, &last);
    EXPECT_EQ(0, bn_binding_new_str(&binding, name, ba_value, bt_uint32, 0, last));
    return bn_binding_array_append_takeover(resp, &binding);
}

int wrapped_iterate(const char *name, const tstr_array *parts, void *data, tstr_array *resp)
{
    (void)parts;
    static_cast<WrappedDaemon *>(data)->iterated.push_back(name);
    tstr_array_append_str(resp, "10");
    return tstr_array_append_str(resp, "2");
}

int wrapped_query(gcl_session *sess, bn_request **inout_request, void *arg)
{
    return mdc_dispatch_mon_request(sess, *inout_request, wrapped_get, arg, wrapped_iterate, arg);
}

int wrapped_event(gcl_session *sess, bn_request **inout_request, void *arg)
{
    (void)sess;
    auto *daemon = static_cast<WrappedDaemon *>(arg);
    tstring *name = nullptr;
    EXPECT_EQ(0, bn_event_request_msg_get_event_name(*inout_request, &name));
    daemon->events.push_back(ts_str(name));
    if (daemon->dbchange == nullptr && daemon->events.back() == "/mgmtd/notify/dbchange") {
        EXPECT_EQ(0, bn_request_get(*inout_request, nullptr, nullptr, false, &daemon->dbchange,
                                    nullptr, nullptr));
    }
    ts_free(&name);
    return 0;
}

class MgmtdLiteWrapperTest : public MgmtdLiteTest {
protected:
    void TearDown() override
    {
        if (mcc_ != nullptr) {
            EXPECT_EQ(0, mdc_wrapper_disconnect(mcc_, true));
            EXPECT_EQ(0, mdc_wrapper_deinit(&mcc_));
        }
        if (lwc_ != nullptr) {
            EXPECT_EQ(0, lew_deinit(&lwc_));
        }
        bn_binding_array_free(&daemon_.dbchange);
        gcl_set_sock_root_prefix(nullptr);
        MgmtdLiteTest::TearDown();
    }

    // Connects as the daemon does: the same client name and request callbacks.
    void connect_daemon()
    {
        lc_log_init("mgmtd_lite_test", nullptr, LCO_none, 0, LOG_WARNING, LOG_LOCAL4, LCT_STDERR);
        gcl_set_sock_root_prefix(root_.c_str());
        ASSERT_EQ(0, lew_init(&lwc_));
        mdc_wrapper_params *params = nullptr;
        ASSERT_EQ(0, mdc_wrapper_params_get_defaults(&params));
        params->mwp_lew_context = lwc_;
        params->mwp_gcl_client = "IB Daemon";
        params->mwp_timeout = 20000;
        params->mwp_query_request_func = wrapped_query;
        params->mwp_query_request_data = &daemon_;
        params->mwp_event_request_func = wrapped_event;
        params->mwp_event_request_data = &daemon_;
        const int err = mdc_wrapper_init(params, &mcc_);
        mdc_wrapper_params_free(&params);
        ASSERT_EQ(0, err);
    }

    // Runs mgmtctl while the loop serves the daemon's session.
    CtlResult ctl_looped(const std::vector<std::string> &args)
    {
        CtlResult result;
        ovd_test::Child child;
        const std::string base = root_ + "/looped" + std::to_string(++runs_);
        EXPECT_TRUE(start_redirected(&child, ctl_argv(args), base + ".out", base + ".err"));
        while (child.running()) {
            EXPECT_EQ(0, lew_dispatch_nonblocking(lwc_, nullptr, nullptr));
            std::this_thread::sleep_for(2ms);
        }
        result.code = child.wait(1s);
        result.out = read_file(base + ".out");
        result.err = read_file(base + ".err");
        return result;
    }

    lew_context *lwc_ = nullptr;
    md_client_context *mcc_ = nullptr;
    WrappedDaemon daemon_;
};

TEST_F(MgmtdLiteWrapperTest, TheDaemonsClientLibraryIsServed)
{
    start_lite();
    connect_daemon();
    uint32 code = 99;
    tstring *msg = nullptr;

    // Interest as the daemon declares it, with its patterns.
    ASSERT_EQ(0, mdc_send_action_with_bindings_str_va(
                     mcc_, &code, &msg, "/mgmtd/events/actions/interest/add", 3, "event_name",
                     bt_name, "/mgmtd/notify/dbchange", "match/1/pattern", bt_string,
                     "/ib/config/**", "match/2/pattern", bt_string, "/system/hostname"));
    EXPECT_EQ(0u, code);
    ts_free(&msg);
    EXPECT_NE(lite_log().find("action /mgmtd/events/actions/interest/add from 'IB Daemon': "
                              "event_name=name:/mgmtd/notify/dbchange "
                              "match/1/pattern=string:/ib/config/** "
                              "match/2/pattern=string:/system/hostname"),
              std::string::npos)
        << lite_log();

    // Reads of the start.
    tstring *value = nullptr;
    bn_type type = bt_NONE;
    ASSERT_EQ(0, mdc_get_binding_tstr(mcc_, &code, &msg, &type, &value, "/system/hostname",
                                      nullptr));
    EXPECT_EQ(bt_hostname, type);
    EXPECT_STREQ("test-switch", ts_str_maybe_empty(value));
    ts_free(&value);
    ts_free(&msg);
    ASSERT_EQ(0, mdc_get_binding_tstr(mcc_, &code, &msg, &type, &value, "/system/absent",
                                      nullptr));
    EXPECT_EQ(nullptr, value);
    ts_free(&msg);
    bn_binding_array *children = nullptr;
    ASSERT_EQ(0, mdc_get_binding_children_ex(
                     mcc_, &code, &msg, true, &children,
                     bqnf_sel_iterate_subtree | bqnf_sel_iterate_leaf_nodes_only,
                     "/ib/config/externalports", nullptr, 0, nullptr));
    EXPECT_EQ(3u, bn_binding_array_length_quick(children));
    bn_binding_array_free(&children);
    ts_free(&msg);

    // A query of the state tree reaches the daemon's dispatch and its answer comes back.
    CtlResult r = ctl_looped({"get", "/ib/state/devid/7"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/state/devid/7  uint32  7\n", r.out);
    r = ctl_looped({"iterate", "/ib/state/devid"});
    EXPECT_EQ(0, r.code) << r.err;
    EXPECT_EQ("/ib/state/devid/10  uint32  10\n/ib/state/devid/2   uint32  2\n", r.out);
    EXPECT_EQ(std::vector<std::string>{"/ib/state/devid"}, daemon_.iterated);

    // A change of the configuration arrives in the form the daemon takes apart.
    r = ctl_looped({"set", "/ib/config/externalports/2/speed", "uint8", "16"});
    EXPECT_EQ(0, r.code) << r.err;
    for (int round = 0; round < 5000 && daemon_.dbchange == nullptr; ++round) {
        ASSERT_EQ(0, lew_dispatch_nonblocking(lwc_, nullptr, nullptr));
        std::this_thread::sleep_for(2ms);
    }
    ASSERT_NE(nullptr, daemon_.dbchange);
    bn_binding_array *old_bindings = nullptr;
    bn_binding_array *new_bindings = nullptr;
    ASSERT_EQ(0, mdc_event_config_change_notif_extract(daemon_.dbchange, &old_bindings,
                                                       &new_bindings, nullptr));
    ASSERT_EQ(1u, bn_binding_array_length_quick(new_bindings));
    uint8 speed = 0;
    const bn_binding *changed = bn_binding_array_get_quick(new_bindings, 0);
    EXPECT_STREQ("/ib/config/externalports/2/speed", ts_str(changed->bn_node_name));
    EXPECT_EQ(0, bn_binding_get_uint8(changed, ba_value, nullptr, &speed));
    EXPECT_EQ(16, speed);
    ASSERT_EQ(1u, bn_binding_array_length_quick(old_bindings));
    EXPECT_EQ(0, bn_binding_get_uint8(bn_binding_array_get_quick(old_bindings, 0), ba_value,
                                      nullptr, &speed));
    EXPECT_EQ(4, speed);
    bn_binding_array_free(&old_bindings);
    bn_binding_array_free(&new_bindings);

    // The daemon's announcement is taken and acknowledged.
    ASSERT_EQ(0, mdc_send_event_with_bindings_str_va(mcc_, &code, &msg, "/ib/events/init-done", 1,
                                                     "status", bt_uint32, "0"));
    EXPECT_TRUE(wait_for_text(root_ + "/lite.err",
                              "event /ib/events/init-done from 'IB Daemon': status=uint32:0"));
    ts_free(&msg);
}

// ---------------------------------------------------------------------------------------
// Ways out.

TEST_F(MgmtdLiteTest, ClientWithoutStandInFailsClearly)
{
    std::filesystem::create_directories(root_ + "/vtmp/gcl-socks");
    const CtlResult r = ctl({"get", "/system/hostname"});
    EXPECT_EQ(3, r.code);
    EXPECT_NE(r.err.find("mgmtctl: cannot reach mgmtd (is it running?"), std::string::npos)
        << r.err;
    EXPECT_TRUE(r.out.empty());

    EXPECT_EQ(2, ctl({"frobnicate", "/x"}).code);
    EXPECT_EQ(2, ctl({"set", "/x"}).code);
}

TEST_F(MgmtdLiteTest, SignalsEndTheStandInCleanly)
{
    start_lite();
    const std::string waiter = start_waiter({"wait-event", "/some/event"});
    lite()->signal(SIGINT);
    EXPECT_EQ(0, lite()->wait(15s)) << lite_log();
    EXPECT_NE(lite_log().find("received SIGINT, exiting"), std::string::npos);
    // Its client sees the session end.
    EXPECT_EQ(3, waiter_child(0)->wait(15s));
    EXPECT_NE(read_file(waiter + ".err").find("mgmtd closed the session"), std::string::npos);

    start_lite();
    EXPECT_EQ(0, ctl({"get", "/misc/flag"}).code);
    lite()->signal(SIGTERM);
    EXPECT_EQ(0, lite()->wait(15s)) << lite_log();
    EXPECT_NE(lite_log().find("received SIGTERM, exiting"), std::string::npos);
}

}  // namespace
