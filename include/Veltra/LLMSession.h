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
/// Created by the layer and held by shared pointers only, which destroy it correctly although the
/// interface declares no destructor: never delete it through a plain pointer.
class VELTRA_API CLLMMessage {
 public:
    /// For the library's own classes. The interface holds no data: this constructor and the copy
    /// and move operations below do nothing.
    CLLMMessage();

    /// Copies nothing.
    /// @param other  any object
    CLLMMessage(const CLLMMessage& other);

    /// Moves nothing.
    /// @param other  any object
    CLLMMessage(CLLMMessage&& other) noexcept;

    /// Copies nothing.
    /// @param other  any object
    /// @return this object
    CLLMMessage& operator=(const CLLMMessage& other);

    /// Moves nothing.
    /// @param other  any object
    /// @return this object
    CLLMMessage& operator=(CLLMMessage&& other) noexcept;

    /// Returns a copy of the answer.
    /// @return the text that the model produced, UTF-8, without any escaping; possibly empty
    virtual std::string GetContent() = 0;
};

/// Runs queries, one at a time, and keeps the last one's error.
///
/// One thread at a time may use a session. Threads that query concurrently each get a session of
/// their own from `CAiHelper::GetLLMSessionItem`, which costs next to nothing. Its functions throw
/// only when memory can't be allocated. Sessions are held by shared pointers only: never delete one
/// through a plain pointer.
class VELTRA_API CLLMSession {
 public:
    /// For the library's own classes. The interface holds no data: this constructor and the copy
    /// and move operations below do nothing.
    CLLMSession();

    /// Copies nothing.
    /// @param other  any object
    CLLMSession(const CLLMSession& other);

    /// Moves nothing.
    /// @param other  any object
    CLLMSession(CLLMSession&& other) noexcept;

    /// Copies nothing.
    /// @param other  any object
    /// @return this object
    CLLMSession& operator=(const CLLMSession& other);

    /// Moves nothing.
    /// @param other  any object
    /// @return this object
    CLLMSession& operator=(CLLMSession&& other) noexcept;

    /// Runs one query and blocks until it is done, with at most three attempts to reach the
    /// gateway. If the gateway rejects the token, the token is renewed and the query sent once
    /// more, again with at most three attempts. A renewal probes the domain (up to three attempts)
    /// and sends requests with each remaining access-key pair. If it fails, it is retried three
    /// times, a minute apart; `Veltra_Unit` and `Veltra_Disable` cut these pauses short. Each
    /// attempt is subject to the limits of `Oak::Net::HttpClientOptions`.
    ///
    /// If it returns false, `GetErrorInfo` says why:
    ///
    /// - 1: no message was given, no token is held, or the gateway rejected the token and then
    ///   refused the repeated query as well. The text is empty or the gateway's. Log in (again).
    /// - 2, "client send message failed": the gateway can't be reached. Try again later.
    /// - 3, "veltra is not enable" or "llm service is not can be used": enable the layer and log
    ///   in, or wait until `Veltra_IsLLMServiceValid`. Also in a forked child, and while the
    ///   process ends.
    /// - 4, "has sensitive words" or the gateway's text: a value contains a sensitive phrase, or
    ///   the gateway found one. Change the text.
    /// - 6, "response is empty", the gateway's text, or empty: the gateway refused the query, or
    ///   its answer can't be read.
    ///
    /// @param message  the input, read at the start of the call and never changed. The library
    ///                 keeps a reference to it until the call returns
    /// @param result   receives a new message, owned by the caller; unchanged on false
    /// @return true if the gateway answered with success
    virtual bool ExecuteQuery(std::shared_ptr<CHumanMessage> message,
                              std::shared_ptr<CLLMMessage>& result) = 0;

    /// Returns the error of the last query: one of those listed at `ExecuteQuery` if it returned
    /// false; 0 and an empty text if it returned true, or before the first query.
    /// @param code     receives the code
    /// @param message  receives the text that goes with it
    virtual void GetErrorInfo(std::int32_t& code, std::string& message) = 0;

    /// The session's text.
    /// @return the empty text
    virtual std::string GetSessionText() = 0;
};

}  // namespace Veltra

#endif
