#include "connection_book.h"

#include <algorithm>
#include <utility>

namespace gateway {

ConnectionBook::ConnectionBook(std::function<void()> onChange) : onChange_(std::move(onChange)) {}

std::uint64_t ConnectionBook::opened(int relayPort, bool isLoopback) {
    std::uint64_t number = 0;
    {
        const std::scoped_lock lock(mutex_);
        number = ++accepted_;
        open_[relayPort] = {number, isLoopback, {}};
    }
    changed();
    return number;
}

void ConnectionBook::clientEnded(int relayPort, std::uint64_t connection) {
    sourceOf(relayPort, connection).request_stop();
}

void ConnectionBook::closed(int relayPort, std::uint64_t connection) {
    clientEnded(relayPort, connection);
    {
        const std::scoped_lock lock(mutex_);
        // The port may already serve a later connection, if the server closed first.
        const auto found = open_.find(relayPort);
        if (found != open_.end() && found->second.connection == connection) open_.erase(found);
    }
    changed();
}

// What waits for the stop runs in the asker's thread: not under the lock.
std::stop_source ConnectionBook::sourceOf(int relayPort, std::uint64_t connection) const {
    const std::scoped_lock lock(mutex_);
    const auto found = open_.find(relayPort);
    const bool isOpen = found != open_.end() && found->second.connection == connection;
    return isOpen ? found->second.gone : std::stop_source(std::nostopstate);
}

void ConnectionBook::stallBegan() {
    {
        const std::scoped_lock lock(mutex_);
        ++stalled_;
    }
    changed();
}

void ConnectionBook::stallEnded() {
    {
        const std::scoped_lock lock(mutex_);
        --stalled_;
    }
    changed();
}

void ConnectionBook::heard(std::uint64_t connection, const char* data, std::size_t size) {
    const std::scoped_lock lock(mutex_);
    if (!recordingWire_) return;
    const std::size_t kept = std::min(size, kMaxWire - wireSize_);
    wire_[connection].append(data, kept);
    wireSize_ += kept;
}

ConnectionBook::Peer ConnectionBook::peer(int relayPort) const {
    const std::scoped_lock lock(mutex_);
    const auto found = open_.find(relayPort);
    if (found != open_.end())
        return {found->second.connection, found->second.isLoopback, found->second.gone.get_token()};
    std::stop_source gone;
    gone.request_stop();
    return {0, false, gone.get_token()};
}

std::uint64_t ConnectionBook::accepted() const {
    const std::scoped_lock lock(mutex_);
    return accepted_;
}

std::size_t ConnectionBook::stalled() const {
    const std::scoped_lock lock(mutex_);
    return stalled_;
}

void ConnectionBook::recordWire(bool on) {
    const std::scoped_lock lock(mutex_);
    recordingWire_ = on;
    wire_.clear();
    wireSize_ = 0;
}

std::string ConnectionBook::wireBytes() const {
    const std::scoped_lock lock(mutex_);
    std::string all;
    for (const auto& [number, bytes] : wire_)
        all += bytes;
    return all;
}

}  // namespace gateway
