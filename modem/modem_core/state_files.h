// The small files that are kept about one modem in its state directory, /tmp/modem.<bus>.
//
// A file is known by the bus and its name ("1-1.2", "modem-imei"). A path of 40 characters or more aborts. The content
// is whatever was left there: readers must expect an empty file, a long one, and any byte.
#pragma once

#include <span>
#include <string_view>

constexpr int STATE_FILE_ABSENT = -2;
constexpr int STATE_FILE_UNREADABLE = -1; // it is there and cannot be opened

// Reads at most out.size() bytes of the file and adds no NUL. Returns how many, STATE_FILE_ABSENT or
// STATE_FILE_UNREADABLE. What can be opened but not read, such as a directory, is like an empty file.
int state_file_read(const char *bus, const char *name, std::span<char> out);

// Makes `content` the whole content of the file; the state directory is created where it is missing. A reader at the
// same time finds either no file (or the one from before) or all of the new one. Returns -1 when no file can be created
// there, else 0; where the medium is full that leaves no file, so that it is written another time.
int state_file_write(const char *bus, const char *name, std::string_view content);

// Deletes the file; also a directory in its place, as long as that is empty.
void state_file_remove(const char *bus, const char *name);
