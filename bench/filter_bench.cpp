// Screening beside the plain way of doing it, beside the hash alone, and as everything grows.

#include "SensitiveWordFilter.h"
#include "support/in_turn.h"
#include "support/texts.h"

#include <Veltra/PhraseKey.h>

#include <boost/tokenizer.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using bench::Sample;
using Veltra::SensitiveWordFilter;

constexpr std::size_t textBytes = 10240;
constexpr std::size_t keyCount = 10000;
constexpr std::uint32_t usualLimit = 3;

constexpr const char* sentenceDelimiters = "-;|?.!,:()...<>[]{}\"";

std::vector<std::string> Split(const std::string& text, const char* delimiters) {
    const boost::char_separator<char> separator(delimiters);
    const boost::tokenizer<boost::char_separator<char>> tokens(text, separator);
    return {tokens.begin(), tokens.end()};
}

/// Screening step by step, as one would write it down: each phrase joined afresh, its key in
/// decimal, a look-up of text. Without the reader's lock of each look-up.
bool HasSensitiveWordsPlainly(const std::string& text, const std::unordered_set<std::string>& keys,
                              std::size_t limit) {
    for (const std::string& sentence : Split(text, sentenceDelimiters)) {
        const std::vector<std::string> words = Split(sentence, " ");
        for (std::size_t length = 1; length <= limit; ++length) {
            for (std::size_t start = 0; start + length <= words.size(); ++start) {
                std::string phrase = words[start];
                for (std::size_t word = start + 1; word < start + length; ++word)
                    phrase += ' ' + words[word];
                if (keys.contains(Veltra::PhraseKey(phrase))) return true;
            }
        }
    }
    return false;
}

/// The phrases of a text with single spaces, found beforehand.
std::vector<std::string_view> Phrases(const std::string& text, std::size_t limit) {
    std::vector<std::string_view> phrases;
    std::size_t from = 0;
    for (const std::string& sentence : Split(text, sentenceDelimiters)) {
        for (const std::string& word : Split(sentence, " ")) {
            const std::size_t start = text.find(word, from);
            from = start + word.size();
            const std::size_t end = text.find_first_of(sentenceDelimiters, start);
            std::size_t stop = start;
            for (std::size_t length = 1; length <= limit && stop < std::min(end, text.size());
                 ++length) {
                stop = std::min({text.find(' ', stop + 1), end, text.size()});
                phrases.push_back(std::string_view(text).substr(start, stop - start));
            }
        }
    }
    return phrases;
}

/// A bare pass of the hash over each phrase from its first byte.
std::uint64_t HashEach(const std::vector<std::string_view>& phrases) {
    std::uint64_t all = 0;
    for (const std::string_view phrase : phrases) {
        Veltra::PhraseHash hash;
        for (const char byte : phrase)
            hash.Add(byte);
        all ^= hash.Value();
    }
    return all;
}

/// A filter with such a list. Kept until another list is asked for: each benchmark is begun several
/// times, and a list of a million keys takes longer than what is measured.
const SensitiveWordFilter& FilterWith(std::size_t keys, std::uint32_t limit) {
    static SensitiveWordFilter filter;
    static std::pair<std::size_t, std::uint32_t> held;
    if (held != std::pair(keys, limit)) filter.SetWords(bench::PhraseKeys(keys), limit);
    held = {keys, limit};
    return filter;
}

void ScreeningBesidePlainSteps(benchmark::State& state) {
    const SensitiveWordFilter& filter = FilterWith(keyCount, usualLimit);
    const auto keys = bench::PhraseKeys(keyCount);
    const std::string text = bench::EnglishText(textBytes);
    bench::InTurn(
        state, 5, Sample::meanOfRound,
        [&] { benchmark::DoNotOptimize(filter.HasSensitiveWords(text)); },
        [&] { benchmark::DoNotOptimize(HasSensitiveWordsPlainly(text, keys, usualLimit)); });
}
BENCHMARK(ScreeningBesidePlainSteps)->UseManualTime();

void ScreeningBesideBareHash(benchmark::State& state) {
    const SensitiveWordFilter& filter = FilterWith(keyCount, usualLimit);
    const std::string text = bench::EnglishText(textBytes);
    const auto phrases = Phrases(text, usualLimit);
    bench::InTurn(
        state, 5, Sample::meanOfRound,
        [&] { benchmark::DoNotOptimize(filter.HasSensitiveWords(text)); },
        [&] { benchmark::DoNotOptimize(HashEach(phrases)); });
    state.counters["phrases"] = static_cast<double>(phrases.size());
}
BENCHMARK(ScreeningBesideBareHash)->UseManualTime();

/// How close sixteen threads come to so many times one, with as many cores as there are: of the
/// screening, and of the bare hash, which shares nothing: what the machine itself lets grow.
void ScreeningOnSixteenThreads(benchmark::State& state) {
    constexpr int threads = 16;
    constexpr std::chrono::milliseconds round(100);
    const SensitiveWordFilter& filter = FilterWith(keyCount, usualLimit);
    const std::string text = bench::EnglishText(textBytes);
    const auto phrases = Phrases(text, usualLimit);
    const auto screen = [&](int) { benchmark::DoNotOptimize(filter.HasSensitiveWords(text)); };
    const auto hash = [&](int) { benchmark::DoNotOptimize(HashEach(phrases)); };
    std::vector<double> screenOne, screenAll, hashOne, hashAll;
    for (auto _ : state) {
        const auto begin = bench::SteadyClock::now();
        screenOne.push_back(bench::CallsPerSecond(1, round, screen));
        screenAll.push_back(bench::CallsPerSecond(threads, round, screen));
        hashOne.push_back(bench::CallsPerSecond(1, round, hash));
        hashAll.push_back(bench::CallsPerSecond(threads, round, hash));
        state.SetIterationTime(bench::Nanoseconds(bench::SteadyClock::now() - begin) / 1e9);
    }
    const int cores = std::min<int>(threads, static_cast<int>(std::thread::hardware_concurrency()));
    const double linear = bench::Median(std::move(screenOne)) * cores;
    bench::ReportRatio(state, bench::Median(std::move(screenAll)), linear);
    state.counters["machine_ratio"] =
        bench::Median(std::move(hashAll)) / (bench::Median(std::move(hashOne)) * cores);
    state.counters["cores"] = cores;
}
BENCHMARK(ScreeningOnSixteenThreads)->UseManualTime();

void Screen(benchmark::State& state, std::size_t bytes, std::uint32_t limit, std::size_t keys) {
    const SensitiveWordFilter& filter = FilterWith(keys, limit);
    const std::string text = bench::EnglishText(bytes);
    for (auto _ : state)
        benchmark::DoNotOptimize(filter.HasSensitiveWords(text));
}

void ScreeningByLength(benchmark::State& state) {
    Screen(state, static_cast<std::size_t>(state.range(0)), usualLimit, keyCount);
}
BENCHMARK(ScreeningByLength)->DenseRange(8192, 65536, 8192);

void ScreeningByLimit(benchmark::State& state) {
    Screen(state, textBytes, static_cast<std::uint32_t>(state.range(0)), keyCount);
}
BENCHMARK(ScreeningByLimit)->DenseRange(1, 10);

void ScreeningByKeys(benchmark::State& state) {
    Screen(state, textBytes, usualLimit, static_cast<std::size_t>(state.range(0)));
}
BENCHMARK(ScreeningByKeys)->RangeMultiplier(10)->Range(10, 1000000);

}  // namespace
