// Binding names: splitting a name into its unescaped parts, joining parts back into an
// escaped name, and matching parts against a pattern with "*" and "**".

#include <cstdlib>

#include "bnode.h"
#include "common.h"
#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

// Appends one part to a name being joined, escaped: a separator gets an escape in front,
// an escape gets a second one when followed by an escape, a separator or the end of the
// part; any other byte goes as it is (an escape before an ordinary byte stays single,
// which mirrors the tokeniser keeping such an escape).
int bn_name_append_escaped_part(tstring *name, const tstring *part)
{
    int err = 0;
    const char *text = ts_str_maybe_empty(part);
    const int32 len = ts_length(part);
    static const char escape_pair_sep[2] = {bn_name_escape_char, bn_name_separator_char};
    static const char escape_pair_esc[2] = {bn_name_escape_char, bn_name_escape_char};
    int32 run_start = 0;

    for (int32 i = 0; i < len; ++i) {
        const char ch = text[i];
        const char next = (i + 1 < len) ? text[i + 1] : '\0';
        const char *pair = nullptr;
        if (ch == bn_name_separator_char) {
            pair = escape_pair_sep;
        } else if (ch == bn_name_escape_char &&
                   (i + 1 == len || next == bn_name_escape_char ||
                    next == bn_name_separator_char)) {
            pair = escape_pair_esc;
        }
        if (pair == nullptr) {
            continue;
        }
        err = ts_append_str_len(name, text + run_start, static_cast<uint32>(i - run_start));
        bail_error(err);
        err = ts_append_str_len(name, pair, 2);
        bail_error(err);
        run_start = i + 1;
    }
    err = ts_append_str_len(name, text + run_start, static_cast<uint32>(len - run_start));
    bail_error(err);
bail:
    return err;
}

}  // namespace

int bn_binding_name_to_parts(const char *name, tstr_array **ret_name_parts,
                             tbool *ret_is_absolute)
{
    int err = 0;
    tstr_array *parts = nullptr;

    bail_null(ret_name_parts);
    *ret_name_parts = nullptr;
    if (ret_is_absolute != nullptr) {
        *ret_is_absolute = false;
    }
    bail_null(name);

    err = ts_tokenize_str_utf8(name, bn_name_separator_char, bn_name_escape_char,
                               bn_name_quoting_char, bn_name_token_flags, &parts);
    bail_error(err);
    if (parts == nullptr) {
        // The empty name, "/" and the like: no parts at all, as an empty array.
        err = tstr_array_new(&parts, nullptr);
        bail_error(err);
    }
    if (ret_is_absolute != nullptr) {
        *ret_is_absolute = (name[0] == bn_name_separator_char);
    }
    *ret_name_parts = parts;
    parts = nullptr;

bail:
    tstr_array_free(&parts);
    return err;
}

int bn_binding_name_parts_to_name_tstr(const tstr_array *name_parts, tbool is_absolute,
                                       tstring **ret_name)
{
    int err = 0;
    tstring *name = nullptr;
    const uint32 num_parts = tstr_array_length_quick(name_parts);
    static const char separator[1] = {bn_name_separator_char};

    bail_null(ret_name);
    *ret_name = nullptr;

    err = ts_new(&name);
    bail_error(err);
    // Every part but the first gets a separator in front; an absolute name also gets one
    // before the first, so that an empty part always shows as a bare separator.
    for (uint32 i = 0; i < num_parts; ++i) {
        if (i > 0 || is_absolute) {
            err = ts_append_str_len(name, separator, 1);
            bail_error(err);
        }
        err = bn_name_append_escaped_part(name, tstr_array_get_quick(name_parts, i));
        bail_error(err);
    }
    if (num_parts == 0 && is_absolute) {
        err = ts_append_str_len(name, separator, 1);
        bail_error(err);
    }
    err = ts_set_utf8(name, true);
    bail_error(err);

    *ret_name = name;
    name = nullptr;

bail:
    ts_free(&name);
    return err;
}

int bn_binding_name_parts_to_name(const tstr_array *name_parts, tbool is_absolute,
                                  char **ret_name)
{
    int err = 0;
    tstring *name = nullptr;

    bail_null(ret_name);
    *ret_name = nullptr;
    err = bn_binding_name_parts_to_name_tstr(name_parts, is_absolute, &name);
    bail_error(err);
    err = ts_detach(&name, ret_name, nullptr);
    bail_error(err);

bail:
    ts_free(&name);
    return err;
}

int bn_binding_name_append_part_tstr(tstring *name, const char *new_part)
{
    int err = 0;
    tstring *part = nullptr;
    static const char separator[1] = {bn_name_separator_char};

    bail_null(name);
    bail_null(new_part);
    err = ts_new_str(&part, new_part);
    bail_error(err);
    // A separator goes first unless the name is empty (a relative name's first part) or
    // the root alone (an absolute name's first part).
    if (!(ts_length(name) == 0 ||
          (ts_length(name) == 1 && ts_str(name)[0] == bn_name_separator_char))) {
        err = ts_append_str_len(name, separator, 1);
        bail_error(err);
    }
    err = bn_name_append_escaped_part(name, part);
    bail_error(err);

bail:
    ts_free(&part);
    return err;
}

int bn_binding_name_get_last_part(const char *name, tstring **ret_last_part)
{
    int err = 0;
    tstr_array *parts = nullptr;

    bail_null(ret_last_part);
    *ret_last_part = nullptr;
    bail_null(name);
    err = bn_binding_name_to_parts(name, &parts, nullptr);
    bail_error(err);
    if (tstr_array_length_quick(parts) == 0) {
        goto bail;
    }
    err = tstr_array_pop(parts, ret_last_part);
    bail_error(err);

bail:
    tstr_array_free(&parts);
    return err;
}

tbool bn_binding_name_parts_pattern_match(const tstr_array *name_parts, tbool name_parts_abs,
                                          const char *pattern)
{
    int err = 0;
    tstr_array *pattern_parts = nullptr;
    tbool pattern_abs = false;
    tbool match = false;

    bail_null(pattern);
    err = bn_binding_name_to_parts(pattern, &pattern_parts, &pattern_abs);
    bail_error(err);
    if (pattern_abs != name_parts_abs) {
        goto bail;
    }
    err = tstr_array_wildcard_match(pattern_parts, name_parts, true, &match);
    bail_error(err);

bail:
    tstr_array_free(&pattern_parts);
    return err == 0 && match;
}
