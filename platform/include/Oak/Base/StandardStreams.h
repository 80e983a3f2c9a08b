#ifndef OAK_BASE_STANDARDSTREAMS_H
#define OAK_BASE_STANDARDSTREAMS_H

#include <string_view>

namespace Oak::Base {

/// Write a text to the process's standard output or standard error, in one write if the system
/// allows it. Errors are ignored, and a closed pipe never raises a signal that would end the host.
void WriteStandardOutput(std::string_view text) noexcept;
void WriteStandardError(std::string_view text) noexcept;

}  // namespace Oak::Base

#endif
