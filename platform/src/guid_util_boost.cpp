#include <Oak/Base/GuidUtil.h>

#include <boost/uuid/entropy_error.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>

namespace Oak::Base {
namespace {

std::uint64_t Nanoseconds(auto sinceEpoch) {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count());
}

// An identifier only has to be new, it keeps no secret: without entropy of the system the time
// tells processes apart, and the count tells the calls of one process apart.
boost::uuids::uuid GuidWithoutEntropy() {
    static constinit std::atomic<std::uint64_t> calls{0};
    const std::array<std::uint64_t, 4> sources{
        calls.fetch_add(1, std::memory_order_relaxed),
        Nanoseconds(std::chrono::system_clock::now().time_since_epoch()),
        Nanoseconds(std::chrono::steady_clock::now().time_since_epoch()),
        reinterpret_cast<std::uintptr_t>(&calls)};

    std::array<std::uint32_t, 2 * sources.size()> words{};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        words[2 * i] = static_cast<std::uint32_t>(sources[i]);
        words[2 * i + 1] = static_cast<std::uint32_t>(sources[i] >> 32);
    }
    std::seed_seq seed(words.begin(), words.end());
    std::mt19937 engine(seed);
    return boost::uuids::basic_random_generator<std::mt19937>(engine)();
}

boost::uuids::uuid NewGuid() {
    try {
        return boost::uuids::random_generator()();
    } catch (const boost::uuids::entropy_error&) {
        return GuidWithoutEntropy();
    }
}

}  // namespace

std::string GuidUtil::CreateGuid() {
    return boost::uuids::to_string(NewGuid());
}

}  // namespace Oak::Base
