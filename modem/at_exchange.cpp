// One AT exchange on a tty; see at_exchange.h.
//
// Many short-lived processes and request handlers talk to the same tty. Each exchange takes an exclusive advisory lock
// on the descriptor, so that their commands and replies never mix; who does not get it within about 31 ms gives up.
// A tty's attributes are common to all who have it open, so only the holder of the lock may leave it in another state
// than raw: with echo on, the reply of one exchange would run back into the modem and from there into the next one.
#include "modem/at_exchange.h"

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>

#include "modem/serial_port.h"
#include "platform/clock.h"

namespace {

constexpr int BAUD = 115200;
constexpr int OPEN_TIMEOUT_MS = 100;
constexpr int READ_TIMEOUT_MS = 500;
constexpr int DEFAULT_REPLY_SIZE = 4096;
constexpr int LOCK_ATTEMPTS = 31;
constexpr int LOCK_RETRY_MS = 1;
// Between reads that bring data: lets the reply arrive in larger pieces.
constexpr int GATHER_MS = 10;

struct SilenceLimit {
    char prefix[12];
    int silent_reads;
};

// By how a command begins.
constexpr SilenceLimit SILENCE_LIMITS[] = {
    {"AT+COPS=?", 30000}, // a scan of the networks
    {"AT+CFUN=1,1", 300}, // a reboot of the modem
};
constexpr int OTHER_SILENCE_LIMIT = 30;

int silent_reads_allowed(std::string_view command) {
    for (const SilenceLimit &limit : SILENCE_LIMITS) {
        if (command.starts_with(limit.prefix)) {
            return limit.silent_reads;
        }
    }
    return OTHER_SILENCE_LIMIT;
}

// Appends CR and LF in place; returns the length of the line.
int finish_line(std::span<char> command) {
    if (command.size() < COMMAND_TAIL) {
        abort();
    }
    const size_t length = strnlen(command.data(), command.size());
    if (length > command.size() - COMMAND_TAIL) {
        abort();
    }
    memcpy(command.data() + length, "\r\n", COMMAND_TAIL);
    return static_cast<int>(length + COMMAND_TAIL - 1);
}

bool lock(int fd) {
    for (int attempt = 0; attempt < LOCK_ATTEMPTS; attempt++) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            return true;
        }
        sleep_whole(LOCK_RETRY_MS);
    }
    return false;
}

void collect(int fd, ReplyCollector &reply, int silence_limit) {
    int silent_reads = 0;
    while (silent_reads < silence_limit) {
        const std::span<char> room = reply.room();
        const int got = MyuartRxExpires(fd, static_cast<int>(room.size()), room.data(), READ_TIMEOUT_MS);
        if (got <= 0) {
            silent_reads++;
            continue;
        }
        if (reply.add(static_cast<size_t>(got))) {
            break;
        }
        sleep_whole(GATHER_MS);
    }
    reply.finish();
}

} // namespace

int send_command(const char *port, std::span<char> command, char *reply, int size) {
    const int line_length = finish_line(command);
    const int fd = uartOpen(port, BAUD, 0, OPEN_TIMEOUT_MS);
    if (fd < 0) {
        return EXCHANGE_NO_REPLY;
    }
    if (!lock(fd)) {
        close(fd); // not MyuartClose: the attributes are the lock holder's, who is in the middle of a reply
        return EXCHANGE_LOCKED;
    }
    MyuartReapply(fd);
    MyflushIoBuffer(fd);
    MyuartTxNonBlocking(fd, line_length, command.data());
    const int reply_size = size < 1 ? DEFAULT_REPLY_SIZE : size;
    ReplyCollector collector({reply, static_cast<size_t>(reply_size)});
    collect(fd, collector, silent_reads_allowed({command.data(), command.size()}));
    MyuartClose(fd);
    return collector.received() > 0 ? 0 : EXCHANGE_NO_REPLY;
}
