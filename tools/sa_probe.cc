// sa-probe: opens the hardware context of one SWID and runs one query on it, printing
// the results as "Name:value" lines (PortInfo fields in libibmad's own names and
// renderings, so that they read like smpquery's).
//
//   sa-probe [-s SWID] portinfo PATH PORT   sa_get_port_info
//   sa-probe [-s SWID] nodeinfo PATH        sa_get_node_info
//   sa-probe [-s SWID] lid PATH             get_lid_by_drpath
//   sa-probe [-s SWID] checkpath PATH       check_dr_path
//   sa-probe [-s SWID] master               sa_is_master_sm_in_swid
//   sa-probe [-s SWID] sysfs TYPE           get_ib_fn
//   sa-probe [-s SWID] [-d DEV] counters PATH PORT [TIMES]
//                                           sa_get_port_cnt with the cache on, TIMES times
//   sa-probe [-s SWID] [-d DEV] extcounters PATH PORT
//                                           sa_get_ext_port_cnt with the cache on
//   sa-probe [-s SWID] [-d DEV] clear PATH PORT [ext]
//                                           sa_clear_port_cnt of all counters
//
// PATH is a direct route such as "0,35,1".  Every command also prints "status:" and the
// number of PortInfo SMPs it sent ("portinfo_queries:"); the log goes to stderr.
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "logging.h"
#include "sa_counters.h"
#include "sa_route.h"
#include "swidapi.h"

namespace {

int g_portinfo_queries = 0;

void usage()
{
    fprintf(stderr,
            "usage: sa-probe [-s SWID] portinfo PATH PORT | nodeinfo PATH | lid PATH |\n"
            "                checkpath PATH | master | sysfs TYPE |\n"
            "                [-d DEV] counters PATH PORT [TIMES] | [-d DEV] extcounters PATH PORT |\n"
            "                [-d DEV] clear PATH PORT [ext] | route LID | led PATH STATE\n");
    exit(2);
}

bool parse_path(const char *text, ib_dr_path_t *ret_path)
{
    *ret_path = {};
    std::string copy(text);
    return str2drpath(ret_path, copy.data(), 0, 0) >= 0;
}

void print_status(int status)
{
    printf("status:%d\n", status);
    printf("status_text:%s\n", sysapi_err2str(status));
}

// A PortInfo field as smpquery shows it.
void print_field(enum MAD_FIELDS field, uint32_t value)
{
    char text[256] = {};
    mad_dump_val(field, text, sizeof(text), &value);
    printf("%s:%s\n", mad_field_name(field), text);
}

void print_port_info(const sa_port_speed_state_t &ps)
{
    print_field(IB_PORT_LID_F, ps.lid);
    print_field(IB_PORT_LOCAL_PORT_F, ps.local_port_num);
    print_field(IB_PORT_LINK_WIDTH_ENABLED_F, ps.link_width_enabled);
    print_field(IB_PORT_LINK_WIDTH_SUPPORTED_F, ps.link_width_supported);
    print_field(IB_PORT_LINK_WIDTH_ACTIVE_F, ps.link_width_active);
    print_field(IB_PORT_LINK_SPEED_SUPPORTED_F, ps.link_speed_supported);
    print_field(IB_PORT_LINK_SPEED_ENABLED_F, ps.link_speed_enabled);
    print_field(IB_PORT_LINK_SPEED_ACTIVE_F, ps.link_speed_active);
    print_field(IB_PORT_STATE_F, ps.port_logical_state);
    print_field(IB_PORT_PHYS_STATE_F, ps.port_phy_state);
    print_field(IB_PORT_LINK_DOWN_DEF_F, ps.link_down_default_state);
    print_field(IB_PORT_MTU_CAP_F, ps.mtu_cap);
    print_field(IB_PORT_NEIGHBOR_MTU_F, ps.neighbor_mtu);
    print_field(IB_PORT_VL_CAP_F, ps.vl_cap);
    print_field(IB_PORT_OPER_VLS_F, ps.oper_vl);
}

}  // namespace

// Counts the PortInfo SMPs the library sends: this definition comes first in the lookup
// order, and hands every query on to libibmad's.
extern "C" uint8_t *smp_query_via(void *rcvbuf, ib_portid_t *portid, unsigned attrid, unsigned mod,
                                  unsigned timeout, const struct ibmad_port *srcport)
{
    using fn_t = uint8_t *(*)(void *, ib_portid_t *, unsigned, unsigned, unsigned, const struct ibmad_port *);
    static fn_t next = reinterpret_cast<fn_t>(dlsym(RTLD_NEXT, "smp_query_via"));
    if (attrid == IB_ATTR_PORT_INFO) {
        ++g_portinfo_queries;
    }
    return next != nullptr ? next(rcvbuf, portid, attrid, mod, timeout, srcport) : nullptr;
}

int main(int argc, char **argv)
{
    int swid = 0;
    int argi = 1;
    swidapi_t *ctx = nullptr;
    ib_dr_path_t path = {};
    int status = 0;
    int rc = 0;

    int dev = 1;
    if (argi + 1 < argc && strcmp(argv[argi], "-s") == 0) {
        swid = atoi(argv[argi + 1]);
        argi += 2;
    }
    if (argi + 1 < argc && strcmp(argv[argi], "-d") == 0) {
        dev = atoi(argv[argi + 1]);
        argi += 2;
    }
    if (argi >= argc) {
        usage();
    }
    const std::string cmd = argv[argi++];
    const int nargs = argc - argi;

    lc_log_init("sa-probe", nullptr, LCO_none, 0, LOG_DEBUG, LOG_LOCAL4, LCT_STDERR);
    lc_init();

    if (cmd == "sysfs") {
        char value[SA_SYSFS_VAL_MAX + 1] = {};
        const std::string swid_str = std::to_string(swid);
        if (nargs != 1) {
            usage();
        }
        rc = get_ib_fn(argv[argi], value, sizeof(value), swid_str.c_str());
        printf("err:%d\n", rc);
        printf("value:%s\n", value);
        lc_log_close();
        return 0;
    }

    rc = sa_init(&ctx, S_ZR4000, swid);
    if (rc != 0 || ctx == nullptr) {
        printf("init:%d\n", rc);
        lc_log_close();
        return 1;
    }
    printf("retries:%d\n", mad_get_retries(ctx->sport));

    if (cmd == "portinfo" && nargs == 2 && parse_path(argv[argi], &path)) {
        sa_port_speed_state_t ps = {};
        status = sa_get_port_info(ctx, 0, &path, atoi(argv[argi + 1]), &ps);
        print_status(status);
        if (status == SARC_OK) {
            print_port_info(ps);
        }
    } else if (cmd == "nodeinfo" && nargs == 1 && parse_path(argv[argi], &path)) {
        sa_node_info_t ni = {};
        status = sa_get_node_info(ctx, 0, &path, 0, &ni);
        print_status(status);
        printf("Guid:0x%016llx\n", static_cast<unsigned long long>(ni.node_guid));
        printf("node_lid:%u\n", ni.node_lid);
    } else if (cmd == "lid" && nargs == 1 && parse_path(argv[argi], &path)) {
        u_int16_t lid = 0xffff;
        status = get_lid_by_drpath(ctx, &path, &lid);
        print_status(status);
        printf("lid:%u\n", lid);
    } else if (cmd == "checkpath" && nargs == 1 && parse_path(argv[argi], &path)) {
        uint8_t failed = 0xff;
        status = check_dr_path(ctx, &path, &failed);
        print_status(status);
        printf("failed_port:%u\n", failed);
    } else if (cmd == "counters" && (nargs == 2 || nargs == 3) && parse_path(argv[argi], &path)) {
        sa_port_counters_t pc = {};
        u_int16_t lid = 0;
        const int times = nargs == 3 ? atoi(argv[argi + 2]) : 1;
        for (int k = 0; k < times; ++k) {
            status = sa_get_port_cnt(ctx, static_cast<vqd_dev_id_t>(dev), atoi(argv[argi + 1]),
                                     &path, &pc, true, &lid);
        }
        print_status(status);
        printf("lid:%u\n", lid);
        printf("xmit_data_bytes:%u\nrcv_data_bytes:%u\nxmit_pkts:%u\nrcv_pkts:%u\n"
               "xmit_wait:%u\nsymbol_err_cnt:%u\nrcv_err:%u\nlink_downed:%u\n",
               pc.xmit_data_bytes, pc.rcv_data_bytes, pc.xmit_pkts, pc.rcv_pkts, pc.xmit_wait,
               pc.symbol_err_cnt, pc.rcv_err, pc.link_downed);
    } else if (cmd == "extcounters" && nargs == 2 && parse_path(argv[argi], &path)) {
        sa_ext_port_counters_t pc = {};
        u_int16_t lid = 0;
        status = sa_get_ext_port_cnt(ctx, static_cast<vqd_dev_id_t>(dev), &path,
                                     atoi(argv[argi + 1]), &pc, true, &lid);
        print_status(status);
        printf("lid:%u\n", lid);
        printf("xmit_data_bytes:%llu\nrcv_data_bytes:%llu\nxmit_pkts:%llu\nrcv_pkts:%llu\n",
               static_cast<unsigned long long>(pc.xmit_data_bytes),
               static_cast<unsigned long long>(pc.rcv_data_bytes),
               static_cast<unsigned long long>(pc.xmit_pkts),
               static_cast<unsigned long long>(pc.rcv_pkts));
    } else if (cmd == "clear" && (nargs == 2 || nargs == 3) && parse_path(argv[argi], &path)) {
        u_int16_t lid = 0;
        status = sa_clear_port_cnt(ctx, static_cast<vqd_dev_id_t>(dev), &path,
                                   atoi(argv[argi + 1]), nargs == 3, 0xFFFFFFFFu, &lid);
        print_status(status);
        printf("lid:%u\n", lid);
    } else if (cmd == "route" && nargs == 1) {
        const int route = sa_check_lid_route(ctx, static_cast<u_int16_t>(atoi(argv[argi])));
        printf("route:%d\nroute_text:%s\n", route, lidroute_err2str(route));
    } else if (cmd == "led" && nargs == 2 && parse_path(argv[argi], &path)) {
        sa_led_control_t leds = {};
        const int state = atoi(argv[argi + 1]);
        memset(leds.data, state * 16 | state, sizeof(leds.data));
        leds.path = path;
        status = sa_set_port_led(ctx, &leds);
        print_status(status);
    } else if (cmd == "master" && nargs == 0) {
        int master_up = -1;
        status = sa_is_master_sm_in_swid(ctx, &master_up, 5000);
        print_status(status);
        printf("master_up:%d\n", master_up);
        printf("retries_after:%d\n", mad_get_retries(ctx->sport));
    } else {
        sa_destroy(&ctx);
        usage();
    }
    printf("portinfo_queries:%d\n", g_portinfo_queries);
    fflush(stdout);
    sa_destroy(&ctx);
    lc_log_close();
    return 0;
}
