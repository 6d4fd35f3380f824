// The ubus message bus: connections, calls, and replies as JSON.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/owners.h"

struct blob_attr;
struct ubus_context;
struct ubus_request;

// libubus data callback for ubus_invoke: converts the reply message to a JSON object and stores it in the json_object *
// whose address was given as the request's private data (an object from an earlier message of the same reply is
// released). The caller reads the object, releases it with json_object_put() and resets its pointer to null. The
// pointer stays as it was where no reply came or where the reply cannot be converted.
void receive_call_result_data(ubus_request *request, int type, blob_attr *message);

struct FreeUbus {
    void operator()(ubus_context *bus) const;
};
using Ubus = std::unique_ptr<ubus_context, FreeUbus>;

// A connection to the bus daemon on the default socket; null where there is none.
Ubus ubus_open();

// Whether netifd can be asked for an interface of this name: it has at most 45 characters.
bool ubus_interface_name_fits(const char *interface_name);

// A time-out in seconds as libubus takes it, in milliseconds, held to what its type can say.
int ubus_timeout_ms(int32_t seconds);

// Asks netifd for the status of a logical interface ("network.interface.<name>", method "status"). Null where the name
// does not fit, the interface is unknown, or no reply comes within the time.
Json ubus_interface_status(ubus_context *bus, const char *interface_name, int32_t timeout_seconds);
