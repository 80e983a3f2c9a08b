#pragma once

// The socket stage in front of the HTTP server. It accepts the clients' connections, relays their
// bytes to the server over loopback, and makes the faults that lie below HTTP. It never looks into
// the bytes, so that it works the same below TLS.

#include "connection_book.h"
#include "relay.h"

#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gateway {

/// The public operations may be called from any thread; most run on the stage's own thread and
/// return when they have taken effect there.
class Stage {
 public:
    /// The book must outlive it.
    explicit Stage(ConnectionBook& book);
    ~Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    bool listen(const std::string& address, int port, std::size_t maxConnections,
                std::string& reason);
    int port() const { return port_; }
    /// Starts to accept. Connections go to the server on this port of 127.0.0.1.
    void run(int serverPort);
    /// Closes every socket and joins the thread.
    void stop();

    /// Meets the connection that the server knows by that port.
    void sabotage(int relayPort, Sabotage plan);
    bool refuse(bool on);
    void closeIdle();
    void sendUnasked(const std::string& bytes);
    void resetStalled();

 private:
    struct Polled;

    void loop();
    bool pollOnce(Polled& polled);
    void onThread(const std::function<void()>& task);
    void runTasks();
    void wake() const;
    void drainWakes() const;
    void acceptClients();
    void forgetClosed();
    void closeAll();

    ConnectionBook& book_;
    std::string address_;
    int port_ = 0;
    int serverPort_ = 0;
    std::size_t maxConnections_ = 0;
    std::thread thread_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;

    // The stage's thread only, once it runs.
    int listener_ = -1;
    bool refusing_ = false;
    std::list<Relay> relays_;

    std::mutex mutex_;  // guards all that follows
    bool running_ = false;
    bool stopping_ = false;
    std::vector<std::function<void()>> tasks_;
};

}  // namespace gateway
