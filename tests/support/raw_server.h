#ifndef TESTS_SUPPORT_RAW_SERVER_H
#define TESTS_SUPPORT_RAW_SERVER_H

#include "support/sockets.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace TestSupport {

/// A server on 127.0.0.1 that says byte for byte what its script tells it, right or wrong, and
/// keeps what it heard. The script runs once a connection, on a thread of its own; the connection
/// ends with it.
class RawServer {
 public:
    /// One connection, as the script sees it.
    class Peer {
     public:
        Peer(RawServer& server, Socket socket) : server_(server), socket_(socket) {}

        /// The next request, head and body (by Content-Length); empty at the end of the connection.
        std::string ReadRequest() {
            std::size_t whole = std::string::npos;
            while (heard_.size() < whole) {
                char buffer[16384];
                const auto count = Receive(socket_, buffer, sizeof buffer);
                if (count <= 0) return {};
                heard_.append(buffer, static_cast<std::size_t>(count));
                if (whole == std::string::npos) whole = WholeLength();
            }
            std::string request = heard_.substr(0, whole);
            heard_.erase(0, whole);
            server_.Keep(request);
            return request;
        }

        /// False once the other side has hung up.
        bool Write(std::string_view bytes) {
            while (!bytes.empty()) {
                const auto count = Send(socket_, bytes.data(), bytes.size());
                if (count <= 0) return false;
                bytes.remove_prefix(static_cast<std::size_t>(count));
            }
            return true;
        }

     private:
        friend class RawServer;

        std::size_t WholeLength() const {
            const auto end = heard_.find("\r\n\r\n");
            if (end == std::string::npos) return end;
            const auto field = heard_.find("\r\nContent-Length: ");
            if (field > end) return end + 4;
            return end + 4 + std::strtoul(heard_.c_str() + field + 18, nullptr, 10);
        }

        void Close() {
            const std::lock_guard lock(server_.mutex_);
            CloseSocket(socket_);
            socket_ = noSocket;
        }

        RawServer& server_;
        Socket socket_;
        std::string heard_;
        std::thread thread_;
    };

    using Script = std::function<void(Peer&)>;

    explicit RawServer(Script script) : script_(std::move(script)) {
        acceptor_ = std::thread([this] { Accept(); });
    }

    /// Cuts every connection and waits for the scripts.
    ~RawServer() {
        stopping_.store(true);
        Wake();
        acceptor_.join();
        CloseSocket(listener_);
        {
            const std::lock_guard lock(mutex_);
            for (auto& peer : peers_)
                if (peer.socket_ != noSocket) CutSocket(peer.socket_);
        }
        for (auto& peer : peers_)
            peer.thread_.join();
    }

    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    /// Answers every request of every connection with the same bytes.
    static Script Always(std::string answer) {
        return [answer = std::move(answer)](Peer& peer) {
            while (!peer.ReadRequest().empty())
                peer.Write(answer);
        };
    }

    std::string Authority() const {
        return "127.0.0.1:" + std::to_string(ntohs(address_.sin_port));
    }
    std::string Url(const std::string& path = "/") const { return "http://" + Authority() + path; }

    std::size_t Connections() const {
        const std::lock_guard lock(mutex_);
        return peers_.size();
    }
    std::vector<std::string> Requests() const {
        const std::lock_guard lock(mutex_);
        return requests_;
    }

 private:
    /// A connection of our own: there is no other way on every system to have accept() return.
    void Wake() const {
        const Socket socket = NewSocket();
        static_cast<void>(
            connect(socket, reinterpret_cast<const sockaddr*>(&address_), sizeof address_));
        CloseSocket(socket);
    }

    void Accept() {
        for (;;) {
            const Socket socket = accept(listener_, nullptr, nullptr);
            if (stopping_.load()) CloseSocket(socket);
            if (stopping_.load() || socket == noSocket) return;
            const std::lock_guard lock(mutex_);
            Peer& peer = peers_.emplace_back(*this, socket);
            peer.thread_ = std::thread([this, &peer] {
                script_(peer);
                peer.Close();
            });
        }
    }

    void Keep(const std::string& request) {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
    }

    const Script script_;
    const Socket listener_ = NewSocket();
    const sockaddr_in address_ = Listen(listener_, 128);
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::list<Peer> peers_;
    std::thread acceptor_;
};

}  // namespace TestSupport

#endif
