// The byte form of a bnode message body: a request or response with its nodes, bindings
// and attributes laid into a tbuf, and read back.  Pure data conversion, no I/O.
//
// Layout (all integers big-endian).  extra_header_space bytes come first and are left for
// the session layer's frame header.  Then the message header (bn_request_header_wire or
// bn_response_header_wire; a response adds its return code and counted return message),
// a uint32 node count, the nodes, and the body of the message's kind.  A node is its id
// (uint32), a byte saying whether the name is absolute, the name parts as a counted
// string array, a uint32 attribute count, the attributes (bnode_types_wire.h) and the
// per-node settings of the message's kind.  A counted string is a uint32 length and that
// many bytes; a string array is a uint32 count and that many counted strings.
//
// Reading checks every count, length and type against the bytes that remain, and refuses
// trailing bytes; a failure gives an error code and a null message, never a partial one.
#pragma once

#include "bnode_proto.h"
#include "common.h"
#include "tbuffer.h"

// The room the session layer needs in front of a body for its frame header.
static constexpr uint32 bn_wire_gcl_header_space = 32;

// The headers as they lie in the frame.  The serialiser fills them in host order and
// swaps them into network order before writing; the reader swaps them back.
struct bn_request_header_wire {
    uint16 brhw_service_id;      // bap_service_id
    uint16 brhw_msg_type;        // bn_msg_type
    uint32 brhw_length;          // the whole buffer, extra_header_space included
    uint32 brhw_msg_id;
    uint32 brhw_transaction_id;
};

struct bn_response_header_wire {
    uint16 brshw_service_id;
    uint16 brshw_msg_type;
    uint32 brshw_length;
    uint32 brshw_msg_id;
    uint32 brshw_transaction_id;
    uint32 brshw_req_msg_id;     // the brhw_msg_id of the request answered
};

static_assert(sizeof(bn_request_header_wire) == 16);
static_assert(sizeof(bn_response_header_wire) == 20);

// Convert a header between host and network order, in place (a no-op on a big-endian
// host).  The same call goes both ways.
int bn_byte_swap_request_header(bn_request_header_wire *inout_hdr);
int bn_byte_swap_response_header(bn_response_header_wire *inout_hdr);

// A new frame holding extra_header_space zero bytes and then the message.  A binding that
// has a name but no parts cache gets its cache filled, hence the non-const message.
int bn_request_msg_serialize(bn_request *inout_req_msg, uint32 extra_header_space,
                             tbuf **ret_frame);
// Reads the message that starts extra_header_space bytes into frame.
int bn_request_msg_deserialize(const tbuf *frame, uint32 extra_header_space,
                               bn_request **ret_request);
int bn_response_msg_serialize(bn_response *inout_resp_msg, uint32 extra_header_space,
                              tbuf **ret_frame);
int bn_response_msg_deserialize(const tbuf *frame, uint32 extra_header_space,
                                bn_response **ret_response);

// ---------------------------------------------------------------------------------------
// The body and per-node settings of each kind.  The put forms write exactly their fields
// at offset of frame (extending it) and give the bytes written; the get forms read them
// from offset into the settings record and give the bytes read.  A get stores strings it
// reads into the record, releasing what the record held there.  The forms of kinds that
// have no such fields exist all the same and use 0 bytes.

// Query request: per node subop and flags; body flags, database and revision condition.
int bn_query_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr);
int bn_query_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr);
int bn_query_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                           tbuf *frame, uint32 offset, uint32 *ret_offset_incr);
int bn_query_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                           const tbuf *frame, uint32 offset,
                                           uint32 *ret_offset_incr);

// Set request: per node subop and flags, and for bsso_reparent the graft-under and new
// self names; body flags, database and revision condition.
int bn_set_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                uint32 offset, uint32 *ret_offset_incr);
int bn_set_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                uint32 offset, uint32 *ret_offset_incr);
int bn_set_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                         tbuf *frame, uint32 offset, uint32 *ret_offset_incr);
int bn_set_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                         const tbuf *frame, uint32 offset,
                                         uint32 *ret_offset_incr);

// Action request: the action name; nothing per node.
int bn_action_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_action_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_action_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                            tbuf *frame, uint32 offset,
                                            uint32 *ret_offset_incr);
int bn_action_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                            const tbuf *frame, uint32 offset,
                                            uint32 *ret_offset_incr);

// Event request: the event name; nothing per node.
int bn_event_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr);
int bn_event_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr);
int bn_event_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                           tbuf *frame, uint32 offset, uint32 *ret_offset_incr);
int bn_event_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                           const tbuf *frame, uint32 offset,
                                           uint32 *ret_offset_incr);

// Responses have no per-node settings; the query and set responses carry a database
// revision id in their body.
int bn_query_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_query_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_query_response_msg_put_per_node_body(const bn_response_per_node *node, tbuf *frame,
                                            uint32 offset, uint32 *ret_offset_incr);
int bn_query_response_msg_get_per_node_body(bn_response_per_node *node, const tbuf *frame,
                                            uint32 offset, uint32 *ret_offset_incr);

int bn_set_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                 uint32 offset, uint32 *ret_offset_incr);
int bn_set_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                 uint32 offset, uint32 *ret_offset_incr);
int bn_set_response_msg_put_per_node_body(const bn_response_per_node *node, tbuf *frame,
                                          uint32 offset, uint32 *ret_offset_incr);
int bn_set_response_msg_get_per_node_body(bn_response_per_node *node, const tbuf *frame,
                                          uint32 offset, uint32 *ret_offset_incr);

int bn_action_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                    uint32 offset, uint32 *ret_offset_incr);
int bn_action_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                    uint32 offset, uint32 *ret_offset_incr);
int bn_action_response_msg_put_per_node_body(const bn_response_per_node *node, tbuf *frame,
                                             uint32 offset, uint32 *ret_offset_incr);
int bn_action_response_msg_get_per_node_body(bn_response_per_node *node, const tbuf *frame,
                                             uint32 offset, uint32 *ret_offset_incr);

int bn_event_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_event_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr);
int bn_event_response_msg_put_per_node_body(const bn_response_per_node *node, tbuf *frame,
                                            uint32 offset, uint32 *ret_offset_incr);
int bn_event_response_msg_get_per_node_body(bn_response_per_node *node, const tbuf *frame,
                                            uint32 offset, uint32 *ret_offset_incr);
