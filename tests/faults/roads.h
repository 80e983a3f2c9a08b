#ifndef VELTRA_TESTS_FAULTS_ROADS_H
#define VELTRA_TESTS_FAULTS_ROADS_H

#include <cstddef>
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
    std::string text;  ///< What it handed out; of a query that failed "code: message".
    Lines lines;       ///< The records of level 3 and above, as Line() writes them.
    Lines requests;    ///< "METHOD target" of each.
    std::string sent;  ///< Expected somewhere in the last request's body.
};

/// An answer with status 200.
struct Answer {
    std::string body;
    bool isJson = true;
    /// The text that each member reads as, by its path; of the list of slots, how many they are.
    std::map<std::string, std::string> members = {};

    std::string at(const std::string& path) const {
        const auto found = members.find(path);
        return found == members.end() ? "" : found->second;
    }
};

struct NotSent {
    std::string reason;  ///< As the record of the HTTP client begins it.
};
struct Refused {
    int status = 0;
};
/// What becomes of each request of a road.
using Fate = std::variant<NotSent, Refused, Answer>;

/// A member that is read, as `"name":value` stands in an answer.
struct Member {
    Answer answer;
    std::string name, value, path;
};

struct Road {
    std::string name;
    std::string method;
    std::string target;   ///< As the gateway lists it.
    std::string faulted;  ///< The path of this road's faults.
    std::size_t attempts = 3;
    Answer good;
    std::function<bool(std::string& text)> run = {};

    std::string failedText = {};  ///< What is handed out when no answer came.
    Lines begins = {};            ///< Records before the first attempt.
    Lines requestsBefore = {};
    std::string refusal = {};  ///< The record of another status than 200, which stands for the '#'.
    Lines notSent = {};        ///< Records once the attempts are used up without any answer,
    Lines refused = {};        ///< and with one of another status at last.
    std::function<void(const Answer&, Outcome&)> answered = {};
    std::vector<Member> members = {};

    /// `repeats` is how many requests the HTTP library sends once more by itself.
    Outcome expected(const Fate& fate, std::size_t repeats) const;
};

/// The record as the test keeps it. What is printed ends at a NUL.
std::string Line(int level, const std::string& operation, const std::string& text);

constexpr const char* kRoadNames[] = {"Probe", "Token",    "Query", "Slots",
                                      "Put",   "Feedback", "Cancel"};
Road MakeRoad(const std::string& name, const std::string& base);
/// The answers that all roads give while nothing is wrong, by target.
std::map<std::string, std::string> GoodAnswers(const std::string& base);
/// Runs a query; its answer, or "code: message".
bool RunQuery(std::string& text);

}  // namespace faults

#endif
