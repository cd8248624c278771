// The daemon's core: its globals, start-up, main loop and exit.
#pragma once

#include "common.h"
#include "libevent_wrapper.h"

#define OVD_NUM_SIGNALS 5

extern const char ovd_program_name[];
extern lew_context *ovd_lwc;
extern tbool ovd_exiting;
extern const int ovd_signals_handled[OVD_NUM_SIGNALS];
extern lew_event *ovd_event_signals[OVD_NUM_SIGNALS];
extern int t_level;

int ovd_init(void);
int ovd_main_loop(void);
int ovd_deinit(void);
int ovd_handle_signal(int signum, short ev_type, void *data, lew_context *ctxt);
int ovd_initiate_exit(void);

// Texts of the hardware layer's result codes.
const char *sysapi_err2str(int code);
const char *lidroute_err2str(int code);
