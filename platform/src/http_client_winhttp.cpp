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

constexpr Failure refusedMethod{"refused header", ERROR_INVALID_PARAMETER,
                                "the method is not a token"};
constexpr Failure refusedHeader{"refused header", ERROR_WINHTTP_INVALID_HEADER,
                                "a field that would break the message"};
constexpr Failure refusedUrl{"refused URL", ERROR_WINHTTP_INVALID_URL,
                             "not an absolute http(s) URL"};
constexpr Failure refusedPlainHttp{"refused URL", ERROR_WINHTTP_UNRECOGNIZED_SCHEME,
                                   "plain http to another machine is not allowed"};
constexpr Failure unusableFile{"certificate", ERROR_FILE_INVALID,
                               "the file of trusted certificates is of no use"};
constexpr Failure unenforceable{"certificate", ERROR_NOT_SUPPORTED,
                                "this system can't be held to a file of trusted certificates"};
constexpr Failure notUsable{"could not connect", ERROR_WINHTTP_INCORRECT_HANDLE_STATE,
                            "no session with the HTTP library, or a proxy it can't use"};
constexpr Failure noAddress{"could not connect", ERROR_WINHTTP_NAME_NOT_RESOLVED,
                            "the name was not found"};
constexpr Failure overLimit{"limit", ERROR_FILE_TOO_LARGE, "the answer is too large"};
constexpr Failure bodyTooLarge{"limit", ERROR_ARITHMETIC_OVERFLOW, "a body of 4 GiB or more"};
constexpr Failure cutOff{"cut off", ERROR_HANDLE_EOF, "the answer ended early"};
constexpr Failure notFinal{"other", ERROR_WINHTTP_INVALID_SERVER_RESPONSE,
                           "an interim answer in place of the answer"};
constexpr Failure badLength{"other", ERROR_WINHTTP_INVALID_SERVER_RESPONSE,
                            "the answer's length is not a number"};
/// What a proxy says in place of a tunnel is no answer of the server's.
constexpr Failure noTunnel{"could not connect", ERROR_WINHTTP_CANNOT_CONNECT,
                           "the proxy gave no way to the server"};

/// What the library's numbers mean. Those of the sockets below shine through at times.
constexpr Failure known[] = {
    {"time-out", ERROR_WINHTTP_TIMEOUT, "the time was up"},
    {"time-out", WSAETIMEDOUT, "the time was up"},
    {"time-out", ERROR_SEM_TIMEOUT, "the time was up"},
    {"could not connect", ERROR_WINHTTP_NAME_NOT_RESOLVED, "the name was not found"},
    {"could not connect", ERROR_WINHTTP_CANNOT_CONNECT, "nobody answered there"},
    {"could not connect", WSAECONNREFUSED, "nobody answered there"},
    {"could not connect", WSAEHOSTUNREACH, "nobody answered there"},
    {"could not connect", WSAENETUNREACH, "nobody answered there"},
    {"certificate", ERROR_WINHTTP_SECURE_FAILURE, "TLS, or trust in the server, failed"},
    {"certificate", ERROR_WINHTTP_SECURE_FAILURE_PROXY, "TLS, or trust in the proxy, failed"},
    {"certificate", ERROR_WINHTTP_SECURE_CHANNEL_ERROR, "TLS, or trust in the server, failed"},
    {"certificate", ERROR_WINHTTP_SECURE_CERT_DATE_INVALID, "not valid at this time"},
    {"certificate", ERROR_WINHTTP_SECURE_CERT_CN_INVALID, "of another host"},
    {"certificate", ERROR_WINHTTP_SECURE_INVALID_CA, "from no trusted issuer"},
    {"certificate", ERROR_WINHTTP_SECURE_CERT_REV_FAILED, "perhaps revoked"},
    {"certificate", ERROR_WINHTTP_SECURE_CERT_REVOKED, "revoked"},
    {"certificate", ERROR_WINHTTP_SECURE_INVALID_CERT, "not valid"},
    {"certificate", ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE, "not for a server"},
    {"certificate", ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED, "the server wants one of ours"},
    {"limit", ERROR_WINHTTP_HEADER_COUNT_EXCEEDED, "the answer is too large"},
    {"limit", ERROR_WINHTTP_HEADER_SIZE_OVERFLOW, "the answer is too large"},
    {"limit", ERROR_WINHTTP_CHUNKED_ENCODING_HEADER_SIZE_OVERFLOW, "the answer is too large"},
    {"limit", ERROR_NOT_ENOUGH_MEMORY, "no memory"},
    {"limit", ERROR_OUTOFMEMORY, "no memory"},
    {"cut off", ERROR_WINHTTP_CONNECTION_ERROR, "the connection ended early"},
    {"cut off", ERROR_WINHTTP_RESEND_REQUEST, "the connection ended early"},
    {"other", ERROR_WINHTTP_INVALID_SERVER_RESPONSE, "no answer, or none of HTTP"},
    {"cut off", WSAECONNRESET, "the connection ended early"},
    {"cut off", WSAECONNABORTED, "the connection ended early"},
    {"cut off", ERROR_OPERATION_ABORTED, "the connection ended early"},
    exchangeEnded,
};

Failure FailureOf(DWORD error) {
    const auto code = static_cast<std::int32_t>(error);
    const auto* const found =
        std::find_if(std::begin(known), std::end(known),
                     [code](const Failure& failure) { return failure.code == code; });
    return found != std::end(known) ? *found : Failure{"other", code, "the HTTP library gave up"};
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
    HttpDeadlines deadlines;
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
        : request_(std::make_shared<AsyncRequest>(plan.generation, plan.deadlines)) {}
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

std::optional<Failure> Exchange(const Plan& plan, Answer& answer) {
    constexpr int mostAttempts = 5;  // as many stale connections may be kept
    for (int attempt = 1;; ++attempt) {
        RequestOwner owner(plan);
        const DWORD error = owner.Perform(plan);
        if (error == 0) return ReceiveAnswer(owner.Get(), plan, answer);
        if (attempt == mostAttempts || !MayBeStale(owner.Get(), error)) return FailureOf(error);
    }
}

/// Fills `response` when it returns nothing.
std::optional<Failure> Perform(const HttpGenerationPtr& generation,
                               const CHttpClientRequest& request, const HttpTarget& target,
                               CHttpClientResponse* response) {
    const HttpDeadlines deadlines(generation->options);
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
    const Plan plan{request, target, generation, std::move(trust), *std::move(fields), deadlines};
    if (const auto failure = Exchange(plan, answer)) return failure;
    if (response != nullptr)
        response->Deliver(static_cast<std::int32_t>(answer.status), std::move(answer.body));
    return std::nullopt;
}

}  // namespace

std::optional<Failure> Exchange(HttpTransport& transport, const CHttpClientRequest& request,
                                CHttpClientResponse* response, std::string& shown) {
    const auto target = ParseHttpTarget(request.Url().Text());
    if (!target) return refusedUrl;
    shown = target->shown;
    return Perform(transport.Generation(), request, *target, response);
}

void SetOptions(HttpTransport& transport, const HttpClientOptions& options) {
    transport.SetOptions(options);
}

}  // namespace Oak::Net
