// The built-in rows, against the table written out by hand.
#include <algorithm>
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "connection/bring_up.h"
#include "modem/model.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/identity.h"
#include "modem/modem_core/mode_band.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "sms/sms_store.h"
#include "vendor/fibocom_cells.h"
#include "vendor/fibocom_data_context.h"
#include "vendor/fibocom_registration.h"
#include "vendor/fibocom_signal.h"
#include "vendor/quectel_cells.h"
#include "vendor/quectel_data_context.h"
#include "vendor/quectel_registration.h"
#include "vendor/quectel_signal.h"
#include "vendor/quectel_thermal.h"
#include "vendor/sierra_cells.h"
#include "vendor/sierra_registration.h"
#include "vendor/sierra_signal.h"

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

// Whose operation each model has in each slot, written by hand. The columns are the rows above; m is the generic one,
// q Quectel's, e that of the EP06, s Sierra's, f Fibocom's, c SIMCom's, z ZTE's, - none.
constexpr const char *EXPECTED =
    //                  E E E U M S M E B E E N U
    //                  C C P C C I E C G G C L k
    //                  2 2 0 2 7 M 3 2 9 9 1 6 n
    "get_identity        m m m m m m m m m m m m m\n"
    "get_mode            m m m m m c z m m m m f m\n"
    "get_rssi            m m m m s m m m m m m m m\n"
    "signal_info         q q e q - - - q q q q f -\n"
    "get_imsi            m m m m m m m m m m m m m\n"
    "set_mode            m m m m m m m m m m m - m\n"
    "del_sms             m m m m m m m m m m m m m\n"
    "del_all_sms         m m m m m m m m m m m m m\n"
    "serial_connect      m m m m m m m m m m m m m\n"
    "disconnect          m m m m m m m m m m m m m\n"
    "get_operator        m m m m m m m m m m m m m\n"
    "get_register_status m m m m m m m m m m m m m\n"
    "get_gsn             m m m m m m m m m m m m m\n"
    "cell_info           q q q - s - - q q q q f -\n"
    "thermal_ctrl        q q q - - - - q q q q - -\n"
    "check_cat6          - - q - - - - - - - - - -\n"
    "check_register      q q q q s m m q q q q f -\n"
    "check_simcard       m m m m s m m m m m m m -\n"
    "set_apn             q q q q - - - q q q q f -\n"
    "set_ath             q q q q - - - q - - - - -\n"
    "get_qccid           - - - - - - - - m m m - -\n"
    "get_band            - - - - - - - - m m m - -\n"
    "get_current_mode    - - - - - - - - m m m - -\n";

using AnyFunction = void (*)();

template <typename Function> AnyFunction any(Function function) {
    return reinterpret_cast<AnyFunction>(function);
}

struct Implementation {
    char letter;
    AnyFunction function;
};

// The slots in their order, and what may stand in each.
const struct Slot {
    const char *name;
    std::vector<Implementation> implementations;
} SLOTS[] = {
    {"get_identity", {{'m', any(modem_get_identity)}}},
    {"get_mode",
     {{'m', any(modem_get_mode)},
      {'c', any(simcom_get_mode)},
      {'z', any(zte_get_mode)},
      {'f', any(fibocom_get_mode)}}},
    {"get_rssi", {{'m', any(modem_get_rssi)}, {'s', any(sierra_get_signal)}}},
    {"signal_info",
     {{'q', any(quectel_signal_info)}, {'e', any(ep06_signal_info)}, {'f', any(fibocom_signal_info)}}},
    {"get_imsi", {{'m', any(modem_get_imsi)}}},
    {"set_mode", {{'m', any(modem_set_mode)}}},
    {"del_sms", {{'m', any(modem_del_sms)}}},
    {"del_all_sms", {{'m', any(modem_del_all_sms)}}},
    {"serial_connect", {{'m', any(modem_serial_connect)}}},
    {"disconnect", {{'m', any(modem_disconnect)}}},
    {"get_operator", {{'m', any(modem_get_operator)}}},
    {"get_register_status", {{'m', any(modem_get_register_status)}}},
    {"get_gsn", {{'m', any(modem_get_gsn)}}},
    {"cell_info", {{'q', any(quectel_cell_info)}, {'s', any(sierra_cell_info)}, {'f', any(fibocom_cell_info)}}},
    {"thermal_ctrl", {{'q', any(quectel_thermal_ctrl)}}},
    {"check_cat6", {{'q', any(quectel_check_cat6)}}},
    {"check_register",
     {{'q', any(quectel_check_register)},
      {'s', any(sierra_check_register)},
      {'f', any(fibocom_check_register)},
      {'m', any(modem_check_register)}}},
    {"check_simcard", {{'m', any(modem_check_simcard)}, {'s', any(sierra_check_simcard)}}},
    {"set_apn", {{'q', any(quectel_set_apn)}, {'f', any(fibocom_set_apn)}}},
    {"set_ath", {{'q', any(quectel_set_ath)}}},
    {"get_qccid", {{'m', any(modem_get_qccid)}}},
    {"get_band", {{'m', any(modem_get_band)}}},
    {"get_current_mode", {{'m', any(modem_get_current_mode)}}},
};

using Slots = std::array<AnyFunction, MODEM_OPERATION_COUNT>;

Slots slots_of(const ModemModel &model) {
    Slots slots;
    static_assert(sizeof(slots) == sizeof(model.ops));
    memcpy(&slots, &model.ops, sizeof(slots));
    return slots;
}

char letter_of(const Slot &slot, AnyFunction function) {
    for (const Implementation &one : slot.implementations) {
        if (one.function == function) {
            return one.letter;
        }
    }
    return function == nullptr ? '-' : '?';
}

// The table as the program has it.
std::string printed_table() {
    std::string text;
    for (size_t i = 0; i < std::size(SLOTS); i++) {
        std::string line = SLOTS[i].name;
        line.resize(strlen("get_register_status"), ' ');
        for (const ModemModel *model = modem_head; model != nullptr; model = model->next) {
            line += {' ', letter_of(SLOTS[i], slots_of(*model)[i])};
        }
        text += line + '\n';
    }
    return text;
}

TEST(ModelTable, thirteen_rows_as_they_are_written_here) {
    static_assert(std::size(ROWS) == 13);
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

TEST(ModelTable, every_slot_of_every_row_as_it_is_written_here) {
    static_assert(std::size(SLOTS) == MODEM_OPERATION_COUNT);
    EXPECT_EQ(printed_table(), EXPECTED);
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
        EXPECT_EQ(POSITIONS[i], i * sizeof(void (*)())) << SLOTS[i].name;
    }
}

} // namespace
