#pragma once

// What the stage asks of the system's sockets.

#include <array>
#include <cstddef>
#include <string>

namespace gateway {

/// How a socket that never blocks answered: something moved, nothing can move now, or its end.
enum class Io { Some, Later, End };

inline constexpr std::size_t kBlock = std::size_t{64} << 10;
using Block = std::array<char, kBlock>;

struct Accepted {
    int socket = -1;  ///< -1: nobody waits
    bool isLoopback = false;
};

/// Never blocks. Without a free port, -1 and a reason. Without `listening` the port is held and
/// clients are refused.
int openListener(const std::string& address, int port, bool listening, std::string& reason);
Accepted acceptFrom(int listener);
/// On 127.0.0.1; -1 when nobody listens there. Never blocks once connected.
int connectToLoopback(int port);
/// The end to read from, then the one to write to; neither blocks. Throws std::system_error.
std::array<int, 2> makePipe();

void closeSocket(int& fd);
/// The client meets a reset instead of an end.
void resetSocket(int& fd);
int localPort(int fd);

Io readSome(int fd, Block& block, std::size_t& size);
/// Takes off what was written.
Io writeSome(int fd, std::string& pending);

}  // namespace gateway
