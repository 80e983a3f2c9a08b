#ifndef VELTRA_FUZZ_SUPPORT_FED_PLATFORM_H
#define VELTRA_FUZZ_SUPPORT_FED_PLATFORM_H

#include <Oak/Net/HttpClient.h>

#include <cstdint>
#include <functional>
#include <string>

/// Stands in for the platform's HTTP client and clock. Requests are answered by a function, the
/// time of day stands still, and waits expire at once.

namespace fuzz {

/// What a request gets; status 0 when nothing comes back.
struct Answer {
    std::int32_t status = 0;
    std::string body;
};

using Request = Oak::Net::CHttpClientRequest;

void AnswerBy(std::function<Answer(const Request&)> answer);

}  // namespace fuzz

#endif
