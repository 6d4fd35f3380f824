// The firmware version as clients show and compare it.
#include "modem/modem_core/firmware_version.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string version_of(const std::string &line, size_t size = FIRMWARE_VERSION_SIZE) {
    std::vector<char> version(size, 'x');
    keep_version_characters(line.c_str(), version);
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
    for (int byte = 1; byte < 256; byte++) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(version_of(all), ".0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz");
}

TEST(Version, letters_outside_ascii_go) {
    EXPECT_EQ(version_of("EC25\u00E4\u00DF\xFF.1"), "EC25.1");
}

TEST(Version, at_most_128_characters_count) {
    EXPECT_EQ(version_of(std::string(128, 'A')), std::string(128, 'A'));
    EXPECT_EQ(version_of(std::string(129, 'A')), std::string(128, 'A'));
    EXPECT_EQ(version_of(std::string(1000, '-') + std::string(1000, '_')), std::string(128, '_'));
}

} // namespace
