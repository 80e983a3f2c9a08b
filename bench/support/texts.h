#ifndef VELTRA_BENCH_TEXTS_H
#define VELTRA_BENCH_TEXTS_H

#include <cstddef>
#include <map>
#include <string>
#include <unordered_set>

/// Input of the benchmarks; the same on every run.

namespace bench {

/// Sentences of common English words, single spaces between them, `bytes` bytes long.
std::string EnglishText(std::size_t bytes);

/// Keys of `count` phrases of one to three words, none of which occurs in an English text.
std::unordered_set<std::string> PhraseKeys(std::size_t count);

/// Eight elements of a query whose body is 1 KiB long.
std::map<std::string, std::string> EightElements();

inline constexpr const char* promptKey = "summarise-ticket";
inline constexpr const char* sessionId = "7d0f6a9c-3c1e-4a63-9b6c-0f2f4d1f8a55";

/// The body that a query with these elements, that prompt key and session id sends.
std::string QueryBodyOf(const std::map<std::string, std::string>& elements);

}  // namespace bench

#endif
