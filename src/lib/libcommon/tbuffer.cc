// The growable byte buffer and its on-wire forms.

#include "tbuffer.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

// ---------------------------------------------------------------------------------------
// Big-endian stores and loads.  Spelled out byte by byte so that the wire form does not
// depend on the host's byte order.

void tb_store_be(uint8 *dest, uint64 value, uint32 num_bytes)
{
    for (uint32 i = 0; i < num_bytes; ++i) {
        dest[i] = static_cast<uint8>(value >> (8 * (num_bytes - 1 - i)));
    }
}

uint64 tb_load_be(const uint8 *src, uint32 num_bytes)
{
    uint64 value = 0;
    for (uint32 i = 0; i < num_bytes; ++i) {
        value = (value << 8) | src[i];
    }
    return value;
}

// Rounds a block size up: to whole pages above one page, to multiples of the initial size
// above that.
uint64 tb_round_size(uint64 size)
{
    if (size > tb_size_chunk_size_mask) {
        return (size + tb_size_chunk_size_mask) & ~static_cast<uint64>(tb_size_chunk_size_mask);
    }
    if (size > tb_size_initial) {
        return (size + tb_size_initial - 1) / tb_size_initial * tb_size_initial;
    }
    return size;
}

// Brings the block to the size that a data length of new_length calls for: grows it when
// it lacks room for the data and the zero after it, shrinks it (auto-shrink buffers only)
// when it is far too large.  The length itself is left to the caller.
int tb_maybe_resize(tbuf *tb, uint64 new_length)
{
    int err = 0;
    uint64 need = std::max<uint64>(new_length + 1, tb_size_initial);
    uint64 new_size = 0;
    uint8 *new_buf = nullptr;
    tbool growing = false;

    if (need > tb_size_max) {
        lc_log_basic(LOG_ERR, "maximum size exceeded: %d",
                     static_cast<int>(std::min<uint64>(need, INT_MAX)));
        err = lc_err_assertion_failed;
        goto bail;
    }

    if (tb->tb_size < need) {
        const uint64 current = std::max<uint64>(tb->tb_size, tb_size_initial);
        const uint64 grown = current * tb_size_growth_factor;
        if (tb->tb_size == 0 || grown <= need) {
            new_size = need;
        } else {
            new_size = std::min<uint64>(grown, need + tb_size_max_extra_growth);
        }
        growing = true;
    } else if (tb->tb_opt_auto_shrink &&
               tb->tb_size > tb_size_shrink_threshold * (need + 1) + 1) {
        new_size = need;
    } else {
        goto bail;
    }
    new_size = std::min<uint64>(tb_round_size(new_size), tb_size_max);
    if (new_size == tb->tb_size) {
        goto bail;
    }

    if (tb->tb_buf == nullptr) {
        new_buf = static_cast<uint8 *>(lc_zalloc(new_size));
        bail_null(new_buf);
    } else {
        new_buf = static_cast<uint8 *>(realloc(tb->tb_buf, new_size));
        if (new_buf == nullptr && !growing) {
            // Giving memory back is only an economy: keep the larger block.
            goto bail;
        }
        bail_null(new_buf);
        if (new_size > tb->tb_size) {
            // Bytes never written read as zero, so that no stale heap reaches a peer.
            memset(new_buf + tb->tb_size, 0, new_size - tb->tb_size);
        }
    }
    tb->tb_buf = new_buf;
    tb->tb_size = static_cast<uint32>(new_size);

bail:
    return err;
}

// Makes room for data up to byte `end` (exclusive) and its zero, growing only.
int tb_reserve(tbuf *tb, uint64 end)
{
    if (end + 1 <= tb->tb_size && tb->tb_buf != nullptr) {
        return 0;
    }
    return tb_maybe_resize(tb, end);
}

// After bytes up to `end` were written: extends the length and terminates the data.
void tb_commit_end(tbuf *tb, uint64 end)
{
    if (end > tb->tb_length) {
        tb->tb_length = static_cast<uint32>(end);
    }
    tb->tb_buf[tb->tb_length] = 0;
}

// Whether p points into the buffer's own block (which a reallocation would move).
bool tb_points_into(const tbuf *tb, const void *p)
{
    const auto addr = reinterpret_cast<uintptr_t>(p);
    const auto start = reinterpret_cast<uintptr_t>(tb->tb_buf);
    return tb->tb_buf != nullptr && addr >= start && addr < start + tb->tb_size;
}

// Writes one big-endian integer of num_bytes at an offset.
int tb_put_be(tbuf *tb, uint32 tb_byte_offset, uint64 value, uint32 num_bytes)
{
    int err = 0;
    const uint64 end = static_cast<uint64>(tb_byte_offset) + num_bytes;

    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    err = tb_reserve(tb, end);
    bail_error(err);
    tb_store_be(tb->tb_buf + tb_byte_offset, value, num_bytes);
    tb_commit_end(tb, end);

bail:
    return err;
}

// Reads one big-endian integer of num_bytes, which must lie within the data.
int tb_get_be(const tbuf *tb, uint32 byte_offset, uint32 num_bytes, uint64 *ret_value)
{
    int err = 0;

    bail_null(ret_value);
    *ret_value = 0;
    bail_null(tb);
    if (static_cast<uint64>(byte_offset) + num_bytes > tb->tb_length) {
        bail_force(lc_err_no_buffer_space);
    }
    *ret_value = tb_load_be(tb->tb_buf + byte_offset, num_bytes);

bail:
    return err;
}

// The on-wire size of one string written by tb_put_str.
uint64 tb_str_wire_bytes(uint64 text_len, tbool add_nul, tbool include_pascal_length)
{
    return (include_pascal_length ? tb_uint32_bytes : 0) + text_len + (add_nul ? 1 : 0);
}

// Lays one string out at dest; the room has been reserved.  Returns the bytes written.
uint64 tb_store_str(uint8 *dest, tbool add_nul, tbool include_pascal_length,
                    const char *str, uint64 text_len)
{
    uint8 *p = dest;
    if (include_pascal_length) {
        tb_store_be(p, text_len + (add_nul ? 1 : 0), tb_uint32_bytes);
        p += tb_uint32_bytes;
    }
    if (text_len > 0) {
        memmove(p, str, text_len);
        p += text_len;
    }
    if (add_nul) {
        *p++ = 0;
    }
    return static_cast<uint64>(p - dest);
}

// The end of the bytes a read may look at: max_tb_bytes from byte_offset, negative or too
// large meaning up to the end of the data.  byte_offset must not pass the data.
uint64 tb_read_limit(const tbuf *tb, uint32 byte_offset, int32 max_tb_bytes)
{
    const uint64 remain = tb->tb_length - static_cast<uint64>(byte_offset);
    if (max_tb_bytes < 0 || static_cast<uint64>(max_tb_bytes) > remain) {
        return tb->tb_length;
    }
    return static_cast<uint64>(byte_offset) + static_cast<uint64>(max_tb_bytes);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Making and ending.

int tb_new(tbuf **ret_tb)
{
    return tb_new_size(ret_tb, 0);
}

int tb_new_size(tbuf **ret_tb, uint32 size)
{
    int err = 0;
    tbuf *tb = nullptr;

    bail_null(ret_tb);
    *ret_tb = nullptr;
    tb = static_cast<tbuf *>(lc_zalloc(sizeof(*tb)));
    bail_null(tb);
    err = tb_maybe_resize(tb, size);
    bail_error(err);
    *ret_tb = tb;
    tb = nullptr;

bail:
    tb_free(&tb);
    return err;
}

int tb_new_buf(tbuf **ret_tb, const uint8 *buf, int32 buf_len)
{
    int err = 0;
    tbuf *tb = nullptr;

    bail_null(ret_tb);
    *ret_tb = nullptr;
    bail_require(buf_len >= 0);
    if (buf_len > 0) {
        bail_null(buf);
    }
    err = tb_new_size(&tb, static_cast<uint32>(buf_len));
    bail_error(err);
    if (buf_len > 0) {
        memcpy(tb->tb_buf, buf, static_cast<size_t>(buf_len));
    }
    tb_commit_end(tb, static_cast<uint64>(buf_len));
    *ret_tb = tb;
    tb = nullptr;

bail:
    tb_free(&tb);
    return err;
}

int tb_new_takeover(tbuf **ret_tb, uint8 **buf_h, int32 buf_len, uint32 buf_size)
{
    int err = 0;
    tbuf *tb = nullptr;

    bail_null(ret_tb);
    *ret_tb = nullptr;
    bail_null(buf_h);
    if (*buf_h == nullptr) {
        bail_require(buf_len <= 0);
        err = tb_new(ret_tb);
        bail_error(err);
        goto bail;
    }
    bail_require(buf_len >= 0 && static_cast<uint32>(buf_len) <= buf_size);

    tb = static_cast<tbuf *>(lc_zalloc(sizeof(*tb)));
    bail_null(tb);
    tb->tb_buf = *buf_h;
    tb->tb_length = static_cast<uint32>(buf_len);
    tb->tb_size = buf_size;
    err = tb_reserve(tb, tb->tb_length);
    if (err != 0) {
        // The block is still the caller's.
        tb->tb_buf = nullptr;
        bail_error(err);
    }
    tb_commit_end(tb, tb->tb_length);
    *buf_h = nullptr;
    *ret_tb = tb;
    tb = nullptr;

bail:
    tb_free(&tb);
    return err;
}

int tb_free(tbuf **inout_tb)
{
    if (inout_tb == nullptr || *inout_tb == nullptr) {
        return 0;
    }
    free((*inout_tb)->tb_buf);
    free(*inout_tb);
    *inout_tb = nullptr;
    return 0;
}

int tb_dup(const tbuf *tb, tbuf **ret_dup)
{
    int err = 0;
    tbuf *dup = nullptr;

    bail_null(ret_dup);
    *ret_dup = nullptr;
    if (tb == nullptr) {
        goto bail;
    }
    err = tb_new_size(&dup, tb->tb_length);
    bail_error(err);
    if (tb->tb_length > 0) {
        memcpy(dup->tb_buf, tb->tb_buf, tb->tb_length);
    }
    tb_commit_end(dup, tb->tb_length);
    dup->tb_opt_auto_shrink = tb->tb_opt_auto_shrink;
    dup->tb_opt_const_buf = tb->tb_opt_const_buf;
    *ret_dup = dup;
    dup = nullptr;

bail:
    tb_free(&dup);
    return err;
}

int tb_detach(tbuf **inout_tb, uint8 **ret_buf, int32 *ret_buf_len)
{
    int err = 0;
    tbuf *tb = nullptr;

    bail_null(ret_buf);
    *ret_buf = nullptr;
    if (ret_buf_len != nullptr) {
        *ret_buf_len = 0;
    }
    bail_null(inout_tb);
    tb = *inout_tb;
    bail_null(tb);

    *ret_buf = tb->tb_buf;
    if (ret_buf_len != nullptr) {
        *ret_buf_len = static_cast<int32>(tb->tb_length);
    }
    tb->tb_buf = nullptr;
    err = tb_free(inout_tb);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Accessors.

uint32 tb_length(const tbuf *tb)
{
    return tb != nullptr ? tb->tb_length : 0;
}

uint32 tb_size(const tbuf *tb)
{
    return tb != nullptr ? tb->tb_size : 0;
}

uint32 tb_avail(const tbuf *tb)
{
    return tb != nullptr ? tb->tb_size - tb->tb_length : 0;
}

const uint8 *tb_buf(const tbuf *tb)
{
    if (tb == nullptr) {
        bail_log_null(__func__, __FILE__, __LINE__);
        return nullptr;
    }
    return tb->tb_buf;
}

uint8 *tb_buf(tbuf *tb)
{
    return const_cast<uint8 *>(tb_buf(static_cast<const tbuf *>(tb)));
}

const uint8 *tb_buf_maybe(const tbuf *tb)
{
    return tb != nullptr ? tb->tb_buf : nullptr;
}

uint8 *tb_buf_maybe(tbuf *tb)
{
    return tb != nullptr ? tb->tb_buf : nullptr;
}

// ---------------------------------------------------------------------------------------
// Size and length.

int tb_ensure_size(tbuf *tb, uint32 size)
{
    int err = 0;

    bail_null(tb);
    err = tb_reserve(tb, size);
    bail_error(err);

bail:
    return err;
}

int tb_set_length(tbuf *tb, uint32 len)
{
    int err = 0;

    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    err = tb_maybe_resize(tb, len);
    bail_error(err);
    tb->tb_length = len;
    tb->tb_buf[len] = 0;

bail:
    return err;
}

int tb_delete_bytes(tbuf *tb, uint32 start_byte_offset, uint32 count)
{
    int err = 0;
    uint64 end = 0;

    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    end = static_cast<uint64>(start_byte_offset) + count;
    if (end > tb->tb_length) {
        bail_force(lc_err_no_buffer_space);
    }
    if (count == 0) {
        goto bail;
    }
    // The tail moves down with its terminating zero.
    memmove(tb->tb_buf + start_byte_offset, tb->tb_buf + end, tb->tb_length - end + 1);
    tb->tb_length -= count;
    err = tb_maybe_resize(tb, tb->tb_length);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Writing at an offset.

int tb_put_buf(tbuf *tb, uint32 tb_byte_offset, const uint8 *buf, int32 buf_len)
{
    int err = 0;
    uint64 end = 0;
    ptrdiff_t self_offset = -1;

    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    bail_require(buf_len >= 0);
    if (buf_len == 0) {
        goto bail;
    }
    bail_null(buf);
    if (tb_points_into(tb, buf)) {
        self_offset = buf - tb->tb_buf;
    }
    end = static_cast<uint64>(tb_byte_offset) + static_cast<uint64>(buf_len);
    err = tb_reserve(tb, end);
    bail_error(err);
    if (self_offset >= 0) {
        buf = tb->tb_buf + self_offset;
    }
    memmove(tb->tb_buf + tb_byte_offset, buf, static_cast<size_t>(buf_len));
    tb_commit_end(tb, end);

bail:
    return err;
}

int tb_put_byte(tbuf *tb, uint32 tb_byte_offset, uint8 value)
{
    return tb_put_be(tb, tb_byte_offset, value, 1);
}

int tb_put_uint8(tbuf *tb, uint32 tb_byte_offset, uint8 value)
{
    return tb_put_be(tb, tb_byte_offset, value, 1);
}

int tb_put_uint16(tbuf *tb, uint32 tb_byte_offset, uint16 value)
{
    return tb_put_be(tb, tb_byte_offset, value, tb_uint16_bytes);
}

int tb_put_uint32(tbuf *tb, uint32 tb_byte_offset, uint32 value)
{
    return tb_put_be(tb, tb_byte_offset, value, tb_uint32_bytes);
}

int tb_put_uint64(tbuf *tb, uint32 tb_byte_offset, uint64 value)
{
    return tb_put_be(tb, tb_byte_offset, value, tb_uint64_bytes);
}

int tb_put_str(tbuf *tb, uint32 tb_byte_offset, tbool add_nul, tbool include_pascal_length,
               tbool use_net_byte_order, const char *str, int32 str_len, int32 *ret_tb_bytes)
{
    int err = 0;
    uint64 text_len = 0;
    uint64 total = 0;
    ptrdiff_t self_offset = -1;

    (void)use_net_byte_order;
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    if (str != nullptr) {
        text_len = str_len < 0 ? strlen(str) : static_cast<uint64>(str_len);
    }
    if (text_len > 0 && tb_points_into(tb, str)) {
        self_offset = reinterpret_cast<const uint8 *>(str) - tb->tb_buf;
    }
    total = tb_str_wire_bytes(text_len, add_nul, include_pascal_length);
    err = tb_reserve(tb, tb_byte_offset + total);
    bail_error(err);
    if (self_offset >= 0) {
        str = reinterpret_cast<const char *>(tb->tb_buf + self_offset);
    }
    tb_store_str(tb->tb_buf + tb_byte_offset, add_nul, include_pascal_length, str, text_len);
    tb_commit_end(tb, tb_byte_offset + total);
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = static_cast<int32>(total);
    }

bail:
    return err;
}

int tb_put_tstr(tbuf *tb, uint32 tb_byte_offset, tbool add_nul, tbool include_pascal_length,
                tbool use_net_byte_order, const tstring *ts, int32 *ret_tb_bytes)
{
    return tb_put_str(tb, tb_byte_offset, add_nul, include_pascal_length, use_net_byte_order,
                      ts != nullptr ? ts->ts_str : nullptr,
                      ts != nullptr ? static_cast<int32>(ts->ts_length) : 0, ret_tb_bytes);
}

int tb_put_tstr_array(tbuf *tb, uint32 tb_byte_offset, tbool add_nul,
                      tbool include_pascal_length, tbool use_net_byte_order,
                      const tstr_array *tsa, int32 *ret_tb_bytes)
{
    int err = 0;
    uint32 count = 0;
    uint64 total = tb_uint32_bytes;
    uint8 *p = nullptr;

    (void)use_net_byte_order;
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    bail_require(!tb->tb_opt_const_buf);
    if (tsa != nullptr) {
        count = tstr_array_length_quick(tsa);
    }

    // Size the whole form first, so that a failure leaves the buffer as it was.
    for (uint32 i = 0; i < count; ++i) {
        const tstring *elem = tstr_array_get_quick(tsa, i);
        total += tb_str_wire_bytes(elem != nullptr ? elem->ts_length : 0, add_nul,
                                   include_pascal_length);
    }
    if (add_nul) {
        total += 1;
    }
    err = tb_reserve(tb, tb_byte_offset + total);
    bail_error(err);

    p = tb->tb_buf + tb_byte_offset;
    tb_store_be(p, count, tb_uint32_bytes);
    p += tb_uint32_bytes;
    for (uint32 i = 0; i < count; ++i) {
        const tstring *elem = tstr_array_get_quick(tsa, i);
        p += tb_store_str(p, add_nul, include_pascal_length,
                          elem != nullptr ? elem->ts_str : nullptr,
                          elem != nullptr ? elem->ts_length : 0);
    }
    if (add_nul) {
        *p = 0;
    }
    tb_commit_end(tb, tb_byte_offset + total);
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = static_cast<int32>(total);
    }

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Writing at the end.

int tb_append_buf(tbuf *tb, const uint8 *buf, int32 buf_len)
{
    int err = 0;

    bail_null(tb);
    err = tb_put_buf(tb, tb->tb_length, buf, buf_len);
    bail_error(err);

bail:
    return err;
}

int tb_append_uint8(tbuf *tb, uint8 value)
{
    int err = 0;

    bail_null(tb);
    err = tb_put_uint8(tb, tb->tb_length, value);
    bail_error(err);

bail:
    return err;
}

int tb_append_uint16(tbuf *tb, uint16 value)
{
    int err = 0;

    bail_null(tb);
    err = tb_put_uint16(tb, tb->tb_length, value);
    bail_error(err);

bail:
    return err;
}

int tb_append_uint32(tbuf *tb, uint32 value)
{
    int err = 0;

    bail_null(tb);
    err = tb_put_uint32(tb, tb->tb_length, value);
    bail_error(err);

bail:
    return err;
}

int tb_append_uint64(tbuf *tb, uint64 value)
{
    int err = 0;

    bail_null(tb);
    err = tb_put_uint64(tb, tb->tb_length, value);
    bail_error(err);

bail:
    return err;
}

int tb_append_str(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                  tbool use_net_byte_order, const char *str, int32 str_len,
                  int32 *ret_tb_bytes)
{
    int err = 0;

    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    err = tb_put_str(tb, tb->tb_length, add_nul, include_pascal_length, use_net_byte_order,
                     str, str_len, ret_tb_bytes);
    bail_error(err);

bail:
    return err;
}

int tb_append_tstr(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                   tbool use_net_byte_order, const tstring *ts, int32 *ret_tb_bytes)
{
    int err = 0;

    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    err = tb_put_tstr(tb, tb->tb_length, add_nul, include_pascal_length, use_net_byte_order,
                      ts, ret_tb_bytes);
    bail_error(err);

bail:
    return err;
}

int tb_append_tstr_array(tbuf *tb, tbool add_nul, tbool include_pascal_length,
                         tbool use_net_byte_order, const tstr_array *tsa,
                         int32 *ret_tb_bytes)
{
    int err = 0;

    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    err = tb_put_tstr_array(tb, tb->tb_length, add_nul, include_pascal_length,
                            use_net_byte_order, tsa, ret_tb_bytes);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Reading.

int tb_get_uint8(const tbuf *tb, uint32 byte_offset, uint8 *ret_uint8)
{
    int err = 0;
    uint64 value = 0;

    bail_null(ret_uint8);
    *ret_uint8 = 0;
    err = tb_get_be(tb, byte_offset, 1, &value);
    bail_error(err);
    *ret_uint8 = static_cast<uint8>(value);

bail:
    return err;
}

int tb_get_uint16(const tbuf *tb, uint32 byte_offset, uint16 *ret_uint16)
{
    int err = 0;
    uint64 value = 0;

    bail_null(ret_uint16);
    *ret_uint16 = 0;
    err = tb_get_be(tb, byte_offset, tb_uint16_bytes, &value);
    bail_error(err);
    *ret_uint16 = static_cast<uint16>(value);

bail:
    return err;
}

int tb_get_uint32_nonnull(const tbuf *tb, uint32 byte_offset, uint32 *ret_uint32)
{
    int err = 0;
    uint64 value = 0;

    bail_null(ret_uint32);
    *ret_uint32 = 0;
    err = tb_get_be(tb, byte_offset, tb_uint32_bytes, &value);
    bail_error(err);
    *ret_uint32 = static_cast<uint32>(value);

bail:
    return err;
}

int tb_get_uint64(const tbuf *tb, uint32 byte_offset, uint64 *ret_uint64)
{
    int err = 0;

    bail_null(ret_uint64);
    *ret_uint64 = 0;
    err = tb_get_be(tb, byte_offset, tb_uint64_bytes, ret_uint64);
    bail_error(err);

bail:
    return err;
}

int tb_get_buf(const tbuf *tb, uint32 byte_offset, uint8 *ret_buf, uint32 count)
{
    int err = 0;

    bail_null(tb);
    if (count == 0) {
        goto bail;
    }
    bail_null(ret_buf);
    if (static_cast<uint64>(byte_offset) + count > tb->tb_length) {
        memset(ret_buf, 0, count);
        bail_force(lc_err_no_buffer_space);
    }
    memcpy(ret_buf, tb->tb_buf + byte_offset, count);

bail:
    return err;
}

uint32 tb_get_uint32_unchecked(const tbuf *tb, uint32 byte_offset)
{
    return static_cast<uint32>(tb_load_be(tb->tb_buf + byte_offset, tb_uint32_bytes));
}

int tb_get_tstr(const tbuf *tb, uint32 byte_offset, int32 max_tb_bytes, tbool has_nul,
                tbool has_pascal_length, tbool use_net_byte_order, tstring **ret_tstring,
                int32 *ret_tb_bytes)
{
    int err = 0;
    uint64 limit = 0;
    uint64 data_offset = byte_offset;
    uint64 data_len = 0;
    uint64 text_len = 0;
    const uint64 promised =
        (has_pascal_length ? tb_uint32_bytes : 0) + (has_nul ? 1 : 0);
    const char *data = nullptr;

    (void)use_net_byte_order;
    bail_null(ret_tstring);
    *ret_tstring = nullptr;
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    if (byte_offset > tb->tb_length) {
        bail_force(lc_err_no_buffer_space);
    }
    limit = tb_read_limit(tb, byte_offset, max_tb_bytes);
    if (byte_offset + promised > limit) {
        bail_force(lc_err_no_buffer_space);
    }

    if (has_pascal_length) {
        data_len = tb_load_be(tb->tb_buf + byte_offset, tb_uint32_bytes);
        data_offset += tb_uint32_bytes;
    } else if (has_nul) {
        const void *zero = memchr(tb->tb_buf + byte_offset, 0, limit - byte_offset);
        if (zero == nullptr) {
            bail_force(lc_err_no_buffer_space);
        }
        data_len = static_cast<const uint8 *>(zero) - (tb->tb_buf + byte_offset) + 1;
    } else {
        data_len = limit - byte_offset;
    }
    if (data_offset + data_len > limit) {
        bail_force(lc_err_no_buffer_space);
    }

    data = reinterpret_cast<const char *>(tb->tb_buf + data_offset);
    text_len = data_len;
    if (has_nul) {
        // The counted bytes must end with the zero they promise.
        bail_require(data_len > 0 && data[data_len - 1] == '\0');
        --text_len;
    }
    err = ts_new_str_len(ret_tstring, data, static_cast<uint32>(text_len));
    bail_error(err);
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = static_cast<int32>(data_offset + data_len - byte_offset);
    }

bail:
    return err;
}

int tb_get_tstr_array(const tbuf *tb, uint32 byte_offset, int32 max_tb_bytes, tbool has_nul,
                      tbool has_pascal_length, tbool use_net_byte_order,
                      tstr_array **ret_tsa, int32 *ret_tb_bytes)
{
    int err = 0;
    uint64 limit = 0;
    uint64 pos = byte_offset;
    uint32 count = 0;
    const uint64 min_elem_bytes =
        (has_pascal_length ? tb_uint32_bytes : 0) + (has_nul ? 1 : 0);
    tstr_array *tsa = nullptr;
    tstring *ts = nullptr;
    int32 used = 0;

    bail_null(ret_tsa);
    *ret_tsa = nullptr;
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = 0;
    }
    bail_null(tb);
    if (byte_offset > tb->tb_length) {
        bail_force(lc_err_no_buffer_space);
    }
    limit = tb_read_limit(tb, byte_offset, max_tb_bytes);
    if (pos + tb_uint32_bytes > limit) {
        bail_force(lc_err_no_buffer_space);
    }
    count = static_cast<uint32>(tb_load_be(tb->tb_buf + pos, tb_uint32_bytes));
    pos += tb_uint32_bytes;
    // A count that the remaining bytes cannot hold is refused before anything is built.
    if (static_cast<uint64>(count) * min_elem_bytes > limit - pos) {
        bail_force(lc_err_no_buffer_space);
    }

    err = tstr_array_new(&tsa, nullptr);
    bail_error(err);
    for (uint32 i = 0; i < count; ++i) {
        err = tb_get_tstr(tb, static_cast<uint32>(pos), static_cast<int32>(limit - pos),
                          has_nul, has_pascal_length, use_net_byte_order, &ts, &used);
        bail_error(err);
        err = tstr_array_append_takeover(tsa, &ts);
        bail_error(err);
        pos += static_cast<uint64>(used);
    }
    if (has_nul) {
        if (pos + 1 > limit) {
            bail_force(lc_err_no_buffer_space);
        }
        bail_require(tb->tb_buf[pos] == 0);
        ++pos;
    }
    *ret_tsa = tsa;
    tsa = nullptr;
    if (ret_tb_bytes != nullptr) {
        *ret_tb_bytes = static_cast<int32>(pos - byte_offset);
    }

bail:
    ts_free(&ts);
    tstr_array_free(&tsa);
    return err;
}
