#ifndef OAK_NET_HTTP_RULES_H
#define OAK_NET_HTTP_RULES_H

#include <Oak/Net/HttpClient.h>
#include <Oak/Net/HttpClientOptions.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Oak::Net {

// What holds for every exchange, whatever carries it.

/// All header fields of one answer, interim answers and trailers included.
constexpr std::size_t maxHeaderBytes = std::size_t{256} * 1024;

/// The token of RFC 9110: method and field names.
bool IsToken(std::string_view text);

/// Whether two field names differ in case at most.
bool SameName(std::string_view left, std::string_view right);

/// Whether a field leaves the message what it is: it breaks no line, and says nothing on how long
/// the message is.
bool MayBeSent(std::string_view name, std::string_view value);

/// The options with the default in place of each limit that is 0.
HttpClientOptions WithDefaultsForZero(HttpClientOptions options);

/// A failure of an exchange.
struct Failure {
    FailureReason reason;
    std::int32_t code;  ///< the number that the library below has for it, or one of http_exchange.h
    const char* detail;
};

/// What may be told of an exchange that failed.
struct Telling {
    std::string target;  ///< of the URL; empty while that isn't known
    std::string words;   ///< in place of the failure's fixed text, if there are any
};

/// Words of a library below: one line of printable characters. The caller has seen to it that they
/// quote no URL and no field.
std::string Printable(const char* words);

/// Fills `error`, which may be null.
void Describe(const Failure& failure, const Telling& telling, HttpClient::Error* error);

/// Writes the one record of a failed exchange.
void Report(const Failure& failure, const Telling& telling, const std::string& method);

}  // namespace Oak::Net

#endif
