// Address parsing and printing: accepted and refused texts with their exact codes, zones,
// prefixes and host bits, masks and bit operations.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "addr_utils.h"
#include "common.h"

namespace {

using Bytes = std::vector<uint8>;

template <typename T>
Bytes bytes_of(const T &value)
{
    const auto *p = reinterpret_cast<const uint8 *>(&value);
    return Bytes(p, p + sizeof(value));
}

// Takes a printed string, frees it, and gives its text ("<null>" for none).
std::string take(char *str)
{
    std::unique_ptr<char, decltype(&free)> holder(str, &free);
    return str != nullptr ? std::string(str) : std::string("<null>");
}

const Bytes fe80_1 = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// ---------------------------------------------------------------------------------------
// Plain addresses.

TEST(AddrParseTest, Ipv4AddressIsInNetworkOrder)
{
    bn_ipv4addr addr = {};
    ASSERT_EQ(0, lia_str_to_ipv4addr("1.2.3.4", &addr));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), bytes_of(addr.bi_addr));
    EXPECT_EQ(0x01020304u, ntohl(addr.bi_addr.s_addr));
}

TEST(AddrParseTest, BadTextIsBadTypeAndNullIsUnexpectedNull)
{
    bn_ipv4addr v4 = {};
    bn_ipv6addr v6 = {};
    for (const char *bad : {"", "1.2.3", "1.2.3.256", "1.2.3.4 ", "a.b.c.d", "::1"}) {
        EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv4addr(bad, &v4)) << bad;
    }
    for (const char *bad : {"", "1.2.3.4", "fe80::1::2", "fe80::1%4", "12345::"}) {
        EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv6addr(bad, &v6)) << bad;
    }
    EXPECT_EQ(lc_err_unexpected_null, lia_str_to_ipv4addr(nullptr, &v4));
    EXPECT_EQ(lc_err_unexpected_null, lia_str_to_ipv4addr("1.2.3.4", nullptr));
    EXPECT_EQ(lc_err_unexpected_null, lia_str_to_ipv6addrz(nullptr, nullptr));
}

TEST(AddrParseTest, InetAddrTakesFamilyAndLeavesNoStaleBytes)
{
    bn_inetaddr addr;
    memset(&addr, 0xAB, sizeof(addr));
    ASSERT_EQ(0, lia_str_to_inetaddr("10.1.2.3", &addr));
    EXPECT_EQ(AF_INET, addr.bin_family);
    EXPECT_EQ((Bytes{10, 1, 2, 3}), bytes_of(addr.bin_addr.bina_in4));
    // The rest of the union was cleared, not left from before.
    const auto *tail = reinterpret_cast<const uint8 *>(&addr.bin_addr) + 4;
    for (size_t i = 0; i < sizeof(addr.bin_addr) - 4; ++i) {
        EXPECT_EQ(0, tail[i]) << "byte " << i;
    }

    ASSERT_EQ(0, lia_str_to_inetaddr("fe80::1", &addr));
    EXPECT_EQ(AF_INET6, lia_inetaddr_get_family_quick(&addr));
    EXPECT_EQ(fe80_1, bytes_of(addr.bin_addr.bina_in6));

    EXPECT_EQ(lc_err_bad_type, lia_str_to_inetaddr("host.example", &addr));
    EXPECT_EQ(0, addr.bin_family);
}

// ---------------------------------------------------------------------------------------
// Zones.

TEST(AddrZoneTest, ZoneIdAfterPercent)
{
    bn_ipv6addrz addrz = {};
    ASSERT_EQ(0, lia_str_to_ipv6addrz("fe80::1%4", &addrz));
    EXPECT_EQ(4u, addrz.bi6z_zone_id);
    EXPECT_EQ(fe80_1, bytes_of(addrz.bi6z_addr));

    ASSERT_EQ(0, lia_str_to_ipv6addrz("fe80::1", &addrz));
    EXPECT_EQ(0u, addrz.bi6z_zone_id);
    EXPECT_EQ(fe80_1, bytes_of(addrz.bi6z_addr));

    ASSERT_EQ(0, lia_str_to_ipv6addrz("fe80::1%4294967295", &addrz));
    EXPECT_EQ(4294967295u, addrz.bi6z_zone_id);
}

TEST(AddrZoneTest, BadZonesRefused)
{
    bn_ipv6addrz addrz = {};
    for (const char *bad : {"fe80::1%", "fe80::1%eth0", "fe80::1%4294967296", "fe80::1%4%5",
                            "fe80::1%-1", "fe80::1%+4", "%4", "1.2.3.4%4"}) {
        EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv6addrz(bad, &addrz)) << bad;
    }
}

TEST(AddrZoneTest, InetAddrzEitherFamily)
{
    bn_inetaddrz addrz = {};
    ASSERT_EQ(0, lia_str_to_inetaddrz("192.168.0.1", &addrz));
    EXPECT_EQ(AF_INET, addrz.binz_family);
    EXPECT_EQ((Bytes{192, 168, 0, 1}), bytes_of(addrz.binz_addr.binza_in4));
    EXPECT_EQ(0u, addrz.binz_zone_id);

    ASSERT_EQ(0, lia_str_to_inetaddrz("fe80::1%7", &addrz));
    EXPECT_EQ(AF_INET6, addrz.binz_family);
    EXPECT_EQ(fe80_1, bytes_of(addrz.binz_addr.binza_in6));
    EXPECT_EQ(7u, addrz.binz_zone_id);

    EXPECT_EQ(lc_err_bad_type, lia_str_to_inetaddrz("fe80::1%x", &addrz));
}

// ---------------------------------------------------------------------------------------
// Prefixes.

TEST(AddrPrefixTest, Ipv4PrefixAcceptedAndRefused)
{
    bn_ipv4prefix prefix = {};
    ASSERT_EQ(0, lia_str_to_ipv4prefix("1.2.3.0/24", &prefix));
    EXPECT_EQ((Bytes{1, 2, 3, 0}), bytes_of(prefix.bip_addr));
    EXPECT_EQ(24, prefix.bip_prefix_len);

    for (const char *bad : {"1.2.3.4/24", "1.2.3.0/33", "1.2.3.0/", "1.2.3.0/2x", "1.2.3.0",
                            "1.2.3.0/-1", "1.2.3.0/+24", "1.2.3.0/ 24", "/24", "::/0",
                            "1.2.3.0/99999999999999999999999", "10.0.0.1/0"}) {
        EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv4prefix(bad, &prefix)) << bad;
    }
}

TEST(AddrPrefixTest, Ipv4PrefixBoundaries)
{
    bn_ipv4prefix prefix = {};
    ASSERT_EQ(0, lia_str_to_ipv4prefix("0.0.0.0/0", &prefix));
    EXPECT_EQ(0, prefix.bip_prefix_len);
    ASSERT_EQ(0, lia_str_to_ipv4prefix("1.2.3.4/32", &prefix));
    EXPECT_EQ(32, prefix.bip_prefix_len);
    // Host bits are judged bit by bit, not byte by byte.
    ASSERT_EQ(0, lia_str_to_ipv4prefix("10.128.0.0/9", &prefix));
    EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv4prefix("10.64.0.0/9", &prefix));
    // Leading zeros of the length are digits like any other.
    ASSERT_EQ(0, lia_str_to_ipv4prefix("10.0.0.0/008", &prefix));
    EXPECT_EQ(8, prefix.bip_prefix_len);
}

TEST(AddrPrefixTest, Ipv6Prefix)
{
    bn_ipv6prefix prefix = {};
    ASSERT_EQ(0, lia_str_to_ipv6prefix("2001:db8::/32", &prefix));
    EXPECT_EQ(32, prefix.bi6p_prefix_len);
    EXPECT_EQ(0x20, prefix.bi6p_addr.s6_addr[0]);
    EXPECT_EQ(0xb8, prefix.bi6p_addr.s6_addr[3]);
    ASSERT_EQ(0, lia_str_to_ipv6prefix("fe80::/10", &prefix));
    ASSERT_EQ(0, lia_str_to_ipv6prefix("fe80::1/128", &prefix));
    ASSERT_EQ(0, lia_str_to_ipv6prefix("::/0", &prefix));
    for (const char *bad : {"2001:db8::1/64", "::/129", "fe80::/8", "2001:db8::/", "1.2.3.0/24",
                            "fe80::/1e"}) {
        EXPECT_EQ(lc_err_bad_type, lia_str_to_ipv6prefix(bad, &prefix)) << bad;
    }
}

TEST(AddrPrefixTest, InetPrefixUsesTheBoundOfItsFamily)
{
    bn_inetprefix prefix = {};
    ASSERT_EQ(0, lia_str_to_inetprefix("10.0.0.0/8", &prefix));
    EXPECT_EQ(AF_INET, prefix.binp_family);
    EXPECT_EQ(8, prefix.binp_prefix_len);
    ASSERT_EQ(0, lia_str_to_inetprefix("2001:db8::/48", &prefix));
    EXPECT_EQ(AF_INET6, prefix.binp_family);
    EXPECT_EQ(48, prefix.binp_prefix_len);
    // 64 is within IPv6's bound but not IPv4's.
    EXPECT_EQ(lc_err_bad_type, lia_str_to_inetprefix("10.0.0.0/64", &prefix));
    EXPECT_EQ(lc_err_bad_type, lia_str_to_inetprefix("10.0.0.1/8", &prefix));
    EXPECT_EQ(lc_err_bad_type, lia_str_to_inetprefix("nonsense/8", &prefix));
}

// ---------------------------------------------------------------------------------------
// Printing.

TEST(AddrPrintTest, EachTypePrintsAndRoundTrips)
{
    char *str = nullptr;
    bn_ipv4addr v4 = {};
    bn_ipv6addr v6 = {};
    bn_ipv6addrz v6z = {};
    bn_ipv4prefix p4 = {};
    bn_ipv6prefix p6 = {};
    bn_inetprefix pin = {};

    ASSERT_EQ(0, lia_str_to_ipv4addr("255.0.10.1", &v4));
    ASSERT_EQ(0, lia_ipv4addr_to_str(&v4, &str));
    EXPECT_EQ("255.0.10.1", take(str));

    ASSERT_EQ(0, lia_str_to_ipv6addr("2001:0db8:0000:0000:0000:0000:0000:0001", &v6));
    ASSERT_EQ(0, lia_ipv6addr_to_str(&v6, &str));
    EXPECT_EQ("2001:db8::1", take(str));

    ASSERT_EQ(0, lia_str_to_ipv6addrz("fe80::1%4", &v6z));
    ASSERT_EQ(0, lia_ipv6addrz_to_str(&v6z, &str));
    EXPECT_EQ("fe80::1%4", take(str));
    v6z.bi6z_zone_id = 0;
    ASSERT_EQ(0, lia_ipv6addrz_to_str(&v6z, &str));
    EXPECT_EQ("fe80::1%0", take(str));

    ASSERT_EQ(0, lia_str_to_ipv4prefix("192.168.0.0/16", &p4));
    ASSERT_EQ(0, lia_ipv4prefix_to_str(&p4, &str));
    EXPECT_EQ("192.168.0.0/16", take(str));

    ASSERT_EQ(0, lia_str_to_ipv6prefix("2001:db8::/32", &p6));
    ASSERT_EQ(0, lia_ipv6prefix_to_str(&p6, &str));
    EXPECT_EQ("2001:db8::/32", take(str));

    ASSERT_EQ(0, lia_str_to_inetprefix("10.0.0.0/8", &pin));
    ASSERT_EQ(0, lia_inetprefix_to_str(&pin, &str));
    EXPECT_EQ("10.0.0.0/8", take(str));
}

TEST(AddrPrintTest, LongestTextsFit)
{
    char *str = nullptr;
    bn_ipv6addrz v6z = {};
    memset(&v6z.bi6z_addr, 0xFF, sizeof(v6z.bi6z_addr));
    v6z.bi6z_zone_id = 4294967295u;
    ASSERT_EQ(0, lia_ipv6addrz_to_str(&v6z, &str));
    EXPECT_EQ("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff%4294967295", take(str));

    bn_ipv6prefix p6 = {};
    memset(&p6.bi6p_addr, 0xFF, sizeof(p6.bi6p_addr));
    p6.bi6p_prefix_len = 128;
    ASSERT_EQ(0, lia_ipv6prefix_to_str(&p6, &str));
    EXPECT_EQ("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/128", take(str));
}

TEST(AddrPrintTest, InetFormsByFamily)
{
    char *str = nullptr;
    bn_inetaddr addr = {};
    bn_inetaddrz addrz = {};

    addr.bin_family = 0;
    str = reinterpret_cast<char *>(1);
    EXPECT_EQ(lc_err_bad_type, lia_inetaddr_to_str(&addr, &str));
    EXPECT_EQ(nullptr, str);
    addr.bin_family = AF_UNIX;
    EXPECT_EQ(lc_err_bad_type, lia_inetaddr_to_str(&addr, &str));

    ASSERT_EQ(0, lia_str_to_inetaddr("::ffff:1.2.3.4", &addr));
    ASSERT_EQ(0, lia_inetaddr_to_str(&addr, &str));
    EXPECT_EQ("::ffff:1.2.3.4", take(str));

    ASSERT_EQ(0, lia_str_to_inetaddrz("1.2.3.4", &addrz));
    ASSERT_EQ(0, lia_inetaddrz_to_str(&addrz, &str));
    EXPECT_EQ("1.2.3.4", take(str));
    ASSERT_EQ(0, lia_str_to_inetaddrz("fe80::1%3", &addrz));
    ASSERT_EQ(0, lia_inetaddrz_to_str(&addrz, &str));
    EXPECT_EQ("fe80::1%3", take(str));

    ASSERT_EQ(0, lia_inetaddr_to_str(&lia_inetaddr_ipv6addr_any, &str));
    EXPECT_EQ("::", take(str));
    ASSERT_EQ(0, lia_inetaddrz_to_str(&lia_inetaddrz_ipv6addrz_any, &str));
    EXPECT_EQ("::%0", take(str));
    ASSERT_EQ(0, lia_inetprefix_to_str(&lia_inetprefix_ipv6prefix_any, &str));
    EXPECT_EQ("::/0", take(str));

    EXPECT_EQ(lc_err_unexpected_null, lia_inetaddr_to_str(&addr, nullptr));
    EXPECT_EQ(lc_err_unexpected_null, lia_ipv4addr_to_str(nullptr, &str));
    EXPECT_EQ(nullptr, str);
}

// ---------------------------------------------------------------------------------------
// Masks and bit operations.

TEST(AddrMaskTest, Ipv4MasksBothWays)
{
    bn_ipv4addr mask = {};
    uint8 len = 0;
    ASSERT_EQ(0, lia_masklen_to_ipv4addr(20, &mask));
    EXPECT_EQ((Bytes{255, 255, 240, 0}), bytes_of(mask.bi_addr));
    ASSERT_EQ(0, lia_masklen_to_ipv4addr(0, &mask));
    EXPECT_EQ((Bytes{0, 0, 0, 0}), bytes_of(mask.bi_addr));
    ASSERT_EQ(0, lia_masklen_to_ipv4addr(32, &mask));
    EXPECT_EQ((Bytes{255, 255, 255, 255}), bytes_of(mask.bi_addr));
    EXPECT_EQ(lc_err_bad_type, lia_masklen_to_ipv4addr(33, &mask));

    ASSERT_EQ(0, lia_str_to_ipv4addr("255.255.254.0", &mask));
    ASSERT_EQ(0, lia_ipv4addr_to_masklen(&mask, &len));
    EXPECT_EQ(23, len);
    ASSERT_EQ(0, lia_str_to_ipv4addr("255.0.255.0", &mask));
    EXPECT_EQ(lc_err_bad_type, lia_ipv4addr_to_masklen(&mask, &len));
}

TEST(AddrMaskTest, Ipv6AndInetMasks)
{
    bn_ipv6addr mask = {};
    uint8 len = 0;
    ASSERT_EQ(0, lia_masklen_to_ipv6addr(65, &mask));
    const Bytes expected = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
                            0x80, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(expected, bytes_of(mask.bi6_addr));
    ASSERT_EQ(0, lia_ipv6addr_to_masklen(&mask, &len));
    EXPECT_EQ(65, len);
    EXPECT_EQ(lc_err_bad_type, lia_masklen_to_ipv6addr(129, &mask));

    bn_inetaddr imask = {};
    ASSERT_EQ(0, lia_masklen_to_inetaddr(AF_INET, 8, &imask));
    EXPECT_EQ(AF_INET, imask.bin_family);
    EXPECT_EQ((Bytes{255, 0, 0, 0}), bytes_of(imask.bin_addr.bina_in4));
    EXPECT_EQ(lc_err_bad_type, lia_masklen_to_inetaddr(AF_INET, 33, &imask));
    ASSERT_EQ(0, lia_masklen_to_inetaddr(AF_INET6, 128, &imask));
    EXPECT_EQ(lc_err_bad_type, lia_masklen_to_inetaddr(0, 8, &imask));
}

TEST(AddrMaskTest, BitOperations)
{
    bn_ipv4addr a = {};
    bn_ipv4addr b = {};
    bn_ipv4addr r = {};
    ASSERT_EQ(0, lia_str_to_ipv4addr("192.168.77.130", &a));
    ASSERT_EQ(0, lia_str_to_ipv4addr("0.0.255.15", &b));
    ASSERT_EQ(0, lia_ipv4addr_bitop_ipv4addr(&a, &b, lbo_and, &r));
    EXPECT_EQ((Bytes{0, 0, 77, 2}), bytes_of(r.bi_addr));
    ASSERT_EQ(0, lia_ipv4addr_bitop_ipv4addr(&a, &b, lbo_xor, &r));
    EXPECT_EQ((Bytes{192, 168, 178, 141}), bytes_of(r.bi_addr));
    ASSERT_EQ(0, lia_ipv4addr_bitop_masklen(&a, 17, lbo_and, &r));
    EXPECT_EQ((Bytes{192, 168, 0, 0}), bytes_of(r.bi_addr));
    ASSERT_EQ(0, lia_ipv4addr_bitop_masklen(&a, 24, lbo_and_not, &r));
    EXPECT_EQ((Bytes{0, 0, 0, 130}), bytes_of(r.bi_addr));

    bn_ipv6addr v6 = {};
    bn_ipv6addr v6r = {};
    ASSERT_EQ(0, lia_str_to_ipv6addr("fe80::1", &v6));
    ASSERT_EQ(0, lia_ipv6addr_bitop_masklen(&v6, 10, lbo_and, &v6r));
    Bytes net(16, 0);
    net[0] = 0xfe;
    net[1] = 0x80;
    EXPECT_EQ(net, bytes_of(v6r.bi6_addr));

    bn_inetaddr i4 = {};
    bn_inetaddr i6 = {};
    bn_inetaddr ir = {};
    ASSERT_EQ(0, lia_str_to_inetaddr("10.9.8.7", &i4));
    ASSERT_EQ(0, lia_str_to_inetaddr("::1", &i6));
    EXPECT_EQ(lc_err_bad_type, lia_inetaddr_bitop_inetaddr(&i4, &i6, lbo_or, &ir));
    ASSERT_EQ(0, lia_inetaddr_bitop_masklen(&i4, 16, lbo_and, &ir));
    EXPECT_EQ(AF_INET, ir.bin_family);
    EXPECT_EQ((Bytes{10, 9, 0, 0}), bytes_of(ir.bin_addr.bina_in4));
}

TEST(AddrMaskTest, PrefixesFromAddressAndLength)
{
    bn_ipv4addr a = {};
    bn_ipv4prefix p = {};
    ASSERT_EQ(0, lia_str_to_ipv4addr("10.1.2.3", &a));
    ASSERT_EQ(0, lia_ipv4addr_masklen_to_ipv4prefix(&a, 8, &p));
    EXPECT_EQ((Bytes{10, 0, 0, 0}), bytes_of(p.bip_addr));
    EXPECT_EQ(8, p.bip_prefix_len);
    EXPECT_EQ(lc_err_bad_type, lia_ipv4addr_masklen_to_ipv4prefix(&a, 40, &p));

    in_addr addr = {};
    in_addr mask = {};
    ASSERT_EQ(1, inet_pton(AF_INET, "192.168.1.77", &addr));
    ASSERT_EQ(1, inet_pton(AF_INET, "255.255.255.0", &mask));
    ASSERT_EQ(0, lia_inaddr_mask_to_ipv4prefix(&addr, &mask, &p));
    EXPECT_EQ((Bytes{192, 168, 1, 0}), bytes_of(p.bip_addr));
    EXPECT_EQ(24, p.bip_prefix_len);
    ASSERT_EQ(1, inet_pton(AF_INET, "255.0.255.0", &mask));
    EXPECT_EQ(lc_err_bad_type, lia_inaddr_mask_to_ipv4prefix(&addr, &mask, &p));

    bn_inetaddr ia = {};
    bn_inetprefix ip = {};
    ASSERT_EQ(0, lia_str_to_inetaddr("2001:db8:1:2::5", &ia));
    ASSERT_EQ(0, lia_inetaddr_masklen_to_inetprefix(&ia, 48, &ip));
    char *str = nullptr;
    ASSERT_EQ(0, lia_inetprefix_to_str(&ip, &str));
    EXPECT_EQ("2001:db8:1::/48", take(str));
}

TEST(AddrMaskTest, QuickTestsAndAccessors)
{
    bn_ipv4addr v4 = {};
    bn_ipv6addr v6 = {};
    bn_inetaddr in = {};
    EXPECT_TRUE(lia_ipv4addr_is_zero_quick(&v4));
    EXPECT_TRUE(lia_ipv6addr_is_zero_quick(&v6));
    v6.bi6_addr.s6_addr[15] = 1;
    EXPECT_FALSE(lia_ipv6addr_is_zero_quick(&v6));

    ASSERT_EQ(0, lia_str_to_inetaddr("0.0.0.1", &in));
    EXPECT_FALSE(lia_inetaddr_is_zero_quick(&in));
    ASSERT_EQ(0, lia_inetaddr_get_ipv4addr(&in, &v4));
    EXPECT_EQ((Bytes{0, 0, 0, 1}), bytes_of(v4.bi_addr));
    EXPECT_EQ(lc_err_bad_type, lia_inetaddr_get_ipv6addr(&in, &v6));

    EXPECT_TRUE(lia_str_is_ipv6addr("fe80::1"));
    EXPECT_FALSE(lia_str_is_ipv6addr("fe80::1%4"));
    EXPECT_FALSE(lia_str_is_ipv6addr(nullptr));
}

}  // namespace
