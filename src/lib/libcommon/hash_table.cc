// The chained hash table: buckets of singly linked nodes, grown and shrunk by load factor.
#include "hash_table.h"

#include <cstdlib>
#include <cstring>

#include "logging.h"
#include "tstring.h"

// ---------------------------------------------------------------------------------------
// Hashing

#define HT_BJH_MIX(a, b, c)  \
    do {                     \
        a -= b;              \
        a -= c;              \
        a ^= (c >> 13);      \
        b -= c;              \
        b -= a;              \
        b ^= (a << 8);       \
        c -= a;              \
        c -= b;              \
        c ^= (b >> 13);      \
        a -= b;              \
        a -= c;              \
        a ^= (c >> 12);      \
        b -= c;              \
        b -= a;              \
        b ^= (a << 16);      \
        c -= a;              \
        c -= b;              \
        c ^= (b >> 5);       \
        a -= b;              \
        a -= c;              \
        a ^= (c >> 3);       \
        b -= c;              \
        b -= a;              \
        b ^= (a << 10);      \
        c -= a;              \
        c -= b;              \
        c ^= (b >> 15);      \
    } while (0)

static inline uint32 ht_bjh_word(const uint8 *p)
{
    return static_cast<uint32>(p[0]) | (static_cast<uint32>(p[1]) << 8) |
           (static_cast<uint32>(p[2]) << 16) | (static_cast<uint32>(p[3]) << 24);
}

uint32 ht_bjh_hash(const uint8 *k, uint32 length, uint32 initval)
{
    uint32 a = 0x9e3779b9;
    uint32 b = 0x9e3779b9;
    uint32 c = initval;
    uint32 len = length;

    while (len >= 12) {
        a += ht_bjh_word(k);
        b += ht_bjh_word(k + 4);
        c += ht_bjh_word(k + 8);
        HT_BJH_MIX(a, b, c);
        k += 12;
        len -= 12;
    }

    // The lowest byte of c is left for the length.
    c += length;
    switch (len) {
    case 11:
        c += static_cast<uint32>(k[10]) << 24;
        [[fallthrough]];
    case 10:
        c += static_cast<uint32>(k[9]) << 16;
        [[fallthrough]];
    case 9:
        c += static_cast<uint32>(k[8]) << 8;
        [[fallthrough]];
    case 8:
        b += static_cast<uint32>(k[7]) << 24;
        [[fallthrough]];
    case 7:
        b += static_cast<uint32>(k[6]) << 16;
        [[fallthrough]];
    case 6:
        b += static_cast<uint32>(k[5]) << 8;
        [[fallthrough]];
    case 5:
        b += k[4];
        [[fallthrough]];
    case 4:
        a += static_cast<uint32>(k[3]) << 24;
        [[fallthrough]];
    case 3:
        a += static_cast<uint32>(k[2]) << 16;
        [[fallthrough]];
    case 2:
        a += static_cast<uint32>(k[1]) << 8;
        [[fallthrough]];
    case 1:
        a += k[0];
        break;
    default:
        break;
    }
    HT_BJH_MIX(a, b, c);
    return c;
}

ht_hash_result ht_hash_string_func(const void *key, int32 key_len)
{
    if (key == nullptr || key_len <= 0) {
        return ht_bjh_hash(nullptr, 0, ht_hash_seed);
    }
    return ht_bjh_hash(static_cast<const uint8 *>(key), static_cast<uint32>(key_len),
                       ht_hash_seed);
}

tbool ht_key_equal_string_func(const void *key1, int32 key1_len, const void *key2,
                               int32 key2_len)
{
    if (key1_len != key2_len) {
        return false;
    }
    if (key1_len <= 0 || key1 == key2) {
        return true;
    }
    if (key1 == nullptr || key2 == nullptr) {
        return false;
    }
    return memcmp(key1, key2, static_cast<size_t>(key1_len)) == 0;
}

// The text and length of a tstring key; a null string is the empty text.
static inline void ht_tstring_text(const void *key, const char **ret_text, uint32 *ret_len)
{
    const tstring *ts = static_cast<const tstring *>(key);
    if (ts == nullptr || ts->ts_str == nullptr) {
        *ret_text = "";
        *ret_len = 0;
        return;
    }
    *ret_text = ts->ts_str;
    *ret_len = ts->ts_length;
}

ht_hash_result ht_hash_tstring_func(const void *key, int32 key_len)
{
    (void)key_len;
    const char *text = nullptr;
    uint32 len = 0;
    ht_tstring_text(key, &text, &len);
    return ht_bjh_hash(reinterpret_cast<const uint8 *>(text), len, ht_hash_seed);
}

tbool ht_key_equal_tstring_func(const void *key1, int32 key1_len, const void *key2,
                                int32 key2_len)
{
    (void)key1_len;
    (void)key2_len;
    const char *text1 = nullptr;
    const char *text2 = nullptr;
    uint32 len1 = 0;
    uint32 len2 = 0;
    ht_tstring_text(key1, &text1, &len1);
    ht_tstring_text(key2, &text2, &len2);
    if (len1 != len2) {
        return false;
    }
    return len1 == 0 || memcmp(text1, text2, len1) == 0;
}

// ---------------------------------------------------------------------------------------
// Internals

// Turns a length of -1 into the key's strlen; refuses other negative lengths.
static int ht_resolve_key_len(const void *key, int32 key_len, int32 *ret_key_len)
{
    int err = 0;
    if (key_len == -1) {
        bail_null(key);
        *ret_key_len = static_cast<int32>(strlen(static_cast<const char *>(key)));
    } else {
        bail_require(key_len >= 0);
        *ret_key_len = key_len;
    }
bail:
    return err;
}

static inline uint32 ht_bucket_of(const ht_table *ht, const void *key, int32 key_len)
{
    return static_cast<uint32>(ht->ht_hash_func(key, key_len) % ht->ht_num_buckets);
}

// The link that points to the node of the key, or, when there is none, the null link at
// the end of the key's chain.
static ht_node **ht_find_link(const ht_table *ht, const void *key, int32 key_len)
{
    ht_node **link = &ht->ht_nodes[ht_bucket_of(ht, key, key_len)];
    while (*link != nullptr) {
        if (ht->ht_key_equal_func((*link)->hn_key, (*link)->hn_key_len, key, key_len)) {
            break;
        }
        link = &(*link)->hn_next;
    }
    return link;
}

// Unlinks the node at *link and frees it, with its key and value when free_contents is
// set.  The link then points to the node that followed.
static int ht_unlink_node(ht_table *ht, ht_node **link, tbool free_contents)
{
    int err = 0;
    ht_node *node = *link;
    void *key = node->hn_key;
    void *value = node->hn_value;
    const int32 key_len = node->hn_key_len;
    int free_err = 0;

    *link = node->hn_next;
    free(node);
    --ht->ht_num_nodes;

    if (free_contents && ht->ht_key_value_free_func != nullptr) {
        free_err = ht->ht_key_value_free_func(&key, &value, key_len);
        if (free_err != 0) {
            bail_force(lc_err_generic_error);
        }
    }
bail:
    return err;
}

static int ht_table_maybe_resize(ht_table *ht)
{
    int err = 0;
    uint32 new_size = ht->ht_num_buckets;
    const uint64 nodes = ht->ht_num_nodes;
    ht_node **new_nodes = nullptr;

    if (nodes > static_cast<uint64>(ht->ht_num_buckets) * ht_table_resize_growth_load_factor &&
        ht->ht_num_buckets < ht_table_size_max) {
        const uint64 grown = static_cast<uint64>(ht->ht_num_buckets) * ht_table_resize_factor;
        new_size = grown > ht_table_size_max ? ht_table_size_max : static_cast<uint32>(grown);
    } else if (ht->ht_num_buckets > nodes * ht_table_resize_shrink_load_factor &&
               ht->ht_num_buckets > ht_table_size_initial) {
        while (nodes * ht_table_resize_shrink_load_factor < new_size &&
               new_size > ht_table_size_initial) {
            new_size /= ht_table_resize_factor;
        }
        if (new_size < ht_table_size_initial) {
            new_size = ht_table_size_initial;
        }
    }

    if (new_size == ht->ht_num_buckets) {
        goto bail;
    }

    lc_log_basic(LOG_DEBUG, "resize ht from %d to %d", static_cast<int>(ht->ht_num_buckets),
                 static_cast<int>(new_size));

    new_nodes = static_cast<ht_node **>(calloc(new_size, sizeof(ht_node *)));
    bail_null(new_nodes);

    // Each node goes to the head of its new chain, so chains come out reversed.
    for (uint32 i = 0; i < ht->ht_num_buckets; ++i) {
        ht_node *node = ht->ht_nodes[i];
        while (node != nullptr) {
            ht_node *next = node->hn_next;
            const uint32 bucket =
                static_cast<uint32>(ht->ht_hash_func(node->hn_key, node->hn_key_len) % new_size);
            node->hn_next = new_nodes[bucket];
            new_nodes[bucket] = node;
            node = next;
        }
    }
    free(ht->ht_nodes);
    ht->ht_nodes = new_nodes;
    ht->ht_num_buckets = new_size;
    new_nodes = nullptr;

bail:
    free(new_nodes);
    return err;
}

// Frees every node; a free function's failure (already logged) does not stop the others
// and is given back at the end.
static int ht_free_all_nodes(ht_table *ht)
{
    int first_free_err = 0;

    for (uint32 i = 0; i < ht->ht_num_buckets; ++i) {
        while (ht->ht_nodes[i] != nullptr) {
            const int unlink_err = ht_unlink_node(ht, &ht->ht_nodes[i], true);
            if (unlink_err != 0 && first_free_err == 0) {
                first_free_err = unlink_err;
            }
        }
    }
    return first_free_err;
}

// ---------------------------------------------------------------------------------------
// Making and ending

int ht_default_options(ht_options *ret_options)
{
    int err = 0;
    bail_null(ret_options);
    ret_options->ho_hash_func = ht_hash_string_func;
    ret_options->ho_key_equal_func = ht_key_equal_string_func;
    ret_options->ho_key_value_set_func = nullptr;
    ret_options->ho_key_value_dup_func = nullptr;
    ret_options->ho_key_value_free_func = nullptr;
    ret_options->ho_insert_fails_duplicates = false;
bail:
    return err;
}

int ht_new(ht_table **ret_ht, const ht_options *options)
{
    int err = 0;
    ht_table *ht = nullptr;
    ht_options defaults{};

    bail_null(ret_ht);
    *ret_ht = nullptr;

    if (options == nullptr) {
        err = ht_default_options(&defaults);
        bail_error(err);
        options = &defaults;
    }

    ht = static_cast<ht_table *>(calloc(1, sizeof(ht_table)));
    bail_null(ht);
    ht->ht_nodes = static_cast<ht_node **>(calloc(ht_table_size_initial, sizeof(ht_node *)));
    bail_null(ht->ht_nodes);
    ht->ht_num_buckets = ht_table_size_initial;
    ht->ht_num_nodes = 0;
    ht->ht_hash_func =
        options->ho_hash_func != nullptr ? options->ho_hash_func : ht_hash_string_func;
    ht->ht_key_equal_func = options->ho_key_equal_func != nullptr ? options->ho_key_equal_func
                                                                  : ht_key_equal_string_func;
    ht->ht_key_value_set_func = options->ho_key_value_set_func;
    ht->ht_key_value_dup_func = options->ho_key_value_dup_func;
    ht->ht_key_value_free_func = options->ho_key_value_free_func;
    ht->ht_insert_fails_duplicates = options->ho_insert_fails_duplicates;

    *ret_ht = ht;
    ht = nullptr;

bail:
    if (ht != nullptr) {
        free(ht->ht_nodes);
        free(ht);
    }
    return err;
}

int ht_free(ht_table **inout_ht)
{
    int err = 0;
    ht_table *ht = nullptr;

    bail_null(inout_ht);
    ht = *inout_ht;
    if (ht == nullptr) {
        goto bail;
    }
    *inout_ht = nullptr;

    err = ht_free_all_nodes(ht);
    free(ht->ht_nodes);
    free(ht);
    bail_error(err);

bail:
    return err;
}

int ht_empty(ht_table *ht)
{
    int err = 0;
    int free_err = 0;

    bail_null(ht);
    free_err = ht_free_all_nodes(ht);
    err = ht_table_maybe_resize(ht);
    bail_error(err);
    err = free_err;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Nodes

int ht_insert(ht_table *ht, void *key, int32 key_len, void *value)
{
    int err = 0;
    ht_node **link = nullptr;
    ht_node *node = nullptr;

    bail_null(ht);
    err = ht_resolve_key_len(key, key_len, &key_len);
    bail_error(err);

    link = ht_find_link(ht, key, key_len);
    if (*link != nullptr) {
        if (ht->ht_insert_fails_duplicates) {
            // An expected answer for such tables: given back without a log line.
            err = lc_err_exists;
            goto bail;
        }
        err = ht_unlink_node(ht, link, true);
        bail_error(err);
        link = ht_find_link(ht, key, key_len);
    }

    node = static_cast<ht_node *>(calloc(1, sizeof(ht_node)));
    bail_null(node);
    if (ht->ht_key_value_set_func != nullptr) {
        err = ht->ht_key_value_set_func(key, key_len, value, &node->hn_key, &node->hn_key_len,
                                        &node->hn_value);
        bail_error(err);
    } else {
        node->hn_key = key;
        node->hn_key_len = key_len;
        node->hn_value = value;
    }

    *link = node;
    node = nullptr;
    ++ht->ht_num_nodes;

    // The node stays in even when the resize fails.
    err = ht_table_maybe_resize(ht);
    bail_error(err);

bail:
    free(node);
    return err;
}

int ht_lookup(const ht_table *ht, const void *key, int32 key_len, tbool *ret_found,
              void **ret_key, int32 *ret_key_len, void **ret_value)
{
    int err = 0;
    const ht_node *node = nullptr;

    if (ret_found != nullptr) {
        *ret_found = false;
    }
    if (ret_key != nullptr) {
        *ret_key = nullptr;
    }
    if (ret_key_len != nullptr) {
        *ret_key_len = -1;
    }
    if (ret_value != nullptr) {
        *ret_value = nullptr;
    }

    bail_null(ht);
    err = ht_resolve_key_len(key, key_len, &key_len);
    bail_error(err);

    node = *ht_find_link(ht, key, key_len);
    if (node == nullptr) {
        goto bail;
    }
    if (ret_found != nullptr) {
        *ret_found = true;
    }
    if (ret_key != nullptr) {
        *ret_key = node->hn_key;
    }
    if (ret_key_len != nullptr) {
        *ret_key_len = node->hn_key_len;
    }
    if (ret_value != nullptr) {
        *ret_value = node->hn_value;
    }

bail:
    return err;
}

static int ht_delete_internal(ht_table *ht, const void *key, int32 key_len, tbool resize)
{
    int err = 0;
    int free_err = 0;
    ht_node **link = nullptr;

    bail_null(ht);
    err = ht_resolve_key_len(key, key_len, &key_len);
    bail_error(err);

    link = ht_find_link(ht, key, key_len);
    if (*link == nullptr) {
        goto bail;
    }
    // The node is gone even when its free function failed; that failure is given back
    // after the resize.
    free_err = ht_unlink_node(ht, link, true);
    if (resize) {
        err = ht_table_maybe_resize(ht);
        bail_error(err);
    }
    err = free_err;

bail:
    return err;
}

int ht_delete(ht_table *ht, const void *key, int32 key_len)
{
    return ht_delete_internal(ht, key, key_len, true);
}

int ht_delete_no_resize(ht_table *ht, const void *key, int32 key_len)
{
    return ht_delete_internal(ht, key, key_len, false);
}

// ---------------------------------------------------------------------------------------
// Walking

int ht_foreach_internal(ht_table *ht, ht_foreach_func func, void *data, tbool allow_delete,
                        tbool allow_remove)
{
    int err = 0;

    bail_null(ht);
    bail_null(func);

    for (uint32 i = 0; i < ht->ht_num_buckets; ++i) {
        ht_node **link = &ht->ht_nodes[i];
        while (*link != nullptr) {
            ht_node *node = *link;
            err = func(ht, node->hn_key, node->hn_key_len, node->hn_value, data);
            if (err == 0) {
                link = &node->hn_next;
            } else if (err == lc_err_foreach_delete) {
                bail_require(allow_delete);
                err = ht_unlink_node(ht, link, true);
                bail_error(err);
            } else if (err == lc_err_foreach_remove) {
                bail_require(allow_remove);
                err = ht_unlink_node(ht, link, false);
                bail_error(err);
            } else if (err == lc_err_foreach_halt_err) {
                goto bail;
            } else if (err == lc_err_foreach_halt_ok) {
                err = 0;
                goto bail;
            } else {
                // The rest of this chain is skipped; a later call's result replaces this.
                err = lc_err_generic_error;
                break;
            }
        }
    }

bail:
    return err;
}

int ht_foreach(const ht_table *ht, ht_foreach_func func, void *data)
{
    // Neither delete nor remove is allowed, so the table is not changed.
    return ht_foreach_internal(const_cast<ht_table *>(ht), func, data, false, false);
}
