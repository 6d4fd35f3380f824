// Whatever a bus daemon sends, in pieces of any size and with pauses, to the calls that ask netifd: they end in time,
// with a result that they are documented to have, and what they add to a reply is JSON.
//
// Input: a digit for the call, a digit for the size of the pieces, "e" where the daemon hangs up at the end or anything
// else where it falls silent; then what it sends, from its greeting on. A byte cannot mean a pause, so each piece comes
// with one before it where the fourth character is "p".
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <libubox/blobmsg_json.h>
#include <libubus.h>

#include "connection/interface_control.h"
#include "fake_system.h"
#include "fuzz_support.h"
#include "platform/owners.h"
#include "platform/ubus.h"
#include "router/passthrough.h"

namespace {

constexpr size_t HEAD = 4;
constexpr int32_t TIMEOUT_S = 3;
constexpr int64_t GREETING_MS = 5000;
constexpr int64_t LOOKUP_MS = 5000;

class TalkingDaemon : public FakeSystem {
public:
    TalkingDaemon(std::string_view stream, size_t piece, bool hangs_up, bool pauses)
        : stream_(stream), piece_(piece), hangs_up_(hangs_up), pauses_(pauses) {}

    bool bus_accepts() override { return accepts; }
    bool bus_is_silent() override {
        if (stream_.empty()) {
            return !hangs_up_;
        }
        return false;
    }
    ssize_t bus_receive(char *buffer, size_t size) override {
        paused_ = pauses_ && !paused_;
        if (paused_) {
            errno = EAGAIN;
            return -1;
        }
        const size_t count = std::min({size, piece_, stream_.size()});
        memcpy(buffer, stream_.data(), count);
        stream_.remove_prefix(count);
        return static_cast<ssize_t>(count);
    }

    bool accepts = true;

private:
    std::string_view stream_;
    size_t piece_;
    bool hangs_up_;
    bool pauses_;
    bool paused_ = false;
};

void list_objects() {
    const Ubus bus = ubus_open();
    if (bus == nullptr) {
        return;
    }
    const auto look_at = [](ubus_context *, ubus_object_data *object, void *) {
        require(object->path == nullptr || strlen(object->path) < UBUS_MAX_MSGLEN);
        if (object->signature != nullptr) {
            const Allocated<char> text(blobmsg_format_json(object->signature, true));
        }
    };
    // The daemon's status may be any number.
    require(ubus_strerror(ubus_lookup(bus.get(), nullptr, look_at, nullptr)) != nullptr);
}

void ask(char which, json_object *reply) {
    int state = IFACE_DOWN;
    switch (which) {
    case '0':
        state = iface_status("modem_1_1_2", TIMEOUT_S);
        break;
    case '1':
        state = ubus_read_ifstatus(reply, "modem_1_1_2", TIMEOUT_S);
        break;
    case '2':
        state = passthrough_ubus_read_ifstatus(reply, "modem_1_1_2", TIMEOUT_S);
        break;
    case '3':
        ubus_network_reload(TIMEOUT_S);
        ubus_network_reload(TIMEOUT_S);
        break;
    default:
        list_objects();
        break;
    }
    require(state == IFACE_UP || state == IFACE_PENDING || state == IFACE_DOWN);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    if (size < HEAD) {
        return 0;
    }
    const size_t piece = input[1] >= '1' && input[1] <= '8' ? static_cast<size_t>(input[1] - '0') : 65536;
    TalkingDaemon daemon(input.substr(HEAD), piece, input[2] == 'e', input[3] == 'p');
    Json reply(json_object_new_object());
    const Ended ended = run_on(daemon, [&] {
        ask(input[0], reply.get());
        // The connection of a reload that failed stays open until the next one.
        daemon.accepts = false;
        require(ubus_network_reload(TIMEOUT_S) == -1);
    });
    require(ended == Ended::NORMALLY && descriptors_left() == 0);
    require(waited_ms() <= 2 * (GREETING_MS + LOOKUP_MS + TIMEOUT_S * 1000));
    const Json parsed(json_tokener_parse(json_object_to_json_string(reply.get())));
    require(json_object_equal(parsed.get(), reply.get()) != 0);
    return 0;
}
