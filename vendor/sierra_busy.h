// Whether a Sierra Wireless modem must not be asked just now: while its network interface is coming up, its port is not
// touched.
#pragma once

#include "modem/model.h"

// True while netifd says that the interface of the model's copy is pending; `message` then goes to the system log at
// debug priority, as it is. Waits up to 100 seconds for netifd; where that does not answer, the modem is not busy.
bool sierra_is_busy(const ModemModel &model, const char *message);
