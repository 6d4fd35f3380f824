// The message files of the spool; see sms_message.h.
#include "sms/sms_message.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "platform/json.h"
#include "platform/owners.h"
#include "platform/ucs2.h"

namespace {

constexpr size_t BODY_SIZE = 2048;
constexpr size_t LABEL_LENGTH = 6; // of "From: " and "Sent: "
constexpr const char *END_OF_HEADER = "\n";

// What the header says of the body.
struct BodyFormat {
    bool is_ucs2 = false;
    size_t length = 0; // of the message in characters
};

bool contains(const char *line, const char *text) {
    return strstr(line, text) != nullptr;
}

void take_sender(const char *line, json_object *message, BodyFormat * /*format*/) {
    vjson_add_string(message, "from", line + LABEL_LENGTH);
}

void take_time(const char *line, json_object *message, BodyFormat * /*format*/) {
    vjson_add_string(message, "time", line + LABEL_LENGTH);
}

void take_type(const char *line, json_object *message, BodyFormat * /*format*/) {
    // "international" holds "national": the longer word is asked for first.
    for (const char *type : {"international", "national"}) {
        if (contains(line, type)) {
            vjson_add_string(message, "type", type);
            return;
        }
    }
    vjson_add_string(message, "type", "unknown");
}

void take_alphabet(const char *line, json_object * /*message*/, BodyFormat *format) {
    format->is_ucs2 = format->is_ucs2 || contains(line, "UCS2");
}

// The number counts only where the line begins with the label; one below zero is no length.
void take_length(const char *line, json_object * /*message*/, BodyFormat *format) {
    static constexpr char LABEL[] = "Length:";
    static constexpr size_t LENGTH = sizeof LABEL - 1;
    if (strncmp(line, LABEL, LENGTH) != 0) {
        return;
    }
    char *end = nullptr;
    const long number = strtol(line + LENGTH, &end, 10);
    if (end != line + LENGTH) {
        format->length = static_cast<size_t>(std::clamp(number, 0L, static_cast<long>(BODY_SIZE)));
    }
}

struct HeaderLine {
    const char *contains;
    void (*take)(const char *line, json_object *message, BodyFormat *format);
};

// The first row whose text the line contains, wherever in it, decides what the line is; other lines are not read.
constexpr HeaderLine HEADER_LINES[] = {
    {"From: ", take_sender},       // gives "from"
    {"Sent: ", take_time},         // gives "time"
    {"From_TOA: ", take_type},     // gives "type"
    {"Alphabet: ", take_alphabet}, // how the body is read
    {"Length: ", take_length},     // how much of a UCS-2 body is read
};

void take_header_line(const char *line, json_object *message, BodyFormat *format) {
    for (const HeaderLine &row : HEADER_LINES) {
        if (contains(line, row.contains)) {
            row.take(line, message, format);
            return;
        }
    }
}

// Reads up to the empty line and past it, or to the end of the file.
BodyFormat read_header(FILE *file, json_object *message) {
    BodyFormat format;
    Allocated<char> line;
    size_t size = 0;
    for (;;) {
        char *text = line.release();
        const ssize_t length = getline(&text, &size, file);
        line.reset(text);
        if (length < 0 || strcmp(text, END_OF_HEADER) == 0) {
            return format;
        }
        take_header_line(text, message, &format);
    }
}

void read_body(FILE *file, const BodyFormat &format, json_object *message) {
    // A character of UCS-2 is two bytes in the file and three at most in UTF-8: three times the length is enough for
    // both, and what that takes in behind the body are the NULs of the buffer.
    static constexpr size_t BYTES_PER_CHARACTER = 3;
    char body[BODY_SIZE] = {};
    char converted[BODY_SIZE + 1] = {};
    const size_t got = fread(body, 1, sizeof body, file);
    if (format.is_ucs2) {
        const size_t most = format.length * BYTES_PER_CHARACTER;
        ucs2_to_utf8(body, most, converted, most);
    } else {
        memcpy(converted, body, got);
    }
    vjson_add_string(message, "body", converted);
}

} // namespace

void read_sms_message(FILE *file, json_object *message) {
    const BodyFormat format = read_header(file, message);
    read_body(file, format, message);
}
