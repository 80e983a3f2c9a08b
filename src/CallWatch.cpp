#include "CallWatch.h"

#include "AIManager.h"

#include <Oak/Base/Process.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace Veltra {

namespace {

using std::chrono::milliseconds;

/// Longer than anything waits, and short enough for any clock's arithmetic.
constexpr milliseconds kUnlimited = std::chrono::hours(24 * 365);

/// A gateway's explanation is kept up to here.
constexpr std::size_t kMostMessage = 4096;

// Plain pointers: an object with a destructor would keep the library mapped until the thread ends.
constinit thread_local CallWatch* currentWatch = nullptr;
constinit thread_local CCallScopeIMP* newestScope = nullptr;

std::atomic<std::uint64_t> allCancelled{0};  // how often
std::atomic<bool> allEnded{false};

milliseconds Until(CallWatch::Clock::time_point end) {
    const auto left = std::chrono::ceil<milliseconds>(end - CallWatch::Clock::now());
    return std::max(left, milliseconds{0});
}

/// Cut between two characters.
std::string Shortened(std::string text) {
    if (text.size() <= kMostMessage) return text;
    std::size_t end = kMostMessage;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    text.resize(end);
    text.shrink_to_fit();
    return text;
}

}  // namespace

// --- scopes --------------------------------------------------------------------------------------

CCallScopeIMP* CCallScopeIMP::Open(std::shared_ptr<CCallControlIMP> control) {
    auto scope = std::make_unique<CCallScopeIMP>();
    scope->control = std::move(control);
    scope->outer = Newest();
    newestScope = scope.get();
    return scope.release();
}

void CCallScopeIMP::Close(CCallScopeIMP* scope) noexcept {
    for (CCallScopeIMP** place = &newestScope; *place != nullptr; place = &(*place)->outer) {
        if (*place != scope) continue;
        *place = scope->outer;
        delete scope;
        return;
    }
    scope->closed.store(true);  // last: its own thread may free it at once
}

CCallScopeIMP* CCallScopeIMP::Newest() noexcept {
    for (CCallScopeIMP** place = &newestScope; *place != nullptr;) {
        CCallScopeIMP* const scope = *place;
        if (!scope->closed.load()) {
            place = &scope->outer;
            continue;
        }
        *place = scope->outer;
        delete scope;
    }
    return newestScope;
}

// --- the watch -----------------------------------------------------------------------------------

CallWatch::CallWatch()
    : outer_(currentWatch),
      stop_(outer_ != nullptr ? outer_->stop_ : nullptr),
      begun_(Clock::now()),
      cancelsBefore_(allCancelled.load()) {
    if (outer_ != nullptr) {  // a call in a log handler takes its time from the call around it
        deadline_ = outer_->deadline_;
        timeLimitMs_ = outer_->timeLimitMs_;
    }
    for (const auto* scope = CCallScopeIMP::Newest(); scope != nullptr; scope = scope->outer) {
        if (!scope->control) continue;
        // The count first: a cancel in between is seen twice rather than missed.
        const std::uint64_t cancels = scope->control->cancels.load();
        controls_.push_back({scope->control, cancels});
        if (scope->control->cancelled.load()) givenUp_ = GivenUp::cancelled;
        const std::uint32_t limit = scope->control->timeLimitMs.load();
        if (limit == 0 || begun_ + milliseconds(limit) >= deadline_) continue;
        deadline_ = begun_ + milliseconds(limit);
        timeLimitMs_ = limit;
    }
    currentWatch = this;  // last: nothing fails after it
}

CallWatch::CallWatch(const std::atomic<bool>& stop)
    : outer_(currentWatch),
      stop_(&stop),
      begun_(Clock::now()),
      cancelsBefore_(allCancelled.load()) {
    currentWatch = this;
}

CallWatch::~CallWatch() {
    currentWatch = outer_;
}

CallWatch* CallWatch::Current() noexcept {
    return currentWatch;
}

bool CallWatch::IsCancelled() const noexcept {
    const auto cut = [](const UnderControl& under) {
        return under.control->cancels.load() != under.cancelsBefore;
    };
    return allCancelled.load() != cancelsBefore_ ||
           std::any_of(controls_.begin(), controls_.end(), cut) ||
           (outer_ != nullptr && outer_->IsCancelled());
}

/// Once over, a call stays over, for the same reason.
CallWatch::GivenUp CallWatch::Why() noexcept {
    if (givenUp_ != GivenUp::no) return givenUp_;
    if (allEnded.load())
        givenUp_ = GivenUp::ending;
    else if (IsCancelled())
        givenUp_ = GivenUp::cancelled;
    else if (deadline_ != Clock::time_point::max() && Clock::now() >= deadline_)
        givenUp_ = GivenUp::timeUp;
    return givenUp_;
}

CallWatch::GivenUp CallWatch::WhyOver() noexcept {
    return currentWatch != nullptr ? currentWatch->Why() : GivenUp::no;
}

bool CallWatch::Over() noexcept {
    return WhyOver() != GivenUp::no;
}

bool CallWatch::MayGoOn() noexcept {
    if (currentWatch == nullptr) return true;
    const std::atomic<bool>* const stop = currentWatch->stop_;
    return !Over() && (stop == nullptr || !stop->load(std::memory_order_relaxed));
}

milliseconds CallWatch::Patience() noexcept {
    return Patience(kUnlimited);
}

milliseconds CallWatch::Patience(milliseconds pause) noexcept {
    if (currentWatch == nullptr || currentWatch->deadline_ == Clock::time_point::max())
        return pause;
    return std::min(pause, Until(currentWatch->deadline_));
}

Oak::Net::ExchangePatience CallWatch::ForExchange(milliseconds limit) noexcept {
    Oak::Net::ExchangePatience patience;
    patience.limit = limit;
    patience.givenUp = &CallWatch::WhyOver;
    if (currentWatch != nullptr) patience.deadline = currentWatch->deadline_;
    return patience;
}

// --- what happened -------------------------------------------------------------------------------

void CallWatch::NoteAttempt() noexcept {
    if (currentWatch != nullptr) ++currentWatch->report_.attempts;
}

void CallWatch::NoteStatus(std::int32_t status) noexcept {
    if (currentWatch != nullptr) currentWatch->report_.httpStatus = status;
}

void CallWatch::NoteGateway(std::string code, std::string message) {
    if (currentWatch == nullptr) return;
    currentWatch->report_.gatewayCode = Shortened(std::move(code));
    currentWatch->report_.gatewayMessage = Shortened(std::move(message));
}

void CallWatch::NoteFailure(CallOutcome outcome, const std::string& detail) {
    if (currentWatch == nullptr) return;
    currentWatch->report_.outcome = outcome;
    currentWatch->report_.detail = detail;
}

void CallWatch::NoteTraceId(const std::string& traceId) {
    if (currentWatch != nullptr) currentWatch->report_.traceId = traceId;
}

CCallReportIMP CallWatch::Report(bool succeeded) {
    CCallReportIMP report = std::move(report_);
    const auto spent = std::chrono::duration_cast<milliseconds>(Clock::now() - begun_).count();
    report.milliseconds = static_cast<std::uint32_t>(
        std::min<std::int64_t>(spent, std::numeric_limits<std::uint32_t>::max()));
    if (succeeded) {
        report.outcome = CallOutcome::Succeeded;
        report.detail.clear();
    } else if (givenUp_ == GivenUp::cancelled) {
        report.outcome = CallOutcome::Cancelled;
        report.detail = "the call was cancelled";
    } else if (givenUp_ == GivenUp::timeUp) {
        report.outcome = CallOutcome::TimedOut;
        report.detail =
            "the call took longer than its limit of " + std::to_string(timeLimitMs_) + " ms";
    } else if (givenUp_ == GivenUp::ending) {
        report.outcome = CallOutcome::NotEnabled;
        report.detail = "the process is ending";
    }
    return report;
}

SteeredCall::~SteeredCall() {
    if (admitted_)
        CAIManager::GetInstance()->Reports().Keep([this] { return watch_.Report(succeeded_); });
}

// --- the end of calls ----------------------------------------------------------------------------

void CallWatch::CancelAll() noexcept {
    allCancelled.fetch_add(1);
    WakeAll();
}

void CallWatch::EndAll() noexcept {
    allEnded.store(true);
    WakeAll();
}

void CallWatch::WakeAll() noexcept {
    if (Oak::Base::OtherThreadsGone()) return;
    CAIManager::WakeWaits();
    Oak::Net::HttpClient::WakeAll();
}

}  // namespace Veltra
