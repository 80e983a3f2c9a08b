#include <qlog/qlog.h>
#include <qlog/qlog_write.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

void Record(int level, const char* tag, const char* message, void* records) {
    static_cast<std::vector<std::string>*>(records)->push_back(std::to_string(level) + ' ' + tag +
                                                               ' ' + message);
}

class Logger : public ::testing::Test {
 protected:
    ~Logger() override { qlog_set_handler(nullptr, nullptr, 4); }
};

TEST_F(Logger, SendsRecordsAtOrAboveTheLevelWhole) {
    std::vector<std::string> records;
    qlog_set_handler(Record, &records, 3);
    for (const int level : {INT_MIN, 2, 3, INT_MAX})
        qlog_write(level, "Tag", "%s-%d", "text", level == 3 ? 1 : 2);
    EXPECT_EQ(records, (std::vector<std::string>{"3 Tag text-1", "2147483647 Tag text-2"}));
    for (const std::size_t length : {0U, 1022U, 1023U, 1024U, 1025U, 3000000U}) {
        const std::string text(length, 'x');
        qlog_write(5, "T", "%s", text.c_str());
        EXPECT_TRUE(records.back() == "5 T " + text) << length;
    }
    qlog_write(5, "T", "begin %ls end", L"\x4F60");  // not to be had in the locale of the start
    EXPECT_EQ(records.back().substr(0, 10), "5 T begin ");
}

TEST_F(Logger, TheDefaultHandlerWritesOneEscapedLine) {
    testing::internal::CaptureStderr();
    qlog_write(3, "T", "below the level of the start");
    qlog_write(4, "Oak", "a\n\r\t\x1B[31m\x7F|\xC2\x9B|\xC2\xA0\xE4\xBD\xA0 \\ end");
    qlog_set_handler(nullptr, nullptr, 2);
    qlog_write(2, "T", "%s", "");
    qlog_write(5, "T\n", "d");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "W Oak: a\\n\\r\\t\\x1b[31m\\x7f|\\xc2\\x9b|\xC2\xA0\xE4\xBD\xA0 \\ end\n"
              "D T: \nE T\\n: d\n");
}

TEST_F(Logger, OutlivesAHandlerThatThrowsAndLeavesErrnoAlone) {
    const auto throwing = [](int, const char*, const char*, void*) {
        errno = EIO;
        throw std::runtime_error("from the handler");
    };
    qlog_set_handler(throwing, nullptr, 4);
    errno = ENOENT;
    qlog_write(5, "T", "x");
    EXPECT_EQ(errno, ENOENT);
    std::vector<std::string> records;
    qlog_set_handler(Record, &records, 4);  // would hang if a call were still counted
    qlog_write(5, "T", "after");
    EXPECT_EQ(records.size(), 1U);
}

TEST_F(Logger, DropsWhatAHandlerWritesAndLetsItReplaceItself) {
    std::vector<std::string> records;
    const auto handler = [](int, const char*, const char*, void* context) {
        qlog_write(5, "T", "nested, to the first handler");
        qlog_set_handler(Record, context, 4);
        qlog_write(5, "T", "nested, to the second handler");
    };
    qlog_set_handler(handler, &records, 4);
    qlog_write(5, "T", "one");
    qlog_write(5, "T", "two");
    EXPECT_EQ(records, std::vector<std::string>{"5 T two"});
}

TEST_F(Logger, AReplacedHandlerIsNotCalledAfterTheReturn) {
    const auto handler = [](int, const char*, const char*, void* retired) {
        std::this_thread::yield();
        EXPECT_FALSE(*static_cast<std::atomic<bool>*>(retired));
    };
    std::atomic<int> setting{2};
    std::vector<std::thread> threads;
    for (int i = 0; i < 10; ++i)
        threads.emplace_back([&, sets = i < 2] {
            while (!sets && setting != 0)
                qlog_write(5, "T", "record %d", 1);
            for (int round = 0; sets && round < 50; ++round) {
                std::atomic<bool> retired{false};
                qlog_set_handler(handler, &retired, 4);
                std::this_thread::yield();
                qlog_set_handler([](int, const char*, const char*, void*) {}, nullptr, 4);
                retired = true;
                std::this_thread::yield();
            }
            if (sets) --setting;
        });
    for (auto& thread : threads)
        thread.join();
}

// A handler may wait for a thread that logs itself, while a third one waits to replace the handler.
TEST_F(Logger, AWaitingReplacementKeepsNobodyFromLogging) {
    struct Stage {
        std::atomic<bool> first{true};
        std::promise<void> entered, leave;
    } stage;
    const auto slowOnce = [](int, const char*, const char*, void* context) {
        auto& self = *static_cast<Stage*>(context);
        if (!self.first.exchange(false)) return;
        self.entered.set_value();
        self.leave.get_future().wait();
    };
    qlog_set_handler(slowOnce, &stage, 4);
    std::thread inHandler([] { qlog_write(5, "T", "slow"); });
    stage.entered.get_future().wait();

    std::atomic<bool> called{false}, replaced{false};
    const auto quick = [](int, const char*, const char*, void* context) {
        *static_cast<std::atomic<bool>*>(context) = true;
    };
    std::thread replacing([&] {
        qlog_set_handler(quick, &called, 4);
        replaced = true;
    });
    while (!called)  // the new handler is in force before the old one has ended
        qlog_write(5, "T", "meanwhile");
    EXPECT_FALSE(replaced);
    stage.leave.set_value();
    inHandler.join();
    replacing.join();
}

}  // namespace
