// The admin body protocol, client side: the provider's greeting and our answer to it, the
// check of the provider's identity, and the opening of a service.
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "gcl.h"
#include "gcl_internal.h"
#include "lock_mt.h"
#include "logging.h"
#include "ttime.h"

// An admin name field: fixed width, NUL-padded, always terminated.
int gas_put_name(tbuf *tb, uint32 offset, const char *name)
{
    uint8 field[bp_admin_name_len] = {};
    if (name != nullptr) {
        strncpy(reinterpret_cast<char *>(field), name, bp_admin_name_len - 1);
    }
    return tb_put_buf(tb, offset, field, bp_admin_name_len);
}

int gas_get_name(const tbuf *tb, uint32 offset, char **ret_name)
{
    int err = 0;
    char field[bp_admin_name_len + 1] = {};
    err = tb_get_buf(tb, offset, reinterpret_cast<uint8 *>(field), bp_admin_name_len);
    bail_error(err);
    free(*ret_name);
    *ret_name = safe_strdup(field);
    bail_null(*ret_name);
bail:
    return err;
}

namespace {

// Offsets of the fields in the bodies (behind the 32-byte header).
constexpr uint32 H = gcl_frame_header_len;

int gbp_admin_session_new(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = nullptr;
    gcl_bp_registration *reg = gcl_get_body_protocol_registration(gclh, gbp_proto_admin);
    (void)arg;

    bail_null(sess);
    bail_require(sess->gs_bp_state_ptr[gbp_proto_admin] == nullptr);
    gas = static_cast<gbp_admin_session_state *>(calloc(1, sizeof(*gas)));
    bail_null(gas);
    gas->gas_reg = reg;
    gas->gas_global_state =
        reg != nullptr ? static_cast<gbp_admin_global_state *>(reg->gbpr_state_ptr) : nullptr;
    gas->gas_auth_remote_uid = -1;
    gas->gas_auth_remote_gid = -1;
    gas->gas_auth_incoming_uid = -1;
    gas->gas_auth_incoming_gid = -1;
    gas->gas_state = gas_init;
    sess->gs_bp_state_ptr[gbp_proto_admin] = gas;

bail:
    return err;
}

int gbp_admin_connection_established(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    (void)gclh;
    (void)arg;
    bail_null(gas);
    gas->gas_state = gas_connected;
bail:
    return err;
}

int gbp_admin_connection_closed(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    (void)gclh;
    (void)arg;
    bail_null(gas);
    gas->gas_state = gas_closed;
bail:
    return err;
}

int gbp_admin_session_free(gcl_handle *gclh, gcl_session *sess, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = nullptr;
    (void)gclh;
    (void)arg;
    bail_null(sess);
    gas = static_cast<gbp_admin_session_state *>(sess->gs_bp_state_ptr[gbp_proto_admin]);
    if (gas != nullptr) {
        free(gas->gas_auth_remote_username);
        free(gas->gas_auth_incoming_username);
        free(gas->gas_peer_name);
        free(gas->gas_lang_tag);
        free(gas);
        sess->gs_bp_state_ptr[gbp_proto_admin] = nullptr;
    }
bail:
    return err;
}

int gbp_admin_query_session_state(gcl_handle *gclh, gcl_session *sess, uint32 *ret_state,
                                  void *arg)
{
    int err = 0;
    const gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    (void)gclh;
    (void)arg;
    bail_null(ret_state);
    *ret_state = gas != nullptr ? gas->gas_state : gas_none;
bail:
    return err;
}

// Checks the identity the provider claims.  *ret_ok false: refused, with the log line.
int gbp_admin_check_peer_identity(gcl_session *sess, int32 uid, int32 gid, tbool *ret_ok)
{
    int err = 0;
    const sockaddr_un *sun = nullptr;
    int32 owner_uid = -1;
    int32 owner_gid = -1;
    tbool has_path = false;

    *ret_ok = false;
    if ((uid == -1) != (gid == -1)) {
        lc_log_basic(LOG_ERR, "%ssession %d: proto admin: bad uid / gid in greeting: %d/%d",
                     gcl_log_prefix(sess), sess->gs_id, uid, gid);
        goto bail;
    }
    if (sess->gs_addr_remote.ss_family == AF_UNIX) {
        sun = reinterpret_cast<const sockaddr_un *>(&sess->gs_addr_remote);
        has_path = sess->gs_addr_remote_len > offsetof(sockaddr_un, sun_path) &&
                   sun->sun_path[0] != '\0';
        if (has_path) {
            err = gcl_lf_get_file_owner(sun->sun_path, &owner_uid, &owner_gid);
            bail_error(err);
        } else if (uid != -1 || gid != -1) {
            owner_uid = static_cast<int32>(geteuid());
            owner_gid = static_cast<int32>(getegid());
        } else {
            *ret_ok = true;
            goto bail;
        }
        if (uid != owner_uid || gid != owner_gid) {
            const std::string want_uid = std::to_string(owner_uid);
            const std::string want_gid = std::to_string(owner_gid);
            lc_log_basic(LOG_ERR,
                         "%ssession %d: proto admin: bad uid / gid in greeting: %d/%d not %s/%s",
                         gcl_log_prefix(sess), sess->gs_id, uid, gid, want_uid.c_str(),
                         want_gid.c_str());
            goto bail;
        }
        *ret_ok = true;
    } else if (sess->gs_addr_remote.ss_family == AF_INET ||
               sess->gs_addr_remote.ss_family == AF_INET6) {
        *ret_ok = true;
    } else {
        lc_log_basic(LOG_DEBUG, "%ssession %d: unknown af: %d", gcl_log_prefix(sess),
                     sess->gs_id, sess->gs_addr_remote.ss_family);
        *ret_ok = true;
    }

bail:
    return err;
}

}  // namespace

gbp_admin_session_state *gbp_admin_get_session_state(const gcl_session *sess)
{
    if (sess == nullptr) {
        return nullptr;
    }
    return static_cast<gbp_admin_session_state *>(sess->gs_bp_state_ptr[gbp_proto_admin]);
}

int gbp_admin_init(gcl_handle *gclh)
{
    int err = 0;
    gbp_admin_global_state *gag = nullptr;
    gcl_bp_registration reg;

    bail_null(gclh);
    gag = static_cast<gbp_admin_global_state *>(calloc(1, sizeof(*gag)));
    bail_null(gag);
    gag->gag_next_msg_id = 1;
    gag->gag_next_transaction_id = 1;

    memset(&reg, 0, sizeof(reg));
    reg.gbpr_body_proto = gbp_proto_admin;
    strlcpy(reg.gbpr_proto_name, "admin", sizeof(reg.gbpr_proto_name));
    reg.gbpr_session_new = gbp_admin_session_new;
    reg.gbpr_enabled = true;
    reg.gbpr_connection_established = gbp_admin_connection_established;
    reg.gbpr_connection_closed = gbp_admin_connection_closed;
    reg.gbpr_session_free = gbp_admin_session_free;
    reg.gbpr_query_session_state = gbp_admin_query_session_state;
    reg.gbpr_msg_callbacks[amt_greeting] = {gbp_proto_admin, amt_greeting,
                                            gbp_admin_msg_recv_greeting, nullptr};
    reg.gbpr_msg_callbacks[amt_open_service_response] = {
        gbp_proto_admin, amt_open_service_response, gbp_admin_msg_recv_open_service_response,
        nullptr};
    reg.gbpr_state_ptr = gag;
    err = gcl_register_body_protocol(gclh, &reg);
    bail_error(err);
    gag->gag_reg = gcl_get_body_protocol_registration(gclh, gbp_proto_admin);
    gag = nullptr;

bail:
    free(gag);
    return err;
}

int gbp_admin_deinit(gcl_handle *gclh)
{
    int err = 0;
    gcl_bp_registration *reg = nullptr;

    bail_null(gclh);
    reg = gcl_get_body_protocol_registration(gclh, gbp_proto_admin);
    if (reg != nullptr) {
        free(reg->gbpr_state_ptr);
        reg->gbpr_state_ptr = nullptr;
        delete reg;
        gclh->gh_bp_reg[gbp_proto_admin] = nullptr;
    }
bail:
    return err;
}

// ---------------------------------------------------------------------------------------
// The greeting.

int gbp_admin_msg_send_greeting_response(gcl_session *sess)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    gbp_admin_global_state *gag = nullptr;
    gcl_handle *gh = nullptr;
    tbuf *tb = nullptr;

    bail_null(gas);
    gag = gas->gas_global_state;
    bail_null(gag);
    gh = sess->gs_gcl_handle;

    err = tb_new_size(&tb, H + bp_admin_msg_greeting_response_len);
    bail_error(err);
    err = tb_set_length(tb, H);
    bail_error(err);
    err = tb_append_uint16(tb, bap_version);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_msg_id++);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_transaction_id++);
    bail_error(err);
    err = tb_append_uint32(tb, 0);
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), sess->gs_local_name);
    bail_error(err);
    err = tb_append_uint32(tb, static_cast<uint32>(gas->gas_auth_remote_uid));
    bail_error(err);
    err = tb_append_uint32(tb, static_cast<uint32>(gas->gas_auth_remote_gid));
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), gas->gas_auth_remote_username);
    bail_error(err);
    err = tb_append_uint32(tb, gas->gas_auth_remote_interactive ? 1 : 0);
    bail_error(err);
    bail_require(tb_length(tb) == H + bp_admin_msg_greeting_response_len);

    err = gcl_session_send_frame_components_tb(sess, gbp_proto_admin, amt_greeting_response,
                                               H, &tb);
    bail_error(err);

    gas->gas_state = gas_open_no_service;
    gas->gas_auth_remote_done = true;
    if (gh->gh_session_admin_ready_func != nullptr) {
        err = gh->gh_session_admin_ready_func(sess, true, false,
                                              gh->gh_session_admin_ready_arg);
        bail_error(err);
    }

bail:
    tb_free(&tb);
    return err;
}

int gbp_admin_msg_recv_greeting(gcl_handle *gclh, gcl_session *sess, tbuf **inout_frame,
                                void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    const tbuf *frame = nullptr;
    uint16 version = 0;
    uint32 claim_uid = 0;
    uint32 claim_gid = 0;
    uint32 interactive = 0;
    char *provider_name = nullptr;
    char *username = nullptr;
    tbool accepted = false;
    (void)gclh;
    (void)arg;

    bail_null(gas);
    bail_null(inout_frame);
    frame = *inout_frame;
    bail_null(frame);
    {
        gcl_session_locker lock(sess);
        if (tb_length(frame) <= H + bp_admin_msg_greeting_len - 1) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: greeting too short: %u",
                         gcl_log_prefix(sess), sess->gs_id, tb_length(frame));
            goto bail;
        }
        err = tb_get_uint16(frame, H, &version);
        bail_error(err);
        if (version != bap_version) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: bad version in greeting: %d not %d",
                         gcl_log_prefix(sess), sess->gs_id, version, bap_version);
            goto bail;
        }
        if (gas->gas_state != gas_connected) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: bad state in greeting:%d not %d",
                         gcl_log_prefix(sess), sess->gs_id, gas->gas_state, gas_connected);
            goto bail;
        }
        err = gas_get_name(frame, H + 10, &provider_name);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 42, &claim_uid);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 46, &claim_gid);
        bail_error(err);
        err = gas_get_name(frame, H + 50, &username);
        bail_error(err);
        err = tb_get_uint32_nonnull(frame, H + 82, &interactive);
        bail_error(err);

        err = gbp_admin_msg_send_greeting_response(sess);
        bail_error(err);

        err = gbp_admin_check_peer_identity(sess, static_cast<int32>(claim_uid),
                                            static_cast<int32>(claim_gid), &accepted);
        bail_error(err);
        if (!accepted) {
            goto bail;
        }
        if (static_cast<int32>(claim_uid) == -1 && static_cast<int32>(claim_gid) == -1) {
            gas->gas_auth_incoming_uid = sess->gs_self_uid;
            gas->gas_auth_incoming_gid = sess->gs_self_gid;
        } else {
            gas->gas_auth_incoming_uid = static_cast<int32>(claim_uid);
            gas->gas_auth_incoming_gid = static_cast<int32>(claim_gid);
        }
        free(gas->gas_auth_incoming_username);
        gas->gas_auth_incoming_username = username;
        username = nullptr;
        gas->gas_auth_incoming_interactive = interactive != 0;
        gas->gas_auth_incoming_done = true;
        free(gas->gas_peer_name);
        gas->gas_peer_name = provider_name;
        provider_name = nullptr;
        lc_log_basic(LOG_INFO, "%ssession %d: client open for peer %s (local name %s)",
                     gcl_log_prefix(sess), sess->gs_id, gas->gas_peer_name,
                     sess->gs_local_name);
    }

bail:
    free(provider_name);
    free(username);
    if (gas != nullptr && !gas->gas_auth_incoming_done && sess->gs_state != gss_closed) {
        lc_log_basic(LOG_INFO, "%ssession %d: session terminated by client",
                     gcl_log_prefix(sess), sess->gs_id);
        complain_error(gcl_session_close(sess, false));
        // The session is over; nothing more for the reader to report.
        err = 0;
    }
    return err;
}

// ---------------------------------------------------------------------------------------
// Opening a service.

int gbp_admin_msg_send_open_service(gcl_session *sess, gcl_body_proto body_proto,
                                    uint32 service, const char *lang_tag)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    gbp_admin_global_state *gag = nullptr;
    tbuf *tb = nullptr;

    bail_null(gas);
    gag = gas->gas_global_state;
    bail_null(gag);

    err = tb_new_size(&tb, H + bp_admin_msg_open_service_len);
    bail_error(err);
    err = tb_set_length(tb, H);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_msg_id++);
    bail_error(err);
    err = tb_append_uint32(tb, gag->gag_next_transaction_id++);
    bail_error(err);
    err = tb_append_uint32(tb, body_proto);
    bail_error(err);
    err = tb_append_uint32(tb, service);
    bail_error(err);
    err = gas_put_name(tb, tb_length(tb), lang_tag);
    bail_error(err);
    bail_require(tb_length(tb) == H + bp_admin_msg_open_service_len);

    err = gcl_session_send_frame_components_tb(sess, gbp_proto_admin, amt_open_service, H,
                                               &tb);
    bail_error(err);
    gas->gas_state = gas_wait_service_open_response;
    gas->gas_service_id_open_pending = service;

bail:
    tb_free(&tb);
    return err;
}

int gbp_admin_msg_recv_open_service_response(gcl_handle *gclh, gcl_session *sess,
                                             tbuf **inout_frame, void *arg)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    const tbuf *frame = nullptr;
    uint32 return_code = 0;
    uint32 service = 0;
    char *lang_tag = nullptr;
    (void)arg;

    bail_null(gas);
    bail_null(gclh);
    bail_null(inout_frame);
    frame = *inout_frame;
    bail_null(frame);
    {
        gcl_session_locker lock(sess);
        if (tb_length(frame) <= H + bp_admin_msg_open_service_response_len - 1) {
            lc_log_basic(LOG_ERR, "%ssession %d: proto admin: open service response too short: %u",
                         gcl_log_prefix(sess), sess->gs_id, tb_length(frame));
            err = lc_err_assertion_failed;
            goto bail;
        }
        err = tb_get_uint32_nonnull(frame, H + 44, &return_code);
        bail_error(err);
        service = gas->gas_service_id_open_pending;
        gas->gas_service_id_open_pending = 0;
        if (return_code == 0 && service >= 1 && service <= 4) {
            err = gas_get_name(frame, H + 12, &lang_tag);
            bail_error(err);
            gas->gas_state = gas_service_ready;
            gas->gas_service_id_open_mask |= 1U << service;
            gas->gas_default_service_id = service;
            free(gas->gas_lang_tag);
            gas->gas_lang_tag = lang_tag;
            lang_tag = nullptr;
            if (gclh->gh_session_service_available_func != nullptr) {
                err = gclh->gh_session_service_available_func(
                    sess, gbp_proto_admin, service, true, false,
                    gclh->gh_session_service_available_arg);
                bail_error(err);
            }
        } else {
            // The waiting opener sees the refusal by the missing bit of the service.
            gas->gas_state =
                gas->gas_service_id_open_mask != 0 ? gas_open_no_service : gas_service_ready;
        }
    }

bail:
    free(lang_tag);
    return err;
}

// ---------------------------------------------------------------------------------------
// The client's calls.

int gcl_session_client_open_service(gcl_session *sess, gcl_body_proto body_proto,
                                    uint32 service, const char *lang_tag, void *service_arg)
{
    int err = 0;
    const gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    (void)service_arg;

    bail_null(gas);
    if (gas->gas_state != gas_open_no_service && gas->gas_state != gas_service_ready) {
        lc_log_basic(LOG_ERR, "%ssession %d: cannot open service in admin state %d",
                     gcl_log_prefix(sess), sess->gs_id, gas->gas_state);
        err = lc_err_generic_error;
        goto bail;
    }
    err = gbp_admin_msg_send_open_service(sess, body_proto, service, lang_tag);
    bail_error(err);

bail:
    return err;
}

namespace {

// The wait left of max_wait_ms since `start`; negative max_wait_ms: no limit.
lt_dur_ms gcl_wait_left(lt_dur_ms max_wait_ms, lt_time_ms start)
{
    if (max_wait_ms < 0) {
        return -1;
    }
    const lt_dur_ms spent = lt_sys_uptime_ms() - start;
    return spent >= max_wait_ms ? 0 : max_wait_ms - spent;
}

}  // namespace

int gcl_session_client_open_service_blocking(gcl_session *sess, gcl_body_proto body_proto,
                                             uint32 service, const char *lang_tag,
                                             void *service_arg, lt_dur_ms max_wait_ms)
{
    int err = 0;
    gbp_admin_session_state *gas = gbp_admin_get_session_state(sess);
    gcl_handle *gh = nullptr;
    const lt_time_ms start = lt_sys_uptime_ms();

    bail_null(gas);
    gh = sess->gs_gcl_handle;

    while (gas->gas_state != gas_open_no_service && gas->gas_state != gas_service_ready) {
        if (gas->gas_state != gas_connected) {
            lc_log_basic(LOG_ERR, "%ssession %d: cannot open service in admin state %d",
                         gcl_log_prefix(sess), sess->gs_id, gas->gas_state);
            err = lc_err_generic_error;
            goto bail;
        }
        err = gcl_session_do_blocking_io(gh, sess, false, false, true, true, gbp_proto_admin,
                                         gcl_wait_left(max_wait_ms, start));
        bail_error_quiet(err);
        gas = gbp_admin_get_session_state(sess);
        bail_null(gas);
    }

    err = gcl_session_client_open_service(sess, body_proto, service, lang_tag, service_arg);
    bail_error(err);

    while (gas->gas_state != gas_service_ready) {
        if (gas->gas_state != gas_connected && gas->gas_state != gas_open_no_service &&
            gas->gas_state != gas_wait_service_open_response) {
            lc_log_basic(LOG_ERR, "%ssession %d: service open ended in admin state %d",
                         gcl_log_prefix(sess), sess->gs_id, gas->gas_state);
            err = lc_err_generic_error;
            goto bail;
        }
        err = gcl_session_do_blocking_io(gh, sess, false, false, true, true, gbp_proto_admin,
                                         gcl_wait_left(max_wait_ms, start));
        bail_error_quiet(err);
    }

    if ((gas->gas_service_id_open_mask & (1U << (service & 31))) == 0 || service > 31) {
        lc_log_basic(LOG_WARNING, "%ssession %d: service %u was not opened",
                     gcl_log_prefix(sess), sess->gs_id, service);
        err = lc_err_generic_error;
        goto bail;
    }

bail:
    if (err == lc_err_io_closed && sess != nullptr && sess->gs_state != gss_closed) {
        complain_error(gcl_session_close(sess, false));
    }
    return err;
}
