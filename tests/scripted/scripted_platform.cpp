#include "scripted/scripted_platform.h"

#include <Oak/Base/Clock.h>
#include <Oak/Net/HttpClientOptions.h>
#include <qlog/qlog.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace scripted {

namespace {

/// A wait under way, and what wakes it.
struct Wait {
    std::chrono::milliseconds timeout;
    std::condition_variable* condition;
    std::mutex* mutex;
    bool expired = false;
};

struct State {
    std::mutex mutex;
    std::function<Answer(const Request&)> answer = [](const Request&) { return Lost(); };
    std::vector<Request> requests;
    std::list<Wait> waits;
    std::map<std::chrono::milliseconds, std::size_t> waitsBegun;
    std::set<std::chrono::milliseconds> expireAtOnce;
    std::vector<std::string> records;
    std::function<void(const std::string&)> react;
    std::atomic<std::int64_t> now{1'700'000'000'000};
};

State& TheState() {
    static State* const state = new State;  // outlives the monitor
    return *state;
}

/// "[Veltra::A::f]text[src/A.cpp(1)]" becomes "A::f|text".
std::string Shortened(const std::string& message) {
    const std::string prefix = "[Veltra::";
    const std::size_t nameEnd = message.find(']');
    const std::size_t place = message.rfind('[');
    const bool shaped = message.compare(0, prefix.size(), prefix) == 0 && place > nameEnd &&
                        message.compare(place, 5, "[src/") == 0 &&
                        message.compare(message.size() - 2, 2, ")]") == 0;
    if (!shaped) return message;
    return message.substr(prefix.size(), nameEnd - prefix.size()) + "|" +
           message.substr(nameEnd + 1, place - nameEnd - 1);
}

void Record(int level, const char* tag, const char* message, void* /*context*/) {
    State& state = TheState();
    const bool ours = std::string(tag) == "Veltra";
    std::string record =
        std::to_string(level) + " " + (ours ? "" : std::string(tag) + " ") + Shortened(message);
    std::function<void(const std::string&)> react;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.records.push_back(record);
        react = state.react;
    }
    if (react) react(record);
}

}  // namespace

std::string TokenBody(const std::string& token, const std::string& domain) {
    return R"({"errorCode":"0","data":{"accessToken":")" + token +
           R"(","expireTime":"7200","areaDomain":")" + domain + R"("}})";
}

std::string ResultBody(const std::string& text) {
    return R"({"errorCode":"0","data":{"resultStr":")" + text + R"("}})";
}

std::string RefusalBody(const std::string& code, const std::string& message) {
    return R"({"errorCode":")" + code + R"(","message":")" + message + R"("})";
}

void AnswerBy(std::function<Answer(const Request&)> answer) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    TheState().answer = std::move(answer);
}

void AnswerInOrder(std::vector<Answer> answers) {
    AnswerBy([answers = std::move(answers),
              next = std::make_shared<std::atomic<std::size_t>>(0)](const Request&) {
        const std::size_t index = (*next)++;
        return index < answers.size() ? answers[index] : Lost();
    });
}

bool IsTokenRequest(const Request& request) {
    return request.Url().Text().find(kTokenPath) != std::string::npos;
}

bool IsProbe(const Request& request) {
    return !IsTokenRequest(request) && request.Headers().empty();
}

/// The requests so far but those that are left out.
std::vector<std::string> RequestsWithout(bool (*leftOut)(const Request&)) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    std::vector<std::string> shown;
    for (const Request& request : TheState().requests) {
        if (!leftOut(request))
            shown.push_back(request.Method() + " " + request.Url().Text() + " " + request.Data());
    }
    return shown;
}

std::vector<std::string> WholeRequests() {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    std::vector<std::string> shown;
    for (const Request& request : TheState().requests) {
        std::string& text = shown.emplace_back(request.Method() + " " + request.Url().Text());
        text += "\ntype " + request.ContentType() + "\n";
        for (const auto& [name, value] : request.Headers())
            text.append(name).append(": ").append(value).append("\n");
        text += request.Data();
    }
    return shown;
}
std::vector<std::string> Requests() {
    return RequestsWithout([](const Request&) { return false; });
}
std::vector<std::string> RequestsButProbes() {
    return RequestsWithout(&IsProbe);
}
std::size_t TokenRequests() {
    return RequestsWithout([](const Request& request) { return !IsTokenRequest(request); }).size();
}

void ForgetRequests() {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    TheState().requests.clear();
}

void SetNow(std::int64_t milliseconds) {
    TheState().now = milliseconds;
}
std::int64_t Now() {
    return TheState().now;
}

std::size_t WaitsUnderWay(std::chrono::milliseconds timeout) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    const auto& waits = TheState().waits;
    return static_cast<std::size_t>(std::count_if(
        waits.begin(), waits.end(),
        [timeout](const Wait& wait) { return wait.timeout == timeout && !wait.expired; }));
}

std::size_t WaitsBegun(std::chrono::milliseconds timeout) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    return TheState().waitsBegun[timeout];
}

void ExpireWaits(std::chrono::milliseconds timeout) {
    std::vector<Wait> woken;
    {
        const std::lock_guard<std::mutex> lock(TheState().mutex);
        for (Wait& wait : TheState().waits) {
            if (wait.timeout != timeout) continue;
            wait.expired = true;
            woken.push_back(wait);
        }
    }
    for (const Wait& wait : woken) {
        { const std::lock_guard<std::mutex> lock(*wait.mutex); }  // it waits by now, or has seen it
        wait.condition->notify_all();
    }
}

void ExpireAtOnce(std::chrono::milliseconds timeout) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    TheState().expireAtOnce.insert(timeout);
}

std::vector<std::string> Records() {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    return TheState().records;
}

void ForgetRecords() {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    TheState().records.clear();
}

void StartRecording(int level) {
    qlog_set_handler(&Record, nullptr, level);
}

void ReactToRecords(std::function<void(const std::string& record)> react) {
    const std::lock_guard<std::mutex> lock(TheState().mutex);
    TheState().react = std::move(react);
}

bool Eventually(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace scripted

namespace Oak::Net {

HttpClient::HttpClient() = default;
HttpClient::~HttpClient() = default;

bool HttpClient::Send(const CHttpClientRequest& request, CHttpClientResponse* response,
                      Error* /*error*/) {
    scripted::State& state = scripted::TheState();
    std::function<scripted::Answer(const CHttpClientRequest&)> answerer;
    {
        const std::lock_guard<std::mutex> lock(state.mutex);
        state.requests.push_back(request);
        answerer = state.answer;
    }
    const scripted::Answer answer = answerer(request);
    if (answer.sent) response->Deliver(answer.status, answer.body);
    return answer.sent;
}

void HttpClient::WakeAll() noexcept {}  // no answer waits for anything that this could wake

void SetHttpClientOptions(const HttpClientOptions& /*options*/) {}

}  // namespace Oak::Net

namespace Oak::Base {

std::int64_t Clock::SystemMilliseconds() {
    return scripted::Now();
}

bool Clock::WaitFor(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                    std::chrono::milliseconds timeout, const std::function<bool()>& wake) {
    scripted::State& state = scripted::TheState();
    std::list<scripted::Wait>::iterator self;
    {
        const std::lock_guard<std::mutex> stateLock(state.mutex);
        ++state.waitsBegun[timeout];
        if (state.expireAtOnce.count(timeout) != 0) return wake();
        self = state.waits.insert(state.waits.end(), {timeout, &condition, lock.mutex()});
    }
    // No polling: a wake-up that the layer forgets is a test that hangs.
    condition.wait(lock, [&] {
        if (wake()) return true;
        const std::lock_guard<std::mutex> stateLock(state.mutex);
        return self->expired;
    });
    const std::lock_guard<std::mutex> stateLock(state.mutex);
    state.waits.erase(self);
    return wake();
}

}  // namespace Oak::Base
