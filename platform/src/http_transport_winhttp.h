#ifndef OAK_NET_HTTP_TRANSPORT_WINHTTP_H
#define OAK_NET_HTTP_TRANSPORT_WINHTTP_H

#include "certificate_winhttp.h"
#include "http_target_winhttp.h"
#include "system_winhttp.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Net/HttpClientOptions.h>

#include <memory>
#include <mutex>
#include <string>

namespace Oak::Net {

struct InternetHandleDeleter {
    void operator()(HINTERNET handle) const noexcept { WinHttpCloseHandle(handle); }
};
using InternetHandlePtr = std::unique_ptr<void, InternetHandleDeleter>;

/// A session of the library's.
struct HttpSession {
    InternetHandlePtr handle;
    /// Whether no other session of the process uses the connections that this one keeps. Older
    /// systems can't be told so.
    bool ownsConnections = false;
    bool mayUseProxy = false;
};

/// What all exchanges between two calls of SetHttpClientOptions have in common.
class HttpGeneration : private Oak::Base::CNoncopyable {
 public:
    /// A limit of 0 is replaced by its default.
    explicit HttpGeneration(const HttpClientOptions& wanted);

    const HttpClientOptions options;

    /// The session for a target; null where there is none: the library failed, or the proxy that
    /// the options name is of no use.
    const HttpSession* SessionFor(const HttpTarget& target) const noexcept;

    /// What is trusted in place of the system's certificates, from `options.caFile`. The file is
    /// read when it is first needed, and again while it is of no use: null then.
    std::shared_ptr<const CertificateTrust> Trust() const;

 private:
    const HttpSession direct_;
    const HttpSession proxied_;  // no handle where the options say "direct"
    mutable std::mutex mutex_;
    mutable std::shared_ptr<const CertificateTrust> trust_;  // guarded by mutex_
};

using HttpGenerationPtr = std::shared_ptr<const HttpGeneration>;

/// The process-wide part of the client: the options and the sessions made for them. Any thread may
/// call any member at any time.
class HttpTransport : private Oak::Base::CNoncopyable {
 public:
    HttpTransport();

    void SetOptions(const HttpClientOptions& options);
    HttpGenerationPtr Generation() const;

 private:
    mutable std::mutex mutex_;
    HttpGenerationPtr current_;  // guarded by mutex_
};

/// A call of the library's into this module, made at its beginning: an unload waits for its end.
/// The visitor that the call woke may have returned to a host by then, which unloads at once.
class CallbackVisit : private Oak::Base::CNoncopyable {
 public:
    CallbackVisit() noexcept;
    ~CallbackVisit();
};

}  // namespace Oak::Net

#endif
