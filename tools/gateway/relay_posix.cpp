#include "relay.h"
#include "sockets_posix.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMaxPending = 4 * kBlock;
// How long a client has to read the end of an answer after which the connection is closed.
constexpr std::chrono::seconds kLinger{2};

}  // namespace

Relay::Relay(int client, int server, bool isLoopbackClient, ConnectionBook& book)
    : book_(book),
      client_(client),
      server_(server),
      relayPort_(localPort(server)),
      number_(book.opened(relayPort_, isLoopbackClient)) {}

Relay::~Relay() {
    close();
}

short Relay::clientEvents() const {
    const bool reads = isRelaying() ? toServer_.size() < kMaxPending : phase_ != Phase::Ending;
    short events = 0;
    if (reads && !clientEnded_) events |= POLLIN;
    if (!toClient_.empty()) events |= POLLOUT;
    return events;
}

short Relay::serverEvents() const {
    short events = 0;
    if (toClient_.size() < kMaxPending) events |= POLLIN;
    if (!toServer_.empty()) events |= POLLOUT;
    return events;
}

void Relay::serve(short clientEvents, short serverEvents) {
    constexpr short kReadable = POLLIN | POLLHUP | POLLERR;
    if (isClosed()) return;
    if ((clientEvents & POLLOUT) != 0) flushToClient();
    if (!isClosed() && (serverEvents & POLLOUT) != 0) flushToServer();
    if (!isClosed() && (clientEvents & kReadable) != 0) readClient();
    if (!isClosed() && server_ >= 0 && (serverEvents & kReadable) != 0) readServer();
    if (isLingering() && Clock::now() > lingerUntil_) close();
}

bool Relay::isIdle() const {
    return isRelaying() && !awaitsAnswer_ && toClient_.empty();
}

void Relay::readClient() {
    Block block{};
    std::size_t size = 0;
    const Io result = readSome(client_, block, size);
    if (result == Io::Later) return;
    if (!isRelaying()) {  // nothing that the client says matters any more
        if (result == Io::End) close();
        return;
    }
    if (result == Io::End) {
        clientEnded_ = true;
        book_.clientEnded(relayPort_, number_);
    } else {
        book_.heard(number_, block.data(), size);
        toServer_.append(block.data(), size);
        awaitsAnswer_ = true;
    }
    flushToServer();
}

void Relay::flushToServer() {
    // A server that reads no more has answered or is about to close; its end is read elsewhere.
    if (server_ < 0 || writeSome(server_, toServer_) == Io::End) toServer_.clear();
    if (clientEnded_ && toServer_.empty() && !toServerShut_) {
        toServerShut_ = true;
        shutdown(server_, SHUT_WR);
    }
}

void Relay::readServer() {
    Block block{};
    std::size_t size = 0;
    switch (readSome(server_, block, size)) {
        case Io::Later:
            return;
        case Io::End:
            closeSocket(server_);
            if (isRelaying()) beginEnding();
            return;
        case Io::Some:
            if (isRelaying()) relayToClient(block.data(), size);
    }
}

void Relay::relayToClient(const char* data, std::size_t size) {
    std::size_t passing = size;
    if (plan_ && plan_->pass != Sabotage::kAll) {
        passing = std::min(size, plan_->pass);
        plan_->pass -= passing;
    }
    toClient_.append(data, passing);
    awaitsAnswer_ = false;
    if (plan_ && plan_->pass == 0) {
        beginEnding();
    } else {
        flushToClient();
    }
}

void Relay::sabotage(Sabotage plan) {
    // What the server wrote before this answer, such as the end of a TLS handshake, passes.
    readServer();
    if (!isRelaying()) return;
    toClient_ += plan.instead;
    plan_ = std::move(plan);
    if (plan_->pass == 0) beginEnding();
}

void Relay::sendUnasked(const std::string& bytes) {
    toClient_ += bytes;
    flushToClient();
}

void Relay::beginEnding() {
    phase_ = Phase::Ending;
    flushToClient();
}

void Relay::flushToClient() {
    if (writeSome(client_, toClient_) == Io::End) {
        close();
    } else if (phase_ == Phase::Ending && toClient_.empty()) {
        finishEnding();
    }
}

void Relay::finishEnding() {
    switch (plan_ ? plan_->ending : Ending::Close) {
        case Ending::Close:
            return linger();
        case Ending::Reset:
            return reset();
        case Ending::Stall:
            phase_ = Phase::Stalled;
            book_.stallBegan();
    }
}

// Closing a socket while bytes of the client lie unread in it would reset the connection, and the
// client might lose the end of the answer.
void Relay::linger() {
    closeSocket(server_);
    if (clientEnded_) return close();
    shutdown(client_, SHUT_WR);
    phase_ = Phase::Lingering;
    lingerUntil_ = Clock::now() + kLinger;
    book_.changed();
}

void Relay::reset() {
    resetSocket(client_);
    close();
}

void Relay::finish() {
    if (isRelaying() && server_ >= 0) readServer();
    close();
}

void Relay::close() {
    if (isClosed()) return;
    closeSocket(client_);
    closeSocket(server_);
    if (std::exchange(phase_, Phase::Closed) == Phase::Stalled) book_.stallEnded();
    book_.closed(relayPort_, number_);
}

}  // namespace gateway
