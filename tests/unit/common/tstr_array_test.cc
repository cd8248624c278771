// String arrays: ownership on the adding forms, text and numeric order, searches and their
// limits, comparison of prefixes, and wildcard matching with "*" and "**".
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "logging.h"
#include "tstr_array.h"

namespace {

class TstrArrayTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("tstr_array_test", nullptr, LCO_NO_SYSLOG_FORMAT, 0, LOG_DEBUG,
                              LOG_USER, LCT_STDERR),
                  0);
    }
    void SetUp() override { ASSERT_EQ(tstr_array_new(&arr_, nullptr), 0); }
    void TearDown() override
    {
        EXPECT_EQ(tstr_array_free(&arr_), 0);
        EXPECT_EQ(arr_, nullptr);
    }

    void fill(const std::vector<std::string> &texts)
    {
        for (const auto &t : texts) {
            ASSERT_EQ(tstr_array_append_str(arr_, t.c_str()), 0);
        }
    }

    std::vector<std::string> texts() const
    {
        std::vector<std::string> out;
        for (uint32 i = 0; i < tstr_array_length_quick(arr_); ++i) {
            out.push_back(ts_str_maybe_empty(tstr_array_get_quick(arr_, i)));
        }
        return out;
    }

    tstr_array *arr_ = nullptr;
};

using Texts = std::vector<std::string>;

// An array of parts, for the matching tests.
tstr_array *parts(const std::vector<std::string> &texts)
{
    tstr_array *arr = nullptr;
    EXPECT_EQ(tstr_array_new(&arr, nullptr), 0);
    for (const auto &t : texts) {
        EXPECT_EQ(tstr_array_append_str(arr, t.c_str()), 0);
    }
    return arr;
}

bool matches(const Texts &pattern_parts, const Texts &name, bool double_star)
{
    tstr_array *s = parts(pattern_parts);
    tstr_array *n = parts(name);
    tbool match = !double_star;  // overwritten by the call
    EXPECT_EQ(tstr_array_wildcard_match(s, n, double_star, &match), 0);
    tstr_array_free(&s);
    tstr_array_free(&n);
    return match;
}

// ---------------------------------------------------------------------------------------
// Adding and ownership.

TEST_F(TstrArrayTest, DefaultsUseStringFunctions)
{
    array_options opts{};
    ASSERT_EQ(tstr_array_options_get_defaults(&opts), 0);
    EXPECT_EQ(opts.ao_elem_compare_func, tstr_array_compare_func);
    EXPECT_EQ(opts.ao_elem_dup_func, tstr_array_dup_func);
    EXPECT_EQ(opts.ao_elem_free_func, tstr_array_free_func);
    EXPECT_EQ(opts.ao_initial_size, 10u);
    EXPECT_EQ(tstr_array_length_quick(nullptr), 0u);
}

TEST_F(TstrArrayTest, AppendCopiesAndTakeoverMoves)
{
    tstring *ts = nullptr;
    ASSERT_EQ(ts_new_str(&ts, "first"), 0);
    ASSERT_EQ(tstr_array_append(arr_, ts), 0);
    EXPECT_NE(tstr_array_get_quick(arr_, 0), ts);
    ASSERT_EQ(ts_replace_str(ts, "changed"), 0);
    EXPECT_STREQ(tstr_array_get_str_quick(arr_, 0), "first");

    tstring *const moved = ts;
    ASSERT_EQ(tstr_array_append_takeover(arr_, &ts), 0);
    EXPECT_EQ(ts, nullptr);
    EXPECT_EQ(tstr_array_get_quick(arr_, 1), moved);

    char *raw = strdup("raw");
    ASSERT_EQ(tstr_array_append_str_takeover(arr_, &raw), 0);
    EXPECT_EQ(raw, nullptr);
    ASSERT_EQ(tstr_array_append_sprintf(arr_, "%s-%u", "port", 7u), 0);
    EXPECT_EQ(texts(), (Texts{"first", "changed", "raw", "port-7"}));

    const char *str = nullptr;
    ASSERT_EQ(tstr_array_get_str(arr_, 3, &str), 0);
    EXPECT_STREQ(str, "port-7");
    tstring *got = nullptr;
    EXPECT_EQ(tstr_array_get(arr_, 4, &got), lc_err_no_buffer_space);
    EXPECT_EQ(got, nullptr);
}

TEST_F(TstrArrayTest, InsertSetAndRemoveForms)
{
    fill({"a", "c"});
    tstring *ts = nullptr;
    ASSERT_EQ(ts_new_str(&ts, "b"), 0);
    ASSERT_EQ(tstr_array_insert_takeover(arr_, 1, &ts), 0);
    EXPECT_EQ(ts, nullptr);
    ASSERT_EQ(ts_new_str(&ts, "C"), 0);
    ASSERT_EQ(tstr_array_set_takeover(arr_, 2, &ts), 0);
    EXPECT_EQ(texts(), (Texts{"a", "b", "C"}));

    tstring *out = nullptr;
    ASSERT_EQ(tstr_array_remove(arr_, 0, &out), 0);
    EXPECT_STREQ(ts_str(out), "a");
    ts_free(&out);
    fill({"d"});
    ASSERT_EQ(tstr_array_remove_no_shift(arr_, 0, &out), 0);
    EXPECT_STREQ(ts_str(out), "b");
    ts_free(&out);
    EXPECT_EQ(texts(), (Texts{"d", "C"}));
    ASSERT_EQ(tstr_array_pop(arr_, &out), 0);
    EXPECT_STREQ(ts_str(out), "C");
    ts_free(&out);
    ASSERT_EQ(tstr_array_delete(arr_, 0), 0);
    EXPECT_EQ(tstr_array_length_quick(arr_), 0u);
    EXPECT_EQ(tstr_array_pop(arr_, &out), lc_err_not_found);
    EXPECT_EQ(tstr_array_delete(arr_, 0), lc_err_no_buffer_space);
}

TEST_F(TstrArrayTest, DuplicateIsDeep)
{
    fill({"x", "y"});
    tstr_array *copy = nullptr;
    ASSERT_EQ(tstr_array_duplicate(arr_, &copy), 0);
    ASSERT_EQ(tstr_array_length_quick(copy), 2u);
    EXPECT_NE(tstr_array_get_quick(copy, 0), tstr_array_get_quick(arr_, 0));
    ASSERT_EQ(ts_replace_str(tstr_array_get_quick(arr_, 0), "changed"), 0);
    EXPECT_STREQ(tstr_array_get_str_quick(copy, 0), "x");
    tstr_array_free(&copy);
}

// ---------------------------------------------------------------------------------------
// Order and searching.

TEST_F(TstrArrayTest, SortedInsertAndSortAreTextOrder)
{
    for (const char *t : {"65", "1024", "9", "10"}) {
        ASSERT_EQ(tstr_array_insert_str_sorted(arr_, t), 0);
    }
    EXPECT_EQ(texts(), (Texts{"10", "1024", "65", "9"}));
    fill({"100"});
    ASSERT_EQ(tstr_array_sort(arr_), 0);
    EXPECT_EQ(texts(), (Texts{"10", "100", "1024", "65", "9"}));
}

TEST_F(TstrArrayTest, NumericSortComparesSigned64BitValues)
{
    fill({"10", "2", "-5", "4294967296", "4294967295", "abc", "9223372036854775807", "0"});
    ASSERT_EQ(tstr_array_sort_numeric(arr_), 0);
    // Text without digits reads as 0 and keeps its place beside "0" (the sort is stable).
    EXPECT_EQ(texts(), (Texts{"-5", "abc", "0", "2", "10", "4294967295", "4294967296",
                              "9223372036854775807"}));
}

TEST_F(TstrArrayTest, NumericOrderIsNotTheArraysOwnOrder)
{
    fill({"10", "9"});
    ASSERT_EQ(tstr_array_sort_numeric(arr_), 0);
    uint32 idx = 0;
    // The array's compare function is the text order, which "9", "10" does not follow.
    EXPECT_EQ(tstr_array_binary_search_str(arr_, "9", &idx), lc_err_assertion_failed);
    ASSERT_EQ(tstr_array_linear_search_str(arr_, "10", 0, &idx), 0);
    EXPECT_EQ(idx, 1u);
    ASSERT_EQ(tstr_array_sort(arr_), 0);
    ASSERT_EQ(tstr_array_binary_search_str(arr_, "9", &idx), 0);
    EXPECT_EQ(idx, 1u);
}

TEST_F(TstrArrayTest, BinarySearchFindsFirstOfEqualStrings)
{
    for (const char *t : {"b", "a", "b", "c", "b"}) {
        ASSERT_EQ(tstr_array_insert_str_sorted(arr_, t), 0);
    }
    uint32 idx = 0;
    ASSERT_EQ(tstr_array_binary_search_str(arr_, "b", &idx), 0);
    EXPECT_EQ(idx, 1u);
    ASSERT_EQ(tstr_array_binary_search_str(arr_, "a", &idx), 0);
    EXPECT_EQ(idx, 0u);
    ASSERT_EQ(tstr_array_binary_search_str(arr_, "c", &idx), 0);
    EXPECT_EQ(idx, 4u);
    EXPECT_EQ(tstr_array_binary_search_str(arr_, "bb", &idx), lc_err_not_found);
    EXPECT_EQ(tstr_array_binary_search_str(arr_, "", &idx), lc_err_not_found);
    EXPECT_EQ(tstr_array_linear_search_str(arr_, "b", 4, &idx), lc_err_not_found);
    ASSERT_EQ(tstr_array_linear_search_str(arr_, "b", 2, &idx), 0);
    EXPECT_EQ(idx, 2u);
}

TEST_F(TstrArrayTest, FailNewPolicyKeepsCallersString)
{
    tstr_array *unique = nullptr;
    ASSERT_EQ(tstr_array_new_full(&unique, 2, nullptr, adp_fail_new, true), 0);
    ASSERT_EQ(tstr_array_insert_str_sorted(unique, "k"), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(tstr_array_insert_str_sorted(unique, "k"), lc_err_exists);
    tstring *ts = nullptr;
    ASSERT_EQ(ts_new_str(&ts, "k"), 0);
    EXPECT_EQ(tstr_array_insert_sorted_takeover(unique, &ts), lc_err_exists);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_NE(ts, nullptr);
    ts_free(&ts);
    EXPECT_EQ(tstr_array_length_quick(unique), 1u);
    tstr_array_free(&unique);
}

TEST_F(TstrArrayTest, CompareExHonoursLimits)
{
    tstr_array *a = parts({"x", "y", "z"});
    tstr_array *b = parts({"x", "Y"});
    int cmp = 0;
    ASSERT_EQ(tstr_array_compare_ex(a, b, -1, -1, false, &cmp), 0);
    EXPECT_GT(cmp, 0);  // "y" after "Y"
    ASSERT_EQ(tstr_array_compare_ex(a, b, -1, -1, true, &cmp), 0);
    EXPECT_GT(cmp, 0);  // equal up to the shorter, and longer
    ASSERT_EQ(tstr_array_compare_ex(a, b, 2, -1, true, &cmp), 0);
    EXPECT_EQ(cmp, 0);
    ASSERT_EQ(tstr_array_compare_ex(a, b, 1, 1, false, &cmp), 0);
    EXPECT_EQ(cmp, 0);
    ASSERT_EQ(tstr_array_compare_ex(b, a, -1, 2, true, &cmp), 0);
    EXPECT_EQ(cmp, 0);
    ASSERT_EQ(tstr_array_compare_ex(nullptr, a, -1, 0, false, &cmp), 0);
    EXPECT_EQ(cmp, 0);
    ASSERT_EQ(tstr_array_compare_ex(nullptr, a, -1, -1, false, &cmp), 0);
    EXPECT_LT(cmp, 0);
    tstr_array_free(&a);
    tstr_array_free(&b);
}

// ---------------------------------------------------------------------------------------
// Wildcards.

TEST_F(TstrArrayTest, SingleStarMatchesOneWholeElement)
{
    EXPECT_TRUE(matches({"a", "*"}, {"a", "b"}, true));
    EXPECT_TRUE(matches({"a", "*"}, {"a", "b"}, false));
    EXPECT_FALSE(matches({"a", "*"}, {"a", "b", "c"}, true));
    EXPECT_FALSE(matches({"a", "*"}, {"a"}, true));
    EXPECT_FALSE(matches({"a", "b*"}, {"a", "bc"}, true));
    EXPECT_TRUE(matches({"*", "*"}, {"", "x"}, false));
    EXPECT_TRUE(matches({}, {}, false));
}

TEST_F(TstrArrayTest, DoubleStarStandsForTheRest)
{
    EXPECT_TRUE(matches({"a", "**"}, {"a", "b"}, true));
    EXPECT_TRUE(matches({"a", "**"}, {"a", "b", "c"}, true));
    EXPECT_FALSE(matches({"a", "**"}, {"a"}, true));
    // What follows a double star is never looked at; only the lengths count.
    EXPECT_TRUE(matches({"a", "**", "z"}, {"a", "b", "c"}, true));
    EXPECT_FALSE(matches({"a", "**", "z", "w"}, {"a", "b", "c"}, true));
    // Without permission it is an ordinary element.
    EXPECT_FALSE(matches({"a", "**"}, {"a", "b"}, false));
    EXPECT_TRUE(matches({"a", "**"}, {"a", "**"}, false));
    // A literal "**" in the name compares equal and the walk goes on.
    EXPECT_FALSE(matches({"**"}, {"**", "x"}, true));
    EXPECT_TRUE(matches({"**", "*"}, {"**", "x"}, true));
}

TEST_F(TstrArrayTest, MatchExStartsAtGivenIndices)
{
    tstr_array *pattern_parts = parts({"ignored", "b", "*"});
    tstr_array *name = parts({"a", "b", "c"});
    tbool match = false;
    ASSERT_EQ(tstr_array_wildcard_match_ex(pattern_parts, name, 1, 1, false, &match), 0);
    EXPECT_TRUE(match);
    ASSERT_EQ(tstr_array_wildcard_match_ex(pattern_parts, name, 1, 0, false, &match), 0);
    EXPECT_FALSE(match);
    ASSERT_EQ(tstr_array_wildcard_match_ex(pattern_parts, name, 3, 3, false, &match), 0);
    EXPECT_TRUE(match);
    EXPECT_EQ(tstr_array_wildcard_match_ex(pattern_parts, name, 4, 0, false, &match),
              lc_err_assertion_failed);
    EXPECT_EQ(tstr_array_wildcard_match_ex(pattern_parts, name, -1, 0, false, &match),
              lc_err_assertion_failed);
    tstr_array_free(&pattern_parts);
    tstr_array_free(&name);
}

}  // namespace
