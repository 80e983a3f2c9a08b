#pragma once

#include "gateway.h"

#include <string_view>

namespace gateway {

inline constexpr std::string_view kControlPrefix = "/control/";

/// Answers a request to a control endpoint. Of a stop request it only says that it was understood.
Answer control(Gateway& gateway, const Request& request);
bool isStopRequest(std::string_view method, std::string_view path);

}  // namespace gateway
