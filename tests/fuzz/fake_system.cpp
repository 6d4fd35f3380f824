// The calls that the linker leads here; see fake_system.h.
#include "fake_system.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <iconv.h>
#include <iterator>
#include <netdb.h>
#include <poll.h>
#include <sanitizer/allocator_interface.h>
#include <span>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <json-c/json.h>

#include "fuzz_support.h"

namespace {

constexpr int MOST_DESCRIPTORS = 64;
constexpr pid_t FIRST_CHILD = 1'000'000; // beyond the kernel's process numbers that matter here
constexpr int64_t NS_PER_MS = 1'000'000;
constexpr int64_t NS_PER_SECOND = 1'000'000'000;

enum class Kind : uint8_t { FILE, TTY, BUS };

FakeSystem *current = nullptr; // during a run, outside of what is answered here
std::jmp_buf run_end;
Kind kinds[MOST_DESCRIPTORS];
termios attributes;
termios attributes_at_start;
int64_t now_ns = 0;
int64_t start_ns = 0;
int left_descriptors = 0;
std::string command_to_run;
pid_t last_child = FIRST_CHILD;
std::string scratch;

// While something is answered, calls mean the C library's, and allocations are this file's own.
class Answering {
public:
    Answering() : system_(current) { current = nullptr; }
    ~Answering() { current = system_; }
    Answering(const Answering &) = delete;
    Answering &operator=(const Answering &) = delete;
    FakeSystem *operator->() const { return system_; }

private:
    FakeSystem *system_;
};

// --- What a run has allocated and opened ---

// A hash table of fixed size, as nothing may be allocated in a hook.
constexpr size_t SLOTS = 1 << 16;
const void *allocated[SLOTS];
const void *const RELEASED = &allocated;
size_t used_slots[SLOTS / 2];
size_t used_count = 0;
bool recording = false;

size_t slot_of(const void *memory) {
    return (reinterpret_cast<uintptr_t>(memory) >> 4) * 0x9E3779B97F4A7C15U >> 48;
}

void record_allocation(const volatile void *volatile_memory, size_t /*size*/) {
    if (!recording || current == nullptr || volatile_memory == nullptr || used_count == std::size(used_slots)) {
        return;
    }
    const void *memory = const_cast<const void *>(volatile_memory);
    size_t slot = slot_of(memory);
    while (allocated[slot] != nullptr && allocated[slot] != RELEASED) {
        slot = (slot + 1) % SLOTS;
    }
    if (allocated[slot] == nullptr) {
        used_slots[used_count++] = slot;
    }
    allocated[slot] = memory;
}

void record_release(const volatile void *memory) {
    if (!recording || memory == nullptr) {
        return;
    }
    for (size_t slot = slot_of(const_cast<const void *>(memory)); allocated[slot] != nullptr;
         slot = (slot + 1) % SLOTS) {
        if (allocated[slot] == memory) {
            allocated[slot] = RELEASED;
            return;
        }
    }
}

void forget_allocations() {
    for (size_t index = 0; index < used_count; index++) {
        allocated[used_slots[index]] = nullptr;
    }
    used_count = 0;
}

void release_allocations() {
    recording = false;
    for (size_t index = 0; index < used_count; index++) {
        const void *memory = allocated[used_slots[index]];
        if (memory != RELEASED) {
            free(const_cast<void *>(memory));
        }
    }
}

FILE *open_files[MOST_DESCRIPTORS];

FILE *record_file(FILE *file) {
    if (file != nullptr) {
        *std::find(std::begin(open_files), std::end(open_files) - 1, nullptr) = file;
    }
    return file;
}

uint64_t open_descriptors() {
    uint64_t set = 0;
    for (int fd = 0; fd < MOST_DESCRIPTORS; fd++) {
        set |= fcntl(fd, F_GETFD) >= 0 ? uint64_t{1} << fd : 0;
    }
    return set;
}

// --- Paths ---

bool begins(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool leads_up(std::string_view path) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        if (component == "..") {
            return true;
        }
        path.remove_prefix(std::min(path.size(), component.size() + 1));
    }
    return false;
}

// Where a path of the product leads; valid until the second call from now.
const char *real_path(const char *path) {
    static char buffers[2][8192];
    static int turn = 0;
    const std::string_view text(path);
    // A run that ends in a finding is written down by the fuzzer, which then calls these functions, too.
    if (text.find("/findings/") != text.npos) {
        return path;
    }
    if (begins(text, scratch) || begins(text, "/proc/self/fd/") || text == "/dev/null") {
        return path;
    }
    if (text.empty() || leads_up(text) || text.size() >= PATH_MAX) {
        return "";
    }
    turn = 1 - turn;
    snprintf(buffers[turn], sizeof buffers[turn], "%s/%s", scratch.c_str(), path);
    return buffers[turn];
}

int remove_entry(const char *path, const struct stat * /*status*/, int /*type*/, FTW *level) {
    return level->level == 0 ? 0 : remove(path);
}

void remove_scratch() {
    nftw(scratch.c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS);
    rmdir(scratch.c_str());
}

Kind kind_of(int fd) {
    return current != nullptr && fd >= 0 && fd < MOST_DESCRIPTORS ? kinds[fd] : Kind::FILE;
}

int opened_as(Kind kind, int fd) {
    require(fd < MOST_DESCRIPTORS);
    if (fd >= 0) {
        kinds[fd] = kind;
    }
    return fd;
}

int fail(int error) {
    errno = error;
    return -1;
}

struct Failure {
    int calls_until; // 0: none fails
    bool from_then_on;
};
Failure failures[CALL_COUNT];

bool fails(Call call) {
    if (current == nullptr) {
        return false;
    }
    Failure &failure = failures[static_cast<size_t>(call)];
    if (failure.calls_until == 0) {
        return false;
    }
    if (--failure.calls_until > 0) {
        return false;
    }
    failure.calls_until = failure.from_then_on ? 1 : 0;
    errno = call == Call::MALLOC ? ENOMEM : call == Call::INTERRUPT ? EINTR : EIO;
    return true;
}

// The path of a call that changes something.
const char *changed_path(const char *path) {
    if (current == nullptr) {
        return path;
    }
    {
        const Answering system;
        system->changes(path);
    }
    return real_path(path);
}

int control_result(int error) {
    const Answering system;
    return system->control_succeeds() ? 0 : fail(error);
}

} // namespace

// --- The interface ---

void fail_call(Call call, int number, bool from_then_on) {
    failures[static_cast<size_t>(call)] = {number, from_then_on};
}

Ended run_on(FakeSystem &system, const std::function<void()> &product) {
    static const int installed = __sanitizer_install_malloc_and_free_hooks(record_allocation, record_release);
    require(installed > 0);
    // What the product says is nothing to see here.
    static FILE *const nowhere = fopen("/dev/null", "we");
    static char nowhere_buffer[BUFSIZ];
    static const int buffered = setvbuf(nowhere, nowhere_buffer, _IOFBF, sizeof nowhere_buffer);
    require(buffered == 0);
    FILE *const output = stdout;
    FILE *const errors = stderr;
    stdout = nowhere;
    stderr = nowhere;

    attributes = {};
    attributes.c_iflag = ICRNL | IXON;
    attributes.c_oflag = OPOST | ONLCR;
    attributes.c_lflag = ISIG | ICANON | ECHO;
    attributes.c_cflag = CS8 | CREAD | B9600;
    attributes.c_cc[VMIN] = 1;
    attributes_at_start = attributes;
    start_ns = now_ns;
    left_descriptors = 0;
    if (scratch.empty()) {
        scratch_path("/");
    }
    const uint64_t open_before = open_descriptors();
    forget_allocations();
    recording = true;
    volatile Ended ended = Ended::NORMALLY;
    if (setjmp(run_end) == 0) {
        current = &system;
        product();
        current = nullptr;
    } else {
        ended = Ended::BY_ABORT;
        std::fill(std::begin(failures), std::end(failures), Failure{});
        current = &system;
        system.after_abort();
        current = nullptr;
        for (FILE *file : open_files) {
            if (file != nullptr) {
                fclose(file);
            }
        }
        release_allocations();
    }
    recording = false;
    std::fill(std::begin(failures), std::end(failures), Failure{});
    stdout = output;
    stderr = errors;
    std::fill(std::begin(open_files), std::end(open_files), nullptr);
    std::fill(std::begin(kinds), std::end(kinds), Kind::FILE);
    const uint64_t left = open_descriptors() & ~open_before;
    for (int fd = 0; fd < MOST_DESCRIPTORS; fd++) {
        if ((left >> fd & 1) != 0) {
            close(fd);
            left_descriptors += ended == Ended::NORMALLY ? 1 : 0;
        }
    }
    return ended;
}

int64_t waited_ms() {
    return (now_ns - start_ns) / NS_PER_MS;
}

const termios &tty_attributes() {
    return attributes;
}

const termios &tty_attributes_at_start() {
    return attributes_at_start;
}

int descriptors_left() {
    return left_descriptors;
}

std::string scratch_path(const std::string &path) {
    if (scratch.empty()) {
        const char *directory = getenv("TMPDIR");
        scratch = std::string(directory != nullptr ? directory : "/tmp") + "/vela-fuzz-XXXXXX";
        require(mkdtemp(scratch.data()) != nullptr);
        atexit(remove_scratch);
    }
    return scratch + path;
}

void make_directories(const std::string &path) {
    for (size_t slash = path.find('/', 1); slash != path.npos; slash = path.find('/', slash + 1)) {
        mkdir(scratch_path(path.substr(0, slash)).c_str(), 0755);
    }
    mkdir(scratch_path(path).c_str(), 0755);
}

void put_file(const std::string &path, std::string_view content) {
    const std::string real = scratch_path(path);
    int fd = open(real.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        make_directories(path.substr(0, path.rfind('/')));
        fd = open(real.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    }
    if (fd >= 0) {
        require(write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
        close(fd);
    }
}

void remove_below(const std::string &path) {
    nftw(scratch_path(path).c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS);
}

// --- The calls ---

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

[[noreturn]] void __real_abort();
[[noreturn]] void __wrap_abort() {
    if (current == nullptr) {
        __real_abort();
    }
    current = nullptr;
    longjmp(run_end, 1);
}

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_malloc(size);
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_calloc(count, size);
}

void *__real_realloc(void *memory, size_t size);
void *__wrap_realloc(void *memory, size_t size) {
    return fails(Call::MALLOC) ? nullptr : __real_realloc(memory, size);
}

char *__real_strdup(const char *text);
char *__wrap_strdup(const char *text) {
    return fails(Call::MALLOC) ? nullptr : __real_strdup(text);
}

json_object *__real_json_object_new_object();
json_object *__wrap_json_object_new_object() {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_object();
}

json_object *__real_json_object_new_array();
json_object *__wrap_json_object_new_array() {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_array();
}

json_object *__real_json_object_new_string_len(const char *text, int length);
json_object *__wrap_json_object_new_string_len(const char *text, int length) {
    return fails(Call::MALLOC) ? nullptr : __real_json_object_new_string_len(text, length);
}

iconv_t __real_iconv_open(const char *to, const char *from);
iconv_t __wrap_iconv_open(const char *to, const char *from) {
    return fails(Call::MALLOC) ? iconv_t(-1) : __real_iconv_open(to, from);
}

int __real_getnameinfo(const sockaddr *address, socklen_t size, char *host, socklen_t host_size, char *service,
                       socklen_t service_size, int flags);
int __wrap_getnameinfo(const sockaddr *address, socklen_t size, char *host, socklen_t host_size, char *service,
                       socklen_t service_size, int flags) {
    return fails(Call::INTERFACES) ? EAI_MEMORY
                                   : __real_getnameinfo(address, size, host, host_size, service, service_size, flags);
}

int __real_ftruncate(int fd, off_t length);
int __wrap_ftruncate(int fd, off_t length) {
    return fails(Call::TRUNCATE) ? -1 : __real_ftruncate(fd, length);
}

int __real_mkostemp(char *name, int flags);
int __wrap_mkostemp(char *name, int flags) {
    return fails(Call::OPEN) ? -1 : __real_mkostemp(name, flags);
}

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (current == nullptr) {
        return __real_open(path, flags, mode);
    }
    {
        const Answering system;
        if (system->is_tty(path)) {
            return system->control_succeeds() ? opened_as(Kind::TTY, __real_open("/dev/null", O_RDWR | O_CLOEXEC))
                                              : fail(ENXIO);
        }
    }
    if (fails(Call::OPEN)) {
        return -1;
    }
    const char *real = (flags & O_CREAT) != 0 ? changed_path(path) : real_path(path);
    return opened_as(Kind::FILE, __real_open(real, flags, mode));
}

// By a name in a directory that is open, and so of the machine played here already.
int __real_openat(int directory, const char *name, int flags, ...);
int __wrap_openat(int directory, const char *name, int flags, ...) {
    return fails(Call::OPEN) ? -1 : __real_openat(directory, name, flags);
}

int __real_close(int fd);
int __wrap_close(int fd) {
    const bool tty = kind_of(fd) == Kind::TTY;
    if (current != nullptr && fd >= 0 && fd < MOST_DESCRIPTORS) {
        kinds[fd] = Kind::FILE;
    }
    const int result = __real_close(fd);
    return tty && result == 0 ? control_result(EIO) : result;
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
    if (fails(Call::OPEN)) {
        return nullptr;
    }
    return current != nullptr ? record_file(__real_fopen(real_path(path), mode)) : __real_fopen(path, mode);
}

FILE *__real_fdopen(int fd, const char *mode);
FILE *__wrap_fdopen(int fd, const char *mode) {
    FILE *file = fails(Call::OPEN) ? nullptr : __real_fdopen(fd, mode);
    return current != nullptr ? record_file(file) : file;
}

int __real_fclose(FILE *file);
int __wrap_fclose(FILE *file) {
    if (current != nullptr) {
        std::replace(std::begin(open_files), std::end(open_files), file, static_cast<FILE *>(nullptr));
    }
    return __real_fclose(file);
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path) {
    return __real_opendir(current != nullptr ? real_path(path) : path);
}

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
    return __real_access(current != nullptr ? real_path(path) : path, mode);
}

int __real_unlink(const char *path);
int __wrap_unlink(const char *path) {
    return __real_unlink(changed_path(path));
}

int __real_remove(const char *path);
int __wrap_remove(const char *path) {
    return __real_remove(changed_path(path));
}

int __real_rename(const char *from, const char *to);
int __wrap_rename(const char *from, const char *to) {
    if (fails(Call::RENAME)) {
        return -1;
    }
    return __real_rename(changed_path(from), changed_path(to));
}

int __real_mkdir(const char *path, mode_t mode);
int __wrap_mkdir(const char *path, mode_t mode) {
    return __real_mkdir(changed_path(path), mode);
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
    return __real_stat(current != nullptr ? real_path(path) : path, status);
}

char *__real_realpath(const char *path, char *resolved);
char *__wrap_realpath(const char *path, char *resolved) {
    return __real_realpath(current != nullptr ? real_path(path) : path, resolved);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    return current != nullptr ? 0 : __real_fsync(fd);
}

// --- Serial port ---

ssize_t __real_read(int fd, void *buffer, size_t size);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    if (kind_of(fd) != Kind::TTY) {
        return fails(Call::READ) || fails(Call::INTERRUPT) ? -1 : __real_read(fd, buffer, size);
    }
    const Answering system;
    const ssize_t got = system->receive(static_cast<char *>(buffer), size);
    if (got == 0) {
        if (attributes.c_cc[VMIN] > 0) {
            return fail(EIO); // it would wait for ever
        }
        now_ns += attributes.c_cc[VTIME] * NS_PER_SECOND / 10;
    }
    return got;
}

ssize_t __real_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    if (kind_of(fd) != Kind::TTY) {
        return fails(Call::WRITE) || fails(Call::INTERRUPT) ? -1 : __real_write(fd, bytes, size);
    }
    const Answering system;
    return system->transmit(static_cast<const char *>(bytes), size);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list rest;
    va_start(rest, request);
    void *const argument = va_arg(rest, void *);
    va_end(rest);
    if (kind_of(fd) != Kind::TTY) {
        return __real_ioctl(fd, request, argument);
    }
    if (request == FIONREAD) {
        *static_cast<int *>(argument) = 1;
    }
    return control_result(EBUSY);
}

int __real_tcgetattr(int fd, termios *into);
int __wrap_tcgetattr(int fd, termios *into) {
    if (kind_of(fd) != Kind::TTY) {
        return __real_tcgetattr(fd, into);
    }
    *into = attributes;
    return control_result(EIO);
}

int __real_tcsetattr(int fd, int when, const termios *from);
int __wrap_tcsetattr(int fd, int when, const termios *from) {
    if (kind_of(fd) != Kind::TTY) {
        return __real_tcsetattr(fd, when, from);
    }
    const int result = control_result(EIO);
    if (result == 0) {
        attributes = *from;
    }
    return result;
}

int __real_tcflush(int fd, int queue);
int __wrap_tcflush(int fd, int queue) {
    return kind_of(fd) == Kind::TTY ? control_result(EIO) : __real_tcflush(fd, queue);
}

int __real_tcdrain(int fd);
int __wrap_tcdrain(int fd) {
    return kind_of(fd) == Kind::TTY ? control_result(EIO) : __real_tcdrain(fd);
}

int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation) {
    if (fails(Call::INTERRUPT)) {
        return -1;
    }
    return kind_of(fd) == Kind::TTY ? control_result(EWOULDBLOCK) : __real_flock(fd, operation);
}

// --- Time ---

int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    if (current == nullptr || clock != CLOCK_MONOTONIC) {
        return __real_clock_gettime(clock, now);
    }
    *now = {.tv_sec = now_ns / NS_PER_SECOND, .tv_nsec = now_ns % NS_PER_SECOND};
    return 0;
}

int __real_nanosleep(const timespec *duration, timespec *left);
int __wrap_nanosleep(const timespec *duration, timespec *left) {
    if (current == nullptr) {
        return __real_nanosleep(duration, left);
    }
    if (fails(Call::INTERRUPT)) {
        *left = *duration;
        return -1;
    }
    now_ns += duration->tv_sec * NS_PER_SECOND + duration->tv_nsec;
    return 0;
}

// --- Commands ---

pid_t __real_fork();
pid_t __wrap_fork() {
    if (fails(Call::FORK)) {
        return -1;
    }
    return current != nullptr ? ++last_child : __real_fork();
}

int __real_pipe2(int *ends, int flags);
int __wrap_pipe2(int *ends, int flags) {
    if (current == nullptr) {
        return __real_pipe2(ends, flags);
    }
    if (fails(Call::PIPE)) {
        return -1;
    }
    const Answering system;
    const std::string output = system->output_of(command_to_run);
    ends[0] = opened_as(Kind::FILE, memfd_create("output", MFD_CLOEXEC));
    ends[1] = opened_as(Kind::FILE, open("/dev/null", O_WRONLY | O_CLOEXEC));
    require(ends[0] >= 0 && ends[1] >= 0);
    require(write(ends[0], output.data(), output.size()) == static_cast<ssize_t>(output.size()));
    require(lseek(ends[0], 0, SEEK_SET) == 0);
    return 0;
}

pid_t __real_waitpid(pid_t child, int *status, int options);
pid_t __wrap_waitpid(pid_t child, int *status, int options) {
    if (current == nullptr) {
        return __real_waitpid(child, status, options);
    }
    const Answering system;
    *status = system->status_of(command_to_run);
    return child;
}

int __real_waitid(idtype_t type, id_t child, siginfo_t *info, int options);
int __wrap_waitid(idtype_t type, id_t child, siginfo_t *info, int options) {
    if (current == nullptr) {
        return __real_waitid(type, child, info, options);
    }
    const Answering system;
    const int status = system->status_of(command_to_run);
    info->si_code = WIFSIGNALED(status) ? CLD_KILLED : CLD_EXITED;
    info->si_status = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    return 0;
}

int __real_kill(pid_t process, int signal);
int __wrap_kill(pid_t process, int signal) {
    if (current == nullptr) {
        return __real_kill(process, signal);
    }
    require(process == -last_child);
    return 0;
}

void __wrap_syslog(int /*priority*/, const char *format, ...) {
    // Formatted all the same, for the sanitizers to see what is put in.
    char line[1024];
    va_list rest;
    va_start(rest, format);
    vsnprintf(line, sizeof line, format, rest);
    va_end(rest);
}

// The product's own functions, as only they know the command.

void note_command(const char *command) {
    if (current != nullptr) {
        const Answering system;
        command_to_run = command;
    }
}

#define OUTPUT "St4spanIcLm18446744073709551615EE"
void real_return(const char *command, std::span<char> out) asm("__real__Z21getShellCommandReturnPKc" OUTPUT);
void wrap_return(const char *command, std::span<char> out) asm("__wrap__Z21getShellCommandReturnPKc" OUTPUT);
void wrap_return(const char *command, std::span<char> out) {
    note_command(command);
    real_return(command, out);
}

void real_line(const char *command, std::span<char> out) asm("__real__Z25getShellCommandReturnLinePKc" OUTPUT);
void wrap_line(const char *command, std::span<char> out) asm("__wrap__Z25getShellCommandReturnLinePKc" OUTPUT);
void wrap_line(const char *command, std::span<char> out) {
    note_command(command);
    real_line(command, out);
}

void real_uci_return(const char *command, std::span<char> out) asm("__real__Z12getUciReturnPKc" OUTPUT);
void wrap_uci_return(const char *command, std::span<char> out) asm("__wrap__Z12getUciReturnPKc" OUTPUT);
void wrap_uci_return(const char *command, std::span<char> out) {
    note_command(command);
    real_uci_return(command, out);
}
#undef OUTPUT

char *real_dynamic(const char *command, bool *known) asm("__real__Z28getShellCommandReturnDynamicPKcPb");
char *wrap_dynamic(const char *command, bool *known) asm("__wrap__Z28getShellCommandReturnDynamicPKcPb");
char *wrap_dynamic(const char *command, bool *known) {
    note_command(command);
    return real_dynamic(command, known);
}

int real_exec(const char *command) asm("__real__Z11execCommandPKc");
int wrap_exec(const char *command) asm("__wrap__Z11execCommandPKc");
int wrap_exec(const char *command) {
    note_command(command);
    return real_exec(command);
}

int real_exec_within(const char *command, unsigned seconds) asm("__real__Z17execCommandWithinPKcj");
int wrap_exec_within(const char *command, unsigned seconds) asm("__wrap__Z17execCommandWithinPKcj");
int wrap_exec_within(const char *command, unsigned seconds) {
    note_command(command);
    return real_exec_within(command, seconds);
}

int real_background(const char *command) asm("__real__Z10fork_exec2PKc");
int wrap_background(const char *command) asm("__wrap__Z10fork_exec2PKc");
int wrap_background(const char *command) {
    note_command(command);
    return real_background(command);
}

// --- Bus and network ---

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    if (current == nullptr) {
        return __real_socket(domain, type, protocol);
    }
    if (fails(Call::SOCKET)) {
        return -1;
    }
    return opened_as(domain == AF_UNIX ? Kind::BUS : Kind::FILE, __real_open("/dev/null", O_RDWR | O_CLOEXEC));
}

int __real_setsockopt(int fd, int level, int name, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int name, const void *value, socklen_t size) {
    return kind_of(fd) == Kind::BUS ? 0 : __real_setsockopt(fd, level, name, value, size);
}

int __real_connect(int fd, const sockaddr *address, socklen_t size);
int __wrap_connect(int fd, const sockaddr *address, socklen_t size) {
    if (kind_of(fd) != Kind::BUS) {
        return __real_connect(fd, address, size);
    }
    const Answering system;
    return system->bus_accepts() ? 0 : fail(ECONNREFUSED);
}

int __real_poll(pollfd *polled, nfds_t count, int timeout_ms);
int __wrap_poll(pollfd *polled, nfds_t count, int timeout_ms) {
    if (count != 1 || kind_of(polled->fd) != Kind::BUS) {
        return __real_poll(polled, count, timeout_ms);
    }
    const Answering system;
    if ((polled->events & POLLIN) != 0 && system->bus_is_silent()) {
        require(timeout_ms >= 0); // or it waits for ever
        now_ns += timeout_ms * NS_PER_MS;
        return 0;
    }
    polled->revents = polled->events;
    return 1;
}

ssize_t __real_recv(int fd, void *buffer, size_t size, int flags);
ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags) {
    if (kind_of(fd) != Kind::BUS) {
        return __real_recv(fd, buffer, size, flags);
    }
    const Answering system;
    return system->bus_receive(static_cast<char *>(buffer), size);
}

ssize_t __real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags) {
    if (kind_of(fd) != Kind::BUS) {
        return __real_sendmsg(fd, message, flags);
    }
    const Answering system;
    std::string bytes;
    for (const iovec &piece : std::span(message->msg_iov, message->msg_iovlen)) {
        bytes.append(static_cast<const char *>(piece.iov_base), piece.iov_len);
    }
    system->bus_sent(bytes);
    return static_cast<ssize_t>(bytes.size());
}

int __real_getifaddrs(ifaddrs **list);
int __wrap_getifaddrs(ifaddrs **list) {
    if (current == nullptr) {
        return __real_getifaddrs(list);
    }
    if (fails(Call::INTERFACES)) {
        return -1;
    }
    const Answering system;
    *list = system->network_devices();
    return *list != nullptr ? 0 : fail(EIO);
}

void __real_freeifaddrs(ifaddrs *list);
void __wrap_freeifaddrs(ifaddrs *list) {
    if (current == nullptr) {
        __real_freeifaddrs(list);
    }
}

} // extern "C"
// NOLINTEND
