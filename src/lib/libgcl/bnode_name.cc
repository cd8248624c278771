// Binding names: splitting a name into its unescaped parts, joining parts back into an
// escaped name, and matching parts against a pattern with "*" and "**".

#include <cstdlib>
#include <cstring>

#include "bnode.h"
#include "common.h"
#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

// Writes one part of a name being joined, escaped, at out, and gives the bytes written;
// with a null out it only counts them.  A separator gets an escape in front, an escape
// gets a second one when followed by an escape, a separator or the end of the part; any
// other byte goes as it is (an escape before an ordinary byte stays single, which mirrors
// the tokeniser keeping such an escape).
uint32 bn_name_escaped_part(const tstring *part, char *out)
{
    const char *text = ts_str_maybe_empty(part);
    const uint32 len = ts_length(part);
    uint32 written = 0;

    // Most parts hold neither character: they go as they are.
    if (memchr(text, bn_name_separator_char, len) == nullptr &&
        memchr(text, bn_name_escape_char, len) == nullptr) {
        if (out != nullptr && len > 0) {
            memcpy(out, text, len);
        }
        return len;
    }
    for (uint32 i = 0; i < len; ++i) {
        const char ch = text[i];
        const char next = (i + 1 < len) ? text[i + 1] : '\0';
        const bool escaped =
            ch == bn_name_separator_char ||
            (ch == bn_name_escape_char &&
             (i + 1 == len || next == bn_name_escape_char || next == bn_name_separator_char));
        if (escaped) {
            if (out != nullptr) {
                out[written] = bn_name_escape_char;
            }
            ++written;
        }
        if (out != nullptr) {
            out[written] = ch;
        }
        ++written;
    }
    return written;
}

// Appends one part to a name, escaped.
int bn_name_append_escaped_part(tstring *name, const tstring *part)
{
    int err = 0;
    const uint32 old_length = ts_length(name);
    const uint64 length = static_cast<uint64>(old_length) + bn_name_escaped_part(part, nullptr);

    bail_require(length < ts_size_max);
    err = ts_ensure_size(name, static_cast<uint32>(length));
    bail_error(err);
    bn_name_escaped_part(part, name->ts_str + old_length);
    name->ts_length = static_cast<uint32>(length);
    err = ts_fix_dangerous(name);
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
    uint64 length = 0;
    char *out = nullptr;

    bail_null(ret_name);
    *ret_name = nullptr;

    // Every part but the first gets a separator in front; an absolute name also gets one
    // before the first, so that an empty part always shows as a bare separator.  The
    // length is known before the text is written, so the name is made at its size once.
    length = (num_parts > 0 ? num_parts - 1 : 0) + (is_absolute ? 1 : 0);
    for (uint32 i = 0; i < num_parts; ++i) {
        length += bn_name_escaped_part(tstr_array_get_quick(name_parts, i), nullptr);
    }
    bail_require(length < ts_size_max);
    err = ts_new_size(&name, static_cast<uint32>(length + 1));
    bail_error(err);
    out = name->ts_str;
    for (uint32 i = 0; i < num_parts; ++i) {
        if (i > 0 || is_absolute) {
            *out++ = bn_name_separator_char;
        }
        out += bn_name_escaped_part(tstr_array_get_quick(name_parts, i), out);
    }
    if (num_parts == 0 && is_absolute) {
        *out++ = bn_name_separator_char;
    }
    name->ts_length = static_cast<uint32>(out - name->ts_str);
    name->ts_is_utf8 = true;
    err = ts_fix_dangerous(name);
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
