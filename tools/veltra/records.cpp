#include "records.h"

#include "output.h"
#include "secrets.h"

#include <qlog/qlog.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <utility>

namespace tool {

namespace {

std::string_view levelName(int level) {
    constexpr std::array<std::string_view, 4> kNames = {"detail", "progress", "warning", "error"};
    return kNames[static_cast<std::size_t>(std::clamp(level, 2, 5) - 2)];
}

}  // namespace

Records::Records(int minLevel, const Credentials& credentials, Mode mode)
    : minLevel_(minLevel), mode_(mode) {
    for (const auto& key : credentials.keys) {
        keepSecret(key.secretKey);
        keepSecret(jsonEscaped(key.secretKey, "a secret key"));
    }
    qlog_set_handler(&Records::handle, this, minLevel);
}

Records::~Records() {
    qlog_set_handler(nullptr, nullptr, minLevel_);
}

void Records::printHeld() {
    const std::scoped_lock lock(mutex_);
    for (const auto& line : held_)
        complain(line);
    held_.clear();
}

// If memory runs out the record is lost: nothing may be thrown into the library.
void Records::handle(int level, const char* tag, const char* message, void* context) noexcept {
    try {
        static_cast<Records*>(context)->take(level, tag, message);
    } catch (const std::exception&) {
        return;
    }
}

void Records::take(int level, std::string_view tag, std::string message) {
    std::string line(levelName(level));
    line.append(": ").append(tag).append(": ").append(withoutSecrets(std::move(message)));
    if (mode_ == Mode::Print) {
        complain(line);
        return;
    }
    const std::scoped_lock lock(mutex_);
    held_.push_back(std::move(line));
}

}  // namespace tool
