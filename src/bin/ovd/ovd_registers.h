// The daemon's own register accesses: a local port's SWID (PSPA), its InfiniBand port
// number (PLIB), and the system M_Key given to the driver for each device.
#pragma once

#include <stdint.h>

#include "common.h"
#include "vqd_access_reg.h"

// Text of a register library status, "Unknown return code" out of range.
const char *ovd_vqd_status_str(int status);

// Puts (SET) or reads (GET) a local port's SWID.  The access goes to the SWID given,
// so that an unmap addresses SWID 255.  A failure of the library gives 14000.
int ovd_set_get_pspa_reg(uint8_t dev_id, uint8_t swid_id, uint8_t sub_port, uint8_t local_port,
                         vqd_access_cmd_t cmd_type, vqd_completion_handler_t handler, void *context,
                         struct ku_pspa_reg *pspa_reg);

// Maps a local port of a device to an InfiniBand port number.  A failure gives 14000.
int map_ibport_to_localport(const uint8 device_id, const uint8 localport, const uint8 ibport);

// Gives the driver the system M_Key of a device.  Returns the library's status, which
// callers judge and report in their own way.
vqd_status_t ovd_write_system_m_key(uint8 dev_id, uint64 system_m_key);
