// What hangs on a modem's network interface besides itself: its place in mwan3 (health tracking, load balancing), a
// forced IP TTL, and its route metric.
//
// None of these reports an error. A path that does not fit its buffer aborts before anything is written.
#pragma once

#include "modem/model.h"

// Makes the interface known to mwan3. A new one gets a section with its tracking addresses, a member section, and a
// place in the default policy; an old one is switched on or off at most. `visibility` comes from the page that sets the
// modem up: a text that begins with "Visible" switches mwan3's tracking off. Null is no wish: a section that is on
// stays on, one that is off is switched on. mwan3 is restarted in the background where anything changed.
void set_mwan3(const char *ifname, const char *visibility);

// Writes the modem's TTL (model.ttl) for the network device into package velamodem, where the firewall scripts look for
// it; 0 takes the section away. Returns 0.
int modem_set_ttl(const ModemModel &model, const char *device);

// Gives the interface the route metric of its bus on the halvor, whose three modems would otherwise tie; does nothing
// on any other board. Returns 0.
int change_metric_value(const char *ifname, const char *bus);
