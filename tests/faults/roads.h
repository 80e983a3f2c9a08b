#ifndef VELTRA_TESTS_FAULTS_ROADS_H
#define VELTRA_TESTS_FAULTS_ROADS_H

#include "support/plain_json.h"

#include <Veltra/Call.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// The roads that lead to the gateway, and what each of them makes of what it meets there.
namespace faults {

using Lines = std::vector<std::string>;

/// What one call of an export came to: expected, or seen.
struct Outcome {
    bool result = false;
    std::string text;         ///< What it handed out; of a query that failed "code: message".
    Lines lines;              ///< The records of level 3 and above, as Line() writes them.
    Lines requests;           ///< "METHOD target" of each.
    std::string sent;         ///< Expected somewhere in the last request's body.
    std::string report = {};  ///< What is reported of the call, as Report() writes it.
};

/// Outcome, HTTP status of the last answer, and the gateway's code.
std::string Report(Veltra::CallOutcome outcome, std::int32_t status, const std::string& code);

/// An answer with status 200, and how a plain reader of JSON reads it.
struct Answer {
    std::string body;
    std::optional<fuzz::Json> content = fuzz::ReadJson(body);

    std::string at(const std::string& path) const { return fuzz::TextAt(content, path); }
};

struct NotSent {
    std::string reason;  ///< As the record of the HTTP client begins it.
};
struct Refused {
    int status = 0;
};
/// What becomes of each request of a road.
using Fate = std::variant<NotSent, Refused, Answer>;

struct Road {
    std::string name;
    std::string method;
    std::string target;  ///< As the gateway lists it.
    std::string good;    ///< The body of its answer while nothing is wrong.
    std::function<bool(std::string& text)> run = {};
    std::string failedText = {};  ///< What is handed out when no answer came.
    std::size_t attempts = 3;
    std::string faulted = target + '$';  ///< The path of this road's faults.

    Lines begins = {};  ///< Records before the first attempt.
    Lines requestsBefore = {};
    std::string refusal = {};  ///< The record of another status than 200, which stands for the '#'.
    Lines notSent = {};        ///< Records once the attempts are used up without any answer,
    Lines refused = {};        ///< and with one of another status at last.
    std::int32_t statusBefore = 0;  ///< Of the last answer before the road's own, and the gateway's
    std::string codeBefore = {};    ///< code in it.
    std::function<void(const Answer&, Outcome&)> answered = {};

    /// `repeats` is how many requests the HTTP library sends once more by itself.
    Outcome expected(const Fate& fate, std::size_t repeats) const;
};

/// The record as the test keeps it. What is printed ends at a NUL.
std::string Line(int level, const std::string& operation, const std::string& text);

/// The answer of a gateway that refuses.
constexpr const char* kRefusal = R"({"errorCode":"7","message":"no"})";

constexpr const char* kRoadNames[] = {"Probe", "Token",    "Query", "Slots",
                                      "Put",   "Feedback", "Cancel"};
std::map<std::string, Road> Roads(const std::string& base);

}  // namespace faults

#endif
