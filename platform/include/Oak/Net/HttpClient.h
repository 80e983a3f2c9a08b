#ifndef OAK_NET_HTTPCLIENT_H
#define OAK_NET_HTTPCLIENT_H

#include <Oak/Base/Wipe.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Oak::Net {

/// An absolute URL, kept as the text it was built from. The text is checked when it is sent.
class URL {
 public:
    explicit URL(const std::string& text) : text_(text) {}

    const std::string& Text() const { return text_; }

 private:
    std::string text_;
};

/// Why the caller of an exchange gives it up.
enum class GivenUp { no, cancelled, timeUp, ending };

/// How long the caller of an exchange waits for it, besides the limits of `HttpClientOptions`.
struct ExchangePatience {
    using Clock = std::chrono::steady_clock;

    /// Longest time of the exchange; 0: that of the options, which also holds if it is shorter.
    std::chrono::milliseconds limit{0};
    /// When the caller's own time is up: from then on `givenUp` says so.
    Clock::time_point deadline = Clock::time_point::max();
    /// Asked on the sending thread: before anything is sent, now and then, and whenever somebody
    /// calls `HttpClient::WakeAll`. Null: the caller never gives up.
    GivenUp (*givenUp)() noexcept = nullptr;
};

/// One request: method, URL, header fields, content type, body. Made, used and destroyed by one
/// thread.
class CHttpClientRequest {
 public:
    using HeaderField = std::pair<std::string, std::string>;

    CHttpClientRequest(const std::string& method, const URL& url) : method_(method), url_(url) {}
    CHttpClientRequest(const CHttpClientRequest&) = default;
    CHttpClientRequest(CHttpClientRequest&&) = default;
    CHttpClientRequest& operator=(const CHttpClientRequest&) = delete;  // would drop a body unwiped
    CHttpClientRequest& operator=(CHttpClientRequest&&) = delete;
    ~CHttpClientRequest() {
        if (dataIsSecret_) Oak::Base::Wipe(data_);
        for (HeaderField& field : headers_)  // one of them is the token
            Oak::Base::Wipe(field.second);
    }

    /// The body, any bytes. Without one, the request goes out with an empty body.
    void SetData(const std::string& data) { data_ = data; }
    void SetData(std::string&& data) { data_ = std::move(data); }
    /// A body that contains a secret, set once. The request wipes it when it is destroyed, and the
    /// client leaves no copy of it in memory, however the exchange ends.
    void SetSecretData(std::string&& data) {
        data_ = std::move(data);
        dataIsSecret_ = true;
    }

    /// Moves the body out and leaves an empty one.
    std::string TakeData() noexcept { return std::exchange(data_, {}); }

    /// Adds one header field. `Send` refuses the request if the name is not a token, if the value
    /// contains CR, LF or NUL, or if the field would frame the message, which is up to the client
    /// (Content-Length, Transfer-Encoding).
    void AddHeaderField(const std::string& name, const std::string& value) {
        headers_.emplace_back(name, value);
    }

    /// The content type. Without it, and without a header field of that name, none is sent. If both
    /// are set, the field wins.
    void SetContentType(const std::string& contentType) { contentType_ = contentType; }

    void SetPatience(const ExchangePatience& patience) { patience_ = patience; }

    const std::string& Method() const { return method_; }
    const URL& Url() const { return url_; }
    const std::vector<HeaderField>& Headers() const { return headers_; }
    const std::string& ContentType() const { return contentType_; }
    const std::string& Data() const { return data_; }
    bool DataIsSecret() const { return dataIsSecret_; }
    const ExchangePatience& Patience() const { return patience_; }

 private:
    std::string method_;
    URL url_;
    std::vector<HeaderField> headers_;
    std::string contentType_;
    std::string data_;
    bool dataIsSecret_ = false;
    ExchangePatience patience_;
};

/// One response: empty until `Send` fills it.
class CHttpClientResponse {
 public:
    /// The HTTP status code; 0 before an answer.
    std::int32_t GetStatusCode() const { return status_; }

    /// Copies the body to `*data`. True when there was an answer, even one with an empty body.
    bool GetResponseData(std::string* data) const {
        if (data == nullptr) return false;
        *data = body_;
        return delivered_;
    }

    /// Moves the body out and leaves an empty one.
    std::string TakeData() noexcept { return std::exchange(body_, {}); }

    /// Overwrites the body, which contained a secret.
    void WipeData() { Oak::Base::Wipe(body_); }

    /// For the client only: stores a complete answer, replacing what was held before.
    void Deliver(std::int32_t status, std::string body) {
        status_ = status;
        body_ = std::move(body);
        delivered_ = true;
    }

 private:
    std::int32_t status_ = 0;
    bool delivered_ = false;
    std::string body_;
};

/// Why an exchange failed.
enum class FailureReason : std::int32_t {
    none = 0,
    notReached,      ///< no connection, or no TLS
    notTrusted,      ///< the certificate of the server, or of a proxy
    timeOut,         ///< a time limit expired
    cutOff,          ///< the connection ended early
    tooLarge,        ///< the answer
    notUnderstood,   ///< what came is not an HTTP answer
    refusedUrl,      ///< by the client: malformed, or plain http to another machine
    refusedRequest,  ///< by the client: a method or field that would break the message
    noMemory,
    cancelled,  ///< the caller gave it up
    ended,      ///< the process is ending, or is a forked child
    other
};

/// The HTTP client. Any number of threads may send at once with requests and responses of their
/// own.
///
/// The first client created starts the transport below it (and with it the TLS library). Whatever
/// registers its own end at process exit after that ends before the transport does.
class HttpClient {
 public:
    /// What a caller can know about a failure; filled with zero bytes before `Send`.
    struct Error {
        std::int32_t code;     ///< the HTTP library's error number, or our own; 0: none
        FailureReason reason;  ///< what kind of failure that is
        char text[248];        ///< one line, zero-terminated, possibly cut
    };

    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Performs the whole exchange on the calling thread, within the limits of `HttpClientOptions`.
    /// Returns true if an answer arrived in full, whatever its status. Returns false, with
    /// `response` unchanged and one log record that says why, if not. Redirects are not followed.
    /// `error` may be null.
    ///
    /// Returns false without a log record in a forked child, and once the process is ending:
    /// exchanges under way on threads that outlive main() then give up, and the end of the process
    /// waits two seconds at most for them.
    static bool Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                     Error* error);

    /// Makes every exchange under way ask its caller at once whether to go on; see
    /// `ExchangePatience`. Any thread may call it; it doesn't wait for the exchanges.
    static void WakeAll() noexcept;
};

}  // namespace Oak::Net

#endif
