#ifndef VELTRA_TESTS_WINDOWS_GATEWAYS_H
#define VELTRA_TESTS_WINDOWS_GATEWAYS_H

#include "support/sockets.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

/// The gateways of this run: processes of the machine below wine.
namespace gateways {

/// What the file of that name holds, in the folder of the gateways.
inline std::string Read(const std::string& name) {
    std::ifstream file(VELTRA_GATEWAYS "/" + name, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    if (text.empty()) throw std::runtime_error("no gateway: run the whole of the tests");
    return text;
}

/// Sends one request without a body to a control endpoint of a gateway over HTTP; the whole answer.
inline std::string Control(const std::string& name, const std::string& requestLine) {
    const std::string url = Read(name);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(
        static_cast<unsigned short>(std::strtoul(url.c_str() + url.rfind(':') + 1, nullptr, 10)));
    const TestSupport::Socket socket = TestSupport::NewSocket();
    std::string answer;
    const std::string request = requestLine +
                                " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
                                "Content-Length: 0\r\n\r\n";
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        TestSupport::Send(socket, request.data(), request.size()) > 0) {
        char buffer[4096];
        for (;;) {
            const auto count = TestSupport::Receive(socket, buffer, sizeof buffer);
            if (count <= 0) break;
            answer.append(buffer, static_cast<std::size_t>(count));
        }
    }
    TestSupport::CloseSocket(socket);
    return answer;
}

/// How many calls stall at the gateway of that name.
inline unsigned long Stalled() {
    const std::string state = Control("stalling", "GET /control/state");
    const auto at = state.find("\"stalled\":");
    return at == std::string::npos ? 0 : std::strtoul(state.c_str() + at + 10, nullptr, 10);
}

}  // namespace gateways

#endif
