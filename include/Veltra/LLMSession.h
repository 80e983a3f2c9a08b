#ifndef VELTRA_LLMSESSION_H
#define VELTRA_LLMSESSION_H

#include <Veltra/Export.h>
#include <Veltra/HumanMessage.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Veltra {

/// The answer to a query. It never changes, so any number of threads may read it.
///
/// Made by the layer and held by shared pointers alone, which destroy it rightly although the
/// interface declares no destructor: never delete it through a plain pointer.
class VELTRA_API CLLMMessage {
 public:
    CLLMMessage();
    CLLMMessage(const CLLMMessage& other);
    CLLMMessage(CLLMMessage&& other) noexcept;
    CLLMMessage& operator=(const CLLMMessage& other);
    CLLMMessage& operator=(CLLMMessage&& other) noexcept;

    /// The text that the model produced, UTF-8; possibly empty.
    virtual std::string GetContent() = 0;
};

/// Runs queries, one at a time, and keeps the error of the last one that failed.
///
/// One thread at a time may use a session. Threads that query at the same time take a session each
/// from `CAiHelper::GetLLMSessionItem`; that costs next to nothing. Held by shared pointers alone:
/// never delete it through a plain pointer.
class VELTRA_API CLLMSession {
 public:
    CLLMSession();
    CLLMSession(const CLLMSession& other);
    CLLMSession(CLLMSession&& other) noexcept;
    CLLMSession& operator=(const CLLMSession& other);
    CLLMSession& operator=(CLLMSession&& other) noexcept;

    /// Runs one query and blocks until it is done: at most three attempts to reach the gateway.
    /// When the gateway rejects the token, the token is renewed and the query sent once more, again
    /// with at most three attempts. The renewal costs a probe of the domain (three attempts) and
    /// requests with each access-key pair that is left; while it keeps failing it is tried three
    /// times more, a minute apart, and `Veltra_Unit` and `Veltra_Disable` cut these pauses short.
    /// Each attempt is bounded by the limits of `Oak::Net::HttpClientOptions`.
    ///
    /// True, with a new message in `result`, when the gateway answered with success. On false
    /// `result` is left as it was, and `GetErrorInfo` says why:
    ///
    /// - 1: no message was given, or no token is held, or the gateway rejected the token and
    ///   refused the repeated query as well. The message is empty or the gateway's text. Log in
    ///   (again).
    /// - 2, "client send message failed": the gateway can't be reached. Try later.
    /// - 3, "veltra is not enable" or "llm service is not can be used": enable the layer and log
    ///   in, or wait until `Veltra_IsLLMServiceValid`.
    /// - 4, "has sensitive words" or the gateway's text: a value holds a sensitive phrase, or the
    ///   gateway found one. Change the text.
    /// - 6, "response is empty", the gateway's text, or empty: the gateway refused the query, or
    ///   gave an answer that can't be read.
    virtual bool ExecuteQuery(std::shared_ptr<CHumanMessage> message,
                              std::shared_ptr<CLLMMessage>& result) = 0;

    /// Copies out the code and message of the last query: those of the list above after a false
    /// return, 0 and the empty text after a true one and before the first query.
    virtual void GetErrorInfo(std::int32_t& code, std::string& message) = 0;

    /// The session's text; empty.
    virtual std::string GetSessionText() = 0;
};

}  // namespace Veltra

#endif
