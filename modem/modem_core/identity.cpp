// Identity of modem and SIM; see identity.h.
#include "modem/modem_core/identity.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "modem/at_exchange.h"
#include "modem/at_query.h"
#include "modem/bus_name.h"
#include "modem/discovery.h"
#include "modem/modem_core/state_files.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

constexpr const char *IMEI_FILE = "modem-imei";
constexpr const char *NAME_FILE = "modem-name";
constexpr const char *IMSI_FILE = "cimi";

// The fewest bytes of "cimi" that tell the network, and the fewest that pass for an IMSI.
constexpr int SHORTEST_NETWORK = 5;
constexpr int SHORTEST_IMSI = 6;
constexpr size_t CODE_LENGTH = 3;

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

// The first `length` bytes of a caller's buffer.
std::span<char> first_bytes(std::span<char> buffer, size_t length) {
    if (buffer.size() < length) {
        abort();
    }
    return buffer.first(length);
}

int ask_ok(const char *port, const char *command, std::span<char> reply) {
    return at_send(port, command, reply) == 0 && is_ok(reply.data()) ? 0 : -1;
}

// An IMEI file is taken when its text is no longer than the IMEI and begins with 15 digits. Its reader sees a little
// more than that, to tell a longer one.
int cached_imei(const char *bus, std::span<char> imei) {
    char text[21] = {};
    const int length = state_file_read(bus, IMEI_FILE, std::span(text).first(sizeof text - 1));
    if (length == STATE_FILE_ABSENT) {
        return STATE_FILE_ABSENT;
    }
    const std::string_view digits(text);
    if (digits.size() != IMEI_LENGTH || !is_all_digits(digits)) {
        state_file_remove(bus, IMEI_FILE);
        return -1;
    }
    text_copy(imei, digits);
    return 0;
}

// Has the model's IMSI kept in "cimi". It is written through the shell like any other effect on the router, and nothing
// but digits may get there.
void keep_imsi(const ModemModel &model) {
    char imsi[IMSI_LENGTH + 1] = {};
    if (model.ops.get_imsi == nullptr || model.ops.get_imsi(model, std::span(imsi).first(IMSI_LENGTH)) != 0 ||
        !is_all_digits(imsi)) {
        return;
    }
    make_modem_dir(model.bus);
    char command[60];
    text_format(command, "echo \"%s\" >/tmp/modem.%s/cimi", imsi, model.bus);
    execCommand(command);
}

} // namespace

bool is_all_digits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), is_digit);
}

int parse_imei(const char *reply, std::span<char> imei) {
    size_t count = 0;
    for (; *reply != '\0'; reply++) {
        if (is_digit(*reply)) {
            if (count == imei.size()) {
                abort();
            }
            imei[count++] = *reply;
        }
    }
    return count >= IMEI_LENGTH ? 0 : -1;
}

int parse_identity(const char *reply, std::span<char> text) {
    const std::string_view all(reply);
    std::string_view label = "Model:";
    size_t found = all.find(label);
    if (found == all.npos) {
        label = "Revision:";
        found = all.find(label);
    }
    if (found == all.npos) {
        return -1;
    }
    const std::string_view rest = text_from(all, found + label.size());
    const std::string_view value = text_before(rest, rest.find('\n'));
    if (value.empty()) {
        return -1;
    }
    text_copy_cut(first_bytes(text, IDENTITY_SIZE), value);
    return 0;
}

int parse_first_digits(const char *reply, std::span<char> digits) {
    while (*reply != '\0' && !is_digit(*reply)) {
        reply++;
    }
    for (char &digit : digits) {
        if (!is_digit(*reply)) {
            return -1;
        }
        digit = *reply++;
    }
    return 0;
}

int modem_get_gsn(const char *port, const char *bus, std::span<char> imei) {
    const int cached = cached_imei(bus, imei);
    if (cached != STATE_FILE_ABSENT) {
        return cached;
    }
    char reply[IMEI_BUFFER_SIZE] = {};
    if (ask_ok(port, "AT+GSN", reply) != 0 || parse_imei(reply, imei) != 0) {
        return -1;
    }
    return state_file_write(bus, IMEI_FILE, {imei.data(), IMEI_LENGTH});
}

int get_modem_imei(const ModemModel &model, std::span<char> imei) {
    char port[PORT_PATH_SIZE] = {};
    if (model.ops.get_gsn == nullptr || modem_search_port(model.bus, model.control_port, port) < 1) {
        return -1;
    }
    return model.ops.get_gsn(port, model.bus, imei);
}

int modem_get_identity(const char *bus, const char *port, std::span<char> text) {
    const std::span<char> room = first_bytes(text, IDENTITY_SIZE);
    const int cached = state_file_read(bus, NAME_FILE, room.first(IDENTITY_SIZE - 1));
    if (cached != STATE_FILE_ABSENT) {
        return cached == STATE_FILE_UNREADABLE ? -1 : 0;
    }
    char reply[400] = {};
    if (ask_ok(port, "ATI", reply) != 0 || parse_identity(reply, room) != 0) {
        return -1;
    }
    return state_file_write(bus, NAME_FILE, {room.data(), strlen(room.data()) + 1});
}

int modem_get_imsi(const ModemModel &model, std::span<char> imsi) {
    const std::span<char> digits = first_bytes(imsi, IMSI_LENGTH);
    const int cached = state_file_read(model.bus, IMSI_FILE, digits);
    if (cached == STATE_FILE_UNREADABLE) {
        return -1;
    }
    if (cached >= SHORTEST_IMSI) {
        return 0;
    }
    char reply[48] = {};
    return at_query_ok(model, "AT+CIMI", reply) == 0 ? parse_first_digits(reply, digits) : -1;
}

int modem_get_qccid(const ModemModel &model, std::span<char> iccid) {
    const std::span<char> digits = first_bytes(iccid, ICCID_LENGTH);
    char reply[48] = {};
    return at_query_ok(model, "AT+QCCID", reply) == 0 ? parse_first_digits(reply, digits) : -1;
}

int modem_get_mcc_mnc(const ModemModel &model, std::span<char> mcc, std::span<char> mnc) {
    char imsi[IMSI_LENGTH] = {};
    int length = state_file_read(model.bus, IMSI_FILE, imsi);
    if (length == STATE_FILE_ABSENT) {
        keep_imsi(model);
        length = state_file_read(model.bus, IMSI_FILE, imsi);
    }
    if (length < 0) {
        return -1;
    }
    if (length < SHORTEST_NETWORK || !is_all_digits({imsi, SHORTEST_NETWORK})) {
        state_file_remove(model.bus, IMSI_FILE);
        return -1;
    }
    text_copy(mcc, {imsi, CODE_LENGTH});
    text_copy(mnc, {imsi + CODE_LENGTH, CODE_LENGTH});
    return 0;
}
