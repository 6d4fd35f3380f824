// The SMS spool at its fixed paths, in a child whose /etc is its own.
#include "sms/sms_store.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "platform/owners.h"
#include "support/aborts.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"

namespace {

namespace fs = std::filesystem;

const std::string INCOMING = "/etc/spool/sms/incoming/";
const std::string STORAGE = "/etc/spool/sms/storage/";

// Runs `body` where the spool's two directories exist and are empty.
void with_spool(const std::function<void()> &body) {
    in_child_with_empty({"/etc"}, [&] {
        fs::create_directories(INCOMING);
        fs::create_directories(STORAGE);
        body();
    });
}

std::string list() {
    const Json messages(json_object_new_array());
    EXPECT_EQ(modem_list_sms(messages.get()), 0);
    return plain_json(messages.get());
}

std::vector<std::string> names_listed() {
    const Json messages(json_object_new_array());
    EXPECT_EQ(modem_list_sms(messages.get()), 0);
    std::vector<std::string> names;
    for (size_t index = 0; index < json_object_array_length(messages.get()); index++) {
        names.emplace_back(vjson_get_string(json_object_array_get_idx(messages.get(), index), "name"));
    }
    std::sort(names.begin(), names.end());
    return names;
}

using Names = std::vector<std::string>;

// Listing

TEST(SmsStore, unread_messages_are_listed_before_read_ones) {
    with_spool([] {
        write_file(STORAGE + "VMS99.old", "From: 1\n\nold");
        write_file(INCOMING + "VMS99.new", "From: 2\nSent: 3\n\nnew");
        EXPECT_EQ(list(), R"([{"from":"2\n","time":"3\n","body":"new","status":"unread","name":"VMS99.new"},)"
                          R"({"from":"1\n","body":"old","status":"read","name":"VMS99.old"}])");
    });
}

TEST(SmsStore, only_files_of_the_device_vms99_are_listed) {
    with_spool([] {
        for (const char *name : {"VMS99.a", "VMS98.b", "VMS99", "vms99.c", "GSM1.d", "copy-of-VMS99.e"}) {
            write_file(INCOMING + name, "\n");
        }
        write_file(STORAGE + "VMS98.f", "\n");
        EXPECT_EQ(names_listed(), (Names{"VMS99.a", "copy-of-VMS99.e"}));
    });
}

TEST(SmsStore, an_empty_incoming_directory_and_a_missing_storage_directory_list_nothing) {
    with_spool([] {
        fs::remove(STORAGE);
        EXPECT_EQ(list(), "[]");
        write_file(INCOMING + "VMS99.a", "\n");
        EXPECT_EQ(names_listed(), Names{"VMS99.a"});
    });
}

TEST(SmsStore, without_an_incoming_directory_nothing_is_listed) {
    with_spool([] {
        write_file(STORAGE + "VMS99.a", "\n");
        fs::remove(INCOMING);
        EXPECT_EQ(list(), "[]");
    });
}

TEST(SmsStore, a_header_says_nothing_of_the_next_message) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "Alphabet: UCS2\nLength: 100\n\n");
        write_file(STORAGE + "VMS99.b", "\nabc");
        EXPECT_EQ(list(), R"([{"body":"","status":"unread","name":"VMS99.a"},)"
                          R"({"body":"abc","status":"read","name":"VMS99.b"}])");
    });
}

TEST(SmsStore, what_cannot_be_opened_or_is_no_file_is_left_out_and_nobody_waits_for_it) {
    with_spool([] {
        write_file(INCOMING + "VMS99.good", "\n");
        fs::create_directory(INCOMING + "VMS99.directory");
        fs::create_symlink("/nonexistent", INCOMING + "VMS99.gone");
        fs::create_symlink(INCOMING + "VMS99.loop", INCOMING + "VMS99.loop");
        ASSERT_EQ(mkfifo((INCOMING + "VMS99.pipe").c_str(), 0600), 0);
        EXPECT_EQ(names_listed(), Names{"VMS99.good"});
    });
}

TEST(SmsStore, names_with_blanks_quotes_and_line_feeds) {
    with_spool([] {
        const Names names = {"VMS99. a b", "VMS99.\"'`$(x)", "VMS99.\n"};
        for (const std::string &name : names) {
            write_file(INCOMING + name, "\n");
        }
        Names sorted = names;
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(names_listed(), sorted);
        for (const std::string &name : names) {
            EXPECT_EQ(modem_sms_replace_status(name.c_str()), 0);
            EXPECT_TRUE(fs::exists(STORAGE + name));
            EXPECT_EQ(modem_del_sms(name.c_str()), 0);
        }
        EXPECT_EQ(list(), "[]");
    });
}

TEST(SmsStore, a_path_of_99_characters_is_listed_and_a_longer_one_aborts) {
    with_spool([] {
        const size_t room = SMS_PATH_SIZE - 1 - INCOMING.size();
        const std::string name = "VMS99." + std::string(room - 6, 'x');
        write_file(INCOMING + name, "\n");
        EXPECT_EQ(names_listed(), Names{name});
        write_file(INCOMING + "GSM1." + name, "\n");
        write_file(INCOMING + name + "y", "\n");
        EXPECT_ABORT(names_listed());
    });
}

TEST(SmsStore, a_listing_leaves_no_descriptor_behind) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "From: 1\n\nabc");
        fs::create_directory(INCOMING + "VMS99.b");
        const int before = dup(0);
        close(before);
        EXPECT_NE(list(), "[]");
        const int after = dup(0);
        close(after);
        EXPECT_EQ(before, after);
    });
}

// Counting

TEST(SmsStore, bus_1_1_3_counts_only_vms98_files_and_any_other_bus_only_vms99_files) {
    with_spool([] {
        for (const char *name : {"VMS99.a", "VMS99.b", "VMS98.c", "GSM1.d"}) {
            write_file(INCOMING + name, "\n");
        }
        write_file(STORAGE + "VMS99.e", "\n");
        write_file(STORAGE + "VMS98.f", "\n");
        EXPECT_EQ(modem_check_new_sms("1-1.3"), 1);
        for (const char *bus : {"1-1.2", "2-1.3", "1-1.30", "1-1", ""}) {
            EXPECT_EQ(modem_check_new_sms(bus), 2) << bus;
        }
    });
}

TEST(SmsStore, without_an_incoming_directory_there_are_no_unread_messages) {
    with_spool([] {
        fs::remove(INCOMING);
        EXPECT_EQ(modem_check_new_sms("1-1.2"), 0);
    });
}

// Deleting

TEST(SmsStore, a_message_is_deleted_from_incoming_first_then_from_storage) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "\n");
        write_file(STORAGE + "VMS99.a", "\n");
        EXPECT_EQ(modem_del_sms("VMS99.a"), 0);
        EXPECT_FALSE(fs::exists(INCOMING + "VMS99.a"));
        EXPECT_TRUE(fs::exists(STORAGE + "VMS99.a"));
        EXPECT_EQ(modem_del_sms("VMS99.a"), 0);
        EXPECT_FALSE(fs::exists(STORAGE + "VMS99.a"));
        EXPECT_EQ(modem_del_sms("VMS99.a"), -1);
    });
}

TEST(SmsStore, nothing_outside_the_spool_and_no_directory_is_deleted) {
    with_spool([] {
        write_file("/etc/spool/keep", "x");
        write_file("/etc/spool/sms/keep", "x");
        fs::create_directory(INCOMING + "VMS99.directory");
        for (const char *name :
             {"", ".", "..", "../keep", "../../keep", "/etc/spool/keep", "VMS99.directory", "../storage/"}) {
            EXPECT_EQ(modem_del_sms(name), -1) << name;
        }
        EXPECT_TRUE(fs::exists("/etc/spool/keep") && fs::exists("/etc/spool/sms/keep"));
        EXPECT_TRUE(fs::exists(INCOMING + "VMS99.directory") && fs::exists(STORAGE));
    });
}

TEST(SmsStore, a_name_that_does_not_fit_a_path_aborts) {
    EXPECT_ABORT(modem_del_sms(std::string(SMS_PATH_SIZE, 'x').c_str()));
    EXPECT_ABORT(modem_sms_replace_status(std::string(SMS_PATH_SIZE, 'x').c_str()));
}

TEST(SmsStore, delete_all_empties_both_directories) {
    with_spool([] {
        for (const std::string &directory : {INCOMING, STORAGE}) {
            write_file(directory + "VMS99.a", "\n");
            write_file(directory + "VMS98 'b\n", "\n");
        }
        Capture output(1);
        EXPECT_EQ(modem_del_all_sms(), 0);
        EXPECT_EQ(output.text(), "");
        EXPECT_TRUE(fs::is_empty(INCOMING) && fs::is_empty(STORAGE));
    });
}

TEST(SmsStore, delete_all_of_empty_directories_is_a_success) {
    with_spool([] { EXPECT_EQ(modem_del_all_sms(), 0); });
}

TEST(SmsStore, delete_all_with_only_one_of_the_two_directories_deletes_nothing) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "\n");
        fs::remove(STORAGE);
        EXPECT_EQ(modem_del_all_sms(), -1);
        EXPECT_TRUE(fs::exists(INCOMING + "VMS99.a"));
    });
    with_spool([] {
        write_file(STORAGE + "VMS99.a", "\n");
        fs::remove(INCOMING);
        EXPECT_EQ(modem_del_all_sms(), -1);
        EXPECT_TRUE(fs::exists(STORAGE + "VMS99.a"));
    });
}

// Marking as read

TEST(SmsStore, marking_moves_the_file_under_its_name) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "\nabc");
        EXPECT_EQ(modem_sms_replace_status("VMS99.a"), 0);
        EXPECT_EQ(list(), R"([{"body":"abc","status":"read","name":"VMS99.a"}])");
    });
}

TEST(SmsStore, marking_a_message_that_is_already_in_storage_leaves_it_there_and_answers_0) {
    with_spool([] {
        write_file(STORAGE + "VMS99.a", "\nabc");
        EXPECT_EQ(modem_sms_replace_status("VMS99.a"), 0);
        EXPECT_EQ(read_file(STORAGE + "VMS99.a"), "\nabc");
    });
}

TEST(SmsStore, marking_what_is_not_there_or_is_no_name_changes_nothing) {
    with_spool([] {
        write_file("/etc/spool/sms/keep", "x");
        for (const char *name : {"VMS99.none", "", ".", "..", "../keep", "../incoming"}) {
            EXPECT_EQ(modem_sms_replace_status(name), 0) << name;
        }
        EXPECT_TRUE(fs::exists("/etc/spool/sms/keep"));
        EXPECT_TRUE(fs::is_directory(INCOMING) && fs::is_empty(STORAGE));
    });
}

} // namespace
