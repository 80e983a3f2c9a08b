#include "CallReports.h"

#include <atomic>
#include <exception>
#include <iterator>
#include <memory>
#include <utility>

namespace Veltra {

namespace {

std::uint64_t ThisThread() noexcept {
    static std::atomic<std::uint64_t> threads{0};
    constinit thread_local std::uint64_t number = 0;
    if (number == 0) number = ++threads;
    return number;
}

}  // namespace

void CallReports::Keep(const std::function<CCallReportIMP()>& report) noexcept {
    try {
        Store(report());
    } catch (const std::exception&) {  // no memory
        Forget();                      // rather than to answer with the call before
    }
}

void CallReports::Store(CCallReportIMP report) {
    const std::uint64_t thread = ThisThread();
    Entries fresh;  // outlasts the lock, as what is replaced does
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = places_.find(thread);
    if (known != places_.end()) {
        entries_.splice(entries_.begin(), entries_, known->second);
        std::swap(entries_.front().report, report);
        return;
    }
    fresh.push_front({thread, std::move(report)});
    places_.emplace(thread, fresh.begin());
    entries_.splice(entries_.begin(), fresh);
    if (entries_.size() <= mostThreads) return;
    places_.erase(entries_.back().thread);
    fresh.splice(fresh.begin(), entries_, std::prev(entries_.end()));
}

void CallReports::Forget() noexcept {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = places_.find(ThisThread());
    if (known == places_.end()) return;
    entries_.erase(known->second);
    places_.erase(known);
}

CCallReport CallReports::OfThisThread() const {
    const auto copy = std::make_shared<CCallReportIMP>();
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto known = places_.find(ThisThread());
        if (known == places_.end()) return {};
        *copy = known->second->report;
    }
    return CCallReport(copy);
}

}  // namespace Veltra
