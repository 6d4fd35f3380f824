// The exported endpoint table, against the list written out by hand.
#include "api/endpoints.h"

#include <iterator>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "api/at_endpoint.h"
#include "api/brief_info_endpoints.h"
#include "api/info_endpoint.h"
#include "api/modem_info_endpoints.h"
#include "support/json_text.h"

namespace {

constexpr struct {
    const char *path;
    const char *method;
} ROWS[] = {
    {"/modem/info", "get"},
    {"/modem/brief_info", "get"},
    {"/modem/app/brief_info", "get"},
    {"/modem/auto", "post"},
    {"/modem/get", "get"},
    {"/modem/set", "post"},
    {"/modem/enable", "post"},
    {"/modem/reset", "post"},
    {"/modem/at", "post"},
    {"/modem/sms/list", "get"},
    {"/modem/sms/delete", "post"},
    {"/modem/sms/delete_all", "post"},
    {"/modem/sms/send", "post"},
    {"/modem/sms/status", "post"},
    {"/modem/sms/code", "post"},
    {"/modem/cells/get", "post"},
    {"/modem/sim/switch", "post"},
    {"/modem/modem_info/get", "post"},
    {"/modem/sms/forward", "post"},
    {"/modem/sms/flist", "get"},
    {"/modem/sms/account", "post"},
    {"/modem/upgrade", "post"},
    {"/modem/upgrade_status", "post"},
};

const ApiEntity *table() {
    uint32_t count = 0;
    return get_api_entity(&count);
}

// The layout is an interface: three pointers and nothing else.
static_assert(sizeof(ApiEntity) == 3 * sizeof(void *));
static_assert(offsetof(ApiEntity, path) == 0);
static_assert(offsetof(ApiEntity, method) == sizeof(void *));
static_assert(offsetof(ApiEntity, handler) == 2 * sizeof(void *));

TEST(Endpoints, the_count_is_23_and_the_first_is_info) {
    uint32_t count = 0;
    const ApiEntity *first = get_api_entity(&count);
    EXPECT_EQ(count, 23u);
    EXPECT_EQ(API_ENTITY_COUNT, 23u);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first->path, "/modem/info");
    EXPECT_STREQ(first->method, "get");
}

TEST(Endpoints, may_be_asked_for_any_number_of_times) {
    uint32_t count = 0;
    const ApiEntity *first = get_api_entity(&count);
    for (int i = 0; i < 3; i++) {
        count = 0xFFFFFFFF;
        EXPECT_EQ(get_api_entity(&count), first);
        EXPECT_EQ(count, 23u);
    }
}

TEST(Endpoints, paths_and_methods_as_they_are_written_here) {
    ASSERT_EQ(std::size(ROWS), API_ENTITY_COUNT);
    for (size_t i = 0; i < std::size(ROWS); i++) {
        EXPECT_STREQ(table()[i].path, ROWS[i].path);
        EXPECT_STREQ(table()[i].method, ROWS[i].method) << ROWS[i].path;
        EXPECT_NE(table()[i].handler, nullptr) << ROWS[i].path;
    }
}

TEST(Endpoints, no_path_and_method_twice) {
    std::set<std::pair<std::string, std::string>> seen;
    for (uint32_t i = 0; i < API_ENTITY_COUNT; i++) {
        EXPECT_TRUE(seen.insert({table()[i].path, table()[i].method}).second) << table()[i].path;
    }
}

TEST(Endpoints, the_at_command_has_its_handler) {
    EXPECT_EQ(table()[8].handler, execute_modem_at);
}

TEST(Endpoints, the_information_endpoints_have_their_handlers) {
    EXPECT_EQ(table()[0].handler, get_modem_info);
    EXPECT_EQ(table()[1].handler, get_modem_brief_info);
    EXPECT_EQ(table()[2].handler, get_modem_app_brief_info);
    EXPECT_EQ(table()[15].handler, modem_get_cells);
    EXPECT_EQ(table()[17].handler, modem_get_modem_info);
}

} // namespace
