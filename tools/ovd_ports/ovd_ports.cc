// ovd-ports: the switch's external ports at a glance, read through the management daemon.
//
//   ovd-ports [--sock-root PREFIX] [--json] [--wide] [--timeout S] [--port IFINDEX]...
//             [--watch SECONDS [--count N]]
//
// One row a port, from one compound query per port.  The default columns fit 80 columns;
// --wide shows all.  --watch redraws every SECONDS (N times with --count) and shows rates
// computed from the counters between two reads.  A port that answers nothing (not enabled,
// not served by this switch's daemon) shows as such, never as zeros.
//
// Exit codes as mgmtctl's: 0 done; 1 an error answer, or none of the asked ports exists;
// 2 bad command line; 3 the management daemon can't be reached; 4 no answer in time.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "gcl.h"
#include "libevent_wrapper.h"
#include "logging.h"
#include "mdc_wrapper.h"
#include "port_reader.h"

namespace {

using port_reader::pr_port;
using Clock = std::chrono::steady_clock;

constexpr int op_exit_ok = 0;
constexpr int op_exit_answered_error = 1;
constexpr int op_exit_usage = 2;
constexpr int op_exit_unreachable = 3;
constexpr int op_exit_timeout = 4;

struct op_options {
    const char *sock_root = nullptr;
    bool json = false;
    bool wide = false;
    long timeout_s = 10;
    double watch_s = 0;
    long count = 0;  // 0: for ever
    std::vector<std::string> ports;
};

void op_usage(FILE *out)
{
    fprintf(out,
            "usage: ovd-ports [--sock-root PREFIX] [--json] [--wide] [--timeout S] "
            "[--port IFINDEX]...\n"
            "                 [--watch SECONDS [--count N]]\n");
}

std::string op_json_string(const std::string &text)
{
    std::string out = "\"";
    for (const char ch : text) {
        if (ch == '"' || ch == '\\') {
            out += '\\';
            out += ch;
        } else if (static_cast<unsigned char>(ch) < 0x20) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\u%04x", static_cast<unsigned char>(ch));
            out += buf;
        } else {
            out += ch;
        }
    }
    return out + "\"";
}

// Short forms of long texts, for the narrow table.
std::string op_short_phys(const std::string &phys)
{
    if (phys == "PortConfigurationTraining") {
        return "Training";
    }
    if (phys == "LinkErrorRecovery") {
        return "ErrRecovery";
    }
    if (phys == "Disabled By Chassis Manager") {
        return "DisabledCM";
    }
    return phys;
}

std::string op_short_rate(const std::string &rate)
{
    const size_t gbps = rate.find(" Gbps");
    if (gbps == std::string::npos) {
        return rate;
    }
    std::string number = rate.substr(0, gbps);
    if (number.size() > 2 && number.compare(number.size() - 2, 2, ".0") == 0) {
        number.resize(number.size() - 2);
    }
    return number + "G";
}

// 1234567 -> "1.2M"
std::string op_human(double value)
{
    static const char *const units[] = {"", "K", "M", "G", "T", "P"};
    int unit = 0;
    while (value >= 1000 && unit < 5) {
        value /= 1000;
        ++unit;
    }
    char buf[32];
    if (unit == 0) {
        snprintf(buf, sizeof(buf), "%.0f", value);
    } else {
        snprintf(buf, sizeof(buf), "%.1f%s", value, units[unit]);
    }
    return buf;
}

unsigned long long op_errors(const pr_port &p)
{
    return p.counter("symbol_err_cnt") + p.counter("rcv_err") + p.counter("xmit_discards") +
           p.counter("vl15_dropped");
}

struct op_rates {
    bool known = false;
    double rx_bytes = 0, tx_bytes = 0, rx_pkts = 0, tx_pkts = 0;
};

op_rates op_rates_of(const pr_port &now, const pr_port *before, double seconds)
{
    op_rates r;
    if (before == nullptr || !before->answered || !now.answered || seconds <= 0) {
        return r;
    }
    auto delta = [&](const char *name) {
        const unsigned long long a = before->counter(name);
        const unsigned long long b = now.counter(name);
        return b >= a ? static_cast<double>(b - a) / seconds : 0.0;  // a reset reads as 0
    };
    r.known = true;
    r.rx_bytes = delta("rcv_data");
    r.tx_bytes = delta("xmit_data");
    r.rx_pkts = delta("rcv_pkts");
    r.tx_pkts = delta("xmit_pkts");
    return r;
}

void op_print_table(const op_options &opts, const std::vector<pr_port> &ports,
                    const std::vector<op_rates> &rates, bool watching)
{
    if (!opts.wide) {
        printf("%-8s %5s %-10s %-11s %-5s %2s %5s %5s %7s %7s %4s\n", "PORT", "IFX", "STATE",
               "PHYS", "SPEED", "W", "RATE", "MTU", watching ? "RX B/s" : "RX", watching ? "TX B/s" : "TX",
               "ERR");
    } else {
        printf("%-8s %6s %-10s %-26s %-6s %-3s %-10s %-5s %-10s %-8s %14s %14s %12s %12s %8s "
               "%8s %8s %8s",
               "PORT", "IFINDEX", "STATE", "PHYSICAL", "SPEED", "W", "RATE", "MTU", "VLS", "FEC",
               "RX_BYTES", "TX_BYTES", "RX_PKTS", "TX_PKTS", "SYM_ERR", "RCV_ERR", "DISCARD",
               "VL15DROP");
        if (watching) {
            printf(" %10s %10s %10s %10s", "RX_B/s", "TX_B/s", "RX_P/s", "TX_P/s");
        }
        printf("\n");
    }
    for (size_t i = 0; i < ports.size(); ++i) {
        const pr_port &p = ports[i];
        if (!p.answered) {
            if (!opts.wide) {
                printf("%-8s %5s %s\n", "-", p.ifindex.c_str(), "(no answer: not enabled or not served)");
            } else {
                printf("%-8s %6s %s\n", "-", p.ifindex.c_str(), "(no answer: not enabled or not served)");
            }
            continue;
        }
        const std::string name = p.field("if_name").empty() ? "-" : p.field("if_name");
        if (!opts.wide) {
            const std::string rx = watching ? (rates[i].known ? op_human(rates[i].rx_bytes) : "-")
                                            : op_human(static_cast<double>(p.counter("rcv_data")));
            const std::string tx = watching ? (rates[i].known ? op_human(rates[i].tx_bytes) : "-")
                                            : op_human(static_cast<double>(p.counter("xmit_data")));
            printf("%-8s %5s %-10s %-11s %-5s %2s %5s %5s %7s %7s %4llu\n", name.c_str(),
                   p.ifindex.c_str(), p.field("state").c_str(),
                   op_short_phys(p.field("physical_state")).c_str(), p.field("speed").c_str(),
                   p.field("width").c_str(), op_short_rate(p.field("rate")).c_str(),
                   p.field("mtu").c_str(), rx.c_str(), tx.c_str(), op_errors(p));
            continue;
        }
        printf("%-8s %6s %-10s %-26s %-6s %-3s %-10s %-5s %-10s %-8s %14llu %14llu %12llu %12llu "
               "%8llu %8llu %8llu %8llu",
               name.c_str(), p.ifindex.c_str(), p.field("state").c_str(),
               p.field("physical_state").c_str(), p.field("speed").c_str(),
               p.field("width").c_str(), p.field("rate").c_str(), p.field("mtu").c_str(),
               p.field("operational_vl").c_str(), p.field("fec").c_str(), p.counter("rcv_data"),
               p.counter("xmit_data"), p.counter("rcv_pkts"), p.counter("xmit_pkts"),
               p.counter("symbol_err_cnt"), p.counter("rcv_err"), p.counter("xmit_discards"),
               p.counter("vl15_dropped"));
        if (watching) {
            if (rates[i].known) {
                printf(" %10.0f %10.0f %10.0f %10.0f", rates[i].rx_bytes, rates[i].tx_bytes,
                       rates[i].rx_pkts, rates[i].tx_pkts);
            } else {
                printf(" %10s %10s %10s %10s", "-", "-", "-", "-");
            }
        }
        printf("\n");
    }
}

void op_print_json(const std::vector<pr_port> &ports, const std::vector<op_rates> &rates,
                   bool watching)
{
    static const char *const text_fields[] = {"if_name", "state", "physical_state", "speed",
                                              "width", "rate", "mtu", "operational_vl", "fec"};
    static const char *const counters[] = {"rcv_data", "xmit_data", "rcv_pkts", "xmit_pkts",
                                           "symbol_err_cnt", "rcv_err", "xmit_discards",
                                           "vl15_dropped", "xmit_wait"};
    std::string out = "{\"ports\":[";
    for (size_t i = 0; i < ports.size(); ++i) {
        const pr_port &p = ports[i];
        out += std::string(i == 0 ? "" : ",") + "{\"ifindex\":" + p.ifindex +
               ",\"answered\":" + (p.answered ? "true" : "false");
        if (p.answered) {
            for (const char *f : text_fields) {
                out += std::string(",\"") + f + "\":" + op_json_string(p.field(f));
            }
            out += ",\"counters\":{";
            for (size_t c = 0; c < sizeof(counters) / sizeof(counters[0]); ++c) {
                out += std::string(c == 0 ? "" : ",") + "\"" + counters[c] +
                       "\":" + std::to_string(p.counter(counters[c]));
            }
            out += "}";
            if (watching && rates[i].known) {
                char buf[256];
                snprintf(buf, sizeof(buf),
                         ",\"rates\":{\"rcv_bytes_per_s\":%.1f,\"xmit_bytes_per_s\":%.1f,"
                         "\"rcv_pkts_per_s\":%.1f,\"xmit_pkts_per_s\":%.1f}",
                         rates[i].rx_bytes, rates[i].tx_bytes, rates[i].rx_pkts, rates[i].tx_pkts);
                out += buf;
            }
        }
        out += "}";
    }
    printf("%s]}\n", out.c_str());
}

// The exit code of a failed request: its code, or the transport's.
int op_exit_of(int err, uint32 code)
{
    if (err == lc_err_io_timeout) {
        return op_exit_timeout;
    }
    if (err != 0) {
        return op_exit_unreachable;
    }
    return code != 0 ? op_exit_answered_error : op_exit_ok;
}

}  // namespace

int main(int argc, char **argv)
{
    op_options opts;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--json") {
            opts.json = true;
        } else if (arg == "--wide") {
            opts.wide = true;
        } else if (arg == "--sock-root" && has_value) {
            opts.sock_root = argv[++i];
        } else if (arg == "--timeout" && has_value) {
            opts.timeout_s = strtol(argv[++i], nullptr, 10);
        } else if (arg == "--watch" && has_value) {
            opts.watch_s = strtod(argv[++i], nullptr);
            if (opts.watch_s <= 0) {
                op_usage(stderr);
                return op_exit_usage;
            }
        } else if (arg == "--count" && has_value) {
            opts.count = strtol(argv[++i], nullptr, 10);
        } else if (arg == "--port" && has_value) {
            const std::string port = argv[++i];
            if (port.empty() || port.find_first_not_of("0123456789") != std::string::npos) {
                fprintf(stderr, "ovd-ports: --port wants an ifindex, not '%s'\n", port.c_str());
                return op_exit_usage;
            }
            opts.ports.push_back(port);
        } else if (arg == "--help" || arg == "-h") {
            op_usage(stdout);
            return op_exit_ok;
        } else {
            op_usage(stderr);
            return op_exit_usage;
        }
    }
    if (opts.timeout_s <= 0) {
        op_usage(stderr);
        return op_exit_usage;
    }

    lc_log_init("ovd-ports", nullptr, LCO_none, 0, LOG_CRIT, LOG_LOCAL4, LCT_STDERR);
    int status = op_exit_ok;
    lew_context *lwc = nullptr;
    md_client_context *mcc = nullptr;
    mdc_wrapper_params *params = nullptr;
    std::vector<pr_port> previous;
    Clock::time_point previous_at;
    int err = gcl_set_sock_root_prefix(opts.sock_root);
    if (err == 0 && !port_reader::pr_mgmtd_reachable()) {
        err = lc_err_io_closed;
    }
    if (err == 0) {
        err = lew_init(&lwc);
    }
    if (err == 0) {
        err = mdc_wrapper_params_get_defaults(&params);
    }
    if (err == 0) {
        params->mwp_lew_context = lwc;
        params->mwp_gcl_client = "ovd ports";
        params->mwp_timeout = opts.timeout_s * 1000;
        err = mdc_wrapper_init(params, &mcc);
    }
    mdc_wrapper_params_free(&params);
    if (err != 0) {
        fprintf(stderr, "ovd-ports: the management daemon can't be reached\n");
        status = op_exit_unreachable;
    }

    for (long round = 0; status == op_exit_ok; ++round) {
        std::vector<std::string> ifindexes = opts.ports;
        uint32 code = 0;
        if (ifindexes.empty()) {
            err = port_reader::pr_list_ports(mcc, &ifindexes, &code);
            if (err != 0 || code != 0) {
                fprintf(stderr, "ovd-ports: the port list could not be read (code %u)\n", code);
                status = op_exit_of(err, code);
                break;
            }
        }
        std::vector<pr_port> ports;
        for (const std::string &ifindex : ifindexes) {
            pr_port port;
            err = port_reader::pr_read_port(mcc, ifindex, &port, &code);
            if (err != 0 || code != 0) {
                fprintf(stderr, "ovd-ports: port %s could not be read (code %u)\n",
                        ifindex.c_str(), code);
                status = op_exit_of(err, code);
                break;
            }
            ports.push_back(port);
        }
        if (status != op_exit_ok) {
            break;
        }
        const Clock::time_point now = Clock::now();
        const double seconds = std::chrono::duration<double>(now - previous_at).count();
        std::vector<op_rates> rates;
        for (const pr_port &p : ports) {
            const pr_port *before = nullptr;
            for (const pr_port &q : previous) {
                before = q.ifindex == p.ifindex ? &q : before;
            }
            rates.push_back(op_rates_of(p, before, seconds));
        }
        const bool watching = opts.watch_s > 0;
        if (watching && !opts.json && isatty(STDOUT_FILENO)) {
            printf("\033[H\033[2J");
        }
        if (opts.json) {
            op_print_json(ports, rates, watching);
        } else {
            op_print_table(opts, ports, rates, watching);
        }
        fflush(stdout);
        bool any = false;
        for (const pr_port &p : ports) {
            any = any || p.answered;
        }
        if (!opts.ports.empty() && !any) {
            status = op_exit_answered_error;
        }
        if (!watching || (opts.count > 0 && round + 1 >= opts.count)) {
            break;
        }
        previous = ports;
        previous_at = now;
        std::this_thread::sleep_for(std::chrono::duration<double>(opts.watch_s));
    }

    if (mcc != nullptr) {
        complain_error(mdc_wrapper_disconnect(mcc, true));
        complain_error(mdc_wrapper_deinit(&mcc));
    }
    complain_error(lew_deinit(&lwc));
    lc_log_close();
    return status;
}
