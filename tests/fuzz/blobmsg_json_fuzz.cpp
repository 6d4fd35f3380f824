// Any bytes as the content of a message from the bus: its JSON text must be what json-c's strict reader accepts, or
// none, and reading members out of it must stay within it. Memory is of just the message's size, for the sanitizers to
// watch.
#include <json-c/json.h>
#include <libubox/blobmsg_json.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeMemory {
    void operator()(void *memory) const { free(memory); }
};
using Text = std::unique_ptr<char, FreeMemory>;

void demandJson(const char *text) {
    json_tokener *reader = json_tokener_new();
    json_tokener_set_flags(reader, JSON_TOKENER_STRICT);
    // The NUL tells the reader that a number at the end is complete.
    json_object *value = json_tokener_parse_ex(reader, text, static_cast<int>(strlen(text)) + 1);
    if (json_tokener_get_error(reader) != json_tokener_success || json_tokener_get_parse_end(reader) != strlen(text)) {
        fprintf(stderr, "not JSON: %s\n", text);
        abort();
    }
    json_object_put(value);
    json_tokener_free(reader);
}

void readMembers(blob_attr *message) {
    const blobmsg_policy policy[] = {{"up", BLOBMSG_TYPE_BOOL}, {"l3_device", BLOBMSG_TYPE_STRING}};
    blob_attr *found[2];
    blobmsg_parse_attr(policy, 2, found, message);
    blobmsg_get_bool(found[0]);
    if (const char *text = blobmsg_get_string(found[1])) {
        static_cast<void>(strlen(text));
    }
    blob_attr *pos;
    size_t rem;
    blobmsg_for_each_attr(pos, message, rem) {
        static_cast<void>(strlen(blobmsg_name(pos)));
        blobmsg_get_double(pos);
        blobmsg_check_array(pos, BLOBMSG_TYPE_UNSPEC);
        // A value alone is a member of an object if it has a name.
        const Text alone(blobmsg_format_json(pos, false));
        if (alone != nullptr && blobmsg_name(pos)[0] != '\0') {
            const size_t size = strlen(alone.get()) + sizeof("{}");
            const Text object(static_cast<char *>(malloc(size)));
            snprintf(object.get(), size, "{%s}", alone.get());
            demandJson(object.get());
        } else if (alone != nullptr) {
            demandJson(alone.get());
        }
    }
}

// The getters for every type on every attribute, whatever it is, and the parsers of unsorted attributes.
void readAttributes(blob_attr *message, size_t size) {
    static const blob_attr_info info[] = {{}, {BLOB_ATTR_INT32, 4, 4, nullptr}, {BLOB_ATTR_STRING, 1, 64, nullptr}};
    blob_attr *found[3];
    blob_parse_untrusted(message, size, found, info, 3);
    blob_parse_untrusted(message, size / 2, found, nullptr, 3);
    blob_attr *pos;
    size_t rem;
    blob_for_each_attr(pos, message, rem) {
        blob_get_u8(pos);
        blob_get_u16(pos);
        blob_get_int32(pos);
        blob_get_u64(pos);
        if (const char *text = blob_get_string(pos)) {
            static_cast<void>(strlen(text));
        }
        blobmsg_get_u8(pos);
        blobmsg_get_u16(pos);
        blobmsg_get_u32(pos);
        blobmsg_get_u64(pos);
        blobmsg_check_attr_len(pos, true, rem);
        blobmsg_check_attr_list(pos, BLOBMSG_TYPE_STRING);
        const blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_STRING}, {nullptr, BLOBMSG_TYPE_INT32}};
        blob_attr *items[2];
        blobmsg_parse_array(policy, 2, items, blobmsg_data(pos), static_cast<unsigned>(blobmsg_data_len(pos)));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 65536) {
        return 0;
    }
    const std::unique_ptr<void, FreeMemory> memory(calloc(1, sizeof(blob_attr) + size));
    auto *message = static_cast<blob_attr *>(memory.get());
    blob_set_raw_len(message, static_cast<unsigned>(sizeof(blob_attr) + size));
    if (size > 0) {
        memcpy(message->data, data, size);
    }
    for (const int indent : {-1, 0}) {
        const Text text(blobmsg_format_json_indent(message, true, indent));
        if (text != nullptr) {
            demandJson(text.get());
        }
    }
    readMembers(message);
    readAttributes(message, sizeof(blob_attr) + size);
    return 0;
}
