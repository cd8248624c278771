// Network address types: parsing, printing, masks.

#include "addr_utils.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "logging.h"

const bn_inetaddr lia_inetaddr_ipv6addr_any = {AF_INET6, {}};
const bn_inetaddrz lia_inetaddrz_ipv6addrz_any = {AF_INET6, {}, 0};
const bn_inetprefix lia_inetprefix_ipv6prefix_any = {AF_INET6, {}, 0};

namespace {

// Buffers for printing: an IPv6 address, and one with "%" and a 32-bit zone after it.
constexpr size_t lia_ipv6_print_size = 46;
constexpr size_t lia_ipv6z_print_size = 57;
// An IPv6 address with "/" and three digits.
constexpr size_t lia_ipv6_prefix_print_size = lia_ipv6_print_size + 4;

tbool lia_all_digits(const char *str)
{
    if (str == nullptr || *str == '\0') {
        return false;
    }
    for (const char *p = str; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') {
            return false;
        }
    }
    return true;
}

// Copies the len bytes at str into buf (of buf_size bytes) and terminates them; false when
// they do not fit within max_len.
tbool lia_copy_part(const char *str, size_t len, size_t max_len, char *buf, size_t buf_size)
{
    if (len > max_len || len >= buf_size) {
        return false;
    }
    memcpy(buf, str, len);
    buf[len] = '\0';
    return true;
}

// A prefix length: at least one character, digits only, not above max_len.
tbool lia_parse_masklen(const char *len_str, uint32 max_len, uint8 *ret_len)
{
    unsigned long value = 0;

    if (!lia_all_digits(len_str)) {
        return false;
    }
    errno = 0;
    value = strtoul(len_str, nullptr, 10);
    if (errno != 0 || value > max_len) {
        return false;
    }
    *ret_len = static_cast<uint8>(value);
    return true;
}

// A zone id: at least one character, digits only, fitting 32 bits.
tbool lia_parse_zone(const char *zone_str, uint32 *ret_zone)
{
    unsigned long long value = 0;

    if (!lia_all_digits(zone_str)) {
        return false;
    }
    errno = 0;
    value = strtoull(zone_str, nullptr, 10);
    if (errno != 0 || value > UINT32_MAX) {
        return false;
    }
    *ret_zone = static_cast<uint32>(value);
    return true;
}

// The address text of len bytes at str as IPv4 (when allowed) or else IPv6; which one took
// goes to *ret_family.
tbool lia_parse_either(const char *str, size_t len, tbool allow_v4, tbool allow_v6,
                       uint16 *ret_family, void *ret_addr)
{
    char buf[lia_ipv6addr_str_max_len + 1];

    if (allow_v4 && lia_copy_part(str, len, lia_ipv4addr_str_max_len, buf, sizeof(buf)) &&
        inet_pton(AF_INET, buf, ret_addr) >= 1) {
        *ret_family = AF_INET;
        return true;
    }
    if (allow_v6 && lia_copy_part(str, len, lia_ipv6addr_str_max_len, buf, sizeof(buf)) &&
        inet_pton(AF_INET6, buf, ret_addr) >= 1) {
        *ret_family = AF_INET6;
        return true;
    }
    return false;
}

// "addr/len" for the families allowed.  The address is stored at ret_addr (room for an
// in6_addr), and must have no bit set below the length.
tbool lia_parse_prefix(const char *addr_str, tbool allow_v4, tbool allow_v6,
                       uint16 *ret_family, void *ret_addr, uint8 *ret_len);

void lia_ipv4_mask(uint32 masklen, in_addr *ret_mask)
{
    const uint32 host_mask = masklen >= 32 ? 0 : (0xFFFFFFFFu >> masklen);
    ret_mask->s_addr = htonl(~host_mask);
}

void lia_ipv6_mask(uint32 masklen, in6_addr *ret_mask)
{
    for (uint32 i = 0; i < 16; ++i) {
        const uint32 bits_before = 8 * i;
        uint8 byte = 0;
        if (masklen >= bits_before + 8) {
            byte = 0xFF;
        } else if (masklen > bits_before) {
            byte = static_cast<uint8>(0xFF << (8 - (masklen - bits_before)));
        }
        ret_mask->s6_addr[i] = byte;
    }
}

// The number of leading one bits of a mask of num_bytes bytes, or -1 when a one bit
// follows a zero bit.
int lia_mask_bytes_to_len(const uint8 *mask, uint32 num_bytes)
{
    int len = 0;
    tbool seen_zero = false;

    for (uint32 i = 0; i < num_bytes; ++i) {
        for (int bit = 7; bit >= 0; --bit) {
            const tbool one = ((mask[i] >> bit) & 1) != 0;
            if (one && seen_zero) {
                return -1;
            }
            if (one) {
                ++len;
            } else {
                seen_zero = true;
            }
        }
    }
    return len;
}

void lia_bytes_op(const uint8 *a, const uint8 *b, uint32 num_bytes, lia_bits_op op,
                  uint8 *ret)
{
    for (uint32 i = 0; i < num_bytes; ++i) {
        switch (op) {
        case lbo_and:
            ret[i] = a[i] & b[i];
            break;
        case lbo_or:
            ret[i] = a[i] | b[i];
            break;
        case lbo_xor:
            ret[i] = a[i] ^ b[i];
            break;
        case lbo_and_not:
            ret[i] = a[i] & static_cast<uint8>(~b[i]);
            break;
        case lbo_none:
        default:
            ret[i] = a[i];
            break;
        }
    }
}

tbool lia_op_known(lia_bits_op op)
{
    return op == lbo_none || op == lbo_and || op == lbo_or || op == lbo_xor ||
           op == lbo_and_not;
}

tbool lia_bytes_are_zero(const uint8 *bytes, uint32 num_bytes)
{
    for (uint32 i = 0; i < num_bytes; ++i) {
        if (bytes[i] != 0) {
            return false;
        }
    }
    return true;
}

uint32 lia_family_max_masklen(uint16 family)
{
    return family == AF_INET ? lia_ipv4_max_masklen : lia_ipv6_max_masklen;
}

uint32 lia_family_bytes(uint16 family)
{
    return family == AF_INET ? sizeof(in_addr) : sizeof(in6_addr);
}

tbool lia_family_ok(uint16 family)
{
    return family == AF_INET || family == AF_INET6;
}

tbool lia_parse_prefix(const char *addr_str, tbool allow_v4, tbool allow_v6,
                       uint16 *ret_family, void *ret_addr, uint8 *ret_len)
{
    const char *delim = strchr(addr_str, lia_inetprefix_delim_char);
    in6_addr mask = {};
    uint16 family = 0;
    uint8 len = 0;

    if (delim == nullptr) {
        return false;
    }
    if (!lia_parse_either(addr_str, static_cast<size_t>(delim - addr_str), allow_v4, allow_v6,
                          &family, ret_addr)) {
        return false;
    }
    if (!lia_parse_masklen(delim + 1, lia_family_max_masklen(family), &len)) {
        return false;
    }
    // No host bit may be set: "10.0.0.1/24" is an address, not a prefix.
    if (family == AF_INET) {
        lia_ipv4_mask(len, reinterpret_cast<in_addr *>(&mask));
    } else {
        lia_ipv6_mask(len, &mask);
    }
    const uint8 *addr_bytes = static_cast<const uint8 *>(ret_addr);
    for (uint32 i = 0; i < lia_family_bytes(family); ++i) {
        if ((addr_bytes[i] & static_cast<uint8>(~mask.s6_addr[i])) != 0) {
            return false;
        }
    }
    *ret_family = family;
    *ret_len = len;
    return true;
}

// "addr" or "addr%zone", for the families allowed.
tbool lia_parse_addrz(const char *addr_str, tbool allow_v4, uint16 *ret_family,
                      void *ret_addr, uint32 *ret_zone)
{
    const char *delim = strchr(addr_str, lia_inet_zone_id_delim_char);

    if (delim == nullptr) {
        *ret_zone = 0;
        return lia_parse_either(addr_str, strlen(addr_str), allow_v4, true, ret_family,
                                ret_addr);
    }
    return lia_parse_zone(delim + 1, ret_zone) &&
           lia_parse_either(addr_str, static_cast<size_t>(delim - addr_str), allow_v4, true,
                            ret_family, ret_addr);
}

// Hands out a heap copy of a printed text.
int lia_hand_out(const char *text, char **ret_str)
{
    int err = 0;

    *ret_str = strdup(text);
    bail_null(*ret_str);

bail:
    return err;
}

int lia_print_ipv4(const in_addr *addr, char **ret_str)
{
    char buf[lia_ipv4addr_str_max_len];
    const auto *b = reinterpret_cast<const uint8 *>(&addr->s_addr);

    snprintf(buf, sizeof(buf), "%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
    return lia_hand_out(buf, ret_str);
}

// Prints an IPv6 address into buf (of at least lia_ipv6_print_size bytes).
int lia_format_ipv6(const in6_addr *addr, char *buf, size_t buf_size)
{
    int err = 0;

    if (inet_ntop(AF_INET6, addr, buf, static_cast<socklen_t>(buf_size)) == nullptr) {
        bail_errno(lc_err_unexpected_case, "inet_ntop");
    }

bail:
    return err;
}

int lia_print_ipv6(const in6_addr *addr, char **ret_str)
{
    int err = 0;
    char buf[lia_ipv6_print_size];

    err = lia_format_ipv6(addr, buf, sizeof(buf));
    bail_error(err);
    err = lia_hand_out(buf, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_print_ipv6z(const in6_addr *addr, uint32 zone, char **ret_str)
{
    int err = 0;
    char buf[lia_ipv6z_print_size];
    size_t len = 0;

    err = lia_format_ipv6(addr, buf, lia_ipv6_print_size);
    bail_error(err);
    len = strlen(buf);
    snprintf(buf + len, sizeof(buf) - len, "%c%u", lia_inet_zone_id_delim_char, zone);
    err = lia_hand_out(buf, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_print_ipv4_prefix(const in_addr *addr, uint8 len, char **ret_str)
{
    char buf[lia_ipv4addr_str_max_len + 4];
    const auto *b = reinterpret_cast<const uint8 *>(&addr->s_addr);

    snprintf(buf, sizeof(buf), "%u.%u.%u.%u%c%u", b[0], b[1], b[2], b[3],
             lc_ipv4prefix_delim_char, static_cast<unsigned>(len));
    return lia_hand_out(buf, ret_str);
}

int lia_print_ipv6_prefix(const in6_addr *addr, uint8 len, char **ret_str)
{
    int err = 0;
    char buf[lia_ipv6_prefix_print_size];
    size_t text_len = 0;

    err = lia_format_ipv6(addr, buf, lia_ipv6_print_size);
    bail_error(err);
    text_len = strlen(buf);
    snprintf(buf + text_len, sizeof(buf) - text_len, "%c%u", lia_inetprefix_delim_char,
             static_cast<unsigned>(len));
    err = lia_hand_out(buf, ret_str);
    bail_error(err);

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Parsing.

int lia_str_to_ipv4addr(const char *addr_str, bn_ipv4addr *ret_addr)
{
    int err = 0;

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(addr_str);
    if (inet_pton(AF_INET, addr_str, &ret_addr->bi_addr) < 1) {
        memset(ret_addr, 0, sizeof(*ret_addr));
        err = lc_err_bad_type;
        goto bail;
    }

bail:
    return err;
}

int lia_str_to_ipv6addr(const char *addr_str, bn_ipv6addr *ret_addr)
{
    int err = 0;

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(addr_str);
    if (inet_pton(AF_INET6, addr_str, &ret_addr->bi6_addr) < 1) {
        memset(ret_addr, 0, sizeof(*ret_addr));
        err = lc_err_bad_type;
        goto bail;
    }

bail:
    return err;
}

int lia_str_to_ipv6addrz(const char *addr_str, bn_ipv6addrz *ret_addrz)
{
    int err = 0;
    uint16 family = 0;
    bn_ipv6addrz addrz = {};

    bail_null(ret_addrz);
    memset(ret_addrz, 0, sizeof(*ret_addrz));
    bail_null(addr_str);
    if (!lia_parse_addrz(addr_str, false, &family, &addrz.bi6z_addr, &addrz.bi6z_zone_id)) {
        err = lc_err_bad_type;
        goto bail;
    }
    *ret_addrz = addrz;

bail:
    return err;
}

int lia_str_to_ipv4prefix(const char *addr_str, bn_ipv4prefix *ret_prefix)
{
    int err = 0;
    uint16 family = 0;
    in6_addr addr = {};
    uint8 len = 0;

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    bail_null(addr_str);
    if (!lia_parse_prefix(addr_str, true, false, &family, &addr, &len)) {
        err = lc_err_bad_type;
        goto bail;
    }
    memcpy(&ret_prefix->bip_addr, &addr, sizeof(ret_prefix->bip_addr));
    ret_prefix->bip_prefix_len = len;

bail:
    return err;
}

int lia_str_to_ipv6prefix(const char *addr_str, bn_ipv6prefix *ret_prefix)
{
    int err = 0;
    uint16 family = 0;
    in6_addr addr = {};
    uint8 len = 0;

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    bail_null(addr_str);
    if (!lia_parse_prefix(addr_str, false, true, &family, &addr, &len)) {
        err = lc_err_bad_type;
        goto bail;
    }
    ret_prefix->bi6p_addr = addr;
    ret_prefix->bi6p_prefix_len = len;

bail:
    return err;
}

int lia_str_to_inetaddr(const char *addr_str, bn_inetaddr *ret_addr)
{
    int err = 0;
    bn_inetaddr addr = {};

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(addr_str);
    if (inet_pton(AF_INET, addr_str, &addr.bin_addr.bina_in4) >= 1) {
        addr.bin_family = AF_INET;
    } else if (inet_pton(AF_INET6, addr_str, &addr.bin_addr.bina_in6) >= 1) {
        addr.bin_family = AF_INET6;
    } else {
        err = lc_err_bad_type;
        goto bail;
    }
    *ret_addr = addr;

bail:
    return err;
}

int lia_str_to_inetaddrz(const char *addr_str, bn_inetaddrz *ret_addrz)
{
    int err = 0;
    bn_inetaddrz addrz = {};

    bail_null(ret_addrz);
    memset(ret_addrz, 0, sizeof(*ret_addrz));
    bail_null(addr_str);
    if (!lia_parse_addrz(addr_str, true, &addrz.binz_family, &addrz.binz_addr,
                         &addrz.binz_zone_id)) {
        err = lc_err_bad_type;
        goto bail;
    }
    *ret_addrz = addrz;

bail:
    return err;
}

int lia_str_to_inetprefix(const char *addr_str, bn_inetprefix *ret_prefix)
{
    int err = 0;
    bn_inetprefix prefix = {};

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    bail_null(addr_str);
    if (!lia_parse_prefix(addr_str, true, true, &prefix.binp_family, &prefix.binp_addr,
                          &prefix.binp_prefix_len)) {
        err = lc_err_bad_type;
        goto bail;
    }
    *ret_prefix = prefix;

bail:
    return err;
}

tbool lia_str_is_ipv4addr(const char *addr_str)
{
    in_addr addr = {};
    return addr_str != nullptr && inet_pton(AF_INET, addr_str, &addr) >= 1;
}

tbool lia_str_is_ipv6addr(const char *addr_str)
{
    in6_addr addr = {};
    return addr_str != nullptr && inet_pton(AF_INET6, addr_str, &addr) >= 1;
}

// ---------------------------------------------------------------------------------------
// Printing.

int lia_ipv4addr_to_str(const bn_ipv4addr *addr, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(addr);
    err = lia_print_ipv4(&addr->bi_addr, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_ipv6addr_to_str(const bn_ipv6addr *addr, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(addr);
    err = lia_print_ipv6(&addr->bi6_addr, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_ipv6addrz_to_str(const bn_ipv6addrz *addrz, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(addrz);
    err = lia_print_ipv6z(&addrz->bi6z_addr, addrz->bi6z_zone_id, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_ipv4prefix_to_str(const bn_ipv4prefix *prefix, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(prefix);
    err = lia_print_ipv4_prefix(&prefix->bip_addr, prefix->bip_prefix_len, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_ipv6prefix_to_str(const bn_ipv6prefix *prefix, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(prefix);
    err = lia_print_ipv6_prefix(&prefix->bi6p_addr, prefix->bi6p_prefix_len, ret_str);
    bail_error(err);

bail:
    return err;
}

int lia_inetaddr_to_str(const bn_inetaddr *addr, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(addr);
    if (addr->bin_family == AF_INET) {
        err = lia_print_ipv4(&addr->bin_addr.bina_in4, ret_str);
    } else if (addr->bin_family == AF_INET6) {
        err = lia_print_ipv6(&addr->bin_addr.bina_in6, ret_str);
    } else {
        bail_force(lc_err_bad_type);
    }
    bail_error(err);

bail:
    return err;
}

int lia_inetaddrz_to_str(const bn_inetaddrz *addrz, char **ret_str)
{
    int err = 0;
    char *addr_text = nullptr;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(addrz);
    if (addrz->binz_family == AF_INET6) {
        err = lia_print_ipv6z(&addrz->binz_addr.binza_in6, addrz->binz_zone_id, ret_str);
        bail_error(err);
    } else if (addrz->binz_family == AF_INET) {
        if (addrz->binz_zone_id == 0) {
            err = lia_print_ipv4(&addrz->binz_addr.binza_in4, ret_str);
            bail_error(err);
        } else {
            char buf[lia_ipv4addr_str_max_len + 12];
            err = lia_print_ipv4(&addrz->binz_addr.binza_in4, &addr_text);
            bail_error(err);
            snprintf(buf, sizeof(buf), "%s%c%u", addr_text, lia_inet_zone_id_delim_char,
                     addrz->binz_zone_id);
            err = lia_hand_out(buf, ret_str);
            bail_error(err);
        }
    } else {
        bail_force(lc_err_bad_type);
    }

bail:
    free(addr_text);
    return err;
}

int lia_inetprefix_to_str(const bn_inetprefix *prefix, char **ret_str)
{
    int err = 0;

    bail_null(ret_str);
    *ret_str = nullptr;
    bail_null(prefix);
    if (prefix->binp_family == AF_INET) {
        err = lia_print_ipv4_prefix(&prefix->binp_addr.binpa_in4, prefix->binp_prefix_len,
                                    ret_str);
    } else if (prefix->binp_family == AF_INET6) {
        err = lia_print_ipv6_prefix(&prefix->binp_addr.binpa_in6, prefix->binp_prefix_len,
                                    ret_str);
    } else {
        bail_force(lc_err_bad_type);
    }
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Masks.

int lia_masklen_to_ipv4addr(uint8 masklen, bn_ipv4addr *ret_mask)
{
    int err = 0;

    bail_null(ret_mask);
    memset(ret_mask, 0, sizeof(*ret_mask));
    if (masklen > lia_ipv4_max_masklen) {
        bail_force(lc_err_bad_type);
    }
    lia_ipv4_mask(masklen, &ret_mask->bi_addr);

bail:
    return err;
}

int lia_ipv4addr_to_masklen(const bn_ipv4addr *mask, uint8 *ret_masklen)
{
    int err = 0;
    int len = 0;

    bail_null(ret_masklen);
    *ret_masklen = 0;
    bail_null(mask);
    len = lia_mask_bytes_to_len(reinterpret_cast<const uint8 *>(&mask->bi_addr),
                                sizeof(mask->bi_addr));
    if (len < 0) {
        bail_force(lc_err_bad_type);
    }
    *ret_masklen = static_cast<uint8>(len);

bail:
    return err;
}

int lia_masklen_to_ipv6addr(uint8 masklen, bn_ipv6addr *ret_mask)
{
    int err = 0;

    bail_null(ret_mask);
    memset(ret_mask, 0, sizeof(*ret_mask));
    if (masklen > lia_ipv6_max_masklen) {
        bail_force(lc_err_bad_type);
    }
    lia_ipv6_mask(masklen, &ret_mask->bi6_addr);

bail:
    return err;
}

int lia_ipv6addr_to_masklen(const bn_ipv6addr *mask, uint8 *ret_masklen)
{
    int err = 0;
    int len = 0;

    bail_null(ret_masklen);
    *ret_masklen = 0;
    bail_null(mask);
    len = lia_mask_bytes_to_len(mask->bi6_addr.s6_addr, sizeof(mask->bi6_addr));
    if (len < 0) {
        bail_force(lc_err_bad_type);
    }
    *ret_masklen = static_cast<uint8>(len);

bail:
    return err;
}

int lia_masklen_to_inetaddr(uint16 family, uint8 masklen, bn_inetaddr *ret_mask)
{
    int err = 0;

    bail_null(ret_mask);
    memset(ret_mask, 0, sizeof(*ret_mask));
    if (!lia_family_ok(family) || masklen > lia_family_max_masklen(family)) {
        bail_force(lc_err_bad_type);
    }
    ret_mask->bin_family = family;
    if (family == AF_INET) {
        lia_ipv4_mask(masklen, &ret_mask->bin_addr.bina_in4);
    } else {
        lia_ipv6_mask(masklen, &ret_mask->bin_addr.bina_in6);
    }

bail:
    return err;
}

int lia_ipv4addr_bitop_ipv4addr(const bn_ipv4addr *a, const bn_ipv4addr *b, lia_bits_op op,
                                bn_ipv4addr *ret_addr)
{
    int err = 0;
    bn_ipv4addr result = {};

    bail_null(ret_addr);
    bail_null(a);
    bail_null(b);
    bail_require(lia_op_known(op));
    lia_bytes_op(reinterpret_cast<const uint8 *>(&a->bi_addr),
                 reinterpret_cast<const uint8 *>(&b->bi_addr), sizeof(in_addr), op,
                 reinterpret_cast<uint8 *>(&result.bi_addr));
    *ret_addr = result;

bail:
    return err;
}

int lia_ipv4addr_bitop_masklen(const bn_ipv4addr *a, uint8 masklen, lia_bits_op op,
                               bn_ipv4addr *ret_addr)
{
    int err = 0;
    bn_ipv4addr mask = {};

    bail_null(ret_addr);
    bail_null(a);
    err = lia_masklen_to_ipv4addr(masklen, &mask);
    bail_error(err);
    err = lia_ipv4addr_bitop_ipv4addr(a, &mask, op, ret_addr);
    bail_error(err);

bail:
    return err;
}

int lia_ipv6addr_bitop_ipv6addr(const bn_ipv6addr *a, const bn_ipv6addr *b, lia_bits_op op,
                                bn_ipv6addr *ret_addr)
{
    int err = 0;
    bn_ipv6addr result = {};

    bail_null(ret_addr);
    bail_null(a);
    bail_null(b);
    bail_require(lia_op_known(op));
    lia_bytes_op(a->bi6_addr.s6_addr, b->bi6_addr.s6_addr, sizeof(in6_addr), op,
                 result.bi6_addr.s6_addr);
    *ret_addr = result;

bail:
    return err;
}

int lia_ipv6addr_bitop_masklen(const bn_ipv6addr *a, uint8 masklen, lia_bits_op op,
                               bn_ipv6addr *ret_addr)
{
    int err = 0;
    bn_ipv6addr mask = {};

    bail_null(ret_addr);
    bail_null(a);
    err = lia_masklen_to_ipv6addr(masklen, &mask);
    bail_error(err);
    err = lia_ipv6addr_bitop_ipv6addr(a, &mask, op, ret_addr);
    bail_error(err);

bail:
    return err;
}

int lia_inetaddr_bitop_inetaddr(const bn_inetaddr *a, const bn_inetaddr *b, lia_bits_op op,
                                bn_inetaddr *ret_addr)
{
    int err = 0;
    bn_inetaddr result = {};

    bail_null(ret_addr);
    bail_null(a);
    bail_null(b);
    bail_require(lia_op_known(op));
    if (!lia_family_ok(a->bin_family) || a->bin_family != b->bin_family) {
        bail_force(lc_err_bad_type);
    }
    result.bin_family = a->bin_family;
    lia_bytes_op(reinterpret_cast<const uint8 *>(&a->bin_addr),
                 reinterpret_cast<const uint8 *>(&b->bin_addr),
                 lia_family_bytes(a->bin_family), op,
                 reinterpret_cast<uint8 *>(&result.bin_addr));
    *ret_addr = result;

bail:
    return err;
}

int lia_inetaddr_bitop_masklen(const bn_inetaddr *a, uint8 masklen, lia_bits_op op,
                               bn_inetaddr *ret_addr)
{
    int err = 0;
    bn_inetaddr mask = {};

    bail_null(ret_addr);
    bail_null(a);
    err = lia_masklen_to_inetaddr(a->bin_family, masklen, &mask);
    bail_error(err);
    err = lia_inetaddr_bitop_inetaddr(a, &mask, op, ret_addr);
    bail_error(err);

bail:
    return err;
}

int lia_ipv4addr_masklen_to_ipv4prefix(const bn_ipv4addr *addr, uint8 masklen,
                                       bn_ipv4prefix *ret_prefix)
{
    int err = 0;
    bn_ipv4addr net = {};

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    err = lia_ipv4addr_bitop_masklen(addr, masklen, lbo_and, &net);
    bail_error(err);
    ret_prefix->bip_addr = net.bi_addr;
    ret_prefix->bip_prefix_len = masklen;

bail:
    return err;
}

int lia_ipv6addr_masklen_to_ipv6prefix(const bn_ipv6addr *addr, uint8 masklen,
                                       bn_ipv6prefix *ret_prefix)
{
    int err = 0;
    bn_ipv6addr net = {};

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    err = lia_ipv6addr_bitop_masklen(addr, masklen, lbo_and, &net);
    bail_error(err);
    ret_prefix->bi6p_addr = net.bi6_addr;
    ret_prefix->bi6p_prefix_len = masklen;

bail:
    return err;
}

int lia_inetaddr_masklen_to_inetprefix(const bn_inetaddr *addr, uint8 masklen,
                                       bn_inetprefix *ret_prefix)
{
    int err = 0;
    bn_inetaddr net = {};

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    err = lia_inetaddr_bitop_masklen(addr, masklen, lbo_and, &net);
    bail_error(err);
    ret_prefix->binp_family = net.bin_family;
    memcpy(&ret_prefix->binp_addr, &net.bin_addr, sizeof(ret_prefix->binp_addr));
    ret_prefix->binp_prefix_len = masklen;

bail:
    return err;
}

int lia_inaddr_to_ipv4addr(const in_addr *inaddr, bn_ipv4addr *ret_addr)
{
    int err = 0;

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(inaddr);
    ret_addr->bi_addr = *inaddr;

bail:
    return err;
}

int lia_inaddr_mask_to_ipv4prefix(const in_addr *inaddr, const in_addr *mask,
                                  bn_ipv4prefix *ret_prefix)
{
    int err = 0;
    bn_ipv4addr addr = {};
    bn_ipv4addr mask_addr = {};
    uint8 masklen = 0;

    bail_null(ret_prefix);
    memset(ret_prefix, 0, sizeof(*ret_prefix));
    bail_null(inaddr);
    bail_null(mask);
    addr.bi_addr = *inaddr;
    mask_addr.bi_addr = *mask;
    err = lia_ipv4addr_to_masklen(&mask_addr, &masklen);
    bail_error(err);
    err = lia_ipv4addr_masklen_to_ipv4prefix(&addr, masklen, ret_prefix);
    bail_error(err);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Quick tests and accessors.

tbool lia_ipv4addr_is_zero_quick(const bn_ipv4addr *addr)
{
    return addr->bi_addr.s_addr == 0;
}

tbool lia_ipv6addr_is_zero_quick(const bn_ipv6addr *addr)
{
    return lia_bytes_are_zero(addr->bi6_addr.s6_addr, sizeof(addr->bi6_addr));
}

tbool lia_inetaddr_is_zero_quick(const bn_inetaddr *addr)
{
    if (addr->bin_family == AF_INET) {
        return addr->bin_addr.bina_in4.s_addr == 0;
    }
    if (addr->bin_family == AF_INET6) {
        return lia_bytes_are_zero(addr->bin_addr.bina_in6.s6_addr, sizeof(in6_addr));
    }
    return true;
}

uint16 lia_inetaddr_get_family_quick(const bn_inetaddr *addr)
{
    return addr->bin_family;
}

int lia_inetaddr_get_ipv4addr(const bn_inetaddr *addr, bn_ipv4addr *ret_addr)
{
    int err = 0;

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(addr);
    if (addr->bin_family != AF_INET) {
        bail_force(lc_err_bad_type);
    }
    ret_addr->bi_addr = addr->bin_addr.bina_in4;

bail:
    return err;
}

int lia_inetaddr_get_ipv6addr(const bn_inetaddr *addr, bn_ipv6addr *ret_addr)
{
    int err = 0;

    bail_null(ret_addr);
    memset(ret_addr, 0, sizeof(*ret_addr));
    bail_null(addr);
    if (addr->bin_family != AF_INET6) {
        bail_force(lc_err_bad_type);
    }
    ret_addr->bi6_addr = addr->bin_addr.bina_in6;

bail:
    return err;
}
