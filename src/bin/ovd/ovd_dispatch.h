// Management requests: the query, action, event and session-close callbacks handed to the
// client wrapper, the name tables that route them to their handlers, and two small helpers
// of the flows.
#pragma once

#include <initializer_list>

#include "bnode_proto.h"
#include "bnode_session.h"
#include "common.h"
#include "fdintrcb.h"
#include "gcl.h"

// The three request callbacks.  Each owns the copies it extracts from the request and
// frees them on every path; the request stays the caller's.  A null request is 14001.
int ovd_handle_query_request(gcl_session *sess, bn_request **inout_request, void *arg);
int ovd_handle_action_request(gcl_session *sess, bn_request **inout_request, void *arg);
int ovd_handle_event_request(gcl_session *sess, bn_request **inout_request, void *arg);

// The session's descriptor closed: unless the daemon is already going down, it goes down.
int ovd_handle_session_close(int fd, fdic_callback_type cbt, void *vsess, void *gsec_arg);

// Children of the two wildcard levels the daemon owns: device ids under /ib/state/devid
// (sorted as text) and under /ib/state/swid/ (sorted as numbers).  Other names have none.
int ovd_handle_iterate(const char *bname, const tstr_array *bname_parts, void *data,
                       tstr_array *resp_names);

// All leaves under nodes_tree in the running database, with their name parts.
int util_get_bindings_children(bn_binding_array **bindings, const char *nodes_tree);

// Appends one binding to an event: named `name`, or "<name>_<index>" for a non-zero index,
// holding the low bits of `value` that the type takes (uint8, uint32, uint64, tbool).
// One value of an event that ovd_send_event_values builds.
struct ovd_event_value {
    const char *name;
    bn_type type;
    uint64 value;
};

// Sends an event of the named values, in their order, through the daemon's event sender.
int ovd_send_event_values(const char *event_name, std::initializer_list<ovd_event_value> values);

int ovd_add_value(bn_request *req, const char *name, int name_index, bn_type type,
                  uint64 value);
// The tail of every done event of the enable family: status, dev_id, port_num, operation,
// and daemon, this daemon's id among those the port manager waits for.
int ovd_add_done_values(bn_request *req, uint32 status, uint32 dev_id, uint32 port_num,
                        uint8 operation);
