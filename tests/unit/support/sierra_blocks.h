// Status blocks of Sierra Wireless modems, composed for tests: what a MC7430 answers to AT!GSTATUS?.
#pragma once

#include <string>

namespace sierra_blocks {

// A block of these lines (LF between them).
inline std::string block(const std::string &lines) {
    std::string wire = "\r\n!GSTATUS: \r\n";
    for (const char character : lines + "\n\n\nOK\n") {
        wire += character == '\n' ? "\r\n" : std::string(1, character);
    }
    return wire;
}

// The lines of an LTE modem that count for its signal.
inline std::string lte_lines(const std::string &rssi, const std::string &rsrp, const std::string &rsrq,
                             const std::string &sinr) {
    std::string lines = "System mode:   LTE        \tPS state:    Attached     \n";
    lines += "PCC RxM RSSI:  " + rssi + "\t\tRSRP (dBm):  " + rsrp + "\n";
    lines += "RSRQ (dB):     " + rsrq + "\t\tCell ID:     0A1B2C3D (169552957)\n";
    return lines + "SINR (dB):     " + sinr;
}

// A WCDMA modem's lines.
inline const char *const WCDMA_LINES = "Current Time:  1350\t\tTemperature: 32\n"
                                       "Reset Counter: 1\t\tMode:        ONLINE         \n"
                                       "System mode:   WCDMA      \tPS state:    Attached     \n"
                                       "WCDMA band:    WCDMA 2100 \n"
                                       "WCDMA channel: 10662\n"
                                       "GMM (PS) state:REGISTERED \tNORMAL SERVICE \n"
                                       "MM (CS) state: IDLE       \tNORMAL SERVICE \n"
                                       "\n"
                                       "WCDMA L1 state:L1M_DCH    \tLAC:         1A2B (6699)\n"
                                       "RRC state:     CELL_DCH   \tUTRAN Cell ID: 01A2B3C4 (27440068)\n"
                                       "RxM RSSI C0:   -68\t\tRxD RSSI C0:   -75\n"
                                       "RxM RSSI C1:   -106\t\tRxD RSSI C1:   -110";

// The lines of an LTE modem with a secondary carrier.
inline const char *const AGGREGATED_LINES = "System mode:   LTE        \tPS state:    Attached     \n"
                                            "LTE band:      B2     \t\tLTE bw:      20 MHz  \n"
                                            "LTE Rx chan:   800\t\tLTE Tx chan: 18800\n"
                                            "LTE CA state:  ACTIVE      \t\tLTE Scell band:B12    \n"
                                            "LTE Scell bw:10 MHz  \t\tLTE Scell chan:5110\n"
                                            "\n"
                                            "PCC RxM RSSI:  -45\t\tRSRP (dBm):  -81\n"
                                            "PCC RxD RSSI:  -44\t\tRSRP (dBm):  -79\n"
                                            "SCC RxM RSSI:  -52\t\tRSRP (dBm):  -83\n"
                                            "SCC RxD RSSI:  -51\t\tRSRP (dBm):  -80\n"
                                            "Tx Power:      15\t\tTAC:         7B21 (31521)\n"
                                            "RSRQ (dB):     -14.0\t\tCell ID:     0A1B2C3D (169552957)\n"
                                            "SINR (dB):     23.8";

} // namespace sierra_blocks
