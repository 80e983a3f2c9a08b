#pragma once

#include "gateway.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>

namespace gateway {

struct CertificateDeleter {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct KeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using CertificatePtr = std::unique_ptr<X509, CertificateDeleter>;
using KeyPtr = std::unique_ptr<EVP_PKEY, KeyDeleter>;

struct ServerIdentity {
    std::array<CertificatePtr, 4> certificates;
    KeyPtr key;
    std::string authorityPem;

    CertificatePtr& certificate(Certificate which) {
        return certificates.at(static_cast<std::size_t>(which));
    }
};

/// Makes an authority and a certificate of each kind for localhost, 127.0.0.1, ::1 and the address,
/// in memory. Throws std::runtime_error when OpenSSL fails.
ServerIdentity makeServerIdentity(const std::string& address);

}  // namespace gateway
