// The chained hash table.  Keys and values are opaque pointers, with a key length beside
// the key; what the table does with them (hashing, comparing, copying in, freeing) is set
// by a record of functions given at creation.
//
// A key length of -1 means that the key is a zero-terminated text whose length is its
// strlen; a null key with that length is lc_err_unexpected_null.  Any other negative
// length is refused with lc_err_assertion_failed.
//
// The table has no lock: the thread that owns it is the only one to touch it.
#pragma once

#include <cstdint>

#include "common.h"

struct tstring;
struct ht_table;

// A hash value, as wide as a pointer.
typedef uintptr_t ht_hash_result;

typedef ht_hash_result (*ht_hash_func)(const void *key, int32 key_len);
typedef tbool (*ht_key_equal_func)(const void *key1, int32 key1_len, const void *key2,
                                   int32 key2_len);
// Makes the key, length and value that a new node will own, from the caller's.  Called
// by ht_insert when the table has one; without one the node keeps the caller's pointers.
typedef int (*ht_key_value_set_func)(const void *key, int32 key_len, const void *value,
                                     void **ret_key, int32 *ret_key_len, void **ret_value);
// Copies a key into a new key and the value stored with it.  The table itself never calls
// it; it is carried for the users of the table.
typedef int (*ht_key_value_dup_func)(const void *key, int32 key_len, void **ret_value,
                                     void **ret_key);
// Frees a node's key and value and nulls both pointers.  A non-zero result is reported by
// the table as lc_err_generic_error, after the node is gone all the same.
typedef int (*ht_key_value_free_func)(void **inout_key, void **inout_value, int32 key_len);
// Called for each node by ht_foreach; the result steers the walk (see ht_foreach).
typedef int (*ht_foreach_func)(const ht_table *ht, const void *key, int32 key_len,
                               void *value, void *data);

struct ht_node {
    void *hn_key;
    int32 hn_key_len;
    void *hn_value;
    ht_node *hn_next;
};

struct ht_table {
    ht_node **ht_nodes;
    uint32 ht_num_buckets;
    uint32 ht_num_nodes;
    ::ht_hash_func ht_hash_func;
    ::ht_key_equal_func ht_key_equal_func;
    ::ht_key_value_set_func ht_key_value_set_func;
    ::ht_key_value_dup_func ht_key_value_dup_func;
    ::ht_key_value_free_func ht_key_value_free_func;
    tbool ht_insert_fails_duplicates;
};

struct ht_options {
    ht_hash_func ho_hash_func;
    ht_key_equal_func ho_key_equal_func;
    ht_key_value_set_func ho_key_value_set_func;
    ht_key_value_dup_func ho_key_value_dup_func;
    ht_key_value_free_func ho_key_value_free_func;
    tbool ho_insert_fails_duplicates;
};

// Sizes in buckets, and the load factors that move between them: the table grows by
// ht_table_resize_factor when it holds more than ht_table_resize_growth_load_factor nodes
// per bucket, and shrinks when it has more than ht_table_resize_shrink_load_factor buckets
// per node.  The sizes thus run 31, 124, 496, ...
static constexpr uint32 ht_table_size_initial = 31;
static constexpr uint32 ht_table_size_max = 10485760;
static constexpr uint32 ht_table_resize_growth_load_factor = 3;
static constexpr uint32 ht_table_resize_shrink_load_factor = 6;
static constexpr uint32 ht_table_resize_factor = 4;

// The seed of the standard hash functions.
static constexpr uint32 ht_hash_seed = 0x12345678;

// Bob Jenkins's 1996 hash ("lookup2") over bytes, independent of the machine's byte order.
uint32 ht_bjh_hash(const uint8 *k, uint32 length, uint32 initval);

// Keys that are plain bytes (or texts, with -1 as length).
ht_hash_result ht_hash_string_func(const void *key, int32 key_len);
tbool ht_key_equal_string_func(const void *key1, int32 key1_len, const void *key2,
                               int32 key2_len);
// Keys that are tstrings: the text of the string is hashed and compared; the lengths are
// taken from the strings themselves.  A null tstring counts as the empty text.
ht_hash_result ht_hash_tstring_func(const void *key, int32 key_len);
tbool ht_key_equal_tstring_func(const void *key1, int32 key1_len, const void *key2,
                                int32 key2_len);

// The defaults: byte keys, no set, dup or free function, an existing key is replaced.
int ht_default_options(ht_options *ret_options);

// Null options mean the defaults; a null hash or equal function in the options means the
// default one.  On failure *ret_ht is null.
int ht_new(ht_table **ret_ht, const ht_options *options);
// Frees every node (through the free function) and the table, and nulls the pointer.  A
// null table is no error.  Every node is freed even when a free function fails.
int ht_free(ht_table **inout_ht);
// Frees every node and shrinks the bucket array back.
int ht_empty(ht_table *ht);

// Adds a node.  An existing equal key gives lc_err_exists (without a log line) when the
// table refuses duplicates; otherwise the old node, key and value are freed first.  With
// a set function the node holds the copies it makes; without one it holds the caller's
// pointers, and the table's free function (if any) frees them later, so such a caller
// must not insert again the very key or value that the table holds.  On failure the
// table has taken nothing of the caller's (an old entry freed before it stays gone).
int ht_insert(ht_table *ht, void *key, int32 key_len, void *value);

// Any result pointer may be null.  A missing key is no error: *ret_found is false, the key
// null, the length -1 and the value null.  The key and value given back are the stored
// ones, valid until the node is deleted.
int ht_lookup(const ht_table *ht, const void *key, int32 key_len, tbool *ret_found,
              void **ret_key, int32 *ret_key_len, void **ret_value);

// Removes a node, with its key and value, then lets the table shrink.  A missing key is
// no error.
int ht_delete(ht_table *ht, const void *key, int32 key_len);
// The same, without the resize.
int ht_delete_no_resize(ht_table *ht, const void *key, int32 key_len);

// Calls func for each node, bucket by bucket, each chain from its head.  Results of func:
//   0                        go on;
//   lc_err_foreach_delete,
//   lc_err_foreach_remove    refused here, lc_err_assertion_failed;
//   lc_err_foreach_halt_err  stop, the result is that code;
//   lc_err_foreach_halt_ok   stop, the result is 0;
//   anything else            the rest of that chain is skipped and the walk goes on with
//                            the next bucket; the result of the whole walk is that of the
//                            last call, with such codes given as lc_err_generic_error.
// The table must not be changed by func.
int ht_foreach(const ht_table *ht, ht_foreach_func func, void *data);

// The walker under ht_foreach.  With allow_delete, a result of lc_err_foreach_delete
// unlinks the node and frees it with its key and value; with allow_remove,
// lc_err_foreach_remove unlinks and frees the node alone, leaving key and value to the
// caller.  The walk then goes on from the same link.  The table is not resized during the
// walk.
int ht_foreach_internal(ht_table *ht, ht_foreach_func func, void *data, tbool allow_delete,
                        tbool allow_remove);
