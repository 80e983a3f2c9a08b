#include "trace_id.h"

#include <cstddef>
#include <random>
#include <string_view>

namespace tool {

std::string newTraceId() {
    constexpr std::string_view kLayout = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::random_device random;
    std::string id(kLayout);
    for (auto& digit : id) {
        if (digit == 'x') digit = kDigits[random() % 16];
        if (digit == 'y') digit = kDigits[8 + random() % 4];
    }
    return id;
}

}  // namespace tool
