#pragma once

#include <Veltra/HumanMessage.h>

#include <memory>
#include <string>

namespace tool {

/// Runs one query in a session of its own and returns the answer. Throws Failure with the session's
/// code and message.
std::string runQuery(const std::shared_ptr<Veltra::CHumanMessage>& message);

}  // namespace tool
