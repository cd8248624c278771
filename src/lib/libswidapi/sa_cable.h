// Cable information: a cable module's EEPROM read through the MCIA register, its
// presence through PMAOS, and the decoding of its identity, type and lengths.
//
// Modules of the QSFP family (identifiers 0x0c, 0x0d, 0x0e, 0x11) keep their identity in
// upper page 00 of I2C address 0x50; SFP modules (identifier 0x03) in A0h at 0x50, with
// their diagnostics in A2h at 0x51.  An MCIA access moves at most 48 bytes.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "common.h"
#include "tbuffer.h"
#include "vqd_access_reg.h"

// The payload of one MCIA access, in bytes.
#define SA_MCIA_MAX_BATCH_SIZE 48

// I2C addresses of the module EEPROM: the base page, and an SFP's diagnostics.
#define SA_CABLE_I2C_ADDR_LOW 80
#define SA_CABLE_I2C_ADDR_HIGH 81

// Identifier byte values (byte 0 of the base page).
#define SA_CABLE_ID_SFP 0x03
#define SA_CABLE_ID_QSFP 0x0c
#define SA_CABLE_ID_QSFP_PLUS 0x0d
#define SA_CABLE_ID_QSFP_CXP 0x0e
#define SA_CABLE_ID_QSFP28 0x11

// Indices of the QSFP lengths, and their bits in qsfp_supported_cable_length.
enum qsfp_cable_length_index {
    EN_OM1 = 0,
    EN_OM2 = 1,
    EN_OM3 = 2,
    EN_OM4 = 3,
    EN_SMF = 4,
    EN_QSFP_CABLE_LENGTH_NUM = 5,
};

// Indices of the SFP optical lengths (by the EEPROM byte they come from), and their bits
// in sfp_supported_cable_length.
enum sfp_cable_length_index {
    EN_BYTE14_SMF = 0,
    EN_BYTE15_SMF = 1,
    EN_BYTE16_OM2 = 2,
    EN_BYTE17_OM1 = 3,
    EN_BYTE19_OM3 = 4,
    EN_SFP_CABLE_LENGTH_NUM = 5,
};

// Which step of sa_get_cable_info failed.
typedef enum cable_info_failure {
    no_failure = 0,
    mcia_failure = 1,
    pmaos_failure = 2,
    other_failure = 3,
} cable_info_failure;

// EEPROM bytes copied as they are, each named by its address.
typedef struct sa_qsfp_speed {
    uint8 data_add_131;
} sa_qsfp_speed_t;

typedef struct sa_sfp_speed {
    uint8 data_add_3;
    uint8 data_add_6;
    uint8 data_add_8;
    uint8 data_add_12;
    uint8 data_add_36;
} sa_sfp_speed_t;

typedef struct sa_qsfp_type {
    uint8 data_add_113;
    uint8 data_add_131;
    uint8 data_add_147;  // the transmitter technology: the high nibble of byte 147
    uint8 data_add_192;
} sa_qsfp_type_t;

typedef struct sa_sfp_type {
    uint8 data_add_3;
    uint8 data_add_6;  // masked with 0x0B
    uint8 data_add_8;  // masked with 0x0C
} sa_sfp_type_t;

// What a module tells about itself.  Lengths are in metres.  The texts end with a zero
// and have their trailing blanks removed.
typedef struct sa_cable_info {
    uint8 identifier;
    uint8 memory_map_revision;
    uint8 supported_speed;  // QSFP: the InfiniBand speed set; SFP: 0
    uint32 oui;
    uint32 qsfp_cable_length[EN_QSFP_CABLE_LENGTH_NUM];
    uint32 qsfp_supported_cable_length;  // bit (1 << index) per length given
    uint8 is_length_inaccurate;          // the copper length byte read 255
    uint32 sfp_cable_length;             // an SFP cable's copper length
    uint32 sfp_cable_length_supported[EN_SFP_CABLE_LENGTH_NUM];
    uint32 sfp_supported_cable_length;   // bit (1 << index) per length given
    char vendor[17];
    char pn[17];
    char sn[17];
    char rev[5];  // 2 characters of a QSFP module, 4 of an SFP one
    tbool plugged;
    tbool known_cable;
    tbool valid_eeprom;
    sa_qsfp_speed_t qsfp_speed;
    sa_sfp_speed_t sfp_speed;
    sa_qsfp_type_t qsfp_type;
    sa_sfp_type_t sfp_type;
    uint8 status;           // a cable_info_failure
    uint8 res_mcia_status;  // MCIA's status when status is mcia_failure
    tbool qsfp_to_sfp_adapter;
} sa_cable_info_t;

// The text of an MCIA status: "" for 0; an unexpected value is logged and gives
// "Invalid eeprom".
const char *convert_mcia_err_to_str(uint8 mcia_status);

// One MCIA read: `size` bytes (at most 48) at `device_address` of `page_number` behind
// I2C address `i2c_adrr`, of module `ib_port`.  The record is zeroed first; after the
// call its dwords hold the bytes in host order, the first byte on top of dword_0.
int get_mcia_reg_info_data(uint8_t swid, uint32_t dev_id, uint8_t ib_port, u_int8_t i2c_adrr,
                           u_int8_t page_number, uint16_t device_address, uint16_t size,
                           mcia_reg_t *reg);

// Whether a module sits in the cage (PMAOS oper_status 1 or 3).  A failed PMAOS read
// is logged and answered false, giving 0.
int sa_get_cable_connected_status(uint8_t swid, vqd_dev_id_t dev_id, int module, tbool *is_cable_connected);

// Reads and decodes the module's identity, type and lengths.  An empty cage gives 0 with
// `plugged` false and no EEPROM access.  A module over the power budget is read and
// reported in *power_budget_exceeded.  A cable problem that `status` can tell is no
// failure of the call: the result is the register access's own error code.
int sa_get_cable_info(uint8_t swid, vqd_dev_id_t dev_id, int module, sa_cable_info_t *cable_info,
                      tbool *power_budget_exceeded);

// The module's EEPROM as it is: SFP: A0h (256 bytes) and the two halves of A2h (512 in
// all); QSFP family: the base page and upper pages 01 to 03 (640 in all).  An empty
// cage gives an empty buffer.  The caller owns *ret_buf; it is null on failure.
int sa_get_cable_info_raw(uint8_t swid, vqd_dev_id_t dev_id, int module, tbuf **ret_buf);

// Appends bytes `start` to `end` of a page to `buf`, in batches of at most 48 bytes.
// Each batch's address is the batch number times 48, whatever `start` is.
int sa_get_cable_info_raw_aux(int start, int end, int i2c_addr, int page, int swid, int dev_id, int module,
                              tbuf *buf);
