#ifndef OAK_NET_CERTIFICATE_WINHTTP_H
#define OAK_NET_CERTIFICATE_WINHTTP_H

#include "system_winhttp.h"

#include <memory>
#include <string>

namespace Oak::Net {

struct CertificateDeleter {
    void operator()(PCCERT_CONTEXT context) const noexcept { CertFreeCertificateContext(context); }
};
using CertificatePtr = std::unique_ptr<const CERT_CONTEXT, CertificateDeleter>;

struct StoreDeleter {
    void operator()(HCERTSTORE store) const noexcept { CertCloseStore(store, 0); }
};
using StorePtr = std::unique_ptr<void, StoreDeleter>;

struct ChainEngineDeleter {
    void operator()(HCERTCHAINENGINE engine) const noexcept {
        CertFreeCertificateChainEngine(engine);
    }
};
using ChainEnginePtr = std::unique_ptr<void, ChainEngineDeleter>;

/// The certificates of a file, trusted in place of the system's. Any number of threads may ask at
/// once.
class CertificateTrust {
 public:
    /// Null when the file can't be read, holds none, or one that is broken.
    static std::shared_ptr<const CertificateTrust> FromFile(const std::string& path);

    /// Whether a certificate is that of the server `host`, valid now, for this use, and issued
    /// below one of the file's. What the server sent along is taken from the certificate's own
    /// store; nothing is fetched.
    bool Covers(const CERT_CONTEXT& certificate, const std::wstring& host) const noexcept;

 private:
    CertificateTrust(StorePtr roots, ChainEnginePtr engine) noexcept;

    const StorePtr roots_;  // first: the engine uses it
    const ChainEnginePtr engine_;
};

}  // namespace Oak::Net

#endif
