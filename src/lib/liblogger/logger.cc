// The register library's log callback and module log levels.
#include "logger.h"

#include "bnode_types.h"
#include "logging.h"

namespace {

const char *const log_level_table[] = {
    "LOG_EMERG", "LOG_ALERT", "LOG_CRIT", "LOG_ERR", "LOG_WARNING", "LOG_NOTICE", "LOG_INFO", "LOG_DEBUG",
};

const char *log_level_name(uint32 level)
{
    return level < sizeof(log_level_table) / sizeof(log_level_table[0]) ? log_level_table[level] : "UNKNOWN";
}

}  // namespace

void log_cb(vq_log_severity_t severity, const char *module_name, char *msg)
{
    int level = LOG_DEBUG;

    switch (static_cast<int>(severity)) {
    case 1:
        level = LOG_ERR;
        break;
    case 3:
        level = LOG_WARNING;
        break;
    case 7:
        level = LOG_NOTICE;
        break;
    case 15:
        level = LOG_INFO;
        break;
    default:
        level = LOG_DEBUG;
        break;
    }
    lc_log_basic(level, "SDK LOG MESSAGE: module: [%s] : [%s]", module_name ? module_name : "",
                 msg ? msg : "");
}

int logger_change_log_level(const char *bname, const tstr_array *bname_parts, const bn_binding *binding,
                            uint8 *ret_level)
{
    int err = 0;
    uint32 num_parts = 0;
    uint8 level = 0;

    bail_null(bname_parts);
    bail_null(binding);
    bail_null(ret_level);

    num_parts = tstr_array_length_quick(bname_parts);
    if (num_parts != 5 && num_parts != 6) {
        lc_log_basic(LOG_WARNING, "%s: Unknown node '%s'!", __func__, bname ? bname : "");
        goto bail;
    }

    err = bn_binding_get_uint8(binding, ba_value, nullptr, &level);
    bail_error(err);
    *ret_level = level;
    lc_log_basic(LOG_NOTICE, "%s: Change log [%s] level to: [%u, %s]",
                 tstr_array_get_str_quick(bname_parts, num_parts - 2),
                 tstr_array_get_str_quick(bname_parts, num_parts - 1), level, log_level_name(level));

bail:
    return err;
}
