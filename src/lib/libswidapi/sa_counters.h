// Port counters: the PortCounters and PortCountersExtended attributes of Performance
// Management, read and cleared over a LID route.  The LID of the device last looked up
// is kept in the SWID's context (cnt_dev_id, cnt_portid), so that reading the ports of one
// device costs one path lookup.
#pragma once

#include "swidapi.h"

typedef struct _sa_port_counters {
    u_int32_t xmit_data_bytes;  // bytes: the hardware counts in units of four, saturating
    u_int32_t rcv_data_bytes;   // the same
    u_int32_t xmit_pkts;
    u_int32_t rcv_pkts;
    u_int32_t xmit_wait;
    u_int16_t symbol_err_cnt;
    u_int16_t rcv_err;
    u_int16_t rcv_rem_phys_err;
    u_int16_t rcv_switch_relay_err;
    u_int16_t xmit_discards;
    u_int16_t vl15_dropped;
    u_int8_t xmit_constraint_err;
    u_int8_t rcv_constraint_err;
    u_int8_t link_integrity;
    u_int8_t excess_buf_overrun;
    u_int8_t link_err_recover;
    u_int8_t link_downed;
} sa_port_counters_t;

typedef struct _sa_ext_port_counters {
    u_int64_t xmit_data_bytes;  // bytes, saturating as above
    u_int64_t rcv_data_bytes;
    u_int64_t xmit_pkts;
    u_int64_t rcv_pkts;
    u_int64_t unicast_xmit_pkts;
    u_int64_t unicast_rcv_pkts;
    u_int64_t multicast_xmit_pkts;
    u_int64_t multicast_rcv_pkts;
} sa_ext_port_counters_t;

// The time-out of one counter datagram, in milliseconds.
#define SA_CNT_MAD_TIMEOUT_MS 100

// The LID-routed port of the device: from the cache when use_module_cache is true and the
// cache holds dev_id, else looked up over dr_path (whose failure passes up).  *ret_lid is
// the LID used; a null ret_lid is SARC_ERROR.
int update_cnt_cache(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path,
                     bool use_module_cache, u_int16_t *ret_lid);

// The plain counters of a port.  A send on a cached LID that gets no reply looks the LID
// up once more and tries again.  Note the order of ib_port and dr_path, which differs
// between this and the two below.
int sa_get_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, int ib_port, ib_dr_path_t *dr_path,
                    sa_port_counters_t *pc, bool use_module_cache, u_int16_t *ret_lid);
// The extended counters, the same way.
int sa_get_ext_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                        sa_ext_port_counters_t *pc, bool use_module_cache, u_int16_t *ret_lid);
// Clears the counters counter_select names (all ones: all of them), of the extended set
// or the plain one; the LID is always looked up anew.
int sa_clear_port_cnt(swidapi_t *sa_ctx, vqd_dev_id_t dev_id, ib_dr_path_t *dr_path, int ib_port,
                      int is_extended, unsigned int counter_select, u_int16_t *ret_lid);

// The byte counters' scaling: four times the raw count, or all ones when the product
// would not fit (either of the raw value's top two bits set).
u_int32_t sa_cnt_bytes32(u_int32_t raw);
u_int64_t sa_cnt_bytes64(u_int64_t raw);
