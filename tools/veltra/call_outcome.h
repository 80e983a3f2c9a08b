#pragma once

#include <Veltra/Call.h>

#include <string>

/// What the program tells of the library's report on a call.

namespace tool {

/// Why the call failed, in one line: the library's words, and the gateway's unless they stand in
/// `said` already.
std::string reasonOf(const Veltra::CCallReport& report, const std::string& said = {});

}  // namespace tool
