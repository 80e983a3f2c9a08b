#include "call_outcome.h"

namespace tool {

std::string reasonOf(const Veltra::CCallReport& report, const std::string& said) {
    const std::string message = report.GatewayMessage();
    const bool isNews = !message.empty() && said.find(message) == said.npos;
    return report.Detail() + (isNews ? "; the gateway says: " + message : "");
}

}  // namespace tool
