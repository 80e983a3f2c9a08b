#ifndef TESTS_SUPPORT_ALLOCATIONS_H
#define TESTS_SUPPORT_ALLOCATIONS_H

// In place of the C++ library's: allocations are counted, and fail when a test says so. For one file
// of a program.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace TestSupport {

/// What is held, in bytes.
std::atomic<std::size_t> liveBytes{0};

/// How many more allocations of this thread succeed; negative: all.
thread_local long allocationsLeft = -1;

/// Allocations carry their size in front.
constexpr std::size_t sizeField = alignof(std::max_align_t);

inline void* Allocate(std::size_t size) noexcept {
    if (allocationsLeft == 0) return nullptr;
    if (allocationsLeft > 0) --allocationsLeft;
    void* const block = std::malloc(size + sizeField);
    if (block == nullptr) return nullptr;
    *static_cast<std::size_t*>(block) = size;
    liveBytes += size;
    return static_cast<char*>(block) + sizeField;
}

}  // namespace TestSupport

void* operator new(std::size_t size) {
    void* const memory = TestSupport::Allocate(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return TestSupport::Allocate(size);
}

void operator delete(void* memory) noexcept {
    if (memory == nullptr) return;
    void* const block = static_cast<char*>(memory) - TestSupport::sizeField;
    TestSupport::liveBytes -= *static_cast<std::size_t*>(block);
    std::free(block);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    operator delete(memory);
}

#endif
