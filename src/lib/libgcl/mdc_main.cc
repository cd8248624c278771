// The synchronous client: requests built here, sent through the context's handler.
#include "mdc_main.h"

#include <cstdarg>
#include <cstdlib>

#include "logging.h"

// ---------------------------------------------------------------------------------------
// Core.

int mdc_init(mdc_msg_handler_func_ptr msg_handler_func, void *msg_handler_data,
             mdc_user_msg_handler_func_ptr user_msg_handler_func, void *user_msg_handler_data,
             gcl_session *session, md_client_context **ret_mcc)
{
    int err = 0;
    md_client_context *mcc = nullptr;

    bail_null(ret_mcc);
    *ret_mcc = nullptr;
    bail_null(msg_handler_func);
    mcc = static_cast<md_client_context *>(calloc(1, sizeof(*mcc)));
    bail_null(mcc);
    mcc->mcc_msg_handler_func = msg_handler_func;
    mcc->mcc_msg_handler_data = msg_handler_data;
    mcc->mcc_user_msg_handler_func = user_msg_handler_func;
    mcc->mcc_user_msg_handler_data = user_msg_handler_data;
    mcc->mcc_session = session;
    mcc->mcc_wrapper_context = nullptr;
    *ret_mcc = mcc;
    mcc = nullptr;

bail:
    free(mcc);
    return err;
}

int mdc_deinit(md_client_context **inout_mcc)
{
    int err = 0;

    bail_null(inout_mcc);
    free(*inout_mcc);
    *inout_mcc = nullptr;

bail:
    return err;
}

int mdc_send_mgmt_msg(md_client_context *mcc, bn_request *request,
                      tbool want_binding_name_parts, bn_binding_array **ret_bindings,
                      uint32 *ret_code, tstring **ret_msg)
{
    int err = 0;
    bn_response *response = nullptr;

    if (ret_bindings != nullptr) {
        *ret_bindings = nullptr;
    }
    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(mcc);
    bail_null(request);
    bail_null(mcc->mcc_msg_handler_func);

    err = mcc->mcc_msg_handler_func(mcc->mcc_msg_handler_data, mcc->mcc_session, request,
                                    &response);
    bail_error(err);
    if (response != nullptr) {
        err = bn_response_get_takeover(response, ret_code, ret_msg, want_binding_name_parts,
                                       ret_bindings, nullptr);
        bail_error(err);
    }

bail:
    bn_response_msg_free(&response);
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

int mdc_get_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    tbool want_binding_name_parts, bn_binding **ret_binding,
                    const char *binding_name, const char *db_name)
{
    return mdc_get_binding_ex(mcc, ret_code, ret_msg, want_binding_name_parts, ret_binding, 0,
                              0, binding_name, db_name);
}

int mdc_get_binding_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       tbool want_binding_name_parts, bn_binding **ret_binding,
                       uint32 query_flags, bn_query_node_flags_bf query_node_flags,
                       const char *binding_name, const char *db_name)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *bindings = nullptr;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(ret_binding);
    *ret_binding = nullptr;
    bail_null(mcc);
    bail_null(binding_name);

    err = bn_query_request_msg_create(&req, query_flags, db_name);
    bail_error(err);
    err = bn_query_request_msg_append_str(req, bqso_get, query_node_flags, binding_name,
                                          nullptr);
    bail_error(err);
    err = mdc_send_mgmt_msg(mcc, req, want_binding_name_parts, &bindings, ret_code, ret_msg);
    bail_error(err);
    if (bindings != nullptr) {
        err = bn_binding_array_detach_binding_by_name(bindings, binding_name, ret_binding);
        bail_error(err);
    }

bail:
    bn_request_msg_free(&req);
    bn_binding_array_free(&bindings);
    return err;
}

namespace {

// Formats a binding name; the caller frees it.
int mdc_format_name(tstring **ret_name, const char *binding_name_fmt, va_list ap)
    LC_PRINTF_FORMAT(2, 0);

int mdc_format_name(tstring **ret_name, const char *binding_name_fmt, va_list ap)
{
    int err = 0;
    tstring *name = nullptr;

    bail_null(ret_name);
    *ret_name = nullptr;
    bail_null(binding_name_fmt);
    err = ts_new(&name);
    bail_error(err);
    err = ts_append_vsprintf(name, binding_name_fmt, ap);
    bail_error(err);
    *ret_name = name;
    name = nullptr;

bail:
    ts_free(&name);
    return err;
}

}  // namespace

int mdc_get_binding_fmt(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                        tbool want_binding_name_parts, bn_binding **ret_binding,
                        const char *db_name, const char *binding_name_fmt, ...)
{
    int err = 0;
    tstring *name = nullptr;
    va_list ap;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(ret_binding);
    *ret_binding = nullptr;
    va_start(ap, binding_name_fmt);
    err = mdc_format_name(&name, binding_name_fmt, ap);
    va_end(ap);
    bail_error(err);
    err = mdc_get_binding(mcc, ret_code, ret_msg, want_binding_name_parts, ret_binding,
                          ts_str(name), db_name);
    bail_error(err);

bail:
    ts_free(&name);
    return err;
}

int mdc_get_binding_tstr(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                         bn_type *ret_type, tstring **ret_value, const char *binding_name,
                         const char *db_name)
{
    int err = 0;
    bn_binding *binding = nullptr;
    uint32 flagged_type = 0;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    if (ret_type != nullptr) {
        *ret_type = bt_NONE;
    }
    bail_null(ret_value);
    *ret_value = nullptr;
    err = mdc_get_binding(mcc, ret_code, ret_msg, false, &binding, binding_name, db_name);
    bail_error(err);
    if (binding == nullptr) {
        goto bail;
    }
    err = bn_binding_get_tstr(binding, ba_value, bt_NONE, &flagged_type, ret_value);
    bail_error(err);
    if (ret_type != nullptr) {
        *ret_type = static_cast<bn_type>(flagged_type & 0xffff);
    }

bail:
    bn_binding_free(&binding);
    return err;
}

int mdc_get_binding_tstr_fmt(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                             bn_type *ret_type, tstring **ret_value, const char *db_name,
                             const char *binding_name_fmt, ...)
{
    int err = 0;
    tstring *name = nullptr;
    va_list ap;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    if (ret_type != nullptr) {
        *ret_type = bt_NONE;
    }
    bail_null(ret_value);
    *ret_value = nullptr;
    va_start(ap, binding_name_fmt);
    err = mdc_format_name(&name, binding_name_fmt, ap);
    va_end(ap);
    bail_error(err);
    err = mdc_get_binding_tstr(mcc, ret_code, ret_msg, ret_type, ret_value, ts_str(name),
                               db_name);
    bail_error(err);

bail:
    ts_free(&name);
    return err;
}

int mdc_get_binding_tbool(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                          tbool *ret_found, tbool *ret_value, const char *binding_name,
                          const char *db_name)
{
    int err = 0;
    bn_binding *binding = nullptr;
    const bn_attrib *attrib = nullptr;
    bn_type type = bt_NONE;
    bn_type_flags_bf type_flags = 0;
    tbool value = false;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    if (ret_found != nullptr) {
        *ret_found = false;
    }
    bail_null(ret_value);
    *ret_value = false;
    err = mdc_get_binding(mcc, ret_code, ret_msg, false, &binding, binding_name, db_name);
    bail_error(err);
    if (binding == nullptr) {
        goto bail;
    }
    if (ret_found != nullptr) {
        *ret_found = true;
    }
    err = bn_binding_get_attrib(binding, ba_value, &attrib);
    bail_error(err);
    if (attrib != nullptr) {
        err = bn_attrib_get_type(attrib, &type, &type_flags);
        bail_error(err);
    }
    if (attrib == nullptr || type != bt_bool || (type_flags & (btf_invalid | btf_no_value))) {
        lc_log_basic(LOG_WARNING, "Binding %s is not of type bool", binding_name);
        err = lc_err_bad_type;
        goto bail;
    }
    err = bn_attrib_get_tbool(attrib, nullptr, nullptr, &value);
    bail_error(err);
    *ret_value = value;

bail:
    bn_binding_free(&binding);
    return err;
}

int mdc_get_binding_children_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                                tbool want_binding_name_parts,
                                bn_binding_array **ret_bindings,
                                bn_query_node_flags_bf query_node_flags,
                                const char *binding_name, const char *db_name,
                                int32 cond_db_revision_id, int32 *ret_db_revision_id)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_response *response = nullptr;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    if (ret_db_revision_id != nullptr) {
        *ret_db_revision_id = 0;
    }
    bail_null(ret_bindings);
    *ret_bindings = nullptr;
    bail_null(mcc);
    bail_null(mcc->mcc_msg_handler_func);
    bail_null(binding_name);

    err = bn_query_request_msg_create(&req, 0, db_name);
    bail_error(err);
    err = bn_query_request_msg_set_option_cond_db_revision_id(req, cond_db_revision_id);
    bail_error(err);
    err = bn_query_request_msg_append_str(req, bqso_iterate, query_node_flags, binding_name,
                                          nullptr);
    bail_error(err);

    // The response itself is wanted here, for its revision id, so the handler is called
    // directly rather than through mdc_send_mgmt_msg.
    err = mcc->mcc_msg_handler_func(mcc->mcc_msg_handler_data, mcc->mcc_session, req,
                                    &response);
    bail_error(err);
    if (response != nullptr) {
        if (ret_db_revision_id != nullptr) {
            *ret_db_revision_id = bn_query_response_msg_get_db_revision_id(response);
        }
        err = bn_response_get_takeover(response, ret_code, ret_msg, want_binding_name_parts,
                                       ret_bindings, nullptr);
        bail_error(err);
    }

bail:
    bn_request_msg_free(&req);
    bn_response_msg_free(&response);
    return err;
}

int mdc_get_binding_children(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                             tbool want_binding_name_parts, bn_binding_array **ret_bindings,
                             tbool include_self, tbool subtree, const char *binding_name,
                             const char *db_name)
{
    bn_query_node_flags_bf flags = 0;

    if (include_self) {
        flags |= bqnf_sel_iterate_include_self;
    }
    if (subtree) {
        flags |= bqnf_sel_iterate_subtree;
    }
    return mdc_get_binding_children_ex(mcc, ret_code, ret_msg, want_binding_name_parts,
                                       ret_bindings, flags, binding_name, db_name, 0, nullptr);
}

// ---------------------------------------------------------------------------------------
// Writing.

int mdc_set_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    bn_set_subop set_subop, bn_type binding_type, const char *binding_value,
                    const char *binding_name)
{
    return mdc_set_binding_ex(mcc, ret_code, ret_msg, set_subop, binding_type, 0,
                              binding_value, binding_name);
}

int mdc_set_binding_ex(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_set_subop set_subop, bn_type binding_type,
                       bn_type_flags_bf binding_type_flags, const char *binding_value,
                       const char *binding_name)
{
    int err = 0;
    bn_request *req = nullptr;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(mcc);
    bail_null(binding_name);

    err = bn_set_request_msg_create(&req, 0);
    bail_error(err);
    err = bn_set_request_msg_append_new_binding(req, set_subop, 0, binding_name, binding_type,
                                                binding_type_flags, binding_value, nullptr);
    if (err != 0) {
        lc_log_basic(LOG_WARNING, "Error converting binding: name %s type %s value %s",
                     binding_name, lc_enum_to_string_quiet(bn_type_map, binding_type),
                     binding_value != nullptr ? binding_value : "(null)");
    }
    bail_error(err);
    err = mdc_send_mgmt_msg(mcc, req, false, nullptr, ret_code, ret_msg);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

int mdc_modify_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_type binding_type, const char *binding_value,
                       const char *binding_name)
{
    return mdc_set_binding(mcc, ret_code, ret_msg, bsso_modify, binding_type, binding_value,
                           binding_name);
}

int mdc_create_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       bn_type binding_type, const char *binding_value,
                       const char *binding_name)
{
    return mdc_set_binding(mcc, ret_code, ret_msg, bsso_create, binding_type, binding_value,
                           binding_name);
}

int mdc_delete_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                       const char *binding_name)
{
    return mdc_set_binding(mcc, ret_code, ret_msg, bsso_delete, bt_none, nullptr,
                           binding_name);
}

int mdc_reset_binding(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                      const char *binding_name)
{
    return mdc_set_binding(mcc, ret_code, ret_msg, bsso_reset, bt_none, nullptr,
                           binding_name);
}

// ---------------------------------------------------------------------------------------
// Actions and events.

namespace {

// Adds one triple to an action or event message.  A value that does not parse still
// gives a binding, marked btf_invalid.
int mdc_append_binding_str(bn_request *msg, tbool is_event, const char *binding_name,
                           bn_type binding_type, const char *binding_value)
{
    int err = 0;
    bn_binding *binding = nullptr;

    bail_null(msg);
    bail_null(binding_name);
    if (!is_event) {
        err = bn_action_request_msg_append_new_binding(msg, 0, binding_name, binding_type,
                                                       binding_value, nullptr);
        bail_error(err);
        goto bail;
    }
    err = bn_binding_new_str_autoinval(&binding, binding_name, ba_value, binding_type, 0,
                                       binding_value);
    bail_error(err);
    err = bn_event_request_msg_append_binding_takeover(msg, 0, &binding, nullptr);
    bail_error(err);

bail:
    bn_binding_free(&binding);
    return err;
}

// The common body of the two varargs forms.
int mdc_send_with_bindings_str_va(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                                  tbool is_event, const char *msg_name, uint32 num_bindings,
                                  const char *binding_name, bn_type binding_type,
                                  const char *binding_value, va_list ap)
{
    int err = 0;
    bn_request *req = nullptr;
    const char *name = binding_name;
    bn_type type = binding_type;
    const char *value = binding_value;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(mcc);
    bail_null(msg_name);

    if (is_event) {
        err = bn_event_request_msg_create(&req, msg_name);
    } else {
        err = bn_action_request_msg_create(&req, msg_name);
    }
    bail_error(err);

    for (uint32 i = 0; i < num_bindings; ++i) {
        if (i > 0) {
            name = va_arg(ap, const char *);
            type = static_cast<bn_type>(va_arg(ap, int));
            value = va_arg(ap, const char *);
        }
        // A null value leaves an optional argument out.
        if (value == nullptr) {
            continue;
        }
        err = mdc_append_binding_str(req, is_event, name, type, value);
        bail_error(err);
    }

    err = mdc_send_mgmt_msg(mcc, req, false, nullptr, ret_code, ret_msg);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

}  // namespace

int mdc_send_action(md_client_context *mcc, uint32 *ret_code, tstring **ret_msg,
                    const char *action_name)
{
    int err = 0;
    bn_request *req = nullptr;

    if (ret_code != nullptr) {
        *ret_code = 0;
    }
    if (ret_msg != nullptr) {
        *ret_msg = nullptr;
    }
    bail_null(mcc);
    bail_null(action_name);
    err = bn_action_request_msg_create(&req, action_name);
    bail_error(err);
    err = mdc_send_mgmt_msg(mcc, req, false, nullptr, ret_code, ret_msg);
    bail_error(err);

bail:
    bn_request_msg_free(&req);
    return err;
}

int mdc_send_action_with_bindings_str_va(md_client_context *mcc, uint32 *ret_code,
                                         tstring **ret_msg, const char *action_name,
                                         uint32 num_bindings, const char *binding_name,
                                         bn_type binding_type, const char *binding_value, ...)
{
    int err = 0;
    va_list ap;

    va_start(ap, binding_value);
    err = mdc_send_with_bindings_str_va(mcc, ret_code, ret_msg, false, action_name,
                                        num_bindings, binding_name, binding_type,
                                        binding_value, ap);
    va_end(ap);
    return err;
}

int mdc_send_event_with_bindings_str_va(md_client_context *mcc, uint32 *ret_code,
                                        tstring **ret_msg, const char *event_name,
                                        uint32 num_bindings, const char *binding_name,
                                        bn_type binding_type, const char *binding_value, ...)
{
    int err = 0;
    va_list ap;

    va_start(ap, binding_value);
    err = mdc_send_with_bindings_str_va(mcc, ret_code, ret_msg, true, event_name,
                                        num_bindings, binding_name, binding_type,
                                        binding_value, ap);
    va_end(ap);
    return err;
}
