// "/modem/brief_info" and "/modem/app/brief_info": short lists of the configured modems, for the web interface and for
// the mobile application.
#pragma once

#include "api/handler.h"

// Request: nothing. Reply: "modems", an array with one object for each configured modem that is there, in the order of
// their configuration. Return API_OK; API_NO_SUCH_MODEM, with nothing added, where none is there.
int32_t get_modem_brief_info(json_object *request, json_object *reply);
int32_t get_modem_app_brief_info(json_object *request, json_object *reply);

// Detect the modem on the bus for one object of these lists and fill the object. Return the model found; its modem_id
// is MODEM_ID_NONE, and the object is of no use, where there is none. What went wrong is told with DEBUG_printf. Abort
// where the bus does not fit its field, so at 10 characters or more.
//
// The brief object: "version" (of the firmware, see keep_version_characters; that of the EP06 or EC25 on the usual
// bus, otherwise empty), "name" and "IMEI" (as they were kept in the state directory, or else from the modem; "IMEI"
// is left out where it cannot be had) and "bus". A modem whose ports are not there yet, or whose ids are in no row,
// counts as none.
//
// The application's object: "bus" and the keys of modem_read_carrier and modem_read_status; of a modem whose ids are in
// no row what detect_unknow_modem reports. The ports are not looked at.
ModemModel detect_modem_brief_info(const char *bus, json_object *object);
ModemModel detect_modem_app_brief_info(const char *bus, json_object *object);
