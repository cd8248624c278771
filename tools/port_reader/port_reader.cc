// The external ports through /ib/state.
#include "port_reader.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "bnode.h"
#include "bnode_proto.h"
#include "gcl.h"
#include "logging.h"

namespace port_reader {

namespace {

const char pr_family[] = "/ib/state/externalports";
const char pr_swid_config[] = "/portd/config/ifindex";
// Asked beside all_data, which doesn't carry them.
const char *const pr_extra[] = {"speed", "operational_vl", "fec"};

bool pr_numeric_less(const std::string &a, const std::string &b)
{
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

}  // namespace

const std::string &pr_port::field(const std::string &name) const
{
    static const std::string empty;
    const auto it = fields.find(name);
    return it == fields.end() ? empty : it->second;
}

unsigned long long pr_port::counter(const std::string &name) const
{
    return strtoull(field(name).c_str(), nullptr, 10);
}

void pr_parse_all_data(const std::string &text, std::map<std::string, std::string> *fields)
{
    size_t start = 0;
    while (start < text.size()) {
        const size_t end = std::min(text.find(';', start), text.size());
        const std::string item = text.substr(start, end - start);
        const size_t colon = item.find(':');
        if (colon != std::string::npos && colon > 0) {
            (*fields)[item.substr(0, colon)] = item.substr(colon + 1);
        }
        start = end + 1;
    }
}

double pr_rate_bps(const std::string &rate)
{
    char *end = nullptr;
    const double value = strtod(rate.c_str(), &end);
    if (end == rate.c_str() || value <= 0) {
        return 0;
    }
    return value * 1e9;
}

int pr_state_code(const std::string &state)
{
    static const char *const names[] = {"Down", "Initialize", "Armed", "Active"};
    for (int i = 0; i < 4; ++i) {
        if (state == names[i]) {
            return i + 1;
        }
    }
    return 0;
}

int pr_physical_state_code(const std::string &physical_state)
{
    static const char *const names[] = {"Sleep",    "Polling",           "Disabled",
                                        "PortConfigurationTraining", "LinkUp",
                                        "LinkErrorRecovery", "Phy Test",
                                        "Disabled By Chassis Manager"};
    for (int i = 0; i < 8; ++i) {
        if (physical_state == names[i]) {
            return i + 1;
        }
    }
    return 0;
}

bool pr_mgmtd_reachable()
{
    sockaddr_storage addr = {};
    socklen_t addr_len = 0;
    if (gcl_session_auto_sockaddr(nullptr, gcl_provider_mgmtd, true, AF_UNIX, &addr, &addr_len) !=
        0) {
        return false;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    const bool ok = connect(fd, reinterpret_cast<const sockaddr *>(&addr), addr_len) == 0;
    close(fd);
    return ok;
}

int pr_list_ports(md_client_context *mcc, std::vector<std::string> *ret_ifindexes,
                  uint32 *ret_code)
{
    int err = 0;
    bn_binding_array *bindings = nullptr;
    const std::string prefix = std::string(pr_family) + "/";

    bail_null(ret_ifindexes);
    bail_null(ret_code);
    ret_ifindexes->clear();
    err = mdc_get_binding_children(mcc, ret_code, nullptr, false, &bindings, false, false,
                                   pr_family, nullptr);
    bail_error_quiet(err);
    for (uint32 i = 0; bindings != nullptr && i < bn_binding_array_length_quick(bindings); ++i) {
        const bn_binding *b = bn_binding_array_get_quick(bindings, i);
        const std::string name = b != nullptr ? ts_str(b->bn_node_name) : "";
        if (name.compare(0, prefix.size(), prefix) == 0 &&
            name.find('/', prefix.size()) == std::string::npos) {
            ret_ifindexes->push_back(name.substr(prefix.size()));
        }
    }
    std::sort(ret_ifindexes->begin(), ret_ifindexes->end(), pr_numeric_less);

bail:
    bn_binding_array_free(&bindings);
    return err;
}

int pr_read_port(md_client_context *mcc, const std::string &ifindex, pr_port *ret_port,
                 uint32 *ret_code)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_binding_array *bindings = nullptr;
    const std::string base = std::string(pr_family) + "/" + ifindex + "/";

    bail_null(ret_port);
    bail_null(ret_code);
    *ret_port = pr_port{};
    ret_port->ifindex = ifindex;
    err = bn_query_request_msg_create(&req, 0, nullptr);
    bail_error(err);
    err = bn_query_request_msg_append_str(req, bqso_get, 0, (base + "all_data").c_str(), nullptr);
    bail_error(err);
    for (const char *extra : pr_extra) {
        err = bn_query_request_msg_append_str(req, bqso_get, 0, (base + extra).c_str(), nullptr);
        bail_error(err);
    }
    // The port's SWID as the port manager's configuration gives it, where it does.
    err = bn_query_request_msg_append_str(req, bqso_get, 0,
                                          (std::string(pr_swid_config) + "/" + ifindex + "/swid").c_str(),
                                          nullptr);
    bail_error(err);
    err = mdc_send_mgmt_msg(mcc, req, false, &bindings, ret_code, nullptr);
    bail_error_quiet(err);
    for (uint32 i = 0; bindings != nullptr && i < bn_binding_array_length_quick(bindings); ++i) {
        const bn_binding *b = bn_binding_array_get_quick(bindings, i);
        char *value = nullptr;
        if (b == nullptr || bn_binding_get_str(b, ba_value, bt_NONE, nullptr, &value) != 0 ||
            value == nullptr) {
            free(value);
            continue;
        }
        const std::string name = ts_str(b->bn_node_name);
        const std::string leaf = name.substr(name.rfind('/') + 1);
        if (name.compare(0, strlen(pr_swid_config), pr_swid_config) == 0) {
            ret_port->fields["swid"] = value;
        } else if (leaf == "all_data") {
            pr_parse_all_data(value, &ret_port->fields);
            ret_port->answered = true;
        } else {
            ret_port->fields[leaf] = value;
        }
        free(value);
    }

bail:
    bn_binding_array_free(&bindings);
    bn_request_msg_free(&req);
    return err;
}

}  // namespace port_reader
