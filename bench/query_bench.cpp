// Queries through the library beside the same queries through a client written by hand.

#include "support/allocation_count.h"
#include "support/host.h"
#include "support/in_turn.h"
#include "support/login.h"
#include "support/plain_client.h"
#include "support/texts.h"

#include <Veltra/veltra_c.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using bench::Answerer;
using bench::HostSession;
using bench::PlainClient;
using bench::Sample;
using bench::Scheme;

constexpr std::size_t answerBytes = 1024;

/// Made in main(), before there are threads.
struct Gateways {
    Answerer http{Scheme::http, answerBytes};
    Answerer https{Scheme::https, answerBytes};
};
const Gateways* gateways = nullptr;

const Answerer& Gateway(Scheme scheme) {
    return scheme == Scheme::https ? gateways->https : gateways->http;
}

/// Logged in at the answerer of that scheme, with the monitor at rest and so many phrase keys.
void UseLibrary(Scheme scheme, std::size_t phraseKeys = 0) {
    static std::optional<Scheme> used;
    Veltra::Veltra_SetsitiveWords(bench::PhraseKeys(phraseKeys), 3);
    if (used == scheme) return;
    if (!bench::LogIn(Gateway(scheme))) throw std::runtime_error("login");
    Veltra::Veltra_Unit();
    used = scheme;
}

PlainClient MakePlainClient(Scheme scheme) {
    const Answerer& gateway = Gateway(scheme);
    return {gateway.Url(), gateway.CaFile(), bench::QueryBodyOf(bench::EightElements())};
}

template <class Client>
void MustQuery(Client& client) {
    std::string answer;
    if (!client.Query(answer)) throw std::runtime_error("a query failed");
    benchmark::DoNotOptimize(answer);
}

void QueryBesideKeptHandle(benchmark::State& state, Scheme scheme, std::size_t phraseKeys) {
    UseLibrary(scheme, phraseKeys);
    HostSession session;
    PlainClient plain = MakePlainClient(scheme);
    bench::InTurn(
        state, 50, Sample::eachCall, [&] { MustQuery(session); }, [&] { MustQuery(plain); });
}
BENCHMARK_CAPTURE(QueryBesideKeptHandle, http, Scheme::http, 0)->UseManualTime();
BENCHMARK_CAPTURE(QueryBesideKeptHandle, https, Scheme::https, 0)->UseManualTime();
BENCHMARK_CAPTURE(QueryBesideKeptHandle, screened, Scheme::https, 10000)->UseManualTime();

/// The same query by the interface for C, with a control for its report.
class CSession {
 public:
    CSession() {
        for (const auto& [name, value] : bench::EightElements())
            veltra_query_set_value(query_.get(), name.c_str(), value.c_str());
        veltra_query_set_trace_id(query_.get(), bench::sessionId);
    }

    bool Query(std::string& answer) {
        char* text = nullptr;
        std::size_t length = 0;
        if (veltra_query_run(query_.get(), &text, &length, call_.get()) != VELTRA_SUCCEEDED)
            return false;
        answer.assign(text, length);
        veltra_free(text);
        return true;
    }

 private:
    std::unique_ptr<veltra_query, decltype(&veltra_query_free)> query_{
        veltra_query_new(bench::promptKey), veltra_query_free};
    std::unique_ptr<veltra_call, decltype(&veltra_call_free)> call_{veltra_call_new(),
                                                                    veltra_call_free};
};

void QueryInCBesideCpp(benchmark::State& state) {
    UseLibrary(Scheme::http);
    CSession inC;
    HostSession inCpp;
    bench::InTurn(
        state, 50, Sample::eachCall, [&] { MustQuery(inC); }, [&] { MustQuery(inCpp); });
}
BENCHMARK(QueryInCBesideCpp)->UseManualTime();

void QueryBesideConnectionPerQuery(benchmark::State& state) {
    UseLibrary(Scheme::https);
    HostSession session;
    bench::InTurn(
        state, 10, Sample::eachCall, [&] { MustQuery(session); },
        [] {
            PlainClient plain = MakePlainClient(Scheme::https);
            MustQuery(plain);
        });
}
BENCHMARK(QueryBesideConnectionPerQuery)->UseManualTime();

void QueriesPerSecond(benchmark::State& state) {
    UseLibrary(Scheme::https);
    const auto threads = static_cast<std::size_t>(state.range(0));
    std::vector<HostSession> sessions(threads);
    std::vector<std::unique_ptr<PlainClient>> plain;
    for (std::size_t thread = 0; thread < threads; ++thread)
        plain.emplace_back(new PlainClient(MakePlainClient(Scheme::https)));
    const auto number = [](int thread) { return static_cast<std::size_t>(thread); };
    bench::RatesInTurn(
        state, static_cast<int>(threads), std::chrono::milliseconds(250),
        [&](int thread) { MustQuery(sessions[number(thread)]); },
        [&](int thread) { MustQuery(*plain[number(thread)]); });
}
BENCHMARK(QueriesPerSecond)->RangeMultiplier(2)->Range(1, 16)->UseManualTime();

/// Of the whole library, the HTTP client included.
void AllocationsOfQuery(benchmark::State& state) {
    UseLibrary(Scheme::https);
    HostSession session;
    MustQuery(session);
    const std::uint64_t before = bench::Allocations();
    for (auto _ : state)
        MustQuery(session);
    state.counters["allocations"] = static_cast<double>(bench::Allocations() - before) /
                                    static_cast<double>(state.iterations());
}
BENCHMARK(AllocationsOfQuery);

}  // namespace

int main(int argc, char** argv) {
    const Gateways made;
    gateways = &made;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    Veltra::Veltra_Disable();
    return 0;
}
