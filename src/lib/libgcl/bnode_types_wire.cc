// The wire form of one attribute: the per-type copy functions and the header peeks.

#include "bnode_types_wire.h"

#include <cstring>

#include "logging.h"
#include "tstring.h"

namespace {

// The five header words of an attribute, as they stand on the wire.
struct bn_attrib_wire_header {
    uint32 bawh_encoding;
    uint32 bawh_attrib_id;
    uint32 bawh_type;
    uint32 bawh_type_flags;
    uint32 bawh_length;
};

const char *bn_wire_type_name(uint32 type)
{
    return lc_enum_to_string_quiet(bn_type_map, type);
}

int bn_attrib_wire_read_header(const tbuf *frame, uint32 offset, bn_attrib_wire_header *ret_hdr)
{
    int err = 0;

    bail_null(frame);
    bail_null(ret_hdr);
    // One check for all five words, so that a short frame fails before anything is read.
    if (static_cast<uint64>(offset) + bn_attrib_wire_header_bytes > tb_length(frame)) {
        err = lc_err_no_buffer_space;
        lc_log_basic(LOG_ERR, "Attribute header at %u runs past the frame end %u", offset,
                     tb_length(frame));
        goto bail;
    }
    ret_hdr->bawh_encoding = tb_get_uint32_unchecked(frame, offset + bn_attrib_wire_encoding_offset);
    ret_hdr->bawh_attrib_id =
        tb_get_uint32_unchecked(frame, offset + bn_attrib_wire_attrib_id_offset);
    ret_hdr->bawh_type = tb_get_uint32_unchecked(frame, offset + bn_attrib_wire_type_offset);
    ret_hdr->bawh_type_flags =
        tb_get_uint32_unchecked(frame, offset + bn_attrib_wire_type_flags_offset);
    ret_hdr->bawh_length = tb_get_uint32_unchecked(frame, offset + bn_attrib_wire_length_offset);

bail:
    return err;
}

// Writes the first four header words; the length word is the caller's.
int bn_attrib_wire_append_header(tbuf *frame, bn_external_encoding encoding,
                                 const bn_attrib *attrib)
{
    int err = 0;

    err = tb_append_uint32(frame, static_cast<uint32>(encoding));
    bail_error(err);
    err = tb_append_uint32(frame, static_cast<uint32>(attrib->ba_attrib_id));
    bail_error(err);
    err = tb_append_uint32(frame, static_cast<uint32>(attrib->ba_type));
    bail_error(err);
    err = tb_append_uint32(frame, attrib->ba_type_flags);
    bail_error(err);

bail:
    return err;
}

// A new attribute of expected_type carrying the id and flags of the header.  The id is
// checked here, before it can name a table slot.
int bn_attrib_wire_new_attrib(const bn_attrib_wire_header &hdr, bn_type expected_type,
                              bn_attrib **ret_attrib)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    if (hdr.bawh_attrib_id > bn_attrib_wire_max_id) {
        lc_log_basic(LOG_ERR, "Attribute id %u out of range", hdr.bawh_attrib_id);
        bail_force(lc_err_assertion_failed);
    }
    err = bn_attrib_new(&attrib);
    bail_error(err);
    attrib->ba_type = expected_type;
    attrib->ba_type_flags = hdr.bawh_type_flags & btf_mask;
    attrib->ba_attrib_id = static_cast<bn_attribute_id>(hdr.bawh_attrib_id);
    *ret_attrib = attrib;
    attrib = nullptr;

bail:
    bn_attrib_free(&attrib);
    return err;
}

// The value of a byte-swapped fixed type as an unsigned word of its size.
uint64 bn_wire_get_swapped_value(const bn_attrib *attrib, bn_type type)
{
    const bn_value &v = attrib->ba_v;
    switch (type) {
    case bt_uint8:
        return v.bnv_uint8;
    case bt_int8:
        return static_cast<uint8>(v.bnv_int8);
    case bt_char:
        return static_cast<uint8>(v.bnv_char);
    case bt_uint16:
        return v.bnv_uint16;
    case bt_int16:
        return static_cast<uint16>(v.bnv_int16);
    case bt_uint32:
        return v.bnv_uint32;
    case bt_int32:
        return static_cast<uint32>(v.bnv_int32);
    case bt_bool:
        return v.bnv_bool ? 1 : 0;
    case bt_float32: {
        uint32 bits = 0;
        memcpy(&bits, &v.bnv_float32, sizeof(bits));
        return bits;
    }
    case bt_date:
        return static_cast<uint32>(v.bnv_date);
    case bt_time_sec:
        return static_cast<uint32>(v.bnv_time_sec);
    case bt_datetime_sec:
        return static_cast<uint32>(v.bnv_datetime_sec);
    case bt_duration_sec:
        return static_cast<uint32>(v.bnv_duration_sec);
    case bt_btype:
        return v.bnv_btype;
    case bt_attribute:
        return v.bnv_attribute;
    case bt_uint64:
        return v.bnv_uint64;
    case bt_int64:
        return static_cast<uint64>(v.bnv_int64);
    case bt_float64: {
        uint64 bits = 0;
        memcpy(&bits, &v.bnv_float64, sizeof(bits));
        return bits;
    }
    case bt_time_ms:
        return static_cast<uint64>(v.bnv_time_ms);
    case bt_time_us:
        return static_cast<uint64>(v.bnv_time_us);
    case bt_datetime_ms:
        return static_cast<uint64>(v.bnv_datetime_ms);
    case bt_datetime_us:
        return static_cast<uint64>(v.bnv_datetime_us);
    case bt_duration_ms:
        return static_cast<uint64>(v.bnv_duration_ms);
    case bt_duration_us:
        return static_cast<uint64>(v.bnv_duration_us);
    default:
        return 0;
    }
}

// The inverse: stores a word read from the wire into the member of the type.
void bn_wire_set_swapped_value(bn_attrib *attrib, bn_type type, uint64 word)
{
    bn_value &v = attrib->ba_v;
    switch (type) {
    case bt_uint8:
        v.bnv_uint8 = static_cast<uint8>(word);
        break;
    case bt_int8:
        v.bnv_int8 = static_cast<int8>(static_cast<uint8>(word));
        break;
    case bt_char:
        v.bnv_char = static_cast<char>(static_cast<uint8>(word));
        break;
    case bt_uint16:
        v.bnv_uint16 = static_cast<uint16>(word);
        break;
    case bt_int16:
        v.bnv_int16 = static_cast<int16>(static_cast<uint16>(word));
        break;
    case bt_uint32:
        v.bnv_uint32 = static_cast<uint32>(word);
        break;
    case bt_int32:
        v.bnv_int32 = static_cast<int32>(static_cast<uint32>(word));
        break;
    case bt_bool:
        v.bnv_bool = (word != 0);
        break;
    case bt_float32: {
        const uint32 bits = static_cast<uint32>(word);
        memcpy(&v.bnv_float32, &bits, sizeof(bits));
        break;
    }
    case bt_date:
        v.bnv_date = static_cast<lt_time_sec>(static_cast<uint32>(word));
        break;
    case bt_time_sec:
        v.bnv_time_sec = static_cast<lt_time_sec>(static_cast<uint32>(word));
        break;
    case bt_datetime_sec:
        v.bnv_datetime_sec = static_cast<lt_time_sec>(static_cast<uint32>(word));
        break;
    case bt_duration_sec:
        v.bnv_duration_sec = static_cast<lt_dur_sec>(static_cast<uint32>(word));
        break;
    case bt_btype:
        v.bnv_btype = static_cast<uint32>(word);
        break;
    case bt_attribute:
        v.bnv_attribute = static_cast<uint32>(word);
        break;
    case bt_uint64:
        v.bnv_uint64 = word;
        break;
    case bt_int64:
        v.bnv_int64 = static_cast<int64>(word);
        break;
    case bt_float64:
        memcpy(&v.bnv_float64, &word, sizeof(word));
        break;
    case bt_time_ms:
        v.bnv_time_ms = static_cast<lt_time_ms>(word);
        break;
    case bt_time_us:
        v.bnv_time_us = static_cast<lt_time_us>(word);
        break;
    case bt_datetime_ms:
        v.bnv_datetime_ms = static_cast<lt_time_ms>(word);
        break;
    case bt_datetime_us:
        v.bnv_datetime_us = static_cast<lt_time_us>(word);
        break;
    case bt_duration_ms:
        v.bnv_duration_ms = static_cast<lt_dur_ms>(word);
        break;
    case bt_duration_us:
        v.bnv_duration_us = static_cast<lt_dur_us>(word);
        break;
    default:
        break;
    }
}

// The 18 bytes of an inet address: family, then for IPv4 the address and 12 zero bytes,
// otherwise the sixteen address bytes.
int bn_wire_append_inet(tbuf *frame, uint16 family, const uint8 *addr_bytes)
{
    int err = 0;
    static constexpr uint8 zeros[12] = {};

    err = tb_append_uint16(frame, family);
    bail_error(err);
    if (family == AF_INET) {
        err = tb_append_buf(frame, addr_bytes, 4);
        bail_error(err);
        err = tb_append_buf(frame, zeros, sizeof(zeros));
        bail_error(err);
    } else {
        err = tb_append_buf(frame, addr_bytes, 16);
        bail_error(err);
    }

bail:
    return err;
}

// Reads the 18 bytes back; ret_addr_bytes has room for 16 and is left zero beyond an IPv4
// address.
int bn_wire_get_inet(const tbuf *frame, uint32 offset, uint16 *ret_family, uint8 *ret_addr_bytes)
{
    int err = 0;

    err = tb_get_uint16(frame, offset, ret_family);
    bail_error(err);
    memset(ret_addr_bytes, 0, 16);
    err = tb_get_buf(frame, offset + 2, ret_addr_bytes, *ret_family == AF_INET ? 4 : 16);
    bail_error(err);

bail:
    return err;
}

// Whether a type's value goes through the numeric functions.
constexpr bool bn_wire_is_numeric(uint32 t)
{
    return (t >= bt_uint8 && t <= bt_bool) || t == bt_float32 || t == bt_float64 ||
           t == bt_char || (t >= bt_ipv4addr && t <= bt_inetprefix) ||
           (t >= bt_date && t <= bt_duration_us) || t == bt_none || t == bt_btype ||
           t == bt_attribute;
}

constexpr bool bn_wire_is_tstring(uint32 t)
{
    return t == bt_string || t == bt_utf8_string || t == bt_oid || t == bt_link ||
           t == bt_name || (t >= bt_hostname && t <= bt_globpattern);
}

struct bn_attrib_copy_table {
    bn_attrib_copy_record rows[bt_LAST];
};

constexpr bn_attrib_copy_table bn_make_copy_table()
{
    bn_attrib_copy_table table{};
    for (uint32 t = 0; t < bt_LAST; ++t) {
        if (bn_wire_is_numeric(t)) {
            table.rows[t] = {bn_attrib_copyin_numeric, bn_attrib_copyout_numeric};
        } else if (bn_wire_is_tstring(t)) {
            table.rows[t] = {bn_attrib_copyin_tstring, bn_attrib_copyout_tstring};
        } else if (t == bt_binary) {
            table.rows[t] = {bn_attrib_copyin_tbuf, bn_attrib_copyout_tbuf};
        }
    }
    return table;
}

constexpr bn_attrib_copy_table bn_copy_table = bn_make_copy_table();

// The check every out function makes before writing.
int bn_wire_check_out_type(const bn_attrib *attrib, bn_type expected_type)
{
    int err = 0;

    bail_null(attrib);
    if (attrib->ba_type != expected_type) {
        if (lc_enum_to_string_quiet_null(bn_type_map, attrib->ba_type) == nullptr) {
            lc_log_basic(LOG_ERR, "Invalid type %d", static_cast<int>(attrib->ba_type));
        } else {
            lc_log_basic(LOG_ERR, "Attribute of type %s, expected %s",
                         bn_wire_type_name(attrib->ba_type), bn_wire_type_name(expected_type));
        }
        bail_force(lc_err_assertion_failed);
    }

bail:
    return err;
}

}  // namespace

const bn_attrib_copy_record bn_attrib_copy_funcs[bt_LAST] = {
#define BN_ROW(i) bn_copy_table.rows[i]
#define BN_ROW10(i)                                                                      \
    BN_ROW(i), BN_ROW(i + 1), BN_ROW(i + 2), BN_ROW(i + 3), BN_ROW(i + 4), BN_ROW(i + 5), \
        BN_ROW(i + 6), BN_ROW(i + 7), BN_ROW(i + 8), BN_ROW(i + 9)
    BN_ROW10(0),   BN_ROW10(10),  BN_ROW10(20),  BN_ROW10(30),  BN_ROW10(40),
    BN_ROW10(50),  BN_ROW10(60),  BN_ROW10(70),  BN_ROW10(80),  BN_ROW10(90),
    BN_ROW10(100), BN_ROW10(110), BN_ROW10(120), BN_ROW(130),   BN_ROW(131),
    BN_ROW(132),   BN_ROW(133),   BN_ROW(134),
#undef BN_ROW10
#undef BN_ROW
};
static_assert(sizeof(bn_attrib_copy_funcs) / sizeof(bn_attrib_copy_funcs[0]) == 135);

// ---------------------------------------------------------------------------------------
// Fixed types.

int bn_attrib_copyin_numeric(const tbuf *frame, uint32 offset, bn_type expected_type,
                             bn_attrib **ret_attrib, uint32 *ret_offset_incr)
{
    int err = 0;
    bn_attrib_wire_header hdr{};
    uint32 size = 0;
    tbool byte_swap = false;
    bn_external_encoding encoding = bee_none;
    bn_attrib *attrib = nullptr;
    uint32 pos = 0;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    err = bn_attrib_wire_read_header(frame, offset, &hdr);
    bail_error(err);
    if (hdr.bawh_type != static_cast<uint32>(expected_type)) {
        lc_log_basic(LOG_WARNING, "Attribute of type %s, expected %s",
                     bn_wire_type_name(hdr.bawh_type), bn_wire_type_name(expected_type));
    }
    err = bn_type_fixed_size(expected_type, 0, &size, &byte_swap, &encoding);
    bail_error(err);
    if (hdr.bawh_encoding != static_cast<uint32>(encoding) ||
        (encoding != bee_fixedlen_netorder_encoding && encoding != bee_fixedlen_native_encoding)) {
        lc_log_basic(LOG_ERR, "Attribute of type %s with encoding %u",
                     bn_wire_type_name(expected_type), hdr.bawh_encoding);
        bail_force(lc_err_generic_error);
    }
    // The value must lie wholly within the frame; the length word is not consulted, the
    // type's own size is.
    if (static_cast<uint64>(offset) + bn_attrib_wire_header_bytes + size > tb_length(frame)) {
        lc_log_basic(LOG_ERR, "Attribute value of %u bytes runs past the frame end", size);
        bail_force(lc_err_no_buffer_space);
    }
    err = bn_attrib_wire_new_attrib(hdr, expected_type, &attrib);
    bail_error(err);

    pos = offset + bn_attrib_wire_header_bytes;
    switch (expected_type) {
    case bt_ipv4addr:
        err = tb_get_buf(frame, pos, reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv4addr.bi_addr),
                         4);
        bail_error(err);
        break;
    case bt_ipv4prefix:
        err = tb_get_buf(frame, pos,
                         reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv4prefix.bipo_addr), 4);
        bail_error(err);
        err = tb_get_buf(frame, pos + 4,
                         reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv4prefix.bipo_mask), 4);
        bail_error(err);
        break;
    case bt_macaddr802:
        err = tb_get_buf(frame, pos, attrib->ba_v.bnv_macaddr802, bn_macaddr802_len);
        bail_error(err);
        break;
    case bt_ipv6addr:
        err = tb_get_buf(frame, pos,
                         reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv6addr.bi6_addr), 16);
        bail_error(err);
        break;
    case bt_ipv6addrz:
        err = tb_get_buf(frame, pos,
                         reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv6addrz.bi6z_addr), 16);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, pos + 16, &attrib->ba_v.bnv_ipv6addrz.bi6z_zone_id);
        bail_error(err);
        break;
    case bt_ipv6prefix:
        err = tb_get_buf(frame, pos,
                         reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_ipv6prefix.bi6p_addr), 16);
        bail_error(err);
        err = tb_get_uint8(frame, pos + 16, &attrib->ba_v.bnv_ipv6prefix.bi6p_prefix_len);
        bail_error(err);
        break;
    case bt_inetaddr:
        err = bn_wire_get_inet(frame, pos, &attrib->ba_v.bnv_inetaddr.bin_family,
                               reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_inetaddr.bin_addr));
        bail_error(err);
        break;
    case bt_inetaddrz:
        err = bn_wire_get_inet(frame, pos, &attrib->ba_v.bnv_inetaddrz.binz_family,
                               reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_inetaddrz.binz_addr));
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, pos + 18, &attrib->ba_v.bnv_inetaddrz.binz_zone_id);
        bail_error(err);
        break;
    case bt_inetprefix:
        err = bn_wire_get_inet(frame, pos, &attrib->ba_v.bnv_inetprefix.binp_family,
                               reinterpret_cast<uint8 *>(&attrib->ba_v.bnv_inetprefix.binp_addr));
        bail_error(err);
        err = tb_get_uint8(frame, pos + 18, &attrib->ba_v.bnv_inetprefix.binp_prefix_len);
        bail_error(err);
        break;
    default: {
        uint64 word = 0;
        switch (size) {
        case 0:
            break;
        case 1: {
            uint8 v = 0;
            err = tb_get_uint8(frame, pos, &v);
            word = v;
            break;
        }
        case 2: {
            uint16 v = 0;
            err = tb_get_uint16(frame, pos, &v);
            word = v;
            break;
        }
        case 4: {
            uint32 v = 0;
            err = tb_get_uint32_nonnull(frame, pos, &v);
            word = v;
            break;
        }
        case 8:
            err = tb_get_uint64(frame, pos, &word);
            break;
        default:
            bail_force(lc_err_assertion_failed);
        }
        bail_error(err);
        bn_wire_set_swapped_value(attrib, expected_type, word);
        break;
    }
    }

    *ret_attrib = attrib;
    attrib = nullptr;
    *ret_offset_incr = bn_attrib_wire_header_bytes + size;

bail:
    bn_attrib_free(&attrib);
    return err;
}

int bn_attrib_copyout_numeric(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                              uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 size = 0;
    tbool byte_swap = false;
    bn_external_encoding encoding = bee_none;
    const uint32 start = tb_length(frame);
    const bn_value *v = nullptr;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(frame);
    err = bn_wire_check_out_type(attrib, expected_type);
    bail_error(err);
    // Flags play no part in the size: an attribute marked without a value still travels
    // with its (zero) value bytes.
    err = bn_type_fixed_size(expected_type, 0, &size, &byte_swap, &encoding);
    bail_error(err);
    err = bn_attrib_wire_append_header(frame, encoding, attrib);
    bail_error(err);
    err = tb_append_uint32(frame, size);
    bail_error(err);

    v = &attrib->ba_v;
    switch (size) {
    case 0:
        bail_require(byte_swap);
        break;
    case 1:
        bail_require(byte_swap);
        err = tb_append_uint8(frame, static_cast<uint8>(bn_wire_get_swapped_value(attrib, expected_type)));
        bail_error(err);
        break;
    case 2:
        bail_require(byte_swap);
        err = tb_append_uint16(frame,
                               static_cast<uint16>(bn_wire_get_swapped_value(attrib, expected_type)));
        bail_error(err);
        break;
    case 4:
        if (byte_swap) {
            err = tb_append_uint32(
                frame, static_cast<uint32>(bn_wire_get_swapped_value(attrib, expected_type)));
        } else {
            bail_require(expected_type == bt_ipv4addr);
            err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&v->bnv_ipv4addr.bi_addr),
                                4);
        }
        bail_error(err);
        break;
    case 6:
        bail_require(!byte_swap && expected_type == bt_macaddr802);
        err = tb_append_buf(frame, v->bnv_macaddr802, bn_macaddr802_len);
        bail_error(err);
        break;
    case 8:
        if (byte_swap) {
            err = tb_append_uint64(frame, bn_wire_get_swapped_value(attrib, expected_type));
            bail_error(err);
        } else {
            bail_require(expected_type == bt_ipv4prefix);
            err = tb_append_buf(frame,
                                reinterpret_cast<const uint8 *>(&v->bnv_ipv4prefix.bipo_addr), 4);
            bail_error(err);
            err = tb_append_buf(frame,
                                reinterpret_cast<const uint8 *>(&v->bnv_ipv4prefix.bipo_mask), 4);
            bail_error(err);
        }
        break;
    case 16:
        bail_require(!byte_swap && expected_type == bt_ipv6addr);
        err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&v->bnv_ipv6addr.bi6_addr), 16);
        bail_error(err);
        break;
    case 17:
        bail_require(!byte_swap && expected_type == bt_ipv6prefix);
        err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&v->bnv_ipv6prefix.bi6p_addr),
                            16);
        bail_error(err);
        err = tb_append_uint8(frame, v->bnv_ipv6prefix.bi6p_prefix_len);
        bail_error(err);
        break;
    case 18:
        bail_require(!byte_swap && expected_type == bt_inetaddr);
        err = bn_wire_append_inet(frame, v->bnv_inetaddr.bin_family,
                                  reinterpret_cast<const uint8 *>(&v->bnv_inetaddr.bin_addr));
        bail_error(err);
        break;
    case 19:
        bail_require(!byte_swap && expected_type == bt_inetprefix);
        err = bn_wire_append_inet(frame, v->bnv_inetprefix.binp_family,
                                  reinterpret_cast<const uint8 *>(&v->bnv_inetprefix.binp_addr));
        bail_error(err);
        err = tb_append_uint8(frame, v->bnv_inetprefix.binp_prefix_len);
        bail_error(err);
        break;
    case 20:
        bail_require(!byte_swap && expected_type == bt_ipv6addrz);
        err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&v->bnv_ipv6addrz.bi6z_addr),
                            16);
        bail_error(err);
        err = tb_append_uint32(frame, v->bnv_ipv6addrz.bi6z_zone_id);
        bail_error(err);
        break;
    case 22:
        bail_require(!byte_swap && expected_type == bt_inetaddrz);
        err = bn_wire_append_inet(frame, v->bnv_inetaddrz.binz_family,
                                  reinterpret_cast<const uint8 *>(&v->bnv_inetaddrz.binz_addr));
        bail_error(err);
        err = tb_append_uint32(frame, v->bnv_inetaddrz.binz_zone_id);
        bail_error(err);
        break;
    default:
        bail_force(lc_err_assertion_failed);
    }
    *ret_offset_incr = tb_length(frame) - start;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// String types.

int bn_attrib_copyin_tstring(const tbuf *frame, uint32 offset, bn_type expected_type,
                             bn_attrib **ret_attrib, uint32 *ret_offset_incr)
{
    int err = 0;
    bn_attrib_wire_header hdr{};
    bn_attrib *attrib = nullptr;
    tstring *value = nullptr;
    int32 used = 0;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    err = bn_attrib_wire_read_header(frame, offset, &hdr);
    bail_error(err);
    if (hdr.bawh_type != static_cast<uint32>(expected_type)) {
        lc_log_basic(LOG_WARNING, "Attribute of type %s, expected %s",
                     bn_wire_type_name(hdr.bawh_type), bn_wire_type_name(expected_type));
    }
    if (hdr.bawh_encoding != bee_bytestring_encoding) {
        lc_log_basic(LOG_ERR, "Attribute of type %s with encoding %u",
                     bn_wire_type_name(expected_type), hdr.bawh_encoding);
        bail_force(lc_err_generic_error);
    }
    err = bn_attrib_wire_new_attrib(hdr, expected_type, &attrib);
    bail_error(err);
    // The counted string starts at the length word; its reader refuses a length that
    // passes the frame's end.
    err = tb_get_tstr(frame, offset + bn_attrib_wire_length_offset, -1, false, true, true, &value,
                      &used);
    bail_error(err);
    if (expected_type == bt_utf8_string) {
        ts_set_utf8(value, true);
    }
    attrib->ba_v.bnvv_string = value;
    value = nullptr;

    *ret_attrib = attrib;
    attrib = nullptr;
    *ret_offset_incr = bn_attrib_wire_length_offset + static_cast<uint32>(used);

bail:
    ts_free(&value);
    bn_attrib_free(&attrib);
    return err;
}

int bn_attrib_copyout_tstring(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                              uint32 *ret_offset_incr)
{
    int err = 0;
    int32 written = 0;
    const uint32 start = tb_length(frame);

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(frame);
    err = bn_wire_check_out_type(attrib, expected_type);
    bail_error(err);
    err = bn_attrib_wire_append_header(frame, bee_bytestring_encoding, attrib);
    bail_error(err);
    err = tb_append_tstr(frame, false, true, true, attrib->ba_v.bnvv_string, &written);
    bail_error(err);
    *ret_offset_incr = tb_length(frame) - start;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// bt_binary.

int bn_attrib_copyin_tbuf(const tbuf *frame, uint32 offset, bn_type expected_type,
                          bn_attrib **ret_attrib, uint32 *ret_offset_incr)
{
    int err = 0;
    bn_attrib_wire_header hdr{};
    bn_attrib *attrib = nullptr;
    uint32 value_offset = 0;

    bail_null(ret_attrib);
    *ret_attrib = nullptr;
    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    err = bn_attrib_wire_read_header(frame, offset, &hdr);
    bail_error(err);
    if (hdr.bawh_type != static_cast<uint32>(expected_type)) {
        lc_log_basic(LOG_WARNING, "Attribute of type %s, expected %s",
                     bn_wire_type_name(hdr.bawh_type), bn_wire_type_name(expected_type));
    }
    if (hdr.bawh_encoding != bee_bytestring_encoding) {
        lc_log_basic(LOG_ERR, "Attribute of type %s with encoding %u",
                     bn_wire_type_name(expected_type), hdr.bawh_encoding);
        bail_force(lc_err_generic_error);
    }
    value_offset = offset + bn_attrib_wire_header_bytes;
    if (hdr.bawh_length > tb_length(frame) - value_offset) {
        lc_log_basic(LOG_ERR, "Binary attribute of %u bytes with %u bytes left", hdr.bawh_length,
                     tb_length(frame) - value_offset);
        bail_force(lc_err_no_buffer_space);
    }
    err = bn_attrib_wire_new_attrib(hdr, expected_type, &attrib);
    bail_error(err);
    // The new buffer keeps its terminating zero byte beyond the data.
    err = tb_new_buf(&attrib->ba_v.bnvv_binary, tb_buf(frame) + value_offset,
                     static_cast<int32>(hdr.bawh_length));
    bail_error(err);

    *ret_attrib = attrib;
    attrib = nullptr;
    *ret_offset_incr = bn_attrib_wire_header_bytes + hdr.bawh_length;

bail:
    bn_attrib_free(&attrib);
    return err;
}

int bn_attrib_copyout_tbuf(const bn_attrib *attrib, bn_type expected_type, tbuf *frame,
                           uint32 *ret_offset_incr)
{
    int err = 0;
    const uint32 start = tb_length(frame);
    const tbuf *value = nullptr;
    uint32 len = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(frame);
    err = bn_wire_check_out_type(attrib, expected_type);
    bail_error(err);
    value = attrib->ba_v.bnvv_binary;
    len = tb_length(value);
    err = bn_attrib_wire_append_header(frame, bee_bytestring_encoding, attrib);
    bail_error(err);
    err = tb_append_uint32(frame, len);
    bail_error(err);
    if (len > 0) {
        err = tb_append_buf(frame, tb_buf(value), static_cast<int32>(len));
        bail_error(err);
    }
    *ret_offset_incr = tb_length(frame) - start;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Sizes and peeks.

int bn_attrib_fixed_size(bn_type type, bn_type_flags_bf type_flags, uint32 *ret_num_bytes)
{
    int err = 0;
    uint32 size = 0;

    bail_null(ret_num_bytes);
    *ret_num_bytes = 0;
    err = bn_type_fixed_size(type, type_flags, &size, nullptr, nullptr);
    bail_error_quiet(err);
    *ret_num_bytes = size + bn_attrib_wire_header_bytes;

bail:
    return err;
}

int bn_type_extract_attrib_id(const tbuf *frame, uint32 offset, uint32 *ret_attrib_id)
{
    int err = 0;

    bail_null(ret_attrib_id);
    *ret_attrib_id = 0;
    if (static_cast<uint64>(offset) + bn_attrib_wire_attrib_id_offset > UINT32_MAX) {
        bail_force(lc_err_no_buffer_space);
    }
    err = tb_get_uint32_nonnull(frame, offset + bn_attrib_wire_attrib_id_offset, ret_attrib_id);
    bail_error(err);

bail:
    return err;
}

int bn_type_extract_btype(const tbuf *frame, uint32 offset, uint32 *ret_btype,
                          uint32 *ret_type_flags)
{
    int err = 0;
    uint32 btype = 0;
    uint32 flags = 0;

    if (ret_btype) {
        *ret_btype = 0;
    }
    if (ret_type_flags) {
        *ret_type_flags = 0;
    }
    if (static_cast<uint64>(offset) + bn_attrib_wire_type_flags_offset > UINT32_MAX) {
        bail_force(lc_err_no_buffer_space);
    }
    err = tb_get_uint32_nonnull(frame, offset + bn_attrib_wire_type_offset, &btype);
    bail_error(err);
    err = tb_get_uint32_nonnull(frame, offset + bn_attrib_wire_type_flags_offset, &flags);
    bail_error(err);
    if (ret_btype) {
        *ret_btype = btype;
    }
    if (ret_type_flags) {
        *ret_type_flags = flags;
    }

bail:
    return err;
}

int bn_type_extract_attrib_len(const tbuf *frame, uint32 offset, uint32 *ret_attrib_len)
{
    int err = 0;

    bail_null(ret_attrib_len);
    *ret_attrib_len = 0;
    if (static_cast<uint64>(offset) + bn_attrib_wire_length_offset > UINT32_MAX) {
        bail_force(lc_err_no_buffer_space);
    }
    err = tb_get_uint32_nonnull(frame, offset + bn_attrib_wire_length_offset, ret_attrib_len);
    bail_error(err);

bail:
    return err;
}
