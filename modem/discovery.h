// USB discovery: what sysfs says about the device on a bus: its ids, its tty ports, its network device.
//
// A bus is a USB bus path such as "1-1.2". All searches are depth-first walks of real directories (never of sysfs's
// symbolic links) under /sys/devices/platform, in directory-reading order. Each search opens at most 1000 directories;
// a larger tree, or a directory that cannot be opened, fails it with -1. Names and paths that do not fit their buffers
// abort. Nothing is printed.
#pragma once

#include <cstdint>
#include <span>

#include <json-c/json.h>

#include "modem/sysfs_walk.h"

// Size of the buffers that receive a device path such as "/dev/ttyUSB2".
constexpr size_t PORT_PATH_SIZE = 50;

// Looks for the directories called `name` under `directory`. The path of the first goes to `out` (SYSFS_PATH_SIZE
// bytes). `counter` is the caller's count of opened directories, 0 before the search. Returns the number of matches, 0
// when there is none, -1 on failure.
int modem_search_bus(const char *directory, const char *name, std::span<char> out, int32_t *counter);

// Reads the USB vendor and product ids of the device on the bus; with a null bus, of the first that is there of 1-1.2,
// 1-1.3 and 1-1, for each id separately. An id whose file is empty keeps the caller's value. Returns 0 or -1.
int modem_get_usb_id(const char *bus, uint32_t *vid, uint32_t *pid);

// Looks for the directories called `name` under `directory` and puts into `out` the name of the USB device or interface
// that the first one found belongs to ("1-1.2" or "1-1.2:1.4"). Returns the number of matches, 0 when there is none or
// none below a USB node, -1 on failure.
int modem_search_usb_node(const char *directory, const char *name, std::span<char> out, int32_t *counter);

// The operations below look the device on the bus up first: from the top, or, once that has been done, where the device
// was found last. Only where it is not there any more is it looked for again. What may have changed without the device
// leaving its place, its ttys above all, is always read from sysfs.

// Lets the next operation look from the top again. Whoever serves several requests in one process begins each so.
void modem_forget_device();

// The directory of the device on the bus into `directory` (SYSFS_PATH_SIZE bytes). Returns 0 or -1. Who asks several
// things of one device looks it up once, and uses the variants that take its directory.
int modem_find_device(const char *bus, std::span<char> directory);
int modem_read_usb_id(const char *device_directory, uint32_t *vid, uint32_t *pid);

// What modem_get_ports does. By the way each of the `wanted` gets what modem_find_port would find for its interface; its
// `path` is empty before, and stays so where there is no port.
struct InterfacePort {
    int interface_number;
    std::span<char> path;
};
int modem_list_ports(const char *device_directory, json_object *ports, std::span<const InterfacePort> wanted = {});

int modem_find_port(const char *device_directory, const char *bus, int interface_number, std::span<char> out);

// The device path of the first tty or cdc-wdm device of a USB interface, given by bus and interface number or by the
// interface's directory name ("1-1.2:1.2"), into `out` (PORT_PATH_SIZE bytes). Returns 1 or more when found; -1 when
// not, or on failure, with `out` untouched.
int modem_search_port(const char *bus, int interface_number, std::span<char> out);
int modem_search_port_by_node(const char *node, std::span<char> out);

// Appends the paths of all tty and cdc-wdm devices on the bus to the array. Returns their number, or -1.
int modem_get_ports(const char *bus, json_object *ports);

// The name of the first network device on the bus whose name contains `fragment` ("eth", "wwan", "usb") into `out`.
// Returns 1 or more when found; -1 when not, or on failure, with `out` untouched.
int modem_get_net_dev(const char *bus, const char *fragment, std::span<char> out);
