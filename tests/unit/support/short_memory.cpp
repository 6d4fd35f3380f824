#include "support/short_memory.h"

#include <climits>
#include <cstddef>

#include <json-c/json.h>

namespace {

constexpr int PLENTY = INT_MAX;
int left = PLENTY;

bool is_short() {
    if (left == 0) {
        return true;
    }
    left -= left != PLENTY ? 1 : 0;
    return false;
}

} // namespace

ShortMemory::ShortMemory(int spared) {
    left = spared;
}

ShortMemory::~ShortMemory() {
    left = PLENTY;
}

// In place of the C library's and json-c's own (the linker's --wrap).
extern "C" {

void *__real_malloc(size_t size);
void *__real_realloc(void *memory, size_t size);
json_object *__real_json_object_new_object();

void *__wrap_malloc(size_t size) {
    return is_short() ? nullptr : __real_malloc(size);
}

void *__wrap_realloc(void *memory, size_t size) {
    return is_short() ? nullptr : __real_realloc(memory, size);
}

json_object *__wrap_json_object_new_object() {
    return is_short() ? nullptr : __real_json_object_new_object();
}
}
