// The version text of the brief list.
#include "api/brief_info_endpoints.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

std::string version_of(const std::string &line, size_t size = 128) {
    std::vector<char> version(size, 'x');
    keep_version_characters(version, line);
    return version.data();
}

TEST(Version, ec25_revision_line) {
    EXPECT_EQ(version_of("EC25EFAR06A03M4G_01.005.01.005\r\n"), "EC25EFAR06A03M4G_01.005.01.005");
}

TEST(Version, ep06_revision_line) {
    EXPECT_EQ(version_of("EP06ELAR04A04M4G\r\n"), "EP06ELAR04A04M4G");
}

TEST(Version, several_lines_are_joined) {
    EXPECT_EQ(version_of("+QGMR: EC25EFA\r\nEC25\r\n"), "QGMREC25EFAEC25");
}

TEST(Version, nothing_to_keep) {
    EXPECT_EQ(version_of(""), "");
    EXPECT_EQ(version_of(" -+:/()\"'\r\n\t"), "");
}

TEST(Version, of_all_bytes_the_ascii_letters_and_digits_dot_and_underscore_stay) {
    std::string all;
    for (int byte = 0; byte < 256; byte++) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(version_of(all), ".0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
}

TEST(Version, letters_outside_ascii_go) {
    EXPECT_EQ(version_of("EC25\u00E4\u00DF\xFF.1"), "EC25.1");
}

TEST(Version, the_longest_output_of_a_command_fits) {
    EXPECT_EQ(version_of(std::string(127, 'A')), std::string(127, 'A'));
    EXPECT_ABORT(version_of(std::string(128, 'A')));
    EXPECT_EQ(version_of(std::string(1000, '-')), "");
}

} // namespace
