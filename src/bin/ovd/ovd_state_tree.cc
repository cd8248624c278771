// The /ib/state monitoring tree.
#include "ovd_state_tree.h"

#include "logging.h"

int ovd_mon_handle_get(const char *bname, const tstr_array *bname_parts, void *data,
                       bn_binding_array *resp_bindings)
{
    (void)bname_parts;
    (void)data;
    int err = 0;
    bail_null(bname);
    bail_null(resp_bindings);
    lc_log_basic(LOG_DEBUG, "%s: <= %s", __func__, bname);
    // No root is served yet: the device, SWID, port and status producers join here, each
    // under its root.  Until then every name ends here unanswered.
bail:
    return err;
}
