#include "sockets_posix.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>
#include <thread>

namespace gateway {
namespace {

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

std::string lastError() {
    return std::generic_category().message(errno);
}

void keepToItself(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void neverBlock(int fd) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// A socket of a connection.
void prepare(int fd) {
    keepToItself(fd);
    neverBlock(fd);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

struct AddressDeleter {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

std::unique_ptr<addrinfo, AddressDeleter> resolve(const std::string& address, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &list) != 0) return {};
    return std::unique_ptr<addrinfo, AddressDeleter>(list);
}

int portOf(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

bool isLoopback(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
        return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
    }
    return ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24 == 127;
}

}  // namespace

int openListener(const std::string& address, int port, bool listening, std::string& reason) {
    const auto resolved = resolve(address, port);
    if (!resolved) {
        reason = address + " is not a numeric address";
        return -1;
    }
    int listener = socket(resolved->ai_family, SOCK_STREAM, 0);
    const int on = 1;
    if (listener >= 0) {
        keepToItself(listener);
        neverBlock(listener);
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    if (listener < 0 || bind(listener, resolved->ai_addr, resolved->ai_addrlen) != 0 ||
        (listening && ::listen(listener, SOMAXCONN) != 0)) {
        reason = address + " port " + std::to_string(port) + ": " + lastError();
        closeSocket(listener);
    }
    return listener;
}

Accepted acceptFrom(int listener) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    const int client = accept(listener, reinterpret_cast<sockaddr*>(&address), &size);
    if (client < 0) {
        // Out of descriptors: the client stays in the queue, and we don't spin on it.
        if (errno == EMFILE || errno == ENFILE)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return {};
    }
    prepare(client);
    return {client, isLoopback(address)};
}

int connectToLoopback(int port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        closeSocket(fd);
    else
        prepare(fd);
    return fd;
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    for (const int end : ends) {
        keepToItself(end);
        neverBlock(end);
    }
    return ends;
}

void closeSocket(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

void resetSocket(int& fd) {
    const ::linger discard{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
    closeSocket(fd);
}

int localPort(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return portOf(address);
}

Io readSome(int fd, Block& block, std::size_t& size) {
    const ssize_t got = recv(fd, block.data(), block.size(), 0);
    if (got > 0) {
        size = static_cast<std::size_t>(got);
        return Io::Some;
    }
    const bool later = got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
    return later ? Io::Later : Io::End;
}

Io writeSome(int fd, std::string& pending) {
    while (!pending.empty()) {
        const ssize_t sent = send(fd, pending.data(), pending.size(), kSendFlags);
        if (sent < 0) {
            if (errno == EINTR) continue;
            return errno == EAGAIN || errno == EWOULDBLOCK ? Io::Later : Io::End;
        }
        pending.erase(0, static_cast<std::size_t>(sent));
    }
    return Io::Some;
}

}  // namespace gateway
