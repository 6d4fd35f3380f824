// Any bytes as the content of every file that is kept about a modem, and as what a modem and the shell say where there
// is none: the readers of identity, signal and link state.
//
// Input: a character whose bits say which files are there, a character for the model, then the content.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "fake_system.h"
#include "fuzz_support.h"
#include "json_checks.h"
#include "modem/model.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/identity.h"
#include "modem/modem_core/signal.h"
#include "modem/modem_core/state_files.h"
#include "modem/modem_core/status_report.h"
#include "platform/owners.h"
#include "scripted_router.h"
#include "vendor/apn_database.h"

namespace {

constexpr const char *FILES[] = {"/tmp/modem.1-1.2/cimi", "/tmp/modem.1-1.2/modem-imei", "/tmp/modem.1-1.2/modem-name",
                                 "/tmp/modem.1-1.2/signal", "/var/run/mwan3track/modem_1_1_2/STATUS"};

// The modem says the content, too, and so do commands that print a file.
class SameEverywhere : public ScriptedRouter {
public:
    explicit SameEverywhere(std::string_view content) : ScriptedRouter("@usb 2c7c 0125"), content_(content) {}

    ssize_t transmit(const char * /*bytes*/, size_t size) override {
        unread_ = content_;
        return static_cast<ssize_t>(size);
    }
    ssize_t receive(char *buffer, size_t size) override {
        const size_t count = std::min(size, unread_.size());
        memcpy(buffer, unread_.data(), count);
        unread_.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }
    std::string output_of(const std::string &command) override {
        require_own_words(command);
        return std::string(content_);
    }
    int status_of(const std::string &command) override {
        require_own_words(command);
        return 0;
    }

private:
    std::string_view content_;
    std::string_view unread_;
};

const ModemModel *pick_row(uint8_t number) {
    const ModemModel *row = modem_head;
    for (; number % 16 > 0 && row->next != nullptr; number--) {
        row = row->next;
    }
    return row;
}

void read_identity(const ModemModel &model) {
    char imei[IMEI_BUFFER_SIZE] = {};
    if (get_modem_imei(model, imei) == 0) {
        require(strlen(imei) >= IMEI_LENGTH && is_all_digits(imei));
    }
    char name[IDENTITY_SIZE] = {};
    modem_get_identity(model.bus, "/dev/ttyUSB2", name);
    require(name[sizeof name - 1] == '\0');
    // The same again, now from what the first call has kept.
    char again[IDENTITY_SIZE] = {};
    if (modem_get_identity(model.bus, "/dev/ttyUSB2", again) == 0) {
        require(strcmp(name, again) == 0);
    }

    char imsi[IMSI_LENGTH + 1] = {};
    modem_get_imsi(model, std::span(imsi).first(IMSI_LENGTH));
    char iccid[ICCID_LENGTH + 1] = {};
    modem_get_qccid(model, std::span(iccid).first(ICCID_LENGTH));
    char mcc[MCC_SIZE] = {};
    char mnc[MNC_SIZE] = {};
    if (modem_get_mcc_mnc(model, mcc, mnc) == 0) {
        require(strlen(mcc) == MCC_SIZE - 1 && is_all_digits(mcc) && strlen(mnc) < MNC_SIZE);
    }
}

void read_reports(const ModemModel &model, json_object *reply, json_object *signals, json_object *apns) {
    modem_read_carrier(reply, model);
    get_custom_apns(model, apns, apns);
    char operator_name[64] = {};
    if (modem_get_operator(model, operator_name) == 0) {
        require(operator_name[0] != '\0');
    }
    int32_t level = -1;
    const int generation = conver_signal_file(model.bus, signals, &level);
    require(generation >= -1 && generation <= 4 && level >= -1 && level <= 4);
    level = -1;
    modem_get_rssi(model, &level);
    require(level >= -1 && level <= 4);
    char mode[16] = {};
    get_modem_signal(model, mode, &level, reply);
    modem_read_status(reply, model);
    get_board_hw_and_sim_status(reply);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view content(reinterpret_cast<const char *>(data + 2), size - 2);
    SameEverywhere router(content);
    for (size_t index = 0; index < std::size(FILES); index++) {
        if ((data[0] >> index & 1) != 0) {
            put_file(FILES[index], content);
        }
    }
    json_object *reply = nullptr;
    json_object *signals = nullptr;
    json_object *apns = nullptr;
    const Ended ended = router.run([&] {
        reply = json_object_new_object();
        signals = json_object_new_array();
        apns = json_object_new_array();
        ModemModel model = *pick_row(data[1]);
        replace_modem_struct(&model, "1-1.2");
        read_identity(model);
        read_reports(model, reply, signals, apns);
        state_file_remove(model.bus, "modem-name");
    });
    // The memory of an aborted process is gone.
    if (ended == Ended::NORMALLY) {
        for (json_object *report : {reply, signals, apns}) {
            const Json owner(report);
            check_json(report);
        }
    }
    return 0;
}
