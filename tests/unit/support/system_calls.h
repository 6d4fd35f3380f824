// System calls that go as a test wants, for tests of programs that are linked with system_calls.cpp (CMakeLists.txt
// says which).
#pragma once

// A call as syscall() makes it, of those that take up to three arguments.
using SystemCall = long (*)(long number, long first, long second, long third);

// The kernel's own.
long real_system_call(long number, long first, long second, long third);

// While it lives, what is linked statically, the product above all, has its calls by syscall() made by `instead`.
class SystemCalls {
public:
    explicit SystemCalls(SystemCall instead);
    ~SystemCalls();
    SystemCalls(const SystemCalls &) = delete;
    SystemCalls &operator=(const SystemCalls &) = delete;
};
