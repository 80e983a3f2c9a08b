#pragma once

#include "gateway.h"

#include <openssl/evp.h>
#include <openssl/x509.h>

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
    CertificatePtr certificate;
    KeyPtr key;
    std::string authorityPem;
};

/// Makes an authority and a certificate for localhost, 127.0.0.1, ::1 and the address, in memory.
/// Throws std::runtime_error when OpenSSL fails.
ServerIdentity makeServerIdentity(Certificate flaw, const std::string& address);

}  // namespace gateway
