#include "http_target_winhttp.h"

#include "http_rules.h"
#include "system_winhttp.h"

#include <Oak/Base/Noncopyable.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>

namespace Oak::Net {
namespace {

constexpr std::string_view digits = "0123456789";
constexpr std::string_view nameMarks =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";

bool IsLoopback(const in_addr& address) noexcept {
    return (ntohl(address.s_addr) >> 24U) == 127U;
}

bool IsLoopback(const in6_addr& address) noexcept {
    return std::memcmp(&address, &in6addr_loopback, sizeof address) == 0;
}

bool IsLoopback(const sockaddr& address) noexcept {
    if (address.sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, &address, sizeof four);
        return IsLoopback(four.sin_addr);
    }
    if (address.sa_family != AF_INET6) return false;
    sockaddr_in6 six{};
    std::memcpy(&six, &address, sizeof six);
    return IsLoopback(six.sin6_addr);
}

/// Started for one look-up: when the module goes it may not be ended any more.
struct Sockets : private Oak::Base::CNoncopyable {
    Sockets() noexcept : started(WSAStartup(MAKEWORD(2, 2), &data) == 0) {}
    ~Sockets() {
        if (started) WSACleanup();
    }

    WSADATA data{};
    const bool started;
};

/// Above ASCII there is no byte: the library takes wide text, and what it would make of others
/// differs from version to version.
bool IsVisibleAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < '\x7f'; });
}

/// Cuts `text` before the first of `marks` and returns what came before.
std::string_view TakeUntil(std::string_view& text, std::string_view marks) {
    const std::string_view taken = text.substr(0, text.find_first_of(marks));
    text.remove_prefix(taken.size());
    return taken;
}

bool SetHost(HttpTarget& target, std::string_view host) {
    target.host = host;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        in6_addr six{};
        const std::string address(host.substr(1, host.size() - 2));
        if (inet_pton(AF_INET6, address.c_str(), &six) != 1) return false;
        target.loopback = IsLoopback(six);
        return true;
    }
    if (host.empty() || host.find_first_not_of(nameMarks) != std::string_view::npos) return false;
    in_addr four{};
    if (inet_pton(AF_INET, target.host.c_str(), &four) == 1) {
        target.loopback = IsLoopback(four);
        return true;
    }
    target.byName = target.loopback = SameName(host, "localhost");
    // `127.1`, `0x7f.1` and `2130706433` are addresses to some: no name ends in such a label.
    const std::string_view last = host.substr(host.find_last_of('.', host.size() - 2) + 1);
    return !last.empty() && digits.find(last.front()) == std::string_view::npos;
}

/// Takes an empty port, too, as the one of the scheme.
bool SetPort(HttpTarget& target, std::string_view colonAndPort) {
    target.port = target.tls ? 443 : 80;
    if (colonAndPort.size() <= 1) return colonAndPort.empty() || colonAndPort == ":";
    const std::string_view port = colonAndPort.substr(1);
    const char* const end = port.data() + port.size();
    const auto [stop, error] = std::from_chars(port.data(), end, target.port);
    return colonAndPort.front() == ':' && error == std::errc() && stop == end && target.port != 0;
}

bool SetAuthority(HttpTarget& target, std::string_view authority) {
    const auto bracket = authority.rfind(']');
    const auto colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
    return SetHost(target, authority.substr(0, colon)) &&
           SetPort(target, colon == std::string_view::npos ? "" : authority.substr(colon));
}

}  // namespace

std::optional<HttpTarget> ParseHttpTarget(const std::string& text) {
    if (!IsVisibleAscii(text)) return std::nullopt;
    HttpTarget target;
    std::string_view rest = text;
    const std::string_view scheme = TakeUntil(rest, ":");
    target.tls = SameName(scheme, "https");
    if ((!target.tls && !SameName(scheme, "http")) || rest.substr(0, 3) != "://")
        return std::nullopt;
    rest.remove_prefix(3);
    const std::string_view authority = TakeUntil(rest, "/?#");
    if (!SetAuthority(target, authority)) return std::nullopt;
    const std::string_view object = TakeUntil(rest, "#");
    target.object = object.substr(0, 1) == "/" ? "" : "/";
    target.object += object;
    target.shown = target.tls ? "https://" : "http://";
    target.shown += authority;
    target.shown += target.object.substr(0, target.object.find('?'));
    return target;
}

std::optional<bool> ResolvesToLoopback(const std::string& host) {
    const Sockets sockets;
    addrinfo* found = nullptr;
    if (!sockets.started || getaddrinfo(host.c_str(), nullptr, nullptr, &found) != 0)
        return std::nullopt;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
    for (const addrinfo* each = found; each != nullptr; each = each->ai_next)
        if (!IsLoopback(*each->ai_addr)) return false;
    return true;
}

}  // namespace Oak::Net
