#pragma once

#include <Veltra/HumanMessage.h>
#include <Veltra/LLMSession.h>

#include <memory>
#include <string>

namespace tool {

/// A session of the library. One thread at a time may use it.
class QuerySession {
 public:
    QuerySession();

    /// Runs one query and returns the answer. Throws Failure with the session's code and message.
    std::string run(const std::shared_ptr<Veltra::CHumanMessage>& message) const;

 private:
    const std::shared_ptr<Veltra::CLLMSession> session_;
};

}  // namespace tool
