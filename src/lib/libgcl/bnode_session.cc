// The bnode body protocol on sessions: registration, per-session state and callbacks, and
// the sending and receiving of management messages.
#include "bnode_session.h"

#include <cstdlib>
#include <cstring>

#include "bnode_wire.h"
#include "gcl_internal.h"
#include "logging.h"

namespace {

// The message kinds by their number, for dispatch and log lines.
const char *bn_kind_name(uint16 msg_type)
{
    switch (msg_type) {
    case bbmt_query_request:
    case bbmt_query_response:
        return "query";
    case bbmt_set_request:
    case bbmt_set_response:
        return "set";
    case bbmt_action_request:
    case bbmt_action_response:
        return "action";
    case bbmt_event_request:
    case bbmt_event_response:
        return "event";
    default:
        return "unknown";
    }
}

tbool bn_msg_type_is_response(uint16 msg_type)
{
    return msg_type == bbmt_query_response || msg_type == bbmt_set_response ||
           msg_type == bbmt_action_response || msg_type == bbmt_event_response;
}

bn_global_state *bn_get_global_state(gcl_handle *gclh)
{
    gcl_bp_registration *reg = gcl_get_body_protocol_registration(gclh, gbp_proto_bnode);
    return reg != nullptr ? static_cast<bn_global_state *>(reg->gbpr_state_ptr) : nullptr;
}

// Takes the next message id, and a new transaction id when the message has none.  Called
// with the handle lock held.
void bn_assign_ids(bn_global_state *bgs, uint32 *inout_msg_id, uint32 *inout_transaction_id)
{
    *inout_msg_id = bgs->bgs_next_msg_id++;
    if (*inout_transaction_id == 0) {
        *inout_transaction_id = bgs->bgs_next_msg_id;
        ++bgs->bgs_next_transaction_id;
    }
}

// The service of a message sent with service id 0: the one the admin protocol opened last
// on this session, looked up once.
uint16 bn_default_service_id(gcl_session *sess, bn_session_state *bss)
{
    if (bss->bss_default_service_id == 0) {
        const gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
        if (gas != nullptr) {
            bss->bss_default_service_id = gas->gas_default_service_id;
        }
    }
    return static_cast<uint16>(bss->bss_default_service_id);
}

// Hands a serialised frame (32 bytes of room in front) to the session, or drops it when
// the session isn't connected.
int bn_send_frame(gcl_session *sess, bn_session_state *bss, uint16 msg_type, tbuf **inout_frame,
                  const char *what)
{
    int err = 0;

    if (sess->gs_state != gss_connected) {
        lc_log_basic(LOG_INFO, "Dropping %s to non-connected session %d", what, sess->gs_id);
        goto bail;
    }
    err = gcl_session_send_frame_components_tb(sess, gbp_proto_bnode, msg_type,
                                               bn_wire_gcl_header_space, inout_frame);
    bail_error(err);
    ++bss->bnb_sent_msgs;

bail:
    return err;
}

// What a request or response callback decides is its own business: its failure has been
// logged where it arose, and it is no fault of the session.  Only a frame that can't be
// read ends the session; a peer's malformed request must not.
void bn_note_callback_result(const gcl_session *sess, uint16 msg_type, const char *direction,
                             int cb_err)
{
    if (cb_err == 0 || cb_err == lc_err_cancelled) {
        return;
    }
    lc_log_basic(LOG_NOTICE, "%ssession %d: proto bnode: %s %s callback failed with code %d",
                 gcl_log_prefix(sess), sess->gs_id, bn_kind_name(msg_type), direction, cb_err);
}

int bn_dispatch_request(gcl_session *sess, bn_session_state *bss, uint16 msg_type,
                        bn_request **inout_req)
{
    int err = 0;
    bn_msg_request_callback_func func = nullptr;
    void *arg = nullptr;
    const bn_msg_callbacks &cbs = bss->bss_callbacks;

    switch (msg_type) {
    case bbmt_query_request:
        func = cbs.bmc_query_request_func;
        arg = cbs.bmc_query_request_arg;
        break;
    case bbmt_set_request:
        func = cbs.bmc_set_request_func;
        arg = cbs.bmc_set_request_arg;
        break;
    case bbmt_action_request:
        func = cbs.bmc_action_request_func;
        arg = cbs.bmc_action_request_arg;
        break;
    case bbmt_event_request:
        func = cbs.bmc_event_request_func;
        arg = cbs.bmc_event_request_arg;
        break;
    default:
        lc_log_basic(LOG_ERR, "%ssession %d: proto bnode: invalid body message type %d",
                     gcl_log_prefix(sess), sess->gs_id, msg_type);
        goto bail;
    }
    if (func == nullptr) {
        lc_log_basic(LOG_WARNING, "%ssession %d: proto bnode: no %s request callback",
                     gcl_log_prefix(sess), sess->gs_id, bn_kind_name(msg_type));
        goto bail;
    }
    bn_note_callback_result(sess, msg_type, "request", func(sess, inout_req, arg));

bail:
    return err;
}

int bn_dispatch_response(gcl_session *sess, bn_session_state *bss, uint16 msg_type,
                         bn_response **inout_resp)
{
    int err = 0;
    bn_msg_response_callback_func func = nullptr;
    void *arg = nullptr;
    const bn_msg_callbacks &cbs = bss->bss_callbacks;

    switch (msg_type) {
    case bbmt_query_response:
        func = cbs.bmc_query_response_func;
        arg = cbs.bmc_query_response_arg;
        break;
    case bbmt_set_response:
        func = cbs.bmc_set_response_func;
        arg = cbs.bmc_set_response_arg;
        break;
    case bbmt_action_response:
        func = cbs.bmc_action_response_func;
        arg = cbs.bmc_action_response_arg;
        break;
    case bbmt_event_response:
        func = cbs.bmc_event_response_func;
        arg = cbs.bmc_event_response_arg;
        break;
    default:
        lc_log_basic(LOG_ERR, "%ssession %d: proto bnode: invalid body message type %d",
                     gcl_log_prefix(sess), sess->gs_id, msg_type);
        goto bail;
    }
    if (func == nullptr) {
        const bn_response *resp = *inout_resp;
        lc_log_basic(LOG_WARNING,
                     "%ssession %d: proto bnode: no %s response callback: code = %d msg = %s",
                     gcl_log_prefix(sess), sess->gs_id, bn_kind_name(msg_type),
                     static_cast<int>(resp->brs_return_code),
                     resp->brs_return_message != nullptr ? ts_str(resp->brs_return_message)
                                                         : "");
        goto bail;
    }
    bn_note_callback_result(sess, msg_type, "response", func(sess, inout_resp, arg));

bail:
    return err;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Registration.

int bn_init(gcl_handle *gclh)
{
    int err = 0;
    bn_global_state *bgs = nullptr;
    gcl_bp_registration reg;

    bail_null(gclh);
    bgs = static_cast<bn_global_state *>(calloc(1, sizeof(*bgs)));
    bail_null(bgs);
    bgs->bgs_next_msg_id = 1;
    bgs->bgs_next_transaction_id = 1;

    memset(&reg, 0, sizeof(reg));
    reg.gbpr_body_proto = gbp_proto_bnode;
    strlcpy(reg.gbpr_proto_name, "bnode", sizeof(reg.gbpr_proto_name));
    reg.gbpr_enabled = true;
    reg.gbpr_session_new = bn_session_new;
    reg.gbpr_session_free = bn_session_free;
    reg.gbpr_query_session_state = bn_query_session_state;
    reg.gbpr_msg_callbacks[gcl_body_msg_type_catchall] = {
        gbp_proto_bnode, gcl_body_msg_type_catchall, bn_msg_recv_catchall, nullptr};
    reg.gbpr_state_ptr = bgs;
    err = gcl_register_body_protocol(gclh, &reg);
    bail_error(err);
    bgs->bgs_reg = gcl_get_body_protocol_registration(gclh, gbp_proto_bnode);
    bgs = nullptr;

bail:
    free(bgs);
    return err;
}

int bn_deinit(gcl_handle *gclh)
{
    int err = 0;
    gcl_bp_registration *reg = nullptr;

    bail_null(gclh);
    reg = gcl_get_body_protocol_registration(gclh, gbp_proto_bnode);
    if (reg != nullptr) {
        free(reg->gbpr_state_ptr);
        reg->gbpr_state_ptr = nullptr;
        delete reg;
        gclh->gh_bp_reg[gbp_proto_bnode] = nullptr;
    }

bail:
    return err;
}

bn_session_state *bn_get_session_state(const gcl_session *sess)
{
    if (sess == nullptr) {
        return nullptr;
    }
    return static_cast<bn_session_state *>(sess->gs_bp_state_ptr[gbp_proto_bnode]);
}

int bn_session_new(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    bn_session_state *bss = nullptr;
    gcl_bp_registration *reg = nullptr;
    bn_global_state *bgs = nullptr;

    (void)arg;
    bail_null(gclh);
    bail_null(sess);
    bail_require(sess->gs_bp_state_ptr[gbp_proto_bnode] == nullptr);
    reg = gcl_get_body_protocol_registration(gclh, gbp_proto_bnode);
    bgs = reg != nullptr ? static_cast<bn_global_state *>(reg->gbpr_state_ptr) : nullptr;
    bss = static_cast<bn_session_state *>(calloc(1, sizeof(*bss)));
    bail_null(bss);
    bss->bss_reg = reg;
    bss->bss_global_state = bgs;
    if (bgs != nullptr) {
        bss->bss_callbacks = bgs->bgs_callbacks;
    }
    bss->bss_state = bss_init;
    sess->gs_bp_state_ptr[gbp_proto_bnode] = bss;

bail:
    return err;
}

int bn_session_free(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;

    (void)gclh;
    (void)arg;
    bail_null(sess);
    free(sess->gs_bp_state_ptr[gbp_proto_bnode]);
    sess->gs_bp_state_ptr[gbp_proto_bnode] = nullptr;

bail:
    return err;
}

int bn_query_session_state(gcl_handle *gclh, gcl_session *sess, uint32 *ret_state, void *arg)
{
    int err = 0;
    const bn_session_state *bss = bn_get_session_state(sess);

    (void)gclh;
    (void)arg;
    bail_null(ret_state);
    *ret_state = bss != nullptr ? bss->bss_state : bss_none;

bail:
    return err;
}

// The eight setters differ only in the member they fill.
#define BN_DEFINE_CALLBACK_SETTER(kind, dir, functype)                                      \
    int bn_set_session_callback_##kind##_##dir##_msg(gcl_session *sess,                     \
                                                     functype callback_func,                \
                                                     void *callback_arg)                    \
    {                                                                                       \
        int err = 0;                                                                        \
        bn_session_state *bss = bn_get_session_state(sess);                                 \
        bail_null(bss);                                                                     \
        {                                                                                   \
            gcl_session_locker locker(sess);                                                \
            bss->bss_callbacks.bmc_##kind##_##dir##_func = callback_func;                   \
            bss->bss_callbacks.bmc_##kind##_##dir##_arg = callback_arg;                     \
        }                                                                                   \
    bail:                                                                                   \
        return err;                                                                         \
    }

BN_DEFINE_CALLBACK_SETTER(query, request, bn_msg_request_callback_func)
BN_DEFINE_CALLBACK_SETTER(query, response, bn_msg_response_callback_func)
BN_DEFINE_CALLBACK_SETTER(set, request, bn_msg_request_callback_func)
BN_DEFINE_CALLBACK_SETTER(set, response, bn_msg_response_callback_func)
BN_DEFINE_CALLBACK_SETTER(action, request, bn_msg_request_callback_func)
BN_DEFINE_CALLBACK_SETTER(action, response, bn_msg_response_callback_func)
BN_DEFINE_CALLBACK_SETTER(event, request, bn_msg_request_callback_func)
BN_DEFINE_CALLBACK_SETTER(event, response, bn_msg_response_callback_func)

#undef BN_DEFINE_CALLBACK_SETTER

// ---------------------------------------------------------------------------------------
// Sending.

int bn_request_msg_send(gcl_session *sess, bn_request *inout_req_msg)
{
    return bn_request_msg_preserve_send(sess, inout_req_msg, nullptr);
}

int bn_request_msg_preserve_send(gcl_session *sess, bn_request *inout_req_msg,
                                 bn_request_preserves *ret_preserves)
{
    int err = 0;
    bn_session_state *bss = nullptr;
    bn_global_state *bgs = nullptr;
    tbuf *frame = nullptr;
    bn_request_header *hdr = nullptr;

    bail_null(sess);
    bail_null(inout_req_msg);
    {
        gcl_session_locker locker(sess);

        bss = bn_get_session_state(sess);
        bail_null(bss);
        bgs = bss->bss_global_state;
        bail_null(bgs);
        hdr = &inout_req_msg->br_header;

        if (ret_preserves != nullptr) {
            ret_preserves->brp_msg_id = hdr->brh_msg_id;
            ret_preserves->brp_service_id = hdr->brh_service_id;
            ret_preserves->brp_transaction_id = hdr->brh_transaction_id;
        }
        bn_assign_ids(bgs, &hdr->brh_msg_id, &hdr->brh_transaction_id);
        if (hdr->brh_service_id == 0) {
            hdr->brh_service_id = bn_default_service_id(sess, bss);
        }

        err = bn_request_msg_serialize(inout_req_msg, bn_wire_gcl_header_space, &frame);
        bail_error(err);
        complain_error(bn_request_msg_dump(LOG_DEBUG, "SEND REQ", inout_req_msg));

        err = bn_send_frame(sess, bss, hdr->brh_msg_type, &frame, "request");
        bail_error(err);
    }

bail:
    tb_free(&frame);
    return err;
}

int bn_response_msg_send(gcl_session *sess, bn_response *inout_req_msg)
{
    int err = 0;
    bn_session_state *bss = nullptr;
    bn_global_state *bgs = nullptr;
    tbuf *frame = nullptr;
    bn_response_header *hdr = nullptr;

    bail_null(sess);
    bail_null(inout_req_msg);
    {
        gcl_session_locker locker(sess);

        bss = bn_get_session_state(sess);
        bail_null(bss);
        bgs = bss->bss_global_state;
        bail_null(bgs);
        hdr = &inout_req_msg->brs_header;

        bn_assign_ids(bgs, &hdr->brsh_msg_id, &hdr->brsh_transaction_id);
        if (hdr->brsh_service_id == 0) {
            hdr->brsh_service_id = bn_default_service_id(sess, bss);
        }

        err = bn_response_msg_serialize(inout_req_msg, bn_wire_gcl_header_space, &frame);
        bail_error(err);
        complain_error(bn_response_msg_dump(LOG_DEBUG, "SEND RESP", inout_req_msg));

        err = bn_send_frame(sess, bss, hdr->brsh_msg_type, &frame, "response");
        bail_error(err);
    }

bail:
    tb_free(&frame);
    return err;
}

int bn_response_frame_relay(gcl_session *sess, tbuf **inout_frame, uint32 req_msg_id)
{
    int err = 0;
    bn_session_state *bss = nullptr;
    bn_global_state *bgs = nullptr;
    bn_response_header_wire hdr{};
    uint32 msg_id = 0;
    uint32 transaction_id = 0;
    uint16 msg_type = 0;

    bail_null(sess);
    bail_null(inout_frame);
    bail_null(*inout_frame);
    bail_require(tb_length(*inout_frame) >= bn_wire_gcl_header_space + sizeof(hdr));
    {
        gcl_session_locker locker(sess);

        bss = bn_get_session_state(sess);
        bail_null(bss);
        bgs = bss->bss_global_state;
        bail_null(bgs);
        memcpy(&hdr, tb_buf(*inout_frame) + bn_wire_gcl_header_space, sizeof(hdr));
        err = bn_byte_swap_response_header(&hdr);
        bail_error(err);
        bail_require(bn_msg_type_is_response(hdr.brshw_msg_type));
        msg_type = hdr.brshw_msg_type;

        // The ids a response made here would get.
        bn_assign_ids(bgs, &msg_id, &transaction_id);
        hdr.brshw_msg_id = msg_id;
        hdr.brshw_transaction_id = transaction_id;
        hdr.brshw_req_msg_id = req_msg_id;
        hdr.brshw_service_id = bn_default_service_id(sess, bss);
        err = bn_byte_swap_response_header(&hdr);
        bail_error(err);
        err = tb_put_buf(*inout_frame, bn_wire_gcl_header_space,
                         reinterpret_cast<const uint8 *>(&hdr), sizeof(hdr));
        bail_error(err);

        err = bn_send_frame(sess, bss, msg_type, inout_frame, "response");
        bail_error(err);
    }

bail:
    tb_free(inout_frame);
    return err;
}

int bn_response_msg_create_send(gcl_session *sess, bn_msg_type resp_type,
                                uint32 request_msg_id, uint32 return_code,
                                const char *return_msg, uint16 service_id)
{
    int err = 0;
    bn_response *resp = nullptr;

    err = bn_response_msg_create(&resp, resp_type, request_msg_id, return_code, return_msg);
    bail_error(err);
    if (service_id != 0) {
        err = bn_response_set_service_id(resp, service_id);
        bail_error(err);
    }
    err = bn_response_msg_send(sess, resp);
    bail_error(err);

bail:
    bn_response_msg_free(&resp);
    return err;
}

// ---------------------------------------------------------------------------------------
// Receiving.

int bn_request_msg_recv(gcl_session *sess, const tbuf *frame, uint32 extra_header_space,
                        bn_request **ret_request)
{
    int err = 0;

    bail_null(ret_request);
    *ret_request = nullptr;
    bail_null(sess);
    bail_null(frame);
    {
        gcl_session_locker locker(sess);
        err = bn_request_msg_deserialize(frame, extra_header_space, ret_request);
        bail_error(err);
        complain_error(bn_request_msg_dump(bn_msg_dump_level_off, "RECV REQ", *ret_request));
    }

bail:
    return err;
}

int bn_response_msg_recv(gcl_session *sess, const tbuf *frame, uint32 extra_header_space,
                         bn_response **ret_response)
{
    int err = 0;
    const gbp_admin_session_state *gas = nullptr;
    uint32 open_mask = 0;
    uint32 service = 0;

    bail_null(ret_response);
    *ret_response = nullptr;
    bail_null(sess);
    bail_null(frame);
    {
        gcl_session_locker locker(sess);
        err = bn_response_msg_deserialize(frame, extra_header_space, ret_response);
        bail_error(err);
        complain_error(
            bn_response_msg_dump(bn_msg_dump_level_off, "RECV RESP", *ret_response));

        gas = gbp_admin_get_session_state(sess);
        open_mask = gas != nullptr ? gas->gas_service_id_open_mask : 0;
        service = (*ret_response)->brs_header.brsh_service_id;
        if (service > 31 || (open_mask & (1U << service)) == 0) {
            lc_log_basic(LOG_ERR, "%ssession %d: service %d not open: %d",
                         gcl_log_prefix(sess), sess->gs_id, static_cast<int>(service),
                         static_cast<int>(open_mask));
            bn_response_msg_free(ret_response);
        }
    }

bail:
    return err;
}

int bn_msg_recv_catchall(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame, void *arg)
{
    int err = 0;
    gcl_frame_header hdr;
    const bn_global_state *bgs = nullptr;
    bn_session_state *bss = nullptr;
    bn_request *req = nullptr;
    bn_response *resp = nullptr;
    uint16 proto = gbp_proto_bnode;

    (void)arg;
    bail_null(gclh);
    bail_null(sess);
    bail_null(inout_frame);
    bail_null(*inout_frame);
    bail_require(tb_length(*inout_frame) >= gcl_frame_header_len);
    memcpy(&hdr, tb_buf(*inout_frame), sizeof(hdr));
    bgs = bn_get_global_state(gclh);
    if (bgs != nullptr && bgs->bgs_reg != nullptr) {
        proto = bgs->bgs_reg->gbpr_body_proto;
    }
    bail_require(hdr.gf_body_proto == proto);

    {
        gcl_session_locker locker(sess);

        lc_log_basic(LOG_DEBUG, "%ssession %d: proto bnode: in receive CATCHALL",
                     gcl_log_prefix(sess), sess->gs_id);
        bss = bn_get_session_state(sess);
        bail_null(bss);

        if (bn_msg_type_is_response(hdr.gf_body_msg_type)) {
            err = bn_response_msg_recv(sess, *inout_frame, gcl_frame_header_len, &resp);
            bail_error(err);
        } else {
            err = bn_request_msg_recv(sess, *inout_frame, gcl_frame_header_len, &req);
            bail_error(err);
        }
        tb_free(inout_frame);

        if (resp != nullptr) {
            err = bn_dispatch_response(sess, bss, hdr.gf_body_msg_type, &resp);
            bail_error(err);
        } else if (req != nullptr) {
            err = bn_dispatch_request(sess, bss, hdr.gf_body_msg_type, &req);
            bail_error(err);
        }
    }

bail:
    bn_request_msg_free(&req);
    bn_response_msg_free(&resp);
    return err;
}
