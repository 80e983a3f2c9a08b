#ifndef VELTRA_CALL_H
#define VELTRA_CALL_H

#include <Veltra/Export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Veltra {

/// @file
/// Control over calls: time limits, cancelling, the reason for a failure, logging out.
///
/// Six functions talk to the gateway while the host waits, and can be controlled:
/// `Veltra_SetDomain`, `Veltra_IsDomainValid`, `Veltra_Authentication`,
/// `CLLMSession::ExecuteQuery`, `Veltra_SubmitComments` and `Veltra_CancleComments`. In this file,
/// a "call" is a call of one of these.
///
///     CCallControl control;                 // shared with whoever has the Cancel button
///     control.SetTimeLimit(5000);
///     const CCallScope scope(control);      // on the thread that calls
///     if (!session->ExecuteQuery(message, answer)) show(Veltra_LastCall().Detail());
///
/// A call that is cancelled or runs out of time returns false within 100 ms, whatever it is waiting
/// for: an exchange, a renewal on another thread, or a pause. Two steps can't be interrupted and
/// may take longer: the system's name lookup, and reading the system's certificates when TLS
/// starts. The call leaves behind what any failed call does: a query reports code 2, and a login or
/// renewal changes neither flags nor token. The connection of an interrupted exchange is closed,
/// and no part of its answer reaches a later call. The gateway may have acted on a request whose
/// answer didn't arrive.

/// How a call ended.
enum class CallOutcome : std::int32_t {
    Succeeded = 0,        ///< the call returned true
    NotEnabled = 1,       ///< the layer is not enabled, or in a forked child or an ending process
    NotUsable = 2,        ///< no login yet, or the service was last found unusable
    BadArgument = 3,      ///< null, empty, or a handle that was moved from
    Screened = 4,         ///< a value contains a phrase of the host's list; nothing was sent
    Cancelled = 5,        ///< by a `CCallControl` or `Veltra_CancelAll`
    TimedOut = 6,         ///< a time limit expired: the control's, or one of the exchange
    NotReached = 7,       ///< no connection: name, address, port, proxy, or no common TLS version
    NotTrusted = 8,       ///< the server's certificate isn't trusted
    CutOff = 9,           ///< the connection ended before the answer did
    BadStatus = 10,       ///< an answer with a status other than 200
    BadAnswer = 11,       ///< an answer that is empty, too large or malformed
    Refused = 12,         ///< the gateway refused, with a code
    TokenRejected = 13,   ///< the gateway rejected the token, and the renewed one as well
    ForbiddenWords = 14,  ///< the gateway found a forbidden word
    NotAllowed = 15,      ///< the library refused to send: plain http, a malformed URL or header
    Failed = 16           ///< anything else, such as running out of memory
};

struct CCallControlIMP;
struct CCallScopeIMP;
struct CCallReportIMP;

/// Controls calls: limits their time and cancels them.
///
/// A handle: copies share one control. Any thread may use any copy at any time, including a log
/// handler and a user-interface thread, since nothing here waits for a call. A control applies to
/// the calls that begin while a `CCallScope` for it exists on their thread; any number of threads
/// may have one. A moved-from handle does nothing. Its functions throw only when memory can't be
/// allocated.
class VELTRA_API CCallControl {
 public:
    /// Creates a control without a time limit, not cancelled.
    CCallControl();
    /// Makes another handle to the control of `other`.
    /// @param other  the handle to copy
    CCallControl(const CCallControl& other);
    /// Takes over the control of `other`.
    /// @param other  the handle to move from; empty afterwards
    CCallControl(CCallControl&& other) noexcept;
    /// Becomes another handle to the control of `other`.
    /// @param other  the handle to copy
    /// @return this handle
    CCallControl& operator=(const CCallControl& other);
    /// Takes over the control of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CCallControl& operator=(CCallControl&& other) noexcept;
    /// Releases the control. Calls under way stay under it.
    ~CCallControl();

    /// Limits the time of each whole call that begins from now on: its attempts, waits, pauses and
    /// repeats together. The limits of `Oak::Net::HttpClientOptions`, which apply to each exchange,
    /// remain in force.
    /// @param milliseconds  the longest time of a call; 0, the initial value: no limit
    void SetTimeLimit(std::uint32_t milliseconds);

    /// Cancels the calls under way on any thread with this control, and refuses later ones until
    /// `Reset`. A call whose answer has already arrived still returns it. Doesn't wait for the
    /// calls to return.
    void Cancel();

    /// Tells whether the control is cancelled.
    /// @return true between `Cancel` and `Reset`
    bool IsCancelled() const;

    /// Allows calls again. Calls that were under way when `Cancel` was called stay cancelled.
    void Reset();

 private:
    friend class CCallScope;
    std::shared_ptr<CCallControlIMP> record_;
};

/// Puts a thread's calls under a control while the scope exists.
///
/// It applies to the thread that creates it. Scopes nest, and all open ones apply: the shortest
/// limit holds, and any of them cancels. A scope can be neither copied nor moved. Create and
/// destroy it on the same thread, preferably as a local variable. A scope destroyed on another
/// thread ends there as well, but its memory is freed only when its own thread next makes a call or
/// a scope.
class VELTRA_API CCallScope {
 public:
    /// Puts the thread's later calls under `control`. Throws only when memory can't be allocated.
    /// @param control  the control; with an empty handle the scope has no effect
    explicit CCallScope(const CCallControl& control);
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;
    /// Ends the scope. A call that began within it stays under the control.
    ~CCallScope();

 private:
    CCallScopeIMP* record_;
};

/// How one call ended, and why.
///
/// A handle to a report that never changes. It may be kept, and any number of threads may read it.
/// Its functions throw only when memory can't be allocated.
class VELTRA_API CCallReport {
 public:
    /// Creates an empty report, as of no call: `NotEnabled`, without an attempt.
    CCallReport();
    /// Makes another handle to the report of `other`.
    /// @param other  the handle to copy
    CCallReport(const CCallReport& other);
    /// Takes over the report of `other`.
    /// @param other  the handle to move from; an empty report afterwards
    CCallReport(CCallReport&& other) noexcept;
    /// Becomes another handle to the report of `other`.
    /// @param other  the handle to copy
    /// @return this handle
    CCallReport& operator=(const CCallReport& other);
    /// Takes over the report of `other`.
    /// @param other  the handle to move from; an empty report afterwards
    /// @return this handle
    CCallReport& operator=(CCallReport&& other) noexcept;
    /// Releases the report.
    ~CCallReport();

    /// How the call ended. If several attempts failed, the last one counts.
    /// @return the outcome
    CallOutcome Outcome() const;

    /// Whether the same call may succeed when it is simply repeated later: `NotUsable`, `TimedOut`,
    /// `NotReached`, `CutOff`, `TokenRejected`, and `BadStatus` with 408, 429 or 500 and above.
    /// Feedback that is submitted again may be stored twice.
    /// @return true if it may
    bool Retryable() const;

    /// How many exchanges the call made: attempts, repeats and renewal requests.
    /// @return the number; 0 if nothing was sent
    std::int32_t Attempts() const;

    /// The HTTP status of the last answer in the call.
    /// @return the status; 0 if no answer came
    std::int32_t HttpStatus() const;

    /// The "errorCode" of the gateway's last answer.
    /// @return the code, "0" for a success; empty if it gave none
    std::string GatewayCode() const;

    /// The "message" of the gateway's last answer: its explanation of a refusal.
    /// @return the text as received, at most its first 4096 bytes; empty if it gave none
    std::string GatewayMessage() const;

    /// One line for a person: what the transport, the TLS library or the layer reported. It
    /// contains no key, no token, and neither the user part nor the query of a URL.
    /// @return the line, in English; empty after a success
    std::string Detail() const;

    /// The trace id that a query or feedback sent, or would have sent.
    /// @return the id, including one that the library generated; empty for other calls
    std::string TraceId() const;

    /// How long the call took.
    /// @return the time from start to end in milliseconds, by the steady clock
    std::uint32_t Milliseconds() const;

 private:
    friend class CallReports;
    explicit CCallReport(std::shared_ptr<const CCallReportIMP> record);
    std::shared_ptr<const CCallReportIMP> record_;
};

/// Returns the report of the last call that ended on the calling thread. A call that a log handler
/// makes inside another call is reported until the outer one ends.
///
/// It is never that of another thread. Reports are kept for about 4096 threads: those that called
/// most recently. Doesn't block.
///
/// @return the report; an empty one if the thread has made no call, in a forked child, and while
/// the process ends
VELTRA_API CCallReport Veltra_LastCall();

/// Cancels every call under way on any thread, and the monitor thread's exchange. Later calls are
/// not affected. To close, a host calls this, joins its threads, and calls `Veltra_Disable`: all
/// three together take less than a second. Any thread may call it; it doesn't wait for the calls to
/// return.
///
/// @return true; false in a forked child, and while the process ends
VELTRA_API bool Veltra_CancelAll();

/// Logs out: stops the monitor thread, discards and wipes access keys and token, clears the domain
/// that came with the token, and marks the service as not usable. The enable flag, the domain of
/// `Veltra_SetDomain`, the phrase list and the product version stay. A later login starts with only
/// its own pairs.
///
/// Blocks like `Veltra_Unit`, and for a login or renewal under way on another thread; a login that
/// begins in the meantime counts as a later one. Call `Veltra_CancelAll` first to cut this short.
/// Any thread may call it.
///
/// The libraries that Veltra uses manage their own memory: what they have freed may hold a token
/// until it is reused.
///
/// @return true; false, with nothing discarded, when called from a log handler inside the thread's
/// own login or renewal, in a forked child, and while the process ends
VELTRA_API bool Veltra_Logout();

/// Sets whether feedback writes its request bodies to standard output. Any thread may call it; it
/// applies to bodies written from then on.
///
/// @param on  true, the initial setting: they are written
/// @return true; false in a forked child, and while the process ends
VELTRA_API bool Veltra_SetBodyEcho(bool on);

}  // namespace Veltra

#endif
