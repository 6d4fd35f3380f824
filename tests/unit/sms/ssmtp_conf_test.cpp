// ssmtp's configuration: what is written, byte for byte, and what is read back of any file.
#include "sms/ssmtp_conf.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

constexpr const char *CONF = "/etc/ssmtp/ssmtp.conf";
constexpr const char *ALIASES = "/etc/ssmtp/revaliases";

std::string domain_of(const std::string &account) {
    char domain[MAIL_DOMAIN_SIZE];
    mail_domain(account.c_str(), domain);
    return domain;
}

// Server, password and account that are read of a file.
std::string read(std::string text) {
    SsmtpAccount account;
    text.resize(std::max<size_t>(text.size(), 1)); // fmemopen takes no empty buffer
    const File file(fmemopen(text.data(), text.size(), "r"));
    EXPECT_NE(file, nullptr);
    if (file == nullptr) {
        return "";
    }
    read_ssmtp_conf(file.get(), &account);
    return std::string(account.server) + "|" + account.password + "|" + account.account;
}

TEST(MailDomain, what_follows_the_first_at_sign) {
    EXPECT_EQ(domain_of("me@example.org"), "example.org");
    EXPECT_EQ(domain_of("a@b@c"), "b@c");
    EXPECT_EQ(domain_of("a@@c"), "@c");
    EXPECT_EQ(domain_of("a@b c"), "b");
    EXPECT_EQ(domain_of("a@ b"), "b");
}

TEST(MailDomain, none_without_something_on_both_sides) {
    for (const char *account : {"", "me", "@", "@example.org", "me@", "me@ \t"}) {
        EXPECT_EQ(domain_of(account), "") << account;
    }
}

TEST(MailDomain, ends_after_63_characters) {
    EXPECT_EQ(domain_of("a@" + std::string(63, 'x')), std::string(63, 'x'));
    EXPECT_EQ(domain_of("a@" + std::string(64, 'x')), std::string(63, 'x'));
    EXPECT_EQ(domain_of("a@" + std::string(5000, 'x')), std::string(63, 'x'));
}

TEST(SsmtpConf, is_written_byte_for_byte) {
    in_child_with_empty({"/etc"}, [] {
        fs::create_directories("/etc/ssmtp");
        EXPECT_EQ(set_ssmtp_conf("me@example.org", "se cret", "smtp.example.org:587", "example.org"), 0);
        EXPECT_EQ(read_file(CONF), "root=me@example.org\nmailhub=smtp.example.org:587\nrewriteDomain=example.org\n"
                                   "hostname=example.org\nAuthUser=me@example.org\nAuthPass=se cret\n"
                                   "AuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\nUseSTARTTLS=Yes\n");
        EXPECT_EQ(set_ssmtp_alias("me@example.org", "smtp.example.org:587"), 0);
        EXPECT_EQ(read_file(ALIASES), "root:me@example.org:smtp.example.org:587");
    });
}

TEST(SsmtpConf, a_shorter_one_leaves_nothing_of_the_longer) {
    in_child_with_empty({"/etc"}, [] {
        fs::create_directories("/etc/ssmtp");
        for (const char *path : {CONF, ALIASES}) {
            write_file(path, std::string(10000, 'x'));
        }
        EXPECT_EQ(set_ssmtp_conf("", "", "", ""), 0);
        EXPECT_EQ(read_file(CONF), "root=\nmailhub=\nrewriteDomain=\nhostname=\nAuthUser=\nAuthPass=\n"
                                   "AuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\n#UseSTARTTLS=Yes\n");
        EXPECT_EQ(set_ssmtp_alias("", ""), 0);
        EXPECT_EQ(read_file(ALIASES), "root::");
    });
}

TEST(SsmtpConf, starttls_where_587_stands_anywhere_in_the_server) {
    in_child_with_empty({"/etc"}, [] {
        fs::create_directories("/etc/ssmtp");
        for (const char *server : {"h:587", "587", "mx5875.example.org:465", "h:15870"}) {
            EXPECT_EQ(set_ssmtp_conf("a@b", "p", server, "b"), 0);
            EXPECT_NE(read_file(CONF).find("\nUseSTARTTLS=Yes\n"), std::string::npos) << server;
        }
        for (const char *server : {"h:465", "h", "", "58.7", "h:578"}) {
            EXPECT_EQ(set_ssmtp_conf("a@b587", "587", server, "b587"), 0);
            EXPECT_NE(read_file(CONF).find("\n#UseSTARTTLS=Yes\n"), std::string::npos) << server;
        }
    });
}

TEST(SsmtpConf, a_new_one_is_its_owners_alone_and_an_old_one_keeps_its_mode) {
    in_child_with_empty({"/etc"}, [] {
        fs::create_directories("/etc/ssmtp");
        const auto mode = [] {
            struct stat status = {};
            EXPECT_EQ(stat(CONF, &status), 0);
            return status.st_mode & 07777;
        };
        EXPECT_EQ(set_ssmtp_conf("a@b", "p", "h", "b"), 0);
        EXPECT_EQ(mode(), 0600u);
        EXPECT_EQ(chmod(CONF, 0640), 0);
        EXPECT_EQ(set_ssmtp_conf("a@b", "p", "h", "b"), 0);
        EXPECT_EQ(mode(), 0640u);
    });
}

TEST(SsmtpConf, what_cannot_be_written_is_told) {
    in_child_with_empty({"/etc"}, [] {
        EXPECT_EQ(set_ssmtp_conf("a@b", "p", "h", "b"), 1);
        EXPECT_EQ(set_ssmtp_alias("a@b", "h"), 1);
        for (const char *path : {CONF, ALIASES}) {
            fs::create_directories(path);
        }
        EXPECT_EQ(set_ssmtp_conf("a@b", "p", "h", "b"), 1);
        EXPECT_EQ(set_ssmtp_alias("a@b", "h"), 1);
        for (const char *path : {CONF, ALIASES}) {
            fs::remove(path);
            fs::create_symlink("/dev/full", path);
        }
        EXPECT_EQ(set_ssmtp_conf("a@b", "p", "h", "b"), 1);
        EXPECT_EQ(set_ssmtp_alias("a@b", "h"), 1);
    });
}

TEST(SsmtpConf, what_does_not_fit_aborts_and_leaves_the_old_file) {
    in_child_with_empty({"/etc"}, [] {
        fs::create_directories("/etc/ssmtp");
        // The six names, their "=" and line feeds.
        const size_t names = std::string("root=mailhub=rewriteDomain=hostname=AuthUser=AuthPass=").size() + 6;
        const size_t longest = SSMTP_HEAD_SIZE - 1 - names;
        EXPECT_EQ(set_ssmtp_conf("", std::string(longest, 'p').c_str(), "", ""), 0);
        EXPECT_NE(read_file(CONF).find("AuthPass=" + std::string(longest, 'p') + "\nAuthMethod"), std::string::npos);
        write_file(CONF, "old");
        EXPECT_ABORT(set_ssmtp_conf("", std::string(longest + 1, 'p').c_str(), "", ""));
        EXPECT_ABORT(set_ssmtp_conf(std::string(longest / 2 + 1, 'a').c_str(), "", "", ""));
        EXPECT_EQ(read_file(CONF), "old");
    });
}

TEST(ReadSsmtpConf, the_three_values_of_a_file_as_it_is_written) {
    EXPECT_EQ(read("root=me@b\nmailhub=h:465\nrewriteDomain=b\nhostname=b\nAuthUser=me@b\nAuthPass=secret\n"
                   "AuthMethod=LOGIN\nUseTLS=YES\nFromLineOverride=Yes\n#UseSTARTTLS=Yes\n"),
              "h:465|secret|me@b");
}

TEST(ReadSsmtpConf, a_value_is_what_follows_the_first_equals_sign_up_to_white_space) {
    EXPECT_EQ(read("AuthPass=a=b==\nmailhub = h i\nAuthUser=\tme\r\n"), "h|a=b==|me");
    EXPECT_EQ(read("mailhub\nAuthPass:p\nAuthUser"), "||");
    EXPECT_EQ(read("=mailhub=x"), "||");
}

TEST(ReadSsmtpConf, a_value_ends_after_127_characters) {
    const std::string longest(127, 'p');
    EXPECT_EQ(read("AuthPass=" + longest + "\n"), "|" + longest + "|");
    EXPECT_EQ(read("AuthPass=" + longest + "q\n"), "|" + longest + "|");
}

TEST(ReadSsmtpConf, a_later_line_overwrites_and_an_empty_one_does_not) {
    EXPECT_EQ(read("mailhub=a\nmailhub=b\n"), "b||");
    EXPECT_EQ(read("mailhub=a\nmailhub=\n#mailhub=c # old\n"), "c||");
    EXPECT_EQ(read("mailhub=a\nmailhub=\nmailhub\n"), "a||");
}

TEST(ReadSsmtpConf, a_line_feeds_the_first_of_the_values_that_it_names) {
    EXPECT_EQ(read("AuthUser=mailhub\n"), "mailhub||");
    EXPECT_EQ(read("AuthUser=AuthPass\n"), "|AuthPass|");
    EXPECT_EQ(read("AuthPass=AuthUser\n"), "|AuthUser|");
    EXPECT_EQ(read("xAuthUserx=me\n"), "||me");
}

TEST(ReadSsmtpConf, a_line_is_read_255_characters_at_a_time) {
    // "mailhub" across the cut is seen by neither piece; the second piece is a line of its own.
    EXPECT_EQ(read(std::string(251, '#') + "mailhub=a\n"), "||");
    EXPECT_EQ(read(std::string(255, '#') + "mailhub=a\n"), "a||");
    EXPECT_EQ(read("AuthUser" + std::string(246, ' ') + "=" + "me\n"), "||");
    EXPECT_EQ(read("AuthUser" + std::string(245, ' ') + "=" + "me\n"), "||m");
}

TEST(ReadSsmtpConf, nothing_of_what_is_no_configuration) {
    for (const std::string &text : {std::string(), std::string(100000, 'x'), std::string("\0mailhub=x\n", 11),
                                    std::string(5000, '\n'), std::string("\xff\xfe=\n")}) {
        EXPECT_EQ(read(text), "||") << text.size();
    }
}

TEST(ReadSsmtpConf, the_routers_own_and_none) {
    in_child_with_empty({"/etc"}, [] {
        SsmtpAccount account;
        memset(&account, 'x', sizeof account);
        get_ssmtp_account(&account);
        EXPECT_STREQ(account.server, "");
        EXPECT_STREQ(account.password, "");
        EXPECT_STREQ(account.account, "");
        fs::create_directories("/etc/ssmtp");
        EXPECT_EQ(set_ssmtp_conf("me@b", "p", "h", "b"), 0);
        get_ssmtp_account(&account);
        EXPECT_STREQ(account.server, "h");
        EXPECT_STREQ(account.password, "p");
        EXPECT_STREQ(account.account, "me@b");
    });
}

} // namespace
