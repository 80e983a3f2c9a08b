#pragma once

#include "json_library.h"

#include <Veltra/Call.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

/// What the program prints: results on standard output, as text or as JSON, and everything else on
/// standard error.

namespace tool {

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kCannotRun = 126;  ///< as a shell has it, like those below
inline constexpr int kNotFound = 127;
inline constexpr int kInterrupted = 130;

/// The user must change the command line, the environment or an input file; exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Something was refused or failed; exit status 1. The code is that of a query's session, or 0 when
/// things ended before a query.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& message, std::int32_t sessionCode = 0)
        : std::runtime_error(message), code(sessionCode) {}
    /// Of a call that failed, with what the library reports of it.
    Failure(const std::string& message, const Veltra::CCallReport& callReport,
            std::int32_t sessionCode = 0)
        : std::runtime_error(message), code(sessionCode), report(callReport) {}
    std::int32_t code;
    std::optional<Veltra::CCallReport> report;
};

/// Throws UsageError when a text isn't UTF-8, with the name of the text and not the text, which may
/// be secret.
void requireUtf8(std::string_view text, const std::string& name);

/// The text as it stands between the quotes of a JSON string. It must be UTF-8, as above.
std::string jsonEscaped(std::string_view text, const std::string& name);

/// The text with control characters shown as escapes, so that it can't steer a terminal.
std::string printable(std::string_view text);

/// A line on standard output.
void printLine(std::string_view text);
/// Whether a line could not be handed on; what would be printed from now on is lost as well.
bool outputIsLost();
/// An answer on standard output: as it is, unless a terminal shows it.
void printAnswer(std::string_view text);
/// A line on standard error.
void complain(std::string_view text);
/// A line on standard error for a person who watches; none when that isn't a terminal.
void note(std::string_view text);

/// A line on standard error that tells a person who watches how far things are; none when that
/// isn't a terminal. Lines of complain() take its place, and with the object it is gone. One at a
/// time.
class ProgressLine {
 public:
    ProgressLine() = default;
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(const std::string& text);
};

/// Writes JSON in UTF-8: bytes of a text that are none become U+FFFD.
class JsonWriter {
 public:
    void beginObject() { writer_.StartObject(); }
    void endObject() { writer_.EndObject(); }
    void beginArray() { writer_.StartArray(); }
    void endArray() { writer_.EndArray(); }
    void name(std::string_view name) { text(name); }
    void text(std::string_view value);
    void failure(const Failure& failure);  ///< its code, its message, and what is reported
    void report(const Veltra::CCallReport& report);
    /// An array that another writer wrote.
    void json(std::string_view array) {
        writer_.RawValue(array.data(), array.size(), rapidjson::kArrayType);
    }

    void member(std::string_view memberName, std::string_view value);
    void member(std::string_view memberName, const char* value);
    void member(std::string_view memberName, std::int32_t value);
    void member(std::string_view memberName, std::uint64_t value);
    /// Written with three decimals at most.
    void member(std::string_view memberName, double value);
    void member(std::string_view memberName, bool value);

    std::string_view written() const { return {buffer_.GetString(), buffer_.GetSize()}; }

 private:
    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
};

/// One line of JSON on standard output: an object that begins with "ok". Where that is false, the
/// members of a failure follow.
void printJson(bool ok, const std::function<void(JsonWriter&)>& writeMembers);

/// Reports a failure in the form that was asked for.
void reportFailure(bool json, const Failure& failure);

/// Hands standard output on. False when any of it was lost; with a complaint, unless the reader
/// simply wanted no more.
bool finishOutput();

}  // namespace tool
