// AT replies as text; see at_reply.h.
#include "modem/at_reply.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr std::string_view FINAL_WORDS[] = {"OK", "ERROR"};
constexpr size_t LONGEST_FINAL_WORD = 5;

} // namespace

int is_ok(const char *reply) {
    for (const char *found = strstr(reply, "OK"); found != nullptr; found = strstr(found + 1, "OK")) {
        if (found[2] == '\r' || found[2] == '\n') {
            return 1;
        }
    }
    return 0;
}

int has_keystr(const char *text, const char *key) {
    return *text != '\0' && strstr(text, key) != nullptr;
}

const char *after_line_break(const char *text) {
    for (; *text != '\0'; text++) {
        if ((*text == '\r' || *text == '\n') && text[1] == '\n') {
            return text + 2;
        }
    }
    return nullptr;
}

bool ReplyCollector::add(size_t count) {
    // A word may straddle what was there and what has come; what lies further back has been searched before.
    const size_t search_from = received_ - std::min(received_, LONGEST_FINAL_WORD - 1);
    received_ += count;
    if (received_ == buffer_.size()) {
        finish();
        return true;
    }
    const std::string_view arrived(buffer_.data() + search_from, received_ - search_from);
    for (const std::string_view word : FINAL_WORDS) {
        if (arrived.find(word) != arrived.npos) {
            buffer_[received_] = '\0';
            return true;
        }
    }
    return false;
}
