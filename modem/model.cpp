// Looking rows up in the list of models, and making a copy fit a bus.
#include "modem/model.h"

#include "modem/bus_name.h"
#include "platform/text.h"

int32_t cur_dev = MODEM_ID_NONE;

namespace {

ModemModel bound_modem = {};

} // namespace

void set_current_modem(const ModemModel &model) {
    bound_modem = model;
    cur_dev = model.modem_id;
}

const ModemModel *current_modem() {
    if (cur_dev == MODEM_ID_NONE) {
        return nullptr;
    }
    // The one that was never set has no name.
    const bool bound = bound_modem.name != nullptr && bound_modem.modem_id == cur_dev;
    return bound ? &bound_modem : modem_list_find_id(modem_head, cur_dev);
}

const ModemModel *modem_list_find_id(const ModemModel *head, int32_t modem_id) {
    for (const ModemModel *row = head; row != nullptr; row = row->next) {
        if (row->modem_id == modem_id) {
            return row;
        }
    }
    return nullptr;
}

const ModemModel *modem_list_find_usbid(const ModemModel *head, uint32_t vid, uint32_t pid) {
    for (const ModemModel *row = head; row != nullptr; row = row->next) {
        if (row->pid == pid && row->vid == vid) {
            return row;
        }
    }
    return nullptr;
}

void replace_modem_struct(ModemModel *model, const char *bus) {
    char underscored[16] = {};
    replace_bus_name(bus, underscored);
    text_format(model->ifname, "modem_%s", underscored);
    text_copy(model->bus, bus);
}
