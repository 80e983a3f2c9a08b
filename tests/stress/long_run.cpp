// A host that runs for long. Eight threads put a steady, mixed load on a gateway that rejects the
// token once a period and refuses one query or feedback in fifty; the host's memory, descriptors
// and threads must stay as they were after the first period, and every failure must be one that the
// gateway made:
//
//     veltra_long_run [--seconds N] [--period N]
//
// The gateway is a process of its own, so that its memory isn't counted. Standard output shows one
// line a period; the status is 0 when all held.

#include "e2e/e2e_support.h"
#include "stress/stress_support.h"
#include "support/other_process.h"

#include <qlog/qlog.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Count = std::atomic<unsigned long>;

constexpr std::size_t kWorkers = 8;
constexpr int kRollCalls = 4;  // in each period
constexpr auto kPace = 50ms;   // from one operation of a worker to its next
constexpr int kWarmUp = 300;   // operations of each worker at full speed, so that all has happened
constexpr long kMaxGrowthKb = 1024;
constexpr long kDescriptorsOfOne = 3;  // of one pooled connection: its socket, its wake-up pair
constexpr unsigned long kRefusedOneIn = 50;

// --- the gateway ---------------------------------------------------------------------------------

/// What the gateway answered with other than success.
struct Refusals {
    unsigned long queries = 0;
    unsigned long feedback = 0;         // of which each fails an operation: it is not repeated
    unsigned long rejectedQueries = 0;  // a query is repeated with a new token
    unsigned long rejectedFeedback = 0;
    unsigned long tokens = 0;
};

class Server {
 public:
    Server() : gateway_(Options()) {
        if (!gateway_.start()) std::exit(3);  // NOLINT(concurrency-mt-unsafe): no thread yet
    }

    /// Obeys the host line by line until it goes.
    void Run(std::FILE* input, std::FILE* output) {
        const e2e::TemporaryFile ca(gateway_.caPem());
        std::fprintf(output, "%s\n%s\n", gateway_.baseUrl().c_str(), ca.Path().c_str());
        std::array<char, 16> line{};
        while (std::fgets(line.data(), line.size(), input) != nullptr) {
            if (line[0] == 'e') gateway_.expireTokens();
            std::fprintf(output, "%lu %lu %lu %lu %lu\n", queries_.load(), feedback_.load(),
                         rejectedQueries_.load(), rejectedFeedback_.load(),
                         static_cast<unsigned long>(gateway_.tokensIssued()));
        }
    }

 private:
    gateway::Options Options() {
        gateway::Options options = e2e::Serve(true);
        options.maxRecordedRequests = 10;
        options.maxPictureBytes = std::size_t{1} << 20;
        options.pickFault = [this](const gateway::Request& request) { return Pick(request); };
        options.onAnswer = [this](const gateway::Request& request, const gateway::Answer& answer,
                                  const gateway::Fault*) { Note(request, answer); };
        return options;
    }

    static bool IsQuery(const gateway::Request& request) {
        return request.path == gateway::kQueryPath && !request.body.empty();
    }
    static bool IsFeedback(const gateway::Request& request) {
        return request.path.starts_with(gateway::kFeedbackPath);
    }

    std::optional<gateway::Fault> Pick(const gateway::Request& request) {
        if (!IsQuery(request) && !IsFeedback(request)) return std::nullopt;
        if (request.body.find(R"("traceId":"roll)") != std::string::npos)
            return gateway::Fault{"", gateway::FaultKind::Delay, 200};
        if (++candidates_ % kRefusedOneIn != 0) return std::nullopt;
        return gateway::Fault{"", gateway::FaultKind::RefuseCode, 0, "777", "refused"};
    }

    void Note(const gateway::Request& request, const gateway::Answer& answer) {
        const bool rejected = answer.body.find(gateway::kTokenRejected) != std::string::npos;
        const bool refused = answer.body.find(R"("777")") != std::string::npos;
        if (!rejected && !refused) return;
        if (IsQuery(request)) ++(rejected ? rejectedQueries_ : queries_);
        if (IsFeedback(request)) ++(rejected ? rejectedFeedback_ : feedback_);
    }

    Count candidates_{0};
    Count queries_{0};
    Count feedback_{0};
    Count rejectedQueries_{0};
    Count rejectedFeedback_{0};
    gateway::Gateway gateway_;  // last: its threads use what stands above
};

// --- the load ------------------------------------------------------------------------------------

struct Tally {
    Count operations{0};
    Count queries{0};
    Count feedback{0};
    Count refusedQueries{0};
    Count failedFeedback{0};
    Count other{0};  // anything that nobody asked for
};

Tally tally;
std::atomic<bool> assemble{false};
std::atomic<bool> ended{false};
std::barrier meeting(kWorkers + 1);

/// Counts an outcome that must not be; the first few are shown.
void Other(const char* what, const std::string& detail) {
    if (++tally.other <= 10) std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
}

void OnRecord(int /*level*/, const char* tag, const char* message, void* /*context*/) {
    if (std::strcmp(tag, "Oak") == 0) Other("exchange", message);
}

std::unordered_set<std::string> Phrases() {
    std::unordered_set<std::string> keys{Veltra::PhraseKey("hidden plan")};
    while (keys.size() < 300)
        keys.insert(Veltra::PhraseKey("phrase number " + std::to_string(keys.size())));
    return keys;
}

class Worker {
 public:
    explicit Worker(std::size_t index) : prefix_(std::to_string(index) + '-'), random_(index + 1) {}

    void Run() {
        for (int i = 0; i < kWarmUp; ++i)
            Step();
        auto next = std::chrono::steady_clock::now() + 1ms * static_cast<int>(random_() % 50);
        for (;;) {
            std::this_thread::sleep_until(next);
            next = std::max(next + kPace, std::chrono::steady_clock::now());
            if (assemble) {
                RollCall();
                if (ended) return;
            }
            Step();
        }
    }

    /// All threads are in an exchange at once, so that the pool of connections holds one for each
    /// of them and none ages.
    void RollCall() {
        meeting.arrive_and_wait();
        Query("roll-" + prefix_, Veltra::FilterType::None);
        meeting.arrive_and_wait();
        meeting.arrive_and_wait();  // the host has taken its figures
    }

 private:
    void Step() {
        ++tally.operations;
        const auto dice = static_cast<std::int32_t>(random_() % 100);
        if (dice < 60) return Query(dice < 10 ? "" : prefix_, Veltra::FilterType(1 + dice % 4));
        if (dice < 70) return ScreenedQuery();
        if (dice < 78) return Submit();
        if (dice < 84) return Cancel();
        if (dice < 85) return Require("words", Veltra::Veltra_SetsitiveWords(phrases_, 3));
        if (dice < 86) return Require("domain", Veltra::Veltra_IsDomainValid(domain));
        if (dice < 88)
            return Require("week", Veltra::SetFirstDayOfWeek(Veltra::FirstDayOfWeek(dice % 7)));
        if (dice < 94) {
            std::string time;
            const char* const terms[] = {"-1d", "~0m", "+0w", "-1d08:30"};
            return Require("time", Veltra::ConvertTime(terms[dice % 4], time, 1700000000, true));
        }
        Require("state", Veltra::Veltra_IsEnable() && Veltra::Veltra_Enable() &&
                             Veltra::Veltra_IsLLMServiceValid());
    }

    static void Require(const char* what, bool holds) {
        if (!holds) Other(what, "false");
    }

    void Query(const std::string& traceId, Veltra::FilterType filter) {
        ++tally.queries;
        const std::string name = "name" + std::to_string(random_());
        std::string text;
        if (e2e::Query(text, name, traceId, filter)) {
            if (text != "Hello " + name + ", welcome to here.") Other("wrong answer", text);
        } else if (text.ends_with(": refused")) {
            ++tally.refusedQueries;
        } else {
            Other("query", text);
        }
    }

    void ScreenedQuery() {
        ++tally.queries;
        std::string text;
        e2e::Query(text, "of a hidden plan", prefix_, Veltra::FilterType::CheckInput);
        if (text != "4: has sensitive words") Other("screening", text);
    }

    void Submit() {
        ++tally.feedback;
        const auto comment = std::make_shared<Veltra::LLMComment>(prefix_);
        comment->SetComments("as it should be");
        comment->SetCountry("NZ");
        comment->SetPictures({pictures_[random_() % pictures_.size()]});
        std::string id;
        if (!Veltra::Veltra_SubmitComments(comment, id)) {
            ++tally.failedFeedback;
        } else {
            feedbackId_ = id;
        }
    }

    void Cancel() {
        if (feedbackId_.empty()) return;
        ++tally.feedback;
        if (Veltra::Veltra_CancleComments(feedbackId_)) {
            feedbackId_.clear();  // otherwise again: what was refused wasn't withdrawn
        } else {
            ++tally.failedFeedback;
        }
    }

 public:
    static inline std::string domain;

 private:
    static inline const std::unordered_set<std::string> phrases_ = Phrases();
    static inline const std::array<std::string, 3> pictures_ = {
        stress::Picture(1000), stress::Picture(12000), stress::Picture(60000)};
    const std::string prefix_;
    std::minstd_rand random_;
    std::string feedbackId_;
};

// --- the figures ---------------------------------------------------------------------------------

/// Exact, unlike what the process's status says.
long ResidentKilobytes() {
    std::ifstream lines("/proc/self/smaps_rollup");
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("Rss:")) return std::strtol(line.c_str() + 4, nullptr, 10);
    return -1;
}

long Entries(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return std::distance(begin(entries), end(entries));
}

struct Figures {
    long rss = 0;
    long descriptors = 0;
    long threads = 0;
};

Figures Take() {
    return {ResidentKilobytes(), Entries("/proc/self/fd"), Entries("/proc/self/task")};
}

class Host {
 public:
    Host(TestSupport::OtherProcess& gateway, FILE* report) : gateway_(gateway), report_(report) {}

    int Run(std::chrono::seconds period, long periods) {
        Prepare();
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < kWorkers; ++i)
            threads.emplace_back([i] { Worker(i).Run(); });
        Figures first;
        Figures last;
        const auto start = std::chrono::steady_clock::now();
        for (long call = 1; call <= periods * kRollCalls; ++call) {
            std::this_thread::sleep_until(start + period * call / kRollCalls);
            ended = call == periods * kRollCalls;
            RollCall([&] {
                if (call % kRollCalls != 0) return;
                last = Take();
                if (call == kRollCalls) first = last;
                Show((period * call / kRollCalls).count(), last);
            });
            if (call % kRollCalls == kRollCalls / 2) Ask("expire");
        }
        for (auto& thread : threads)
            thread.join();
        return Judge(first, last, static_cast<unsigned long>(periods));
    }

 private:
    Refusals Ask(const char* what) {
        gateway_.Tell(what);
        Refusals refusals;
        if (std::sscanf(gateway_.Line().c_str(), "%lu %lu %lu %lu %lu",  // NOLINT(cert-err34-c)
                        &refusals.queries, &refusals.feedback, &refusals.rejectedQueries,
                        &refusals.rejectedFeedback, &refusals.tokens) != 5)
            std::abort();
        return refusals;
    }

    void Prepare() {
        qlog_set_handler(&OnRecord, nullptr, 4);
        Oak::Net::HttpClientOptions options;
        Worker::domain = gateway_.Line();
        options.caFile = gateway_.Line();
        Oak::Net::SetHttpClientOptions(options);
        Veltra::Veltra_Enable();
        Veltra::Veltra_SetsitiveWords({Veltra::PhraseKey("hidden plan")}, 3);
        if (!Veltra::Veltra_SetDomain(Worker::domain) || !e2e::LogIn()) Other("login", "failed");
        std::fprintf(report_, "%8s %10s %10s %9s %9s %9s %6s %9s %4s %7s\n", "seconds",
                     "operations", "queries", "refused", "feedback", "failed", "other", "RSS kB",
                     "fds", "threads");
    }

    void RollCall(const std::function<void()>& meanwhile) {
        assemble = true;
        meeting.arrive_and_wait();
        assemble = false;
        e2e::Ask("World", "roll-host");
        meeting.arrive_and_wait();
        meanwhile();
        meeting.arrive_and_wait();
    }

    void Show(long seconds, const Figures& figures) const {
        std::fprintf(report_, "%8ld %10lu %10lu %9lu %9lu %9lu %6lu %9ld %4ld %7ld\n", seconds,
                     tally.operations.load(), tally.queries.load(), tally.refusedQueries.load(),
                     tally.feedback.load(), tally.failedFeedback.load(), tally.other.load(),
                     figures.rss, figures.descriptors, figures.threads);
        std::fflush(report_);
    }

    int Judge(const Figures& first, const Figures& last, unsigned long periods) {
        const Refusals refusals = Ask("tell");
        bool good = true;
        const auto hold = [&](bool holds, const char* what, auto got, auto wanted) {
            good = good && holds;
            std::fprintf(report_, "%-40s %10ld %10ld  %s\n", what, static_cast<long>(got),
                         static_cast<long>(wanted), holds ? "ok" : "NOT SO");
        };
        const auto equal = [&](const char* what, unsigned long got, unsigned long wanted) {
            hold(got == wanted, what, got, wanted);
        };
        hold(std::abs(last.rss - first.rss) <= kMaxGrowthKb, "memory, kB: end, first period",
             last.rss, first.rss);
        // One connection more or fewer: the monitor's probe may have met a roll call.
        hold(std::abs(last.descriptors - first.descriptors) <= kDescriptorsOfOne,
             "descriptors: end, first period", last.descriptors, first.descriptors);
        hold(last.threads == first.threads, "threads: end, first period", last.threads,
             first.threads);
        equal("queries refused: seen, made", tally.refusedQueries, refusals.queries);
        equal("feedback failed: seen, made", tally.failedFeedback,
              refusals.feedback + refusals.rejectedFeedback);
        equal("other failures", tally.other, 0);
        equal("tokens: issued, a login and the periods", refusals.tokens, 1 + periods);
        hold(refusals.rejectedQueries > 0, "rejected queries, repeated with success",
             refusals.rejectedQueries, 0);
        return good ? 0 : 1;
    }

    TestSupport::OtherProcess& gateway_;
    FILE* const report_;
};

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app;
    long seconds = 3600;
    long period = 60;
    app.add_option("--seconds", seconds)->check(CLI::PositiveNumber);
    app.add_option("--period", period)->check(CLI::PositiveNumber);
    CLI11_PARSE(app, argc, argv);
    TestSupport::OtherProcess gateway(
        [](std::FILE* input, std::FILE* output) { Server().Run(input, output); });
    FILE* const report = stress::DivertedOutput();
    return Host(gateway, report).Run(std::chrono::seconds(period), std::max(2L, seconds / period));
}
