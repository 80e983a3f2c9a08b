#include "feedbacks.h"

#include "envelope.h"
#include "hex.h"

#include <array>
#include <string>
#include <utility>

namespace gateway {
namespace {

bool readText(const rapidjson::Value& body, const char* name, std::string& to) {
    auto text = textMember(body, name);
    if (text) to = std::move(*text);
    return text.has_value();
}

bool readNumber(const rapidjson::Value& body, const char* name, std::int32_t& to) {
    const auto* number = member(body, name);
    if (number == nullptr || !number->IsInt()) return false;
    to = number->GetInt();
    return true;
}

bool readImageKeys(const rapidjson::Value& body, std::vector<std::string>& to) {
    const auto* list = member(body, "feedbackImageKeys");
    if (list == nullptr || !list->IsArray()) return false;
    for (const auto& key : list->GetArray()) {
        if (!key.IsString()) return false;
        to.emplace_back(key.GetString(), key.GetStringLength());
    }
    return true;
}

std::size_t sizeOf(const Feedback& feedback) {
    std::size_t size = sizeof feedback + feedback.id.size() + feedback.traceId.size() +
                       feedback.description.size() + feedback.country.size() +
                       feedback.clientVersion.size();
    for (const auto& key : feedback.imageKeys)
        size += sizeof(std::string) + key.size();
    return size;
}

}  // namespace

Answer Feedbacks::submit(const rapidjson::Value& body) {
    Feedback feedback;
    const std::array<std::pair<const char*, std::string*>, 4> texts = {{
        {"traceId", &feedback.traceId},
        {"feedbackDescription", &feedback.description},
        {"country", &feedback.country},
        {"clientVersion", &feedback.clientVersion},
    }};
    for (const auto& [name, to] : texts)
        if (!readText(body, name, *to))
            return malformed("needs the text \"" + std::string(name) + '"');
    if (feedback.traceId.empty()) return malformed(R"("traceId" is empty)");
    if (!readNumber(body, "satisfactionType", feedback.satisfactionType) ||
        !readNumber(body, "feedbackType", feedback.feedbackType))
        return malformed(R"(needs "satisfactionType" and "feedbackType", 32-bit integers)");
    if (!readImageKeys(body, feedback.imageKeys))
        return malformed(R"(needs "feedbackImageKeys", an array of texts)");

    feedback.id = randomHex();
    auto answer = success([&](JsonWriter& writer) { write(writer, "feedbackId", feedback.id); });
    const auto size = sizeOf(feedback);
    const std::scoped_lock lock(mutex_);
    kept_.add(std::move(feedback), size);
    return answer;
}

Answer Feedbacks::withdraw(const rapidjson::Value& body) {
    const auto id = textMember(body, "feedbackId");
    if (!id) return malformed(R"(needs the text "feedbackId")");
    const std::scoped_lock lock(mutex_);
    auto* feedback = kept_.find([&](const Feedback& kept) { return kept.id == *id; });
    if (feedback == nullptr) return refusal("404002", "no feedback with that id");
    if (std::exchange(feedback->withdrawn, true))
        return refusal("409001", "the feedback has already been withdrawn");
    return success([](JsonWriter&) {});
}

std::vector<Feedback> Feedbacks::all() const {
    const std::scoped_lock lock(mutex_);
    return kept_.all();
}

}  // namespace gateway
