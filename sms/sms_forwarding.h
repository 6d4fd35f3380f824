// The endpoints of forwarding: received messages go on to telephones and by e-mail. The forwarding itself is other
// software of the router; it finds its targets in the package velaforward, and its mailer's account in ssmtp.conf.
#pragma once

#include <cstdint>

#include <json-c/json.h>

// "/modem/sms/forward": "tel" and "email", what messages are forwarded to, as the forwarding software reads it. With
// neither, nothing changes; with one, the other is cleared. Returns 0; -7 with "msg" where the router has no
// forwarding software. Aborts, with nothing written, where a text of 100 bytes or more could not be read back.
int32_t modem_sms_forward(json_object *request, json_object *reply);

// "/modem/sms/flist": reads no key. Reply, all texts, empty where unset: "tel_list", "email_list", "account",
// "password" (in clear), "smtp", "local_tel". Returns 0.
int32_t modem_sms_forward_get(json_object *request, json_object *reply);

// "/modem/sms/account": "account" (an e-mail address), "password", "smtp" (host or host:port) and "local_tel" (the
// router's own telephone number, at most 127 bytes); what is missing is empty. Writes velaforward.general.subject and
// ssmtp's configuration and mails a confirmation from the account to itself. Returns 0 once ssmtp has been given the
// mail, whether it arrives or not; -17 with "msg" where the router has no ssmtp, -17 alone where its configuration
// cannot be written. Waits for ssmtp for at most 15 seconds. Aborts, with nothing written or run, where a text does
// not fit.
int32_t modem_forward_account(json_object *request, json_object *reply);
