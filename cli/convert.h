// The command "convert": the UCS-2 text of a file, printed as UTF-8.
#pragma once

#include <span>

// Arguments: a file, and a count of characters. Prints what the file's first 2048 bytes hold as UTF-8, converting at
// most three bytes for each of the count. Nothing is printed where the file cannot be read or an argument is missing.
// Returns the exit status.
int convert_file(std::span<char *> arguments);
