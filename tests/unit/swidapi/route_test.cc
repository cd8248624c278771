// The module-changed bitmap of PMPC in both directions, the board information query and
// the texts of the route check results, against the simulated ASIC.
#include <gtest/gtest.h>

#include <string>

#include "logging.h"
#include "sa_route.h"
#include "vqd_sim.h"

namespace {

const char kModel[] = "device 1 board_id=\"VQ_TEST_BOARD\" vendor_id=0x02ab\n"
                      "port 1 1-40 module=auto\n"
                      "module 1 0-39 present=yes\n";

class PmpcTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        vqdsim::reset();
        std::string why;
        ASSERT_TRUE(vqdsim::load_model_text(kModel, &why)) << why;
    }
};

TEST_F(PmpcTest, ChangedModulesAreReadFromTheLastWordOn)
{
    uint64 changed = ~0ull;
    ASSERT_EQ(0, sa_get_changed_modules(1, 40, &changed));
    EXPECT_EQ(0u, changed);

    // Module 0 is word 7 bit 0; module 33 is word 6 bit 1.
    ASSERT_TRUE(vqdsim::set_module_present(1, 0, false));
    ASSERT_TRUE(vqdsim::set_module_present(1, 33, false));
    ku_pmpc_reg reg = {};
    ASSERT_EQ(0, sa_get_pmpc(0, 1, &reg));
    EXPECT_EQ(1u, reg.module_state_updated_bitmap[7]);
    EXPECT_EQ(2u, reg.module_state_updated_bitmap[6]);
    ASSERT_EQ(0, sa_get_changed_modules(1, 40, &changed));
    EXPECT_EQ((1ull << 0) | (1ull << 33), changed);
    // The count limits what is copied.
    ASSERT_EQ(0, sa_get_changed_modules(1, 33, &changed));
    EXPECT_EQ(1ull, changed);
    EXPECT_EQ(lc_err_unexpected_null, sa_get_changed_modules(1, 40, nullptr));
}

TEST_F(PmpcTest, SettingChangedModulesWritesTheRegisterForm)
{
    // Nothing to set: nothing written.
    vqdsim::clear_journal();
    EXPECT_EQ(0, sa_set_changed_modules(1, 40, 0));
    EXPECT_TRUE(vqdsim::journal_of("PMPC").empty());

    // Module 33 and a module past the count, which is dropped.
    EXPECT_EQ(0, sa_set_changed_modules(1, 34, (1ull << 33) | (1ull << 35)));
    const std::vector<vqdsim::JournalEntry> writes = vqdsim::journal_of("PMPC");
    ASSERT_EQ(1u, writes.size());
    EXPECT_EQ(VQD_ACCESS_CMD_SET, writes[0].cmd);
    EXPECT_EQ(2u, writes[0].field("module_state_updated_bitmap_6", 0));
    EXPECT_EQ(0u, writes[0].field("module_state_updated_bitmap_7", 0));
}

TEST_F(PmpcTest, BoardInfoOfTheDevice)
{
    board_info_t info = {};
    ASSERT_EQ(0, get_board_info(1, &info));
    EXPECT_EQ(1, info.dev_id);
    EXPECT_EQ(0x02ab, info.vsd_vendor_id);
    EXPECT_STREQ("VQ_TEST_BOARD", info.board_id);
    EXPECT_NE(0, get_board_info(9, &info));
    EXPECT_EQ(lc_err_unexpected_null, get_board_info(1, nullptr));
}

TEST(LidRouteText, EveryResultHasItsText)
{
    EXPECT_STREQ("LID ROUTE OK", lidroute_err2str(ROUTE_OK));
    EXPECT_STREQ("BROKEN LID ROUTE", lidroute_err2str(ROUTE_ERROR));
    EXPECT_STREQ("FAILED TO BRING FORWARDING TABLE", lidroute_err2str(ROUTE_FT_ERROR));
    EXPECT_STREQ("LID NOT FOUND AT FORWARDING TABLE, SM DID NOT CONFIGURED IT",
                 lidroute_err2str(ROUTE_LID_NOT_EXIST_IN_FD_ERROR));
    EXPECT_STREQ("ROUTE TO LID TO LONG, PASS MAX HOPS",
                 lidroute_err2str(ROUTE_LID_TO_DR_TO_LONG_ERROR));
    EXPECT_STREQ("ROUTE IS BROKEN DUE TO PORT DOWN", lidroute_err2str(ROUTE_LID_PORT_DOWN_ERROR));
    EXPECT_STREQ("UNKNOWN", lidroute_err2str(6));
    EXPECT_STREQ("UNKNOWN", lidroute_err2str(-1));
}

TEST(SetDrPath2, PathsStopAtTheFirstUnsetHop)
{
    int path[3] = {0, 35, -1};
    ib_portid_t portid = {};
    ASSERT_EQ(0, set_dr_path_2(&portid, path, 3));
    EXPECT_EQ(1, portid.drpath.cnt);
    EXPECT_EQ(35, portid.drpath.p[1]);
    ASSERT_EQ(0, set_dr_path_2(&portid, path, 1));
    EXPECT_EQ(0, portid.drpath.cnt);
    EXPECT_EQ(0, portid.lid);
}

}  // namespace
