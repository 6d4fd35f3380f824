// Network mode and band; see mode_band.h.
#include "modem/modem_core/mode_band.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "modem/discovery.h"
#include "platform/json.h"
#include "platform/text.h"
#include "platform/uci.h"
#include "vendor/quectel_cells.h"

namespace {

// --- Generation in use ---

// A word in a reply, and the generation that it stands for. The strongest generation is looked for first, so a table's
// order decides where a reply holds several words.
struct ModeWord {
    char word[9];
    char mode[3];
};

// The name of the network's technology in +QNWINFO. HSPA+ counts as 4G.
constexpr ModeWord QUECTEL_WORDS[] = {
    {"LTE", "4G"},  {"HSPA+", "4G"}, {"CDMA", "3G"},  {"EVDO", "3G"}, {"UMTS", "3G"}, {"TD-SCDMA", "3G"}, //
    {"HSPA", "3G"}, {"HSUPA", "3G"}, {"HSDPA", "3G"}, {"HDR", "3G"},  {"GSM", "2G"},  {"GPRS", "2G"},     //
    {"EDGE", "2G"},
};

// The same in +ZPAS, where CDMA alone is the second generation.
constexpr ModeWord ZTE_WORDS[] = {
    {"LTE", "4G"},   {"HSPA+", "4G"}, {"EVDO", "3G"},  {"UMTS", "3G"}, {"TD-SCDMA", "3G"}, {"HSPA", "3G"}, //
    {"HSUPA", "3G"}, {"HSDPA", "3G"}, {"EHRPD", "3G"}, {"CDMA", "2G"}, {"GSM", "2G"},      {"GPRS", "2G"},
};

// The second field of +CNSMOD, with what stands around it.
constexpr ModeWord SIMCOM_WORDS[] = {
    {",8\r", "4G"}, {",9\r", "3G"}, {",10\r", "3G"}, {",11\r", "3G"}, {",7\r", "3G"}, {",6\r", "3G"},
    {",5\r", "3G"}, {",4\r", "3G"}, {",3\r", "2G"},  {",2\r", "2G"},  {",1\r", "2G"},
};

const char *find_mode(std::span<const ModeWord> words, const char *reply) {
    for (const ModeWord &row : words) {
        if (has_keystr(reply, row.word)) {
            return row.mode;
        }
    }
    return nullptr;
}

int ask_mode(const ModemModel &model, const char *command, std::span<char> reply, const char *(*read)(const char *),
             std::span<char> mode) {
    if (at_query_ok(model, command, reply) != 0) {
        return -1;
    }
    const char *text = read(reply.data());
    if (text == nullptr) {
        return -1;
    }
    text_copy(mode, text);
    return 0;
}

// --- Restriction ---

struct ScanMode {
    char value[2]; // of "nwscanmode"
    char text[11];
};

// A single character anywhere in the reply decides, looked for in this order.
constexpr ScanMode SCAN_MODES[] = {{"0", "AUTO"}, {"1", "GSM only"}, {"2", "WCDMA only"}, {"3", "LTE only"}};

int scan_mode_for(int mode) {
    switch (mode) {
    case 2:
        return 1;
    case 3:
        return 2;
    case 4:
        return 3;
    default:
        return 0;
    }
}

// The device path of a numbered tty.
struct TtyPath {
    char text[16];
    explicit TtyPath(int number) { text_format(text, "/dev/ttyUSB%d", number); }
};

// --- Bands ---

constexpr size_t LONGEST_GSM_MASK = 8;
constexpr size_t LONGEST_LTE_MASK = 40;

// A mask's text, which has to fit what modems send.
std::string_view mask_text(const char *start, const char *end, size_t longest) {
    const auto length = end > start ? static_cast<size_t>(end - start) : 0;
    if (length > longest) {
        abort();
    }
    return {start, length};
}

// "B3 B8 B20 " for the set bits of a mask, band 1 being the lowest bit of the last byte.
void add_bands(json_object *bands, const char *key, std::string_view mask) {
    uint8_t bytes[(LONGEST_LTE_MASK + 1) / 2];
    const int count = StringToHex(mask, bytes, nullptr);
    char text[100] = {};
    size_t length = 0;
    int band = 1;
    for (int index = count - 1; index >= 0; index--) {
        for (int bit = 0; bit < CHAR_BIT; bit++, band++) {
            if ((bytes[index] >> bit & 1) != 0) {
                text_format(std::span(text).subspan(length), "B%d ", band);
                length = strlen(text);
            }
        }
    }
    vjson_add_string(bands, key, text);
}

unsigned half_byte(char digit) {
    const int code = static_cast<unsigned char>(digit);
    const int value = code > '9' && code <= 'f' ? code - ('A' - 10) : code - '0';
    return static_cast<unsigned>(value) & 0xFU;
}

} // namespace

const char *read_quectel_mode(const char *reply) {
    return find_mode(QUECTEL_WORDS, reply);
}

const char *read_zte_mode(const char *reply) {
    return find_mode(ZTE_WORDS, reply);
}

const char *read_simcom_mode(const char *reply) {
    return find_mode(SIMCOM_WORDS, reply);
}

int modem_get_mode(const ModemModel &model, std::span<char> mode) {
    char reply[100];
    return ask_mode(model, "AT+QNWINFO", reply, read_quectel_mode, mode);
}

int zte_get_mode(const ModemModel &model, std::span<char> mode) {
    char reply[1024];
    return ask_mode(model, "AT+ZPAS?", reply, read_zte_mode, mode);
}

int simcom_get_mode(const ModemModel &model, std::span<char> mode) {
    char reply[1024];
    return ask_mode(model, "AT+CNSMOD?", reply, read_simcom_mode, mode);
}

int modem_set_mode(int tty_number, int mode) {
    const TtyPath port(tty_number);
    char command[64];
    char reply[100];
    text_format(command, "AT+QCFG=\"nwscanmode\",%d", scan_mode_for(mode));
    at_send(port.text, command, reply);
    return is_ok(reply) ? 0 : -1;
}

const char *read_scan_mode(const char *reply) {
    for (const ScanMode &row : SCAN_MODES) {
        if (has_keystr(reply, row.value)) {
            return row.text;
        }
    }
    return nullptr;
}

int modem_get_current_mode(const ModemModel &model, std::span<char> mode) {
    char reply[80];
    if (at_query(model, "AT+QCFG=\"nwscanmode\"", reply) != 0) {
        return 0;
    }
    if (!is_ok(reply)) {
        text_copy(mode, "ERROR");
        return -1;
    }
    const char *text = read_scan_mode(reply);
    if (text != nullptr) {
        text_copy(mode, text);
    }
    return 0;
}

void read_band_configuration(const char *reply, json_object *bands) {
    constexpr std::string_view MARK = ",0x";
    const char *marks[3];
    const char *next = reply;
    for (const char *&mark : marks) {
        mark = strstr(next, MARK.data());
        if (mark == nullptr) {
            return;
        }
        next = mark + MARK.size();
    }
    const char *ok = strstr(next, "OK");
    if (ok == nullptr) {
        return;
    }
    // The first two texts keep the comma behind their digits; it takes part in the conversion, which shifts the Cat M1
    // bands by four. Clients know the list so. The last text ends before the two line ends ahead of "OK".
    mask_text(marks[0] + MARK.size(), marks[1] + 1, LONGEST_GSM_MASK);
    const std::string_view cat_m1 = mask_text(marks[1] + MARK.size(), marks[2] + 1, LONGEST_LTE_MASK);
    const std::string_view cat_nb2 = mask_text(next, ok - next >= 4 ? ok - 4 : next, LONGEST_LTE_MASK);
    vjson_add_string(bands, "EGPRS", "850MHz 900MHz 1800Mhz 1900MHz ");
    add_bands(bands, "Cat M1", cat_m1);
    add_bands(bands, "Cat NB2", cat_nb2);
}

int modem_get_band(const ModemModel &model, json_object *bands) {
    char reply[1024];
    if (at_query_ok(model, "AT+QCFG=\"band\"", reply) == 0) {
        read_band_configuration(reply, bands);
    }
    return 0;
}

int modem_get_current_band(const char *bus, int32_t port_number, const char *option) {
    char configured[8] = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, option, configured);
    vuci2_free(configuration);
    if (configured[0] != '\0') {
        return text_to_int(configured);
    }
    char port[PORT_PATH_SIZE] = {};
    char reply[1024];
    if (modem_search_port(bus, port_number, port) < 1 || at_send(port, "AT+QENG=\"servingcell\"", reply) != 0 ||
        !is_ok(reply)) {
        return 0;
    }
    return read_quectel_lte_band(reply);
}

int soft_reset_mode(const char *port, const char *command) {
    char line[50];
    char reply[20];
    text_copy(line, command);
    at_send(port, line, reply);
    return is_ok(reply) ? 0 : -1;
}

int StringToHex(std::string_view text, std::span<uint8_t> bytes, int *count) {
    const size_t padding = text.size() % 2;
    const size_t length = (text.size() + padding) / 2;
    if (length > bytes.size()) {
        abort();
    }
    const auto digit = [text, padding](size_t index) { return index < padding ? '0' : text[index - padding]; };
    for (size_t index = 0; index < length; index++) {
        const unsigned high = half_byte(digit(2 * index));
        const unsigned low = half_byte(digit(2 * index + 1));
        bytes[index] = static_cast<uint8_t>(high << 4 | low);
    }
    if (count != nullptr) {
        *count = static_cast<int>(length);
    }
    return static_cast<int>(length);
}
