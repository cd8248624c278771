// Cable information through MCIA and PMAOS.
#include "sa_cable.h"

#include <arpa/inet.h>
#include <string.h>

#include "logging.h"
#include "sa_packets.h"
#include "sa_registers.h"

namespace {

// PMAOS oper_status values.
constexpr uint8 PMAOS_OPER_PLUGGED = 1;
constexpr uint8 PMAOS_OPER_UNPLUGGED = 2;
constexpr uint8 PMAOS_OPER_PLUGGED_POWER_EXCEEDED = 3;

// A QSFP connector byte of 0x23: no separable connector, a copper cable.
constexpr uint8 QSFP_CONNECTOR_NO_SEPARABLE = 0x23;

// High byte of an SFP cable's compliance word (bytes 60-61) that mark a copper cable.
constexpr uint8 SFP_CABLE_COMPLIANCE_APPENDIX_E = 1;
constexpr uint8 SFP_CABLE_COMPLIANCE_LIMITING = 4;
constexpr uint8 SFP_CABLE_COMPLIANCE_FC_PI_4 = 12;

tbool is_qsfp_family(uint8 identifier)
{
    return identifier == SA_CABLE_ID_QSFP || identifier == SA_CABLE_ID_QSFP_PLUS ||
           identifier == SA_CABLE_ID_QSFP_CXP || identifier == SA_CABLE_ID_QSFP28;
}

tbool is_pmaos_plugged(uint8 oper_status)
{
    return oper_status == PMAOS_OPER_PLUGGED || oper_status == PMAOS_OPER_PLUGGED_POWER_EXCEEDED;
}

// The record's bytes in wire order: the dwords hold them in host order, first byte on top.
void mcia_reg_bytes(const mcia_reg_t *reg, uint8 *out, uint32 size)
{
    const uint32_t dwords[12] = {reg->dword_0, reg->dword_1, reg->dword_2, reg->dword_3,
                                 reg->dword_4, reg->dword_5, reg->dword_6, reg->dword_7,
                                 reg->dword_8, reg->dword_9, reg->dword_10, reg->dword_11};
    uint8 all[SA_MCIA_MAX_BATCH_SIZE];
    for (int i = 0; i < 12; ++i) {
        const uint32_t net = htonl(dwords[i]);
        memcpy(all + 4 * i, &net, 4);
    }
    memcpy(out, all, size < sizeof(all) ? size : sizeof(all));
}

// Removes trailing blanks.  The name is historical: it works on the right end.
void my_str_trim_left(char *str)
{
    size_t len = strlen(str);
    while (len > 0 && str[len - 1] == ' ') {
        str[--len] = '\0';
    }
}

void get_str_field(char *dst, const u_int8_t *src, size_t len)
{
    memcpy(dst, src, len);
    dst[len] = '\0';
    my_str_trim_left(dst);
}

void get_qsfp_cable_length(const struct CableInfo_Payload_Addr_128_167 *info, sa_cable_info_t *out,
                           uint8 identifier)
{
    if (!is_qsfp_family(identifier)) {
        return;
    }
    if (info->Connector != QSFP_CONNECTOR_NO_SEPARABLE) {
        // An optical module: a length per fibre, each with its bit when given.
        const struct {
            int index;
            uint32 length;
        } lengths[] = {
            {EN_OM4, info->DeviceTech == 0 ? info->LengthCopperOrActive * 2u : 0u},
            {EN_OM1, info->LengthOM1},
            {EN_OM2, info->LengthOM2},
            {EN_OM3, info->LengthOM3 * 2u},
            {EN_SMF, info->LengthSMFiber * 1000u},
        };
        for (const auto &l : lengths) {
            if (l.length != 0) {
                out->qsfp_cable_length[l.index] = l.length;
                out->qsfp_supported_cable_length |= 1u << l.index;
            }
        }
        return;
    }
    // A copper cable: its one length, kept in the OM4 slot.
    if (info->LengthCopperOrActive != 0) {
        out->qsfp_cable_length[EN_OM4] = info->LengthCopperOrActive;
        if (info->LengthCopperOrActive == 255) {
            out->is_length_inaccurate = 1;
        }
    }
}

void get_sfp_cable_length(const struct SFP_cableInfo_Payload_Addr_0_39 *info,
                          const struct SFP_cableInfo_Payload_Addr_40_63 *info_40_63, sa_cable_info_t *out,
                          uint8 identifier)
{
    if (identifier != SA_CABLE_ID_SFP) {
        return;
    }
    const uint8 compliance = static_cast<uint8>(info_40_63->Wavelength >> 8);
    if (compliance == SFP_CABLE_COMPLIANCE_APPENDIX_E || compliance == SFP_CABLE_COMPLIANCE_LIMITING ||
        compliance == SFP_CABLE_COMPLIANCE_FC_PI_4) {
        if (info->Length_cable != 0) {
            out->sfp_cable_length = info->Length_cable;
            if (info->Length_cable == 255) {
                out->is_length_inaccurate = 1;
            }
        }
        return;
    }
    const struct {
        int index;
        uint32 length;
    } lengths[] = {
        {EN_BYTE14_SMF, info->LengthSMFKM * 1000u},
        {EN_BYTE15_SMF, info->LengthSMF * 100u},
        {EN_BYTE16_OM2, info->Length50UM * 10u},
        {EN_BYTE17_OM1, info->Length62_half_UM * 10u},
        {EN_BYTE19_OM3, info->LengthOM3 * 10u},
    };
    for (const auto &l : lengths) {
        if (l.length != 0) {
            out->sfp_cable_length_supported[l.index] = l.length;
            out->sfp_supported_cable_length |= 1u << l.index;
        }
    }
}

void unpack_qsfp_or_qsfp_plus_cable_info(sa_cable_info_t *cable_info, const u_int8_t *buff_128_167,
                                         const u_int8_t *buff_168_211, uint8 cable_identifier_value)
{
    struct CableInfo_Payload_Addr_128_167 p128;
    struct CableInfo_Payload_Addr_168_211 p168;
    memset(&p128, 0, sizeof(p128));
    memset(&p168, 0, sizeof(p168));
    CableInfo_Payload_Addr_128_167_unpack(&p128, buff_128_167);
    CableInfo_Payload_Addr_168_211_unpack(&p168, buff_168_211);

    // The InfiniBand speed set of the module (SDR bit 0 up to HDR bit 5).
    cable_info->supported_speed = p128.ExtendedModuleCodes;
    cable_info->oui = p128.VendorOUI;
    get_qsfp_cable_length(&p128, cable_info, cable_identifier_value);

    cable_info->qsfp_speed.data_add_131 = p128.SpecCompliance0;
    cable_info->qsfp_type.data_add_131 = p128.SpecCompliance0;
    cable_info->qsfp_type.data_add_147 = static_cast<uint8>(p128.DeviceTech >> 4);
    cable_info->qsfp_type.data_add_192 = p168.Options[0];

    get_str_field(cable_info->sn, p168.VendorSN, sizeof(p168.VendorSN));
    get_str_field(cable_info->vendor, p128.VendorName, sizeof(p128.VendorName));
    get_str_field(cable_info->rev, p168.VendorRev, sizeof(p168.VendorRev));
    get_str_field(cable_info->pn, p168.VendorPN, sizeof(p168.VendorPN));
}

void unpack_sfp_or_sfp_plus_or_split_cable_info(sa_cable_info_t *cable_info, const u_int8_t *buff_0_39,
                                                const u_int8_t *buff_40_63, const u_int8_t *buff_64_95,
                                                uint8 cable_identifier_value)
{
    struct SFP_cableInfo_Payload_Addr_0_39 p0;
    struct SFP_cableInfo_Payload_Addr_40_63 p40;
    struct SFP_cableInfo_Payload_Addr_64_95 p64;
    memset(&p0, 0, sizeof(p0));
    memset(&p40, 0, sizeof(p40));
    memset(&p64, 0, sizeof(p64));
    SFP_cableInfo_Payload_Addr_0_39_unpack(&p0, buff_0_39);
    SFP_cableInfo_Payload_Addr_40_63_unpack(&p40, buff_40_63);
    SFP_cableInfo_Payload_Addr_64_95_unpack(&p64, buff_64_95);

    cable_info->supported_speed = 0;
    cable_info->oui = p0.VendorOUI;
    get_sfp_cable_length(&p0, &p40, cable_info, cable_identifier_value);

    // Bytes 3 to 10 are Transceiver_8_bytes; 12 the nominal rate; 36 the extended codes.
    cable_info->sfp_speed.data_add_3 = p0.Transceiver_8_bytes[0];
    cable_info->sfp_speed.data_add_6 = p0.Transceiver_8_bytes[3];
    cable_info->sfp_speed.data_add_8 = p0.Transceiver_8_bytes[5];
    cable_info->sfp_speed.data_add_12 = p0.BRNominal;
    cable_info->sfp_speed.data_add_36 = p0.Transceiver;
    cable_info->sfp_type.data_add_3 = p0.Transceiver_8_bytes[0];
    cable_info->sfp_type.data_add_6 = static_cast<uint8>(p0.Transceiver_8_bytes[3] & 0x0B);
    cable_info->sfp_type.data_add_8 = static_cast<uint8>(p0.Transceiver_8_bytes[5] & 0x0C);

    get_str_field(cable_info->sn, p64.VendorSN, sizeof(p64.VendorSN));
    get_str_field(cable_info->vendor, p0.SFPVendorName, sizeof(p0.SFPVendorName));
    get_str_field(cable_info->rev, p40.VendorREV, sizeof(p40.VendorREV));
    get_str_field(cable_info->pn, p40.VendorPN, sizeof(p40.VendorPN));
}

// One read of the base page for sa_get_cable_info.  A failed access or a status from
// the module is noted in cable_info and logged; *ret_ok tells whether to go on.  The
// result is the access's error code.
int cable_info_read(uint8_t swid, vqd_dev_id_t dev_id, int module, uint16_t device_address, uint16_t size,
                    mcia_reg_t *reg, sa_cable_info_t *cable_info, tbool *ret_ok)
{
    int err = 0;

    *ret_ok = false;
    err = get_mcia_reg_info_data(swid, dev_id, static_cast<uint8_t>(module), SA_CABLE_I2C_ADDR_LOW, 0,
                                 device_address, size, reg);
    if (err != 0 || reg->status != 0) {
        cable_info->status = mcia_failure;
        cable_info->res_mcia_status = reg->status;
        lc_log_basic(LOG_ERR,
                     "Reading MCIA of QSFP/ QSFP+ cable or split cable for swid %u device id %u module %d. "
                     "MCIA return status: [%u, %s]. err: [%d]",
                     swid, dev_id, module, reg->status, convert_mcia_err_to_str(reg->status), err);
        bail_error(err);
        goto bail;
    }
    *ret_ok = true;

bail:
    return err;
}

}  // namespace

const char *convert_mcia_err_to_str(uint8 mcia_status)
{
    switch (mcia_status) {
    case 0:
        return "";
    case 1:
        return "Invalid/Missing EEPROM content in module";
    case 2:
        return "Unsupported module";
    case 5:
        return "Inaccessible module";
    case 9:
        return "I2c error while accessing module";
    case 16:
        return "Disabled module";
    default:
        lc_log_basic(LOG_WARNING, "%s: Got unexpected mcia result error value from SDK/FW", __func__);
        return "Invalid eeprom";
    }
}

int get_mcia_reg_info_data(uint8_t swid, uint32_t dev_id, uint8_t ib_port, u_int8_t i2c_adrr,
                           u_int8_t page_number, uint16_t device_address, uint16_t size, mcia_reg_t *reg)
{
    int err = 0;

    bail_null(reg);
    memset(reg, 0, sizeof(*reg));
    reg->i2c_device_address = i2c_adrr;
    reg->page_number = page_number;
    reg->device_address = device_address;
    reg->size = size;
    reg->module = ib_port;
    err = get_mcia_reg(swid, static_cast<vqd_dev_id_t>(dev_id), ib_port, reg);
    bail_error(err);

bail:
    return err;
}

int sa_get_cable_connected_status(uint8_t swid, vqd_dev_id_t dev_id, int module, tbool *is_cable_connected)
{
    int err = 0;
    pmaos_reg_t pmaos;

    bail_null(is_cable_connected);
    *is_cable_connected = false;
    memset(&pmaos, 0, sizeof(pmaos));
    if (get_pmaos_reg(swid, dev_id, module, &pmaos) != 0) {
        lc_log_basic(LOG_WARNING, "%s: Failed reading PMAOS for swid: [%u], device: [%u], module: [%d]", __func__,
                     swid, dev_id, module);
        goto bail;
    }
    *is_cable_connected = is_pmaos_plugged(pmaos.oper_status);

bail:
    return err;
}

int sa_get_cable_info_raw_aux(int start, int end, int i2c_addr, int page, int swid, int dev_id, int module,
                              tbuf *buf)
{
    int err = 0;
    mcia_reg_t reg;
    uint8 bytes[SA_MCIA_MAX_BATCH_SIZE];
    int length = 0, full_batches = 0, remainder = 0;

    bail_null(buf);
    bail_require(start >= 0 && end >= start && end <= 255);
    length = end - start + 1;
    full_batches = length / SA_MCIA_MAX_BATCH_SIZE;
    remainder = length % SA_MCIA_MAX_BATCH_SIZE;

    for (int batch = 0; batch < full_batches + (remainder != 0 ? 1 : 0); ++batch) {
        const int size = batch < full_batches ? SA_MCIA_MAX_BATCH_SIZE : remainder;
        const int addr = batch * SA_MCIA_MAX_BATCH_SIZE;
        lc_log_basic(LOG_INFO, "fetching page [%x] i2c_addr [%x] batch [%d] from addr [%d] size [%d]", page,
                     i2c_addr, batch, addr, size);
        err = get_mcia_reg_info_data(static_cast<uint8_t>(swid), static_cast<uint32_t>(dev_id),
                                     static_cast<uint8_t>(module), static_cast<u_int8_t>(i2c_addr),
                                     static_cast<u_int8_t>(page), static_cast<uint16_t>(addr),
                                     static_cast<uint16_t>(size), &reg);
        bail_error(err);
        if (reg.status != 0) {
            bail_force(lc_err_assertion_failed);
        }
        mcia_reg_bytes(&reg, bytes, static_cast<uint32>(size));
        err = tb_append_buf(buf, bytes, size);
        bail_error(err);
    }

bail:
    return err;
}

int sa_get_cable_info_raw(uint8_t swid, vqd_dev_id_t dev_id, int module, tbuf **ret_buf)
{
    int err = 0;
    tbuf *buf = nullptr;
    pmaos_reg_t pmaos;
    mcia_reg_t reg;
    uint8 identifier = 0;

    bail_null(ret_buf);
    *ret_buf = nullptr;
    err = tb_new(&buf);
    bail_error(err);

    memset(&pmaos, 0, sizeof(pmaos));
    err = get_pmaos_reg(swid, dev_id, module, &pmaos);
    bail_error(err);
    if (!is_pmaos_plugged(pmaos.oper_status)) {
        goto done;
    }

    err = get_mcia_reg_info_data(swid, dev_id, static_cast<uint8_t>(module), SA_CABLE_I2C_ADDR_LOW, 0, 0, 1,
                                 &reg);
    bail_error(err);
    if (reg.status != 0) {
        lc_log_basic(LOG_ERR, "status is not as expected [%d]", reg.status);
        err = lc_err_assertion_failed;
        bail_error(err);
    }
    identifier = static_cast<uint8>(reg.dword_0 >> 24);

    if (identifier == SA_CABLE_ID_SFP) {
        err = sa_get_cable_info_raw_aux(0, 255, SA_CABLE_I2C_ADDR_LOW, 0, swid, dev_id, module, buf);
        bail_error(err);
        err = sa_get_cable_info_raw_aux(0, 127, SA_CABLE_I2C_ADDR_HIGH, 0, swid, dev_id, module, buf);
        bail_error(err);
        err = sa_get_cable_info_raw_aux(128, 255, SA_CABLE_I2C_ADDR_HIGH, 0, swid, dev_id, module, buf);
        bail_error(err);
    } else if (is_qsfp_family(identifier)) {
        err = sa_get_cable_info_raw_aux(0, 255, SA_CABLE_I2C_ADDR_LOW, 0, swid, dev_id, module, buf);
        bail_error(err);
        for (int page = 1; page <= 3; ++page) {
            err = sa_get_cable_info_raw_aux(128, 255, SA_CABLE_I2C_ADDR_LOW, page, swid, dev_id, module, buf);
            bail_error(err);
        }
    } else {
        lc_log_basic(LOG_WARNING, "Unknown identifier %X cable\n", identifier);
    }

done:
    *ret_buf = buf;
    buf = nullptr;

bail:
    tb_free(&buf);
    return err;
}

int sa_get_cable_info(uint8_t swid, vqd_dev_id_t dev_id, int module, sa_cable_info_t *cable_info,
                      tbool *power_budget_exceeded)
{
    int err = 0;
    pmaos_reg_t pmaos;
    mcia_reg_t reg;
    tbool ok = false;
    uint8 buff_113[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_128_167[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_168_211[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_192_223[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_0_39[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_40_63[SA_MCIA_MAX_BATCH_SIZE];
    uint8 buff_64_95[SA_MCIA_MAX_BATCH_SIZE];

    bail_null(cable_info);
    bail_null(power_budget_exceeded);
    *power_budget_exceeded = false;
    memset(cable_info, 0, sizeof(*cable_info));

    memset(&pmaos, 0, sizeof(pmaos));
    err = get_pmaos_reg(swid, dev_id, module, &pmaos);
    if (err != 0) {
        cable_info->status = pmaos_failure;
        bail_error(err);
    }
    switch (pmaos.oper_status) {
    case PMAOS_OPER_PLUGGED:
        cable_info->plugged = true;
        break;
    case PMAOS_OPER_PLUGGED_POWER_EXCEEDED:
        cable_info->plugged = true;
        *power_budget_exceeded = true;
        break;
    case PMAOS_OPER_UNPLUGGED:
        cable_info->plugged = false;
        goto bail;
    default:
        lc_log_basic(LOG_NOTICE, "port module [%d] of device [%u] is initializing, marking as non-present", module,
                     dev_id);
        cable_info->plugged = false;
        goto bail;
    }

    err = cable_info_read(swid, dev_id, module, 0, 2, &reg, cable_info, &ok);
    if (!ok) {
        goto bail;
    }
    cable_info->identifier = static_cast<uint8>(reg.dword_0 >> 24);
    cable_info->memory_map_revision = static_cast<uint8>(reg.dword_0 >> 16);

    if (cable_info->identifier == SA_CABLE_ID_SFP) {
        lc_log_basic(LOG_INFO, "Reading memory layout of SFP/ SFP+ for swid %u device id %u module %d width\n", swid,
                     dev_id, module);
        err = cable_info_read(swid, dev_id, module, 0, SFP_cableInfo_Payload_Addr_0_39_size, &reg, cable_info, &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_0_39, SA_MCIA_MAX_BATCH_SIZE);
        err = cable_info_read(swid, dev_id, module, 40, SFP_cableInfo_Payload_Addr_40_63_size, &reg, cable_info,
                              &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_40_63, SA_MCIA_MAX_BATCH_SIZE);
        err = cable_info_read(swid, dev_id, module, 64, SFP_cableInfo_Payload_Addr_64_95_size, &reg, cable_info,
                              &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_64_95, SA_MCIA_MAX_BATCH_SIZE);
        unpack_sfp_or_sfp_plus_or_split_cable_info(cable_info, buff_0_39, buff_40_63, buff_64_95,
                                                   cable_info->identifier);
    } else if (is_qsfp_family(cable_info->identifier)) {
        lc_log_basic(LOG_INFO,
                     "Reading memory layout of QSFP/ QSFP+/QSFP28 cable or split cable for swid %u device id %u "
                     "module %d\n",
                     swid, dev_id, module);
        err = cable_info_read(swid, dev_id, module, 113, 1, &reg, cable_info, &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_113, SA_MCIA_MAX_BATCH_SIZE);
        err = cable_info_read(swid, dev_id, module, 128, CableInfo_Payload_Addr_128_167_size, &reg, cable_info,
                              &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_128_167, SA_MCIA_MAX_BATCH_SIZE);
        err = cable_info_read(swid, dev_id, module, 168, CableInfo_Payload_Addr_168_211_size, &reg, cable_info,
                              &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_168_211, SA_MCIA_MAX_BATCH_SIZE);
        err = cable_info_read(swid, dev_id, module, 192, 32, &reg, cable_info, &ok);
        if (!ok) {
            goto bail;
        }
        mcia_reg_bytes(&reg, buff_192_223, SA_MCIA_MAX_BATCH_SIZE);
        unpack_qsfp_or_qsfp_plus_cable_info(cable_info, buff_128_167, buff_168_211, cable_info->identifier);
        cable_info->qsfp_type.data_add_113 = buff_113[0];
        cable_info->qsfp_type.data_add_192 = buff_192_223[0];
    } else {
        lc_log_basic(LOG_WARNING, "Unknown identifier %X cable\n", cable_info->identifier);
        cable_info->known_cable = false;
        cable_info->valid_eeprom = true;
        goto bail;
    }
    cable_info->known_cable = true;
    cable_info->valid_eeprom = true;

bail:
    if (err != 0 && cable_info != nullptr && cable_info->status != mcia_failure &&
        cable_info->status != pmaos_failure) {
        cable_info->status = other_failure;
    }
    return err;
}
