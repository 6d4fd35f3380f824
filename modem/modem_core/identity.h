// Who the modem and its SIM are: IMEI, model or revision, IMSI with its country and network codes, ICCID.
//
// The dialect is the one of 3GPP TS 27.007 with Quectel's ICCID query; models that speak another one have functions of
// their own in these slots. Three answers are kept in the modem's state directory (state_files.h), so that the modem is
// asked once until the directory goes: "modem-imei" (15 digits), "modem-name" (the text and a NUL) and "cimi" (the IMSI
// and a line feed). They are not refreshed while they are there.
//
// All return 0, or -1 where the port is not there, the exchange fails, the reply does not say "OK" or does not hold the
// value. Texts go into zero-filled buffers of the caller; one that is smaller than said here aborts.
#pragma once

#include <span>
#include <string_view>

#include "modem/model.h"

constexpr size_t IMEI_LENGTH = 15;
constexpr size_t IMSI_LENGTH = 15;
constexpr size_t ICCID_LENGTH = 20;
// The reply to AT+GSN is at most this long, its NUL included, and all digits in it are handed over.
constexpr size_t IMEI_BUFFER_SIZE = 36;
constexpr size_t IDENTITY_SIZE = 200;
// Three digits and a NUL, each.
constexpr size_t MCC_SIZE = 4;
constexpr size_t MNC_SIZE = 4;

// True when the text holds nothing but digits; also for an empty one.
bool is_all_digits(std::string_view text);

// --- Replies, without I/O ---

// Every digit of the reply to AT+GSN, joined, into `imei`, which holds at least as many bytes as the reply. Returns -1
// where there are fewer than 15.
int parse_imei(const char *reply, std::span<char> imei);

// What follows "Model:" in the reply to ATI or, only where that is absent, "Revision:", up to the line feed. A blank
// before it and a carriage return after it are part of it: clients search within the text. It is cut to 199 bytes.
// Returns -1 where neither is there or nothing follows; `text` is then untouched.
int parse_identity(const char *reply, std::span<char> text);

// The first digits of the reply that stand together, as many as `digits` holds; what comes after that many does not
// matter. Returns -1 where they are fewer; `digits` then begins with those. No NUL is added.
int parse_first_digits(const char *reply, std::span<char> digits);

// --- Queries ---

// Slot get_gsn. The IMEI of the modem at `port`: from "modem-imei", otherwise from the modem. `imei` holds
// IMEI_BUFFER_SIZE bytes. A damaged file is deleted, and the call fails; the next one asks the modem.
int modem_get_gsn(const char *port, const char *bus, std::span<char> imei);

// The IMEI by the model's own slot, on its AT port. `imei` as above.
int get_modem_imei(const ModemModel &model, std::span<char> imei);

// Slot get_identity. Model or revision of the modem at `port`: from "modem-name", whatever it holds, otherwise from the
// modem. `text` holds IDENTITY_SIZE bytes.
int modem_get_identity(const char *bus, const char *port, std::span<char> text);

// Slot get_imsi. The IMSI: from "cimi" where that has at least 6 bytes, otherwise from the modem. `imsi` receives
// IMSI_LENGTH bytes and no NUL. Nothing is written to "cimi".
int modem_get_imsi(const ModemModel &model, std::span<char> imsi);

// Slot get_qccid. The ICCID, `iccid` receives ICCID_LENGTH digits and no NUL. One of 19 digits, which a modem reports
// with an "F" behind them, is a failure.
int modem_get_qccid(const ModemModel &model, std::span<char> iccid);

// Country and network code from "cimi", which is written by the model's own get_imsi where it is missing. The network
// code is always three characters of the IMSI; who needs two digits cuts the third off. A damaged file is deleted.
// `mcc` and `mnc` hold MCC_SIZE and MNC_SIZE bytes.
int modem_get_mcc_mnc(const ModemModel &model, std::span<char> mcc, std::span<char> mnc);
