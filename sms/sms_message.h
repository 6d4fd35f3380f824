// One received message as the SMS daemon left it in its spool: header lines, an empty line, the body.
//
// The daemon writes the body as it came: one byte for a character in the usual alphabets, two in UCS-2. A header may be
// short of any line, or there may be none at all; what is not there is not reported.
#pragma once

#include <cstdio>

#include <json-c/json.h>

// Reads a message from the start of `file` to its end and adds to `message`, all as texts, in the order of their lines
// "from", "time" (each with its line's own line feed, which clients know) and "type" ("international", "national" or
// "unknown"), each only where the header has its line, and then "body", always. The body ends at the first NUL; of a
// longer one than 2048 bytes, in the file or after the conversion to UTF-8, the rest is dropped.
void read_sms_message(FILE *file, json_object *message);
