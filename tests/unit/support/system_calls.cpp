#include "support/system_calls.h"

#include <cstdarg>

// In place of the C library's own (the linker's --wrap).
extern "C" long __real_syscall(long number, ...);
extern "C" long __wrap_syscall(long number, ...);

namespace {

SystemCall system_call = real_system_call;

} // namespace

long real_system_call(long number, long first, long second, long third) {
    return __real_syscall(number, first, second, third);
}

SystemCalls::SystemCalls(SystemCall instead) {
    system_call = instead;
}

SystemCalls::~SystemCalls() {
    system_call = real_system_call;
}

long __wrap_syscall(long number, ...) {
    va_list arguments;
    va_start(arguments, number);
    const long first = va_arg(arguments, long);
    const long second = va_arg(arguments, long);
    const long third = va_arg(arguments, long);
    va_end(arguments);
    return system_call(number, first, second, third);
}
