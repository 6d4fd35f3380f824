// How Quectel modems write a list of values, "+QENG: "servingcell","NOCONN","LTE",...": finding the lines of a reply,
// taking one field of a line, and putting fields into JSON objects. No I/O here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <json-c/json.h>

// Size of the buffers for one field of a line.
constexpr size_t QUECTEL_FIELD_SIZE = 100;

// A kind of line: the tag by which it is found, where behind the tag's start its record begins (within the tag), and
// how far behind the tag's start the search for the next line goes on.
struct QuectelLine {
    char tag[17];
    uint8_t record;
    uint8_t step;
};

// What follows the word is free. The echo of the command has no blank before the quote, so it is no such line.
inline constexpr QuectelLine SERVING_CELL_LINE = {": \"servingcell", 2, 12};

// Walks the lines of one kind in a reply that outlives it.
class QuectelLines {
public:
    QuectelLines(const char *reply, const QuectelLine &line) : line_(line), from_(reply) {}

    // The record of the next line, null after the last. A record goes on to the end of the reply; that its line ends
    // earlier is for quectel_get_field to see.
    const char *next();

private:
    QuectelLine line_;
    const char *from_;
};

// Copies field `number` (from 0) of a record into `field`; 0, or -1 with `field` untouched where there is none.
//
// Commas separate fields, within quotes too. A quote directly before a field and one directly after it are no part of
// it. A carriage return ends the last field, provided that the record has a comma or begins with a quote, so that a
// line of plain text is no record. A line feed or the end of the reply ends no field: such a reply was cut.
// A value longer than the buffer is cut to it.
int quectel_get_field(const char *record, int number, std::span<char> field);

// A field that becomes a member of an object: the member is its text, or, where `word` is given, what that makes of it.
struct QuectelColumn {
    uint8_t field;
    char key[13];
    const char *(*word)(const char *value) = nullptr;
};

// Adds a string member for each column whose field is in the record, in the columns' order.
void quectel_add_fields(const char *record, std::span<const QuectelColumn> columns, json_object *object);
