// Bringing a modem's data interface up and taking it down: netifd does it, the interface enters or leaves the second
// zone of the firewall (the one to the outside), and the state is waited for.
//
// Both are slots of a model. They abort before they do anything where a command with the interface's name in it has
// more than 99 characters (the name of a model's interface has at most 15), and later on where the one that sets the
// zone's list has more than 1023: a list that is cut would take other interfaces out of the firewall.
#pragma once

// The serial_connect slot: has netifd read its configuration again and bring the interface up, puts it into the zone
// where it is not there yet, and then asks for its state every second, `wait_count` times. Returns IFACE_UP as soon as
// it is up, else its state after the last time.
int modem_serial_connect(int wait_count, const char *ifname);

// The disconnect slot: disables the interface in the configuration, has netifd read that, and asks for its state every
// 100 ms, `wait_count` times. Once it is down it is taken out of the zone, and the result is IFACE_DOWN. Where it never
// is, the zone is left alone, and the result is its state after the last time, which may be IFACE_DOWN, too.
int modem_disconnect(int wait_count, const char *ifname);
