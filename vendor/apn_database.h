// Which access point name a SIM needs: a short table of SIMs that are known by the beginning of their IMSI, and the
// router's APN database, a JSON text in a script file of the web interface.
//
// The database is an object; its "apns" is an object, whose "apn" is an array of entries. An entry is an object of
// texts: "-mcc" and "-mnc" (two or three digits) say whose it is, "-apn", "-type", "-user" and "-password" what to
// connect with. The leading minus signs are part of the names. Other keys are kept and do not matter.
#pragma once

#include <json-c/json.h>

#include "modem/model.h"

// The loaded database, null while there is none. Who loads it releases it.
extern json_object *isp_object;

// Loads a database file: 24 bytes of script, whatever they say, and then the JSON text; what follows it does not
// matter. What `*database` holds, an object or null, is released and becomes the parsed object, or null where the text
// does not parse. Returns 0; -1, with `*database` untouched, where the file cannot be opened or read or is shorter than
// 24 bytes. A null `file_name` aborts.
int parse_apn_database(const char *file_name, json_object **database);

// Appends the database's entries whose codes are exactly these to the array; they are shared with the database. Returns
// their number, -1 where the database, or its list of entries, is not there.
int find_apns(json_object *database, const char *mcc, const char *mnc, json_object *entries);

// The APN that a SIM with this IMSI is known to need; null where it is none of those.
const char *custom_apn(const char *imsi);

// The APN that the modem's SIM is known to need. Appends an entry with "-mcc", "-mnc" (always three characters of the
// IMSI) and "-apn" to `entries`, and the APN itself to `names`; either may be null. Returns 0; -1 where the IMSI cannot
// be had or the SIM is none of those.
int get_custom_apns(const ModemModel &model, json_object *entries, json_object *names);
