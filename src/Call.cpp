#include "AIManager.h"
#include "CallReports.h"
#include "CallWatch.h"
#include "HostCall.h"
#include "UserComment.h"

#include <Veltra/Call.h>

#include <memory>
#include <utility>

namespace Veltra {

// --- control -------------------------------------------------------------------------------------

CCallControl::CCallControl() : record_(std::make_shared<CCallControlIMP>()) {}
CCallControl::CCallControl(const CCallControl& other) = default;
CCallControl::CCallControl(CCallControl&& other) noexcept = default;
CCallControl& CCallControl::operator=(const CCallControl& other) = default;
CCallControl& CCallControl::operator=(CCallControl&& other) noexcept = default;
CCallControl::~CCallControl() = default;

void CCallControl::SetTimeLimit(std::uint32_t milliseconds) {
    if (record_) record_->timeLimitMs.store(milliseconds);
}

void CCallControl::Cancel() {
    const std::shared_ptr<CCallControlIMP> record = record_;
    if (!record) return;
    record->cancelled.store(true);  // first: a call that begins in between is refused
    record->cancels.fetch_add(1);
    const HostCall call;
    if (call) CallWatch::WakeAll();
}

bool CCallControl::IsCancelled() const {
    return record_ && record_->cancelled.load();
}

void CCallControl::Reset() {
    if (record_) record_->cancelled.store(false);
}

// --- scope ---------------------------------------------------------------------------------------

CCallScope::CCallScope(const CCallControl& control)
    : record_(CCallScopeIMP::Open(control.record_)) {}

CCallScope::~CCallScope() {
    CCallScopeIMP::Close(record_);
}

// --- report --------------------------------------------------------------------------------------

namespace {

bool MayPass(std::int32_t status) {
    constexpr std::int32_t requestTimeOut = 408;
    constexpr std::int32_t tooManyRequests = 429;
    constexpr std::int32_t serverErrors = 500;
    return status == requestTimeOut || status == tooManyRequests || status >= serverErrors;
}

}  // namespace

CCallReport::CCallReport() = default;
CCallReport::CCallReport(std::shared_ptr<const CCallReportIMP> record)
    : record_(std::move(record)) {}
CCallReport::CCallReport(const CCallReport& other) = default;
CCallReport::CCallReport(CCallReport&& other) noexcept = default;
CCallReport& CCallReport::operator=(const CCallReport& other) = default;
CCallReport& CCallReport::operator=(CCallReport&& other) noexcept = default;
CCallReport::~CCallReport() = default;

CallOutcome CCallReport::Outcome() const {
    return record_ ? record_->outcome : CallOutcome::NotEnabled;
}

bool CCallReport::Retryable() const {
    switch (Outcome()) {
        case CallOutcome::NotUsable:
        case CallOutcome::TimedOut:
        case CallOutcome::NotReached:
        case CallOutcome::CutOff:
        case CallOutcome::TokenRejected:
            return true;
        case CallOutcome::BadStatus:
            return MayPass(HttpStatus());
        default:
            return false;
    }
}

std::int32_t CCallReport::Attempts() const {
    return record_ ? record_->attempts : 0;
}

std::int32_t CCallReport::HttpStatus() const {
    return record_ ? record_->httpStatus : 0;
}

std::string CCallReport::GatewayCode() const {
    return record_ ? record_->gatewayCode : std::string();
}

std::string CCallReport::GatewayMessage() const {
    return record_ ? record_->gatewayMessage : std::string();
}

std::string CCallReport::Detail() const {
    return record_ ? record_->detail : "no call was made, or the process is ending";
}

std::string CCallReport::TraceId() const {
    return record_ ? record_->traceId : std::string();
}

std::uint32_t CCallReport::Milliseconds() const {
    return record_ ? record_->milliseconds : 0;
}

// --- functions -----------------------------------------------------------------------------------

CCallReport Veltra_LastCall() {
    const HostCall call;
    return call ? CAIManager::GetInstance()->Reports().OfThisThread() : CCallReport();
}

bool Veltra_CancelAll() {
    const HostCall call;
    if (!call) return false;
    CallWatch::CancelAll();
    return true;
}

bool Veltra_Logout() {
    const HostCall call;
    return call && CAIManager::GetInstance()->Logout();
}

bool Veltra_SetBodyEcho(bool on) {
    const HostCall call;
    if (!call) return false;
    UserComentManager::SetBodyEcho(on);
    return true;
}

}  // namespace Veltra
