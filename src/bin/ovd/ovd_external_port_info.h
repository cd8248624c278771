// Live information of an external port: one attribute at a time, from a one-port cache
// that is filled once per five-second interval with the port's registers, its PortInfo
// and its counters; with the guards against failing routes around the counters.
#pragma once

#include "bnode.h"
#include "mdc_main.h"
#include "ovd_ports_cache.h"
#include "sa_registers.h"
#include "swidapi.h"
#include "tstr_array.h"
#include "ttime.h"

// Length of one interval of the cache, in milliseconds.
#define OVD_PORT_INFO_INTERVAL_MS 5000
// How long a recorded counter failure counts, and how many of them stop the counters.
#define OVD_PORT_TIMEOUTS_WINDOW_MS 60000
#define OVD_PORT_TIMEOUTS_RING 10
// How long counters stay blocked after a broken LID route.
#define OVD_COUNTERS_BLOCK_SEC 50

// The guards, process-wide.
extern tbool is_sm_connected;
extern lt_dur_ms time_out;
extern lt_dur_ms g_ports_timeouts[OVD_PORT_TIMEOUTS_RING];
extern uint16 g_ports_timeouts_index;

// The number of the current interval: it steps on the first call more than 5000 ms after
// its last step.
int get_request_count(void);
// Counter failures recorded within the last minute.
uint32 get_port_timeouts(void);

// The three registers of a port that the live caches read, in their order (PMTU, PTYS for
// InfiniBand, PVLC); a failure is logged and ends the reads.
int ovd_read_port_registers(const ifindexInformation *port, pmtu_reg_t *ret_pmtu,
                            ptys_reg_t *ret_ptys, pvlc_reg_t *ret_pvlc);

// A port the user switched off never reads as polling: PortInfo's physical state 2
// becomes 3 when the port's configuration (by its ifindex) has enable 0.
int ovd_read_disabled_not_polling(const tstring *ifindex, sa_port_speed_state_t *inout_result);

// One attribute of an external port, named as the state tree names it (ifindex in part
// num_parts - 2, the attribute in part 4).  *ret_binding stays null without an answer,
// which may come with 0.
int get_external_port_info(const char *node_name, const tstr_array *bname_parts,
                           bn_binding **ret_binding, ifindexInformation *ret_val_from_ib_ports_ht);

// A uint8 configuration value of a port read back from the management daemon: under
// /ib/config/externalports/<ifindex>/ when direction is non-zero, else internalports.
int getPortAttributeInfo(uint8 *ret_data, uint8 direction, const char *attribute, uint32 ifindex);

// The daemon's management session.
md_client_context *ovd_get_mcc(void);
