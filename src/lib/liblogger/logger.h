// The log callback of the register-access library, and the setting of a module's log
// level from a configuration node.
#pragma once

#include "bnode.h"
#include "common.h"
#include "tstr_array.h"
#include "vqd_access_reg.h"

// Logs a message of the register library at the level matching its severity:
// error 3, warning 4, notice 5, information 6, anything else 7.
void log_cb(vq_log_severity_t severity, const char *module_name, char *msg);

// Applies a node ".../<module>/<leaf>" of 5 or 6 name parts whose uint8 value is a log
// level: stores it in *ret_level.  A name of another length is logged and ignored.
int logger_change_log_level(const char *bname, const tstr_array *bname_parts, const bn_binding *binding,
                            uint8 *ret_level);
