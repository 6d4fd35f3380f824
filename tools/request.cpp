// Parses requests; see request.h.
#include "tools/request.h"

#include <cstring>

#include "tools/complain.h"

Json parse_request(const char *text) {
    json_tokener *tokener = json_tokener_new();
    if (tokener == nullptr) {
        complain("out of memory", "");
        return nullptr;
    }
    Json request(json_tokener_parse_ex(tokener, text, -1));
    const json_tokener_error error = json_tokener_get_error(tokener);
    const size_t end = json_tokener_get_parse_end(tokener);
    json_tokener_free(tokener);
    if (error != json_tokener_success) {
        complain("the request is not JSON: ", json_tokener_error_desc(error));
        return nullptr;
    }
    if (text[end + strspn(text + end, " \t\r\n")] != '\0') {
        complain("the request is not JSON: something follows it: ", text + end);
        return nullptr;
    }
    if (!json_object_is_type(request.get(), json_type_object)) {
        complain("the request is not a JSON object: ", text);
        return nullptr;
    }
    return request;
}
