// Bindings: name tokenising and joining with escapes, wildcard patterns, the parts cache,
// the sparse attribute table, ownership of the takeover and copy forms, the order and
// lookups of binding arrays, and walking them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "bnode.h"
#include "logging.h"

namespace {

class BnodeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("bnode_test", nullptr, LCO_NO_SYSLOG_FORMAT, 0, LOG_WARNING,
                              LOG_USER, LCT_STDERR),
                  0);
    }
};

std::vector<std::string> texts_of(const tstr_array *parts)
{
    std::vector<std::string> out;
    for (uint32 i = 0; i < tstr_array_length_quick(parts); ++i) {
        out.emplace_back(tstr_array_get_str_quick(parts, i));
    }
    return out;
}

struct Tokenised {
    int err = -1;
    tbool absolute = false;
    std::vector<std::string> parts;
    bool all_utf8 = true;
};

Tokenised tokenise(const char *name)
{
    Tokenised t;
    tstr_array *parts = nullptr;
    t.err = bn_binding_name_to_parts(name, &parts, &t.absolute);
    if (parts != nullptr) {
        t.parts = texts_of(parts);
        for (uint32 i = 0; i < tstr_array_length_quick(parts); ++i) {
            t.all_utf8 = t.all_utf8 && tstr_array_get_quick(parts, i)->ts_is_utf8;
        }
    }
    tstr_array_free(&parts);
    return t;
}

std::string join(const std::vector<std::string> &parts, tbool absolute)
{
    tstr_array *arr = nullptr;
    tstring *name = nullptr;
    std::string out = "<error>";
    EXPECT_EQ(tstr_array_new(&arr, nullptr), 0);
    for (const auto &p : parts) {
        EXPECT_EQ(tstr_array_append_str(arr, p.c_str()), 0);
    }
    if (bn_binding_name_parts_to_name_tstr(arr, absolute, &name) == 0) {
        out = ts_str(name);
        EXPECT_TRUE(name->ts_is_utf8);
    }
    ts_free(&name);
    tstr_array_free(&arr);
    return out;
}

bool pattern_match(const char *name, const char *pattern)
{
    tstr_array *parts = nullptr;
    tbool absolute = false;
    EXPECT_EQ(bn_binding_name_to_parts(name, &parts, &absolute), 0);
    const bool match = bn_binding_name_parts_pattern_match(parts, absolute, pattern);
    tstr_array_free(&parts);
    return match;
}

bn_binding *new_uint32_binding(const char *name, uint32 value)
{
    bn_binding *binding = nullptr;
    bn_attrib *attrib = nullptr;
    EXPECT_EQ(bn_binding_new_named(&binding, name), 0);
    EXPECT_EQ(bn_attrib_new_uint32(&attrib, ba_value, 0, value), 0);
    EXPECT_EQ(bn_binding_set_attrib_takeover(binding, ba_value, &attrib), 0);
    return binding;
}

uint32 value_of(const bn_binding *binding)
{
    const bn_attrib *attrib = nullptr;
    uint32 value = 0;
    EXPECT_EQ(bn_binding_get_attrib(binding, ba_value, &attrib), 0);
    EXPECT_NE(attrib, nullptr);
    if (attrib != nullptr) {
        EXPECT_EQ(bn_attrib_get_uint32(attrib, nullptr, nullptr, &value), 0);
    }
    return value;
}

// ---------------------------------------------------------------------------------------
// Tokenising.

TEST_F(BnodeTest, TokenisesRootEmptyAndRelativeNames)
{
    Tokenised t = tokenise("");
    EXPECT_EQ(t.err, 0);
    EXPECT_FALSE(t.absolute);
    EXPECT_TRUE(t.parts.empty());

    t = tokenise("/");
    EXPECT_EQ(t.err, 0);
    EXPECT_TRUE(t.absolute);
    EXPECT_TRUE(t.parts.empty());

    t = tokenise("a");
    EXPECT_FALSE(t.absolute);
    EXPECT_EQ(t.parts, (std::vector<std::string>{"a"}));

    t = tokenise("/ib/state/externalports/17/speed");
    EXPECT_TRUE(t.absolute);
    EXPECT_EQ(t.parts, (std::vector<std::string>{"ib", "state", "externalports", "17", "speed"}));
    EXPECT_TRUE(t.all_utf8);

    // The empty name still gives an array, not null; the absolute flag may be left out.
    tstr_array *parts = nullptr;
    ASSERT_EQ(bn_binding_name_to_parts("", &parts, nullptr), 0);
    ASSERT_NE(parts, nullptr);
    EXPECT_EQ(tstr_array_length_quick(parts), 0u);
    tstr_array_free(&parts);
}

TEST_F(BnodeTest, TokenisesEmptyPartsFromDoubledAndTrailingSeparators)
{
    EXPECT_EQ(tokenise("/a/").parts, (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(tokenise("//a").parts, (std::vector<std::string>{"", "a"}));
    EXPECT_EQ(tokenise("/a//b").parts, (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(tokenise("a/").parts, (std::vector<std::string>{"a", ""}));
}

TEST_F(BnodeTest, TokenisesEscapes)
{
    EXPECT_EQ(tokenise("/x/a\\/b").parts, (std::vector<std::string>{"x", "a/b"}));
    EXPECT_EQ(tokenise("/x/a\\\\b").parts, (std::vector<std::string>{"x", "a\\b"}));
    // An escape before an ordinary byte is kept, and so is one at the very end.
    EXPECT_EQ(tokenise("/x/a\\qb").parts, (std::vector<std::string>{"x", "a\\qb"}));
    EXPECT_EQ(tokenise("/x/a\\").parts, (std::vector<std::string>{"x", "a\\"}));
    // An escaped separator at the start makes the name relative.
    const Tokenised t = tokenise("\\/a");
    EXPECT_FALSE(t.absolute);
    EXPECT_EQ(t.parts, (std::vector<std::string>{"/a"}));
}

TEST_F(BnodeTest, TokenisingRefusesNullArguments)
{
    tstr_array *parts = nullptr;
    EXPECT_EQ(bn_binding_name_to_parts(nullptr, &parts, nullptr), lc_err_unexpected_null);
    EXPECT_EQ(parts, nullptr);
    EXPECT_EQ(bn_binding_name_to_parts("/a", nullptr, nullptr), lc_err_unexpected_null);
}

// ---------------------------------------------------------------------------------------
// Joining.

TEST_F(BnodeTest, JoinsWithEscapes)
{
    EXPECT_EQ(join({"x", "a/b"}, true), "/x/a\\/b");
    EXPECT_EQ(join({"x", "a\\qb"}, true), "/x/a\\qb");
    EXPECT_EQ(join({"x", "a\\"}, true), "/x/a\\\\");
    // The first escape is followed by an escape (doubled), the second by a plain byte.
    EXPECT_EQ(join({"a\\\\b"}, false), "a\\\\\\b");
    EXPECT_EQ(join({"a\\/"}, false), "a\\\\\\/");
    EXPECT_EQ(join({}, true), "/");
    EXPECT_EQ(join({}, false), "");
    EXPECT_EQ(join({"a", "b"}, false), "a/b");
}

TEST_F(BnodeTest, JoinAndTokeniseAreInverses)
{
    const char *names[] = {"/x/a\\/b", "/x/a\\qb",  "/x/a\\\\", "/a//b",  "/a/",   "//a",
                           "/\\/x",    "rel/a",    "rel\\/x", "/",      "",
                           "/a/\\\\\\/b", "/\xc3\xa9t\xc3\xa9/\xe2\x82\xac"};
    for (const char *name : names) {
        const Tokenised t = tokenise(name);
        ASSERT_EQ(t.err, 0) << name;
        EXPECT_EQ(join(t.parts, t.absolute), name) << name;
    }

    char *joined = nullptr;
    tstr_array *parts = nullptr;
    ASSERT_EQ(bn_binding_name_to_parts("/x/a\\/b", &parts, nullptr), 0);
    ASSERT_EQ(bn_binding_name_parts_to_name(parts, true, &joined), 0);
    EXPECT_STREQ(joined, "/x/a\\/b");
    free(joined);
    tstr_array_free(&parts);
}

TEST_F(BnodeTest, AppendsOnePartEscaped)
{
    tstring *name = nullptr;
    ASSERT_EQ(ts_new_str(&name, "/"), 0);
    ASSERT_EQ(bn_binding_name_append_part_tstr(name, "ib"), 0);
    EXPECT_STREQ(ts_str(name), "/ib");
    ASSERT_EQ(bn_binding_name_append_part_tstr(name, "a/b"), 0);
    EXPECT_STREQ(ts_str(name), "/ib/a\\/b");
    ts_free(&name);

    ASSERT_EQ(ts_new_str(&name, ""), 0);
    ASSERT_EQ(bn_binding_name_append_part_tstr(name, "x"), 0);
    EXPECT_STREQ(ts_str(name), "x");
    ts_free(&name);
}

TEST_F(BnodeTest, LastPartOfAName)
{
    tstring *last = nullptr;
    ASSERT_EQ(bn_binding_name_get_last_part("/a/b\\/c", &last), 0);
    ASSERT_NE(last, nullptr);
    EXPECT_STREQ(ts_str(last), "b/c");
    ts_free(&last);

    ASSERT_EQ(bn_binding_name_get_last_part("", &last), 0);
    EXPECT_EQ(last, nullptr);
    ASSERT_EQ(bn_binding_name_get_last_part("/", &last), 0);
    EXPECT_EQ(last, nullptr);
}

// ---------------------------------------------------------------------------------------
// Patterns.

TEST_F(BnodeTest, SingleStarMatchesExactlyOnePart)
{
    EXPECT_TRUE(pattern_match("/a/b", "/a/*"));
    EXPECT_FALSE(pattern_match("/a/b/c", "/a/*"));
    EXPECT_FALSE(pattern_match("a/b", "/a/*"));
    EXPECT_TRUE(pattern_match("a/b", "a/*"));
    EXPECT_FALSE(pattern_match("/a", "/a/*"));
    // A star is a whole part, never a substring wildcard.
    EXPECT_FALSE(pattern_match("/a/bc", "/a/b*"));
    EXPECT_TRUE(pattern_match("/a/b*", "/a/b*"));
    EXPECT_TRUE(pattern_match("/ib/state/x/17", "/ib/*/x/*"));
}

TEST_F(BnodeTest, DoubleStarMatchesTheRest)
{
    EXPECT_FALSE(pattern_match("/a", "/a/**"));
    EXPECT_TRUE(pattern_match("/a/b", "/a/**"));
    EXPECT_TRUE(pattern_match("/a/b/c", "/a/**"));
    // Behind the double star only the lengths count.
    EXPECT_TRUE(pattern_match("/a/b/c", "/a/**/z"));
    EXPECT_FALSE(pattern_match("/a/b", "/a/**/z"));
    // A literal "**" in the name compares equal and the walk goes on.
    EXPECT_FALSE(pattern_match("/a/**/d", "/a/**/c"));
    EXPECT_TRUE(pattern_match("/a/**/c", "/a/**/c"));
    EXPECT_FALSE(pattern_match("/a/b", "a/**"));
    EXPECT_FALSE(bn_binding_name_parts_pattern_match(nullptr, true, nullptr));
}

TEST_F(BnodeTest, InterestPatternsOfTheDaemon)
{
    // The configuration subtree the daemon watches, at any depth below it.
    EXPECT_TRUE(pattern_match("/ib/config/ports/ifindex/134", "/ib/config/**"));
    EXPECT_TRUE(pattern_match("/ib/config/a/b/c/d/e/f/g/h", "/ib/config/**"));
    EXPECT_FALSE(pattern_match("/ib/config", "/ib/config/**"));
    EXPECT_FALSE(pattern_match("/ib/configuration/x", "/ib/config/**"));
    EXPECT_FALSE(pattern_match("/ib/state/x", "/ib/config/**"));
    // A separator escaped inside a part keeps the part whole: one part for "*".
    EXPECT_TRUE(pattern_match("/portd/config/ifindex/a\\/b", "/portd/config/ifindex/*"));
    EXPECT_FALSE(pattern_match("/portd/config/ifindex/a/b", "/portd/config/ifindex/*"));
    // An escaped separator in the pattern matches the same escaped part only.
    EXPECT_TRUE(pattern_match("/x/a\\/b/c", "/x/a\\/b/*"));
    EXPECT_FALSE(pattern_match("/x/a/b/c", "/x/a\\/b/*"));
}

// ---------------------------------------------------------------------------------------
// Making bindings.

TEST_F(BnodeTest, NamedBindingHasNoCacheAndNoTable)
{
    bn_binding *binding = nullptr;
    const tstr_array *parts = nullptr;
    tbool absolute = true;
    const tstring *name = nullptr;

    ASSERT_EQ(bn_binding_new_named(&binding, "/a/b"), 0);
    EXPECT_EQ(binding->bn_attribs, nullptr);
    ASSERT_EQ(bn_binding_get_name(binding, &name), 0);
    EXPECT_STREQ(ts_str(name), "/a/b");
    EXPECT_EQ(bn_binding_get_name_quick(binding), name);
    EXPECT_EQ(bn_binding_get_name_quick(nullptr), nullptr);

    // The const accessor never tokenises and leaves the flag alone without a cache.
    ASSERT_EQ(bn_binding_get_name_parts_const(binding, &parts, &absolute), 0);
    EXPECT_EQ(parts, nullptr);
    EXPECT_TRUE(absolute);

    // The owning accessor tokenises without filling the cache.
    tstr_array *copy = nullptr;
    ASSERT_EQ(bn_binding_get_name_parts(binding, &copy), 0);
    EXPECT_EQ(texts_of(copy), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(binding->bn_node_name_parts, nullptr);
    tstr_array_free(&copy);

    tstring *last = nullptr;
    ASSERT_EQ(bn_binding_get_name_last_part(binding, &last), 0);
    EXPECT_STREQ(ts_str(last), "b");
    ts_free(&last);

    EXPECT_EQ(bn_binding_free(&binding), 0);
    EXPECT_EQ(binding, nullptr);
    EXPECT_EQ(bn_binding_free(&binding), 0);
}

TEST_F(BnodeTest, PartsComponentsFillNameOrPartsFromTheOther)
{
    bn_binding *binding = nullptr;
    tstr_array *parts = nullptr;
    const tstr_array *cached = nullptr;
    tbool absolute = false;

    // Name only: the cache is tokenised from it.
    ASSERT_EQ(bn_binding_new_parts_components(&binding, "/x/a\\/b", nullptr, false, nullptr), 0);
    ASSERT_EQ(bn_binding_get_name_parts_const(binding, &cached, &absolute), 0);
    EXPECT_EQ(texts_of(cached), (std::vector<std::string>{"x", "a/b"}));
    EXPECT_TRUE(absolute);
    bn_binding_free(&binding);

    // Parts only: the name is joined.
    ASSERT_EQ(tstr_array_new(&parts, nullptr), 0);
    ASSERT_EQ(tstr_array_append_str(parts, "x"), 0);
    ASSERT_EQ(tstr_array_append_str(parts, "a/b"), 0);
    ASSERT_EQ(bn_binding_new_parts_components(&binding, nullptr, parts, true, nullptr), 0);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(binding)), "/x/a\\/b");
    EXPECT_NE(binding->bn_node_name_parts, parts);
    EXPECT_TRUE(binding->bn_node_name_parts_absolute);
    bn_binding_free(&binding);

    // Both: trusted as given.
    ASSERT_EQ(bn_binding_new_parts_components(&binding, "other", parts, true, nullptr), 0);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(binding)), "other");
    EXPECT_EQ(texts_of(binding->bn_node_name_parts), texts_of(parts));
    bn_binding_free(&binding);

    // Neither: empty name, no cache.
    ASSERT_EQ(bn_binding_new_parts_components(&binding, nullptr, nullptr, true, nullptr), 0);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(binding)), "");
    EXPECT_EQ(binding->bn_node_name_parts, nullptr);
    bn_binding_free(&binding);
    tstr_array_free(&parts);
}

TEST_F(BnodeTest, TakeoverNullsTheCallersPointersAlsoOnFailure)
{
    tstring *name = nullptr;
    tstr_array *parts = nullptr;
    bn_attrib_array *attribs = nullptr;
    bn_binding *binding = nullptr;

    ASSERT_EQ(ts_new_str(&name, "/a/b"), 0);
    ASSERT_EQ(tstr_array_new(&parts, nullptr), 0);
    ASSERT_EQ(tstr_array_append_str(parts, "a"), 0);
    ASSERT_EQ(bn_attrib_array_new(&attribs), 0);
    tstring *const name_ptr = name;
    ASSERT_EQ(bn_binding_new_parts_components_takeover(&binding, &name, &parts, true, &attribs), 0);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(parts, nullptr);
    EXPECT_EQ(attribs, nullptr);
    EXPECT_EQ(binding->bn_node_name, name_ptr);
    EXPECT_NE(binding->bn_attribs, nullptr);
    bn_binding_free(&binding);

    // A failure (no result pointer) still takes everything and frees it: ASan checks leaks.
    ASSERT_EQ(ts_new_str(&name, "/a"), 0);
    ASSERT_EQ(bn_attrib_array_new(&attribs), 0);
    EXPECT_EQ(bn_binding_new_parts_components_takeover(nullptr, &name, &parts, false, &attribs),
              lc_err_unexpected_null);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(attribs, nullptr);

    // The attribute takeover too.
    bn_attrib *attrib = nullptr;
    ASSERT_EQ(bn_attrib_new_uint32(&attrib, ba_value, 0, 7), 0);
    EXPECT_EQ(bn_binding_set_attrib_takeover(nullptr, ba_value, &attrib), lc_err_unexpected_null);
    EXPECT_EQ(attrib, nullptr);
}

TEST_F(BnodeTest, DupIsDeep)
{
    bn_binding *original = new_uint32_binding("/a/b", 42);
    bn_binding *copy = nullptr;
    tstr_array *parts = nullptr;

    ASSERT_EQ(bn_binding_name_to_parts("/a/b", &parts, &original->bn_node_name_parts_absolute), 0);
    original->bn_node_name_parts = parts;

    ASSERT_EQ(bn_binding_dup(original, &copy), 0);
    EXPECT_NE(copy->bn_node_name, original->bn_node_name);
    EXPECT_NE(copy->bn_node_name_parts, original->bn_node_name_parts);
    EXPECT_NE(copy->bn_attribs, original->bn_attribs);
    EXPECT_TRUE(copy->bn_node_name_parts_absolute);
    EXPECT_EQ(texts_of(copy->bn_node_name_parts), (std::vector<std::string>{"a", "b"}));

    const bn_attrib *orig_attrib = nullptr;
    const bn_attrib *copy_attrib = nullptr;
    ASSERT_EQ(bn_binding_get_attrib(original, ba_value, &orig_attrib), 0);
    ASSERT_EQ(bn_binding_get_attrib(copy, ba_value, &copy_attrib), 0);
    EXPECT_NE(orig_attrib, copy_attrib);

    // Changing and freeing the original leaves the copy whole.
    ASSERT_EQ(bn_binding_set_name(original, "/z"), 0);
    bn_binding_free(&original);
    EXPECT_STREQ(ts_str(bn_binding_get_name_quick(copy)), "/a/b");
    EXPECT_EQ(value_of(copy), 42u);
    bn_binding_free(&copy);

    EXPECT_EQ(bn_binding_dup(nullptr, &copy), lc_err_unexpected_null);
    EXPECT_EQ(copy, nullptr);
}

TEST_F(BnodeTest, SetNameDropsTheCache)
{
    bn_binding *binding = nullptr;
    ASSERT_EQ(bn_binding_new_parts_components(&binding, "/a/b", nullptr, false, nullptr), 0);
    ASSERT_NE(binding->bn_node_name_parts, nullptr);
    ASSERT_TRUE(binding->bn_node_name_parts_absolute);

    ASSERT_EQ(bn_binding_set_name(binding, "c/d"), 0);
    EXPECT_EQ(binding->bn_node_name_parts, nullptr);
    EXPECT_FALSE(binding->bn_node_name_parts_absolute);
    tstring *last = nullptr;
    ASSERT_EQ(bn_binding_get_name_last_part(binding, &last), 0);
    EXPECT_STREQ(ts_str(last), "d");
    ts_free(&last);
    bn_binding_free(&binding);
}

// ---------------------------------------------------------------------------------------
// The attribute table.

TEST_F(BnodeTest, AttributeTableIsSparseAndSizedByTheId)
{
    bn_binding *binding = new_uint32_binding("/a", 5);
    const bn_attrib *attrib = nullptr;

    ASSERT_NE(binding->bn_attribs, nullptr);
    EXPECT_EQ(bn_attrib_array_length_quick(binding->bn_attribs), 2u);
    bn_attrib *slot0 = reinterpret_cast<bn_attrib *>(1);
    ASSERT_EQ(bn_attrib_array_get(binding->bn_attribs, 0, &slot0), 0);
    EXPECT_EQ(slot0, nullptr);

    // A slot past the end is no error here.
    attrib = reinterpret_cast<const bn_attrib *>(1);
    EXPECT_EQ(bn_binding_get_attrib(binding, ba_node_count, &attrib), 0);
    EXPECT_EQ(attrib, nullptr);

    // Replacing releases the old attribute (ASan would see a leak).
    bn_attrib *replacement = nullptr;
    ASSERT_EQ(bn_attrib_new_uint32(&replacement, ba_value, 0, 6), 0);
    ASSERT_EQ(bn_binding_set_attrib_takeover(binding, ba_value, &replacement), 0);
    EXPECT_EQ(replacement, nullptr);
    EXPECT_EQ(value_of(binding), 6u);

    // A higher id pads the table with empty slots.
    bn_attrib *revision = nullptr;
    ASSERT_EQ(bn_attrib_new_uint32(&revision, ba_revision_id, 0, 3), 0);
    ASSERT_EQ(bn_binding_set_attrib_takeover(binding, ba_revision_id, &revision), 0);
    EXPECT_EQ(bn_attrib_array_length_quick(binding->bn_attribs), 130u);
    ASSERT_EQ(bn_binding_get_attrib(binding, ba_product_name, &attrib), 0);
    EXPECT_EQ(attrib, nullptr);
    ASSERT_EQ(bn_binding_get_attrib(binding, ba_revision_id, &attrib), 0);
    EXPECT_NE(attrib, nullptr);

    // The table copies deeply, empty slots included.
    bn_attrib_array *copy = nullptr;
    ASSERT_EQ(bn_attrib_array_duplicate(binding->bn_attribs, &copy), 0);
    EXPECT_EQ(bn_attrib_array_length_quick(copy), 130u);
    bn_attrib *copied = nullptr;
    ASSERT_EQ(bn_attrib_array_get(copy, ba_value, &copied), 0);
    ASSERT_NE(copied, nullptr);
    EXPECT_NE(copied, binding->bn_attribs->bn_attrib_arr->ar_elems[ba_value]);
    bn_attrib_array_free(&copy);
    bn_binding_free(&binding);
}

TEST_F(BnodeTest, GetTypeReportsMissingAttributes)
{
    bn_binding *binding = nullptr;
    bn_type type = bt_string;
    bn_type_flags_bf flags = btf_counter;

    ASSERT_EQ(bn_binding_new_named(&binding, "/a"), 0);
    EXPECT_EQ(bn_binding_get_type(binding, ba_value, &type, &flags), lc_err_unexpected_null);
    EXPECT_EQ(type, bt_NONE);
    EXPECT_EQ(flags, 0u);
    bn_binding_free(&binding);

    binding = new_uint32_binding("/a", 1);
    type = bt_string;
    flags = btf_counter;
    EXPECT_EQ(bn_binding_get_type(binding, ba_encrypted_value, &type, &flags), lc_err_not_found);
    EXPECT_EQ(type, bt_NONE);
    EXPECT_EQ(flags, 0u);
    EXPECT_EQ(bn_binding_get_type(binding, ba_node_count, &type, &flags), lc_err_not_found);
    ASSERT_EQ(bn_binding_get_type(binding, ba_value, &type, &flags), 0);
    EXPECT_EQ(type, bt_uint32);
    bn_binding_free(&binding);
}

// ---------------------------------------------------------------------------------------
// Binding arrays.

class BnodeArrayTest : public BnodeTest {
protected:
    void SetUp() override { ASSERT_EQ(bn_binding_array_new(&arr_), 0); }
    void TearDown() override
    {
        EXPECT_EQ(bn_binding_array_free(&arr_), 0);
        EXPECT_EQ(arr_, nullptr);
    }

    void add(const char *name, uint32 value)
    {
        bn_binding *binding = new_uint32_binding(name, value);
        ASSERT_EQ(bn_binding_array_append_takeover(arr_, &binding), 0);
        EXPECT_EQ(binding, nullptr);
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (uint32 i = 0; i < bn_binding_array_length_quick(arr_); ++i) {
            out.emplace_back(ts_str(bn_binding_get_name_quick(bn_binding_array_get_quick(arr_, i))));
        }
        return out;
    }

    int32 index_of(const char *name)
    {
        int32 idx = 99;
        EXPECT_EQ(bn_binding_array_get_index_by_name(arr_, name, &idx), 0);
        return idx;
    }

    bn_binding_array *arr_ = nullptr;
};

TEST_F(BnodeArrayTest, SortsByBytesOfTheEscapedName)
{
    add("/a/9", 1);
    add("/a\\/b", 2);
    add("/a/b", 3);
    add("/a/10", 4);
    add("/a/B", 5);
    ASSERT_EQ(bn_binding_array_sort(arr_), 0);
    EXPECT_EQ(names(), (std::vector<std::string>{"/a/10", "/a/9", "/a/B", "/a/b", "/a\\/b"}));
}

TEST_F(BnodeArrayTest, LookupsFindTheSameBindingsSortedOrNot)
{
    const char *order[] = {"/c", "/a", "/d/e", "/b"};
    uint32 value = 1;
    for (const char *name : order) {
        add(name, value++);
    }
    EXPECT_FALSE(arr_->bn_binding_arr->ar_sorted);

    for (int pass = 0; pass < 2; ++pass) {
        uint32 expected = 1;
        for (const char *name : order) {
            const int32 idx = index_of(name);
            ASSERT_GE(idx, 0) << name;
            EXPECT_EQ(value_of(bn_binding_array_get_quick(arr_, static_cast<uint32>(idx))), expected);
            bn_binding *binding = nullptr;
            ASSERT_EQ(bn_binding_array_get_binding_by_name(arr_, name, &binding), 0);
            ASSERT_NE(binding, nullptr);
            EXPECT_EQ(value_of(binding), expected);
            ++expected;
        }
        EXPECT_EQ(index_of("/zz"), -1);
        EXPECT_EQ(index_of("/"), -1);
        bn_binding *absent = reinterpret_cast<bn_binding *>(1);
        EXPECT_EQ(bn_binding_array_get_binding_by_name(arr_, "/a/x", &absent), 0);
        EXPECT_EQ(absent, nullptr);

        ASSERT_EQ(bn_binding_array_sort(arr_), 0);
        EXPECT_TRUE(arr_->bn_binding_arr->ar_sorted);
    }
    EXPECT_EQ(index_of("/a"), 0);
    EXPECT_EQ(index_of("/d/e"), 3);

    bn_binding *rel = nullptr;
    ASSERT_EQ(bn_binding_array_get_binding_by_name_rel(arr_, "/d", "e", &rel), 0);
    ASSERT_NE(rel, nullptr);
    EXPECT_EQ(value_of(rel), 3u);
}

TEST_F(BnodeArrayTest, DetachMovesTheBindingOut)
{
    add("/a", 1);
    add("/b", 2);
    bn_binding *detached = nullptr;
    ASSERT_EQ(bn_binding_array_detach_binding_by_name(arr_, "/a", &detached), 0);
    ASSERT_NE(detached, nullptr);
    EXPECT_EQ(value_of(detached), 1u);
    EXPECT_EQ(names(), (std::vector<std::string>{"/b"}));
    bn_binding_free(&detached);

    ASSERT_EQ(bn_binding_array_detach_binding_by_name(arr_, "/a", &detached), 0);
    EXPECT_EQ(detached, nullptr);
    EXPECT_EQ(bn_binding_array_length_quick(arr_), 1u);
}

TEST_F(BnodeArrayTest, ValueTextByName)
{
    bn_binding *binding = nullptr;
    bn_attrib *attrib = nullptr;
    ASSERT_EQ(bn_binding_new_named(&binding, "/p/speed"), 0);
    ASSERT_EQ(bn_attrib_new_uint32(&attrib, ba_value, btf_counter, 42), 0);
    ASSERT_EQ(bn_binding_set_attrib_takeover(binding, ba_value, &attrib), 0);
    ASSERT_EQ(bn_binding_array_append_takeover(arr_, &binding), 0);
    ASSERT_EQ(bn_binding_new_named(&binding, "/p/empty"), 0);
    ASSERT_EQ(bn_binding_array_append_takeover(arr_, &binding), 0);

    bn_type type = bt_NONE;
    tstring *value = nullptr;
    ASSERT_EQ(bn_binding_array_get_value_tstr_by_name(arr_, "/p/speed", &type, &value), 0);
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(ts_str(value), "42");
    EXPECT_EQ(type, bt_uint32);  // the flags are cut off
    ts_free(&value);

    ASSERT_EQ(bn_binding_array_get_value_tstr_by_name_rel(arr_, "/p", "speed", &type, &value), 0);
    EXPECT_STREQ(ts_str(value), "42");
    ts_free(&value);

    type = bt_string;
    ASSERT_EQ(bn_binding_array_get_value_tstr_by_name(arr_, "/p/none", &type, &value), 0);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(type, bt_NONE);
    ASSERT_EQ(bn_binding_array_get_value_tstr_by_name(arr_, "/p/empty", &type, &value), 0);
    EXPECT_EQ(value, nullptr);
}

TEST_F(BnodeArrayTest, AppendCopiesAndRemoveHandsOut)
{
    bn_binding *binding = new_uint32_binding("/x", 9);
    ASSERT_EQ(bn_binding_array_append(arr_, binding), 0);
    EXPECT_NE(bn_binding_array_get_quick(arr_, 0), binding);
    bn_binding_free(&binding);
    EXPECT_EQ(value_of(bn_binding_array_get_quick(arr_, 0)), 9u);

    add("/y", 10);
    add("/z", 11);
    bn_binding *removed = nullptr;
    ASSERT_EQ(bn_binding_array_remove_no_shift(arr_, 0, &removed), 0);
    EXPECT_EQ(names(), (std::vector<std::string>{"/z", "/y"}));
    bn_binding_free(&removed);
    ASSERT_EQ(bn_binding_array_remove(arr_, 0, &removed), 0);
    EXPECT_EQ(names(), (std::vector<std::string>{"/y"}));
    bn_binding_free(&removed);

    EXPECT_EQ(bn_binding_array_get(arr_, 5, &removed), lc_err_no_buffer_space);
    EXPECT_EQ(removed, nullptr);
    ASSERT_EQ(bn_binding_array_empty(arr_), 0);
    EXPECT_EQ(bn_binding_array_length_quick(arr_), 0u);
    EXPECT_EQ(bn_binding_array_empty(nullptr), lc_err_unexpected_null);
}

struct WalkState {
    std::vector<uint32> indices;
    std::vector<std::string> names;
    const bn_binding_array *arr = nullptr;
    uint32 stop_at = UINT32_MAX;
};

int walk(const bn_binding_array *arr, uint32 idx, bn_binding *binding, void *data)
{
    auto *state = static_cast<WalkState *>(data);
    EXPECT_EQ(arr, state->arr);
    state->indices.push_back(idx);
    state->names.emplace_back(ts_str(bn_binding_get_name_quick(binding)));
    return idx == state->stop_at ? lc_err_foreach_halt_ok : 0;
}

TEST_F(BnodeArrayTest, ForeachWalksInOrderAndHaltsOk)
{
    add("/a", 1);
    add("/b", 2);
    add("/c", 3);

    WalkState all;
    all.arr = arr_;
    ASSERT_EQ(bn_binding_array_foreach(arr_, walk, &all), 0);
    EXPECT_EQ(all.indices, (std::vector<uint32>{0, 1, 2}));
    EXPECT_EQ(all.names, (std::vector<std::string>{"/a", "/b", "/c"}));

    WalkState halted;
    halted.arr = arr_;
    halted.stop_at = 1;
    EXPECT_EQ(bn_binding_array_foreach(arr_, walk, &halted), 0);
    EXPECT_EQ(halted.indices, (std::vector<uint32>{0, 1}));

    EXPECT_EQ(bn_binding_array_foreach(nullptr, walk, &all), lc_err_unexpected_null);
    EXPECT_EQ(bn_binding_array_foreach(arr_, nullptr, &all), lc_err_unexpected_null);
}

}  // namespace
