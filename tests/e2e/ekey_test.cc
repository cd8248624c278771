// E-key blades end to end: a switch blade whose chassis controller allows its external
// ports.  The controller's E-keys are nodes of mgmtd-lite's tree, its events are sent
// through mgmtctl, the port manager's through portd-lite and mgmtctl; the register journal
// tells which PAOS writes the real daemon made, and the log which way it went.
//
// Both kinds of blade run the same cases: the brelld kind (system type 24, subsystem type
// 38) reports single ports, the cme kind (system type 18, subsystem type 33) ranges.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <sstream>
#include <thread>

#include "chassis_helper.h"
#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

struct BladeKind {
    const char *name;
    uint32_t system_type;
    uint32_t subsystem_type;
    const char *model;         // in the register models' folder
    uint32_t ports;            // local port N is label port N and ifindex 64 + N
    const char *ekey_root;     // the controller's tree of E-keys
    const char *ready_event;
    const char *ready_log;     // what the daemon says when the ready event comes
};

void PrintTo(const BladeKind &kind, std::ostream *out)
{
    *out << kind.name << " blade, system type " << kind.system_type;
}

const BladeKind kSingle = {"single", 24, 38, "blade_ekey_single.model", 8,
                           "/brelld/state/ekey/\\/VQ/", "/brelld/events/brelld-ready",
                           "[ovd.NOTICE]: OVD handling brelld ready event"};
const BladeKind kRange = {"range", 18, 33, "blade_ekey_range.model", 10,
                          "/cme/state/ekey/\\/VQ/", "/cme/events/cme-ready",
                          "[ovd.NOTICE]: OVD handling cmed ready event"};

// Label port 2 is configured down by its user; label port 3 is configured up but its
// E-key holds it down; the last port is left out of the enable event, so that the ready
// event finds it without any configuration.  Every other port has an E-key that allows it
// and no configuration.
std::string blade_config(const BladeKind &kind)
{
    std::ostringstream out;
    out << "/system/hostname                            hostname  blade-switch\n"
        << "/system/chassis/sys_disp_str                string    blade rig\n"
        << "/system/chassis/ha/state/system_type_mirror uint32    " << kind.system_type << "\n"
        << "/system/chassis/config/profile              uint8     0\n"
        << "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
        << "/ib/config/externalports/66/enable          uint8     0\n"
        << "/ib/config/externalports/67/enable          uint8     1\n";
    for (uint32_t label = 1; label <= kind.ports; ++label) {
        out << kind.ekey_root << label << "/enable tbool " << (label == 3 ? "false" : "true")
            << "\n";
    }
    return out.str();
}

// The enable event's arguments for local ports [first, last] of device 1 in SWID 0.
std::vector<std::string> enable_args(uint32_t first, uint32_t last)
{
    std::vector<std::string> args = {"event", "/portd/events/port-enable", "dev_id=uint32:1",
                                     "port_num=uint32:" + std::to_string(last - first + 1),
                                     "operation=uint8:0"};
    uint32_t i = 1;
    for (uint32_t local = first; local <= last; ++local, ++i) {
        const std::string n = std::to_string(i);
        args.push_back("swid_" + n + "=uint8:0");
        args.push_back("local_" + n + "=uint8:" + std::to_string(local));
        args.push_back("ifindex_" + n + "=uint32:" + std::to_string(64 + local));
    }
    return args;
}

// The "NAME TYPE VALUE" rows of an answer that mgmtctl printed, as "TYPE:VALUE" by name.
std::map<std::string, std::string> answer_fields(const std::string &out)
{
    std::map<std::string, std::string> fields;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string name, type, value;
        if (words >> name >> type >> value) {
            fields[name] = type + ":" + value;
        }
    }
    return fields;
}

// The PAOS writes among register accesses: admin status (1 up, 2 down) by local port, the
// last one standing.
std::map<unsigned long long, unsigned long long>
paos_writes(const std::vector<ovd_test::RegisterAccess> &acc)
{
    std::map<unsigned long long, unsigned long long> writes;
    for (const ovd_test::RegisterAccess &a : acc) {
        if (a.reg == "PAOS" && a.cmd == "SET") {
            writes[a.num("local_port")] = a.num("admin_status");
        }
    }
    return writes;
}

constexpr unsigned long long kUp = 1;
constexpr unsigned long long kDown = 2;

class EkeyBlade : public ovd_test::DaemonRigTest,
                  public ::testing::WithParamInterface<BladeKind> {
protected:
    const BladeKind &kind() const { return GetParam(); }
    std::string model() const { return ovd_test::register_models_dir() + "/" + kind().model; }

    void start(uint32_t subsystem_type = 0)
    {
        std::string why;
        ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        ASSERT_NO_FATAL_FAILURE(rig_->start(blade_config(kind()),
                                            ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"),
                                            model()));
        const ovd_test::CtlResult add =
            rig_->portd({"--model", model(), "--system-type", std::to_string(kind().system_type),
                         "--subsystem-type",
                         std::to_string(subsystem_type != 0 ? subsystem_type
                                                            : kind().subsystem_type),
                         "add-devices", "1"});
        ASSERT_EQ(0, add.code) << add.out << add.err;
    }

    void send(const std::vector<std::string> &args)
    {
        const ovd_test::CtlResult r = rig_->lite().ctl(args);
        ASSERT_EQ(0, r.code) << r.out << r.err;
    }

    void send_ready() { ASSERT_NO_FATAL_FAILURE(send({"event", kind().ready_event})); }

    // The controller's news of one label port's E-key: a single port or a range of one.
    void send_ekey(uint32_t label, bool enable)
    {
        const std::string value = enable ? "tbool:true" : "tbool:false";
        const std::string node = kind().ekey_root + std::to_string(label) + "/enable";
        ASSERT_EQ(0, rig_->lite().ctl({"set", node, "tbool", enable ? "true" : "false"}).code);
        if (kind().system_type == kSingle.system_type) {
            ASSERT_NO_FATAL_FAILURE(send({"event", "/brelld/events/ekey-port-change",
                                          "port=uint8:" + std::to_string(label),
                                          "enable=" + value}));
        } else {
            ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/allow_external_ports",
                                          "lower_bound=uint8:" + std::to_string(label),
                                          "upper_bound=uint8:" + std::to_string(label),
                                          "enable=" + value}));
        }
    }

    std::string change_line(uint32_t label, bool enable)
    {
        return "[ovd.NOTICE]: OVD handles ekey port change status event for label port " +
               std::to_string(label) + ". New ekey status: " + (enable ? "enable" : "disable");
    }

    // An event through the whole path as a marker: once its line is in, everything sent
    // before it has been handled.  The lines so far are dropped.
    void settle()
    {
        ASSERT_NO_FATAL_FAILURE(send({"event", "/system/chassis/events/system-configure-done"}));
        ASSERT_TRUE(receiver_->wait_for("Received system configured done event"));
        receiver_->clear();
    }

    std::string physical_state(uint32_t label)
    {
        const std::string typed =
            node("/ib/state/externalports/" + std::to_string(64 + label) + "/physical_state");
        return typed.empty() ? "" : typed.substr(typed.find(' ') + 1);
    }

    size_t done_events() const
    {
        return rig_->lite().log_lines("event /portd/events/port-enable-done from").size();
    }

    // What every port of the blade must read after the first pass: down where the user or
    // the E-key says so, up elsewhere.
    void expect_first_pass(const std::map<unsigned long long, unsigned long long> &writes)
    {
        ASSERT_EQ(kind().ports, writes.size()) << ovd_test::read_file(rig_->journal_path());
        for (uint32_t local = 1; local <= kind().ports; ++local) {
            EXPECT_EQ(local == 2 || local == 3 ? kDown : kUp, writes.at(local))
                << "local port " << local;
        }
    }
};

// The port manager asks first: attributes are written, PAOS is not, and the answer waits
// for the controller; its ready event writes PAOS for every port and sends the answer.
TEST_P(EkeyBlade, EnableBeforeReadyHoldsTheAnswerUntilTheControllerIsReady)
{
    ASSERT_NO_FATAL_FAILURE(start());
    const size_t before = rig_->journal().size();
    const std::string waiter = rig_->lite().start_waiter(
        {"wait-event", "/portd/events/port-enable-done", "--timeout", "20"});
    ASSERT_NO_FATAL_FAILURE(send(enable_args(1, kind().ports - 1)));
    ASSERT_NO_FATAL_FAILURE(settle());

    std::vector<ovd_test::RegisterAccess> acc = rig_->journal(before);
    EXPECT_FALSE(acc.empty());
    EXPECT_TRUE(paos_writes(acc).empty()) << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(0u, done_events()) << rig_->lite().log();

    const size_t at_ready = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ready());
    const ovd_test::CtlResult done = rig_->lite().finish_waiter(waiter);
    ASSERT_EQ(0, done.code) << done.err << complaints();
    std::map<std::string, std::string> f = answer_fields(done.out);
    EXPECT_EQ("uint32:0", f["status"]) << done.out;
    EXPECT_EQ("uint32:1", f["dev_id"]) << done.out;
    EXPECT_EQ("uint8:0", f["operation"]) << done.out;
    // Every port of the blade, the one the port manager didn't name included.
    EXPECT_EQ("uint32:" + std::to_string(kind().ports), f["port_num"]) << done.out;
    EXPECT_TRUE(receiver_->wait_for(kind().ready_log));

    expect_first_pass(paos_writes(rig_->journal(at_ready)));
    // The port without a configuration came up all the same.
    EXPECT_TRUE(receiver_->wait_for(
        "[ovd.WARNING]: set_ekey_blade_paos_to_ports: ifindex: [" +
        std::to_string(64 + kind().ports) + "] supposed to be in configuration DB"));
    EXPECT_EQ(1u, done_events()) << rig_->lite().log();

    // The chassis manager holds label port 3 down; the others read the hardware's state.
    EXPECT_EQ("Disabled By Chassis Manager", physical_state(3)) << complaints();
    EXPECT_NE("Disabled By Chassis Manager", physical_state(1));
    EXPECT_NE("", physical_state(1)) << complaints();
    EXPECT_NE("Disabled By Chassis Manager", physical_state(2));
}

// The controller is ready first: the ready event only notes it, and the enable writes
// PAOS by the E-keys and answers at once.
TEST_P(EkeyBlade, ReadyBeforeEnableAnswersTheEnableAtOnce)
{
    ASSERT_NO_FATAL_FAILURE(start());
    size_t before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ASSERT_TRUE(receiver_->wait_for(kind().ready_log));
    // A change before the enable is noted and dropped.
    ASSERT_NO_FATAL_FAILURE(send_ekey(4, false));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: ovd_handle_ekey_port_change: Received ekey "
                                    "change request before receiving port enable event"));
    ASSERT_NO_FATAL_FAILURE(send_ekey(4, true));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_TRUE(rig_->journal(before).empty()) << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(0u, done_events());

    before = rig_->journal().size();
    const ovd_test::CtlResult done =
        ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ(0, done.code) << done.err << complaints();
    std::map<std::string, std::string> f = answer_fields(done.out);
    EXPECT_EQ("uint32:0", f["status"]) << done.out;
    EXPECT_EQ("uint32:" + std::to_string(kind().ports), f["port_num"]) << done.out;
    expect_first_pass(paos_writes(rig_->journal(before)));
    EXPECT_EQ(1u, done_events()) << rig_->lite().log();
    EXPECT_EQ("Disabled By Chassis Manager", physical_state(3)) << complaints();
}

// After both events each E-key change takes its port down or up, as far as its user
// allows; the user's enable follows the E-key too.
TEST_P(EkeyBlade, EkeyChangesAndUserEnablesMoveOnlyWhatBothAllow)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    ASSERT_NO_FATAL_FAILURE(settle());

    // Label port 3 is allowed now: up.  Label port 5 is taken away: down.
    size_t before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ekey(3, true));
    ASSERT_NO_FATAL_FAILURE(send_ekey(5, false));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{3, kUp}, {5, kDown}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_NE("Disabled By Chassis Manager", physical_state(3));
    EXPECT_EQ("Disabled By Chassis Manager", physical_state(5)) << complaints();

    // The same news again changes nothing; label port 2, down by its user, stays down when
    // its E-key goes and comes back.
    receiver_->clear();
    before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ekey(5, false));
    ASSERT_NO_FATAL_FAILURE(send_ekey(2, false));
    ASSERT_NO_FATAL_FAILURE(send_ekey(2, true));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_TRUE(paos_writes(rig_->journal(before)).empty())
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_NE("Disabled By Chassis Manager", physical_state(2));

    // The user's enable of label port 2 brings it up now; an enable of label port 5, held
    // by its E-key, is only recorded, and comes into force with the E-key.
    before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/66/enable", "uint8", "1"}).code);
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/69/enable", "uint8", "1",
                                   "--create"}).code);
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{2, kUp}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());
    before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ekey(5, true));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{5, kUp}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());

    // The user's disable takes a port down whatever its E-key.
    before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"set", "/ib/config/externalports/67/enable", "uint8", "0"}).code);
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{3, kDown}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());

    // Label ports outside the panel, or without an E-key: refused, nothing written.
    receiver_->clear();
    before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ekey(65, false));
    EXPECT_TRUE(receiver_->wait_for("Label ID 65 exceeds range (1 - 64)."));
    ASSERT_NO_FATAL_FAILURE(send_ekey(kind().ports + 1, false));
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour. Ekey value for label port " +
                                    std::to_string(kind().ports + 1) +
                                    " should have existed in OVD cache"));
    EXPECT_TRUE(rig_->journal(before).empty()) << ovd_test::read_file(rig_->journal_path());
}

// A deleted configuration puts the port back to its defaults; whether it comes up again
// is the E-key's to say.
TEST_P(EkeyBlade, DeletedConfigurationFollowsTheEkey)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    ASSERT_NO_FATAL_FAILURE(settle());

    // Label port 3: its E-key holds it down; the deletion takes it down around the
    // defaults' write and leaves it there.
    size_t before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"delete", "/ib/config/externalports/67/enable"}).code);
    ASSERT_NO_FATAL_FAILURE(settle());
    std::map<unsigned long long, unsigned long long> writes = paos_writes(rig_->journal(before));
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{3, kDown}}), writes)
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ("Disabled By Chassis Manager", physical_state(3)) << complaints();

    // Label port 2: down by its user, its E-key allows it: up after the deletion.
    before = rig_->journal().size();
    ASSERT_EQ(0, rig_->lite().ctl({"delete", "/ib/config/externalports/66/enable"}).code);
    ASSERT_NO_FATAL_FAILURE(settle());
    writes = paos_writes(rig_->journal(before));
    ASSERT_EQ(1u, writes.count(2)) << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(kUp, writes[2]);
    EXPECT_NE("Disabled By Chassis Manager", physical_state(2));
}

// The other kind's events are refused with their line, and change nothing.
TEST_P(EkeyBlade, EventsOfTheOtherKindAreRefused)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    ASSERT_NO_FATAL_FAILURE(settle());

    const std::string at = std::string(system_type2str(static_cast<int>(kind().system_type))) +
                           ", " + std::to_string(kind().system_type) + " system type";
    const size_t before = rig_->journal().size();
    if (kind().system_type == kSingle.system_type) {
        ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/cme-ready"}));
        EXPECT_TRUE(receiver_->wait_for(
            "[ovd.ERR]: Wrong Behaviour at OVD. cmed ready event shouldn't have been sent at " +
            at));
        ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/allow_external_ports",
                                      "lower_bound=uint8:1", "upper_bound=uint8:8",
                                      "enable=tbool:false"}));
        EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour at OVD. CME allow external "
                                        "port event shouldn't have been sent at " +
                                        at));
    } else {
        ASSERT_NO_FATAL_FAILURE(send({"event", "/brelld/events/brelld-ready"}));
        EXPECT_TRUE(receiver_->wait_for(
            "[ovd.ERR]: Wrong Behaviour at OVD. Brelld ready event shouldn't have been sent at " +
            at));
        ASSERT_NO_FATAL_FAILURE(send({"event", "/brelld/events/ekey-port-change",
                                      "port=uint8:1", "enable=tbool:false"}));
        EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour at OVD. Ekey port change "
                                        "event shouldn't have been sent at " +
                                        at));
    }
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_TRUE(paos_writes(rig_->journal(before)).empty())
        << ovd_test::read_file(rig_->journal_path());
    EXPECT_EQ(1u, done_events()) << rig_->lite().log();
}

// Malformed news from the blade's own controller: each is refused where it is read, the
// daemon goes on, and no port moves.
TEST_P(EkeyBlade, MalformedChangesAreRefusedAndMoveNothing)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    ASSERT_NO_FATAL_FAILURE(settle());

    const bool single = kind().system_type == kSingle.system_type;
    const std::string event =
        single ? "/brelld/events/ekey-port-change" : "/cme/events/allow_external_ports";
    // Rows of bindings and a line of the log that both must be on.
    struct Row {
        std::vector<std::string> bindings;
        std::string where;
        std::string what;
    };
    const std::vector<Row> rows =
        single ? std::vector<Row>{
                     {{}, "ovd_ekey_event_uint8(), ovd_ekey:", "Unexpected NULL"},
                     {{"port=uint8:4"}, "ovd_ekey_event_tbool(), ovd_ekey:", "Unexpected NULL"},
                     {{"port=string:4", "enable=tbool:false"}, "ovd_ekey_event_uint8(), ovd_ekey:",
                      "Error code"},
                     {{"port=uint8:4", "enable=uint32:0"}, "ovd_ekey_event_tbool(), ovd_ekey:",
                      "Error code"},
                     {{"port=uint8:0", "enable=tbool:false"}, "ovd_ekey:",
                      "Label ID 0 exceeds range (1 - 64)."},
                     {{"port=uint8:255", "enable=tbool:false"}, "ovd_ekey:",
                      "Label ID 255 exceeds range (1 - 64)."},
                 }
               : std::vector<Row>{
                     {{}, "ovd_ekey_event_uint8(), ovd_ekey:", "Unexpected NULL"},
                     {{"lower_bound=uint8:4"}, "ovd_ekey_event_uint8(), ovd_ekey:",
                      "Unexpected NULL"},
                     {{"lower_bound=uint8:4", "upper_bound=uint8:4"},
                      "ovd_ekey_event_tbool(), ovd_ekey:", "Unexpected NULL"},
                     {{"lower_bound=uint32:4", "upper_bound=uint8:4", "enable=tbool:false"},
                      "ovd_ekey_event_uint8(), ovd_ekey:", "Error code"},
                     {{"lower_bound=uint8:0", "upper_bound=uint8:4", "enable=tbool:false"},
                      "ovd_ekey:", "Label ID 0 exceeds range (1 - 64)."},
                     {{"lower_bound=uint8:9", "upper_bound=uint8:3", "enable=tbool:false"},
                      "[ovd.ERR]:",
                      "ovd_handle_allow_external_ports_event: Received upper_bound 3 and "
                      "lower_bound 9!"},
                 };
    const size_t before = rig_->journal().size();
    for (const Row &row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.bindings));
        std::vector<std::string> args = {"event", event};
        args.insert(args.end(), row.bindings.begin(), row.bindings.end());
        ASSERT_NO_FATAL_FAILURE(send(args));
        ASSERT_TRUE(receiver_->wait_for(row.what));
        bool both = false;
        for (const std::string &line : receiver_->lines()) {
            both = both || (line.find(row.where) != std::string::npos &&
                            line.find(row.what) != std::string::npos);
        }
        EXPECT_TRUE(both) << ::testing::PrintToString(receiver_->lines());
        ASSERT_NO_FATAL_FAILURE(settle());
        ASSERT_TRUE(rig_->daemon().running());
    }
    EXPECT_TRUE(paos_writes(rig_->journal(before)).empty())
        << ovd_test::read_file(rig_->journal_path());
}

// A device of another subsystem type on a blade system: its ports get PAOS by their
// E-keys all the same, but no E-key is recorded for them, so that a later change of one
// is refused.
TEST_P(EkeyBlade, DeviceOfAnotherSubsystemTypeKeepsNoEkeys)
{
    ASSERT_NO_FATAL_FAILURE(start(1));
    ASSERT_NO_FATAL_FAILURE(send_ready());
    const size_t before = rig_->journal().size();
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    expect_first_pass(paos_writes(rig_->journal(before)));
    ASSERT_NO_FATAL_FAILURE(settle());

    const size_t after = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send_ekey(4, false));
    EXPECT_TRUE(receiver_->wait_for(
        "[ovd.ERR]: Wrong Behaviour. Ekey value for label port 4 should have existed in OVD "
        "cache"));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_TRUE(paos_writes(rig_->journal(after)).empty())
        << ovd_test::read_file(rig_->journal_path());
}

INSTANTIATE_TEST_SUITE_P(Blades, EkeyBlade, ::testing::Values(kSingle, kRange),
                         [](const ::testing::TestParamInfo<BladeKind> &info) {
                             return std::string(info.param.name);
                         });

// Ranges from the cme kind's controller: both bounds included, a range of one port, and a
// range the wrong way round, which is logged and changes nothing.
class EkeyRange : public EkeyBlade {};

TEST_P(EkeyRange, RangesChangeEveryPortBetweenTheirBounds)
{
    ASSERT_NO_FATAL_FAILURE(start());
    ASSERT_NO_FATAL_FAILURE(send_ready());
    ovd_test::CtlResult done = ask(enable_args(1, kind().ports), "/portd/events/port-enable-done");
    ASSERT_EQ("uint32:0", answer_fields(done.out)["status"]) << done.out << complaints();
    ASSERT_NO_FATAL_FAILURE(settle());

    size_t before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/allow_external_ports",
                                  "lower_bound=uint8:4", "upper_bound=uint8:7",
                                  "enable=tbool:false"}));
    EXPECT_TRUE(receiver_->wait_for("[ovd.NOTICE]: Received allow external ports event"));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{
                  {4, kDown}, {5, kDown}, {6, kDown}, {7, kDown}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());

    // Upper bound below the lower one: logged, nothing else.
    before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/allow_external_ports",
                                  "lower_bound=uint8:7", "upper_bound=uint8:4",
                                  "enable=tbool:true"}));
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: ovd_handle_allow_external_ports_event: Received "
                                    "upper_bound 4 and lower_bound 7!"));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_TRUE(rig_->journal(before).empty()) << ovd_test::read_file(rig_->journal_path());

    // A range that runs past the blade stops at the first port without an E-key, after the
    // ones before it changed.
    before = rig_->journal().size();
    ASSERT_NO_FATAL_FAILURE(send({"event", "/cme/events/allow_external_ports",
                                  "lower_bound=uint8:7", "upper_bound=uint8:200",
                                  "enable=tbool:true"}));
    EXPECT_TRUE(receiver_->wait_for("[ovd.ERR]: Wrong Behaviour. Ekey value for label port " +
                                    std::to_string(kind().ports + 1) +
                                    " should have existed in OVD cache"));
    ASSERT_NO_FATAL_FAILURE(settle());
    EXPECT_EQ((std::map<unsigned long long, unsigned long long>{{7, kUp}}),
              paos_writes(rig_->journal(before)))
        << ovd_test::read_file(rig_->journal_path());
}

INSTANTIATE_TEST_SUITE_P(Blades, EkeyRange, ::testing::Values(kRange),
                         [](const ::testing::TestParamInfo<BladeKind> &info) {
                             return std::string(info.param.name);
                         });

}  // namespace
