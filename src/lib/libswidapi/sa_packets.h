// Bit-exact wire layouts: module EEPROM pages (QSFP upper page 0, SFP base page), the
// eye-opening and cable-information SMP attributes, and the register-access headers and
// port register payloads that the dumps print.
//
// Every field has a bit offset from the start of its block and a width.  Offsets count
// the most significant bit first within each 32-bit big-endian word, so the buffer reads
// as one bit stream in memory order: offset 0 width 8 is byte 0, and an 8-bit field at
// offset 24 is the last byte of the first word.  An array of n bytes takes n consecutive
// 8-bit slots from its offset (byte by byte, in memory order).  Reserved fields are real
// space: they are packed and unpacked like any other.
//
// For each layout X:
//     void X_pack(const struct X *unpacked, u_int8_t *buff);    // writes X_size bytes
//     void X_unpack(struct X *unpacked, const u_int8_t *buff);  // reads X_size bytes
//     void X_dump(const struct X *unpacked, FILE *fd);          // one line per field
// Pack only touches the bits of its fields; nothing is validated.  A null argument is
// logged and the call does nothing.
//
// A dump line is the field's name padded to 24 columns, " : ", and the value in hex with
// as many digits as the field's width needs:
//     PortSelect               : 0x01
//     VendorOUI                : 0x02a1b2
// Each byte of an array field has its own line, named with its index ("VendorName[0]");
// so has each word of a reserved field wider than 32 bits ("reserved22[2]").
#pragma once

#include <stdio.h>
#include <sys/types.h>

// ---- Bit access ----

// The bit_size bits (1 to 32) at bit_offset, as the low bits of the result.  Only the
// bytes that hold the field are read.  A width of 0 or above 32 is logged and gives 0.
u_int32_t pop_from_buff(const u_int8_t *buff, u_int32_t bit_offset, u_int32_t bit_size);

// Writes the low bit_size bits (1 to 32) of value at bit_offset; higher bits of value
// are ignored and the bits around the field are kept.  A width of 0 or above 32 is
// logged and writes nothing.
void push_to_buff(u_int8_t *buff, u_int32_t bit_offset, u_int32_t bit_size, u_int32_t value);

// ---- SMP attributes ----

// The attribute modifier of the eye-opening SMP, in wire (network) order.
struct SMP_MAD_AttrMod_EyeOpen {
    u_int8_t PortSelect;  // offset 24, 8 bits: the modifier's low byte
    u_int8_t GroupLane;   // offset 16, 8 bits
    u_int16_t reserved0;  // offset 0, 16 bits
};
inline constexpr u_int32_t SMP_MAD_AttrMod_EyeOpen_size = 4;

// The eye-opening attribute: the link's state and, per lane, the eye's amplitudes,
// bounds and the tuning options chosen.
struct SMP_EyeOpen {
    u_int8_t LinkWidthActive;
    u_int8_t reserved0;
    u_int8_t AutoNegoState;  // 4 bits
    u_int16_t reserved1;     // 12 bits
    u_int8_t HighAmplitude_Lane0;
    u_int8_t reserved2;
    u_int8_t LowAmplitude_Lane0;
    u_int8_t reserved3;
    u_int8_t PositiveBound_Lane0;
    u_int8_t reserved4;
    u_int8_t NegativeBound_Lane0;
    u_int8_t reserved5;
    u_int8_t SelectedOptionTX_Lane0;
    u_int8_t SelectedOptionRX_Lane0;
    u_int8_t AmpCalibration_Lane0;
    u_int8_t reserved6;
    u_int8_t LowAmplitude_Lane1;
    u_int8_t reserved7;
    u_int8_t HighAmplitude_Lane1;
    u_int8_t reserved8;
    u_int8_t PositiveBound_Lane1;
    u_int8_t reserved9;
    u_int8_t NegativeBound_Lane1;
    u_int8_t reserved10;
    u_int8_t SelectedOptionTX_Lane1;
    u_int8_t SelectedOptionRX_Lane1;
    u_int8_t AmpCalibration_Lane1;
    u_int8_t reserved11;
    u_int8_t HighAmplitude_Lane2;
    u_int8_t reserved12;
    u_int8_t LowAmplitude_Lane2;
    u_int8_t reserved13;
    u_int8_t PositiveBound_Lane2;
    u_int8_t reserved14;
    u_int8_t NegativeBound_Lane2;
    u_int8_t reserved15;
    u_int8_t SelectedOptionTX_Lane2;
    u_int8_t SelectedOptionRX_Lane2;
    u_int8_t AmpCalibration_Lane2;
    u_int8_t reserved16;
    u_int8_t HighAmplitude_Lane3;
    u_int8_t reserved17;
    u_int8_t LowAmplitude_Lane3;
    u_int8_t reserved18;
    u_int8_t PositiveBound_Lane3;
    u_int8_t reserved19;
    u_int8_t NegativeBound_Lane3;
    u_int8_t reserved20;
    u_int8_t SelectedOptionTX_Lane3;
    u_int8_t SelectedOptionRX_Lane3;
    u_int8_t AmpCalibration_Lane3;
    u_int8_t reserved21;
    u_int32_t reserved22[3];  // 96 bits, one word each
};
inline constexpr u_int32_t SMP_EyeOpen_size = 64;

// The cable-information attribute: a request header and up to 48 bytes of EEPROM.
struct SMP_CableInfo {
    u_int16_t address;
    u_int8_t page_number;
    u_int8_t device_address;
    u_int16_t size;
    u_int16_t reserved0;
    u_int32_t reserved1[2];  // 64 bits, one word each
    u_int8_t Byte[48];
};
inline constexpr u_int32_t SMP_CableInfo_size = 64;

// ---- Module EEPROM pages ----

// QSFP upper page 0, bytes 128 to 167.
struct CableInfo_Payload_Addr_128_167 {
    u_int8_t Identifier;
    u_int8_t ExtendedIdentifier;
    u_int8_t Connector;
    u_int8_t SpecCompliance0;
    u_int8_t SpecCompliance1;
    u_int8_t SpecCompliance2;
    u_int8_t SpecCompliance3;
    u_int8_t SpecCompliance4;
    u_int8_t SpecCompliance5;
    u_int8_t SpecCompliance6;
    u_int8_t SpecCompliance7;
    u_int8_t Encoding;
    u_int8_t BRNominal;
    u_int8_t ExtendedRateSelect;
    u_int8_t LengthSMFiber;
    u_int8_t LengthOM3;
    u_int8_t LengthOM2;
    u_int8_t LengthOM1;
    u_int8_t LengthCopperOrActive;
    u_int8_t DeviceTech;
    u_int8_t VendorName[16];
    u_int8_t ExtendedModuleCodes;
    u_int32_t VendorOUI;  // 24 bits; the top byte is 0
};
inline constexpr u_int32_t CableInfo_Payload_Addr_128_167_size = 40;

// QSFP upper page 0, bytes 168 to 211.
struct CableInfo_Payload_Addr_168_211 {
    u_int8_t VendorPN[16];
    u_int8_t VendorRev[2];
    u_int16_t Wavelength;
    u_int16_t CC_Base;
    u_int8_t MaxCaseTemp;
    u_int8_t WavelengthTolerance;
    u_int8_t Options[4];
    u_int8_t VendorSN[16];
};
inline constexpr u_int32_t CableInfo_Payload_Addr_168_211_size = 44;

// SFP base page (I2C address 80), bytes 0 to 39.
struct SFP_cableInfo_Payload_Addr_0_39 {
    u_int8_t Identifier;
    u_int8_t ExtendedIdentifier;
    u_int8_t Connector;
    u_int8_t Transceiver_8_bytes[8];
    u_int8_t Encoding;
    u_int8_t BRNominal;
    u_int8_t RateIdentifier;
    u_int8_t LengthSMFKM;
    u_int8_t LengthSMF;
    u_int8_t Length50UM;
    u_int8_t Length62_half_UM;
    u_int8_t Length_cable;
    u_int8_t LengthOM3;
    u_int8_t SFPVendorName[16];
    u_int8_t Transceiver;
    u_int32_t VendorOUI;  // 24 bits; the top byte is 0
};
inline constexpr u_int32_t SFP_cableInfo_Payload_Addr_0_39_size = 40;

// SFP base page, bytes 40 to 63.
struct SFP_cableInfo_Payload_Addr_40_63 {
    u_int8_t VendorPN[16];
    u_int8_t VendorREV[4];
    u_int16_t Wavelength;
    u_int8_t UNallocated;
    u_int8_t CC_Base;
};
inline constexpr u_int32_t SFP_cableInfo_Payload_Addr_40_63_size = 24;

// SFP base page, bytes 64 to 95.
struct SFP_cableInfo_Payload_Addr_64_95 {
    u_int8_t Options[2];
    u_int8_t BRMax;
    u_int8_t BRMin;
    u_int8_t VendorSN[16];
    u_int8_t DateCode[8];
    u_int8_t DiagnosticMonType;
    u_int8_t EnhancedOptions;
    u_int8_t SFF8472Compliance;
    u_int8_t CC_Ext;
};
inline constexpr u_int32_t SFP_cableInfo_Payload_Addr_64_95_size = 32;

// ---- Register-access headers and port register payloads ----
//
// The register library packs these itself; the records and their layouts here are what
// the dumps print and what the union below carries.  Offsets, as above, from the start
// of each block:
//
//   TLV_OPERATION   type 0/5, len 5/11, dr 16/1, status 17/7, reserved0 24/8,
//                   register_id 32/16, r 48/1, method 49/7, reg_class 56/8,
//                   tid_high 64/32, tid_low 96/32                       (16 bytes)
//   TLV_REG         type 0/5, len 5/11, reserved0 16/16                 (4 bytes)
//   REG_PTYS        reserved0 0/8, local_port 8/8, reserved1 16/13, proto_mask 29/3,
//                   eth_proto_capability 32/32, fc_proto_capability 64/32,
//                   ib_proto_capability 96/32, eth_proto_admin 128/32,
//                   fc_proto_admin 160/32, ib_proto_admin 192/32,
//                   eth_proto_oper 224/32, fc_proto_oper 256/32,
//                   ib_proto_oper 288/32                                (40 bytes)
//   REG_PMTU        reserved0 0/8, local_port 8/8, reserved1 16/16, max_mtu 32/16,
//                   reserved2 48/16, admin_mtu 64/16, reserved3 80/16,
//                   oper_mtu 96/16, reserved4 112/16                    (16 bytes)
//   REG_PVLC        reserved0 0/8, local_port 8/8, reserved1 16/16, reserved2 32/28,
//                   vl_cap 60/4, reserved3 64/28, vl_admin 92/4, reserved4 96/28,
//                   vl_operational 124/4                                (16 bytes)

struct TLV_OPERATION {
    u_int8_t type;
    u_int16_t len;  // in words, header included
    u_int8_t dr;
    u_int8_t status;
    u_int8_t reserved0;
    u_int16_t register_id;
    u_int8_t r;  // 0 request, 1 response
    u_int8_t method;
    u_int8_t reg_class;
    u_int32_t tid_high;
    u_int32_t tid_low;
};
inline constexpr u_int32_t TLV_OPERATION_size = 16;

struct TLV_REG {
    u_int8_t type;
    u_int16_t len;  // in words, header included
    u_int16_t reserved0;
};
inline constexpr u_int32_t TLV_REG_size = 4;

struct REG_PTYS {
    u_int8_t reserved0;
    u_int8_t local_port;
    u_int16_t reserved1;
    u_int8_t proto_mask;
    u_int32_t eth_proto_capability;
    u_int32_t fc_proto_capability;
    u_int32_t ib_proto_capability;
    u_int32_t eth_proto_admin;
    u_int32_t fc_proto_admin;
    u_int32_t ib_proto_admin;
    u_int32_t eth_proto_oper;
    u_int32_t fc_proto_oper;
    u_int32_t ib_proto_oper;
};
inline constexpr u_int32_t REG_PTYS_size = 40;

struct REG_PMTU {
    u_int8_t reserved0;
    u_int8_t local_port;
    u_int16_t reserved1;
    u_int16_t max_mtu;
    u_int16_t reserved2;
    u_int16_t admin_mtu;
    u_int16_t reserved3;
    u_int16_t oper_mtu;
    u_int16_t reserved4;
};
inline constexpr u_int32_t REG_PMTU_size = 16;

struct REG_PVLC {
    u_int8_t reserved0;
    u_int8_t local_port;
    u_int16_t reserved1;
    u_int32_t reserved2;
    u_int8_t vl_cap;
    u_int32_t reserved3;
    u_int8_t vl_admin;
    u_int32_t reserved4;
    u_int8_t vl_operational;
};
inline constexpr u_int32_t REG_PVLC_size = 16;

// ---- The union of all layouts ----

// Every layout above over one storage.  Its wire form is that of its first member,
// SMP_EyeOpen, which is as long as the longest member: PACKETS_INTERNAL_pack and
// _unpack move PACKETS_INTERNAL_size bytes through that member, and _dump prints it.
union PACKETS_INTERNAL {
    struct SMP_EyeOpen SMP_EyeOpen;
    u_int32_t raw_data;
    struct SMP_MAD_AttrMod_EyeOpen SMP_MAD_AttrMod_EyeOpen;
    struct TLV_OPERATION TLV_OPERATION;
    struct TLV_REG TLV_REG;
    struct REG_PTYS REG_PTYS;
    struct REG_PMTU REG_PMTU;
    struct REG_PVLC REG_PVLC;
    struct SMP_CableInfo SMP_CableInfo;
    struct CableInfo_Payload_Addr_128_167 CableInfo_Payload_Addr_128_167;
    struct CableInfo_Payload_Addr_168_211 CableInfo_Payload_Addr_168_211;
    struct SFP_cableInfo_Payload_Addr_0_39 SFP_cableInfo_Payload_Addr_0_39;
    struct SFP_cableInfo_Payload_Addr_40_63 SFP_cableInfo_Payload_Addr_40_63;
    struct SFP_cableInfo_Payload_Addr_64_95 SFP_cableInfo_Payload_Addr_64_95;
};
inline constexpr u_int32_t PACKETS_INTERNAL_size = SMP_EyeOpen_size;

// ---- Pack, unpack, dump ----

#define SA_PACKETS_DECLARE(X)                                   \
    void X##_pack(const struct X *unpacked, u_int8_t *buff);    \
    void X##_unpack(struct X *unpacked, const u_int8_t *buff);  \
    void X##_dump(const struct X *unpacked, FILE *fd)

SA_PACKETS_DECLARE(SMP_MAD_AttrMod_EyeOpen);
SA_PACKETS_DECLARE(SMP_EyeOpen);
SA_PACKETS_DECLARE(SMP_CableInfo);
SA_PACKETS_DECLARE(CableInfo_Payload_Addr_128_167);
SA_PACKETS_DECLARE(CableInfo_Payload_Addr_168_211);
SA_PACKETS_DECLARE(SFP_cableInfo_Payload_Addr_0_39);
SA_PACKETS_DECLARE(SFP_cableInfo_Payload_Addr_40_63);
SA_PACKETS_DECLARE(SFP_cableInfo_Payload_Addr_64_95);
SA_PACKETS_DECLARE(TLV_OPERATION);
SA_PACKETS_DECLARE(TLV_REG);
SA_PACKETS_DECLARE(REG_PTYS);
SA_PACKETS_DECLARE(REG_PMTU);
SA_PACKETS_DECLARE(REG_PVLC);

void PACKETS_INTERNAL_pack(const union PACKETS_INTERNAL *unpacked, u_int8_t *buff);
void PACKETS_INTERNAL_unpack(union PACKETS_INTERNAL *unpacked, const u_int8_t *buff);
void PACKETS_INTERNAL_dump(const union PACKETS_INTERNAL *unpacked, FILE *fd);

#undef SA_PACKETS_DECLARE
