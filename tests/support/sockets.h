#ifndef TESTS_SUPPORT_SOCKETS_H
#define TESTS_SUPPORT_SOCKETS_H

// The few calls of sockets in which systems differ.

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
// clang-format on
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace TestSupport {

#ifdef _WIN32

using Socket = SOCKET;
constexpr Socket noSocket = INVALID_SOCKET;

inline Socket NewSocket() {
    WSADATA data{};
    static const bool started = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    return started ? socket(AF_INET, SOCK_STREAM, 0) : noSocket;
}
inline void CutSocket(Socket socket) {
    shutdown(socket, SD_BOTH);
    CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);  // else who reads goes on waiting
}
inline void CloseSocket(Socket socket) {
    closesocket(socket);
}

constexpr int sendFlags = 0;
using SocketSize = int;

#else

using Socket = int;
constexpr Socket noSocket = -1;

inline Socket NewSocket() {
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}
inline void CutSocket(Socket socket) {
    shutdown(socket, SHUT_RDWR);
}
inline void CloseSocket(Socket socket) {
    close(socket);
}

constexpr int sendFlags = MSG_NOSIGNAL;
using SocketSize = std::size_t;

#endif

/// Listens at a port of loopback that the system picks; the whole address.
inline sockaddr_in Listen(Socket socket, int backlog) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(socket, plain, length) != 0 || listen(socket, backlog) != 0 ||
        getsockname(socket, plain, &length) != 0)
        throw std::runtime_error("no server socket");
    return address;
}

/// How many bytes were read or written; 0 or less at the end of the connection.
inline std::ptrdiff_t Receive(Socket socket, char* data, std::size_t size) {
    return recv(socket, data, static_cast<SocketSize>(size), 0);
}
inline std::ptrdiff_t Send(Socket socket, const char* data, std::size_t size) {
    constexpr std::size_t most = std::size_t{1} << 30U;
    return send(socket, data, static_cast<SocketSize>(std::min(size, most)), sendFlags);
}

}  // namespace TestSupport

#endif
