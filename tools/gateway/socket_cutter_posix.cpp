#include "socket_cutter_posix.h"

#include "sockets_posix.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace gateway {

SocketCutter::~SocketCutter() {
    closeSocket(socket_);
}

void SocketCutter::follow(int socket) {
    const std::scoped_lock lock(mutex_);
    closeSocket(socket_);
    socket_ = fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (cut_) shutdown(socket_, SHUT_RDWR);
}

void SocketCutter::cut() {
    const std::scoped_lock lock(mutex_);
    cut_ = true;
    shutdown(socket_, SHUT_RDWR);
}

bool SocketCutter::isQuiet() {
    const std::scoped_lock lock(mutex_);
    pollfd polled{socket_, POLLIN, 0};
    return poll(&polled, 1, 0) == 0;
}

}  // namespace gateway
