// Busy modems of Sierra Wireless; see sierra_busy.h.
#include "vendor/sierra_busy.h"

#include <syslog.h>

#include "connection/interface_control.h"

namespace {

constexpr int32_t TIMEOUT_SECONDS = 100;

} // namespace

bool sierra_is_busy(const ModemModel &model, const char *message) {
    if (iface_status(model.ifname, TIMEOUT_SECONDS) != IFACE_PENDING) {
        return false;
    }
    syslog(LOG_DEBUG, "%s", message);
    return true;
}
