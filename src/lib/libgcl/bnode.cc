// Bindings: making, copying and freeing them, their name and its parts cache, and the
// attribute table inside them.

#include <cstdlib>

#include "bnode.h"
#include "common.h"
#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

// ---------------------------------------------------------------------------------------
// Creating and destroying.

int bn_binding_new_parts_components_takeover(bn_binding **ret_binding,
                                             tstring **inout_binding_name,
                                             tstr_array **inout_binding_name_parts,
                                             tbool binding_name_parts_is_absolute,
                                             bn_attrib_array **inout_attribs)
{
    int err = 0;
    bn_binding *binding = nullptr;
    tstring *name = nullptr;
    tstr_array *parts = nullptr;
    bn_attrib_array *attribs = nullptr;

    // Ownership moves in before anything can fail, so that the caller's pointers are null
    // on every return.
    if (inout_binding_name != nullptr) {
        name = *inout_binding_name;
        *inout_binding_name = nullptr;
    }
    if (inout_binding_name_parts != nullptr) {
        parts = *inout_binding_name_parts;
        *inout_binding_name_parts = nullptr;
    }
    if (inout_attribs != nullptr) {
        attribs = *inout_attribs;
        *inout_attribs = nullptr;
    }

    bail_null(ret_binding);
    *ret_binding = nullptr;

    binding = static_cast<bn_binding *>(lc_zalloc(sizeof(bn_binding)));
    bail_null(binding);

    if (name != nullptr && parts != nullptr) {
        // Both given: trusted to agree.
        binding->bn_node_name_parts_absolute = binding_name_parts_is_absolute;
    } else if (name != nullptr) {
        err = bn_binding_name_to_parts(ts_str(name), &parts,
                                       &binding->bn_node_name_parts_absolute);
        bail_error(err);
    } else if (parts != nullptr) {
        err = bn_binding_name_parts_to_name_tstr(parts, binding_name_parts_is_absolute, &name);
        bail_error(err);
        binding->bn_node_name_parts_absolute = binding_name_parts_is_absolute;
    } else {
        err = ts_new(&name);
        bail_error(err);
    }
    binding->bn_node_name = name;
    name = nullptr;
    binding->bn_node_name_parts = parts;
    parts = nullptr;
    binding->bn_attribs = attribs;
    attribs = nullptr;

    *ret_binding = binding;
    binding = nullptr;

bail:
    bn_binding_free(&binding);
    bn_attrib_array_free(&attribs);
    tstr_array_free(&parts);
    ts_free(&name);
    return err;
}

int bn_binding_new_parts_components(bn_binding **ret_binding, const char *binding_name,
                                    const tstr_array *binding_name_parts,
                                    tbool binding_name_parts_is_absolute,
                                    const bn_attrib_array *attribs)
{
    int err = 0;
    tstring *name = nullptr;
    tstr_array *parts = nullptr;
    bn_attrib_array *attribs_copy = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    if (binding_name != nullptr) {
        err = ts_new_str(&name, binding_name);
        bail_error(err);
    }
    if (binding_name_parts != nullptr) {
        err = tstr_array_duplicate(binding_name_parts, &parts);
        bail_error(err);
    }
    if (attribs != nullptr) {
        err = bn_attrib_array_duplicate(attribs, &attribs_copy);
        bail_error(err);
    }
    err = bn_binding_new_parts_components_takeover(ret_binding, &name, &parts,
                                                   binding_name_parts_is_absolute, &attribs_copy);
    bail_error(err);

bail:
    bn_attrib_array_free(&attribs_copy);
    tstr_array_free(&parts);
    ts_free(&name);
    return err;
}

int bn_binding_new_named(bn_binding **ret_binding, const char *binding_name)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(binding_name);
    binding = static_cast<bn_binding *>(lc_zalloc(sizeof(bn_binding)));
    bail_null(binding);
    err = ts_new_str(&binding->bn_node_name, binding_name);
    bail_error(err);
    *ret_binding = binding;
    binding = nullptr;

bail:
    bn_binding_free(&binding);
    return err;
}

int bn_binding_new_components(bn_binding **ret_binding, const char *binding_name,
                              const bn_attrib_array *attribs)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    err = bn_binding_new_named(&binding, binding_name);
    bail_error(err);
    if (attribs != nullptr) {
        err = bn_attrib_array_duplicate(attribs, &binding->bn_attribs);
        bail_error(err);
    }
    *ret_binding = binding;
    binding = nullptr;

bail:
    bn_binding_free(&binding);
    return err;
}

int bn_binding_dup(const bn_binding *binding, bn_binding **ret_binding)
{
    int err = 0;
    bn_binding *copy = nullptr;

    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(binding);

    copy = static_cast<bn_binding *>(lc_zalloc(sizeof(bn_binding)));
    bail_null(copy);
    if (binding->bn_node_name != nullptr) {
        err = ts_dup(binding->bn_node_name, &copy->bn_node_name);
    } else {
        err = ts_new(&copy->bn_node_name);
    }
    bail_error(err);
    if (binding->bn_node_name_parts != nullptr) {
        err = tstr_array_duplicate(binding->bn_node_name_parts, &copy->bn_node_name_parts);
        bail_error(err);
        copy->bn_node_name_parts_absolute = binding->bn_node_name_parts_absolute;
    }
    if (binding->bn_attribs != nullptr) {
        err = bn_attrib_array_duplicate(binding->bn_attribs, &copy->bn_attribs);
        bail_error(err);
    }
    *ret_binding = copy;
    copy = nullptr;

bail:
    bn_binding_free(&copy);
    return err;
}

int bn_binding_free(bn_binding **inout_binding)
{
    bn_binding *binding = nullptr;

    if (inout_binding == nullptr || *inout_binding == nullptr) {
        return 0;
    }
    binding = *inout_binding;
    bn_attrib_array_free(&binding->bn_attribs);
    tstr_array_free(&binding->bn_node_name_parts);
    ts_free(&binding->bn_node_name);
    free(binding);
    *inout_binding = nullptr;
    return 0;
}

// ---------------------------------------------------------------------------------------
// Name access.

int bn_binding_get_name(const bn_binding *binding, const tstring **ret_name)
{
    int err = 0;

    bail_null(ret_name);
    *ret_name = nullptr;
    bail_null(binding);
    *ret_name = binding->bn_node_name;

bail:
    return err;
}

const tstring *bn_binding_get_name_quick(const bn_binding *binding)
{
    int err = 0;
    const tstring *name = nullptr;

    bail_null(binding);
    name = binding->bn_node_name;

bail:
    (void)err;
    return name;
}

int bn_binding_set_name(bn_binding *binding, const char *new_name)
{
    int err = 0;
    tstring *name = nullptr;

    bail_null(binding);
    bail_null(new_name);
    err = ts_new_str(&name, new_name);
    bail_error(err);
    ts_free(&binding->bn_node_name);
    binding->bn_node_name = name;
    name = nullptr;
    // The parts no longer belong to the name.
    tstr_array_free(&binding->bn_node_name_parts);
    binding->bn_node_name_parts_absolute = false;

bail:
    ts_free(&name);
    return err;
}

int bn_binding_get_name_parts_const(const bn_binding *binding, const tstr_array **ret_name_parts,
                                    tbool *ret_is_absolute)
{
    int err = 0;

    bail_null(ret_name_parts);
    *ret_name_parts = nullptr;
    bail_null(binding);
    *ret_name_parts = binding->bn_node_name_parts;
    if (binding->bn_node_name_parts != nullptr && ret_is_absolute != nullptr) {
        *ret_is_absolute = binding->bn_node_name_parts_absolute;
    }

bail:
    return err;
}

int bn_binding_get_name_parts(const bn_binding *binding, tstr_array **ret_name_parts)
{
    int err = 0;

    bail_null(ret_name_parts);
    *ret_name_parts = nullptr;
    bail_null(binding);
    if (binding->bn_node_name_parts != nullptr) {
        err = tstr_array_duplicate(binding->bn_node_name_parts, ret_name_parts);
        bail_error(err);
    } else {
        err = bn_binding_name_to_parts(ts_str_maybe_empty(binding->bn_node_name), ret_name_parts,
                                       nullptr);
        bail_error(err);
    }

bail:
    return err;
}

int bn_binding_get_name_last_part(const bn_binding *binding, tstring **ret_last_part)
{
    int err = 0;
    uint32 num_parts = 0;

    bail_null(ret_last_part);
    *ret_last_part = nullptr;
    bail_null(binding);
    if (binding->bn_node_name_parts != nullptr) {
        num_parts = tstr_array_length_quick(binding->bn_node_name_parts);
        if (num_parts > 0) {
            err = ts_dup(tstr_array_get_quick(binding->bn_node_name_parts, num_parts - 1),
                         ret_last_part);
            bail_error(err);
        }
    } else {
        err = bn_binding_name_get_last_part(ts_str_maybe_empty(binding->bn_node_name),
                                            ret_last_part);
        bail_error(err);
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Attribute access.

int bn_binding_set_attrib_takeover(bn_binding *binding, bn_attribute_id attrib_id,
                                   bn_attrib **inout_attrib)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    bail_null(inout_attrib);
    attrib = *inout_attrib;
    *inout_attrib = nullptr;
    bail_null(binding);

    if (binding->bn_attribs == nullptr) {
        err = bn_attrib_array_new_size(&binding->bn_attribs, static_cast<uint32>(attrib_id) + 1);
        bail_error(err);
    }
    err = bn_attrib_array_set_takeover(binding->bn_attribs, static_cast<uint32>(attrib_id),
                                       &attrib);
    bail_error(err);

bail:
    bn_attrib_free(&attrib);
    return err;
}

int bn_binding_get_attrib(const bn_binding *binding, bn_attribute_id attrib_id,
                          const bn_attrib **ret_attrib)
{
    int err = 0;
    const uint32 idx = static_cast<uint32>(attrib_id);

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(binding);
    // No table, or a slot past its end: simply no attribute.
    if (binding->bn_attribs == nullptr || idx >= bn_attrib_array_length_quick(binding->bn_attribs)) {
        goto bail;
    }
    *ret_attrib =
        static_cast<const bn_attrib *>(array_get_quick(binding->bn_attribs->bn_attrib_arr, idx));

bail:
    return err;
}

int bn_binding_get_type(const bn_binding *binding, bn_attribute_id attrib_id, bn_type *ret_type,
                        bn_type_flags_bf *ret_type_flags)
{
    int err = 0;
    const bn_attrib *attrib = nullptr;

    if (ret_type != nullptr) {
        *ret_type = bt_NONE;
    }
    if (ret_type_flags != nullptr) {
        *ret_type_flags = 0;
    }
    bail_null(binding);
    bail_null(binding->bn_attribs);
    err = bn_binding_get_attrib(binding, attrib_id, &attrib);
    bail_error(err);
    if (attrib == nullptr) {
        // The caller decides whether a missing attribute matters.
        err = lc_err_not_found;
        goto bail;
    }
    err = bn_attrib_get_type(attrib, ret_type, ret_type_flags);
    bail_error(err);

bail:
    return err;
}
