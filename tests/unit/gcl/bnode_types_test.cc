// Typed values: the type tables and predicates, the generic attribute operations, the
// accessor families, the text parser and printer for every type's edge values, and the
// binding forms.
#include <gtest/gtest.h>

#include <optional>

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bnode.h"
#include "bnode_types.h"
#include "common.h"
#include "sandbox.h"

namespace {

struct AttribDeleter {
    void operator()(bn_attrib *attrib) const { bn_attrib_free(&attrib); }
};
using AttribPtr = std::unique_ptr<bn_attrib, AttribDeleter>;

struct BindingDeleter {
    void operator()(bn_binding *binding) const { bn_binding_free(&binding); }
};
using BindingPtr = std::unique_ptr<bn_binding, BindingDeleter>;

std::string take(char *str)
{
    std::unique_ptr<char, decltype(&free)> holder(str, &free);
    return str != nullptr ? std::string(str) : std::string("<null>");
}

// Parses text as a value of the type and prints it again.
struct RoundTrip {
    int parse_err;
    int print_err;
    std::string text;
};

RoundTrip round_trip(bn_type type, bn_type_flags_bf flags, const char *in)
{
    bn_attrib *raw = nullptr;
    RoundTrip result = {0, 0, ""};
    result.parse_err = bn_attrib_new_str(&raw, ba_value, type, flags, in);
    AttribPtr attrib(raw);
    if (result.parse_err != 0) {
        EXPECT_EQ(raw, nullptr);
        return result;
    }
    char *out = nullptr;
    result.print_err = bn_attrib_get_str(attrib.get(), nullptr, bt_NONE, nullptr, &out);
    result.text = take(out);
    return result;
}

// The text must parse and print as expected (the input itself when expected is null).
void expect_ok(bn_type type, bn_type_flags_bf flags, const char *in,
               const char *expected = nullptr)
{
    const RoundTrip rt = round_trip(type, flags, in);
    EXPECT_EQ(rt.parse_err, 0) << "type " << type << " text '" << in << "'";
    EXPECT_EQ(rt.print_err, 0) << "type " << type << " text '" << in << "'";
    EXPECT_EQ(rt.text, expected ? expected : in) << "type " << type;
}

void expect_bad(bn_type type, bn_type_flags_bf flags, const char *in)
{
    EXPECT_EQ(round_trip(type, flags, in).parse_err, lc_err_bad_type)
        << "type " << type << " text '" << in << "'";
}

// ---------------------------------------------------------------------------------------
// Type tables and predicates.

TEST(BnTypeTableTest, MapsAndConverterAgreeOnTexts)
{
    EXPECT_STREQ(lc_enum_to_string_quiet_null(bn_type_map, bt_uint32), "uint32");
    EXPECT_STREQ(lc_enum_to_string_quiet_null(bn_type_map, bt_datetime), "datetime_sec");
    EXPECT_EQ(lc_enum_to_string_quiet_null(bn_type_map, 50), nullptr);
    EXPECT_STREQ(lc_enum_to_string_quiet_null(bn_type_flags_map, btf_hex_bytes), "hex_bytes");
    EXPECT_STREQ(lc_enum_to_string_quiet_null(bn_attribute_id_map, ba_info), "node_info");

    bn_type_converter *conv = nullptr;
    ASSERT_EQ(bn_init_type_converter(&conv), 0);
    bn_type type = bt_NONE;
    EXPECT_EQ(bn_get_type_for_str(conv, "globpattern", &type), 0);
    EXPECT_EQ(type, bt_globpattern);
    EXPECT_EQ(bn_get_type_for_str(conv, "uint8", &type), 0);
    EXPECT_EQ(type, bt_uint8);
    EXPECT_EQ(bn_get_type_for_str(conv, "uint9", &type), lc_err_not_found);
    EXPECT_EQ(type, bt_NONE);
    bn_free_type_converter(&conv);
    EXPECT_EQ(conv, nullptr);
}

TEST(BnTypePredicateTest, ClassifiesAllocatingStringAndBufferTypes)
{
    EXPECT_TRUE(bn_type_allocs(bt_string, 0));
    EXPECT_TRUE(bn_type_allocs(bt_binary, 0));
    EXPECT_FALSE(bn_type_allocs(bt_none, 0));
    EXPECT_FALSE(bn_type_allocs(bt_uint64, 0));
    EXPECT_FALSE(bn_type_allocs(bt_string, btf_no_value));
    EXPECT_FALSE(bn_type_allocs(static_cast<bn_type>(135), 0));

    for (bn_type t : {bt_string, bt_utf8_string, bt_oid, bt_link, bt_name, bt_hostname, bt_uri,
                      bt_charlist, bt_regex, bt_globpattern}) {
        EXPECT_TRUE(bn_type_string(t, btf_counter)) << t;
    }
    EXPECT_FALSE(bn_type_string(bt_binary, 0));
    EXPECT_FALSE(bn_type_string(bt_string, btf_invalid));
    EXPECT_TRUE(bn_type_tbuf(bt_binary, 0));
    EXPECT_FALSE(bn_type_tbuf(bt_string, 0));
    EXPECT_FALSE(bn_type_tbuf(bt_NONE, 0));
}

TEST(BnTypePredicateTest, FixedSizesSwapsAndEncodings)
{
    struct Row {
        bn_type type;
        uint32 size;
        tbool swap;
        bn_external_encoding enc;
    };
    const Row rows[] = {
        {bt_uint8, 1, true, bee_fixedlen_netorder_encoding},
        {bt_int16, 2, true, bee_fixedlen_netorder_encoding},
        {bt_bool, 4, true, bee_fixedlen_netorder_encoding},
        {bt_float64, 8, true, bee_fixedlen_netorder_encoding},
        {bt_char, 1, true, bee_fixedlen_netorder_encoding},
        {bt_ipv4addr, 4, false, bee_fixedlen_netorder_encoding},
        {bt_ipv4prefix, 8, false, bee_fixedlen_netorder_encoding},
        {bt_macaddr802, 6, false, bee_fixedlen_native_encoding},
        {bt_ipv6addrz, 20, false, bee_fixedlen_netorder_encoding},
        {bt_ipv6prefix, 17, false, bee_fixedlen_netorder_encoding},
        {bt_inetaddr, 18, false, bee_fixedlen_netorder_encoding},
        {bt_inetaddrz, 22, false, bee_fixedlen_netorder_encoding},
        {bt_inetprefix, 19, false, bee_fixedlen_netorder_encoding},
        {bt_time_us, 8, true, bee_fixedlen_netorder_encoding},
        {bt_duration_sec, 4, true, bee_fixedlen_netorder_encoding},
        {bt_none, 0, true, bee_fixedlen_netorder_encoding},
        {bt_attribute, 4, true, bee_fixedlen_netorder_encoding},
    };
    for (const Row &row : rows) {
        uint32 size = 99;
        tbool swap = !row.swap;
        bn_external_encoding enc = bee_none;
        ASSERT_EQ(bn_type_fixed_size(row.type, 0, &size, &swap, &enc), 0) << row.type;
        EXPECT_EQ(size, row.size) << row.type;
        EXPECT_EQ(swap, row.swap) << row.type;
        EXPECT_EQ(enc, row.enc) << row.type;
    }
}

TEST(BnTypePredicateTest, FixedSizeRefusals)
{
    uint32 size = 0;
    EXPECT_EQ(bn_type_fixed_size(bt_string, 0, &size, nullptr, nullptr), lc_err_assertion_failed);
    EXPECT_EQ(bn_type_fixed_size(bt_NONE, 0, &size, nullptr, nullptr), lc_err_assertion_failed);
    EXPECT_EQ(bn_type_fixed_size(bt_uint32, btf_no_value, &size, nullptr, nullptr),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_type_fixed_size(bt_any, 0, &size, nullptr, nullptr), lc_err_bad_type);
    EXPECT_EQ(bn_type_fixed_size(static_cast<bn_type>(50), 0, &size, nullptr, nullptr),
              lc_err_unexpected_null);
    EXPECT_EQ(size, 0u);
}

// ---------------------------------------------------------------------------------------
// Generic operations.

TEST(BnAttribGenericTest, NewSetGenericAndFreeValue)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new(&raw), 0);
    AttribPtr attrib(raw);
    EXPECT_EQ(attrib->ba_type, bt_none);
    EXPECT_EQ(attrib->ba_type_flags, 0u);
    EXPECT_EQ(attrib->ba_attrib_id, ba_none);

    ASSERT_EQ(bn_attrib_set_str(attrib.get(), ba_value, bt_string, 0, "text"), 0);
    // The flag word keeps its high half only.
    ASSERT_EQ(bn_attrib_set_generic(attrib.get(), ba_product_name, bt_uint16,
                                    btf_counter | 0x1234),
              0);
    bn_type type = bt_NONE;
    bn_type_flags_bf flags = 0;
    ASSERT_EQ(bn_attrib_get_type(attrib.get(), &type, &flags), 0);
    EXPECT_EQ(type, bt_uint16);
    EXPECT_EQ(flags, static_cast<uint32>(btf_counter));
    EXPECT_EQ(attrib->ba_attrib_id, ba_product_name);

    ASSERT_EQ(bn_attrib_set_str(attrib.get(), ba_value, bt_binary, 0, "xyz"), 0);
    ASSERT_EQ(bn_attrib_free_value(attrib.get()), 0);
    EXPECT_EQ(attrib->ba_type, bt_none);
    EXPECT_EQ(attrib->ba_attrib_id, ba_none);
    EXPECT_EQ(attrib->ba_v.bnvv_binary, nullptr);
}

TEST(BnAttribGenericTest, DupCopiesStringsAndBuffersDeeply)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_string, btf_counter, "original"), 0);
    AttribPtr src(raw);
    ASSERT_EQ(bn_attrib_dup(src.get(), &raw), 0);
    AttribPtr copy(raw);
    ASSERT_NE(copy->ba_v.bnvv_string, src->ba_v.bnvv_string);
    ASSERT_EQ(ts_replace_str(src->ba_v.bnvv_string, "changed"), 0);
    EXPECT_STREQ(ts_str(copy->ba_v.bnvv_string), "original");
    EXPECT_EQ(copy->ba_type_flags, static_cast<uint32>(btf_counter));
    src.reset();  // the copy must outlive its source
    EXPECT_STREQ(ts_str(copy->ba_v.bnvv_string), "original");

    tbuf *buf = nullptr;
    const uint8 bytes[] = {1, 0, 2, 3};
    ASSERT_EQ(tb_new_buf(&buf, bytes, sizeof(bytes)), 0);
    ASSERT_EQ(bn_attrib_new_binary(&raw, ba_value, 0, buf), 0);
    tb_free(&buf);
    AttribPtr bin(raw);
    ASSERT_EQ(bn_attrib_dup(bin.get(), &raw), 0);
    AttribPtr bin_copy(raw);
    ASSERT_NE(bin_copy->ba_v.bnvv_binary, bin->ba_v.bnvv_binary);
    bin.reset();
    ASSERT_EQ(tb_length(bin_copy->ba_v.bnvv_binary), 4u);
    EXPECT_EQ(memcmp(tb_buf(bin_copy->ba_v.bnvv_binary), bytes, 4), 0);

    const bn_ipv6addrz addrz = {{{{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}}, 7};
    ASSERT_EQ(bn_attrib_new_ipv6addrz(&raw, ba_value, 0, &addrz), 0);
    AttribPtr fixed(raw);
    ASSERT_EQ(bn_attrib_dup(fixed.get(), &raw), 0);
    AttribPtr fixed_copy(raw);
    bn_ipv6addrz got = {};
    ASSERT_EQ(bn_attrib_get_ipv6addrz(fixed_copy.get(), nullptr, nullptr, &got), 0);
    EXPECT_EQ(memcmp(&got, &addrz, sizeof(got)), 0);
}

// ---------------------------------------------------------------------------------------
// Accessor families.

TEST(BnAttribFamilyTest, AttributeIdRule)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new(&raw), 0);
    AttribPtr attrib(raw);
    EXPECT_EQ(bn_attrib_set_uint32(attrib.get(), ba_none, 0, 1), lc_err_assertion_failed);
    EXPECT_EQ(bn_attrib_set_uint32(attrib.get(), ba_NONE, 0, 1), lc_err_assertion_failed);
    EXPECT_EQ(bn_attrib_set_uint32(attrib.get(), ba_LAST, 0, 1), lc_err_assertion_failed);
    EXPECT_EQ(bn_attrib_set_str(attrib.get(), ba_none, bt_uint32, 0, "1"),
              lc_err_assertion_failed);
    EXPECT_EQ(bn_attrib_set_uint32(attrib.get(), ba_node_count, 0, 1), 0);
    EXPECT_EQ(bn_attrib_new_uint32(nullptr, ba_value, 0, 1), lc_err_unexpected_null);
    EXPECT_EQ(bn_attrib_new_uint32(&raw, ba_none, 0, 1), lc_err_assertion_failed);
    EXPECT_EQ(raw, nullptr);
}

TEST(BnAttribFamilyTest, GettersCheckTypeAndReportIdAndFlaggedType)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_int64(&raw, ba_product_name, btf_counter | btf_class_state,
                                  INT64_MIN),
              0);
    AttribPtr attrib(raw);
    bn_attribute_id id = ba_NONE;
    uint32 flagged = 0;
    int64 value = 0;
    ASSERT_EQ(bn_attrib_get_int64(attrib.get(), &id, &flagged, &value), 0);
    EXPECT_EQ(id, ba_product_name);
    EXPECT_EQ(flagged, bt_int64 | btf_counter | btf_class_state);
    EXPECT_EQ(value, INT64_MIN);
    EXPECT_EQ(bn_attrib_get_int64(attrib.get(), nullptr, nullptr, nullptr), 0);

    uint64 wrong = 77;
    EXPECT_EQ(bn_attrib_get_uint64(attrib.get(), &id, &flagged, &wrong), lc_err_assertion_failed);
    EXPECT_EQ(wrong, 77u);
}

TEST(BnAttribFamilyTest, ValuelessFlagsStoreNothing)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_uint32(&raw, ba_value, btf_no_value, 1234), 0);
    AttribPtr attrib(raw);
    EXPECT_EQ(attrib->ba_v.bnv_uint32, 0u);
    uint32 value = 55;
    ASSERT_EQ(bn_attrib_get_uint32(attrib.get(), nullptr, nullptr, &value), 0);
    EXPECT_EQ(value, 55u);

    ASSERT_EQ(bn_attrib_set_str(attrib.get(), ba_value, bt_string, btf_invalid, "ignored"), 0);
    EXPECT_EQ(attrib->ba_type, bt_string);
    EXPECT_EQ(attrib->ba_v.bnvv_string, nullptr);
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(attrib.get(), nullptr, bt_string, nullptr, &out), 0);
    EXPECT_EQ(out, nullptr);
}

TEST(BnAttribFamilyTest, AddressVariantsConvert)
{
    bn_attrib *raw = nullptr;
    // ipv4prefix from a length is stored as address and mask.
    bn_ipv4prefix prefix = {};
    inet_pton(AF_INET, "10.1.0.0", &prefix.bip_addr);
    prefix.bip_prefix_len = 16;
    ASSERT_EQ(bn_attrib_new_ipv4prefix_bnipv4(&raw, ba_value, 0, &prefix), 0);
    AttribPtr p4(raw);
    EXPECT_EQ(ntohl(p4->ba_v.bnv_ipv4prefix.bipo_mask.s_addr), 0xFFFF0000u);
    uint64 word = 0;
    ASSERT_EQ(bn_attrib_get_ipv4prefix(p4.get(), nullptr, nullptr, &word), 0);
    EXPECT_EQ(word >> 32, p4->ba_v.bnv_ipv4prefix.bipo_addr.s_addr);
    EXPECT_EQ(word & 0xFFFFFFFFu, p4->ba_v.bnv_ipv4prefix.bipo_mask.s_addr);
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(p4.get(), nullptr, bt_ipv4prefix, nullptr, &out), 0);
    EXPECT_EQ(take(out), "10.1.0.0/16");
    prefix.bip_prefix_len = 33;
    EXPECT_EQ(bn_attrib_new_ipv4prefix_bnipv4(&raw, ba_value, 0, &prefix), lc_err_bad_type);

    // An inet value is tagged by family; other families are refused.
    bn_ipv6addr v6 = {};
    inet_pton(AF_INET6, "2001:db8::5", &v6.bi6_addr);
    ASSERT_EQ(bn_attrib_new_inetaddr_ipv6addr(&raw, ba_value, 0, &v6), 0);
    AttribPtr inet(raw);
    EXPECT_EQ(inet->ba_v.bnv_inetaddr.bin_family, AF_INET6);
    bn_ipv4addr v4 = {};
    EXPECT_EQ(bn_attrib_get_inetaddr_ipv4addr(inet.get(), nullptr, nullptr, &v4),
              lc_err_bad_type);
    bn_ipv6addr back = {};
    ASSERT_EQ(bn_attrib_get_inetaddr_ipv6addr(inet.get(), nullptr, nullptr, &back), 0);
    EXPECT_EQ(memcmp(&back, &v6, sizeof(back)), 0);

    bn_inetaddr bad = {};
    bad.bin_family = AF_UNIX;
    EXPECT_EQ(bn_attrib_new_inetaddr(&raw, ba_value, 0, &bad), lc_err_bad_type);
    EXPECT_EQ(bn_attrib_new_ipv4addr_inetaddr(&raw, ba_value, 0, &bad), lc_err_bad_type);

    // ipv4addr takes its word in network order.
    ASSERT_EQ(bn_attrib_new_ipv4addr(&raw, ba_value, 0, htonl(0xC0A80001)), 0);
    AttribPtr a4(raw);
    ASSERT_EQ(bn_attrib_get_str(a4.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "192.168.0.1");
    bn_inetaddr as_inet = {};
    ASSERT_EQ(bn_attrib_get_ipv4addr_inetaddr(a4.get(), nullptr, nullptr, &as_inet), 0);
    EXPECT_EQ(as_inet.bin_family, AF_INET);
    EXPECT_EQ(ntohl(as_inet.bin_addr.bina_in4.s_addr), 0xC0A80001u);
}

TEST(BnAttribFamilyTest, MacOidBtypeAndBinaryValues)
{
    bn_attrib *raw = nullptr;
    const uint8 mac[6] = {0x00, 0x1b, 0x21, 0xab, 0xcd, 0xef};
    ASSERT_EQ(bn_attrib_new_macaddr802(&raw, ba_value, 0, mac), 0);
    AttribPtr m(raw);
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(m.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "00:1B:21:AB:CD:EF");
    EXPECT_EQ(bn_attrib_new_macaddr802(&raw, ba_value, 0, nullptr), lc_err_unexpected_null);

    const uint32 oid[] = {1, 3, 6, 1, 4294967295u};
    ASSERT_EQ(bn_attrib_new_oid(&raw, ba_value, 0, oid, 5, true), 0);
    AttribPtr o(raw);
    ASSERT_EQ(bn_attrib_get_str(o.get(), nullptr, bt_oid, nullptr, &out), 0);
    EXPECT_EQ(take(out), ".1.3.6.1.4294967295");
    uint32 *got = nullptr;
    uint32 got_len = 0;
    tbool got_abs = false;
    ASSERT_EQ(bn_attrib_get_oid(o.get(), nullptr, nullptr, &got, &got_len, &got_abs), 0);
    ASSERT_EQ(got_len, 5u);
    EXPECT_TRUE(got_abs);
    EXPECT_EQ(std::vector<uint32>(got, got + got_len), std::vector<uint32>(oid, oid + 5));
    free(got);

    ASSERT_EQ(bn_attrib_new_btype(&raw, ba_value, 0, bt_inetprefix), 0);
    AttribPtr b(raw);
    ASSERT_EQ(bn_attrib_get_str(b.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "inetprefix");

    // A buffer prints up to its first zero byte; only string types take a tstring.
    tbuf *buf = nullptr;
    const uint8 bytes[] = {'a', 'b', 0, 'c'};
    ASSERT_EQ(tb_new_buf(&buf, bytes, sizeof(bytes)), 0);
    ASSERT_EQ(bn_attrib_new(&raw), 0);
    AttribPtr bin(raw);
    EXPECT_EQ(bn_attrib_set_tbuf(bin.get(), ba_value, bt_string, 0, buf), lc_err_assertion_failed);
    ASSERT_EQ(bn_attrib_set_tbuf_takeover(bin.get(), ba_value, bt_binary, 0, &buf), 0);
    EXPECT_EQ(buf, nullptr);
    ASSERT_EQ(bn_attrib_get_str(bin.get(), nullptr, bt_binary, nullptr, &out), 0);
    EXPECT_EQ(take(out), "ab");
    const tbuf *borrowed = nullptr;
    ASSERT_EQ(bn_attrib_get_tbuf_const(bin.get(), nullptr, nullptr, &borrowed), 0);
    EXPECT_EQ(tb_length(borrowed), 4u);
    tstring *ts = nullptr;
    ASSERT_EQ(ts_new_str(&ts, "x"), 0);
    EXPECT_EQ(bn_attrib_set_tstring(bin.get(), ba_value, bt_uint32, 0, ts),
              lc_err_assertion_failed);
    ASSERT_EQ(bn_attrib_set_tstring_takeover(bin.get(), ba_value, bt_utf8_string, 0, &ts), 0);
    EXPECT_EQ(ts, nullptr);
    EXPECT_TRUE(bin->ba_v.bnvv_utf8_string->ts_is_utf8);
}

// ---------------------------------------------------------------------------------------
// The parser and printer: each type's edge values.

TEST(BnTextIntegerTest, UnsignedLimitsAndBadText)
{
    expect_ok(bt_uint8, 0, "0");
    expect_ok(bt_uint8, 0, "255");
    expect_bad(bt_uint8, 0, "256");
    expect_bad(bt_uint8, 0, "-1");
    expect_bad(bt_uint8, 0, "");
    expect_bad(bt_uint8, 0, "0x10");
    expect_bad(bt_uint8, 0, "12a");
    expect_ok(bt_uint16, 0, "65535");
    expect_bad(bt_uint16, 0, "65536");
    expect_ok(bt_uint32, 0, "4294967295");
    expect_bad(bt_uint32, 0, "4294967296");
    expect_bad(bt_uint32, 0, "-0");
    expect_ok(bt_uint64, 0, "18446744073709551615");
    expect_bad(bt_uint64, 0, "18446744073709551616");
    expect_bad(bt_uint64, 0, "-1");
}

TEST(BnTextIntegerTest, SignedLimits)
{
    expect_ok(bt_int8, 0, "-128");
    expect_ok(bt_int8, 0, "127");
    expect_bad(bt_int8, 0, "128");
    expect_bad(bt_int8, 0, "-129");
    expect_ok(bt_int16, 0, "-32768");
    expect_bad(bt_int16, 0, "32768");
    expect_ok(bt_int32, 0, "-2147483648");
    expect_ok(bt_int32, 0, "2147483647");
    expect_bad(bt_int32, 0, "2147483648");
    expect_ok(bt_int64, 0, "-9223372036854775808");
    expect_ok(bt_int64, 0, "9223372036854775807");
    expect_bad(bt_int64, 0, "9223372036854775808");
    expect_bad(bt_int64, 0, "1.0");
}

TEST(BnTextScalarTest, FloatsCharsAndBooleans)
{
    expect_ok(bt_float32, 0, "1.5", "1.500000000");
    expect_ok(bt_float32, 0, "-0.25", "-0.250000000");
    expect_bad(bt_float32, 0, "1.5x");
    expect_bad(bt_float32, 0, "1e99");
    expect_ok(bt_float64, 0, "0.1", "0.100000000000000006");
    expect_ok(bt_float64, 0, "1e300", "1.00000000000000005e+300");
    expect_bad(bt_float64, 0, "1e999");
    expect_bad(bt_float64, 0, "abc");

    expect_ok(bt_char, 0, "a");
    expect_ok(bt_char, 0, "%");
    expect_bad(bt_char, 0, "ab");
    expect_bad(bt_char, 0, "");

    for (const char *word : {"true", "TRUE", "t", "T", "on", "ON"}) {
        expect_ok(bt_bool, 0, word, "true");
    }
    for (const char *word : {"false", "FALSE", "f", "F", "off", "OFF"}) {
        expect_ok(bt_bool, 0, word, "false");
    }
    for (const char *word : {"On", "True", "yes", "1", "0", ""}) {
        expect_bad(bt_bool, 0, word);
    }
}

TEST(BnTextScalarTest, NoneBtypeAttributeAndAny)
{
    expect_ok(bt_none, 0, "whatever", "");
    EXPECT_EQ(round_trip(bt_none, 0, nullptr).parse_err, 0);
    expect_ok(bt_btype, 0, "macaddr802");
    expect_bad(bt_btype, 0, "macaddr");
    expect_ok(bt_attribute, 0, "capability_mask");
    expect_bad(bt_attribute, 0, "cap_mask");
    EXPECT_EQ(round_trip(bt_any, 0, "x").parse_err, lc_err_unexpected_case);
    EXPECT_EQ(round_trip(bt_uint32, 0, nullptr).parse_err, lc_err_unexpected_null);
}

TEST(BnTextAddressTest, IpAddressesAndPrefixes)
{
    expect_ok(bt_ipv4addr, 0, "0.0.0.0");
    expect_ok(bt_ipv4addr, 0, "255.255.255.255");
    expect_bad(bt_ipv4addr, 0, "256.1.1.1");
    expect_bad(bt_ipv4addr, 0, "1.2.3");
    expect_ok(bt_ipv4prefix, 0, "1.2.3.0/24");
    expect_ok(bt_ipv4prefix, 0, "0.0.0.0/0");
    expect_bad(bt_ipv4prefix, 0, "1.2.3.4/24");
    expect_bad(bt_ipv4prefix, 0, "1.2.3.0/33");
    expect_ok(bt_ipv6addr, 0, "::");
    expect_ok(bt_ipv6addr, 0, "2001:db8::1");
    expect_bad(bt_ipv6addr, 0, "2001:db8::1::2");
    expect_ok(bt_ipv6addrz, 0, "fe80::1%4");
    expect_ok(bt_ipv6addrz, 0, "fe80::1", "fe80::1%0");
    expect_ok(bt_ipv6prefix, 0, "2001:db8::/32");
    expect_ok(bt_inetaddr, 0, "10.0.0.1");
    expect_ok(bt_inetaddr, 0, "::1");
    expect_bad(bt_inetaddr, 0, "host");
    expect_ok(bt_inetprefix, 0, "10.0.0.0/8");
    expect_ok(bt_inetprefix, 0, "fd00::/8");

    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_inetaddrz, 0, "fe80::1%4"), 0);
    AttribPtr z(raw);
    bn_inetaddrz got = {};
    ASSERT_EQ(bn_attrib_get_inetaddrz(z.get(), nullptr, nullptr, &got), 0);
    EXPECT_EQ(got.binz_family, AF_INET6);
    EXPECT_EQ(got.binz_zone_id, 4u);
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(z.get(), nullptr, bt_inetaddrz, nullptr, &out), 0);
    EXPECT_EQ(take(out), "fe80::1%4");
}

TEST(BnTextAddressTest, InetValuesMarkedDeletedOrInvalidPrintAny)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_inetaddr, 0, "10.9.8.7"), 0);
    AttribPtr a(raw);
    a->ba_type_flags |= btf_deleted;
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(a.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "::");

    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_inetprefix, btf_invalid, "junk"), 0);
    AttribPtr p(raw);
    ASSERT_EQ(bn_attrib_get_str(p.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "::/0");

    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_inetaddrz, btf_deleted, "10.1.1.1"), 0);
    AttribPtr z(raw);
    ASSERT_EQ(bn_attrib_get_str(z.get(), nullptr, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(take(out), "::%0");
}

TEST(BnTextAddressTest, MacAddressForms)
{
    expect_ok(bt_macaddr802, 0, "00:11:22:33:44:55");
    expect_ok(bt_macaddr802, 0, "aa:bb:cc:dd:ee:ff", "AA:BB:CC:DD:EE:FF");
    expect_ok(bt_macaddr802, 0, "0:1:2:a:b:c", "00:01:02:0A:0B:0C");
    expect_ok(bt_macaddr802, 0, "00.11.22.33.44.55", "00:11:22:33:44:55");
    expect_ok(bt_macaddr802, 0, "0011.2233.4455", "00:11:22:33:44:55");
    expect_ok(bt_macaddr802, 0, "1:2233:ffff", "00:01:22:33:FF:FF");
    expect_bad(bt_macaddr802, 0, "00:11:22.33:44:55");
    expect_bad(bt_macaddr802, 0, "0011:2233.4455");
    expect_bad(bt_macaddr802, 0, "00:11:22:33:44");
    expect_bad(bt_macaddr802, 0, "00:11:22:33:44:55:66");
    expect_bad(bt_macaddr802, 0, "001:11:22:33:44:55");
    expect_bad(bt_macaddr802, 0, "00112.2233.4455");
    expect_bad(bt_macaddr802, 0, "00:11:22:33:44:5g");
    expect_bad(bt_macaddr802, 0, "00::22:33:44:55");
    expect_bad(bt_macaddr802, 0, "001122334455");
}

TEST(BnTextHexTest, HexBytesForms)
{
    expect_ok(bt_uint8, btf_hex_bytes, "0x10", "0x10");
    expect_ok(bt_uint8, btf_hex_bytes, "16", "0x10");
    expect_ok(bt_uint8, btf_hex_bytes, "010", "0x08");
    expect_bad(bt_uint8, btf_hex_bytes, "0x100");
    expect_ok(bt_uint16, btf_hex_bytes, "0xffff", "0xFFFF");
    expect_bad(bt_uint16, btf_hex_bytes, "0x10000");
    expect_ok(bt_uint32, btf_hex_bytes, "0x1", "0x00000001");
    expect_bad(bt_uint32, btf_hex_bytes, "0x100000000");
    expect_bad(bt_uint32, btf_hex_bytes, "0x0x1");
    expect_bad(bt_uint32, btf_hex_bytes, "0x1:2");

    // The eight-group form of a uint64 reads the first group as the most significant.
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_uint64, btf_hex_bytes,
                                "00:11:22:33:44:55:66:77"),
              0);
    AttribPtr a(raw);
    EXPECT_EQ(a->ba_v.bnv_uint64, 0x0011223344556677ull);
    expect_ok(bt_uint64, btf_hex_bytes, "00:11:22:33:44:55:66:77");
    expect_ok(bt_uint64, btf_hex_bytes, "aa:bb:cc:dd:ee:ff:0a:1b", "AA:BB:CC:DD:EE:FF:0A:1B");
    expect_ok(bt_uint64, btf_hex_bytes, "0x10", "00:00:00:00:00:00:00:10");
    expect_bad(bt_uint64, btf_hex_bytes, "00:11:22:33:44:55:66:7");
    expect_bad(bt_uint64, btf_hex_bytes, "00:11:22:33:44:55:66");
    expect_bad(bt_uint64, btf_hex_bytes, "00:11:22:33:44:55:66:77:88");
    expect_bad(bt_uint64, btf_hex_bytes, "100:11:22:33:44:55:66:77");

    // A type without a hex form parses as usual but can't be printed as hex.
    const RoundTrip rt = round_trip(bt_int32, btf_hex_bytes, "5");
    EXPECT_EQ(rt.parse_err, 0);
    EXPECT_EQ(rt.print_err, lc_err_unexpected_case);
    expect_bad(bt_int32, btf_hex_bytes, "0x5");
}

TEST(BnTextStringTest, StringTypes)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_string, 0, ""), 0);
    AttribPtr empty(raw);
    ASSERT_NE(empty->ba_v.bnvv_string, nullptr);
    EXPECT_EQ(ts_length(empty->ba_v.bnvv_string), 0);

    expect_ok(bt_name, 0, "/a/b\\/c");
    expect_ok(bt_regex, 0, "^a.*[0-9]$");
    expect_ok(bt_binary, 0, "bytes");
    expect_ok(bt_utf8_string, 0, "gr\xc3\xbc\xc3\x9f dich");
    expect_bad(bt_utf8_string, 0, "bad \xff byte");
    expect_bad(bt_utf8_string, 0, "cut \xc3");

    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_utf8_string, 0, "\xe2\x82\xac"), 0);
    AttribPtr u(raw);
    const tstring *ts = nullptr;
    ASSERT_EQ(bn_attrib_get_tstring_const(u.get(), nullptr, nullptr, &ts), 0);
    EXPECT_TRUE(ts->ts_is_utf8);
    EXPECT_EQ(ts_num_chars(ts), 1);
}

TEST(BnTextStringTest, HostnameRules)
{
    expect_ok(bt_hostname, 0, "switch-1.example.com");
    expect_ok(bt_hostname, 0, "");
    expect_ok(bt_hostname, 0, "::1");
    expect_ok(bt_hostname, 0, "fe80::1%eth0");
    expect_ok(bt_hostname, 0, "fe80::1%a_b");
    expect_ok(bt_hostname, 0, "fe80::1%abcdefghijklmnop");
    expect_bad(bt_hostname, 0, "fe80::1%abcdefghijklmnopq");
    expect_bad(bt_hostname, 0, "a_b");
    expect_bad(bt_hostname, 0, "-a");
    expect_bad(bt_hostname, 0, "a b");
    expect_bad(bt_hostname, 0, "host%1");
    expect_bad(bt_hostname, 0, "1:2");
    expect_bad(bt_hostname, 0, "fe80::1%");
    expect_bad(bt_hostname, 0, "fe80::1%.x");
    expect_bad(bt_hostname, 0, "fe80::1%a..b");
    expect_bad(bt_hostname, 0, "fe80::1%a%b");
}

TEST(BnTextDurationTest, PlainDurations)
{
    expect_ok(bt_duration_sec, 0, "90");
    expect_ok(bt_duration_sec, 0, "2147483647");
    expect_ok(bt_duration_ms, 0, "86400000");
    expect_ok(bt_duration_us, 0, "9223372036854775807");
    // Read as unsigned numbers are read by the C library, and kept in the value's width.
    expect_ok(bt_duration_sec, 0, "4294967295", "-1");
    expect_ok(bt_duration_sec, 0, "-5", "-5");
    expect_ok(bt_duration_ms, 0, "18446744073709551615", "-1");
    expect_bad(bt_duration_ms, 0, "18446744073709551616");
    expect_bad(bt_duration_ms, 0, "5 sec");
    expect_bad(bt_duration_ms, 0, "0x10");
    expect_bad(bt_duration_us, 0, "");
}

// Dates and times are read and printed in local time; the zone is pinned for the test.
class BnTextTimeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char *tz = getenv("TZ");
        saved_tz_ = tz != nullptr ? std::optional<std::string>(tz) : std::nullopt;
        setenv("TZ", "UTC", 1);
        tzset();
    }
    void TearDown() override
    {
        if (saved_tz_) {
            setenv("TZ", saved_tz_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    std::optional<std::string> saved_tz_;
};

TEST_F(BnTextTimeTest, DatesTimesAndDateTimesRoundTrip)
{
    expect_ok(bt_date, 0, "2024/02/29");
    expect_ok(bt_time_sec, 0, "23:59:59");
    expect_ok(bt_time_sec, 0, "00:00:00");
    expect_ok(bt_time_ms, 0, "00:00:01.500");
    expect_ok(bt_time_us, 0, "12:00:00.000001");
    expect_ok(bt_datetime_sec, 0, "2024/05/17 13:45:10");
    expect_ok(bt_datetime_ms, 0, "2024/05/17 13:45:10.250");
    expect_ok(bt_datetime_us, 0, "1970/01/01 00:00:00.000001");
    expect_bad(bt_date, 0, "2024-02-29");
    expect_bad(bt_time_sec, 0, "noon");
    expect_bad(bt_datetime_sec, 0, "2024/05/17 13:45");
    expect_bad(bt_datetime_sec, 0, "2024/05/17 13:45:10 tomorrow");
}

TEST_F(BnTextTimeTest, DateTimeAcceptsABareDateAsItsMidnight)
{
    expect_ok(bt_datetime_sec, 0, "2024/05/17", "2024/05/17 00:00:00");
    expect_ok(bt_datetime_ms, 0, "2024/05/17", "2024/05/17 00:00:00.000");
    expect_ok(bt_datetime_us, 0, "2024/05/17", "2024/05/17 00:00:00.000000");

    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_datetime_ms, 0, "2024/05/17"), 0);
    AttribPtr a(raw);
    lt_time_ms value = 0;
    ASSERT_EQ(bn_attrib_get_datetime_ms(a.get(), nullptr, nullptr, &value), 0);
    EXPECT_EQ(value, 1715904000000LL);
}

TEST_F(BnTextTimeTest, PrettyDurationsUseTheirUnitWords)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_value, bt_duration_sec, btf_pretty, "1 hour 30 min"), 0);
    AttribPtr a(raw);
    lt_dur_sec value = 0;
    ASSERT_EQ(bn_attrib_get_duration_sec(a.get(), nullptr, nullptr, &value), 0);
    EXPECT_EQ(value, 5400);
    char *out = nullptr;
    ASSERT_EQ(bn_attrib_get_str(a.get(), nullptr, bt_NONE, nullptr, &out), 0);
    const std::string text = take(out);
    EXPECT_NE(text.find("hour"), std::string::npos) << text;
    EXPECT_NE(text.find("30"), std::string::npos) << text;

    expect_bad(bt_duration_sec, btf_pretty, "1 hour 2 hours");
    expect_bad(bt_duration_ms, btf_pretty, "soon");
    expect_ok(bt_duration_us, btf_pretty, "1.5 seconds", "1.500000 seconds");
}

TEST(BnTextPrinterTest, ExpectedTypeAndOutputs)
{
    bn_attrib *raw = nullptr;
    ASSERT_EQ(bn_attrib_new_str(&raw, ba_module_name, bt_uint16, btf_counter, "42"), 0);
    AttribPtr a(raw);
    char *out = reinterpret_cast<char *>(1);
    bn_attribute_id id = ba_NONE;
    uint32 flagged = 0;
    EXPECT_EQ(bn_attrib_get_str(a.get(), &id, bt_uint32, &flagged, &out),
              lc_err_assertion_failed);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(bn_attrib_get_str(a.get(), &id, bt_uint16, &flagged, &out), 0);
    EXPECT_EQ(take(out), "42");
    EXPECT_EQ(id, ba_module_name);
    EXPECT_EQ(flagged, bt_uint16 | btf_counter);
}

// ---------------------------------------------------------------------------------------
// The binding forms.

TEST(BnBindingTypedTest, NewSetAndGet)
{
    bn_binding *raw = nullptr;
    ASSERT_EQ(bn_binding_new_uint32(&raw, "/ib/state/x", ba_value, btf_class_state, 7), 0);
    BindingPtr b(raw);
    uint32 flagged = 0;
    uint32 value = 0;
    ASSERT_EQ(bn_binding_get_uint32(b.get(), ba_value, &flagged, &value), 0);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(flagged, bt_uint32 | btf_class_state);

    // Replacing the value releases the old attribute; a higher id grows the table.
    ASSERT_EQ(bn_binding_set_str(b.get(), ba_value, bt_string, 0, "now a string"), 0);
    ASSERT_EQ(bn_binding_set_uint8(b.get(), ba_module_version, 0, 3), 0);
    char *out = nullptr;
    ASSERT_EQ(bn_binding_get_str(b.get(), ba_value, bt_string, &flagged, &out), 0);
    EXPECT_EQ(take(out), "now a string");
    uint8 small = 0;
    ASSERT_EQ(bn_binding_get_uint8(b.get(), ba_module_version, nullptr, &small), 0);
    EXPECT_EQ(small, 3);

    // The wrong type, an empty slot, a slot past the table, no binding.
    value = 99;
    EXPECT_EQ(bn_binding_get_uint32(b.get(), ba_value, &flagged, &value), lc_err_assertion_failed);
    EXPECT_EQ(value, 99u);
    EXPECT_EQ(bn_binding_get_uint32(b.get(), ba_encrypted_value, &flagged, &value), 0);
    EXPECT_EQ(value, 99u);
    EXPECT_EQ(flagged, 0u);
    EXPECT_EQ(bn_binding_get_uint32(b.get(), ba_node_count, &flagged, &value), lc_err_not_found);
    EXPECT_EQ(bn_binding_get_uint32(nullptr, ba_value, &flagged, &value), lc_err_unexpected_null);
    out = nullptr;
    EXPECT_EQ(bn_binding_get_str(b.get(), ba_encrypted_value, bt_NONE, nullptr, &out), 0);
    EXPECT_EQ(out, nullptr);
}

TEST(BnBindingTypedTest, PartsNamesTstrAndConstBorrow)
{
    tstr_array *parts = nullptr;
    ASSERT_EQ(bn_binding_name_to_parts("/a/b", &parts, nullptr), 0);
    bn_binding *raw = nullptr;
    ASSERT_EQ(bn_binding_new_parts_str(&raw, nullptr, parts, true, ba_value, bt_utf8_string, 0,
                                       "\xc3\xa9t\xc3\xa9"),
              0);
    tstr_array_free(&parts);
    BindingPtr b(raw);
    EXPECT_STREQ(ts_str(b->bn_node_name), "/a/b");

    tstring *ts = nullptr;
    ASSERT_EQ(bn_binding_get_tstr(b.get(), ba_value, bt_NONE, nullptr, &ts), 0);
    ASSERT_NE(ts, nullptr);
    EXPECT_TRUE(ts->ts_is_utf8);
    EXPECT_EQ(ts_num_chars(ts), 3);
    ts_free(&ts);

    const tstring *borrowed = nullptr;
    ASSERT_EQ(bn_binding_get_tstring_const(b.get(), ba_value, nullptr, &borrowed), 0);
    const bn_attrib *attrib = nullptr;
    ASSERT_EQ(bn_binding_get_attrib(b.get(), ba_value, &attrib), 0);
    EXPECT_EQ(borrowed, attrib->ba_v.bnvv_utf8_string);
    EXPECT_STREQ(ts_str(borrowed), "\xc3\xa9t\xc3\xa9");
}

TEST(BnBindingTypedTest, AutoinvalMarksUnparsableValuesInvalid)
{
    bn_binding *raw = nullptr;
    EXPECT_EQ(bn_binding_new_str(&raw, "/x", ba_value, bt_uint16, 0, "70000"), lc_err_bad_type);
    EXPECT_EQ(raw, nullptr);

    ASSERT_EQ(bn_binding_new_str_autoinval(&raw, "/x", ba_value, bt_uint16, 0, "70000"), 0);
    BindingPtr b(raw);
    uint32 flagged = 0;
    uint16 value = 1234;
    ASSERT_EQ(bn_binding_get_uint16(b.get(), ba_value, &flagged, &value), 0);
    EXPECT_EQ(flagged, bt_uint16 | btf_invalid);
    EXPECT_EQ(value, 1234);

    ASSERT_EQ(bn_binding_new_str_autoinval(&raw, "/y", ba_value, bt_uint16, 0, "700"), 0);
    BindingPtr good(raw);
    ASSERT_EQ(bn_binding_get_uint16(good.get(), ba_value, &flagged, &value), 0);
    EXPECT_EQ(flagged, static_cast<uint32>(bt_uint16));
    EXPECT_EQ(value, 700);
}

// The log line of a wrong-type read names both types.
TEST(BnBindingTypedLogTest, WrongTypeReadLogsBothTypeNames)
{
    std::string why;
    if (!ovd_test::enter_sandbox(&why)) {
        GTEST_SKIP() << "no private mount namespace: " << why;
    }
    ovd_test::SyslogReceiver receiver;
    ASSERT_TRUE(receiver.ok());
    bn_binding *raw = nullptr;
    ASSERT_EQ(bn_binding_new_str(&raw, "/s", ba_value, bt_string, 0, "text"), 0);
    BindingPtr b(raw);
    uint32 value = 0;
    EXPECT_EQ(bn_binding_get_uint32(b.get(), ba_value, nullptr, &value), lc_err_assertion_failed);
    EXPECT_TRUE(receiver.wait_for("Tried to get a string attribute as a uint32"));
}

}  // namespace
