// Bit access and the pack, unpack and dump of every wire layout of sa_packets.h.
//
// Each layout is written down once, as a walk over its fields in layout order: the
// field, its name, its bit offset and its width.  Packing, unpacking and dumping are
// three visitors over the same walk, so the three can never disagree on a layout.
#include "sa_packets.h"

#include <concepts>
#include <cstddef>

#include "common.h"
#include "logging.h"

// ---- Bit access ----
//
// A field of at most 32 bits spans at most five bytes.  The bytes that hold it are
// gathered most significant first into one 64-bit value, in which the field sits `tail`
// bits above the least significant end (tail being the bits of the last byte that follow
// the field).

u_int32_t pop_from_buff(const u_int8_t *buff, u_int32_t bit_offset, u_int32_t bit_size)
{
    u_int32_t first = 0;
    u_int32_t last = 0;
    u_int32_t tail = 0;
    u_int64_t acc = 0;

    if (buff == nullptr) {
        lc_log_basic(LOG_ERR, "%s: no buffer", __func__);
        return 0;
    }
    if (bit_size == 0 || bit_size > 32) {
        lc_log_basic(LOG_ERR, "%s: field width %u at bit %u is out of range", __func__,
                     bit_size, bit_offset);
        return 0;
    }
    first = bit_offset / 8;
    last = (bit_offset + bit_size - 1) / 8;
    tail = (last + 1) * 8 - (bit_offset + bit_size);
    for (u_int32_t i = first; i <= last; ++i) {
        acc = (acc << 8) | buff[i];
    }
    return static_cast<u_int32_t>((acc >> tail) & ((u_int64_t{1} << bit_size) - 1));
}

void push_to_buff(u_int8_t *buff, u_int32_t bit_offset, u_int32_t bit_size, u_int32_t value)
{
    u_int32_t first = 0;
    u_int32_t last = 0;
    u_int32_t tail = 0;
    u_int64_t acc = 0;
    u_int64_t mask = 0;

    if (buff == nullptr) {
        lc_log_basic(LOG_ERR, "%s: no buffer", __func__);
        return;
    }
    if (bit_size == 0 || bit_size > 32) {
        lc_log_basic(LOG_ERR, "%s: field width %u at bit %u is out of range", __func__,
                     bit_size, bit_offset);
        return;
    }
    first = bit_offset / 8;
    last = (bit_offset + bit_size - 1) / 8;
    tail = (last + 1) * 8 - (bit_offset + bit_size);
    for (u_int32_t i = first; i <= last; ++i) {
        acc = (acc << 8) | buff[i];
    }
    mask = ((u_int64_t{1} << bit_size) - 1) << tail;
    acc = (acc & ~mask) | ((u_int64_t{value} << tail) & mask);
    for (u_int32_t i = last + 1; i-- > first;) {
        buff[i] = static_cast<u_int8_t>(acc & 0xff);
        acc >>= 8;
    }
}

namespace {

// ---- The three visitors ----
//
// A walk calls the visitor once per field: v(field, name, bit offset, width).  An array
// field passes its width per element; element i sits at offset + i * width.

struct packer {
    u_int8_t *buff;

    template <std::integral T>
    void operator()(const T &field, const char *, u_int32_t offset, u_int32_t width)
    {
        push_to_buff(buff, offset, width, static_cast<u_int32_t>(field));
    }
    template <std::integral T, size_t N>
    void operator()(const T (&field)[N], const char *, u_int32_t offset, u_int32_t width)
    {
        for (size_t i = 0; i < N; ++i) {
            push_to_buff(buff, offset + static_cast<u_int32_t>(i) * width, width,
                         static_cast<u_int32_t>(field[i]));
        }
    }
};

struct unpacker {
    const u_int8_t *buff;

    template <std::integral T>
    void operator()(T &field, const char *, u_int32_t offset, u_int32_t width)
    {
        field = static_cast<T>(pop_from_buff(buff, offset, width));
    }
    template <std::integral T, size_t N>
    void operator()(T (&field)[N], const char *, u_int32_t offset, u_int32_t width)
    {
        for (size_t i = 0; i < N; ++i) {
            field[i] = static_cast<T>(
                pop_from_buff(buff, offset + static_cast<u_int32_t>(i) * width, width));
        }
    }
};

struct dumper {
    FILE *fd;

    static void line(FILE *fd, const char *name, u_int32_t width, u_int32_t value)
    {
        fprintf(fd, "%-24s : 0x%0*x\n", name, static_cast<int>((width + 3) / 4), value);
    }
    template <std::integral T>
    void operator()(const T &field, const char *name, u_int32_t, u_int32_t width)
    {
        line(fd, name, width, static_cast<u_int32_t>(field));
    }
    template <std::integral T, size_t N>
    void operator()(const T (&field)[N], const char *name, u_int32_t, u_int32_t width)
    {
        char label[64];

        for (size_t i = 0; i < N; ++i) {
            snprintf(label, sizeof(label), "%s[%zu]", name, i);
            line(fd, label, width, static_cast<u_int32_t>(field[i]));
        }
    }
};

// ---- The walks, one per layout ----

#define FIELD(name, offset, width) v(s.name, #name, (offset), (width))

template <typename R, typename V>
void walk_SMP_MAD_AttrMod_EyeOpen(R &s, V &v)
{
    FIELD(PortSelect, 24, 8);
    FIELD(GroupLane, 16, 8);
    FIELD(reserved0, 0, 16);
}

template <typename R, typename V>
void walk_SMP_EyeOpen(R &s, V &v)
{
    FIELD(LinkWidthActive, 24, 8);
    FIELD(reserved0, 16, 8);
    FIELD(AutoNegoState, 12, 4);
    FIELD(reserved1, 0, 12);
    FIELD(HighAmplitude_Lane0, 56, 8);
    FIELD(reserved2, 48, 8);
    FIELD(LowAmplitude_Lane0, 40, 8);
    FIELD(reserved3, 32, 8);
    FIELD(PositiveBound_Lane0, 88, 8);
    FIELD(reserved4, 80, 8);
    FIELD(NegativeBound_Lane0, 72, 8);
    FIELD(reserved5, 64, 8);
    FIELD(SelectedOptionTX_Lane0, 120, 8);
    FIELD(SelectedOptionRX_Lane0, 112, 8);
    FIELD(AmpCalibration_Lane0, 104, 8);
    FIELD(reserved6, 96, 8);
    FIELD(LowAmplitude_Lane1, 152, 8);
    FIELD(reserved7, 144, 8);
    FIELD(HighAmplitude_Lane1, 136, 8);
    FIELD(reserved8, 128, 8);
    FIELD(PositiveBound_Lane1, 184, 8);
    FIELD(reserved9, 176, 8);
    FIELD(NegativeBound_Lane1, 168, 8);
    FIELD(reserved10, 160, 8);
    FIELD(SelectedOptionTX_Lane1, 216, 8);
    FIELD(SelectedOptionRX_Lane1, 208, 8);
    FIELD(AmpCalibration_Lane1, 200, 8);
    FIELD(reserved11, 192, 8);
    FIELD(HighAmplitude_Lane2, 248, 8);
    FIELD(reserved12, 240, 8);
    FIELD(LowAmplitude_Lane2, 232, 8);
    FIELD(reserved13, 224, 8);
    FIELD(PositiveBound_Lane2, 280, 8);
    FIELD(reserved14, 272, 8);
    FIELD(NegativeBound_Lane2, 264, 8);
    FIELD(reserved15, 256, 8);
    FIELD(SelectedOptionTX_Lane2, 312, 8);
    FIELD(SelectedOptionRX_Lane2, 304, 8);
    FIELD(AmpCalibration_Lane2, 296, 8);
    FIELD(reserved16, 288, 8);
    FIELD(HighAmplitude_Lane3, 344, 8);
    FIELD(reserved17, 336, 8);
    FIELD(LowAmplitude_Lane3, 328, 8);
    FIELD(reserved18, 320, 8);
    FIELD(PositiveBound_Lane3, 376, 8);
    FIELD(reserved19, 368, 8);
    FIELD(NegativeBound_Lane3, 360, 8);
    FIELD(reserved20, 352, 8);
    FIELD(SelectedOptionTX_Lane3, 408, 8);
    FIELD(SelectedOptionRX_Lane3, 400, 8);
    FIELD(AmpCalibration_Lane3, 392, 8);
    FIELD(reserved21, 384, 8);
    FIELD(reserved22, 416, 32);
}

template <typename R, typename V>
void walk_SMP_CableInfo(R &s, V &v)
{
    FIELD(address, 16, 16);
    FIELD(page_number, 8, 8);
    FIELD(device_address, 0, 8);
    FIELD(size, 48, 16);
    FIELD(reserved0, 32, 16);
    FIELD(reserved1, 64, 32);
    FIELD(Byte, 128, 8);
}

template <typename R, typename V>
void walk_CableInfo_Payload_Addr_128_167(R &s, V &v)
{
    FIELD(Identifier, 0, 8);
    FIELD(ExtendedIdentifier, 8, 8);
    FIELD(Connector, 16, 8);
    FIELD(SpecCompliance0, 24, 8);
    FIELD(SpecCompliance1, 32, 8);
    FIELD(SpecCompliance2, 40, 8);
    FIELD(SpecCompliance3, 48, 8);
    FIELD(SpecCompliance4, 56, 8);
    FIELD(SpecCompliance5, 64, 8);
    FIELD(SpecCompliance6, 72, 8);
    FIELD(SpecCompliance7, 80, 8);
    FIELD(Encoding, 88, 8);
    FIELD(BRNominal, 96, 8);
    FIELD(ExtendedRateSelect, 104, 8);
    FIELD(LengthSMFiber, 112, 8);
    FIELD(LengthOM3, 120, 8);
    FIELD(LengthOM2, 128, 8);
    FIELD(LengthOM1, 136, 8);
    FIELD(LengthCopperOrActive, 144, 8);
    FIELD(DeviceTech, 152, 8);
    FIELD(VendorName, 160, 8);
    FIELD(ExtendedModuleCodes, 288, 8);
    FIELD(VendorOUI, 296, 24);
}

template <typename R, typename V>
void walk_CableInfo_Payload_Addr_168_211(R &s, V &v)
{
    FIELD(VendorPN, 0, 8);
    FIELD(VendorRev, 128, 8);
    FIELD(Wavelength, 144, 16);
    FIELD(CC_Base, 160, 16);
    FIELD(MaxCaseTemp, 176, 8);
    FIELD(WavelengthTolerance, 184, 8);
    FIELD(Options, 192, 8);
    FIELD(VendorSN, 224, 8);
}

template <typename R, typename V>
void walk_SFP_cableInfo_Payload_Addr_0_39(R &s, V &v)
{
    FIELD(Identifier, 0, 8);
    FIELD(ExtendedIdentifier, 8, 8);
    FIELD(Connector, 16, 8);
    FIELD(Transceiver_8_bytes, 24, 8);
    FIELD(Encoding, 88, 8);
    FIELD(BRNominal, 96, 8);
    FIELD(RateIdentifier, 104, 8);
    FIELD(LengthSMFKM, 112, 8);
    FIELD(LengthSMF, 120, 8);
    FIELD(Length50UM, 128, 8);
    FIELD(Length62_half_UM, 136, 8);
    FIELD(Length_cable, 144, 8);
    FIELD(LengthOM3, 152, 8);
    FIELD(SFPVendorName, 160, 8);
    FIELD(Transceiver, 288, 8);
    FIELD(VendorOUI, 296, 24);
}

template <typename R, typename V>
void walk_SFP_cableInfo_Payload_Addr_40_63(R &s, V &v)
{
    FIELD(VendorPN, 0, 8);
    FIELD(VendorREV, 128, 8);
    FIELD(Wavelength, 160, 16);
    FIELD(UNallocated, 176, 8);
    FIELD(CC_Base, 184, 8);
}

template <typename R, typename V>
void walk_SFP_cableInfo_Payload_Addr_64_95(R &s, V &v)
{
    FIELD(Options, 0, 8);
    FIELD(BRMax, 16, 8);
    FIELD(BRMin, 24, 8);
    FIELD(VendorSN, 32, 8);
    FIELD(DateCode, 160, 8);
    FIELD(DiagnosticMonType, 224, 8);
    FIELD(EnhancedOptions, 232, 8);
    FIELD(SFF8472Compliance, 240, 8);
    FIELD(CC_Ext, 248, 8);
}

template <typename R, typename V>
void walk_TLV_OPERATION(R &s, V &v)
{
    FIELD(type, 0, 5);
    FIELD(len, 5, 11);
    FIELD(dr, 16, 1);
    FIELD(status, 17, 7);
    FIELD(reserved0, 24, 8);
    FIELD(register_id, 32, 16);
    FIELD(r, 48, 1);
    FIELD(method, 49, 7);
    FIELD(reg_class, 56, 8);
    FIELD(tid_high, 64, 32);
    FIELD(tid_low, 96, 32);
}

template <typename R, typename V>
void walk_TLV_REG(R &s, V &v)
{
    FIELD(type, 0, 5);
    FIELD(len, 5, 11);
    FIELD(reserved0, 16, 16);
}

template <typename R, typename V>
void walk_REG_PTYS(R &s, V &v)
{
    FIELD(reserved0, 0, 8);
    FIELD(local_port, 8, 8);
    FIELD(reserved1, 16, 13);
    FIELD(proto_mask, 29, 3);
    FIELD(eth_proto_capability, 32, 32);
    FIELD(fc_proto_capability, 64, 32);
    FIELD(ib_proto_capability, 96, 32);
    FIELD(eth_proto_admin, 128, 32);
    FIELD(fc_proto_admin, 160, 32);
    FIELD(ib_proto_admin, 192, 32);
    FIELD(eth_proto_oper, 224, 32);
    FIELD(fc_proto_oper, 256, 32);
    FIELD(ib_proto_oper, 288, 32);
}

template <typename R, typename V>
void walk_REG_PMTU(R &s, V &v)
{
    FIELD(reserved0, 0, 8);
    FIELD(local_port, 8, 8);
    FIELD(reserved1, 16, 16);
    FIELD(max_mtu, 32, 16);
    FIELD(reserved2, 48, 16);
    FIELD(admin_mtu, 64, 16);
    FIELD(reserved3, 80, 16);
    FIELD(oper_mtu, 96, 16);
    FIELD(reserved4, 112, 16);
}

template <typename R, typename V>
void walk_REG_PVLC(R &s, V &v)
{
    FIELD(reserved0, 0, 8);
    FIELD(local_port, 8, 8);
    FIELD(reserved1, 16, 16);
    FIELD(reserved2, 32, 28);
    FIELD(vl_cap, 60, 4);
    FIELD(reserved3, 64, 28);
    FIELD(vl_admin, 92, 4);
    FIELD(reserved4, 96, 28);
    FIELD(vl_operational, 124, 4);
}

#undef FIELD

// Logs a null argument of a pack, unpack or dump call; true when both are there.
bool have_args(const char *func, const void *record, const void *other, const char *other_name)
{
    if (record == nullptr || other == nullptr) {
        lc_log_basic(LOG_ERR, "%s: no %s", func, record == nullptr ? "record" : other_name);
        return false;
    }
    return true;
}

}  // namespace

// ---- The public triples ----

#define SA_PACKETS_DEFINE(X)                                       \
    void X##_pack(const struct X *unpacked, u_int8_t *buff)        \
    {                                                              \
        if (!have_args(__func__, unpacked, buff, "buffer")) {                \
            return;                                                \
        }                                                          \
        packer v{buff};                                            \
        walk_##X(*unpacked, v);                                    \
    }                                                              \
    void X##_unpack(struct X *unpacked, const u_int8_t *buff)      \
    {                                                              \
        if (!have_args(__func__, unpacked, buff, "buffer")) {                \
            return;                                                \
        }                                                          \
        unpacker v{buff};                                          \
        walk_##X(*unpacked, v);                                    \
    }                                                              \
    void X##_dump(const struct X *unpacked, FILE *fd)              \
    {                                                              \
        if (!have_args(__func__, unpacked, fd, "output file")) {                  \
            return;                                                \
        }                                                          \
        dumper v{fd};                                              \
        walk_##X(*unpacked, v);                                    \
    }

SA_PACKETS_DEFINE(SMP_MAD_AttrMod_EyeOpen)
SA_PACKETS_DEFINE(SMP_EyeOpen)
SA_PACKETS_DEFINE(SMP_CableInfo)
SA_PACKETS_DEFINE(CableInfo_Payload_Addr_128_167)
SA_PACKETS_DEFINE(CableInfo_Payload_Addr_168_211)
SA_PACKETS_DEFINE(SFP_cableInfo_Payload_Addr_0_39)
SA_PACKETS_DEFINE(SFP_cableInfo_Payload_Addr_40_63)
SA_PACKETS_DEFINE(SFP_cableInfo_Payload_Addr_64_95)
SA_PACKETS_DEFINE(TLV_OPERATION)
SA_PACKETS_DEFINE(TLV_REG)
SA_PACKETS_DEFINE(REG_PTYS)
SA_PACKETS_DEFINE(REG_PMTU)
SA_PACKETS_DEFINE(REG_PVLC)

#undef SA_PACKETS_DEFINE

void PACKETS_INTERNAL_pack(const union PACKETS_INTERNAL *unpacked, u_int8_t *buff)
{
    if (!have_args(__func__, unpacked, buff, "buffer")) {
        return;
    }
    SMP_EyeOpen_pack(&unpacked->SMP_EyeOpen, buff);
}

void PACKETS_INTERNAL_unpack(union PACKETS_INTERNAL *unpacked, const u_int8_t *buff)
{
    if (!have_args(__func__, unpacked, buff, "buffer")) {
        return;
    }
    SMP_EyeOpen_unpack(&unpacked->SMP_EyeOpen, buff);
}

void PACKETS_INTERNAL_dump(const union PACKETS_INTERNAL *unpacked, FILE *fd)
{
    if (!have_args(__func__, unpacked, fd, "output file")) {
        return;
    }
    SMP_EyeOpen_dump(&unpacked->SMP_EyeOpen, fd);
}
