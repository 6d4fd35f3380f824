// The supported models: one row each. This is the one place that knows every driver.
//
// To add a model, add its row, and its file for the simulated router: docs/adding-a-model.md.
#include "modem/model.h"

#include <iterator>

#include "connection/bring_up.h"
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

// --- Operations ---

// What Quectel modems support. The rows of other makers start from it too, as their generic operations are the same.
constexpr ModemOps QUECTEL_SET = {
    .get_identity = modem_get_identity,
    .get_mode = modem_get_mode,
    .get_rssi = modem_get_rssi,
    .signal_info = quectel_signal_info,
    .get_imsi = modem_get_imsi,
    .set_mode = modem_set_mode,
    .del_sms = modem_del_sms,
    .del_all_sms = modem_del_all_sms,
    .serial_connect = modem_serial_connect,
    .disconnect = modem_disconnect,
    .get_operator = modem_get_operator,
    .get_register_status = modem_get_register_status,
    .get_gsn = modem_get_gsn,
    .cell_info = quectel_cell_info,
    .thermal_ctrl = quectel_thermal_ctrl,
    .check_register = quectel_check_register,
    .check_simcard = modem_check_simcard,
    .set_apn = quectel_set_apn,
    .set_ath = quectel_set_ath,
};

// A base set with some slots changed.
template <typename Change> constexpr ModemOps changed(ModemOps ops, Change change) {
    change(ops);
    return ops;
}

constexpr ModemOps EP06_SET = changed(QUECTEL_SET, [](ModemOps &ops) {
    ops.signal_info = ep06_signal_info;
    ops.check_cat6 = quectel_check_cat6;
});

// A 3G modem: neither cells nor thermal limits.
constexpr ModemOps UC20_SET = changed(QUECTEL_SET, [](ModemOps &ops) {
    ops.cell_info = nullptr;
    ops.thermal_ctrl = nullptr;
});

// LTE-M, NB-IoT and Cat 1 modems, whose SIM and bands can be read. They get no credentials by AT+QICSGP.
constexpr ModemOps QUECTEL_IOT_SET = changed(QUECTEL_SET, [](ModemOps &ops) {
    ops.set_ath = nullptr;
    ops.get_qccid = modem_get_qccid;
    ops.get_band = modem_get_band;
    ops.get_current_mode = modem_get_current_mode;
});

// What is left of the set for a modem with a dialect of its own for signal, cells and settings.
constexpr ModemOps GENERIC_SET = changed(QUECTEL_SET, [](ModemOps &ops) {
    ops.signal_info = nullptr;
    ops.cell_info = nullptr;
    ops.thermal_ctrl = nullptr;
    ops.check_register = nullptr;
    ops.set_apn = nullptr;
    ops.set_ath = nullptr;
});

constexpr ModemOps SIMCOM_SET = changed(GENERIC_SET, [](ModemOps &ops) {
    ops.get_mode = simcom_get_mode;
    ops.check_register = modem_check_register;
});

constexpr ModemOps ZTE_SET = changed(GENERIC_SET, [](ModemOps &ops) {
    ops.get_mode = zte_get_mode;
    ops.check_register = modem_check_register;
});

// Its dialect tells signal and cells from one status block, and has checks of its own for registration and SIM.
// Carriers could be told, too (sierra_check_cat6), but clients know this modem by "4G" alone.
constexpr ModemOps SIERRA_SET = changed(GENERIC_SET, [](ModemOps &ops) {
    ops.get_rssi = sierra_get_signal;
    ops.cell_info = sierra_cell_info;
    ops.check_register = sierra_check_register;
    ops.check_simcard = sierra_check_simcard;
});

// Its dialect tells mode, signal, cells and registration, and takes the APN. The mode cannot be set.
constexpr ModemOps FIBOCOM_SET = changed(GENERIC_SET, [](ModemOps &ops) {
    ops.get_mode = fibocom_get_mode;
    ops.signal_info = fibocom_signal_info;
    ops.set_mode = nullptr;
    ops.cell_info = fibocom_cell_info;
    ops.check_register = fibocom_check_register;
    ops.set_apn = fibocom_set_apn;
});

// A modem that nobody knows: its SIM and registration are not checked, so neither can be at fault.
constexpr ModemOps UNKNOWN_SET = changed(GENERIC_SET, [](ModemOps &ops) { ops.check_simcard = nullptr; });

// --- Rows ---

// Ports are USB interface numbers. What a row leaves out the model does not have: a QMI port, a network, PPP or
// Ethernet device. With skip_port_check the AT port may be configured as the data device, as it has to be where one
// port serves both.

// Identity, ports and operations have a line each.
// clang-format off
constexpr ModemModel ROWS[] = {
    {.name = "EC20", .vid = 0x05c6, .pid = 0x9215, .modem_id = 0,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x43, .ops = QUECTEL_SET},
    {.name = "EC25", .vid = 0x2c7c, .pid = 0x0125, .modem_id = 3,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x43, .ops = QUECTEL_SET},
    {.name = "EP06", .vid = 0x2c7c, .pid = 0x0306, .modem_id = 1,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x43, .ops = EP06_SET},
    {.name = "UC20", .vid = 0x05c6, .pid = 0x9003, .modem_id = 4,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x1, .ops = UC20_SET},
    {.name = "MC7430", .vid = 0x1199, .pid = 0x9071, .modem_id = 5,
     .control_port = 3, .data_port = 3,
     .proto_flags = 0x4, .skip_port_check = 1, .ops = SIERRA_SET},
    {.name = "SIMCOM7600", .vid = 0x1e0e, .pid = 0x9001, .modem_id = 20,
     .control_port = 2, .data_port = 3,
     .proto_flags = 0x21, .ops = SIMCOM_SET},
    {.name = "ME3630", .vid = 0x19d2, .pid = 0x1476, .modem_id = 30,
     .control_port = 1, .data_port = 2, .ppp_ifname = "3g-modem", .ecm_ifname = "usb0",
     .proto_flags = 0x21, .ops = ZTE_SET},
    {.name = "EC200T", .vid = 0x2c7c, .pid = 0x6026, .modem_id = 6,
     .control_port = 3, .data_port = 4, .ppp_ifname = "3g-modem", .ecm_ifname = "usb0",
     .proto_flags = 0x61, .ops = QUECTEL_SET},
    {.name = "BG95", .vid = 0x2c7c, .pid = 0x0700, .modem_id = 7,
     .control_port = 2, .data_port = 2, .ppp_ifname = "3g-modem",
     .proto_flags = 0x1, .skip_port_check = 1, .ops = QUECTEL_IOT_SET},
    {.name = "EG91", .vid = 0x2c7c, .pid = 0x0191, .modem_id = 8,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x3, .skip_port_check = 1, .ops = QUECTEL_IOT_SET},
    {.name = "EC100Y", .vid = 0x2c7c, .pid = 0x6001, .modem_id = 9,
     .control_port = 1, .data_port = 1, .ppp_ifname = "3g-modem",
     .proto_flags = 0x1, .skip_port_check = 1, .ops = QUECTEL_IOT_SET},
    {.name = "NL678E", .vid = 0x2cb7, .pid = 0x0104, .modem_id = 40,
     .control_port = 2, .data_port = 3, .qmi_port = 4, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x3, .raw_ip = 1, .ops = FIBOCOM_SET},
    // Any modem whose USB ids are in no other row, as long as it has ports. Clients know it by this spelling.
    {.name = "UknowDevice", .vid = 0, .pid = 0, .modem_id = MODEM_ID_UNKNOWN,
     .control_port = 0, .data_port = 0, .net_ifname = "wwan0", .ppp_ifname = "3g-modem",
     .proto_flags = 0x1, .skip_port_check = 1, .ops = UNKNOWN_SET},
};
// clang-format on

constexpr size_t ROW_COUNT = std::size(ROWS);

// The rows as the linked list that their readers walk.
struct ModemModelTable {
    ModemModel rows[ROW_COUNT];

    constexpr ModemModelTable() : rows() {
        for (size_t index = 0; index < ROW_COUNT; index++) {
            rows[index] = ROWS[index];
            rows[index].next = index + 1 < ROW_COUNT ? &rows[index + 1] : nullptr;
        }
    }
};

constinit const ModemModelTable TABLE;

} // namespace

const ModemModel *const modem_head = TABLE.rows;
