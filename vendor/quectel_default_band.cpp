// Factory bands of Quectel modems; see quectel_default_band.h.
#include "vendor/quectel_default_band.h"

#include <cstring>
#include <string_view>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "platform/text.h"

namespace {

constexpr size_t IDENTITY_SIZE = 400;
constexpr size_t REPLY_SIZE = 500;

constexpr std::string_view LABEL = "Revision:";
constexpr size_t LONGEST_REVISION = 60;

struct Variant {
    const char *name; // anywhere in the revision
    const char *command;
};

// In the order in which they are looked for: a name that begins with another one stands before it.
// clang-format off
constexpr Variant VARIANTS[] = {
    {"EC25AFFA", "AT+QCFG=\"band\",0,42000000000000381a,0"},
    {"EC25AFXD", "AT+QCFG=\"band\",0,42000000000000381a,0"},
    {"EC25AFA",  "AT+QCFG=\"band\",0,80a,0"},
    {"EC20CE",   "AT+QCFG=\"band\",0,1e200000095,0"},
    {"EC25EUX",  "AT+QCFG=\"band\",0,1a0080800c5,0"},
    {"EC25E",    "AT+QCFG=\"band\",0,1a0000800d5,0"},
    {"EP06E",    "AT+QCFG=\"band\",0,7e00000000000000000000000000000000000000000000ff000001a0880800d5,0"},
    {"EP06A",    "AT+QCFG=\"band\",0,2000000003300185a,0"},
    {"EC25AU",   "AT+QCFG=\"band\",0,80080000df,0"},
    {"EG25G",    "AT+QCFG=\"band\",0,1e00b0e18df,0"},
};
// clang-format on

} // namespace

const char *read_default_band_command(const char *reply) {
    const char *label = strstr(reply, LABEL.data());
    if (label == nullptr) {
        return nullptr;
    }
    std::string_view revision(label + LABEL.size());
    revision = text_before(text_before(revision, revision.find('\n')), LONGEST_REVISION);
    for (const Variant &variant : VARIANTS) {
        if (revision.find(variant.name) != revision.npos) {
            return variant.command;
        }
    }
    return nullptr;
}

int quectel_set_default_band(const char *port, std::span<char> reply) {
    text_clear(reply);
    char identity[IDENTITY_SIZE];
    if (at_send(port, "ATI", identity) != 0 || !is_ok(identity)) {
        return DEFAULT_BAND_FAILED;
    }
    const char *command = read_default_band_command(identity);
    if (command == nullptr || at_send(port, command, reply.first(REPLY_SIZE)) != 0) {
        return DEFAULT_BAND_FAILED;
    }
    return is_ok(reply.data()) ? 0 : DEFAULT_BAND_FAILED;
}
