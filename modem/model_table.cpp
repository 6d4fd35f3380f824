// The supported models: one row each. This is the one place that knows every driver.
//
// To add a model, add its row, and its file for the simulated router (sim/README.md).
#include "modem/model_table.h"

#include <iterator>

namespace {

constexpr ModemModel ROWS[] = {
    {
        .name = "EC20",
        .vid = 0x05c6,
        .pid = 0x9215,
        .modem_id = 0,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x43,
    },
    {
        .name = "EC25",
        .vid = 0x2c7c,
        .pid = 0x0125,
        .modem_id = 3,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x43,
    },
    {
        .name = "EP06",
        .vid = 0x2c7c,
        .pid = 0x0306,
        .modem_id = 1,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x43,
    },
    {
        .name = "UC20",
        .vid = 0x05c6,
        .pid = 0x9003,
        .modem_id = 4,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x1,
    },
    {
        .name = "MC7430",
        .vid = 0x1199,
        .pid = 0x9071,
        .modem_id = 5,
        .control_port = 3,
        .data_port = 3,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "xxx",
        .ecm_ifname = "xxx",
        .proto_flags = 0x4,
        .skip_port_check = 1, // one port serves AT commands and dialling
    },
    {
        .name = "SIMCOM7600",
        .vid = 0x1e0e,
        .pid = 0x9001,
        .modem_id = 20,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "xxx",
        .ecm_ifname = "xxx",
        .proto_flags = 0x21,
    },
    {
        .name = "ME3630",
        .vid = 0x19d2,
        .pid = 0x1476,
        .modem_id = 30,
        .control_port = 1,
        .data_port = 2,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "usb0",
        .proto_flags = 0x21,
    },
    {
        .name = "EC200T",
        .vid = 0x2c7c,
        .pid = 0x6026,
        .modem_id = 6,
        .control_port = 3,
        .data_port = 4,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "usb0",
        .proto_flags = 0x61,
    },
    {
        .name = "BG95",
        .vid = 0x2c7c,
        .pid = 0x0700,
        .modem_id = 7,
        .control_port = 2,
        .data_port = 2,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x1,
        .skip_port_check = 1, // one port serves AT commands and dialling
    },
    {
        .name = "EG91",
        .vid = 0x2c7c,
        .pid = 0x0191,
        .modem_id = 8,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x3,
        .skip_port_check = 1,
    },
    {
        .name = "EC100Y",
        .vid = 0x2c7c,
        .pid = 0x6001,
        .modem_id = 9,
        .control_port = 1,
        .data_port = 1,
        .qmi_port = -1,
        .net_ifname = "xxx",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x1,
        .skip_port_check = 1, // one port serves AT commands and dialling
    },
    {
        .name = "NL678E",
        .vid = 0x2cb7,
        .pid = 0x0104,
        .modem_id = 40,
        .control_port = 2,
        .data_port = 3,
        .qmi_port = 4,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x3,
        .raw_ip = 1,
    },
    {
        // Any modem whose USB ids are in no other row, as long as it has ports. Clients know it by this spelling.
        .name = "UknowDevice",
        .vid = 0,
        .pid = 0,
        .modem_id = MODEM_ID_UNKNOWN,
        .control_port = 0,
        .data_port = 0,
        .qmi_port = -1,
        .net_ifname = "wwan0",
        .ppp_ifname = "3g-modem",
        .ecm_ifname = "xxx",
        .proto_flags = 0x1,
        .skip_port_check = 1,
    },
};

static_assert(std::size(ROWS) == MODEM_MODEL_COUNT);

// The rows as the linked list that their readers walk.
struct ModemModelTable {
    ModemModel rows[MODEM_MODEL_COUNT];

    constexpr ModemModelTable() : rows() {
        for (size_t index = 0; index < MODEM_MODEL_COUNT; index++) {
            rows[index] = ROWS[index];
            rows[index].next = index + 1 < MODEM_MODEL_COUNT ? &rows[index + 1] : nullptr;
        }
    }
};

constinit const ModemModelTable TABLE;

} // namespace

const ModemModel *const modem_head = TABLE.rows;
