#ifndef OAK_NET_SYSTEM_WINHTTP_H
#define OAK_NET_SYSTEM_WINHTTP_H

// The headers of WinHTTP and of what stands around it, in the one order that they can bear, and
// what system it is.

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif

// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <wincrypt.h>
#include <winhttp.h>
// clang-format on

namespace Oak::Net {

/// False under Wine, whose HTTP library lacks some of what this client builds on.
bool OnWindowsItself() noexcept;

}  // namespace Oak::Net

#endif
