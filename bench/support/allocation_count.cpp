#include "support/allocation_count.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

constinit thread_local std::uint64_t allocations = 0;

}  // namespace

std::uint64_t bench::Allocations() {
    return allocations;
}

// The array forms and those that don't throw come here by default. Over-aligned ones don't; nothing
// that is measured has any.
void* operator new(std::size_t size) {
    ++allocations;
    if (void* const block = std::malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}
