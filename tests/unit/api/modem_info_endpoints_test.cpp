// One modem in detail and its cells: which keys there are, from a model whose operations are the test's own.
#include "api/modem_info_endpoints.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "platform/text.h"
#include "support/aborts.h"
#include "support/json_text.h"

namespace {

std::vector<std::string> calls;
int32_t level_to_report = 0;

// Writes the text, notes whether the buffer came zeroed, and fails: the result must not matter.
int write_text(const char *name, std::span<char> text, const char *value) {
    const bool zeroed = std::all_of(text.begin(), text.end(), [](char byte) { return byte == '\0'; });
    calls.push_back(std::string(name) + " " + std::to_string(text.size()) + (zeroed ? "" : " not zeroed"));
    text_copy(text, value);
    return -1;
}

ModemModel complete_model() {
    ModemModel model = {};
    model.ops.get_qccid = [](const ModemModel &, std::span<char> text) { return write_text("iccid", text, "89"); };
    model.ops.get_imsi = [](const ModemModel &, std::span<char> text) { return write_text("imsi", text, ""); };
    model.ops.check_simcard = [](const ModemModel &, std::span<char> text) {
        return write_text("sim_status", text, "READY");
    };
    model.ops.get_current_mode = [](const ModemModel &, std::span<char> text) {
        return write_text("current_mode", text, "AUTO");
    };
    model.ops.get_band = [](const ModemModel &, json_object *bands) {
        calls.emplace_back("band");
        vjson_add_string(bands, "EGPRS", "x");
        return -1;
    };
    model.ops.get_rssi = [](const ModemModel &, int32_t *level) {
        calls.emplace_back("signal, level was " + std::to_string(*level));
        *level = level_to_report;
        return -1;
    };
    model.ops.cell_info = [](const ModemModel &, json_object *cells) {
        calls.emplace_back("cells");
        vjson_array_add_string(cells, "a cell");
        return -1;
    };
    return model;
}

struct Reported {
    int32_t result;
    std::string reply;
};

Reported report(int32_t (*handler)(const ModemModel &, json_object *), const ModemModel &model) {
    calls.clear();
    const Json reply(json_object_new_object());
    const int32_t result = handler(model, reply.get());
    return {result, plain_json(reply.get())};
}

TEST(ModemInfo, all_keys_in_their_order_whatever_the_operations_return) {
    level_to_report = 3;
    const Reported reported = report(report_modem_info, complete_model());
    EXPECT_EQ(reported.result, 0);
    EXPECT_EQ(reported.reply, R"({"modem_info":{"iccid":"89","imsi":"","sim_status":"READY","current_mode":"AUTO",)"
                              R"("band":{"EGPRS":"x"},"signal":"\u0003"}})");
    EXPECT_EQ(calls, (std::vector<std::string>{"iccid 80", "imsi 80", "sim_status 80", "current_mode 80", "band",
                                               "signal, level was 0"}));
}

TEST(ModemInfo, a_key_whose_operation_the_model_has_not_is_left_out) {
    level_to_report = 1;
    ModemModel model = complete_model();
    model.ops.get_qccid = nullptr;
    model.ops.check_simcard = nullptr;
    model.ops.get_band = nullptr;
    EXPECT_EQ(report(report_modem_info, model).reply,
              R"({"modem_info":{"imsi":"","current_mode":"AUTO","signal":"\u0001"}})");
    model.ops = {};
    model.ops.get_rssi = complete_model().ops.get_rssi;
    EXPECT_EQ(report(report_modem_info, model).reply, R"({"modem_info":{"signal":"\u0001"}})");
}

TEST(ModemInfo, the_signal_is_a_text_whose_only_character_has_the_levels_code) {
    const std::string texts[] = {"", "\\u0001", "\\u0002", "\\u0003", "\\u0004"};
    ModemModel model = {};
    model.ops.get_rssi = complete_model().ops.get_rssi;
    for (int32_t level = 0; level <= 4; level++) {
        level_to_report = level;
        EXPECT_EQ(report(report_modem_info, model).reply, "{\"modem_info\":{\"signal\":\"" + texts[level] + "\"}}");
    }
}

TEST(ModemInfo, without_a_signal_operation_the_call_fails_though_other_keys_were_read) {
    ModemModel model = complete_model();
    model.ops.get_rssi = nullptr;
    const Reported reported = report(report_modem_info, model);
    EXPECT_EQ(reported.result, -17);
    EXPECT_EQ(reported.reply, "{}");
    EXPECT_EQ(calls.size(), 5u) << "the others are asked before";
}

TEST(ModemInfo, an_empty_band_object_is_reported) {
    level_to_report = 0;
    ModemModel model = complete_model();
    model.ops.get_band = [](const ModemModel &, json_object *) { return 0; };
    EXPECT_NE(report(report_modem_info, model).reply.find(R"("band":{},)"), std::string::npos);
}

TEST(ModemInfo, bytes_that_are_no_text_give_valid_json) {
    level_to_report = 0;
    ModemModel model = complete_model();
    model.ops = {};
    model.ops.get_rssi = complete_model().ops.get_rssi;
    model.ops.get_imsi = [](const ModemModel &, std::span<char> text) {
        std::fill_n(text.begin(), 15, '\xff');
        return 0;
    };
    std::string replaced;
    for (int i = 0; i < 15; i++) {
        replaced += "\uFFFD";
    }
    EXPECT_EQ(report(report_modem_info, model).reply,
              "{\"modem_info\":{\"imsi\":\"" + replaced + "\",\"signal\":\"\"}}");
}

TEST(Cells, what_the_operation_adds_whatever_it_returns) {
    const Reported reported = report(report_cells, complete_model());
    EXPECT_EQ(reported.result, 0);
    EXPECT_EQ(reported.reply, R"({"cells":["a cell"]})");
}

TEST(Cells, none_is_an_empty_array) {
    ModemModel model = {};
    model.ops.cell_info = [](const ModemModel &, json_object *) { return -1; };
    const Reported reported = report(report_cells, model);
    EXPECT_EQ(reported.result, 0);
    EXPECT_EQ(reported.reply, R"({"cells":[]})");
}

TEST(Cells, of_a_model_without_the_operation) {
    const Reported reported = report(report_cells, ModemModel{});
    EXPECT_EQ(reported.result, -17);
    EXPECT_EQ(reported.reply, "{}");
}

// What the request lacks is found before anything is asked; how a row is picked is the subject of handler_test.cpp.
TEST(ModemInfoRequest, the_bus_and_the_id_are_required) {
    for (const auto handler : {modem_get_modem_info, modem_get_cells}) {
        for (const char *request :
             {"{}", "[]", "null", R"({"bus":"1-1.2"})", R"({"modem_id":3})", R"({"modem_id":3,"bus":null})",
              R"({"modem_id":3,"bus":1.2})", R"({"modem_id":2,"bus":["1-1.2"]})", R"({"modem_id":-1,"bus":"1-1.2"})"}) {
            const Json parsed = parse_json(request);
            const Json reply(json_object_new_object());
            EXPECT_EQ(handler(parsed.get(), reply.get()), -251) << request;
            EXPECT_EQ(plain_json(reply.get()), "{}") << request;
        }
    }
}

TEST(ModemInfoRequest, an_id_of_no_row) {
    for (const auto handler : {modem_get_modem_info, modem_get_cells}) {
        const Json request = parse_json(R"({"modem_id":2,"bus":"1-1.2.3.4.5.6.7"})");
        const Json reply(json_object_new_object());
        EXPECT_EQ(handler(request.get(), reply.get()), -250);
        EXPECT_EQ(plain_json(reply.get()), "{}");
    }
}

TEST(ModemInfoRequest, a_bus_that_does_not_fit_aborts) {
    for (const auto handler : {modem_get_modem_info, modem_get_cells}) {
        const Json request = parse_json(R"({"modem_id":3,"bus":"1-1.2.3.4."})");
        const Json reply(json_object_new_object());
        EXPECT_ABORT(handler(request.get(), reply.get()));
    }
}

} // namespace
