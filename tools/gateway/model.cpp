#include "model.h"

#include "chat_completion.h"
#include "envelope.h"
#include "json.h"

#include <stdexcept>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t kMostQuoted = 300;

void replaceAll(std::string& text, std::string_view part, std::string_view by) {
    if (part.empty()) return;
    for (auto at = text.find(part); at != text.npos; at = text.find(part, at + by.size()))
        text.replace(at, part.size(), by);
}

std::string secondsOf(std::chrono::milliseconds time) {
    auto text = std::to_string(std::chrono::duration<double>(time).count());
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text + " s";
}

}  // namespace

Model::Model(const ModelOptions& options) : options_(options), client_(options) {
    if (options.name.empty() || !isUtf8(options.name))
        throw std::runtime_error("the model's name is not UTF-8");
}

Model::Outcome Model::ask(const Template& from, const std::string& prompt,
                          const std::stop_token& left) {
    Outcome outcome;
    auto& call = outcome.call;
    call.model = from.model.empty() ? options_.name : from.model;
    call.prompt = prompt;
    call.promptSize = prompt.size();
    const auto begin = std::chrono::steady_clock::now();
    const auto reply = client_.post(kChatPath, chatRequest(from, call.model, prompt), left);
    call.took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    outcome.refusal =
        reply.fate == ModelClient::Fate::Answered ? read(call, reply) : refusalFor(reply.fate);
    return outcome;
}

std::optional<Answer> Model::read(ModelCall& call, const ModelClient::Reply& reply) const {
    constexpr int kOk = 200;
    if (reply.status != kOk)
        return refusal("502003", "the model's server answered with status " +
                                     std::to_string(reply.status) + ": " +
                                     quoted(readChatError(reply.body)));
    std::string missing;
    auto answer = readChatAnswer(reply.body, missing);
    if (!answer)
        return refusal("502004", "the answer of the model's server can't be read: " + missing);
    call.promptTokens = answer->promptTokens;
    call.answerTokens = answer->answerTokens;
    call.stoppedByLength = answer->stoppedByLength;
    call.answer = std::move(answer->text);
    call.answerSize = call.answer.size();
    if (!call.answer.empty()) return std::nullopt;
    return refusal("502005",
                   call.stoppedByLength
                       ? "the model reached its limit before it said anything: the template's "
                         "\"maxTokens\" may be too small"
                       : "the model's answer is empty");
}

Answer Model::refusalFor(ModelClient::Fate fate) const {
    using Fate = ModelClient::Fate;
    const auto within = " within " + secondsOf(options_.timeout);
    switch (fate) {
        case Fate::NotReached:
            return refusal("502001", "the model's server cannot be reached at " + options_.url +
                                         " (check that it runs, and --model-url)");
        case Fate::NotTrusted:
            return refusal("502002", "the certificate of the model's server at " + options_.url +
                                         " is not trusted: --model-ca-file names its authority");
        case Fate::TooLarge:
            return refusal("502006", "the answer of the model's server is longer than " +
                                         std::to_string(options_.maxAnswerBytes) + " bytes");
        case Fate::NoTurn:
            return refusal("503001",
                           "no turn at the model" + within + ": " +
                               std::to_string(options_.concurrency) +
                               " requests were under way; --model-concurrency allows more");
        case Fate::TimedOut:
            return refusal("504001", "no complete answer of the model" + within +
                                         "; --model-timeout allows more");
        case Fate::Left:
            return refusal("499001", "the client left before the model had answered");
        case Fate::CutOff:
        case Fate::Answered:
            break;
    }
    return refusal("502007",
                   "the connection to the model's server ended before its answer was complete");
}

// A server may quote the key in its complaint; and what clients look for in the gateway's own
// messages must not come from elsewhere.
std::string Model::quoted(std::string text) const {
    for (const auto part : {std::string_view(options_.key), kTokenRejected, kContentRejected})
        replaceAll(text, part, "...");
    if (text.empty()) return "(no message)";
    if (text.size() <= kMostQuoted) return '"' + text + '"';
    return '"' + readableText(text.substr(0, kMostQuoted), true).value_or("") + "...\"";
}

}  // namespace gateway
