#include "gateway.h"

#include "certificate.h"
#include "control.h"
#include "envelope.h"
#include "exchange_log.h"
#include "faults.h"
#include "header_name.h"
#include "http_server.h"
#include "local_origin.h"
#include "roads.h"
#include "signals_posix.h"
#include "stage.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds kNoTime{0};
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24);
constexpr std::size_t kBytesOfHeaders = 20;
constexpr std::string_view kNoise = "\x16\x03\x7f\xff#!$\r\n\x01\x02garbage\r\n\r\n";
constexpr std::string_view kHalfJson = R"({"errorCode":"0","message":"","data":{"resul)";

std::string orElse(const std::string& text, std::string_view otherwise) {
    return text.empty() ? std::string(otherwise) : text;
}

std::size_t countOf(const Fault& fault) {
    return fault.number > 0 ? static_cast<std::size_t>(fault.number) : 0;
}

// At least the last byte is missing, lest the fault pass unseen.
HttpReply cut(Answer answer, const Fault& fault) {
    HttpReply reply{std::move(answer)};
    if (reply.answer.body.empty()) reply.answer.body = "{}";
    reply.bodyLimit = std::min(countOf(fault), reply.answer.body.size() - 1);
    return reply;
}

std::string hostOf(const std::string& address) {
    if (address == "0.0.0.0") return "127.0.0.1";
    if (address == "::") return "[::1]";
    return address.find(':') == address.npos ? address : '[' + address + ']';
}

// What the client gets instead is below HTTP.
bool takesPlaceOfAnswer(const Fault* fault) {
    if (fault == nullptr) return false;
    switch (fault->kind) {
        case FaultKind::Close:
        case FaultKind::Reset:
        case FaultKind::Stall:
        case FaultKind::Garbage:
            return true;
        default:
            return false;
    }
}

// Lets threads wait for anything to change.
class Changes {
 public:
    void note() {
        {
            const std::scoped_lock lock(mutex_);
            ++count_;
        }
        changed_.notify_all();
    }

    void end() {
        {
            const std::scoped_lock lock(mutex_);
            ended_ = true;
        }
        changed_.notify_all();
    }

    void sleep(std::chrono::milliseconds time) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, time, [this] { return ended_; });
    }

    bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds timeout) {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds kRetry{5};
        const auto deadline = Clock::now() + timeout;
        for (;;) {
            std::unique_lock lock(mutex_);
            const auto seen = count_;
            lock.unlock();
            if (predicate()) return true;
            if (Clock::now() >= deadline) return false;
            lock.lock();
            changed_.wait_until(lock, std::min(deadline, Clock::now() + kRetry),
                                [&] { return count_ != seen; });
        }
    }

 private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t count_ = 0;
    bool ended_ = false;
};

}  // namespace

std::string Request::header(std::string_view name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
        return sameHeaderName(header.first, name);
    });
    return found == headers.end() ? std::string() : found->second;
}

class Gateway::Impl {
 public:
    Impl(Gateway& owner, Options options)
        : owner_(owner),
          options_(std::move(options)),
          log_(options_),
          roads_(options_),
          stage_([this] { changes_.note(); }) {}

    bool start();
    void stop();
    HttpReply handle(HttpRequest from);
    void afterwards(const HttpRequest& request, int status) const;

    Gateway& owner_;
    const Options options_;
    std::string reason_;
    std::string baseUrl_;
    const std::chrono::system_clock::time_point startTime_ = std::chrono::system_clock::now();
    ExchangeLog log_;
    FaultList faults_;
    mutable Changes changes_;
    std::optional<ServerIdentity> identity_;
    Roads roads_;
    Stage stage_;
    std::unique_ptr<HttpServer> server_;

    std::mutex mutex_;  // guards what follows
    bool started_ = false;
    bool stopped_ = false;
    std::map<std::string, Answer> answers_;

 private:
    std::vector<Fault> faultsFor(const Request& request);
    HttpReply told(const Request& request, HttpReply reply, const Fault* fault);
    HttpReply apply(const Fault& fault, const Request& request, int relayPort);
    Answer answerOf(const Request& request);
    HttpReply instead(int relayPort, Sabotage plan) {
        stage_.sabotage(relayPort, std::move(plan));
        return {};
    }
};

bool Gateway::Impl::start() {
    if (std::exchange(started_, true)) {
        reason_ = "started before";
        return false;
    }
    const SignalsBlocked blocked;
    try {
        if (!stage_.listen(options_.address, options_.port, options_.maxConnections, reason_))
            return false;
        baseUrl_ = (options_.tls ? "https://" : "http://") + hostOf(options_.address) + ':' +
                   std::to_string(stage_.port());
        if (options_.tls) identity_ = makeServerIdentity(options_.address);
        roads_.storage().setDomain(orElse(options_.storageDomain, baseUrl_));
        roads_.setAreaDomain(orElse(options_.areaDomain, baseUrl_));
        server_ = std::make_unique<HttpServer>(
            [this](HttpRequest request) { return handle(std::move(request)); },
            [this](const HttpRequest& request, int status) { afterwards(request, status); },
            options_, identity_ ? &*identity_ : nullptr);
        reason_ = "the HTTP server behind the sockets did not start";
        if (!server_->start()) return false;
        stage_.run(server_->port());
        reason_.clear();
        return true;
    } catch (const std::exception& problem) {
        reason_ = problem.what();
        return false;
    }
}

void Gateway::Impl::stop() {
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(stopped_, true)) return;
    }
    stage_.stop();
    changes_.end();  // later, or a delayed answer would still get out
    if (server_) server_->stop();
}

HttpReply Gateway::Impl::handle(HttpRequest from) {
    Request request;
    request.method = std::move(from.method);
    request.path = std::move(from.target);
    request.headers = std::move(from.headers);
    request.body = std::move(from.body);
    request.bodySize = request.body.size();
    request.time = std::chrono::system_clock::now();
    const auto peer = stage_.peer(from.relayPort);
    request.connection = peer.connection;
    if (isForControl(request)) {
        if (peer.isLoopback && isFromThisMachine(request)) return {control(owner_, request)};
        return {controlRefusal()};
    }
    log_.add(request);
    changes_.note();
    const auto faults = faultsFor(request);
    log_.addFaults(request.number, faults);
    for (const auto& fault : faults) {
        if (fault.kind != FaultKind::Delay)
            return told(request, apply(fault, request, from.relayPort), &fault);
        changes_.sleep(std::clamp(std::chrono::milliseconds(fault.number), kNoTime, kLongestDelay));
    }
    return told(request, {answerOf(request)}, faults.empty() ? nullptr : &faults.front());
}

std::vector<Fault> Gateway::Impl::faultsFor(const Request& request) {
    auto faults = faults_.take(request.path);
    auto picked = options_.pickFault ? options_.pickFault(request) : std::nullopt;
    if (picked) faults.push_back(std::move(*picked));
    return faults;
}

HttpReply Gateway::Impl::told(const Request& request, HttpReply reply, const Fault* fault) {
    log_.end(request.number, takesPlaceOfAnswer(fault) ? nullptr : &reply.answer, reply.bodyLimit);
    if (options_.onAnswer) options_.onAnswer(request, reply.answer, fault);
    return reply;
}

// The host is asked to stop only when the answer is on its way, so that the asker gets it.
void Gateway::Impl::afterwards(const HttpRequest& request, int status) const {
    if (isStopRequest(request.method, request.target) && status == 200 && options_.onStopRequest)
        options_.onStopRequest();
}

Answer Gateway::Impl::answerOf(const Request& request) {
    {
        const std::scoped_lock lock(mutex_);
        const auto found = answers_.find(request.path);
        if (found != answers_.end()) return found->second;
    }
    return roads_.answer(request);
}

HttpReply Gateway::Impl::apply(const Fault& fault, const Request& request, int relayPort) {
    const auto inBody = [&](Ending ending) {
        stage_.sabotage(relayPort, {ending, Sabotage::kAll, {}});
        return cut(answerOf(request), fault);
    };
    switch (fault.kind) {
        case FaultKind::Delay:
            break;
        case FaultKind::Status:
            return {{fault.number != 0 ? static_cast<int>(fault.number) : 500, fault.text, {}}};
        case FaultKind::Close:
            return instead(relayPort, {Ending::Close, 0, {}});
        case FaultKind::Reset:
            return instead(relayPort, {Ending::Reset, 0, {}});
        case FaultKind::Stall:
            return instead(relayPort, {Ending::Stall, 0, {}});
        case FaultKind::Garbage:
            return instead(relayPort, {Ending::Close, 0, orElse(fault.text, kNoise)});
        case FaultKind::ResetInHeaders:
            stage_.sabotage(
                relayPort,
                {Ending::Reset, countOf(fault) != 0 ? countOf(fault) : kBytesOfHeaders, {}});
            return {answerOf(request)};
        case FaultKind::ResetInBody:
            return inBody(Ending::Reset);
        case FaultKind::CutBody:
            return inBody(Ending::Close);
        case FaultKind::StallInBody:
            return inBody(Ending::Stall);
        case FaultKind::BadJson:
            return {{200, orElse(fault.text, kHalfJson), {}}};
        case FaultKind::EmptyBody:
            return {{200, {}, {}}};
        case FaultKind::RejectToken:
            return {tokenRefusal()};
        case FaultKind::RefuseCode:
            return {refusal(fault.code, fault.text)};
    }
    return {answerOf(request)};
}

Gateway::Gateway(Options options) : impl_(std::make_unique<Impl>(*this, std::move(options))) {}

Gateway::~Gateway() {
    stop();
}

bool Gateway::start() {
    return impl_->start();
}

std::string Gateway::reason() const {
    return impl_->reason_;
}

void Gateway::stop() {
    impl_->stop();
}

std::string Gateway::baseUrl() const {
    return impl_->baseUrl_;
}

int Gateway::port() const {
    return impl_->stage_.port();
}

std::chrono::system_clock::time_point Gateway::startTime() const {
    return impl_->startTime_;
}

std::string Gateway::caPem() const {
    return impl_->identity_ ? impl_->identity_->authorityPem : std::string();
}

std::vector<Request> Gateway::requests() const {
    return impl_->log_.requests();
}

Exchanges Gateway::exchanges(std::uint64_t afterRevision, std::size_t maxCount,
                             std::size_t maxBody) const {
    return impl_->log_.changedSince(afterRevision, maxCount, maxBody);
}

void Gateway::clearRequests() {
    impl_->log_.clear();
}

std::uint64_t Gateway::connections() const {
    return impl_->stage_.accepted();
}

std::uint64_t Gateway::tokensIssued() const {
    return impl_->roads_.tokensIssued();
}

std::size_t Gateway::stalled() const {
    return impl_->stage_.stalled();
}

std::vector<Feedback> Gateway::feedback() const {
    return impl_->roads_.feedbacks().all();
}

std::vector<Picture> Gateway::pictures() const {
    return impl_->roads_.storage().pictures();
}

std::optional<std::string> Gateway::picture(const std::string& imageKey) const {
    return impl_->roads_.storage().picture(imageKey);
}

UploadSlot Gateway::makeUploadSlot(std::chrono::seconds lifetime) const {
    return impl_->roads_.storage().makeSlot("jpg", lifetime);
}

std::uint64_t Gateway::addFault(Fault fault) {
    return impl_->faults_.add(std::move(fault));
}

bool Gateway::removeFault(std::uint64_t id) {
    return impl_->faults_.remove(id);
}

void Gateway::clearFaults() {
    impl_->faults_.clear();
}

std::vector<Fault> Gateway::faults() const {
    return impl_->faults_.all();
}

void Gateway::expireTokens() {
    impl_->roads_.expireTokens();
}

void Gateway::setNextToken(std::string text) {
    impl_->roads_.setNextToken(std::move(text));
}

void Gateway::setAnswer(const std::string& path, Answer answer) {
    const std::scoped_lock lock(impl_->mutex_);
    impl_->answers_[path] = std::move(answer);
}

void Gateway::clearAnswers() {
    const std::scoped_lock lock(impl_->mutex_);
    impl_->answers_.clear();
}

bool Gateway::refuseConnections(bool refuse) {
    return impl_->stage_.refuse(refuse);
}

void Gateway::closeIdleConnections() {
    impl_->stage_.closeIdle();
}

void Gateway::sendUnasked(const std::string& bytes) {
    impl_->stage_.sendUnasked(bytes);
}

void Gateway::setCertificate(Certificate certificate) {
    impl_->server_->setCertificate(certificate);
}

void Gateway::speakOldTlsOnly(bool on) {
    impl_->server_->speakOldTlsOnly(on);
}

void Gateway::resetStalled() {
    impl_->stage_.resetStalled();
}

void Gateway::recordWire(bool on) {
    impl_->stage_.recordWire(on);
}

std::string Gateway::wireBytes() const {
    return impl_->stage_.wireBytes();
}

bool Gateway::waitUntil(const std::function<bool()>& predicate,
                        std::chrono::milliseconds timeout) const {
    return impl_->changes_.waitUntil(predicate, timeout);
}

}  // namespace gateway
