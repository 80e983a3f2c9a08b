#ifndef OAK_NET_CURL_HANDLE_H
#define OAK_NET_CURL_HANDLE_H

#include "http_exchange.h"

#include <Oak/Base/Noncopyable.h>

#include <curl/curl.h>
#include <poll.h>

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <vector>

namespace Oak::Net {

struct CurlDeleter {
    void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
    void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
    /// Overwrites the texts first: one of them is the token.
    void operator()(curl_slist* list) const noexcept;
    void operator()(char* text) const noexcept { curl_free(text); }
};

// Apart from the above: CURL, CURLSH and CURLM are all void.
struct CurlShareDeleter {
    void operator()(CURLSH* share) const noexcept { curl_share_cleanup(share); }
};

struct CurlMultiDeleter {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
};

using CurlEasyPtr = std::unique_ptr<CURL, CurlDeleter>;
using CurlUrlPtr = std::unique_ptr<CURLU, CurlDeleter>;
using CurlListPtr = std::unique_ptr<curl_slist, CurlDeleter>;
using CurlTextPtr = std::unique_ptr<char, CurlDeleter>;
using CurlSharePtr = std::unique_ptr<CURLSH, CurlShareDeleter>;
using CurlMultiPtr = std::unique_ptr<CURLM, CurlMultiDeleter>;

/// Names that were looked up and TLS sessions to resume, for all handles of one generation. Never
/// connections: the library can't share those between threads.
class CurlShare : private Oak::Base::CNoncopyable {
 public:
    CurlShare();

    /// Null when there was no memory for it: handles then simply keep their own data.
    CURLSH* Get() const noexcept { return share_.get(); }

 private:
    static void Lock(CURL* easy, curl_lock_data kind, curl_lock_access access,
                     void* share) noexcept;
    static void Unlock(CURL* easy, curl_lock_data kind, void* share) noexcept;

    std::array<std::mutex, CURL_LOCK_DATA_LAST> locks_;
    CurlSharePtr share_;  // destroyed before the locks, which its end still takes
};

/// One easy handle with its connections; serves one thread at a time.
class CurlHandle : private Oak::Base::CNoncopyable {
 public:
    /// `share` outlives the handle. Throws std::bad_alloc when the library gives no handle.
    explicit CurlHandle(CURLSH* share);

    /// Sets one option. The first failure is kept, and `Perform` returns it, so that a list of
    /// options needs no test after each.
    template <typename Value>
    CurlHandle& Set(CURLoption option, Value value) noexcept {
        static_assert(std::is_same_v<Value, long> || std::is_same_v<Value, curl_off_t> ||
                          std::is_pointer_v<Value> || std::is_null_pointer_v<Value>,
                      "the library reads the argument with exactly the option's type");
        if (setUp_ == CURLE_OK) setUp_ = curl_easy_setopt(easy_.get(), option, value);
        return *this;
    }

    /// Performs the exchange that was set up; the setters' failure, if there was one. An exchange
    /// that `wait` ends, CURLE_ABORTED_BY_CALLBACK, leaves the handle of no further use.
    CURLcode Perform(ExchangeWait& wait) noexcept;

    /// Wakes the wait of the handle's exchange. Any thread may call it while the handle lives.
    static void Wake(void* handle) noexcept;

    /// Whether the last exchange came as far as a connection, TLS included.
    bool WasConnected() const noexcept;

    /// What the library said of its last failure; empty if it said nothing.
    const char* Words() const noexcept { return words_.data(); }

    /// The status of the answer; 0 without one.
    long Status() const noexcept;

    /// Asked while an exchange ends, from within its progress callback: bytes beyond the answer lie
    /// in the TLS library, where the next exchange would take them for its own answer.
    bool TlsHoldsBytes() const noexcept;

    /// Remembers the connection that the last exchange has left open. False when it can't, for lack
    /// of memory.
    bool NoteConnection() noexcept;

    /// Whether one of its connections has something to read while nothing is under way: its end, or
    /// bytes that nobody asked for, which the library would take for the answer of the next
    /// exchange.
    bool HasStrayInput() noexcept;

    /// Forgets all options, and with them every pointer into a request or to a target; keeps the
    /// connections.
    void Reset() noexcept;

    /// The same, and nothing stays of what the library itself keeps of an exchange, such as the
    /// parts of its URL; without memory no more than `Reset` does.
    void Renew() noexcept;

 private:
    void SetLasting() noexcept;
    CURLcode Drive(ExchangeWait& wait) noexcept;
    static int CloseSocket(void* handle, curl_socket_t socket) noexcept;

    std::vector<pollfd> connections_;  // first: the end of the others closes them
    CurlEasyPtr easy_;
    CurlMultiPtr multi_;  // holds the connections; null for lack of memory
    curl_socket_t used_ = CURL_SOCKET_BAD;
    CURLSH* share_;
    CURLcode setUp_ = CURLE_OK;
    std::array<char, CURL_ERROR_SIZE> words_{};
};

}  // namespace Oak::Net

#endif
