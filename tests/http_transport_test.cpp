// The pool of handles on its own: which are kept, for how long, and who gets them.

#include "http_transport_curl.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Oak::Net::HandleList;
using Oak::Net::HttpTransport;

std::chrono::steady_clock::time_point now{24h};

}  // namespace

// In place of the C++ library's. NOLINTNEXTLINE(cert-dcl58-cpp): for the linker
std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return ::now;
}

namespace {

std::string Url(std::size_t number) {
    return "http://127.0.0.1/" + std::to_string(number);
}

/// A handle of the generation of the moment that is set up for a URL.
HandleList Made(HttpTransport& pool, std::size_t number) {
    HandleList handle;
    handle.emplace_front(pool.Take("").generation);
    handle.front().target = *Oak::Net::ParseHttpTarget(Url(number));
    return handle;
}

bool Keeps(HttpTransport& pool, std::size_t number) {
    return !pool.Take(Url(number)).handle.empty();
}

TEST(HttpTransportTest, KeepsTheThirtyTwoNewest) {
    HttpTransport pool;
    std::vector<HandleList> busy;
    for (std::size_t i = 0; i <= HttpTransport::maxIdleHandles; ++i)
        busy.push_back(Made(pool, i));
    for (auto& handle : busy)
        pool.GiveBack(std::move(handle));
    EXPECT_FALSE(Keeps(pool, 0));
    for (std::size_t i = 1; i <= HttpTransport::maxIdleHandles; ++i)
        EXPECT_TRUE(Keeps(pool, i)) << i;  // and takes it
    EXPECT_FALSE(Keeps(pool, 1));

    pool.GiveBack(Made(pool, 1));
    const auto taken = pool.TakeAny(pool.Take("").generation);
    EXPECT_TRUE(taken.front().Serves(Url(1))) << "before a new one is made";
}

TEST(HttpTransportTest, KeepsNoneForMoreThanAMinute) {
    HttpTransport pool;
    HandleList first = Made(pool, 1);
    pool.GiveBack(Made(pool, 2));
    now += HttpTransport::maxIdleTime;
    pool.GiveBack(std::move(first));  // idle from now on, whenever it was made
    EXPECT_TRUE(Keeps(pool, 2));
    pool.GiveBack(Made(pool, 2));
    now += HttpTransport::maxIdleTime + 1ms;
    EXPECT_FALSE(Keeps(pool, 1) || Keeps(pool, 2));
}

TEST(HttpTransportTest, KeepsHandlesOfTheGenerationOfTheMomentAlone) {
    HttpTransport pool;
    HandleList old = Made(pool, 1);
    pool.GiveBack(Made(pool, 2));
    Oak::Net::HttpClientOptions options;
    options.connectTimeoutMs = options.totalTimeoutMs = 0;
    options.maxResponseBytes = 0;
    options.caFile = "a";
    const auto before = pool.Take("").generation;
    pool.SetOptions(options);
    pool.GiveBack(std::move(old));
    EXPECT_FALSE(Keeps(pool, 1) || Keeps(pool, 2));

    pool.GiveBack(Made(pool, 3));
    pool.Forget(before);  // which is not in force any more
    const auto current = pool.Take(Url(3));
    EXPECT_FALSE(current.handle.empty());
    pool.GiveBack(Made(pool, 3));
    pool.Forget(current.generation);
    EXPECT_FALSE(Keeps(pool, 3));
    const auto fresh = pool.Take("").generation;
    EXPECT_NE(fresh, current.generation);
    EXPECT_EQ(fresh->options.caFile, "a");
    EXPECT_EQ(fresh->options.connectTimeoutMs, 10'000U) << "a limit of 0 is none";
    EXPECT_EQ(fresh->options.totalTimeoutMs, 120'000U);
    EXPECT_EQ(fresh->options.maxResponseBytes, std::uint64_t{64} << 20);
}

}  // namespace
