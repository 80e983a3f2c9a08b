#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

/// Asks the local gateway what it saw and tells it how to behave, over its control endpoints. Its
/// operations throw Failure.
class GatewayControl {
 public:
    /// A request that the gateway got.
    struct Seen {
        std::uint64_t number = 0;
        std::string path;
        std::string body;
    };

    /// A picture that the gateway keeps.
    struct Picture {
        std::string imageKey;
        std::uint64_t size = 0;
        std::string sha256;
    };

    GatewayControl(std::string url, std::string caFile);

    /// All tokens that the gateway handed out become rejected.
    void expireTokens() const;
    /// The name of the model behind the gateway; empty without one.
    std::string modelName() const;
    /// In order of arrival; those to the control endpoints aren't among them.
    std::vector<Seen> requests() const;
    std::vector<Picture> pictures() const;

 private:
    enum class Method { Get, Post };
    std::string exchange(Method method, const std::string& path) const;

    const std::string url_;
    const std::string caFile_;
};

}  // namespace tool
