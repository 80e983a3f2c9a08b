#include "http_transport_curl.h"

#include "http_exchange.h"
#include "http_rules.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <iterator>
#include <thread>
#include <utility>

namespace Oak::Net {
namespace {

using Clock = std::chrono::steady_clock;

/// The oldest library whose TLS writes are known to go out with MSG_NOSIGNAL, so that a server that
/// hangs up never raises SIGPIPE in the host.
constexpr unsigned oldestVersion = 0x075800;  // 7.88.0

/// Starts the TLS library without its exit handler. That handler frees tables which a host thread
/// inside a handshake still reads while the process ends; the memory goes back to the system
/// anyway. Where the host started the TLS library first the handler stands already; see
/// EndTransport.
void StartTlsLibrary() noexcept {
    OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
}

}  // namespace

HttpGeneration::HttpGeneration(const HttpClientOptions& wanted)
    : options(WithDefaultsForZero(wanted)) {}

CurlLibrary::CurlLibrary() noexcept
    : started((StartTlsLibrary(), curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK)) {
    if (!started) return;
    const curl_version_info_data* loaded = curl_version_info(CURLVERSION_NOW);
    usable = loaded->version_num >= oldestVersion;
    hasTls = (loaded->features & CURL_VERSION_SSL) != 0;
    hasProxyTls = (loaded->features & CURL_VERSION_HTTPS_PROXY) != 0;
}

CurlLibrary::~CurlLibrary() {
    if (started) curl_global_cleanup();
}

HttpTransport::HttpTransport()
    : current_(std::make_shared<const HttpGeneration>(HttpClientOptions())) {}

void HttpTransport::SetOptions(const HttpClientOptions& options) {
    Replace(std::make_shared<const HttpGeneration>(options), nullptr);
}

void HttpTransport::Forget(const HttpGenerationPtr& generation) {
    Replace(std::make_shared<const HttpGeneration>(generation->options), generation.get());
}

/// Unless another generation than `replaced`, if that is given, is the current one.
void HttpTransport::Replace(HttpGenerationPtr generation, const HttpGeneration* replaced) {
    HandleList retired;
    const std::lock_guard lock(mutex_);  // last: what is replaced is closed after its release
    if (replaced != nullptr && replaced != current_.get()) return;
    current_.swap(generation);
    retired.swap(idle_);
}

/// Of the idle handles that will do, the one that this thread used last, or else the newest. The
/// mutex is held.
template <class WillDo>
HandleList::iterator HttpTransport::FindOwnFirst(WillDo willDo) {
    const auto me = std::this_thread::get_id();
    const auto own = std::find_if(idle_.begin(), idle_.end(), [&](const auto& idle) {
        return idle.lastUser == me && willDo(idle);
    });
    return own != idle_.end() ? own : std::find_if(idle_.begin(), idle_.end(), willDo);
}

/// Whether a connection of the handle may be used again is asked without the lock.
template <class WillDo>
HttpLease HttpTransport::TakeIdle(WillDo willDo) {
    for (;;) {
        HttpLease lease;
        HandleList aged;
        {
            const std::lock_guard lock(mutex_);
            RemoveAgedInto(aged, Clock::now());
            lease.generation = current_;
            const auto handle = FindOwnFirst(willDo);
            if (handle != idle_.end()) lease.handle.splice(lease.handle.begin(), idle_, handle);
        }
        if (lease.handle.empty() || !lease.handle.front().curl.HasStrayInput()) return lease;
    }
}

HttpLease HttpTransport::Take(const std::string& url) {
    return TakeIdle([&url](const PooledHandle& idle) { return idle.Serves(url); });
}

HandleList HttpTransport::TakeAny(const HttpGenerationPtr& generation) {
    HandleList taken =
        TakeIdle([&](const PooledHandle& idle) { return idle.generation == generation; }).handle;
    if (taken.empty()) taken.emplace_front(generation);
    return taken;
}

void HttpTransport::GiveBack(HandleList handle) noexcept {
    HandleList surplus;
    PooledHandle& given = handle.front();
    const auto now = Clock::now();
    given.idleSince = now;
    given.lastUser = std::this_thread::get_id();
    const std::lock_guard lock(mutex_);  // last: surplus, aged and outdated handles outlast it
    if (given.generation != current_) return;
    idle_.splice(idle_.begin(), handle);
    RemoveAgedInto(surplus, now);
    if (idle_.size() > maxIdleHandles)
        surplus.splice(surplus.begin(), idle_, std::prev(idle_.end()));
}

void HttpTransport::RemoveAgedInto(HandleList& aged, Clock::time_point now) noexcept {
    const auto oldest = now - maxIdleTime;
    while (!idle_.empty() && idle_.back().idleSince < oldest)
        aged.splice(aged.begin(), idle_, std::prev(idle_.end()));
}

HttpTransport* StartTransport() {
    return new HttpTransport;
}

/// Calls under way at that moment are those of host threads that outlive main(). They give up at
/// once, or when a name look-up lets them, and get two seconds: exit handlers run in reverse order,
/// so a handler of the TLS library that the host had registered before comes next, and would crash
/// them. What is still in use after that stays where it is: freed under its user it would crash a
/// process that is about to end well.
void EndTransport(HttpTransport* transport) noexcept {
    const auto patience = Clock::now() + std::chrono::seconds(2);
    while (TransportVisit::AnyUnderWay()) {
        if (Clock::now() > patience) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    delete transport;
}

}  // namespace Oak::Net
