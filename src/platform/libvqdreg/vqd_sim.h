// The simulated switch ASIC behind vqd_access_reg.h, and its controls.
//
// Where the real register library talks to firmware, this one keeps a model of the
// devices in memory: their local ports (1-64 and the virtual range from 65), the modules
// in their cages with the EEPROM pages of the module standards, and the fields of every
// register.  The model comes from a
// plain text file (format below); every access is recorded in a journal, and faults can
// be injected per register, device and key.
//
// The process finds its settings in a platform configuration file, read when the
// library is opened (vqd_access_reg_init):
//
//     # comment
//     model /path/to/file.model        a model file, or "model builtin:<name>"
//     journal /path/to/journal.log     one line per access is appended there
//     control /path/to/control         before each access, the statements found in that
//                                      file change the model behind the client's back,
//                                      and the file is removed: "port DEV FIRST[-LAST]
//                                      attr=value ..." as in the model, on ports that
//                                      exist (write it elsewhere and rename it there);
//                                      "fault" statements as below are taken there too
//     fabric /path/console 1=sw1       the devices are nodes of a simulated fabric, whose
//                                      console is that FIFO: a PAOS write that takes a
//                                      port of device 1 down or up unlinks or relinks
//                                      node "sw1" at the port's InfiniBand number
//     fault PTYS 1 5 2 16              fail the next 2 PTYS accesses of device 1,
//                                      key 5 ("*" for any key) with status 16
//                                      (a status from 1 to 31)
//
// Without the file the built-in standalone model is used and no journal file is kept.
//
// Model file: one statement per line, "#" starts a comment, values with blanks are
// written in double quotes, numbers in decimal or 0x hexadecimal.
//
//     device <id> [board_id=TEXT] [vendor_id=N] [node_guid=N] [system_image_guid=N]
//                 [pplm=yes|no] [ndesc=TEXT]
//     port <dev> <first>[-<last>] [swid=N] [sub_port=N] [ib_port=N|auto]
//                 [module=N|auto|none] [width=N] [speed_cap=N] [width_cap=N]
//                 [speed_admin=N] [width_admin=N] [max_mtu=N] [admin_mtu=N]
//                 [vl_cap=N] [vl_admin=N] [admin=up|down] [fec_auto=N]
//     module <dev> <first>[-<last>] [present=yes|no] [type=qsfp|qsfp28|sfp]
//                 [media=copper|optical] [vendor=TEXT] [part=TEXT] [serial=TEXT]
//                 [rev=TEXT] [oui=N] [length=N] [om1=N] [om2=N] [om3=N] [smf=N]
//                 [speed=N|sdr,ddr,...] [rate=N] [ident=N] [fault=STATUS] [oper=N]
//
// A later line for the same port or module changes only the attributes it names.
// "auto" takes the InfiniBand port from the local port number and the module from the
// local port number minus one; "module=none" is a port without a cage (an internal or
// virtual port), whose link is up whenever it is administratively up.
//
// Modules.  Every cage that a port names has a module record; "present=no" (the
// default) is an empty cage: PMAOS reports it unplugged (oper_status 2) and MCIA answers
// with status 3.  A present module reports oper_status 1 in PMAOS (3 when its admin
// state is disabled, or the value of "oper=", e.g. 3 for a module over the power budget
// or 0 for one still initializing).  Its EEPROM is laid out by its type:
//     qsfp, qsfp28   SFF-8636: identifier 0x0d or 0x11; lower page 00 and upper page 00
//                    at I2C address 0x50, upper pages 01 to 03 selected by page number
//                    (zeros, but for an optical module's thresholds on page 03)
//     sfp            SFF-8472: identifier 0x03; A0h at I2C address 0x50, A2h (the
//                    diagnostics, filled for an optical module) at 0x51
// vendor (16 characters), part (16), serial (16; made up from device and module when
// empty), rev (2 for QSFP, 4 for SFP) and oui (24 bits) go to their fields.  Lengths are
// in metres: "length" is the copper length of a copper cable (media=copper, the
// default) or the OM4 length of an optical module; om1, om2, om3 and smf are the optical
// lengths, each stored in its field's units (QSFP: OM3 and OM4 in 2 m, SMF in km; SFP:
// 10 m for the multimode ones, SMF in km and in 100 m).  "speed" is the InfiniBand speed
// set of a QSFP module (byte 164: sdr 0x01, ddr 0x02, qdr 0x04, fdr 0x08, edr 0x10,
// hdr 0x20; default fdr and below for qsfp, edr and below for qsfp28); "rate" the
// nominal signalling rate in units of 100 MBd.  "ident" replaces the identifier byte
// (for a module of a family nobody knows).  "fault=STATUS" makes every MCIA access of the
// present module answer with that status (1 bad EEPROM, 2 unsupported, 5 inaccessible,
// 9 I2C error, 16 disabled, ...) while PMAOS still reports it plugged.  Vendor names
// and OUIs of the shipped models are made up (OUIs locally administered, 0x02....).
#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "vqd_access_reg.h"

// What the simulated switch reports in oper_status of PAOS and PMAOS.
enum vqd_sim_oper_status {
    VQD_SIM_OPER_UP = 1,
    VQD_SIM_OPER_DOWN = 2,
};

namespace vqdsim {

// Where the library looks for its configuration when it is opened.
inline constexpr const char *kDefaultConfigPath = "/var/opt/vqdreg/vqdreg.conf";

// Names of the built-in models: "standalone36" (the default) and "chassis_small".
inline constexpr const char *kDefaultModel = "standalone36";
const char *builtin_model_text(const std::string &name);  // null when unknown

// One register access as the journal keeps it.  `reg` is the upper-case register
// name ("PTYS", "MCIA", ..., "SYSTEM_M_KEY", "BOARD_INFO"); `key` is the local port,
// module or device the access addressed (-1 when the register has none); `fields` are
// the record's fields as the caller passed them in.
struct JournalEntry {
    uint64_t seq = 0;
    std::string reg;
    int cmd = 0;
    unsigned dev = 0;
    unsigned swid = 0;
    int key = -1;
    int status = 0;
    std::vector<std::pair<std::string, uint64_t>> fields;

    bool has(const std::string &name) const;
    // The field's value, or `dflt` when the record has no such field.
    uint64_t field(const std::string &name, uint64_t dflt = UINT64_MAX) const;
    // "PTYS SET dev=1 swid=0 key=5 status=0 local_port=5 ..." as in the journal file.
    std::string to_string() const;
};

// Drops everything, loads the built-in default model, and leaves the library open
// (as if vqd_access_reg_init had been called) with an empty journal, no faults and no
// journal file.  For unit tests.
void reset();

// Replaces the devices by those of a model text or file.  On failure the previous
// model stays and `ret_why` (if given) tells the line and the reason.
bool load_model_text(const std::string &text, std::string *ret_why = nullptr);
bool load_model_file(const std::string &path, std::string *ret_why = nullptr);

// Reads a configuration file as vqd_access_reg_init would (model, journal, faults).
bool load_config_file(const std::string &path, std::string *ret_why = nullptr);
// The configuration file used by vqd_access_reg_init; tests may point it elsewhere.
void set_config_path(const std::string &path);

bool is_open();

// The journal in memory: the latest 100000 accesses since the last reset or clear.
std::vector<JournalEntry> journal();
// The journal entries of one register, in order.
std::vector<JournalEntry> journal_of(const std::string &reg);
void clear_journal();

// Fails the next `count` accesses of `reg` on device `dev` with `status`; `key` -1
// matches any key.  Faults of the same register and address add up in order.  A
// failed access overwrites the caller's record with 0xa5 bytes, as firmware that gave
// up half-way may leave it: callers must not reuse it unchecked.
void inject_fault(const std::string &reg, unsigned dev, int key, unsigned count,
                  vqd_status_t status);
void clear_faults();

// Scenario helpers: plug or unplug a module (marking it changed in PMPC), and
// read a port's current state without going through the journal.
bool set_module_present(unsigned dev, unsigned module, bool present);
bool peek_paos(unsigned dev, unsigned local_port, struct ku_paos_reg *ret_paos);
bool peek_ptys(unsigned dev, unsigned local_port, struct ku_ptys_reg *ret_ptys);
bool peek_system_m_key(unsigned dev, uint64_t *ret_key);

}  // namespace vqdsim
