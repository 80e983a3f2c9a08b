#include "model_client.h"

#include "alarm.h"
#include "socket_cutter_posix.h"

#include <httplib.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::seconds kConnectPatience{10};

// A header's value must not end its line.
void checkKey(const std::string& key) {
    const auto fits = [](char c) { return c > ' ' && c < '\x7f'; };
    if (!std::all_of(key.begin(), key.end(), fits))
        throw std::runtime_error(
            "the model's key contains a space, a line break or a character that isn't ASCII");
}

void checkAuthorities(const std::string& file) {
    if (file.empty()) return;
    const std::unique_ptr<X509_STORE, void (*)(X509_STORE*)> store(X509_STORE_new(),
                                                                   X509_STORE_free);
    if (X509_STORE_load_locations(store.get(), file.c_str(), nullptr) != 1)
        throw std::runtime_error("the model's authorities cannot be read from " + file);
}

ModelClient::Fate fateOf(httplib::Error error) {
    using httplib::Error;
    switch (error) {
        case Error::Success:
            return ModelClient::Fate::Answered;
        case Error::Connection:
        case Error::ConnectionTimeout:
        case Error::SSLConnection:
            return ModelClient::Fate::NotReached;
        case Error::SSLLoadingCerts:
        case Error::SSLServerVerification:
            return ModelClient::Fate::NotTrusted;
        case Error::Canceled:
            return ModelClient::Fate::TooLarge;
        default:
            return ModelClient::Fate::CutOff;
    }
}

}  // namespace

/// One connection and what it is set to; one request at a time.
class ModelClient::Connection {
 public:
    Connection(const ModelUrl& url, const ModelOptions& options)
        : maxBytes_(options.maxAnswerBytes) {
        if (url.tls) {
            auto tls = std::make_unique<httplib::SSLClient>(url.host, url.port);
            if (!options.caFile.empty()) tls->set_ca_cert_path(options.caFile);
            SSL_CTX_set_min_proto_version(tls->ssl_context(), TLS1_2_VERSION);
            http_ = std::move(tls);
        } else {
            http_ = std::make_unique<httplib::ClientImpl>(url.host, url.port);
        }
        // The alarm alone judges how long an exchange takes: the library's limits are for each
        // read.
        const auto patience = options.timeout + std::chrono::minutes(1);
        http_->set_connection_timeout(
            std::min<std::chrono::milliseconds>(patience, kConnectPatience));
        http_->set_read_timeout(patience);
        http_->set_write_timeout(patience);
        http_->set_keep_alive(true);
        http_->set_tcp_nodelay(true);
        http_->set_url_encode(false);
        http_->set_decompress(false);
        http_->set_socket_options([this](socket_t socket) { cutter_.follow(socket); });
        if (!options.key.empty()) http_->set_bearer_token_auth(options.key);
    }

    Reply post(const std::string& path, const std::string& body, Clock::time_point deadline,
               const std::stop_token& left) {
        Reply reply;
        httplib::Request request;
        request.method = "POST";
        request.path = path;
        request.body = body;
        request.set_header("Content-Type", "application/json");
        request.response_handler = [this](const httplib::Response&) { return answers_ = true; };
        request.content_receiver = [&](const char* data, std::size_t size, std::uint64_t,
                                       std::uint64_t) {
            const bool fits = size <= maxBytes_ - reply.body.size();
            if (fits) reply.body.append(data, size);
            return fits;
        };
        std::atomic<bool> timedOut = false;
        httplib::Response response;
        auto error = httplib::Error::Success;
        {
            const Alarm alarm(deadline, [&] {
                timedOut = true;
                cutter_.cut();
            });
            const std::stop_callback whenLeft(left, [this] { cutter_.cut(); });
            if (!http_->send(request, response, error) && error == httplib::Error::Success)
                error = httplib::Error::Unknown;
        }
        reply.status = response.status;
        reply.fate = fateOf(error);
        // Without an announced length a cut looks like the end.
        if (timedOut) reply.fate = Fate::TimedOut;
        if (left.stop_requested()) reply.fate = Fate::Left;
        return reply;
    }

    /// Whether it may carry another request: no byte came unasked, nor an end.
    bool isQuiet() { return cutter_.isQuiet(); }
    /// Whether anything of an answer has come over it.
    bool answers() const { return answers_; }
    void beginAnew() { answers_ = false; }

 private:
    const std::size_t maxBytes_;
    SocketCutter cutter_;
    std::unique_ptr<httplib::ClientImpl> http_;
    bool answers_ = false;
};

ModelClient::ModelClient(const ModelOptions& options)
    : options_(options), url_(parseModelUrl(options.url)), turns_(options.concurrency) {
    checkKey(options.key);
    checkAuthorities(options.caFile);
}

ModelClient::~ModelClient() = default;

ModelClient::Reply ModelClient::post(const std::string& path, const std::string& body,
                                     const std::stop_token& left) {
    const auto deadline = Clock::now() + options_.timeout;
    const Turns::Turn turn(turns_, deadline, left);
    if (!turn) return {left.stop_requested() ? Fate::Left : Fate::NoTurn, 0, {}};
    auto connection = takeKept();
    const bool wasKept = connection != nullptr;
    if (!wasKept) connection = connect();
    connection->beginAnew();
    auto reply = connection->post(url_.path + path, body, deadline, left);
    // The server may have closed a kept connection as the request was on its way.
    if (wasKept && reply.fate == Fate::CutOff && !connection->answers()) {
        connection = connect();
        reply = connection->post(url_.path + path, body, deadline, left);
    }
    if (reply.fate == Fate::Answered) keep(std::move(connection));
    return reply;
}

std::unique_ptr<ModelClient::Connection> ModelClient::connect() const {
    return std::make_unique<Connection>(url_, options_);
}

std::unique_ptr<ModelClient::Connection> ModelClient::takeKept() {
    const std::scoped_lock lock(mutex_);
    while (!kept_.empty()) {
        auto connection = std::move(kept_.back());
        kept_.pop_back();
        if (connection->isQuiet()) return connection;
    }
    return nullptr;
}

// Never more than there are turns.
void ModelClient::keep(std::unique_ptr<Connection> connection) {
    const std::scoped_lock lock(mutex_);
    kept_.push_back(std::move(connection));
}

}  // namespace gateway
