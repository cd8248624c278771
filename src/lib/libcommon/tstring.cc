// Growable strings and the allocating print.

#include "tstring.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

#include "logging.h"
#include "tstr_array.h"

namespace {

bool utf8_is_continuation(uint8 byte)
{
    return (byte & 0xC0) == 0x80;
}

// Characters in len bytes: in UTF-8 every byte that is no continuation byte starts one.
uint32 ts_count_chars(const char *str, uint32 len, bool is_utf8)
{
    if (!is_utf8) {
        return len;
    }
    // Eight bytes at a time: a continuation byte has its top bit set and the next one
    // clear, and shifting the word left by one puts each byte's second bit under its top.
    constexpr uint64 top_bits = 0x8080808080808080ULL;
    uint32 continuations = 0;
    uint32 i = 0;
    for (; i + 8 <= len; i += 8) {
        uint64 word = 0;
        memcpy(&word, str + i, sizeof(word));
        continuations += static_cast<uint32>(std::popcount(word & ~(word << 1) & top_bits));
    }
    for (; i < len; ++i) {
        if (utf8_is_continuation(static_cast<uint8>(str[i]))) {
            ++continuations;
        }
    }
    return len - continuations;
}

// The strict decoder: size of the valid sequence at str within remaining bytes, or 0.
uint32 utf8_valid_size(const uint8 *str, uint32 remaining, uint32 *ret_code_point)
{
    uint32 size = 0;
    uint32 cp = 0;
    const uint8 lead = str[0];

    if (remaining == 0) {
        return 0;
    }
    if (lead < 0x80) {
        size = 1;
        cp = lead;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        size = 2;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        size = 3;
        cp = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        size = 4;
        cp = lead & 0x07;
    } else {
        return 0;
    }
    if (size > remaining) {
        return 0;
    }
    for (uint32 i = 1; i < size; ++i) {
        if (!utf8_is_continuation(str[i])) {
            return 0;
        }
        cp = (cp << 6) | (str[i] & 0x3F);
    }
    // Overlong forms, surrogates and values above the last code point.
    if ((size == 3 && cp < 0x800) || (size == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
        (cp >= 0xD800 && cp <= 0xDFFF)) {
        return 0;
    }
    if (ret_code_point != nullptr) {
        *ret_code_point = cp;
    }
    return size;
}

// The bytes that stand for ch in ts: a byte, or in a UTF-8 string a code point.
int ts_encode_char(const tstring *ts, int ch, char *buf, uint32 *ret_len)
{
    int err = 0;
    const uint32 cp = static_cast<uint32>(ch);

    bail_require(ch != 0);
    if (!ts->ts_is_utf8 || (ch > 0 && ch < 0x80)) {
        // A plain char with its high bit set arrives negative.
        bail_require(ch >= -128 && ch <= 255);
        buf[0] = static_cast<char>(static_cast<uint8>(ch));
        *ret_len = 1;
    } else {
        bail_require(ch > 0 && ch <= 0x10FFFF && !(ch >= 0xD800 && ch <= 0xDFFF));
        if (cp < 0x800) {
            buf[0] = static_cast<char>(0xC0 | (cp >> 6));
            buf[1] = static_cast<char>(0x80 | (cp & 0x3F));
            *ret_len = 2;
        } else if (cp < 0x10000) {
            buf[0] = static_cast<char>(0xE0 | (cp >> 12));
            buf[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            buf[2] = static_cast<char>(0x80 | (cp & 0x3F));
            *ret_len = 3;
        } else {
            buf[0] = static_cast<char>(0xF0 | (cp >> 18));
            buf[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            buf[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            buf[3] = static_cast<char>(0x80 | (cp & 0x3F));
            *ret_len = 4;
        }
    }
bail:
    return err;
}

// Byte offset of a character offset; the character count maps to the length.
int ts_char_to_byte(const tstring *ts, uint32 char_offset, uint32 *ret_byte_offset)
{
    int err = 0;
    uint32 seen = 0;

    if (char_offset > ts->ts_num_chars) {
        bail_force(lc_err_no_buffer_space);
    }
    if (!ts->ts_is_utf8 || char_offset == 0) {
        *ret_byte_offset = char_offset;
        goto bail;
    }
    if (char_offset == ts->ts_num_chars) {
        *ret_byte_offset = ts->ts_length;
        goto bail;
    }
    for (uint32 i = 0; i < ts->ts_length; ++i) {
        if (!utf8_is_continuation(static_cast<uint8>(ts->ts_str[i]))) {
            if (seen == char_offset) {
                *ret_byte_offset = i;
                goto bail;
            }
            ++seen;
        }
    }
    *ret_byte_offset = ts->ts_length;
bail:
    return err;
}

// A string made at a small size keeps its text right behind its header, in the one
// allocation: names and their parts, most strings there are, never outgrow it.  Any later
// resize moves the text to a block of its own, and it never moves back.
constexpr uint32 ts_inline_max = 256;

char *ts_inline_block(tstring *ts)
{
    return reinterpret_cast<char *>(ts + 1);
}

bool ts_block_is_inline(const tstring *ts)
{
    return ts->ts_str == reinterpret_cast<const char *>(ts + 1);
}

// A block of size bytes is allowed up to ts_size_max; past it the failure is logged here.
int ts_check_size(uint64 size)
{
    if (size > ts_size_max) {
        lc_log_basic(LOG_ERR, "maximum size exceeded: %d", static_cast<int>(size));
        return lc_err_assertion_failed;
    }
    return 0;
}

// The size growth by doubling reaches from `size` for `need` bytes, within the limits.
uint64 ts_grown_size(uint64 size, uint64 need)
{
    if (size < ts_size_initial) {
        size = ts_size_initial;
    }
    while (size < need) {
        size *= ts_resize_factor;
    }
    if (size > ts_size_max) {
        size = ts_size_max;
    }
    if (size - need > ts_size_max_extra_growth) {
        size = need + ts_size_max_extra_growth;
    }
    return size;
}

// Brings the block to the size a text of new_length bytes calls for.  Growth doubles
// from the present size; with allow_shrink, a block more than four times too large is
// halved until it fits.  Operations that lengthen the text only grow, so that room made
// ahead with ts_new_size or ts_ensure_size is kept.
int ts_maybe_resize(tstring *ts, uint64 new_length, bool allow_shrink)
{
    int err = 0;
    uint64 need = new_length + 1;
    uint64 new_size = ts->ts_size;
    char *block = nullptr;

    if (need < ts_size_initial) {
        need = ts_size_initial;
    }
    err = ts_check_size(need);
    bail_error_quiet(err);
    if (ts->ts_str != nullptr && ts->ts_size >= need &&
        (!allow_shrink || ts->ts_size <= need * 4)) {
        goto bail;
    }
    if (ts->ts_str == nullptr || ts->ts_size < need) {
        new_size = ts_grown_size(new_size, need);
    } else {
        while (need * 4 < new_size) {
            new_size /= ts_resize_factor;
        }
        if (new_size < ts_size_initial) {
            new_size = ts_size_initial;
        }
    }
    if (ts->ts_str == nullptr) {
        block = static_cast<char *>(malloc(new_size));
        bail_null(block);
        block[0] = '\0';
    } else if (ts_block_is_inline(ts)) {
        // The text and its terminator fit either block.
        block = static_cast<char *>(malloc(new_size));
        if (block == nullptr && new_size < ts->ts_size) {
            goto bail;
        }
        bail_null(block);
        memcpy(block, ts->ts_str, std::min<uint64>(ts->ts_size, new_size));
    } else {
        block = static_cast<char *>(realloc(ts->ts_str, new_size));
        if (block == nullptr && new_size < ts->ts_size) {
            // Keeping the larger block is as good.
            goto bail;
        }
        bail_null(block);
    }
    ts->ts_str = block;
    ts->ts_size = static_cast<uint32>(new_size);
bail:
    return err;
}

// Replaces remove_len bytes at byte_start by n bytes.  The one place where text changes
// length, apart from the trims.  The bytes may lie inside the string itself.
int ts_splice(tstring *ts, uint32 byte_start, uint32 remove_len, const char *bytes, uint32 n)
{
    int err = 0;
    const uint32 old_length = ts->ts_length;
    const uint64 new_length = static_cast<uint64>(old_length) - remove_len + n;
    const uint32 tail = old_length - byte_start - remove_len;
    uint32 removed_chars = 0;
    uint32 added_chars = 0;
    char *own_copy = nullptr;

    if (n > 0 && bytes >= ts->ts_str && bytes < ts->ts_str + ts->ts_size) {
        own_copy = static_cast<char *>(malloc(n));
        bail_null(own_copy);
        memcpy(own_copy, bytes, n);
        bytes = own_copy;
    }
    removed_chars = ts_count_chars(ts->ts_str + byte_start, remove_len, ts->ts_is_utf8);
    added_chars = ts_count_chars(bytes, n, ts->ts_is_utf8);
    if (new_length > old_length) {
        err = ts_maybe_resize(ts, new_length, false);
        bail_error(err);
    }
    if (n != remove_len && tail > 0) {
        memmove(ts->ts_str + byte_start + n, ts->ts_str + byte_start + remove_len, tail);
    }
    if (n > 0) {
        memcpy(ts->ts_str + byte_start, bytes, n);
    }
    ts->ts_length = static_cast<uint32>(new_length);
    ts->ts_str[ts->ts_length] = '\0';
    ts->ts_num_chars = ts->ts_num_chars - removed_chars + added_chars;
    if (new_length < old_length) {
        err = ts_maybe_resize(ts, new_length, true);
        bail_error(err);
    }
bail:
    free(own_copy);
    return err;
}

int ts_new_internal(tstring **ret_ts, uint32 initial_size, bool is_utf8)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    if (initial_size < ts_size_initial) {
        initial_size = ts_size_initial;
    }
    err = ts_check_size(initial_size);
    bail_error_quiet(err);
    if (initial_size <= ts_inline_max) {
        ts = static_cast<tstring *>(lc_zalloc(sizeof(tstring) + initial_size));
        bail_null(ts);
        ts->ts_str = ts_inline_block(ts);
    } else {
        ts = static_cast<tstring *>(lc_zalloc(sizeof(tstring)));
        bail_null(ts);
        ts->ts_str = static_cast<char *>(malloc(initial_size));
        bail_null(ts->ts_str);
    }
    ts->ts_str[0] = '\0';
    ts->ts_size = initial_size;
    ts->ts_is_utf8 = is_utf8;
    *ret_ts = ts;
    ts = nullptr;
bail:
    ts_free(&ts);
    return err;
}

// A copy of len bytes, in a block of the size that appending them to a new string
// would give.
int ts_new_text(tstring **ret_ts, const char *bytes, uint32 len, bool is_utf8)
{
    int err = 0;
    tstring *ts = nullptr;
    const uint64 need = static_cast<uint64>(len) + 1;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    err = ts_check_size(need);
    bail_error_quiet(err);
    err = ts_new_internal(&ts, static_cast<uint32>(ts_grown_size(ts_size_initial, need)),
                          is_utf8);
    bail_error(err);
    if (len > 0) {
        memcpy(ts->ts_str, bytes, len);
    }
    ts->ts_str[len] = '\0';
    ts->ts_length = len;
    ts->ts_num_chars = ts_count_chars(ts->ts_str, len, is_utf8);
    *ret_ts = ts;
    ts = nullptr;
bail:
    ts_free(&ts);
    return err;
}

int ts_new_str_takeover_internal(tstring **ret_ts, char **inout_str, int32 str_len,
                                 int32 str_size, bool is_utf8)
{
    int err = 0;
    tstring *ts = nullptr;
    uint64 len = 0;
    uint64 size = 0;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    bail_null(inout_str);
    if (*inout_str == nullptr) {
        err = ts_new_internal(ret_ts, ts_size_initial, is_utf8);
        bail_error(err);
        goto bail;
    }
    len = str_len < 0 ? strlen(*inout_str) : static_cast<uint64>(str_len);
    size = str_size < 0 ? len + 1 : static_cast<uint64>(str_size);
    bail_require(size > len);
    err = ts_check_size(size);
    bail_error_quiet(err);
    ts = static_cast<tstring *>(lc_zalloc(sizeof(tstring)));
    bail_null(ts);
    ts->ts_str = *inout_str;
    *inout_str = nullptr;
    ts->ts_length = static_cast<uint32>(len);
    ts->ts_size = static_cast<uint32>(size);
    ts->ts_str[len] = '\0';
    ts->ts_is_utf8 = is_utf8;
    ts->ts_num_chars = ts_count_chars(ts->ts_str, ts->ts_length, is_utf8);
    *ret_ts = ts;
bail:
    return err;
}

// Takes bytes literally while trimming: head_bytes from the start, tail_bytes from the end.
int ts_trim_internal(tstring *ts, uint32 head_bytes, uint32 tail_bytes)
{
    int err = 0;
    uint32 keep = 0;

    if (static_cast<uint64>(head_bytes) + tail_bytes >= ts->ts_length) {
        err = ts_clear(ts);
        bail_error(err);
        goto bail;
    }
    keep = ts->ts_length - head_bytes - tail_bytes;
    if (head_bytes > 0) {
        memmove(ts->ts_str, ts->ts_str + head_bytes, keep);
    }
    ts->ts_length = keep;
    ts->ts_str[keep] = '\0';
    ts->ts_num_chars = ts_count_chars(ts->ts_str, keep, ts->ts_is_utf8);
    err = ts_maybe_resize(ts, keep, true);
    bail_error(err);
bail:
    return err;
}

bool tok_char_given(int ch)
{
    return ch > 0;
}

// Appends str[from, to) to the token being built.
int ts_tok_append_run(tstring *token, const char *str, size_t from, size_t to)
{
    return to > from ? ts_append_str_len(token, str + from, static_cast<uint32>(to - from)) : 0;
}

int ts_tokenize_internal(const char *str, int sep, int esc, int quote, uint32 flags,
                         bool is_utf8, tstr_array **ret_tokens)
{
    int err = 0;
    tstr_array *tokens = nullptr;
    tstring *token = nullptr;
    const bool has_esc = tok_char_given(esc);
    const bool has_quote = tok_char_given(quote);
    bool quoted = false;
    bool after_sep = false;
    size_t len = 0;
    size_t i = 0;
    size_t run = 0;
    int ch = 0;
    int next = 0;

    bail_null(ret_tokens);
    *ret_tokens = nullptr;
    bail_null(str);
    bail_require(tok_char_given(sep) && sep < 256);
    bail_require(!has_esc || (esc < 256 && esc != sep));
    bail_require(!has_quote || (quote < 256 && quote != sep && quote != esc));

    err = tstr_array_new(&tokens, nullptr);
    bail_error(err);
    err = ts_new_internal(&token, ts_size_initial, is_utf8);
    bail_error(err);

    // Plain characters are taken in runs: str[run, i) is text of the current token not yet
    // appended to it.
    len = strlen(str);
    for (i = 0; i < len; ++i) {
        ch = static_cast<uint8>(str[i]);
        if (has_esc && ch == esc) {
            next = (i + 1 < len) ? static_cast<uint8>(str[i + 1]) : 0;
            if (next != 0 && (next == sep || next == esc || (has_quote && next == quote))) {
                // The escape goes; the next character is taken as it is.
                err = ts_tok_append_run(token, str, run, i);
                bail_error(err);
                ++i;
                run = i;
            }
            // Otherwise the escape stays, as text of the run.
            after_sep = false;
            continue;
        }
        if (has_quote && ch == quote) {
            err = ts_tok_append_run(token, str, run, i);
            bail_error(err);
            quoted = !quoted;
            // The quote stays as text when asked to.
            run = (flags & ttf_no_strip_quoting_chars) ? i : i + 1;
            after_sep = false;
            continue;
        }
        if (ch == sep && !quoted) {
            err = ts_tok_append_run(token, str, run, i);
            bail_error(err);
            run = i + 1;
            if (i == 0 && (flags & ttf_ignore_leading_separator)) {
                after_sep = true;
                continue;
            }
            if (after_sep && token->ts_length == 0 && !(flags & ttf_no_ignore_dup_separator)) {
                // A run of separators counts as one.
                continue;
            }
            err = tstr_array_append_takeover(tokens, &token);
            bail_error(err);
            err = ts_new_internal(&token, ts_size_initial, is_utf8);
            bail_error(err);
            after_sep = true;
            continue;
        }
        after_sep = false;
    }
    err = ts_tok_append_run(token, str, run, len);
    bail_error(err);

    if (!(after_sep && (flags & ttf_ignore_trailing_separator))) {
        if (quoted && (flags & ttf_no_strip_quoting_chars) &&
            !(flags & ttf_no_append_missing_quoting)) {
            const char closing = static_cast<char>(quote);
            err = ts_append_str_len(token, &closing, 1);
            bail_error(err);
        }
        err = tstr_array_append_takeover(tokens, &token);
        bail_error(err);
    }

    if ((flags & ttf_single_empty_token_null) && tstr_array_length_quick(tokens) == 1 &&
        ts_length(tstr_array_get_quick(tokens, 0)) == 0) {
        tstr_array_free(&tokens);
    }
    *ret_tokens = tokens;
    tokens = nullptr;

bail:
    ts_free(&token);
    tstr_array_free(&tokens);
    return err;
}

int ts_join_tokens_internal(const tstr_array *tokens, int sep, int esc, int quote, uint32 flags,
                            bool is_utf8, tstring **ret_tstr)
{
    int err = 0;
    tstring *joined = nullptr;
    uint32 num = 0;

    bail_null(ret_tstr);
    *ret_tstr = nullptr;
    err = ts_new_internal(&joined, ts_size_initial, is_utf8);
    bail_error(err);
    num = tokens != nullptr ? tstr_array_length_quick(tokens) : 0;
    for (uint32 i = 0; i < num; ++i) {
        // A trailing separator belongs after the last token only.
        const uint32 tok_flags = (i + 1 < num) ? (flags & ~ttj_ensure_trailing_separator) : flags;
        err = ts_join_append_str(joined, ts_str_maybe(tstr_array_get_quick(tokens, i)), sep, esc,
                                 quote, tok_flags);
        bail_error(err);
    }
    if (num == 0 && (flags & (ttj_ensure_leading_separator | ttj_ensure_trailing_separator))) {
        err = ts_join_append_str(joined, "", sep, esc, quote, flags | ttj_ignore_empty_tokens);
        bail_error(err);
    }
    *ret_tstr = joined;
    joined = nullptr;
bail:
    ts_free(&joined);
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Making and ending.

int ts_new(tstring **ret_ts)
{
    return ts_new_internal(ret_ts, ts_size_initial, false);
}

int ts_new_size(tstring **ret_ts, uint32 initial_size)
{
    return ts_new_internal(ret_ts, initial_size, false);
}

int ts_new_str(tstring **ret_ts, const char *str)
{
    if (str == nullptr) {
        return ts_new(ret_ts);
    }
    return ts_new_text(ret_ts, str, static_cast<uint32>(strlen(str)), false);
}

int ts_new_str_len(tstring **ret_ts, const char *str, uint32 str_len)
{
    int err = 0;
    bail_null(ret_ts);
    *ret_ts = nullptr;
    if (str_len > 0) {
        bail_null(str);
    }
    err = ts_new_text(ret_ts, str, str_len, false);
bail:
    return err;
}

int ts_new_sprintf(tstring **ret_ts, const char *format, ...)
{
    int err = 0;
    tstring *ts = nullptr;
    va_list ap;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    err = ts_new(&ts);
    bail_error(err);
    va_start(ap, format);
    err = ts_append_vsprintf(ts, format, ap);
    va_end(ap);
    bail_error(err);
    *ret_ts = ts;
    ts = nullptr;
bail:
    ts_free(&ts);
    return err;
}

int ts_new_str_takeover(tstring **ret_ts, char **inout_str, int32 str_len, int32 str_size)
{
    return ts_new_str_takeover_internal(ret_ts, inout_str, str_len, str_size, false);
}

int ts_new_str_takeover_utf8(tstring **ret_ts, char **inout_str, int32 str_len, int32 str_size)
{
    return ts_new_str_takeover_internal(ret_ts, inout_str, str_len, str_size, true);
}

int ts_new_or_replace_str(tstring **inout_ts, const char *str)
{
    int err = 0;
    bail_null(inout_ts);
    if (*inout_ts == nullptr) {
        err = ts_new_str(inout_ts, str);
    } else {
        err = ts_replace_str(*inout_ts, str);
    }
    bail_error(err);
bail:
    return err;
}

int ts_new_or_append_sprintf(tstring **inout_ts, const char *format, ...)
{
    int err = 0;
    tstring *made = nullptr;
    va_list ap;

    bail_null(inout_ts);
    if (*inout_ts == nullptr) {
        err = ts_new(&made);
        bail_error(err);
    }
    va_start(ap, format);
    err = ts_append_vsprintf(made != nullptr ? made : *inout_ts, format, ap);
    va_end(ap);
    bail_error(err);
    if (made != nullptr) {
        *inout_ts = made;
        made = nullptr;
    }
bail:
    ts_free(&made);
    return err;
}

int ts_dup(const tstring *src, tstring **ret_ts)
{
    int err = 0;

    bail_null(ret_ts);
    *ret_ts = nullptr;
    if (src == nullptr) {
        goto bail;
    }
    err = ts_new_text(ret_ts, src->ts_str, src->ts_length, src->ts_is_utf8);
bail:
    return err;
}

int ts_dup_str(const tstring *src, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    if (src == nullptr) {
        goto bail;
    }
    *ret_str = static_cast<char *>(malloc(src->ts_length + 1));
    bail_null(*ret_str);
    memcpy(*ret_str, src->ts_str, src->ts_length + 1);
bail:
    return err;
}

int ts_free(tstring **inout_ts)
{
    int err = 0;
    bail_null(inout_ts);
    if (*inout_ts != nullptr) {
        if (!ts_block_is_inline(*inout_ts)) {
            free((*inout_ts)->ts_str);
        }
        free(*inout_ts);
        *inout_ts = nullptr;
    }
bail:
    return err;
}

int ts_detach(tstring **inout_ts, char **ret_string, int32 *ret_string_bytes)
{
    int err = 0;
    tstring *ts = nullptr;

    bail_null(inout_ts);
    bail_null(ret_string);
    *ret_string = nullptr;
    if (ret_string_bytes != nullptr) {
        *ret_string_bytes = 0;
    }
    ts = *inout_ts;
    if (ts == nullptr) {
        goto bail;
    }
    if (ts_block_is_inline(ts)) {
        // The caller frees what it gets: the text goes out in a block of its own.
        *ret_string = static_cast<char *>(malloc(ts->ts_length + 1));
        bail_null(*ret_string);
        memcpy(*ret_string, ts->ts_str, ts->ts_length + 1);
    } else {
        *ret_string = ts->ts_str;
    }
    if (ret_string_bytes != nullptr) {
        *ret_string_bytes = static_cast<int32>(ts->ts_length);
    }
    free(ts);
    *inout_ts = nullptr;
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Emptying.

int ts_clear(tstring *ts)
{
    int err = 0;
    char *block = nullptr;

    bail_null(ts);
    ts->ts_length = 0;
    ts->ts_num_chars = 0;
    ts->ts_str[0] = '\0';
    if (ts->ts_size != ts_size_initial) {
        // A text behind the header moves out to a block of the initial size.
        block = static_cast<char *>(ts_block_is_inline(ts) ? malloc(ts_size_initial)
                                                           : realloc(ts->ts_str, ts_size_initial));
        // Should the block refuse to move, the larger one serves as well.
        if (block != nullptr) {
            block[0] = '\0';
            ts->ts_str = block;
            ts->ts_size = ts_size_initial;
        }
    }
bail:
    return err;
}

int ts_clear_no_resize(tstring *ts)
{
    int err = 0;
    bail_null(ts);
    ts->ts_length = 0;
    ts->ts_num_chars = 0;
    ts->ts_str[0] = '\0';
bail:
    return err;
}

int ts_replace_str(tstring *ts, const char *str)
{
    int err = 0;
    bail_null(ts);
    err = ts_copy_str(ts, str, -1);
    bail_error(err);
bail:
    return err;
}

int ts_copy_str(tstring *ts, const char *str, int32 str_len)
{
    int err = 0;
    uint32 len = 0;

    bail_null(ts);
    if (str != nullptr) {
        len = str_len < 0 ? static_cast<uint32>(strlen(str)) : static_cast<uint32>(str_len);
    }
    err = ts_splice(ts, 0, ts->ts_length, str, len);
    bail_error(err);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

const char *ts_str(const tstring *ts)
{
    if (ts == nullptr) {
        lc_log_basic(LOG_ERR, "ts_str() called on a NULL tstring");
        return nullptr;
    }
    return ts->ts_str;
}

const char *ts_str_maybe(const tstring *ts)
{
    return ts != nullptr ? ts->ts_str : nullptr;
}

const char *ts_str_maybe_empty(const tstring *ts)
{
    return ts != nullptr ? ts->ts_str : "";
}

int32 ts_length(const tstring *ts)
{
    return ts != nullptr ? static_cast<int32>(ts->ts_length) : 0;
}

int32 ts_num_chars(const tstring *ts)
{
    return ts != nullptr ? static_cast<int32>(ts->ts_num_chars) : 0;
}

int32 ts_get_char(const tstring *ts, uint32 char_offset)
{
    uint32 byte_offset = 0;
    uint32 cp = 0;
    const uint8 *at = nullptr;

    if (ts == nullptr || char_offset >= ts->ts_num_chars) {
        return -1;
    }
    if (!ts->ts_is_utf8) {
        return static_cast<uint8>(ts->ts_str[char_offset]);
    }
    if (ts_char_to_byte(ts, char_offset, &byte_offset) != 0) {
        return -1;
    }
    at = reinterpret_cast<const uint8 *>(ts->ts_str + byte_offset);
    if (utf8_valid_size(at, ts->ts_length - byte_offset, &cp) == 0) {
        return at[0];
    }
    return static_cast<int32>(cp);
}

// ---------------------------------------------------------------------------------------
// Comparing.

tbool ts_equal(const tstring *ts1, const tstring *ts2)
{
    return ts_equal_tstr(ts1, ts2, false);
}

tbool ts_equal_tstr(const tstring *ts1, const tstring *ts2, tbool ignore_case)
{
    if (ts1 == nullptr || ts2 == nullptr) {
        return ts1 == ts2;
    }
    if (ts1->ts_length != ts2->ts_length) {
        return false;
    }
    return (ignore_case ? memcasecmp(ts1->ts_str, ts2->ts_str, ts1->ts_length)
                        : memcmp(ts1->ts_str, ts2->ts_str, ts1->ts_length)) == 0;
}

tbool ts_equal_str(const tstring *ts, const char *str, tbool ignore_case)
{
    if (ts == nullptr || str == nullptr) {
        return ts == nullptr && str == nullptr;
    }
    return (ignore_case ? strcasecmp(ts->ts_str, str) : strcmp(ts->ts_str, str)) == 0;
}

int ts_cmp(const tstring *ts1, const tstring *ts2)
{
    return ts_cmp_tstr(ts1, ts2, false);
}

int ts_cmp_tstr(const tstring *ts, const tstring *tstr, tbool ignore_case)
{
    uint32 common_len = 0;
    int result = 0;

    if (ts == nullptr || tstr == nullptr) {
        return (ts == nullptr ? 0 : 1) - (tstr == nullptr ? 0 : 1);
    }
    common_len = ts->ts_length < tstr->ts_length ? ts->ts_length : tstr->ts_length;
    result = ignore_case ? memcasecmp(ts->ts_str, tstr->ts_str, common_len)
                         : memcmp(ts->ts_str, tstr->ts_str, common_len);
    if (result != 0) {
        return result < 0 ? -1 : 1;
    }
    if (ts->ts_length == tstr->ts_length) {
        return 0;
    }
    return ts->ts_length < tstr->ts_length ? -1 : 1;
}

tbool ts_has_prefix_str(const tstring *ts, const char *str, tbool ignore_case)
{
    if (ts == nullptr || str == nullptr) {
        return false;
    }
    return lc_is_prefix(str, ts->ts_str, ignore_case);
}

// ---------------------------------------------------------------------------------------
// Appending.

int ts_append_str(tstring *ts, const char *str)
{
    int err = 0;
    bail_null(ts);
    if (str != nullptr) {
        err = ts_append_str_len(ts, str, static_cast<uint32>(strlen(str)));
        bail_error(err);
    }
bail:
    return err;
}

int ts_append_str_len(tstring *ts, const char *str, uint32 str_len)
{
    int err = 0;
    bail_null(ts);
    if (str_len == 0) {
        goto bail;
    }
    bail_null(str);
    err = ts_splice(ts, ts->ts_length, 0, str, str_len);
    bail_error(err);
bail:
    return err;
}

int ts_append_char(tstring *ts, int ch)
{
    int err = 0;
    char buf[4];
    uint32 len = 0;

    bail_null(ts);
    err = ts_encode_char(ts, ch, buf, &len);
    bail_error(err);
    err = ts_splice(ts, ts->ts_length, 0, buf, len);
    bail_error(err);
bail:
    return err;
}

int ts_append_sprintf(tstring *ts, const char *format, ...)
{
    int err = 0;
    va_list ap;

    bail_null(ts);
    va_start(ap, format);
    err = ts_append_vsprintf(ts, format, ap);
    va_end(ap);
    bail_error(err);
bail:
    return err;
}

int ts_append_vsprintf(tstring *ts, const char *format, va_list ap)
{
    int err = 0;
    char *text = nullptr;
    int32 text_len = 0;

    bail_null(ts);
    err = internal_vsnmprintf(format, ap, &text, &text_len);
    bail_error(err);
    err = ts_append_str_len(ts, text, static_cast<uint32>(text_len));
    bail_error(err);
bail:
    free(text);
    return err;
}

// ---------------------------------------------------------------------------------------
// Changing.

int ts_put_str(tstring *ts, uint32 char_offset, const char *str)
{
    int err = 0;
    uint32 start = 0;
    uint32 end = 0;
    uint32 str_len = 0;
    uint32 str_chars = 0;
    uint64 end_char = 0;

    bail_null(ts);
    err = ts_char_to_byte(ts, char_offset, &start);
    bail_error(err);
    if (str == nullptr) {
        goto bail;
    }
    str_len = static_cast<uint32>(strlen(str));
    str_chars = ts_count_chars(str, str_len, ts->ts_is_utf8);
    // The characters overwritten: as many as the text has, up to the end.
    end_char = static_cast<uint64>(char_offset) + str_chars;
    if (end_char >= ts->ts_num_chars) {
        end = ts->ts_length;
    } else {
        err = ts_char_to_byte(ts, static_cast<uint32>(end_char), &end);
        bail_error(err);
    }
    err = ts_splice(ts, start, end - start, str, str_len);
    bail_error(err);
bail:
    return err;
}

int ts_put_char(tstring *ts, uint32 char_offset, int ch)
{
    int err = 0;
    char buf[5];
    uint32 len = 0;

    bail_null(ts);
    err = ts_encode_char(ts, ch, buf, &len);
    bail_error(err);
    buf[len] = '\0';
    err = ts_put_str(ts, char_offset, buf);
    bail_error(err);
bail:
    return err;
}

int ts_insert_char(tstring *ts, uint32 char_offset, int ch)
{
    int err = 0;
    char buf[4];
    uint32 len = 0;
    uint32 at = 0;

    bail_null(ts);
    err = ts_char_to_byte(ts, char_offset, &at);
    bail_error(err);
    err = ts_encode_char(ts, ch, buf, &len);
    bail_error(err);
    err = ts_splice(ts, at, 0, buf, len);
    bail_error(err);
bail:
    return err;
}

int ts_cut(tstring *ts, uint32 start, int32 count)
{
    int err = 0;
    uint32 from = 0;
    uint32 to = 0;

    bail_null(ts);
    if (start > ts->ts_num_chars ||
        (count >= 0 && static_cast<uint64>(start) + static_cast<uint32>(count) > ts->ts_num_chars)) {
        bail_force(lc_err_no_buffer_space);
    }
    err = ts_char_to_byte(ts, start, &from);
    bail_error(err);
    if (count < 0) {
        to = ts->ts_length;
    } else {
        err = ts_char_to_byte(ts, start + static_cast<uint32>(count), &to);
        bail_error(err);
    }
    err = ts_splice(ts, from, to - from, nullptr, 0);
    bail_error(err);
bail:
    return err;
}

int ts_remove_char(tstring *ts, int ch)
{
    int err = 0;
    char buf[4];
    uint32 len = 0;
    uint32 out = 0;
    uint32 in = 0;

    bail_null(ts);
    err = ts_encode_char(ts, ch, buf, &len);
    bail_error(err);
    while (in < ts->ts_length) {
        if (in + len <= ts->ts_length && memcmp(ts->ts_str + in, buf, len) == 0) {
            in += len;
        } else {
            ts->ts_str[out++] = ts->ts_str[in++];
        }
    }
    if (out != ts->ts_length) {
        ts->ts_length = out;
        ts->ts_str[out] = '\0';
        ts->ts_num_chars = ts_count_chars(ts->ts_str, out, ts->ts_is_utf8);
        err = ts_maybe_resize(ts, out, true);
        bail_error(err);
    }
bail:
    return err;
}

int ts_trim(tstring *ts, uint32 head, uint32 tail)
{
    int err = 0;
    uint32 head_bytes = 0;
    uint32 tail_start = 0;

    bail_null(ts);
    if (static_cast<uint64>(head) + tail >= ts->ts_num_chars) {
        err = ts_trim_internal(ts, ts->ts_length, 0);
        bail_error(err);
        goto bail;
    }
    err = ts_char_to_byte(ts, head, &head_bytes);
    bail_error(err);
    err = ts_char_to_byte(ts, ts->ts_num_chars - tail, &tail_start);
    bail_error(err);
    err = ts_trim_internal(ts, head_bytes, ts->ts_length - tail_start);
    bail_error(err);
bail:
    return err;
}

int ts_trim_tail(tstring *ts, uint32 tail)
{
    return ts_trim(ts, 0, tail);
}

int ts_trim_whitespace(tstring *ts)
{
    int err = 0;
    uint32 head = 0;
    uint32 tail = 0;

    bail_null(ts);
    while (head < ts->ts_length && isspace(static_cast<uint8>(ts->ts_str[head]))) {
        ++head;
    }
    while (tail < ts->ts_length - head &&
           isspace(static_cast<uint8>(ts->ts_str[ts->ts_length - 1 - tail]))) {
        ++tail;
    }
    if (head > 0 || tail > 0) {
        err = ts_trim_internal(ts, head, tail);
        bail_error(err);
    }
bail:
    return err;
}

int ts_ensure_size(tstring *ts, uint32 size)
{
    int err = 0;
    bail_null(ts);
    if (static_cast<uint64>(size) + 1 >= ts->ts_size) {
        err = ts_maybe_resize(ts, static_cast<uint64>(size) + 1, false);
        bail_error(err);
    }
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// UTF-8.

int ts_set_utf8(tstring *ts, tbool is_utf8)
{
    int err = 0;
    bail_null(ts);
    ts->ts_is_utf8 = is_utf8;
    ts->ts_num_chars = ts_count_chars(ts->ts_str, ts->ts_length, is_utf8);
bail:
    return err;
}

int ts_utf8_num_chars(const char *str, int32 num_bytes, uint32 *ret_num_chars)
{
    int err = 0;
    uint32 len = 0;
    uint32 pos = 0;
    uint32 count = 0;
    uint32 size = 0;

    bail_null(ret_num_chars);
    *ret_num_chars = 0;
    bail_null(str);
    len = num_bytes < 0 ? static_cast<uint32>(strlen(str)) : static_cast<uint32>(num_bytes);
    while (pos < len) {
        size = utf8_valid_size(reinterpret_cast<const uint8 *>(str + pos), len - pos, nullptr);
        if (size == 0) {
            err = lc_err_bad_utf8_seq;
            bail_quiet();
        }
        pos += size;
        ++count;
    }
    *ret_num_chars = count;
bail:
    return err;
}

int ts_utf8_char_size(const char *str, uint32 *ret_char_size)
{
    int err = 0;
    uint32 size = 0;
    uint32 avail = 0;

    bail_null(ret_char_size);
    *ret_char_size = 0;
    bail_null(str);
    // The terminator stops the look-ahead, as a continuation byte is never 0.
    while (avail < 4 && (avail == 0 || str[avail] != '\0')) {
        ++avail;
    }
    size = utf8_valid_size(reinterpret_cast<const uint8 *>(str), avail, nullptr);
    if (size == 0) {
        err = lc_err_bad_utf8_seq;
        bail_quiet();
    }
    *ret_char_size = size;
bail:
    return err;
}

int ts_byte_offset_to_char_offset(const tstring *ts, uint32 byte_offset, uint32 *ret_char_offset)
{
    int err = 0;
    uint32 chars = 0;

    bail_null(ret_char_offset);
    *ret_char_offset = 0;
    bail_null(ts);
    if (byte_offset > ts->ts_length) {
        bail_force(lc_err_no_buffer_space);
    }
    if (!ts->ts_is_utf8) {
        *ret_char_offset = byte_offset;
        goto bail;
    }
    chars = ts_count_chars(ts->ts_str, byte_offset, true);
    // A byte inside a character belongs to the character that started before it.
    if (byte_offset < ts->ts_length && chars > 0 &&
        utf8_is_continuation(static_cast<uint8>(ts->ts_str[byte_offset]))) {
        --chars;
    }
    *ret_char_offset = chars;
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Tokens.

int ts_tokenize_str(const char *str, int separator_char, int escape_char, int quoting_char,
                    uint32 token_flags, tstr_array **ret_tokens)
{
    return ts_tokenize_internal(str, separator_char, escape_char, quoting_char, token_flags,
                                false, ret_tokens);
}

int ts_tokenize_str_utf8(const char *str, int separator_char, int escape_char, int quoting_char,
                         uint32 token_flags, tstr_array **ret_tokens)
{
    return ts_tokenize_internal(str, separator_char, escape_char, quoting_char, token_flags,
                                true, ret_tokens);
}

int ts_join_tokens(const tstr_array *tokens, int separator_char, int escape_char,
                   int quoting_char, uint32 join_flags, tstring **ret_tstr)
{
    return ts_join_tokens_internal(tokens, separator_char, escape_char, quoting_char, join_flags,
                                   false, ret_tstr);
}

int ts_join_tokens_utf8(const tstr_array *tokens, int separator_char, int escape_char,
                        int quoting_char, uint32 join_flags, tstring **ret_tstr)
{
    return ts_join_tokens_internal(tokens, separator_char, escape_char, quoting_char, join_flags,
                                   true, ret_tstr);
}

int ts_join_append_str(tstring *base, const char *append, int separator_char, int escape_char,
                       int quoting_char, uint32 join_flags)
{
    int err = 0;
    const bool has_sep = tok_char_given(separator_char);
    const bool has_esc = tok_char_given(escape_char);
    const bool has_quote = tok_char_given(quoting_char);
    const char sep = static_cast<char>(separator_char);
    const char esc = static_cast<char>(escape_char);
    const char quote = static_cast<char>(quoting_char);
    uint32 len = 0;
    bool base_open = false;
    char ch = 0;
    char next = 0;

    bail_null(base);
    if (!has_sep) {
        bail_require(join_flags == 0);
    }
    if (append == nullptr) {
        append = "";
    }
    len = static_cast<uint32>(strlen(append));
    // The escapes are rarely many: reserve a sixteenth more, and a little.
    err = ts_ensure_size(base, base->ts_length + len + len / 16 + 5);
    bail_error(err);

    // A separator goes before the token unless the base is empty or one separator alone.
    base_open = base->ts_length == 0 || (base->ts_length == 1 && base->ts_str[0] == sep);
    if (len > 0) {
        if (has_sep && !base_open) {
            err = ts_append_str_len(base, &sep, 1);
            bail_error(err);
        } else if (has_sep && base->ts_length == 0 &&
                   (join_flags & ttj_ensure_leading_separator) && append[0] != sep &&
                   !(has_esc && append[0] == esc) && !(has_quote && append[0] == quote)) {
            err = ts_append_str_len(base, &sep, 1);
            bail_error(err);
        }
        for (uint32 i = 0; i < len; ++i) {
            ch = append[i];
            if (has_esc) {
                next = append[i + 1];
                if ((has_sep && ch == sep) || (has_quote && ch == quote)) {
                    err = ts_append_str_len(base, &esc, 1);
                    bail_error(err);
                } else if (ch == esc && (next == '\0' || next == esc || (has_sep && next == sep) ||
                                         (has_quote && next == quote))) {
                    err = ts_append_str_len(base, &esc, 1);
                    bail_error(err);
                }
            }
            err = ts_append_str_len(base, &ch, 1);
            bail_error(err);
        }
    } else if (!(join_flags & ttj_ignore_empty_tokens) && has_sep && !base_open) {
        err = ts_append_str_len(base, &sep, 1);
        bail_error(err);
    }

    if ((join_flags & ttj_ensure_leading_separator) &&
        (base->ts_length == 0 || base->ts_str[0] != sep)) {
        err = ts_splice(base, 0, 0, &sep, 1);
        bail_error(err);
    }
    if ((join_flags & ttj_ensure_trailing_separator) &&
        (base->ts_length == 0 || base->ts_str[base->ts_length - 1] != sep)) {
        err = ts_append_str_len(base, &sep, 1);
        bail_error(err);
    }
bail:
    return err;
}

int ts_fix_dangerous(tstring *ts)
{
    int err = 0;
    bail_null(ts);
    bail_require(ts->ts_length < ts->ts_size);
    ts->ts_str[ts->ts_length] = '\0';
    ts->ts_num_chars = ts_count_chars(ts->ts_str, ts->ts_length, ts->ts_is_utf8);
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The allocating print.

int internal_vsnmprintf(const char *format, va_list ap, char **ret_result, int32 *ret_result_len)
{
    int err = 0;
    const int first_size = 100;
    char *buf = nullptr;
    char *grown = nullptr;
    int len = 0;
    int len2 = 0;
    va_list ap_copy;

    bail_null(ret_result);
    *ret_result = nullptr;
    if (ret_result_len != nullptr) {
        *ret_result_len = 0;
    }
    bail_null(format);
    buf = static_cast<char *>(malloc(first_size));
    bail_null(buf);
    va_copy(ap_copy, ap);
    len = vsnprintf(buf, first_size, format, ap_copy);
    va_end(ap_copy);
    bail_require(len >= 0);
    if (len >= first_size) {
        grown = static_cast<char *>(realloc(buf, static_cast<size_t>(len) + 1));
        bail_null(grown);
        buf = grown;
        va_copy(ap_copy, ap);
        len2 = vsnprintf(buf, static_cast<size_t>(len) + 1, format, ap_copy);
        va_end(ap_copy);
        bail_require(len2 == len);
    }
    *ret_result = buf;
    buf = nullptr;
    if (ret_result_len != nullptr) {
        *ret_result_len = len;
    }
bail:
    free(buf);
    return err;
}

char *vsmprintf(const char *format, va_list ap)
{
    char *result = nullptr;
    if (internal_vsnmprintf(format, ap, &result, nullptr) != 0) {
        return nullptr;
    }
    return result;
}

char *smprintf(const char *format, ...)
{
    char *result = nullptr;
    va_list ap;
    va_start(ap, format);
    result = vsmprintf(format, ap);
    va_end(ap);
    return result;
}
