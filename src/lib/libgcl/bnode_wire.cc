// The byte form of bnode messages: serialising requests and responses into a frame and
// reading them back, with the body and per-node settings of each kind.

#include "bnode_wire.h"

#include <arpa/inet.h>

#include <bit>
#include <cstring>

#include "bnode_types_wire.h"
#include "logging.h"
#include "tstr_array.h"
#include "tstring.h"

namespace {

// Bytes a node takes at the least: id, absolute byte, part count, attribute count.
constexpr uint32 bn_wire_node_min_bytes = 4 + 1 + 4 + 4;

// ---------------------------------------------------------------------------------------
// Small field helpers.  Each gives the bytes it used through *inout_incr, added up.

int bn_wire_put_u32(tbuf *frame, uint32 offset, uint32 value, uint32 *inout_incr)
{
    int err = 0;

    err = tb_put_uint32(frame, offset + *inout_incr, value);
    bail_error(err);
    *inout_incr += tb_uint32_bytes;

bail:
    return err;
}

int bn_wire_get_u32(const tbuf *frame, uint32 offset, uint32 *ret_value, uint32 *inout_incr)
{
    int err = 0;

    err = tb_get_uint32_nonnull(frame, offset + *inout_incr, ret_value);
    bail_error(err);
    *inout_incr += tb_uint32_bytes;

bail:
    return err;
}

int bn_wire_put_str(tbuf *frame, uint32 offset, const tstring *value, uint32 *inout_incr)
{
    int err = 0;
    int32 written = 0;

    err = tb_put_tstr(frame, offset + *inout_incr, false, true, true, value, &written);
    bail_error(err);
    *inout_incr += static_cast<uint32>(written);

bail:
    return err;
}

// Reads a counted string into *inout_value, releasing what was there.
int bn_wire_get_str(const tbuf *frame, uint32 offset, tstring **inout_value, uint32 *inout_incr)
{
    int err = 0;
    tstring *value = nullptr;
    int32 used = 0;

    err = tb_get_tstr(frame, offset + *inout_incr, -1, false, true, true, &value, &used);
    bail_error(err);
    ts_free(inout_value);
    *inout_value = value;
    value = nullptr;
    *inout_incr += static_cast<uint32>(used);

bail:
    ts_free(&value);
    return err;
}

// The query and set bodies share their layout: flags, database, revision condition.
int bn_wire_put_db_body(uint32 flags, const tstring *db_spec, int32 cond_rev, tbuf *frame,
                        uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    err = bn_wire_put_u32(frame, offset, flags, &incr);
    bail_error(err);
    err = bn_wire_put_str(frame, offset, db_spec, &incr);
    bail_error(err);
    err = bn_wire_put_u32(frame, offset, static_cast<uint32>(cond_rev), &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_wire_get_db_body(uint32 *ret_flags, tstring **inout_db_spec, int32 *ret_cond_rev,
                        const tbuf *frame, uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;
    uint32 flags = 0;
    uint32 cond_rev = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    err = bn_wire_get_u32(frame, offset, &flags, &incr);
    bail_error(err);
    err = bn_wire_get_str(frame, offset, inout_db_spec, &incr);
    bail_error(err);
    err = bn_wire_get_u32(frame, offset, &cond_rev, &incr);
    bail_error(err);
    *ret_flags = flags;
    *ret_cond_rev = static_cast<int32>(cond_rev);
    *ret_offset_incr = incr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Dispatch of the per-kind operations.

typedef int (*bn_req_put_body_func)(const bn_request_body_settings *, tbuf *, uint32, uint32 *);
typedef int (*bn_req_get_body_func)(bn_request_body_settings *, const tbuf *, uint32, uint32 *);
typedef int (*bn_req_put_node_func)(const bn_request_per_node_settings *, tbuf *, uint32,
                                    uint32 *);
typedef int (*bn_req_get_node_func)(bn_request_per_node_settings *, const tbuf *, uint32,
                                    uint32 *);
typedef int (*bn_resp_put_body_func)(const bn_response_body_settings *, tbuf *, uint32, uint32 *);
typedef int (*bn_resp_get_body_func)(bn_response_body_settings *, const tbuf *, uint32, uint32 *);
typedef int (*bn_resp_put_node_func)(const bn_response_per_node *, tbuf *, uint32, uint32 *);
typedef int (*bn_resp_get_node_func)(bn_response_per_node *, const tbuf *, uint32, uint32 *);

struct bn_request_wire_ops {
    bn_req_put_body_func brwo_put_body;
    bn_req_get_body_func brwo_get_body;
    bn_req_put_node_func brwo_put_node;
    bn_req_get_node_func brwo_get_node;
    uint32 brwo_node_min_bytes;  // per-node settings bytes at the least
};

struct bn_response_wire_ops {
    bn_resp_put_body_func bswo_put_body;
    bn_resp_get_body_func bswo_get_body;
    bn_resp_put_node_func bswo_put_node;
    bn_resp_get_node_func bswo_get_node;
};

const bn_request_wire_ops bn_query_request_ops = {
    bn_query_request_msg_put_body, bn_query_request_msg_get_body,
    bn_query_request_msg_put_per_node_body, bn_query_request_msg_get_per_node_body, 8};
const bn_request_wire_ops bn_set_request_ops = {
    bn_set_request_msg_put_body, bn_set_request_msg_get_body,
    bn_set_request_msg_put_per_node_body, bn_set_request_msg_get_per_node_body, 8};
const bn_request_wire_ops bn_action_request_ops = {
    bn_action_request_msg_put_body, bn_action_request_msg_get_body,
    bn_action_request_msg_put_per_node_body, bn_action_request_msg_get_per_node_body, 0};
const bn_request_wire_ops bn_event_request_ops = {
    bn_event_request_msg_put_body, bn_event_request_msg_get_body,
    bn_event_request_msg_put_per_node_body, bn_event_request_msg_get_per_node_body, 0};

const bn_response_wire_ops bn_query_response_ops = {
    bn_query_response_msg_put_body, bn_query_response_msg_get_body,
    bn_query_response_msg_put_per_node_body, bn_query_response_msg_get_per_node_body};
const bn_response_wire_ops bn_set_response_ops = {
    bn_set_response_msg_put_body, bn_set_response_msg_get_body,
    bn_set_response_msg_put_per_node_body, bn_set_response_msg_get_per_node_body};
const bn_response_wire_ops bn_action_response_ops = {
    bn_action_response_msg_put_body, bn_action_response_msg_get_body,
    bn_action_response_msg_put_per_node_body, bn_action_response_msg_get_per_node_body};
const bn_response_wire_ops bn_event_response_ops = {
    bn_event_response_msg_put_body, bn_event_response_msg_get_body,
    bn_event_response_msg_put_per_node_body, bn_event_response_msg_get_per_node_body};

// Null for a type that has no request layout.
const bn_request_wire_ops *bn_request_ops_for(uint32 msg_type)
{
    switch (msg_type) {
    case bbmt_query_request:
        return &bn_query_request_ops;
    case bbmt_set_request:
        return &bn_set_request_ops;
    case bbmt_action_request:
        return &bn_action_request_ops;
    case bbmt_event_request:
        return &bn_event_request_ops;
    default:
        return nullptr;
    }
}

const bn_response_wire_ops *bn_response_ops_for(uint32 msg_type)
{
    switch (msg_type) {
    case bbmt_query_response:
        return &bn_query_response_ops;
    case bbmt_set_response:
        return &bn_set_response_ops;
    case bbmt_action_response:
        return &bn_action_response_ops;
    case bbmt_event_response:
        return &bn_event_response_ops;
    default:
        return nullptr;
    }
}

void bn_wire_log_illegal_type(uint32 msg_type)
{
    lc_log_basic(LOG_ERR, "illegal messsage of type %d", static_cast<int>(msg_type));
}

// ---------------------------------------------------------------------------------------
// Nodes: the part common to requests and responses.

// Appends node id, absolute byte, parts, attribute count and attributes.  A binding with
// a name but no parts cache gets one here.
int bn_wire_append_node_binding(tbuf *frame, int32 node_id, bn_binding *binding)
{
    int err = 0;
    tstr_array *parts = nullptr;
    tbool is_absolute = false;
    int32 written = 0;
    uint32 count_offset = 0;
    uint32 attrib_count = 0;
    uint32 num_slots = 0;

    err = tb_append_uint32(frame, static_cast<uint32>(node_id));
    bail_error(err);
    if (binding->bn_node_name_parts == nullptr && binding->bn_node_name != nullptr) {
        err = bn_binding_name_to_parts(ts_str(binding->bn_node_name), &parts, &is_absolute);
        bail_error(err);
        binding->bn_node_name_parts = parts;
        binding->bn_node_name_parts_absolute = is_absolute;
        parts = nullptr;
    }
    bail_null(binding->bn_node_name_parts);
    err = tb_append_uint8(frame, binding->bn_node_name_parts_absolute ? 1 : 0);
    bail_error(err);
    err = tb_append_tstr_array(frame, false, true, true, binding->bn_node_name_parts, &written);
    bail_error(err);

    count_offset = tb_length(frame);
    err = tb_append_uint32(frame, 0);
    bail_error(err);
    // The table is indexed by attribute id, so most of its slots are empty: they are
    // read straight, without the checked accessor's cost per slot.
    num_slots = bn_attrib_array_length_quick(binding->bn_attribs);
    for (uint32 i = 0; i < num_slots; ++i) {
        const auto *attrib =
            static_cast<const bn_attrib *>(array_get_quick(binding->bn_attribs->bn_attrib_arr, i));
        uint32 type = 0;
        uint32 incr = 0;
        if (attrib == nullptr) {
            continue;
        }
        type = static_cast<uint32>(attrib->ba_type);
        bail_require(type != bt_NONE && type < bt_LAST);
        if (bn_attrib_copy_funcs[type].bacr_out_func == nullptr) {
            lc_log_basic(LOG_ERR, "Couldn't get attrib copy out func for type %s",
                         lc_enum_to_string_quiet(bn_type_map, type));
            bail_force(lc_err_unexpected_null);
        }
        err = bn_attrib_copy_funcs[type].bacr_out_func(attrib, attrib->ba_type, frame, &incr);
        bail_error(err);
        ++attrib_count;
    }
    err = tb_put_uint32(frame, count_offset, attrib_count);
    bail_error(err);

bail:
    tstr_array_free(&parts);
    return err;
}

// Reads id, absolute byte, parts and attributes of one node at *inout_offset and builds the
// binding; *inout_offset moves past them.
int bn_wire_read_node_binding(const tbuf *frame, uint32 *inout_offset, int32 *ret_node_id,
                              bn_binding **ret_binding)
{
    int err = 0;
    uint32 off = *inout_offset;
    uint32 node_id = 0;
    uint8 abs_byte = 0;
    tstr_array *parts = nullptr;
    int32 used = 0;
    uint32 attrib_count = 0;
    bn_attrib_array *attribs = nullptr;
    bn_attrib *attrib = nullptr;
    tstring *no_name = nullptr;

    *ret_binding = nullptr;
    err = tb_get_uint32_nonnull(frame, off, &node_id);
    bail_error(err);
    off += tb_uint32_bytes;
    err = tb_get_uint8(frame, off, &abs_byte);
    bail_error(err);
    off += 1;
    err = tb_get_tstr_array(frame, off, -1, false, true, true, &parts, &used);
    bail_error(err);
    off += static_cast<uint32>(used);
    err = tb_get_uint32_nonnull(frame, off, &attrib_count);
    bail_error(err);
    off += tb_uint32_bytes;
    // Every attribute takes at least its header.
    if (static_cast<uint64>(attrib_count) * bn_attrib_wire_header_bytes >
        tb_length(frame) - off) {
        lc_log_basic(LOG_ERR, "Node with %u attributes and %u bytes left", attrib_count,
                     tb_length(frame) - off);
        bail_force(lc_err_no_buffer_space);
    }

    if (attrib_count == 1) {
        uint32 first_id = 0;
        err = bn_type_extract_attrib_id(frame, off, &first_id);
        bail_error(err);
        if (first_id < bn_attrib_wire_max_slots) {
            err = bn_attrib_array_new_size(&attribs, first_id + 1);
            bail_error(err);
        }
    }
    if (attribs == nullptr) {
        err = bn_attrib_array_new(&attribs);
        bail_error(err);
    }
    for (uint32 i = 0; i < attrib_count; ++i) {
        uint32 type = 0;
        uint32 incr = 0;
        err = bn_type_extract_btype(frame, off, &type, nullptr);
        bail_error(err);
        if (type == bt_NONE || type >= bt_LAST) {
            lc_log_basic(LOG_ERR, "Attribute of unknown type %u", type);
            bail_force(lc_err_assertion_failed);
        }
        if (bn_attrib_copy_funcs[type].bacr_in_func == nullptr) {
            lc_log_basic(LOG_ERR, "Couldn't get attrib copy in func for type %s",
                         lc_enum_to_string_quiet(bn_type_map, type));
            bail_force(lc_err_unexpected_null);
        }
        err = bn_attrib_copy_funcs[type].bacr_in_func(frame, off, static_cast<bn_type>(type),
                                                      &attrib, &incr);
        bail_error(err);
        off += incr;
        err = bn_attrib_array_set_takeover(attribs, static_cast<uint32>(attrib->ba_attrib_id),
                                           &attrib);
        bail_error(err);
    }

    err = bn_binding_new_parts_components_takeover(ret_binding, &no_name, &parts, abs_byte != 0,
                                                   &attribs);
    bail_error(err);
    *ret_node_id = static_cast<int32>(node_id);
    *inout_offset = off;

bail:
    bn_attrib_free(&attrib);
    bn_attrib_array_free(&attribs);
    tstr_array_free(&parts);
    ts_free(&no_name);
    return err;
}

// Refuses a node count that the remaining bytes cannot hold.
int bn_wire_check_node_count(const tbuf *frame, uint32 offset, uint32 count, uint32 min_bytes)
{
    int err = 0;

    if (static_cast<uint64>(count) * min_bytes > tb_length(frame) - offset) {
        lc_log_basic(LOG_ERR, "Message with %u nodes and %u bytes left", count,
                     tb_length(frame) - offset);
        bail_force(lc_err_no_buffer_space);
    }

bail:
    return err;
}

// The frame's start: extra_header_space zero bytes.
int bn_wire_new_frame(uint32 extra_header_space, tbuf **ret_frame)
{
    int err = 0;
    tbuf *frame = nullptr;

    err = tb_new(&frame);
    bail_error(err);
    if (extra_header_space > 0) {
        err = tb_set_length(frame, extra_header_space);
        bail_error(err);
        memset(tb_buf(frame), 0, extra_header_space);
    }
    *ret_frame = frame;
    frame = nullptr;

bail:
    tb_free(&frame);
    return err;
}

inline uint16 bn_wire_swap16(uint16 v)
{
    if constexpr (std::endian::native == std::endian::big) {
        return v;
    } else {
        return static_cast<uint16>((v >> 8) | (v << 8));
    }
}

inline uint32 bn_wire_swap32(uint32 v)
{
    if constexpr (std::endian::native == std::endian::big) {
        return v;
    } else {
        return __builtin_bswap32(v);
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Headers.

int bn_byte_swap_request_header(bn_request_header_wire *inout_hdr)
{
    int err = 0;

    bail_null(inout_hdr);
    inout_hdr->brhw_service_id = bn_wire_swap16(inout_hdr->brhw_service_id);
    inout_hdr->brhw_msg_type = bn_wire_swap16(inout_hdr->brhw_msg_type);
    inout_hdr->brhw_length = bn_wire_swap32(inout_hdr->brhw_length);
    inout_hdr->brhw_msg_id = bn_wire_swap32(inout_hdr->brhw_msg_id);
    inout_hdr->brhw_transaction_id = bn_wire_swap32(inout_hdr->brhw_transaction_id);

bail:
    return err;
}

int bn_byte_swap_response_header(bn_response_header_wire *inout_hdr)
{
    int err = 0;

    bail_null(inout_hdr);
    inout_hdr->brshw_service_id = bn_wire_swap16(inout_hdr->brshw_service_id);
    inout_hdr->brshw_msg_type = bn_wire_swap16(inout_hdr->brshw_msg_type);
    inout_hdr->brshw_length = bn_wire_swap32(inout_hdr->brshw_length);
    inout_hdr->brshw_msg_id = bn_wire_swap32(inout_hdr->brshw_msg_id);
    inout_hdr->brshw_transaction_id = bn_wire_swap32(inout_hdr->brshw_transaction_id);
    inout_hdr->brshw_req_msg_id = bn_wire_swap32(inout_hdr->brshw_req_msg_id);

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Requests.

int bn_request_msg_serialize(bn_request *inout_req_msg, uint32 extra_header_space,
                             tbuf **ret_frame)
{
    int err = 0;
    tbuf *frame = nullptr;
    bn_request_header_wire hdr{};
    uint32 hdr_offset = extra_header_space;
    uint32 count_offset = 0;
    uint32 node_count = 0;
    uint32 num_nodes = 0;
    uint32 incr = 0;
    const bn_request_wire_ops *ops = nullptr;

    bail_null(ret_frame);
    *ret_frame = nullptr;
    bail_null(inout_req_msg);
    ops = bn_request_ops_for(inout_req_msg->br_header.brh_msg_type);

    err = bn_wire_new_frame(extra_header_space, &frame);
    bail_error(err);
    // The header goes in with a zero length and is written over once the length is known.
    err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);
    count_offset = tb_length(frame);
    err = tb_append_uint32(frame, 0);
    bail_error(err);

    num_nodes = bn_request_per_node_array_length_quick(inout_req_msg->br_nodes);
    for (uint32 i = 0; i < num_nodes; ++i) {
        bn_request_per_node *node =
            bn_request_per_node_array_get_quick(inout_req_msg->br_nodes, i);
        if (node == nullptr || node->brn_binding == nullptr) {
            continue;
        }
        err = bn_wire_append_node_binding(frame, node->brn_node_id, node->brn_binding);
        bail_error(err);
        if (ops != nullptr) {
            err = ops->brwo_put_node(&node->brn_node_settings, frame, tb_length(frame), &incr);
            bail_error(err);
        } else {
            bn_wire_log_illegal_type(inout_req_msg->br_header.brh_msg_type);
        }
        ++node_count;
    }
    err = tb_put_uint32(frame, count_offset, node_count);
    bail_error(err);

    if (ops != nullptr) {
        err = ops->brwo_put_body(&inout_req_msg->br_body_settings, frame, tb_length(frame),
                                 &incr);
        bail_error(err);
    } else {
        bn_wire_log_illegal_type(inout_req_msg->br_header.brh_msg_type);
    }

    hdr.brhw_service_id = inout_req_msg->br_header.brh_service_id;
    hdr.brhw_msg_type = inout_req_msg->br_header.brh_msg_type;
    hdr.brhw_length = tb_length(frame);
    hdr.brhw_msg_id = inout_req_msg->br_header.brh_msg_id;
    hdr.brhw_transaction_id = inout_req_msg->br_header.brh_transaction_id;
    err = bn_byte_swap_request_header(&hdr);
    bail_error(err);
    err = tb_put_buf(frame, hdr_offset, reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);

    *ret_frame = frame;
    frame = nullptr;

bail:
    tb_free(&frame);
    return err;
}

int bn_request_msg_deserialize(const tbuf *frame, uint32 extra_header_space,
                               bn_request **ret_request)
{
    int err = 0;
    bn_request *req = nullptr;
    bn_request_header_wire hdr{};
    uint32 off = 0;
    uint32 node_count = 0;
    uint32 incr = 0;
    const bn_request_wire_ops *ops = nullptr;
    bn_request_per_node *node = nullptr;
    bn_request_per_node_array *nodes = nullptr;
    bn_msg_type msg_type = bbmt_none;

    bail_null(ret_request);
    *ret_request = nullptr;
    bail_null(frame);
    if (static_cast<uint64>(extra_header_space) + sizeof(hdr) > tb_length(frame)) {
        lc_log_basic(LOG_ERR, "Request frame of %u bytes too short", tb_length(frame));
        bail_force(lc_err_assertion_failed);
    }
    err = tb_get_buf(frame, extra_header_space, reinterpret_cast<uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);
    err = bn_byte_swap_request_header(&hdr);
    bail_error(err);
    off = extra_header_space + static_cast<uint32>(sizeof(hdr));

    // A type outside the closed set is kept in the header only; its nodes and body are
    // empty, which the dispatcher then refuses.
    if (hdr.brhw_msg_type < bbmt_LAST) {
        msg_type = static_cast<bn_msg_type>(hdr.brhw_msg_type);
    }
    ops = bn_request_ops_for(hdr.brhw_msg_type);
    err = bn_request_msg_create(&req, msg_type);
    bail_error(err);
    req->br_header.brh_service_id = hdr.brhw_service_id;
    req->br_header.brh_msg_type = hdr.brhw_msg_type;
    req->br_header.brh_msg_id = hdr.brhw_msg_id;
    req->br_header.brh_transaction_id = hdr.brhw_transaction_id;

    err = tb_get_uint32_nonnull(frame, off, &node_count);
    bail_error(err);
    off += tb_uint32_bytes;
    err = bn_wire_check_node_count(frame, off, node_count,
                                   bn_wire_node_min_bytes +
                                       (ops != nullptr ? ops->brwo_node_min_bytes : 0));
    bail_error(err);
    err = bn_request_per_node_array_new_size(&nodes, node_count + 1);
    bail_error(err);
    bn_request_per_node_array_free(&req->br_nodes);
    req->br_nodes = nodes;
    nodes = nullptr;

    if (ops == nullptr) {
        bn_wire_log_illegal_type(hdr.brhw_msg_type);
    }
    for (uint32 i = 0; i < node_count; ++i) {
        err = bn_request_per_node_new(&node);
        bail_error(err);
        err = bn_wire_read_node_binding(frame, &off, &node->brn_node_id, &node->brn_binding);
        bail_error(err);
        node->brn_request_type = msg_type;
        if (ops != nullptr) {
            err = ops->brwo_get_node(&node->brn_node_settings, frame, off, &incr);
            bail_error(err);
            off += incr;
        }
        err = bn_request_per_node_array_append_takeover(req->br_nodes, &node);
        bail_error(err);
    }

    if (ops != nullptr) {
        err = ops->brwo_get_body(&req->br_body_settings, frame, off, &incr);
        bail_error(err);
        off += incr;
    }
    if (off != tb_length(frame)) {
        lc_log_basic(LOG_ERR, "total bytes: %d  used: %d", static_cast<int>(tb_length(frame)),
                     static_cast<int>(off));
        bail_force(lc_err_assertion_failed);
    }

    *ret_request = req;
    req = nullptr;

bail:
    bn_request_per_node_free(&node);
    bn_request_per_node_array_free(&nodes);
    bn_request_msg_free(&req);
    return err;
}

// ---------------------------------------------------------------------------------------
// Responses.

int bn_response_msg_serialize(bn_response *inout_resp_msg, uint32 extra_header_space,
                              tbuf **ret_frame)
{
    int err = 0;
    tbuf *frame = nullptr;
    bn_response_header_wire hdr{};
    uint32 hdr_offset = extra_header_space;
    uint32 count_offset = 0;
    uint32 node_count = 0;
    uint32 num_nodes = 0;
    uint32 incr = 0;
    int32 written = 0;
    const bn_response_wire_ops *ops = nullptr;

    bail_null(ret_frame);
    *ret_frame = nullptr;
    bail_null(inout_resp_msg);
    ops = bn_response_ops_for(inout_resp_msg->brs_header.brsh_msg_type);

    err = bn_wire_new_frame(extra_header_space, &frame);
    bail_error(err);
    err = tb_append_buf(frame, reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);
    err = tb_append_uint32(frame, inout_resp_msg->brs_return_code);
    bail_error(err);
    err = tb_append_tstr(frame, false, true, true, inout_resp_msg->brs_return_message, &written);
    bail_error(err);
    count_offset = tb_length(frame);
    err = tb_append_uint32(frame, 0);
    bail_error(err);

    num_nodes = bn_response_per_node_array_length_quick(inout_resp_msg->brs_nodes);
    for (uint32 i = 0; i < num_nodes; ++i) {
        bn_response_per_node *node =
            bn_response_per_node_array_get_quick(inout_resp_msg->brs_nodes, i);
        if (node == nullptr || node->brsn_binding == nullptr) {
            continue;
        }
        err = bn_wire_append_node_binding(frame, node->brsn_node_id, node->brsn_binding);
        bail_error(err);
        if (ops != nullptr) {
            err = ops->bswo_put_node(node, frame, tb_length(frame), &incr);
            bail_error(err);
        } else {
            bn_wire_log_illegal_type(inout_resp_msg->brs_header.brsh_msg_type);
        }
        ++node_count;
    }
    err = tb_put_uint32(frame, count_offset, node_count);
    bail_error(err);

    if (ops != nullptr) {
        err = ops->bswo_put_body(&inout_resp_msg->brs_body_settings, frame, tb_length(frame),
                                 &incr);
        bail_error(err);
    } else {
        bn_wire_log_illegal_type(inout_resp_msg->brs_header.brsh_msg_type);
    }

    hdr.brshw_service_id = inout_resp_msg->brs_header.brsh_service_id;
    hdr.brshw_msg_type = inout_resp_msg->brs_header.brsh_msg_type;
    hdr.brshw_length = tb_length(frame);
    hdr.brshw_msg_id = inout_resp_msg->brs_header.brsh_msg_id;
    hdr.brshw_transaction_id = inout_resp_msg->brs_header.brsh_transaction_id;
    hdr.brshw_req_msg_id = inout_resp_msg->brs_header.brsh_req_msg_id;
    err = bn_byte_swap_response_header(&hdr);
    bail_error(err);
    err = tb_put_buf(frame, hdr_offset, reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);

    *ret_frame = frame;
    frame = nullptr;

bail:
    tb_free(&frame);
    return err;
}

int bn_response_msg_deserialize(const tbuf *frame, uint32 extra_header_space,
                                bn_response **ret_response)
{
    int err = 0;
    bn_response *resp = nullptr;
    bn_response_header_wire hdr{};
    uint32 off = 0;
    uint32 return_code = 0;
    tstring *return_message = nullptr;
    int32 used = 0;
    uint32 node_count = 0;
    uint32 incr = 0;
    const bn_response_wire_ops *ops = nullptr;
    bn_response_per_node *node = nullptr;
    bn_response_per_node_array *nodes = nullptr;
    bn_msg_type msg_type = bbmt_none;

    bail_null(ret_response);
    *ret_response = nullptr;
    bail_null(frame);
    if (static_cast<uint64>(extra_header_space) + sizeof(hdr) > tb_length(frame)) {
        lc_log_basic(LOG_ERR, "Response frame of %u bytes too short", tb_length(frame));
        bail_force(lc_err_assertion_failed);
    }
    err = tb_get_buf(frame, extra_header_space, reinterpret_cast<uint8 *>(&hdr), sizeof(hdr));
    bail_error(err);
    err = bn_byte_swap_response_header(&hdr);
    bail_error(err);
    off = extra_header_space + static_cast<uint32>(sizeof(hdr));

    err = tb_get_uint32_nonnull(frame, off, &return_code);
    bail_error(err);
    off += tb_uint32_bytes;
    err = tb_get_tstr(frame, off, -1, false, true, true, &return_message, &used);
    bail_error(err);
    off += static_cast<uint32>(used);

    if (hdr.brshw_msg_type < bbmt_LAST) {
        msg_type = static_cast<bn_msg_type>(hdr.brshw_msg_type);
    }
    ops = bn_response_ops_for(hdr.brshw_msg_type);
    err = bn_response_msg_create(&resp, msg_type, hdr.brshw_req_msg_id, return_code, nullptr);
    bail_error(err);
    resp->brs_header.brsh_service_id = hdr.brshw_service_id;
    resp->brs_header.brsh_msg_type = hdr.brshw_msg_type;
    resp->brs_header.brsh_msg_id = hdr.brshw_msg_id;
    resp->brs_header.brsh_transaction_id = hdr.brshw_transaction_id;
    resp->brs_header.brsh_req_msg_id = hdr.brshw_req_msg_id;
    resp->brs_return_code = return_code;
    ts_free(&resp->brs_return_message);
    resp->brs_return_message = return_message;
    return_message = nullptr;

    err = tb_get_uint32_nonnull(frame, off, &node_count);
    bail_error(err);
    off += tb_uint32_bytes;
    err = bn_wire_check_node_count(frame, off, node_count, bn_wire_node_min_bytes);
    bail_error(err);
    err = bn_response_per_node_array_new_size(&nodes, node_count + 1);
    bail_error(err);
    bn_response_per_node_array_free(&resp->brs_nodes);
    resp->brs_nodes = nodes;
    nodes = nullptr;

    if (ops == nullptr) {
        bn_wire_log_illegal_type(hdr.brshw_msg_type);
    }
    for (uint32 i = 0; i < node_count; ++i) {
        err = bn_response_per_node_new(&node);
        bail_error(err);
        err = bn_wire_read_node_binding(frame, &off, &node->brsn_node_id, &node->brsn_binding);
        bail_error(err);
        node->brsn_response_type = msg_type;
        if (ops != nullptr) {
            err = ops->bswo_get_node(node, frame, off, &incr);
            bail_error(err);
            off += incr;
        }
        err = bn_response_per_node_array_append_takeover(resp->brs_nodes, &node);
        bail_error(err);
    }

    if (ops != nullptr) {
        err = ops->bswo_get_body(&resp->brs_body_settings, frame, off, &incr);
        bail_error(err);
        off += incr;
    }
    if (off != tb_length(frame)) {
        lc_log_basic(LOG_ERR, "total bytes: %d  used: %d", static_cast<int>(tb_length(frame)),
                     static_cast<int>(off));
        bail_force(lc_err_assertion_failed);
    }

    *ret_response = resp;
    resp = nullptr;

bail:
    ts_free(&return_message);
    bn_response_per_node_free(&node);
    bn_response_per_node_array_free(&nodes);
    bn_response_msg_free(&resp);
    return err;
}

// ---------------------------------------------------------------------------------------
// Query request.

int bn_query_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;

    bail_null(settings);
    err = bn_wire_put_db_body(settings->brbs_query.bqrb_query_flags,
                              settings->brbs_query.bqrb_opt_db_spec,
                              settings->brbs_query.bqrb_opt_cond_db_revision_id, frame, offset,
                              ret_offset_incr);
    bail_error(err);

bail:
    return err;
}

int bn_query_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;

    bail_null(settings);
    err = bn_wire_get_db_body(&settings->brbs_query.bqrb_query_flags,
                              &settings->brbs_query.bqrb_opt_db_spec,
                              &settings->brbs_query.bqrb_opt_cond_db_revision_id, frame, offset,
                              ret_offset_incr);
    bail_error(err);

bail:
    return err;
}

int bn_query_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                           tbuf *frame, uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_u32(frame, offset, static_cast<uint32>(settings->brns_query.bqn_query_subop),
                          &incr);
    bail_error(err);
    err = bn_wire_put_u32(frame, offset, settings->brns_query.bqn_query_flags, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_query_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                           const tbuf *frame, uint32 offset,
                                           uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;
    uint32 subop = 0;
    uint32 flags = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_u32(frame, offset, &subop, &incr);
    bail_error(err);
    err = bn_wire_get_u32(frame, offset, &flags, &incr);
    bail_error(err);
    // A subop we don't know is kept: the dispatch says what it ignores.
    settings->brns_query.bqn_query_subop = static_cast<bn_query_subop>(subop);
    settings->brns_query.bqn_query_flags = flags;
    *ret_offset_incr = incr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Set request.

int bn_set_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;

    bail_null(settings);
    err = bn_wire_put_db_body(settings->brbs_set.bsrb_set_flags, settings->brbs_set.bsrb_opt_db_spec,
                              settings->brbs_set.bsrb_opt_cond_db_revision_id, frame, offset,
                              ret_offset_incr);
    bail_error(err);

bail:
    return err;
}

int bn_set_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;

    bail_null(settings);
    err = bn_wire_get_db_body(&settings->brbs_set.bsrb_set_flags,
                              &settings->brbs_set.bsrb_opt_db_spec,
                              &settings->brbs_set.bsrb_opt_cond_db_revision_id, frame, offset,
                              ret_offset_incr);
    bail_error(err);

bail:
    return err;
}

int bn_set_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                         tbuf *frame, uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_u32(frame, offset, static_cast<uint32>(settings->brns_set.bsn_set_subop),
                          &incr);
    bail_error(err);
    err = bn_wire_put_u32(frame, offset, settings->brns_set.bsn_set_flags, &incr);
    bail_error(err);
    if (settings->brns_set.bsn_set_subop == bsso_reparent) {
        err = bn_wire_put_str(frame, offset, settings->brns_set.bsn_graft_under_name, &incr);
        bail_error(err);
        err = bn_wire_put_str(frame, offset, settings->brns_set.bsn_new_self_name, &incr);
        bail_error(err);
    }
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_set_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                         const tbuf *frame, uint32 offset,
                                         uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;
    uint32 subop = 0;
    uint32 flags = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_u32(frame, offset, &subop, &incr);
    bail_error(err);
    err = bn_wire_get_u32(frame, offset, &flags, &incr);
    bail_error(err);
    settings->brns_set.bsn_set_subop = static_cast<bn_set_subop>(subop);
    settings->brns_set.bsn_set_flags = flags;
    if (subop == bsso_reparent) {
        err = bn_wire_get_str(frame, offset, &settings->brns_set.bsn_graft_under_name, &incr);
        bail_error(err);
        err = bn_wire_get_str(frame, offset, &settings->brns_set.bsn_new_self_name, &incr);
        bail_error(err);
    }
    *ret_offset_incr = incr;

bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// Action request.

int bn_action_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_str(frame, offset, settings->brbs_action.barb_action_name, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_action_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_str(frame, offset, &settings->brbs_action.barb_action_name, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_action_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                            tbuf *frame, uint32 offset,
                                            uint32 *ret_offset_incr)
{
    (void)settings;
    (void)frame;
    (void)offset;
    if (ret_offset_incr) {
        *ret_offset_incr = 0;
    }
    return 0;
}

int bn_action_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                            const tbuf *frame, uint32 offset,
                                            uint32 *ret_offset_incr)
{
    (void)settings;
    (void)frame;
    (void)offset;
    if (ret_offset_incr) {
        *ret_offset_incr = 0;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// Event request.

int bn_event_request_msg_put_body(const bn_request_body_settings *settings, tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_str(frame, offset, settings->brbs_event.berb_event_name, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_event_request_msg_get_body(bn_request_body_settings *settings, const tbuf *frame,
                                  uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_str(frame, offset, &settings->brbs_event.berb_event_name, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_event_request_msg_put_per_node_body(const bn_request_per_node_settings *settings,
                                           tbuf *frame, uint32 offset, uint32 *ret_offset_incr)
{
    (void)settings;
    (void)frame;
    (void)offset;
    if (ret_offset_incr) {
        *ret_offset_incr = 0;
    }
    return 0;
}

int bn_event_request_msg_get_per_node_body(bn_request_per_node_settings *settings,
                                           const tbuf *frame, uint32 offset,
                                           uint32 *ret_offset_incr)
{
    (void)settings;
    (void)frame;
    (void)offset;
    if (ret_offset_incr) {
        *ret_offset_incr = 0;
    }
    return 0;
}

// ---------------------------------------------------------------------------------------
// Responses by kind.  Only the query and set bodies hold anything: a revision id.

int bn_query_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_u32(frame, offset,
                          static_cast<uint32>(settings->brsbs_query.bqrsb_db_revision_id), &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_query_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                   uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;
    uint32 rev = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_u32(frame, offset, &rev, &incr);
    bail_error(err);
    settings->brsbs_query.bqrsb_db_revision_id = static_cast<int32>(rev);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_set_response_msg_put_body(const bn_response_body_settings *settings, tbuf *frame,
                                 uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_put_u32(frame, offset, settings->brsbs_set.bsrsb_db_revision_id, &incr);
    bail_error(err);
    *ret_offset_incr = incr;

bail:
    return err;
}

int bn_set_response_msg_get_body(bn_response_body_settings *settings, const tbuf *frame,
                                 uint32 offset, uint32 *ret_offset_incr)
{
    int err = 0;
    uint32 incr = 0;
    uint32 rev = 0;

    bail_null(ret_offset_incr);
    *ret_offset_incr = 0;
    bail_null(settings);
    err = bn_wire_get_u32(frame, offset, &rev, &incr);
    bail_error(err);
    settings->brsbs_set.bsrsb_db_revision_id = rev;
    *ret_offset_incr = incr;

bail:
    return err;
}

// The empty forms: nothing on the wire.
#define BN_WIRE_EMPTY_OP(name, settings_type, frame_type)                                    \
    int name(settings_type settings, frame_type frame, uint32 offset, uint32 *ret_offset_incr) \
    {                                                                                        \
        (void)settings;                                                                      \
        (void)frame;                                                                         \
        (void)offset;                                                                        \
        if (ret_offset_incr) {                                                               \
            *ret_offset_incr = 0;                                                            \
        }                                                                                    \
        return 0;                                                                            \
    }

BN_WIRE_EMPTY_OP(bn_query_response_msg_put_per_node_body, const bn_response_per_node *, tbuf *)
BN_WIRE_EMPTY_OP(bn_query_response_msg_get_per_node_body, bn_response_per_node *, const tbuf *)
BN_WIRE_EMPTY_OP(bn_set_response_msg_put_per_node_body, const bn_response_per_node *, tbuf *)
BN_WIRE_EMPTY_OP(bn_set_response_msg_get_per_node_body, bn_response_per_node *, const tbuf *)
BN_WIRE_EMPTY_OP(bn_action_response_msg_put_body, const bn_response_body_settings *, tbuf *)
BN_WIRE_EMPTY_OP(bn_action_response_msg_get_body, bn_response_body_settings *, const tbuf *)
BN_WIRE_EMPTY_OP(bn_action_response_msg_put_per_node_body, const bn_response_per_node *, tbuf *)
BN_WIRE_EMPTY_OP(bn_action_response_msg_get_per_node_body, bn_response_per_node *, const tbuf *)
BN_WIRE_EMPTY_OP(bn_event_response_msg_put_body, const bn_response_body_settings *, tbuf *)
BN_WIRE_EMPTY_OP(bn_event_response_msg_get_body, bn_response_body_settings *, const tbuf *)
BN_WIRE_EMPTY_OP(bn_event_response_msg_put_per_node_body, const bn_response_per_node *, tbuf *)
BN_WIRE_EMPTY_OP(bn_event_response_msg_get_per_node_body, bn_response_per_node *, const tbuf *)

#undef BN_WIRE_EMPTY_OP
