#pragma once

#include <string>

namespace gateway {

/// Where a model server is.
struct ModelUrl {
    bool tls = false;
    std::string host;  ///< An IPv6 address stands without its brackets.
    int port = 0;
    std::string path;  ///< Without a slash at its end.
};

/// Throws std::runtime_error when it isn't scheme, host, and at most a port and a path: what else a
/// URL may hold has no place here, and might be a secret.
ModelUrl parseModelUrl(const std::string& url);

}  // namespace gateway
