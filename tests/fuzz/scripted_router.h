// A router that plays a script: the form in which handlers and commands are fuzzed.
//
// A script is text. What stands before the first line that begins with "@" is the fuzzer's own; then come records, each
// a line "@kind argument" and the lines below it:
//
//     @usb 2c7c 0125      a modem with these ids on bus 1-1.2, its ports ttyUSB0 to ttyUSB3 and cdc-wdm0
//     @board halvor       the board's name
//     @file /etc/config/network    a file with the lines below as its content
//     @at +CSQ            what the modem answers to a command that contains the argument: the lines below
//     @sh opkg            what a shell command that contains the argument prints
//     @status killall 256 how such a command ends, as waitpid gives it
//     @bus                netifd's report on every interface, as JSON
//     @fail write 3+      the third write to a file fails, with the "+" all after it as well; other calls of the C
//                         library are malloc, open, read, rename, truncate, pipe, fork, socket, interfaces
//                         and interrupt (once)
//
// The first record that fits counts. The modem says nothing to other commands, others print nothing and end well, and
// without "@bus" there is no bus. Line feeds in answers of the modem come as CR LF.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fake_system.h"

class ScriptedRouter : public FakeSystem {
public:
    // Reads the records and puts the router's files in place.
    explicit ScriptedRouter(std::string_view script);

    // What stands before the first record.
    std::string_view head() const { return head_; }

    // Runs the product on it, and sees that nothing stays behind and that the configuration is still one.
    Ended run(const std::function<void()> &product);

    bool is_tty(std::string_view path) override;
    ssize_t receive(char *buffer, size_t size) override;
    ssize_t transmit(const char *bytes, size_t size) override;
    std::string output_of(const std::string &command) override;
    int status_of(const std::string &command) override;
    bool bus_accepts() override;
    void bus_sent(std::string_view bytes) override;
    ssize_t bus_receive(char *buffer, size_t size) override;
    ifaddrs *network_devices() override;
    void after_abort() override;
    void changes(std::string_view path) override;

protected:
    // For a product that was asked for nothing but its own queries: what a modem or a file says gets into no command.
    static void require_own_words(const std::string &command);

private:
    struct Record {
        std::string_view kind;
        std::string_view argument;
        std::string_view content;
    };

    void read(std::string_view script);
    void put_files();
    void fail_calls() const;
    const Record *find(std::string_view kind, std::string_view text) const;
    void say_on_bus(unsigned type, uint16_t seq, const void *body, size_t size);
    void answer_on_bus(unsigned type, uint16_t seq);
    void forget_connection();
    void check_files() const;

    std::string_view head_;
    std::vector<Record> records_;
    std::string reply_; // of the modem, what has not been read yet
    std::string from_bus_;
    bool bus_is_up_ = false;
};
