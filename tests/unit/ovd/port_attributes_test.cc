// Port attribute changes against the simulated switch: what reaches the registers, in what
// order, and what the two port records hold afterwards.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "bnode_proto.h"
#include "bnode_types.h"
#include "chassis_helper.h"
#include "logging.h"
#include "ovd_main.h"
#include "ovd_port_attributes.h"
#include "ovd_port_config.h"
#include "ovd_ports_cache.h"
#include "sa_registers.h"
#include "vqd_sim.h"

namespace {

constexpr uint32 kDev = 1;
constexpr uint8 kLocal = 5;
constexpr uint8 kSwid = 0;
constexpr const char *kPort = "69"; // kDev << 6 | kLocal
constexpr const char *kUnknown = "1000";

using Strings = std::vector<std::string>;

// Settles are counted, not slept; each remembers how many accesses the journal held then.
std::vector<size_t> g_settles;

void count_settle(uint32 usec)
{
    EXPECT_EQ(usec, 30000u);
    g_settles.push_back(vqdsim::journal().size());
}

void no_sleep(uint32) {}

// The first system type that is (or is not) a standalone switch.
system_type_t find_system_type(bool standalone)
{
    for (int t = 0; t < 64; ++t) {
        if (sah_sqry_ib_is_standalone(static_cast<system_type_t>(t)) == standalone) {
            return static_cast<system_type_t>(t);
        }
    }
    ADD_FAILURE() << "no such system type";
    return S_ZR4000;
}

// The register accesses in order: "PAOS:<admin state>", "PTYS:GET", "PTYS:SET", ...
Strings accesses()
{
    Strings out;
    for (const vqdsim::JournalEntry &e : vqdsim::journal()) {
        out.push_back(e.reg == "PAOS" ? "PAOS:" + std::to_string(e.field("admin_status"))
                                      : e.reg + (e.cmd == VQD_ACCESS_CMD_GET ? ":GET" : ":SET"));
    }
    return out;
}

class PortAttributes : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        vqdsim::reset();
        g_settles.clear();
        ovd_port_set_settle_hook(count_settle);
        sa_reg_set_sleep_hook(no_sleep);
        ASSERT_EQ(ibPortsCacheInit(), 0);
        devinfo *dev = nullptr;
        ASSERT_EQ(ovd_devinfo_new(&dev), 0);
        dev->device_max_speed_limit = 15;
        ASSERT_EQ(ovd_devsinfo_set_takeover(kDev, &dev), 0);
        swidapi_handles[kSwid] = reinterpret_cast<swidapi_t *>(&fake_context_);
        g_sys_type = S_ZR4000;
        system_type = find_system_type(false);
    }
    void TearDown() override
    {
        swidapi_handles[kSwid] = nullptr;
        g_sys_type = 0;
        system_type = 0;
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        ovd_port_set_settle_hook(nullptr);
        sa_reg_set_sleep_hook(nullptr);
        vqdsim::reset();
        lc_log_suspend(false);
    }

    static tstring *key(const char *ifindex)
    {
        tstring *ts = nullptr;
        EXPECT_EQ(ts_new_str(&ts, ifindex), 0);
        return ts;
    }

    // Port kLocal of kDev, running unless said otherwise, with speed 15 applied; and a
    // configuration record as the enable flow leaves it.
    ifindexInformation *add_port(tbool running = true, uint8 swid = kSwid)
    {
        ifindexInformation info{};
        info.devid = kDev;
        info.localport = kLocal;
        info.label_port = kLocal;
        info.port_direction = SYS_PORT_DIRECTION_EXT;
        info.configured_state = running;
        info.active_speed = 15;
        info.assigned_to_swid = swid;
        // speed, width, op_vls, mtu, enable, fec
        const port_config_parameters_t config{255, 5, 8, 4096, 1, 0};
        tstring *k = key(kPort);
        EXPECT_EQ(ht_insert(ibports_ht, k, ts_length(k), &info), 0);
        EXPECT_EQ(ht_insert(ifindex_to_config_ht, k, ts_length(k),
                            const_cast<port_config_parameters_t *>(&config)),
                  0);
        ts_free(&k);
        return port();
    }
    static ifindexInformation *port()
    {
        ifindexInformation *info = nullptr;
        tbool exists = false;
        tstring *k = key(kPort);
        EXPECT_EQ(checkIfPortExists(k, &info, &exists), 0);
        ts_free(&k);
        return info;
    }
    static port_config_parameters_t *config(const char *ifindex = kPort)
    {
        void *value = nullptr;
        tstring *k = key(ifindex);
        EXPECT_EQ(ht_lookup(ifindex_to_config_ht, k, ts_length(k), nullptr, nullptr, nullptr, &value), 0);
        ts_free(&k);
        return static_cast<port_config_parameters_t *>(value);
    }
    static void drop_config()
    {
        tstring *k = key(kPort);
        EXPECT_EQ(ht_delete(ifindex_to_config_ht, k, ts_length(k)), 0);
        ts_free(&k);
    }

    // A change of one leaf as the configuration tracking delivers it: "mtu" and "fec" as
    // text, the others as a uint8 written in decimal.
    static int set(const char *leaf, const char *value, const char *ifindex = kPort,
                   bn_type_flags_bf flags = 0)
    {
        const std::string name = std::string("/ib/config/externalports/") + ifindex + "/" + leaf;
        const std::string l = leaf;
        const bool text = l == "mtu" || l == "fec";
        bn_binding *binding = nullptr;
        EXPECT_EQ(bn_binding_new_str(&binding, name.c_str(), ba_value, text ? bt_string : bt_uint8,
                                     flags, value),
                  0);
        tstring *bname = key(name.c_str());
        tstring *k = key(ifindex);
        int err = lc_err_unexpected_case;
        if (l == "fec") {
            err = ovd_handle_ib_port_fec_config_status(bname, binding, k);
        } else {
            auto handler = l == "mtu"      ? ovd_handle_ib_port_mtu_config_status
                           : l == "speed"  ? ovd_handle_ib_port_speed_config_status
                           : l == "width"  ? ovd_handle_ib_port_width_config_status
                           : l == "op_vls" ? ovd_handle_ib_port_op_vls_config_status
                                           : ovd_handle_ib_port_enable_config_status;
            err = handler(bname, nullptr, binding, nullptr, k);
        }
        ts_free(&k);
        ts_free(&bname);
        bn_binding_free(&binding);
        return err;
    }

    int fake_context_ = 0;
};

TEST_F(PortAttributes, SpeedChangeOnRunningPortTakesItDownWritesAndBringsItUp)
{
    add_port();
    ASSERT_EQ(set("speed", "7"), 0);
    EXPECT_EQ(accesses(), (Strings{"PAOS:2", "PTYS:GET", "PTYS:SET", "PAOS:1"}));
    // The settle lies between the port going down and the write.
    EXPECT_EQ(g_settles, (std::vector<size_t>{1}));
    const auto ptys = vqdsim::journal_of("PTYS");
    EXPECT_EQ(ptys[1].key, kLocal);
    EXPECT_EQ(ptys[1].field("ib_proto_admin") & 0xff, 7u);
    EXPECT_EQ((ptys[1].field("ib_proto_admin") >> 16) & 0xff, 5u); // width kept
    EXPECT_EQ(port()->active_speed, 7);
    EXPECT_TRUE(port()->configured_state);
    EXPECT_EQ(config()->speed, 7);
    ku_paos_reg paos{};
    ASSERT_TRUE(vqdsim::peek_paos(kDev, kLocal, &paos));
    EXPECT_EQ(paos.admin_status, PORT_UP);

    // The same speed again: the port already runs it.
    vqdsim::clear_journal();
    ASSERT_EQ(set("speed", "7"), 0);
    EXPECT_TRUE(vqdsim::journal().empty());
}

TEST_F(PortAttributes, SpeedIsMaskedByThePortLimitAndTheWishIsKept)
{
    add_port()->active_speed = 7;
    // The default: the port's limit, applied and stored.
    ASSERT_EQ(set("speed", "255"), 0);
    EXPECT_EQ(port()->active_speed, 15);
    EXPECT_EQ(config()->speed, 15);

    // Partly beyond the limit: the port gets what the limit allows, the wish is stored.
    vqdsim::clear_journal();
    ASSERT_EQ(set("speed", "36"), 0); // edr | qdr
    EXPECT_EQ(vqdsim::journal_of("PTYS").back().field("ib_proto_admin") & 0xff, (uint64_t)qdr);
    EXPECT_EQ(port()->active_speed, qdr);
    EXPECT_EQ(config()->speed, edr | qdr);

    // Wholly beyond it: an empty mask goes to the device, which refuses it; records stay.
    vqdsim::clear_journal();
    EXPECT_EQ(set("speed", "32"), lc_err_generic_error);
    EXPECT_EQ(vqdsim::journal_of("PTYS").back().field("ib_proto_admin") & 0xff, 0u);
    EXPECT_EQ(port()->active_speed, qdr);
    EXPECT_EQ(config()->speed, edr | qdr);

    // A restricted front-panel port gets less than the device could.
    g_sys_type = S_ZR4048;
    ASSERT_EQ(set("speed", "255"), 0);
    EXPECT_EQ(port()->active_speed, 8);
}

TEST_F(PortAttributes, UnknownOrForeignPortOnlyFillsTheConfiguration)
{
    ASSERT_EQ(set("speed", "255", kUnknown), 0);
    ASSERT_EQ(set("width", "4", kUnknown), 0);
    ASSERT_EQ(set("op_vls", "255", kUnknown), 0);
    ASSERT_EQ(set("enable", "0", kUnknown), 0);
    ASSERT_EQ(set("mtu", "2K", kUnknown), 0);
    ASSERT_EQ(set("fec", "fec-on", kUnknown), 0);
    const port_config_parameters_t *c = config(kUnknown);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->speed, 255); // the default is stored as such
    EXPECT_EQ(c->width, 4);
    EXPECT_EQ(c->op_vls, 255);
    EXPECT_EQ(c->enable, 0);
    EXPECT_EQ(c->mtu, 2048);
    EXPECT_EQ(c->fec, 2);

    // A port of a partition this daemon doesn't serve.
    add_port(true, 3);
    ASSERT_EQ(set("width", "1"), 0);
    ASSERT_EQ(set("enable", "0"), 0);
    EXPECT_EQ(config()->width, 1);
    EXPECT_EQ(config()->enable, 0);
    EXPECT_TRUE(port()->configured_state);

    // A served port without a configuration record: the write waits for the record, and
    // the handler makes one.
    port()->assigned_to_swid = kSwid;
    drop_config();
    ASSERT_EQ(set("width", "4"), 0);
    EXPECT_EQ(config()->width, 4);
    drop_config();
    ASSERT_EQ(set("speed", "7"), 0);
    EXPECT_EQ(config()->speed, 7);
    EXPECT_EQ(config()->width, 255);
    EXPECT_EQ(port()->active_speed, 15);

    EXPECT_TRUE(vqdsim::journal().empty());
    EXPECT_TRUE(g_settles.empty());
}

TEST_F(PortAttributes, PortHeldDownGetsTheWriteWithoutPaos)
{
    add_port(false);
    ASSERT_EQ(set("width", "1"), 0);
    ASSERT_EQ(set("op_vls", "4"), 0);
    ASSERT_EQ(set("mtu", "1K"), 0);
    EXPECT_EQ(accesses(), (Strings{"PTYS:GET", "PTYS:SET", "PVLC:SET", "PMTU:SET"}));
    EXPECT_TRUE(g_settles.empty());
    EXPECT_EQ((vqdsim::journal_of("PTYS")[1].field("ib_proto_admin") >> 16) & 0xff, 1u);
    EXPECT_EQ(vqdsim::journal_of("PVLC")[0].field("vl_admin"), 4u);
    EXPECT_EQ(vqdsim::journal_of("PMTU")[0].field("admin_mtu"), 1024u);
    EXPECT_FALSE(port()->configured_state);
    EXPECT_EQ(config()->width, 1);
    EXPECT_EQ(config()->op_vls, 4);
    EXPECT_EQ(config()->mtu, 1024);
}

TEST_F(PortAttributes, RepeatedDefaultAndBadValuesTouchNothing)
{
    add_port();
    // The record already says so (width, VLs, MTU and FEC compare with the record).
    for (auto [leaf, value] : {std::pair{"width", "5"}, {"op_vls", "8"}, {"mtu", "4K"},
                               {"fec", "auto"}, {"mtu", "-1"}, {"fec", "-1"}, {"width", "255"}}) {
        ASSERT_EQ(set(leaf, value), 0) << leaf;
    }
    EXPECT_EQ(set("mtu", "3K"), lc_err_unexpected_case);
    EXPECT_EQ(set("fec", "sometimes"), lc_err_unexpected_case);
    EXPECT_TRUE(vqdsim::journal().empty());
    EXPECT_EQ(config()->mtu, 4096);
    EXPECT_EQ(config()->fec, 0);
    EXPECT_EQ(config()->width, 5);

    // A new FEC on a running port bounces it; this system has no PPLM to write.
    ASSERT_EQ(set("fec", "no-fec"), 0);
    EXPECT_EQ(accesses(), (Strings{"PAOS:2", "PAOS:1"}));
    EXPECT_EQ(config()->fec, 1);
}

TEST_F(PortAttributes, FailedWriteLeavesRunningPortDownAndRecordsUnchanged)
{
    add_port();
    vqdsim::inject_fault("PTYS", kDev, kLocal, 6, VQD_STATUS_FW_BUSY);
    EXPECT_EQ(set("speed", "7"), lc_err_generic_error);
    EXPECT_EQ(accesses().front(), "PAOS:2");
    EXPECT_EQ(vqdsim::journal_of("PAOS").size(), 1u); // never brought up again
    // configured_state still says up; nothing was recorded.
    EXPECT_TRUE(port()->configured_state);
    EXPECT_EQ(port()->active_speed, 15);
    EXPECT_EQ(config()->speed, 255);
}

TEST_F(PortAttributes, EnableWritesPaosOnlyOnAChange)
{
    add_port();
    ASSERT_EQ(set("enable", "1"), 0);
    EXPECT_TRUE(vqdsim::journal().empty());

    ASSERT_EQ(set("enable", "0"), 0);
    EXPECT_EQ(accesses(), (Strings{"PAOS:2"}));
    EXPECT_EQ(g_settles, (std::vector<size_t>{1}));
    EXPECT_FALSE(port()->configured_state);
    EXPECT_EQ(config()->enable, 0);
    // A system that isn't standalone doesn't arm the port's events with the state.
    EXPECT_EQ(vqdsim::journal_of("PAOS")[0].field("ee"), 0u);

    // The default changes neither the port nor the record.
    ASSERT_EQ(set("enable", "255"), 0);
    EXPECT_EQ(config()->enable, 0);

    system_type = find_system_type(true);
    ASSERT_EQ(set("enable", "1"), 0);
    EXPECT_EQ(accesses(), (Strings{"PAOS:2", "PAOS:1"}));
    EXPECT_EQ(vqdsim::journal_of("PAOS")[1].field("ee"), 1u);
    EXPECT_TRUE(port()->configured_state);
    EXPECT_EQ(config()->enable, 1);
}

TEST_F(PortAttributes, DeletedNodeResetsTheConfigurationToDefaults)
{
    add_port();
    ASSERT_EQ(set("width", "1"), 0);
    ASSERT_EQ(set("mtu", "512"), 0);
    ASSERT_EQ(set("speed", "7"), 0);

    ASSERT_EQ(set("speed", "0", kPort, btf_deleted), 0);
    const port_config_parameters_t *c = config();
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->width, 5);
    EXPECT_EQ(c->mtu, 4096);
    EXPECT_EQ(c->speed, 255);
    EXPECT_EQ(c->fec, 0);
    // The VLs and the enable of a known port come from resetting the port itself.

    // A port nobody knows: no record appears, and FEC can't be reset at all.
    ASSERT_EQ(set("mtu", "-1", kUnknown, btf_deleted), 0);
    EXPECT_EQ(config(kUnknown), nullptr);
    EXPECT_EQ(set("fec", "-1", kUnknown, btf_deleted), lc_err_unexpected_null);
    EXPECT_EQ(ifindex_to_config_ht->ht_num_nodes, 1u);
}

TEST_F(PortAttributes, PortStateDoorAndEnableWriteBack)
{
    ifindexInformation *info = add_port(false, 3);
    tstring *k = key(kPort);
    // A SWID this daemon doesn't serve is skipped without error.
    EXPECT_EQ(change_port_state(k, info, true), 0);
    EXPECT_FALSE(info->configured_state);
    EXPECT_TRUE(vqdsim::journal().empty());
    info->assigned_to_swid = kSwid;
    ASSERT_EQ(change_port_state(k, info, true), 0);
    EXPECT_TRUE(info->configured_state);
    // A failed write leaves the recorded state.
    vqdsim::inject_fault("PAOS", kDev, kLocal, 1, VQD_STATUS_ERROR);
    EXPECT_EQ(change_port_state(k, info, false), lc_err_generic_error);
    EXPECT_TRUE(info->configured_state);
    EXPECT_EQ(accesses(), (Strings{"PAOS:1", "PAOS:2"}));
    ts_free(&k);

    // The enable decision written back names the port's family and carries its slot and
    // label port.
    info->devid = 3;
    info->label_port = 17;
    info->port_direction = SYS_PORT_DIRECTION_INT;
    bn_request *req = nullptr;
    ASSERT_EQ(ovd_config_port_enable_msg_create("209", info, 0, &req), 0);
    EXPECT_EQ(bn_request_get_msg_type(req), bbmt_set_request);
    ASSERT_EQ(bn_request_get_num_nodes(req), 3u);
    const std::tuple<const char *, bn_type, const char *> expected[] = {
        {"slot", bt_uint32, "3"}, {"port", bt_uint32, "17"}, {"enable", bt_uint8, "0"}};
    for (uint32 i = 0; i < 3; ++i) {
        const auto &[leaf, type, value] = expected[i];
        const bn_request_per_node *node = bn_request_get_nth_node_const(req, i);
        EXPECT_EQ(node->brn_node_settings.brns_set.bsn_set_subop, bsso_modify);
        EXPECT_EQ(ts_str(bn_binding_get_name_quick(node->brn_binding)),
                  std::string("/ib/config/internalports/209/") + leaf);
        bn_type got_type = bt_NONE;
        char *text = nullptr;
        ASSERT_EQ(bn_binding_get_type(node->brn_binding, ba_value, &got_type, nullptr), 0);
        ASSERT_EQ(bn_binding_get_str(node->brn_binding, ba_value, bt_NONE, nullptr, &text), 0);
        EXPECT_EQ(got_type, type);
        EXPECT_STREQ(text, value);
        free(text);
    }
    bn_request_msg_free(&req);
    EXPECT_EQ(ovd_config_port_enable(nullptr, info, 1), lc_err_unexpected_null);
}

} // namespace
