// Process-wide mutexes, kept as slots of one fixed table so that a lock pointer can be
// validated before use.
#pragma once

#include "common.h"

struct lc_lock;

#define LC_LOCK_TABLE_SIZE 500

int lc_lock_init(lc_lock **ret_lock, tbool recursive);
int lc_lock_deinit(lc_lock **ret_lock);
int lc_lock_lock(lc_lock *lock);
int lc_lock_unlock(lc_lock *lock);

extern lc_lock *lc_env_lock;
extern lc_lock *lc_dso_lock;
extern lc_lock *lc_utmpx_lock;
