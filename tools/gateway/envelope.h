#pragma once

#include "gateway.h"
#include "json.h"

#include <functional>
#include <string_view>

namespace gateway {

/// The function writes the members of "data".
Answer success(const std::function<void(JsonWriter&)>& writeData);
/// The refusal that a client reads from the envelope; the status is 200 unless given.
Answer refusal(std::string_view code, std::string_view message, int status = 200);
Answer tokenRefusal();
/// Refuses a body that the endpoint can't read.
Answer malformed(std::string_view what);

}  // namespace gateway
