// The generic named tree.
#include "tree.h"

#include <cstdlib>
#include <cstring>

#include "logging.h"

// ---------------------------------------------------------------------------------------
// Standard functions.

tbool tree_is_number(const char *name)
{
    if (name == nullptr || *name == '\0') {
        return false;
    }
    for (const char *p = name; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') {
            return false;
        }
    }
    return true;
}

int tree_std_node_compare_func(const char *name_a, const void *value_a, const char *name_b,
                               const void *value_b)
{
    (void)value_a;
    (void)value_b;
    if (tree_is_number(name_a) && tree_is_number(name_b)) {
        // Compare by value without converting: skip leading zeros, then the longer run of
        // digits is the greater number, and equal lengths compare as text.
        const char *a = name_a;
        const char *b = name_b;
        while (*a == '0' && a[1] != '\0') {
            ++a;
        }
        while (*b == '0' && b[1] != '\0') {
            ++b;
        }
        const size_t len_a = strlen(a);
        const size_t len_b = strlen(b);
        if (len_a != len_b) {
            return len_a < len_b ? -1 : 1;
        }
        const int cmp = strcmp(a, b);
        if (cmp != 0) {
            return cmp;
        }
    }
    return safe_strcmp(name_a, name_b);
}

void tree_std_value_free_func(void *value)
{
    free(value);
}

int tree_std_path_escape_func(const tstr_array *path, tbool is_absolute, char **ret_path)
{
    int err = 0;
    tstring *joined = nullptr;

    bail_null(ret_path);
    *ret_path = nullptr;
    err = ts_join_tokens(path, '/', '\\', 0, is_absolute ? ttj_ensure_leading_separator : ttj_none,
                         &joined);
    bail_error(err);
    err = ts_detach(&joined, ret_path, nullptr);
    bail_error(err);

bail:
    ts_free(&joined);
    return err;
}

int tree_std_path_unescape_func(const char *path, tstr_array **ret_path, tbool *ret_is_absolute)
{
    int err = 0;

    bail_null(path);
    bail_null(ret_path);
    *ret_path = nullptr;
    if (ret_is_absolute != nullptr) {
        *ret_is_absolute = (path[0] == '/');
    }
    err = ts_tokenize_str(path, '/', '\\', 0,
                          ttf_ignore_leading_separator | ttf_ignore_trailing_separator, ret_path);
    bail_error(err);
    // The empty path and "/" name the root: no parts.
    if (tstr_array_length_quick(*ret_path) == 1 &&
        tstr_array_get_str_quick(*ret_path, 0)[0] == '\0') {
        err = tstr_array_empty(*ret_path);
        bail_error(err);
    }

bail:
    return err;
}

int tree_options_get_defaults(tree_options *ret_options)
{
    int err = 0;

    bail_null(ret_options);
    *ret_options = tree_options{};
    ret_options->to_node_compare_func = tree_std_node_compare_func;
    ret_options->to_value_dup_func = nullptr;
    ret_options->to_value_set_func = nullptr;
    ret_options->to_value_free_func = tree_std_value_free_func;
    ret_options->to_path_escape_func = tree_std_path_escape_func;
    ret_options->to_path_unescape_func = tree_std_path_unescape_func;
    ret_options->to_dup_policy = adp_fail_new;
    ret_options->to_parent_cache_enabled = true;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Nodes.

namespace {

uint32 tree_num_children(const tree_node *node)
{
    return node->tn_children == nullptr ? 0 : array_length_quick(node->tn_children);
}

// Releases a node, its subtree and (unless keep_value) its value.  The node must already
// be out of its parent's children.
void tree_node_free_internal(tree_node *node, tbool keep_value)
{
    if (node == nullptr) {
        return;
    }
    if (node->tn_children != nullptr) {
        // The children array owns its nodes and frees them through
        // tree_node_free_for_array.
        array_free(&node->tn_children);
    }
    if (!keep_value && node->tn_value != nullptr && node->tn_tree != nullptr &&
        node->tn_tree->tr_value_free_func != nullptr) {
        node->tn_tree->tr_value_free_func(node->tn_value);
    }
    node->tn_value = nullptr;
    free(node->tn_name);
    free(node);
}

void tree_node_free_for_array(void *elem)
{
    tree_node_free_internal(static_cast<tree_node *>(elem), false);
}

int tree_node_compare_for_array(const void *elem1_ptr, const void *elem2_ptr)
{
    const tree_node *a = *static_cast<tree_node *const *>(elem1_ptr);
    const tree_node *b = *static_cast<tree_node *const *>(elem2_ptr);
    return a->tn_tree->tr_node_compare_func(a->tn_name, a->tn_value, b->tn_name, b->tn_value);
}

// Stores a value in a node's slot by the tree's rules (see tree.h).
int tree_node_store_value(tree *tr, tree_node *node, const void *value)
{
    int err = 0;
    void *copy = nullptr;

    if (tr->tr_value_set_func != nullptr) {
        err = tr->tr_value_set_func(value, &node->tn_value);
        bail_error(err);
    } else if (tr->tr_value_dup_func != nullptr) {
        if (value != nullptr) {
            err = tr->tr_value_dup_func(value, &copy);
            bail_error(err);
        }
        if (node->tn_value != nullptr && tr->tr_value_free_func != nullptr) {
            tr->tr_value_free_func(node->tn_value);
        }
        node->tn_value = copy;
        copy = nullptr;
    } else {
        if (node->tn_value != nullptr && node->tn_value != value &&
            tr->tr_value_free_func != nullptr) {
            tr->tr_value_free_func(node->tn_value);
        }
        node->tn_value = const_cast<void *>(value);
    }

bail:
    return err;
}

int tree_node_make(tree *tr, const char *name, tree_node **ret_node)
{
    int err = 0;
    tree_node *node = nullptr;

    bail_null(ret_node);
    *ret_node = nullptr;
    bail_null(name);
    node = static_cast<tree_node *>(lc_zalloc(sizeof(tree_node)));
    bail_null(node);
    node->tn_tree = tr;
    node->tn_name = safe_strdup(name);
    bail_null(node->tn_name);
    *ret_node = node;
    node = nullptr;

bail:
    if (node != nullptr) {
        free(node->tn_name);
        free(node);
    }
    return err;
}

int tree_node_ensure_children(tree_node *parent)
{
    int err = 0;
    array_options opts{};

    if (parent->tn_children != nullptr) {
        goto bail;
    }
    err = array_options_get_defaults(&opts);
    bail_error(err);
    opts.ao_elem_compare_func = tree_node_compare_for_array;
    opts.ao_elem_dup_func = nullptr;
    opts.ao_elem_free_func = tree_node_free_for_array;
    opts.ao_dup_policy = adp_add_new;
    opts.ao_enforce_sorting_constraints = false;
    err = array_new(&parent->tn_children, &opts);
    bail_error(err);

bail:
    return err;
}

// Lowest index among the children of a node whose name compares equal to name, or the
// index where such a child would go.
uint32 tree_node_lower_bound(const tree *tr, const tree_node *parent, const char *name,
                             tbool *ret_found)
{
    uint32 lo = 0;
    uint32 hi = tree_num_children(parent);
    *ret_found = false;
    while (lo < hi) {
        const uint32 mid = lo + (hi - lo) / 2;
        const tree_node *child =
            static_cast<const tree_node *>(array_get_quick(parent->tn_children, mid));
        const int cmp = tr->tr_node_compare_func(child->tn_name, child->tn_value, name, nullptr);
        if (cmp < 0) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    if (lo < tree_num_children(parent)) {
        const tree_node *child =
            static_cast<const tree_node *>(array_get_quick(parent->tn_children, lo));
        *ret_found =
            tr->tr_node_compare_func(child->tn_name, child->tn_value, name, nullptr) == 0;
    }
    return lo;
}

tree_node *tree_node_find_child(const tree *tr, const tree_node *parent, const char *name)
{
    tbool found = false;
    if (parent->tn_children == nullptr || name == nullptr) {
        return nullptr;
    }
    const uint32 idx = tree_node_lower_bound(tr, parent, name, &found);
    return found ? static_cast<tree_node *>(array_get_quick(parent->tn_children, idx)) : nullptr;
}

int tree_node_index_in_parent(const tree_node *node, uint32 *ret_idx)
{
    int err = 0;
    const tree_node *parent = node->tn_parent;
    uint32 num = 0;

    bail_null(parent);
    num = tree_num_children(parent);
    for (uint32 i = 0; i < num; ++i) {
        if (array_get_quick(parent->tn_children, i) == node) {
            *ret_idx = i;
            goto bail;
        }
    }
    bail_force(lc_err_not_found);

bail:
    return err;
}

tbool tree_node_belongs(const tree *tr, const tree_node *node)
{
    const tree_node *top = node;
    if (node == nullptr || node->tn_tree != tr) {
        return false;
    }
    while (top->tn_parent != nullptr) {
        top = top->tn_parent;
    }
    return top == tr->tr_root;
}

// Takes a detached node into a parent's children by the duplicate policy.
int tree_node_attach(tree *tr, tree_node *parent, tree_node **inout_child, tree_node **ret_child,
                     tbool *ret_dropped)
{
    int err = 0;
    tree_node *child = *inout_child;
    tree_node *old = nullptr;
    void *elem = nullptr;
    tbool found = false;
    uint32 idx = 0;

    if (ret_dropped != nullptr) {
        *ret_dropped = false;
    }
    err = tree_node_ensure_children(parent);
    bail_error(err);
    idx = tree_node_lower_bound(tr, parent, child->tn_name, &found);
    if (found) {
        switch (tr->tr_dup_policy) {
        case adp_fail_new:
            err = lc_err_exists;
            goto bail;
        case adp_delete_new:
            tree_node_free_internal(child, false);
            *inout_child = nullptr;
            if (ret_dropped != nullptr) {
                *ret_dropped = true;
            }
            if (ret_child != nullptr) {
                *ret_child = static_cast<tree_node *>(array_get_quick(parent->tn_children, idx));
            }
            goto bail;
        case adp_delete_old:
            err = array_remove(parent->tn_children, idx, &elem);
            bail_error(err);
            old = static_cast<tree_node *>(elem);
            old->tn_parent = nullptr;
            tree_node_free_internal(old, false);
            tree_parent_cache_invalidate(tr);
            break;
        default:
            // Added after its equals.
            while (idx < tree_num_children(parent)) {
                const tree_node *sib =
                    static_cast<const tree_node *>(array_get_quick(parent->tn_children, idx));
                if (tr->tr_node_compare_func(sib->tn_name, sib->tn_value, child->tn_name,
                                             nullptr) != 0) {
                    break;
                }
                ++idx;
            }
            break;
        }
    }
    elem = child;
    err = array_insert_takeover(parent->tn_children, idx, &elem);
    bail_error(err);
    child->tn_parent = parent;
    *inout_child = nullptr;
    if (ret_child != nullptr) {
        *ret_child = child;
    }

bail:
    return err;
}

} // namespace

int tree_node_new(tree *tr, const char *name, const void *value, tree_node **ret_node)
{
    int err = 0;
    tree_node *node = nullptr;

    bail_null(tr);
    bail_null(ret_node);
    *ret_node = nullptr;
    err = tree_node_make(tr, name, &node);
    bail_error(err);
    err = tree_node_store_value(tr, node, value);
    bail_error(err);
    *ret_node = node;
    node = nullptr;

bail:
    tree_node_free_internal(node, true);
    return err;
}

int tree_node_free(tree_node **inout_node)
{
    int err = 0;

    bail_null(inout_node);
    if (*inout_node == nullptr) {
        goto bail;
    }
    // A node in a tree is deleted with tree_node_delete.
    bail_require((*inout_node)->tn_parent == nullptr);
    bail_require((*inout_node)->tn_tree == nullptr ||
                 (*inout_node)->tn_tree->tr_root != *inout_node);
    tree_node_free_internal(*inout_node, false);
    *inout_node = nullptr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The tree.

int tree_new(tree **ret_tree, const tree_options *opts)
{
    int err = 0;
    tree *tr = nullptr;
    tree_options defaults{};

    bail_null(ret_tree);
    *ret_tree = nullptr;
    if (opts == nullptr) {
        err = tree_options_get_defaults(&defaults);
        bail_error(err);
        opts = &defaults;
    }
    bail_null(opts->to_node_compare_func);
    tr = static_cast<tree *>(lc_zalloc(sizeof(tree)));
    bail_null(tr);
    tr->tr_node_compare_func = opts->to_node_compare_func;
    tr->tr_value_dup_func = opts->to_value_dup_func;
    tr->tr_value_set_func = opts->to_value_set_func;
    tr->tr_value_free_func = opts->to_value_free_func;
    tr->tr_path_escape_func = opts->to_path_escape_func;
    tr->tr_path_unescape_func = opts->to_path_unescape_func;
    tr->tr_dup_policy = opts->to_dup_policy;
    tr->tr_parent_cache_enabled = opts->to_parent_cache_enabled;
    err = tree_node_make(tr, "", &tr->tr_root);
    bail_error(err);
    *ret_tree = tr;
    tr = nullptr;

bail:
    tree_free(&tr);
    return err;
}

int tree_free(tree **inout_tree)
{
    int err = 0;
    tree *tr = nullptr;

    bail_null(inout_tree);
    tr = *inout_tree;
    if (tr == nullptr) {
        goto bail;
    }
    tree_node_free_internal(tr->tr_root, false);
    tr->tr_root = nullptr;
    tstr_array_free(&tr->tr_parent_cache_path);
    free(tr);
    *inout_tree = nullptr;

bail:
    return err;
}

int tree_empty(tree *tr)
{
    int err = 0;

    bail_null(tr);
    bail_null(tr->tr_root);
    tree_parent_cache_invalidate(tr);
    if (tr->tr_root->tn_children != nullptr) {
        array_free(&tr->tr_root->tn_children);
    }
    if (tr->tr_root->tn_value != nullptr && tr->tr_value_free_func != nullptr) {
        tr->tr_value_free_func(tr->tr_root->tn_value);
    }
    tr->tr_root->tn_value = nullptr;

bail:
    return err;
}

int tree_parent_cache_invalidate(tree *tr)
{
    int err = 0;

    bail_null(tr);
    tstr_array_free(&tr->tr_parent_cache_path);
    tr->tr_parent_cache_node = nullptr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

int tree_node_get_child_by_name(const tree *tr, const tree_node *parent, const char *name,
                                tree_node **ret_child)
{
    int err = 0;

    bail_null(ret_child);
    *ret_child = nullptr;
    bail_null(tr);
    bail_null(name);
    if (parent == nullptr) {
        parent = tr->tr_root;
    }
    bail_require(parent->tn_tree == tr);
    *ret_child = tree_node_find_child(tr, parent, name);
    if (*ret_child == nullptr) {
        err = lc_err_not_found;
    }

bail:
    return err;
}

int tree_node_get_value(const tree *tr, const tree_node *node, void **ret_value)
{
    int err = 0;

    bail_null(ret_value);
    *ret_value = nullptr;
    bail_null(tr);
    if (node == nullptr) {
        node = tr->tr_root;
    }
    bail_require(node->tn_tree == tr);
    *ret_value = node->tn_value;

bail:
    return err;
}

int tree_node_get_num_children(const tree *tr, const tree_node *node, uint32 *ret_num_children)
{
    int err = 0;

    bail_null(ret_num_children);
    *ret_num_children = 0;
    bail_null(tr);
    if (node == nullptr) {
        node = tr->tr_root;
    }
    bail_require(node->tn_tree == tr);
    *ret_num_children = tree_num_children(node);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Adding.

int tree_node_insert_child_node(tree *tr, tree_node *parent, tree_node **inout_child,
                                tree_node **ret_child)
{
    int err = 0;

    if (ret_child != nullptr) {
        *ret_child = nullptr;
    }
    bail_null(tr);
    bail_null(inout_child);
    bail_null(*inout_child);
    if (parent == nullptr) {
        parent = tr->tr_root;
    }
    bail_require(tree_node_belongs(tr, parent));
    bail_require((*inout_child)->tn_tree == tr);
    bail_require((*inout_child)->tn_parent == nullptr && *inout_child != tr->tr_root);
    err = tree_node_attach(tr, parent, inout_child, ret_child, nullptr);
    if (err == lc_err_exists) {
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

int tree_node_insert_child(tree *tr, tree_node *parent, const char *name, const void *value,
                           tree_node **ret_child)
{
    int err = 0;
    tree_node *node = nullptr;
    tree_node *placed = nullptr;
    tbool dropped = false;

    if (ret_child != nullptr) {
        *ret_child = nullptr;
    }
    bail_null(tr);
    bail_null(name);
    if (parent == nullptr) {
        parent = tr->tr_root;
    }
    bail_require(tree_node_belongs(tr, parent));
    err = tree_node_make(tr, name, &node);
    bail_error(err);
    err = tree_node_attach(tr, parent, &node, &placed, &dropped);
    if (err == lc_err_exists) {
        goto bail;
    }
    bail_error(err);
    // The value is stored once the node is in place, so that a refused insert leaves the
    // caller's value alone.  A new node dropped for an old one takes its value with it.
    if (!dropped) {
        err = tree_node_store_value(tr, placed, value);
        bail_error(err);
    } else if (tr->tr_value_set_func == nullptr && tr->tr_value_dup_func == nullptr &&
               value != nullptr && value != placed->tn_value &&
               tr->tr_value_free_func != nullptr) {
        // Without a copy the tree took the value over, so dropping it releases it.
        tr->tr_value_free_func(const_cast<void *>(value));
    }
    if (ret_child != nullptr) {
        *ret_child = placed;
    }

bail:
    // Still set only when the node never got into the tree.
    tree_node_free_internal(node, true);
    return err;
}

int tree_node_insert_child_ts(tree *tr, tree_node *parent, const tstring *name,
                              const void *value, tree_node **ret_child)
{
    int err = 0;

    if (ret_child != nullptr) {
        *ret_child = nullptr;
    }
    bail_null(name);
    err = tree_node_insert_child(tr, parent, ts_str(name), value, ret_child);
    if (err == lc_err_exists) {
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

int tree_node_set_value(tree *tr, tree_node *node, const void *value)
{
    int err = 0;

    bail_null(tr);
    bail_null(node);
    bail_require(node->tn_tree == tr);
    err = tree_node_store_value(tr, node, value);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Removing.

int tree_node_remove(tree *tr, tree_node *node, void **ret_value, tbool delete_children,
                     tree_context_handle context)
{
    int err = 0;
    void *elem = nullptr;
    uint32 idx = 0;

    (void)context;
    if (ret_value != nullptr) {
        *ret_value = nullptr;
    }
    bail_null(tr);
    bail_null(node);
    bail_require(node != tr->tr_root);
    bail_require(tree_node_belongs(tr, node));
    if (tree_num_children(node) > 0 && !delete_children) {
        err = lc_err_has_children;
        goto bail;
    }
    err = tree_node_index_in_parent(node, &idx);
    bail_error(err);
    tree_parent_cache_invalidate(tr);
    err = array_remove(node->tn_parent->tn_children, idx, &elem);
    bail_error(err);
    node->tn_parent = nullptr;
    if (ret_value != nullptr) {
        *ret_value = node->tn_value;
        node->tn_value = nullptr;
    }
    tree_node_free_internal(node, false);

bail:
    return err;
}

int tree_node_delete(tree *tr, tree_node *node, tbool delete_children,
                     tree_context_handle context)
{
    int err = 0;

    err = tree_node_remove(tr, node, nullptr, delete_children, context);
    if (err == lc_err_has_children) {
        goto bail;
    }
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Paths.

int tree_node_get_path(const tree *tr, const tree_node *base_node, const tree_node *node,
                       tstr_array **ret_path)
{
    int err = 0;
    tstr_array *path = nullptr;
    const tree_node *cur = nullptr;
    uint32 depth = 0;

    bail_null(ret_path);
    *ret_path = nullptr;
    bail_null(tr);
    bail_null(node);
    bail_require(node->tn_tree == tr);
    if (base_node == nullptr) {
        base_node = tr->tr_root;
    }
    for (cur = node; cur != nullptr && cur != base_node; cur = cur->tn_parent) {
        ++depth;
    }
    if (cur == nullptr) {
        bail_force(lc_err_not_an_ancestor);
    }
    err = tstr_array_new_size(&path, depth > 0 ? depth : 1);
    bail_error(err);
    for (uint32 i = 0; i < depth; ++i) {
        err = tstr_array_append_str(path, "");
        bail_error(err);
    }
    cur = node;
    for (uint32 i = depth; i > 0; --i, cur = cur->tn_parent) {
        tstring *ts = nullptr;
        err = ts_new_str(&ts, cur->tn_name);
        bail_error(err);
        err = tstr_array_set_takeover(path, i - 1, &ts);
        ts_free(&ts);
        bail_error(err);
    }
    *ret_path = path;
    path = nullptr;

bail:
    tstr_array_free(&path);
    return err;
}

int tree_node_get_path_str(const tree *tr, const tree_node *base_node, const tree_node *node,
                           char **ret_path)
{
    int err = 0;
    tstr_array *path = nullptr;

    bail_null(ret_path);
    *ret_path = nullptr;
    bail_null(tr);
    bail_null(tr->tr_path_escape_func);
    err = tree_node_get_path(tr, base_node, node, &path);
    bail_error(err);
    err = tr->tr_path_escape_func(path, base_node == nullptr || base_node == tr->tr_root,
                                  ret_path);
    bail_error(err);

bail:
    tstr_array_free(&path);
    return err;
}

int tree_get_node_by_path_wildcarded(const tree *tr, const tree_node *start_node,
                                     const tstr_array *path, const char *wildcard,
                                     tree_node **ret_node)
{
    int err = 0;
    const tree_node *cur = nullptr;
    uint32 num_parts = 0;

    bail_null(ret_node);
    *ret_node = nullptr;
    bail_null(tr);
    if (start_node == nullptr) {
        start_node = tr->tr_root;
    }
    bail_require(tree_node_belongs(tr, start_node));
    cur = start_node;
    num_parts = tstr_array_length_quick(path);
    for (uint32 i = 0; i < num_parts; ++i) {
        const tree_node *next = tree_node_find_child(tr, cur, tstr_array_get_str_quick(path, i));
        if (next == nullptr && wildcard != nullptr) {
            next = tree_node_find_child(tr, cur, wildcard);
        }
        if (next == nullptr) {
            err = lc_err_not_found;
            goto bail;
        }
        cur = next;
    }
    *ret_node = const_cast<tree_node *>(cur);

bail:
    return err;
}

int tree_get_node_by_path(const tree *tr, const tree_node *start_node, const tstr_array *path,
                          tree_node **ret_node)
{
    return tree_get_node_by_path_wildcarded(tr, start_node, path, nullptr, ret_node);
}

int tree_ensure_path(tree *tr, tree_node *base_node, const tstr_array *path,
                     tbool create_path, tree_node **ret_parent, uint32 *ret_parent_depth)
{
    int err = 0;
    tree_node *cur = nullptr;
    uint32 num_parts = 0;
    int cmp = 1;
    tbool use_cache = false;

    if (ret_parent != nullptr) {
        *ret_parent = nullptr;
    }
    if (ret_parent_depth != nullptr) {
        *ret_parent_depth = 0;
    }
    bail_null(tr);
    num_parts = tstr_array_length_quick(path);
    if (num_parts == 0) {
        bail_force(lc_err_bad_path);
    }
    if (base_node == nullptr) {
        base_node = tr->tr_root;
    }
    bail_require(tree_node_belongs(tr, base_node));
    // The cache holds paths from the root only.
    use_cache = tr->tr_parent_cache_enabled && base_node == tr->tr_root;

    if (use_cache && tr->tr_parent_cache_node != nullptr) {
        err = tstr_array_compare_ex(path, tr->tr_parent_cache_path,
                                    static_cast<int32>(num_parts - 1), -1, false, &cmp);
        bail_error(err);
        if (cmp == 0) {
            cur = tr->tr_parent_cache_node;
            goto found;
        }
    }

    cur = base_node;
    for (uint32 i = 0; i + 1 < num_parts; ++i) {
        const char *name = tstr_array_get_str_quick(path, i);
        tree_node *next = tree_node_find_child(tr, cur, name);
        if (next == nullptr) {
            if (!create_path) {
                err = lc_err_no_path;
                goto bail;
            }
            err = tree_node_insert_child(tr, cur, name, nullptr, &next);
            bail_error(err);
        }
        cur = next;
    }
    if (use_cache) {
        tree_parent_cache_invalidate(tr);
        err = tstr_array_new_size(&tr->tr_parent_cache_path, num_parts);
        bail_error(err);
        for (uint32 i = 0; i + 1 < num_parts; ++i) {
            err = tstr_array_append_str(tr->tr_parent_cache_path,
                                        tstr_array_get_str_quick(path, i));
            bail_error(err);
        }
        tr->tr_parent_cache_node = cur;
    }

found:
    if (ret_parent != nullptr) {
        *ret_parent = cur;
    }
    if (ret_parent_depth != nullptr) {
        *ret_parent_depth = num_parts - 1;
    }

bail:
    if (err != 0 && err != lc_err_no_path && tr != nullptr && use_cache) {
        tree_parent_cache_invalidate(tr);
    }
    return err;
}

int tree_set_node_value_by_path(tree *tr, tree_node *base_node, const tstr_array *path,
                                const void *value, tbool create_path, tree_node **ret_node)
{
    int err = 0;
    tree_node *parent = nullptr;
    tree_node *node = nullptr;
    uint32 num_parts = 0;
    const char *last = nullptr;

    if (ret_node != nullptr) {
        *ret_node = nullptr;
    }
    bail_null(tr);
    if (base_node == nullptr) {
        base_node = tr->tr_root;
    }
    num_parts = tstr_array_length_quick(path);
    if (num_parts == 0) {
        bail_require(tree_node_belongs(tr, base_node));
        node = base_node;
    } else {
        err = tree_ensure_path(tr, base_node, path, create_path, &parent, nullptr);
        if (err == lc_err_no_path) {
            goto bail;
        }
        bail_error(err);
        last = tstr_array_get_str_quick(path, num_parts - 1);
        node = tree_node_find_child(tr, parent, last);
        if (node == nullptr) {
            err = tree_node_insert_child(tr, parent, last, value, &node);
            bail_error(err);
            goto done;
        }
    }
    err = tree_node_store_value(tr, node, value);
    bail_error(err);

done:
    if (ret_node != nullptr) {
        *ret_node = node;
    }

bail:
    return err;
}

int tree_set_node_value_by_path_str(tree *tr, tree_node *base_node, const char *path,
                                    const void *value, tbool create_path,
                                    tree_node **ret_node)
{
    int err = 0;
    tstr_array *parts = nullptr;

    if (ret_node != nullptr) {
        *ret_node = nullptr;
    }
    bail_null(tr);
    bail_null(path);
    bail_null(tr->tr_path_unescape_func);
    err = tr->tr_path_unescape_func(path, &parts, nullptr);
    bail_error(err);
    err = tree_set_node_value_by_path(tr, base_node, parts, value, create_path, ret_node);
    if (err == lc_err_no_path) {
        goto bail;
    }
    bail_error(err);

bail:
    tstr_array_free(&parts);
    return err;
}

// ---------------------------------------------------------------------------------------
// Walking.

namespace {

// Walks the children of node; abspath holds the names from the root to node.  Gives 0,
// lc_err_foreach_halt_ok to stop quietly, or an error.
int tree_foreach_internal(tree *tr, tree_node *node, tstr_array *abspath, int32 depth_left,
                          tree_foreach_func func, void *data, tree_context_handle context)
{
    int err = 0;
    uint32 idx = 0;
    tstring *part = nullptr;

    if (depth_left == 0 || node->tn_children == nullptr) {
        goto bail;
    }
    while (idx < tree_num_children(node)) {
        tree_node *child = static_cast<tree_node *>(array_get_quick(node->tn_children, idx));
        void *elem = nullptr;
        int ret = 0;
        err = ts_new_str(&part, child->tn_name);
        bail_error(err);
        err = tstr_array_append_takeover(abspath, &part);
        bail_error(err);
        ret = func(tr, child, child->tn_name, abspath, child->tn_value, data, context);
        if (ret == 0) {
            err = tree_foreach_internal(tr, child, abspath, depth_left < 0 ? -1 : depth_left - 1,
                                        func, data, context);
            tstr_array_delete(abspath, tstr_array_length_quick(abspath) - 1);
            if (err != 0) {
                goto bail;
            }
            ++idx;
            continue;
        }
        tstr_array_delete(abspath, tstr_array_length_quick(abspath) - 1);
        if (ret == lc_err_foreach_delete || ret == lc_err_foreach_remove) {
            tree_parent_cache_invalidate(tr);
            err = array_remove(node->tn_children, idx, &elem);
            bail_error(err);
            child->tn_parent = nullptr;
            tree_node_free_internal(child, ret == lc_err_foreach_remove);
            continue;
        }
        if (ret == lc_err_foreach_halt_ok || ret == lc_err_foreach_halt_err) {
            err = ret;
            goto bail;
        }
        err = ret;
        bail_error(err);
    }

bail:
    ts_free(&part);
    return err;
}

} // namespace

int tree_foreach(tree *tr, tree_node *start_node, int32 max_depth, tree_foreach_func func,
                 void *data, tree_context_handle context)
{
    int err = 0;
    tstr_array *abspath = nullptr;

    bail_null(tr);
    bail_null(func);
    if (start_node == nullptr) {
        start_node = tr->tr_root;
    }
    bail_require(tree_node_belongs(tr, start_node));
    err = tree_node_get_path(tr, nullptr, start_node, &abspath);
    bail_error(err);
    err = tree_foreach_internal(tr, start_node, abspath, max_depth < 0 ? -1 : max_depth, func,
                                data, context);
    if (err == lc_err_foreach_halt_ok) {
        err = 0;
    } else if (err == lc_err_foreach_halt_err) {
        goto bail;
    } else {
        bail_error(err);
    }

bail:
    tstr_array_free(&abspath);
    return err;
}
