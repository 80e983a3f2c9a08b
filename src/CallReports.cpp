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
    Part& part = PartOf(thread);
    Entries& entries = part.entries;
    Entries fresh;  // outlasts the lock, as what is replaced does
    const std::lock_guard<std::mutex> lock(part.mutex);
    const auto known = part.places.find(thread);
    if (known != part.places.end()) {
        entries.splice(entries.begin(), entries, known->second);
        std::swap(entries.front().report, report);
        return;
    }
    fresh.push_front({thread, std::move(report)});
    part.places.emplace(thread, fresh.begin());
    entries.splice(entries.begin(), fresh);
    if (entries.size() <= mostThreads / parts) return;
    part.places.erase(entries.back().thread);
    fresh.splice(fresh.begin(), entries, std::prev(entries.end()));
}

void CallReports::Forget() noexcept {
    Part& part = PartOf(ThisThread());
    const std::lock_guard<std::mutex> lock(part.mutex);
    const auto known = part.places.find(ThisThread());
    if (known == part.places.end()) return;
    part.entries.erase(known->second);
    part.places.erase(known);
}

CCallReport CallReports::OfThisThread() {
    const auto copy = std::make_shared<CCallReportIMP>();
    {
        Part& part = PartOf(ThisThread());
        const std::lock_guard<std::mutex> lock(part.mutex);
        const auto known = part.places.find(ThisThread());
        if (known == part.places.end()) return {};
        *copy = known->second->report;
    }
    return CCallReport(copy);
}

}  // namespace Veltra
