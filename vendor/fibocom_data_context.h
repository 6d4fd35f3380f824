// The data context of Fibocom modems.
#pragma once

#include "modem/model.h"

// The set_apn slot: sets context 1 to IPv4 with this APN (AT+CGDCONT, 3GPP TS 27.007). Returns 0, also where the modem
// cannot be asked; -1 where it answers without "OK". Aborts for an APN of more than 79 characters.
int fibocom_set_apn(const ModemModel &model, const char *apn);
