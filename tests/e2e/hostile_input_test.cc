// Nothing a peer sends over the session ends the daemon: only losing the session does.
// Each row of the table below is one malformed request, sent the way a peer sends it
// through the stand-in management daemon (an event relayed, a configuration change
// notified, a query or an action forwarded).  After each row the daemon must still be
// running, must answer a query on the same session, and the register journal must show
// no write that the row does not allow.
//
// Every event, action and query a flow adds gets its malformed rows here.
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  hostile-switch\n"
    "/system/chassis/sys_disp_str                string    hostile input rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/69/enable          uint8     1\n"
    "/ib/config/externalports/69/speed           uint8     255\n"
    "/ib/config/externalports/69/mtu             string    -1\n";

// Device 1 of the standalone model; local port 5 of it is ifindex 69.  The stand-in
// forwards the probe to the daemon and answers success only with the daemon's answer
// (a time-out or an absent owner is an error); the devices have no state leaves yet, so
// the answer itself is empty.
const char kProbe[] = "/ib/state/devid";

struct HostileRow {
    const char *what;
    // mgmtctl's arguments.
    std::vector<std::string> ctl;
    // Registers the row may write (everything else it may only read).
    std::vector<std::string> may_write = {};
    // A line of the daemon's log that shows the row reached the code it aims at.
    const char *log = nullptr;
};

std::string dbchange(int n, const std::string &rel, const std::string &typed_value)
{
    return "/mgmtd/notification/dbchange/" + std::to_string(n) + "/" + rel + "=" + typed_value;
}

// A change notification with one group: the group's own node, then `bindings`.
std::vector<std::string> dbchange_event(const std::vector<std::string> &bindings)
{
    std::vector<std::string> args = {"event", "/mgmtd/notify/dbchange",
                                     "/mgmtd/notification/dbchange/1=uint32:1"};
    args.insert(args.end(), bindings.begin(), bindings.end());
    return args;
}

std::vector<std::string> device_add(const std::vector<std::string> &bindings)
{
    std::vector<std::string> args = {"event", "/portd/events/ib-device-add"};
    args.insert(args.end(), bindings.begin(), bindings.end());
    return args;
}

std::vector<std::string> route_update(const std::vector<std::string> &bindings)
{
    std::vector<std::string> args = {"event", "/topod/events/ib-direct-route-update"};
    args.insert(args.end(), bindings.begin(), bindings.end());
    return args;
}

const std::string kLongName = "/ib/state/externalports/" + std::string(9000, '9') + "/speed";

// The device add writes the system key before it checks anything: a key write for the
// device the event names is what that event asks for.
const std::vector<std::string> kKeyOnly = {"SYSTEM_M_KEY"};

std::vector<HostileRow> hostile_rows()
{
    return {
        // The port manager's device announcement.
        {"device add without bindings", device_add({}), {}, "No dev_id binding"},
        {"device add with a text device id", device_add({"dev_id=string:one"})},
        {"device add with a device id beyond the range",
         device_add({"dev_id=uint32:217", "is_master=tbool:false", "subsystem_name=string:x",
                     "port_num=uint32:1", "index_inside_slot=uint32:0"}),
         kKeyOnly,
         "Got device ID 217 which exceeds maximum device ID 216"},
        {"device add with the largest device id",
         device_add({"dev_id=uint32:4294967295", "is_master=tbool:false",
                     "subsystem_name=string:x"}),
         kKeyOnly},
        {"device add with a master flag of the wrong type",
         device_add({"dev_id=uint32:2", "is_master=string:yes"})},
        {"device add with a port count and no ports",
         device_add({"dev_id=uint32:2", "is_master=tbool:false", "port_num=uint32:4000000000",
                     "subsystem_name=string:x", "index_inside_slot=uint32:0"}),
         kKeyOnly},
        {"device add whose ports have the wrong types",
         device_add({"dev_id=uint32:2", "is_master=tbool:false", "port_num=uint32:1",
                     "subsystem_name=string:x", "index_inside_slot=uint32:0",
                     "virtual_1=string:no", "ifindex_1=string:x", "local_1=uint64:99"}),
         kKeyOnly},

        // The port-enable hand-shake.
        {"port enable without bindings", {"event", "/portd/events/port-enable"}},
        {"port enable with a text operation",
         {"event", "/portd/events/port-enable", "operation=string:init", "dev_id=uint32:1"}},
        {"port enable with an operation nobody knows",
         {"event", "/portd/events/port-enable", "operation=uint8:200", "dev_id=uint32:1"}},
        {"port enable with a text device id",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=string:one"}},
        {"port enable of a device beyond the range",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=uint32:4294967295",
          "port_num=uint32:1", "swid_1=uint8:0", "local_1=uint8:1", "ifindex_1=uint32:65"},
         {},
         "got device ID 4294967295 which exceeds maximum device ID 216"},
        {"virtual port enable with a port count and no ports",
         {"event", "/portd/events/port-enable", "operation=uint8:2", "dev_id=uint32:1",
          "port_num=uint32:4000000000"},
         {},
         "No swid_1 binding"},
        {"virtual port enable of a SWID beyond the range",
         {"event", "/portd/events/port-enable", "operation=uint8:2", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:200", "local_1=uint8:65", "ifindex_1=uint32:129"},
         {},
         "Swid [200] exceed is its range [0-7]. Internal error."},
        {"virtual port disable of a device beyond the range",
         {"event", "/portd/events/port-disable", "operation=uint8:2",
          "dev_id=uint32:4294967295", "port_num=uint32:1"},
         {},
         "Got device ID [4294967295] which is not in ovd cache. Enable virtual port flow"},
        {"virtual port disable with ports of the wrong types",
         {"event", "/portd/events/port-disable", "operation=uint8:2", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=string:0", "local_1=uint64:65", "ifindex_1=string:x"}},
        {"port enable with a port count and no ports",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:4000000000"}},
        {"port enable of a local port beyond every table, in no partition",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:255", "local_1=uint8:200", "ifindex_1=uint32:65"},
         {},
         "OVD got local port: [200] for device: [1, "},
        {"port enable of a port nobody announced",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:0", "local_1=uint8:5", "ifindex_1=uint32:4000000000"},
         {},
         "ifindex number 4000000000 isn't exist in ifindexs hash table"},
        {"port enable with ports of the wrong types",
         {"event", "/portd/events/port-enable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=string:0", "local_1=uint64:5", "ifindex_1=string:69"}},
        {"port disable without bindings", {"event", "/portd/events/port-disable"}},
        {"port disable of a SWID beyond the range",
         {"event", "/portd/events/port-disable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:200", "local_1=uint8:5"},
         {},
         "got swid id 200 which exceeds range: (0 - 7)"},
        {"port disable of local port 0",
         {"event", "/portd/events/port-disable", "operation=uint8:0", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:0", "local_1=uint8:0"},
         {},
         "got local port 0 which exceeds range: (1 - 64)"},
        {"port disable of a device never added",
         {"event", "/portd/events/port-disable", "operation=uint8:0", "dev_id=uint32:9",
          "port_num=uint32:1", "swid_1=uint8:0", "local_1=uint8:5"}},
        {"validation without a device", {"event", "/portd/events/device-validate-ib"}},
        {"validation with a text device id",
         {"event", "/portd/events/device-validate-ib", "dev_id=string:1"}},
        {"validation of a device beyond the range",
         {"event", "/portd/events/device-validate-ib", "dev_id=uint32:4294967295"}},
        {"debug mode without bindings", {"event", "/ib/events/ovd-debug-mode"}},
        {"debug mode with a text operation",
         {"event", "/ib/events/ovd-debug-mode", "operation=string:on", "times=string:many"}},

        // The blade controllers' events, on a system that is no blade: refused before
        // anything is read.
        {"a port change without bindings", {"event", "/brelld/events/ekey-port-change"}, {},
         "Wrong Behaviour at OVD. Ekey port change event shouldn't have been sent at "},
        {"a port change with bindings of the wrong types",
         {"event", "/brelld/events/ekey-port-change", "port=string:one", "enable=uint32:7"}, {},
         "Wrong Behaviour at OVD. Ekey port change event shouldn't have been sent at "},
        {"a port change of a label port beyond the panel",
         {"event", "/brelld/events/ekey-port-change", "port=uint8:255", "enable=tbool:true"}, {},
         "Wrong Behaviour at OVD. Ekey port change event shouldn't have been sent at "},
        {"a range without bindings", {"event", "/cme/events/allow_external_ports"}, {},
         "Wrong Behaviour at OVD. CME allow external port event shouldn't have been sent at "},
        {"a range with bindings of the wrong types",
         {"event", "/cme/events/allow_external_ports", "lower_bound=uint32:1",
          "upper_bound=string:9", "enable=string:yes"},
         {},
         "Wrong Behaviour at OVD. CME allow external port event shouldn't have been sent at "},
        {"a range upside down",
         {"event", "/cme/events/allow_external_ports", "lower_bound=uint8:200",
          "upper_bound=uint8:1", "enable=tbool:false"},
         {},
         "Wrong Behaviour at OVD. CME allow external port event shouldn't have been sent at "},
        {"a range over every label port",
         {"event", "/cme/events/allow_external_ports", "lower_bound=uint8:0",
          "upper_bound=uint8:255", "enable=tbool:false"},
         {},
         "Wrong Behaviour at OVD. CME allow external port event shouldn't have been sent at "},
        {"a blade controller's ready event with junk",
         {"event", "/brelld/events/brelld-ready", "x=uint8:1"}, {},
         "Wrong Behaviour at OVD. Brelld ready event shouldn't have been sent at "},
        {"the other blade controller's ready event with junk",
         {"event", "/cme/events/cme-ready", "x=string:"}, {},
         "Wrong Behaviour at OVD. cmed ready event shouldn't have been sent at "},

        // Direct routes.
        {"route update without bindings", route_update({})},
        {"route update with a text SWID", route_update({"swid=string:zero"})},
        {"route update for a SWID beyond the range", route_update({"swid=uint8:200"})},
        {"route update with more targets than the table holds",
         route_update({"swid=uint8:0", "number_of_target_devices=uint32:100000"})},
        {"route update with counts and no paths",
         route_update({"swid=uint8:0", "number_of_target_devices=uint32:2",
                       "target_1_number_of_paths=uint32:4294967295"})},
        {"route update whose hops are missing",
         route_update({"swid=uint8:0", "number_of_target_devices=uint32:1",
                       "target_1_device_id=uint32:3", "target_1_number_of_paths=uint32:1",
                       "target_1_path_1_length=uint32:3"})},

        // Configuration changes as a peer could notify them, one malformed shape a row.
        {"change group without a change type",
         dbchange_event({dbchange(1, "name", "string:/ib/config/externalports/69/speed"),
                         dbchange(1, "new_attribs/value", "uint8:7")})},
        {"change group without a name",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "new_attribs/value", "uint8:7")})},
        {"add without a new value",
         dbchange_event({dbchange(1, "change_type", "string:add"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed")})},
        {"add with a previous value",
         dbchange_event({dbchange(1, "change_type", "string:add"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed"),
                         dbchange(1, "new_attribs/value", "uint8:7"),
                         dbchange(1, "prev_attribs/value", "uint8:255")})},
        {"delete without a previous value",
         dbchange_event({dbchange(1, "change_type", "string:delete"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed")})},
        {"delete with a new value",
         dbchange_event({dbchange(1, "change_type", "string:delete"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed"),
                         dbchange(1, "new_attribs/value", "uint8:7"),
                         dbchange(1, "prev_attribs/value", "uint8:255")})},
        {"unknown change type",
         dbchange_event({dbchange(1, "change_type", "string:rename"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed")}),
         {},
         "Unexpected change type rename"},
        {"change of a speed leaf with a text value",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed"),
                         dbchange(1, "new_attribs/value", "string:fast"),
                         dbchange(1, "prev_attribs/value", "uint8:255")})},
        {"change of a port with a name that is no number",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "name", "string:/ib/config/externalports/abc/speed"),
                         dbchange(1, "new_attribs/value", "uint8:7")})},
        {"change of a port beyond every index",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "name", "string:/ib/config/externalports/99999999999/mtu"),
                         dbchange(1, "new_attribs/value", "string:4096")})},
        {"change of a node deeper than any leaf",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "name", "string:/ib/config/externalports/69/speed/a/b/c"),
                         dbchange(1, "new_attribs/value", "uint8:7")})},
        {"change named by a relative name",
         dbchange_event({dbchange(1, "change_type", "string:modify"),
                         dbchange(1, "name", "string:ib/config/../../etc"),
                         dbchange(1, "new_attribs/value", "uint8:7")})},

        // The same through the configuration, as an operator types it.
        {"a SWID node of a port that is no number",
         {"set", "/portd/config/ifindex/abc/swid", "uint8", "1"}},
        {"a SWID node in text", {"set", "/portd/config/ifindex/65/swid", "string", "one"}},
        {"a SWID node of a port nobody has", {"set", "/portd/config/ifindex/7/swid", "uint8", "3"}},
        {"an MTU that is no number",
         {"set", "/ib/config/externalports/69/mtu", "string", "bogus"}},
        {"an MTU beyond any size",
         {"set", "/ib/config/externalports/69/mtu", "string", "99999999999999999999"}},
        {"a speed leaf of the wrong type",
         {"set", "/ib/config/externalports/69/speed", "string", "fast"}},
        {"an enable leaf of the wrong type",
         {"set", "/ib/config/externalports/69/enable", "uint64", "18446744073709551615"}},
        {"an FEC that is no mode", {"set", "/ib/config/externalports/69/fec", "string", "bogus"}},
        {"a leaf no port has",
         {"set", "/ib/config/externalports/69/colour", "string", "blue", "--create"}},
        {"a port whose name is no number",
         {"set", "/ib/config/externalports/x-1/speed", "uint8", "7", "--create"}},

        // Queries with absurd names.
        {"a very long name", {"get", kLongName}},
        {"a name that climbs", {"get", "/ib/state/devid/../../../etc/passwd"}},
        {"a device id that is no number", {"get", "/ib/state/devid/abc/max-hw-cap-speed"}},
        {"a device id beyond the range", {"get", "/ib/state/devid/4294967297/max-hw-cap-speed"}},
        {"a negative device id", {"get", "/ib/state/devid/-1/max-hw-cap-speed"}},
        {"deep wildcards", {"iterate", "/ib/state/swid/*/nodes/*/*/*/*", "--subtree"}},
        {"the whole tree at once", {"iterate", "/ib/state", "--subtree"}},
        {"a port that doesn't exist", {"get", "/ib/state/externalports/4294967295/speed"}},
        {"a SWID that is no number", {"get", "/ib/state/swid/zero/my_lid"}, {},
         "The swid value at node_name: /ib/state/swid/zero/my_lid must be a number"},
        {"a SWID beyond the range", {"get", "/ib/state/swid/4294967296/nodes/1/guid"}},
        {"a device id the typed parser refuses", {"get", "/ib/state/devid/-7"}},
        {"the subnet manager of SWID 8", {"get", "/ib/state/swid/8/is_sm_in_fabric"}, {},
         "The swid value at node_name: /ib/state/swid/8/is_sm_in_fabric must be between 0 - 7"},
        {"the port GUID of a SWID that is no number", {"get", "/ib/state/swid/x/my_sm_port_guid"},
         {}, "The swid value at node_name: /ib/state/swid/x/my_sm_port_guid must be a number"},
        {"the subnet manager of a SWID not served", {"get", "/ib/state/swid/3/is_sm_in_fabric"},
         {}, "SWID 3 is not a valid InfiniBand SWID"},
        {"a node's GUID in SWID 8", {"get", "/ib/state/swid/8/nodes/1/guid"}, {},
         "The swid value at node_name: /ib/state/swid/8/nodes/1/guid must be between 0 - 7"},
        {"a node's LID in a SWID that is no number", {"get", "/ib/state/swid/-0/nodes/1/lid"}, {},
         "The swid value at node_name: /ib/state/swid/-0/nodes/1/lid must be a number"},
        {"a node whose id is no number", {"get", "/ib/state/swid/0/nodes/0x1/name"}, {},
         "Illegal dev ID: 0x1"},
        {"a node id beyond every table", {"get", "/ib/state/swid/0/nodes/4294967295/guid"}, {},
         "Get GUID/LID: No IB port found at device:[-1]"},
        {"a node leaf nobody has", {"get", "/ib/state/swid/0/nodes/1/colour"}, {},
         "ovd_mon_handle_get: Unknown node '/ib/state/swid/0/nodes/1/colour'"},
        {"a settled status one level too deep", {"get", "/ib/state/locallinks/x/y"}},
        {"a limit of a port nobody announced",
         {"get", "/ib/state/internal-leaf-ports/99999/port_vl_limit"}},

        // Actions, with bindings they don't take.
        {"an action with bindings of the wrong types",
         {"action", "/ib/actions/reset-port-counters", "ifindex=string:all",
          "swid=uint64:18446744073709551615"},
         {},
         "Invalid port "},
        {"a counter reset without a port", {"action", "/ib/actions/reset-port-counters"}, {},
         "Invalid port "},
        {"a counter reset of the largest ifindex",
         {"action", "/ib/actions/reset-port-counters", "ifindex=uint32:4294967295"}, {},
         "Invalid port 4294967295"},
        {"a counter reset with the port twice",
         {"action", "/ib/actions/reset-port-counters", "ifindex=uint32:4000",
          "ifindex=uint32:65"}},
        {"a print action with junk", {"action", "/ib/actions/print-dev",
                                      "x=string:" + std::string(4000, 'x')}},
        {"every print action with junk", {"action", "/ib/actions/print-if", "ifindex=uint32:65"}},
        {"the configuration print with junk", {"action", "/ib/actions/print-config", "x=bool:true"}},
        {"the speed table print with junk", {"action", "/ib/actions/print-file", "x=uint8:1"}},
        {"the route print with junk", {"action", "/ib/actions/print-dr", "x=uint8:1"}},
        {"the e-key print with junk", {"action", "/ib/actions/print-ekey", "x=string:"}},
        {"the virtual port print with junk", {"action", "/ib/actions/print-virtual-if", "x=uint64:0"}},
        {"the LED test without a panel map", {"action", "/ib/actions/led-test-port"}, {},
         "ovd_all_port_leds: No external ports found!"},
        {"the LED test with junk", {"action", "/ib/actions/led-test-port", "state=uint8:200"}},
        {"an action one level too deep", {"action", "/ib/actions/print-dev/x"}, {},
         "Got unexpected action /ib/actions/print-dev/x"},
        {"an action that is only the prefix", {"action", "/ib/actions/"}},

        // Live attributes of ports, asked oddly.
        {"a live attribute nobody has", {"get", "/ib/state/externalports/65/no_such_attribute"}},
        {"a live attribute of a port with an empty name", {"get", "/ib/state/externalports//state"}},
        {"a live attribute nobody has, asked as an internal port",
         {"get", "/ib/state/internal-leaf-ports/65/no_such_attribute"}, {},
         "Invalid port attribute no_such_attribute"},
        {"an internal port's state under a mangled number",
         {"get", "/ib/state/internal-spine-ports/65abc/physical_state"}},
        {"a live attribute one level too deep", {"get", "/ib/state/externalports/65/state/x"}, {},
         "The swid value at node_name: /ib/state/externalports/65/state/x must be between 0 - 7"},
        {"a live attribute of a port that is no number",
         {"get", "/ib/state/externalports-counters/0x41/xmit_pkts"}},
        {"the counters of every port at once",
         {"iterate", "/ib/state/externalports-counters", "--subtree"}},

        {"configuration done with junk",
         {"event", "/system/chassis/events/system-configure-done", "x=uint8:1", "y=string:"},
         {},
         "Received system configured done event"},

        // Events whose flows the daemon doesn't run, or that it never asked for: logged
        // and left.
        {"an event nobody declared", {"event", "/ib/events/no-such-event", "x=uint8:1"}, {},
         "Received unexpected event /ib/events/no-such-event"},
        {"an event with an empty name", {"event", ""}},
        {"an event with a very long name", {"event", "/portd/events/" + std::string(9000, 'e')}},
        {"an event named like a known one, climbing",
         {"event", "/portd/events/../events/ib-device-add", "dev_id=uint32:1"}},
        {"a device removal with junk",
         {"event", "/portd/events/device-remove", "dev_id=uint32:4294967295"}, {},
         "Got device ID 4294967295 which exceeds maximum device ID 216"},
        {"a device removal without a device", {"event", "/portd/events/device-remove"}, {},
         "Send remove device 0 done event to portd"},
        {"a SWID hand-shake disable with junk",
         {"event", "/portd/events/port-disable", "operation=uint8:1", "dev_id=uint32:1",
          "port_num=uint32:3", "swid_1=uint8:9", "local_1=uint8:0"},
         {},
         "Got swid id 9 which exceeds range: (0 - 7). Assign port to swid flow: [1]"},
        {"a SWID hand-shake disable of an unknown device",
         {"event", "/portd/events/port-disable", "operation=uint8:1", "dev_id=uint32:99",
          "port_num=uint32:1"},
         {},
         "Got device ID 99 which is not in ovd cache.Assign port to swid flow: [1]"},
        {"a SWID hand-shake enable of a port nobody has",
         {"event", "/portd/events/port-enable", "operation=uint8:1", "dev_id=uint32:1",
          "port_num=uint32:1", "swid_1=uint8:0", "local_1=uint8:1", "ifindex_1=uint32:7"},
         {},
         "ifindex number 7 doesn't exist in ifindexs hash table. Assign port to swid flow: [1]"},
        {"a SWID hand-shake enable with a huge count",
         {"event", "/portd/events/port-enable", "operation=uint8:1", "dev_id=uint32:1",
          "port_num=uint32:4294967295"}},
        {"a burn device without a device", {"event", "/portd/events/add-burn-device"}, {},
         "OVD sends add burn device: [0, ] done event to portd with: [Failure] status"},
        {"a burn device beyond the range",
         {"event", "/portd/events/add-burn-device", "dev_id=uint32:217", "subsystem_name=string:x"},
         {},
         "Got device ID 217 which exceeds maximum device ID 216"},
        {"a burn port with nothing but the device",
         {"event", "/portd/events/enable-burn-port", "dev_id=uint32:1"}, {},
         "The burn event carries no lcl_port"},
        {"a burn port in no SWID",
         {"event", "/portd/events/enable-burn-port", "dev_id=uint32:1", "lcl_port=uint8:200",
          "ib_port=uint8:0", "swid=uint8:255", "ifindex=uint32:4294967295",
          "ifindex_neighbor=uint32:4294967295"}},
        {"a burn port with numbers as text",
         {"event", "/portd/events/enable-burn-port", "dev_id=string:one", "lcl_port=string:x"}},
        {"a device removal naming the device in text",
         {"event", "/portd/events/device-remove", "dev_id=string:1"}},
        {"a device removal of a device never added",
         {"event", "/portd/events/device-remove", "dev_id=uint32:9"}, {},
         "Try to remove device ID 9 which wasn't added before to OVD"},
    };
}

class HostileInput : public ovd_test::DaemonRigTest {
protected:
    void SetUp() override
    {
        ovd_test::DaemonRigTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        ASSERT_NO_FATAL_FAILURE(rig_->start(kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"),
                                            "builtin:standalone36", 2,
                                            {"--relay-all-events"}));
        const ovd_test::CtlResult add = rig_->portd({"add-devices", "1"});
        ASSERT_EQ(0, add.code) << add.err;
    }

    // The daemon is alive and answers a query on its session.
    void expect_answering(const std::string &after)
    {
        ASSERT_TRUE(rig_->daemon().running()) << "the daemon ended after: " << after;
        const ovd_test::CtlResult r = rig_->lite().ctl({"iterate", kProbe});
        ASSERT_EQ(0, r.code) << "after: " << after << "\n" << r.err;
    }

};

TEST_F(HostileInput, NothingAPeerSendsEndsTheDaemon)
{
    expect_answering("the start");
    for (const HostileRow &row : hostile_rows()) {
        SCOPED_TRACE(row.what);
        const size_t before = rig_->journal().size();
        receiver_->clear();
        // The answer is the stand-in's or the daemon's; either way it must come.
        const ovd_test::CtlResult r = rig_->lite().ctl(row.ctl);
        EXPECT_GE(r.code, 0) << "mgmtctl did not end";
        ASSERT_NO_FATAL_FAILURE(expect_answering(row.what));
        if (row.log != nullptr) {
            EXPECT_TRUE(receiver_->wait_for(row.log, 5s)) << "the row missed its mark:\n"
                                                          << ::testing::PrintToString(receiver_->lines());
        }
        for (const ovd_test::RegisterAccess &a : rig_->journal(before)) {
            if (a.cmd == "GET") {
                continue;
            }
            EXPECT_NE(std::find(row.may_write.begin(), row.may_write.end(), a.reg),
                      row.may_write.end())
                << "unasked write: " << a.reg << " " << a.cmd;
        }
    }
    // The session the rows went over is the one it started with.
    EXPECT_LT(receiver_->find("Lost connection to mgmtd"), 0);
    EXPECT_EQ(1u, rig_->lite().log_lines("client 'IB Daemon' connected").size())
        << rig_->lite().log();
}

}  // namespace
