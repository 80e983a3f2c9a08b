#include "gateway_control.h"
#include "output.h"
#include "system_windows.h"
#include "text_windows.h"

#include <array>
#include <memory>

namespace tool {

namespace {

constexpr int kTimeLimitMs = 10000;

struct HandleDeleter {
    void operator()(HINTERNET handle) const { WinHttpCloseHandle(handle); }
};
using HandlePtr = std::unique_ptr<void, HandleDeleter>;

/// Where a URL leads.
struct Target {
    std::wstring host;
    std::wstring path;
    INTERNET_PORT port = 0;
    bool tls = false;
};

void require(bool success) {
    if (!success) throw Failure("WinHTTP error " + std::to_string(GetLastError()));
}

HandlePtr opened(HINTERNET handle) {
    require(handle != nullptr);
    return HandlePtr(handle);
}

Target targetOf(const std::string& url) {
    const std::wstring wide = wideText(url);
    URL_COMPONENTS parts{};
    parts.dwStructSize = sizeof parts;
    // Asks for the places of these parts in the URL.
    parts.dwHostNameLength = parts.dwUrlPathLength = static_cast<DWORD>(-1);
    require(WinHttpCrackUrl(wide.c_str(), 0, 0, &parts) != FALSE);
    return {{parts.lpszHostName, parts.dwHostNameLength},
            {parts.lpszUrlPath, parts.dwUrlPathLength},
            parts.nPort,
            parts.nScheme == INTERNET_SCHEME_HTTPS};
}

/// A session with limits, and without a proxy: the gateway is near.
HandlePtr newSession() {
    auto session = opened(WinHttpOpen(nullptr, WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                      WINHTTP_NO_PROXY_BYPASS, 0));
    DWORD limit = kTimeLimitMs;
    require(WinHttpSetTimeouts(session.get(), kTimeLimitMs, kTimeLimitMs, kTimeLimitMs,
                               kTimeLimitMs) != FALSE);
    require(WinHttpSetOption(session.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &limit,
                             sizeof limit) != FALSE);
    return session;
}

void send(HINTERNET request) {
    DWORD redirects = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
    require(WinHttpSetOption(request, WINHTTP_OPTION_REDIRECT_POLICY, &redirects,
                             sizeof redirects) != FALSE);
    require(WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA,
                               0, 0, 0) != FALSE);
    require(WinHttpReceiveResponse(request, nullptr) != FALSE);
}

DWORD statusOf(HINTERNET request) {
    DWORD status = 0;
    DWORD size = sizeof status;
    require(WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                WINHTTP_HEADER_NAME_BY_INDEX, &status, &size,
                                WINHTTP_NO_HEADER_INDEX) != FALSE);
    return status;
}

std::string bodyOf(HINTERNET request) {
    std::array<char, 16384> piece{};
    std::string body;
    for (DWORD size = 0;; body.append(piece.data(), size)) {
        require(WinHttpReadData(request, piece.data(), static_cast<DWORD>(piece.size()), &size) !=
                FALSE);
        if (size == 0) return body;
    }
}

std::string answerOf(const Target& target, const wchar_t* method) {
    const auto session = newSession();
    const auto connection =
        opened(WinHttpConnect(session.get(), target.host.c_str(), target.port, 0));
    const auto request = opened(WinHttpOpenRequest(
        connection.get(), method, target.path.c_str(), nullptr, WINHTTP_NO_REFERER,
        WINHTTP_DEFAULT_ACCEPT_TYPES, target.tls ? WINHTTP_FLAG_SECURE : 0));
    send(request.get());
    const DWORD status = statusOf(request.get());
    if (status / 100 != 2) throw Failure("status " + std::to_string(status));
    return bodyOf(request.get());
}

}  // namespace

std::string GatewayControl::exchange(Method method, const std::string& path) const {
    const std::string url = url_ + "/control/" + path;
    try {
        const Target target = targetOf(url);
        // WinHTTP only trusts what the system trusts. The library checks certificates against a file
        // itself; a second such check, for a demonstration, would be one too many.
        if (target.tls && !caFile_.empty())
            throw Failure(
                "the control endpoints are reached over https with the certificates that Windows "
                "trusts: import the gateway's authority there, and omit --ca-file");
        return answerOf(target, method == Method::Post ? L"POST" : L"GET");
    } catch (const Failure& failure) {
        throw Failure(url + ": " + failure.what());
    }
}

}  // namespace tool
