#include "HostCall.h"
#include "UserComment.h"

#include <Oak/Base/Wipe.h>
#include <Oak/Net/HttpClientOptions.h>
#include <Veltra/Veltra.h>
#include <Veltra/veltra_c.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

// The interface for C is a host of the library's own: it stands on the public headers, apart from
// the wiping of secrets, the one default that differs here, the echo of bodies, and the one refusal
// that C++ hosts aren't told of.

namespace {

using Veltra::CallOutcome;
using Veltra::EscapeJson;

/// What the functions on a call tell, whose texts outlast the call's own report.
struct Report {
    std::int32_t attempts = 0;
    std::int32_t httpStatus = 0;
    std::uint32_t milliseconds = 0;
    bool retryable = false;
    std::string gatewayCode;
    std::string gatewayMessage;
    std::string detail;
    std::string traceId;

    /// @param plainTraceId  null or empty: that of the report is plain
    void Take(const Veltra::CCallReport& report, const std::string* plainTraceId) {
        attempts = report.Attempts();
        httpStatus = report.HttpStatus();
        milliseconds = report.Milliseconds();
        retryable = report.Retryable();
        gatewayCode = report.GatewayCode();
        gatewayMessage = report.GatewayMessage();
        detail = report.Detail();
        if (plainTraceId != nullptr && !plainTraceId->empty())
            traceId = *plainTraceId;  // mostly the same again: into the memory that is there
        else
            traceId = report.TraceId();
    }
};

}  // namespace

struct veltra_call {
    Veltra::CCallControl control;
    std::atomic<bool> inUse{false};
    Report report;
};

// Texts stand here escaped, but for the trace ids that reports give back.

struct veltra_query {
    mutable Veltra::CAiHelper helper{Veltra::ProductType::Default, ""};
    std::string promptKey;
    std::map<std::string, std::string> values;
    Veltra::FilterType filter = Veltra::FilterType::None;
    std::vector<std::string> sensitive;
    std::string traceId;

    /// What a run hands in: made by the first one after a change, for all that follow.
    std::shared_ptr<Veltra::CHumanMessage> Message() const;
    void Changed() noexcept { message_.reset(); }  // while nobody runs it

 private:
    mutable std::mutex mutex_;
    mutable std::shared_ptr<Veltra::CHumanMessage> message_;  // never changed once it is here
};

std::shared_ptr<Veltra::CHumanMessage> veltra_query::Message() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (message_) return message_;
    auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements(promptKey, values);
    message->SetFilterType(filter);
    message->SetSensitiveContent(sensitive);
    message->SetSessionID(EscapeJson(traceId));
    message_ = message;
    return message;
}

struct veltra_feedback {
    std::string traceId;
    Veltra::SatisfactionLevel satisfaction = Veltra::SatisfactionLevel::Default;
    Veltra::LLMErrType errorType = Veltra::LLMErrType::Default;
    std::string comments;
    std::optional<std::string> country;
    std::unordered_set<std::string> pictures;
};

namespace {

/// Runs `work`, which returns an outcome. No exception passes: C has no place for one.
template <class Work>
veltra_outcome Guarded(Work work) noexcept {
    try {
        return work();
    } catch (const std::exception&) {
        return VELTRA_FAILED;
    }
}

/// The same for work that returns nothing and can't say that it failed.
template <class Work>
void GuardedSilently(Work work) noexcept {
    Guarded([&work] {
        work();
        return VELTRA_SUCCEEDED;
    });
}

/// The same for the making of an object.
template <class Work>
auto GuardedNew(Work work) noexcept -> decltype(work()) {
    try {
        return work();
    } catch (const std::exception&) {
        return nullptr;
    }
}

/// The outcome of what isn't steered: it can be refused, and nothing else.
veltra_outcome EnabledOr(bool done) {
    return done ? VELTRA_SUCCEEDED : VELTRA_NOT_ENABLED;
}

/// The turn of one call at a control; false while another has it.
class Turn {
 public:
    explicit Turn(veltra_call* call) noexcept
        : call_(call), mine_(call == nullptr || !call->inUse.exchange(true)) {}
    ~Turn() {
        if (call_ != nullptr && mine_) call_->inUse.store(false);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const noexcept { return mine_; }

 private:
    veltra_call* call_;
    bool mine_;
};

/// Leaves `detail` alone in the report, or nothing when there is no memory for it.
void Note(veltra_call* call, const char* detail) noexcept {
    if (call == nullptr) return;
    call->report = Report();
    GuardedSilently([&] { call->report.detail = detail; });
}

/// Why the calling thread's last call failed.
veltra_outcome Why(const Veltra::CCallReport& report) {
    const CallOutcome outcome = report.Outcome();
    // A report for which there was no memory looks like that of no call.
    const bool isLost = outcome == CallOutcome::NotEnabled && Veltra::Veltra_IsEnable();
    if (isLost || outcome == CallOutcome::Succeeded) return VELTRA_FAILED;
    return static_cast<veltra_outcome>(outcome);
}

/// Makes a call: `work` returns whether it succeeded. What it has handed to the host by then stays
/// handed over, whatever becomes of the report.
/// @param traceId  the plain one that the call carries; null or empty when the library makes it
template <class Work>
veltra_outcome Steered(veltra_call* call, const std::string* traceId, Work work) noexcept {
    bool done = false;
    try {
        {
            std::optional<Veltra::CCallScope> scope;
            if (call != nullptr) scope.emplace(call->control);
            done = work();
        }
        if (call == nullptr) return done ? VELTRA_SUCCEEDED : Why(Veltra::Veltra_LastCall());
        const Veltra::CCallReport last = Veltra::Veltra_LastCall();
        call->report.Take(last, traceId);
        return done ? VELTRA_SUCCEEDED : Why(last);
    } catch (const std::exception&) {
        Note(call, done ? "" : "there is not enough memory");
        return done ? VELTRA_SUCCEEDED : VELTRA_FAILED;
    }
}

/// The same with its turn and its arguments judged first.
template <class Work>
veltra_outcome Call(veltra_call* call, bool argumentsGiven, Work work,
                    const std::string* traceId = nullptr) noexcept {
    const Turn turn(call);
    if (!turn) return VELTRA_BAD_ARGUMENT;
    if (!argumentsGiven) {
        Note(call, "an argument is null");
        return VELTRA_BAD_ARGUMENT;
    }
    return Steered(call, traceId, work);
}

/// Keeps `text` escaped in a field of an object.
template <class Object, class Field>
veltra_outcome Keep(Object* object, Field Object::*field, const char* text) noexcept {
    if (object == nullptr || text == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        object->*field = EscapeJson(text);
        return VELTRA_SUCCEEDED;
    });
}

using Text = std::unique_ptr<char[]>;

/// A copy for `veltra_free`.
Text CopyOf(const std::string& text) {
    Text copy(new char[text.size() + 1]);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

std::string EscapedSecret(const char* text) {
    std::string plain(text);
    std::string escaped = EscapeJson(plain);
    Oak::Base::Wipe(plain);
    return escaped;
}

/// Pairs for a login, wiped at the end.
class Pairs {
 public:
    Pairs(const veltra_key_pair* pairs, std::size_t count) : keys_(count) {
        for (std::size_t i = 0; i < count; ++i) {
            keys_[i].appKey = EscapedSecret(pairs[i].app_key);
            keys_[i].secretKey = EscapedSecret(pairs[i].secret_key);
        }
    }
    ~Pairs() {
        for (Veltra::CAccessKey& key : keys_) {
            Oak::Base::Wipe(key.appKey);
            Oak::Base::Wipe(key.secretKey);
        }
    }
    Pairs(const Pairs&) = delete;
    Pairs& operator=(const Pairs&) = delete;

    const std::vector<Veltra::CAccessKey>& Get() const { return keys_; }

 private:
    std::vector<Veltra::CAccessKey> keys_;
};

bool AreGiven(const veltra_key_pair* pairs, std::size_t count) {
    if (count == 0) return true;
    return pairs != nullptr && std::all_of(pairs, pairs + count, [](const veltra_key_pair& pair) {
               return pair.app_key != nullptr && pair.secret_key != nullptr;
           });
}

/// How many words a phrase has, parted by spaces.
std::uint32_t Words(const char* phrase) {
    std::uint32_t words = 0;
    for (char before = ' '; *phrase != '\0'; before = *phrase++)
        if (before == ' ' && *phrase != ' ') ++words;
    return words;
}

/// Whether a field lies within the size that the caller knows.
template <class Field>
bool Holds(const veltra_http_options& options, Field veltra_http_options::*field) {
    const auto* const begin = reinterpret_cast<const char*>(&options);
    const auto* const end = reinterpret_cast<const char*>(&(options.*field) + 1);
    return static_cast<std::size_t>(end - begin) <= options.size;
}

Oak::Net::HttpClientOptions ReadOptions(const veltra_http_options& options) {
    Oak::Net::HttpClientOptions read;
    const auto take = [&options](auto field, auto& target) {
        if (Holds(options, field)) target = options.*field;
    };
    const auto takeText = [&options](auto field, std::string& target) {
        if (Holds(options, field) && options.*field != nullptr) target = options.*field;
    };
    take(&veltra_http_options::connect_timeout_ms, read.connectTimeoutMs);
    take(&veltra_http_options::total_timeout_ms, read.totalTimeoutMs);
    take(&veltra_http_options::max_response_bytes, read.maxResponseBytes);
    takeText(&veltra_http_options::ca_file, read.caFile);
    takeText(&veltra_http_options::proxy, read.proxy);
    read.allowPlainHttp =
        Holds(options, &veltra_http_options::allow_plain_http) && options.allow_plain_http != 0;
    return read;
}

}  // namespace

const char* veltra_version(void) {
    return Veltra::Veltra_GetVersion();
}

const char* veltra_outcome_name(veltra_outcome outcome) {
    static constexpr std::array kNames = {
        "Succeeded", "NotEnabled",    "NotUsable",      "BadArgument", "Screened",  "Cancelled",
        "TimedOut",  "NotReached",    "NotTrusted",     "CutOff",      "BadStatus", "BadAnswer",
        "Refused",   "TokenRejected", "ForbiddenWords", "NotAllowed",  "Failed"};
    const auto number = static_cast<std::size_t>(outcome);
    return number < kNames.size() ? kNames[number] : "Failed";
}

void veltra_free(void* text) {
    delete[] static_cast<char*>(text);
}

// --- the layer -----------------------------------------------------------------------------------

void veltra_enable(void) {
    GuardedSilently([] { Veltra::Veltra_Enable(); });
}

void veltra_disable(void) {
    GuardedSilently([] { Veltra::Veltra_Disable(); });
}

int veltra_is_enabled(void) {
    return Guarded([] { return EnabledOr(Veltra::Veltra_IsEnable()); }) == VELTRA_SUCCEEDED ? 1 : 0;
}

int veltra_is_usable(void) {
    const auto ask = [] { return EnabledOr(Veltra::Veltra_IsLLMServiceValid()); };
    return Guarded(ask) == VELTRA_SUCCEEDED ? 1 : 0;
}

void veltra_stop_monitor(void) {
    GuardedSilently([] { Veltra::Veltra_Unit(); });
}

// --- calls ---------------------------------------------------------------------------------------

veltra_call* veltra_call_new(void) {
    return GuardedNew([] { return std::make_unique<veltra_call>().release(); });
}

void veltra_call_free(veltra_call* call) {
    delete call;
}

void veltra_call_set_time_limit(veltra_call* call, uint32_t milliseconds) {
    if (call != nullptr) GuardedSilently([&] { call->control.SetTimeLimit(milliseconds); });
}

void veltra_call_cancel(veltra_call* call) {
    if (call != nullptr) GuardedSilently([&] { call->control.Cancel(); });
}

void veltra_call_reset(veltra_call* call) {
    if (call != nullptr) GuardedSilently([&] { call->control.Reset(); });
}

int32_t veltra_call_attempts(const veltra_call* call) {
    return call != nullptr ? call->report.attempts : 0;
}

int32_t veltra_call_http_status(const veltra_call* call) {
    return call != nullptr ? call->report.httpStatus : 0;
}

uint32_t veltra_call_milliseconds(const veltra_call* call) {
    return call != nullptr ? call->report.milliseconds : 0;
}

int veltra_call_retryable(const veltra_call* call) {
    return call != nullptr && call->report.retryable ? 1 : 0;
}

const char* veltra_call_gateway_code(const veltra_call* call) {
    return call != nullptr ? call->report.gatewayCode.c_str() : "";
}

const char* veltra_call_gateway_message(const veltra_call* call) {
    return call != nullptr ? call->report.gatewayMessage.c_str() : "";
}

const char* veltra_call_detail(const veltra_call* call) {
    return call != nullptr ? call->report.detail.c_str() : "";
}

const char* veltra_call_trace_id(const veltra_call* call) {
    return call != nullptr ? call->report.traceId.c_str() : "";
}

void veltra_cancel_all(void) {
    GuardedSilently([] { Veltra::Veltra_CancelAll(); });
}

// --- gateway and login ---------------------------------------------------------------------------

veltra_outcome veltra_set_http_options(const veltra_http_options* options) {
    if (options != nullptr && !Holds(*options, &veltra_http_options::size))
        return VELTRA_BAD_ARGUMENT;
    return Guarded([options] {
        const Veltra::HostCall call;  // refused, the options are not set, and nobody says so
        Oak::Net::SetHttpClientOptions(options != nullptr ? ReadOptions(*options)
                                                          : Oak::Net::HttpClientOptions());
        return EnabledOr(static_cast<bool>(call));
    });
}

veltra_outcome veltra_set_domain(const char* domain, veltra_call* call) {
    return Call(call, domain != nullptr, [domain] { return Veltra::Veltra_SetDomain(domain); });
}

veltra_outcome veltra_probe(const char* domain, veltra_call* call) {
    return Call(call, domain != nullptr, [domain] { return Veltra::Veltra_IsDomainValid(domain); });
}

veltra_outcome veltra_login(const veltra_key_pair* pairs, size_t count, const char* product_version,
                            veltra_call* call) {
    return Call(call, AreGiven(pairs, count) && product_version != nullptr, [&] {
        const Pairs keys(pairs, count);
        const auto info = std::make_shared<Veltra::CLicenseInfo>();
        info->SetLicenseKey("", keys.Get());
        info->SetProductVersion(EscapeJson(product_version));
        return Veltra::Veltra_Authentication(Veltra::ProductType::Default, info);
    });
}

void veltra_logout(void) {
    GuardedSilently([] { Veltra::Veltra_Logout(); });
}

// --- screening -----------------------------------------------------------------------------------

veltra_outcome veltra_set_phrases(const char* const* phrases, size_t count) {
    const auto isGiven = [](const char* phrase) { return phrase != nullptr; };
    if (count != 0 && (phrases == nullptr || !std::all_of(phrases, phrases + count, isGiven)))
        return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        std::unordered_set<std::string> keys;
        std::uint32_t limit = 0;
        for (std::size_t i = 0; i < count; ++i) {
            Veltra::AddPhraseKeys(keys, phrases[i]);
            limit = std::max(limit, Words(phrases[i]));
        }
        return EnabledOr(Veltra::Veltra_SetsitiveWords(keys, limit));
    });
}

veltra_outcome veltra_set_phrase_keys(const uint64_t* keys, size_t count, uint32_t limit) {
    if (count != 0 && keys == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        std::unordered_set<std::string> texts;
        for (std::size_t i = 0; i < count; ++i)
            texts.insert(std::to_string(keys[i]));
        return EnabledOr(Veltra::Veltra_SetsitiveWords(texts, limit));
    });
}

uint64_t veltra_phrase_key(const char* phrase) {
    Veltra::PhraseHash hash;
    for (; phrase != nullptr && *phrase != '\0'; ++phrase)
        hash.Add(*phrase);
    return hash.Value();
}

// --- queries -------------------------------------------------------------------------------------

veltra_query* veltra_query_new(const char* prompt_key) {
    if (prompt_key == nullptr) return nullptr;
    return GuardedNew([prompt_key] {
        auto query = std::make_unique<veltra_query>();
        query->promptKey = EscapeJson(prompt_key);
        return query.release();
    });
}

void veltra_query_free(veltra_query* query) {
    delete query;
}

veltra_outcome veltra_query_set_value(veltra_query* query, const char* name, const char* value) {
    if (query == nullptr || name == nullptr || value == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        std::string escaped = EscapeJson(value);
        query->values.insert_or_assign(EscapeJson(name), std::move(escaped));
        query->Changed();
        return VELTRA_SUCCEEDED;
    });
}

veltra_outcome veltra_query_set_filter(veltra_query* query, int32_t filter) {
    const auto last = static_cast<std::int32_t>(Veltra::FilterType::CheckOutput);
    if (query == nullptr || filter < 1 || filter > last) return VELTRA_BAD_ARGUMENT;
    query->filter = static_cast<Veltra::FilterType>(filter);
    query->Changed();
    return VELTRA_SUCCEEDED;
}

veltra_outcome veltra_query_add_sensitive(veltra_query* query, const char* text) {
    if (query == nullptr || text == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        query->sensitive.push_back(EscapeJson(text));
        query->Changed();
        return VELTRA_SUCCEEDED;
    });
}

veltra_outcome veltra_query_set_trace_id(veltra_query* query, const char* trace_id) {
    if (query == nullptr || trace_id == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        query->traceId = trace_id;
        query->Changed();
        return VELTRA_SUCCEEDED;
    });
}

veltra_outcome veltra_query_run(const veltra_query* query, char** answer, size_t* length,
                                veltra_call* call) {
    const auto run = [&] {
        const auto session = query->helper.GetLLMSessionItem(Veltra::LLMType::Default);
        std::shared_ptr<Veltra::CLLMMessage> result;
        if (!session->ExecuteQuery(query->Message(), result)) return false;
        const std::string content = result->GetContent();
        *answer = CopyOf(content).release();
        if (length != nullptr) *length = content.size();
        return true;
    };
    const bool isGiven = query != nullptr && answer != nullptr;
    return Call(call, isGiven, run, isGiven ? &query->traceId : nullptr);
}

// --- feedback ------------------------------------------------------------------------------------

veltra_feedback* veltra_feedback_new(const char* trace_id) {
    if (trace_id == nullptr) return nullptr;
    return GuardedNew([trace_id] {
        auto feedback = std::make_unique<veltra_feedback>();
        feedback->traceId = trace_id;
        return feedback.release();
    });
}

void veltra_feedback_free(veltra_feedback* feedback) {
    delete feedback;
}

veltra_outcome veltra_feedback_set_satisfaction(veltra_feedback* feedback, int32_t satisfaction) {
    if (feedback == nullptr) return VELTRA_BAD_ARGUMENT;
    feedback->satisfaction = static_cast<Veltra::SatisfactionLevel>(satisfaction);
    return VELTRA_SUCCEEDED;
}

veltra_outcome veltra_feedback_set_error_type(veltra_feedback* feedback, int32_t error_type) {
    if (feedback == nullptr) return VELTRA_BAD_ARGUMENT;
    feedback->errorType = static_cast<Veltra::LLMErrType>(error_type);
    return VELTRA_SUCCEEDED;
}

veltra_outcome veltra_feedback_set_comments(veltra_feedback* feedback, const char* comments) {
    return Keep(feedback, &veltra_feedback::comments, comments);
}

veltra_outcome veltra_feedback_set_country(veltra_feedback* feedback, const char* country) {
    return Keep(feedback, &veltra_feedback::country, country);
}

veltra_outcome veltra_feedback_add_picture(veltra_feedback* feedback, const void* bytes,
                                           size_t size) {
    if (feedback == nullptr || bytes == nullptr || size == 0) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        feedback->pictures.insert(Veltra::EncodeBase64(bytes, size));
        return VELTRA_SUCCEEDED;
    });
}

veltra_outcome veltra_feedback_submit(const veltra_feedback* feedback, char** id,
                                      veltra_call* call) {
    const auto submit = [&] {
        const auto comment = std::make_shared<Veltra::LLMComment>(EscapeJson(feedback->traceId));
        comment->SetSatisfactionLevel(feedback->satisfaction);
        comment->SetLLMErrType(feedback->errorType);
        comment->SetComments(feedback->comments);
        if (feedback->country) comment->SetCountry(*feedback->country);
        comment->SetPictures(feedback->pictures);

        Veltra::UserComentManager::EchoNoBodiesUnlessSet();
        std::string given;
        if (!Veltra::Veltra_SubmitComments(comment, given)) return false;
        *id = CopyOf(given).release();
        return true;
    };
    const bool isGiven = feedback != nullptr && id != nullptr;
    return Call(call, isGiven, submit, isGiven ? &feedback->traceId : nullptr);
}

veltra_outcome veltra_feedback_withdraw(const char* id, veltra_call* call) {
    return Call(call, id != nullptr,
                [id] { return Veltra::Veltra_CancleComments(EscapeJson(id)); });
}

// --- time expressions ----------------------------------------------------------------------------

veltra_outcome veltra_convert_time(const char* expression, int64_t now, int start_of_day,
                                   char result[20]) {
    if (expression == nullptr || result == nullptr) return VELTRA_BAD_ARGUMENT;
    return Guarded([&] {
        constexpr std::size_t room = 20;
        std::string text;
        if (!Veltra::ConvertTime(expression, text, now, start_of_day != 0) || text.size() >= room)
            return VELTRA_BAD_ARGUMENT;
        std::memcpy(result, text.c_str(), text.size() + 1);
        return VELTRA_SUCCEEDED;
    });
}

veltra_outcome veltra_set_first_day_of_week(int32_t day) {
    const auto last = static_cast<std::int32_t>(Veltra::FirstDayOfWeek::Saturday);
    if (day < 0 || day > last) return VELTRA_BAD_ARGUMENT;
    return Guarded(
        [day] { return EnabledOr(SetFirstDayOfWeek(static_cast<Veltra::FirstDayOfWeek>(day))); });
}
