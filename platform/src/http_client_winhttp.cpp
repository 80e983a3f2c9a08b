#include "http_exchange.h"
#include "http_request_winhttp.h"
#include "http_rules.h"
#include "http_target_winhttp.h"
#include "http_transport_winhttp.h"

#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace Oak::Net {
namespace {

constexpr Failure refusedMethod{FailureReason::refusedRequest, ERROR_INVALID_PARAMETER,
                                "the method is not a token"};
constexpr Failure refusedHeader{FailureReason::refusedRequest, ERROR_WINHTTP_INVALID_HEADER,
                                "a field that would break the message"};
constexpr Failure refusedUrl{FailureReason::refusedUrl, ERROR_WINHTTP_INVALID_URL,
                             "not an absolute http(s) URL"};
constexpr Failure refusedPlainHttp{FailureReason::refusedUrl, ERROR_WINHTTP_UNRECOGNIZED_SCHEME,
                                   "plain http to another machine is not allowed"};
constexpr Failure unusableFile{FailureReason::notTrusted, ERROR_FILE_INVALID,
                               "the file of trusted certificates is of no use"};
constexpr Failure unenforceable{FailureReason::notTrusted, ERROR_NOT_SUPPORTED,
                                "this system can't be held to a file of trusted certificates"};
constexpr Failure notUsable{FailureReason::notReached, ERROR_WINHTTP_INCORRECT_HANDLE_STATE,
                            "no session with the HTTP library, or a proxy it can't use"};
constexpr Failure noAddress{FailureReason::notReached, ERROR_WINHTTP_NAME_NOT_RESOLVED,
                            "the name was not found"};
constexpr Failure overLimit{FailureReason::tooLarge, ERROR_FILE_TOO_LARGE,
                            "the answer is too large"};
constexpr Failure bodyTooLarge{FailureReason::other, ERROR_ARITHMETIC_OVERFLOW,
                               "a body of 4 GiB or more"};
constexpr Failure cutOff{FailureReason::cutOff, ERROR_HANDLE_EOF, "the answer ended early"};
constexpr Failure notFinal{FailureReason::notUnderstood, ERROR_WINHTTP_INVALID_SERVER_RESPONSE,
                           "an interim answer in place of the answer"};
constexpr Failure badLength{FailureReason::notUnderstood, ERROR_WINHTTP_INVALID_SERVER_RESPONSE,
                            "the answer's length is not a number"};
/// What a proxy says in place of a tunnel is no answer of the server's.
constexpr Failure noTunnel{FailureReason::notReached, ERROR_WINHTTP_CANNOT_CONNECT,
                           "the proxy gave no way to the server"};

/// What the library's numbers mean. Those of the sockets below shine through at times.
constexpr Failure known[] = {
    {FailureReason::timeOut, ERROR_WINHTTP_TIMEOUT, "the time was up"},
    {FailureReason::timeOut, WSAETIMEDOUT, "the time was up"},
    {FailureReason::timeOut, ERROR_SEM_TIMEOUT, "the time was up"},
    {FailureReason::notReached, ERROR_WINHTTP_NAME_NOT_RESOLVED, "the name was not found"},
    {FailureReason::notReached, ERROR_WINHTTP_CANNOT_CONNECT, "nobody answered there"},
    {FailureReason::notReached, WSAECONNREFUSED, "nobody answered there"},
    {FailureReason::notReached, WSAEHOSTUNREACH, "nobody answered there"},
    {FailureReason::notReached, WSAENETUNREACH, "nobody answered there"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_FAILURE,
     "TLS, or trust in the server, failed"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_FAILURE_PROXY,
     "TLS, or trust in the proxy, failed"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CHANNEL_ERROR,
     "TLS, or trust in the server, failed"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CERT_DATE_INVALID, "not valid at this time"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CERT_CN_INVALID, "of another host"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_INVALID_CA, "from no trusted issuer"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CERT_REV_FAILED, "perhaps revoked"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CERT_REVOKED, "revoked"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_INVALID_CERT, "not valid"},
    {FailureReason::notTrusted, ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE, "not for a server"},
    {FailureReason::notTrusted, ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED,
     "the server wants one of ours"},
    {FailureReason::tooLarge, ERROR_WINHTTP_HEADER_COUNT_EXCEEDED, "the answer is too large"},
    {FailureReason::tooLarge, ERROR_WINHTTP_HEADER_SIZE_OVERFLOW, "the answer is too large"},
    {FailureReason::tooLarge, ERROR_WINHTTP_CHUNKED_ENCODING_HEADER_SIZE_OVERFLOW,
     "the answer is too large"},
    {FailureReason::noMemory, ERROR_NOT_ENOUGH_MEMORY, "no memory"},
    {FailureReason::noMemory, ERROR_OUTOFMEMORY, "no memory"},
    {FailureReason::cutOff, ERROR_WINHTTP_CONNECTION_ERROR, "the connection ended early"},
    {FailureReason::cutOff, ERROR_WINHTTP_RESEND_REQUEST, "the connection ended early"},
    {FailureReason::notUnderstood, ERROR_WINHTTP_INVALID_SERVER_RESPONSE,
     "no answer, or none of HTTP"},
    {FailureReason::cutOff, WSAECONNRESET, "the connection ended early"},
    {FailureReason::cutOff, WSAECONNABORTED, "the connection ended early"},
    {FailureReason::cutOff, ERROR_OPERATION_ABORTED, "the connection ended early"},
    exchangeEnded,
    exchangeCancelled,
    callerTimeUp,
    exchangeTimeUp,
};

Failure FailureOf(DWORD error) {
    const auto code = static_cast<std::int32_t>(error);
    const auto* const found =
        std::find_if(std::begin(known), std::end(known),
                     [code](const Failure& failure) { return failure.code == code; });
    return found != std::end(known)
               ? *found
               : Failure{FailureReason::other, code, "the HTTP library gave up"};
}

// --- What goes out -------------------------------------------------------------------------------

/// Nothing where the text isn't UTF-8: what would go out isn't what was given then.
std::optional<std::wstring> WideOf(const std::string& text) {
    if (text.empty()) return std::wstring();
    const int size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int length =
        MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), size);
    if (length <= 0) return std::nullopt;
    wide.resize(static_cast<std::size_t>(length));
    return wide;
}

/// The header lines of a request; nothing when a field may not be sent. A content type among the
/// fields counts before the one that was set: a request carries one.
std::optional<std::wstring> HeadersOf(const CHttpClientRequest& request) {
    std::string lines;
    const auto add = [&lines](const std::string& name, const std::string& value) {
        const bool blank = value.find_first_not_of(" \t\v\f") == std::string::npos;
        lines.append(name).append(blank ? ":" : ": " + value).append("\r\n");
    };
    bool hasContentType = false;
    for (const auto& [name, value] : request.Headers()) {
        if (!MayBeSent(name, value)) return std::nullopt;
        hasContentType = hasContentType || SameName(name, "Content-Type");
        add(name, value);
    }
    if (!MayBeSent("Content-Type", request.ContentType())) return std::nullopt;
    if (!hasContentType && !request.ContentType().empty())
        add("Content-Type", request.ContentType());
    return WideOf(lines);
}

std::optional<Failure> Refusal(const HttpGeneration& generation, const HttpTarget& target) {
    if (generation.SessionFor(target) == nullptr) return notUsable;
    if (target.tls || generation.options.allowPlainHttp) return std::nullopt;
    if (!target.loopback) return refusedPlainHttp;
    if (!target.byName) return std::nullopt;
    const auto here = ResolvesToLoopback(target.host);
    if (!here) return noAddress;
    return *here ? std::nullopt : std::optional(refusedPlainHttp);
}

// --- What comes in -------------------------------------------------------------------------------

struct Answer {
    DWORD status = 0;
    std::string body;
};

/// Whether an answer is one without a body, whatever its fields say.
bool IsBodiless(const std::string& method, DWORD status) {
    return method == "HEAD" || status / 100 == 1 || status == HTTP_STATUS_NO_CONTENT ||
           status == HTTP_STATUS_NOT_MODIFIED;
}

bool IsInterim(DWORD status) {
    return status / 100 == 1 && status != HTTP_STATUS_SWITCH_PROTOCOLS;
}

struct Length {
    std::optional<std::uint64_t> announced;
    std::optional<Failure> failure;
};

/// Refuses early what announces too much.
Length LengthOf(const AsyncRequest& request, std::uint64_t limit) {
    const std::wstring wide = request.ContentLength();
    if (wide.empty()) return {};
    std::string text(wide.size(), '\0');
    std::transform(wide.begin(), wide.end(), text.begin(),
                   [](wchar_t c) { return c < 0x80 ? static_cast<char>(c) : '?'; });
    std::uint64_t length = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, length);
    if (error == std::errc::result_out_of_range) return {std::nullopt, overLimit};
    if (error != std::errc() || stop != end) return {std::nullopt, badLength};
    if (length > limit) return {std::nullopt, overLimit};
    return {length, std::nullopt};
}

std::optional<Failure> ReceiveBody(AsyncRequest& request, std::uint64_t limit, std::string& body) {
    const auto [announced, failure] = LengthOf(request, limit);
    if (failure) return failure;
    while (body.size() != announced) {
        std::string_view piece;
        const auto most = announced.value_or(std::numeric_limits<std::uint64_t>::max());
        if (const DWORD error = request.Read(piece, most - body.size())) return FailureOf(error);
        // The library takes the end of the connection for the end of the body.
        if (piece.empty()) return announced ? std::optional(cutOff) : std::nullopt;
        if (piece.size() > limit - body.size()) return overLimit;
        body.append(piece);
    }
    return std::nullopt;
}

// --- The exchange --------------------------------------------------------------------------------

/// What every attempt of one exchange shares.
struct Plan {
    const CHttpClientRequest& request;
    const HttpTarget& target;
    HttpGenerationPtr generation;
    std::shared_ptr<const CertificateTrust> trust;
    std::wstring fields;
    EventPtr event;
    ExchangeWait& wait;
};

std::optional<Failure> ReceiveAnswer(AsyncRequest& request, const Plan& plan, Answer& answer) {
    if (request.HeadSize() > maxHeaderBytes) return overLimit;
    if (const DWORD error = request.Status(answer.status)) return FailureOf(error);
    if (request.IsWithoutServer()) return noTunnel;
    if (IsInterim(answer.status)) return notFinal;
    if (IsBodiless(plan.request.Method(), answer.status)) return std::nullopt;
    return ReceiveBody(request, plan.generation->options.maxResponseBytes, answer.body);
}

/// A request of the library's that is closed whatever comes.
class RequestOwner : private Oak::Base::CNoncopyable {
 public:
    explicit RequestOwner(const Plan& plan)
        : request_(std::make_shared<AsyncRequest>(plan.generation, plan.wait, plan.event)) {}
    ~RequestOwner() { request_->Close(); }

    /// Up to the head of the answer.
    DWORD Perform(const Plan& plan) {
        if (const DWORD error =
                AsyncRequest::Open(request_, plan.target, plan.request.Method(), plan.trust))
            return error;
        if (const DWORD error = request_->AddFields(plan.fields)) return error;
        if (const DWORD error = request_->Send(plan.request.Data(), plan.request.DataIsSecret()))
            return error;
        return request_->Receive();
    }

    AsyncRequest& Get() const { return *request_; }

 private:
    const std::shared_ptr<AsyncRequest> request_;
};

/// Whether a failure before the answer began may be but that of a connection that the server had
/// closed meanwhile.
bool MayBeStale(const AsyncRequest& request, DWORD error) {
    return error == ERROR_WINHTTP_RESEND_REQUEST ||
           (request.OnKeptConnection() && error == ERROR_WINHTTP_CONNECTION_ERROR);
}

std::optional<Failure> Exchange(const Plan& plan, Answer& answer, Telling& telling) {
    constexpr int mostAttempts = 5;  // as many stale connections may be kept
    for (int attempt = 1;; ++attempt) {
        if (const auto end = plan.wait.MustEnd()) return end;
        RequestOwner owner(plan);
        const DWORD error = owner.Perform(plan);
        if (error != 0 && attempt != mostAttempts && MayBeStale(owner.Get(), error)) continue;
        const auto failure =
            error == 0 ? ReceiveAnswer(owner.Get(), plan, answer) : std::optional(FailureOf(error));
        const bool timeUp = failure && failure->reason == FailureReason::timeOut;
        if (timeUp && failure->code != callerTimeUp.code)
            telling.words = plan.wait.WordsOnTime(owner.Get().WasConnected());
        return failure;
    }
}

void SetEventOf(void* event) noexcept {
    SetEvent(event);
}

/// Fills `response` when it returns nothing.
std::optional<Failure> Perform(const HttpGenerationPtr& generation,
                               const CHttpClientRequest& request, const HttpTarget& target,
                               CHttpClientResponse* response, Telling& telling) {
    const EventPtr event = MakeEvent();
    if (event == nullptr) return outOfMemory;
    ExchangeWait wait(request.Patience(), generation->options, &SetEventOf, event.get());
    if (const auto refusal = Refusal(*generation, target)) return refusal;
    if (!IsToken(request.Method())) return refusedMethod;
    auto fields = HeadersOf(request);
    if (!fields) return refusedHeader;
    if (request.Data().size() > std::numeric_limits<DWORD>::max()) return bodyTooLarge;
    std::shared_ptr<const CertificateTrust> trust;
    if (target.tls && !generation->options.caFile.empty()) {
        if (!CanJudgeServers()) return unenforceable;
        trust = generation->Trust();
        if (trust == nullptr) return unusableFile;
    }
    Answer answer;
    const Plan plan{request, target, generation, std::move(trust), *std::move(fields), event, wait};
    if (const auto failure = Exchange(plan, answer, telling)) return failure;
    if (response != nullptr)
        response->Deliver(static_cast<std::int32_t>(answer.status), std::move(answer.body));
    return std::nullopt;
}

}  // namespace

std::optional<Failure> Exchange(HttpTransport& transport, const CHttpClientRequest& request,
                                CHttpClientResponse* response, Telling& telling) {
    const auto target = ParseHttpTarget(request.Url().Text());
    if (!target) return refusedUrl;
    telling.target = target->shown;
    return Perform(transport.Generation(), request, *target, response, telling);
}

void SetOptions(HttpTransport& transport, const HttpClientOptions& options) {
    transport.SetOptions(options);
}

}  // namespace Oak::Net
