#include "model_url.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string_view>

namespace gateway {
namespace {

[[noreturn]] void refuse(const char* why) {
    throw std::runtime_error(std::string("the model's URL ") + why);
}

bool isPlain(std::string_view text) {
    for (const char c : text)
        if (c <= ' ' || c >= '\x7f' || std::string_view("@?#\\\"<>").find(c) != text.npos)
            return false;
    return true;
}

bool takePrefix(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix) return false;
    text.remove_prefix(prefix.size());
    return true;
}

int portFrom(std::string_view text) {
    constexpr int kMost = 65535;
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size() || port < 1 || port > kMost)
        refuse("has no port from 1 to 65535 after its colon");
    return port;
}

}  // namespace

ModelUrl parseModelUrl(const std::string& url) {
    if (!isPlain(url)) refuse("has more than scheme, host, port and path");
    std::string_view rest = url;
    ModelUrl made;
    made.tls = takePrefix(rest, "https://");
    if (!made.tls && !takePrefix(rest, "http://")) refuse("must begin with http:// or https://");
    auto authority = rest.substr(0, rest.find('/'));
    made.path = rest.substr(authority.size());
    while (!made.path.empty() && made.path.back() == '/')
        made.path.pop_back();

    const bool isV6 = takePrefix(authority, "[");
    const auto hostEnd = authority.find(isV6 ? ']' : ':');
    if (isV6 && hostEnd == authority.npos) refuse("has no ]");
    made.host = authority.substr(0, hostEnd);
    if (made.host.empty()) refuse("names no host");
    authority.remove_prefix(std::min(authority.size(), made.host.size() + (isV6 ? 1 : 0)));
    constexpr int kHttp = 80;
    constexpr int kHttps = 443;
    made.port = made.tls ? kHttps : kHttp;
    if (takePrefix(authority, ":"))
        made.port = portFrom(authority);
    else if (!authority.empty())
        refuse("has more than a port after its host");
    return made;
}

}  // namespace gateway
