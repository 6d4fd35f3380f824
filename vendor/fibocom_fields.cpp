// Lists of values in Fibocom replies; see fibocom_fields.h.
#include "vendor/fibocom_fields.h"

#include "platform/json.h"
#include "platform/text.h"

std::string_view fibocom_find_list(std::string_view reply, const FibocomList &list) {
    const size_t label = reply.find(list.label);
    return label != reply.npos ? text_from(reply, label + list.values) : std::string_view();
}

int fibocom_atcmd_value_parser(std::string_view text, int number, std::span<char> value) {
    for (int commas = 0; commas < number; commas++) {
        const size_t comma = text.find(',');
        if (comma == text.npos) {
            return -1;
        }
        text = text_from(text, comma + 1);
    }
    const std::string_view sent = text_before(text, text.find_first_of(",\r"));
    if (sent.empty()) {
        return -1;
    }
    text_copy_cut(value, sent);
    return 0;
}

void fibocom_add_fields(std::string_view text, std::span<const FibocomColumn> columns, json_object *object) {
    for (const FibocomColumn &column : columns) {
        char value[FIBOCOM_FIELD_SIZE] = {};
        if (fibocom_atcmd_value_parser(text, column.field, value) != 0) {
            continue;
        }
        if (column.convert != nullptr) {
            column.convert(std::span(value));
        }
        vjson_add_string(object, column.key, value);
    }
}
