// Decoding a picture beside one call of the decoder over the same text.

#include "Base64.h"
#include "support/in_turn.h"

#include <openssl/evp.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

std::string PictureText() {
    constexpr std::size_t pictureBytes = std::size_t{10} << 20;
    std::mt19937 engine(1);  // NOLINT(cert-msc51-cpp): the same picture on every run
    std::vector<unsigned char> picture(pictureBytes);
    for (unsigned char& byte : picture)
        byte = static_cast<unsigned char>(engine());
    std::string text((pictureBytes + 2) / 3 * 4 + 1, '\0');
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       picture.data(), static_cast<int>(picture.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

/// Into new memory, as every decoded picture needs it.
void DecodeAtOnce(const std::string& text) {
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[text.size() / 4 * 3]);
    const int count =
        EVP_DecodeBlock(bytes.get(), reinterpret_cast<const unsigned char*>(text.data()),
                        static_cast<int>(text.size()));
    if (count < 0) std::abort();
    benchmark::DoNotOptimize(bytes.get());
}

void DecodingPicture(benchmark::State& state) {
    const std::string text = PictureText();
    bench::InTurn(
        state, 1, bench::Sample::eachCall,
        [&] { benchmark::DoNotOptimize(Veltra::base64_decode(text).data()); },
        [&] { DecodeAtOnce(text); });
}
BENCHMARK(DecodingPicture)->UseManualTime();

}  // namespace
