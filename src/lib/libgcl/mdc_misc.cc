// Taking apart the configuration-change event.
#include "mdc_misc.h"

#include <cstring>

#include "bnode_types.h"
#include "logging.h"

namespace {

const char mdc_dbchange_pattern[] = "/mgmtd/notification/dbchange/*";
const uint32 mdc_dbchange_num_parts = 4;

// A copy of the value binding, named by the changed node, appended to arr.
int mdc_append_renamed(bn_binding_array *arr, const bn_binding *value_binding,
                       const char *node_name)
{
    int err = 0;
    bn_binding *copy = nullptr;

    err = bn_binding_dup(value_binding, &copy);
    bail_error(err);
    err = bn_binding_set_name(copy, node_name);
    bail_error(err);
    err = bn_binding_array_append_takeover(arr, &copy);
    bail_error(err);

bail:
    bn_binding_free(&copy);
    return err;
}

// A binding of the deleted node's type that says the node is gone: no value, flags
// btf_deleted and btf_no_value.
int mdc_append_deleted(bn_binding_array *arr, const bn_binding *prev_binding,
                       const char *node_name)
{
    int err = 0;
    bn_type type = bt_NONE;
    bn_attrib *attrib = nullptr;
    bn_binding *binding = nullptr;

    err = bn_binding_get_type(prev_binding, ba_value, &type, nullptr);
    bail_error(err);
    err = bn_binding_new_named(&binding, node_name);
    bail_error(err);
    err = bn_attrib_new(&attrib);
    bail_error(err);
    err = bn_attrib_set_generic(attrib, ba_value, type, btf_deleted | btf_no_value);
    bail_error(err);
    err = bn_binding_set_attrib_takeover(binding, ba_value, &attrib);
    bail_error(err);
    err = bn_binding_array_append_takeover(arr, &binding);
    bail_error(err);

bail:
    bn_attrib_free(&attrib);
    bn_binding_free(&binding);
    return err;
}

} // namespace

int mdc_event_config_change_notif_extract(bn_binding_array *notif_bindings,
                                          bn_binding_array **ret_old_bindings,
                                          bn_binding_array **ret_new_bindings,
                                          tstr_array **ret_unspec_changes)
{
    int err = 0;
    bn_binding_array *old_bindings = nullptr;
    bn_binding_array *new_bindings = nullptr;
    tstr_array *vague_changes = nullptr;
    const bn_binding *binding = nullptr;
    const tstring *bname = nullptr;
    tstr_array *parts = nullptr;
    tbool is_abs = false;
    tstring *change_type = nullptr;
    tstring *node_name = nullptr;
    bn_binding *new_value = nullptr;
    bn_binding *prev_value = nullptr;
    uint32 num_bindings = 0;

    // All outputs are cleared before anything can fail.
    if (ret_old_bindings != nullptr) {
        *ret_old_bindings = nullptr;
    }
    if (ret_new_bindings != nullptr) {
        *ret_new_bindings = nullptr;
    }
    if (ret_unspec_changes != nullptr) {
        *ret_unspec_changes = nullptr;
    }
    if (ret_old_bindings != nullptr) {
        err = bn_binding_array_new(&old_bindings);
        bail_error(err);
    }
    if (ret_new_bindings != nullptr) {
        err = bn_binding_array_new(&new_bindings);
        bail_error(err);
    }
    if (ret_unspec_changes != nullptr) {
        err = tstr_array_new(&vague_changes, nullptr);
        bail_error(err);
    }
    bail_null(notif_bindings);
    err = bn_binding_array_sort(notif_bindings);
    bail_error(err);

    num_bindings = bn_binding_array_length_quick(notif_bindings);
    for (uint32 i = 0; i < num_bindings; ++i) {
        binding = bn_binding_array_get_quick(notif_bindings, i);
        bail_null(binding);
        tstr_array_free(&parts);
        err = bn_binding_get_name(binding, &bname);
        bail_error(err);
        err = bn_binding_name_to_parts(ts_str(bname), &parts, &is_abs);
        bail_error(err);
        if (tstr_array_length_quick(parts) != mdc_dbchange_num_parts ||
            !bn_binding_name_parts_pattern_match(parts, is_abs, mdc_dbchange_pattern)) {
            continue;
        }

        ts_free(&change_type);
        ts_free(&node_name);
        err = bn_binding_array_get_value_tstr_by_name_rel(notif_bindings, ts_str(bname),
                                                          "change_type", nullptr, &change_type);
        bail_error(err);
        bail_null(change_type);
        err = bn_binding_array_get_value_tstr_by_name_rel(notif_bindings, ts_str(bname), "name",
                                                          nullptr, &node_name);
        bail_error(err);
        bail_null(node_name);
        err = bn_binding_array_get_binding_by_name_rel(notif_bindings, ts_str(bname),
                                                       "new_attribs/value", &new_value);
        bail_error(err);
        err = bn_binding_array_get_binding_by_name_rel(notif_bindings, ts_str(bname),
                                                       "prev_attribs/value", &prev_value);
        bail_error(err);

        if (ts_equal_str(change_type, "add", false)) {
            bail_require(prev_value == nullptr);
            bail_null(new_value);
            if (new_bindings != nullptr) {
                err = mdc_append_renamed(new_bindings, new_value, ts_str(node_name));
                bail_error(err);
            }
        } else if (ts_equal_str(change_type, "delete", false)) {
            bail_require(new_value == nullptr);
            bail_null(prev_value);
            if (old_bindings != nullptr) {
                err = mdc_append_renamed(old_bindings, prev_value, ts_str(node_name));
                bail_error(err);
            }
            if (new_bindings != nullptr) {
                err = mdc_append_deleted(new_bindings, prev_value, ts_str(node_name));
                bail_error(err);
            }
        } else if (ts_equal_str(change_type, "modify", false)) {
            if (old_bindings != nullptr && prev_value != nullptr) {
                err = mdc_append_renamed(old_bindings, prev_value, ts_str(node_name));
                bail_error(err);
            }
            if (new_bindings != nullptr && new_value != nullptr) {
                err = mdc_append_renamed(new_bindings, new_value, ts_str(node_name));
                bail_error(err);
            }
        } else if (ts_equal_str(change_type, "unspecified", false)) {
            if (vague_changes != nullptr) {
                err = tstr_array_append_str(vague_changes, ts_str(node_name));
                bail_error(err);
            }
        } else {
            lc_log_basic(LOG_ERR, "Unexpected change type %s under binding %s",
                         ts_str(change_type), ts_str(bname));
        }
    }

    if (ret_old_bindings != nullptr) {
        *ret_old_bindings = old_bindings;
        old_bindings = nullptr;
    }
    if (ret_new_bindings != nullptr) {
        *ret_new_bindings = new_bindings;
        new_bindings = nullptr;
    }
    if (ret_unspec_changes != nullptr) {
        *ret_unspec_changes = vague_changes;
        vague_changes = nullptr;
    }

bail:
    tstr_array_free(&parts);
    ts_free(&change_type);
    ts_free(&node_name);
    bn_binding_array_free(&old_bindings);
    bn_binding_array_free(&new_bindings);
    tstr_array_free(&vague_changes);
    return err;
}
