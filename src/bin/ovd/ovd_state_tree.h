// The /ib/state monitoring tree: the get callback of the monitoring dispatch and the
// lists of its two wildcard levels.  Neither holds data: they parse the name, check the
// identifiers in it and hand over to the producer that knows the value.
#pragma once

#include "bnode.h"
#include "common.h"
#include "tstr_array.h"

// Answers one node name with at most one binding, appended to resp_bindings.  A name
// under none of the served roots has no answer and is no error.
int ovd_mon_handle_get(const char *bname, const tstr_array *bname_parts, void *data,
                       bn_binding_array *resp_bindings);

// The devices in use by decimal id: under /ib/state/devid sorted as text ("10" before
// "9"), under the levels of /ib/state/swid/ sorted as numbers.  The name is not read: the
// same devices stand under every SWID.
int ovd_iterate_devices(const char *bname, const tstr_array *bname_parts, tstr_array *resp_names);
int ovd_iterate_switch_slots_nodes(const char *bname, const tstr_array *bname_parts,
                                   tstr_array *resp_names);
