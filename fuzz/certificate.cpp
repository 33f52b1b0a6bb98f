// Certificates from a stranger: contexts and their properties, extensions, search, and chains over the certificates
// that the input is made of, one DER value after the other. Built with libFuzzer, and replayed by a test.

#include "asn1/der.hpp"
#include "capi/constants.hpp"
#include "carried_store.hpp"
#include "exports/export.hpp"
#include "require.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace {

using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;
namespace api = klunortredi::csp::exports;
namespace der = klunortredi::csp::der;

/// More issuers only repeat what these do: the search for paths has budgets of its own.
constexpr std::size_t largestSet = 12;
/// Numbers of properties end far below.
constexpr DWORD lastProperty = 64;

/// The DER values that `octets` begins with; all of it as the only one when there are none.
std::vector<Bytes> values(ByteView octets) {
    std::vector<Bytes> list;
    try {
        der::Reader reader(octets);
        while (!reader.empty() && list.size() < largestSet) {
            const ByteView whole = reader.read().whole;
            list.emplace_back(whole.begin(), whole.end());
        }
    } catch (const klunortredi::csp::ApiError&) {
        // what follows the last whole value belongs to nothing
    }
    if (list.empty()) {
        list.emplace_back(octets.begin(), octets.end());
    }
    return list;
}

PCCERT_CONTEXT contextOf(const Bytes& octets) {
    return api::CertCreateCertificateContext(capi::X509_AND_PKCS_7, octets.data(), static_cast<DWORD>(octets.size()));
}

void readProperties(PCCERT_CONTEXT context) {
    for (DWORD id = 0; id <= lastProperty; ++id) {
        DWORD size = 0;
        if (api::CertGetCertificateContextProperty(context, id, nullptr, &size) == 0) {
            continue;
        }
        Bytes value(size);
        require(api::CertGetCertificateContextProperty(context, id, value.data(), &size) != 0 && size <= value.size(),
                "a property that has a size can be had");
    }
}

void writeProperties(PCCERT_CONTEXT context) {
    for (const DWORD id : {capi::CERT_FRIENDLY_NAME_PROP_ID, capi::CERT_DESCRIPTION_PROP_ID}) {
        Bytes text(4 * sizeof(wchar_t)); // an empty text of the caller's
        const CRYPT_DATA_BLOB blob{static_cast<DWORD>(text.size()), text.data()};
        require(api::CertSetCertificateContextProperty(context, id, 0, &blob) != 0, "a property can be set");
    }
    readProperties(context);
}

/// Decodes, encodes, decodes and encodes: both encodings are the same.
void checkStability(const char* type, const CRYPT_DATA_BLOB& value) {
    const auto decode = [&](const BYTE* octets, DWORD length, std::vector<std::max_align_t>& out) {
        DWORD size = 0;
        if (api::CryptDecodeObject(capi::X509_ASN_ENCODING, type, octets, length, 0, nullptr, &size) == 0) {
            return false;
        }
        out.resize(size / sizeof(std::max_align_t) + 1);
        require(api::CryptDecodeObject(capi::X509_ASN_ENCODING, type, octets, length, 0, out.data(), &size) != 0,
                "what has a size decodes");
        return true;
    };
    const auto encode = [&](const std::vector<std::max_align_t>& structure, Bytes& out) {
        DWORD size = 0;
        if (api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, structure.data(), nullptr, &size) == 0) {
            return false; // readable, but not to be written: a zero character inside a text
        }
        out.resize(size);
        require(api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, structure.data(), out.data(), &size) != 0,
                "what has a size encodes");
        out.resize(size);
        return true;
    };
    std::vector<std::max_align_t> structure;
    Bytes first;
    Bytes second;
    if (!decode(value.pbData, value.cbData, structure) || !encode(structure, first)) {
        return;
    }
    require(decode(first.data(), static_cast<DWORD>(first.size()), structure), "what was encoded decodes");
    require(encode(structure, second) && first == second, "encoding is stable");
}

void readExtensions(const CERT_INFO& info) {
    for (DWORD i = 0; i < info.cExtension; ++i) {
        const CERT_EXTENSION& extension = info.rgExtension[i];
        const CERT_EXTENSION* const found =
            api::CertFindExtension(extension.pszObjId, info.cExtension, info.rgExtension);
        require(found != nullptr && found <= &extension, "an extension is found by its identifier");
        checkStability(extension.pszObjId, extension.Value);
    }
}

void readNames(CERT_INFO& info) {
    constexpr DWORD simple = 1;
    constexpr DWORD oid = 2;
    constexpr DWORD x500 = 3;
    for (CERT_NAME_BLOB* const name : {&info.Subject, &info.Issuer}) {
        for (const DWORD type : {simple, oid, x500}) {
            const DWORD size = api::CertNameToStrW(capi::X509_ASN_ENCODING, name, type, nullptr, 0);
            std::vector<wchar_t> text(std::max<DWORD>(size, 1));
            api::CertNameToStrW(capi::X509_ASN_ENCODING, name, type, text.data(), static_cast<DWORD>(text.size()));
            require(text.back() == 0, "a name's text ends");
        }
    }
}

void readUsage(PCCERT_CONTEXT context) {
    DWORD size = 0;
    if (api::CertGetEnhancedKeyUsage(context, 0, nullptr, &size) == 0) {
        return;
    }
    std::vector<std::max_align_t> usage(size / sizeof(std::max_align_t) + 1);
    require(api::CertGetEnhancedKeyUsage(context, 0, reinterpret_cast<CERT_ENHKEY_USAGE*>(usage.data()), &size) != 0,
            "a usage that has a size can be had");
}

/// Every criterion finds the certificate of which its parameter is made, or one before it that has the same.
void find(void* store, PCCERT_CONTEXT context) {
    std::array<BYTE, 20> thumbprint{};
    DWORD size = thumbprint.size();
    require(api::CertGetCertificateContextProperty(context, capi::CERT_SHA1_HASH_PROP_ID, thumbprint.data(), &size) !=
                0,
            "a certificate has a thumbprint");
    CRYPT_DATA_BLOB hash{size, thumbprint.data()};
    CERT_INFO& info = *context->pCertInfo;
    const std::array<std::pair<DWORD, const void*>, 6> criteria{{{capi::CERT_FIND_ANY, nullptr},
                                                                 {capi::CERT_FIND_SHA1_HASH, &hash},
                                                                 {capi::CERT_FIND_SUBJECT_NAME, &info.Subject},
                                                                 {capi::CERT_FIND_ISSUER_NAME, &info.Issuer},
                                                                 {capi::CERT_FIND_SUBJECT_STR, L""},
                                                                 {capi::CERT_FIND_EXISTING, context}}};
    for (const auto& [type, parameter] : criteria) {
        const PCCERT_CONTEXT found =
            api::CertFindCertificateInStore(store, capi::X509_AND_PKCS_7, 0, type, parameter, nullptr);
        require(found != nullptr, "a certificate of the store is found");
        api::CertFreeCertificateContext(found);
    }
    // These two need a key or a name that can be compared.
    api::CertFreeCertificateContext(api::CertFindCertificateInStore(
        store, capi::X509_AND_PKCS_7, 0, capi::CERT_FIND_PUBLIC_KEY, &info.SubjectPublicKeyInfo, nullptr));
    api::CertFreeCertificateContext(api::CertGetSubjectCertificateFromStore(store, capi::X509_AND_PKCS_7, &info));
    require(api::CertComparePublicKeyInfo(capi::X509_ASN_ENCODING, &info.SubjectPublicKeyInfo,
                                          &info.SubjectPublicKeyInfo) != 0,
            "a key equals itself");
}

void checkChain(const CERT_CHAIN_CONTEXT& chain, PCCERT_CONTEXT target) {
    require(chain.cChain > 0 && chain.rgpChain[0]->cElement > 0, "a chain has elements");
    const PCCERT_CONTEXT first = chain.rgpChain[0]->rgpElement[0]->pCertContext;
    require(std::ranges::equal(ByteView(first->pbCertEncoded, first->cbCertEncoded),
                               ByteView(target->pbCertEncoded, target->cbCertEncoded)),
            "a chain begins with its target");
    DWORD errors = 0;
    for (DWORD i = 0; i < chain.rgpChain[0]->cElement; ++i) {
        errors |= chain.rgpChain[0]->rgpElement[i]->TrustStatus.dwErrorStatus;
    }
    require((errors & ~chain.TrustStatus.dwErrorStatus) == 0, "the chain has the errors of its elements");
    CERT_CHAIN_POLICY_PARA parameters{sizeof parameters, 0, nullptr};
    CERT_CHAIN_POLICY_STATUS status{};
    const auto base = static_cast<unsigned long>(capi::CERT_CHAIN_POLICY_BASE);
    require(api::CertVerifyCertificateChainPolicy(reinterpret_cast<const char*>(base), &chain, &parameters, &status) !=
                0,
            "the base policy judges every chain");
    require((status.dwError == 0) == (chain.TrustStatus.dwErrorStatus == 0), "the base policy overlooks nothing");
}

void buildChains(void* anchors, void* issuers, PCCERT_CONTEXT target) {
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    constexpr DWORD offline = capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;
    for (const DWORD flags : {offline, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN | offline}) {
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        if (api::CertGetCertificateChain(anchors, target, nullptr, issuers, &parameters, flags, nullptr, &chain) != 0) {
            checkChain(*chain, target);
            api::CertFreeCertificateChain(chain);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<Bytes> set = values({data, size});
    const PCCERT_CONTEXT target = contextOf(set.front());
    if (target == nullptr) {
        return 0;
    }
    require(std::ranges::equal(ByteView(target->pbCertEncoded, target->cbCertEncoded), set.front()),
            "a context holds the octets that it was made of");
    readProperties(target);
    writeProperties(target);
    readExtensions(*target->pCertInfo);
    readNames(*target->pCertInfo);
    readUsage(target);
    void* const issuers = openCarriedStore(set, {});
    void* const anchors = openCarriedStore({set.back()}, {});
    if (issuers != nullptr && anchors != nullptr) {
        find(issuers, target);
        buildChains(anchors, issuers, target);
    }
    api::CertCloseStore(anchors, 0);
    api::CertCloseStore(issuers, 0);
    api::CertFreeCertificateContext(target);
    return 0;
}
