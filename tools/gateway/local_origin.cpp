#include "local_origin.h"

#include "header_name.h"

#include <algorithm>
#include <string_view>

namespace gateway {
namespace {

// Digits and dots alone: "127.0.0.1.example" is anybody's name.
bool isLoopbackNumber(std::string_view host) {
    return host.substr(0, 4) == "127." &&
           host.find_first_not_of("0123456789.") == std::string_view::npos;
}

bool isLoopbackHost(std::string_view host) {
    const bool isV6 = !host.empty() && host.front() == '[';
    const auto name = host.substr(0, isV6 ? host.find(']') + 1 : host.find(':'));
    return sameHeaderName(name, "localhost") || name == "[::1]" || isLoopbackNumber(name);
}

bool isOriginOf(std::string_view origin, std::string_view host) {
    const auto slashes = origin.find("//");
    return slashes != origin.npos && origin.substr(slashes + 2) == host;
}

// A link from elsewhere may lead here: what follows it cannot read the answer, and a GET changes
// nothing. Programs other than browsers send neither header.
bool isFromOwnPage(const Request& request, std::string_view host) {
    const bool followsLink =
        request.method == "GET" && request.header("Sec-Fetch-Mode") == "navigate";
    return std::all_of(request.headers.begin(), request.headers.end(), [&](const auto& header) {
        const auto& [name, value] = header;
        if (sameHeaderName(name, "Origin")) return isOriginOf(value, host);
        if (sameHeaderName(name, "Sec-Fetch-Site"))
            return followsLink || value == "same-origin" || value == "none";
        return true;
    });
}

}  // namespace

bool isFromThisMachine(const Request& request) {
    const auto isHost = [](const auto& header) { return sameHeaderName(header.first, "Host"); };
    const auto& headers = request.headers;
    if (std::count_if(headers.begin(), headers.end(), isHost) != 1) return false;
    const auto host = request.header("Host");
    return isLoopbackHost(host) && isFromOwnPage(request, host);
}

}  // namespace gateway
