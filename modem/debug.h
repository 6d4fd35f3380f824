// Diagnostics for the person at the command line: silent unless "-D" was given.
#pragma once

#include <cstdint>

// 1 when "-D" was given, else 0.
extern uint8_t DEBUG;

// Prints to standard output like printf when DEBUG is 1. At most 1023 bytes; longer output is cut. Nothing is added,
// neither prefix nor line end.
void DEBUG_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
