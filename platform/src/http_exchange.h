#ifndef OAK_NET_HTTP_EXCHANGE_H
#define OAK_NET_HTTP_EXCHANGE_H

#include "http_rules.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Oak::Net {

// What the client asks of the HTTP library below it. Each of them has its own form of all this.

/// The process-wide part: the options in force, and what is kept between exchanges.
class HttpTransport;

/// Starts what the exchanges share.
HttpTransport* StartTransport();

/// Ends it as the process ends, or the module is unloaded: frees it, unless somebody may still be
/// using it. Visits that begin from now on find nothing.
void EndTransport(HttpTransport* transport) noexcept;

/// Access to the transport for the time of one call. The first one starts it.
///
/// Null when there is nothing to use: in a forked child, whose copies of the locks and connections
/// are the parent's business; once the process or the module is ending; and when there was no
/// memory to start it. Visits are counted, so that the end never frees what a visitor still uses.
/// An exchange under way gives up when Ending() says so.
class TransportVisit : private Oak::Base::CNoncopyable {
 public:
    TransportVisit() noexcept;
    ~TransportVisit();

    HttpTransport* Get() const noexcept { return transport_; }

    static bool Ending() noexcept;
    static bool AnyUnderWay() noexcept;

 private:
    bool counted_ = false;
    HttpTransport* transport_ = nullptr;
};

struct ExchangeWaits;

/// The wait of one exchange: how long it may take, whether it is given up, and how another thread
/// wakes it to ask that. Made on the sending thread; lives while it waits.
class ExchangeWait : private Oak::Base::CNoncopyable {
 public:
    using Clock = ExchangePatience::Clock;
    /// Ends a wait under way, or else the next one, at once. Called on any thread, under a lock.
    using Wake = void (*)(void* context) noexcept;

    ExchangeWait(const ExchangePatience& patience, const HttpClientOptions& options, Wake wake,
                 void* context);
    ~ExchangeWait();

    /// To be called after each wait; the two below go by the last look. The first is that of the
    /// making.
    void LookAtClock() noexcept { now_ = Clock::now(); }

    /// Why the exchange must end now, if it must. Asked before anything is sent, after each wait
    /// and at least once a second.
    std::optional<Failure> MustEnd() const noexcept;

    /// How long to wait at most before asking again.
    std::chrono::milliseconds Longest() const noexcept;

    /// When the exchange's own limit is met, which is not above that of the options.
    Clock::time_point End() const noexcept { return end_; }

    /// What the record says of a limit that was met: that of connecting, or of the whole exchange.
    std::string WordsOnTime(bool connected) const;

    static void WakeAll() noexcept;

 private:
    const ExchangePatience patience_;
    const std::uint32_t connectLimitMs_;
    const std::chrono::milliseconds limit_;
    Clock::time_point now_ = Clock::now();
    const Clock::time_point end_;
    const Wake wake_;
    void* const context_;
    ExchangeWaits& waits_;
    ExchangeWait* next_ = nullptr;  // of these; guarded by their mutex
    ExchangeWait* previous_ = nullptr;
};

/// One exchange on the calling thread. Fills `response`, which may be null, when it returns
/// nothing; otherwise `telling` holds what may be told.
std::optional<Failure> Exchange(HttpTransport& transport, const CHttpClientRequest& request,
                                CHttpClientResponse* response, Telling& telling);

void SetOptions(HttpTransport& transport, const HttpClientOptions& options);

// Failures that are no library's. The numbers are of those that no system uses.

/// Tells nobody: a forked child may take no lock for a record, and where the process is ending the
/// handler's own world may be gone.
constexpr Failure exchangeEnded{FailureReason::ended, 0x20000001,
                                "the HTTP client is not available"};
constexpr Failure outOfMemory{FailureReason::noMemory, 0x20000002, "no memory"};
constexpr Failure exchangeCancelled{FailureReason::cancelled, 0x20000003,
                                    "the caller cancelled it"};
constexpr Failure callerTimeUp{FailureReason::timeOut, 0x20000004,
                               "the time limit of the call was met"};
constexpr Failure exchangeTimeUp{FailureReason::timeOut, 0x20000005, "the time was up"};

}  // namespace Oak::Net

#endif
