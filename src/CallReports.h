#ifndef VELTRA_SRC_CALLREPORTS_H
#define VELTRA_SRC_CALLREPORTS_H

#include "CallWatch.h"

#include <Oak/Base/Noncopyable.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <unordered_map>

namespace Veltra {

/// The last call's report of each thread.
///
/// In a table, not in the threads' own storage: what has a destructor there keeps a library mapped
/// after dlclose, and is torn down by code that may be gone. A thread is told by a number that
/// no other thread ever gets. The table has an end, since nobody says when a thread is gone: in its
/// part of the table the thread whose last call is the oldest makes room. Any thread may call any
/// member.
class CallReports : private Oak::Base::CNoncopyable {
 public:
    static constexpr std::size_t mostThreads = 4096;  // of all parts

    /// Keeps what `report` returns as the calling thread's. Without memory for it, keeps none.
    void Keep(const std::function<CCallReportIMP()>& report) noexcept;

    /// The calling thread's report.
    CCallReport OfThisThread();

 private:
    struct Entry {
        std::uint64_t thread = 0;
        CCallReportIMP report;
    };
    using Entries = std::list<Entry>;

    /// Threads of different parts never wait for each other.
    struct alignas(64) Part {
        std::mutex mutex;
        Entries entries;  // newest first
        std::unordered_map<std::uint64_t, Entries::iterator> places;
    };
    static constexpr std::size_t parts = 16;

    void Store(CCallReportIMP report);
    void Forget() noexcept;
    Part& PartOf(std::uint64_t thread) noexcept { return parts_[thread % parts]; }

    std::array<Part, parts> parts_;
};

}  // namespace Veltra

#endif
