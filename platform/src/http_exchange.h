#ifndef OAK_NET_HTTP_EXCHANGE_H
#define OAK_NET_HTTP_EXCHANGE_H

#include "http_rules.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <optional>
#include <string>

namespace Oak::Net {

// What the client asks of the HTTP library below it. Each of them has its own form of all this.

/// The process-wide part: the options in force, and what is kept between exchanges.
class HttpTransport;

/// Access to the transport for the time of one call. The first one starts it.
///
/// Null when there is nothing to use: in a forked child, whose copies of the locks and connections
/// are the parent's business; once the process or the module is ending; and when there was no
/// memory to start it. Visits are counted, so that the end never frees what a visitor still uses.
/// An exchange under way asks Ending() now and then, and gives up when it says so.
class TransportVisit : private Oak::Base::CNoncopyable {
 public:
    TransportVisit() noexcept;
    ~TransportVisit();

    HttpTransport* Get() const noexcept { return transport_; }

    static bool Ending() noexcept;

 private:
    bool counted_ = false;
    HttpTransport* transport_ = nullptr;
};

/// One exchange on the calling thread. Fills `response`, which may be null, when it returns
/// nothing; otherwise `shown` holds what may be shown of the URL, or nothing where that isn't
/// known.
std::optional<Failure> Exchange(HttpTransport& transport, const CHttpClientRequest& request,
                                CHttpClientResponse* response, std::string& shown);

void SetOptions(HttpTransport& transport, const HttpClientOptions& options);

// Failures that are no library's. The numbers are of those that no system uses.

/// Tells nobody: a forked child may take no lock for a record, and where the process is ending the
/// handler's own world may be gone.
constexpr Failure exchangeEnded{"ended", 0x20000001, "the HTTP client is not available"};
constexpr Failure outOfMemory{"limit", 0x20000002, "no memory"};

}  // namespace Oak::Net

#endif
