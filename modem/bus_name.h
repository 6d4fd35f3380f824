// Texts made from a USB bus path such as "1-1.2" (root hub 1, port 1, then port 2).
#pragma once

#include <span>
#include <string_view>

// Copies the bus with every "-" and "." replaced by "_" ("2_1_2" for "2-1.2"). The caller zeroes the buffer first: no
// terminator is written. Aborts where the text and a terminator would not fit.
void replace_bus_name(const char *bus, std::span<char> out);

// 1 when every character of the name is a digit, ":", "-" or ".", as in the names of USB devices ("1-1.2") and USB
// interfaces ("1-1.2:1.4"); 0 otherwise. An empty name gives 1.
int is_usb_node(std::string_view name);

// Creates the modem's directory of state files, /tmp/modem.<bus>, with mode 0751. Returns mkdir's result: -1 also where
// it is there already.
int make_modem_dir(const char *bus);
