// The status block of a modem: link, faults, reachability, signal and new messages, as detection and the information
// endpoints report it.
#pragma once

#include <json-c/json.h>

#include "modem/model.h"

// Adds, in this order: "up" and the link's address and traffic (router/passthrough.h), "SIM_status" (fault_analysis; 0
// while the interface of a BG95 or EC100Y is enabled, as these two are not asked then), "online" (whether mwan3 reaches
// the Internet through it), "signal_info" where the model has measurements, "signal" (level) and "mode", and "newsms"
// (count). A fault ends the block after "SIM_status". The unknown modem gets the link's keys and "newsms". Always
// returns 0.
int modem_read_status(json_object *reply, const ModemModel &model);

// Adds "hw_version" (the halvor's variant, from its factory partition) and "sim_num" ("1" or "2" SIM slots). Always
// returns 0.
int get_board_hw_and_sim_status(json_object *reply);

// 1 when the interface of the modem on the bus is disabled in the configuration, else 0.
int get_modem_network_status(const char *bus);
