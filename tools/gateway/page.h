#pragma once

#include "gateway.h"

#include <optional>
#include <string_view>

namespace gateway {

/// The page for browsers, "/", and the files that it loads; nothing for any other path.
std::optional<Answer> pageFile(std::string_view path);

}  // namespace gateway
