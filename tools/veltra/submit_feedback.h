#pragma once

#include "process.h"

#include <Veltra/Comment.h>

#include <memory>
#include <optional>
#include <string>

namespace tool {

/// Submits a feedback and returns its id; nothing when it failed. The library shows the requests'
/// bodies on standard output, which is kept for results: they go to `bodies` instead.
std::optional<std::string> submitFeedback(const std::shared_ptr<Veltra::LLMComment>& comment,
                                          OutputElsewhere::Target bodies);

}  // namespace tool
