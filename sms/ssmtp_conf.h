// The configuration of ssmtp, the router's mailer, with the one account that forwarded messages are sent from; see
// ssmtp.conf(5). Both files are rewritten whole, since the account owns them, and read by whatever sends mail.
#pragma once

#include <cstdio>
#include <span>

// Room for the lines of ssmtp.conf that name the account.
constexpr int SSMTP_HEAD_SIZE = 2047;
// Room for the domain of an account, and for each value that is read back.
constexpr int MAIL_DOMAIN_SIZE = 64;
constexpr int SSMTP_VALUE_SIZE = 128;

// The domain of an e-mail address: what follows its first "@", up to white space and at most 63 characters. Empty where
// the address has no "@", nothing before it or nothing behind it.
void mail_domain(const char *account, std::span<char, MAIL_DOMAIN_SIZE> domain);

// The first six lines of ssmtp.conf, from "root=" to "AuthPass=". Aborts where they do not fit.
void format_ssmtp_head(std::span<char, SSMTP_HEAD_SIZE> head, const char *account, const char *password,
                       const char *server, const char *domain);

// Write "/etc/ssmtp/ssmtp.conf", with STARTTLS where "587" stands anywhere in the server's text (host or host:port),
// and "/etc/ssmtp/revaliases", which makes the account the sender of what root sends. Return 0, or 1 when the file
// cannot be written. The first holds the password in clear, as ssmtp reads it; where it has to be created, only its
// owner can read it. set_ssmtp_conf aborts, before it opens the file, where the values do not fit SSMTP_HEAD_SIZE.
int set_ssmtp_conf(const char *account, const char *password, const char *server, const char *domain);
int set_ssmtp_alias(const char *account, const char *server);

// What ssmtp.conf says of the account; empty texts where it says nothing.
struct SsmtpAccount {
    char server[SSMTP_VALUE_SIZE];
    char password[SSMTP_VALUE_SIZE];
    char account[SSMTP_VALUE_SIZE];
};

// Reads an ssmtp.conf from the start of `file`: each line for the first of the three that it names, in the order
// server, password, account, and a later line over an earlier one. A value ends at white space and after 127
// characters, a line after 255 (what follows counts as the next); one without a value leaves what was there. A comment
// that names a value counts like any other line.
void read_ssmtp_conf(FILE *file, SsmtpAccount *account);

// The same of the router's own ssmtp.conf; all empty where that cannot be opened.
void get_ssmtp_account(SsmtpAccount *account);
