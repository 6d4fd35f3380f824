// What rpcd asks of a program in /usr/libexec/rpcd, so that each endpoint is a method of the ubus object that is called
// as the program is there: "vela_modem".
//
//   vela_modem list           prints the methods, each an object of its arguments' names with a value of their types
//   vela_modem call METHOD    reads the arguments as one JSON object from standard input, prints the reply as one
//
// A method is called as its endpoint's path without "/modem/" and with "/" as "_": "cells_get". The reply has the
// status as the member "code"; a call always has one, also where no handler came to run or where it ended the process.
#pragma once

#include <span>

// Whether the program was started as rpcd does, by that name.
bool is_started_by_rpcd(const char *program);

// Starts this program anew by its own name, with "rpcd" before the words. Connecting and disconnecting kill whatever is
// called vela_modem, to end connection attempts that are going on; a call would kill itself. Returns where the program
// cannot be started, or where there are more words than rpcd has.
void continue_by_own_name(std::span<char *const> words);

// Both take the plug-in as load_endpoints does, and return the exit status: 0 whenever an object was printed. A list
// without a plug-in or memory prints nothing and returns 2.
int rpcd_list(const char *plugin);
int rpcd_call(const char *plugin, const char *method);
