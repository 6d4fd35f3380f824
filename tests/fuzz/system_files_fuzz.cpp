// Any bytes as what the system keeps in files: the kernel's routes, its device counters and a device's ids, the board's
// name, the mailer's configuration and a file to convert.
//
// Input: a name (of the interface, and of an account) up to the first line feed, then the content of all files.
#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <vector>

#include "cli/convert.h"
#include "fake_system.h"
#include "fuzz_support.h"
#include "json_checks.h"
#include "modem/discovery.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "router/passthrough.h"
#include "scripted_router.h"
#include "sms/ssmtp_conf.h"

namespace {

void read_routes(const char *name) {
    char gateway[INET_ADDRSTRLEN] = "x";
    get_gateway_by_ifname(name, gateway);
    in_addr address;
    require(gateway[0] == '\0' || inet_pton(AF_INET, gateway, &address) == 1);
}

void read_board() {
    const std::string_view name(get_model_name());
    require(std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }));
    // It is kept.
    require(name == get_model_name());
}

void read_ids() {
    uint32_t vid = 0;
    uint32_t pid = 0;
    require(modem_get_usb_id("1-1.2", &vid, &pid) == 0);
    require(modem_get_usb_id("1-1.9", &vid, &pid) == -1);
    modem_get_usb_id(nullptr, &vid, &pid);
}

void check_value(const char *value) {
    require(strlen(value) < SSMTP_VALUE_SIZE);
    require(strpbrk(value, " \t\n") == nullptr);
}

void read_mail(const char *name) {
    SsmtpAccount mail;
    get_ssmtp_account(&mail);
    check_value(mail.server);
    check_value(mail.password);
    check_value(mail.account);

    std::vector<char> domain(MAIL_DOMAIN_SIZE);
    mail_domain(name, std::span<char, MAIL_DOMAIN_SIZE>(domain.data(), MAIL_DOMAIN_SIZE));
    require(domain.back() == '\0' && (domain[0] == '\0' || strstr(name, domain.data()) != nullptr));

    // What is written is what is read, as far as a line holds it.
    const std::string account = std::string(name) + "@example.com";
    const bool plain = std::all_of(account.begin(), account.end(), [](char c) { return c > ' ' && c < '\x7f'; });
    if (plain && account.size() < 100 && account.find("mailhub") == account.npos &&
        account.find("AuthPass") == account.npos && account.find("AuthUser") == account.npos) {
        require(set_ssmtp_conf(account.c_str(), "secret", "mail.example.com:587", "example.com") == 0);
        require(set_ssmtp_alias(account.c_str(), "mail.example.com:587") == 0);
        get_ssmtp_account(&mail);
        require(account == mail.account && strcmp(mail.password, "secret") == 0 &&
                strcmp(mail.server, "mail.example.com:587") == 0);
    }
}

void convert(std::string count) {
    char path[] = "/tmp/message";
    char *arguments[] = {path, count.data()};
    require(convert_file(arguments) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const size_t line = std::min(input.find('\n'), size);
    const std::string name(input.substr(0, line));
    const std::string_view content = input.substr(std::min(size, line + 1));

    ScriptedRouter router("@usb 0 0");
    for (const char *path :
         {"/proc/net/route", "/proc/net/dev", "/etc/ssmtp/ssmtp.conf", "/tmp/message",
          "/sys/devices/platform/usb/1-1.2/idProduct", "/sys/devices/platform/usb/1-1.2/idVendor",
          "/sys/bus/usb/devices/1-1.3/idProduct", "/sys/bus/usb/devices/1-1.3/idVendor", "/proc/device-tree/model"}) {
        put_file(path, content);
    }
    if (size % 2 == 0) {
        put_file("/tmp/sysinfo/board_name", content);
    }
    const Json reply(json_object_new_object());
    const Ended ended = router.run([&] {
        read_routes(name.c_str());
        get_ppp_ifstats_by_proc_net_dev(reply.get(), name.c_str());
        read_iface_info(reply.get(), "3g-modem");
        read_iface_info(reply.get(), "wwan0");
        read_board();
        read_ids();
        read_mail(name.c_str());
        convert(name);
    });
    require(ended == Ended::NORMALLY);
    check_json(reply.get());
    return 0;
}
