// Factory bands: which command a revision gets, and the two exchanges with a modem on a pseudo-terminal.
#include "vendor/quectel_default_band.h"

#include <memory>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/files.h"
#include "support/modem_peer.h"
#include "support/replies.h"

namespace {

using namespace std::string_literals;

constexpr const char *NONE = "(none)";

constexpr const char *EC25AFFA = "AT+QCFG=\"band\",0,42000000000000381a,0";
constexpr const char *EC25AFXD = EC25AFFA;
constexpr const char *EC25AFA = "AT+QCFG=\"band\",0,80a,0";
constexpr const char *EC20CE = "AT+QCFG=\"band\",0,1e200000095,0";
constexpr const char *EC25EUX = "AT+QCFG=\"band\",0,1a0080800c5,0";
constexpr const char *EC25E = "AT+QCFG=\"band\",0,1a0000800d5,0";
constexpr const char *EP06E = "AT+QCFG=\"band\",0,7e00000000000000000000000000000000000000000000ff000001a0880800d5,0";
constexpr const char *EP06A = "AT+QCFG=\"band\",0,2000000003300185a,0";
constexpr const char *EC25AU = "AT+QCFG=\"band\",0,80080000df,0";
constexpr const char *EG25G = "AT+QCFG=\"band\",0,1e00b0e18df,0";

std::string command_for(const std::string &reply) {
    const char *command = read_default_band_command(reply.c_str());
    return command != nullptr ? command : NONE;
}

std::string ati(const std::string &revision) {
    return "ATI\r\r\nQuectel\r\nEC25\r\nRevision: " + revision + "\r\n\r\nOK\r\n";
}

std::string of_revision(const std::string &revision) {
    return command_for(ati(revision));
}

// The command for a revision.

TEST(DefaultBandCommand, every_variant) {
    const std::pair<const char *, const char *> expected[] = {
        {"EC25AFFAR07A08M4G", EC25AFFA}, {"EC25AFXDR08A09M4G", EC25AFXD}, {"EC25AFAR05A05M4G", EC25AFA},
        {"EC20CEHDLGR06A05M1G", EC20CE}, {"EC25EUXGAR08A03M1G", EC25EUX}, {"EC25EFAR06A03M4G", EC25E},
        {"EP06ELAR03A08M4G", EP06E},     {"EP06ALAR03A08M4G", EP06A},     {"EC25AUTFAR06A01M4G", EC25AU},
        {"EG25GGBR07A08M2G", EG25G},
    };
    for (const auto &[revision, command] : expected) {
        EXPECT_EQ(of_revision(revision), command) << revision;
    }
}

TEST(DefaultBandCommand, ec25eux_has_its_own_and_ec25e_with_other_letters_the_other) {
    EXPECT_EQ(of_revision("EC25EUXGAR08A03M1G"), EC25EUX);
    for (const char *revision : {"EC25EFAR06A03M4G", "EC25E", "EC25EUGAR06A03M4G", "EC25EU", "EC25EXU", "EC25Eux"}) {
        EXPECT_EQ(of_revision(revision), EC25E) << revision;
    }
}

TEST(DefaultBandCommand, ec25affa_is_not_ec25afa) {
    EXPECT_EQ(of_revision("EC25AFFAR07A08M4G"), EC25AFFA);
    EXPECT_NE(of_revision("EC25AFFAR07A08M4G"), EC25AFA);
}

TEST(DefaultBandCommand, the_first_of_the_table_decides_wherever_it_stands) {
    EXPECT_EQ(of_revision("EG25G EC25AU EP06A EP06E EC25EUX EC20CE EC25AFA EC25AFFA"), EC25AFFA);
    EXPECT_EQ(of_revision("EC25AFXD EC25AFFA"), EC25AFFA);
    EXPECT_EQ(of_revision("EC25AFA EC25AFXD"), EC25AFXD);
    EXPECT_EQ(of_revision("EC20CE EC25AFA"), EC25AFA);
    EXPECT_EQ(of_revision("EC25EUX EC20CE"), EC20CE);
    EXPECT_EQ(of_revision("EC25E EC25EUX"), EC25EUX);
    EXPECT_EQ(of_revision("EP06E EC25E"), EC25E);
    EXPECT_EQ(of_revision("EP06A EP06E"), EP06E);
    EXPECT_EQ(of_revision("EC25AU EP06A"), EP06A);
    EXPECT_EQ(of_revision("EG25G EC25AU"), EC25AU);
    EXPECT_EQ(of_revision("any text before EG25G"), EG25G);
}

TEST(DefaultBandCommand, variants_that_are_not_known) {
    for (const char *revision :
         {"", "EC25", "EC25AF", "EC25A", "EC20", "EP06", "EG25", "EG91EFBR06A04M4G", "UC20GQCR03A16E1G",
          "EC200TEUHAR05A01M16", "BG95M3LAR02A04", "EC100YCNAAR02A02M16", "ec25efar06a03m4g", "EC 25E", "EC25-E"}) {
        EXPECT_EQ(of_revision(revision), NONE) << revision;
    }
}

TEST(DefaultBandCommand, a_reply_without_a_revision) {
    for (const char *reply : {"", "\r\nOK\r\n", "\r\nQuectel\r\nEC25EFAR06A03M4G\r\n\r\nOK\r\n", "Revision EC25E",
                              "revision: EC25E\r\n", "Revision", "Revision : EC25E", "EC25E\r\nRevision:"}) {
        EXPECT_EQ(command_for(reply), NONE) << reply;
    }
}

TEST(DefaultBandCommand, the_revision_begins_right_behind_the_colon) {
    EXPECT_EQ(command_for("Revision:EC25E"), EC25E);
    EXPECT_EQ(command_for("Revision:  \t EC25E"), EC25E);
}

TEST(DefaultBandCommand, the_revision_ends_with_its_line) {
    EXPECT_EQ(command_for("Revision: UC20\nEC25E\r\nOK\r\n"), NONE);
    EXPECT_EQ(command_for("Revision: EC25E\n"), EC25E);
    EXPECT_EQ(command_for("Revision: \rEC25E\r\nOK\r\n"), EC25E) << "a carriage return alone is no line end";
    EXPECT_EQ(command_for("Revision: \nRevision: EC25E\n"), NONE) << "the first one counts";
    EXPECT_EQ(command_for("EC25E\r\nRevision: UC20\r\nEC25E\r\n"), NONE);
}

TEST(DefaultBandCommand, sixty_characters_are_looked_at) {
    EXPECT_EQ(command_for("Revision:" + std::string(55, ' ') + "EC25E\r\n"), EC25E);
    EXPECT_EQ(command_for("Revision:" + std::string(56, ' ') + "EC25E\r\n"), NONE);
    EXPECT_EQ(command_for("Revision:" + std::string(53, ' ') + "EC25EUX"), EC25EUX);
    EXPECT_EQ(command_for("Revision:" + std::string(54, ' ') + "EC25EUX"), EC25E) << "what is left of it";
    EXPECT_EQ(command_for("Revision:" + std::string(100000, 'x') + "EC25E\r\n"), NONE);
    EXPECT_EQ(command_for("Revision: EC25E" + std::string(100000, 'x')), EC25E);
}

TEST(DefaultBandCommand, the_recorded_ones) {
    const std::pair<const char *, const char *> expected[] = {
        {"quectel-ec20/ati--ec20cefrsg", EC20CE},         {"quectel-ec20/ati--ec20cehdlg", EC20CE},
        {"quectel-ec20/ati--manual-ec20cefdr01", EC20CE}, {"quectel-ec20/ati-compound--ec20f-no-sim-net", EC20CE},
        {"quectel-eg25/ati--eg25ggbr07a08m2g", EG25G},
    };
    for (const auto &[name, command] : expected) {
        EXPECT_EQ(command_for(recorded_reply(name)), command) << name;
    }
}

TEST(DefaultBandCommand, recorded_ones_of_other_variants_and_makers) {
    for (const char *name :
         {"quectel-ec20/ati-csub--echo-ec20eqar02", "quectel-ec200u/ati", "quectel-m26/ati--echo-old-family-names",
          "quectel-rm520n/ati--echo", "quectel-uc20/ati--echo-lowercase", "fibocom-fm160/ati",
          "fibocom-fm350/ati--three-lines", "sierra-mc7455/ati--swi9x30c-0233", "sierra-wp76xx/ati9",
          "sierra-wp77xx/ati--sv-two-blanks", "simcom-sim7600/ati--sim7600m22-echo",
          "simcom-sim7600/ati--lone-cr-line-ends", "simcom-sim7600/ati--urcs-after-ok-no-leading-crlf",
          "simcom-sim7600/ati--sim7600g-h-v202", "simcom-sim7670/simcomati--two-line-revision", "zte-zm9000/ati--b17",
          "zte-zm9000/ati--v2b02"}) {
        EXPECT_EQ(command_for(recorded_reply(name)), NONE) << name;
    }
}

TEST(DefaultBandCommand, a_reply_cut_after_every_byte_gives_the_command_once_the_name_is_there) {
    const std::string whole = ati("EC25EFAR06A03M4G");
    const size_t there = whole.find("EC25E") + 5;
    for (size_t length = 0; length <= whole.size(); length++) {
        const auto reply = std::make_unique<char[]>(length + 1);
        whole.copy(reply.get(), length);
        const char *command = read_default_band_command(reply.get());
        EXPECT_STREQ(command, length >= there ? EC25E : nullptr) << length;
    }
}

// The exchanges.

struct Outcome {
    int result;
    std::string reply;
    bool operator==(const Outcome &) const = default;
};
void PrintTo(const Outcome &outcome, std::ostream *out) {
    *out << outcome.result << " " << testing::PrintToString(outcome.reply);
}

Outcome set(const char *port) {
    std::vector<char> reply(500, 'x');
    const int result = quectel_set_default_band(port, reply);
    return {result, reply.data()};
}

// A modem that gives these answers to the commands that it gets.
ModemPeer::Script answers(const std::vector<std::string> &replies) {
    return [replies](ModemPeer &peer) {
        for (const std::string &reply : replies) {
            peer.read_line();
            peer.write(reply);
        }
    };
}

TEST(DefaultBand, the_modem_is_asked_who_it_is_and_gets_its_bands) {
    const std::string accepted = EP06E + "\r\r\nOK\r\n"s;
    ModemPeer modem(answers({ati("EP06ELAR03A08M4G"), accepted}));
    EXPECT_EQ(set(modem.path()), (Outcome{0, accepted}));
    modem.stop();
    EXPECT_EQ(modem.received(), "ATI\r\n"s + EP06E + "\r\n");
}

TEST(DefaultBand, a_band_command_that_is_refused_leaves_the_modems_answer) {
    for (const char *refusal : {"\r\nERROR\r\n", "\r\n+CME ERROR: 3\r\n", "\r\nOK"}) {
        ModemPeer modem(answers({ati("EG25GGBR07A08M2G"), refusal}));
        EXPECT_EQ(set(modem.path()), (Outcome{-2, refusal}));
        modem.stop();
        EXPECT_EQ(modem.received(), "ATI\r\n"s + EG25G + "\r\n");
    }
}

TEST(DefaultBand, nothing_else_is_sent_where_the_first_answer_names_no_variant) {
    for (const std::string &identity : {"\r\nQuectel\r\nEC25\r\n\r\nOK\r\n"s, ati("UC20GQCR03A16E1G"), "\r\nERROR\r\n"s,
                                        "Revision: EC25E\r\nERROR\r\n"s, "Revision: EC25E OK"s}) {
        ModemPeer modem(answers({identity, "\r\nOK\r\n"}));
        EXPECT_EQ(set(modem.path()), (Outcome{-2, ""})) << identity;
        modem.stop();
        EXPECT_EQ(modem.received(), "ATI\r\n") << identity;
    }
}

TEST(DefaultBand, a_first_answer_longer_than_399_bytes_is_cut) {
    const std::string filling(400, '.');
    ModemPeer modem(answers({"Revision: EC25E\r\n" + filling, "\r\nOK\r\n"}));
    EXPECT_EQ(set(modem.path()), (Outcome{-2, ""})) << "its OK does not come";
    modem.stop();
    EXPECT_EQ(modem.received(), "ATI\r\n");
}

TEST(DefaultBand, a_second_answer_longer_than_499_bytes_is_cut) {
    const std::string filling(500, '.');
    ModemPeer modem(answers({ati("EC25EFAR06A03M4G"), filling + "\r\nOK\r\n"}));
    EXPECT_EQ(set(modem.path()), (Outcome{-2, filling.substr(0, 499)})) << "its OK does not come";
}

TEST(DefaultBand, a_port_that_cannot_be_opened) {
    const Capture errors(STDERR_FILENO);
    for (const char *port : {"/nonexistent/ttyUSB2", "", "/dev/null"}) {
        EXPECT_EQ(set(port), (Outcome{-2, ""})) << port;
    }
}

TEST(DefaultBand, a_port_that_another_takes_between_the_two_commands) {
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        peer.write(ati("EC25EFAR06A03M4G"));
        flock(peer.terminal().tty(), LOCK_EX); // as soon as the first exchange lets it go
    });
    EXPECT_EQ(set(modem.path()), (Outcome{-2, ""}));
    modem.stop();
    EXPECT_EQ(modem.received(), "ATI\r\n");
}

TEST(DefaultBand, a_larger_buffer_is_cleared_to_its_end) {
    ModemPeer modem(answers({ati("EC20CEFILGR06A02M1G"), "\r\nOK\r\n"}));
    std::vector<char> reply(4096, 'x');
    EXPECT_EQ(quectel_set_default_band(modem.path(), reply), 0);
    EXPECT_EQ(std::string(reply.data(), reply.size()), "\r\nOK\r\n" + std::string(4090, '\0'));
}

} // namespace
