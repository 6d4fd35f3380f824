// The data context of Fibocom modems; see fibocom_data_context.h.
#include "vendor/fibocom_data_context.h"

#include "modem/at_query.h"
#include "platform/text.h"

int fibocom_set_apn(const ModemModel &model, const char *apn) {
    char command[100];
    text_format(command, "AT+CGDCONT=1,\"IP\",\"%s\"", apn != nullptr ? apn : "");
    return at_set(model, command);
}
