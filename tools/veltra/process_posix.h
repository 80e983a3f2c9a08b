#pragma once

#include <string>

/// What the program asks of the operating system.

namespace tool {

/// Call it first. A write to a closed pipe fails instead of ending the program, and descriptors 0
/// to 2 are taken: on a closed one the first socket would sit, and get what is meant for the user.
void prepareStandardStreams();

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

/// Whether users other than the file's owner may read it.
bool isReadableByOthers(const std::string& file);

}  // namespace tool
