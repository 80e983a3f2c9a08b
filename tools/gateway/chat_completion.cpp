#include "chat_completion.h"

#include "json.h"

namespace gateway {
namespace {

void writeMessage(JsonWriter& writer, std::string_view role, const std::string& content) {
    writer.StartObject();
    write(writer, "role", role);
    write(writer, "content", content);
    writer.EndObject();
}

std::optional<std::int64_t> countIn(const rapidjson::Value* usage, const char* name) {
    const auto* count = usage == nullptr ? nullptr : member(*usage, name);
    if (count == nullptr || !count->IsInt64()) return std::nullopt;
    return count->GetInt64();
}

}  // namespace

std::string chatRequest(const Template& from, const std::string& model, const std::string& prompt) {
    rapidjson::StringBuffer text;
    JsonWriter writer(text);
    writer.StartObject();
    write(writer, "model", model);
    write(writer, "messages");
    writer.StartArray();
    if (!from.system.empty()) writeMessage(writer, "system", from.system);
    writeMessage(writer, "user", prompt);
    writer.EndArray();
    if (from.temperature) {
        write(writer, "temperature");
        writer.Double(*from.temperature);
    }
    if (from.maxTokens) {
        write(writer, "max_tokens");
        writer.Int(*from.maxTokens);
    }
    writer.EndObject();
    return {text.GetString(), text.GetSize()};
}

std::optional<ChatAnswer> readChatAnswer(const std::string& body, std::string& missing) {
    const auto document = parseJson(body);
    const auto* choices = member(document, "choices");
    if (choices == nullptr || !choices->IsArray()) {
        missing = document.IsObject() ? R"(it has no array "choices")"
                                      : "it is not a JSON object in UTF-8";
        return std::nullopt;
    }
    ChatAnswer answer;
    if (!choices->Empty()) {
        const auto& first = (*choices)[0];
        const auto* message = member(first, "message");
        const auto* content = message == nullptr ? nullptr : member(*message, "content");
        if (message == nullptr ||
            (content != nullptr && !content->IsString() && !content->IsNull())) {
            missing = R"(its first choice has no "message" with a text "content")";
            return std::nullopt;
        }
        answer.text = textMember(*message, "content").value_or("");
        answer.stoppedByLength = textMember(first, "finish_reason") == "length";
    }
    const auto* usage = member(document, "usage");
    answer.promptTokens = countIn(usage, "prompt_tokens");
    answer.answerTokens = countIn(usage, "completion_tokens");
    return answer;
}

std::string readChatError(const std::string& body) {
    const auto document = parseJson(body);
    if (const auto* error = member(document, "error")) {
        if (auto message = textMember(*error, "message")) return *message;
        if (auto message = textMember(document, "error")) return *message;
    }
    for (const auto* name : {"message", "detail"})
        if (auto message = textMember(document, name)) return *message;
    return showable(body);
}

}  // namespace gateway
