#pragma once

#include <map>
#include <string>
#include <vector>

namespace tool {

/// The values of a query by their names, as UTF-8 and not escaped.
using Values = std::map<std::string, std::string>;

/// Throws UsageError unless all have the form NAME=VALUE. Reads nothing.
void checkForm(const std::vector<std::string>& assignments);

/// Reads arguments of the form NAME=VALUE, where @FILE and @- take the value from a file and from
/// standard input, and @@ is for a value that begins with one @. Throws UsageError.
Values readValues(const std::vector<std::string>& assignments);

}  // namespace tool
