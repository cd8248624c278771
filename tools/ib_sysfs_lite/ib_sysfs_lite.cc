// ib-sysfs-lite: writes, for machines without the InfiniBand driver, what the driver would
// show of a SWID device's port 0 in sysfs, as the subnet manager has set it up:
//
//     <root>/vq_ib_<swid>/ports/0/lid        "0x1"
//     <root>/vq_ib_<swid>/ports/0/sm_lid     "0x1"
//     <root>/vq_ib_<swid>/ports/0/gids/0     "fe80:0000:0000:0000:0200:0000:0000:0001"
//
// It runs as a client of the (simulated) fabric and asks its own node by management
// datagrams over the empty direct route: PortInfo of the port for the LID, the subnet
// manager's LID and the subnet prefix, NodeInfo for the port GUID.  The texts are the
// driver's: LIDs in hex with "0x", the GID as eight groups of four hex digits.
//
//   ib-sysfs-lite --root DIR [--swid N] [--port P] [--ca NAME] [--ca-port N]
//
// --port is the port whose PortInfo is read (0 for a switch's management port, the
// default); --ca and --ca-port choose the local device (the first one by default).
// Each file is written beside its place and renamed over it, so that a reader never sees
// half a value.  Exit status 0 on success, 1 when a query fails, 2 on bad usage.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <infiniband/mad.h>

#include <string>

namespace {

void usage()
{
    fprintf(stderr, "usage: ib-sysfs-lite --root DIR [--swid N] [--port P] [--ca NAME] "
                    "[--ca-port N]\n");
    exit(2);
}

bool make_dirs(const std::string &path)
{
    for (size_t at = 1; at <= path.size(); ++at) {
        if (at == path.size() || path[at] == '/') {
            const std::string part = path.substr(0, at);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
                fprintf(stderr, "ib-sysfs-lite: mkdir %s: %s\n", part.c_str(), strerror(errno));
                return false;
            }
        }
    }
    return true;
}

bool write_value(const std::string &path, const std::string &text)
{
    const std::string tmp = path + ".new";
    FILE *fp = fopen(tmp.c_str(), "w");
    if (fp == nullptr) {
        fprintf(stderr, "ib-sysfs-lite: %s: %s\n", tmp.c_str(), strerror(errno));
        return false;
    }
    const bool written = fprintf(fp, "%s\n", text.c_str()) > 0;
    if (fclose(fp) != 0 || !written || rename(tmp.c_str(), path.c_str()) != 0) {
        fprintf(stderr, "ib-sysfs-lite: %s: %s\n", path.c_str(), strerror(errno));
        return false;
    }
    return true;
}

// "fe80:0000:...": the GID's 16 bytes, most significant first, in groups of two.
std::string gid_text(uint64_t prefix, uint64_t guid)
{
    char out[64] = {};
    size_t len = 0;
    for (int half = 0; half < 2; ++half) {
        const uint64_t v = half == 0 ? prefix : guid;
        for (int group = 3; group >= 0; --group) {
            len += static_cast<size_t>(snprintf(out + len, sizeof(out) - len, "%s%04x",
                                                len == 0 ? "" : ":",
                                                static_cast<unsigned>((v >> (group * 16)) & 0xffff)));
        }
    }
    return out;
}

}  // namespace

int main(int argc, char **argv)
{
    std::string root;
    std::string swid = "0";
    const char *ca = nullptr;
    int ca_port = 0;
    int port = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc) {
            usage();
        }
        if (arg == "--root") {
            root = argv[++i];
        } else if (arg == "--swid") {
            swid = argv[++i];
        } else if (arg == "--port") {
            port = atoi(argv[++i]);
        } else if (arg == "--ca") {
            ca = argv[++i];
        } else if (arg == "--ca-port") {
            ca_port = atoi(argv[++i]);
        } else {
            usage();
        }
    }
    if (root.empty() || swid.empty() || swid.find('/') != std::string::npos) {
        usage();
    }

    int classes[] = {IB_SMI_CLASS, IB_SMI_DIRECT_CLASS};
    struct ibmad_port *mad_port = mad_rpc_open_port(const_cast<char *>(ca), ca_port, classes, 2);
    if (mad_port == nullptr) {
        fprintf(stderr, "ib-sysfs-lite: cannot open the MAD port\n");
        return 1;
    }

    // The empty direct route: the node we are attached to.
    ib_portid_t self = {};
    uint8_t pi[IB_SMP_DATA_SIZE] = {};
    uint8_t ni[IB_SMP_DATA_SIZE] = {};
    const bool ok =
        smp_query_via(pi, &self, IB_ATTR_PORT_INFO, static_cast<unsigned>(port), 0, mad_port) != nullptr &&
        smp_query_via(ni, &self, IB_ATTR_NODE_INFO, 0, 0, mad_port) != nullptr;
    mad_rpc_close_port(mad_port);
    if (!ok) {
        fprintf(stderr, "ib-sysfs-lite: PortInfo or NodeInfo query failed\n");
        return 1;
    }

    uint32_t lid = 0;
    uint32_t sm_lid = 0;
    uint64_t prefix = 0;
    uint64_t port_guid = 0;
    mad_decode_field(pi, IB_PORT_LID_F, &lid);
    mad_decode_field(pi, IB_PORT_SMLID_F, &sm_lid);
    mad_decode_field(pi, IB_PORT_GID_PREFIX_F, &prefix);
    mad_decode_field(ni, IB_NODE_PORT_GUID_F, &port_guid);

    char lid_text[16] = {};
    char sm_lid_text[16] = {};
    snprintf(lid_text, sizeof(lid_text), "0x%x", lid);
    snprintf(sm_lid_text, sizeof(sm_lid_text), "0x%x", sm_lid);

    const std::string dir = root + "/vq_ib_" + swid + "/ports/0";
    if (!make_dirs(dir + "/gids") || !write_value(dir + "/lid", lid_text) ||
        !write_value(dir + "/sm_lid", sm_lid_text) ||
        !write_value(dir + "/gids/0", gid_text(prefix, port_guid))) {
        return 1;
    }
    printf("lid %s\nsm_lid %s\ngid %s\n", lid_text, sm_lid_text,
           gid_text(prefix, port_guid).c_str());
    return 0;
}
