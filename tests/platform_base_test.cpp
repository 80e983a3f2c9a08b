#include <Oak/Base/Clock.h>
#include <Oak/Base/Process.h>
#include <Oak/Base/StandardStreams.h>
#include <qlog/qlog.h>
#include <qlog/qlog_write.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace {

using Oak::Base::OtherThreadsGone;

bool IsPending(int signalNumber) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signalNumber) == 1;
}

bool IsBlocked(int signalNumber) {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, signalNumber) == 1;
}

// Must come first: it needs a process that hasn't called OtherThreadsGone yet.
TEST(Fork, CountsOnlyAfterTheFirstCallAndSilencesTheLogger) {
    EXPECT_EXIT(_exit(OtherThreadsGone() ? 1 : 0), testing::ExitedWithCode(0), "");
    EXPECT_FALSE(OtherThreadsGone());
    EXPECT_EXIT(_exit(OtherThreadsGone() ? 1 : 0), testing::ExitedWithCode(1), "");
    const auto ends = [](int, const char*, const char*, void*) { _exit(1); };
    qlog_set_handler(ends, nullptr, 4);
    EXPECT_EXIT((qlog_write(5, "T", "x"), _exit(0)), testing::ExitedWithCode(0), "");
    qlog_set_handler(nullptr, nullptr, 4);
}

TEST(Process, AServiceThreadHasItsNameAndTakesFaultsOnly) {
    Oak::Base::ServiceThread("a name of more than 15 bytes", [] {
        std::array<char, 64> name{};
        pthread_getname_np(pthread_self(), name.data(), name.size());
        EXPECT_STREQ(name.data(), "a name of more ");
        for (const int asynchronous : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM})
            EXPECT_TRUE(IsBlocked(asynchronous)) << asynchronous;
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            EXPECT_FALSE(IsBlocked(fault)) << fault;
    }).Join();
    EXPECT_FALSE(IsBlocked(SIGTERM)) << "the starter's own mask is as before";
}

TEST(Clock, WaitsForItsConditionOrItsTime) {
    std::mutex mutex;
    std::condition_variable condition;
    bool woken = false;
    std::unique_lock lock(mutex);
    std::jthread waker([&] {
        const std::lock_guard wakersLock(mutex);  // had only once the wait has begun
        woken = true;
        condition.notify_all();
    });
    using namespace std::chrono_literals;
    const auto longest = std::chrono::milliseconds::max();
    EXPECT_TRUE(Oak::Base::Clock::WaitFor(condition, lock, longest, [&] { return woken; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Oak::Base::Clock::WaitFor(condition, lock, 20ms, [] { return false; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 20ms);
}

TEST(StandardStreams, WritesAllOfTheTextOrGivesUpWithoutASignal) {
    const std::string text(1000000, 'x');  // more than a pipe holds
    const auto write = Oak::Base::WriteStandardError;
    const int saved = dup(STDERR_FILENO);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    std::string received(text.size(), ' ');
    std::thread reader([&] {
        for (std::size_t size = 0; size < text.size();)
            size += static_cast<std::size_t>(read(ends[0], &received[size], text.size() - size));
    });
    write(text);
    reader.join();
    EXPECT_TRUE(received == text);

    fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
    write(text);  // would block
    close(ends[0]);
    errno = ENOENT;
    write("lost");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(IsPending(SIGPIPE) || IsBlocked(SIGPIPE));

    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
    EXPECT_EQ(raise(SIGPIPE), 0);
    write("lost");
    EXPECT_TRUE(IsPending(SIGPIPE) && IsBlocked(SIGPIPE)) << "the host's own signal";
    int taken = 0;
    sigwait(&pipeSignal, &taken);
    pthread_sigmask(SIG_UNBLOCK, &pipeSignal, nullptr);
    dup2(saved, STDERR_FILENO);
    close(saved);
}

}  // namespace
