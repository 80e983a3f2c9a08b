#pragma once

#include "gateway.h"

namespace gateway {

/// Whether the request is for a server on this machine by a name that only this machine resolves,
/// and was not sent on behalf of a page from elsewhere. A browser on this machine connects over
/// loopback for any page that it shows: a page whose own name was made to resolve to loopback
/// betrays itself by the Host header, any other one by where the browser says it comes from.
bool isFromThisMachine(const Request& request);

}  // namespace gateway
