#include "named_certificate.hpp"

#include "hashing.hpp"

#include <optional>

namespace orvik::plugin::timestamp_glue {

namespace {

constexpr boost::string_view signingCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr boost::string_view signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* sha1 = "1.3.14.3.2.26";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1"; // the default of ESSCertIDv2

constexpr BYTE sequenceTag = 0x30;
constexpr BYTE octetStringTag = 0x04;
constexpr BYTE oidTag = 0x06;

struct CertificateHash {
    std::string algorithm;
    std::string value;
};

using Sequence = Decoded<CRYPT_SEQUENCE_OF_ANY>;

BYTE tagOf(const Sequence& sequence, DWORD index) {
    return index < sequence->cValue && sequence->rgValue[index].cbData != 0 ? sequence->rgValue[index].pbData[0] : 0;
}

/// Dotted text of the OID of an AlgorithmIdentifier; empty when it is malformed. The service decodes it as a list of
/// key usages with one member, which has the same form.
std::string algorithmOid(boost::string_view identifier) {
    constexpr std::size_t longest = 0x7F; // of a length in one octet
    const Sequence algorithm(capi::X509_SEQUENCE_OF_ANY, identifier);
    if (!algorithm || tagOf(algorithm, 0) != oidTag || algorithm->rgValue[0].cbData > longest) {
        return {};
    }
    const boost::string_view oid = view(algorithm->rgValue[0]);
    const std::string list =
        std::string{static_cast<char>(sequenceTag), static_cast<char>(oid.size())} + oid.to_string();
    const Decoded<CERT_ENHKEY_USAGE> decoded(capi::X509_ENHANCED_KEY_USAGE, list);
    return decoded && decoded->cUsageIdentifier == 1 ? decoded->rgpszUsageIdentifier[0] : std::string{};
}

std::optional<CertificateHash> firstHash(boost::string_view attribute, const char* defaultAlgorithm) {
    const Sequence outer(capi::X509_SEQUENCE_OF_ANY, attribute);
    if (!outer || tagOf(outer, 0) != sequenceTag) {
        return std::nullopt;
    }
    const Sequence list(capi::X509_SEQUENCE_OF_ANY, view(outer->rgValue[0]));
    if (!list || tagOf(list, 0) != sequenceTag) {
        return std::nullopt;
    }
    const Sequence id(capi::X509_SEQUENCE_OF_ANY, view(list->rgValue[0]));
    if (!id) {
        return std::nullopt;
    }
    CertificateHash hash{defaultAlgorithm, {}};
    DWORD index = 0;
    if (tagOf(id, 0) == sequenceTag) {
        hash.algorithm = algorithmOid(view(id->rgValue[0]));
        index = 1;
    }
    if (tagOf(id, index) != octetStringTag || hash.algorithm.empty()) {
        return std::nullopt;
    }
    const Decoded<CRYPT_DATA_BLOB> value(capi::X509_OCTET_STRING, view(id->rgValue[index]));
    if (!value) {
        return std::nullopt;
    }
    hash.value = view(*value.operator->()).to_string();
    return hash;
}

} // namespace

Naming namesCertificate(const Token& token, boost::string_view certificate) {
    struct Row {
        boost::string_view oid;
        const char* defaultAlgorithm;
    };
    Naming naming = Naming::missing;
    for (const Row& row : {Row{signingCertificate, sha1}, Row{signingCertificateV2, sha256}}) {
        const auto values = token.signedAttribute(row.oid);
        if (values.empty()) {
            continue;
        }
        const auto hash = firstHash(values.front(), row.defaultAlgorithm);
        if (!hash || values.size() != 1) {
            return Naming::missing;
        }
        if (hashOf(hash->algorithm, certificate) != hash->value) {
            return Naming::other;
        }
        naming = Naming::named;
    }
    return naming;
}

} // namespace orvik::plugin::timestamp_glue
