// What a query costs apart from its exchange: processor time, where it goes, and allocations.

#include "AIManager.h"
#include "support/allocation_count.h"
#include "support/host.h"
#include "support/in_turn.h"
#include "support/measured_http_client.h"
#include "support/texts.h"

#include <Oak/Net/HttpClient.h>
#include <Veltra/Veltra.h>
#include <proto/CRapidJsonProto.h>
#include <qlog/qlog.h>
#include <qlog/qlog_write.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using bench::Moment;

constexpr std::size_t answerBytes = 1024;
constexpr std::size_t manyKeys = 10000;

const bench::Answerer* gateway = nullptr;

/// The layer, logged in at the answerer, with a phrase list and no log.
Veltra::CAIManager& Layer() {
    static Veltra::CAIManager& manager = [&]() -> Veltra::CAIManager& {
        bench::TrustAuthority(gateway->CaFile());
        qlog_set_handler(nullptr, nullptr, 6);
        auto& made = *Veltra::CAIManager::GetInstance();
        made.Enable();
        made.SetConfigDomain(gateway->Url());
        if (!made.renewAuthenticationToken({{"bench-app", "bench-secret"}}, true))
            throw std::runtime_error("login");
        made.SetSensitiveWords(bench::PhraseKeys(manyKeys), 3);
        return made;
    }();
    return manager;
}

/// The parts of one query: up to its exchange, the exchange, and from there to the answer.
struct Parts {
    double before;
    double exchange;
    double after;
    std::uint64_t allocations;  ///< of the layer
};

Parts MeasureQuery(Veltra::CLLMSession& session,
                   const std::shared_ptr<Veltra::CHumanMessage>& message) {
    std::shared_ptr<Veltra::CLLMMessage> answer;
    const Moment begin = Moment::Now();
    const bool done = session.ExecuteQuery(message, answer);
    const Moment end = Moment::Now();
    if (!done) throw std::runtime_error("a query failed");
    const bench::LastExchange exchange = bench::TheLastExchange();
    return {exchange.begin.nanoseconds - begin.nanoseconds,
            exchange.end.nanoseconds - exchange.begin.nanoseconds,
            end.nanoseconds - exchange.end.nanoseconds,
            exchange.begin.allocations - begin.allocations + end.allocations -
                exchange.end.allocations};
}

/// Processor time of a part of the layer, right after an exchange: what is called cold in a query
/// is called cold here.
template <class Work>
double MeasureCold(const Oak::Net::CHttpClientRequest& request, Work work) {
    Oak::Net::CHttpClientResponse response;
    if (!Oak::Net::HttpClient::Send(request, &response, nullptr))
        throw std::runtime_error("an exchange failed");
    const Moment begin = Moment::Now();
    work();
    return Moment::Now().nanoseconds - begin.nanoseconds;
}

/// What a look at the clock itself takes.
double ClockCost() {
    std::vector<double> costs;
    for (int look = 0; look < 1000; ++look) {
        const Moment begin = Moment::Now();
        costs.push_back(Moment::Now().nanoseconds - begin.nanoseconds);
    }
    return bench::Median(std::move(costs));
}

/// The records that a query that goes well would write, below the level.
void WriteNoRecords() {
    qlog_write(2, "Veltra", "[%s]request:%s[%s(%d)]", "operation", "body", "file", 1);
    qlog_write(3, "Veltra", "[%s]request:%s,http client get response:%s[%s(%d)]", "operation",
               "body", "answer", "file", 1);
}

void ReadAnswer(const std::string& text) {
    proto::CRapidJsonProto document;
    if (!document.set_str(text) || document.get_str("/errorCode", "") != "0")
        throw std::runtime_error("an answer that can't be read");
    benchmark::DoNotOptimize(document.get_str("/data/resultStr", ""));
}

void LayerOfQuery(benchmark::State& state) {
    Veltra::CAIManager& layer = Layer();
    const auto elements = bench::EightElements();
    const auto message = bench::EightElementMessage();
    const auto session = Veltra::CAiHelper(Veltra::ProductType::Default, "").GetLLMSessionItem({});
    const std::string answer = bench::QueryAnswer(answerBytes);
    Oak::Net::CHttpClientRequest request("POST", Oak::Net::URL(gateway->Url() + bench::queryPath));
    request.SetContentType("application/json");
    request.SetData(bench::QueryBodyOf(elements));

    std::vector<double> before, exchange, after, screening, parse, log;
    std::uint64_t allocations = 0;
    for (auto _ : state) {
        const Parts parts = MeasureQuery(*session, message);
        before.push_back(parts.before);
        exchange.push_back(parts.exchange);
        after.push_back(parts.after);
        allocations = parts.allocations;
        screening.push_back(MeasureCold(request, [&] {
            for (const auto& element : elements)
                benchmark::DoNotOptimize(layer.HasSensitiveWords(element.second));
        }));
        parse.push_back(MeasureCold(request, [&] { ReadAnswer(answer); }));
        log.push_back(MeasureCold(request, WriteNoRecords));
    }
    const double clock = ClockCost();
    const auto of = [clock](std::vector<double>& times) {
        return std::max(0.0, bench::Median(std::move(times)) - clock);
    };
    const double beforeExchange = of(before);
    const double afterExchange = of(after);
    const double screeningTime = of(screening);
    const double parseTime = of(parse);
    bench::ReportRatio(state, beforeExchange + afterExchange, of(exchange));
    state.counters["screening"] = screeningTime;
    state.counters["body"] = beforeExchange - screeningTime;
    state.counters["parse"] = parseTime;
    state.counters["result"] = afterExchange - parseTime;
    state.counters["log"] = of(log);
    state.counters["allocations"] = static_cast<double>(allocations);
}
BENCHMARK(LayerOfQuery);

}  // namespace

int main(int argc, char** argv) {
    const bench::Answerer made(bench::Scheme::https, answerBytes);
    gateway = &made;
    return bench::RunBenchmarks(argc, argv);
}
