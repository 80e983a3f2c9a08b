#include "http_server.h"

#include "header_name.h"
#include "signals_posix.h"
#include "worker_pool.h"

#include <httplib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMaxBody = std::size_t{64} << 20;
// The server matches paths by a regular expression whose recursion grows with the path.
constexpr std::size_t kMaxTarget = 2000;
constexpr std::string_view kJsonType = "application/json; charset=utf-8";

class TaskQueue final : public httplib::TaskQueue {
 public:
    explicit TaskQueue(std::size_t maxThreads) : pool_(maxThreads) {}
    void enqueue(std::function<void()> task) override { pool_.enqueue(std::move(task)); }
    void shutdown() override { pool_.shutdown(); }

 private:
    WorkerPool pool_;
};

// Reaches the listening socket of either kind of server. The library listens with a queue of five,
// beyond which a connection waits a second; and its own stop() closes the socket under the thread
// that accepts on it.
template <typename Base>
class Listening final : public Base {
 public:
    using Base::Base;

    bool widenQueue(int length) { return ::listen(this->svr_sock_, length) == 0; }

    void stopWith(std::thread& acceptor) {
        const int socket = this->svr_sock_.exchange(INVALID_SOCKET);
        if (socket != INVALID_SOCKET) ::shutdown(socket, SHUT_RDWR);
        if (acceptor.joinable()) acceptor.join();
        if (socket != INVALID_SOCKET) ::close(socket);
    }
};

HttpRequest requestFrom(const httplib::Request& from, std::string body) {
    HttpRequest request;
    request.method = from.method;
    request.target = from.target;
    request.body = std::move(body);
    request.relayPort = from.remote_port;
    // The library adds these to what the client sent.
    constexpr std::array<std::string_view, 4> kAdded = {"REMOTE_ADDR", "REMOTE_PORT", "LOCAL_ADDR",
                                                        "LOCAL_PORT"};
    for (const auto& [name, value] : from.headers)
        if (std::find(kAdded.begin(), kAdded.end(), name) == kAdded.end())
            request.headers.emplace_back(name, value);
    return request;
}

// Hands out the body piece by piece, and says no at the limit, upon which the server closes.
httplib::ContentProvider limited(const std::shared_ptr<const std::string>& body,
                                 std::size_t limit) {
    return [body, limit](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        if (offset >= limit) return false;
        return sink.write(body->data() + offset, std::min(length, limit - offset));
    };
}

httplib::ContentProviderWithoutLength chunks(const std::shared_ptr<const std::string>& body) {
    constexpr std::size_t kSmallest = 1000;
    const std::size_t chunk = std::max(kSmallest, body->size() / 1000);
    return [body, chunk](std::size_t offset, httplib::DataSink& sink) {
        if (offset < body->size())
            return sink.write(body->data() + offset, std::min(chunk, body->size() - offset));
        sink.done();
        return true;
    };
}

void fill(httplib::Response& response, HttpReply reply) {
    std::string type(kJsonType);
    response.status = reply.answer.status;
    for (const auto& [name, value] : reply.answer.headers) {
        if (sameHeaderName(name, "Content-Type")) {
            type = value;
        } else {
            response.headers.emplace(name, value);
        }
    }
    auto body = std::make_shared<const std::string>(std::move(reply.answer.body));
    if (reply.answer.announcedLength) {
        response.headers.emplace("Content-Length", std::to_string(*reply.answer.announcedLength));
        response.set_content_provider(type, chunks(body));
    } else if (reply.bodyLimit < body->size()) {
        response.set_content_provider(body->size(), type, limited(body, reply.bodyLimit));
    } else if (reply.answer.chunked) {
        response.set_chunked_content_provider(type, chunks(body));
    } else {
        response.set_content(*body, type);
    }
}

bool announcesBody(const httplib::Request& request) {
    const auto length = request.get_header_value("Content-Length");
    return request.has_header("Transfer-Encoding") || (!length.empty() && length != "0");
}

// How handshakes go. The library makes the context once; both callbacks run in each handshake.
class Handshake {
 public:
    Handshake(ServerIdentity& identity, Certificate certificate)
        : identity_(identity), certificate_(certificate) {}

    bool prepare(SSL_CTX& context) {
        SSL_CTX_set_client_hello_cb(&context, chooseVersion, this);
        SSL_CTX_set_cert_cb(&context, chooseCertificate, this);
        return SSL_CTX_set_min_proto_version(&context, TLS1_2_VERSION) == 1;
    }
    void setCertificate(Certificate certificate) { certificate_ = certificate; }
    void speakOldTlsOnly(bool on) { oldTlsOnly_ = on; }

 private:
    static int chooseVersion(SSL* ssl, int* /*alert*/, void* self) {
        if (!static_cast<Handshake*>(self)->oldTlsOnly_) return SSL_CLIENT_HELLO_SUCCESS;
        SSL_set_security_level(ssl, 0);  // above it OpenSSL takes part in nothing so old
        const bool set = SSL_set_min_proto_version(ssl, TLS1_VERSION) == 1 &&
                         SSL_set_max_proto_version(ssl, TLS1_1_VERSION) == 1;
        return set ? SSL_CLIENT_HELLO_SUCCESS : SSL_CLIENT_HELLO_ERROR;
    }

    static int chooseCertificate(SSL* ssl, void* context) {
        const auto& self = *static_cast<Handshake*>(context);
        const bool set =
            SSL_use_certificate(ssl, self.identity_.certificate(self.certificate_).get()) == 1 &&
            SSL_use_PrivateKey(ssl, self.identity_.key.get()) == 1;
        return set ? 1 : 0;
    }

    ServerIdentity& identity_;
    std::atomic<Certificate> certificate_;
    std::atomic<bool> oldTlsOnly_{false};
};

// Nothing, and a status in the response, when the body is too long, broken off or badly coded.
std::optional<std::string> readAll(const httplib::ContentReader& reader,
                                   httplib::Response& response) {
    std::string body;
    bool fits = true;
    // The library looks at an announced length only. The rest of a longer body is swallowed, so
    // that the client reads the answer.
    const bool whole = reader([&](const char* data, std::size_t size) {
        fits = fits && size <= kMaxBody - body.size();
        if (fits) body.append(data, size);
        return true;
    });
    if (whole && fits) return body;
    if (response.status < 400) response.status = fits ? 400 : 413;
    return std::nullopt;
}

}  // namespace

class HttpServer::Impl {
 public:
    Impl(Handler handler, Afterwards afterwards, const Options& options, ServerIdentity* identity)
        : handler_(std::move(handler)), afterwards_(std::move(afterwards)) {
        const SigpipeKept kept;
        if (identity != nullptr) {
            handshake_.emplace(*identity, options.certificate);
            tls_ = std::make_unique<Listening<httplib::SSLServer>>(
                [this](SSL_CTX& context) { return handshake_->prepare(context); });
        } else {
            plain_ = std::make_unique<Listening<httplib::Server>>();
        }
        configure(server(), options);
    }

    bool start() {
        if (!server().is_valid()) return false;
        port_ = server().bind_to_any_port("127.0.0.1");
        const bool listening =
            port_ > 0 && withServer([](auto& s) { return s.widenQueue(SOMAXCONN); });
        if (listening) acceptor_ = std::thread([this] { server().listen_after_bind(); });
        return listening;
    }

    void stop() {
        withServer([this](auto& s) {
            s.stopWith(acceptor_);
            return true;
        });
    }

    int port() const { return port_; }

    std::optional<Handshake> handshake_;  // with TLS only

 private:
    // cppcheck-suppress returnTempReference; a cast to the base
    httplib::Server& server() { return tls_ ? static_cast<httplib::Server&>(*tls_) : *plain_; }

    template <typename Use>
    bool withServer(Use use) {
        return tls_ ? use(*tls_) : use(*plain_);
    }

    void configure(httplib::Server& server, const Options& options) {
        constexpr std::size_t kForEver = 1000000000;
        constexpr time_t kPatienceSeconds = 30;
        const std::size_t threads = options.maxConnections + 8;  // some may still be ending
        server.new_task_queue = [threads] { return new TaskQueue(threads); };
        server.set_keep_alive_max_count(kForEver);
        server.set_keep_alive_timeout(options.idleTimeout.count());
        server.set_read_timeout(kPatienceSeconds);
        server.set_write_timeout(kPatienceSeconds);
        server.set_payload_max_length(kMaxBody);
        server.set_tcp_nodelay(true);
        // Without the library's SO_REUSEPORT, which would let another process share the port.
        server.set_socket_options([](socket_t) {});
        server.set_pre_routing_handler(
            [this](const auto& request, auto& response) { return answerEarly(request, response); });
        server.set_logger([this](const auto& request, const auto& response) {
            afterwards_(requestFrom(request, {}), response.status);
        });
        // With a reader of its own: the library's limits the bodies of HTML forms.
        const auto answerWithBody = [this](const auto& request, auto& response,
                                           const httplib::ContentReader& reader) {
            answer(request, readAll(reader, response), response);
        };
        server.Post(".*", answerWithBody);
        server.Put(".*", answerWithBody);
        server.Patch(".*", answerWithBody);
        server.Delete(".*", answerWithBody);
    }

    // What the library would handle otherwise than a gateway does, before it reads a body.
    httplib::Server::HandlerResponse answerEarly(const httplib::Request& request,
                                                 httplib::Response& response) {
        using Response = httplib::Server::HandlerResponse;
        if (request.target.size() > kMaxTarget) {
            response.status = 414;
            return Response::Handled;
        }
        if (request.is_multipart_form_data()) {
            response.status = 415;
            return Response::Handled;
        }
        // The library would take the rest of the connection for the body.
        if (!announcesBody(request)) {
            answer(request, std::string(), response);
            return Response::Handled;
        }
        return Response::Unhandled;
    }

    void answer(const httplib::Request& request, std::optional<std::string> body,
                httplib::Response& response) {
        if (body) fill(response, handler_(requestFrom(request, std::move(*body))));
    }

    Handler handler_;
    Afterwards afterwards_;
    std::unique_ptr<Listening<httplib::Server>> plain_;
    std::unique_ptr<Listening<httplib::SSLServer>> tls_;
    int port_ = 0;
    std::thread acceptor_;
};

HttpServer::HttpServer(Handler handler, Afterwards afterwards, const Options& options,
                       ServerIdentity* identity)
    : impl_(std::make_unique<Impl>(std::move(handler), std::move(afterwards), options, identity)) {}

HttpServer::~HttpServer() {
    stop();
}

bool HttpServer::start() {
    return impl_->start();
}

int HttpServer::port() const {
    return impl_->port();
}

void HttpServer::setCertificate(Certificate certificate) {
    if (impl_->handshake_) impl_->handshake_->setCertificate(certificate);
}

void HttpServer::speakOldTlsOnly(bool on) {
    if (impl_->handshake_) impl_->handshake_->speakOldTlsOnly(on);
}

void HttpServer::stop() {
    impl_->stop();
}

}  // namespace gateway
