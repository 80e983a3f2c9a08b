#ifndef VELTRA_TESTS_SCRIPTED_PLATFORM_H
#define VELTRA_TESTS_SCRIPTED_PLATFORM_H

#include <Oak/Net/HttpClient.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Stands in for the platform's HTTP client and clock: a test lists the answers to come and reads
/// the requests made and the records written. The layer above is the real one. Everything is
/// process-wide, as what it replaces, so each test runs in a process of its own (ctest sees to it).

namespace scripted {

/// What a request gets.
struct Answer {
    bool sent = true;
    std::int32_t status = 200;
    std::string body;
};

inline Answer Ok(std::string body) {
    return {true, 200, std::move(body)};
}
inline Answer Status(std::int32_t status, std::string body = "{}") {
    return {true, status, std::move(body)};
}
inline Answer Lost() {
    return {false, 0, ""};
}

/// A token answer in the gateway's envelope.
std::string TokenBody(const std::string& token, const std::string& domain = "https://llm.test");
/// A query's answer.
std::string ResultBody(const std::string& text);
/// A refusal.
std::string RefusalBody(const std::string& code, const std::string& message);

/// A secret key, or the beginning of one. No record of any test shows it; see record_guard.cpp.
inline const std::string kSecret = "a-secret-key";

inline constexpr const char* kTokenPath = "/api/tmqgw/v1/token/get";
inline constexpr const char* kQueryPath =
    "/api/tmqgw/aillm/v1/third/text/prompt/by/template/analysis";
inline constexpr const char* kProduction = "https://gateway.veltra.example";
inline constexpr const char* kTest = "https://gateway-test.veltra.example";

using Request = Oak::Net::CHttpClientRequest;

/// Answers each request by a function, which runs on the sending thread without a lock.
void AnswerBy(std::function<Answer(const Request&)> answer);
/// Answers in order, then with `Lost`.
void AnswerInOrder(std::vector<Answer> answers);

/// The requests so far, as "METHOD url body".
std::vector<std::string> Requests();
/// The same with all that is in them: "METHOD url\ntype CONTENT-TYPE\n", then the header fields,
/// each as "Name: value\n", then the body.
std::vector<std::string> WholeRequests();
/// The requests so far without the probes.
std::vector<std::string> RequestsButProbes();
std::size_t TokenRequests();
void ForgetRequests();

bool IsProbe(const Request& request);
bool IsTokenRequest(const Request& request);

/// The system clock that the layer sees.
void SetNow(std::int64_t milliseconds);
std::int64_t Now();

/// Waits of the layer that are under way with exactly this timeout. They end when their condition
/// holds, or when `ExpireWaits` is called; never by time.
std::size_t WaitsUnderWay(std::chrono::milliseconds timeout);
/// Waits with this timeout that have begun so far, ended or not.
std::size_t WaitsBegun(std::chrono::milliseconds timeout);
void ExpireWaits(std::chrono::milliseconds timeout);
/// From now on, waits with this timeout expire at once.
void ExpireAtOnce(std::chrono::milliseconds timeout);

inline constexpr std::chrono::milliseconds kCheckInterval{10000};
inline constexpr std::chrono::milliseconds kRetryPause{60000};

/// The layer's records so far, as "LEVEL function|message" with the namespace and the closing
/// "[file(line)]" taken off; records without this shape stay as they are.
std::vector<std::string> Records();
void ForgetRecords();
void StartRecording(int level = 0);
/// Also runs `react` for each record, on the thread that wrote it.
void ReactToRecords(std::function<void(const std::string& record)> react);

/// Waits until `condition` holds; false, after half a minute, means that it never did.
bool Eventually(const std::function<bool()>& condition);

}  // namespace scripted

#endif
