#include "sockets_posix.h"
#include "stage.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <utility>

namespace gateway {

/// What one poll() looks at: the pipe that wakes the thread, the listener, and two sockets of each
/// relay, in the order of the relays.
struct Stage::Polled {
    std::vector<pollfd> sockets;

    void clear() { sockets.clear(); }
    void add(int fd, short events) { sockets.push_back({fd, events, 0}); }
    bool isWoken() const { return sockets[0].revents != 0; }
    bool isCalled() const { return sockets[1].revents != 0; }
    short client(std::size_t relay) const { return sockets[2 + 2 * relay].revents; }
    short server(std::size_t relay) const { return sockets[3 + 2 * relay].revents; }
};

Stage::Stage(ConnectionBook& book) : book_(book) {}

Stage::~Stage() {
    stop();
}

bool Stage::listen(const std::string& address, int port, std::size_t maxConnections,
                   std::string& reason) {
    address_ = address;
    maxConnections_ = maxConnections;
    listener_ = openListener(address, port, true, reason);
    if (listener_ < 0) return false;
    port_ = port == 0 ? localPort(listener_) : port;  // read by other threads once it stands
    return true;
}

void Stage::run(int serverPort) {
    serverPort_ = serverPort;
    const auto ends = makePipe();
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
    [[maybe_unused]] const auto full = ::write(wakeWrite_, "", 1);
}

void Stage::drainWakes() const {
    std::array<char, 256> drained{};
    while (read(wakeRead_, drained.data(), drained.size()) > 0) {
    }
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
    Polled polled;
    while (pollOnce(polled)) {
        const std::scoped_lock lock(mutex_);
        if (stopping_) break;
    }
    closeAll();
}

bool Stage::pollOnce(Polled& polled) {
    polled.clear();
    polled.add(wakeRead_, POLLIN);
    const bool accepting = listener_ >= 0 && !refusing_ && relays_.size() < maxConnections_;
    polled.add(accepting ? listener_ : -1, POLLIN);
    for (const auto& relay : relays_) {
        const short client = relay.clientEvents();
        polled.add(client != 0 ? relay.clientSocket() : -1, client);
        polled.add(relay.serverSocket(), relay.serverEvents());
    }
    constexpr int kLingerCheckMs = 50;
    const bool lingering =
        std::any_of(relays_.begin(), relays_.end(), [](const Relay& r) { return r.isLingering(); });
    if (poll(polled.sockets.data(), polled.sockets.size(), lingering ? kLingerCheckMs : -1) < 0 &&
        errno != EINTR)
        return false;

    std::size_t i = 0;
    for (auto& relay : relays_) {
        relay.serve(polled.client(i), polled.server(i));
        ++i;
    }
    if (polled.isWoken()) {
        drainWakes();
        runTasks();
    }
    if (accepting && polled.isCalled()) acceptClients();
    forgetClosed();
    return true;
}

void Stage::closeAll() {
    for (auto& relay : relays_)
        relay.finish();
    forgetClosed();
    closeSocket(listener_);
    {
        const std::scoped_lock lock(mutex_);
        running_ = false;
    }
    runTasks();
    book_.changed();
}

void Stage::acceptClients() {
    while (relays_.size() < maxConnections_) {
        auto [client, isLoopback] = acceptFrom(listener_);
        if (client < 0) return;
        const int server = connectToLoopback(serverPort_);
        if (server < 0)
            closeSocket(client);
        else
            relays_.emplace_back(client, server, isLoopback, book_);
    }
}

void Stage::forgetClosed() {
    relays_.remove_if([](const Relay& relay) { return relay.isClosed(); });
}

void Stage::sabotage(int relayPort, Sabotage plan) {
    onThread([&] {
        const auto found = std::find_if(relays_.begin(), relays_.end(), [&](const Relay& relay) {
            return relay.relayPort() == relayPort && relay.serverSocket() >= 0;
        });
        if (found != relays_.end() && found->isRelaying()) found->sabotage(std::move(plan));
    });
}

bool Stage::refuse(bool on) {
    bool done = false;
    onThread([&] {
        if (on != refusing_) {
            // Bound without listening, the port stays ours while it refuses.
            closeSocket(listener_);
            std::string reason;
            listener_ = openListener(address_, port_, !on, reason);
            refusing_ = on;
        }
        done = listener_ >= 0;
    });
    return done;
}

void Stage::closeIdle() {
    onThread([&] {
        for (auto& relay : relays_)
            if (relay.isIdle()) relay.beginEnding();
    });
}

void Stage::sendUnasked(const std::string& bytes) {
    onThread([&] {
        for (auto& relay : relays_)
            if (relay.isIdle()) relay.sendUnasked(bytes);
    });
}

void Stage::resetStalled() {
    onThread([&] {
        for (auto& relay : relays_)
            if (relay.isStalled()) relay.reset();
    });
}

}  // namespace gateway
