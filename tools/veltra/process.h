#pragma once

#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <vector>

/// What the program asks of the operating system.

namespace tool {

/// The command line in UTF-8, as all texts of the program are. On most systems what main() was
/// given is just that.
class CommandLine {
 public:
    CommandLine(int argc, char** argv);
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    int count() const { return static_cast<int>(values_.size()) - 1; }
    char** values() { return values_.data(); }  ///< a null pointer ends them

 private:
    std::vector<std::string> texts_;
    std::vector<char*> values_;
};

/// The variable's value in UTF-8; empty when it isn't set.
std::string environmentText(const char* name);

/// Call it before anything is read or written. A write to a closed pipe fails instead of ending the
/// program, and descriptors 0 to 2 are taken: on a closed one the first socket would sit, and get
/// what is meant for the user.
void prepareStandardStreams();

/// Standard input in UTF-8, as far as what writes to it does its part.
std::istream& standardInput();

/// Whether the write that has just failed did so since nobody will read any more.
bool readerIsGone();

bool inputComesFromTerminal();
bool errorGoesToTerminal();
bool outputGoesToTerminal();

/// Points standard output elsewhere while it lives, for all threads; what is buffered must have
/// been handed on before. Throws Failure.
class OutputElsewhere {
 public:
    enum class Target { StandardError, Nowhere };

    explicit OutputElsewhere(Target target);
    ~OutputElsewhere();
    OutputElsewhere(const OutputElsewhere&) = delete;
    OutputElsewhere& operator=(const OutputElsewhere&) = delete;

 private:
    int output_;  ///< where standard output goes otherwise
};

/// Takes Ctrl-C (SIGINT) while it lives: the first asks for an early end, a later one ends the
/// program. One within 200 ms counts as the same: "timeout" signals its child and then the whole
/// group. Where it was ignored, as it is in a background job, it stays so. One at a time.
class Interruption {
 public:
    /// `act`, if there is one, is called once, on a thread of its own, at the first.
    explicit Interruption(std::function<void()> act = {});
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool requested() const;

 private:
    class Watcher;
    std::unique_ptr<Watcher> watcher_;
};

/// Puts another program, looked for beside this one, where the build leaves it, and then in PATH,
/// into the place of this one:
/// same process, same environment. Returns the exit status for want of it, with a complaint. There
/// is nothing to become on Windows.
int becomeProgram(const std::string& name, const std::vector<char*>& arguments);

/// Whether users other than the file's owner may read it, as far as the system says so: Windows
/// isn't asked.
bool isReadableByOthers(const std::string& file);

}  // namespace tool
