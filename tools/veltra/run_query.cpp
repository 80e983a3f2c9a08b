#include "run_query.h"

#include "output.h"

#include <Veltra/Veltra.h>

#include <cstdint>

namespace tool {

QuerySession::QuerySession()
    : session_(Veltra::CAiHelper(Veltra::ProductType::Default, "")
                   .GetLLMSessionItem(Veltra::LLMType::Default)) {}

std::string QuerySession::run(const std::shared_ptr<Veltra::CHumanMessage>& message) const {
    std::shared_ptr<Veltra::CLLMMessage> answer;
    if (session_->ExecuteQuery(message, answer)) return answer->GetContent();
    const auto report = Veltra::Veltra_LastCall();
    std::int32_t code = 0;
    std::string reason;
    session_->GetErrorInfo(code, reason);
    throw Failure(reason, report, code);
}

}  // namespace tool
