// Texts of the register library's enumerations.
#include "vqd_access_reg.h"

const char *const vqd_access_cmd_str[VQD_ACCESS_CMD_MAX + 1] = {
    "ADD", "DELETE", "TEST", "GET", "SET", "GET ALL",
};

const char *const vqd_status2str_arr[VQD_STATUS_MAX + 1] = {
    "SUCCESS",
    "ERROR",
    "NO RESOURCES",
    "NO MEMORY",
    "PARAM ERROR",
    "NOT INITIALIZED",
    "DEVICE OPEN ERROR",
    "DEVICE CLOSE ERROR",
    "DEVICE GET ERROR",
    "DEVICE IOCTL ERROR",
    "HANDLE ERROR",
    "INVALID ACCESS CMD",
    "TIMEOUT",
    "ACCESS COMMAND UNSUPPORTED",
    "No valid path to reach the device",
    "FW RETURN VALUE != SUCCESS",
    "FW BUSY",
    "FW Resource unavailable",
};
