#include "gateway.h"

#include "certificate.h"
#include "changes.h"
#include "connection_book.h"
#include "control.h"
#include "endpoints.h"
#include "envelope.h"
#include "exchange_log.h"
#include "fault_effects.h"
#include "faults.h"
#include "header_name.h"
#include "http_server.h"
#include "local_origin.h"
#include "signals_posix.h"
#include "stage.h"

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <stop_token>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds kNoTime{0};
constexpr std::chrono::milliseconds kLongestDelay = std::chrono::hours(24);

std::string orElse(const std::string& text, std::string_view otherwise) {
    return text.empty() ? std::string(otherwise) : text;
}

std::string hostOf(const std::string& address) {
    if (address == "0.0.0.0") return "127.0.0.1";
    if (address == "::") return "[::1]";
    return address.find(':') == address.npos ? address : '[' + address + ']';
}

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
          endpoints_(options_),
          connections_([this] { changes_.note(); }),
          stage_(connections_) {}

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
    Endpoints endpoints_;
    ConnectionBook connections_;
    Stage stage_;
    std::unique_ptr<HttpServer> server_;

    std::mutex mutex_;  // guards what follows
    bool started_ = false;
    bool stopped_ = false;
    std::map<std::string, Answer> answers_;

 private:
    std::vector<Fault> faultsFor(const Request& request);
    HttpReply told(const Request& request, HttpReply reply, const Fault* fault);
    Answer answerOf(const Request& request, const std::stop_token& left);
};

bool Gateway::Impl::start() {
    if (std::exchange(started_, true)) {
        reason_ = "started before";
        return false;
    }
    const SignalsBlocked blocked;
    try {
        endpoints_.connectModel();
        if (!stage_.listen(options_.address, options_.port, options_.maxConnections, reason_))
            return false;
        baseUrl_ = (options_.tls ? "https://" : "http://") + hostOf(options_.address) + ':' +
                   std::to_string(stage_.port());
        if (options_.tls) identity_ = makeServerIdentity(options_.address);
        endpoints_.storage().setDomain(orElse(options_.storageDomain, baseUrl_));
        endpoints_.setAreaDomain(orElse(options_.areaDomain, baseUrl_));
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
    const auto peer = connections_.peer(from.relayPort);
    request.connection = peer.connection;
    if (isForControl(request)) {
        if (peer.isLoopback && isFromThisMachine(request)) return {control(owner_, request)};
        return {controlRefusal()};
    }
    log_.add(request);
    changes_.note();
    const auto faults = faultsFor(request);
    log_.addFaults(request.number, faults);
    const auto ownAnswer = [&] { return answerOf(request, peer.gone); };
    for (const auto& fault : faults) {
        if (fault.kind != FaultKind::Delay)
            return told(request, replyWith(fault, ownAnswer, stage_, from.relayPort), &fault);
        changes_.sleep(std::clamp(std::chrono::milliseconds(fault.number), kNoTime, kLongestDelay));
    }
    return told(request, {ownAnswer()}, faults.empty() ? nullptr : &faults.front());
}

std::vector<Fault> Gateway::Impl::faultsFor(const Request& request) {
    auto faults = faults_.take(request);
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

Answer Gateway::Impl::answerOf(const Request& request, const std::stop_token& left) {
    {
        const std::scoped_lock lock(mutex_);
        const auto found = answers_.find(request.path);
        if (found != answers_.end()) return found->second;
    }
    return endpoints_.answer(request, left);
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

std::string Gateway::modelName() const {
    const auto& model = impl_->options_.model;
    return model.url.empty() ? std::string() : model.name;
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
    return impl_->connections_.accepted();
}

std::uint64_t Gateway::tokensIssued() const {
    return impl_->endpoints_.tokensIssued();
}

std::size_t Gateway::stalled() const {
    return impl_->connections_.stalled();
}

std::vector<Feedback> Gateway::feedback() const {
    return impl_->endpoints_.feedbacks().all();
}

std::vector<Picture> Gateway::pictures() const {
    return impl_->endpoints_.storage().pictures();
}

std::optional<std::string> Gateway::picture(const std::string& imageKey) const {
    return impl_->endpoints_.storage().picture(imageKey);
}

UploadSlot Gateway::makeUploadSlot(std::chrono::seconds lifetime) const {
    return impl_->endpoints_.storage().makeSlot("jpg", lifetime);
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
    impl_->endpoints_.expireTokens();
}

void Gateway::setNextToken(std::string text) {
    impl_->endpoints_.setNextToken(std::move(text));
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
    impl_->connections_.recordWire(on);
}

std::string Gateway::wireBytes() const {
    return impl_->connections_.wireBytes();
}

bool Gateway::waitUntil(const std::function<bool()>& predicate,
                        std::chrono::milliseconds timeout) const {
    return impl_->changes_.waitUntil(predicate, timeout);
}

}  // namespace gateway
