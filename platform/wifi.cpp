// The router's Wi-Fi service, driven by OpenWrt's own command.
#include "platform/wifi.h"

#include "platform/shell.h"

int wifi_restart() {
    return execCommand("wifi reload");
}
