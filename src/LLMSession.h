#ifndef VELTRA_SRC_LLMSESSION_H
#define VELTRA_SRC_LLMSESSION_H

#include <Veltra/LLMSession.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace Veltra {

struct CHumanMessageIMP;
struct GatewayAccess;

/// The one implementation of a session.
class AISession final : public CLLMSession {
 public:
    bool ExecuteQuery(std::shared_ptr<CHumanMessage> message,
                      std::shared_ptr<CLLMMessage>& result) override;
    void GetErrorInfo(std::int32_t& code, std::string& message) override;
    std::string GetSessionText() override;

 private:
    /// One query under way: what its steps hand on to each other.
    struct Query;

    bool Run(Query& query, const std::shared_ptr<CHumanMessage>& message,
             std::shared_ptr<CLLMMessage>& result);
    bool Prepare(Query& query, const CHumanMessageIMP& record);
    bool Send(Query& query);
    bool Parse(Query& query, std::shared_ptr<CLLMMessage>& result) const;

    std::string sessionText_;
    std::int32_t errorCode_ = 0;
    std::string errorMessage_;
};

/// The one implementation of an answer.
class AIMessage final : public CLLMMessage {
 public:
    explicit AIMessage(std::string content) : content_(std::move(content)) {}

    std::string GetContent() override { return content_; }

 private:
    std::string content_;
};

}  // namespace Veltra

#endif
