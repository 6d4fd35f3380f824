// Any database file, and any codes and IMSI looked up in it.
//
// Input: the IMSI up to the first line feed, then the file.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz_support.h"
#include "platform/owners.h"
#include "vendor/apn_database.h"

namespace {

Json load(std::string_view content) {
    const Descriptor file(memfd_create("apn-config.js", MFD_CLOEXEC));
    require(file.valid() && write(file.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    const std::string path = "/proc/self/fd/" + std::to_string(file.get());
    json_object *database = json_object_new_object();
    require(parse_apn_database(path.c_str(), &database) == (content.size() < 24 ? -1 : 0));
    return Json(database);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const size_t line = std::min(input.find('\n'), size);
    const std::string imsi(input.substr(0, line));
    const char *apn = custom_apn(imsi.c_str());
    require(apn == nullptr || std::string_view(apn) == "globalnet" || std::string_view(apn) == "vzwinternet");

    const Json database = load(input.substr(std::min(line + 1, size)));
    const Json entries(json_object_new_array());
    const std::string mcc = imsi.substr(0, 3);
    const std::string mnc = imsi.size() > 3 ? imsi.substr(3, 2) : "";
    const int found = find_apns(database.get(), mcc.c_str(), mnc.c_str(), entries.get());
    require(found >= -1);
    require(json_object_array_length(entries.get()) == static_cast<size_t>(std::max(found, 0)));
    return 0;
}
