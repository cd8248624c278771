// The metrics exporter end to end: scrapes over HTTP, answered from the daemon's
// /ib/state through mgmtd-lite on the simulated fabric.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <thread>

#include "daemon_rig.h"

namespace {

using namespace std::chrono_literals;

const char kConfig[] =
    "/system/hostname                            hostname  metrics-switch\n"
    "/system/chassis/sys_disp_str                string    metrics rig\n"
    "/system/chassis/ha/state/system_type_mirror uint32    36\n"
    "/system/chassis/config/profile              uint8     0\n"
    "/system/chassis/config/system_m_key         uint64    1234605616436508552\n"
    "/ib/config/externalports/65/speed           uint8     4\n"
    "/portd/config/ifindex/66/swid               uint8     0\n";

struct HttpReply {
    int status = 0;
    std::string headers;
    std::string body;
};

// One GET over a fresh connection (HTTP/1.0: the server closes when done).
HttpReply http_get(int port, const std::string &path, const std::string &accept = "")
{
    HttpReply reply;
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
        if (fd >= 0) {
            close(fd);
        }
        return reply;
    }
    std::string req = "GET " + path + " HTTP/1.0\r\nHost: localhost\r\n";
    if (!accept.empty()) {
        req += "Accept: " + accept + "\r\n";
    }
    req += "\r\n";
    if (write(fd, req.data(), req.size()) != static_cast<ssize_t>(req.size())) {
        close(fd);
        return reply;
    }
    std::string all;
    char buf[8192];
    ssize_t n = 0;
    while ((n = read(fd, buf, sizeof(buf))) > 0) {
        all.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    const size_t split = all.find("\r\n\r\n");
    if (all.compare(0, 9, "HTTP/1.1 ") != 0 && all.compare(0, 9, "HTTP/1.0 ") != 0) {
        return reply;
    }
    reply.status = std::stoi(all.substr(9, 3));
    reply.headers = all.substr(0, split);
    reply.body = split == std::string::npos ? "" : all.substr(split + 4);
    return reply;
}

class OvdExporter : public ovd_test::DaemonRigTest {
protected:
    void start()
    {
        std::string why;
        ASSERT_TRUE(rig_->fabric().start_sm(&why)) << why;
        ASSERT_NO_FATAL_FAILURE(rig_->start(
            kConfig, ovd_test::read_file(OVD_DEMO_DIR "/ib-state.reg"), "builtin:standalone36"));
        ASSERT_EQ(0, rig_->portd({"add-devices", "1"}).code);
        ASSERT_EQ(0, rig_->portd({"enable", "1", "1", "2"}).code);
        port_ = 20000 + getpid() % 20000;
        ASSERT_TRUE(exporter_.start({OVD_EXPORTER_BIN, "--port", std::to_string(port_),
                                     "--timeout", "2"}));
        for (int i = 0; i < 200 && http_get(port_, "/").status != 200; ++i) {
            std::this_thread::sleep_for(20ms);
        }
    }

    void TearDown() override
    {
        exporter_.signal(SIGTERM);
        exporter_.wait(10s);
        ovd_test::DaemonRigTest::TearDown();
    }

    int port_ = 0;
    ovd_test::Child exporter_;
};

TEST_F(OvdExporter, ScrapesInBothFormatsSharedReadsAndTimeOuts)
{
    ASSERT_NO_FATAL_FAILURE(start());
    HttpReply r = http_get(port_, "/metrics");
    ASSERT_EQ(200, r.status) << r.headers << r.body;
    EXPECT_NE(r.headers.find("text/plain; version=0.0.4"), std::string::npos) << r.headers;
    EXPECT_NE(r.body.find("ovd_up 1\n"), std::string::npos) << r.body;
    EXPECT_NE(r.body.find("# TYPE ovd_port_receive_bytes_total counter\n"), std::string::npos);
    EXPECT_NE(r.body.find("ovd_port_state{ifindex=\"65\",port=\"IB1/1\"} 4\n"), std::string::npos)
        << r.body;
    EXPECT_NE(r.body.find("ovd_port_physical_state{ifindex=\"65\",port=\"IB1/1\"} 5\n"),
              std::string::npos);
    EXPECT_NE(r.body.find("ovd_port_rate_bits_per_second{ifindex=\"65\",port=\"IB1/1\"} "
                          "40000000000\n"),
              std::string::npos)
        << r.body;
    EXPECT_NE(r.body.find("ovd_port_info{ifindex=\"65\",port=\"IB1/1\",state=\"Active\","),
              std::string::npos);
    // Port 66's SWID is in the configuration, 65's is not.
    EXPECT_NE(r.body.find("ovd_port_receive_bytes_total{ifindex=\"66\",port=\"IB1/2\",swid=\"0\"} "),
              std::string::npos)
        << r.body;
    // A port that answers nothing is left out, not reported as zero.
    EXPECT_EQ(r.body.find("ifindex=\"69\""), std::string::npos);

    // OpenMetrics when asked for.
    r = http_get(port_, "/metrics", "application/openmetrics-text; version=1.0.0");
    ASSERT_EQ(200, r.status);
    EXPECT_NE(r.headers.find("application/openmetrics-text"), std::string::npos) << r.headers;
    EXPECT_NE(r.body.find("# TYPE ovd_port_receive_bytes counter\n"), std::string::npos) << r.body;
    EXPECT_NE(r.body.find("# TYPE ovd_port info\n"), std::string::npos);
    EXPECT_EQ(r.body.size() - 6, r.body.rfind("# EOF\n"));

    // Scrapes that come while a read is under way share it: one query for a port's data.
    const char reads_of_65[] = "query from 'ovd exporter': get /ib/state/externalports/65/all_data";
    const size_t before = rig_->lite().log_lines(reads_of_65).size();
    rig_->lite().child()->signal(SIGSTOP);
    auto a = std::async(std::launch::async, [this] { return http_get(port_, "/metrics"); });
    std::this_thread::sleep_for(200ms);
    auto b = std::async(std::launch::async, [this] { return http_get(port_, "/metrics"); });
    std::this_thread::sleep_for(200ms);
    rig_->lite().child()->signal(SIGCONT);
    EXPECT_EQ(200, a.get().status);
    EXPECT_EQ(200, b.get().status);
    EXPECT_EQ(1u, rig_->lite().log_lines(reads_of_65).size() - before);

    // A management daemon that doesn't answer: 503 with the reason, after the time-out.
    rig_->lite().child()->signal(SIGSTOP);
    r = http_get(port_, "/metrics");
    rig_->lite().child()->signal(SIGCONT);
    EXPECT_EQ(503, r.status) << r.body;
    EXPECT_NE(r.body.find("did not answer within 2 s"), std::string::npos) << r.body;
    // And then it answers again.
    for (int i = 0; i < 50 && (r = http_get(port_, "/metrics")).status != 200; ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ(200, r.status) << r.body;

    EXPECT_EQ(404, http_get(port_, "/nothing").status);

    // The management daemon gone: the session is dropped and each scrape tries a new one,
    // telling why it can't.
    rig_->lite().child()->signal(SIGKILL);
    rig_->lite().child()->wait(10s);
    for (int i = 0; i < 50 && (r = http_get(port_, "/metrics")).body.find("can't be reached") ==
                                  std::string::npos;
         ++i) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_EQ(503, r.status);
    EXPECT_NE(r.body.find("the management daemon can't be reached"), std::string::npos) << r.body;
}

}  // namespace
