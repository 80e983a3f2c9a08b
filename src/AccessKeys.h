#ifndef VELTRA_SRC_ACCESSKEYS_H
#define VELTRA_SRC_ACCESSKEYS_H

#include <Oak/Base/Wipe.h>
#include <Veltra/LicenseInfo.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace Veltra {

/// A list of access-key pairs that leaves none of them in memory: what goes is overwritten first.
class AccessKeys {
 public:
    AccessKeys() = default;
    explicit AccessKeys(const std::vector<CAccessKey>& pairs) : pairs_(pairs) {}
    AccessKeys(const AccessKeys& other) = default;
    AccessKeys(AccessKeys&& other) noexcept { pairs_.swap(other.pairs_); }
    AccessKeys& operator=(AccessKeys other) noexcept {
        pairs_.swap(other.pairs_);
        return *this;
    }
    ~AccessKeys() {
        for (CAccessKey& pair : pairs_) {
            Oak::Base::Wipe(pair.appKey);
            Oak::Base::Wipe(pair.secretKey);
        }
    }

    const std::vector<CAccessKey>& Get() const { return pairs_; }

    /// Adds pairs at the end. The list doesn't grow in place, which would leave short texts behind.
    void Add(const std::vector<CAccessKey>& more) {
        AccessKeys all;
        all.pairs_.reserve(pairs_.size() + more.size());
        std::copy(pairs_.begin(), pairs_.end(), std::back_inserter(all.pairs_));
        std::copy(more.begin(), more.end(), std::back_inserter(all.pairs_));
        pairs_.swap(all.pairs_);
    }

 private:
    std::vector<CAccessKey> pairs_;
};

}  // namespace Veltra

#endif
