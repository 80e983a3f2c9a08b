#pragma once

#include "gateway.h"
#include "latest.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace gateway {

/// The latest exchanges, as many as the options allow. Thread-safe.
class ExchangeLog {
 public:
    explicit ExchangeLog(const Options& options);

    /// Gives the request its number.
    void add(Request& request);
    /// Notes the faults that met a request, before they take effect.
    void addFaults(std::uint64_t number, const std::vector<Fault>& faults);
    /// Notes how a request ended: with an answer, of whose body so much is let out, or without.
    void end(std::uint64_t number, const Answer* answer, std::size_t sent);
    void clear();

    std::vector<Request> requests() const;
    Exchanges changedSince(std::uint64_t revision, std::size_t maxCount, std::size_t maxBody) const;

 private:
    using Clock = std::chrono::steady_clock;
    struct Record {
        Exchange exchange;
        Clock::time_point begin;
    };

    template <typename Change>
    void change(std::uint64_t number, std::size_t moreBytes, Change change);

    const std::size_t maxBody_;
    const bool recordsAnswers_;
    mutable std::mutex mutex_;  // guards what follows
    Latest<Record> kept_;
    std::uint64_t count_ = 0;
    std::uint64_t revision_ = 0;
};

}  // namespace gateway
