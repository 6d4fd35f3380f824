// The ubus message bus, over libubus and libubox's blobmsg formatter.
#include "platform/ubus.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "platform/text.h"

void receive_call_result_data(ubus_request *request, int /*type*/, blob_attr *message) {
    if (message == nullptr || request->priv == nullptr) {
        return;
    }
    const Allocated<char> text(blobmsg_format_json(message, true));
    if (text == nullptr) {
        return;
    }
    json_object *reply = json_tokener_parse(text.get());
    if (reply == nullptr) {
        return;
    }
    auto *const result = static_cast<json_object **>(request->priv);
    json_object_put(*result);
    *result = reply;
}

void FreeUbus::operator()(ubus_context *bus) const {
    ubus_free(bus);
}

Ubus ubus_open() {
    return Ubus(ubus_connect(nullptr));
}

bool ubus_interface_name_fits(const char *interface_name) {
    constexpr size_t LONGEST_NAME = 45;
    return strlen(interface_name) <= LONGEST_NAME;
}

int ubus_timeout_ms(int32_t seconds) {
    return static_cast<int>(std::clamp<int64_t>(int64_t{seconds} * 1000, 0, INT32_MAX));
}

Json ubus_interface_status(ubus_context *bus, const char *interface_name, int32_t timeout_seconds) {
    if (!ubus_interface_name_fits(interface_name)) {
        return nullptr;
    }
    char object[64];
    text_format(object, "network.interface.%s", interface_name);
    uint32_t id = 0;
    if (ubus_lookup_id(bus, object, &id) != UBUS_STATUS_OK) {
        return nullptr;
    }
    blob_buf nothing = {};
    blob_buf_init(&nothing, 0);
    json_object *reply = nullptr;
    ubus_invoke_fd(bus, id, "status", nothing.head, receive_call_result_data, &reply, ubus_timeout_ms(timeout_seconds),
                   -1);
    blob_buf_free(&nothing);
    return Json(reply);
}
