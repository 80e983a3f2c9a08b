#pragma once

#include "gateway.h"
#include "model_url.h"
#include "turns.h"

#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <vector>

namespace gateway {

/// Posts to the model's server, over connections that are kept and shared. Never more requests are
/// under way than the options allow. Thread-safe.
class ModelClient {
 public:
    enum class Fate { Answered, NotReached, NotTrusted, NoTurn, TimedOut, CutOff, TooLarge, Left };
    struct Reply {
        Fate fate = Fate::Answered;
        int status = 0;
        std::string body;
    };

    /// Throws std::runtime_error when the options can't be used. They must outlive it.
    explicit ModelClient(const ModelOptions& options);
    ~ModelClient();
    ModelClient(const ModelClient&) = delete;
    ModelClient& operator=(const ModelClient&) = delete;

    /// Ends early, with the exchange cut, when the asker has left.
    Reply post(const std::string& path, const std::string& body, const std::stop_token& left);

 private:
    class Connection;
    using Clock = std::chrono::steady_clock;

    std::unique_ptr<Connection> connect() const;
    std::unique_ptr<Connection> takeKept();
    void keep(std::unique_ptr<Connection> connection);

    const ModelOptions& options_;
    const ModelUrl url_;
    Turns turns_;
    std::mutex mutex_;  // guards what follows
    std::vector<std::unique_ptr<Connection>> kept_;
};

}  // namespace gateway
