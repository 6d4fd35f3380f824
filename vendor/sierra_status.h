// The status block of Sierra Wireless modems, their reply to AT!GSTATUS? ("LTE band:      B3"): labels that end in a
// colon, blanks, the value; two columns, which tabs separate. Reading one value by its label. No I/O here.
//
// For the files of this dialect only, vendor/sierra_*.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr const char *SIERRA_STATUS_QUERY = "AT!GSTATUS?";

// A value that is kept as text has at most this many characters; what follows them is left out.
constexpr size_t SIERRA_LONGEST_VALUE = 100;

// The number behind the first occurrence of the label, as scanf's "%d" reads it: blanks, tabs and line ends are
// skipped, a sign may follow, and the first character that is no digit ends it ("-14.0" is -14). A number beyond 32
// bits becomes INT32_MIN or INT32_MAX. Returns 0, or -1 with `value` untouched where the label or a number behind it is
// missing; a later occurrence is not tried.
int sierra_read_int(const char *text, const char *label, int32_t *value);

// The text behind occurrence `occurrence` (from 0, left to right) of the label: up to a tab, a carriage return, a line
// feed or SIERRA_LONGEST_VALUE characters, without the blanks around it. `value` holds one byte more than that; a
// smaller one aborts where the text does not fit. Returns 0, also for a text of nothing but blanks; -1 with `value`
// untouched where there is no such occurrence, or where not even a blank follows it.
int sierra_read_label(const char *text, const char *label, size_t occurrence, std::span<char> value);
