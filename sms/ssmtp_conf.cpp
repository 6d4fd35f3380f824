// ssmtp's two configuration files; see ssmtp_conf.h.
#include "sms/ssmtp_conf.h"

#include <cstring>
#include <fcntl.h>

#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr const char *SSMTP_CONF = "/etc/ssmtp/ssmtp.conf";
constexpr const char *REVALIASES = "/etc/ssmtp/revaliases";

constexpr mode_t OWNER_ONLY = 0600;
constexpr mode_t READABLE = 0644;

// What every account has in common.
constexpr const char *FIXED_LINES = "AuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\n";

// The mail submission port, where a connection begins in clear and STARTTLS turns it into TLS (RFC 6409, RFC 3207); on
// others it is TLS from its start. A host name with these digits counts, too; the router's pages know it so.
constexpr const char *SUBMISSION_PORT = "587";

File rewrite(const char *path, mode_t mode) {
    Descriptor fd(above_the_streams(open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, mode)));
    File file(fd.valid() ? fdopen(fd.get(), "w+") : nullptr);
    if (file != nullptr) {
        fd.release();
    }
    return file;
}

// Whether all that was printed has reached the file: on a full flash that shows at the end.
bool finish(File file) {
    const bool printed = ferror(file.get()) == 0;
    return fclose(file.release()) == 0 && printed;
}

struct ReadValue {
    char name[9];
    char (SsmtpAccount::*value)[SSMTP_VALUE_SIZE];
};

constexpr ReadValue READ_VALUES[] = {
    {"mailhub", &SsmtpAccount::server},
    {"AuthPass", &SsmtpAccount::password},
    {"AuthUser", &SsmtpAccount::account},
};

} // namespace

void mail_domain(const char *account, std::span<char, MAIL_DOMAIN_SIZE> domain) {
    text_clear(domain);
    sscanf(account, "%*[^@]@%63s", domain.data());
}

void format_ssmtp_head(std::span<char, SSMTP_HEAD_SIZE> head, const char *account, const char *password,
                       const char *server, const char *domain) {
    text_format(head, "root=%s\nmailhub=%s\nrewriteDomain=%s\nhostname=%s\nAuthUser=%s\nAuthPass=%s\n", account, server,
                domain, domain, account, password);
}

int set_ssmtp_conf(const char *account, const char *password, const char *server, const char *domain) {
    char head[SSMTP_HEAD_SIZE];
    format_ssmtp_head(head, account, password, server, domain);
    File file = rewrite(SSMTP_CONF, OWNER_ONLY);
    if (file == nullptr) {
        return 1;
    }
    fputs(head, file.get());
    fputs(FIXED_LINES, file.get());
    fputs(strstr(server, SUBMISSION_PORT) != nullptr ? "UseSTARTTLS=Yes\n" : "#UseSTARTTLS=Yes\n", file.get());
    return finish(std::move(file)) ? 0 : 1;
}

int set_ssmtp_alias(const char *account, const char *server) {
    File file = rewrite(REVALIASES, READABLE);
    if (file == nullptr) {
        return 1;
    }
    fprintf(file.get(), "root:%s:%s", account, server);
    return finish(std::move(file)) ? 0 : 1;
}

void read_ssmtp_conf(FILE *file, SsmtpAccount *account) {
    *account = {};
    char line[256];
    while (fgets(line, sizeof line, file) != nullptr) {
        for (const ReadValue &row : READ_VALUES) {
            if (strstr(line, row.name) != nullptr) {
                sscanf(line, "%*[^=]=%127s", account->*row.value);
                break;
            }
        }
    }
}

void get_ssmtp_account(SsmtpAccount *account) {
    *account = {};
    const File file(fopen(SSMTP_CONF, "re"));
    if (file != nullptr) {
        read_ssmtp_conf(file.get(), account);
    }
}
