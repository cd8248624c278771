// The generic body protocol.
#include "gen_proto.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>

#include "gcl_internal.h"
#include "logging.h"
#include "tbuffer.h"

namespace {

const lc_enum_string_map gen_msg_type_map[] = {
    {gen_none, "none"},
    {gen_type_request, "request"},
    {gen_type_response, "response"},
    {0, nullptr},
};

gen_global_state *gen_get_global_state(gcl_handle *gclh)
{
    gcl_bp_registration *reg = gcl_get_body_protocol_registration(gclh, gbp_proto_gen);
    return reg != nullptr ? static_cast<gen_global_state *>(reg->gbpr_state_ptr) : nullptr;
}

gen_session_state *gen_get_session_state(const gcl_session *sess)
{
    return sess != nullptr ? static_cast<gen_session_state *>(sess->gs_bp_state_ptr[gbp_proto_gen])
                           : nullptr;
}

// The envelope of a message of gen_msg_create, or null.
gen_proto_msg *gen_header_of(const uint8 *msg)
{
    if (msg == nullptr) {
        return nullptr;
    }
    gen_proto_msg *hdr = reinterpret_cast<gen_proto_msg *>(
        const_cast<uint8 *>(msg) - offsetof(gen_proto_msg, g_message));
    return hdr->gen_version == GEN_PROTO_MAGIC ? hdr : nullptr;
}

const char *gen_label(const char *dir, uint32 type)
{
    if (type == gen_type_request) {
        return strcmp(dir, "SEND") == 0 ? "SEND REQ" : "RECV REQ";
    }
    if (type == gen_type_response) {
        return strcmp(dir, "SEND") == 0 ? "SEND RESP" : "RECV RESP";
    }
    return strcmp(dir, "SEND") == 0 ? "SEND UNKOWN" : "RECV UNKOWN";
}

uint32 gen_be32(const uint8 *p)
{
    uint32 v = 0;
    memcpy(&v, p, sizeof(v));
    return ntohl(v);
}

}  // namespace

int gen_init(gcl_handle *gclh)
{
    int err = 0;
    gen_global_state *ggs = nullptr;
    gcl_bp_registration reg;

    bail_null(gclh);
    ggs = static_cast<gen_global_state *>(calloc(1, sizeof(*ggs)));
    bail_null(ggs);
    memset(&reg, 0, sizeof(reg));
    reg.gbpr_body_proto = gbp_proto_gen;
    strlcpy(reg.gbpr_proto_name, "gen", sizeof(reg.gbpr_proto_name));
    reg.gbpr_enabled = true;
    reg.gbpr_session_new = gen_session_new;
    reg.gbpr_connection_accepted = gen_connection_accepted;
    reg.gbpr_session_free = gen_session_free;
    reg.gbpr_query_session_state = gen_query_session_state;
    reg.gbpr_msg_callbacks[gcl_body_msg_type_catchall] = {
        gbp_proto_gen, gcl_body_msg_type_catchall, gen_msg_recv_catchall, nullptr};
    reg.gbpr_state_ptr = ggs;
    err = gcl_register_body_protocol(gclh, &reg);
    bail_error(err);
    ggs->cgs_reg = gcl_get_body_protocol_registration(gclh, gbp_proto_gen);
    ggs = nullptr;

bail:
    free(ggs);
    return err;
}

int gen_deinit(gcl_handle *gclh)
{
    int err = 0;
    gcl_bp_registration *reg = nullptr;

    bail_null(gclh);
    reg = gcl_get_body_protocol_registration(gclh, gbp_proto_gen);
    if (reg != nullptr) {
        free(reg->gbpr_state_ptr);
        reg->gbpr_state_ptr = nullptr;
        delete reg;
        gclh->gh_bp_reg[gbp_proto_gen] = nullptr;
    }

bail:
    return err;
}

int gen_set_request_callback(gcl_handle *gclh, gen_msg_callback_func callback_func,
                             void *callback_arg)
{
    int err = 0;
    gen_global_state *ggs = gen_get_global_state(gclh);

    bail_null(ggs);
    ggs->ggs_request_callback_func = callback_func;
    ggs->ggs_request_callback_arg = callback_arg;

bail:
    return err;
}

int gen_set_response_callback(gcl_handle *gclh, gen_msg_callback_func callback_func,
                              void *callback_arg)
{
    int err = 0;
    gen_global_state *ggs = gen_get_global_state(gclh);

    bail_null(ggs);
    ggs->ggs_response_callback_func = callback_func;
    ggs->ggs_response_callback_arg = callback_arg;

bail:
    return err;
}

int gen_set_accept_callback(gcl_handle *gclh, gen_accept_callback_func callback_func,
                            void *callback_arg)
{
    int err = 0;
    gen_global_state *ggs = gen_get_global_state(gclh);

    bail_null(ggs);
    ggs->ggs_accept_callback_func = callback_func;
    ggs->ggs_accept_callback_arg = callback_arg;

bail:
    return err;
}

int gen_session_new(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gen_session_state *gss = nullptr;
    gen_global_state *ggs = nullptr;

    (void)arg;
    bail_null(gclh);
    bail_null(sess);
    bail_require(sess->gs_bp_state_ptr[gbp_proto_gen] == nullptr);
    ggs = gen_get_global_state(gclh);
    gss = static_cast<gen_session_state *>(calloc(1, sizeof(*gss)));
    bail_null(gss);
    gss->gss_reg = gcl_get_body_protocol_registration(gclh, gbp_proto_gen);
    gss->gss_global_state = ggs;
    if (ggs != nullptr) {
        gss->gss_request_callback_func = ggs->ggs_request_callback_func;
        gss->gss_request_callback_arg = ggs->ggs_request_callback_arg;
        gss->gss_response_callback_func = ggs->ggs_response_callback_func;
        gss->gss_response_callback_arg = ggs->ggs_response_callback_arg;
        gss->gss_accept_callback_func = ggs->ggs_accept_callback_func;
        gss->gss_accept_callback_arg = ggs->ggs_accept_callback_arg;
    }
    gss->gss_state = gpss_init;
    sess->gs_bp_state_ptr[gbp_proto_gen] = gss;

bail:
    return err;
}

int gen_connection_accepted(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gen_session_state *gss = gen_get_session_state(sess);

    (void)gclh;
    (void)arg;
    if (gss != nullptr && gss->gss_accept_callback_func != nullptr) {
        err = gss->gss_accept_callback_func(sess, gss->gss_accept_callback_arg);
        bail_error(err);
    }

bail:
    return err;
}

int gen_session_free(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;

    (void)gclh;
    (void)arg;
    bail_null(sess);
    free(sess->gs_bp_state_ptr[gbp_proto_gen]);
    sess->gs_bp_state_ptr[gbp_proto_gen] = nullptr;

bail:
    return err;
}

int gen_query_session_state(gcl_handle *gclh, gcl_session *sess, uint32 *ret_state, void *arg)
{
    int err = 0;
    const gen_session_state *gss = gen_get_session_state(sess);

    (void)gclh;
    (void)arg;
    bail_null(ret_state);
    *ret_state = static_cast<uint32>(gss != nullptr ? gss->gss_state : gpss_none);

bail:
    return err;
}

int gen_msg_create(uint8 **ret_req_msg, gen_msg_type msg_type, uint32 msg_len)
{
    int err = 0;
    gen_proto_msg *hdr = nullptr;

    bail_null(ret_req_msg);
    *ret_req_msg = nullptr;
    hdr = static_cast<gen_proto_msg *>(calloc(1, sizeof(gen_proto_msg) + msg_len));
    bail_null(hdr);
    hdr->gen_version = GEN_PROTO_MAGIC;
    hdr->gen_type = msg_type;
    hdr->gen_msg_id = 0;
    hdr->gen_length = msg_len;
    *ret_req_msg = hdr->g_message;

bail:
    return err;
}

int gen_msg_free(uint8 **ret_msg)
{
    if (ret_msg == nullptr || *ret_msg == nullptr) {
        return 0;
    }
    gen_proto_msg *hdr = gen_header_of(*ret_msg);
    if (hdr != nullptr) {
        hdr->gen_version = 0;
        free(hdr);
    }
    *ret_msg = nullptr;
    return 0;
}

int gen_msg_dump(const gcl_session *sess, const uint8 *gen_msg, int log_level, const char *prefix)
{
    int err = 0;
    const gen_proto_msg *hdr = gen_header_of(gen_msg);
    char sess_text[32] = "";

    bail_null(hdr);
    if (sess != nullptr) {
        snprintf(sess_text, sizeof(sess_text), " session %d", sess->gs_id);
    }
    lc_log_basic(log_level, "%s:%s%s%s%s%s type %d (%s)", prefix != nullptr ? prefix : "",
                 sess != nullptr ? " " : "", sess != nullptr ? gcl_log_prefix(sess) : "",
                 sess_text, " proto gen", " message", static_cast<int>(hdr->gen_type),
                 lc_enum_to_string_quiet(gen_msg_type_map, hdr->gen_type));

bail:
    return err;
}

int gen_msg_send(gcl_session *sess, const uint8 *msg)
{
    int err = 0;
    const gen_proto_msg *hdr = gen_header_of(msg);
    uint8 *body = nullptr;
    uint32 words[4] = {};

    bail_null(sess);
    bail_require(hdr != nullptr);
    gen_msg_dump(sess, msg, LOG_DEBUG, gen_label("SEND", hdr->gen_type));
    body = static_cast<uint8 *>(calloc(1, GEN_PROTO_HEADER_LEN + hdr->gen_length));
    bail_null(body);
    words[0] = htonl(hdr->gen_version);
    words[1] = htonl(hdr->gen_type);
    words[2] = htonl(hdr->gen_msg_id);
    words[3] = htonl(hdr->gen_length);
    memcpy(body, words, sizeof(words));
    memcpy(body + GEN_PROTO_HEADER_LEN, hdr->g_message, hdr->gen_length);
    err = gcl_session_send_frame_components(sess, gbp_proto_gen,
                                            static_cast<uint16>(hdr->gen_type),
                                            hdr->gen_length + GEN_PROTO_HEADER_LEN, body);
    bail_error(err);

bail:
    free(body);
    return err;
}

int gen_msg_recv_catchall(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame, void *arg)
{
    int err = 0;
    gcl_frame_header hdr;
    const uint8 *body = nullptr;
    uint32 body_len = 0;
    uint32 type = 0;
    uint32 msg_len = 0;
    uint8 *copy = nullptr;
    gen_session_state *gss = nullptr;

    (void)arg;
    bail_null(gclh);
    bail_null(sess);
    bail_null(inout_frame);
    bail_null(*inout_frame);
    bail_require(tb_length(*inout_frame) >= gcl_frame_header_len);
    memcpy(&hdr, tb_buf(*inout_frame), sizeof(hdr));
    bail_require(hdr.gf_body_proto == gbp_proto_gen);
    body = tb_buf(*inout_frame) + gcl_frame_header_len;
    body_len = tb_length(*inout_frame) - gcl_frame_header_len;
    {
        gcl_session_locker locker(sess);

        lc_log_basic(LOG_DEBUG, "%ssession %d: proto gen: in receive CATCHALL",
                     gcl_log_prefix(sess), sess->gs_id);
        // The envelope must be whole, carry the magic and hold what it announces.
        if (body_len < GEN_PROTO_HEADER_LEN || gen_be32(body) != GEN_PROTO_MAGIC) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto gen: bad message envelope",
                         gcl_log_prefix(sess), sess->gs_id);
            err = lc_err_assertion_failed;
            goto bail;
        }
        type = gen_be32(body + 4);
        msg_len = gen_be32(body + 12);
        if (msg_len > body_len - GEN_PROTO_HEADER_LEN) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto gen: message of %u bytes in a body of %u",
                         gcl_log_prefix(sess), sess->gs_id, msg_len, body_len);
            err = lc_err_assertion_failed;
            goto bail;
        }
        lc_log_basic(LOG_DEBUG, "message received type %d length %d", static_cast<int>(type),
                     static_cast<int>(msg_len));
        err = gen_msg_create(&copy, static_cast<gen_msg_type>(type), msg_len);
        bail_error(err);
        memcpy(copy, body + GEN_PROTO_HEADER_LEN, msg_len);
        gen_header_of(copy)->gen_msg_id = gen_be32(body + 8);
        gen_msg_dump(sess, copy, LOG_DEBUG, gen_label("RECV", type));

        gss = gen_get_session_state(sess);
        if (type == gen_type_request) {
            if (gss == nullptr || gss->gss_request_callback_func == nullptr) {
                lc_log_basic(LOG_WARNING, "%ssession %d: proto ccom: no request update callback",
                             gcl_log_prefix(sess), sess->gs_id);
                goto bail;
            }
            err = gss->gss_request_callback_func(sess, copy, msg_len,
                                                 gss->gss_request_callback_arg);
            bail_error(err);
        } else if (type == gen_type_response) {
            if (gss == nullptr || gss->gss_response_callback_func == nullptr) {
                lc_log_basic(LOG_WARNING, "%ssession %d: proto ccom: no reponse update callback",
                             gcl_log_prefix(sess), sess->gs_id);
                goto bail;
            }
            err = gss->gss_response_callback_func(sess, copy, msg_len,
                                                  gss->gss_response_callback_arg);
            bail_error(err);
        } else {
            lc_log_basic(LOG_ERR, "%ssession %d: proto ccom: invalid body message type %d",
                         gcl_log_prefix(sess), sess->gs_id, static_cast<int>(type));
        }
    }

bail:
    gen_msg_free(&copy);
    return err;
}
