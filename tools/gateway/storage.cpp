#include "storage.h"

#include "envelope.h"
#include "hex.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace gateway {
namespace {

constexpr int kMaxSlots = 100;
constexpr std::size_t kMaxTypeSize = 8;
constexpr std::string_view kExpires = "?expires=";
constexpr std::string_view kSignature = "&signature=";
constexpr int kForbidden = 403;

// The type becomes a part of the URL.
bool isImageType(const std::string& text) {
    return !text.empty() && text.size() <= kMaxTypeSize &&
           std::all_of(text.begin(), text.end(),
                       [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); });
}

std::int64_t nowSeconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(now).count();
}

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string sha256(const std::string& text) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(bytesOf(text), text.size(), digest.data());
    return toHex(digest);
}

// In constant time, lest the time that a wrong signature takes tell how much of it is right.
bool sameSignature(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// Of a signed part only: it has the form that makeSlot() gave it.
std::int64_t expiryOf(std::string_view signedPart) {
    const auto digits = signedPart.substr(signedPart.rfind(kExpires) + kExpires.size());
    std::int64_t expiry = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), expiry);
    return expiry;
}

}  // namespace

Answer uploadAnswer(const std::vector<UploadSlot>& slots) {
    return success([&](JsonWriter& writer) {
        write(writer, "imageList");
        writer.StartArray();
        writer.StartObject();
        write(writer, "uploadInfoList");
        writer.StartArray();
        for (const auto& slot : slots) {
            writer.StartObject();
            write(writer, "imageKey", slot.imageKey);
            write(writer, "url", slot.url);
            writer.EndObject();
        }
        writer.EndArray();
        writer.EndObject();
        writer.EndArray();
    });
}

Storage::Storage(const Options& options)
    : options_(options), stored_(kMaxCount, options.maxPictureBytes) {
    if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1)
        throw std::runtime_error("no random bytes");
}

void Storage::setDomain(std::string domain) {
    while (!domain.empty() && domain.back() == '/')
        domain.pop_back();
    const std::scoped_lock lock(mutex_);
    domain_ = std::move(domain);
}

Answer Storage::grant(const rapidjson::Value& body) const {
    const auto* list = member(body, "uploadImageList");
    if (list == nullptr || !list->IsArray() || list->Size() != 1)
        return malformed(R"(needs "uploadImageList", an array of one object)");
    const auto& wanted = (*list)[0];
    const auto* number = member(wanted, "generateNum");
    if (number == nullptr || !number->IsInt() || number->GetInt() < 1 ||
        number->GetInt() > kMaxSlots)
        return malformed(R"("generateNum" must be an integer from 1 to 100)");
    const auto type = textMember(wanted, "imageType");
    if (!type || !isImageType(*type))
        return malformed(R"("imageType" must be a text of up to 8 lower-case letters and digits)");
    std::vector<UploadSlot> slots;
    slots.reserve(static_cast<std::size_t>(number->GetInt()));
    for (int i = 0; i < number->GetInt(); ++i)
        slots.push_back(makeSlot(*type, options_.uploadLifetime));
    return uploadAnswer(slots);
}

UploadSlot Storage::makeSlot(const std::string& imageType, std::chrono::seconds lifetime) const {
    UploadSlot slot{randomHex() + '.' + imageType, {}};
    std::string signedPart(kStoragePrefix);
    signedPart += slot.imageKey;
    signedPart += kExpires;
    signedPart += std::to_string(nowSeconds() + lifetime.count());
    const std::scoped_lock lock(mutex_);
    slot.url = domain_ + signedPart + std::string(kSignature) + signatureOf(signedPart);
    return slot;
}

std::string Storage::signatureOf(std::string_view signedPart) const {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()), bytesOf(signedPart),
             signedPart.size(), digest.data(), &size) == nullptr)
        throw std::runtime_error("no HMAC");
    return toHex({digest.data(), size});
}

// The signature covers the text of the path and of the expiry, which therefore needs no reading
// before it has been found genuine, and none of the care that a stranger's text needs after.
Answer Storage::put(const Request& request) {
    const std::string_view target = request.path;
    const auto end = target.rfind(kSignature);
    const auto signedPart = target.substr(0, end);
    if (end == target.npos ||
        !sameSignature(target.substr(end + kSignature.size()), signatureOf(signedPart)))
        return refusal("403002", "the URL was not issued by this gateway", kForbidden);
    if (nowSeconds() >= expiryOf(signedPart))
        return refusal("403003", "the URL has expired", kForbidden);

    auto bytes = std::make_shared<const std::string>(request.body);
    const auto pathSize = signedPart.find('?') - kStoragePrefix.size();
    Picture picture{std::string(signedPart.substr(kStoragePrefix.size(), pathSize)), bytes->size(),
                    sha256(*bytes)};
    const auto size = sizeof(Stored) + picture.size;
    const std::scoped_lock lock(mutex_);
    stored_.eraseFirst([&](const Stored& old) { return old.picture.imageKey == picture.imageKey; });
    stored_.add({std::move(picture), std::move(bytes)}, size);
    return {};
}

std::vector<Storage::Stored> Storage::all() const {
    const std::scoped_lock lock(mutex_);
    return stored_.all();
}

std::vector<Picture> Storage::pictures() const {
    std::vector<Picture> pictures;
    for (auto& stored : all())
        pictures.push_back(std::move(stored.picture));
    return pictures;
}

std::optional<std::string> Storage::picture(const std::string& imageKey) const {
    for (const auto& stored : all())
        if (stored.picture.imageKey == imageKey) return *stored.bytes;
    return std::nullopt;
}

}  // namespace gateway
