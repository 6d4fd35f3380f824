// Any bytes as a message file: what is read of them is a message with a body, in valid UTF-8, that fits its limit.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "json_checks.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "sms/sms_message.h"

namespace {

void check_text(json_object *message, const char *key, size_t most) {
    const char *text = vjson_get_string(message, key);
    require(text == nullptr || (strlen(text) <= most && all_characters_valid(text)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static constexpr size_t MOST_OF_A_BYTE = 3; // bytes of the character that replaces one which is no UTF-8
    std::string bytes(reinterpret_cast<const char *>(data), size);
    const File file(fmemopen(bytes.data(), bytes.size(), "r"));
    const Json message(json_object_new_object());
    require(file != nullptr && message != nullptr);
    read_sms_message(file.get(), message.get());

    check_text(message.get(), "from", size * MOST_OF_A_BYTE);
    check_text(message.get(), "time", size * MOST_OF_A_BYTE);
    check_text(message.get(), "body", 2048 * MOST_OF_A_BYTE);
    require(vjson_get_string(message.get(), "body") != nullptr);
    const char *type = vjson_get_string(message.get(), "type");
    require(type == nullptr || strcmp(type, "international") == 0 || strcmp(type, "national") == 0 ||
            strcmp(type, "unknown") == 0);
    // Without the line that ends the header there is no body.
    if (bytes.find("\n\n") == bytes.npos && !bytes.starts_with("\n")) {
        require(vjson_get_string(message.get(), "body")[0] == '\0');
    }
    return 0;
}
