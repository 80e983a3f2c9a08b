#include "http_exchange.h"
#include "http_rules.h"
#include "http_target_curl.h"
#include "http_transport_curl.h"

#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <string_view>
#include <utility>

namespace Oak::Net {
namespace {

// maxHeaderBytes is below what the library itself takes for one answer (300 KiB), so that the
// reason is told right.
constexpr Failure refusedMethod{FailureReason::refusedRequest, CURLE_BAD_FUNCTION_ARGUMENT,
                                "the method is not a token"};
constexpr Failure refusedHeader{FailureReason::refusedRequest, CURLE_BAD_FUNCTION_ARGUMENT,
                                "a field that would break the message"};
constexpr Failure refusedUrl{FailureReason::refusedUrl, CURLE_URL_MALFORMAT,
                             "not an absolute http(s) URL"};
constexpr Failure refusedPlainHttp{FailureReason::refusedUrl, CURLE_UNSUPPORTED_PROTOCOL,
                                   "plain http to another machine is not allowed"};
constexpr Failure overLimit{FailureReason::tooLarge, CURLE_FILESIZE_EXCEEDED,
                            "the answer is too large"};
/// The library's answer, too, to a request head that exceeds what it sends (1 MiB).
constexpr Failure noMemory{FailureReason::noMemory, CURLE_OUT_OF_MEMORY,
                           "no memory, or a request head over 1 MiB"};
constexpr Failure noTls{FailureReason::other, CURLE_NOT_BUILT_IN, "the HTTP library has no TLS"};
constexpr Failure notUsable{FailureReason::other, CURLE_FAILED_INIT, "no usable HTTP library"};

FailureReason ReasonOf(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return FailureReason::timeOut;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
        case CURLE_PROXY:
        case CURLE_SSL_CONNECT_ERROR:
            return FailureReason::notReached;
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
            return FailureReason::notTrusted;
        case CURLE_FILESIZE_EXCEEDED:
            return FailureReason::tooLarge;
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
            return FailureReason::cutOff;
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_WEIRD_SERVER_REPLY:
            return FailureReason::notUnderstood;
        default:
            return FailureReason::other;
    }
}

/// What the library, or the TLS library below it, said. Only of failures whose words name hosts,
/// ports and certificates at most: others may quote a URL or a proxy with its password.
std::string WordsOf(CURLcode code, const CurlHandle& curl) {
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
            return Printable(curl.Words());
        default:
            return {};
    }
}

/// The failure of an exchange that the library ended, or that was given up.
Failure FailureOf(CURLcode code, const CurlHandle& curl, const ExchangeWait& wait,
                  Telling& telling) {
    const bool ours = code == CURLE_ABORTED_BY_CALLBACK;
    const Failure failure =
        ours ? wait.MustEnd().value_or(exchangeCancelled)  // once it holds, it goes on to hold
             : Failure{ReasonOf(code), static_cast<std::int32_t>(code), curl_easy_strerror(code)};
    if (code == CURLE_OPERATION_TIMEDOUT || failure.code == exchangeTimeUp.code)
        telling.words = wait.WordsOnTime(curl.WasConnected());
    else if (!ours)
        telling.words = WordsOf(code, curl);
    return failure;
}

// --- What goes out -------------------------------------------------------------------------------

/// The header fields of a request in the form that the library takes.
class HeaderList {
 public:
    HeaderList() = default;
    HeaderList(HeaderList&&) = default;
    HeaderList& operator=(HeaderList&&) = delete;
    ~HeaderList() { Oak::Base::Wipe(line_); }

    void AddField(const std::string& name, const std::string& value) {
        // "Name:" would tell the library to leave the field out; "Name;" sends it without a value.
        const bool blank = value.find_first_not_of(" \t\v\f") == std::string::npos;
        line_.reserve(name.size() + value.size() + 2);
        line_.assign(name).append(blank ? ";" : ": ").append(blank ? std::string_view() : value);
        AddLine(line_.c_str());
    }

    /// Takes away a field that the library adds by itself: `line` is its name and a colon.
    void LeaveOut(const char* line) { AddLine(line); }

    curl_slist* Get() const { return list_.get(); }

 private:
    void AddLine(const char* line) {
        curl_slist* longer = curl_slist_append(list_.get(), line);
        if (longer == nullptr) throw std::bad_alloc();
        if (list_ == nullptr) list_.reset(longer);
    }

    CurlListPtr list_;
    std::string line_;
};

/// Nothing when a field may not be sent. A content type among the fields counts before the one
/// that was set: a request carries one.
std::optional<HeaderList> HeadersOf(const CHttpClientRequest& request) {
    HeaderList list;
    bool hasContentType = false;
    for (const auto& [name, value] : request.Headers()) {
        if (!MayBeSent(name, value)) return std::nullopt;
        hasContentType = hasContentType || SameName(name, "Content-Type");
        list.AddField(name, value);
    }
    if (!MayBeSent("Content-Type", request.ContentType())) return std::nullopt;
    if (!hasContentType && !request.ContentType().empty())
        list.AddField("Content-Type", request.ContentType());
    else if (!hasContentType)
        list.LeaveOut("Content-Type:");
    // With it the library would hold back a large body for a second when the server says nothing.
    list.LeaveOut("Expect:");
    return list;
}

// --- What comes in -------------------------------------------------------------------------------

/// What the callbacks of one exchange see. They run inside the library, which no exception may
/// cross, and log nothing.
struct Reception {
    const CurlHandle* curl = nullptr;
    std::uint64_t bodyLimit = 0;
    bool loopbackOnly = false;
    std::string body;
    std::size_t headerBytes = 0;
    const Failure* failure = nullptr;  // why a callback ended the transfer
    bool surplus = false;              // there was more than the answer
};

std::size_t Abort(Reception& reception, const Failure& failure) noexcept {
    reception.failure = &failure;
    return CURL_WRITEFUNC_ERROR;
}

std::size_t TakeBody(char* data, std::size_t size, std::size_t count, void* context) noexcept {
    auto& reception = *static_cast<Reception*>(context);
    const std::size_t bytes = size * count;
    if (bytes > reception.bodyLimit - reception.body.size()) return Abort(reception, overLimit);
    try {
        reception.body.append(data, bytes);
    } catch (const std::exception&) {
        return Abort(reception, noMemory);
    }
    return bytes;
}

std::size_t TakeHeader(char*, std::size_t size, std::size_t count, void* context) noexcept {
    auto& reception = *static_cast<Reception*>(context);
    const std::size_t bytes = size * count;
    if (bytes > maxHeaderBytes - reception.headerBytes) return Abort(reception, overLimit);
    reception.headerBytes += bytes;
    return bytes;
}

/// Hands a body that holds a secret to the library in small pieces. Each lies where the one before
/// lay, at the start of the library's upload buffer, and the last is one byte in a piece that was
/// cleared: the library, which wipes nothing, keeps and frees no more than a fragment of a body
/// that failed, and nothing of one that was sent. (A body handed over whole is copied more than
/// once.)
struct SecretBody {
    static constexpr std::size_t pieceSize = 16;

    std::string_view body;
    std::size_t given = 0;
};

std::size_t GivePiece(char* buffer, std::size_t size, std::size_t count, void* context) noexcept {
    auto& secret = *static_cast<SecretBody*>(context);
    const std::size_t room = std::min(size * count, SecretBody::pieceSize);
    std::fill_n(buffer, room, '\0');
    const std::size_t left = secret.body.size() - secret.given;
    const std::size_t bytes = left > 1 ? std::min(left - 1, room) : left;
    secret.body.copy(buffer, bytes, secret.given);
    secret.given += bytes;
    return bytes;
}

/// Called when the library repeats a request on a new connection.
int StartAgain(void* context, curl_off_t offset, int /*origin*/) noexcept {
    static_cast<SecretBody*>(context)->given = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

/// The sockets of an exchange: not inherited by programs that the host starts, and to loopback
/// alone where the permission to go without TLS rests on that, whatever the name resolved to.
curl_socket_t OpenSocket(void* context, curlsocktype, curl_sockaddr* address) noexcept {
    const auto& reception = *static_cast<const Reception*>(context);
    if (reception.loopbackOnly && !IsLoopback(*address)) return CURL_SOCKET_BAD;
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

/// Called now and then, and as the exchange ends.
int Progress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t) noexcept {
    auto& reception = *static_cast<Reception*>(context);
    const bool answerBegan = reception.headerBytes != 0;  // before, there is nothing to look for
    reception.surplus = answerBegan && reception.curl->TlsHoldsBytes();
    return 0;
}

// --- The exchange --------------------------------------------------------------------------------

/// The same for every exchange. Some are the library's defaults; what trust rests on is said all
/// the same.
constexpr std::pair<CURLoption, long> fixedOptions[] = {
    {CURLOPT_FOLLOWLOCATION, 0},  // a redirect would carry the token elsewhere
    {CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1},
    {CURLOPT_HTTP09_ALLOWED, 0},
    {CURLOPT_HTTP_CONTENT_DECODING, 0},  // the body limit counts what came over the wire
    {CURLOPT_PATH_AS_IS, 1},             // a signature covers the path as it was handed out
    {CURLOPT_NETRC, CURL_NETRC_IGNORED},
    {CURLOPT_QUICK_EXIT, 0},  // an abandoned lookup thread would outlive an unload of the module
    {CURLOPT_SSL_VERIFYPEER, 1},
    {CURLOPT_SSL_VERIFYHOST, 2},
    {CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2},  // or later
};

/// Both `long` everywhere and what the library keeps have room for 31 bits: 24 days.
long Milliseconds(std::uint32_t value) {
    constexpr std::uint32_t most = std::numeric_limits<std::int32_t>::max();
    return static_cast<long>(std::min(value, most));
}

curl_off_t Bytes(std::uint64_t value) {
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    return static_cast<curl_off_t>(std::min(value, most));
}

void SetTrust(CurlHandle& curl, const CurlLibrary& library, const std::string& caFile) {
    if (library.hasProxyTls) {
        curl.Set(CURLOPT_PROXY_SSL_VERIFYPEER, 1L)
            .Set(CURLOPT_PROXY_SSL_VERIFYHOST, 2L)
            .Set(CURLOPT_PROXY_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    }
    if (!library.hasTls || caFile.empty()) return;
    // The built-in folder of certificates would stay trusted beside the file.
    curl.Set(CURLOPT_CAINFO, caFile.c_str()).Set(CURLOPT_CAPATH, nullptr);
    if (!library.hasProxyTls) return;
    curl.Set(CURLOPT_PROXY_CAINFO, caFile.c_str()).Set(CURLOPT_PROXY_CAPATH, nullptr);
}

void SetProxy(CurlHandle& curl, const HttpTarget& target, const std::string& proxy) {
    if (target.loopback || proxy == "direct")
        curl.Set(CURLOPT_PROXY, "");  // none, the environment's neither
    else if (!proxy.empty())
        curl.Set(CURLOPT_PROXY, proxy.c_str()).Set(CURLOPT_NOPROXY, "");
}

void SetLimits(CurlHandle& curl, const HttpClientOptions& options) {
    curl.Set(CURLOPT_CONNECTTIMEOUT_MS, Milliseconds(options.connectTimeoutMs))
        .Set(CURLOPT_TIMEOUT_MS, Milliseconds(options.totalTimeoutMs))
        // Refuses early what announces its length; TakeBody counts what arrives.
        .Set(CURLOPT_MAXFILESIZE_LARGE, Bytes(options.maxResponseBytes));
}

void SetCallbacks(CurlHandle& curl) {
    curl.Set(CURLOPT_WRITEFUNCTION, &TakeBody)
        .Set(CURLOPT_HEADERFUNCTION, &TakeHeader)
        .Set(CURLOPT_OPENSOCKETFUNCTION, &OpenSocket)
        .Set(CURLOPT_XFERINFOFUNCTION, &Progress)
        .Set(CURLOPT_NOPROGRESS, 0L);
}

/// Sets what belongs to the generation and to the target, for as many exchanges as come.
void SetUp(PooledHandle& handle, const CurlLibrary& library, HttpTarget target) {
    CurlHandle& curl = handle.curl;
    const HttpClientOptions& options = handle.generation->options;
    curl.Reset();  // first: it still points to the target that was
    handle.target = std::move(target);
    for (const auto& [option, value] : fixedOptions)
        curl.Set(option, value);
    SetTrust(curl, library, options.caFile);
    SetProxy(curl, handle.target, options.proxy);
    SetLimits(curl, options);
    SetCallbacks(curl);
    curl.Set(CURLOPT_CURLU, handle.target.url.get());
}

/// What belongs to one exchange: pointers into the request, whose bytes are not copied.
struct OneExchange {
    const CHttpClientRequest& request;
    const HeaderList& headers;
    Reception reception;
    SecretBody secret;
};

/// Where the callbacks find their exchange; null between exchanges.
void SetReception(CurlHandle& curl, Reception* reception) {
    void* const context = reception;
    curl.Set(CURLOPT_WRITEDATA, context)
        .Set(CURLOPT_HEADERDATA, context)
        .Set(CURLOPT_OPENSOCKETDATA, context)
        .Set(CURLOPT_XFERINFODATA, context);
}

void SetBody(CurlHandle& curl, OneExchange& exchange) {
    const std::string& data = exchange.request.Data();
    // POST with an empty body, too, sends Content-Length: 0.
    curl.Set(CURLOPT_POST, 1L)
        .Set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(data.size()));
    if (!exchange.request.DataIsSecret()) {
        curl.Set(CURLOPT_POSTFIELDS, data.data());
        return;
    }
    exchange.secret.body = data;
    void* const context = &exchange.secret;
    curl.Set(CURLOPT_READFUNCTION, &GivePiece)
        .Set(CURLOPT_READDATA, context)
        .Set(CURLOPT_SEEKFUNCTION, &StartAgain)
        .Set(CURLOPT_SEEKDATA, context);
}

void SetRequest(CurlHandle& curl, OneExchange& exchange) {
    const std::string& method = exchange.request.Method();
    SetReception(curl, &exchange.reception);
    curl.Set(CURLOPT_HTTPHEADER, exchange.headers.Get());
    if (method == "HEAD") {
        curl.Set(CURLOPT_NOBODY, 1L);  // else a body would be waited for
        return;
    }
    SetBody(curl, exchange);
    if (method != "POST") curl.Set(CURLOPT_CUSTOMREQUEST, method.c_str());  // the verb alone
}

/// Leaves nothing of the exchange on the handle. Only what an ordinary POST has set is taken back
/// piece by piece; after any other exchange the handle is set up anew when it is used again. After
/// one whose URL has a query part the library's own copies go as well: that of an upload comes
/// once, and its signature is not to stay in memory.
void ForgetExchange(PooledHandle& handle, const CHttpClientRequest& request) {
    const bool signedUrl = handle.target.text.find('?') != std::string::npos;
    if (signedUrl || request.Method() != "POST" || request.DataIsSecret()) {
        if (signedUrl)
            handle.curl.Renew();
        else
            handle.curl.Reset();
        // Not assigned: a text to which an empty one is assigned keeps its old bytes.
        HttpTarget gone;
        std::swap(gone, handle.target);
        return;
    }
    SetReception(handle.curl, nullptr);
    handle.curl.Set(CURLOPT_HTTPHEADER, nullptr).Set(CURLOPT_POSTFIELDS, nullptr);
}

std::optional<Failure> Refusal(const CurlLibrary& library, const HttpClientOptions& options,
                               const HttpTarget& target) {
    if (!library.usable) return notUsable;
    if (target.tls && !library.hasTls) return noTls;
    if (!target.tls && !target.plainlyLoopback && !options.allowPlainHttp) return refusedPlainHttp;
    return std::nullopt;
}

/// A handle that is set up for the request's URL, or why there is none.
std::optional<Failure> TakeHandle(HttpTransport& transport, const std::string& url,
                                  HttpLease& lease) {
    lease = transport.Take(url);
    if (!lease.handle.empty()) return std::nullopt;
    auto target = ParseHttpTarget(url);
    if (!target) return refusedUrl;
    if (auto refusal = Refusal(transport.Library(), lease.generation->options, *target))
        return refusal;
    lease.handle = transport.TakeAny(lease.generation);
    SetUp(lease.handle.front(), transport.Library(), std::move(*target));
    return std::nullopt;
}

/// Runs the exchange that is set up. Nobody wakes the handle any more when this returns.
std::optional<Failure> Run(CurlHandle& curl, const OneExchange& exchange,
                           const HttpClientOptions& options, Telling& telling) {
    ExchangeWait wait(exchange.request.Patience(), options, &CurlHandle::Wake, &curl);
    const CURLcode code = curl.Perform(wait);
    if (exchange.reception.failure != nullptr) return *exchange.reception.failure;
    // It is also what the library says of a header line that is longer than it takes.
    if (code == CURLE_OUT_OF_MEMORY)
        return exchange.reception.headerBytes != 0 ? overLimit : noMemory;
    if (code != CURLE_OK) return FailureOf(code, curl, wait, telling);
    return std::nullopt;
}

/// Fills `response` when it returns nothing.
std::optional<Failure> Perform(HttpTransport& transport, const CHttpClientRequest& request,
                               CHttpClientResponse* response, Telling& telling) {
    if (!IsToken(request.Method())) return refusedMethod;
    const auto headers = HeadersOf(request);
    if (!headers) return refusedHeader;
    HttpLease lease;
    if (auto failure = TakeHandle(transport, request.Url().Text(), lease)) return failure;

    PooledHandle& handle = lease.handle.front();
    CurlHandle& curl = handle.curl;
    const HttpClientOptions& options = lease.generation->options;
    OneExchange exchange{request, *headers, {}, {}};
    Reception& reception = exchange.reception;
    reception.curl = &curl;
    reception.bodyLimit = options.maxResponseBytes;
    reception.loopbackOnly = !handle.target.tls && !options.allowPlainHttp;
    SetRequest(curl, exchange);

    const auto failure = Run(curl, exchange, options, telling);
    // The library keeps the TLS session all the same, and a resumed one shows the old certificate.
    if (failure && failure->code == CURLE_PEER_FAILED_VERIFICATION)
        transport.Forget(lease.generation);
    if (failure) return failure;
    const auto status = static_cast<std::int32_t>(curl.Status());
    if (!reception.surplus && curl.NoteConnection()) {
        ForgetExchange(handle, request);
        transport.GiveBack(std::move(lease.handle));
    }
    if (response != nullptr) response->Deliver(status, std::move(reception.body));
    return std::nullopt;
}

}  // namespace

std::optional<Failure> Exchange(HttpTransport& transport, const CHttpClientRequest& request,
                                CHttpClientResponse* response, Telling& telling) {
    const auto failure = Perform(transport, request, response, telling);
    if (!failure) return std::nullopt;
    // Only now: a success has no need of it.
    if (auto target = ParseHttpTarget(request.Url().Text()))
        telling.target = std::move(target->shown);
    return failure;
}

void SetOptions(HttpTransport& transport, const HttpClientOptions& options) {
    transport.SetOptions(options);
}

}  // namespace Oak::Net
