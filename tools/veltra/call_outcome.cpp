#include "call_outcome.h"

#include <array>
#include <cstddef>

namespace tool {

const char* nameOf(Veltra::CallOutcome outcome) {
    constexpr std::array kNames = {
        "Succeeded", "NotEnabled",    "NotUsable",      "BadArgument", "Screened",  "Cancelled",
        "TimedOut",  "NotReached",    "NotTrusted",     "CutOff",      "BadStatus", "BadAnswer",
        "Refused",   "TokenRejected", "ForbiddenWords", "NotAllowed",  "Failed"};
    const auto number = static_cast<std::size_t>(outcome);
    return number < kNames.size() ? kNames[number] : "Failed";
}

std::string reasonOf(const Veltra::CCallReport& report, const std::string& said) {
    const std::string message = report.GatewayMessage();
    const bool isNews = !message.empty() && said.find(message) == said.npos;
    return report.Detail() + (isNews ? "; the gateway says: " + message : "");
}

}  // namespace tool
