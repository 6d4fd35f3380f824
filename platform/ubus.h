// ubus replies as JSON.
#pragma once

struct blob_attr;
struct ubus_request;

// libubus data callback for ubus_invoke: converts the reply message to a JSON object and stores it in the json_object *
// whose address was given as the request's private data (an object from an earlier message of the same reply is
// released). The caller reads the object, releases it with json_object_put() and resets its pointer to null. The
// pointer stays as it was where no reply came or where the reply cannot be converted.
void receive_call_result_data(ubus_request *request, int type, blob_attr *message);
