#include "values.h"

#include "files.h"
#include "output.h"
#include "process.h"

#include <cstdio>
#include <fstream>
#include <utility>

namespace tool {

namespace {

std::string textOfStandardInput(const std::string& name) {
    if (inputComesFromTerminal())
        note("type the value of " + name + ", and end it with Ctrl-D (Ctrl-Z on Windows)");
    std::string text = readToEnd(standardInput(), "standard input");
    // The stream treats an error like the end.
    if (std::ferror(stdin) != 0) throw UsageError("cannot read standard input");
    return text;
}

std::string textOfFile(const std::string& name, const std::string& file) {
    std::ifstream stream(pathOf(file), std::ios::binary);
    if (!stream)
        throw UsageError("the value of " + name + ": cannot read \"" + file +
                         "\"; a value that begins with @ is written @@");
    return readToEnd(stream, file);
}

/// The text without what editors add to it: a byte order mark, and the last line break, which would
/// keep a phrase before it from being found.
std::string withoutFrame(std::string text) {
    text.erase(0, byteOrderMarkOf(text).size());
    if (!text.empty() && text.back() == '\n') text.pop_back();
    if (!text.empty() && text.back() == '\r') text.pop_back();
    return text;
}

/// Reads values, at most one of them from standard input.
class ValueReader {
 public:
    std::string read(const std::string& name, const std::string& given) {
        if (given.empty() || given.front() != '@') return given;
        std::string source = given.substr(1);
        if (!source.empty() && source.front() == '@') return source;
        if (source == "-" && std::exchange(inputIsTaken_, true))
            throw UsageError("the value of " + name + ": @- can be given once");
        std::string text =
            withoutFrame(source == "-" ? textOfStandardInput(name) : textOfFile(name, source));
        if (text.find('\0') != text.npos)
            throw UsageError("the value of " + name + " contains a zero byte: is it UTF-8?");
        return text;
    }

 private:
    bool inputIsTaken_ = false;
};

std::size_t endOfName(const std::string& assignment) {
    const auto equals = assignment.find('=');
    if (equals == 0 || equals == assignment.npos)
        throw UsageError("expected NAME=VALUE: " + assignment);
    return equals;
}

}  // namespace

void checkForm(const std::vector<std::string>& assignments) {
    for (const auto& assignment : assignments)
        endOfName(assignment);
}

Values readValues(const std::vector<std::string>& assignments) {
    Values values;
    ValueReader reader;
    for (const auto& assignment : assignments) {
        const auto equals = endOfName(assignment);
        const std::string name = assignment.substr(0, equals);
        if (values.count(name) != 0) throw UsageError("given twice: " + name);
        values.emplace(name, reader.read(name, assignment.substr(equals + 1)));
    }
    return values;
}

}  // namespace tool
