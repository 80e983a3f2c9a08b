#include "http_transport_winhttp.h"

#include "http_exchange.h"
#include "http_rules.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

namespace Oak::Net {
namespace {

constexpr const char* noProxy = "direct";
constexpr DWORD disableGlobalPooling = 195;  // not in every version of the header

/// TLS 1.2 or later, also where the system's settings would allow less. A system that doesn't know
/// 1.3 refuses to hear of it.
bool AllowOnlyModernTls(HINTERNET session) noexcept {
    const auto allow = [session](DWORD protocols) {
        return WinHttpSetOption(session, WINHTTP_OPTION_SECURE_PROTOCOLS, &protocols,
                                sizeof protocols) != FALSE;
    };
    return allow(WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2 | WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_3) ||
           allow(WINHTTP_FLAG_SECURE_PROTOCOL_TLS1_2);
}

bool SwitchOn(HINTERNET session, DWORD option) noexcept {
    BOOL on = TRUE;
    return WinHttpSetOption(session, option, &on, sizeof on) != FALSE;
}

HttpSession OpenSession(DWORD access, LPCWSTR proxy) noexcept {
    HttpSession session;
    session.mayUseProxy = access != WINHTTP_ACCESS_TYPE_NO_PROXY;
    session.handle.reset(
        WinHttpOpen(nullptr, access, proxy, WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
    HINTERNET const handle = session.handle.get();
    if (handle == nullptr || !AllowOnlyModernTls(handle)) return {};
    // A connection may have been trusted by rules that are no longer, or never were, ours.
    session.ownsConnections = SwitchOn(handle, disableGlobalPooling);
    // Else an address of version 6 that leads nowhere uses up the time to connect.
    static_cast<void>(SwitchOn(handle, WINHTTP_OPTION_IPV6_FAST_FALLBACK));
    return session;
}

/// No handle for a proxy that the library can't use: another scheme, a user part, anything odd.
HttpSession OpenThrough(const std::string& proxy) {
    const auto target =
        ParseHttpTarget(proxy.find("://") == std::string::npos ? "http://" + proxy : proxy);
    if (!target || target->tls || target->object != "/") return {};
    const std::string server = target->host + ':' + std::to_string(target->port);
    return OpenSession(WINHTTP_ACCESS_TYPE_NAMED_PROXY,
                       std::wstring(server.begin(), server.end()).c_str());
}

HttpSession OpenProxied(const std::string& proxy) {
    if (proxy == noProxy) return {};
    if (!proxy.empty()) return OpenThrough(proxy);
    HttpSession session = OpenSession(WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY, WINHTTP_NO_PROXY_NAME);
    // Before Windows 8.1 there is but the setting of the whole machine.
    return session.handle != nullptr
               ? std::move(session)
               : OpenSession(WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME);
}

/// The library closes idle connections on threads of the system's, whenever it likes. It stays
/// loaded for that, even when our module, perhaps its only user, goes.
void KeepLibraryLoaded() noexcept {
    HMODULE module = nullptr;
    static_cast<void>(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, L"winhttp.dll", &module));
}

std::atomic<std::uint32_t> callbacks{0};

/// They have done what somebody could wait for, and need no lock to return. Once they are counted
/// out some instructions are left to them.
void LetCallbacksReturn() noexcept {
    constexpr int mostTries = 100;
    int tries = 0;
    do {
        Sleep(1);
    } while (++tries < mostTries && callbacks.load() != 0);
}

}  // namespace

HttpGeneration::HttpGeneration(const HttpClientOptions& wanted)
    : options(WithDefaultsForZero(wanted)),
      direct_(OpenSession(WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME)),
      proxied_(OpenProxied(wanted.proxy)) {}

const HttpSession* HttpGeneration::SessionFor(const HttpTarget& target) const noexcept {
    const HttpSession* session = &proxied_;
    if (target.loopback || options.proxy == noProxy) session = &direct_;
    // Wine shows the proxy the fields that only the server may see.
    if (session == &proxied_ && target.tls && !OnWindowsItself()) {
        if (!options.proxy.empty()) return nullptr;
        session = &direct_;
    }
    return session->handle != nullptr ? session : nullptr;
}

std::shared_ptr<const CertificateTrust> HttpGeneration::Trust() const {
    const std::lock_guard lock(mutex_);
    if (trust_ == nullptr) trust_ = CertificateTrust::FromFile(options.caFile);
    return trust_;
}

HttpTransport::HttpTransport()
    : current_(std::make_shared<const HttpGeneration>(HttpClientOptions())) {
    KeepLibraryLoaded();
}

void HttpTransport::SetOptions(const HttpClientOptions& options) {
    auto generation = std::make_shared<const HttpGeneration>(options);
    const std::lock_guard lock(mutex_);  // last: what is replaced is closed after its release
    current_.swap(generation);
}

HttpGenerationPtr HttpTransport::Generation() const {
    const std::lock_guard lock(mutex_);
    return current_;
}

HttpTransport* StartTransport() {
    return new HttpTransport;
}

/// When the module is unloaded. No visitor is waited for, since the loader's lock is held: what
/// somebody still uses stays where it is. So does everything when the process ends: its other
/// threads are gone by then, and with them perhaps the owners of the library's locks.
void EndTransport(HttpTransport* transport) noexcept {
    LetCallbacksReturn();
    if (!TransportVisit::AnyUnderWay()) delete transport;
}

CallbackVisit::CallbackVisit() noexcept {
    callbacks.fetch_add(1);
}

CallbackVisit::~CallbackVisit() {
    callbacks.fetch_sub(1);
}

}  // namespace Oak::Net
