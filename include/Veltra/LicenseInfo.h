#ifndef VELTRA_LICENSEINFO_H
#define VELTRA_LICENSEINFO_H

#include <Veltra/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace Veltra {

/// One access-key pair. Both texts are written into the token request as they are: they must need
/// no JSON escaping.
struct CAccessKey {
    std::string appKey;     ///< the key's identifier
    std::string secretKey;  ///< the key's secret
};

struct CLicenseInfoIMP;

/// The credentials of a login: access-key pairs, and the version of the host.
///
/// A handle on a record. Copies share the record: a setter called on one is seen through all. A
/// moved-from handle is empty: its setters do nothing, and a login with it is refused. One thread
/// at a time may use a record; a login reads it on the thread that logs in. Changing the record
/// after the login has no effect until the next one.
class VELTRA_API CLicenseInfo {
 public:
    /// Makes a record without pairs and with an empty version.
    CLicenseInfo();
    CLicenseInfo(const CLicenseInfo& other);
    CLicenseInfo(CLicenseInfo&& other) noexcept;
    CLicenseInfo& operator=(const CLicenseInfo& other);
    CLicenseInfo& operator=(CLicenseInfo&& other) noexcept;
    ~CLicenseInfo();

    /// Replaces the pairs, which a login tries in this order. `keyText` is kept beside them;
    /// nothing acts on it.
    void SetLicenseKey(const std::string& keyText, const std::vector<CAccessKey>& accessKeys);

    /// The host's own version, such as "5.1.0". A login hands a non-empty one to the layer, which
    /// sends it with feedback.
    void SetProductVersion(const std::string& version);

    /// A further owner of the record; empty for a moved-from handle. The record's type is private.
    std::shared_ptr<CLicenseInfoIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CLicenseInfoIMP> record_;
};

}  // namespace Veltra

#endif
