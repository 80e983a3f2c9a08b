#ifndef VELTRA_TESTS_E2E_CALLS_H
#define VELTRA_TESTS_E2E_CALLS_H

#include <Veltra/Veltra.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>

/// What a host does, in short.
namespace e2e {

inline bool LogIn(const std::string& appKey = "good") {
    auto info = std::make_shared<Veltra::CLicenseInfo>();
    info->SetLicenseKey("", {{appKey, "secret"}});
    return Veltra::Veltra_Authentication(Veltra::ProductType::Default, info);
}

/// Runs a query; gives its answer, or "code: message" when it failed or left an error behind.
inline bool Query(std::string& text, const std::string& name, const std::string& traceId = "t-1") {
    const auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements("greeting", {{"name", name}, {"place", "here"}});
    message->SetSessionID(traceId);
    const auto session = Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
    std::shared_ptr<Veltra::CLLMMessage> answer;
    const bool answered = session->ExecuteQuery(message, answer);
    std::int32_t code = 0;
    std::string error;
    session->GetErrorInfo(code, error);
    text = answered && code == 0 && error.empty() ? answer->GetContent()
                                                  : std::to_string(code) + ": " + error;
    return answered;
}

/// Submits feedback; `id` may be null.
inline bool Submit(const std::unordered_set<std::string>& pictures, std::string* id = nullptr) {
    const auto comment = std::make_shared<Veltra::LLMComment>("t-1");
    comment->SetPictures(pictures);
    std::string unused;
    return Veltra::Veltra_SubmitComments(comment, id != nullptr ? *id : unused);
}

inline std::string Ask(const std::string& name = "World", const std::string& traceId = "t-1") {
    std::string text;
    Query(text, name, traceId);
    return text;
}

}  // namespace e2e

#endif
