// Upgrading a modem's firmware; see firmware_upgrade.h.
#include "connection/firmware_upgrade.h"

#include <cstring>
#include <span>
#include <syslog.h>

#include "api/handler.h"
#include "modem/modem_core/firmware_version.h"
#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

// How an upgrade is refused.
struct Refusal {
    int32_t code;
    const char *text;
};

constexpr Refusal MODEM_ABNORMAL = {-1, "The modem is abnormal and cannot be upgraded."};
constexpr Refusal SAME_VERSION = {-2, "The Modem version is the same as the target version. Do not upgrade the Modem."};
constexpr Refusal UPGRADING = {-3, "The device is upgrading!"};
constexpr Refusal OTHER_VERSION = {
    -4, "The current version is inconsistent with the current module version.Do not upgrade the Modem."};
constexpr Refusal NO_SIM = {-5, "SIM card exception."};
constexpr int32_t KEY_MISSING = -5;
constexpr Refusal NO_VERSION = {-1, "The modem is abnormal.Failed to obtain the version."};

// The keys of a request, in the order in which they are looked for.
struct UpgradeRequest {
    const char *modem_url = "";
    const char *target_version = "";
    const char *current_version = "";
    const char *firmware_upload = "";
    const char *hash_type = "";
    const char *hash_value = "";
};

struct RequiredKey {
    char key[16];
    char missing[24];
    const char *UpgradeRequest::*value;
};

// One row a line.
// clang-format off
constexpr RequiredKey REQUIRED_KEYS[] = {
    {"modem_url", "modem_url missing", &UpgradeRequest::modem_url},
    {"target_version", "target_version missing", &UpgradeRequest::target_version},
    {"current_version", "current_version missing", &UpgradeRequest::current_version},
    {"firmware_upload", "firmware_upload missing", &UpgradeRequest::firmware_upload},
    {"hash_type", "hash_type missing", &UpgradeRequest::hash_type},
    {"hash_value", "hash_value missing", &UpgradeRequest::hash_value},
};
// clang-format on

// The text for the first key that is missing; null where all are there.
const char *read_request(json_object *request, UpgradeRequest *upgrade) {
    for (const RequiredKey &row : REQUIRED_KEYS) {
        upgrade->*row.value = vjson_get_string(request, row.key);
        if (upgrade->*row.value == nullptr) {
            return row.missing;
        }
    }
    return nullptr;
}

// Whether the command prints anything.
bool prints(const char *command) {
    char output[1024] = {};
    getUciReturn(command, output);
    return output[0] != '\0';
}

// Asks for the version by each command in turn, a few times, as a modem in use may not answer at once.
bool read_version(std::span<const char *const> commands, std::span<char> version) {
    constexpr int ATTEMPTS = 5;
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        for (const char *command : commands) {
            char output[1024] = {};
            getShellCommandReturn(command, output);
            if (output[0] != '\0') {
                keep_version_characters(output, version);
                return true;
            }
        }
    }
    return false;
}

// The router's MQTT agent asks for the modem's state again after this.
int32_t refuse(json_object *reply, const Refusal &refusal) {
    fork_exec2("sleep 3; ubus call mqtt notify;");
    vjson_add_string(reply, "msg", refusal.text);
    return refusal.code;
}

} // namespace

int32_t modem_upgrade(json_object *request, json_object *reply) {
    constexpr const char *VERSION_COMMANDS[] = {
        "vela_modem AT AT+QGMR | grep EP06",
        "vela_modem AT AT+QGMR | grep EC25",
    };
    if (prints("ps -w | grep modem_upgrade_check | grep -v grep")) {
        return refuse(reply, UPGRADING);
    }
    if (!prints("vela_modem AT AT+CPIN? | grep READY")) {
        return refuse(reply, NO_SIM);
    }
    UpgradeRequest upgrade;
    if (const char *missing = read_request(request, &upgrade); missing != nullptr) {
        // Of all refusals this one alone notifies nobody; clients know it so.
        vjson_add_string(reply, "msg", missing);
        return KEY_MISSING;
    }
    char version[FIRMWARE_VERSION_SIZE] = {};
    if (!read_version(VERSION_COMMANDS, version)) {
        return refuse(reply, MODEM_ABNORMAL);
    }
    if (strcmp(version, upgrade.current_version) != 0) {
        return refuse(reply, OTHER_VERSION);
    }
    if (strcmp(version, upgrade.target_version) == 0) {
        return refuse(reply, SAME_VERSION);
    }
    char command[512];
    text_format(command, "/usr/bin/modem_upgrade_check %s %s %s %s %s", upgrade.firmware_upload, upgrade.modem_url,
                upgrade.target_version, upgrade.hash_type, upgrade.hash_value);
    syslog(LOG_DEBUG, "Modem upgrde:%s\n", command);
    fork_exec2(command);
    return API_OK;
}

int32_t modem_upgrade_status(json_object * /*request*/, json_object *reply) {
    // Of an EC25 no progress is reported.
    constexpr const char *VERSION_COMMANDS[] = {"vela_modem AT AT+QGMR | grep EP06"};
    char version[FIRMWARE_VERSION_SIZE] = {};
    const bool known = read_version(VERSION_COMMANDS, version);
    if (known) {
        vjson_add_string(reply, "version", version);
    }
    fork_exec2("sleep 5; ubus call mqtt notify");
    if (!known) {
        vjson_add_string(reply, "msg", NO_VERSION.text);
        return NO_VERSION.code;
    }
    char status[8] = {};
    getUciReturn("cat /tmp/modem_upgrade_status", status);
    vjson_add_int(reply, "status", text_to_int(status));
    return API_OK;
}
