#pragma once

#include "gateway.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

namespace gateway {

std::string_view kindName(FaultKind kind);
std::optional<FaultKind> kindFrom(std::string_view name);

/// The faults in force. Thread-safe.
class FaultList {
 public:
    /// Gives the fault its id.
    std::uint64_t add(Fault fault);
    bool remove(std::uint64_t id);
    void clear();
    std::vector<Fault> all() const;
    /// What meets the request, each use counted: delays, then at most one other.
    std::vector<Fault> take(const Request& request);

 private:
    mutable std::mutex mutex_;
    std::vector<Fault> faults_;
    std::uint64_t added_ = 0;
};

}  // namespace gateway
