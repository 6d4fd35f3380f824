// Any request to any endpoint, on a router in any state: the handler's status is one that is documented for it, what it
// replies is JSON in valid UTF-8, and nothing stays behind in the host, whatever the modem, the shell, the bus and the
// files on the way say. A text that is too long is prescribed to abort.
//
// Input: the endpoint's path up to the first line feed, the request up to the first line that begins with "@", then the
// records of scripted_router.h.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>

#include "api/endpoints.h"
#include "fake_system.h"
#include "fuzz_support.h"
#include "json_checks.h"
#include "platform/owners.h"
#include "scripted_router.h"

namespace {

struct Documented {
    const char *path;
    std::initializer_list<int32_t> statuses;
};

// As docs/endpoints.md has it.
const Documented DOCUMENTED[] = {
    {"/modem/info", {0, -17, -250}},
    {"/modem/brief_info", {0, -250}},
    {"/modem/app/brief_info", {0, -250}},
    {"/modem/auto", {0, -251}},
    {"/modem/get", {0}},
    {"/modem/set", {0, -251, -250, -5, -265, -256, -253}},
    {"/modem/enable", {0, -251}},
    {"/modem/reset", {0, -251, -250}},
    {"/modem/at", {0, -255, -17}},
    {"/modem/sms/list", {0, -250, -251}},
    {"/modem/sms/delete", {0, -251, -258, -250, -259}},
    {"/modem/sms/delete_all", {0, -251, -250, -259}},
    {"/modem/sms/send", {0, -251, -260, -261, -250}},
    {"/modem/sms/status", {0, -251, -258, -250}},
    {"/modem/sms/code", {0}},
    {"/modem/cells/get", {0, -251, -250, -17}},
    {"/modem/sim/switch", {0, -22, -251, -250}},
    {"/modem/modem_info/get", {0, -251, -250, -17}},
    {"/modem/sms/forward", {0, -7}},
    {"/modem/sms/flist", {0}},
    {"/modem/sms/account", {0, -17}},
    {"/modem/upgrade", {0, -1, -2, -3, -4, -5}},
    {"/modem/upgrade_status", {0, -1}},
};
static_assert(std::size(DOCUMENTED) == API_ENTITY_COUNT);

const ApiEntity *find_endpoint(std::string_view path) {
    uint32_t count = 0;
    const ApiEntity *rows = get_api_entity(&count);
    require(count == API_ENTITY_COUNT);
    for (uint32_t index = 0; index < count; index++) {
        if (path == rows[index].path) {
            return &rows[index];
        }
    }
    return nullptr;
}

bool is_documented(std::string_view path, int32_t status) {
    for (const Documented &row : DOCUMENTED) {
        if (path == row.path) {
            return std::find(row.statuses.begin(), row.statuses.end(), status) != row.statuses.end();
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    ScriptedRouter router({reinterpret_cast<const char *>(data), size});
    const std::string_view head = router.head();
    const size_t line = std::min(head.find('\n'), head.size());
    const ApiEntity *endpoint = find_endpoint(head.substr(0, line));
    if (endpoint == nullptr) {
        return -1;
    }
    const Json request(json_tokener_parse(std::string(head.substr(line)).c_str()));
    json_object *reply = nullptr;
    int32_t status = 0;
    const Ended ended = router.run([&] {
        reply = json_object_new_object();
        status = endpoint->handler(request.get(), reply);
    });
    // An aborted process replies nothing, and its memory is gone.
    if (ended == Ended::NORMALLY) {
        const Json owner(reply);
        require(is_documented(endpoint->path, status));
        check_json(reply);
    }
    return 0;
}
