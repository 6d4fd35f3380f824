// Lines and fields of Quectel replies; see quectel_fields.h.
#include "vendor/quectel_fields.h"

#include <cstring>
#include <string_view>

#include "platform/json.h"
#include "platform/text.h"

const char *QuectelLines::next() {
    const char *found = strstr(from_, line_.tag);
    if (found == nullptr) {
        return nullptr;
    }
    // A tag at the very end of a reply that was cut is nearer to the end than a step.
    from_ = found + strnlen(found, line_.step);
    return found + line_.record;
}

int quectel_get_field(const char *record, int number, std::span<char> field) {
    const bool quoted = *record == '"';
    const char *start = quoted ? record + 1 : record;
    int commas = 0;
    for (const char *at = start; *at != '\0' && *at != '\n'; at++) {
        const bool ends_record = *at == '\r';
        if (*at != ',' && !ends_record) {
            continue;
        }
        if (commas == number && (!ends_record || commas > 0 || quoted)) {
            std::string_view value(start, static_cast<size_t>(at - start));
            if (value.ends_with('"')) {
                value.remove_suffix(1);
            }
            text_copy_cut(field, value);
            return 0;
        }
        if (ends_record) {
            return -1;
        }
        commas++;
        // The quote is stepped over by the walk as well, as it ends nothing.
        start = at[1] == '"' ? at + 2 : at + 1;
    }
    return -1;
}

void quectel_add_fields(const char *record, std::span<const QuectelColumn> columns, json_object *object) {
    for (const QuectelColumn &column : columns) {
        char value[QUECTEL_FIELD_SIZE] = {};
        if (quectel_get_field(record, column.field, value) == 0) {
            vjson_add_string(object, column.key, column.word != nullptr ? column.word(value) : value);
        }
    }
}
