// Mutexes as slots of one fixed table.  A slot remembers its owner, so that misuse (a
// second lock of a plain lock, an unlock by a stranger) is an error code and not undefined
// behaviour, and holds a thread key whose destructor releases a lock still held when its
// thread ends.
#include "lock_mt.h"

#include <pthread.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "logging.h"

struct lc_lock {
    pthread_mutex_t llk_mutex;
    pthread_key_t llk_key;
    std::atomic<bool> llk_in_use;
    tbool llk_recursive;
    std::atomic<pthread_t> llk_owner;
    std::atomic<uint32> llk_depth;
};

lc_lock *lc_env_lock = nullptr;
lc_lock *lc_dso_lock = nullptr;
lc_lock *lc_utmpx_lock = nullptr;

namespace {

lc_lock lc_lock_table[LC_LOCK_TABLE_SIZE];
// Guards the allocation scan of the table, not the locks themselves.
std::mutex lc_lock_table_mutex;
uint32 lc_lock_last_given = LC_LOCK_TABLE_SIZE - 1;

int lc_lock_validate(const lc_lock *lock)
{
    const auto *base = reinterpret_cast<const char *>(&lc_lock_table[0]);
    const auto *end = reinterpret_cast<const char *>(&lc_lock_table[LC_LOCK_TABLE_SIZE]);
    const auto *ptr = reinterpret_cast<const char *>(lock);
    if (ptr < base || ptr >= end || (ptr - base) % sizeof(lc_lock) != 0) {
        return lc_err_range;
    }
    if (!lock->llk_in_use.load()) {
        return lc_err_not_initialized;
    }
    return 0;
}

tbool lc_lock_held_by_me(const lc_lock *lock)
{
    return lock->llk_depth.load() > 0 && pthread_equal(lock->llk_owner.load(), pthread_self());
}

// Runs when a thread that still holds the lock ends.
void lc_lock_thread_exit(void *data)
{
    auto *lock = static_cast<lc_lock *>(data);
    if (lock == nullptr || lc_lock_validate(lock) != 0) {
        return;
    }
    while (lc_lock_held_by_me(lock)) {
        if (lc_lock_unlock(lock) != 0) {
            break;
        }
    }
}

}  // namespace

int lc_lock_init(lc_lock **ret_lock, tbool recursive)
{
    int err = 0;
    lc_lock *lock = nullptr;
    pthread_mutexattr_t attr;
    bool attr_made = false;

    bail_null(ret_lock);
    *ret_lock = nullptr;
    {
        std::lock_guard<std::mutex> guard(lc_lock_table_mutex);
        const uint32 start = (lc_lock_last_given + 1) % LC_LOCK_TABLE_SIZE;
        uint32 idx = start;
        do {
            if (!lc_lock_table[idx].llk_in_use.load()) {
                lock = &lc_lock_table[idx];
                lock->llk_in_use.store(true);
                lc_lock_last_given = idx;
                break;
            }
            idx = (idx + 1) % LC_LOCK_TABLE_SIZE;
        } while (idx != start);
    }
    bail_null(lock);

    lock->llk_recursive = recursive;
    lock->llk_owner.store(pthread_t());
    lock->llk_depth.store(0);
    if (pthread_mutexattr_init(&attr) != 0) {
        lock->llk_in_use.store(false);
        bail_errno(lc_err_generic_error, "pthread_mutexattr_init");
    }
    attr_made = true;
    pthread_mutexattr_settype(&attr, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
    if (pthread_mutex_init(&lock->llk_mutex, &attr) != 0) {
        lock->llk_in_use.store(false);
        bail_errno(lc_err_generic_error, "pthread_mutex_init");
    }
    if (pthread_key_create(&lock->llk_key, lc_lock_thread_exit) != 0) {
        pthread_mutex_destroy(&lock->llk_mutex);
        lock->llk_in_use.store(false);
        bail_errno(lc_err_generic_error, "pthread_key_create");
    }
    *ret_lock = lock;
bail:
    if (attr_made) {
        pthread_mutexattr_destroy(&attr);
    }
    return err;
}

int lc_lock_deinit(lc_lock **ret_lock)
{
    int err = 0;
    lc_lock *lock = nullptr;
    bail_null(ret_lock);
    lock = *ret_lock;
    if (lock == nullptr) {
        goto bail;
    }
    err = lc_lock_validate(lock);
    bail_error(err);
    pthread_key_delete(lock->llk_key);
    pthread_mutex_destroy(&lock->llk_mutex);
    lock->llk_depth.store(0);
    lock->llk_owner.store(pthread_t());
    lock->llk_in_use.store(false);
    *ret_lock = nullptr;
bail:
    return err;
}

int lc_lock_lock(lc_lock *lock)
{
    int err = 0;
    if (lock == nullptr) {
        // Code racing with the close of logging stops here without noise.
        return lc_err_cancelled;
    }
    err = lc_lock_validate(lock);
    bail_error(err);
    if (!lock->llk_recursive && lc_lock_held_by_me(lock)) {
        bail_force(lc_err_lock_busy);
    }
    if (pthread_mutex_lock(&lock->llk_mutex) != 0) {
        bail_errno(lc_err_generic_error, "pthread_mutex_lock");
    }
    lock->llk_owner.store(pthread_self());
    if (lock->llk_depth.fetch_add(1) == 0) {
        pthread_setspecific(lock->llk_key, lock);
    }
bail:
    return err;
}

int lc_lock_unlock(lc_lock *lock)
{
    int err = 0;
    bail_null(lock);
    err = lc_lock_validate(lock);
    bail_error(err);
    if (lock->llk_depth.load() == 0) {
        bail_force(lc_err_lock_not_locked);
    }
    if (!pthread_equal(lock->llk_owner.load(), pthread_self())) {
        bail_force(lc_err_lock_bad_owner);
    }
    if (lock->llk_depth.fetch_sub(1) == 1) {
        lock->llk_owner.store(pthread_t());
        pthread_setspecific(lock->llk_key, nullptr);
    }
    if (pthread_mutex_unlock(&lock->llk_mutex) != 0) {
        bail_errno(lc_err_generic_error, "pthread_mutex_unlock");
    }
bail:
    return err;
}
