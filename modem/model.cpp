// Looking rows up in the list of models, and making a copy fit a bus.
#include "modem/model.h"

#include "modem/bus_name.h"
#include "platform/text.h"

int32_t cur_dev = MODEM_ID_NONE;

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
