#include <Oak/Base/GuidUtil.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

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

/// A random one, in lower case: version 4, variant 1.
bool IsVersion4(std::string_view guid) {
    constexpr std::string_view form = "xxxxxxxx-xxxx-4xxx-vxxx-xxxxxxxxxxxx";
    const auto fits = [](char letter, const char& place) {
        const std::string_view allowed = place == 'x'   ? "0123456789abcdef"
                                         : place == 'v' ? "89ab"
                                                        : std::string_view(&place, 1);
        return allowed.find(letter) != std::string_view::npos;
    };
    return std::equal(guid.begin(), guid.end(), form.begin(), form.end(), fits);
}

TEST(Guid, IsNewOnEveryCall) {
    std::set<std::string> seen;
    for (const bool fails : {false, true}) {
        SetEntropyFails(fails);
        for (int i = 0; i < 100; ++i) {
            const std::string guid = Oak::Base::GuidUtil::CreateGuid();
            EXPECT_TRUE(IsVersion4(guid)) << guid;
            EXPECT_TRUE(seen.insert(guid).second) << guid;
        }
    }
    SetEntropyFails(false);
}

}  // namespace
