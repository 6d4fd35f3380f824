// The data context without a modem: authentication codes, what the SIM's files stop, and lengths. What is sent to a
// modem is seen in the simulated router.
#include "vendor/quectel_data_context.h"

#include <functional>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"

namespace {

ModemModel model_without_modem() {
    ModemModel model = *modem_list_find_id(modem_head, 3);
    replace_modem_struct(&model, "9-9.9");
    return model;
}

int set_apn(const char *apn) {
    return quectel_set_apn(model_without_modem(), apn);
}

int set_ath(const char *apn, const char *username, const char *password, const char *authentication = "PAP") {
    return quectel_set_ath(model_without_modem(), apn, username, password, authentication);
}

constexpr const char *ABSENT = nullptr;

void with_sim(const char *status, const char *type, const std::function<void()> &body) {
    in_child_with_empty({"/tmp"}, [&] {
        if (status != ABSENT) {
            write_file("/tmp/sim_status", status);
        }
        if (type != ABSENT) {
            write_file("/tmp/sim_type", type);
        }
        const Capture complaints_of_cat(STDERR_FILENO);
        body();
    });
}

TEST(Authentication, every_text) {
    EXPECT_EQ(quectel_authentication_code("NONE"), 0);
    EXPECT_EQ(quectel_authentication_code("PAP"), 1);
    EXPECT_EQ(quectel_authentication_code("CHAP"), 2);
    EXPECT_EQ(quectel_authentication_code("PAP or CHAP"), 3);
}

TEST(Authentication, lower_case_is_none) {
    EXPECT_EQ(quectel_authentication_code("pap"), 0);
    EXPECT_EQ(quectel_authentication_code("chap"), 0);
    EXPECT_EQ(quectel_authentication_code("pap or chap"), 0);
}

TEST(Authentication, any_other_text_is_none) {
    for (const char *text : {"", "PA", "PAP ", " PAP", "PAPCHAP", "PAP or CHAP ", "PAP OR CHAP", "CHAP or PAP", "1"}) {
        EXPECT_EQ(quectel_authentication_code(text), 0) << text;
    }
}

TEST(DataContext, a_modem_that_cannot_be_reached_has_refused_nothing) {
    for (const char *type : {"verizon\n", "att\n", "", ABSENT}) {
        with_sim("ready\n", type, [] {
            EXPECT_EQ(set_apn("internet"), 0);
            EXPECT_EQ(set_ath("internet", "user", "password"), 0);
        });
    }
}

TEST(DataContext, a_sim_that_is_ready) {
    for (const char *status : {"ready\n", "ready", "ready 2026\n", "readyness", "ready\nnot\n", "ready\r\n",
                               "ready and a text that is longer than the buffer\n"}) {
        with_sim(status, "", [&] {
            EXPECT_EQ(set_apn("internet"), 0) << status;
            EXPECT_EQ(set_ath("internet", "user", "password"), 0) << status;
        });
    }
}

TEST(DataContext, a_sim_that_is_not_ready) {
    for (const char *status : {ABSENT, "", "\n", "read\n", "READY\n", " ready\n", "\nready\n", "not ready\n",
                               "absent\n", "NO_SIM", "locked"}) {
        with_sim(status, "verizon\n", [&] {
            EXPECT_EQ(set_apn("internet"), -1) << (status != nullptr ? status : "(no file)");
            EXPECT_EQ(set_ath("internet", "user", "password"), -1) << (status != nullptr ? status : "(no file)");
        });
    }
}

TEST(DataContext, texts_that_are_missing_are_empty) {
    with_sim("ready\n", "", [] {
        EXPECT_EQ(set_apn(nullptr), 0);
        EXPECT_EQ(set_ath(nullptr, nullptr, nullptr, nullptr), 0);
    });
}

TEST(DataContext, the_longest_apn) {
    with_sim("ready\n", "att\n", [] {
        EXPECT_EQ(set_apn(std::string(79, 'a').c_str()), 0);
        EXPECT_ABORT(set_apn(std::string(80, 'a').c_str()));
    });
    with_sim("ready\n", "verizon\n", [] {
        EXPECT_EQ(set_apn(std::string(75, 'a').c_str()), 0);
        EXPECT_ABORT(set_apn(std::string(76, 'a').c_str()));
        EXPECT_ABORT(set_apn(std::string(100000, 'a').c_str()));
    });
}

TEST(DataContext, the_longest_credentials) {
    for (const char *type : {"att\n", "verizon\n"}) {
        with_sim("ready\n", type, [] {
            const std::string text(25, 'a');
            const std::string longer(26, 'a');
            EXPECT_EQ(set_ath(text.c_str(), text.c_str(), text.c_str()), 0);
            EXPECT_ABORT(set_ath(longer.c_str(), text.c_str(), text.c_str()));
            EXPECT_ABORT(set_ath(text.c_str(), longer.c_str(), text.c_str()));
            EXPECT_ABORT(set_ath(text.c_str(), text.c_str(), longer.c_str()));
        });
    }
}

TEST(DataContext, long_texts_for_a_sim_that_is_not_ready_are_not_looked_at) {
    with_sim("absent\n", "", [] { EXPECT_EQ(set_apn(std::string(100000, 'a').c_str()), -1); });
}

TEST(DataContext, no_descriptor_stays) {
    with_sim("ready\n", "verizon\n", [] {
        const int before = open_descriptors();
        set_apn("internet");
        set_ath("internet", "user", "password");
        EXPECT_EQ(open_descriptors(), before);
    });
}

} // namespace
