#ifndef VELTRA_LICENSEINFO_H
#define VELTRA_LICENSEINFO_H

#include <Veltra/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace Veltra {

/// An access-key pair, a plain value. Both texts go into the token request unescaped, so they must
/// need no escaping inside a JSON string (no double quote, backslash or control character).
/// `EscapeJson` prepares any text.
struct CAccessKey {
    std::string appKey;     ///< the key's identifier
    std::string secretKey;  ///< the key's secret
};

struct CLicenseInfoIMP;

/// The credentials of a login: access-key pairs, and the version of the host.
///
/// A handle to shared state. Copies share it: a setter called on one affects all. A moved-from
/// handle is empty: its setters do nothing, and a login with it is refused. One thread at a time
/// may use the shared state; a login reads it on the thread that logs in, and later changes have no
/// effect until the next login. Credentials may be created and filled at any time, even before the
/// layer is enabled. Its functions don't block, and throw only when memory can't be allocated. The
/// keys are not wiped from memory when the shared state is freed.
class VELTRA_API CLicenseInfo {
 public:
    /// Creates credentials without pairs and with an empty version.
    CLicenseInfo();

    /// Makes another handle to the shared state of `other`.
    /// @param other  the handle to copy; a copy of an empty handle is empty
    CLicenseInfo(const CLicenseInfo& other);

    /// Takes over the shared state of `other`.
    /// @param other  the handle to move from; empty afterwards
    CLicenseInfo(CLicenseInfo&& other) noexcept;

    /// Releases this handle's shared state and shares that of `other`.
    /// @param other  the handle to copy; if it is empty, this one becomes empty
    /// @return this handle
    CLicenseInfo& operator=(const CLicenseInfo& other);

    /// Releases this handle's shared state and takes over that of `other`.
    /// @param other  the handle to move from; empty afterwards
    /// @return this handle
    CLicenseInfo& operator=(CLicenseInfo&& other) noexcept;

    /// Releases the shared state, which is freed with its last owner.
    ~CLicenseInfo();

    /// Replaces the pairs.
    /// @param keyText     any text; stored, and without effect
    /// @param accessKeys  the pairs, which a login tries in this order. They are copied
    void SetLicenseKey(const std::string& keyText, const std::vector<CAccessKey>& accessKeys);

    /// Sets the host's own version. A login passes it to the layer, which sends it with feedback.
    /// @param version  a text such as "5.1.0" that needs no JSON escaping. If it is empty, a login
    ///                 keeps the version of the previous login
    void SetProductVersion(const std::string& version);

    /// For the library's own use: the type of the shared state is private.
    /// @return another owner of the shared state; null for an empty handle
    std::shared_ptr<CLicenseInfoIMP> GetPtrManager() const;

 private:
    std::shared_ptr<CLicenseInfoIMP> record_;
};

}  // namespace Veltra

#endif
