// Any bytes, in any chunks, into a reply buffer of any size: the collection loop of one AT exchange without its tty.
//
// Input: the buffer's size, the largest chunk, then what the modem sends.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "modem/at_reply.h"

namespace {

bool holds_final_word(std::string_view text) {
    return text.find("OK") != text.npos || text.find("ERROR") != text.npos;
}

void check_text_functions(const char *reply) {
    const std::string_view text(reply);
    const bool ok = text.find("OK\r") != text.npos || text.find("OK\n") != text.npos;
    require(is_ok(reply) == (ok ? 1 : 0));
    require(has_keystr(reply, "READY") == (text.find("READY") != text.npos ? 1 : 0));
    require(has_keystr(reply, "") == (text.empty() ? 0 : 1));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const size_t buffer_size = 1 + data[0];
    const size_t largest_chunk = 1 + data[1] % 64;
    const std::string_view sent(reinterpret_cast<const char *>(data + 2), size - 2);

    // On the heap and of exactly this size, so that a byte beyond it is seen.
    std::vector<char> buffer(buffer_size);
    ReplyCollector reply(buffer);
    size_t next = 0;
    bool over = false;
    while (!over && next < sent.size()) {
        const size_t chunk = std::min({largest_chunk, reply.room().size(), sent.size() - next});
        require(chunk > 0);
        memcpy(reply.room().data(), sent.data() + next, chunk);
        next += chunk;
        over = reply.add(chunk);
        const bool full = next == buffer_size;
        require(over == (full || holds_final_word(sent.substr(0, next))));
    }
    reply.finish();
    require(reply.received() == next);
    require(buffer.back() == '\0');
    const size_t kept = std::min(next, buffer_size - 1);
    require(memcmp(buffer.data(), sent.data(), kept) == 0);
    check_text_functions(buffer.data());
    return 0;
}
