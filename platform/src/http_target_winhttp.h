#ifndef OAK_NET_HTTP_TARGET_WINHTTP_H
#define OAK_NET_HTTP_TARGET_WINHTTP_H

#include <cstdint>
#include <optional>
#include <string>

namespace Oak::Net {

/// A URL as the exchange uses it: taken apart once, judged on its parts, and handed to the library
/// in these parts, so that no second reader can see another host in it.
struct HttpTarget {
    bool tls = false;       ///< https
    std::string host;       ///< as written, an IPv6 address in brackets
    std::uint16_t port{};   ///< the one written, or that of the scheme
    std::string object;     ///< path and query, byte for byte; "/" where there is no path
    bool loopback = false;  ///< a literal of 127.0.0.0/8, ::1, or localhost
    bool byName = false;    ///< loopback by the name alone: ask what it resolves to
    std::string shown;      ///< scheme, host, port and path: what a log record may show
};

/// The target that `text` names; nothing unless it is an absolute http or https URL of visible
/// ASCII. Refused as well are a user part, an escaped host, and a number in place of an address:
/// readers of one text would differ on where those lead.
std::optional<HttpTarget> ParseHttpTarget(const std::string& text);

/// Whether a host name resolves to addresses of this machine only; nothing where it has none.
std::optional<bool> ResolvesToLoopback(const std::string& host);

}  // namespace Oak::Net

#endif
