// Resetting a port whose configuration was deleted.
#include "ovd_port_config.h"

#include "logging.h"

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
    tbool found = false;
    void *value = nullptr;
    port_config_parameters_t *port_config = nullptr;

    (void)enable_port;
    (void)disable_port;
    bail_null(ifindex);

    if (port_exists) {
        bail_null(port_info);
        // The hardware side of the reset joins here with the port deletion flow:
        //     err = handleIbPortDeletion(port_info, &new_vl, &new_configured_state,
        //                                enable_port, disable_port);
        //     bail_error(err);
        // It writes the port's default attributes, leaves the port up or down as
        // enable_port and disable_port say, and gives the default VL and the port's
        // state back for the record below.  Until it is there the record gets both as
        // not set.
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
