#pragma once

#include "credentials.h"
#include "gateway_control.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// The steps of the demonstration. Each checks its outcome and throws an exception that tells what
/// deviated.
class Demo {
 public:
    struct Step {
        std::string title;
        std::function<std::string()> run;  ///< returns what happened
    };

    Demo(std::string gateway, GatewayControl control, Credentials credentials);

    /// To be run in this order. They use this object.
    std::vector<Step> steps();
    /// To be called before each step: what the gateway saw earlier doesn't count.
    void beginStep();

 private:
    using Elements = std::map<std::string, std::string>;

    std::string enable();
    std::string setDomain();
    std::string logIn();
    std::string screen();
    /// A model's answer is its own; without one the text is as rendered.
    std::string ask(const std::string& promptKey, const Elements& elements,
                    const std::string& rendered);
    std::string renew();
    std::string refuse();
    std::string giveFeedback();
    std::string withdraw(bool granted);
    std::string shutDown();
    /// Bodies of the requests with that path in this step. The monitor's probes have none.
    std::vector<std::string> seen(std::string_view path) const;

    const std::string gateway_;
    const GatewayControl control_;
    const Credentials credentials_;
    bool hasModel_ = false;
    std::uint64_t lastSeen_ = 0;
    std::string traceId_;     ///< of the last query
    std::string feedbackId_;  ///< of the feedback on it
};

}  // namespace tool
