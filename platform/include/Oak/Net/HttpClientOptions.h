#ifndef OAK_NET_HTTPCLIENTOPTIONS_H
#define OAK_NET_HTTPCLIENTOPTIONS_H

#include <Oak/Base/Export.h>

#include <cstdint>
#include <string>

/// The platform services below the library.
namespace Oak {

/// The HTTP client.
namespace Net {

/// Limits, trust and proxy of every exchange with the gateway and with object storage.
///
/// A plain value: fill one in and hand it to `SetHttpClientOptions`. Nothing is checked there: a
/// proxy or file that is of no use makes the exchanges fail, each with a log record. Times above
/// 2147483647 (24 days) count as that.
struct HttpClientOptions {
    /// Longest time to reach the server, TLS handshake included, in milliseconds. 0 means the
    /// default, 10 seconds: no exchange is without a limit.
    std::uint32_t connectTimeoutMs = 10000;

    /// Longest time of a whole exchange, in milliseconds. 0 means the default, 2 minutes. It is
    /// also what bounds the wait for an exchange under way when the monitor thread is stopped.
    /// Only a name lookup can outlast it, by what the system's resolver takes: it can't be cut
    /// short, and no thread is left behind for it.
    std::uint32_t totalTimeoutMs = 120000;

    /// Largest response body that is accepted, in bytes; a longer one fails the exchange. 0 means
    /// the default, 64 MiB.
    std::uint64_t maxResponseBytes = 64ULL * 1024 * 1024;

    /// File with the trusted certificates in PEM form, in place of the system's: for the gateway,
    /// for object storage, and for a proxy that is itself reached over https. Empty: the system's.
    std::string caFile;

    /// Proxy, as a URL such as "http://proxy.example:3128". "direct": none. Empty: the platform's
    /// own setting. On Linux that is the usual environment variables, which the HTTP library below
    /// reads at each exchange: `https_proxy` for an https URL, `http_proxy` for an http one, where
    /// that isn't set `all_proxy`, and no proxy for the hosts of `no_proxy`; upper case will do for
    /// all but `http_proxy`. On Windows it is the system's proxy settings, and a URL given here is
    /// an http one without a user part: with any other the exchanges fail. With a proxy given here
    /// none of the platform's settings counts. An exchange with a loopback address never goes
    /// through a proxy, whatever is set.
    std::string proxy;

    /// Allows plain http to addresses other than loopback. Without it such a request is refused:
    /// anyone on the network path could read the token, or a picture. It concerns the gateway's
    /// and the storage's URLs, not the proxy's.
    bool allowPlainHttp = false;
};

/// Makes `options` valid for every exchange that begins after the call; one under way keeps the
/// options it began with. Connections made under earlier options are not used again.
///
/// Any thread may call it at any time; it doesn't block on an exchange, and throws only when memory
/// can't be allocated. The layer itself never calls it. In a child forked from a process that uses
/// the library, and while the process ends, it does nothing.
///
/// @param options  the options, which are copied; they replace all those before
OAK_API void SetHttpClientOptions(const HttpClientOptions& options);

}  // namespace Net
}  // namespace Oak

#endif
