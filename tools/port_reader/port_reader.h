// Reading the switch's external ports as an operator's tool sees them: through the
// management daemon's /ib/state tree, one compound query per port.  Shared by the port
// table (ovd-ports) and the metrics exporter (ovd-exporter).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "common.h"
#include "mdc_main.h"

namespace port_reader {

// What one port answered.  `answered` is false when the daemon said nothing about the port
// (not enabled, not served here): such a port has no values, which is not the same as
// zeros.
struct pr_port {
    std::string ifindex;
    bool answered = false;
    // "all_data"'s fields (if_name, state, physical_state, width, rate, mtu, the counters,
    // ...), the separately asked "speed", "operational_vl" and "fec", and "swid" where the
    // port manager's configuration names the port's SWID.
    std::map<std::string, std::string> fields;

    const std::string &field(const std::string &name) const;
    // A counter's value; 0 when absent.
    unsigned long long counter(const std::string &name) const;
};

// Whether the management daemon's socket takes a connection now: the session layer itself
// would keep retrying, where a tool wants to say at once that nobody is there.
bool pr_mgmtd_reachable();

// The ifindexes of the external ports, in number order.  *ret_code is the answer's code.
int pr_list_ports(md_client_context *mcc, std::vector<std::string> *ret_ifindexes,
                  uint32 *ret_code);

// One port, by one query of five nodes.
int pr_read_port(md_client_context *mcc, const std::string &ifindex, pr_port *ret_port,
                 uint32 *ret_code);

// "k:v;k:v" into fields (later keys win).
void pr_parse_all_data(const std::string &text, std::map<std::string, std::string> *fields);

// The rate text ("40.0 Gbps") in bits per second; 0 when it doesn't parse.
double pr_rate_bps(const std::string &rate);

// Numeric codes of the state texts, as the PortInfo encodes them: state 1 Down,
// 2 Initialize, 3 Armed, 4 Active; physical state 1 Sleep, 2 Polling, 3 Disabled,
// 4 PortConfigurationTraining, 5 LinkUp, 6 LinkErrorRecovery, 7 Phy Test, 8 disabled by
// the chassis manager.  0 for a text not known.
int pr_state_code(const std::string &state);
int pr_physical_state_code(const std::string &physical_state);

}  // namespace port_reader
