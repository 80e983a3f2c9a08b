#include "http_request_winhttp.h"

#include "http_exchange.h"
#include "http_rules.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

namespace Oak::Net {
namespace {

using Clock = ExchangeWait::Clock;
using std::chrono::milliseconds;

/// A redirect would carry the token elsewhere.
constexpr DWORD disabledFeatures =
    WINHTTP_DISABLE_REDIRECTS | WINHTTP_DISABLE_COOKIES | WINHTTP_DISABLE_AUTHENTICATION;

/// Times beyond 24 days count as that: the library takes them as signed numbers.
int Milliseconds(std::uint32_t value) {
    return static_cast<int>(
        std::min<std::uint32_t>(value, std::numeric_limits<std::int32_t>::max()));
}

DWORD SetNumber(HINTERNET handle, DWORD option, DWORD value) {
    return WinHttpSetOption(handle, option, &value, sizeof value) != FALSE ? 0 : GetLastError();
}

/// Runs on, never short: a wait that ends too early would spin.
DWORD WaitingTime(Clock::time_point end) {
    constexpr milliseconds slice{1000};
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    return static_cast<DWORD>(std::clamp(left, milliseconds{0}, slice).count());
}

/// A request that the library doesn't let go will still be called back, in code of this module.
void KeepModuleLoaded() noexcept {
    HMODULE module = nullptr;
    static_cast<void>(
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCWSTR>(&KeepModuleLoaded), &module));
}

/// A kept connection may not go on to sessions that don't share the file it was trusted by.
DWORD DisabledWithTrust(const HttpSession& session) noexcept {
    return session.ownsConnections ? 0 : WINHTTP_DISABLE_KEEP_ALIVE;
}

std::atomic<int> threadsHeld{0};

}  // namespace

bool CanJudgeServers() noexcept {
    constexpr int mostHeld = 8;  // of some hundreds that a process has for all its libraries
    return OnWindowsItself() || threadsHeld.load() < mostHeld;
}

EventPtr MakeEvent() {
    void* const event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    return event != nullptr ? EventPtr(event, &CloseHandle) : nullptr;
}

AsyncRequest::AsyncRequest(HttpGenerationPtr generation, ExchangeWait& wait, EventPtr event)
    : generation_(std::move(generation)),
      wait_(wait),
      connected_(std::min(wait.End(), Clock::now() + milliseconds(Milliseconds(
                                                         generation_->options.connectTimeoutMs)))),
      buffer_(new char[bufferSize]),
      event_(std::move(event)) {}

AsyncRequest::~AsyncRequest() {
    if (wipe_) SecureZeroMemory(buffer_.get(), bufferSize);
}

DWORD AsyncRequest::Open(const std::shared_ptr<AsyncRequest>& request, const HttpTarget& target,
                         const std::string& method, std::shared_ptr<const CertificateTrust> trust) {
    request->host_.assign(target.host.begin(), target.host.end());
    request->trust_ = std::move(trust);
    request->tls_ = target.tls;
    request->session_ = request->generation_->SessionFor(target);
    request->connect_.reset(
        WinHttpConnect(request->session_->handle.get(), request->host_.c_str(), target.port, 0));
    if (request->connect_ == nullptr) return GetLastError();
    // The path and the query are signed as they stand.
    const DWORD flags = WINHTTP_FLAG_ESCAPE_DISABLE | WINHTTP_FLAG_ESCAPE_DISABLE_QUERY |
                        (target.tls ? WINHTTP_FLAG_SECURE : 0U);
    HINTERNET const handle = WinHttpOpenRequest(
        request->connect_.get(), std::wstring(method.begin(), method.end()).c_str(),
        std::wstring(target.object.begin(), target.object.end()).c_str(), nullptr,
        WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, flags);
    if (handle == nullptr) return GetLastError();
    request->handle_.store(handle);
    auto context = reinterpret_cast<DWORD_PTR>(request.get());
    if (WinHttpSetOption(handle, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context) == FALSE)
        return GetLastError();
    request->self_ = request;
    if (WinHttpSetStatusCallback(
            handle, &OnStatus,
            WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES |
                WINHTTP_CALLBACK_FLAG_CONNECT_TO_SERVER | WINHTTP_CALLBACK_FLAG_SEND_REQUEST,
            0) == WINHTTP_INVALID_STATUS_CALLBACK) {
        const DWORD error = GetLastError();
        request->self_.reset();
        return error;
    }
    request->callsBack_ = true;
    return request->Prepare();
}

DWORD AsyncRequest::Prepare() {
    HINTERNET const handle = handle_.load();
    const HttpClientOptions& options = generation_->options;
    const int whole = Milliseconds(options.totalTimeoutMs);
    const int connecting = std::min(Milliseconds(options.connectTimeoutMs), whole);
    // Per step, and so for the requests left behind; what bounds an exchange are the deadlines.
    if (WinHttpSetTimeouts(handle, 0, connecting, whole, whole) == FALSE) return GetLastError();
    if (const DWORD error =
            SetNumber(handle, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, static_cast<DWORD>(whole)))
        return error;
    if (const DWORD error =
            SetNumber(handle, WINHTTP_OPTION_DISABLE_FEATURE,
                      disabledFeatures | (trust_ != nullptr ? DisabledWithTrust(*session_) : 0)))
        return error;
    // Its default is a quarter of ours. Where it can't be set, HeadSize tells.
    static_cast<void>(SetNumber(handle, WINHTTP_OPTION_MAX_RESPONSE_HEADER_SIZE,
                                static_cast<DWORD>(maxHeaderBytes)));
    // A server may ask for a certificate and do without: there is none. Wine knows no such option.
    if (tls_)
        static_cast<void>(WinHttpSetOption(handle, WINHTTP_OPTION_CLIENT_CERT_CONTEXT,
                                           WINHTTP_NO_CLIENT_CERT_CONTEXT, 0));
    if (trust_ == nullptr) return 0;
    // The system doesn't know the file's certificates; JudgeServer does. All else it still checks.
    return SetNumber(handle, WINHTTP_OPTION_SECURITY_FLAGS, SECURITY_FLAG_IGNORE_UNKNOWN_CA);
}

DWORD AsyncRequest::AddFields(const std::wstring& lines) {
    if (lines.empty()) return 0;
    return WinHttpAddRequestHeaders(handle_.load(), lines.c_str(), static_cast<DWORD>(lines.size()),
                                    WINHTTP_ADDREQ_FLAG_ADD) != FALSE
               ? 0
               : GetLastError();
}

char* AsyncRequest::Keep(std::string_view piece) noexcept {
    piece.copy(buffer_.get(), piece.size());
    return buffer_.get();
}

DWORD AsyncRequest::SendHead(std::string_view firstPiece, DWORD wholeSize) {
    return Await(WinHttpSendRequest(handle_.load(), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                    firstPiece.empty() ? WINHTTP_NO_REQUEST_DATA : Keep(firstPiece),
                                    static_cast<DWORD>(firstPiece.size()), wholeSize,
                                    reinterpret_cast<DWORD_PTR>(this)));
}

DWORD AsyncRequest::Write(std::string_view piece) {
    return Await(
        WinHttpWriteData(handle_.load(), Keep(piece), static_cast<DWORD>(piece.size()), nullptr));
}

DWORD AsyncRequest::Send(std::string_view body, bool bodyIsSecret) {
    wipe_ = bodyIsSecret;
    // What goes with the head stays lent until the answer comes; the buffer can be lent but once.
    std::size_t sent = body.size() <= bufferSize ? body.size() : 0;
    DWORD error = SendHead(body.substr(0, sent), static_cast<DWORD>(body.size()));
    // Without a server the rest would be for the proxy; what that said is to be had by Receive.
    for (; error == 0 && sent < body.size() && !IsWithoutServer(); sent += bufferSize)
        error = Write(body.substr(sent, bufferSize));
    return error;
}

DWORD AsyncRequest::Receive() {
    return Await(WinHttpReceiveResponse(handle_.load(), nullptr));
}

// No more is asked for than has arrived: the library may wait until the whole of it is there, on
// this thread even, and the deadline would pass.
DWORD AsyncRequest::Read(std::string_view& piece, std::uint64_t most) {
    piece = {};
    if (const DWORD error = Await(WinHttpQueryDataAvailable(handle_.load(), nullptr))) return error;
    if (bytes_ == 0) return 0;
    // A server that says more than it announced isn't trusted with another exchange.
    if (bytes_ > most) DropConnection();
    const auto wanted = static_cast<DWORD>(std::min<std::uint64_t>({bytes_, bufferSize, most}));
    const DWORD error = Await(WinHttpReadData(handle_.load(), buffer_.get(), wanted, nullptr));
    if (error == 0) piece = {buffer_.get(), bytes_};
    return error;
}

/// Has the connection closed after this exchange.
void AsyncRequest::DropConnection() noexcept {
    HINTERNET const handle = handle_.load();
    if (WinHttpSetOption(handle, WINHTTP_OPTION_EXPIRE_CONNECTION, nullptr, 0) != FALSE) return;
    // Before Windows 10 this may come too late to count, and does no harm then.
    static_cast<void>(SetNumber(handle, WINHTTP_OPTION_DISABLE_FEATURE,
                                disabledFeatures | WINHTTP_DISABLE_KEEP_ALIVE));
}

DWORD AsyncRequest::Status(DWORD& status) const {
    DWORD size = sizeof status;
    return WinHttpQueryHeaders(
               handle_.load(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
               WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX) != FALSE
               ? 0
               : GetLastError();
}

std::size_t AsyncRequest::HeadSize() const {
    DWORD size = 0;
    WinHttpQueryHeaders(handle_.load(), WINHTTP_QUERY_RAW_HEADERS_CRLF,
                        WINHTTP_HEADER_NAME_BY_INDEX, WINHTTP_NO_OUTPUT_BUFFER, &size,
                        WINHTTP_NO_HEADER_INDEX);
    return size / sizeof(wchar_t);
}

std::wstring AsyncRequest::ContentLength() const {
    return Header(WINHTTP_QUERY_TRANSFER_ENCODING).empty() ? Header(WINHTTP_QUERY_CONTENT_LENGTH)
                                                           : std::wstring();
}

std::wstring AsyncRequest::Header(DWORD which) const {
    DWORD size = 0;
    const auto query = [&](wchar_t* room) {
        return WinHttpQueryHeaders(handle_.load(), which, WINHTTP_HEADER_NAME_BY_INDEX, room, &size,
                                   WINHTTP_NO_HEADER_INDEX) != FALSE;
    };
    query(nullptr);
    if (size == 0) return {};
    std::wstring text(size / sizeof(wchar_t), L'\0');
    if (!query(text.data())) return {};
    text.resize(size / sizeof(wchar_t));
    return text;
}

void AsyncRequest::CloseHandleOnce() noexcept {
    if (HINTERNET const handle = handle_.exchange(nullptr)) WinHttpCloseHandle(handle);
}

void AsyncRequest::Close() noexcept {
    CloseHandleOnce();
    if (callsBack_ && !AwaitClosed()) KeepModuleLoaded();
}

// --- the library's side --------------------------------------------------------------------------

void CALLBACK AsyncRequest::OnStatus(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID info,
                                     DWORD length) noexcept {
    const CallbackVisit visit;
    // A number is what the library hands out. NOLINTNEXTLINE(performance-no-int-to-ptr)
    auto* const request = reinterpret_cast<AsyncRequest*>(context);
    if (request == nullptr) return;
    switch (status) {
        case WINHTTP_CALLBACK_STATUS_CONNECTING_TO_SERVER:
            request->connectedAnew_.store(true);
            return;
        case WINHTTP_CALLBACK_STATUS_SENDING_REQUEST:
            request->OnSending(handle);
            return;
        case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
            request->Complete(0, 0);
            return;
        case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
            request->Complete(0, *static_cast<const DWORD*>(info));
            return;
        case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
            request->Complete(0, length);
            return;
        case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
            request->Complete(static_cast<const WINHTTP_ASYNC_RESULT*>(info)->dwError, 0);
            return;
        case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING: {
            const auto last = std::move(request->self_);
            request->closed_.store(true);
            SetEvent(request->event_.get());
            return;
        }
        default:
            return;
    }
}

/// The last moment at which the library can be stopped: TLS stands, and nothing has gone out.
void AsyncRequest::OnSending(HINTERNET handle) noexcept {
    switch (tls_ ? Judge(handle) : Verdict::trusted) {
        case Verdict::trusted:
            trusted_.store(true);
            ready_.store(true);
            return;
        case Verdict::untrusted:
            StopSending();  // and this may be gone
            return;
        case Verdict::noServerYet:
            return;
    }
}

/// Closing the request is enough, but not for Wine. There the thread that would send it never
/// returns to do so: it is the library's, and is held until the process ends. The caller's goes on.
void AsyncRequest::StopSending() noexcept {
    untrusted_.store(true);
    CloseHandleOnce();
    if (OnWindowsItself()) return;
    threadsHeld.fetch_add(1);
    SetEvent(event_.get());
    Sleep(INFINITE);
}

AsyncRequest::Verdict AsyncRequest::Judge(HINTERNET handle) const noexcept {
    PCCERT_CONTEXT context = nullptr;
    DWORD size = sizeof(void*);
    if (WinHttpQueryOption(handle, WINHTTP_OPTION_SERVER_CERT_CONTEXT, static_cast<void*>(&context),
                           &size) == FALSE) {
        // A proxy is asked for a tunnel first, without any field of the request.
        if (session_->mayUseProxy && GetLastError() == ERROR_WINHTTP_INCORRECT_HANDLE_STATE)
            return Verdict::noServerYet;
    }
    const CertificatePtr certificate(context);
    if (trust_ == nullptr) return Verdict::trusted;  // the system's own judgement
    return certificate != nullptr && trust_->Covers(*certificate, host_) ? Verdict::trusted
                                                                         : Verdict::untrusted;
}

void AsyncRequest::Complete(DWORD error, DWORD bytes) noexcept {
    error_ = error;
    bytes_ = bytes;
    completed_.store(true);
    SetEvent(event_.get());
}

/// `started`: what the operation's call returned.
DWORD AsyncRequest::Await(BOOL started) {
    if (started == FALSE)
        return untrusted_.load() ? ERROR_WINHTTP_SECURE_INVALID_CA : GetLastError();
    for (;;) {
        // In this order: a server that isn't trusted ends the request in either of these ways, and
        // what has arrived counts before what is given up.
        const bool completed = completed_.exchange(false);
        const bool closed = closed_.load();
        if (untrusted_.load()) return ERROR_WINHTTP_SECURE_INVALID_CA;
        if (completed) return error_;
        if (closed) return static_cast<DWORD>(exchangeEnded.code);
        if (const auto end = wait_.MustEnd()) {
            givenUp_ = true;
            return static_cast<DWORD>(end->code);
        }
        auto time = static_cast<DWORD>(wait_.Longest().count());
        if (!ready_.load()) time = std::min(time, WaitingTime(connected_));
        if (!ready_.load() && Clock::now() >= connected_) return ERROR_WINHTTP_TIMEOUT;
        WaitForSingleObject(event_.get(), time);
        wait_.LookAtClock();
    }
}

bool AsyncRequest::AwaitClosed() noexcept {
    // Who gave up wants to go on soon; the library has nothing to finish then but the closing.
    const auto end = Clock::now() + milliseconds(givenUp_ ? 50 : 250);
    while (!closed_.load()) {
        const DWORD time = WaitingTime(end);
        if (time == 0) return false;
        WaitForSingleObject(event_.get(), time);
    }
    return true;
}

}  // namespace Oak::Net
