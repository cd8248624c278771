// Resetting a port whose configuration was deleted.
#include "ovd_port_config.h"

#include "logging.h"
#include "ovd_port_removal.h"

namespace {

// What a port falls back to when its configuration is gone.
constexpr uint8 kDefaultWidth = 5; // 1X and 4X
constexpr uint16 kDefaultMtu = 4096;
constexpr uint8 kDefaultFec = 0; // auto

} // namespace

int handle_deleted_port_config(const tstring *ifindex, tbool port_exists, tbool config_exists,
                               ifindexInformation *port_info, tbool enable_port,
                               tbool check_config_exist, tbool disable_port)
{
    int err = 0;
    uint8 new_vl = OVD_CONFIG_NOT_SET;
    uint8 new_configured_state = OVD_CONFIG_NOT_SET;
    tbool configured_state = false;
    tbool found = false;
    void *value = nullptr;
    port_config_parameters_t *port_config = nullptr;

    bail_null(ifindex);

    if (port_exists) {
        bail_null(port_info);
        // The hardware gets the port's defaults; the record below the default VL and the
        // state the port was left at.
        err = handleIbPortDeletion(port_info, &new_vl, &configured_state, enable_port,
                                   disable_port);
        bail_error(err);
        new_configured_state = configured_state ? 1 : 0;
    }

    if (config_exists) {
        bail_null(ifindex_to_config_ht);
        err = ht_lookup(ifindex_to_config_ht, ifindex, ts_length(ifindex), &found, nullptr,
                        nullptr, &value);
        bail_error(err);
        port_config = static_cast<port_config_parameters_t *>(value);
        bail_null(port_config);
        port_config->width = kDefaultWidth;
        port_config->mtu = kDefaultMtu;
        port_config->op_vls = new_vl;
        port_config->speed = OVD_CONFIG_NOT_SET;
        port_config->enable = new_configured_state;
        port_config->fec = kDefaultFec;
    } else if (check_config_exist) {
        lc_log_basic(LOG_WARNING, "%s: ifindex: [%s] supposed to be in configuration DB",
                     __func__, ts_str(ifindex));
    }

bail:
    return err;
}
