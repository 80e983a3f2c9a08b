#pragma once

#include "gateway.h"

#include <optional>
#include <string_view>

namespace gateway {

/// Empty for Any.
std::string_view requestKindName(RequestKind kind);
std::optional<RequestKind> requestKindFrom(std::string_view name);

}  // namespace gateway
