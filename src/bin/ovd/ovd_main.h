// The daemon's core: its globals, start-up, main loop and exit.
#pragma once

#include "bnode.h"
#include "common.h"
#include "libevent_wrapper.h"
#include "mdc_main.h"
#include "swidapi.h"
#include "tstr_array.h"
#include "tstring.h"
#include "ttime.h"

#define OVD_NUM_SIGNALS 5

extern const char ovd_program_name[];
extern lew_context *ovd_lwc;
// The one session with the management daemon, for the whole life of the process.
extern md_client_context *ovd_mcc;
// Our client name on that session.
extern const char gcl_client_ovd[];
extern tbool ovd_exiting;
extern const int ovd_signals_handled[OVD_NUM_SIGNALS];
extern lew_event *ovd_event_signals[OVD_NUM_SIGNALS];
extern int t_level;

// System identity and state, filled at start-up and by the first device-add event.
extern tstring *g_sys_disp;
extern uint32 g_sys_type;
extern uint32 system_type;
extern uint64 system_image_guid;
extern uint64 system_node_guid;
extern uint8 g_system_profile;
extern tstring *g_part_number;
extern tbool g_handled_enable_port_event;
extern tbool g_handled_ekey_blade_ready_event;
extern tbool readPortSpeedsFile;
extern uint32 master_devid;

// Failure injection.
extern tbool g_debug_mode;
extern tstring *g_devid_str_debug_mode;
extern uint32 g_number_of_times_to_fail;

extern uint8 g_virtual_paos_lcl_port;
extern tbool g_ignore_all_db_changes;
extern lt_time_ms g_system_configured_done_time_ms;
extern lt_time_sec g_config_node_timeout_sec;

// Seconds that local links get to settle when the configuration says nothing.
static constexpr lt_time_sec ovd_default_settle_time_sec = 150;

int ovd_init(void);
// Opens the session and declares interest in the sixteen events the daemon serves.
int ovd_mgmt_init(void);
// Tells the port manager that the daemon is up.
int ovd_send_init_done_event(uint32 status);
// Start-up readers.  A missing system type or profile is 14008.
int ovd_read_system_type(uint32 *ret_val);
int ovd_read_system_profile(uint8 *ret_sys_profile);
int ovd_read_part_number_type(tstring **ret_part_number);
// Sets g_config_node_timeout_sec from the configuration, once.
int ovd_read_locallinks_time_to_settle(void);
// Monitoring leaves of the state tree.
int get_is_initializing_status(const char *node_name, const tstr_array *bname_parts,
                               bn_binding **ret_binding);
int get_locallinks_settled_status(const char *node_name, const tstr_array *bname_parts,
                                  bn_binding **ret_binding);
int ovd_main_loop(void);
int ovd_deinit(void);
int ovd_handle_signal(int signum, short ev_type, void *data, lew_context *ctxt);
int ovd_initiate_exit(void);
// What every exit path runs last: releases what is left, logs the exit code and ends
// the process with it.
[[noreturn]] void ovd_exit_tail(int err);

