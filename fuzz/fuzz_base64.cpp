// Decoding of base64. Input: the text.
//
// Oracle: bytes are never more than three quarters of the text; a text that is base64, the input
// itself if it is one and the input encoded in any case, gives the bytes of a plain decoder.

#include "Base64.h"
#include "support/fuzz_support.h"

#include <openssl/evp.h>

#include <optional>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The bytes of a text of whole quartets with at most two "=" at its end; nothing for any other.
std::optional<Bytes> PlainlyDecoded(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    for (int i = 0; i < 2 && text.ends_with('='); ++i)
        text.remove_suffix(1);
    Bytes bytes;
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t six = kAlphabet.find(text[i]);
        if (six == kAlphabet.npos) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(six);
        // After the characters 2, 3 and 4 of a quartet 4, 2 and 0 bits are left over.
        if (i % 4 != 0) bytes.push_back(static_cast<unsigned char>(bits >> (6 - i % 4 * 2)));
    }
    return bytes;
}

std::string Encoded(const std::uint8_t* data, std::size_t size) {
    std::string text(size / 3 * 4 + 5, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data,
                                       static_cast<int>(size));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    fuzz::DropRecords();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::Input(data, size));
    const Bytes bytes = Veltra::base64_decode(text);
    fuzz::Require(bytes.size() * 4 <= text.size() * 3, "no more than three quarters");
    if (const auto expected = PlainlyDecoded(text))
        fuzz::Require(bytes == *expected, "base64 gives its bytes");
    fuzz::Require(Veltra::base64_decode(Encoded(data, size)) == Bytes(data, data + size),
                  "encoded bytes come back");
    return 0;
}
