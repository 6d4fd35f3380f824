// What a run has allocated, and memory that runs out.
#include <cstdlib>
#include <cstring>
#include <iconv.h>
#include <iterator>
#include <sanitizer/allocator_interface.h>

#include <json-c/json.h>

#include "machine.h"

using namespace machine;

namespace {

// A hash table of fixed size, as nothing may be allocated in a hook.
constexpr size_t SLOTS = 1 << 16;
const void *allocated[SLOTS];
const void *const RELEASED = &allocated;
size_t used_slots[SLOTS / 2];
size_t used_count = 0;
bool recording = false;

size_t slot_of(const void *memory) {
    return (reinterpret_cast<uintptr_t>(memory) >> 4) * 0x9E3779B97F4A7C15U >> 48;
}

void record_allocation(const volatile void *volatile_memory, size_t /*size*/) {
    if (!recording || current == nullptr || volatile_memory == nullptr || used_count == std::size(used_slots)) {
        return;
    }
    const void *memory = const_cast<const void *>(volatile_memory);
    size_t slot = slot_of(memory);
    while (allocated[slot] != nullptr && allocated[slot] != RELEASED) {
        slot = (slot + 1) % SLOTS;
    }
    if (allocated[slot] == nullptr) {
        used_slots[used_count++] = slot;
    }
    allocated[slot] = memory;
}

void record_release(const volatile void *memory) {
    if (!recording || memory == nullptr) {
        return;
    }
    for (size_t slot = slot_of(const_cast<const void *>(memory)); allocated[slot] != nullptr;
         slot = (slot + 1) % SLOTS) {
        if (allocated[slot] == memory) {
            allocated[slot] = RELEASED;
            return;
        }
    }
}

} // namespace

void machine::record_allocations() {
    static const int installed = __sanitizer_install_malloc_and_free_hooks(record_allocation, record_release);
    require(installed > 0);
    for (size_t index = 0; index < used_count; index++) {
        allocated[used_slots[index]] = nullptr;
    }
    used_count = 0;
    recording = true;
}

void machine::stop_recording_allocations() {
    recording = false;
}

void machine::release_allocations() {
    recording = false;
    for (size_t index = 0; index < used_count; index++) {
        const void *memory = allocated[used_slots[index]];
        if (memory != RELEASED) {
            free(const_cast<void *>(memory));
        }
    }
}

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_malloc(size);
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_calloc(count, size);
}

void *__real_realloc(void *memory, size_t size);
void *__wrap_realloc(void *memory, size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_realloc(memory, size);
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
    return fails(Call::MALLOC) ? nullptr : __real_strdup(text);
}

json_object *__real_json_object_new_object();
json_object *__wrap_json_object_new_object() {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_object();
}

json_object *__real_json_object_new_array();
json_object *__wrap_json_object_new_array() {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_array();
}

json_object *__real_json_object_new_string_len(const char *text, int length);
json_object *__wrap_json_object_new_string_len(const char *text, int length) {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_string_len(text, length);
}

iconv_t __real_iconv_open(const char *to, const char *from);
iconv_t __wrap_iconv_open(const char *to, const char *from) {
    return fails(Call::MALLOC) ? iconv_t(-1) : __real_iconv_open(to, from);
}

} // extern "C"
// NOLINTEND
