// A router that plays a script; see scripted_router.h.
#include "scripted_router.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
#include <uci.h>
}

#include "connection/interface_control.h"
#include "fuzz_support.h"
#include "modem/discovery.h"
#include "modem/model.h"
#include "platform/board.h"
#include "platform/uci.h"
#include "vendor/apn_database.h"

namespace {

constexpr std::string_view DEVICE = "/sys/devices/platform/usb/1-1.2";

// What a router has before anybody configures a modem.
constexpr struct {
    const char *path;
    std::string_view content;
} FILES[] = {
    {"/etc/config/network", "config interface 'lan'\n\toption proto 'static'\n"},
    {"/etc/config/velaconfig", "config service 'modem'\n\tlist bus '1-1.2'\n"},
    {"/etc/config/velamodem", "config sim 'sim'\n\toption sim_num '1'\n"},
    {"/etc/config/velaforward", "config general 'general'\n"},
    {"/etc/config/mwan3", "config policy 'default_poli'\n\tlist use_member 'wan_only'\n"},
    {"/etc/config/wireless", "config wifi-device 'radio1'\n\toption channel '11'\n"},
    {"/etc/config/system", "config led 'led_3gnet'\n"},
};

// Where the product writes, and where scripts may put files.
constexpr const char *CHANGING[] = {"/etc", "/tmp", "/proc", "/var", "/www"};

constexpr struct {
    std::string_view name;
    Call call;
} CALLS[] = {
    {"malloc", Call::MALLOC},       {"open", Call::OPEN},
    {"read", Call::READ},           {"write", Call::WRITE},
    {"rename", Call::RENAME},       {"truncate", Call::TRUNCATE},
    {"pipe", Call::PIPE},           {"fork", Call::FORK},
    {"socket", Call::SOCKET},       {"interfaces", Call::INTERFACES},
    {"interrupt", Call::INTERRUPT},
};
static_assert(std::size(CALLS) == CALL_COUNT);

// More would only make a run slow.
constexpr size_t MOST_RECORDS = 60;

std::string_view take_line(std::string_view &text) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(text.size(), end + 1));
    return line;
}

void make_tree() {
    make_directories(std::string(DEVICE));
    put_file("/dev/cdc-wdm0", "");
    for (int number = 0; number < 4; number++) {
        const std::string interface = std::string(DEVICE) + "/1-1.2:1." + std::to_string(number);
        const std::string tty = "ttyUSB" + std::to_string(number);
        make_directories(interface + "/" + tty);
        put_file("/dev/" + tty, "");
    }
    make_directories(std::string(DEVICE) + "/1-1.2:1.4/cdc-wdm0");
    make_directories(std::string(DEVICE) + "/1-1.2:1.4/wwan0");
    make_directories(std::string(DEVICE) + "/1-1.2:1.4/eth2");
}

// What a write that has not ended leaves behind.
bool is_draft(std::string_view name) {
    static const std::string own = "." + std::to_string(getpid());
    return name != "." && name != ".." && (name.substr(0, 1) == "." || name.ends_with(own));
}

bool has_draft(std::string_view path) {
    while (!path.empty()) {
        const size_t end = std::min(path.find('/'), path.size());
        if (is_draft(path.substr(0, end))) {
            return true;
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}

// Where a script may put a file: not outside of the directories that are emptied for the next one, and not as if the
// product had left it unfinished.
bool is_changing(std::string_view path) {
    return path.find("..") == path.npos && path.find("//") == path.npos && path.find("/./") == path.npos &&
           !has_draft(path) && path.size() < 200 && path.find('\0') == path.npos &&
           std::any_of(std::begin(CHANGING), std::end(CHANGING), [path](std::string_view directory) {
               return path.substr(0, directory.size()) == directory && path.size() > directory.size() + 1 &&
                      path[directory.size()] == '/';
           });
}

} // namespace

ScriptedRouter::ScriptedRouter(std::string_view script) {
    read(script);
    put_files();
}

void ScriptedRouter::read(std::string_view script) {
    size_t start = script.substr(0, 1) == "@" ? 0 : std::min(script.find("\n@"), script.size());
    head_ = script.substr(0, start);
    script.remove_prefix(start);
    while (!script.empty() && records_.size() < MOST_RECORDS) {
        script.remove_prefix(script[0] == '\n' ? 2 : 1); // and the "@"
        const size_t end = std::min(script.find("\n@"), script.size());
        std::string_view content = script.substr(0, end + 1); // with its last line end
        std::string_view first = take_line(content);
        const size_t blank = std::min(first.find(' '), first.size());
        records_.push_back({first.substr(0, blank), first.substr(std::min(first.size(), blank + 1)), content});
        script.remove_prefix(end);
    }
}

void ScriptedRouter::put_files() {
    for (const char *directory : CHANGING) {
        remove_below(directory);
    }
    for (const auto &file : FILES) {
        put_file(file.path, file.content);
    }
    make_directories("/etc/ssmtp");
    make_directories("/tmp");
    static bool modem_is_there = false;
    const Record *usb = find("usb", "");
    if (modem_is_there && usb == nullptr) {
        remove_below("/sys/devices/platform");
    } else if (!modem_is_there && usb != nullptr) {
        make_tree();
    }
    make_directories("/sys/devices/platform");
    modem_is_there = usb != nullptr;
    if (usb != nullptr) {
        const size_t blank = std::min(usb->argument.find(' '), usb->argument.size());
        put_file(std::string(DEVICE) + "/idVendor", usb->argument.substr(0, blank));
        put_file(std::string(DEVICE) + "/idProduct", usb->argument.substr(blank));
    }
    for (const Record &record : records_) {
        if (record.kind == "file" && is_changing(record.argument)) {
            put_file(std::string(record.argument), record.content);
        } else if (record.kind == "board") {
            put_file("/tmp/sysinfo/board_name", "vela," + std::string(record.argument));
        }
    }
}

void ScriptedRouter::fail_calls() const {
    constexpr int MOST_CALLS = 100000;
    for (const Record &record : records_) {
        const size_t blank = std::min(record.argument.find(' '), record.argument.size());
        const std::string_view name = record.argument.substr(0, blank);
        const std::string number(record.argument.substr(blank));
        for (const auto &row : CALLS) {
            if (record.kind == "fail" && row.name == name) {
                // Who is interrupted at each call from one on, and tries again, does not end.
                const bool from_then_on = number.ends_with('+') && row.call != Call::INTERRUPT;
                fail_call(row.call, std::clamp(atoi(number.c_str()), 1, MOST_CALLS), from_then_on);
            }
        }
    }
}

// The first record of the kind whose argument the text contains.
const ScriptedRouter::Record *ScriptedRouter::find(std::string_view kind, std::string_view text) const {
    for (const Record &record : records_) {
        if (record.kind == kind && (kind == "usb" || kind == "bus" || text.find(record.argument) != text.npos)) {
            return &record;
        }
    }
    return nullptr;
}

Ended ScriptedRouter::run(const std::function<void()> &product) {
    bus_is_up_ = find("bus", "") != nullptr;
    // What a process keeps, and a new one would not know.
    const_cast<char *>(get_model_name())[0] = '\0';
    cur_dev = MODEM_ID_NONE;
    modem_forget_device();
    fail_calls();
    const Ended ended = run_on(*this, [&] {
        product();
        forget_connection();
    });
    isp_object = nullptr;
    require(descriptors_left() == 0);
    check_files();
    return ended;
}

// Whatever failed on the way, each package is read as before, and no draft of a file is left beside it.
void ScriptedRouter::check_files() const {
    uci_context *context = uci_alloc_context();
    require(uci_set_confdir(context, scratch_path("/etc/config").c_str()) == UCI_OK &&
            uci_set_savedir(context, scratch_path("/tmp/.uci").c_str()) == UCI_OK);
    for (const auto &file : FILES) {
        const auto is_this = [&file](const Record &record) { return record.argument == file.path; };
        const std::string_view path(file.path);
        if (std::none_of(records_.begin(), records_.end(), is_this)) {
            uci_package *package = nullptr;
            const std::string name(path.substr(path.rfind('/') + 1));
            require(uci_load(context, name.c_str(), &package) == UCI_OK);
        }
    }
    uci_free_context(context);
    for (const char *directory : {"/etc/config", "/tmp/modem.1-1.2"}) {
        DIR *entries = opendir(scratch_path(directory).c_str());
        while (const dirent *entry = entries != nullptr ? readdir(entries) : nullptr) {
            require(!is_draft(entry->d_name));
        }
        if (entries != nullptr) {
            closedir(entries);
        }
    }
}

// The one that a reload keeps where it has failed.
void ScriptedRouter::forget_connection() {
    bus_is_up_ = false;
    ubus_network_reload(1);
}

void ScriptedRouter::after_abort() {
    vuci_free();
    forget_connection();
}

// --- Files ---

void ScriptedRouter::changes(std::string_view path) {
    constexpr std::string_view OWN[] = {
        "/etc/config/", "/tmp/.uci",  "/etc/spool/sms/incoming/", "/etc/spool/sms/storage/",
        "/tmp/modem.",  "/etc/ssmtp/"};
    const size_t scratch = scratch_path("").size();
    if (path.substr(0, scratch) == scratch_path("")) {
        path.remove_prefix(scratch); // libuci asks where a link leads
    }
    require(path.find("/..") == path.npos);
    require(std::any_of(std::begin(OWN), std::end(OWN),
                        [path](std::string_view start) { return path.substr(0, start.size()) == start; }));
}

// --- Modem ---

bool ScriptedRouter::is_tty(std::string_view path) {
    return path.substr(0, 8) == "/dev/tty" && path.size() == strlen("/dev/ttyUSB0") && path.back() >= '0' &&
           path.back() <= '3';
}

ssize_t ScriptedRouter::transmit(const char *bytes, size_t size) {
    const std::string command(bytes, size);
    reply_.clear();
    if (const Record *record = find("at", command); record != nullptr) {
        reply_ = command + "\r\n";
        for (const char character : record->content) {
            reply_ += character == '\n' ? "\r\n" : std::string(1, character);
        }
    }
    return static_cast<ssize_t>(size);
}

ssize_t ScriptedRouter::receive(char *buffer, size_t size) {
    const size_t count = std::min(size, reply_.size());
    memcpy(buffer, reply_.data(), count);
    reply_.erase(0, count);
    return static_cast<ssize_t>(count);
}

// --- Commands ---

void ScriptedRouter::require_own_words(const std::string &command) {
    require(std::all_of(command.begin(), command.end(), [](char c) { return (c >= ' ' && c <= '~') || c == '\n'; }));
}

std::string ScriptedRouter::output_of(const std::string &command) {
    const Record *record = find("sh", command);
    return record != nullptr ? std::string(record->content) : std::string();
}

int ScriptedRouter::status_of(const std::string &command) {
    for (const Record &record : records_) {
        const size_t blank = record.argument.rfind(' ');
        if (record.kind == "status" && blank != record.argument.npos &&
            command.find(record.argument.substr(0, blank)) != command.npos) {
            // Of these sixteen bits are told, and no child that only stopped.
            const int status = atoi(std::string(record.argument.substr(blank + 1)).c_str()) & 0xFFFF;
            return (status & 0x7F) == 0x7F ? 0 : status;
        }
    }
    return 0;
}

// --- Bus ---

bool ScriptedRouter::bus_accepts() {
    from_bus_.clear();
    if (bus_is_up_) {
        say_on_bus(UBUS_MSG_HELLO, 0, nullptr, 0);
    }
    return bus_is_up_;
}

void ScriptedRouter::say_on_bus(unsigned type, uint16_t seq, const void *body, size_t size) {
    const ubus_msghdr header = {
        .version = 0, .type = static_cast<uint8_t>(type), .seq = htobe16(seq), .peer = htobe32(1)};
    const blob_attr nothing = {.id_len = htobe32(sizeof nothing)};
    from_bus_.append(reinterpret_cast<const char *>(&header), sizeof header);
    if (body == nullptr) {
        from_bus_.append(reinterpret_cast<const char *>(&nothing), sizeof nothing);
    } else {
        from_bus_.append(static_cast<const char *>(body), size);
    }
}

void ScriptedRouter::answer_on_bus(unsigned type, uint16_t seq) {
    blob_buf message = {};
    blob_buf_init(&message, 0);
    if (type == UBUS_MSG_LOOKUP) {
        blob_put_int32(&message, UBUS_ATTR_OBJID, 7);
        blob_put_string(&message, UBUS_ATTR_OBJPATH, "network");
    } else {
        blob_buf values = {};
        blobmsg_buf_init(&values);
        const Json report(json_tokener_parse(std::string(find("bus", "")->content).c_str()));
        if (json_object_is_type(report.get(), json_type_object)) {
            blobmsg_add_json_from_string(&values, json_object_to_json_string(report.get()));
        }
        blob_put(&message, UBUS_ATTR_DATA, blob_data(values.head), static_cast<unsigned>(blob_len(values.head)));
        blob_buf_free(&values);
    }
    say_on_bus(UBUS_MSG_DATA, seq, message.head, blob_pad_len(message.head));
    blob_buf_init(&message, 0);
    blob_put_int32(&message, UBUS_ATTR_STATUS, UBUS_STATUS_OK);
    say_on_bus(UBUS_MSG_STATUS, seq, message.head, blob_pad_len(message.head));
    blob_buf_free(&message);
}

void ScriptedRouter::bus_sent(std::string_view bytes) {
    ubus_msghdr header;
    require(bytes.size() >= sizeof header);
    memcpy(&header, bytes.data(), sizeof header);
    answer_on_bus(header.type, be16toh(header.seq));
}

ssize_t ScriptedRouter::bus_receive(char *buffer, size_t size) {
    const size_t count = std::min(size, from_bus_.size());
    memcpy(buffer, from_bus_.data(), count);
    from_bus_.erase(0, count);
    return static_cast<ssize_t>(count);
}

// --- Network ---

// An Ethernet device and a PPP link.
ifaddrs *ScriptedRouter::network_devices() {
    static char ethernet[] = "wwan0";
    static char link[] = "3g-modem";
    static rtnl_link_stats statistics = {};
    statistics.rx_bytes = 4'000'000'000;
    statistics.tx_bytes = 1;
    static sockaddr packet = {.sa_family = AF_PACKET, .sa_data = {}};
    static sockaddr_in address = {
        .sin_family = AF_INET, .sin_port = 0, .sin_addr = {.s_addr = htobe32(0x0A0B0C0D)}, .sin_zero = {}};
    static ifaddrs list[5] = {};
    for (size_t index = 0; index < std::size(list); index++) {
        list[index].ifa_next = index + 1 < std::size(list) ? &list[index + 1] : nullptr;
        list[index].ifa_name = index < 2 ? ethernet : link;
        list[index].ifa_flags = index < 2 ? IFF_UP : IFF_UP | IFF_POINTOPOINT;
    }
    list[0].ifa_addr = &packet;
    list[0].ifa_data = &statistics;
    list[1].ifa_addr = reinterpret_cast<sockaddr *>(&address);
    list[3].ifa_addr = reinterpret_cast<sockaddr *>(&address);
    list[4].ifa_addr = &packet;
    return list;
}
