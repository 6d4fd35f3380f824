// The router's Wi-Fi service.
#pragma once

// Reloads the Wi-Fi so that a changed channel takes effect. Returns 0, or the exit status of the reload.
int wifi_restart();
