#ifndef OAK_NET_HTTP_REQUEST_WINHTTP_H
#define OAK_NET_HTTP_REQUEST_WINHTTP_H

#include "http_exchange.h"
#include "http_transport_winhttp.h"

#include <Oak/Base/Noncopyable.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Oak::Net {

/// Whether a server can be judged by a file of certificates before anything goes out to it: always
/// on Windows, and under Wine until too many servers have failed; see AsyncRequest::StopSending.
bool CanJudgeServers() noexcept;

/// Wakes the thread of an exchange. Shared: a request that was left behind may still set it.
using EventPtr = std::shared_ptr<void>;
EventPtr MakeEvent();

/// One request of the library's, in asynchronous use, with every byte that the library reads or
/// writes for it. What the library's own time-outs leave open the exchange's wait ends: a request
/// that is given up is left behind with its memory, and frees it when the library is done.
///
/// The thread that made it calls its members one after the other; each returns 0 or the number of
/// the failure, the library's or one of http_exchange.h, and none but Close is called after a
/// failure.
class AsyncRequest : private Oak::Base::CNoncopyable {
 public:
    /// `wait` outlives the use of the request by its thread; `event` is what wakes it.
    AsyncRequest(HttpGenerationPtr generation, ExchangeWait& wait, EventPtr event);
    ~AsyncRequest();

    /// `trust`, where it isn't null, is what the server's certificate is judged by before anything
    /// of the request goes out.
    static DWORD Open(const std::shared_ptr<AsyncRequest>& request, const HttpTarget& target,
                      const std::string& method, std::shared_ptr<const CertificateTrust> trust);

    DWORD AddFields(const std::wstring& lines);

    /// Sends head and body. A secret body leaves nothing in memory of ours.
    DWORD Send(std::string_view body, bool bodyIsSecret);

    /// Waits for the head of the answer.
    DWORD Receive();

    /// The next bytes of the body, `most` of them at most, valid until the next call; none at the
    /// body's end. `most` is not 0.
    DWORD Read(std::string_view& piece, std::uint64_t most);

    DWORD Status(DWORD& status) const;
    std::size_t HeadSize() const;  ///< of the answer's head, about, in bytes

    /// The announced length of the body; empty where there is none, and where it doesn't count,
    /// since the body comes in chunks.
    std::wstring ContentLength() const;

    /// Whether a server had to be trusted and none was asked: the answer is a proxy's.
    bool IsWithoutServer() const noexcept { return tls_ && !trusted_.load(); }

    /// Whether it came as far as a connection, TLS included.
    bool WasConnected() const noexcept { return ready_.load(); }

    /// Whether it went out on a connection that had been kept.
    bool OnKeptConnection() const noexcept { return !connectedAnew_.load(); }

    /// Ends the use of the request. Mostly the library is done with it when this returns; where it
    /// is not, the module stays loaded for it.
    void Close() noexcept;

 private:
    static void CALLBACK OnStatus(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID info,
                                  DWORD length) noexcept;

    enum class Verdict { trusted, untrusted, noServerYet };

    DWORD Prepare();
    Verdict Judge(HINTERNET handle) const noexcept;
    void OnSending(HINTERNET handle) noexcept;
    void StopSending() noexcept;
    void DropConnection() noexcept;
    std::wstring Header(DWORD which) const;
    void Complete(DWORD error, DWORD bytes) noexcept;
    DWORD Await(BOOL started);
    bool AwaitClosed() noexcept;
    void CloseHandleOnce() noexcept;
    DWORD SendHead(std::string_view firstPiece, DWORD wholeSize);
    DWORD Write(std::string_view piece);
    char* Keep(std::string_view piece) noexcept;

    static constexpr std::size_t bufferSize = std::size_t{64} * 1024;

    const HttpGenerationPtr generation_;  // first: the handles are children of its sessions
    ExchangeWait& wait_;                  // not for the callbacks
    const ExchangeWait::Clock::time_point connected_;  // name looked up, TLS agreed until then
    const HttpSession* session_ = nullptr;             // one of generation_
    InternetHandlePtr connect_;
    std::atomic<HINTERNET> handle_{nullptr};
    std::shared_ptr<AsyncRequest> self_;  // while the library may call back
    std::shared_ptr<const CertificateTrust> trust_;
    std::wstring host_;
    bool tls_ = false;
    bool callsBack_ = false;
    bool wipe_ = false;
    bool givenUp_ = false;
    const std::unique_ptr<char[]> buffer_;

    // Written by the callbacks; `error_` and `bytes_` before `completed_`, which the waiting thread
    // takes back: one operation is under way at a time.
    const EventPtr event_;
    DWORD error_ = 0;
    DWORD bytes_ = 0;
    std::atomic<bool> completed_{false};
    std::atomic<bool> closed_{false};
    std::atomic<bool> connectedAnew_{false};
    std::atomic<bool> ready_{false};
    std::atomic<bool> trusted_{false};
    std::atomic<bool> untrusted_{false};
};

}  // namespace Oak::Net

#endif
