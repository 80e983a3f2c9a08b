#pragma once

#include "repeat.h"

#include <string>

namespace tool {

/// Prints the summary, as text or as JSON, and returns the exit status.
int reportRepeat(bool json, const std::string& traceId, const RepeatPlan& plan,
                 const RepeatResult& result);

}  // namespace tool
