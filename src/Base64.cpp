#include "Base64.h"

#include "Log.h"

#include <openssl/bio.h>
#include <openssl/evp.h>

#include <climits>
#include <cstddef>
#include <memory>

namespace Veltra {

namespace {

struct FreeOne {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

struct FreeChain {
    void operator()(BIO* bio) const { BIO_free_all(bio); }
};

}  // namespace

std::vector<unsigned char> base64_decode(const std::string& text) {
    VELTRA_OPERATION(operation);
    if (text.empty()) {
        VELTRA_LOG(operation, 4, "Empty input string for base64 decode");
        return {};
    }
    const std::unique_ptr<BIO, FreeChain> chain(BIO_new(BIO_f_base64()));
    if (!chain) {
        VELTRA_LOG(operation, 5, "Failed to create base64 BIO");
        return {};
    }
    // Lengths are ints here, and a negative one would mean a zero-terminated text.
    const bool countable = text.size() <= static_cast<std::size_t>(INT_MAX);
    const int length = countable ? static_cast<int>(text.size()) : 0;
    std::unique_ptr<BIO, FreeOne> memory(countable ? BIO_new_mem_buf(text.data(), length)
                                                   : nullptr);
    if (!memory) {
        VELTRA_LOG(operation, 5, "Failed to create memory BIO");
        return {};
    }
    if (BIO_push(chain.get(), memory.get()) == nullptr) {
        VELTRA_LOG(operation, 5, "Failed to push BIO chain");
        return {};
    }
    static_cast<void>(memory.release());  // belongs to the chain now
    BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);

    std::vector<unsigned char> bytes(text.size());
    const int count = BIO_read(chain.get(), bytes.data(), length);
    if (count < 0) {
        VELTRA_LOG(operation, 5, "Failed to decode base64 data");
        return {};
    }
    bytes.resize(static_cast<std::size_t>(count));
    return bytes;
}

}  // namespace Veltra
