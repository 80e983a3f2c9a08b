#include "support/identity_openssl.h"

#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstddef>
#include <stdexcept>

namespace bench {
namespace {

using CertificatePtr = OpenSslPtr<X509>;
using KeyPtr = OpenSslPtr<EVP_PKEY>;

void Require(bool done) {
    if (!done) throw std::runtime_error("making a certificate");
}

KeyPtr MakeKey() {
    KeyPtr key(EVP_EC_gen("P-256"));
    Require(key != nullptr);
    return key;
}

void AddExtension(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_conf_nid(nullptr, &context, kind, value);
    const bool added = extension != nullptr && X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    Require(added);
}

/// A certificate for a day that is not signed yet.
CertificatePtr Draft(const char* name, long serial, EVP_PKEY* key) {
    CertificatePtr made(X509_new());
    Require(made != nullptr);
    X509* const certificate = made.get();
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial);
    const auto* const text = reinterpret_cast<const unsigned char*>(name);
    Require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC, text,
                                       -1, -1, 0) == 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 24L * 3600);
    X509_set_pubkey(certificate, key);
    return made;
}

void Sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    Require(X509_sign(certificate, issuerKey, EVP_sha256()) > 0);
}

std::string ToPem(X509* certificate) {
    const OpenSslPtr<BIO> memory(BIO_new(BIO_s_mem()));
    Require(memory != nullptr && PEM_write_bio_X509(memory.get(), certificate) == 1);
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

OpenSslPtr<SSL_CTX> MakeServerTls(std::string& authorityPem) {
    const KeyPtr authorityKey = MakeKey();
    const CertificatePtr authority = Draft("Benchmark authority", 1, authorityKey.get());
    AddExtension(authority.get(), NID_basic_constraints, "critical,CA:TRUE");
    Sign(authority.get(), authority.get(), authorityKey.get());

    const KeyPtr key = MakeKey();
    const CertificatePtr certificate = Draft("Benchmark server", 2, key.get());
    AddExtension(certificate.get(), NID_subject_alt_name, "IP:127.0.0.1");
    Sign(certificate.get(), authority.get(), authorityKey.get());

    OpenSslPtr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()));
    Require(context != nullptr && SSL_CTX_use_certificate(context.get(), certificate.get()) == 1 &&
            SSL_CTX_use_PrivateKey(context.get(), key.get()) == 1);
    authorityPem = ToPem(authority.get());
    return context;
}

}  // namespace bench
