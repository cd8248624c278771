// mgmtd-lite [--sock-root PREFIX] [--config FILE] [--registration FILE]
//            [--forward-timeout SECONDS] [--relay-all-events] [--quiet-queries] [--verbose]
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

#include "logging.h"
#include "mgmtd_lite.h"

namespace {

void ml_usage(FILE *out)
{
    fprintf(out,
            "usage: mgmtd-lite [--sock-root PREFIX] [--config FILE] [--registration FILE]\n"
            "                  [--forward-timeout SECONDS] [--relay-all-events] [--quiet-queries]\n"
            "                  [--verbose]\n"
            "  --sock-root PREFIX         directory put in front of " GCL_SOCK_DIR "\n"
            "  --config FILE              bindings to load, one 'NAME TYPE VALUE' a line\n"
            "  --registration FILE        nodes of the owner's tree, one name a line,\n"
            "                             'client NAME' names the owner (default '" ML_DEFAULT_OWNER
            "')\n"
            "  --forward-timeout SECONDS  wait for the owner's answer (default 5)\n"
            "  --relay-all-events         relay every event to every other client, whether\n"
            "                             it declared interest or not\n"
            "  --quiet-queries            don't log queries, their forwarding and answers\n"
            "  --verbose                  log the libraries' lines down to debug level\n");
}

// Makes every directory of `path`.
int ml_mkdirs(const std::string &path)
{
    int err = 0;

    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos == path.size() || path[pos] == '/') {
            const std::string dir = path.substr(0, pos);
            if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
                bail_errno(lc_err_io_error, "mkdir %s", dir.c_str());
            }
        }
    }

bail:
    return err;
}

}  // namespace

int main(int argc, char **argv)
{
    int err = 0;
    int exit_code = 0;
    ml_server srv;
    const char *sock_root = nullptr;
    const char *config_path = nullptr;
    const char *reg_path = nullptr;
    double forward_timeout = ml_forward_timeout_default_ms / 1000.0;
    tbool verbose = false;
    char *end = nullptr;

    srv.ms_forward_timeout_ms = ml_forward_timeout_default_ms;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const tbool has_value = i + 1 < argc;
        if (arg == "--sock-root" && has_value) {
            sock_root = argv[++i];
        } else if (arg == "--config" && has_value) {
            config_path = argv[++i];
        } else if (arg == "--registration" && has_value) {
            reg_path = argv[++i];
        } else if (arg == "--forward-timeout" && has_value) {
            forward_timeout = strtod(argv[++i], &end);
            if (end == argv[i] || *end != '\0' || forward_timeout <= 0) {
                fprintf(stderr, "mgmtd-lite: bad --forward-timeout '%s'\n", argv[i]);
                return ml_exit_bad_input;
            }
        } else if (arg == "--verbose") {
            verbose = true;
        } else if (arg == "--relay-all-events") {
            srv.ms_relay_all_events = true;
        } else if (arg == "--quiet-queries") {
            srv.ms_quiet_queries = true;
        } else if (arg == "--help" || arg == "-h") {
            ml_usage(stdout);
            return 0;
        } else {
            fprintf(stderr, "mgmtd-lite: bad argument '%s'\n", arg.c_str());
            ml_usage(stderr);
            return ml_exit_bad_input;
        }
    }
    srv.ms_forward_timeout_ms = static_cast<lt_dur_ms>(forward_timeout * 1000);

    lc_log_init("mgmtd-lite", nullptr, LCO_none, 0, verbose ? LOG_DEBUG : LOG_WARNING,
                LOG_LOCAL4, LCT_STDERR);
    signal(SIGPIPE, SIG_IGN);

    if (config_path != nullptr && ml_db_load_file(&srv.ms_db, config_path) != 0) {
        exit_code = ml_exit_bad_input;
        goto done;
    }
    if (reg_path != nullptr) {
        if (ml_registration_load_file(&srv.ms_reg, reg_path) != 0) {
            exit_code = ml_exit_bad_input;
            goto done;
        }
    } else {
        srv.ms_reg.mr_owner = ML_DEFAULT_OWNER;
    }
    ml_log_line("%zu bindings loaded, %zu names registered for '%s'", srv.ms_db.mdb_nodes.size(),
                srv.ms_reg.mr_names.size(), srv.ms_reg.mr_owner.c_str());

    err = gcl_set_sock_root_prefix(sock_root);
    if (err == 0) {
        err = ml_mkdirs(std::string(sock_root != nullptr ? sock_root : "") + GCL_SOCK_DIR);
    }
    if (err == 0) {
        err = ml_server_init(&srv);
    }
    if (err == 0) {
        err = ml_server_run(&srv);
    }
    if (err != 0) {
        fprintf(stderr, "mgmtd-lite: failed: %s (%d)\n",
                lc_enum_to_string_quiet(lc_error_code_map, static_cast<uint32>(err)), err);
        exit_code = 1;
    }
    complain_error(ml_server_deinit(&srv));
    if (exit_code == 0) {
        ml_log_line("exiting");
    }

done:
    lc_log_close();
    return exit_code;
}
