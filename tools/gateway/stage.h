#pragma once

// The socket stage in front of the HTTP server. It accepts the clients' connections, relays their
// bytes to the server over loopback, and makes the faults that lie below HTTP. It never looks into
// the bytes, so that it works the same below TLS.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace gateway {

enum class Ending { Close, Reset, Stall };

/// What becomes of an answer: so many of its bytes pass, or others in its place, then the client's
/// connection ends. It ends at the latest when the server closes its side.
struct Sabotage {
    static constexpr std::size_t kAll = static_cast<std::size_t>(-1);
    Ending ending = Ending::Close;
    std::size_t pass = kAll;
    std::string instead;
};

/// The public operations may be called from any thread; most run on the stage's own thread and
/// return when they have taken effect there.
class Stage {
 public:
    struct Peer {
        std::uint64_t connection = 0;
        bool isLoopback = false;
    };

    /// Tells that something changed that a test may wait for. Called on the stage's thread.
    explicit Stage(std::function<void()> onChange);
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

    /// The server knows a relayed connection by the port that it comes from.
    Peer peer(int relayPort) const;
    void sabotage(int relayPort, Sabotage plan);

    bool refuse(bool on);
    void closeIdle();
    void sendUnasked(const std::string& bytes);
    void resetStalled();

    std::uint64_t accepted() const;
    std::size_t stalled() const;
    void recordWire(bool on);
    std::string wireBytes() const;

 private:
    using Clock = std::chrono::steady_clock;
    enum class Phase { Relaying, Ending, Lingering, Stalled, Closed };
    struct Connection {
        std::uint64_t number = 0;
        int client = -1;
        int server = -1;
        int relayPort = 0;
        Phase phase = Phase::Relaying;
        std::string toServer;
        std::string toClient;
        bool clientEnded = false;
        bool toServerShut = false;
        bool awaitsAnswer = false;  // the last bytes that moved came from the client
        std::optional<Sabotage> plan;
        Clock::time_point lingerUntil;
    };

    static bool isIdle(const Connection& c);
    void loop();
    void onThread(const std::function<void()>& task);
    void runTasks();
    void wake() const;
    void acceptClients();
    bool admit(int client, bool isLoopback);
    void serve(Connection& c, short clientEvents, short serverEvents);
    void readClient(Connection& c);
    void readServer(Connection& c);
    void relayToClient(Connection& c, const char* data, std::size_t size);
    void beginEnding(Connection& c);
    void flushToServer(Connection& c);
    void flushToClient(Connection& c);
    void finishEnding(Connection& c);
    void linger(Connection& c);
    void close(Connection& c);
    void reset(Connection& c);
    void forgetClosed();
    void openListener(bool listening, std::string& reason);
    void closeAll();
    void keepWire(const Connection& c, const char* data, std::size_t size);
    Connection* find(int relayPort);

    const std::function<void()> onChange_;
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
    std::deque<Connection> connections_;  // a deque: elements stay where they are

    mutable std::mutex mutex_;  // guards all that follows
    bool running_ = false;
    bool stopping_ = false;
    std::vector<std::function<void()>> tasks_;
    std::map<int, Peer> peers_;
    std::uint64_t accepted_ = 0;
    std::size_t stalled_ = 0;
    bool recordingWire_ = false;
    std::size_t wireSize_ = 0;
    std::map<std::uint64_t, std::string> wire_;
};

}  // namespace gateway
