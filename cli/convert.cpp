// The command "convert"; see convert.h.
#include "cli/convert.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/owners.h"
#include "platform/ucs2.h"

int convert_file(std::span<char *> arguments) {
    constexpr size_t TEXT_SIZE = 2048;
    constexpr long BYTES_PER_CHARACTER = 3; // of UTF-8 at most, for what UCS-2 can say
    if (arguments.size() < 2) {
        return EXIT_SUCCESS;
    }
    const File file(fopen(arguments[0], "re"));
    if (file == nullptr) {
        return EXIT_SUCCESS;
    }
    char in[TEXT_SIZE] = {};
    char out[TEXT_SIZE + 1] = {};
    if (fread(in, 1, sizeof in, file.get()) == 0) {
        return EXIT_SUCCESS;
    }
    const long count = std::clamp(strtol(arguments[1], nullptr, 10), 0L, static_cast<long>(TEXT_SIZE));
    const auto bytes = static_cast<size_t>(count * BYTES_PER_CHARACTER);
    ucs2_to_utf8(in, bytes, out, bytes);
    fputs(out, stdout);
    return EXIT_SUCCESS;
}
