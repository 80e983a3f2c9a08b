#ifndef VELTRA_BENCH_IDENTITY_OPENSSL_H
#define VELTRA_BENCH_IDENTITY_OPENSSL_H

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace bench {

struct OpenSslDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    void operator()(X509* certificate) const { X509_free(certificate); }
};
template <class T>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter>;

/// A server's TLS with a certificate for 127.0.0.1, made now, and in `authorityPem` the authority
/// that vouches for it: one link longer than a certificate that vouches for itself, as in the
/// world.
OpenSslPtr<SSL_CTX> MakeServerTls(std::string& authorityPem);

}  // namespace bench

#endif
