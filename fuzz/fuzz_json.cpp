// The JSON document. Input: a path in the first line, then the text.
//
// Oracle: a plain reader. Both take the same texts, and read the same at the path; a text that is
// no JSON leaves the document empty, even one that held another before.

#include "support/fuzz_support.h"
#include "support/plain_json.h"

#include <proto/CRapidJsonProto.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text = fuzz::Input(data, size);
    const std::string path(fuzz::TakeLine(text));
    const auto expected = fuzz::ReadJson(text);

    proto::CRapidJsonProto document;
    document.set_str(R"({"a":["before"]})");
    fuzz::Require(document.set_str(std::string(text)) == expected.has_value(), "same texts read");
    fuzz::Require(document.get_str(path, "none") == fuzz::TextAt(expected, path, "none"),
                  "same value at the path");
    fuzz::Require(
        static_cast<std::size_t>(document.get_array_size(path)) == fuzz::SizeAt(expected, path),
        "same array size at the path");
    return 0;
}
