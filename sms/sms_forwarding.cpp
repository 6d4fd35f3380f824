// Forwarding of received messages; see sms_forwarding.h.
#include "sms/sms_forwarding.h"

#include "api/handler.h"
#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"
#include "sms/ssmtp_conf.h"

namespace {

constexpr int32_t API_NO_FORWARDING = -7; // the router has no forwarding software

constexpr const char *PHONE = "velaforward.general.phone";
constexpr const char *EMAIL = "velaforward.general.email";
constexpr const char *SUBJECT = "velaforward.general.subject";

using PhoneList = char[100];
using EmailList = char[100];
using LocalNumber = char[128];

// A text that a later request could not read back aborts before anything is written.
template <typename Readable> void require_readable(const char *text) {
    Readable buffer;
    text_copy(buffer, text != nullptr ? text : "");
}

const char *text_or_empty(json_object *request, const char *key) {
    const char *text = vjson_get_string(request, key);
    return text != nullptr ? text : "";
}

} // namespace

int32_t modem_sms_forward(json_object *request, json_object *reply) {
    if (cmm_check_file_is_exist("/etc/forward") == 0) {
        vjson_add_string(reply, "msg", "Forward file don't exist");
        return API_NO_FORWARDING;
    }
    const char *phones = vjson_get_string(request, "tel");
    const char *emails = vjson_get_string(request, "email");
    if (phones == nullptr && emails == nullptr) {
        return API_OK;
    }
    require_readable<PhoneList>(phones);
    require_readable<EmailList>(emails);
    UciHandle *configuration = vuci2_init();
    vuci2_set(configuration, PHONE, phones);
    vuci2_set(configuration, EMAIL, emails);
    vuci2_commit(configuration, "velaforward");
    vuci2_free(configuration);
    return API_OK;
}

int32_t modem_sms_forward_get(json_object * /*request*/, json_object *reply) {
    PhoneList phones = {};
    EmailList emails = {};
    LocalNumber local_number = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, PHONE, phones);
    vuci2_get(configuration, EMAIL, emails);
    vuci2_get(configuration, SUBJECT, local_number);
    vuci2_free(configuration);
    SsmtpAccount mail;
    get_ssmtp_account(&mail);
    vjson_add_string(reply, "tel_list", phones);
    vjson_add_string(reply, "email_list", emails);
    vjson_add_string(reply, "account", mail.account);
    vjson_add_string(reply, "password", mail.password);
    vjson_add_string(reply, "smtp", mail.server);
    vjson_add_string(reply, "local_tel", local_number);
    return API_OK;
}

int32_t modem_forward_account(json_object *request, json_object *reply) {
    constexpr int MAIL_SECONDS = 15;
    const char *account = text_or_empty(request, "account");
    const char *password = text_or_empty(request, "password");
    const char *server = text_or_empty(request, "smtp");
    const char *local_number = vjson_get_string(request, "local_tel");
    char domain[MAIL_DOMAIN_SIZE];
    mail_domain(account, domain);

    // Whatever does not fit ends the process here, before the first command has run.
    require_readable<LocalNumber>(local_number);
    char head[SSMTP_HEAD_SIZE];
    format_ssmtp_head(head, account, password, server, domain);
    char mail[511];
    text_format(mail,
                "timeout 15 echo -e 'From: %s\nSubject:Verification email\nContent-Type: text/html;charset=UTF-8\n\n"
                " This email account has been set to sms forward sender successfully - Tessaly'| ssmtp -vvv '%s' ",
                account, account);

    char installed[32] = {};
    getShellCommandReturnLine("opkg list-installed | grep ssmtp", installed);
    if (installed[0] == '\0') {
        vjson_add_string(reply, "msg", "ssmtp don't exist");
        return API_NOT_SUPPORTED;
    }
    UciHandle *configuration = vuci2_init();
    vuci2_set(configuration, SUBJECT, local_number);
    vuci2_commit(configuration, "velaforward");
    vuci2_free(configuration);
    if (set_ssmtp_conf(account, password, server, domain) != 0 || set_ssmtp_alias(account, server) != 0) {
        return API_NOT_SUPPORTED;
    }
    // The command's own limit holds for its first half only; it is the mailer that a silent server keeps waiting.
    execCommandWithin(mail, MAIL_SECONDS);
    return API_OK;
}
