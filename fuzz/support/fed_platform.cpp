#include "support/fed_platform.h"

#include <Oak/Base/Clock.h>
#include <Oak/Net/HttpClientOptions.h>

#include <utility>

namespace fuzz {

namespace {

std::function<Answer(const Request&)>& Answerer() {
    static std::function<Answer(const Request&)> answerer = [](const Request&) { return Answer{}; };
    return answerer;
}

}  // namespace

void AnswerBy(std::function<Answer(const Request&)> answer) {
    Answerer() = std::move(answer);
}

}  // namespace fuzz

namespace Oak::Net {

HttpClient::HttpClient() = default;
HttpClient::~HttpClient() = default;

bool HttpClient::Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                      Error* /*error*/) {
    fuzz::Answer answer = fuzz::Answerer()(request);
    if (answer.status == 0) return false;
    response->Deliver(answer.status, std::move(answer.body));
    return true;
}

void HttpClient::WakeAll() noexcept {}

void SetHttpClientOptions(const HttpClientOptions& /*options*/) {}

}  // namespace Oak::Net

namespace Oak::Base {

std::int64_t Clock::SystemMilliseconds() {
    return 1'700'000'000'000;
}

bool Clock::WaitFor(std::condition_variable& /*condition*/, std::unique_lock<std::mutex>& /*lock*/,
                    std::chrono::milliseconds /*timeout*/, const std::function<bool()>& wake) {
    return wake();
}

}  // namespace Oak::Base
