#include "envelope.h"

#include <string>

namespace gateway {
namespace {

Answer envelope(std::string_view code, std::string_view message,
                const std::function<void(JsonWriter&)>& writeData) {
    rapidjson::StringBuffer text;
    JsonWriter writer(text);
    writer.StartObject();
    write(writer, "errorCode", code);
    write(writer, "message", message);
    write(writer, "data");
    writer.StartObject();
    writeData(writer);
    writer.EndObject();
    writer.EndObject();
    Answer answer;
    answer.body.assign(text.GetString(), text.GetSize());
    return answer;
}

}  // namespace

Answer success(const std::function<void(JsonWriter&)>& writeData) {
    return envelope("0", "", writeData);
}

Answer refusal(std::string_view code, std::string_view message, int status) {
    Answer answer = envelope(code, message, [](JsonWriter&) {});
    answer.status = status;
    return answer;
}

Answer tokenRefusal() {
    return refusal("500004",
                   std::string(kTokenRejected) + ": the access token is invalid or has expired");
}

Answer malformed(std::string_view what) {
    return refusal("400001", what);
}

}  // namespace gateway
