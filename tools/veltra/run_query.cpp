#include "run_query.h"

#include "output.h"

#include <Veltra/Veltra.h>

#include <cstdint>

namespace tool {

std::string runQuery(const std::shared_ptr<Veltra::CHumanMessage>& message) {
    Veltra::CAiHelper helper(Veltra::ProductType::Default, "");
    const auto session = helper.GetLLMSessionItem(Veltra::LLMType::Default);
    std::shared_ptr<Veltra::CLLMMessage> answer;
    if (session->ExecuteQuery(message, answer)) return answer->GetContent();
    std::int32_t code = 0;
    std::string reason;
    session->GetErrorInfo(code, reason);
    throw Failure(reason, code);
}

}  // namespace tool
