// Reading the text out of an answer of 1 MiB beside the JSON library's own parse of that answer.

#include "support/in_turn.h"

#include <proto/CRapidJsonProto.h>

#include <rapidjson/document.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using bench::Sample;

constexpr std::size_t answerBytes = std::size_t{1} << 20;

/// A text of about 1 MiB that is `piece` over and over.
std::string Repeated(std::string_view piece) {
    std::string text;
    while (text.size() < answerBytes)
        text += piece;
    return text;
}

std::string WithResult(const std::string& result) {
    return R"({"errorCode":"0","message":"","data":{"resultStr":")" + result + R"("}})";
}

std::string PlainText() {
    return WithResult(Repeated("The model's answer, as plain English text goes. "));
}

/// What models write most: lines, quotation marks, a code block.
std::string EscapedText() {
    return WithResult(
        Repeated(R"(He said: \"The answer is in the second paragraph.\"\n\tint n = 0;\n)"));
}

std::string ChineseText() {
    return WithResult(Repeated("模型给出的回答是一段普通的中文文本，没有转义。"));
}

/// The result behind a million bytes of small values.
std::string ManyValues() {
    return R"({"errorCode":"0","list":[0)" + Repeated(R"(,{"id":12345,"name":"value"})") +
           R"(],"data":{"resultStr":"text"}})";
}

void ReadResult(const std::string& answer) {
    proto::CRapidJsonProto document;
    const bool loaded = document.set_str(answer);
    const std::string result = document.get_str("/data/resultStr", "");
    if (!loaded || result.empty()) std::abort();
    benchmark::DoNotOptimize(result.data());
}

void ParseAlone(const std::string& answer) {
    constexpr unsigned flags = rapidjson::kParseIterativeFlag |
                               rapidjson::kParseValidateEncodingFlag |
                               rapidjson::kParseNumbersAsStringsFlag;
    rapidjson::Document document;
    document.Parse<flags>(answer.data(), answer.size());
    if (document.HasParseError()) std::abort();
    benchmark::DoNotOptimize(&document);
}

void ReadingResult(benchmark::State& state, const std::string& answer) {
    bench::InTurn(
        state, 1, Sample::eachCall, [&] { ReadResult(answer); }, [&] { ParseAlone(answer); });
    state.counters["bytes"] = static_cast<double>(answer.size());
}
BENCHMARK_CAPTURE(ReadingResult, plain, PlainText())->UseManualTime();
BENCHMARK_CAPTURE(ReadingResult, escaped, EscapedText())->UseManualTime();
BENCHMARK_CAPTURE(ReadingResult, chinese, ChineseText())->UseManualTime();
BENCHMARK_CAPTURE(ReadingResult, values, ManyValues())->UseManualTime();

}  // namespace
