// How a request names its modem.
#include "api/handler.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/json_text.h"

namespace {

struct Picked {
    int32_t result;
    ModemModel model;
};

Picked pick(const std::string &request_text) {
    const Json request = parse_json(request_text);
    Picked picked = {};
    picked.result = pick_modem(request.get(), &picked.model);
    return picked;
}

TEST(PickModem, the_row_of_the_id) {
    const Picked picked = pick(R"({"modem_id":3})");
    EXPECT_EQ(picked.result, 0);
    EXPECT_STREQ(picked.model.name, "EC25");
    EXPECT_STREQ(picked.model.ifname, "modem");
    EXPECT_STREQ(picked.model.bus, "");
}

TEST(PickModem, with_the_run_time_fields_for_the_bus) {
    const Picked picked = pick(R"({"modem_id":40,"bus":"2-1.2"})");
    EXPECT_EQ(picked.result, 0);
    EXPECT_STREQ(picked.model.name, "NL678E");
    EXPECT_STREQ(picked.model.ifname, "modem_2_1_2");
    EXPECT_STREQ(picked.model.bus, "2-1.2");
}

TEST(PickModem, every_model_by_its_id) {
    for (const ModemModel *row = modem_head; row != nullptr; row = row->next) {
        const Picked picked = pick("{\"modem_id\":" + std::to_string(row->modem_id) + "}");
        EXPECT_EQ(picked.result, 0);
        EXPECT_STREQ(picked.model.name, row->name);
    }
}

TEST(PickModem, the_row_itself_stays_as_it_is) {
    pick(R"({"modem_id":3,"bus":"1-1.2"})");
    EXPECT_STREQ(modem_list_find_id(modem_head, 3)->bus, "");
    EXPECT_STREQ(modem_list_find_id(modem_head, 3)->ifname, "modem");
}

TEST(PickModem, id_0_is_a_model) {
    EXPECT_STREQ(pick(R"({"modem_id":0})").model.name, "EC20");
}

TEST(PickModem, an_id_that_names_no_row) {
    for (const char *request :
         {R"({"modem_id":2})", R"({"modem_id":2,"bus":"1-1.2"})", R"({"modem_id":-2})", R"({"modem_id":254})",
          R"({"modem_id":256})", R"({"modem_id":2147483647})", R"({"modem_id":-2147483648})",
          R"({"modem_id":99999999999999999999})", R"({"modem_id":-99999999999999999999})"}) {
        EXPECT_EQ(pick(request).result, -250) << request;
    }
    EXPECT_EQ(API_NO_SUCH_MODEM, -250);
}

TEST(PickModem, a_missing_id_and_minus_1_are_a_missing_parameter) {
    for (const char *request : {"{}", R"({"bus":"1-1.2"})", R"({"modem_id":-1})", R"({"modem_id":-1,"bus":"1-1.2"})",
                                R"({"Modem_id":3})", R"({"modem":{"modem_id":3}})"}) {
        EXPECT_EQ(pick(request).result, -251) << request;
    }
    EXPECT_EQ(API_PARAMETER_MISSING, -251);
}

TEST(PickModem, a_request_that_is_no_object_lacks_everything) {
    for (const char *request : {"[]", R"(["modem_id",3])", "\"modem_id\"", "3", "true", "null"}) {
        EXPECT_EQ(pick(request).result, -251) << request;
    }
}

TEST(PickModem, a_number_in_a_text_counts) {
    EXPECT_STREQ(pick(R"({"modem_id":"3"})").model.name, "EC25");
    EXPECT_EQ(pick(R"({"modem_id":"2"})").result, -250);
    EXPECT_EQ(pick(R"({"modem_id":"-1"})").result, -251);
}

// json-c reads these as 0, which is a model.
TEST(PickModem, an_id_of_another_type_is_what_json_c_makes_of_it) {
    for (const char *request : {R"({"modem_id":[3]})", R"({"modem_id":{"id":3}})", R"({"modem_id":"EC25"})",
                                R"({"modem_id":false})", R"({"modem_id":null})"}) {
        const Picked picked = pick(request);
        EXPECT_EQ(picked.result, 0) << request;
        EXPECT_EQ(picked.model.modem_id, 0) << request;
    }
    EXPECT_EQ(pick(R"({"modem_id":3.9})").model.modem_id, 3);
}

TEST(PickModem, a_bus_that_is_no_text_is_none) {
    for (const char *request : {R"({"modem_id":3,"bus":null})", R"({"modem_id":3,"bus":1.2})",
                                R"({"modem_id":3,"bus":["1-1.2"]})", R"({"modem_id":3,"bus":{"bus":"1-1.2"}})"}) {
        const Picked picked = pick(request);
        EXPECT_EQ(picked.result, 0) << request;
        EXPECT_STREQ(picked.model.bus, "") << request;
        EXPECT_STREQ(picked.model.ifname, "modem") << request;
    }
}

TEST(PickModem, the_longest_bus_that_fits) {
    EXPECT_STREQ(pick(R"({"modem_id":3,"bus":"1-1.2.3.4"})").model.ifname, "modem_1_1_2_3_4");
}

TEST(PickModem, a_bus_that_does_not_fit_aborts) {
    EXPECT_ABORT(pick(R"({"modem_id":3,"bus":"1-1.2.3.4."})"));
    EXPECT_ABORT(pick("{\"modem_id\":3,\"bus\":\"" + std::string(100000, '1') + "\"}"));
}

TEST(PickModem, a_bus_that_does_not_fit_is_no_matter_where_there_is_no_such_modem) {
    EXPECT_EQ(pick(R"({"modem_id":2,"bus":"1-1.2.3.4.5.6.7"})").result, -250);
    EXPECT_EQ(pick(R"({"bus":"1-1.2.3.4.5.6.7"})").result, -251);
}

// --- With the bus required ---

Picked pick_on_bus(const std::string &request_text) {
    const Json request = parse_json(request_text);
    Picked picked = {};
    picked.result = pick_modem_on_bus(request.get(), &picked.model);
    return picked;
}

TEST(PickModemOnBus, the_row_of_the_id_for_the_bus) {
    const Picked picked = pick_on_bus(R"({"bus":"2-1.2","modem_id":3})");
    EXPECT_EQ(picked.result, 0);
    EXPECT_STREQ(picked.model.name, "EC25");
    EXPECT_STREQ(picked.model.bus, "2-1.2");
    EXPECT_STREQ(picked.model.ifname, "modem_2_1_2");
}

TEST(PickModemOnBus, a_bus_that_is_missing_or_no_text_is_a_missing_parameter) {
    for (const char *request :
         {R"({"modem_id":3})", R"({"modem_id":3,"Bus":"1-1.2"})", R"({"modem_id":3,"bus":null})",
          R"({"modem_id":3,"bus":1.2})", R"({"modem_id":3,"bus":["1-1.2"]})", R"({"modem_id":3,"bus":true})"}) {
        EXPECT_EQ(pick_on_bus(request).result, -251) << request;
    }
}

TEST(PickModemOnBus, a_missing_bus_is_told_before_a_model_that_does_not_exist) {
    EXPECT_EQ(pick_on_bus(R"({"modem_id":2})").result, -251);
    EXPECT_EQ(pick_on_bus(R"({"modem_id":2,"bus":"1-1.2"})").result, -250);
}

TEST(PickModemOnBus, a_missing_id_is_a_missing_parameter) {
    EXPECT_EQ(pick_on_bus(R"({"bus":"1-1.2"})").result, -251);
    EXPECT_EQ(pick_on_bus(R"({"bus":"1-1.2","modem_id":-1})").result, -251);
}

TEST(PickModemOnBus, an_empty_bus_is_there) {
    const Picked picked = pick_on_bus(R"({"bus":"","modem_id":3})");
    EXPECT_EQ(picked.result, 0);
    EXPECT_STREQ(picked.model.ifname, "modem_");
    EXPECT_STREQ(picked.model.bus, "");
}

TEST(Bus, plain_ones_may_stand_in_a_command_and_a_path) {
    for (const char *bus : {"", "1-1.2", "2-1.2", "1-1.2:1.0", "foo"}) {
        EXPECT_TRUE(is_plain_bus(bus)) << bus;
    }
    for (const char *bus : {"1-1.2;reboot", " /", "1-1.2/../../etc", "/", "$(x)", "1-1.2\n"}) {
        EXPECT_FALSE(is_plain_bus(bus)) << bus;
    }
}

} // namespace
