#pragma once

#include "certificate.h"
#include "gateway.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace gateway {

struct HttpRequest {
    std::string method;
    std::string target;
    Headers headers;
    std::string body;
    int relayPort = 0;
};

struct HttpReply {
    static constexpr std::size_t kWhole = static_cast<std::size_t>(-1);
    Answer answer;
    /// The server closes the connection after so many bytes of a longer body.
    std::size_t bodyLimit = kWhole;
};

/// The HTTP server behind the stage, on a port of 127.0.0.1 that the system picks.
class HttpServer {
 public:
    /// Called on many threads at once.
    using Handler = std::function<HttpReply(HttpRequest)>;
    /// Called when a reply has been written, with what Handler was given, except for the body.
    using Afterwards = std::function<void(const HttpRequest&, int status)>;

    /// The identity, when there is one, must outlive the server.
    HttpServer(Handler handler, Afterwards afterwards, const Options& options,
               ServerIdentity* identity);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    bool start();
    int port() const;
    /// What handshakes show and speak from now on.
    void setCertificate(Certificate certificate);
    void speakOldTlsOnly(bool on);
    /// Returns when the last exchange has ended: the stage must have closed its connections.
    void stop();

 private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace gateway
