// ovd-demo: the daemon's main job on one machine.  In a private mount namespace (its own
// socket directory, /dev/log and /var/opt) it starts a simulated fabric for the daemon's
// management datagrams (when the simulator is installed), the register stand-in's
// configuration with the bundled 36-port switch model and a journal, mgmtd-lite with the
// bundled configuration, then the daemon.  It shows the daemon's log and the register
// accesses as they come, and walks through a script of requests made with mgmtctl (and,
// where the script says so, with the other stand-ins).  At the end, or on Ctrl-C, it stops
// the daemon and the stand-in and tells how they ended.
//
//   ovd-demo [--script FILE] [--config FILE] [--registration FILE] [--model FILE]
//            [--swid | --chassis | --blade] [--stay]
//
// --swid walks through moving ports between the SWIDs of a switch split in two; --chassis
// through the internal ports of a leaf/spine chassis; --blade through the E-keys of a
// blade's ports.
//
// Script lines: "# text" is printed as a heading; "pause SECONDS" waits; "! PROGRAM ARGS..."
// runs a stand-in program from the build (by its target name; "@model" in its arguments is
// the register model's path); "% STATEMENT" changes the
// simulated switch
// behind the daemon's back (a port statement of the register model, applied before the
// daemon's next register access); anything else is a mgmtctl command line.
// Runs as root.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fabric.h"
#include "daemon_rig.h"
#include "sandbox.h"
#include "stand_ins.h"

namespace {

using namespace std::chrono_literals;

std::atomic<bool> g_stop{false};

void on_signal(int)
{
    g_stop = true;
}

std::vector<std::string> split_words(const std::string &line)
{
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (!word.empty()) {
                words.push_back(word);
                word.clear();
            }
        } else {
            word += c;
        }
    }
    if (!word.empty()) {
        words.push_back(word);
    }
    return words;
}

// Prints the log lines that arrived since the last call, without the syslog head.
class LogPrinter {
public:
    explicit LogPrinter(ovd_test::SyslogReceiver *receiver) : receiver_(receiver) {}
    void flush(std::chrono::milliseconds wait = 0ms)
    {
        receiver_->drain(wait);
        const std::vector<std::string> lines = receiver_->lines();
        for (; next_ < lines.size(); ++next_) {
            std::string line = lines[next_];
            const size_t body = line.find("]: [");
            if (body != std::string::npos) {
                line = line.substr(body + 3);
            }
            while (!line.empty() && (line.back() == '\n' || line.back() == '\0')) {
                line.pop_back();
            }
            if (line.find(".DEBUG]") != std::string::npos) {
                continue;
            }
            printf("    log | %s\n", line.c_str());
        }
        fflush(stdout);
    }

private:
    ovd_test::SyslogReceiver *receiver_;
    size_t next_ = 0;
};

// Prints the register accesses that the journal gained since the last call.
class JournalPrinter {
public:
    explicit JournalPrinter(std::string path) : path_(std::move(path)) {}
    void flush()
    {
        const std::string text = ovd_test::read_file(path_);
        if (text.size() > done_) {
            std::istringstream in(text.substr(done_));
            for (std::string line; std::getline(in, line);) {
                printf("    reg | %s\n", line.c_str());
            }
            done_ = text.size();
        }
        fflush(stdout);
    }

private:
    std::string path_;
    size_t done_ = 0;
};

void print_block(const std::string &prefix, const std::string &text)
{
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        printf("%s%s\n", prefix.c_str(), line.c_str());
    }
}

}  // namespace

int main(int argc, char **argv)
{
    std::string script = OVD_DEMO_DIR "/walkthrough.txt";
    std::string config = OVD_DEMO_DIR "/mgmtd-lite.conf";
    std::string registration = OVD_DEMO_DIR "/ib-state.reg";
    std::string model = "builtin:standalone36";
    bool stay = false;
    bool chassis = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--script" && i + 1 < argc) {
            script = argv[++i];
        } else if (arg == "--config" && i + 1 < argc) {
            config = argv[++i];
        } else if (arg == "--registration" && i + 1 < argc) {
            registration = argv[++i];
        } else if (arg == "--model" && i + 1 < argc) {
            model = argv[++i];
        } else if (arg == "--swid") {
            // The switch split into two SWIDs, on the profile that moves ports between them.
            script = OVD_DEMO_DIR "/walkthrough-swid.txt";
            config = OVD_DEMO_DIR "/mgmtd-lite-swid.conf";
            model = ovd_test::register_models_dir() + "/multi_swid.model";
        } else if (arg == "--chassis") {
            // A leaf/spine chassis whose chips are switches of the simulated fabric.
            script = OVD_DEMO_DIR "/walkthrough-chassis.txt";
            config = OVD_DEMO_DIR "/mgmtd-lite-chassis.conf";
            model = ovd_test::register_models_dir() + "/chassis_leafspine.model";
            chassis = true;
        } else if (arg == "--blade") {
            // A blade whose chassis controller holds an E-key per external port.
            script = OVD_DEMO_DIR "/walkthrough-blade.txt";
            config = OVD_DEMO_DIR "/mgmtd-lite-blade.conf";
            model = ovd_test::register_models_dir() + "/blade_ekey_single.model";
        } else if (arg == "--stay") {
            stay = true;
        } else {
            fprintf(stderr,
                    "usage: ovd-demo [--script FILE] [--config FILE] [--registration FILE] "
                    "[--model FILE] [--swid | --chassis | --blade] [--stay]\n");
            return 2;
        }
    }

    std::string why;
    if (!ovd_test::enter_sandbox(&why)) {
        fprintf(stderr, "ovd-demo: needs root and mount namespaces: %s\n", why.c_str());
        return 1;
    }
    signal(SIGINT, on_signal);
    signal(SIGTERM, on_signal);

    char tmpl[] = "/tmp/ovd-demo.XXXXXX";
    if (mkdtemp(tmpl) == nullptr) {
        perror("ovd-demo: mkdtemp");
        return 1;
    }
    const std::string dir = tmpl;
    int result = 0;
    {
        ovd_test::SyslogReceiver receiver;
        LogPrinter log(&receiver);
        ovd_test::MgmtdLite lite(MGMTD_LITE_BIN, MGMTCTL_BIN, dir, "");
        ovd_test::Child daemon;
        // A subnet manager assigns the LIDs that counter queries travel by.  A chassis is
        // its chips, joined by their internal links as the port manager wires them.
        ovd_test::FabricOptions fabric_options{.topology = "", .attach = "sw1",
                                               .with_sm = true, .sm_node = ""};
        std::string fabric_map = "1=sw1";
        if (chassis) {
            const std::string topology = dir + "/chassis.net";
            ovd_test::Child gen;
            if (!ovd_test::start_redirected(&gen,
                                            {OVD_TOOLS_DIR "/portd-lite", "--model", model,
                                             "--system-type", "22", "fabric-topology"},
                                            topology, dir + "/chassis.err") ||
                gen.wait(30s) != 0) {
                fprintf(stderr, "ovd-demo: no chassis topology: %s\n",
                        ovd_test::read_file(dir + "/chassis.err").c_str());
                return 1;
            }
            fabric_options.topology = topology;
            fabric_options.attach = "chip1";
            fabric_map = "1=chip1 5=chip5 13=chip13 17=chip17 21=chip21";
        }
        ovd_test::Fabric fabric(fabric_options);
        bool have_fabric = false;
        std::vector<std::string> daemon_argv = {OVD_BIN};
        std::vector<std::string> daemon_env;

        if (ovd_test::Fabric::available(&why) && fabric.start(&why)) {
            have_fabric = true;
            printf("== simulated fabric in %s, with a subnet manager\n", fabric.dir().c_str());
            daemon_env = fabric.client_env_preloaded({OVD_UMAD_BRIDGE});
            daemon_argv = {"/bin/sh", "-c", "cd '" + fabric.dir() + "' && exec " OVD_BIN};
            // The driver's view of SWID 0 in sysfs, as the subnet manager set the switch up.
            const std::string ib_sysfs = dir + "/ib-sysfs";
            std::filesystem::create_directories(ib_sysfs);
            const ovd_test::FabricResult sysfs =
                fabric.run_preloaded({OVD_TOOLS_DIR "/ib-sysfs-lite", "--root", ib_sysfs, "--swid", "0"}, {});
            if (sysfs.status != 0 || !ovd_test::mount_ib_sysfs(ib_sysfs, &why)) {
                printf("== no sysfs view of SWID 0 (%s)\n",
                       sysfs.status != 0 ? sysfs.out.c_str() : why.c_str());
            }
        } else {
            printf("== no simulated fabric (%s): the daemon's datagrams go nowhere\n",
                   why.c_str());
        }
        const std::string journal = dir + "/registers.journal";
        const std::string control = dir + "/registers.control";
        std::filesystem::create_directories("/var/opt/vqdreg");
        std::string platform =
            "model " + model + "\njournal " + journal + "\ncontrol " + control + "\n";
        if (have_fabric) {
            // The switch's chips are the fabric's nodes (device 1 is sw1 but on a chassis):
            // their links follow PAOS writes.
            platform += "fabric " + fabric.dir() + "/ctl.fifo " + fabric_map + "\n";
        }
        ovd_test::write_file("/var/opt/vqdreg/vqdreg.conf", platform);
        JournalPrinter registers(journal);
        printf("== register stand-in: model %s\n", model.c_str());

        printf("== mgmtd-lite, configuration %s\n", config.c_str());
        if (!lite.start({"--config", config, "--registration", registration})) {
            print_block("    mgmtd-lite | ", lite.log());
            return 1;
        }
        printf("== ovd\n");
        fflush(stdout);
        if (!daemon.start(daemon_argv, daemon_env) ||
            !lite.wait_for_log("event /ib/events/init-done from 'IB Daemon'")) {
            log.flush(500ms);
            print_block("    mgmtd-lite | ", lite.log());
            fprintf(stderr, "ovd-demo: the daemon did not come up\n");
            result = 1;
        }
        log.flush(200ms);
        registers.flush();

        std::ifstream in(script);
        std::string line;
        while (result == 0 && !g_stop && std::getline(in, line)) {
            if (line.empty()) {
                continue;
            }
            if (line[0] == '#') {
                printf("\n== %s\n", line.substr(line.find_first_not_of("# ")).c_str());
                continue;
            }
            if (line[0] == '%') {
                // Behind the daemon's back: the switch changes before its next access.
                const std::string statement = line.substr(line.find_first_not_of("% "));
                printf("%% (the switch, behind the daemon's back) %s\n", statement.c_str());
                ovd_test::write_file(control + ".new", statement + "\n");
                std::filesystem::rename(control + ".new", control);
                continue;
            }
            if (line.rfind("pause ", 0) == 0) {
                // Time for the daemon's next five-second interval, or for a timer.
                const double seconds = atof(line.c_str() + 6);
                printf("(%s seconds pass)\n", line.substr(6).c_str());
                fflush(stdout);
                std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
                log.flush(100ms);
                continue;
            }
            std::vector<std::string> words = split_words(line);
            std::vector<std::string> argv_run;
            std::string shown;
            if (words[0] == "!") {
                words.erase(words.begin());
                argv_run = words;
                argv_run[0] = std::string(OVD_TOOLS_DIR "/") + words[0];
                // "@model" stands for the register model the demo runs on.
                for (std::string &word : argv_run) {
                    if (word == "@model") {
                        word = model;
                    }
                }
                shown = line.substr(2);
            } else {
                argv_run = lite.ctl_argv(words);
                shown = "mgmtctl " + line;
            }
            printf("$ %s\n", shown.c_str());
            fflush(stdout);
            ovd_test::Child child;
            const std::string base = dir + "/step";
            if (!ovd_test::start_redirected(&child, argv_run, base + ".out", base + ".err")) {
                printf("    (could not start)\n");
                continue;
            }
            const int code = child.wait(120s);
            print_block("    ", ovd_test::read_file(base + ".out"));
            print_block("    ! ", ovd_test::read_file(base + ".err"));
            if (code != 0) {
                printf("    (exit code %d)\n", code);
            }
            log.flush(300ms);
            registers.flush();
        }

        if (stay && result == 0) {
            printf("\n== running; Ctrl-C ends the demo\n");
            fflush(stdout);
            while (!g_stop && daemon.running()) {
                log.flush(200ms);
                registers.flush();
            }
        }

        printf("\n== stopping the daemon\n");
        if (daemon.running()) {
            daemon.signal(SIGTERM);
        }
        const int code = daemon.wait(30s);
        log.flush(300ms);
        printf("    ovd exit code: %d\n", code);
        printf("    mgmtd-lite exit code: %d\n", lite.stop());
        if (code != 0) {
            result = 1;
        }
    }
    std::filesystem::remove_all(dir);
    return result;
}
