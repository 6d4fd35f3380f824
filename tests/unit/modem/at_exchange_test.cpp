// One exchange with a modem on a pseudo-terminal: what it gets, what of its answer comes back, and when it is over.
#include "modem/at_exchange.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "modem/at_reply.h"
#include "platform/owners.h"
#include "support/aborts.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/modem_peer.h"
#include "support/replies.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::string_view SIGNAL_REPLY = "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n";

// A command in a buffer with just the room that it needs.
std::vector<char> command_line(std::string_view text) {
    std::vector<char> buffer(text.size() + COMMAND_TAIL);
    std::copy(text.begin(), text.end(), buffer.begin());
    return buffer;
}

struct Exchange {
    int result;
    std::string bytes; // the whole buffer
    std::string text() const { return bytes.c_str(); }
};

// One exchange with a reply buffer of exactly `size` bytes.
Exchange exchange(const char *port, std::string_view command, size_t size = 4096) {
    std::vector<char> line = command_line(command);
    std::vector<char> reply(size);
    const int result = send_command(port, line, reply.data(), static_cast<int>(size));
    return {result, std::string(reply.begin(), reply.end())};
}

TEST(AtExchange, a_reply_ends_at_ok_and_is_returned_whole_with_its_echo) {
    ModemPeer modem(answer(std::string(SIGNAL_REPLY)));
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text(), SIGNAL_REPLY);
    EXPECT_EQ(is_ok(done.text().c_str()), 1);
}

TEST(AtExchange, the_modem_gets_the_command_with_return_and_line_feed) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(exchange(modem.path(), "AT+QCFG=\"band\"").result, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), "AT+QCFG=\"band\"\r\n");
}

TEST(AtExchange, the_line_end_is_appended_in_the_callers_buffer) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    std::vector<char> line = command_line("ATI");
    std::fill(line.begin() + 4, line.end(), 'x');
    std::array<char, 64> reply = {};
    EXPECT_EQ(send_command(modem.path(), line, reply.data(), reply.size()), 0);
    EXPECT_EQ(std::string(line.begin(), line.end()), "ATI\r\n\0"s);
}

TEST(AtExchange, an_empty_command_is_a_line_end) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(exchange(modem.path(), "").result, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), "\r\n");
}

TEST(AtExchange, a_long_command_arrives_whole) {
    const std::string command = "AT+CMGS=" + std::string(2000, '7');
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(exchange(modem.path(), command).result, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), command + "\r\n");
}

TEST(AtExchange, a_command_buffer_without_room_for_the_line_end_aborts) {
    const PseudoTerminal terminal;
    std::array<char, 64> reply = {};
    for (size_t room = 0; room < COMMAND_TAIL; room++) {
        std::vector<char> line(3 + room);
        memcpy(line.data(), "ATI", 3);
        EXPECT_ABORT(send_command(terminal.path(), line, reply.data(), reply.size()));
    }
    EXPECT_ABORT(send_command(terminal.path(), std::span<char>(), reply.data(), reply.size()));
}

TEST(AtExchange, an_error_ends_a_reply) {
    for (const char *answered : {"\r\nERROR\r\n", "\r\n+CME ERROR: 10\r\n", "\r\n+CMS ERROR: 350\r\n"}) {
        ModemPeer modem(answer(answered));
        const Exchange done = exchange(modem.path(), "AT+CPIN?");
        EXPECT_EQ(done.result, 0);
        EXPECT_EQ(done.text(), answered);
        EXPECT_EQ(is_ok(done.text().c_str()), 0);
    }
}

TEST(AtExchange, an_ok_without_a_line_end_ends_the_exchange_but_is_not_ok) {
    ModemPeer modem(answer("\r\n+CSQ: 20,99\r\n\r\nOK"));
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text(), "\r\n+CSQ: 20,99\r\n\r\nOK");
    EXPECT_EQ(is_ok(done.text().c_str()), 0);
}

TEST(AtExchange, an_ok_inside_an_operator_name_ends_the_exchange) {
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        peer.write("\r\n+COPS: 0,0,\"TOKYO");
    });
    const Exchange done = exchange(modem.path(), "AT+COPS?");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text(), "\r\n+COPS: 0,0,\"TOKYO");
}

TEST(AtExchange, a_reply_that_comes_byte_by_byte) {
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        for (char byte : SIGNAL_REPLY) {
            peer.write({&byte, 1});
            peer.pause(milliseconds(15));
        }
    });
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    EXPECT_EQ(done.result, 0);
    // After the "OK" the line end may come too late.
    EXPECT_EQ(done.text().substr(0, SIGNAL_REPLY.size() - 2), SIGNAL_REPLY.substr(0, SIGNAL_REPLY.size() - 2));
}

TEST(AtExchange, a_silence_within_the_limit_does_not_end_a_reply) {
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        peer.pause(milliseconds(1200));
        peer.write("\r\n+CSQ: 20,99\r\n");
        peer.pause(milliseconds(1200));
        peer.write("\r\nOK\r\n");
    });
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text(), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
}

TEST(AtExchange, unsolicited_lines_stay_in_the_reply) {
    ModemPeer modem(answer("\r\n+QIND: \"csq\",20,99\r\n\r\n+CSQ: 20,99\r\n\r\nRDY\r\n\r\nOK\r\n"));
    EXPECT_EQ(exchange(modem.path(), "AT+CSQ").text(),
              "\r\n+QIND: \"csq\",20,99\r\n\r\n+CSQ: 20,99\r\n\r\nRDY\r\n\r\nOK\r\n");
}

TEST(AtExchange, what_the_modem_said_before_the_command_is_discarded) {
    ModemPeer modem([](ModemPeer &peer) {
        termios raw = peer.terminal().attributes(); // or the line would come back as an echo
        cfmakeraw(&raw);
        peer.terminal().set_attributes(raw);
        peer.write("\r\nOK\r\n+STALE\r\n");
        peer.read_line();
        peer.write("\r\nFRESH\r\nOK\r\n");
    });
    modem.terminal().wait_for_queued(1);
    EXPECT_EQ(exchange(modem.path(), "AT").text(), "\r\nFRESH\r\nOK\r\n");
}

TEST(AtExchange, nuls_in_a_reply_do_not_hide_its_end) {
    const std::string answered = "\0\0+CSQ:\0 20,99\r\n\0\r\nOK\r\n"s;
    ModemPeer modem(answer(answered));
    const Exchange done = exchange(modem.path(), "AT+CSQ", 64);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.bytes.substr(0, answered.size()), answered);
    EXPECT_EQ(done.bytes.substr(answered.size()), std::string(64 - answered.size(), '\0'));
}

TEST(AtExchange, bytes_of_all_values_come_through) {
    std::string all;
    for (int byte = 255; byte >= 0; byte--) {
        all += static_cast<char>(byte);
    }
    ModemPeer modem(answer(all + "OK"));
    EXPECT_EQ(exchange(modem.path(), "AT").bytes.substr(0, 258), all + "OK");
}

TEST(AtExchange, a_reply_one_byte_shorter_than_the_buffer_is_whole) {
    const std::string answered = std::string(61, 'x') + "OK";
    ModemPeer modem(answer(answered));
    const Exchange done = exchange(modem.path(), "AT", 64);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.bytes, answered + '\0');
}

TEST(AtExchange, a_reply_exactly_as_long_as_the_buffer_gives_up_its_last_byte) {
    for (const std::string &answered : {std::string(64, 'x'), std::string(62, 'x') + "OK"}) {
        ModemPeer modem(answer(answered));
        const Exchange done = exchange(modem.path(), "AT", 64);
        EXPECT_EQ(done.result, 0);
        EXPECT_EQ(done.bytes, answered.substr(0, 63) + '\0');
    }
}

TEST(AtExchange, a_reply_one_byte_longer_than_the_buffer_is_not_read_past_it) {
    ModemPeer modem(answer(std::string(65, 'x')));
    const Exchange done = exchange(modem.path(), "AT", 64);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.bytes, std::string(63, 'x') + '\0');
}

TEST(AtExchange, an_endless_reply_ends_with_the_full_buffer) {
    for (size_t size : {1u, 2u, 63u, 4096u}) {
        ModemPeer modem([](ModemPeer &peer) {
            peer.read_line();
            while (!peer.stopped()) {
                peer.write(std::string(100, 'x'));
            }
        });
        // What stands behind the buffer must stay.
        std::vector<char> reply(size + 16, '\0');
        std::fill(reply.begin() + static_cast<ptrdiff_t>(size), reply.end(), 'G');
        std::vector<char> line = command_line("AT");
        EXPECT_EQ(send_command(modem.path(), line, reply.data(), static_cast<int>(size)), 0);
        EXPECT_EQ(std::string(reply.begin(), reply.end()), std::string(size - 1, 'x') + '\0' + std::string(16, 'G'));
    }
}

TEST(AtExchange, an_endless_reply_in_small_pieces) {
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        while (!peer.stopped()) {
            peer.write("1234567");
            peer.pause(milliseconds(1));
        }
    });
    const Exchange done = exchange(modem.path(), "AT", 100);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text().size(), 99u);
    EXPECT_EQ(done.text().substr(0, 14), "12345671234567");
}

TEST(AtExchange, a_size_below_1_stands_for_4096) {
    for (int size : {0, -1}) {
        ModemPeer modem(answer(std::string(5000, 'x')));
        std::vector<char> reply(4096);
        std::vector<char> line = command_line("AT");
        EXPECT_EQ(send_command(modem.path(), line, reply.data(), size), 0);
        EXPECT_EQ(std::string(reply.begin(), reply.end()), std::string(4095, 'x') + '\0');
    }
}

TEST(AtExchange, a_port_that_cannot_be_opened) {
    Capture errors(STDERR_FILENO);
    const Exchange done = exchange("/nonexistent/ttyUSB2", "AT");
    EXPECT_EQ(done.result, EXCHANGE_NO_REPLY);
    EXPECT_EQ(EXCHANGE_NO_REPLY, -1);
    EXPECT_EQ(done.text(), "");
    EXPECT_EQ(errors.text(), "Error opening serial port /nonexistent/ttyUSB2 - No such file or directory(2).\n");
}

TEST(AtExchange, an_empty_port_is_not_opened) {
    const Capture errors(STDERR_FILENO);
    EXPECT_EQ(exchange("", "AT").result, -1);
}

TEST(AtExchange, a_port_that_another_holds) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    ASSERT_EQ(flock(modem.terminal().tty(), LOCK_EX | LOCK_NB), 0);
    const int before = open_descriptors();
    const auto start = steady_clock::now();
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    // 50 ms for the port to settle, and 30 pauses of 1 ms between the attempts.
    EXPECT_GE(steady_clock::now() - start, milliseconds(80));
    EXPECT_EQ(done.result, EXCHANGE_LOCKED);
    EXPECT_EQ(EXCHANGE_LOCKED, -2);
    EXPECT_EQ(done.text(), "");
    EXPECT_EQ(open_descriptors(), before);
    modem.stop();
    EXPECT_EQ(modem.received(), "") << "nothing may be sent without the lock";
}

TEST(AtExchange, the_lock_is_held_during_the_exchange_and_free_afterwards) {
    std::atomic<int> during = 0;
    ModemPeer modem([&during](ModemPeer &peer) {
        peer.read_line();
        during = flock(peer.terminal().tty(), LOCK_EX | LOCK_NB);
        peer.write("\r\nOK\r\n");
    });
    EXPECT_EQ(exchange(modem.path(), "AT").result, 0);
    EXPECT_EQ(during, -1);
    EXPECT_EQ(flock(modem.terminal().tty(), LOCK_EX | LOCK_NB), 0);
}

TEST(AtExchange, a_shared_lock_of_another_holds_the_port_too) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    ASSERT_EQ(flock(modem.terminal().tty(), LOCK_SH | LOCK_NB), 0);
    EXPECT_EQ(exchange(modem.path(), "AT").result, EXCHANGE_LOCKED);
}

TEST(AtExchange, the_ports_attributes_are_put_back) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const termios before = modem.terminal().attributes();
    EXPECT_EQ(exchange(modem.path(), "AT").result, 0);
    const termios after = modem.terminal().attributes();
    EXPECT_EQ(memcmp(&before, &after, sizeof(before)), 0);
}

TEST(AtExchange, no_descriptor_stays_whatever_the_result) {
    const Capture errors(STDERR_FILENO);
    ModemPeer modem([](ModemPeer &peer) {
        while (!peer.stopped()) {
            if (!peer.read_line().empty()) {
                peer.write("\r\nOK\r\n");
            }
        }
    });
    const int before = open_descriptors();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(exchange(modem.path(), "AT").result, 0);
        // A port that the test holds open stays exclusive; a real one is not after its last close.
        EXPECT_EQ(ioctl(modem.terminal().tty(), TIOCNXCL), 0);
        EXPECT_EQ(exchange("/nonexistent/ttyUSB2", "AT").result, -1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

// The port must not take the number of a standard stream: the host's messages would go to the modem. The modem lives in
// the child too, because a process must not fork while it has a second thread.
TEST(AtExchange, a_host_with_closed_standard_streams) {
    in_child([] {
        ModemPeer modem(answer("\r\nOK\r\n"));
        for (int fd : {0, 1, 2}) {
            close(fd);
        }
        exchange("/nonexistent/ttyUSB2", "AT");
        EXPECT_EQ(exchange(modem.path(), "AT").text(), "\r\nOK\r\n");
        modem.stop();
        EXPECT_EQ(modem.received(), "AT\r\n");
    });
}

// The queue is lost with the modem's side, so what came in time may or may not have been read.
TEST(AtExchange, a_modem_that_drops_off_the_bus_in_the_middle_of_a_reply) {
    const Capture errors(STDERR_FILENO); // the port may not be there any more when its attributes are put back
    ModemPeer modem([](ModemPeer &peer) {
        peer.read_line();
        peer.write("\r\n+CSQ: 2");
        peer.pause(milliseconds(300));
        peer.hang_up();
    });
    const int before = open_descriptors();
    const Exchange done = exchange(modem.path(), "AT+CSQ");
    if (done.result == 0) {
        EXPECT_EQ(done.text(), "\r\n+CSQ: 2");
    } else {
        EXPECT_EQ(done.result, -1);
        EXPECT_EQ(done.text(), "");
    }
    EXPECT_LE(open_descriptors(), before);
}

TEST(AtExchange, recorded_replies_come_back_as_the_modem_sent_them) {
    for (const char *name : {"quectel-ec25/qcsq--lte-positive-rssi", "sierra-em7455/gstatus--lte-ca-active-tabs",
                             "quectel-ec200u/cpin--cme-text-not-inserted", "simcom-sim7600/ati--lone-cr-line-ends"}) {
        const std::string wire = recorded_reply(name);
        ModemPeer modem(answer(wire));
        EXPECT_EQ(exchange(modem.path(), "AT").text(), wire) << name;
    }
}

// Silences, side by side in children because the limit is 15 s: 30 reads of half a second.
struct Silence {
    const char *what;
    const char *command;
    ModemPeer::Script script;
    int result;
    const char *reply;
    seconds at_least;
};

int run_silence(const Silence &silence) {
    ModemPeer modem(silence.script);
    const auto start = steady_clock::now();
    const Exchange done = exchange(modem.path(), silence.command);
    const auto took = steady_clock::now() - start;
    EXPECT_EQ(done.result, silence.result) << silence.what;
    EXPECT_EQ(done.text(), silence.reply) << silence.what;
    EXPECT_GE(took, silence.at_least) << silence.what;
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(AtExchangeSilence, ends_an_exchange_after_15_s_and_after_more_for_a_scan_or_a_reboot) {
    const auto silent = [](ModemPeer &peer) { peer.read_line(); };
    const auto prompt = [](ModemPeer &peer) {
        peer.read_line();
        peer.write("\r\n> ");
    };
    const auto late = [](ModemPeer &peer) {
        peer.read_line();
        peer.pause(seconds(17));
        peer.write("\r\nOK\r\n");
    };
    // More than 15 s in all, but never silent for half a second: reads that bring bytes do not count.
    const auto dribbling = [](ModemPeer &peer) {
        peer.read_line();
        for (int i = 0; i < 85; i++) {
            peer.write(".");
            peer.pause(milliseconds(200));
        }
        peer.write("OK");
    };
    static const std::string DRIBBLED = std::string(85, '.') + "OK";
    const Silence silences[] = {
        {"nothing comes back", "AT+CSQ", silent, EXCHANGE_NO_REPLY, "", seconds(14)},
        {"a prompt that waits for a text", "AT+CMGS=\"1\"", prompt, 0, "\r\n> ", seconds(14)},
        {"a query for the operator is no scan", "AT+COPS?", silent, EXCHANGE_NO_REPLY, "", seconds(14)},
        {"an operator scan is waited for", "AT+COPS=?", late, 0, "\r\nOK\r\n", seconds(17)},
        {"so is a scan with more behind it", "AT+COPS=?;+CSQ", late, 0, "\r\nOK\r\n", seconds(17)},
        {"a reboot is waited for", "AT+CFUN=1,1", late, 0, "\r\nOK\r\n", seconds(17)},
        {"another function level is no reboot", "AT+CFUN=1", silent, EXCHANGE_NO_REPLY, "", seconds(14)},
        {"a dribbling modem", "AT+CLAC", dribbling, 0, DRIBBLED.c_str(), seconds(16)},
    };
    std::vector<pid_t> children;
    fflush(nullptr);
    for (const Silence &silence : silences) {
        const pid_t child = fork();
        if (child == 0) {
            const int failed = run_silence(silence);
            fflush(nullptr);
            _exit(failed);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

} // namespace
