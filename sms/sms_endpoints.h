// The endpoints of received messages: list them, mark one read, delete one, delete all.
//
// All modems share one spool, so the modem that a request names decides nothing; but it has to be one.
#pragma once

#include <cstdint>

#include "api/handler.h"

constexpr int32_t API_MESSAGE_MISSING = -258; // no "msg_id"
constexpr int32_t API_DELETE_FAILED = -259;
constexpr int32_t API_MARK_FAILED = -264;

// Delete one message by its file name, or all, through the slots of a row: that of the unknown device for one, that of
// the given model for all. Return the slot's result: 0, or -1; -1 also where there is no such row or its slot is empty.
int del_modem_sms(const char *file_name);
int del_all_modem_sms(int32_t modem_id);

// "/modem/sms/list": "modem_id". Reply: "messages", an array (see modem_list_sms). Returns 0, -251 or -250.
int32_t list_modem_sms(json_object *request, json_object *reply);

// "/modem/sms/delete": "modem_id" and "msg_id", the message's file name. Returns, what comes first: -251 (no
// "modem_id"), -258 (no "msg_id", or no text), -250 (no such modem), -259 (no such message, or it stays), 0.
int32_t delete_modem_sms(json_object *request, json_object *reply);

// "/modem/sms/delete_all": "modem_id". Returns -251, -250, -259 (a directory of the spool is missing), 0.
int32_t delete_all_modem_sms(json_object *request, json_object *reply);

// "/modem/sms/status": "modem_id" and "msg_id". Marks the message read. Returns, what comes first: -251, -258, -250, 0,
// also where there is no such message (-264 is reserved for a store that can tell).
int32_t modem_sms_status(json_object *request, json_object *reply);
