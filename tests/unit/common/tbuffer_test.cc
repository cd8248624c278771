// The byte buffer: on-wire integer and string forms checked against hand-written bytes,
// bounds of reads, growth and shrink sizes, and the write rules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common.h"
#include "tbuffer.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

using Bytes = std::vector<uint8>;

Bytes contents(const tbuf *tb)
{
    return Bytes(tb->tb_buf, tb->tb_buf + tb->tb_length);
}

// A buffer holding exactly the given bytes.
tbuf *make_buf(const Bytes &bytes)
{
    tbuf *tb = nullptr;
    EXPECT_EQ(0, tb_new_buf(&tb, bytes.data(), static_cast<int32>(bytes.size())));
    return tb;
}

class TbufTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, tb_new(&tb_)); }
    void TearDown() override
    {
        EXPECT_EQ(0, tb_free(&tb_));
        EXPECT_EQ(nullptr, tb_);
    }
    tbuf *tb_ = nullptr;
};

// ---------------------------------------------------------------------------------------
// Byte order.

TEST_F(TbufTest, IntegersAreWrittenBigEndian)
{
    ASSERT_EQ(0, tb_append_uint32(tb_, 0x01020304u));
    ASSERT_EQ(0, tb_append_uint16(tb_, 0xA1B2));
    ASSERT_EQ(0, tb_append_uint8(tb_, 0x7F));
    ASSERT_EQ(0, tb_append_uint64(tb_, 0x1122334455667788ull));
    const Bytes expected = {0x01, 0x02, 0x03, 0x04, 0xA1, 0xB2, 0x7F, 0x11,
                            0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    EXPECT_EQ(expected, contents(tb_));
}

TEST_F(TbufTest, IntegersAreReadBigEndian)
{
    tbuf *in = make_buf({0xDE, 0xAD, 0xBE, 0xEF, 0x80, 0x01, 0xFE, 0xDC, 0xBA, 0x98, 0x76,
                         0x54, 0x32, 0x10});
    uint32 u32 = 0;
    uint16 u16 = 0;
    uint8 u8 = 0;
    uint64 u64 = 0;
    ASSERT_EQ(0, tb_get_uint32_nonnull(in, 0, &u32));
    EXPECT_EQ(0xDEADBEEFu, u32);
    EXPECT_EQ(0xDEADBEEFu, tb_get_uint32_unchecked(in, 0));
    ASSERT_EQ(0, tb_get_uint16(in, 4, &u16));
    EXPECT_EQ(0x8001, u16);
    ASSERT_EQ(0, tb_get_uint8(in, 4, &u8));
    EXPECT_EQ(0x80, u8);
    ASSERT_EQ(0, tb_get_uint64(in, 6, &u64));
    EXPECT_EQ(0xFEDCBA9876543210ull, u64);
    // An unaligned read straddles the two values.
    ASSERT_EQ(0, tb_get_uint32_nonnull(in, 3, &u32));
    EXPECT_EQ(0xEF8001FEu, u32);
    tb_free(&in);
}

TEST_F(TbufTest, PutAtOffsetOverwritesInPlace)
{
    ASSERT_EQ(0, tb_append_uint32(tb_, 0));
    ASSERT_EQ(0, tb_append_uint32(tb_, 0xFFFFFFFFu));
    // The count written back over its placeholder, as the serialiser does.
    ASSERT_EQ(0, tb_put_uint32(tb_, 0, 7));
    EXPECT_EQ((Bytes{0, 0, 0, 7, 0xFF, 0xFF, 0xFF, 0xFF}), contents(tb_));
}

// ---------------------------------------------------------------------------------------
// Counted strings.

TEST_F(TbufTest, PutStrWithLengthAndZero)
{
    int32 written = -1;
    ASSERT_EQ(0, tb_put_str(tb_, 0, true, true, true, "abc", -1, &written));
    EXPECT_EQ(8, written);
    EXPECT_EQ((Bytes{0x00, 0x00, 0x00, 0x04, 'a', 'b', 'c', 0x00}), contents(tb_));
}

TEST_F(TbufTest, PutStrFormsByFlags)
{
    int32 written = -1;
    ASSERT_EQ(0, tb_append_str(tb_, false, true, true, "abc", -1, &written));
    EXPECT_EQ(7, written);
    ASSERT_EQ(0, tb_append_str(tb_, true, false, true, "de", -1, &written));
    EXPECT_EQ(3, written);
    // A null text is empty; the byte-order flag changes nothing.
    ASSERT_EQ(0, tb_append_str(tb_, false, true, false, nullptr, 5, &written));
    EXPECT_EQ(4, written);
    EXPECT_EQ((Bytes{0, 0, 0, 3, 'a', 'b', 'c', 'd', 'e', 0, 0, 0, 0, 0}), contents(tb_));
}

TEST_F(TbufTest, PutStrLengthRules)
{
    const char text[] = {'a', 'b', '\0', 'c', 'd'};
    int32 written = -1;
    // A negative length stops at the first zero byte; an explicit one takes all the bytes.
    ASSERT_EQ(0, tb_append_str(tb_, false, true, true, text, -1, &written));
    EXPECT_EQ(6, written);
    ASSERT_EQ(0, tb_append_str(tb_, false, true, true, text, 5, &written));
    EXPECT_EQ(9, written);
    EXPECT_EQ((Bytes{0, 0, 0, 2, 'a', 'b', 0, 0, 0, 5, 'a', 'b', 0, 'c', 'd'}), contents(tb_));
}

TEST_F(TbufTest, PutTstrNullIsEmptyCountedString)
{
    tstring *ts = nullptr;
    ASSERT_EQ(0, ts_new_str(&ts, "hi"));
    ASSERT_EQ(0, tb_append_tstr(tb_, false, true, true, ts, nullptr));
    ASSERT_EQ(0, tb_append_tstr(tb_, false, true, true, nullptr, nullptr));
    EXPECT_EQ((Bytes{0, 0, 0, 2, 'h', 'i', 0, 0, 0, 0}), contents(tb_));
    ts_free(&ts);
}

TEST_F(TbufTest, PutTstrArrayForm)
{
    tstr_array *tsa = nullptr;
    int32 written = -1;
    ASSERT_EQ(0, tstr_array_new(&tsa, nullptr));
    ASSERT_EQ(0, tstr_array_append_str(tsa, "x"));
    ASSERT_EQ(0, tstr_array_append_str(tsa, "yz"));

    ASSERT_EQ(0, tb_append_tstr_array(tb_, false, true, true, tsa, &written));
    EXPECT_EQ(15, written);
    EXPECT_EQ((Bytes{0, 0, 0, 2, 0, 0, 0, 1, 'x', 0, 0, 0, 2, 'y', 'z'}), contents(tb_));

    tbuf *with_nul = nullptr;
    ASSERT_EQ(0, tb_new(&with_nul));
    ASSERT_EQ(0, tb_put_tstr_array(with_nul, 0, true, true, true, tsa, &written));
    EXPECT_EQ(18, written);
    EXPECT_EQ((Bytes{0, 0, 0, 2, 0, 0, 0, 2, 'x', 0, 0, 0, 0, 3, 'y', 'z', 0, 0}),
              contents(with_nul));

    // A null array is a count of 0.
    ASSERT_EQ(0, tb_put_tstr_array(with_nul, 0, false, true, true, nullptr, &written));
    EXPECT_EQ(4, written);
    EXPECT_EQ((Bytes{0, 0, 0, 0}), Bytes(with_nul->tb_buf, with_nul->tb_buf + 4));

    tb_free(&with_nul);
    tstr_array_free(&tsa);
}

TEST_F(TbufTest, GetTstrReadsEachForm)
{
    tbuf *in = make_buf({0, 0, 0, 3, 'a', 'b', 'c', 'd', 'e', 0, 'f', 'g'});
    tstring *ts = nullptr;
    int32 used = -1;

    ASSERT_EQ(0, tb_get_tstr(in, 0, -1, false, true, true, &ts, &used));
    EXPECT_STREQ("abc", ts_str(ts));
    EXPECT_EQ(3, ts_length(ts));
    EXPECT_EQ(7, used);
    ts_free(&ts);

    // Up to the zero byte, which is consumed but not kept.
    ASSERT_EQ(0, tb_get_tstr(in, 7, -1, true, false, true, &ts, &used));
    EXPECT_STREQ("de", ts_str(ts));
    EXPECT_EQ(3, used);
    ts_free(&ts);

    // No marks: all the allowed bytes.
    ASSERT_EQ(0, tb_get_tstr(in, 10, -1, false, false, false, &ts, &used));
    EXPECT_STREQ("fg", ts_str(ts));
    EXPECT_EQ(2, used);
    ts_free(&ts);
    ASSERT_EQ(0, tb_get_tstr(in, 4, 2, false, false, false, &ts, &used));
    EXPECT_STREQ("ab", ts_str(ts));
    EXPECT_EQ(2, used);
    ts_free(&ts);

    tb_free(&in);
}

TEST_F(TbufTest, GetTstrRoundTripsPutStr)
{
    const std::string text("with\0zero", 9);
    int32 written = 0;
    int32 used = 0;
    tstring *ts = nullptr;
    ASSERT_EQ(0, tb_append_uint8(tb_, 0xEE));
    ASSERT_EQ(0, tb_put_str(tb_, 1, true, true, true, text.data(),
                            static_cast<int32>(text.size()), &written));
    ASSERT_EQ(0, tb_get_tstr(tb_, 1, -1, true, true, true, &ts, &used));
    EXPECT_EQ(written, used);
    ASSERT_EQ(text.size(), static_cast<size_t>(ts_length(ts)));
    EXPECT_EQ(0, memcmp(text.data(), ts_str(ts), text.size()));
    ts_free(&ts);
}

TEST_F(TbufTest, GetTstrShortBufferGivesNoString)
{
    // The length field promises 10 bytes; only 3 follow.
    tbuf *in = make_buf({0, 0, 0, 10, 'a', 'b', 'c'});
    tstring *ts = nullptr;
    int32 used = -1;
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr(in, 0, -1, false, true, true, &ts, &used));
    EXPECT_EQ(nullptr, ts);
    EXPECT_EQ(0, used);

    // The length field itself is cut short.
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr(in, 4, -1, false, true, true, &ts, &used));
    EXPECT_EQ(nullptr, ts);
    // The limit cuts the string short although the buffer holds it.
    tbuf *whole = make_buf({0, 0, 0, 3, 'a', 'b', 'c'});
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr(whole, 0, 6, false, true, true, &ts, &used));
    EXPECT_EQ(nullptr, ts);
    // An offset past the data.
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr(whole, 8, -1, false, false, true, &ts, &used));
    tb_free(&whole);
    tb_free(&in);
}

TEST_F(TbufTest, GetTstrMissingOrWrongZero)
{
    tbuf *in = make_buf({'a', 'b', 'c', 0});
    tstring *ts = nullptr;
    int32 used = 0;
    // The zero lies beyond the allowed range.
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr(in, 0, 3, true, false, true, &ts, &used));
    EXPECT_EQ(nullptr, ts);
    tb_free(&in);

    // A counted string that says it ends with a zero but does not.
    in = make_buf({0, 0, 0, 3, 'a', 'b', 'c'});
    EXPECT_EQ(lc_err_assertion_failed, tb_get_tstr(in, 0, -1, true, true, true, &ts, &used));
    EXPECT_EQ(nullptr, ts);
    tb_free(&in);
}

TEST_F(TbufTest, GetTstrArrayRoundTrip)
{
    tstr_array *out = nullptr;
    tstr_array *back = nullptr;
    int32 written = 0;
    int32 used = 0;
    ASSERT_EQ(0, tstr_array_new(&out, nullptr));
    ASSERT_EQ(0, tstr_array_append_str(out, "first"));
    ASSERT_EQ(0, tstr_array_append_str(out, ""));
    ASSERT_EQ(0, tstr_array_append_str(out, "third"));

    for (const bool add_nul : {false, true}) {
        ASSERT_EQ(0, tb_set_length(tb_, 0));
        ASSERT_EQ(0, tb_append_uint16(tb_, 0xABCD));
        ASSERT_EQ(0, tb_put_tstr_array(tb_, 2, add_nul, true, true, out, &written));
        ASSERT_EQ(0, tb_append_uint8(tb_, 0x55));
        ASSERT_EQ(0, tb_get_tstr_array(tb_, 2, -1, add_nul, true, true, &back, &used));
        EXPECT_EQ(written, used);
        ASSERT_EQ(3u, tstr_array_length_quick(back));
        EXPECT_STREQ("first", tstr_array_get_str_quick(back, 0));
        EXPECT_STREQ("", tstr_array_get_str_quick(back, 1));
        EXPECT_STREQ("third", tstr_array_get_str_quick(back, 2));
        tstr_array_free(&back);
    }
    tstr_array_free(&out);
}

TEST_F(TbufTest, GetTstrArrayRefusesImpossibleCounts)
{
    tstr_array *tsa = nullptr;
    int32 used = -1;
    // A count of four billion strings in eight bytes.
    tbuf *in = make_buf({0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0});
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr_array(in, 0, -1, false, true, true, &tsa, &used));
    EXPECT_EQ(nullptr, tsa);
    EXPECT_EQ(0, used);
    tb_free(&in);

    // Two strings announced, one present.
    in = make_buf({0, 0, 0, 2, 0, 0, 0, 1, 'x', 0, 0, 0});
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr_array(in, 0, -1, false, true, true, &tsa, &used));
    EXPECT_EQ(nullptr, tsa);
    tb_free(&in);

    // The closing zero is missing.
    in = make_buf({0, 0, 0, 1, 0, 0, 0, 2, 'x', 0});
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_tstr_array(in, 0, -1, true, true, true, &tsa, &used));
    EXPECT_EQ(nullptr, tsa);
    tb_free(&in);
}

// ---------------------------------------------------------------------------------------
// Bounds of reads.

TEST_F(TbufTest, ReadsPastTheEndAreRefused)
{
    tbuf *in = make_buf({1, 2, 3, 4, 5});
    uint32 u32 = 99;
    uint8 u8 = 99;
    uint16 u16 = 99;
    uint64 u64 = 99;
    uint8 raw[4] = {9, 9, 9, 9};

    EXPECT_EQ(0, tb_get_uint32_nonnull(in, 1, &u32));
    EXPECT_EQ(0x02030405u, u32);
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_uint32_nonnull(in, 2, &u32));
    EXPECT_EQ(0u, u32);
    EXPECT_EQ(0, tb_get_uint8(in, 4, &u8));
    EXPECT_EQ(5, u8);
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_uint8(in, 5, &u8));
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_uint16(in, 4, &u16));
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_uint64(in, 0, &u64));
    // An offset near the top of the range must not wrap round.
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_uint32_nonnull(in, 0xFFFFFFFEu, &u32));
    EXPECT_EQ(lc_err_no_buffer_space, tb_get_buf(in, 2, raw, 4));
    EXPECT_EQ(0, tb_get_buf(in, 1, raw, 4));
    EXPECT_EQ((Bytes{2, 3, 4, 5}), Bytes(raw, raw + 4));
    // Reads leave the buffer alone.
    EXPECT_EQ((Bytes{1, 2, 3, 4, 5}), contents(in));
    tb_free(&in);
}

// ---------------------------------------------------------------------------------------
// Sizes.

TEST(TbufSizeTest, InitialAndRequestedSizes)
{
    tbuf *tb = nullptr;
    ASSERT_EQ(0, tb_new(&tb));
    EXPECT_EQ(128u, tb_size(tb));
    EXPECT_EQ(0u, tb_length(tb));
    EXPECT_EQ(128u, tb_avail(tb));
    // 5000 bytes and the zero round up to two pages.
    ASSERT_EQ(0, tb_ensure_size(tb, 5000));
    EXPECT_EQ(8192u, tb_size(tb));
    tb_free(&tb);

    ASSERT_EQ(0, tb_new_size(&tb, 5000));
    EXPECT_EQ(8192u, tb_size(tb));
    tb_free(&tb);
    // Below a page: multiples of 128.  4095 bytes and the zero fill a page exactly.
    ASSERT_EQ(0, tb_new_size(&tb, 200));
    EXPECT_EQ(256u, tb_size(tb));
    tb_free(&tb);
    ASSERT_EQ(0, tb_new_size(&tb, 4095));
    EXPECT_EQ(4096u, tb_size(tb));
    tb_free(&tb);
    ASSERT_EQ(0, tb_new_size(&tb, 4096));
    EXPECT_EQ(8192u, tb_size(tb));
    tb_free(&tb);
}

TEST(TbufSizeTest, GrowthByFourCappedByExtraGrowth)
{
    tbuf *tb = nullptr;
    ASSERT_EQ(0, tb_new(&tb));
    // 128 bytes of data need 129: four times the size.
    ASSERT_EQ(0, tb_set_length(tb, 127));
    EXPECT_EQ(128u, tb_size(tb));
    ASSERT_EQ(0, tb_append_uint8(tb, 1));
    EXPECT_EQ(512u, tb_size(tb));
    // A jump past four times the size takes just what is needed, rounded.
    ASSERT_EQ(0, tb_set_length(tb, 3000));
    EXPECT_EQ(3072u, tb_size(tb));
    tb_free(&tb);

    // From 4 MiB, four times would be 16 MiB; the extra growth caps it at need + 8 MiB.
    ASSERT_EQ(0, tb_new_size(&tb, 4194303));
    ASSERT_EQ(4194304u, tb_size(tb));
    ASSERT_EQ(0, tb_set_length(tb, 4194304));
    EXPECT_EQ(12587008u, tb_size(tb));
    EXPECT_GE(tb_size(tb), tb_length(tb) + 1);
    tb_free(&tb);
}

TEST(TbufSizeTest, MaximumSizeRefusedAndBufferKept)
{
    tbuf *tb = nullptr;
    ASSERT_EQ(0, tb_new(&tb));
    ASSERT_EQ(0, tb_append_uint32(tb, 0x01020304u));
    EXPECT_EQ(lc_err_assertion_failed, tb_set_length(tb, tb_size_max));
    EXPECT_EQ(lc_err_assertion_failed, tb_put_uint32(tb, 0xFFFFFFFEu, 5));
    const uint8 data[8] = {};
    EXPECT_EQ(lc_err_assertion_failed, tb_put_buf(tb, tb_size_max - 4, data, 8));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), contents(tb));
    EXPECT_EQ(128u, tb_size(tb));
    tb_free(&tb);
}

TEST(TbufSizeTest, AutoShrinkThreshold)
{
    tbuf *tb = nullptr;
    ASSERT_EQ(0, tb_new(&tb));
    tb->tb_opt_auto_shrink = 1;
    ASSERT_EQ(0, tb_set_length(tb, 10000));
    ASSERT_EQ(12288u, tb_size(tb));
    // 2046 bytes need 2047: 6 * 2048 + 1 is above 12288, so the block stays.
    ASSERT_EQ(0, tb_delete_bytes(tb, 2046, 10000 - 2046));
    EXPECT_EQ(12288u, tb_size(tb));
    // One byte fewer crosses the threshold: the block comes down to the need, rounded.
    ASSERT_EQ(0, tb_delete_bytes(tb, 0, 1));
    EXPECT_EQ(2048u, tb_size(tb));
    EXPECT_EQ(2045u, tb_length(tb));
    tb_free(&tb);

    // Without the option the block keeps its size.
    ASSERT_EQ(0, tb_new(&tb));
    ASSERT_EQ(0, tb_set_length(tb, 10000));
    ASSERT_EQ(0, tb_set_length(tb, 0));
    EXPECT_EQ(12288u, tb_size(tb));
    tb_free(&tb);
}

// ---------------------------------------------------------------------------------------
// Write rules.

TEST_F(TbufTest, WritePastLengthLeavesGapWithOldBytes)
{
    const uint8 letters[] = {'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'};
    ASSERT_EQ(0, tb_append_buf(tb_, letters, 8));
    ASSERT_EQ(0, tb_delete_bytes(tb_, 2, 6));
    ASSERT_EQ(2u, tb_length(tb_));
    EXPECT_EQ(0, tb_->tb_buf[2]);  // the data stays terminated

    ASSERT_EQ(0, tb_put_byte(tb_, 7, 'z'));
    EXPECT_EQ(8u, tb_length(tb_));
    // Byte 2 held the terminator; 3 to 6 still hold what was written before.
    EXPECT_EQ((Bytes{'A', 'B', 0, 'D', 'E', 'F', 'G', 'z'}), contents(tb_));
    EXPECT_EQ(0, tb_->tb_buf[8]);
}

TEST_F(TbufTest, GapInFreshBlockIsZero)
{
    ASSERT_EQ(0, tb_put_uint8(tb_, 600, 0xAA));
    EXPECT_EQ(601u, tb_length(tb_));
    for (uint32 i = 0; i < 600; ++i) {
        ASSERT_EQ(0, tb_->tb_buf[i]) << "at " << i;
    }
}

TEST_F(TbufTest, DeleteBytesMovesTail)
{
    const uint8 data[] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(0, tb_append_buf(tb_, data, 6));
    ASSERT_EQ(0, tb_delete_bytes(tb_, 1, 2));
    EXPECT_EQ((Bytes{1, 4, 5, 6}), contents(tb_));
    EXPECT_EQ(0, tb_->tb_buf[4]);
    EXPECT_EQ(0, tb_delete_bytes(tb_, 4, 0));
    EXPECT_EQ(lc_err_no_buffer_space, tb_delete_bytes(tb_, 3, 2));
    EXPECT_EQ(lc_err_no_buffer_space, tb_delete_bytes(tb_, 1, 0xFFFFFFFFu));
    EXPECT_EQ((Bytes{1, 4, 5, 6}), contents(tb_));
}

TEST_F(TbufTest, ReadOnlyBufferRefusesWrites)
{
    ASSERT_EQ(0, tb_append_uint32(tb_, 0x0A0B0C0Du));
    tb_->tb_opt_const_buf = 1;
    const uint8 byte = 1;
    EXPECT_EQ(lc_err_assertion_failed, tb_put_uint32(tb_, 0, 5));
    EXPECT_EQ(lc_err_assertion_failed, tb_put_buf(tb_, 0, &byte, 1));
    EXPECT_EQ(lc_err_assertion_failed, tb_put_str(tb_, 0, true, true, true, "x", -1, nullptr));
    EXPECT_EQ(lc_err_assertion_failed, tb_put_tstr_array(tb_, 0, true, true, true, nullptr, nullptr));
    EXPECT_EQ(lc_err_assertion_failed, tb_delete_bytes(tb_, 0, 1));
    EXPECT_EQ((Bytes{0x0A, 0x0B, 0x0C, 0x0D}), contents(tb_));
}

TEST_F(TbufTest, CopyFromOwnBlockSurvivesGrowth)
{
    // The source lies in the block that the append must reallocate.
    ASSERT_EQ(0, tb_set_length(tb_, 100));
    for (uint32 i = 0; i < 100; ++i) {
        tb_->tb_buf[i] = static_cast<uint8>(i);
    }
    ASSERT_EQ(0, tb_append_buf(tb_, tb_buf(tb_), 100));
    ASSERT_EQ(200u, tb_length(tb_));
    EXPECT_EQ(512u, tb_size(tb_));
    EXPECT_EQ(0, memcmp(tb_->tb_buf, tb_->tb_buf + 100, 100));
}

// ---------------------------------------------------------------------------------------
// Making and ending.

TEST(TbufLifeTest, NewBufCopies)
{
    uint8 src[3] = {7, 8, 9};
    tbuf *tb = nullptr;
    ASSERT_EQ(0, tb_new_buf(&tb, src, 3));
    src[0] = 0;
    EXPECT_EQ((Bytes{7, 8, 9}), contents(tb));
    EXPECT_EQ(0, tb->tb_buf[3]);
    tb_free(&tb);
    EXPECT_EQ(0, tb_free(&tb));  // null is fine
}

TEST(TbufLifeTest, TakeoverAdoptsBlock)
{
    tbuf *tb = nullptr;
    // A block with no room for the zero: it must be grown.
    auto *block = static_cast<uint8 *>(malloc(3));
    block[0] = 'x';
    block[1] = 'y';
    block[2] = 'z';
    ASSERT_EQ(0, tb_new_takeover(&tb, &block, 3, 3));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ((Bytes{'x', 'y', 'z'}), contents(tb));
    EXPECT_EQ(0, tb->tb_buf[3]);
    EXPECT_GE(tb_size(tb), 4u);
    ASSERT_EQ(0, tb_append_uint8(tb, '!'));
    tb_free(&tb);

    // A length beyond the block is refused, and the caller keeps the block.
    block = static_cast<uint8 *>(malloc(4));
    EXPECT_EQ(lc_err_assertion_failed, tb_new_takeover(&tb, &block, 5, 4));
    EXPECT_EQ(nullptr, tb);
    ASSERT_NE(nullptr, block);
    free(block);
}

TEST(TbufLifeTest, DetachHandsOutTerminatedBlock)
{
    tbuf *tb = make_buf({'o', 'k'});
    uint8 *block = nullptr;
    int32 len = -1;
    ASSERT_EQ(0, tb_detach(&tb, &block, &len));
    EXPECT_EQ(nullptr, tb);
    EXPECT_EQ(2, len);
    EXPECT_STREQ("ok", reinterpret_cast<char *>(block));
    free(block);
}

}  // namespace
