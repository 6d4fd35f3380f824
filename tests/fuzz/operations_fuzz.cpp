// Every operation of any model, with a modem that says anything, or nothing, to each command: the queries above the
// readers, and what they promise about their results.
//
// Input: the model's number, a blank and an APN up to the first line feed, then the records of scripted_router.h.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "fake_system.h"
#include "fuzz_support.h"
#include "json_checks.h"
#include "modem/model.h"
#include "modem/modem_core/mode_band.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/owners.h"
#include "scripted_router.h"
#include "vendor/quectel_default_band.h"
#include "vendor/sierra_registration.h"

namespace {

class AskingRouter : public ScriptedRouter {
public:
    using ScriptedRouter::ScriptedRouter;

    std::string output_of(const std::string &command) override {
        require_own_words(command);
        return ScriptedRouter::output_of(command);
    }
    int status_of(const std::string &command) override {
        require_own_words(command);
        return ScriptedRouter::status_of(command);
    }
};

constexpr const char *PORT = "/dev/ttyUSB2";
constexpr int PORT_NUMBER = 2;

struct Reports {
    json_object *signals;
    json_object *cells;
    json_object *bands;
    json_object *signal;
};

void ask_texts(const ModemModel &model) {
    const auto ask = [&model](auto operation) {
        char text[200] = {};
        if (operation != nullptr) {
            operation(model, std::span(text).first(sizeof text - 1));
        }
    };
    ask(model.ops.get_mode);
    ask(model.ops.get_imsi);
    ask(model.ops.get_operator);
    ask(model.ops.check_simcard);
    ask(model.ops.get_qccid);
    ask(model.ops.get_current_mode);
    char identity[200] = {};
    model.ops.get_identity(model.bus, PORT, identity);
    char imei[36] = {};
    model.ops.get_gsn(PORT, model.bus, imei);
    char fault[64] = {};
    require(fault_analysis(model, fault) <= 0);
}

void ask_measurements(const ModemModel &model, const Reports &reports) {
    int32_t level = -1;
    if (model.ops.get_rssi != nullptr) {
        model.ops.get_rssi(model, &level);
        require(level >= -1 && level <= 4);
    }
    if (model.ops.signal_info != nullptr) {
        level = -1;
        const int generation = model.ops.signal_info(model, reports.signals, &level);
        require(generation >= -1 && generation <= 4);
    }
    if (model.ops.cell_info != nullptr) {
        model.ops.cell_info(model, reports.cells);
    }
    if (model.ops.get_band != nullptr) {
        model.ops.get_band(model, reports.bands);
    }
    char mode[16] = {};
    get_modem_signal(model, mode, &level, reports.signal);
    modem_get_current_band(model.bus, model.control_port, "velaconfig.modem.dev1");
}

void ask_states(const ModemModel &model) {
    const int registration = model.ops.get_register_status(PORT_NUMBER);
    require(registration >= -1 && registration <= 9);
    for (const auto operation : {model.ops.thermal_ctrl, model.ops.check_cat6, model.ops.check_register}) {
        if (operation != nullptr) {
            const int result = operation(model);
            require(result >= -1 && result <= 1);
        }
    }
    sierra_check_cat6(model);
}

void change(const ModemModel &model, const char *apn) {
    if (model.ops.set_mode != nullptr) {
        for (int mode = 1; mode <= 4; mode++) {
            model.ops.set_mode(PORT_NUMBER, mode);
        }
    }
    if (model.ops.set_apn != nullptr) {
        model.ops.set_apn(model, apn);
    }
    if (model.ops.set_ath != nullptr) {
        for (const char *authentication : {"NONE", "PAP", "CHAP", "PAP or CHAP", "x"}) {
            model.ops.set_ath(model, apn, "user", "password", authentication);
        }
        model.ops.set_ath(model, apn, nullptr, nullptr, "CHAP");
        model.ops.set_ath(model, nullptr, "user", "password", "PAP");
    }
    char reply[4096] = {};
    quectel_set_default_band(PORT, reply);
    soft_reset_mode(PORT, "AT+CFUN=1,1");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    AskingRouter router({reinterpret_cast<const char *>(data), size});
    const std::string head(router.head());
    const ModemModel *row = modem_list_find_id(modem_head, atoi(head.c_str()));
    if (row == nullptr) {
        return -1;
    }
    const std::string apn = head.find(' ') != head.npos ? head.substr(head.find(' ') + 1) : "internet";
    Reports reports = {};
    const Ended ended = router.run([&] {
        reports = {json_object_new_array(), json_object_new_array(), json_object_new_object(),
                   json_object_new_object()};
        ModemModel model = *row;
        replace_modem_struct(&model, "1-1.2");
        ask_texts(model);
        ask_measurements(model, reports);
        ask_states(model);
        change(model, apn.c_str());
    });
    // The memory of an aborted process is gone.
    if (ended == Ended::NORMALLY) {
        for (json_object *report : {reports.signals, reports.cells, reports.bands, reports.signal}) {
            const Json owner(report);
            check_json(report);
        }
    }
    return 0;
}
