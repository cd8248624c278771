// Texts and values of a port's forward error correction: the active mode that PPLM
// reports, and the small value (auto, none, on) that configuration and the register
// record carry.
#pragma once

#include "common.h"
#include "tstring.h"

// The PPLM active FEC mode (one bit set), "N/A" for any other value.  *ret_ts must be
// null on entry.
int sa_port_prm_fec_to_tstr(tstring **ret_ts, uint32 fec_mode_active);

// The small FEC value of a configuration word or a display text: "auto" 0, "no-fec" and
// "No FEC" 1, "fec-on" and the FEC mode texts 2.  Anything else is
// lc_err_unexpected_case, with *fec_val left at 0.
int get_fec_val(const char *fec, uint8 *fec_val);
