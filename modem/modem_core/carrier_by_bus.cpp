// The carrier of the modem on a bus; see carrier_by_bus.h.
#include "modem/modem_core/carrier_by_bus.h"

#include "modem/detection.h"
#include "modem/modem_core/carrier.h"
#include "platform/owners.h"

int modem_get_carrier(const char *bus, json_object *reply) {
    const Json report(json_object_new_object());
    ModemModel model = {};
    detect_modem(&model, report.get(), bus, 0);
    return model.modem_id < 0 ? -1 : modem_read_carrier(reply, model);
}
