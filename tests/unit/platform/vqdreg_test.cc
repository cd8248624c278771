// The simulated register library: model loading, register behaviour, the journal,
// fault injection and the platform configuration.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "vqd_access_reg.h"
#include "vqd_sim.h"

namespace {

vqd_reg_meta_t meta(vqd_access_cmd_t cmd, uint8_t dev, uint8_t swid = 0)
{
    vqd_reg_meta_t m{};
    m.access_cmd = cmd;
    m.dev_id = dev;
    m.swid = swid;
    return m;
}

vqd_status_t ptys(vqd_access_cmd_t cmd, uint8_t dev, uint8_t lp, ku_ptys_reg *r)
{
    vqd_reg_meta_t m = meta(cmd, dev);
    r->local_port = lp;
    r->proto_mask = reg_ptys_proto_mask_ib;
    return vqd_access_reg_ptys(r, &m, 1, nullptr, nullptr);
}

vqd_status_t paos_set(uint8_t dev, uint8_t lp, uint8_t admin)
{
    ku_paos_reg r{};
    r.local_port = lp;
    r.admin_status = admin;
    r.ase = 1;
    vqd_reg_meta_t m = meta(VQD_ACCESS_CMD_SET, dev);
    return vqd_access_reg_paos(&r, &m, 1, nullptr, nullptr);
}

ku_paos_reg paos_get(uint8_t dev, uint8_t lp)
{
    ku_paos_reg r{};
    r.local_port = lp;
    vqd_reg_meta_t m = meta(VQD_ACCESS_CMD_GET, dev);
    EXPECT_EQ(vqd_access_reg_paos(&r, &m, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    return r;
}

std::string source_dir()
{
    return OVD_SOURCE_DIR;
}

std::string read_file(const std::string &path)
{
    std::ifstream f(path);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

class VqdRegTest : public ::testing::Test {
protected:
    void SetUp() override { vqdsim::reset(); }
    void TearDown() override { vqdsim::reset(); }
};

// ---- Model ----

TEST_F(VqdRegTest, DefaultModelIsOneDeviceWith36Ports)
{
    ku_ptys_reg r{};
    for (uint8_t lp = 1; lp <= 36; ++lp) {
        ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, lp, &r), VQD_STATUS_SUCCESS) << int(lp);
    }
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 37, &r), VQD_STATUS_PARAM_ERROR);
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 0, &r), VQD_STATUS_PARAM_ERROR);
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 2, 1, &r), VQD_STATUS_NO_PATH_TO_DEVICE);
}

TEST_F(VqdRegTest, BundledModelFilesAreTheBuiltInOnes)
{
    const std::string dir = source_dir() + "/src/platform/libvqdreg/models/";
    EXPECT_EQ(read_file(dir + "standalone36.model"), vqdsim::builtin_model_text("standalone36"));
    EXPECT_EQ(read_file(dir + "chassis_small.model"), vqdsim::builtin_model_text("chassis_small"));
    EXPECT_EQ(vqdsim::builtin_model_text("nothing"), nullptr);
}

TEST_F(VqdRegTest, ChassisModelHasThreeDevicesAndInternalPorts)
{
    std::string why;
    ASSERT_TRUE(vqdsim::load_model_text(vqdsim::builtin_model_text("chassis_small"), &why)) << why;
    // An internal leaf port has no cage and is up; a spine port too.
    EXPECT_EQ(paos_get(1, 30).oper_status, VQD_SIM_OPER_UP);
    EXPECT_EQ(paos_get(3, 36).oper_status, VQD_SIM_OPER_UP);
    // An empty cage on the second leaf keeps its port down.
    EXPECT_EQ(paos_get(2, 15).oper_status, VQD_SIM_OPER_DOWN);
    ku_ptys_reg r{};
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 4, 1, &r), VQD_STATUS_NO_PATH_TO_DEVICE);
}

TEST_F(VqdRegTest, VirtualPortsAndLaterLinesOverride)
{
    std::string why;
    ASSERT_TRUE(vqdsim::load_model_text("device 5\n"
                                        "port 5 1-4 module=auto speed_cap=0x3f\n"
                                        "port 5 2 speed_cap=0x04 admin=down\n"
                                        "port 5 65-66 module=none\n"
                                        "module 5 0-3 present=yes\n",
                                        &why))
        << why;
    ku_ptys_reg r{};
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 5, 2, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_capability & 0xff, 0x04u);
    EXPECT_EQ(paos_get(5, 2).admin_status, VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF);
    EXPECT_EQ(paos_get(5, 65).oper_status, VQD_SIM_OPER_UP);
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 5, 1, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_capability & 0xff, 0x3fu);
}

TEST_F(VqdRegTest, BadModelIsRefusedWithLineAndOldModelStays)
{
    std::string why;
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nport 2 1-4\n", &why));
    EXPECT_NE(why.find("line 2"), std::string::npos) << why;
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nport 1 1 speed=3\n", &why));
    EXPECT_NE(why.find("speed=3"), std::string::npos) << why;
    EXPECT_FALSE(vqdsim::load_model_text("switch 1\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 1 board_id=\"open\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 217\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nport 1 0-3\n", &why));
    // The default model is still there.
    ku_ptys_reg r{};
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 36, &r), VQD_STATUS_SUCCESS);
}

// ---- Register behaviour ----

TEST_F(VqdRegTest, PaosAdminMovesOperationalStatus)
{
    EXPECT_EQ(paos_get(1, 3).oper_status, VQD_SIM_OPER_UP);
    ASSERT_EQ(paos_set(1, 3, VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF), VQD_STATUS_SUCCESS);
    ku_paos_reg down = paos_get(1, 3);
    EXPECT_EQ(down.admin_status, VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF);
    EXPECT_EQ(down.oper_status, VQD_SIM_OPER_DOWN);
    ku_ptys_reg r{};
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 3, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_oper, 0u);
    ASSERT_EQ(paos_set(1, 3, VQD_PORT_ADMIN_STATUS_UP), VQD_STATUS_SUCCESS);
    EXPECT_EQ(paos_get(1, 3).oper_status, VQD_SIM_OPER_UP);
    // Without "ase" the admin state is not touched.
    ku_paos_reg noop{};
    noop.local_port = 3;
    noop.admin_status = VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF;
    vqd_reg_meta_t m = meta(VQD_ACCESS_CMD_SET, 1);
    ASSERT_EQ(vqd_access_reg_paos(&noop, &m, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(paos_get(1, 3).oper_status, VQD_SIM_OPER_UP);
}

TEST_F(VqdRegTest, PortWithoutModuleStaysDownUntilPlugged)
{
    // Cages 32-35 are empty in the default model: local port 33 is module 32.
    EXPECT_EQ(paos_get(1, 33).oper_status, VQD_SIM_OPER_DOWN);
    ASSERT_TRUE(vqdsim::set_module_present(1, 32, true));
    EXPECT_EQ(paos_get(1, 33).oper_status, VQD_SIM_OPER_UP);
    // The plug shows in PMPC (module 32 is bit 0 of word 6) until acknowledged.
    ku_pmpc_reg pmpc{};
    vqd_reg_meta_t m = meta(VQD_ACCESS_CMD_GET, 1);
    ASSERT_EQ(vqd_access_reg_pmpc(&pmpc, &m, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(pmpc.module_state_updated_bitmap[6], 1u);
    m.access_cmd = VQD_ACCESS_CMD_SET;
    ASSERT_EQ(vqd_access_reg_pmpc(&pmpc, &m, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    m.access_cmd = VQD_ACCESS_CMD_GET;
    ASSERT_EQ(vqd_access_reg_pmpc(&pmpc, &m, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(pmpc.module_state_updated_bitmap[6], 0u);
}

TEST_F(VqdRegTest, PtysOperationalFollowsAdminAndCapability)
{
    ku_ptys_reg r{};
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 7, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_capability, 0x0005003fu);
    EXPECT_EQ(r.ib_proto_oper, 0x00040020u);  // EDR at 4X

    ku_ptys_reg w{};
    w.ib_proto_admin = 0x00010006;  // DDR|QDR at 1X
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_SET, 1, 7, &w), VQD_STATUS_SUCCESS);
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 7, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_admin, 0x00010006u);
    EXPECT_EQ(r.ib_proto_oper, 0x00010004u);

    // A width the port can't run is refused and changes nothing.
    w.ib_proto_admin = 0x00020004;
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_SET, 1, 7, &w), VQD_STATUS_FW_ERROR);
    ASSERT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 7, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.ib_proto_admin, 0x00010006u);
}

TEST_F(VqdRegTest, PmtuAndPvlcOperationalFollowAdmin)
{
    ku_pmtu_reg mtu{};
    mtu.local_port = 2;
    mtu.admin_mtu = 2048;
    vqd_reg_meta_t set = meta(VQD_ACCESS_CMD_SET, 1), get = meta(VQD_ACCESS_CMD_GET, 1);
    ASSERT_EQ(vqd_access_reg_pmtu(&mtu, &set, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    ku_pmtu_reg mr{};
    mr.local_port = 2;
    ASSERT_EQ(vqd_access_reg_pmtu(&mr, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(mr.max_mtu, 4096);
    EXPECT_EQ(mr.admin_mtu, 2048);
    EXPECT_EQ(mr.oper_mtu, 2048);
    mtu.admin_mtu = 8192;
    EXPECT_EQ(vqd_access_reg_pmtu(&mtu, &set, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);

    ku_pvlc_reg vl{};
    vl.local_port = 2;
    vl.vl_admin = 3;
    ASSERT_EQ(vqd_access_reg_pvlc(&vl, &set, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    ku_pvlc_reg vr{};
    vr.local_port = 2;
    ASSERT_EQ(vqd_access_reg_pvlc(&vr, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(vr.vl_cap, 8);
    EXPECT_EQ(vr.vl_admin, 3);
    EXPECT_EQ(vr.vl_operational, 3);
    vl.vl_admin = 9;
    EXPECT_EQ(vqd_access_reg_pvlc(&vl, &set, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);
}

TEST_F(VqdRegTest, PlibAndPspaMapsAreKept)
{
    vqd_reg_meta_t set = meta(VQD_ACCESS_CMD_SET, 1), get = meta(VQD_ACCESS_CMD_GET, 1);
    ku_plib_reg plib{};
    plib.local_port = 9;
    ASSERT_EQ(vqd_access_reg_plib(&plib, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(plib.ib_port, 9);
    plib.ib_port = 21;
    ASSERT_EQ(vqd_access_reg_plib(&plib, &set, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    plib.ib_port = 0;
    ASSERT_EQ(vqd_access_reg_plib(&plib, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(plib.ib_port, 21);

    ku_pspa_reg pspa{};
    pspa.local_port = 9;
    pspa.swid = 255;
    ASSERT_EQ(vqd_access_reg_pspa(&pspa, &set, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    pspa.swid = 0;
    ASSERT_EQ(vqd_access_reg_pspa(&pspa, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(pspa.swid, 255);
    pspa.swid = 9;
    EXPECT_EQ(vqd_access_reg_pspa(&pspa, &set, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);
}

TEST_F(VqdRegTest, MciaReadsQsfpIdentityInWireOrder)
{
    ku_mcia_reg r{};
    r.module = 0;
    r.i2c_device_address = 0x50;
    r.page_number = 0;
    r.device_address = 148;  // vendor name
    r.size = 16;
    vqd_reg_meta_t get = meta(VQD_ACCESS_CMD_GET, 1);
    ASSERT_EQ(vqd_access_reg_mcia(&r, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.status, 0);
    char name[17] = {0};
    memcpy(name, &r.dword_0, 16);
    EXPECT_STREQ(name, "VQ CABLES       ");
    // Host order after ntohl puts the first byte on top.
    EXPECT_EQ(ntohl(r.dword_0) >> 24, static_cast<uint32_t>('V'));

    ku_mcia_reg id{};
    id.module = 0;
    id.i2c_device_address = 0x50;
    id.device_address = 128;
    id.size = 4;
    ASSERT_EQ(vqd_access_reg_mcia(&id, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(ntohl(id.dword_0) >> 24, 0x11u);  // QSFP28

    ku_mcia_reg empty{};
    empty.module = 33;
    empty.i2c_device_address = 0x50;
    empty.size = 4;
    ASSERT_EQ(vqd_access_reg_mcia(&empty, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(empty.status, 3);  // no module

    r.size = 49;
    EXPECT_EQ(vqd_access_reg_mcia(&r, &get, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);
    r.module = 200;
    r.size = 4;
    EXPECT_EQ(vqd_access_reg_mcia(&r, &get, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);
}

TEST_F(VqdRegTest, ModuleKindsAnswerAtTheirI2cAddressesAndPmaosFollowsThem)
{
    std::string why;
    ASSERT_TRUE(vqdsim::load_model_text("device 1\n"
                                        "port 1 1-4 module=auto\n"
                                        "module 1 0 present=yes type=sfp media=optical om3=300\n"
                                        "module 1 1 present=yes type=qsfp speed=sdr,edr oper=3\n"
                                        "module 1 2 present=yes type=qsfp28 fault=16\n",
                                        &why))
        << why;
    vqd_reg_meta_t get = meta(VQD_ACCESS_CMD_GET, 1);
    auto read = [&](uint8_t module, uint8_t i2c, uint8_t page, uint16_t addr, ku_mcia_reg *r) {
        *r = ku_mcia_reg{};
        r->module = module;
        r->i2c_device_address = i2c;
        r->page_number = page;
        r->device_address = addr;
        r->size = 4;
        return vqd_access_reg_mcia(r, &get, 1, nullptr, nullptr);
    };
    ku_mcia_reg r{};
    ASSERT_EQ(read(0, 0x50, 0, 0, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(ntohl(r.dword_0) >> 24, 0x03u);  // SFP
    ASSERT_EQ(read(0, 0x50, 0, 16, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(ntohl(r.dword_0) & 0xff, 30u);   // byte 19: OM3 in 10 m
    ASSERT_EQ(read(0, 0x51, 0, 96, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(ntohl(r.dword_0) >> 24, 0x19u);  // A2h: temperature
    ASSERT_EQ(read(1, 0x51, 0, 0, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.status, 9);                    // a QSFP module has no A2h
    ASSERT_EQ(read(1, 0x50, 0, 164, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(ntohl(r.dword_0) >> 24, 0x11u);  // SDR and EDR
    ASSERT_EQ(read(2, 0x50, 0, 0, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(r.status, 16);
    EXPECT_EQ(read(0, 0x52, 0, 0, &r), VQD_STATUS_PARAM_ERROR);

    const uint8_t want_oper[4] = {1, 3, 1, 2};
    for (uint8_t m = 0; m < 4; ++m) {
        ku_pmaos_reg p{};
        p.module = m;
        ASSERT_EQ(vqd_access_reg_pmaos(&p, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
        EXPECT_EQ(p.oper_status, want_oper[m]) << "module " << int(m);
    }

    EXPECT_FALSE(vqdsim::load_model_text("device 1\nmodule 1 0 type=xfp\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nmodule 1 0 speed=sdr,xdr\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nmodule 1 0 media=glass\n", &why));
    EXPECT_FALSE(vqdsim::load_model_text("device 1\nmodule 1 0 fault=256\n", &why));
}

TEST_F(VqdRegTest, SpzrChangesOnlyMaskedFields)
{
    vqd_reg_meta_t set = meta(VQD_ACCESS_CMD_SET, 1), get = meta(VQD_ACCESS_CMD_GET, 1);
    ku_spzr_reg before{};
    ASSERT_EQ(vqd_access_reg_spzr(&before, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_EQ(before.node_guid_h_l, 0x02ab010300a1b2c0ull);

    ku_spzr_reg w{};
    w.ndm = 1;
    strcpy(reinterpret_cast<char *>(w.NodeDescription), "MF0;sw:VQ/U1");
    w.node_guid_h_l = 0x1234;  // without ng: ignored
    w.sig = 1;
    w.system_image_guid_h_l = 0xabcd;
    ASSERT_EQ(vqd_access_reg_spzr(&w, &set, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    ku_spzr_reg after{};
    ASSERT_EQ(vqd_access_reg_spzr(&after, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
    EXPECT_STREQ(reinterpret_cast<char *>(after.NodeDescription), "MF0;sw:VQ/U1");
    EXPECT_EQ(after.node_guid_h_l, 0x02ab010300a1b2c0ull);
    EXPECT_EQ(after.system_image_guid_h_l, 0xabcdull);
}

TEST_F(VqdRegTest, SystemMKeyAndBoardInfo)
{
    ku_system_m_key key{};
    key.dev_id = 1;
    key.system_m_key = 0x1122334455667788ull;
    ASSERT_EQ(vqd_access_reg_system_m_key_access(VQD_ACCESS_CMD_SET, &key), VQD_STATUS_SUCCESS);
    uint64_t got = 0;
    ASSERT_TRUE(vqdsim::peek_system_m_key(1, &got));
    EXPECT_EQ(got, 0x1122334455667788ull);
    // The driver takes a key for a device it doesn't reach; reading one back needs the device.
    key.dev_id = 9;
    EXPECT_EQ(vqd_access_reg_system_m_key_access(VQD_ACCESS_CMD_SET, &key), VQD_STATUS_SUCCESS);
    EXPECT_EQ(vqd_access_reg_system_m_key_access(VQD_ACCESS_CMD_GET, &key), VQD_STATUS_NO_PATH_TO_DEVICE);
    EXPECT_FALSE(vqdsim::peek_system_m_key(9, &got));

    ku_query_board_info bi{};
    bi.dev_id = 1;
    ASSERT_EQ(vqd_access_reg_query_board_info(&bi), VQD_STATUS_SUCCESS);
    EXPECT_STREQ(bi.board_id, "VQ_SW36_EDR");
    EXPECT_EQ(bi.vsd_vendor_id, 0x02ab);
}

TEST_F(VqdRegTest, CommandsOtherThanGetAndSetAreRefused)
{
    ku_ptys_reg r{};
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_ADD, 1, 1, &r), VQD_STATUS_CMD_UNSUPPORTED);
    EXPECT_EQ(ptys(static_cast<vqd_access_cmd_t>(9), 1, 1, &r), VQD_STATUS_INVALID_ACCESS_CMD);
    vqd_reg_meta_t m = meta(VQD_ACCESS_CMD_GET, 1);
    EXPECT_EQ(vqd_access_reg_ptys(nullptr, &m, 1, nullptr, nullptr), VQD_STATUS_PARAM_ERROR);
}

// ---- Journal and faults ----

TEST_F(VqdRegTest, JournalKeepsEveryAccessInOrder)
{
    paos_set(1, 4, VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF);
    ku_ptys_reg r{};
    ptys(VQD_ACCESS_CMD_GET, 1, 4, &r);
    ptys(VQD_ACCESS_CMD_GET, 3, 4, &r);
    auto j = vqdsim::journal();
    ASSERT_EQ(j.size(), 3u);
    EXPECT_EQ(j[0].reg, "PAOS");
    EXPECT_EQ(j[0].cmd, VQD_ACCESS_CMD_SET);
    EXPECT_EQ(j[0].key, 4);
    EXPECT_EQ(j[0].field("admin_status"), 2u);
    EXPECT_EQ(j[0].field("ase"), 1u);
    EXPECT_FALSE(j[0].has("nonsense"));
    EXPECT_EQ(j[1].reg, "PTYS");
    EXPECT_EQ(j[1].status, 0);
    EXPECT_EQ(j[2].dev, 3u);
    EXPECT_EQ(j[2].status, VQD_STATUS_NO_PATH_TO_DEVICE);
    EXPECT_LT(j[0].seq, j[1].seq);
    EXPECT_NE(j[0].to_string().find("PAOS SET dev=1 swid=0 key=4 status=0"), std::string::npos)
        << j[0].to_string();
    EXPECT_EQ(vqdsim::journal_of("ptys").size(), 2u);
    vqdsim::clear_journal();
    EXPECT_TRUE(vqdsim::journal().empty());
}

TEST_F(VqdRegTest, InjectedFaultsHitOnlyTheirAddressAndRunOut)
{
    vqdsim::inject_fault("ptys", 1, 5, 2, VQD_STATUS_FW_BUSY);
    ku_ptys_reg r{};
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 6, &r), VQD_STATUS_SUCCESS);
    EXPECT_EQ(paos_set(1, 5, VQD_PORT_ADMIN_STATUS_UP), VQD_STATUS_SUCCESS);
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 5, &r), VQD_STATUS_FW_BUSY);
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_SET, 1, 5, &r), VQD_STATUS_FW_BUSY);
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 5, &r), VQD_STATUS_SUCCESS);
    auto j = vqdsim::journal_of("PTYS");
    ASSERT_EQ(j.size(), 4u);
    EXPECT_EQ(j[1].status, VQD_STATUS_FW_BUSY);
    EXPECT_EQ(j[3].status, 0);

    // Any key, and clearing.
    vqdsim::inject_fault("PMTU", 1, -1, 5, VQD_STATUS_TIMEOUT);
    ku_pmtu_reg m{};
    m.local_port = 30;
    vqd_reg_meta_t get = meta(VQD_ACCESS_CMD_GET, 1);
    EXPECT_EQ(vqd_access_reg_pmtu(&m, &get, 1, nullptr, nullptr), VQD_STATUS_TIMEOUT);
    vqdsim::clear_faults();
    m.local_port = 30;  // the failed access left the record garbled
    EXPECT_EQ(vqd_access_reg_pmtu(&m, &get, 1, nullptr, nullptr), VQD_STATUS_SUCCESS);
}

struct HandlerLog {
    int calls = 0;
    vqd_status_t last = VQD_STATUS_ERROR;
};

void handler(vqd_status_t status, void *, vqd_reg_meta_t *, void *context)
{
    auto *log = static_cast<HandlerLog *>(context);
    ++log->calls;
    log->last = status;
}

TEST_F(VqdRegTest, CompletionHandlerGetsEachRecordsStatus)
{
    HandlerLog log;
    vqdsim::inject_fault("PSPA", 1, 2, 1, VQD_STATUS_FW_RESOURCE_UNAVAILABLE);
    ku_pspa_reg recs[2]{};
    recs[0].local_port = 1;
    recs[1].local_port = 2;
    vqd_reg_meta_t metas[2] = {meta(VQD_ACCESS_CMD_GET, 1), meta(VQD_ACCESS_CMD_GET, 1)};
    EXPECT_EQ(vqd_access_reg_pspa(recs, metas, 2, handler, &log), VQD_STATUS_FW_RESOURCE_UNAVAILABLE);
    EXPECT_EQ(log.calls, 2);
    EXPECT_EQ(log.last, VQD_STATUS_FW_RESOURCE_UNAVAILABLE);
}

// ---- Opening, closing and the configuration file ----

class VqdRegConfigTest : public VqdRegTest {
protected:
    void SetUp() override
    {
        VqdRegTest::SetUp();
        char dir[] = "/tmp/vqdreg_test_XXXXXX";
        ASSERT_NE(mkdtemp(dir), nullptr);
        dir_ = dir;
        vqdsim::set_config_path(dir_ + "/vqdreg.conf");
        ASSERT_EQ(vqd_access_reg_deinit(), VQD_STATUS_SUCCESS);
    }
    void TearDown() override
    {
        vqd_access_reg_deinit();
        vqdsim::set_config_path(vqdsim::kDefaultConfigPath);
        unlink((dir_ + "/vqdreg.conf").c_str());
        unlink((dir_ + "/journal.log").c_str());
        rmdir(dir_.c_str());
        VqdRegTest::TearDown();
    }
    void write_config(const std::string &text)
    {
        std::ofstream f(dir_ + "/vqdreg.conf");
        f << text;
    }
    std::string dir_;
};

std::string g_last_log;
int g_log_calls = 0;

void sim_log_cb(vq_log_severity_t, const char *, char *msg)
{
    ++g_log_calls;
    g_last_log = msg;
}

TEST_F(VqdRegConfigTest, ClosedLibraryRefusesAccess)
{
    ku_ptys_reg r{};
    EXPECT_EQ(ptys(VQD_ACCESS_CMD_GET, 1, 1, &r), VQD_STATUS_NOT_INITIALIZED);
    EXPECT_EQ(vqd_access_reg_deinit(), VQD_STATUS_NOT_INITIALIZED);
    EXPECT_FALSE(vqdsim::is_open());
}

TEST_F(VqdRegConfigTest, WithoutConfigurationTheDefaultModelServes)
{
    ASSERT_EQ(vqd_access_reg_init(0, nullptr, 15), VQD_STATUS_SUCCESS);
    EXPECT_TRUE(vqdsim::is_open());
    EXPECT_EQ(paos_get(1, 36).local_port, 36);
}

TEST_F(VqdRegConfigTest, ConfigurationNamesModelJournalAndFaults)
{
    write_config("# test platform\n"
                 "model builtin:chassis_small\n"
                 "journal " + dir_ + "/journal.log\n"
                 "fault paos 2 7 1 16\n");
    g_log_calls = 0;
    ASSERT_EQ(vqd_access_reg_init(0, sim_log_cb, VQ_LOG_SEVERITY_INFO), VQD_STATUS_SUCCESS);
    EXPECT_GT(g_log_calls, 0);
    EXPECT_EQ(paos_set(2, 7, VQD_PORT_ADMIN_STATUS_UP), VQD_STATUS_FW_BUSY);
    EXPECT_EQ(paos_set(2, 7, VQD_PORT_ADMIN_STATUS_UP), VQD_STATUS_SUCCESS);
    EXPECT_EQ(paos_get(3, 20).local_port, 20);  // the spine exists
    ASSERT_EQ(vqd_access_reg_deinit(), VQD_STATUS_SUCCESS);

    std::istringstream lines(read_file(dir_ + "/journal.log"));
    std::string l1, l2, l3;
    std::getline(lines, l1);
    std::getline(lines, l2);
    std::getline(lines, l3);
    EXPECT_NE(l1.find("PAOS SET dev=2 swid=0 key=7 status=16"), std::string::npos) << l1;
    EXPECT_NE(l2.find("PAOS SET dev=2 swid=0 key=7 status=0"), std::string::npos) << l2;
    EXPECT_NE(l3.find("PAOS GET dev=3"), std::string::npos) << l3;
}

TEST_F(VqdRegConfigTest, BrokenConfigurationFailsTheOpen)
{
    write_config("model /nonexistent/file.model\n");
    g_last_log.clear();
    EXPECT_EQ(vqd_access_reg_init(0, sim_log_cb, 15), VQD_STATUS_ERROR);
    EXPECT_NE(g_last_log.find("/nonexistent/file.model"), std::string::npos) << g_last_log;
    EXPECT_FALSE(vqdsim::is_open());
    write_config("colour blue\n");
    EXPECT_EQ(vqd_access_reg_init(0, sim_log_cb, 15), VQD_STATUS_ERROR);
    write_config("fault PTYS 1 x 1 16\n");
    EXPECT_EQ(vqd_access_reg_init(0, sim_log_cb, 15), VQD_STATUS_ERROR);
}

TEST(VqdRegTexts, StatusAndCommandTexts)
{
    EXPECT_STREQ(VQD_STATUS_MSG(0), "SUCCESS");
    EXPECT_STREQ(VQD_STATUS_MSG(16), "FW BUSY");
    EXPECT_STREQ(VQD_STATUS_MSG(17), "FW Resource unavailable");
    EXPECT_STREQ(VQD_STATUS_MSG(18), "Unknown return code");
    EXPECT_STREQ(VQD_STATUS_MSG(-1), "Unknown return code");
    EXPECT_STREQ(VQD_ACCESS_CMD_STR(5), "GET ALL");
    EXPECT_STREQ(VQD_ACCESS_CMD_STR(6), "UNKNOWN");
}

}  // namespace
