// Memory that is short, for tests of programs that are linked with short_memory.cpp (CMakeLists.txt says which).
#pragma once

// While it lives, what is linked statically, the product above all, gets no memory by malloc, realloc or
// json_object_new_object, after the first `spared` times. Not for a process that has a second thread.
class ShortMemory {
public:
    explicit ShortMemory(int spared = 0);
    ~ShortMemory();
    ShortMemory(const ShortMemory &) = delete;
    ShortMemory &operator=(const ShortMemory &) = delete;
};
