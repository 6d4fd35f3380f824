// USB discovery over sysfs; see discovery.h.
#include "modem/discovery.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "modem/bus_name.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr const char *DEVICES = "/sys/devices/platform";
constexpr size_t INTERFACE_NAME_SIZE = 20; // "1-1.2:1.2"

bool contains(std::string_view name, std::string_view fragment) {
    return name.find(fragment) != name.npos;
}

// --- Directories called by a name ---

struct NameSearch {
    const char *name;
    std::span<char> out;
    bool found;
};

Visit match_name(const char *directory, const char *name, void *context) {
    auto &search = *static_cast<NameSearch *>(context);
    if (strcmp(name, search.name) != 0) {
        return Visit::DESCEND;
    }
    if (!search.found) {
        search.found = true;
        text_format(search.out, "%s/%s", directory, name);
    }
    return Visit::FOUND_LEAVE;
}

// The last component of `path` that is the name of a USB device or interface; empty where there is none (an empty
// component ends the search with that result too).
std::string_view enclosing_usb_node(std::string_view path) {
    size_t slash = path.rfind('/');
    while (slash != path.npos) {
        const std::string_view component = text_from(path, slash + 1);
        if (is_usb_node(component)) {
            return component;
        }
        path = text_before(path, slash);
        slash = path.rfind('/');
    }
    return {};
}

Visit match_node_of_name(const char *directory, const char *name, void *context) {
    auto &search = *static_cast<NameSearch *>(context);
    if (strcmp(name, search.name) != 0) {
        return Visit::DESCEND;
    }
    const std::string_view node = enclosing_usb_node(directory);
    if (node.empty()) {
        return Visit::LEAVE;
    }
    if (!search.found) {
        search.found = true;
        text_copy(search.out, node);
    }
    return Visit::FOUND_LEAVE;
}

// The directory of the device that was found last; empty while there is none. One operation asks several things of one
// device, and what it asks later is below this directory.
char known_device[SYSFS_PATH_SIZE];

// A search from the top opens the device's own directory and one of an interface's besides what led to the device. Where
// that would be too many only the search itself can say so.
constexpr int32_t MOST_BEFORE_KNOWN_DEVICE = MOST_DIRECTORIES - 2;

// `path` is that of the directory called `node`, found by opening `opened` directories.
void keep_known_device(std::string_view node, std::string_view path, int32_t opened) {
    if (contains(node, ":")) {
        path = text_before(path, path.rfind('/')); // an interface stands in its device's directory
    }
    if (opened <= MOST_BEFORE_KNOWN_DEVICE) {
        text_copy(known_device, path);
    }
}

// The directory of a device or interface by its name, into `path`.
bool find_node(const char *node, std::span<char> path) {
    int32_t counter = 0;
    modem_forget_device();
    if (node == nullptr || modem_search_bus(DEVICES, node, path, &counter) < 1) {
        return false;
    }
    keep_known_device(node, path.data(), counter);
    return true;
}

// The same where it is the known device, or in its directory. Whether it is still there is seen when it is opened.
bool find_known_node(const char *node, std::span<char> path) {
    const std::string_view device = known_device;
    if (node == nullptr || device.empty() || is_usb_node(node) == 0) {
        return false;
    }
    const std::string_view name = node;
    const std::string_view bus = text_before(name, name.find(':'));
    if (bus != text_from(device, device.rfind('/') + 1)) {
        return false;
    }
    text_format(path, "%s", known_device);
    if (bus != name) {
        text_format(path, "%s/%s", known_device, node);
    }
    return true;
}

// --- Device nodes below a directory ---

constexpr std::string_view PORT_FRAGMENTS[] = {"ttyUSB", "cdc-wdm", "ttyACM"};

bool is_port(std::string_view name) {
    for (const std::string_view fragment : PORT_FRAGMENTS) {
        if (contains(name, fragment)) {
            return true;
        }
    }
    return false;
}

Visit match_port(const char * /*directory*/, const char *name, void *context) {
    if (!is_port(name)) {
        return Visit::DESCEND;
    }
    text_format(*static_cast<std::span<char> *>(context), "/dev/%s", name);
    return Visit::FOUND_END;
}

struct PortCollection {
    json_object *ports;
    const char *device; // the directory in which the walk began
    std::span<const InterfacePort> wanted;
};

// Keeps the port for those who want that of the interface in or below whose directory it is, if it is their first.
void keep_first_ports(const PortCollection &collection, const char *directory, const char *name) {
    for (const InterfacePort &port : collection.wanted) {
        if (port.path[0] != '\0') {
            continue;
        }
        char interface[SYSFS_PATH_SIZE];
        text_format(interface, "%s%s:1.%d", collection.device, strrchr(collection.device, '/'), port.interface_number);
        const size_t length = strlen(interface);
        if (strncmp(directory, interface, length) == 0 && (directory[length] == '\0' || directory[length] == '/')) {
            text_format(port.path, "/dev/%s", name);
        }
    }
}

// ACM ports are named only in the "tty" directory below their interface; ttyUSB ports are named there a second time, so
// each kind counts on its own side.
Visit collect_port(const char *directory, const char *name, void *context) {
    const auto &collection = *static_cast<const PortCollection *>(context);
    if (!is_port(name)) {
        return Visit::DESCEND;
    }
    keep_first_ports(collection, directory, name);
    const bool counts =
        contains(directory, "/tty") ? contains(name, "ttyACM") : contains(name, "ttyUSB") || contains(name, "cdc-wdm");
    if (!counts) {
        return Visit::DESCEND;
    }
    char path[SYSFS_PATH_SIZE];
    text_format(path, "/dev/%s", name);
    vjson_array_add_string(collection.ports, path);
    return Visit::FOUND_DESCEND;
}

struct FragmentSearch {
    const char *fragment;
    std::span<char> out;
};

Visit match_fragment(const char * /*directory*/, const char *name, void *context) {
    auto &search = *static_cast<FragmentSearch *>(context);
    if (!contains(name, search.fragment)) {
        return Visit::DESCEND;
    }
    text_copy(search.out, name);
    return Visit::FOUND_END;
}

// Walks a directory; fewer than one find is a failure.
int search_below(const char *directory, VisitDirectory visit, void *context) {
    int32_t counter = 0;
    const int found = walk_directories(directory, &counter, visit, context);
    return found < 1 ? -1 : found;
}

// The same for the directory of a device or interface, found by its name.
int search_below_node(const char *node, VisitDirectory visit, void *context) {
    char directory[SYSFS_PATH_SIZE] = {};
    if (find_known_node(node, directory)) {
        int32_t counter = 0;
        const int found = walk_directories(directory, &counter, visit, context);
        if (found >= 0) {
            return found > 0 ? found : -1;
        }
    }
    return find_node(node, directory) ? search_below(directory, visit, context) : -1;
}

// --- Ids ---

enum class IdRead { FAILED, EMPTY, DONE };

// Reads one hexadecimal id file. The kernel writes four digits and a line feed; 14 bytes are plenty.
IdRead read_id(const char *path, uint32_t *id) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.valid()) {
        return IdRead::FAILED;
    }
    char text[15] = {};
    if (read(file.get(), text, sizeof text - 1) <= 0) {
        return IdRead::EMPTY;
    }
    *id = static_cast<uint32_t>(strtoul(text, nullptr, 16));
    return IdRead::DONE;
}

// The places of a modem on the routers that have one, in the order in which they are tried.
constexpr char USUAL_BUSES[][6] = {"1-1.2", "1-1.3", "1-1"};

IdRead read_id_of_usual_bus(const char *file_name, uint32_t *id) {
    for (const char *bus : USUAL_BUSES) {
        char path[SYSFS_PATH_SIZE];
        text_format(path, "/sys/bus/usb/devices/%s/%s", bus, file_name);
        const IdRead result = read_id(path, id);
        if (result != IdRead::FAILED) {
            return result;
        }
    }
    return IdRead::FAILED;
}

IdRead read_id_below(const char *directory, const char *file_name, uint32_t *id) {
    char path[SYSFS_PATH_SIZE];
    text_format(path, "%s/%s", directory, file_name);
    return read_id(path, id);
}

// Product before vendor; the first that cannot be read, or is empty, ends it.
template <typename ReadId> int read_both_ids(ReadId read, uint32_t *vid, uint32_t *pid) {
    IdRead result = read("idProduct", pid);
    if (result == IdRead::DONE) {
        result = read("idVendor", vid);
    }
    return result == IdRead::FAILED ? -1 : 0;
}

} // namespace

void modem_forget_device() {
    known_device[0] = '\0';
}

int modem_search_bus(const char *directory, const char *name, std::span<char> out, int32_t *counter) {
    NameSearch search = {name, out, false};
    return walk_directories(directory, counter, match_name, &search);
}

int modem_search_usb_node(const char *directory, const char *name, std::span<char> out, int32_t *counter) {
    NameSearch search = {name, out, false};
    return walk_directories(directory, counter, match_node_of_name, &search);
}

int modem_find_device(const char *bus, std::span<char> directory) {
    return find_node(bus, directory) ? 0 : -1;
}

int modem_read_usb_id(const char *device_directory, uint32_t *vid, uint32_t *pid) {
    return read_both_ids([=](const char *name, uint32_t *id) { return read_id_below(device_directory, name, id); }, vid,
                         pid);
}

int modem_get_usb_id(const char *bus, uint32_t *vid, uint32_t *pid) {
    if (bus == nullptr) {
        return read_both_ids(read_id_of_usual_bus, vid, pid);
    }
    char directory[SYSFS_PATH_SIZE] = {};
    return modem_find_device(bus, directory) == 0 ? modem_read_usb_id(directory, vid, pid) : -1;
}

int modem_find_port(const char *device_directory, const char *bus, int interface_number, std::span<char> out) {
    // The interfaces' directories stand directly in the device's, so this one needs no search.
    char node[INTERFACE_NAME_SIZE];
    char directory[SYSFS_PATH_SIZE];
    text_format(node, "%s:1.%d", bus, interface_number);
    text_format(directory, "%s/%s", device_directory, node);
    return search_below(directory, match_port, &out);
}

int modem_search_port(const char *bus, int interface_number, std::span<char> out) {
    if (bus == nullptr) {
        return -1;
    }
    char node[INTERFACE_NAME_SIZE];
    text_format(node, "%s:1.%d", bus, interface_number);
    return modem_search_port_by_node(node, out);
}

int modem_search_port_by_node(const char *node, std::span<char> out) {
    return search_below_node(node, match_port, &out);
}

int modem_list_ports(const char *device_directory, json_object *ports, std::span<const InterfacePort> wanted) {
    int32_t counter = 0;
    PortCollection collection = {ports, device_directory, wanted};
    return walk_directories(device_directory, &counter, collect_port, &collection);
}

int modem_get_ports(const char *bus, json_object *ports) {
    char directory[SYSFS_PATH_SIZE] = {};
    return modem_find_device(bus, directory) == 0 ? modem_list_ports(directory, ports) : -1;
}

int modem_get_net_dev(const char *bus, const char *fragment, std::span<char> out) {
    FragmentSearch search = {fragment, out};
    return search_below_node(bus, match_fragment, &search);
}
