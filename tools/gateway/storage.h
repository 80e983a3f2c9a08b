#pragma once

#include "gateway.h"
#include "json.h"
#include "latest.h"

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/// Hands out pre-signed URLs and keeps the pictures that are put there. It needs no list of the
/// URLs that it handed out: a signature proves that it made the URL. Thread-safe.
class Storage {
 public:
    /// The options must outlive it. Throws std::runtime_error when there is no randomness.
    explicit Storage(const Options& options);
    /// What URLs begin with from now on.
    void setDomain(std::string domain);

    /// Answers a request for upload slots.
    Answer grant(const rapidjson::Value& body) const;
    UploadSlot makeSlot(const std::string& imageType, std::chrono::seconds lifetime) const;
    Answer put(const Request& request);

    std::vector<Picture> pictures() const;
    std::optional<std::string> picture(const std::string& imageKey) const;

 private:
    struct Stored {
        Picture picture;
        std::shared_ptr<const std::string> bytes;
    };
    static constexpr std::size_t kMaxCount = 10000;

    std::string signatureOf(std::string_view signedPart) const;
    std::vector<Stored> all() const;

    const Options& options_;
    std::array<unsigned char, 32> key_{};

    mutable std::mutex mutex_;  // guards what follows
    std::string domain_;
    Latest<Stored> stored_;
};

}  // namespace gateway
