#include "stage.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <future>
#include <memory>
#include <system_error>

namespace gateway {
namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;
constexpr std::size_t kMaxPending = 4 * kBlock;
constexpr std::size_t kMaxWire = std::size_t{16} << 20;
// How long a client has to read the end of an answer after which the connection is closed.
constexpr std::chrono::seconds kLinger{2};

#ifdef MSG_NOSIGNAL
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

std::string lastError() {
    return std::generic_category().message(errno);
}

void closeSocket(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

void keepToItself(int fd) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void neverBlock(int fd) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

void sendAtOnce(int fd) {
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

int localPort(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return portOf(address);
}

bool isLoopback(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET6) {
        const auto& v6 = reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
        return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
    }
    return ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24 == 127;
}

int connectToServer(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) return -1;
    keepToItself(fd);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    ::close(fd);
    return -1;
}

enum class Io { Some, Later, End };

Io readSome(int fd, std::array<char, kBlock>& block, std::size_t& size) {
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

}  // namespace

Stage::Stage(std::function<void()> onChange) : onChange_(std::move(onChange)) {}

Stage::~Stage() {
    stop();
}

bool Stage::listen(const std::string& address, int port, std::size_t maxConnections,
                   std::string& reason) {
    address_ = address;
    port_ = port;
    maxConnections_ = maxConnections;
    openListener(true, reason);
    return listener_ >= 0;
}

void Stage::openListener(bool listening, std::string& reason) {
    const auto address = resolve(address_, port_);
    if (!address) {
        reason = address_ + " is not a numeric address";
        return;
    }
    listener_ = socket(address->ai_family, SOCK_STREAM, 0);
    const int on = 1;
    if (listener_ >= 0) {
        keepToItself(listener_);
        neverBlock(listener_);
        setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    }
    if (listener_ < 0 || bind(listener_, address->ai_addr, address->ai_addrlen) != 0 ||
        (listening && ::listen(listener_, SOMAXCONN) != 0)) {
        reason = address_ + " port " + std::to_string(port_) + ": " + lastError();
        closeSocket(listener_);
        return;
    }
    if (port_ == 0) port_ = localPort(listener_);  // read by other threads once it stands
}

void Stage::run(int serverPort) {
    serverPort_ = serverPort;
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    for (const int end : ends) {
        keepToItself(end);
        neverBlock(end);
    }
    wakeRead_ = ends[0];
    wakeWrite_ = ends[1];
    running_ = true;
    thread_ = std::thread([this] { loop(); });
}

void Stage::stop() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        if (running_) wake();
    }
    if (thread_.joinable()) thread_.join();
    closeSocket(listener_);
    closeSocket(wakeRead_);
    closeSocket(wakeWrite_);
}

void Stage::wake() const {
    [[maybe_unused]] const auto full = write(wakeWrite_, "", 1);
}

void Stage::onThread(const std::function<void()>& task) {
    std::promise<void> done;
    {
        const std::scoped_lock lock(mutex_);
        if (!running_) return;
        tasks_.emplace_back([&] {
            task();
            done.set_value();
        });
        wake();
    }
    done.get_future().wait();
}

void Stage::runTasks() {
    std::vector<std::function<void()>> tasks;
    {
        const std::scoped_lock lock(mutex_);
        tasks.swap(tasks_);
    }
    for (const auto& task : tasks)
        task();
}

void Stage::loop() {
    std::vector<pollfd> polled;
    std::string drained(256, '\0');
    for (;;) {
        polled.clear();
        polled.push_back({wakeRead_, POLLIN, 0});
        const bool accepting =
            listener_ >= 0 && !refusing_ && connections_.size() < maxConnections_;
        polled.push_back({accepting ? listener_ : -1, POLLIN, 0});
        bool lingering = false;
        for (const auto& c : connections_) {
            short client = 0;
            short server = 0;
            const bool reads = c.phase == Phase::Relaying ? c.toServer.size() < kMaxPending
                                                          : c.phase != Phase::Ending;
            if (reads && !c.clientEnded) client |= POLLIN;
            if (!c.toClient.empty()) client |= POLLOUT;
            if (c.toClient.size() < kMaxPending) server |= POLLIN;
            if (!c.toServer.empty()) server |= POLLOUT;
            polled.push_back({client != 0 ? c.client : -1, client, 0});
            polled.push_back({c.server, server, 0});
            lingering = lingering || c.phase == Phase::Lingering;
        }
        constexpr int kLingerCheckMs = 50;
        if (poll(polled.data(), polled.size(), lingering ? kLingerCheckMs : -1) < 0 &&
            errno != EINTR)
            break;

        const std::size_t known = connections_.size();
        for (std::size_t i = 0; i < known; ++i)
            serve(connections_[i], polled[2 + 2 * i].revents, polled[3 + 2 * i].revents);
        if (polled[0].revents != 0) {
            while (read(wakeRead_, drained.data(), drained.size()) > 0) {
            }
            runTasks();
        }
        if (accepting && polled[1].revents != 0) acceptClients();
        forgetClosed();

        const std::scoped_lock lock(mutex_);
        if (stopping_) break;
    }
    closeAll();
}

void Stage::closeAll() {
    for (auto& c : connections_) {
        // An answer that the server has written is handed over, as far as the client takes it.
        if (c.phase == Phase::Relaying && c.server >= 0) readServer(c);
        close(c);
    }
    forgetClosed();
    closeSocket(listener_);
    {
        const std::scoped_lock lock(mutex_);
        running_ = false;
    }
    runTasks();
    onChange_();
}

void Stage::acceptClients() {
    while (connections_.size() < maxConnections_) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        const int client = accept(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        if (client < 0) {
            // Out of descriptors: the client stays in the queue, and we don't spin on it.
            if (errno == EMFILE || errno == ENFILE)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            return;
        }
        if (!admit(client, isLoopback(address))) ::close(client);
    }
}

bool Stage::admit(int client, bool isLoopbackClient) {
    Connection c;
    c.client = client;
    c.server = connectToServer(serverPort_);
    if (c.server < 0) return false;
    keepToItself(client);
    for (const int fd : {c.client, c.server}) {
        neverBlock(fd);
        sendAtOnce(fd);
    }
    c.relayPort = localPort(c.server);
    {
        const std::scoped_lock lock(mutex_);
        c.number = ++accepted_;
        peers_[c.relayPort] = {c.number, isLoopbackClient};
    }
    connections_.push_back(std::move(c));
    onChange_();
    return true;
}

void Stage::serve(Connection& c, short clientEvents, short serverEvents) {
    constexpr short kReadable = POLLIN | POLLHUP | POLLERR;
    if (c.phase == Phase::Closed) return;
    if ((clientEvents & POLLOUT) != 0) flushToClient(c);
    if (c.phase != Phase::Closed && (serverEvents & POLLOUT) != 0) flushToServer(c);
    if (c.phase != Phase::Closed && (clientEvents & kReadable) != 0) readClient(c);
    if (c.phase != Phase::Closed && c.server >= 0 && (serverEvents & kReadable) != 0) readServer(c);
    if (c.phase == Phase::Lingering && Clock::now() > c.lingerUntil) close(c);
}

void Stage::readClient(Connection& c) {
    std::array<char, kBlock> block{};
    std::size_t size = 0;
    const Io result = readSome(c.client, block, size);
    if (result == Io::Later) return;
    if (c.phase != Phase::Relaying) {  // nothing that the client says matters any more
        if (result == Io::End) close(c);
        return;
    }
    if (result == Io::End) {
        c.clientEnded = true;
    } else {
        keepWire(c, block.data(), size);
        c.toServer.append(block.data(), size);
        c.awaitsAnswer = true;
    }
    flushToServer(c);
}

void Stage::flushToServer(Connection& c) {
    // A server that reads no more has answered or is about to close; its end is read elsewhere.
    if (c.server < 0 || writeSome(c.server, c.toServer) == Io::End) c.toServer.clear();
    if (c.clientEnded && c.toServer.empty() && !c.toServerShut) {
        c.toServerShut = true;
        shutdown(c.server, SHUT_WR);
    }
}

void Stage::readServer(Connection& c) {
    std::array<char, kBlock> block{};
    std::size_t size = 0;
    switch (readSome(c.server, block, size)) {
        case Io::Later:
            return;
        case Io::End:
            closeSocket(c.server);
            if (c.phase == Phase::Relaying) beginEnding(c);
            return;
        case Io::Some:
            if (c.phase == Phase::Relaying) relayToClient(c, block.data(), size);
    }
}

void Stage::relayToClient(Connection& c, const char* data, std::size_t size) {
    std::size_t passing = size;
    if (c.plan && c.plan->pass != Sabotage::kAll) {
        passing = std::min(size, c.plan->pass);
        c.plan->pass -= passing;
    }
    c.toClient.append(data, passing);
    c.awaitsAnswer = false;
    if (c.plan && c.plan->pass == 0) {
        beginEnding(c);
    } else {
        flushToClient(c);
    }
}

void Stage::beginEnding(Connection& c) {
    c.phase = Phase::Ending;
    flushToClient(c);
}

void Stage::flushToClient(Connection& c) {
    if (writeSome(c.client, c.toClient) == Io::End) {
        close(c);
    } else if (c.phase == Phase::Ending && c.toClient.empty()) {
        finishEnding(c);
    }
}

void Stage::finishEnding(Connection& c) {
    switch (c.plan ? c.plan->ending : Ending::Close) {
        case Ending::Close:
            return linger(c);
        case Ending::Reset:
            return reset(c);
        case Ending::Stall:
            c.phase = Phase::Stalled;
            {
                const std::scoped_lock lock(mutex_);
                ++stalled_;
            }
            onChange_();
    }
}

// Closing a socket while bytes of the client lie unread in it would reset the connection, and the
// client might lose the end of the answer.
void Stage::linger(Connection& c) {
    closeSocket(c.server);
    if (c.clientEnded) return close(c);
    shutdown(c.client, SHUT_WR);
    c.phase = Phase::Lingering;
    c.lingerUntil = Clock::now() + kLinger;
    onChange_();
}

void Stage::reset(Connection& c) {
    const ::linger discard{1, 0};
    setsockopt(c.client, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
    close(c);
}

void Stage::close(Connection& c) {
    if (c.phase == Phase::Closed) return;
    closeSocket(c.client);
    closeSocket(c.server);
    {
        const std::scoped_lock lock(mutex_);
        if (c.phase == Phase::Stalled) --stalled_;
        // The port may already serve a later connection, if the server closed first.
        const auto peer = peers_.find(c.relayPort);
        if (peer != peers_.end() && peer->second.connection == c.number) peers_.erase(peer);
    }
    c.phase = Phase::Closed;
    onChange_();
}

void Stage::forgetClosed() {
    std::erase_if(connections_, [](const Connection& c) { return c.phase == Phase::Closed; });
}

Stage::Connection* Stage::find(int relayPort) {
    const auto found = std::find_if(connections_.begin(), connections_.end(), [&](auto& c) {
        return c.relayPort == relayPort && c.server >= 0;
    });
    return found == connections_.end() ? nullptr : &*found;
}

Stage::Peer Stage::peer(int relayPort) const {
    const std::scoped_lock lock(mutex_);
    const auto found = peers_.find(relayPort);
    return found == peers_.end() ? Peer{} : found->second;
}

void Stage::sabotage(int relayPort, Sabotage plan) {
    onThread([&] {
        Connection* c = find(relayPort);
        if (c == nullptr || c->phase != Phase::Relaying) return;
        // What the server wrote before this answer, such as the end of a TLS handshake, passes.
        readServer(*c);
        if (c->phase != Phase::Relaying) return;
        c->toClient += plan.instead;
        c->plan = std::move(plan);
        if (c->plan->pass == 0) beginEnding(*c);
    });
}

bool Stage::refuse(bool on) {
    bool done = false;
    onThread([&] {
        if (on != refusing_) {
            // Bound without listening, the port stays ours while it refuses.
            closeSocket(listener_);
            std::string reason;
            openListener(!on, reason);
            refusing_ = on;
        }
        done = listener_ >= 0;
    });
    return done;
}

bool Stage::isIdle(const Connection& c) {
    return c.phase == Phase::Relaying && !c.awaitsAnswer && c.toClient.empty();
}

void Stage::closeIdle() {
    onThread([&] {
        for (auto& c : connections_)
            if (isIdle(c)) beginEnding(c);
    });
}

void Stage::sendUnasked(const std::string& bytes) {
    onThread([&] {
        for (auto& c : connections_) {
            if (!isIdle(c)) continue;
            c.toClient += bytes;
            flushToClient(c);
        }
    });
}

void Stage::resetStalled() {
    onThread([&] {
        for (auto& c : connections_)
            if (c.phase == Phase::Stalled) reset(c);
    });
}

std::uint64_t Stage::accepted() const {
    const std::scoped_lock lock(mutex_);
    return accepted_;
}

std::size_t Stage::stalled() const {
    const std::scoped_lock lock(mutex_);
    return stalled_;
}

void Stage::recordWire(bool on) {
    const std::scoped_lock lock(mutex_);
    recordingWire_ = on;
    wire_.clear();
    wireSize_ = 0;
}

std::string Stage::wireBytes() const {
    const std::scoped_lock lock(mutex_);
    std::string all;
    for (const auto& [number, bytes] : wire_)
        all += bytes;
    return all;
}

void Stage::keepWire(const Connection& c, const char* data, std::size_t size) {
    const std::scoped_lock lock(mutex_);
    if (!recordingWire_) return;
    const std::size_t kept = std::min(size, kMaxWire - wireSize_);
    wire_[c.number].append(data, kept);
    wireSize_ += kept;
}

}  // namespace gateway
