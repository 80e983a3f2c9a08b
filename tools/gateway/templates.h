#pragma once

#include <map>
#include <string>
#include <string_view>

namespace gateway {

/// The text of templates.json.
extern const char* const kShippedTemplates;

/// Replaces each {{name}} by its element. Names without one stay as they are, and what was put in
/// is not looked through again.
std::string render(std::string_view text, const std::map<std::string, std::string>& elements);

}  // namespace gateway
