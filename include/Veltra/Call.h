#ifndef VELTRA_CALL_H
#define VELTRA_CALL_H

#include <Veltra/Export.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Veltra {

/// @file
/// Calls that a host can steer: a time limit, cancelling, why a call failed, logging out.
///
/// Six calls talk to the gateway while the host waits, and can be steered: `Veltra_SetDomain`,
/// `Veltra_IsDomainValid`, `Veltra_Authentication`, `CLLMSession::ExecuteQuery`,
/// `Veltra_SubmitComments` and `Veltra_CancleComments`. "Call" means one of these here.
///
///     CCallControl control;                 // shared with whoever has the Cancel button
///     control.SetTimeLimit(5000);
///     const CCallScope scope(control);      // on the thread that calls
///     if (!session->ExecuteQuery(message, answer)) show(Veltra_LastCall().Detail());
///
/// A call that is cancelled, or whose time is up, returns false within 100 ms, whatever it waits
/// for: an exchange, a renewal on another thread, a pause. Only what can't be cut short may take
/// longer: the system's look-up of a name, and reading its certificates as TLS begins. It leaves behind what any failed call leaves: a query has code 2, and a login or
/// renewal changes neither flags nor token. The connection of an exchange that was cut is closed,
/// and nothing of its answer reaches a later call. The gateway may have acted on a request whose
/// answer didn't arrive.

/// What became of a call.
enum class CallOutcome : std::int32_t {
    Succeeded = 0,        ///< the call returned true
    NotEnabled = 1,       ///< the layer is not enabled; or a forked child; or the process is ending
    NotUsable = 2,        ///< no login yet, or the service was last found unusable
    BadArgument = 3,      ///< null, empty, or a handle that was moved from
    Screened = 4,         ///< a value holds a phrase of the host's list; nothing was sent
    Cancelled = 5,        ///< by a `CCallControl` or `Veltra_CancelAll`
    TimedOut = 6,         ///< a limit on time was met: the control's, or one of the exchange
    NotReached = 7,       ///< no connection: name, address, port, proxy, or no common TLS version
    NotTrusted = 8,       ///< the server's certificate isn't trusted
    CutOff = 9,           ///< the connection ended before the answer did
    BadStatus = 10,       ///< an answer with another status than 200
    BadAnswer = 11,       ///< an answer that is empty, too large, or can't be understood
    Refused = 12,         ///< the gateway refused, with a code
    TokenRejected = 13,   ///< the gateway rejected the token, and the renewed one as well
    ForbiddenWords = 14,  ///< the gateway found a forbidden word
    NotAllowed = 15,      ///< the library refused to send: plain http, a malformed URL or header
    Failed = 16           ///< anything else, such as a lack of memory
};

struct CCallControlIMP;
struct CCallScopeIMP;
struct CCallReportIMP;

/// Steers calls: bounds their time and cancels them.
///
/// A handle: copies share one control. Any thread may use any copy at any time, a log handler and
/// a thread that draws a user interface as well: nothing here blocks on a call. A control steers
/// the calls that begin while a `CCallScope` for it lives on their thread; any number of threads
/// may have one. A handle that was moved from does nothing. None of this throws, apart from a
/// failure to allocate memory.
class VELTRA_API CCallControl {
 public:
    /// Makes a control without a time limit, not cancelled.
    CCallControl();
    /// Makes a further handle on the control of `other`.
    /// @param other  the handle to copy
    CCallControl(const CCallControl& other);
    /// Takes over the control of `other`.
    /// @param other  the handle to move from; empty afterwards
    CCallControl(CCallControl&& other) noexcept;
    /// Becomes a further handle on the control of `other`.
    /// @param other  the handle to copy
    /// @return this handle
    CCallControl& operator=(const CCallControl& other);
    /// Takes over the control of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CCallControl& operator=(CCallControl&& other) noexcept;
    /// Lets go of the control. Calls under way stay under it.
    ~CCallControl();

    /// Bounds the time of each whole call that begins from now on: its attempts, waits, pauses and
    /// repeats together. It comes on top of the limits of `Oak::Net::HttpClientOptions`, which
    /// bound each exchange.
    /// @param milliseconds  the longest time of a call; 0: no limit, as at first
    void SetTimeLimit(std::uint32_t milliseconds);

    /// Cancels the calls under this control that are under way, on any thread, and refuses later
    /// ones until `Reset`. A call whose answer has arrived already returns it. Doesn't wait for the
    /// calls to return.
    void Cancel();

    /// Tells whether the control is cancelled.
    /// @return true from `Cancel` on until `Reset`
    bool IsCancelled() const;

    /// Admits calls again. Calls that were under way when `Cancel` was called stay cancelled.
    void Reset();

 private:
    friend class CCallScope;
    std::shared_ptr<CCallControlIMP> record_;
};

/// Puts the calls of a thread under a control, from its making to its end.
///
/// The calls of the thread that makes it; scopes nest, and all that are open count: the shortest
/// limit, and any cancel. It can be neither copied nor moved. Make and destroy it on the same
/// thread, best as a local variable; one that is destroyed on another thread ends there, too, but
/// is freed only when its own thread makes its next call or scope.
class VELTRA_API CCallScope {
 public:
    /// Puts the thread's later calls under `control`. Throws nothing but a failure to allocate
    /// memory.
    /// @param control  the control; an empty handle makes a scope without effect
    explicit CCallScope(const CCallControl& control);
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;
    /// Ends the scope. A call that began within it stays under the control.
    ~CCallScope();

 private:
    CCallScopeIMP* record_;
};

/// What became of one call, and why.
///
/// A handle on a report that never changes; any number of threads may read it, and it may be kept.
/// None of it throws, apart from a failure to allocate memory.
class VELTRA_API CCallReport {
 public:
    /// Makes the report of no call: `NotEnabled`, without an attempt.
    CCallReport();
    /// Makes a further handle on the report of `other`.
    /// @param other  the handle to copy
    CCallReport(const CCallReport& other);
    /// Takes over the report of `other`.
    /// @param other  the handle to move from; a report of no call afterwards
    CCallReport(CCallReport&& other) noexcept;
    /// Becomes a further handle on the report of `other`.
    /// @param other  the handle to copy
    /// @return this handle
    CCallReport& operator=(const CCallReport& other);
    /// Takes over the report of `other`.
    /// @param other  the handle to move from; a report of no call afterwards
    /// @return this handle
    CCallReport& operator=(CCallReport&& other) noexcept;
    /// Lets go of the report.
    ~CCallReport();

    /// What became of the call. Of several attempts that failed, the last one counts.
    /// @return the outcome
    CallOutcome Outcome() const;

    /// Whether the same call may succeed later without anybody changing anything: `NotUsable`,
    /// `TimedOut`, `NotReached`, `CutOff`, `TokenRejected`, and `BadStatus` with 408, 429 or 500
    /// and above. A feedback that is submitted again may be stored twice.
    /// @return true if it may
    bool Retryable() const;

    /// How many exchanges the call made: attempts, repeats, requests of a renewal.
    /// @return the number; 0 when nothing was sent
    std::int32_t Attempts() const;

    /// The HTTP status of the last answer in the call.
    /// @return the status; 0 when no answer came
    std::int32_t HttpStatus() const;

    /// The "errorCode" of the gateway's last answer.
    /// @return the code, "0" for a success; empty when it gave none
    std::string GatewayCode() const;

    /// The "message" of the gateway's last answer: its explanation of a refusal.
    /// @return the text, as it came, up to 4096 bytes of it; empty when it gave none
    std::string GatewayMessage() const;

    /// One line for a person: what the transport, the TLS library or the layer said. Holds no key,
    /// no token, and of a URL neither user part nor query.
    /// @return the line, in English; empty after a success
    std::string Detail() const;

    /// Of a query or a feedback: the trace id that was sent, or would have been.
    /// @return the id, also one that the library made; empty for other calls
    std::string TraceId() const;

    /// How long the call took.
    /// @return the time from its beginning to its end, in milliseconds, by the steady clock
    std::uint32_t Milliseconds() const;

 private:
    friend class CallReports;
    explicit CCallReport(std::shared_ptr<const CCallReportIMP> record);
    std::shared_ptr<const CCallReportIMP> record_;
};

/// The report of the calling thread's last call that ended. A call that a log handler makes inside
/// another call is reported until the outer one ends.
///
/// Never that of another thread. Reports of the 4096 threads that called last are kept; doesn't
/// block.
///
/// @return the report; that of no call when the thread has made none, in a forked child, and while
/// the process ends
VELTRA_API CCallReport Veltra_LastCall();

/// Cancels every call that is under way, on any thread, and the monitor thread's exchange. Later
/// calls are not touched. A host that closes calls this, joins its threads, and calls
/// `Veltra_Disable`: all three together take less than a second. Any thread may call it; it doesn't
/// wait for the calls to return.
///
/// @return true; false in a forked child, and while the process ends
VELTRA_API bool Veltra_CancelAll();

/// Logs out: stops the monitor thread, forgets and wipes access keys and token, clears the domain
/// that came with the token, and marks the service as not usable. The enable flag, the domain of
/// `Veltra_SetDomain`, the phrase list and the product version stay. A later login starts with its
/// own pairs alone.
///
/// Blocks like `Veltra_Unit`, and for a login or renewal under way on another thread; a login that
/// begins meanwhile counts as a later one. `Veltra_CancelAll` before it cuts that short. Any thread
/// may call it.
///
/// What the libraries below keep is theirs: memory that they have freed may hold a token until it
/// is used again.
///
/// @return true; false, with nothing forgotten, from a log handler inside the calling thread's own
/// login or renewal, in a forked child, and while the process ends
VELTRA_API bool Veltra_Logout();

/// Sets whether feedback writes its request bodies to standard output. Any thread may call it; it
/// counts for bodies written from then on.
///
/// @param on  true, as at first: they are written
/// @return true; false in a forked child, and while the process ends
VELTRA_API bool Veltra_SetBodyEcho(bool on);

}  // namespace Veltra

#endif
