// The named tree: sorted children, duplicate policy, look-ups by path with wildcards, the
// parent cache, the value hooks, deletion of subtrees and the depth-first walk.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "logging.h"
#include "tree.h"

namespace {

int g_compare_calls = 0;
int g_dup_calls = 0;
int g_set_calls = 0;
int g_free_calls = 0;

int counting_compare(const char *a, const void *va, const char *b, const void *vb)
{
    ++g_compare_calls;
    return tree_std_node_compare_func(a, va, b, vb);
}

int str_dup(const void *src, void **ret)
{
    ++g_dup_calls;
    *ret = strdup(static_cast<const char *>(src));
    return *ret == nullptr ? lc_err_unexpected_null : 0;
}

// Replaces the text in place, counting its calls.
int str_set(const void *src, void **inout)
{
    ++g_set_calls;
    free(*inout);
    *inout = src == nullptr ? nullptr : strdup(static_cast<const char *>(src));
    return 0;
}

void counting_free(void *v)
{
    ++g_free_calls;
    free(v);
}

std::vector<std::string> parts_of(const tstr_array *arr)
{
    std::vector<std::string> out;
    for (uint32 i = 0; i < tstr_array_length_quick(arr); ++i) {
        out.emplace_back(tstr_array_get_str_quick(arr, i));
    }
    return out;
}

class TreeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("tree_test", nullptr, LCO_NO_SYSLOG_FORMAT, 0, LOG_DEBUG, LOG_USER,
                              LCT_STDERR),
                  0);
    }
    void SetUp() override
    {
        g_compare_calls = g_dup_calls = g_set_calls = g_free_calls = 0;
        ASSERT_EQ(tree_options_get_defaults(&opts_), 0);
        opts_.to_value_free_func = counting_free;
    }
    void TearDown() override
    {
        EXPECT_EQ(tree_free(&tr_), 0);
        EXPECT_EQ(tr_, nullptr);
    }
    void make() { ASSERT_EQ(tree_new(&tr_, &opts_), 0); }

    // Makes the node at a "/"-separated path, with a copy of text as value (or none).
    tree_node *put(const char *path, const char *text = nullptr)
    {
        tree_node *node = nullptr;
        EXPECT_EQ(tree_set_node_value_by_path_str(tr_, nullptr, path,
                                                  text ? strdup(text) : nullptr, true, &node),
                  0);
        return node;
    }
    tree_node *find(const char *path, const char *wildcard = nullptr)
    {
        tstr_array *parts = nullptr;
        tree_node *node = nullptr;
        EXPECT_EQ(tree_std_path_unescape_func(path, &parts, nullptr), 0);
        const int err = tree_get_node_by_path_wildcarded(tr_, nullptr, parts, wildcard, &node);
        EXPECT_TRUE(err == 0 || err == lc_err_not_found);
        EXPECT_EQ(err == 0, node != nullptr);
        tstr_array_free(&parts);
        return node;
    }
    std::vector<std::string> child_names(const tree_node *parent)
    {
        std::vector<std::string> out;
        for (uint32 i = 0; parent->tn_children && i < array_length_quick(parent->tn_children); ++i) {
            out.emplace_back(
                static_cast<tree_node *>(array_get_quick(parent->tn_children, i))->tn_name);
        }
        return out;
    }
    std::string path_of(const tree_node *node)
    {
        char *s = nullptr;
        EXPECT_EQ(tree_node_get_path_str(tr_, nullptr, node, &s), 0);
        std::string out = s ? s : "";
        free(s);
        return out;
    }

    tree_options opts_{};
    tree *tr_ = nullptr;
};

// ---------------------------------------------------------------------------------------

TEST_F(TreeTest, StandardCompareOrdersNumbersByValueAndTextOtherwise)
{
    EXPECT_TRUE(tree_is_number("10"));
    EXPECT_FALSE(tree_is_number(""));
    EXPECT_FALSE(tree_is_number("1a"));
    EXPECT_LT(tree_std_node_compare_func("2", nullptr, "10", nullptr), 0);
    EXPECT_GT(tree_std_node_compare_func("100000000000000000000001", nullptr, "99", nullptr), 0);
    EXPECT_LT(tree_std_node_compare_func("10", nullptr, "9a", nullptr), 0); // as text
    EXPECT_NE(tree_std_node_compare_func("01", nullptr, "1", nullptr), 0);
    EXPECT_EQ(tree_std_node_compare_func("abc", nullptr, "abc", nullptr), 0);
}

TEST_F(TreeTest, ChildrenStaySortedWithTheTreesCompareFunction)
{
    make();
    for (const char *n : {"10", "b", "2", "a", "1", "007"}) {
        ASSERT_EQ(tree_node_insert_child(tr_, nullptr, n, nullptr, nullptr), 0);
    }
    EXPECT_EQ(child_names(tr_->tr_root),
              (std::vector<std::string>{"1", "2", "007", "10", "a", "b"}));
    uint32 num = 0;
    ASSERT_EQ(tree_node_get_num_children(tr_, nullptr, &num), 0);
    EXPECT_EQ(num, 6u);

    // A reversed order given in the options is obeyed.
    tree *rev = nullptr;
    tree_options o = opts_;
    o.to_node_compare_func = [](const char *a, const void *, const char *b, const void *) {
        return strcmp(b, a);
    };
    ASSERT_EQ(tree_new(&rev, &o), 0);
    for (const char *n : {"b", "c", "a"}) {
        ASSERT_EQ(tree_node_insert_child(rev, nullptr, n, nullptr, nullptr), 0);
    }
    EXPECT_EQ(child_names(rev->tr_root), (std::vector<std::string>{"c", "b", "a"}));
    tree_node *found = nullptr;
    EXPECT_EQ(tree_node_get_child_by_name(rev, nullptr, "a", &found), 0);
    EXPECT_STREQ(found->tn_name, "a");
    EXPECT_EQ(tree_free(&rev), 0);
}

TEST_F(TreeTest, DuplicatePolicy)
{
    // fail_new (the default): refused, tree and the caller's value unchanged.
    make();
    tree_node *first = nullptr;
    tree_node *got = nullptr;
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("old"), &first), 0);
    char *mine = strdup("new");
    EXPECT_EQ(tree_node_insert_child(tr_, nullptr, "x", mine, &got), lc_err_exists);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(g_free_calls, 0);
    free(mine);
    EXPECT_STREQ(static_cast<char *>(first->tn_value), "old");
    ASSERT_EQ(tree_free(&tr_), 0);

    // delete_new: the old node stays and is handed out; the new value is released.
    opts_.to_dup_policy = adp_delete_new;
    make();
    g_free_calls = 0;
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("old"), &first), 0);
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("new"), &got), 0);
    EXPECT_EQ(got, first);
    EXPECT_STREQ(static_cast<char *>(got->tn_value), "old");
    EXPECT_EQ(g_free_calls, 1);
    EXPECT_EQ(child_names(tr_->tr_root).size(), 1u);
    ASSERT_EQ(tree_free(&tr_), 0);

    // delete_old: the old node goes with its subtree, the new one takes its place.
    opts_.to_dup_policy = adp_delete_old;
    make();
    g_free_calls = 0;
    put("x/child", "c");
    ASSERT_EQ(tree_set_node_value_by_path_str(tr_, nullptr, "x", strdup("old"), false, &first),
              0);
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("new"), &got), 0);
    EXPECT_EQ(g_free_calls, 2); // "old" and "c"
    EXPECT_STREQ(static_cast<char *>(got->tn_value), "new");
    EXPECT_EQ(find("x/child"), nullptr);
    ASSERT_EQ(tree_free(&tr_), 0);

    // add_new: equal names side by side, the newer after the older.
    opts_.to_dup_policy = adp_add_new;
    make();
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("1"), &first), 0);
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "a", nullptr, nullptr), 0);
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "x", strdup("2"), &got), 0);
    EXPECT_EQ(child_names(tr_->tr_root), (std::vector<std::string>{"a", "x", "x"}));
    EXPECT_EQ(array_get_quick(tr_->tr_root->tn_children, 2), got);
    EXPECT_EQ(find("x"), first); // the lowest of the equals
}

TEST_F(TreeTest, LookupsByPathWithWildcards)
{
    make();
    tree_node *abc = put("a/b/c");
    tree_node *star_c = put("a/*/c");
    put("a/*/d");
    EXPECT_EQ(find("a/b/c"), abc);
    EXPECT_EQ(find("a/b/c", "*"), abc);                 // exact wins
    EXPECT_EQ(find("a/q/c", "*"), star_c);              // missing b: goes on below "*"
    EXPECT_EQ(find("a/q/c"), nullptr);                  // no wildcard given
    EXPECT_EQ(find("a/b/d", "*"), nullptr);             // no backtracking from b to "*"
    EXPECT_EQ(find("a/b/c/e", "*"), nullptr);
    EXPECT_EQ(find(""), tr_->tr_root);

    // A start node below the root, and one from another tree.
    tree_node *a = find("a");
    tstr_array *rel = nullptr;
    tree_node *node = nullptr;
    ASSERT_EQ(tree_std_path_unescape_func("zz/c", &rel, nullptr), 0);
    EXPECT_EQ(tree_get_node_by_path_wildcarded(tr_, a, rel, "*", &node), 0);
    EXPECT_EQ(node, star_c);
    tree *other = nullptr;
    ASSERT_EQ(tree_new(&other, &opts_), 0);
    EXPECT_EQ(tree_get_node_by_path_wildcarded(other, a, rel, "*", &node),
              lc_err_assertion_failed);
    EXPECT_EQ(node, nullptr);
    EXPECT_EQ(tree_free(&other), 0);
    tstr_array_free(&rel);
}

TEST_F(TreeTest, PathsAndEscaping)
{
    make();
    tree_node *n = put("a/x\\/y/2");
    ASSERT_NE(n, nullptr);
    tstr_array *path = nullptr;
    ASSERT_EQ(tree_node_get_path(tr_, nullptr, n, &path), 0);
    EXPECT_EQ(parts_of(path), (std::vector<std::string>{"a", "x/y", "2"}));
    tstr_array_free(&path);
    EXPECT_EQ(path_of(n), "/a/x\\/y/2");

    tree_node *a = find("a");
    ASSERT_EQ(tree_node_get_path(tr_, a, n, &path), 0);
    EXPECT_EQ(parts_of(path), (std::vector<std::string>{"x/y", "2"}));
    tstr_array_free(&path);

    tree_node *other = put("b");
    EXPECT_EQ(tree_node_get_path(tr_, other, n, &path), lc_err_not_an_ancestor);
    EXPECT_EQ(path, nullptr);

    // Without create_path a missing parent is no path, and nothing is made.
    tree_node *made = nullptr;
    EXPECT_EQ(tree_set_node_value_by_path_str(tr_, nullptr, "q/r", nullptr, false, &made),
              lc_err_no_path);
    EXPECT_EQ(find("q"), nullptr);
}

TEST_F(TreeTest, ParentCacheMatchesUncachedAndWalksOnce)
{
    tree *plain = nullptr;
    tree_options o = opts_;
    o.to_node_compare_func = counting_compare;
    o.to_parent_cache_enabled = false;
    ASSERT_EQ(tree_new(&plain, &o), 0);
    opts_.to_node_compare_func = counting_compare;
    make();

    const std::vector<std::string> paths = {"p/q/1", "p/q/2", "p/q/3", "p/r/1", "p/q/4",
                                            "p/1",   "p/q/5", "s/1",   "p/q/6"};
    int cost_cached = 0;
    int cost_plain = 0;
    for (const auto &p : paths) {
        g_compare_calls = 0;
        tree_node *c = put(p.c_str());
        cost_cached += g_compare_calls;
        g_compare_calls = 0;
        tree_node *u = nullptr;
        ASSERT_EQ(tree_set_node_value_by_path_str(plain, nullptr, p.c_str(), nullptr, true, &u),
                  0);
        cost_plain += g_compare_calls;
        ASSERT_NE(c, nullptr);
        EXPECT_EQ(path_of(c), "/" + p);
        char *s = nullptr;
        ASSERT_EQ(tree_node_get_path_str(plain, nullptr, u, &s), 0);
        EXPECT_EQ(path_of(c), s);
        free(s);
    }
    EXPECT_EQ(child_names(find("p/q")), (std::vector<std::string>{"1", "2", "3", "4", "5", "6"}));
    EXPECT_LT(cost_cached, cost_plain);

    // A sibling in a row is placed without a walk: the parent comes from the cache.
    tstr_array *parts = nullptr;
    tree_node *parent = nullptr;
    uint32 depth = 0;
    ASSERT_EQ(tree_std_path_unescape_func("p/q/7", &parts, nullptr), 0);
    g_compare_calls = 0;
    ASSERT_EQ(tree_ensure_path(tr_, nullptr, parts, false, &parent, &depth), 0);
    EXPECT_EQ(g_compare_calls, 0);
    EXPECT_EQ(parent, find("p/q"));
    EXPECT_EQ(depth, 2u);

    // Deleting the cached parent invalidates the cache: no stale node is handed out.
    ASSERT_EQ(tree_node_delete(tr_, find("p/q"), true, nullptr), 0);
    EXPECT_EQ(tr_->tr_parent_cache_node, nullptr);
    EXPECT_EQ(tree_ensure_path(tr_, nullptr, parts, false, &parent, &depth), lc_err_no_path);
    EXPECT_EQ(parent, nullptr);
    ASSERT_EQ(tree_ensure_path(tr_, nullptr, parts, true, &parent, &depth), 0);
    EXPECT_EQ(parent, find("p/q"));
    EXPECT_EQ(tree_node_get_num_children(tr_, parent, &depth), 0);
    EXPECT_EQ(depth, 0u);

    // tree_empty invalidates it too.
    ASSERT_EQ(tree_empty(tr_), 0);
    EXPECT_EQ(tr_->tr_parent_cache_node, nullptr);
    EXPECT_EQ(tree_ensure_path(tr_, nullptr, parts, false, &parent, nullptr), lc_err_no_path);
    tstr_array_free(&parts);
    EXPECT_EQ(tree_free(&plain), 0);
}

TEST_F(TreeTest, ValueHooks)
{
    // With a dup function: the caller keeps its value, the old copy is freed on change.
    opts_.to_value_dup_func = str_dup;
    make();
    const char *v1 = "one";
    tree_node *n = nullptr;
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "k", v1, &n), 0);
    EXPECT_EQ(g_dup_calls, 1);
    EXPECT_NE(n->tn_value, v1);
    EXPECT_STREQ(static_cast<char *>(n->tn_value), "one");
    ASSERT_EQ(tree_node_set_value(tr_, n, "two"), 0);
    EXPECT_EQ(g_dup_calls, 2);
    EXPECT_EQ(g_free_calls, 1);
    void *value = nullptr;
    ASSERT_EQ(tree_node_get_value(tr_, n, &value), 0);
    EXPECT_STREQ(static_cast<char *>(value), "two");
    ASSERT_EQ(tree_free(&tr_), 0);
    EXPECT_EQ(g_free_calls, 2);

    // With a set function: it alone handles the slot, dup is not used.
    g_dup_calls = g_free_calls = 0;
    opts_.to_value_set_func = str_set;
    make();
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "k", "one", &n), 0);
    ASSERT_EQ(tree_node_set_value(tr_, n, "two"), 0);
    EXPECT_EQ(g_set_calls, 2);
    EXPECT_EQ(g_dup_calls, 0);
    EXPECT_STREQ(static_cast<char *>(n->tn_value), "two");

    // Remove hands the value out instead of freeing it.
    g_free_calls = 0;
    ASSERT_EQ(tree_node_remove(tr_, n, &value, false, nullptr), 0);
    EXPECT_EQ(g_free_calls, 0);
    EXPECT_STREQ(static_cast<char *>(value), "two");
    free(value);

    // Without dup or set the pointer itself is taken over; setting the same one twice
    // doesn't free it.
    ASSERT_EQ(tree_free(&tr_), 0);
    opts_.to_value_set_func = nullptr;
    opts_.to_value_dup_func = nullptr;
    make();
    char *mine = strdup("x");
    ASSERT_EQ(tree_node_insert_child(tr_, nullptr, "k", mine, &n), 0);
    EXPECT_EQ(n->tn_value, mine);
    ASSERT_EQ(tree_node_set_value(tr_, n, mine), 0);
    EXPECT_EQ(g_free_calls, 0);
}

TEST_F(TreeTest, DeletingSubtrees)
{
    make();
    put("a", "va");
    put("a/b", "vb");
    put("a/b/c", "vc");
    put("a/d", "vd");
    put("e", "ve");
    tree_node *a = find("a");

    EXPECT_EQ(tree_node_delete(tr_, a, false, nullptr), lc_err_has_children);
    EXPECT_EQ(find("a/b/c") != nullptr, true);
    EXPECT_EQ(tree_node_delete(tr_, tr_->tr_root, true, nullptr), lc_err_assertion_failed);

    tree *other = nullptr;
    ASSERT_EQ(tree_new(&other, &opts_), 0);
    EXPECT_EQ(tree_node_delete(other, a, true, nullptr), lc_err_assertion_failed);
    EXPECT_EQ(tree_free(&other), 0);

    ASSERT_EQ(tree_node_delete(tr_, find("a/d"), false, nullptr), 0);
    EXPECT_EQ(g_free_calls, 1);
    ASSERT_EQ(tree_node_delete(tr_, a, true, nullptr), 0);
    EXPECT_EQ(g_free_calls, 4);
    EXPECT_EQ(find("a"), nullptr);
    EXPECT_EQ(child_names(tr_->tr_root), (std::vector<std::string>{"e"}));

    // A detached subtree joins in one piece; an unused one is freed on its own.
    tree_node *sub = nullptr;
    tree_node *leaf = nullptr;
    ASSERT_EQ(tree_node_new(tr_, "s", strdup("vs"), &sub), 0);
    EXPECT_EQ(tree_node_insert_child(tr_, sub, "t", "vt", &leaf),
              lc_err_assertion_failed); // not in the tree yet
    EXPECT_EQ(leaf, nullptr);
    ASSERT_EQ(tree_node_free(&sub), 0);
    EXPECT_EQ(sub, nullptr);
    EXPECT_EQ(g_free_calls, 5);
    ASSERT_EQ(tree_node_new(tr_, "s", strdup("vs"), &sub), 0);
    tree_node *placed = nullptr;
    ASSERT_EQ(tree_node_insert_child_node(tr_, nullptr, &sub, &placed), 0);
    EXPECT_EQ(sub, nullptr);
    EXPECT_EQ(find("s"), placed);
    tstring *name = nullptr;
    ASSERT_EQ(ts_new_str(&name, "t"), 0);
    ASSERT_EQ(tree_node_insert_child_ts(tr_, placed, name, strdup("vt"), nullptr), 0);
    ts_free(&name);
    EXPECT_NE(find("s/t"), nullptr);
    // The rest goes with the tree; ASan reports anything left behind.
}

struct Visit {
    std::vector<std::string> seen;
    std::string delete_name;
    std::string halt_name;
};

int record_visit(tree *, tree_node *, const char *name_part, const tstr_array *abspath, void *,
                 void *data, tree_context_handle context)
{
    auto *v = static_cast<Visit *>(data);
    EXPECT_EQ(context, reinterpret_cast<tree_context_handle>(0x1234));
    std::string full;
    for (const auto &p : parts_of(abspath)) {
        full += "/" + p;
    }
    v->seen.push_back(full);
    EXPECT_EQ(parts_of(abspath).back(), name_part);
    if (name_part == v->delete_name) {
        return lc_err_foreach_delete;
    }
    if (name_part == v->halt_name) {
        return lc_err_foreach_halt_ok;
    }
    return 0;
}

TEST_F(TreeTest, ForeachWalksDepthFirstInSortedOrder)
{
    make();
    put("b/10", "x");
    put("b/2/z", "y");
    put("a");
    put("c");
    auto *ctx = reinterpret_cast<tree_context_handle>(0x1234);

    Visit all;
    ASSERT_EQ(tree_foreach(tr_, nullptr, -1, record_visit, &all, ctx), 0);
    EXPECT_EQ(all.seen, (std::vector<std::string>{"/a", "/b", "/b/2", "/b/2/z", "/b/10", "/c"}));

    Visit one;
    ASSERT_EQ(tree_foreach(tr_, find("b"), 1, record_visit, &one, ctx), 0);
    EXPECT_EQ(one.seen, (std::vector<std::string>{"/b/2", "/b/10"}));

    Visit halt;
    halt.halt_name = "2";
    ASSERT_EQ(tree_foreach(tr_, nullptr, -1, record_visit, &halt, ctx), 0);
    EXPECT_EQ(halt.seen, (std::vector<std::string>{"/a", "/b", "/b/2"}));

    Visit del;
    del.delete_name = "2";
    g_free_calls = 0;
    ASSERT_EQ(tree_foreach(tr_, nullptr, -1, record_visit, &del, ctx), 0);
    EXPECT_EQ(del.seen, (std::vector<std::string>{"/a", "/b", "/b/2", "/b/10", "/c"}));
    EXPECT_EQ(g_free_calls, 1);
    EXPECT_EQ(find("b/2"), nullptr);
    EXPECT_NE(find("b/10"), nullptr);
}

} // namespace
