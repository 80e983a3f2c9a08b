#include "AIManager.h"

#include "CallWatch.h"
#include "HostCall.h"
#include "Log.h"

#include <Oak/Base/Clock.h>
#include <Oak/Base/Wipe.h>

#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

namespace Veltra {

namespace {

constexpr std::uint64_t kTokenLifetimeMs = 12ULL * 60 * 60 * 1000;
constexpr int kRenewalRetries = 3;

using ReadLock = boost::shared_lock<boost::shared_mutex>;
using WriteLock = boost::unique_lock<boost::shared_mutex>;

std::mutex creationMutex;
std::atomic<CAIManager*> publishedInstance{nullptr};

/// Ends the manager when the process exits or the module is unloaded.
class Owner {
 public:
    explicit Owner(CAIManager* manager) : manager_(manager) {}
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

    CAIManager* Get() const { return manager_; }

    ~Owner() {
        if (Oak::Base::OtherThreadsGone()) return;  // locks in an unknown state
        HostCall::Close();
        CallWatch::EndAll();
        const bool unused = manager_->Close();
        // Host threads that are still inside a call when the process ends keep what they use; it
        // goes with the process. At unload no call may be under way, and everything is freed.
        if (!unused || HostCall::AnyUnderWay()) return;
        publishedInstance.store(nullptr);
        delete manager_;
    }

 private:
    CAIManager* manager_;
};

}  // namespace

// --- creation and end ----------------------------------------------------------------------------

CAIManager* CAIManager::GetInstance() {
    if (CAIManager* const manager = publishedInstance.load(std::memory_order_acquire)) {
        return manager;
    }
    // A client starts the transport and the TLS library. What they register for the end of the
    // process is registered before our own end then, and runs after it: the monitor has been joined
    // when TLS goes.
    const Oak::Net::HttpClient transport;
    const std::lock_guard<std::mutex> lock(creationMutex);
    if (CAIManager* const manager = publishedInstance.load(std::memory_order_relaxed)) {
        return manager;
    }
    static const Owner owner(new CAIManager);
    publishedInstance.store(owner.Get(), std::memory_order_release);
    return owner.Get();
}

CAIManager::CAIManager()
    : gate_([this](bool succeeded) {
          SetLLMServiceValid(succeeded);  // the check's own probe may have said otherwise since
      }),
      monitor_([this] { checkTokenValidity(); }, [this] { gate_.Wake(); }) {}

CAIManager::~CAIManager() {
    stop();
    ForgetCredentials();
}

void CAIManager::WakeWaits() noexcept {
    if (CAIManager* const manager = publishedInstance.load(std::memory_order_acquire))
        manager->gate_.Wake();
}

// --- switches ------------------------------------------------------------------------------------

bool CAIManager::Enable() {
    VELTRA_OPERATION(operation);
    VELTRA_LOG(operation, 3, "veltra enable.");
    enable_ = true;
    return true;
}

bool CAIManager::Disable() {
    VELTRA_OPERATION(operation);
    VELTRA_LOG(operation, 3, "veltra disable.");
    enable_ = false;
    stop();
    return true;
}

bool CAIManager::IsEnable() const {
    return enable_;
}

void CAIManager::SetLLMServiceValid(bool valid) {
    llmServiceValid_ = valid;
}

bool CAIManager::IsLLMServiceValid() const {
    return llmServiceValid_;
}

bool CAIManager::SetProductVersion(const std::string& version) {
    if (version.empty()) return false;
    const WriteLock lock(dataMutex_);
    productVersion_ = version;
    return true;
}

std::string CAIManager::GetProductVersion() const {
    const ReadLock lock(dataMutex_);
    return productVersion_;
}

bool CAIManager::SetSensitiveWords(const std::unordered_set<std::string>& words,
                                   const std::uint32_t& limit) {
    sensitiveFilter_.SetWords(words, limit);
    return true;
}

bool CAIManager::HasSensitiveWords(const std::string& text) const {
    return sensitiveFilter_.HasSensitiveWords(text);
}

// --- domains -------------------------------------------------------------------------------------

std::string CAIManager::GetProductionDomain() {
    return VELTRA_PRODUCTION_ENDPOINT;
}

std::string CAIManager::GetTestDomain() {
    return VELTRA_TEST_ENDPOINT;
}

bool CAIManager::SetConfigDomain(const std::string& domain) {
    VELTRA_OPERATION(operation);
    if (domain.empty()) return false;
    VELTRA_LOG(operation, 3, "Set config domian %s", domain.c_str());
    const WriteLock lock(dataMutex_);
    configDomain_ = domain;
    return true;
}

std::string CAIManager::GetConfigDomain() const {
    const ReadLock lock(dataMutex_);
    return configDomain_;
}

void CAIManager::SetDomian(const std::string& domain) {
    VELTRA_OPERATION(operation);
    {
        const WriteLock lock(dataMutex_);
        llmDomain_ = domain;
    }
    VELTRA_LOG(operation, 3, "set llm domain:%s", domain.c_str());
}

std::string CAIManager::GetDomian() const {
    const ReadLock lock(dataMutex_);
    return llmDomain_.empty() ? GetTestDomain() : llmDomain_;
}

bool CAIManager::IsDomianValid(const std::string& domain) {
    VELTRA_OPERATION(operation);
    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(domain + kQueryPath));
    request.SetContentType("application/json");
    Oak::Net::CHttpClientResponse response;
    const bool reached = SendUntilOk(request, response, kShortExchange, [&](std::int32_t status) {
        VELTRA_LOG(operation, 5, "http client send message failed,errcode:%d,domian is :%s", status,
                   domain.c_str());
    });
    if (!reached) {
        // The monitor's that was given up says nothing about the domain.
        if (Monitor::IsThisThread() && !CallWatch::MayGoOn()) return false;
        VELTRA_LOG(operation, 5, "http client send message failed,domian is :%s", domain.c_str());
        return false;
    }
    std::string answer;
    response.GetResponseData(&answer);
    if (answer.empty()) {
        VELTRA_LOG(operation, 5, "response is empty,domian is :%s", domain.c_str());
        CallWatch::NoteFailure(CallOutcome::BadAnswer, "the answer is empty");
        return false;
    }
    return true;
}

// --- the token -----------------------------------------------------------------------------------

void CAIManager::SetToken(const std::string& token) {
    Store(token, nullptr);
}

/// Token and domain of one answer are stored in one step: no query pairs the new token with the
/// domain of the one before.
void CAIManager::Store(const std::string& token, const std::string* llmDomain) {
    const WriteLock lock(dataMutex_);
    Oak::Base::Wipe(token_);
    token_ = token;
    ++tokenGeneration_;
    if (llmDomain != nullptr) llmDomain_ = *llmDomain;
    tokenValid_ = true;
    tokenTime_ = Oak::Base::Clock::SystemMilliseconds();
}

std::string CAIManager::GetToken() const {
    const ReadLock lock(dataMutex_);
    return token_;
}

void CAIManager::SetTokenValid(bool valid) {
    tokenValid_ = valid;
}

GatewayAccess CAIManager::Access() const {
    const ReadLock lock(dataMutex_);
    return {llmDomain_.empty() ? GetTestDomain() : llmDomain_, token_, tokenGeneration_};
}

void CAIManager::RejectToken(std::uint64_t generation) {
    const WriteLock lock(dataMutex_);
    if (generation == tokenGeneration_) SetTokenValid(false);
}

bool CAIManager::TokenIsFresh() const {
    const std::int64_t now = Oak::Base::Clock::SystemMilliseconds();
    const std::int64_t stamp = tokenTime_;
    // Unsigned, the age of a token has room for whatever the clock showed then and shows now.
    const auto age = static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(stamp);
    return tokenValid_ && (now <= stamp || age <= kTokenLifetimeMs);
}

// --- renewal -------------------------------------------------------------------------------------

bool CAIManager::renewAuthenticationToken(const std::vector<CAccessKey>& list, const bool& first) {
    const auto outcome =
        gate_.Run([&](const auto& turn) { return renewAuthenticationToken(turn, list, first); },
                  [] { return !CallWatch::MayGoOn(); });
    return outcome == Renewal::succeeded;
}

/// A check's renewal, or the outcome of another one that `seen` doesn't count.
CAIManager::Renewal CAIManager::RenewOrShare(std::uint64_t& seen) {
    return gate_.RunOrShare(
        [this](const auto& turn) { return renewAuthenticationToken(turn, {}, false); },
        [] { return !CallWatch::MayGoOn(); }, seen);
}

/// The renewal itself, in the calling thread's turn. It ends between two requests when the call is
/// over; a check's also when the monitor was told to end, while a login's runs on then.
CAIManager::Renewal CAIManager::renewAuthenticationToken(const RenewalGate::Turn& /*turn*/,
                                                         const std::vector<CAccessKey>& list,
                                                         bool first) {
    VELTRA_OPERATION(operation);
    if (CallWatch::Over()) return Renewal::cut;
    if (!list.empty()) {
        accessKeys_.Add(list);
        UsePair(0);
    }
    if (!first) {
        if (keyIndex_ < 0 || static_cast<std::size_t>(keyIndex_) >= accessKeys_.Get().size()) {
            VELTRA_LOG(operation, 5, "get token failed,no ak/sk can use");
            CallWatch::NoteFailure(CallOutcome::NotUsable,
                                   "there are no access keys: log in first");
            SetLLMServiceValid(false);
            return Renewal::failed;
        }
        UsePair(keyIndex_);
    }

    const std::string configDomain = GetConfigDomain();
    const std::vector<std::string> domains =
        configDomain.empty() ? std::vector<std::string>{GetProductionDomain(), GetTestDomain()}
                             : std::vector<std::string>{configDomain};
    std::string token;
    std::string llmDomain;
    const auto mayGoOn = [&] { return first ? !CallWatch::Over() : CallWatch::MayGoOn(); };
    while (!RequestToken(domains, mayGoOn, token, llmDomain)) {
        if (!mayGoOn()) return Renewal::cut;
        // As unsigned numbers, -1 and the last index of an empty list are both the largest.
        if (static_cast<std::size_t>(keyIndex_) >= accessKeys_.Get().size() - 1) {
            VELTRA_LOG(operation, 5, "get token failed,not get token");
            SetLLMServiceValid(false);
            return Renewal::failed;
        }
        UsePair(keyIndex_ + 1);
    }
    VELTRA_LOG(operation, 3, "get token success");
    Store(token, &llmDomain);
    Oak::Base::Wipe(token);
    SetDomian(llmDomain);
    SetLLMServiceValid(true);
    return Renewal::succeeded;
}

void CAIManager::UsePair(std::int32_t index) {
    const CAccessKey& pair = accessKeys_.Get()[static_cast<std::size_t>(index)];
    keyIndex_ = index;
    Oak::Base::Wipe(appKey_);
    Oak::Base::Wipe(secretKey_);
    appKey_ = pair.appKey;
    secretKey_ = pair.secretKey;
}

bool CAIManager::Logout() {
    VELTRA_OPERATION(operation);
    if (gate_.IsMine()) return false;  // its credentials are in use further up this very thread
    stop();
    // In a turn of its own, so that no renewal is using what goes. It has no outcome for others.
    gate_.Run(
        [this](const auto&) {
            ForgetCredentials();
            return Renewal::cut;
        },
        [] { return false; });
    VELTRA_LOG(operation, 3, "logged out");
    return true;
}

void CAIManager::ForgetCredentials() {
    accessKeys_ = AccessKeys();
    keyIndex_ = -1;
    Oak::Base::Wipe(appKey_);
    Oak::Base::Wipe(secretKey_);
    SetLLMServiceValid(false);
    const WriteLock lock(dataMutex_);
    Oak::Base::Wipe(token_);
    ++tokenGeneration_;
    llmDomain_.clear();
    tokenValid_ = false;
    tokenTime_ = -1;
}

/// Requests a token with the pair in use, from one domain after the other while it may.
bool CAIManager::RequestToken(const std::vector<std::string>& domains,
                              const std::function<bool()>& mayGoOn, std::string& token,
                              std::string& llmDomain) const {
    std::int64_t expiry = 0;  // the gateway's own view; a token is renewed by its age
    const auto gives = [&](const std::string& domain) {
        return mayGoOn() &&
               TokenMessage::GetToekn(domain, appKey_, secretKey_, token, expiry, llmDomain);
    };
    return std::any_of(domains.begin(), domains.end(), gives);
}

void CAIManager::checkTokenValidity() {
    VELTRA_OPERATION(operation);
    const std::uint64_t stopsBefore = StopRequests();
    const bool reached = IsDomianValid(GetDomian());
    if (!CallWatch::MayGoOn()) return;  // the probe may have been given up
    SetLLMServiceValid(reached);

    // The count is taken before the token is looked at: a renewal that ends in between makes the
    // token fresh, one that ends later is shared.
    std::uint64_t seen = gate_.Outcomes();
    if (TokenIsFresh()) return;

    Renewal outcome = RenewOrShare(seen);
    if (outcome != Renewal::failed) return;
    VELTRA_LOG(operation, 5, "Update token failed");
    const auto stopped = [&] { return !CallWatch::MayGoOn() || StopRequests() != stopsBefore; };
    for (int retry = 0; retry < kRenewalRetries && outcome == Renewal::failed; ++retry) {
        if (!gate_.Pause(seen, stopped)) return;
        outcome = RenewOrShare(seen);
    }
}

// --- the monitor ---------------------------------------------------------------------------------

void CAIManager::start() {
    start(StopRequests());
}

void CAIManager::start(std::uint64_t stopsBefore) {
    VELTRA_OPERATION(operation);
    monitor_.Start(operation, stopsBefore);
}

std::uint64_t CAIManager::StopRequests() const {
    return monitor_.StopRequests();
}

void CAIManager::stop() {
    VELTRA_OPERATION(operation);
    monitor_.Stop(operation);
}

bool CAIManager::Close() {
    monitor_.Close();
    stop();
    return !Monitor::IsThisThread();
}

}  // namespace Veltra
