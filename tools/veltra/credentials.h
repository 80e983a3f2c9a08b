#pragma once

#include <Veltra/LicenseInfo.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool {

/// What a login needs. Never printed.
struct Credentials {
    std::vector<Veltra::CAccessKey> keys;
    std::string productVersion;

    /// In the form that the layer takes.
    std::shared_ptr<Veltra::CLicenseInfo> licence() const;
};

/// Reads the file, or without one the variables VELTRA_APP_KEY and VELTRA_SECRET_KEY; nothing when
/// neither is there. A file that others may read costs a warning. Throws UsageError.
std::optional<Credentials> findCredentials(const std::string& file);

/// As above; throws UsageError when there are none.
Credentials loadCredentials(const std::string& file);

}  // namespace tool
