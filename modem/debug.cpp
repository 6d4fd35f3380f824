// Diagnostics; see debug.h.
#include "modem/debug.h"

#include <cstdarg>
#include <cstdio>

uint8_t DEBUG = 0;

void DEBUG_printf(const char *format, ...) {
    if (DEBUG != 1) {
        return;
    }
    char line[1024] = {};
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    printf("%s", line);
}
