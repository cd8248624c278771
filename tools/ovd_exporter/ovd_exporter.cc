// ovd-exporter: the switch's external ports as Prometheus / OpenMetrics metrics, read
// through the management daemon's /ib/state tree.
//
//   ovd-exporter [--sock-root PREFIX] [--listen ADDRESS] [--port N] [--timeout S]
//
// GET /metrics answers from one read of every port (one compound query a port).  Scrapes
// that arrive while a read is under way wait for that read and share its result.  Port
// series carry ifindex, port (the interface name) and, where the port manager's
// configuration names it, swid.  A read
// that the management daemon doesn't finish within the time-out gives 503 with the reason;
// a lost session is opened again on the next scrape.  A port that answers nothing (not
// enabled, not served) is left out, never reported as zeros.
//
// The reads run on a thread of their own with their own session; the HTTP side never
// blocks on them.
#include <arpa/inet.h>
#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
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

// A port from the exporter registry's free range.
constexpr int ox_default_port = 9878;

struct ox_options {
    const char *sock_root = nullptr;
    std::string listen = "127.0.0.1";
    int port = ox_default_port;
    long timeout_s = 10;
};

// One finished read.
struct ox_result {
    bool ok = false;
    std::string why;  // when not ok
    std::vector<pr_port> ports;
    double seconds = 0;
};

// A scrape waiting for the read under way.
struct ox_waiter {
    evhttp_request *req = nullptr;
    event *timer = nullptr;
    bool openmetrics = false;
    Clock::time_point since;
};

struct ox_server {
    ox_options opts;
    event_base *base = nullptr;
    int done_pipe[2] = {-1, -1};  // the reader says "done" here
    std::list<ox_waiter> waiters;
    // Between the threads.
    std::mutex mu;
    std::condition_variable cv;
    bool read_wanted = false;
    bool read_in_flight = false;
    bool stopping = false;
    ox_result result;
};

// ---------------------------------------------------------------------------------------
// The reader thread.

void ox_reader(ox_server *srv)
{
    lew_context *lwc = nullptr;
    md_client_context *mcc = nullptr;

    for (;;) {
        {
            std::unique_lock<std::mutex> lock(srv->mu);
            srv->cv.wait(lock, [srv] { return srv->read_wanted || srv->stopping; });
            if (srv->stopping) {
                break;
            }
            srv->read_wanted = false;
        }
        ox_result result;
        const Clock::time_point start = Clock::now();
        int err = 0;
        if (mcc == nullptr) {
            mdc_wrapper_params *params = nullptr;
            err = port_reader::pr_mgmtd_reachable() ? 0 : lc_err_io_closed;
            if (err == 0 && lwc == nullptr) {
                err = lew_init(&lwc);
            }
            if (err == 0) {
                err = mdc_wrapper_params_get_defaults(&params);
            }
            if (err == 0) {
                params->mwp_lew_context = lwc;
                params->mwp_gcl_client = "ovd exporter";
                // The scrape's own time-out answers first; the read goes on for the scrapes
                // after it.
                params->mwp_timeout = (srv->opts.timeout_s + 5) * 1000;
                err = mdc_wrapper_init(params, &mcc);
            }
            mdc_wrapper_params_free(&params);
            if (err != 0) {
                result.why = "the management daemon can't be reached";
            }
        }
        std::vector<std::string> ifindexes;
        uint32 code = 0;
        if (err == 0) {
            err = port_reader::pr_list_ports(mcc, &ifindexes, &code);
            if (err != 0 || code != 0) {
                result.why = "the port list could not be read (code " + std::to_string(code) + ")";
            }
        }
        for (size_t i = 0; err == 0 && code == 0 && i < ifindexes.size(); ++i) {
            pr_port port;
            err = port_reader::pr_read_port(mcc, ifindexes[i], &port, &code);
            if (err != 0 || code != 0) {
                result.why = "port " + ifindexes[i] + " could not be read (code " +
                             std::to_string(code) + ")";
            } else if (port.answered) {
                result.ports.push_back(port);
            }
        }
        result.ok = err == 0 && code == 0;
        if (err != 0 && mcc != nullptr) {
            // The session is suspect: a new one for the next read.
            complain_error(mdc_wrapper_disconnect(mcc, false));
            complain_error(mdc_wrapper_deinit(&mcc));
        }
        result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        {
            std::lock_guard<std::mutex> lock(srv->mu);
            srv->result = std::move(result);
            srv->read_in_flight = false;
        }
        const char done = 1;
        if (write(srv->done_pipe[1], &done, 1) != 1) {
            lc_log_basic(LOG_ERR, "ovd-exporter: could not wake the server");
        }
    }
    if (mcc != nullptr) {
        complain_error(mdc_wrapper_disconnect(mcc, true));
        complain_error(mdc_wrapper_deinit(&mcc));
    }
    complain_error(lew_deinit(&lwc));
}

// ---------------------------------------------------------------------------------------
// The exposition.

std::string ox_label_value(const std::string &text)
{
    std::string out;
    for (const char ch : text) {
        if (ch == '\\' || ch == '"') {
            out += '\\';
            out += ch;
        } else if (ch == '\n') {
            out += "\\n";
        } else {
            out += ch;
        }
    }
    return out;
}

struct ox_family {
    const char *name;     // without _total
    const char *type;     // "gauge", "counter", "info"
    const char *help;
    const char *counter;  // the port counter behind a counter family
};

const ox_family ox_counters[] = {
    {"ovd_port_receive_bytes", "counter", "Bytes received on the port.", "rcv_data"},
    {"ovd_port_transmit_bytes", "counter", "Bytes sent on the port.", "xmit_data"},
    {"ovd_port_receive_packets", "counter", "Packets received on the port.", "rcv_pkts"},
    {"ovd_port_transmit_packets", "counter", "Packets sent on the port.", "xmit_pkts"},
    {"ovd_port_symbol_errors", "counter", "Symbol errors on the port's link.", "symbol_err_cnt"},
    {"ovd_port_receive_errors", "counter", "Packets received with errors.", "rcv_err"},
    {"ovd_port_transmit_discards", "counter", "Outbound packets discarded.", "xmit_discards"},
    {"ovd_port_vl15_dropped", "counter", "Subnet management packets dropped.", "vl15_dropped"},
    {"ovd_port_transmit_wait", "counter", "Ticks the port had data to send but no credits.",
     "xmit_wait"},
};

// ifindex, port and, where the configuration names it, swid.
std::string ox_labels(const pr_port &p)
{
    std::string labels =
        "ifindex=\"" + p.ifindex + "\",port=\"" + ox_label_value(p.field("if_name")) + "\"";
    if (!p.field("swid").empty()) {
        labels += ",swid=\"" + ox_label_value(p.field("swid")) + "\"";
    }
    return labels;
}

void ox_head(std::string *out, bool om, const char *name, const char *type, const char *help)
{
    *out += std::string("# HELP ") + name + " " + help + "\n";
    // The text format has no info type: a gauge of 1 there.
    const std::string shown = !om && strcmp(type, "info") == 0 ? "gauge" : type;
    *out += std::string("# TYPE ") + name + " " + shown + "\n";
}

std::string ox_render(const ox_result &r, bool om)
{
    std::string out;
    char num[64];
    ox_head(&out, om, "ovd_up", "gauge", "Whether the last read of the ports through mgmtd succeeded.");
    out += std::string("ovd_up ") + (r.ok ? "1" : "0") + "\n";
    ox_head(&out, om, "ovd_scrape_duration_seconds", "gauge", "Time the read of the ports took.");
    snprintf(num, sizeof(num), "%.6f", r.seconds);
    out += std::string("ovd_scrape_duration_seconds ") + num + "\n";

    const char *info = om ? "ovd_port" : "ovd_port_info";
    ox_head(&out, om, info, "info", "A port's texts: state, physical state, speed, width, rate, FEC.");
    for (const pr_port &p : r.ports) {
        out += "ovd_port_info{" + ox_labels(p) +
               ",state=\"" + ox_label_value(p.field("state")) + "\",physical_state=\"" +
               ox_label_value(p.field("physical_state")) + "\",speed=\"" +
               ox_label_value(p.field("speed")) + "\",width=\"" + ox_label_value(p.field("width")) +
               "\",rate=\"" + ox_label_value(p.field("rate")) + "\",fec=\"" +
               ox_label_value(p.field("fec")) + "\"} 1\n";
    }
    ox_head(&out, om, "ovd_port_state", "gauge",
            "Logical state: 1 Down, 2 Initialize, 3 Armed, 4 Active; 0 unknown.");
    for (const pr_port &p : r.ports) {
        out += "ovd_port_state{" + ox_labels(p) + "} " +
               std::to_string(port_reader::pr_state_code(p.field("state"))) + "\n";
    }
    ox_head(&out, om, "ovd_port_physical_state", "gauge",
            "Physical state: 1 Sleep, 2 Polling, 3 Disabled, 4 Training, 5 LinkUp, 6 "
            "LinkErrorRecovery, 7 PhyTest, 8 disabled by the chassis manager; 0 unknown.");
    for (const pr_port &p : r.ports) {
        out += "ovd_port_physical_state{" + ox_labels(p) + "} " +
               std::to_string(port_reader::pr_physical_state_code(p.field("physical_state"))) + "\n";
    }
    ox_head(&out, om, "ovd_port_rate_bits_per_second", "gauge", "The port's data rate.");
    for (const pr_port &p : r.ports) {
        snprintf(num, sizeof(num), "%.0f", port_reader::pr_rate_bps(p.field("rate")));
        out += "ovd_port_rate_bits_per_second{" + ox_labels(p) + "} " + num + "\n";
    }
    ox_head(&out, om, "ovd_port_mtu_bytes", "gauge", "The port's operational MTU.");
    for (const pr_port &p : r.ports) {
        out += "ovd_port_mtu_bytes{" + ox_labels(p) + "} " +
               std::to_string(p.counter("mtu")) + "\n";
    }
    for (const ox_family &f : ox_counters) {
        ox_head(&out, om, om ? f.name : (std::string(f.name) + "_total").c_str(), f.type, f.help);
        for (const pr_port &p : r.ports) {
            out += std::string(f.name) + "_total{" + ox_labels(p) + "} " +
                   std::to_string(p.counter(f.counter)) + "\n";
        }
    }
    if (om) {
        out += "# EOF\n";
    }
    return out;
}

// ---------------------------------------------------------------------------------------
// The HTTP side.

void ox_reply(evhttp_request *req, int code, const char *reason, const std::string &body,
              const char *content_type)
{
    evkeyvalq *headers = evhttp_request_get_output_headers(req);
    evhttp_add_header(headers, "Content-Type", content_type);
    evbuffer *buf = evbuffer_new();
    if (buf != nullptr) {
        evbuffer_add(buf, body.data(), body.size());
    }
    evhttp_send_reply(req, code, reason, buf);
    if (buf != nullptr) {
        evbuffer_free(buf);
    }
}

void ox_answer(ox_server *srv, ox_waiter &w, const ox_result &r)
{
    if (w.timer != nullptr) {
        event_free(w.timer);
        w.timer = nullptr;
    }
    if (!r.ok) {
        ox_reply(w.req, 503, "Service Unavailable", r.why + "\n", "text/plain; charset=utf-8");
        return;
    }
    (void)srv;
    ox_reply(w.req, 200, "OK", ox_render(r, w.openmetrics),
             w.openmetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                           : "text/plain; version=0.0.4; charset=utf-8");
}

void ox_on_done(evutil_socket_t fd, short, void *arg)
{
    auto *srv = static_cast<ox_server *>(arg);
    char sink[64];
    while (read(fd, sink, sizeof(sink)) > 0) {
    }
    ox_result r;
    {
        std::lock_guard<std::mutex> lock(srv->mu);
        r = srv->result;
    }
    // Everyone who waited for this read gets it.
    for (ox_waiter &w : srv->waiters) {
        ox_answer(srv, w, r);
    }
    srv->waiters.clear();
}

void ox_on_timeout(evutil_socket_t, short, void *arg)
{
    auto *srv = static_cast<ox_server *>(arg);
    const Clock::time_point now = Clock::now();
    for (auto it = srv->waiters.begin(); it != srv->waiters.end();) {
        if (now - it->since >= std::chrono::seconds(srv->opts.timeout_s)) {
            event_free(it->timer);
            it->timer = nullptr;
            ox_reply(it->req, 503, "Service Unavailable",
                     "mgmtd did not answer within " + std::to_string(srv->opts.timeout_s) +
                         " s\n",
                     "text/plain; charset=utf-8");
            it = srv->waiters.erase(it);
        } else {
            ++it;
        }
    }
}

void ox_on_request(evhttp_request *req, void *arg)
{
    auto *srv = static_cast<ox_server *>(arg);
    const char *uri = evhttp_request_get_uri(req);
    const std::string path = uri != nullptr ? std::string(uri).substr(0, std::string(uri).find('?')) : "";
    if (evhttp_request_get_command(req) != EVHTTP_REQ_GET) {
        ox_reply(req, 405, "Method Not Allowed", "GET only\n", "text/plain; charset=utf-8");
        return;
    }
    if (path == "/") {
        ox_reply(req, 200, "OK",
                 "<html><head><title>ovd exporter</title></head><body>"
                 "<a href=\"/metrics\">Metrics</a></body></html>\n",
                 "text/html; charset=utf-8");
        return;
    }
    if (path != "/metrics") {
        ox_reply(req, 404, "Not Found", "not found\n", "text/plain; charset=utf-8");
        return;
    }
    const char *accept = evhttp_find_header(evhttp_request_get_input_headers(req), "Accept");
    ox_waiter w;
    w.req = req;
    w.openmetrics = accept != nullptr && strstr(accept, "application/openmetrics-text") != nullptr;
    w.since = Clock::now();
    w.timer = evtimer_new(srv->base, ox_on_timeout, srv);
    timeval tv = {srv->opts.timeout_s, 0};
    if (w.timer != nullptr) {
        evtimer_add(w.timer, &tv);
    }
    srv->waiters.push_back(w);
    std::lock_guard<std::mutex> lock(srv->mu);
    if (!srv->read_in_flight) {
        srv->read_in_flight = true;
        srv->read_wanted = true;
        srv->cv.notify_one();
    }
}

void ox_on_signal(evutil_socket_t, short, void *arg)
{
    event_base_loopbreak(static_cast<event_base *>(arg));
}

void ox_usage(FILE *out)
{
    fprintf(out, "usage: ovd-exporter [--sock-root PREFIX] [--listen ADDRESS] [--port N] "
                 "[--timeout S]\n");
}

}  // namespace

int main(int argc, char **argv)
{
    ox_server srv;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--sock-root" && has_value) {
            srv.opts.sock_root = argv[++i];
        } else if (arg == "--listen" && has_value) {
            srv.opts.listen = argv[++i];
        } else if (arg == "--port" && has_value) {
            srv.opts.port = atoi(argv[++i]);
        } else if (arg == "--timeout" && has_value) {
            srv.opts.timeout_s = strtol(argv[++i], nullptr, 10);
        } else if (arg == "--help" || arg == "-h") {
            ox_usage(stdout);
            return 0;
        } else {
            ox_usage(stderr);
            return 2;
        }
    }
    if (srv.opts.port <= 0 || srv.opts.port > 65535 || srv.opts.timeout_s <= 0) {
        ox_usage(stderr);
        return 2;
    }
    lc_log_init("ovd-exporter", nullptr, LCO_none, 0, LOG_CRIT, LOG_LOCAL4, LCT_STDERR);
    gcl_set_sock_root_prefix(srv.opts.sock_root);
    signal(SIGPIPE, SIG_IGN);

    srv.base = event_base_new();
    if (srv.base == nullptr || pipe2(srv.done_pipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        fprintf(stderr, "ovd-exporter: no event loop\n");
        return 1;
    }
    evhttp *http = evhttp_new(srv.base);
    if (http == nullptr ||
        evhttp_bind_socket(http, srv.opts.listen.c_str(), static_cast<uint16_t>(srv.opts.port)) != 0) {
        fprintf(stderr, "ovd-exporter: cannot listen on %s:%d\n", srv.opts.listen.c_str(),
                srv.opts.port);
        return 1;
    }
    evhttp_set_gencb(http, ox_on_request, &srv);
    event *done = event_new(srv.base, srv.done_pipe[0], EV_READ | EV_PERSIST, ox_on_done, &srv);
    event *term = evsignal_new(srv.base, SIGTERM, ox_on_signal, srv.base);
    event *intr = evsignal_new(srv.base, SIGINT, ox_on_signal, srv.base);
    event_add(done, nullptr);
    event_add(term, nullptr);
    event_add(intr, nullptr);
    fprintf(stderr, "ovd-exporter: listening on %s:%d\n", srv.opts.listen.c_str(), srv.opts.port);

    std::thread reader(ox_reader, &srv);
    event_base_dispatch(srv.base);
    {
        std::lock_guard<std::mutex> lock(srv.mu);
        srv.stopping = true;
    }
    srv.cv.notify_one();
    reader.join();
    for (ox_waiter &w : srv.waiters) {
        event_free(w.timer);
    }
    event_free(done);
    event_free(term);
    event_free(intr);
    evhttp_free(http);
    event_base_free(srv.base);
    close(srv.done_pipe[0]);
    close(srv.done_pipe[1]);
    lc_log_close();
    return 0;
}
