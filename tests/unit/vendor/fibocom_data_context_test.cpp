// The data context of Fibocom modems, without a modem; tests/router has one.
#include "vendor/fibocom_data_context.h"

#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

ModemModel absent_modem() {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    return model;
}

TEST(FibocomSetApn, a_modem_that_cannot_be_asked_is_no_failure) {
    EXPECT_EQ(fibocom_set_apn(absent_modem(), "internet"), 0);
    EXPECT_EQ(fibocom_set_apn(absent_modem(), ""), 0);
    EXPECT_EQ(fibocom_set_apn(absent_modem(), nullptr), 0);
}

TEST(FibocomSetApn, an_apn_that_does_not_fit_the_command_aborts) {
    EXPECT_EQ(fibocom_set_apn(absent_modem(), std::string(79, 'a').c_str()), 0);
    EXPECT_ABORT(fibocom_set_apn(absent_modem(), std::string(80, 'a').c_str()));
    EXPECT_ABORT(fibocom_set_apn(absent_modem(), std::string(5000, 'a').c_str()));
}

} // namespace
