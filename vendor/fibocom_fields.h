// How Fibocom modems write a list of values, "+CESQ: 99,99,255,255,23,61": finding a list in a reply, taking one value
// of it, and putting values into JSON objects. No I/O here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <json-c/json.h>

// Size of the buffers for one value of a list; a longer one is cut to 15 characters.
constexpr size_t FIBOCOM_FIELD_SIZE = 16;

// A kind of list: the label by which it is found, and how far behind the label's start its values begin, whatever
// stands between the two.
struct FibocomList {
    char label[19];
    uint8_t values;
};

// The values of the first list of that kind and all that follows them in the reply, which outlives them. Empty where
// the reply ends before them; with a null data() where it has no such list.
std::string_view fibocom_find_list(std::string_view reply, const FibocomList &list);

// Copies value `number` (from 0) of a list into `value`, cut to it. Returns 0, or -1 with `value` untouched where it is
// empty or the text ends before it.
//
// Commas separate values, and nothing else does: a line that has fewer goes on behind its end, up to the next comma of
// the text. A value ends at a comma, a carriage return or the end of the text, so where lines end in a line feed alone
// that is part of it.
int fibocom_atcmd_value_parser(std::string_view text, int number, std::span<char> value);

// A value that becomes a member of an object: the member is its text, or, where `convert` is given, what that makes of
// the text in its buffer of FIBOCOM_FIELD_SIZE.
struct FibocomColumn {
    uint8_t field;
    char key[15];
    void (*convert)(std::span<char> value) = nullptr;
};

// Adds a string member for each column whose value is there and not empty, in the columns' order. A member of that name
// is replaced.
void fibocom_add_fields(std::string_view text, std::span<const FibocomColumn> columns, json_object *object);
