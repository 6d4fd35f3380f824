// The built-in rows, against the table written out by hand.
#include "modem/model_table.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "modem/model.h"

namespace {

struct Row {
    const char *name;
    uint32_t vid, pid;
    int32_t id;
    int32_t control, data, qmi;
    const char *net, *ppp, *ecm;
    uint32_t proto_flags, skip_port_check, raw_ip;
};

// clang-format off
constexpr Row ROWS[] = {
    // name         vid     pid     id   ctl data qmi net      ppp         ecm     proto skip raw
    {"EC20",        0x05c6, 0x9215, 0,   2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x43, 0, 0},
    {"EC25",        0x2c7c, 0x0125, 3,   2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x43, 0, 0},
    {"EP06",        0x2c7c, 0x0306, 1,   2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x43, 0, 0},
    {"UC20",        0x05c6, 0x9003, 4,   2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x1,  0, 0},
    {"MC7430",      0x1199, 0x9071, 5,   3, 3, -1, "xxx",   "xxx",      "xxx",  0x4,  1, 0},
    {"SIMCOM7600",  0x1e0e, 0x9001, 20,  2, 3, -1, "xxx",   "xxx",      "xxx",  0x21, 0, 0},
    {"ME3630",      0x19d2, 0x1476, 30,  1, 2, -1, "xxx",   "3g-modem", "usb0", 0x21, 0, 0},
    {"EC200T",      0x2c7c, 0x6026, 6,   3, 4, -1, "xxx",   "3g-modem", "usb0", 0x61, 0, 0},
    {"BG95",        0x2c7c, 0x0700, 7,   2, 2, -1, "xxx",   "3g-modem", "xxx",  0x1,  1, 0},
    {"EG91",        0x2c7c, 0x0191, 8,   2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x3,  1, 0},
    {"EC100Y",      0x2c7c, 0x6001, 9,   1, 1, -1, "xxx",   "3g-modem", "xxx",  0x1,  1, 0},
    {"NL678E",      0x2cb7, 0x0104, 40,  2, 3, 4,  "wwan0", "3g-modem", "xxx",  0x3,  0, 1},
    {"UknowDevice", 0,      0,      255, 0, 0, -1, "wwan0", "3g-modem", "xxx",  0x1,  1, 0},
};

// Which model has which operation, in the order of the slots; the columns are the rows above.
constexpr struct {
    const char *slot;
    const char *models;
} SLOTS[] = {
    //                      EEEUMSMEBEENU
    //                      CCPCC EC GC Lk
    {"get_identity",        "*************"},
    {"get_mode",            "*************"},
    {"get_rssi",            "*************"},
    {"signal_info",         "****---*****-"},
    {"get_imsi",            "*************"},
    {"set_mode",            "***********-*"},
    {"del_sms",             "*************"},
    {"del_all_sms",         "*************"},
    {"serial_connect",      "*************"},
    {"disconnect",          "*************"},
    {"get_operator",        "*************"},
    {"get_register_status", "*************"},
    {"get_gsn",             "*************"},
    {"cell_info",           "***-*--*****-"},
    {"thermal_ctrl",        "***----****--"},
    {"check_cat6",          "--*----------"},
    {"check_register",      "************-"},
    {"check_simcard",       "************-"},
    {"set_apn",             "****---*****-"},
    {"set_ath",             "****---*-----"},
    {"get_qccid",           "--------***--"},
    {"get_band",            "--------***--"},
    {"get_current_mode",    "--------***--"},
};
// clang-format on

// Operations that this build does not carry, in the same columns: slots that are empty although the model supports them.
// An operation that is added leaves this list. Only slots with such models are listed.
// clang-format off
constexpr struct {
    const char *slot;
    const char *models;
} NOT_CARRIED[] = {
    //                      EEEUMSMEBEENU
    //                      CCPCC EC GC Lk
    {"serial_connect",      "*************"},
    {"disconnect",          "*************"},
    {"thermal_ctrl",        "***----****--"},
    {"set_apn",             "****---****--"},
    {"set_ath",             "****---*-----"},
};
// clang-format on

bool is_carried(const char *slot, size_t row) {
    for (const auto &missing : NOT_CARRIED) {
        if (strcmp(missing.slot, slot) == 0) {
            return missing.models[row] != '*';
        }
    }
    return true;
}

using Slots = std::array<void (*)(), MODEM_OPERATION_COUNT>;

Slots slots_of(const ModemModel &model) {
    Slots slots;
    static_assert(sizeof(slots) == sizeof(model.ops));
    memcpy(&slots, &model.ops, sizeof(slots));
    return slots;
}

TEST(ModelTable, thirteen_rows_as_they_are_written_here) {
    ASSERT_EQ(MODEM_MODEL_COUNT, 13u);
    ASSERT_EQ(std::size(ROWS), 13u);
    const ModemModel *model = modem_head;
    for (const Row &row : ROWS) {
        SCOPED_TRACE(row.name);
        ASSERT_NE(model, nullptr);
        EXPECT_STREQ(model->name, row.name);
        EXPECT_EQ(model->vid, row.vid);
        EXPECT_EQ(model->pid, row.pid);
        EXPECT_EQ(model->modem_id, row.id);
        EXPECT_STREQ(model->ifname, "modem");
        EXPECT_EQ(model->control_port, row.control);
        EXPECT_EQ(model->data_port, row.data);
        EXPECT_EQ(model->qmi_port, row.qmi);
        EXPECT_STREQ(model->net_ifname, row.net);
        EXPECT_STREQ(model->ppp_ifname, row.ppp);
        EXPECT_STREQ(model->ecm_ifname, row.ecm);
        EXPECT_STREQ(model->bus, "");
        EXPECT_EQ(model->proto_flags, row.proto_flags);
        EXPECT_EQ(model->skip_port_check, row.skip_port_check);
        EXPECT_EQ(model->raw_ip, row.raw_ip);
        EXPECT_EQ(model->ttl, 0);
        model = model->next;
    }
    EXPECT_EQ(model, nullptr);
}

TEST(ModelTable, ids_and_usb_ids_are_unique) {
    std::set<int32_t> ids;
    std::set<std::pair<uint32_t, uint32_t>> usb_ids;
    std::set<std::string> names;
    for (const ModemModel *model = modem_head; model != nullptr; model = model->next) {
        EXPECT_TRUE(ids.insert(model->modem_id).second) << model->name;
        EXPECT_TRUE(usb_ids.insert({model->vid, model->pid}).second) << model->name;
        EXPECT_TRUE(names.insert(model->name).second) << model->name;
        EXPECT_GE(model->modem_id, 0) << model->name;
    }
}

TEST(ModelTable, every_row_supports_what_it_is_said_to_support) {
    ASSERT_EQ(std::size(SLOTS), MODEM_OPERATION_COUNT);
    size_t row = 0;
    for (const ModemModel *model = modem_head; model != nullptr; model = model->next, row++) {
        const Slots slots = slots_of(*model);
        for (size_t i = 0; i < slots.size(); i++) {
            const bool supported = SLOTS[i].models[row] == '*' && is_carried(SLOTS[i].slot, row);
            EXPECT_EQ(slots[i] != nullptr, supported) << model->name << " " << SLOTS[i].slot;
        }
    }
}

// The position of each slot is part of the record; the table above names them in that order.
TEST(ModelTable, slots_stand_in_their_order) {
    static const size_t POSITIONS[] = {
        offsetof(ModemOps, get_identity), offsetof(ModemOps, get_mode),         offsetof(ModemOps, get_rssi),
        offsetof(ModemOps, signal_info),  offsetof(ModemOps, get_imsi),         offsetof(ModemOps, set_mode),
        offsetof(ModemOps, del_sms),      offsetof(ModemOps, del_all_sms),      offsetof(ModemOps, serial_connect),
        offsetof(ModemOps, disconnect),   offsetof(ModemOps, get_operator),     offsetof(ModemOps, get_register_status),
        offsetof(ModemOps, get_gsn),      offsetof(ModemOps, cell_info),        offsetof(ModemOps, thermal_ctrl),
        offsetof(ModemOps, check_cat6),   offsetof(ModemOps, check_register),   offsetof(ModemOps, check_simcard),
        offsetof(ModemOps, set_apn),      offsetof(ModemOps, set_ath),          offsetof(ModemOps, get_qccid),
        offsetof(ModemOps, get_band),     offsetof(ModemOps, get_current_mode),
    };
    ASSERT_EQ(std::size(POSITIONS), MODEM_OPERATION_COUNT);
    for (size_t i = 0; i < std::size(POSITIONS); i++) {
        EXPECT_EQ(POSITIONS[i], i * sizeof(void (*)())) << SLOTS[i].slot;
    }
}

} // namespace
