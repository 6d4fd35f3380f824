// The data context of Quectel modems: its APN, and the credentials that the network asks for.
//
// A SIM of one carrier has its internet context under another number and with another protocol type than all others, so
// both operations first look at what the router's SIM detection has written down: /tmp/sim_status, which has to begin
// with "ready", and /tmp/sim_type, which begins with "verizon" for these SIMs.
#pragma once

#include "modem/model.h"

// The set_apn and set_ath slots. Return 0, also where the modem cannot be reached; -1 where the SIM is not ready, in
// which case the modem is not touched, or where the modem refuses. Abort where the command gets longer than 99
// characters: an APN of more than 79 (75 on a SIM of that carrier), or APN, user name and password of more than 75
// together. A null text counts as an empty one.
int quectel_set_apn(const ModemModel &model, const char *apn);
int quectel_set_ath(const ModemModel &model, const char *apn, const char *username, const char *password,
                    const char *authentication);

// The authentication of AT+QICSGP for its text in the configuration: 0 "NONE", 1 "PAP", 2 "CHAP", 3 "PAP or CHAP"; 0
// for any other text; lower case is another text.
int quectel_authentication_code(const char *text);
