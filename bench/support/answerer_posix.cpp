#include "support/answerer.h"
#include "support/identity_openssl.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace bench {
namespace {

int Checked(int result, const char* what) {
    if (result < 0) throw std::runtime_error(what);
    return result;
}

std::string HttpAnswer(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string TokenAnswer(const std::string& url) {
    return std::string(R"({"errorCode":"0","data":{"accessToken":")") + grantedToken +
           R"(","expireTime":"43200","areaDomain":")" + url + R"("}})";
}

/// What the child serves with.
struct Server {
    int socket = -1;
    OpenSslPtr<SSL_CTX> tls;  // empty for http
    std::string tokenAnswer;
    std::string queryAnswer;
};

/// One connection of the child.
class Connection {
 public:
    Connection(const Server& server, int socket) : server_(server), socket_(socket) {
        const int on = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (!server.tls) return;
        tls_.reset(SSL_new(server.tls.get()));
        SSL_set_fd(tls_.get(), socket);
    }
    ~Connection() { close(socket_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Serve() {
        if (tls_ && SSL_accept(tls_.get()) != 1) return;
        while (ReadRequest()) {
            const bool asksForToken = heard_.find("/token/get ") < heard_.find('\r');
            const std::string& answer = asksForToken ? server_.tokenAnswer : server_.queryAnswer;
            heard_.clear();
            if (!Write(answer)) return;
        }
    }

 private:
    /// A request is over when its head is and as many bytes followed as that announced. The clients
    /// of a benchmark send one request at a time, so no byte of the next comes with it.
    bool ReadRequest() {
        std::size_t whole = std::string::npos;
        while (heard_.size() < whole) {
            char buffer[16384];
            const int count = Read(buffer, sizeof buffer);
            if (count <= 0) return false;
            heard_.append(buffer, static_cast<std::size_t>(count));
            if (whole == std::string::npos) whole = WholeLength();
        }
        return true;
    }

    std::size_t WholeLength() const {
        constexpr std::string_view lengthField = "\r\nContent-Length: ";
        const std::size_t headEnd = heard_.find("\r\n\r\n");
        if (headEnd == std::string::npos) return std::string::npos;
        const std::size_t field = heard_.find(lengthField);
        if (field > headEnd) return headEnd + 4;
        return headEnd + 4 + std::strtoul(heard_.c_str() + field + lengthField.size(), nullptr, 10);
    }

    int Read(char* buffer, std::size_t size) {
        if (tls_) return SSL_read(tls_.get(), buffer, static_cast<int>(size));
        return static_cast<int>(recv(socket_, buffer, size, 0));
    }

    /// One answer fits the socket's buffer: a short write means that the client has gone.
    bool Write(const std::string& bytes) {
        const int size = static_cast<int>(bytes.size());
        if (tls_) return SSL_write(tls_.get(), bytes.data(), size) == size;
        return send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == size;
    }

    const Server& server_;
    const int socket_;
    OpenSslPtr<SSL> tls_;
    std::string heard_;
};

void AcceptForEver(const Server& server) {
    for (;;) {
        const int socket = accept(server.socket, nullptr, nullptr);
        if (socket < 0) continue;
        std::thread([&server, socket] { Connection(server, socket).Serve(); }).detach();
    }
}

/// The child's whole life: until the parent closes the pipe, by its end if nothing else.
[[noreturn]] void RunChild(const Server& server, int life) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);  // from a terminal it comes to both; the parent's end is ours
    std::thread([&server] { AcceptForEver(server); }).detach();
    char nothing = 0;
    while (read(life, &nothing, 1) > 0) {
    }
    _exit(0);
}

std::uint16_t Listen(int socket) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    Checked(bind(socket, general, size), "bind");
    Checked(listen(socket, SOMAXCONN), "listen");
    Checked(getsockname(socket, general, &size), "getsockname");
    return ntohs(address.sin_port);
}

std::string WriteToNewFile(const std::string& text) {
    char name[] = "/tmp/veltra-bench-ca-XXXXXX";
    const int file = Checked(mkstemp(name), "mkstemp");
    close(file);
    std::ofstream(name) << text;
    return name;
}

}  // namespace

std::string QueryAnswer(std::size_t bodyBytes) {
    const std::string head = R"({"errorCode":"0","message":"","data":{"resultStr":")";
    const std::string tail = R"("}})";
    constexpr std::string_view sentence = "The model's answer, as plain English text goes. ";
    std::string body = head;
    while (body.size() + tail.size() < bodyBytes)
        body += sentence.substr(0, bodyBytes - tail.size() - body.size());
    return body + tail;
}

Answerer::Answerer(Scheme scheme, std::size_t bodyBytes) {
    Server server;
    server.socket = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    const std::uint16_t port = Listen(server.socket);
    const bool tls = scheme == Scheme::https;
    url_ = (tls ? "https" : "http") + std::string("://127.0.0.1:") + std::to_string(port);
    server.tokenAnswer = HttpAnswer(TokenAnswer(url_));
    server.queryAnswer = HttpAnswer(QueryAnswer(bodyBytes));
    if (tls) {
        std::string authority;
        server.tls = MakeServerTls(authority);
        caFile_ = WriteToNewFile(authority);
    }
    int ends[2];
    Checked(pipe2(ends, O_CLOEXEC), "pipe");
    child_ = Checked(fork(), "fork");
    if (child_ == 0) {
        close(ends[1]);
        RunChild(server, ends[0]);
    }
    close(ends[0]);
    close(server.socket);
    life_ = ends[1];
}

Answerer::~Answerer() {
    close(life_);
    waitpid(child_, nullptr, 0);
    if (!caFile_.empty()) unlink(caFile_.c_str());
}

}  // namespace bench
