/*
 * The texts of the status codes.
 */
#include <libubus.h>

static const char *const TEXTS[] = {
    [UBUS_STATUS_OK] = "Success",
    [UBUS_STATUS_INVALID_COMMAND] = "Invalid command",
    [UBUS_STATUS_INVALID_ARGUMENT] = "Invalid argument",
    [UBUS_STATUS_METHOD_NOT_FOUND] = "Method not found",
    [UBUS_STATUS_NOT_FOUND] = "Not found",
    [UBUS_STATUS_NO_DATA] = "No response",
    [UBUS_STATUS_PERMISSION_DENIED] = "Permission denied",
    [UBUS_STATUS_TIMEOUT] = "Request timed out",
    [UBUS_STATUS_NOT_SUPPORTED] = "Operation not supported",
    [UBUS_STATUS_UNKNOWN_ERROR] = "Unknown error",
    [UBUS_STATUS_CONNECTION_FAILED] = "Connection failed",
};
_Static_assert(sizeof(TEXTS) / sizeof(TEXTS[0]) == __UBUS_STATUS_LAST, "each status code has its text");

const char *ubus_strerror(int error) {
    return error >= 0 && error < __UBUS_STATUS_LAST ? TEXTS[error] : TEXTS[UBUS_STATUS_UNKNOWN_ERROR];
}
