// The growable byte buffer: what messages are assembled in and parsed from.  Writes and
// reads are addressed by byte offset; the integer and counted-string forms written here
// are the on-wire forms of the system, always big-endian whatever the host.
//
// One byte past the data is always allocated and holds a zero, so `tb_size` is at least
// `tb_length` + 1.  A buffer with `tb_opt_const_buf` set refuses every write with
// lc_err_assertion_failed.  A failed write leaves the earlier contents; reads never change
// the buffer.  Every fallible operation returns 0 or an lc_error_code.
#pragma once

#include "common.h"

struct tstring;
struct tstr_array;

struct tbuf {
    uint8 *tb_buf;             // the block; null only while nothing has been allocated
    uint32 tb_length;          // bytes in use
    uint32 tb_size;            // bytes allocated
    uint8 tb_opt_auto_shrink;  // give memory back when the length drops far below the size
    uint8 tb_opt_const_buf;    // read-only
};

static constexpr uint32 tb_size_initial = 128;
static constexpr uint32 tb_size_max = 536870912;
static constexpr uint32 tb_size_growth_factor = 4;
static constexpr uint32 tb_size_shrink_threshold = 6;
static constexpr uint32 tb_size_max_extra_growth = 8388608;
static constexpr uint32 tb_size_chunk_size_mask = 4095;

// Sizes of the fixed on-wire integer forms.
static constexpr uint32 tb_uint16_bytes = 2;
static constexpr uint32 tb_uint32_bytes = 4;
static constexpr uint32 tb_uint64_bytes = 8;

// ---------------------------------------------------------------------------------------
// Making and ending.  The constructors store null in their result on failure.

// An empty buffer of tb_size_initial bytes.
int tb_new(tbuf **ret_tb);
// An empty buffer with room for size bytes of data.
int tb_new_size(tbuf **ret_tb, uint32 size);
// A buffer holding a copy of buf_len bytes of buf.
int tb_new_buf(tbuf **ret_tb, const uint8 *buf, int32 buf_len);
// Adopts a malloc'ed block of buf_size bytes whose first buf_len bytes are data.  The block
// is grown when it lacks the byte for the terminating zero.  The caller's pointer is nulled
// on success; on failure the caller keeps the block.  A null *buf_h gives an empty buffer.
int tb_new_takeover(tbuf **ret_tb, uint8 **buf_h, int32 buf_len, uint32 buf_size);
// Frees the buffer and nulls the pointer; a null *inout_tb is fine.
int tb_free(tbuf **inout_tb);
// A copy of the data and of the options; a null source gives a null copy.
int tb_dup(const tbuf *tb, tbuf **ret_dup);
// Hands out the zero-terminated block (the caller frees it) and the data length, frees the
// record and nulls the pointer.  ret_buf_len may be null.
int tb_detach(tbuf **inout_tb, uint8 **ret_buf, int32 *ret_buf_len);

// ---------------------------------------------------------------------------------------
// Accessors.  The counts give 0 for a null buffer.  tb_buf logs a null buffer as an error
// and gives null; tb_buf_maybe gives null quietly.

uint32 tb_length(const tbuf *tb);
uint32 tb_size(const tbuf *tb);
// Allocated bytes beyond the data: size less length.
uint32 tb_avail(const tbuf *tb);
const uint8 *tb_buf(const tbuf *tb);
uint8 *tb_buf(tbuf *tb);
const uint8 *tb_buf_maybe(const tbuf *tb);
uint8 *tb_buf_maybe(tbuf *tb);

// ---------------------------------------------------------------------------------------
// Size and length.

// Makes room for size bytes of data (and the zero after them) without further allocation.
int tb_ensure_size(tbuf *tb, uint32 size);
// Sets the length, after the caller filled the block directly; grows the block if needed
// (the new bytes hold what the block held) and terminates the data.
int tb_set_length(tbuf *tb, uint32 len);
// Removes count bytes from start_byte_offset, moving the tail down; may shrink the block.
// A range past the end gives lc_err_no_buffer_space.
int tb_delete_bytes(tbuf *tb, uint32 start_byte_offset, uint32 count);

// ---------------------------------------------------------------------------------------
// Writing at an offset.  A write that passes the length extends it; a write that starts
// past the length leaves a gap holding what the block held there.

int tb_put_buf(tbuf *tb, uint32 tb_byte_offset, const uint8 *buf, int32 buf_len);
int tb_put_byte(tbuf *tb, uint32 tb_byte_offset, uint8 value);
int tb_put_uint8(tbuf *tb, uint32 tb_byte_offset, uint8 value);
int tb_put_uint16(tbuf *tb, uint32 tb_byte_offset, uint16 value);
int tb_put_uint32(tbuf *tb, uint32 tb_byte_offset, uint32 value);
int tb_put_uint64(tbuf *tb, uint32 tb_byte_offset, uint64 value);

// Writes [length] bytes [zero]: with include_pascal_length a uint32 holding the text's
// length (plus 1 with add_nul), then the text, then with add_nul one zero byte.  A null str
// is empty; a negative str_len means up to the first zero byte.  *ret_tb_bytes (may be
// null) receives the number of bytes written.  use_net_byte_order is accepted for
// compatibility: integers are always written big-endian.
int tb_put_str(tbuf *tb, uint32 tb_byte_offset, tbool add_nul, tbool include_pascal_length,
               tbool use_net_byte_order, const char *str, int32 str_len, int32 *ret_tb_bytes);
// tb_put_str with the text and length of a tstring; a null tstring is empty.
int tb_put_tstr(tbuf *tb, uint32 tb_byte_offset, tbool add_nul, tbool include_pascal_length,
                tbool use_net_byte_order, const tstring *ts, int32 *ret_tb_bytes);
// A uint32 element count (0 for a null array), each element as tb_put_str with the same
// flags (a null element is empty), then with add_nul one more zero byte.
int tb_put_tstr_array(tbuf *tb, uint32 tb_byte_offset, tbool add_nul,
                      tbool include_pascal_length, tbool use_net_byte_order,
                      const tstr_array *tsa, int32 *ret_tb_bytes);

// ---------------------------------------------------------------------------------------
// Writing at the end: the same forms, at offset tb_length.

int tb_append_buf(tbuf *tb, const uint8 *buf, int32 buf_len);
int tb_append_uint8(tbuf *tb, uint8 value);
int tb_append_uint16(tbuf *tb, uint16 value);
int tb_append_uint32(tbuf *tb, uint32 value);
int tb_append_uint64(tbuf *tb, uint64 value);
int tb_append_str(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                  tbool use_net_byte_order, const char *str, int32 str_len,
                  int32 *ret_tb_bytes);
int tb_append_tstr(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                   tbool use_net_byte_order, const tstring *ts, int32 *ret_tb_bytes);
int tb_append_tstr_array(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                         tbool use_net_byte_order, const tstr_array *tsa,
                         int32 *ret_tb_bytes);

// ---------------------------------------------------------------------------------------
// Reading.  A value that does not lie wholly within the data gives lc_err_no_buffer_space;
// the result is then 0.

int tb_get_uint8(const tbuf *tb, uint32 byte_offset, uint8 *ret_uint8);
int tb_get_uint16(const tbuf *tb, uint32 byte_offset, uint16 *ret_uint16);
int tb_get_uint32_nonnull(const tbuf *tb, uint32 byte_offset, uint32 *ret_uint32);
int tb_get_uint64(const tbuf *tb, uint32 byte_offset, uint64 *ret_uint64);
// Copies count raw bytes out.
int tb_get_buf(const tbuf *tb, uint32 byte_offset, uint8 *ret_buf, uint32 count);
// No checks at all: the caller knows that four bytes lie at byte_offset.
uint32 tb_get_uint32_unchecked(const tbuf *tb, uint32 byte_offset);

// The inverse of tb_put_str, into a new tstring.  Only the max_tb_bytes bytes from
// byte_offset are looked at (negative: up to the end).  With has_pascal_length the length
// comes from the uint32 field; otherwise with has_nul the text runs to the first zero
// byte, which must lie in range; otherwise the text is all the bytes in range.  With
// has_nul the last counted byte must be zero (lc_err_assertion_failed) and is not part of
// the text.  Bytes missing from the data give lc_err_no_buffer_space.  *ret_tb_bytes (may
// be null) receives the bytes consumed.  On failure *ret_tstring is null.
int tb_get_tstr(const tbuf *tb, uint32 byte_offset, int32 max_tb_bytes, tbool has_nul,
                tbool has_pascal_length, tbool use_net_byte_order, tstring **ret_tstring,
                int32 *ret_tb_bytes);
// The inverse of tb_put_tstr_array, within the same max_tb_bytes.
int tb_get_tstr_array(const tbuf *tb, uint32 byte_offset, int32 max_tb_bytes, tbool has_nul,
                      tbool has_pascal_length, tbool use_net_byte_order,
                      tstr_array **ret_tsa, int32 *ret_tb_bytes);
