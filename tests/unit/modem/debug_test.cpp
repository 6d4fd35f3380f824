// Diagnostics: silent, or exactly what was asked for.
#include "modem/debug.h"

#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/capture.h"

namespace {

class Debug : public testing::Test {
protected:
    ~Debug() override { DEBUG = 0; }
};

TEST_F(Debug, silent_by_default) {
    EXPECT_EQ(DEBUG, 0);
    Capture out(STDOUT_FILENO);
    DEBUG_printf("vid %X,pid %X\n", 0x2c7cu, 0x125u);
    EXPECT_EQ(out.text(), "");
}

TEST_F(Debug, prints_without_prefix_or_line_end) {
    DEBUG = 1;
    Capture out(STDOUT_FILENO);
    DEBUG_printf("vid %X,pid %X", 0x2c7cu, 0x125u);
    EXPECT_EQ(out.text(), "vid 2C7C,pid 125");
}

TEST_F(Debug, a_percent_sign_in_what_is_printed_is_printed) {
    DEBUG = 1;
    Capture out(STDOUT_FILENO);
    DEBUG_printf("%s", "%s%n%d 100%");
    EXPECT_EQ(out.text(), "%s%n%d 100%");
}

TEST_F(Debug, longer_output_is_cut_at_1023_bytes) {
    DEBUG = 1;
    for (size_t length : {1022u, 1023u, 1024u, 1025u, 100000u}) {
        Capture out(STDOUT_FILENO);
        DEBUG_printf("%s", std::string(length, 'x').c_str());
        EXPECT_EQ(out.text(), std::string(std::min<size_t>(length, 1023), 'x'));
    }
}

} // namespace
