#ifndef VELTRA_SRC_CALLWATCH_H
#define VELTRA_SRC_CALLWATCH_H

#include "HostCall.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Net/HttpClient.h>
#include <Veltra/Call.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Veltra {

/// What a control's handles share.
struct CCallControlIMP {
    std::atomic<std::uint32_t> timeLimitMs{0};
    std::atomic<bool> cancelled{false};
    std::atomic<std::uint64_t> cancels{0};  ///< how often: a reset control still cuts older calls
};

/// One open scope of a thread.
struct CCallScopeIMP {
    std::shared_ptr<CCallControlIMP> control;  ///< null for a scope without effect
    CCallScopeIMP* outer = nullptr;            ///< of the same thread
    std::atomic<bool> closed{false};           ///< by another thread

    /// Adds a scope to those of the calling thread.
    static CCallScopeIMP* Open(std::shared_ptr<CCallControlIMP> control);
    /// Frees it; on another thread than its own leaves that to its own thread's next look.
    static void Close(CCallScopeIMP* scope) noexcept;
    /// The calling thread's newest one that is open, or null.
    static CCallScopeIMP* Newest() noexcept;
};

// Details of outcomes that more than one operation reports.
inline constexpr const char* kDetailNotEnabled = "the layer is not enabled";
inline constexpr const char* kDetailNotUsable = "no login yet, or the service can't be used now";
inline constexpr const char* kDetailNoToken = "there is no token: log in first";

/// What a call is reported to have been.
struct CCallReportIMP {
    CallOutcome outcome = CallOutcome::Failed;  ///< unless something better is known
    std::int32_t attempts = 0;
    std::int32_t httpStatus = 0;
    std::uint32_t milliseconds = 0;
    std::string gatewayCode;
    std::string gatewayMessage;
    std::string detail;
    std::string traceId;
};

/// One call under way, or one cycle of the monitor: whether it may go on, and what became of it.
///
/// Lives on the stack of its thread; the newest one counts, and the static members speak of it.
/// Everything that waits asks here: before an exchange and in every wait whether it may go on, and
/// within an exchange whether that is over. Whoever makes the answer change wakes all waits of the
/// layer and all exchanges, which then ask again. Where a thread has none (the layer's tests),
/// everything may go on and notes are dropped.
///
/// No member takes a lock or allocates memory, apart from the making under a control and the notes.
class CallWatch : private Oak::Base::CNoncopyable {
 public:
    using Clock = std::chrono::steady_clock;

    CallWatch();
    /// A cycle of the monitor, which begins nothing more once `stop` is set.
    explicit CallWatch(const std::atomic<bool>& stop);
    ~CallWatch();

    /// Whether the next exchange or wait may begin, or a wait go on.
    static bool MayGoOn() noexcept;
    /// Whether the call is over: cancelled, out of time, or at the end of the process. An exchange
    /// is cut then; a monitor that is told to stop lets its exchange end.
    static bool Over() noexcept;
    /// How long a wait may last until it has to ask again by itself.
    static std::chrono::milliseconds Patience() noexcept;
    /// The longest pause that fits into the call.
    static std::chrono::milliseconds Patience(std::chrono::milliseconds pause) noexcept;
    /// The same for an exchange.
    static Oak::Net::ExchangePatience ForExchange(std::chrono::milliseconds limit) noexcept;

    /// What happened, for the report. The last failure counts, and none after the call was over.
    static void NoteAttempt() noexcept;
    static void NoteStatus(std::int32_t status) noexcept;
    static void NoteGateway(std::string code, std::string message);
    static void NoteFailure(CallOutcome outcome, const std::string& detail);
    static void NoteTraceId(const std::string& traceId);

    /// Ends every call that is under way; the second, at the end of the process, later ones too.
    static void CancelAll() noexcept;
    static void EndAll() noexcept;
    /// Makes every wait and exchange ask again. Takes locks, one after the other.
    static void WakeAll() noexcept;

 private:
    friend class SteeredCall;
    using GivenUp = Oak::Net::GivenUp;

    struct UnderControl {
        std::shared_ptr<CCallControlIMP> control;
        std::uint64_t cancelsBefore;
    };

    static CallWatch* Current() noexcept;
    static GivenUp WhyOver() noexcept;
    GivenUp Why() noexcept;
    bool IsCancelled() const noexcept;
    CCallReportIMP Report(bool succeeded);

    CallWatch* const outer_;
    const std::atomic<bool>* const stop_;  // the monitor's, on its thread
    const Clock::time_point begun_;
    const std::uint64_t cancelsBefore_;
    std::vector<UnderControl> controls_;
    Clock::time_point deadline_ = Clock::time_point::max();
    std::uint32_t timeLimitMs_ = 0;
    GivenUp givenUp_ = GivenUp::no;
    CCallReportIMP report_;
};

/// A call of the host that it can steer and ask about. Its end publishes the report.
class SteeredCall : private Oak::Base::CNoncopyable {
 public:
    SteeredCall() = default;
    ~SteeredCall();

    /// Whether the call is admitted; see HostCall.
    explicit operator bool() const noexcept { return static_cast<bool>(admitted_); }

    /// Takes down how the call ended, and returns it.
    bool End(bool succeeded) noexcept {
        succeeded_ = succeeded;
        return succeeded;
    }

 private:
    HostCall admitted_;
    CallWatch watch_;
    bool succeeded_ = false;
};

}  // namespace Veltra

#endif
