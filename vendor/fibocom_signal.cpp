// Signal of Fibocom modems; see fibocom_signal.h.
#include "vendor/fibocom_signal.h"

#include "modem/at_query.h"
#include "modem/signal_grades.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr size_t REPLY_SIZE = 1024;

constexpr FibocomList CESQ = {"+CESQ:", 7};

constexpr int RSRQ_FIELD = 4;
constexpr int RSRP_FIELD = 5;
constexpr int CSQ_FIELD = 0;

constexpr FibocomColumn CESQ_COLUMNS[] = {
    {0, "rxlev"}, {1, "ber"}, {2, "rscp"}, {3, "ecno"}, {RSRQ_FIELD, "rsrq"}, {RSRP_FIELD, "rsrp"},
};

// The indexes are graded in this dialect's own way.
//                                       4   3   2
constexpr GradeLimits RSRP_INDEX = {80, 60, 45};
constexpr GradeLimits RSRQ_INDEX = {28, 20, 10};
constexpr GradeLimits CSQ_INDEX = {20, 15, 10};

int32_t grade(std::string_view list, int field, const GradeLimits &limits) {
    char value[FIBOCOM_FIELD_SIZE] = {};
    fibocom_atcmd_value_parser(list, field, value);
    return signal_grade(limits, text_to_int(value));
}

} // namespace

void fibocom_rssi_of_csq(std::span<char> value) {
    const int64_t csq = text_to_int(value.data());
    text_format(value, "%lld", static_cast<long long>(2 * csq - 113));
}

void read_fibocom_signal(std::string_view cesq, std::string_view csq, json_object *signal, int32_t *level) {
    const std::string_view indexes = fibocom_find_list(cesq, CESQ);
    fibocom_add_fields(indexes, CESQ_COLUMNS, signal);
    const std::string_view strength = fibocom_find_list(csq, FIBOCOM_CSQ);
    if (strength.data() != nullptr) {
        vjson_add_string(signal, "rssi", "");
        fibocom_add_fields(strength, FIBOCOM_RSSI_COLUMNS, signal);
    }
    *level = (grade(indexes, RSRP_FIELD, RSRP_INDEX) + grade(indexes, RSRQ_FIELD, RSRQ_INDEX) +
              grade(strength, CSQ_FIELD, CSQ_INDEX)) /
             3;
}

int fibocom_signal_info(const ModemModel &model, json_object *signals, int32_t *level) {
    const Json signal(json_object_new_object());
    vjson_array_add_object(signals, json_object_get(signal.get()));
    char cesq[REPLY_SIZE] = {};
    if (at_query_ok(model, "AT+CESQ", cesq) != 0) {
        text_clear(cesq);
    }
    char csq[REPLY_SIZE] = {};
    if (at_query_ok(model, "AT+CSQ?", csq) != 0) {
        text_clear(csq);
    }
    read_fibocom_signal(cesq, csq, signal.get(), level);
    return 0;
}
