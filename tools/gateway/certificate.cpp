#include "certificate.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <stdexcept>

namespace gateway {
namespace {

constexpr long kHour = 3600;
constexpr long kDay = 24 * kHour;

template <typename T>
T checked(T result, const char* what) {
    if (!result) throw std::runtime_error(std::string("making a certificate: ") + what);
    return result;
}

KeyPtr makeKey() {
    return KeyPtr(checked(EVP_EC_gen("P-256"), "key"));
}

void setSerial(X509* certificate) {
    std::uint32_t serial = 0;
    checked(RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1, "serial");
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate), serial | 1U);
}

void setName(X509* certificate, const char* commonName) {
    checked(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName), -1, -1,
                                       0) == 1,
            "name");
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension =
        checked(X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()), value.c_str());
    const int added = X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
    checked(added == 1, value.c_str());
}

struct Validity {
    long fromNow;
    long untilNow;
};

// Without an issuer the certificate issues itself.
CertificatePtr issue(const char* name, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey,
                     Validity validity, const std::string& hosts) {
    CertificatePtr made(checked(X509_new(), "memory"));
    X509* certificate = made.get();
    X509_set_version(certificate, X509_VERSION_3);
    setSerial(certificate);
    setName(certificate, name);
    X509* signer = issuer != nullptr ? issuer : certificate;
    X509_set_issuer_name(certificate, X509_get_subject_name(signer));
    X509_gmtime_adj(X509_getm_notBefore(certificate), validity.fromNow);
    X509_gmtime_adj(X509_getm_notAfter(certificate), validity.untilNow);
    X509_set_pubkey(certificate, key);
    addExtension(certificate, signer, NID_subject_key_identifier, "hash");
    if (hosts.empty()) {
        addExtension(certificate, signer, NID_basic_constraints, "critical,CA:TRUE");
        addExtension(certificate, signer, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        addExtension(certificate, signer, NID_basic_constraints, "critical,CA:FALSE");
        addExtension(certificate, signer, NID_key_usage, "critical,digitalSignature");
        addExtension(certificate, signer, NID_ext_key_usage, "serverAuth");
        addExtension(certificate, signer, NID_subject_alt_name, hosts);
    }
    // Left out where it says nothing: an empty one makes some clients look for another issuer.
    if (issuer != nullptr) addExtension(certificate, signer, NID_authority_key_identifier, "keyid");
    checked(X509_sign(certificate, issuerKey, EVP_sha256()) > 0, "signature");
    return made;
}

std::string toPem(X509* certificate) {
    const std::unique_ptr<BIO, int (*)(BIO*)> memory(checked(BIO_new(BIO_s_mem()), "memory"),
                                                     BIO_free);
    checked(PEM_write_bio_X509(memory.get(), certificate) == 1, "PEM");
    char* text = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace

ServerIdentity makeServerIdentity(const std::string& address) {
    const Validity sound{-kHour, 30 * kDay};
    const std::string hosts = "DNS:localhost,IP:127.0.0.1,IP:::1,IP:" + address;
    const KeyPtr authorityKey = makeKey();
    const CertificatePtr authority = issue("Local gateway authority", authorityKey.get(), nullptr,
                                           authorityKey.get(), sound, "");
    ServerIdentity identity;
    identity.authorityPem = toPem(authority.get());
    identity.key = makeKey();
    EVP_PKEY* const key = identity.key.get();
    const auto issued = [&](Validity validity, const std::string& names) {
        return issue("Local gateway", key, authority.get(), authorityKey.get(), validity, names);
    };
    identity.certificate(Certificate::Good) = issued(sound, hosts);
    identity.certificate(Certificate::Expired) = issued({-2 * kDay, -kDay}, hosts);
    identity.certificate(Certificate::SelfSigned) =
        issue("Local gateway", key, nullptr, key, sound, hosts);
    identity.certificate(Certificate::WrongHost) = issued(sound, "DNS:elsewhere.invalid");
    return identity;
}

}  // namespace gateway
