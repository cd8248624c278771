// The /ib/state monitoring tree: the get callback of the monitoring dispatch.
#pragma once

#include "bnode.h"
#include "common.h"
#include "tstr_array.h"

// Answers one node name with at most one binding, appended to resp_bindings.  A name
// under none of the served roots has no answer and is no error.
int ovd_mon_handle_get(const char *bname, const tstr_array *bname_parts, void *data,
                       bn_binding_array *resp_bindings);
