// Finding a row, and filling a copy of it for a bus.
#include "modem/model.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

static_assert(sizeof(ModemModel::ttl) == 1, "an 8-bit field");
static_assert(sizeof(ModemModel::ifname) == 16 && sizeof(ModemModel::bus) == 12);

TEST(FindId, the_row_with_that_id) {
    ASSERT_NE(modem_list_find_id(modem_head, 3), nullptr);
    EXPECT_STREQ(modem_list_find_id(modem_head, 3)->name, "EC25");
    EXPECT_STREQ(modem_list_find_id(modem_head, 0)->name, "EC20");
    EXPECT_STREQ(modem_list_find_id(modem_head, 40)->name, "NL678E");
}

TEST(FindId, number_255_is_the_unknown_device) {
    ASSERT_NE(modem_list_find_id(modem_head, 255), nullptr);
    EXPECT_STREQ(modem_list_find_id(modem_head, 255)->name, "UknowDevice");
    EXPECT_EQ(MODEM_ID_UNKNOWN, 255);
}

TEST(FindId, no_model_has_number_2) {
    EXPECT_EQ(modem_list_find_id(modem_head, 2), nullptr);
}

TEST(FindId, a_negative_id_never_matches) {
    for (int32_t id : {-1, -2, -255, INT32_MIN}) {
        EXPECT_EQ(modem_list_find_id(modem_head, id), nullptr);
    }
}

TEST(FindId, large_ids) {
    EXPECT_EQ(modem_list_find_id(modem_head, INT32_MAX), nullptr);
    EXPECT_EQ(modem_list_find_id(modem_head, 256), nullptr);
}

TEST(FindId, begins_at_the_row_given) {
    const ModemModel *second = modem_head->next;
    EXPECT_EQ(modem_list_find_id(second, 3), second);
    EXPECT_EQ(modem_list_find_id(second, 0), nullptr);
    EXPECT_EQ(modem_list_find_id(nullptr, 3), nullptr);
}

TEST(FindUsbId, both_ids_must_match) {
    ASSERT_NE(modem_list_find_usbid(modem_head, 0x2c7c, 0x0125), nullptr);
    EXPECT_STREQ(modem_list_find_usbid(modem_head, 0x2c7c, 0x0125)->name, "EC25");
    EXPECT_EQ(modem_list_find_usbid(modem_head, 0x0125, 0x2c7c), nullptr);
    EXPECT_EQ(modem_list_find_usbid(modem_head, 0x2c7c, 0x9215), nullptr);
    EXPECT_EQ(modem_list_find_usbid(modem_head, 0x05c6, 0x0125), nullptr);
}

TEST(FindUsbId, the_unknown_row_matches_zeros_only) {
    ASSERT_NE(modem_list_find_usbid(modem_head, 0, 0), nullptr);
    EXPECT_EQ(modem_list_find_usbid(modem_head, 0, 0)->modem_id, 255);
    EXPECT_EQ(modem_list_find_usbid(modem_head, 0, 1), nullptr);
    EXPECT_EQ(modem_list_find_usbid(modem_head, 1, 0), nullptr);
    EXPECT_EQ(modem_list_find_usbid(nullptr, 0, 0), nullptr);
}

TEST(FindUsbId, every_row_is_found_by_its_ids) {
    for (const ModemModel *model = modem_head; model != nullptr; model = model->next) {
        EXPECT_EQ(modem_list_find_usbid(modem_head, model->vid, model->pid), model);
        EXPECT_EQ(modem_list_find_id(modem_head, model->modem_id), model);
    }
}

TEST(ReplaceModemStruct, bus_and_interface_name) {
    ModemModel copy = *modem_list_find_id(modem_head, 3);
    replace_modem_struct(&copy, "2-1.2");
    EXPECT_STREQ(copy.ifname, "modem_2_1_2");
    EXPECT_STREQ(copy.bus, "2-1.2");
}

TEST(ReplaceModemStruct, a_shorter_bus_leaves_nothing_of_a_longer_one) {
    ModemModel copy = *modem_list_find_id(modem_head, 3);
    replace_modem_struct(&copy, "1-1.2.3.4");
    EXPECT_STREQ(copy.ifname, "modem_1_1_2_3_4");
    EXPECT_STREQ(copy.bus, "1-1.2.3.4");
    replace_modem_struct(&copy, "1-1");
    EXPECT_STREQ(copy.ifname, "modem_1_1");
    EXPECT_STREQ(copy.bus, "1-1");
}

TEST(ReplaceModemStruct, an_empty_bus) {
    ModemModel copy = *modem_list_find_id(modem_head, 3);
    replace_modem_struct(&copy, "");
    EXPECT_STREQ(copy.ifname, "modem_");
    EXPECT_STREQ(copy.bus, "");
}

TEST(ReplaceModemStruct, the_other_fields_and_the_row_stay) {
    const ModemModel *row = modem_list_find_id(modem_head, 3);
    ModemModel copy = *row;
    replace_modem_struct(&copy, "1-1.2");
    EXPECT_STREQ(row->ifname, "modem");
    EXPECT_STREQ(row->bus, "");
    EXPECT_STREQ(copy.name, "EC25");
    EXPECT_EQ(copy.modem_id, 3);
    EXPECT_EQ(copy.control_port, 2);
    EXPECT_EQ(copy.next, row->next);
}

TEST(ReplaceModemStruct, a_bus_of_10_characters_or_more_aborts) {
    ModemModel copy = *modem_head;
    EXPECT_ABORT(replace_modem_struct(&copy, "1-1.2.3.4.")); // 10
    EXPECT_ABORT(replace_modem_struct(&copy, "1-1.2.3.4.5"));
    EXPECT_ABORT(replace_modem_struct(&copy, "1-1.2.3.4.5.6"));
    EXPECT_ABORT(replace_modem_struct(&copy, std::string(100000, '1').c_str()));
}

class CurrentModem : public testing::Test {
protected:
    ~CurrentModem() override { set_current_modem(no_model()); }
    static ModemModel no_model() {
        ModemModel model = {};
        model.modem_id = MODEM_ID_NONE;
        return model;
    }
    static ModemModel on_bus(int32_t modem_id, const char *bus) {
        ModemModel copy = *modem_list_find_id(modem_head, modem_id);
        replace_modem_struct(&copy, bus);
        return copy;
    }
};

TEST_F(CurrentModem, there_is_none_at_first) {
    EXPECT_EQ(cur_dev, -1);
    EXPECT_EQ(current_modem(), nullptr);
}

TEST_F(CurrentModem, is_the_copy_that_was_set_with_its_bus) {
    set_current_modem(on_bus(3, "2-1.2"));
    EXPECT_EQ(cur_dev, 3);
    ASSERT_NE(current_modem(), nullptr);
    EXPECT_STREQ(current_modem()->ifname, "modem_2_1_2");
    EXPECT_STREQ(current_modem()->bus, "2-1.2");
    set_current_modem(on_bus(3, "1-1.2"));
    EXPECT_STREQ(current_modem()->bus, "1-1.2");
}

TEST_F(CurrentModem, does_not_change_with_what_it_was_copied_from) {
    ModemModel copy = on_bus(3, "1-1.2");
    set_current_modem(copy);
    replace_modem_struct(&copy, "2-1.2");
    EXPECT_STREQ(current_modem()->bus, "1-1.2");
}

TEST_F(CurrentModem, is_the_row_where_only_the_number_was_set) {
    cur_dev = 5;
    EXPECT_EQ(current_modem(), modem_list_find_id(modem_head, 5));
    set_current_modem(on_bus(3, "1-1.2"));
    cur_dev = 40;
    EXPECT_EQ(current_modem(), modem_list_find_id(modem_head, 40));
    cur_dev = 3;
    EXPECT_STREQ(current_modem()->bus, "1-1.2") << "the copy is the one of this number";
}

TEST_F(CurrentModem, of_a_number_that_no_row_has_is_none) {
    for (int32_t number : {2, -2, 256, INT32_MIN}) {
        cur_dev = number;
        EXPECT_EQ(current_modem(), nullptr) << number;
    }
}

TEST_F(CurrentModem, is_none_again_once_it_is_taken_back) {
    set_current_modem(on_bus(3, "1-1.2"));
    cur_dev = MODEM_ID_NONE;
    EXPECT_EQ(current_modem(), nullptr);
    set_current_modem(no_model());
    EXPECT_EQ(cur_dev, -1);
    EXPECT_EQ(current_modem(), nullptr);
}

TEST_F(CurrentModem, a_model_without_an_id_is_none_whatever_its_name) {
    ModemModel copy = on_bus(3, "1-1.2");
    copy.modem_id = MODEM_ID_NONE;
    set_current_modem(copy);
    EXPECT_EQ(current_modem(), nullptr);
}

TEST_F(CurrentModem, the_unknown_device) {
    set_current_modem(on_bus(255, "1-1.2"));
    EXPECT_EQ(cur_dev, 255);
    EXPECT_STREQ(current_modem()->ifname, "modem_1_1_2");
}

} // namespace
