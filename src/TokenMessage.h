#ifndef VELTRA_SRC_TOKENMESSAGE_H
#define VELTRA_SRC_TOKENMESSAGE_H

#include <cstdint>
#include <string>

namespace Veltra {

/// The request for a token.
class TokenMessage {
 public:
    /// Posts one access-key pair to a domain, once. True when the answer was complete; then, and
    /// only then, all three results are written: the bearer token, the expiry that the gateway
    /// states (which steers nothing: a token is renewed by its age), and the domain that all other
    /// calls go to. Any thread may call it; it blocks for the exchange.
    static bool GetToekn(const std::string& domain, const std::string& appKey,
                         const std::string& secretKey, std::string& token, std::int64_t& expiry,
                         std::string& llmDomain);
};

}  // namespace Veltra

#endif
