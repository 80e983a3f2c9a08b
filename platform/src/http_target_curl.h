#ifndef OAK_NET_HTTP_TARGET_CURL_H
#define OAK_NET_HTTP_TARGET_CURL_H

#include "curl_handle.h"

#include <optional>
#include <string>

namespace Oak::Net {

/// A URL as the exchange uses it: parsed once, judged on what was parsed, and handed to the
/// library in that form, so that no second parser can see another host in it.
struct HttpTarget {
    std::string text;  ///< what was parsed
    CurlUrlPtr url;
    bool tls = false;       ///< https
    bool loopback = false;  ///< the host is this machine: 127.0.0.0/8, ::1 or localhost
    /// The text spells that host in the plain way, too: not `127.1`, `0x7f.1` or `%6cocalhost`,
    /// which other readers of the same text could take for something else.
    bool plainlyLoopback = false;
    std::string shown;  ///< scheme, host, port and path: what a log record may show
};

/// The target that `text` names; nothing unless it is an absolute http or https URL, free of
/// spaces and control characters.
std::optional<HttpTarget> ParseHttpTarget(const std::string& text);

/// Whether a socket address is of 127.0.0.0/8 or ::1.
bool IsLoopback(const curl_sockaddr& address) noexcept;

}  // namespace Oak::Net

#endif
