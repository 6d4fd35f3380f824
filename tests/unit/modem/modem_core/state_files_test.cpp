// The files of a modem's state directory, whatever somebody has left there. Each test has a /tmp of its own.
#include "modem/modem_core/state_files.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"

namespace {

constexpr const char *BUS = "1-1.2";
constexpr const char *DIRECTORY = "/tmp/modem.1-1.2";
constexpr const char *FILE_PATH = "/tmp/modem.1-1.2/modem-name";

void with_state_directory(const std::function<void()> &body) {
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory(DIRECTORY);
        body();
    });
}

int read_into(std::vector<char> &out) {
    return state_file_read(BUS, "modem-name", out);
}

TEST(StateFiles, neither_file_nor_directory) {
    in_child_with_empty({"/tmp"}, [] {
        std::vector<char> out(20, 'x');
        EXPECT_EQ(read_into(out), STATE_FILE_ABSENT);
        std::filesystem::create_directory(DIRECTORY);
        EXPECT_EQ(read_into(out), STATE_FILE_ABSENT);
        EXPECT_EQ(std::string(out.begin(), out.end()), std::string(20, 'x'));
        state_file_remove(BUS, "modem-name");
    });
}

TEST(StateFiles, a_file_in_place_of_the_directory) {
    in_child_with_empty({"/tmp"}, [] {
        write_file(DIRECTORY, "what is this");
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), STATE_FILE_ABSENT);
        EXPECT_EQ(state_file_write(BUS, "modem-name", "EC25"), -1);
        state_file_remove(BUS, "modem-name");
        EXPECT_EQ(read_file(DIRECTORY), "what is this");
    });
}

TEST(StateFiles, what_is_written_is_read) {
    in_child_with_empty({"/tmp"}, [] {
        const std::string content("EC25\0\xff\n", 7);
        EXPECT_EQ(state_file_write(BUS, "modem-name", content), 0);
        EXPECT_EQ(read_file(FILE_PATH), content);
        std::vector<char> out(20, 'x');
        EXPECT_EQ(read_into(out), 7);
        EXPECT_EQ(std::string(out.begin(), out.end()), content + std::string(13, 'x'));
    });
}

TEST(StateFiles, a_write_makes_the_directory_and_a_plain_file) {
    in_child_with_empty({"/tmp"}, [] {
        umask(022);
        EXPECT_EQ(state_file_write(BUS, "modem-imei", "350000000000017"), 0);
        struct stat status;
        ASSERT_EQ(stat(DIRECTORY, &status), 0);
        EXPECT_EQ(status.st_mode, S_IFDIR | 0751u);
        ASSERT_EQ(stat("/tmp/modem.1-1.2/modem-imei", &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0644u);
    });
}

TEST(StateFiles, a_write_replaces_a_longer_file_and_leaves_nothing_else) {
    with_state_directory([] {
        write_file(FILE_PATH, std::string(1000, 'x'));
        EXPECT_EQ(state_file_write(BUS, "modem-name", "EC25"), 0);
        EXPECT_EQ(read_file(FILE_PATH), "EC25");
        const std::filesystem::directory_iterator entries(DIRECTORY);
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
    });
}

TEST(StateFiles, of_a_long_file_only_what_there_is_room_for) {
    with_state_directory([] {
        write_file(FILE_PATH, std::string(100000, 'x'));
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), 20);
        EXPECT_EQ(std::string(out.begin(), out.end()), std::string(20, 'x'));
    });
}

TEST(StateFiles, where_the_medium_is_full_a_write_leaves_nothing_of_the_new_file) {
    with_state_directory([] {
        write_file(FILE_PATH, "the old one");
        signal(SIGXFSZ, SIG_IGN);
        rlimit before;
        ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
        const rlimit nothing = {0, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &nothing), 0);
        const int replaced = state_file_write(BUS, "modem-name", "EC25");
        const int made = state_file_write(BUS, "modem-imei", "350000000000017");
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        EXPECT_EQ(replaced, 0);
        EXPECT_EQ(made, 0);
        EXPECT_EQ(read_file(FILE_PATH), "the old one");
        const std::filesystem::directory_iterator entries(DIRECTORY);
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
    });
}

TEST(StateFiles, an_empty_file) {
    with_state_directory([] {
        write_file(FILE_PATH, "");
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), 0);
    });
}

TEST(StateFiles, a_directory_is_like_an_empty_file_and_cannot_be_written) {
    with_state_directory([] {
        std::filesystem::create_directory(FILE_PATH);
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), 0);
        EXPECT_EQ(state_file_write(BUS, "modem-name", "EC25"), -1);
        const std::filesystem::directory_iterator entries(DIRECTORY);
        EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
        state_file_remove(BUS, "modem-name");
        EXPECT_FALSE(std::filesystem::exists(FILE_PATH));
    });
}

TEST(StateFiles, a_pipe_that_nobody_writes_to_does_not_hang) {
    with_state_directory([] {
        ASSERT_EQ(mkfifo(FILE_PATH, 0600), 0);
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), 0);
    });
}

TEST(StateFiles, a_link_in_a_circle_cannot_be_opened) {
    with_state_directory([] {
        std::filesystem::create_symlink(FILE_PATH, FILE_PATH);
        std::vector<char> out(20);
        EXPECT_EQ(read_into(out), STATE_FILE_UNREADABLE);
    });
}

TEST(StateFiles, a_bus_that_makes_the_path_too_long_aborts) {
    EXPECT_ABORT(state_file_remove("1-1.2.3.4.5.6.7.8.9", "modem-name"));
}

TEST(StateFiles, readers_see_all_of_a_file_or_none) {
    with_state_directory([] {
        const std::string name(199, 'n');
        std::atomic<bool> done = false;
        std::thread writer([&] {
            for (int round = 0; round < 300; round++) {
                EXPECT_EQ(state_file_write(BUS, "modem-name", name), 0);
                state_file_remove(BUS, "modem-name");
            }
            done = true;
        });
        while (!done) {
            std::vector<char> out(250);
            const int length = read_into(out);
            EXPECT_TRUE(length == STATE_FILE_ABSENT || length == 199) << length;
        }
        writer.join();
    });
}

} // namespace
