#ifndef OAK_NET_HTTP_TRANSPORT_CURL_H
#define OAK_NET_HTTP_TRANSPORT_CURL_H

#include "curl_handle.h"
#include "http_target_curl.h"

#include <Oak/Base/Noncopyable.h>
#include <Oak/Net/HttpClientOptions.h>

#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Oak::Net {

/// What all exchanges between two calls of SetHttpClientOptions have in common.
struct HttpGeneration : private Oak::Base::CNoncopyable {
    /// A limit of 0 is replaced by its default.
    explicit HttpGeneration(const HttpClientOptions& wanted);

    const HttpClientOptions options;
    const CurlShare share;
};

using HttpGenerationPtr = std::shared_ptr<const HttpGeneration>;

/// A handle of the pool, bound to its generation.
struct PooledHandle {
    explicit PooledHandle(const HttpGenerationPtr& owner)
        : generation(owner), curl(owner->share.Get()) {}

    bool Serves(const std::string& url) const {
        return target.url != nullptr && target.text == url;
    }

    HttpGenerationPtr generation;  // first: the share in it outlives the handle
    /// Where `curl` is set up to go; empty when it is not set up. Before it: `curl` points here.
    HttpTarget target;
    CurlHandle curl;
    std::chrono::steady_clock::time_point idleSince;
    std::thread::id lastUser;  ///< a hint: the system hands ids out again
};

/// A list, since a handle then changes hands without memory being allocated: no answer is lost for
/// lack of memory once it has arrived.
using HandleList = std::list<PooledHandle>;

/// What one look at the pool gives to an exchange.
struct HttpLease {
    HttpGenerationPtr generation;  ///< that of the moment
    HandleList handle;             ///< one of that generation, or none
};

/// The HTTP and TLS libraries, started for as long as this lives.
struct CurlLibrary : private Oak::Base::CNoncopyable {
    CurlLibrary() noexcept;
    ~CurlLibrary();

    const bool started;
    bool usable = false;       ///< started, and not too old
    bool hasTls = false;       ///< built with TLS
    bool hasProxyTls = false;  ///< built with TLS on the way to a proxy
};

/// The process-wide part of the client: the library below, the options, the pool of idle handles.
/// Any thread may call any member at any time. No lock is held while a handle is made or closed.
class HttpTransport : private Oak::Base::CNoncopyable {
 public:
    static constexpr std::size_t maxIdleHandles = 32;
    static constexpr std::chrono::seconds maxIdleTime{60};

    HttpTransport();

    const CurlLibrary& Library() const noexcept { return library_; }

    void SetOptions(const HttpClientOptions& options);

    /// From now on the options are these, but nothing that this generation remembers is used.
    void Forget(const HttpGenerationPtr& generation);

    /// An idle handle that is set up for `url`, if there is one: the one that this thread used
    /// last, since the thread that serves its connection is mostly near; or the newest.
    HttpLease Take(const std::string& url);

    /// A list of one handle of this generation, set up for anything or nothing: an idle one, chosen
    /// in the same way; or a new one.
    HandleList TakeAny(const HttpGenerationPtr& generation);

    /// Takes back a handle whose exchange ended well, with nothing of it left there. After any
    /// other end the caller destroys it: nobody knows what its connections still carry.
    void GiveBack(HandleList handle) noexcept;

 private:
    template <class WillDo>
    HttpLease TakeIdle(WillDo willDo);
    template <class WillDo>
    HandleList::iterator FindOwnFirst(WillDo willDo);
    void Replace(HttpGenerationPtr generation, const HttpGeneration* replaced);
    void RemoveAgedInto(HandleList& aged,
                        std::chrono::steady_clock::time_point now) noexcept;  // mutex_ is held

    const CurlLibrary library_;  // first: started before, ended after all that uses it
    std::mutex mutex_;
    HttpGenerationPtr current_;  // guarded by mutex_
    HandleList idle_;            // guarded by mutex_; newest first, all of current_
};

}  // namespace Oak::Net

#endif
