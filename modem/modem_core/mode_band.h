// Network mode and band: which generation the modem is using, what it is restricted to, and its bands.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <json-c/json.h>

#include "modem/model.h"

// Generation in use ("2G", "3G", "4G") of Quectel, ZTE and SIMCom modems. `mode` holds at least 3 bytes. Return 0, or
// -1 with `mode` untouched where the exchange fails or the modem names no known technology.
int modem_get_mode(const ModemModel &model, std::span<char> mode);
int zte_get_mode(const ModemModel &model, std::span<char> mode);
int simcom_get_mode(const ModemModel &model, std::span<char> mode);

// The pure halves of these: the text for a reply to AT+QNWINFO, AT+ZPAS? or AT+CNSMOD?; null where it names none.
const char *read_quectel_mode(const char *reply);
const char *read_zte_mode(const char *reply);
const char *read_simcom_mode(const char *reply);

// Restricts the Quectel modem at /dev/ttyUSB<tty_number>: 2 GSM only, 3 WCDMA only, 4 LTE only, anything else
// automatic. Returns 0 where the modem says "OK", else -1.
int modem_set_mode(int tty_number, int mode);

// The restriction of a Quectel modem ("AUTO", "GSM only", "WCDMA only", "LTE only") into `mode`, which holds at least
// 11 bytes. Returns 0, also with nothing written where the exchange fails or the reply names none; -1 with "ERROR"
// where the modem refuses.
int modem_get_current_mode(const ModemModel &model, std::span<char> mode);

// The pure half of it: the text for a reply to AT+QCFG="nwscanmode" that says "OK"; null where it names none.
const char *read_scan_mode(const char *reply);

// Adds the configured bands of a Quectel LTE-M and NB-IoT modem: "EGPRS", "Cat M1" and "Cat NB2", each a text of band
// names that ends in a blank. Nothing is added where the exchange fails. Returns 0. Aborts where the modem sends a mask
// of more digits than any modem has (8 for GSM, 40 for Cat M1, 41 for Cat NB2), or more bands than 99 characters name.
int modem_get_band(const ModemModel &model, json_object *bands);

// The pure half of it, for a reply to AT+QCFG="band" that says "OK".
void read_band_configuration(const char *reply, json_object *bands);

// The LTE band of the serving cell: the number in the UCI option where that holds one (at most 7 characters, more
// aborts), so that the modem need not be asked; otherwise what the Quectel modem on the bus says. 0 where it is
// unknown.
int modem_get_current_band(const char *bus, int32_t port_number, const char *option);

// Sends a reset command (at most 49 characters, more aborts) to an AT port. Returns 0 for "OK", else -1.
int soft_reset_mode(const char *port, const char *command);

// Converts hexadecimal text to bytes, high half first, with a "0" put in front of an odd number of digits. Returns the
// number of bytes and stores it through `count` unless that is null. Aborts where `bytes` is too small. Any other
// character counts too, as its code less 55 from ':' to 'f' and less 48 elsewhere, in the low four bits: a comma is 12,
// and band lists rely on that.
int StringToHex(std::string_view text, std::span<uint8_t> bytes, int *count);
