// Configuration change tracking: where a changed node goes, and what a deleted port
// configuration is reset to.  Log lines are read at a private /dev/log.
#include <gtest/gtest.h>

#include <string>

#include "bnode.h"
#include "bnode_types.h"
#include "logging.h"
#include "ovd_config.h"
#include "ovd_port_config.h"
#include "ovd_ports_cache.h"
#include "sandbox.h"

namespace {

constexpr const char *kMissingConfig = "supposed to be in configuration DB";

class ConfigTracking : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        std::string why;
        sandboxed_ = ovd_test::enter_sandbox(&why);
        if (!sandboxed_) {
            why_ = why;
            return;
        }
        receiver_ = new ovd_test::SyslogReceiver();
        lc_log_init("ovd", nullptr, 0, static_cast<uint64>(LCI_OVD) << 16, LOG_DEBUG, LOG_LOCAL4,
                    LCT_SYSLOG);
    }
    static void TearDownTestSuite()
    {
        lc_log_close();
        delete receiver_;
        receiver_ = nullptr;
    }
    void SetUp() override
    {
        if (!sandboxed_) {
            GTEST_SKIP() << "no private mount namespace: " << why_;
        }
        ASSERT_TRUE(receiver_->ok());
        ASSERT_EQ(ibPortsCacheInit(), 0);
        receiver_->clear();
    }
    void TearDown() override
    {
        if (sandboxed_) {
            EXPECT_EQ(ibPortsCacheDeinit(), 0);
        }
    }

    // Everything logged so far has arrived once a fresh marker line has.
    static void sync_log()
    {
        static int n = 0;
        const std::string marker = "config-test-marker-" + std::to_string(++n);
        lc_log_basic(LOG_NOTICE, "%s", marker.c_str());
        ASSERT_TRUE(receiver_->wait_for(marker));
    }
    static bool logged(const std::string &needle) { return receiver_->find(needle) >= 0; }

    static tstring *key(const char *text)
    {
        tstring *ts = nullptr;
        EXPECT_EQ(ts_new_str(&ts, text), 0);
        return ts;
    }
    static port_config_parameters_t *config(const char *ifindex)
    {
        void *value = nullptr;
        tstring *k = key(ifindex);
        EXPECT_EQ(ht_lookup(ifindex_to_config_ht, k, ts_length(k), nullptr, nullptr, nullptr,
                            &value),
                  0);
        ts_free(&k);
        return static_cast<port_config_parameters_t *>(value);
    }
    // A changed node as a configuration-change event delivers it.
    static int change(const char *name, bn_type type, const char *value)
    {
        bn_binding *binding = nullptr;
        EXPECT_EQ(bn_binding_new_str(&binding, name, ba_value, type, 0, value), 0);
        const int err = ovd_handle_change(nullptr, 0, binding, nullptr);
        bn_binding_free(&binding);
        return err;
    }

    static inline bool sandboxed_ = false;
    static inline std::string why_;
    static inline ovd_test::SyslogReceiver *receiver_ = nullptr;
};

TEST_F(ConfigTracking, DeletedConfigurationIsResetInPlaceAndMissingOneIsReported)
{
    // speed, width, op_vls, mtu, enable, fec
    const port_config_parameters_t stored{7, 1, 4, 512, 1, 2};
    tstring *k = key("70");
    ASSERT_EQ(ht_insert(ifindex_to_config_ht, k, ts_length(k),
                        const_cast<port_config_parameters_t *>(&stored)),
              0);
    ASSERT_EQ(handle_deleted_port_config(k, false, true, nullptr, true, true, true), 0);
    ts_free(&k);
    const port_config_parameters_t *c = config("70");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->speed, 255);
    EXPECT_EQ(c->width, 5);
    EXPECT_EQ(c->op_vls, 255);
    EXPECT_EQ(c->mtu, 4096);
    EXPECT_EQ(c->enable, 255);
    EXPECT_EQ(c->fec, 0);
    EXPECT_EQ(ifindex_to_config_ht->ht_num_nodes, 1u);

    // The complaint about a missing entry follows check_config_exist, the sixth argument,
    // and neither enable_port nor disable_port around it.
    k = key("71");
    ASSERT_EQ(handle_deleted_port_config(k, false, false, nullptr, true, false, true), 0);
    sync_log();
    EXPECT_FALSE(logged(kMissingConfig));
    ASSERT_EQ(handle_deleted_port_config(k, false, false, nullptr, false, true, false), 0);
    sync_log();
    EXPECT_TRUE(logged("ifindex: [71] supposed to be in configuration DB"));
    ts_free(&k);
    EXPECT_EQ(config("71"), nullptr);
}

TEST_F(ConfigTracking, ChangedNodesGoByNameAndPartCount)
{
    // A port leaf reaches its handler whether or not the port is known.
    ASSERT_EQ(change("/ib/config/externalports/5/speed", bt_uint8, "7"), 0);
    ASSERT_EQ(change("/ib/config/internalports/6/mtu", bt_string, "2K"), 0);
    ASSERT_NE(config("5"), nullptr);
    EXPECT_EQ(config("5")->speed, 7);
    ASSERT_NE(config("6"), nullptr);
    EXPECT_EQ(config("6")->mtu, 2048);
    // A handler's failure comes back.
    EXPECT_EQ(change("/ib/config/externalports/5/mtu", bt_string, "3K"), lc_err_unexpected_case);

    // Four parts and the accepted leaves do nothing; other names are passed by silently.
    ASSERT_EQ(change("/ib/config/locallinks/time_to_settle", bt_uint32, "10"), 0);
    ASSERT_EQ(change("/ib/config/externalports/7/slot", bt_uint32, "1"), 0);
    ASSERT_EQ(change("/system/hostnames", bt_string, "x"), 0);
    ASSERT_EQ(change("/ib/configx/externalports/8/speed", bt_uint8, "1"), 0);
    EXPECT_EQ(ifindex_to_config_ht->ht_num_nodes, 2u);

    ASSERT_EQ(change("/ib/config/externalports/7/color", bt_string, "red"), 0);
    ASSERT_EQ(change("/ib/config/externalports/7/a/b", bt_string, "x"), 0);
    sync_log();
    EXPECT_TRUE(logged("Unknown node '/ib/config/externalports/7/color'"));
    EXPECT_TRUE(logged("Unhandled node '/ib/config/externalports/7/a/b'"));
    EXPECT_FALSE(logged("/ib/config/locallinks/time_to_settle'"));
    EXPECT_FALSE(logged("/system/hostnames"));
}

} // namespace
