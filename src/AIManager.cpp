#include "AIManager.h"

#include "HostCall.h"
#include "JsonText.h"
#include "Log.h"

#include <Oak/Base/Clock.h>
#include <proto/CRapidJsonProto.h>

#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace Veltra {

namespace {

constexpr const char* kTokenPath = "/api/tmqgw/v1/token/get";
constexpr std::uint64_t kTokenLifetimeMs = 12ULL * 60 * 60 * 1000;
constexpr int kRenewalRetries = 3;
constexpr std::chrono::minutes kRetryPause{1};

using ReadLock = boost::shared_lock<boost::shared_mutex>;
using WriteLock = boost::unique_lock<boost::shared_mutex>;

/// Set on the monitor's thread alone. A mark of the thread itself, since the system hands out the
/// id of a thread that has ended again.
constinit thread_local bool onMonitorThread = false;

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

/// The number that a text begins with, as decimal digits after optional white space and sign.
std::optional<std::int64_t> LeadingNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    // from_chars reads a minus sign alone; what follows a plus sign must be a digit.
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    std::int64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc()) return std::nullopt;
    return number;
}

/// Written in one piece of memory, which its request wipes.
std::string TokenRequestBody(const std::string& appKey, const std::string& secretKey) {
    constexpr std::string_view frame = R"({"appKey":"","secretKey":""})";
    std::string body;
    body.reserve(frame.size() + appKey.size() + secretKey.size());
    body += '{';
    AppendMember(body, "appKey", appKey);
    body += ',';
    AppendMember(body, "secretKey", secretKey);
    body += '}';
    return body;
}

}  // namespace

// --- the token request ---------------------------------------------------------------------------

bool TokenMessage::GetToekn(const std::string& domain, const std::string& appKey,
                            const std::string& secretKey, std::string& token, std::int64_t& expiry,
                            std::string& llmDomain) {
    VELTRA_OPERATION(operation);
    const auto document = std::make_shared<proto::CRapidJsonProto>();
    VELTRA_LOG(operation, 3, "get token use domain :%s", domain.c_str());

    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(domain + kTokenPath));
    request.AddHeaderField("Content-Type", "application/json");
    request.SetSecretData(TokenRequestBody(appKey, secretKey));

    Oak::Net::CHttpClientResponse response;
    Oak::Net::HttpClient::Error error{};
    if (!SendOnce(request, response, error)) {
        VELTRA_LOG(operation, 5, "Request get token failed");
        return false;
    }
    if (response.GetStatusCode() != 200) {
        VELTRA_LOG(operation, 5, "Request get token status_code =%d", response.GetStatusCode());
        return false;
    }
    std::string answer;
    response.GetResponseData(&answer);
    if (answer.empty()) {
        VELTRA_LOG(operation, 5, "Request get token failed,response is empty");
        return false;
    }
    if (document->set_str(answer)) {
        const std::string errorCode = document->get_str("/errorCode", "");
        if (errorCode != "0") {
            VELTRA_LOG(operation, 5, "Request get token failed,get errorcode:%s,rsp is:%s",
                       errorCode.c_str(), answer.c_str());
            return false;
        }
        std::string newToken = document->get_str("/data/accessToken", "");
        std::string newDomain = document->get_str("/data/areaDomain", "");
        const auto newExpiry = LeadingNumber(document->get_str("/data/expireTime", ""));
        if (!newToken.empty() && newExpiry && !newDomain.empty()) {
            token = std::move(newToken);
            expiry = *newExpiry;
            llmDomain = std::move(newDomain);
            return true;
        }
    }
    VELTRA_LOG(operation, 5, "Request get token failed,rsp is:%s", answer.c_str());
    VELTRA_LOG(operation, 5, "Request get token failed");
    return false;
}

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

CAIManager::~CAIManager() {
    stop();
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
    const bool reached = SendUntilOk(
        request, response,
        [&](std::int32_t status) {
            VELTRA_LOG(operation, 5, "http client send message failed,errcode:%d,domian is :%s",
                       status, domain.c_str());
        },
        [this] { return !MonitorMustEnd(); });
    if (!reached) {
        if (MonitorMustEnd()) return false;  // given up, which says nothing about the domain
        VELTRA_LOG(operation, 5, "http client send message failed,domian is :%s", domain.c_str());
        return false;
    }
    std::string answer;
    response.GetResponseData(&answer);
    if (answer.empty()) {
        VELTRA_LOG(operation, 5, "response is empty,domian is :%s", domain.c_str());
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

/// The calling thread's turn to renew, which others wait for without any lock being held. Its end
/// publishes the outcome.
class CAIManager::RenewalTurn : private Oak::Base::CNoncopyable {
 public:
    /// Takes the turn. `lock` holds cvMutex_, and nobody's turn it is.
    RenewalTurn(CAIManager& manager, std::unique_lock<std::mutex> lock) : manager_(manager) {
        manager_.renewing_ = std::this_thread::get_id();
        lock.unlock();
    }

    ~RenewalTurn() {
        if (!ended_) End(Renewal::failed);
    }

    /// Ends the turn and returns the number of renewals that have ended by then. One that was cut
    /// has no outcome: who waits takes the next turn.
    std::uint64_t End(Renewal outcome) {
        ended_ = true;
        const std::lock_guard<std::mutex> lock(manager_.cvMutex_);
        manager_.renewing_ = {};
        if (outcome != Renewal::cut) ++manager_.renewalsEnded_;
        if (outcome == Renewal::succeeded) manager_.lastSuccess_ = manager_.renewalsEnded_;
        manager_.cv_.notify_all();
        return manager_.renewalsEnded_;
    }

 private:
    CAIManager& manager_;
    bool ended_ = false;
};

bool CAIManager::renewAuthenticationToken(const std::vector<CAccessKey>& list, const bool& first) {
    std::unique_lock<std::mutex> lock(cvMutex_);
    if (renewing_ == std::this_thread::get_id()) return false;
    const auto free = [this] { return renewing_ == std::thread::id(); };
    cv_.wait(lock, [&] { return free() || MonitorMustEnd(); });
    if (!free()) return false;
    RenewalTurn turn(*this, std::move(lock));
    const Renewal outcome = renewAuthenticationToken(turn, list, first);
    turn.End(outcome);
    return outcome == Renewal::succeeded;
}

/// Renews unless a renewal has ended since `seen` renewals had: then its outcome counts. Sets
/// `seen` to what the outcome includes.
CAIManager::Renewal CAIManager::RenewOrShare(std::uint64_t& seen) {
    std::unique_lock<std::mutex> lock(cvMutex_);
    if (renewing_ == std::this_thread::get_id()) return Renewal::cut;
    cv_.wait(lock, [this, seen] {
        return renewing_ == std::thread::id() || renewalsEnded_ != seen || MonitorMustEnd();
    });
    if (MonitorMustEnd()) return Renewal::cut;
    if (renewalsEnded_ != seen) {
        const bool shared = lastSuccess_ > seen;
        seen = renewalsEnded_;
        SetLLMServiceValid(shared);  // our own probe may have said otherwise since
        return shared ? Renewal::succeeded : Renewal::failed;
    }
    RenewalTurn turn(*this, std::move(lock));
    const Renewal outcome = renewAuthenticationToken(turn, {}, false);
    seen = turn.End(outcome);
    return outcome;
}

/// The renewal itself, in the calling thread's turn. A check's ends between two requests when the
/// monitor was told to end; a login's runs to its end.
CAIManager::Renewal CAIManager::renewAuthenticationToken(const RenewalTurn& /*turn*/,
                                                         const std::vector<CAccessKey>& list,
                                                         bool first) {
    VELTRA_OPERATION(operation);
    if (!list.empty()) {
        accessKeys_.insert(accessKeys_.end(), list.begin(), list.end());
        UsePair(0);
    }
    if (!first) {
        if (keyIndex_ < 0 || static_cast<std::size_t>(keyIndex_) >= accessKeys_.size()) {
            VELTRA_LOG(operation, 5, "get token failed,no ak/sk can use");
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
    const auto mayGoOn = [&] { return first || !MonitorMustEnd(); };
    while (!RequestToken(domains, mayGoOn, token, llmDomain)) {
        if (!mayGoOn()) return Renewal::cut;
        // As unsigned numbers, -1 and the last index of an empty list are both the largest.
        if (static_cast<std::size_t>(keyIndex_) >= accessKeys_.size() - 1) {
            VELTRA_LOG(operation, 5, "get token failed,not get token");
            SetLLMServiceValid(false);
            return Renewal::failed;
        }
        UsePair(keyIndex_ + 1);
    }
    VELTRA_LOG(operation, 3, "get token success");
    Store(token, &llmDomain);
    SetDomian(llmDomain);
    SetLLMServiceValid(true);
    return Renewal::succeeded;
}

void CAIManager::UsePair(std::int32_t index) {
    keyIndex_ = index;
    const CAccessKey& pair = accessKeys_[static_cast<std::size_t>(index)];
    appKey_ = pair.appKey;
    secretKey_ = pair.secretKey;
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
    if (MonitorMustEnd()) return;  // the probe may have been given up
    SetLLMServiceValid(reached);

    // The count is taken before the token is looked at: a renewal that ends in between makes the
    // token fresh, one that ends later is shared.
    std::uint64_t seen = 0;
    {
        const std::lock_guard<std::mutex> lock(cvMutex_);
        seen = renewalsEnded_;
    }
    if (TokenIsFresh()) return;

    Renewal outcome = RenewOrShare(seen);
    if (outcome != Renewal::failed) return;
    VELTRA_LOG(operation, 5, "Update token failed");
    for (int retry = 0; retry < kRenewalRetries && outcome == Renewal::failed; ++retry) {
        if (!Pause(seen, stopsBefore)) return;
        outcome = RenewOrShare(seen);
    }
}

/// Waits a minute, or until a renewal succeeds. False when `stop` was called meanwhile.
bool CAIManager::Pause(std::uint64_t seen, std::uint64_t stopsBefore) {
    std::unique_lock<std::mutex> lock(cvMutex_);
    const auto cut = [&] { return MonitorMustEnd() || stopRequests_ != stopsBefore; };
    Oak::Base::Clock::WaitFor(cv_, lock, kRetryPause, [&] { return cut() || lastSuccess_ > seen; });
    return !cut();
}

// --- the monitor ---------------------------------------------------------------------------------

/// Whether the calling thread is the monitor and was told to end.
bool CAIManager::MonitorMustEnd() const {
    return onMonitorThread && stopFlag_.load(std::memory_order_relaxed);
}

void CAIManager::MonitorLoop() {
    VELTRA_OPERATION(operation);
    onMonitorThread = true;
    {
        const std::lock_guard<std::mutex> lock(cvMutex_);
        monitorRuns_ = true;
        cv_.notify_all();
    }
    const auto told = [this] { return stopFlag_.load(std::memory_order_relaxed); };
    while (!told()) {
        try {
            checkTokenValidity();
        } catch (const std::exception& failure) {
            VELTRA_LOG(operation, 5, "check of the token failed:%s", failure.what());
        } catch (...) {
            VELTRA_LOG(operation, 5, "check of the token failed");
        }
        std::unique_lock<std::mutex> lock(cvMutex_);
        Oak::Base::Clock::WaitFor(cv_, lock, std::chrono::milliseconds(checkIntervalMs_), told);
    }
    // All that this thread may still do is to unload the module, and free the manager with it.
    onMonitorThread = false;
}

void CAIManager::start() {
    start(StopRequests());
}

void CAIManager::start(std::uint64_t stopsBefore) {
    VELTRA_OPERATION(operation);
    std::unique_lock<std::mutex> lock(cvMutex_);
    while (monitorState_ != MonitorState::none) {
        const bool running = monitorState_ == MonitorState::running;
        if (closed_ || starter_ == std::this_thread::get_id()) return;
        if (stopRequests_ != stopsBefore) return;
        if (!running && onMonitorThread) return;  // whoever starts or joins it waits for it
        if (!running) {
            cv_.wait(lock);
        } else if (!stopFlag_.load(std::memory_order_relaxed)) {
            return;
        } else if (onMonitorThread) {
            // Told to stop by a log handler on this thread, and now to go on by another.
            stopFlag_.store(false, std::memory_order_relaxed);
            return;
        } else {
            JoinMonitor(lock);  // told to stop from its own thread, which could not join itself
        }
    }
    if (closed_ || stopRequests_ != stopsBefore) return;
    monitorState_ = MonitorState::starting;
    starter_ = std::this_thread::get_id();
    stopFlag_.store(false, std::memory_order_relaxed);
    lock.unlock();

    VELTRA_LOG(operation, 3, "monitorThread_ begin.");
    try {
        Oak::Base::ServiceThread monitor("veltra-monitor", [this] { MonitorLoop(); });
        lock.lock();
        cv_.wait(lock, [this] { return monitorRuns_; });
        monitorThread_ = std::move(monitor);
        EndStarting(MonitorState::running);
    } catch (const std::exception& failure) {  // no thread, or no memory for one
        lock.lock();
        EndStarting(MonitorState::none);
        lock.unlock();
        VELTRA_LOG(operation, 5, "monitorThread_ can not begin:%s", failure.what());
    }
}

/// Called with cvMutex_ held.
void CAIManager::EndStarting(MonitorState state) {
    monitorState_ = state;
    starter_ = {};
    cv_.notify_all();
}

std::uint64_t CAIManager::StopRequests() const {
    const std::lock_guard<std::mutex> lock(cvMutex_);
    return stopRequests_;
}

void CAIManager::stop() {
    VELTRA_OPERATION(operation);
    std::unique_lock<std::mutex> lock(cvMutex_);
    stopFlag_.store(true, std::memory_order_relaxed);
    ++stopRequests_;
    cv_.notify_all();
    if (onMonitorThread || starter_ == std::this_thread::get_id()) return;

    const std::uint64_t endedBefore = monitorsEnded_;
    cv_.wait(lock, [&] {
        return monitorState_ == MonitorState::none || monitorState_ == MonitorState::running ||
               monitorsEnded_ != endedBefore;
    });
    if (monitorState_ != MonitorState::running || monitorsEnded_ != endedBefore) return;
    JoinMonitor(lock);
    lock.unlock();
    VELTRA_LOG(operation, 3, "monitorThread_ end.");
}

/// Joins the running monitor, which was told to end; whoever else wants to start or stop it waits
/// on the state meanwhile, without a lock being held over the join.
void CAIManager::JoinMonitor(std::unique_lock<std::mutex>& lock) {
    monitorState_ = MonitorState::stopping;
    Oak::Base::ServiceThread monitor = std::move(monitorThread_);
    lock.unlock();
    monitor.Join();
    lock.lock();
    monitorRuns_ = false;
    monitorState_ = MonitorState::none;
    ++monitorsEnded_;
    cv_.notify_all();
}

bool CAIManager::Close() {
    {
        const std::lock_guard<std::mutex> lock(cvMutex_);
        closed_ = true;
    }
    stop();
    return !onMonitorThread;
}

}  // namespace Veltra
