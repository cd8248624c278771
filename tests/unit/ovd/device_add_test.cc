// Adding devices: the records and port entries made from the port manager's event, the
// order of the register accesses to the new device (M_Key first, then node description
// and image GUID per served SWID), the answer, and the system part of the first event.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_proto.h"
#include "bnode_types.h"
#include "logging.h"
#include "ovd_device_add.h"
#include "ovd_main.h"
#include "ovd_ports_cache.h"
#include "swidapi.h"
#include "vqd_sim.h"

namespace {

const char k_model[] =
    "device 1\n"
    "device 2\n"
    "device 216\n";

// A standalone system and a chassis (leaves and spines).
const uint32 k_standalone_type = 37;
const uint32 k_chassis_type = 19;

struct PortDesc {
    uint32 ifindex;
    uint8 local;
    uint8 ibport;
    uint8 swid;
    uint32 neighbor;
    uint8 label;
    bool is_virtual;
};

// An event's bindings, built the way they arrive.
class Event {
public:
    Event() { EXPECT_EQ(bn_binding_array_new(&arr_), 0); }
    ~Event() { bn_binding_array_free(&arr_); }
    Event(const Event &) = delete;
    Event &operator=(const Event &) = delete;

    const bn_binding_array *get() const { return arr_; }

    void u8(const std::string &name, uint8 v) { take(bn_binding_new_uint8(&b_, name.c_str(), ba_value, 0, v)); }
    void u32(const std::string &name, uint32 v) { take(bn_binding_new_uint32(&b_, name.c_str(), ba_value, 0, v)); }
    void u64(const std::string &name, uint64 v) { take(bn_binding_new_uint64(&b_, name.c_str(), ba_value, 0, v)); }
    void flag(const std::string &name, bool v) { take(bn_binding_new_tbool(&b_, name.c_str(), ba_value, 0, v)); }
    void str(const std::string &name, const std::string &v)
    {
        take(bn_binding_new_str(&b_, name.c_str(), ba_value, bt_string, 0, v.c_str()));
    }
    void remove(const std::string &name)
    {
        bn_binding *gone = nullptr;
        ASSERT_EQ(bn_binding_array_detach_binding_by_name(arr_, name.c_str(), &gone), 0);
        ASSERT_NE(gone, nullptr) << name;
        bn_binding_free(&gone);
    }

    // A device add as the port manager sends it, with no SWIDs to open.
    void device(uint32 dev_id, const std::vector<PortDesc> &ports, uint8 hw_cap = 5)
    {
        u32("system_type", k_standalone_type);
        u64("system_image_guid", 0x02ab010300a1b2c0ull);
        u8("ib_swid_num", 0);
        u32("dev_id", dev_id);
        u32("subsystem_type", 0);
        str("subsystem_name", "MGMT");
        str("device_name", "VQ_SW" + std::to_string(dev_id));
        u32("slot_id", 1);
        u32("index_inside_slot", 1);
        u8("max_ib_speed_hw_cap", hw_cap);
        u8("max_ib_speed_sw_limit", 3);
        u32("port_num", static_cast<uint32>(ports.size()));
        for (size_t n = 0; n < ports.size(); ++n) {
            const std::string i = std::to_string(n + 1);
            const PortDesc &p = ports[n];
            flag("virtual_" + i, p.is_virtual);
            u32("ifindex_" + i, p.ifindex);
            u8("local_" + i, p.local);
            u8("swid_" + i, p.swid);
            u8("ibport_" + i, p.ibport);
            u8("direction_" + i, 1);
            u32("ifindex_neighbor_" + i, p.neighbor);
            u8("label_" + i, p.label);
            u8("bay_port_" + i, 0);
        }
    }

private:
    void take(int err)
    {
        ASSERT_EQ(err, 0);
        ASSERT_EQ(bn_binding_array_append_takeover(arr_, &b_), 0);
    }
    bn_binding_array *arr_ = nullptr;
    bn_binding *b_ = nullptr;
};

// The flow's two conversations with mgmtd.
int g_m_key_queries = 0;
bool g_m_key_present = true;
uint64 g_m_key = 0x1122334455667788ull;

int fake_m_key_query(uint64 *ret_value, tbool *ret_found)
{
    ++g_m_key_queries;
    *ret_found = g_m_key_present;
    if (g_m_key_present) {
        *ret_value = g_m_key;
    }
    return 0;
}

struct SentEvent {
    std::string name;
    std::vector<std::pair<std::string, uint32>> values;
};
std::vector<SentEvent> g_sent;

int fake_send(bn_request *event)
{
    SentEvent sent;
    tstring *name = nullptr;
    bn_binding_array *bindings = nullptr;
    EXPECT_EQ(bn_event_request_msg_get_event_name(event, &name), 0);
    sent.name = ts_str(name);
    ts_free(&name);
    EXPECT_EQ(bn_request_get(event, nullptr, nullptr, false, &bindings, nullptr, nullptr), 0);
    for (uint32 i = 0; i < bn_binding_array_length_quick(bindings); ++i) {
        const bn_binding *b = bn_binding_array_get_quick(bindings, i);
        uint32 v = 0;
        EXPECT_EQ(bn_binding_get_uint32(b, ba_value, nullptr, &v), 0);
        sent.values.emplace_back(ts_str(bn_binding_get_name_quick(b)), v);
    }
    bn_binding_array_free(&bindings);
    g_sent.push_back(sent);
    return 0;
}

ifindexInformation *port_of(uint32 ifindex)
{
    tstring *key = nullptr;
    ifindexInformation *info = nullptr;
    tbool exists = false;
    EXPECT_EQ(ts_new_sprintf(&key, "%u", ifindex), 0);
    EXPECT_EQ(checkIfPortExists(key, &info, &exists), 0);
    ts_free(&key);
    return exists ? info : nullptr;
}

virtualIfindexInfo *virtual_port_of(uint32 ifindex)
{
    tstring *key = nullptr;
    void *value = nullptr;
    tbool found = false;
    EXPECT_EQ(ts_new_sprintf(&key, "%u", ifindex), 0);
    EXPECT_EQ(ht_lookup(virtual_ibports_ht, key, ts_length(key), &found, nullptr, nullptr, &value), 0);
    ts_free(&key);
    return found ? static_cast<virtualIfindexInfo *>(value) : nullptr;
}

class DeviceAdd : public ::testing::Test {
protected:
    void SetUp() override
    {
        lc_log_suspend(true);
        vqdsim::reset();
        std::string why;
        ASSERT_TRUE(vqdsim::load_model_text(k_model, &why)) << why;
        ASSERT_EQ(ibPortsCacheInit(), 0);
        ovd_device_add_forget_system();
        g_ovd_system_m_key_query = fake_m_key_query;
        g_ovd_event_send = fake_send;
        g_m_key_queries = 0;
        g_m_key_present = true;
        g_sent.clear();
        g_sys_type = k_standalone_type;
        system_type = 0;
        system_image_guid = 0;
    }
    void TearDown() override
    {
        for (swidapi_t *&ctx : swidapi_handles) {
            sa_destroy(&ctx);
        }
        EXPECT_EQ(ibPortsCacheDeinit(), 0);
        EXPECT_EQ(ovd_devsinfo_free_all(), 0);
        ts_free(&g_sys_disp);
        g_ovd_system_m_key_query = ovd_query_system_m_key;
        g_ovd_event_send = ovd_send_event;
        ovd_device_add_forget_system();
        vqdsim::reset();
        lc_log_suspend(false);
    }

    // A context as sa_init leaves it, without a MAD port: enough for the SPZR writes.
    static void serve_swid(int swid)
    {
        swidapi_t *ctx = static_cast<swidapi_t *>(calloc(1, sizeof(swidapi_t)));
        ASSERT_NE(ctx, nullptr);
        ctx->swid_num = swid;
        ctx->sys_type = static_cast<system_type_t>(k_standalone_type);
        swidapi_handles[swid] = ctx;
    }
};

TEST_F(DeviceAdd, RecordsDeviceAndPortsAfterWritingTheKeyFirst)
{
    serve_swid(0);
    serve_swid(2);
    ASSERT_EQ(ts_new_str(&hostname, "sw-a:1/b"), 0);
    ASSERT_EQ(ts_new_str(&g_sys_disp, "Edge36"), 0);

    Event ev;
    ev.device(1, {{65, 1, 1, 0, 0, 1, false}, {66, 2, 7, 2, 0, 2, false}, {130, 66, 0, 0, 0, 0, true}});
    ASSERT_EQ(ovd_handle_device_port_add_event(ev.get()), 0);

    // The key before anything else, then node description and image GUID per SWID.
    const auto j = vqdsim::journal();
    ASSERT_EQ(j.size(), 5u);
    EXPECT_EQ(j[0].reg, "SYSTEM_M_KEY");
    EXPECT_EQ(j[0].cmd, VQD_ACCESS_CMD_SET);
    EXPECT_EQ(j[0].field("dev_id"), 1u);
    EXPECT_EQ(j[0].field("system_m_key"), g_m_key);
    const unsigned swids[] = {0, 0, 2, 2};
    for (size_t n = 1; n < 5; ++n) {
        SCOPED_TRACE(n);
        EXPECT_EQ(j[n].reg, "SPZR");
        EXPECT_EQ(j[n].dev, 1u);
        EXPECT_EQ(j[n].swid, swids[n - 1]);
        EXPECT_EQ(j[n].field("ndm"), n % 2 == 1 ? 1u : 0u);
        EXPECT_EQ(j[n].field("sig"), n % 2 == 0 ? 1u : 0u);
    }
    EXPECT_EQ(j[2].field("system_image_guid_h_l"), 0x02ab010300a1b2c0ull);

    // What the switch now answers as its description on SWID 2.
    ku_spzr_reg spzr{};
    spzr.swid = 2;
    vqd_reg_meta_t meta{};
    meta.access_cmd = VQD_ACCESS_CMD_GET;
    meta.dev_id = 1;
    meta.swid = 2;
    ASSERT_EQ(vqd_access_reg_spzr(&spzr, &meta, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_STREQ(reinterpret_cast<const char *>(spzr.NodeDescription), "MF0;sw-a_1_b:Edge36/U1");

    // The system part of the first event.
    EXPECT_EQ(system_type, k_standalone_type);
    EXPECT_EQ(system_image_guid, 0x02ab010300a1b2c0ull);
    EXPECT_EQ(system_node_guid, system_image_guid);

    devinfo *dev = devsinfo[1];
    ASSERT_NE(dev, nullptr);
    EXPECT_STREQ(ts_str(dev->subsystem_name), "MGMT");
    EXPECT_STREQ(ts_str(dev->device_name), "VQ_SW1");
    EXPECT_EQ(dev->slot_id, 1u);
    EXPECT_EQ(dev->max_ib_speed_hw_cap, 63);   // EDR and all below
    EXPECT_EQ(dev->max_ib_speed_sw_limit, 15);  // FDR10 and all below
    EXPECT_EQ(dev->device_max_speed_limit, 15);

    const ifindexInformation *p66 = port_of(66);
    ASSERT_NE(p66, nullptr);
    EXPECT_EQ(p66->devid, 1u);
    EXPECT_EQ(p66->localport, 2);
    EXPECT_EQ(p66->ibport, 7);
    EXPECT_EQ(p66->assigned_to_swid, 2);
    EXPECT_EQ(p66->label_port, 2);
    EXPECT_EQ(p66->port_direction, 1);
    EXPECT_FALSE(p66->configured_state);
    EXPECT_EQ(port_of(130), nullptr) << "a virtual port is not a physical one";

    // The device's capability as the state tree answers it.
    for (const char *id : {"1", "2", "999"}) {
        SCOPED_TRACE(id);
        const std::string name = std::string("/ib/state/devid/") + id + "/max_speed";
        tstr_array *parts = nullptr;
        ASSERT_EQ(bn_binding_name_to_parts(name.c_str(), &parts, nullptr), 0);
        bn_binding *answer = nullptr;
        ASSERT_EQ(ovd_get_device_max_speed(name.c_str(), parts, &answer), 0);
        if (std::string(id) == "1") {
            uint8 cap = 0;
            ASSERT_NE(answer, nullptr);
            EXPECT_EQ(bn_binding_get_uint8(answer, ba_value, nullptr, &cap), 0);
            EXPECT_EQ(cap, 63);
        } else {
            EXPECT_EQ(answer, nullptr);
        }
        bn_binding_free(&answer);
        tstr_array_free(&parts);
    }

    const virtualIfindexInfo *v = virtual_port_of(130);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->devid, 1u);
    EXPECT_EQ(v->localport, 66);
    EXPECT_EQ(v->ifindex, 130);
    for (uint8 swid : v->assigned_to_swid) {
        EXPECT_EQ(swid, OVD_NO_SWID);
    }
}

TEST_F(DeviceAdd, ChassisNamesTheChipAndLinksAreTiedFromTheLaterEnd)
{
    g_sys_type = k_chassis_type;
    Event first;
    first.device(1, {{65, 1, 1, 0, 0, 1, false}});
    ASSERT_EQ(ovd_handle_device_port_add_event(first.get()), 0);
    EXPECT_STREQ(ts_str(devsinfo[1]->subsystem_name), "MGMT/1");
    EXPECT_EQ(port_of(65)->ifindex_neighbor, 0u);

    // Device 2's port names port 65 as its far end, and 65 learns it back; a neighbour
    // not known yet is left alone.
    Event second;
    second.device(2, {{129, 1, 1, 0, 65, 1, false}, {130, 2, 2, 0, 999, 2, false}});
    ASSERT_EQ(ovd_handle_device_port_add_event(second.get()), 0);
    EXPECT_EQ(port_of(65)->ifindex_neighbor, 129u);
    EXPECT_EQ(port_of(129)->ifindex_neighbor, 65u);
    EXPECT_EQ(port_of(999), nullptr);
}

TEST_F(DeviceAdd, SecondAddReplacesRecordAndNamedPorts)
{
    Event first;
    first.device(1, {{65, 1, 1, 0, 0, 1, false}, {66, 2, 2, 0, 0, 2, false}});
    ASSERT_EQ(ovd_handle_device_port_add_event(first.get()), 0);
    port_of(65)->configured_state = true;
    port_of(65)->active_speed = 7;

    Event again;
    again.device(1, {{65, 1, 9, 0, 0, 5, false}}, 2);
    ASSERT_EQ(ovd_handle_device_port_add_event(again.get()), 0);
    EXPECT_EQ(devsinfo[1]->max_ib_speed_hw_cap, 7);
    const ifindexInformation *p65 = port_of(65);
    ASSERT_NE(p65, nullptr);
    EXPECT_EQ(p65->ibport, 9);
    EXPECT_EQ(p65->label_port, 5);
    EXPECT_FALSE(p65->configured_state);
    EXPECT_EQ(p65->active_speed, 0);
    EXPECT_NE(port_of(66), nullptr) << "ports not named again stay";
}

TEST_F(DeviceAdd, NoPortsIsSuccessWithoutARecord)
{
    Event ev;
    ev.device(2, {});
    ASSERT_EQ(ovd_handle_device_port_add_event(ev.get()), 0);
    EXPECT_EQ(devsinfo[2], nullptr);
    const auto j = vqdsim::journal();
    ASSERT_EQ(j.size(), 1u);
    EXPECT_EQ(j[0].reg, "SYSTEM_M_KEY");

    ASSERT_EQ(ovd_send_device_add_done_event(0, 2), 0);
    ASSERT_EQ(g_sent.size(), 1u);
    EXPECT_EQ(g_sent[0].name, "/ib/events/device-add-done");
    const std::vector<std::pair<std::string, uint32>> want = {{"status", 0}, {"dev_id", 2}};
    EXPECT_EQ(g_sent[0].values, want);
}

TEST_F(DeviceAdd, DeviceIdOutOfRangeIsRefusedAfterItsKeyAndReported)
{
    Event ev;
    ev.device(217, {{65, 1, 1, 0, 0, 1, false}});
    const int err = ovd_handle_device_port_add_event(ev.get());
    EXPECT_EQ(err, lc_err_range);
    EXPECT_EQ(port_of(65), nullptr);
    // The key still went out first: the id is the device record's to refuse.
    const auto j = vqdsim::journal();
    ASSERT_EQ(j.size(), 1u);
    EXPECT_EQ(j[0].reg, "SYSTEM_M_KEY");

    ASSERT_EQ(ovd_send_device_add_done_event(static_cast<uint32>(err), 217), 0);
    ASSERT_EQ(g_sent.size(), 1u);
    const std::vector<std::pair<std::string, uint32>> want = {{"status", 14035}, {"dev_id", 217}};
    EXPECT_EQ(g_sent[0].values, want);

    Event top;
    top.device(216, {{65, 1, 1, 0, 0, 1, false}});
    EXPECT_EQ(ovd_handle_device_port_add_event(top.get()), 0);
    EXPECT_NE(devsinfo[216], nullptr);
}

TEST_F(DeviceAdd, SystemMKeyIsReadOnceAndAnAbsentOneFailsEveryAdd)
{
    Event one;
    one.device(1, {{65, 1, 1, 0, 0, 1, false}});
    Event two;
    two.device(2, {{129, 1, 1, 0, 0, 1, false}});

    g_m_key_present = false;
    EXPECT_EQ(ovd_handle_device_port_add_event(one.get()), lc_err_unexpected_null);
    EXPECT_EQ(ovd_handle_device_port_add_event(one.get()), lc_err_unexpected_null);
    EXPECT_EQ(g_m_key_queries, 2);
    EXPECT_TRUE(vqdsim::journal().empty()) << "nothing touches a device before its key";
    EXPECT_EQ(devsinfo[1], nullptr);

    g_m_key_present = true;
    ASSERT_EQ(ovd_handle_device_port_add_event(one.get()), 0);
    ASSERT_EQ(ovd_handle_device_port_add_event(two.get()), 0);
    EXPECT_EQ(g_m_key_queries, 3);
    const auto writes = vqdsim::journal_of("SYSTEM_M_KEY");
    ASSERT_EQ(writes.size(), 2u);
    EXPECT_EQ(writes[1].field("dev_id"), 2u);
    uint64_t key = 0;
    ASSERT_TRUE(vqdsim::peek_system_m_key(2, &key));
    EXPECT_EQ(key, g_m_key);
}

TEST_F(DeviceAdd, FailedKeyWriteEndsTheFlowWithTheLibraryStatus)
{
    serve_swid(0);
    vqdsim::inject_fault("SYSTEM_M_KEY", 1, -1, 1, VQD_STATUS_FW_BUSY);
    Event ev;
    ev.device(1, {{65, 1, 1, 0, 0, 1, false}});
    EXPECT_EQ(ovd_handle_device_port_add_event(ev.get()), static_cast<int>(VQD_STATUS_FW_BUSY));
    EXPECT_TRUE(vqdsim::journal_of("SPZR").empty());
    EXPECT_EQ(devsinfo[1], nullptr);
}

TEST_F(DeviceAdd, SystemPartIsRetriedUntilItSucceedsOnce)
{
    serve_swid(0);
    Event taken;
    taken.device(1, {{65, 1, 1, 0, 0, 1, false}});
    taken.remove("ib_swid_num");
    taken.u8("ib_swid_num", 1);
    taken.u8("ib_swid_1", 0);
    // A SWID whose context exists already, each time: no device can be added.
    EXPECT_EQ(ovd_handle_device_port_add_event(taken.get()), lc_err_invalid_param);
    EXPECT_EQ(ovd_handle_device_port_add_event(taken.get()), lc_err_invalid_param);
    EXPECT_EQ(devsinfo[1], nullptr);

    Event too_many;
    too_many.device(1, {{65, 1, 1, 0, 0, 1, false}});
    too_many.remove("ib_swid_num");
    too_many.u8("ib_swid_num", 9);
    EXPECT_EQ(ovd_handle_device_port_add_event(too_many.get()), lc_err_assertion_failed);

    Event bad_swid;
    bad_swid.device(1, {{65, 1, 1, 0, 0, 1, false}});
    bad_swid.remove("ib_swid_num");
    bad_swid.u8("ib_swid_num", 1);
    bad_swid.u8("ib_swid_1", 8);
    EXPECT_EQ(ovd_handle_device_port_add_event(bad_swid.get()), lc_err_assertion_failed);

    // No device behind SWID 3 here: its context can't be opened.
    Event unopened;
    unopened.device(1, {{65, 1, 1, 0, 0, 1, false}});
    unopened.remove("ib_swid_num");
    unopened.u8("ib_swid_num", 1);
    unopened.u8("ib_swid_1", 3);
    EXPECT_EQ(ovd_handle_device_port_add_event(unopened.get()), lc_err_generic_error);
    EXPECT_EQ(swidapi_handles[3], nullptr);

    // Once it succeeded it is not done again.
    Event plain;
    plain.device(1, {{65, 1, 1, 0, 0, 1, false}});
    ASSERT_EQ(ovd_handle_device_port_add_event(plain.get()), 0);
    EXPECT_EQ(ovd_handle_device_port_add_event(too_many.get()), 0);
    EXPECT_NE(devsinfo[1], nullptr);
}

TEST_F(DeviceAdd, MissingBindingIsOneAndEarlierPortsStay)
{
    Event ev;
    ev.device(1, {{65, 1, 1, 0, 0, 1, false}, {66, 2, 2, 0, 0, 2, false}});
    ev.remove("label_2");
    EXPECT_EQ(ovd_handle_device_port_add_event(ev.get()), 1);
    EXPECT_NE(devsinfo[1], nullptr);
    EXPECT_NE(port_of(65), nullptr);
    EXPECT_EQ(port_of(66), nullptr);

    uint32 value = 0;
    EXPECT_EQ(getInfoFromAddDeviceEvent(ev.get(), static_cast<addDeviceEventInfo>(30), &value, 0),
              lc_err_unexpected_case);

    // A value of another type than the reader expects is refused.
    Event odd;
    odd.device(1, {});
    odd.remove("port_num");
    odd.u8("port_num", 0);
    EXPECT_EQ(getInfoFromAddDeviceEvent(odd.get(), port_num_en, &value, 0), lc_err_assertion_failed);
}

}  // namespace
