#include "curl_handle.h"

#include <new>

namespace Oak::Net {

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

CurlHandle::CurlHandle(CURLSH* share) : easy_(curl_easy_init()) {
    if (easy_ == nullptr) throw std::bad_alloc();
    LeaveSignalsAlone();
    // Outlasts every Reset. A handle that can't join keeps its own data.
    if (share != nullptr) curl_easy_setopt(easy_.get(), CURLOPT_SHARE, share);
}

CURLcode CurlHandle::Perform() noexcept {
    return setUp_ == CURLE_OK ? curl_easy_perform(easy_.get()) : setUp_;
}

long CurlHandle::Status() const noexcept {
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    return status;
}

void CurlHandle::Reset() noexcept {
    curl_easy_reset(easy_.get());
    setUp_ = CURLE_OK;
    LeaveSignalsAlone();
}

// Part of the handle, not of an exchange: without it even the closing of an idle handle sets the
// process's SIGPIPE to "ignore" and back, while the host's threads run.
void CurlHandle::LeaveSignalsAlone() noexcept {
    Set(CURLOPT_NOSIGNAL, 1L);
}

}  // namespace Oak::Net
