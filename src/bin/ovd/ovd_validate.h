// The high-availability validation of a device: does what runs match what is configured?
// The validation mends what it can (PLIB, the admin capabilities, PAOS); only what can't
// be written fails the device.
#pragma once

#include "bnode.h"
#include "common.h"
#include "ovd_ports_cache.h"
#include "tstring.h"

// The `status` of the validate answer.  Inside the flow the same variable is a truth value
// the other way round: 1 means that the device passed.
typedef enum validation_status {
    DEV_VALIDATED_OK = 0,
    DEV_VALIDATED_ERR = 1,
} validation_status;

// /portd/events/device-validate-ib: dev_id (bt_uint32).  Answered with
// /ib/events/device-validate-ib-done, but for a missing dev_id or a failure of the
// flow's own machinery.
int ovd_handle_ib_device_validate_event(const bn_binding_array *bindings);
int ovd_send_device_validate_done_event(validation_status status, uint32 devid);

// Walks the device's ports of served SWIDs in text order; the first failing port ends the
// walk.  *valid_status is true when the device passed.
int validate_device_flow(uint32 dev_id, validation_status *valid_status);
// PLIB maps the local port to the port's InfiniBand port, or is written so.
int validate_plib(ifindexInformation *ret_val_from_ib_ports_ht, tbool *status);
// The admin capabilities and PAOS agree with the configuration, or are written so: a
// running port is taken down around the write.
int validate_port_attributes(ifindexInformation *ret_val_from_ib_ports_ht, tbool *status,
                             const tstring *ifindex);
