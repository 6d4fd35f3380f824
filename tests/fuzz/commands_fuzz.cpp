// Any command line of vela_modem, on a router in any state: it ends with a status that is documented and leaves nothing
// behind. A text that is too long is prescribed to abort.
//
// Input: the arguments up to the first line that begins with "@", a line each, then the records of scripted_router.h.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fake_system.h"
#include "fuzz_support.h"
#include "scripted_router.h"

// The whole program but for its name.
#define main vela_modem
#include "cli/main.cpp"
#undef main

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr int EXIT_BAD = 255;
    ScriptedRouter router({reinterpret_cast<const char *>(data), size});
    std::string head(router.head());
    char name[] = "vela_modem";
    std::vector<char *> arguments = {name};
    for (size_t start = 0; start < head.size();) {
        const size_t end = std::min(head.find('\n', start), head.size());
        arguments.push_back(&head[start]);
        start = end + 1;
        if (end < head.size()) {
            head[end] = '\0';
        }
    }
    const int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);

    int status = EXIT_SUCCESS;
    if (router.run([&] { status = vela_modem(count, arguments.data()); }) == Ended::NORMALLY) {
        require(status == EXIT_SUCCESS || status == EXIT_BAD);
    }
    DEBUG = 0;
    return 0;
}
