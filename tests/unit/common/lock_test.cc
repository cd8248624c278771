// The lock table: misuse gives error codes, and the table is finite.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "common.h"
#include "lock_mt.h"
#include "logging.h"

namespace {

TEST(Locks, MisuseGivesCodesNotHangs)
{
    lc_log_suspend(true);
    lc_lock *plain = nullptr;
    ASSERT_EQ(lc_lock_init(&plain, false), 0);
    ASSERT_NE(plain, nullptr);

    EXPECT_EQ(lc_lock_unlock(plain), lc_err_lock_not_locked);
    ASSERT_EQ(lc_lock_lock(plain), 0);
    EXPECT_EQ(lc_lock_lock(plain), lc_err_lock_busy);

    int other_result = 0;
    std::thread([&] { other_result = lc_lock_unlock(plain); }).join();
    EXPECT_EQ(other_result, lc_err_lock_bad_owner);
    EXPECT_EQ(lc_lock_unlock(plain), 0);

    EXPECT_EQ(lc_lock_lock(nullptr), lc_err_cancelled);
    EXPECT_EQ(lc_lock_unlock(nullptr), lc_err_unexpected_null);

    // Pointers not at a slot of the table are refused; so are freed slots.
    EXPECT_EQ(lc_lock_lock(reinterpret_cast<lc_lock *>(reinterpret_cast<char *>(plain) + 1)),
              lc_err_range);
    int outside = 0;
    EXPECT_EQ(lc_lock_lock(reinterpret_cast<lc_lock *>(&outside)), lc_err_range);
    lc_lock *stale = plain;
    ASSERT_EQ(lc_lock_deinit(&plain), 0);
    EXPECT_EQ(plain, nullptr);
    EXPECT_EQ(lc_lock_lock(stale), lc_err_not_initialized);
    lc_log_suspend(false);
}

TEST(Locks, RecursiveLockNestsAndThreadExitReleases)
{
    lc_lock *rec = nullptr;
    ASSERT_EQ(lc_lock_init(&rec, true), 0);
    ASSERT_EQ(lc_lock_lock(rec), 0);
    ASSERT_EQ(lc_lock_lock(rec), 0);
    ASSERT_EQ(lc_lock_unlock(rec), 0);
    ASSERT_EQ(lc_lock_unlock(rec), 0);

    // A thread that ends holding the lock lets it go.
    std::thread([&] { ASSERT_EQ(lc_lock_lock(rec), 0); }).join();
    EXPECT_EQ(lc_lock_lock(rec), 0);
    EXPECT_EQ(lc_lock_unlock(rec), 0);
    EXPECT_EQ(lc_lock_deinit(&rec), 0);
}

TEST(Locks, TableOfFiveHundredRunsOut)
{
    lc_log_suspend(true);
    std::vector<lc_lock *> locks;
    int err = 0;
    for (int i = 0; i < LC_LOCK_TABLE_SIZE + 1; ++i) {
        lc_lock *l = nullptr;
        err = lc_lock_init(&l, false);
        if (err != 0) {
            EXPECT_EQ(l, nullptr);
            break;
        }
        locks.push_back(l);
    }
    EXPECT_EQ(err, lc_err_unexpected_null);
    EXPECT_LE(locks.size(), static_cast<size_t>(LC_LOCK_TABLE_SIZE));
    for (lc_lock *l : locks) {
        EXPECT_EQ(lc_lock_deinit(&l), 0);
    }
    lc_lock *again = nullptr;
    EXPECT_EQ(lc_lock_init(&again, false), 0);
    EXPECT_EQ(lc_lock_deinit(&again), 0);
    lc_log_suspend(false);
}

}  // namespace
