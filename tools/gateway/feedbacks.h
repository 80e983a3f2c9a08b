#pragma once

#include "gateway.h"
#include "json.h"
#include "latest.h"

#include <mutex>
#include <vector>

namespace gateway {

/// The feedbacks accepted and their withdrawal. Thread-safe.
class Feedbacks {
 public:
    /// Accepts any trace id but an empty one: the gateway doesn't remember queries.
    Answer submit(const rapidjson::Value& body);
    Answer withdraw(const rapidjson::Value& body);
    std::vector<Feedback> all() const;

 private:
    static constexpr std::size_t kMaxCount = 10000;
    static constexpr std::size_t kMaxBytes = std::size_t{16} << 20;

    mutable std::mutex mutex_;  // guards what follows
    Latest<Feedback> kept_{kMaxCount, kMaxBytes};
};

}  // namespace gateway
