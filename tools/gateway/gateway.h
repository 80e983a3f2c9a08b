#pragma once

// A gateway for tests and laptops: it hands out tokens, answers template queries, and takes
// feedback with pictures over real sockets, over HTTP or HTTPS, and misbehaves on request. See
// docs/local-gateway.md.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

using Headers = std::vector<std::pair<std::string, std::string>>;

inline constexpr std::string_view kTokenPath = "/api/tmqgw/v1/token/get";
inline constexpr std::string_view kQueryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";
inline constexpr std::string_view kFeedbackPath = "/api/tmqgw/aillm/v1/satisfaction/feedback";
inline constexpr std::string_view kUploadPath =
    "/api/tmqgw/aillm/v1/satisfaction/feedback/upload/image";
inline constexpr std::string_view kCancelPath = "/api/tmqgw/aillm/v1/satisfaction/feedback/cancel";
/// Upload URLs are the storage's base URL, this, the image key, and what makes them pre-signed.
inline constexpr std::string_view kStoragePrefix = "/storage/";
/// Found in the "message" of the refusals that a client must tell apart.
inline constexpr std::string_view kTokenRejected = "LAP500004";
inline constexpr std::string_view kContentRejected = "CCF083001";

struct KeyPair {
    std::string appKey;
    std::string secretKey;
};

/// {{name}} in the text is replaced by the query's element of that name. The rest is for a model.
struct Template {
    std::string key;
    std::string text;
    std::string system = {};  ///< Instructions, sent as they stand; empty: none.
    std::string model = {};   ///< Empty: ModelOptions::name.
    std::optional<double> temperature = {};
    std::optional<std::int32_t> maxTokens = {};
};

/// The three templates of templates.json, as they were when the gateway was built.
std::vector<Template> shippedTemplates();
/// Reads {"templates":[{"key":...,"text":...},...]}; nothing and a reason, with its place, when it
/// is not that or holds more than a template has.
std::optional<std::vector<Template>> parseTemplates(const std::string& json, std::string& reason);

/// What is wrong with the server's certificate. caPem() always gives a sound authority.
enum class Certificate { Good, Expired, SelfSigned, WrongHost };

struct Answer;
struct Fault;
struct Request;

/// A server that speaks the chat completions protocol, whose model answers rendered templates.
struct ModelOptions {
    std::string url;     ///< What comes before "/chat/completions"; empty: no model.
    std::string name;    ///< Asked for by templates that name no model of their own.
    std::string key;     ///< Sent as a bearer token; empty: none.
    std::string caFile;  ///< Authorities to trust, in PEM; empty: the system's.
    std::chrono::milliseconds timeout{100000};  ///< Of a query, waiting for its turn included.
    std::size_t concurrency = 4;  ///< Requests under way; further ones wait for their turn.
    std::size_t maxAnswerBytes = std::size_t{16} << 20;
};

struct Options {
    std::string address = "127.0.0.1";  ///< Numeric, IPv4 or IPv6.
    int port = 0;                       ///< 0: one that the system picks.
    bool tls = false;
    Certificate certificate = Certificate::Good;
    std::vector<KeyPair> keys;  ///< The pairs that get a token.
    std::vector<Template> templates = shippedTemplates();
    ModelOptions model = {};
    std::string areaDomain;  ///< What token answers name as the domain to use; empty: baseUrl().
    std::chrono::seconds tokenLifetime{7200};
    std::string storageDomain;                 ///< What upload URLs begin with; empty: baseUrl().
    std::chrono::seconds uploadLifetime{600};  ///< Of upload URLs; 0: late as soon as made.
    /// In "inputWords", or with "checkOutput" in the answer's text, it gets the query refused.
    std::string forbiddenText = "forbidden";
    std::chrono::seconds idleTimeout{60};     ///< Kept connections are closed after so long.
    std::size_t maxConnections = 256;         ///< Further ones wait for their turn to be accepted.
    std::size_t maxRecordedRequests = 10000;  ///< The oldest are forgotten beyond it.
    std::size_t maxRecordedBytes = std::size_t{64} << 20;
    std::size_t maxRecordedBody = std::size_t{16} << 20;  ///< A longer body is recorded cut.
    /// Answers and the faults that met a request are recorded with it, in the same room. Without
    /// it exchanges() and the page show requests alone.
    bool recordAnswers = false;
    std::size_t maxPictureBytes = std::size_t{256} << 20;  ///< The oldest pictures are forgotten.
    std::function<void()> onStopRequest;  ///< Called, on any thread, for POST /control/stop.
    /// Asked on each request but those to the control endpoints and the page; what it gives comes
    /// after addFault()'s. Called on many threads at once.
    std::function<std::optional<Fault>(const Request&)> pickFault = {};
    /// Told of each answer before its first byte is sent, with the fault that met the request, if
    /// any (of a fault in place of an answer, when it has happened). Called on many threads at
    /// once.
    std::function<void(const Request&, const Answer&, const Fault*)> onAnswer = {};
};

struct Request {
    std::uint64_t number = 0;  ///< Counts from 1 in order of arrival.
    std::string method;
    std::string path;          ///< As sent, with its query.
    Headers headers;           ///< Sorted by name; wireBytes() shows the order on the wire.
    std::string body;          ///< Cut after Options::maxRecordedBody bytes.
    std::size_t bodySize = 0;  ///< The bytes that came.
    std::chrono::system_clock::time_point time;
    std::uint64_t connection = 0;  ///< Counts from 1 in order of acceptance.

    /// The first value under that name in any case, or an empty text.
    std::string header(std::string_view name) const;
};

struct Exchange;
struct Exchanges;

/// A feedback as the gateway accepted it.
struct Feedback {
    std::string id;
    std::string traceId;
    std::int32_t satisfactionType = 0;
    std::int32_t feedbackType = 0;
    std::string description;
    std::string country;
    std::string clientVersion;
    std::vector<std::string> imageKeys;
    bool withdrawn = false;
};

/// Where one picture can be put, until the URL's lifetime ends.
struct UploadSlot {
    std::string imageKey;
    std::string url;
};

struct Picture {
    std::string imageKey;
    std::size_t size = 0;
    std::string sha256;  ///< In lower-case hexadecimal digits.
};

enum class FaultKind {
    Status,          ///< Answers with status `number` (0: 500) and body `text`.
    Delay,           ///< Answers `number` milliseconds later; further faults still apply.
    Close,           ///< Closes the connection instead of answering.
    Reset,           ///< Resets the connection instead of answering.
    ResetInHeaders,  ///< Resets it after `number` bytes of the answer (0: 20), of TLS bytes on
                     ///< HTTPS.
    ResetInBody,     ///< Resets it after `number` bytes of the body.
    CutBody,         ///< Closes it after `number` bytes of the body.
    Stall,           ///< Never answers, until the client leaves.
    StallInBody,     ///< Falls silent after `number` bytes of the body.
    Garbage,      ///< Sends `text`, or some noise, instead of an answer (in place of TLS on HTTPS).
    BadJson,      ///< Status 200 with body `text`, or half a JSON object.
    EmptyBody,    ///< Status 200 without a body.
    RejectToken,  ///< Refuses as if the token had been rejected.
    RefuseCode    ///< Refuses with errorCode `code` and message `text`.
};

/// What a request is for. A query without a body is a probe: it asks whether the gateway is there.
enum class RequestKind { Any, Token, Query, Probe, Slots, Feedback, Withdrawal, Push };

/// Any when it is none of the others.
RequestKind kindOf(const Request& request);

struct Fault {
    std::string path;  ///< Meets requests whose path begins so, or is just that if it ends in '$';
                       ///< empty: all but /control/ and the page.
    FaultKind kind = FaultKind::Status;
    std::int64_t number = 0;
    std::string code = {};
    std::string text = {};
    int times = -1;                     ///< How many requests it meets; negative: every one.
    std::uint64_t id = 0;               ///< Given by addFault().
    RequestKind on = RequestKind::Any;  ///< Meets requests of that kind alone.
};

/// Reads "on=query,kind=reset,times=2,number=10,code=1001,path=/api,text=..."; all but kind may be
/// absent.
/// The text comes last and may hold commas. Kinds are written as in docs/local-gateway.md.
std::optional<Fault> parseFault(const std::string& text, std::string& reason);

/// What passed between the gateway and the model for a query.
struct ModelCall {
    std::string model;           ///< The name that was asked for.
    std::string prompt;          ///< The template as rendered; cut in a record like a body.
    std::string answer;          ///< As the model gave it; empty when it gave none.
    std::size_t promptSize = 0;  ///< The bytes of the whole prompt,
    std::size_t answerSize = 0;  ///< and of the whole answer.
    std::chrono::milliseconds took{0};
    std::optional<std::int64_t> promptTokens;  ///< As the model's server counts them, if it does.
    std::optional<std::int64_t> answerTokens;
    bool stoppedByLength = false;  ///< The answer ends where a limit on its length was met.
};

/// An answer given in place of an endpoint's own.
struct Answer {
    int status = 200;
    std::string body = {};
    Headers headers = {};
    bool chunked = false;  ///< Sent in chunks, without its length.
    /// Told in place of the body's own length.
    std::optional<std::size_t> announcedLength = {};
    /// For the record, not sent: the trace id of the request, and what the model did for it.
    std::string traceId = {};
    std::optional<ModelCall> model = {};
};

/// A request and what became of it.
struct Exchange {
    Request request;
    std::vector<Fault> faults;  ///< Those that met it, delays first.
    /// Until its answer was made, or a fault took the place of one; nothing while under way.
    std::optional<std::chrono::milliseconds> took;
    std::optional<Answer>
        answer;                  ///< Nothing when there is none; its body is cut like a request's.
    std::size_t answerSize = 0;  ///< The bytes of the whole body,
    std::size_t answerSent = 0;  ///< and how many of them a fault let through.
    std::uint64_t revision = 0;  ///< When it changed last.
};

struct Exchanges {
    std::uint64_t revision = 0;     ///< Of the latest change so far.
    std::uint64_t oldest = 0;       ///< Requests with a lower number are no longer on record.
    std::vector<Exchange> changed;  ///< Oldest request first.
};

/// The answer that grants these slots. With setAnswer(kUploadPath, ...) the gateway hands out fewer
/// slots than asked for, empty URLs, or another host's.
Answer uploadAnswer(const std::vector<UploadSlot>& slots);

/// Once start() has returned, every operation may be called from any thread, also while requests
/// are being served. Faults, answers and tokens may be set before.
class Gateway {
 public:
    static constexpr std::size_t kAll = static_cast<std::size_t>(-1);

    explicit Gateway(Options options);
    ~Gateway();
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    /// Listens when it returns true. Works once; otherwise reason() tells why not. The threads that
    /// it starts take no signals, and the process's signal dispositions stay as they are.
    bool start();
    std::string reason() const;
    /// Ends every exchange, whatever state it is in, and returns when no thread and no socket is
    /// left. Calls after the first do nothing.
    void stop();

    /// Scheme, host and port, without a slash at the end.
    std::string baseUrl() const;
    int port() const;
    std::chrono::system_clock::time_point startTime() const;
    /// The certificate authority to trust, made anew by each start; empty without TLS.
    std::string caPem() const;
    /// The name of the model behind it; empty without one.
    std::string modelName() const;

    std::vector<Request> requests() const;
    /// The exchanges, those of the newest requests, that changed after that revision; their bodies
    /// are cut after so many bytes.
    Exchanges exchanges(std::uint64_t afterRevision = 0, std::size_t maxCount = kAll,
                        std::size_t maxBody = kAll) const;
    void clearRequests();
    /// Connections accepted so far.
    std::uint64_t connections() const;
    std::uint64_t tokensIssued() const;
    /// Connections on which a Stall or StallInBody is in effect now.
    std::size_t stalled() const;

    /// Every feedback accepted, oldest first: the last 10,000, of 16 MiB together at most.
    std::vector<Feedback> feedback() const;
    /// The pictures kept, in the order in which they came last.
    std::vector<Picture> pictures() const;
    /// The bytes put under that key.
    std::optional<std::string> picture(const std::string& imageKey) const;
    /// A slot of this gateway's own, for uploadAnswer(). Only after start().
    UploadSlot makeUploadSlot(std::chrono::seconds lifetime = std::chrono::minutes(10)) const;

    /// Faults meet requests in the order in which they were added, one fault a request (and any
    /// number of delays). Gives the fault its id, which no other had since the gateway was made.
    std::uint64_t addFault(Fault fault);
    /// False when there is none of that id any more. What is stalled stays stalled.
    bool removeFault(std::uint64_t id);
    void clearFaults();
    std::vector<Fault> faults() const;

    /// Every token handed out so far becomes rejected.
    void expireTokens();
    /// Token requests get these texts, in the order of the calls, before the gateway's own.
    void setNextToken(std::string text);
    /// Replaces the answer of requests with exactly this path; faults still apply.
    void setAnswer(const std::string& path, Answer answer);
    void clearAnswers();

    /// While true, connecting is refused as if nothing listened; connections that exist live on.
    /// False when the port could not be taken again.
    bool refuseConnections(bool refuse);
    /// Closes the connections on which nothing is under way; returns when they have been closed.
    void closeIdleConnections();
    /// Sends these bytes on the connections on which nothing is under way (as they are, in place of
    /// TLS on HTTPS); returns when they are on their way.
    void sendUnasked(const std::string& bytes);
    /// What later handshakes show in place of Options::certificate; connections that stand live on.
    /// Only after start().
    void setCertificate(Certificate certificate);
    /// While true, handshakes speak TLS 1.0 and 1.1 alone. Only after start().
    void speakOldTlsOnly(bool on);
    /// Resets the connections that stalled() counts.
    void resetStalled();

    /// Keeps what clients send, byte for byte (up to 16 MiB), from now on. False: forget it.
    void recordWire(bool on);
    /// What was kept, one connection after the other.
    std::string wireBytes() const;

    /// Whether the predicate came true in time. It is tried on each change of the gateway's state
    /// and every few milliseconds, on the caller's thread with no lock held.
    bool waitUntil(const std::function<bool()>& predicate,
                   std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;

 private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace gateway
