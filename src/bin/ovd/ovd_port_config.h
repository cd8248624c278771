// What happens to a port when its stored configuration goes away.
#pragma once

#include "common.h"
#include "ovd_ports_cache.h"
#include "tstring.h"

// A port's configuration node was deleted, or the port changed SWID: the hardware goes back
// to the port's defaults (when the port exists) and the port's entry of
// ifindex_to_config_ht is reset in place (when there is one; the entry stays).  The reset
// values are width 5, mtu 4096, op_vls the port's default VL, speed not set, enable the
// state the port is left in, fec 0 (auto).
//
// enable_port: the port comes up again afterwards; disable_port: it is taken down first;
// check_config_exist: a missing configuration entry is worth a warning.
int handle_deleted_port_config(const tstring *ifindex, tbool port_exists, tbool config_exists,
                               ifindexInformation *port_info, tbool enable_port,
                               tbool check_config_exist, tbool disable_port);
