// "/modem/modem_info/get" and "/modem/cells/get"; see modem_info_endpoints.h.
#include "api/modem_info_endpoints.h"

#include "platform/json.h"
#include "platform/owners.h"

namespace {

constexpr size_t TEXT_SIZE = 80;

struct TextKey {
    char key[13];
    int (*ModemOps::*operation)(const ModemModel &model, std::span<char> text);
};

// In the order of the reply.
constexpr TextKey TEXT_KEYS[] = {
    {"iccid", &ModemOps::get_qccid},
    {"imsi", &ModemOps::get_imsi},
    {"sim_status", &ModemOps::check_simcard},
    {"current_mode", &ModemOps::get_current_mode},
};

// The operations' results are not looked at: what was read before one failed is shown.
void add_texts(json_object *info, const ModemModel &model) {
    for (const TextKey &row : TEXT_KEYS) {
        const auto operation = model.ops.*row.operation;
        if (operation != nullptr) {
            char text[TEXT_SIZE] = {};
            operation(model, std::span(text));
            vjson_add_string(info, row.key, text);
        }
    }
}

void add_band(json_object *info, const ModemModel &model) {
    if (model.ops.get_band != nullptr) {
        Json bands(json_object_new_object());
        model.ops.get_band(model, bands.get());
        vjson_add_object(info, "band", bands.release());
    }
}

// Clients take the level from the code of the text's only character.
void add_signal(json_object *info, const ModemModel &model) {
    int32_t level = 0;
    model.ops.get_rssi(model, &level);
    const char text[] = {static_cast<char>(level), '\0'};
    vjson_add_string(info, "signal", text);
}

} // namespace

int32_t report_modem_info(const ModemModel &model, json_object *reply) {
    Json info(json_object_new_object());
    add_texts(info.get(), model);
    add_band(info.get(), model);
    if (model.ops.get_rssi == nullptr) {
        return API_NOT_SUPPORTED;
    }
    add_signal(info.get(), model);
    vjson_add_object(reply, "modem_info", info.release());
    return API_OK;
}

int32_t report_cells(const ModemModel &model, json_object *reply) {
    if (model.ops.cell_info == nullptr) {
        return API_NOT_SUPPORTED;
    }
    Json cells(json_object_new_array());
    model.ops.cell_info(model, cells.get());
    vjson_add_object(reply, "cells", cells.release());
    return API_OK;
}

int32_t modem_get_modem_info(json_object *request, json_object *reply) {
    ModemModel model;
    const int32_t picked = pick_modem_on_bus(request, &model);
    return picked == API_OK ? report_modem_info(model, reply) : picked;
}

int32_t modem_get_cells(json_object *request, json_object *reply) {
    ModemModel model;
    const int32_t picked = pick_modem_on_bus(request, &model);
    return picked == API_OK ? report_cells(model, reply) : picked;
}
