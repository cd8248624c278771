// The daemon's own register accesses (PSPA, PLIB, system M_Key) against the simulated
// ASIC.
#include <gtest/gtest.h>

#include "ovd_registers.h"
#include "vqd_sim.h"

namespace {

class OvdRegistersTest : public ::testing::Test {
protected:
    void SetUp() override { vqdsim::reset(); }
    void TearDown() override { vqdsim::reset(); }
};

TEST_F(OvdRegistersTest, PspaMapsAndUnmapsAtTheGivenSwid)
{
    ku_pspa_reg reg{};
    ASSERT_EQ(ovd_set_get_pspa_reg(1, 2, 0, 7, VQD_ACCESS_CMD_SET, nullptr, nullptr, &reg), 0);
    ku_pspa_reg back{};
    ASSERT_EQ(ovd_set_get_pspa_reg(1, 2, 0, 7, VQD_ACCESS_CMD_GET, nullptr, nullptr, &back), 0);
    EXPECT_EQ(back.swid, 2);
    ASSERT_EQ(ovd_set_get_pspa_reg(1, 255, 0, 7, VQD_ACCESS_CMD_SET, nullptr, nullptr, &reg), 0);

    auto j = vqdsim::journal_of("PSPA");
    ASSERT_EQ(j.size(), 3u);
    EXPECT_EQ(j[0].swid, 2u);
    EXPECT_EQ(j[0].field("swid"), 2u);
    EXPECT_EQ(j[0].field("local_port"), 7u);
    // An unmap addresses SWID 255 in the access itself, not only in the record.
    EXPECT_EQ(j[2].swid, 255u);
    EXPECT_EQ(j[2].field("swid"), 255u);
    EXPECT_EQ(j[2].cmd, VQD_ACCESS_CMD_SET);
}

TEST_F(OvdRegistersTest, PspaFailureAndNullRecord)
{
    vqdsim::inject_fault("PSPA", 1, 7, 1, VQD_STATUS_FW_BUSY);
    ku_pspa_reg reg{};
    EXPECT_EQ(ovd_set_get_pspa_reg(1, 0, 0, 7, VQD_ACCESS_CMD_SET, nullptr, nullptr, &reg), lc_err_generic_error);
    EXPECT_EQ(ovd_set_get_pspa_reg(1, 0, 0, 7, VQD_ACCESS_CMD_SET, nullptr, nullptr, nullptr),
              lc_err_unexpected_null);
    EXPECT_EQ(vqdsim::journal().size(), 1u);
}

int g_completions = 0;

void completion(vqd_status_t, void *, vqd_reg_meta_t *, void *context)
{
    g_completions += *static_cast<int *>(context);
}

TEST_F(OvdRegistersTest, PspaPassesHandlerAndContextThrough)
{
    int weight = 5;
    g_completions = 0;
    ku_pspa_reg reg{};
    ASSERT_EQ(ovd_set_get_pspa_reg(1, 0, 0, 3, VQD_ACCESS_CMD_GET, completion, &weight, &reg), 0);
    EXPECT_EQ(g_completions, 5);
}

TEST_F(OvdRegistersTest, PlibIsWrittenOnSwidZero)
{
    ASSERT_EQ(map_ibport_to_localport(1, 12, 30), 0);
    auto j = vqdsim::journal_of("PLIB");
    ASSERT_EQ(j.size(), 1u);
    EXPECT_EQ(j[0].cmd, VQD_ACCESS_CMD_SET);
    EXPECT_EQ(j[0].swid, 0u);
    EXPECT_EQ(j[0].field("local_port"), 12u);
    EXPECT_EQ(j[0].field("ib_port"), 30u);

    EXPECT_EQ(map_ibport_to_localport(4, 12, 30), lc_err_generic_error);  // no device 4
}

TEST_F(OvdRegistersTest, SystemMKeyWriteReturnsTheLibraryStatus)
{
    EXPECT_EQ(ovd_write_system_m_key(1, 0xfeedull), VQD_STATUS_SUCCESS);
    uint64_t key = 0;
    ASSERT_TRUE(vqdsim::peek_system_m_key(1, &key));
    EXPECT_EQ(key, 0xfeedull);
    vqdsim::inject_fault("SYSTEM_M_KEY", 1, -1, 1, VQD_STATUS_FW_BUSY);
    EXPECT_EQ(ovd_write_system_m_key(1, 0xbeefull), VQD_STATUS_FW_BUSY);
    ASSERT_TRUE(vqdsim::peek_system_m_key(1, &key));
    EXPECT_EQ(key, 0xfeedull);
}

TEST_F(OvdRegistersTest, StatusTexts)
{
    EXPECT_STREQ(ovd_vqd_status_str(14), "No valid path to reach the device");
    EXPECT_STREQ(ovd_vqd_status_str(15), "FW RETURN VALUE != SUCCESS");
    EXPECT_STREQ(ovd_vqd_status_str(18), "Unknown return code");
    EXPECT_STREQ(ovd_vqd_status_str(-3), "Unknown return code");
}

}  // namespace
