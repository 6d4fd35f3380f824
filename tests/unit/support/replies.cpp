#include "support/replies.h"

#include <algorithm>
#include <filesystem>
#include <string_view>

#include <gtest/gtest.h>

#include "support/files.h"

namespace {

const std::filesystem::path REPLIES = VELA_REPLIES;

// Files of other programs, whose line end is a plain LF.
bool is_modem_file(std::string_view name) {
    return !name.starts_with("smstools3-spool/") && !name.starts_with("mwan3track/");
}

// What follows the header, which ends with a line "---".
std::string body_of(const std::string &text) {
    static constexpr std::string_view SEPARATOR = "\n---\n";
    const size_t header = text.find(SEPARATOR);
    EXPECT_NE(header, std::string::npos);
    return header == std::string::npos ? text : text.substr(header + SEPARATOR.size());
}

std::string to_wire(std::string_view body) {
    static constexpr std::string_view LONE_RETURN = "<CR>";
    std::string wire;
    while (!body.empty()) {
        if (body.starts_with(LONE_RETURN)) {
            wire += '\r';
            body.remove_prefix(LONE_RETURN.size());
            continue;
        }
        if (body.front() == '\n') {
            wire += '\r';
        }
        wire += body.front();
        body.remove_prefix(1);
    }
    return wire;
}

} // namespace

std::string recorded_reply(const std::string &name) {
    const std::filesystem::path path = REPLIES / (name + ".txt");
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
    const std::string body = body_of(read_file(path));
    return is_modem_file(name) ? to_wire(body) : body;
}

const std::vector<RecordedReply> &recorded_replies() {
    static const std::vector<RecordedReply> all = [] {
        std::vector<RecordedReply> found;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(REPLIES)) {
            if (entry.path().extension() == ".txt") {
                const std::string name = entry.path().lexically_relative(REPLIES).replace_extension().string();
                found.push_back({name, recorded_reply(name)});
            }
        }
        std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
        return found;
    }();
    return all;
}
