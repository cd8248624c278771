// What the daemon learns from the configuration tree: read at start, replayed once, and
// followed through configuration-change events.
#pragma once

#include "bnode.h"
#include "common.h"
#include "tstr_array.h"
#include "tstring.h"

// Start-up reads: host name, virtual PAOS base, and the ib0 interface node (created with a
// default MTU when missing).
int ovd_query_config(void);

// Walks the stored port configuration, internal ports first, as if every node had just
// changed.
int ovd_query_port_config(void);

// The foreach callback of a change: `data` is the old binding array, or null in the replay.
int ovd_handle_change(const bn_binding_array *arr, uint32 idx, bn_binding *binding, void *data);

// A node under /ib/config/: a port leaf goes to its attribute handler.
int ovd_handle_config_node(const tstring *bname, tstr_array *bname_parts, bn_binding *binding,
                           const bn_binding_array *old_arr);

// A new host name: stored, and written into every device's node description.
int ovd_handle_hostname_change_event(const tstring *bname, tstr_array *bname_parts,
                                     bn_binding *binding, const bn_binding_array *old_arr);
