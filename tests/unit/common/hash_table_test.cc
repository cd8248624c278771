// The hash table: hashing, ownership of keys and values, duplicates, resizing and walks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "hash_table.h"
#include "logging.h"
#include "tstring.h"

namespace {

class HashTable : public ::testing::Test {
protected:
    void SetUp() override { lc_log_suspend(true); }
    void TearDown() override
    {
        EXPECT_EQ(ht_free(&ht_), 0);
        lc_log_suspend(false);
    }
    ht_table *ht_ = nullptr;
};

// Owning tables for the ownership tests: keys and values are heap copies of texts, and
// every free is counted.
int g_frees = 0;
int g_fail_next_free = 0;

int copy_set(const void *key, int32 key_len, const void *value, void **ret_key,
             int32 *ret_key_len, void **ret_value)
{
    *ret_key = strdup(static_cast<const char *>(key));
    *ret_key_len = key_len;
    *ret_value = strdup(static_cast<const char *>(value));
    return 0;
}

int failing_set(const void *, int32, const void *, void **, int32 *, void **)
{
    return lc_err_unexpected_null;
}

int copy_free(void **inout_key, void **inout_value, int32)
{
    free(*inout_key);
    free(*inout_value);
    *inout_key = nullptr;
    *inout_value = nullptr;
    ++g_frees;
    if (g_fail_next_free > 0) {
        --g_fail_next_free;
        return 1;
    }
    return 0;
}

ht_options owning_options()
{
    ht_options opts{};
    EXPECT_EQ(ht_default_options(&opts), 0);
    opts.ho_key_value_set_func = copy_set;
    opts.ho_key_value_free_func = copy_free;
    return opts;
}

// Hash of a key that is a small integer given as text: the number itself, so that the
// test chooses the buckets.
ht_hash_result number_hash(const void *key, int32)
{
    return static_cast<ht_hash_result>(atoi(static_cast<const char *>(key)));
}

ht_hash_result constant_hash(const void *, int32)
{
    return 7;
}

std::vector<std::string> keys_in_walk_order(const ht_table *ht)
{
    std::vector<std::string> keys;
    auto collect = [](const ht_table *, const void *key, int32 key_len, void *, void *data) {
        static_cast<std::vector<std::string> *>(data)->emplace_back(
            static_cast<const char *>(key), static_cast<size_t>(key_len));
        return 0;
    };
    EXPECT_EQ(ht_foreach(ht, collect, &keys), 0);
    return keys;
}

// Keys that outlive the table: the default table keeps the caller's pointers.
std::vector<std::string> make_keys(int count)
{
    std::vector<std::string> keys;
    for (int i = 0; i < count; ++i) {
        keys.push_back(std::to_string(i));
    }
    return keys;
}

TEST(HashFunctions, JenkinsHashMatchesKnownValues)
{
    const auto h = [](const char *s, uint32 seed) {
        return ht_bjh_hash(reinterpret_cast<const uint8 *>(s), strlen(s), seed);
    };
    EXPECT_EQ(h("", 0), 0xbd49d10du);
    EXPECT_EQ(h("", ht_hash_seed), 0x3df641a9u);
    EXPECT_EQ(h("a", ht_hash_seed), 0xdf462a3eu);
    EXPECT_EQ(h("1024", ht_hash_seed), 0xd8c17adfu);
    EXPECT_EQ(h("hello world!", 0), 0x1eccb293u);  // exactly one block of 12
    EXPECT_EQ(h("Four score and seven years ago", ht_hash_seed), 0x6747fd70u);
}

TEST(HashFunctions, StringAndTstringKeysHashTheirText)
{
    tstring *ts = nullptr;
    tstring *longer = nullptr;
    ASSERT_EQ(ts_new_str(&ts, "1024"), 0);
    ASSERT_EQ(ts_new_str(&longer, "10245"), 0);
    EXPECT_EQ(ht_hash_string_func("1024", 4), 0xd8c17adfu);
    EXPECT_EQ(ht_hash_tstring_func(ts, ts_length(ts)), 0xd8c17adfu);
    EXPECT_FALSE(ht_key_equal_tstring_func(ts, 4, longer, 5));
    EXPECT_TRUE(ht_key_equal_string_func("ab", 2, "abc", 2));  // the lengths decide
    ts_free(&ts);
    ts_free(&longer);
}

TEST_F(HashTable, LookupsAndKeyLengths)
{
    ASSERT_EQ(ht_new(&ht_, nullptr), 0);
    int value = 42;
    char key[] = "port";
    ASSERT_EQ(ht_insert(ht_, key, -1, &value), 0);  // -1: a text, its strlen

    tbool found = false;
    void *got = nullptr;
    int32 got_len = 0;
    EXPECT_EQ(ht_lookup(ht_, "port", 4, &found, nullptr, &got_len, &got), 0);
    EXPECT_TRUE(found);
    EXPECT_EQ(got, &value);
    EXPECT_EQ(got_len, 4);

    // A missing key is no error, and any result pointer may be null.
    void *got_key = &found;
    EXPECT_EQ(ht_lookup(ht_, "nope", -1, &found, &got_key, &got_len, &got), 0);
    EXPECT_FALSE(found);
    EXPECT_EQ(got_key, nullptr);
    EXPECT_EQ(got_len, -1);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(ht_lookup(ht_, "nope", -1, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(ht_delete(ht_, "nope", -1), 0);

    EXPECT_EQ(ht_insert(ht_, nullptr, -1, &value), lc_err_unexpected_null);
    EXPECT_EQ(ht_lookup(ht_, nullptr, -1, &found, nullptr, nullptr, nullptr),
              lc_err_unexpected_null);
    EXPECT_EQ(ht_insert(ht_, key, -2, &value), lc_err_assertion_failed);
    EXPECT_EQ(ht_->ht_num_nodes, 1u);
}

TEST_F(HashTable, ReinsertReplacesAndFreesTheOldEntry)
{
    const ht_options opts = owning_options();
    ASSERT_EQ(ht_new(&ht_, &opts), 0);
    g_frees = 0;
    char key[] = "17";
    char first[] = "first";
    char second[] = "second";
    ASSERT_EQ(ht_insert(ht_, key, -1, first), 0);
    ASSERT_EQ(ht_insert(ht_, key, -1, second), 0);
    EXPECT_EQ(ht_->ht_num_nodes, 1u);
    EXPECT_EQ(g_frees, 1);

    void *got = nullptr;
    ASSERT_EQ(ht_lookup(ht_, "17", -1, nullptr, nullptr, nullptr, &got), 0);
    EXPECT_STREQ(static_cast<const char *>(got), "second");
    EXPECT_NE(got, second);  // the table holds its own copy
}

TEST_F(HashTable, RefusedDuplicateOrFailedCopyChangesNothing)
{
    ht_options opts = owning_options();
    opts.ho_insert_fails_duplicates = true;
    ASSERT_EQ(ht_new(&ht_, &opts), 0);
    char key[] = "k";
    char v1[] = "one";
    char v2[] = "two";
    ASSERT_EQ(ht_insert(ht_, key, -1, v1), 0);
    EXPECT_EQ(ht_insert(ht_, key, -1, v2), lc_err_exists);
    void *got = nullptr;
    ASSERT_EQ(ht_lookup(ht_, "k", -1, nullptr, nullptr, nullptr, &got), 0);
    EXPECT_STREQ(static_cast<const char *>(got), "one");

    ht_->ht_key_value_set_func = failing_set;
    char other[] = "other";
    EXPECT_EQ(ht_insert(ht_, other, -1, v2), lc_err_unexpected_null);
    EXPECT_EQ(ht_->ht_num_nodes, 1u);
}

TEST_F(HashTable, FailingFreeFunctionStillRemovesTheNode)
{
    const ht_options opts = owning_options();
    ASSERT_EQ(ht_new(&ht_, &opts), 0);
    char key[] = "a";
    char key2[] = "b";
    ASSERT_EQ(ht_insert(ht_, key, -1, key), 0);
    ASSERT_EQ(ht_insert(ht_, key2, -1, key2), 0);
    g_fail_next_free = 1;
    EXPECT_EQ(ht_delete(ht_, "a", -1), lc_err_generic_error);
    EXPECT_EQ(ht_->ht_num_nodes, 1u);
    g_frees = 0;
    g_fail_next_free = 1;
    EXPECT_EQ(ht_free(&ht_), lc_err_generic_error);
    EXPECT_EQ(ht_, nullptr);
    EXPECT_EQ(g_frees, 1);
}

TEST_F(HashTable, GrowsPastThreeNodesPerBucket)
{
    ASSERT_EQ(ht_new(&ht_, nullptr), 0);
    const auto keys = make_keys(400);
    for (int i = 0; i < 93; ++i) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[i].c_str()), -1, nullptr), 0);
    }
    EXPECT_EQ(ht_->ht_num_buckets, 31u);
    ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[93].c_str()), -1, nullptr), 0);
    EXPECT_EQ(ht_->ht_num_buckets, 124u);
    for (int i = 94; i < 373; ++i) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[i].c_str()), -1, nullptr), 0);
    }
    EXPECT_EQ(ht_->ht_num_buckets, 496u);
    tbool found = false;
    ASSERT_EQ(ht_lookup(ht_, "0", -1, &found, nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(found);
}

TEST_F(HashTable, ShrinksLazilyAndEmptyShrinksBack)
{
    ASSERT_EQ(ht_new(&ht_, nullptr), 0);
    const auto keys = make_keys(94);
    for (const auto &k : keys) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(k.c_str()), -1, nullptr), 0);
    }
    ASSERT_EQ(ht_->ht_num_buckets, 124u);
    // 124 buckets stay while they are at most six per node: down to 21 nodes.
    int n = 94;
    while (n > 21) {
        --n;
        ASSERT_EQ(ht_delete(ht_, keys[n].c_str(), -1), 0);
    }
    EXPECT_EQ(ht_->ht_num_buckets, 124u);
    --n;
    ASSERT_EQ(ht_delete(ht_, keys[n].c_str(), -1), 0);  // 20 nodes: 120 below 124
    EXPECT_EQ(ht_->ht_num_buckets, 31u);

    // Without the resize the table keeps its size.
    for (const auto &k : keys) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(k.c_str()), -1, nullptr), 0);
    }
    ASSERT_EQ(ht_->ht_num_buckets, 124u);
    for (int i = 0; i < 90; ++i) {
        ASSERT_EQ(ht_delete_no_resize(ht_, keys[i].c_str(), -1), 0);
    }
    EXPECT_EQ(ht_->ht_num_buckets, 124u);
    EXPECT_EQ(ht_->ht_num_nodes, 4u);
    ASSERT_EQ(ht_empty(ht_), 0);
    EXPECT_EQ(ht_->ht_num_buckets, 31u);
    EXPECT_EQ(ht_->ht_num_nodes, 0u);
}

TEST_F(HashTable, ChainsKeepInsertionOrderAndReverseOnResize)
{
    ht_options opts{};
    ASSERT_EQ(ht_default_options(&opts), 0);
    opts.ho_hash_func = constant_hash;
    ASSERT_EQ(ht_new(&ht_, &opts), 0);
    const auto keys = make_keys(94);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[i].c_str()), -1, nullptr), 0);
    }
    EXPECT_EQ(keys_in_walk_order(ht_), (std::vector<std::string>{"0", "1", "2"}));

    // A replaced key goes to the end of its chain.
    ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[0].c_str()), -1, nullptr), 0);
    EXPECT_EQ(keys_in_walk_order(ht_), (std::vector<std::string>{"1", "2", "0"}));

    for (int i = 3; i < 94; ++i) {
        ASSERT_EQ(ht_insert(ht_, const_cast<char *>(keys[i].c_str()), -1, nullptr), 0);
    }
    ASSERT_EQ(ht_->ht_num_buckets, 124u);
    const auto order = keys_in_walk_order(ht_);
    ASSERT_EQ(order.size(), 94u);
    EXPECT_EQ(order.front(), "93");
    EXPECT_EQ(order.back(), "1");
}

struct WalkLog {
    std::vector<std::string> seen;
    std::string trigger;
    int code = 0;
};

int logging_walker(const ht_table *, const void *key, int32, void *, void *data)
{
    auto *log = static_cast<WalkLog *>(data);
    log->seen.emplace_back(static_cast<const char *>(key));
    return log->seen.back() == log->trigger ? log->code : 0;
}

class HashTableWalk : public HashTable {
protected:
    // Keys "0" to "3" in buckets 0 to 3, and "31" behind "0" in bucket 0.
    void SetUp() override
    {
        HashTable::SetUp();
        ht_options opts = owning_options();
        opts.ho_hash_func = number_hash;
        ASSERT_EQ(ht_new(&ht_, &opts), 0);
        for (const char *k : {"0", "31", "1", "2", "3"}) {
            ASSERT_EQ(ht_insert(ht_, const_cast<char *>(k), -1, const_cast<char *>(k)), 0);
        }
    }
    int walk(const char *trigger, int code)
    {
        log_ = WalkLog{};
        log_.trigger = trigger;
        log_.code = code;
        return ht_foreach(ht_, logging_walker, &log_);
    }
    WalkLog log_;
};

TEST_F(HashTableWalk, HaltCodesStopAndChangesAreRefused)
{
    EXPECT_EQ(walk("none", 0), 0);
    EXPECT_EQ(log_.seen, (std::vector<std::string>{"0", "31", "1", "2", "3"}));
    EXPECT_EQ(walk("1", lc_err_foreach_halt_err), lc_err_foreach_halt_err);
    EXPECT_EQ(log_.seen.size(), 3u);
    EXPECT_EQ(walk("1", lc_err_foreach_halt_ok), 0);
    EXPECT_EQ(log_.seen.size(), 3u);
    // The plain walk refuses to change the table.
    EXPECT_EQ(walk("2", lc_err_foreach_delete), lc_err_assertion_failed);
    EXPECT_EQ(walk("2", lc_err_foreach_remove), lc_err_assertion_failed);
    EXPECT_EQ(ht_->ht_num_nodes, 5u);
}

TEST_F(HashTableWalk, OtherErrorsSkipTheChainAndTheLastCallDecides)
{
    // "0" fails: "31" behind it in the chain is skipped, the later buckets are walked and
    // their success is what counts.
    EXPECT_EQ(walk("0", lc_err_not_found), 0);
    EXPECT_EQ(log_.seen, (std::vector<std::string>{"0", "1", "2", "3"}));
    // The last node fails: that is the result, as a generic error.
    EXPECT_EQ(walk("3", lc_err_not_found), lc_err_generic_error);
    EXPECT_EQ(log_.seen.size(), 5u);
}

TEST_F(HashTableWalk, InternalWalkDeletesOrRemovesInPlace)
{
    g_frees = 0;
    log_ = WalkLog{};
    log_.trigger = "0";
    log_.code = lc_err_foreach_delete;
    EXPECT_EQ(ht_foreach_internal(ht_, logging_walker, &log_, true, false), 0);
    // The walk goes on from the same link: "31" comes next.
    EXPECT_EQ(log_.seen, (std::vector<std::string>{"0", "31", "1", "2", "3"}));
    EXPECT_EQ(g_frees, 1);
    EXPECT_EQ(ht_->ht_num_nodes, 4u);

    // A remove hands the key and value over to the walker; keep them to free here.
    struct Taken {
        void *key = nullptr;
        void *value = nullptr;
    } taken;
    auto take = [](const ht_table *, const void *key, int32, void *value, void *data) {
        if (strcmp(static_cast<const char *>(key), "2") != 0) {
            return 0;
        }
        static_cast<Taken *>(data)->key = const_cast<void *>(key);
        static_cast<Taken *>(data)->value = value;
        return static_cast<int>(lc_err_foreach_remove);
    };
    EXPECT_EQ(ht_foreach_internal(ht_, take, &taken, false, true), 0);
    EXPECT_EQ(g_frees, 1);
    EXPECT_EQ(ht_->ht_num_nodes, 3u);
    ASSERT_NE(taken.value, nullptr);
    EXPECT_STREQ(static_cast<const char *>(taken.value), "2");
    free(taken.key);
    free(taken.value);
    EXPECT_EQ(ht_->ht_num_buckets, 31u);
}

}  // namespace
