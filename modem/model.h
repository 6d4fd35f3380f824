// What a modem model is: the record that describes one, its operation slots, and the list of all supported models.
//
// A row of the built-in list says how a model is recognised on USB, which of its USB interfaces carry which port, and
// which operations it supports. Rows are never written. Detection and the request handlers take a copy, fill its
// run-time fields (ifname, bus, ttl) for the USB bus that the modem sits on, and hand that copy to the operations.
//
// Everybody may include this file. The rows themselves, and with them every vendor driver, are known to model_table.cpp
// alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <json-c/json.h>

struct ModemModel;

// The operations of a model, in their fixed order. A null slot means that the model does not support the operation:
// "Not support" on the command line, -17 from the web interface. `model` is always the caller's run-time copy;
// text results go into caller-owned, zero-filled buffers. Results are 0 or a value for success and negative for
// failure, unless the slot says otherwise.
struct ModemOps {
    // Model and revision text of the modem at an AT port; `text` holds at least 200 bytes.
    int (*get_identity)(const char *bus, const char *port, std::span<char> text) = nullptr;
    // Generation in use: "2G", "3G", "4G".
    int (*get_mode)(const ModemModel &model, std::span<char> mode) = nullptr;
    // Signal level 0 to 4 into `level`; returns the generation, or 1 where the reading does not tell it.
    int (*get_rssi)(const ModemModel &model, int32_t *level) = nullptr;
    // Measurements, one object each, into `signals`, and the level; returns the generation 2, 3 or 4, 0 where the
    // reading does not tell it, or -1.
    int (*signal_info)(const ModemModel &model, json_object *signals, int32_t *level) = nullptr;
    // 15 digits, not terminated.
    int (*get_imsi)(const ModemModel &model, std::span<char> imsi) = nullptr;
    // Restricts the modem at /dev/ttyUSB<tty_number> to a network mode.
    int (*set_mode)(int tty_number, int mode) = nullptr;
    // Deletes one received message by its file name, or all of them.
    int (*del_sms)(const char *file_name) = nullptr;
    int (*del_all_sms)() = nullptr;
    // Bring the data interface up or down, polling its state `wait_count` times; return that state: 0 up, 1 pending,
    // 2 down.
    int (*serial_connect)(int wait_count, const char *ifname) = nullptr;
    int (*disconnect)(int wait_count, const char *ifname) = nullptr;
    // Operator name as the network reports it.
    int (*get_operator)(const ModemModel &model, std::span<char> name) = nullptr;
    // Registration state 0 to 9 (3GPP TS 27.007, +CREG <stat>) of the modem at /dev/ttyUSB<tty_number>.
    int (*get_register_status)(int tty_number) = nullptr;
    // IMEI digits; `imei` holds at least 36 bytes.
    int (*get_gsn)(const char *port, const char *bus, std::span<char> imei) = nullptr;
    // Serving and neighbour cells, one object each, into `cells`.
    int (*cell_info)(const ModemModel &model, json_object *cells) = nullptr;
    // Writes the configured thermal limits into the modem.
    int (*thermal_ctrl)(const ModemModel &model) = nullptr;
    // 1 when the modem is on an aggregated LTE carrier.
    int (*check_cat6)(const ModemModel &model) = nullptr;
    // 0 when registered, -1 when not. A modem that cannot be asked is either, by its dialect.
    int (*check_register)(const ModemModel &model) = nullptr;
    // State of the SIM: 0 ready or not checkable, -1 error, -2 wants its PIN, -4 wants its PUK; a word on it in `text`
    // where the dialect has one.
    int (*check_simcard)(const ModemModel &model, std::span<char> text) = nullptr;
    // Writes the APN, or the APN with its credentials, into the modem.
    int (*set_apn)(const ModemModel &model, const char *apn) = nullptr;
    int (*set_ath)(const ModemModel &model, const char *apn, const char *username, const char *password,
                   const char *authentication) = nullptr;
    // 20 digits of the SIM's ICCID, not terminated.
    int (*get_qccid)(const ModemModel &model, std::span<char> iccid) = nullptr;
    // Configured bands, as texts, into `bands`.
    int (*get_band)(const ModemModel &model, json_object *bands) = nullptr;
    // Configured scan mode.
    int (*get_current_mode)(const ModemModel &model, std::span<char> mode) = nullptr;
};

constexpr size_t MODEM_OPERATION_COUNT = 23;
static_assert(sizeof(ModemOps) == MODEM_OPERATION_COUNT * sizeof(void (*)()),
              "one function pointer for each operation");

// Connection methods of a model, as bits of proto_flags. The values 0x01, 0x02 and 0x40 stand in rows,
// too; nothing here looks at them.
constexpr uint32_t PROTO_DIRECTIP = 0x04;
constexpr uint32_t PROTO_CALLIP = 0x10;
constexpr uint32_t PROTO_NCM = 0x20;

// modem_id of a copy for which no usable modem was found, and of the row for a modem that is not in the list.
constexpr int32_t MODEM_ID_NONE = -1;
constexpr int32_t MODEM_ID_UNKNOWN = 255;

struct ModemModel {
    const char *name;                 // reported where the modem's own identity cannot be read
    uint32_t vid;                     // USB vendor and product id
    uint32_t pid;                     //
    int32_t modem_id;                 // the model's number in the web interface; MODEM_ID_NONE: no modem
    char ifname[16] = "modem";        // UCI network interface; in a copy "modem_1_1_2" for bus 1-1.2
    int32_t control_port;             // USB interface number of the AT command port,
    int32_t data_port;                // of the port for PPP dialling,
    int32_t qmi_port = -1;            // and of the QMI port, -1 where the model has none
    char net_ifname[16] = "xxx";      // network device of the QMI or direct IP data path; "xxx": none
    char ppp_ifname[16] = "xxx";      // PPP interface; "xxx": none
    char ecm_ifname[16] = "xxx";      // Ethernet over USB device; "xxx": none
    char bus[12] = {};                // USB bus path such as "1-1.2"; empty in the rows
    uint32_t proto_flags;             // PROTO_ bits
    uint32_t skip_port_check = 0;     // bit 0: the AT port is accepted as data device
    uint32_t raw_ip = 0;              // 1: the QMI device needs raw IP framing
    uint8_t ttl = 0;                  // run-time field: TTL forced on forwarded packets, 0 for none
    const ModemModel *next = nullptr; // null in the last row
    ModemOps ops = {};
};

// First row of the built-in list.
extern const ModemModel *const modem_head;

// The first row from `head` on with this modem_id, or with these USB ids; null where there is none. No row has a
// negative id.
const ModemModel *modem_list_find_id(const ModemModel *head, int32_t modem_id);
const ModemModel *modem_list_find_usbid(const ModemModel *head, uint32_t vid, uint32_t pid);

// Fills the run-time fields of a copy for a bus: `bus`, and `ifname` ("modem_1_1_2" for "1-1.2"). Aborts where the bus
// does not fit them, so at 10 characters or more.
void replace_modem_struct(ModemModel *model, const char *bus);

// modem_id of the modem that the process works on, -1 while there is none.
extern int32_t cur_dev;

// Makes a copy, bound to its bus, the modem that the process works on.
void set_current_modem(const ModemModel &model);

// That copy; the row of cur_dev where that alone was set since. Null while there is none.
const ModemModel *current_modem();
