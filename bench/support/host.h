#ifndef VELTRA_BENCH_HOST_H
#define VELTRA_BENCH_HOST_H

#include "support/answerer.h"

#include <Veltra/AiHelper.h>
#include <Veltra/HumanMessage.h>

#include <memory>
#include <string>

namespace bench {

/// The query that all benchmarks run: eight elements, a session id, nothing for the gateway to
/// check, a body of 1 KiB.
std::shared_ptr<Veltra::CHumanMessage> EightElementMessage();

/// One of the library's sessions, ready to query.
class HostSession {
 public:
    HostSession();

    /// One query; its text in `answer`. False when it failed.
    bool Query(std::string& answer);

 private:
    std::shared_ptr<Veltra::CHumanMessage> message_;
    std::shared_ptr<Veltra::CLLMSession> session_;
};

}  // namespace bench

#endif
