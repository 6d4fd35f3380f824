// How vela_api says what is wrong, and how it ends.
#pragma once

#include <cstdio>

constexpr int EXIT_NEGATIVE_STATUS = 1;
constexpr int EXIT_NO_CALL = 2; // the call could not be made

// Prints one line on standard error and returns EXIT_NO_CALL.
inline int complain(const char *what, const char *about) {
    fprintf(stderr, "vela_api: %s%s\n", what, about);
    return EXIT_NO_CALL;
}
