#include "AIManager.h"
#include "HostCall.h"
#include "LLMSession.h"
#include "Log.h"
#include "Records.h"

#include <Veltra/Veltra.h>

#include <utility>

namespace Veltra {

namespace {

/// The guard of exports that need the layer enabled.
bool EnabledOrLogged(const char* operation) {
    if (CAIManager::GetInstance()->IsEnable()) return true;
    VELTRA_LOG(operation, 5, "veltra is not enable");
    return false;
}

}  // namespace

// --- functions -----------------------------------------------------------------------------------

bool Veltra_Enable() {
    const HostCall call;
    return call && CAIManager::GetInstance()->Enable();
}

bool Veltra_Disable() {
    const HostCall call;
    return call && CAIManager::GetInstance()->Disable();
}

bool Veltra_IsEnable() {
    const HostCall call;
    return call && CAIManager::GetInstance()->IsEnable();
}

bool Veltra_Unit() {
    const HostCall call;
    if (!call) return false;
    CAIManager::GetInstance()->stop();
    return true;
}

bool Veltra_IsLLMServiceValid() {
    VELTRA_OPERATION(operation);
    const HostCall call;
    return call && EnabledOrLogged(operation) && CAIManager::GetInstance()->IsLLMServiceValid();
}

bool Veltra_SetDomain(const std::string& domain) {
    const HostCall call;
    return call && CAIManager::GetInstance()->IsDomianValid(domain) &&
           CAIManager::GetInstance()->SetConfigDomain(domain);
}

bool Veltra_IsDomainValid(const std::string& domain) {
    VELTRA_OPERATION(operation);
    const HostCall call;
    return call && EnabledOrLogged(operation) && CAIManager::GetInstance()->IsDomianValid(domain);
}

bool Veltra_SetsitiveWords(const std::unordered_set<std::string>& keys,
                           const std::uint32_t& limit) {
    const HostCall call;
    return call && CAIManager::GetInstance()->SetSensitiveWords(keys, limit);
}

// By value: the login holds the handle for its whole run, whatever the host does meanwhile.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool Veltra_Authentication(const ProductType& /*productType*/, std::shared_ptr<CLicenseInfo> info) {
    VELTRA_OPERATION(operation);
    const HostCall call;
    if (!call) return false;
    CAIManager& manager = *CAIManager::GetInstance();

    const std::uint64_t stopsBefore = manager.StopRequests();
    VELTRA_LOG(operation, 3, "authening..");
    if (!EnabledOrLogged(operation)) return false;
    if (!info) {
        VELTRA_LOG(operation, 5, "auth_info ptr is nullptr");
        return false;
    }
    const std::shared_ptr<CLicenseInfoIMP> record = info->GetPtrManager();
    if (!record) {
        VELTRA_LOG(operation, 5, "auth_info manager ptr is nullptr");
        return false;
    }
    // Copies: a log handler, or another thread of the host, may change the record meanwhile.
    const std::vector<CAccessKey> accessKeys = record->accessKeys;
    if (accessKeys.empty()) VELTRA_LOG(operation, 5, "authen keys is empty!");
    const std::string productVersion = record->productVersion;
    VELTRA_LOG(operation, 3, "product version:%s", productVersion.c_str());
    if (!productVersion.empty()) manager.SetProductVersion(productVersion);

    if (!manager.IsEnable()) {  // disabled since the guard
        VELTRA_LOG(operation, 4, "veltra is not enable");
        return false;
    }
    VELTRA_LOG(operation, 3, "veltra is enable,begin authen.");
    if (!manager.renewAuthenticationToken(accessKeys, true)) {
        VELTRA_LOG(operation, 5, "authen failed");
        return false;
    }
    manager.start(stopsBefore);
    VELTRA_LOG(operation, 3, "authen success");
    return true;
}

// --- credentials ---------------------------------------------------------------------------------

CLicenseInfo::CLicenseInfo() : record_(std::make_shared<CLicenseInfoIMP>()) {}
CLicenseInfo::CLicenseInfo(const CLicenseInfo& other) = default;
CLicenseInfo::CLicenseInfo(CLicenseInfo&& other) noexcept = default;
CLicenseInfo& CLicenseInfo::operator=(const CLicenseInfo& other) = default;
CLicenseInfo& CLicenseInfo::operator=(CLicenseInfo&& other) noexcept = default;
CLicenseInfo::~CLicenseInfo() = default;

void CLicenseInfo::SetLicenseKey(const std::string& keyText,
                                 const std::vector<CAccessKey>& accessKeys) {
    if (!record_) return;
    record_->keyText = keyText;
    record_->accessKeys = accessKeys;
}

void CLicenseInfo::SetProductVersion(const std::string& version) {
    if (record_) record_->productVersion = version;
}

std::shared_ptr<CLicenseInfoIMP> CLicenseInfo::GetPtrManager() const {
    return record_;
}

// --- query input ---------------------------------------------------------------------------------

CHumanMessage::CHumanMessage() : record_(std::make_shared<CHumanMessageIMP>()) {}
CHumanMessage::CHumanMessage(const CHumanMessage& other) = default;
CHumanMessage::CHumanMessage(CHumanMessage&& other) noexcept = default;
CHumanMessage& CHumanMessage::operator=(const CHumanMessage& other) = default;
CHumanMessage& CHumanMessage::operator=(CHumanMessage&& other) noexcept = default;
CHumanMessage::~CHumanMessage() = default;

void CHumanMessage::SetElements(const std::string& promptKey,
                                const std::map<std::string, std::string>& elements) {
    if (!record_) return;
    record_->promptKey = promptKey;
    record_->elements = elements;
}

void CHumanMessage::SetFilterType(const FilterType& filterType) {
    if (record_) record_->filterType = filterType;
}

void CHumanMessage::SetSensitiveContent(const std::vector<std::string>& sensitiveContent) {
    if (record_) record_->sensitiveContent = sensitiveContent;
}

void CHumanMessage::SetSessionID(const std::string& sessionId) {
    if (record_) record_->sessionId = sessionId;
}

std::shared_ptr<CHumanMessageIMP> CHumanMessage::GetPtrManager() const {
    return record_;
}

// --- query entry ---------------------------------------------------------------------------------

CAiHelper::CAiHelper(const ProductType& productType, const std::string& text)
    : record_(std::make_shared<CAiHelperIMP>(productType, text)) {}
CAiHelper::CAiHelper(const CAiHelper& other) = default;
CAiHelper::CAiHelper(CAiHelper&& other) noexcept = default;
CAiHelper& CAiHelper::operator=(const CAiHelper& other) = default;
CAiHelper& CAiHelper::operator=(CAiHelper&& other) noexcept = default;
CAiHelper::~CAiHelper() = default;

std::shared_ptr<CLLMSession> CAiHelper::GetLLMSessionItem(const LLMType& /*type*/) {
    if (!record_) return nullptr;
    return std::make_shared<AISession>();
}

// The interfaces carry no data; their special members are here so that the library exports them.

CLLMSession::CLLMSession() = default;
CLLMSession::CLLMSession(const CLLMSession&) = default;
CLLMSession::CLLMSession(CLLMSession&&) noexcept = default;
CLLMSession& CLLMSession::operator=(const CLLMSession&) = default;
CLLMSession& CLLMSession::operator=(CLLMSession&&) noexcept = default;

CLLMMessage::CLLMMessage() = default;
CLLMMessage::CLLMMessage(const CLLMMessage&) = default;
CLLMMessage::CLLMMessage(CLLMMessage&&) noexcept = default;
CLLMMessage& CLLMMessage::operator=(const CLLMMessage&) = default;
CLLMMessage& CLLMMessage::operator=(CLLMMessage&&) noexcept = default;

}  // namespace Veltra
