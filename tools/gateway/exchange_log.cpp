#include "exchange_log.h"

#include <algorithm>
#include <string>
#include <utility>

namespace gateway {
namespace {

std::size_t sizeOf(const Headers& headers) {
    std::size_t size = 0;
    for (const auto& [name, value] : headers)
        size += name.size() + value.size();
    return size;
}

std::size_t sizeOf(const Exchange& exchange) {
    const auto& request = exchange.request;
    return sizeof exchange + request.method.size() + request.path.size() + request.body.size() +
           sizeOf(request.headers);
}

std::size_t sizeOf(const Answer& answer) {
    std::size_t size = answer.body.size() + sizeOf(answer.headers) + answer.traceId.size();
    if (answer.model)
        size +=
            answer.model->model.size() + answer.model->prompt.size() + answer.model->answer.size();
    return size;
}

std::size_t sizeOf(const std::vector<Fault>& faults) {
    std::size_t size = 0;
    for (const auto& fault : faults)
        size += sizeof fault + fault.path.size() + fault.code.size() + fault.text.size();
    return size;
}

Request cut(const Request& request, std::size_t maxBody) {
    return {request.number,
            request.method,
            request.path,
            request.headers,
            request.body.substr(0, maxBody),
            request.bodySize,
            request.time,
            request.connection};
}

ModelCall cut(const ModelCall& call, std::size_t maxBody) {
    return {call.model,
            call.prompt.substr(0, maxBody),
            call.answer.substr(0, maxBody),
            call.promptSize,
            call.answerSize,
            call.took,
            call.promptTokens,
            call.answerTokens,
            call.stoppedByLength};
}

Answer cut(const Answer& answer, std::size_t maxBody) {
    Answer made{answer.status,  answer.body.substr(0, maxBody), answer.headers,
                answer.chunked, answer.announcedLength,         answer.traceId};
    if (answer.model) made.model = cut(*answer.model, maxBody);
    return made;
}

Exchange cut(const Exchange& exchange, std::size_t maxBody) {
    Exchange made;
    made.request = cut(exchange.request, maxBody);
    made.faults = exchange.faults;
    made.took = exchange.took;
    if (exchange.answer) made.answer = cut(*exchange.answer, maxBody);
    made.answerSize = exchange.answerSize;
    made.answerSent = exchange.answerSent;
    made.revision = exchange.revision;
    return made;
}

}  // namespace

ExchangeLog::ExchangeLog(const Options& options)
    : maxBody_(options.maxRecordedBody),
      recordsAnswers_(options.recordAnswers),
      kept_(options.maxRecordedRequests, options.maxRecordedBytes) {}

void ExchangeLog::add(Request& request) {
    Record record;
    record.exchange.request = cut(request, maxBody_);
    record.begin = Clock::now();
    const auto size = sizeOf(record.exchange);
    const std::scoped_lock lock(mutex_);
    record.exchange.request.number = request.number = ++count_;
    record.exchange.revision = ++revision_;
    kept_.add(std::move(record), size);
}

// The record may be gone: forgotten, or the oldest of too many.
template <typename Change>
void ExchangeLog::change(std::uint64_t number, std::size_t moreBytes, Change change) {
    const std::scoped_lock lock(mutex_);
    kept_.changeLast([&](const Record& r) { return r.exchange.request.number == number; },
                     moreBytes,
                     [&](Record& record) {
                         change(record);
                         record.exchange.revision = ++revision_;
                     });
}

void ExchangeLog::addFaults(std::uint64_t number, const std::vector<Fault>& faults) {
    if (!recordsAnswers_ || faults.empty()) return;
    change(number, sizeOf(faults), [&](Record& record) { record.exchange.faults = faults; });
}

void ExchangeLog::end(std::uint64_t number, const Answer* answer, std::size_t sent) {
    if (!recordsAnswers_) return;
    std::optional<Answer> kept;
    if (answer != nullptr) kept = cut(*answer, maxBody_);
    const auto moreBytes = kept ? sizeOf(*kept) : 0;
    change(number, moreBytes, [&](Record& record) {
        auto& exchange = record.exchange;
        exchange.took =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - record.begin);
        exchange.answerSize = answer != nullptr ? answer->body.size() : 0;
        exchange.answerSent = std::min(sent, exchange.answerSize);
        exchange.answer = std::move(kept);
    });
}

void ExchangeLog::clear() {
    const std::scoped_lock lock(mutex_);
    kept_.clear();
}

std::vector<Request> ExchangeLog::requests() const {
    const std::scoped_lock lock(mutex_);
    std::vector<Request> requests;
    kept_.forEach([&](const Record& record) { requests.push_back(record.exchange.request); });
    return requests;
}

Exchanges ExchangeLog::changedSince(std::uint64_t revision, std::size_t maxCount,
                                    std::size_t maxBody) const {
    const std::scoped_lock lock(mutex_);
    std::vector<const Exchange*> changed;
    Exchanges found;
    found.revision = revision_;
    found.oldest = count_ + 1;
    kept_.forEach([&](const Record& record) {
        const auto& exchange = record.exchange;
        found.oldest = std::min(found.oldest, exchange.request.number);
        if (exchange.revision > revision) changed.push_back(&exchange);
    });
    const auto surplus = changed.size() - std::min(changed.size(), maxCount);
    for (std::size_t i = surplus; i < changed.size(); ++i)
        found.changed.push_back(cut(*changed[i], maxBody));
    return found;
}

}  // namespace gateway
