// Wire layouts: the bit access under them, byte images written out by hand from the
// layouts' bit offsets, pack/unpack round trips on pseudo-random data, and dump texts.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "sa_packets.h"

namespace {

using bytes = std::vector<u_int8_t>;

// A zeroed image of `size` bytes with runs of bytes placed at the given byte offsets.
bytes image(size_t size, std::initializer_list<std::pair<size_t, bytes>> runs)
{
    bytes out(size, 0);
    for (const auto &[at, run] : runs) {
        for (size_t i = 0; i < run.size(); ++i) {
            out.at(at + i) = run[i];
        }
    }
    return out;
}

// The characters of a text as bytes, space-padded to `len`.
bytes text(const char *s, size_t len)
{
    bytes out(len, ' ');
    for (size_t i = 0; i < len && s[i] != '\0'; ++i) {
        out[i] = static_cast<u_int8_t>(s[i]);
    }
    return out;
}

void fill_text(u_int8_t *dst, const char *s, size_t len)
{
    bytes b = text(s, len);
    memcpy(dst, b.data(), len);
}

// What a dump function prints for a record.
template <typename R>
std::string dump_of(void (*dump)(const R *, FILE *), const R &rec)
{
    char *data = nullptr;
    size_t len = 0;
    FILE *fd = open_memstream(&data, &len);
    EXPECT_NE(fd, nullptr);
    if (fd == nullptr) {
        return {};
    }
    dump(&rec, fd);
    fclose(fd);
    std::string out(data, len);
    free(data);
    return out;
}

// ---- Bit access ----

struct pop_case {
    const char *what;
    bytes buff;
    u_int32_t offset;
    u_int32_t width;
    u_int32_t expected;
};

TEST(PacketsBits, PopReadsMostSignificantBitFirstInBigEndianWords)
{
    const bytes word2 = {0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0};
    const pop_case cases[] = {
        {"offset 0 width 8 is byte 0", word2, 0, 8, 0x12},
        {"offset 24 width 8 is the last byte of word 0", word2, 24, 8, 0x78},
        {"offset 56 width 8 is the last byte of word 1", word2, 56, 8, 0xf0},
        {"width 32 at offset 0", word2, 0, 32, 0x12345678},
        {"width 32 at offset 32", word2, 32, 32, 0x9abcdef0},
        {"width 16 at offset 16", word2, 16, 16, 0x5678},
        {"width 24 at offset 8", word2, 8, 24, 0x345678},
        {"width 4 at offset 12 is the low nibble of byte 1", word2, 12, 4, 0x4},
        {"width 4 at offset 8 is the high nibble of byte 1", word2, 8, 4, 0x3},
        {"width 12 at offset 0", word2, 0, 12, 0x123},
        {"width 1 at offset 0 is the top bit", {0x80, 0, 0, 0}, 0, 1, 1},
        {"width 1 at offset 1", {0x80, 0, 0, 0}, 1, 1, 0},
        {"width 1 at offset 31 is the bottom bit of word 0", {0, 0, 0, 0x01, 0x80}, 31, 1, 1},
        {"width 1 at offset 32 is the top bit of word 1", {0, 0, 0, 0x01, 0x80}, 32, 1, 1},
        {"width 7 at offset 17", {0, 0, 0x85, 0}, 17, 7, 0x05},
        {"width 32 across two words", word2, 16, 32, 0x56789abc},
        {"width 0 gives 0", word2, 0, 0, 0},
        {"width 33 gives 0", word2, 0, 33, 0},
    };
    for (const pop_case &c : cases) {
        EXPECT_EQ(pop_from_buff(c.buff.data(), c.offset, c.width), c.expected) << c.what;
    }
}

struct push_case {
    const char *what;
    bytes before;
    u_int32_t offset;
    u_int32_t width;
    u_int32_t value;
    bytes after;
};

TEST(PacketsBits, PushWritesOnlyTheFieldsBits)
{
    const bytes ones = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    const bytes zeros(8, 0);
    const push_case cases[] = {
        {"offset 0 width 8", zeros, 0, 8, 0xab, {0xab, 0, 0, 0, 0, 0, 0, 0}},
        {"offset 24 width 8", zeros, 24, 8, 0xab, {0, 0, 0, 0xab, 0, 0, 0, 0}},
        {"width 32 in word 1", zeros, 32, 32, 0x01020304, {0, 0, 0, 0, 1, 2, 3, 4}},
        {"width 32 in word 0 over ones", ones, 0, 32, 0, {0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}},
        {"width 1 at 0 clears the top bit only", ones, 0, 1, 0,
         {0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
        {"width 1 at 31 sets the bottom bit only", zeros, 31, 1, 1, {0, 0, 0, 1, 0, 0, 0, 0}},
        {"width 4 at 12 keeps the high nibble", ones, 12, 4, 0x5,
         {0xff, 0xf5, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
        {"width 24 at 40", zeros, 40, 24, 0x02a1b2, {0, 0, 0, 0, 0, 0x02, 0xa1, 0xb2}},
        {"value wider than the field is cut", zeros, 24, 8, 0x1ff, {0, 0, 0, 0xff, 0, 0, 0, 0}},
        {"width 11 at 5", zeros, 5, 11, 0x7ff, {0x07, 0xff, 0, 0, 0, 0, 0, 0}},
        {"width 32 across two words", zeros, 16, 32, 0xdeadbeef, {0, 0, 0xde, 0xad, 0xbe, 0xef, 0, 0}},
        {"width 0 writes nothing", ones, 8, 0, 0, ones},
        {"width 33 writes nothing", zeros, 0, 33, 0xffffffff, zeros},
    };
    for (const push_case &c : cases) {
        bytes buff = c.before;
        push_to_buff(buff.data(), c.offset, c.width, c.value);
        EXPECT_EQ(buff, c.after) << c.what;
    }
}

TEST(PacketsBits, PushThenPopOnEveryOffsetAndWidth)
{
    std::mt19937 rng(0x5eed);
    for (u_int32_t width = 1; width <= 32; ++width) {
        for (u_int32_t offset = 0; offset + width <= 96; ++offset) {
            bytes buff(12);
            for (u_int8_t &b : buff) {
                b = static_cast<u_int8_t>(rng());
            }
            const bytes before = buff;
            const u_int32_t mask = width == 32 ? 0xffffffffu : ((1u << width) - 1);
            const u_int32_t value = static_cast<u_int32_t>(rng()) & mask;
            push_to_buff(buff.data(), offset, width, value);
            ASSERT_EQ(pop_from_buff(buff.data(), offset, width), value)
                << "offset " << offset << " width " << width;
            // Every bit outside the field is as it was.
            for (u_int32_t bit = 0; bit < 96; ++bit) {
                if (bit >= offset && bit < offset + width) {
                    continue;
                }
                ASSERT_EQ(pop_from_buff(buff.data(), bit, 1), pop_from_buff(before.data(), bit, 1))
                    << "offset " << offset << " width " << width << " bit " << bit;
            }
        }
    }
}

// ---- Layouts ----

// One layout seen through untyped calls, so that the table-driven tests can hold all.
struct layout {
    const char *name;
    size_t size;
    // Unpacks `in` into a fresh record and packs that record over `out`.
    std::function<void(const bytes &in, bytes &out)> repack;
    // The dump of the record unpacked from `in`.
    std::function<std::string(const bytes &)> dump;
};

template <typename R>
layout make_layout(const char *name, size_t size, void (*pack)(const R *, u_int8_t *),
                   void (*unpack)(R *, const u_int8_t *), void (*dump)(const R *, FILE *))
{
    layout l;
    l.name = name;
    l.size = size;
    l.repack = [pack, unpack](const bytes &in, bytes &out) {
        R rec{};
        unpack(&rec, in.data());
        pack(&rec, out.data());
    };
    l.dump = [unpack, dump](const bytes &in) {
        R rec{};
        unpack(&rec, in.data());
        return dump_of(dump, rec);
    };
    return l;
}

#define LAYOUT(X) make_layout<struct X>(#X, X##_size, X##_pack, X##_unpack, X##_dump)

std::vector<layout> all_layouts()
{
    return {
        LAYOUT(SMP_MAD_AttrMod_EyeOpen),
        LAYOUT(SMP_EyeOpen),
        LAYOUT(SMP_CableInfo),
        LAYOUT(CableInfo_Payload_Addr_128_167),
        LAYOUT(CableInfo_Payload_Addr_168_211),
        LAYOUT(SFP_cableInfo_Payload_Addr_0_39),
        LAYOUT(SFP_cableInfo_Payload_Addr_40_63),
        LAYOUT(SFP_cableInfo_Payload_Addr_64_95),
        LAYOUT(TLV_OPERATION),
        LAYOUT(TLV_REG),
        LAYOUT(REG_PTYS),
        LAYOUT(REG_PMTU),
        LAYOUT(REG_PVLC),
        make_layout<union PACKETS_INTERNAL>("PACKETS_INTERNAL", PACKETS_INTERNAL_size,
                                            PACKETS_INTERNAL_pack, PACKETS_INTERNAL_unpack,
                                            PACKETS_INTERNAL_dump),
    };
}

// Every bit of every layout belongs to some field, reserved ones included: a random
// image comes back whole through unpack and pack, and the record read back from the
// packed image prints the same as the first one.
TEST(PacketsLayouts, RandomImagesSurviveUnpackAndPack)
{
    std::mt19937 rng(20240611);
    for (const layout &l : all_layouts()) {
        for (int round = 0; round < 50; ++round) {
            bytes in(l.size);
            for (u_int8_t &b : in) {
                b = static_cast<u_int8_t>(rng());
            }
            bytes out(l.size, 0);
            l.repack(in, out);
            ASSERT_EQ(out, in) << l.name << " round " << round;
            EXPECT_EQ(l.dump(out), l.dump(in)) << l.name;
        }
    }
}

// Pack writes every byte of the layout and none beyond it.
TEST(PacketsLayouts, PackStaysWithinTheLayout)
{
    for (const layout &l : all_layouts()) {
        const bytes in(l.size, 0xff);
        bytes out(l.size + 8, 0x5a);
        l.repack(in, out);
        bytes expected(l.size, 0xff);
        expected.resize(l.size + 8, 0x5a);
        EXPECT_EQ(out, expected) << l.name;
    }
}

struct golden_case {
    const char *name;
    bytes packed;    // from the record below
    bytes expected;  // written out from the layout's offsets
    bytes repacked;  // the expected image unpacked and packed again
};

template <typename R>
golden_case golden(const char *name, size_t size, const R &rec, void (*pack)(const R *, u_int8_t *),
                   void (*unpack)(R *, const u_int8_t *), bytes expected)
{
    golden_case g{name, bytes(size, 0), std::move(expected), bytes(size, 0)};
    R back{};
    pack(&rec, g.packed.data());
    unpack(&back, g.expected.data());
    pack(&back, g.repacked.data());
    return g;
}

#define GOLDEN(X, rec, expected) golden<struct X>(#X, X##_size, (rec), X##_pack, X##_unpack, (expected))

std::vector<golden_case> golden_cases()
{
    std::vector<golden_case> cases;

    {
        SMP_MAD_AttrMod_EyeOpen r{};
        r.PortSelect = 0x01;
        r.GroupLane = 0x02;
        r.reserved0 = 0xbeef;
        cases.push_back(GOLDEN(SMP_MAD_AttrMod_EyeOpen, r, image(4, {{0, {0xbe, 0xef, 0x02, 0x01}}})));
    }
    {
        SMP_EyeOpen r{};
        r.LinkWidthActive = 0x04;
        r.AutoNegoState = 0xa;
        r.reserved1 = 0x123;
        r.HighAmplitude_Lane0 = 0x51;
        r.LowAmplitude_Lane0 = 0x52;
        r.PositiveBound_Lane0 = 0x61;
        r.NegativeBound_Lane0 = 0x62;
        r.SelectedOptionTX_Lane0 = 0x71;
        r.SelectedOptionRX_Lane0 = 0x72;
        r.AmpCalibration_Lane0 = 0x73;
        r.LowAmplitude_Lane1 = 0x81;
        r.HighAmplitude_Lane1 = 0x82;
        r.NegativeBound_Lane2 = 0x83;
        r.AmpCalibration_Lane3 = 0x91;
        r.SelectedOptionTX_Lane3 = 0x92;
        r.reserved22[2] = 0xcafef00d;
        cases.push_back(GOLDEN(SMP_EyeOpen, r,
                               image(64, {{0, {0x12, 0x3a, 0x00, 0x04}},
                                          {4, {0x00, 0x52, 0x00, 0x51}},
                                          {8, {0x00, 0x62, 0x00, 0x61}},
                                          {12, {0x00, 0x73, 0x72, 0x71}},
                                          {16, {0x00, 0x82, 0x00, 0x81}},
                                          {33, {0x83}},
                                          {48, {0x00, 0x91, 0x00, 0x92}},
                                          {60, {0xca, 0xfe, 0xf0, 0x0d}}})));
    }
    {
        SMP_CableInfo r{};
        r.address = 0x0123;
        r.page_number = 0x03;
        r.device_address = 0xa0;
        r.size = 48;
        r.reserved1[1] = 0x11223344;
        r.Byte[0] = 0x11;
        r.Byte[1] = 0x12;
        r.Byte[47] = 0x22;
        cases.push_back(GOLDEN(SMP_CableInfo, r,
                               image(64, {{0, {0xa0, 0x03, 0x01, 0x23, 0x00, 0x00, 0x00, 0x30}},
                                          {12, {0x11, 0x22, 0x33, 0x44}},
                                          {16, {0x11, 0x12}},
                                          {63, {0x22}}})));
    }
    {
        CableInfo_Payload_Addr_128_167 r{};
        r.Identifier = 0x11;
        r.Connector = 0x23;
        r.SpecCompliance0 = 0x80;
        r.SpecCompliance7 = 0x07;
        r.LengthSMFiber = 0x0a;
        r.LengthOM3 = 0x0b;
        r.LengthOM2 = 0x0d;
        r.LengthOM1 = 0x0c;
        r.LengthCopperOrActive = 0x05;
        r.DeviceTech = 0xa0;
        fill_text(r.VendorName, "VENDOR-X", 16);
        r.ExtendedModuleCodes = 0x1f;
        r.VendorOUI = 0x02a1b2;
        cases.push_back(GOLDEN(CableInfo_Payload_Addr_128_167, r,
                               image(40, {{0, {0x11, 0x00, 0x23, 0x80}},
                                          {10, {0x07}},
                                          {14, {0x0a, 0x0b, 0x0d, 0x0c, 0x05, 0xa0}},
                                          {20, text("VENDOR-X", 16)},
                                          {36, {0x1f, 0x02, 0xa1, 0xb2}}})));
    }
    {
        CableInfo_Payload_Addr_168_211 r{};
        fill_text(r.VendorPN, "PN-0001", 16);
        fill_text(r.VendorRev, "A0", 2);
        r.Wavelength = 0x1234;
        r.CC_Base = 0x00ab;
        r.MaxCaseTemp = 70;
        r.WavelengthTolerance = 0x0f;
        r.Options[0] = 0x01;
        r.Options[3] = 0x04;
        fill_text(r.VendorSN, "SN0002", 16);
        cases.push_back(GOLDEN(CableInfo_Payload_Addr_168_211, r,
                               image(44, {{0, text("PN-0001", 16)},
                                          {16, {'A', '0', 0x12, 0x34, 0x00, 0xab, 70, 0x0f}},
                                          {24, {0x01, 0x00, 0x00, 0x04}},
                                          {28, text("SN0002", 16)}})));
    }
    {
        SFP_cableInfo_Payload_Addr_0_39 r{};
        r.Identifier = 0x03;
        r.ExtendedIdentifier = 0x04;
        r.Connector = 0x07;
        r.Transceiver_8_bytes[0] = 0x10;
        r.Transceiver_8_bytes[7] = 0x17;
        r.Encoding = 0x06;
        r.BRNominal = 0x67;
        r.LengthSMFKM = 0x01;
        r.Length62_half_UM = 0x02;
        r.Length_cable = 0x03;
        r.LengthOM3 = 0x04;
        fill_text(r.SFPVendorName, "VENDOR-Y", 16);
        r.Transceiver = 0x99;
        r.VendorOUI = 0x02c3d4;
        cases.push_back(GOLDEN(SFP_cableInfo_Payload_Addr_0_39, r,
                               image(40, {{0, {0x03, 0x04, 0x07, 0x10}},
                                          {10, {0x17, 0x06, 0x67, 0x00, 0x01}},
                                          {17, {0x02, 0x03, 0x04}},
                                          {20, text("VENDOR-Y", 16)},
                                          {36, {0x99, 0x02, 0xc3, 0xd4}}})));
    }
    {
        SFP_cableInfo_Payload_Addr_40_63 r{};
        fill_text(r.VendorPN, "SFP-PN", 16);
        fill_text(r.VendorREV, "1.0", 4);
        r.Wavelength = 0x0352;
        r.UNallocated = 0x5a;
        r.CC_Base = 0xc5;
        cases.push_back(GOLDEN(SFP_cableInfo_Payload_Addr_40_63, r,
                               image(24, {{0, text("SFP-PN", 16)},
                                          {16, {'1', '.', '0', ' ', 0x03, 0x52, 0x5a, 0xc5}}})));
    }
    {
        SFP_cableInfo_Payload_Addr_64_95 r{};
        r.Options[0] = 0x00;
        r.Options[1] = 0x1a;
        r.BRMax = 0x0b;
        r.BRMin = 0x0c;
        fill_text(r.VendorSN, "SFPSN9", 16);
        fill_text(r.DateCode, "240611", 8);
        r.DiagnosticMonType = 0x68;
        r.EnhancedOptions = 0xf0;
        r.SFF8472Compliance = 0x08;
        r.CC_Ext = 0xee;
        cases.push_back(GOLDEN(SFP_cableInfo_Payload_Addr_64_95, r,
                               image(32, {{0, {0x00, 0x1a, 0x0b, 0x0c}},
                                          {4, text("SFPSN9", 16)},
                                          {20, text("240611", 8)},
                                          {28, {0x68, 0xf0, 0x08, 0xee}}})));
    }
    {
        TLV_OPERATION r{};
        r.type = 1;
        r.len = 4;
        r.dr = 1;
        r.status = 5;
        r.register_id = 0x5004;
        r.r = 1;
        r.method = 2;
        r.reg_class = 1;
        r.tid_high = 0x01020304;
        r.tid_low = 0xa0b0c0d0;
        cases.push_back(GOLDEN(TLV_OPERATION, r,
                               image(16, {{0, {0x08, 0x04, 0x85, 0x00, 0x50, 0x04, 0x82, 0x01}},
                                          {8, {0x01, 0x02, 0x03, 0x04, 0xa0, 0xb0, 0xc0, 0xd0}}})));
    }
    {
        TLV_REG r{};
        r.type = 3;
        r.len = 0x41;
        cases.push_back(GOLDEN(TLV_REG, r, image(4, {{0, {0x18, 0x41, 0x00, 0x00}}})));
    }
    {
        REG_PTYS r{};
        r.local_port = 0x11;
        r.proto_mask = 1;
        r.ib_proto_capability = 0x0005003f;
        r.ib_proto_admin = 0x00040020;
        r.ib_proto_oper = 0x00040010;
        cases.push_back(GOLDEN(REG_PTYS, r,
                               image(40, {{0, {0x00, 0x11, 0x00, 0x01}},
                                          {12, {0x00, 0x05, 0x00, 0x3f}},
                                          {24, {0x00, 0x04, 0x00, 0x20}},
                                          {36, {0x00, 0x04, 0x00, 0x10}}})));
    }
    {
        REG_PMTU r{};
        r.local_port = 0x22;
        r.max_mtu = 4096;
        r.admin_mtu = 2048;
        r.oper_mtu = 256;
        cases.push_back(GOLDEN(REG_PMTU, r,
                               image(16, {{0, {0x00, 0x22}}, {4, {0x10, 0x00}}, {8, {0x08, 0x00}},
                                          {12, {0x01, 0x00}}})));
    }
    {
        REG_PVLC r{};
        r.local_port = 0x11;
        r.vl_cap = 4;
        r.vl_admin = 3;
        r.vl_operational = 2;
        cases.push_back(GOLDEN(REG_PVLC, r,
                               image(16, {{0, {0x00, 0x11}}, {7, {0x04}}, {11, {0x03}}, {15, {0x02}}})));
    }
    return cases;
}

TEST(PacketsLayouts, HandWrittenImages)
{
    for (const golden_case &g : golden_cases()) {
        EXPECT_EQ(g.packed, g.expected) << g.name << ": pack";
        EXPECT_EQ(g.repacked, g.expected) << g.name << ": unpack then pack";
    }
}

// ---- Field values read from wire images ----

TEST(PacketsLayouts, FieldsReadFromImages)
{
    // The attribute modifier 0x00000201, as a host word, put in wire order.
    const u_int32_t attr_mod = htonl(0x00000201);
    SMP_MAD_AttrMod_EyeOpen mod{};
    SMP_MAD_AttrMod_EyeOpen_unpack(&mod, reinterpret_cast<const u_int8_t *>(&attr_mod));
    EXPECT_EQ(mod.PortSelect, 1);
    EXPECT_EQ(mod.GroupLane, 2);
    EXPECT_EQ(mod.reserved0, 0);

    // The OUI is 24 bits in a 32-bit field: the byte before it (ExtendedModuleCodes)
    // does not leak into its top byte.
    bytes page = image(40, {{36, {0xff, 0x02, 0xa1, 0xb2}}});
    CableInfo_Payload_Addr_128_167 qsfp{};
    CableInfo_Payload_Addr_128_167_unpack(&qsfp, page.data());
    EXPECT_EQ(qsfp.VendorOUI, 0x0002a1b2u);
    EXPECT_EQ(qsfp.ExtendedModuleCodes, 0xff);

    bytes sfp_page = image(40, {{0, {0x03}}, {36, {0xee, 0xff, 0xff, 0xff}}});
    SFP_cableInfo_Payload_Addr_0_39 sfp{};
    SFP_cableInfo_Payload_Addr_0_39_unpack(&sfp, sfp_page.data());
    EXPECT_EQ(sfp.Identifier, 0x03);
    EXPECT_EQ(sfp.Transceiver, 0xee);
    EXPECT_EQ(sfp.VendorOUI, 0x00ffffffu);

    // The vendor strings are the page's bytes in order.
    bytes pn = image(44, {{0, text("PN-0001", 16)}, {16, {'B', '1'}}});
    CableInfo_Payload_Addr_168_211 upper{};
    CableInfo_Payload_Addr_168_211_unpack(&upper, pn.data());
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(upper.VendorPN), 16), "PN-0001         ");
    EXPECT_EQ(upper.VendorRev[0], 'B');
    EXPECT_EQ(upper.VendorRev[1], '1');
}

// The union's wire form is that of the eye-opening attribute.
TEST(PacketsLayouts, UnionPacksAsTheEyeOpeningAttribute)
{
    PACKETS_INTERNAL u{};
    u.SMP_EyeOpen.LinkWidthActive = 0x02;
    u.SMP_EyeOpen.SelectedOptionRX_Lane2 = 0x44;
    bytes via_union(PACKETS_INTERNAL_size, 0);
    bytes direct(SMP_EyeOpen_size, 0);
    PACKETS_INTERNAL_pack(&u, via_union.data());
    SMP_EyeOpen_pack(&u.SMP_EyeOpen, direct.data());
    EXPECT_EQ(via_union, direct);
    EXPECT_EQ(via_union[3], 0x02);
    EXPECT_EQ(via_union[38], 0x44);
    EXPECT_EQ(dump_of(PACKETS_INTERNAL_dump, u), dump_of(SMP_EyeOpen_dump, u.SMP_EyeOpen));
}

// Null arguments are refused without touching anything.
TEST(PacketsLayouts, NullArgumentsDoNothing)
{
    bytes buff(4, 0x77);
    SMP_MAD_AttrMod_EyeOpen rec{};
    rec.PortSelect = 9;
    SMP_MAD_AttrMod_EyeOpen_pack(nullptr, buff.data());
    SMP_MAD_AttrMod_EyeOpen_unpack(&rec, nullptr);
    SMP_MAD_AttrMod_EyeOpen_dump(&rec, nullptr);
    EXPECT_EQ(buff, bytes(4, 0x77));
    EXPECT_EQ(rec.PortSelect, 9);
}

// ---- Dumps ----

struct dump_case {
    const char *name;
    std::string got;
    std::string expected;
};

std::vector<dump_case> dump_cases()
{
    std::vector<dump_case> cases;
    {
        SMP_MAD_AttrMod_EyeOpen r{};
        r.PortSelect = 1;
        r.GroupLane = 2;
        cases.push_back({"SMP_MAD_AttrMod_EyeOpen", dump_of(SMP_MAD_AttrMod_EyeOpen_dump, r),
                         "PortSelect               : 0x01\n"
                         "GroupLane                : 0x02\n"
                         "reserved0                : 0x0000\n"});
    }
    {
        TLV_REG r{};
        r.type = 3;
        r.len = 0x41;
        cases.push_back({"TLV_REG", dump_of(TLV_REG_dump, r),
                         "type                     : 0x03\n"
                         "len                      : 0x041\n"
                         "reserved0                : 0x0000\n"});
    }
    {
        REG_PVLC r{};
        r.local_port = 0x11;
        r.vl_cap = 4;
        r.vl_admin = 3;
        r.vl_operational = 2;
        cases.push_back({"REG_PVLC", dump_of(REG_PVLC_dump, r),
                         "reserved0                : 0x00\n"
                         "local_port               : 0x11\n"
                         "reserved1                : 0x0000\n"
                         "reserved2                : 0x0000000\n"
                         "vl_cap                   : 0x4\n"
                         "reserved3                : 0x0000000\n"
                         "vl_admin                 : 0x3\n"
                         "reserved4                : 0x0000000\n"
                         "vl_operational           : 0x2\n"});
    }
    {
        SFP_cableInfo_Payload_Addr_40_63 r{};
        fill_text(r.VendorPN, "AB", 16);
        fill_text(r.VendorREV, "1.0", 4);
        r.Wavelength = 0x0352;
        r.UNallocated = 0x5a;
        r.CC_Base = 0xc5;
        std::string expected = "VendorPN[0]              : 0x41\n"
                               "VendorPN[1]              : 0x42\n";
        for (int i = 2; i < 10; ++i) {
            expected += "VendorPN[" + std::to_string(i) + "]              : 0x20\n";
        }
        for (int i = 10; i < 16; ++i) {
            expected += "VendorPN[" + std::to_string(i) + "]             : 0x20\n";
        }
        expected += "VendorREV[0]             : 0x31\n"
                    "VendorREV[1]             : 0x2e\n"
                    "VendorREV[2]             : 0x30\n"
                    "VendorREV[3]             : 0x20\n"
                    "Wavelength               : 0x0352\n"
                    "UNallocated              : 0x5a\n"
                    "CC_Base                  : 0xc5\n";
        cases.push_back({"SFP_cableInfo_Payload_Addr_40_63",
                         dump_of(SFP_cableInfo_Payload_Addr_40_63_dump, r), expected});
    }
    return cases;
}

TEST(PacketsDumps, ExactTexts)
{
    for (const dump_case &c : dump_cases()) {
        EXPECT_EQ(c.got, c.expected) << c.name;
    }
}

// Selected lines of the longer dumps: widths other than bytes, arrays, wide reserved.
TEST(PacketsDumps, SelectedLines)
{
    SMP_EyeOpen eye{};
    eye.AutoNegoState = 0xa;
    eye.reserved22[2] = 0xcafef00d;
    const std::string eye_text = dump_of(SMP_EyeOpen_dump, eye);

    CableInfo_Payload_Addr_128_167 qsfp{};
    qsfp.VendorOUI = 0x02a1b2;
    qsfp.VendorName[15] = 'Z';
    const std::string qsfp_text = dump_of(CableInfo_Payload_Addr_128_167_dump, qsfp);

    SMP_CableInfo cable{};
    cable.Byte[47] = 0x22;
    cable.address = 0x80;
    const std::string cable_text = dump_of(SMP_CableInfo_dump, cable);

    const struct {
        const std::string &text;
        const char *line;
    } cases[] = {
        {eye_text, "LinkWidthActive          : 0x00\n"},
        {eye_text, "AutoNegoState            : 0xa\n"},
        {eye_text, "reserved1                : 0x000\n"},
        {eye_text, "reserved22[2]            : 0xcafef00d\n"},
        {qsfp_text, "VendorName[15]           : 0x5a\n"},
        {qsfp_text, "VendorOUI                : 0x02a1b2\n"},
        {cable_text, "address                  : 0x0080\n"},
        {cable_text, "reserved1[1]             : 0x00000000\n"},
        {cable_text, "Byte[47]                 : 0x22\n"},
    };
    for (const auto &c : cases) {
        EXPECT_NE(c.text.find(c.line), std::string::npos) << c.line;
    }

    // One line per field: 52 single fields and three words of reserved22.
    size_t lines = 0;
    for (char ch : eye_text) {
        lines += ch == '\n' ? 1 : 0;
    }
    EXPECT_EQ(lines, 55u);
    EXPECT_EQ(eye_text.rfind("LinkWidthActive", 0), 0u);
}

}  // namespace
