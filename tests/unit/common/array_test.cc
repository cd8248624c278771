// The pointer array and the typed arrays: growth and its limits, sorted inserts under each
// duplicate policy, searches, ownership of elements, and the foreach result codes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "array.h"
#include "logging.h"
#include "typed_arrays.h"

namespace {

// Log lines go to stderr only, so that a test can read what was logged.
class ArrayTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ASSERT_EQ(lc_log_init("array_test", nullptr, LCO_NO_SYSLOG_FORMAT, 0, LOG_DEBUG, LOG_USER,
                              LCT_STDERR),
                  0);
    }
    void TearDown() override { EXPECT_EQ(array_free(&arr_), 0); }

    void start_capture() { testing::internal::CaptureStderr(); }
    std::string end_capture() { return testing::internal::GetCapturedStderr(); }

    array *arr_ = nullptr;
};

// Elements of the owning arrays: heap ints, compared by value.
int *new_int(int value)
{
    int *p = static_cast<int *>(malloc(sizeof(int)));
    *p = value;
    return p;
}

int int_compare(const void *a, const void *b)
{
    const int x = **static_cast<int *const *>(a);
    const int y = **static_cast<int *const *>(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

int int_dup(const void *src, void **ret)
{
    *ret = new_int(*static_cast<const int *>(src));
    return 0;
}

array_options int_options(array_dup_policy policy = adp_add_new)
{
    array_options opts{};
    EXPECT_EQ(array_options_get_defaults(&opts), 0);
    opts.ao_elem_compare_func = int_compare;
    opts.ao_dup_policy = policy;
    return opts;
}

std::vector<int> values(const array *arr)
{
    std::vector<int> out;
    for (uint32 i = 0; i < array_length_quick(arr); ++i) {
        out.push_back(*static_cast<int *>(array_get_quick(arr, i)));
    }
    return out;
}

// ---------------------------------------------------------------------------------------
// Making and growth.

TEST_F(ArrayTest, DefaultsAreTenSlotsSortedAndOwning)
{
    array_options opts{};
    ASSERT_EQ(array_options_get_defaults(&opts), 0);
    EXPECT_EQ(opts.ao_initial_size, 10u);
    EXPECT_EQ(opts.ao_dup_policy, adp_add_new);
    EXPECT_TRUE(opts.ao_enforce_sorting_constraints);
    EXPECT_EQ(opts.ao_elem_free_func, array_std_free_func);
    EXPECT_EQ(opts.ao_elem_dup_func, nullptr);

    ASSERT_EQ(array_new(&arr_, nullptr), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 10u);
    EXPECT_NE(arr_->ar_elems, nullptr);
    EXPECT_TRUE(arr_->ar_sorted);
    EXPECT_EQ(array_length_quick(arr_), 0u);
}

TEST_F(ArrayTest, FullTenSlotArrayGrowsToTwenty)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(array_append(arr_, new_int(i)), 0);
    }
    EXPECT_EQ(arr_->ar_slots_allocated, 10u);
    ASSERT_EQ(array_append(arr_, new_int(10)), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 20u);
    for (int i = 11; i < 21; ++i) {
        ASSERT_EQ(array_append(arr_, new_int(i)), 0);
    }
    EXPECT_EQ(arr_->ar_slots_allocated, 40u);
    EXPECT_EQ(values(arr_).back(), 20);
}

TEST_F(ArrayTest, SizeOneGrowsByAtLeastTen)
{
    array_options opts = int_options();
    opts.ao_initial_size = 1;
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 1u);
    ASSERT_EQ(array_append(arr_, new_int(2)), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 11u);
}

TEST_F(ArrayTest, EnsureSizeLimitsAndExactAllocation)
{
    ASSERT_EQ(array_new(&arr_, nullptr), 0);
    EXPECT_EQ(array_ensure_size(arr_, 5), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 10u);
    EXPECT_EQ(array_ensure_size(arr_, 45), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 80u);  // 10 -> 20 -> 40 -> 80
    EXPECT_EQ(array_ensure_size_min_exact(arr_, 83), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 83u);
    EXPECT_EQ(array_ensure_size(arr_, 0x7FFFFFFF), lc_err_assertion_failed);
    EXPECT_EQ(array_ensure_size(arr_, 0xFFFFFFFF), lc_err_assertion_failed);
    EXPECT_EQ(arr_->ar_slots_allocated, 83u);
}

TEST_F(ArrayTest, PreallocatedArrayCannotGrowAndLeavesItsBlock)
{
    alignas(array) unsigned char block[sizeof(array) + 3 * sizeof(void *)];
    array_options opts = int_options();
    ASSERT_EQ(array_new_prealloc(&arr_, &opts, block, sizeof(block)), 0);
    EXPECT_EQ(static_cast<void *>(arr_), static_cast<void *>(block));
    EXPECT_EQ(arr_->ar_slots_allocated, 3u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(array_insert_sorted(arr_, new_int(3 - i)), 0);
    }
    int *extra = new_int(7);
    start_capture();
    EXPECT_EQ(array_append(arr_, extra), lc_err_no_buffer_space);
    EXPECT_EQ(array_insert_sorted(arr_, extra), lc_err_no_buffer_space);
    EXPECT_EQ(end_capture(), "");
    free(extra);
    EXPECT_EQ(values(arr_), (std::vector<int>{1, 2, 3}));
    // Freeing releases the elements and leaves the caller's block alone.
    EXPECT_EQ(array_free(&arr_), 0);
    EXPECT_EQ(arr_, nullptr);
}

// ---------------------------------------------------------------------------------------
// Sorted inserts and the duplicate policies.

TEST_F(ArrayTest, SortedInsertKeepsOrderAndAddsEqualsAfterOld)
{
    array_options opts = int_options(adp_add_new);
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int v : {5, 1, 9, 3, 7, 3}) {
        ASSERT_EQ(array_insert_sorted(arr_, new_int(v)), 0);
    }
    EXPECT_EQ(values(arr_), (std::vector<int>{1, 3, 3, 5, 7, 9}));
    EXPECT_TRUE(arr_->ar_sorted);

    int *second_three = new_int(3);
    uint32 idx = 0;
    ASSERT_EQ(array_insert_sorted_hint_idx(arr_, second_three, 0, &idx), 0);
    EXPECT_EQ(idx, 3u);
    EXPECT_EQ(array_get_quick(arr_, 3), second_three);
}

TEST_F(ArrayTest, FailNewGivesExistsLeavesArrayUnchangedAndLogsNothing)
{
    array_options opts = int_options(adp_fail_new);
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    int *first = new_int(4);
    ASSERT_EQ(array_insert_sorted(arr_, first), 0);
    ASSERT_EQ(array_insert_sorted(arr_, new_int(8)), 0);

    int *dup = new_int(4);
    start_capture();
    EXPECT_EQ(array_insert_sorted(arr_, dup), lc_err_exists);
    void *held = dup;
    EXPECT_EQ(array_insert_sorted_takeover(arr_, &held), lc_err_exists);
    EXPECT_EQ(end_capture(), "");
    // The caller still owns the refused element.
    EXPECT_EQ(held, dup);
    free(dup);
    EXPECT_EQ(values(arr_), (std::vector<int>{4, 8}));
    EXPECT_EQ(array_get_quick(arr_, 0), first);
}

TEST_F(ArrayTest, DeleteOldReplacesAndDeleteNewDrops)
{
    array_options opts = int_options(adp_delete_old);
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_insert_sorted(arr_, new_int(2)), 0);
    int *replacement = new_int(2);
    ASSERT_EQ(array_insert_sorted(arr_, replacement), 0);
    EXPECT_EQ(array_length_quick(arr_), 1u);
    EXPECT_EQ(array_get_quick(arr_, 0), replacement);

    opts.ao_dup_policy = adp_delete_new;
    ASSERT_EQ(array_options_set(arr_, &opts), 0);
    void *dropped = new_int(2);
    ASSERT_EQ(array_insert_sorted_takeover(arr_, &dropped), 0);
    EXPECT_EQ(dropped, nullptr);  // released by the array
    EXPECT_EQ(array_length_quick(arr_), 1u);
    EXPECT_EQ(array_get_quick(arr_, 0), replacement);
}

TEST_F(ArrayTest, SortedInsertIntoUnsortedArrayIsRefusedWhenEnforced)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append(arr_, new_int(5)), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    EXPECT_FALSE(arr_->ar_sorted);
    int *elem = new_int(3);
    EXPECT_EQ(array_insert_sorted(arr_, elem), lc_err_assertion_failed);
    free(elem);

    opts.ao_enforce_sorting_constraints = false;
    ASSERT_EQ(array_options_set(arr_, &opts), 0);
    ASSERT_EQ(array_insert_sorted(arr_, new_int(3)), 0);
    EXPECT_EQ(values(arr_), (std::vector<int>{1, 3, 5}));
}

TEST_F(ArrayTest, AppendTracksSortedness)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    ASSERT_EQ(array_append(arr_, new_int(2)), 0);
    EXPECT_TRUE(arr_->ar_sorted);
    ASSERT_EQ(array_append(arr_, new_int(0)), 0);
    EXPECT_FALSE(arr_->ar_sorted);
    ASSERT_EQ(array_sort(arr_), 0);
    EXPECT_TRUE(arr_->ar_sorted);
    EXPECT_EQ(values(arr_), (std::vector<int>{0, 1, 1, 2}));
    ASSERT_EQ(array_set(arr_, 0, new_int(9)), 0);
    EXPECT_FALSE(arr_->ar_sorted);
}

// The empty slots of a table indexed directly: nulls as they are, never through the dup
// function (which cannot copy a null int), and the order noted as for one append at a time.
TEST_F(ArrayTest, AppendNullsStoresEmptySlotsWithoutDup)
{
    array_options opts{};
    ASSERT_EQ(array_options_get_defaults(&opts), 0);
    opts.ao_elem_dup_func = int_dup;
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append_nulls(arr_, 0), 0);
    EXPECT_EQ(array_length_quick(arr_), 0u);
    ASSERT_EQ(array_append_nulls(arr_, 69), 0);
    EXPECT_TRUE(arr_->ar_sorted);
    int seven = 7;
    ASSERT_EQ(array_append(arr_, &seven), 0);
    ASSERT_EQ(array_length_quick(arr_), 70u);
    for (uint32 i = 0; i < 69; ++i) {
        EXPECT_EQ(array_get_quick(arr_, i), nullptr) << i;
    }
    EXPECT_EQ(*static_cast<int *>(array_get_quick(arr_, 69)), 7);
    // A null after a non-null element breaks the order of the default comparison.
    ASSERT_EQ(array_append_nulls(arr_, 2), 0);
    EXPECT_FALSE(arr_->ar_sorted);
    EXPECT_EQ(array_length_quick(arr_), 72u);
}

// ---------------------------------------------------------------------------------------
// Searching.

TEST_F(ArrayTest, BinarySearchFindsFirstOfEqualElements)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int v : {1, 2, 4, 4, 4, 6, 7, 8, 9}) {
        ASSERT_EQ(array_insert_sorted(arr_, new_int(v)), 0);
    }
    int key = 4;
    uint32 idx = 99;
    ASSERT_EQ(array_binary_search(arr_, &key, &idx), 0);
    EXPECT_EQ(idx, 2u);
    key = 9;
    ASSERT_EQ(array_binary_search(arr_, &key, &idx), 0);
    EXPECT_EQ(idx, 8u);
    key = 5;
    start_capture();
    EXPECT_EQ(array_binary_search(arr_, &key, &idx), lc_err_not_found);
    EXPECT_EQ(end_capture(), "");
    EXPECT_EQ(idx, UINT32_MAX);
}

TEST_F(ArrayTest, BinarySearchOnUnsortedArrayLogsWhenEnforced)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int v : {3, 1, 2}) {
        ASSERT_EQ(array_append(arr_, new_int(v)), 0);
    }
    int key = 2;
    uint32 idx = 0;
    start_capture();
    EXPECT_EQ(array_binary_search(arr_, &key, &idx), lc_err_assertion_failed);
    const std::string log = end_capture();
    EXPECT_NE(log.find(".ERR]: Tried to do binary search on an unsorted array"),
              std::string::npos)
        << log;

    // Without enforcement the search still answers.
    opts.ao_enforce_sorting_constraints = false;
    ASSERT_EQ(array_options_set(arr_, &opts), 0);
    ASSERT_EQ(array_binary_search(arr_, &key, &idx), 0);
    EXPECT_EQ(idx, 2u);
    ASSERT_EQ(array_best_search(arr_, &key, &idx), 0);
    EXPECT_EQ(idx, 2u);
}

TEST_F(ArrayTest, SearchWithoutCompareFunctionFails)
{
    array_options opts = int_options();
    opts.ao_elem_compare_func = nullptr;
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    int key = 1;
    uint32 idx = 0;
    EXPECT_EQ(array_binary_search(arr_, &key, &idx), lc_err_assertion_failed);
    EXPECT_EQ(array_linear_search(arr_, &key, 0, &idx), lc_err_assertion_failed);
}

TEST_F(ArrayTest, LinearSearchStartsAtGivenIndex)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int v : {7, 3, 7, 1}) {
        ASSERT_EQ(array_append(arr_, new_int(v)), 0);
    }
    int key = 7;
    uint32 idx = 0;
    ASSERT_EQ(array_linear_search(arr_, &key, 0, &idx), 0);
    EXPECT_EQ(idx, 0u);
    ASSERT_EQ(array_linear_search(arr_, &key, 1, &idx), 0);
    EXPECT_EQ(idx, 2u);
    EXPECT_EQ(array_linear_search(arr_, &key, 3, &idx), lc_err_not_found);
    EXPECT_EQ(array_linear_search(arr_, &key, 10, &idx), lc_err_not_found);
    EXPECT_EQ(array_append_no_dup(arr_, &key), lc_err_exists);
}

// ---------------------------------------------------------------------------------------
// Removing and ownership.

TEST_F(ArrayTest, RemoveHandsOutDeleteFreesAndIndexPastEndFails)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int v : {10, 20, 30, 40}) {
        ASSERT_EQ(array_append(arr_, new_int(v)), 0);
    }
    void *out = nullptr;
    ASSERT_EQ(array_remove(arr_, 1, &out), 0);
    EXPECT_EQ(*static_cast<int *>(out), 20);
    free(out);
    EXPECT_EQ(values(arr_), (std::vector<int>{10, 30, 40}));

    ASSERT_EQ(array_delete(arr_, 0), 0);
    EXPECT_EQ(values(arr_), (std::vector<int>{30, 40}));

    ASSERT_EQ(array_append(arr_, new_int(50)), 0);
    ASSERT_EQ(array_remove_no_shift(arr_, 0, &out), 0);
    EXPECT_EQ(*static_cast<int *>(out), 30);
    free(out);
    EXPECT_EQ(values(arr_), (std::vector<int>{50, 40}));
    EXPECT_FALSE(arr_->ar_sorted);

    ASSERT_EQ(array_pop(arr_, &out), 0);
    EXPECT_EQ(*static_cast<int *>(out), 40);
    free(out);

    EXPECT_EQ(array_get(arr_, 1, &out), lc_err_no_buffer_space);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(array_delete(arr_, 1), lc_err_no_buffer_space);
    ASSERT_EQ(array_delete(arr_, 0), 0);
    EXPECT_EQ(array_pop(arr_, &out), lc_err_not_found);
}

TEST_F(ArrayTest, DuplicateCopiesThroughDupFunction)
{
    array_options opts = int_options();
    opts.ao_elem_dup_func = int_dup;
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    int local = 6;
    // With a dup function the plain append stores a copy, never the caller's pointer.
    ASSERT_EQ(array_append(arr_, &local), 0);
    EXPECT_NE(array_get_quick(arr_, 0), &local);
    ASSERT_EQ(array_append(arr_, &local), 0);

    array *copy = nullptr;
    ASSERT_EQ(array_duplicate(arr_, &copy), 0);
    ASSERT_EQ(array_length_quick(copy), 2u);
    EXPECT_NE(array_get_quick(copy, 0), array_get_quick(arr_, 0));
    EXPECT_EQ(values(copy), values(arr_));
    EXPECT_EQ(array_free(&copy), 0);
}

TEST_F(ArrayTest, DuplicateOfOwnedElementsNeedsDupFunction)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    array *copy = nullptr;
    EXPECT_EQ(array_duplicate(arr_, &copy), lc_err_assertion_failed);
    EXPECT_EQ(copy, nullptr);
}

// Small arrays keep their first slots in the block of their record; every resize from
// there, up or down, must carry the elements over, and the sizes follow the same rules as
// for any other block.  (Under the sanitizers a wrong free of such a block shows at once.)
TEST_F(ArrayTest, ResizesFromTheFirstSlotsKeepEveryElement)
{
    std::vector<int> expected;
    for (const uint32 initial : {0u, 1u, 10u, 16u, 17u}) {
        SCOPED_TRACE(initial);
        array_options opts = int_options();
        opts.ao_initial_size = initial;
        ASSERT_EQ(array_new(&arr_, &opts), 0);
        EXPECT_EQ(arr_->ar_slots_allocated, initial);
        expected.clear();
        for (int i = 0; i < 40; ++i) {
            ASSERT_EQ(array_append(arr_, new_int(i)), 0);
            expected.push_back(i);
        }
        EXPECT_EQ(values(arr_), expected);
        ASSERT_EQ(array_empty(arr_), 0);
        EXPECT_EQ(arr_->ar_slots_allocated, initial);
        ASSERT_EQ(array_append(arr_, new_int(7)), 0);
        EXPECT_EQ(values(arr_), std::vector<int>{7});
        ASSERT_EQ(array_free(&arr_), 0);
    }

    // Exact growth straight from the first slots.
    ASSERT_EQ(array_new(&arr_, nullptr), 0);
    ASSERT_EQ(array_append(arr_, new_int(3)), 0);
    ASSERT_EQ(array_ensure_size_min_exact(arr_, 11), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 11u);
    EXPECT_EQ(values(arr_), std::vector<int>{3});
    ASSERT_EQ(array_free(&arr_), 0);

    // A smaller initial size set later: emptying moves the slots out to that size.
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    opts.ao_initial_size = 4;
    ASSERT_EQ(array_options_set(arr_, &opts), 0);
    ASSERT_EQ(array_empty(arr_), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 4u);
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(array_append(arr_, new_int(i)), 0);
    }
    EXPECT_EQ(values(arr_), (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(arr_->ar_slots_allocated, 14u);

    // A copy of a grown array, and its free.
    array *copy = nullptr;
    opts.ao_elem_dup_func = [](const void *src, void **ret) {
        *ret = new_int(*static_cast<const int *>(src));
        return 0;
    };
    ASSERT_EQ(array_options_set(arr_, &opts), 0);
    ASSERT_EQ(array_duplicate(arr_, &copy), 0);
    EXPECT_EQ(values(copy), (std::vector<int>{0, 1, 2, 3, 4}));
    ASSERT_EQ(array_free(&copy), 0);
}

TEST_F(ArrayTest, EmptyReturnsToInitialSize)
{
    array_options opts = int_options();
    ASSERT_EQ(array_new(&arr_, &opts), 0);
    for (int i = 0; i < 25; ++i) {
        ASSERT_EQ(array_append(arr_, new_int(i)), 0);
    }
    ASSERT_EQ(array_free_elems(arr_), 0);
    EXPECT_EQ(array_length_quick(arr_), 0u);
    EXPECT_EQ(arr_->ar_slots_allocated, 40u);
    ASSERT_EQ(array_append(arr_, new_int(1)), 0);
    ASSERT_EQ(array_empty(arr_), 0);
    EXPECT_EQ(arr_->ar_slots_allocated, 10u);
}

// ---------------------------------------------------------------------------------------
// Walking.

// Returns `result` for the element holding `result_for`, or for every element when that
// is 0; records the indices it was called with.
struct Walk {
    std::vector<uint32> seen;
    int result = 0;
    int result_for = 0;
};

int walk_func(const array *, uint32 idx, void *elem, void *data)
{
    auto *walk = static_cast<Walk *>(data);
    walk->seen.push_back(idx);
    if (walk->result_for == 0 || walk->result_for == *static_cast<int *>(elem)) {
        return walk->result;
    }
    return 0;
}

class ArrayForeach : public ArrayTest {
protected:
    void SetUp() override
    {
        array_options opts = int_options();
        ASSERT_EQ(array_new(&arr_, &opts), 0);
        for (int v : {1, 2, 3, 4}) {
            ASSERT_EQ(array_append(arr_, new_int(v)), 0);
        }
    }
};

TEST_F(ArrayForeach, DeleteEveryElementEmptiesArray)
{
    Walk walk;
    walk.result = lc_err_foreach_delete;
    ASSERT_EQ(array_foreach_delete(arr_, walk_func, &walk), 0);
    EXPECT_EQ(array_length_quick(arr_), 0u);
    // Each deletion is followed by a call at the same index.
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 0, 0, 0}));
}

TEST_F(ArrayForeach, DeleteOneElementGoesOnAtSameIndex)
{
    Walk walk;
    walk.result = lc_err_foreach_delete;
    walk.result_for = 2;
    ASSERT_EQ(array_foreach_delete(arr_, walk_func, &walk), 0);
    EXPECT_EQ(values(arr_), (std::vector<int>{1, 3, 4}));
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 1, 1, 2}));
}

TEST_F(ArrayForeach, DeleteOutsideForeachDeleteIsRefused)
{
    Walk walk;
    walk.result = lc_err_foreach_delete;
    walk.result_for = 3;
    start_capture();
    EXPECT_EQ(array_foreach(arr_, walk_func, &walk), lc_err_assertion_failed);
    const std::string log = end_capture();
    EXPECT_NE(log.find(".ERR]: Array foreach callback returned lc_err_foreach_delete to "
                       "delete element #2, but array_foreach_delete() was not called"),
              std::string::npos)
        << log;
    EXPECT_EQ(array_length_quick(arr_), 4u);
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 1, 2}));
}

TEST_F(ArrayForeach, HaltOkStopsWithSuccess)
{
    Walk walk;
    walk.result = lc_err_foreach_halt_ok;
    walk.result_for = 2;
    EXPECT_EQ(array_foreach(arr_, walk_func, &walk), 0);
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 1}));
}

TEST_F(ArrayForeach, HaltErrStopsWithGenericError)
{
    Walk walk;
    walk.result = lc_err_foreach_halt_err;
    walk.result_for = 3;
    start_capture();
    EXPECT_EQ(array_foreach(arr_, walk_func, &walk), lc_err_generic_error);
    const std::string log = end_capture();
    EXPECT_NE(log.find(".ERR]: Array element 2 halted iteration with an error"),
              std::string::npos)
        << log;
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 1, 2}));
}

TEST_F(ArrayForeach, OtherCodeIsNotedAndWalkGoesOn)
{
    Walk walk;
    walk.result = lc_err_not_found;
    walk.result_for = 1;
    start_capture();
    EXPECT_EQ(array_foreach(arr_, walk_func, &walk), lc_err_generic_error);
    const std::string log = end_capture();
    EXPECT_NE(log.find(".WARNING]: Got return code 14004 from foreach function"),
              std::string::npos)
        << log;
    EXPECT_EQ(walk.seen, (std::vector<uint32>{0, 1, 2, 3}));
}

// ---------------------------------------------------------------------------------------
// Typed arrays.

TEST_F(ArrayTest, Uint32ArrayKeepsValuesInSlots)
{
    uint32_array *ids = nullptr;
    ASSERT_EQ(uint32_array_new(&ids), 0);
    for (uint32 v : {70u, 0u, 0xFFFFFFFFu, 12u}) {
        ASSERT_EQ(uint32_array_append(ids, v), 0);
    }
    ASSERT_EQ(uint32_array_length_quick(ids), 4u);
    EXPECT_EQ(uint32_array_get_quick(ids, 2), 0xFFFFFFFFu);
    uint32 idx = 0;
    ASSERT_EQ(uint32_array_linear_search(ids, 12, 0, &idx), 0);
    EXPECT_EQ(idx, 3u);
    EXPECT_EQ(uint32_array_linear_search(ids, 13, 0, &idx), lc_err_not_found);
    ASSERT_EQ(uint32_array_delete(ids, 0), 0);
    EXPECT_EQ(uint32_array_get_quick(ids, 0), 0u);

    uint32_array *copy = nullptr;
    ASSERT_EQ(uint32_array_duplicate(ids, &copy), 0);
    ASSERT_EQ(uint32_array_sort(copy), 0);
    EXPECT_EQ(uint32_array_get_quick(copy, 0), 0u);
    EXPECT_EQ(uint32_array_get_quick(copy, 2), 0xFFFFFFFFu);
    ASSERT_EQ(uint32_array_binary_search(copy, 12, &idx), 0);
    EXPECT_EQ(idx, 1u);
    EXPECT_EQ(uint32_array_free(&copy), 0);
    EXPECT_EQ(uint32_array_free(&ids), 0);
    EXPECT_EQ(ids, nullptr);
}

TEST_F(ArrayTest, Uint32ArraySortedInsertHonoursPolicy)
{
    uint32_array *ids = nullptr;
    ASSERT_EQ(uint32_array_new_full(&ids, 1, adp_fail_new, true), 0);
    for (uint32 v : {30u, 10u, 20u}) {
        ASSERT_EQ(uint32_array_insert_sorted(ids, v), 0);
    }
    EXPECT_EQ(uint32_array_insert_sorted(ids, 20), lc_err_exists);
    ASSERT_EQ(uint32_array_length_quick(ids), 3u);
    EXPECT_EQ(uint32_array_get_quick(ids, 0), 10u);
    EXPECT_EQ(uint32_array_get_quick(ids, 2), 30u);
    EXPECT_EQ(uint32_array_free(&ids), 0);
}

TEST_F(ArrayTest, TstrArrayArrayDuplicatesDeeply)
{
    tstr_array_array *outer = nullptr;
    tstr_array *inner = nullptr;
    ASSERT_EQ(tstr_array_array_new(&outer), 0);
    ASSERT_EQ(tstr_array_new(&inner, nullptr), 0);
    ASSERT_EQ(tstr_array_append_str(inner, "a"), 0);
    ASSERT_EQ(tstr_array_array_append_takeover(outer, &inner), 0);
    EXPECT_EQ(inner, nullptr);

    tstr_array_array *copy = nullptr;
    ASSERT_EQ(tstr_array_array_duplicate(outer, &copy), 0);
    ASSERT_EQ(tstr_array_array_length_quick(copy), 1u);
    tstr_array *copied = tstr_array_array_get_quick(copy, 0);
    EXPECT_NE(copied, tstr_array_array_get_quick(outer, 0));
    // The copy is independent of the original.
    ASSERT_EQ(tstr_array_append_str(tstr_array_array_get_quick(outer, 0), "b"), 0);
    EXPECT_EQ(tstr_array_length_quick(copied), 1u);
    EXPECT_STREQ(tstr_array_get_str_quick(copied, 0), "a");
    EXPECT_EQ(tstr_array_array_free(&copy), 0);
    EXPECT_EQ(tstr_array_array_free(&outer), 0);
}

}  // namespace
