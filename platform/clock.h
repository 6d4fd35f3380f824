// Waiting and measuring time inside a process whose signals belong to somebody else.
#pragma once

#include <cstdint>

// Sleeps for the whole time, whatever signals the host of a plug-in handles meanwhile.
void sleep_whole(int64_t milliseconds);

// Milliseconds of a clock that only runs forward.
int64_t monotonic_ms();
