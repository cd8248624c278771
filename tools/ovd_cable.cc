// ovd-cable: prints what the cable module of a port tells about itself, read through the
// same hardware layer as the daemon's siblings use.
//
//   ovd-cable [--swid N] [--module N] [--json] [--raw] DEVID LOCALPORT
//
// The module is the one PMLP maps the port's first lane to; when PMLP can't tell, local
// port N is module N-1.  --module names the module directly (LOCALPORT is then only
// reported).  --raw adds the EEPROM pages as a hex dump (in JSON: one hex string per
// page).  The log goes to stderr, errors and above only unless OVD_CABLE_VERBOSE is set.
//
// Exit status: 0 when the cage was read (plugged or not), 1 when the module or a
// register failed, 2 on bad arguments.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "logging.h"
#include "sa_cable.h"
#include "sa_registers.h"
#include "vqd_access_reg.h"

namespace {

void usage()
{
    fprintf(stderr, "usage: ovd-cable [--swid N] [--module N] [--json] [--raw] DEVID LOCALPORT\n");
    exit(2);
}

bool parse_uint(const char *text, unsigned long max, unsigned long *ret)
{
    char *end = nullptr;
    if (text == nullptr || *text == '\0') {
        return false;
    }
    const unsigned long v = strtoul(text, &end, 0);
    if (*end != '\0' || v > max) {
        return false;
    }
    *ret = v;
    return true;
}

const char *identifier_name(uint8 id)
{
    switch (id) {
    case SA_CABLE_ID_SFP:
        return "SFP/SFP+";
    case SA_CABLE_ID_QSFP:
        return "QSFP";
    case SA_CABLE_ID_QSFP_PLUS:
        return "QSFP+";
    case SA_CABLE_ID_QSFP_CXP:
        return "QSFP (0x0e)";
    case SA_CABLE_ID_QSFP28:
        return "QSFP28";
    default:
        return "unknown";
    }
}

bool is_sfp(const sa_cable_info_t &ci)
{
    return ci.identifier == SA_CABLE_ID_SFP;
}

// What kind of cable or transceiver: from the transmitter technology of a QSFP module,
// from the cable technology bits of an SFP one.
std::string cable_type(const sa_cable_info_t &ci)
{
    if (is_sfp(ci)) {
        if (ci.sfp_type.data_add_8 & 0x04) {
            return "passive copper cable";
        }
        if (ci.sfp_type.data_add_8 & 0x08) {
            return "active copper cable";
        }
        return "optical transceiver";
    }
    const uint8 tech = ci.qsfp_type.data_add_147;
    if (tech >= 0x0a) {
        return tech == 0x0a || tech == 0x0b ? "passive copper cable" : "active copper cable";
    }
    return "optical transceiver";
}

struct Length {
    const char *medium;
    uint32 metres;
};

std::vector<Length> lengths_of(const sa_cable_info_t &ci)
{
    std::vector<Length> out;
    if (is_sfp(ci)) {
        if (ci.sfp_cable_length != 0) {
            out.push_back({"copper", ci.sfp_cable_length});
        }
        static const char *const names[EN_SFP_CABLE_LENGTH_NUM] = {"SMF-km", "SMF-100m", "OM2", "OM1", "OM3"};
        for (int i = 0; i < EN_SFP_CABLE_LENGTH_NUM; ++i) {
            if (ci.sfp_supported_cable_length & (1u << i)) {
                out.push_back({names[i], ci.sfp_cable_length_supported[i]});
            }
        }
        return out;
    }
    if (ci.qsfp_supported_cable_length == 0) {
        if (ci.qsfp_cable_length[EN_OM4] != 0) {
            out.push_back({"copper", ci.qsfp_cable_length[EN_OM4]});
        }
        return out;
    }
    static const char *const names[EN_QSFP_CABLE_LENGTH_NUM] = {"OM1", "OM2", "OM3", "OM4", "SMF"};
    for (int i = 0; i < EN_QSFP_CABLE_LENGTH_NUM; ++i) {
        if (ci.qsfp_supported_cable_length & (1u << i)) {
            out.push_back({names[i], ci.qsfp_cable_length[i]});
        }
    }
    return out;
}

// The InfiniBand speeds of a QSFP module's speed set.
std::vector<std::string> speeds_of(const sa_cable_info_t &ci)
{
    static const char *const names[] = {"SDR", "DDR", "QDR", "FDR", "EDR", "HDR"};
    std::vector<std::string> out;
    for (int b = 0; b < 6; ++b) {
        if (ci.supported_speed & (1u << b)) {
            out.emplace_back(names[b]);
        }
    }
    return out;
}

std::string json_str(const char *s)
{
    std::string out = "\"";
    for (const char *p = s; *p != '\0'; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7f) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

// The pages of a raw read, in the order sa_get_cable_info_raw appends them.  The reads
// for the upper halves address their batches from 0, so those sections hold the bytes
// from address 0 of the page selected; `first` is the address actually read.
struct RawPage {
    const char *name;
    int i2c;
    int page;
    int first;
    uint32 size;
};

std::vector<RawPage> raw_pages(uint32 length)
{
    if (length == 512) {
        return {{"A0h", 0x50, 0, 0, 256}, {"A2h lower", 0x51, 0, 0, 128}, {"A2h upper", 0x51, 0, 0, 128}};
    }
    if (length == 640) {
        return {{"page 00", 0x50, 0, 0, 256},
                {"page 01", 0x50, 1, 0, 128},
                {"page 02", 0x50, 2, 0, 128},
                {"page 03", 0x50, 3, 0, 128}};
    }
    return {{"bytes", 0x50, 0, 0, length}};
}

void print_hex_dump(const uint8 *data, uint32 size, int first)
{
    for (uint32 off = 0; off < size; off += 16) {
        printf("    %04x:", first + static_cast<int>(off));
        for (uint32 i = off; i < off + 16 && i < size; ++i) {
            printf(" %02x", data[i]);
        }
        printf("  ");
        for (uint32 i = off; i < off + 16 && i < size; ++i) {
            putchar(data[i] >= 0x20 && data[i] < 0x7f ? data[i] : '.');
        }
        putchar('\n');
    }
}

std::string hex_string(const uint8 *data, uint32 size)
{
    std::string out;
    char buf[4];
    for (uint32 i = 0; i < size; ++i) {
        snprintf(buf, sizeof(buf), "%02x", data[i]);
        out += buf;
    }
    return out;
}

const char *state_text(const sa_cable_info_t &ci, tbool power_exceeded)
{
    if (ci.status == pmaos_failure) {
        return "unknown";
    }
    if (!ci.plugged) {
        return "not connected";
    }
    return power_exceeded ? "plugged, power budget exceeded" : "plugged";
}

void print_text(unsigned dev, unsigned lp, int module, const sa_cable_info_t &ci, tbool power_exceeded,
                int err, const tbuf *raw)
{
    printf("Port:               %u/%u (module %d)\n", dev, lp, module);
    printf("State:              %s\n", state_text(ci, power_exceeded));
    if (ci.status == mcia_failure) {
        printf("Error:              MCIA status %u: %s\n", ci.res_mcia_status,
               ci.res_mcia_status != 0 ? convert_mcia_err_to_str(ci.res_mcia_status) : "register access failed");
    } else if (err != 0) {
        printf("Error:              %d\n", err);
    }
    if (!ci.plugged || ci.status == mcia_failure) {
        return;
    }
    printf("Identifier:         0x%02x (%s)\n", ci.identifier, identifier_name(ci.identifier));
    if (!ci.known_cable) {
        return;
    }
    printf("Type:               %s\n", cable_type(ci).c_str());
    printf("Vendor:             %s\n", ci.vendor);
    printf("Vendor OUI:         %02x:%02x:%02x\n", (ci.oui >> 16) & 0xff, (ci.oui >> 8) & 0xff, ci.oui & 0xff);
    printf("Part number:        %s\n", ci.pn);
    printf("Revision:           %s\n", ci.rev);
    printf("Serial number:      %s\n", ci.sn);
    std::string lengths;
    for (const auto &l : lengths_of(ci)) {
        lengths += (lengths.empty() ? "" : ", ") + std::string(l.medium) + " " + std::to_string(l.metres) + " m";
    }
    if (ci.is_length_inaccurate) {
        lengths += lengths.empty() ? "inaccurate" : " (inaccurate)";
    }
    printf("Length:             %s\n", lengths.empty() ? "-" : lengths.c_str());
    std::string speeds;
    for (const auto &s : speeds_of(ci)) {
        speeds += (speeds.empty() ? "" : " ") + s;
    }
    printf("Supported speeds:   %s\n", speeds.empty() ? "-" : speeds.c_str());
    if (raw != nullptr) {
        const uint8 *data = tb_buf_maybe(raw);
        uint32 at = 0;
        printf("EEPROM:             %u bytes\n", tb_length(raw));
        for (const auto &p : raw_pages(tb_length(raw))) {
            if (at + p.size > tb_length(raw)) {
                break;
            }
            printf("  %s (i2c 0x%02x, page %d):\n", p.name, p.i2c, p.page);
            print_hex_dump(data + at, p.size, p.first);
            at += p.size;
        }
    }
}

void print_json(unsigned dev, unsigned lp, int module, const sa_cable_info_t &ci, tbool power_exceeded, int err,
                const tbuf *raw)
{
    printf("{\n");
    printf("  \"device\": %u,\n  \"local_port\": %u,\n  \"module\": %d,\n", dev, lp, module);
    printf("  \"state\": %s,\n", json_str(state_text(ci, power_exceeded)).c_str());
    printf("  \"plugged\": %s,\n", ci.plugged ? "true" : "false");
    printf("  \"power_budget_exceeded\": %s,\n", power_exceeded ? "true" : "false");
    printf("  \"error\": %d,\n", err);
    printf("  \"status\": %u,\n", ci.status);
    printf("  \"mcia_status\": %u,\n", ci.res_mcia_status);
    printf("  \"mcia_status_text\": %s", json_str(ci.res_mcia_status != 0 ? convert_mcia_err_to_str(ci.res_mcia_status) : "").c_str());
    if (ci.plugged && ci.status != mcia_failure) {
        printf(",\n  \"identifier\": %u,\n", ci.identifier);
        printf("  \"identifier_name\": %s,\n", json_str(identifier_name(ci.identifier)).c_str());
        printf("  \"memory_map_revision\": %u,\n", ci.memory_map_revision);
        printf("  \"known_cable\": %s", ci.known_cable ? "true" : "false");
        if (ci.known_cable) {
            printf(",\n  \"family\": %s,\n", json_str(is_sfp(ci) ? "SFP" : "QSFP").c_str());
            printf("  \"type\": %s,\n", json_str(cable_type(ci).c_str()).c_str());
            printf("  \"vendor\": %s,\n", json_str(ci.vendor).c_str());
            printf("  \"oui\": \"%06x\",\n", ci.oui);
            printf("  \"part_number\": %s,\n", json_str(ci.pn).c_str());
            printf("  \"revision\": %s,\n", json_str(ci.rev).c_str());
            printf("  \"serial_number\": %s,\n", json_str(ci.sn).c_str());
            printf("  \"length_inaccurate\": %s,\n", ci.is_length_inaccurate ? "true" : "false");
            printf("  \"lengths\": {");
            bool first = true;
            for (const auto &l : lengths_of(ci)) {
                printf("%s%s: %u", first ? "" : ", ", json_str(l.medium).c_str(), l.metres);
                first = false;
            }
            printf("},\n  \"supported_speeds\": [");
            first = true;
            for (const auto &s : speeds_of(ci)) {
                printf("%s%s", first ? "" : ", ", json_str(s.c_str()).c_str());
                first = false;
            }
            printf("]");
        }
    }
    if (raw != nullptr) {
        const uint8 *data = tb_buf_maybe(raw);
        uint32 at = 0;
        printf(",\n  \"raw\": [");
        bool first = true;
        for (const auto &p : raw_pages(tb_length(raw))) {
            if (at + p.size > tb_length(raw) || p.size == 0) {
                break;
            }
            printf("%s\n    {\"name\": %s, \"i2c\": %d, \"page\": %d, \"first\": %d, \"bytes\": \"%s\"}",
                   first ? "" : ",", json_str(p.name).c_str(), p.i2c, p.page, p.first,
                   hex_string(data + at, p.size).c_str());
            at += p.size;
            first = false;
        }
        printf("%s]", first ? "" : "\n  ");
    }
    printf("\n}\n");
}

void log_to_stderr(vq_log_severity_t severity, const char *module_name, char *msg)
{
    if (severity <= VQ_LOG_SEVERITY_WARNING) {
        fprintf(stderr, "%s: %s\n", module_name, msg);
    }
}

}  // namespace

int main(int argc, char **argv)
{
    unsigned long swid = 0, dev = 0, lp = 0, forced_module = 0;
    bool json = false, raw = false, module_given = false;
    int argi = 1;

    for (; argi < argc && strncmp(argv[argi], "--", 2) == 0; ++argi) {
        const std::string opt = argv[argi];
        if (opt == "--json") {
            json = true;
        } else if (opt == "--raw") {
            raw = true;
        } else if (opt == "--swid" && argi + 1 < argc && parse_uint(argv[argi + 1], 7, &swid)) {
            ++argi;
        } else if (opt == "--module" && argi + 1 < argc && parse_uint(argv[argi + 1], 255, &forced_module)) {
            module_given = true;
            ++argi;
        } else {
            usage();
        }
    }
    if (argc - argi != 2 || !parse_uint(argv[argi], 216, &dev) || !parse_uint(argv[argi + 1], 254, &lp) ||
        lp == 0) {
        usage();
    }

    lc_log_init("ovd-cable", nullptr, LCO_none, 0, getenv("OVD_CABLE_VERBOSE") != nullptr ? LOG_DEBUG : LOG_ERR,
                LOG_LOCAL4, LCT_STDERR);
    lc_init();
    if (vqd_access_reg_init(0, log_to_stderr, VQ_LOG_SEVERITY_INFO) != VQD_STATUS_SUCCESS) {
        fprintf(stderr, "ovd-cable: the register library could not be opened\n");
        lc_log_close();
        return 1;
    }

    const uint8_t swid8 = static_cast<uint8_t>(swid);
    const vqd_dev_id_t dev_id = static_cast<vqd_dev_id_t>(dev);
    int module = static_cast<int>(lp) - 1;
    if (module_given) {
        module = static_cast<int>(forced_module);
    } else {
        pmlp_reg_t pmlp;
        memset(&pmlp, 0, sizeof(pmlp));
        if (get_pmlp_reg(swid8, dev_id, static_cast<int>(lp), &pmlp) == 0 && pmlp.width > 0) {
            module = pmlp.module[0];
        }
    }

    sa_cable_info_t ci;
    tbool power_exceeded = false;
    tbuf *raw_buf = nullptr;
    int rc = 0;
    int err = sa_get_cable_info(swid8, dev_id, module, &ci, &power_exceeded);
    if (err != 0 || ci.status != no_failure) {
        rc = 1;
    } else if (raw && ci.plugged) {
        err = sa_get_cable_info_raw(swid8, dev_id, module, &raw_buf);
        if (err != 0) {
            rc = 1;
        }
    }

    if (json) {
        print_json(static_cast<unsigned>(dev), static_cast<unsigned>(lp), module, ci, power_exceeded, err, raw_buf);
    } else {
        print_text(static_cast<unsigned>(dev), static_cast<unsigned>(lp), module, ci, power_exceeded, err, raw_buf);
    }

    tb_free(&raw_buf);
    vqd_access_reg_deinit();
    lc_log_close();
    return rc;
}
