#ifndef VELTRA_TESTS_E2E_SUPPORT_H
#define VELTRA_TESTS_E2E_SUPPORT_H

#include "e2e/calls.h"
#include "gateway/gateway.h"

#include <Oak/Net/HttpClientOptions.h>

#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>

/// What tests of the real library against the local gateway share.
namespace e2e {

/// A file that is there as long as this object.
class TemporaryFile {
 public:
    explicit TemporaryFile(const std::string& content) {
        const int descriptor = mkstemp(path_.data());
        if (descriptor >= 0) close(descriptor);
        std::ofstream(path_) << content;
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Path() const { return path_; }

 private:
    std::string path_ = "/tmp/veltra-test-XXXXXX";
};

inline gateway::Options Serve(bool tls) {
    gateway::Options options;
    options.tls = tls;
    options.keys = {{"good", "secret"}};
    return options;
}

}  // namespace e2e

#endif
