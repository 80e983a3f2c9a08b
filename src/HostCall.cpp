#include "HostCall.h"

#include <Oak/Base/Process.h>

#include <atomic>
#include <cstdint>

namespace Veltra {

namespace {

// Sequentially consistent on purpose: of a call that begins and an end that begins at one moment,
// either the call sees `closed` or the end sees the call.
std::atomic<std::uint64_t> underWay{0};
std::atomic<bool> closed{false};

}  // namespace

HostCall::HostCall() noexcept : admitted_(false) {
    if (Oak::Base::OtherThreadsGone()) return;
    underWay.fetch_add(1);
    admitted_ = !closed.load();
    if (!admitted_) underWay.fetch_sub(1);
}

HostCall::~HostCall() {
    if (admitted_) underWay.fetch_sub(1);
}

void HostCall::Close() noexcept {
    closed.store(true);
}

bool HostCall::AnyUnderWay() noexcept {
    return underWay.load() != 0;
}

}  // namespace Veltra
