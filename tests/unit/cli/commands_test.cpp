// The commands, on a copy of a row with operations of the tests' own in its slots.
#include "cli/commands.h"

#include <cstring>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/json.h"
#include "platform/text.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"
#include "vendor/apn_database.h"

namespace {

using testing::ElementsAre;

// In the order in which they are compared.
const std::vector<std::string> NAMES = {
    "connect",
    "connect-auto",
    "new-connect-auto",
    "disconnect",
    "sim-status",
    "AT",
    "signal",
    "cells",
    "iccid",
    "thermal",
    "carrier",
    "test",
    "convert",
    "check_register",
    "get_mode",
    "wifi_lte_interference",
};

class Commands : public testing::Test {
protected:
    Commands() {
        model = *modem_list_find_id(modem_head, 3);
        model.ops = {};
        model.next = nullptr;
        replace_modem_struct(&model, "1-1.2");
    }

    // What the command prints; its exit status stays in `status`.
    std::string run(const char *name, std::vector<std::string> arguments = {}) {
        std::vector<char *> pointers;
        for (std::string &argument : arguments) {
            pointers.push_back(argument.data());
        }
        Capture out(STDOUT_FILENO);
        status = run_command(name, CommandContext{model, pointers});
        return out.text();
    }

    ModemModel model;
    int status = -1;
};

TEST_F(Commands, sixteen_in_their_order) {
    std::vector<std::string> names;
    for (const Command &command : all_commands()) {
        names.push_back(command.name);
    }
    EXPECT_EQ(names, NAMES);
}

TEST_F(Commands, each_has_its_operation) {
    for (const Command &command : all_commands()) {
        EXPECT_NE(command.run, nullptr) << command.name;
    }
}

TEST_F(Commands, an_unknown_command_prints_the_usage) {
    for (const char *name : {"reboot", "", "Signal", "signal ", "at", "-D", "3-1", "connect-"}) {
        EXPECT_EQ(run(name), "\nUsage:<vela_modem> <command> [option]") << name;
        EXPECT_EQ(status, 0);
    }
}

TEST_F(Commands, an_empty_slot_prints_not_support) {
    for (const char *name : {"cells", "iccid", "thermal", "check_register", "get_mode"}) {
        EXPECT_EQ(run(name), "Not support") << name;
        EXPECT_EQ(status, 0) << name;
    }
}

TEST_F(Commands, connect_with_too_few_arguments_prints_its_usage) {
    const std::string usage = "\nUsage:<vela_modem> <connect> <serial/qmi> <device> <server> <apn>";
    EXPECT_EQ(run("connect", {"qmi", "/dev/cdc-wdm0"}), usage) << "four in all, with program and command";
    EXPECT_EQ(status, 0);
    EXPECT_EQ(run("connect", {"serial"}), usage);
    EXPECT_EQ(run("connect"), usage);
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, connect_with_another_mode_word_is_silent) {
    EXPECT_EQ(run("connect", {"ppp", "/dev/ttyUSB3", "umts", "internet"}), "");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, connect_auto_without_a_database_is_the_one_that_fails) {
    const auto without_database = [this] {
        EXPECT_EQ(run("connect-auto"), "");
        EXPECT_EQ(status, 255);
        EXPECT_EQ(isp_object, nullptr);
    };
    if (access("/www", F_OK) == 0) {
        in_child_with_empty({"/www"}, without_database);
    } else {
        without_database();
    }
}

TEST_F(Commands, disconnect_takes_down_the_interface_of_the_current_modem) {
    model.ops.disconnect = [](int wait_count, const char *ifname) {
        EXPECT_EQ(wait_count, 5);
        EXPECT_STREQ(ifname, "modem_1_1_2");
        return 2;
    };
    set_current_modem(model);
    EXPECT_EQ(run("disconnect"), "\nmodem disconnect");
    EXPECT_EQ(status, 0);
    EXPECT_EQ(cur_dev, -1);
    EXPECT_EQ(run("disconnect"), "") << "there is none any more";
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, disconnect_of_a_link_that_does_not_go_down) {
    for (int state : {0, 1, -1, 3}) {
        static int returned;
        returned = state;
        model.ops.disconnect = [](int, const char *) { return returned; };
        set_current_modem(model);
        EXPECT_EQ(run("disconnect"), "") << state;
        EXPECT_EQ(status, 0);
        EXPECT_EQ(cur_dev, 3);
    }
    cur_dev = -1;
}

// The signal report.

TEST_F(Commands, signal_prints_the_report_of_the_slot) {
    model.ops.signal_info = [](const ModemModel &asked, json_object *signals, int32_t *level) {
        EXPECT_STREQ(asked.bus, "1-1.2");
        EXPECT_EQ(*level, -1);
        json_object *one = json_object_new_object();
        vjson_add_string(one, "rssi", "-60");
        json_object_array_add(signals, one);
        *level = 3;
        return 4;
    };
    EXPECT_EQ(run("signal"), pretty_json(R"({"signals":[{"rssi":"-60"}],"strength":3,"mode":"4G"})") + "\n");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, signal_of_a_slot_that_finds_nothing_is_a_report_all_the_same) {
    model.ops.signal_info = [](const ModemModel &, json_object *, int32_t *) { return 0; };
    EXPECT_EQ(plain_json(parse_json(run("signal")).get()), R"({"signals":[],"strength":-1,"mode":"0G"})");
    model.ops.signal_info = [](const ModemModel &, json_object *, int32_t *) { return -1; };
    EXPECT_EQ(plain_json(parse_json(run("signal")).get()), R"({"signals":[],"strength":-1,"mode":"/G"})");
}

TEST_F(Commands, signal_of_generations_2_and_3) {
    model.ops.signal_info = [](const ModemModel &, json_object *, int32_t *) { return 2; };
    EXPECT_THAT(run("signal"), testing::HasSubstr("\"2G\""));
    model.ops.signal_info = [](const ModemModel &, json_object *, int32_t *) { return 3; };
    EXPECT_THAT(run("signal"), testing::HasSubstr("\"3G\""));
}

TEST_F(Commands, signal_parses_whatever_the_slot_returns) {
    for (int result : {-48, -49, 1, 79, 80, 100, 200, 208, 256}) {
        static int returned;
        returned = result;
        model.ops.signal_info = [](const ModemModel &, json_object *, int32_t *) { return returned; };
        EXPECT_NE(parse_json(run("signal")), nullptr) << result;
    }
}

TEST_F(Commands, signal_without_a_slot_reports_the_signal_file) {
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        write_file("/tmp/modem.1-1.2/signal", R"({"type":"gsm","signal":-75})");
        EXPECT_EQ(run("signal"),
                  pretty_json(R"({"signals":[{"type":"GSM","rssi":"-75"}],"strength":3,"mode":"2G"})") + "\n");
        EXPECT_EQ(status, 0);
    });
}

TEST_F(Commands, signal_without_a_slot_and_a_usable_signal_file_prints_not_support) {
    in_child_with_empty({"/tmp"}, [&] {
        EXPECT_EQ(run("signal"), "Not support");
        EXPECT_EQ(status, 0);
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        write_file("/tmp/modem.1-1.2/signal", R"({"type":"nr5g","rssi":-60})");
        EXPECT_EQ(run("signal"), "Not support");
        EXPECT_EQ(status, 0);
    });
}

// The SIM.

TEST_F(Commands, sim_status_prints_the_fault) {
    model.ops.check_simcard = [](const ModemModel &asked, std::span<char>) {
        EXPECT_STREQ(asked.bus, "1-1.2");
        return -2;
    };
    EXPECT_EQ(run("sim-status"), "PIN_SIM");
    EXPECT_EQ(status, 0);
    model.ops.check_simcard = [](const ModemModel &, std::span<char>) { return 0; };
    model.ops.check_register = [](const ModemModel &) { return -1; };
    EXPECT_EQ(run("sim-status"), "NO_REG");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, sim_status_without_a_fault_is_ready) {
    EXPECT_EQ(run("sim-status"), "READY") << "a model that cannot be asked";
    model.ops.check_simcard = [](const ModemModel &, std::span<char> text) {
        text_copy(text, "READY, or so it says");
        return 0;
    };
    EXPECT_EQ(run("sim-status"), "READY");
    EXPECT_EQ(status, 0);
}

// Cells.

TEST_F(Commands, cells_prints_the_array_of_the_slot) {
    model.ops.cell_info = [](const ModemModel &asked, json_object *cells) {
        EXPECT_STREQ(asked.name, "EC25");
        json_object *cell = json_object_new_object();
        vjson_add_string(cell, "type", "servingcell");
        vjson_add_string(cell, "id", "1A2B3C\x01\xFF");
        json_object_array_add(cells, cell);
        return 0;
    };
    EXPECT_EQ(run("cells"), pretty_json("[{\"type\":\"servingcell\",\"id\":\"1A2B3C\\u0001\uFFFD\"}]") + "\n");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, cells_of_a_slot_that_finds_none) {
    model.ops.cell_info = [](const ModemModel &, json_object *) { return 0; };
    EXPECT_EQ(run("cells"), pretty_json("[]") + "\n");
}

// The ICCID.

TEST_F(Commands, iccid_prints_the_digits) {
    model.ops.get_qccid = [](const ModemModel &, std::span<char> iccid) {
        EXPECT_EQ(iccid.size(), 30u);
        EXPECT_EQ(std::string(iccid.data(), iccid.size()), std::string(30, '\0'));
        text_copy(iccid, "89860000000000000017");
        return 0;
    };
    EXPECT_EQ(run("iccid"), "89860000000000000017");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, iccid_that_cannot_be_read_prints_nothing) {
    model.ops.get_qccid = [](const ModemModel &, std::span<char>) { return -1; };
    EXPECT_EQ(run("iccid"), "");
    EXPECT_EQ(status, 0);
}

// Thermal limits.

TEST_F(Commands, thermal_success_has_two_blanks) {
    model.ops.thermal_ctrl = [](const ModemModel &) { return 0; };
    EXPECT_EQ(run("thermal"), "thermal setting  success");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, thermal_failure) {
    for (int result : {-1, 1}) {
        static int returned;
        returned = result;
        model.ops.thermal_ctrl = [](const ModemModel &) { return returned; };
        EXPECT_EQ(run("thermal"), "thermal setting failed");
        EXPECT_EQ(status, 0);
    }
}

// The carrier.

TEST_F(Commands, carrier_prints_the_operator_once) {
    model.ops.get_operator = [](const ModemModel &, std::span<char> name) {
        EXPECT_EQ(name.size(), 64u);
        EXPECT_EQ(std::string(name.data(), name.size()), std::string(64, '\0'));
        text_copy(name, "100% Mobile");
        return 0;
    };
    EXPECT_EQ(run("carrier"), "100% Mobile");
    EXPECT_EQ(status, 0);
}

// Registration and mode.

TEST_F(Commands, check_register_prints_the_slots_result) {
    model.ops.check_register = [](const ModemModel &) { return 0; };
    EXPECT_EQ(run("check_register"), "check_register=0\n");
    model.ops.check_register = [](const ModemModel &) { return -1; };
    EXPECT_EQ(run("check_register"), "check_register=-1\n");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, get_mode_prints_the_generation) {
    model.ops.get_mode = [](const ModemModel &, std::span<char> mode) {
        EXPECT_EQ(mode.size(), 5u);
        EXPECT_EQ(std::string(mode.data(), mode.size()), std::string(5, '\0'));
        text_copy(mode, "4G");
        return 0;
    };
    EXPECT_EQ(run("get_mode"), "get_mode: 4G\n");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, get_mode_with_the_longest_text) {
    model.ops.get_mode = [](const ModemModel &, std::span<char> mode) {
        text_copy(mode, "LTE+");
        return 0;
    };
    EXPECT_EQ(run("get_mode"), "get_mode: LTE+\n");
}

TEST_F(Commands, get_mode_that_cannot_be_read) {
    model.ops.get_mode = [](const ModemModel &, std::span<char>) { return -1; };
    EXPECT_EQ(run("get_mode"), "get_mode: \n");
    EXPECT_EQ(status, 0);
}

// All of them.

TEST_F(Commands, arguments_that_are_not_asked_for_are_ignored) {
    model.ops.thermal_ctrl = [](const ModemModel &) { return 0; };
    EXPECT_EQ(run("thermal", {"one", "two"}), "thermal setting  success");
}

TEST_F(Commands, convert_without_arguments_is_silent) {
    EXPECT_EQ(run("convert"), "");
    EXPECT_EQ(status, 0);
}

TEST_F(Commands, the_model_is_not_changed_and_no_descriptor_stays) {
    const ModemModel before = model;
    const int descriptors = open_descriptors();
    for (const std::string &name : NAMES) {
        Capture errors(STDERR_FILENO);
        run(name.c_str());
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_STREQ(before.bus, model.bus);
    EXPECT_STREQ(before.ifname, model.ifname);
}

} // namespace
