// Whole exchanges with a modem that says anything at any time, on a port whose every call may fail: the collection
// loop, the serial port below it, and what both promise about time, buffer, descriptors and the port's attributes.
//
// Input: a line with the command; a line with the buffer's size in decimal; a line with a character for each call that
// sets up the port or writes to it, in their order ("x" fails, "i" is interrupted, "s" is short, anything else goes
// well); then what the modem sends, in which
//     0xF0  is half a second of silence     0xF2  is an error of the port
//     0xF1  is a signal to the host         0xF3  ends what one read gives
// A scan of the networks, with its thirty thousand silent reads, is one only where the third line begins with "l".
// Where that line begins with "t", the command's buffer has no room but for the command.
// A command that begins with "uart" asks for the port's other family of calls instead of an exchange.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fake_system.h"
#include "fuzz_support.h"
#include "modem/at_exchange.h"
#include "modem/serial_port.h"

namespace {

constexpr const char *PORT = "/dev/ttyUSB2";
constexpr size_t LONGEST_COMMAND = 60;
constexpr size_t LARGEST_BUFFER = 5000;

std::string_view take_line(std::string_view &input) {
    const size_t end = std::min(input.find('\n'), input.size());
    const std::string_view line = input.substr(0, end);
    input.remove_prefix(std::min(input.size(), end + 1));
    return line;
}

class TalkingPort : public FakeSystem {
public:
    TalkingPort(std::string_view calls, std::string_view stream, bool ends)
        : calls_(calls), stream_(stream), ends_(ends) {
        given.reserve(stream.size());
        sent.reserve(4 * LONGEST_COMMAND);
    }

    bool is_tty(std::string_view path) override { return path == PORT; }

    bool control_succeeds() override {
        const bool result = next_call() != 'x';
        failed = failed || !result;
        return result;
    }

    ssize_t transmit(const char *bytes, size_t size) override {
        switch (next_call()) {
        case 'x':
            return fail_with(EIO);
        case 'i':
            return fail_with(EINTR);
        case 's':
            size = 1;
            break;
        default:
            break;
        }
        sent.append(bytes, size);
        return static_cast<ssize_t>(size);
    }

    ssize_t receive(char *buffer, size_t size) override {
        size_t count = 0;
        while (count < size && !stream_.empty()) {
            const auto next = static_cast<uint8_t>(stream_[0]);
            if (next >= 0xF0 && next <= 0xF3 && count > 0) {
                break;
            }
            stream_.remove_prefix(1);
            switch (next) {
            case 0xF0:
                silences++;
                return 0;
            case 0xF1:
                return fail_with(EINTR);
            case 0xF2:
                silences++;
                return fail_with(EIO);
            case 0xF3:
                break;
            default:
                buffer[count++] = static_cast<char>(next);
                break;
            }
        }
        given.append(buffer, count);
        if (count == 0) {
            silences++;
            if (ends_) {
                return fail_with(EIO);
            }
        }
        return static_cast<ssize_t>(count);
    }

    std::string given; // to the product
    std::string sent;  // by it
    bool failed = false;
    int silences = 0;

private:
    char next_call() {
        const char next = calls_.empty() ? '.' : calls_[0];
        calls_.remove_prefix(std::min<size_t>(calls_.size(), 1));
        return next;
    }
    static ssize_t fail_with(int error) {
        errno = error;
        return -1;
    }

    std::string_view calls_;
    std::string_view stream_;
    bool ends_; // with an error, where what is read for waits without a limit
};

int silence_limit(std::string_view command) {
    return command.starts_with("AT+COPS=?") ? 30000 : command.starts_with("AT+CFUN=1,1") ? 300 : 30;
}

bool same_attributes(const termios &one, const termios &other) {
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag && one.c_cflag == other.c_cflag &&
           one.c_lflag == other.c_lflag && memcmp(one.c_cc, other.c_cc, sizeof one.c_cc) == 0;
}

void check_exchange(TalkingPort &port, std::string_view text, size_t buffer_size) {
    std::vector<char> command(text.size() + COMMAND_TAIL);
    std::copy(text.begin(), text.end(), command.begin());
    const size_t length = strlen(command.data());
    // On the heap and of exactly this size, so that a byte beyond it is seen.
    std::vector<char> buffer(buffer_size);
    int result = 1;
    const Ended ended =
        run_on(port, [&] { result = send_command(PORT, command, buffer.data(), static_cast<int>(buffer.size())); });
    require(ended == Ended::NORMALLY && descriptors_left() == 0);
    require(result == 0 || result == EXCHANGE_NO_REPLY || result == EXCHANGE_LOCKED);
    require(buffer.back() == '\0');
    // All that was given is there but for the byte that made room for the NUL; a read whose port then failed to be set
    // back counts as none.
    if (!port.failed) {
        const size_t kept = std::min(port.given.size(), buffer_size - 1);
        require(memcmp(buffer.data(), port.given.data(), kept) == 0);
        require(same_attributes(tty_attributes(), tty_attributes_at_start()));
        require((result == 0) == !port.given.empty());
    }
    const std::string line(command.data(), length + 2);
    require(line.ends_with("\r\n") && std::string_view(line).starts_with(port.sent));
    const int limit = silence_limit(line);
    require(port.silences <= limit);
    // Half a second for each silent read, ten milliseconds for each other one, and the opening's and the lock's.
    require(waited_ms() <= 500 * int64_t{limit} + 10 * static_cast<int64_t>(port.given.size()) + 100);
}

// Without room for its line end a command aborts, before the port is opened.
void check_small_command(TalkingPort &port, std::string_view text) {
    std::vector<char> command(text.begin(), text.end());
    char reply[16] = {};
    require(run_on(port, [&] { send_command(PORT, command, reply, sizeof reply); }) == Ended::BY_ABORT ||
            text.find('\0') + COMMAND_TAIL <= text.size());
    require(port.sent.size() <= text.size());
}

void check_other_calls(TalkingPort &port, std::string_view text, size_t length) {
    constexpr int BAUDS[] = {300, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400};
    const unsigned choice = text.empty() ? 0 : static_cast<uint8_t>(text.back());
    const int timeout = choice % 3 == 0 ? -1 : static_cast<int>(choice) * 20;
    std::vector<char> buffer(length);
    const int size = static_cast<int>(length);
    const Ended ended = run_on(port, [&] {
        const int fd = uartOpen(PORT, BAUDS[choice % 10], static_cast<int>(choice & 1), timeout);
        require(fd >= -1);
        const int written = uartTx(static_cast<int>(text.size()), text.data());
        require(written == 0 || written == -1);
        require(fd >= 0 || written == -1);
        const int unsent = uartTxNonBlocking(static_cast<int>(text.size()), text.data());
        require(unsent >= 0 && unsent <= static_cast<int>(text.size()));
        flushIoBuffer();
        require(uartRxPeek() >= -1);
        const int expired = uartRxExpires(size, buffer.data(), timeout);
        require(expired >= -1 && expired <= size);
        const int plain = uartRxNonBlocking(size, buffer.data());
        require(plain >= -1 && plain <= size);
        const int whole = uartRx(size, buffer.data());
        require(whole == size || whole == -1);
        MyflushIoBuffer(-1);
        if (fd >= 0) {
            uartClose();
        }
    });
    require(ended == Ended::NORMALLY && descriptors_left() == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    std::string_view command = take_line(input).substr(0, LONGEST_COMMAND);
    const int number = atoi(std::string(take_line(input)).c_str());
    const size_t length = static_cast<size_t>(std::clamp(number, 1, static_cast<int>(LARGEST_BUFFER)));
    const std::string_view calls = take_line(input);
    if (command.starts_with("AT+COPS=?") && !calls.starts_with("l")) {
        command = "AT+COPS?";
    }
    const bool other_calls = command.starts_with("uart");
    TalkingPort port(calls, input, other_calls);
    if (calls.starts_with("t")) {
        check_small_command(port, command);
    } else if (other_calls) {
        check_other_calls(port, command, length);
    } else {
        check_exchange(port, command, length);
    }
    return 0;
}
