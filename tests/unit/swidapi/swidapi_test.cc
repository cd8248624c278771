// The parts of the hardware access layer that need no fabric: the node description
// text, direct-route addressing, PortInfo decoding, the guards of the MAD operations,
// and the SPZR writes against the simulated ASIC.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "swidapi.h"
#include "vqd_sim.h"

namespace {

// Builds a description into a buffer whose bytes past the 60 must stay untouched.
std::string build(const char *host, const char *sys_disp, uint8_t index = 1,
                  subsystem_type_t slot_type = ST_AUTO_DETECT, int slot = 0,
                  system_type_t sys = S_ZR4000)
{
    char desc[SA_NODE_DESC_LEN + 8];
    memset(desc, '#', sizeof(desc));
    EXPECT_EQ(0, __build_node_desc(sys, host, slot, slot_type, desc, sys_disp, index));
    for (size_t i = SA_NODE_DESC_LEN; i < sizeof(desc); ++i) {
        EXPECT_EQ('#', desc[i]) << "written past the description at " << i;
    }
    EXPECT_NE(nullptr, memchr(desc, '\0', SA_NODE_DESC_LEN)) << "not terminated";
    return std::string(desc, strnlen(desc, SA_NODE_DESC_LEN));
}

// A subsystem type of each kind, from the chassis tables.
subsystem_type_t find_subsystem(bool leaf)
{
    for (int t = 0; t < SAH_SUBSYSTEM_TABLE_CNT; ++t) {
        const auto st = static_cast<subsystem_type_t>(t);
        if (leaf ? sah_mqry_ib_leaf(st) : sah_mqry_ib_spine(st)) {
            return st;
        }
    }
    return ST_AUTO_DETECT;
}

TEST(NodeDescription, PlainTextOfHostSystemAndChip)
{
    EXPECT_EQ("MF0;switch-a:VQ6036/U1", build("switch-a", "VQ6036"));
    EXPECT_EQ("MF0;switch-a:VQ6036/U3", build("switch-a", "VQ6036", 3));
}

TEST(NodeDescription, SystemNameFromTheChassisModelWhenNotGiven)
{
    const std::string sys = sah_get_system_type_str(S_ZR4000, 0);
    ASSERT_FALSE(sys.empty());
    EXPECT_EQ("MF0;h:" + sys + "/U1", build("h", nullptr));
}

TEST(NodeDescription, MissingHostOrSystemBecomesNA)
{
    EXPECT_EQ("MF0;NA:VQ6036/U2", build(nullptr, "VQ6036", 2));
    EXPECT_EQ("MF0;h:NA/U1", build("h", ""));
    EXPECT_EQ("MF0;h:NA/U1", build("h", "UNKNOWN"));
}

TEST(NodeDescription, SlotPartByKindOfBoard)
{
    const subsystem_type_t leaf = find_subsystem(true);
    const subsystem_type_t spine = find_subsystem(false);
    ASSERT_NE(ST_AUTO_DETECT, leaf);
    ASSERT_NE(ST_AUTO_DETECT, spine);
    EXPECT_EQ("MF0;h:SYS/L03/U1", build("h", "SYS", 1, leaf, 3));
    EXPECT_EQ("MF0;h:SYS/S12/U2", build("h", "SYS", 2, spine, 12));
    EXPECT_EQ("MF0;h:SYS/U1", build("h", "SYS", 1, ST_AUTO_DETECT, 3));
}

TEST(NodeDescription, SlashesAndColonsOfTheHostAreReplaced)
{
    EXPECT_EQ("MF0;rack_1_sw_a_:SYS/U1", build("rack/1:sw/a:", "SYS"));
}

TEST(NodeDescription, LongHostIsCutToFit)
{
    const std::string host(80, 'h');
    const std::string text = build(host.c_str(), "VQ6036");
    EXPECT_EQ(59u, text.size());
    EXPECT_EQ("MF0;" + std::string(45, 'h') + ":VQ6036/U1", text);
}

TEST(NodeDescription, LengthLimitIsSixtyWithTheTerminator)
{
    // 4 + host + 10 characters: 45 for the host fills 59 exactly.
    const std::string fits(45, 'a');
    EXPECT_EQ("MF0;" + fits + ":VQ6036/U1", build(fits.c_str(), "VQ6036"));
    const std::string over(46, 'a');
    EXPECT_EQ("MF0;" + fits + ":VQ6036/U1", build(over.c_str(), "VQ6036"));
    // Host characters replaced before cutting.
    const std::string slashes = std::string(50, '/');
    EXPECT_EQ("MF0;" + std::string(45, '_') + ":VQ6036/U1", build(slashes.c_str(), "VQ6036"));
}

TEST(NodeDescription, FallbackWhenTheHostCannotAbsorbTheExcess)
{
    const std::string sys(70, 'S');
    EXPECT_EQ("MF0;NA:NA/U1", build("short", sys.c_str(), 1));
    // The slot goes too.
    EXPECT_EQ("MF0;NA:NA/U4", build("short", sys.c_str(), 4, find_subsystem(true), 7));
}

TEST(NodeDescription, NullBufferFails)
{
    EXPECT_EQ(lc_err_generic_error, __build_node_desc(S_ZR4000, "h", 0, ST_AUTO_DETECT, nullptr, "S", 1));
}

TEST(Status, Texts)
{
    EXPECT_STREQ("OK", sysapi_err2str(SARC_OK));
    EXPECT_STREQ("MAD_SEND_FAILED", sysapi_err2str(SARC_MAD_SEND_FAILED));
    EXPECT_STREQ("CDMIF_ERROR", sysapi_err2str(SARC_CDMIF_ERROR));
    EXPECT_STREQ("No Lid", sysapi_err2str(77));
    EXPECT_STREQ("No Direct Route Path", sysapi_err2str(88));
    EXPECT_STREQ("DIRECT ROUTE IS BROKEN DUE TO PORT DOWN", sysapi_err2str(89));
    EXPECT_STREQ("UNKNOWN", sysapi_err2str(12));
    EXPECT_STREQ("UNKNOWN", sysapi_err2str(20));
    EXPECT_STREQ("UNKNOWN", sysapi_err2str(-1));
}

TEST(DirectRoute, PortIdIsDirectedAndThePathPermissive)
{
    ib_dr_path_t path = {};
    path.cnt = 2;
    path.p[1] = 35;
    path.p[2] = 1;
    ib_portid_t portid;
    memset(&portid, 0x5a, sizeof(portid));
    set_dr_path(&portid, &path);
    EXPECT_EQ(0, portid.lid);
    EXPECT_EQ(0, portid.qp);
    EXPECT_EQ(0, portid.grh_present);
    EXPECT_EQ(2, portid.drpath.cnt);
    EXPECT_EQ(0, portid.drpath.p[0]);
    EXPECT_EQ(35, portid.drpath.p[1]);
    EXPECT_EQ(1, portid.drpath.p[2]);
    EXPECT_EQ(0xffff, portid.drpath.drslid);
    EXPECT_EQ(0xffff, portid.drpath.drdlid);
    // The caller's path is changed too.
    EXPECT_EQ(0xffff, path.drslid);
    EXPECT_EQ(0xffff, path.drdlid);
}

TEST(DirectRoute, PathTextAsTheToolsWriteIt)
{
    ib_dr_path_t path = {};
    char text[] = "0,35,1";
    ASSERT_GE(str2drpath(&path, text, 0, 0), 0);
    EXPECT_EQ(2, path.cnt);
    EXPECT_EQ(35, path.p[1]);
    EXPECT_EQ(1, path.p[2]);
}

TEST(DirectRoute, LidRoutedPortId)
{
    ib_portid_t portid = {};
    portid.grh_present = 1;
    EXPECT_EQ(0, ib_portid_set(&portid, 15, 1, 0x80010000));
    EXPECT_EQ(15, portid.lid);
    EXPECT_EQ(1, portid.qp);
    EXPECT_EQ(0x80010000u, portid.qkey);
    EXPECT_EQ(0, portid.grh_present);
}

// A PortInfo with a distinct value in every field the layer decodes.
struct PortInfoFixture : ::testing::Test {
    uint8_t pi[64] = {};
    void SetUp() override
    {
        mad_set_field(pi, 0, IB_PORT_LOCAL_PORT_F, 17);
        mad_set_field(pi, 0, IB_PORT_LINK_WIDTH_ENABLED_F, 3);
        mad_set_field(pi, 0, IB_PORT_LINK_WIDTH_SUPPORTED_F, 31);
        mad_set_field(pi, 0, IB_PORT_LINK_WIDTH_ACTIVE_F, 2);
        mad_set_field(pi, 0, IB_PORT_LINK_SPEED_SUPPORTED_F, 7);
        mad_set_field(pi, 0, IB_PORT_LINK_SPEED_ENABLED_F, 6);
        mad_set_field(pi, 0, IB_PORT_LINK_SPEED_ACTIVE_F, 4);
        mad_set_field(pi, 0, IB_PORT_STATE_F, 4);
        mad_set_field(pi, 0, IB_PORT_PHYS_STATE_F, 5);
        mad_set_field(pi, 0, IB_PORT_LINK_DOWN_DEF_F, 2);
        mad_set_field(pi, 0, IB_PORT_MTU_CAP_F, 5);
        mad_set_field(pi, 0, IB_PORT_NEIGHBOR_MTU_F, 3);
        mad_set_field(pi, 0, IB_PORT_VL_CAP_F, 4);
        mad_set_field(pi, 0, IB_PORT_OPER_VLS_F, 3);
        mad_set_field(pi, 0, IB_PORT_LID_F, 0xbeef);
    }
};

TEST_F(PortInfoFixture, FullDecodeFillsEveryField)
{
    sa_port_speed_state_t ps = {};
    unpack_port_speed_state(pi, &ps, 0);
    EXPECT_EQ(17, ps.local_port_num);
    EXPECT_EQ(3, ps.link_width_enabled);
    EXPECT_EQ(31, ps.link_width_supported);
    EXPECT_EQ(2, ps.link_width_active);
    EXPECT_EQ(7, ps.link_speed_supported);
    EXPECT_EQ(6, ps.link_speed_enabled);
    EXPECT_EQ(4, ps.link_speed_active);
    EXPECT_EQ(4, ps.port_logical_state);
    EXPECT_EQ(5, ps.port_phy_state);
    EXPECT_EQ(2, ps.link_down_default_state);
    EXPECT_EQ(5, ps.mtu_cap);
    EXPECT_EQ(3, ps.neighbor_mtu);
    EXPECT_EQ(4, ps.vl_cap);
    EXPECT_EQ(3, ps.oper_vl);
    EXPECT_EQ(0xbeef, ps.lid);
}

TEST_F(PortInfoFixture, StateOnlyLeavesTheRestAsItWas)
{
    sa_port_speed_state_t ps;
    memset(&ps, 0xaa, sizeof(ps));
    unpack_port_speed_state(pi, &ps, 1);
    EXPECT_EQ(4, ps.port_logical_state);
    EXPECT_EQ(5, ps.port_phy_state);
    EXPECT_EQ(0xbeef, ps.lid);
    EXPECT_EQ(0xaa, ps.local_port_num);
    EXPECT_EQ(0xaa, ps.link_width_active);
    EXPECT_EQ(0xaa, ps.link_speed_active);
    EXPECT_EQ(0xaa, ps.mtu_cap);
    EXPECT_EQ(0xaa, ps.oper_vl);
}

TEST(Guards, CheckDrPathWithoutAnOutParameter)
{
    swidapi_t ctx = {};
    ib_dr_path_t path = {};
    EXPECT_EQ(SARC_ERROR, check_dr_path(&ctx, &path, nullptr));
}

TEST(Guards, PathOfNoHopsPassesWithoutADatagram)
{
    // No port is open: any datagram would fail.
    swidapi_t ctx = {};
    ib_dr_path_t path = {};
    uint8_t failed = 0x7f;
    EXPECT_EQ(SARC_OK, check_dr_path(&ctx, &path, &failed));
    EXPECT_EQ(0, failed);
    path.cnt = 1;
    path.p[1] = 3;
    failed = 0x7f;
    EXPECT_EQ(SARC_ERROR, check_dr_path(&ctx, &path, &failed));
    EXPECT_EQ(0, failed);
}

TEST(Guards, QueriesWithoutAnOpenPort)
{
    swidapi_t ctx = {};
    ib_dr_path_t path = {};
    sa_port_speed_state_t ps = {};
    sa_node_info_t ni = {};
    int master_up = 7;
    u_int16_t lid = 9;
    EXPECT_EQ(SARC_ERROR, get_port_info(&ctx, &path, 1, &ps, 0));
    EXPECT_EQ(SARC_ERROR, sa_get_port_info(&ctx, 0, &path, 1, &ps));
    EXPECT_EQ(SARC_ERROR, sa_get_node_info(&ctx, 0, &path, 1, &ni));
    EXPECT_EQ(SARC_ERROR, get_lid_by_drpath(&ctx, &path, &lid));
    EXPECT_EQ(9, lid);
    EXPECT_EQ(SARC_ERROR, sa_is_master_sm_in_swid(nullptr, &master_up, 100));
    EXPECT_EQ(SARC_ERROR, sa_is_master_sm_in_swid(&ctx, &master_up, 100));
    EXPECT_EQ(7, master_up);
}

TEST(Session, OpenFailsWithoutTheDeviceAndLeavesNoContext)
{
    // No SWID device 7 on a build machine.
    swidapi_t *ctx = reinterpret_cast<swidapi_t *>(0x1);
    EXPECT_EQ(lc_err_generic_error, sa_init(&ctx, S_ZR4000, 7));
    EXPECT_EQ(nullptr, ctx);
    EXPECT_EQ(0, sa_destroy(&ctx));
    EXPECT_NE(0, sa_destroy(nullptr));
}

TEST(Sysfs, MissingDeviceFileIsNotFound)
{
    char val[16] = "untouched";
    EXPECT_EQ(lc_err_not_found, get_ib_fn("lid", val, sizeof(val), "no-such-swid"));
    EXPECT_STREQ("untouched", val);
}

class Spzr : public ::testing::Test {
protected:
    void SetUp() override
    {
        vqdsim::reset();
        ctx_.swid_num = 0;
        ctx_.sys_type = S_ZR4000;
    }
    void TearDown() override { vqdsim::reset(); }

    ku_spzr_reg read_back(vqd_dev_id_t dev)
    {
        ku_spzr_reg r = {};
        vqd_reg_meta_t meta = {VQD_ACCESS_CMD_GET, dev, 0};
        EXPECT_EQ(VQD_STATUS_SUCCESS, vqd_access_reg_spzr(&r, &meta, 1, nullptr, nullptr));
        return r;
    }

    swidapi_t ctx_ = {};
};

TEST_F(Spzr, NodeDescriptionIsWrittenWithItsMaskOnly)
{
    const ku_spzr_reg before = read_back(1);
    ASSERT_EQ(0, sa_set_node_ndesc(&ctx_, 1, "sw:a", 1, ST_AUTO_DETECT, "VQ6036", 2));
    const ku_spzr_reg after = read_back(1);
    EXPECT_STREQ("MF0;sw_a:VQ6036/U2", reinterpret_cast<const char *>(after.NodeDescription));
    EXPECT_EQ(before.node_guid_h_l, after.node_guid_h_l);
    EXPECT_EQ(before.system_image_guid_h_l, after.system_image_guid_h_l);

    vqdsim::JournalEntry w;
    for (const auto &e : vqdsim::journal_of("SPZR")) {
        if (e.cmd == VQD_ACCESS_CMD_SET) {
            w = e;
        }
    }
    EXPECT_EQ(VQD_ACCESS_CMD_SET, w.cmd);
    EXPECT_EQ(1u, w.dev);
    EXPECT_EQ(0u, w.swid);
    EXPECT_EQ(1u, w.field("ndm"));
    EXPECT_EQ(0u, w.field("sig"));
    EXPECT_EQ(0u, w.field("ng"));
}

TEST_F(Spzr, GuidsAreWrittenOneAtATime)
{
    const ku_spzr_reg before = read_back(1);
    ASSERT_EQ(0, sa_set_sysimageguid(&ctx_, 1, 0x1122334455667788ULL));
    ku_spzr_reg r = read_back(1);
    EXPECT_EQ(0x1122334455667788ULL, r.system_image_guid_h_l);
    EXPECT_EQ(before.node_guid_h_l, r.node_guid_h_l);

    ASSERT_EQ(0, sa_set_nodeguid(&ctx_, 1, 0x99aabbccddeeff00ULL));
    r = read_back(1);
    EXPECT_EQ(0x99aabbccddeeff00ULL, r.node_guid_h_l);
    EXPECT_EQ(0x1122334455667788ULL, r.system_image_guid_h_l);
    EXPECT_EQ(0, memcmp(before.NodeDescription, r.NodeDescription, sizeof(r.NodeDescription)));
}

TEST_F(Spzr, RegisterFailureIsAGenericError)
{
    vqdsim::inject_fault("SPZR", 1, -1, 3, VQD_STATUS_FW_BUSY);
    EXPECT_EQ(lc_err_generic_error, sa_set_node_ndesc(&ctx_, 1, "h", 1, ST_AUTO_DETECT, "S", 1));
    EXPECT_EQ(lc_err_generic_error, sa_set_sysimageguid(&ctx_, 1, 1));
    EXPECT_EQ(lc_err_generic_error, sa_set_nodeguid(&ctx_, 1, 1));
    EXPECT_NE(0, sa_set_nodeguid(nullptr, 1, 1));
    // No such device.
    EXPECT_EQ(lc_err_generic_error, sa_set_nodeguid(&ctx_, 200, 1));
}

}  // namespace
