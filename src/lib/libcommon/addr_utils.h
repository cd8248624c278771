// Network address types and their text forms: IPv4 and IPv6 addresses, IPv6 addresses
// with a zone id, prefixes, and the family-tagged "inet" forms that hold either.
//
// All are plain records passed by value, holding addresses in network byte order.  The
// parsers take text such as "10.0.0.0/8" or "fe80::1%4"; text that does not parse gives
// lc_err_bad_type (14022) without a log line, while a null argument gives
// lc_err_unexpected_null, logged.  The printers hand out a heap string that the caller
// frees with free().
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include "common.h"

struct bn_ipv4addr {
    in_addr bi_addr;
};

struct bn_ipv6addr {
    in6_addr bi6_addr;
};

struct bn_ipv6addrz {
    in6_addr bi6z_addr;
    uint32 bi6z_zone_id;
};

struct bn_ipv4prefix {
    in_addr bip_addr;
    uint8 bip_prefix_len;
};

struct bn_ipv6prefix {
    in6_addr bi6p_addr;
    uint8 bi6p_prefix_len;
};

// Family: AF_INET (2) or AF_INET6 (10).
struct bn_inetaddr {
    uint16 bin_family;
    union {
        in_addr bina_in4;
        in6_addr bina_in6;
    } bin_addr;
};

struct bn_inetaddrz {
    uint16 binz_family;
    union {
        in_addr binza_in4;
        in6_addr binza_in6;
    } binz_addr;
    uint32 binz_zone_id;
};

struct bn_inetprefix {
    uint16 binp_family;
    union {
        in_addr binpa_in4;
        in6_addr binpa_in6;
    } binp_addr;
    uint8 binp_prefix_len;
};

// The prefix length follows this character, the zone id follows the other.
static constexpr char lc_ipv4prefix_delim_char = '/';
static constexpr char lia_inetprefix_delim_char = '/';
static constexpr char lia_inet_zone_id_delim_char = '%';

// Longest text of an address (without its terminating zero) that the parsers look at.
static constexpr uint32 lia_ipv4addr_str_max_len = 16;
static constexpr uint32 lia_ipv6addr_str_max_len = 46;
static constexpr uint32 lia_ipv4_max_masklen = 32;
static constexpr uint32 lia_ipv6_max_masklen = 128;

// The IPv6 "any" address (::) in each inet form, zone and prefix length 0.
extern const bn_inetaddr lia_inetaddr_ipv6addr_any;
extern const bn_inetaddrz lia_inetaddrz_ipv6addrz_any;
extern const bn_inetprefix lia_inetprefix_ipv6prefix_any;

// The bitwise operations of the _bitop_ functions: the result is `a op b`.
enum lia_bits_op {
    lbo_none = 0,
    lbo_and = 1,
    lbo_or = 2,
    lbo_xor = 3,
    lbo_and_not = 4,  // a AND (NOT b): clears the bits of b
};

// ---------------------------------------------------------------------------------------
// Parsing.  The result is zero-filled first, so no stale bytes remain in a union.

int lia_str_to_ipv4addr(const char *addr_str, bn_ipv4addr *ret_addr);
int lia_str_to_ipv6addr(const char *addr_str, bn_ipv6addr *ret_addr);
// "addr" or "addr%zone", the zone a decimal number that fits 32 bits; no zone gives 0.
int lia_str_to_ipv6addrz(const char *addr_str, bn_ipv6addrz *ret_addrz);
// "addr/len": the length all digits, at most 32 (128 for IPv6), and no host bit set.
int lia_str_to_ipv4prefix(const char *addr_str, bn_ipv4prefix *ret_prefix);
int lia_str_to_ipv6prefix(const char *addr_str, bn_ipv6prefix *ret_prefix);
// IPv4 is tried first, then IPv6.
int lia_str_to_inetaddr(const char *addr_str, bn_inetaddr *ret_addr);
// An IPv4 or IPv6 address with an optional zone, as lia_str_to_ipv6addrz.
int lia_str_to_inetaddrz(const char *addr_str, bn_inetaddrz *ret_addrz);
int lia_str_to_inetprefix(const char *addr_str, bn_inetprefix *ret_prefix);

// Quiet tests of text.
tbool lia_str_is_ipv4addr(const char *addr_str);
tbool lia_str_is_ipv6addr(const char *addr_str);

// ---------------------------------------------------------------------------------------
// Printing.  *ret_str is null on failure.  An inet form whose family is neither AF_INET
// nor AF_INET6 gives lc_err_bad_type.

int lia_ipv4addr_to_str(const bn_ipv4addr *addr, char **ret_str);
int lia_ipv6addr_to_str(const bn_ipv6addr *addr, char **ret_str);
// Always with the zone: "fe80::1%0".
int lia_ipv6addrz_to_str(const bn_ipv6addrz *addrz, char **ret_str);
int lia_ipv4prefix_to_str(const bn_ipv4prefix *prefix, char **ret_str);
int lia_ipv6prefix_to_str(const bn_ipv6prefix *prefix, char **ret_str);
int lia_inetaddr_to_str(const bn_inetaddr *addr, char **ret_str);
// IPv6 always with the zone; IPv4 with the zone only when it is not 0.
int lia_inetaddrz_to_str(const bn_inetaddrz *addrz, char **ret_str);
int lia_inetprefix_to_str(const bn_inetprefix *prefix, char **ret_str);

// ---------------------------------------------------------------------------------------
// Masks.  A length past the family's bits gives lc_err_bad_type; so does a mask whose one
// bits are not contiguous from the top.

int lia_masklen_to_ipv4addr(uint8 masklen, bn_ipv4addr *ret_mask);
int lia_ipv4addr_to_masklen(const bn_ipv4addr *mask, uint8 *ret_masklen);
int lia_masklen_to_ipv6addr(uint8 masklen, bn_ipv6addr *ret_mask);
int lia_ipv6addr_to_masklen(const bn_ipv6addr *mask, uint8 *ret_masklen);
int lia_masklen_to_inetaddr(uint16 family, uint8 masklen, bn_inetaddr *ret_mask);

// Bitwise operations between two addresses, or between an address and the mask of a
// length.  The two inet operands must be of one family.
int lia_ipv4addr_bitop_ipv4addr(const bn_ipv4addr *a, const bn_ipv4addr *b, lia_bits_op op,
                                bn_ipv4addr *ret_addr);
int lia_ipv4addr_bitop_masklen(const bn_ipv4addr *a, uint8 masklen, lia_bits_op op,
                               bn_ipv4addr *ret_addr);
int lia_ipv6addr_bitop_ipv6addr(const bn_ipv6addr *a, const bn_ipv6addr *b, lia_bits_op op,
                                bn_ipv6addr *ret_addr);
int lia_ipv6addr_bitop_masklen(const bn_ipv6addr *a, uint8 masklen, lia_bits_op op,
                               bn_ipv6addr *ret_addr);
int lia_inetaddr_bitop_inetaddr(const bn_inetaddr *a, const bn_inetaddr *b, lia_bits_op op,
                                bn_inetaddr *ret_addr);
int lia_inetaddr_bitop_masklen(const bn_inetaddr *a, uint8 masklen, lia_bits_op op,
                               bn_inetaddr *ret_addr);

// A prefix from an address and a length; the host bits of the address are cleared.
int lia_ipv4addr_masklen_to_ipv4prefix(const bn_ipv4addr *addr, uint8 masklen,
                                       bn_ipv4prefix *ret_prefix);
int lia_ipv6addr_masklen_to_ipv6prefix(const bn_ipv6addr *addr, uint8 masklen,
                                       bn_ipv6prefix *ret_prefix);
int lia_inetaddr_masklen_to_inetprefix(const bn_inetaddr *addr, uint8 masklen,
                                       bn_inetprefix *ret_prefix);

// From the socket library's forms.  The prefix takes the length of the mask and the
// address with its host bits cleared.
int lia_inaddr_to_ipv4addr(const in_addr *inaddr, bn_ipv4addr *ret_addr);
int lia_inaddr_mask_to_ipv4prefix(const in_addr *inaddr, const in_addr *mask,
                                  bn_ipv4prefix *ret_prefix);

// ---------------------------------------------------------------------------------------
// Quick tests and accessors: no checks, no error codes.  An inet address of an unknown
// family counts as zero.

tbool lia_ipv4addr_is_zero_quick(const bn_ipv4addr *addr);
tbool lia_ipv6addr_is_zero_quick(const bn_ipv6addr *addr);
tbool lia_inetaddr_is_zero_quick(const bn_inetaddr *addr);
uint16 lia_inetaddr_get_family_quick(const bn_inetaddr *addr);

// The address of an inet form of the matching family; another family gives
// lc_err_bad_type.
int lia_inetaddr_get_ipv4addr(const bn_inetaddr *addr, bn_ipv4addr *ret_addr);
int lia_inetaddr_get_ipv6addr(const bn_inetaddr *addr, bn_ipv6addr *ret_addr);
