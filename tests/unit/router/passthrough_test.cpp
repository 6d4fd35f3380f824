// The counters of /proc/net/dev, with a file of the test's own in its place.
#include "router/passthrough.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/mount.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/json.h"
#include "platform/owners.h"
#include "support/child.h"
#include "support/files.h"
#include "support/short_memory.h"
#include "support/system_log.h"

namespace {

// What is reported of device "tun0" where /proc/net/dev holds `content`.
void expect_counters(const std::string &content, const std::string &report) {
    in_child_with_empty({"/proc"}, [&] {
        std::filesystem::create_directory("/proc/net");
        write_file("/proc/net/dev", content);
        const Json reply(json_object_new_object());
        get_ppp_ifstats_by_proc_net_dev(reply.get(), "tun0");
        EXPECT_EQ(json_object_to_json_string_ext(reply.get(), JSON_C_TO_STRING_PLAIN), report);
        umount2("/proc", MNT_DETACH); // sanitizers look there when a process ends
    });
}

constexpr const char *HEADER = "Inter-|   Receive                                                |  Transmit\n"
                               " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets\n";

TEST(ProcNetDev, the_counters_are_texts) {
    expect_counters(std::string(HEADER) +
                        "    lo:       7       1    0    0    0     0          0         0        7\n"
                        "  tun0:     100       3    0    0    0     0          0         0     4200\n",
                    R"({"download":"100","upload":"4200"})");
}

TEST(ProcNetDev, counters_above_32_bits_are_kept) {
    expect_counters(std::string(HEADER) + "  tun0: 5000000000 3 0 0 0 0 0 0 6000000000 1\n",
                    R"({"download":"5000000000","upload":"6000000000"})");
}

// The header is read with room for three characters, twice. What is left of it is read as a line like any other.
TEST(ProcNetDev, two_reads_of_three_characters_each_are_dropped_from_the_start) {
    expect_counters("123456tun0: 11 0 0 0 0 0 0 0 22\n", R"({"download":"11","upload":"22"})");
    expect_counters("1234567tun0: 11 0 0 0 0 0 0 0 22\n", "{}");
    // A line end ends a read as well, so here only the two empty lines are dropped.
    expect_counters("\n\ntun0: 11 0 0 0 0 0 0 0 22\n", R"({"download":"11","upload":"22"})");
}

TEST(ProcNetDev, a_device_that_is_not_listed_or_a_line_that_is_cut_has_no_counters) {
    expect_counters(std::string(HEADER) + "  tun1: 11 0 0 0 0 0 0 0 22\n", "{}");
    expect_counters(std::string(HEADER) + "  tun0: 11 0 0 0\n", "{}");
    expect_counters("", "{}");
    expect_counters("ab", "{}");
}

// What is logged, at error priority, where the counters cannot be read: of `content`, or of no file where that is null.
void expect_message(const char *content, const char *message) {
    in_child_with_empty({"/proc", "/dev"}, [&] {
        SystemLog log;
        std::filesystem::create_directory("/proc/net");
        if (content != nullptr) {
            write_file("/proc/net/dev", content);
        }
        const Json reply(json_object_new_object());
        {
            const ShortMemory none;
            get_ppp_ifstats_by_proc_net_dev(reply.get(), "tun0");
        }
        EXPECT_EQ(json_object_object_length(reply.get()), 0);
        EXPECT_THAT(log.line(), testing::AllOf(testing::StartsWith("<11>"), // user, error
                                               testing::EndsWith(std::string(": ") + message)));
        EXPECT_EQ(log.line(), "");
        umount2("/proc", MNT_DETACH);
    });
}

TEST(ProcNetDev, a_file_that_cannot_be_opened_is_logged) {
    expect_message(nullptr, "Function:get_ppp_ifstats_by_proc_net_dev Line:141 can't open 'proc/net/dev': "
                            "No such file or directory\n");
}

TEST(ProcNetDev, memory_that_is_short_is_logged) {
    expect_message("123456tun0: 11 0 0 0 0 0 0 0 22\n",
                   "Function:get_ppp_ifstats_by_proc_net_dev Line:147 malloc failed\n");
}

} // namespace
