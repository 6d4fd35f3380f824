// UCI through a handle, on configuration files in a scratch directory.
#include "platform/uci.h"

#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <uci.h>

#include "support/aborts.h"
#include "support/files.h"

namespace {

using testing::HasSubstr;

struct FreeHandle {
    void operator()(UciHandle *handle) const { vuci2_free(handle); }
};
using Handle = std::unique_ptr<UciHandle, FreeHandle>;

constexpr const char *NETWORK = R"(
config interface 'lan'
	option proto 'static'
	option ipaddr '192.168.8.1'

config interface 'modem_1_1_2'
	option apn 'internet'
	option empty ''
	list dns '9.9.9.9'
	list dns '1.1.1.1'
	list dns 'with blank'
)";

constexpr const char *FIREWALL = R"(
config zone
	option name 'lan'
	list network 'lan'

config zone
	option name 'wan'
	option network 'wan wan6'
)";

class Uci : public testing::Test {
protected:
    Uci() {
        std::filesystem::create_directory(directory / "config");
        write_file(directory / "config/network", NETWORK);
        write_file(directory / "config/firewall", FIREWALL);
        handle = open();
    }

    Handle open() const {
        Handle opened(vuci2_init());
        EXPECT_NE(opened, nullptr);
        EXPECT_EQ(uci_set_confdir(opened->context, (directory / "config").c_str()), UCI_OK);
        EXPECT_EQ(uci_set_savedir(opened->context, (directory / "delta").c_str()), UCI_OK);
        return opened;
    }
    // What a reader gets in a zeroed buffer.
    static std::string get(const Handle &from, const char *path) {
        std::array<char, 64> out = {};
        vuci2_get(from.get(), path, out);
        return out.data();
    }
    std::string get(const char *path) const { return get(handle, path); }
    std::string get_index(const char *path, int index) const {
        std::array<char, 64> out = {};
        vuci2_get_list_index(handle.get(), path, index, out);
        return out.data();
    }
    std::string get_name(const char *package, const char *section, const char *option) const {
        std::array<char, 64> out = {};
        vuci2_get_name(handle.get(), package, section, option, out);
        return out.data();
    }
    std::string file(const char *package) const { return read_file(directory / "config/" + package); }
    // What somebody gets who opens the configuration now.
    std::string stored(const char *path) const { return get(open(), path); }
    // That a read leaves what is in the buffer.
    static void expect_untouched(const std::function<void(std::span<char>)> &read) {
        std::array<char, 32> out;
        out.fill('x');
        read(out);
        EXPECT_EQ(std::string(out.data(), out.size()), std::string(32, 'x'));
    }

    ScratchDirectory directory;
    Handle handle;
};

TEST_F(Uci, get_reads_a_plain_option) {
    EXPECT_EQ(get("network.lan.ipaddr"), "192.168.8.1");
}

TEST_F(Uci, get_reads_from_an_anonymous_section) {
    EXPECT_EQ(get("firewall.@zone[0].name"), "lan");
    EXPECT_EQ(get("firewall.@zone[1].network"), "wan wan6");
}

TEST_F(Uci, what_does_not_exist_leaves_the_buffer_untouched) {
    for (const char *path :
         {"network.lan.gateway", "network.wan.proto", "wireless.radio0.channel", "firewall.@zone[2].name",
          "firewall.@rule[0].name", "network..", "network.lan.", ".lan.proto", "", "..", "network.l an.proto",
          "network.lan.pr=oto", "../network.lan.proto", "firewall.@zone[.name", "firewall.@zone[x].name"}) {
        SCOPED_TRACE(path);
        expect_untouched([&](std::span<char> out) { vuci2_get(handle.get(), path, out); });
        expect_untouched([&](std::span<char> out) { vuci2_get_list_index(handle.get(), path, 0, out); });
    }
}

TEST_F(Uci, get_of_a_list_leaves_the_buffer_untouched) {
    expect_untouched([&](std::span<char> out) { vuci2_get(handle.get(), "network.modem_1_1_2.dns", out); });
    expect_untouched([&](std::span<char> out) { vuci2_get_name(handle.get(), "network", "modem_1_1_2", "dns", out); });
}

TEST_F(Uci, get_of_a_section_or_package_leaves_the_buffer_untouched) {
    expect_untouched([&](std::span<char> out) { vuci2_get(handle.get(), "network.lan", out); });
    expect_untouched([&](std::span<char> out) { vuci2_get(handle.get(), "network", out); });
}

TEST_F(Uci, a_null_handle_reads_nothing) {
    expect_untouched([](std::span<char> out) { vuci2_get(nullptr, "network.lan.proto", out); });
    expect_untouched([](std::span<char> out) { vuci2_get_name(nullptr, "network", "lan", "proto", out); });
    expect_untouched([](std::span<char> out) { vuci2_get_list_index(nullptr, "network.lan.proto", 0, out); });
    vuci2_free(nullptr);
}

TEST_F(Uci, a_null_handle_changes_nothing) {
    EXPECT_EQ(vuci2_set(nullptr, "network.lan.proto", "dhcp"), UCI_ERR_INVAL);
    EXPECT_EQ(vuci2_set_name(nullptr, "network", "lan", "proto", "dhcp"), UCI_ERR_INVAL);
    EXPECT_EQ(vuci2_add_list(nullptr, "network.lan.dns", "1.1.1.1"), UCI_ERR_INVAL);
    EXPECT_EQ(vuci2_delete(nullptr, "network.lan"), UCI_ERR_INVAL);
    EXPECT_EQ(vuci2_commit(nullptr, "network"), UCI_ERR_INVAL);
}

TEST_F(Uci, a_value_that_just_fits_its_buffer) {
    std::array<char, 12> out = {};
    vuci2_get(handle.get(), "network.lan.ipaddr", out);
    EXPECT_STREQ(out.data(), "192.168.8.1");
}

TEST_F(Uci, a_value_longer_than_its_buffer_aborts) {
    std::array<char, 11> out = {};
    EXPECT_ABORT(vuci2_get(handle.get(), "network.lan.ipaddr", out));
    EXPECT_ABORT(vuci2_get_name(handle.get(), "network", "lan", "ipaddr", out));
    EXPECT_ABORT(vuci2_get(handle.get(), "network.lan.ipaddr", std::span<char>()));
    std::array<char, 9> type = {};
    EXPECT_ABORT(vuci2_get_name(handle.get(), "network", "lan", nullptr, type));
    std::array<char, 10> item = {};
    EXPECT_ABORT(vuci2_get_list_index(handle.get(), "network.modem_1_1_2.dns", 2, item));
}

TEST_F(Uci, get_name_reads_an_option) {
    EXPECT_EQ(get_name("network", "lan", "proto"), "static");
    EXPECT_EQ(get_name("network", "lan", "gateway"), "");
}

TEST_F(Uci, get_name_without_an_option_reads_the_type_of_an_existing_section) {
    write_file(directory / "config/mwan3", "config interface 'modem_1_1_2'\n\toption enabled '1'\n");
    EXPECT_EQ(get_name("mwan3", "modem_1_1_2", nullptr), "interface");
}

TEST_F(Uci, get_name_without_an_option_leaves_the_buffer_empty_for_a_missing_section) {
    EXPECT_EQ(get_name("network", "modem_2_1_2", nullptr), "");
    EXPECT_EQ(get_name("mwan3", "modem_1_1_2", nullptr), "");
}

TEST_F(Uci, list_values_by_index) {
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 0), "9.9.9.9");
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 1), "1.1.1.1");
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 2), "with blank");
    EXPECT_EQ(get_index("firewall.@zone[0].network", 0), "lan");
}

TEST_F(Uci, an_index_beyond_the_end_of_the_list_leaves_the_buffer_untouched) {
    for (int index : {3, 4, 1000000, -1, INT32_MIN, INT32_MAX}) {
        expect_untouched(
            [&](std::span<char> out) { vuci2_get_list_index(handle.get(), "network.modem_1_1_2.dns", index, out); });
    }
}

TEST_F(Uci, a_plain_option_has_no_list_values) {
    expect_untouched([&](std::span<char> out) { vuci2_get_list_index(handle.get(), "network.lan.proto", 1, out); });
    expect_untouched([&](std::span<char> out) { vuci2_get_list_index(handle.get(), "network.lan.proto", 0, out); });
}

TEST_F(Uci, set_replaces_and_creates_an_option) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.metric", "40"), 0);
    EXPECT_EQ(get("network.lan.proto"), "dhcp");
    EXPECT_EQ(get("network.lan.metric"), "40");
}

TEST_F(Uci, set_in_an_anonymous_section) {
    EXPECT_EQ(vuci2_set(handle.get(), "firewall.@zone[1].network", "wan wan6 modem_1_1_2"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "firewall"), 0);
    EXPECT_EQ(stored("firewall.@zone[1].network"), "wan wan6 modem_1_1_2");
}

TEST_F(Uci, set_in_a_section_that_is_not_there_is_refused) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.modem_9.proto", "dhcp"), UCI_ERR_INVAL);
    EXPECT_EQ(get("network.modem_9.proto"), "");
}

TEST_F(Uci, set_with_a_name_that_is_not_allowed_is_refused) {
    EXPECT_NE(vuci2_set(handle.get(), "network.lan.pro-to", "dhcp"), 0);
    EXPECT_NE(vuci2_set(handle.get(), "network.l an.proto", "dhcp"), 0);
    EXPECT_NE(vuci2_set_name(handle.get(), "network", "1-1.2", nullptr, "interface"), 0);
}

TEST_F(Uci, set_in_a_package_that_is_not_there_is_refused) {
    EXPECT_NE(vuci2_set(handle.get(), "velaconfig.modem.operator", "x"), 0);
    EXPECT_NE(vuci2_commit(handle.get(), "velaconfig"), 0);
}

TEST_F(Uci, a_null_or_empty_value_clears_the_option) {
    for (const char *value : {static_cast<const char *>(nullptr), ""}) {
        ASSERT_EQ(vuci2_set(handle.get(), "network.modem_1_1_2.apn", "internet"), 0);
        EXPECT_EQ(vuci2_set(handle.get(), "network.modem_1_1_2.apn", value), 0);
        EXPECT_EQ(get("network.modem_1_1_2.apn"), "");
        ASSERT_EQ(vuci2_set_name(handle.get(), "network", "modem_1_1_2", "apn", "internet"), 0);
        EXPECT_EQ(vuci2_set_name(handle.get(), "network", "modem_1_1_2", "apn", value), 0);
        EXPECT_EQ(get("network.modem_1_1_2.apn"), "");
    }
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_THAT(file("network"), testing::Not(HasSubstr("apn")));
}

TEST_F(Uci, clearing_an_option_that_is_not_there_is_no_error) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.gateway", nullptr), 0);
    EXPECT_EQ(vuci2_set_name(handle.get(), "network", "lan", "gateway", nullptr), 0);
}

TEST_F(Uci, set_of_a_list_makes_it_a_plain_option) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.modem_1_1_2.dns", "8.8.8.8"), 0);
    EXPECT_EQ(get("network.modem_1_1_2.dns"), "8.8.8.8");
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 1), "");
}

TEST_F(Uci, set_name_without_an_option_creates_a_section) {
    EXPECT_EQ(vuci2_set_name(handle.get(), "network", "modem_2_1_2", nullptr, "interface"), 0);
    EXPECT_EQ(vuci2_set_name(handle.get(), "network", "modem_2_1_2", "proto", "3g"), 0);
    EXPECT_EQ(get_name("network", "modem_2_1_2", nullptr), "interface");
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.modem_2_1_2.proto"), "3g");
}

TEST_F(Uci, set_name_without_an_option_retypes_a_section_and_keeps_its_options) {
    EXPECT_EQ(vuci2_set_name(handle.get(), "network", "modem_1_1_2", nullptr, "member"), 0);
    EXPECT_EQ(get_name("network", "modem_1_1_2", nullptr), "member");
    EXPECT_EQ(get("network.modem_1_1_2.apn"), "internet");
}

TEST_F(Uci, values_of_any_text_survive_commit_and_reading) {
    for (const char *value : {"a'b", "a\"b", "a\\b", "#no comment", "  blanks  ", "line\nline", "tab\ttab", "=",
                              "a=b.c", "'", "''", "Gr\xC3\xBC\xC3\x9F", "\xFF\xFE", "$(reboot)", "pass;word`&|<>"}) {
        ASSERT_EQ(vuci2_set(handle.get(), "network.modem_1_1_2.password", value), 0);
        ASSERT_EQ(vuci2_commit(handle.get(), "network"), 0);
        EXPECT_EQ(stored("network.modem_1_1_2.password"), value);
    }
}

TEST_F(Uci, add_list_appends) {
    EXPECT_EQ(vuci2_add_list(handle.get(), "network.modem_1_1_2.dns", "8.8.8.8"), 0);
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 2), "with blank");
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 3), "8.8.8.8");
}

TEST_F(Uci, add_list_begins_a_list) {
    EXPECT_EQ(vuci2_add_list(handle.get(), "network.lan.dns", "8.8.8.8"), 0);
    EXPECT_EQ(get_index("network.lan.dns", 0), "8.8.8.8");
}

TEST_F(Uci, add_list_to_a_plain_option_makes_it_the_first_item) {
    EXPECT_EQ(vuci2_add_list(handle.get(), "firewall.@zone[1].network", "modem_1_1_2"), 0);
    EXPECT_EQ(get_index("firewall.@zone[1].network", 0), "wan wan6");
    EXPECT_EQ(get_index("firewall.@zone[1].network", 1), "modem_1_1_2");
}

TEST_F(Uci, add_list_of_null_appends_nothing) {
    vuci2_add_list(handle.get(), "network.modem_1_1_2.dns", nullptr);
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 2), "with blank");
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 3), "");
    vuci2_add_list(handle.get(), "network.lan.dns", nullptr);
    EXPECT_EQ(get_index("network.lan.dns", 0), "");
}

TEST_F(Uci, delete_of_an_option) {
    EXPECT_EQ(vuci2_delete(handle.get(), "network.lan.ipaddr"), 0);
    EXPECT_EQ(get("network.lan.ipaddr"), "");
    EXPECT_EQ(get("network.lan.proto"), "static");
    EXPECT_EQ(vuci2_delete(handle.get(), "network.modem_1_1_2.dns"), 0);
    EXPECT_EQ(get_index("network.modem_1_1_2.dns", 0), "");
}

TEST_F(Uci, delete_of_a_section_takes_its_options) {
    EXPECT_EQ(vuci2_delete(handle.get(), "network.modem_1_1_2"), 0);
    EXPECT_EQ(get_name("network", "modem_1_1_2", nullptr), "");
    EXPECT_EQ(get("network.modem_1_1_2.apn"), "");
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "static");
    EXPECT_THAT(file("network"), testing::Not(HasSubstr("modem_1_1_2")));
}

TEST_F(Uci, delete_of_what_is_not_there_is_an_error_and_changes_nothing) {
    EXPECT_NE(vuci2_delete(handle.get(), "network.modem_9"), 0);
    EXPECT_NE(vuci2_delete(handle.get(), "network.lan.gateway"), 0);
    EXPECT_NE(vuci2_delete(handle.get(), "velaconfig.modem"), 0);
    EXPECT_EQ(get("network.lan.proto"), "static");
}

TEST_F(Uci, changes_are_staged_until_the_commit) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "static");
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "dhcp");
}

TEST_F(Uci, changes_that_are_not_committed_are_lost) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    handle.reset();
    EXPECT_EQ(stored("network.lan.proto"), "static");
    EXPECT_EQ(file("network"), NETWORK);
}

TEST_F(Uci, one_commit_writes_one_package) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(vuci2_set(handle.get(), "firewall.@zone[0].name", "guest"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "firewall"), 0);
    EXPECT_EQ(stored("firewall.@zone[0].name"), "guest");
    EXPECT_EQ(stored("network.lan.proto"), "static");
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "dhcp");
}

TEST_F(Uci, the_handle_works_on_after_a_commit) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(get("network.lan.proto"), "dhcp");
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "none"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "none");
}

TEST_F(Uci, what_others_committed_meanwhile_survives) {
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    {
        const Handle other = open();
        EXPECT_EQ(vuci2_set(other.get(), "network.modem_1_1_2.apn", "web.provider"), 0);
        EXPECT_EQ(vuci2_commit(other.get(), "network"), 0);
    }
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "dhcp");
    EXPECT_EQ(stored("network.modem_1_1_2.apn"), "web.provider");
}

TEST_F(Uci, a_commit_without_changes_keeps_the_values) {
    EXPECT_EQ(get("network.lan.proto"), "static");
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.ipaddr"), "192.168.8.1");
    EXPECT_EQ(stored("network.modem_1_1_2.apn"), "internet");
}

// A directory in place of a file cannot be read, whatever is configured.
TEST_F(Uci, a_handle_that_could_not_read_something_commits_nothing) {
    std::filesystem::create_directory(directory / "config/unreadable");
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(get("unreadable.modem.apn"), "");
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.metric", "40"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), UCI_ERR_IO);
    EXPECT_EQ(read_file(directory / "config/network"), NETWORK);
    handle = open();
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.metric", "40"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "static");
    EXPECT_EQ(stored("network.lan.metric"), "40");
}

TEST_F(Uci, what_is_not_there_is_no_trouble) {
    EXPECT_EQ(get("absent.modem.apn"), "");
    EXPECT_EQ(vuci2_set(handle.get(), "network.absent.apn", "internet"), UCI_ERR_INVAL);
    EXPECT_EQ(vuci2_delete(handle.get(), "network.absent"), UCI_ERR_NOTFOUND);
    EXPECT_EQ(vuci2_set(handle.get(), "network.lan.proto", "dhcp"), 0);
    EXPECT_EQ(vuci2_commit(handle.get(), "network"), 0);
    EXPECT_EQ(stored("network.lan.proto"), "dhcp");
}

TEST_F(Uci, the_callers_path_is_not_changed) {
    char path[] = "network.lan.proto";
    std::array<char, 32> out = {};
    vuci2_get(handle.get(), path, out);
    vuci2_set(handle.get(), path, "dhcp");
    vuci2_delete(handle.get(), path);
    EXPECT_STREQ(path, "network.lan.proto");
}

TEST_F(Uci, an_equals_sign_in_a_path_sets_nothing) {
    std::array<char, 32> out = {};
    vuci2_get(handle.get(), "network.lan.proto=dhcp", out);
    EXPECT_EQ(get("network.lan.proto"), "static");
}

TEST_F(Uci, a_file_that_is_no_configuration_reads_as_nothing) {
    write_file(directory / "config/broken", "config interface 'lan\n\toption \x01 \xFF\ngarbage");
    EXPECT_EQ(get("broken.lan.proto"), "");
    EXPECT_EQ(get("network.lan.proto"), "static");
}

TEST_F(Uci, many_handles_leave_no_descriptor) {
    const int before = open_descriptors();
    for (int i = 0; i < 20; i++) {
        const Handle one = open();
        get(one, "network.lan.proto");
        get(one, "wireless.radio0.channel");
        vuci2_set(one.get(), "network.lan.metric", std::to_string(i).c_str());
        EXPECT_EQ(vuci2_commit(one.get(), "network"), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
