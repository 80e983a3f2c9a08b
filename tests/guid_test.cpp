#include <Oak/Base/GuidUtil.h>

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#ifndef _WIN32
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#endif

namespace {

#ifdef _WIN32
void SetEntropyFails(bool /*fails*/) {}  // nothing to take the place of
#else
std::atomic<bool> entropyFails{false};
void SetEntropyFails(bool fails) {
    entropyFails = fails;
}
#endif

}  // namespace

#ifndef _WIN32
// Takes the place of the C library's.
extern "C" ssize_t getrandom(void* buffer, std::size_t size, unsigned flags) {
    if (!entropyFails) return syscall(SYS_getrandom, buffer, size, flags);
    errno = ENOSYS;
    return -1;
}
#endif

namespace {

TEST(Guid, IsNewOnEveryCall) {
    const std::regex version4(
        "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    std::set<std::string> seen;
    for (const bool fails : {false, true}) {
        SetEntropyFails(fails);
        for (int i = 0; i < 100; ++i) {
            const std::string guid = Oak::Base::GuidUtil::CreateGuid();
            EXPECT_TRUE(std::regex_match(guid, version4)) << guid;
            EXPECT_TRUE(seen.insert(guid).second) << guid;
        }
    }
    SetEntropyFails(false);
}

}  // namespace
