// The monitor's life, renewals that meet, and calls back in from log handlers.

#include "CallWatch.h"
#include "scripted/login.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace {

using namespace scripted;

/// A point that answers wait at until the test opens it. With a condition variable: not every
/// standard library wakes all who wait on an atomic.
class Gate {
 public:
    void Pass() {
        std::unique_lock lock(mutex_);
        ++waiting_;
        opened_.wait(lock, [this] { return open_; });
        --waiting_;
    }
    void Open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }
    int Waiting() const {
        const std::lock_guard lock(mutex_);
        return waiting_;
    }

 private:
    mutable std::mutex mutex_;
    std::condition_variable opened_;
    int waiting_ = 0;
    bool open_ = false;
};

void RaiseTo(std::atomic<int>& most, int value) {
    int seen = most;
    while (seen < value && !most.compare_exchange_weak(seen, value)) {
    }
}

class Threads {
 public:
    void Add(std::function<void()> body) { threads_.emplace_back(std::move(body)); }
    void Add(int count, const std::function<void()>& body) {
        for (int i = 0; i < count; ++i)
            Add(body);
    }
    void Join() { threads_.clear(); }

 private:
    std::vector<std::jthread> threads_;
};

class MonitorTest : public testing::Test {
 protected:
    MonitorTest() {
        StartRecording();
        Veltra::Veltra_Enable();
        AnswerTokens();
    }
    /// Whatever a failed assertion has left behind ends here.
    ~MonitorTest() override {
        ReactToRecords(nullptr);
        AnswerTokens();
        ExpireAtOnce(kRetryPause);
        for (Gate* each : {&gate, &second, &third})
            each->Open();
        Veltra::Veltra_Unit();
        threads.Join();
        late.Join();
    }

    static std::size_t Count(const std::string& record) {
        const auto records = Records();
        return static_cast<std::size_t>(std::count(records.begin(), records.end(), record));
    }
    /// Returns when the monitor has made its next check.
    static void LetItCheck() {
        const std::size_t begun = WaitsBegun(kCheckInterval);
        ExpireWaits(kCheckInterval);
        ASSERT_TRUE(Eventually([begun] { return WaitsBegun(kCheckInterval) == begun + 1; }));
    }
    static bool MonitorWaits() { return WaitsUnderWay(kCheckInterval) == 1; }
    static void LogInUntilTheMonitorWaits() {
        ASSERT_TRUE(LogIn());
        ASSERT_TRUE(Eventually(MonitorWaits));
    }
    /// Its token is rejected from now on, and nothing is recorded.
    static void LogInWithoutMonitor(bool rejected) {
        ASSERT_TRUE(LogIn());
        Veltra::Veltra_Unit();
        if (rejected) {
            AnswerTokens(false);
            Manager().SetTokenValid(false);
        }
        ForgetRequests();
        ForgetRecords();
    }

    Gate gate, second, third;
    Threads threads, late;
};

constexpr const char* kBegin = "3 CAIManager::start|monitorThread_ begin.";
constexpr const char* kEnd = "3 CAIManager::stop|monitorThread_ end.";
constexpr const char* kUpdateFailed = "5 CAIManager::checkTokenValidity|Update token failed";

TEST_F(MonitorTest, StopsAndStartsAgain) {
    Veltra::Veltra_Unit();  // before the first login: sets the flag alone
    for (const auto& stop : {&Veltra::Veltra_Unit, &Veltra::Veltra_Disable}) {
        ForgetRecords();
        Veltra::Veltra_Enable();
        ASSERT_TRUE(LogIn());
        ASSERT_TRUE(LogIn());  // a second login leaves the monitor alone
        ASSERT_TRUE(Eventually(MonitorWaits));
        EXPECT_TRUE(stop());
        EXPECT_EQ(WaitsUnderWay(kCheckInterval), 0U);
        EXPECT_TRUE(stop());
        EXPECT_EQ(Count(kBegin), 1U);
        EXPECT_EQ(Count(kEnd), 1U);
    }
}

TEST_F(MonitorTest, ChecksEachIntervalAndSurvivesExceptions) {
    LogInUntilTheMonitorWaits();
    AnswerBy([](const Request&) -> Answer { throw std::runtime_error("from below"); });
    LetItCheck();
    EXPECT_EQ(Count("5 Monitor::Loop|check of the token failed:from below"), 1U);

    AnswerInOrder({});  // the probe fails: the service is not usable
    LetItCheck();
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    AnswerTokens();
    LetItCheck();
    EXPECT_TRUE(Veltra::Veltra_IsLLMServiceValid());
}

TEST_F(MonitorTest, SystemClockMayShowAnything) {
    constexpr std::int64_t kLogin = 1'000'000'000'000;
    constexpr std::int64_t kLifetime = 43'200'000;
    constexpr auto kLowest = std::numeric_limits<std::int64_t>::min();
    constexpr auto kHighest = std::numeric_limits<std::int64_t>::max();
    const struct {
        std::int64_t now;
        std::size_t renewals;
        bool rejected = false;
    } steps[] = {
        {0, 0},
        {kLowest, 0},
        {kLogin + kLifetime, 0},
        {kLogin + kLifetime + 1, 1},
        {kLogin + kLifetime + 1, 0},
        {kHighest, 1},
        {kHighest, 0},
        {kLogin, 0},        // looks younger than new
        {kLogin, 1, true},  // and is replaced when it is rejected all the same
        {kLowest, 1, true},
        {kLowest + kLifetime, 0},
        {kHighest, 1},
    };
    SetNow(kLogin);
    LogInUntilTheMonitorWaits();
    std::size_t checks = 1;
    for (const auto& [now, renewals, rejected] : steps) {
        SCOPED_TRACE(testing::Message() << "step " << checks << ", clock at " << now);
        ForgetRequests();
        SetNow(now);
        if (rejected) Manager().SetTokenValid(false);
        EXPECT_EQ(WaitsBegun(kCheckInterval), checks++) << "no wait heeds the system clock";
        LetItCheck();
        EXPECT_EQ(TokenRequests(), renewals);
    }
}

TEST_F(MonitorTest, StopCutsThePause) {
    LogInUntilTheMonitorWaits();
    AnswerTokens(false);
    Manager().SetTokenValid(false);
    ForgetRequests();
    ExpireWaits(kCheckInterval);
    ASSERT_TRUE(Eventually([] { return WaitsUnderWay(kRetryPause) == 1; }));

    threads.Add([] { Manager().checkTokenValidity(); });  // a query's is in its pause as well
    ASSERT_TRUE(Eventually([] { return WaitsUnderWay(kRetryPause) == 2; }));
    const std::size_t requests = TokenRequests();
    Veltra::Veltra_Unit();
    threads.Join();
    EXPECT_EQ(TokenRequests(), requests) << "no renewal after a cut pause";

    // Begun while the monitor is stopped: pauses in full.
    threads.Add([] { Manager().checkTokenValidity(); });
    for (std::size_t pause = 3; pause <= 5; ++pause) {
        ASSERT_TRUE(Eventually([&] { return WaitsBegun(kRetryPause) == pause; }));
        ExpireWaits(kRetryPause);
    }
}

TEST_F(MonitorTest, ChecksThatFailTogetherCostOneRoundAMinute) {
    LogInWithoutMonitor(true);

    constexpr int kChecks = 8;
    std::atomic<int> probes{0};
    AnswerBy([&](const Request& request) {
        if (IsTokenRequest(request)) {
            gate.Pass();
            return Lost();
        }
        ++probes;
        return Ok("x");
    });
    threads.Add(kChecks, [] { Manager().checkTokenValidity(); });
    ASSERT_TRUE(Eventually([&] { return probes == kChecks && gate.Waiting() == 1; }));
    gate.Open();
    // A check that hadn't looked at the token when the first renewal ended makes a round of its
    // own; from the first pause on all share.
    ASSERT_TRUE(Eventually([] { return WaitsBegun(kRetryPause) == kChecks; }));
    const std::size_t firstRound = TokenRequests();
    for (std::size_t round = 1; round < 3; ++round) {
        ExpireWaits(kRetryPause);
        ASSERT_TRUE(Eventually([&] { return WaitsBegun(kRetryPause) == (round + 1) * kChecks; }));
        EXPECT_EQ(TokenRequests(), firstRound + 2 * round);
    }
    ExpireWaits(kRetryPause);
    threads.Join();
    EXPECT_EQ(TokenRequests(), firstRound + 2 * 3);
    EXPECT_EQ(Count(kUpdateFailed), static_cast<std::size_t>(kChecks));
}

TEST_F(MonitorTest, AFailedCheckTriesThreeTimesMoreAndSharesWhatOthersTried) {
    LogInWithoutMonitor(true);
    threads.Add([] { Manager().checkTokenValidity(); });
    const auto expectPause = [](std::size_t number, std::size_t requests, const char* why) {
        ASSERT_TRUE(Eventually([number] { return WaitsBegun(kRetryPause) == number; })) << why;
        EXPECT_EQ(TokenRequests(), requests) << why;
        EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid()) << why;
        Manager().SetLLMServiceValid(true);  // as the probe of another check may find
    };
    expectPause(1, 2, "its own");
    EXPECT_FALSE(LogIn(License({})));
    Manager().SetLLMServiceValid(true);
    ExpireWaits(kRetryPause);
    expectPause(2, 4, "the login's");
    ExpireWaits(kRetryPause);
    expectPause(3, 6, "its own again");
    ExpireWaits(kRetryPause);
    threads.Join();
    EXPECT_EQ(TokenRequests(), 8U) << "three times more, and no more";
    EXPECT_EQ(Count(kUpdateFailed), 1U);
    EXPECT_EQ(Count("5 CAIManager::renewAuthenticationToken|get token failed,not get token"), 4U);
    EXPECT_FALSE(Veltra::Veltra_IsLLMServiceValid());
    EXPECT_EQ(Manager().GetToken(), "bearer-1");
}

TEST_F(MonitorTest, ACancelEndsThePausesOfItsOwnCallsAndASuccessAll) {
    LogInWithoutMonitor(true);
    Veltra::CCallControl control;
    const auto check = [](const Veltra::CCallControl& under) {
        const Veltra::CCallScope scope(under);
        const Veltra::CallWatch watch;
        Manager().checkTokenValidity();
    };
    late.Add(2, [&] { check(control); });
    threads.Add(4, [&] { check({}); });
    ASSERT_TRUE(Eventually([] { return WaitsUnderWay(kRetryPause) == 6; }));
    control.Cancel();
    late.Join();
    ASSERT_EQ(WaitsUnderWay(kRetryPause), 4U);
    AnswerTokens();
    ForgetRequests();
    EXPECT_TRUE(LogIn());
    threads.Join();
    EXPECT_EQ(TokenRequests(), 1U);
}

TEST_F(MonitorTest, LoginWaitsItsTurnAndRuns) {
    LogInWithoutMonitor(false);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    AnswerBy([&](const Request& request) {
        if (!IsTokenRequest(request)) return Ok("x");
        RaiseTo(most, ++inside);
        gate.Pass();
        --inside;
        return Ok(TokenBody("bearer-1"));
    });
    threads.Add(3, [] { EXPECT_TRUE(LogIn()); });
    ASSERT_TRUE(Eventually([&] { return gate.Waiting() == 1; }));
    ASSERT_TRUE(Eventually(
        [] { return Count("3 Veltra_Authentication|veltra is enable,begin authen.") == 3; }));
    gate.Open();
    threads.Join();
    EXPECT_EQ(TokenRequests(), 3U);
    EXPECT_EQ(most, 1);
}

TEST_F(MonitorTest, ManyRejectedQueriesCostOneRenewal) {
    constexpr int kQueries = 16;
    Gate& rejection = gate;
    Gate& lateRejection = second;
    Gate& renewal = third;
    std::atomic<int> probes{0};
    AnswerBy([&](const Request& request) {
        if (IsTokenRequest(request)) {
            if (probes > 0) renewal.Pass();
            return Ok(TokenBody("bearer-1"));
        }
        if (IsProbe(request)) {
            ++probes;
            return Ok("x");
        }
        // The gateway hands out the same text again, so the count of answers tells old from new.
        const bool isLate = request.Data().find("late") != std::string::npos;
        static thread_local int sent = 0;
        if (sent++ > 0) return Ok(ResultBody("y"));
        (isLate ? lateRejection : rejection).Pass();
        return Ok(RefusalBody("1", "LAP500004"));
    });
    LogInWithoutMonitor(false);
    const int probesBefore = probes;

    std::atomic<int> answered{0};
    const auto query = [&](const char* id) {
        auto message = std::make_shared<Veltra::CHumanMessage>();
        message->SetSessionID(id);
        std::shared_ptr<Veltra::CLLMMessage> result;
        const auto session =
            Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
        if (session->ExecuteQuery(message, result) && result->GetContent() == "y") ++answered;
    };
    late.Add([&] { query("late"); });
    threads.Add(kQueries, [&] { query("id"); });
    ASSERT_TRUE(Eventually(
        [&] { return rejection.Waiting() == kQueries && lateRejection.Waiting() == 1; }));
    rejection.Open();
    // The one renewal ends only when all have begun their check.
    ASSERT_TRUE(Eventually([&] { return probes == probesBefore + kQueries; }));
    ASSERT_TRUE(Eventually([&] { return renewal.Waiting() == 1; }));
    renewal.Open();
    threads.Join();
    EXPECT_EQ(answered, kQueries);
    EXPECT_EQ(TokenRequests(), 1U);

    lateRejection.Open();  // of the token before: the new one stays valid
    late.Join();
    EXPECT_EQ(answered, kQueries + 1);
    EXPECT_EQ(TokenRequests(), 1U);
}

TEST_F(MonitorTest, HandlersOnTheMonitorMayCallBackIn) {
    LogInUntilTheMonitorWaits();
    const auto host = std::this_thread::get_id();
    std::atomic<int> calls{0};
    std::atomic<bool> logsInAgain{true};
    ReactToRecords([&](const std::string& record) {
        const bool probed = record.find("IsDomianValid") != record.npos;
        if (std::this_thread::get_id() == host || !probed) return;
        EXPECT_TRUE(Veltra::Veltra_Unit());  // asks for the end and doesn't wait
        EXPECT_TRUE(!logsInAgain || LogIn());
        ++calls;
    });
    AnswerBy([](const Request& request) {
        return IsTokenRequest(request) ? Ok(TokenBody("bearer-1")) : Lost();
    });
    ExpireWaits(kCheckInterval);
    ASSERT_TRUE(Eventually([&] { return calls == 1; }));
    ASSERT_TRUE(Eventually(MonitorWaits)) << "told to end, then to go on";

    logsInAgain = false;
    ExpireWaits(kCheckInterval);
    ASSERT_TRUE(Eventually([&] { return calls == 2; }));
    ReactToRecords(nullptr);
    AnswerTokens();
    ASSERT_TRUE(LogIn());  // joins the one that was told to end, and monitors again
    ASSERT_TRUE(Eventually(MonitorWaits));
}

TEST_F(MonitorTest, HandlersInALoginMayCallBackIn) {
    bool nested = true;
    ReactToRecords([&](const std::string& record) {
        if (record.find("get token use domain") == record.npos) return;
        nested = LogIn();  // would wait for its own thread, as would a check
        Manager().checkTokenValidity();
        EXPECT_TRUE(Veltra::Veltra_Unit());
    });
    EXPECT_TRUE(LogIn());
    EXPECT_FALSE(nested);
    EXPECT_EQ(Count(kBegin), 0U) << "a stop in the middle of a login wins over its start";

    ReactToRecords([](const std::string& record) {
        if (record == kBegin) Veltra::Veltra_Unit();
    });
    EXPECT_TRUE(LogIn());
    EXPECT_EQ(Count(kBegin), 1U);
    ReactToRecords(nullptr);
    EXPECT_TRUE(LogIn());  // the one that was stopped while it began is replaced
    EXPECT_TRUE(Eventually(MonitorWaits));
}

TEST_F(MonitorTest, StopWaitsForOneExchangeOnly) {
    const auto stopIn = [this](bool probe, bool (*stop)(), Gate& shut) {
        Veltra::Veltra_Enable();
        AnswerTokens();
        LogInUntilTheMonitorWaits();
        AnswerBy([probe, &shut](const Request& request) {
            if (probe == IsTokenRequest(request)) return Ok("x");
            shut.Pass();
            return Lost();
        });
        Manager().SetTokenValid(false);
        ForgetRequests();
        ExpireWaits(kCheckInterval);
        ASSERT_TRUE(Eventually([&] { return shut.Waiting() == 1; }));
        const std::uint64_t before = Manager().StopRequests();
        threads.Add([stop] { stop(); });
        ASSERT_TRUE(Eventually([&] { return Manager().StopRequests() != before; }));
        EXPECT_EQ(Veltra::Veltra_IsEnable(), stop == &Veltra::Veltra_Unit);
        shut.Open();
        threads.Join();
        EXPECT_EQ(Requests().size(), probe ? 1U : 2U);
        EXPECT_TRUE(Manager().IsLLMServiceValid()) << "what was given up says nothing";
    };
    stopIn(true, &Veltra::Veltra_Unit, gate);
    stopIn(false, &Veltra::Veltra_Disable, second);
}

TEST_F(MonitorTest, StopEndsAMonitorThatWaitsForALogin) {
    LogInUntilTheMonitorWaits();
    AnswerBy([this](const Request& request) {
        if (IsTokenRequest(request)) gate.Pass();
        return Lost();
    });
    threads.Add([] { LogIn(); });
    ASSERT_TRUE(Eventually([&] { return gate.Waiting() == 1; }));
    Manager().SetTokenValid(false);
    ExpireWaits(kCheckInterval);
    ASSERT_TRUE(Eventually([] { return !Manager().IsLLMServiceValid(); })) << "probed: its turn";
    EXPECT_TRUE(Veltra::Veltra_Unit());
    EXPECT_EQ(gate.Waiting(), 1);
}

TEST_F(MonitorTest, SwitchesFromManyThreads) {
    // Threads of the library are those that the test didn't make.
    static thread_local bool isHost = false;
    std::atomic<int> monitors{0};
    std::atomic<int> mostMonitors{0};
    AnswerBy([&](const Request& request) {
        if (IsTokenRequest(request)) return Ok(TokenBody("bearer-1"));
        if (isHost) return Ok("x");
        RaiseTo(mostMonitors, ++monitors);
        std::this_thread::yield();
        --monitors;
        return Ok("x");
    });
    ExpireAtOnce(kCheckInterval);
    const std::vector<std::function<bool()>> calls = {
        [] { return LogIn(); }, &Veltra::Veltra_Unit, &Veltra::Veltra_Disable,
        &Veltra::Veltra_Enable, [] { return Veltra::Veltra_SetDomain("https://a"); }};
    for (std::size_t start = 0; start < 8; ++start) {
        threads.Add([&, start] {
            isHost = true;
            for (std::size_t i = 0; i < 60; ++i)
                calls[(start + i) % calls.size()]();
        });
    }
    threads.Join();
    Veltra::Veltra_Enable();
    EXPECT_TRUE(LogIn());
    EXPECT_TRUE(Eventually([&] { return mostMonitors > 0; }));  // those before may have had no time
    Veltra::Veltra_Unit();
    EXPECT_EQ(mostMonitors, 1);
    EXPECT_EQ(monitors, 0);
}

}  // namespace
