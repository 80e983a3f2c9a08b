#pragma once

#include <mutex>

namespace gateway {

/// Cuts a connection that another thread is connecting, sending to or receiving from: whatever it
/// waits for ends at once. It has descriptors of its own, since the HTTP library closes the socket
/// without a word, and its number may be somebody else's then. Thread-safe.
class SocketCutter {
 public:
    SocketCutter() = default;
    ~SocketCutter();
    SocketCutter(const SocketCutter&) = delete;
    SocketCutter& operator=(const SocketCutter&) = delete;

    /// Cuts this socket from now on. After cut() it is dead on arrival.
    void follow(int socket);
    void cut();
    /// Whether nothing lies unread in it: what does would be taken for the next answer.
    bool isQuiet();

 private:
    std::mutex mutex_;  // guards what follows
    int socket_ = -1;
    bool cut_ = false;
};

}  // namespace gateway
