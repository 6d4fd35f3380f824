// How many models the built-in list has; the list itself is reached through modem_head (modem/model.h).
#pragma once

#include "modem/model.h"

constexpr size_t MODEM_MODEL_COUNT = 13;
