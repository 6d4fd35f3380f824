// Any text into a JSON member, and any JSON as a request: what leaves the program parses and is valid UTF-8.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "api/handler.h"
#include "fuzz_support.h"
#include "json_checks.h"
#include "platform/json.h"
#include "platform/owners.h"

namespace {

void add_as_member(const std::string &text) {
    const Json object(json_object_new_object());
    vjson_add_string(object.get(), "message", text.c_str());
    const char *document = json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_PRETTY);
    require(all_characters_valid(document));
    const Json parsed(json_tokener_parse(document));
    const char *stored = vjson_get_string(object.get(), "message");
    const char *again = vjson_get_string(parsed.get(), "message");
    require(stored != nullptr && again != nullptr && std::string_view(stored) == again);
    if (all_characters_valid(text.c_str())) {
        require(std::string_view(stored) == text.c_str());
    }
}

void read_as_request(const std::string &text) {
    const Json request(json_tokener_parse(text.c_str()));
    vjson_get_string(request.get(), "at-command");
    vjson_get_boolean(request.get(), "disable");
    vjson_get_object(request.get(), "apns");
    // A bus that does not fit its field is prescribed to abort.
    const char *bus = vjson_get_string(request.get(), "bus");
    if (bus == nullptr || std::string_view(bus).size() < 10) {
        ModemModel model;
        const int32_t status = pick_modem(request.get(), &model);
        require(status == API_OK || status == API_NO_SUCH_MODEM || status == API_PARAMETER_MISSING);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    add_as_member(text);
    read_as_request(text);
    return 0;
}
