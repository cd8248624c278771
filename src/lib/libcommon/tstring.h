// The string type of the system: a growable heap string that knows its length in bytes
// and in characters, and may hold UTF-8.  Also the allocating print.
//
// A `const tstring *` argument may always be null: it reads as absent (see the _maybe
// accessors).  Offsets and counts given to the changing operations are in characters;
// for a string that is not UTF-8 a character is a byte.
//
// In a UTF-8 string a character starts at every byte that is not a continuation byte
// (10xxxxxx), so that `ts_num_chars` stays well defined even for bytes that are not valid
// UTF-8; `ts_utf8_num_chars` and `ts_utf8_char_size` are the strict checks.
#pragma once

#include <cstdarg>

#include "common.h"

struct tstr_array;

struct tstring {
    char *ts_str;         // the text, always zero-terminated
    uint32 ts_length;     // bytes, without the terminator
    uint32 ts_num_chars;  // characters; equal to ts_length unless UTF-8
    uint32 ts_size;       // bytes allocated, always more than ts_length
    tbool ts_is_utf8;
};

static constexpr uint32 ts_size_initial = 16;
static constexpr uint32 ts_size_max = 268435456;
static constexpr uint32 ts_size_max_extra_growth = 8388608;
static constexpr uint32 ts_resize_factor = 2;

// Tokenizing flags.
enum {
    ttf_none = 0,
    ttf_no_strip_quoting_chars = 1,
    ttf_no_append_missing_quoting = 2,
    ttf_no_ignore_dup_separator = 4,
    ttf_ignore_leading_separator = 8,
    ttf_ignore_trailing_separator = 16,
    ttf_single_empty_token_null = 32,
};

// Joining flags.
enum {
    ttj_none = 0,
    ttj_ensure_leading_separator = 256,
    ttj_ensure_trailing_separator = 512,
    ttj_ignore_empty_tokens = 1024,
};

// ---------------------------------------------------------------------------------------
// Making.  Each stores null in its result on failure.

// An empty string of ts_size_initial bytes.
int ts_new(tstring **ret_ts);
// An empty string of initial_size bytes (at least ts_size_initial).
int ts_new_size(tstring **ret_ts, uint32 initial_size);
// A copy of str; a null str gives an empty string.
int ts_new_str(tstring **ret_ts, const char *str);
// A copy of str_len bytes of str, zero bytes included; sized as appending them to a new
// string would size it.
int ts_new_str_len(tstring **ret_ts, const char *str, uint32 str_len);
int ts_new_sprintf(tstring **ret_ts, const char *format, ...) LC_PRINTF_FORMAT(2, 3);
// Takes over a heap block holding a text: str_len bytes of text (-1: strlen) in a block of
// str_size bytes (-1: str_len + 1).  The caller's pointer is nulled on success; on failure
// the caller keeps the block.  A null *inout_str gives an empty string.
int ts_new_str_takeover(tstring **ret_ts, char **inout_str, int32 str_len, int32 str_size);
int ts_new_str_takeover_utf8(tstring **ret_ts, char **inout_str, int32 str_len, int32 str_size);
// Replaces the text of *inout_ts, making the string first if *inout_ts is null.
int ts_new_or_replace_str(tstring **inout_ts, const char *str);
// Appends to *inout_ts, making the string first if *inout_ts is null.
int ts_new_or_append_sprintf(tstring **inout_ts, const char *format, ...) LC_PRINTF_FORMAT(2, 3);
// A copy, UTF-8 flag included; a null source gives a null copy.
int ts_dup(const tstring *src, tstring **ret_ts);
// A heap copy of the text, to be freed with free(); a null source gives null.
int ts_dup_str(const tstring *src, char **ret_str);

// ---------------------------------------------------------------------------------------
// Ending.

// Frees the string and nulls the pointer; a null *inout_ts is fine.
int ts_free(tstring **inout_ts);
// Hands out the text block (the caller frees it) and the text's length in bytes, frees the
// record and nulls the pointer.  ret_string_bytes may be null.
int ts_detach(tstring **inout_ts, char **ret_string, int32 *ret_string_bytes);

// ---------------------------------------------------------------------------------------
// Emptying.

// Empties the string and gives the block back to ts_size_initial bytes.
int ts_clear(tstring *ts);
// Empties the string and keeps its block.
int ts_clear_no_resize(tstring *ts);
// Replaces the text by str (null: empty).
int ts_replace_str(tstring *ts, const char *str);
// Replaces the text by str_len bytes of str (-1: all of it).
int ts_copy_str(tstring *ts, const char *str, int32 str_len);

// ---------------------------------------------------------------------------------------
// Reading.

// The text.  A null string is logged as an error and gives null.
const char *ts_str(const tstring *ts);
// The text, or null for a null string, quietly.
const char *ts_str_maybe(const tstring *ts);
// The text, or the empty text for a null string.
const char *ts_str_maybe_empty(const tstring *ts);
// Length in bytes and in characters; 0 for a null string.
int32 ts_length(const tstring *ts);
int32 ts_num_chars(const tstring *ts);
// The character at char_offset: the byte, or in a UTF-8 string the code point (a byte
// that starts no valid sequence is given as it is).  -1 past the end or for null.
int32 ts_get_char(const tstring *ts, uint32 char_offset);

// ---------------------------------------------------------------------------------------
// Comparing.  Two null strings are equal; a null string sorts before any other.

tbool ts_equal(const tstring *ts1, const tstring *ts2);
tbool ts_equal_tstr(const tstring *ts1, const tstring *ts2, tbool ignore_case);
tbool ts_equal_str(const tstring *ts, const char *str, tbool ignore_case);
int ts_cmp(const tstring *ts1, const tstring *ts2);
int ts_cmp_tstr(const tstring *ts, const tstring *tstr, tbool ignore_case);
// False when either is null.
tbool ts_has_prefix_str(const tstring *ts, const char *str, tbool ignore_case);

// ---------------------------------------------------------------------------------------
// Appending.  A null str appends nothing.

int ts_append_str(tstring *ts, const char *str);
// Appends str_len bytes of str.
int ts_append_str_len(tstring *ts, const char *str, uint32 str_len);
// A byte, or in a UTF-8 string a code point, which is encoded.  0 is refused.
int ts_append_char(tstring *ts, int ch);
int ts_append_sprintf(tstring *ts, const char *format, ...) LC_PRINTF_FORMAT(2, 3);
int ts_append_vsprintf(tstring *ts, const char *format, va_list ap) LC_PRINTF_FORMAT(2, 0);

// ---------------------------------------------------------------------------------------
// Changing.  An offset past the character count gives lc_err_no_buffer_space.

// Overwrites from char_offset, extending the string where the text passes its end.
int ts_put_str(tstring *ts, uint32 char_offset, const char *str);
int ts_put_char(tstring *ts, uint32 char_offset, int ch);
// Inserts before the character at char_offset; the character count appends.
int ts_insert_char(tstring *ts, uint32 char_offset, int ch);
// Removes count characters from start; a negative count removes to the end.  A range
// that passes the end gives lc_err_no_buffer_space.
int ts_cut(tstring *ts, uint32 start, int32 count);
// Removes every occurrence of the character.
int ts_remove_char(tstring *ts, int ch);
// Removes head characters from the start and tail from the end; when they reach the
// length the string is cleared.
int ts_trim(tstring *ts, uint32 head, uint32 tail);
// Removes tail characters from the end.
int ts_trim_tail(tstring *ts, uint32 tail);
// Removes white space from both ends.
int ts_trim_whitespace(tstring *ts);
// Makes room for a text of size bytes without further allocation.
int ts_ensure_size(tstring *ts, uint32 size);

// ---------------------------------------------------------------------------------------
// UTF-8.

// Marks the string as UTF-8 or not and recounts its characters.
int ts_set_utf8(tstring *ts, tbool is_utf8);
// Counts the characters of num_bytes bytes of str (-1: strlen).  A sequence that is not
// valid UTF-8 gives lc_err_bad_utf8_seq, without a log line.
int ts_utf8_num_chars(const char *str, int32 num_bytes, uint32 *ret_num_chars);
// The size in bytes (1 to 4) of the UTF-8 character at str; an invalid sequence gives
// lc_err_bad_utf8_seq, without a log line.
int ts_utf8_char_size(const char *str, uint32 *ret_char_size);
// The index of the character that holds the byte at byte_offset; the length maps to the
// character count.
int ts_byte_offset_to_char_offset(const tstring *ts, uint32 byte_offset, uint32 *ret_char_offset);

// ---------------------------------------------------------------------------------------
// Tokens.  A character argument of 0 (or negative) means none; the separator is required
// and must differ from the escape and quoting characters, which differ from each other.

int ts_tokenize_str(const char *str, int separator_char, int escape_char, int quoting_char,
                    uint32 token_flags, tstr_array **ret_tokens);
// The same, with UTF-8 tokens.
int ts_tokenize_str_utf8(const char *str, int separator_char, int escape_char, int quoting_char,
                         uint32 token_flags, tstr_array **ret_tokens);
// Joins tokens into a new string.  ttj_ensure_trailing_separator is applied after the last
// token only.  A null array joins as no tokens.
int ts_join_tokens(const tstr_array *tokens, int separator_char, int escape_char,
                   int quoting_char, uint32 join_flags, tstring **ret_tstr);
int ts_join_tokens_utf8(const tstr_array *tokens, int separator_char, int escape_char,
                        int quoting_char, uint32 join_flags, tstring **ret_tstr);
// Appends one token to base, with a separator before it and escapes inside it.  A null
// token is an empty one.
int ts_join_append_str(tstring *base, const char *append, int separator_char, int escape_char,
                       int quoting_char, uint32 join_flags);

// ---------------------------------------------------------------------------------------
// After a caller wrote into ts_str directly and set ts_length: terminates the text there
// and recounts the characters.
int ts_fix_dangerous(tstring *ts);

// ---------------------------------------------------------------------------------------
// The allocating print.  The result is a heap block for the caller to free(); a failure
// gives null.

char *smprintf(const char *format, ...) LC_PRINTF_FORMAT(1, 2);
char *vsmprintf(const char *format, va_list ap) LC_PRINTF_FORMAT(1, 0);
// The same with an error code; ret_result_len (may be null) receives the text's length.
int internal_vsnmprintf(const char *format, va_list ap, char **ret_result, int32 *ret_result_len)
    LC_PRINTF_FORMAT(1, 0);
