#pragma once

#include <string>

namespace tool {

/// A random identifier for a query, in the form of a UUID. The layer would make one too, but the
/// user is told this one.
std::string newTraceId();

}  // namespace tool
