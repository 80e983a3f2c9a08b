#ifndef VELTRA_SRC_HOSTCALL_H
#define VELTRA_SRC_HOSTCALL_H

#include <Oak/Base/Noncopyable.h>

namespace Veltra {

/// A call of the host into the library, from entry to return. Every operation that a host can call
/// and that reaches a process-wide object makes one first and returns false when it is refused:
/// in a forked child, and once the library has begun to end.
///
/// The count of calls under way tells the end of the process whether the manager may be freed.
class HostCall : private Oak::Base::CNoncopyable {
 public:
    HostCall() noexcept;
    ~HostCall();

    explicit operator bool() const noexcept { return admitted_; }

    /// Refuses every later call.
    static void Close() noexcept;

    /// Whether a call is under way. After `Close`, no stays no.
    static bool AnyUnderWay() noexcept;

 private:
    bool admitted_;
};

}  // namespace Veltra

#endif
