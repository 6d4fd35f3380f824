// ubus replies as JSON, over libubox's blobmsg formatter.
#include "platform/ubus.h"

#include <cstdlib>

#include <json-c/json.h>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "platform/owners.h"

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
