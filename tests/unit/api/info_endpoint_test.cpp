// What /modem/info decides by itself: which DNS servers are listed, and when the Wi-Fi channel needs no hint.
#include "api/info_endpoint.h"

#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/json_text.h"

namespace {

std::string servers_of(const std::string &list) {
    const Json servers(json_object_new_array());
    add_further_dns_servers(servers.get(), list);
    return plain_json(servers.get());
}

TEST(DnsServers, of_three_the_second_and_the_third_are_listed) {
    EXPECT_EQ(servers_of("192.0.2.1,192.0.2.2,192.0.2.3"), R"(["192.0.2.2","192.0.2.3"])");
}

TEST(DnsServers, the_first_is_skipped_even_when_it_is_the_only_one) {
    EXPECT_EQ(servers_of("192.0.2.1"), "[]");
    EXPECT_EQ(servers_of("192.0.2.1 192.0.2.2"), "[]");
    EXPECT_EQ(servers_of(""), "[]");
}

TEST(DnsServers, only_commas_part_and_nothing_is_trimmed) {
    EXPECT_EQ(servers_of("a, b ;c\t,d e"), R"([" b ;c\t","d e"])");
}

TEST(DnsServers, empty_fields_are_listed_as_empty_texts) {
    EXPECT_EQ(servers_of(","), R"([""])");
    EXPECT_EQ(servers_of(",,"), R"(["",""])");
    EXPECT_EQ(servers_of("a,,b,"), R"(["","b",""])");
    EXPECT_EQ(servers_of(",b"), R"(["b"])");
}

TEST(DnsServers, any_byte_gives_valid_json) {
    EXPECT_EQ(servers_of("a,\xff\xfe,\x01\"\\"), "[\"\uFFFD\uFFFD\",\"\\u0001\\\"\\\\\"]");
}

TEST(DnsServers, the_longest_list) {
    const std::string commas(DNS_LIST_SIZE - 1, ',');
    const Json servers(json_object_new_array());
    add_further_dns_servers(servers.get(), commas);
    EXPECT_EQ(json_object_array_length(servers.get()), commas.size());
    EXPECT_EQ(servers_of("," + std::string(255, 'x')), "[\"" + std::string(255, 'x') + "\"]");
    EXPECT_ABORT(servers_of("," + std::string(256, 'x')));
}

TEST(DnsServers, are_appended_behind_what_is_there) {
    const Json servers = parse_json(R"(["x"])");
    add_further_dns_servers(servers.get(), "a,b");
    EXPECT_EQ(plain_json(servers.get()), R"(["x","b"])");
}

// --- The hint ---

using Flags = std::array<bool, MOST_MODEMS>;

TEST(SwitchedOff, one_modem_is_when_the_first_position_is_disabled) {
    EXPECT_TRUE(modems_are_switched_off(1, Flags{true, false, false}));
    EXPECT_FALSE(modems_are_switched_off(1, Flags{false, false, false}));
}

TEST(SwitchedOff, one_modem_at_the_second_or_third_position_is_not_though_it_is_disabled) {
    EXPECT_FALSE(modems_are_switched_off(1, Flags{false, true, false}));
    EXPECT_FALSE(modems_are_switched_off(1, Flags{false, false, true}));
    EXPECT_FALSE(modems_are_switched_off(1, Flags{false, true, true}));
}

TEST(SwitchedOff, two_modems_are_when_the_first_two_positions_are_disabled) {
    EXPECT_TRUE(modems_are_switched_off(2, Flags{true, true, false}));
    EXPECT_FALSE(modems_are_switched_off(2, Flags{true, false, false}));
    EXPECT_FALSE(modems_are_switched_off(2, Flags{false, true, false}));
}

TEST(SwitchedOff, two_modems_with_a_gap_between_or_before_them_are_not_though_both_are_disabled) {
    EXPECT_FALSE(modems_are_switched_off(2, Flags{true, false, true}));
    EXPECT_FALSE(modems_are_switched_off(2, Flags{false, true, true}));
}

TEST(SwitchedOff, three_modems_are_when_all_are_disabled) {
    EXPECT_TRUE(modems_are_switched_off(3, Flags{true, true, true}));
    EXPECT_FALSE(modems_are_switched_off(3, Flags{true, true, false}));
    EXPECT_FALSE(modems_are_switched_off(3, Flags{true, false, true}));
    EXPECT_FALSE(modems_are_switched_off(3, Flags{false, true, true}));
    EXPECT_FALSE(modems_are_switched_off(3, Flags{false, false, false}));
}

} // namespace
