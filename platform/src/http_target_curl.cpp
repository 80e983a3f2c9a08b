#include "http_target_curl.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Oak::Net {
namespace {

bool IsLoopback(const in_addr& address) noexcept {
    return (ntohl(address.s_addr) >> 24U) == 127U;
}

bool IsLoopback(const in6_addr& address) noexcept {
    return std::memcmp(&address, &in6addr_loopback, sizeof address) == 0;
}

bool EqualsIgnoringCase(std::string_view text, std::string_view lowerCase) {
    return std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                      [](char a, char b) {
                          return (a >= 'A' && a <= 'Z' ? static_cast<char>(a | 0x20) : a) == b;
                      });
}

/// `host` as it stands in a URL, an IPv6 address in brackets. inet_pton takes full dotted quads
/// only, no octal and no shortened form.
bool IsLoopbackHost(std::string_view host) {
    if (EqualsIgnoringCase(host, "localhost")) return true;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        in6_addr six{};
        const std::string text(host.substr(1, host.size() - 2));
        return inet_pton(AF_INET6, text.c_str(), &six) == 1 && IsLoopback(six);
    }
    in_addr four{};
    return inet_pton(AF_INET, std::string(host).c_str(), &four) == 1 && IsLoopback(four);
}

/// The host as the text spells it, cut out by eye; only ever used to refuse what the parser took.
std::string_view WrittenHost(std::string_view text) {
    std::string_view authority = text.substr(text.find("://") + 3);
    authority = authority.substr(0, authority.find_first_of("/?#\\"));
    if (const auto at = authority.rfind('@'); at != std::string_view::npos)
        authority.remove_prefix(at + 1);
    const auto colon = authority.rfind(':');
    const auto bracket = authority.rfind(']');
    const bool hasPort =
        colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket);
    return hasPort ? authority.substr(0, colon) : authority;
}

bool HasForbiddenByte(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= 0x20 || byte == 0x7f;
    });
}

/// The library also takes `http:host` and `http:///host`; an absolute URL has two slashes.
bool HasAuthority(std::string_view text) {
    const auto slashes = text.find("://");
    return slashes != std::string_view::npos && slashes + 3 < text.size() &&
           text[slashes + 3] != '/';
}

std::string Part(const CurlUrlPtr& url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return {};
    const CurlTextPtr owner(text);
    return text;
}

}  // namespace

std::optional<HttpTarget> ParseHttpTarget(const std::string& text) {
    if (HasForbiddenByte(text) || !HasAuthority(text)) return std::nullopt;
    HttpTarget target;
    target.url.reset(curl_url());
    // Without CURLU_PATH_AS_IS a signed upload URL with dots in its path would lose its signature.
    // Schemes are judged below, by us: what the library supports varies with its build.
    constexpr unsigned flags = CURLU_PATH_AS_IS | CURLU_NON_SUPPORT_SCHEME;
    if (!target.url ||
        curl_url_set(target.url.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK)
        return std::nullopt;

    const std::string scheme = Part(target.url, CURLUPART_SCHEME);
    const std::string host = Part(target.url, CURLUPART_HOST);
    if ((scheme != "http" && scheme != "https") || host.empty()) return std::nullopt;
    const std::string port = Part(target.url, CURLUPART_PORT);
    target.text = text;
    target.tls = scheme == "https";
    target.loopback = IsLoopbackHost(host);
    target.plainlyLoopback = target.loopback && IsLoopbackHost(WrittenHost(text));
    target.shown =
        scheme + "://" + host + (port.empty() ? "" : ":" + port) + Part(target.url, CURLUPART_PATH);
    return target;
}

bool IsLoopback(const curl_sockaddr& address) noexcept {
    // Copied out: the library's record is a sockaddr by name only, of another length and alignment.
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&address.addr);
    if (address.family == AF_INET && address.addrlen >= sizeof(sockaddr_in)) {
        sockaddr_in four{};
        std::memcpy(&four, bytes, sizeof four);
        return IsLoopback(four.sin_addr);
    }
    if (address.family == AF_INET6 && address.addrlen >= sizeof(sockaddr_in6)) {
        sockaddr_in6 six{};
        std::memcpy(&six, bytes, sizeof six);
        return IsLoopback(six.sin6_addr);
    }
    return false;
}

}  // namespace Oak::Net
