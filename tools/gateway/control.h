#pragma once

#include "gateway.h"

#include <string_view>

namespace gateway {

inline constexpr std::string_view kControlPrefix = "/control/";

/// Whether it is for the control endpoints, or for the page that shows them in a browser. Faults
/// don't meet these, and they aren't recorded.
bool isForControl(const Request& request);
/// What those get who may not use them.
Answer controlRefusal();
/// Answers a request to a control endpoint. Of a stop request it only says that it was understood.
Answer control(Gateway& gateway, const Request& request);
bool isStopRequest(std::string_view method, std::string_view path);

}  // namespace gateway
