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
/// A plain value: fill it in and pass it to `SetHttpClientOptions`, which checks nothing: a proxy
/// or file that can't work makes the exchanges fail, each with a log record. Times above 2147483647
/// (24 days) are treated as that value.
struct HttpClientOptions {
    /// Longest time to reach the server, TLS handshake included, in milliseconds. 0 means the
    /// default, 10 seconds: no exchange is without a limit.
    std::uint32_t connectTimeoutMs = 10000;

    /// Longest time of a whole exchange, in milliseconds. 0 means the default, 2 minutes. When the
    /// monitor thread is stopped, it also limits the wait for its current exchange. Only a name
    /// lookup can exceed it, by however long the system's resolver takes: it can't be interrupted,
    /// and no thread is left behind for it.
    std::uint32_t totalTimeoutMs = 120000;

    /// Largest response body that is accepted, in bytes; a longer one fails the exchange. 0 means
    /// the default, 64 MiB.
    std::uint64_t maxResponseBytes = 64ULL * 1024 * 1024;

    /// File with the trusted certificates in PEM form, used in place of the system's: for the
    /// gateway, for object storage, and for a proxy that is itself reached over https. Empty: the
    /// system's.
    std::string caFile;

    /// Proxy, as a URL such as "http://proxy.example:3128". "direct": none. Empty: the platform's
    /// own settings. On Linux these are the usual environment variables, read by the HTTP library
    /// at each exchange: `https_proxy` for an https URL, `http_proxy` for an http one, `all_proxy`
    /// if that isn't set, and no proxy for the hosts in `no_proxy`; all but `http_proxy` may also
    /// be in upper case. On Windows they are the system's proxy settings, and a URL given here must
    /// be an http one without a user part: with any other the exchanges fail. A proxy given here
    /// overrides all of the platform's settings. An exchange with a loopback address never goes
    /// through a proxy, whatever is set.
    std::string proxy;

    /// Allows plain http to addresses other than loopback. Otherwise such a request is refused,
    /// since anyone on the network path could read the token or a picture. It concerns the URLs of
    /// the gateway and of object storage, not the proxy's.
    bool allowPlainHttp = false;
};

/// Makes `options` valid for every exchange that begins after the call; one under way keeps the
/// options it began with. Connections made under earlier options are not reused.
///
/// Any thread may call it at any time; it doesn't wait for exchanges, and throws only when memory
/// can't be allocated. The layer itself never calls it. In a child forked from a process that uses
/// the library, and while the process ends, it does nothing.
///
/// @param options  the options, which are copied; they replace all earlier ones
OAK_API void SetHttpClientOptions(const HttpClientOptions& options);

}  // namespace Net
}  // namespace Oak

#endif
