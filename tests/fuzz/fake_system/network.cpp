// The bus and the network devices.
#include <netdb.h>
#include <poll.h>
#include <span>
#include <string>
#include <sys/socket.h>

#include "machine.h"

using namespace machine;

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    if (current == nullptr) {
        return __real_socket(domain, type, protocol);
    }
    if (fails(Call::SOCKET)) {
        return -1;
    }
    return open_stand_in(domain == AF_UNIX ? Kind::BUS : Kind::FILE);
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
        wait_ns(timeout_ms * NS_PER_MS);
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

int __real_getnameinfo(const sockaddr *address, socklen_t size, char *host, socklen_t host_size, char *service,
                       socklen_t service_size, int flags);
int __wrap_getnameinfo(const sockaddr *address, socklen_t size, char *host, socklen_t host_size, char *service,
                       socklen_t service_size, int flags) {
    return fails(Call::INTERFACES) ? EAI_MEMORY
                                   : __real_getnameinfo(address, size, host, host_size, service, service_size, flags);
}

} // extern "C"
// NOLINTEND
