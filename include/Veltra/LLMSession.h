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
    /// For the library's own classes. The interface holds no data, and neither this nor what
    /// follows does anything.
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

    /// Copies out the answer.
    /// @return the text that the model produced, UTF-8, without any escaping; possibly empty
    virtual std::string GetContent() = 0;
};

/// Runs queries, one at a time, and keeps the error of the last one that failed.
///
/// One thread at a time may use a session. Threads that query at the same time take a session each
/// from `CAiHelper::GetLLMSessionItem`; that costs next to nothing. None of its functions throws,
/// apart from a failure to allocate memory. Held by shared pointers alone: never delete it through
/// a plain pointer.
class VELTRA_API CLLMSession {
 public:
    /// For the library's own classes. The interface holds no data, and neither this nor what
    /// follows does anything.
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

    /// Runs one query and blocks until it is done: at most three attempts to reach the gateway.
    /// When the gateway rejects the token, the token is renewed and the query sent once more, again
    /// with at most three attempts. The renewal costs a probe of the domain (three attempts) and
    /// requests with each access-key pair that is left; while it keeps failing it is tried three
    /// times more, a minute apart, and `Veltra_Unit` and `Veltra_Disable` cut these pauses short.
    /// Each attempt is bounded by the limits of `Oak::Net::HttpClientOptions`.
    ///
    /// On false `GetErrorInfo` says why:
    ///
    /// - 1: no message was given, or no token is held, or the gateway rejected the token and
    ///   refused the repeated query as well. The message is empty or the gateway's text. Log in
    ///   (again).
    /// - 2, "client send message failed": the gateway can't be reached. Try later.
    /// - 3, "veltra is not enable" or "llm service is not can be used": enable the layer and log
    ///   in, or wait until `Veltra_IsLLMServiceValid`. Also in a forked child, and while the
    ///   process ends.
    /// - 4, "has sensitive words" or the gateway's text: a value holds a sensitive phrase, or the
    ///   gateway found one. Change the text.
    /// - 6, "response is empty", the gateway's text, or empty: the gateway refused the query, or
    ///   gave an answer that can't be read.
    ///
    /// @param message  the input; read at the start of the call and never changed. The library
    ///                 holds on to it until the call returns
    /// @param result   receives a new message, owned by the caller; left as it was on false
    /// @return true when the gateway answered with success
    virtual bool ExecuteQuery(std::shared_ptr<CHumanMessage> message,
                              std::shared_ptr<CLLMMessage>& result) = 0;

    /// Copies out the error of the last query: one of the list at `ExecuteQuery` after a false
    /// return, 0 and the empty text after a true one and before the first query.
    /// @param code     receives the code
    /// @param message  receives the text that goes with it
    virtual void GetErrorInfo(std::int32_t& code, std::string& message) = 0;

    /// The session's text.
    /// @return the empty text
    virtual std::string GetSessionText() = 0;
};

}  // namespace Veltra

#endif
