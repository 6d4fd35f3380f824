// What rpcd asks of a program in /usr/libexec/rpcd, so that each endpoint is a method of the ubus object that is called as
// the program is there: "vela_modem".
//
//   vela_modem list           prints the methods, each an object of its arguments' names with a value of their types
//   vela_modem call METHOD    reads the arguments as one JSON object from standard input, prints the reply as one
//
// A method is called as its endpoint's path without "/modem/" and with "/" as "_": "cells_get". The reply has the status
// as the member "code"; a call always has one, also where no handler came to run or where it ended the process.
#pragma once

// Whether the program was started as rpcd does, by that name.
bool is_started_by_rpcd(const char *program);

// Both take the plug-in as load_endpoints does, and return the exit status: 0 whenever an object was printed. A list
// without a plug-in prints nothing and returns 2.
int rpcd_list(const char *plugin);
int rpcd_call(const char *plugin, const char *method);
