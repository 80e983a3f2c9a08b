#pragma once

#include "connection_book.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

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

/// One connection of a client and the one to the server behind it: bytes go both ways until an
/// ending begins. It never looks into them. All on the stage's thread.
class Relay {
 public:
    /// Takes both sockets over. The book must outlive it.
    Relay(int client, int server, bool isLoopbackClient, ConnectionBook& book);
    ~Relay();
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    int clientSocket() const { return client_; }
    int serverSocket() const { return server_; }
    /// What poll() is to look for.
    short clientEvents() const;
    short serverEvents() const;
    /// What poll() has found.
    void serve(short clientEvents, short serverEvents);

    int relayPort() const { return relayPort_; }
    bool isRelaying() const { return phase_ == Phase::Relaying; }
    bool isIdle() const;
    bool isLingering() const { return phase_ == Phase::Lingering; }
    bool isStalled() const { return phase_ == Phase::Stalled; }
    bool isClosed() const { return phase_ == Phase::Closed; }

    void sabotage(Sabotage plan);
    void sendUnasked(const std::string& bytes);
    /// The client gets what is pending, then the end that is planned.
    void beginEnding();
    void reset();
    /// Hands over what the server has written, as far as the client takes it, and closes.
    void finish();

 private:
    using Clock = std::chrono::steady_clock;
    enum class Phase { Relaying, Ending, Lingering, Stalled, Closed };

    void readClient();
    void readServer();
    void relayToClient(const char* data, std::size_t size);
    void flushToServer();
    void flushToClient();
    void finishEnding();
    void linger();
    void close();

    ConnectionBook& book_;
    int client_ = -1;
    int server_ = -1;
    const int relayPort_;
    const std::uint64_t number_;
    Phase phase_ = Phase::Relaying;
    std::string toServer_;
    std::string toClient_;
    bool clientEnded_ = false;
    bool toServerShut_ = false;
    bool awaitsAnswer_ = false;  // the last bytes that moved came from the client
    std::optional<Sabotage> plan_;
    Clock::time_point lingerUntil_;
};

}  // namespace gateway
