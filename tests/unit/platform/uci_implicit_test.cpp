// UCI through the process-wide context, which knows the router's own directories only: each test runs in a child with
// an /etc and a /tmp of its own.
#include "platform/uci.h"

#include <array>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <uci.h>

#include "support/child.h"
#include "support/files.h"

namespace {

constexpr const char *NETWORK = "\nconfig interface 'lan'\n\toption proto 'static'\n\n"
                                "config interface 'modem_1_1_2'\n\toption apn 'internet'\n";

void on_a_router(const std::function<void()> &body) {
    in_child_with_empty({"/etc", "/tmp"}, [&] {
        std::filesystem::create_directory("/etc/config");
        write_file("/etc/config/network", NETWORK);
        body();
    });
}

// What somebody reads from the configuration store.
std::string stored(const char *path) {
    std::array<char, 64> out = {};
    UciHandle *handle = vuci2_init();
    vuci2_get(handle, path, out);
    vuci2_free(handle);
    return out.data();
}

TEST(UciImplicit, set_and_commit) {
    on_a_router([] {
        vuci_init();
        EXPECT_EQ(vuci_set("network.lan.proto", "dhcp"), 0);
        EXPECT_EQ(stored("network.lan.proto"), "static");
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci_free();
        EXPECT_EQ(stored("network.lan.proto"), "dhcp");
    });
}

TEST(UciImplicit, sections_are_created_and_deleted) {
    on_a_router([] {
        vuci_init();
        EXPECT_EQ(vuci_set_name("network", "modem_2_1_2", nullptr, "interface"), 0);
        EXPECT_EQ(vuci_set_name("network", "modem_2_1_2", "proto", "3g"), 0);
        EXPECT_EQ(vuci_delete("network.modem_1_1_2"), 0);
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci_free();
        EXPECT_EQ(stored("network.modem_2_1_2.proto"), "3g");
        EXPECT_EQ(stored("network.modem_1_1_2.apn"), "");
        EXPECT_THAT(read_file("/etc/config/network"), testing::Not(testing::HasSubstr("modem_1_1_2")));
    });
}

TEST(UciImplicit, a_null_value_clears_the_option) {
    on_a_router([] {
        vuci_init();
        EXPECT_EQ(vuci_set("network.modem_1_1_2.apn", nullptr), 0);
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci_free();
        EXPECT_EQ(stored("network.modem_1_1_2.apn"), "");
    });
}

TEST(UciImplicit, what_is_not_committed_is_lost) {
    on_a_router([] {
        vuci_init();
        EXPECT_EQ(vuci_set("network.lan.proto", "dhcp"), 0);
        vuci_free();
        vuci_init();
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci_free();
        EXPECT_EQ(stored("network.lan.proto"), "static");
    });
}

TEST(UciImplicit, init_closes_a_context_that_was_left_open) {
    on_a_router([] {
        vuci_init();
        EXPECT_EQ(vuci_set("network.lan.proto", "dhcp"), 0);
        vuci_init();
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci_free();
        EXPECT_EQ(stored("network.lan.proto"), "static");
    });
}

TEST(UciImplicit, without_an_open_context_nothing_is_changed) {
    on_a_router([] {
        vuci_free();
        EXPECT_EQ(vuci_set("network.lan.proto", "dhcp"), UCI_ERR_INVAL);
        EXPECT_EQ(vuci_set_name("network", "lan", "proto", "dhcp"), UCI_ERR_INVAL);
        EXPECT_EQ(vuci_delete("network.lan"), UCI_ERR_INVAL);
        EXPECT_EQ(vuci_commit("network"), UCI_ERR_INVAL);
        vuci_free();
        EXPECT_EQ(read_file("/etc/config/network"), NETWORK);
    });
}

TEST(UciImplicit, both_families_work_side_by_side) {
    on_a_router([] {
        vuci_init();
        UciHandle *handle = vuci2_init();
        EXPECT_EQ(vuci_set("network.lan.proto", "dhcp"), 0);
        EXPECT_EQ(vuci2_set(handle, "network.modem_1_1_2.apn", "web"), 0);
        EXPECT_EQ(vuci2_commit(handle, "network"), 0);
        EXPECT_EQ(vuci_commit("network"), 0);
        vuci2_free(handle);
        vuci_free();
        EXPECT_EQ(stored("network.lan.proto"), "dhcp");
        EXPECT_EQ(stored("network.modem_1_1_2.apn"), "web");
    });
}

} // namespace
