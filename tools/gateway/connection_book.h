#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>

namespace gateway {

/// What other threads may know of the connections that the stage serves. Thread-safe.
class ConnectionBook {
 public:
    struct Peer {
        std::uint64_t connection = 0;
        bool isLoopback = false;
        std::stop_token gone = {};  ///< Asked to stop when the client goes away.
    };

    /// `onChange` is told of what a test may wait for, with no lock held.
    explicit ConnectionBook(std::function<void()> onChange);

    /// A new connection, which the HTTP server knows by the port that it comes from; its number.
    std::uint64_t opened(int relayPort, bool isLoopback);
    /// The client said that it sends no more: it is taken for gone.
    void clientEnded(int relayPort, std::uint64_t connection);
    void closed(int relayPort, std::uint64_t connection);
    void stallBegan();
    void stallEnded();
    /// Something else changed.
    void changed() const { onChange_(); }
    /// Bytes that the client sent.
    void heard(std::uint64_t connection, const char* data, std::size_t size);

    /// Of a connection that is no longer open: number 0, and gone.
    Peer peer(int relayPort) const;
    std::uint64_t accepted() const;
    std::size_t stalled() const;
    /// Keeps what clients send from now on; false: forgets it.
    void recordWire(bool on);
    std::string wireBytes() const;

 private:
    static constexpr std::size_t kMaxWire = std::size_t{16} << 20;
    struct Open {
        std::uint64_t connection = 0;
        bool isLoopback = false;
        std::stop_source gone;
    };

    std::stop_source sourceOf(int relayPort, std::uint64_t connection) const;

    const std::function<void()> onChange_;
    mutable std::mutex mutex_;  // guards all that follows
    std::map<int, Open> open_;  // by the relay's port
    std::uint64_t accepted_ = 0;
    std::size_t stalled_ = 0;
    bool recordingWire_ = false;
    std::size_t wireSize_ = 0;
    std::map<std::uint64_t, std::string> wire_;
};

}  // namespace gateway
