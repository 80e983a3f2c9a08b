#include "certificate_winhttp.h"

#include <array>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace Oak::Net {
namespace {

constexpr DWORD encoding = X509_ASN_ENCODING;

struct ChainDeleter {
    void operator()(PCCERT_CHAIN_CONTEXT chain) const noexcept { CertFreeCertificateChain(chain); }
};
using ChainPtr = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainDeleter>;

std::string TextOf(const std::string& path) {
    const std::filesystem::path utf8(std::u8string(path.begin(), path.end()));
    std::ifstream file(utf8, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Adds one certificate with its marks around.
bool AddTo(HCERTSTORE store, std::string_view pem) {
    DWORD size = static_cast<DWORD>(pem.size());  // the decoded form is the shorter one
    std::vector<BYTE> bytes(size);
    return CryptStringToBinaryA(pem.data(), size, CRYPT_STRING_BASE64HEADER, bytes.data(), &size,
                                nullptr, nullptr) != FALSE &&
           CertAddEncodedCertificateToStore(store, encoding, bytes.data(), size,
                                            CERT_STORE_ADD_USE_EXISTING, nullptr) != FALSE;
}

/// Any text may stand between the certificates. Null unless there is one, and none is broken.
StorePtr StoreOf(std::string_view pem) {
    constexpr std::string_view begin = "-----BEGIN CERTIFICATE-----";
    constexpr std::string_view end = "-----END CERTIFICATE-----";
    StorePtr store(
        CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, CERT_STORE_CREATE_NEW_FLAG, nullptr));
    if (store == nullptr) return nullptr;
    bool some = false;
    for (auto from = pem.find(begin); from != std::string_view::npos;
         from = pem.find(begin, from)) {
        const auto to = pem.find(end, from);
        if (to == std::string_view::npos) return nullptr;
        if (!AddTo(store.get(), pem.substr(from, to + end.size() - from))) return nullptr;
        some = true;
        from = to;
    }
    return some ? std::move(store) : nullptr;
}

ChainEnginePtr EngineOf(CERT_CHAIN_ENGINE_CONFIG config, std::size_t size) {
    config.cbSize = static_cast<DWORD>(size);
    HCERTCHAINENGINE engine = nullptr;
    return ChainEnginePtr(CertCreateCertificateChainEngine(&config, &engine) != FALSE ? engine
                                                                                      : nullptr);
}

ChainEnginePtr EngineOf(HCERTSTORE roots) {
    CERT_CHAIN_ENGINE_CONFIG config{};
    config.hExclusiveRoot = roots;
    // An intermediate certificate in the file is trusted, too, without the one that issued it.
    config.dwExclusiveFlags = CERT_CHAIN_EXCLUSIVE_ENABLE_CA_FLAG;
    ChainEnginePtr engine = EngineOf(config, sizeof config);
    // Older systems know but the shorter record, and trust none but self-signed certificates.
    return engine != nullptr
               ? std::move(engine)
               : EngineOf(config, offsetof(CERT_CHAIN_ENGINE_CONFIG, dwExclusiveFlags));
}

ChainPtr ChainOf(HCERTCHAINENGINE engine, const CERT_CONTEXT& certificate) {
    char serverUse[] = szOID_PKIX_KP_SERVER_AUTH;
    std::array<LPSTR, 1> uses{serverUse};
    CERT_CHAIN_PARA wanted{};
    wanted.cbSize = sizeof wanted;
    wanted.RequestedUsage.dwType = USAGE_MATCH_TYPE_AND;
    wanted.RequestedUsage.Usage.cUsageIdentifier = static_cast<DWORD>(uses.size());
    wanted.RequestedUsage.Usage.rgpszUsageIdentifier = uses.data();
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    // From the cache alone: a fetch would hold up the exchange beyond its limits.
    const BOOL built =
        CertGetCertificateChain(engine, &certificate, nullptr, certificate.hCertStore, &wanted,
                                CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, &chain);
    return ChainPtr(built != FALSE ? chain : nullptr);
}

/// `host` as in a URL: an IPv6 address stands in brackets there, and not in a certificate.
bool IsServerOf(const CERT_CHAIN_CONTEXT& chain, std::wstring host) {
    if (host.front() == L'[') host = host.substr(1, host.size() - 2);
    SSL_EXTRA_CERT_CHAIN_POLICY_PARA server{
        {sizeof(SSL_EXTRA_CERT_CHAIN_POLICY_PARA)}, AUTHTYPE_SERVER, 0, host.data()};
    CERT_CHAIN_POLICY_PARA policy{};
    policy.cbSize = sizeof policy;
    policy.pvExtraPolicyPara = &server;
    CERT_CHAIN_POLICY_STATUS status{};
    status.cbSize = sizeof status;
    return CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, &chain, &policy, &status) !=
               FALSE &&
           status.dwError == ERROR_SUCCESS;
}

}  // namespace

CertificateTrust::CertificateTrust(StorePtr roots, ChainEnginePtr engine) noexcept
    : roots_(std::move(roots)), engine_(std::move(engine)) {}

std::shared_ptr<const CertificateTrust> CertificateTrust::FromFile(const std::string& path) {
    StorePtr roots = StoreOf(TextOf(path));
    if (roots == nullptr) return nullptr;
    ChainEnginePtr engine = EngineOf(roots.get());
    if (engine == nullptr) return nullptr;
    return std::shared_ptr<const CertificateTrust>(
        new CertificateTrust(std::move(roots), std::move(engine)));
}

bool CertificateTrust::Covers(const CERT_CONTEXT& certificate,
                              const std::wstring& host) const noexcept {
    try {
        const ChainPtr chain = ChainOf(engine_.get(), certificate);
        // The policy forgives what a caller may choose to; here nothing is forgiven.
        return chain != nullptr && chain->TrustStatus.dwErrorStatus == CERT_TRUST_NO_ERROR &&
               IsServerOf(*chain, host);
    } catch (const std::exception&) {  // no memory
        return false;
    }
}

}  // namespace Oak::Net
