// Small pieces of the management client: taking apart the configuration-change event.
#pragma once

#include "bnode.h"
#include "common.h"
#include "tstr_array.h"

// The event by which the management daemon announces changes of its database.
inline constexpr char mdc_event_dbchange[] = "/mgmtd/notify/dbchange";

// Takes apart the bindings of a configuration-change event.  The event carries one group
// per changed node, under "/mgmtd/notification/dbchange/<n>": "change_type" ("add",
// "delete", "modify" or "unspecified"), "name" (the changed node) and, as they apply,
// "new_attribs/value" and "prev_attribs/value".  notif_bindings is sorted in place.
//   ret_old_bindings    the previous values of deleted and modified nodes
//   ret_new_bindings    the new values of added and modified nodes; a deleted node shows
//                       here as a binding of its old type with btf_deleted | btf_no_value
//                       and no value
//   ret_unspec_changes  the names of nodes changed in an unspecified way
// Every binding handed out is named by the changed node.  Any output may be null, and then
// that part isn't built.  An unknown change type is logged and skipped; a group that lacks
// its type or name, or whose values don't fit its type, fails the call with nothing handed
// out.
int mdc_event_config_change_notif_extract(bn_binding_array *notif_bindings,
                                          bn_binding_array **ret_old_bindings,
                                          bn_binding_array **ret_new_bindings,
                                          tstr_array **ret_unspec_changes);
