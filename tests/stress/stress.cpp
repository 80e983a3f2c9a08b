// Sixteen threads call every export in random order while the gateway's faults change under way:
//
//     veltra_stress [SECONDS [SEED [THREADS]]]
//
// No answer may be lost: a query whose last request the gateway answered with success, untouched by
// any fault, must have come back true with that very text. Memory, descriptors and threads must
// stay as they were after a third of the time. A call that doesn't return ends the program two
// minutes after its time. The layer runs on a clock that shortens its waits and whose time of day
// jumps.

#include "e2e/e2e_support.h"

#include <Oak/Base/Clock.h>
#include <qlog/qlog.h>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using Steady = std::chrono::steady_clock;
using Random = std::minstd_rand;
using Count = std::atomic<unsigned long>;

namespace {

std::atomic<std::int64_t> clockOffsetMs{0};
std::atomic<bool> ended{false};

}  // namespace

/// The TLS library is not compiled with the sanitizer, which misses the atomic counts by which its
/// objects are shared (a session resumed on two connections, say), and would call each release of
/// one a race. What our own code does, the locks of the TLS library's callers included, is watched.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
    return "called_from_lib:libcrypto.so\ncalled_from_lib:libssl.so\n";
}

std::int64_t Oak::Base::Clock::SystemMilliseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count() + clockOffsetMs;
}

/// The minute after a failed renewal lasts 20 ms, the ten seconds between two checks 50.
bool Oak::Base::Clock::WaitFor(std::condition_variable& condition,
                               std::unique_lock<std::mutex>& lock,
                               std::chrono::milliseconds timeout,
                               const std::function<bool()>& wake) {
    return condition.wait_for(lock, timeout >= 1min ? 20ms : 50ms, wake);
}

namespace {

// --- what must hold ------------------------------------------------------------------------------

/// Times in which a whole answer may get lost on the way although no fault met its request:
/// connections are closed, or nobody sees the records that tell of a time-out. One at a time.
class Disturbance {
 public:
    Disturbance() : lock_(mutex_) { ++epoch_; }
    ~Disturbance() { ++epoch_; }
    Disturbance(const Disturbance&) = delete;
    Disturbance& operator=(const Disturbance&) = delete;

    /// Odd while there is one.
    static unsigned long Epoch() { return epoch_; }

 private:
    static inline std::mutex mutex_;
    static inline Count epoch_{0};
    const std::lock_guard<std::mutex> lock_;
};

thread_local bool timedOut = false;  // an exchange of this thread, since the flag was cleared

/// Holds what the gateway answered against what the queries returned.
class Answers {
 public:
    void Note(const gateway::Request& request, const gateway::Answer& answer, bool faulty) {
        const std::string traceId = Between(request.body, R"("traceId":")");
        if (request.path != gateway::kQueryPath || traceId.empty()) return;
        const bool success = answer.body.find(R"("errorCode":"0")") != std::string::npos;
        const std::lock_guard<std::mutex> lock(mutex_);
        Answer& last = answers_[traceId];
        if (last.number > request.number) return;  // an earlier request that was served late
        last = {request.number, success, faulty, Between(answer.body, R"("resultStr":")")};
    }

    void Judge(const std::string& traceId, bool returned, const std::string& content,
               unsigned long epoch) {
        const Answer last = Take(traceId);
        if (returned) {
            ++returnedTrue;
            if (!last.success || last.text != content) Bad(traceId + " came back with", content);
        } else if (!last.success || last.faulty) {
            ++failed;
        } else if (timedOut || epoch % 2 == 1 || epoch != Disturbance::Epoch()) {
            ++excluded;
        } else {
            Bad(traceId + " lost", last.text);
        }
        if (last.success && !last.faulty) ++whole;
    }

    void Bad(const std::string& what, const std::string& text) {
        if (++bad <= 20) std::fprintf(stderr, "%s: %s\n", what.c_str(), text.c_str());
    }

    /// While no query is under way: what is left came too late to be judged.
    void ForgetLateOnes() {
        const std::lock_guard<std::mutex> lock(mutex_);
        answers_ = {};
    }

    Count whole{0};  // answers with success and no fault
    Count returnedTrue{0};
    Count failed{0};
    Count excluded{0};  // lost while a time-out or a disturbance was under way
    Count bad{0};

 private:
    struct Answer {
        std::uint64_t number = 0;
        bool success = false;
        bool faulty = false;
        std::string text;
    };

    static std::string Between(const std::string& text, const std::string& begin) {
        const auto found = text.find(begin);
        if (found == std::string::npos) return {};
        const auto start = found + begin.size();
        return text.substr(start, text.find('"', start) - start);
    }

    Answer Take(const std::string& traceId) {
        const std::lock_guard<std::mutex> lock(mutex_);
        const auto found = answers_.find(traceId);
        if (found == answers_.end()) return {};
        Answer last = std::move(found->second);
        answers_.erase(found);
        return last;
    }

    std::mutex mutex_;
    std::unordered_map<std::string, Answer> answers_;
};

Answers answers;

// --- the gateway, and its weather ----------------------------------------------------------------

void MakeWeather(gateway::Gateway& server, unsigned seed) {
    using gateway::FaultKind;
    Random random(seed);
    // Queries are what a lost answer shows with.
    const std::string_view paths[] = {gateway::kTokenPath,    gateway::kQueryPath,
                                      gateway::kFeedbackPath, gateway::kStoragePrefix,
                                      gateway::kQueryPath,    ""};
    const auto addFault = [&] {
        gateway::Fault fault{std::string(paths[random() % std::size(paths)])};
        fault.kind =
            static_cast<FaultKind>(random() % (static_cast<int>(FaultKind::RefuseCode) + 1));
        fault.number = fault.kind == FaultKind::Status ? 500 : static_cast<int>(random() % 50);
        fault.code = "777";
        fault.times = 1 + static_cast<int>(random() % 4);
        server.addFault(fault);
    };
    while (!ended) {
        std::this_thread::sleep_for(1ms * static_cast<int>(20 + random() % 100));
        server.resetStalled();
        const auto dice = random() % 20;
        if (dice > 4) addFault();
        if (dice == 0) server.expireTokens();
        if (dice == 1) {
            server.refuseConnections(true);
            std::this_thread::sleep_for(10ms);
            server.refuseConnections(false);
        }
        if (dice == 2) {
            const Disturbance disturbance;
            server.closeIdleConnections();
        }
        if (dice == 3) server.clearFaults();
        if (dice == 4) clockOffsetMs = static_cast<std::int64_t>(random() % 3) * 13 * 3600 * 1000;
    }
    server.clearFaults();
    server.resetStalled();
}

// --- the host ------------------------------------------------------------------------------------

std::string domain;
std::string caFile;

/// Base64 text of that many bytes.
std::string Picture(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes / 3 * 4)
        text += "QUJD";
    return text;
}

Count loginsWithPairs{0};
Count traceIds{0};
constexpr unsigned long kLoginsWithPairs = 64;  // their pairs stay for good

/// The context is a count that ends with its handler's service: a record that came later would be
/// seen by the sanitizers.
void OnRecord(int level, const char* tag, const char* message, void* context) {
    const auto number = ++*static_cast<Count*>(context);
    if (std::strcmp(tag, "Oak") == 0 && std::strstr(message, "time-out") != nullptr)
        timedOut = true;
    if (level > 5 || number % 500 != 0) return;
    std::string time;
    Veltra::Veltra_IsEnable();
    Veltra::ConvertTime("-1d", time, 0, true);
    if (!Veltra::Veltra_Enable() || number % 2000 == 0) Veltra::Veltra_Unit();
}

Count handlersSet{0};
Count submitted{0};

void ChangeHandler(Random& random) {
    ++handlersSet;
    static std::mutex mutex;
    static std::unique_ptr<Count> current;
    const std::lock_guard<std::mutex> lock(mutex);
    auto next = std::make_unique<Count>(0);
    if (random() % 4 == 0) {
        const Disturbance unseen;
        qlog_set_handler(nullptr, nullptr, 6);
        qlog_set_handler(&OnRecord, next.get(), 4);
    } else {
        qlog_set_handler(&OnRecord, next.get(), 2 + static_cast<int>(random() % 3));
    }
    current = std::move(next);
}

void SetOptions(bool patient) {
    Oak::Net::HttpClientOptions options;
    options.caFile = caFile;
    options.connectTimeoutMs = 5000;
    options.totalTimeoutMs = patient ? 20000 : 300;
    Oak::Net::SetHttpClientOptions(options);
}

class Worker {
 public:
    explicit Worker(std::size_t seed) : random_(static_cast<unsigned>(seed)) {}

    bool OneIn(unsigned n) { return random_() % n == 0; }
    std::uint32_t Below(unsigned n) { return static_cast<std::uint32_t>(random_() % n); }

    void Query() {
        const std::string traceId = "t" + std::to_string(++traceIds);
        auto filled = std::make_shared<Veltra::CHumanMessage>();
        filled->SetElements("greeting",
                            {{"name", OneIn(20) ? "a hidden plan" : traceId}, {"place", "here"}});
        filled->SetSessionID(traceId);
        filled->SetFilterType(Veltra::FilterType(Below(6)));
        if (OneIn(3)) filled->SetSensitiveContent({"some", OneIn(4) ? "forbidden" : "text"});
        auto message = std::make_shared<Veltra::CHumanMessage>(*filled);  // shares the record
        if (OneIn(2)) message = std::make_shared<Veltra::CHumanMessage>(std::move(*filled));
        if (OneIn(50)) message = filled;  // possibly moved from

        Veltra::CAiHelper copy = helper_;
        const auto session = copy.GetLLMSessionItem(Veltra::LLMType::Default);
        std::shared_ptr<Veltra::CLLMMessage> answer;
        const unsigned long epoch = Disturbance::Epoch();
        timedOut = false;
        const bool returned = session->ExecuteQuery(message, answer);
        answers.Judge(traceId, returned, answer ? answer->GetContent() : "", epoch);
        std::int32_t code = 0;
        std::string text;
        session->GetErrorInfo(code, text);
        if (returned != (code == 0) || returned != (answer != nullptr) ||
            session->GetSessionText() != "")
            answers.Bad("error after a query", std::to_string(code) + ' ' + text);
    }

    void LogIn() {
        std::vector<Veltra::CAccessKey> pairs;
        const auto number = OneIn(4) ? loginsWithPairs++ : kLoginsWithPairs;
        // The last is good: a renewal that has come to it stays with it.
        if (number < kLoginsWithPairs) pairs = {{"good", "secret"}};
        if (!pairs.empty() && OneIn(3)) pairs.insert(pairs.begin(), {"bad", "secret"});
        auto info = std::make_shared<Veltra::CLicenseInfo>();
        info->SetLicenseKey("", pairs);
        info->SetProductVersion("5." + std::to_string(number));
        const auto other = std::make_shared<Veltra::CLicenseInfo>(std::move(*info));
        Veltra::Veltra_Authentication(Veltra::ProductType::Default, OneIn(20) ? info : other);
    }

    void Submit() {
        auto comment = std::make_shared<Veltra::LLMComment>("t1");
        comment->SetComments("as it should be");
        comment->SetSatisfactionLevel(Veltra::SatisfactionLevel(Below(5)));
        comment->SetLLMErrType(Veltra::LLMErrType::Default);
        comment->SetCountry("NZ");
        comment->SetPictures({Picture(100), Picture(Below(60000))});
        const auto other = std::make_shared<Veltra::LLMComment>(std::move(*comment));
        std::string id;
        const bool sent = Veltra::Veltra_SubmitComments(OneIn(20) ? comment : other, id);
        if (sent == id.empty()) answers.Bad("feedback id", id);
        if (sent) feedbackId_ = id;
        if (sent) ++submitted;
    }

    void SetWords() {
        std::unordered_set<std::string> phrases{Veltra::PhraseKey("hidden plan")};
        for (auto more = Below(50); more > 0; --more)
            phrases.insert(Veltra::PhraseKey(std::to_string(random_())));
        Veltra::Veltra_SetsitiveWords(phrases, Below(4));
    }

    void Convert() {
        std::string time;
        if (!Veltra::ConvertTime(OneIn(2) ? "-1d" : "+0w", time, 1700000000, true) ||
            time.substr(0, 8) != "2023-11-")
            answers.Bad("time", time);
        Veltra::ConvertTime("-1x", time, -1, false);
    }

    void SetDomain() { Veltra::Veltra_SetDomain(OneIn(4) ? "https://127.0.0.1:1" : domain); }
    void Probe() { Veltra::Veltra_IsDomainValid(OneIn(4) ? "no url" : domain); }
    void SetWeek() { Veltra::SetFirstDayOfWeek(Veltra::FirstDayOfWeek(Below(9))); }
    void Cancel() { Veltra::Veltra_CancleComments(feedbackId_); }
    void ReplaceHandler() { ChangeHandler(random_); }

 private:
    Random random_;
    Veltra::CAiHelper helper_{Veltra::ProductType::Default, ""};
    std::string feedbackId_;
};

struct Operation {
    unsigned weight;
    const char* name;
    void (*run)(Worker&);
    Count done{0};
} operations[] = {{2, "Disable", [](auto&) { Veltra::Veltra_Disable(); }},
                  {3, "Unit", [](auto&) { Veltra::Veltra_Unit(); }},
                  {5, "SetDomain", [](auto& worker) { worker.SetDomain(); }},
                  {10, "IsDomainValid", [](auto& worker) { worker.Probe(); }},
                  {20, "Authentication", [](auto& worker) { worker.LogIn(); }},
                  {65, "Enable", [](auto&) { Veltra::Veltra_Enable(); }},
                  {30, "IsEnable", [](auto&) { Veltra::Veltra_IsEnable(); }},
                  {30, "IsLLMServiceValid", [](auto&) { Veltra::Veltra_IsLLMServiceValid(); }},
                  {20, "SetsitiveWords", [](auto& worker) { worker.SetWords(); }},
                  {100, "ConvertTime", [](auto& worker) { worker.Convert(); }},
                  {20, "SetFirstDayOfWeek", [](auto& worker) { worker.SetWeek(); }},
                  {60, "SubmitComments", [](auto& worker) { worker.Submit(); }},
                  {60, "CancleComments", [](auto& worker) { worker.Cancel(); }},
                  {10, "qlog_set_handler", [](auto& worker) { worker.ReplaceHandler(); }},
                  {10, "SetHttpClientOptions", [](auto& worker) { SetOptions(!worker.OneIn(8)); }},
                  {555, "ExecuteQuery", [](auto& worker) { worker.Query(); }}};  // of 1000

// --- growth --------------------------------------------------------------------------------------

/// What the process holds while no worker is in a call; the gateway's part is bounded.
struct Figures {
    long memory = 0;  // in use, in bytes; with a sanitizer's allocator it says nothing
    long descriptors = 0;
    long monitors = 0;

    static Figures Take() {
        answers.ForgetLateOnes();
        const auto heap = mallinfo2();
        Figures figures{static_cast<long>(heap.uordblks + heap.hblkhd)};
        for ([[maybe_unused]] const auto& each :
             std::filesystem::directory_iterator("/proc/self/fd"))
            ++figures.descriptors;
        for (const auto& each : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::ifstream(each.path() / "comm") >> name;
            if (name == "veltra-monitor") ++figures.monitors;
        }
        return figures;
    }
};

/// Once the connections of before, which nobody is going to use, are closed at both their ends.
Figures Settled() {
    SetOptions(true);
    Figures last = Figures::Take();
    for (int i = 0; i < 50; ++i) {
        std::this_thread::sleep_for(100ms);
        const Figures next = Figures::Take();
        if (next.descriptors >= last.descriptors) return next;
        last = next;
    }
    return last;
}

std::atomic<bool> assemble{false};

Figures TakeFigures(std::barrier<>& meeting) {
    assemble = true;
    meeting.arrive_and_wait();
    assemble = false;
    const Figures figures = Settled();
    meeting.arrive_and_wait();
    return figures;
}

bool Grew(FILE* report, const Figures& first, const Figures& last) {
    constexpr long kMemory = 512L << 10;
    constexpr long kDescriptors = 30;
    for (const auto& each : {first, last}) {
        std::fprintf(report, "bytes %ld, descriptors %ld, monitors %ld\n", each.memory,
                     each.descriptors, each.monitors);
    }
    // The guard on records keeps each handler that was ever set, the gateway so many feedbacks.
    const auto feedbacks = std::min(submitted.load(), 10000UL);
    const long kept = static_cast<long>(128 * handlersSet + 500 * feedbacks);
    return last.memory > first.memory + kMemory + kept ||
           last.descriptors > first.descriptors + kDescriptors || last.monitors > 1;
}

void Work(Worker worker, std::barrier<>& meeting) {
    while (!ended) {
        if (assemble) {
            meeting.arrive_and_wait();
            meeting.arrive_and_wait();
        }
        auto dice = worker.Below(1000);
        Operation* chosen = operations;
        while (dice >= chosen->weight)
            dice -= chosen++->weight;
        chosen->run(worker);
        ++chosen->done;
    }
}

/// The library shows feedback on standard output: that goes nowhere, and reports where it went.
FILE* DivertedOutput() {
    FILE* const report = fdopen(dup(STDOUT_FILENO), "w");
    if (report == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr) std::abort();
    setvbuf(report, nullptr, _IOLBF, BUFSIZ);
    return report;
}

bool Report(FILE* report) {
    bool good = answers.bad == 0 && answers.whole > 0 && answers.returnedTrue > 0;
    for (const auto& [weight, name, run, done] : operations) {
        std::fprintf(report, "%-22s %9lu\n", name, done.load());
        good = good && done > 0;
    }
    std::fprintf(report, "queries true %lu, failed %lu; whole %lu, excluded %lu; bad %lu\n",
                 answers.returnedTrue.load(), answers.failed.load(), answers.whole.load(),
                 answers.excluded.load(), answers.bad.load());
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    const auto given = [&](int place, unsigned otherwise) {
        return place < argc ? static_cast<unsigned>(std::atoi(argv[place])) : otherwise;
    };
    const unsigned seconds = given(1, 60);
    const unsigned seed = given(2, std::random_device()() % 100000);
    const unsigned threads = given(3, 16);
    FILE* const report = DivertedOutput();
    std::fprintf(report, "seed %u\n", seed);

    gateway::Options options = e2e::Serve(true);
    options.maxRecordedRequests = 10;
    options.maxPictureBytes = std::size_t{1} << 17;
    options.onAnswer = [](const gateway::Request& request, const gateway::Answer& answer,
                          const gateway::Fault* fault) {
        answers.Note(request, answer, fault != nullptr);
    };
    gateway::Gateway server(options);
    if (!server.start()) return 3;
    const e2e::TemporaryFile ca(server.caPem());
    domain = server.baseUrl();
    caFile = ca.Path();
    Random random(1);
    ChangeHandler(random);
    SetOptions(true);
    Veltra::Veltra_Enable();
    if (!Veltra::Veltra_SetDomain(domain) || !e2e::LogIn()) return 3;

    alarm(seconds + 120);
    std::barrier<> meeting(static_cast<std::ptrdiff_t>(threads) + 1);
    std::thread weather([&] { MakeWeather(server, seed); });
    std::vector<std::jthread> workers;
    for (unsigned i = 0; i < threads; ++i)
        workers.emplace_back([&, i] { Work(Worker(seed * 1000 + i + 1), meeting); });
    std::this_thread::sleep_for(std::chrono::milliseconds(seconds * 1000 / 3));
    const Figures first = TakeFigures(meeting);
    std::this_thread::sleep_for(std::chrono::milliseconds(seconds * 2000 / 3));
    const Figures last = TakeFigures(meeting);
    ended = true;
    weather.join();
    workers.clear();
    qlog_set_handler(nullptr, nullptr, 6);
    const bool good = Report(report);
    return !Grew(report, first, last) && good ? 0 : 1;
}
