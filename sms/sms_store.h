// Received text messages, as the SMS daemon of the router leaves them in its spool: one file per message.
//
// The daemon takes them from the modem and puts them into the incoming directory; this program lists, counts, marks and
// deletes the files. A message is read exactly when its file lies in the storage directory, so marking one read moves
// its file; nothing else remembers it. A file's name is that of the modem device it came from, a dot and a unique
// suffix, and is the message's identifier. All modems share the one spool.
//
// The daemon goes on writing meanwhile, and nobody locks: a file that goes away is one that is not there. A path that
// does not fit SMS_PATH_SIZE ends the process with abort().
#pragma once

#include <json-c/json.h>

// Room for the path of a message file: 75 characters are left for a name in the incoming directory.
constexpr int SMS_PATH_SIZE = 100;

// Appends an object for each message of the modem device VMS99 to the array, in directory-reading order, the unread
// ones first: what read_sms_message() finds, then "status" ("unread" or "read") and "name" (the file's). What cannot be
// opened or is no file is left out. Those of the device VMS98, the modem on bus 1-1.3, are counted by
// modem_check_new_sms but not listed; clients rely on it. Returns 0; without an incoming directory nothing is listed.
int modem_list_sms(json_object *messages);

// Number of unread messages of the modem on a bus; 0 without an incoming directory.
int modem_check_new_sms(const char *bus);

// Deletes a message by its file name, unread or read. Returns 0, or -1 when there is none or it cannot be deleted.
int modem_del_sms(const char *file_name);

// Deletes all messages of all modems. Returns 0; -1, with nothing deleted, when one of the two directories is missing.
int modem_del_all_sms();

// Marks an unread message as read. Returns 0, also when there is no such message.
int modem_sms_replace_status(const char *file_name);
