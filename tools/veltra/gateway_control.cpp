#include "gateway_control.h"

#include "json_read.h"
#include "output.h"

#include <utility>

namespace tool {

namespace {

/// The array of that name in an answer, which lives in `document`.
rapidjson::Value& listIn(rapidjson::Document& document, const std::string& answer,
                         const char* name) {
    document.Parse<rapidjson::kParseIterativeFlag>(answer.data(), answer.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember(name) ||
        !document[name].IsArray())
        throw Failure(std::string("the gateway's list of ") + name + " cannot be read");
    return document[name];
}

std::uint64_t numberOf(const rapidjson::Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found != object.MemberEnd() && found->value.IsUint64() ? found->value.GetUint64() : 0;
}

}  // namespace

GatewayControl::GatewayControl(std::string url, std::string caFile)
    : url_(std::move(url)), caFile_(std::move(caFile)) {}

void GatewayControl::expireTokens() const {
    exchange(Method::Post, "expire-tokens");
}

std::string GatewayControl::modelName() const {
    const auto answer = exchange(Method::Get, "state");
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(answer.data(), answer.size());
    return textMember(document, "model").value_or("");
}

std::vector<GatewayControl::Seen> GatewayControl::requests() const {
    rapidjson::Document document;
    std::vector<Seen> seen;
    for (const auto& request :
         listIn(document, exchange(Method::Get, "requests"), "requests").GetArray()) {
        if (!request.IsObject()) continue;
        seen.push_back({numberOf(request, "number"), textMember(request, "path").value_or(""),
                        textMember(request, "body").value_or("")});
    }
    return seen;
}

std::vector<GatewayControl::Picture> GatewayControl::pictures() const {
    rapidjson::Document document;
    std::vector<Picture> pictures;
    for (const auto& picture :
         listIn(document, exchange(Method::Get, "pictures"), "pictures").GetArray()) {
        if (!picture.IsObject()) continue;
        pictures.push_back({textMember(picture, "imageKey").value_or(""), numberOf(picture, "size"),
                            textMember(picture, "sha256").value_or("")});
    }
    return pictures;
}

}  // namespace tool
