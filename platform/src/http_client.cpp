#include "http_exchange.h"

#include <Oak/Base/Process.h>
#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace Oak::Net {
namespace {

/// The visit ends before any record is written, and a log handler runs.
std::optional<Failure> Attempt(const CHttpClientRequest& request, CHttpClientResponse* response,
                               Telling& telling) noexcept {
    const TransportVisit visit;
    if (visit.Get() == nullptr) return exchangeEnded;
    try {
        return Exchange(*visit.Get(), request, response, telling);
    } catch (const std::exception&) {
        return outOfMemory;
    }
}

}  // namespace

HttpClient::HttpClient() {
    const TransportVisit start;
}

HttpClient::~HttpClient() {}  // the transport outlives every client

bool HttpClient::Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                      Error* error) {
    Telling telling;
    const auto failure = Attempt(request, response, telling);
    if (!failure) return true;
    Describe(*failure, telling, error);
    if (failure->reason != FailureReason::ended) Report(*failure, telling, request.Method());
    return false;
}

void HttpClient::WakeAll() noexcept {
    if (!Oak::Base::OtherThreadsGone()) ExchangeWait::WakeAll();
}

void SetHttpClientOptions(const HttpClientOptions& options) {
    const TransportVisit visit;
    if (visit.Get() != nullptr) SetOptions(*visit.Get(), options);
}

// --- the transport's life ------------------------------------------------------------------------

namespace {

std::atomic<bool> ended{false};
std::atomic<std::uint32_t> visitors{0};

/// Starts the transport and, at process exit or unload, ends it.
class Lifetime : private Oak::Base::CNoncopyable {
 public:
    Lifetime() : transport_(StartTransport()) {}
    ~Lifetime() {
        // Both sides write first and read then, in one total order: either the visitor sees the
        // end, or the end sees the visitor.
        ended.store(true);
        if (Oak::Base::OtherThreadsGone()) return;
        ExchangeWait::WakeAll();
        EndTransport(transport_);
    }

    HttpTransport* Get() const noexcept { return transport_; }

 private:
    HttpTransport* const transport_;
};

}  // namespace

TransportVisit::TransportVisit() noexcept {
    if (Oak::Base::OtherThreadsGone()) return;
    counted_ = true;
    visitors.fetch_add(1);
    if (ended.load()) return;
    try {
        static Lifetime lifetime;
        transport_ = lifetime.Get();
    } catch (const std::exception&) {  // no memory: the next visit tries again
    }
}

TransportVisit::~TransportVisit() {
    if (counted_) visitors.fetch_sub(1);
}

bool TransportVisit::Ending() noexcept {
    return ended.load();
}

bool TransportVisit::AnyUnderWay() noexcept {
    return visitors.load() != 0;
}

// --- the wait of an exchange ---------------------------------------------------------------------

/// The waits under way of some threads. There are several of these, so that threads hardly ever
/// wait for each other here.
struct alignas(64) ExchangeWaits {
    std::mutex mutex;
    ExchangeWait* newest = nullptr;  // guarded by mutex
};

namespace {

/// Those of all threads.
std::array<ExchangeWaits, 16> allWaits;

ExchangeWaits& WaitsOfThisThread() noexcept {
    return allWaits[std::hash<std::thread::id>()(std::this_thread::get_id()) % allWaits.size()];
}

std::chrono::milliseconds Limit(const ExchangePatience& patience,
                                const HttpClientOptions& options) {
    // As signed numbers of 32 bits, for libraries that take them as such: 24 days.
    constexpr std::chrono::milliseconds most{0x7FFFFFFF};
    const auto whole = std::min(std::chrono::milliseconds(options.totalTimeoutMs), most);
    return patience.limit.count() > 0 ? std::min(patience.limit, whole) : whole;
}

}  // namespace

ExchangeWait::ExchangeWait(const ExchangePatience& patience, const HttpClientOptions& options,
                           Wake wake, void* context)
    : patience_(patience),
      connectLimitMs_(options.connectTimeoutMs),
      limit_(Limit(patience, options)),
      end_(now_ + limit_),
      wake_(wake),
      context_(context),
      waits_(WaitsOfThisThread()) {
    const std::lock_guard lock(waits_.mutex);
    // NOLINTNEXTLINE(cppcoreguidelines-prefer-member-initializer): under the lock
    next_ = waits_.newest;
    if (next_ != nullptr) next_->previous_ = this;
    waits_.newest = this;
}

ExchangeWait::~ExchangeWait() {
    const std::lock_guard lock(waits_.mutex);
    (previous_ != nullptr ? previous_->next_ : waits_.newest) = next_;
    if (next_ != nullptr) next_->previous_ = previous_;
}

void ExchangeWait::WakeAll() noexcept {
    for (ExchangeWaits& waits : allWaits) {
        const std::lock_guard lock(waits.mutex);
        for (const ExchangeWait* wait = waits.newest; wait != nullptr; wait = wait->next_)
            wait->wake_(wait->context_);
    }
}

std::optional<Failure> ExchangeWait::MustEnd() const noexcept {
    if (TransportVisit::Ending()) return exchangeEnded;
    if (patience_.givenUp != nullptr) {
        switch (patience_.givenUp()) {
            case GivenUp::no:
                break;
            case GivenUp::cancelled:
                return exchangeCancelled;
            case GivenUp::timeUp:
                return callerTimeUp;
            case GivenUp::ending:
                return exchangeEnded;
        }
    }
    if (now_ >= end_) return exchangeTimeUp;
    return std::nullopt;
}

std::chrono::milliseconds ExchangeWait::Longest() const noexcept {
    using std::chrono::milliseconds;
    constexpr milliseconds most{1000};
    // Rounded up: a wait that ends too early would spin.
    const auto left = std::chrono::ceil<milliseconds>(std::min(end_, patience_.deadline) - now_);
    return std::clamp(left, milliseconds{0}, most);
}

std::string ExchangeWait::WordsOnTime(bool connected) const {
    const auto spent = [](std::int64_t milliseconds) {
        return std::to_string(milliseconds) + " ms";
    };
    if (!connected && connectLimitMs_ < limit_.count())
        return "no connection within " + spent(connectLimitMs_);
    return "no whole answer within " + spent(limit_.count());
}

}  // namespace Oak::Net
