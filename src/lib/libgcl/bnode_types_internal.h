// What the value-type modules share among themselves and nobody else needs.
#pragma once

#include "bnode_types.h"
#include "logging.h"

// Makes a new attribute and hands it to set(attrib), which gives it its id, type and
// value; the attribute is released again when that fails.  A text that doesn't parse
// (lc_err_bad_type) is an ordinary answer and is passed up quietly.
template <typename Set>
int bn_attrib_new_common(bn_attrib **ret_attrib, Set set)
{
    int err = 0;
    bn_attrib *attrib = nullptr;

    if (ret_attrib == nullptr) {
        lc_log_basic(LOG_ERR, "Return attribute pointer was NULL");
        err = lc_err_unexpected_null;
        goto bail;
    }
    *ret_attrib = nullptr;
    err = bn_attrib_new(&attrib);
    if (err) {
        lc_log_basic(LOG_ERR, "Error creating attribute");
        goto bail;
    }
    err = set(attrib);
    if (err) {
        // A text that doesn't parse is an ordinary answer, passed up quietly.
        lc_log_basic(err == lc_err_bad_type ? LOG_DEBUG : LOG_ERR, "Error setting attribute");
        goto bail;
    }
    *ret_attrib = attrib;
    attrib = nullptr;

bail:
    bn_attrib_free(&attrib);
    return err;
}
