#ifndef VELTRA_LICENSEINFO_H
#define VELTRA_LICENSEINFO_H

#include <Veltra/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace Veltra {

/// One access-key pair, a plain value. Both texts are written into the token request as they are:
/// they must need no JSON escaping (no double quote, backslash or control character). `EscapeJson`
/// makes any text so.
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
/// after the login has no effect until the next one. It may be made and filled at any time, also
/// before the layer is enabled: no function of it blocks, and none throws, apart from a failure to
/// allocate memory. The keys are not wiped from memory with the record.
class VELTRA_API CLicenseInfo {
 public:
    /// Makes a record without pairs and with an empty version.
    CLicenseInfo();

    /// Makes a further handle on the record of `other`.
    /// @param other  the handle to copy; an empty one gives an empty one
    CLicenseInfo(const CLicenseInfo& other);

    /// Takes over the record of `other`.
    /// @param other  the handle to move from; empty afterwards
    CLicenseInfo(CLicenseInfo&& other) noexcept;

    /// Lets go of this handle's record and becomes a further handle on that of `other`.
    /// @param other  the handle to copy; an empty one makes this one empty
    /// @return this handle
    CLicenseInfo& operator=(const CLicenseInfo& other);

    /// Lets go of this handle's record and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CLicenseInfo& operator=(CLicenseInfo&& other) noexcept;

    /// Lets go of the record, which is freed with the last of its owners.
    ~CLicenseInfo();

    /// Replaces the pairs.
    /// @param keyText     any text; kept, and nothing acts on it
    /// @param accessKeys  the pairs, which a login tries in this order. They are copied
    void SetLicenseKey(const std::string& keyText, const std::vector<CAccessKey>& accessKeys);

    /// Sets the host's own version, which a login hands to the layer and the layer sends with
    /// feedback.
    /// @param version  such as "5.1.0", a text that needs no JSON escaping. A login with an empty
    ///                 one leaves the version of the login before
    void SetProductVersion(const std::string& version);

    /// For the library's own use: the record's type is private.
    /// @return a further owner of the record; null for an empty handle
    std::shared_ptr<CLicenseInfoIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CLicenseInfoIMP> record_;
};

}  // namespace Veltra

#endif
