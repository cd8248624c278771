// Frames: the header and its byte order, the cutting of the input buffer into frames, and
// the dispatch of a frame to its body protocol.
#include <arpa/inet.h>

#include <cstring>
#include <new>

#include "gcl.h"
#include "gcl_internal.h"
#include "lock_mt.h"
#include "logging.h"

const lc_enum_string_map gcl_body_proto_map[] = {
    {gbp_none, "none"},
    {gbp_proto_admin, "admin"},
    {gbp_proto_bnode, "bnode"},
    {gbp_proto_gen, "gen"},
    {0, nullptr},
};

const lc_enum_string_map gcl_session_state_map[] = {
    {gss_none, "none"},
    {gss_closed, "closed"},
    {gss_initialized, "initialized"},
    {gss_listening, "listening"},
    {gss_connected, "connected"},
    {0, nullptr},
};

int gcl_byte_swap_frame_header(uint8 *inout_frame, uint32 frame_len)
{
    int err = 0;
    gcl_frame_header hdr;

    bail_null(inout_frame);
    bail_require(frame_len >= gcl_frame_header_len);

    memcpy(&hdr, inout_frame, sizeof(hdr));
    hdr.gf_version = ntohl(hdr.gf_version);
    hdr.gf_length = ntohl(hdr.gf_length);
    hdr.gf_hdr_length = ntohs(hdr.gf_hdr_length);
    hdr.gf_flags = ntohs(hdr.gf_flags);
    hdr.gf_seqno = ntohl(hdr.gf_seqno);
    hdr.gf_body_proto = ntohs(hdr.gf_body_proto);
    hdr.gf_body_msg_type = ntohs(hdr.gf_body_msg_type);
    hdr.gf_body_length = ntohl(hdr.gf_body_length);
    memcpy(inout_frame, &hdr, sizeof(hdr));

bail:
    return err;
}

void gcl_frame_header_fill(uint8 *frame, uint32 frame_len, uint32 seqno, uint16 body_proto,
                           uint16 body_msg_type)
{
    gcl_frame_header hdr;
    memcpy(hdr.gf_ident, "GCLF", 4);
    memcpy(hdr.gf_order_bytes, "0123", 4);
    hdr.gf_version = gcl_frame_version;
    hdr.gf_length = frame_len;
    hdr.gf_hdr_length = gcl_frame_header_len;
    hdr.gf_flags = 0;
    hdr.gf_seqno = seqno;
    hdr.gf_body_proto = body_proto;
    hdr.gf_body_msg_type = body_msg_type;
    hdr.gf_body_length = frame_len - gcl_frame_header_len;
    memcpy(frame, &hdr, sizeof(hdr));
}

// ---------------------------------------------------------------------------------------
// Registration.

int gcl_register_body_protocol(gcl_handle *gh, const gcl_bp_registration *reg)
{
    int err = 0;
    gcl_bp_registration *copy = nullptr;

    bail_null(gh);
    bail_null(reg);
    bail_require(reg->gbpr_body_proto < gcl_body_proto_max);
    lc_lock_lock(gh->gh_lock);
    if (gh->gh_bp_reg[reg->gbpr_body_proto] != nullptr) {
        lc_lock_unlock(gh->gh_lock);
        lc_log_basic(LOG_ERR, "Already have registered body handler for proto %d",
                     reg->gbpr_body_proto);
        err = lc_err_exists;
        goto bail;
    }
    copy = new (std::nothrow) gcl_bp_registration(*reg);
    if (copy == nullptr) {
        lc_lock_unlock(gh->gh_lock);
        bail_null(copy);
    }
    gh->gh_bp_reg[reg->gbpr_body_proto] = copy;
    lc_lock_unlock(gh->gh_lock);

bail:
    return err;
}

gcl_bp_registration *gcl_get_body_protocol_registration(gcl_handle *gh, uint16 body_proto)
{
    if (gh == nullptr || body_proto >= gcl_body_proto_max) {
        return nullptr;
    }
    return gh->gh_bp_reg[body_proto];
}

// ---------------------------------------------------------------------------------------
// Input framing.

int gcl_session_read_handle_framing(gcl_session *sess)
{
    int err = 0;
    tbuf *frame = nullptr;
    uint32 avail = 0;
    uint32 total = 0;
    const uint8 *start = nullptr;

    bail_null(sess);
    bail_null(sess->gs_input_buffer);

    for (;;) {
        // The session may have been closed (and its buffer emptied) by a callback.
        if (sess->gs_state != gss_connected) {
            break;
        }
        avail = tb_length(sess->gs_input_buffer) - sess->gs_input_buffer_start_offset;
        start = tb_buf(sess->gs_input_buffer) + sess->gs_input_buffer_start_offset;
        if (!sess->gs_read_parsed_frame_header && avail >= gcl_frame_header_len) {
            memcpy(&total, start + offsetof(gcl_frame_header, gf_length), sizeof(total));
            total = ntohl(total);
            if (total > tb_size_max) {
                lc_log_basic(LOG_ERR, "%ssession %d: invalid frame length: %u vs %u",
                             gcl_log_prefix(sess), sess->gs_id, total, tb_size_max);
                err = lc_err_assertion_failed;
                goto bail;
            }
            sess->gs_read_frame_total_length = total;
            sess->gs_read_parsed_frame_header = true;
        }
        if (!sess->gs_read_parsed_frame_header || avail < sess->gs_read_frame_total_length) {
            break;
        }
        total = sess->gs_read_frame_total_length;
        err = tb_new_buf(&frame, start, static_cast<int32>(total));
        bail_error(err);
        sess->gs_msg_received_frames++;
        sess->gs_msg_received_bytes += total;
        sess->gs_input_buffer_start_offset += total;
        if (sess->gs_input_buffer_start_offset == tb_length(sess->gs_input_buffer)) {
            sess->gs_input_buffer_start_offset = 0;
            err = tb_set_length(sess->gs_input_buffer, 0);
            bail_error(err);
        }
        sess->gs_read_parsed_frame_header = false;
        sess->gs_read_frame_total_length = 0;

        err = gcl_session_handle_read_frame(sess, &frame);
        tb_free(&frame);
        bail_error_quiet(err);
    }

    if (sess->gs_input_buffer_start_offset != 0 &&
        tb_avail(sess->gs_input_buffer) < gcl_read_buffer_min_free + 1) {
        err = tb_delete_bytes(sess->gs_input_buffer, 0, sess->gs_input_buffer_start_offset);
        bail_error(err);
        sess->gs_input_buffer_start_offset = 0;
    }

bail:
    tb_free(&frame);
    return err;
}

int gcl_session_handle_read_frame(gcl_session *sess, tbuf **inout_frame)
{
    int err = 0;
    gcl_frame_header hdr;
    gcl_bp_registration *reg = nullptr;
    const gcl_bp_msg_callback_state *mcs = nullptr;
    gcl_handle *gh = nullptr;
    uint32 frame_len = 0;
    tbool any_callback = false;

    bail_null(sess);
    bail_null(inout_frame);
    bail_null(*inout_frame);
    gh = sess->gs_gcl_handle;
    frame_len = tb_length(*inout_frame);

    if (frame_len < gcl_frame_header_len) {
        lc_log_basic(LOG_ERR, "%ssession %d: invalid frame length: %d vs %d",
                     gcl_log_prefix(sess), sess->gs_id, frame_len, gcl_frame_header_len);
        err = lc_err_assertion_failed;
        goto bail;
    }
    err = gcl_byte_swap_frame_header(tb_buf(*inout_frame), frame_len);
    bail_error(err);
    memcpy(&hdr, tb_buf(*inout_frame), sizeof(hdr));

    if (memcmp(hdr.gf_ident, "GCLF", 4) != 0) {
        uint32 ident = 0;
        memcpy(&ident, hdr.gf_ident, 4);
        lc_log_basic(LOG_ERR, "%ssession %d: invalid frame ident: %x", gcl_log_prefix(sess),
                     sess->gs_id, ntohl(ident));
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (hdr.gf_version != gcl_frame_version) {
        lc_log_basic(LOG_ERR, "%ssession %d: invalid frame version: %d", gcl_log_prefix(sess),
                     sess->gs_id, hdr.gf_version);
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (hdr.gf_length != frame_len) {
        lc_log_basic(LOG_ERR, "%ssession %d: invalid frame length: %d vs %d",
                     gcl_log_prefix(sess), sess->gs_id, hdr.gf_length, frame_len);
        err = lc_err_assertion_failed;
        goto bail;
    }
    if (hdr.gf_hdr_length != gcl_frame_header_len) {
        lc_log_basic(LOG_ERR, "%ssession %d: invalid frame header len: %d vs %s",
                     gcl_log_prefix(sess), sess->gs_id, hdr.gf_hdr_length, "32");
        err = lc_err_assertion_failed;
        goto bail;
    }

    reg = gcl_get_body_protocol_registration(gh, hdr.gf_body_proto);
    if (reg != nullptr) {
        for (const auto &cb : reg->gbpr_msg_callbacks) {
            if (cb.mcs_func != nullptr) {
                any_callback = true;
                break;
            }
        }
    }
    if (reg == nullptr || !reg->gbpr_enabled || !any_callback) {
        lc_log_basic(LOG_WARNING, "%ssession %d: DISCARDED frame %d (%d) proto %d ",
                     gcl_log_prefix(sess), sess->gs_id, hdr.gf_seqno, hdr.gf_length,
                     hdr.gf_body_proto);
        goto bail;
    }

    if (hdr.gf_body_msg_type < gcl_body_msg_type_max &&
        reg->gbpr_msg_callbacks[hdr.gf_body_msg_type].mcs_func != nullptr) {
        mcs = &reg->gbpr_msg_callbacks[hdr.gf_body_msg_type];
    } else if (reg->gbpr_msg_callbacks[gcl_body_msg_type_catchall].mcs_func != nullptr) {
        mcs = &reg->gbpr_msg_callbacks[gcl_body_msg_type_catchall];
    } else {
        lc_log_basic(LOG_WARNING, "%ssession %d: DISCARDED frame %d (%d) proto %d mtype %d",
                     gcl_log_prefix(sess), sess->gs_id, hdr.gf_seqno, hdr.gf_length,
                     hdr.gf_body_proto, hdr.gf_body_msg_type);
        goto bail;
    }

    bail_require(mcs->mcs_body_proto == hdr.gf_body_proto);
    bail_require(mcs->mcs_body_msg_type == gcl_body_msg_type_catchall ||
                 mcs->mcs_body_msg_type == hdr.gf_body_msg_type);

    sess->gs_msg_received_dispatched_frames++;
    sess->gs_msg_received_dispatched_bytes += frame_len;
    err = mcs->mcs_func(gh, sess, inout_frame, mcs->mcs_arg);
    bail_error(err);

bail:
    tb_free(inout_frame);
    return err;
}
