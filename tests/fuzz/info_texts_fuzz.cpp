// Any text into what the information endpoints make of a modem's version line and of a list of DNS servers.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "api/info_endpoint.h"
#include "fuzz_support.h"
#include "modem/modem_core/firmware_version.h"
#include "platform/owners.h"

namespace {

bool is_kept(char character) {
    return character != '\0' &&
           strchr("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz._", character) != nullptr;
}

void check_version(const std::string &text) {
    std::string kept;
    for (const char character : text) {
        if (character == '\0' || kept.size() == FIRMWARE_VERSION_SIZE - 1) {
            break;
        }
        if (is_kept(character)) {
            kept += character;
        }
    }
    std::vector<char> version(FIRMWARE_VERSION_SIZE);
    keep_version_characters(text.c_str(), version);
    require(version.data() == kept);
}

void check_servers(std::string list) {
    list.resize(strnlen(list.c_str(), DNS_LIST_SIZE - 1));
    const Json servers(json_object_new_array());
    add_further_dns_servers(servers.get(), list);
    size_t commas = 0;
    for (const char character : list) {
        commas += character == ',' ? 1 : 0;
    }
    require(json_object_array_length(servers.get()) == commas);
    for (size_t index = 0; index < commas; index++) {
        const char *server = json_object_get_string(json_object_array_get_idx(servers.get(), index));
        require(server != nullptr && strchr(server, ',') == nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    check_version(text);
    check_servers(text);
    return 0;
}
