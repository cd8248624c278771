// The simulated switch ASIC: model, register semantics, journal and faults, and the
// library's C entry points on top of them.
#include "vqd_sim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

namespace vqdsim {

namespace {

// ---------------------------------------------------------------------------
// The model.

// The families of module the cages can hold, by the identifier byte they report.
enum class ModuleKind {
    qsfp,    // QSFP+ (0x0d), SFF-8636 memory map
    qsfp28,  // QSFP28 (0x11), SFF-8636 memory map
    sfp,     // SFP/SFP+ (0x03), SFF-8472 memory map: A0h and A2h
};

struct Module {
    bool present = false;
    ModuleKind kind = ModuleKind::qsfp28;
    bool optical = false;  // optical transceiver rather than a copper cable
    std::string vendor = "VQ CABLES";
    std::string part = "VQC-GENERIC";
    std::string serial;
    std::string rev;         // empty: the family's default
    uint32_t oui = 0x02ab01;  // locally administered
    unsigned length = 1;      // copper length, or the OM4 length of an optical module, metres
    unsigned om1 = 0, om2 = 0, om3 = 0, smf = 0;  // optical lengths, metres
    int speed = -1;           // QSFP byte 164 (InfiniBand speed set); -1: the family's default
    int rate = -1;            // nominal signalling rate, 100 MBd units; -1: the default
    int ident = -1;           // identifier byte in place of the family's
    uint8_t fault = 0;        // MCIA status of every access to a present module
    int oper = -1;            // PMAOS oper_status of a present module in place of the usual
    uint8_t admin_status = 1;  // enabled
    uint8_t ee = 0;
    uint8_t e = 0;
    // I2C address 0x50: QSFP lower page and upper page 00, or SFP A0h.
    std::array<uint8_t, 256> eeprom{};
    // I2C address 0x51 of an SFP: A2h (diagnostics), lower half and upper page 00.
    std::array<uint8_t, 256> a2{};
    // QSFP upper pages 01 to 03 (bytes 128 to 255 each).
    std::array<std::array<uint8_t, 128>, 3> upper{};
};

struct Port {
    uint8_t swid = 0;
    uint8_t sub_port = 0;
    uint8_t ib_port = 0;
    int module = -1;  // -1: no cage
    uint8_t width = 4;
    uint8_t use_different_rx_tx = 0;
    std::array<uint8_t, 4> lane{0, 1, 2, 3};
    std::array<uint8_t, 4> rx_lane{0, 1, 2, 3};
    std::array<uint8_t, 4> lane_module{};
    uint8_t speed_cap = 0x3f;
    uint8_t width_cap = 0x05;
    uint8_t speed_admin = 0x3f;
    uint8_t width_admin = 0x05;
    uint16_t max_mtu = 4096;
    uint16_t admin_mtu = 4096;
    uint8_t vl_cap = 8;  // VL0 - VL7
    uint8_t vl_admin = 8;
    uint8_t admin_status = VQD_PORT_ADMIN_STATUS_UP;
    uint8_t ee = 0;
    uint8_t e = 0;
    uint8_t port_profile_mode = 3;  // auto
    uint8_t static_port_profile = 0;
    uint32_t fec_auto = 4;          // what auto negotiates to
    uint8_t fec_override_admin[4]{};
    bool admin_set = false, speed_admin_set = false, width_admin_set = false;
    bool mtu_admin_set = false, vl_admin_set = false;
};

struct Identity {
    uint32_t capability_mask = 0;
    uint64_t system_image_guid = 0;
    uint64_t guid0 = 0;
    uint64_t node_guid = 0;
    uint32_t v_key_h = 0, v_key_l = 0;
    uint16_t max_pkey = 0;
    std::array<uint8_t, 64> node_description{};
};

struct Device {
    uint8_t id = 0;
    std::string board_id = "VQ_SWITCH";
    uint16_t vendor_id = 0x02ab;
    uint64_t node_guid = 0;
    uint64_t system_image_guid = 0;
    std::string ndesc;
    bool pplm = false;
    bool m_key_set = false;
    uint64_t m_key = 0;
    std::array<uint32_t, 8> pmpc{};
    std::map<unsigned, Port> ports;
    std::map<unsigned, Module> modules;
    std::map<unsigned, Identity> identity;  // by SWID
};

struct Fault {
    std::string reg;
    unsigned dev;
    int key;
    unsigned count;
    vqd_status_t status;
};

// A long-running process keeps only the recent part of the journal in memory; the
// journal file, when configured, has it all.
constexpr size_t kJournalKeep = 100000;

struct State {
    std::recursive_mutex mu;
    bool open = false;
    vq_log_cb_t log_cb = nullptr;
    uint32_t verbosity = 0;
    std::string config_path = kDefaultConfigPath;
    std::map<unsigned, Device> devices;
    std::deque<JournalEntry> journal;  // the latest kJournalKeep accesses
    uint64_t seq = 0;
    std::deque<Fault> faults;
    FILE *journal_file = nullptr;
    std::string control_path;  // statements that change the model behind the client's back
    // The simulated fabric the devices are part of: its console, and the node name of
    // each device in it.  Empty when the switch stands alone.
    std::string fabric_console;
    std::map<unsigned, std::string> fabric_nodes;
};

State &state()
{
    static State *s = new State;  // lives to the end of the process
    return *s;
}

void sim_log(vq_log_severity_t sev, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

void sim_log(vq_log_severity_t sev, const char *fmt, ...)
{
    State &s = state();
    if (!s.log_cb || static_cast<uint32_t>(sev) > s.verbosity) {
        return;
    }
    char buf[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    s.log_cb(sev, "VQDREG", buf);
}

// ---------------------------------------------------------------------------
// Module EEPROM: the memory maps of the module standards with the identity fields filled
// in from the model.  QSFP modules follow SFF-8636 (lower page 00 and upper pages 00 to
// 03 at I2C address 0x50), SFP modules SFF-8472 (A0h at 0x50, A2h at 0x51).

void put_text(std::array<uint8_t, 256> &m, size_t off, size_t len, const std::string &text)
{
    for (size_t i = 0; i < len; ++i) {
        m[off + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : ' ';
    }
}

void put_checksum(std::array<uint8_t, 256> &m, size_t first, size_t last, size_t at)
{
    uint32_t sum = 0;
    for (size_t i = first; i <= last; ++i) {
        sum += m[i];
    }
    m[at] = static_cast<uint8_t>(sum);
}

uint8_t clamp_byte(unsigned v)
{
    return static_cast<uint8_t>(std::min(v, 255u));
}

std::string module_serial(const Module &mod, unsigned dev, unsigned index)
{
    if (!mod.serial.empty()) {
        return mod.serial;
    }
    char buf[32];
    snprintf(buf, sizeof(buf), "VQ%02u%02u%08u", dev % 100, index % 100, 4711u + index);
    return buf;
}

void build_qsfp_eeprom(Module &mod, unsigned dev, unsigned index)
{
    auto &m = mod.eeprom;
    const bool q28 = mod.kind == ModuleKind::qsfp28;
    const uint8_t ident = mod.ident >= 0 ? static_cast<uint8_t>(mod.ident) : (q28 ? 0x11 : 0x0d);
    // Lower page 00.
    m[0] = ident;                        // identifier
    m[1] = 0x07;                         // revision compliance
    m[2] = mod.optical ? 0x00 : 0x04;    // status: flat memory for a passive cable
    m[22] = 0x19;                        // temperature MSB: 25 C
    m[26] = 0x80;                        // supply voltage 3.3 V (0x80e8 * 100 uV)
    m[27] = 0xe8;
    m[113] = 0x00;                       // far end / near end implementation: unspecified
    // Upper page 00.
    m[128] = ident;                      // identifier
    m[129] = mod.optical ? 0x03 : 0x00;  // extended identifier: power class
    m[130] = mod.optical ? 0x0c : 0x23;  // connector: MPO 1x12, or no separable connector
    m[131] = q28 ? 0x80 : (mod.optical ? 0x04 : 0x08);  // extended / 40GBASE-SR4 / -CR4
    m[139] = q28 ? 0x07 : 0x05;          // encoding: 256B/257B or 64B/66B
    const unsigned rate = mod.rate >= 0 ? static_cast<unsigned>(mod.rate) : (q28 ? 255u : 141u);
    m[140] = clamp_byte(rate);           // nominal rate, 100 MBd
    if (mod.optical) {
        m[142] = clamp_byte(mod.smf / 1000);  // single mode, km
        m[143] = clamp_byte(mod.om3 / 2);     // OM3, 2 m
        m[144] = clamp_byte(mod.om2);         // OM2, 1 m
        m[145] = clamp_byte(mod.om1);         // OM1, 1 m
        m[146] = clamp_byte(mod.length / 2);  // OM4, 2 m
        m[147] = 0x00;                        // transmitter: 850 nm VCSEL
    } else {
        m[146] = clamp_byte(mod.length);      // copper, 1 m
        m[147] = 0xa0;                        // transmitter: copper, unequalised
    }
    put_text(m, 148, 16, mod.vendor);
    const uint8_t speed = mod.speed >= 0 ? static_cast<uint8_t>(mod.speed) : (q28 ? 0x1f : 0x0f);
    m[164] = speed;                      // extended module codes: InfiniBand speeds
    m[165] = static_cast<uint8_t>(mod.oui >> 16);
    m[166] = static_cast<uint8_t>(mod.oui >> 8);
    m[167] = static_cast<uint8_t>(mod.oui);
    put_text(m, 168, 16, mod.part);
    put_text(m, 184, 2, mod.rev.empty() ? "A2" : mod.rev);
    if (mod.optical) {
        m[186] = 0x42;                   // wavelength 850 nm (units of 0.05 nm)
        m[187] = 0x68;
        m[188] = 0x0b;                   // tolerance 15 nm (units of 0.005 nm)
        m[189] = 0xb8;
    } else {
        m[186] = 0x03;                   // attenuation at 2.5 GHz, dB
        m[187] = 0x05;                   // at 5 GHz
        m[188] = 0x07;                   // at 7 GHz
        m[189] = 0x0c;                   // at 12.9 GHz
    }
    m[190] = 70;                         // maximum case temperature, C
    put_checksum(m, 128, 190, 191);      // CC_BASE
    m[192] = q28 ? (mod.optical ? 0x02 : 0x0b) : 0x00;  // 100GBASE-SR4 / -CR4
    m[193] = 0x00;                       // options
    m[194] = mod.optical ? 0x07 : 0x00;
    m[195] = mod.optical ? 0x1e : 0x00;
    put_text(m, 196, 16, module_serial(mod, dev, index));
    put_text(m, 212, 8, "26010100");     // date code YYMMDDLL
    m[220] = mod.optical ? 0x0c : 0x00;  // diagnostic monitoring: temperature and voltage
    m[221] = 0x00;
    m[222] = q28 ? 0x67 : 0x00;          // nominal rate, 250 MBd: 25.78 GBd
    put_checksum(m, 192, 222, 223);      // CC_EXT
    if (mod.optical) {
        // Upper page 03: the temperature and voltage thresholds.
        auto &p3 = mod.upper[2];
        const uint8_t thresholds[16] = {0x4b, 0x00, 0xfb, 0x00, 0x46, 0x00, 0x00, 0x00,
                                        0x8d, 0xcc, 0x74, 0x04, 0x87, 0x5a, 0x7a, 0x76};
        memcpy(&p3[0], thresholds, sizeof(thresholds));
    }
}

void build_sfp_eeprom(Module &mod, unsigned dev, unsigned index)
{
    auto &m = mod.eeprom;
    // A0h.
    m[0] = mod.ident >= 0 ? static_cast<uint8_t>(mod.ident) : 0x03;  // identifier: SFP/SFP+
    m[1] = 0x04;                          // extended identifier: two-wire ID only
    m[2] = mod.optical ? 0x07 : 0x21;     // connector: LC, or copper pigtail
    m[3] = mod.optical ? 0x10 : 0x00;     // 10G Ethernet compliance: 10GBASE-SR
    m[6] = 0x00;                          // Ethernet compliance
    m[8] = mod.optical ? 0x00 : 0x04;     // SFP+ cable technology: passive
    m[11] = 0x06;                         // encoding: 64B/66B
    m[12] = clamp_byte(mod.rate >= 0 ? static_cast<unsigned>(mod.rate) : 103u);  // 100 MBd
    if (mod.optical) {
        m[14] = clamp_byte(mod.smf / 1000);   // single mode, km
        m[15] = clamp_byte(mod.smf / 100);    // single mode, 100 m
        m[16] = clamp_byte(mod.om2 / 10);     // 50 um OM2, 10 m
        m[17] = clamp_byte(mod.om1 / 10);     // 62.5 um OM1, 10 m
        m[18] = clamp_byte(mod.length / 10);  // OM4, 10 m
        m[19] = clamp_byte(mod.om3 / 10);     // OM3, 10 m
    } else {
        m[18] = clamp_byte(mod.length);       // copper, 1 m
    }
    put_text(m, 20, 16, mod.vendor);
    m[36] = 0x00;                         // extended compliance
    m[37] = static_cast<uint8_t>(mod.oui >> 16);
    m[38] = static_cast<uint8_t>(mod.oui >> 8);
    m[39] = static_cast<uint8_t>(mod.oui);
    put_text(m, 40, 16, mod.part);
    put_text(m, 56, 4, mod.rev.empty() ? "A0" : mod.rev);
    if (mod.optical) {
        m[60] = 0x03;                     // wavelength 850 nm
        m[61] = 0x52;
    } else {
        m[60] = 0x01;                     // passive cable: SFF-8431 appendix E
        m[61] = 0x00;
    }
    put_checksum(m, 0, 62, 63);           // CC_BASE
    m[64] = 0x00;                         // options
    m[65] = mod.optical ? 0x1a : 0x00;
    m[66] = 0x00;                         // rate margins
    m[67] = 0x00;
    put_text(m, 68, 16, module_serial(mod, dev, index));
    put_text(m, 84, 8, "260101  ");       // date code YYMMDD and lot
    m[92] = mod.optical ? 0x68 : 0x00;    // diagnostics: implemented, internally calibrated
    m[93] = mod.optical ? 0xf0 : 0x00;    // enhanced options
    m[94] = mod.optical ? 0x08 : 0x00;    // SFF-8472 compliance
    put_checksum(m, 64, 94, 95);          // CC_EXT
    // A2h: alarm and warning thresholds, then the live values.
    auto &d = mod.a2;
    if (mod.optical) {
        const uint8_t thresholds[16] = {0x5a, 0x00, 0xd8, 0x00, 0x55, 0x00, 0xdd, 0x00,
                                        0x90, 0x88, 0x71, 0x48, 0x8c, 0xa0, 0x75, 0x30};
        memcpy(&d[0], thresholds, sizeof(thresholds));
        put_checksum(d, 0, 94, 95);       // CC_DMI
        d[96] = 0x19;                     // temperature: 25 C
        d[98] = 0x80;                     // supply voltage: 3.3 V
        d[99] = 0xe8;
        d[100] = 0x0f;                    // transmitter bias
        d[102] = 0x13;                    // transmitted power
        d[103] = 0x88;
        d[104] = 0x12;                    // received power
        d[105] = 0x34;
    }
}

void build_eeprom(Module &mod, unsigned dev, unsigned index)
{
    mod.eeprom.fill(0);
    mod.a2.fill(0);
    for (auto &page : mod.upper) {
        page.fill(0);
    }
    if (!mod.present) {
        return;
    }
    if (mod.kind == ModuleKind::sfp) {
        build_sfp_eeprom(mod, dev, index);
    } else {
        build_qsfp_eeprom(mod, dev, index);
    }
}

// ---------------------------------------------------------------------------
// Model text.

bool tokenize(const std::string &line, std::vector<std::string> *ret, std::string *why)
{
    ret->clear();
    size_t i = 0;
    while (i < line.size()) {
        if (isspace(static_cast<unsigned char>(line[i]))) {
            ++i;
            continue;
        }
        if (line[i] == '#') {
            break;
        }
        std::string tok;
        while (i < line.size() && !isspace(static_cast<unsigned char>(line[i]))) {
            if (line[i] == '"') {
                size_t end = line.find('"', i + 1);
                if (end == std::string::npos) {
                    *why = "unterminated quote";
                    return false;
                }
                tok += line.substr(i + 1, end - i - 1);
                i = end + 1;
            } else {
                tok += line[i++];
            }
        }
        ret->push_back(tok);
    }
    return true;
}

bool parse_num(const std::string &text, uint64_t *ret)
{
    if (text.empty()) {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    unsigned long long v = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || text[0] == '-') {
        return false;
    }
    *ret = v;
    return true;
}

bool parse_bool(const std::string &text, bool *ret)
{
    if (text == "yes" || text == "true" || text == "1") {
        *ret = true;
        return true;
    }
    if (text == "no" || text == "false" || text == "0") {
        *ret = false;
        return true;
    }
    return false;
}

bool parse_range(const std::string &text, unsigned max, unsigned *first, unsigned *last)
{
    uint64_t a = 0, b = 0;
    size_t dash = text.find('-');
    if (dash == std::string::npos) {
        if (!parse_num(text, &a)) {
            return false;
        }
        b = a;
    } else if (!parse_num(text.substr(0, dash), &a) || !parse_num(text.substr(dash + 1), &b)) {
        return false;
    }
    if (a > b || b > max) {
        return false;
    }
    *first = static_cast<unsigned>(a);
    *last = static_cast<unsigned>(b);
    return true;
}

template <class T>
bool num_attr(const std::string &val, uint64_t max, T *out)
{
    uint64_t v = 0;
    if (!parse_num(val, &v) || v > max) {
        return false;
    }
    *out = static_cast<T>(v);
    return true;
}

bool apply_device_attr(Device &d, const std::string &name, const std::string &val)
{
    if (name == "board_id") {
        d.board_id = val.substr(0, 63);
        return true;
    }
    if (name == "ndesc") {
        d.ndesc = val.substr(0, 64);
        return true;
    }
    if (name == "vendor_id") return num_attr(val, 0xffff, &d.vendor_id);
    if (name == "node_guid") return num_attr(val, UINT64_MAX, &d.node_guid);
    if (name == "system_image_guid") return num_attr(val, UINT64_MAX, &d.system_image_guid);
    if (name == "pplm") return parse_bool(val, &d.pplm);
    return false;
}

bool apply_port_attr(Port &p, unsigned lp, const std::string &name, const std::string &val)
{
    if (name == "ib_port") {
        if (val == "auto") {
            p.ib_port = static_cast<uint8_t>(lp);
            return true;
        }
        return num_attr(val, 255, &p.ib_port);
    }
    if (name == "module") {
        if (val == "none") {
            p.module = -1;
        } else if (val == "auto") {
            p.module = static_cast<int>(lp) - 1;
        } else if (!num_attr(val, 255, &p.module)) {
            return false;
        }
        p.lane_module.fill(p.module < 0 ? 0 : static_cast<uint8_t>(p.module));
        return true;
    }
    if (name == "admin") {
        if (val == "up") {
            p.admin_status = VQD_PORT_ADMIN_STATUS_UP;
        } else if (val == "down") {
            p.admin_status = VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF;
        } else {
            return false;
        }
        return true;
    }
    if (name == "swid") return num_attr(val, 255, &p.swid);
    if (name == "sub_port") return num_attr(val, 255, &p.sub_port);
    if (name == "width") return num_attr(val, 4, &p.width);
    if (name == "speed_cap") return num_attr(val, 255, &p.speed_cap);
    if (name == "width_cap") return num_attr(val, 255, &p.width_cap);
    if (name == "speed_admin") return (p.speed_admin_set = true, num_attr(val, 255, &p.speed_admin));
    if (name == "width_admin") return (p.width_admin_set = true, num_attr(val, 255, &p.width_admin));
    if (name == "max_mtu") return num_attr(val, 0xffff, &p.max_mtu);
    if (name == "admin_mtu") return (p.mtu_admin_set = true, num_attr(val, 0xffff, &p.admin_mtu));
    if (name == "vl_cap") return num_attr(val, 15, &p.vl_cap);
    if (name == "vl_admin") return (p.vl_admin_set = true, num_attr(val, 15, &p.vl_admin));
    if (name == "fec_auto") return num_attr(val, UINT32_MAX, &p.fec_auto);
    return false;
}

// InfiniBand speed names as the QSFP extended module codes (byte 164) carry them.
bool parse_module_speed(const std::string &val, int *ret)
{
    uint64_t n = 0;
    if (parse_num(val, &n)) {
        if (n > 255) return false;
        *ret = static_cast<int>(n);
        return true;
    }
    static const std::pair<const char *, int> names[] = {
        {"sdr", 0x01}, {"ddr", 0x02}, {"qdr", 0x04}, {"fdr", 0x08}, {"edr", 0x10}, {"hdr", 0x20},
    };
    int mask = 0;
    std::istringstream in(val);
    std::string item;
    while (std::getline(in, item, ',')) {
        bool known = false;
        for (const auto &[name, bit] : names) {
            if (item == name) {
                mask |= bit;
                known = true;
            }
        }
        if (!known) return false;
    }
    *ret = mask;
    return true;
}

bool apply_module_attr(Module &m, const std::string &name, const std::string &val)
{
    if (name == "present") return parse_bool(val, &m.present);
    if (name == "type") {
        if (val == "qsfp") {
            m.kind = ModuleKind::qsfp;
        } else if (val == "qsfp28") {
            m.kind = ModuleKind::qsfp28;
        } else if (val == "sfp") {
            m.kind = ModuleKind::sfp;
        } else {
            return false;
        }
        return true;
    }
    if (name == "media") {
        if (val == "copper") {
            m.optical = false;
        } else if (val == "optical") {
            m.optical = true;
        } else {
            return false;
        }
        return true;
    }
    if (name == "vendor") {
        m.vendor = val;
        return true;
    }
    if (name == "part") {
        m.part = val;
        return true;
    }
    if (name == "serial") {
        m.serial = val;
        return true;
    }
    if (name == "rev") {
        m.rev = val;
        return true;
    }
    if (name == "oui") return num_attr(val, 0xffffff, &m.oui);
    if (name == "length") return num_attr(val, 255000, &m.length);
    if (name == "om1") return num_attr(val, 2550, &m.om1);
    if (name == "om2") return num_attr(val, 2550, &m.om2);
    if (name == "om3") return num_attr(val, 2550, &m.om3);
    if (name == "smf") return num_attr(val, 255000, &m.smf);
    if (name == "speed") return parse_module_speed(val, &m.speed);
    if (name == "rate") return num_attr(val, 255, &m.rate);
    if (name == "ident") return num_attr(val, 255, &m.ident);
    if (name == "fault") return num_attr(val, 255, &m.fault);
    if (name == "oper") return num_attr(val, 15, &m.oper);
    return false;
}

bool split_attr(const std::string &tok, std::string *name, std::string *val)
{
    size_t eq = tok.find('=');
    if (eq == std::string::npos || eq == 0) {
        return false;
    }
    *name = tok.substr(0, eq);
    *val = tok.substr(eq + 1);
    return true;
}

bool parse_model(const std::string &text, std::map<unsigned, Device> *ret, std::string *why)
{
    std::map<unsigned, Device> devs;
    std::istringstream in(text);
    std::string line;
    int lineno = 0;
    std::vector<std::string> tok;
    auto fail = [&](const std::string &reason) {
        if (why) {
            *why = "line " + std::to_string(lineno) + ": " + reason;
        }
        return false;
    };
    while (std::getline(in, line)) {
        ++lineno;
        std::string tok_why;
        if (!tokenize(line, &tok, &tok_why)) {
            return fail(tok_why);
        }
        if (tok.empty()) {
            continue;
        }
        const std::string &kind = tok[0];
        if (kind != "device" && kind != "port" && kind != "module") {
            return fail("unknown statement '" + kind + "'");
        }
        uint64_t dev_id = 0;
        if (tok.size() < 2 || !parse_num(tok[1], &dev_id) || dev_id > 216) {
            return fail("bad device id");
        }
        if (kind == "device") {
            Device &d = devs[static_cast<unsigned>(dev_id)];
            d.id = static_cast<uint8_t>(dev_id);
            for (size_t i = 2; i < tok.size(); ++i) {
                std::string n, v;
                if (!split_attr(tok[i], &n, &v) || !apply_device_attr(d, n, v)) {
                    return fail("bad device attribute '" + tok[i] + "'");
                }
            }
            continue;
        }
        auto dit = devs.find(static_cast<unsigned>(dev_id));
        if (dit == devs.end()) {
            return fail("device " + std::to_string(dev_id) + " not declared");
        }
        unsigned first = 0, last = 0;
        if (tok.size() < 3 ||
            !parse_range(tok[2], kind == "port" ? 254 : 255, &first, &last) ||
            (kind == "port" && first == 0)) {
            return fail("bad " + kind + " range");
        }
        for (unsigned k = first; k <= last; ++k) {
            bool is_new = false;
            if (kind == "port") {
                is_new = dit->second.ports.find(k) == dit->second.ports.end();
                Port &p = dit->second.ports[k];
                if (is_new) {
                    p.ib_port = static_cast<uint8_t>(k);
                }
            } else {
                dit->second.modules[k];
            }
            for (size_t i = 3; i < tok.size(); ++i) {
                std::string n, v;
                bool ok = split_attr(tok[i], &n, &v);
                if (ok && kind == "port") {
                    ok = apply_port_attr(dit->second.ports[k], k, n, v);
                } else if (ok) {
                    ok = apply_module_attr(dit->second.modules[k], n, v);
                }
                if (!ok) {
                    return fail("bad " + kind + " attribute '" + tok[i] + "'");
                }
            }
        }
    }
    // Settle what the attributes imply: administrative values default to the
    // capabilities, modules get their EEPROM and every cage a module record.
    for (auto &[id, d] : devs) {
        for (auto &[lp, p] : d.ports) {
            if (!p.speed_admin_set) p.speed_admin = p.speed_cap;
            if (!p.width_admin_set) p.width_admin = p.width_cap;
            if (!p.mtu_admin_set) p.admin_mtu = p.max_mtu;
            if (!p.vl_admin_set) p.vl_admin = p.vl_cap;
            if (p.module >= 0) {
                d.modules.try_emplace(static_cast<unsigned>(p.module));
            }
        }
        for (auto &[idx, m] : d.modules) {
            build_eeprom(m, id, idx);
        }
        Identity &ident = d.identity[0];
        ident.node_guid = d.node_guid;
        ident.system_image_guid = d.system_image_guid;
        memcpy(ident.node_description.data(), d.ndesc.data(), d.ndesc.size());
    }
    *ret = std::move(devs);
    return true;
}

// ---------------------------------------------------------------------------
// Port behaviour.

bool port_link_up(const Device &d, const Port &p)
{
    if (p.admin_status != VQD_PORT_ADMIN_STATUS_UP && p.admin_status != VQD_PORT_ADMIN_STATUS_UP_ONCE) {
        return false;
    }
    if ((p.speed_admin & p.speed_cap) == 0 || (p.width_admin & p.width_cap) == 0) {
        return false;
    }
    if (p.module < 0) {
        return true;
    }
    auto it = d.modules.find(static_cast<unsigned>(p.module));
    return it != d.modules.end() && it->second.present && it->second.admin_status == 1;
}

uint8_t highest_bit(uint8_t v)
{
    uint8_t r = 0;
    for (int b = 0; b < 8; ++b) {
        if (v & (1u << b)) {
            r = static_cast<uint8_t>(1u << b);
        }
    }
    return r;
}

uint32_t fec_active(const Port &p)
{
    if (p.port_profile_mode & 0x3) {
        return p.fec_auto;
    }
    switch (p.static_port_profile) {
    case 7:
        return 1;  // no FEC
    case 8:
        return 4;  // standard RS FEC
    default:
        return p.fec_auto;
    }
}

// ---------------------------------------------------------------------------
// Journal fields of each record.

using Fields = std::vector<std::pair<std::string, uint64_t>>;

#define F(name) out.emplace_back(#name, static_cast<uint64_t>(r.name))

Fields fields_of(const ku_ptys_reg &r)
{
    Fields out;
    F(local_port); F(proto_mask); F(ib_proto_capability); F(eth_proto_admin); F(fc_proto_admin);
    F(ib_proto_admin); F(ib_proto_oper);
    return out;
}
Fields fields_of(const ku_pplm_reg &r)
{
    Fields out;
    F(local_port); F(port_profile_mode); F(static_port_profile); F(active_port_profile);
    F(retransmission_active); F(fec_mode_active); F(fec_override_admin_100g);
    F(fec_override_admin_50g); F(fec_override_admin_25g); F(fec_override_admin_10g_40g);
    return out;
}
Fields fields_of(const ku_pmtu_reg &r)
{
    Fields out;
    F(local_port); F(max_mtu); F(admin_mtu); F(oper_mtu);
    return out;
}
Fields fields_of(const ku_pvlc_reg &r)
{
    Fields out;
    F(local_port); F(vl_cap); F(vl_admin); F(vl_operational);
    return out;
}
Fields fields_of(const ku_paos_reg &r)
{
    Fields out;
    F(swid); F(local_port); F(admin_status); F(oper_status); F(ase); F(ee); F(e);
    return out;
}
Fields fields_of(const ku_mcia_reg &r)
{
    Fields out;
    F(l); F(module); F(status); F(i2c_device_address); F(page_number); F(device_address); F(size);
    return out;
}
Fields fields_of(const ku_plib_reg &r)
{
    Fields out;
    F(local_port); F(ib_port);
    return out;
}
Fields fields_of(const ku_pmaos_reg &r)
{
    Fields out;
    F(module); F(admin_status); F(oper_status); F(ase); F(ee); F(e);
    return out;
}
Fields fields_of(const ku_pmlp_reg &r)
{
    Fields out;
    F(use_different_rx_tx); F(local_port); F(width);
    for (int i = 0; i < 4; ++i) {
        out.emplace_back("module_" + std::to_string(i), r.module[i]);
        out.emplace_back("lane_" + std::to_string(i), r.lane[i]);
    }
    return out;
}
Fields fields_of(const ku_pmpc_reg &r)
{
    Fields out;
    for (int i = 0; i < 8; ++i) {
        out.emplace_back("module_state_updated_bitmap_" + std::to_string(i),
                         r.module_state_updated_bitmap[i]);
    }
    return out;
}
Fields fields_of(const ku_spzr_reg &r)
{
    Fields out;
    F(swid); F(ndm); F(sig); F(ng); F(g0); F(cm); F(vk); F(mp); F(capability_mask);
    F(system_image_guid_h_l); F(guid0_h_l); F(node_guid_h_l);
    if (r.ndm) {
        char text[65];
        memcpy(text, r.NodeDescription, 64);
        text[64] = '\0';
        out.emplace_back("NodeDescription_len", strlen(text));
    }
    return out;
}
Fields fields_of(const ku_pspa_reg &r)
{
    Fields out;
    F(swid); F(local_port); F(sub_port);
    return out;
}
Fields fields_of(const ku_system_m_key &r)
{
    Fields out;
    F(system_m_key); F(dev_id);
    return out;
}

Fields fields_of(const ku_query_board_info &r)
{
    Fields out;
    F(dev_id);
    return out;
}

#undef F

// ---------------------------------------------------------------------------
// Register semantics.  Each takes the device and the record; the command is GET or
// SET (checked before).

vqd_status_t port_of(Device &d, unsigned lp, Port **ret)
{
    auto it = d.ports.find(lp);
    if (it == d.ports.end()) {
        return VQD_STATUS_PARAM_ERROR;
    }
    *ret = &it->second;
    return VQD_STATUS_SUCCESS;
}

vqd_status_t module_of(Device &d, unsigned idx, Module **ret)
{
    auto it = d.modules.find(idx);
    if (it == d.modules.end()) {
        return VQD_STATUS_PARAM_ERROR;
    }
    *ret = &it->second;
    return VQD_STATUS_SUCCESS;
}

void fill_ptys(const Device &d, const Port &p, ku_ptys_reg *r)
{
    r->ib_proto_capability = static_cast<uint32_t>(p.speed_cap) | (static_cast<uint32_t>(p.width_cap) << 16);
    r->ib_proto_admin = static_cast<uint32_t>(p.speed_admin) | (static_cast<uint32_t>(p.width_admin) << 16);
    r->ib_proto_oper = 0;
    if (port_link_up(d, p)) {
        r->ib_proto_oper = static_cast<uint32_t>(highest_bit(p.speed_admin & p.speed_cap)) |
                           (static_cast<uint32_t>(highest_bit(p.width_admin & p.width_cap)) << 16);
    }
    r->eth_proto_capability = r->fc_proto_capability = 0;
    r->eth_proto_admin = r->fc_proto_admin = r->eth_proto_oper = r->fc_proto_oper = 0;
}

vqd_status_t do_ptys(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_ptys_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (!(r->proto_mask & reg_ptys_proto_mask_ib)) return VQD_STATUS_PARAM_ERROR;
    if (cmd == VQD_ACCESS_CMD_SET) {
        uint8_t speed = static_cast<uint8_t>(r->ib_proto_admin & 0xff);
        uint8_t width = static_cast<uint8_t>((r->ib_proto_admin >> 16) & 0xff);
        // The firmware refuses a configuration the port can't run at all.
        if ((speed & p->speed_cap) == 0 || (width & p->width_cap) == 0) {
            return VQD_STATUS_FW_ERROR;
        }
        p->speed_admin = speed;
        p->width_admin = width;
        return VQD_STATUS_SUCCESS;
    }
    fill_ptys(d, *p, r);
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pplm(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pplm_reg *r)
{
    if (!d.pplm) return VQD_STATUS_CMD_UNSUPPORTED;
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        p->port_profile_mode = r->port_profile_mode;
        p->static_port_profile = r->static_port_profile;
        p->fec_override_admin[0] = r->fec_override_admin_100g;
        p->fec_override_admin[1] = r->fec_override_admin_50g;
        p->fec_override_admin[2] = r->fec_override_admin_25g;
        p->fec_override_admin[3] = r->fec_override_admin_10g_40g;
        return VQD_STATUS_SUCCESS;
    }
    r->port_profile_mode = p->port_profile_mode;
    r->static_port_profile = p->static_port_profile;
    r->active_port_profile = (p->port_profile_mode & 0x3) ? 0 : p->static_port_profile;
    r->retransmission_active = 0;
    r->fec_mode_active = fec_active(*p);
    r->fec_override_cap_100g = r->fec_override_cap_50g = r->fec_override_cap_25g = 0x7;
    r->fec_override_cap_10g_40g = 0x3;
    r->fec_override_admin_100g = p->fec_override_admin[0];
    r->fec_override_admin_50g = p->fec_override_admin[1];
    r->fec_override_admin_25g = p->fec_override_admin[2];
    r->fec_override_admin_10g_40g = p->fec_override_admin[3];
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pmtu(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pmtu_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->admin_mtu == 0 || r->admin_mtu > p->max_mtu) return VQD_STATUS_PARAM_ERROR;
        p->admin_mtu = r->admin_mtu;
        return VQD_STATUS_SUCCESS;
    }
    r->max_mtu = p->max_mtu;
    r->admin_mtu = p->admin_mtu;
    r->oper_mtu = p->admin_mtu;
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pvlc(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pvlc_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->vl_admin == 0 || r->vl_admin > p->vl_cap) return VQD_STATUS_PARAM_ERROR;
        p->vl_admin = r->vl_admin;
        return VQD_STATUS_SUCCESS;
    }
    r->vl_cap = p->vl_cap;
    r->vl_admin = p->vl_admin;
    r->vl_operational = p->vl_admin;
    return VQD_STATUS_SUCCESS;
}

// Tells the simulated fabric that a port's link went down or came back, as the link of a
// real switch follows its administrative state: the console's Unlink and ReLink of the
// device's node at the port's InfiniBand number.
void mirror_admin_to_fabric(const Device &d, const Port &p, bool up)
{
    State &s = state();
    const auto node = s.fabric_nodes.find(d.id);
    if (s.fabric_console.empty() || node == s.fabric_nodes.end() || p.ib_port == 0) {
        return;
    }
    const std::string line = std::string(up ? "ReLink" : "Unlink") + " \"" + node->second +
                             "\"[" + std::to_string(p.ib_port) + "]\n";
    const int fd = open(s.fabric_console.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        sim_log(VQ_LOG_SEVERITY_WARNING, "fabric console %s: %s", s.fabric_console.c_str(), strerror(errno));
        return;
    }
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        sim_log(VQ_LOG_SEVERITY_WARNING, "fabric console %s: short write", s.fabric_console.c_str());
    }
    close(fd);
}

vqd_status_t do_paos(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_paos_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->ase) {
            if (r->admin_status < VQD_PORT_ADMIN_STATUS_UP || r->admin_status > VQD_PORT_ADMIN_STATUS_UP_ONCE) {
                return VQD_STATUS_PARAM_ERROR;
            }
            const bool was_up = p->admin_status != VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF;
            p->admin_status = r->admin_status;
            const bool is_up = p->admin_status != VQD_PORT_ADMIN_STATUS_DOWN_BY_CONF;
            if (was_up != is_up) {
                mirror_admin_to_fabric(d, *p, is_up);
            }
        }
        if (r->ee) {
            p->e = r->e;
        }
        return VQD_STATUS_SUCCESS;
    }
    r->swid = p->swid;
    r->admin_status = p->admin_status;
    r->oper_status = port_link_up(d, *p) ? VQD_SIM_OPER_UP : VQD_SIM_OPER_DOWN;
    r->ase = 0;
    r->ee = 0;
    r->e = p->e;
    return VQD_STATUS_SUCCESS;
}

// The EEPROM byte that an access at an I2C address, page and offset reaches; null where
// the module has no memory (pages it doesn't implement read as zeros).
uint8_t *eeprom_byte(Module &m, uint8_t i2c, uint8_t page, unsigned addr)
{
    if (i2c == 0x51) {
        return addr < 128 || page == 0 ? &m.a2[addr] : nullptr;
    }
    if (addr < 128 || page == 0) {
        return &m.eeprom[addr];
    }
    if (m.kind != ModuleKind::sfp && page <= 3) {
        return &m.upper[page - 1][addr - 128];
    }
    return nullptr;
}

vqd_status_t do_mcia(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_mcia_reg *r)
{
    Module *m = nullptr;
    vqd_status_t st = module_of(d, r->module, &m);
    if (st != VQD_STATUS_SUCCESS) return st;
    uint8_t i2c = r->i2c_device_address == 0 ? 0x50 : r->i2c_device_address;
    if ((i2c != 0x50 && i2c != 0x51) || r->size > 48 || r->device_address + r->size > 256) {
        return VQD_STATUS_PARAM_ERROR;
    }
    if (!m->present) {
        r->status = 0x3;  // no module present; the access itself succeeds
        return VQD_STATUS_SUCCESS;
    }
    if (m->fault != 0) {
        r->status = m->fault;  // the module's own failure, told in the record
        return VQD_STATUS_SUCCESS;
    }
    if (i2c == 0x51 && m->kind != ModuleKind::sfp) {
        r->status = 0x9;  // nothing answers at A2h of a QSFP module: I2C error
        return VQD_STATUS_SUCCESS;
    }
    r->status = 0;
    uint8_t bytes[48] = {0};
    if (cmd == VQD_ACCESS_CMD_SET) {
        memcpy(bytes, &r->dword_0, sizeof(bytes));
        for (unsigned i = 0; i < r->size; ++i) {
            if (eeprom_byte(*m, i2c, r->page_number, r->device_address + i) == nullptr) {
                return VQD_STATUS_PARAM_ERROR;
            }
        }
        for (unsigned i = 0; i < r->size; ++i) {
            *eeprom_byte(*m, i2c, r->page_number, r->device_address + i) = bytes[i];
        }
        return VQD_STATUS_SUCCESS;
    }
    for (unsigned i = 0; i < r->size; ++i) {
        const uint8_t *b = eeprom_byte(*m, i2c, r->page_number, r->device_address + i);
        bytes[i] = b != nullptr ? *b : 0;
    }
    // The dwords carry the bytes in wire (network) order.
    memcpy(&r->dword_0, bytes, sizeof(bytes));
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_plib(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_plib_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        p->ib_port = r->ib_port;
    } else {
        r->ib_port = p->ib_port;
    }
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pmaos(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pmaos_reg *r)
{
    Module *m = nullptr;
    vqd_status_t st = module_of(d, r->module, &m);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->ase) m->admin_status = r->admin_status;
        if (r->ee) m->e = r->e;
        return VQD_STATUS_SUCCESS;
    }
    r->admin_status = m->admin_status;
    // 1 plugged and enabled, 2 unplugged, 3 plugged but disabled (or over the power
    // budget); a model may force another value for a plugged module.
    if (!m->present) {
        r->oper_status = 2;
    } else if (m->oper >= 0) {
        r->oper_status = static_cast<uint8_t>(m->oper);
    } else {
        r->oper_status = m->admin_status == 1 ? 1 : 3;
    }
    r->e = m->e;
    r->ase = r->ee = 0;
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pmlp(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pmlp_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->width > 4) return VQD_STATUS_PARAM_ERROR;
        p->width = r->width;
        p->use_different_rx_tx = r->use_different_rx_tx;
        memcpy(p->lane.data(), r->lane, 4);
        memcpy(p->rx_lane.data(), r->rx_lane, 4);
        memcpy(p->lane_module.data(), r->module, 4);
        return VQD_STATUS_SUCCESS;
    }
    r->width = p->width;
    r->use_different_rx_tx = p->use_different_rx_tx;
    memcpy(r->lane, p->lane.data(), 4);
    memcpy(r->rx_lane, p->rx_lane.data(), 4);
    memcpy(r->module, p->lane_module.data(), 4);
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pmpc(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pmpc_reg *r)
{
    if (cmd == VQD_ACCESS_CMD_SET) {
        // Writing a bit acknowledges the change of that module.
        for (int i = 0; i < 8; ++i) {
            d.pmpc[i] &= ~r->module_state_updated_bitmap[i];
        }
        return VQD_STATUS_SUCCESS;
    }
    memcpy(r->module_state_updated_bitmap, d.pmpc.data(), sizeof(r->module_state_updated_bitmap));
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_spzr(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_spzr_reg *r)
{
    if (r->swid > 7) return VQD_STATUS_PARAM_ERROR;
    Identity &id = d.identity[r->swid];
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->ndm) memcpy(id.node_description.data(), r->NodeDescription, 64);
        if (r->sig) id.system_image_guid = r->system_image_guid_h_l;
        if (r->ng) id.node_guid = r->node_guid_h_l;
        if (r->g0) id.guid0 = r->guid0_h_l;
        if (r->cm) id.capability_mask = r->capability_mask;
        if (r->vk) {
            id.v_key_h = r->v_key_h;
            id.v_key_l = r->v_key_l;
        }
        if (r->mp) id.max_pkey = r->max_pkey;
        return VQD_STATUS_SUCCESS;
    }
    memcpy(r->NodeDescription, id.node_description.data(), 64);
    r->system_image_guid_h_l = id.system_image_guid;
    r->node_guid_h_l = id.node_guid;
    r->guid0_h_l = id.guid0;
    r->capability_mask = id.capability_mask;
    r->v_key_h = id.v_key_h;
    r->v_key_l = id.v_key_l;
    r->max_pkey = id.max_pkey;
    return VQD_STATUS_SUCCESS;
}

vqd_status_t do_pspa(Device &d, vqd_access_cmd_t cmd, const vqd_reg_meta_t &, ku_pspa_reg *r)
{
    Port *p = nullptr;
    vqd_status_t st = port_of(d, r->local_port, &p);
    if (st != VQD_STATUS_SUCCESS) return st;
    if (cmd == VQD_ACCESS_CMD_SET) {
        if (r->swid > 7 && r->swid != 255) return VQD_STATUS_PARAM_ERROR;
        p->swid = r->swid;
        p->sub_port = r->sub_port;
        return VQD_STATUS_SUCCESS;
    }
    r->swid = p->swid;
    r->sub_port = p->sub_port;
    return VQD_STATUS_SUCCESS;
}

// ---------------------------------------------------------------------------
// Access plumbing.

int key_of(const ku_ptys_reg &r) { return r.local_port; }
int key_of(const ku_pplm_reg &r) { return r.local_port; }
int key_of(const ku_pmtu_reg &r) { return r.local_port; }
int key_of(const ku_pvlc_reg &r) { return r.local_port; }
int key_of(const ku_paos_reg &r) { return r.local_port; }
int key_of(const ku_mcia_reg &r) { return r.module; }
int key_of(const ku_plib_reg &r) { return r.local_port; }
int key_of(const ku_pmaos_reg &r) { return r.module; }
int key_of(const ku_pmlp_reg &r) { return r.local_port; }
int key_of(const ku_pmpc_reg &) { return -1; }
int key_of(const ku_spzr_reg &r) { return r.swid; }
int key_of(const ku_pspa_reg &r) { return r.local_port; }

std::string upper(std::string s)
{
    for (char &c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return s;
}

// Takes one matching fault, if any; the caller holds the lock.
bool take_fault(State &s, const std::string &reg, unsigned dev, int key, vqd_status_t *ret)
{
    for (auto it = s.faults.begin(); it != s.faults.end(); ++it) {
        if (it->reg == reg && it->dev == dev && (it->key < 0 || it->key == key)) {
            *ret = it->status;
            if (--it->count == 0) {
                s.faults.erase(it);
            }
            return true;
        }
    }
    return false;
}

void record(State &s, JournalEntry &&e)
{
    e.seq = ++s.seq;
    if (s.journal_file) {
        fprintf(s.journal_file, "%s\n", e.to_string().c_str());
        fflush(s.journal_file);
    }
    if (s.journal.size() >= kJournalKeep) {
        s.journal.pop_front();
    }
    s.journal.push_back(std::move(e));
}

// One access of `reg` on device `dev`: journal, faults, then the register itself.  With
// `set_without_device`, a SET for a device that isn't there is taken (and does nothing).
template <class Rec, class Fn>
vqd_status_t access_one(const char *reg, int raw_cmd, unsigned dev, unsigned swid, Rec *rec, Fn &&fn,
                        int key, bool set_without_device = false)
{
    State &s = state();
    JournalEntry e;
    const vqd_access_cmd_t cmd =
        (raw_cmd >= VQD_ACCESS_CMD_MIN && raw_cmd <= VQD_ACCESS_CMD_MAX) ? static_cast<vqd_access_cmd_t>(raw_cmd)
                                                                         : VQD_ACCESS_CMD_MIN;
    e.reg = reg;
    e.cmd = raw_cmd;
    e.dev = dev;
    e.swid = swid;
    e.key = key;
    e.fields = fields_of(*rec);
    vqd_status_t st = VQD_STATUS_SUCCESS;
    auto dit = s.devices.find(dev);
    if (raw_cmd != VQD_ACCESS_CMD_GET && raw_cmd != VQD_ACCESS_CMD_SET) {
        st = (raw_cmd >= VQD_ACCESS_CMD_MIN && raw_cmd <= VQD_ACCESS_CMD_MAX) ? VQD_STATUS_CMD_UNSUPPORTED
                                                                              : VQD_STATUS_INVALID_ACCESS_CMD;
    } else if (dit == s.devices.end() && !(set_without_device && raw_cmd == VQD_ACCESS_CMD_SET)) {
        st = VQD_STATUS_NO_PATH_TO_DEVICE;
    } else if (take_fault(s, reg, dev, key, &st)) {
        // A failed access leaves the record in no defined state; make that visible.
        memset(static_cast<void *>(rec), 0xa5, sizeof(*rec));
        sim_log(VQ_LOG_SEVERITY_NOTICE, "injected failure of %s %s on device %u key %d: %d",
                reg, VQD_ACCESS_CMD_STR(raw_cmd), dev, key, static_cast<int>(st));
    } else if (dit != s.devices.end()) {
        st = fn(dit->second, cmd, *rec);
    }
    e.status = static_cast<int>(st);
    record(s, std::move(e));
    return st;
}

// Applies what was dropped into the control file, if anything, and removes the file: one
// port statement of the model a line ("port DEV FIRST[-LAST] attr=value ..."), on ports
// that exist.  A line that doesn't apply is logged and skipped.  The caller holds the lock.
bool parse_status(const std::string &text, vqd_status_t *ret);

// "fault REG DEV KEY|* COUNT STATUS".
bool parse_fault(const std::vector<std::string> &tok, Fault *f, std::string *why)
{
    uint64_t dev = 0, count = 0, key = 0;
    f->reg = upper(tok[1]);
    if (!parse_num(tok[2], &dev) || !parse_num(tok[4], &count) ||
        !parse_status(tok[5], &f->status)) {
        *why = "bad fault";
        return false;
    }
    if (tok[3] == "*") {
        f->key = -1;
    } else if (parse_num(tok[3], &key)) {
        f->key = static_cast<int>(key);
    } else {
        *why = "bad fault key";
        return false;
    }
    f->dev = static_cast<unsigned>(dev);
    f->count = static_cast<unsigned>(count);
    return true;
}

void poll_control(State &s)
{
    if (s.control_path.empty()) {
        return;
    }
    std::ifstream in(s.control_path);
    if (!in) {
        return;
    }
    std::stringstream text;
    text << in.rdbuf();
    in.close();
    unlink(s.control_path.c_str());
    std::istringstream lines(text.str());
    std::vector<std::string> tok;
    for (std::string line; std::getline(lines, line);) {
        std::string why;
        if (!tokenize(line, &tok, &why) || tok.empty()) {
            continue;
        }
        if (tok[0] == "fault" && tok.size() == 6) {
            Fault f;
            const bool ok = parse_fault(tok, &f, &why);
            if (ok && f.count) {
                s.faults.push_back(f);
            }
            sim_log(ok ? VQ_LOG_SEVERITY_NOTICE : VQ_LOG_SEVERITY_WARNING, "control: %s%s",
                    ok ? "" : "not applied: ", line.c_str());
            continue;
        }
        uint64_t dev = 0;
        unsigned first = 0, last = 0;
        auto dit = s.devices.end();
        bool ok = tok.size() >= 3 && tok[0] == "port" && parse_num(tok[1], &dev) &&
                  parse_range(tok[2], 254, &first, &last) &&
                  (dit = s.devices.find(static_cast<unsigned>(dev))) != s.devices.end();
        for (unsigned k = first; ok && k <= last; ++k) {
            auto pit = dit->second.ports.find(k);
            ok = pit != dit->second.ports.end();
            for (size_t i = 3; ok && i < tok.size(); ++i) {
                std::string n, v;
                ok = split_attr(tok[i], &n, &v) && apply_port_attr(pit->second, k, n, v);
            }
        }
        sim_log(ok ? VQ_LOG_SEVERITY_NOTICE : VQ_LOG_SEVERITY_WARNING, "control: %s%s",
                ok ? "" : "not applied: ", line.c_str());
    }
}

template <class Rec>
using RegFn = vqd_status_t (*)(Device &, vqd_access_cmd_t, const vqd_reg_meta_t &, Rec *);

template <class Rec>
vqd_status_t access_reg(const char *reg, Rec *recs, vqd_reg_meta_t *meta, uint32_t count,
                        vqd_completion_handler_t handler, void *context, RegFn<Rec> fn)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (!s.open) {
        return VQD_STATUS_NOT_INITIALIZED;
    }
    if (recs == nullptr || meta == nullptr || count == 0) {
        return VQD_STATUS_PARAM_ERROR;
    }
    poll_control(s);
    vqd_status_t last = VQD_STATUS_SUCCESS;
    for (uint32_t i = 0; i < count; ++i) {
        const vqd_reg_meta_t &m = meta[i];
        Rec *rec = &recs[i];
        int raw_cmd = 0;  // read as a number: callers may pass values outside the enumeration
        static_assert(sizeof(raw_cmd) == sizeof(m.access_cmd));
        memcpy(&raw_cmd, &m.access_cmd, sizeof(raw_cmd));
        vqd_status_t st = access_one(
            reg, raw_cmd, m.dev_id, m.swid, rec,
            [&](Device &d, vqd_access_cmd_t cmd, Rec &r) { return fn(d, cmd, m, &r); }, key_of(*rec));
        if (handler) {
            handler(st, rec, &meta[i], context);
        }
        if (st != VQD_STATUS_SUCCESS) {
            last = st;
        }
    }
    return last;
}

void close_journal_file(State &s)
{
    if (s.journal_file) {
        fclose(s.journal_file);
        s.journal_file = nullptr;
    }
}

// Statuses beyond the known ones stay within what the enumeration can hold.
constexpr uint64_t kMaxStatusValue = 31;

bool parse_status(const std::string &text, vqd_status_t *ret)
{
    uint64_t v = 0;
    if (!parse_num(text, &v) || v > kMaxStatusValue) {
        return false;
    }
    *ret = static_cast<vqd_status_t>(v);
    return true;
}

// Applies a configuration text; the caller holds the lock.
bool apply_config(State &s, const std::string &text, std::string *why)
{
    std::map<unsigned, Device> devs;
    std::string model_why;
    bool have_model = false;
    std::string journal_path;
    std::string control_path;
    std::string fabric_console;
    std::map<unsigned, std::string> fabric_nodes;
    std::deque<Fault> faults;
    std::istringstream in(text);
    std::string line;
    int lineno = 0;
    std::vector<std::string> tok;
    auto fail = [&](const std::string &reason) {
        if (why) *why = "line " + std::to_string(lineno) + ": " + reason;
        return false;
    };
    while (std::getline(in, line)) {
        ++lineno;
        std::string tw;
        if (!tokenize(line, &tok, &tw)) return fail(tw);
        if (tok.empty()) continue;
        if (tok[0] == "model" && tok.size() == 2) {
            std::string model_text;
            if (tok[1].rfind("builtin:", 0) == 0) {
                const char *t = builtin_model_text(tok[1].substr(8));
                if (!t) return fail("no built-in model '" + tok[1].substr(8) + "'");
                model_text = t;
            } else {
                std::ifstream f(tok[1]);
                if (!f) return fail("can't read model file " + tok[1]);
                std::stringstream ss;
                ss << f.rdbuf();
                model_text = ss.str();
            }
            if (!parse_model(model_text, &devs, &model_why)) {
                return fail("model " + tok[1] + ": " + model_why);
            }
            have_model = true;
        } else if (tok[0] == "journal" && tok.size() == 2) {
            journal_path = tok[1];
        } else if (tok[0] == "control" && tok.size() == 2) {
            control_path = tok[1];
        } else if (tok[0] == "fabric" && tok.size() >= 3) {
            fabric_console = tok[1];
            for (size_t i = 2; i < tok.size(); ++i) {
                const size_t eq = tok[i].find('=');
                uint64_t dev = 0;
                if (eq == std::string::npos || !parse_num(tok[i].substr(0, eq), &dev) ||
                    eq + 1 == tok[i].size()) {
                    return fail("bad fabric node '" + tok[i] + "' (want DEV=NODE)");
                }
                fabric_nodes[static_cast<unsigned>(dev)] = tok[i].substr(eq + 1);
            }
        } else if (tok[0] == "fault" && tok.size() == 6) {
            Fault f;
            std::string fault_why;
            if (!parse_fault(tok, &f, &fault_why)) {
                return fail(fault_why);
            }
            if (f.count) faults.push_back(f);
        } else {
            return fail("unknown setting '" + tok[0] + "'");
        }
    }
    if (!have_model && !parse_model(builtin_model_text(kDefaultModel), &devs, &model_why)) {
        return fail("built-in model: " + model_why);
    }
    FILE *jf = nullptr;
    if (!journal_path.empty()) {
        jf = fopen(journal_path.c_str(), "a");
        if (!jf) return fail("can't open journal " + journal_path + ": " + strerror(errno));
    }
    close_journal_file(s);
    s.journal_file = jf;
    s.devices = std::move(devs);
    s.faults = std::move(faults);
    s.control_path = control_path;
    s.fabric_console = fabric_console;
    s.fabric_nodes = std::move(fabric_nodes);
    s.journal.clear();
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------
// Controls.

bool JournalEntry::has(const std::string &name) const
{
    return std::any_of(fields.begin(), fields.end(), [&](const auto &f) { return f.first == name; });
}

uint64_t JournalEntry::field(const std::string &name, uint64_t dflt) const
{
    for (const auto &[n, v] : fields) {
        if (n == name) return v;
    }
    return dflt;
}

std::string JournalEntry::to_string() const
{
    std::ostringstream o;
    o << seq << ' ' << reg << ' ' << VQD_ACCESS_CMD_STR(cmd) << " dev=" << dev << " swid=" << swid
      << " key=" << key << " status=" << status;
    for (const auto &[n, v] : fields) {
        o << ' ' << n << "=0x" << std::hex << v << std::dec;
    }
    return o.str();
}

void reset()
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    close_journal_file(s);
    parse_model(builtin_model_text(kDefaultModel), &s.devices, nullptr);
    s.journal.clear();
    s.faults.clear();
    s.open = true;
}

bool load_model_text(const std::string &text, std::string *ret_why)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    return parse_model(text, &s.devices, ret_why);
}

bool load_model_file(const std::string &path, std::string *ret_why)
{
    std::ifstream f(path);
    if (!f) {
        if (ret_why) *ret_why = "can't read " + path;
        return false;
    }
    std::stringstream ss;
    ss << f.rdbuf();
    return load_model_text(ss.str(), ret_why);
}

bool load_config_file(const std::string &path, std::string *ret_why)
{
    std::ifstream f(path);
    if (!f) {
        if (ret_why) *ret_why = "can't read " + path;
        return false;
    }
    std::stringstream ss;
    ss << f.rdbuf();
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    return apply_config(s, ss.str(), ret_why);
}

void set_config_path(const std::string &path)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.config_path = path;
}

bool is_open()
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    return s.open;
}

std::vector<JournalEntry> journal()
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    return std::vector<JournalEntry>(s.journal.begin(), s.journal.end());
}

std::vector<JournalEntry> journal_of(const std::string &reg)
{
    std::vector<JournalEntry> out;
    std::string r = upper(reg);
    for (auto &e : journal()) {
        if (e.reg == r) out.push_back(e);
    }
    return out;
}

void clear_journal()
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.journal.clear();
}

void inject_fault(const std::string &reg, unsigned dev, int key, unsigned count, vqd_status_t status)
{
    if (count == 0) return;
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.faults.push_back(Fault{upper(reg), dev, key, count, status});
}

void clear_faults()
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.faults.clear();
}

bool set_module_present(unsigned dev, unsigned module, bool present)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    auto dit = s.devices.find(dev);
    if (dit == s.devices.end() || module > 255) return false;
    Module *m = nullptr;
    if (module_of(dit->second, module, &m) != VQD_STATUS_SUCCESS) return false;
    if (m->present != present) {
        m->present = present;
        build_eeprom(*m, dev, module);
        dit->second.pmpc[7 - module / 32] |= 1u << (module % 32);
    }
    return true;
}

bool peek_paos(unsigned dev, unsigned local_port, struct ku_paos_reg *ret_paos)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    auto dit = s.devices.find(dev);
    Port *p = nullptr;
    if (!ret_paos || dit == s.devices.end() || port_of(dit->second, local_port, &p) != VQD_STATUS_SUCCESS) {
        return false;
    }
    *ret_paos = ku_paos_reg{};
    ret_paos->local_port = static_cast<uint8_t>(local_port);
    return do_paos(dit->second, VQD_ACCESS_CMD_GET, vqd_reg_meta_t{}, ret_paos) == VQD_STATUS_SUCCESS;
}

bool peek_ptys(unsigned dev, unsigned local_port, struct ku_ptys_reg *ret_ptys)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    auto dit = s.devices.find(dev);
    Port *p = nullptr;
    if (!ret_ptys || dit == s.devices.end() || port_of(dit->second, local_port, &p) != VQD_STATUS_SUCCESS) {
        return false;
    }
    *ret_ptys = ku_ptys_reg{};
    ret_ptys->local_port = static_cast<uint8_t>(local_port);
    fill_ptys(dit->second, *p, ret_ptys);
    ret_ptys->proto_mask = reg_ptys_proto_mask_ib;
    return true;
}

bool peek_system_m_key(unsigned dev, uint64_t *ret_key)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    auto dit = s.devices.find(dev);
    if (!ret_key || dit == s.devices.end() || !dit->second.m_key_set) return false;
    *ret_key = dit->second.m_key;
    return true;
}

}  // namespace vqdsim

// ---------------------------------------------------------------------------
// The library's entry points.

using namespace vqdsim;

extern "C" vqd_status_t vqd_access_reg_init(uint32_t app_id, vq_log_cb_t log_cb, uint32_t verbosity)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    s.log_cb = log_cb;
    s.verbosity = verbosity;
    if (s.open) {
        return VQD_STATUS_SUCCESS;  // already opened in this process
    }
    std::string text;
    std::ifstream f(s.config_path);
    if (f) {
        std::stringstream ss;
        ss << f.rdbuf();
        text = ss.str();
    }
    std::string why;
    if (!apply_config(s, text, &why)) {
        sim_log(VQ_LOG_SEVERITY_ERROR, "configuration %s: %s", s.config_path.c_str(), why.c_str());
        return VQD_STATUS_ERROR;
    }
    s.open = true;
    // Debug level only: the daemon's log at start-up is kept short.
    sim_log(VQ_LOG_SEVERITY_INFO, "register access opened for client %u: %zu device(s)%s", app_id,
            s.devices.size(), f ? "" : ", built-in model");
    return VQD_STATUS_SUCCESS;
}

extern "C" vqd_status_t vqd_access_reg_deinit(void)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (!s.open) {
        return VQD_STATUS_NOT_INITIALIZED;
    }
    s.open = false;
    close_journal_file(s);
    s.log_cb = nullptr;
    return VQD_STATUS_SUCCESS;
}

#define VQD_ACCESS_REG_DEF(name, record, label)                                                    \
    extern "C" vqd_status_t vqd_access_reg_##name(struct record *reg_data, vqd_reg_meta_t *reg_meta, \
                                                  uint32_t data_num, vqd_completion_handler_t handler, \
                                                  void *handler_context)                          \
    {                                                                                              \
        return access_reg<record>(label, reg_data, reg_meta, data_num, handler, handler_context,   \
                                  do_##name);                                                      \
    }

VQD_ACCESS_REG_DEF(ptys, ku_ptys_reg, "PTYS")
VQD_ACCESS_REG_DEF(pplm, ku_pplm_reg, "PPLM")
VQD_ACCESS_REG_DEF(pmtu, ku_pmtu_reg, "PMTU")
VQD_ACCESS_REG_DEF(pvlc, ku_pvlc_reg, "PVLC")
VQD_ACCESS_REG_DEF(paos, ku_paos_reg, "PAOS")
VQD_ACCESS_REG_DEF(plib, ku_plib_reg, "PLIB")
VQD_ACCESS_REG_DEF(pmlp, ku_pmlp_reg, "PMLP")
VQD_ACCESS_REG_DEF(pmaos, ku_pmaos_reg, "PMAOS")
VQD_ACCESS_REG_DEF(pmpc, ku_pmpc_reg, "PMPC")
VQD_ACCESS_REG_DEF(mcia, ku_mcia_reg, "MCIA")
VQD_ACCESS_REG_DEF(spzr, ku_spzr_reg, "SPZR")
VQD_ACCESS_REG_DEF(pspa, ku_pspa_reg, "PSPA")

#undef VQD_ACCESS_REG_DEF

extern "C" vqd_status_t vqd_access_reg_system_m_key_access(vqd_access_cmd_t access_cmd,
                                                           struct ku_system_m_key *key)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (!s.open) return VQD_STATUS_NOT_INITIALIZED;
    if (!key) return VQD_STATUS_PARAM_ERROR;
    int raw_cmd = 0;
    memcpy(&raw_cmd, &access_cmd, sizeof(raw_cmd));
    return access_one(
        "SYSTEM_M_KEY", raw_cmd, key->dev_id, 0, key,
        [](Device &d, vqd_access_cmd_t cmd, ku_system_m_key &k) {
            if (cmd == VQD_ACCESS_CMD_SET) {
                d.m_key = k.system_m_key;
                d.m_key_set = true;
            } else {
                k.system_m_key = d.m_key;
            }
            return VQD_STATUS_SUCCESS;
        },
        // The driver takes the key by device id whether or not that device answers.
        key->dev_id, true);
}

extern "C" vqd_status_t vqd_access_reg_query_board_info(struct ku_query_board_info *board_info)
{
    State &s = state();
    std::lock_guard<std::recursive_mutex> lock(s.mu);
    if (!s.open) return VQD_STATUS_NOT_INITIALIZED;
    if (!board_info) return VQD_STATUS_PARAM_ERROR;
    return access_one(
        "BOARD_INFO", VQD_ACCESS_CMD_GET, board_info->dev_id, 0, board_info,
        [](Device &d, vqd_access_cmd_t, ku_query_board_info &b) {
            b.vsd_vendor_id = d.vendor_id;
            memset(b.board_id, 0, sizeof(b.board_id));
            memcpy(b.board_id, d.board_id.data(), std::min(d.board_id.size(), sizeof(b.board_id) - 1));
            return VQD_STATUS_SUCCESS;
        },
        -1);
}
