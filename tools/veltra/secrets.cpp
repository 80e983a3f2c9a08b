#include "secrets.h"

#include <string_view>
#include <vector>

namespace tool {

namespace {

constexpr std::string_view kBlot = "***";

std::vector<std::string>& secrets() {
    static std::vector<std::string> all;
    return all;
}

void blotOut(std::string& text, const std::string& secret) {
    for (auto at = text.find(secret); at != text.npos; at = text.find(secret, at + kBlot.size()))
        text.replace(at, secret.size(), kBlot);
}

}  // namespace

void keepSecret(const std::string& secret) {
    if (!secret.empty()) secrets().push_back(secret);
}

std::string withoutSecrets(std::string text) {
    for (const auto& secret : secrets())
        blotOut(text, secret);
    return text;
}

}  // namespace tool
