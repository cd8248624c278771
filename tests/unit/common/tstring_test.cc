// Growable strings: the growth and shrink rules and their limit, edits at character
// offsets, UTF-8, tokenizing and joining with their flags, and the allocating print.
#include <gtest/gtest.h>

#include <printf.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

class TstringTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("tstring_test", nullptr, LCO_NO_SYSLOG_FORMAT, 0, LOG_DEBUG,
                              LOG_USER, LCT_STDERR),
                  0);
    }
    void TearDown() override
    {
        EXPECT_EQ(ts_free(&ts_), 0);
        EXPECT_EQ(ts_, nullptr);
        EXPECT_EQ(tstr_array_free(&tokens_), 0);
    }

    void start_capture() { testing::internal::CaptureStderr(); }
    std::string end_capture() { return testing::internal::GetCapturedStderr(); }

    std::vector<std::string> tokenize(const char *str, uint32 flags, int esc = '\\',
                                      int quote = 0)
    {
        std::vector<std::string> out;
        tstr_array_free(&tokens_);
        EXPECT_EQ(ts_tokenize_str(str, '/', esc, quote, flags, &tokens_), 0);
        if (tokens_ == nullptr) {
            out.push_back("<null>");
            return out;
        }
        for (uint32 i = 0; i < tstr_array_length_quick(tokens_); ++i) {
            out.push_back(tstr_array_get_str_quick(tokens_, i));
        }
        return out;
    }

    std::string join(const std::vector<std::string> &parts, uint32 flags, int sep = '/',
                     int esc = '\\', int quote = 0)
    {
        tstr_array *arr = nullptr;
        tstring *joined = nullptr;
        EXPECT_EQ(tstr_array_new(&arr, nullptr), 0);
        for (const auto &p : parts) {
            EXPECT_EQ(tstr_array_append_str(arr, p.c_str()), 0);
        }
        EXPECT_EQ(ts_join_tokens(arr, sep, esc, quote, flags, &joined), 0);
        std::string out = ts_str_maybe_empty(joined);
        ts_free(&joined);
        tstr_array_free(&arr);
        return out;
    }

    tstring *ts_ = nullptr;
    tstr_array *tokens_ = nullptr;
};

using Tokens = std::vector<std::string>;

// ---------------------------------------------------------------------------------------
// Sizes.

TEST_F(TstringTest, NewStringHasSixteenBytes)
{
    ASSERT_EQ(ts_new(&ts_), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    EXPECT_EQ(ts_length(ts_), 0);
    EXPECT_STREQ(ts_str(ts_), "");
}

TEST_F(TstringTest, SixteenCharactersDoubleToThirtyTwo)
{
    ASSERT_EQ(ts_new_str(&ts_, "0123456789abcde"), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    ASSERT_EQ(ts_append_char(ts_, 'f'), 0);
    EXPECT_EQ(ts_->ts_size, 32u);
    EXPECT_EQ(ts_length(ts_), 16);
    EXPECT_STREQ(ts_str(ts_), "0123456789abcdef");
    ASSERT_EQ(ts_append_str(ts_, std::string(100, 'x').c_str()), 0);
    EXPECT_EQ(ts_->ts_size, 128u);
}

// A short string's text lies in the block of its header: what a detach hands out is still
// the caller's to free, and growth and shrinking keep the text.
TEST_F(TstringTest, ShortStringDetachesAndGrowsLikeAnyOther)
{
    ASSERT_EQ(ts_new_str(&ts_, "short"), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    char *out = nullptr;
    int32 bytes = 0;
    ASSERT_EQ(ts_detach(&ts_, &out, &bytes), 0);
    EXPECT_EQ(ts_, nullptr);
    EXPECT_STREQ(out, "short");
    EXPECT_EQ(bytes, 5);
    free(out);

    ASSERT_EQ(ts_new_str(&ts_, "0123456789"), 0);
    ASSERT_EQ(ts_append_str(ts_, std::string(40, 'x').c_str()), 0);
    EXPECT_EQ(ts_str(ts_), "0123456789" + std::string(40, 'x'));
    ASSERT_EQ(ts_cut(ts_, 3, -1), 0);
    EXPECT_STREQ(ts_str(ts_), "012");
    ASSERT_EQ(ts_clear(ts_), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    ASSERT_EQ(ts_append_str(ts_, "again"), 0);
    EXPECT_STREQ(ts_str(ts_), "again");
}

// Strings made with their text are sized as appending it to a new string would size
// them, and a text made at a size up to a few hundred bytes shares its header's block:
// every later resize, up or down, keeps the text, and a detach hands out a block of its own.
TEST_F(TstringTest, StringsMadeWithTheirTextSizeAsAppendingWould)
{
    const std::string text48(48, 'n');
    ASSERT_EQ(ts_new_str(&ts_, text48.c_str()), 0);
    EXPECT_EQ(ts_->ts_size, 64u);
    tstring *copy = nullptr;
    ASSERT_EQ(ts_dup(ts_, &copy), 0);
    EXPECT_EQ(copy->ts_size, 64u);
    EXPECT_EQ(ts_str(copy), text48);
    ts_free(&copy);

    const char with_zero[] = {'a', '\0', 'b'};
    ASSERT_EQ(ts_new_str_len(&copy, with_zero, 3), 0);
    EXPECT_EQ(ts_length(copy), 3);
    EXPECT_EQ(ts_num_chars(copy), 3);
    EXPECT_EQ(std::memcmp(ts_str(copy), with_zero, 3), 0);
    EXPECT_EQ(ts_str(copy)[3], '\0');
    ts_free(&copy);
    ASSERT_EQ(ts_new_str_len(&copy, nullptr, 0), 0);
    EXPECT_STREQ(ts_str(copy), "");
    EXPECT_EQ(copy->ts_size, 16u);
    ts_free(&copy);

    ts_free(&ts_);
    ASSERT_EQ(ts_new_size(&ts_, 200), 0);
    EXPECT_EQ(ts_->ts_size, 200u);
    ASSERT_EQ(ts_append_str(ts_, std::string(150, 'y').c_str()), 0);
    EXPECT_EQ(ts_->ts_size, 200u);
    ASSERT_EQ(ts_append_str(ts_, std::string(100, 'z').c_str()), 0);
    EXPECT_EQ(ts_->ts_size, 400u);
    EXPECT_EQ(ts_str(ts_), std::string(150, 'y') + std::string(100, 'z'));
    ASSERT_EQ(ts_cut(ts_, 10, -1), 0);
    EXPECT_EQ(ts_->ts_size, 50u);
    EXPECT_EQ(ts_str(ts_), std::string(10, 'y'));

    // A shrink moves a text out of its header's block too.
    ts_free(&ts_);
    ASSERT_EQ(ts_new_size(&ts_, 250), 0);
    ASSERT_EQ(ts_append_str(ts_, "kept"), 0);
    ASSERT_EQ(ts_trim(ts_, 1, 0), 0);
    EXPECT_EQ(ts_->ts_size, 62u);
    EXPECT_STREQ(ts_str(ts_), "ept");
    ts_free(&ts_);
    ASSERT_EQ(ts_new_size(&ts_, 250), 0);
    ASSERT_EQ(ts_append_str(ts_, "gone"), 0);
    ASSERT_EQ(ts_clear(ts_), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    EXPECT_STREQ(ts_str(ts_), "");

    ts_free(&ts_);
    ASSERT_EQ(ts_new_str(&ts_, text48.c_str()), 0);
    char *out = nullptr;
    ASSERT_EQ(ts_detach(&ts_, &out, nullptr), 0);
    EXPECT_EQ(out, text48);
    free(out);
}

TEST_F(TstringTest, ClearShrinksAndClearNoResizeKeeps)
{
    ASSERT_EQ(ts_new_str(&ts_, std::string(1000, 'a').c_str()), 0);
    EXPECT_EQ(ts_->ts_size, 1024u);
    ASSERT_EQ(ts_clear_no_resize(ts_), 0);
    EXPECT_EQ(ts_->ts_size, 1024u);
    EXPECT_EQ(ts_length(ts_), 0);
    EXPECT_STREQ(ts_str(ts_), "");
    ASSERT_EQ(ts_append_str(ts_, std::string(1000, 'a').c_str()), 0);
    ASSERT_EQ(ts_clear(ts_), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    EXPECT_STREQ(ts_str(ts_), "");
}

TEST_F(TstringTest, ShorteningHalvesWhileFourTimesTooLarge)
{
    ASSERT_EQ(ts_new_str(&ts_, std::string(1000, 'a').c_str()), 0);
    ASSERT_EQ(ts_cut(ts_, 300, -1), 0);
    // Need 301: 1024 stays, as it is not more than four times that.
    EXPECT_EQ(ts_->ts_size, 1024u);
    ASSERT_EQ(ts_cut(ts_, 100, -1), 0);
    // Need 101: 1024 -> 512 -> 256, which 404 does not pass.
    EXPECT_EQ(ts_->ts_size, 256u);
    ASSERT_EQ(ts_cut(ts_, 10, -1), 0);
    // Need 16 (the floor): 256 -> 128 -> 64.
    EXPECT_EQ(ts_->ts_size, 64u);
    EXPECT_EQ(ts_str(ts_), std::string(10, 'a'));
}

TEST_F(TstringTest, EnsureSizeGrowsOnlyWhenSizePlusOneReachesBlock)
{
    ASSERT_EQ(ts_new(&ts_), 0);
    ASSERT_EQ(ts_ensure_size(ts_, 14), 0);
    EXPECT_EQ(ts_->ts_size, 16u);
    ASSERT_EQ(ts_ensure_size(ts_, 15), 0);
    EXPECT_EQ(ts_->ts_size, 32u);
    // Room made ahead is kept by later appends.
    ASSERT_EQ(ts_ensure_size(ts_, 500), 0);
    EXPECT_EQ(ts_->ts_size, 512u);
    ASSERT_EQ(ts_append_str(ts_, "abc"), 0);
    EXPECT_EQ(ts_->ts_size, 512u);
}

TEST_F(TstringTest, LargeGrowthIsCappedAtNeedPlusExtra)
{
    ASSERT_EQ(ts_new(&ts_), 0);
    // Need 20000001: doubling would give 33554432, more than 8388608 past the need.
    ASSERT_EQ(ts_ensure_size(ts_, 19999999), 0);
    EXPECT_EQ(ts_->ts_size, 20000001u + ts_size_max_extra_growth);
}

TEST_F(TstringTest, MaximumSizeIsRefusedWithLogLine)
{
    ASSERT_EQ(ts_new_str(&ts_, "keep"), 0);
    start_capture();
    EXPECT_EQ(ts_ensure_size(ts_, ts_size_max), lc_err_assertion_failed);
    const std::string log = end_capture();
    EXPECT_NE(log.find(".ERR]: maximum size exceeded: 268435458"), std::string::npos) << log;
    EXPECT_EQ(ts_->ts_size, 16u);
    EXPECT_STREQ(ts_str(ts_), "keep");
}

// ---------------------------------------------------------------------------------------
// Making, reading and comparing.

TEST_F(TstringTest, MakingFormsAndNullHandling)
{
    ASSERT_EQ(ts_new_str(&ts_, nullptr), 0);
    EXPECT_STREQ(ts_str(ts_), "");
    ASSERT_EQ(ts_free(&ts_), 0);

    ASSERT_EQ(ts_new_sprintf(&ts_, "%u", 17u), 0);
    ASSERT_EQ(ts_append_str(ts_, " "), 0);
    ASSERT_EQ(ts_append_sprintf(ts_, "%u", 3u), 0);
    EXPECT_STREQ(ts_str(ts_), "17 3");

    tstring *made = nullptr;
    ASSERT_EQ(ts_new_or_append_sprintf(&made, "%s", "x"), 0);
    ASSERT_EQ(ts_new_or_append_sprintf(&made, "%d", 5), 0);
    EXPECT_STREQ(ts_str(made), "x5");
    ASSERT_EQ(ts_new_or_replace_str(&made, "y"), 0);
    EXPECT_STREQ(ts_str(made), "y");

    tstring *copy = nullptr;
    ASSERT_EQ(ts_dup(made, &copy), 0);
    EXPECT_NE(copy, made);
    EXPECT_TRUE(ts_equal(copy, made));
    ts_free(&copy);
    ASSERT_EQ(ts_dup(nullptr, &copy), 0);
    EXPECT_EQ(copy, nullptr);
    ts_free(&made);
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(ts_free(&made), 0);
}

TEST_F(TstringTest, TakeoverAndDetachMoveTheBlock)
{
    char *block = static_cast<char *>(malloc(40));
    strcpy(block, "taken");
    char *const raw = block;
    ASSERT_EQ(ts_new_str_takeover(&ts_, &block, -1, 40), 0);
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(ts_->ts_str, raw);
    EXPECT_EQ(ts_length(ts_), 5);
    EXPECT_EQ(ts_->ts_size, 40u);

    char *out = nullptr;
    int32 bytes = 0;
    ASSERT_EQ(ts_detach(&ts_, &out, &bytes), 0);
    EXPECT_EQ(ts_, nullptr);
    EXPECT_EQ(out, raw);
    EXPECT_EQ(bytes, 5);
    free(out);

    char *bad = static_cast<char *>(malloc(4));
    strcpy(bad, "abc");
    EXPECT_EQ(ts_new_str_takeover(&ts_, &bad, 3, 3), lc_err_assertion_failed);
    EXPECT_EQ(ts_, nullptr);
    ASSERT_NE(bad, nullptr);  // still the caller's
    free(bad);
}

TEST_F(TstringTest, ReadingNullStrings)
{
    start_capture();
    EXPECT_EQ(ts_str(nullptr), nullptr);
    EXPECT_NE(end_capture(), "");
    start_capture();
    EXPECT_EQ(ts_str_maybe(nullptr), nullptr);
    EXPECT_STREQ(ts_str_maybe_empty(nullptr), "");
    EXPECT_EQ(ts_length(nullptr), 0);
    EXPECT_EQ(ts_get_char(nullptr, 0), -1);
    EXPECT_EQ(end_capture(), "");
}

TEST_F(TstringTest, ComparisonsOrderNullFirst)
{
    tstring *a = nullptr;
    tstring *b = nullptr;
    ASSERT_EQ(ts_new_str(&a, "abc"), 0);
    ASSERT_EQ(ts_new_str(&b, "ABD"), 0);
    EXPECT_LT(ts_cmp(nullptr, a), 0);
    EXPECT_GT(ts_cmp(a, nullptr), 0);
    EXPECT_EQ(ts_cmp(nullptr, nullptr), 0);
    EXPECT_GT(ts_cmp(a, b), 0);
    EXPECT_LT(ts_cmp_tstr(a, b, true), 0);
    EXPECT_TRUE(ts_equal(nullptr, nullptr));
    EXPECT_FALSE(ts_equal(a, nullptr));
    EXPECT_TRUE(ts_equal_str(a, "ABC", true));
    EXPECT_FALSE(ts_equal_str(a, "ABC", false));
    EXPECT_TRUE(ts_has_prefix_str(a, "AB", true));
    EXPECT_FALSE(ts_has_prefix_str(a, "abcd", false));
    // A prefix is shorter: "ab" sorts before "abc".
    ASSERT_EQ(ts_replace_str(b, "ab"), 0);
    EXPECT_LT(ts_cmp(b, a), 0);
    ts_free(&a);
    ts_free(&b);
}

// ---------------------------------------------------------------------------------------
// Changing.

TEST_F(TstringTest, CutWithNegativeCountRemovesToEnd)
{
    ASSERT_EQ(ts_new_str(&ts_, "abcdef"), 0);
    ASSERT_EQ(ts_cut(ts_, static_cast<uint32>(ts_length(ts_)) - 2, -1), 0);
    EXPECT_STREQ(ts_str(ts_), "abcd");
    ASSERT_EQ(ts_cut(ts_, 1, 2), 0);
    EXPECT_STREQ(ts_str(ts_), "ad");
    EXPECT_EQ(ts_cut(ts_, 3, 0), lc_err_no_buffer_space);
    EXPECT_EQ(ts_cut(ts_, 1, 2), lc_err_no_buffer_space);
    EXPECT_STREQ(ts_str(ts_), "ad");
}

TEST_F(TstringTest, PutOverwritesAndExtendsInsertShifts)
{
    ASSERT_EQ(ts_new_str(&ts_, "hello"), 0);
    ASSERT_EQ(ts_put_str(ts_, 3, "XYZ"), 0);
    EXPECT_STREQ(ts_str(ts_), "helXYZ");
    ASSERT_EQ(ts_put_str(ts_, 6, "!"), 0);
    EXPECT_STREQ(ts_str(ts_), "helXYZ!");
    EXPECT_EQ(ts_put_str(ts_, 8, "?"), lc_err_no_buffer_space);
    ASSERT_EQ(ts_put_char(ts_, 0, 'H'), 0);
    EXPECT_STREQ(ts_str(ts_), "HelXYZ!");
    ASSERT_EQ(ts_insert_char(ts_, 0, '<'), 0);
    ASSERT_EQ(ts_insert_char(ts_, 8, '>'), 0);
    EXPECT_STREQ(ts_str(ts_), "<HelXYZ!>");
    EXPECT_EQ(ts_get_char(ts_, 8), '>');
    EXPECT_EQ(ts_get_char(ts_, 9), -1);
    // Appending the string to itself reads the text before it moves.
    ASSERT_EQ(ts_append_str(ts_, ts_->ts_str), 0);
    EXPECT_STREQ(ts_str(ts_), "<HelXYZ!><HelXYZ!>");
}

TEST_F(TstringTest, RemoveCharAndTrims)
{
    ASSERT_EQ(ts_new_str(&ts_, "a-b--c-"), 0);
    ASSERT_EQ(ts_remove_char(ts_, '-'), 0);
    EXPECT_STREQ(ts_str(ts_), "abc");
    EXPECT_EQ(ts_length(ts_), 3);

    ASSERT_EQ(ts_replace_str(ts_, "0123456789"), 0);
    ASSERT_EQ(ts_trim(ts_, 2, 3), 0);
    EXPECT_STREQ(ts_str(ts_), "23456");
    ASSERT_EQ(ts_trim_tail(ts_, 1), 0);
    EXPECT_STREQ(ts_str(ts_), "2345");
    ASSERT_EQ(ts_trim(ts_, 2, 2), 0);
    EXPECT_STREQ(ts_str(ts_), "");

    ASSERT_EQ(ts_replace_str(ts_, " \t padded \n"), 0);
    ASSERT_EQ(ts_trim_whitespace(ts_), 0);
    EXPECT_STREQ(ts_str(ts_), "padded");
    ASSERT_EQ(ts_replace_str(ts_, "   "), 0);
    ASSERT_EQ(ts_trim_whitespace(ts_), 0);
    EXPECT_STREQ(ts_str(ts_), "");
}

TEST_F(TstringTest, FixDangerousRetermintesAtLength)
{
    ASSERT_EQ(ts_new_size(&ts_, 64), 0);
    strcpy(ts_->ts_str, "written directly");
    ts_->ts_length = 7;
    ASSERT_EQ(ts_fix_dangerous(ts_), 0);
    EXPECT_STREQ(ts_str(ts_), "written");
    EXPECT_EQ(ts_num_chars(ts_), 7);
}

// ---------------------------------------------------------------------------------------
// UTF-8.

TEST_F(TstringTest, Utf8OffsetsCountCharacters)
{
    ASSERT_EQ(ts_new_str(&ts_, "h\xC3\xA9llo"), 0);  // "héllo"
    EXPECT_EQ(ts_num_chars(ts_), 6);
    ASSERT_EQ(ts_set_utf8(ts_, true), 0);
    EXPECT_EQ(ts_length(ts_), 6);
    EXPECT_EQ(ts_num_chars(ts_), 5);
    EXPECT_EQ(ts_get_char(ts_, 1), 0xE9);
    EXPECT_EQ(ts_get_char(ts_, 2), 'l');

    uint32 char_offset = 0;
    ASSERT_EQ(ts_byte_offset_to_char_offset(ts_, 2, &char_offset), 0);
    EXPECT_EQ(char_offset, 1u);
    ASSERT_EQ(ts_byte_offset_to_char_offset(ts_, 3, &char_offset), 0);
    EXPECT_EQ(char_offset, 2u);

    ASSERT_EQ(ts_put_char(ts_, 1, 'e'), 0);
    EXPECT_STREQ(ts_str(ts_), "hello");
    ASSERT_EQ(ts_insert_char(ts_, 5, 0x20AC), 0);  // the euro sign, three bytes
    EXPECT_STREQ(ts_str(ts_), "hello\xE2\x82\xAC");
    EXPECT_EQ(ts_num_chars(ts_), 6);
    EXPECT_EQ(ts_length(ts_), 8);
    ASSERT_EQ(ts_cut(ts_, 4, 1), 0);
    EXPECT_STREQ(ts_str(ts_), "hell\xE2\x82\xAC");
    ASSERT_EQ(ts_trim(ts_, 0, 1), 0);
    EXPECT_STREQ(ts_str(ts_), "hell");
    EXPECT_EQ(ts_num_chars(ts_), 4);
}

// The count of characters of a UTF-8 text is its bytes less its continuation bytes
// (10xxxxxx), whatever their place: checked against a byte-by-byte count over texts of
// every length around the eight-byte steps, made of bytes of all four kinds.
TEST_F(TstringTest, Utf8CountMatchesAByteByByteCount)
{
    const unsigned char kinds[] = {'a', 0x7F, 0x80, 0xBF, 0xC3, 0xE2, 0xFF, 0x40};
    uint32 seed = 12345;
    for (int round = 0; round < 2000; ++round) {
        seed = seed * 1103515245u + 12345u;
        const size_t len = (seed >> 16) % 40;
        std::string text;
        uint32 expected = 0;
        for (size_t i = 0; i < len; ++i) {
            seed = seed * 1103515245u + 12345u;
            const unsigned char byte = kinds[(seed >> 16) % sizeof(kinds)];
            text.push_back(static_cast<char>(byte));
            expected += (byte & 0xC0) != 0x80 ? 1 : 0;
        }
        ts_free(&ts_);
        ASSERT_EQ(ts_new_str(&ts_, text.c_str()), 0);
        ASSERT_EQ(ts_set_utf8(ts_, true), 0);
        ASSERT_EQ(ts_num_chars(ts_), static_cast<int32>(expected)) << round;
    }
}

TEST_F(TstringTest, Utf8StrictChecks)
{
    uint32 n = 0;
    ASSERT_EQ(ts_utf8_num_chars("a\xE2\x82\xAC\xC3\xA9", -1, &n), 0);
    EXPECT_EQ(n, 3u);
    EXPECT_EQ(ts_utf8_num_chars("a\xC3", -1, &n), lc_err_bad_utf8_seq);
    EXPECT_EQ(ts_utf8_num_chars("\xC0\x80", -1, &n), lc_err_bad_utf8_seq);  // overlong
    EXPECT_EQ(ts_utf8_num_chars("\xED\xA0\x80", -1, &n), lc_err_bad_utf8_seq);  // surrogate
    uint32 size = 0;
    ASSERT_EQ(ts_utf8_char_size("\xE2\x82\xAC", &size), 0);
    EXPECT_EQ(size, 3u);
    ASSERT_EQ(ts_utf8_char_size("\xF0\x9F\x98\x80", &size), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(ts_utf8_char_size("\xE2\x82", &size), lc_err_bad_utf8_seq);
}

// ---------------------------------------------------------------------------------------
// Tokenizing.

TEST_F(TstringTest, TokenizeDuplicateSeparators)
{
    EXPECT_EQ(tokenize("a//b", ttf_none), (Tokens{"a", "b"}));
    EXPECT_EQ(tokenize("a//b", ttf_no_ignore_dup_separator), (Tokens{"a", "", "b"}));
    EXPECT_EQ(tokenize("a///b", ttf_none), (Tokens{"a", "b"}));
    EXPECT_EQ(tokenize("/a", ttf_none), (Tokens{"", "a"}));
}

TEST_F(TstringTest, TokenizeLeadingAndTrailingSeparators)
{
    EXPECT_EQ(tokenize("/a/", ttf_ignore_leading_separator | ttf_ignore_trailing_separator),
              (Tokens{"a"}));
    EXPECT_EQ(tokenize("/a/", ttf_none), (Tokens{"", "a", ""}));
    // The flags used for binding names.
    const uint32 names = ttf_no_ignore_dup_separator | ttf_ignore_leading_separator |
                         ttf_single_empty_token_null;
    EXPECT_EQ(names, 44u);
    EXPECT_EQ(tokenize("/a/", names), (Tokens{"a", ""}));
    EXPECT_EQ(tokenize("//a", names), (Tokens{"", "a"}));
    EXPECT_EQ(tokenize("/a//b", names), (Tokens{"a", "", "b"}));
    EXPECT_EQ(tokenize("/", names), (Tokens{"<null>"}));
    EXPECT_EQ(tokenize("", names), (Tokens{"<null>"}));
    EXPECT_EQ(tokenize("", ttf_none), (Tokens{""}));
}

TEST_F(TstringTest, TokenizeEscapes)
{
    EXPECT_EQ(tokenize("x/a\\/b", ttf_ignore_leading_separator), (Tokens{"x", "a/b"}));
    EXPECT_EQ(tokenize("a\\qb", ttf_none), (Tokens{"a\\qb"}));
    EXPECT_EQ(tokenize("a\\\\/b", ttf_none), (Tokens{"a\\", "b"}));
    EXPECT_EQ(tokenize("end\\", ttf_none), (Tokens{"end\\"}));
}

TEST_F(TstringTest, TokenizeQuoting)
{
    EXPECT_EQ(tokenize("x/'a/b'/y", ttf_none, '\\', '\''), (Tokens{"x", "a/b", "y"}));
    EXPECT_EQ(tokenize("x/'a/b'/y", ttf_no_strip_quoting_chars, '\\', '\''),
              (Tokens{"x", "'a/b'", "y"}));
    EXPECT_EQ(tokenize("x/\\'a", ttf_none, '\\', '\''), (Tokens{"x", "'a"}));
    EXPECT_EQ(tokenize("'open/end", ttf_no_strip_quoting_chars, '\\', '\''),
              (Tokens{"'open/end'"}));
    EXPECT_EQ(tokenize("'open/end", ttf_no_strip_quoting_chars | ttf_no_append_missing_quoting,
                       '\\', '\''),
              (Tokens{"'open/end"}));
}

TEST_F(TstringTest, TokenizeRefusesClashingCharacters)
{
    EXPECT_EQ(ts_tokenize_str("a", 0, '\\', 0, 0, &tokens_), lc_err_assertion_failed);
    EXPECT_EQ(ts_tokenize_str("a", '/', '/', 0, 0, &tokens_), lc_err_assertion_failed);
    EXPECT_EQ(ts_tokenize_str("a", '/', '\\', '\\', 0, &tokens_), lc_err_assertion_failed);
    EXPECT_EQ(ts_tokenize_str("a", '/', 0, '/', 0, &tokens_), lc_err_assertion_failed);
    EXPECT_EQ(tokens_, nullptr);
}

TEST_F(TstringTest, TokenizeUtf8GivesUtf8Tokens)
{
    ASSERT_EQ(ts_tokenize_str_utf8("/\xC3\xA9t\xC3\xA9/x", '/', '\\', 0,
                                   ttf_ignore_leading_separator, &tokens_),
              0);
    ASSERT_EQ(tstr_array_length_quick(tokens_), 2u);
    EXPECT_TRUE(tstr_array_get_quick(tokens_, 0)->ts_is_utf8);
    EXPECT_EQ(ts_num_chars(tstr_array_get_quick(tokens_, 0)), 3);
}

// ---------------------------------------------------------------------------------------
// Joining.

TEST_F(TstringTest, JoinEscapesSeparatorsInTokens)
{
    EXPECT_EQ(join({"a", "b/c"}, ttj_none), "a/b\\/c");
    // An escape is doubled before an escape, a separator or the end, not elsewhere.
    EXPECT_EQ(join({"a\\", "x\\qy", "p\\/q"}, ttj_none), "a\\\\/x\\qy/p\\\\\\/q");
    EXPECT_EQ(join({"it's"}, ttj_none, '/', '\\', '\''), "it\\'s");
    // Without an escape character the text is copied as it stands.
    EXPECT_EQ(join({"a", "b/c"}, ttj_none, '/', 0), "a/b/c");
}

TEST_F(TstringTest, JoinEmptyTokensAndSeparatorFlags)
{
    EXPECT_EQ(join({"a", "", "b"}, ttj_none), "a//b");
    EXPECT_EQ(join({"a", "", "b"}, ttj_ignore_empty_tokens), "a/b");
    EXPECT_EQ(join({"a", "b"}, ttj_ensure_leading_separator), "/a/b");
    EXPECT_EQ(join({"a", "b"}, ttj_ensure_trailing_separator), "a/b/");
    EXPECT_EQ(join({"a"}, ttj_ensure_leading_separator | ttj_ensure_trailing_separator), "/a/");
    EXPECT_EQ(join({}, ttj_ensure_leading_separator), "/");
    EXPECT_EQ(join({}, ttj_none), "");
}

TEST_F(TstringTest, JoinAndTokenizeAreInverse)
{
    const uint32 names = ttf_no_ignore_dup_separator | ttf_ignore_leading_separator |
                         ttf_single_empty_token_null;
    for (const char *name : {"/x/a\\/b", "/x/a\\qb", "/a//b", "/a/b\\\\"}) {
        ASSERT_EQ(ts_tokenize_str_utf8(name, '/', '\\', 0, names, &tokens_), 0) << name;
        tstring *back = nullptr;
        ASSERT_EQ(ts_join_tokens_utf8(tokens_, '/', '\\', 0, ttj_ensure_leading_separator, &back),
                  0);
        EXPECT_STREQ(ts_str(back), name);
        EXPECT_TRUE(back->ts_is_utf8);
        ts_free(&back);
        tstr_array_free(&tokens_);
    }
    // A lone escape at the end is kept as a part's last byte, and joins doubled, so that
    // the parts come back the same.
    EXPECT_EQ(tokenize("/x/y\\", names), (Tokens{"x", "y\\"}));
    EXPECT_EQ(join({"x", "y\\"}, ttj_ensure_leading_separator), "/x/y\\\\");
    EXPECT_EQ(tokenize("/x/y\\\\", names), (Tokens{"x", "y\\"}));
}

TEST_F(TstringTest, JoinAppendWithoutSeparatorRefusesFlags)
{
    ASSERT_EQ(ts_new_str(&ts_, "base"), 0);
    ASSERT_EQ(ts_join_append_str(ts_, "more", 0, 0, 0, ttj_none), 0);
    EXPECT_STREQ(ts_str(ts_), "basemore");
    EXPECT_EQ(ts_join_append_str(ts_, "x", 0, 0, 0, ttj_ensure_leading_separator),
              lc_err_assertion_failed);
    // A base that is one separator alone takes the token without another.
    ASSERT_EQ(ts_replace_str(ts_, "/"), 0);
    ASSERT_EQ(ts_join_append_str(ts_, "a", '/', '\\', 0, ttj_none), 0);
    EXPECT_STREQ(ts_str(ts_), "/a");
}

// ---------------------------------------------------------------------------------------
// The allocating print.

// A conversion that counts how often the text is printed: "%W" prints 500 characters.
int g_prints = 0;

int print_w(FILE *stream, const printf_info *, const void *const *)
{
    ++g_prints;
    return fprintf(stream, "%s", std::string(500, 'w').c_str());
}

int print_w_arginfo(const printf_info *, size_t, int *, int *)
{
    return 0;
}

TEST_F(TstringTest, SmprintfOfLongTextPrintsTwice)
{
    ASSERT_EQ(register_printf_specifier('W', print_w, print_w_arginfo), 0);
    // Not a literal, so that the compiler does not check the custom conversion.
    static const char *long_format = "%W";
    static const char *short_format = "ab%Wcd";

    g_prints = 0;
    char *text = smprintf(long_format);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), std::string(500, 'w'));
    EXPECT_EQ(g_prints, 2);
    free(text);

    g_prints = 0;
    text = smprintf("%s", "short");
    EXPECT_STREQ(text, "short");
    free(text);
    EXPECT_EQ(g_prints, 0);

    g_prints = 0;
    text = smprintf(short_format);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(strlen(text), 504u);
    EXPECT_EQ(g_prints, 2);
    free(text);
}

TEST_F(TstringTest, SmprintfFitsShortTextsInOnePrint)
{
    char *text = smprintf("%d-%s", 42, "x");
    EXPECT_STREQ(text, "42-x");
    free(text);
    const std::string long99(99, 'q');
    text = smprintf("%s", long99.c_str());
    EXPECT_EQ(std::string(text), long99);
    free(text);
    const std::string long100(100, 'r');
    text = smprintf("%s", long100.c_str());
    EXPECT_EQ(std::string(text), long100);
    free(text);
}

}  // namespace
