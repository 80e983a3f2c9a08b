#include "AIManager.h"
#include "AccessKeys.h"
#include "CallWatch.h"
#include "HostCall.h"
#include "LLMSession.h"
#include "Log.h"
#include "Records.h"
#include "UserComment.h"

#include <Veltra/Veltra.h>

#include <utility>

namespace Veltra {

namespace {

/// The guard of exports that need the layer enabled.
bool EnabledOrLogged(const char* operation) {
    if (CAIManager::GetInstance()->IsEnable()) return true;
    VELTRA_LOG(operation, 5, "veltra is not enable");
    CallWatch::NoteFailure(CallOutcome::NotEnabled, kDetailNotEnabled);
    return false;
}

/// The guard of exports that call the gateway.
bool ServiceUsableOrLogged(const char* operation) {
    if (CAIManager::GetInstance()->IsLLMServiceValid()) return true;
    VELTRA_LOG(operation, 5, "llm service is not can be used");
    CallWatch::NoteFailure(CallOutcome::NotUsable, kDetailNotUsable);
    return false;
}

/// Sets a field of a comment; false when there is no record.
template <class Value>
bool Store(LLMCommentIMP* record, Value LLMCommentIMP::*field, const Value& value) {
    if (record == nullptr) return false;
    record->*field = value;
    return true;
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
    SteeredCall call;
    if (!call || !CAIManager::GetInstance()->IsDomianValid(domain)) return false;
    const bool stored = CAIManager::GetInstance()->SetConfigDomain(domain);
    if (!stored) CallWatch::NoteFailure(CallOutcome::BadArgument, "the domain is empty");
    return call.End(stored);
}

bool Veltra_IsDomainValid(const std::string& domain) {
    VELTRA_OPERATION(operation);
    SteeredCall call;
    return call &&
           call.End(EnabledOrLogged(operation) && CAIManager::GetInstance()->IsDomianValid(domain));
}

bool Veltra_SetsitiveWords(const std::unordered_set<std::string>& keys,
                           const std::uint32_t& limit) {
    const HostCall call;
    return call && CAIManager::GetInstance()->SetSensitiveWords(keys, limit);
}

namespace {

bool LogIn(const char* operation, const std::shared_ptr<CLicenseInfo>& info) {
    CAIManager& manager = *CAIManager::GetInstance();
    const std::uint64_t stopsBefore = manager.StopRequests();
    VELTRA_LOG(operation, 3, "authening..");
    if (!EnabledOrLogged(operation)) return false;
    if (!info) {
        VELTRA_LOG(operation, 5, "auth_info ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "no credentials were given");
        return false;
    }
    const std::shared_ptr<CLicenseInfoIMP> record = info->GetPtrManager();
    if (!record) {
        VELTRA_LOG(operation, 5, "auth_info manager ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "the credentials were moved from");
        return false;
    }
    // Copies: a log handler, or another thread of the host, may change the record meanwhile.
    const AccessKeys accessKeys = record->accessKeys;
    if (accessKeys.Get().empty()) VELTRA_LOG(operation, 5, "authen keys is empty!");
    const std::string productVersion = record->productVersion;
    VELTRA_LOG(operation, 3, "product version:%s", productVersion.c_str());
    if (!productVersion.empty()) manager.SetProductVersion(productVersion);

    if (!manager.IsEnable()) {  // disabled since the guard
        VELTRA_LOG(operation, 4, "veltra is not enable");
        CallWatch::NoteFailure(CallOutcome::NotEnabled, kDetailNotEnabled);
        return false;
    }
    VELTRA_LOG(operation, 3, "veltra is enable,begin authen.");
    if (!manager.renewAuthenticationToken(accessKeys.Get(), true)) {
        VELTRA_LOG(operation, 5, "authen failed");
        return false;
    }
    manager.start(stopsBefore);
    VELTRA_LOG(operation, 3, "authen success");
    return true;
}

bool Submit(const char* operation, std::shared_ptr<LLMComment> comment, std::string& feedbackId) {
    if (!EnabledOrLogged(operation)) return false;
    if (!comment) {
        VELTRA_LOG(operation, 5, "comment ptr is nullptr");
        CallWatch::NoteFailure(CallOutcome::BadArgument, "no comment was given");
        return false;
    }
    return ServiceUsableOrLogged(operation) &&
           UserComentManager::UpLoadComments(std::move(comment), feedbackId);
}

}  // namespace

// By value: the login holds the handle for its whole run, whatever the host does meanwhile.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool Veltra_Authentication(const ProductType& /*productType*/, std::shared_ptr<CLicenseInfo> info) {
    VELTRA_OPERATION(operation);
    SteeredCall call;
    return call && call.End(LogIn(operation, info));
}

bool Veltra_SubmitComments(std::shared_ptr<LLMComment> comment, std::string& feedbackId) {
    VELTRA_OPERATION(operation);
    SteeredCall call;
    return call && call.End(Submit(operation, std::move(comment), feedbackId));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature is given
bool Veltra_CancleComments(std::string feedbackId) {
    VELTRA_OPERATION(operation);
    SteeredCall call;
    return call && call.End(EnabledOrLogged(operation) && ServiceUsableOrLogged(operation) &&
                            UserComentManager::CancelComments(feedbackId));
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
    record_->accessKeys = AccessKeys(accessKeys);
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

// --- feedback ------------------------------------------------------------------------------------

LLMComment::LLMComment(const std::string& traceId)
    : record_(std::make_shared<LLMCommentIMP>(traceId)) {}
LLMComment::LLMComment(const LLMComment& other) = default;
LLMComment::LLMComment(LLMComment&& other) noexcept = default;
LLMComment& LLMComment::operator=(const LLMComment& other) = default;
LLMComment& LLMComment::operator=(LLMComment&& other) noexcept = default;
LLMComment::~LLMComment() = default;

bool LLMComment::SetSatisfactionLevel(const SatisfactionLevel& level) {
    return Store(record_.get(), &LLMCommentIMP::satisfactionLevel, level);
}

bool LLMComment::SetLLMErrType(LLMErrType type) {
    return Store(record_.get(), &LLMCommentIMP::llmErrType, type);
}

bool LLMComment::SetComments(const std::string& text) {
    return Store(record_.get(), &LLMCommentIMP::comments, text);
}

bool LLMComment::SetPictures(const std::unordered_set<std::string>& pictures) {
    return Store(record_.get(), &LLMCommentIMP::pictures, pictures);
}

bool LLMComment::SetCountry(const std::string& country) {
    return Store(record_.get(), &LLMCommentIMP::country, country);
}

std::shared_ptr<LLMCommentIMP> LLMComment::GetManagerPtr() const {
    return record_;
}

// --- query interfaces ----------------------------------------------------------------------------

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
