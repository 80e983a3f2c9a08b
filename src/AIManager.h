#ifndef VELTRA_SRC_AIMANAGER_H
#define VELTRA_SRC_AIMANAGER_H

#include "AccessKeys.h"
#include "CallReports.h"
#include "GatewayCall.h"
#include "Monitor.h"
#include "RenewalGate.h"
#include "SensitiveWordFilter.h"
#include "TokenMessage.h"

#include <Oak/Base/Noncopyable.h>
#include <Veltra/LicenseInfo.h>

#include <boost/thread/shared_mutex.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

namespace Veltra {

/// The one process-wide object behind the exported functions: the enable flag, the domains, the
/// credentials, the token, the thread that keeps it fresh, the phrase filter.
///
/// Any thread may call any operation, except that the destructor comes last. `dataMutex_` guards
/// the texts; the monitor and the renewal's gate have locks of their own. None is taken while
/// another is held, nor held across an exchange, a pause, a join or a log record.
class CAIManager : private Oak::Base::CNoncopyable {
 public:
    /// The instance, made on the first call. A caller holds a HostCall, or is the monitor.
    static CAIManager* GetInstance();

    ~CAIManager();

    /// Makes whoever waits for a renewal, or in a pause, ask again whether to go on.
    static void WakeWaits() noexcept;

    /// The reports of the threads' last calls.
    CallReports& Reports() { return reports_; }

    bool Enable();   ///< True.
    bool Disable();  ///< Clears the flag, then stops the monitor. True.
    bool IsEnable() const;

    /// False, with nothing changed and nothing logged, when `domain` is empty.
    bool SetConfigDomain(const std::string& domain);
    std::string GetConfigDomain() const;  ///< May be empty.

    /// Stores the domain for all calls but token requests; an empty one as well.
    void SetDomian(const std::string& domain);
    /// The domain for queries, feedback and the monitor's probe: that of the last token's answer,
    /// or the test endpoint while there is none.
    std::string GetDomian() const;
    static std::string GetProductionDomain();
    static std::string GetTestDomain();

    /// Probes a domain: whether it answers a bare request with status 200 and any text.
    bool IsDomianValid(const std::string& domain);

    /// Stores a new token, stamps it and makes it valid.
    void SetToken(const std::string& token);
    std::string GetToken() const;    ///< Empty before the first login.
    void SetTokenValid(bool valid);  ///< False: the next check renews, whatever the token's age.

    /// Domain and token of one moment.
    GatewayAccess Access() const;
    /// Marks the token of that generation rejected, unless a newer one took its place meanwhile.
    void RejectToken(std::uint64_t generation);

    void SetLLMServiceValid(bool valid);
    bool IsLLMServiceValid() const;  ///< By the last probe of a check, or renewal.

    /// False, with nothing changed, when `version` is empty.
    bool SetProductVersion(const std::string& version);
    std::string GetProductVersion() const;

    /// Adds the pairs of `list`, if any, and requests a token with the pairs from the one in use on
    /// until one gives a token. The login's own renewal: it waits its turn and takes no other's
    /// outcome. False at once on a thread whose own renewal is under way.
    bool renewAuthenticationToken(const std::vector<CAccessKey>& list, const bool& first);

    /// Probes the domain, and renews the token when it is 12 hours old or was rejected; when that
    /// fails tries again up to three times, a minute apart. Of checks and logins that renew at one
    /// time one does, and the checks among the others take its outcome.
    void checkTokenValidity();

    /// Starts the monitor unless it runs; returns once it does. Waits for a stop under way.
    void start();
    /// The same, unless `stop` was called since it had been called `stopsBefore` times: a stop in
    /// the middle of a login wins over the login's start.
    void start(std::uint64_t stopsBefore);
    std::uint64_t StopRequests() const;  ///< How often `stop` was called.
    /// Ends the monitor and returns when it has ended; on the monitor's own thread it only asks
    /// for the end.
    void stop();
    /// Ends the monitor, then forgets and wipes pairs and token, clears the token's domain and
    /// "usable". False, with nothing done, on a thread whose own renewal is under way.
    bool Logout();
    /// Stops for good: no later `start` has an effect. True when nothing of this object is in use
    /// by the calling thread, so that it may be freed.
    bool Close();

    /// The phrase list and the test against it; see SensitiveWordFilter. Setting is always true.
    bool SetSensitiveWords(const std::unordered_set<std::string>& words,
                           const std::uint32_t& limit);
    bool HasSensitiveWords(const std::string& text) const;

 private:
    using Renewal = RenewalGate::Outcome;

    CAIManager();

    void Store(const std::string& token, const std::string* llmDomain);

    bool TokenIsFresh() const;
    Renewal RenewOrShare(std::uint64_t& seen);
    Renewal renewAuthenticationToken(const RenewalGate::Turn& turn,
                                     const std::vector<CAccessKey>& list, bool first);
    bool RequestToken(const std::vector<std::string>& domains, const std::function<bool()>& mayGoOn,
                      std::string& token, std::string& llmDomain) const;
    void UsePair(std::int32_t index);
    void ForgetCredentials();

    // Credentials: belong to the thread whose turn it is to renew.
    std::string appKey_;
    std::string secretKey_;
    AccessKeys accessKeys_;
    std::int32_t keyIndex_ = -1;

    std::atomic<std::int64_t> tokenTime_{-1};
    mutable boost::shared_mutex dataMutex_;
    std::string llmDomain_;  // guarded by dataMutex_, as the next three and the version
    std::string configDomain_;
    std::string token_;
    std::uint64_t tokenGeneration_ = 0;

    CallReports reports_;
    RenewalGate gate_;
    Monitor monitor_;

    std::atomic<bool> llmServiceValid_{false};
    std::atomic<bool> tokenValid_{false};
    std::atomic<bool> enable_{false};
    std::string productVersion_ = "un_known";
    SensitiveWordFilter sensitiveFilter_;  // made with the manager: no query can meet it half made
};

}  // namespace Veltra

#endif
