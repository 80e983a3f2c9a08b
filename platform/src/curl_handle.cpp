#include "curl_handle.h"

#include <Oak/Base/Wipe.h>

#include <openssl/ssl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

namespace Oak::Net {

void CurlDeleter::operator()(curl_slist* list) const noexcept {
    for (const curl_slist* line = list; line != nullptr; line = line->next)
        Oak::Base::Wipe(line->data, std::strlen(line->data));
    curl_slist_free_all(list);
}

CurlShare::CurlShare() : share_(curl_share_init()) {
    if (share_ == nullptr) return;
    curl_share_setopt(share_.get(), CURLSHOPT_USERDATA, this);
    curl_share_setopt(share_.get(), CURLSHOPT_LOCKFUNC, &CurlShare::Lock);
    curl_share_setopt(share_.get(), CURLSHOPT_UNLOCKFUNC, &CurlShare::Unlock);
    // What can't be shared (no TLS in the library, say) stays with each handle.
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

void CurlShare::Lock(CURL*, curl_lock_data kind, curl_lock_access, void* share) noexcept {
    static_cast<CurlShare*>(share)->locks_[kind].lock();
}

void CurlShare::Unlock(CURL*, curl_lock_data kind, void* share) noexcept {
    static_cast<CurlShare*>(share)->locks_[kind].unlock();
}

CurlHandle::CurlHandle(CURLSH* share)
    : easy_(curl_easy_init()), multi_(curl_multi_init()), share_(share) {
    if (easy_ == nullptr) throw std::bad_alloc();
    SetLasting();
}

// As curl_easy_perform goes about it, which however looks for something to wait for before it has
// sent anything: one system call more in each exchange.
CURLcode CurlHandle::Perform(ExchangeWait& wait) noexcept {
    if (setUp_ != CURLE_OK) return setUp_;
    if (multi_ == nullptr || curl_multi_add_handle(multi_.get(), easy_.get()) != CURLM_OK)
        return CURLE_OUT_OF_MEMORY;
    const CURLcode code = Drive(wait);
    curl_easy_getinfo(easy_.get(), CURLINFO_ACTIVESOCKET, &used_);  // known until the removal only
    curl_multi_remove_handle(multi_.get(), easy_.get());
    return code;
}

CURLcode CurlHandle::Drive(ExchangeWait& wait) noexcept {
    CURLM* const multi = multi_.get();
    CURLMcode state = CURLM_OK;
    for (int running = 1;;) {
        if (wait.MustEnd()) return CURLE_ABORTED_BY_CALLBACK;
        state = curl_multi_perform(multi, &running);
        if (state != CURLM_OK || running == 0) break;
        const auto longest = static_cast<int>(wait.Longest().count());
        state = curl_multi_poll(multi, nullptr, 0, longest, nullptr);
        if (state != CURLM_OK) break;
        wait.LookAtClock();
    }
    int left = 0;
    const CURLMsg* const message = curl_multi_info_read(multi, &left);
    if (message == nullptr) return CURLE_OUT_OF_MEMORY;
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-union-access): the library's interface
    return message->data.result;
}

void CurlHandle::Wake(void* handle) noexcept {
    const auto& curl = *static_cast<const CurlHandle*>(handle);
    if (curl.multi_ != nullptr) curl_multi_wakeup(curl.multi_.get());
}

bool CurlHandle::WasConnected() const noexcept {
    curl_off_t microseconds = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_PRETRANSFER_TIME_T, &microseconds);
    return microseconds != 0;
}

long CurlHandle::Status() const noexcept {
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

void CurlHandle::Reset() noexcept {
    curl_easy_reset(easy_.get());
    setUp_ = CURLE_OK;
    SetLasting();
}

// The connections are the multi handle's, and stay.
void CurlHandle::Renew() noexcept {
    if (CurlEasyPtr fresh{curl_easy_init()}) easy_ = std::move(fresh);
    Reset();
}

// Part of the handle, not of an exchange. Without the first even the closing of an idle handle sets
// the process's SIGPIPE to "ignore" and back, while the host's threads run.
void CurlHandle::SetLasting() noexcept {
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_CLOSESOCKETFUNCTION, &CurlHandle::CloseSocket);
    Set(CURLOPT_CLOSESOCKETDATA, static_cast<void*>(this));
    Set(CURLOPT_ERRORBUFFER, words_.data());
    // A handle that can't join keeps its own data.
    if (share_ != nullptr) curl_easy_setopt(easy_.get(), CURLOPT_SHARE, share_);
}

// The library reads no more than the announced length, and what it has not read of a TLS record
// shows on no socket.
bool CurlHandle::TlsHoldsBytes() const noexcept {
    curl_tlssessioninfo* session = nullptr;
    curl_easy_getinfo(easy_.get(), CURLINFO_TLS_SSL_PTR, &session);
    return session != nullptr && session->backend == CURLSSLBACKEND_OPENSSL &&
           session->internals != nullptr &&
           SSL_has_pending(static_cast<const SSL*>(session->internals)) == 1;
}

// Sockets of attempts to connect are not among them: the library closes these by itself.
bool CurlHandle::NoteConnection() noexcept {
    if (used_ == CURL_SOCKET_BAD) return true;
    const auto known = [this](const pollfd& open) { return open.fd == used_; };
    if (std::any_of(connections_.begin(), connections_.end(), known)) return true;
    try {
        connections_.push_back({used_, POLLIN, 0});
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

int CurlHandle::CloseSocket(void* handle, curl_socket_t socket) noexcept {
    auto& open = static_cast<CurlHandle*>(handle)->connections_;
    const auto closed = [socket](const pollfd& one) { return one.fd == socket; };
    open.erase(std::remove_if(open.begin(), open.end(), closed), open.end());
    return close(socket);
}

bool CurlHandle::HasStrayInput() noexcept {
    return !connections_.empty() && poll(connections_.data(), connections_.size(), 0) != 0;
}

}  // namespace Oak::Net
