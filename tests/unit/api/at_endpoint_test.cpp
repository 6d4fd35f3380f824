// "/modem/at", with a modem on a pseudo-terminal.
#include "api/at_endpoint.h"

#include <cstring>
#include <string>
#include <sys/file.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "support/aborts.h"
#include "support/capture.h"
#include "support/files.h"
#include "support/json_text.h"
#include "support/modem_peer.h"
#include "support/replies.h"

namespace {

using namespace std::string_literals;

struct Served {
    int32_t result;
    std::string reply; // printed
    Json document;     // the print, parsed again
    std::string message() const {
        json_object *member = json_object_object_get(document.get(), "message");
        return {json_object_get_string(member), static_cast<size_t>(json_object_get_string_len(member))};
    }
};

Served serve(json_object *request) {
    const Json reply(json_object_new_object());
    Served served;
    served.result = execute_modem_at(request, reply.get());
    served.reply = plain_json(reply.get());
    served.document = parse_json(served.reply);
    EXPECT_NE(served.document, nullptr) << "does not parse: " << served.reply;
    return served;
}

Served serve(const std::string &request) {
    return serve(parse_json(request).get());
}

Served serve(const std::string &command, const char *port) {
    const Json request(json_object_new_object());
    json_object_object_add(request.get(), "at-command", json_object_new_string(command.c_str()));
    json_object_object_add(request.get(), "at-port", json_object_new_string(port));
    return serve(request.get());
}

TEST(AtEndpoint, the_reply_is_the_message) {
    ModemPeer modem(answer("AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"));
    const Served served = serve("AT+CSQ", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.reply, R"({"message":"AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"})");
    modem.stop();
    EXPECT_EQ(modem.received(), "AT+CSQ\r\n");
}

TEST(AtEndpoint, an_error_of_the_modem_is_a_reply_too) {
    ModemPeer modem(answer("\r\n+CME ERROR: 10\r\n"));
    const Served served = serve("AT+CPIN?", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.message(), "\r\n+CME ERROR: 10\r\n");
}

TEST(AtEndpoint, a_command_and_no_port) {
    const Served served = serve(R"({"at-command":"AT"})");
    EXPECT_EQ(served.result, -255);
    EXPECT_EQ(served.reply, "{}");
    EXPECT_EQ(API_EXCHANGE_FAILED, -255);
}

TEST(AtEndpoint, a_port_and_no_command) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const Served served = serve("{\"at-port\":\""s + modem.path() + "\"}");
    EXPECT_EQ(served.result, -255);
    EXPECT_EQ(served.reply, "{}");
    modem.stop();
    EXPECT_EQ(modem.received(), "");
}

TEST(AtEndpoint, keys_of_other_types) {
    const Capture errors(STDERR_FILENO);
    for (const char *request :
         {"{}", "[]", "null", "\"AT\"", "7", R"({"at-command":null,"at-port":"/dev/null"})",
          R"({"at-command":"AT","at-port":null})", R"({"at-command":["AT"],"at-port":"/dev/null"})",
          R"({"at-command":"AT","at-port":["/dev/null"]})", R"({"at-command":7,"at-port":"/dev/null"})",
          R"({"at-command":"AT","at-port":2})", R"({"at-command":{"at-command":"AT"},"at-port":true})"}) {
        const Served served = serve(request);
        EXPECT_EQ(served.result, -255) << request;
        EXPECT_EQ(served.reply, "{}") << request;
    }
}

TEST(AtEndpoint, a_port_that_cannot_be_opened) {
    const Capture errors(STDERR_FILENO);
    for (const char *port : {"/nonexistent/ttyUSB2", "", "/dev/null", "/"}) {
        const Served served = serve("AT", port);
        EXPECT_EQ(served.result, -255) << port;
        EXPECT_EQ(served.reply, "{}") << port;
    }
}

TEST(AtEndpoint, a_port_that_another_holds) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    ASSERT_EQ(flock(modem.terminal().tty(), LOCK_EX | LOCK_NB), 0);
    const Served served = serve("AT", modem.path());
    EXPECT_EQ(served.result, -255);
    EXPECT_EQ(served.reply, "{}");
}

TEST(AtEndpoint, default_band_is_never_sent_to_the_modem) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const Served served = serve("default_band", modem.path());
    EXPECT_EQ(served.result, -17) << "a modem that does not say what it is";
    EXPECT_EQ(served.reply, R"({"message":""})");
    modem.stop();
    EXPECT_EQ(modem.received(), "ATI\r\n");
}

// An EC25-E that answers so to its band command.
ModemPeer::Script ec25e(const std::string &reply) {
    return [reply](ModemPeer &peer) {
        peer.read_line();
        peer.write("ATI\r\r\nQuectel\r\nEC25\r\nRevision: EC25EFAR06A03M4G\r\n\r\nOK\r\n");
        peer.read_line();
        peer.write(reply);
    };
}

TEST(AtEndpoint, the_message_of_default_band_is_the_answer_to_the_band_command) {
    ModemPeer modem(ec25e("\r\nOK\r\n"));
    const Served served = serve("default_band", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.reply, R"({"message":"\r\nOK\r\n"})");
    modem.stop();
    EXPECT_EQ(modem.received(), "ATI\r\nAT+QCFG=\"band\",0,1a0000800d5,0\r\n");
}

TEST(AtEndpoint, default_band_that_is_refused_has_its_message_too) {
    ModemPeer modem(ec25e("\r\n+CME ERROR: 3\r\n"));
    const Served served = serve("default_band", modem.path());
    EXPECT_EQ(served.result, -17);
    EXPECT_EQ(served.message(), "\r\n+CME ERROR: 3\r\n");
}

TEST(AtEndpoint, default_band_on_a_port_that_cannot_be_opened) {
    const Capture errors(STDERR_FILENO);
    const Served served = serve("default_band", "/nonexistent/ttyUSB2");
    EXPECT_EQ(served.result, -17);
    EXPECT_EQ(served.reply, R"({"message":""})");
}

TEST(AtEndpoint, default_band_without_a_port_lacks_a_key) {
    EXPECT_EQ(serve(R"({"at-command":"default_band"})").result, -255);
}

TEST(AtEndpoint, what_only_resembles_default_band_is_a_command) {
    for (const char *command : {"default_band ", "Default_band", "default_bands", "AT;default_band"}) {
        ModemPeer modem(answer("\r\nERROR\r\n"));
        EXPECT_EQ(serve(command, modem.path()).result, 0) << command;
        modem.stop();
        EXPECT_EQ(modem.received(), command + "\r\n"s);
    }
}

TEST(AtEndpoint, a_command_of_256_characters_is_sent_whole) {
    const std::string command(256, 'A');
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(serve(command, modem.path()).result, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), command + "\r\n");
}

TEST(AtEndpoint, a_command_of_257_characters_aborts) {
    const PseudoTerminal terminal;
    EXPECT_ABORT(serve(std::string(257, 'A'), terminal.path()));
    EXPECT_ABORT(serve(std::string(100000, 'A'), terminal.path()));
}

TEST(AtEndpoint, an_empty_command_is_sent) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(serve("", modem.path()).result, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), "\r\n");
}

TEST(AtEndpoint, the_message_ends_at_the_first_nul) {
    ModemPeer modem(answer("\r\nabc\0def\r\nOK\r\n"s));
    const Served served = serve("AT", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.message(), "\r\nabc");
}

TEST(AtEndpoint, a_reply_of_nuls_is_an_empty_message) {
    ModemPeer modem(answer("\0\0\0OK\r\n"s));
    const Served served = serve("AT", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.reply, R"({"message":""})");
}

TEST(AtEndpoint, bytes_that_are_no_characters_are_replaced) {
    ModemPeer modem(answer("\r\n\xFF\xC3\xA4\x80\r\nOK\r\n"));
    EXPECT_EQ(serve("AT", modem.path()).message(), "\r\n\uFFFD\u00E4\uFFFD\r\nOK\r\n");
}

TEST(AtEndpoint, control_characters_parse) {
    std::string all;
    for (int byte = 1; byte < 0x80; byte++) {
        all += static_cast<char>(byte);
    }
    ModemPeer modem(answer(all + "OK\r\n"));
    EXPECT_EQ(serve("AT", modem.path()).message().substr(0, all.size()), all);
}

TEST(AtEndpoint, a_reply_longer_than_4095_bytes_is_cut) {
    ModemPeer modem(answer(std::string(5000, 'x')));
    const Served served = serve("AT", modem.path());
    EXPECT_EQ(served.result, 0);
    EXPECT_EQ(served.message(), std::string(4095, 'x'));
}

TEST(AtEndpoint, the_request_and_the_current_device_stay_as_they_are) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const std::string text = "{\"at-command\":\"AT\",\"at-port\":\""s + modem.path() + "\",\"modem_id\":2}";
    const Json request = parse_json(text);
    EXPECT_EQ(serve(request.get()).result, 0) << "the model is not looked up";
    EXPECT_EQ(plain_json(request.get()), text);
    EXPECT_EQ(cur_dev, -1);
}

TEST(AtEndpoint, keys_that_are_in_the_reply_already_stay) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const Json request = parse_json("{\"at-command\":\"AT\",\"at-port\":\""s + modem.path() + "\"}");
    const Json reply = parse_json(R"({"id":1,"message":"old"})");
    EXPECT_EQ(execute_modem_at(request.get(), reply.get()), 0);
    EXPECT_EQ(plain_json(reply.get()), R"({"id":1,"message":"\r\nOK\r\n"})");
}

TEST(AtEndpoint, nothing_is_printed_and_no_descriptor_stays) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    const int before = open_descriptors();
    Capture out(STDOUT_FILENO);
    EXPECT_EQ(serve("AT", modem.path()).result, 0);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(open_descriptors(), before + 1) << "the capture's own file";
}

TEST(AtEndpoint, recorded_replies_are_messages_to_the_letter) {
    for (const char *name : {"quectel-ec25/qcsq--lte-positive-rssi", "sierra-em7455/gstatus--lte-ca-active-tabs",
                             "quectel-ec200u/cpin--cme-text-not-inserted", "simcom-sim7600/ati--lone-cr-line-ends"}) {
        const std::string wire = recorded_reply(name);
        ModemPeer modem(answer(wire));
        EXPECT_EQ(serve("AT", modem.path()).message(), wire) << name;
    }
}

} // namespace
