#pragma once

#include "gateway.h"

#include <cstdint>
#include <optional>
#include <string>

namespace gateway {

/// The chat completions protocol, as far as model servers agree on it.

inline constexpr const char* kChatPath = "/chat/completions";

/// The body that asks a model of that name for its answer to the rendered template.
std::string chatRequest(const Template& from, const std::string& model, const std::string& prompt);

struct ChatAnswer {
    std::string text;  ///< Of the first choice.
    bool stoppedByLength = false;
    std::optional<std::int64_t> promptTokens;
    std::optional<std::int64_t> answerTokens;
};

/// Nothing, and what is missing, when the body is no such answer. An empty text is one.
std::optional<ChatAnswer> readChatAnswer(const std::string& body, std::string& missing);

/// What a server says of its refusal: its message, wherever it puts it, or the body.
std::string readChatError(const std::string& body);

}  // namespace gateway
