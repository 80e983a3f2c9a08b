#include "support/host.h"

#include "support/texts.h"

namespace bench {

std::shared_ptr<Veltra::CHumanMessage> EightElementMessage() {
    auto message = std::make_shared<Veltra::CHumanMessage>();
    message->SetElements(promptKey, EightElements());
    message->SetSessionID(sessionId);
    return message;
}

HostSession::HostSession()
    : message_(EightElementMessage()),
      session_(Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({})) {}

bool HostSession::Query(std::string& answer) {
    std::shared_ptr<Veltra::CLLMMessage> result;
    if (!session_->ExecuteQuery(message_, result)) return false;
    answer = result->GetContent();
    return true;
}

}  // namespace bench
