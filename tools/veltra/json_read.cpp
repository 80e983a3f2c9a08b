#include "json_read.h"

namespace tool {

std::optional<std::string> textMember(const rapidjson::Value& value, const char* name) {
    if (!value.IsObject()) return std::nullopt;
    const auto found = value.FindMember(name);
    if (found == value.MemberEnd() || !found->value.IsString()) return std::nullopt;
    return std::string(found->value.GetString(), found->value.GetStringLength());
}

}  // namespace tool
