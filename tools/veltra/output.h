#pragma once

#include "json_library.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

/// What the program prints: results on standard output, as text or as JSON, and everything else on
/// standard error.

namespace tool {

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUsage = 2;

/// The user must change the command line, the environment or an input file; exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Something was refused or failed; exit status 1. The code is that of a query's session, or 0 when
/// things ended before a query.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& message, std::int32_t sessionCode = 0)
        : std::runtime_error(message), code(sessionCode) {}
    std::int32_t code;
};

/// The text as it stands between the quotes of a JSON string. Throws UsageError when it isn't
/// UTF-8, with the name of the text and not the text, which may be secret.
std::string jsonEscaped(std::string_view text, const std::string& name);

/// The text with control characters shown as escapes, so that it can't steer a terminal.
std::string printable(std::string_view text);

/// A line on standard output.
void printLine(std::string_view text);
/// An answer on standard output: as it is, unless a terminal shows it.
void printAnswer(std::string_view text);
/// A line on standard error.
void complain(std::string_view text);
/// A line on standard error for a person who watches; none when that isn't a terminal.
void note(std::string_view text);

/// Writes JSON; texts must be UTF-8.
class JsonWriter {
 public:
    void beginObject() { writer_.StartObject(); }
    void endObject() { writer_.EndObject(); }
    void beginArray() { writer_.StartArray(); }
    void endArray() { writer_.EndArray(); }
    void name(std::string_view name) { text(name); }
    void text(std::string_view value);
    /// An array that another writer wrote.
    void json(std::string_view array) {
        writer_.RawValue(array.data(), array.size(), rapidjson::kArrayType);
    }

    void member(std::string_view memberName, std::string_view value);
    void member(std::string_view memberName, const char* value);
    void member(std::string_view memberName, std::int32_t value);
    void member(std::string_view memberName, bool value);

    std::string_view written() const { return {buffer_.GetString(), buffer_.GetSize()}; }

 private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

/// One line of JSON on standard output: an object that begins with "ok".
void printJson(bool ok, const std::function<void(JsonWriter&)>& writeMembers);

/// Reports a failure in the form that was asked for.
void reportFailure(bool json, const Failure& failure);

/// Hands standard output on. False, with a complaint, when any of it was lost.
bool finishOutput();

}  // namespace tool
