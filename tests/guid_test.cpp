#include <Oak/Base/GuidUtil.h>

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <string>

namespace {

std::atomic<bool> entropyFails{false};

}  // namespace

// Takes the place of the C library's.
extern "C" ssize_t getrandom(void* buffer, std::size_t size, unsigned flags) {
    if (!entropyFails) return syscall(SYS_getrandom, buffer, size, flags);
    errno = ENOSYS;
    return -1;
}

namespace {

TEST(Guid, IsNewOnEveryCall) {
    std::set<std::string> seen;
    for (const bool fails : {false, true}) {
        entropyFails = fails;
        for (int i = 0; i < 100; ++i) {
            const std::string guid = Oak::Base::GuidUtil::CreateGuid();
            EXPECT_TRUE(seen.insert(guid).second) << guid;
        }
    }
    entropyFails = false;
}

}  // namespace
