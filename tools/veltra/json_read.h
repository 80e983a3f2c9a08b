#pragma once

#include "json_library.h"

#include <optional>
#include <string>

namespace tool {

/// The text of that member; nothing when the value isn't an object or has no such text.
std::optional<std::string> textMember(const rapidjson::Value& value, const char* name);

}  // namespace tool
